#pragma once
// The kernels' view of a TezVoxelOctree: its pools' linear device copies.
//
// Device copies are cudaMalloc'ed where TezDeviceIsCuda() holds and linear
// host arrays otherwise (platform/DeviceMemory.h); targets rendering such a
// source set onDevice to TezDeviceIsCuda(). Stale copies are written anew.

#include "core/RefCounter.h"
#include "volume/device/OctreeRender.h"

class TezVoxelOctree;

// Source over the octree's device copies; writes them where missing or stale.
TEZ_API TezOctreeRenderSource TezMakeOctreeRenderSource(TezVoxelOctree& octree);

// Node states of the whole tree under a 256-entry opacity table held in
// device memory: the childless nodes on the device, then the host pass over
// the node pool, whose device copy is refreshed. False (logged under
// "TezVoxelOctreeCalculateNodeStates.A") when the launch failed or there is
// no octree or table.
TEZ_API bool TezVoxelOctreeCalculateNodeStates(TezRef<TezVoxelOctree> octree, const float* table);
