// Marching cubes over a 256^3 CT-like phantom: the closed method on all
// threads and on one, the classic table, and VTK's flying edges on one
// thread. The counters say how many boundary edges each surface has.

#include "mesh/TopologyMesh.h"
#include "volume/CubeVolume.h"
#include "volume/VolumeTessellator.h"

#include <tbb/global_control.h>

#include "../volume/Phantom.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#if TEZ_PEER_BENCH && TEZ_PEER_VTK
#    include <vtkFlyingEdges3D.h>
#    include <vtkImageData.h>
#    include <vtkPointData.h>
#    include <vtkPolyData.h>
#    include <vtkSMPTools.h>
#    include <vtkSmartPointer.h>
#    include <vtkUnsignedCharArray.h>
#endif

namespace {

int const kSize = 256;
// Between air and lung (under 20) and fat (about 57): the skin and the lungs.
uint8_t const kIso = 40;

TezRef<TezCubeVolume> const& Phantom()
{
    static TezRef<TezCubeVolume> volume = [] {
        tezbench::PhantomShape shape;
        shape.nx = shape.ny = shape.nz = kSize;
        TezRef<TezCubeVolume> v = TezCubeVolume::Create();
        v->Resize(TezVector3<int>(kSize, kSize, kSize));
        for (int z = 0; z < kSize; ++z)
            tezbench::FillPhantomSlice(v->GetStack(z), z, shape, 20240611, true);
        return v;
    }();
    return volume;
}

// Edges of one triangle: the cracks of a surface that should be closed.
size_t BoundaryEdges(TezRef<TezIndexedMesh> mesh)
{
    TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(mesh, false);
    size_t edges = 0;
    for (size_t h = 0; h < topology->GetNumHoles(); ++h)
        edges += size_t(topology->GetHole(h)->GetNumEdges());
    return edges;
}

void Tessellate(benchmark::State& state, TezVolumeTessellator::Method method, int threads)
{
    TezRef<TezCubeVolume> const& volume = Phantom();
    TezVolumeTessellator& tessellator = TezVolumeTessellator::Instance();
    tessellator.SetIsoValue(kIso);
    tessellator.SetMethod(method);
    std::unique_ptr<tbb::global_control> limit;
    if (threads > 0)
        limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism, threads);
    TezRef<TezIndexedMesh> mesh;
    for (auto _ : state) {
        mesh = tessellator.Tessellate(volume);
        benchmark::DoNotOptimize(mesh.Get());
    }
    tessellator.SetIsoValue(128);
    tessellator.SetMethod(TezVolumeTessellator::Method::Closed);
    state.counters["triangles"] = double(mesh->GetNumTriangles());
    state.counters["boundary edges"] = double(BoundaryEdges(mesh));
    state.SetItemsProcessed(int64_t(state.iterations()) * kSize * kSize * kSize);
}

void BM_MeshTessellatePhantom256(benchmark::State& state)
{
    Tessellate(state, TezVolumeTessellator::Method::Closed, 0);
}
BENCHMARK(BM_MeshTessellatePhantom256)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MeshTessellatePhantom256_OneThread(benchmark::State& state)
{
    Tessellate(state, TezVolumeTessellator::Method::Closed, 1);
}
BENCHMARK(BM_MeshTessellatePhantom256_OneThread)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MeshTessellatePhantom256_Classic(benchmark::State& state)
{
    Tessellate(state, TezVolumeTessellator::Method::Classic, 0);
}
BENCHMARK(BM_MeshTessellatePhantom256_Classic)->Unit(benchmark::kMillisecond)->UseRealTime();

#if TEZ_PEER_BENCH && TEZ_PEER_VTK
void BM_MeshTessellatePhantom256_VtkFlyingEdges(benchmark::State& state)
{
    TezRef<TezCubeVolume> const& volume = Phantom();
    vtkSMPTools::SetBackend("Sequential");
    vtkSMPTools::Initialize(1);
    auto image = vtkSmartPointer<vtkImageData>::New();
    image->SetDimensions(kSize, kSize, kSize);
    auto scalars = vtkSmartPointer<vtkUnsignedCharArray>::New();
    scalars->SetNumberOfTuples(vtkIdType(kSize) * kSize * kSize);
    std::memcpy(scalars->GetPointer(0), volume->GetData(), size_t(kSize) * kSize * kSize);
    image->GetPointData()->SetScalars(scalars);
    vtkIdType triangles = 0;
    for (auto _ : state) {
        auto edges = vtkSmartPointer<vtkFlyingEdges3D>::New();
        edges->SetInputData(image);
        edges->SetValue(0, kIso - 0.5);
        edges->ComputeNormalsOn(); // like the kernel, which always makes normals
        edges->Update();
        triangles = edges->GetOutput()->GetNumberOfCells();
        benchmark::DoNotOptimize(triangles);
    }
    state.counters["triangles"] = double(triangles);
    state.SetItemsProcessed(int64_t(state.iterations()) * kSize * kSize * kSize);
}
BENCHMARK(BM_MeshTessellatePhantom256_VtkFlyingEdges)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

} // namespace
