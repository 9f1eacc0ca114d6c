// Drawing through the scene graph: one lit mesh of a million triangles (a
// finely divided sphere) into a 1024x768 frame buffer, off-screen, frame by
// frame with glFinish, so the time is the whole frame's. On a machine without
// a GPU this is Mesa's llvmpipe. Built with the peers, VTK draws the same
// triangles off-screen in the same run (bench/render/VtkDrawPeer.cpp).

#include "BenchGL.h"
#include "mesh/IndexedMesh.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/effects/DefaultEffects.h"
#include "render/gl/FrameBuffer.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/SceneMesh.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"

#include <benchmark/benchmark.h>

#include <GL/glew.h>

#include <string>

namespace {

constexpr int kWidth = 1024;
constexpr int kHeight = 768;

TezBenchGL& Context() { return TezBenchContext(kWidth, kHeight); }

// 2 x 500 x 1000 = 1,000,000 triangles.
TezRef<TezIndexedMesh> MillionTriangleSphere()
{
    static TezRef<TezIndexedMesh> const mesh = TezIndexedMesh::CreateSphere(500, 1000);
    return mesh;
}

void BM_DrawLitMillionTriangles(benchmark::State& state)
{
    TezBenchGL& gl = Context();
    if (!gl.ok) {
        state.SkipWithError(gl.reason.c_str());
        return;
    }
    TezRef<TezIndexedMesh> mesh = MillionTriangleSphere();
    TezBenchFrame frame(kWidth, kHeight, 4.0f, 10.0f);
    TezRef<TezSceneMesh> object = TezSceneMesh::Create(mesh, TezDefaultEffect::StaticType());
    object->SetColor(TezVector4<float>(0.8f, 0.5f, 0.3f, 1.0f));
    frame.scene->AddChild(frame.scene->GetRoot(), object);
    frame.Draw(); // the upload and the program build are not part of a frame
    for (auto _ : state)
        frame.Draw();
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(mesh->GetNumTriangles()));
    state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.SetLabel(TezOpenGLSupport::GetContextDescription().c_str());
}
BENCHMARK(BM_DrawLitMillionTriangles)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

} // namespace
