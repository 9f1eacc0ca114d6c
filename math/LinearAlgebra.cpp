#include "math/LinearAlgebra.h"

#include "math/detail/GaussJordan.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

// ---------------------------------------------------------------- inverse

template <class T>
int TezMatrixInvert(int n, T* a, T* inverse, T& determinant, T& pivot)
{
    if (n < 0)
        throw std::runtime_error("TezMatrixInvert: negative size " + std::to_string(n));
    std::vector<T> work(a, a + static_cast<size_t>(n) * n);
    std::vector<int> swaps(static_cast<size_t>(n));
    return tez_detail::GaussJordan<0>(n, work.data(), inverse, determinant, pivot, swaps.data());
}

// ---------------------------------------------------------------- Cholesky

namespace {

// Unblocked right-looking factor of the diagonal block [k0, k1).
template <class T>
bool FactorDiagonalBlock(size_t n, T* a, size_t k0, size_t k1)
{
    for (size_t j = k0; j < k1; ++j) {
        T* rj = a + j * n;
        const T d = rj[j];
        if (!(d > T(0)))
            return false;
        const T s = std::sqrt(d);
        const T inv = T(1) / s;
        rj[j] = s;
        for (size_t i = j + 1; i < k1; ++i)
            a[i * n + j] *= inv;
        for (size_t i = j + 1; i < k1; ++i) {
            T* ri = a + i * n;
            const T lij = ri[j];
            for (size_t c = j + 1; c <= i; ++c)
                ri[c] -= lij * a[c * n + j];
        }
    }
    return true;
}

} // namespace

template <class T>
bool TezMatrixCholesky(size_t n, T* a, int blockSize)
{
    if (n == 0)
        return true;
    const size_t nb = blockSize > 0 ? static_cast<size_t>(blockSize) : 48;
    std::vector<T> l11t;  // transposed diagonal block
    std::vector<T> panel; // transposed panel: panel[p * w + c] = L[k1 + c][k0 + p]
    for (size_t k0 = 0; k0 < n; k0 += nb) {
        const size_t k1 = std::min(n, k0 + nb);
        const size_t kb = k1 - k0;
        if (!FactorDiagonalBlock(n, a, k0, k1))
            return false;
        if (k1 == n)
            break;

        // Panel below the diagonal block: L21 = A21 L11^-T, row by row, with
        // L11 transposed so that each elimination step is a contiguous axpy.
        l11t.assign(kb * kb, T(0));
        for (size_t j = 0; j < kb; ++j)
            for (size_t c = j; c < kb; ++c)
                l11t[j * kb + c] = a[(k0 + c) * n + k0 + j];
        for (size_t i = k1; i < n; ++i) {
            T* ri = a + i * n + k0;
            for (size_t j = 0; j < kb; ++j) {
                const T* lj = l11t.data() + j * kb;
                const T x = ri[j] / lj[j];
                ri[j] = x;
                for (size_t c = j + 1; c < kb; ++c)
                    ri[c] -= x * lj[c];
            }
        }

        // Trailing update A22 -= L21 L21^T on the lower triangle. The panel is
        // packed transposed so that the inner loop runs over contiguous
        // memory in both operands.
        const size_t w = n - k1;
        panel.resize(kb * w);
        for (size_t c = 0; c < w; ++c) {
            const T* rc = a + (k1 + c) * n + k0;
            for (size_t p = 0; p < kb; ++p)
                panel[p * w + c] = rc[p];
        }
        // Two rows at a time share every load of the packed panel.
        size_t r = 0;
        for (; r + 1 < w; r += 2) {
            T* r0 = a + (k1 + r) * n + k1;
            T* r1 = r0 + n;
            const T* l0 = a + (k1 + r) * n + k0;
            const T* l1 = l0 + n;
            const size_t len = r + 1; // row r1 has one element more
            size_t p = 0;
            for (; p + 4 <= kb; p += 4) {
                const T a0 = l0[p], a1 = l0[p + 1], a2 = l0[p + 2], a3 = l0[p + 3];
                const T b0 = l1[p], b1 = l1[p + 1], b2 = l1[p + 2], b3 = l1[p + 3];
                const T* p0 = panel.data() + p * w;
                const T* p1 = p0 + w;
                const T* p2 = p1 + w;
                const T* p3 = p2 + w;
                for (size_t c = 0; c < len; ++c) {
                    const T x0 = p0[c], x1 = p1[c], x2 = p2[c], x3 = p3[c];
                    r0[c] -= a0 * x0 + a1 * x1 + a2 * x2 + a3 * x3;
                    r1[c] -= b0 * x0 + b1 * x1 + b2 * x2 + b3 * x3;
                }
                r1[len] -= b0 * p0[len] + b1 * p1[len] + b2 * p2[len] + b3 * p3[len];
            }
            for (; p < kb; ++p) {
                const T a0 = l0[p], b0 = l1[p];
                const T* p0 = panel.data() + p * w;
                for (size_t c = 0; c < len; ++c) {
                    r0[c] -= a0 * p0[c];
                    r1[c] -= b0 * p0[c];
                }
                r1[len] -= b0 * p0[len];
            }
        }
        for (; r < w; ++r) {
            T* ri = a + (k1 + r) * n + k1;
            const T* li = a + (k1 + r) * n + k0;
            for (size_t p = 0; p < kb; ++p) {
                const T l0 = li[p];
                const T* p0 = panel.data() + p * w;
                for (size_t c = 0; c <= r; ++c)
                    ri[c] -= l0 * p0[c];
            }
        }
    }
    return true;
}

template <class T>
bool TezMatrixCholeskySolveSystem(size_t n, size_t columns, T* a, T* b, int blockSize)
{
    if (!TezMatrixCholesky(n, a, blockSize))
        return false;
    // Forward: L Y = B.
    for (size_t i = 0; i < n; ++i) {
        const T* li = a + i * n;
        T* bi = b + i * columns;
        for (size_t p = 0; p < i; ++p) {
            const T f = li[p];
            const T* bp = b + p * columns;
            for (size_t c = 0; c < columns; ++c)
                bi[c] -= f * bp[c];
        }
        const T d = li[i];
        if (d == T(0))
            return false;
        const T inv = T(1) / d;
        for (size_t c = 0; c < columns; ++c)
            bi[c] *= inv;
    }
    // Back: L^T X = Y, pushing each solved row into the rows above so that L
    // is read along its rows.
    for (size_t i = n; i-- > 0;) {
        const T* li = a + i * n;
        T* bi = b + i * columns;
        const T inv = T(1) / li[i];
        for (size_t c = 0; c < columns; ++c)
            bi[c] *= inv;
        for (size_t p = 0; p < i; ++p) {
            const T f = li[p];
            T* bp = b + p * columns;
            for (size_t c = 0; c < columns; ++c)
                bp[c] -= f * bi[c];
        }
    }
    return true;
}

template <class T>
bool TezMatrixCholeskySolveSystem(size_t n, T* a, T* b, int blockSize)
{
    return TezMatrixCholeskySolveSystem(n, size_t(1), a, b, blockSize);
}

// ---------------------------------------------------------------- SVD

namespace {

template <class T>
inline T Hypot(T a, T b)
{
    a = std::abs(a);
    b = std::abs(b);
    if (a < b)
        std::swap(a, b);
    if (a == T(0))
        return T(0);
    const T r = b / a;
    return a * std::sqrt(T(1) + r * r);
}

template <class T>
inline T Dot(const T* x, const T* y, size_t n)
{
    T s0 = 0, s1 = 0, s2 = 0, s3 = 0;
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        s0 += x[i] * y[i];
        s1 += x[i + 1] * y[i + 1];
        s2 += x[i + 2] * y[i + 2];
        s3 += x[i + 3] * y[i + 3];
    }
    for (; i < n; ++i)
        s0 += x[i] * y[i];
    return (s0 + s1) + (s2 + s3);
}

template <class T>
inline void Axpy(T t, const T* x, T* y, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        y[i] += t * x[i];
}

// Plane rotation of two contiguous vectors: x' = c x + s y, y' = -s x + c y.
template <class T>
inline void Rotate(T* x, T* y, size_t n, T c, T s)
{
    for (size_t i = 0; i < n; ++i) {
        const T t = c * x[i] + s * y[i];
        y[i] = -s * x[i] + c * y[i];
        x[i] = t;
    }
}

// Golub-Kahan-Reinsch for m >= n on column-major storage (column j of A at
// A + j*m), which keeps every inner loop on contiguous memory. U is m-by-n
// and V n-by-n, both column-major, either may be null. The steps: reduce A
// to a bidiagonal by Householder reflections from both sides, gather the
// reflections into U and V, then chase the bidiagonal's off-diagonal to zero
// by implicit shifted QR steps, deflating as values converge.
template <class T>
class TallSvd
{
public:
    TallSvd(size_t m, size_t n, T* A, T* s, T* U, T* V)
        : m_m(m), m_n(n), m_A(A), m_s(s), m_U(U), m_V(V), m_e(n), m_work(m), m_nct(std::min(m - 1, n)),
          m_nrt(n >= 2 ? std::min(n - 2, m) : 0)
    {
    }

    // False when the QR steps run out of their budget.
    bool Run()
    {
        Bidiagonalize();
        size_t const p = SetUpBidiagonal();
        if (m_U)
            FormU();
        if (m_V)
            FormV();
        return Diagonalize(p);
    }

private:
    T& a(size_t i, size_t j) { return m_A[i + j * m_m]; }
    static T* Column(T* M, size_t rowsOf, size_t j) { return M + j * rowsOf; }

    void Bidiagonalize();
    void ReflectColumn(size_t k);
    void ReflectRow(size_t k);
    size_t SetUpBidiagonal();
    void FormU();
    void FormV();
    bool Diagonalize(size_t p);
    // How the bidiagonal of order p splits: kase 1 to 4 as in LINPACK, and
    // the first index of the block to work on.
    int Classify(size_t p, size_t& k);
    void ChaseLast(size_t p, size_t k);
    void SplitAt(size_t p, size_t k);
    void QrStep(size_t p, size_t k);
    void Converge(size_t& p, size_t k);

    size_t const m_m, m_n;
    T* const m_A;
    T* const m_s;
    T* const m_U;
    T* const m_V;
    std::vector<T> m_e, m_work;
    size_t const m_nct, m_nrt;
};

template <class T>
void TallSvd<T>::Bidiagonalize()
{
    T* s = m_s;
    std::vector<T>& e = m_e;
    for (size_t k = 0; k < std::max(m_nct, m_nrt); ++k) {
        if (k < m_nct)
            ReflectColumn(k);
        for (size_t j = k + 1; j < m_n; ++j) {
            if (k < m_nct && s[k] != T(0)) {
                T t = Dot(&a(k, k), &a(k, j), m_m - k);
                t = -t / a(k, k);
                Axpy(t, &a(k, k), &a(k, j), m_m - k);
            }
            e[j] = a(k, j);
        }
        if (m_U && k < m_nct)
            for (size_t i = k; i < m_m; ++i)
                m_U[i + k * m_m] = a(i, k);
        if (k < m_nrt)
            ReflectRow(k);
    }
}

// Householder vector that zeroes column k below the diagonal.
template <class T>
void TallSvd<T>::ReflectColumn(size_t k)
{
    T* s = m_s;
    T nrm = 0;
    for (size_t i = k; i < m_m; ++i)
        nrm = Hypot(nrm, a(i, k));
    s[k] = nrm;
    if (s[k] != T(0)) {
        if (a(k, k) < 0)
            s[k] = -s[k];
        const T inv = T(1) / s[k];
        for (size_t i = k; i < m_m; ++i)
            a(i, k) *= inv;
        a(k, k) += 1;
    }
    s[k] = -s[k];
}

// Householder vector that zeroes row k right of the superdiagonal.
template <class T>
void TallSvd<T>::ReflectRow(size_t k)
{
    std::vector<T>& e = m_e;
    T nrm = 0;
    for (size_t i = k + 1; i < m_n; ++i)
        nrm = Hypot(nrm, e[i]);
    e[k] = nrm;
    if (e[k] != T(0)) {
        if (e[k + 1] < 0)
            e[k] = -e[k];
        const T inv = T(1) / e[k];
        for (size_t i = k + 1; i < m_n; ++i)
            e[i] *= inv;
        e[k + 1] += 1;
    }
    e[k] = -e[k];
    if (k + 1 < m_m && e[k] != T(0)) {
        std::fill(m_work.begin() + k + 1, m_work.end(), T(0));
        for (size_t j = k + 1; j < m_n; ++j)
            Axpy(e[j], &a(k + 1, j), &m_work[k + 1], m_m - k - 1);
        for (size_t j = k + 1; j < m_n; ++j)
            Axpy(-e[j] / e[k + 1], &m_work[k + 1], &a(k + 1, j), m_m - k - 1);
    }
    if (m_V)
        for (size_t i = k + 1; i < m_n; ++i)
            m_V[i + k * m_n] = e[i];
}

// The bidiagonal of order p: diagonal in s, superdiagonal in e.
template <class T>
size_t TallSvd<T>::SetUpBidiagonal()
{
    size_t const p = std::min(m_n, m_m + 1);
    if (m_nct < m_n)
        m_s[m_nct] = a(m_nct, m_nct);
    if (m_m < p)
        m_s[p - 1] = 0;
    if (m_nrt + 1 < p)
        m_e[m_nrt] = a(m_nrt, p - 1);
    m_e[p - 1] = 0;
    return p;
}

template <class T>
void TallSvd<T>::FormU()
{
    size_t const m = m_m;
    for (size_t j = m_nct; j < m_n; ++j) {
        std::fill(Column(m_U, m, j), Column(m_U, m, j) + m, T(0));
        m_U[j + j * m] = 1;
    }
    for (size_t k = m_nct; k-- > 0;) {
        T* uk = Column(m_U, m, k);
        if (m_s[k] != T(0)) {
            for (size_t j = k + 1; j < m_n; ++j) {
                T* uj = Column(m_U, m, j);
                const T t = -Dot(uk + k, uj + k, m - k) / uk[k];
                Axpy(t, uk + k, uj + k, m - k);
            }
            for (size_t i = k; i < m; ++i)
                uk[i] = -uk[i];
            uk[k] = 1 + uk[k];
            for (size_t i = 0; i < k; ++i)
                uk[i] = 0;
        } else {
            std::fill(uk, uk + m, T(0));
            uk[k] = 1;
        }
    }
}

template <class T>
void TallSvd<T>::FormV()
{
    size_t const n = m_n;
    for (size_t k = n; k-- > 0;) {
        T* vk = Column(m_V, n, k);
        if (k < m_nrt && m_e[k] != T(0)) {
            for (size_t j = k + 1; j < n; ++j) {
                T* vj = Column(m_V, n, j);
                const T t = -Dot(vk + k + 1, vj + k + 1, n - k - 1) / vk[k + 1];
                Axpy(t, vk + k + 1, vj + k + 1, n - k - 1);
            }
        }
        std::fill(vk, vk + n, T(0));
        vk[k] = 1;
    }
}

// Implicit shifted QR on the bidiagonal.
template <class T>
bool TallSvd<T>::Diagonalize(size_t p)
{
    // A budget over all QR steps: graded matrices converge several values per
    // deflation, so a per-value count would be misleading.
    size_t iter = 0;
    const size_t maxIter = 75 * m_n;
    while (p > 0) {
        size_t k = 0;
        switch (Classify(p, k)) {
        case 1:
            ChaseLast(p, k);
            break;
        case 2:
            SplitAt(p, k);
            break;
        case 3:
            if (++iter > maxIter)
                return false;
            QrStep(p, k);
            break;
        default:
            Converge(p, k);
            break;
        }
    }
    return true;
}

template <class T>
int TallSvd<T>::Classify(size_t p, size_t& first)
{
    T* s = m_s;
    std::vector<T>& e = m_e;
    const T eps = std::numeric_limits<T>::epsilon();
    const T tiny = std::numeric_limits<T>::min() / eps;
    long k;
    int kase;
    for (k = static_cast<long>(p) - 2; k >= 0; --k) {
        if (std::abs(e[k]) <= tiny + eps * (std::abs(s[k]) + std::abs(s[k + 1]))) {
            e[k] = 0;
            break;
        }
    }
    if (k == static_cast<long>(p) - 2) {
        kase = 4;
    } else {
        long ks;
        for (ks = static_cast<long>(p) - 1; ks > k; --ks) {
            const T t =
                (ks != static_cast<long>(p) ? std::abs(e[ks]) : T(0)) + (ks != k + 1 ? std::abs(e[ks - 1]) : T(0));
            if (std::abs(s[ks]) <= tiny + eps * t) {
                s[ks] = 0;
                break;
            }
        }
        if (ks == k)
            kase = 3;
        else if (ks == static_cast<long>(p) - 1)
            kase = 1;
        else {
            kase = 2;
            k = ks;
        }
    }
    first = static_cast<size_t>(k + 1);
    return kase;
}

// s[p-1] negligible: chase e[p-2] away.
template <class T>
void TallSvd<T>::ChaseLast(size_t p, size_t kk)
{
    T* s = m_s;
    std::vector<T>& e = m_e;
    T f = e[p - 2];
    e[p - 2] = 0;
    for (size_t j = p - 1; j-- > kk;) {
        const T t = Hypot(s[j], f);
        const T cs = s[j] / t, sn = f / t;
        s[j] = t;
        if (j != kk) {
            f = -sn * e[j - 1];
            e[j - 1] = cs * e[j - 1];
        }
        if (m_V)
            Rotate(Column(m_V, m_n, j), Column(m_V, m_n, p - 1), m_n, cs, sn);
    }
}

// s[k-1] negligible: split.
template <class T>
void TallSvd<T>::SplitAt(size_t p, size_t kk)
{
    T* s = m_s;
    std::vector<T>& e = m_e;
    T f = e[kk - 1];
    e[kk - 1] = 0;
    for (size_t j = kk; j < p; ++j) {
        const T t = Hypot(s[j], f);
        const T cs = s[j] / t, sn = f / t;
        s[j] = t;
        f = -sn * e[j];
        e[j] = cs * e[j];
        if (m_U)
            Rotate(Column(m_U, m_m, j), Column(m_U, m_m, kk - 1), m_m, cs, sn);
    }
}

// One QR step with a Wilkinson-like shift.
template <class T>
void TallSvd<T>::QrStep(size_t p, size_t kk)
{
    T* s = m_s;
    std::vector<T>& e = m_e;
    const T scale = std::max(
        std::max(std::max(std::max(std::abs(s[p - 1]), std::abs(s[p - 2])), std::abs(e[p - 2])), std::abs(s[kk])),
        std::abs(e[kk]));
    const T sp = s[p - 1] / scale, spm1 = s[p - 2] / scale, epm1 = e[p - 2] / scale;
    const T sk = s[kk] / scale, ek = e[kk] / scale;
    const T b = ((spm1 + sp) * (spm1 - sp) + epm1 * epm1) / 2;
    const T c = (sp * epm1) * (sp * epm1);
    T shift = 0;
    if (b != T(0) || c != T(0)) {
        shift = std::sqrt(b * b + c);
        if (b < 0)
            shift = -shift;
        shift = c / (b + shift);
    }
    T f = (sk + sp) * (sk - sp) + shift;
    T g = sk * ek;
    for (size_t j = kk; j < p - 1; ++j) {
        T t = Hypot(f, g);
        T cs = f / t, sn = g / t;
        if (j != kk)
            e[j - 1] = t;
        f = cs * s[j] + sn * e[j];
        e[j] = cs * e[j] - sn * s[j];
        g = sn * s[j + 1];
        s[j + 1] = cs * s[j + 1];
        if (m_V)
            Rotate(Column(m_V, m_n, j), Column(m_V, m_n, j + 1), m_n, cs, sn);
        t = Hypot(f, g);
        cs = f / t;
        sn = g / t;
        s[j] = t;
        f = cs * e[j] + sn * s[j + 1];
        s[j + 1] = -sn * e[j] + cs * s[j + 1];
        g = sn * e[j + 1];
        e[j + 1] = cs * e[j + 1];
        if (m_U && j < m_m - 1)
            Rotate(Column(m_U, m_m, j), Column(m_U, m_m, j + 1), m_m, cs, sn);
    }
    e[p - 2] = f;
}

// s[k] converged: make it positive, sort it into place and deflate.
template <class T>
void TallSvd<T>::Converge(size_t& p, size_t kk)
{
    T* s = m_s;
    size_t const pp = std::min(m_n, m_m + 1) - 1;
    if (s[kk] <= 0) {
        s[kk] = s[kk] < 0 ? -s[kk] : T(0);
        if (m_V)
            for (size_t i = 0; i <= pp; ++i)
                m_V[i + kk * m_n] = -m_V[i + kk * m_n];
    }
    size_t q = kk;
    while (q < pp) {
        if (s[q] >= s[q + 1])
            break;
        std::swap(s[q], s[q + 1]);
        if (m_V && q < m_n - 1)
            std::swap_ranges(Column(m_V, m_n, q), Column(m_V, m_n, q) + m_n, Column(m_V, m_n, q + 1));
        if (m_U && q < m_m - 1)
            std::swap_ranges(Column(m_U, m_m, q), Column(m_U, m_m, q) + m_m, Column(m_U, m_m, q + 1));
        ++q;
    }
    --p;
}

} // namespace

template <class T>
bool TezMatrixSVD(size_t rows, size_t columns, T* a, T* s, T* u, T* v)
{
    if (rows == 0 || columns == 0)
        return true;
    // Column-major copy of A when tall; when wide, the row-major A is already
    // the column-major A^T, whose factors swap roles.
    const bool tall = rows >= columns;
    const size_t m = tall ? rows : columns, n = tall ? columns : rows;
    std::vector<T> work(m * n);
    if (tall) {
        for (size_t i = 0; i < rows; ++i)
            for (size_t j = 0; j < columns; ++j)
                work[i + j * m] = a[i * columns + j];
    } else {
        std::copy(a, a + m * n, work.begin());
    }
    T* uOut = tall ? u : v;
    T* vOut = tall ? v : u;
    std::vector<T> U(uOut ? m * n : 0), V(vOut ? n * n : 0);
    const bool ok = TallSvd<T>(m, n, work.data(), s, uOut ? U.data() : nullptr, vOut ? V.data() : nullptr).Run();
    if (uOut)
        for (size_t i = 0; i < m; ++i)
            for (size_t j = 0; j < n; ++j)
                uOut[i * n + j] = U[i + j * m];
    if (vOut)
        for (size_t i = 0; i < n; ++i)
            for (size_t j = 0; j < n; ++j)
                vOut[i * n + j] = V[i + j * n];
    return ok;
}

#define TEZ_INSTANTIATE(T)                                                                                             \
    template TEZ_API int TezMatrixInvert<T>(int, T*, T*, T&, T&);                                                      \
    template TEZ_API bool TezMatrixCholesky<T>(size_t, T*, int);                                                       \
    template TEZ_API bool TezMatrixCholeskySolveSystem<T>(size_t, size_t, T*, T*, int);                                \
    template TEZ_API bool TezMatrixCholeskySolveSystem<T>(size_t, T*, T*, int);                                        \
    template TEZ_API bool TezMatrixSVD<T>(size_t, size_t, T*, T*, T*, T*);
TEZ_INSTANTIATE(float)
TEZ_INSTANTIATE(double)
