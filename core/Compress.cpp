#include "core/Compress.h"

#include "core/CompressInflater.h"
#include "core/detail/CompressEngine.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

constexpr size_t kUnknownFrameSize = std::numeric_limits<size_t>::max();

struct FrameLayout
{
    unsigned width; // bytes per size field
    unsigned parts;
    size_t header; // 1 + parts * width
};

FrameLayout LayoutFor(size_t size)
{
    if (size < 0x10000)
        return {2, 2, 5};
    if (size < 0x40000)
        return {4, 4, 17};
    if (uint64_t(size) <= 0xFFFFFFFFull)
        return {4, 8, 33};
    return {8, 8, 65};
}

bool IsValidCount(unsigned v) { return v == 2 || v == 4 || v == 8; }

void PutLittleEndian(uint8_t* p, uint64_t v, unsigned width)
{
    for (unsigned i = 0; i < width; ++i)
        p[i] = uint8_t(v >> (8 * i));
}

uint64_t GetLittleEndian(const uint8_t* p, unsigned width)
{
    uint64_t v = 0;
    for (unsigned i = 0; i < width; ++i)
        v |= uint64_t(p[i]) << (8 * i);
    return v;
}

[[noreturn]] void Fail(const char* operation, const std::string& what)
{
    throw std::runtime_error(std::string("TezCompress::") + operation + ": " + what);
}

std::string Hex(unsigned byte)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", byte & 0xFFu);
    return text;
}

// The first `size` bytes of the zlib stream of src: what a deflater writing
// straight into a stretch of that size leaves there when the stream does
// not fit.
void WriteTruncatedStream(int level, const uint8_t* src, size_t size, uint8_t* dst)
{
    if (size == 0)
        return;
    std::vector<uint8_t> whole(Compression::detail::DeflateRawBound(size) + 6);
    const size_t n = Compression::detail::DeflateZlib(level, src, size, whole.data(), whole.size());
    std::memcpy(dst, whole.data(), std::min(n, size));
}

template <typename Vector>
void CompressFrame(const void* source, size_t size, Vector& output, int level, bool rawWhenNoGain)
{
    const int resolved = Compression::detail::ResolveLevel(level);
    const FrameLayout layout = LayoutFor(size);
    const size_t partSize = size / layout.parts;
    const auto* src = static_cast<const uint8_t*>(source);

    output.resize(size + layout.header);
    uint8_t* base = output.data();
    base[0] = uint8_t(layout.width * 16 + layout.parts);

    // Each part compresses straight into its own stretch of the output, which
    // is as long as the part's source, so a stream can never spill into the
    // next part; the stretches are then moved together once.
    std::array<size_t, 8> lengths{};
    tbb::parallel_for(
        tbb::blocked_range<unsigned>(0, layout.parts, 1),
        [&](const tbb::blocked_range<unsigned>& range) {
            for (unsigned i = range.begin(); i != range.end(); ++i) {
                const size_t n = i + 1 == layout.parts ? size - partSize * (layout.parts - 1) : partSize;
                const uint8_t* in = src + size_t(i) * partSize;
                uint8_t* out = base + layout.header + size_t(i) * partSize;
                size_t length = Compression::detail::DeflateZlib(resolved, in, n, out, n);
                if (length == 0 || length == n) {
                    if (rawWhenNoGain) {
                        if (n)
                            std::memcpy(out, in, n);
                    } else if (length == 0) {
                        WriteTruncatedStream(resolved, in, n, out);
                    }
                    length = n;
                }
                lengths[i] = length;
            }
        },
        tbb::simple_partitioner());

    size_t at = layout.header;
    for (unsigned i = 0; i < layout.parts; ++i) {
        const size_t from = layout.header + size_t(i) * partSize;
        if (at != from && lengths[i])
            std::memmove(base + at, base + from, lengths[i]);
        PutLittleEndian(base + 1 + i * layout.width, lengths[i], layout.width);
        at += lengths[i];
    }
    output.resize(at);
}

void ExpandPart(const uint8_t* in, size_t length, uint8_t* out, size_t size, unsigned index)
{
    if (length == size) {
        if (size)
            std::memcpy(out, in, size);
        return;
    }
    size_t written = 0;
    if (Compression::detail::InflateZlib(in, length, out, size, written) == Compression::detail::FastInflate::Done)
        return;
    // The fast engine only says that something is off. The streaming inflater
    // reads the part again as one inflate call of the part's size: it names
    // the fault, or fills exactly the part where the stream runs longer.
    Compression::Inflater inflater;
    inflater.SetInput(in, 0, std::ptrdiff_t(length));
    const std::ptrdiff_t got = inflater.Inflate(out, 0, std::ptrdiff_t(size));
    if (size_t(got) < size && !inflater.IsFinished()) {
        if (inflater.IsNeedingDictionary())
            Fail("Uncompress", "part " + std::to_string(index) + " asks for a preset dictionary");
        Fail("Uncompress", "part " + std::to_string(index) + " of " + std::to_string(length) +
                               " bytes ends inside its stream after " + std::to_string(got) + " of " +
                               std::to_string(size) + " bytes");
    }
}

void UncompressFrame(const uint8_t* frame, size_t frameSize, void* destination, size_t size)
{
    if (!frame || frameSize == 0)
        Fail("Uncompress", "empty frame");
    const unsigned width = frame[0] >> 4, parts = frame[0] & 15u;
    if (!IsValidCount(width) || !IsValidCount(parts))
        Fail("Uncompress", "bad frame header byte " + Hex(frame[0]));
    const size_t header = 1 + size_t(parts) * width;
    if (frameSize != kUnknownFrameSize && frameSize < header)
        Fail("Uncompress", "frame of " + std::to_string(frameSize) + " bytes is shorter than its " +
                               std::to_string(header) + "-byte header");

    std::array<uint64_t, 8> lengths{};
    std::array<size_t, 8> offsets{};
    uint64_t total = header;
    for (unsigned i = 0; i < parts; ++i) {
        lengths[i] = GetLittleEndian(frame + 1 + i * width, width);
        offsets[i] = size_t(total);
        if (lengths[i] > std::numeric_limits<size_t>::max() - total)
            Fail("Uncompress", "part lengths overflow: part " + std::to_string(i) + " claims " +
                                   std::to_string(lengths[i]) + " bytes");
        total += lengths[i];
    }
    if (frameSize != kUnknownFrameSize && total != frameSize)
        Fail("Uncompress", "header and part lengths add up to " + std::to_string(total) + " bytes, the frame holds " +
                               std::to_string(frameSize));

    auto* out = static_cast<uint8_t*>(destination);
    const size_t partSize = size / parts;
    tbb::parallel_for(
        tbb::blocked_range<unsigned>(0, parts, 1),
        [&](const tbb::blocked_range<unsigned>& range) {
            for (unsigned i = range.begin(); i != range.end(); ++i) {
                const size_t n = i + 1 == parts ? size - partSize * (parts - 1) : partSize;
                ExpandPart(frame + offsets[i], size_t(lengths[i]), out + size_t(i) * partSize, n, i);
            }
        },
        tbb::simple_partitioner());
}

} // namespace

void TezCompress::Compress(const void* source, size_t size, ByteVector& output, int level)
{
    CompressFrame(source, size, output, level, true);
}

void TezCompress::Compress(const void* source, size_t size, AlignedByteVector& output, int level)
{
    CompressFrame(source, size, output, level, false);
}

size_t TezCompress::GetCompressedSize(const uint8_t* frame)
{
    const unsigned width = frame[0] >> 4, parts = frame[0] & 15u;
    if (parts == 0)
        return 0;
    if (!IsValidCount(width) || !IsValidCount(parts))
        Fail("GetCompressedSize", "bad frame header byte " + Hex(frame[0]));
    uint64_t sum = 0;
    for (unsigned i = 0; i < parts; ++i)
        sum += GetLittleEndian(frame + 1 + i * width, width);
    return size_t(sum);
}

size_t TezCompress::GetHeaderSize(size_t size) { return LayoutFor(size).header; }

void TezCompress::Uncompress(const uint8_t* frame, size_t frameSize, void* destination, size_t size)
{
    UncompressFrame(frame, frameSize, destination, size);
}

void TezCompress::Uncompress(const uint8_t* frame, void* destination, size_t size)
{
    UncompressFrame(frame, kUnknownFrameSize, destination, size);
}
