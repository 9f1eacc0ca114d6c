// TezImage and TezImageStack on small stacks written by the tests themselves.

#include "volume/ImageStack.h"
#include "volume/CubeVolume.h"
#include "volume/Image.h"

#include "../core/TestApplication.h"
#include "core/Logger.h"
#include "core/UIManager.h"

#include <FreeImage.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// A fresh folder per test.
class ImageStackTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = ::testing::TempDir() + "tezstackXXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        m_dir = name.data();
    }
    void TearDown() override { std::system(("rm -rf '" + m_dir + "'").c_str()); }

    std::string Path(char const* format, int number) const
    {
        char name[64];
        std::snprintf(name, sizeof name, format, number);
        return m_dir + "/" + name;
    }

    // Grey slice: scan line r, column c holds base + step (c + 4 r).
    static void WriteGrey(std::string const& path, int width, int height, int base, int bits, int step = 1,
                          FREE_IMAGE_FORMAT format = FIF_PNG)
    {
        FIBITMAP* bitmap = FreeImage_AllocateT(bits == 8 ? FIT_BITMAP : FIT_UINT16, width, height, bits);
        for (int i = 0; bits == 8 && i < 256; ++i)
            FreeImage_GetPalette(bitmap)[i] = RGBQUAD{BYTE(i), BYTE(i), BYTE(i), 0};
        for (int r = 0; r < height; ++r)
            for (int c = 0; c < width; ++c) {
                int const v = base + step * (c + 4 * r);
                if (bits == 8)
                    FreeImage_GetScanLine(bitmap, r)[c] = static_cast<BYTE>(v);
                else
                    reinterpret_cast<uint16_t*>(FreeImage_GetScanLine(bitmap, r))[c] = static_cast<uint16_t>(v);
            }
        ASSERT_TRUE(FreeImage_Save(format, bitmap, path.c_str(), 0)) << path;
        FreeImage_Unload(bitmap);
    }

    // Files slice10.png .. slice19.png without 13 and 14: slice i of the
    // stack has base 20 i + 7.
    TezRef<TezImageStack> GappedStack(int bits = 8)
    {
        char const* format = bits == 8 ? "slice%02d.png" : "slice%02d.tif";
        for (int n = 10; n <= 19; ++n)
            if (n != 13 && n != 14)
                WriteGrey(Path(format, n), 5, 3, bits == 8 ? 20 * (n - 10) + 7 : 1000 * (n - 10) + 300, bits,
                          bits == 8 ? 1 : 7, bits == 8 ? FIF_PNG : FIF_TIFF);
        return TezImageStack::Create((m_dir + "/" + format).c_str(), 10, 19);
    }

    std::string m_dir;
};

// The blend of two slices' voxels at weight t / 65535.
int Blend(int a, int b, double p, double q, int s)
{
    int64_t t = static_cast<int64_t>((s - p) / (q - p) * 65535.0);
    return static_cast<int>(((~t & 0xFFFF) * a + t * b) >> 16);
}

class RecordingUI : public TezUICallback
{
public:
    void StartProgress(uint64_t count) override { events.push_back("start " + std::to_string(count)); }
    void EndProgress() override { events.push_back("end"); }
    void StepProgress(uint32_t) override { ++steps; }
    void SetProgressMessage(TezString const& message) override { events.push_back(message.c_str()); }
    void StartNestedSection(bool) override {}
    void FinishNestedSection() override {}
    void AddNode(int) override {}
    void RemoveNode(int) override {}
    void SetActiveNode(int) override {}
    void SetActiveLevel(int) override {}
    int GetActiveLevel() override { return 0; }
    bool GetStopFlag() override { return false; }
    void ZoomAll() override {}
    void SetCursor(TezResourceManager::Cursors) override {}
    void SetToolCursor(TezResourceManager::Cursors) override {}
    void ReportError(TezString const&) override {}

    std::vector<std::string> events;
    std::atomic<int> steps{0};
};

} // namespace

TEST_F(ImageStackTest, GapsAreInterpolatedBetweenTheirNeighbours)
{
    TezRef<TezImageStack> stack = GappedStack();
    ASSERT_TRUE(stack->IsValid());
    EXPECT_EQ(stack->GetWidth(), 5);
    EXPECT_EQ(stack->GetHeight(), 3);
    EXPECT_EQ(stack->GetDepth(), 10);
    ASSERT_EQ(stack->GetImages().size(), 8u);
    EXPECT_EQ(stack->GetImages()[3].index, 5);

    TestApplication app;
    RecordingUI ui;
    app.GetUIManager()->SetCallback(&ui);
    std::vector<uint8_t> volume(10 * 3 * 6, 0xEE); // rows of 6 bytes: the padding stays
    ASSERT_TRUE(stack->Copy(volume.data(), 0, 0, 0, 5, 3, 10, 8, 6, 18, nullptr));
    app.GetUIManager()->SetCallback(nullptr);

    for (int s = 0; s < 10; ++s)
        for (int r = 0; r < 3; ++r) {
            EXPECT_EQ(volume[s * 18 + r * 6 + 5], 0xEE);
            for (int c = 0; c < 5; ++c) {
                int expected = 20 * s + 7 + c + 4 * r;
                if (s == 3 || s == 4) {
                    expected = Blend(47 + c + 4 * r, 107 + c + 4 * r, 2, 5, s);
                    EXPECT_NEAR(expected, 47 + 20 * (s - 2) + c + 4 * r, 1); // linear within rounding
                }
                EXPECT_EQ(volume[s * 18 + r * 6 + c], expected) << s << " " << r << " " << c;
            }
        }
    std::vector<std::string> events{"Image Stack: Loading...", "start 8", "Image Stack: Interpolating...", "start 8",
                                    "end"};
    EXPECT_EQ(ui.events, events);
    EXPECT_EQ(ui.steps, 8 + 1); // one step per file, one per gap
}

TEST_F(ImageStackTest, BoxesBeginningOrEndingInAGapUseImagesOutsideTheBox)
{
    TezRef<TezImageStack> stack = GappedStack();
    std::vector<uint8_t> lower(15), upper(15);
    uint8_t* buffers[2] = {lower.data(), upper.data()};

    // Slices 3 to 6, with a guard slice on either side.
    std::vector<uint8_t> volume(6 * 15, 0xEE);
    ASSERT_TRUE(stack->Copy(volume.data() + 15, 0, 0, 3, 5, 3, 4, 8, 5, 15, buffers));
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(volume[i], 0xEE);
        EXPECT_EQ(volume[5 * 15 + i], 0xEE);
        EXPECT_EQ(lower[i], 47 + i % 5 + 4 * (i / 5)); // slice 2, from before the box
        EXPECT_EQ(volume[1 * 15 + i], Blend(lower[i], lower[i] + 60, 2, 5, 3));
        EXPECT_EQ(volume[2 * 15 + i], Blend(lower[i], lower[i] + 60, 2, 5, 4));
        EXPECT_EQ(volume[3 * 15 + i], lower[i] + 60);
        EXPECT_EQ(volume[4 * 15 + i], lower[i] + 80);
    }

    // Slices 1 to 3 of rows 1 and 2, columns 2 to 4: the last slice is a gap.
    std::vector<uint8_t> part(3 * 2 * 3, 0);
    ASSERT_TRUE(stack->Copy(part.data(), 2, 1, 1, 3, 2, 3, 8, 3, 6, buffers));
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c) {
            int const v = 27 + (c + 2) + 4 * (r + 1);
            EXPECT_EQ(part[r * 3 + c], v);
            EXPECT_EQ(part[6 + r * 3 + c], v + 20);
            EXPECT_EQ(part[12 + r * 3 + c], Blend(v + 20, v + 80, 1, 4, 2));
        }
}

TEST_F(ImageStackTest, SixteenBitSlicesFromTiff)
{
    TezRef<TezImageStack> stack = GappedStack(16);
    ASSERT_TRUE(stack->IsValid());
    std::vector<uint16_t> volume(10 * 15);
    ASSERT_TRUE(stack->Copy(volume.data(), 0, 0, 0, 5, 3, 10, 16, 10, 30, nullptr));
    for (int i = 0; i < 15; ++i) {
        int const v = 300 + 7 * (i % 5 + 4 * (i / 5));
        EXPECT_EQ(volume[2 * 15 + i], v + 2000);
        EXPECT_EQ(volume[3 * 15 + i], Blend(v + 2000, v + 5000, 2, 5, 3));
        EXPECT_EQ(volume[4 * 15 + i], Blend(v + 2000, v + 5000, 2, 5, 4));
        EXPECT_EQ(volume[9 * 15 + i], v + 9000);
    }

    // 8-bit files delivered at 16 bits keep their value in the high byte.
    TezRef<TezImageStack> eight = GappedStack(8);
    std::vector<uint16_t> wide(15);
    ASSERT_TRUE(eight->Copy(wide.data(), 0, 0, 1, 5, 3, 1, 16, 10, 30, nullptr));
    EXPECT_EQ(wide[0] >> 8, 27);
}

TEST_F(ImageStackTest, ColourAndOddSizedSlicesAreConvertedAndRescaled)
{
    WriteGrey(Path("s%d.png", 0), 6, 4, 10, 8);
    std::vector<uint8_t> rgb;
    for (int i = 0; i < 24; ++i)
        rgb.insert(rgb.end(), {200, 100, 50});
    TezImage colour;
    ASSERT_TRUE(colour.CreateFromPixels(rgb.data(), 6, 4, 3, 18, true) && colour.Save(Path("s%d.png", 1).c_str()));
    WriteGrey(Path("s%d.png", 2), 3, 2, 90, 8, 0); // flat, so that rescaling keeps its value

    // Names that do not exist leave gaps and are dropped at the ends.
    std::vector<TezString> names{TezString(Path("missing%d.png", 0).c_str()), TezString(Path("s%d.png", 0).c_str()),
                                 TezString(Path("s%d.png", 1).c_str()), TezString(Path("s%d.png", 2).c_str())};
    TezRef<TezImageStack> stack = TezImageStack::Create(names);
    ASSERT_TRUE(stack->IsValid());
    EXPECT_EQ(stack->GetDepth(), 3);
    EXPECT_EQ(stack->GetImages().front().index, 1);

    std::vector<uint8_t> volume(3 * 24);
    ASSERT_TRUE(stack->Copy(volume.data(), 0, 0, 0, 6, 4, 3, 8, 6, 24, nullptr));
    EXPECT_EQ(volume[5], 15);
    for (int i = 0; i < 24; ++i) {
        EXPECT_NEAR(volume[24 + i], 0.2126 * 200 + 0.7152 * 100 + 0.0722 * 50, 1.0);
        EXPECT_NEAR(volume[48 + i], 90, 1);
    }

    stack->Resize(4, 3);
    EXPECT_EQ(stack->GetFileWidth(), 6);
    std::vector<uint8_t> small(3 * 12);
    ASSERT_TRUE(stack->Copy(small.data(), 0, 0, 0, 4, 3, 3, 8, 4, 12, nullptr));
    EXPECT_NEAR(small[12 + 11], 118, 1);
    EXPECT_NEAR(small[24 + 5], 90, 1);
    EXPECT_FALSE(stack->Copy(small.data(), 0, 0, 0, 6, 4, 1, 8, 6, 24, nullptr)); // beyond the new size
}

TEST_F(ImageStackTest, InvalidRequestsAreRefusedWithAWarning)
{
    TezRef<TezImageStack> stack = GappedStack();
    std::vector<uint8_t> volume(10 * 15, 0xEE);
    struct Request
    {
        void* buffer;
        int x, y, z, w, h, d, bits;
        uint64_t row, slice;
    };
    uint8_t* const b = volume.data();
    Request const requests[] = {
        {b, 0, 0, 0, 5, 3, 10, 12, 5, 15},                                      // 12 bits
        {b, -1, 0, 0, 5, 3, 1, 8, 5, 15},                                       // negative corner
        {b, 1, 0, 0, 5, 3, 1, 8, 5, 15},                                        // beyond the width
        {b, 0, 0, 5, 5, 3, 6, 8, 5, 15},                                        // beyond the depth
        {nullptr, 0, 0, 0, 5, 3, 1, 8, 5, 15}, {b, 0, 0, 0, 5, 3, 2, 8, 4, 15}, // rows overlap
        {b, 0, 0, 0, 5, 3, 2, 8, 5, 14},                                        // slices overlap
        {b, 0, 0, 0, 5, 3, 2, 16, 11, 33},                                      // odd strides at 16 bits
    };
    for (Request const& r : requests) {
        ::testing::internal::CaptureStdout();
        EXPECT_FALSE(stack->Copy(r.buffer, r.x, r.y, r.z, r.w, r.h, r.d, r.bits, r.row, r.slice, nullptr));
        std::string log = ::testing::internal::GetCapturedStdout();
        EXPECT_NE(log.find("TezImageStack::Copy: invalid copy request\n"), std::string::npos) << log;
    }
    EXPECT_EQ(volume, std::vector<uint8_t>(10 * 15, 0xEE));

    EXPECT_FALSE(TezImageStack::Create((m_dir + "/slice%02d%s.png").c_str(), 10, 19)->IsValid());
    EXPECT_FALSE(TezImageStack::Create((m_dir + "/none%02d.png").c_str(), 10, 19)->IsValid());
    EXPECT_FALSE(
        TezImageStack::Create(std::vector<TezImageStack::ImageFile>{})->Copy(b, 0, 0, 0, 0, 0, 0, 8, 0, 0, nullptr));
}

TEST_F(ImageStackTest, ResampledDepthInterpolatesBetweenTheSlicesAroundEachOutputSlice)
{
    for (int n = 0; n < 4; ++n)
        WriteGrey(Path("r%d.png", n), 2, 2, 60 * n, 8, 0);
    TezRef<TezImageStack> stack = TezImageStack::Create((m_dir + "/r%d.png").c_str(), 0, 3);
    stack->SetScale(2.0);
    ASSERT_EQ(stack->GetDepth(), 8);
    ASSERT_EQ(stack->GetWidth(), 4);

    std::vector<uint8_t> volume(8 * 16);
    ASSERT_TRUE(stack->Copy(volume.data(), 0, 0, 0, 4, 4, 8, 8, 4, 16, nullptr));
    int const expected[8] = {0, 29, 59, 89, 119, 149, 180, 180};
    for (int s = 0; s < 8; ++s)
        EXPECT_EQ(volume[s * 16 + 5], expected[s]) << s;

    // A box further in sees the same values.
    std::vector<uint8_t> part(2 * 16);
    ASSERT_TRUE(stack->Copy(part.data(), 0, 0, 3, 4, 4, 2, 8, 4, 16, nullptr));
    EXPECT_EQ(part[0], 89);
    EXPECT_EQ(part[16], 119);

    // Shrinking keeps every other slice.
    stack->SetScale(0.5);
    ASSERT_EQ(stack->GetDepth(), 2);
    std::vector<uint8_t> half(2 * 1);
    ASSERT_TRUE(stack->Copy(half.data(), 0, 0, 0, 1, 1, 2, 8, 1, 1, nullptr));
    EXPECT_EQ(half[0], 0);
    EXPECT_EQ(half[1], 119);

    // The cube volume reads a whole stack.
    TezRef<TezCubeVolume> cube = TezCubeVolume::ReadFromImageStack(stack, 0.5f);
    EXPECT_EQ(cube->Dimensions(), TezVector3<int>(1, 1, 2));
    EXPECT_EQ(cube->GetValue(0, 0, 1), 119);
}

TEST_F(ImageStackTest, ImagesLoadTiffOfEitherByteOrderAndSavePng)
{
    // A big-endian 16-bit grey TIFF of 3 x 2, written by hand.
    std::vector<uint8_t> tiff{'M', 'M', 0, 42, 0, 0, 0, 8};
    auto u16 = [&](int v) {
        tiff.push_back(static_cast<uint8_t>(v >> 8));
        tiff.push_back(static_cast<uint8_t>(v));
    };
    auto u32 = [&](uint32_t v) {
        u16(static_cast<int>(v >> 16));
        u16(static_cast<int>(v & 0xFFFF));
    };
    uint32_t const dataOffset = 8 + 2 + 8 * 12 + 4;
    struct Entry
    {
        int tag, type;
        uint32_t value;
    } const entries[] = {{256, 3, 3}, {257, 3, 2},          {258, 3, 16}, {259, 3, 1},
                         {262, 3, 1}, {273, 4, dataOffset}, {278, 3, 2},  {279, 4, 12}};
    u16(8);
    for (Entry const& e : entries) {
        u16(e.tag);
        u16(e.type);
        u32(1);
        if (e.type == 3) {
            u16(static_cast<int>(e.value));
            u16(0);
        } else {
            u32(e.value);
        }
    }
    u32(0);
    for (int i = 0; i < 6; ++i)
        u16(0x1234 + 0x101 * i);
    std::string path = m_dir + "/big.tif";
    FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(tiff.data(), 1, tiff.size(), file);
    std::fclose(file);

    TezImage image;
    ASSERT_TRUE(image.Load(path.c_str()));
    EXPECT_EQ(image.GetBPP(), 16);
    EXPECT_EQ(image.GetColorType(), TezImage::ColorTypeMinIsBlack);
    // The file's first row is the library's last scan line.
    EXPECT_EQ(reinterpret_cast<uint16_t*>(image.GetScanLine(1))[2], 0x1234 + 0x202);
    EXPECT_EQ(reinterpret_cast<uint16_t*>(image.GetScanLine(0))[0], 0x1234 + 0x303);

    // A little-endian one from FreeImage reads the same way.
    WriteGrey(m_dir + "/little.tif", 3, 2, 500, 16, 7, FIF_TIFF);
    ASSERT_TRUE(image.Load((m_dir + "/little.tif").c_str()));
    EXPECT_EQ(reinterpret_cast<uint16_t*>(image.GetScanLine(1))[2], 500 + 7 * 6);

    // Save writes the format the name says, PNG for other names; an RGBA
    // picture round-trips through PNG.
    uint8_t const rgba[2 * 2 * 4] = {255, 0, 0, 255, 0, 255, 0, 128, 0, 0, 255, 255, 9, 8, 7, 6};
    ASSERT_TRUE(image.CreateFromPixels(rgba, 2, 2, 4, 8, true));
    struct Named
    {
        char const* name;
        FREE_IMAGE_FORMAT format;
    };
    for (Named const& n : {Named{"frame.JPG", FIF_JPEG}, Named{"frame.tiff", FIF_TIFF}, Named{"frame.bmp", FIF_BMP},
                           Named{"frame.exr", FIF_EXR}, Named{"frame.dat", FIF_PNG}}) {
        ASSERT_TRUE(image.Save((m_dir + "/" + n.name).c_str())) << n.name;
        EXPECT_EQ(FreeImage_GetFileType((m_dir + "/" + n.name).c_str(), 0), n.format) << n.name;
    }
    // Values in 0..1 stay 16-bit in PNG and TIFF, and floats in EXR.
    float const depth[4] = {0.0f, 0.25f, 1.0f, 2.0f};
    for (char const* name : {"depth.png", "depth.tif", "depth.exr"}) {
        bool const exr = std::string(name) == "depth.exr";
        TezImage grey;
        ASSERT_TRUE(grey.CreateGreyFromValues(depth, 2, 2, true, exr));
        ASSERT_TRUE(grey.Save((m_dir + "/" + name).c_str())) << name;
        TezImage read;
        ASSERT_TRUE(read.Load((m_dir + "/" + name).c_str())) << name;
        EXPECT_EQ(exr ? 32 : 16, read.GetBPP()) << name;
        if (!exr) { // the top row, 0 and 0.25, is the last scan line
            EXPECT_EQ(16384, reinterpret_cast<uint16_t*>(read.GetScanLine(1))[1]) << name;
        }
    }
    EXPECT_TRUE(TezImage::IsSavableName("a/b.Png"));
    EXPECT_FALSE(TezImage::IsSavableName("a.b/png"));
    EXPECT_FALSE(TezImage::IsSavableName("b.gif"));
    ASSERT_TRUE(image.Save((m_dir + "/frame.png").c_str()));
    TezImage back;
    ASSERT_TRUE(back.Load((m_dir + "/frame.png").c_str()));
    uint8_t read[16];
    ASSERT_TRUE(back.ReadPixels(read, 4, 8, true));
    EXPECT_EQ(std::memcmp(read, rgba, 16), 0);

    // Paths longer than 1024 bytes are refused, unreadable files too.
    EXPECT_FALSE(image.Load((m_dir + "/" + std::string(1100, 'a') + ".png").c_str()));
    EXPECT_FALSE(image.IsValid());
    EXPECT_FALSE(image.Load(m_dir.c_str()));
    EXPECT_FALSE(back.Save((m_dir + "/" + std::string(1100, 'a')).c_str()));
}

TEST_F(ImageStackTest, NumberedFilesAreFoundByListingTheFolder)
{
    GappedStack();
    std::string const pattern = m_dir + "/slice%02d.png";
    // A last number near the largest int costs no more than the folder's
    // size: every number is never tried.
    TezRef<TezImageStack> stack = TezImageStack::Create(pattern.c_str(), 10, 2147483646);
    ASSERT_TRUE(stack->IsValid());
    EXPECT_EQ(stack->GetDepth(), 10);

    // Only the pattern's exact spelling matches; a directory of a matching
    // name is found but never becomes a slice.
    WriteGrey(Path("slice%d.png", 7), 5, 3, 0, 8);
    ASSERT_EQ(mkdir(Path("slice%02d.png", 20).c_str(), 0700), 0);
    std::vector<TezImageStack::ImageFile> found = TezImageStack::FindNumberedFiles(pattern.c_str(), 0, 99);
    ASSERT_EQ(found.size(), 9u);
    EXPECT_EQ(found.front().index, 10);
    EXPECT_EQ(found.back().name, TezString(Path("slice%02d.png", 20).c_str()));
    stack = TezImageStack::Create(pattern.c_str(), 0, 99);
    EXPECT_EQ(stack->GetImages().size(), 8u);
    EXPECT_EQ(stack->GetDepth(), 10);

    // The number may name a folder; the index counts from FIRST.
    for (int run : {3, 5}) {
        ASSERT_EQ(mkdir(Path("run%d", run).c_str(), 0700), 0);
        WriteGrey(Path("run%d", run) + "/a.png", 5, 3, run, 8);
    }
    ASSERT_EQ(mkdir(Path("run%d", 4).c_str(), 0700), 0); // no a.png inside
    found = TezImageStack::FindNumberedFiles((m_dir + "/run%d/a.png").c_str(), 2, 9);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].index, 1);
    EXPECT_EQ(found[1].index, 3);
    EXPECT_TRUE(TezImageStack::FindNumberedFiles((m_dir + "/none/s%d.png").c_str(), 0, 9).empty());
}

TEST_F(ImageStackTest, UnreadableSlicesAreNamedOnceAndInterpolated)
{
    std::string const pattern = m_dir + "/s%d.png";
    for (int n = 0; n < 10; ++n)
        WriteGrey(Path("s%d.png", n), 5, 3, 20 * n, 8);
    // 3: not an image at all; 6: a PNG cut short in its pixel data; 8: a
    // pipe, which a reader that opened it would wait on for ever.
    FILE* file = std::fopen(Path("s%d.png", 3).c_str(), "wb");
    std::fputs("this is not a picture", file);
    std::fclose(file);
    std::string png;
    file = std::fopen(Path("s%d.png", 6).c_str(), "rb");
    for (int c; (c = std::fgetc(file)) != EOF;)
        png.push_back(char(c));
    std::fclose(file);
    file = std::fopen(Path("s%d.png", 6).c_str(), "wb");
    std::fwrite(png.data(), 1, png.size() - 30, file);
    std::fclose(file);
    std::remove(Path("s%d.png", 8).c_str());
    ASSERT_EQ(mkfifo(Path("s%d.png", 8).c_str(), 0600), 0);

    TezRef<TezImageStack> stack = TezImageStack::Create(pattern.c_str(), 0, 9);
    ASSERT_TRUE(stack->IsValid());
    EXPECT_EQ(stack->GetFileCount(), 10u);
    EXPECT_EQ(stack->CheckFiles(), 2u); // the cut PNG has a sound header

    std::vector<uint8_t> voxels(5 * 3 * 10, 0);
    for (int pass = 0; pass < 2; ++pass)
        ASSERT_TRUE(stack->Copy(voxels.data(), 0, 0, 0, 5, 3, 10, 8, 5, 15, nullptr));
    std::vector<TezString> const bad = stack->GetUnreadableFiles();
    ASSERT_EQ(bad.size(), 3u);
    EXPECT_NE(std::find(bad.begin(), bad.end(), TezString(Path("s%d.png", 6).c_str())), bad.end());
    // Each bad slice lies between two good ones whose bases differ by 40.
    for (int s : {3, 6, 8})
        EXPECT_EQ(voxels[size_t(s) * 15], Blend(20 * (s - 1), 20 * (s + 1), s - 1, s + 1, s)) << s;
}

TEST_F(ImageStackTest, ImageLibraryMessagesGoToTheDebugLogOneLinePerFile)
{
    // A little-endian 8-bit grey TIFF of 4 x 2 with three private tags: the
    // TIFF library has a warning for each, and more.
    std::vector<uint8_t> tiff{'I', 'I', 42, 0, 8, 0, 0, 0};
    auto u16 = [&](uint32_t v) {
        tiff.push_back(uint8_t(v));
        tiff.push_back(uint8_t(v >> 8));
    };
    uint32_t const tags[][3] = {{256, 3, 4}, {257, 3, 2}, {258, 3, 8}, {259, 3, 1},   {262, 3, 1},   {273, 4, 0},
                                {277, 3, 1}, {278, 3, 2}, {279, 4, 8}, {65000, 3, 7}, {65001, 3, 9}, {65002, 4, 5}};
    size_t const count = sizeof tags / sizeof tags[0];
    u16(uint32_t(count));
    for (auto const& tag : tags) {
        u16(tag[0]);
        u16(tag[1]);
        u16(1);
        u16(0);
        uint32_t const value = tag[0] == 273 ? uint32_t(8 + 2 + 12 * count + 4) : tag[2];
        u16(value & 0xFFFF);
        u16(value >> 16);
    }
    u16(0);
    u16(0);
    for (int i = 0; i < 8; ++i)
        tiff.push_back(uint8_t(10 * i));
    std::string const path = m_dir + "/tagged.tif";
    FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(tiff.data(), 1, tiff.size(), file);
    std::fclose(file);

    // Both standard streams into files while the image loads, with the
    // console showing debug messages.
    std::string const outPath = m_dir + "/out.txt", errPath = m_dir + "/err.txt";
    int const level = TezLogger::GetConsoleLevel();
    TezLogger::SetConsoleLevel(TezLogger::Debug);
    std::fflush(stdout);
    std::fflush(stderr);
    int const savedOut = dup(1), savedErr = dup(2);
    int const outFile = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int const errFile = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(outFile, 1);
    dup2(errFile, 2);
    TezImage image;
    bool const loaded = image.Load(path.c_str());
    std::fflush(stdout);
    std::fflush(stderr);
    dup2(savedOut, 1);
    dup2(savedErr, 2);
    close(savedOut);
    close(savedErr);
    close(outFile);
    close(errFile);
    TezLogger::SetConsoleLevel(level);

    ASSERT_TRUE(loaded);
    EXPECT_EQ(image.GetWidth(), 4);
    auto slurp = [](std::string const& name) {
        std::string text;
        FILE* f = std::fopen(name.c_str(), "rb");
        for (int c; f && (c = std::fgetc(f)) != EOF;)
            text.push_back(char(c));
        if (f)
            std::fclose(f);
        return text;
    };
    EXPECT_EQ(slurp(errPath), "");
    std::string const out = slurp(outPath);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << out;
    EXPECT_NE(out.find("tagged.tif"), std::string::npos) << out;
    EXPECT_NE(out.find("65000"), std::string::npos) << out;
}
