#include "render/objects/SceneVoxelOctree.h"

#include "core/CudaCheck.h"
#include "core/Logger.h"
#include "math/Matrix.h"
#include "platform/DeviceMemory.h"
#include "render/effects/VolumeEffects.h"
#include "render/scene/SceneDrawData.h"
#include "render/views/CudaRenderView.h"
#include "render/views/VoxelOctreeRender.h"
#include "volume/TransferFunction.h"
#include "volume/VoxelOctree.h"
#include "volume/device/VoxelOctreeKernels.h"

#include <stdexcept>

TEZ_TYPIFIED_IMPL(TezSceneVoxelOctree, "Voxel Octree Scene Object")
TEZ_DEFINE_REF_FUNCTIONS(TezSceneVoxelOctree)

TezSceneVoxelOctree::TezSceneVoxelOctree(TezRef<TezVoxelOctree> octree)
    : TezSceneObject(TezVoxelOctreeEffect::StaticType()), m_octree(octree),
      m_table(TezVolumeCreateTransferFunction({{0.0f, 0.0f}, {1.0f, 1.0f}}, 256))
{
    SetColor({0.46666667f, 0.53333336f, 0.6f, 0.6f});
}

TezSceneVoxelOctree::TezSceneVoxelOctree() : TezSceneVoxelOctree(nullptr) {}

TezSceneVoxelOctree::~TezSceneVoxelOctree()
{
    if (m_deviceTable)
        TezDeviceFree(m_deviceTable);
}

TezRef<TezSceneVoxelOctree> TezSceneVoxelOctree::Create(TezRef<TezVoxelOctree> octree)
{
    if (!octree)
        throw std::runtime_error("TezSceneVoxelOctree::Create: null octree");
    return TezRef<TezSceneVoxelOctree>(new TezSceneVoxelOctree(octree));
}

void TezSceneVoxelOctree::SetTransferFunction(std::vector<TezVector2<float>> const& points)
{
    if (points.size() < 2)
        return;
    m_table = TezVolumeCreateTransferFunction(points, 256);
    m_tableStale = true;
}

TezBox3<float> TezSceneVoxelOctree::GetObjectBounds()
{
    if (!m_octree)
        return TezBox3<float>();
    return m_octree->GetBounds();
}

bool TezSceneVoxelOctree::DrawObject(TezSceneDrawData const& data)
{
    if (data.GetMode() != TezSceneDrawData::ModePlain || data.IsOverlay() || data.IsTransparent())
        return true;
    TezRef<TezRenderView> renderView = data.GetRenderView();
    auto* view = dynamic_cast<TezCudaRenderView*>(renderView.Get());
    TezRef<TezCameraView> camera = data.GetCamera();
    if (!m_octree || !view || !camera || !view->GetRenderTarget().image)
        return true;
    // The kernels read pools, table and buffers from one side.
    bool const onDevice = TezDeviceIsCuda();
    if (view->IsOnDevice() != onDevice) {
        TezLogger::error("TezSceneVoxelOctree: the view's buffers and the octree are on different sides\n");
        return false;
    }
    if (m_tableStale) {
        // A device that cannot take 1 KiB is failing: fatal, with the tag.
        size_t const bytes = m_table.size() * sizeof(float);
        if (!m_deviceTable)
            checkCudaError(TezDeviceMalloc(reinterpret_cast<void**>(&m_deviceTable), bytes),
                           "TezSceneVoxelOctree::SetTransferFunction.A");
        checkCudaError(TezDeviceMemcpy(m_deviceTable, m_table.data(), bytes, TezDeviceHostToDevice),
                       "TezSceneVoxelOctree::SetTransferFunction.B");
        m_statesValid = TezVoxelOctreeCalculateNodeStates(m_octree, m_deviceTable);
        m_tableStale = false;
    }
    float const* table = m_deviceTable;
    uint32_t const looks =
        TezOctreeDevice::LookFaceShading | TezOctreeDevice::LookCutShading | TezOctreeDevice::LookTableOpacity;
    float const edge = float(m_octree->GetTreeSize()) * m_octree->GetVoxelSize();
    TezMatrix44<float> const matrix = GetWorldMatrix() * TezScaleTransform<float>(edge);
    TezVector4<float> const colour = IsSelected() ? GetSelectedColor() : GetColor();
    TezRef<TezCudaRenderView> cudaView(view);
    if (GetProperty(Transparent)) {
        if (m_showXSection)
            return TezVoxelOctreeRenderTransparentWithXSection(cudaView, m_octree, matrix, colour, table,
                                                               m_xSectionPlane, looks, m_statesValid);
        return TezVoxelOctreeRenderTransparent(cudaView, m_octree, matrix, colour, table, looks, m_statesValid);
    }
    bool const drawn = m_showXSection
                           ? TezVoxelOctreeRenderSolidWithXSection(cudaView, m_octree, matrix, colour, table,
                                                                   m_xSectionPlane, looks, m_statesValid)
                           : TezVoxelOctreeRenderSolid(cudaView, m_octree, matrix, colour, table, looks, m_statesValid);
    return view->PostToOpenGL() && drawn;
}
