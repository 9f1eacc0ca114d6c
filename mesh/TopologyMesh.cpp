#include "mesh/TopologyMesh.h"

#include "core/Progress.h"
#include "mesh/HoleFilling.h"

#include <algorithm>
#include <set>
#include <unordered_map>

TEZ_DEFINE_REF_FUNCTIONS(TezTopologyMesh)

TezRef<TezTopologyMesh> TezTopologyVertex::GetMesh() const { return m_mesh; }

TezRef<TezTopologyMesh> TezTopologyMesh::Create(TezRef<TezIndexedMesh> geometry, bool progress)
{
    TezRef<TezTopologyMesh> mesh(new TezTopologyMesh);
    if (!geometry)
        return mesh;
    mesh->m_geometry = geometry;

    TezProgress report(progress);
    // Polled every so many items: often enough to stop at once, rarely
    // enough to cost nothing.
    constexpr size_t kStopPoll = size_t(1) << 16;
    auto stopped = [&](size_t i) {
        if (i % kStopPoll != 0 || !report.StopRequested())
            return false;
        mesh->Clear();
        return true;
    };
    size_t const numVertices = geometry->GetNumVertices();
    report.Start("Creating topology vertices...", numVertices);
    mesh->m_vertices.reserve(numVertices);
    for (size_t i = 0; i < numVertices; ++i) {
        if (stopped(i))
            return mesh;
        mesh->NewVertex(static_cast<unsigned int>(i));
        report.Step();
    }
    report.End();

    size_t const numTriangles = geometry->GetNumTriangles();
    report.Start("Creating topology triangles...", numTriangles);
    mesh->m_faces.reserve(numTriangles);
    std::vector<unsigned int> const& indices = geometry->GetIndices();
    for (size_t t = 0; t < numTriangles; ++t) {
        if (stopped(t))
            return mesh;
        unsigned int const* corner = &indices[3 * t];
        // A triangle naming a vertex that does not exist cannot be linked.
        if (corner[0] < numVertices && corner[1] < numVertices && corner[2] < numVertices)
            mesh->AddFace(corner[0], corner[1], corner[2], static_cast<unsigned int>(t));
        report.Step();
    }
    report.End();

    mesh->FindHoles(progress);
    if (report.StopRequested())
        mesh->Clear();
    return mesh;
}

TezTopologyVertex* TezTopologyMesh::NewVertex(unsigned int geometry)
{
    m_vertices.emplace_back(new TezTopologyVertex(this, geometry));
    return m_vertices.back().Get();
}

TezRef<TezTopologyFace> TezTopologyMesh::AddTriangle(TezMeshTriangle const& triangle, unsigned int face)
{
    if (!m_geometry)
        return nullptr;
    unsigned int const a = triangle.GetVertexIndex(0), b = triangle.GetVertexIndex(1), c = triangle.GetVertexIndex(2);
    size_t const n = m_vertices.size();
    if (a >= n || b >= n || c >= n || (face == NewFace && !IsEditable()))
        return nullptr;
    return AddFace(a, b, c, face);
}

TezTopologyFace* TezTopologyMesh::AddFace(unsigned int a, unsigned int b, unsigned int c, unsigned int face)
{
    bool const isNew = face == NewFace;
    if (isNew)
        face = static_cast<unsigned int>(m_faces.size());
    Face* f = new Face(face);
    m_faces.emplace_back(f);

    unsigned int const corners[3] = {a, b, c};
    for (int i = 0; i < 3; ++i) {
        HalfEdge* h = new HalfEdge;
        f->m_halfEdges[i] = h;
        h->m_face = f;
        h->m_geometry = static_cast<unsigned int>(i);
        h->m_vertex = m_vertices[corners[i]].Get();
        h->m_vertex->m_edges.push_back(h);
    }
    for (int i = 0; i < 3; ++i) {
        f->Edge(i)->m_next = f->Edge((i + 1) % 3);
        f->Edge(i)->m_previous = f->Edge((i + 2) % 3);
    }
    for (int i = 0; i < 3; ++i) {
        HalfEdge* h = f->Edge(i);
        Vertex* from = h->m_vertex;
        Vertex* to = h->m_next->m_vertex;
        // The edge the other way round; in a non-manifold place the last one wins.
        HalfEdge* found = nullptr;
        for (HalfEdge* g : to->m_edges)
            if (g != h && g->m_next->m_vertex == from)
                found = g;
        if (found)
            LinkMates(h, found);
    }
    if (isNew) {
        std::vector<unsigned int>& indices = m_geometry->GetIndices();
        indices.push_back(a);
        indices.push_back(b);
        indices.push_back(c);
    }
    return f;
}

void TezTopologyMesh::LinkMates(HalfEdge* a, HalfEdge* b)
{
    a->m_mate = b;
    b->m_mate = a;
}

void TezTopologyMesh::RemoveFromList(Vertex* vertex, HalfEdge* edge)
{
    std::vector<HalfEdge*>& list = vertex->m_edges;
    auto it = std::find(list.begin(), list.end(), edge);
    if (it != list.end())
        list.erase(it);
}

void TezTopologyMesh::FindHoles(bool progress)
{
    TezProgress report(progress);
    // Boundary half-edges, ordered by face number and corner.
    report.Start("Finding edges that belong to holes...", m_faces.size());
    std::set<std::pair<unsigned int, unsigned int>> open;
    std::unordered_map<HalfEdge const*, std::pair<unsigned int, unsigned int>> keys;
    for (size_t i = 0; i < m_faces.size(); ++i) {
        Face* f = m_faces[i].Get();
        for (int k = 0; k < 3; ++k)
            if (!f->Edge(k)->m_mate) {
                std::pair<unsigned int, unsigned int> key(static_cast<unsigned int>(i), k);
                open.insert(key);
                keys.emplace(f->Edge(k), key);
            }
        report.Step();
    }
    report.End();

    auto takeIfOpen = [&](HalfEdge* h) {
        auto key = keys.find(h);
        return key != keys.end() && open.erase(key->second) > 0;
    };

    report.Start("Connecting edges that belong to holes...", open.size());
    std::vector<TezRef<TezTopologyHole>> holes;
    while (!open.empty()) {
        auto first = *open.begin();
        open.erase(open.begin());
        HalfEdge* start = m_faces[first.first]->Edge(first.second);
        TezRef<TezTopologyHole> hole(new TezTopologyHole);
        hole->m_edges.emplace_back(start);
        report.Step();

        HalfEdge* h = start;
        bool closed = false;
        for (;;) {
            Vertex* v = h->m_next->m_vertex;
            if (v == start->m_vertex) {
                closed = true;
                break;
            }
            // Turn around v through the faces from h's face to the boundary
            // edge of the same fan; this keeps two holes that touch at v apart.
            HalfEdge* next = nullptr;
            HalfEdge* e = h->m_next;
            for (size_t turns = 0; turns <= v->m_edges.size() && e; ++turns) {
                if (!e->m_mate) {
                    next = e;
                    break;
                }
                e = e->m_mate->m_next;
            }
            if (!next || !takeIfOpen(next)) {
                next = nullptr;
                for (HalfEdge* g : v->m_edges)
                    if (!g->m_mate && takeIfOpen(g)) {
                        next = g;
                        break;
                    }
            }
            if (!next)
                break;
            hole->m_edges.emplace_back(next);
            report.Step();
            h = next;
        }
        if (closed)
            holes.push_back(hole);
    }
    report.End();
    m_holes.swap(holes);
}

void TezTopologyMesh::Clear()
{
    m_holes.clear();
    m_faces.clear();
    m_vertices.clear();
}

void TezTopologyMesh::Disconnect(TezRef<TezTopologyFace> face)
{
    if (!Owns(face.Get()))
        return;
    for (int i = 0; i < 3; ++i) {
        HalfEdge* h = face->Edge(i);
        if (!h)
            continue;
        if (h->m_mate) {
            if (h->m_mate->m_mate == h)
                h->m_mate->m_mate = nullptr;
            h->m_mate = nullptr;
        }
        if (h->m_vertex)
            RemoveFromList(h->m_vertex, h);
    }
}

void TezTopologyMesh::Remove(TezRef<TezMeshIndexList> triangles)
{
    if (!triangles || !m_geometry)
        return;
    std::vector<char> drop(m_faces.size(), 0);
    TezRef<TezMeshIndexList> valid = TezMeshIndexList::Create();
    for (size_t i = 0; i < triangles->GetNumIndices(); ++i) {
        unsigned int const t = triangles->Value(i);
        if (t < drop.size() && !drop[t]) {
            drop[t] = 1;
            valid->Add(t);
        }
    }
    for (size_t t = 0; t < drop.size(); ++t)
        if (drop[t])
            Disconnect(m_faces[t]);
    m_geometry->RemoveTriangles(valid);

    size_t kept = 0;
    for (size_t t = 0; t < m_faces.size(); ++t) {
        if (drop[t])
            continue;
        m_faces[kept] = m_faces[t];
        m_faces[kept]->m_geometry = static_cast<unsigned int>(kept);
        ++kept;
    }
    m_faces.resize(kept);
    FindHoles(false);
}

bool TezTopologyMesh::Validate() const
{
    if (!m_geometry)
        return false;
    if (m_vertices.size() != m_geometry->GetNumVertices() || m_faces.size() != m_geometry->GetNumTriangles())
        return false;
    for (size_t i = 0; i < m_vertices.size(); ++i) {
        Vertex const* v = m_vertices[i].Get();
        if (!v || v->m_geometry != i || v->m_mesh != this)
            return false;
        for (HalfEdge const* h : v->m_edges)
            if (!h || h->m_vertex != v)
                return false;
    }
    for (size_t t = 0; t < m_faces.size(); ++t) {
        Face const* f = m_faces[t].Get();
        if (!f || f->m_geometry != t)
            return false;
        for (int i = 0; i < 3; ++i) {
            HalfEdge const* h = f->Edge(i);
            if (!h || h->m_face != f || h->m_geometry != static_cast<unsigned int>(i) || !h->m_vertex)
                return false;
            if (h->m_vertex->m_geometry != m_geometry->GetIndex(t, i))
                return false;
            if (h->m_next != f->Edge((i + 1) % 3) || h->m_previous != f->Edge((i + 2) % 3))
                return false;
            std::vector<HalfEdge*> const& out = h->m_vertex->m_edges;
            if (std::find(out.begin(), out.end(), h) == out.end())
                return false;
            HalfEdge const* m = h->m_mate;
            if (m && (m->m_mate != h || m->m_vertex != h->m_next->m_vertex || m->m_next->m_vertex != h->m_vertex))
                return false;
        }
    }
    return true;
}

void TezTopologyMesh::SetBoolAllFaces(bool value)
{
    for (auto& f : m_faces)
        f->m_tempBool = value;
}

void TezTopologyMesh::SetBoolAllHalfEdges(bool value)
{
    for (auto& f : m_faces)
        for (int i = 0; i < 3; ++i)
            f->Edge(i)->m_tempBool = value;
}

void TezTopologyMesh::SetBoolAllVertices(bool value)
{
    for (auto& v : m_vertices)
        v->m_tempBool = value;
}

TezRef<TezTopologyMesh> TezTopologyMesh::Copy() const
{
    TezRef<TezTopologyMesh> copy(new TezTopologyMesh);
    if (!m_geometry)
        return copy;
    copy->m_geometry = m_geometry->Copy();
    TezProgress report;

    report.Start("Copying topology vertices...", m_vertices.size());
    copy->m_vertices.reserve(m_vertices.size());
    for (auto const& v : m_vertices) {
        Vertex* w = copy->NewVertex(v->m_geometry);
        w->m_tempBool = v->m_tempBool;
        w->m_tempInt = v->m_tempInt;
        w->m_tempVector = v->m_tempVector;
        report.Step();
    }
    report.End();

    // Half-edges are found again by face position and slot.
    std::unordered_map<HalfEdge const*, HalfEdge*> edgeMap;
    edgeMap.reserve(3 * m_faces.size());
    report.Start("Copying topology triangles...", m_faces.size());
    copy->m_faces.reserve(m_faces.size());
    for (auto const& f : m_faces) {
        Face* g = new Face(f->m_geometry);
        copy->m_faces.emplace_back(g);
        g->m_tempBool = f->m_tempBool;
        g->m_tempInt = f->m_tempInt;
        g->m_tempFloat = f->m_tempFloat;
        for (int i = 0; i < 3; ++i) {
            HalfEdge* h = new HalfEdge;
            g->m_halfEdges[i] = h;
            edgeMap.emplace(f->Edge(i), h);
        }
        report.Step();
    }
    report.End();

    auto map = [&](HalfEdge const* h) -> HalfEdge* {
        if (!h)
            return nullptr;
        auto it = edgeMap.find(h);
        return it == edgeMap.end() ? nullptr : it->second;
    };
    report.Start("Copying topology edges...", edgeMap.size());
    for (auto const& [from, to] : edgeMap) {
        to->m_vertex = from->m_vertex ? copy->m_vertices[from->m_vertex->m_geometry].Get() : nullptr;
        to->m_next = map(from->m_next);
        to->m_previous = map(from->m_previous);
        to->m_mate = map(from->m_mate);
        to->m_geometry = from->m_geometry;
        to->m_tempBool = from->m_tempBool;
        report.Step();
    }
    for (size_t t = 0; t < m_faces.size(); ++t)
        for (int i = 0; i < 3; ++i)
            copy->m_faces[t]->Edge(i)->m_face = copy->m_faces[t].Get();
    // Keep each vertex's list in its order.
    for (size_t i = 0; i < m_vertices.size(); ++i) {
        std::vector<HalfEdge*>& list = copy->m_vertices[i]->m_edges;
        for (HalfEdge const* h : m_vertices[i]->m_edges)
            if (HalfEdge* c = map(h))
                list.push_back(c);
    }
    report.End();

    report.Start("Copying topology holes...", m_holes.size());
    for (auto const& hole : m_holes) {
        TezRef<TezTopologyHole> h(new TezTopologyHole);
        for (auto const& e : hole->m_edges)
            if (HalfEdge* c = map(e.Get()))
                h->m_edges.emplace_back(c);
        copy->m_holes.push_back(h);
        report.Step();
    }
    report.End();
    return copy;
}

bool TezTopologyMesh::FillHole(TezRef<TezTopologyHole> hole)
{
    auto const listed = std::find(m_holes.begin(), m_holes.end(), hole);
    if (!hole || listed == m_holes.end() || !TezFillHole(*this, *hole))
        return false;
    // Filling adds faces and vertices but leaves the list of holes alone.
    m_holes.erase(listed);
    return true;
}

TezRef<TezTopologyVertex> TezTopologyMesh::SplitFace(TezRef<TezTopologyFace> face, TezVector3<float> const& position)
{
    return SplitFace(face.Get(), position);
}

TezTopologyVertex* TezTopologyMesh::SplitFace(TezTopologyFace* face, TezVector3<float> const& position)
{
    if (!IsEditable() || !Owns(face))
        return nullptr;
    return Split(face, position);
}

TezTopologyVertex* TezTopologyMesh::Split(Face* face, TezVector3<float> const& position)
{
    HalfEdge* h0 = face->Edge(0);
    HalfEdge* h1 = face->Edge(1);
    HalfEdge* h2 = face->Edge(2);
    Vertex* a = h0->m_vertex;
    Vertex* b = h1->m_vertex;
    Vertex* c = h2->m_vertex;

    TezMeshTriangle const triangle(a->m_geometry, b->m_geometry, c->m_geometry, m_geometry);
    unsigned int const index = m_geometry->AddVertex(TezMeshVertex(position, triangle.ComputeNormal()));
    Vertex* v = NewVertex(index);

    // (a, b, v) keeps the face; (b, c, v) and (c, a, v) are new.
    auto makeFace = [&](unsigned int number) {
        Face* f = new Face(number);
        m_faces.emplace_back(f);
        return f;
    };
    unsigned int const n = static_cast<unsigned int>(m_faces.size());
    Face* f1 = makeFace(n);
    Face* f2 = makeFace(n + 1);
    m_geometry->GetIndices().insert(m_geometry->GetIndices().end(),
                                    {b->m_geometry, c->m_geometry, index, c->m_geometry, a->m_geometry, index});

    HalfEdge* bv = new HalfEdge;
    HalfEdge* va = new HalfEdge;
    HalfEdge* cv = new HalfEdge;
    HalfEdge* vb = new HalfEdge;
    HalfEdge* av = new HalfEdge;
    HalfEdge* vc = new HalfEdge;
    // The old half-edges come out of the old face's slots before it is rebuilt.
    TezRef<TezTopologyHalfEdge> keep[3] = {face->m_halfEdges[0], face->m_halfEdges[1], face->m_halfEdges[2]};
    auto build = [&](Face* f, HalfEdge* e0, HalfEdge* e1, HalfEdge* e2, Vertex* p, Vertex* q) {
        HalfEdge* e[3] = {e0, e1, e2};
        Vertex* s[3] = {p, q, v};
        for (int i = 0; i < 3; ++i) {
            f->m_halfEdges[i] = e[i];
            e[i]->m_face = f;
            e[i]->m_geometry = static_cast<unsigned int>(i);
            e[i]->m_next = e[(i + 1) % 3];
            e[i]->m_previous = e[(i + 2) % 3];
            if (e[i]->m_vertex != s[i]) {
                e[i]->m_vertex = s[i];
                s[i]->m_edges.push_back(e[i]);
            }
        }
    };
    build(face, h0, bv, va, a, b);
    build(f1, h1, cv, vb, b, c);
    build(f2, h2, av, vc, c, a);
    LinkMates(bv, vb);
    LinkMates(cv, vc);
    LinkMates(av, va);
    m_geometry->SetIndex(face->m_geometry, 0, a->m_geometry);
    m_geometry->SetIndex(face->m_geometry, 1, b->m_geometry);
    m_geometry->SetIndex(face->m_geometry, 2, index);
    return v;
}

bool TezTopologyMesh::Swap(TezRef<TezTopologyFace> faceA, TezRef<TezTopologyHalfEdge> edgeA,
                           TezRef<TezTopologyFace> faceB, TezRef<TezTopologyHalfEdge> edgeB)
{
    if (!IsEditable() || !Owns(faceA.Get()) || !Owns(faceB.Get()) || !edgeA || !edgeB || edgeA->m_face != faceA.Get() ||
        edgeB->m_face != faceB.Get())
        return false;
    return SwapEdge(edgeA.Get(), edgeB.Get());
}

bool TezTopologyMesh::Swap(TezTopologyHalfEdge* edge)
{
    if (!IsEditable() || !edge || !edge->m_mate || !Owns(edge->m_face) || !Owns(edge->m_mate->m_face))
        return false;
    return SwapEdge(edge, edge->m_mate);
}

bool TezTopologyMesh::SwapEdge(HalfEdge* edgeA, HalfEdge* edgeB)
{
    if (edgeA->m_mate != edgeB || edgeB->m_mate != edgeA || edgeA->m_face == edgeB->m_face)
        return false;
    Face* faceA = edgeA->m_face;
    Face* faceB = edgeB->m_face;
    // faceA is E F P, faceB is F E Q; they become P E Q and Q F P.
    HalfEdge* ef = edgeA;
    HalfEdge* fp = ef->m_next;
    HalfEdge* pe = ef->m_previous;
    HalfEdge* fe = edgeB;
    HalfEdge* eq = fe->m_next;
    HalfEdge* qf = fe->m_previous;
    Vertex* e = ef->m_vertex;
    Vertex* f = fe->m_vertex;
    Vertex* p = pe->m_vertex;
    Vertex* q = qf->m_vertex;
    if (p == q)
        return false;
    for (HalfEdge const* h : p->m_edges)
        if (h->m_next->m_vertex == q)
            return false;
    for (HalfEdge const* h : q->m_edges)
        if (h->m_next->m_vertex == p)
            return false;

    // The faces own their half-edges; hold all six while they change hands.
    TezRef<TezTopologyHalfEdge> hold[6] = {ef, fp, pe, fe, eq, qf};
    RebuildFace(faceA, pe, eq, ef, p, e, q);
    RebuildFace(faceB, qf, fp, fe, q, f, p);
    return true;
}

void TezTopologyMesh::RebuildFace(Face* face, HalfEdge* e0, HalfEdge* e1, HalfEdge* e2, Vertex* a, Vertex* b, Vertex* c)
{
    HalfEdge* e[3] = {e0, e1, e2};
    Vertex* s[3] = {a, b, c};
    for (int i = 0; i < 3; ++i) {
        face->m_halfEdges[i] = e[i];
        e[i]->m_face = face;
        e[i]->m_geometry = static_cast<unsigned int>(i);
        e[i]->m_next = e[(i + 1) % 3];
        e[i]->m_previous = e[(i + 2) % 3];
        if (e[i]->m_vertex != s[i]) {
            RemoveFromList(e[i]->m_vertex, e[i]);
            e[i]->m_vertex = s[i];
            s[i]->m_edges.push_back(e[i]);
        }
        m_geometry->SetIndex(face->m_geometry, i, s[i]->m_geometry);
    }
}
