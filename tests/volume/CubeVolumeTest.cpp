// TezCubeVolume: layout, slice setters, the archive form; histograms.

#include "volume/CubeVolume.h"
#include "volume/VolumeStatistics.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace {

// A temporary file an archive writes and then reads.
struct TempArchive
{
    TempArchive() : file(std::tmpfile()) {}
    ~TempArchive() { std::fclose(file); }
    TezRef<TezArchive> Writer() { return TezArchive::Open(file, TezArchive::Write); }
    TezRef<TezArchive> Reader()
    {
        std::rewind(file);
        return TezArchive::Open(file, TezArchive::Read);
    }
    FILE* file;
};

TezRef<TezCubeVolume> Numbered(int w, int h, int d)
{
    TezRef<TezCubeVolume> cube = TezCubeVolume::Create();
    cube->Resize(TezVector3<int>(w, h, d));
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                (*cube)(x, y, z) = static_cast<uint8_t>(x + 10 * y + 50 * z);
    return cube;
}

} // namespace

TEST(TezCubeVolume, LayoutAndSliceSetters)
{
    TezRef<TezCubeVolume> cube = Numbered(4, 3, 2);
    EXPECT_EQ(cube->GetData()[(3 * 1 + 2) * 4 + 3], cube->GetValue(3, 2, 1));
    EXPECT_EQ(cube->GetStackRow(2, 1), cube->GetData() + 20);
    EXPECT_EQ(cube->StackSize(), 12u);
    EXPECT_FLOAT_EQ(cube->GetDimensions().y, 3.0f);

    uint8_t source[64];
    for (int i = 0; i < 64; ++i)
        source[i] = static_cast<uint8_t>(i);
    cube->SetStackRow(1, 0, 2, source);
    EXPECT_EQ(cube->GetValue(3, 1, 0), 6);

    cube->SetStack(1, 8, 1, source); // transposed strides also work
    EXPECT_EQ(cube->GetValue(3, 2, 1), 19);

    // The region is clipped to the slice on every side.
    cube->Assign(200);
    cube->SetStackRegion(0, 2, -1, 10, 3, 1, 8, source);
    EXPECT_EQ(cube->GetValue(1, 0, 0), 200);
    EXPECT_EQ(cube->GetValue(2, 0, 0), 0);
    EXPECT_EQ(cube->GetValue(3, 1, 0), 9);
    EXPECT_EQ(cube->GetValue(3, 2, 0), 17); // the clamp of y does not shorten the rectangle
    EXPECT_EQ(cube->GetValue(0, 0, 1), 200);
}

TEST(TezCubeVolume, ResizeRefusesImpossibleSizes)
{
    TezRef<TezCubeVolume> cube = TezCubeVolume::Create();
    EXPECT_THROW(cube->Resize(TezVector3<int>(-1, 2, 2)), std::runtime_error);
    EXPECT_THROW(cube->Resize(TezVector3<int>(1 << 30, 1 << 30, 4)), std::runtime_error);
    cube->Resize(TezVector3<int>(0, 5, 5));
    EXPECT_EQ(cube->GetData(), nullptr);
}

TEST(TezCubeVolume, ArchiveRoundTrip)
{
    TezRef<TezCubeVolume> cube = Numbered(17, 9, 5); // above the archive's compression threshold
    cube->SetVoxelSize(0.25f);
    TempArchive file;
    {
        TezRef<TezArchive> w = file.Writer();
        cube->Save(w);
        w->Flush();
    }
    TezRef<TezCubeVolume> back = TezCubeVolume::Create();
    back->Load(file.Reader());
    ASSERT_EQ(back->Dimensions(), cube->Dimensions());
    EXPECT_FLOAT_EQ(back->GetVoxelSize(), 0.25f);
    EXPECT_EQ(std::memcmp(back->GetData(), cube->GetData(), cube->VoxelCount()), 0);

    // An empty volume round-trips too.
    TempArchive emptyFile;
    {
        TezRef<TezArchive> w = emptyFile.Writer();
        TezCubeVolume::Create()->Save(w);
        w->WriteInt("after", 7);
        w->Flush();
    }
    TezRef<TezArchive> r = emptyFile.Reader();
    back->Load(r);
    EXPECT_EQ(back->GetData(), nullptr);
    EXPECT_STREQ(r->ReadTag(), "after");
}

TEST(TezCubeVolume, LoadIgnoresOtherSectionsAndRefusesBadSizes)
{
    TezRef<TezCubeVolume> cube = Numbered(2, 2, 2);
    TempArchive other;
    {
        TezRef<TezArchive> w = other.Writer();
        w->WriteStartSection("TezImageStack");
        w->WriteEndSection();
        w->Flush();
    }
    cube->Load(other.Reader());
    EXPECT_EQ(cube->GetValue(1, 1, 1), 61);

    // Sizes that cannot be right: negative, beyond memory, beyond the file.
    auto stored = [](int32_t w, int32_t h, int32_t d, long cut) {
        auto* file = new TempArchive;
        TezRef<TezArchive> a = file->Writer();
        a->WriteStartSection("TezCubeVolume");
        int32_t dims[3] = {w, h, d};
        a->WriteBinary("dimensions", dims, sizeof dims);
        std::vector<uint8_t> data(4096, 1);
        a->SetCompressLevel(0);
        a->WriteBinary("", data.data(), data.size());
        a->WriteEndSection();
        a->Flush();
        std::fflush(file->file);
        long size = std::ftell(file->file);
        EXPECT_EQ(ftruncate(fileno(file->file), size - cut), 0);
        return file;
    };
    for (auto* file : {stored(-4, 2, 2, 0), stored(1 << 30, 1 << 30, 1 << 30, 0), stored(16, 16, 16, 100)}) {
        EXPECT_THROW(cube->Load(file->Reader()), std::runtime_error);
        delete file;
    }
}

TEST(TezVolumeStatistics, HistogramsOfBoxes)
{
    uint32_t table[256] = {};
    // 16 bits: the bin is the high byte, strides are bytes.
    uint16_t words[2][3][4];
    for (auto& slice : words)
        for (auto& row : slice)
            for (auto& v : row)
                v = 0x01FF;
    words[1][2][3] = 0xFF00;
    TezVolumeStatistics::Instance().ComputeHistogram(words, 1, 1, 1, 3, 2, 1, 16, 8, 24, table);
    EXPECT_EQ(table[1], 5u);
    EXPECT_EQ(table[255], 1u);

    // 8 bits, added to what the table holds.
    TezRef<TezCubeVolume> cube = TezCubeVolume::Create();
    cube->Resize(TezVector3<int>(3, 3, 3));
    cube->Assign(1);
    TezVolumeStatistics::Instance().ComputeHistogram(*cube, table);
    EXPECT_EQ(table[1], 32u);
}

TEST(TezVolumeStatistics, RunsAndMixedRowsCountLikeOneByOne)
{
    // Rows of 61 voxels from an offset of 3: long runs of one bin, runs
    // broken by a single voxel, 16-bit runs that only share the high byte,
    // and noise, with a tail shorter than a vector.
    int const width = 61, height = 5, depth = 3, stride = 70, rows = stride * height;
    std::vector<uint8_t> bytes(size_t(rows) * depth);
    std::vector<uint16_t> words(bytes.size());
    uint32_t seed = 7;
    for (size_t i = 0; i < bytes.size(); ++i) {
        seed = seed * 1664525u + 1013904223u;
        int const kind = int(i / 40) % 3;
        bytes[i] = kind == 0 ? 0 : (kind == 1 ? uint8_t(i % 29 == 0 ? 9 : 200) : uint8_t(seed >> 24));
        words[i] = kind == 0 ? uint16_t(0x0300 | (seed >> 28)) : uint16_t(seed >> 16);
    }
    uint32_t expect8[256] = {}, expect16[256] = {}, got8[256] = {}, got16[256] = {};
    for (int z = 0; z < depth; ++z)
        for (int y = 0; y < height; ++y)
            for (int x = 3; x < 3 + width; ++x) {
                size_t const i = size_t(z) * rows + size_t(y) * stride + size_t(x);
                ++expect8[bytes[i]];
                ++expect16[words[i] >> 8];
            }
    TezVolumeStatistics::Instance().ComputeHistogram(bytes.data(), 3, 0, 0, width, height, depth, 8, stride, rows,
                                                     got8);
    TezVolumeStatistics::Instance().ComputeHistogram(words.data(), 3, 0, 0, width, height, depth, 16, 2 * stride,
                                                     2 * rows, got16);
    for (int bin = 0; bin < 256; ++bin) {
        ASSERT_EQ(got8[bin], expect8[bin]) << "8 bits, bin " << bin;
        ASSERT_EQ(got16[bin], expect16[bin]) << "16 bits, bin " << bin;
    }
}
