#include "math/NurbsSurface.h"

#include "math/BasisFunction.h"
#include "math/detail/NurbsKnots.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace {

constexpr int kMaxOrder = 8;

template <class T>
int SpanOrThrow(const char* op, T u, int degree, const std::vector<T>& knots)
{
    const int n = static_cast<int>(knots.size());
    if (n == 0)
        throw std::runtime_error(std::string("TezNurbsSurface3::") + op + ": the surface is empty");
    const int span = TezBasisFunction<T>::FindKnotSpan(u, degree, n, knots.data());
    if (span < 0 || span >= n)
        throw std::runtime_error(std::string("TezNurbsSurface3::") + op + ": parameter " + std::to_string(u) +
                                 " outside the knot range");
    return tez_detail::NonEmptySpan(span, degree, n, knots.data());
}

} // namespace

template <class T>
void TezNurbsSurface3<T>::Initialize(int numU, int numV, int degreeU, int degreeV)
{
    Terminate();
    if (numU < 1 || numV < 1 || degreeU < 1 || degreeV < 1)
        return;
    if (numU < degreeU + 1 || numV < degreeV + 1)
        throw std::runtime_error("TezNurbsSurface3::Initialize: " + std::to_string(numU) + "x" + std::to_string(numV) +
                                 " control points are too few for degrees " + std::to_string(degreeU) + ", " +
                                 std::to_string(degreeV));
    m_degreeU = degreeU;
    m_degreeV = degreeV;
    m_numU = numU;
    m_numV = numV;
    m_points.assign(static_cast<size_t>(numU) * numV, V(0, 0, 0));
    m_weights.assign(m_points.size(), T(1));
    m_knotsU.resize(TezBasisFunction<T>::NumKnots(numU, degreeU));
    m_knotsV.resize(TezBasisFunction<T>::NumKnots(numV, degreeV));
    TezBasisFunction<T>::MakeUniform(degreeU, GetNumKnotsU(), m_knotsU.data());
    TezBasisFunction<T>::MakeUniform(degreeV, GetNumKnotsV(), m_knotsV.data());
    SizeScratch();
}

template <class T>
void TezNurbsSurface3<T>::Terminate()
{
    m_degreeU = m_degreeV = m_numU = m_numV = 0;
    m_points.clear();
    m_weights.clear();
    m_knotsU.clear();
    m_knotsV.clear();
    m_scratch.clear();
}

template <class T>
void TezNurbsSurface3<T>::SizeScratch()
{
    const int wu = m_degreeU + 1, wv = m_degreeV + 1, w = std::max(wu, wv);
    // Basis rows in u and v, left/right, two derivative tables and the
    // derivative routine's work space.
    const size_t need = static_cast<size_t>(wu + wv + 2 * w + (kMaxOrder + 1) * (wu + wv)) +
                        TezBasisFunction<T>::DerivativesScratchSize(w - 1);
    m_scratch.assign(need, T(0));
}

template <class T>
int TezNurbsSurface3<T>::Index(const char* op, int i, int j) const
{
    if (i < 0 || i >= m_numU || j < 0 || j >= m_numV)
        throw std::runtime_error(std::string("TezNurbsSurface3::") + op + ": index (" + std::to_string(i) + ", " +
                                 std::to_string(j) + ") out of range " + std::to_string(m_numU) + "x" +
                                 std::to_string(m_numV));
    return i * m_numV + j;
}

template <class T>
T TezNurbsSurface3<T>::GetKnotU(int i) const
{
    if (i < 0 || i >= GetNumKnotsU())
        throw std::runtime_error("TezNurbsSurface3::GetKnotU: index " + std::to_string(i) + " out of range");
    return m_knotsU[i];
}

template <class T>
T TezNurbsSurface3<T>::GetKnotV(int i) const
{
    if (i < 0 || i >= GetNumKnotsV())
        throw std::runtime_error("TezNurbsSurface3::GetKnotV: index " + std::to_string(i) + " out of range");
    return m_knotsV[i];
}

template <class T>
void TezNurbsSurface3<T>::SetKnotU(int i, T k)
{
    if (i < 0 || i >= GetNumKnotsU())
        throw std::runtime_error("TezNurbsSurface3::SetKnotU: index " + std::to_string(i) + " out of range");
    m_knotsU[i] = k;
}

template <class T>
void TezNurbsSurface3<T>::SetKnotV(int i, T k)
{
    if (i < 0 || i >= GetNumKnotsV())
        throw std::runtime_error("TezNurbsSurface3::SetKnotV: index " + std::to_string(i) + " out of range");
    m_knotsV[i] = k;
}

template <class T>
T TezNurbsSurface3<T>::GetWeight(int i, int j) const
{
    return m_weights[Index("GetWeight", i, j)];
}

template <class T>
void TezNurbsSurface3<T>::SetWeight(int i, int j, T w)
{
    m_weights[Index("SetWeight", i, j)] = w;
}

template <class T>
const TezVector3<T>& TezNurbsSurface3<T>::GetControlPoint(int i, int j) const
{
    return m_points[Index("GetControlPoint", i, j)];
}

template <class T>
void TezNurbsSurface3<T>::SetControlPoint(int i, int j, const V& p)
{
    m_points[Index("SetControlPoint", i, j)] = p;
}

template <class T>
TezVector3<T> TezNurbsSurface3<T>::Evaluate(T u, T v) const
{
    const int su = SpanOrThrow("Evaluate", u, m_degreeU, m_knotsU);
    const int sv = SpanOrThrow("Evaluate", v, m_degreeV, m_knotsV);
    const int pu = m_degreeU, pv = m_degreeV, w = std::max(pu, pv) + 1;
    T* nu = m_scratch.data();
    T* nv = nu + (pu + 1);
    T* left = nv + (pv + 1);
    T* right = left + w;
    TezBasisFunction<T>::Evaluate(u, su, pu, m_knotsU.data(), left, right, nu);
    TezBasisFunction<T>::Evaluate(v, sv, pv, m_knotsV.data(), left, right, nv);
    V sum(0, 0, 0);
    T wsum = 0;
    for (int a = 0; a <= pu; ++a) {
        const int i = su - pu + a;
        V row(0, 0, 0);
        T wrow = 0;
        const V* pts = m_points.data() + static_cast<size_t>(i) * m_numV + (sv - pv);
        const T* ws = m_weights.data() + static_cast<size_t>(i) * m_numV + (sv - pv);
        for (int b = 0; b <= pv; ++b) {
            const T f = nv[b] * ws[b];
            row += pts[b] * f;
            wrow += f;
        }
        sum += row * nu[a];
        wsum += wrow * nu[a];
    }
    sum /= wsum;
    return sum;
}

template <class T>
void TezNurbsSurface3<T>::Derivatives(T u, T v, int order, V* result) const
{
    if (order < 0 || order > kMaxOrder)
        throw std::runtime_error("TezNurbsSurface3::Derivatives: order " + std::to_string(order) + " outside 0..8");
    const int su = SpanOrThrow("Derivatives", u, m_degreeU, m_knotsU);
    const int sv = SpanOrThrow("Derivatives", v, m_degreeV, m_knotsV);
    const int pu = m_degreeU, pv = m_degreeV, wu = pu + 1, wv = pv + 1, w = std::max(wu, wv);
    T* du = m_scratch.data() + (wu + wv + 2 * w);
    T* dv = du + (kMaxOrder + 1) * wu;
    T* work = dv + (kMaxOrder + 1) * wv;
    TezBasisFunction<T>::Derivatives(u, su, pu, order, m_knotsU.data(), work, du);
    TezBasisFunction<T>::Derivatives(v, sv, pv, order, m_knotsV.data(), work, dv);

    const int d = order, stride = order + 1;
    V a[kMaxOrder + 1][kMaxOrder + 1];
    T wd[kMaxOrder + 1][kMaxOrder + 1];
    for (int k = 0; k <= d; ++k) {
        for (int l = 0; l <= d - k; ++l) {
            V s(0, 0, 0);
            T sw = 0;
            for (int x = 0; x <= pu; ++x) {
                const size_t row = static_cast<size_t>(su - pu + x) * m_numV + (sv - pv);
                V t(0, 0, 0);
                T tw = 0;
                for (int y = 0; y <= pv; ++y) {
                    const T f = dv[l * wv + y] * m_weights[row + y];
                    t += m_points[row + y] * f;
                    tw += f;
                }
                s += t * du[k * wu + x];
                sw += tw * du[k * wu + x];
            }
            a[k][l] = s;
            wd[k][l] = sw;
        }
    }
    for (int i = 0; i < stride * stride; ++i)
        result[i] = V(0, 0, 0);
    auto bin = [](int n, int k) { return static_cast<T>(TezBasisFunction<T>::BinomialCoefficient(n, k)); };
    for (int k = 0; k <= d; ++k) {
        for (int l = 0; l <= d - k; ++l) {
            V x = a[k][l];
            for (int j = 1; j <= l; ++j)
                x -= result[k * stride + l - j] * (bin(l, j) * wd[0][j]);
            for (int i = 1; i <= k; ++i) {
                x -= result[(k - i) * stride + l] * (bin(k, i) * wd[i][0]);
                V y(0, 0, 0);
                for (int j = 1; j <= l; ++j)
                    y += result[(k - i) * stride + l - j] * (bin(l, j) * wd[i][j]);
                x -= y * bin(k, i);
            }
            result[k * stride + l] = x * (T(1) / wd[0][0]);
        }
    }
}

template <class T>
int TezNurbsSurface3<T>::InsertKnotU(T u, int multiplicity)
{
    if (m_points.empty() || multiplicity <= 0)
        return 0;
    const int p = m_degreeU;
    if (u < m_knotsU[p] || u > m_knotsU[m_numU])
        throw std::runtime_error("TezNurbsSurface3::InsertKnotU: parameter " + std::to_string(u) +
                                 " outside the knot range");
    const int s = tez_detail::ExactMultiplicity(u, m_knotsU);
    const int r = std::min(multiplicity, p - s);
    if (r <= 0)
        return 0;
    const int k = tez_detail::InsertionSpan(u, p, m_knotsU, m_numU);
    using H = tez_detail::HPoint<T, V>;
    const int newU = m_numU + r;
    std::vector<V> pts(static_cast<size_t>(newU) * m_numV);
    std::vector<T> ws(pts.size());
    std::vector<T> knots;
    for (int j = 0; j < m_numV; ++j) {
        std::vector<H> col(m_numU);
        for (int i = 0; i < m_numU; ++i) {
            const size_t idx = static_cast<size_t>(i) * m_numV + j;
            col[i] = {m_points[idx] * m_weights[idx], m_weights[idx]};
        }
        knots = m_knotsU;
        tez_detail::InsertKnot(p, knots, col, u, k, s, r);
        for (int i = 0; i < newU; ++i) {
            const size_t idx = static_cast<size_t>(i) * m_numV + j;
            ws[idx] = col[i].w;
            pts[idx] = col[i].p * (T(1) / col[i].w);
        }
    }
    m_knotsU.swap(knots);
    m_points.swap(pts);
    m_weights.swap(ws);
    m_numU = newU;
    return r;
}

template <class T>
int TezNurbsSurface3<T>::InsertKnotV(T v, int multiplicity)
{
    if (m_points.empty() || multiplicity <= 0)
        return 0;
    const int p = m_degreeV;
    if (v < m_knotsV[p] || v > m_knotsV[m_numV])
        throw std::runtime_error("TezNurbsSurface3::InsertKnotV: parameter " + std::to_string(v) +
                                 " outside the knot range");
    const int s = tez_detail::ExactMultiplicity(v, m_knotsV);
    const int r = std::min(multiplicity, p - s);
    if (r <= 0)
        return 0;
    const int k = tez_detail::InsertionSpan(v, p, m_knotsV, m_numV);
    using H = tez_detail::HPoint<T, V>;
    const int newV = m_numV + r;
    std::vector<V> pts(static_cast<size_t>(m_numU) * newV);
    std::vector<T> ws(pts.size());
    std::vector<T> knots;
    for (int i = 0; i < m_numU; ++i) {
        std::vector<H> row(m_numV);
        for (int j = 0; j < m_numV; ++j) {
            const size_t idx = static_cast<size_t>(i) * m_numV + j;
            row[j] = {m_points[idx] * m_weights[idx], m_weights[idx]};
        }
        knots = m_knotsV;
        tez_detail::InsertKnot(p, knots, row, v, k, s, r);
        for (int j = 0; j < newV; ++j) {
            const size_t idx = static_cast<size_t>(i) * newV + j;
            ws[idx] = row[j].w;
            pts[idx] = row[j].p * (T(1) / row[j].w);
        }
    }
    m_knotsV.swap(knots);
    m_points.swap(pts);
    m_weights.swap(ws);
    m_numV = newV;
    return r;
}

template class TezNurbsSurface3<float>;
template class TezNurbsSurface3<double>;
