#pragma once
// TezDocIndexedMesh "Indexed Mesh Document Object": a triangle mesh in a
// document. It holds the geometry, optionally its topology (then one
// TezSceneMeshHole per hole of it, red loops beside the mesh), the scene
// object that draws the mesh (a TezSceneIndexedMesh whose back reference is
// this object; none without a geometry) and a kd-tree over the triangles,
// built on the first GetTree.
//
// The archive form is the section of TypeName(): the base part,
// "numVertices", "numTriangles" (both sizes, before the blocks), "vertices"
// (24 bytes a vertex: position and normal, six floats), "indexes" (12 bytes
// a triangle) and "visible". Topology, tree and holes are not stored; the
// normals load as they were saved. Load refuses with std::runtime_error a
// section of another kind, a block whose size disagrees with its count
// (looked at before anything of that size is allocated), triangles without
// their block, and indices past the vertices; the object is then left as
// it was before Load.

#include "document/DocumentObject.h"
#include "math/Matrix.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezDocIndexedMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezIndexedMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezTopologyMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezMeshKDTree)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneIndexedMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneMeshHole)
TEZ_DECLARE_REF_FUNCTIONS(TezScene)

class TEZ_API TezDocIndexedMesh : public TezDocumentObject
{
    TEZ_TYPIFIED_CLASS(TezDocIndexedMesh)
public:
    static TezRef<TezDocIndexedMesh> Create(TezRef<TezIndexedMesh> geometry);
    // The topology's geometry, and a hole object for each of its holes.
    static TezRef<TezDocIndexedMesh> Create(TezRef<TezTopologyMesh> topology);
    ~TezDocIndexedMesh() override;

    TezRef<TezIndexedMesh> GetGeometry() const { return m_geometry; }
    TezRef<TezTopologyMesh> GetTopology() const { return m_topology; }
    // Replaces the topology (its geometry must be this object's) and makes
    // its holes; null drops topology and holes. Another mesh's topology is
    // refused with std::runtime_error.
    void SetTopology(TezRef<TezTopologyMesh> topology);
    // Built over the geometry on first use; null without a geometry.
    TezRef<TezMeshKDTree> GetTree();
    void SetTree(TezRef<TezMeshKDTree> tree) { m_tree = tree; }
    TezRef<TezSceneIndexedMesh> GetSceneObject() const { return m_sceneObject; }
    std::vector<TezRef<TezSceneMeshHole>> const& GetHoleObjects() const { return m_holes; }

    // Through the scene object (false without one).
    bool GetVisible() const;
    // Reported to the active document as changing, then changed.
    void SetVisible(bool visible);

    // Replaces the hole objects by one per hole of the topology, in the
    // scene that shows the mesh (else the active document's); call it after
    // the topology changed the geometry. The mesh is drawn anew, without
    // its selected triangles.
    void RegenerateHoles();

    void OnAdd(TezRef<TezDocument> document) override;
    void OnRemove(TezRef<TezDocument> document) override;
    void Save(TezRef<TezArchive> archive) override;
    void Load(TezRef<TezArchive> archive) override;
    // The document object and its scene object join or leave the selection.
    void Select(bool on) override;
    // Moves the vertices (normals turned by the inverse transpose), drops
    // the tree and rebuilds what is drawn.
    virtual void TransformGeometry(TezMatrix44<float> const& matrix);

protected:
    TezDocIndexedMesh();

private:
    void CreateSceneObject();
    void RemoveHoles();
    TezRef<TezScene> SceneForHoles() const;

    TezRef<TezIndexedMesh> m_geometry;
    TezRef<TezTopologyMesh> m_topology;
    TezRef<TezSceneIndexedMesh> m_sceneObject;
    std::vector<TezRef<TezSceneMeshHole>> m_holes;
    TezRef<TezMeshKDTree> m_tree;
};
