#include "volume/VolumeTessellator.h"

#include "volume/MemoryVolume.h"
#include "volume/detail/MarchingCubesTables.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <tuple>

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

// Sets the method and the slab size for one scope.
struct MethodScope
{
    explicit MethodScope(TezVolumeTessellator::Method method, int slab = 0)
        : saved(TezVolumeTessellator::Instance().GetMethod())
    {
        TezVolumeTessellator::Instance().SetMethod(method);
        TezVolumeTessellator::Instance().SetSlabSize(slab);
    }
    ~MethodScope()
    {
        TezVolumeTessellator::Instance().SetMethod(saved);
        TezVolumeTessellator::Instance().SetSlabSize(0);
    }
    TezVolumeTessellator::Method saved;
};

// Everything that keeps a mesh from bounding a solid: edges of one triangle
// (holes), of three or more, an edge run twice in one direction (a flipped
// or folded triangle), triangles with repeated or equal corners, and
// distinct vertices at one position (which a file joins again).
struct SurfaceFaults
{
    size_t boundaryEdges = 0, crowdedEdges = 0, sameWayEdges = 0, degenerate = 0, duplicate = 0, coincident = 0;
    bool operator==(SurfaceFaults const& o) const
    {
        return std::tie(boundaryEdges, crowdedEdges, sameWayEdges, degenerate, duplicate, coincident) ==
               std::tie(o.boundaryEdges, o.crowdedEdges, o.sameWayEdges, o.degenerate, o.duplicate, o.coincident);
    }
};

std::ostream& operator<<(std::ostream& os, SurfaceFaults const& f)
{
    return os << "boundary " << f.boundaryEdges << ", crowded " << f.crowdedEdges << ", same-way " << f.sameWayEdges
              << ", degenerate " << f.degenerate << ", duplicate " << f.duplicate << ", coincident " << f.coincident;
}

// Sorted keys, counted in runs.
template <class Key, class Visit>
void ForEachRun(std::vector<Key>& keys, Visit visit)
{
    std::sort(keys.begin(), keys.end());
    for (size_t i = 0, j; i < keys.size(); i = j) {
        for (j = i + 1; j < keys.size() && keys[j] == keys[i];)
            ++j;
        visit(j - i);
    }
}

SurfaceFaults FaultsOf(TezIndexedMesh const& mesh)
{
    SurfaceFaults faults;
    std::vector<uint64_t> undirected, directed;
    std::vector<std::tuple<unsigned, unsigned, unsigned>> triangles;
    std::vector<unsigned int> const& idx = mesh.GetIndices();
    for (size_t t = 0; t + 2 < idx.size(); t += 3) {
        unsigned c[3] = {idx[t], idx[t + 1], idx[t + 2]};
        if (c[0] == c[1] || c[1] == c[2] || c[2] == c[0]) {
            ++faults.degenerate;
            continue;
        }
        for (int e = 0; e < 3; ++e) {
            uint64_t const a = c[e], b = c[(e + 1) % 3];
            undirected.push_back(std::min(a, b) << 32 | std::max(a, b));
            directed.push_back(a << 32 | b);
        }
        std::sort(c, c + 3);
        triangles.emplace_back(c[0], c[1], c[2]);
    }
    ForEachRun(undirected, [&](size_t n) {
        faults.boundaryEdges += n == 1;
        faults.crowdedEdges += n > 2;
    });
    ForEachRun(directed, [&](size_t n) { faults.sameWayEdges += n > 1; });
    ForEachRun(triangles, [&](size_t n) { faults.duplicate += n - 1; });
    std::vector<std::tuple<float, float, float>> positions;
    for (TezMeshVertex const& v : mesh.GetVertices())
        positions.emplace_back(v.position.x, v.position.y, v.position.z);
    ForEachRun(positions, [&](size_t n) { faults.coincident += n - 1; });
    return faults;
}

// A field sampled at the voxel centres, rounded and clamped to 0..255.
TezRef<TezCubeVolume> Sample(int n, std::function<double(double, double, double)> const& field)
{
    TezRef<TezCubeVolume> volume = MakeVolume(n, n, n);
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x)
                volume->SetValue(x, y, z, uint8_t(std::clamp(std::lround(field(x, y, z)), 0L, 255L)));
    return volume;
}

// Rising by `slope` a voxel towards the inside, 128 on the surface: many
// voxels land exactly on the threshold.
TezRef<TezCubeVolume> Ball(int n, double radius, double slope)
{
    double const c = n / 2.0;
    return Sample(n, [=](double x, double y, double z) {
        return 128.0 + slope * (radius - std::sqrt((x - c) * (x - c) + (y - c) * (y - c) + (z - c) * (z - c)));
    });
}

TezRef<TezCubeVolume> Torus(int n, double ring, double tube, double slope)
{
    double const c = n / 2.0;
    return Sample(n, [=](double x, double y, double z) {
        double const q = std::sqrt((x - c) * (x - c) + (y - c) * (y - c)) - ring;
        return 128.0 + slope * (tube - std::sqrt(q * q + (z - c) * (z - c)));
    });
}

// A gyroid, full of saddles, faded to zero towards the border.
TezRef<TezCubeVolume> Gyroid(int n, double period)
{
    double const k = 2.0 * M_PI / period, c = (n - 1) / 2.0;
    return Sample(n, [=](double x, double y, double z) {
        double const g =
            std::sin(k * x) * std::cos(k * y) + std::sin(k * y) * std::cos(k * z) + std::sin(k * z) * std::cos(k * x);
        double const r = std::max({std::abs(x - c), std::abs(y - c), std::abs(z - c)}) / c;
        double const fade = r < 0.7 ? 1.0 : std::max(0.0, 1.0 - (r - 0.7) / 0.25);
        return fade * (128.0 + 80.0 * g / 1.5);
    });
}

} // namespace

TEST(TezVolumeTessellator, EmptyForNullFlatAndConstantVolumes)
{
    TezVolumeTessellator& tessellator = TezVolumeTessellator::Instance();
    EXPECT_EQ(128, tessellator.GetIsoValue());
    EXPECT_EQ(TezVolumeTessellator::Method::Classic, tessellator.GetMethod());
    for (auto method : {TezVolumeTessellator::Method::Closed, TezVolumeTessellator::Method::Classic}) {
        MethodScope scope(method);
        EXPECT_EQ(0u, tessellator.Tessellate(nullptr)->GetNumIndices());
        EXPECT_EQ(0u, tessellator.Tessellate(MakeVolume(1, 5, 5, 200))->GetNumIndices());
        EXPECT_EQ(0u, tessellator.Tessellate(MakeVolume(5, 5, 1, 200))->GetNumIndices());
        for (uint8_t fill : {0, 127, 128, 255})
            EXPECT_EQ(0u, tessellator.Tessellate(MakeVolume(4, 3, 5, fill))->GetNumIndices());
    }
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
    MethodScope classic(TezVolumeTessellator::Method::Classic);
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

TEST(TezVolumeTessellator, ClassicMatchesThePlainAlgorithmExactly)
{
    MethodScope classic(TezVolumeTessellator::Method::Classic);
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
    TezRef<TezIndexedMesh> classic;
    {
        MethodScope scope(TezVolumeTessellator::Method::Classic);
        classic = TezVolumeTessellator::Instance().Tessellate(volume);
    }
    ExpectSameMesh(*Reference(*volume, 128), *classic);
    // With no voxel at the threshold the two methods differ only where
    // crossings of one edge round apart, and where cells see a face
    // differently; a smooth ball has no such faces.
    TezRef<TezIndexedMesh> closed = TezVolumeTessellator::Instance().Tessellate(volume);
    EXPECT_EQ(classic->GetNumTriangles(), closed->GetNumTriangles());
    for (TezRef<TezIndexedMesh> const& mesh : {classic, closed}) {
        TezMeshCheckResults check;
        EXPECT_TRUE(mesh->Check(check));
        EXPECT_NEAR(4.0 / 3.0 * M_PI * r * r * r, mesh->ComputeVolume(), 0.01 * 4.0 / 3.0 * M_PI * r * r * r);
        EXPECT_NEAR(4.0 * M_PI * r * r, mesh->ComputeSurfaceArea(), 0.02 * 4.0 * M_PI * r * r);
    }
    EXPECT_NEAR(classic->ComputeSurfaceArea(), closed->ComputeSurfaceArea(), 1e-4 * closed->ComputeSurfaceArea());
}

TEST(TezVolumeTessellator, SphereAndTorusAreClosedAtEverySlabSize)
{
    struct Shape
    {
        char const* name;
        TezRef<TezCubeVolume> volume;
        double volumeInside, tolerance;
    };
    // Gentle slopes put many voxels on the threshold and many crossings next
    // to voxel centres.
    // A tube two voxels thick loses a few percent to the sampling.
    Shape const shapes[] = {{"sphere", Ball(40, 14.0, 12.0), 4.0 / 3.0 * M_PI * 14 * 14 * 14, 0.02},
                            {"torus", Torus(40, 11.0, 5.0, 12.0), 2.0 * M_PI * M_PI * 11 * 5 * 5, 0.02},
                            {"thin torus", Torus(36, 10.0, 2.2, 40.0), 2.0 * M_PI * M_PI * 10 * 2.2 * 2.2, 0.06}};
    for (Shape const& shape : shapes) {
        TezRef<TezIndexedMesh> first;
        for (int slab : {0, 1, 2, 5, 13, 1000}) {
            SCOPED_TRACE(testing::Message() << shape.name << ", slab " << slab);
            MethodScope scope(TezVolumeTessellator::Method::Closed, slab);
            TezRef<TezIndexedMesh> mesh = TezVolumeTessellator::Instance().Tessellate(shape.volume);
            ASSERT_GT(mesh->GetNumTriangles(), 500u);
            EXPECT_EQ(SurfaceFaults(), FaultsOf(*mesh));
            EXPECT_NEAR(shape.volumeInside, mesh->ComputeVolume(), shape.tolerance * shape.volumeInside);
            if (!first)
                first = mesh;
            else
                ExpectSameMesh(*first, *mesh); // slabs change nothing
        }
    }
}

TEST(TezVolumeTessellator, SaddlesAndThresholdVoxelsLeaveNoFaults)
{
    // The classic table breaks this field at every threshold tried; the
    // closed method must not, at any.
    TezRef<TezCubeVolume> gyroid = Gyroid(40, 9.0);
    for (uint8_t iso : {100, 128, 150}) {
        IsoScope scope(iso);
        {
            MethodScope classic(TezVolumeTessellator::Method::Classic);
            SurfaceFaults const faults = FaultsOf(*TezVolumeTessellator::Instance().Tessellate(gyroid));
            EXPECT_GT(faults.boundaryEdges + faults.degenerate, 0u) << int(iso);
        }
        for (int slab : {0, 3}) {
            MethodScope closed(TezVolumeTessellator::Method::Closed, slab);
            TezRef<TezIndexedMesh> mesh = TezVolumeTessellator::Instance().Tessellate(gyroid);
            EXPECT_GT(mesh->GetNumTriangles(), 10000u);
            EXPECT_EQ(SurfaceFaults(), FaultsOf(*mesh)) << int(iso) << ", slab " << slab;
            TezMeshCheckResults check;
            EXPECT_TRUE(mesh->Check(check));
        }
    }

    // Noise inside a zero border: every case, every ambiguous face and
    // every voxel value next to the threshold, many times over.
    std::mt19937 random(5);
    uint8_t const values[] = {0, 90, 127, 128, 129, 255};
    std::uniform_int_distribution<int> pick(0, 5);
    for (int trial = 0; trial < 6; ++trial) {
        int const n = 6 + 3 * trial;
        TezRef<TezCubeVolume> noise = MakeVolume(n, n + 1, n + 2);
        for (int z = 1; z + 1 < n + 2; ++z)
            for (int y = 1; y + 1 < n + 1; ++y)
                for (int x = 1; x + 1 < n; ++x)
                    noise->SetValue(x, y, z, values[pick(random)]);
        MethodScope closed(TezVolumeTessellator::Method::Closed, 1 + trial % 3);
        TezRef<TezIndexedMesh> mesh = TezVolumeTessellator::Instance().Tessellate(noise);
        EXPECT_EQ(SurfaceFaults(), FaultsOf(*mesh)) << "trial " << trial;
        EXPECT_GT(mesh->ComputeVolume(), 0.0f);
    }
}

TEST(TezVolumeTessellator, ClosedMethodKeepsTheSimpleCasesAndStepsOffVoxelCentres)
{
    MethodScope closed(TezVolumeTessellator::Method::Closed);
    // A lone bright voxel is still eight triangles around it.
    TezRef<TezCubeVolume> single = MakeVolume(3, 3, 3);
    single->SetValue(1, 1, 1, 255);
    TezRef<TezIndexedMesh> octahedron = TezVolumeTessellator::Instance().Tessellate(single);
    EXPECT_EQ(8u, octahedron->GetNumTriangles());
    EXPECT_EQ(SurfaceFaults(), FaultsOf(*octahedron));
    EXPECT_GT(octahedron->ComputeVolume(), 0.0f);

    // A voxel at the threshold is inside: a small closed surface 1/64 of a
    // voxel around its centre rather than a triangle folded onto it.
    TezRef<TezCubeVolume> volume = MakeVolume(3, 3, 3);
    volume->SetValue(1, 1, 1, 128);
    TezRef<TezIndexedMesh> mesh = TezVolumeTessellator::Instance().Tessellate(volume);
    EXPECT_EQ(8u, mesh->GetNumTriangles());
    EXPECT_EQ(SurfaceFaults(), FaultsOf(*mesh));
    for (TezMeshVertex const& v : mesh->GetVertices())
        EXPECT_FLOAT_EQ(1.0f / 64.0f, (v.position - Vec(1.5f, 1.5f, 1.5f)).Length());
    // Below it, nothing.
    volume->SetValue(1, 1, 1, 127);
    EXPECT_EQ(0u, TezVolumeTessellator::Instance().Tessellate(volume)->GetNumIndices());
}

TEST(TezVolumeTessellator, SixteenBitVolumesAtTheirOwnThreshold)
{
    MethodScope closed(TezVolumeTessellator::Method::Closed);
    // A ball whose values only 16 bits can hold: everything below 256.
    int const n = 24;
    double const c = n / 2.0, r = 8.0;
    std::vector<uint16_t> fine(size_t(n) * n * n), coarse(fine.size());
    std::vector<uint8_t> bytes(fine.size());
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                double const d = std::sqrt((x - c) * (x - c) + (y - c) * (y - c) + (z - c) * (z - c));
                size_t const i = (size_t(z) * n + y) * n + x;
                fine[i] = uint16_t(std::clamp(std::lround(100.0 + 30.0 * (r - d)), 0L, 255L));
                bytes[i] = uint8_t(std::clamp(std::lround(128.0 + 30.0 * (r - d)), 0L, 255L));
                coarse[i] = uint16_t(bytes[i] * 257);
            }
    TezVolumeTessellator& tessellator = TezVolumeTessellator::Instance();
    TezRef<TezIndexedMesh> ball = tessellator.Tessellate(TezMemoryVolume::Create16(n, n, n, fine), 100);
    EXPECT_EQ(SurfaceFaults(), FaultsOf(*ball));
    EXPECT_NEAR(4.0 / 3.0 * M_PI * r * r * r, ball->ComputeVolume(), 0.03 * 4.0 / 3.0 * M_PI * r * r * r);

    // The same voxels at 8 bits and scaled to 16 give one mesh: crossings
    // and decisions depend on ratios alone.
    TezRef<TezIndexedMesh> eight = tessellator.Tessellate(TezMemoryVolume::Create8(n, n, n, bytes), 128);
    ExpectSameMesh(*eight, *tessellator.Tessellate(TezMemoryVolume::Create16(n, n, n, coarse), 128 * 257));
    TezRef<TezCubeVolume> cube = MakeVolume(n, n, n);
    std::copy(bytes.begin(), bytes.end(), cube->GetData());
    ExpectSameMesh(*eight, *tessellator.Tessellate(cube));

    EXPECT_THROW(tessellator.Tessellate(TezMemoryVolume::Create8(n, n, n, bytes), 256), std::runtime_error);
    EXPECT_THROW(tessellator.Tessellate(TezMemoryVolume::Create16(n, n, n, fine), 65536), std::runtime_error);
    EXPECT_THROW(tessellator.Tessellate(TezMemoryVolume::Create16(n, n, n, fine), -1), std::runtime_error);
    EXPECT_EQ(0u, tessellator.Tessellate(TezRef<TezMemoryVolume>(), 10)->GetNumIndices());
}
