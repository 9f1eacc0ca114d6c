#pragma once
// Knot insertion and removal on homogeneous control points, shared by the
// curve and the surface (Piegl and Tiller A5.1 and A5.8). Not installed.

#include <cmath>
#include <vector>

namespace tez_detail {

// A control point in homogeneous form: (w * P, w).
template <class T, class V>
struct HPoint
{
    V p;
    T w;
    HPoint operator+(const HPoint& o) const { return {p + o.p, w + o.w}; }
    HPoint operator-(const HPoint& o) const { return {p - o.p, w - o.w}; }
    HPoint operator*(T s) const { return {p * s, w * s}; }
    T Distance(const HPoint& o) const
    {
        const V d = p - o.p;
        const T dw = w - o.w;
        return std::sqrt(d * d + dw * dw);
    }
};

// The span search may answer an empty span [k, k] when u sits on a repeated
// knot; the basis recurrence needs a span of positive length, and any
// neighbouring one gives the same point. Moves on to the next nonempty span
// (or back to the last one at the end of the vector).
template <class T>
int NonEmptySpan(int span, int degree, int numKnots, const T* knots)
{
    const int last = numKnots - degree - 2;
    while (span < last && !(knots[span] < knots[span + 1]))
        ++span;
    while (span > degree && !(knots[span] < knots[span + 1]))
        --span;
    return span;
}

// Index k of the last knot <= u, within [degree, numCPs - 1].
template <class T>
int InsertionSpan(T u, int degree, const std::vector<T>& knots, int numCPs)
{
    int k = degree;
    while (k + 1 < numCPs && knots[k + 1] <= u)
        ++k;
    return k;
}

template <class T>
int ExactMultiplicity(T u, const std::vector<T>& knots)
{
    int s = 0;
    for (T k : knots)
        s += k == u;
    return s;
}

// Inserts u r times into (knots, pw); k is the insertion span, s the present
// multiplicity. knots and pw grow by r.
template <class T, class H>
void InsertKnot(int p, std::vector<T>& knots, std::vector<H>& pw, T u, int k, int s, int r)
{
    const int np = static_cast<int>(pw.size()) - 1;
    const int mp = np + p + 1;
    std::vector<T> uq(knots.size() + r);
    std::vector<H> qw(pw.size() + r);
    for (int i = 0; i <= k; ++i)
        uq[i] = knots[i];
    for (int i = 1; i <= r; ++i)
        uq[k + i] = u;
    for (int i = k + 1; i <= mp; ++i)
        uq[i + r] = knots[i];
    for (int i = 0; i <= k - p; ++i)
        qw[i] = pw[i];
    for (int i = k - s; i <= np; ++i)
        qw[i + r] = pw[i];
    std::vector<H> rw(p - s + 1);
    for (int i = 0; i <= p - s; ++i)
        rw[i] = pw[k - p + i];
    int L = k - p;
    for (int j = 1; j <= r; ++j) {
        L = k - p + j;
        for (int i = 0; i <= p - j - s; ++i) {
            const T alpha = (u - knots[L + i]) / (knots[i + k + 1] - knots[L + i]);
            rw[i] = rw[i + 1] * alpha + rw[i] * (T(1) - alpha);
        }
        qw[L] = rw[0];
        qw[k + r - j - s] = rw[p - j - s];
    }
    for (int i = L + 1; i < k - s; ++i)
        qw[i] = rw[i - L];
    knots.swap(uq);
    pw.swap(qw);
}

// Tries to remove the knot u (last index r, multiplicity s) num times;
// returns the removals done and shrinks knots and pw accordingly.
template <class T, class H>
int RemoveKnot(int p, std::vector<T>& U, std::vector<H>& Pw, T u, int r, int s, int num, T tol)
{
    const int n = static_cast<int>(Pw.size()) - 1;
    const int m = n + p + 1;
    const int ord = p + 1;
    const int fout = (2 * r - s - p) / 2;
    int last = r - s;
    int first = r - p;
    std::vector<H> temp(2 * p + 1);
    int t;
    for (t = 0; t < num; ++t) {
        const int off = first - 1;
        temp[0] = Pw[off];
        temp[last + 1 - off] = Pw[last + 1];
        int i = first, j = last, ii = 1, jj = last - off;
        bool remflag = false;
        while (j - i > t) {
            const T alfi = (u - U[i]) / (U[i + ord + t] - U[i]);
            const T alfj = (u - U[j - t]) / (U[j + ord] - U[j - t]);
            temp[ii] = (Pw[i] - temp[ii - 1] * (T(1) - alfi)) * (T(1) / alfi);
            temp[jj] = (Pw[j] - temp[jj + 1] * alfj) * (T(1) / (T(1) - alfj));
            ++i;
            ++ii;
            --j;
            --jj;
        }
        if (j - i < t) {
            remflag = temp[ii - 1].Distance(temp[jj + 1]) <= tol;
        } else {
            const T alfi = (u - U[i]) / (U[i + ord + t] - U[i]);
            remflag = Pw[i].Distance(temp[ii + t + 1] * alfi + temp[ii - 1] * (T(1) - alfi)) <= tol;
        }
        if (!remflag)
            break;
        i = first;
        j = last;
        while (j - i > t) {
            Pw[i] = temp[i - off];
            Pw[j] = temp[j - off];
            ++i;
            --j;
        }
        --first;
        ++last;
    }
    if (t == 0)
        return 0;
    for (int k = r + 1; k <= m; ++k)
        U[k - t] = U[k];
    U.resize(U.size() - t);
    int j = fout, i = j;
    for (int k = 1; k < t; ++k) {
        if (k % 2 == 1)
            ++i;
        else
            --j;
    }
    for (int k = i + 1; k <= n; ++k) {
        Pw[j] = Pw[k];
        ++j;
    }
    Pw.resize(Pw.size() - t);
    return t;
}

} // namespace tez_detail
