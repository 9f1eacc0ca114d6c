#pragma once
// Gauss-Jordan inversion with full pivoting, shared by TezMatrixInvert and
// the fixed-size Inverse of the small matrices. N > 0 fixes the size at
// compile time so that the loops unroll; N == 0 takes the size from n.
//
// a (row-major, n*n) is destroyed; r receives the inverse; colSwap needs room
// for n ints. Terms no larger than 1e-6 times the first (largest) pivot are
// taken for zero and not eliminated. Returns the rank; on a zero pivot the
// elimination stops there and r holds the partial work.

#include <cmath>
#include <type_traits>
#include <utility>

namespace tez_detail {

template <class T>
inline double AbsD(T v)
{
    return std::abs(static_cast<double>(v));
}

template <int N, class T>
int GaussJordan(int nDyn, T* a, T* r, T& determinant, T& minPivot, int* colSwap)
{
    const int n = N > 0 ? N : nDyn;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            r[i * n + j] = T(i == j ? 1 : 0);
    determinant = T(0);
    minPivot = T(0);
    if (n <= 0)
        return 0;

    bool negate = false;
    T product = T(1);
    double threshold = 0.0;

    for (int k = 0; k < n; ++k) {
        double best = 0.0;
        int bi = k, bj = k;
        for (int i = k; i < n; ++i) {
            const T* row = a + i * n;
            for (int j = k; j < n; ++j) {
                const double v = AbsD(row[j]);
                if (v > best) {
                    best = v;
                    bi = i;
                    bj = j;
                }
            }
        }
        if (best == 0.0) {
            determinant = T(0);
            return k;
        }
        if (bi != k) {
            for (int j = 0; j < n; ++j) {
                std::swap(a[bi * n + j], a[k * n + j]);
                std::swap(r[bi * n + j], r[k * n + j]);
            }
            negate = !negate;
        }
        if (bj != k) {
            for (int i = 0; i < n; ++i)
                std::swap(a[i * n + bj], a[i * n + k]);
            negate = !negate;
        }
        colSwap[k] = bj;

        const T p = a[k * n + k];
        if (k == 0) {
            threshold = best * 1e-6;
            minPivot = static_cast<T>(best);
        } else if (best < AbsD(minPivot)) {
            minPivot = static_cast<T>(best);
        }
        product *= p;

        const T inv = T(1) / p;
        T* ak = a + k * n;
        T* rk = r + k * n;
        for (int j = k + 1; j < n; ++j)
            ak[j] *= inv;
        ak[k] = T(1);
        for (int j = 0; j < n; ++j)
            rk[j] *= inv;

        for (int i = k + 1; i < n; ++i) {
            T* ai = a + i * n;
            const T f = ai[k];
            if (!(AbsD(f) > threshold))
                continue;
            for (int j = k + 1; j < n; ++j)
                ai[j] -= f * ak[j];
            ai[k] = T(0);
            T* ri = r + i * n;
            for (int j = 0; j < n; ++j)
                ri[j] -= f * rk[j];
        }
    }

    // Upward: row k of a is already reduced to its unit diagonal when column k
    // is cleared, so only the result rows change.
    for (int k = n - 1; k > 0; --k) {
        const T* rk = r + k * n;
        for (int i = 0; i < k; ++i) {
            const T f = a[i * n + k];
            if (!(AbsD(f) > threshold))
                continue;
            a[i * n + k] = T(0);
            T* ri = r + i * n;
            for (int j = 0; j < n; ++j)
                ri[j] -= f * rk[j];
        }
    }

    // Column exchanges of the working matrix permute the rows of its inverse.
    for (int k = n - 1; k >= 0; --k) {
        const int c = colSwap[k];
        if (c != k)
            for (int j = 0; j < n; ++j)
                std::swap(r[k * n + j], r[c * n + j]);
    }
    determinant = negate ? static_cast<T>(-product) : product;
    return n;
}

} // namespace tez_detail
