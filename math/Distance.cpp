#include "math/Distance.h"

#include <cmath>

template <class T>
T TezDistancePointLine(const TezVector3<T>& p, const TezVector3<T>& a, const TezVector3<T>& b)
{
    const TezVector3<T> dir = (b - a).Normalized();
    const TezVector3<T> foot = a + dir * ((p - a) * dir);
    return (foot - p).Length();
}

namespace {

template <class T>
T HalfSpan(const TezVector3<T>& dir, const TezVector3<T>& ext)
{
    return (std::abs(dir.x * ext.x) + std::abs(dir.y * ext.y) + std::abs(dir.z * ext.z)) * T(0.5);
}

} // namespace

template <class T>
T TezMinDistBoxOnRay(const TezVector3<T>& start, const TezVector3<T>& dir, const TezBox3<T>& box)
{
    return dir * (box.Middle() - start) - HalfSpan(dir, box.Extents());
}

template <class T>
T TezMaxDistBoxOnRay(const TezVector3<T>& start, const TezVector3<T>& dir, const TezBox3<T>& box)
{
    return dir * (box.Middle() - start) + HalfSpan(dir, box.Extents());
}

#define TEZ_INSTANTIATE(T)                                                                                             \
    template TEZ_API T TezDistancePointLine<T>(const TezVector3<T>&, const TezVector3<T>&, const TezVector3<T>&);      \
    template TEZ_API T TezMinDistBoxOnRay<T>(const TezVector3<T>&, const TezVector3<T>&, const TezBox3<T>&);           \
    template TEZ_API T TezMaxDistBoxOnRay<T>(const TezVector3<T>&, const TezVector3<T>&, const TezBox3<T>&);
TEZ_INSTANTIATE(float)
TEZ_INSTANTIATE(double)
