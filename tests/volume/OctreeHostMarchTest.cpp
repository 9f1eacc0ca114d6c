// The host loops' march (re-entry into the last path, empty subtrees and
// empty blocks of bricks stepped over) against the restart-from-root march, ray by ray, on a built tree.

#include "volume/device/OctreeHostMarch.h"
#include "OctreeTestTrees.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelOctree.h"
#include "volume/device/OctreeHostRays.h"
#include "volume/device/OctreeLaunch.h"
#include "volume/device/OctreeScreen.h"
#include "volume/device/VoxelOctreeKernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

using namespace TezOctreeTestTrees;

namespace {

// 300 x 56 x 48 voxels: a tree of 512 with a pyramid node above its blocks.
// Noisy "tissue" (never opaque) in a slab with air around it, and opaque
// balls of several sizes, some touching brick faces, some at the source's
// edge.
TezRef<TezVoxelOctree> BallsInTissue(int bits)
{
    const int w = 300, h = 56, d = 48;
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> noise(0, 12);
    const float balls[][4] = {{40, 28, 24, 9},  {100, 20, 30, 4},   {160, 32, 16, 12}, {230, 28, 24, 2.5f},
                              {288, 50, 40, 7}, {16, 16, 16, 1.5f}, {200, 40, 40, 6}};
    std::vector<uint16_t> v(size_t(w) * h * d);
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                uint16_t value = (y > 6 && y < 50) ? uint16_t(40 + noise(rng)) : 0;
                for (const auto& b : balls) {
                    const float dx = x + 0.5f - b[0], dy = y + 0.5f - b[1], dz = z + 0.5f - b[2];
                    if (dx * dx + dy * dy + dz * dz <= b[3] * b[3])
                        value = uint16_t(150 + noise(rng));
                }
                v[(size_t(z) * h + y) * w + x] = value;
            }
    if (bits == 8)
        return TezVoxelOctree::CreateFromVolumeData("balls", TezMemoryVolume::Create8(w, h, d, {v.begin(), v.end()}),
                                                    1.0, 8, 64);
    for (uint16_t& x : v)
        x = uint16_t(x * 257);
    return TezVoxelOctree::CreateFromVolumeData("balls", TezMemoryVolume::Create16(w, h, d, v), 1.0, 16, 64);
}

// The tree's render source with its node states and block masks for table.
TezOctreeRenderSource WithStatesAndMasks(TezVoxelOctree& octree, const std::vector<float>& table,
                                         std::vector<uint64_t>& masks)
{
    TezOctreeRenderSource source = TezMakeOctreeRenderSource(octree);
    EXPECT_TRUE(TezCalculateOctreeNodeStates(source, table.data(), false));
    EXPECT_TRUE(TezCalculateOctreeBlockMasks(source, table.data(), masks));
    source.blockMasks = masks.data();
    source.statesValid = true;
    return source;
}

Camera LookAt(bool perspective, const TezVector3<float>& eye, const TezVector3<float>& focus, int w, int h)
{
    auto unit = [](const TezVector3<float>& v) { return v * (1.0f / v.Length()); };
    const TezVector3<float> f = unit(focus - eye);
    const TezVector3<float> r = unit(f ^ TezVector3<float>(0, 0, 1));
    const TezVector3<float> u = r ^ f;
    const TezVector3<float> axes[3] = {{r.x, u.x, f.x}, {r.y, u.y, f.y}, {r.z, u.z, f.z}};
    return TezMakeOctreeCamera(perspective, eye, axes, focus, 1.0f, 4000.0f, 40.0f, w, h);
}

// Answers the number of first hits.
template <class V>
int ExpectSameMarches(const TezOctreeRenderSource& source, const Camera& cam, const float* transform)
{
    const std::vector<float> table = StepTable();
    const Octree oct = TezMakeOctreeRecord(source);
    int hits = 0, layers = 0;
    for (int y = 0; y < cam.height; ++y)
        for (int x = 0; x < cam.width; ++x) {
            Ray ray;
            if (!SetUpRay(cam, transform, x, y, DefaultRangeFunction{}, ray))
                continue;
            float start = ray.tEntry;
            // The first surface and the way out of it, as the layered render seeks them.
            for (bool inside : {false, true}) {
                const MarchResult a = March<V>(oct, ray, table.data(), inside, start);
                const MarchResult b = MarchWithPath<V>(oct, ray, table.data(), inside, start);
                EXPECT_EQ(a.alpha, b.alpha) << x << ", " << y << (inside ? " inside" : "");
                if (a.alpha != b.alpha)
                    return 0;
                if (a.alpha == 0.0f)
                    break;
                EXPECT_EQ(a.shade, b.shade) << x << ", " << y;
                EXPECT_NEAR(a.hitDepth, b.hitDepth, 1e-5f * a.hitDepth) << x << ", " << y;
                hits += !inside, layers += inside;
                start = a.hitDepth + 4.0f * oct.voxelSize;
            }
        }
    EXPECT_GT(layers, 0);
    return hits;
}

TEST(OctreeHostMarch, FindsTheHitsOfTheRestartingMarch)
{
    for (int bits : {8, 16}) {
        TezRef<TezVoxelOctree> octree = BallsInTissue(bits);
        ASSERT_TRUE(octree);
        ASSERT_EQ(octree->GetTreeSize(), 512);
        const std::vector<float> table = StepTable();
        std::vector<uint64_t> masks;
        const TezOctreeRenderSource source = WithStatesAndMasks(*octree, table, masks);
        // World = voxels; the transform takes it to the unit cube.
        const float s = 1.0f / 512.0f;
        const float transform[16] = {s, 0, 0, 0, 0, s, 0, 0, 0, 0, s, 0, 0, 0, 0, 1};
        // A small voxel size in the record lowers the level limit: the far
        // view descends only a few levels and draws the coarse bricks.
        const struct
        {
            Camera camera;
            float voxelSize;
        } views[] = {
            {LookAt(true, {150, -200, 90}, {150, 28, 24}, 96, 48), 1.0f},
            {LookAt(true, {-500, -400, 300}, {150, 28, 24}, 64, 48), 0.02f},
            {LookAt(false, {190, -40, -400}, {150, 28, 24}, 64, 64), 1.0f},
        };
        int hits = 0;
        for (const auto& view : views) {
            TezOctreeRenderSource viewed = source;
            viewed.voxelSize = view.voxelSize;
            hits += bits == 8 ? ExpectSameMarches<uint8_t>(viewed, view.camera, transform)
                              : ExpectSameMarches<uint16_t>(viewed, view.camera, transform);
        }
        EXPECT_GT(hits, 100);

        // The masks are what makes the blocks stepped over: fewer voxels read.
        MarchCounters with{0, 0}, without{0, 0};
        Octree masked = TezMakeOctreeRecord(source), plain = masked;
        plain.blockMasks = nullptr;
        const Camera& cam = views[0].camera;
        for (int y = 0; y < cam.height; ++y)
            for (int x = 0; x < cam.width; ++x) {
                Ray ray;
                if (!SetUpRay(cam, transform, x, y, DefaultRangeFunction{}, ray))
                    continue;
                if (bits == 8) {
                    MarchWithPath<uint8_t>(masked, ray, table.data(), false, ray.tEntry, &with);
                    MarchWithPath<uint8_t>(plain, ray, table.data(), false, ray.tEntry, &without);
                } else {
                    MarchWithPath<uint16_t>(masked, ray, table.data(), false, ray.tEntry, &with);
                    MarchWithPath<uint16_t>(plain, ray, table.data(), false, ray.tEntry, &without);
                }
            }
        EXPECT_LT(with.voxels * 2, without.voxels) << with.voxels << " of " << without.voxels;
    }
}

// The host loops set up rays only inside the cube's box on screen: no
// pixel outside it may have a ray that meets the cube.
TEST(OctreeHostMarch, NoRayOutsideTheCubesBoxMeetsTheCube)
{
    const float s = 1.0f / 300.0f;
    const float transform[16] = {s, 0, 0, 0, 0, s, 0, 0, 0, 0, s, 0, 0.1f, 0.2f, 0.0f, 1};
    const struct
    {
        Camera camera;
        bool smaller; // the box leaves part of the view out
    } views[] = {
        {LookAt(true, {150, -400, 90}, {140, 20, 50}, 120, 90), true},
        {LookAt(true, {-900, -800, 700}, {150, 150, 150}, 64, 48), true},
        {LookAt(false, {190, -40, -600}, {150, 120, 100}, 80, 60), true},
        {LookAt(true, {100, 100, 100}, {200, 180, 150}, 40, 30), false}, // inside the cube
        {LookAt(true, {100, -30, 100}, {100, 200, 100}, 40, 30), false}, // corners beside the eye
    };
    for (const auto& view : views) {
        const Camera& cam = view.camera;
        const PixelRect box = CubeOnScreen(cam, transform);
        int inside = 0;
        for (int y = 0; y < cam.height; ++y)
            for (int x = 0; x < cam.width; ++x) {
                Ray ray;
                const bool meets = SetUpRay(cam, transform, x, y, DefaultRangeFunction{}, ray);
                const bool inBox = x >= box.x0 && x < box.x1 && y >= box.y0 && y < box.y1;
                ASSERT_TRUE(inBox || !meets) << x << ", " << y;
                inside += meets;
            }
        EXPECT_GT(inside, 0);
        EXPECT_EQ(view.smaller, (box.x1 - box.x0) * (box.y1 - box.y0) < cam.width * cam.height);
    }
}

// A march started where the start boxes put it finds what the march from
// the cube's face finds; rays that meet no box find nothing.
TEST(OctreeHostMarch, MarchesFromTheStartBoxesFindTheSameHits)
{
    TezRef<TezVoxelOctree> octree = BallsInTissue(8);
    ASSERT_TRUE(octree);
    const std::vector<float> table = StepTable();
    std::vector<uint64_t> masks;
    const TezOctreeRenderSource source = WithStatesAndMasks(*octree, table, masks);
    const float s = 1.0f / 512.0f;
    const float scaled[16] = {s, 0, 0, 0, 0, s, 0, 0, 0, 0, s, 0, 0, 0, 0, 1};
    // Turned a little about z and moved: boxes are not axis-aligned on screen.
    const float c = 0.96f * s, n = 0.28f * s;
    const float turned[16] = {c, n, 0, 0, -n, c, 0, 0, 0, 0, s, 0, 0.05f, -0.02f, 0.01f, 1};
    const struct
    {
        Camera camera;
        const float* transform;
        float voxelSize;
    } views[] = {
        {LookAt(true, {150, -200, 90}, {150, 28, 24}, 256, 128), scaled, 1.0f},
        {LookAt(true, {150, -200, 90}, {150, 28, 24}, 256, 128), turned, 1.0f},
        {LookAt(true, {-500, -400, 300}, {150, 28, 24}, 64, 48), scaled, 0.02f}, // coarse levels drawn
        {LookAt(false, {190, -40, -400}, {150, 28, 24}, 64, 64), turned, 1.0f},
        {LookAt(true, {120, 3, 24}, {300, 28, 24}, 128, 96), scaled, 1.0f}, // inside the cube
        // Bricks of a ball reaching behind the eye and into the view.
        {LookAt(true, {158.31f, 52.07f, 16.43f}, {81.83f, -12.35f, 19.53f}, 64, 48), scaled, 1.0f},
    };
    int later = 0, nothing = 0, hits = 0;
    for (const auto& view : views) {
        TezOctreeRenderSource viewed = source;
        viewed.voxelSize = view.voxelSize;
        const Octree oct = TezMakeOctreeRecord(viewed);
        const Camera& cam = view.camera;
        StartBoxes boxes;
        ASSERT_TRUE(boxes.Make(cam, view.transform, oct, table.data(), false));
        EXPECT_GT(boxes.BoxCount(), 0u);
        for (int ty = 0; ty < cam.height; ty += StartBoxes::TileEdge)
            for (int tx = 0; tx < cam.width; tx += StartBoxes::TileEdge) {
                float starts[StartBoxes::TileEdge * StartBoxes::TileEdge];
                boxes.TileStarts(tx, ty, starts);
                for (int y = ty; y < std::min(ty + StartBoxes::TileEdge, cam.height); ++y)
                    for (int x = tx; x < std::min(tx + StartBoxes::TileEdge, cam.width); ++x) {
                        Ray ray;
                        if (!SetUpRay(cam, view.transform, x, y, DefaultRangeFunction{}, ray))
                            continue;
                        const float start = starts[(y - ty) * StartBoxes::TileEdge + (x - tx)];
                        const MarchResult a = MarchWithPath<uint8_t>(oct, ray, table.data(), false, ray.tEntry);
                        if (!(start < ray.tExit)) {
                            ASSERT_EQ(a.alpha, 0.0f)
                                << x << ", " << y << " of view " << (&view - views) << " met nothing but hits";
                            ++nothing;
                            continue;
                        }
                        const MarchResult b =
                            MarchWithPath<uint8_t>(oct, ray, table.data(), false, std::max(ray.tEntry, start));
                        ASSERT_EQ(a.alpha, b.alpha)
                            << x << ", " << y << " start " << start << " entry " << ray.tEntry << " hit " << a.hitDepth;
                        EXPECT_EQ(a.shade, b.shade) << x << ", " << y;
                        if (a.alpha > 0.0f) {
                            EXPECT_NEAR(a.hitDepth, b.hitDepth, 1e-5f * a.hitDepth) << x << ", " << y;
                            EXPECT_LE(start, a.hitDepth) << x << ", " << y;
                            ++hits;
                        }
                        later += start > ray.tEntry;
                    }
            }
    }
    EXPECT_GT(hits, 500);
    EXPECT_GT(later, 500);
    EXPECT_GT(nothing, 1000);
}

// Rays set up four at a time are SetUpRay's to the bit, cut or not, along
// axes (direction components clamped away from zero) and at odd angles.
TEST(OctreeHostMarch, FourRaysAtOnceAreThoseOfSetUpRay)
{
    const float s = 1.0f / 300.0f, c = 0.96f * s, n = 0.28f * s;
    const float scaled[16] = {s, 0, 0, 0, 0, s, 0, 0, 0, 0, s, 0, 0.1f, 0.2f, 0.0f, 1};
    const float turned[16] = {c, n, 0, 0, -n, c, 0, 0, 0, 0, 2 * s, 0, 0.05f, -0.02f, 0.01f, 1};
    const Camera cameras[] = {
        LookAt(true, {150, -400, 90}, {140, 20, 50}, 37, 23), LookAt(false, {190, -40, -600}, {150, 120, 100}, 41, 29),
        LookAt(true, {150, -400, 150}, {150, 150, 150}, 33, 21), // along y: x and z components vanish
        LookAt(true, {100, 100, 100}, {200, 180, 150}, 19, 13),  // inside the cube
    };
    const XSectionRangeFunction cut{{0.5f, 0.4f, 0.5f}, {0.6f, 0.0f, 0.8f}};
    const auto same = [](const Ray& a, const Ray& b) {
        const auto bits = [](const float3s& v) { return std::vector<float>{v.x, v.y, v.z}; };
        return std::memcmp(bits(a.origin).data(), bits(b.origin).data(), 12) == 0 &&
               std::memcmp(bits(a.dir).data(), bits(b.dir).data(), 12) == 0 &&
               std::memcmp(bits(a.viewDir).data(), bits(b.viewDir).data(), 12) == 0 &&
               std::memcmp(bits(a.inv).data(), bits(b.inv).data(), 12) == 0 &&
               std::memcmp(bits(a.exitBias).data(), bits(b.exitBias).data(), 12) == 0 &&
               std::memcmp(bits(a.cutNormal).data(), bits(b.cutNormal).data(), 12) == 0 &&
               std::memcmp(&a.tEntry, &b.tEntry, 4) == 0 && std::memcmp(&a.tExit, &b.tExit, 4) == 0 &&
               std::memcmp(&a.unitT, &b.unitT, 4) == 0 && a.cutEntry == b.cutEntry;
    };
    int compared = 0, clamped = 0;
    for (const Camera& cam : cameras)
        for (const float* T : {scaled, turned}) {
            const RayFrame frame = MakeRayFrame(cam);
            for (int y = 0; y < cam.height; ++y)
                for (int x = 0; x < cam.width; x += 4) {
                    Ray four[4], cutFour[4];
                    const int valid = SetUpRays4(cam, frame, T, x, y, DefaultRangeFunction{}, four);
                    const int cutValid = SetUpRays4(cam, frame, T, x, y, cut, cutFour);
                    for (int k = 0; k < 4; ++k) {
                        Ray one, cutOne;
                        ASSERT_EQ(SetUpRay(cam, frame, T, x + k, y, DefaultRangeFunction{}, one),
                                  ((valid >> k) & 1) != 0);
                        ASSERT_EQ(SetUpRay(cam, frame, T, x + k, y, cut, cutOne), ((cutValid >> k) & 1) != 0);
                        ASSERT_TRUE(same(one, four[k])) << x + k << ", " << y;
                        ASSERT_TRUE(same(cutOne, cutFour[k])) << x + k << ", " << y;
                        clamped += std::fabs(one.dir.x) <= 1e-6f || std::fabs(one.dir.z) <= 1e-6f;
                        ++compared;
                    }
                }
        }
    EXPECT_GT(compared, 4000);
    EXPECT_GT(clamped, 0);
}

} // namespace
