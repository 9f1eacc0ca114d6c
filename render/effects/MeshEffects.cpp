#include "render/effects/MeshEffects.h"

TEZ_TYPIFIED_IMPL(TezEffectIndexedMesh, "Effect Indexed Mesh")

TezEffectIndexedMesh::TezEffectIndexedMesh()
    : TezMultiPassEffect(
          3,
          {{"vDefault.glsl", nullptr, "fDefaultLit.glsl", "fDefaultUnlit.glsl"},
           {"vDefaultForGeomShader.glsl", "gMeshEdges.glsl", "fMeshEdges.glsl", "fDefaultUnlit.glsl"},
           {"vDefaultForGeomShader.glsl", "gMeshEdgesAdjacency.glsl", "fMeshEdges.glsl", "fDefaultUnlit.glsl"}},
          {"inPosition", "inNormal"})
{
}
