#include "math/Solids.h"

#include <cmath>

template <class T>
bool TezClipRegion<T>::IsInside(const TezVector3<T>& p) const
{
    for (const TezPlane<T>& plane : m_planes)
        if (!plane.IsInside(p))
            return false;
    return true;
}

template <class T>
bool TezClipRegion<T>::IsInside(const TezBox3<T>& box) const
{
    const TezVector3<T> h = box.Extents() * T(0.5);
    const TezVector3<T> c = box.Center();
    for (const TezPlane<T>& plane : m_planes) {
        const TezVector3<T>& n = plane.GetNormal();
        const T r = std::abs(n.x * h.x) + std::abs(n.y * h.y) + std::abs(n.z * h.z);
        if (plane.Distance(c) < -r)
            return false;
    }
    return true;
}

template class TezCapsule<float>;
template class TezCapsule<double>;
template class TezCylinder<float>;
template class TezCylinder<double>;
template class TezCone<float>;
template class TezCone<double>;
template class TezSphere<float>;
template class TezSphere<double>;
template class TezTorus<float>;
template class TezTorus<double>;
template class TezClipRegion<float>;
template class TezClipRegion<double>;
