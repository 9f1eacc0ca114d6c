#include "math/BasisFunction.h"
#include "math/Constants.h"
#include "math/NurbsCurve.h"
#include "math/NurbsSurface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>
#include <random>

// Counts every allocation in this test program, so that evaluation can be
// shown to allocate nothing.
static std::atomic<long> g_allocations{0};

// GCC pairs the replaced operators with their built-in forms and warns.
#if defined(__GNUC__) && !defined(__clang__)
#    pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t n)
{
    ++g_allocations;
    if (void* p = std::malloc(n ? n : 1))
        return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

// Full unit circle as a rational quadratic with nine control points.
template <class T>
TezNurbsCurve2<T> Circle()
{
    const T h = static_cast<T>(std::sqrt(0.5));
    std::vector<TezVector2<T>> p = {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}, {1, 0}};
    std::vector<T> w = {1, h, 1, h, 1, h, 1, h, 1};
    std::vector<T> k = {0, 0, 0, 0.25, 0.25, 0.5, 0.5, 0.75, 0.75, 1, 1, 1};
    TezNurbsCurve2<T> c;
    c.Initialize(2, p, w, k);
    return c;
}

TezNurbsCurve3<double> RandomCurve(std::mt19937& rng, int degree, int n)
{
    std::uniform_real_distribution<double> d(-1, 1), w(0.5, 2);
    std::vector<TezVector3<double>> p;
    std::vector<double> ws;
    for (int i = 0; i < n; ++i) {
        p.emplace_back(d(rng), d(rng), d(rng));
        ws.push_back(w(rng));
    }
    TezNurbsCurve3<double> c;
    c.Initialize(degree, p, ws, {});
    return c;
}

} // namespace

TEST(BasisFunction, KnotVectorRules)
{
    using B = TezBasisFunction<double>;
    double k[12];
    B::MakeUniform(3, 8, k);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(k[i], i < 4 ? 0.0 : 1.0);
    double untouched[7] = {9, 9, 9, 9, 9, 9, 9};
    B::MakeUniform(3, 7, untouched);
    EXPECT_EQ(untouched[3], 9.0);
    B::MakeUniform(2, 8, k); // 0 0 0 1/3 2/3 1 1 1
    EXPECT_DOUBLE_EQ(k[3], 1.0 / 3);
    EXPECT_DOUBLE_EQ(k[4], 2.0 / 3);
    EXPECT_EQ(B::NumKnots(5, 2), 8);
    EXPECT_EQ(B::Degree(5, 8), 2);
    EXPECT_EQ(B::NumCPs(2, 8), 5);
    EXPECT_EQ(B::BinomialCoefficient(8, 4), 70);
    EXPECT_THROW(B::BinomialCoefficient(9, 1), std::runtime_error);

    // Multiplicity: the count from above stops before index 0.
    const double c[8] = {0, 0, 0, 0, 0.5, 1, 1, 1};
    EXPECT_EQ(B::FindKnotMult(3, 8, c), 3);
    EXPECT_EQ(B::FindKnotMult(0, 8, c), 4);
    EXPECT_EQ(B::FindKnotMult(4, 8, c), 1);
    EXPECT_EQ(B::FindKnotMult(6, 8, c), 3);
    EXPECT_EQ(B::FindKnotMult(8, 8, c), 0);

    // Span search with a closed upper test.
    const double cl[9] = {0, 0, 0, 0, 0.5, 1, 1, 1, 1};
    EXPECT_EQ(B::FindKnotSpan(-0.1, 3, 9, cl), -1);
    EXPECT_EQ(B::FindKnotSpan(1.1, 3, 9, cl), 9);
    EXPECT_EQ(B::FindKnotSpan(0.25, 3, 9, cl), 3);
    EXPECT_EQ(B::FindKnotSpan(0.75, 3, 9, cl), 4);
    EXPECT_EQ(B::FindKnotSpan(1.0, 3, 9, cl), 4);
    EXPECT_EQ(B::FindKnotSpan(0.5, 3, 9, cl), 4);
    // On a double knot the closed test can land in the empty span between.
    const double dbl[12] = {0, 0, 0, 0.25, 0.25, 0.5, 0.5, 0.75, 0.75, 1, 1, 1};
    EXPECT_EQ(B::FindKnotSpan(0.25, 2, 12, dbl), 3);
}

TEST(BasisFunction, PartitionOfUnityAndDerivatives)
{
    using B = TezBasisFunction<double>;
    const int p = 3, n = 12;
    double k[n];
    B::MakeUniform(p, n, k);
    double N[4], left[4], right[4], Nu[4];
    std::vector<double> work(B::DerivativesScratchSize(p)), ders(5 * (p + 1));
    for (double u = 0.01; u < 1; u += 0.037) {
        const int span = B::FindKnotSpan(u, p, n, k);
        B::Evaluate(u, span, p, k, left, right, N);
        EXPECT_EQ(B::EvaluateUniform(u, p, n, k, left, right, Nu), span);
        double sum = 0;
        for (int j = 0; j <= p; ++j) {
            sum += N[j];
            EXPECT_DOUBLE_EQ(N[j], Nu[j]);
        }
        EXPECT_NEAR(sum, 1.0, 1e-14);
        B::Derivatives(u, span, p, 4, k, work.data(), ders.data());
        const double h = 1e-6;
        double Np[4], Nm[4];
        B::Evaluate(u + h, span, p, k, left, right, Np);
        B::Evaluate(u - h, span, p, k, left, right, Nm);
        for (int j = 0; j <= p; ++j) {
            EXPECT_DOUBLE_EQ(ders[j], N[j]);
            EXPECT_NEAR(ders[(p + 1) + j], (Np[j] - Nm[j]) / (2 * h), 1e-6);
            EXPECT_EQ(ders[4 * (p + 1) + j], 0.0); // above the degree
        }
    }
}

TEST(NurbsCurve, InitialisationRules)
{
    TezNurbsCurve3<float> c;
    c.Initialize(-1, 5);
    EXPECT_EQ(c.GetNumCtrlPts(), 0);
    EXPECT_EQ(c.GetNumKnots(), 0);
    EXPECT_THROW(c.Evaluate(0.5f), std::runtime_error);
    c.Initialize(3, 6);
    EXPECT_EQ(c.GetNumKnots(), 10);
    EXPECT_EQ(c.GetWeight(5), 1.0f);
    EXPECT_EQ(c.GetKnot(9), 1.0f);
    EXPECT_EQ(c.GetDimension(), 3);
    EXPECT_THROW(c.GetControlPoint(6), std::runtime_error);
    TezNurbsCurve2<double> d;
    d.Initialize(0, {{1, 2}}, {}, {});
    EXPECT_EQ(d.GetNumCtrlPts(), 0);
    d.Initialize(1, {{0, 0}, {2, 4}}, {}, {});
    EXPECT_EQ(d.Evaluate(0.25), TezVector2<double>(0.5, 1));
    EXPECT_THROW(d.Evaluate(1.5), std::runtime_error);
}

TEST(NurbsCurve, RationalCircleIsExactInFloat)
{
    const TezNurbsCurve2<float> c = Circle<float>();
    for (int i = 0; i <= 1000; ++i) {
        const float u = i / 1000.0f;
        const TezVector2<float> p = c.Evaluate(u);
        EXPECT_NEAR(p.Length(), 1.0f, 4e-7f) << u;
    }
    // Tangent is perpendicular to the radius; second derivative points inward.
    const TezNurbsCurve2<double> cd = Circle<double>();
    TezVector2<double> d[3];
    for (double u = 0.03; u < 1; u += 0.07) {
        cd.Derivatives(u, 2, d);
        EXPECT_NEAR(d[0] * d[1], 0.0, 1e-12);
        EXPECT_LT(d[0] * d[2], 0.0);
        // Against central differences.
        const double h = 1e-6;
        const TezVector2<double> fd = (cd.Evaluate(u + h) - cd.Evaluate(u - h)) * (1 / (2 * h));
        EXPECT_NEAR((fd - d[1]).Length(), 0.0, 1e-5 * d[1].Length());
    }
}

TEST(NurbsCurve, KnotInsertionAndRemovalKeepTheCurve)
{
    std::mt19937 rng(6);
    for (int degree : {2, 3, 5}) {
        const TezNurbsCurve3<double> orig = RandomCurve(rng, degree, 9);
        TezNurbsCurve3<double> c = orig;
        EXPECT_EQ(c.InsertKnot(0.3, 2), 2);
        EXPECT_EQ(c.GetNumCtrlPts(), 11);
        EXPECT_EQ(c.InsertKnot(0.3, degree + 1), degree - 2); // never beyond the degree
        EXPECT_EQ(c.InsertKnot(0.71, 1), 1);
        EXPECT_EQ(c.InsertKnot(0.0, 1), 0); // the clamped end is full
        for (int i = 0; i <= 1000; ++i) {
            const double u = i / 1000.0;
            EXPECT_LT((c.Evaluate(u) - orig.Evaluate(u)).Length(), 1e-12) << u;
        }
        // Remove what was inserted.
        int at = 0;
        while (c.GetKnot(at) != 0.71)
            ++at;
        EXPECT_EQ(c.RemoveKnot(at, 1), 1);
        while (c.GetKnot(at) != 0.3)
            --at;
        EXPECT_EQ(c.RemoveKnot(at, degree), degree);
        EXPECT_EQ(c.GetNumCtrlPts(), orig.GetNumCtrlPts());
        for (int i = 0; i < c.GetNumCtrlPts(); ++i) {
            EXPECT_LT((c.GetControlPoint(i) - orig.GetControlPoint(i)).Length(), 1e-9);
            EXPECT_NEAR(c.GetWeight(i), orig.GetWeight(i), 1e-9);
        }
        // An original knot of a generic curve cannot go.
        for (int i = degree + 1; i < c.GetNumCtrlPts(); ++i)
            EXPECT_EQ(c.RemoveKnot(i, 1), 0);
        EXPECT_EQ(c.RemoveKnot(0, 1), 0);
    }
    // Float: insertion on the circle.
    TezNurbsCurve2<float> f = Circle<float>();
    EXPECT_EQ(f.InsertKnot(0.1f, 1), 1);
    for (int i = 0; i <= 1000; ++i)
        EXPECT_NEAR(f.Evaluate(i / 1000.0f).Length(), 1.0f, 1e-6f);
}

TEST(NurbsCurve, ArcLengthSubdivision)
{
    const TezNurbsCurve2<double> c = Circle<double>();
    // Chord of a twelfth of the parameter range of the circle.
    const std::vector<TezVector2<double>> pts = c.SubdivideByArcLength(0.0, 1.0 / 12, 60, 0.05);
    const double chord = (c.Evaluate(1.0 / 12) - c.Evaluate(0)).Length();
    ASSERT_GE(pts.size(), 10u);
    for (size_t i = 1; i + 1 < pts.size(); ++i)
        EXPECT_NEAR((pts[i] - pts[i - 1]).Length(), chord, 1e-3 * chord);
    EXPECT_EQ(pts.back(), c.Evaluate(1.0));
    EXPECT_LE((pts.back() - pts[pts.size() - 2]).Length(), chord * (1 + 1e-3));

    TezVector2<double> p = c.Evaluate(0);
    const double t = c.GetTime(p, 0, 2.0, 0.1, 100, 1e-12); // squared chord 2: a quarter turn
    EXPECT_NEAR(p.x, 0.0, 1e-5);
    EXPECT_NEAR(p.y, 1.0, 1e-5);
    EXPECT_NEAR(t, 0.25, 1e-5);
    TezNurbsCurve2<double> empty;
    EXPECT_TRUE(empty.SubdivideByArcLength(0, 0.1, 10, 0).empty());
}

TEST(NurbsCurve, GlobalInterpolationPassesThroughPoints)
{
    std::mt19937 rng(10);
    std::uniform_real_distribution<double> d(-1, 1);
    for (int param : {0, 1, 2}) {
        std::vector<TezVector3<double>> pts;
        for (int i = 0; i < 40; ++i)
            pts.emplace_back(i * 0.1, d(rng), d(rng));
        const TezNurbsCurve3<double> c = TezInterpolateCurve3<double>(40, pts.data(), 3, param);
        ASSERT_EQ(c.GetNumCtrlPts(), 40);
        EXPECT_EQ(c.Evaluate(0), pts[0]);
        EXPECT_EQ(c.Evaluate(1), pts[39]);
        // Each data point is hit near some parameter: search finely.
        for (int k = 1; k < 39; k += 7) {
            double best = 1e9;
            for (int i = 0; i <= 20000; ++i)
                best = std::min(best, (c.Evaluate(i / 20000.0) - pts[k]).Length());
            EXPECT_LT(best, 2e-3);
        }
    }
    // Uniform parameters: the data points sit exactly at k/(n-1).
    std::vector<TezVector2<float>> p2 = {{0, 0}, {1, 2}, {2, -1}, {3, 0.5f}, {4, 4}};
    const TezNurbsCurve2<float> c2 = TezInterpolateCurve2<float>(5, p2.data(), 2, 0);
    for (int k = 0; k < 5; ++k)
        EXPECT_LT((c2.Evaluate(k / 4.0f) - p2[k]).Length(), 1e-5f);
    EXPECT_EQ(TezInterpolateCurve2<float>(2, p2.data(), 2, 0).GetNumCtrlPts(), 0);
}

TEST(NurbsSurface, CylinderPatchDerivativesAndInsertion)
{
    // A quarter cylinder of radius 1 along z: rational quadratic in u,
    // linear in v.
    TezNurbsSurface3<double> s;
    s.Initialize(3, 2, 2, 1);
    const double h = std::sqrt(0.5);
    const TezVector3<double> arc[3] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 2; ++j) {
            s.SetControlPoint(i, j, arc[i] + TezVector3<double>(0, 0, 2.0 * j));
            s.SetWeight(i, j, i == 1 ? h : 1.0);
        }
    EXPECT_THROW(s.SetWeight(3, 0, 1), std::runtime_error);
    for (double u = 0; u <= 1; u += 0.1)
        for (double v = 0; v <= 1; v += 0.25) {
            const TezVector3<double> p = s.Evaluate(u, v);
            EXPECT_NEAR(p.x * p.x + p.y * p.y, 1.0, 1e-14);
            EXPECT_NEAR(p.z, 2 * v, 1e-14);
        }
    TezVector3<double> der[9];
    const double eps = 1e-5;
    for (double u = 0.05; u < 1; u += 0.15) {
        s.Derivatives(u, 0.4, 2, der);
        EXPECT_EQ(der[0], s.Evaluate(u, 0.4));
        const TezVector3<double> su = (s.Evaluate(u + eps, 0.4) - s.Evaluate(u - eps, 0.4)) * (1 / (2 * eps));
        EXPECT_LT((der[3] - su).Length(), 1e-6);
        EXPECT_EQ(der[1], TezVector3<double>(0, 0, 2));
        EXPECT_LT(der[4].Length(), 1e-12); // mixed derivative of a ruled cylinder
        EXPECT_LT(der[6] * der[0], 0.0);   // curvature points to the axis
    }
    TezNurbsSurface3<double> t = s;
    EXPECT_EQ(t.InsertKnotU(0.3, 1), 1);
    EXPECT_EQ(t.InsertKnotV(0.6, 2), 1);
    EXPECT_EQ(t.GetNumCtrlPtsU(), 4);
    EXPECT_EQ(t.GetNumCtrlPtsV(), 3);
    for (double u = 0; u <= 1; u += 0.05)
        for (double v = 0; v <= 1; v += 0.1)
            EXPECT_LT((t.Evaluate(u, v) - s.Evaluate(u, v)).Length(), 1e-13);
}

TEST(Nurbs, EvaluationAllocatesNothing)
{
    const TezNurbsCurve2<float> c = Circle<float>();
    TezNurbsSurface3<double> s;
    s.Initialize(5, 4, 3, 2);
    TezVector2<float> d[3];
    TezVector3<double> sd[16];
    const long before = g_allocations.load();
    float acc = 0;
    for (int i = 0; i <= 100; ++i) {
        acc += c.Evaluate(i / 100.0f).x;
        c.Derivatives(i / 100.0f, 2, d);
        acc += d[2].y;
        acc += static_cast<float>(s.Evaluate(i / 100.0, 0.5).z);
        s.Derivatives(0.3, i / 100.0, 3, sd);
    }
    EXPECT_EQ(g_allocations.load(), before);
    EXPECT_TRUE(std::isfinite(acc));
}
