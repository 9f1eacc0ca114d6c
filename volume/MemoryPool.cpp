#include "volume/MemoryPool.h"

#include "core/Archive.h"
#include "core/Compress.h"
#include "core/CudaCheck.h"
#include "platform/DeviceMemory.h"

#include <tbb/concurrent_vector.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>
#if defined(__linux__)
#    include <sys/mman.h>
#endif

namespace {

// One pool compresses at a time and one expands at a time, process-wide.
std::mutex g_compressMutex;
std::mutex g_uncompressMutex;

// DEFLATE expands at most this much; the frame's header and lengths add a little.
constexpr uint64_t kMaxExpansion = 1032;
constexpr uint64_t kFrameSlack = 1024;

[[noreturn]] void Refuse(std::string const& text) { throw std::runtime_error("TezMemoryPool::Load: " + text); }

bool TagIs(TezString const& tag, char const* name) { return tag.CompareNoCase(TezString(name)) == 0; }

// A zero-filled block. Large blocks ask for 2 MiB pages over the whole pages
// they span: an octree build fills its pools at once, and small pages would
// cost a fault every 4 KiB.
uint8_t* NewBlock(uint64_t bytes)
{
    auto* block = static_cast<uint8_t*>(std::calloc(1, bytes));
#if defined(MADV_HUGEPAGE)
    constexpr uintptr_t kPage = 4096;
    constexpr uint64_t kHugePage = uint64_t(1) << 21;
    if (block && bytes >= 2 * kHugePage) {
        uintptr_t const begin = (reinterpret_cast<uintptr_t>(block) + kPage - 1) & ~(kPage - 1);
        uintptr_t const end = (reinterpret_cast<uintptr_t>(block) + bytes) & ~(kPage - 1);
        madvise(reinterpret_cast<void*>(begin), size_t(end - begin), MADV_HUGEPAGE);
    }
#endif
    return block;
}

} // namespace

struct TezMemoryPoolBase::Storage
{
    // Held by Allocate and SetElementSize: the count, the element size and
    // the block list change together under it.
    std::mutex allocation;
    tbb::concurrent_vector<uint8_t*> blocks;
    tbb::concurrent_vector<uint8_t*> compressedBlocks;
    tbb::concurrent_vector<uint64_t> compressedSizes;
};

TezMemoryPoolBase::TezMemoryPoolBase(uint64_t elementSize, uint64_t minBlockSize)
    : m_storage(std::make_unique<Storage>()), m_elementSize(elementSize), m_minBlockSize(minBlockSize)
{
}

TezMemoryPoolBase::~TezMemoryPoolBase()
{
    FreeCUDA();
    FreeBlocks();
}

void TezMemoryPoolBase::FreeBlocks()
{
    for (uint8_t* block : m_storage->blocks)
        std::free(block);
    for (uint8_t* block : m_storage->compressedBlocks)
        std::free(block);
    m_storage->blocks.clear();
    m_capacity.store(0, std::memory_order_release);
    m_storage->compressedBlocks.clear();
    m_storage->compressedSizes.clear();
}

void TezMemoryPoolBase::Initialize(uint64_t blockSize)
{
    Reset();
    m_blockSize = blockSize > m_minBlockSize ? blockSize : m_minBlockSize;
    m_numElements = 0;
    AddBlock();
}

void TezMemoryPoolBase::Reset()
{
    FreeBlocks();
    m_isCompressed.store(false, std::memory_order_release);
}

bool TezMemoryPoolBase::AddBlock()
{
    Uncompress();
    uint64_t bytes = BlockBytes();
    if (bytes == 0)
        return false;
    auto* block = NewBlock(bytes);
    if (!block)
        return false;
    m_storage->blocks.push_back(block);
    m_capacity.store(uint64_t(m_storage->blocks.size()) * m_blockSize, std::memory_order_release);
    return true;
}

bool TezMemoryPoolBase::EnsureCapacity(uint64_t first, uint64_t count)
{
    Uncompress();
    if (first > ~uint64_t(0) - count)
        return false;
    uint64_t end = first + count;
    while (end > m_storage->blocks.size() * m_blockSize) {
        if (!AddBlock())
            return false;
    }
    return true;
}

void TezMemoryPoolBase::SetElementSize(uint64_t bytes)
{
    std::lock_guard<std::mutex> lock(m_storage->allocation);
    if (bytes != m_elementSize && GetNumBlocks() > 0) {
        Reset();
        m_numElements = 0;
    }
    m_elementSize = bytes;
}

uint64_t TezMemoryPoolBase::Allocate(uint64_t count)
{
    // Within the blocks there are, no lock: one compare-and-swap.
    uint64_t first = m_numElements.load(std::memory_order_relaxed);
    while (count <= ~uint64_t(0) - first && first + count <= m_capacity.load(std::memory_order_acquire)) {
        if (m_numElements.compare_exchange_weak(first, first + count, std::memory_order_relaxed)) {
            m_dirty.store(true, std::memory_order_relaxed);
            return first;
        }
    }
    std::lock_guard<std::mutex> lock(m_storage->allocation);
    for (;;) {
        first = m_numElements.load(std::memory_order_relaxed);
        if (!EnsureCapacity(first, count))
            return InvalidIndex;
        if (m_numElements.compare_exchange_strong(first, first + count, std::memory_order_relaxed)) {
            m_dirty.store(true, std::memory_order_relaxed);
            return first;
        }
    }
}

void* TezMemoryPoolBase::ElementBytes(uint64_t index)
{
    if (IsCompressed())
        Uncompress();
    return m_storage->blocks[index / m_blockSize] + (index % m_blockSize) * m_elementSize;
}

uint64_t TezMemoryPoolBase::GetNumBlocks() const
{
    return IsCompressed() ? m_storage->compressedBlocks.size() : m_storage->blocks.size();
}

uint64_t TezMemoryPoolBase::GetSizeBytes() const { return BlockBytes() * GetNumBlocks(); }

void TezMemoryPoolBase::Compress()
{
    if (IsCompressed())
        return;
    std::lock_guard<std::mutex> lock(g_compressMutex);
    if (IsCompressed())
        return;
    Storage& s = *m_storage;
    for (uint8_t* block : s.compressedBlocks)
        std::free(block);
    s.compressedBlocks.clear();
    s.compressedSizes.clear();
    uint64_t bytes = BlockBytes();
    std::vector<uint8_t> frame;
    // Each plain block goes as soon as its frame exists, to keep the peak
    // low; a failure puts the frames made so far back into plain blocks.
    size_t done = 0;
    try {
        for (; done < s.blocks.size(); ++done) {
            frame.clear();
            TezCompress::Compress(s.blocks[done], bytes, frame, 1);
            auto* copy = static_cast<uint8_t*>(std::malloc(frame.size() ? frame.size() : 1));
            if (!copy)
                throw std::bad_alloc();
            std::memcpy(copy, frame.data(), frame.size());
            s.compressedBlocks.push_back(copy);
            s.compressedSizes.push_back(frame.size());
            std::free(s.blocks[done]);
            s.blocks[done] = nullptr;
        }
    } catch (...) {
        for (size_t i = 0; i < s.compressedBlocks.size(); ++i) {
            s.blocks[i] = NewBlock(bytes);
            if (s.blocks[i])
                TezCompress::Uncompress(s.compressedBlocks[i], s.compressedSizes[i], s.blocks[i], bytes);
            std::free(s.compressedBlocks[i]);
        }
        s.compressedBlocks.clear();
        s.compressedSizes.clear();
        throw;
    }
    s.blocks.clear();
    m_capacity.store(0, std::memory_order_release);
    m_isCompressed.store(true, std::memory_order_release);
}

void TezMemoryPoolBase::Uncompress()
{
    if (!IsCompressed())
        return;
    std::lock_guard<std::mutex> lock(g_uncompressMutex);
    if (!IsCompressed())
        return;
    Storage& s = *m_storage;
    uint64_t bytes = BlockBytes();
    std::vector<uint8_t*> restored;
    restored.reserve(s.compressedBlocks.size());
    try {
        for (size_t i = 0; i < s.compressedBlocks.size(); ++i) {
            auto* block = NewBlock(bytes);
            if (!block)
                throw std::bad_alloc();
            restored.push_back(block);
            TezCompress::Uncompress(s.compressedBlocks[i], s.compressedSizes[i], block, bytes);
        }
    } catch (...) {
        for (uint8_t* block : restored)
            std::free(block);
        throw;
    }
    s.blocks.clear();
    for (uint8_t* block : restored)
        s.blocks.push_back(block);
    m_capacity.store(uint64_t(s.blocks.size()) * m_blockSize, std::memory_order_release);
    for (uint8_t* block : s.compressedBlocks)
        std::free(block);
    s.compressedBlocks.clear();
    s.compressedSizes.clear();
    m_isCompressed.store(false, std::memory_order_release);
}

void* TezMemoryPoolBase::EstablishCUDA()
{
    uint64_t needed = GetSizeBytes();
    if (m_cudaData && m_cudaBytes >= needed)
        return m_cudaData;
    FreeCUDA();
    m_dirty = true;
    m_cudaBytes = needed;
    checkCudaError(TezDeviceMalloc(&m_cudaData, needed), "TezMemoryPool::EstablishCUDA.A");
    return m_cudaData;
}

void TezMemoryPoolBase::WriteToCUDA()
{
    Uncompress();
    EstablishCUDA();
    uint64_t bytes = BlockBytes();
    auto* device = static_cast<uint8_t*>(m_cudaData);
    for (size_t i = 0; i < m_storage->blocks.size(); ++i)
        checkCudaError(TezDeviceMemcpy(device + i * bytes, m_storage->blocks[i], bytes, TezDeviceHostToDevice),
                       "TezMemoryPool::WriteToCUDA.A");
    m_dirty = false;
}

void TezMemoryPoolBase::ReadFromCUDA()
{
    Uncompress();
    if (!m_cudaData)
        return;
    uint64_t bytes = BlockBytes();
    auto const* device = static_cast<uint8_t const*>(m_cudaData);
    for (size_t i = 0; i < m_storage->blocks.size() && (i + 1) * bytes <= m_cudaBytes; ++i)
        checkCudaError(TezDeviceMemcpy(m_storage->blocks[i], device + i * bytes, bytes, TezDeviceDeviceToHost),
                       "TezMemoryPool::ReadFromCUDA.A");
}

void TezMemoryPoolBase::FreeCUDA()
{
    if (m_cudaData)
        checkCudaError(TezDeviceFree(m_cudaData), "TezMemoryPool::FreeCUDA.A");
    m_cudaData = nullptr;
    m_cudaBytes = 0;
    m_dirty = true;
}

void TezMemoryPoolBase::Save(TezArchive& archive)
{
    Compress();
    Storage& s = *m_storage;
    archive.WriteStartSection("pool");
    archive.WriteSizet("blockSize", m_blockSize);
    archive.WriteSizet("numElements", GetNumElements());
    archive.WriteSizet("numBlocks", s.compressedBlocks.size());
    for (size_t i = 0; i < s.compressedBlocks.size(); ++i)
        archive.WriteCompressedBinary("", s.compressedBlocks[i], BlockBytes(), s.compressedSizes[i]);
    archive.WriteEndSection();
}

void TezMemoryPoolBase::Load(TezArchive& archive)
{
    Reset();
    Storage& s = *m_storage;
    std::vector<uint8_t> frame;
    for (;;) {
        TezString tag = archive.ReadTag();
        if (TagIs(tag, "sectionStart")) {
            archive.ReadStartSection(0);
        } else if (TagIs(tag, "sectionEnd")) {
            archive.ReadEndSection();
            break;
        } else if (TagIs(tag, "blockSize")) {
            m_blockSize = archive.ReadSizet();
        } else if (TagIs(tag, "numElements")) {
            m_numElements = archive.ReadSizet();
        } else if (TagIs(tag, "numBlocks")) {
            uint64_t count = archive.ReadSizet();
            if (m_blockSize == 0 || m_elementSize == 0 || m_blockSize > ~uint64_t(0) / m_elementSize)
                Refuse("block of " + std::to_string(m_blockSize) + " elements");
            for (uint64_t i = 0; i < count; ++i) {
                archive.ReadCompressedBinary(frame);
                if (BlockBytes() > frame.size() * kMaxExpansion + kFrameSlack)
                    Refuse("a frame of " + std::to_string(frame.size()) + " bytes cannot hold a block of " +
                           std::to_string(BlockBytes()) + " bytes");
                auto* copy = static_cast<uint8_t*>(std::malloc(frame.size() ? frame.size() : 1));
                if (!copy)
                    throw std::bad_alloc();
                std::memcpy(copy, frame.data(), frame.size());
                s.compressedBlocks.push_back(copy);
                s.compressedSizes.push_back(frame.size());
            }
            m_isCompressed.store(true, std::memory_order_release);
        } else {
            archive.SkipUnknownTag();
        }
    }
    if (m_numElements > s.compressedBlocks.size() * m_blockSize)
        Refuse(std::to_string(GetNumElements()) + " elements in " + std::to_string(s.compressedBlocks.size()) +
               " blocks of " + std::to_string(m_blockSize));
    m_dirty = true;
}
