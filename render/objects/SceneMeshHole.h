#pragma once
// TezSceneMeshHole "Mesh Hole Scene Object": the boundary loop of one hole
// of a topology mesh, drawn as a closed line ("Line Effect") in the
// object's colour, red unless told otherwise, over the mesh that the
// renderable holds. The loop's vertex numbers are taken when the object is
// made; positions are read from the renderable's mesh at each build, and
// numbers past its vertices are passed over. Not mappable: a hole is shown,
// not picked. The loop is drawn a little nearer than the surface it
// borders, so that it shows on the mesh. Drawing needs the context current.

#include "render/gl/Primitives.h"
#include "render/scene/SceneObject.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezSceneMeshHole)
TEZ_DECLARE_REF_FUNCTIONS(TezTopologyHole)
TEZ_DECLARE_REF_FUNCTIONS(TezRenderableIndexedMesh)

class TEZ_API TezSceneMeshHole : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneMeshHole)
public:
    static TezRef<TezSceneMeshHole> Create(TezRef<TezTopologyHole> hole, TezRef<TezRenderableIndexedMesh> renderable);
    ~TezSceneMeshHole() override;

    TezRef<TezTopologyHole> GetHole() const;
    // The mesh's vertex numbers around the hole, in walk order.
    std::vector<unsigned int> const& GetLoop() const { return m_loop; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneMeshHole();

private:
    std::vector<TezVector3<float>> LoopPositions() const;

    TezRef<TezTopologyHole> m_hole;
    TezRef<TezRenderableIndexedMesh> m_renderable;
    std::vector<unsigned int> m_loop;
    TezGLPrimitives m_lines;
};
