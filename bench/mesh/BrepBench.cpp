// B-reps: a 3DM model of 200 faces (boxes and tubes written by the Rhino
// bridge) read and meshed face by face. "bridge" is the share of the time
// spent in the bridge (Node.js and opennurbs, the pipe both ways); the rest
// is decoding, pulling the edges back onto the faces and meshing.
#include "mesh/brep/BrepRhino.h"
#include "mesh/brep/detail/RhinoBridge.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

namespace {

std::vector<uint8_t> const& Model()
{
    static std::vector<uint8_t> const bytes = TezBrepRhino::MakeSampleFile("many:200", 0);
    return bytes;
}

size_t MeshAll(TezRef<TezBrepRhino> const& brep)
{
    std::vector<TezRef<TezBrepFace>> faces;
    brep->MakeFaceList(faces);
    size_t triangles = 0;
    for (TezRef<TezBrepFace> const& face : faces) {
        TezBrepFaceMesh mesh;
        face->Tessellate(mesh);
        triangles += mesh.indices.size() / 3;
    }
    return triangles;
}

void BM_BrepReadAndTessellate(benchmark::State& state)
{
    std::vector<uint8_t> const& bytes = Model();
    double bridge = 0, total = 0;
    int64_t faces = 0;
    size_t triangles = 0;
    for (auto _ : state) {
        double const bridgeBefore = TezRhinoBridge::SecondsInBridge();
        auto const start = std::chrono::steady_clock::now();
        TezRef<TezBrepRhino> brep = TezBrepRhino::CreateFromBytes(bytes);
        if (!brep) {
            state.SkipWithError("the bridge cannot read the model");
            return;
        }
        triangles = MeshAll(brep);
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        bridge += TezRhinoBridge::SecondsInBridge() - bridgeBefore;
        faces += brep->GetNumFaces();
    }
    state.SetItemsProcessed(faces);
    state.counters["faces/s"] = benchmark::Counter(static_cast<double>(faces), benchmark::Counter::kIsRate);
    state.counters["bridge"] = total > 0 ? bridge / total : 0;
    state.counters["triangles"] = static_cast<double>(triangles);
}
BENCHMARK(BM_BrepReadAndTessellate)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_BrepTessellateOnly(benchmark::State& state)
{
    TezRef<TezBrepRhino> brep = TezBrepRhino::CreateFromBytes(Model());
    if (!brep) {
        state.SkipWithError("the bridge cannot read the model");
        return;
    }
    int64_t faces = 0;
    for (auto _ : state) {
        // A fresh copy each round: faces keep their trims once made.
        TezRef<TezBrep> copy = brep->Copy();
        benchmark::DoNotOptimize(MeshAll(TezRef<TezBrepRhino>(static_cast<TezBrepRhino*>(copy.Get()))));
        faces += brep->GetNumFaces();
    }
    state.SetItemsProcessed(faces);
    state.counters["faces/s"] = benchmark::Counter(static_cast<double>(faces), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_BrepTessellateOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
