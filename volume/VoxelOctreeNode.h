#pragma once
// TezVoxelOctreeNode: one node of the voxel octree, three 32-bit words, the
// same in memory, in an archive and on the device.
//
//   children  bits 0-30: pool index of the first of 8 consecutive children,
//             0 when the node has none (node 0 is the root, never a child);
//             bit 31: the node has a brick.
//   data      bit 31 clear: the node is uniform, the low bits are its value;
//             bit 31 set: the low bits are the brick's index in the leaf pool.
//   state     0 empty, 1 full, 2 boundary; zero after a build.
//
// Children are ordered x fastest: child = first + x + 2y + 4z.
//
// A brick (TezVoxelOctreeLeafVolume) is 16^3 voxels of 1 or 2 bytes, voxel
// (x, y, z) at (z * 16 + y) * 16 + x. Its size is a run-time property of the
// leaf pool, so the type is only a name for the pool's element.

#include "platform/HostDevice.h"

#include <cstdint>

struct TezVoxelOctreeNode
{
    uint32_t children;
    uint32_t data;
    uint32_t state;
};
static_assert(sizeof(TezVoxelOctreeNode) == 12, "a node is three 32-bit words");

struct TezVoxelOctreeLeafVolume;

inline constexpr uint32_t TezNodeFlagBit = 0x80000000u; // has-brick in children, brick index in data
inline constexpr uint32_t TezNodeLowMask = 0x7FFFFFFFu;
inline constexpr uint32_t TezNodeStateEmpty = 0;
inline constexpr uint32_t TezNodeStateFull = 1;
inline constexpr uint32_t TezNodeStateBoundary = 2;
inline constexpr int TezBrickEdge = 16;
inline constexpr int TezBrickVoxels = TezBrickEdge * TezBrickEdge * TezBrickEdge;

TEZ_HOSTDEV inline uint32_t TezNodeFirstChild(TezVoxelOctreeNode const& node) { return node.children & TezNodeLowMask; }
TEZ_HOSTDEV inline bool TezNodeHasChildren(TezVoxelOctreeNode const& node)
{
    return (node.children & TezNodeLowMask) != 0;
}
TEZ_HOSTDEV inline bool TezNodeHasBrick(TezVoxelOctreeNode const& node)
{
    return (node.children & TezNodeFlagBit) != 0;
}
// The data word names a brick rather than holding a uniform value.
TEZ_HOSTDEV inline bool TezNodeIsBrickIndex(TezVoxelOctreeNode const& node)
{
    return (node.data & TezNodeFlagBit) != 0;
}
// Brick index or uniform value, whichever the data word holds.
TEZ_HOSTDEV inline uint32_t TezNodeDataValue(TezVoxelOctreeNode const& node) { return node.data & TezNodeLowMask; }
TEZ_HOSTDEV inline uint32_t TezNodeChildIndex(uint32_t first, int x, int y, int z)
{
    return first + static_cast<uint32_t>(x + 2 * y + 4 * z);
}

TEZ_HOSTDEV inline void TezNodeSetFirstChild(TezVoxelOctreeNode& node, uint32_t first)
{
    node.children = (node.children & TezNodeFlagBit) | (first & TezNodeLowMask);
}
TEZ_HOSTDEV inline void TezNodeSetHasBrick(TezVoxelOctreeNode& node, bool has)
{
    node.children = has ? (node.children | TezNodeFlagBit) : (node.children & TezNodeLowMask);
}
// Makes the node uniform with this value.
TEZ_HOSTDEV inline void TezNodeSetUniform(TezVoxelOctreeNode& node, uint32_t value)
{
    node.data = value & TezNodeLowMask;
}
// Points the data word at a brick of the leaf pool.
TEZ_HOSTDEV inline void TezNodeSetBrickIndex(TezVoxelOctreeNode& node, uint32_t brick)
{
    node.data = TezNodeFlagBit | (brick & TezNodeLowMask);
}
// Index of voxel (x, y, z) inside a brick.
TEZ_HOSTDEV inline int TezBrickVoxelIndex(int x, int y, int z) { return (z * TezBrickEdge + y) * TezBrickEdge + x; }
