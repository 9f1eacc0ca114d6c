#pragma once
// TezRay: a start point and a direction (used as given, not normalised).

#include "math/Vector.h"
#include "platform/Api.h"

class TEZ_API TezRay
{
public:
    TezRay() : m_start(0, 0, 0), m_direction(0, 0, 1) {}
    TezRay(const TezVector3<float>& start, const TezVector3<float>& direction) : m_start(start), m_direction(direction)
    {
    }

    const TezVector3<float>& GetStart() const { return m_start; }
    const TezVector3<float>& GetDirection() const { return m_direction; }
    void SetStart(const TezVector3<float>& v) { m_start = v; }
    void SetDirection(const TezVector3<float>& v) { m_direction = v; }
    TezVector3<float> PointOnRay(float t) const { return m_start + m_direction * t; }

private:
    TezVector3<float> m_start, m_direction;
};
