#include "volume/VoxelOctree.h"
#include "core/Archive.h"
#include "core/UIManager.h"
#include "volume/MemoryVolume.h"

#include "../core/TestApplication.h"

#include <gtest/gtest.h>
#include <tbb/task_arena.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>

namespace {
constexpr uint32_t kBrick = TezNodeFlagBit;
constexpr uint32_t kIndex = TezNodeLowMask;

// A volume of smooth blobs over noise, with empty air around them.
std::vector<uint8_t> MakeBlobs(int w, int h, int d, uint32_t seed)
{
    std::mt19937 random(seed);
    std::vector<uint8_t> voxels(size_t(w) * size_t(h) * size_t(d), 0);
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                float const dx = float(x) - w * 0.7f, dy = float(y) - h * 0.7f, dz = float(z) - d * 0.7f;
                if (dx * dx + dy * dy + dz * dz < float(w * w) * 0.04f)
                    voxels[(size_t(z) * h + y) * w + x] = uint8_t(100 + random() % 50);
            }
    return voxels;
}

// The value the tree gives for voxel (x, y, z), found by descending to the
// deepest node that holds it: a brick of edge 16 or a uniform node.
template <typename T>
uint32_t Lookup(TezVoxelOctree& tree, int x, int y, int z, int* edgeOut = nullptr)
{
    uint32_t index = 0;
    int edge = tree.GetTreeSize();
    int ox = 0, oy = 0, oz = 0;
    for (;;) {
        TezVoxelOctreeNode const node = *tree.GetNodePool().Node(index);
        uint32_t const first = node.children & kIndex;
        if (first == 0) {
            if (edgeOut)
                *edgeOut = edge;
            if (!(node.children & kBrick))
                return node.data;
            EXPECT_EQ(edge, 16) << "a brick above the finest level must have children";
            EXPECT_TRUE(node.data & kBrick);
            T const* brick = reinterpret_cast<T const*>(tree.GetLeafPool().Brick(node.data & kIndex));
            return brick[((z - oz) * 16 + (y - oy)) * 16 + (x - ox)];
        }
        EXPECT_GT(edge, 16) << "a node of edge 16 has no children";
        edge /= 2;
        int const cx = (x - ox) >= edge, cy = (y - oy) >= edge, cz = (z - oz) >= edge;
        ox += cx * edge;
        oy += cy * edge;
        oz += cz * edge;
        index = first + uint32_t(cx + 2 * cy + 4 * cz);
    }
}

TezRef<TezVoxelOctree> Build(TezRef<TezMemoryVolume> volume, int bits, int memoryLimit = 512)
{
    return TezVoxelOctree::CreateFromVolumeData("test", volume, 0.5, bits, memoryLimit);
}
} // namespace

TEST(TezVoxelOctreePlan, SizesAndPasses)
{
    TezVoxelOctreePlan small = TezVoxelOctreeMakePlan(100, 100, 100, 8, 512);
    EXPECT_EQ(small.treeSize, 128);
    EXPECT_EQ(small.blockSize, 128);
    EXPECT_EQ(small.blocksInRow, 1);
    EXPECT_EQ(small.startIndex, 0u);
    EXPECT_EQ(small.startCount, 1u);

    TezVoxelOctreePlan medium = TezVoxelOctreeMakePlan(300, 300, 300, 8, 512);
    EXPECT_EQ(medium.treeSize, 512);
    EXPECT_EQ(medium.blockSize, 256);
    EXPECT_EQ(medium.blocksInRow, 2);
    EXPECT_EQ(medium.startIndex, 1u);
    EXPECT_EQ(medium.startCount, 9u);
    EXPECT_EQ(medium.passes, 1);

    // 16 MiB blocks, four to a row: 64 MiB is not more than one row.
    TezVoxelOctreePlan tight = TezVoxelOctreeMakePlan(1000, 1000, 10, 8, 80);
    EXPECT_FALSE(tight.memoryRaised);
    EXPECT_EQ(tight.blocksX, 4);
    EXPECT_EQ(tight.rowsPerPass, 1);
    EXPECT_TRUE(TezVoxelOctreeMakePlan(1000, 1000, 10, 8, 64).memoryRaised);
    TezVoxelOctreePlan raised = TezVoxelOctreeMakePlan(1000, 1000, 10, 16, 1);
    EXPECT_TRUE(raised.memoryRaised);
    EXPECT_EQ(raised.rowsPerPass, 1);
    EXPECT_EQ(raised.passes, raised.blocksY);

    // 4 rows fit (two blocks each in 128 MiB); blocksY 4 is divisible.
    TezVoxelOctreePlan rows = TezVoxelOctreeMakePlan(512, 1024, 16, 8, 128);
    EXPECT_EQ(rows.blocksX, 2);
    EXPECT_EQ(rows.blocksY, 4);
    EXPECT_EQ(rows.rowsPerPass, 4);
    TezVoxelOctreePlan halves = TezVoxelOctreeMakePlan(512, 1024, 16, 8, 64);
    EXPECT_EQ(halves.rowsPerPass, 2);
    EXPECT_EQ(halves.passes, 2);
}

TEST(TezVoxelOctreePlan, SmallestMemoryLimitHoldsTheBuffers)
{
    // One row of two 16 MiB blocks plus two 128 KiB slices; twice that at 16 bits.
    EXPECT_EQ(TezVoxelOctreeSmallestMemoryLimit(512, 512, 512, 8), 33);
    EXPECT_EQ(TezVoxelOctreeSmallestMemoryLimit(512, 512, 512, 16), 65);
    EXPECT_EQ(TezVoxelOctreeSmallestMemoryLimit(100, 100, 100, 8), 3);
    for (int bits : {8, 16}) {
        int const smallest = TezVoxelOctreeSmallestMemoryLimit(1000, 700, 300, bits);
        EXPECT_LE(TezVoxelOctreeMakePlan(1000, 700, 300, bits, smallest).bufferBytes, uint64_t(smallest) << 20);
        EXPECT_GT(TezVoxelOctreeMakePlan(1000, 700, 300, bits, smallest - 1).bufferBytes, uint64_t(smallest - 1) << 20);
    }
}

TEST(TezVoxelOctree, RefusesBadSources)
{
    EXPECT_FALSE(TezVoxelOctree::CreateFromVolumeData("x", TezRef<TezVolumeData>(), 1.0, 8, 64));
    auto volume = TezMemoryVolume::Create8(4, 4, 4, std::vector<uint8_t>(64, 1));
    EXPECT_FALSE(Build(volume, 12));
    EXPECT_THROW(TezMemoryVolume::Create8(4, 4, 4, std::vector<uint8_t>(63)), std::runtime_error);
}

TEST(TezVoxelOctree, ConstantVolumeHasNoBricks)
{
    auto tree = Build(TezMemoryVolume::Create8(64, 64, 64, std::vector<uint8_t>(64 * 64 * 64, 7)), 8);
    ASSERT_TRUE(tree);
    EXPECT_EQ(tree->GetTreeSize(), 64);
    EXPECT_EQ(tree->GetNodePool().Node(0)->data, 7u);
    EXPECT_EQ(tree->GetLeafPool().GetNumElements(), 0u);
    EXPECT_EQ(tree->GetNodePool().GetNumElements(), 1u);
    EXPECT_EQ(tree->GetMaxDepth(), 0);
    EXPECT_TRUE(tree->GetLeafsPerSlice().empty());
    EXPECT_FLOAT_EQ(tree->GetHistogram()[7], 1.0f);
    EXPECT_FLOAT_EQ(tree->GetVoxelSize(), 0.5f);
    EXPECT_FLOAT_EQ(tree->GetDimensions()[0], 32.0f);
}

TEST(TezVoxelOctree, EveryVoxelIsFoundAgain)
{
    int const w = 70, h = 45, d = 50;
    std::vector<uint8_t> voxels(size_t(w) * h * d);
    std::mt19937 random(3);
    for (uint8_t& v : voxels)
        v = uint8_t(random() % 4 == 0 ? random() : 0);
    auto tree = Build(TezMemoryVolume::Create8(w, h, d, voxels), 8);
    ASSERT_TRUE(tree);
    EXPECT_EQ(tree->GetTreeSize(), 128);
    // The ray caster looks for the root's children at node 1.
    EXPECT_EQ(tree->GetNodePool().Node(0)->children & kIndex, 1u);
    for (int z = 0; z < tree->GetTreeSize(); z += 3)
        for (int y = 0; y < tree->GetTreeSize(); ++y)
            for (int x = 0; x < tree->GetTreeSize(); ++x) {
                uint32_t const expected = (x < w && y < h && z < d) ? voxels[(size_t(z) * h + y) * w + x] : 0;
                ASSERT_EQ(Lookup<uint8_t>(*tree, x, y, z), expected) << x << " " << y << " " << z;
            }
    float sum = 0;
    for (float f : tree->GetHistogram())
        sum += f;
    EXPECT_NEAR(sum, 1.0f, 1e-5f);
}

TEST(TezVoxelOctree, SixteenBitAcrossBlocksAndPasses)
{
    // Three blocks of 256 along x, read one row of blocks per pass.
    int const w = 600, h = 40, d = 20;
    std::vector<uint16_t> voxels(size_t(w) * h * d);
    std::mt19937 random(5);
    for (size_t i = 0; i < voxels.size(); ++i)
        voxels[i] = (i / 7) % 5 == 0 ? uint16_t(random()) : uint16_t(1000);
    auto volume = TezMemoryVolume::Create16(w, h, d, voxels);
    auto tree = Build(volume, 16, 1);
    ASSERT_TRUE(tree);
    EXPECT_EQ(tree->GetTreeSize(), 1024);
    for (int z = 0; z < d; z += 2)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; x += 3)
                ASSERT_EQ(Lookup<uint16_t>(*tree, x, y, z), voxels[(size_t(z) * h + y) * w + x]);
    EXPECT_EQ(Lookup<uint16_t>(*tree, 900, 900, 900), 0u);
    // The block level sits below two full levels; their nodes have no bricks.
    for (uint32_t i = 0; i < 9; ++i)
        EXPECT_FALSE(tree->GetNodePool().Node(i)->children & kBrick);
}

TEST(TezVoxelOctree, UniformRegionsCostNothing)
{
    int const s = 64;
    auto voxels = MakeBlobs(s, s, s, 1);
    auto tree = Build(TezMemoryVolume::Create8(s, s, s, voxels), 8);
    ASSERT_TRUE(tree);
    int edge = 0;
    EXPECT_EQ(Lookup<uint8_t>(*tree, 0, 0, 0, &edge), 0u);
    EXPECT_EQ(edge, 32); // the empty corner octant stops above the finest level
    // Every brick is counted once in leafsPerSlice.
    int64_t bricks = 0;
    for (int32_t n : tree->GetLeafsPerSlice())
        bricks += n;
    EXPECT_EQ(uint64_t(bricks), tree->GetLeafPool().GetNumElements());
}

TEST(TezVoxelOctree, ArchiveRoundTripIsExact)
{
    int const s = 48;
    auto tree = Build(TezMemoryVolume::Create8(s, s, s, MakeBlobs(s, s, s, 2)), 8);
    ASSERT_TRUE(tree);
    std::string const first = ::testing::TempDir() + "octree-a.tez";
    std::string const second = ::testing::TempDir() + "octree-b.tez";
    tree->Save(TezArchive::Open(first.c_str(), TezArchive::Write));

    TezRef<TezVoxelOctree> loaded(new TezVoxelOctree());
    loaded->Load(TezArchive::Open(first.c_str(), TezArchive::Read));
    EXPECT_EQ(loaded->GetTreeSize(), tree->GetTreeSize());
    EXPECT_EQ(loaded->GetBitsPerPixel(), 8);
    EXPECT_EQ(loaded->GetDimensionsInVoxels()[2], s);
    EXPECT_EQ(loaded->GetHistogram(), tree->GetHistogram());
    EXPECT_EQ(loaded->GetLeafsPerSlice(), tree->GetLeafsPerSlice());
    auto& nodes = tree->GetNodePool();
    ASSERT_EQ(loaded->GetNodePool().GetNumElements(), nodes.GetNumElements());
    for (uint64_t i = 0; i < nodes.GetNumElements(); ++i)
        ASSERT_EQ(0, std::memcmp(loaded->GetNodePool().Node(i), nodes.Node(i), sizeof(TezVoxelOctreeNode)));
    auto& leaves = tree->GetLeafPool();
    ASSERT_EQ(loaded->GetLeafPool().GetNumElements(), leaves.GetNumElements());
    for (uint64_t i = 0; i < leaves.GetNumElements(); ++i)
        ASSERT_EQ(0, std::memcmp(loaded->GetLeafPool().Brick(i), leaves.Brick(i), 4096));

    loaded->Save(TezArchive::Open(second.c_str(), TezArchive::Write));
    auto slurp = [](std::string const& path) {
        std::string bytes;
        FILE* file = std::fopen(path.c_str(), "rb");
        for (int c; file && (c = std::fgetc(file)) != EOF;)
            bytes.push_back(char(c));
        if (file)
            std::fclose(file);
        return bytes;
    };
    EXPECT_EQ(slurp(first), slurp(second));

    TezRef<TezVoxelOctree> other(new TezVoxelOctree());
    TezRef<TezArchive> wrong = TezArchive::Open(second.c_str(), TezArchive::Write);
    wrong->WriteStartSection("TezCubeVolume");
    wrong->WriteInt("treeSize", 99);
    wrong->WriteEndSection();
    wrong = TezRef<TezArchive>();
    other->Load(TezArchive::Open(second.c_str(), TezArchive::Read));
    EXPECT_EQ(other->GetTreeSize(), 0);
}

TEST(TezVoxelOctree, SameArchiveAtAnyThreadCount)
{
    // Two blocks side by side, both full of bricks: built in parallel, they
    // take from the pools at the same time.
    int const w = 300, h = 40, d = 40;
    auto volume = TezMemoryVolume::Create8(w, h, d, MakeBlobs(w, h, d, 5));
    auto buildAndSave = [&](int threads, char const* name) -> std::string {
        std::string const path = ::testing::TempDir() + name;
        tbb::task_arena arena(threads);
        TezRef<TezVoxelOctree> tree;
        arena.execute([&] { tree = Build(volume, 8); });
        EXPECT_TRUE(tree);
        if (tree) {
            tree->Save(TezArchive::Open(path.c_str(), TezArchive::Write));
            int wrong = 0; // across both blocks, after the pools were put in order
            for (int x = 0; x < w; ++x)
                wrong += Lookup<uint8_t>(*tree, x, 30, 29) != volume->Data8()[(size_t(29) * h + 30) * w + x];
            EXPECT_EQ(wrong, 0) << threads << " threads";
        }
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    std::string const one = buildAndSave(1, "octree-1.tez");
    ASSERT_GT(one.size(), 100000u);
    EXPECT_TRUE(one == buildAndSave(2, "octree-2a.tez"));
    EXPECT_TRUE(one == buildAndSave(2, "octree-2b.tez"));
    EXPECT_TRUE(one == buildAndSave(4, "octree-4.tez"));
}

namespace {
// FNV-1a of a tree's archive: a change anywhere in the nodes, the bricks, the
// histogram or their order shows.
uint64_t ArchiveDigest(TezVoxelOctree& tree, char const* name)
{
    std::string const path = ::testing::TempDir() + name;
    tree.Save(TezArchive::Open(path.c_str(), TezArchive::Write));
    std::ifstream file(path, std::ios::binary);
    std::string const bytes{std::istreambuf_iterator<char>(file), {}};
    uint64_t hash = 14695981039346656037ull;
    for (char c : bytes)
        hash = (hash ^ uint8_t(c)) * 1099511628211ull;
    return hash;
}
} // namespace

// The same sources must keep giving the same saved trees, byte for byte.
// Both are ragged at every edge of the blocks they touch; the 16-bit one is
// read one row of blocks per pass, so its slab is reused over data left from
// the pass before.
TEST(TezVoxelOctree, SavedBytesStayTheSame)
{
    int const w = 300, h = 270, d = 100;
    auto tree8 = Build(TezMemoryVolume::Create8(w, h, d, MakeBlobs(w, h, d, 9)), 8);
    ASSERT_TRUE(tree8);
    EXPECT_EQ(ArchiveDigest(*tree8, "golden-8.tez"), 5103880764664134305ull);

    std::vector<uint16_t> voxels(size_t(w) * h * d);
    std::mt19937 random(11);
    for (size_t i = 0; i < voxels.size(); ++i)
        voxels[i] = (i / 5) % 3 == 0 ? uint16_t(random()) : uint16_t(700 + (i / 4096) % 3);
    auto tree16 = Build(TezMemoryVolume::Create16(w, h, d, voxels), 16, 1);
    ASSERT_TRUE(tree16);
    EXPECT_EQ(ArchiveDigest(*tree16, "golden-16.tez"), 8862878692006235161ull);
}

// The histogram is counted brick by brick while the tree is sampled, with
// shortcuts for bricks of one value, of a narrow spread and of one 16-bit
// bin; it must still be the plain count of the source's voxels, whatever
// the padding around a ragged source.
TEST(TezVoxelOctree, HistogramCountsEveryVoxel)
{
    int const w = 270, h = 64, d = 48; // eight bands and some, ragged in every direction
    size_t const n = size_t(w) * h * d;
    std::mt19937 random(17);
    std::vector<uint8_t> narrow(n);
    std::vector<uint16_t> wide(n);
    for (size_t i = 0; i < n; ++i) {
        int const x = int(i % size_t(w));
        // Bands of 32 voxels along x: air, noise over 3 values (or bins at
        // 16 bits), over 24 (12 bins), over all of them, over the top 12, of
        // one value, and the last two of noise over 20 and 12 mixed with air.
        uint32_t const r = uint32_t(random());
        static uint8_t const low8[8] = {0, 60, 100, 0, 244, 30, 70, 244};
        static uint32_t const spread8[8] = {1, 3, 24, 256, 12, 1, 20, 12};
        static uint16_t const low16[8] = {0, 0x0380, 0x0200, 0, 0xF400, 0x0400, 0x0500, 0xF400};
        static uint32_t const spread16[8] = {1, 0x0300, 0x0C00, 0x10000, 0x0C00, 200, 0x0C00, 0x0C00};
        int const band = (x / 32) % 8;
        bool const air = band >= 6 && (r >> 20) % 3 == 0;
        narrow[i] = air ? 0 : uint8_t(low8[band] + r % spread8[band]);
        wide[i] = air ? 0 : uint16_t(low16[band] + r % spread16[band]);
    }
    auto expect = [&](TezVoxelOctree const& tree, auto const& voxels, int shift) {
        std::vector<uint32_t> counts(256, 0);
        for (auto v : voxels)
            ++counts[size_t(v >> shift)];
        float const scale = 1.0f / float(double(n));
        ASSERT_EQ(tree.GetHistogram().size(), 256u);
        for (size_t bin = 0; bin < 256; ++bin)
            ASSERT_EQ(tree.GetHistogram()[bin], float(counts[bin]) * scale) << "bin " << bin;
    };
    auto tree8 = Build(TezMemoryVolume::Create8(w, h, d, narrow), 8);
    ASSERT_TRUE(tree8);
    expect(*tree8, narrow, 0);
    auto tree16 = Build(TezMemoryVolume::Create16(w, h, d, wide), 16);
    ASSERT_TRUE(tree16);
    expect(*tree16, wide, 8);
    // Whole blocks sampled where they lie.
    std::vector<uint8_t> cube(size_t(256) * 256 * 256);
    for (size_t i = 0; i < cube.size(); ++i)
        cube[i] = (i / 4096) % 3 == 0 ? uint8_t(100 + random() % 9) : uint8_t((i / 65536) % 5);
    auto tree = Build(TezMemoryVolume::Create8(256, 256, 256, cube), 8);
    ASSERT_TRUE(tree);
    std::vector<uint32_t> counts(256, 0);
    for (uint8_t v : cube)
        ++counts[v];
    for (size_t bin = 0; bin < 256; ++bin)
        ASSERT_EQ(tree->GetHistogram()[bin], float(counts[bin]) * (1.0f / float(double(cube.size())))) << bin;
}

namespace {
// The same voxels offered only through Copy, so the build reads them into
// its slab instead of sampling them where they lie.
class CopiedVolume : public TezVolumeData
{
public:
    explicit CopiedVolume(TezRef<TezMemoryVolume> volume) : m_volume(std::move(volume)) {}
    uint32_t Type() const override { return m_volume->Type(); }
    TezString const& TypeName() const override { return m_volume->TypeName(); }
    bool IsValid() const override { return m_volume->IsValid(); }
    int GetWidth() const override { return m_volume->GetWidth(); }
    int GetHeight() const override { return m_volume->GetHeight(); }
    int GetDepth() const override { return m_volume->GetDepth(); }
    bool Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel, uint64_t rowStride,
              uint64_t sliceStride, uint8_t** interpolationBuffers) override
    {
        return m_volume->Copy(buffer, x, y, z, width, height, depth, bitsPerPixel, rowStride, sliceStride,
                              interpolationBuffers);
    }

private:
    TezRef<TezMemoryVolume> m_volume;
};
} // namespace

// A source that holds whole blocks in memory is sampled where it lies; the
// tree must not change by that. The first slab lies inside the source, the
// second reaches past its last slice and is copied either way.
TEST(TezVoxelOctree, SamplingInPlaceBuildsTheSameTree)
{
    int const w = 256, h = 256, d = 260;
    std::vector<uint16_t> wide(size_t(w) * h * d);
    std::mt19937 random(3);
    for (size_t i = 0; i < wide.size(); ++i)
        wide[i] = (i / 9000) % 4 == 0 ? uint16_t(random()) : uint16_t(300 * ((i / 70000) % 3));
    TezRef<TezMemoryVolume> const sources[2] = {TezMemoryVolume::Create8(w, h, d, MakeBlobs(w, h, d, 4)),
                                                TezMemoryVolume::Create16(w, h, d, wide)};
    for (TezRef<TezMemoryVolume> const& source : sources) {
        int const bits = source->GetBitsPerPixel();
        auto inPlace = Build(source, bits);
        auto copied = TezVoxelOctree::CreateFromVolumeData("test", TezRef<TezVolumeData>(new CopiedVolume(source)), 0.5,
                                                           bits, 512);
        ASSERT_TRUE(inPlace && copied);
        EXPECT_GT(inPlace->GetLeafPool().GetNumElements(), 200u);
        EXPECT_EQ(ArchiveDigest(*inPlace, "in-place.tez"), ArchiveDigest(*copied, "copied.tez")) << bits << " bits";
    }
}

namespace {
class StoppingUI : public TezUICallback
{
public:
    void StartProgress(uint64_t) override {}
    void EndProgress() override {}
    void StepProgress(uint32_t count) override { m_steps += count; }
    void SetProgressMessage(TezString const& message) override { m_message = message; }
    void StartNestedSection(bool) override {}
    void FinishNestedSection() override {}
    void AddNode(int) override {}
    void RemoveNode(int) override {}
    void SetActiveNode(int) override {}
    void SetActiveLevel(int) override {}
    int GetActiveLevel() override { return 0; }
    bool GetStopFlag() override { return m_steps >= 2; }
    void ZoomAll() override {}
    void SetCursor(TezResourceManager::Cursors) override {}
    void SetToolCursor(TezResourceManager::Cursors) override {}
    void ReportError(TezString const&) override {}

    uint64_t m_steps = 0;
    TezString m_message;
};
} // namespace

TEST(TezVoxelOctree, StopFlagEndsTheBuild)
{
    TestApplication application;
    StoppingUI ui;
    TezUIManager::GetAppUIManager()->SetCallback(&ui);
    auto volume = TezMemoryVolume::Create8(300, 20, 20, std::vector<uint8_t>(300 * 20 * 20, 9));
    EXPECT_FALSE(Build(volume, 8));
    EXPECT_EQ(ui.m_message, TezString("Building Voxel Octree..."));
    EXPECT_LT(ui.m_steps, 8u);
    TezUIManager::GetAppUIManager()->SetCallback(nullptr);
}
