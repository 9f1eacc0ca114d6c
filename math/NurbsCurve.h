#pragma once
// TezNurbsCurve<T, N, V>: a rational B-spline curve in N = 2 or 3 dimensions
// (V is TezVector2<T> or TezVector3<T>), after Piegl and Tiller.
//
// Evaluation uses the curve's scratch array and allocates nothing; for the
// same reason one curve must not be evaluated from two threads at once.
// Accessors throw std::runtime_error for an index out of range, and the
// evaluators for a parameter outside the knot range or an empty curve.
// Instantiated for (float, 2), (double, 2), (float, 3), (double, 3).

#include "math/Vector.h"
#include "platform/Api.h"

#include <vector>

template <class T, int N, class V>
class TEZ_API TezNurbsCurve
{
public:
    TezNurbsCurve() = default;

    // A negative argument makes both 0, and zero sizes leave the curve empty;
    // otherwise numCPs points at the origin, unit weights, uniform knots.
    void Initialize(int degree, int numCPs);
    // Copies the arrays; a degree below 1 or no points gives an empty curve,
    // empty weights become ones and empty knots uniform. Throws when the
    // sizes do not fit together.
    void Initialize(int degree, const std::vector<V>& points, const std::vector<T>& weights,
                    const std::vector<T>& knots);
    void Terminate();
    void Copy(const TezNurbsCurve& other) { *this = other; }

    int GetDegree() const { return m_degree; }
    int GetDimension() const { return N; }
    int GetNumCtrlPts() const { return static_cast<int>(m_points.size()); }
    int GetNumKnots() const;
    const V& GetControlPoint(int i) const;
    void SetControlPoint(int i, const V& p);
    T GetWeight(int i) const;
    void SetWeight(int i, T w);
    T GetKnot(int i) const;
    void SetKnot(int i, T k);

    // Sum of w N P over sum of w N, divided by V's operator/= (with its rule
    // for a zero denominator).
    V Evaluate(T u) const;
    // result[0..order] receives the curve point and its derivatives (order at
    // most 8).
    void Derivatives(T u, int order, V* result) const;

    // Inserts u up to `multiplicity` times, never beyond the degree counting
    // the multiplicity it already has; returns how many were inserted.
    int InsertKnot(T u, int multiplicity);
    // Removes the knot at `index` (any of its copies) up to `times` times
    // while the curve stays within 1e-6 in homogeneous space; returns the
    // number of removals done.
    int RemoveKnot(int index, int times);

    // The parameter beyond t at which the curve comes to squared distance
    // distanceSquared from point, by stepping then bisection; point receives
    // the last evaluated curve point.
    T GetTime(V& point, T t, T distanceSquared, T step, int iterations, T tolerance) const;
    // Points along the curve from parameter start to 1, each at the chord
    // distance of C(start)..C(end) from the one before (the last may be
    // closer: it is C(1)). A step of 0 or below becomes 1/(points - 1).
    std::vector<V> SubdivideByArcLength(T start, T end, int iterations, T step) const;

private:
    void CheckIndex(const char* op, int i, size_t size) const;
    int SpanOf(const char* op, T u) const;
    void SizeScratch();

    int m_degree = 0;
    std::vector<V> m_points;
    std::vector<T> m_weights;
    std::vector<T> m_knots;
    mutable std::vector<T> m_scratch;
};

template <class T>
using TezNurbsCurve2 = TezNurbsCurve<T, 2, TezVector2<T>>;
template <class T>
using TezNurbsCurve3 = TezNurbsCurve<T, 3, TezVector3<T>>;

// Global interpolation through numPoints points with a curve of the given
// degree (Piegl and Tiller 9.2.1): knots by averaging the parameters, the
// banded system solved in double. parametrization 0 takes uniform
// parameters, 1 chord length, 2 centripetal. An empty curve results when
// there are fewer points than degree + 1 or the degree is below 1.
template <class T>
TEZ_API TezNurbsCurve2<T> TezInterpolateCurve2(int numPoints, const TezVector2<T>* points, int degree,
                                               int parametrization);
template <class T>
TEZ_API TezNurbsCurve3<T> TezInterpolateCurve3(int numPoints, const TezVector3<T>* points, int degree,
                                               int parametrization);

extern template class TezNurbsCurve<float, 2, TezVector2<float>>;
extern template class TezNurbsCurve<double, 2, TezVector2<double>>;
extern template class TezNurbsCurve<float, 3, TezVector3<float>>;
extern template class TezNurbsCurve<double, 3, TezVector3<double>>;
