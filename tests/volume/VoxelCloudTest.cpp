// Voxel and point clouds: the packing of a voxel point, the bounds of the
// visible states, the text files with their faults, and the octree's node
// states as cubes.

#include "volume/VoxelCloud.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelOctree.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <string>

namespace {

std::string Write(char const* name, std::string const& text)
{
    std::string const path = ::testing::TempDir() + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

} // namespace

TEST(VoxelCloud, WPacksSizeAndStateAndOddValuesReadAsNothing)
{
    TezVector4<float> const p(0, 0, 0, 9.0f);
    EXPECT_EQ(2u, TezVoxelCloud::SizeOf(p));
    EXPECT_EQ(TezVoxelCloud::StateFull, TezVoxelCloud::StateOf(p));
    EXPECT_EQ(9.0f, TezVoxelCloud::Pack(2, TezVoxelCloud::StateFull));
    EXPECT_EQ(TezVoxelCloud::State3, TezVoxelCloud::StateOf({0, 0, 0, 7.9f})) << "read as the integer 7";
    for (float w : {-5.0f, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 3e9f})
        EXPECT_EQ(0u, TezVoxelCloud::PackedCode(w)) << w;
}

TEST(VoxelCloud, BoundsGrowByTheHalfEdgeOfTheVisibleStatesOnly)
{
    TezRef<TezVoxelCloud> cloud = TezVoxelCloud::CreateEmpty(0.5f);
    cloud->AddPoint({0, 0, 0, TezVoxelCloud::Pack(2, TezVoxelCloud::StateFull)});      // half edge 1
    cloud->AddPoint({10, 0, 0, TezVoxelCloud::Pack(1, TezVoxelCloud::StateBoundary)}); // half edge 0.5
    cloud->AddPoint({-7, 0, 0, TezVoxelCloud::Pack(4, TezVoxelCloud::StateEmpty)});
    cloud->SetEmptyVisible(false);
    TezBox3<float> box = cloud->ComputeBounds();
    EXPECT_EQ(TezVector3<float>(-1, -1, -1), box.GetMinimum());
    EXPECT_EQ(TezVector3<float>(10.5f, 1, 1), box.GetMaximum());
    EXPECT_EQ(TezVector3<float>(-2, -2, -2), cloud->ComputeBounds(1.0f).GetMinimum());

    cloud->SetFullVisible(false);
    cloud->SetBoundaryVisible(false);
    cloud->SetState3Visible(false);
    EXPECT_TRUE(cloud->ComputeBounds().Empty());

    TezRef<TezVoxelCloud> copy = cloud->Copy();
    copy->SetPoint(0, {1, 1, 1, 1});
    EXPECT_EQ(0.0f, cloud->GetPoint(0).x) << "a copy is deep";
    EXPECT_FALSE(copy->GetFullVisible());
}

TEST(CloudFiles, TextLinesAreCountedScannedAndFaultsLeaveZeros)
{
    // Blank and short lines are not counted; the count sizes the cloud.
    std::string const good = Write("tez-cloud-good.TXT", "1 2 3 9\n4 5 6 5\n\n7 8 9 2\n");
    TezRef<TezVoxelCloud> voxels = TezVoxelCloud::ReadFromFile(TezString(good.c_str()));
    ASSERT_TRUE(voxels);
    ASSERT_EQ(3u, voxels->GetNumPoints());
    EXPECT_EQ(TezVector4<float>(7, 8, 9, 2), voxels->GetPoint(2));
    // The same file as points: "%f %f %f" takes the w as the next x.
    TezRef<TezPointCloud> points = TezPointCloud::ReadFromFile(TezString(good.c_str()));
    ASSERT_EQ(3u, points->GetNumPoints());
    EXPECT_EQ(TezVector3<float>(1, 2, 3), points->GetPoint(0));
    EXPECT_EQ(TezVector3<float>(9, 4, 5), points->GetPoint(1));

    // A line that does not scan ends the reading; the rest stays zero.
    std::string const bad = Write("tez-cloud-bad.txt", "1 2 3\n4 five 6\n7 8 9\nabc\n\x01\x02\x03\xff\xfe\n");
    points = TezPointCloud::ReadFromTxtFile(TezString(bad.c_str()));
    ASSERT_EQ(4u, points->GetNumPoints()) << "\"abc\" is too short to count";
    EXPECT_EQ(TezVector3<float>(1, 2, 3), points->GetPoint(0));
    EXPECT_EQ(4.0f, points->GetPoint(1).x);
    EXPECT_EQ(TezVector3<float>(0, 0, 0), points->GetPoint(2));
    EXPECT_EQ(TezVector3<float>(0, 0, 0), points->GetPoint(3));

    // A last line without its line feed still counts; a long line is one line.
    std::string const tail = Write("tez-cloud-tail.txt", std::string(100000, ' ') + "1 1 1\n2 2 2");
    EXPECT_EQ(2u, TezPointCloud::ReadFromFile(TezString(tail.c_str()))->GetNumPoints());

    EXPECT_FALSE(TezPointCloud::ReadFromFile(TezString("points.xyz")));
    EXPECT_FALSE(TezVoxelCloud::ReadFromFile(TezString("txt")));
    TezRef<TezVoxelCloud> missing = TezVoxelCloud::ReadFromFile(TezString("/nonexistent/cloud.txt"));
    ASSERT_TRUE(missing);
    EXPECT_EQ(0u, missing->GetNumPoints());
    for (std::string const& path : {good, bad, tail})
        std::remove(path.c_str());
}

TEST(PointCloud, BoundsAndTransform)
{
    TezRef<TezPointCloud> cloud = TezPointCloud::CreateEmpty();
    EXPECT_TRUE(cloud->ComputeBounds().Empty());
    cloud->AddPoint({1, 2, 3});
    cloud->AddPoint({-1, 0, 5});
    cloud->Transform(TezTranslationTransform<float>({1, 1, 1}));
    EXPECT_EQ(TezVector3<float>(0, 1, 4), cloud->ComputeBounds().GetMinimum());
    EXPECT_EQ(TezVector3<float>(2, 3, 6), cloud->ComputeBounds().GetMaximum());
}

TEST(VoxelCloud, OctreeNodeStatesBecomeCubesThatTileTheTree)
{
    // A 32^3 volume, bright in its lower x half.
    int const n = 32;
    std::vector<uint8_t> voxels(size_t(n) * n * n, 0);
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n / 2; ++x)
                voxels[(size_t(z) * n + y) * n + x] = 200;
    TezRef<TezVoxelOctree> octree =
        TezVoxelOctree::CreateFromVolumeData("half", TezMemoryVolume::Create8(n, n, n, voxels), 1.0 / n, 8, 64);
    ASSERT_TRUE(octree);
    EXPECT_FALSE(TezVoxelCloud::CreateFromOctree(nullptr, 2));
    EXPECT_THROW(TezVoxelCloud::CreateFromOctree(octree, -1), std::runtime_error);
    for (int depth : {0, 1, 3}) {
        TezRef<TezVoxelCloud> cloud = TezVoxelCloud::CreateFromOctree(octree, depth);
        ASSERT_TRUE(cloud);
        ASSERT_GT(cloud->GetNumPoints(), 0u);
        // The cubes tile the tree: their volumes add up to the tree's.
        double volume = 0.0;
        for (TezVector4<float> const& p : cloud->GetPoints()) {
            double const edge = 2.0 * TezVoxelCloud::SizeOf(p) * cloud->GetCellSize();
            volume += edge * edge * edge;
            EXPECT_LE(TezVoxelCloud::SizeOf(p), 1u << depth);
        }
        double const treeEdge = octree->GetTreeSize() * double(octree->GetVoxelSize());
        EXPECT_NEAR(treeEdge * treeEdge * treeEdge, volume, 1e-6 * volume) << "depth " << depth;
        TezBox3<float> const box = cloud->ComputeBounds();
        EXPECT_NEAR(0.0f, box.GetMinimum().x, 1e-6f);
        EXPECT_NEAR(float(treeEdge), box.GetMaximum().z, 1e-6f);
    }
}
