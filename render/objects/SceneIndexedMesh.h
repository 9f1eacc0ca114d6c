#pragma once
// The document's meshes on screen.
//
// TezRenderableIndexedMesh: the buffers of one TezIndexedMesh on the
// graphics card: a vertex array over 24-byte vertices (attribute 0 the
// position, 1 the normal), an index buffer, and with need-adjacency an
// adjacency index buffer of six indices a triangle (corner 0, the vertex
// across edge 0, corner 1, across edge 1, corner 2, across edge 2; a
// boundary edge, or a face the topology left out, carries the triangle's
// own opposite corner). With flat shading the vertex buffer holds three
// vertices per triangle with the triangle's normal, and the mesh's normals
// are ignored; otherwise the mesh's arrays go up as they stand. Indices past
// the vertices are refused: CreateBuffers logs and answers false, and
// nothing is drawn. The host-side arrays are built by the static Make...
// functions, which need no context; everything else needs it current.
//
// TezSceneIndexedMesh "Indexed Mesh Scene Object", drawn by
// TezEffectIndexedMesh, draws a renderable in a TezSceneMeshMode:
//   0 smooth, 1 smooth with its triangles' edges, 2 flat, 3 flat with edges,
//   4 and above a hidden-line wireframe: every edge once from the adjacency
//   buffer (holes' edges in red) over a surface that writes depth only.
// Modes below 2 turn flat shading off, 2 and 3 on; 4 and above keep the
// shading they had and need the adjacency buffer. Moving between 2 and 3
// rebuilds nothing. Selected indices are triangle numbers, drawn again in
// the selection red; a change of them uploads only their own small index
// buffer on the next draw. They are mapped (picked) with the surface.

#include "core/RefCounter.h"
#include "render/gl/Buffer.h"
#include "render/scene/SceneObject.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezIndexedMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezMeshIndexList)
TEZ_DECLARE_REF_FUNCTIONS(TezRenderableIndexedMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneIndexedMesh)

struct TezMeshVertex;

class TEZ_API TezRenderableIndexedMesh : public TezRefCounter
{
public:
    static TezRef<TezRenderableIndexedMesh> Create(TezRef<TezIndexedMesh> mesh);
    ~TezRenderableIndexedMesh() override;

    TezRef<TezIndexedMesh> GetMesh() const { return m_mesh; }
    // Replaces the mesh; the buffers follow on the next CreateBuffers.
    void SetMesh(TezRef<TezIndexedMesh> mesh);

    // Uploads by the flags; false (nothing to draw) for no mesh, no
    // triangles or indices past the vertices.
    bool CreateBuffers();
    void DestroyBuffers();
    bool HasBuffers() const { return m_numTriangles != 0; }
    // GL_TRIANGLES over all triangles; nothing without buffers.
    void Draw();
    // GL_TRIANGLES_ADJACENCY over the adjacency buffer; nothing without it.
    void DrawWithAdjacency();
    // The triangles of the last SetSelection, GL_TRIANGLES.
    void DrawSelection();
    // Triangle numbers to draw with DrawSelection (numbers past the mesh are
    // passed over); uploaded at once when buffers exist, else at CreateBuffers.
    void SetSelection(std::vector<unsigned int> const& triangles);

    void SetFlatShading(bool on) { m_flatShading = on; }
    bool GetFlatShading() const { return m_flatShading; }
    void SetNeedAdjacency(bool on) { m_needAdjacency = on; }
    bool GetNeedAdjacency() const { return m_needAdjacency; }
    void SetWireframeModeEnabled(bool on) { m_wireframeModeEnabled = on; }
    bool GetWireframeModeEnabled() const { return m_wireframeModeEnabled; }
    bool HasAdjacency() const { return m_numAdjacencyIndices != 0; }

    // Of the buffers as made: three vertices a triangle with flat shading.
    size_t GetNumVertices() const { return m_numVertices; }
    size_t GetNumTriangles() const { return m_numTriangles; }

    // Host-side contents, no context needed.
    static std::vector<TezMeshVertex> MakeFlatVertices(TezIndexedMesh const& mesh);
    // For the mesh's own vertices, or (flat) for MakeFlatVertices' order.
    static std::vector<unsigned int> MakeAdjacencyIndices(TezRef<TezIndexedMesh> mesh, bool flat);
    static bool IndicesInRange(TezIndexedMesh const& mesh);

protected:
    explicit TezRenderableIndexedMesh(TezRef<TezIndexedMesh> mesh);

private:
    void UploadSelection();

    TezRef<TezIndexedMesh> m_mesh;
    TezGLVertexArray m_vertexArray;
    TezGLBuffer m_vertexBuffer;
    TezGLBuffer m_indexBuffer;
    TezGLBuffer m_adjacencyBuffer;
    TezGLBuffer m_selectionBuffer;
    std::vector<unsigned int> m_selection;
    size_t m_numVertices = 0;
    size_t m_numTriangles = 0;
    size_t m_numAdjacencyIndices = 0;
    size_t m_numSelectionIndices = 0;
    bool m_flatShading = false;
    bool m_wireframeModeEnabled = false;
    bool m_needAdjacency = false;
};

enum TezSceneMeshMode : int {
    TezMeshModeSmooth = 0,
    TezMeshModeSmoothEdges = 1,
    TezMeshModeFlat = 2,
    TezMeshModeFlatEdges = 3,
    TezMeshModeWireframe = 4
};

class TEZ_API TezSceneIndexedMesh : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneIndexedMesh)
public:
    static TezRef<TezSceneIndexedMesh> Create(TezRef<TezIndexedMesh> mesh);
    static TezRef<TezSceneIndexedMesh> Create(TezRef<TezRenderableIndexedMesh> renderable);
    ~TezSceneIndexedMesh() override;

    // A new renderable for the mesh (its flags kept); rebuilt on the next Draw.
    void SetMesh(TezRef<TezIndexedMesh> mesh);
    TezRef<TezIndexedMesh> GetMesh() const;
    void SetMode(int mode);
    int GetMode() const { return m_mode; }
    TezRef<TezRenderableIndexedMesh> GetRenderable() const { return m_renderable; }

    // The selected triangle numbers, ascending.
    TezRef<TezMeshIndexList> GetIndexList() const;
    void SelectIndex(unsigned int index) override;
    void UnselectIndex(unsigned int index) override;
    void ClearIndices() override;

    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;
    bool IndexObject(TezSceneDrawData const&) override { return true; }
    bool PreResetObject() override { return true; }
    bool PostResetObject() override { return true; }
    TezBox3<float> GetObjectBounds() override;

    // The colour of new mesh objects, a light steel blue.
    static TezVector4<float> DefaultColor() { return TezVector4<float>(0.62f, 0.72f, 0.85f, 1.0f); }

protected:
    TezSceneIndexedMesh();

private:
    void SelectionChanged();
    void UploadSelection();

    TezRef<TezRenderableIndexedMesh> m_renderable;
    int m_mode = TezMeshModeSmooth;
    bool m_selectionChanged = false;
    TezBox3<float> m_bounds;
    bool m_boundsValid = false;
};
