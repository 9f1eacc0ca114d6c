// The shape generators of TezIndexedMesh: the widgets' arrows, cylinders,
// spheres, tori, rings and frames.
//
// Angles advance by a float step of 2pi/n and are clamped at the end of their
// range, so the vertices land exactly where the widgets' picking code expects.

#include "core/Constants.h"
#include "mesh/IndexedMesh.h"

#include <algorithm>
#include <cmath>

namespace {

using Vec = TezVector3<float>;

constexpr float kTwoPi = 6.2831855f;
constexpr float kPi = TezPif;
constexpr float kHalfPi = 1.5707964f;

// n angles from `start`, each step added in float and clamped at `end`.
std::vector<float> Angles(int n, float start, float step, float end)
{
    std::vector<float> angles(static_cast<size_t>(std::max(n, 0)));
    float a = start;
    for (float& angle : angles) {
        angle = a;
        a = std::min(a + step, end);
    }
    return angles;
}

void PushTriangle(std::vector<unsigned int>& indices, unsigned int a, unsigned int b, unsigned int c)
{
    indices.push_back(a);
    indices.push_back(b);
    indices.push_back(c);
}

// Two rings of n vertices joined into a band of 2n triangles, facing the side
// that (B - A) crossed with the ring's direction of turn points to.
void AddBand(std::vector<unsigned int>& indices, unsigned int ringA, unsigned int ringB, int n)
{
    for (int i = 0; i < n; ++i) {
        unsigned int const j = static_cast<unsigned int>((i + 1) % n);
        unsigned int const u = static_cast<unsigned int>(i);
        PushTriangle(indices, ringA + u, ringA + j, ringB + u);
        PushTriangle(indices, ringA + j, ringB + j, ringB + u);
    }
}

Vec ConeNormal(float c, float s, float headLength, float headRadius, float zSign)
{
    Vec n(c * headLength, s * headLength, zSign * headRadius);
    n.Normalize();
    return n;
}

} // namespace

TezRef<TezIndexedMesh> TezIndexedMesh::CreateArrow(int n, float rodLength, float headLength, float rodRadius,
                                                   float headRadius)
{
    n = std::max(n, 0);
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    std::vector<TezMeshVertex>& v = mesh->m_vertices;
    std::vector<unsigned int>& idx = mesh->m_indices;
    size_t const un = static_cast<size_t>(n);
    v.resize(7 * un + 1);
    idx.reserve(18 * un);

    Vec const down(0.0f, 0.0f, -1.0f);
    v[0] = TezMeshVertex(Vec(0.0f, 0.0f, 0.0f), down);
    std::vector<float> const angles = Angles(n, -kPi, kTwoPi / static_cast<float>(n), kPi);
    float const r = rodRadius, R = headRadius, L = rodLength;
    for (size_t i = 0; i < un; ++i) {
        float const c = std::cos(angles[i]), s = std::sin(angles[i]);
        Vec const side(c, s, 0.0f);
        Vec const cone = ConeNormal(c, s, headLength, R, 1.0f);
        v[1 + 0 * un + i] = TezMeshVertex(Vec(r * c, r * s, 0.0f), down);
        v[1 + 1 * un + i] = TezMeshVertex(Vec(r * c, r * s, 0.0f), side);
        v[1 + 2 * un + i] = TezMeshVertex(Vec(r * c, r * s, L), side);
        v[1 + 3 * un + i] = TezMeshVertex(Vec(r * c, r * s, L), down);
        v[1 + 4 * un + i] = TezMeshVertex(Vec(R * c, R * s, L), down);
        v[1 + 5 * un + i] = TezMeshVertex(Vec(R * c, R * s, L), cone);
        v[1 + 6 * un + i] = TezMeshVertex(Vec(0.0f, 0.0f, 1.0f), cone);
    }
    unsigned int const m = static_cast<unsigned int>(n);
    for (unsigned int k = 0; k < 6; ++k) {
        for (unsigned int i = 0; i < m; ++i) {
            unsigned int const j = (i + 1) % m;
            switch (k) {
            case 0:
                PushTriangle(idx, 0, 1 + j, 1 + i);
                break;
            case 1:
                PushTriangle(idx, 1 + m + i, 1 + m + j, 1 + 2 * m + i);
                break;
            case 2:
                PushTriangle(idx, 1 + m + j, 1 + 2 * m + j, 1 + 2 * m + i);
                break;
            case 3:
                PushTriangle(idx, 1 + 3 * m + i, 1 + 3 * m + j, 1 + 4 * m + i);
                break;
            case 4:
                PushTriangle(idx, 1 + 3 * m + j, 1 + 4 * m + j, 1 + 4 * m + i);
                break;
            default:
                PushTriangle(idx, 1 + 5 * m + i, 1 + 5 * m + j, 1 + 6 * m + i);
                break;
            }
        }
    }
    return mesh;
}

TezRef<TezIndexedMesh> TezIndexedMesh::CreateDoubleArrow(int n, float rodHalfLength, float headLength, float rodRadius,
                                                         float headRadius)
{
    n = std::max(n, 0);
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    size_t const un = static_cast<size_t>(n);
    mesh->m_vertices.reserve(10 * un);
    mesh->m_indices.reserve(30 * un);

    float const L = rodHalfLength, H = headLength, r = rodRadius, R = headRadius;
    std::vector<float> const angles = Angles(n, -kPi, kTwoPi / static_cast<float>(n), kPi);
    // Ring kinds: radius, z, and which normal.
    enum Normal { ConeDown, ConeUp, Up, Down, Side };
    struct Ring
    {
        float radius, z;
        Normal normal;
    };
    Ring const rings[10] = {
        {0.0f, -(H + L), ConeDown},
        {R, -L, ConeDown}, // lower head, cone
        {R, -L, Up},
        {r, -L, Up}, // lower head, back face
        {r, -L, Side},
        {r, L, Side}, // rod
        {r, L, Down},
        {R, L, Down}, // upper head, back face
        {R, L, ConeUp},
        {0.0f, H + L, ConeUp}, // upper head, cone
    };
    for (Ring const& ring : rings) {
        for (float a : angles) {
            float const c = std::cos(a), s = std::sin(a);
            Vec normal;
            switch (ring.normal) {
            case ConeDown:
                normal = ConeNormal(c, s, H, R, -1.0f);
                break;
            case ConeUp:
                normal = ConeNormal(c, s, H, R, 1.0f);
                break;
            case Up:
                normal = Vec(0.0f, 0.0f, 1.0f);
                break;
            case Down:
                normal = Vec(0.0f, 0.0f, -1.0f);
                break;
            default:
                normal = Vec(c, s, 0.0f);
                break;
            }
            mesh->m_vertices.emplace_back(Vec(ring.radius * c, ring.radius * s, ring.z), normal);
        }
    }
    unsigned int const m = static_cast<unsigned int>(n);
    for (unsigned int band = 0; band < 5; ++band)
        AddBand(mesh->m_indices, 2 * band * m, (2 * band + 1) * m, n);
    return mesh;
}

TezRef<TezIndexedMesh> TezIndexedMesh::CreateCylinder(int slices, int stacks, float bottomRadius, float topRadius,
                                                      float height)
{
    stacks = std::max(stacks, 2);
    slices = std::max(slices, 4);
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    std::vector<TezMeshVertex>& v = mesh->m_vertices;
    std::vector<unsigned int>& idx = mesh->m_indices;
    unsigned int const ns = static_cast<unsigned int>(slices);
    v.reserve(static_cast<size_t>(stacks + 2) * ns);

    std::vector<float> const angles = Angles(slices, 0.0f, kTwoPi / static_cast<float>(slices), kTwoPi);
    float const zStep = height / static_cast<float>(stacks - 1);
    float z = 0.0f;
    for (int i = 0; i < stacks; ++i) {
        float const t = static_cast<float>(i) / static_cast<float>(stacks - 1);
        float const radius = bottomRadius + (topRadius - bottomRadius) * t;
        for (float a : angles) {
            float const c = std::cos(a), s = std::sin(a);
            v.emplace_back(Vec(radius * c, radius * s, z), Vec(c, s, 0.0f));
        }
        z += zStep;
    }
    for (unsigned int i = 0; i + 1 < static_cast<unsigned int>(stacks); ++i) {
        for (unsigned int j = 0; j < ns; ++j) {
            unsigned int const jn = (j + 1) % ns;
            unsigned int const a = i * ns + j, b = (i + 1) * ns + j, c = i * ns + jn, d = (i + 1) * ns + jn;
            PushTriangle(idx, a, b, c);
            PushTriangle(idx, b, d, c);
        }
    }
    // Caps: their own rings, so that they shade flat.
    float const capZ[2] = {0.0f, height};
    float const capRadius[2] = {bottomRadius, topRadius};
    for (int cap = 0; cap < 2; ++cap) {
        unsigned int const f = static_cast<unsigned int>(v.size());
        Vec const normal(0.0f, 0.0f, cap == 0 ? -1.0f : 1.0f);
        for (float a : angles)
            v.emplace_back(Vec(capRadius[cap] * std::cos(a), capRadius[cap] * std::sin(a), capZ[cap]), normal);
        for (unsigned int m = 0; m + 2 < ns; ++m)
            PushTriangle(idx, f, f + 1 + m, f + 2 + m);
    }
    return mesh;
}

TezRef<TezIndexedMesh> TezIndexedMesh::CreateSphere(int stacks, int slices)
{
    stacks = std::max(stacks, 0);
    slices = std::max(slices, 0);
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    unsigned int const rows = static_cast<unsigned int>(stacks) + 1, columns = static_cast<unsigned int>(slices);
    mesh->m_vertices.reserve(size_t(rows) * columns);
    std::vector<float> const latitudes = Angles(stacks + 1, -kHalfPi, kPi / static_cast<float>(stacks), kHalfPi);
    std::vector<float> const longitudes = Angles(slices, -kPi, kTwoPi / static_cast<float>(slices), kPi);
    for (float lat : latitudes) {
        float const cl = std::cos(lat), sl = std::sin(lat);
        for (float lon : longitudes) {
            Vec const p(std::cos(lon) * cl, std::sin(lon) * cl, sl);
            mesh->m_vertices.emplace_back(p, p);
        }
    }
    for (unsigned int i = 0; i + 1 < rows; ++i) {
        for (unsigned int j = 0; j < columns; ++j) {
            unsigned int const jn = (j + 1) % columns;
            unsigned int const a = i * columns + j, b = i * columns + jn, c = (i + 1) * columns + j,
                               d = (i + 1) * columns + jn;
            PushTriangle(mesh->m_indices, a, b, c);
            PushTriangle(mesh->m_indices, c, b, d);
        }
    }
    return mesh;
}

TezRef<TezIndexedMesh> TezIndexedMesh::CreateTorus(int tubeSlices, int ringSlices, float ringRadius, float tubeRadius)
{
    tubeSlices = std::max(tubeSlices, 0);
    ringSlices = std::max(ringSlices, 0);
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    unsigned int const nt = static_cast<unsigned int>(tubeSlices), nr = static_cast<unsigned int>(ringSlices);
    mesh->m_vertices.reserve(size_t(nt) * nr);
    std::vector<float> const us = Angles(ringSlices, 0.0f, kTwoPi / static_cast<float>(ringSlices), kTwoPi);
    std::vector<float> const vs = Angles(tubeSlices, 0.0f, kTwoPi / static_cast<float>(tubeSlices), kTwoPi);
    for (float u : us) {
        float const cu = std::cos(u), su = std::sin(u);
        for (float w : vs) {
            float const cv = std::cos(w), sv = std::sin(w);
            float const d = tubeRadius * cv + ringRadius;
            mesh->m_vertices.emplace_back(Vec(d * cu, d * su, tubeRadius * sv), Vec(cv * cu, cv * su, sv));
        }
    }
    // Vertex (u, v) is u * nt + v; du x dv points outwards.
    for (unsigned int i = 0; i < nr; ++i) {
        unsigned int const in = (i + 1) % nr;
        for (unsigned int j = 0; j < nt; ++j) {
            unsigned int const jn = (j + 1) % nt;
            unsigned int const a = i * nt + j, b = in * nt + j, c = i * nt + jn, d = in * nt + jn;
            PushTriangle(mesh->m_indices, a, b, c);
            PushTriangle(mesh->m_indices, b, d, c);
        }
    }
    return mesh;
}

TezRef<TezIndexedMesh> TezIndexedMesh::CreateFlatRing(int n, float outerRadius, float innerRadius, float height)
{
    n = std::max(n, 4);
    std::vector<float> const angles = Angles(n, 0.0f, kTwoPi / static_cast<float>(n - 1), kTwoPi);
    std::vector<Vec> outer, inner;
    for (float a : angles) {
        float const c = std::cos(a), s = std::sin(a);
        outer.emplace_back(outerRadius * c, outerRadius * s, 0.5f * height);
        inner.emplace_back(innerRadius * c, innerRadius * s, 0.5f * height);
    }
    return CreateExtrudedMesh(outer, inner, height);
}

TezRef<TezIndexedMesh> TezIndexedMesh::CreateFrame(float outerHalfSize, float innerHalfSize, float height)
{
    auto square = [height](float h) {
        float const z = 0.5f * height;
        return std::vector<Vec>{Vec(h, h, z), Vec(h, -h, z), Vec(-h, -h, z), Vec(-h, h, z), Vec(h, h, z)};
    };
    return CreateExtrudedMesh(square(outerHalfSize), square(innerHalfSize), height);
}

TezRef<TezIndexedMesh> TezIndexedMesh::CreateQuad(float halfWidth, float halfHeight)
{
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    Vec const up(0.0f, 0.0f, 1.0f);
    mesh->m_vertices = {
        TezMeshVertex(Vec(-halfWidth, -halfHeight, 0.0f), up), TezMeshVertex(Vec(halfWidth, -halfHeight, 0.0f), up),
        TezMeshVertex(Vec(halfWidth, halfHeight, 0.0f), up), TezMeshVertex(Vec(-halfWidth, halfHeight, 0.0f), up)};
    mesh->m_indices = {0, 1, 2, 0, 2, 3};
    return mesh;
}

TezRef<TezIndexedMesh> TezIndexedMesh::CreateExtrudedMesh(std::vector<Vec> const& outer, std::vector<Vec> const& inner,
                                                          float height)
{
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    size_t const count = std::min(outer.size(), inner.size());
    if (count < 2)
        return mesh;
    std::vector<TezMeshVertex>& v = mesh->m_vertices;
    std::vector<unsigned int>& idx = mesh->m_indices;
    float const top = 0.5f * height;

    // Orientation of the outer outline (shoelace): walls face out of the solid
    // whichever way the outlines run.
    double twiceArea = 0.0;
    for (size_t k = 0; k + 1 < count; ++k)
        twiceArea += double(outer[k].x) * outer[k + 1].y - double(outer[k + 1].x) * outer[k].y;
    float const turn = twiceArea >= 0.0 ? 1.0f : -1.0f;

    // A triangle wound so that its face normal agrees with `normal`.
    auto add = [&](unsigned int a, unsigned int b, unsigned int c, Vec const& normal) {
        Vec const face = (v[b].position - v[a].position) ^ (v[c].position - v[a].position);
        if (face * normal < 0.0f)
            std::swap(b, c);
        PushTriangle(idx, a, b, c);
    };
    auto at = [](Vec const& p, float z) { return Vec(p.x, p.y, z); };

    // Top and bottom faces: outer and inner outline joined as a band.
    for (float side : {1.0f, -1.0f}) {
        Vec const normal(0.0f, 0.0f, side);
        unsigned int const o = static_cast<unsigned int>(v.size());
        for (size_t k = 0; k < count; ++k)
            v.emplace_back(at(outer[k], side * top), normal);
        unsigned int const in = static_cast<unsigned int>(v.size());
        for (size_t k = 0; k < count; ++k)
            v.emplace_back(at(inner[k], side * top), normal);
        for (unsigned int k = 0; k + 1 < count; ++k) {
            add(o + k, o + k + 1, in + k, normal);
            add(o + k + 1, in + k + 1, in + k, normal);
        }
    }
    // Walls, flat per segment: the outer one faces away from the hole, the
    // inner one into it.
    for (int wall = 0; wall < 2; ++wall) {
        std::vector<Vec> const& outline = wall == 0 ? outer : inner;
        float const facing = wall == 0 ? turn : -turn;
        for (size_t k = 0; k + 1 < count; ++k) {
            Vec const d = outline[k + 1] - outline[k];
            Vec normal(facing * d.y, -facing * d.x, 0.0f);
            normal.Normalize();
            unsigned int const b = static_cast<unsigned int>(v.size());
            v.emplace_back(at(outline[k], top), normal);
            v.emplace_back(at(outline[k + 1], top), normal);
            v.emplace_back(at(outline[k], -top), normal);
            v.emplace_back(at(outline[k + 1], -top), normal);
            add(b, b + 2, b + 1, normal);
            add(b + 1, b + 2, b + 3, normal);
        }
    }
    return mesh;
}
