#include "tests/render/gl/GLTestContext.h"

#include "core/Events.h"
#include "core/Threads.h"
#include "mesh/IndexedMesh.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/effects/DefaultEffects.h"
#include "render/objects/SceneMesh.h"
#include "render/scene/Scene.h"
#include "render/views/ImageExport.h"
#include "render/views/RenderView.h"
#include "volume/Image.h"

#include <GL/glew.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

namespace {

// Counts the paints made on the thread that built it apart from the others.
class CountingView : public TezRenderView
{
public:
    static TezRef<CountingView> Create() { return TezRef<CountingView>(new CountingView()); }
    bool Paint() override
    {
        if (std::this_thread::get_id() == m_owner)
            ++ownPaints;
        else
            ++otherPaints;
        return TezRenderView::Paint();
    }
    std::atomic<int> ownPaints{0};
    std::atomic<int> otherPaints{0};

private:
    std::thread::id m_owner = std::this_thread::get_id();
};

// Three flat quads facing the eye on +z: A opaque red in front, B half
// transparent green behind it and to the right, C blue, overlay, behind A.
class RenderViewTest : public GLTest
{
protected:
    static constexpr int kWidth = 64;
    static constexpr int kHeight = 48;

    void SetUp() override
    {
        GLTest::SetUp();
        if (IsSkipped())
            return;
        manager = TezRenderViewManager::GetAppRenderViewManager();
        ASSERT_TRUE(manager);
        view = manager->CreateOffScreenCuda(kWidth, kHeight);
        ASSERT_TRUE(view);
        scene = view->GetScene();
        view->SetBackgroundColor({0, 0, 0, 1});
        Aim(view->GetCamera());
    }

    void TearDown() override
    {
        if (view) {
            // GL objects go while the context is bound.
            view->ActivateContext();
            a = b = c = nullptr;
            scene = nullptr;
            view->SetScene(nullptr);
            view->DeactivateContext();
        }
        view = nullptr;
        manager = nullptr;
        GLTest::TearDown();
    }

    static void Aim(TezRef<TezCameraView> camera)
    {
        camera->UsePerspective(true);
        camera->SetEye({0, 0, 10});
        camera->SetFocus({0, 0, 0});
        camera->SetUp({0, 1, 0});
        camera->SetFov(30.0f);
        camera->SetNear(5.0f);
        camera->SetFar(15.0f);
    }

    TezRef<TezSceneMesh> AddQuad(TezVector3<float> centre, float half, TezVector4<float> color)
    {
        TezRef<TezSceneMesh> quad =
            TezSceneMesh::Create(TezIndexedMesh::CreateQuad(half, half), TezDefaultUnlitEffect::StaticType());
        quad->SetColor(color);
        quad->SetTransform(TezTranslationTransform<float>(centre));
        quad->SetProperty(TezSceneObject::Mappable, true);
        scene->AddChild(scene->GetRoot(), quad);
        return quad;
    }

    void BuildThreeQuads()
    {
        a = AddQuad({-0.5f, 0, 1}, 1.0f, {1, 0, 0, 1});
        b = AddQuad({0.5f, 0, 0}, 1.0f, {0, 1, 0, 0.5f});
        b->SetProperty(TezSceneObject::Transparent, true);
        c = AddQuad({-1.0f, 0.8f, -1}, 0.5f, {0, 0, 1, 1});
        c->SetProperty(TezSceneObject::Overlay, true);
    }

    // The pixel of a world point, y counting up from the bottom.
    TezVector2<int> PixelOf(TezVector3<float> p) const
    {
        TezVector3<float> const pixel = view->GetCamera()->PixelFromPoint(p);
        return {static_cast<int>(pixel.x), static_cast<int>(pixel.y)};
    }

    TezVector4<int> ColorAt(TezVector2<int> pixel)
    {
        view->ActivateContext();
        std::vector<unsigned char> const rgba = ReadPixel(pixel.x, pixel.y);
        view->DeactivateContext();
        return {rgba[0], rgba[1], rgba[2], rgba[3]};
    }

    static void ExpectColor(TezVector4<int> expected, TezVector4<int> actual, int tolerance, char const* where)
    {
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(expected[i], actual[i], tolerance)
                << where << ": (" << actual.x << ", " << actual.y << ", " << actual.z << ")";
    }

    TezRef<TezRenderViewManager> manager;
    TezRef<TezRenderView> view;
    TezRef<TezScene> scene;
    TezRef<TezSceneMesh> a, b, c;

    // Points inside each region: A alone, A in front of B, B alone, A in
    // front of C, and nothing.
    TezVector3<float> const onlyA{-1.25f, -0.5f, 1};
    TezVector3<float> const aOverB{0.0f, -0.5f, 1};
    TezVector3<float> const onlyB{1.25f, -0.5f, 0};
    TezVector3<float> const aOverC{-1.0f, 0.65f, 1};
    TezVector3<float> const nothing{0.0f, -2.0f, 0};
};

TEST_F(RenderViewTest, OffScreenViewHasItsSizeAndAListedPlace)
{
    EXPECT_EQ(kWidth, view->GetCamera()->GetWidth());
    EXPECT_EQ(kHeight, view->GetCamera()->GetHeight());
    int width = 0, height = 0;
    ASSERT_TRUE(TezGLPlatform::GetWindowSize(view->GetHWnd(), width, height));
    EXPECT_EQ(kWidth, width);
    EXPECT_EQ(kHeight, height);
    EXPECT_TRUE(view->IsInitialized());
    EXPECT_EQ(m_app->GetRenderContext(), view->GetRenderContext());

    std::vector<TezRef<TezRenderView>> list = manager->GetRenderViewList();
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ(view, list[0]);
    TezRef<TezRenderView> second = manager->Create();
    TezRef<TezRenderView> third = manager->CreateCuda();
    manager->ReleaseRenderView(second);
    list = manager->GetRenderViewList();
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(view, list[0]);
    EXPECT_EQ(third, list[1]);
    manager->ReleaseRenderView(second); // not listed: nothing happens
    EXPECT_EQ(2u, manager->GetRenderViewList().size());
    EXPECT_FALSE(manager->CreateOffScreenCuda(0, 10));
}

TEST_F(RenderViewTest, TransparentPassBlendsWithoutDepthAndOverlayShowsThrough)
{
    BuildThreeQuads();
    EXPECT_TRUE(view->Paint());
    ExpectColor({255, 0, 0, 255}, ColorAt(PixelOf(onlyA)), 1, "A alone");
    // B is behind A, yet blended over it: the depth test is off.
    ExpectColor({128, 127, 0, 255}, ColorAt(PixelOf(aOverB)), 2, "B blended over A");
    // B over its own plain-pass self looks as it is.
    ExpectColor({0, 255, 0, 255}, ColorAt(PixelOf(onlyB)), 1, "B alone");
    // C lies behind A but draws again over a cleared depth buffer.
    ExpectColor({0, 0, 255, 255}, ColorAt(PixelOf(aOverC)), 1, "C over A");
    ExpectColor({0, 0, 0, 255}, ColorAt(PixelOf(nothing)), 1, "background");

    // A hidden object takes part in no pass.
    c->SetProperty(TezSceneObject::Visible, false);
    view->Paint();
    ExpectColor({255, 0, 0, 255}, ColorAt(PixelOf(aOverC)), 1, "A without C");
}

TEST_F(RenderViewTest, PicksReadIdsOfTheIdentityMap)
{
    BuildThreeQuads();
    // Picks read what the last draw left: after a plain paint, colours.
    view->Paint();
    EXPECT_NE(a->Id(), view->Pick(PixelOf(onlyA)));

    ASSERT_TRUE(view->Map());
    EXPECT_EQ(a->Id(), view->Pick(PixelOf(onlyA)));
    EXPECT_EQ(a->Id(), view->Pick(PixelOf(aOverB)));
    EXPECT_EQ(b->Id(), view->Pick(PixelOf(onlyB)));
    EXPECT_EQ(c->Id(), view->Pick(PixelOf(aOverC)));
    EXPECT_EQ(0u, view->Pick(PixelOf(nothing)));

    // A block: one entry per covered pixel, in pixel order.
    TezVector2<int> const centre = PixelOf(onlyB);
    std::vector<unsigned long> const block = view->Pick(centre - TezVector2<int>(1, 1), centre + TezVector2<int>(1, 1));
    EXPECT_EQ(std::vector<unsigned long>(9, b->Id()), block);
    // A block across the edge of A: A and nothing else, and fewer entries
    // than pixels.
    TezVector2<int> const left = PixelOf({-1.5f, -0.5f, 1});
    std::vector<unsigned long> const edge = view->Pick(left - TezVector2<int>(3, 0), left + TezVector2<int>(3, 0));
    EXPECT_EQ(std::set<unsigned long>{a->Id()}, std::set<unsigned long>(edge.begin(), edge.end()));
    EXPECT_LT(edge.size(), 7u);
    EXPECT_GT(edge.size(), 0u);

    TezVector2<int> const empty = PixelOf(nothing);
    EXPECT_TRUE(view->Pick(empty, empty + TezVector2<int>(2, 2)).empty());
    EXPECT_TRUE(view->Pick(empty, empty - TezVector2<int>(1, 0)).empty()); // width 0

    // Objects that are not mappable are not in the map.
    a->SetProperty(TezSceneObject::Mappable, false);
    view->Map();
    EXPECT_EQ(0u, view->Pick(PixelOf(onlyA)));
    EXPECT_EQ(b->Id(), view->Pick(PixelOf(aOverB)));
}

TEST_F(RenderViewTest, ResetsGiveUpTheDeviceContextAndTakeItAgain)
{
    BuildThreeQuads();
    EXPECT_TRUE(manager->PreReset());
    EXPECT_TRUE(manager->PostReset());
    EXPECT_TRUE(view->Paint());
    ExpectColor({255, 0, 0, 255}, ColorAt(PixelOf(onlyA)), 1, "after a reset");
}

TEST_F(RenderViewTest, ViewWithoutSceneClearsAndMapsNothing)
{
    view->SetScene(nullptr);
    view->SetBackgroundColor({0, 0, 1, 1});
    EXPECT_TRUE(view->PaintLo());
    EXPECT_TRUE(view->Paint());
    ExpectColor({0, 0, 255, 255}, ColorAt({10, 10}), 1, "cleared");
    EXPECT_TRUE(view->Map());
    EXPECT_EQ(0u, view->Pick({10, 10}));
    EXPECT_TRUE(view->Pick({0, 0}, {kWidth - 1, kHeight - 1}).empty());
    EXPECT_TRUE(view->GetBounds(true).Empty());
}

TEST_F(RenderViewTest, ExportImageTurnsAnOddHeightUpsideDownAroundItsMiddleRow)
{
    int const height = kHeight - 1;
    view->Resize(kWidth, height);
    BuildThreeQuads();
    int const stride = kWidth * 3 + 5;
    std::vector<unsigned char> buffer(static_cast<size_t>(stride) * height, 0xAB);
    EXPECT_TRUE(view->ExportImage(buffer.data(), stride));

    // The frame as GL holds it, bottom row first.
    view->ActivateContext();
    std::vector<unsigned char> frame(static_cast<size_t>(kWidth) * 3 * height);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, kWidth, height, GL_BGR, GL_UNSIGNED_BYTE, frame.data());
    view->DeactivateContext();
    for (int row = 0; row < height; ++row) {
        unsigned char const* exported = buffer.data() + static_cast<size_t>(row) * stride;
        unsigned char const* gl = frame.data() + static_cast<size_t>(height - 1 - row) * kWidth * 3;
        ASSERT_TRUE(std::equal(gl, gl + kWidth * 3, exported)) << "row " << row;
    }
    // Blue, green, red: A's red is the third byte.
    TezVector2<int> const pixel = PixelOf(onlyA);
    unsigned char const* red = buffer.data() + static_cast<size_t>(height - 1 - pixel.y) * stride + pixel.x * 3;
    EXPECT_EQ(0, red[0]);
    EXPECT_EQ(255, red[2]);

    EXPECT_THROW(view->ExportImage(buffer.data(), kWidth * 3 - 1), std::runtime_error);
    EXPECT_THROW(view->ExportImage(nullptr, stride), std::runtime_error);
}

TEST_F(RenderViewTest, ExportImageToFileWritesTheFormatOfTheExtension)
{
    BuildThreeQuads();
    std::filesystem::path const folder =
        std::filesystem::temp_directory_path() / ("tez_export_" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    struct Case
    {
        char const* name;
        int tolerance; // JPEG is lossy
    };
    for (Case const& each : {Case{"f.bmp", 0}, Case{"f.PNG", 0}, Case{"f.tif", 0}, Case{"f.tiff", 0}, Case{"f.jpg", 40},
                             Case{"f", 40}, Case{"f.xyz", 40}}) {
        std::string const path = (folder / each.name).string();
        EXPECT_TRUE(view->ExportImageToFile(TezString(path.c_str())));
        TezImage image;
        ASSERT_TRUE(image.Load(path.c_str())) << path;
        EXPECT_EQ(kWidth, image.GetWidth()) << path;
        EXPECT_EQ(kHeight, image.GetHeight()) << path;
        std::vector<uint8_t> rgb(static_cast<size_t>(kWidth) * kHeight * 3);
        ASSERT_TRUE(image.ReadPixels(rgb.data(), 3, kWidth * 3, false)) << path;
        TezVector2<int> const p = PixelOf(onlyA);
        uint8_t const* at = rgb.data() + (static_cast<size_t>(p.y) * kWidth + p.x) * 3;
        ExpectColor({255, 0, 0, 255}, {at[0], at[1], at[2], 255}, each.tolerance, each.name);
    }
    for (char const* name : {"f.exif", "f.EMF"}) {
        std::string const path = (folder / name).string();
        EXPECT_TRUE(view->ExportImageToFile(TezString(path.c_str())));
        EXPECT_FALSE(std::filesystem::exists(path)) << path;
    }
    std::filesystem::remove_all(folder);
}

TEST(ImageExport, EncoderFollowsTheExtension)
{
    struct Row
    {
        char const* name;
        char const* mime;
    };
    for (Row const& row : {Row{"a.bmp", "image/bmp"}, Row{"a.b.Png", "image/png"}, Row{"x.EXIF", "image/exif"},
                           Row{"x.emf", "image/emf"}, Row{"x.tif", "image/tiff"}, Row{"x.TIFF", "image/tiff"},
                           Row{"x.jpg", "image/jpeg"}, Row{"noext", "image/jpeg"}, Row{"x.gif", "image/jpeg"},
                           Row{"dir.v2/x", "image/jpeg"}})
        EXPECT_STREQ(row.mime, TezImageExport::GetEncoderMimeType(TezString(row.name)).c_str()) << row.name;
    EXPECT_EQ(-1, TezImageExport::GetEncoderFormat(TezString("image/exif")));
    EXPECT_EQ(-1, TezImageExport::GetEncoderFormat(TezString("image/emf")));
    unsigned char pixel[3] = {0, 0, 0};
    EXPECT_THROW(TezImageExport::SaveBitmap(TezString("x.png"), pixel, 2, 1, 3), std::runtime_error);
    EXPECT_THROW(TezImageExport::SaveBitmap(TezString("x.png"), nullptr, 1, 1, 3), std::runtime_error);
}

TEST_F(RenderViewTest, StandardViewsAndZoomAllFrameTheSceneOrOneObject)
{
    BuildThreeQuads();
    TezBox3<float> const bounds = view->GetBounds(false);
    EXPECT_FALSE(bounds.Empty());
    TezVector3<float> eye, focus, up;
    view->CalcZoomAll({0, 0, 1}, {0, 0, 0}, {0, 1, 0}, 30.0f, eye, focus);
    EXPECT_NEAR(bounds.Middle().x, focus.x, 1e-5f);
    EXPECT_NEAR(bounds.Middle().y, focus.y, 1e-5f);
    EXPECT_GT(eye.z, bounds.GetMaximum().z);

    view->CalcZoomAllOfObject(TezRef<TezSceneObject>(c), {0, 0, 1}, {0, 0, 0}, {0, 1, 0}, 30.0f, eye, focus);
    EXPECT_NEAR(-1.0f, focus.x, 1e-5f);
    EXPECT_NEAR(0.8f, focus.y, 1e-5f);

    view->CalcStandardView(TezCameraView::Front, 30.0f, eye, focus, up);
    EXPECT_NEAR(bounds.Middle().x, focus.x, 1e-5f);
    EXPECT_THROW(view->CalcStandardView(8, 30.0f, eye, focus, up), std::runtime_error);
    EXPECT_THROW(view->CalcZoomAllOfObject(nullptr, {0, 0, 1}, {0, 0, 0}, {0, 1, 0}, 30.0f, eye, focus),
                 std::runtime_error);
}

TEST_F(RenderViewTest, RedrawRequestsPaintAtOnceUnlessSuspended)
{
    TezRef<CountingView> counting = CountingView::Create();
    manager->Add(TezRef<TezRenderView>(counting));
    HWND window = TezGLPlatform::CreateOffscreenWindow(16, 16);
    ASSERT_TRUE(counting->Initialize(window, 16, 16));

    TezRequestRedraw();
    EXPECT_EQ(1, counting->ownPaints);
    TezSuspendRedraw();
    TezRequestRedraw();
    TezResumeRedraw();
    EXPECT_EQ(1, counting->ownPaints); // lost, not delayed
    TezRequestRedraw();
    EXPECT_EQ(2, counting->ownPaints);

    // The subscription goes with the view.
    manager->ReleaseRenderView(TezRef<TezRenderView>(counting));
    size_t const subscriptions = m_app->GetEventManager()->GetSubscriptionCount();
    counting = nullptr;
    EXPECT_EQ(subscriptions - 1, m_app->GetEventManager()->GetSubscriptionCount());
    TezGLPlatform::DestroyWindow(window);
}

// Waits up to ten seconds for a condition.
template <class Condition>
bool WaitFor(Condition condition)
{
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

TEST_F(RenderViewTest, RenderThreadPaintsWhileTheHostEditsUnderPause)
{
    TezRef<CountingView> counting = CountingView::Create();
    manager->Add(TezRef<TezRenderView>(counting));
    HWND window = TezGLPlatform::CreateOffscreenWindow(32, 32);
    ASSERT_TRUE(counting->Initialize(window, 32, 32));
    counting->SetScene(scene);
    Aim(counting->GetCamera());
    BuildThreeQuads();

    EXPECT_TRUE(manager->StopContinuousRender()); // no thread yet
    EXPECT_FALSE(manager->GetThread());
    // The context goes to the render thread for as long as it runs.
    TezGLPlatform::MakeCurrent(nullptr, nullptr);
    ASSERT_TRUE(manager->StartContinuousRender());
    EXPECT_TRUE(manager->StartContinuousRender());
    ASSERT_TRUE(manager->GetThread());
    EXPECT_STREQ("Render Thread", manager->GetThread()->GetName().c_str());
    EXPECT_TRUE(manager->IsContinuousRender());
    EXPECT_TRUE(counting->IsContinuousRender());
    ASSERT_TRUE(WaitFor([&] { return counting->otherPaints > 2; }));

    // Requests paint nothing while the thread paints anyway.
    TezRequestRedraw();
    EXPECT_EQ(0, counting->ownPaints);

    // scripts/tsan-render-thread.sh asks for more rounds.
    char const* asked = std::getenv("TEZ_RENDER_THREAD_ROUNDS");
    int const rounds = asked ? std::max(1, std::atoi(asked)) : 20;
    for (int round = 0; round < rounds; ++round) {
        EXPECT_TRUE(manager->PauseContinuousRender(true));
        EXPECT_FALSE(manager->IsContinuousRender());
        int const painted = counting->otherPaints;
        // Edits of the scene: new objects, removed ones, changed ones.
        TezRef<TezSceneMesh> extra = AddQuad({0.2f * (round % 5), -1.5f, 0.5f}, 0.3f, {1, 1, 0, 1});
        b->SetColor({0, 1, 0.01f * (round % 10), 0.5f});
        a->SetTransform(TezTranslationTransform<float>({-0.5f + 0.01f * (round % 10), 0, 1}));
        if (round % 2)
            scene->RemoveChild(TezRef<TezSceneObject>(extra));
        // Paused, a request paints on this thread.
        int const own = counting->ownPaints;
        TezRequestRedraw();
        EXPECT_EQ(own + 1, counting->ownPaints);
        EXPECT_EQ(painted, counting->otherPaints);
        EXPECT_TRUE(manager->PauseContinuousRender(false));
        ASSERT_TRUE(WaitFor([&] { return counting->otherPaints > painted; }));
    }

    // Stop twice, and again on a paused thread; start again after.
    EXPECT_TRUE(manager->StopContinuousRender());
    EXPECT_TRUE(manager->StopContinuousRender());
    EXPECT_FALSE(manager->IsContinuousRender());
    int const stopped = counting->otherPaints;
    ASSERT_TRUE(manager->StartContinuousRender());
    ASSERT_TRUE(WaitFor([&] { return counting->otherPaints > stopped; }));
    manager->PauseContinuousRender(true);
    manager->PauseContinuousRender(true);
    EXPECT_TRUE(manager->StopContinuousRender());
    EXPECT_FALSE(manager->GetThread()->IsThreadRunning());

    // The last frame of the render thread is in place: A is red.
    ExpectColor({255, 0, 0, 255}, ColorAt(PixelOf(onlyA)), 1, "after the render thread");
    manager->ReleaseRenderView(TezRef<TezRenderView>(counting));
    counting->ActivateContext();
    counting = nullptr;
    TezGLPlatform::DestroyWindow(window);
}

} // namespace
