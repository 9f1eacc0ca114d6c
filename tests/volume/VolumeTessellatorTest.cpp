#include "volume/VolumeTessellator.h"

#include "volume/detail/MarchingCubesTables.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using Vec = TezVector3<float>;

struct TezIndexedMeshInternals
{
    static void EliminateDuplicateVertices(TezIndexedMesh& m) { m.EliminateDuplicateVertices(); }
    static void MakeNormalsFromPositions(TezIndexedMesh& m) { m.MakeNormalsFromPositions(); }
};

namespace {

TezRef<TezCubeVolume> MakeVolume(int w, int h, int d, uint8_t fill = 0)
{
    TezRef<TezCubeVolume> volume = TezCubeVolume::Create();
    volume->Resize(TezVector3<int>(w, h, d));
    volume->Assign(fill);
    return volume;
}

// The algorithm as plainly as it can be written: every cell's triangles as
// loose vertices, then joined by position and given normals.
TezRef<TezIndexedMesh> Reference(TezCubeVolume const& volume, uint8_t iso)
{
    using namespace tez_detail;
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    TezVector3<int> const n = volume.Dimensions();
    for (int z = 0; z + 1 < n.z; ++z)
        for (int y = 0; y + 1 < n.y; ++y)
            for (int x = 0; x + 1 < n.x; ++x) {
                int c = 0;
                for (int i = 0; i < 8; ++i)
                    if (volume.GetValue(x + kCornerOffset[i][0], y + kCornerOffset[i][1], z + kCornerOffset[i][2]) <
                        iso)
                        c |= 1 << i;
                Vec crossing[12];
                for (int e = 0; e < 12; ++e) {
                    if (!(kEdgeTable[c] & (1 << e)))
                        continue;
                    int const* oa = kCornerOffset[kEdgeCorners[e][0]];
                    int const* ob = kCornerOffset[kEdgeCorners[e][1]];
                    int const a[3] = {x + oa[0], y + oa[1], z + oa[2]}, b[3] = {x + ob[0], y + ob[1], z + ob[2]};
                    int const va = volume.GetValue(a[0], a[1], a[2]), vb = volume.GetValue(b[0], b[1], b[2]);
                    float const t = static_cast<float>(iso - va) / static_cast<float>(vb - va);
                    for (int k = 0; k < 3; ++k)
                        crossing[e][k] = static_cast<float>(a[k]) + static_cast<float>(b[k] - a[k]) * t + 0.5f;
                }
                for (int i = 0; kTriangleTable[c][i] >= 0; ++i) {
                    unsigned int const index =
                        mesh->AddVertex(TezMeshVertex(crossing[kTriangleTable[c][i]], Vec(0, 0, 1)));
                    mesh->GetIndices().push_back(index);
                }
            }
    TezIndexedMeshInternals::EliminateDuplicateVertices(*mesh);
    TezIndexedMeshInternals::MakeNormalsFromPositions(*mesh);
    return mesh;
}

void ExpectSameMesh(TezIndexedMesh const& expected, TezIndexedMesh const& actual)
{
    ASSERT_EQ(expected.GetIndices(), actual.GetIndices());
    ASSERT_EQ(expected.GetNumVertices(), actual.GetNumVertices());
    for (size_t i = 0; i < expected.GetNumVertices(); ++i) {
        Vec const& p = expected.GetVertex(i).position;
        Vec const& q = actual.GetVertex(i).position;
        ASSERT_TRUE(p.x == q.x && p.y == q.y && p.z == q.z) << "vertex " << i;
        ASSERT_EQ(expected.GetVertex(i).normal, actual.GetVertex(i).normal) << "vertex " << i;
    }
}

struct IsoScope
{
    explicit IsoScope(uint8_t iso) : saved(TezVolumeTessellator::Instance().GetIsoValue())
    {
        TezVolumeTessellator::Instance().SetIsoValue(iso);
    }
    ~IsoScope() { TezVolumeTessellator::Instance().SetIsoValue(saved); }
    uint8_t saved;
};

} // namespace

TEST(TezVolumeTessellator, EmptyForNullFlatAndConstantVolumes)
{
    TezVolumeTessellator& tessellator = TezVolumeTessellator::Instance();
    EXPECT_EQ(128, tessellator.GetIsoValue());
    EXPECT_EQ(0u, tessellator.Tessellate(nullptr)->GetNumIndices());
    EXPECT_EQ(0u, tessellator.Tessellate(MakeVolume(1, 5, 5, 200))->GetNumIndices());
    EXPECT_EQ(0u, tessellator.Tessellate(MakeVolume(5, 5, 1, 200))->GetNumIndices());
    for (uint8_t fill : {0, 127, 128, 255})
        EXPECT_EQ(0u, tessellator.Tessellate(MakeVolume(4, 3, 5, fill))->GetNumIndices());
}

TEST(TezVolumeTessellator, SingleVoxelGivesAClosedOctahedron)
{
    TezRef<TezCubeVolume> volume = MakeVolume(3, 3, 3);
    volume->SetValue(1, 1, 1, 255);
    TezRef<TezIndexedMesh> mesh = TezVolumeTessellator::Instance().Tessellate(volume);
    EXPECT_EQ(8u, mesh->GetNumTriangles());
    EXPECT_EQ(6u, mesh->GetNumVertices());
    TezMeshCheckResults check;
    EXPECT_TRUE(mesh->Check(check));
    EXPECT_GT(mesh->ComputeVolume(), 0.0f); // normals point out, towards the zeros
    for (size_t i = 0; i < mesh->GetNumVertices(); ++i) {
        Vec const offset = mesh->GetVertex(i).position - Vec(1.5f, 1.5f, 1.5f);
        EXPECT_NEAR(127.0f / 255.0f, offset.Length(), 1e-6); // from the zeros' side
        EXPECT_GT(mesh->GetVertex(i).normal * offset, 0.99f * offset.Length());
    }
}

TEST(TezVolumeTessellator, AVoxelAtTheThresholdIsInside)
{
    TezRef<TezCubeVolume> volume = MakeVolume(2, 2, 2);
    volume->SetValue(1, 0, 1, 128);
    TezRef<TezIndexedMesh> mesh = TezVolumeTessellator::Instance().Tessellate(volume);
    // Its three crossings all lie at its centre: one vertex, one triangle of
    // three equal indices.
    ASSERT_EQ(1u, mesh->GetNumVertices());
    EXPECT_EQ(Vec(1.5f, 0.5f, 1.5f), mesh->GetVertex(0).position);
    EXPECT_EQ((std::vector<unsigned int>{0, 0, 0}), mesh->GetIndices());
    volume->SetValue(1, 0, 1, 127);
    EXPECT_EQ(0u, TezVolumeTessellator::Instance().Tessellate(volume)->GetNumIndices());
}

TEST(TezVolumeTessellator, MatchesThePlainAlgorithmExactly)
{
    std::mt19937 random(11);
    // Few distinct values, the threshold among them: crossings at voxel
    // centres, in both directions along x and y, and every case.
    uint8_t const values[] = {0, 40, 128, 129, 200, 255};
    std::uniform_int_distribution<int> pick(0, 5);
    for (int trial = 0; trial < 12; ++trial) {
        int const w = 3 + trial % 9, h = 4 + trial % 5, d = 2 + trial % 7;
        TezRef<TezCubeVolume> volume = MakeVolume(w, h, d);
        for (int z = 0; z < d; ++z)
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    volume->SetValue(x, y, z, values[pick(random)]);
        for (uint8_t iso : {128, 129, 1}) {
            IsoScope scope(iso);
            SCOPED_TRACE(testing::Message() << w << "x" << h << "x" << d << " iso " << int(iso));
            ExpectSameMesh(*Reference(*volume, iso), *TezVolumeTessellator::Instance().Tessellate(volume));
        }
    }
}

TEST(TezVolumeTessellator, BallIsWatertightWithTheRightVolume)
{
    int const n = 40;
    double const r = 14.0, c = n / 2.0;
    TezRef<TezCubeVolume> volume = MakeVolume(n, n, n);
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                double const d = std::sqrt((x - c) * (x - c) + (y - c) * (y - c) + (z - c) * (z - c));
                uint8_t const v = static_cast<uint8_t>(std::clamp(128.0 + 40.0 * (r - d), 0.0, 255.0));
                // Voxels at the threshold would fold triangles onto their
                // centres; this ball has none.
                volume->SetValue(x, y, z, v == 128 ? 129 : v);
            }
    TezRef<TezIndexedMesh> mesh = TezVolumeTessellator::Instance().Tessellate(volume);
    ExpectSameMesh(*Reference(*volume, 128), *mesh);
    TezMeshCheckResults check;
    EXPECT_TRUE(mesh->Check(check));
    EXPECT_NEAR(4.0 / 3.0 * M_PI * r * r * r, mesh->ComputeVolume(), 0.01 * 4.0 / 3.0 * M_PI * r * r * r);
    EXPECT_NEAR(4.0 * M_PI * r * r, mesh->ComputeSurfaceArea(), 0.02 * 4.0 * M_PI * r * r);
}
