#pragma once
// The ray caster's entry points that draw a voxel octree into a GPU render
// view: solid or layered, with or without a cross-section.
//
// matrix maps the octree's unit cube to the world; colour is the surface's
// (its alpha goes to the layered forms only); transferFunction is the
// 256-entry opacity table on the side the view's buffers live on
// (TezCudaRenderView::IsOnDevice). The plane, in world space, keeps the half
// space its normal points into. The solid forms write the view's image and
// depth (the caller posts them with PostToOpenGL); the layered forms insert
// surfaces into the view's layer stacks and mark them for the view's blend.
//
// looks and statesValid tune the cast (TezOctreeRenderSource); the defaults
// give the plain pictures. A null view or octree, or a view without buffers,
// answers false. Device and launch failures are fatal through checkCudaError
// with the tags "TezVoxelOctreeRenderSolid.A" ...; the result is otherwise
// true.

#include "math/Matrix.h"
#include "math/Plane.h"
#include "math/Vector.h"
#include "render/views/CudaRenderView.h"

#include <cstdint>

TEZ_DECLARE_REF_FUNCTIONS(TezVoxelOctree)

TEZ_API bool TezVoxelOctreeRenderSolid(TezRef<TezCudaRenderView> view, TezRef<TezVoxelOctree> octree,
                                       TezMatrix44<float> const& matrix, TezVector4<float> const& colour,
                                       float const* transferFunction, uint32_t looks = 0, bool statesValid = false);
TEZ_API bool TezVoxelOctreeRenderSolidWithXSection(TezRef<TezCudaRenderView> view, TezRef<TezVoxelOctree> octree,
                                                   TezMatrix44<float> const& matrix, TezVector4<float> const& colour,
                                                   float const* transferFunction, TezPlane<float> const& plane,
                                                   uint32_t looks = 0, bool statesValid = false);
TEZ_API bool TezVoxelOctreeRenderTransparent(TezRef<TezCudaRenderView> view, TezRef<TezVoxelOctree> octree,
                                             TezMatrix44<float> const& matrix, TezVector4<float> const& colour,
                                             float const* transferFunction, uint32_t looks = 0,
                                             bool statesValid = false);
TEZ_API bool TezVoxelOctreeRenderTransparentWithXSection(TezRef<TezCudaRenderView> view, TezRef<TezVoxelOctree> octree,
                                                         TezMatrix44<float> const& matrix,
                                                         TezVector4<float> const& colour, float const* transferFunction,
                                                         TezPlane<float> const& plane, uint32_t looks = 0,
                                                         bool statesValid = false);
