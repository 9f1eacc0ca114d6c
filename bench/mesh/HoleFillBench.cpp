// Hole filling: a sphere with its cap cut off leaves one hole of n boundary
// edges (n = 100 ... 800), on a mesh as dense around the rim as the hole is
// long; the patch is refined to that density (about 60000 triangles for 800). The full fill (triangulation, refinement,
// relaxation, fairing) and the triangulation alone run against CGAL's triangulate_refine_and_fair_hole and its
// triangulate_hole with the Delaunay search space off (the exact cubic search), on the same mesh.
#include "core/Constants.h"
#include "mesh/HoleFilling.h"
#include "mesh/TopologyMesh.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#if TEZ_PEER_BENCH
#    define CGAL_EIGEN3_ENABLED 1
#    include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#    include <CGAL/Polygon_mesh_processing/triangulate_hole.h>
#    include <CGAL/Surface_mesh.h>
#    include <iterator>
#endif

namespace {

using Vec = TezVector3<float>;

// A unit sphere of n/2 stacks and n slices without its triangles above the
// ring nearest to 57 degrees north: one hole of exactly n edges along that ring.
TezRef<TezIndexedMesh> CappedSphere(int n)
{
    int const stacks = n / 2;
    int const rim = static_cast<int>(0.8167 * stacks + 0.5);
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    double const pi = TezPi;
    mesh->AddVertex(TezMeshVertex(Vec(0, 0, -1), Vec(0, 0, -1)));
    for (int s = 1; s < stacks; ++s) {
        double const lat = -pi / 2 + pi * s / stacks;
        for (int k = 0; k < n; ++k) {
            double const lon = 2 * pi * k / n;
            Vec const p(static_cast<float>(std::cos(lon) * std::cos(lat)),
                        static_cast<float>(std::sin(lon) * std::cos(lat)), static_cast<float>(std::sin(lat)));
            mesh->AddVertex(TezMeshVertex(p, p));
        }
    }
    std::vector<unsigned int>& indices = mesh->GetIndices();
    auto at = [n](int ring, int k) { return static_cast<unsigned int>(1 + (ring - 1) * n + (k % n)); };
    for (int k = 0; k < n; ++k)
        indices.insert(indices.end(), {0, at(1, k + 1), at(1, k)});
    for (int s = 1; s < rim; ++s)
        for (int k = 0; k < n; ++k)
            indices.insert(indices.end(),
                           {at(s, k), at(s, k + 1), at(s + 1, k + 1), at(s, k), at(s + 1, k + 1), at(s + 1, k)});
    return mesh;
}

void BM_Tez_FillHole(benchmark::State& state)
{
    int const n = static_cast<int>(state.range(0));
    TezRef<TezIndexedMesh> const source = CappedSphere(n);
    if (TezTopologyMesh::Create(source)->GetHole(0)->GetNumEdges() != n) {
        state.SkipWithError("the capped sphere's hole is not as long as asked");
        return;
    }
    size_t added = 0;
    for (auto _ : state) {
        state.PauseTiming();
        TezRef<TezIndexedMesh> mesh = source->Copy();
        TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(mesh);
        TezRef<TezTopologyHole> hole = topology->GetHole(0);
        state.ResumeTiming();
        bool const filled = topology->FillHole(hole);
        benchmark::DoNotOptimize(filled);
        state.PauseTiming();
        added = mesh->GetNumTriangles() - source->GetNumTriangles();
        topology = nullptr;
        mesh = nullptr;
        state.ResumeTiming();
    }
    state.counters["triangles"] = static_cast<double>(added);
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_Tez_FillHole)->Arg(100)->Arg(200)->Arg(400)->Arg(800)->Unit(benchmark::kMillisecond);

void BM_Tez_TriangulateHole(benchmark::State& state)
{
    int const n = static_cast<int>(state.range(0));
    TezRef<TezIndexedMesh> const mesh = CappedSphere(n);
    TezRef<TezTopologyMesh> const topology = TezTopologyMesh::Create(mesh);
    TezRef<TezTopologyHole> const hole = topology->GetHole(0);
    std::vector<Vec> ring;
    std::vector<unsigned int> ids;
    for (int k = 0; k < hole->GetNumEdges(); ++k) {
        ids.push_back(hole->GetEdge(k)->GetVertex()->GetGeometry());
        ring.push_back(mesh->GetVertex(ids.back()).position);
    }
    for (auto _ : state) {
        std::vector<int> triangles = TezTriangulateHoleRing(ring, ids);
        benchmark::DoNotOptimize(triangles.data());
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_Tez_TriangulateHole)->Arg(100)->Arg(200)->Arg(400)->Arg(800)->Unit(benchmark::kMillisecond);

#if TEZ_PEER_BENCH

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using CgalMesh = CGAL::Surface_mesh<Kernel::Point_3>;
namespace PMP = CGAL::Polygon_mesh_processing;

CgalMesh ToCgal(TezIndexedMesh const& mesh)
{
    CgalMesh out;
    std::vector<CgalMesh::Vertex_index> vertices;
    for (size_t v = 0; v < mesh.GetNumVertices(); ++v) {
        Vec const& p = mesh.GetVertex(v).position;
        vertices.push_back(out.add_vertex(Kernel::Point_3(p.x, p.y, p.z)));
    }
    for (size_t t = 0; t < mesh.GetNumTriangles(); ++t)
        out.add_face(vertices[mesh.GetIndex(t, 0)], vertices[mesh.GetIndex(t, 1)], vertices[mesh.GetIndex(t, 2)]);
    return out;
}

CgalMesh::Halfedge_index BorderHalfedge(CgalMesh const& mesh)
{
    for (CgalMesh::Halfedge_index h : mesh.halfedges())
        if (mesh.is_border(h))
            return h;
    return CgalMesh::Halfedge_index();
}

template <class Fill>
void RunCgal(benchmark::State& state, Fill fill)
{
    int const n = static_cast<int>(state.range(0));
    CgalMesh const source = ToCgal(*CappedSphere(n));
    size_t added = 0;
    for (auto _ : state) {
        state.PauseTiming();
        CgalMesh mesh = source;
        CgalMesh::Halfedge_index const h = BorderHalfedge(mesh);
        state.ResumeTiming();
        fill(mesh, h);
        state.PauseTiming();
        added = mesh.number_of_faces() - source.number_of_faces();
        state.ResumeTiming();
    }
    state.counters["triangles"] = static_cast<double>(added);
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_Cgal_TriangulateRefineAndFairHole(benchmark::State& state)
{
    RunCgal(state, [](CgalMesh& mesh, CgalMesh::Halfedge_index h) {
        std::vector<CgalMesh::Face_index> faces;
        std::vector<CgalMesh::Vertex_index> vertices;
        PMP::triangulate_refine_and_fair_hole(mesh, h, std::back_inserter(faces), std::back_inserter(vertices));
    });
}
BENCHMARK(BM_Cgal_TriangulateRefineAndFairHole)->Arg(100)->Arg(200)->Arg(400)->Arg(800)->Unit(benchmark::kMillisecond);

void BM_Cgal_TriangulateHoleExact(benchmark::State& state)
{
    RunCgal(state, [](CgalMesh& mesh, CgalMesh::Halfedge_index h) {
        std::vector<CgalMesh::Face_index> faces;
        PMP::triangulate_hole(mesh, h, std::back_inserter(faces), CGAL::parameters::use_delaunay_triangulation(false));
    });
}
BENCHMARK(BM_Cgal_TriangulateHoleExact)->Arg(100)->Arg(200)->Arg(400)->Arg(800)->Unit(benchmark::kMillisecond);

#endif

} // namespace
