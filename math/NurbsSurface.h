#pragma once
// TezNurbsSurface3<T>: a rational B-spline surface in 3 dimensions, after
// Piegl and Tiller. Control point (i, j) is the i-th along u and the j-th
// along v. Evaluation uses the surface's scratch array and allocates
// nothing, so one surface must not be evaluated from two threads at once.
// Accessors throw std::runtime_error for an index out of range, evaluators
// for a parameter outside the knots or an empty surface.
// Instantiated for float and double.

#include "math/Vector.h"
#include "platform/Api.h"

#include <vector>

template <class T>
class TEZ_API TezNurbsSurface3
{
public:
    using V = TezVector3<T>;

    TezNurbsSurface3() = default;

    // numU x numV control points at the origin, unit weights, clamped uniform
    // knots. Any size or degree below 1 leaves the surface empty.
    void Initialize(int numU, int numV, int degreeU, int degreeV);
    void Terminate();
    void Copy(const TezNurbsSurface3& other) { *this = other; }

    int GetDegreeU() const { return m_degreeU; }
    int GetDegreeV() const { return m_degreeV; }
    int GetNumCtrlPtsU() const { return m_numU; }
    int GetNumCtrlPtsV() const { return m_numV; }
    int GetNumKnotsU() const { return static_cast<int>(m_knotsU.size()); }
    int GetNumKnotsV() const { return static_cast<int>(m_knotsV.size()); }
    T GetKnotU(int i) const;
    T GetKnotV(int i) const;
    void SetKnotU(int i, T k);
    void SetKnotV(int i, T k);
    T GetWeight(int i, int j) const;
    void SetWeight(int i, int j, T w);
    const V& GetControlPoint(int i, int j) const;
    void SetControlPoint(int i, int j, const V& p);

    V Evaluate(T u, T v) const;
    // result[k * (order + 1) + l] receives the derivative k times in u and l
    // times in v, for k + l <= order (order at most 8); other entries are 0.
    void Derivatives(T u, T v, int order, V* result) const;

    // Knot insertion along u (every column of control points) or v (every
    // row); returns how many were inserted.
    int InsertKnotU(T u, int multiplicity);
    int InsertKnotV(T v, int multiplicity);

private:
    int Index(const char* op, int i, int j) const;
    void SizeScratch();

    int m_degreeU = 0, m_degreeV = 0;
    int m_numU = 0, m_numV = 0;
    std::vector<V> m_points; // i * m_numV + j
    std::vector<T> m_weights;
    std::vector<T> m_knotsU, m_knotsV;
    mutable std::vector<T> m_scratch;
};

extern template class TezNurbsSurface3<float>;
extern template class TezNurbsSurface3<double>;
