#include "mesh/IndexedMesh.h"

#include "core/Progress.h"
#include "mesh/MeshIndexList.h"
#include "mesh/detail/PositionMap.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>

TEZ_DEFINE_REF_FUNCTIONS(TezIndexedMesh)

namespace {

// A triangle's indices sorted ascending, packed for hashing: winding and
// starting corner do not matter.
struct SortedTriple
{
    unsigned int a, b, c;
    bool operator==(SortedTriple const& o) const { return a == o.a && b == o.b && c == o.c; }
};

SortedTriple Sorted(unsigned int const* t)
{
    unsigned int a = t[0], b = t[1], c = t[2];
    if (a > b)
        std::swap(a, b);
    if (b > c)
        std::swap(b, c);
    if (a > b)
        std::swap(a, b);
    return SortedTriple{a, b, c};
}

struct TripleHash
{
    size_t operator()(SortedTriple const& t) const
    {
        uint64_t h = (uint64_t(t.a) * 0x9E3779B97F4A7C15ull) ^ (uint64_t(t.b) * 0xC2B2AE3D27D4EB4Full) ^
                     (uint64_t(t.c) * 0x165667B19E3779F9ull);
        h ^= h >> 31;
        return size_t(h);
    }
};

bool IsDegenerate(unsigned int const* t) { return t[0] == t[1] || t[1] == t[2] || t[0] == t[2]; }

using Vec = TezVector3<float>;

float TriangleArea(Vec const& p0, Vec const& p1, Vec const& p2)
{
    Vec const edge = p1 - p0;
    float const base = edge.Length();
    if (base < 1e-6f)
        return 0.0f;
    Vec const d = edge * (1.0f / base);
    Vec const v = p2 - p0;
    float const height = (v - d * (v * d)).Length();
    if (height < 1e-6f)
        return 0.0f;
    return 0.5f * base * height;
}

Vec TriangleNormal(Vec const& p0, Vec const& p1, Vec const& p2)
{
    Vec e1 = p1 - p0;
    Vec e2 = p2 - p0;
    e1.Normalize();
    e2.Normalize();
    Vec n = e1 ^ e2;
    n.Normalize();
    return n;
}

struct Circle
{
    double cx, cy, radius;
};

// Smallest enclosing circle by Fischer and Gaertner's pivoting walk: keep a
// support set of points on the current circle, walk the centre towards the
// support set's circumcentre until another point reaches the circle (it joins
// the set) or the circumcentre is reached; there, a point of negative affine
// weight leaves the set, and with none the circle is optimal. Doubles keep the
// 1e-14 stopping rule meaningful.
Circle SmallestEnclosingCircle(std::vector<double> const& xs, std::vector<double> const& ys)
{
    size_t const n = xs.size();
    double cx = xs[0], cy = ys[0];
    size_t support[3];
    int size = 1;
    double r2 = -1.0;
    for (size_t i = 0; i < n; ++i) {
        double const d2 = (xs[i] - cx) * (xs[i] - cx) + (ys[i] - cy) * (ys[i] - cy);
        if (d2 > r2) {
            r2 = d2;
            support[0] = i;
        }
    }
    double const eps = 1e-14;
    for (int iteration = 0; iteration < 100000; ++iteration) {
        // The point of the support set's affine hull nearest the centre, and
        // the centre's affine weights there.
        double ax = xs[support[0]], ay = ys[support[0]];
        double lambda[3] = {1.0, 0.0, 0.0};
        if (size == 2) {
            double const ux = xs[support[1]] - ax, uy = ys[support[1]] - ay;
            double const uu = ux * ux + uy * uy;
            double const mu = uu > 0.0 ? ((cx - ax) * ux + (cy - ay) * uy) / uu : 0.0;
            ax += mu * ux;
            ay += mu * uy;
            lambda[0] = 1.0 - mu;
            lambda[1] = mu;
        } else if (size == 3) {
            double const x0 = xs[support[0]], y0 = ys[support[0]];
            double const x1 = xs[support[1]] - x0, y1 = ys[support[1]] - y0;
            double const x2 = xs[support[2]] - x0, y2 = ys[support[2]] - y0;
            double const det = x1 * y2 - x2 * y1;
            if (det == 0.0) {
                // Collinear support: the middle point carries nothing.
                lambda[0] = lambda[1] = lambda[2] = 0.0;
            } else {
                double const px = cx - x0, py = cy - y0;
                lambda[1] = (px * y2 - x2 * py) / det;
                lambda[2] = (x1 * py - px * y1) / det;
                lambda[0] = 1.0 - lambda[1] - lambda[2];
            }
            ax = cx;
            ay = cy;
        }
        double const radius = std::sqrt(r2);
        double const dx = ax - cx, dy = ay - cy;
        double const dist = std::sqrt(dx * dx + dy * dy);
        if (dist <= eps * radius) {
            int worst = 0;
            for (int k = 1; k < size; ++k)
                if (lambda[k] < lambda[worst])
                    worst = k;
            if (size == 1 || lambda[worst] >= 0.0)
                return Circle{cx, cy, radius};
            for (int k = worst; k + 1 < size; ++k)
                support[k] = support[k + 1];
            --size;
            continue;
        }
        // Walk towards (ax, ay); the first point to reach the circle stops us.
        double t = 1.0;
        size_t stopper = n;
        double const dd = dx * dx + dy * dy;
        for (size_t i = 0; i < n; ++i) {
            bool inSupport = false;
            for (int k = 0; k < size; ++k)
                inSupport |= support[k] == i;
            if (inSupport)
                continue;
            double const px = xs[i] - cx, py = ys[i] - cy;
            double const denominator = dd - (px * dx + py * dy);
            if (denominator <= eps * radius * dist)
                continue;
            double const bound = (r2 - (px * px + py * py)) / (2.0 * denominator);
            if (bound > 0.0 && bound < t) {
                t = bound;
                stopper = i;
            }
        }
        cx += t * dx;
        cy += t * dy;
        double const sx = xs[support[0]] - cx, sy = ys[support[0]] - cy;
        r2 = sx * sx + sy * sy;
        if (stopper < n && size < 3)
            support[size++] = stopper;
    }
    return Circle{cx, cy, std::sqrt(r2)};
}

float NormalizeThreshold()
{
    float f = 1e-6f;
    while (static_cast<double>(f) < 1e-6)
        f = std::nextafter(f, 1.0f);
    return f;
}

} // namespace

// ---- TezMeshTriangle ----

TezMeshTriangle::TezMeshTriangle(unsigned int i0, unsigned int i1, unsigned int i2, TezRef<TezIndexedMesh> mesh)
    : m_index{i0, i1, i2}, m_mesh(std::move(mesh))
{
}

TezMeshTriangle::TezMeshTriangle(unsigned int const* indices, TezRef<TezIndexedMesh> mesh)
    : m_index{indices[0], indices[1], indices[2]}, m_mesh(std::move(mesh))
{
}

TezMeshVertex const& TezMeshTriangle::GetVertex(int corner) const { return m_mesh->GetVertex(m_index[corner]); }

bool TezMeshTriangle::CheckDegenerate() const { return IsDegenerate(m_index); }

float TezMeshTriangle::ComputeArea() const
{
    return TriangleArea(GetVertex(0).position, GetVertex(1).position, GetVertex(2).position);
}

TezVector3<float> TezMeshTriangle::ComputeNormal() const
{
    return TriangleNormal(GetVertex(0).position, GetVertex(1).position, GetVertex(2).position);
}

TezVector3<float> TezMeshTriangle::ComputeAngles() const
{
    TezVector3<float> angles;
    for (int i = 0; i < 3; ++i) {
        TezVector3<float> const& p = GetVertex(i).position;
        TezVector3<float> a = GetVertex((i + 1) % 3).position - p;
        TezVector3<float> b = GetVertex((i + 2) % 3).position - p;
        a.Normalize();
        b.Normalize();
        angles[i] = std::acos(std::clamp(a * b, -1.0f, 1.0f));
    }
    return angles;
}

TezVector3<float> TezMeshTriangle::ComputeCentroid() const
{
    return (GetVertex(0).position + GetVertex(1).position + GetVertex(2).position) * (1.0f / 3.0f);
}

TezBox3<float> TezMeshTriangle::ComputeBounds() const
{
    TezBox3<float> box;
    for (int i = 0; i < 3; ++i)
        box += GetVertex(i).position;
    return box;
}

TezPlane<float> TezMeshTriangle::GetPlane() const
{
    return TezPlane<float>(GetVertex(2).position, GetVertex(1).position, GetVertex(0).position);
}

bool TezMeshTriangle::HasCommonVertices(TezMeshTriangle const& a, TezMeshTriangle const& b)
{
    for (unsigned int i : a.m_index)
        for (unsigned int j : b.m_index)
            if (i == j)
                return true;
    return false;
}

// ---- TezIndexedMesh: data and access ----

TezRef<TezIndexedMesh> TezIndexedMesh::CreateEmpty() { return TezRef<TezIndexedMesh>(new TezIndexedMesh()); }

TezRef<TezIndexedMesh> TezIndexedMesh::Copy() const
{
    TezRef<TezIndexedMesh> copy = CreateEmpty();
    copy->m_vertices = m_vertices;
    copy->m_indices = m_indices;
    return copy;
}

void TezIndexedMesh::Resize(size_t numVertices, size_t numTriangles)
{
    m_vertices.resize(numVertices);
    m_indices.resize(3 * numTriangles);
}

TezMeshTriangle TezIndexedMesh::GetTriangle(size_t i) { return TezMeshTriangle(&m_indices[3 * i], this); }

unsigned int TezIndexedMesh::AddVertex(TezMeshVertex const& vertex)
{
    m_vertices.push_back(vertex);
    return static_cast<unsigned int>(m_vertices.size() - 1);
}

void TezIndexedMesh::AddTriangle(TezMeshTriangle const& triangle)
{
    for (int i = 0; i < 3; ++i)
        m_indices.push_back(triangle.GetVertexIndex(i));
}

// ---- measures ----

TezBox3<float> TezIndexedMesh::ComputeBounds() const
{
    TezBox3<float> box;
    for (TezMeshVertex const& v : m_vertices)
        box += v.position;
    return box;
}

float TezIndexedMesh::ComputeSurfaceArea() const
{
    double sum = 0.0;
    for (size_t t = 0; t < GetNumTriangles(); ++t) {
        unsigned int const* tri = &m_indices[3 * t];
        sum += TriangleArea(m_vertices[tri[0]].position, m_vertices[tri[1]].position, m_vertices[tri[2]].position);
    }
    return static_cast<float>(sum);
}

float TezIndexedMesh::ComputeVolume() const
{
    double sum = 0.0;
    for (size_t t = 0; t < GetNumTriangles(); ++t) {
        TezVector3<float> const& p0 = m_vertices[m_indices[3 * t]].position;
        TezVector3<float> const& p1 = m_vertices[m_indices[3 * t + 1]].position;
        TezVector3<float> const& p2 = m_vertices[m_indices[3 * t + 2]].position;
        sum += p0 * (p1 ^ p2);
    }
    return static_cast<float>(sum / 6.0);
}

bool TezIndexedMesh::ComputeBoundingCylinder(int axis, TezVector3<float>& base, float& length, float& radius) const
{
    if (m_vertices.empty())
        return false;
    int const a = ((axis % 3) + 3) % 3, b = (a + 1) % 3, c = (a + 2) % 3;
    float low = m_vertices[0].position[a], high = low;
    std::vector<double> xs, ys;
    xs.reserve(m_vertices.size());
    ys.reserve(m_vertices.size());
    for (TezMeshVertex const& v : m_vertices) {
        low = std::min(low, v.position[a]);
        high = std::max(high, v.position[a]);
        xs.push_back(v.position[b]);
        ys.push_back(v.position[c]);
    }
    Circle const circle = SmallestEnclosingCircle(xs, ys);
    base[a] = low;
    base[b] = static_cast<float>(circle.cx);
    base[c] = static_cast<float>(circle.cy);
    length = high - low;
    radius = static_cast<float>(circle.radius);
    return true;
}

void TezIndexedMesh::TransformGeometry(TezMatrix44<float> const& transform)
{
    for (TezMeshVertex& v : m_vertices)
        v.position = transform * v.position;
}

// ---- check and clean-up ----

bool TezIndexedMesh::Check(TezMeshCheckResults& results)
{
    results.degenerateTriangles = CheckDegenerate();
    results.duplicateTriangles = CheckDuplicate();
    results.nonManifoldEdges = CheckNonManifold();
    return results.degenerateTriangles + results.duplicateTriangles + results.nonManifoldEdges == 0;
}

size_t TezIndexedMesh::CountNonFiniteVertices() const
{
    size_t count = 0;
    for (TezMeshVertex const& v : m_vertices)
        if (!std::isfinite(v.position.x) || !std::isfinite(v.position.y) || !std::isfinite(v.position.z))
            ++count;
    return count;
}

int TezIndexedMesh::CheckDegenerate()
{
    size_t const n = GetNumTriangles();
    TezProgress progress("Checking for degenerate triangles...", n);
    int count = 0;
    for (size_t t = 0; t < n; ++t) {
        if (IsDegenerate(&m_indices[3 * t]))
            ++count;
        progress.Step();
    }
    return count;
}

int TezIndexedMesh::CheckDuplicate()
{
    size_t const n = GetNumTriangles();
    TezProgress progress("Checking for duplicate triangles...", n);
    std::unordered_set<SortedTriple, TripleHash> seen;
    seen.reserve(n);
    int count = 0;
    for (size_t t = 0; t < n; ++t) {
        if (!seen.insert(Sorted(&m_indices[3 * t])).second)
            ++count;
        progress.Step();
    }
    return count;
}

int TezIndexedMesh::CheckNonManifold()
{
    size_t const n = GetNumTriangles();
    // Edges as 64-bit keys, smaller index high; sorting groups equal edges.
    std::vector<uint64_t> edges;
    edges.reserve(3 * n);
    {
        TezProgress progress("Checking for non-manifold edges 1st pass...", n);
        for (size_t t = 0; t < n; ++t) {
            unsigned int const* tri = &m_indices[3 * t];
            for (int e = 0; e < 3; ++e) {
                unsigned int a = tri[e], b = tri[(e + 1) % 3];
                if (a > b)
                    std::swap(a, b);
                edges.push_back((uint64_t(a) << 32) | b);
            }
            progress.Step();
        }
    }
    std::sort(edges.begin(), edges.end());
    size_t distinct = 0;
    for (size_t i = 0; i < edges.size(); ++i)
        if (i == 0 || edges[i] != edges[i - 1])
            ++distinct;

    TezProgress progress("Checking for non-manifold edges 2nd pass...", distinct);
    int count = 0;
    for (size_t i = 0; i < edges.size();) {
        size_t j = i + 1;
        while (j < edges.size() && edges[j] == edges[i])
            ++j;
        if (j - i >= 3)
            ++count;
        progress.Step();
        i = j;
    }
    return count;
}

namespace {
// Triangles between two looks at the host's stop flag: a stopped clean-up
// returns before it changed anything.
constexpr size_t kStopPoll = 4096;
} // namespace

void TezIndexedMesh::RemoveDegenerateTriangles()
{
    std::set<unsigned int> doomed;
    {
        size_t const n = GetNumTriangles();
        TezProgress progress("Collecting degenerate triangles...", n);
        for (size_t t = 0; t < n; ++t) {
            if (IsDegenerate(&m_indices[3 * t]))
                doomed.insert(static_cast<unsigned int>(t));
            progress.Step();
            if (t % kStopPoll == 0 && progress.StopRequested())
                return;
        }
    }
    TezProgress().SetMessage("Removing degenerate triangles...");
    RemoveTriangles(doomed);
}

void TezIndexedMesh::RemoveDuplicateTriangles(bool keepFirst)
{
    std::set<unsigned int> doomed;
    {
        size_t const n = GetNumTriangles();
        TezProgress progress("Collecting duplicate triangles...", n);
        std::unordered_map<SortedTriple, unsigned int, TripleHash> first;
        first.reserve(n);
        for (size_t t = 0; t < n; ++t) {
            auto const [it, inserted] = first.emplace(Sorted(&m_indices[3 * t]), static_cast<unsigned int>(t));
            if (!inserted) {
                doomed.insert(static_cast<unsigned int>(t));
                if (!keepFirst)
                    doomed.insert(it->second);
            }
            progress.Step();
            if (t % kStopPoll == 0 && progress.StopRequested())
                return;
        }
    }
    TezProgress().SetMessage("Removing duplicate triangles...");
    RemoveTriangles(doomed);
}

void TezIndexedMesh::RemoveTriangles(TezRef<TezMeshIndexList> triangles)
{
    std::set<unsigned int> doomed;
    if (triangles)
        doomed.insert(triangles->GetIndices().begin(), triangles->GetIndices().end());
    RemoveTriangles(doomed);
}

void TezIndexedMesh::RemoveTriangles(std::set<unsigned int>& triangles)
{
    size_t const n = GetNumTriangles();
    TezProgress progress(nullptr, n);
    std::vector<unsigned int> kept;
    kept.reserve(m_indices.size());
    auto doomed = triangles.begin();
    for (size_t t = 0; t < n; ++t) {
        while (doomed != triangles.end() && *doomed < t)
            ++doomed;
        if (doomed != triangles.end() && *doomed == t)
            continue;
        kept.insert(kept.end(), &m_indices[3 * t], &m_indices[3 * t] + 3);
        progress.Step();
    }
    m_indices.swap(kept);
}

void TezIndexedMesh::EliminateDuplicateVertices()
{
    std::vector<TezMeshVertex> merged;
    merged.reserve(m_vertices.size());
    tez_detail::PositionMap map(m_vertices.size());
    for (unsigned int& index : m_indices) {
        TezMeshVertex const& v = m_vertices[index];
        uint32_t const next = static_cast<uint32_t>(merged.size());
        uint32_t const found = map.FindOrInsert(v.position, next);
        if (found == tez_detail::PositionMap::kNone) {
            merged.push_back(v);
            index = next;
        } else {
            index = found;
        }
    }
    merged.shrink_to_fit();
    m_vertices.swap(merged);
}

void TezIndexedMesh::MakeNormalsFromPositions()
{
    // Face normals scaled by a third of the area, the same arithmetic as
    // TezMeshTriangle::ComputeNormal and ComputeArea, in blocks of structure-
    // of-arrays so that the compiler runs it four or eight triangles at a
    // time; then added to the corners in triangle order.
    for (TezMeshVertex& v : m_vertices)
        v.normal = Vec(0.0f, 0.0f, 0.0f);
    size_t const count = GetNumTriangles();
    constexpr size_t kBlock = 512;
    // Normalize divides when the length, widened to double, is at least
    // 1e-6: as a float comparison, against the first float at or above it.
    float const unit = NormalizeThreshold();
    alignas(32) float e1x[kBlock], e1y[kBlock], e1z[kBlock], e2x[kBlock], e2y[kBlock], e2z[kBlock];
    alignas(32) float nx[kBlock], ny[kBlock], nz[kBlock];
    for (size_t first = 0; first < count; first += kBlock) {
        size_t const n = std::min(kBlock, count - first);
        unsigned int const* tri = &m_indices[3 * first];
        for (size_t i = 0; i < n; ++i) {
            Vec const& p0 = m_vertices[tri[3 * i]].position;
            Vec const& p1 = m_vertices[tri[3 * i + 1]].position;
            Vec const& p2 = m_vertices[tri[3 * i + 2]].position;
            e1x[i] = p1.x - p0.x, e1y[i] = p1.y - p0.y, e1z[i] = p1.z - p0.z;
            e2x[i] = p2.x - p0.x, e2y[i] = p2.y - p0.y, e2z[i] = p2.z - p0.z;
        }
        for (size_t i = 0; i < n; ++i) {
            float const ax = e1x[i], ay = e1y[i], az = e1z[i];
            float const bx = e2x[i], by = e2y[i], bz = e2z[i];
            // The normal. Every quotient is formed and then chosen, so that
            // the loop has no branches.
            float const la = std::sqrt(ax * ax + ay * ay + az * az);
            float const qax = ax / la, qay = ay / la, qaz = az / la;
            bool const da = la >= unit;
            float const ux = da ? qax : ax, uy = da ? qay : ay, uz = da ? qaz : az;
            float const lb = std::sqrt(bx * bx + by * by + bz * bz);
            float const qbx = bx / lb, qby = by / lb, qbz = bz / lb;
            bool const db = lb >= unit;
            float const vx = db ? qbx : bx, vy = db ? qby : by, vz = db ? qbz : bz;
            float const cx = uy * vz - uz * vy, cy = uz * vx - ux * vz, cz = ux * vy - uy * vx;
            float const lc = std::sqrt(cx * cx + cy * cy + cz * cz);
            float const qcx = cx / lc, qcy = cy / lc, qcz = cz / lc;
            bool const dc = lc >= unit;
            float const mx = dc ? qcx : cx, my = dc ? qcy : cy, mz = dc ? qcz : cz;
            // The area: base la, height from the second edge.
            float const r = 1.0f / la;
            float const dx = ax * r, dy = ay * r, dz = az * r;
            float const along = bx * dx + by * dy + bz * dz;
            float const hx = bx - dx * along, hy = by - dy * along, hz = bz - dz * along;
            float const h = std::sqrt(hx * hx + hy * hy + hz * hz);
            float const full = 0.5f * la * h;
            float const area = (la < 1e-6f) | (h < 1e-6f) ? 0.0f : full;
            float const scale = area / 3.0f;
            nx[i] = mx * scale, ny[i] = my * scale, nz[i] = mz * scale;
        }
        for (size_t i = 0; i < n; ++i) {
            Vec const add(nx[i], ny[i], nz[i]);
            for (int c = 0; c < 3; ++c)
                m_vertices[tri[3 * i + c]].normal += add;
        }
    }
    for (TezMeshVertex& v : m_vertices)
        v.normal.Normalize();
}
