#include "volume/VolumeStatistics.h"

#include "volume/CubeVolume.h"

#if defined(__SSE2__)
#    include <emmintrin.h>
#endif

namespace {

// Four interleaved tables, merged at the end: consecutive voxels of the same
// value (air, mostly) would otherwise wait on each other's increment. A run
// of one bin as long as a vector register (air again, or 16-bit voxels whose
// high byte changes slowly) is found with one compare and counted at once.
template <class Voxel, int Shift>
void Accumulate(Voxel const* data, int x, int y, int z, int width, int height, int depth, uint64_t rowStride,
                uint64_t sliceStride, uint32_t* table)
{
    constexpr int kRun = 16 / int(sizeof(Voxel));
    uint32_t counts[4][256] = {};
    for (int k = 0; k < depth; ++k) {
        Voxel const* slice = data + static_cast<uint64_t>(z + k) * sliceStride;
        for (int j = 0; j < height; ++j) {
            Voxel const* row = slice + static_cast<uint64_t>(y + j) * rowStride + x;
            int i = 0;
            for (int lane = 0; i + kRun <= width; i += kRun, lane = (lane + 1) & 3) {
                unsigned const bin = unsigned(row[i] >> Shift);
#if defined(__SSE2__)
                __m128i const v = _mm_loadu_si128(reinterpret_cast<__m128i const*>(row + i));
                bool same;
                if constexpr (sizeof(Voxel) == 1)
                    same = _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(char(bin)))) == 0xFFFF;
                else
                    same = _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_srli_epi16(v, Shift), _mm_set1_epi16(short(bin)))) ==
                           0xFFFF;
                if (same) {
                    counts[lane][bin] += kRun;
                    continue;
                }
#endif
                for (int r = 0; r < kRun; r += 4) {
                    ++counts[0][row[i + r] >> Shift];
                    ++counts[1][row[i + r + 1] >> Shift];
                    ++counts[2][row[i + r + 2] >> Shift];
                    ++counts[3][row[i + r + 3] >> Shift];
                }
            }
            for (; i < width; ++i)
                ++counts[0][row[i] >> Shift];
        }
    }
    for (int bin = 0; bin < 256; ++bin)
        table[bin] += counts[0][bin] + counts[1][bin] + counts[2][bin] + counts[3][bin];
}

} // namespace

TezVolumeStatistics& TezVolumeStatistics::Instance()
{
    static TezVolumeStatistics instance;
    return instance;
}

void TezVolumeStatistics::ComputeHistogram(void const* buffer, int x, int y, int z, int width, int height, int depth,
                                           int bitsPerPixel, uint64_t rowStride, uint64_t sliceStride,
                                           uint32_t* table) const
{
    if (bitsPerPixel == 8)
        Accumulate<uint8_t, 0>(static_cast<uint8_t const*>(buffer), x, y, z, width, height, depth, rowStride,
                               sliceStride, table);
    else
        Accumulate<uint16_t, 8>(static_cast<uint16_t const*>(buffer), x, y, z, width, height, depth, rowStride / 2,
                                sliceStride / 2, table);
}

void TezVolumeStatistics::ComputeHistogram(TezCubeVolume const& cube, uint32_t* table) const
{
    TezVector3<int> const& d = cube.Dimensions();
    if (cube.GetData())
        ComputeHistogram(cube.GetData(), 0, 0, 0, d.x, d.y, d.z, 8, cube.RowSize(), cube.StackSize(), table);
}
