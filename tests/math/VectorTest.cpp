#include "math/Vector.h"
#include "math/Constants.h"

#include <gtest/gtest.h>

TEST(Vector, DivisionBySmallNumbersGivesInfinity)
{
    const TezVector3<double> a = TezVector3<double>(1, 2, 3) / 0.0;
    EXPECT_EQ(a.x, 1e30);
    EXPECT_EQ(a.z, 1e30);
    // A negative divisor divides normally for the 3-vector ...
    const TezVector3<float> b = TezVector3<float>(1, 2, 3) / -2.0f;
    EXPECT_FLOAT_EQ(b.y, -1.0f);
    // ... and gives infinity for the 2- and 4-vectors.
    const TezVector2<double> c = TezVector2<double>(1, 2) / -2.0;
    EXPECT_EQ(c.x, 1e30);
    EXPECT_EQ(c.y, 1e30);
    TezVector4<float> d(1, 2, 3, 4);
    d /= 5e-7f;
    EXPECT_EQ(d.w, 1e30f);
    // Tiny but nonzero divisor for the 3-vector still divides.
    EXPECT_FLOAT_EQ((TezVector3<float>(1, 0, 0) / 1e-8f).x, 1e8f);
}

TEST(Vector, NormalizeLeavesShortVectorsAlone)
{
    TezVector3<double> v(1e-7, 0, 0);
    EXPECT_DOUBLE_EQ(v.Normalize(), 1e-7);
    EXPECT_DOUBLE_EQ(v.x, 1e-7);
    TezVector3<float> w(3, 0, 4);
    EXPECT_FLOAT_EQ(w.Normalize(), 5.0f);
    EXPECT_FLOAT_EQ(w.x, 0.6f);
    TezVector4<double> q(0, 0, 0, 2);
    EXPECT_DOUBLE_EQ(q.Normalize(), 2.0);
    EXPECT_DOUBLE_EQ(q.w, 1.0);
}

TEST(Vector, EqualityUsesAbsoluteTolerance)
{
    EXPECT_EQ(TezVector3<double>(1, 2, 3), TezVector3<double>(1 + 9e-7, 2, 3));
    EXPECT_NE(TezVector3<double>(1, 2, 3), TezVector3<double>(1 + 2e-6, 2, 3));
    // The tolerance does not scale with magnitude.
    EXPECT_NE(TezVector2<float>(1e8f, 0), TezVector2<float>(1e8f + 8.0f, 0));
    EXPECT_EQ(TezVector4<unsigned char>(1, 2, 3, 4), TezVector4<unsigned char>(1, 2, 3, 4));
    EXPECT_NE(TezVector4<unsigned char>(1, 2, 3, 4), TezVector4<unsigned char>(1, 2, 3, 5));
}

TEST(Vector, LexicographicOrder)
{
    using V = TezVector3<int>;
    EXPECT_TRUE(V(1, 9, 9) < V(2, 0, 0));
    EXPECT_TRUE(V(1, 2, 3) <= V(1, 2, 3));
    EXPECT_FALSE(V(1, 2, 3) < V(1, 2, 3));
    EXPECT_TRUE(V(1, 3, 0) > V(1, 2, 9));
    EXPECT_TRUE(TezVector4<int>(1, 2, 3, 4) >= TezVector4<int>(1, 2, 3, 4));
    EXPECT_FALSE(TezVector2<int>(1, 2) > TezVector2<int>(1, 2));
}

TEST(Vector, ProductsAndHelpers)
{
    const TezVector3<double> x(1, 0, 0), y(0, 1, 0);
    EXPECT_EQ(x ^ y, TezVector3<double>(0, 0, 1));
    EXPECT_DOUBLE_EQ(TezVector3<double>(1, 2, 3) * TezVector3<double>(4, 5, 6), 32.0);
    EXPECT_DOUBLE_EQ(TezVector3<double>(1, -2, 3).absDotProduct(TezVector3<double>(4, 5, -6)), 32.0);
    EXPECT_EQ(TezVector3<int>(3, -3, 1).Longest(), 0);
    EXPECT_EQ(TezVector3<int>(1, -3, 3).Longest(), 1);
    EXPECT_EQ(TezVector2<int>(2, 5).Perpendicular(), TezVector2<int>(-5, 2));
    // Perpendicular of the x axis falls back to x cross y.
    EXPECT_EQ(TezXAxisd.Perpendicular(), TezVector3<double>(0, 0, 1));
    const TezVector3<float> p = TezVector3<float>(1, 2, 3).Perpendicular();
    EXPECT_NEAR(p * TezVector3<float>(1, 2, 3), 0.0f, 1e-6f);
    EXPECT_NEAR(p.Length(), 1.0f, 1e-6f);
    // Contiguous storage through the pointer conversion.
    TezVector4<float> v(1, 2, 3, 4);
    const float* a = v;
    EXPECT_EQ(a[3], 4.0f);
    // Any integer type indexes without clashing with the pointer conversion.
    const size_t two = 2;
    EXPECT_EQ(v[two], 3.0f);
    EXPECT_EQ(TezVector3<int>(4, 5, 6)[1u], 5);
    EXPECT_EQ(TezVector2<double>(7, 8)[long(1)], 8.0);
}

TEST(Constants, Values)
{
    EXPECT_EQ(TezInfinity, 1e30);
    EXPECT_EQ(TezInfinityf, 1e30f);
    EXPECT_EQ(TezEpsilonf, 1e-6f);
    EXPECT_DOUBLE_EQ(TezGolden * TezGolden, TezGolden + 1.0);
    EXPECT_EQ(TezZAxisf, TezXAxisf ^ TezYAxisf);
}
