#pragma once
// TezQuaternion<T>: rotation quaternion, w first (index 0 is w).
//
// A default quaternion is the identity. operator* between quaternions is the
// four-element dot product; operator^ is the Hamilton product. / s with
// s < 1e-6 (signed) puts 1e30 in every element; Normalize leaves a quaternion
// shorter than 1e-6 unchanged. Angle() is exact at the identity and at half a
// turn only (it combines w with the length of the normalised axis), which is
// the behaviour callers were written against.
// Instantiated for float and double.

#include "math/Matrix.h"
#include "math/Vector.h"
#include "platform/Api.h"

#include <type_traits>

template <class T>
class TEZ_API TezQuaternion
{
public:
    T w = T(1), x = T(0), y = T(0), z = T(0);

    TezQuaternion() = default;
    TezQuaternion(T aw, T ax, T ay, T az) : w(aw), x(ax), y(ay), z(az) {}
    // w = cos(angle/2), (x,y,z) = sin(angle/2) * axis; the axis is used as given.
    TezQuaternion(T angle, const TezVector3<T>& axis);
    // From a rotation matrix (stored-row convention of TezMatrix33); normalised.
    explicit TezQuaternion(const TezMatrix33<T>& m);

    operator T*() { return &w; }
    operator const T*() const { return &w; }
    template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
    T& operator[](I i)
    {
        return (&w)[i];
    }
    template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
    const T& operator[](I i) const
    {
        return (&w)[i];
    }

    TezQuaternion operator+(const TezQuaternion& o) const { return TezQuaternion(w + o.w, x + o.x, y + o.y, z + o.z); }
    TezQuaternion operator-(const TezQuaternion& o) const { return TezQuaternion(w - o.w, x - o.x, y - o.y, z - o.z); }
    TezQuaternion operator-() const { return TezQuaternion(-w, -x, -y, -z); }
    TezQuaternion operator*(T s) const { return TezQuaternion(w * s, x * s, y * s, z * s); }
    TezQuaternion operator/(T s) const;
    TezQuaternion& operator+=(const TezQuaternion& o) { return *this = *this + o; }
    TezQuaternion& operator-=(const TezQuaternion& o) { return *this = *this - o; }
    TezQuaternion& operator*=(T s) { return *this = *this * s; }
    TezQuaternion& operator/=(T s) { return *this = *this / s; }

    // Four-element dot product.
    T operator*(const TezQuaternion& o) const { return w * o.w + x * o.x + y * o.y + z * o.z; }
    // Hamilton product.
    TezQuaternion operator^(const TezQuaternion& o) const;
    // Rotates v.
    TezVector3<T> operator*(const TezVector3<T>& v) const;

    bool operator==(const TezQuaternion& o) const;
    bool operator!=(const TezQuaternion& o) const { return !(*this == o); }

    T LengthSquared() const { return w * w + x * x + y * y + z * z; }
    T Length() const { return std::sqrt(LengthSquared()); }
    T Normalize();
    TezQuaternion Normalized() const
    {
        TezQuaternion q(*this);
        q.Normalize();
        return q;
    }

    TezMatrix33<T> Matrix() const;
    TezVector3<T> Axis() const;
    T Angle() const;
};

// Rotation taking unit vector `from` onto unit vector `to`. For opposed
// vectors the half turn is about fallbackAxis, or about an axis perpendicular
// to `from` when fallbackAxis is the zero vector.
template <class T>
TEZ_API TezQuaternion<T> TezCalculateShortestArc(const TezVector3<T>& from, const TezVector3<T>& to,
                                                 const TezVector3<T>& fallbackAxis);

// Spherical interpolation from a (t = 0) to b (t = 1); with `shortest` a
// negative dot product flips b. Nearly parallel inputs fall back to
// normalised linear interpolation.
template <class T>
TEZ_API TezQuaternion<T> TezQuaternionSlerp(T t, const TezQuaternion<T>& a, const TezQuaternion<T>& b, bool shortest);

extern template class TezQuaternion<float>;
extern template class TezQuaternion<double>;
