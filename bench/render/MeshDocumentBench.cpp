// A mesh of two million triangles (a finely divided sphere) as the document
// holds it: saved to and opened from an archive as a TezDocIndexedMesh, and
// its first frame (buffers made, programs built, drawn) into a 1024x768
// frame buffer in each kind of mode, then the frames after it. Each frame
// ends with glFinish. On a machine without a GPU this is Mesa's llvmpipe.

#include "BenchGL.h"
#include "core/Archive.h"
#include "document/objects/DocIndexedMesh.h"
#include "mesh/IndexedMesh.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/gl/FrameBuffer.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/SceneIndexedMesh.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"

#include <benchmark/benchmark.h>

#include <GL/glew.h>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

constexpr int kWidth = 1024;
constexpr int kHeight = 768;

TezBenchGL& Context() { return TezBenchContext(kWidth, kHeight); }

// 2 x 1000 x 1000 = 2,000,000 triangles on 1,001,000 vertices.
TezRef<TezIndexedMesh> TwoMillionTriangles()
{
    static TezRef<TezIndexedMesh> const mesh = TezIndexedMesh::CreateSphere(1000, 1000);
    return mesh;
}

std::string ArchivePath() { return "/tmp/tez-bench-mesh-document-" + std::to_string(getpid()) + ".arc"; }

void SaveDocument(TezRef<TezDocIndexedMesh> const& object, std::string const& path)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
    archive->WriteObjectRecord("object", 1, object->TypeName());
    object->Save(archive);
    archive->Flush();
}

void BM_MeshDocumentSave(benchmark::State& state)
{
    TezRef<TezIndexedMesh> mesh = TwoMillionTriangles();
    TezRef<TezDocIndexedMesh> object = TezDocIndexedMesh::Create(mesh);
    std::string const path = ArchivePath();
    for (auto _ : state)
        SaveDocument(object, path);
    state.SetItemsProcessed(state.iterations() * int64_t(mesh->GetNumTriangles()));
    state.SetBytesProcessed(state.iterations() * int64_t(mesh->GetNumVertices() * 24 + mesh->GetNumIndices() * 4));
    std::remove(path.c_str());
}
BENCHMARK(BM_MeshDocumentSave)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_MeshDocumentOpen(benchmark::State& state)
{
    TezRef<TezIndexedMesh> mesh = TwoMillionTriangles();
    std::string const path = ArchivePath();
    SaveDocument(TezDocIndexedMesh::Create(mesh), path);
    for (auto _ : state) {
        TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Read);
        archive->ReadTag();
        TezRef<TezDocumentObject> object(dynamic_cast<TezDocumentObject*>(archive->ReadObject().Get()));
        object->Load(archive);
        benchmark::DoNotOptimize(object.Get());
    }
    state.SetItemsProcessed(state.iterations() * int64_t(mesh->GetNumTriangles()));
    std::remove(path.c_str());
}
BENCHMARK(BM_MeshDocumentOpen)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// The two-million-triangle mesh seen whole.
struct Frame : TezBenchFrame
{
    Frame() : TezBenchFrame(kWidth, kHeight, 4.0f, 10.0f) {}
};

// From a document object just made to its first picture: the scene object
// joins a fresh scene (whose effect compiles on first use), its buffers go
// up (with the adjacency buffer's topology in wireframe), and it is drawn.
void BM_MeshDocumentFirstFrame(benchmark::State& state)
{
    TezBenchGL& gl = Context();
    if (!gl.ok) {
        state.SkipWithError(gl.reason.c_str());
        return;
    }
    TezRef<TezIndexedMesh> mesh = TwoMillionTriangles();
    int const mode = int(state.range(0));
    for (auto _ : state) {
        Frame frame;
        TezRef<TezDocIndexedMesh> object = TezDocIndexedMesh::Create(mesh);
        object->GetSceneObject()->SetMode(mode);
        frame.scene->AddChild(frame.scene->GetRoot(), object->GetSceneObject());
        frame.Draw();
        state.PauseTiming();
        frame.scene = nullptr; // buffers are released with the context current
        object = nullptr;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(mesh->GetNumTriangles()));
    state.SetLabel(mode == TezMeshModeSmooth ? "smooth" : mode == TezMeshModeFlat ? "flat" : "wireframe");
}
BENCHMARK(BM_MeshDocumentFirstFrame)
    ->Arg(TezMeshModeSmooth)
    ->Arg(TezMeshModeFlat)
    ->Arg(TezMeshModeWireframe)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);

// The frames after the first, nothing rebuilt.
void BM_MeshDocumentFrame(benchmark::State& state)
{
    TezBenchGL& gl = Context();
    if (!gl.ok) {
        state.SkipWithError(gl.reason.c_str());
        return;
    }
    TezRef<TezIndexedMesh> mesh = TwoMillionTriangles();
    int const mode = int(state.range(0));
    Frame frame;
    TezRef<TezDocIndexedMesh> object = TezDocIndexedMesh::Create(mesh);
    object->GetSceneObject()->SetMode(mode);
    frame.scene->AddChild(frame.scene->GetRoot(), object->GetSceneObject());
    frame.Draw();
    for (auto _ : state)
        frame.Draw();
    state.SetItemsProcessed(state.iterations() * int64_t(mesh->GetNumTriangles()));
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.SetLabel(TezOpenGLSupport::GetContextDescription().c_str());
    frame.scene = nullptr;
}
BENCHMARK(BM_MeshDocumentFrame)
    ->Arg(TezMeshModeSmooth)
    ->Arg(TezMeshModeFlat)
    ->Arg(TezMeshModeWireframe)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);

} // namespace
