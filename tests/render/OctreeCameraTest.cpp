// The octree kernels seen through the camera: standard views and framing.

#include "render/OctreeCamera.h"
#include "../volume/OctreeTestTrees.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelOctree.h"
#include "volume/device/VoxelOctreeKernels.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace TezOctreeTestTrees;

TEST(OctreeKernel, StandardViewsDrawWhereTheCameraProjects)
{
    // One opaque cell at the +x, -y, -z corner of the unit cube. In every
    // standard view, framed by the camera, the cell's pixels centre on the
    // camera's projection of the cell's centre (rows count from the bottom
    // in both).
    TestTree tree = TwoLevelTree([](int ix, int iy, int iz) { return ix == 3 && iy == 0 && iz == 0 ? 200u : 0u; });
    const int w = 64, h = 48;
    const TezBox3<float> box(TezVector3<float>(0, 0, 0), TezVector3<float>(1, 1, 1));
    for (int view = 0; view < TezCameraView::StandardViewCount; ++view) {
        TezRef<TezCameraView> camera = TezCameraView::Create();
        camera->Resize(w, h);
        camera->UsePerspective(false);
        camera->FrameStandardView(box, view);
        const Camera cam = TezMakeOctreeCamera(*camera);
        const Picture p = RenderSolid(tree, 8, w, h, nullptr, Identity(), &cam);
        double sx = 0, sy = 0, n = 0;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (p.Pixel(x, y, w)[3] == 255)
                    sx += x + 0.5, sy += y + 0.5, ++n;
        ASSERT_GT(n, 4) << TezCameraView::GetStandardViewName(view);
        const TezVector3<float> expected = camera->PixelFromPoint(TezVector3<float>(0.875f, 0.125f, 0.125f));
        EXPECT_NEAR(sx / n, expected.x, 1.5) << TezCameraView::GetStandardViewName(view);
        EXPECT_NEAR(sy / n, expected.y, 1.5) << TezCameraView::GetStandardViewName(view);
    }
}

TEST(OctreeKernel, BuiltTreeDrawsTheSameAtAnyVoxelSize)
{
    // A thin rod along a tall stack: drawn through bricks at every scale,
    // in perspective, the same pixels light up and none touches the edge.
    const int W = 16, H = 16, D = 300;
    std::vector<uint8_t> voxels(size_t(W) * H * D, 10);
    for (int z = 0; z < D; ++z)
        for (int y = 5; y < 11; ++y)
            for (int x = 5; x < 11; ++x)
                voxels[(size_t(z) * H + y) * W + x] = 220;
    TezRef<TezMemoryVolume> volume = TezMemoryVolume::Create8(W, H, D, voxels);
    std::vector<float> table(256, 0.0f);
    for (int i = 100; i < 256; ++i)
        table[i] = 1.0f;
    const int w = 48, h = 64;
    std::vector<size_t> lit;
    for (double size : {0.001, 1.0, 13.0, 1000.0}) {
        TezRef<TezVoxelOctree> octree = TezVoxelOctree::CreateFromVolumeData(TezString("rod"), volume, size, 8, 64);
        ASSERT_TRUE(octree);
        TezRef<TezCameraView> camera = TezCameraView::Create();
        camera->Resize(w, h);
        camera->UsePerspective(true);
        camera->FrameStandardView(octree->GetBounds(), TezCameraView::Tilted);
        TezOctreeRenderBuffers buffers(w, h, 0, false);
        const float edge = float(octree->GetTreeSize()) * octree->GetVoxelSize();
        ASSERT_TRUE(TezRenderOctreeSolid(buffers.GetTarget(), TezMakeOctreeRenderSource(*octree),
                                         TezMakeOctreeCamera(*camera), TezScaleTransform<float>(edge), {1, 1, 1, 1},
                                         table.data()));
        const std::vector<uint8_t> image = buffers.ReadImage();
        size_t count = 0;
        int top = h, bottom = -1;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (image[(size_t(y) * w + x) * 4 + 3]) {
                    ++count;
                    top = std::min(top, y), bottom = std::max(bottom, y);
                }
        EXPECT_GT(top, 0) << size;
        EXPECT_LT(bottom, h - 1) << size;
        EXPECT_GT(bottom - top, h / 2) << size;
        lit.push_back(count);
    }
    for (size_t count : lit)
        EXPECT_NEAR(double(count), double(lit[1]), 0.03 * double(lit[1]));
}
