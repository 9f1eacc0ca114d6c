#include "volume/PackedPool.h"

#include "core/Archive.h"
#include "core/Compress.h"
#include "core/CudaCheck.h"
#include "core/Logger.h"
#include "core/Threads.h"
#include "platform/DeviceMemory.h"
#include "platform/System.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

// The whole-pool stage of all packed pools runs one at a time, so that two
// large pools never hold their expansion buffers together.
std::mutex g_poolMutex;

constexpr double kMegabyte = 1048576.0;
// DEFLATE expands at most this much; frame headers add a little.
constexpr uint64_t kMaxExpansion = 1032;
constexpr uint64_t kFrameSlack = 1024;
// What an empty block costs in memory, to bound a stored block count.
constexpr uint64_t kEmptyBlockCost = sizeof(TezPackedBlock) + 64;

bool TagIs(TezString const& tag, char const* name) { return tag.CompareNoCase(TezString(name)) == 0; }

[[noreturn]] void Refuse(char const* operation, std::string const& text)
{
    throw std::runtime_error(std::string("TezPackedPool::") + operation + ": " + text);
}

// The shared cursor of the parallel loops; a plain spin flag keeps it cheap.
class SpinFlag
{
public:
    void Lock()
    {
        while (m_flag.exchange(true, std::memory_order_acquire))
            std::this_thread::yield();
    }
    void Unlock() { m_flag.store(false, std::memory_order_release); }

private:
    std::atomic<bool> m_flag{false};
};

uint64_t WorkerCount(uint64_t work)
{
    uint64_t processors = std::max<uint64_t>(1, TezGetNumberOfProcessors());
    return std::min(work, processors);
}

void FreeDevice(void* pointer) { checkCudaError(TezDeviceFree(pointer), "TezPackedPool::FreeCUDA.A"); }

} // namespace

TezPackedPool::TezPackedPool(int numChunks, int chunkSize) : m_numChunks(numChunks), m_chunkSize(chunkSize)
{
    if (numChunks < 0 || chunkSize < 0 ||
        uint64_t(numChunks) * uint64_t(chunkSize) >= uint64_t(TezPackedBlock::InvalidMaxIndex))
        Refuse("TezPackedPool", "bad shape " + std::to_string(numChunks) + " x " + std::to_string(chunkSize));
}

TezPackedPool::TezPackedPool(TezPackedPool const& other)
    : m_compressed(other.m_compressed), m_numChunks(other.m_numChunks), m_chunkSize(other.m_chunkSize),
      m_isCompressed(other.m_isCompressed), m_packedSize(other.m_packedSize)
{
    m_blocks.reserve(other.m_blocks.size());
    for (TezRef<TezPackedBlock> const& block : other.m_blocks)
        m_blocks.push_back(TezPackedBlock::CreateCopy(block));
}

TezPackedPool& TezPackedPool::operator=(TezPackedPool const& other)
{
    if (this == &other)
        return *this;
    m_blocks = other.m_blocks;
    m_compressed = other.m_compressed;
    m_numChunks = other.m_numChunks;
    m_chunkSize = other.m_chunkSize;
    m_cudaData = other.m_cudaData;
    m_cudaFirst = other.m_cudaFirst;
    m_cudaLast = other.m_cudaLast;
    m_dirty = other.m_dirty;
    m_isCompressed = other.m_isCompressed;
    m_packedSize = other.m_packedSize;
    return *this;
}

std::unique_ptr<TezPackedPool> TezPackedPool::Create(int numChunks, int chunkSize)
{
    return std::unique_ptr<TezPackedPool>(new TezPackedPool(numChunks, chunkSize));
}

std::unique_ptr<TezPackedPool> TezPackedPool::Create(TezPackedPool const& other)
{
    return std::unique_ptr<TezPackedPool>(new TezPackedPool(other));
}

TezPackedPool::~TezPackedPool()
{
    FreeCUDA();
    Clear();
}

uint64_t TezPackedPool::GetBlockSizeBytes() const
{
    return uint64_t(m_numChunks) * uint64_t(m_chunkSize) * TezPackedBlock::SizeOfDataType();
}

void TezPackedPool::Clear()
{
    m_blocks.clear();
    CompressedVector().swap(m_compressed);
    m_isCompressed = false;
}

bool TezPackedPool::Push(TezRef<TezPackedBlock> block)
{
    Uncompress();
    if (!block || block->GetChunkSize() != m_chunkSize || block->GetNumChunks() != m_numChunks)
        return false;
    m_blocks.push_back(block);
    return true;
}

void TezPackedPool::Resize(uint64_t count, bool disposeOnPack)
{
    Uncompress();
    if (count < m_blocks.size()) {
        m_blocks.resize(count);
        return;
    }
    m_blocks.reserve(count);
    while (m_blocks.size() < count)
        m_blocks.push_back(TezPackedBlock::CreateEmpty(m_numChunks, m_chunkSize, disposeOnPack));
}

TezRef<TezPackedBlock> TezPackedPool::RetrieveBlock(uint64_t index)
{
    Uncompress();
    if (index >= m_blocks.size())
        return nullptr;
    return m_blocks[index];
}

uint64_t TezPackedPool::GetUnpackCount() const
{
    if (m_isCompressed)
        return 0;
    uint64_t count = 0;
    for (TezRef<TezPackedBlock> const& block : m_blocks)
        if (block->HasData() && !block->IsPacked())
            ++count;
    return count;
}

void TezPackedPool::PackAll()
{
    uint64_t const work = GetUnpackCount();
    if (work == 0)
        return;
    double const start = TezTimer::TimeNowSecs();
    double const loadBefore = TezGetMemoryLoad();
    uint64_t const threads = WorkerCount(work);
    size_t const batch = std::max<uint64_t>(1, work / threads / 12);
    uint64_t const total = m_blocks.size();
    uint64_t cursor = 0;
    SpinFlag flag;
    tbb::parallel_for(uint64_t(0), threads, [&](uint64_t) {
        std::vector<TezPackedBlock*> taken;
        taken.reserve(batch);
        for (;;) {
            taken.clear();
            flag.Lock();
            while (cursor < total && taken.size() < batch) {
                TezPackedBlock* block = m_blocks[cursor++].Get();
                if (block->HasData() && !block->IsPacked())
                    taken.push_back(block);
            }
            flag.Unlock();
            if (taken.empty())
                return;
            for (TezPackedBlock* block : taken)
                block->Pack();
        }
    });
    double const elapsed = TezTimer::TimeNowSecs() - start;
    if (elapsed > 1.0) {
        TezLogger::info("TIME: pack blocks: %.3f  %.3f ms\n", elapsed, elapsed * 1000.0 / double(work));
        TezLogger::info("MEMORY: pack blocks - before %.2f%%  after %.2f%%\n", loadBefore * 100.0,
                        TezGetMemoryLoad() * 100.0);
    }
}

void TezPackedPool::UnpackRange(uint64_t first, uint64_t count, double memoryLimit)
{
    Uncompress();
    uint64_t const total = m_blocks.size();
    uint64_t const end = first < total ? first + std::min(count, total - first) : first;
    uint64_t work = 0;
    for (uint64_t i = first; i < end; ++i)
        if (m_blocks[i]->IsPacked())
            ++work;
    if (work == 0)
        return;
    double const start = TezTimer::TimeNowSecs();
    double const loadBefore = TezGetMemoryLoad();
    uint64_t const threads = WorkerCount(work);
    size_t const batch = std::max<uint64_t>(1, work / threads / 25);
    uint64_t cursor = first;
    SpinFlag flag;
    std::atomic<bool> stop{false};
    tbb::parallel_for(uint64_t(0), threads, [&](uint64_t thread) {
        std::vector<TezPackedBlock*> taken;
        taken.reserve(batch);
        double lastLook = TezTimer::TimeNowSecs();
        for (;;) {
            taken.clear();
            flag.Lock();
            while (cursor < end && taken.size() < batch) {
                TezPackedBlock* block = m_blocks[cursor++].Get();
                if (block->IsPacked())
                    taken.push_back(block);
            }
            flag.Unlock();
            if (taken.empty())
                return;
            for (TezPackedBlock* block : taken) {
                block->Unpack();
                if (thread == 0) {
                    double now = TezTimer::TimeNowSecs();
                    if (now - lastLook > 0.25) {
                        lastLook = now;
                        if (TezGetMemoryLoad() >= memoryLimit)
                            stop = true;
                    }
                }
            }
            if (stop)
                return;
        }
    });
    double const elapsed = TezTimer::TimeNowSecs() - start;
    if (elapsed > 1.0) {
        TezLogger::info("TIME: Unpack range of blocks: %.3f  %.3f ms\n", elapsed, elapsed * 1000.0 / double(work));
        TezLogger::info("MEMORY: Unpack range of blocks - before %.2f%%  after %.2f%%\n", loadBefore * 100.0,
                        TezGetMemoryLoad() * 100.0);
    }
}

void TezPackedPool::UnpackSelected(uint64_t first, uint64_t count)
{
    Uncompress();
    uint64_t const total = m_blocks.size();
    uint64_t const work = first < total ? std::min(count, total - first) : 0;
    if (work == 0)
        return;
    double const start = TezTimer::TimeNowSecs();
    uint64_t const threads = WorkerCount(work);
    uint64_t const batch = std::max<uint64_t>(1, work / threads / 25);
    uint64_t cursor = 0;
    SpinFlag flag;
    tbb::parallel_for(uint64_t(0), threads, [&](uint64_t) {
        for (;;) {
            flag.Lock();
            uint64_t const from = cursor;
            cursor = std::min(work, cursor + batch);
            uint64_t const to = cursor;
            flag.Unlock();
            if (from >= to)
                return;
            for (uint64_t i = from; i < to; ++i)
                m_blocks[first + i]->Unpack();
        }
    });
    double const elapsed = TezTimer::TimeNowSecs() - start;
    TezLogger::info("TIME: unpack blocks: %.3f  %.3f ms\n", elapsed, elapsed * 1000.0 / double(work));
}

void TezPackedPool::Compress()
{
    if (m_isCompressed)
        return;
    std::lock_guard<std::mutex> lock(g_poolMutex);
    if (m_isCompressed)
        return;
    double const start = TezTimer::TimeNowSecs();
    CompressedVector().swap(m_compressed);
    PackAll();
    uint64_t const count = m_blocks.size();
    uint64_t packedSize = 0;
    for (TezRef<TezPackedBlock> const& block : m_blocks)
        packedSize += block->GetPackedSizeBytes();
    m_packedSize = packedSize;
    if (packedSize == 0)
        return;

    std::vector<uint8_t> buffer(packedSize + 4 * count);
    uint64_t offset = 0;
    uint8_t* lengths = buffer.data() + packedSize;
    for (uint64_t i = 0; i < count; ++i) {
        TezPackedBlock::ByteVector const& packed = m_blocks[i]->GetPacked();
        if (!packed.empty())
            std::memcpy(buffer.data() + offset, packed.data(), packed.size());
        offset += packed.size();
        uint32_t const length = static_cast<uint32_t>(packed.size());
        for (int b = 0; b < 4; ++b)
            lengths[4 * i + b] = static_cast<uint8_t>(length >> (8 * b));
    }
    // Through a plain vector: it keeps parts that do not shrink as raw bytes.
    std::vector<uint8_t> frame;
    TezCompress::Compress(buffer.data(), buffer.size(), frame, 1);
    m_compressed.assign(frame.begin(), frame.end());

    TezLogger::info("TIME: compress blocks: %.3f\n", TezTimer::TimeNowSecs() - start);
    TezLogger::info("POOL::compress %.2f -->> %.2f -->> %.2f Mb\n",
                    double(GetBlockSizeBytes()) * double(count) / kMegabyte, double(packedSize) / kMegabyte,
                    double(m_compressed.size()) / kMegabyte);
    for (TezRef<TezPackedBlock> const& block : m_blocks)
        block->Clear();
    m_isCompressed = true;
}

void TezPackedPool::CheckStream(uint64_t count) const
{
    uint64_t const limit = uint64_t(m_compressed.size()) * kMaxExpansion + kFrameSlack;
    if (m_packedSize > limit || 4 * count > limit - m_packedSize)
        Refuse("Uncompress", "a stream of " + std::to_string(m_compressed.size()) + " bytes cannot hold " +
                                 std::to_string(m_packedSize) + " packed bytes in " + std::to_string(count) +
                                 " blocks");
}

void TezPackedPool::Uncompress()
{
    if (!m_isCompressed)
        return;
    std::lock_guard<std::mutex> lock(g_poolMutex);
    if (!m_isCompressed)
        return;
    double const start = TezTimer::TimeNowSecs();
    uint64_t const count = m_blocks.size();
    CheckStream(count);
    std::vector<uint8_t> buffer(m_packedSize + 4 * count);
    TezCompress::Uncompress(m_compressed.data(), m_compressed.size(), buffer.data(), buffer.size());

    uint8_t const* lengths = buffer.data() + m_packedSize;
    auto lengthOf = [lengths](uint64_t i) {
        return uint32_t(lengths[4 * i]) | uint32_t(lengths[4 * i + 1]) << 8 | uint32_t(lengths[4 * i + 2]) << 16 |
               uint32_t(lengths[4 * i + 3]) << 24;
    };
    uint64_t sum = 0;
    for (uint64_t i = 0; i < count; ++i)
        sum += lengthOf(i);
    if (sum != m_packedSize)
        Refuse("Uncompress",
               "stored lengths add up to " + std::to_string(sum) + ", not " + std::to_string(m_packedSize));
    uint64_t offset = 0;
    for (uint64_t i = 0; i < count; ++i) {
        uint32_t const length = lengthOf(i);
        m_blocks[i]->SetPacked(buffer.data() + offset, length);
        offset += length;
    }
    TezLogger::info("TIME: uncompress blocks: %.3f\n", TezTimer::TimeNowSecs() - start);
    TezLogger::info("POOL::uncompress %.2f -->> %.2f -->> %.2f Mb\n", double(m_compressed.size()) / kMegabyte,
                    double(m_packedSize) / kMegabyte, double(GetBlockSizeBytes()) * double(count) / kMegabyte);
    CompressedVector().swap(m_compressed);
    m_isCompressed = false;
}

void* TezPackedPool::EstablishCUDA(uint64_t first, uint64_t last)
{
    uint64_t const count = m_blocks.size();
    if (count == 0) {
        FreeCUDA();
        return nullptr;
    }
    last = std::min(last, count - 1);
    first = std::min(first, last);
    if (m_cudaData && first == m_cudaFirst && last == m_cudaLast)
        return m_cudaData.get();
    FreeCUDA();
    void* pointer = nullptr;
    checkCudaError(TezDeviceMalloc(&pointer, GetBlockSizeBytes() * (last + 1)), "TezPackedPool::EstablishCUDA.A");
    if (pointer)
        m_cudaData.reset(pointer, FreeDevice);
    m_cudaFirst = first;
    m_cudaLast = last;
    return pointer;
}

void TezPackedPool::WriteToCUDA()
{
    Uncompress();
    if (!m_cudaData || m_blocks.empty())
        return;
    m_cudaLast = std::min<uint64_t>(m_cudaLast, m_blocks.size() - 1);
    uint64_t const bytes = GetBlockSizeBytes();
    auto* device = static_cast<uint8_t*>(m_cudaData.get());
    for (uint64_t i = m_cudaFirst; i <= m_cudaLast; ++i) {
        uint8_t const* raw = m_blocks[i]->GetRawData();
        if (m_blocks[i]->HasData())
            checkCudaError(TezDeviceMemcpy(device + bytes * i, raw, bytes, TezDeviceHostToDevice),
                           "TezPackedPool::WriteToCUDA.A");
        else
            checkCudaError(TezDeviceMemset(device + bytes * i, 0, bytes), "TezPackedPool::WriteToCUDA.A");
    }
    m_dirty = false;
}

void TezPackedPool::ReadFromCUDA()
{
    Uncompress();
    if (!m_cudaData)
        return;
    uint64_t const bytes = GetBlockSizeBytes();
    auto const* device = static_cast<uint8_t const*>(m_cudaData.get());
    for (uint64_t i = m_cudaFirst; i <= m_cudaLast && i < m_blocks.size(); ++i) {
        TezPackedBlock::ByteVector raw(bytes);
        checkCudaError(TezDeviceMemcpy(raw.data(), device + bytes * i, bytes, TezDeviceDeviceToHost),
                       "TezPackedPool::ReadFromCUDA.A");
        m_blocks[i]->Set(std::move(raw));
    }
}

void TezPackedPool::FreeCUDA()
{
    m_cudaData.reset();
    m_dirty = true;
}

void TezPackedPool::Save(TezArchive& archive)
{
    uint64_t const count = GetCount();
    std::vector<uint8_t> dispose(count);
    std::vector<uint8_t> maxValues(count);
    std::vector<uint8_t> maxIndices(4 * count);
    for (uint64_t i = 0; i < count; ++i) {
        TezRef<TezPackedBlock> block = RetrieveBlock(i);
        dispose[i] = block->GetDisposeOnPack() ? 1 : 0;
        maxValues[i] = block->GetMaxValue();
        uint32_t const index = block->GetMaxIndex();
        for (int b = 0; b < 4; ++b)
            maxIndices[4 * i + b] = static_cast<uint8_t>(index >> (8 * b));
    }
    Compress();
    archive.WriteStartSection("pool");
    archive.WriteSizet("numChunks", static_cast<uint64_t>(m_numChunks));
    archive.WriteSizet("chunkSize", static_cast<uint64_t>(m_chunkSize));
    archive.WriteSizet("packedSize", m_packedSize);
    archive.WriteSizet("numBlocks", count);
    archive.WriteBool("isCompressed", m_isCompressed);
    if (m_isCompressed)
        archive.WriteCompressedBinary("", m_compressed.data(), m_packedSize, m_compressed.size());
    archive.WriteBinary("disposeOnPack", dispose.data(), dispose.size());
    archive.WriteBinary("maxValues", maxValues.data(), maxValues.size());
    archive.WriteBinary("maxIndicies", maxIndices.data(), maxIndices.size());
    archive.WriteEndSection();
}

void TezPackedPool::Read(TezArchive& archive)
{
    Clear();
    m_packedSize = 0;
    std::vector<uint8_t> bytes;
    auto readArray = [&](uint64_t width) {
        bytes.assign(m_blocks.size() * width, 0);
        archive.ReadBinary(bytes.data(), bytes.size());
    };
    auto readShape = [&](char const* name) {
        uint64_t value = archive.ReadSizet();
        if (value >= uint64_t(TezPackedBlock::InvalidMaxIndex) / 2)
            Refuse("Read", std::string(name) + " " + std::to_string(value));
        return static_cast<int32_t>(value);
    };
    for (;;) {
        TezString tag = archive.ReadTag();
        if (TagIs(tag, "sectionStart")) {
            archive.ReadStartSection(0);
        } else if (TagIs(tag, "sectionEnd")) {
            archive.ReadEndSection();
            break;
        } else if (TagIs(tag, "numChunks")) {
            m_numChunks = readShape("numChunks");
        } else if (TagIs(tag, "chunkSize")) {
            m_chunkSize = readShape("chunkSize");
        } else if (TagIs(tag, "packedSize")) {
            m_packedSize = archive.ReadSizet();
        } else if (TagIs(tag, "numBlocks")) {
            uint64_t count = archive.ReadSizet();
            if (GetBlockSizeBytes() >= uint64_t(TezPackedBlock::InvalidMaxIndex))
                Refuse("Read", "blocks of " + std::to_string(m_numChunks) + " x " + std::to_string(m_chunkSize));
            if (double(count) * double(kEmptyBlockCost) > TezGetAvailableMemory())
                Refuse("Read", std::to_string(count) + " blocks do not fit in memory");
            m_blocks.clear();
            m_blocks.reserve(count);
            for (uint64_t i = 0; i < count; ++i)
                m_blocks.push_back(TezPackedBlock::CreateEmpty(m_numChunks, m_chunkSize, false));
        } else if (TagIs(tag, "isCompressed")) {
            if (archive.ReadBool()) {
                archive.ReadCompressedBinary(m_compressed);
                m_isCompressed = true;
            }
        } else if (TagIs(tag, "disposeOnPack")) {
            readArray(1);
            for (uint64_t i = 0; i < m_blocks.size(); ++i)
                m_blocks[i]->SetDisposeOnPack(bytes[i] != 0);
        } else if (TagIs(tag, "maxValues")) {
            readArray(1);
            for (uint64_t i = 0; i < m_blocks.size(); ++i)
                m_blocks[i]->SetMaxValue(bytes[i]);
        } else if (TagIs(tag, "maxIndicies")) {
            readArray(4);
            for (uint64_t i = 0; i < m_blocks.size(); ++i)
                m_blocks[i]->SetMaxIndex(uint32_t(bytes[4 * i]) | uint32_t(bytes[4 * i + 1]) << 8 |
                                         uint32_t(bytes[4 * i + 2]) << 16 | uint32_t(bytes[4 * i + 3]) << 24);
        } else {
            archive.SkipUnknownTag();
        }
    }
    if (m_isCompressed)
        CheckStream(m_blocks.size());
}
