#include "math/Quaternion.h"
#include "math/Constants.h"

#include <gtest/gtest.h>

#include <random>

using Q = TezQuaternion<double>;
using V = TezVector3<double>;

TEST(Quaternion, ConstructionAndMatrixAgree)
{
    EXPECT_EQ(Q(), Q(1, 0, 0, 0));
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> d(-1, 1);
    for (int n = 0; n < 50; ++n) {
        const V axis = V(d(rng), d(rng), d(rng)).Normalized();
        const double angle = 3 * d(rng);
        const Q q(angle, axis);
        const V v(d(rng), d(rng), d(rng));
        // Rotation by the quaternion and by its matrix agree with the axis-angle matrix.
        EXPECT_EQ(q * v, q.Matrix() * v);
        EXPECT_EQ(q * v, TezRotationAboutAxisAndAngle(axis, angle) * v);
        // Back from the matrix, up to sign.
        const Q r(q.Matrix());
        EXPECT_TRUE(r == q || r == -q);
        // Hamilton product composes rotations: (a ^ b) rotates by b first.
        const Q b(0.4, V(0, 0, 1));
        EXPECT_EQ((q ^ b) * v, q * (b * v));
    }
    // The trace <= 0 branch: half turns about each axis.
    for (int i = 0; i < 3; ++i) {
        V axis(0, 0, 0);
        axis[i] = 1;
        const Q q(TezPi, axis);
        const Q r(q.Matrix());
        EXPECT_TRUE(r == q || r == -q);
    }
}

TEST(Quaternion, DegenerateRules)
{
    const Q inf = Q(1, 2, 3, 4) / -1.0;
    EXPECT_EQ(inf.w, 1e30);
    Q small(1e-7, 0, 0, 0);
    EXPECT_DOUBLE_EQ(small.Normalize(), 1e-7);
    EXPECT_EQ(small.w, 1e-7);
    // Matrix() of a non-unit quaternion uses a normalised copy.
    EXPECT_EQ((Q(0.5, V(1, 0, 0)) * 3.0).Matrix() * V(0, 1, 0), Q(0.5, V(1, 0, 0)) * V(0, 1, 0));
    EXPECT_EQ(Q(2, 0, 0, 0).Axis(), V(0, 0, 0));
}

TEST(Quaternion, AngleIsExactOnlyAtIdentityAndHalfTurn)
{
    EXPECT_NEAR(Q(TezPi, V(0, 1, 0)).Angle(), TezPi, 1e-12);
    EXPECT_NEAR(Q().Angle(), 0.0, 1e-12);
    // In between it follows atan2(2 w l, w^2 - l^2) with l = 1.
    const Q q(TezPi / 2, V(0, 0, 1));
    EXPECT_NEAR(q.Angle(), std::atan2(2 * q.w, q.w * q.w - 1), 1e-12);
    EXPECT_GT(std::abs(q.Angle() - TezPi / 2), 0.1);
}

TEST(Quaternion, ShortestArc)
{
    const V x(1, 0, 0), y(0, 1, 0);
    EXPECT_EQ(TezCalculateShortestArc(x, x, V(0, 0, 0)), Q());
    EXPECT_EQ(TezCalculateShortestArc(x, y, V(0, 0, 0)) * x, y);
    // Opposed: (1,0,0) x from vanishes, so (0,1,0) x from = -z is the axis.
    const Q h = TezCalculateShortestArc(x, -x, V(0, 0, 0));
    EXPECT_EQ(h, Q(TezPi, V(0, 0, -1)));
    EXPECT_EQ(h * x, -x);
    EXPECT_EQ(TezCalculateShortestArc(x, -x, y), Q(TezPi, y));
    const TezVector3<float> a(0, 0.6f, 0.8f), b(0.8f, 0, -0.6f);
    const TezVector3<float> r = TezCalculateShortestArc(a, b, TezVector3<float>(0, 0, 0)) * a;
    EXPECT_NEAR((r - b).Length(), 0.0f, 1e-6f);
}

TEST(Quaternion, Slerp)
{
    const Q a, b(1.0, V(0, 0, 1));
    EXPECT_EQ(TezQuaternionSlerp(0.5, a, b, true), Q(0.5, V(0, 0, 1)));
    EXPECT_EQ(TezQuaternionSlerp(0.0, a, b, true), a);
    // Negative dot product: shortest flips b, otherwise the long way round.
    const Q nb = -b;
    EXPECT_EQ(TezQuaternionSlerp(0.5, a, nb, true), Q(0.5, V(0, 0, 1)));
    const Q longWay = TezQuaternionSlerp(0.5, a, nb, false);
    EXPECT_NEAR(longWay * a, std::cos((TezPi - 0.5) / 2), 1e-12);
    // Nearly equal inputs take the normalised linear form.
    const Q c(1e-7, V(0, 0, 1));
    const Q l = TezQuaternionSlerp(0.5, a, c, true);
    EXPECT_NEAR(l.Length(), 1.0, 1e-15);
    EXPECT_EQ(l, Q(5e-8, V(0, 0, 1)));
}
