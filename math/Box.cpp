#include "math/Box.h"

#include <algorithm>
#include <cmath>

using tez_detail::Infinity;

// ---------------------------------------------------------------- 2D

template <class T>
void TezBox2<T>::Clear()
{
    m_min = TezVector2<T>(Infinity<T>(), Infinity<T>());
    m_max = -m_min;
}

template <class T>
TezVector2<T> TezBox2<T>::Corner(bool maxX, bool maxY) const
{
    return TezVector2<T>(maxX ? m_max.x : m_min.x, maxY ? m_max.y : m_min.y);
}

template <class T>
TezVector2<T> TezBox2<T>::Extents() const
{
    return Empty() ? TezVector2<T>(0, 0) : m_max - m_min;
}

template <class T>
TezVector2<T> TezBox2<T>::Middle() const
{
    if (Empty())
        return TezVector2<T>(Infinity<T>(), Infinity<T>());
    return TezVector2<T>((m_min.x + m_max.x) / 2, (m_min.y + m_max.y) / 2);
}

template <class T>
void TezBox2<T>::Grow(T s)
{
    if (Empty())
        return;
    m_min -= TezVector2<T>(s, s);
    m_max += TezVector2<T>(s, s);
}

template <class T>
TezBox2<T>& TezBox2<T>::operator+=(const TezVector2<T>& p)
{
    m_min.x = std::min(m_min.x, p.x);
    m_min.y = std::min(m_min.y, p.y);
    m_max.x = std::max(m_max.x, p.x);
    m_max.y = std::max(m_max.y, p.y);
    return *this;
}

template <class T>
TezBox2<T>& TezBox2<T>::operator+=(const TezBox2& b)
{
    if (!b.Empty()) {
        *this += b.m_min;
        *this += b.m_max;
    }
    return *this;
}

// ---------------------------------------------------------------- 3D

template <class T>
void TezBox3<T>::Clear()
{
    m_min = TezVector3<T>(Infinity<T>(), Infinity<T>(), Infinity<T>());
    m_max = -m_min;
}

template <class T>
TezVector3<T> TezBox3<T>::Corner(bool maxX, bool maxY, bool maxZ) const
{
    return TezVector3<T>(maxX ? m_max.x : m_min.x, maxY ? m_max.y : m_min.y, maxZ ? m_max.z : m_min.z);
}

template <class T>
TezVector3<T> TezBox3<T>::Center() const
{
    return TezVector3<T>((m_min.x + m_max.x) / 2, (m_min.y + m_max.y) / 2, (m_min.z + m_max.z) / 2);
}

template <class T>
TezVector3<T> TezBox3<T>::Middle() const
{
    if (Empty())
        return TezVector3<T>(Infinity<T>(), Infinity<T>(), Infinity<T>());
    return Center();
}

template <class T>
TezVector3<T> TezBox3<T>::Extents() const
{
    return Empty() ? TezVector3<T>(0, 0, 0) : m_max - m_min;
}

template <class T>
TezVector3<T> TezBox3<T>::Length() const
{
    return m_max - m_min;
}

template <class T>
T TezBox3<T>::Length(int axis) const
{
    return Empty() ? T(0) : m_max[axis] - m_min[axis];
}

template <class T>
T TezBox3<T>::MaxLength() const
{
    const TezVector3<T> e = Extents();
    return std::max(e.x, std::max(e.y, e.z));
}

template <class T>
T TezBox3<T>::MinLength() const
{
    const TezVector3<T> e = Extents();
    return std::min(e.x, std::min(e.y, e.z));
}

template <class T>
void TezBox3<T>::Grow(T s)
{
    Grow(s, s, s);
}

template <class T>
void TezBox3<T>::Grow(T sx, T sy, T sz)
{
    if (Empty())
        return;
    const TezVector3<T> d(sx, sy, sz);
    m_min -= d;
    m_max += d;
}

template <class T>
bool TezBox3<T>::Contains(const TezVector3<T>& p) const
{
    return p.x >= m_min.x && p.x <= m_max.x && p.y >= m_min.y && p.y <= m_max.y && p.z >= m_min.z && p.z <= m_max.z;
}

template <class T>
bool TezBox3<T>::Contains(const TezBox3& b) const
{
    return b.Empty() || (Contains(b.m_min) && Contains(b.m_max));
}

template <class T>
bool TezBox3<T>::ContainsSphere(const TezVector3<T>& c, T r) const
{
    for (int i = 0; i < 3; ++i)
        if (!(c[i] - r > m_min[i] && c[i] + r < m_max[i]))
            return false;
    return true;
}

template <class T>
bool TezBox3<T>::FuzzyContains(const TezVector3<T>& p, T t) const
{
    for (int i = 0; i < 3; ++i)
        if (p[i] < m_min[i] - t || p[i] > m_max[i] + t)
            return false;
    return true;
}

template <class T>
bool TezBox3<T>::FuzzyContains(const TezBox3& b, T t) const
{
    return b.Empty() || (FuzzyContains(b.m_min, t) && FuzzyContains(b.m_max, t));
}

template <class T>
bool TezBox3<T>::Overlaps(const TezBox3& b) const
{
    for (int i = 0; i < 3; ++i)
        if (m_min[i] > b.m_max[i] || b.m_min[i] > m_max[i])
            return false;
    return true;
}

template <class T>
bool TezBox3<T>::OverlapsSphere(const TezVector3<T>& c, T r) const
{
    if (Contains(c))
        return true;
    const TezVector3<T> d = Closest(c) - c;
    return static_cast<double>(r) > std::sqrt(static_cast<double>(d.LengthSquared()));
}

template <class T>
TezVector3<T> TezBox3<T>::Closest(const TezVector3<T>& p) const
{
    TezVector3<T> r;
    for (int i = 0; i < 3; ++i)
        r[i] = std::min(std::max(p[i], m_min[i]), m_max[i]);
    return r;
}

template <class T>
TezVector3<T> TezBox3<T>::Farthest(const TezVector3<T>& p) const
{
    TezVector3<T> r;
    for (int i = 0; i < 3; ++i) {
        const double dMin = std::abs(static_cast<double>(p[i]) - static_cast<double>(m_min[i]));
        const double dMax = std::abs(static_cast<double>(p[i]) - static_cast<double>(m_max[i]));
        r[i] = dMax > dMin ? m_max[i] : m_min[i];
    }
    return r;
}

template <class T>
void TezBox3<T>::TransformGeometry(const TezMatrix44<T>& m)
{
    m_min = m * m_min;
    m_max = m * m_max;
    for (int i = 0; i < 3; ++i)
        if (m_min[i] > m_max[i])
            std::swap(m_min[i], m_max[i]);
}

template <class T>
TezBox3<T>& TezBox3<T>::operator+=(const TezVector3<T>& p)
{
    for (int i = 0; i < 3; ++i) {
        m_min[i] = std::min(m_min[i], p[i]);
        m_max[i] = std::max(m_max[i], p[i]);
    }
    return *this;
}

template <class T>
TezBox3<T>& TezBox3<T>::operator+=(const TezBox3& b)
{
    if (!b.Empty()) {
        *this += b.m_min;
        *this += b.m_max;
    }
    return *this;
}

template <class T>
TezBox3<T> operator*(const TezMatrix44<T>& m, const TezBox3<T>& b)
{
    if (b.Empty())
        return b;
    TezBox3<T> r;
    for (int c = 0; c < 8; ++c)
        r += m * b.Corner(c & 1, c & 2, c & 4);
    return r;
}

template class TezBox2<float>;
template class TezBox2<double>;
template class TezBox3<int>;
template class TezBox3<float>;
template class TezBox3<double>;
template TEZ_API TezBox3<int> operator*(const TezMatrix44<int>&, const TezBox3<int>&);
template TEZ_API TezBox3<float> operator*(const TezMatrix44<float>&, const TezBox3<float>&);
template TEZ_API TezBox3<double> operator*(const TezMatrix44<double>&, const TezBox3<double>&);
