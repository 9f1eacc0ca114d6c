#include "math/NurbsCurve.h"

#include "math/BasisFunction.h"
#include "math/detail/NurbsKnots.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace {
constexpr int kMaxOrder = 8; // the binomial table's reach
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::Initialize(int degree, int numCPs)
{
    if (degree < 0 || numCPs < 0)
        degree = numCPs = 0;
    Terminate();
    if (degree == 0 || numCPs == 0)
        return;
    if (numCPs < degree + 1)
        throw std::runtime_error("TezNurbsCurve::Initialize: " + std::to_string(numCPs) +
                                 " control points are too few for degree " + std::to_string(degree));
    m_degree = degree;
    V zero;
    for (int i = 0; i < N; ++i)
        zero[i] = T(0);
    m_points.assign(numCPs, zero);
    m_weights.assign(numCPs, T(1));
    m_knots.resize(TezBasisFunction<T>::NumKnots(numCPs, degree));
    TezBasisFunction<T>::MakeUniform(degree, GetNumKnots(), m_knots.data());
    SizeScratch();
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::Initialize(int degree, const std::vector<V>& points, const std::vector<T>& weights,
                                        const std::vector<T>& knots)
{
    if (degree < 1 || points.empty()) {
        Initialize(0, 0);
        return;
    }
    const int n = static_cast<int>(points.size());
    if (n < degree + 1)
        throw std::runtime_error("TezNurbsCurve::Initialize: " + std::to_string(n) +
                                 " control points are too few for degree " + std::to_string(degree));
    if (!weights.empty() && weights.size() != points.size())
        throw std::runtime_error("TezNurbsCurve::Initialize: " + std::to_string(weights.size()) + " weights for " +
                                 std::to_string(n) + " control points");
    const int numKnots = TezBasisFunction<T>::NumKnots(n, degree);
    if (!knots.empty() && static_cast<int>(knots.size()) != numKnots)
        throw std::runtime_error("TezNurbsCurve::Initialize: " + std::to_string(knots.size()) + " knots, expected " +
                                 std::to_string(numKnots));
    m_degree = degree;
    m_points = points;
    if (weights.empty())
        m_weights.assign(n, T(1));
    else
        m_weights = weights;
    if (knots.empty()) {
        m_knots.resize(numKnots);
        TezBasisFunction<T>::MakeUniform(degree, numKnots, m_knots.data());
    } else {
        m_knots = knots;
    }
    SizeScratch();
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::Terminate()
{
    m_degree = 0;
    m_points.clear();
    m_weights.clear();
    m_knots.clear();
    m_scratch.clear();
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::SizeScratch()
{
    // Basis values, left, right; derivative table for orders up to 8; and the
    // derivative routine's own work space.
    const int w = m_degree + 1;
    const size_t need = 3 * w + (kMaxOrder + 1) * w + TezBasisFunction<T>::DerivativesScratchSize(m_degree);
    m_scratch.assign(std::max<size_t>(need, 4 * m_degree * m_degree), T(0));
}

template <class T, int N, class V>
int TezNurbsCurve<T, N, V>::GetNumKnots() const
{
    return m_points.empty() ? 0 : TezBasisFunction<T>::NumKnots(GetNumCtrlPts(), m_degree);
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::CheckIndex(const char* op, int i, size_t size) const
{
    if (i < 0 || static_cast<size_t>(i) >= size)
        throw std::runtime_error(std::string("TezNurbsCurve::") + op + ": index " + std::to_string(i) +
                                 " out of range 0.." + std::to_string(static_cast<long>(size) - 1));
}

template <class T, int N, class V>
const V& TezNurbsCurve<T, N, V>::GetControlPoint(int i) const
{
    CheckIndex("GetControlPoint", i, m_points.size());
    return m_points[i];
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::SetControlPoint(int i, const V& p)
{
    CheckIndex("SetControlPoint", i, m_points.size());
    m_points[i] = p;
}

template <class T, int N, class V>
T TezNurbsCurve<T, N, V>::GetWeight(int i) const
{
    CheckIndex("GetWeight", i, m_weights.size());
    return m_weights[i];
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::SetWeight(int i, T w)
{
    CheckIndex("SetWeight", i, m_weights.size());
    m_weights[i] = w;
}

template <class T, int N, class V>
T TezNurbsCurve<T, N, V>::GetKnot(int i) const
{
    CheckIndex("GetKnot", i, m_knots.size());
    return m_knots[i];
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::SetKnot(int i, T k)
{
    CheckIndex("SetKnot", i, m_knots.size());
    m_knots[i] = k;
}

template <class T, int N, class V>
int TezNurbsCurve<T, N, V>::SpanOf(const char* op, T u) const
{
    if (m_points.empty())
        throw std::runtime_error(std::string("TezNurbsCurve::") + op + ": the curve is empty");
    const int n = static_cast<int>(m_knots.size());
    const int span = TezBasisFunction<T>::FindKnotSpan(u, m_degree, n, m_knots.data());
    if (span < 0 || span >= n)
        throw std::runtime_error(std::string("TezNurbsCurve::") + op + ": parameter " + std::to_string(u) +
                                 " outside the knot range");
    return tez_detail::NonEmptySpan(span, m_degree, n, m_knots.data());
}

template <class T, int N, class V>
V TezNurbsCurve<T, N, V>::Evaluate(T u) const
{
    const int span = SpanOf("Evaluate", u);
    const int p = m_degree;
    T* basis = m_scratch.data();
    T* left = basis + (p + 1);
    T* right = left + (p + 1);
    TezBasisFunction<T>::Evaluate(u, span, p, m_knots.data(), left, right, basis);
    V sum;
    for (int i = 0; i < N; ++i)
        sum[i] = T(0);
    T wsum = T(0);
    for (int j = 0; j <= p; ++j) {
        const int i = span - p + j;
        const T f = basis[j] * m_weights[i];
        sum += m_points[i] * f;
        wsum += f;
    }
    sum /= wsum;
    return sum;
}

template <class T, int N, class V>
void TezNurbsCurve<T, N, V>::Derivatives(T u, int order, V* result) const
{
    if (order < 0 || order > kMaxOrder)
        throw std::runtime_error("TezNurbsCurve::Derivatives: order " + std::to_string(order) + " outside 0..8");
    const int span = SpanOf("Derivatives", u);
    const int p = m_degree, w = p + 1;
    T* ders = m_scratch.data() + 3 * w;
    T* work = ders + (kMaxOrder + 1) * w;
    TezBasisFunction<T>::Derivatives(u, span, p, order, m_knots.data(), work, ders);
    // Derivatives of the homogeneous curve, then the rational recurrence.
    V a[kMaxOrder + 1];
    T wd[kMaxOrder + 1];
    for (int k = 0; k <= order; ++k) {
        for (int c = 0; c < N; ++c)
            a[k][c] = T(0);
        wd[k] = T(0);
        for (int j = 0; j <= p; ++j) {
            const int i = span - p + j;
            const T f = ders[k * w + j] * m_weights[i];
            a[k] += m_points[i] * f;
            wd[k] += f;
        }
    }
    for (int k = 0; k <= order; ++k) {
        V v = a[k];
        for (int i = 1; i <= k; ++i)
            v -= result[k - i] * (static_cast<T>(TezBasisFunction<T>::BinomialCoefficient(k, i)) * wd[i]);
        result[k] = v * (T(1) / wd[0]);
    }
}

template <class T, int N, class V>
int TezNurbsCurve<T, N, V>::InsertKnot(T u, int multiplicity)
{
    if (m_points.empty() || multiplicity <= 0)
        return 0;
    const int p = m_degree;
    const int n = GetNumCtrlPts();
    if (u < m_knots[p] || u > m_knots[n])
        throw std::runtime_error("TezNurbsCurve::InsertKnot: parameter " + std::to_string(u) +
                                 " outside the knot range");
    const int s = tez_detail::ExactMultiplicity(u, m_knots);
    const int r = std::min(multiplicity, p - s);
    if (r <= 0)
        return 0;
    const int k = tez_detail::InsertionSpan(u, p, m_knots, n);
    using H = tez_detail::HPoint<T, V>;
    std::vector<H> pw(n);
    for (int i = 0; i < n; ++i)
        pw[i] = {m_points[i] * m_weights[i], m_weights[i]};
    tez_detail::InsertKnot(p, m_knots, pw, u, k, s, r);
    m_points.resize(pw.size());
    m_weights.resize(pw.size());
    for (size_t i = 0; i < pw.size(); ++i) {
        m_weights[i] = pw[i].w;
        m_points[i] = pw[i].p * (T(1) / pw[i].w);
    }
    return r;
}

template <class T, int N, class V>
int TezNurbsCurve<T, N, V>::RemoveKnot(int index, int times)
{
    CheckIndex("RemoveKnot", index, m_knots.size());
    if (times <= 0)
        return 0;
    const int p = m_degree;
    const T u = m_knots[index];
    // End knots of the clamped vector cannot go.
    if (u <= m_knots[p] || u >= m_knots[GetNumCtrlPts()])
        return 0;
    int r = index;
    while (r + 1 < static_cast<int>(m_knots.size()) && m_knots[r + 1] == u)
        ++r;
    const int s = tez_detail::ExactMultiplicity(u, m_knots);
    using H = tez_detail::HPoint<T, V>;
    std::vector<H> pw(m_points.size());
    for (size_t i = 0; i < pw.size(); ++i)
        pw[i] = {m_points[i] * m_weights[i], m_weights[i]};
    const int done = tez_detail::RemoveKnot(p, m_knots, pw, u, r, s, std::min(times, s), T(1e-6));
    if (done == 0)
        return 0;
    m_points.resize(pw.size());
    m_weights.resize(pw.size());
    for (size_t i = 0; i < pw.size(); ++i) {
        m_weights[i] = pw[i].w;
        m_points[i] = pw[i].p * (T(1) / pw[i].w);
    }
    return done;
}

template <class T, int N, class V>
T TezNurbsCurve<T, N, V>::GetTime(V& point, T t, T distanceSquared, T step, int iterations, T tolerance) const
{
    const V origin = point;
    T s = std::min(t + step, T(1));
    T low = t, high = T(1);
    bool bracket = false;
    for (int it = 0; it < iterations; ++it) {
        point = Evaluate(s);
        const V d = point - origin;
        const T e = d * d - distanceSquared;
        if (std::abs(e) < tolerance)
            break;
        if (e <= 0) {
            low = s;
            if (bracket) {
                s = (high + s) / 2;
            } else {
                if (s >= T(1))
                    break;
                s += step;
                if (s > T(1)) {
                    s = T(1);
                    bracket = true;
                }
            }
        } else {
            high = s;
            s = (low + s) / 2;
            bracket = true;
        }
    }
    return s;
}

template <class T, int N, class V>
std::vector<V> TezNurbsCurve<T, N, V>::SubdivideByArcLength(T start, T end, int iterations, T step) const
{
    std::vector<V> out;
    if (m_points.empty())
        return out;
    if (step <= 0)
        step = GetNumCtrlPts() > 1 ? T(1) / static_cast<T>(GetNumCtrlPts() - 1) : T(1);
    V p = Evaluate(start);
    out.push_back(p);
    const V q = Evaluate(end);
    const V d = q - p;
    const T d2 = d * d;
    if (!(d2 > T(0)))
        return out;
    const T tol = d2 * T(1e-4);
    T t = start;
    while (t < T(1)) {
        const T next = GetTime(p, t, d2, step, iterations, tol);
        if (!(next > t))
            break;
        out.push_back(p);
        t = next;
    }
    return out;
}

// ---------------------------------------------------------------- interpolation

namespace {

template <class T, int N, class V>
TezNurbsCurve<T, N, V> Interpolate(int n, const V* pts, int p, int parametrization)
{
    TezNurbsCurve<T, N, V> curve;
    if (p < 1 || n < p + 1 || !pts)
        return curve;
    if (parametrization < 0 || parametrization > 2)
        throw std::runtime_error("TezInterpolateCurve: unknown parametrization " + std::to_string(parametrization));
    // Parameters of the data points.
    std::vector<double> ub(n, 0.0);
    if (parametrization == 0) {
        for (int k = 0; k < n; ++k)
            ub[k] = n > 1 ? double(k) / (n - 1) : 0.0;
    } else {
        double total = 0;
        std::vector<double> seg(n, 0.0);
        for (int k = 1; k < n; ++k) {
            const V d = pts[k] - pts[k - 1];
            double len = std::sqrt(static_cast<double>(d * d));
            if (parametrization == 2)
                len = std::sqrt(len);
            seg[k] = len;
            total += len;
        }
        for (int k = 1; k < n; ++k)
            ub[k] = total > 0 ? ub[k - 1] + seg[k] / total : double(k) / (n - 1);
        ub[n - 1] = 1.0;
    }
    // Knots by averaging.
    const int m = n + p + 1;
    std::vector<double> U(m, 0.0);
    for (int i = m - p - 1; i < m; ++i)
        U[i] = 1.0;
    for (int j = 1; j < n - p; ++j) {
        double s = 0;
        for (int i = j; i < j + p; ++i)
            s += ub[i];
        U[j + p] = s / p;
    }
    // Banded system A x = b: row k holds N_i(ub[k]) for i in span-p..span,
    // stored at band offset i - k + p; bandwidth p on each side.
    const int bw = 2 * p + 1;
    std::vector<double> band(static_cast<size_t>(n) * bw, 0.0), rhs(static_cast<size_t>(n) * N);
    std::vector<double> basis(p + 1), left(p + 1), right(p + 1);
    for (int k = 0; k < n; ++k) {
        const int span = TezBasisFunction<double>::FindKnotSpan(ub[k], p, m, U.data());
        TezBasisFunction<double>::Evaluate(ub[k], span, p, U.data(), left.data(), right.data(), basis.data());
        for (int j = 0; j <= p; ++j) {
            const int i = span - p + j;
            const int off = i - k + p;
            if (off >= 0 && off < bw)
                band[k * bw + off] = basis[j];
        }
        for (int c = 0; c < N; ++c)
            rhs[k * N + c] = static_cast<double>(pts[k][c]);
    }
    // Gaussian elimination without pivoting, which the totally positive
    // collocation matrix allows (Piegl and Tiller 9.2.1).
    auto at = [&](int r, int c) -> double& { return band[r * bw + (c - r + p)]; };
    for (int k = 0; k < n; ++k) {
        const double piv = at(k, k);
        if (piv == 0.0)
            throw std::runtime_error("TezInterpolateCurve: singular collocation matrix at row " + std::to_string(k));
        for (int r = k + 1; r <= std::min(n - 1, k + p); ++r) {
            const double f = at(r, k) / piv;
            if (f == 0.0)
                continue;
            for (int c = k; c <= std::min(n - 1, k + p); ++c)
                at(r, c) -= f * at(k, c);
            for (int d = 0; d < N; ++d)
                rhs[r * N + d] -= f * rhs[k * N + d];
        }
    }
    std::vector<V> cps(n);
    for (int k = n - 1; k >= 0; --k) {
        for (int d = 0; d < N; ++d) {
            double s = rhs[k * N + d];
            for (int c = k + 1; c <= std::min(n - 1, k + p); ++c)
                s -= at(k, c) * rhs[c * N + d];
            rhs[k * N + d] = s / at(k, k);
            cps[k][d] = static_cast<T>(rhs[k * N + d]);
        }
    }
    std::vector<T> knots(U.begin(), U.end());
    curve.Initialize(p, cps, std::vector<T>(), knots);
    return curve;
}

} // namespace

template <class T>
TezNurbsCurve2<T> TezInterpolateCurve2(int numPoints, const TezVector2<T>* points, int degree, int parametrization)
{
    return Interpolate<T, 2, TezVector2<T>>(numPoints, points, degree, parametrization);
}

template <class T>
TezNurbsCurve3<T> TezInterpolateCurve3(int numPoints, const TezVector3<T>* points, int degree, int parametrization)
{
    return Interpolate<T, 3, TezVector3<T>>(numPoints, points, degree, parametrization);
}

template class TezNurbsCurve<float, 2, TezVector2<float>>;
template class TezNurbsCurve<double, 2, TezVector2<double>>;
template class TezNurbsCurve<float, 3, TezVector3<float>>;
template class TezNurbsCurve<double, 3, TezVector3<double>>;
template TEZ_API TezNurbsCurve2<float> TezInterpolateCurve2<float>(int, const TezVector2<float>*, int, int);
template TEZ_API TezNurbsCurve2<double> TezInterpolateCurve2<double>(int, const TezVector2<double>*, int, int);
template TEZ_API TezNurbsCurve3<float> TezInterpolateCurve3<float>(int, const TezVector3<float>*, int, int);
template TEZ_API TezNurbsCurve3<double> TezInterpolateCurve3<double>(int, const TezVector3<double>*, int, int);
