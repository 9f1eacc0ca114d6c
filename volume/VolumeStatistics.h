#pragma once
// TezVolumeStatistics: histograms of voxel boxes. Stateless; one instance.
//
// ComputeHistogram adds one to table[bin] for every voxel of the box and
// never clears the table (256 uint32). At 8 bits the bin is the voxel; at any
// other depth voxels are 16-bit, strides (given in bytes) are taken in
// elements, and the bin is the voxel's high byte.

#include "platform/Api.h"

#include <cstdint>

class TezCubeVolume;

class TEZ_API TezVolumeStatistics
{
public:
    static TezVolumeStatistics& Instance();

    void ComputeHistogram(void const* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel,
                          uint64_t rowStride, uint64_t sliceStride, uint32_t* table) const;
    // The whole volume, 8 bits.
    void ComputeHistogram(TezCubeVolume const& cube, uint32_t* table) const;

private:
    TezVolumeStatistics() = default;
};
