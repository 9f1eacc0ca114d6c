#pragma once
// The two memory pools of the voxel octree: nodes (12 bytes each, handed out
// eight at a time) and bricks (16^3 voxels of 1 or 2 bytes). Both start with
// blocks of at least 1024 elements. Allocation is thread-safe (see
// TezMemoryPoolBase::Allocate).

#include "volume/MemoryPool.h"
#include "volume/VoxelOctreeNode.h"

class TEZ_API TezVoxelOctreeNodePool : public TezMemoryPool<TezVoxelOctreeNode>
{
public:
    TezVoxelOctreeNodePool() : TezMemoryPool(sizeof(TezVoxelOctreeNode), 1024) {}

    // Nodes are handed out this many at a time: the children of one node.
    int GetStride() const { return m_stride; }
    TezVoxelOctreeNode* Node(uint64_t index) { return ElementAt(index); }

private:
    int m_stride = 8;
};

class TEZ_API TezVoxelOctreeLeafVolumePool : public TezMemoryPool<TezVoxelOctreeLeafVolume>
{
public:
    TezVoxelOctreeLeafVolumePool() : TezMemoryPool(TezBrickVoxels, 1024) {}

    // Bytes per brick (4096 x bytes per voxel). Set it before Initialize or
    // Load; a change of size on a pool that holds blocks empties it
    // (Initialize it again).
    using TezMemoryPoolBase::SetElementSize;
    uint8_t* Brick(uint64_t index) { return static_cast<uint8_t*>(ElementBytes(index)); }
};
