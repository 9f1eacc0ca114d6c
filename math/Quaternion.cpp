#include "math/Quaternion.h"

#include "math/Constants.h"

#include <cmath>

template <class T>
TezQuaternion<T>::TezQuaternion(T angle, const TezVector3<T>& axis)
{
    const T s = std::sin(angle / 2);
    w = std::cos(angle / 2);
    x = axis.x * s;
    y = axis.y * s;
    z = axis.z * s;
}

template <class T>
TezQuaternion<T>::TezQuaternion(const TezMatrix33<T>& m)
{
    const T t = m[0][0] + m[1][1] + m[2][2];
    if (t > 0) {
        const T r = std::sqrt(t + 1);
        const T s = T(0.5) / r;
        w = r / 2;
        x = (m[1][2] - m[2][1]) * s;
        y = (m[2][0] - m[0][2]) * s;
        z = (m[0][1] - m[1][0]) * s;
    } else {
        int i = 0;
        if (m[1][1] > m[i][i])
            i = 1;
        if (m[2][2] > m[i][i])
            i = 2;
        const int j = (i + 1) % 3, k = (i + 2) % 3;
        const T r = std::sqrt(m[i][i] - (m[j][j] + m[k][k]) + 1);
        const T s = r == 0 ? r : T(0.5) / r;
        T v[3];
        v[i] = r / 2;
        w = (m[j][k] - m[k][j]) * s;
        v[j] = (m[i][j] + m[j][i]) * s;
        v[k] = (m[i][k] + m[k][i]) * s;
        x = v[0];
        y = v[1];
        z = v[2];
    }
    Normalize();
}

template <class T>
TezQuaternion<T> TezQuaternion<T>::operator/(T s) const
{
    if (s < T(tez_detail::kEpsilon)) {
        const T inf = tez_detail::Infinity<T>();
        return TezQuaternion(inf, inf, inf, inf);
    }
    return TezQuaternion(w / s, x / s, y / s, z / s);
}

template <class T>
TezQuaternion<T> TezQuaternion<T>::operator^(const TezQuaternion& o) const
{
    const TezVector3<T> a(x, y, z), b(o.x, o.y, o.z);
    const TezVector3<T> v = b * w + a * o.w + (a ^ b);
    return TezQuaternion(w * o.w - a * b, v.x, v.y, v.z);
}

template <class T>
TezVector3<T> TezQuaternion<T>::operator*(const TezVector3<T>& v) const
{
    const TezVector3<T> q(x, y, z);
    const TezVector3<T> a = q ^ v;
    const TezVector3<T> b = q ^ a;
    return v + a * (2 * w) + b * T(2);
}

template <class T>
bool TezQuaternion<T>::operator==(const TezQuaternion& o) const
{
    return tez_detail::Near(w, o.w) && tez_detail::Near(x, o.x) && tez_detail::Near(y, o.y) && tez_detail::Near(z, o.z);
}

template <class T>
T TezQuaternion<T>::Normalize()
{
    const T len = Length();
    if (len >= T(tez_detail::kEpsilon))
        *this /= len;
    return len;
}

template <class T>
TezMatrix33<T> TezQuaternion<T>::Matrix() const
{
    TezQuaternion q(*this);
    if (std::abs(LengthSquared() - 1) > T(tez_detail::kEpsilon))
        q.Normalize();
    const T ww = q.w * q.w, xx = q.x * q.x, yy = q.y * q.y, zz = q.z * q.z;
    TezMatrix33<T> m;
    m[0][0] = ww + xx - yy - zz;
    m[1][1] = ww - xx + yy - zz;
    m[2][2] = ww - xx - yy + zz;
    m[0][1] = 2 * (q.x * q.y + q.w * q.z);
    m[1][0] = 2 * (q.x * q.y - q.w * q.z);
    m[0][2] = 2 * (q.x * q.z - q.w * q.y);
    m[2][0] = 2 * (q.x * q.z + q.w * q.y);
    m[1][2] = 2 * (q.y * q.z + q.w * q.x);
    m[2][1] = 2 * (q.y * q.z - q.w * q.x);
    return m;
}

template <class T>
TezVector3<T> TezQuaternion<T>::Axis() const
{
    TezVector3<T> a(x, y, z);
    a.Normalize();
    return a;
}

template <class T>
T TezQuaternion<T>::Angle() const
{
    const T l = Axis().Length();
    return std::atan2(2 * w * l, w * w - l * l);
}

template <class T>
TezQuaternion<T> TezCalculateShortestArc(const TezVector3<T>& from, const TezVector3<T>& to,
                                         const TezVector3<T>& fallbackAxis)
{
    const T d = from * to;
    if (d >= 1)
        return TezQuaternion<T>();
    if (d < T(tez_detail::kEpsilon - 1)) {
        TezVector3<T> axis = fallbackAxis;
        if (fallbackAxis == TezVector3<T>(0, 0, 0)) {
            axis = TezVector3<T>(1, 0, 0) ^ from;
            if (axis.Length() < T(tez_detail::kEpsilon))
                axis = TezVector3<T>(0, 1, 0) ^ from;
            axis.Normalize();
        }
        return TezQuaternion<T>(static_cast<T>(TezPi), axis);
    }
    const T s = std::sqrt(2 * (1 + d));
    const TezVector3<T> c = (from ^ to) / s;
    TezQuaternion<T> q(s / 2, c.x, c.y, c.z);
    q.Normalize();
    return q;
}

template <class T>
TezQuaternion<T> TezQuaternionSlerp(T t, const TezQuaternion<T>& a, const TezQuaternion<T>& b, bool shortest)
{
    T d = a * b;
    TezQuaternion<T> bb = b;
    if (d < 0 && shortest) {
        bb = -b;
        d = -d;
    }
    if (std::abs(d) < T(1 - tez_detail::kEpsilon)) {
        const T y = std::sqrt(1 - d * d);
        const T angle = std::atan2(y, d);
        return a * (std::sin((1 - t) * angle) / y) + bb * (std::sin(t * angle) / y);
    }
    return (a * (1 - t) + bb * t).Normalized();
}

template class TezQuaternion<float>;
template class TezQuaternion<double>;
template TEZ_API TezQuaternion<float> TezCalculateShortestArc<float>(const TezVector3<float>&, const TezVector3<float>&,
                                                                     const TezVector3<float>&);
template TEZ_API TezQuaternion<double>
TezCalculateShortestArc<double>(const TezVector3<double>&, const TezVector3<double>&, const TezVector3<double>&);
template TEZ_API TezQuaternion<float> TezQuaternionSlerp<float>(float, const TezQuaternion<float>&,
                                                                const TezQuaternion<float>&, bool);
template TEZ_API TezQuaternion<double> TezQuaternionSlerp<double>(double, const TezQuaternion<double>&,
                                                                  const TezQuaternion<double>&, bool);
