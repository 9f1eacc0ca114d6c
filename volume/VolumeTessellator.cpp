#include "volume/VolumeTessellator.h"

#include "volume/MemoryVolume.h"
#include "volume/detail/ClosedMarchingCubes.h"
#include "volume/detail/MarchingCubesTables.h"

#include <tbb/task_arena.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

// The classic method. Joining crossings of equal position is what makes the
// mesh one surface. Doing it with a map over every triangle corner would
// cost more than the marching itself, so vertices are found through caches
// instead: a crossing
// inside an edge can only coincide with a crossing of the same edge (cells
// interpolate x and y edges in either direction, so each such edge keeps one
// vertex per direction, and the two are one vertex when their floats agree),
// and a crossing at an end of its edge (a voxel equal to the threshold) is
// the voxel's centre, shared by every edge that meets there. The caches hold
// two z layers of voxels and one slab of z edges; an entry counts only when
// its vertex number is at least the first number given out while its layer
// was in use, so layers are reused without clearing.

namespace {

using Vec = TezVector3<float>;
using tez_detail::kCornerOffset;
using tez_detail::kEdgeCorners;
using tez_detail::kTriangleTable;

constexpr uint32_t kNone = 0xffffffffu;

using tez_detail::EdgePlace;
using tez_detail::kColumnCases;
using tez_detail::kEdgePlaces;

template <class T>
class Marcher
{
public:
    Marcher(T const* voxels, TezVector3<int> const& size, int iso)
        : m_data(voxels), m_w(size.x), m_h(size.y), m_d(size.z), m_iso(iso)
    {
        size_t const layer = size_t(m_w) * size_t(m_h);
        m_xEdges.assign(2 * layer * 2, kNone);
        m_yEdges.assign(2 * layer * 2, kNone);
        m_corners.assign(2 * layer, kNone);
        m_zEdges.assign(layer, kNone);
        m_columns.assign(size_t(m_w) + 16, 0);
    }

    void Run()
    {
        size_t const W = size_t(m_w), H = size_t(m_h);
        m_layerStart[0] = 0;
        for (int z = 0; z + 1 < m_d; ++z) {
            m_layerStart[(z + 1) & 1] = Count();
            m_slabStart = Count();
            for (int y = 0; y + 1 < m_h; ++y) {
                T const* r00 = m_data + (H * size_t(z) + size_t(y)) * W;
                T const* r10 = r00 + W;
                T const* r01 = r00 + W * H;
                T const* r11 = r01 + W;
                uint8_t* col = m_columns.data();
                int const iso = m_iso;
                for (size_t x = 0; x < W; ++x)
                    col[x] = uint8_t((r00[x] < iso) | (r10[x] < iso) << 1 | (r01[x] < iso) << 2 | (r11[x] < iso) << 3);
                MarchRow(y, z, col);
            }
        }
    }

    // Positions, normals zero until the mesh makes them.
    std::vector<TezMeshVertex> vertices;
    std::vector<unsigned int> indices;

private:
    uint32_t Count() const { return static_cast<uint32_t>(vertices.size()); }

    void MarchRow(int y, int z, uint8_t const* col)
    {
        int const last = m_w - 1;
        int x = 0;
        while (x < last) {
            // Eight cells at a time through uniform stretches.
            if (x + 9 <= m_w) {
                uint64_t here, next;
                std::memcpy(&here, col + x, 8);
                std::memcpy(&next, col + x + 1, 8);
                if (here == next && (here == 0 || here == 0x0f0f0f0f0f0f0f0full)) {
                    x += 8;
                    continue;
                }
            }
            int const c = kColumnCases.value[col[x] | col[x + 1] << 4];
            if (c != 0 && c != 255) {
                signed char const* row = kTriangleTable[c];
                for (int i = 0; row[i] >= 0; ++i)
                    indices.push_back(Vertex(row[i], x, y, z));
            }
            ++x;
        }
    }

    T Value(int x, int y, int z) const
    {
        return m_data[(size_t(m_h) * size_t(z) + size_t(y)) * size_t(m_w) + size_t(x)];
    }

    // The crossing on edge (a, b), interpolated from a towards b.
    Vec Crossing(int const a[3], int const b[3], int va, int vb) const
    {
        float const t = static_cast<float>(m_iso - va) / static_cast<float>(vb - va);
        return Vec(static_cast<float>(a[0]) + static_cast<float>(b[0] - a[0]) * t + 0.5f,
                   static_cast<float>(a[1]) + static_cast<float>(b[1] - a[1]) * t + 0.5f,
                   static_cast<float>(a[2]) + static_cast<float>(b[2] - a[2]) * t + 0.5f);
    }

    uint32_t Add(Vec const& p)
    {
        vertices.emplace_back(p, Vec(0.0f, 0.0f, 0.0f));
        return Count() - 1;
    }

    static bool Same(Vec const& p, Vec const& q) { return p.x == q.x && p.y == q.y && p.z == q.z; }

    uint32_t Vertex(int e, int x, int y, int z)
    {
        int const* ca = kCornerOffset[kEdgeCorners[e][0]];
        int const* cb = kCornerOffset[kEdgeCorners[e][1]];
        int const a[3] = {x + ca[0], y + ca[1], z + ca[2]};
        int const b[3] = {x + cb[0], y + cb[1], z + cb[2]};
        int const va = Value(a[0], a[1], a[2]);
        int const vb = Value(b[0], b[1], b[2]);
        size_t const W = size_t(m_w), H = size_t(m_h);

        // At an end of the edge: that voxel's centre.
        if (va == m_iso || vb == m_iso) {
            int const* g = va == m_iso ? a : b;
            uint32_t& id = m_corners[((size_t(g[2]) & 1) * H + size_t(g[1])) * W + size_t(g[0])];
            if (id == kNone || id < m_layerStart[g[2] & 1])
                id = Add(Crossing(a, b, va, vb));
            return id;
        }

        EdgePlace const& place = kEdgePlaces.value[e];
        int const lx = x + place.dx, ly = y + place.dy, lz = z + place.dz;
        if (place.axis == 2) {
            uint32_t& id = m_zEdges[size_t(ly) * W + size_t(lx)];
            if (id == kNone || id < m_slabStart)
                id = Add(Crossing(a, b, va, vb));
            return id;
        }
        std::vector<uint32_t>& cache = place.axis == 0 ? m_xEdges : m_yEdges;
        size_t const slot = (((size_t(lz) & 1) * H + size_t(ly)) * W + size_t(lx)) * 2;
        uint32_t const start = m_layerStart[lz & 1];
        uint32_t& id = cache[slot + (place.downwards ? 1 : 0)];
        if (id != kNone && id >= start)
            return id;
        Vec const p = Crossing(a, b, va, vb);
        uint32_t const other = cache[slot + (place.downwards ? 0 : 1)];
        if (other != kNone && other >= start && Same(vertices[other].position, p))
            id = other;
        else
            id = Add(p);
        return id;
    }

    T const* m_data;
    int m_w, m_h, m_d;
    int m_iso;
    uint32_t m_layerStart[2] = {0, 0};
    uint32_t m_slabStart = 0;
    std::vector<uint32_t> m_xEdges, m_yEdges, m_corners, m_zEdges;
    std::vector<uint8_t> m_columns;
};

} // namespace

TezVolumeTessellator& TezVolumeTessellator::Instance()
{
    static TezVolumeTessellator instance;
    return instance;
}

TezRef<TezIndexedMesh> TezVolumeTessellator::Tessellate(TezRef<TezCubeVolume> volume)
{
    if (!volume || !volume->GetData())
        return TezIndexedMesh::CreateEmpty();
    return Run(volume->GetData(), volume->Dimensions(), m_isoValue);
}

TezRef<TezIndexedMesh> TezVolumeTessellator::Tessellate(TezRef<TezMemoryVolume> volume, int isoValue)
{
    int const bits = volume ? volume->GetBitsPerPixel() : 8;
    int const top = bits == 16 ? 65535 : 255;
    if (isoValue < 0 || isoValue > top)
        throw std::runtime_error("TezVolumeTessellator::Tessellate: threshold " + std::to_string(isoValue) +
                                 " is outside 0 to " + std::to_string(top) + " of " + std::to_string(bits) +
                                 "-bit voxels");
    if (!volume || !volume->IsValid())
        return TezIndexedMesh::CreateEmpty();
    TezVector3<int> const size(volume->GetWidth(), volume->GetHeight(), volume->GetDepth());
    if (bits == 16)
        return Run(volume->Data16(), size, isoValue);
    return Run(volume->Data8(), size, isoValue);
}

template <class T>
TezRef<TezIndexedMesh> TezVolumeTessellator::Run(T const* voxels, TezVector3<int> const& size, int isoValue)
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    if (!voxels || size.x < 2 || size.y < 2 || size.z < 2)
        return mesh;
    if (m_method == Method::Classic) {
        Marcher<T> marcher(voxels, size, isoValue);
        marcher.Run();
        mesh->GetVertices().swap(marcher.vertices);
        mesh->GetIndices().swap(marcher.indices);
    } else {
        // A few slabs per thread evens out the work; slabs too thin would
        // spend more on their caches than on cells.
        int slab = m_slabSize;
        if (slab == 0) {
            int const threads = std::max(1, tbb::this_task_arena::max_concurrency());
            slab = std::max(16, (size.z - 1 + 4 * threads - 1) / (4 * threads));
        }
        tez_detail::MarchClosed(voxels, size.x, size.y, size.z, isoValue, slab, mesh->GetVertices(),
                                mesh->GetIndices());
    }
    mesh->MakeNormalsFromPositions();
    return mesh;
}
