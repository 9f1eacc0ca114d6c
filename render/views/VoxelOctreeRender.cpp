#include "render/views/VoxelOctreeRender.h"

#include "render/CameraView.h"
#include "render/OctreeCamera.h"
#include "volume/VoxelOctree.h"
#include "volume/device/VoxelOctreeKernels.h"

namespace {

bool Cast(TezCudaRenderView* view, TezVoxelOctree* octree, TezMatrix44<float> const& matrix,
          TezVector4<float> const& colour, float const* table, TezPlane<float> const* plane, bool layered,
          uint32_t looks, bool statesValid)
{
    if (!view || !octree || !view->GetCamera() || !view->GetRenderTarget().image)
        return false;
    TezOctreeRenderSource source = TezMakeOctreeRenderSource(*octree);
    source.looks = looks;
    source.statesValid = statesValid;
    TezOctreeDevice::Camera const camera = TezMakeOctreeCamera(*view->GetCamera());
    TezOctreeRenderTarget const& target = view->GetRenderTarget();
    if (!layered)
        return TezRenderOctreeSolid(target, source, camera, matrix, colour, table, plane);
    view->MarkLayersCast();
    return TezRenderOctreeTransparent(target, source, camera, matrix, colour, table, plane);
}

} // namespace

bool TezVoxelOctreeRenderSolid(TezRef<TezCudaRenderView> view, TezRef<TezVoxelOctree> octree,
                               TezMatrix44<float> const& matrix, TezVector4<float> const& colour,
                               float const* transferFunction, uint32_t looks, bool statesValid)
{
    return Cast(view.Get(), octree.Get(), matrix, colour, transferFunction, nullptr, false, looks, statesValid);
}

bool TezVoxelOctreeRenderSolidWithXSection(TezRef<TezCudaRenderView> view, TezRef<TezVoxelOctree> octree,
                                           TezMatrix44<float> const& matrix, TezVector4<float> const& colour,
                                           float const* transferFunction, TezPlane<float> const& plane, uint32_t looks,
                                           bool statesValid)
{
    return Cast(view.Get(), octree.Get(), matrix, colour, transferFunction, &plane, false, looks, statesValid);
}

bool TezVoxelOctreeRenderTransparent(TezRef<TezCudaRenderView> view, TezRef<TezVoxelOctree> octree,
                                     TezMatrix44<float> const& matrix, TezVector4<float> const& colour,
                                     float const* transferFunction, uint32_t looks, bool statesValid)
{
    return Cast(view.Get(), octree.Get(), matrix, colour, transferFunction, nullptr, true, looks, statesValid);
}

bool TezVoxelOctreeRenderTransparentWithXSection(TezRef<TezCudaRenderView> view, TezRef<TezVoxelOctree> octree,
                                                 TezMatrix44<float> const& matrix, TezVector4<float> const& colour,
                                                 float const* transferFunction, TezPlane<float> const& plane,
                                                 uint32_t looks, bool statesValid)
{
    return Cast(view.Get(), octree.Get(), matrix, colour, transferFunction, &plane, true, looks, statesValid);
}
