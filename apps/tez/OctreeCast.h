#pragma once
// TezCastOctree: one ray-cast picture of a whole voxel octree from a standard
// view, the kernels on the device where CUDA runs and on the host otherwise,
// as `tez render` and the Python module's render() draw it.
//
// Transfer points are in data units (0..255 for 8-bit trees, 0..65535 for
// 16-bit ones), x rising. TezCastOctree throws std::runtime_error when the
// opacity table cannot reach the device; a failed render step is logged and
// leaves drawn false. TezComposeOctreeCast lays the image (or the layers, back
// to front) over the dark background: RGBA, bottom row first as GL reads back,
// alpha 255.

#include "math/Plane.h"
#include "math/Vector.h"
#include "volume/VoxelOctree.h"
#include "volume/device/OctreeRender.h"

#include <cstdint>
#include <vector>

struct TezOctreeCastOptions
{
    int width = 1024;
    int height = 768;
    int view = 6; // TezCameraView::Tilted
    bool perspective = true;
    bool transparent = false;
    int layers = 2;
    std::vector<TezVector2<float>> points; // data units; empty: TezDefaultTransferPoints
    TezVector4<float> colour{0.9f, 0.85f, 0.75f, 1.0f};
    bool hasCut = false; // keeps the half space cut's normal points into
    TezPlane<float> cut;
    // The scan's spacing along y and z over its spacing along x
    // (TezVolumeData::GetProportions): the tree is stretched by it.
    TezVector3<float> proportions{1.0f, 1.0f, 1.0f};
};

struct TezOctreeCast
{
    TezOctreeRenderBuffers buffers;
    bool drawn = false;
};

// Lowest and highest value in the data, from a histogram of 256 bins (at 16
// bits to the width of a bin). False for an empty histogram.
bool TezOctreeDataRange(std::vector<float> const& histogram, int bits, double& low, double& high);
bool TezOctreeDataRange(TezVoxelOctree const& tree, double& low, double& high);

// Opaque from 30% of the way up the data's range; a range of one value (a
// constant volume) counts from 0, so that value shows.
std::vector<TezVector2<float>> TezDefaultTransferPoints(double low, double high);

// Data units to the table builder's 0..1 of the voxel type's range, flat
// beyond the given ends.
std::vector<TezVector2<float>> TezNormalisedTransferPoints(std::vector<TezVector2<float>> const& points, int bits);

// A tree's box stretched by a scan's proportions, about the origin as the
// cast and the volume's transform stretch it.
TezBox3<float> TezProportionedBox(TezBox3<float> const& box, TezVector3<float> const& proportions);

TezOctreeCast TezCastOctree(TezRef<TezVoxelOctree> const& octree, TezOctreeCastOptions const& options);

// The picture and the number of pixels shown: pixels where a ray met an
// opaque voxel, or, with layers, layers met.
std::vector<uint8_t> TezComposeOctreeCast(TezOctreeCast const& cast, TezOctreeCastOptions const& options,
                                          size_t& shown);
