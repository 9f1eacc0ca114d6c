#include "volume/detail/ClosedMarchingCubes.h"

#include "core/Progress.h"
#include "volume/detail/MarchingCubesTables.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace tez_detail {

namespace {

using Vec = TezVector3<float>;

constexpr uint32_t kNone = 0xffffffffu;

// How close a crossing may come to a voxel centre, in voxels. Far enough for
// single-precision coordinates up to 65536 to stay apart from the centre.
constexpr float kMargin = 1.0f / 64.0f;

// The faces of a cell, corners counterclockwise seen from outside the cell:
// z = 0, z = 1, y = 0, y = 1, x = 0, x = 1.
constexpr int kFaceCorners[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {3, 7, 6, 2}, {0, 4, 7, 3}, {1, 2, 6, 5}};

constexpr int EdgeBetween(int a, int b)
{
    for (int e = 0; e < 12; ++e)
        if ((kEdgeCorners[e][0] == a && kEdgeCorners[e][1] == b) ||
            (kEdgeCorners[e][0] == b && kEdgeCorners[e][1] == a))
            return e;
    return -1;
}

// The surface polygons of one cell as cycles of crossed edges: at most four
// cycles (each takes three edges or more), twelve edges in all.
struct Loops
{
    int count = 0;
    int length[4] = {};
    int edges[12] = {};
};

// Bit i of `below` is corner i below the threshold; bit f of `joined` says
// that ambiguous face f joins its inside corners through its centre. On each
// face a segment runs from the edge where the inside is left (walking the
// face counterclockwise) to the edge where it is entered. Every crossed edge
// is left on one of its two faces and entered on the other, so the segments
// close into cycles; the two cells on a face see its segments reversed.
constexpr Loops BuildLoops(int below, int joined)
{
    int next[12] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
    for (int f = 0; f < 6; ++f) {
        bool in[4] = {};
        int edge[4] = {};
        for (int k = 0; k < 4; ++k) {
            in[k] = !(below >> kFaceCorners[f][k] & 1);
            edge[k] = EdgeBetween(kFaceCorners[f][k], kFaceCorners[f][(k + 1) % 4]);
        }
        bool const ambiguous = in[0] == in[2] && in[1] == in[3] && in[0] != in[1];
        for (int k = 0; k < 4; ++k) {
            if (!in[k] || in[(k + 1) % 4])
                continue;
            int entry = 0;
            if (!ambiguous) {
                for (int j = 0; j < 4; ++j)
                    if (!in[j] && in[(j + 1) % 4])
                        entry = j;
            } else if (joined >> f & 1) {
                entry = (k + 1) % 4; // around the outside corner k + 1
            } else {
                entry = (k + 3) % 4; // around the inside corner k
            }
            next[edge[k]] = edge[entry];
        }
    }
    Loops loops;
    bool seen[12] = {};
    int used = 0;
    for (int start = 0; start < 12; ++start) {
        if (next[start] < 0 || seen[start])
            continue;
        int n = 0;
        for (int e = start; !seen[e]; e = next[e]) {
            seen[e] = true;
            loops.edges[used + n++] = e;
        }
        loops.length[loops.count++] = n;
        used += n;
    }
    return loops;
}

constexpr bool FaceIsAmbiguous(int below, int f)
{
    int const b0 = below >> kFaceCorners[f][0] & 1, b1 = below >> kFaceCorners[f][1] & 1;
    int const b2 = below >> kFaceCorners[f][2] & 1, b3 = below >> kFaceCorners[f][3] & 1;
    return b0 == b2 && b1 == b3 && b0 != b1;
}

// By case: the faces that need the decider, and for cases with none the
// triangles as edge triples closed by -1, each polygon fanned from its first
// edge and wound with the normal towards the corners below the threshold.
struct ClosedTables
{
    unsigned char ambiguousFaces[256];
    signed char triangles[256][31];
    constexpr ClosedTables() : ambiguousFaces(), triangles()
    {
        for (int c = 0; c < 256; ++c) {
            int mask = 0;
            for (int f = 0; f < 6; ++f)
                if (FaceIsAmbiguous(c, f))
                    mask |= 1 << f;
            ambiguousFaces[c] = static_cast<unsigned char>(mask);
            int n = 0;
            if (mask == 0) {
                Loops const loops = BuildLoops(c, 0);
                int const* edges = loops.edges;
                for (int l = 0; l < loops.count; edges += loops.length[l++])
                    for (int i = 1; i + 1 < loops.length[l]; ++i) {
                        triangles[c][n++] = static_cast<signed char>(edges[0]);
                        triangles[c][n++] = static_cast<signed char>(edges[i + 1]);
                        triangles[c][n++] = static_cast<signed char>(edges[i]);
                    }
            }
            triangles[c][n] = -1;
        }
    }
};
constexpr ClosedTables kClosed;

// Whether the saddle of the bilinear interpolant over a face with values q0
// to q3 around it lies at or above the threshold. Only asked of faces whose
// inside corners are diagonal, where q0 + q2 - q1 - q3 cannot be 0; in
// integers, so that both cells on the face get the same answer.
bool CentreIsInside(int64_t q0, int64_t q1, int64_t q2, int64_t q3, int64_t iso)
{
    int64_t const numerator = q0 * q2 - q1 * q3;
    int64_t const denominator = q0 + q2 - q1 - q3;
    return denominator > 0 ? numerator >= iso * denominator : numerator <= iso * denominator;
}

// One slab: the cells of layers z0 to z1 - 1. Vertices are local; those on
// x and y edges of the slab's first and last voxel layers are listed by edge,
// for joining with the neighbouring slabs.
template <class T>
class Slab
{
public:
    Slab(T const* voxels, int width, int height, int iso, int z0, int z1)
        : m_data(voxels), m_w(width), m_h(height), m_iso(iso), m_z0(z0), m_z1(z1)
    {
    }

    struct EdgeVertex
    {
        uint64_t edge;
        uint32_t vertex;
        bool operator<(EdgeVertex const& other) const { return edge < other.edge; }
    };

    std::vector<Vec> positions;
    std::vector<uint32_t> indices;
    std::vector<EdgeVertex> bottom, top;

    void Run()
    {
        size_t const W = size_t(m_w), H = size_t(m_h), layer = W * H;
        m_xEdges.assign(2 * layer, kNone);
        m_yEdges.assign(2 * layer, kNone);
        m_zEdges.assign(layer, kNone);
        std::vector<uint8_t> columns(W + 16, 0);
        for (int z = m_z0; z < m_z1; ++z) {
            m_layerStart[(z + 1) & 1] = Count();
            m_slabStart = Count();
            for (int y = 0; y + 1 < m_h; ++y) {
                T const* r00 = m_data + (H * size_t(z) + size_t(y)) * W;
                T const* r10 = r00 + W;
                T const* r01 = r00 + layer;
                T const* r11 = r01 + W;
                int const iso = m_iso;
                for (size_t x = 0; x < W; ++x)
                    columns[x] =
                        uint8_t((r00[x] < iso) | (r10[x] < iso) << 1 | (r01[x] < iso) << 2 | (r11[x] < iso) << 3);
                MarchRow(y, z, columns.data());
            }
        }
        // Thin slabs are many; only their results may stay.
        std::vector<uint32_t>().swap(m_xEdges);
        std::vector<uint32_t>().swap(m_yEdges);
        std::vector<uint32_t>().swap(m_zEdges);
    }

private:
    uint32_t Count() const { return static_cast<uint32_t>(positions.size()); }

    T Value(int x, int y, int z) const
    {
        return m_data[(size_t(m_h) * size_t(z) + size_t(y)) * size_t(m_w) + size_t(x)];
    }

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
                if (kClosed.ambiguousFaces[c] == 0) {
                    signed char const* row = kClosed.triangles[c];
                    for (int i = 0; row[i] >= 0; ++i)
                        indices.push_back(Vertex(row[i], x, y, z));
                } else {
                    AmbiguousCell(c, x, y, z);
                }
            }
            ++x;
        }
    }

    void AmbiguousCell(int c, int x, int y, int z)
    {
        int joined = 0;
        for (int f = 0; f < 6; ++f) {
            if (!(kClosed.ambiguousFaces[c] >> f & 1))
                continue;
            int64_t q[4];
            for (int k = 0; k < 4; ++k) {
                int const* o = kCornerOffset[kFaceCorners[f][k]];
                q[k] = Value(x + o[0], y + o[1], z + o[2]);
            }
            if (CentreIsInside(q[0], q[1], q[2], q[3], m_iso))
                joined |= 1 << f;
        }
        Loops const loops = BuildLoops(c, joined);
        int const* edges = loops.edges;
        for (int l = 0; l < loops.count; edges += loops.length[l++]) {
            int const n = loops.length[l];
            uint32_t ids[12];
            for (int i = 0; i < n; ++i)
                ids[i] = Vertex(edges[i], x, y, z);
            if (n == 3) {
                indices.insert(indices.end(), {ids[0], ids[2], ids[1]});
                continue;
            }
            // A vertex of the cell's own: no triangle or edge of this polygon
            // then lies in a face, where the neighbour could repeat it.
            Vec centre(0.0f, 0.0f, 0.0f);
            for (int i = 0; i < n; ++i)
                centre += positions[ids[i]];
            positions.push_back(centre * (1.0f / static_cast<float>(n)));
            uint32_t const middle = Count() - 1;
            for (int i = 0; i < n; ++i)
                indices.insert(indices.end(), {middle, ids[(i + 1) % n], ids[i]});
        }
    }

    // The crossing on the edge from lattice point lo along the axis.
    Vec Crossing(int const lo[3], int axis, int vlo, int vhi) const
    {
        float const t =
            std::clamp(static_cast<float>(m_iso - vlo) / static_cast<float>(vhi - vlo), kMargin, 1.0f - kMargin);
        Vec p(static_cast<float>(lo[0]) + 0.5f, static_cast<float>(lo[1]) + 0.5f, static_cast<float>(lo[2]) + 0.5f);
        p[axis] = static_cast<float>(lo[axis]) + t + 0.5f;
        return p;
    }

    uint32_t Vertex(int e, int x, int y, int z)
    {
        EdgePlace const& place = kEdgePlaces.value[e];
        int const lo[3] = {x + place.dx, y + place.dy, z + place.dz};
        size_t const W = size_t(m_w), H = size_t(m_h);
        uint32_t* id;
        if (place.axis == 2) {
            id = &m_zEdges[size_t(lo[1]) * W + size_t(lo[0])];
            if (*id != kNone && *id >= m_slabStart)
                return *id;
        } else {
            std::vector<uint32_t>& cache = place.axis == 0 ? m_xEdges : m_yEdges;
            id = &cache[((size_t(lo[2]) & 1) * H + size_t(lo[1])) * W + size_t(lo[0])];
            if (*id != kNone && *id >= m_layerStart[lo[2] & 1])
                return *id;
        }
        int const hi[3] = {lo[0] + (place.axis == 0), lo[1] + (place.axis == 1), lo[2] + (place.axis == 2)};
        positions.push_back(Crossing(lo, place.axis, Value(lo[0], lo[1], lo[2]), Value(hi[0], hi[1], hi[2])));
        *id = Count() - 1;
        if (place.axis != 2 && (lo[2] == m_z0 || lo[2] == m_z1)) {
            EdgeVertex const entry{(uint64_t(lo[1]) * W + uint64_t(lo[0])) << 1 | uint64_t(place.axis), *id};
            (lo[2] == m_z0 ? bottom : top).push_back(entry);
        }
        return *id;
    }

    T const* m_data;
    int m_w, m_h;
    int m_iso;
    int m_z0, m_z1;
    // Vertex caches, reused layer by layer without clearing: an entry counts
    // only when its number is at least the first number given out while its
    // layer was in use.
    uint32_t m_layerStart[2] = {0, 0};
    uint32_t m_slabStart = 0;
    std::vector<uint32_t> m_xEdges, m_yEdges, m_zEdges;
};

} // namespace

template <class T>
void MarchClosed(T const* voxels, int width, int height, int depth, int isoValue, int slab,
                 std::vector<TezMeshVertex>& vertices, std::vector<unsigned int>& indices)
{
    vertices.clear();
    indices.clear();
    if (!voxels || width < 2 || height < 2 || depth < 2)
        return;
    int const layers = depth - 1;
    slab = std::clamp(slab, 1, layers);
    int const count = (layers + slab - 1) / slab;
    std::vector<Slab<T>> slabs;
    slabs.reserve(size_t(count));
    for (int s = 0; s < count; ++s)
        slabs.emplace_back(voxels, width, height, isoValue, s * slab, std::min(layers, (s + 1) * slab));
    // One progress step a slab; once the host asks to stop, the slabs left
    // are skipped and the mesh stays empty.
    TezProgress progress("marching cubes", uint64_t(count));
    tbb::parallel_for(0, count, [&](int s) {
        if (progress.StopRequested())
            return;
        slabs[size_t(s)].Run();
        progress.Step();
    });
    progress.End();
    if (progress.StopRequested())
        return;

    // A bottom vertex of slab s is the top vertex of slab s - 1 on the same
    // edge: both slabs have triangles on every crossed edge of that layer.
    std::vector<std::vector<uint32_t>> same(static_cast<size_t>(count));
    for (int s = 1; s < count; ++s) {
        auto& top = slabs[size_t(s) - 1].top;
        auto& bottom = slabs[size_t(s)].bottom;
        std::sort(top.begin(), top.end());
        std::sort(bottom.begin(), bottom.end());
        same[size_t(s)].assign(slabs[size_t(s)].positions.size(), kNone);
        auto t = top.begin();
        for (auto const& b : bottom) {
            while (t != top.end() && t->edge < b.edge)
                ++t;
            if (t != top.end() && t->edge == b.edge)
                same[size_t(s)][b.vertex] = t->vertex;
        }
    }

    // Numbers in the order the triangles first use the vertices, slab after
    // slab: the same for any slab size.
    size_t total = 0;
    for (Slab<T> const& s : slabs)
        total += s.indices.size();
    indices.reserve(total);
    std::vector<uint32_t> previous, current;
    for (int s = 0; s < count; ++s) {
        Slab<T>& here = slabs[size_t(s)];
        current.assign(here.positions.size(), kNone);
        std::vector<uint32_t> const& alias = same[size_t(s)];
        for (uint32_t local : here.indices) {
            uint32_t const other = alias.empty() ? kNone : alias[local];
            uint32_t& number = other != kNone ? previous[other] : current[local];
            if (number == kNone) {
                number = static_cast<uint32_t>(vertices.size());
                vertices.emplace_back(other != kNone ? slabs[size_t(s) - 1].positions[other] : here.positions[local],
                                      Vec(0.0f, 0.0f, 0.0f));
            }
            indices.push_back(number);
        }
        std::vector<uint32_t>().swap(here.indices);
        if (s > 0)
            std::vector<Vec>().swap(slabs[size_t(s) - 1].positions);
        previous.swap(current);
    }
}

template void MarchClosed<uint8_t>(uint8_t const*, int, int, int, int, int, std::vector<TezMeshVertex>&,
                                   std::vector<unsigned int>&);
template void MarchClosed<uint16_t>(uint16_t const*, int, int, int, int, int, std::vector<TezMeshVertex>&,
                                    std::vector<unsigned int>&);

} // namespace tez_detail
