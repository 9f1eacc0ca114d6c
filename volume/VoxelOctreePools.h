#pragma once
// The two memory pools of the voxel octree: nodes (12 bytes each, handed out
// eight at a time) and bricks (16^3 voxels of 1 or 2 bytes). Both start with
// blocks of at least 1024 elements.
//
// Allocate is thread-safe: it holds the pool's critical section only to bump
// the element count, mark the device copy dirty and grow. It answers the
// index of the first of count consecutive new, zero-filled elements, or
// TezMemoryPoolBase::InvalidIndex when the pool cannot grow (out of memory).
// Writing into elements needs no lock while the pool is not compressed.

#include "core/Threads.h"
#include "volume/MemoryPool.h"
#include "volume/VoxelOctreeNode.h"

class TEZ_API TezVoxelOctreeNodePool : public TezMemoryPool<TezVoxelOctreeNode>
{
public:
    uint64_t GetElementSize() const override { return sizeof(TezVoxelOctreeNode); }
    uint64_t GetMinBlockSize() const override { return 1024; }

    // Nodes are handed out this many at a time: the children of one node.
    int GetStride() const { return m_stride; }
    uint64_t Allocate(uint64_t count);
    TezVoxelOctreeNode* Node(uint64_t index) { return ElementAt(index); }

private:
    int m_stride = 8;
    TezCriticalSection m_section;
};

class TEZ_API TezVoxelOctreeLeafVolumePool : public TezMemoryPool<TezVoxelOctreeLeafVolume>
{
public:
    uint64_t GetElementSize() const override { return m_elementSize; }
    uint64_t GetMinBlockSize() const override { return 1024; }

    // Bytes per brick (4096 x bytes per voxel). Set it before Initialize or
    // Load; a change of size on a pool that holds blocks empties it
    // (Initialize it again).
    void SetElementSize(uint64_t bytes);
    uint64_t Allocate(uint64_t count);
    uint8_t* Brick(uint64_t index) { return static_cast<uint8_t*>(ElementBytes(index)); }

private:
    uint64_t m_elementSize = TezBrickVoxels;
    TezCriticalSection m_section;
};
