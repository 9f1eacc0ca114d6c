#include "mesh/IndexedMesh.h"
#include "mesh/MeshIndexList.h"

#include "MeshTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using Vec = TezVector3<float>;

TEST(TezIndexedMesh, VerticesAreTwentyFourBytesAndZeroedWhenResized)
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    mesh->Resize(3, 2);
    EXPECT_EQ(3u, mesh->GetNumVertices());
    EXPECT_EQ(2u, mesh->GetNumTriangles());
    EXPECT_EQ(6u, mesh->GetNumIndices());
    EXPECT_EQ(0.0f, mesh->GetVertex(2).normal.z);
    EXPECT_EQ(3u, mesh->AddVertex(TezMeshVertex(Vec(1, 2, 3), Vec(0, 0, 1))));
    mesh->AddTriangle(TezMeshTriangle(3, 1, 2));
    EXPECT_EQ(3u, mesh->GetIndex(2, 0));
    mesh->SetIndex(2, 0, 0);
    EXPECT_EQ(0u, mesh->GetTriangle(2).GetVertexIndex(0));

    TezRef<TezIndexedMesh> copy = mesh->Copy();
    copy->SetIndex(0, 0, 7);
    copy->SetVertex(0, TezMeshVertex(Vec(9, 9, 9), Vec(0, 0, 0)));
    EXPECT_EQ(0u, mesh->GetIndex(0, 0));
    EXPECT_EQ(0.0f, mesh->GetVertex(0).position.x);
}

TEST(TezIndexedMesh, TriangleMeasures)
{
    TezRef<TezIndexedMesh> mesh = MakeMesh({{0, 0, 0}, {2, 0, 0}, {0, 2, 0}, {1e-7f, 0, 0}, {5, 5, 0}}, {});
    TezMeshTriangle const t(0, 1, 2, mesh);
    EXPECT_FLOAT_EQ(2.0f, t.ComputeArea());
    EXPECT_EQ(Vec(0, 0, 1), t.ComputeNormal());
    Vec const angles = t.ComputeAngles();
    EXPECT_NEAR(M_PI / 2, angles[0], 1e-6);
    EXPECT_NEAR(M_PI / 4, angles[1], 1e-6);
    EXPECT_NEAR(M_PI / 4, angles[2], 1e-6);
    EXPECT_EQ(Vec(2.0f / 3, 2.0f / 3, 0), t.ComputeCentroid());
    EXPECT_EQ(Vec(2, 2, 0), t.ComputeBounds().GetMaximum());
    // The plane runs through p2, p1, p0: its normal is the reverse winding's.
    EXPECT_EQ(Vec(0, 0, -1), t.GetPlane().GetNormal());

    // A first edge below 1e-6 gives 0 whatever the rest; so does a flat one.
    EXPECT_EQ(0.0f, TezMeshTriangle(0, 3, 4, mesh).ComputeArea());
    EXPECT_EQ(0.0f, TezMeshTriangle(0, 1, 3, mesh).ComputeArea());
    // Degenerate means equal indices, not equal positions.
    EXPECT_TRUE(TezMeshTriangle(1, 2, 1, mesh).CheckDegenerate());
    EXPECT_FALSE(TezMeshTriangle(0, 1, 3, mesh).CheckDegenerate());
    EXPECT_TRUE(TezMeshTriangle::HasCommonVertices(TezMeshTriangle(0, 1, 2), TezMeshTriangle(5, 6, 2)));
    EXPECT_FALSE(TezMeshTriangle::HasCommonVertices(TezMeshTriangle(0, 1, 2), TezMeshTriangle(3, 4, 5)));
}

TEST(TezIndexedMesh, MeshMeasuresFollowTheWinding)
{
    TezRef<TezIndexedMesh> tetra = MakeTetrahedron();
    EXPECT_NEAR(1.0 / 6.0, tetra->ComputeVolume(), 1e-7);
    EXPECT_NEAR(1.5 + std::sqrt(3.0) / 2.0, tetra->ComputeSurfaceArea(), 1e-6);
    EXPECT_EQ(Vec(1, 1, 1), tetra->ComputeBounds().GetMaximum());
    EXPECT_TRUE(TezIndexedMesh::CreateEmpty()->ComputeBounds().Empty());

    // Reversed winding flips the volume's sign.
    std::vector<unsigned int>& idx = tetra->GetIndices();
    for (size_t t = 0; t < idx.size(); t += 3)
        std::swap(idx[t + 1], idx[t + 2]);
    EXPECT_NEAR(-1.0 / 6.0, tetra->ComputeVolume(), 1e-7);

    // Transforms move positions and leave normals alone.
    TezRef<TezIndexedMesh> sphere = TezIndexedMesh::CreateSphere(8, 12);
    sphere->TransformGeometry(TezScaleTransform<float>(2.0f));
    EXPECT_NEAR(2.0f, sphere->GetVertex(20).position.Length(), 1e-5);
    EXPECT_NEAR(1.0f, sphere->GetVertex(20).normal.Length(), 1e-5);
}

TEST(TezIndexedMesh, BoundingCylinderIsTheSmallestCircleAroundTheAxis)
{
    Vec base;
    float length = 0, radius = 0;
    EXPECT_FALSE(TezIndexedMesh::CreateEmpty()->ComputeBoundingCylinder(2, base, length, radius));

    // A cylinder of radius 3 along y (axis 1 and axis 4 alike), moved off
    // the origin: its rings are the enclosing circle.
    TezRef<TezIndexedMesh> cylinder = TezIndexedMesh::CreateCylinder(64, 3, 3.0f, 3.0f, 5.0f);
    cylinder->TransformGeometry(TezTranslationTransform<float>(Vec(1, 2, 3)) *
                                TezRotationAboutX<float>(-static_cast<float>(M_PI) / 2));
    ASSERT_TRUE(cylinder->ComputeBoundingCylinder(4, base, length, radius));
    EXPECT_NEAR(2.0f, base.y, 1e-5);
    EXPECT_NEAR(5.0f, length, 1e-5);
    EXPECT_NEAR(3.0f, base.z, 1e-5); // the circle lies in (z, x)
    EXPECT_NEAR(1.0f, base.x, 1e-5);
    EXPECT_NEAR(3.0f, radius, 1e-5);

    // Random points: every one inside, and the circle is not loose (a
    // smallest circle touches at least two points).
    std::mt19937 random(7);
    std::uniform_real_distribution<float> coordinate(-10.0f, 10.0f);
    for (int trial = 0; trial < 20; ++trial) {
        TezRef<TezIndexedMesh> cloud = TezIndexedMesh::CreateEmpty();
        for (int i = 0; i < 200; ++i)
            cloud->AddVertex(
                TezMeshVertex(Vec(coordinate(random), coordinate(random), coordinate(random) * 0.3f), Vec(0, 0, 0)));
        ASSERT_TRUE(cloud->ComputeBoundingCylinder(2, base, length, radius));
        int touching = 0;
        for (size_t i = 0; i < cloud->GetNumVertices(); ++i) {
            Vec const& p = cloud->GetVertex(i).position;
            float const d = std::hypot(p.x - base.x, p.y - base.y);
            EXPECT_LE(d, radius * (1 + 1e-5f));
            touching += d > radius * (1 - 1e-5f);
        }
        EXPECT_GE(touching, 2);
    }
}

TEST(TezIndexedMesh, CheckCountsByIndexAndReportsEachStep)
{
    MeshTestApplication app;
    TezMeshCheckResults results;
    EXPECT_TRUE(MakeTetrahedron()->Check(results));
    EXPECT_EQ(0, results.degenerateTriangles + results.duplicateTriangles + results.nonManifoldEdges);
    EXPECT_EQ((std::vector<std::string>{"Checking for degenerate triangles...", "Checking for duplicate triangles...",
                                        "Checking for non-manifold edges 1st pass...",
                                        "Checking for non-manifold edges 2nd pass..."}),
              app.ui.messages);
    EXPECT_EQ(app.ui.started, app.ui.ended);
    EXPECT_EQ(4u + 4u + 4u + 6u, app.ui.steps); // triangles, then the six distinct edges

    // A reversed copy is a duplicate; a fin of three on one edge is one
    // non-manifold edge; a repeated index is degenerate.
    TezRef<TezIndexedMesh> mesh = MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, -1, 0}},
                                           {0, 1, 2, 2, 1, 0, 0, 1, 3, 0, 1, 4, 3, 3, 4});
    EXPECT_FALSE(mesh->Check(results));
    EXPECT_EQ(1, results.degenerateTriangles);
    EXPECT_EQ(1, results.duplicateTriangles);
    EXPECT_EQ(1, results.nonManifoldEdges); // edge (0,1) has four triangles

    // Two vertices at one position are two vertices until merged.
    TezRef<TezIndexedMesh> split = MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}}, {0, 1, 2, 3, 1, 2});
    EXPECT_TRUE(split->Check(results));
    TezIndexedMeshInternals::EliminateDuplicateVertices(*split);
    EXPECT_FALSE(split->Check(results));
    EXPECT_EQ(1, results.duplicateTriangles);

    // Check compares indices only: coordinates that are not numbers pass it
    // and are counted on their own, unused vertices too.
    float const nan = std::nanf(""), inf = INFINITY;
    TezRef<TezIndexedMesh> odd =
        MakeMesh({{0, 0, 0}, {1, nan, 0}, {0, 1, -inf}, {inf, 0, 0}, {1e38f, 0, 0}}, {0, 1, 2});
    EXPECT_TRUE(odd->Check(results));
    EXPECT_EQ(3u, odd->CountNonFiniteVertices());
    EXPECT_EQ(0u, MakeTetrahedron()->CountNonFiniteVertices());
}

TEST(TezIndexedMesh, RemovalKeepsOrderAndVertices)
{
    MeshTestApplication app;
    auto copies = [&]() {
        return MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {0, 1, 2, 2, 0, 1, 1, 2, 3, 1, 0, 2, 3, 3, 1});
    };
    TezRef<TezIndexedMesh> mesh = copies();
    mesh->RemoveDuplicateTriangles(true);
    EXPECT_EQ((std::vector<unsigned int>{0, 1, 2, 1, 2, 3, 3, 3, 1}), mesh->GetIndices());
    mesh = copies();
    mesh->RemoveDuplicateTriangles(false);
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3, 3, 3, 1}), mesh->GetIndices());
    mesh->RemoveDegenerateTriangles();
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3}), mesh->GetIndices());
    EXPECT_EQ(4u, mesh->GetNumVertices());

    mesh = copies();
    app.ui.steps = 0;
    TezRef<TezMeshIndexList> list = TezMeshIndexList::Create();
    list->Add(4);
    list->Add(0);
    list->Add(4);
    mesh->RemoveTriangles(list);
    EXPECT_EQ((std::vector<unsigned int>{2, 0, 1, 1, 2, 3, 1, 0, 2}), mesh->GetIndices());
    EXPECT_EQ(3u, app.ui.steps); // one per kept triangle
    // The last message stands: removal by list sets none of its own.
    EXPECT_EQ("Removing degenerate triangles...", app.ui.messages.back());
}

TEST(TezIndexedMesh, NormalsFromPositionsAreAreaWeightedFaceNormals)
{
    // Random triangles over few positions: shared corners, slivers, repeated
    // indices, a point-sized triangle and an unused vertex.
    std::mt19937 random(3);
    std::uniform_real_distribution<float> coordinate(-2.0f, 2.0f);
    std::vector<Vec> positions;
    for (int i = 0; i < 300; ++i)
        positions.emplace_back(coordinate(random), coordinate(random), coordinate(random));
    positions.push_back(positions[0] + Vec(1e-7f, 0, 0));
    positions.push_back(Vec(5, 5, 5)); // used by no triangle
    std::uniform_int_distribution<unsigned int> pick(0, 300);
    std::vector<unsigned int> indices;
    for (int t = 0; t < 3000; ++t)
        for (int c = 0; c < 3; ++c)
            indices.push_back(pick(random));
    indices.insert(indices.end(), {0, 300, 0, 0, 300, 1, 7, 7, 7});
    TezRef<TezIndexedMesh> mesh = MakeMesh(positions, indices);

    std::vector<Vec> expected(positions.size(), Vec(0, 0, 0));
    for (size_t t = 0; t < mesh->GetNumTriangles(); ++t) {
        TezMeshTriangle const triangle = mesh->GetTriangle(t);
        Vec const n = triangle.ComputeNormal() * (triangle.ComputeArea() / 3.0f);
        for (int c = 0; c < 3; ++c)
            expected[triangle.GetVertexIndex(c)] += n;
    }
    TezIndexedMeshInternals::MakeNormalsFromPositions(*mesh);
    for (size_t i = 0; i < positions.size(); ++i) {
        expected[i].Normalize();
        Vec const& got = mesh->GetVertex(i).normal;
        ASSERT_TRUE(got.x == expected[i].x && got.y == expected[i].y && got.z == expected[i].z) << "vertex " << i;
    }
    EXPECT_EQ(Vec(0, 0, 0), mesh->GetVertex(301).normal);
}
