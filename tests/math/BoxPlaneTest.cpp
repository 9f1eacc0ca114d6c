#include "math/Box.h"
#include "math/Constants.h"
#include "math/Distance.h"
#include "math/Plane.h"
#include "math/Ray.h"

#include <gtest/gtest.h>

using B = TezBox3<double>;
using V = TezVector3<double>;

TEST(Box, EmptyBoxRules)
{
    const B e;
    EXPECT_TRUE(e.Empty());
    EXPECT_EQ(e.Middle(), V(1e30, 1e30, 1e30));
    EXPECT_EQ(e.Center(), V(0, 0, 0));
    EXPECT_EQ(e.Extents(), V(0, 0, 0));
    EXPECT_EQ(e.Length().x, -2e30);
    EXPECT_EQ(e.MaxLength(), 0.0);
    B g = e;
    g.Grow(1);
    EXPECT_TRUE(g.Empty());
    B c(V(0, 0, 0), V(1, 1, 1));
    EXPECT_TRUE(c.Contains(e));
    EXPECT_TRUE(c.FuzzyContains(e, 0));
    c += e;
    EXPECT_EQ(c, B(V(0, 0, 0), V(1, 1, 1)));
    // Adding a point starts an empty box.
    B p;
    p += V(1, 2, 3);
    EXPECT_FALSE(p.Empty());
    EXPECT_EQ(p.Middle(), V(1, 2, 3));
    const TezMatrix44<double> t = TezTranslationTransform(V(1, 0, 0));
    EXPECT_TRUE((t * e).Empty());

    TezBox2<float> b2;
    EXPECT_TRUE(b2.Empty());
    EXPECT_EQ(b2.Middle().x, 1e30f);
    b2 += TezVector2<float>(1, 2);
    b2 += TezVector2<float>(3, -2);
    EXPECT_EQ(b2.Extents(), TezVector2<float>(2, 4));
    EXPECT_EQ(b2.Corner(true, false), TezVector2<float>(3, -2));
    TezBox3<int> bi;
    EXPECT_TRUE(bi.Empty());
}

TEST(Box, ContainmentAndOverlap)
{
    const B b(V(0, 0, 0), V(2, 4, 6));
    EXPECT_TRUE(b.Contains(V(2, 4, 6)));
    EXPECT_FALSE(b.Contains(V(2, 4, 6.001)));
    EXPECT_TRUE(b.FuzzyContains(V(2.1, 4, 6), 0.1 + 1e-12));
    EXPECT_TRUE(b.ContainsSphere(V(1, 2, 3), 0.9));
    EXPECT_FALSE(b.ContainsSphere(V(1, 2, 3), 1.0));    // strict
    EXPECT_TRUE(b.Overlaps(B(V(2, 4, 6), V(3, 5, 7)))); // touching
    EXPECT_FALSE(b.Overlaps(B(V(2.01, 0, 0), V(3, 5, 7))));
    EXPECT_TRUE(b.OverlapsSphere(V(3, 2, 3), 1.01));
    EXPECT_FALSE(b.OverlapsSphere(V(3, 2, 3), 1.0));
    EXPECT_EQ(b.Closest(V(-1, 2, 9)), V(0, 2, 6));
    EXPECT_EQ(b.Farthest(V(1.5, 2, -1)), V(0, 0, 6)); // tie on y takes the minimum
    EXPECT_EQ(b.Corner(true, false, true), V(2, 0, 6));
    EXPECT_EQ(b.Length(1), 4.0);
    EXPECT_EQ(b.MinLength(), 2.0);
    B g = b;
    g.Grow(1, 0, 2);
    EXPECT_EQ(g, B(V(-1, 0, -2), V(3, 4, 8)));
}

TEST(Box, TwoWaysOfTransforming)
{
    const B b(V(0, 0, 0), V(1, 1, 1));
    // Scale with mirroring: both ways agree.
    const TezMatrix44<double> s = TezAnisotropicTransform(V(-2, 1, 3));
    B tg = b;
    tg.TransformGeometry(s);
    EXPECT_EQ(tg, B(V(-2, 0, 0), V(0, 1, 3)));
    EXPECT_EQ(s * b, tg);
    // Rotation: only the eight-corner form bounds the rotated box.
    const TezMatrix44<double> r = TezRotationAboutZ(TezPi / 4);
    B rg = b;
    rg.TransformGeometry(r);
    const B rb = r * b;
    EXPECT_NEAR(rb.Extents().x, std::sqrt(2.0), 1e-12);
    EXPECT_NEAR(rg.Extents().x, 0.0, 1e-12);
}

TEST(Plane, FrameAndProjection)
{
    const TezPlane<double> d;
    EXPECT_EQ(d.GetNormal(), V(0, 0, 1));
    EXPECT_EQ(d.GetUDirection(), V(1, 0, 0));

    const TezPlane<double> p(V(1, 1, 1), V(0, 0, 2));
    EXPECT_EQ(p.GetNormal(), V(0, 0, 2)); // stored as given
    EXPECT_EQ(p.GetUDirection(), V(1, 0, 0));
    EXPECT_EQ(p.GetVDirection(), V(0, 2, 0));
    EXPECT_DOUBLE_EQ(p.Distance(V(5, 5, 3)), 4.0); // not divided by |n|
    EXPECT_FALSE(p.IsInside(V(0, 0, 0)));

    const TezPlane<double> y(V(0, 0, 0), V(0, 1, 0)); // Y x n vanishes
    EXPECT_EQ(y.GetUDirection(), V(0, 0, 1));
    EXPECT_EQ(y.GetVDirection(), V(1, 0, 0));

    const TezPlane<double> q(V(1, 0, 0), V(3, 0, 0), V(1, 5, 0));
    EXPECT_EQ(q.GetUDirection(), V(1, 0, 0));
    EXPECT_EQ(q.GetNormal(), V(0, 0, 1));
    EXPECT_EQ(q.Project(V(2, 3, 7)), TezVector2<double>(1, 3));
    EXPECT_EQ(q.ProjectPoint(V(2, 3, 7)), V(2, 3, 0));
    EXPECT_EQ(q.EvaluateVector(TezVector2<double>(1, 3)), V(1, 3, 0));

    double m[16];
    p.GetTransform(m);
    TezMatrix44<double> t;
    t.FromArray(m);
    EXPECT_EQ(t * V(1, 0, 0), p.Evaluate(TezVector2<double>(1, 0)));
    EXPECT_EQ(m[15], 1.0);
    EXPECT_EQ(m[3], 0.0);
}

TEST(Distance, LinesAndBoxesOnRays)
{
    EXPECT_DOUBLE_EQ(TezDistancePointLine(V(0, 3, 0), V(-1, 0, 0), V(5, 0, 0)), 3.0);
    const B b(V(2, -1, -1), V(4, 1, 1));
    EXPECT_DOUBLE_EQ(TezMinDistBoxOnRay(V(0, 0, 0), V(1, 0, 0), b), 2.0);
    EXPECT_DOUBLE_EQ(TezMaxDistBoxOnRay(V(0, 0, 0), V(1, 0, 0), b), 4.0);
    const V diag = V(1, 1, 0).Normalized();
    // Middle at 3/sqrt2 along the diagonal, half span (2 + 2) / 2 / sqrt2.
    EXPECT_NEAR(TezMinDistBoxOnRay(V(0, 0, 0), diag, b), 1 / std::sqrt(2.0), 1e-12);

    const TezRay r(TezVector3<float>(1, 0, 0), TezVector3<float>(0, 2, 0));
    EXPECT_EQ(r.PointOnRay(1.5f), TezVector3<float>(1, 3, 0));
}
