#include "volume/VoxelOctreePools.h"

uint64_t TezVoxelOctreeNodePool::Allocate(uint64_t count)
{
    TezThreadLock lock(m_section);
    return AllocateUnlocked(count);
}

void TezVoxelOctreeLeafVolumePool::SetElementSize(uint64_t bytes)
{
    TezThreadLock lock(m_section);
    if (bytes != m_elementSize && GetNumBlocks() > 0) {
        Reset();
        ForgetElements();
    }
    m_elementSize = bytes;
}

uint64_t TezVoxelOctreeLeafVolumePool::Allocate(uint64_t count)
{
    TezThreadLock lock(m_section);
    return AllocateUnlocked(count);
}
