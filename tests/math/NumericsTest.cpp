#include "math/ConvFilter.h"
#include "math/LeastSquares.h"
#include "math/Polynomial.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <random>

namespace {

using C = std::complex<double>;

// Matches every expected root to a distinct computed root.
void ExpectRoots(const TezVector2<double>* got, std::vector<C> want, double tol)
{
    for (size_t i = 0; i < want.size(); ++i) {
        const C g(got[i].x, got[i].y);
        auto it = std::min_element(want.begin(), want.end(),
                                   [&](const C& a, const C& b) { return std::abs(a - g) < std::abs(b - g); });
        EXPECT_LT(std::abs(*it - g), tol) << "root " << g;
        want.erase(it);
    }
}

} // namespace

TEST(Cubic, SpecialCases)
{
    TezVector2<double> r[3];
    double unity[3] = {0, 0, -1};
    ASSERT_TRUE(TezSolveCubic(unity, r));
    EXPECT_DOUBLE_EQ(r[0].x, 1.0);
    EXPECT_DOUBLE_EQ(r[1].x, -0.5);
    EXPECT_NEAR(std::abs(r[1].y), 0.8660254037844386, 1e-15);
    EXPECT_DOUBLE_EQ(r[2].y, -r[1].y);

    double triple[3] = {-3, 3, -1};
    ASSERT_TRUE(TezSolveCubic(triple, r));
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(r[i].x, 1.0, 1e-12);

    // Three real roots: x^3 - 7x + 6 = (x-1)(x-2)(x+3).
    double three[3] = {0, -7, 6};
    ASSERT_TRUE(TezSolveCubic(three, r));
    ExpectRoots(r, {1.0, 2.0, -3.0}, 1e-12);

    // (x-1)(x-2)(x-3) has r = 0: the third root is given as minus the second.
    double sym[3] = {-6, 11, -6};
    ASSERT_TRUE(TezSolveCubic(sym, r));
    EXPECT_NEAR(r[0].x, 2.0, 1e-12);
    EXPECT_NEAR(r[1].x, 3.0, 1e-12);
    EXPECT_NEAR(r[2].x, -3.0, 1e-12);

    double bad[3] = {std::nan(""), 0, 0};
    EXPECT_FALSE(TezSolveCubic(bad, r));
}

TEST(Quartic, RecoversRandomRoots)
{
    std::mt19937 rng(4);
    std::uniform_real_distribution<double> d(-3, 3);
    for (int n = 0; n < 300; ++n) {
        std::vector<C> roots;
        const int pairs = n % 3; // 0, 1 or 2 complex-conjugate pairs
        for (int p = 0; p < pairs; ++p) {
            const C z(d(rng), 0.1 + std::abs(d(rng)));
            roots.push_back(z);
            roots.push_back(std::conj(z));
        }
        while (roots.size() < 4)
            roots.push_back(d(rng));
        // Expand (x - r0)(x - r1)(x - r2)(x - r3).
        std::vector<C> poly = {1.0};
        for (const C& r : roots) {
            std::vector<C> next(poly.size() + 1, 0.0);
            for (size_t i = 0; i < poly.size(); ++i) {
                next[i] += poly[i];
                next[i + 1] -= poly[i] * r;
            }
            poly = next;
        }
        double c[4] = {poly[1].real(), poly[2].real(), poly[3].real(), poly[4].real()};
        TezVector2<double> got[4];
        ASSERT_TRUE(TezSolveQuartic(c, got));
        ExpectRoots(got, roots, 1e-6);
    }
    // Biquadratic x^4 - 5x^2 + 4 and x^4 + 1.
    double bq[4] = {0, -5, 0, 4};
    TezVector2<double> got[4];
    ASSERT_TRUE(TezSolveQuartic(bq, got));
    ExpectRoots(got, {1.0, -1.0, 2.0, -2.0}, 1e-12);
    double x4[4] = {0, 0, 0, 1};
    ASSERT_TRUE(TezSolveQuartic(x4, got));
    const double h = std::sqrt(0.5);
    ExpectRoots(got, {C(h, h), C(h, -h), C(-h, h), C(-h, -h)}, 1e-12);
    // Quadruple root (x-1)^4.
    double q1[4] = {-4, 6, -4, 1};
    ASSERT_TRUE(TezSolveQuartic(q1, got));
    ExpectRoots(got, {1.0, 1.0, 1.0, 1.0}, 1e-3);
    double inf[4] = {0, 0, INFINITY, 0};
    EXPECT_FALSE(TezSolveQuartic(inf, got));
}

TEST(LeastSquares, RecoversPolynomialAndDetectsSingularity)
{
    std::vector<double> x, y, c;
    for (int i = 0; i < 20; ++i) {
        const double t = -1 + 0.1 * i;
        x.push_back(t);
        y.push_back(2 - 3 * t + 0.5 * t * t * t);
    }
    ASSERT_TRUE(TezLeastSquares1D::LeastSquaresFit(3, x, y, c));
    ASSERT_EQ(c.size(), 4u);
    EXPECT_NEAR(c[0], 2, 1e-9);
    EXPECT_NEAR(c[1], -3, 1e-9);
    EXPECT_NEAR(c[2], 0, 1e-9);
    EXPECT_NEAR(c[3], 0.5, 1e-9);
    // A line through noisy-free data of slope 1 fits with degree 1.
    std::vector<double> xs = {0, 1, 2}, ys = {1, 2, 3};
    ASSERT_TRUE(TezLeastSquares1D::LeastSquaresFit(1, xs, ys, c));
    EXPECT_NEAR(c[1], 1, 1e-12);
    std::vector<double> same = {2, 2, 2};
    EXPECT_FALSE(TezLeastSquares1D::LeastSquaresFit(1, same, ys, c));
    EXPECT_FALSE(TezLeastSquares1D::LeastSquaresFit(1, xs, same = {1}, c));
}

TEST(ConvFilter, KernelsAndConvolution)
{
    const std::vector<double> tri = TezConvFilter1D::CreateTriangle(5);
    const double want[5] = {1 / 9., 2 / 9., 3 / 9., 2 / 9., 1 / 9.};
    ASSERT_EQ(tri.size(), 5u);
    for (int i = 0; i < 5; ++i)
        EXPECT_DOUBLE_EQ(tri[i], want[i]);

    const TezConvFilter1D std5 = TezConvFilter1D::CreateKernel(TezConvFilter1D::Standard, 0, 0);
    std::vector<double> four = {1, 5, 2, 8};
    std5.Conv(four);
    EXPECT_EQ(four, (std::vector<double>{1, 5, 2, 8}));

    // Unmirrored: an asymmetric kernel picks the left neighbour.
    TezConvFilter1D shift({1, 0, 0});
    std::vector<double> d = {1, 2, 3, 4};
    shift.Conv(d);
    EXPECT_EQ(d, (std::vector<double>{1, 1, 2, 4}));

    const TezConvFilter1D g = TezConvFilter1D::CreateKernel(TezConvFilter1D::Gaussian, 10, 1);
    ASSERT_EQ(g.getKernel().size(), 2u * 4 + 1);
    double sum = 0;
    for (double v : g.getKernel())
        sum += v;
    EXPECT_NEAR(sum, 1.0, 1e-15);
    EXPECT_GT(g.getKernel()[4], g.getKernel()[3]);
    EXPECT_EQ(TezConvFilter1D::CreateKernel(TezConvFilter1D::Triangle, 10, 1).getKernel().size(), 9u);

    // Circular data around the wrap point averages across it.
    TezConvFilter1D avg({1 / 3., 1 / 3., 1 / 3.});
    std::vector<double> ang = {350, 359, 1, 3, 10};
    avg.ConvCircular(ang, 360);
    EXPECT_NEAR(ang[1], 356.666666666, 1e-6);
    EXPECT_NEAR(ang[2], 1.0, 1e-9);
    EXPECT_NEAR(ang[3], 14 / 3., 1e-9);
    EXPECT_EQ(ang[0], 350);
    EXPECT_THROW(avg.ConvCircular(ang, 0), std::runtime_error);
}
