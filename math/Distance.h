#pragma once
// Point, line and box distances. Instantiated for float and double.

#include "math/Box.h"
#include "math/Vector.h"
#include "platform/Api.h"

// Distance from p to the infinite line through a and b.
template <class T>
TEZ_API T TezDistancePointLine(const TezVector3<T>& p, const TezVector3<T>& a, const TezVector3<T>& b);

// Smallest and largest parameter along dir (scaled by |dir|) at which the
// box's span begins and ends, seen from start. For an empty box the result
// comes from its 1e30 middle.
template <class T>
TEZ_API T TezMinDistBoxOnRay(const TezVector3<T>& start, const TezVector3<T>& dir, const TezBox3<T>& box);
template <class T>
TEZ_API T TezMaxDistBoxOnRay(const TezVector3<T>& start, const TezVector3<T>& dir, const TezBox3<T>& box);
