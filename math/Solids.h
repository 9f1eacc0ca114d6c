#pragma once
// Simple analytic solids as value classes, and a region bounded by planes.
// Instantiated for float and double.

#include "math/Box.h"
#include "math/Plane.h"
#include "math/Vector.h"
#include "platform/Api.h"

#include <vector>

template <class T>
class TEZ_API TezCapsule
{
public:
    TezCapsule(T radius = T(1), T height = T(1)) : m_radius(radius), m_height(height) {}
    T GetRadius() const { return m_radius; }
    T GetHeight() const { return m_height; }
    void SetRadius(T v) { m_radius = v; }
    void SetHeight(T v) { m_height = v; }

private:
    T m_radius, m_height;
};

template <class T>
class TEZ_API TezCylinder
{
public:
    TezCylinder(T radius = T(1), T height = T(1)) : m_radius(radius), m_height(height) {}
    T GetRadius() const { return m_radius; }
    T GetHeight() const { return m_height; }
    void SetRadius(T v) { m_radius = v; }
    void SetHeight(T v) { m_height = v; }

private:
    T m_radius, m_height;
};

// A truncated cone along its local z axis: startRadius at z = 0, endRadius at
// z = height.
template <class T>
class TEZ_API TezCone
{
public:
    TezCone(T startRadius = T(1), T endRadius = T(0), T height = T(1))
        : m_startRadius(startRadius), m_endRadius(endRadius), m_height(height)
    {
    }
    T GetStartRadius() const { return m_startRadius; }
    T GetEndRadius() const { return m_endRadius; }
    T GetHeight() const { return m_height; }
    void SetStartRadius(T v) { m_startRadius = v; }
    void SetEndRadius(T v) { m_endRadius = v; }
    void SetHeight(T v) { m_height = v; }

private:
    T m_startRadius, m_endRadius, m_height;
};

template <class T>
class TEZ_API TezSphere
{
public:
    TezSphere(T radius = T(1), const TezVector3<T>& center = TezVector3<T>(0, 0, 0))
        : m_radius(radius), m_center(center)
    {
    }
    T GetRadius() const { return m_radius; }
    const TezVector3<T>& GetCenter() const { return m_center; }
    void SetRadius(T v) { m_radius = v; }
    void SetCenter(const TezVector3<T>& v) { m_center = v; }

private:
    T m_radius;
    TezVector3<T> m_center;
};

template <class T>
class TEZ_API TezTorus
{
public:
    TezTorus(T majorRadius = T(1), T minorRadius = T(0.25)) : m_majorRadius(majorRadius), m_minorRadius(minorRadius) {}
    T GetMajorRadius() const { return m_majorRadius; }
    T GetMinorRadius() const { return m_minorRadius; }
    void SetMajorRadius(T v) { m_majorRadius = v; }
    void SetMinorRadius(T v) { m_minorRadius = v; }

private:
    T m_majorRadius, m_minorRadius;
};

// The intersection of the positive half-spaces of its planes; with no planes
// it holds everything.
template <class T>
class TEZ_API TezClipRegion
{
public:
    TezClipRegion() = default;
    explicit TezClipRegion(std::vector<TezPlane<T>> planes) : m_planes(std::move(planes)) {}

    const std::vector<TezPlane<T>>& GetPlanes() const { return m_planes; }
    void SetPlanes(const std::vector<TezPlane<T>>& planes) { m_planes = planes; }
    void AddPlane(const TezPlane<T>& plane) { m_planes.push_back(plane); }

    bool IsInside(const TezVector3<T>& p) const;
    // False only when the box lies wholly on the negative side of some plane.
    bool IsInside(const TezBox3<T>& box) const;

private:
    std::vector<TezPlane<T>> m_planes;
};

extern template class TezClipRegion<float>;
extern template class TezClipRegion<double>;
