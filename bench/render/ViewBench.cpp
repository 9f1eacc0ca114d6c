// Render views, off-screen at 1024x768: a frame of a scene of 1,000 small
// lit objects (Paint: the plain, transparent and overlay passes), the
// identity map and a pick on it (Map + Pick, what a click costs), and a
// frame of an empty view (the fixed cost of a frame: binding the context,
// clearing, three empty scene draws, the swap and the unbinding). Each frame
// ends with glFinish, so the time is the whole frame's. On a machine
// without a GPU this is Mesa's llvmpipe.

#include "BenchGL.h"
#include "core/Application.h"
#include "mesh/IndexedMesh.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/effects/DefaultEffects.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/SceneMesh.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"

#include <benchmark/benchmark.h>

#include <GL/glew.h>

#include <memory>
#include <string>

namespace {

constexpr int kWidth = 1024;
constexpr int kHeight = 768;
constexpr int kColumns = 40;
constexpr int kRows = 25;

// The application's context on a window of its own, and one off-screen view
// of 1024x768 with a grid of 40 x 25 spheres of 512 triangles each, all
// mappable, filling the view.
struct ViewBenchSetup
{
    bool ok = false;
    std::string reason;
    HWND window = nullptr;
    HGLRC context = nullptr;
    std::unique_ptr<TezBenchApplication> app;
    TezRef<TezRenderView> view;
    TezRef<TezSceneMesh> probe; // the object picked, and where
    TezVector2<int> probePixel{0, 0};
};

ViewBenchSetup& Setup()
{
    static ViewBenchSetup setup = [] {
        ViewBenchSetup s;
        TezBenchGL const gl = TezMakeBenchGL(16, 16);
        s.window = gl.window;
        s.context = gl.context;
        if (!gl.ok) {
            s.reason = gl.reason;
            return s;
        }
        TezGLPlatform::MakeCurrent(nullptr, nullptr);
        s.app = std::make_unique<TezBenchApplication>(s.context, s.window);
        s.view = TezRenderViewManager::GetAppRenderViewManager()->CreateOffScreenCuda(kWidth, kHeight);
        if (!s.view) {
            s.reason = "no off-screen view";
            return s;
        }
        TezRef<TezScene> scene = s.view->GetScene();
        TezRef<TezIndexedMesh> sphere = TezIndexedMesh::CreateSphere(16, 16);
        for (int row = 0; row < kRows; ++row) {
            for (int column = 0; column < kColumns; ++column) {
                TezRef<TezSceneMesh> object = TezSceneMesh::Create(sphere, TezDefaultEffect::StaticType());
                object->SetTransform(
                    TezTranslationTransform<float>({static_cast<float>(column) - kColumns * 0.5f + 0.5f,
                                                    static_cast<float>(row) - kRows * 0.5f + 0.5f, 0.0f}) *
                    TezScaleTransform<float>(0.45f));
                object->SetColor({0.3f + 0.6f * column / kColumns, 0.5f, 0.3f + 0.6f * row / kRows, 1.0f});
                object->SetProperty(TezSceneObject::Mappable, true);
                scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(object));
                if (row == kRows / 2 && column == kColumns / 3)
                    s.probe = object;
            }
        }
        TezRef<TezCameraView> camera = s.view->GetCamera();
        camera->UsePerspective(true);
        camera->SetFov(30.0f);
        camera->FrameBox(s.view->GetBounds(false), {0, 0, 1}, {0, 0, 0}, {0, 1, 0});
        TezVector3<float> const pixel = camera->PixelFromPoint(s.probe->GetBounds(false).Middle());
        s.probePixel = {static_cast<int>(pixel.x), static_cast<int>(pixel.y)};
        s.view->Paint(); // uploads and program builds are not part of a frame
        s.ok = true;
        return s;
    }();
    return setup;
}

void Finish(TezRenderView& view)
{
    view.ActivateContext();
    glFinish();
    view.DeactivateContext();
}

void BM_ViewPaint1000Objects(benchmark::State& state)
{
    ViewBenchSetup& s = Setup();
    if (!s.ok) {
        state.SkipWithError(s.reason.c_str());
        return;
    }
    for (auto _ : state) {
        s.view->Paint();
        Finish(*s.view);
    }
    state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    s.view->ActivateContext();
    state.SetLabel(TezOpenGLSupport::GetContextDescription().c_str());
    s.view->DeactivateContext();
}
BENCHMARK(BM_ViewPaint1000Objects)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_ViewMapPick1000Objects(benchmark::State& state)
{
    ViewBenchSetup& s = Setup();
    if (!s.ok) {
        state.SkipWithError(s.reason.c_str());
        return;
    }
    for (auto _ : state) {
        s.view->Map();
        unsigned long const id = s.view->Pick(s.probePixel);
        if (id != s.probe->Id()) {
            state.SkipWithError("the pick missed its object");
            return;
        }
    }
}
BENCHMARK(BM_ViewMapPick1000Objects)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_ViewPaintEmpty(benchmark::State& state)
{
    ViewBenchSetup& s = Setup();
    if (!s.ok) {
        state.SkipWithError(s.reason.c_str());
        return;
    }
    TezRef<TezScene> scene = s.view->GetScene();
    s.view->SetScene(TezScene::Create());
    for (auto _ : state) {
        s.view->Paint();
        Finish(*s.view);
    }
    s.view->SetScene(scene);
    state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ViewPaintEmpty)->Unit(benchmark::kMicrosecond)->UseRealTime()->MinTime(2.0);

} // namespace
