#include "tests/render/gl/GLTestContext.h"

#include "mesh/IndexedMesh.h"
#include "platform/DeviceBuffer.h"
#include "render/CameraView.h"
#include "render/OctreeCamera.h"
#include "render/RenderViewManager.h"
#include "render/effects/DefaultEffects.h"
#include "render/objects/SceneMesh.h"
#include "render/objects/SceneVoxelOctree.h"
#include "render/scene/Scene.h"
#include "render/views/CudaRenderView.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelOctree.h"

#include <cmath>
#include <vector>

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;

void Aim(TezCameraView& camera)
{
    camera.UsePerspective(true);
    camera.SetEye({0.5f, 0.5f, 3.0f});
    camera.SetFocus({0.5f, 0.5f, 0.5f});
    camera.SetUp({0, 1, 0});
    camera.SetFov(30.0f);
    camera.SetNear(1.0f);
    camera.SetFar(5.0f);
}

// The window depth GL gives the world point p under the camera, and its pixel.
double GLWindowDepth(TezCameraView const& camera, TezVector3<float> p)
{
    TezVector4<float> const clip =
        camera.GetProjectionMatrix() * (camera.GetViewMatrix() * TezVector4<float>(p.x, p.y, p.z, 1.0f));
    return 0.5 * double(clip.z / clip.w) + 0.5;
}

// The point of the plane z = planeZ seen at the corner of pixel (x, y): the
// GL matrices unprojected along the pixel's line of sight.
TezVector3<float> PointOnPlane(TezCameraView const& camera, int x, int y, float planeZ)
{
    TezMatrix44<float> const inverse = (camera.GetProjectionMatrix() * camera.GetViewMatrix()).Inverse();
    float const ndcX = 2.0f * float(x) / float(camera.GetWidth()) - 1.0f;
    float const ndcY = 2.0f * float(y) / float(camera.GetHeight()) - 1.0f;
    auto unproject = [&](float z) {
        TezVector4<float> const h = inverse * TezVector4<float>(ndcX, ndcY, z, 1.0f);
        return TezVector3<float>(h.x / h.w, h.y / h.w, h.z / h.w);
    };
    TezVector3<float> const a = unproject(-0.5f), b = unproject(0.5f);
    float const t = (planeZ - a.z) / (b.z - a.z);
    return a + (b - a) * t;
}

} // namespace

// The ray caster's depth words and GL's depth buffer must agree, or cast
// voxels and GL geometry would sort wrongly where they meet.
TEST(CudaRenderViewDepth, DepthWordIsGLWindowDepthOnAKnownPlane)
{
    for (bool perspective : {true, false}) {
        TezRef<TezCameraView> camera = TezCameraView::Create();
        camera->Resize(kWidth, kHeight);
        Aim(*camera);
        camera->UsePerspective(perspective);
        TezOctreeDevice::Camera const record = TezMakeOctreeCamera(*camera);
        TezVector3<float> const eye = camera->GetEye();
        for (float planeZ : {0.75f, 0.0f, -1.5f})
            for (auto [x, y] : {std::pair<int, int>{32, 24}, {48, 40}, {3, 5}}) {
                TezVector3<float> const p = PointOnPlane(*camera, x, y, planeZ);
                // The orthographic rays are parallel: distance runs along the view.
                float const distance = perspective ? (p - eye).Length() : eye.z - planeZ;
                double const gl = GLWindowDepth(*camera, p) * 16777216.0;
                EXPECT_NEAR(double(TezOctreeDepthWord(record, x, y, distance)), gl, 16777216.0 * 2e-6)
                    << (perspective ? "perspective" : "orthographic") << " z " << planeZ << " pixel " << x << ", " << y;
            }
    }
}

// A 32^3 volume holding an opaque cube over [0.25, 0.75]^3 of the unit cube,
// seen from +z, with GL quads just in front of and behind its front face.
class CudaRenderViewTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        if (IsSkipped())
            return;
        manager = TezRenderViewManager::GetAppRenderViewManager();
        ASSERT_TRUE(manager);
        TezRef<TezRenderView> made = manager->CreateOffScreenCuda(kWidth, kHeight);
        ASSERT_TRUE(made);
        view = TezRef<TezCudaRenderView>(dynamic_cast<TezCudaRenderView*>(made.Get()));
        ASSERT_TRUE(view);
        view->SetBackgroundColor({0, 0, 0, 1});
        Aim(*view->GetCamera());
        scene = view->GetScene();

        int const n = 32;
        std::vector<uint8_t> voxels(size_t(n) * n * n, 0);
        for (int z = 8; z < 24; ++z)
            for (int y = 8; y < 24; ++y)
                for (int x = 8; x < 24; ++x)
                    voxels[(size_t(z) * n + y) * n + x] = 200;
        TezRef<TezVoxelOctree> octree =
            TezVoxelOctree::CreateFromVolumeData("cube", TezMemoryVolume::Create8(n, n, n, voxels), 1.0 / n, 8, 64);
        ASSERT_TRUE(octree);
        volume = TezSceneVoxelOctree::Create(octree);
        volume->SetColor({1, 1, 1, 1});
        volume->SetTransferFunction({{0, 0}, {0.3f, 0}, {0.32f, 1}, {1, 1}});
        scene->AddChild(scene->GetRoot(), volume);
    }

    void TearDown() override
    {
        if (view) {
            view->ActivateContext();
            volume = nullptr;
            scene = nullptr;
            view->SetScene(nullptr);
            view->DeactivateContext();
            manager->ReleaseRenderView(view);
        }
        view = nullptr;
        manager = nullptr;
        GLTest::TearDown();
    }

    void AddQuad(TezVector3<float> centre, float half, TezVector4<float> color)
    {
        TezRef<TezSceneMesh> quad =
            TezSceneMesh::Create(TezIndexedMesh::CreateQuad(half, half), TezDefaultUnlitEffect::StaticType());
        quad->SetColor(color);
        quad->SetTransform(TezTranslationTransform<float>(centre));
        scene->AddChild(scene->GetRoot(), quad);
    }

    TezVector2<int> PixelOf(TezVector3<float> p) const
    {
        TezVector3<float> const pixel = view->GetCamera()->PixelFromPoint(p);
        return {static_cast<int>(pixel.x), static_cast<int>(pixel.y)};
    }

    std::vector<int> ColorAt(TezVector2<int> pixel)
    {
        view->ActivateContext();
        std::vector<unsigned char> const rgba = ReadPixel(pixel.x, pixel.y);
        view->DeactivateContext();
        return {rgba[0], rgba[1], rgba[2]};
    }

    // The ray caster's own colour of a pixel, from the view's image buffer
    // (host or device memory).
    std::vector<int> CastAt(TezVector2<int> pixel) const
    {
        TezOctreeRenderTarget const& t = view->GetRenderTarget();
        uint8_t p[4] = {0, 0, 0, 0};
        EXPECT_EQ(0, TezCopyRowsToHost(view->IsOnDevice(), p,
                                       t.image + size_t(pixel.y) * t.imagePitch + size_t(pixel.x) * 4, t.imagePitch, 4,
                                       1));
        return {p[0], p[1], p[2]};
    }

    uint32_t DepthAt(TezVector2<int> pixel) const
    {
        TezOctreeRenderTarget const& t = view->GetRenderTarget();
        uint32_t word = 0;
        EXPECT_EQ(0, TezCopyRowsToHost(view->IsOnDevice(), &word,
                                       reinterpret_cast<uint8_t const*>(t.depth) + size_t(pixel.y) * t.depthPitch +
                                           size_t(pixel.x) * 4,
                                       t.depthPitch, 4, 1));
        return word;
    }

    TezRef<TezRenderViewManager> manager;
    TezRef<TezCudaRenderView> view;
    TezRef<TezScene> scene;
    TezRef<TezSceneVoxelOctree> volume;
};

TEST_F(CudaRenderViewTest, ViewHasBuffersTexturesAndOptions)
{
    EXPECT_EQ(TezOctreeKernelsHaveDevice(), view->IsOnDevice()) << "device buffers exactly where a GPU is in use";
    TezOctreeRenderTarget const& t = view->GetRenderTarget();
    EXPECT_EQ(kWidth, t.width);
    EXPECT_EQ(kHeight, t.height);
    EXPECT_EQ(2u, view->GetNumAccumHits());
    EXPECT_EQ(2, t.layerCount);
    EXPECT_NE(0u, view->GetImageTexture());
    EXPECT_NE(0u, view->GetDepthTexture());
    EXPECT_EQ(1, view->GetSobelKernelHalfSizeInt());
    EXPECT_EQ(0, view->GetSobelTypeInt());
    view->SetSobelFilterSize(TezCudaRenderView::Sobel7x7);
    EXPECT_EQ(3, view->GetSobelKernelHalfSizeInt());

    view->SetNumAccumHits(4);
    EXPECT_EQ(4, view->GetRenderTarget().layerCount);
    EXPECT_TRUE(view->Resize(80, 60));
    EXPECT_EQ(80, view->GetRenderTarget().width);
    EXPECT_EQ(60, view->GetRenderTarget().height);
    EXPECT_EQ(4, view->GetRenderTarget().layerCount);
    EXPECT_TRUE(view->Paint());
}

// Solid and layered octrees alike: the cast pixels land where the cube is and
// sort against GL geometry by depth, and pixels no ray hit leave GL alone.
TEST_F(CudaRenderViewTest, CastVolumeAndGLGeometryHideEachOtherByDepth)
{
    // Red in front of the cube's left part, green behind its right part and
    // reaching out beyond it (the cube's front face is z = 0.75; the ray
    // caster's surface lies within a voxel, 1/32, behind it).
    AddQuad({0.35f, 0.5f, 0.80f}, 0.1f, {1, 0, 0, 1});
    AddQuad({0.75f, 0.5f, 0.65f}, 0.2f, {0, 1, 0, 1});
    TezVector2<int> const red = PixelOf({0.35f, 0.5f, 0.8f});
    TezVector2<int> const cube = PixelOf({0.62f, 0.5f, 0.75f});
    TezVector2<int> const green = PixelOf({0.9f, 0.5f, 0.65f});
    TezVector2<int> const below = PixelOf({0.5f, 0.1f, 0.75f});

    // Solid after layered too: layers left from a frame must not show.
    for (bool transparent : {false, true, false}) {
        SCOPED_TRACE(transparent ? "layered octree" : "solid octree");
        volume->SetProperty(TezSceneObject::Transparent, transparent);
        ASSERT_TRUE(view->Paint());
        std::vector<int> const cast = CastAt(cube);
        EXPECT_GT(cast[0] + cast[1] + cast[2], 60) << "the cube is lit";
        EXPECT_EQ(cast, ColorAt(cube)) << "the cube hides the green quad behind it";
        EXPECT_EQ((std::vector<int>{255, 0, 0}), ColorAt(red)) << "the red quad hides the cube";
        EXPECT_EQ((std::vector<int>{0, 255, 0}), ColorAt(green)) << "no ray hit: GL untouched";
        EXPECT_EQ((std::vector<int>{0, 0, 0}), ColorAt(below));
    }

    // A scene without the octree: the merge posts nothing.
    volume->SetProperty(TezSceneObject::Visible, false);
    ASSERT_TRUE(view->Paint());
    EXPECT_EQ((std::vector<int>{0, 255, 0}), ColorAt(cube));
}
