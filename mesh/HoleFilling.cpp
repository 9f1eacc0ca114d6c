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

namespace {

using Face = TezTopologyFace;
using HalfEdge = TezTopologyHalfEdge;
using Vertex = TezTopologyVertex;

// One fill: the hole's ring triangulated, the patch refined with edge swaps,
// then faired, all through the mesh's public operations. The patch is every
// face added from the first triangle on; the filler keeps what it needs to
// know of those faces and their half-edges in records of its own, by face
// number and corner.
class HoleFiller
{
public:
    explicit HoleFiller(TezTopologyMesh& mesh) : m_mesh(mesh), m_geometry(*mesh.GetGeometry()) {}

    bool Fill(TezTopologyHole const& hole);

private:
    // Goes with its half-edge when a split or a swap moves it to another
    // face or corner.
    struct EdgeRecord
    {
        // Stamps of the edge's face and its mate's face when the edge last
        // passed the in-circle test with the edge's face as the first face.
        unsigned int relaxedFace = 0;
        unsigned int relaxedMate = 0;
        // The relaxation pass that last looked at the edge.
        unsigned int relaxPass = 0;
    };
    // A face of the patch with its half-edges' records by corner, together
    // because the relaxation reads them together.
    struct FaceRecord
    {
        // Changes whenever the face's corners change; never 0 once tracked.
        unsigned int stamp = 0;
        EdgeRecord edges[3];
    };
    struct HeldRecord
    {
        HalfEdge const* edge;
        EdgeRecord record;
    };

    // The hole's vertices in walk order; false for a hole gone stale.
    bool CollectRing(TezTopologyHole const& hole, std::vector<Vertex*>& ring) const;
    // False, with nothing added, when the ring has no valid triangulation.
    bool TriangulateHole(std::vector<Vertex*> const& ring);
    void RefineHole(std::vector<Face*>& faces);
    float ComputeRefineWeight(Vertex const* vertex) const;
    // Splits a patch face; answers the new vertex and adds the two new faces.
    Vertex* SplitFace(Face* face, Vec const& position, std::vector<Face*>& faces);
    // Swaps the edge between the half-edge's face and its mate's.
    bool Swap(HalfEdge* edge);
    void RelaxCompletely(std::vector<Face*> const& faces);
    bool RelaxOnce(std::vector<Face*> const& faces);
    // With the records of the two half-edges' faces and of edgeA.
    bool Relax(HalfEdge* edgeA, HalfEdge* edgeB, FaceRecord const& faceA, FaceRecord const& faceB, EdgeRecord& record);
    bool CheckRelaxNeed(HalfEdge const* edgeA, HalfEdge const* edgeB, bool retry) const;
    void SmoothPatch(std::vector<Face*> const& faces);
    // The patch's ring (vertices on faces outside it) and inner vertices.
    void ClassifyPatch(std::vector<Face*> const& faces, std::vector<Vertex*>& ring, std::vector<Vertex*>& inner);
    void SmoothRound(std::vector<Vertex*> const& ring, std::vector<Vertex*> const& inner);
    Vec ComputeUmbrellaOp(Vertex const* vertex) const;
    Vec ComputeUmbrellaOp2(Vertex const* vertex, float& nu) const;

    // The faces that refinement, relaxation and fairing work on are always
    // the whole patch: those numbered from the patch's first on.
    bool IsPatchFace(Face const* face) const { return face->GetGeometry() >= m_first; }
    // A face new to the patch: fresh records and a stamp.
    void Track(Face const* face);
    void Restamp(Face const* face)
    {
        m_records[face->GetGeometry() - m_first].stamp = ++m_stamps ? m_stamps : ++m_stamps;
    }
    EdgeRecord& Record(HalfEdge const* edge)
    {
        return m_records[edge->Face()->GetGeometry() - m_first].edges[edge->GetGeometry()];
    }
    // Before an edit, the records of the face's half-edges; after it, each
    // record where its half-edge now is, and fresh ones for new half-edges.
    void HoldRecords(Face const* face, std::vector<HeldRecord>& held);
    void PlaceRecords(Face const* face, std::vector<HeldRecord> const& held);

    Vec const& Position(Vertex const* vertex) const { return m_geometry.GetVertex(vertex->GetGeometry()).position; }

    TezTopologyMesh& m_mesh;
    TezIndexedMesh& m_geometry;
    // The number of the patch's first face; records are kept from there on.
    size_t m_first = 0;
    std::vector<FaceRecord> m_records;
    std::vector<HeldRecord> m_held;
    unsigned int m_stamps = 0;
    unsigned int m_relaxPasses = 0;
};

bool HoleFiller::Fill(TezTopologyHole const& hole)
{
    std::vector<Vertex*> ring;
    if (!m_mesh.IsEditable() || !CollectRing(hole, ring))
        return false;
    for (Vertex* v : ring)
        v->SetTempFloat(ComputeRefineWeight(v));

    m_first = m_mesh.GetNumFaces();
    // Room for a patch of moderate density without regrowing the records.
    m_records.reserve(16 * ring.size());
    if (!TriangulateHole(ring))
        return false; // every triangulation would double an edge of the mesh
    std::vector<Face*> patch;
    patch.reserve(m_mesh.GetNumFaces() - m_first);
    for (size_t i = m_first; i < m_mesh.GetNumFaces(); ++i)
        patch.push_back(m_mesh.GetFace(i).Get());

    RefineHole(patch);
    SmoothPatch(patch);
    return true;
}

// A hole edited since FindHoles is refused rather than guessed at: each edge
// must still be on the boundary, in a face of the mesh, and end where the
// next one starts.
bool HoleFiller::CollectRing(TezTopologyHole const& hole, std::vector<Vertex*>& ring) const
{
    size_t const n = static_cast<size_t>(hole.GetNumEdges());
    if (n < 3)
        return false;
    ring.resize(n);
    for (size_t k = 0; k < n; ++k) {
        HalfEdge const* h = hole.GetEdge(static_cast<int>(k)).Get();
        HalfEdge const* g = hole.GetEdge(static_cast<int>((k + 1) % n)).Get();
        Face const* f = h->Face();
        if (h->Mate() || !f || f->GetGeometry() >= m_mesh.GetNumFaces() ||
            m_mesh.GetFace(f->GetGeometry()).Get() != f || h->Next()->Vertex() != g->Vertex())
            return false;
        ring[k] = h->Vertex();
    }
    return true;
}

void HoleFiller::Track(Face const* face)
{
    size_t const index = face->GetGeometry() - m_first;
    if (m_records.size() <= index)
        m_records.resize(index + 1);
    m_records[index] = FaceRecord();
    Restamp(face);
}

// A face's half-edge at corner k keeps its record at corner k.
void HoleFiller::HoldRecords(Face const* face, std::vector<HeldRecord>& held)
{
    FaceRecord const& records = m_records[face->GetGeometry() - m_first];
    for (int k = 0; k < 3; ++k)
        held.push_back(HeldRecord{face->Edge(k), records.edges[k]});
}

void HoleFiller::PlaceRecords(Face const* face, std::vector<HeldRecord> const& held)
{
    FaceRecord& records = m_records[face->GetGeometry() - m_first];
    for (int k = 0; k < 3; ++k) {
        HalfEdge const* edge = face->Edge(k);
        EdgeRecord record;
        for (HeldRecord const& h : held)
            if (h.edge == edge)
                record = h.record;
        records.edges[k] = record;
    }
}

bool HoleFiller::TriangulateHole(std::vector<Vertex*> const& ring)
{
    std::vector<Vec> positions(ring.size());
    std::vector<unsigned int> ids(ring.size());
    std::unordered_map<Vertex const*, std::vector<int>> places;
    for (size_t k = 0; k < ring.size(); ++k) {
        ids[k] = ring[k]->GetGeometry();
        positions[k] = Position(ring[k]);
        places[ring[k]].push_back(static_cast<int>(k));
    }
    // Ring corners the mesh joins already: every edge between two of them
    // leaves one of them as a half-edge.
    std::vector<std::pair<int, int>> joined;
    for (auto const& [vertex, from] : places)
        for (int e = 0; e < vertex->GetNumEdges(); ++e) {
            auto to = places.find(vertex->Edge(e)->Next()->Vertex());
            if (to == places.end())
                continue;
            for (int a : from)
                for (int b : to->second)
                    joined.emplace_back(std::min(a, b), std::max(a, b));
        }
    std::vector<int> const corners = TezTriangulateHoleRing(positions, ids, joined);
    for (size_t t = 0; t + 2 < corners.size(); t += 3) {
        TezMeshTriangle const triangle(ids[corners[t]], ids[corners[t + 1]], ids[corners[t + 2]]);
        if (TezRef<TezTopologyFace> face = m_mesh.AddTriangle(triangle, TezTopologyMesh::NewFace))
            Track(face.Get());
    }
    return !corners.empty();
}

float HoleFiller::ComputeRefineWeight(Vertex const* vertex) const
{
    int const n = vertex->GetNumEdges();
    if (n == 0)
        return 0.0f;
    Vec const& p = Position(vertex);
    float sum = 0.0f;
    for (int e = 0; e < n; ++e)
        sum += (Position(vertex->Edge(e)->Next()->Vertex()) - p).Length();
    return sum / static_cast<float>(n);
}

void HoleFiller::RefineHole(std::vector<Face*>& faces)
{
    std::vector<Face*> next;
    for (int pass = 0; pass < kMaxRefinePasses; ++pass) {
        bool split = false;
        next.clear();
        next.reserve(faces.size() * 2);
        for (Face* f : faces) {
            Vertex* v[3] = {f->Edge(0)->Vertex(), f->Edge(1)->Vertex(), f->Edge(2)->Vertex()};
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
            if (Vertex* added = SplitFace(f, c, next)) {
                added->SetTempFloat(sigma);
                split = true;
            }
        }
        faces.swap(next);
        RelaxCompletely(faces);
        if (!split)
            break;
    }
}

Vertex* HoleFiller::SplitFace(Face* face, Vec const& position, std::vector<Face*>& faces)
{
    m_held.clear();
    HoldRecords(face, m_held);
    Vertex* vertex = m_mesh.SplitFace(face, position);
    if (!vertex)
        return nullptr;
    // The two new faces are the vertex's others, in the order of their numbers.
    Face* parts[3] = {face, nullptr, nullptr};
    for (int e = 0, n = 1; e < vertex->GetNumEdges() && n < 3; ++e)
        if (vertex->Edge(e)->Face() != face)
            parts[n++] = vertex->Edge(e)->Face();
    if (parts[1]->GetGeometry() > parts[2]->GetGeometry())
        std::swap(parts[1], parts[2]);
    Track(parts[1]);
    Track(parts[2]);
    Restamp(face);
    for (Face const* part : parts)
        PlaceRecords(part, m_held);
    faces.push_back(parts[1]);
    faces.push_back(parts[2]);
    return vertex;
}

bool HoleFiller::Swap(HalfEdge* edge)
{
    Face* faceA = edge->Face();
    Face* faceB = edge->Mate()->Face();
    m_held.clear();
    HoldRecords(faceA, m_held);
    HoldRecords(faceB, m_held);
    if (!m_mesh.Swap(edge))
        return false;
    Restamp(faceA);
    Restamp(faceB);
    PlaceRecords(faceA, m_held);
    PlaceRecords(faceB, m_held);
    return true;
}

void HoleFiller::RelaxCompletely(std::vector<Face*> const& faces)
{
    for (int pass = 0; pass < kMaxRelaxPasses && RelaxOnce(faces); ++pass) {
    }
}

bool HoleFiller::RelaxOnce(std::vector<Face*> const& faces)
{
    // Each edge pair inside the patch is looked at once per pass, from the
    // first of its two faces that reaches it; an edge is marked by the
    // pass's number.
    if (++m_relaxPasses == 0)
        ++m_relaxPasses;
    unsigned int const pass = m_relaxPasses;
    bool swapped = false;
    for (Face* f : faces) {
        size_t const face = f->GetGeometry() - m_first;
        for (int k = 0; k < 3; ++k) {
            HalfEdge* h = f->Edge(k);
            HalfEdge* m = h->Mate();
            EdgeRecord& own = m_records[face].edges[k];
            if (own.relaxPass == pass || !m)
                continue;
            if (!IsPatchFace(m->Face()))
                continue;
            FaceRecord& mateFace = m_records[m->Face()->GetGeometry() - m_first];
            EdgeRecord& mate = mateFace.edges[m->GetGeometry()];
            if (mate.relaxPass == pass)
                continue;
            if (!Relax(h, m, m_records[face], mateFace, own)) {
                own.relaxPass = pass;
                mate.relaxPass = pass;
                continue;
            }
            // The swap moved both half-edges, and the face's edges have
            // changed: mark the two where they are now, then move on to the
            // next face.
            Record(h).relaxPass = pass;
            Record(m).relaxPass = pass;
            swapped = true;
            break;
        }
    }
    return swapped;
}

bool HoleFiller::Relax(HalfEdge* edgeA, HalfEdge* edgeB, FaceRecord const& faceA, FaceRecord const& faceB,
                       EdgeRecord& record)
{
    // Positions stay put while a patch is refined, so an edge that passed the
    // test passes it again until one of its two faces changes.
    unsigned int const stampA = faceA.stamp;
    unsigned int const stampB = faceB.stamp;
    if (record.relaxedFace == stampA && record.relaxedMate == stampB)
        return false;
    if (CheckRelaxNeed(edgeA, edgeB, true) && Swap(edgeA))
        return true;
    record.relaxedFace = stampA;
    record.relaxedMate = stampB;
    return false;
}

bool HoleFiller::CheckRelaxNeed(HalfEdge const* edgeA, HalfEdge const* edgeB, bool retry) const
{
    Vec const& p = Position(edgeA->Previous()->Vertex());
    Vec const& e = Position(edgeA->Vertex());
    Vec const& f = Position(edgeA->Next()->Vertex());
    Vec const& q = Position(edgeB->Previous()->Vertex());
    return TezCheckRelaxNeed(p, e, f, q, retry);
}

// The patch's topology is settled: its vertices are classified once for all
// rounds.
void HoleFiller::SmoothPatch(std::vector<Face*> const& faces)
{
    std::vector<Vertex*> ring, inner;
    ClassifyPatch(faces, ring, inner);
    for (int round = 0; round < kSmoothRounds; ++round)
        SmoothRound(ring, inner);
}

void HoleFiller::ClassifyPatch(std::vector<Face*> const& faces, std::vector<Vertex*>& ring, std::vector<Vertex*>& inner)
{
    for (Face* f : faces)
        for (int k = 0; k < 3; ++k)
            f->Edge(k)->Vertex()->SetTempBool(false);
    // The ring touches faces outside the patch and anchors it; only inner vertices move.
    for (Face* f : faces)
        for (int k = 0; k < 3; ++k) {
            HalfEdge const* h = f->Edge(k);
            Vertex* v = h->Vertex();
            if (!v->GetTempBool() && h->Mate() && h->Mate()->Face() && !IsPatchFace(h->Mate()->Face())) {
                ring.push_back(v);
                v->SetTempBool(true);
            }
        }
    for (Face* f : faces)
        for (int k = 0; k < 3; ++k) {
            Vertex* v = f->Edge(k)->Vertex();
            if (!v->GetTempBool()) {
                inner.push_back(v);
                v->SetTempBool(true);
            }
        }
}

void HoleFiller::SmoothRound(std::vector<Vertex*> const& ring, std::vector<Vertex*> const& inner)
{
    for (Vertex* v : ring)
        v->SetTempVector(ComputeUmbrellaOp(v));
    for (Vertex* v : inner)
        v->SetTempVector(ComputeUmbrellaOp(v));

    std::vector<Vec> moved(inner.size());
    for (size_t k = 0; k < inner.size(); ++k) {
        float nu = 1.0f;
        Vec const u2 = ComputeUmbrellaOp2(inner[k], nu);
        moved[k] = Position(inner[k]) - u2 / nu;
    }
    std::vector<TezMeshVertex>& vertices = m_geometry.GetVertices();
    for (size_t k = 0; k < inner.size(); ++k)
        vertices[inner[k]->GetGeometry()].position = moved[k];
}

Vec HoleFiller::ComputeUmbrellaOp(Vertex const* vertex) const
{
    Vec sum(0.0f, 0.0f, 0.0f);
    int const n = vertex->GetNumEdges();
    if (n == 0)
        return sum;
    Vec const& p = Position(vertex);
    for (int e = 0; e < n; ++e)
        sum += Position(vertex->Edge(e)->Next()->Vertex()) - p;
    return sum / static_cast<float>(n);
}

Vec HoleFiller::ComputeUmbrellaOp2(Vertex const* vertex, float& nu) const
{
    Vec sum(0.0f, 0.0f, 0.0f);
    nu = 1.0f;
    int const n = vertex->GetNumEdges();
    if (n == 0)
        return sum;
    float inverse = 0.0f;
    for (int e = 0; e < n; ++e) {
        Vertex const* q = vertex->Edge(e)->Next()->Vertex();
        sum += q->GetTempVector();
        if (q->GetNumEdges() > 0)
            inverse += 1.0f / static_cast<float>(q->GetNumEdges());
    }
    nu = 1.0f + inverse / static_cast<float>(n);
    return sum / static_cast<float>(n) - vertex->GetTempVector();
}

} // namespace

bool TezFillHole(TezTopologyMesh& mesh, TezTopologyHole const& hole) { return HoleFiller(mesh).Fill(hole); }
