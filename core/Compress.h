#pragma once
// TezCompress: compresses and expands whole buffers of any size through a
// small frame of independent zlib streams, 2, 4 or 8 of them, made and read
// in parallel.
//
// Frame, integers little-endian: one header byte (high nibble W, the width
// of a size field: 2, 4 or 8; low nibble P, the part count: 2, 4 or 8), then
// P part lengths of W bytes each, then the parts end to end. W and P follow
// from the uncompressed size S (below 65,536: 2 and 2; below 262,144: 4 and
// 4; up to 2^32 - 1: 4 and 8; above: 8 and 8). Parts 0 to P-2 hold S / P
// bytes of the source, the last one the rest. A part whose stored length
// equals its uncompressed length is raw bytes; any other is a zlib stream.
// S itself is not in the frame: the reader must know it.
//
// Compress into a std::vector stores a part that does not shrink as raw
// bytes. The cache-aligned overload deliberately leaves such a part as the
// deflater's truncated output; the pools never hand it such data, and its
// frames stay byte-compatible with what they always were.
//
// Levels run from -1 (meaning 6) to 9; anything else throws
// std::runtime_error("Argument out of range: level") before the output is
// touched. Uncompress throws std::runtime_error on a stream error (the texts
// of CompressErrors.h) and, naming the operation and the value, on a frame
// whose header byte is not one we write, whose part lengths do not add up to
// the frame size given, or whose part stream ends before its data does. A
// part whose stream ends short of the part's length leaves the rest of that
// stretch of the destination unfilled, with unspecified content; that is what
// a wrong S looks like. Every part is independent: the calls are re-entrant.

#include "platform/Api.h"

#include <tbb/cache_aligned_allocator.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class TEZ_API TezCompress
{
public:
    using ByteVector = std::vector<uint8_t>;
    using AlignedByteVector = std::vector<uint8_t, tbb::cache_aligned_allocator<uint8_t>>;

    static void Compress(const void* source, size_t size, ByteVector& output, int level);
    static void Compress(const void* source, size_t size, AlignedByteVector& output, int level);

    // Sum of the part lengths, header not included; 0 when the part count is 0.
    static size_t GetCompressedSize(const uint8_t* frame);

    // Header length (1 + P * W) of the frame for an uncompressed size.
    static size_t GetHeaderSize(size_t size);

    // Expands a frame of frameSize bytes into size bytes at destination.
    static void Uncompress(const uint8_t* frame, size_t frameSize, void* destination, size_t size);
    static void Uncompress(const ByteVector& frame, void* destination, size_t size)
    {
        Uncompress(frame.data(), frame.size(), destination, size);
    }
    static void Uncompress(const AlignedByteVector& frame, void* destination, size_t size)
    {
        Uncompress(frame.data(), frame.size(), destination, size);
    }
    // The same where the caller vouches for the frame's extent: it reads the
    // header and exactly the bytes the part lengths name.
    static void Uncompress(const uint8_t* frame, void* destination, size_t size);
};
