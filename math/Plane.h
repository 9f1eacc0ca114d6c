#pragma once
// TezPlane<T>: a plane with a frame (root, normal, u and v directions).
//
// The default plane is z = 0 with u = X, v = Y. The (root, normal)
// constructor derives u = Y x normal (or Z when that vanishes), normalised,
// and v = normal x u; the normal is stored as given. Setters store what they
// are given and re-derive nothing. Distance is signed and not divided by the
// normal's length. Instantiated for float and double.

#include "math/Vector.h"
#include "platform/Api.h"

template <class T>
class TEZ_API TezPlane
{
public:
    TezPlane();
    TezPlane(const TezVector3<T>& root, const TezVector3<T>& normal);
    // Root p0; u along p1 - p0; normal = u x (p2 - p0), both normalised.
    TezPlane(const TezVector3<T>& p0, const TezVector3<T>& p1, const TezVector3<T>& p2);

    const TezVector3<T>& GetRoot() const { return m_root; }
    const TezVector3<T>& GetNormal() const { return m_normal; }
    const TezVector3<T>& GetUDirection() const { return m_u; }
    const TezVector3<T>& GetVDirection() const { return m_v; }
    void SetRoot(const TezVector3<T>& v) { m_root = v; }
    void SetNormal(const TezVector3<T>& v) { m_normal = v; }
    void SetUDirection(const TezVector3<T>& v) { m_u = v; }
    void SetVDirection(const TezVector3<T>& v) { m_v = v; }

    T Distance(const TezVector3<T>& p) const { return (p - m_root) * m_normal; }
    bool IsInside(const TezVector3<T>& p) const { return Distance(p) >= 0; }
    TezVector3<T> Evaluate(const TezVector2<T>& uv) const { return m_root + m_u * uv.x + m_v * uv.y; }
    TezVector3<T> EvaluateVector(const TezVector2<T>& uv) const { return m_u * uv.x + m_v * uv.y; }
    TezVector2<T> Project(const TezVector3<T>& p) const
    {
        const TezVector3<T> d = p - m_root;
        return TezVector2<T>(d * m_u, d * m_v);
    }
    TezVector3<T> ProjectPoint(const TezVector3<T>& p) const { return Evaluate(Project(p)); }

    // Column-major transform: u, v, normal, root in the four columns.
    void GetTransform(T out[16]) const;

private:
    TezVector3<T> m_root, m_normal, m_u, m_v;
};

extern template class TezPlane<float>;
extern template class TezPlane<double>;
