#pragma once
// TezColor: HSV and RGB conversions, all components 0 to 1; alpha passes
// through the four-component forms. A hue of 1 or more is taken as 0.
//
// TezColorIncrementor steps a colour through HSV space: each ++ adds the
// increment to one HSV component (0 hue, 1 saturation, 2 value, 3 alpha).

#include "math/Vector.h"
#include "platform/Api.h"

class TEZ_API TezColor
{
public:
    static void HsvToRgb(float h, float s, float v, float& r, float& g, float& b);
    static TezVector3<float> HsvToRgb(TezVector3<float> const& hsv);
    static TezVector4<float> HsvToRgb(TezVector4<float> const& hsva);

    static void RgbToHsv(float r, float g, float b, float& h, float& s, float& v);
    static TezVector3<float> RgbToHsv(TezVector3<float> const& rgb);
    static TezVector4<float> RgbToHsv(TezVector4<float> const& rgba);
};

class TEZ_API TezColorIncrementor
{
public:
    TezColorIncrementor(TezVector4<float> const& color, int component, float increment);

    TezVector4<float> const& GetCurrent() const { return m_current; }
    TezColorIncrementor& operator++();

private:
    TezVector4<float> m_current;
    int m_component;
    float m_increment;
};
