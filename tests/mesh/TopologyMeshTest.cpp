#include "mesh/TopologyMesh.h"
#include "mesh/HoleFilling.h"

#include "MeshTestSupport.h"
#include "TopologyTestShapes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

using namespace topology_test;

namespace {

// Every edge in at most two triangles, and then in opposite directions.
bool ManifoldAndOriented(TezIndexedMesh const& mesh)
{
    std::map<std::pair<unsigned int, unsigned int>, int> directed;
    for (size_t t = 0; t < mesh.GetNumTriangles(); ++t)
        for (int k = 0; k < 3; ++k)
            if (++directed[{mesh.GetIndex(t, k), mesh.GetIndex(t, (k + 1) % 3)}] > 1)
                return false;
    return true;
}

bool ClosedAndManifold(TezRef<TezIndexedMesh> mesh)
{
    TezMeshCheckResults results;
    mesh->Check(results);
    return results.nonManifoldEdges == 0 && TezTopologyMesh::Create(mesh)->GetNumHoles() == 0;
}

// Fills every hole in turn, checking the topology after each.
void FillAll(TezRef<TezTopologyMesh> topology)
{
    while (topology->GetNumHoles() > 0) {
        size_t const before = topology->GetNumHoles();
        ASSERT_TRUE(topology->FillHole(topology->GetHole(0)));
        EXPECT_EQ(topology->GetNumHoles(), before - 1);
        ASSERT_TRUE(topology->Validate());
    }
}

} // namespace

TEST(TopologyMesh, FindsHolesOfSimpleShapes)
{
    auto sphere = TezTopologyMesh::Create(Sphere(8, 12));
    EXPECT_TRUE(sphere->Validate());
    EXPECT_EQ(sphere->GetNumHoles(), 0u);
    EXPECT_EQ(sphere->GetNumFaces(), sphere->GetGeometry()->GetNumTriangles());

    TezRef<TezIndexedMesh> single = TezIndexedMesh::CreateEmpty();
    for (int k = 0; k < 3; ++k)
        single->AddVertex(TezMeshVertex(Vec(float(k == 1), float(k == 2), 0), Vec(0, 0, 1)));
    AddTriangle(*single, 0, 1, 2);
    auto triangle = TezTopologyMesh::Create(single);
    ASSERT_EQ(triangle->GetNumHoles(), 1u);
    EXPECT_EQ(triangle->GetHole(0)->GetNumEdges(), 3);

    auto grid = TezTopologyMesh::Create(Grid(5));
    ASSERT_EQ(grid->GetNumHoles(), 1u);
    EXPECT_EQ(grid->GetHole(0)->GetNumEdges(), 20);
    // Boundary edges follow one another around the hole.
    TezRef<TezTopologyHole> hole = grid->GetHole(0);
    for (int k = 0; k < hole->GetNumEdges(); ++k)
        EXPECT_EQ(hole->GetEdge(k)->GetOppositeVertex(), hole->GetEdge((k + 1) % 20)->GetVertex());
}

TEST(TopologyMesh, ReportsProgressWhenAsked)
{
    MeshTestApplication app;
    TezRef<TezIndexedMesh> mesh = Grid(3); // 16 vertices, 18 triangles, 12 border edges
    auto topology = TezTopologyMesh::Create(mesh, true);
    EXPECT_EQ(
        (std::vector<std::string>{"Creating topology vertices...", "Creating topology triangles...",
                                  "Finding edges that belong to holes...", "Connecting edges that belong to holes..."}),
        app.ui.messages);
    EXPECT_EQ(app.ui.started, 4u);
    EXPECT_EQ(app.ui.ended, 4u);
    EXPECT_EQ(app.ui.steps, 16u + 18u + 18u + 12u);

    app.ui.messages.clear();
    TezRef<TezTopologyMesh> copy = topology->Copy();
    EXPECT_EQ((std::vector<std::string>{"Copying topology vertices...", "Copying topology triangles...",
                                        "Copying topology edges...", "Copying topology holes..."}),
              app.ui.messages);
    EXPECT_EQ(app.ui.started, app.ui.ended);

    // Without being asked it stays silent, and a stop does not reach it.
    app.ui.messages.clear();
    app.ui.stop = true;
    EXPECT_EQ(TezTopologyMesh::Create(mesh, false)->GetNumFaces(), 18u);
    EXPECT_TRUE(app.ui.messages.empty());

    // Asked, a stop leaves nothing half built.
    auto stopped = TezTopologyMesh::Create(mesh, true);
    EXPECT_EQ(stopped->GetNumFaces(), 0u);
    EXPECT_EQ(stopped->GetNumVertices(), 0u);
    EXPECT_EQ(stopped->GetNumHoles(), 0u);
    EXPECT_FALSE(stopped->IsEditable());
}

TEST(TopologyMesh, SmallHoleTakesOneTriangle)
{
    // A sphere with one triangle cut out: the three-edge hole is closed by one
    // face, and its size matches the neighbours, so no vertex is added.
    TezRef<TezIndexedMesh> mesh = Sphere(8, 12);
    auto topology = TezTopologyMesh::Create(mesh);
    size_t const faces = topology->GetNumFaces();
    size_t const vertices = mesh->GetNumVertices();
    TezRef<TezMeshIndexList> list = TezMeshIndexList::Create();
    list->Add(40);
    topology->Remove(list);
    ASSERT_TRUE(topology->Validate());
    ASSERT_EQ(topology->GetNumHoles(), 1u);
    EXPECT_EQ(topology->GetHole(0)->GetNumEdges(), 3);

    FillAll(topology);
    EXPECT_EQ(topology->GetNumFaces(), faces);
    EXPECT_EQ(mesh->GetNumVertices(), vertices);
    EXPECT_TRUE(ClosedAndManifold(mesh));
}

TEST(TopologyMesh, FlatHoleStaysFlatAndWoundLikeItsSurroundings)
{
    // A round hole in a flat grid.
    TezRef<TezIndexedMesh> mesh = Without(Grid(20), [](Vec const& c) { return (c - Vec(10, 10, 0)).Length() < 6.0f; });
    auto topology = TezTopologyMesh::Create(mesh);
    ASSERT_EQ(topology->GetNumHoles(), 2u); // the hole and the outer border
    size_t const vertices = mesh->GetNumVertices();
    TezRef<TezTopologyHole> inner = topology->GetHole(0)->GetNumEdges() < topology->GetHole(1)->GetNumEdges()
                                        ? topology->GetHole(0)
                                        : topology->GetHole(1);
    ASSERT_TRUE(topology->FillHole(inner));
    ASSERT_TRUE(topology->Validate());
    EXPECT_EQ(topology->GetNumHoles(), 1u);
    EXPECT_GT(mesh->GetNumVertices(), vertices + 20); // refined to the grid's density

    for (size_t v = 0; v < mesh->GetNumVertices(); ++v)
        EXPECT_NEAR(mesh->GetVertex(v).position.z, 0.0f, 1e-6f);
    double area = 0.0;
    for (size_t t = 0; t < mesh->GetNumTriangles(); ++t) {
        TezMeshTriangle const tri = mesh->GetTriangle(t);
        ASSERT_FALSE(tri.CheckDegenerate());
        TezVector3<float> const p0 = tri.GetVertex(0).position, p1 = tri.GetVertex(1).position,
                                p2 = tri.GetVertex(2).position;
        float const z = ((p1 - p0) ^ (p2 - p0)).z;
        EXPECT_GT(z, 0.0f) << "triangle " << t;
        area += 0.5 * z;
    }
    EXPECT_NEAR(area, 400.0, 1e-2);
}

TEST(TopologyMesh, FillsHolesOfATorusOneByOne)
{
    TezRef<TezIndexedMesh> torus = TezIndexedMesh::CreateTorus(24, 48, 3.0f, 1.0f);
    // Two separate holes: one on the outer equator, one on the inner.
    TezRef<TezIndexedMesh> mesh = Without(
        torus, [](Vec const& c) { return (c - Vec(4, 0, 0)).Length() < 0.6f || (c - Vec(-2, 0, 0)).Length() < 0.4f; });
    auto topology = TezTopologyMesh::Create(mesh);
    ASSERT_TRUE(topology->Validate());
    ASSERT_EQ(topology->GetNumHoles(), 2u);
    FillAll(topology);
    EXPECT_TRUE(ClosedAndManifold(mesh));
    // The patches keep close to the tube.
    for (size_t v = 0; v < mesh->GetNumVertices(); ++v) {
        Vec const p = mesh->GetVertex(v).position;
        float const ring = std::sqrt(p.x * p.x + p.y * p.y);
        float const tube = std::sqrt((ring - 3.0f) * (ring - 3.0f) + p.z * p.z);
        EXPECT_NEAR(tube, 1.0f, 0.25f) << "vertex " << v;
    }
}

TEST(TopologyMesh, FillsAHoleOf800Edges)
{
    TezRef<TezIndexedMesh> mesh = Without(Sphere(16, 800), [](Vec const& c) { return c.z > 0.8f; });
    auto topology = TezTopologyMesh::Create(mesh);
    ASSERT_EQ(topology->GetNumHoles(), 1u);
    ASSERT_EQ(topology->GetHole(0)->GetNumEdges(), 800);
    float const rim = mesh->ComputeBounds().GetMaximum().z;
    FillAll(topology);
    EXPECT_TRUE(ClosedAndManifold(mesh));
    EXPECT_GT(mesh->ComputeVolume(), 0.0f);
    // The patch spans the rim and stays within the sphere's box.
    for (size_t v = 0; v < mesh->GetNumVertices(); ++v) {
        Vec const p = mesh->GetVertex(v).position;
        EXPECT_LE(p.z, 1.0f);
        EXPECT_LE(std::sqrt(p.x * p.x + p.y * p.y), 1.0f + 1e-4f);
        if (p.z >= rim) {
            EXPECT_NEAR(p.z, rim, 0.2f);
        }
    }
}

TEST(TopologyMesh, ToleratesNonManifoldInput)
{
    // A fin: three triangles on one edge.
    TezRef<TezIndexedMesh> fin = TezIndexedMesh::CreateEmpty();
    Vec const p[5] = {Vec(0, 0, 0), Vec(1, 0, 0), Vec(0.5f, 1, 0), Vec(0.5f, -1, 0), Vec(0.5f, 0, 1)};
    for (Vec const& q : p)
        fin->AddVertex(TezMeshVertex(q, Vec(0, 0, 1)));
    AddTriangle(*fin, 0, 1, 2);
    AddTriangle(*fin, 1, 0, 3);
    AddTriangle(*fin, 1, 0, 4);
    auto topology = TezTopologyMesh::Create(fin);
    EXPECT_FALSE(topology->Validate()); // the shared edge cannot be mated both ways
    for (size_t h = 0; h < topology->GetNumHoles(); ++h)
        EXPECT_GE(topology->GetHole(h)->GetNumEdges(), 1);
    while (topology->GetNumHoles() > 0)
        if (!topology->FillHole(topology->GetHole(0)))
            topology->ClearHoles();

    // A bow-tie: two triangles sharing one vertex give two holes, both fillable.
    TezRef<TezIndexedMesh> bow = TezIndexedMesh::CreateEmpty();
    Vec const q[5] = {Vec(0, 0, 0), Vec(1, -0.5f, 0), Vec(1, 0.5f, 0), Vec(-1, 0.5f, 0), Vec(-1, -0.5f, 0)};
    for (Vec const& v : q)
        bow->AddVertex(TezMeshVertex(v, Vec(0, 0, 1)));
    AddTriangle(*bow, 0, 1, 2);
    AddTriangle(*bow, 0, 3, 4);
    auto tie = TezTopologyMesh::Create(bow);
    ASSERT_TRUE(tie->Validate());
    ASSERT_EQ(tie->GetNumHoles(), 2u);
    FillAll(tie);

    // A triangle naming a vertex that is not there is left out, and the
    // mismatched topology refuses to edit the geometry.
    AddTriangle(*bow, 0, 1, 99);
    auto broken = TezTopologyMesh::Create(bow);
    EXPECT_FALSE(broken->Validate());
    EXPECT_EQ(broken->GetNumFaces(), bow->GetNumTriangles() - 1);
    size_t const triangles = bow->GetNumTriangles();
    EXPECT_FALSE(broken->SplitFace(broken->GetFace(0), Vec(0.5f, 0, 0)));
    for (size_t h = 0; h < broken->GetNumHoles(); ++h)
        EXPECT_FALSE(broken->FillHole(broken->GetHole(h)));
    EXPECT_EQ(bow->GetNumTriangles(), triangles);
}

TEST(TopologyMesh, RandomTriangleSoupsNeverBreakIt)
{
    // Fins, repeated positions, pinched and flipped triangles at random:
    // filling must finish, and an oriented manifold input stays one.
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> coordinate(-1.0f, 1.0f);
    for (int run = 0; run < 500; ++run) {
        unsigned int const numVertices = 3 + rng() % 12;
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
        for (unsigned int v = 0; v < numVertices; ++v) {
            Vec p(coordinate(rng), coordinate(rng), rng() % 3 == 0 ? 0.0f : coordinate(rng));
            if (v > 0 && rng() % 10 == 0)
                p = mesh->GetVertex(v - 1).position;
            mesh->AddVertex(TezMeshVertex(p, Vec(0, 0, 1)));
        }
        for (unsigned int t = 1 + rng() % 25; t > 0; --t) {
            unsigned int const a = rng() % numVertices, b = rng() % numVertices, c = rng() % numVertices;
            // Triangles with a repeated corner are the clean-up's business.
            if (a != b && b != c && a != c)
                AddTriangle(*mesh, a, b, c);
        }
        auto topology = TezTopologyMesh::Create(mesh);
        bool const manifold = ManifoldAndOriented(*mesh);
        for (int guard = 0; guard < 100 && topology->GetNumHoles() > 0; ++guard)
            if (!topology->FillHole(topology->GetHole(0)))
                topology->ClearHoles();
        EXPECT_EQ(topology->GetNumFaces(), mesh->GetNumTriangles());
        if (manifold) {
            EXPECT_TRUE(topology->Validate()) << "run " << run;
            EXPECT_TRUE(ManifoldAndOriented(*mesh)) << "run " << run;
        }
    }
}

TEST(TopologyMesh, SplitSwapAndCopy)
{
    TezRef<TezIndexedMesh> mesh = Grid(1); // two triangles over a unit square
    auto topology = TezTopologyMesh::Create(mesh);
    TezRef<TezTopologyMesh> copy = topology->Copy();

    TezRef<TezTopologyFace> a = topology->GetFace(0), b = topology->GetFace(1);
    TezRef<TezTopologyHalfEdge> shared;
    for (int k = 0; k < 3; ++k)
        if (a->GetHalfEdge(k)->GetMate())
            shared = a->GetHalfEdge(k);
    ASSERT_TRUE(shared);
    ASSERT_TRUE(topology->Swap(a, shared, b, shared->GetMate()));
    ASSERT_TRUE(topology->Validate());
    // The diagonal now runs from vertex 1 to vertex 2.
    TezRef<TezTopologyHalfEdge> diagonal;
    for (int k = 0; k < 3; ++k)
        if (a->GetHalfEdge(k)->GetMate())
            diagonal = a->GetHalfEdge(k);
    ASSERT_TRUE(diagonal);
    unsigned int const ends = diagonal->GetVertex()->GetGeometry() + diagonal->GetOppositeVertex()->GetGeometry();
    EXPECT_EQ(ends, 3u);
    for (size_t t = 0; t < 2; ++t)
        EXPECT_GT(mesh->GetTriangle(t).ComputeNormal().z, 0.99f);
    // The half-edge form swaps it back; a boundary half-edge has nothing to swap with.
    EXPECT_FALSE(topology->Swap(diagonal->Next()));
    ASSERT_TRUE(topology->Swap(diagonal.Get()));
    unsigned int const start = diagonal->Vertex()->GetGeometry();
    EXPECT_TRUE(start == 0 || start == 3) << start;
    ASSERT_TRUE(topology->Validate());

    TezRef<TezTopologyVertex> centre = topology->SplitFace(topology->GetFace(0), Vec(0.7f, 0.5f, 0));
    ASSERT_TRUE(centre);
    EXPECT_TRUE(topology->Validate());
    EXPECT_EQ(topology->GetNumFaces(), 4u);
    EXPECT_EQ(centre->GetNumEdges(), 3);
    EXPECT_EQ(mesh->GetNumVertices(), 5u);

    // The copy kept the original state and is independent of it.
    EXPECT_TRUE(copy->Validate());
    EXPECT_EQ(copy->GetNumFaces(), 2u);
    EXPECT_EQ(copy->GetGeometry()->GetNumVertices(), 4u);
    EXPECT_EQ(copy->GetNumHoles(), 1u);
    EXPECT_EQ(copy->GetHole(0)->GetNumEdges(), 4);
    // The fill itself leaves the list alone; the hole, closed now, is then refused.
    ASSERT_TRUE(TezFillHole(*copy, *copy->GetHole(0)));
    EXPECT_EQ(copy->GetNumHoles(), 1u);
    EXPECT_FALSE(copy->FillHole(copy->GetHole(0)));
    EXPECT_TRUE(copy->Validate());
    EXPECT_TRUE(topology->Validate());
    EXPECT_EQ(topology->GetNumFaces(), 4u);
}

TEST(HoleTriangulation, TieKeepsLowestSplitAndAreaIsMinimal)
{
    // A square: both diagonals give the same area, and the first split wins.
    std::vector<Vec> square = {Vec(0, 0, 0), Vec(1, 0, 0), Vec(1, 1, 0), Vec(0, 1, 0)};
    std::vector<int> const triangles = TezTriangulateHoleRing(square, {0, 1, 2, 3});
    EXPECT_EQ(triangles, (std::vector<int>{1, 0, 3, 1, 3, 2}));
    // A diagonal the mesh has already is not doubled; with both taken there is none.
    EXPECT_EQ(TezTriangulateHoleRing(square, {0, 1, 2, 3}, {{1, 3}}), (std::vector<int>{0, 2, 1, 2, 0, 3}));
    EXPECT_TRUE(TezTriangulateHoleRing(square, {0, 1, 2, 3}, {{1, 3}, {0, 2}}).empty());

    // A skew quad: the diagonal away from the raised corner gives less area.
    std::vector<Vec> skew = {Vec(0, 0, 0), Vec(1, 0, 1), Vec(1, 1, 0), Vec(0, 1, 0)};
    EXPECT_EQ(TezTriangulateHoleRing(skew, {0, 1, 2, 3}), (std::vector<int>{0, 2, 1, 2, 0, 3}));

    // A boundary through one vertex twice never gets a triangle with it twice.
    std::vector<Vec> pinched = {Vec(0, 0, 0), Vec(1, -1, 0), Vec(1, 1, 0), Vec(0, 0, 0), Vec(-1, 1, 0), Vec(-1, -1, 0)};
    std::vector<unsigned int> const ids = {7, 1, 2, 7, 4, 5};
    std::vector<int> const pinchedTriangles = TezTriangulateHoleRing(pinched, ids);
    ASSERT_EQ(pinchedTriangles.size(), 12u);
    for (size_t t = 0; t < pinchedTriangles.size(); t += 3) {
        unsigned int const a = ids[pinchedTriangles[t]], b = ids[pinchedTriangles[t + 1]],
                           c = ids[pinchedTriangles[t + 2]];
        EXPECT_TRUE(a != b && b != c && a != c);
    }
}

TEST(HoleTriangulation, InCircleTestHasAMargin)
{
    Vec const p(0, 0, 0), e(1, 0, 0), f(0, 1, 0);
    // Q on the circle through P, E, F (a square): no swap.
    EXPECT_FALSE(TezCheckRelaxNeed(p, e, f, Vec(1, 1, 0), true));
    EXPECT_TRUE(TezCheckRelaxNeed(p, e, f, Vec(0.9f, 0.9f, 0), true));
    EXPECT_FALSE(TezCheckRelaxNeed(p, e, f, Vec(1.2f, 1.2f, 0), true));
    // Out of the plane the circle is taken in P E F's plane.
    EXPECT_TRUE(TezCheckRelaxNeed(p, e, f, Vec(0.8f, 0.8f, 0.3f), true));
    // P on the line E F has no circumcircle: only the retry looks at Q's side,
    // where P lies inside Q F E's circle.
    Vec const flat(0.5f, 0.5f, 0);
    EXPECT_FALSE(TezCheckRelaxNeed(flat, e, f, Vec(1, 1, 0), false));
    EXPECT_TRUE(TezCheckRelaxNeed(flat, e, f, Vec(1, 1, 0), true));
}
