#pragma once
// The pieces of the streaming inflater: a bit reader over the caller's
// input, the 32 KiB output window, canonical Huffman tables and the reader
// of a dynamic block's code lengths. Each stops cleanly where the input
// ends and picks up from there once more arrives.

#include "core/CompressErrors.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace Compression {
namespace detail {

// Reads bits least significant first, as DEFLATE packs them.
class BitReader
{
public:
    void Reset()
    {
        m_buffer = nullptr;
        m_pos = m_end = 0;
        m_bits = 0;
        m_count = 0;
    }
    void SetInput(const uint8_t* buffer, size_t count)
    {
        if (m_pos < m_end)
            throw std::runtime_error(Messages::kOldInputPending);
        m_buffer = buffer;
        m_pos = 0;
        m_end = count;
    }
    // The next n bits (n up to 16), or -1 when the input holds fewer.
    int PeekBits(int n)
    {
        if (n < 0 || n > 16)
            throw std::runtime_error(Messages::kBitsBadLength);
        while (m_count < n) {
            if (m_pos == m_end)
                return -1;
            m_bits |= uint32_t(m_buffer[m_pos++]) << m_count;
            m_count += 8;
        }
        return int(m_bits & ((1u << n) - 1));
    }
    void DropBits(int n)
    {
        m_bits >>= n;
        m_count -= n;
    }
    int GetBits(int n)
    {
        const int v = PeekBits(n);
        if (v >= 0)
            DropBits(n);
        return v;
    }
    int GetAvailableBits() const { return m_count; }
    size_t GetAvailableBytes() const { return m_end - m_pos + size_t(m_count >> 3); }
    void SkipToByteBoundary() { DropBits(m_count & 7); }
    bool IsNeedingInput() const { return m_pos == m_end; }
    // Copies up to length whole bytes; the reader must be byte aligned.
    size_t CopyBytes(uint8_t* out, size_t length)
    {
        if (m_count & 7)
            throw std::runtime_error(Messages::kBitsNotAligned);
        size_t n = 0;
        while (m_count > 0 && n < length) {
            out[n++] = uint8_t(m_bits);
            DropBits(8);
        }
        const size_t take = std::min(length - n, m_end - m_pos);
        if (take) {
            std::memcpy(out + n, m_buffer + m_pos, take);
            m_pos += take;
        }
        return n + take;
    }

private:
    const uint8_t* m_buffer = nullptr;
    size_t m_pos = 0, m_end = 0;
    uint32_t m_bits = 0;
    int m_count = 0;
};

// The last 32 KiB of output, of which the newest GetAvailable() bytes have
// not been handed out yet.
class OutputWindow
{
public:
    static constexpr int kSize = 1 << 15;
    static constexpr int kMask = kSize - 1;

    void Reset()
    {
        m_end = m_filled = 0;
        m_history = 0;
    }
    void Write(int value)
    {
        if (m_filled++ == kSize)
            throw std::runtime_error(Messages::kWindowFullWrite);
        m_window[size_t(m_end++)] = uint8_t(value);
        m_end &= kMask;
        if (m_history < kSize)
            ++m_history;
    }
    // Copies length bytes from distance back; a distance before the start of
    // the output is corrupt data.
    void Repeat(int length, int distance)
    {
        if (distance > m_history)
            throw std::runtime_error(Messages::kDecodeUnknownMode);
        if ((m_filled += length) > kSize)
            throw std::runtime_error(Messages::kWindowFullRepeat);
        int from = (m_end - distance) & kMask;
        const int border = kSize - length;
        if (from <= border && m_end < border && length <= distance) {
            std::memmove(&m_window[size_t(m_end)], &m_window[size_t(from)], size_t(length));
            m_end += length;
        } else if (from <= border && m_end < border) {
            // Overlapping copy: a short distance repeats the bytes just written.
            for (int i = 0; i < length; ++i)
                m_window[size_t(m_end++)] = m_window[size_t(from++)];
        } else {
            for (int i = 0; i < length; ++i) {
                m_window[size_t(m_end++)] = m_window[size_t(from++)];
                m_end &= kMask;
                from &= kMask;
            }
        }
        m_history = std::min(kSize, m_history + length);
    }
    // Stored bytes straight from the input; how many fitted.
    size_t CopyStored(BitReader& input, size_t length)
    {
        length = std::min({length, size_t(kSize - m_filled), input.GetAvailableBytes()});
        size_t copied = 0;
        while (copied < length) {
            const size_t run = std::min(length - copied, size_t(kSize - m_end));
            const size_t got = input.CopyBytes(&m_window[size_t(m_end)], run);
            m_end = (m_end + int(got)) & kMask;
            copied += got;
            if (got < run)
                break;
        }
        m_filled += int(copied);
        m_history = int(std::min<size_t>(kSize, size_t(m_history) + copied));
        return copied;
    }
    void CopyDictionary(const uint8_t* dictionary, size_t length)
    {
        if (!dictionary && length)
            throw std::runtime_error(Messages::kWindowNullDictionary);
        if (m_filled > 0)
            throw std::runtime_error(Messages::kDictionaryTooLate);
        if (length > size_t(kSize)) {
            dictionary += length - kSize;
            length = kSize;
        }
        if (length)
            std::memcpy(m_window.data(), dictionary, length);
        m_end = int(length) & kMask;
        m_history = int(length);
    }
    int GetFreeSpace() const { return kSize - m_filled; }
    int GetAvailable() const { return m_filled; }
    // Hands out up to length of the waiting bytes, oldest first.
    size_t CopyOutput(uint8_t* out, size_t length)
    {
        length = std::min(length, size_t(m_filled));
        size_t from = size_t((m_end - m_filled) & kMask);
        const size_t first = std::min(length, size_t(kSize) - from);
        std::memcpy(out, &m_window[from], first);
        if (length > first)
            std::memcpy(out + first, m_window.data(), length - first);
        m_filled -= int(length);
        return length;
    }
    // Calls f(pointer, count) over the waiting bytes, oldest first.
    template <typename F>
    void VisitAvailable(F&& f) const
    {
        const size_t from = size_t((m_end - m_filled) & kMask);
        const size_t first = std::min(size_t(m_filled), size_t(kSize) - from);
        if (first)
            f(&m_window[from], first);
        if (size_t(m_filled) > first)
            f(m_window.data(), size_t(m_filled) - first);
    }

private:
    std::array<uint8_t, kSize> m_window{};
    int m_end = 0, m_filled = 0;
    int m_history = 0; // bytes a distance may reach back over, at most kSize
};

// Canonical Huffman decoding through one table indexed by the next
// maxLength input bits; an entry holds symbol << 4 | code length, 0 where no
// code lands.
class InflaterHuffmanTree
{
public:
    InflaterHuffmanTree() = default;
    InflaterHuffmanTree(const uint8_t* lengths, int count) { Build(lengths, count); }

    void Build(const uint8_t* lengths, int count)
    {
        int perLength[16] = {};
        m_maxLength = 0;
        for (int i = 0; i < count; ++i) {
            ++perLength[lengths[i]];
            m_maxLength = std::max<int>(m_maxLength, lengths[i]);
        }
        perLength[0] = 0;
        int left = 1;
        for (int len = 1; len <= 15; ++len) {
            left = (left << 1) - perLength[len];
            if (left < 0)
                throw std::runtime_error(Messages::kDecodeUnknownMode); // over-full code
        }
        int next[16] = {};
        for (int len = 1, code = 0; len <= 15; ++len) {
            code = (code + perLength[len - 1]) << 1;
            next[len] = code;
        }
        m_table.assign(size_t(1) << m_maxLength, 0);
        const size_t size = m_table.size();
        for (int symbol = 0; symbol < count; ++symbol) {
            const int len = lengths[symbol];
            if (!len)
                continue;
            const unsigned code = unsigned(next[len]++);
            unsigned reversed = 0;
            for (int b = 0; b < len; ++b)
                reversed |= ((code >> b) & 1u) << (len - 1 - b);
            const uint16_t entry = uint16_t((symbol << 4) | len);
            for (size_t k = reversed; k < size; k += size_t(1) << len)
                m_table[k] = entry;
        }
    }

    // The next symbol, or -1 when the input ends before its code does.
    int GetSymbol(BitReader& input) const
    {
        int bits = input.PeekBits(m_maxLength);
        if (bits >= 0) {
            const uint16_t e = m_table[size_t(bits)];
            if (!e)
                throw std::runtime_error(Messages::kDecodeUnknownMode);
            input.DropBits(e & 15);
            return e >> 4;
        }
        // Near the end of the input a shorter code may still be complete.
        const int have = input.GetAvailableBits();
        bits = input.PeekBits(have);
        const uint16_t e = m_table[size_t(bits)];
        if (e && (e & 15) <= have) {
            input.DropBits(e & 15);
            return e >> 4;
        }
        return -1;
    }

private:
    std::vector<uint16_t> m_table;
    int m_maxLength = 0;
};

// Reads the code lengths that open a dynamic block.
class InflaterDynHeader
{
public:
    void Reset() { m_stage = Stage::LiteralCount; }

    // True once the whole header is read; false when input ran out first.
    bool Decode(BitReader& input)
    {
        static constexpr uint8_t kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
        for (;;) {
            switch (m_stage) {
            case Stage::LiteralCount: {
                const int v = input.GetBits(5);
                if (v < 0)
                    return false;
                m_literalCount = v + 257;
                m_stage = Stage::DistanceCount;
                break;
            }
            case Stage::DistanceCount: {
                const int v = input.GetBits(5);
                if (v < 0)
                    return false;
                m_distanceCount = v + 1;
                m_stage = Stage::CodeLengthCount;
                break;
            }
            case Stage::CodeLengthCount: {
                const int v = input.GetBits(4);
                if (v < 0)
                    return false;
                m_codeLengthCount = v + 4;
                m_ptr = 0;
                std::fill(std::begin(m_codeLengthLengths), std::end(m_codeLengthLengths), 0);
                m_stage = Stage::CodeLengthLengths;
                break;
            }
            case Stage::CodeLengthLengths:
                while (m_ptr < m_codeLengthCount) {
                    const int v = input.GetBits(3);
                    if (v < 0)
                        return false;
                    m_codeLengthLengths[kOrder[m_ptr++]] = uint8_t(v);
                }
                m_codeLengthTree.Build(m_codeLengthLengths, 19);
                m_ptr = 0;
                m_stage = Stage::Lengths;
                break;
            case Stage::Lengths:
                while (m_ptr < m_literalCount + m_distanceCount) {
                    const int symbol = m_codeLengthTree.GetSymbol(input);
                    if (symbol < 0)
                        return false;
                    if (symbol < 16) {
                        m_lengths[m_ptr++] = uint8_t(symbol);
                        continue;
                    }
                    if (symbol == 16 && m_ptr == 0)
                        throw std::runtime_error(Messages::kRepeatWithoutPrevious);
                    m_repeatSymbol = symbol;
                    m_stage = Stage::Repeat;
                    break;
                }
                if (m_stage == Stage::Lengths)
                    return true;
                break;
            case Stage::Repeat: {
                static constexpr int kExtra[3] = {2, 3, 7}, kBase[3] = {3, 3, 11};
                const int which = m_repeatSymbol - 16;
                const int v = input.GetBits(kExtra[which]);
                if (v < 0)
                    return false;
                const int count = kBase[which] + v;
                if (m_ptr + count > m_literalCount + m_distanceCount)
                    throw std::runtime_error(Messages::kRepeatTooLong);
                const uint8_t value = which == 0 ? m_lengths[m_ptr - 1] : 0;
                std::fill(m_lengths + m_ptr, m_lengths + m_ptr + count, value);
                m_ptr += count;
                m_stage = Stage::Lengths;
                break;
            }
            }
        }
    }

    void BuildTrees(InflaterHuffmanTree& literals, InflaterHuffmanTree& distances) const
    {
        literals.Build(m_lengths, m_literalCount);
        distances.Build(m_lengths + m_literalCount, m_distanceCount);
    }

private:
    enum class Stage { LiteralCount, DistanceCount, CodeLengthCount, CodeLengthLengths, Lengths, Repeat };
    Stage m_stage = Stage::LiteralCount;
    int m_literalCount = 0, m_distanceCount = 0, m_codeLengthCount = 0;
    int m_ptr = 0, m_repeatSymbol = 0;
    uint8_t m_codeLengthLengths[19] = {};
    uint8_t m_lengths[288 + 32] = {};
    InflaterHuffmanTree m_codeLengthTree;
};

} // namespace detail
} // namespace Compression
