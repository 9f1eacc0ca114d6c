#pragma once
// Intersection and overlap tests of rays, lines, spheres, planes and boxes.
// Nothing here reports an error: a false result or a zero count means no
// intersection.

#include "math/Box.h"
#include "math/Matrix.h"
#include "math/Plane.h"
#include "math/Ray.h"
#include "math/Vector.h"
#include "platform/Api.h"

#include <vector>

// Line start + t * direction (direction of unit length) against a sphere:
// returns 0, 1 (tangent within tolerance, t[0]) or 2 (t[0] < t[1]) solutions.
// Instantiated for float and double.
template <class T>
TEZ_API int TezIntersect(const TezVector3<T>& start, const TezVector3<T>& direction, const TezVector3<T>& center,
                         T radius, TezVector2<T>& t, T tolerance);

// Far hit of the ray on the sphere; the ray must start inside or hit it.
TEZ_API TezVector3<float> TezIntersect(const TezRay& ray, const TezVector3<float>& center, float radius);

// Slab test; t receives the entry and exit parameters (entry below 0 when the
// ray starts inside). The slabs are widened by the tolerance.
TEZ_API bool TezIntersect(const TezRay& ray, const TezBox3<float>& box, TezVector2<float>& t, float tolerance);

// Ray against plane: false when parallel (whatever the distance); else t is
// the hit parameter and the result t >= -tolerance.
TEZ_API bool TezIntersect(const TezRay& ray, const TezPlane<float>& plane, float& t, float tolerance);

// Whether the plane passes within tolerance of the box.
TEZ_API bool TezIntersect(const TezPlane<float>& plane, const TezBox3<float>& box, float tolerance);

// As above, and polygon receives the section of the box by the plane, ordered
// counter-clockwise about the normal (empty when they do not meet).
TEZ_API bool TezIntersect(const TezPlane<float>& plane, const TezBox3<float>& box,
                          std::vector<TezVector3<float>>& polygon, float tolerance);

// Separating axis test (15 axes) of box1 against box2 placed by transform
// (box2's coordinates to box1's); the transform may scale.
// Instantiated for float and double.
template <class T>
TEZ_API bool TezBoxBoxOverlap(const TezBox3<T>& box1, const TezBox3<T>& box2, const TezMatrix44<T>& transform);

// The corners on the outline of the box seen along direction, in order
// counter-clockwise about direction, starting at the lowest corner index
// (corner i takes the maximum on axis k when bit k of i is set). Four points
// when direction is along an axis, six in general, none for a zero direction
// or an empty box.
template <class T>
TEZ_API void TezGetProjectedPointSequence(const TezBox3<T>& box, const TezVector3<T>& direction,
                                          std::vector<TezVector3<T>>& points);

// Closest points between the infinite line start + t * direction and the
// (solid) box. When the line pierces the box both points are the same point
// inside it. A zero direction treats the line as the point start.
template <class T>
TEZ_API void TezGetClosestLineBoxPoints(const TezVector3<T>& start, const TezVector3<T>& direction,
                                        const TezBox3<T>& box, TezVector3<T>& linePoint, TezVector3<T>& boxPoint);
