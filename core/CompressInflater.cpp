#include "core/CompressInflater.h"

#include "core/CompressChecksum.h"
#include "core/CompressErrors.h"
#include "core/detail/InflaterParts.h"

#include <climits>
#include <memory>
#include <stdexcept>

namespace Compression {

namespace {

enum Mode {
    kDecodeHeader,
    kDecodeDict,
    kDecodeBlocks,
    kDecodeStoredLen1,
    kDecodeStoredLen2,
    kDecodeStored,
    kDecodeDynHeader,
    kDecodeHuffman,
    kDecodeHuffmanLenBits,
    kDecodeHuffmanDist,
    kDecodeHuffmanDistBits,
    kDecodeChecksum,
    kFinished
};

constexpr int kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                 31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr int kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                  2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr int kDistanceBase[30] = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                   33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                   1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr int kDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                    6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
constexpr int kMaxMatch = 258;

using TreeRef = std::shared_ptr<const detail::InflaterHuffmanTree>;

// The fixed codes of block type 1, made once and shared by every inflater.
// The distance code keeps all 32 symbols so that 30 and 31 decode, and are
// then refused as out of range.
const TreeRef& FixedLiteralTree()
{
    static const TreeRef tree = [] {
        uint8_t lengths[288];
        for (int i = 0; i < 288; ++i)
            lengths[i] = i < 144 ? 8 : i < 256 ? 9 : i < 280 ? 7 : 8;
        return std::make_shared<const detail::InflaterHuffmanTree>(lengths, 288);
    }();
    return tree;
}

const TreeRef& FixedDistanceTree()
{
    static const TreeRef tree = [] {
        uint8_t lengths[32];
        std::fill(lengths, lengths + 32, uint8_t(5));
        return std::make_shared<const detail::InflaterHuffmanTree>(lengths, 32);
    }();
    return tree;
}

} // namespace

struct Inflater::State
{
    explicit State(bool noHeader) : noHeader(noHeader) {}

    bool noHeader;
    int mode = kDecodeHeader;
    uint32_t readAdler = 0;
    int neededBits = 0;
    int repLength = 0;
    int repDistance = 0;
    size_t storedLeft = 0;
    bool isLastBlock = false;
    int64_t totalIn = 0;
    int64_t totalOut = 0;
    Adler32 adler;
    detail::BitReader input;
    detail::OutputWindow window;
    detail::InflaterDynHeader dynHeader;
    TreeRef literals, distances;

    void Reset()
    {
        mode = noHeader ? kDecodeBlocks : kDecodeHeader;
        readAdler = 0;
        neededBits = 0;
        repLength = repDistance = 0;
        storedLeft = 0;
        isLastBlock = false;
        totalIn = totalOut = 0;
        adler.Reset();
        input.Reset();
        window.Reset();
        dynHeader.Reset();
        literals.reset();
        distances.reset();
    }

    bool DecodeHeader()
    {
        int header = input.PeekBits(16);
        if (header < 0)
            return false;
        input.DropBits(16);
        header = ((header << 8) | (header >> 8)) & 0xFFFF; // CMF is the first byte
        if (header % 31 != 0)
            throw std::runtime_error(Messages::kHeaderChecksum);
        if ((header & 0x0F00) != (8 << 8))
            throw std::runtime_error(Messages::kUnknownMethod);
        if (header & 0x0020) {
            mode = kDecodeDict;
            neededBits = 32;
        } else {
            mode = kDecodeBlocks;
        }
        return true;
    }

    bool ReadBigEndian32()
    {
        while (neededBits > 0) {
            const int byte = input.GetBits(8);
            if (byte < 0)
                return false;
            readAdler = (readAdler << 8) | uint32_t(byte);
            neededBits -= 8;
        }
        return true;
    }

    bool DecodeDict()
    {
        ReadBigEndian32();
        return false; // waits for SetDictionary
    }

    bool DecodeChecksum()
    {
        if (!ReadBigEndian32())
            return false;
        // Output still waiting in the window belongs to the checksum too.
        Adler32 check = adler;
        window.VisitAvailable([&](const uint8_t* p, size_t n) { check.Update(p, 0, std::ptrdiff_t(n)); });
        if (check.GetValue() != readAdler)
            throw std::runtime_error(Messages::kAdlerMismatch);
        mode = kFinished;
        return false;
    }

    // After the last block comes the checksum at once, so that the output it
    // covers is held back until it has been checked.
    bool EndBlock()
    {
        if (!isLastBlock) {
            mode = kDecodeBlocks;
        } else if (noHeader) {
            mode = kFinished;
        } else {
            input.SkipToByteBoundary();
            neededBits = 32;
            readAdler = 0;
            mode = kDecodeChecksum;
        }
        return true;
    }

    bool DecodeHuffman()
    {
        int freeSpace = window.GetFreeSpace();
        while (freeSpace >= kMaxMatch) {
            switch (mode) {
            case kDecodeHuffman: {
                int symbol;
                for (;;) {
                    symbol = literals->GetSymbol(input);
                    if (symbol < 0)
                        return false;
                    if (symbol >= 256)
                        break;
                    window.Write(symbol);
                    if (--freeSpace < kMaxMatch)
                        return true;
                }
                if (symbol == 256) {
                    literals.reset();
                    distances.reset();
                    return EndBlock();
                }
                symbol -= 257;
                if (symbol >= 29)
                    throw std::runtime_error(Messages::kDecodeUnknownMode);
                repLength = kLengthBase[symbol];
                neededBits = kLengthExtra[symbol];
                mode = kDecodeHuffmanLenBits;
            }
                // fall through
            case kDecodeHuffmanLenBits:
                if (neededBits > 0) {
                    const int v = input.GetBits(neededBits);
                    if (v < 0)
                        return false;
                    repLength += v;
                }
                mode = kDecodeHuffmanDist;
                // fall through
            case kDecodeHuffmanDist: {
                const int symbol = distances->GetSymbol(input);
                if (symbol < 0)
                    return false;
                if (symbol >= 30)
                    throw std::runtime_error(Messages::kDecodeUnknownMode);
                repDistance = kDistanceBase[symbol];
                neededBits = kDistanceExtra[symbol];
                mode = kDecodeHuffmanDistBits;
            }
                // fall through
            case kDecodeHuffmanDistBits:
                if (neededBits > 0) {
                    const int v = input.GetBits(neededBits);
                    if (v < 0)
                        return false;
                    repDistance += v;
                }
                window.Repeat(repLength, repDistance);
                freeSpace -= repLength;
                mode = kDecodeHuffman;
                break;
            default:
                throw std::runtime_error(Messages::kInflaterUnknownMode);
            }
        }
        return true;
    }

    // One step of the stream; true while more can be done without new input.
    bool Decode()
    {
        switch (mode) {
        case kDecodeHeader:
            return DecodeHeader();
        case kDecodeDict:
            return DecodeDict();
        case kDecodeChecksum:
            return DecodeChecksum();
        case kDecodeBlocks: {
            const int type = input.GetBits(3);
            if (type < 0)
                return false;
            isLastBlock = (type & 1) != 0;
            switch (type >> 1) {
            case 0:
                input.SkipToByteBoundary();
                mode = kDecodeStoredLen1;
                break;
            case 1:
                literals = FixedLiteralTree();
                distances = FixedDistanceTree();
                mode = kDecodeHuffman;
                break;
            case 2:
                dynHeader.Reset();
                mode = kDecodeDynHeader;
                break;
            default:
                throw std::runtime_error(Messages::kUnknownBlockType);
            }
            return true;
        }
        case kDecodeStoredLen1: {
            const int v = input.GetBits(16);
            if (v < 0)
                return false;
            storedLeft = size_t(v);
            mode = kDecodeStoredLen2;
        }
            // fall through
        case kDecodeStoredLen2: {
            const int v = input.GetBits(16);
            if (v < 0)
                return false;
            if (size_t(v) != (storedLeft ^ 0xFFFF))
                throw std::runtime_error(Messages::kBrokenStoredBlock);
            mode = kDecodeStored;
        }
            // fall through
        case kDecodeStored: {
            storedLeft -= window.CopyStored(input, storedLeft);
            if (storedLeft == 0)
                return EndBlock();
            return !input.IsNeedingInput();
        }
        case kDecodeDynHeader: {
            if (!dynHeader.Decode(input))
                return false;
            // Fresh trees each block: a tree may still be shared with another
            // inflater only when it is one of the fixed ones.
            auto lit = std::make_shared<detail::InflaterHuffmanTree>();
            auto dist = std::make_shared<detail::InflaterHuffmanTree>();
            dynHeader.BuildTrees(*lit, *dist);
            literals = std::move(lit);
            distances = std::move(dist);
            mode = kDecodeHuffman;
        }
            // fall through
        case kDecodeHuffman:
        case kDecodeHuffmanLenBits:
        case kDecodeHuffmanDist:
        case kDecodeHuffmanDistBits:
            return DecodeHuffman();
        case kFinished:
            return false;
        default:
            throw std::runtime_error(Messages::kDecodeUnknownMode);
        }
    }
};

Inflater::Inflater() : Inflater(false) {}

Inflater::Inflater(bool noHeader) : m_state(std::make_unique<State>(noHeader)) { m_state->Reset(); }

Inflater::~Inflater() = default;

void Inflater::Reset() { m_state->Reset(); }

void Inflater::SetInput(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count)
{
    if (!buffer && count != 0)
        throw std::runtime_error(Messages::kEngineNullBuffer);
    if (offset < 0)
        throw std::runtime_error(Messages::kEngineBadOffset);
    if (count < 0)
        throw std::runtime_error(Messages::kEngineBadCount);
    m_state->input.SetInput(count ? buffer + offset : nullptr, size_t(count));
    m_state->totalIn += count;
}

std::ptrdiff_t Inflater::Inflate(uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count)
{
    if (count < 0)
        throw std::runtime_error(Messages::kInflateNegativeCount);
    if (offset < 0)
        throw std::runtime_error(Messages::kInflateNegativeOffset);
    if (!buffer && count != 0)
        throw std::runtime_error(Messages::kEngineNullBuffer);
    State& s = *m_state;
    if (count == 0) {
        if (!IsFinished())
            s.Decode();
        return 0;
    }
    std::ptrdiff_t copied = 0;
    do {
        // Nothing leaves the window while its checksum is still to be read.
        if (s.mode != kDecodeChecksum) {
            const size_t more = s.window.CopyOutput(buffer + offset, size_t(count));
            if (more > 0) {
                s.adler.Update(buffer, offset, std::ptrdiff_t(more));
                offset += std::ptrdiff_t(more);
                copied += std::ptrdiff_t(more);
                s.totalOut += std::ptrdiff_t(more);
                count -= std::ptrdiff_t(more);
                if (count == 0)
                    return copied;
            }
        }
    } while (s.Decode() || (s.window.GetAvailable() > 0 && s.mode != kDecodeChecksum));
    return copied;
}

void Inflater::SetDictionary(const uint8_t* buffer, std::ptrdiff_t index, std::ptrdiff_t count)
{
    if (!buffer)
        throw std::runtime_error(Messages::kDictNullBuffer);
    if (index < 0 || count < 0)
        throw std::runtime_error(Messages::kDictBadIndex);
    if (!IsNeedingDictionary())
        throw std::runtime_error(Messages::kDictNotNeeded);
    Adler32 check;
    check.Update(buffer, index, count);
    if (check.GetValue() != m_state->readAdler)
        throw std::runtime_error(Messages::kDictWrongAdler);
    m_state->adler.Reset();
    m_state->window.CopyDictionary(buffer + index, size_t(count));
    m_state->mode = kDecodeBlocks;
}

bool Inflater::IsNeedingInput() const { return m_state->input.IsNeedingInput(); }

bool Inflater::IsNeedingDictionary() const { return m_state->mode == kDecodeDict && m_state->neededBits == 0; }

bool Inflater::IsFinished() const { return m_state->mode == kFinished && m_state->window.GetAvailable() == 0; }

uint32_t Inflater::GetAdler() const { return IsNeedingDictionary() ? m_state->readAdler : m_state->adler.GetValue(); }

int64_t Inflater::GetTotalIn() const { return m_state->totalIn - int64_t(m_state->input.GetAvailableBytes()); }

int64_t Inflater::GetTotalOut() const { return m_state->totalOut; }

std::ptrdiff_t Inflater::GetRemainingInput() const { return std::ptrdiff_t(m_state->input.GetAvailableBytes()); }

} // namespace Compression
