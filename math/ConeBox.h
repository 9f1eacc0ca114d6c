#pragma once
// Overlap tests of a truncated cone against an axis-aligned box, for checking
// a moving tool against the voxel boxes of an octree.
//
// The cone lies along its local z axis, radius startRadius at z = 0 and
// endRadius at z = height; `transform` takes cone coordinates to the box's
// (world) coordinates and `inverse` is its inverse. The precise forms never
// report a false negative: whenever the solids share a point they answer
// true. They may answer true for solids closer than about 1e-6 of their size,
// or when the search does not settle. Instantiated for float and double.

#include "math/Box.h"
#include "math/Matrix.h"
#include "math/Vector.h"
#include "platform/Api.h"

// Fast test that stands the box in by a sphere of radius MinLength about its
// centre.
template <class T>
TEZ_API bool TezConeBoxOverlapApproximate(const TezMatrix44<T>& transform, const TezMatrix44<T>& inverse, T height,
                                          T startRadius, T endRadius, const TezBox3<T>& box);

// Exact test; takes the box's extents and runs TezConeBoxOverlapPrecisionV3.
template <class T>
TEZ_API bool TezConeBoxOverlapPrecision(const TezMatrix44<T>& transform, const TezMatrix44<T>& inverse, T height,
                                        T startRadius, T endRadius, const TezBox3<T>& box);

// Separating axis test over a fixed set of candidate axes (the cone axis, the
// box axes and face normals, their cross products with the cone axis, and the
// radial direction to the box centre). A found axis proves separation, so the
// test is conservative: it may answer true for some separated pairs.
template <class T>
TEZ_API bool TezConeBoxOverlapPrecisionV2(const TezMatrix44<T>& transform, const TezMatrix44<T>& inverse, T height,
                                          T startRadius, T endRadius, const TezVector3<T>& boxMinimum,
                                          const TezVector3<T>& boxExtents);

// Exact test by the Gilbert-Johnson-Keerthi distance iteration on the
// Minkowski difference of box and cone; answers false only with a separating
// plane in hand.
template <class T>
TEZ_API bool TezConeBoxOverlapPrecisionV3(const TezMatrix44<T>& transform, const TezMatrix44<T>& inverse, T height,
                                          T startRadius, T endRadius, const TezVector3<T>& boxMinimum,
                                          const TezVector3<T>& boxExtents);
