#pragma once
// TezPackedPool: a growing array of equally shaped TezPackedBlocks with a
// whole-pool compression stage, parallel pack and unpack, a device copy and
// an archive form.
//
// The pool is in one of three states, lowest memory first: compressed (one
// stream for the whole pool, blocks empty), packed, raw. Every operation that
// touches blocks calls Uncompress first, so callers never see a compressed
// pool; after Uncompress the blocks are packed, not raw.
//
// Compress packs every block, lays the packed bytes end to end followed by
// one 32-bit little-endian length per block, and compresses that at level 1.
// All packed pools of the process compress and expand one at a time.
//
// The device copy holds block i at byte i * GetBlockSizeBytes() (the block's
// absolute index, not its index within the established range); it is sized
// for blocks 0 .. last so that this layout holds whatever the range.
// Device failures are fatal through checkCudaError.
//
// Read trusts nothing it cannot check: shapes, counts and a stream that
// cannot hold what it claims are refused with std::runtime_error, as is a
// stream whose stored lengths do not add up when it is expanded.
//
// Copying makes deep copies of the blocks and starts without a device copy;
// assignment shares the block objects and the device copy.

#include "volume/PackedBlock.h"

#include <tbb/cache_aligned_allocator.h>
#include <tbb/concurrent_vector.h>

#include <cstdint>
#include <memory>
#include <vector>

class TezArchive;

class TEZ_API TezPackedPool
{
public:
    using CompressedVector = std::vector<uint8_t, tbb::cache_aligned_allocator<uint8_t>>;

    static std::unique_ptr<TezPackedPool> Create(int numChunks, int chunkSize);
    static std::unique_ptr<TezPackedPool> Create(TezPackedPool const& other);

    virtual ~TezPackedPool();
    TezPackedPool& operator=(TezPackedPool const& other);

    // Grows with empty blocks (numChunks, chunkSize, disposeOnPack) or cuts.
    virtual void Resize(uint64_t count, bool disposeOnPack);
    // Null past the end.
    virtual TezRef<TezPackedBlock> RetrieveBlock(uint64_t index);
    // Appends a block of the pool's shape; false (nothing changes) otherwise.
    virtual bool Push(TezRef<TezPackedBlock> block);

    void Clear();
    uint64_t GetCount() const { return m_blocks.size(); }
    uint64_t GetBlockSizeBytes() const;
    int GetNumChunks() const { return m_numChunks; }
    int GetChunkSize() const { return m_chunkSize; }
    // Blocks with data that are not packed; 0 when compressed.
    uint64_t GetUnpackCount() const;
    bool IsCompressed() const { return m_isCompressed; }
    uint64_t GetPackedSize() const { return m_packedSize; }
    uint64_t GetCompressedSize() const { return m_compressed.size(); }

    void PackAll();
    // Unpacks the packed blocks among first .. first+count-1 until the
    // system's memory load reaches memoryLimit (a fraction); the rest stay packed.
    void UnpackRange(uint64_t first, uint64_t count, double memoryLimit);
    // Unpacks exactly first .. first+count-1 (clamped to the pool).
    void UnpackSelected(uint64_t first, uint64_t count);

    void Compress();
    void Uncompress();

    void* EstablishCUDA(uint64_t first, uint64_t last);
    void WriteToCUDA();
    void ReadFromCUDA();
    void FreeCUDA();
    void* GetCUDA() const { return m_cudaData.get(); }
    uint64_t GetCUDAFirst() const { return m_cudaFirst; }
    uint64_t GetCUDALast() const { return m_cudaLast; }
    void MarkDirty() { m_dirty = true; }
    bool isDirty() const { return m_dirty; }
    bool isValidCUDA() const { return m_cudaData && !m_dirty; }

    void Save(TezArchive& archive);
    void Read(TezArchive& archive);

protected:
    TezPackedPool(int numChunks, int chunkSize);
    TezPackedPool(TezPackedPool const& other);

private:
    void CheckStream(uint64_t count) const;

    tbb::concurrent_vector<TezRef<TezPackedBlock>> m_blocks;
    CompressedVector m_compressed;
    int32_t m_numChunks = 0;
    int32_t m_chunkSize = 0;
    std::shared_ptr<void> m_cudaData; // shared by assigned pools, freed by the last
    uint64_t m_cudaFirst = 0;
    uint64_t m_cudaLast = 0;
    bool m_dirty = true;
    bool m_isCompressed = false;
    uint64_t m_packedSize = 0;
};
