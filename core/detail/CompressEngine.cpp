#include "core/detail/CompressEngine.h"

#include "core/CompressErrors.h"

#include <libdeflate.h>

#include <array>
#include <memory>
#include <new>
#include <stdexcept>

namespace Compression {
namespace detail {

namespace {

struct CompressorDeleter
{
    void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
};
struct DecompressorDeleter
{
    void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};

// TBB workers live as long as the process, so keeping the engine objects per
// thread lets the many small blocks of the pools reuse them.
libdeflate_compressor* Compressor(int level)
{
    thread_local std::array<std::unique_ptr<libdeflate_compressor, CompressorDeleter>, 10> cache;
    auto& slot = cache[size_t(level)];
    if (!slot) {
        slot.reset(libdeflate_alloc_compressor(level));
        if (!slot)
            throw std::bad_alloc();
    }
    return slot.get();
}

libdeflate_decompressor* Decompressor()
{
    thread_local std::unique_ptr<libdeflate_decompressor, DecompressorDeleter> cache;
    if (!cache) {
        cache.reset(libdeflate_alloc_decompressor());
        if (!cache)
            throw std::bad_alloc();
    }
    return cache.get();
}

void PutBigEndian32(uint8_t* out, uint32_t v)
{
    out[0] = uint8_t(v >> 24);
    out[1] = uint8_t(v >> 16);
    out[2] = uint8_t(v >> 8);
    out[3] = uint8_t(v);
}

} // namespace

int ResolveLevel(int level)
{
    if (level == -1)
        return 6;
    if (level < 0 || level > 9)
        throw std::runtime_error(Messages::kBadLevel);
    return level;
}

void WriteZlibHeader(uint8_t* out, int level, bool withDictionary)
{
    int levelFlags = (level - 1) / 2;
    if (levelFlags < 0)
        levelFlags = 0;
    if (levelFlags > 3)
        levelFlags = 3;
    unsigned header = (0x78u << 8) | unsigned(levelFlags << 6);
    if (withDictionary)
        header |= 0x20;
    header += (31 - header % 31) % 31; // FCHECK
    out[0] = uint8_t(header >> 8);
    out[1] = uint8_t(header);
}

size_t DeflateRaw(int level, const uint8_t* src, size_t size, uint8_t* dst, size_t capacity)
{
    if (capacity == 0)
        return 0;
    return libdeflate_deflate_compress(Compressor(level), src, size, dst, capacity);
}

size_t DeflateRawBound(size_t size) { return libdeflate_deflate_compress_bound(nullptr, size); }

size_t DeflateZlib(int level, const uint8_t* src, size_t size, uint8_t* dst, size_t capacity)
{
    if (capacity < 2 + 4 + 1)
        return 0;
    WriteZlibHeader(dst, level, false);
    const size_t body = DeflateRaw(level, src, size, dst + 2, capacity - 6);
    if (body == 0)
        return 0;
    PutBigEndian32(dst + 2 + body, libdeflate_adler32(1, src, size));
    return body + 6;
}

FastInflate InflateZlib(const uint8_t* src, size_t size, uint8_t* dst, size_t capacity, size_t& written)
{
    size_t in = 0;
    written = 0;
    const libdeflate_result r = libdeflate_zlib_decompress_ex(Decompressor(), src, size, dst, capacity, &in, &written);
    return r == LIBDEFLATE_SUCCESS ? FastInflate::Done : FastInflate::Failed;
}

} // namespace detail
} // namespace Compression
