// The precise cone/box tests against a dense sampling oracle: a sampled point
// common to both solids proves overlap, so the tests must then answer true.
#include "math/ConeBox.h"
#include "math/Constants.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

struct Scene
{
    TezMatrix44<double> transform, inverse;
    double height, r0, r1;
    TezBox3<double> box;
};

bool InCone(const Scene& s, const TezVector3<double>& world)
{
    const TezVector3<double> p = s.inverse * world;
    if (p.z < 0 || p.z > s.height)
        return false;
    const double r = s.r0 + (s.r1 - s.r0) * p.z / s.height;
    return p.x * p.x + p.y * p.y <= r * r;
}

// Samples a grid through the box and a grid through the cone's volume.
bool OracleOverlap(const Scene& s)
{
    const int n = 12;
    const TezVector3<double> mn = s.box.GetMinimum(), ext = s.box.Extents();
    for (int i = 0; i <= n; ++i)
        for (int j = 0; j <= n; ++j)
            for (int k = 0; k <= n; ++k)
                if (InCone(s, mn + TezVector3<double>(ext.x * i / n, ext.y * j / n, ext.z * k / n)))
                    return true;
    for (int i = 0; i <= 24; ++i) {
        const double z = s.height * i / 24;
        const double r = s.r0 + (s.r1 - s.r0) * z / s.height;
        for (int j = 0; j <= 6; ++j)
            for (int a = 0; a < 24; ++a) {
                const double phi = 2 * TezPi * a / 24, rr = r * j / 6;
                if (s.box.Contains(s.transform * TezVector3<double>(rr * std::cos(phi), rr * std::sin(phi), z)))
                    return true;
            }
    }
    return false;
}

Scene RandomScene(std::mt19937& rng)
{
    std::uniform_real_distribution<double> u(-1, 1), pos(0.05, 1);
    Scene s;
    const TezVector3<double> axis = TezVector3<double>(u(rng), u(rng), u(rng)).Normalized();
    s.transform = TezTranslationTransform(TezVector3<double>(u(rng), u(rng), u(rng)) * 0.5) *
                  TezRotationTransform(3 * u(rng), axis);
    s.inverse = s.transform.Inverse();
    s.height = 0.2 + 1.5 * pos(rng);
    s.r0 = 0.6 * pos(rng);
    s.r1 = (rng() % 4 == 0) ? 0.0 : 0.6 * pos(rng); // some pointed cones
    const TezVector3<double> c(u(rng), u(rng), u(rng));
    const TezVector3<double> h(0.4 * pos(rng), 0.4 * pos(rng), 0.4 * pos(rng));
    s.box = TezBox3<double>(c - h, c + h);
    return s;
}

} // namespace

TEST(ConeBox, PreciseTestsHaveNoFalseNegatives)
{
    std::mt19937 rng(2024);
    int overlapping = 0, v3Extra = 0, v2Extra = 0, separated = 0;
    for (int n = 0; n < 3000; ++n) {
        const Scene s = RandomScene(rng);
        const bool oracle = OracleOverlap(s);
        const TezVector3<double> mn = s.box.GetMinimum(), ext = s.box.Extents();
        const bool v2 = TezConeBoxOverlapPrecisionV2(s.transform, s.inverse, s.height, s.r0, s.r1, mn, ext);
        const bool v3 = TezConeBoxOverlapPrecisionV3(s.transform, s.inverse, s.height, s.r0, s.r1, mn, ext);
        const bool p = TezConeBoxOverlapPrecision(s.transform, s.inverse, s.height, s.r0, s.r1, s.box);
        EXPECT_EQ(p, v3);
        if (oracle) {
            ++overlapping;
            EXPECT_TRUE(v2) << "V2 false negative in case " << n;
            EXPECT_TRUE(v3) << "V3 false negative in case " << n;
        } else {
            ++separated;
            v3Extra += v3;
            v2Extra += v2;
        }
        // The float instantiation agrees on the clear cases.
        if (oracle) {
            const TezMatrix44<float> tf(TezVector4<float>(s.transform[0]), TezVector4<float>(s.transform[1]),
                                        TezVector4<float>(s.transform[2]), TezVector4<float>(s.transform[3]));
            EXPECT_TRUE(TezConeBoxOverlapPrecisionV3(tf, tf.Inverse(), float(s.height), float(s.r0), float(s.r1),
                                                     TezVector3<float>(mn), TezVector3<float>(ext)));
        }
    }
    // Both kinds of case occur, and the exact test rarely answers true for
    // pairs the grid found apart (only thin overlaps between samples).
    EXPECT_GT(overlapping, 300);
    EXPECT_GT(separated, 300);
    EXPECT_LT(v3Extra, separated / 50);
    EXPECT_LE(v3Extra, v2Extra);
}

TEST(ConeBox, KnownConfigurations)
{
    const TezMatrix44<double> id = TezIdentityTransform<double>();
    const TezVector3<double> e(0.2, 0.2, 0.2);
    // Pointed cone of height 1, base radius 1 at z = 0.
    auto v3 = [&](const TezVector3<double>& mn) { return TezConeBoxOverlapPrecisionV3(id, id, 1.0, 1.0, 0.0, mn, e); };
    auto v2 = [&](const TezVector3<double>& mn) { return TezConeBoxOverlapPrecisionV2(id, id, 1.0, 1.0, 0.0, mn, e); };
    EXPECT_TRUE(v3(TezVector3<double>(-0.1, -0.1, 0.3)));   // on the axis
    EXPECT_FALSE(v3(TezVector3<double>(-0.1, -0.1, 1.05))); // above the tip
    EXPECT_FALSE(v3(TezVector3<double>(-0.1, -0.1, -0.3))); // below the base
    // Near the slanted side: the corner (0.55, 0, 0.55) lies outside the side
    // x + z = 1 by 0.1/sqrt2; moving it in makes them meet.
    EXPECT_FALSE(v3(TezVector3<double>(0.55, -0.1, 0.55)));
    EXPECT_FALSE(v2(TezVector3<double>(0.55, -0.1, 0.55)));
    EXPECT_TRUE(v3(TezVector3<double>(0.45, -0.1, 0.45)));
    EXPECT_TRUE(v2(TezVector3<double>(0.45, -0.1, 0.45)));
    // Box touching the base face from below counts as overlap.
    EXPECT_TRUE(v3(TezVector3<double>(-0.1, -0.1, -0.2)));

    // Approximate test: the box is a sphere of radius MinLength at its centre.
    const TezBox3<double> b(TezVector3<double>(1.05, -0.05, 0.45), TezVector3<double>(1.15, 0.05, 0.55));
    // Centre (1.1, 0, 0.5): cone radius 0.5 there, sphere radius 0.1.
    EXPECT_FALSE(TezConeBoxOverlapApproximate(id, id, 1.0, 1.0, 0.0, b));
    EXPECT_TRUE(TezConeBoxOverlapApproximate(id, id, 1.0, 2.5, 0.0, b)); // radius 1.25 there
    const TezBox3<double> high(TezVector3<double>(-0.05, -0.05, 1.15), TezVector3<double>(0.05, 0.05, 1.25));
    EXPECT_FALSE(TezConeBoxOverlapApproximate(id, id, 1.0, 1.0, 1.0, high));
    // Moved cone: the transform places it, the inverse brings boxes in.
    const TezMatrix44<double> t = TezTranslationTransform(TezVector3<double>(5, 0, 0));
    EXPECT_TRUE(TezConeBoxOverlapPrecisionV3(t, t.Inverse(), 1.0, 1.0, 0.0, TezVector3<double>(4.9, -0.1, 0.3), e));
    EXPECT_FALSE(TezConeBoxOverlapPrecisionV3(t, t.Inverse(), 1.0, 1.0, 0.0, TezVector3<double>(-0.1, -0.1, 0.3), e));
}
