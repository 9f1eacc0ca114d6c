// The octree kernels on the host path, over small hand-made trees whose
// pictures are known.

#include "OctreeTestTrees.h"
#include "platform/DeviceMemory.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelOctree.h"
#include "volume/device/VoxelOctreeKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

using namespace TezOctreeTestTrees;

namespace {

TEST(OctreeKernel, UniformOpaqueTreeHitsEveryRayAtItsFrontFace)
{
    TestTree tree;
    for (int i = 1; i <= 8; ++i)
        tree.nodes[i] = Uniform(200);
    const int w = 20, h = 20; // not a multiple of the tile edge
    const Picture p = RenderSolid(tree, 8, w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint8_t* px = p.Pixel(x, y, w);
            ASSERT_EQ(px[0], 255);
            ASSERT_EQ(px[1], 127);
            ASSERT_EQ(px[2], 63);
            ASSERT_EQ(px[3], 255);
            ASSERT_NEAR(p.depth[y * w + x], OrthoDepth(1.0005f), 2.0);
        }

    // Perspective: the centre pixel's word is the GL depth of its eye z.
    const Camera persp =
        TezMakeOctreeCamera(true, {0.5f, 0.5f, -1.0f}, Axes, {0.5f, 0.5f, 0.0f}, 1.0f, 10.0f, 30.0f, 16, 16);
    const Picture q = RenderSolid(tree, 8, 16, 16, nullptr, Identity(), &persp);
    const double z = 1.0008, n = 1.0, f = 10.0;
    const double gl = 0.5 * ((f + n) / (f - n) - 2.0 * f * n / ((f - n) * z)) + 0.5;
    EXPECT_NEAR(q.depth[8 * 16 + 8] / 16777216.0, gl, 1e-4);
}

TEST(OctreeKernel, AxisParallelRaysAndRaysFromInsideHaveFiniteRanges)
{
    const float T[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    Ray ray;
    ASSERT_TRUE(SetUpRay(OrthoCamera(8, 8), T, 3, 3, DefaultRangeFunction{}, ray));
    EXPECT_NEAR(ray.tEntry, 1.0005f, 1e-6f);
    EXPECT_NEAR(ray.tExit, 2.0f, 1e-6f);
    EXPECT_EQ(ray.dir.x, TezEpsilonf);
    EXPECT_TRUE(std::isfinite(ray.inv.x) && std::isfinite(ray.inv.y));

    Camera inside = OrthoCamera(8, 8);
    inside.eye.z = 0.5f;
    inside.focus.z = 1.5f;
    ASSERT_TRUE(SetUpRay(inside, T, 3, 3, DefaultRangeFunction{}, ray));
    EXPECT_EQ(ray.tEntry, 0.0f);
    EXPECT_NEAR(ray.tExit, 0.5f, 1e-6f);
}

TEST(OctreeKernel, PixelRaysAgreeWithTheCameraRecord)
{
    // A camera turned about y, both projections, with an object matrix that
    // scales by 2 and moves by (1, 2, 3): the ray in octree space is the
    // record's world ray taken through the inverse.
    TezCameraRecord record;
    record.eye = {3.0f, 1.0f, -4.0f};
    record.focus = {0.5f, 0.5f, 0.5f};
    record.axisX = {0.8f, 0.0f, 0.6f};
    record.axisZ = {-0.6f, 0.0f, 0.8f};
    record.fov = 0.7f;
    record.width = 40;
    record.height = 30;
    TezMatrix44<float> matrix = Identity();
    matrix[0].x = matrix[1].y = matrix[2].z = 2.0f;
    matrix[3] = TezVector4<float>(1, 2, 3, 1);
    float T[16];
    matrix.Inverse().Array(T);
    for (uint8_t perspective : {0, 1}) {
        record.perspective = perspective;
        const Camera cam = TezMakeOctreeCamera(record);
        for (int p : {0, 17, 1199}) {
            const int x = p % 40, y = p / 40;
            const TezRay world = record.GetPixelRay(x, y);
            Ray ray;
            SetUpRay(cam, T, x, y, DefaultRangeFunction{}, ray);
            const TezVector3<float> o = (world.GetStart() - TezVector3<float>(1, 2, 3)) * 0.5f;
            const TezVector3<float> d = world.GetDirection().Normalized();
            EXPECT_NEAR(ray.origin.x, o.x, 1e-5f);
            EXPECT_NEAR(ray.origin.y, o.y, 1e-5f);
            EXPECT_NEAR(ray.origin.z, o.z, 1e-5f);
            EXPECT_NEAR(ray.viewDir.x, d.x, 1e-6f);
            EXPECT_NEAR(ray.viewDir.y, d.y, 1e-6f);
            EXPECT_NEAR(ray.viewDir.z, d.z, 1e-6f);
            // t keeps the world's scale: direction' is half a unit long.
            EXPECT_NEAR(ray.dir.x * ray.dir.x + ray.dir.y * ray.dir.y + ray.dir.z * ray.dir.z, 0.25f, 1e-5f);
        }
    }
}

// Child 0 (the cube [0, 0.5)^3) holds a brick whose voxels with x + z >= 16
// are opaque: a tilted plane with normal (1, 0, 1) / sqrt(2).
TestTree TiltedPlaneTree()
{
    TestTree tree;
    tree.nodes[1] = WithBrick(tree.AddBrick([](int x, int, int z) { return uint16_t(x + z >= 16 ? 200 : 10); }));
    return tree;
}

TEST(OctreeKernel, BrickPlaneGivesGradientShadeAndVoxelExitDepth)
{
    TestTree tree = TiltedPlaneTree();
    const int w = 64, h = 64;
    const Picture p = RenderSolid(tree, 8, w, h);

    // Pixel (55, 20) looks down world x = 0.1328, y = 0.3203: brick voxel
    // x = 4, y = 10; the first opaque voxel is z = 12, whose far side is at
    // z = 13 / 32, so the ray's distance is about 1 + 13 / 32.
    const uint8_t* px = p.Pixel(55, 20, w);
    const float shade = 1.0f / std::sqrt(2.0f) + 0.2f;
    EXPECT_EQ(px[0], static_cast<uint8_t>(shade * 255.0f));
    EXPECT_EQ(px[1], static_cast<uint8_t>(shade * 0.5f * 255.0f));
    EXPECT_EQ(px[3], 255);
    EXPECT_NEAR(p.depth[20 * w + 55], OrthoDepth(1.0f + 13.0f / 32.0f), 16777216.0 * 0.0015 / 20.0);

    // Outside child 0 nothing is opaque: untouched image, cleared depth.
    EXPECT_EQ(p.Pixel(10, 10, w)[3], 0);
    EXPECT_EQ(p.depth[10 * w + 10], MAX_UINT);
    EXPECT_EQ(p.Pixel(50, 40, w)[3], 0);
}

TEST(OctreeKernel, EightAndSixteenBitVoxelsDrawTheSamePicture)
{
    TestTree tree = TiltedPlaneTree();
    const Picture a = RenderSolid(tree, 8, 48, 40);
    const Picture b = RenderSolid(tree, 16, 48, 40);
    ASSERT_EQ(a.depth, b.depth);
    for (size_t i = 0; i < a.image.size(); ++i)
        ASSERT_NEAR(a.image[i], b.image[i], 1) << i;
    int drawn = 0;
    for (size_t i = 3; i < a.image.size(); i += 4)
        drawn += a.image[i] == 255;
    EXPECT_GT(drawn, 48 * 40 / 8);
}

TEST(OctreeKernel, GradientSamplesCrossIntoNeighbourNodes)
{
    // Level 0: child 0 a brick of 5s, child 1 (x + 1) a brick of 7s, child 2
    // (y + 1) uniform 9, child 3 a brick flag without a brick; child 4 (z + 1)
    // has children, the one nearest child 0 with a brick of i = x + 16 y.
    TestTree tree;
    tree.nodes[1] = WithBrick(tree.AddBrick([](int, int, int) { return uint16_t(5); }));
    tree.nodes[2] = WithBrick(tree.AddBrick([](int, int, int) { return uint16_t(7); }));
    tree.nodes[3] = Uniform(9);
    tree.nodes[4] = Node{TezNodeFlagBit, 0, 0};
    const uint32_t group = tree.AddGroup();
    tree.nodes[5] = Node{TezNodeFlagBit | group, TezNodeFlagBit | 0, 0};
    tree.nodes[group] = WithBrick(tree.AddBrick([](int x, int y, int) { return uint16_t(x + 16 * y); }));
    tree.maxDepth = 2;
    const TezOctreeRenderSource source = tree.Source(16, 1);
    const Octree oct = TezMakeOctreeRecord(source);
    const uint16_t* brick0 = tree.leaves16.data();

    EXPECT_EQ(NeighbourSample(oct, brick0, 0, 0, 0, 0, 3, 4, 5), 5.0f);
    EXPECT_EQ(NeighbourSample(oct, brick0, 0, 0, 0, 0, 16, 4, 5), 7.0f);
    EXPECT_EQ(NeighbourSample(oct, brick0, 0, 0, 0, 0, 4, 16, 5), 9.0f);
    EXPECT_EQ(NeighbourSample(oct, brick0, 0, 0, 0, 0, 16, 16, 5), 1.0f);
    EXPECT_EQ(NeighbourSample(oct, brick0, 0, 0, 0, 0, -1, 4, 5), 0.0f); // outside the tree
    // At level 1 the node (1, 1, 1) of child 0 reads its x + 1 neighbour
    // (2, 1, 1) in the coarser brick of child 1: voxel (0 * 16 + 0) / 2.
    EXPECT_EQ(NeighbourSample(oct, brick0, 1, 1, 1, 1, 16, 6, 7), 7.0f);
    // Node (0, 0, 1) at level 1 reads z + 1 into (0, 0, 2): child 4's first
    // child, with all levels used, at the coordinates themselves.
    EXPECT_EQ(NeighbourSample(oct, brick0, 0, 0, 1, 1, 3, 2, 16), 3.0f + 16.0f * 2.0f);

    // Interior voxels of a constant brick have no gradient.
    const float3s g = Gradient(oct, brick0, 0, 0, 0, 0, 5, 5, 5);
    EXPECT_EQ(Dot(g, g), 0.0f);
    EXPECT_EQ(ShadeFromGradient(g, Make3(0, 0, 1)), 1.0f); // normal (1, 1, 1)
    EXPECT_EQ(ShadeFromGradient(g, Make3(0, 0, -1)), 0.0f);
}

// Two levels of uniform nodes, value(ix, iy, iz) at the 4 x 4 x 4 finest cells.
TEST(OctreeKernel, CrossSectionRemovesWhatLiesBeyondThePlane)
{
    // Left half (world x < 0.5) opaque throughout, right half opaque only
    // behind z = 0.5.
    TestTree tree = TwoLevelTree([](int ix, int, int iz) { return ix < 2 || iz >= 2 ? 200u : 0u; });
    const int w = 16, h = 16;
    const Picture full = RenderSolid(tree, 8, w, h);
    EXPECT_NEAR(full.depth[4 * w + 2], OrthoDepth(1.5005f), 2.0); // right half: two empty steps first
    EXPECT_NEAR(full.depth[4 * w + 13], OrthoDepth(1.0005f), 2.0);

    // The same cut on an object moved by (10, 0, 0), seen from a moved camera.
    TezMatrix44<float> moved = Identity();
    moved[3] = TezVector4<float>(10, 0, 0, 1);
    Camera cam = OrthoCamera(w, h);
    cam.eye.x += 10.0f;
    cam.focus.x += 10.0f;
    const TezPlane<float> keepFront({10.5f, 0.5f, 0.5f}, {0.0f, 0.0f, -1.0f});
    const Picture cut = RenderSolid(tree, 8, w, h, &keepFront, moved, &cam);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (x < w / 2) { // world x > 0.5: everything left is beyond the cut
                ASSERT_EQ(cut.Pixel(x, y, w)[3], 0);
                ASSERT_EQ(cut.depth[y * w + x], MAX_UINT);
            } else {
                ASSERT_EQ(cut.Pixel(x, y, w)[3], 255);
                ASSERT_NEAR(cut.depth[y * w + x], OrthoDepth(1.0005f), 2.0);
            }
        }

    // Keeping the back instead starts every ray on the plane.
    const TezPlane<float> keepBack({10.5f, 0.5f, 0.5f}, {0.0f, 0.0f, 1.0f});
    const Picture back = RenderSolid(tree, 8, w, h, &keepBack, moved, &cam);
    for (int x = 0; x < w; ++x)
        ASSERT_NEAR(back.depth[4 * w + x], OrthoDepth(1.5f), 2.0);
}

TEST(OctreeKernel, FarCameraRaysStillFinish)
{
    // At t near 50000 the node epsilon is below the spacing of floats.
    TestTree tree = TwoLevelTree([](int, int, int iz) { return iz == 1 || iz == 2 ? 200u : 0u; });
    Camera cam = OrthoCamera(16, 16);
    cam.eye.z = -50000.0f;
    cam.focus.z = -49999.0f; // keeps the view's extent
    cam.far = 1e6f;
    const Picture p = RenderSolid(tree, 8, 16, 16, nullptr, Identity(), &cam);
    // Axis-parallel rays drift by 1e-6 per unit of t: 0.05 here. Pixels away
    // from the far edges still hit the slab.
    for (int y = 0; y < 14; ++y)
        for (int x = 2; x < 16; ++x)
            ASSERT_EQ(p.Pixel(x, y, 16)[3], 255) << x << ", " << y;

    // Oblique rays from far away through empty space: where a step is below
    // the spacing of t, the ray must still move on (this loop would hang).
    const float T[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const std::vector<float> table = StepTable();
    TestTree empty = TwoLevelTree([](int, int, int) { return 0u; });
    const Octree oct = TezMakeOctreeRecord(empty.Source(8));
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    for (int n = 0; n < 20000; ++n) {
        const float distance = 20000.0f + 40000.0f * (unit(random) + 1.0f);
        const float3s d = Scale(Make3(0.3f * unit(random), 0.3f * unit(random), 1.0f), 1.0f / 1.1f);
        Camera far = cam;
        far.eye = Make3(0.5f - d.x * distance, 0.5f - d.y * distance, 0.5f - d.z * distance);
        far.focus = Add(far.eye, d);
        far.fov = 0.01f;
        Ray ray;
        if (SetUpRay(far, T, 8, 8, DefaultRangeFunction{}, ray)) {
            ASSERT_EQ(March<uint8_t>(oct, ray, table.data(), false, ray.tEntry).alpha, 0.0f);
        }
    }
}

TEST(OctreeKernel, FarRaysStepOverTransparentBricksAndFinish)
{
    // Bricks of varying values, all transparent under the table, with node
    // states for that table: rays skip them by state. Far from the tree the
    // skip's step is below the spacing of t, and must still move the ray.
    TestTree tree;
    std::mt19937 random(11);
    for (int i = 1; i <= 8; ++i)
        tree.nodes[i] = WithBrick(tree.AddBrick([&](int, int, int) { return uint16_t(random() % 60); }));
    const std::vector<float> table = StepTable();
    TezOctreeRenderSource source = tree.Source(8);
    ASSERT_TRUE(TezCalculateOctreeNodeStates(source, table.data(), false));
    for (int i = 1; i <= 8; ++i)
        ASSERT_EQ(tree.nodes[i].state, TezNodeStateEmpty);
    source.statesValid = true;
    const Octree oct = TezMakeOctreeRecord(source);
    const float T[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    Camera cam = OrthoCamera(16, 16);
    cam.far = 1e6f;
    cam.fov = 0.01f;
    for (int n = 0; n < 20000; ++n) {
        const float distance = 20000.0f + 40000.0f * (unit(random) + 1.0f);
        const float3s d = Scale(Make3(0.3f * unit(random), 0.3f * unit(random), 1.0f), 1.0f / 1.1f);
        cam.eye = Make3(0.5f - d.x * distance, 0.5f - d.y * distance, 0.5f - d.z * distance);
        cam.focus = Add(cam.eye, d);
        Ray ray;
        if (SetUpRay(cam, T, 8, 8, DefaultRangeFunction{}, ray)) {
            ASSERT_EQ(March<uint8_t>(oct, ray, table.data(), false, ray.tEntry).alpha, 0.0f);
        }
    }
}

TEST(OctreeKernel, RootWithoutChildrenDrawsAsOneUniformCube)
{
    // A constant volume: the whole tree is its root. It draws as the tree
    // of eight uniform children would, and gets its state from its value.
    std::vector<Node> nodes{Node{0, 200, 0}};
    const float unused = 0.0f;
    TezOctreeRenderSource source;
    source.voxelSize = 1.0f / 16.0f;
    source.treeSize = 16;
    source.nodes = nodes.data();
    source.leaves = &unused;
    source.nodeCount = 1;
    const std::vector<float> table = StepTable();
    TezOctreeRenderBuffers buffers(8, 8, 0, false);
    ASSERT_TRUE(TezRenderOctreeSolid(buffers.GetTarget(), source, OrthoCamera(8, 8), Identity(), {1, 0.5f, 0.25f, 1},
                                     table.data()));
    const std::vector<uint8_t> image = buffers.ReadImage();
    for (size_t i = 0; i < image.size(); i += 4)
        ASSERT_EQ(image[i] + 256 * image[i + 3], 255 + 256 * 255) << i / 4;
    ASSERT_TRUE(TezCalculateOctreeNodeStates(source, table.data(), false));
    EXPECT_EQ(nodes[0].state, TezNodeStateFull);
}

// A ball of radius 0.3125 world units at the centre of an n^3 volume of 1 / n
// world units a voxel: the tree is the unit cube whatever n is.
TezRef<TezVoxelOctree> BallOctree(int n)
{
    std::vector<uint8_t> voxels(size_t(n) * n * n, 0);
    const float centre = 0.5f * n, radius = 0.3125f * n;
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                const float dx = x + 0.5f - centre, dy = y + 0.5f - centre, dz = z + 0.5f - centre;
                voxels[(size_t(z) * n + y) * n + x] = dx * dx + dy * dy + dz * dz <= radius * radius ? 200 : 0;
            }
    return TezVoxelOctree::CreateFromVolumeData("ball", TezMemoryVolume::Create8(n, n, n, voxels), 1.0 / n, 8, 64);
}

// Pixels drawn by a solid and a layered render (blended) of the tree: the
// image's alpha bytes, from 0 or 255.
struct Silhouettes
{
    std::vector<uint8_t> solid, layered;
};

Silhouettes DrawnPixels(TezVoxelOctree& octree, int w)
{
    const TezOctreeRenderSource source = TezMakeOctreeRenderSource(octree);
    const std::vector<float> table = StepTable();
    const bool device = TezDeviceIsCuda();
    const Camera cam = OrthoCamera(w, w);
    Silhouettes out;
    auto alphas = [](const std::vector<uint8_t>& image) {
        std::vector<uint8_t> a;
        for (size_t i = 3; i < image.size(); i += 4)
            a.push_back(image[i]);
        return a;
    };
    TezOctreeRenderBuffers solid(w, w, 0, device);
    TezClearOctreeImage(solid.GetTarget(), 0);
    EXPECT_TRUE(TezRenderOctreeSolid(solid.GetTarget(), source, cam, Identity(), {1, 1, 1, 1}, table.data()));
    out.solid = alphas(solid.ReadImage());
    TezOctreeRenderBuffers layered(w, w, 2, device);
    TezClearOctreeImage(layered.GetTarget(), 0);
    TezClearOctreeLayers(layered.GetTarget());
    EXPECT_TRUE(TezRenderOctreeTransparent(layered.GetTarget(), source, cam, Identity(), {1, 1, 1, 1}, table.data()));
    EXPECT_TRUE(TezBlendOctreeLayers(layered.GetTarget(), cam));
    out.layered = alphas(layered.ReadImage());
    return out;
}

TEST(OctreeKernel, TreeOfOneBrickDrawsInItsPlaceLikeAFinerTree)
{
    // 16^3 voxels build a tree whose root is its only brick; 32^3 voxels of
    // the same ball build one with children. Both span the unit cube.
    TezRef<TezVoxelOctree> coarse = BallOctree(16), fine = BallOctree(32);
    ASSERT_TRUE(coarse && fine);
    ASSERT_EQ(TezMakeOctreeRenderSource(*coarse).nodeCount, 1);
    const int w = 64;
    const Silhouettes a = DrawnPixels(*coarse, w), b = DrawnPixels(*fine, w);
    for (const auto& [drawn, reference] :
         {std::make_pair(&a.solid, &b.solid), std::make_pair(&a.layered, &b.layered)}) {
        int lit = 0, differ = 0;
        for (int y = 0; y < w; ++y)
            for (int x = 0; x < w; ++x) {
                const uint8_t v = (*drawn)[y * w + x];
                ASSERT_TRUE(v == 0 || v == 255) << x << ", " << y;
                // The ball's disc is 0.3125 * 64 = 20 pixels in radius; the
                // coarse ball's voxels are 4 pixels wide.
                const float r = std::hypot(x + 0.5f - 32.0f, y + 0.5f - 32.0f);
                if (r < 14.0f) {
                    ASSERT_EQ(v, 255) << x << ", " << y;
                } else if (r > 26.0f) {
                    ASSERT_EQ(v, 0) << x << ", " << y;
                }
                lit += v != 0;
                differ += v != (*reference)[y * w + x];
            }
        EXPECT_GT(lit, 900); // pi * 20^2 = 1257
        EXPECT_LT(differ, lit / 8) << lit;
    }
}

TEST(OctreeKernel, TransparentLayersInsertSortedAndEqualDistancesGoBehind)
{
    // A slab: opaque for 0.25 <= z < 0.75.
    TestTree tree = TwoLevelTree([](int, int, int iz) { return iz == 1 || iz == 2 ? 200u : 0u; });
    const int w = 8, h = 8;
    TezOctreeRenderBuffers buffers(w, h, 2, false);
    const TezOctreeRenderTarget& target = buffers.GetTarget();
    const std::vector<float> table = StepTable();
    const Camera cam = OrthoCamera(w, h);
    ASSERT_TRUE(TezClearOctreeLayers(target));
    ASSERT_TRUE(TezRenderOctreeTransparent(target, tree.Source(8), cam, Identity(), {1, 0, 0, 0.5f}, table.data()));
    std::vector<float> rays = buffers.ReadRayLayers();
    std::vector<uint8_t> colours = buffers.ReadColourLayers();
    const int plane = w * h, at = 3 * w + 5;
    const float front = rays[at], back = rays[plane + at];
    EXPECT_NEAR(front, 1.25f, 0.001f);
    EXPECT_NEAR(back, 1.75f, 0.001f);
    EXPECT_EQ(colours[at * 4 + 0], 255);
    EXPECT_EQ(colours[at * 4 + 3], 127);

    // A second object with the same surfaces: its front surface goes behind
    // the stored one of equal distance, its back surface finds no slot.
    ASSERT_TRUE(TezRenderOctreeTransparent(target, tree.Source(8), cam, Identity(), {0, 1, 0, 1}, table.data()));
    rays = buffers.ReadRayLayers();
    colours = buffers.ReadColourLayers();
    EXPECT_EQ(rays[at], front);
    EXPECT_EQ(rays[plane + at], front);
    EXPECT_EQ(colours[at * 4 + 0], 255);
    EXPECT_EQ(colours[(plane + at) * 4 + 1], 255);
    EXPECT_EQ(colours[(plane + at) * 4 + 3], 255);
}

TEST(OctreeKernel, BlendComposesLayersBackToFront)
{
    const int w = 2, h = 1;
    for (int count : {2, 1}) {
        TezOctreeRenderBuffers buffers(w, h, count, false);
        const TezOctreeRenderTarget& t = buffers.GetTarget();
        ASSERT_TRUE(TezClearOctreeImage(t, 7));
        ASSERT_TRUE(TezClearOctreeDepth(t, 0));
        // Pixel 0: red at half alpha over blue; pixel 1: no first layer.
        const uchar4s front{255, 0, 0, 128}, rear{0, 0, 255, 255};
        reinterpret_cast<uchar4s*>(t.colourLayers)[0] = front;
        t.rayLayers[0] = 1.0f;
        if (count == 2) {
            reinterpret_cast<uchar4s*>(t.colourLayers + t.colourLayersPitch * h)[0] = rear;
            reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(t.rayLayers) + t.rayLayersPitch * h)[0] = 2.0f;
        }
        ASSERT_TRUE(TezBlendOctreeLayers(t, OrthoCamera(w, h)));
        const std::vector<uint8_t> image = buffers.ReadImage();
        const std::vector<uint32_t> depth = buffers.ReadDepth();
        if (count == 2) {
            EXPECT_NEAR(image[0], 128, 1);
            EXPECT_EQ(image[1], 0);
            EXPECT_NEAR(image[2], 127, 1);
        } else {
            EXPECT_EQ(image[0], 255);
            EXPECT_EQ(image[2], 0);
        }
        EXPECT_EQ(image[3], 128);
        EXPECT_NEAR(depth[0], OrthoDepth(1.0f), 1.0);
        EXPECT_EQ(image[4], 7);
        EXPECT_EQ(depth[1], 0u);
    }
}

TEST(OctreeKernel, NodeStatesFromBricksValuesAndChildren)
{
    TestTree tree;
    tree.nodes[1] = WithBrick(tree.AddBrick([](int x, int, int) { return uint16_t(x == 15 ? 200 : 0); }));
    tree.nodes[2] = WithBrick(tree.AddBrick([](int, int, int) { return uint16_t(200); }));
    tree.nodes[3] = WithBrick(tree.AddBrick([](int, int, int) { return uint16_t(3); }));
    tree.nodes[4] = Uniform(60); // exactly on the threshold: opaque
    tree.nodes[5] = Uniform(59);
    const uint32_t group = tree.AddGroup();
    tree.nodes[6] = Node{group, 0, 7};
    for (int k = 0; k < 8; ++k)
        tree.nodes[group + k] = Uniform(255);
    tree.nodes[7] = Node{TezNodeFlagBit, 0, 5}; // no brick: keeps its state
    const std::vector<float> table = StepTable();

    TezOctreeRenderSource source = tree.Source(8);
    ASSERT_TRUE(TezCalculateOctreeNodeStates(source, table.data(), false));
    const uint32_t expected[] = {TezNodeStateBoundary, TezNodeStateBoundary, TezNodeStateFull, TezNodeStateEmpty,
                                 TezNodeStateFull,     TezNodeStateEmpty,    TezNodeStateFull, 5,
                                 TezNodeStateEmpty};
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(tree.nodes[i].state, expected[i]) << i;

    // A tree of full nodes only is full at the root; a full node next to an
    // empty one becomes a boundary node.
    for (int i = 1; i <= 8; ++i)
        tree.nodes[i] = Uniform(200);
    tree.nodes.resize(9);
    source = tree.Source(8);
    ASSERT_TRUE(TezCalculateOctreeNodeStates(source, table.data(), false));
    EXPECT_EQ(tree.nodes[0].state, TezNodeStateFull);
    tree.nodes[8] = Uniform(0);
    ASSERT_TRUE(TezCalculateOctreeNodeStates(source, table.data(), false));
    ASSERT_TRUE(TezCalculateOctreeNodeStatesAdjacent(source, false));
    EXPECT_EQ(tree.nodes[7].state, TezNodeStateBoundary); // shares a face with child 7
    EXPECT_EQ(tree.nodes[8].state, TezNodeStateEmpty);
}

TEST(OctreeKernel, NodeStateGridCoversEveryNode)
{
    for (int count : {1, 256, 257, 262144, 262145, 300000000}) {
        const Grid3 g = NodeStateGrid(count);
        const uint64_t last = ((uint64_t(g.z - 1) << 20) + (uint64_t(g.y - 1) << 10) + (g.x - 1)) * 256 + 255;
        EXPECT_GE(last + 1, uint64_t(count)) << count;
        EXPECT_LE(g.x, 1024u);
        EXPECT_LE(g.y, 1024u);
    }
    EXPECT_EQ(NodeStateGrid(300).x, 2u);
    EXPECT_EQ(NodeStateGrid(262145).y, 2u);
    EXPECT_EQ(NodeStateGrid(300000000).z, 2u);
}

TEST(OctreeKernel, RefusesBadArguments)
{
    TestTree tree;
    TezOctreeRenderSource source = tree.Source(8);
    source.bitsPerPixel = 12;
    EXPECT_THROW(TezMakeOctreeRecord(source), std::runtime_error);
    TezOctreeRenderTarget empty;
    const std::vector<float> table = StepTable();
    EXPECT_THROW(TezRenderOctreeSolid(empty, tree.Source(8), OrthoCamera(4, 4), Identity(), {1, 1, 1, 1}, table.data()),
                 std::runtime_error);
    if (!TezOctreeKernelsHaveDevice()) {
        EXPECT_THROW(TezOctreeRenderBuffers(4, 4, 1, true), std::runtime_error);
    }
    const float scales[2] = {TezMakeOctreeRecord(tree.Source(8)).valueScale,
                             TezMakeOctreeRecord(tree.Source(16)).valueScale};
    uint32_t bits[2];
    std::memcpy(bits, scales, sizeof(bits));
    EXPECT_EQ(bits[0], 0x3B808081u);
    EXPECT_EQ(bits[1], 0x37800080u);
}

TEST(OctreeKernel, BuiltOctreeOfASphereRendersItsSilhouetteAndStates)
{
    // A ball of radius 10 voxels in a 32^3 volume; 1 / 32 world units a voxel
    // makes the tree the unit cube.
    const int n = 32;
    std::vector<uint8_t> voxels(size_t(n) * n * n, 0);
    auto inside = [](int x, int y, int z) {
        const float dx = x + 0.5f - 16.0f, dy = y + 0.5f - 16.0f, dz = z + 0.5f - 16.0f;
        return dx * dx + dy * dy + dz * dz <= 100.0f;
    };
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x)
                voxels[(size_t(z) * n + y) * n + x] = inside(x, y, z) ? 200 : 0;
    TezRef<TezVoxelOctree> octree =
        TezVoxelOctree::CreateFromVolumeData("ball", TezMemoryVolume::Create8(n, n, n, voxels), 1.0 / n, 8, 64);
    ASSERT_TRUE(octree);
    const TezOctreeRenderSource source = TezMakeOctreeRenderSource(*octree);
    ASSERT_GE(source.nodeCount, 9);
    ASSERT_FALSE(TezDeviceIsCuda() && !TezOctreeKernelsHaveDevice());

    const int w = 64;
    const std::vector<float> table = StepTable();
    TezOctreeRenderBuffers buffers(w, w, 0, TezDeviceIsCuda());
    ASSERT_TRUE(
        TezRenderOctreeSolid(buffers.GetTarget(), source, OrthoCamera(w, w), Identity(), {1, 1, 1, 1}, table.data()));
    const std::vector<uint32_t> depth = buffers.ReadDepth();
    for (int y = 0; y < w; ++y)
        for (int x = 0; x < w; ++x) {
            const int vx = (w - 1 - x) / 2, vy = y / 2; // voxel column of the ray
            int first = -1;
            for (int z = 0; z < n && first < 0; ++z)
                if (inside(vx, vy, z))
                    first = z;
            if (first < 0) {
                ASSERT_EQ(depth[y * w + x], MAX_UINT) << x << ", " << y;
            } else { // the far side of the first opaque voxel
                ASSERT_NEAR(depth[y * w + x], OrthoDepth(1.0f + (first + 1) / 32.0f), 16777216.0 * 0.002 / 20.0)
                    << x << ", " << y;
            }
        }

    ASSERT_TRUE(TezVoxelOctreeCalculateNodeStates(octree, table.data()));
    EXPECT_EQ(octree->GetNodePool().Node(0)->state, TezNodeStateBoundary);
    for (uint32_t i = 1; i <= 8; ++i)
        EXPECT_EQ(octree->GetNodePool().Node(i)->state, TezNodeStateBoundary) << i;

    // With valid states the empty bricks and blocks are stepped over: the
    // same pictures. A block stepped over adds its length to the distance in
    // one sum instead of voxel by voxel, so distances may differ in their
    // last bit.
    const auto expectNearDepths = [](const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
        ASSERT_EQ(a.size(), b.size());
        for (size_t i = 0; i < a.size(); ++i)
            ASSERT_LE(std::abs(int64_t(a[i]) - int64_t(b[i])), 1) << i;
    };
    TezOctreeRenderSource skipping = TezMakeOctreeRenderSource(*octree);
    skipping.statesValid = true;
    TezOctreeRenderBuffers again(w, w, 2, TezDeviceIsCuda()), layered(w, w, 2, TezDeviceIsCuda());
    ASSERT_TRUE(
        TezRenderOctreeSolid(again.GetTarget(), skipping, OrthoCamera(w, w), Identity(), {1, 1, 1, 1}, table.data()));
    expectNearDepths(again.ReadDepth(), depth);
    EXPECT_EQ(again.ReadImage(), buffers.ReadImage());
    for (auto* target : {&again, &layered}) {
        TezClearOctreeLayers(target->GetTarget());
        ASSERT_TRUE(TezRenderOctreeTransparent(target->GetTarget(), target == &again ? skipping : source,
                                               OrthoCamera(w, w), Identity(), {1, 1, 1, 0.5f}, table.data()));
    }
    const std::vector<float> distances = again.ReadRayLayers(), reference = layered.ReadRayLayers();
    ASSERT_EQ(distances.size(), reference.size());
    for (size_t i = 0; i < distances.size(); ++i)
        ASSERT_NEAR(distances[i], reference[i], 1e-6f * reference[i]) << i;
    EXPECT_EQ(again.ReadColourLayers(), layered.ReadColourLayers());
}

// Copies a host array to device memory, freed at the end of the scope.
struct DeviceCopy
{
    void* p = nullptr;
    DeviceCopy(const void* source, size_t bytes)
    {
        EXPECT_EQ(TezDeviceMalloc(&p, bytes), TezDeviceSuccess);
        EXPECT_EQ(TezDeviceMemcpy(p, source, bytes, TezDeviceHostToDevice), TezDeviceSuccess);
    }
    ~DeviceCopy() { TezDeviceFree(p); }
};

// Runs only where a CUDA device is present: the kernels' pictures agree with
// the host loops' up to the last bits of the device's transcendentals.
TEST(OctreeKernel, DeviceLaunchesMatchTheHostLoops)
{
    if (!TezOctreeKernelsHaveDevice() || !TezDeviceIsCuda())
        GTEST_SKIP() << "no CUDA device";
    const int w = 64, h = 64;
    const std::vector<float> table = StepTable();
    const Camera cam = OrthoCamera(w, h);
    TestTree tree = TiltedPlaneTree();
    for (int bits : {8, 16}) {
        const TezOctreeRenderSource host = tree.Source(bits);
        const size_t voxelBytes = tree.bricks.size() * (bits / 8);
        DeviceCopy nodes(host.nodes, sizeof(Node) * host.nodeCount), leaves(host.leaves, voxelBytes),
            lut(table.data(), sizeof(float) * 256);
        TezOctreeRenderSource device = host;
        device.nodes = static_cast<Node*>(nodes.p);
        device.leaves = leaves.p;

        TezOctreeRenderBuffers a(w, h, 2, false), b(w, h, 2, true);
        const TezPlane<float> plane({0.3f, 0.3f, 0.3f}, {0.2f, 0.1f, 1.0f});
        ASSERT_TRUE(TezRenderOctreeSolid(a.GetTarget(), host, cam, Identity(), {1, 1, 1, 1}, table.data(), &plane));
        ASSERT_TRUE(TezRenderOctreeSolid(b.GetTarget(), device, cam, Identity(), {1, 1, 1, 1},
                                         static_cast<const float*>(lut.p), &plane));
        ASSERT_TRUE(TezRenderOctreeTransparent(a.GetTarget(), host, cam, Identity(), {1, 0, 0, 0.5f}, table.data()));
        ASSERT_TRUE(TezRenderOctreeTransparent(b.GetTarget(), device, cam, Identity(), {1, 0, 0, 0.5f},
                                               static_cast<const float*>(lut.p)));
        ASSERT_TRUE(TezBlendOctreeLayers(a.GetTarget(), cam));
        ASSERT_TRUE(TezBlendOctreeLayers(b.GetTarget(), cam));
        const std::vector<uint8_t> imageA = a.ReadImage(), imageB = b.ReadImage();
        const std::vector<uint32_t> depthA = a.ReadDepth(), depthB = b.ReadDepth();
        int differing = 0;
        for (int i = 0; i < w * h; ++i) {
            bool same = std::abs(int64_t(depthA[i]) - int64_t(depthB[i])) <= 4;
            for (int c = 0; c < 4; ++c)
                same = same && std::abs(imageA[i * 4 + c] - imageB[i * 4 + c]) <= 2;
            differing += !same;
        }
        EXPECT_LE(differing, w * h / 200) << bits << " bits";

        std::vector<Node> states(host.nodes, host.nodes + host.nodeCount);
        ASSERT_TRUE(TezCalculateOctreeNodeStates(host, table.data(), false));
        ASSERT_TRUE(TezCalculateOctreeNodeStates(device, static_cast<const float*>(lut.p), true, states.data()));
        for (int i = 0; i < host.nodeCount; ++i)
            EXPECT_EQ(states[i].state, host.nodes[i].state) << i;
    }
}

} // namespace
