#pragma once
// Byte loops over 16-byte aligned buffers. Each works in whole units (16, 8
// or 4 bytes) and runs at least once: a count below one unit still writes
// one whole unit, and bytes beyond the last whole unit of a larger count are
// left alone. Buffers must be aligned and padded to that.

#include "platform/Api.h"

#include <cstddef>
#include <cstdint>

TEZ_API void TezZeroAlignedBytes(void* destination, size_t bytes);
TEZ_API void TezSetAlignedBytes(void* destination, uint8_t value, size_t bytes);
TEZ_API void TezCopyAlignedBytes16(void const* source, void* destination, size_t bytes);
TEZ_API void TezCopyAlignedBytes8(void const* source, void* destination, size_t bytes);
TEZ_API void TezCopyAlignedBytes4(void const* source, void* destination, size_t bytes);
// destination |= source.
TEZ_API void TezOrAlignedBytes(void const* source, void* destination, size_t bytes);
