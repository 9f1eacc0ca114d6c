#pragma once
// Stored voxel samples to delivered voxels, shared by the sources that read
// files (raw, NRRD, MetaImage, DICOM). Internal: not installed.
//
// A stored sample becomes an unsigned value of its own width first: unsigned
// samples as they are, signed ones shifted by half their range (int8 + 128,
// int16 + 32768), which keeps the order of values. Delivered at the other
// width, 16-bit values keep their high byte and 8-bit values are scaled by
// 257, as TezMemoryVolume does.
//
// Rows: the first stored row of a slice is its top, as in image files, and
// is delivered at y = height - 1.

#include "volume/VoxelSample.h"

#include <cstdint>

// True when a Copy request fits a width x height x depth source: bits 8 or
// 16, a non-null buffer, the box inside, strides wide enough for it.
bool TezIsValidCopyRequest(int sourceWidth, int sourceHeight, int sourceDepth, void const* buffer, int x, int y, int z,
                           int width, int height, int depth, int bitsPerPixel, uint64_t rowStride,
                           uint64_t sliceStride);

// Copies the box's rows [y, y + boxHeight) of one stored slice of
// sliceWidth x sliceHeight samples to `out`, row r at r * rowStride, from
// column x on. swapBytes: the 16-bit samples are in the other byte order.
void TezCopySliceBox(uint8_t const* slice, int sliceWidth, int sliceHeight, TezVoxelSample sample, bool swapBytes,
                     int x, int y, int boxWidth, int boxHeight, uint8_t* out, uint64_t rowStride, int outBits);
