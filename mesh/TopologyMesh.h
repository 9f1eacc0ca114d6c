#pragma once
// TezTopologyMesh: a half-edge view over a TezIndexedMesh, with hole filling.
//
// The geometry stays in the indexed mesh, which the editing operations change
// in place; vertices, half-edges and faces only name it by number (vertex
// index, corner, triangle number). Face i of the topology is triangle i of the
// mesh. The mesh owns its vertices and faces, a face its three half-edges;
// links between them are plain pointers, and getters hand out TezRefs.
//
// The getters hand out links as TezRefs. Algorithms that walk many entities
// use the bare-noun accessors (Edge, Vertex, Face, Next, Previous, Mate):
// the same links as plain pointers, not counted, valid while the mesh keeps
// the entity.
//
// Non-manifold input is tolerated: where more than two triangles share an
// edge the last one added takes the mate link, and Validate reports the
// inconsistency. Boundary walks that do not close are not made into holes.
//
// FillHole runs the hole filling of mesh/HoleFilling.h (Liepa, "Filling
// holes in meshes", SGP 2003) through the operations below.

#include "core/RefCounter.h"
#include "math/Vector.h"
#include "mesh/IndexedMesh.h"
#include "mesh/MeshIndexList.h"

#include <vector>

class TezTopologyFace;
class TezTopologyHalfEdge;
class TezTopologyMesh;

TEZ_DECLARE_REF_FUNCTIONS(TezTopologyMesh)

class TEZ_API TezTopologyVertex : public TezRefCounter
{
public:
    // Outgoing half-edges.
    int GetNumEdges() const { return static_cast<int>(m_edges.size()); }
    TezRef<TezTopologyHalfEdge> GetEdge(int i) const;
    TezTopologyHalfEdge* Edge(int i) const { return m_edges[i]; }
    // The vertex's index in the indexed mesh.
    unsigned int GetGeometry() const { return m_geometry; }
    TezRef<TezTopologyMesh> GetMesh() const;

    // Scratch values. The float is the vector's x: a vertex holds one or the other.
    bool GetTempBool() const { return m_tempBool; }
    void SetTempBool(bool value) { m_tempBool = value; }
    int GetTempInt() const { return m_tempInt; }
    void SetTempInt(int value) { m_tempInt = value; }
    float GetTempFloat() const { return m_tempVector.x; }
    void SetTempFloat(float value) { m_tempVector.x = value; }
    TezVector3<float> const& GetTempVector() const { return m_tempVector; }
    void SetTempVector(TezVector3<float> const& value) { m_tempVector = value; }

private:
    friend class TezTopologyMesh;
    friend class TezMeshCurvatureAnalyzer;
    TezTopologyVertex(TezTopologyMesh* mesh, unsigned int geometry) : m_mesh(mesh), m_geometry(geometry) {}

    std::vector<TezTopologyHalfEdge*> m_edges;
    TezTopologyMesh* m_mesh;
    unsigned int m_geometry;
    bool m_tempBool = false;
    int m_tempInt = 0;
    TezVector3<float> m_tempVector{0.0f, 0.0f, 0.0f};
};

class TEZ_API TezTopologyHalfEdge : public TezRefCounter
{
public:
    // The vertex it starts at.
    TezRef<TezTopologyVertex> GetVertex() const { return m_vertex; }
    // Its end: the next half-edge's start.
    TezRef<TezTopologyVertex> GetOppositeVertex() const { return m_next->m_vertex; }
    TezRef<TezTopologyFace> GetFace() const;
    TezRef<TezTopologyHalfEdge> GetNext() const { return m_next; }
    TezRef<TezTopologyHalfEdge> GetPrevious() const { return m_previous; }
    // Null on a boundary.
    TezRef<TezTopologyHalfEdge> GetMate() const { return m_mate; }
    // The corner of its face it starts at, 0 to 2.
    unsigned int GetGeometry() const { return m_geometry; }

    TezTopologyVertex* Vertex() const { return m_vertex; }
    TezTopologyFace* Face() const { return m_face; }
    TezTopologyHalfEdge* Next() const { return m_next; }
    TezTopologyHalfEdge* Previous() const { return m_previous; }
    TezTopologyHalfEdge* Mate() const { return m_mate; }

    bool GetTempBool() const { return m_tempBool; }
    void SetTempBool(bool value) { m_tempBool = value; }

private:
    friend class TezTopologyMesh;
    friend class TezMeshCurvatureAnalyzer;
    TezTopologyHalfEdge() = default;

    TezTopologyVertex* m_vertex = nullptr;
    TezTopologyFace* m_face = nullptr;
    TezTopologyHalfEdge* m_next = nullptr;
    TezTopologyHalfEdge* m_previous = nullptr;
    TezTopologyHalfEdge* m_mate = nullptr;
    unsigned int m_geometry = 0;
    bool m_tempBool = false;
};

class TEZ_API TezTopologyFace : public TezRefCounter
{
public:
    TezRef<TezTopologyHalfEdge> const& GetHalfEdge(int i) const { return m_halfEdges[i]; }
    TezTopologyHalfEdge* Edge(int i) const { return m_halfEdges[i].Get(); }
    // The triangle's number in the indexed mesh.
    unsigned int GetGeometry() const { return m_geometry; }

    bool GetTempBool() const { return m_tempBool; }
    void SetTempBool(bool value) { m_tempBool = value; }
    int GetTempInt() const { return m_tempInt; }
    void SetTempInt(int value) { m_tempInt = value; }
    float GetTempFloat() const { return m_tempFloat; }
    void SetTempFloat(float value) { m_tempFloat = value; }

private:
    friend class TezTopologyMesh;
    friend class TezMeshCurvatureAnalyzer;
    explicit TezTopologyFace(unsigned int geometry) : m_geometry(geometry) {}

    TezRef<TezTopologyHalfEdge> m_halfEdges[3];
    unsigned int m_geometry;
    bool m_tempBool = false;
    int m_tempInt = 0;
    float m_tempFloat = 0.0f;
};

// A closed loop of boundary half-edges, in walk order; edge k ends where edge
// k+1 starts.
class TEZ_API TezTopologyHole : public TezRefCounter
{
public:
    int GetNumEdges() const { return static_cast<int>(m_edges.size()); }
    TezRef<TezTopologyHalfEdge> const& GetEdge(int i) const { return m_edges[i]; }

private:
    friend class TezTopologyMesh;
    TezTopologyHole() = default;
    std::vector<TezRef<TezTopologyHalfEdge>> m_edges;
};

class TEZ_API TezTopologyMesh : public TezRefCounter
{
public:
    static constexpr unsigned int NewFace = 0xFFFFFFFFu;

    // Builds vertices and faces over the mesh and finds the holes. With
    // progress, reports through the application's UI manager, and a stop
    // the host raises ends the build early with an empty topology (no
    // vertices, faces or holes; IsEditable false).
    static TezRef<TezTopologyMesh> Create(TezRef<TezIndexedMesh> geometry, bool progress = false);
    // A deep copy of the topology and of the geometry.
    TezRef<TezTopologyMesh> Copy() const;

    // Adds a face for triangle number `face`, or for a new triangle appended
    // to the indexed mesh when `face` is NewFace.
    TezRef<TezTopologyFace> AddTriangle(TezMeshTriangle const& triangle, unsigned int face);

    void FindHoles(bool progress = false);
    void ClearHoles() { m_holes.clear(); }
    void Clear();

    // Fills the hole (TezFillHole) and removes it from the list. False, with
    // nothing changed, for a hole that is not in the list or that
    // TezFillHole refuses.
    bool FillHole(TezRef<TezTopologyHole> hole);

    // Whether faces and vertices still stand one to one for the geometry's
    // triangles and vertices (not so after triangles with missing corners
    // were left out); the editing operations refuse a mesh that does not.
    bool IsEditable() const
    {
        return m_geometry && m_faces.size() == m_geometry->GetNumTriangles() &&
               m_vertices.size() == m_geometry->GetNumVertices();
    }

    // Inserts a vertex at the position, which should lie in the face; the face
    // becomes three, the first keeping its number and the other two appended.
    // Returns the new vertex, or null for a face of another mesh or a mesh
    // that is not editable.
    TezRef<TezTopologyVertex> SplitFace(TezRef<TezTopologyFace> face, TezVector3<float> const& position);
    TezTopologyVertex* SplitFace(TezTopologyFace* face, TezVector3<float> const& position);
    // Replaces the edge shared by the two faces (edgeA in faceA, edgeB its
    // mate) by the edge between their opposite corners. False, with nothing
    // changed, when the edges are not mates or the new edge already exists.
    bool Swap(TezRef<TezTopologyFace> faceA, TezRef<TezTopologyHalfEdge> edgeA, TezRef<TezTopologyFace> faceB,
              TezRef<TezTopologyHalfEdge> edgeB);
    // The same for the edge between the half-edge's face and its mate's.
    bool Swap(TezTopologyHalfEdge* edge);
    // Removes the listed triangles from topology and geometry, renumbers the
    // faces that stay and finds the holes again.
    void Remove(TezRef<TezMeshIndexList> triangles);
    // Unlinks the face from its neighbours' mates and its vertices' lists.
    void Disconnect(TezRef<TezTopologyFace> face);
    // True if the topology is consistent with the geometry.
    bool Validate() const;

    void SetBoolAllFaces(bool value);
    void SetBoolAllHalfEdges(bool value);
    void SetBoolAllVertices(bool value);

    TezRef<TezIndexedMesh> GetGeometry() const { return m_geometry; }
    size_t GetNumFaces() const { return m_faces.size(); }
    TezRef<TezTopologyFace> const& GetFace(size_t i) const { return m_faces[i]; }
    size_t GetNumVertices() const { return m_vertices.size(); }
    TezRef<TezTopologyVertex> const& GetVertex(size_t i) const { return m_vertices[i]; }
    size_t GetNumHoles() const { return m_holes.size(); }
    TezRef<TezTopologyHole> const& GetHole(size_t i) const { return m_holes[i]; }

    ~TezTopologyMesh() override = default;

private:
    friend class TezMeshCurvatureAnalyzer;
    using Face = TezTopologyFace;
    using HalfEdge = TezTopologyHalfEdge;
    using Vertex = TezTopologyVertex;

    TezTopologyMesh() = default;

    TezTopologyVertex* NewVertex(unsigned int geometry);
    // Whether the face is one of this mesh's faces.
    bool Owns(Face const* face) const
    {
        return face && face->m_geometry < m_faces.size() && m_faces[face->m_geometry].Get() == face;
    }
    TezTopologyFace* AddFace(unsigned int a, unsigned int b, unsigned int c, unsigned int face);
    // Rewrites a face to the corners a, b, c from the given half-edges, which
    // keep their mates; updates the vertices' lists and the indexed mesh.
    void RebuildFace(Face* face, HalfEdge* e0, HalfEdge* e1, HalfEdge* e2, Vertex* a, Vertex* b, Vertex* c);
    static void LinkMates(HalfEdge* a, HalfEdge* b);
    static void RemoveFromList(Vertex* vertex, HalfEdge* edge);

    // SplitFace and Swap on faces and half-edges known to be this mesh's.
    Vertex* Split(Face* face, TezVector3<float> const& position);
    bool SwapEdge(HalfEdge* edgeA, HalfEdge* edgeB);

    TezRef<TezIndexedMesh> m_geometry;
    std::vector<TezRef<TezTopologyFace>> m_faces;
    std::vector<TezRef<TezTopologyVertex>> m_vertices;
    std::vector<TezRef<TezTopologyHole>> m_holes;
};

inline TezRef<TezTopologyHalfEdge> TezTopologyVertex::GetEdge(int i) const { return m_edges[i]; }
inline TezRef<TezTopologyFace> TezTopologyHalfEdge::GetFace() const { return m_face; }
