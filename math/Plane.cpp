#include "math/Plane.h"

template <class T>
TezPlane<T>::TezPlane() : m_root(0, 0, 0), m_normal(0, 0, 1), m_u(1, 0, 0), m_v(0, 1, 0)
{
}

template <class T>
TezPlane<T>::TezPlane(const TezVector3<T>& root, const TezVector3<T>& normal) : m_root(root), m_normal(normal)
{
    m_u = TezVector3<T>(0, 1, 0) ^ normal;
    if (m_u.Length() < T(tez_detail::kEpsilon))
        m_u = TezVector3<T>(0, 0, 1);
    m_u.Normalize();
    m_v = m_normal ^ m_u;
}

template <class T>
TezPlane<T>::TezPlane(const TezVector3<T>& p0, const TezVector3<T>& p1, const TezVector3<T>& p2) : m_root(p0)
{
    m_u = (p1 - p0).Normalized();
    m_normal = (m_u ^ (p2 - p0)).Normalized();
    m_v = m_normal ^ m_u;
}

template <class T>
void TezPlane<T>::GetTransform(T out[16]) const
{
    const TezVector3<T>* cols[4] = {&m_u, &m_v, &m_normal, &m_root};
    for (int c = 0; c < 4; ++c) {
        out[c * 4 + 0] = cols[c]->x;
        out[c * 4 + 1] = cols[c]->y;
        out[c * 4 + 2] = cols[c]->z;
        out[c * 4 + 3] = T(c == 3 ? 1 : 0);
    }
}

template class TezPlane<float>;
template class TezPlane<double>;
