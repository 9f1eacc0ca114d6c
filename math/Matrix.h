#pragma once
// TezMatrix33<T>, TezMatrix44<T>: small square matrices for transforms.
//
// Storage is the column-major order of a graphics library: m[i] is the i-th
// stored row of numbers, which is the i-th column of the mathematical matrix
// acting on column vectors. A translation stands in m[3][0..2].
// - M * v computes result[j] = sum_i m[i][j] * v[i]; the Vector3 form extends
//   v with w = 1 and drops w afterwards without dividing.
// - A * B applies B first: (A * B) * v == A * (B * v).
// - TezMatrix44 == compares every element with tolerance 1e-6; TezMatrix33 ==
//   is true as soon as any single element agrees within 1e-6 (kept as is).
// - TezMatrix44::IsIdentity is false for every matrix (kept as is).
// - / s with |s| < 1e-6 puts 1e30 in every element.
// - Inverse is Gauss-Jordan elimination with full pivoting; a singular matrix
//   yields whatever the elimination reached, and nothing is reported.
// Instantiated for int, float and double.

#include "math/Vector.h"
#include "platform/Api.h"

template <class T>
class TEZ_API TezMatrix33
{
public:
    TezVector3<T> m[3];

    TezMatrix33() = default;
    TezMatrix33(const TezVector3<T>& r0, const TezVector3<T>& r1, const TezVector3<T>& r2) : m{r0, r1, r2} {}

    TezVector3<T>& operator[](int i) { return m[i]; }
    const TezVector3<T>& operator[](int i) const { return m[i]; }

    TezMatrix33 operator+(const TezMatrix33& o) const
    {
        return TezMatrix33(m[0] + o.m[0], m[1] + o.m[1], m[2] + o.m[2]);
    }
    TezMatrix33 operator-(const TezMatrix33& o) const
    {
        return TezMatrix33(m[0] - o.m[0], m[1] - o.m[1], m[2] - o.m[2]);
    }
    TezMatrix33 operator-() const { return TezMatrix33(-m[0], -m[1], -m[2]); }
    TezMatrix33 operator*(T s) const { return TezMatrix33(m[0] * s, m[1] * s, m[2] * s); }
    TezMatrix33 operator/(T s) const;
    TezMatrix33& operator+=(const TezMatrix33& o) { return *this = *this + o; }
    TezMatrix33& operator-=(const TezMatrix33& o) { return *this = *this - o; }
    TezMatrix33& operator*=(T s) { return *this = *this * s; }
    TezMatrix33& operator/=(T s) { return *this = *this / s; }
    TezMatrix33& operator*=(const TezMatrix33& o) { return *this = *this * o; }

    TezVector3<T> operator*(const TezVector3<T>& v) const
    {
        return TezVector3<T>(m[0].x * v.x + m[1].x * v.y + m[2].x * v.z, m[0].y * v.x + m[1].y * v.y + m[2].y * v.z,
                             m[0].z * v.x + m[1].z * v.y + m[2].z * v.z);
    }
    // The right-hand matrix acts first.
    TezMatrix33 operator*(const TezMatrix33& b) const
    {
        return TezMatrix33(*this * b.m[0], *this * b.m[1], *this * b.m[2]);
    }

    bool operator==(const TezMatrix33& o) const;
    bool operator!=(const TezMatrix33& o) const { return !(*this == o); }

    T Determinant() const;
    TezMatrix33 Transpose() const;
    TezMatrix33 Inverse() const;

    void Array(T* out) const;
    void FromArray(const T* in);
    void SwapRow(int a, int b);
    void SwapColumn(int a, int b);
    void ScaleRow(T s, int r);
    void AddScaledRow(T s, int from, int to);
};

template <class T>
class TEZ_API TezMatrix44
{
public:
    TezVector4<T> m[4];

    TezMatrix44() = default;
    TezMatrix44(const TezVector4<T>& r0, const TezVector4<T>& r1, const TezVector4<T>& r2, const TezVector4<T>& r3)
        : m{r0, r1, r2, r3}
    {
    }

    TezVector4<T>& operator[](int i) { return m[i]; }
    const TezVector4<T>& operator[](int i) const { return m[i]; }

    TezMatrix44 operator+(const TezMatrix44& o) const
    {
        return TezMatrix44(m[0] + o.m[0], m[1] + o.m[1], m[2] + o.m[2], m[3] + o.m[3]);
    }
    TezMatrix44 operator-(const TezMatrix44& o) const
    {
        return TezMatrix44(m[0] - o.m[0], m[1] - o.m[1], m[2] - o.m[2], m[3] - o.m[3]);
    }
    TezMatrix44 operator-() const { return TezMatrix44(-m[0], -m[1], -m[2], -m[3]); }
    TezMatrix44 operator*(T s) const { return TezMatrix44(m[0] * s, m[1] * s, m[2] * s, m[3] * s); }
    TezMatrix44 operator/(T s) const;
    TezMatrix44& operator+=(const TezMatrix44& o) { return *this = *this + o; }
    TezMatrix44& operator-=(const TezMatrix44& o) { return *this = *this - o; }
    TezMatrix44& operator*=(T s) { return *this = *this * s; }
    TezMatrix44& operator/=(T s) { return *this = *this / s; }
    TezMatrix44& operator*=(const TezMatrix44& o) { return *this = *this * o; }

    TezVector4<T> operator*(const TezVector4<T>& v) const
    {
        return TezVector4<T>(m[0].x * v.x + m[1].x * v.y + m[2].x * v.z + m[3].x * v.w,
                             m[0].y * v.x + m[1].y * v.y + m[2].y * v.z + m[3].y * v.w,
                             m[0].z * v.x + m[1].z * v.y + m[2].z * v.z + m[3].z * v.w,
                             m[0].w * v.x + m[1].w * v.y + m[2].w * v.z + m[3].w * v.w);
    }
    // Point transform: w = 1 in, w dropped out (no division).
    TezVector3<T> operator*(const TezVector3<T>& v) const
    {
        return TezVector3<T>(m[0].x * v.x + m[1].x * v.y + m[2].x * v.z + m[3].x,
                             m[0].y * v.x + m[1].y * v.y + m[2].y * v.z + m[3].y,
                             m[0].z * v.x + m[1].z * v.y + m[2].z * v.z + m[3].z);
    }
    // The right-hand matrix acts first.
    TezMatrix44 operator*(const TezMatrix44& b) const
    {
        return TezMatrix44(*this * b.m[0], *this * b.m[1], *this * b.m[2], *this * b.m[3]);
    }

    bool operator==(const TezMatrix44& o) const;
    bool operator!=(const TezMatrix44& o) const { return !(*this == o); }
    // Always false; nothing relies on it.
    bool IsIdentity() const { return false; }

    T Determinant() const;
    TezMatrix44 Transpose() const;
    TezMatrix44 Inverse() const;
    // First three elements of the first three stored rows, each normalised on
    // its own, placed into an identity.
    TezMatrix44 ExtractRotation() const;
    // Identity with the 3x3 copied into the first three stored rows.
    static TezMatrix44 FromRotationMatrix(const TezMatrix33<T>& r);

    void Array(T* out) const;
    void FromArray(const T* in);
    void SwapRow(int a, int b);
    void SwapColumn(int a, int b);
    void ScaleRow(T s, int r);
    void AddScaledRow(T s, int from, int to);
};

template <class T>
TEZ_API TezMatrix44<T> TezIdentityTransform();
template <class T>
TEZ_API TezMatrix44<T> TezZeroMatrix();
template <class T>
TEZ_API TezMatrix44<T> TezScaleTransform(T s);
template <class T>
TEZ_API TezMatrix44<T> TezAnisotropicTransform(const TezVector3<T>& s);
template <class T>
TEZ_API TezMatrix44<T> TezTranslationTransform(const TezVector3<T>& t);
// Right-handed rotations, angle in radians; sine and cosine are evaluated in double.
template <class T>
TEZ_API TezMatrix44<T> TezRotationAboutX(T angle);
template <class T>
TEZ_API TezMatrix44<T> TezRotationAboutY(T angle);
template <class T>
TEZ_API TezMatrix44<T> TezRotationAboutZ(T angle);
// Rotation about a (normalised here) axis; note the argument order of each.
template <class T>
TEZ_API TezMatrix44<T> TezRotationTransform(T angle, const TezVector3<T>& axis);
template <class T>
TEZ_API TezMatrix33<T> TezRotationAboutAxisAndAngle(const TezVector3<T>& axis, T angle);

extern template class TezMatrix33<int>;
extern template class TezMatrix33<float>;
extern template class TezMatrix33<double>;
extern template class TezMatrix44<int>;
extern template class TezMatrix44<float>;
extern template class TezMatrix44<double>;
