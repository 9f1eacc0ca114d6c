#include "mesh/IndexedMesh.h"

#include "MeshTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using Vec = TezVector3<float>;

namespace {

// Volume once coincident vertices are joined: positive and near the solid's
// exactly when the generator closes its surface with outward winding.
double ClosedVolume(TezRef<TezIndexedMesh> mesh)
{
    TezRef<TezIndexedMesh> joined = mesh->Copy();
    TezIndexedMeshInternals::EliminateDuplicateVertices(*joined);
    return joined->ComputeVolume();
}

double Polygon(int n, double r) { return 0.5 * n * r * r * std::sin(2 * M_PI / n); }

} // namespace

TEST(TezIndexedMeshGenerators, CountsMatchTheirFormulas)
{
    for (int n : {4, 7, 32}) {
        TezRef<TezIndexedMesh> arrow = TezIndexedMesh::CreateArrow(n, 0.7f, 0.3f, 0.05f, 0.1f);
        EXPECT_EQ(7u * n + 1, arrow->GetNumVertices());
        EXPECT_EQ(6u * n, arrow->GetNumTriangles());
        TezRef<TezIndexedMesh> twin = TezIndexedMesh::CreateDoubleArrow(n, 0.5f, 0.2f, 0.05f, 0.1f);
        EXPECT_EQ(10u * n, twin->GetNumVertices());
        EXPECT_EQ(10u * n, twin->GetNumTriangles());
        TezRef<TezIndexedMesh> sphere = TezIndexedMesh::CreateSphere(n, n + 1);
        EXPECT_EQ(size_t(n + 1) * (n + 1), sphere->GetNumVertices());
        EXPECT_EQ(2u * n * (n + 1), sphere->GetNumTriangles());
        TezRef<TezIndexedMesh> torus = TezIndexedMesh::CreateTorus(n, 2 * n, 1.0f, 0.25f);
        EXPECT_EQ(2u * n * n, torus->GetNumVertices());
        EXPECT_EQ(4u * n * n, torus->GetNumTriangles());
        for (int stacks : {2, 5}) {
            TezRef<TezIndexedMesh> cylinder = TezIndexedMesh::CreateCylinder(n, stacks, 1.0f, 0.5f, 2.0f);
            EXPECT_EQ(size_t(stacks + 2) * n, cylinder->GetNumVertices());
            EXPECT_EQ(2u * n * (stacks - 1) + 2u * (n - 2), cylinder->GetNumTriangles());
        }
    }
    // Too few slices and stacks are raised to 4 and 2.
    TezRef<TezIndexedMesh> small = TezIndexedMesh::CreateCylinder(1, 1, 1.0f, 1.0f, 1.0f);
    TezRef<TezIndexedMesh> least = TezIndexedMesh::CreateCylinder(4, 2, 1.0f, 1.0f, 1.0f);
    EXPECT_EQ(least->GetIndices(), small->GetIndices());
    EXPECT_EQ(16u, small->GetNumVertices());
    EXPECT_EQ(TezIndexedMesh::CreateFlatRing(4, 2, 1, 1)->GetIndices(),
              TezIndexedMesh::CreateFlatRing(-3, 2, 1, 1)->GetIndices());
}

TEST(TezIndexedMeshGenerators, ArrowLayout)
{
    int const n = 8;
    for (float rodLength : {0.6f, 1.5f}) {
        TezRef<TezIndexedMesh> arrow = TezIndexedMesh::CreateArrow(n, rodLength, 0.4f, 0.05f, 0.1f);
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(Vec(0, 0, 1), arrow->GetVertex(1 + 6 * n + i).position); // the tip
        // Block 0 starts at angle -pi; block 5 carries the cone normal.
        EXPECT_EQ(Vec(-0.05f, 0, 0), arrow->GetVertex(1).position);
        EXPECT_EQ(Vec(-0.1f, 0, rodLength), arrow->GetVertex(1 + 4 * n).position);
        Vec cone(-0.4f, 0.0f, 0.1f);
        cone.Normalize();
        EXPECT_EQ(cone, arrow->GetVertex(1 + 5 * n).normal);
        EXPECT_EQ(cone, arrow->GetVertex(1 + 6 * n).normal);
        EXPECT_EQ(Vec(-1, 0, 0), arrow->GetVertex(1 + n).normal);
        // Triangle k*n + i: the base fan and the cone.
        EXPECT_EQ((std::vector<unsigned int>{0, 2, 1}),
                  std::vector<unsigned int>(arrow->GetIndices().begin(), arrow->GetIndices().begin() + 3));
        size_t const cone0 = 3 * (5 * n + n - 1);
        EXPECT_EQ(
            (std::vector<unsigned int>{1 + 5 * n + n - 1, 1 + 5 * n, 1 + 6 * n + n - 1}),
            std::vector<unsigned int>(arrow->GetIndices().begin() + cone0, arrow->GetIndices().begin() + cone0 + 3));
    }
}

TEST(TezIndexedMeshGenerators, ClosedShapesWindOutwards)
{
    int const n = 64;
    double const r = 0.05, R = 0.1, L = 0.7, H = 0.3;
    EXPECT_NEAR(Polygon(n, r) * L + Polygon(n, R) * (1 - L) / 3,
                ClosedVolume(TezIndexedMesh::CreateArrow(n, float(L), float(H), float(r), float(R))), 1e-6);
    EXPECT_NEAR(Polygon(n, r) * 2 * L + 2 * Polygon(n, R) * H / 3,
                ClosedVolume(TezIndexedMesh::CreateDoubleArrow(n, float(L), float(H), float(r), float(R))), 1e-6);
    EXPECT_NEAR(4 * M_PI / 3, ClosedVolume(TezIndexedMesh::CreateSphere(64, 64)), 0.01);
    EXPECT_NEAR(2 * M_PI * M_PI * 1.0 * 0.25 * 0.25, ClosedVolume(TezIndexedMesh::CreateTorus(64, 64, 1.0f, 0.25f)),
                0.01);
    EXPECT_NEAR((Polygon(n - 1, 2) - Polygon(n - 1, 1)) * 0.5,
                ClosedVolume(TezIndexedMesh::CreateFlatRing(n, 2, 1, 0.5f)), 1e-5);
    EXPECT_NEAR((16.0 - 4.0) * 0.25, ClosedVolume(TezIndexedMesh::CreateFrame(2, 1, 0.25f)), 1e-5);

    // The sphere's normals are its positions; the quad faces +z.
    TezRef<TezIndexedMesh> sphere = TezIndexedMesh::CreateSphere(6, 9);
    for (size_t i = 0; i < sphere->GetNumVertices(); ++i)
        EXPECT_EQ(sphere->GetVertex(i).position, sphere->GetVertex(i).normal);
    TezRef<TezIndexedMesh> quad = TezIndexedMesh::CreateQuad(2, 1);
    EXPECT_FLOAT_EQ(8.0f, quad->ComputeSurfaceArea());
    EXPECT_EQ(Vec(0, 0, 1), quad->GetTriangle(1).ComputeNormal());
}

TEST(TezIndexedMeshGenerators, FlatRingAndFrameFacesPointTheirWay)
{
    for (TezRef<TezIndexedMesh> mesh :
         {TezIndexedMesh::CreateFlatRing(12, 2, 1, 0.5f), TezIndexedMesh::CreateFrame(2, 1, 0.5f)}) {
        for (size_t t = 0; t < mesh->GetNumTriangles(); ++t) {
            TezMeshTriangle const triangle = mesh->GetTriangle(t);
            if (triangle.ComputeArea() == 0.0f)
                continue;
            // Flat faces: each corner's stored normal is the face's normal.
            EXPECT_EQ(triangle.GetVertex(0).normal, triangle.ComputeNormal()) << "triangle " << t;
        }
    }
}
