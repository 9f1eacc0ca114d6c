#include "math/LeastSquares.h"

#include <cmath>
#include <utility>

namespace {
constexpr double kZero = 1e-80; // 0.01^40
}

bool TezLeastSquares1D::LeastSquaresFit(int degree, std::vector<double>& x, std::vector<double>& y,
                                        std::vector<double>& coefficients)
{
    coefficients.clear();
    if (degree < 0 || x.size() != y.size() || x.empty())
        return false;
    const int n = degree + 1;
    // Sums of powers of x up to 2*degree, and of y times powers of x.
    std::vector<double> powSum(2 * degree + 1, 0.0), rhs(n, 0.0);
    for (size_t k = 0; k < x.size(); ++k) {
        double pw = 1;
        for (int i = 0; i <= 2 * degree; ++i) {
            powSum[i] += pw;
            if (i < n)
                rhs[i] += pw * y[k];
            pw *= x[k];
        }
    }
    std::vector<double> aug(static_cast<size_t>(n) * (n + 1));
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j)
            aug[i * (n + 1) + j] = powSum[i + j];
        aug[i * (n + 1) + n] = rhs[i];
    }
    return CalcCoeff(n, aug, coefficients);
}

bool TezLeastSquares1D::CalcCoeff(int n, std::vector<double>& a, std::vector<double>& coefficients)
{
    const int w = n + 1;
    for (int k = 0; k < n; ++k) {
        int best = k;
        for (int i = k + 1; i < n; ++i)
            if (std::abs(a[i * w + k]) > std::abs(a[best * w + k]))
                best = i;
        if (std::abs(a[best * w + k]) < kZero)
            return false;
        if (best != k)
            for (int j = 0; j < w; ++j)
                std::swap(a[k * w + j], a[best * w + j]);
        for (int i = k + 1; i < n; ++i) {
            const double f = a[i * w + k] / a[k * w + k];
            if (std::abs(f) < kZero)
                continue;
            for (int j = k; j < w; ++j)
                a[i * w + j] -= f * a[k * w + j];
        }
    }
    coefficients.assign(n, 0.0);
    for (int i = n - 1; i >= 0; --i) {
        double s = a[i * w + n];
        for (int j = i + 1; j < n; ++j)
            s -= a[i * w + j] * coefficients[j];
        coefficients[i] = s / a[i * w + i];
    }
    return true;
}
