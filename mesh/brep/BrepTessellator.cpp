// Meshing of one trimmed face. GLU's tessellator is used as a plain polygon
// triangulator on the CPU: it needs no GL context.
#include "mesh/brep/Brep.h"
#include "mesh/brep/BrepModel.h"

#include <GL/glu.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>
#include <unordered_map>

using V2 = TezVector2<double>;
using V3 = TezVector3<double>;

namespace {

#ifndef CALLBACK
#    define CALLBACK
#endif

class TezFaceMesher
{
public:
    TezFaceMesher(TezBrepModelBrep const& brep, TezBrepModelFace const& face, TezBrepFaceMesh& mesh)
        : m_brep(brep), m_face(face), m_mesh(mesh)
    {
        TezBrepSurfaceRange(face.surface, m_u0, m_u1, m_v0, m_v1);
    }

    void Run(std::vector<std::vector<TezBrepTrimPoint>> const& loops)
    {
        std::vector<double> us, vs;
        TezBrepGridParams(m_face.surface, us, vs);
        int const nu = static_cast<int>(us.size()) - 1, nv = static_cast<int>(vs.size()) - 1;
        std::vector<char> inside = InteriorCells(loops, us, vs);

        GLUtesselator* tess = gluNewTess();
        if (!tess)
            throw std::runtime_error("TezBrepTessellateFace: no GLU tessellator");
        gluTessCallback(tess, GLU_TESS_BEGIN_DATA, reinterpret_cast<void(CALLBACK*)()>(&Begin));
        gluTessCallback(tess, GLU_TESS_VERTEX_DATA, reinterpret_cast<void(CALLBACK*)()>(&Vertex));
        gluTessCallback(tess, GLU_TESS_COMBINE_DATA, reinterpret_cast<void(CALLBACK*)()>(&Combine));
        gluTessCallback(tess, GLU_TESS_EDGE_FLAG_DATA, reinterpret_cast<void(CALLBACK*)()>(&EdgeFlag));
        gluTessCallback(tess, GLU_TESS_ERROR_DATA, reinterpret_cast<void(CALLBACK*)()>(&Error));
        // Loops wind once around the trimmed region and the cells of the
        // interior once the other way: what is left is the band between.
        gluTessProperty(tess, GLU_TESS_WINDING_RULE, GLU_TESS_WINDING_POSITIVE);
        gluTessNormal(tess, 0, 0, 1);
        gluTessBeginPolygon(tess, this);
        for (auto const& loop : loops) {
            gluTessBeginContour(tess);
            for (TezBrepTrimPoint const& p : loop) {
                unsigned const index = AddVertex(p.uv, &p.point);
                gluTessVertex(tess, Coordinates(p.uv, index), Tag(index));
            }
            gluTessEndContour(tess);
        }
        for (int j = 0; j < nv; ++j) {
            for (int i = 0; i < nu; ++i) {
                if (!inside[j * nu + i])
                    continue;
                unsigned const a = Corner(us, vs, i, j), b = Corner(us, vs, i + 1, j);
                unsigned const c = Corner(us, vs, i + 1, j + 1), d = Corner(us, vs, i, j + 1);
                // Clockwise, against the loops.
                gluTessBeginContour(tess);
                for (unsigned index : {a, d, c, b})
                    gluTessVertex(tess, Coordinates(m_params[index], index), Tag(index));
                gluTessEndContour(tess);
                AddTriangle(a, b, c);
                AddTriangle(a, c, d);
            }
        }
        gluTessEndPolygon(tess);
        gluDeleteTess(tess);
        if (m_error != 0)
            throw std::runtime_error(std::string("TezBrepTessellateFace: ") +
                                     reinterpret_cast<char const*>(gluErrorString(m_error)));
        Improve();
        Emit();
    }

private:
    static void* Tag(unsigned index) { return reinterpret_cast<void*>(static_cast<uintptr_t>(index)); }

    // GLU keeps the coordinates' address until the polygon ends.
    GLdouble* Coordinates(V2 const& uv, unsigned)
    {
        m_coordinates.push_back({uv.x, uv.y, 0.0});
        return m_coordinates.back().data();
    }

    unsigned AddVertex(V2 const& uv, V3 const* point)
    {
        V3 evaluated;
        V3 const normal = TezBrepSurfaceNormal(m_face.surface, uv.x, uv.y, m_face.reversed, &evaluated);
        m_params.push_back(uv);
        m_positions.push_back(m_brep.Transform(point ? *point : evaluated));
        m_normals.push_back(m_brep.TransformNormal(normal));
        return static_cast<unsigned>(m_params.size() - 1);
    }

    unsigned Corner(std::vector<double> const& us, std::vector<double> const& vs, int i, int j)
    {
        long const key = static_cast<long>(j) * static_cast<long>(us.size()) + i;
        auto found = m_corners.find(key);
        if (found != m_corners.end())
            return found->second;
        unsigned const index = AddVertex(V2(us[i], vs[j]), nullptr);
        m_corners.emplace(key, index);
        return index;
    }

    // Cells that no loop segment comes near and whose middle lies inside
    // the loops (by the even-odd rule).
    std::vector<char> InteriorCells(std::vector<std::vector<TezBrepTrimPoint>> const& loops,
                                    std::vector<double> const& us, std::vector<double> const& vs) const
    {
        int const nu = static_cast<int>(us.size()) - 1, nv = static_cast<int>(vs.size()) - 1;
        std::vector<char> cells(static_cast<size_t>(std::max(nu, 0)) * std::max(nv, 0), 1);
        if (nu <= 1 && nv <= 1) {
            // One cell: the loops alone are the better triangulation.
            std::fill(cells.begin(), cells.end(), 0);
            return cells;
        }
        double const eps = 1e-9 * ((m_u1 - m_u0) + (m_v1 - m_v0));
        auto cellRange = [](std::vector<double> const& params, double lo, double hi, int& first, int& last) {
            first = static_cast<int>(std::upper_bound(params.begin(), params.end(), lo) - params.begin()) - 1;
            last = static_cast<int>(std::lower_bound(params.begin(), params.end(), hi) - params.begin());
            first = std::max(first, 0);
            last = std::min(last, static_cast<int>(params.size()) - 1);
        };
        for (auto const& loop : loops) {
            for (size_t k = 0, n = loop.size(); k < n; ++k) {
                V2 const& a = loop[k].uv;
                V2 const& b = loop[(k + 1) % n].uv;
                int i0, i1, j0, j1;
                cellRange(us, std::min(a.x, b.x) - eps, std::max(a.x, b.x) + eps, i0, i1);
                cellRange(vs, std::min(a.y, b.y) - eps, std::max(a.y, b.y) + eps, j0, j1);
                for (int j = j0; j < j1 && j < nv; ++j)
                    for (int i = i0; i < i1 && i < nu; ++i)
                        cells[j * nu + i] = 0;
            }
        }
        for (int j = 0; j < nv; ++j) {
            for (int i = 0; i < nu; ++i) {
                if (!cells[j * nu + i])
                    continue;
                V2 const middle((us[i] + us[i + 1]) / 2, (vs[j] + vs[j + 1]) / 2);
                bool in = false;
                for (auto const& loop : loops)
                    if (Inside(loop, middle))
                        in = !in;
                cells[j * nu + i] = in ? 1 : 0;
            }
        }
        return cells;
    }

    static bool Inside(std::vector<TezBrepTrimPoint> const& loop, V2 const& p)
    {
        bool inside = false;
        for (size_t i = 0, n = loop.size(), j = n - 1; i < n; j = i++) {
            V2 const& a = loop[i].uv;
            V2 const& b = loop[j].uv;
            if ((a.y > p.y) != (b.y > p.y) && p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x)
                inside = !inside;
        }
        return inside;
    }

    // Triangles counter-clockwise in (u, v), which is outwards for a face
    // that is not reversed.
    void AddTriangle(unsigned a, unsigned b, unsigned c)
    {
        V2 const& pa = m_params[a];
        V2 const& pb = m_params[b];
        V2 const& pc = m_params[c];
        double const area = (pb.x - pa.x) * (pc.y - pa.y) - (pc.x - pa.x) * (pb.y - pa.y);
        // GLU joins points that lie on one line with triangles of no area:
        // they are kept, as they hold the mesh together there.
        if (a == b || b == c || a == c)
            return;
        if (area < 0)
            std::swap(b, c);
        if (m_face.reversed)
            std::swap(b, c);
        m_triangles.insert(m_triangles.end(), {a, b, c});
    }

    double UVArea(unsigned a, unsigned b, unsigned c) const
    {
        V2 const& pa = m_params[a];
        V2 const& pb = m_params[b];
        V2 const& pc = m_params[c];
        return ((pb.x - pa.x) * (pc.y - pa.y) - (pc.x - pa.x) * (pb.y - pa.y)) / ((m_u1 - m_u0) * (m_v1 - m_v0));
    }

    // The angle at c of the triangle (a, b, c) in space; -1 where two of
    // its points meet (at a pole).
    double Angle(unsigned a, unsigned b, unsigned c) const
    {
        V3 const& pc = m_positions[c];
        V3 const x(m_positions[a].x - pc.x, m_positions[a].y - pc.y, m_positions[a].z - pc.z);
        V3 const y(m_positions[b].x - pc.x, m_positions[b].y - pc.y, m_positions[b].z - pc.z);
        double const lx = std::sqrt(x.x * x.x + x.y * x.y + x.z * x.z);
        double const ly = std::sqrt(y.x * y.x + y.y * y.y + y.z * y.z);
        if (lx < 1e-300 || ly < 1e-300)
            return -1;
        double const cosine = (x.x * y.x + x.y * y.y + x.z * y.z) / (lx * ly);
        return std::acos(std::min(1.0, std::max(-1.0, cosine)));
    }

    // GLU triangulates the thin band between the loops and the inner cells
    // in fans across it, and joins points on one line with triangles of no
    // area. Edges are flipped towards the Delaunay triangulation (by the
    // angles in space) wherever the flipped pair stays valid in parameter
    // space; boundary edges stay.
    void Improve()
    {
        size_t const numTriangles = m_triangles.size() / 3;
        if (numTriangles < 2)
            return;
        double const sense = m_face.reversed ? -1.0 : 1.0;
        auto key = [](unsigned a, unsigned b) { return a < b ? (uint64_t(a) << 32) | b : (uint64_t(b) << 32) | a; };
        std::unordered_map<uint64_t, std::array<long, 2>> edges;
        edges.reserve(numTriangles * 2);
        auto attach = [&](uint64_t k, long t) {
            auto& sides = edges.try_emplace(k, std::array<long, 2>{-1, -1}).first->second;
            if (sides[0] < 0)
                sides[0] = t;
            else if (sides[1] < 0)
                sides[1] = t;
            else
                sides[0] = sides[1] = -2; // more than two: never flipped
        };
        auto replace = [&](uint64_t k, long from, long to) {
            auto found = edges.find(k);
            if (found == edges.end())
                return;
            for (long& side : found->second)
                if (side == from) {
                    side = to;
                    return;
                }
        };
        std::vector<uint64_t> pending;
        for (size_t t = 0; t < numTriangles; ++t) {
            unsigned const* v = &m_triangles[3 * t];
            for (int c = 0; c < 3; ++c) {
                uint64_t const k = key(v[c], v[(c + 1) % 3]);
                attach(k, static_cast<long>(t));
                pending.push_back(k);
            }
        }
        double const tiny = 1e-14;
        size_t budget = numTriangles * 20;
        while (!pending.empty() && budget > 0) {
            uint64_t const k = pending.back();
            pending.pop_back();
            auto found = edges.find(k);
            if (found == edges.end() || found->second[0] < 0 || found->second[1] < 0)
                continue;
            long const t0 = found->second[0], t1 = found->second[1];
            unsigned* p0 = &m_triangles[3 * t0];
            unsigned* p1 = &m_triangles[3 * t1];
            // t0 = (x, y, c) and t1 = (y, x, d), read cyclically.
            int r = 0;
            while (r < 3 && key(p0[r], p0[(r + 1) % 3]) != k)
                ++r;
            if (r == 3)
                continue;
            unsigned const x = p0[r], y = p0[(r + 1) % 3], c = p0[(r + 2) % 3];
            unsigned d = ~0u;
            for (int q = 0; q < 3; ++q)
                if (p1[q] == y && p1[(q + 1) % 3] == x)
                    d = p1[(q + 2) % 3];
            if (d == ~0u || c == d)
                continue;
            double const newA = sense * UVArea(c, x, d), newB = sense * UVArea(d, y, c);
            if (newA <= tiny || newB <= tiny)
                continue;
            bool const degenerate = sense * UVArea(x, y, c) <= tiny || sense * UVArea(y, x, d) <= tiny;
            double const alpha = Angle(x, y, c), beta = Angle(y, x, d);
            if (!degenerate && (alpha < 0 || beta < 0 || alpha + beta <= 3.14159265358979 + 1e-9))
                continue;
            if (!degenerate && (Angle(c, x, d) < 0 || Angle(d, y, c) < 0))
                continue;
            p0[0] = c, p0[1] = x, p0[2] = d;
            p1[0] = d, p1[1] = y, p1[2] = c;
            edges.erase(found);
            replace(key(x, d), t1, t0);
            replace(key(y, c), t0, t1);
            edges[key(c, d)] = {t0, t1};
            for (uint64_t outer : {key(c, x), key(x, d), key(d, y), key(y, c)})
                pending.push_back(outer);
            --budget;
        }
    }

    void Emit()
    {
        std::vector<unsigned> remap(m_params.size(), ~0u);
        for (unsigned& index : m_triangles) {
            if (remap[index] == ~0u) {
                remap[index] = static_cast<unsigned>(m_mesh.positions.size());
                V3 const& p = m_positions[index];
                V3 const& n = m_normals[index];
                m_mesh.positions.push_back({float(p.x), float(p.y), float(p.z)});
                m_mesh.normals.push_back({float(n.x), float(n.y), float(n.z)});
                m_mesh.params.push_back({float((m_params[index].x - m_u0) / (m_u1 - m_u0)),
                                         float((m_params[index].y - m_v0) / (m_v1 - m_v0))});
            }
            m_mesh.indices.push_back(remap[index]);
        }
    }

    static void CALLBACK Begin(GLenum, void*) {}
    static void CALLBACK EdgeFlag(GLboolean, void*) {}
    static void CALLBACK Vertex(void* tag, void* self)
    {
        auto* mesher = static_cast<TezFaceMesher*>(self);
        mesher->m_pending[mesher->m_numPending++] = static_cast<unsigned>(reinterpret_cast<uintptr_t>(tag));
        if (mesher->m_numPending == 3) {
            mesher->AddTriangle(mesher->m_pending[0], mesher->m_pending[1], mesher->m_pending[2]);
            mesher->m_numPending = 0;
        }
    }
    static void CALLBACK Combine(GLdouble coords[3], void* [4], GLfloat[4], void** out, void* self)
    {
        auto* mesher = static_cast<TezFaceMesher*>(self);
        unsigned const index = mesher->AddVertex(V2(coords[0], coords[1]), nullptr);
        *out = Tag(index);
    }
    static void CALLBACK Error(GLenum error, void* self) { static_cast<TezFaceMesher*>(self)->m_error = error; }

    TezBrepModelBrep const& m_brep;
    TezBrepModelFace const& m_face;
    TezBrepFaceMesh& m_mesh;
    double m_u0 = 0, m_u1 = 1, m_v0 = 0, m_v1 = 1;
    std::vector<V2> m_params;
    std::vector<V3> m_positions;
    std::vector<V3> m_normals;
    std::vector<unsigned> m_triangles;
    std::deque<std::array<GLdouble, 3>> m_coordinates;
    std::unordered_map<long, unsigned> m_corners;
    unsigned m_pending[3] = {0, 0, 0};
    int m_numPending = 0;
    GLenum m_error = 0;
};

} // namespace

void TezBrepTessellateFace(TezBrepModelBrep const& brep, int face,
                           std::vector<std::vector<TezBrepTrimPoint>> const& loops, TezBrepFaceMesh& mesh)
{
    if (face < 0 || face >= static_cast<int>(brep.faces.size()))
        throw std::runtime_error("TezBrepTessellateFace: face " + std::to_string(face) + " out of range");
    TezFaceMesher mesher(brep, brep.faces[face], mesh);
    mesher.Run(loops);
}
