#pragma once
// The deflate engine under the Compression namespace: whole-buffer zlib and
// raw DEFLATE over libdeflate, with one compressor per level and one
// decompressor kept per thread so small buffers do not pay for allocation.

#include <cstddef>
#include <cstdint>

namespace Compression {
namespace detail {

// Level after the default (-1) is resolved; throws for levels outside -1..9.
int ResolveLevel(int level);

// The two zlib header bytes for a level: CMF 0x78, FLEVEL (level - 1) / 2
// capped at 3, FDICT when a preset dictionary follows, and FCHECK.
void WriteZlibHeader(uint8_t* out, int level, bool withDictionary);

// Raw DEFLATE of src into dst; 0 when the result does not fit in capacity.
size_t DeflateRaw(int level, const uint8_t* src, size_t size, uint8_t* dst, size_t capacity);

// Worst-case raw DEFLATE size of size bytes at any level.
size_t DeflateRawBound(size_t size);

// A whole zlib stream (header, raw DEFLATE, big-endian Adler-32) of src;
// 0 when it does not fit in capacity.
size_t DeflateZlib(int level, const uint8_t* src, size_t size, uint8_t* dst, size_t capacity);

enum class FastInflate { Done, Failed };

// Expands a zlib stream into at most capacity bytes. Done when the stream is
// valid, its checksum matches and it fits; written holds its length then.
// Anything else is Failed, with dst's content unspecified: the caller falls
// back to the streaming inflater, which tells what went wrong.
FastInflate InflateZlib(const uint8_t* src, size_t size, uint8_t* dst, size_t capacity, size_t& written);

} // namespace detail
} // namespace Compression
