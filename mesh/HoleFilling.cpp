#include "mesh/HoleFilling.h"

#include "math/Constants.h"
#include "math/Plane.h"
#include "mesh/TopologyMesh.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

namespace {

using Vec = TezVector3<float>;

// Density control of the refinement: a face is split while its centroid lies
// farther than sigma / alpha from each corner.
float const kAlpha = std::sqrt(2.0f);
// Fairing rounds of a filled patch.
constexpr int kSmoothRounds = 5;
// Guards against swap cycles on strongly curved patches; a flat patch settles
// in a handful of passes.
constexpr int kMaxRelaxPasses = 100;
constexpr int kMaxRefinePasses = 64;

// Walks the table of best splits, emitting triangles as the corners (m, i, j).
void Trace(std::vector<int> const& best, size_t n, int i, int j, std::vector<int>& out)
{
    while (j != i + 2) {
        int const m = best[i * n + j];
        if (m != i + 1)
            Trace(best, n, i, m, out);
        out.insert(out.end(), {m, i, j});
        i = m;
        if (m == j - 1)
            return;
    }
    out.insert(out.end(), {i, i + 2, i + 1});
}

} // namespace

std::vector<int> TezTriangulateHoleRing(std::vector<TezVector3<float>> const& ring,
                                        std::vector<unsigned int> const& ids,
                                        std::vector<std::pair<int, int>> const& joined)
{
    std::vector<int> out;
    size_t const n = ring.size();
    if (n < 3)
        return out;
    float const kBlocked = std::numeric_limits<float>::infinity();

    std::vector<float> x(n), y(n), z(n);
    for (size_t k = 0; k < n; ++k) {
        x[k] = ring[k].x;
        y[k] = ring[k].y;
        z[k] = ring[k].z;
    }
    bool repeats = false;
    if (ids.size() == n) {
        std::vector<unsigned int> sorted(ids);
        std::sort(sorted.begin(), sorted.end());
        repeats = std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end();
    }
    auto sharesCorner = [&](size_t a, size_t b, size_t c) {
        return ids[a] == ids[b] || ids[b] == ids[c] || ids[a] == ids[c];
    };
    // Chords that would double an edge of the mesh; the ring's own edges are
    // the hole's boundary and always allowed.
    std::vector<char> blocked;
    for (auto const& [a, b] : joined) {
        size_t const lo = static_cast<size_t>(std::min(a, b));
        size_t const hi = static_cast<size_t>(std::max(a, b));
        if (hi >= n || hi == lo + 1 || (lo == 0 && hi == n - 1))
            continue;
        if (blocked.empty())
            blocked.assign(n * n, 0);
        blocked[lo * n + hi] = 1;
    }

    // weight[i][j]: least area of the polygon i..j; byColumn holds it
    // transposed so that the inner loop reads both terms contiguously.
    std::vector<float> weight(n * n, 0.0f), byColumn(n * n, 0.0f);
    std::vector<int> best(n * n, 0);
    std::vector<float> candidate(n);
    for (size_t span = 2; span < n; ++span) {
        for (size_t i = 0; i + span < n; ++i) {
            size_t const j = i + span;
            if (!blocked.empty() && blocked[i * n + j]) {
                weight[i * n + j] = kBlocked;
                byColumn[j * n + i] = kBlocked;
                best[i * n + j] = static_cast<int>(i + 1);
                continue;
            }
            // Area of (v[i], v[m], v[j]): half |(c - b) x (a - c)|.
            float const dx = x[i] - x[j], dy = y[i] - y[j], dz = z[i] - z[j];
            float const cx = x[j], cy = y[j], cz = z[j];
            float const* left = &weight[i * n];
            float const* right = &byColumn[j * n];
            for (size_t m = i + 1; m < j; ++m) {
                float const bx = cx - x[m], by = cy - y[m], bz = cz - z[m];
                float const ux = by * dz - bz * dy;
                float const uy = bz * dx - bx * dz;
                float const uz = bx * dy - by * dx;
                float const area = 0.5f * std::sqrt(ux * ux + uy * uy + uz * uz);
                candidate[m] = left[m] + right[m] + area;
            }
            if (repeats)
                for (size_t m = i + 1; m < j; ++m)
                    if (sharesCorner(i, m, j))
                        candidate[m] = kBlocked;
            // Strictly smaller only: a tie keeps the lowest m.
            size_t bestM = i + 1;
            float bestW = candidate[i + 1];
            for (size_t m = i + 2; m < j; ++m)
                if (candidate[m] < bestW) {
                    bestW = candidate[m];
                    bestM = m;
                }
            weight[i * n + j] = bestW;
            byColumn[j * n + i] = bestW;
            best[i * n + j] = static_cast<int>(bestM);
        }
    }
    if (!(weight[n - 1] < kBlocked))
        return out;
    out.reserve(3 * (n - 2));
    Trace(best, n, 0, static_cast<int>(n - 1), out);
    return out;
}

bool TezCheckRelaxNeed(TezVector3<float> const& p, TezVector3<float> const& e, TezVector3<float> const& f,
                       TezVector3<float> const& q, bool retry)
{
    TezPlane<float> const plane(p, e, f);
    TezVector2<float> const e2 = plane.Project(e);
    TezVector2<float> const f2 = plane.Project(f);
    float const d = 4.0f * (f2.y * e2.x - e2.y * f2.x);
    if (std::fabs(d) < TezEpsilonf)
        return retry ? TezCheckRelaxNeed(q, f, e, p, false) : false;
    float const ee = e2.LengthSquared();
    float const ff = f2.LengthSquared();
    TezVector2<float> const c((2.0f * f2.y * ee - 2.0f * e2.y * ff) / d, (2.0f * e2.x * ff - 2.0f * f2.x * ee) / d);
    Vec const centre = plane.Evaluate(c);
    return (p - centre).Length() > (q - centre).Length() + 1e-6f;
}

bool TezTopologyMesh::FillHole(TezRef<TezTopologyHole> hole)
{
    if (!hole || !Matches())
        return false;
    auto listed = std::find(m_holes.begin(), m_holes.end(), hole);
    if (listed == m_holes.end())
        return false;
    size_t const n = hole->m_edges.size();
    if (n < 3)
        return false;
    // A hole gone stale (edited since FindHoles) is refused rather than guessed at.
    std::vector<Vertex*> ring(n);
    for (size_t k = 0; k < n; ++k) {
        HalfEdge const* h = hole->m_edges[k].Get();
        HalfEdge const* g = hole->m_edges[(k + 1) % n].Get();
        Face const* f = h->m_face;
        if (h->m_mate || !f || f->m_geometry >= m_faces.size() || m_faces[f->m_geometry].Get() != f ||
            h->m_next->m_vertex != g->m_vertex)
            return false;
        ring[k] = h->m_vertex;
    }

    for (Vertex* v : ring)
        v->SetTempFloat(ComputeRefineWeight(v));

    size_t const first = m_faces.size();
    if (!TriangulateHole(ring))
        return false; // every triangulation would double an edge of the mesh
    std::vector<Face*> patch;
    patch.reserve(m_faces.size() - first);
    for (size_t i = first; i < m_faces.size(); ++i)
        patch.push_back(m_faces[i].Get());

    RefineHole(patch);
    // The patch's topology is settled: classify its vertices once for all rounds.
    std::vector<Vertex*> rim, inner;
    ClassifyPatch(patch, rim, inner);
    for (int round = 0; round < kSmoothRounds; ++round)
        SmoothRound(rim, inner);

    m_holes.erase(std::find(m_holes.begin(), m_holes.end(), hole));
    return true;
}

bool TezTopologyMesh::TriangulateHole(std::vector<Vertex*> const& ring)
{
    std::vector<Vec> positions(ring.size());
    std::vector<unsigned int> ids(ring.size());
    std::unordered_map<Vertex const*, std::vector<int>> places;
    for (size_t k = 0; k < ring.size(); ++k) {
        ids[k] = ring[k]->m_geometry;
        positions[k] = Position(ids[k]);
        places[ring[k]].push_back(static_cast<int>(k));
    }
    // Ring corners the mesh joins already: every edge between two of them
    // leaves one of them as a half-edge.
    std::vector<std::pair<int, int>> joined;
    for (auto const& [vertex, from] : places)
        for (HalfEdge const* h : vertex->m_edges) {
            auto to = places.find(h->m_next->m_vertex);
            if (to == places.end())
                continue;
            for (int a : from)
                for (int b : to->second)
                    joined.emplace_back(std::min(a, b), std::max(a, b));
        }
    std::vector<int> const corners = TezTriangulateHoleRing(positions, ids, joined);
    for (size_t t = 0; t + 2 < corners.size(); t += 3)
        AddFace(ids[corners[t]], ids[corners[t + 1]], ids[corners[t + 2]], NewFace);
    return !corners.empty();
}

float TezTopologyMesh::ComputeRefineWeight(Vertex const* vertex) const
{
    if (vertex->m_edges.empty())
        return 0.0f;
    Vec const& p = Position(vertex);
    float sum = 0.0f;
    for (HalfEdge const* h : vertex->m_edges)
        sum += (Position(h->m_next->m_vertex) - p).Length();
    return sum / static_cast<float>(vertex->m_edges.size());
}

void TezTopologyMesh::RefineHole(std::vector<Face*>& faces)
{
    std::vector<Face*> next;
    for (int pass = 0; pass < kMaxRefinePasses; ++pass) {
        bool split = false;
        next.clear();
        next.reserve(faces.size() * 2);
        for (Face* f : faces) {
            Vertex* v[3] = {f->Edge(0)->m_vertex, f->Edge(1)->m_vertex, f->Edge(2)->m_vertex};
            Vec const p[3] = {Position(v[0]), Position(v[1]), Position(v[2])};
            Vec const c = (p[0] + p[1] + p[2]) / 3.0f;
            float const sigma = (v[0]->GetTempFloat() + v[1]->GetTempFloat() + v[2]->GetTempFloat()) / 3.0f;
            bool coarse = true;
            for (int k = 0; k < 3 && coarse; ++k) {
                float const reach = kAlpha * (c - p[k]).Length();
                coarse = reach > sigma && reach > v[k]->GetTempFloat();
            }
            next.push_back(f);
            if (!coarse)
                continue;
            size_t const added = m_faces.size();
            SplitFace(f, c)->SetTempFloat(sigma);
            next.push_back(m_faces[added].Get());
            next.push_back(m_faces[added + 1].Get());
            split = true;
        }
        faces.swap(next);
        RelaxCompletely(faces);
        if (!split)
            break;
    }
}

unsigned int TezTopologyMesh::ListFaces(std::vector<Face*> const& faces)
{
    if (++m_lists == 0)
        ++m_lists;
    for (Face* f : faces)
        f->m_listed = m_lists;
    return m_lists;
}

void TezTopologyMesh::RelaxCompletely(std::vector<Face*> const& faces)
{
    unsigned int const list = ListFaces(faces);
    for (int pass = 0; pass < kMaxRelaxPasses && RelaxOnce(faces, list); ++pass) {
    }
}

bool TezTopologyMesh::RelaxOnce(std::vector<Face*> const& faces, unsigned int list)
{
    // Each edge pair is looked at once per pass, from the first of its two
    // listed faces that reaches it; an edge is marked by the pass's number.
    if (++m_relaxPasses == 0)
        ++m_relaxPasses;
    unsigned int const pass = m_relaxPasses;
    bool swapped = false;
    for (Face* f : faces) {
        for (int k = 0; k < 3; ++k) {
            HalfEdge* h = f->Edge(k);
            HalfEdge* m = h->m_mate;
            if (h->m_relaxPass == pass || !m || m->m_face->m_listed != list || m->m_relaxPass == pass)
                continue;
            bool const done = Relax(h, m);
            h->m_relaxPass = pass;
            m->m_relaxPass = pass;
            if (done) {
                // The face's edges have changed: move on to the next face.
                swapped = true;
                break;
            }
        }
    }
    return swapped;
}

bool TezTopologyMesh::Relax(HalfEdge* edgeA, HalfEdge* edgeB)
{
    // Positions stay put while a patch is refined, so an edge that passed the
    // test passes it again until one of its two faces changes.
    unsigned int const stampA = edgeA->m_face->m_stamp;
    unsigned int const stampB = edgeB->m_face->m_stamp;
    if (edgeA->m_relaxedFace == stampA && edgeA->m_relaxedMate == stampB)
        return false;
    if (CheckRelaxNeed(edgeA, edgeB, true) && SwapEdge(edgeA, edgeB))
        return true;
    edgeA->m_relaxedFace = stampA;
    edgeA->m_relaxedMate = stampB;
    return false;
}

bool TezTopologyMesh::CheckRelaxNeed(HalfEdge const* edgeA, HalfEdge const* edgeB, bool retry) const
{
    Vec const& p = Position(edgeA->m_previous->m_vertex);
    Vec const& e = Position(edgeA->m_vertex);
    Vec const& f = Position(edgeA->m_next->m_vertex);
    Vec const& q = Position(edgeB->m_previous->m_vertex);
    return TezCheckRelaxNeed(p, e, f, q, retry);
}

TezVector3<float> TezTopologyMesh::ComputeUmbrellaOp(Vertex const* vertex) const
{
    Vec sum(0.0f, 0.0f, 0.0f);
    if (vertex->m_edges.empty())
        return sum;
    Vec const& p = Position(vertex);
    for (HalfEdge const* h : vertex->m_edges)
        sum += Position(h->m_next->m_vertex) - p;
    return sum / static_cast<float>(vertex->m_edges.size());
}

TezVector3<float> TezTopologyMesh::ComputeUmbrellaOp2(Vertex const* vertex, float& nu) const
{
    Vec sum(0.0f, 0.0f, 0.0f);
    nu = 1.0f;
    size_t const n = vertex->m_edges.size();
    if (n == 0)
        return sum;
    float inverse = 0.0f;
    for (HalfEdge const* h : vertex->m_edges) {
        Vertex const* q = h->m_next->m_vertex;
        sum += q->m_tempVector;
        if (!q->m_edges.empty())
            inverse += 1.0f / static_cast<float>(q->m_edges.size());
    }
    nu = 1.0f + inverse / static_cast<float>(n);
    return sum / static_cast<float>(n) - vertex->m_tempVector;
}

void TezTopologyMesh::SmoothPatch(std::vector<Face*> const& faces)
{
    std::vector<Vertex*> ring, inner;
    ClassifyPatch(faces, ring, inner);
    SmoothRound(ring, inner);
}

void TezTopologyMesh::ClassifyPatch(std::vector<Face*> const& faces, std::vector<Vertex*>& ring,
                                    std::vector<Vertex*>& inner)
{
    unsigned int const list = ListFaces(faces);
    for (Face* f : faces)
        for (int k = 0; k < 3; ++k)
            f->Edge(k)->m_vertex->m_tempBool = false;
    // The ring touches faces outside the patch and anchors it; only inner vertices move.
    for (Face* f : faces)
        for (int k = 0; k < 3; ++k) {
            HalfEdge const* h = f->Edge(k);
            Vertex* v = h->m_vertex;
            if (!v->m_tempBool && h->m_mate && h->m_mate->m_face && h->m_mate->m_face->m_listed != list) {
                ring.push_back(v);
                v->m_tempBool = true;
            }
        }
    for (Face* f : faces)
        for (int k = 0; k < 3; ++k) {
            Vertex* v = f->Edge(k)->m_vertex;
            if (!v->m_tempBool) {
                inner.push_back(v);
                v->m_tempBool = true;
            }
        }
}

void TezTopologyMesh::SmoothRound(std::vector<Vertex*> const& ring, std::vector<Vertex*> const& inner)
{
    for (Vertex* v : ring)
        v->m_tempVector = ComputeUmbrellaOp(v);
    for (Vertex* v : inner)
        v->m_tempVector = ComputeUmbrellaOp(v);

    std::vector<Vec> moved(inner.size());
    for (size_t k = 0; k < inner.size(); ++k) {
        float nu = 1.0f;
        Vec const u2 = ComputeUmbrellaOp2(inner[k], nu);
        moved[k] = Position(inner[k]) - u2 / nu;
    }
    std::vector<TezMeshVertex>& vertices = m_geometry->GetVertices();
    for (size_t k = 0; k < inner.size(); ++k)
        vertices[inner[k]->m_geometry].position = moved[k];
}
