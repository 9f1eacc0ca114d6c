#include "math/ConvFilter.h"

#include "core/Constants.h"

#include <cmath>
#include <stdexcept>
#include <string>

void TezConvFilter1D::Conv(std::vector<double>& data) const
{
    const size_t k = m_kernel.size();
    const size_t h = k / 2;
    const size_t n = data.size();
    if (k == 0 || n < 2 * h + 1)
        return;
    std::vector<double> out(data);
    for (size_t i = h; i + h < n; ++i) {
        const double* d = data.data() + (i - h);
        double s = 0;
        for (size_t j = 0; j < k; ++j)
            s += m_kernel[j] * d[j];
        out[i] = s;
    }
    data.swap(out);
}

void TezConvFilter1D::ConvCircular(std::vector<double>& data, double period) const
{
    if (!(period > 0))
        throw std::runtime_error("TezConvFilter1D::ConvCircular: period must be positive, got " +
                                 std::to_string(period));
    const size_t k = m_kernel.size();
    const size_t h = k / 2;
    const size_t n = data.size();
    if (k == 0 || n < 2 * h + 1)
        return;
    std::vector<double> out(data);
    for (size_t i = h; i + h < n; ++i) {
        const double centre = data[i];
        double s = 0;
        for (size_t j = 0; j < k; ++j) {
            double v = data[i - h + j];
            v -= period * std::round((v - centre) / period);
            s += m_kernel[j] * v;
        }
        s = std::fmod(s, period);
        if (s < 0)
            s += period;
        out[i] = s;
    }
    data.swap(out);
}

TezConvFilter1D TezConvFilter1D::CreateKernel(FilterType type, double a, double b)
{
    TezConvFilter1D f;
    switch (type) {
    case Standard:
        f.CreateStandard();
        break;
    case Gaussian:
        f.CreateGaussian(a, b);
        break;
    case Triangle:
        f.CreateTriangle(a, b);
        break;
    default:
        throw std::runtime_error("TezConvFilter1D::CreateKernel: unknown filter type " +
                                 std::to_string(static_cast<int>(type)));
    }
    return f;
}

std::vector<double> TezConvFilter1D::CreateTriangle(int n)
{
    if (n < 1)
        throw std::runtime_error("TezConvFilter1D::CreateTriangle: tap count must be positive, got " +
                                 std::to_string(n));
    TezConvFilter1D f;
    const int h = n / 2;
    for (int i = 1; i <= h; ++i)
        f.m_kernel.push_back(i);
    f.m_kernel.push_back(h + 1);
    for (int i = h; i >= 1; --i)
        f.m_kernel.push_back(i);
    f.NormalizeKernel();
    return f.m_kernel;
}

void TezConvFilter1D::CreateStandard()
{
    m_kernel = {0.13076589499029, 0.2001677661247, 0.33813267777002, 0.2001677661247, 0.13076589499029};
}

void TezConvFilter1D::CreateGaussian(double a, double b)
{
    if (!(a > 0 && b > 0))
        throw std::runtime_error("TezConvFilter1D::CreateGaussian: widths must be positive, got " + std::to_string(a) +
                                 ", " + std::to_string(b));
    const int r = static_cast<int>(std::ceil(a * 0.398 / b));
    const double q = b * 3.011 / a;
    m_kernel.clear();
    for (int i = -r; i <= r; ++i) {
        const double x = i * q;
        m_kernel.push_back(std::exp(-TezPi * x * x) * q);
    }
    NormalizeKernel();
}

void TezConvFilter1D::CreateTriangle(double a, double b)
{
    if (!(a > 0 && b > 0))
        throw std::runtime_error("TezConvFilter1D::CreateTriangle: widths must be positive, got " + std::to_string(a) +
                                 ", " + std::to_string(b));
    m_kernel = CreateTriangle(static_cast<int>(2 * std::ceil(a * 0.44295 / b) - 1));
}

void TezConvFilter1D::NormalizeKernel()
{
    double sum = 0;
    for (double v : m_kernel)
        sum += v;
    if (sum != 0)
        for (double& v : m_kernel)
            v /= sum;
}
