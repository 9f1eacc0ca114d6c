#pragma once
// TezBox2<T>, TezBox3<T>: axis-aligned boxes given by their minimum and
// maximum corners.
//
// A box is empty when minimum > maximum on some axis; a default box is
// cleared (minimum +1e30, maximum -1e30). Middle() answers 1e30 for an empty
// box while Center() does not test; Extents() answers zero for an empty box
// while Length() does not test. TransformGeometry moves only the two corners
// (exact for scale and translation); TezMatrix44 * box transforms all eight.
// TezBox2 is instantiated for float and double, TezBox3 also for int.

#include "math/Matrix.h"
#include "math/Vector.h"
#include "platform/Api.h"

template <class T>
class TEZ_API TezBox2
{
public:
    TezBox2() { Clear(); }
    TezBox2(const TezVector2<T>& mn, const TezVector2<T>& mx) : m_min(mn), m_max(mx) {}

    void Clear();
    bool Empty() const { return m_min.x > m_max.x || m_min.y > m_max.y; }
    const TezVector2<T>& GetMinimum() const { return m_min; }
    const TezVector2<T>& GetMaximum() const { return m_max; }
    void SetMinimum(const TezVector2<T>& v) { m_min = v; }
    void SetMaximum(const TezVector2<T>& v) { m_max = v; }

    TezVector2<T> Corner(bool maxX, bool maxY) const;
    TezVector2<T> Extents() const;
    TezVector2<T> Middle() const;
    void Grow(T s);

    TezBox2& operator+=(const TezVector2<T>& p);
    TezBox2& operator+=(const TezBox2& b);

private:
    TezVector2<T> m_min, m_max;
};

template <class T>
class TEZ_API TezBox3
{
public:
    TezBox3() { Clear(); }
    TezBox3(const TezVector3<T>& mn, const TezVector3<T>& mx) : m_min(mn), m_max(mx) {}

    void Clear();
    bool Empty() const { return m_min.x > m_max.x || m_min.y > m_max.y || m_min.z > m_max.z; }
    const TezVector3<T>& GetMinimum() const { return m_min; }
    const TezVector3<T>& GetMaximum() const { return m_max; }
    void SetMinimum(const TezVector3<T>& v) { m_min = v; }
    void SetMaximum(const TezVector3<T>& v) { m_max = v; }

    // Per axis, true takes the maximum.
    TezVector3<T> Corner(bool maxX, bool maxY, bool maxZ) const;
    TezVector3<T> Center() const;
    TezVector3<T> Middle() const;
    TezVector3<T> Extents() const;
    TezVector3<T> Length() const;
    T Length(int axis) const;
    T MaxLength() const;
    T MinLength() const;

    void Grow(T s);
    void Grow(T sx, T sy, T sz);

    bool Contains(const TezVector3<T>& p) const;
    bool Contains(const TezBox3& b) const;
    bool ContainsSphere(const TezVector3<T>& c, T r) const;
    bool FuzzyContains(const TezVector3<T>& p, T t) const;
    bool FuzzyContains(const TezBox3& b, T t) const;
    bool Overlaps(const TezBox3& b) const;
    bool OverlapsSphere(const TezVector3<T>& c, T r) const;

    TezVector3<T> Closest(const TezVector3<T>& p) const;
    TezVector3<T> Farthest(const TezVector3<T>& p) const;

    void TransformGeometry(const TezMatrix44<T>& m);

    TezBox3& operator+=(const TezVector3<T>& p);
    TezBox3& operator+=(const TezBox3& b);
    bool operator==(const TezBox3& o) const { return m_min == o.m_min && m_max == o.m_max; }
    bool operator!=(const TezBox3& o) const { return !(*this == o); }

private:
    TezVector3<T> m_min, m_max;
};

// All eight corners transformed into a new box; an empty box stays as it is.
template <class T>
TEZ_API TezBox3<T> operator*(const TezMatrix44<T>& m, const TezBox3<T>& b);

extern template class TezBox2<float>;
extern template class TezBox2<double>;
extern template class TezBox3<int>;
extern template class TezBox3<float>;
extern template class TezBox3<double>;
