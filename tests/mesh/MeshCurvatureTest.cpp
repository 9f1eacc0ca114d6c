#include "mesh/MeshCurvature.h"

#include "TopologyTestShapes.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace topology_test;

namespace {

TezRef<TezMeshCurvature> CurvatureOf(TezRef<TezIndexedMesh> mesh)
{
    return TezMeshCurvatureAnalyzer::Instance().Compute(TezTopologyMesh::Create(mesh));
}

void ExpectUnitTangents(TezMeshCurvature const& c, size_t v, Vec const& normal)
{
    Vec const& a = c.GetMaximumDirection(v);
    Vec const& b = c.GetMinimumDirection(v);
    EXPECT_NEAR(a.Length(), 1.0f, 1e-5f);
    EXPECT_NEAR(b.Length(), 1.0f, 1e-5f);
    EXPECT_NEAR(a * normal, 0.0f, 1e-5f);
    EXPECT_NEAR(b * normal, 0.0f, 1e-5f);
    EXPECT_NEAR(a * b, 0.0f, 1e-5f);
}

} // namespace

TEST(MeshCurvature, FlatGridHasNone)
{
    TezRef<TezIndexedMesh> mesh = Grid(6);
    TezRef<TezMeshCurvature> c = CurvatureOf(mesh);
    ASSERT_TRUE(c);
    ASSERT_EQ(c->GetNumVertices(), mesh->GetNumVertices());
    for (size_t v = 0; v < mesh->GetNumVertices(); ++v) {
        Vec const p = mesh->GetVertex(v).position;
        if (p.x == 0 || p.y == 0 || p.x == 6 || p.y == 6)
            continue; // the border's angle defect is no curvature
        EXPECT_NEAR(c->GetMeanCurvature(v), 0.0f, 1e-6f);
        EXPECT_NEAR(c->GetGaussianCurvature(v), 0.0f, 1e-5f);
        EXPECT_NEAR(c->GetMaximumCurvature(v), 0.0f, 1e-3f);
        EXPECT_NEAR(c->GetMinimumCurvature(v), 0.0f, 1e-3f);
        ExpectUnitTangents(*c, v, Vec(0, 0, 1));
    }
}

TEST(MeshCurvature, FineSphereHasOneOverRadius)
{
    float const radius = 2.0f;
    TezRef<TezIndexedMesh> mesh = Sphere(90, 180, radius);
    TezRef<TezMeshCurvature> c = CurvatureOf(mesh);
    int checked = 0;
    for (size_t v = 0; v < mesh->GetNumVertices(); v += 13) {
        Vec const p = mesh->GetVertex(v).position;
        if (std::fabs(p.z) > 0.8f * radius)
            continue;
        // Outward normals: the mean curvature takes their sign, -1/r.
        EXPECT_NEAR(c->GetMeanCurvature(v), -1.0f / radius, 2e-3f);
        EXPECT_NEAR(c->GetGaussianCurvature(v), 1.0f / (radius * radius), 5e-3f);
        EXPECT_NEAR(c->GetMaximumCurvature(v), -1.0f / radius, 0.05f);
        EXPECT_NEAR(c->GetMinimumCurvature(v), -1.0f / radius, 0.05f);
        ExpectUnitTangents(*c, v, mesh->GetVertex(v).normal);
        ++checked;
    }
    EXPECT_GT(checked, 500);
}

TEST(MeshCurvature, TubeCurvesAroundNotAlong)
{
    float const radius = 1.0f;
    TezRef<TezIndexedMesh> mesh = Tube(40, 64, radius, 4.0f);
    TezRef<TezMeshCurvature> c = CurvatureOf(mesh);
    for (size_t v = 64; v + 64 < mesh->GetNumVertices(); v += 3) {
        EXPECT_NEAR(c->GetMeanCurvature(v), -0.5f / radius, 0.02f);
        EXPECT_NEAR(c->GetGaussianCurvature(v), 0.0f, 1e-3f);
        EXPECT_NEAR(c->GetMaximumCurvature(v), 0.0f, 0.03f);
        EXPECT_NEAR(c->GetMinimumCurvature(v), -1.0f / radius, 0.03f);
        // The flattest direction runs along the axis.
        EXPECT_NEAR(std::fabs(c->GetMaximumDirection(v).z), 1.0f, 0.02f) << "vertex " << v;
        EXPECT_NEAR(c->GetMinimumDirection(v).z, 0.0f, 0.2f);
        ExpectUnitTangents(*c, v, mesh->GetVertex(v).normal);
    }
}

TEST(MeshCurvature, LoneVertexHasZeros)
{
    TezRef<TezIndexedMesh> mesh = Grid(2);
    unsigned int const lone = mesh->AddVertex(TezMeshVertex(Vec(5, 5, 5), Vec(0, 0, 1)));
    TezRef<TezMeshCurvature> c = CurvatureOf(mesh);
    EXPECT_EQ(c->GetMeanCurvature(lone), 0.0f);
    EXPECT_EQ(c->GetGaussianCurvature(lone), 0.0f);
    EXPECT_EQ(c->GetMaximumCurvature(lone), 0.0f);
    EXPECT_EQ(c->GetMinimumCurvature(lone), 0.0f);
    EXPECT_FALSE(TezMeshCurvatureAnalyzer::Instance().Compute(nullptr));
}
