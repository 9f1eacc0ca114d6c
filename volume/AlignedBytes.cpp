#include "volume/AlignedBytes.h"

#include <cstring>

#if defined(__SSE2__)
#    include <emmintrin.h>
#endif

namespace {

size_t Units(size_t bytes, size_t unit) { return bytes < unit ? 1 : bytes / unit; }

} // namespace

void TezZeroAlignedBytes(void* destination, size_t bytes) { TezSetAlignedBytes(destination, 0, bytes); }

void TezSetAlignedBytes(void* destination, uint8_t value, size_t bytes)
{
    size_t const units = Units(bytes, 16);
    auto* out = static_cast<uint8_t*>(destination);
#if defined(__SSE2__)
    __m128i const pattern = _mm_set1_epi8(static_cast<char>(value));
    for (size_t i = 0; i < units; ++i)
        _mm_store_si128(reinterpret_cast<__m128i*>(out + 16 * i), pattern);
#else
    std::memset(out, value, 16 * units);
#endif
}

void TezCopyAlignedBytes16(void const* source, void* destination, size_t bytes)
{
    size_t const units = Units(bytes, 16);
    auto const* in = static_cast<uint8_t const*>(source);
    auto* out = static_cast<uint8_t*>(destination);
#if defined(__SSE2__)
    for (size_t i = 0; i < units; ++i)
        _mm_store_si128(reinterpret_cast<__m128i*>(out + 16 * i),
                        _mm_load_si128(reinterpret_cast<__m128i const*>(in + 16 * i)));
#else
    std::memcpy(out, in, 16 * units);
#endif
}

void TezCopyAlignedBytes8(void const* source, void* destination, size_t bytes)
{
    std::memcpy(destination, source, 8 * Units(bytes, 8));
}

void TezCopyAlignedBytes4(void const* source, void* destination, size_t bytes)
{
    std::memcpy(destination, source, 4 * Units(bytes, 4));
}

void TezOrAlignedBytes(void const* source, void* destination, size_t bytes)
{
    size_t const units = Units(bytes, 16);
    auto const* in = static_cast<uint8_t const*>(source);
    auto* out = static_cast<uint8_t*>(destination);
#if defined(__SSE2__)
    for (size_t i = 0; i < units; ++i) {
        auto* slot = reinterpret_cast<__m128i*>(out + 16 * i);
        _mm_store_si128(
            slot, _mm_or_si128(_mm_load_si128(slot), _mm_load_si128(reinterpret_cast<__m128i const*>(in + 16 * i))));
    }
#else
    for (size_t i = 0; i < 16 * units; ++i)
        out[i] |= in[i];
#endif
}
