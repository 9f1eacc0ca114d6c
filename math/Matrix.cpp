#include "math/Matrix.h"

#include "math/detail/GaussJordan.h"

#include <cmath>

namespace {

template <class T>
TezMatrix44<T> Identity44()
{
    return TezMatrix44<T>(TezVector4<T>(1, 0, 0, 0), TezVector4<T>(0, 1, 0, 0), TezVector4<T>(0, 0, 1, 0),
                          TezVector4<T>(0, 0, 0, 1));
}

template <class T>
T Det3(T a, T b, T c, T d, T e, T f, T g, T h, T i)
{
    return a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
}

} // namespace

// ---------------------------------------------------------------- 3x3

template <class T>
TezMatrix33<T> TezMatrix33<T>::operator/(T s) const
{
    if (tez_detail::AbsD(s) < tez_detail::kEpsilon) {
        const T inf = tez_detail::Infinity<T>();
        const TezVector3<T> r(inf, inf, inf);
        return TezMatrix33(r, r, r);
    }
    TezMatrix33 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i][j] = m[i][j] / s;
    return r;
}

template <class T>
bool TezMatrix33<T>::operator==(const TezMatrix33& o) const
{
    // Deliberately an "or": one agreeing element suffices.
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (tez_detail::Near(m[i][j], o.m[i][j]))
                return true;
    return false;
}

template <class T>
T TezMatrix33<T>::Determinant() const
{
    return Det3(m[0][0], m[0][1], m[0][2], m[1][0], m[1][1], m[1][2], m[2][0], m[2][1], m[2][2]);
}

template <class T>
TezMatrix33<T> TezMatrix33<T>::Transpose() const
{
    TezMatrix33 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i][j] = m[j][i];
    return r;
}

template <class T>
TezMatrix33<T> TezMatrix33<T>::Inverse() const
{
    // The stored array read row-major is the transpose of the mathematical
    // matrix; its inverse read the same way is the stored inverse.
    T a[9], r[9], det, piv;
    int swaps[3];
    Array(a);
    tez_detail::GaussJordan<3>(3, a, r, det, piv, swaps);
    TezMatrix33 out;
    out.FromArray(r);
    return out;
}

template <class T>
void TezMatrix33<T>::Array(T* out) const
{
    if (!out)
        return;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            out[i * 3 + j] = m[i][j];
}

template <class T>
void TezMatrix33<T>::FromArray(const T* in)
{
    if (!in)
        return;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m[i][j] = in[i * 3 + j];
}

template <class T>
void TezMatrix33<T>::SwapRow(int a, int b)
{
    std::swap(m[a], m[b]);
}

template <class T>
void TezMatrix33<T>::SwapColumn(int a, int b)
{
    for (int i = 0; i < 3; ++i)
        std::swap(m[i][a], m[i][b]);
}

template <class T>
void TezMatrix33<T>::ScaleRow(T s, int r)
{
    m[r] *= s;
}

template <class T>
void TezMatrix33<T>::AddScaledRow(T s, int from, int to)
{
    m[to] += m[from] * s;
}

// ---------------------------------------------------------------- 4x4

template <class T>
TezMatrix44<T> TezMatrix44<T>::operator/(T s) const
{
    if (tez_detail::AbsD(s) < tez_detail::kEpsilon) {
        const T inf = tez_detail::Infinity<T>();
        const TezVector4<T> r(inf, inf, inf, inf);
        return TezMatrix44(r, r, r, r);
    }
    TezMatrix44 r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = m[i][j] / s;
    return r;
}

template <class T>
bool TezMatrix44<T>::operator==(const TezMatrix44& o) const
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (!tez_detail::Near(m[i][j], o.m[i][j]))
                return false;
    return true;
}

template <class T>
T TezMatrix44<T>::Determinant() const
{
    // Cofactor expansion along the first stored row.
    T det = T(0);
    for (int c = 0; c < 4; ++c) {
        T minor[9];
        int k = 0;
        for (int i = 1; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                if (j != c)
                    minor[k++] = m[i][j];
        const T d = Det3(minor[0], minor[1], minor[2], minor[3], minor[4], minor[5], minor[6], minor[7], minor[8]);
        det += (c % 2 == 0 ? m[0][c] : static_cast<T>(-m[0][c])) * d;
    }
    return det;
}

template <class T>
TezMatrix44<T> TezMatrix44<T>::Transpose() const
{
    TezMatrix44 r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = m[j][i];
    return r;
}

template <class T>
TezMatrix44<T> TezMatrix44<T>::Inverse() const
{
    T a[16], r[16], det, piv;
    int swaps[4];
    Array(a);
    tez_detail::GaussJordan<4>(4, a, r, det, piv, swaps);
    TezMatrix44 out;
    out.FromArray(r);
    return out;
}

template <class T>
TezMatrix44<T> TezMatrix44<T>::ExtractRotation() const
{
    TezMatrix44 r = Identity44<T>();
    for (int i = 0; i < 3; ++i) {
        TezVector3<T> v(m[i][0], m[i][1], m[i][2]);
        v.Normalize();
        r.m[i][0] = v.x;
        r.m[i][1] = v.y;
        r.m[i][2] = v.z;
    }
    return r;
}

template <class T>
TezMatrix44<T> TezMatrix44<T>::FromRotationMatrix(const TezMatrix33<T>& rot)
{
    TezMatrix44 r = Identity44<T>();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i][j] = rot.m[i][j];
    return r;
}

template <class T>
void TezMatrix44<T>::Array(T* out) const
{
    if (!out)
        return;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            out[i * 4 + j] = m[i][j];
}

template <class T>
void TezMatrix44<T>::FromArray(const T* in)
{
    if (!in)
        return;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            m[i][j] = in[i * 4 + j];
}

template <class T>
void TezMatrix44<T>::SwapRow(int a, int b)
{
    std::swap(m[a], m[b]);
}

template <class T>
void TezMatrix44<T>::SwapColumn(int a, int b)
{
    for (int i = 0; i < 4; ++i)
        std::swap(m[i][a], m[i][b]);
}

template <class T>
void TezMatrix44<T>::ScaleRow(T s, int r)
{
    m[r] *= s;
}

template <class T>
void TezMatrix44<T>::AddScaledRow(T s, int from, int to)
{
    m[to] += m[from] * s;
}

// ---------------------------------------------------------------- makers

template <class T>
TezMatrix44<T> TezIdentityTransform()
{
    return Identity44<T>();
}

template <class T>
TezMatrix44<T> TezZeroMatrix()
{
    const TezVector4<T> z(0, 0, 0, 0);
    return TezMatrix44<T>(z, z, z, z);
}

template <class T>
TezMatrix44<T> TezScaleTransform(T s)
{
    TezMatrix44<T> r = Identity44<T>();
    r.m[0][0] = r.m[1][1] = r.m[2][2] = s;
    return r;
}

template <class T>
TezMatrix44<T> TezAnisotropicTransform(const TezVector3<T>& s)
{
    TezMatrix44<T> r = Identity44<T>();
    r.m[0][0] = s.x;
    r.m[1][1] = s.y;
    r.m[2][2] = s.z;
    return r;
}

template <class T>
TezMatrix44<T> TezTranslationTransform(const TezVector3<T>& t)
{
    TezMatrix44<T> r = Identity44<T>();
    r.m[3][0] = t.x;
    r.m[3][1] = t.y;
    r.m[3][2] = t.z;
    return r;
}

template <class T>
TezMatrix44<T> TezRotationAboutX(T angle)
{
    const T c = static_cast<T>(std::cos(static_cast<double>(angle)));
    const T s = static_cast<T>(std::sin(static_cast<double>(angle)));
    TezMatrix44<T> r = Identity44<T>();
    r.m[1][1] = r.m[2][2] = c;
    r.m[1][2] = s;
    r.m[2][1] = -s;
    return r;
}

template <class T>
TezMatrix44<T> TezRotationAboutY(T angle)
{
    const T c = static_cast<T>(std::cos(static_cast<double>(angle)));
    const T s = static_cast<T>(std::sin(static_cast<double>(angle)));
    TezMatrix44<T> r = Identity44<T>();
    r.m[0][0] = r.m[2][2] = c;
    r.m[0][2] = -s;
    r.m[2][0] = s;
    return r;
}

template <class T>
TezMatrix44<T> TezRotationAboutZ(T angle)
{
    const T c = static_cast<T>(std::cos(static_cast<double>(angle)));
    const T s = static_cast<T>(std::sin(static_cast<double>(angle)));
    TezMatrix44<T> r = Identity44<T>();
    r.m[0][0] = r.m[1][1] = c;
    r.m[0][1] = s;
    r.m[1][0] = -s;
    return r;
}

namespace {

// Fills the upper-left 3x3 of any matrix with m[i][j] indexing.
template <class M, class T>
void FillAxisRotation(M& r, TezVector3<T> axis, T angle)
{
    axis.Normalize();
    const T c = static_cast<T>(std::cos(static_cast<double>(angle)));
    const T s = static_cast<T>(std::sin(static_cast<double>(angle)));
    const T t = T(1) - c;
    const T x = axis.x, y = axis.y, z = axis.z;
    r.m[0][0] = t * x * x + c;
    r.m[1][1] = t * y * y + c;
    r.m[2][2] = t * z * z + c;
    r.m[0][1] = t * x * y + s * z;
    r.m[1][0] = t * x * y - s * z;
    r.m[0][2] = t * x * z - s * y;
    r.m[2][0] = t * x * z + s * y;
    r.m[1][2] = t * y * z + s * x;
    r.m[2][1] = t * y * z - s * x;
}

} // namespace

template <class T>
TezMatrix44<T> TezRotationTransform(T angle, const TezVector3<T>& axis)
{
    TezMatrix44<T> r = Identity44<T>();
    FillAxisRotation(r, axis, angle);
    return r;
}

template <class T>
TezMatrix33<T> TezRotationAboutAxisAndAngle(const TezVector3<T>& axis, T angle)
{
    TezMatrix33<T> r;
    FillAxisRotation(r, axis, angle);
    return r;
}

template class TezMatrix33<int>;
template class TezMatrix33<float>;
template class TezMatrix33<double>;
template class TezMatrix44<int>;
template class TezMatrix44<float>;
template class TezMatrix44<double>;

#define TEZ_INSTANTIATE_MAKERS(T)                                                                                      \
    template TEZ_API TezMatrix44<T> TezIdentityTransform<T>();                                                         \
    template TEZ_API TezMatrix44<T> TezZeroMatrix<T>();                                                                \
    template TEZ_API TezMatrix44<T> TezScaleTransform<T>(T);                                                           \
    template TEZ_API TezMatrix44<T> TezAnisotropicTransform<T>(const TezVector3<T>&);                                  \
    template TEZ_API TezMatrix44<T> TezTranslationTransform<T>(const TezVector3<T>&);
TEZ_INSTANTIATE_MAKERS(int)
TEZ_INSTANTIATE_MAKERS(float)
TEZ_INSTANTIATE_MAKERS(double)

#define TEZ_INSTANTIATE_ROTATIONS(T)                                                                                   \
    template TEZ_API TezMatrix44<T> TezRotationAboutX<T>(T);                                                           \
    template TEZ_API TezMatrix44<T> TezRotationAboutY<T>(T);                                                           \
    template TEZ_API TezMatrix44<T> TezRotationAboutZ<T>(T);                                                           \
    template TEZ_API TezMatrix44<T> TezRotationTransform<T>(T, const TezVector3<T>&);                                  \
    template TEZ_API TezMatrix33<T> TezRotationAboutAxisAndAngle<T>(const TezVector3<T>&, T);
TEZ_INSTANTIATE_ROTATIONS(float)
TEZ_INSTANTIATE_ROTATIONS(double)
