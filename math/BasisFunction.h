#pragma once
// TezBasisFunction<T>: static operations on B-spline knot vectors, after
// Piegl and Tiller, "The NURBS Book" (span search A2.1, basis functions A2.2,
// derivatives A2.3). Instantiated for float and double.

#include "platform/Api.h"

template <class T>
class TEZ_API TezBasisFunction
{
public:
    static int Degree(int numCPs, int numKnots) { return numKnots - numCPs - 1; }
    static int NumKnots(int numCPs, int degree) { return degree + 1 + numCPs; }
    static int NumCPs(int degree, int numKnots) { return numKnots - degree - 1; }

    // n over k for 0 <= k <= n <= 8 (a fixed table); throws std::runtime_error
    // outside it.
    static int BinomialCoefficient(int n, int k);

    // Clamped uniform knots on [0, 1]. Writes nothing when numKnots is below
    // 2 * degree + 2.
    static void MakeUniform(int degree, int numKnots, T* knots);

    // Span i with knots[i] <= u <= knots[i+1], by bisection over
    // [degree, numKnots - degree - 1]; -1 below knots[0], numKnots above the
    // last knot. The upper test is closed, so a u on an inner knot may land
    // in either neighbouring span.
    static int FindKnotSpan(T u, int degree, int numKnots, const T* knots);

    // Multiplicity of knots[index] by exact comparison; 0 for an index out of
    // range. Counting downward stops before index 0 (element 0 is never
    // counted from above it).
    static int FindKnotMult(int index, int numKnots, const T* knots);

    // The degree + 1 nonzero basis functions at u in span; left and right
    // need degree + 1 elements each.
    static void Evaluate(T u, int span, int degree, const T* knots, T* left, T* right, T* N);

    // As Evaluate, for clamped uniform knots (MakeUniform) whose span follows
    // from u directly; returns the span.
    static int EvaluateUniform(T u, int degree, int numKnots, const T* knots, T* left, T* right, T* N);

    // Basis functions and their derivatives up to order: ders[k * (degree+1) + j]
    // is the k-th derivative of N[span-degree+j]. scratch needs
    // DerivativesScratchSize(degree) elements; orders above the degree are 0.
    static void Derivatives(T u, int span, int degree, int order, const T* knots, T* scratch, T* ders);
    static int DerivativesScratchSize(int degree) { return (degree + 1) * (degree + 1) + 4 * (degree + 1); }
};

extern template class TezBasisFunction<float>;
extern template class TezBasisFunction<double>;
