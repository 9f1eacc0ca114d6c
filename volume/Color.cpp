#include "volume/Color.h"

#include <algorithm>

void TezColor::HsvToRgb(float h, float s, float v, float& r, float& g, float& b)
{
    if (s <= 0.0f) {
        r = g = b = v;
        return;
    }
    if (h >= 1.0f)
        h = 0.0f;
    float const scaled = 6.0f * h;
    int const i = static_cast<int>(scaled);
    float const f = scaled - static_cast<float>(i);
    float const p = (1.0f - s) * v;
    float const q = (1.0f - f * s) * v;
    float const t = (1.0f - (1.0f - f) * s) * v;
    switch (i) {
    case 0:
        r = v, g = t, b = p;
        break;
    case 1:
        r = q, g = v, b = p;
        break;
    case 2:
        r = p, g = v, b = t;
        break;
    case 3:
        r = p, g = q, b = v;
        break;
    case 4:
        r = t, g = p, b = v;
        break;
    default:
        r = v, g = p, b = q;
        break;
    }
}

TezVector3<float> TezColor::HsvToRgb(TezVector3<float> const& hsv)
{
    TezVector3<float> rgb;
    HsvToRgb(hsv.x, hsv.y, hsv.z, rgb.x, rgb.y, rgb.z);
    return rgb;
}

TezVector4<float> TezColor::HsvToRgb(TezVector4<float> const& hsva)
{
    TezVector4<float> rgba;
    HsvToRgb(hsva.x, hsva.y, hsva.z, rgba.x, rgba.y, rgba.z);
    rgba.w = hsva.w;
    return rgba;
}

void TezColor::RgbToHsv(float r, float g, float b, float& h, float& s, float& v)
{
    v = std::max({r, g, b});
    float const delta = v - std::min({r, g, b});
    if (delta == 0.0f) {
        h = s = 0.0f;
        return;
    }
    s = delta / v;
    float const dr = ((v - r) / 6.0f + delta / 2.0f) / delta;
    float const dg = ((v - g) / 6.0f + delta / 2.0f) / delta;
    float const db = ((v - b) / 6.0f + delta / 2.0f) / delta;
    if (r == v)
        h = db - dg;
    else if (g == v)
        h = dr + 0.33333334f - db;
    else
        h = dg + 0.6666667f - dr;
    if (h < 0.0f)
        h += 1.0f;
    if (h > 1.0f)
        h -= 1.0f;
}

TezVector3<float> TezColor::RgbToHsv(TezVector3<float> const& rgb)
{
    TezVector3<float> hsv;
    RgbToHsv(rgb.x, rgb.y, rgb.z, hsv.x, hsv.y, hsv.z);
    return hsv;
}

TezVector4<float> TezColor::RgbToHsv(TezVector4<float> const& rgba)
{
    TezVector4<float> hsva;
    RgbToHsv(rgba.x, rgba.y, rgba.z, hsva.x, hsva.y, hsva.z);
    hsva.w = rgba.w;
    return hsva;
}

TezColorIncrementor::TezColorIncrementor(TezVector4<float> const& color, int component, float increment)
    : m_current(color), m_component(component), m_increment(increment)
{
}

TezColorIncrementor& TezColorIncrementor::operator++()
{
    TezVector4<float> hsva = TezColor::RgbToHsv(m_current);
    if (m_component >= 0 && m_component < 4)
        hsva[m_component] += m_increment;
    m_current = TezColor::HsvToRgb(hsva);
    return *this;
}
