#pragma once
// TezRenderOctreePicture: one ray-cast picture of a voxel octree with the
// kernels on the host (or the device where CUDA runs), framed so that the
// whole volume shows from a standard view, as `tez render` draws it.
//
// The transfer function's points are in data units (0..255 for 8-bit trees,
// 0..65535 for 16-bit ones), x rising; with none the volume is opaque from
// 30% of the way between its lowest and highest value. Pixels no ray reaches
// show the dark background; transparent layers blend back to front over it.
// The answer is RGBA, top row first, alpha 255. Throws std::runtime_error for
// a tree without nodes, a size outside 1..16384, a zero cut normal, layers
// outside 1..16 or a render step that fails.

#include "math/Vector.h"
#include "tez/OctreeCast.h"
#include "volume/VoxelOctree.h"

#include <cstdint>
#include <vector>

// The cast's options with the cut as a point and a normal: the half space
// the normal points into is kept; a zero normal: no cut (hasCut and cut
// are made from these).
struct TezOctreePictureOptions : TezOctreeCastOptions
{
    TezVector3<float> cutPoint{0.0f, 0.0f, 0.0f};
    TezVector3<float> cutNormal{0.0f, 0.0f, 0.0f};
};

struct TezOctreePicture
{
    std::vector<uint8_t> rgba; // width * height * 4, top row first
    size_t shownPixels = 0;    // pixels where a ray met an opaque voxel
};

TezOctreePicture TezRenderOctreePicture(TezRef<TezVoxelOctree> const& tree, TezOctreePictureOptions const& options);
