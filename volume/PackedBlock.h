#pragma once
// TezPackedBlock: one rectangular byte block, numChunks chunks of chunkSize
// bytes, held either raw or run-length packed, changing form on demand.
//
// Packed form: the chunks one after the other, each a tag byte and a body.
//   0 / 1 / 5   constant 0 / 1 / value (tag 5 has the value as body);
//   2, 3, 4     two, up to four, up to eight values below 2, 4, 8: run bytes
//               of 1, 2, 3 value bits above 7, 6, 5 length-1 bits;
//   6, 7, 8     the same over a base byte (the minimum) that leads the body;
//   9           groups: control with the high bit set is a run of
//               (control & 127) + 1 copies of the next byte, otherwise a
//               literal of control + 1 bytes.
// Pack computes the exact packed size before it allocates. Unpack refuses
// damaged packed bytes with std::runtime_error.
//
// A block of single-byte chunks (chunkSize 1, numChunks > 1) is stored as one
// long chunk ("inverted"); GetNumChunks and GetChunkSize still answer the
// shape as asked.
//
// The maximum (first index of the largest byte) survives packing. The two
// SetValue forms differ on purpose: the flat one stores the written value as
// the maximum at index 0, the two-index one marks the maximum as not valid.
//
// Pack, Unpack and CopyData are safe against each other on one block from
// several threads (a per-block spin flag); the raw accessors are not safe
// against a concurrent Pack. Indexes past the block throw std::runtime_error.

#include "core/RefCounter.h"

#include <tbb/tbb_allocator.h>

#include <atomic>
#include <cstdint>
#include <vector>

class TEZ_API TezPackedBlock : public TezRefCounter
{
public:
    using ByteVector = std::vector<uint8_t, tbb::tbb_allocator<uint8_t>>;
    static constexpr uint32_t InvalidMaxIndex = 0xFFFFFFFFu;

    // Raw, filled with value; the maximum is value at index 0.
    static TezRef<TezPackedBlock> Create(int numChunks, int chunkSize, uint8_t value);
    // Raw copy of numChunks * chunkSize bytes.
    static TezRef<TezPackedBlock> CreateCopy(int numChunks, int chunkSize, void const* data);
    // Takes the vector over as raw (it must hold numChunks * chunkSize bytes).
    static TezRef<TezPackedBlock> CreateTaking(int numChunks, int chunkSize, ByteVector&& data);
    // No data; the maximum is not valid.
    static TezRef<TezPackedBlock> CreateEmpty(int numChunks, int chunkSize, bool disposeOnPack);
    // Deep copy: shape, maximum, both forms, disposeOnPack.
    static TezRef<TezPackedBlock> CreateCopy(TezRef<TezPackedBlock> const& other);

    ~TezPackedBlock() override;

    virtual void Pack();
    virtual void Unpack();
    virtual bool HasData() const { return !m_raw.empty() || !m_packed.empty(); }

    void Clear();
    bool IsPacked() const { return m_raw.empty() && !m_packed.empty(); }
    static int SizeOfDataType() { return 1; }

    // Unpack, then the raw bytes.
    ByteVector& Get();
    uint8_t* GetRawData();
    // Pack, then the packed bytes.
    ByteVector const& GetPacked();
    uint8_t const* GetRawPackedData();
    uint64_t GetPackedSizeBytes();
    uint64_t GetUnpackedSizeBytes() const { return uint64_t(m_numChunks) * uint64_t(m_chunkSize); }

    // Copies the unpacked bytes out; a raw block is packed afterwards, a
    // packed one stays packed. A block without data copies nothing.
    void CopyData(void* destination);

    uint8_t GetValue(uint64_t index);
    uint8_t GetValue(int chunk, int index);
    void SetValue(uint64_t index, uint8_t value);
    void SetValue(int chunk, int index, uint8_t value);

    uint8_t GetMaxValue();
    uint32_t GetMaxIndex();
    bool IsMaxValueValid() const { return m_maxIndex < InvalidMaxIndex; }
    void SetMaxValue(uint8_t value) { m_maxValue = value; }
    void SetMaxIndex(uint32_t index) { m_maxIndex = index; }
    void UpdateMaxValue();

    int GetNumChunks() const { return m_inverted ? m_chunkSize : m_numChunks; }
    int GetChunkSize() const { return m_inverted ? m_numChunks : m_chunkSize; }
    bool IsInverted() const { return m_inverted; }

    void Resize(int numChunks, int chunkSize, uint8_t value);
    // Takes the vector as raw when it holds exactly the unpacked size;
    // otherwise drops it and leaves the block as it was.
    void Set(ByteVector&& data);
    // Packed bytes as they are; the maximum is left alone.
    void SetPacked(void const* data, uint64_t size);
    void SetRaw(void const* data);
    void SetRaw(void const* data, uint8_t maxValue, uint32_t maxIndex);

    bool GetDisposeOnPack() const { return m_disposeOnPack; }
    void SetDisposeOnPack(bool dispose) { m_disposeOnPack = dispose; }

protected:
    TezPackedBlock(int numChunks, int chunkSize);

private:
    class FlagGuard;
    void CheckInvert();
    void ScanMax();
    uint64_t Position(int chunk, int index) const;
    void Decode(uint8_t* destination) const;
    void Lock();
    void Unlock() { m_lock.store(0, std::memory_order_release); }

    int32_t m_numChunks = 0;
    int32_t m_chunkSize = 0;
    bool m_inverted = false;
    std::atomic<uint8_t> m_lock{0};
    uint32_t m_maxIndex = InvalidMaxIndex;
    uint8_t m_maxValue = 0;
    ByteVector m_packed;
    ByteVector m_raw;
    bool m_disposeOnPack = false;
};
