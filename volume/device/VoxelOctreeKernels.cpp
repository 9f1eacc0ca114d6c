#include "volume/device/VoxelOctreeKernels.h"

#include "core/CudaCheck.h"
#include "core/Logger.h"
#include "platform/DeviceMemory.h"
#include "volume/VoxelOctree.h"
#include "volume/device/OctreeLaunch.h"

using namespace TezOctreeDevice;

TezOctreeRenderSource TezMakeOctreeRenderSource(TezVoxelOctree& octree)
{
    TezVoxelOctreeNodePool& nodes = octree.GetNodePool();
    TezVoxelOctreeLeafVolumePool& leaves = octree.GetLeafPool();
    if (!nodes.IsValidCUDA())
        nodes.WriteToCUDA();
    if (leaves.GetNumElements() > 0 && !leaves.IsValidCUDA())
        leaves.WriteToCUDA();
    TezOctreeRenderSource s;
    s.bitsPerPixel = octree.GetBitsPerPixel();
    s.voxelSize = octree.GetVoxelSize();
    s.maxDepth = octree.GetMaxDepth();
    s.treeSize = octree.GetTreeSize();
    s.nodes = static_cast<Node*>(nodes.GetCUDA());
    s.leaves = leaves.GetCUDA();
    s.nodeCount = static_cast<int32_t>(nodes.GetNumElements());
    const std::vector<uint64_t>& masks = octree.GetBlockMasks();
    s.blockMasks = masks.empty() ? nullptr : masks.data();
    return s;
}

bool TezVoxelOctreeCalculateNodeStates(TezRef<TezVoxelOctree> octree, const float* table)
{
    if (!octree || !table)
        return false;
    const TezOctreeRenderSource source = TezMakeOctreeRenderSource(*octree);
    const bool onDevice = TezDeviceIsCuda();
    if (onDevice && !TezOctreeKernelsHaveDevice()) {
        TezLogger::error("TezVoxelOctreeCalculateNodeStates: the library was built without its device kernels\n");
        return false;
    }
    (onDevice ? CudaLaunches : HostLaunches)
        .nodeStates(TezMakeOctreeRecord(source), source.nodeCount, table, source.bitsPerPixel == 16);
    if (onDevice)
        checkLastCudaError("TezVoxelOctreeCalculateNodeStates.A");
    TezVoxelOctreeNodePool& pool = octree->GetNodePool();
    pool.ReadFromCUDA();
    // A root without children (a constant volume) has its state already.
    if ((pool.Node(0)->children & TezNodeLowMask) != 0)
        pool.Node(0)->state =
            CombineChildStates([&pool](uint32_t i) -> Node& { return *pool.Node(i); }, pool.GetNumElements(), 1, 0);
    pool.WriteToCUDA();
    // The host render's block masks follow the states; a device render has
    // no use for them.
    if (onDevice)
        octree->GetBlockMasks().clear();
    else
        HostBlockMasks(TezMakeOctreeRecord(source), source.nodeCount, table, source.bitsPerPixel == 16,
                       octree->GetBlockMasks());
    return true;
}
