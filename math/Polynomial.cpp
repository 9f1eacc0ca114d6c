#include "math/Polynomial.h"

#include "core/Constants.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace {

constexpr double kSqrt3Half = 0.8660254037844386;
constexpr double kPi = TezPi;

using Complex = std::complex<double>;

// Largest real root of x^3 + b x^2 + c x + d, by the trigonometric form
// where all three roots are real, polished by Newton steps.
double LargestRealCubicRoot(double b, double c, double d)
{
    const double a = b / 3;
    const double p = c / 3 - a * a;
    const double r = a * a * a + d / 2 - c * a / 2;
    const double D = p * p * p + r * r;
    double x;
    if (D >= 0) {
        const double s = std::sqrt(D);
        x = TezCubeRoot(s - r) + TezCubeRoot(-r - s) - a;
    } else {
        const double t = 2 * std::sqrt(-p);
        const double theta = std::acos(std::max(-1.0, std::min(1.0, -r / std::sqrt(-p * p * p)))) / 3;
        x = t * std::cos(theta) - a;
    }
    for (int i = 0; i < 3; ++i) {
        const double f = ((x + b) * x + c) * x + d;
        const double df = (3 * x + 2 * b) * x + c;
        if (df == 0)
            break;
        x -= f / df;
    }
    return x;
}

void SolveQuadratic(Complex b, Complex c, Complex& r0, Complex& r1)
{
    const Complex disc = std::sqrt(b * b - 4.0 * c);
    // Pick the sign that avoids cancellation.
    const Complex q = -0.5 * (std::real(std::conj(b) * disc) >= 0 ? b + disc : b - disc);
    if (std::abs(q) == 0) {
        r0 = r1 = 0;
        return;
    }
    r0 = q;
    r1 = c / q;
}

} // namespace

double TezCubeRoot(double x) { return x < 0 ? -std::pow(-x, 1.0 / 3.0) : std::pow(x, 1.0 / 3.0); }

bool TezSolveCubic(double* const c, TezVector2<double>* const roots)
{
    const double a = c[0] / 3;
    const double p = c[1] / 3 - a * a;
    const double r = a * a * a + c[2] / 2 - c[1] * a / 2;
    const double D = p * p * p + r * r;
    if (std::isnan(D))
        return false;

    if (std::abs(D) < 1e-6) {
        const double u = TezCubeRoot(-r);
        roots[0] = TezVector2<double>(2 * u - a, 0);
        roots[1] = TezVector2<double>(-u - a, 0);
        roots[2] = roots[1];
    } else if (D > 0) {
        const double s = std::sqrt(D);
        const double u = TezCubeRoot(s - r), v = TezCubeRoot(-r - s);
        roots[0] = TezVector2<double>(u + v - a, 0);
        roots[1] = TezVector2<double>(-(u + v) / 2 - a, (u - v) * kSqrt3Half);
        roots[2] = TezVector2<double>(-(u + v) / 2 - a, -(u - v) * kSqrt3Half);
    } else {
        const double t = 2 * std::sqrt(-p);
        if (std::abs(r) < 1e-6) {
            roots[0] = TezVector2<double>(-a, 0);
            roots[1] = TezVector2<double>(t * kSqrt3Half - a, 0);
            roots[2] = TezVector2<double>(-roots[1].x, 0);
        } else {
            double theta = std::atan(-std::sqrt(-D) / r);
            if (r > 0)
                theta += kPi;
            theta /= 3;
            roots[0] = TezVector2<double>(t * std::cos(theta) - a, 0);
            roots[1] = TezVector2<double>(t * std::cos(theta + 2 * kPi / 3) - a, 0);
            roots[2] = TezVector2<double>(t * std::cos(theta + 4 * kPi / 3) - a, 0);
        }
    }
    return true;
}

bool TezSolveQuartic(double* const c, TezVector2<double>* const roots)
{
    for (int i = 0; i < 4; ++i)
        if (!std::isfinite(c[i]))
            return false;
    // Depressed quartic y^4 + p y^2 + q y + r with x = y - c0/4.
    const double sh = c[0] / 4;
    const double sh2 = sh * sh;
    const double p = c[1] - 6 * sh2;
    const double q = c[2] - 2 * c[1] * sh + 8 * sh2 * sh;
    const double r = c[3] - c[2] * sh + c[1] * sh2 - 3 * sh2 * sh2;

    Complex y[4];
    const double scale = std::max({1.0, std::abs(p), std::sqrt(std::abs(r))});
    if (std::abs(q) <= 1e-14 * scale * std::sqrt(scale)) {
        // Biquadratic: z^2 + p z + r with z = y^2.
        Complex z0, z1;
        SolveQuadratic(Complex(p), Complex(r), z0, z1);
        y[0] = std::sqrt(z0);
        y[1] = -y[0];
        y[2] = std::sqrt(z1);
        y[3] = -y[2];
    } else {
        // Resolvent m^3 + p m^2 + (p^2/4 - r) m - q^2/8 has a positive root;
        // then (y^2 + p/2 + m)^2 = 2m (y - q/(4m))^2.
        const double m = LargestRealCubicRoot(p, p * p / 4 - r, -q * q / 8);
        const double s = std::sqrt(std::max(2 * m, 0.0));
        const double k = s > 0 ? q / (2 * s) : 0;
        SolveQuadratic(Complex(s), Complex(p / 2 + m - k), y[0], y[1]);
        SolveQuadratic(Complex(-s), Complex(p / 2 + m + k), y[2], y[3]);
    }

    for (int i = 0; i < 4; ++i) {
        Complex x = y[i] - sh;
        for (int it = 0; it < 4; ++it) {
            const Complex f = (((x + c[0]) * x + c[1]) * x + c[2]) * x + c[3];
            const Complex df = ((4.0 * x + 3 * c[0]) * x + 2 * c[1]) * x + c[2];
            if (std::abs(df) == 0)
                break;
            const Complex step = f / df;
            const Complex nx = x - step;
            const Complex nf = (((nx + c[0]) * nx + c[1]) * nx + c[2]) * nx + c[3];
            if (!(std::abs(nf) < std::abs(f)))
                break;
            x = nx;
        }
        roots[i] = TezVector2<double>(x.real(), x.imag());
    }
    return true;
}
