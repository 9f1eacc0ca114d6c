#include "volume/detail/VoxelRows.h"

#include <cstring>

namespace {
template <int Bytes, bool Swap, uint16_t Flip, typename Out>
void ConvertRow(uint8_t const* from, Out* to, int count)
{
    for (int i = 0; i < count; ++i) {
        uint16_t value;
        if constexpr (Bytes == 1) {
            value = uint16_t(from[i] ^ Flip);
        } else {
            std::memcpy(&value, from + 2 * i, 2);
            if constexpr (Swap)
                value = uint16_t((value >> 8) | (value << 8));
            value = uint16_t(value ^ Flip);
        }
        if constexpr (sizeof(Out) == 1)
            to[i] = Out(Bytes == 1 ? value : value >> 8);
        else
            to[i] = Out(Bytes == 1 ? value * 257u : value);
    }
}

using RowFunction = void (*)(uint8_t const*, void*, int);

template <int Bytes, bool Swap, uint16_t Flip, typename Out>
void Row(uint8_t const* from, void* to, int count)
{
    ConvertRow<Bytes, Swap, Flip, Out>(from, static_cast<Out*>(to), count);
}

template <typename Out>
RowFunction PickRow(TezVoxelSample sample, bool swap)
{
    switch (sample) {
    case TezVoxelSample::UInt8:
        return Row<1, false, 0, Out>;
    case TezVoxelSample::Int8:
        return Row<1, false, 0x80, Out>;
    case TezVoxelSample::UInt16:
        return swap ? Row<2, true, 0, Out> : Row<2, false, 0, Out>;
    case TezVoxelSample::Int16:
        return swap ? Row<2, true, 0x8000, Out> : Row<2, false, 0x8000, Out>;
    }
    return nullptr;
}
} // namespace

bool TezIsValidCopyRequest(int sourceWidth, int sourceHeight, int sourceDepth, void const* buffer, int x, int y, int z,
                           int width, int height, int depth, int bitsPerPixel, uint64_t rowStride, uint64_t sliceStride)
{
    if (!buffer || (bitsPerPixel != 8 && bitsPerPixel != 16) || x < 0 || y < 0 || z < 0 || width < 0 || height < 0 ||
        depth < 0 || int64_t(x) + width > sourceWidth || int64_t(y) + height > sourceHeight ||
        int64_t(z) + depth > sourceDepth)
        return false;
    uint64_t const bytes = uint64_t(bitsPerPixel / 8);
    if (rowStride < uint64_t(width) * bytes || sliceStride < rowStride * uint64_t(height))
        return false;
    return bytes == 1 || (rowStride % 2 == 0 && sliceStride % 2 == 0);
}

void TezCopySliceBox(uint8_t const* slice, int sliceWidth, int sliceHeight, TezVoxelSample sample, bool swapBytes,
                     int x, int y, int boxWidth, int boxHeight, uint8_t* out, uint64_t rowStride, int outBits)
{
    RowFunction const row = outBits == 8 ? PickRow<uint8_t>(sample, swapBytes) : PickRow<uint16_t>(sample, swapBytes);
    uint64_t const bytes = uint64_t(TezVoxelSampleBytes(sample));
    for (int j = 0; j < boxHeight; ++j) {
        uint64_t const stored = uint64_t(sliceHeight - 1 - (y + j));
        row(slice + (stored * uint64_t(sliceWidth) + uint64_t(x)) * bytes, out + uint64_t(j) * rowStride, boxWidth);
    }
}
