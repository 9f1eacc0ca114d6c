#include "math/Matrix.h"
#include "math/Constants.h"

#include <gtest/gtest.h>

#include <random>

namespace {

TezMatrix44<double> RandomMatrix(std::mt19937& rng)
{
    std::uniform_real_distribution<double> d(-1, 1);
    TezMatrix44<double> m;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            m[i][j] = d(rng);
    return m;
}

} // namespace

TEST(Matrix, StorageAndMultiplicationOrder)
{
    const TezMatrix44<double> t = TezTranslationTransform(TezVector3<double>(1, 2, 3));
    EXPECT_EQ(t[3][0], 1.0);
    EXPECT_EQ(t[3][2], 3.0);
    double a[16];
    t.Array(a);
    EXPECT_EQ(a[12], 1.0);
    EXPECT_EQ(a[14], 3.0);
    t.Array(nullptr);

    // Right-hand matrix acts first: translate after scaling.
    const TezMatrix44<double> s = TezScaleTransform(2.0);
    const TezVector3<double> p(1, 1, 1);
    EXPECT_EQ((t * s) * p, TezVector3<double>(3, 4, 5));
    EXPECT_EQ(t * (s * p), TezVector3<double>(3, 4, 5));
    EXPECT_EQ((s * t) * p, TezVector3<double>(4, 6, 8));

    // Vector3 product does not divide by w.
    TezMatrix44<double> proj = TezIdentityTransform<double>();
    proj[0][3] = 1;
    EXPECT_EQ(proj * TezVector3<double>(2, 0, 0), TezVector3<double>(2, 0, 0));
    EXPECT_EQ(proj * TezVector4<double>(2, 0, 0, 1), TezVector4<double>(2, 0, 0, 3));

    std::mt19937 rng(7);
    for (int n = 0; n < 20; ++n) {
        const TezMatrix44<double> A = RandomMatrix(rng), B = RandomMatrix(rng);
        const TezVector4<double> v(0.3, -0.2, 0.7, 1.1);
        EXPECT_EQ((A * B) * v, A * (B * v));
    }
}

TEST(Matrix, RotationsAreRightHanded)
{
    const TezVector3<double> x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    EXPECT_EQ(TezRotationAboutZ(TezPi / 2) * x, y);
    EXPECT_EQ(TezRotationAboutX(TezPi / 2) * y, z);
    EXPECT_EQ(TezRotationAboutY(TezPi / 2) * z, x);
    // Axis form normalises the axis and agrees with the named rotations.
    EXPECT_EQ(TezRotationTransform(0.3, TezVector3<double>(0, 0, 5)), TezRotationAboutZ(0.3));
    const TezMatrix33<double> r = TezRotationAboutAxisAndAngle(TezVector3<double>(2, 0, 0), 0.4);
    const TezMatrix44<double> rx = TezRotationAboutX(0.4);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(r[i][j], rx[i][j], 1e-15);
    EXPECT_EQ(TezMatrix44<double>::FromRotationMatrix(r), rx);
    EXPECT_NEAR(rx.Determinant(), 1.0, 1e-12);
}

TEST(Matrix, DeliberateComparisonRules)
{
    TezMatrix33<float> a(TezVector3<float>(1, 2, 3), TezVector3<float>(4, 5, 6), TezVector3<float>(7, 8, 9));
    TezMatrix33<float> b = a * 10.0f;
    b[1][1] = 5;
    EXPECT_TRUE(a == b); // one agreeing element is enough
    b[1][1] = 6;
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(TezIdentityTransform<double>().IsIdentity());
    EXPECT_FALSE(TezIdentityTransform<int>().IsIdentity());
    TezMatrix44<double> c = TezIdentityTransform<double>();
    c[2][3] = 5e-7;
    EXPECT_EQ(c, TezIdentityTransform<double>());
    c[2][3] = 2e-6;
    EXPECT_NE(c, TezIdentityTransform<double>());
}

TEST(Matrix, DivisionAndRowOperations)
{
    const TezMatrix44<double> d = TezIdentityTransform<double>() / -5e-7;
    EXPECT_EQ(d[2][1], 1e30);
    EXPECT_EQ((TezIdentityTransform<double>() / -2.0)[0][0], -0.5);
    EXPECT_EQ((TezMatrix33<float>(TezXAxisf, TezYAxisf, TezZAxisf) / 0.0f)[0][0], 1e30f);

    TezMatrix44<int> m = TezIdentityTransform<int>();
    m.AddScaledRow(3, 0, 2);
    EXPECT_EQ(m[2], TezVector4<int>(3, 0, 1, 0));
    m.SwapColumn(0, 2);
    EXPECT_EQ(m[2], TezVector4<int>(1, 0, 3, 0));
    m.SwapRow(0, 2);
    EXPECT_EQ(m[0], TezVector4<int>(1, 0, 3, 0));
    m.ScaleRow(2, 1);
    EXPECT_EQ(m[1][1], 2);
    TezMatrix44<int> n;
    int arr[16];
    m.Array(arr);
    n.FromArray(arr);
    EXPECT_EQ(n, m);
}

TEST(Matrix, InverseAndDeterminant)
{
    std::mt19937 rng(11);
    for (int n = 0; n < 50; ++n) {
        const TezMatrix44<double> a = RandomMatrix(rng);
        const TezMatrix44<double> p = a * a.Inverse();
        EXPECT_EQ(p, TezIdentityTransform<double>());
        EXPECT_EQ(a.Inverse() * a, TezIdentityTransform<double>());
        EXPECT_NEAR(a.Determinant() * a.Inverse().Determinant(), 1.0, 1e-9);
        EXPECT_EQ(a.Transpose().Transpose(), a);
    }
    // Float inverse of an affine transform.
    const TezMatrix44<float> t =
        TezTranslationTransform(TezVector3<float>(1, 2, 3)) * TezRotationAboutY(0.5f) * TezScaleTransform(2.0f);
    const TezVector3<float> q = t.Inverse() * (t * TezVector3<float>(0.2f, 0.3f, 0.4f));
    EXPECT_NEAR(q.x, 0.2f, 1e-6f);
    EXPECT_NEAR(q.z, 0.4f, 1e-6f);

    TezMatrix33<double> m(TezVector3<double>(2, 0, 1), TezVector3<double>(1, 3, 0), TezVector3<double>(0, 1, 4));
    const TezMatrix33<double> mi = m.Inverse() * m;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(mi[i][j], i == j ? 1.0 : 0.0, 1e-12);
    EXPECT_DOUBLE_EQ(m.Determinant(), 2 * 12 - 0 + 1 * (1 - 0) * 1.0);
}

TEST(Matrix, ExtractRotationNormalisesEachRowAlone)
{
    TezMatrix44<double> m = TezRotationAboutZ(0.7) * TezAnisotropicTransform(TezVector3<double>(2, 3, 4));
    m[3][0] = 9;
    EXPECT_EQ(m.ExtractRotation(), TezRotationAboutZ(0.7));
}
