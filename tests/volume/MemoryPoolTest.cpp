#include "core/Archive.h"
#include "core/Compress.h"
#include "platform/DeviceMemory.h"
#include "volume/VoxelOctreePools.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// Writes with `save`, reads back with `load`, through a temporary file.
template <class Save, class Load>
void RoundTrip(Save save, Load load)
{
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        TezRef<TezArchive> out = TezArchive::Open(file, TezArchive::Write);
        save(*out);
        out->Flush();
    }
    std::rewind(file);
    {
        TezRef<TezArchive> in = TezArchive::Open(file, TezArchive::Read);
        load(*in);
    }
    std::fclose(file);
}

void FillNodes(TezVoxelOctreeNodePool& pool, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i) {
        TezVoxelOctreeNode* node = pool.Node(i);
        node->children = static_cast<uint32_t>(i * 8 + 1);
        node->data = static_cast<uint32_t>(i) | TezNodeFlagBit;
        node->state = static_cast<uint32_t>(i % 3);
    }
}

void ExpectNodes(TezVoxelOctreeNodePool& pool, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i) {
        TezVoxelOctreeNode const* node = pool.Node(i);
        ASSERT_EQ(node->children, i * 8 + 1) << i;
        ASSERT_EQ(node->data, static_cast<uint32_t>(i) | TezNodeFlagBit) << i;
        ASSERT_EQ(node->state, i % 3) << i;
    }
}

} // namespace

TEST(VoxelOctreeNode, BitHelpers)
{
    TezVoxelOctreeNode node{};
    TezNodeSetFirstChild(node, 4096);
    TezNodeSetHasBrick(node, true);
    TezNodeSetBrickIndex(node, 77);
    EXPECT_EQ(node.children, 0x80001000u);
    EXPECT_EQ(TezNodeFirstChild(node), 4096u);
    EXPECT_TRUE(TezNodeHasBrick(node) && TezNodeIsBrickIndex(node));
    EXPECT_EQ(TezNodeDataValue(node), 77u);
    TezNodeSetUniform(node, 200);
    EXPECT_FALSE(TezNodeIsBrickIndex(node));
    EXPECT_EQ(TezNodeChildIndex(8, 1, 1, 1), 15u);
    EXPECT_EQ(TezBrickVoxelIndex(1, 2, 3), (3 * 16 + 2) * 16 + 1);
}

TEST(MemoryPool, AddressingAndGrowth)
{
    TezVoxelOctreeNodePool pool;
    pool.Initialize(100); // raised to the smallest block
    EXPECT_EQ(pool.GetBlockSize(), 1024u);
    EXPECT_EQ(pool.GetNumBlocks(), 1u);
    EXPECT_EQ(pool.Allocate(1), 0u);
    EXPECT_EQ(pool.Allocate(8), 1u);
    EXPECT_EQ(pool.Allocate(2000), 9u);
    EXPECT_EQ(pool.GetNumElements(), 2009u);
    EXPECT_EQ(pool.GetNumBlocks(), 2u);
    EXPECT_EQ(pool.GetSizeBytes(), 2u * 1024 * 12);
    // Elements are zero filled and consecutive within a block, and keep their
    // address when the pool grows.
    TezVoxelOctreeNode* first = pool.Node(1023);
    EXPECT_EQ(first->children | first->data | first->state, 0u);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(pool.Node(5)) - reinterpret_cast<uint8_t*>(pool.Node(4)), 12);
    pool.Allocate(5000);
    EXPECT_EQ(pool.Node(1023), first);
}

TEST(MemoryPool, ConcurrentAllocationHandsOutDisjointRanges)
{
    TezVoxelOctreeNodePool pool;
    pool.Initialize(1024);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&pool] {
            for (int i = 0; i < 2000; ++i) {
                uint64_t first = pool.Allocate(8);
                for (uint64_t k = 0; k < 8; ++k)
                    pool.Node(first + k)->state += 1;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_EQ(pool.GetNumElements(), 4u * 2000 * 8);
    // No more blocks than the elements need: a saved pool must not depend
    // on how the threads met.
    EXPECT_EQ(pool.GetNumBlocks(), (pool.GetNumElements() + 1023) / 1024);
    for (uint64_t i = 0; i < pool.GetNumElements(); ++i)
        ASSERT_EQ(pool.Node(i)->state, 1u) << i;
}

TEST(MemoryPool, CompressAndArchiveRoundTrip)
{
    TezVoxelOctreeNodePool pool;
    pool.Initialize(1024);
    pool.Allocate(3000);
    FillNodes(pool, 3000);
    pool.Compress();
    EXPECT_TRUE(pool.IsCompressed());
    EXPECT_EQ(pool.GetSizeBytes(), 3u * 1024 * 12);
    ExpectNodes(pool, 3000); // climbs back by itself
    EXPECT_FALSE(pool.IsCompressed());

    TezVoxelOctreeNodePool loaded;
    RoundTrip([&](TezArchive& a) { pool.Save(a); }, [&](TezArchive& a) { loaded.Load(a); });
    EXPECT_TRUE(pool.IsCompressed());
    EXPECT_TRUE(loaded.IsCompressed());
    EXPECT_EQ(loaded.GetNumElements(), 3000u);
    EXPECT_EQ(loaded.GetBlockSize(), 1024u);
    EXPECT_EQ(loaded.GetNumBlocks(), 3u);
    ExpectNodes(loaded, 3000);
}

TEST(MemoryPool, LeafPoolBricks)
{
    TezVoxelOctreeLeafVolumePool pool;
    pool.SetElementSize(2 * TezBrickVoxels);
    pool.Initialize(0);
    uint64_t brick = pool.Allocate(3);
    ASSERT_EQ(brick, 0u);
    EXPECT_EQ(pool.Brick(2) - pool.Brick(1), 2 * TezBrickVoxels);
    std::memset(pool.Brick(1), 0xAB, 2 * TezBrickVoxels);
    pool.Compress();
    EXPECT_EQ(pool.Brick(1)[2 * TezBrickVoxels - 1], 0xAB);
    EXPECT_EQ(pool.Brick(2)[0], 0);
}

TEST(MemoryPool, DamagedArchiveIsRefused)
{
    // A block size the stored frames cannot hold.
    TezVoxelOctreeNodePool pool;
    RoundTrip(
        [](TezArchive& a) {
            TezVoxelOctreeNodePool source;
            source.Initialize(1024);
            source.Allocate(10);
            source.Compress();
            a.WriteStartSection("pool");
            a.WriteSizet("blockSize", uint64_t(1) << 40);
            a.WriteSizet("numElements", 10);
            a.WriteSizet("numBlocks", 1);
            std::vector<uint8_t> frame;
            std::vector<uint8_t> zeros(64, 0);
            TezCompress::Compress(zeros.data(), zeros.size(), frame, 1);
            a.WriteCompressedBinary("", frame.data(), zeros.size(), frame.size());
            a.WriteEndSection();
        },
        [&](TezArchive& a) { EXPECT_THROW(pool.Load(a), std::runtime_error); });
    // More elements than blocks.
    RoundTrip(
        [](TezArchive& a) {
            a.WriteStartSection("pool");
            a.WriteSizet("blockSize", 1024);
            a.WriteSizet("numElements", 5000);
            a.WriteSizet("numBlocks", 0);
            a.WriteEndSection();
        },
        [&](TezArchive& a) { EXPECT_THROW(pool.Load(a), std::runtime_error); });
    // A block count the file does not hold ends at the file's end.
    RoundTrip(
        [](TezArchive& a) {
            a.WriteStartSection("pool");
            a.WriteSizet("blockSize", 1024);
            a.WriteSizet("numBlocks", uint64_t(1) << 50);
        },
        [&](TezArchive& a) { EXPECT_THROW(pool.Load(a), std::runtime_error); });
}

TEST(MemoryPool, DeviceCopyIsLinear)
{
    TezVoxelOctreeNodePool pool;
    pool.Initialize(1024);
    pool.Allocate(1500);
    FillNodes(pool, 1500);
    EXPECT_FALSE(pool.IsValidCUDA());
    pool.WriteToCUDA();
    ASSERT_NE(pool.GetCUDA(), nullptr);
    EXPECT_TRUE(pool.IsValidCUDA());
    EXPECT_GE(pool.GetCUDABytes(), pool.GetSizeBytes());

    std::vector<TezVoxelOctreeNode> linear(1500);
    ASSERT_EQ(TezDeviceMemcpy(linear.data(), pool.GetCUDA(), linear.size() * 12, TezDeviceDeviceToHost), 0);
    EXPECT_EQ(linear[1400].children, 1400u * 8 + 1);

    // A kernel's change of node states comes back.
    linear[1400].state = 2;
    linear[3].state = 2;
    ASSERT_EQ(TezDeviceMemcpy(pool.GetCUDA(), linear.data(), linear.size() * 12, TezDeviceHostToDevice), 0);
    pool.ReadFromCUDA();
    EXPECT_EQ(pool.Node(1400)->state, 2u);
    EXPECT_EQ(pool.Node(3)->state, 2u);

    pool.Allocate(1);
    EXPECT_FALSE(pool.IsValidCUDA());
    pool.FreeCUDA();
    EXPECT_EQ(pool.GetCUDA(), nullptr);
}
