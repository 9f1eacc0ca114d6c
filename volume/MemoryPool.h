#pragma once
// TezMemoryPool<T>: a growing array of fixed-size elements kept in equally
// sized, zero-filled heap blocks that never move, with a whole-pool
// compressed state and a linear device copy.
//
// The element size and the smallest block come from the pool's type at
// construction; a pool of variable elements may change its size while it is
// empty of blocks (SetElementSize empties it otherwise).
//
// Element i lies in block i / blockSize at byte (i % blockSize) * element size.
// Blocks only append, so an element keeps its address until the pool is
// compressed; EnsureCapacity may run while other threads read elements that
// already exist.
//
// Allocate is thread-safe: within the blocks there are it bumps the element
// count with one compare-and-swap, and it holds the pool's lock only to grow.
// It marks the device copy dirty and answers the index of the first of count
// consecutive new, zero-filled elements, or InvalidIndex when the pool cannot
// grow (out of memory). Writing into elements needs no lock while the pool is
// not compressed. Every accessor climbs back from the compressed state by
// itself (Uncompress), so callers never see a compressed pool.
//
// Compress turns each block, by itself, into a compressed frame (level 1) and
// frees it; Uncompress restores them into fresh blocks (new addresses). All
// pools of the process compress one at a time under one mutex and expand one
// at a time under another.
//
// The device copy is one linear array of the elements, element i at
// i * element size; it does not follow the host by itself: whoever changes
// the pool marks it dirty (allocation does). Device failures are fatal
// through checkCudaError.
//
// Save writes section "pool" with "blockSize", "numElements", "numBlocks" and
// one compressed binary per block; Load leaves the pool compressed until first
// use and refuses, with std::runtime_error, sizes the archive cannot hold.
// The element size is not stored: set it before Load.

#include "platform/Api.h"

#include <atomic>
#include <cstdint>
#include <memory>

class TezArchive;

class TEZ_API TezMemoryPoolBase
{
public:
    // Answer of a failed allocation.
    static constexpr uint64_t InvalidIndex = ~uint64_t(0);

    // elementSize in bytes; minBlockSize: the fewest elements per block
    // that Initialize allows.
    TezMemoryPoolBase(uint64_t elementSize, uint64_t minBlockSize);
    virtual ~TezMemoryPoolBase();
    TezMemoryPoolBase(TezMemoryPoolBase const&) = delete;
    TezMemoryPoolBase& operator=(TezMemoryPoolBase const&) = delete;

    uint64_t GetElementSize() const { return m_elementSize; }
    uint64_t GetMinBlockSize() const { return m_minBlockSize; }

    // Reset; blockSize = max(blockSize, GetMinBlockSize()); no elements; one block.
    void Initialize(uint64_t blockSize);
    // Frees all plain and compressed blocks; not compressed afterwards.
    void Reset();
    // One more zero-filled block; false when memory cannot be had.
    bool AddBlock();
    // Adds blocks until elements first .. first+count-1 exist; false when a
    // block cannot be had.
    bool EnsureCapacity(uint64_t first, uint64_t count);
    // Takes count consecutive new elements under the pool's lock.
    uint64_t Allocate(uint64_t count);
    // Address of element index (not checked against the capacity).
    void* ElementBytes(uint64_t index);

    uint64_t GetBlockSize() const { return m_blockSize; }
    uint64_t GetNumElements() const { return m_numElements.load(std::memory_order_relaxed); }
    uint64_t GetNumBlocks() const;
    // Element size * blockSize * blocks, in whichever form they are.
    uint64_t GetSizeBytes() const;
    bool IsCompressed() const { return m_isCompressed.load(std::memory_order_acquire); }

    void Compress();
    void Uncompress();

    // Device copy: sized for GetSizeBytes; an existing copy at least that big is kept.
    void* EstablishCUDA();
    // Establishes when needed, copies every block, clears dirty.
    void WriteToCUDA();
    // Copies the device's elements back (node states after a kernel).
    void ReadFromCUDA();
    void FreeCUDA();
    void* GetCUDA() const { return m_cudaData; }
    uint64_t GetCUDABytes() const { return m_cudaBytes; }
    void MarkDirty() { m_dirty = true; }
    bool IsDirty() const { return m_dirty; }
    bool IsValidCUDA() const { return m_cudaData != nullptr && !m_dirty; }

    void Save(TezArchive& archive);
    void Load(TezArchive& archive);

protected:
    // For pools of variable elements: a change of size on a pool that holds
    // blocks empties it (Initialize it again).
    void SetElementSize(uint64_t bytes);

private:
    struct Storage;
    void FreeBlocks();
    uint64_t BlockBytes() const { return m_elementSize * m_blockSize; }

    std::unique_ptr<Storage> m_storage;
    uint64_t m_elementSize;
    uint64_t const m_minBlockSize;
    uint64_t m_blockSize = 512;
    std::atomic<uint64_t> m_numElements{0};
    // Elements the blocks hold, published once a block is in place: what
    // Allocate may hand out without the lock.
    std::atomic<uint64_t> m_capacity{0};
    void* m_cudaData = nullptr;
    uint64_t m_cudaBytes = 0;
    std::atomic<bool> m_dirty{true};
    std::atomic<bool> m_isCompressed{false};
};

template <class T>
class TezMemoryPool : public TezMemoryPoolBase
{
public:
    TezMemoryPool(uint64_t elementSize, uint64_t minBlockSize) : TezMemoryPoolBase(elementSize, minBlockSize) {}
    T* ElementAt(uint64_t index) { return static_cast<T*>(ElementBytes(index)); }
};
