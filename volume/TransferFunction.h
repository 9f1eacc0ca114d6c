#pragma once
// TezVolumeCreateTransferFunction: samples a piecewise linear curve through
// control points (x ascending from 0 to 1, y the opacity) at `size` evenly
// spaced x from 0 to 1, for the ray-casting kernels' opacity table.
//
// At most one control point is passed per sample: points closer together
// than the sample step distort the curve rather than being skipped. Fewer
// than two points throw std::runtime_error. The byte form writes y * 255,
// truncated, kept within 0 .. 255.

#include "math/Vector.h"
#include "platform/Api.h"

#include <cstdint>
#include <vector>

TEZ_API std::vector<float> TezVolumeCreateTransferFunction(std::vector<TezVector2<float>> const& points, int size);
TEZ_API void TezVolumeCreateTransferFunction(std::vector<TezVector2<float>> const& points, uint8_t* destination,
                                             int size);
