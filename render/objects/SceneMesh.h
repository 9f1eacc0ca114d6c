#pragma once
// TezSceneMesh: a triangle mesh drawn by an effect of the caller's choice
// (the default lit effect unless told otherwise): the sample shapes of the
// mesh generators, test geometry, anything that is plain triangles with
// normals. The mesh is shared, not copied; SetMesh marks the object for a
// rebuild, which uploads it on the next Draw. Draw mode GL_TRIANGLES unless
// SetDrawMode says otherwise (GL_POINTS for the sprite effects).
//
// BuildObject, DrawObject and UnbuildObject need the context current.

#include "render/gl/MeshBuffers.h"
#include "render/scene/SceneObject.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezIndexedMesh)

class TEZ_API TezSceneMesh : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneMesh)
public:
    static TezRef<TezSceneMesh> Create(TezRef<TezIndexedMesh> mesh, uint32_t effectType = 0);
    ~TezSceneMesh() override;

    void SetMesh(TezRef<TezIndexedMesh> mesh);
    TezRef<TezIndexedMesh> GetMesh() const;
    void SetDrawMode(unsigned mode) { m_drawMode = mode; }
    unsigned GetDrawMode() const { return m_drawMode; }
    // How many times the mesh went to the graphics card.
    int GetBuildCount() const { return m_buildCount; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneMesh();
    explicit TezSceneMesh(uint32_t effectType);

private:
    TezRef<TezIndexedMesh> m_mesh;
    TezBox3<float> m_bounds;
    TezGLMesh m_buffers;
    unsigned m_drawMode = 0x0004; // GL_TRIANGLES
    int m_buildCount = 0;
};
