// Raw, NRRD, MetaImage and DICOM files as volume sources, on small files the
// tests write themselves, and hostile headers that must be refused.

#include "volume/DicomSeries.h"
#include "volume/MetaImageFile.h"
#include "volume/NrrdFile.h"
#include "volume/RawVolume.h"

#include "ScanFileWriters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <unistd.h>
#include <vector>

using namespace TezScanFiles;

namespace {
class ScanFilesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = ::testing::TempDir() + "tezscanXXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        m_dir = name.data();
    }
    void TearDown() override { std::system(("rm -rf '" + m_dir + "'").c_str()); }

    std::string Path(std::string const& name) const { return m_dir + "/" + name; }

    std::string Write(std::string const& name, std::string const& bytes) const
    {
        WriteFile(Path(name), bytes);
        return Path(name);
    }

    std::string m_dir;
};

template <typename T>
std::vector<T> ReadAll(TezVolumeData& volume)
{
    int const w = volume.GetWidth(), h = volume.GetHeight(), d = volume.GetDepth();
    std::vector<T> voxels(size_t(w) * h * d, T(0xABAB));
    EXPECT_TRUE(
        volume.Copy(voxels.data(), 0, 0, 0, w, h, d, 8 * sizeof(T), w * sizeof(T), size_t(w) * h * sizeof(T), nullptr));
    return voxels;
}

// Delivered voxel (x, y, z) of a signed grid: the stored row counted from the
// bottom, shifted by 32768.
uint16_t Expected(Grid const& grid, int x, int y, int z) { return uint16_t(grid.At(x, grid.h - 1 - y, z) + 32768); }

void ExpectGrid(TezVolumeData& volume, Grid const& grid)
{
    ASSERT_EQ(volume.GetWidth(), grid.w);
    ASSERT_EQ(volume.GetHeight(), grid.h);
    ASSERT_EQ(volume.GetDepth(), grid.d);
    std::vector<uint16_t> const voxels = ReadAll<uint16_t>(volume);
    int wrong = 0;
    for (int z = 0; z < grid.d; ++z)
        for (int y = 0; y < grid.h; ++y)
            for (int x = 0; x < grid.w; ++x)
                wrong += voxels[(size_t(z) * grid.h + y) * grid.w + x] != Expected(grid, x, y, z);
    EXPECT_EQ(wrong, 0);
}

void ExpectSpacing(TezVolumeData const& volume, double x, double y, double z)
{
    TezVector3<double> const s = volume.GetSpacing();
    EXPECT_DOUBLE_EQ(s.x, x);
    EXPECT_DOUBLE_EQ(s.y, y);
    EXPECT_DOUBLE_EQ(s.z, z);
}

// The message of what `open` throws; fails the test when nothing is thrown.
std::string Refusal(std::function<void()> const& open)
{
    try {
        open();
    } catch (std::runtime_error const& error) {
        return error.what();
    }
    ADD_FAILURE() << "not refused";
    return std::string();
}

std::string Sizes(Grid const& g) { return std::to_string(g.w) + " " + std::to_string(g.h) + " " + std::to_string(g.d); }
} // namespace

TEST_F(ScanFilesTest, RawFilesInBothByteOrdersAtBothDepths)
{
    Grid const grid = MakeGrid(9, 5, 4);
    for (bool big : {false, true}) {
        std::string const path = Write(big ? "be.raw" : "le.raw", Samples16(grid, big));
        TezRef<TezRawVolume> volume = TezRawVolume::CreateFromRawFile(
            path, grid.w, grid.h, grid.d, TezVoxelSample::Int16, big, TezVector3<double>(0.5, 0.5, 2.0));
        EXPECT_EQ(volume->GetBitsPerPixel(), 16);
        ExpectGrid(*volume, grid);
        ExpectSpacing(*volume, 0.5, 0.5, 2.0);

        // An inner box at 8 bits: the high bytes, at the box's own strides.
        std::vector<uint8_t> box(3 * 2 * 2, 0);
        ASSERT_TRUE(volume->Copy(box.data(), 4, 1, 2, 3, 2, 2, 8, 3, 6, nullptr));
        EXPECT_EQ(box[0], Expected(grid, 4, 1, 2) >> 8);
        EXPECT_EQ(box[11], Expected(grid, 6, 2, 3) >> 8);
        EXPECT_FALSE(volume->Copy(box.data(), 7, 0, 0, 3, 1, 1, 8, 3, 3, nullptr)) << "box beyond x";
        EXPECT_FALSE(volume->Copy(box.data(), 0, 0, 0, 1, 1, 1, 12, 3, 3, nullptr)) << "12 bits";
    }

    // Unsigned 8-bit samples at 16 bits are scaled by 257.
    std::string const bytes = Samples8(grid);
    TezRef<TezRawVolume> eight = TezRawVolume::CreateFromRawFile(
        Write("u8.raw", bytes), grid.w, grid.h, grid.d, TezVoxelSample::UInt8, false, TezVector3<double>(1, 1, 1));
    std::vector<uint16_t> const wide = ReadAll<uint16_t>(*eight);
    EXPECT_EQ(wide[0], uint8_t(bytes[size_t(grid.w) * (grid.h - 1)]) * 257);

    // A file of another length means wrong sizes or type.
    EXPECT_NE(Refusal([&] {
                  TezRawVolume::CreateFromRawFile(Path("le.raw"), grid.w, grid.h, grid.d, TezVoxelSample::UInt8, false,
                                                  TezVector3<double>(1, 1, 1));
              }).find("the file holds 360 bytes, but 9 x 5 x 4 uint8 samples (180 bytes) are fewer"),
              std::string::npos);
}

TEST_F(ScanFilesTest, NrrdAttachedGzipInBothByteOrdersAndDetachedRaw)
{
    Grid const grid = MakeGrid(11, 6, 5);
    for (bool big : {false, true}) {
        std::string const path =
            Write(big ? "be.nrrd" : "le.nrrd",
                  NrrdHeader({"type: short", "dimension: 3", "sizes: " + Sizes(grid), "spacings: 0.7 0.7 3",
                              "kinds: domain domain domain", big ? "endian: big" : "endian: little", "encoding: gzip",
                              "key:=value: ignored"}) +
                      Gzip(Samples16(grid, big)));
        TezRef<TezRawVolume> volume = TezNrrdFile::Open(path);
        ExpectGrid(*volume, grid);
        ExpectSpacing(*volume, 0.7, 0.7, 3.0);
    }

    // A detached header naming its data file beside it, past one line and
    // three bytes; spacing from the space directions.
    Write("data.raw", "a line\nxyz" + Samples16(grid, false));
    std::string const header =
        Write("volume.nhdr",
              NrrdHeader({"type: int16", "dimension: 3", "space: left-posterior-superior", "sizes: " + Sizes(grid),
                          "space directions: (0,0.5,0) (0.6,0,0) (0,0,2.5)", "endian: little", "encoding: raw",
                          "data file: data.raw", "line skip: 1", "byte skip: 3"}));
    TezRef<TezRawVolume> detached = TezNrrdFile::Open(header);
    ExpectGrid(*detached, grid);
    ExpectSpacing(*detached, 0.5, 0.6, 2.5);

    // byte skip -1: the samples end the file.
    Write("tail.raw", "some header of any length" + Samples16(grid, true));
    TezRef<TezRawVolume> tail = TezNrrdFile::Open(
        Write("tail.nhdr", NrrdHeader({"type: ushort", "dimension: 3", "sizes: " + Sizes(grid), "endian: big",
                                       "encoding: raw", "datafile: tail.raw", "byte skip: -1"})));
    EXPECT_EQ(ReadAll<uint16_t>(*tail)[0], uint16_t(grid.At(0, grid.h - 1, 0)));
}

TEST_F(ScanFilesTest, MetaImageLocalCompressedInBothByteOrdersAndDetached)
{
    Grid const grid = MakeGrid(7, 8, 3);
    for (bool big : {false, true}) {
        std::string const stream = Zlib(Samples16(grid, big));
        std::string const path = Write(
            big ? "be.mha" : "le.mha",
            MetaHeader({"ObjectType = Image", "NDims = 3", "DimSize = " + Sizes(grid), "ElementSpacing = 0.25 0.25 1.5",
                        big ? "BinaryDataByteOrderMSB = True" : "BinaryDataByteOrderMSB = False",
                        "CompressedData = True", "CompressedDataSize = " + std::to_string(stream.size()),
                        "ElementType = MET_SHORT", "ElementDataFile = LOCAL"}) +
                stream);
        TezRef<TezRawVolume> volume = TezMetaImageFile::Open(path);
        ExpectGrid(*volume, grid);
        ExpectSpacing(*volume, 0.25, 0.25, 1.5);
    }

    Write("ct.raw", "junk before the samples" + Samples16(grid, false));
    TezRef<TezRawVolume> detached = TezMetaImageFile::Open(
        Write("ct.mhd", MetaHeader({"NDims = 3", "DimSize = " + Sizes(grid), "ElementSize = 1 2 3", "HeaderSize = -1",
                                    "ElementType = MET_SHORT", "ElementDataFile = ct.raw"})));
    ExpectGrid(*detached, grid);
    ExpectSpacing(*detached, 1.0, 2.0, 3.0);
}

// Every header below lies or is cut; each is refused with a message naming
// the fault, before it can take what it promises.
TEST_F(ScanFilesTest, HostileHeadersAreRefusedWithoutTakingTheirPromise)
{
    Grid const grid = MakeGrid(16, 16, 16);
    std::string const samples = Samples16(grid, false);
    std::string const packed = Gzip(samples);
    auto nrrd = [&](std::string const& sizes, std::string const& encoding, std::string const& body) {
        return NrrdHeader(
                   {"type: short", "dimension: 3", "sizes: " + sizes, "endian: little", "encoding: " + encoding}) +
               body;
    };
    auto mha = [&](std::vector<std::string> keys, std::string const& body) {
        keys.push_back("ElementDataFile = LOCAL");
        return MetaHeader(keys) + body;
    };
    std::string bomb(std::string(1 << 24, '\0'));
    struct Case
    {
        char const* name;
        std::string file;
        char const* message;
    };
    std::vector<Case> const cases = {
        {"more.nrrd", nrrd("1000 1000 1000", "raw", samples), "holds 8192 bytes after byte"},
        {"huge.nrrd", nrrd("1048576 1048576 1048576", "gzip", packed), "compressed bytes can hold"},
        {"overflow.nrrd", nrrd("4294967296 4294967296 16", "raw", samples), "is not a whole number from 1 to"},
        {"long.nrrd", nrrd("99999999999999999999999 1 1", "raw", samples), "is not a whole number"},
        {"cut.nrrd", nrrd(Sizes(grid), "gzip", packed.substr(0, packed.size() / 2)), "end after"},
        {"bomb.nrrd", nrrd("64 64 2", "gzip", Gzip(bomb)), "inflate to more than the header's 64 x 64 x 2"},
        {"noise.nrrd", nrrd(Sizes(grid), "gzip", "this is not a gzip stream at all"), "damaged"},
        {"float.nrrd", NrrdHeader({"type: float", "dimension: 3", "sizes: 2 2 2", "encoding: raw"}),
         "type 'float' is not read"},
        {"vector.nrrd", NrrdHeader({"type: uchar", "dimension: 4", "sizes: 3 2 2 2", "encoding: raw"}),
         "dimension 4 is not read"},
        {"noendian.nrrd", NrrdHeader({"type: short", "dimension: 3", "sizes: 2 2 2", "encoding: raw"}),
         "need an 'endian' field"},
        {"device.nhdr",
         NrrdHeader({"type: uchar", "dimension: 3", "sizes: 2 2 2", "encoding: raw", "data file: /dev/zero"}),
         "'/dev/zero': not a regular file"},
        {"magic.nrrd", "PNG and not NRRD\n\n", "not a NRRD file"},
        {"open.nrrd", "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 2 2 2\nencoding: raw\n", "no samples after"},
        {"sizes.mha", mha({"NDims = 3", "DimSize = 16 16", "ElementType = MET_SHORT"}, samples),
         "DimSize has 2 entries for NDims 3"},
        {"float.mha", mha({"NDims = 3", "DimSize = 2 2 2", "ElementType = MET_FLOAT"}, samples),
         "'MET_FLOAT' is not read"},
        {"stream.mha",
         mha({"NDims = 3", "DimSize = " + Sizes(grid), "ElementType = MET_SHORT", "CompressedData = True",
              "CompressedDataSize = 99999999"},
             Zlib(samples)),
         "promises 99999999 compressed bytes"},
        {"short.mha", mha({"NDims = 3", "DimSize = 16 16 17", "ElementType = MET_SHORT"}, samples), "fewer than"},
        {"bomb.mha",
         mha({"NDims = 3", "DimSize = 8 8 8", "ElementType = MET_UCHAR", "CompressedData = True"}, Zlib(bomb)),
         "inflate to more"},
        {"text.mha", mha({"NDims = 3", "DimSize = 2 2 2", "ElementType = MET_UCHAR", "BinaryData = False"}, "1 2"),
         "text samples"},
    };
    for (Case const& c : cases) {
        std::string const path = Write(c.name, c.file);
        bool const isNrrd = std::string(c.name).find(".n") != std::string::npos;
        auto const start = std::chrono::steady_clock::now();
        std::string const message =
            Refusal([&] { isNrrd ? (void)TezNrrdFile::Open(path) : (void)TezMetaImageFile::Open(path); });
        double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_NE(message.find(c.message), std::string::npos) << c.name << ": " << message;
        if (std::string(c.name) != "device.nhdr") { // names its data file instead
            EXPECT_NE(message.find(c.name), std::string::npos) << c.name << " is not named: " << message;
        }
        EXPECT_LT(seconds, 2.0) << c.name;
    }
}

TEST_F(ScanFilesTest, DicomSeriesSortedByPositionRescaledAndShifted)
{
    Grid const grid = MakeGrid(10, 7, 6);
    WriteDicomSeries(m_dir, grid);
    Write("README.txt", "not a DICOM file\n");
    TezRef<TezDicomSeries> series = TezDicomSeries::Create(m_dir);
    ASSERT_EQ(series->GetFiles().size(), 6u);
    EXPECT_NE(series->GetFiles().front().find("ct-5.dcm"), std::string::npos);
    // HU = value: can be negative, so everything sits 32768 up, like signed
    // 16-bit samples of the other formats.
    EXPECT_EQ(series->GetBitsPerPixel(), 16);
    EXPECT_EQ(series->GetValueOffset(), 32768);
    ExpectGrid(*series, grid);
    ExpectSpacing(*series, 0.75, 0.5, 2.5);
    ASSERT_EQ(series->GetNotes().size(), 1u);
    EXPECT_NE(series->GetNotes()[0].find("skipped 1 file that is no DICOM image ('" + Path("README.txt")),
              std::string::npos)
        << series->GetNotes()[0];
    EXPECT_TRUE(series->GetUnreadableFiles().empty());

    // Given as a list, a file that is no DICOM image is refused.
    std::vector<std::string> files = series->GetFiles();
    files.push_back(Path("README.txt"));
    EXPECT_NE(Refusal([&] { TezDicomSeries::Create(files); }).find("README.txt' is not a DICOM image"),
              std::string::npos);

    // Signed samples, slope 2 and intercept 10: 2 s + 10 + 32768.
    std::string const signedFolder = Path("signed");
    std::system(("mkdir '" + signedFolder + "'").c_str());
    for (int z = 0; z < 2; ++z) {
        DicomSlice slice;
        slice.position[2] = -z;
        slice.slope = 2;
        slice.intercept = 10;
        WriteDicom(signedFolder + "/" + std::to_string(z) + ".dcm", slice, 2, 1, {int16_t(-5 + z), 300}, true);
    }
    TezRef<TezDicomSeries> rescaled = TezDicomSeries::Create(signedFolder);
    std::vector<uint16_t> const values = ReadAll<uint16_t>(*rescaled);
    EXPECT_EQ(values, (std::vector<uint16_t>{32768 + 2 * -4 + 10, 32768 + 610, 32768 + 2 * -5 + 10, 32768 + 610}));
}

// The same series in every transfer syntax: the native ones read here, the
// compressed ones decoded by GDCM's codecs.
TEST_F(ScanFilesTest, DicomSeriesInEveryTransferSyntax)
{
    Grid const grid = MakeGrid(9, 6, 3);
    for (DicomSyntax syntax :
         {DicomSyntax::ImplicitLittle, DicomSyntax::ExplicitBig, DicomSyntax::Rle, DicomSyntax::JpegLossless}) {
        std::string const folder = Path("syntax" + std::to_string(int(syntax)));
        std::system(("mkdir '" + folder + "'").c_str());
        WriteDicomSeries(folder, grid, "ct", syntax);
        TezRef<TezDicomSeries> series = TezDicomSeries::Create(folder);
        ExpectGrid(*series, grid);
        ExpectSpacing(*series, 0.75, 0.5, 2.5);
        EXPECT_TRUE(series->GetUnreadableFiles().empty()) << int(syntax);
    }
}

TEST_F(ScanFilesTest, DicomMixedSeriesAndCutFilesAreRefused)
{
    Grid const grid = MakeGrid(6, 4, 3);
    std::vector<int16_t> const samples(size_t(grid.w) * grid.h, 1000);
    auto folderWith = [&](std::string const& name, DicomSlice const& odd, int columns) {
        std::string const folder = Path(name);
        std::system(("mkdir '" + folder + "'").c_str());
        WriteDicomSeries(folder, grid);
        WriteDicom(folder + "/odd.dcm", odd, columns, grid.h, std::vector<int16_t>(size_t(columns) * grid.h, 7), false);
        return Refusal([&] { TezDicomSeries::Create(folder); });
    };
    DicomSlice other;
    other.position[0] = 10;
    other.position[1] = 20;
    other.position[2] = 100;
    other.pixelSpacing[1] = 0.75;
    DicomSlice uid = other;
    uid.uid = "1.2.3.4";
    EXPECT_NE(folderWith("uid", uid, grid.w).find("belong to different series"), std::string::npos);
    EXPECT_NE(folderWith("size", other, grid.w + 1).find("different sizes (6 x 4 and 7 x 4 pixels)"),
              std::string::npos);
    DicomSlice tilted = other;
    double const turned[6] = {0.8, 0.6, 0, -0.6, 0.8, 0};
    std::copy(turned, turned + 6, tilted.orientation);
    EXPECT_NE(folderWith("tilted", tilted, grid.w).find("different orientations"), std::string::npos);
    DicomSlice twice = other;
    twice.position[2] = 5 + 2.5;
    EXPECT_NE(folderWith("twice", twice, grid.w).find("lie at the same position"), std::string::npos);

    // A slice cut short is refused before anything is decoded.
    std::string const folder = Path("cut");
    std::system(("mkdir '" + folder + "'").c_str());
    WriteDicomSeries(folder, grid);
    ASSERT_EQ(truncate((folder + "/ct-1.dcm").c_str(), 200), 0);
    std::string const cut = Refusal([&] { TezDicomSeries::Create(folder); });
    EXPECT_NE(cut.find("'" + folder + "/ct-1.dcm' is a damaged DICOM file: "), std::string::npos) << cut;

    // Pixel data that claims 2 GiB in a file of 2 KiB: refused, not read.
    std::string const lying = Path("lying");
    std::system(("mkdir '" + lying + "'").c_str());
    WriteDicomSeries(lying, grid);
    std::string const slice = lying + "/ct-0.dcm";
    FILE* file = std::fopen(slice.c_str(), "r+b");
    ASSERT_NE(file, nullptr);
    std::string bytes(4096, '\0');
    bytes.resize(std::fread(&bytes[0], 1, bytes.size(), file));
    size_t const at = bytes.find(std::string("\xe0\x7f\x10\x00OW\0\0", 8));
    ASSERT_NE(at, std::string::npos);
    std::fseek(file, long(at + 8), SEEK_SET);
    std::fwrite("\xf0\xff\xff\x7f", 1, 4, file);
    std::fclose(file);
    EXPECT_NE(Refusal([&] {
                  TezDicomSeries::Create(lying);
              }).find("ct-0.dcm' is a damaged DICOM file: an element runs past the end"),
              std::string::npos);
}
