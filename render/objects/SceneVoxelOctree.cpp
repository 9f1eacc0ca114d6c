#include "render/objects/SceneVoxelOctree.h"

#include "core/Logger.h"
#include "math/Matrix.h"
#include "platform/DeviceMemory.h"
#include "render/OctreeCamera.h"
#include "render/effects/VolumeEffects.h"
#include "render/scene/SceneDrawData.h"
#include "render/views/CudaRenderView.h"
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

TezSceneVoxelOctree::~TezSceneVoxelOctree() = default;

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
        size_t const bytes = m_table.size() * sizeof(float);
        m_kernelTable = TezDeviceBuffer(bytes, 1, onDevice);
        // Painting never throws: a table that cannot be copied draws nothing.
        if (m_kernelTable.Upload(m_table.data(), bytes) != TezDeviceSuccess) {
            TezLogger::error("TezSceneVoxelOctree: cannot copy the transfer function to the kernels\n");
            return false;
        }
        m_statesValid = TezVoxelOctreeCalculateNodeStates(m_octree, static_cast<float const*>(m_kernelTable.Get()));
        m_tableStale = false;
    }
    float const* table = static_cast<float const*>(m_kernelTable.Get());
    TezOctreeRenderSource source = TezMakeOctreeRenderSource(*m_octree);
    source.statesValid = m_statesValid;
    source.looks =
        TezOctreeDevice::LookFaceShading | TezOctreeDevice::LookCutShading | TezOctreeDevice::LookTableOpacity;
    float const edge = float(m_octree->GetTreeSize()) * m_octree->GetVoxelSize();
    TezMatrix44<float> const matrix = GetWorldMatrix() * TezScaleTransform<float>(edge);
    TezOctreeDevice::Camera const record = TezMakeOctreeCamera(*camera);
    TezPlane<float> const* cut = m_showXSection ? &m_xSectionPlane : nullptr;
    TezVector4<float> const colour = IsSelected() ? GetSelectedColor() : GetColor();
    TezOctreeRenderTarget const& target = view->GetRenderTarget();
    if (GetProperty(Transparent)) {
        view->MarkLayersCast();
        return TezRenderOctreeTransparent(target, source, record, matrix, colour, table, cut);
    }
    bool const drawn = TezRenderOctreeSolid(target, source, record, matrix, colour, table, cut);
    return view->PostToOpenGL() && drawn;
}
