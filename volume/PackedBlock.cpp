#include "volume/PackedBlock.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#if defined(__x86_64__) || defined(__i386__)
#    include <immintrin.h>
#endif

namespace {

// Tags of the packed chunk format.
enum : uint8_t {
    kZeros = 0,
    kOnes = 1,
    kRuns1 = 2,
    kRuns2 = 3,
    kRuns3 = 4,
    kConstant = 5,
    kBasedRuns1 = 6,
    kBasedRuns2 = 7,
    kBasedRuns3 = 8,
    kGroups = 9
};

struct ChunkCode
{
    uint8_t tag;
    uint8_t base;
};

ChunkCode Classify(uint8_t const* data, size_t size)
{
    uint8_t lo = 255;
    uint8_t hi = 0;
    for (size_t i = 0; i < size; ++i) {
        lo = std::min(lo, data[i]);
        hi = std::max(hi, data[i]);
    }
    int range = hi - lo + 1;
    if (range == 1)
        return {lo == 0 ? kZeros : lo == 1 ? kOnes : kConstant, lo};
    if (range == 2)
        return hi < 2 ? ChunkCode{kRuns1, 0} : ChunkCode{kBasedRuns1, lo};
    if (range <= 4)
        return hi < 4 ? ChunkCode{kRuns2, 0} : ChunkCode{kBasedRuns2, lo};
    if (range <= 8)
        return hi < 8 ? ChunkCode{kRuns3, 0} : ChunkCode{kBasedRuns3, lo};
    return {kGroups, 0};
}

// Value bits of a run byte for the run tags.
int ValueBits(uint8_t tag) { return tag <= kRuns3 ? tag - 1 : tag - 5; }

// One encoder for both passes, so that the measured size is the written one.
// A run byte closes at a change of value, at the chunk's end, or when its
// length field is full; the loops carry the position within the current run
// byte instead of branching on run lengths, which are mostly short.
template <bool Write>
size_t EncodeRuns(uint8_t const* data, size_t size, uint8_t base, int valueBits, uint8_t* out)
{
    int const lengthBits = 8 - valueBits;
    uint32_t const full = (1u << lengthBits) - 1;
    uint32_t inRun = 0;
    if (!Write) {
        size_t count = 1;
        for (size_t i = 1; i < size; ++i) {
            uint32_t const same = data[i] == data[i - 1];
            inRun = ((inRun + 1) & full) * same;
            count += inRun == 0;
        }
        return count;
    }
    size_t written = 0;
    for (size_t i = 0; i + 1 < size; ++i) {
        // Stored before it is known to close: a later byte of the same run
        // overwrites it.
        out[written] = static_cast<uint8_t>(((data[i] - base) << lengthBits) | inRun);
        uint32_t const closes = uint32_t(data[i + 1] != data[i]) | uint32_t(inRun == full);
        written += closes;
        inRun = (inRun + 1) * (1 - closes);
    }
    out[written++] = static_cast<uint8_t>(((data[size - 1] - base) << lengthBits) | inRun);
    return written;
}

template <bool Write>
size_t EncodeGroups(uint8_t const* data, size_t size, uint8_t* out)
{
    size_t written = 0;
    size_t start = 0;
    size_t length = 1;
    bool run = size > 1 && data[0] == data[1];
    auto close = [&] {
        if (run) {
            if (Write) {
                out[written] = static_cast<uint8_t>(0x80 | (length - 1));
                out[written + 1] = data[start];
            }
            written += 2;
        } else {
            if (Write) {
                out[written] = static_cast<uint8_t>(length - 1);
                std::memcpy(out + written + 1, data + start, length);
            }
            written += 1 + length;
        }
    };
    for (size_t i = 1; i < size; ++i) {
        if (run && data[i] == data[start] && length < 128) {
            ++length;
        } else if (!run && data[i] != data[i - 1] && length < 128) {
            ++length;
        } else {
            close();
            start = i;
            length = 1;
            run = i != size - 1 && data[i + 1] == data[i];
        }
    }
    close();
    return written;
}

// The counting pass (Write false) has no output: out is null there, and even
// out + 1 would be undefined, so the encoders get null instead.
template <bool Write>
size_t EncodeChunk(uint8_t const* data, size_t size, ChunkCode code, uint8_t* out)
{
    auto at = [out](size_t offset) { return Write ? out + offset : nullptr; };
    if (Write)
        out[0] = code.tag;
    switch (code.tag) {
    case kZeros:
    case kOnes:
        return 1;
    case kConstant:
        if (Write)
            out[1] = code.base;
        return 2;
    case kRuns1:
    case kRuns2:
    case kRuns3:
        return 1 + EncodeRuns<Write>(data, size, 0, ValueBits(code.tag), at(1));
    case kBasedRuns1:
    case kBasedRuns2:
    case kBasedRuns3:
        if (Write)
            out[1] = code.base;
        return 2 + EncodeRuns<Write>(data, size, code.base, ValueBits(code.tag), at(2));
    default:
        return 1 + EncodeGroups<Write>(data, size, at(1));
    }
}

// Writes length copies of value; short runs with room behind them in the
// chunk take one 8-byte store whose surplus the next runs overwrite.
inline void FillRun(uint8_t* out, size_t room, uint8_t value, size_t length)
{
    if (length <= 8 && room >= 8) {
        uint64_t const pattern = value * 0x0101010101010101ull;
        std::memcpy(out, &pattern, 8);
    } else {
        std::memset(out, value, length);
    }
}

[[noreturn]] void Damaged(char const* what)
{
    throw std::runtime_error(std::string("TezPackedBlock::Unpack: damaged packed data (") + what + ")");
}

inline void CpuPause()
{
#if defined(__x86_64__) || defined(__i386__)
    _mm_pause();
#endif
}

void CheckShape(int numChunks, int chunkSize)
{
    if (numChunks < 0 || chunkSize < 0 ||
        uint64_t(numChunks) * uint64_t(chunkSize) >= uint64_t(TezPackedBlock::InvalidMaxIndex))
        throw std::runtime_error("TezPackedBlock: bad shape " + std::to_string(numChunks) + " x " +
                                 std::to_string(chunkSize));
}

} // namespace

class TezPackedBlock::FlagGuard
{
public:
    explicit FlagGuard(TezPackedBlock& block) : m_block(block) { m_block.Lock(); }
    ~FlagGuard() { m_block.Unlock(); }
    FlagGuard(FlagGuard const&) = delete;
    FlagGuard& operator=(FlagGuard const&) = delete;

private:
    TezPackedBlock& m_block;
};

TezPackedBlock::TezPackedBlock(int numChunks, int chunkSize) : m_numChunks(numChunks), m_chunkSize(chunkSize)
{
    CheckShape(numChunks, chunkSize);
    CheckInvert();
}

TezPackedBlock::~TezPackedBlock() = default;

TezRef<TezPackedBlock> TezPackedBlock::Create(int numChunks, int chunkSize, uint8_t value)
{
    TezRef<TezPackedBlock> block(new TezPackedBlock(numChunks, chunkSize));
    block->m_raw.assign(block->GetUnpackedSizeBytes(), value);
    block->m_maxValue = value;
    block->m_maxIndex = 0;
    return block;
}

TezRef<TezPackedBlock> TezPackedBlock::CreateCopy(int numChunks, int chunkSize, void const* data)
{
    TezRef<TezPackedBlock> block(new TezPackedBlock(numChunks, chunkSize));
    uint64_t size = block->GetUnpackedSizeBytes();
    if (size > 0 && !data)
        throw std::runtime_error("TezPackedBlock::CreateCopy: no data");
    auto const* bytes = static_cast<uint8_t const*>(data);
    block->m_raw.assign(bytes, bytes + size);
    block->ScanMax();
    return block;
}

TezRef<TezPackedBlock> TezPackedBlock::CreateTaking(int numChunks, int chunkSize, ByteVector&& data)
{
    TezRef<TezPackedBlock> block(new TezPackedBlock(numChunks, chunkSize));
    if (data.size() != block->GetUnpackedSizeBytes())
        throw std::runtime_error("TezPackedBlock::CreateTaking: " + std::to_string(data.size()) +
                                 " bytes for a block of " + std::to_string(block->GetUnpackedSizeBytes()));
    block->m_raw = std::move(data);
    block->ScanMax();
    return block;
}

TezRef<TezPackedBlock> TezPackedBlock::CreateEmpty(int numChunks, int chunkSize, bool disposeOnPack)
{
    TezRef<TezPackedBlock> block(new TezPackedBlock(numChunks, chunkSize));
    block->m_disposeOnPack = disposeOnPack;
    return block;
}

TezRef<TezPackedBlock> TezPackedBlock::CreateCopy(TezRef<TezPackedBlock> const& other)
{
    if (!other)
        return nullptr;
    TezRef<TezPackedBlock> block(new TezPackedBlock(other->GetNumChunks(), other->GetChunkSize()));
    FlagGuard guard(*other);
    block->m_maxIndex = other->m_maxIndex;
    block->m_maxValue = other->m_maxValue;
    block->m_packed = other->m_packed;
    block->m_raw = other->m_raw;
    block->m_disposeOnPack = other->m_disposeOnPack;
    return block;
}

void TezPackedBlock::CheckInvert()
{
    m_inverted = false;
    if (m_chunkSize == 1 && m_numChunks > 1) {
        std::swap(m_numChunks, m_chunkSize);
        m_inverted = true;
    }
}

void TezPackedBlock::Lock()
{
    int pauses = 1;
    for (;;) {
        uint8_t expected = 0;
        if (m_lock.compare_exchange_weak(expected, 1, std::memory_order_acquire, std::memory_order_relaxed))
            return;
        if (pauses <= 16) {
            for (int i = 0; i < pauses; ++i)
                CpuPause();
            pauses *= 2;
        } else {
            std::this_thread::yield();
        }
    }
}

void TezPackedBlock::Clear()
{
    ByteVector().swap(m_packed);
    ByteVector().swap(m_raw);
}

void TezPackedBlock::Pack()
{
    if (m_raw.empty())
        return;
    FlagGuard guard(*this);
    if (m_raw.empty())
        return;
    if (m_disposeOnPack) {
        ByteVector().swap(m_raw);
        return;
    }
    if (!IsMaxValueValid())
        ScanMax();

    size_t const chunkSize = static_cast<size_t>(m_chunkSize);
    size_t const numChunks = static_cast<size_t>(m_numChunks);
    thread_local std::vector<ChunkCode> codes;
    codes.resize(numChunks);
    uint8_t const* raw = m_raw.data();
    size_t total = 0;
    for (size_t k = 0; k < numChunks; ++k) {
        codes[k] = Classify(raw + k * chunkSize, chunkSize);
        total += EncodeChunk<false>(raw + k * chunkSize, chunkSize, codes[k], nullptr);
    }
    ByteVector packed(total);
    uint8_t* out = packed.data();
    for (size_t k = 0; k < numChunks; ++k)
        out += EncodeChunk<true>(raw + k * chunkSize, chunkSize, codes[k], out);
    m_packed.swap(packed);
    ByteVector().swap(m_raw);
}

void TezPackedBlock::Decode(uint8_t* destination) const
{
    uint8_t const* in = m_packed.data();
    uint8_t const* const end = in + m_packed.size();
    size_t const chunkSize = static_cast<size_t>(m_chunkSize);
    for (int32_t k = 0; k < m_numChunks; ++k) {
        uint8_t* out = destination + size_t(k) * chunkSize;
        if (in >= end)
            Damaged("ends early");
        uint8_t const tag = *in++;
        switch (tag) {
        case kZeros:
        case kOnes:
            std::memset(out, tag, chunkSize);
            break;
        case kConstant:
            if (in >= end)
                Damaged("ends early");
            std::memset(out, *in++, chunkSize);
            break;
        case kRuns1:
        case kRuns2:
        case kRuns3:
        case kBasedRuns1:
        case kBasedRuns2:
        case kBasedRuns3: {
            uint8_t base = 0;
            if (tag >= kBasedRuns1) {
                if (in >= end)
                    Damaged("ends early");
                base = *in++;
            }
            int const lengthBits = 8 - ValueBits(tag);
            uint8_t const mask = static_cast<uint8_t>((1 << lengthBits) - 1);
            size_t filled = 0;
            while (filled < chunkSize) {
                if (in >= end)
                    Damaged("ends early");
                uint8_t const run = *in++;
                size_t const length = size_t(run & mask) + 1;
                if (length > chunkSize - filled)
                    Damaged("run past the chunk");
                FillRun(out + filled, chunkSize - filled, static_cast<uint8_t>(base + (run >> lengthBits)), length);
                filled += length;
            }
            break;
        }
        case kGroups: {
            size_t filled = 0;
            while (filled < chunkSize) {
                if (in >= end)
                    Damaged("ends early");
                uint8_t const control = *in++;
                size_t const length = size_t(control & 127) + 1;
                if (length > chunkSize - filled)
                    Damaged("group past the chunk");
                if (control & 0x80) {
                    if (in >= end)
                        Damaged("ends early");
                    FillRun(out + filled, chunkSize - filled, *in++, length);
                } else {
                    size_t const available = size_t(end - in);
                    if (length > available)
                        Damaged("ends early");
                    if (length <= 16 && available >= 16 && chunkSize - filled >= 16)
                        std::memcpy(out + filled, in, 16); // the bytes past length are written again later
                    else
                        std::memcpy(out + filled, in, length);
                    in += length;
                }
                filled += length;
            }
            break;
        }
        default:
            Damaged("unknown tag");
        }
    }
    if (in != end)
        Damaged("bytes after the last chunk");
}

void TezPackedBlock::Unpack()
{
    if (m_packed.empty())
        return;
    FlagGuard guard(*this);
    if (m_packed.empty())
        return;
    ByteVector raw(GetUnpackedSizeBytes());
    Decode(raw.data());
    m_raw.swap(raw);
    ByteVector().swap(m_packed);
    if (!IsMaxValueValid())
        ScanMax();
}

void TezPackedBlock::ScanMax()
{
    uint8_t best = 0;
    for (uint8_t value : m_raw)
        best = std::max(best, value);
    m_maxValue = best;
    m_maxIndex = 0;
    if (best > 0)
        m_maxIndex = static_cast<uint32_t>(static_cast<uint8_t const*>(std::memchr(m_raw.data(), best, m_raw.size())) -
                                           m_raw.data());
}

void TezPackedBlock::UpdateMaxValue()
{
    Unpack();
    ScanMax();
}

TezPackedBlock::ByteVector& TezPackedBlock::Get()
{
    Unpack();
    return m_raw;
}

uint8_t* TezPackedBlock::GetRawData()
{
    Unpack();
    return m_raw.data();
}

TezPackedBlock::ByteVector const& TezPackedBlock::GetPacked()
{
    Pack();
    return m_packed;
}

uint8_t const* TezPackedBlock::GetRawPackedData()
{
    Pack();
    return m_packed.data();
}

uint64_t TezPackedBlock::GetPackedSizeBytes()
{
    Pack();
    return m_packed.size();
}

void TezPackedBlock::CopyData(void* destination)
{
    {
        FlagGuard guard(*this);
        if (!m_packed.empty()) {
            Decode(static_cast<uint8_t*>(destination));
            return;
        }
        if (!m_raw.empty())
            std::memcpy(destination, m_raw.data(), m_raw.size());
    }
    Pack();
}

uint64_t TezPackedBlock::Position(int chunk, int index) const
{
    if (chunk < 0 || index < 0)
        throw std::runtime_error("TezPackedBlock: negative position " + std::to_string(chunk) + ", " +
                                 std::to_string(index));
    if (m_inverted)
        return uint64_t(index) * uint64_t(m_chunkSize) + uint64_t(chunk);
    return uint64_t(index) + uint64_t(m_chunkSize) * uint64_t(chunk);
}

namespace {

void CheckIndex(uint64_t index, size_t size)
{
    if (index >= size)
        throw std::runtime_error("TezPackedBlock: index " + std::to_string(index) + " outside a block of " +
                                 std::to_string(size) + " bytes");
}

} // namespace

uint8_t TezPackedBlock::GetValue(uint64_t index)
{
    if (m_raw.empty())
        Unpack();
    CheckIndex(index, m_raw.size());
    return m_raw[index];
}

uint8_t TezPackedBlock::GetValue(int chunk, int index)
{
    Unpack();
    uint64_t position = Position(chunk, index);
    CheckIndex(position, m_raw.size());
    return m_raw[position];
}

void TezPackedBlock::SetValue(uint64_t index, uint8_t value)
{
    Unpack();
    CheckIndex(index, m_raw.size());
    m_raw[index] = value;
    m_maxValue = value;
    m_maxIndex = 0;
}

void TezPackedBlock::SetValue(int chunk, int index, uint8_t value)
{
    Unpack();
    uint64_t position = Position(chunk, index);
    CheckIndex(position, m_raw.size());
    m_raw[position] = value;
    m_maxIndex = InvalidMaxIndex;
    m_maxValue = 0;
}

uint8_t TezPackedBlock::GetMaxValue()
{
    if (!IsMaxValueValid())
        UpdateMaxValue();
    return m_maxValue;
}

uint32_t TezPackedBlock::GetMaxIndex()
{
    if (!IsMaxValueValid())
        UpdateMaxValue();
    return m_maxIndex;
}

void TezPackedBlock::Resize(int numChunks, int chunkSize, uint8_t value)
{
    CheckShape(numChunks, chunkSize);
    Clear();
    m_numChunks = numChunks;
    m_chunkSize = chunkSize;
    m_raw.assign(GetUnpackedSizeBytes(), value);
    CheckInvert();
    UpdateMaxValue();
}

void TezPackedBlock::Set(ByteVector&& data)
{
    if (data.size() != GetUnpackedSizeBytes())
        return;
    ByteVector().swap(m_packed);
    m_raw = std::move(data);
    UpdateMaxValue();
}

void TezPackedBlock::SetPacked(void const* data, uint64_t size)
{
    ByteVector().swap(m_raw);
    auto const* bytes = static_cast<uint8_t const*>(data);
    if (size == 0)
        ByteVector().swap(m_packed);
    else
        m_packed.assign(bytes, bytes + size);
}

void TezPackedBlock::SetRaw(void const* data)
{
    ByteVector().swap(m_packed);
    auto const* bytes = static_cast<uint8_t const*>(data);
    m_raw.assign(bytes, bytes + GetUnpackedSizeBytes());
    UpdateMaxValue();
}

void TezPackedBlock::SetRaw(void const* data, uint8_t maxValue, uint32_t maxIndex)
{
    ByteVector().swap(m_packed);
    auto const* bytes = static_cast<uint8_t const*>(data);
    m_raw.assign(bytes, bytes + GetUnpackedSizeBytes());
    m_maxValue = maxValue;
    m_maxIndex = maxIndex;
}
