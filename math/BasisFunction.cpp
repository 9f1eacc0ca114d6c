#include "math/BasisFunction.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace {

const int kBinomial[9][9] = {
    {1, 0, 0, 0, 0, 0, 0, 0, 0},    {1, 1, 0, 0, 0, 0, 0, 0, 0},     {1, 2, 1, 0, 0, 0, 0, 0, 0},
    {1, 3, 3, 1, 0, 0, 0, 0, 0},    {1, 4, 6, 4, 1, 0, 0, 0, 0},     {1, 5, 10, 10, 5, 1, 0, 0, 0},
    {1, 6, 15, 20, 15, 6, 1, 0, 0}, {1, 7, 21, 35, 35, 21, 7, 1, 0}, {1, 8, 28, 56, 70, 56, 28, 8, 1},
};

} // namespace

template <class T>
int TezBasisFunction<T>::BinomialCoefficient(int n, int k)
{
    if (n < 0 || n > 8 || k < 0 || k > 8)
        throw std::runtime_error("TezBasisFunction::BinomialCoefficient: arguments must lie in 0..8, got " +
                                 std::to_string(n) + ", " + std::to_string(k));
    return kBinomial[n][k];
}

template <class T>
void TezBasisFunction<T>::MakeUniform(int degree, int numKnots, T* knots)
{
    if (degree < 0 || numKnots < 2 * degree + 2)
        return;
    const int inner = numKnots - 2 * degree - 1;
    for (int i = 0; i < numKnots; ++i) {
        if (i <= degree)
            knots[i] = T(0);
        else if (i < numKnots - degree - 1)
            knots[i] = static_cast<T>(i - degree) / static_cast<T>(inner);
        else
            knots[i] = T(1);
    }
}

template <class T>
int TezBasisFunction<T>::FindKnotSpan(T u, int degree, int numKnots, const T* knots)
{
    if (u < knots[0])
        return -1;
    if (u > knots[numKnots - 1])
        return numKnots;
    int low = degree, high = numKnots - degree - 1;
    // Outside the spans that carry the curve (unclamped knots) the bisection
    // would not settle; answer the nearest valid span.
    if (u < knots[low])
        return low;
    if (u > knots[high])
        return high - 1;
    int mid = (low + high) / 2;
    for (;;) {
        if (knots[mid] <= u && u <= knots[mid + 1])
            return mid;
        if (u < knots[mid])
            high = mid;
        else
            low = mid;
        mid = (low + high) / 2;
    }
}

template <class T>
int TezBasisFunction<T>::FindKnotMult(int index, int numKnots, const T* knots)
{
    if (index < 0 || index >= numKnots)
        return 0;
    const T k = knots[index];
    int mult = 1;
    for (int j = index + 1; j < numKnots && knots[j] == k; ++j)
        ++mult;
    for (int j = index - 1; j > 0 && knots[j] == k; --j)
        ++mult;
    return mult;
}

template <class T>
void TezBasisFunction<T>::Evaluate(T u, int span, int degree, const T* knots, T* left, T* right, T* N)
{
    N[0] = T(1);
    for (int j = 1; j <= degree; ++j) {
        left[j] = u - knots[span + 1 - j];
        right[j] = knots[span + j] - u;
        T saved = T(0);
        for (int r = 0; r < j; ++r) {
            const T temp = N[r] / (right[r + 1] + left[j - r]);
            N[r] = saved + right[r + 1] * temp;
            saved = left[j - r] * temp;
        }
        N[j] = saved;
    }
}

template <class T>
int TezBasisFunction<T>::EvaluateUniform(T u, int degree, int numKnots, const T* knots, T* left, T* right, T* N)
{
    const int inner = numKnots - 2 * degree - 1;
    int span = degree + static_cast<int>(u * static_cast<T>(inner));
    span = std::min(std::max(span, degree), numKnots - degree - 2);
    Evaluate(u, span, degree, knots, left, right, N);
    return span;
}

template <class T>
void TezBasisFunction<T>::Derivatives(T u, int span, int degree, int order, const T* knots, T* scratch, T* ders)
{
    const int p = degree, w = p + 1;
    T* ndu = scratch;      // w * w
    T* left = ndu + w * w; // w
    T* right = left + w;   // w
    T* a = right + w;      // 2 * w: two rows of length w
    ndu[0] = T(1);
    for (int j = 1; j <= p; ++j) {
        left[j] = u - knots[span + 1 - j];
        right[j] = knots[span + j] - u;
        T saved = T(0);
        for (int r = 0; r < j; ++r) {
            ndu[j * w + r] = right[r + 1] + left[j - r];
            const T temp = ndu[r * w + j - 1] / ndu[j * w + r];
            ndu[r * w + j] = saved + right[r + 1] * temp;
            saved = left[j - r] * temp;
        }
        ndu[j * w + j] = saved;
    }
    for (int j = 0; j <= p; ++j)
        ders[j] = ndu[j * w + p];
    const int n = std::min(order, p);
    for (int r = 0; r <= p; ++r) {
        int s1 = 0, s2 = 1;
        a[0] = T(1);
        for (int k = 1; k <= n; ++k) {
            T d = T(0);
            const int rk = r - k, pk = p - k;
            if (r >= k) {
                a[s2 * w + 0] = a[s1 * w + 0] / ndu[(pk + 1) * w + rk];
                d = a[s2 * w + 0] * ndu[rk * w + pk];
            }
            const int j1 = rk >= -1 ? 1 : -rk;
            const int j2 = (r - 1 <= pk) ? k - 1 : p - r;
            for (int j = j1; j <= j2; ++j) {
                a[s2 * w + j] = (a[s1 * w + j] - a[s1 * w + j - 1]) / ndu[(pk + 1) * w + rk + j];
                d += a[s2 * w + j] * ndu[(rk + j) * w + pk];
            }
            if (r <= pk) {
                a[s2 * w + k] = -a[s1 * w + k - 1] / ndu[(pk + 1) * w + r];
                d += a[s2 * w + k] * ndu[r * w + pk];
            }
            ders[k * w + r] = d;
            std::swap(s1, s2);
        }
    }
    T f = static_cast<T>(p);
    for (int k = 1; k <= n; ++k) {
        for (int j = 0; j <= p; ++j)
            ders[k * w + j] *= f;
        f *= static_cast<T>(p - k);
    }
    for (int k = n + 1; k <= order; ++k)
        for (int j = 0; j <= p; ++j)
            ders[k * w + j] = T(0);
}

template class TezBasisFunction<float>;
template class TezBasisFunction<double>;
