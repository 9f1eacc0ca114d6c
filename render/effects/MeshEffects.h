#pragma once
// TezEffectIndexedMesh "Effect Indexed Mesh": the three passes of the
// document's meshes (TezSceneIndexedMesh), which picks per mode what each
// pass draws:
//   pass 0  the surface, vDefault + fDefaultLit (map fDefaultUnlit)
//   pass 1  the three edges of every triangle, vDefaultForGeomShader +
//           gMeshEdges + fMeshEdges, drawn from the plain index buffer
//   pass 2  every edge once from triangles with adjacency,
//           vDefaultForGeomShader + gMeshEdgesAdjacency + fMeshEdges;
//           boundary edges (the adjacent vertex repeats the triangle's own
//           opposite corner) in "boundaryColor"
// fMeshEdges colours ordinary edges with "edgeColor". Every map fragment
// writes "objectColor" unchanged. The context must be current.

#include "render/effects/MultiPassEffect.h"

class TEZ_API TezEffectIndexedMesh : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectIndexedMesh)
public:
    enum Pass { SurfacePass = 0, EdgePass = 1, AdjacencyEdgePass = 2 };

protected:
    TezEffectIndexedMesh();
};
