#pragma once
// TezVoxelOctree: a sparse octree with a 16^3 brick at every level of detail.
//
// Built once from a TezVolumeData source in bounded passes, then immutable but
// for the state word of its nodes. Node 0 is the root; the tree spans the unit
// cube, treeSize voxels along each axis, and space outside the source reads 0.
// The two pools are flat arrays that the ray caster reads unchanged.
//
// CreateFromVolumeData answers a null reference when the source is missing or
// invalid, bitsPerPixel is not 8 or 16, or the host raised the stop flag
// during the build. Progress goes through the application's UI manager.

#include "core/Identifiable.h"
#include "math/Box.h"
#include "volume/VoxelOctreePools.h"

#include <cstdint>
#include <vector>

class TezArchive;
class TezVolumeData;

TEZ_DECLARE_REF_FUNCTIONS(TezVoxelOctree)

class TEZ_API TezVoxelOctree : public TezIdentifiableObject
{
    TEZ_TYPIFIED_CLASS(TezVoxelOctree)

public:
    // memoryLimit is in MiB and bounds one slab of the source held at once.
    // name and the last argument are kept for callers; the build ignores them.
    static TezRef<TezVoxelOctree> CreateFromVolumeData(TezString const& name, TezRef<TezVolumeData> volumeData,
                                                       double voxelSize, int bitsPerPixel, int memoryLimit,
                                                       int reserved = 0);

    TezVoxelOctree();
    TezVoxelOctree(TezVoxelOctree const& other);
    TezVoxelOctree(TezVoxelOctree&& other) noexcept;
    TezVoxelOctree& operator=(TezVoxelOctree const& other);
    TezVoxelOctree& operator=(TezVoxelOctree&& other) noexcept;
    ~TezVoxelOctree() override;

    int GetBitsPerPixel() const { return m_bitsPerPixel; }
    int GetTreeSize() const { return m_treeSize; }
    float GetVoxelSize() const { return float(m_voxelSize); }
    void SetVoxelSize(float size) { m_voxelSize = size; }
    TezVector3<int> GetDimensionsInVoxels() const { return m_dimensions; }
    TezVector3<float> GetDimensions() const;
    TezBox3<float> GetBounds() const;
    std::vector<float> const& GetHistogram() const { return m_histogram; }
    std::vector<int32_t> const& GetLeafsPerSlice() const { return m_leafsPerSlice; }
    int GetMaxDepth() const { return int(m_leafsPerSlice.size()); }

    TezVoxelOctreeNodePool& GetNodePool() { return m_nodePool; }
    TezVoxelOctreeNodePool const& GetNodePool() const { return m_nodePool; }
    TezVoxelOctreeLeafVolumePool& GetLeafPool() { return m_leafPool; }
    TezVoxelOctreeLeafVolumePool const& GetLeafPool() const { return m_leafPool; }

    // Block masks of the bricks under the node states last computed on the
    // host (TezVoxelOctreeCalculateNodeStates), two words a brick; empty
    // where there are none. Not saved.
    std::vector<uint64_t>& GetBlockMasks() { return m_blockMasks; }

    // Saving compresses both pools; they expand again on first touch.
    void Save(TezRef<TezArchive> archive);
    void Load(TezRef<TezArchive> archive);

private:
    friend class TezVoxelOctreeBuilder;

    int32_t m_bitsPerPixel = 8;
    int32_t m_treeSize = 0;
    double m_voxelSize = 1.0;
    TezVector3<int> m_dimensions{0, 0, 0};
    TezVoxelOctreeNodePool m_nodePool;
    TezVoxelOctreeLeafVolumePool m_leafPool;
    std::vector<int32_t> m_leafsPerSlice;
    std::vector<float> m_histogram;
    std::vector<uint64_t> m_blockMasks;
};

// The build plan for a source of the given size: tree and block sizes, how the
// source is read in passes, and the node counts of the full tree above and at
// the block level. Exposed for tools and tests.
struct TezVoxelOctreePlan
{
    int treeSize = 0;
    int blockSize = 0;
    int blocksInRow = 0;
    int blocksX = 0;
    int blocksY = 0;
    int rowsPerPass = 0;
    int passes = 0;
    bool memoryRaised = false; // one row of blocks did not fit the limit
    uint64_t bytesPerBlock = 0;
    // The slab of the source held at once plus the two slices kept for its
    // interpolation: the build's working memory besides the pools.
    uint64_t bufferBytes = 0;
    uint32_t startIndex = 0;
    uint32_t startCount = 0;
};

TEZ_API TezVoxelOctreePlan TezVoxelOctreeMakePlan(int width, int height, int depth, int bitsPerPixel, int memoryLimit);

// The smallest memoryLimit (MiB) whose plan's bufferBytes stay within it.
// Below it the plan takes more than the limit: one slab never holds less
// than a full row of blocks along x.
TEZ_API int TezVoxelOctreeSmallestMemoryLimit(int width, int height, int depth, int bitsPerPixel);
