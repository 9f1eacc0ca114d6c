#include "math/Intersect.h"
#include "math/Minimization.h"
#include "math/Solids.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using Vf = TezVector3<float>;
using Vd = TezVector3<double>;

TEST(Intersect, LineSphere)
{
    TezVector2<double> t;
    EXPECT_EQ(TezIntersect(Vd(-5, 0, 0), Vd(1, 0, 0), Vd(0, 0, 0), 2.0, t, 1e-9), 2);
    EXPECT_DOUBLE_EQ(t[0], 3.0);
    EXPECT_DOUBLE_EQ(t[1], 7.0);
    // Tangent: x = 0 is below the tolerance.
    EXPECT_EQ(TezIntersect(Vd(-5, 2, 0), Vd(1, 0, 0), Vd(0, 0, 0), 2.0, t, 1e-9), 1);
    EXPECT_DOUBLE_EQ(t[0], 5.0);
    EXPECT_EQ(TezIntersect(Vd(-5, 2.1, 0), Vd(1, 0, 0), Vd(0, 0, 0), 2.0, t, 1e-9), 0);
    // Far hit from inside.
    const TezRay r(Vf(0.5f, 0, 0), Vf(0, 1, 0));
    const Vf far = TezIntersect(r, Vf(0, 0, 0), 1.0f);
    EXPECT_NEAR(far.y, std::sqrt(0.75f), 1e-6f);
}

TEST(Intersect, RayBoxAndPlane)
{
    const TezBox3<float> b(Vf(0, 0, 0), Vf(1, 1, 1));
    TezVector2<float> t;
    EXPECT_TRUE(TezIntersect(TezRay(Vf(-1, 0.5f, 0.5f), Vf(1, 0, 0)), b, t, 0));
    EXPECT_FLOAT_EQ(t[0], 1);
    EXPECT_FLOAT_EQ(t[1], 2);
    EXPECT_TRUE(TezIntersect(TezRay(Vf(0.5f, 0.5f, 0.5f), Vf(0, 0, 1)), b, t, 0));
    EXPECT_LT(t[0], 0);                                                                // starts inside
    EXPECT_FALSE(TezIntersect(TezRay(Vf(2, 0.5f, 0.5f), Vf(1, 0, 0)), b, t, 0));       // box behind
    EXPECT_FALSE(TezIntersect(TezRay(Vf(-1, 1.05f, 0.5f), Vf(1, 0, 0)), b, t, 0.01f)); // parallel, outside
    EXPECT_TRUE(TezIntersect(TezRay(Vf(-1, 1.05f, 0.5f), Vf(1, 0, 0)), b, t, 0.1f));
    EXPECT_TRUE(TezIntersect(TezRay(Vf(-1, -1, -1), Vf(1, 1, 1)), b, t, 0));
    EXPECT_FALSE(TezIntersect(TezRay(Vf(-1, -1, 2.5f), Vf(1, 1, 0)), b, t, 0));

    const TezPlane<float> p(Vf(0, 0, 2), Vf(0, 0, 1));
    float tp = 0;
    EXPECT_FALSE(TezIntersect(TezRay(Vf(0, 0, 2), Vf(1, 0, 0)), p, tp, 1)); // parallel, even in the plane
    EXPECT_TRUE(TezIntersect(TezRay(Vf(0, 0, 0), Vf(0, 0, 2)), p, tp, 0));
    EXPECT_FLOAT_EQ(tp, 1);
    EXPECT_FALSE(TezIntersect(TezRay(Vf(0, 0, 3), Vf(0, 0, 1)), p, tp, 0.5f));
    EXPECT_TRUE(TezIntersect(TezRay(Vf(0, 0, 3), Vf(0, 0, 1)), p, tp, 1.0f));
}

TEST(Intersect, PlaneBoxSection)
{
    const TezBox3<float> b(Vf(0, 0, 0), Vf(1, 1, 1));
    std::vector<Vf> poly;
    EXPECT_FALSE(TezIntersect(TezPlane<float>(Vf(0, 0, 1.5f), Vf(0, 0, 1)), b, poly, 0.1f));
    EXPECT_TRUE(poly.empty());
    EXPECT_TRUE(TezIntersect(TezPlane<float>(Vf(0, 0, 1.05f), Vf(0, 0, 1)), b, 0.1f));
    // Horizontal section: a square.
    ASSERT_TRUE(TezIntersect(TezPlane<float>(Vf(0, 0, 0.5f), Vf(0, 0, 1)), b, poly, 0));
    EXPECT_EQ(poly.size(), 4u);
    // Through the centre normal to the diagonal: a regular hexagon, ordered
    // counter-clockwise about the normal.
    const Vf n = Vf(1, 1, 1).Normalized();
    ASSERT_TRUE(TezIntersect(TezPlane<float>(Vf(0.5f, 0.5f, 0.5f), n), b, poly, 0));
    ASSERT_EQ(poly.size(), 6u);
    for (size_t i = 0; i < poly.size(); ++i) {
        const Vf a = poly[i] - Vf(0.5f, 0.5f, 0.5f), c = poly[(i + 1) % 6] - Vf(0.5f, 0.5f, 0.5f);
        EXPECT_NEAR(a.Length(), std::sqrt(0.5f), 1e-5f);
        EXPECT_GT((a ^ c) * n, 0.0f);
    }
    // Through a corner only.
    ASSERT_TRUE(TezIntersect(TezPlane<float>(Vf(0, 0, 0), n), b, poly, 0));
    EXPECT_EQ(poly.size(), 1u);
}

TEST(Intersect, ClipRegion)
{
    TezClipRegion<float> empty;
    EXPECT_TRUE(empty.IsInside(Vf(1e6f, 0, 0)));
    EXPECT_TRUE(empty.IsInside(TezBox3<float>(Vf(-1, -1, -1), Vf(1, 1, 1))));
    TezClipRegion<float> half;
    half.AddPlane(TezPlane<float>(Vf(0, 0, 0), Vf(1, 0, 0)));
    half.AddPlane(TezPlane<float>(Vf(0, 0, 5), Vf(0, 0, -1)));
    EXPECT_TRUE(half.IsInside(Vf(0, 0, 0)));
    EXPECT_FALSE(half.IsInside(Vf(-0.1f, 0, 0)));
    EXPECT_FALSE(half.IsInside(Vf(1, 0, 6)));
    EXPECT_TRUE(half.IsInside(TezBox3<float>(Vf(-2, 0, 0), Vf(-0.5f + 0.5f, 1, 1)))); // touches x = 0
    EXPECT_FALSE(half.IsInside(TezBox3<float>(Vf(-2, 0, 0), Vf(-0.1f, 1, 1))));
    EXPECT_TRUE(half.IsInside(TezBox3<float>(Vf(-2, 0, 4), Vf(3, 1, 7))));
}

TEST(Intersect, BoxBoxOverlapAgreesWithSampling)
{
    std::mt19937 rng(8);
    std::uniform_real_distribution<double> u(-1, 1), pos(0.1, 1);
    const TezBox3<double> a(Vd(-0.5, -0.3, -0.4), Vd(0.5, 0.3, 0.4));
    int hits = 0, misses = 0;
    for (int n = 0; n < 2000; ++n) {
        const TezBox3<double> b(Vd(0, 0, 0), Vd(pos(rng), pos(rng), pos(rng)) * 0.8);
        const TezMatrix44<double> m = TezTranslationTransform(Vd(u(rng), u(rng), u(rng)) * 1.2) *
                                      TezRotationTransform(3 * u(rng), Vd(u(rng), u(rng), u(rng)));
        bool oracle = false;
        const int k = 8;
        for (int i = 0; i <= k && !oracle; ++i)
            for (int j = 0; j <= k && !oracle; ++j)
                for (int l = 0; l <= k && !oracle; ++l) {
                    const Vd e = b.Extents();
                    oracle = a.Contains(m * Vd(e.x * i / k, e.y * j / k, e.z * l / k));
                }
        const bool sat = TezBoxBoxOverlap(a, b, m);
        if (oracle) {
            EXPECT_TRUE(sat) << n;
        }
        hits += oracle;
        misses += !oracle && !sat;
    }
    EXPECT_GT(hits, 200);
    EXPECT_GT(misses, 200);
    // Edge-edge separation that only a cross-product axis detects.
    const TezBox3<double> unit(Vd(-1, -1, -1), Vd(1, 1, 1));
    const TezMatrix44<double> edge = TezTranslationTransform(Vd(2.1, 2.1, 0)) * TezRotationAboutX(0.7853981633974483) *
                                     TezRotationAboutZ(0.7853981633974483) * TezTranslationTransform(Vd(-1, -1, -1));
    EXPECT_FALSE(TezBoxBoxOverlap(unit, unit, edge));
    const TezMatrix44<float> id = TezIdentityTransform<float>();
    EXPECT_TRUE(
        TezBoxBoxOverlap(TezBox3<float>(Vf(0, 0, 0), Vf(1, 1, 1)), TezBox3<float>(Vf(1, 1, 1), Vf(2, 2, 2)), id));
}

TEST(Intersect, ProjectedPointSequence)
{
    const TezBox3<double> b(Vd(0, 0, 0), Vd(1, 2, 3));
    std::vector<Vd> pts;
    TezGetProjectedPointSequence(b, Vd(0, 0, 1), pts);
    ASSERT_EQ(pts.size(), 4u);
    EXPECT_EQ(pts[0], Vd(0, 0, 0)); // lowest corner index first
    TezGetProjectedPointSequence(b, Vd(1, -1, 1), pts);
    ASSERT_EQ(pts.size(), 6u);
    // Counter-clockwise about the direction, convex, and never the two
    // corners on the viewing diagonal.
    const Vd d = Vd(1, -1, 1).Normalized();
    for (size_t i = 0; i < 6; ++i) {
        const Vd e0 = pts[(i + 1) % 6] - pts[i], e1 = pts[(i + 2) % 6] - pts[(i + 1) % 6];
        EXPECT_GT((e0 ^ e1) * d, 0.0);
        EXPECT_NE(pts[i], Vd(0, 2, 0));
        EXPECT_NE(pts[i], Vd(1, 0, 3));
    }
    TezGetProjectedPointSequence(b, Vd(0, 0, 0), pts);
    EXPECT_TRUE(pts.empty());
}

TEST(Intersect, ClosestLineBoxPointsMatchSearch)
{
    std::mt19937 rng(12);
    std::uniform_real_distribution<double> u(-2, 2);
    const TezBox3<double> b(Vd(-0.5, -1, -0.25), Vd(0.5, 1, 0.25));
    for (int n = 0; n < 300; ++n) {
        const Vd s(u(rng), u(rng), u(rng));
        Vd d(u(rng), u(rng), u(rng));
        if (n % 10 == 0)
            d = Vd(0, 0, 1); // axis-parallel lines
        Vd lp, bp;
        TezGetClosestLineBoxPoints(s, d, b, lp, bp);
        EXPECT_TRUE(b.Contains(bp));
        EXPECT_LT(((lp - s) ^ d).Length(), 1e-9 * d.Length() * (1 + (lp - s).Length()));
        const double got = (lp - bp).Length();
        double best = 1e30;
        for (int i = -4000; i <= 4000; ++i) {
            const Vd p = s + d * (i * 0.002);
            best = std::min(best, (p - b.Closest(p)).Length());
        }
        EXPECT_LE(got, best + 1e-12) << n;
        EXPECT_GT(got, best - 1e-3) << n;
    }
}

TEST(Minimization, Grid2D)
{
    float x, y, v;
    TezGrid2DMinimization(
        9, 9, -3, 3, -3, 3,
        [](float a, float b) {
            return (a - 1.234f) * (a - 1.234f) + 2 * (b + 0.5f) * (b + 0.5f) + 0.25f * std::cos(8 * a);
        },
        x, y, v);
    // Global minimum near (1.17, -0.5) amid ripples.
    float bx = 0, bestV = 1e30f;
    for (int i = 0; i <= 60000; ++i) {
        const float a = -3 + 6.0f * i / 60000;
        const float f = (a - 1.234f) * (a - 1.234f) + 0.25f * std::cos(8 * a);
        if (f < bestV) {
            bestV = f;
            bx = a;
        }
    }
    EXPECT_NEAR(x, bx, 1e-3f);
    EXPECT_NEAR(y, -0.5f, 1e-3f);
    EXPECT_NEAR(v, bestV, 1e-5f);
    EXPECT_THROW(TezGrid2DMinimization(
                     1, 5, 0, 1, 0, 1, [](float, float) { return 0.0f; }, x, y, v),
                 std::runtime_error);
}
