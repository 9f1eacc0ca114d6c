#pragma once
// TezVector2/3/4<T>: plain value vectors, elements contiguous (x, y, z, w).
//
// Conventions every geometric part of the library relies on:
// - default construction leaves the elements uninitialised;
// - == compares every element with the absolute tolerance 1e-6 (also for
//   integer types); < <= > >= are exact lexicographic orders;
// - Normalize leaves a vector shorter than 1e-6 unchanged and returns the
//   length either way;
// - TezVector3 / s gives 1e30 in every element when s is exactly 0;
//   TezVector2 and TezVector4 / s give 1e30 whenever s < 1e-6 (signed, so
//   every negative divisor too). Integer element types saturate instead.
// Instantiated for int, float, double (TezVector4 also for unsigned char).

#include "math/Numeric.h"
#include "platform/Api.h"

#include <cmath>
#include <cstdlib>
#include <type_traits>

template <class T>
class TEZ_API TezVector2
{
public:
    T x, y;

    TezVector2() = default;
    constexpr TezVector2(T ax, T ay) : x(ax), y(ay) {}
    template <class U>
    constexpr explicit TezVector2(const TezVector2<U>& o) : x(static_cast<T>(o.x)), y(static_cast<T>(o.y))
    {
    }

    operator T*() { return &x; }
    operator const T*() const { return &x; }
    // Any integer index (int, unsigned, size_t ...): one exact overload
    // keeps v[i] from competing with the pointer conversion.
    template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
    T& operator[](I i)
    {
        return (&x)[i];
    }
    template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
    const T& operator[](I i) const
    {
        return (&x)[i];
    }

    TezVector2 operator+(const TezVector2& o) const { return TezVector2(x + o.x, y + o.y); }
    TezVector2 operator-(const TezVector2& o) const { return TezVector2(x - o.x, y - o.y); }
    TezVector2 operator-() const { return TezVector2(static_cast<T>(-x), static_cast<T>(-y)); }
    TezVector2 operator*(T s) const { return TezVector2(x * s, y * s); }
    TezVector2 operator/(T s) const;
    T operator*(const TezVector2& o) const { return x * o.x + y * o.y; }
    TezVector2& operator+=(const TezVector2& o)
    {
        x += o.x;
        y += o.y;
        return *this;
    }
    TezVector2& operator-=(const TezVector2& o)
    {
        x -= o.x;
        y -= o.y;
        return *this;
    }
    TezVector2& operator*=(T s)
    {
        x *= s;
        y *= s;
        return *this;
    }
    TezVector2& operator/=(T s) { return *this = *this / s; }

    bool operator==(const TezVector2& o) const { return tez_detail::Near(x, o.x) && tez_detail::Near(y, o.y); }
    bool operator!=(const TezVector2& o) const { return !(*this == o); }
    bool operator<(const TezVector2& o) const { return x < o.x || (x == o.x && y < o.y); }
    bool operator<=(const TezVector2& o) const { return x < o.x || (x == o.x && y <= o.y); }
    bool operator>(const TezVector2& o) const { return x > o.x || (x == o.x && y > o.y); }
    bool operator>=(const TezVector2& o) const { return x > o.x || (x == o.x && y >= o.y); }

    T LengthSquared() const { return x * x + y * y; }
    T Length() const { return static_cast<T>(std::sqrt(LengthSquared())); }
    T Normalize();
    TezVector2 Normalized() const
    {
        TezVector2 r(*this);
        r.Normalize();
        return r;
    }
    // (-y, x), not normalised.
    TezVector2 Perpendicular() const { return TezVector2(static_cast<T>(-y), x); }
};

template <class T>
class TEZ_API TezVector3
{
public:
    T x, y, z;

    TezVector3() = default;
    constexpr TezVector3(T ax, T ay, T az) : x(ax), y(ay), z(az) {}
    template <class U>
    constexpr explicit TezVector3(const TezVector3<U>& o)
        : x(static_cast<T>(o.x)), y(static_cast<T>(o.y)), z(static_cast<T>(o.z))
    {
    }

    operator T*() { return &x; }
    operator const T*() const { return &x; }
    // Any integer index (int, unsigned, size_t ...): one exact overload
    // keeps v[i] from competing with the pointer conversion.
    template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
    T& operator[](I i)
    {
        return (&x)[i];
    }
    template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
    const T& operator[](I i) const
    {
        return (&x)[i];
    }

    TezVector3 operator+(const TezVector3& o) const { return TezVector3(x + o.x, y + o.y, z + o.z); }
    TezVector3 operator-(const TezVector3& o) const { return TezVector3(x - o.x, y - o.y, z - o.z); }
    TezVector3 operator-() const { return TezVector3(static_cast<T>(-x), static_cast<T>(-y), static_cast<T>(-z)); }
    TezVector3 operator*(T s) const { return TezVector3(x * s, y * s, z * s); }
    TezVector3 operator/(T s) const;
    // Dot product.
    T operator*(const TezVector3& o) const { return x * o.x + y * o.y + z * o.z; }
    // Cross product.
    TezVector3 operator^(const TezVector3& o) const
    {
        return TezVector3(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x);
    }
    TezVector3& operator+=(const TezVector3& o)
    {
        x += o.x;
        y += o.y;
        z += o.z;
        return *this;
    }
    TezVector3& operator-=(const TezVector3& o)
    {
        x -= o.x;
        y -= o.y;
        z -= o.z;
        return *this;
    }
    TezVector3& operator*=(T s)
    {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }
    TezVector3& operator/=(T s) { return *this = *this / s; }

    bool operator==(const TezVector3& o) const
    {
        return tez_detail::Near(x, o.x) && tez_detail::Near(y, o.y) && tez_detail::Near(z, o.z);
    }
    bool operator!=(const TezVector3& o) const { return !(*this == o); }
    bool operator<(const TezVector3& o) const { return x < o.x || (x == o.x && (y < o.y || (y == o.y && z < o.z))); }
    bool operator<=(const TezVector3& o) const { return x < o.x || (x == o.x && (y < o.y || (y == o.y && z <= o.z))); }
    bool operator>(const TezVector3& o) const { return x > o.x || (x == o.x && (y > o.y || (y == o.y && z > o.z))); }
    bool operator>=(const TezVector3& o) const { return x > o.x || (x == o.x && (y > o.y || (y == o.y && z >= o.z))); }

    T LengthSquared() const { return x * x + y * y + z * z; }
    T Length() const { return static_cast<T>(std::sqrt(LengthSquared())); }
    T Normalize();
    TezVector3 Normalized() const
    {
        TezVector3 r(*this);
        r.Normalize();
        return r;
    }

    // Index of the element of largest square; a tie keeps the lower index.
    int Longest() const;
    // Unit vector perpendicular to this: this x X, or this x Y when the first
    // is shorter than 1e-6.
    TezVector3 Perpendicular() const;
    // |x*v.x| + |y*v.y| + |z*v.z|.
    T absDotProduct(const TezVector3& v) const;
};

template <class T>
class TEZ_API TezVector4
{
public:
    T x, y, z, w;

    TezVector4() = default;
    constexpr TezVector4(T ax, T ay, T az, T aw) : x(ax), y(ay), z(az), w(aw) {}
    constexpr TezVector4(const TezVector3<T>& v, T aw) : x(v.x), y(v.y), z(v.z), w(aw) {}
    template <class U>
    constexpr explicit TezVector4(const TezVector4<U>& o)
        : x(static_cast<T>(o.x)), y(static_cast<T>(o.y)), z(static_cast<T>(o.z)), w(static_cast<T>(o.w))
    {
    }

    operator T*() { return &x; }
    operator const T*() const { return &x; }
    // Any integer index (int, unsigned, size_t ...): one exact overload
    // keeps v[i] from competing with the pointer conversion.
    template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
    T& operator[](I i)
    {
        return (&x)[i];
    }
    template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
    const T& operator[](I i) const
    {
        return (&x)[i];
    }

    TezVector3<T> XYZ() const { return TezVector3<T>(x, y, z); }

    TezVector4 operator+(const TezVector4& o) const
    {
        return TezVector4(static_cast<T>(x + o.x), static_cast<T>(y + o.y), static_cast<T>(z + o.z),
                          static_cast<T>(w + o.w));
    }
    TezVector4 operator-(const TezVector4& o) const
    {
        return TezVector4(static_cast<T>(x - o.x), static_cast<T>(y - o.y), static_cast<T>(z - o.z),
                          static_cast<T>(w - o.w));
    }
    TezVector4 operator-() const
    {
        return TezVector4(static_cast<T>(-x), static_cast<T>(-y), static_cast<T>(-z), static_cast<T>(-w));
    }
    TezVector4 operator*(T s) const
    {
        return TezVector4(static_cast<T>(x * s), static_cast<T>(y * s), static_cast<T>(z * s), static_cast<T>(w * s));
    }
    TezVector4 operator/(T s) const;
    T operator*(const TezVector4& o) const { return static_cast<T>(x * o.x + y * o.y + z * o.z + w * o.w); }
    TezVector4& operator+=(const TezVector4& o) { return *this = *this + o; }
    TezVector4& operator-=(const TezVector4& o) { return *this = *this - o; }
    TezVector4& operator*=(T s) { return *this = *this * s; }
    TezVector4& operator/=(T s) { return *this = *this / s; }

    bool operator==(const TezVector4& o) const
    {
        return tez_detail::Near(x, o.x) && tez_detail::Near(y, o.y) && tez_detail::Near(z, o.z) &&
               tez_detail::Near(w, o.w);
    }
    bool operator!=(const TezVector4& o) const { return !(*this == o); }
    bool operator<(const TezVector4& o) const
    {
        return x < o.x || (x == o.x && (y < o.y || (y == o.y && (z < o.z || (z == o.z && w < o.w)))));
    }
    bool operator<=(const TezVector4& o) const
    {
        return x < o.x || (x == o.x && (y < o.y || (y == o.y && (z < o.z || (z == o.z && w <= o.w)))));
    }
    bool operator>(const TezVector4& o) const
    {
        return x > o.x || (x == o.x && (y > o.y || (y == o.y && (z > o.z || (z == o.z && w > o.w)))));
    }
    bool operator>=(const TezVector4& o) const
    {
        return x > o.x || (x == o.x && (y > o.y || (y == o.y && (z > o.z || (z == o.z && w >= o.w)))));
    }

    T LengthSquared() const { return static_cast<T>(x * x + y * y + z * z + w * w); }
    T Length() const { return static_cast<T>(std::sqrt(static_cast<double>(LengthSquared()))); }
    T Normalize();
    TezVector4 Normalized() const
    {
        TezVector4 r(*this);
        r.Normalize();
        return r;
    }
};

template <class T>
inline TezVector2<T> operator*(T s, const TezVector2<T>& v)
{
    return v * s;
}
template <class T>
inline TezVector3<T> operator*(T s, const TezVector3<T>& v)
{
    return v * s;
}
template <class T>
inline TezVector4<T> operator*(T s, const TezVector4<T>& v)
{
    return v * s;
}

// ---- out-of-class members that carry the degenerate-input rules ----

template <class T>
inline TezVector2<T> TezVector2<T>::operator/(T s) const
{
    if (static_cast<double>(s) < tez_detail::kEpsilon)
        return TezVector2(tez_detail::Infinity<T>(), tez_detail::Infinity<T>());
    return TezVector2(x / s, y / s);
}

template <class T>
inline TezVector3<T> TezVector3<T>::operator/(T s) const
{
    if (s == T(0))
        return TezVector3(tez_detail::Infinity<T>(), tez_detail::Infinity<T>(), tez_detail::Infinity<T>());
    return TezVector3(x / s, y / s, z / s);
}

template <class T>
inline TezVector4<T> TezVector4<T>::operator/(T s) const
{
    if (static_cast<double>(s) < tez_detail::kEpsilon) {
        const T inf = tez_detail::Infinity<T>();
        return TezVector4(inf, inf, inf, inf);
    }
    return TezVector4(static_cast<T>(x / s), static_cast<T>(y / s), static_cast<T>(z / s), static_cast<T>(w / s));
}

template <class T>
inline T TezVector2<T>::Normalize()
{
    const T len = Length();
    if (static_cast<double>(len) >= tez_detail::kEpsilon)
        *this /= len;
    return len;
}

template <class T>
inline T TezVector3<T>::Normalize()
{
    const T len = Length();
    if (static_cast<double>(len) >= tez_detail::kEpsilon)
        *this /= len;
    return len;
}

template <class T>
inline T TezVector4<T>::Normalize()
{
    const T len = Length();
    if (static_cast<double>(len) >= tez_detail::kEpsilon)
        *this /= len;
    return len;
}

template <class T>
inline int TezVector3<T>::Longest() const
{
    const T sx = x * x, sy = y * y, sz = z * z;
    int best = 0;
    T bestValue = sx;
    if (sy > bestValue) {
        best = 1;
        bestValue = sy;
    }
    if (sz > bestValue)
        best = 2;
    return best;
}

template <class T>
inline TezVector3<T> TezVector3<T>::Perpendicular() const
{
    TezVector3 p = *this ^ TezVector3(T(1), T(0), T(0));
    if (static_cast<double>(p.Length()) < tez_detail::kEpsilon)
        p = *this ^ TezVector3(T(0), T(1), T(0));
    p.Normalize();
    return p;
}

template <class T>
inline T TezVector3<T>::absDotProduct(const TezVector3& v) const
{
    using std::abs;
    return static_cast<T>(abs(x * v.x) + abs(y * v.y) + abs(z * v.z));
}

extern template class TezVector2<int>;
extern template class TezVector2<float>;
extern template class TezVector2<double>;
extern template class TezVector3<int>;
extern template class TezVector3<float>;
extern template class TezVector3<double>;
extern template class TezVector4<int>;
extern template class TezVector4<float>;
extern template class TezVector4<double>;
extern template class TezVector4<unsigned char>;
