#pragma once
// TezConvFilter1D: 1D convolution with a small, unmirrored kernel.
//
// Conv leaves the first and last kernelSize/2 samples as they are (a kernel
// longer than the data changes nothing). ConvCircular treats the data as an
// angle-like quantity of the given period: each window is unwrapped around its
// centre sample and the result brought back into [0, period).

#include "platform/Api.h"

#include <vector>

class TEZ_API TezConvFilter1D
{
public:
    enum FilterType { Standard, Gaussian, Triangle };

    TezConvFilter1D() = default;
    explicit TezConvFilter1D(std::vector<double> kernel) : m_kernel(std::move(kernel)) {}

    const std::vector<double>& getKernel() const { return m_kernel; }
    void setKernel(const std::vector<double>& kernel) { m_kernel = kernel; }

    void Conv(std::vector<double>& data) const;
    void ConvCircular(std::vector<double>& data, double period) const;

    // Standard: a fixed 5-tap smoother (a, b ignored). Gaussian(a, b): width
    // from the ratio a/b, normalised. Triangle(a, b): a triangle of
    // 2*ceil(0.44295 a/b) - 1 taps.
    static TezConvFilter1D CreateKernel(FilterType type, double a, double b);
    // Taps 1, 2, ..., n/2 + 1, ..., 2, 1, normalised to sum 1.
    static std::vector<double> CreateTriangle(int n);

private:
    void CreateStandard();
    void CreateGaussian(double a, double b);
    void CreateTriangle(double a, double b);
    void NormalizeKernel();

    std::vector<double> m_kernel;
};
