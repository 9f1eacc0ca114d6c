#include "volume/device/CameraRecord.h"

#include <cmath>

TezRay TezCameraRecord::GetPixelRay(int x, int y) const
{
    float const w = static_cast<float>(width);
    float const h = static_cast<float>(height);
    float const v = 2.0f * (static_cast<float>(y) + 0.5f) / h - 1.0f;
    float const aspect = w / h;
    float const u = (1.0f - 2.0f * (static_cast<float>(x) + 0.5f) / w) * aspect;
    float const halfTan = std::tan(fov / 2.0f);
    // Rows axisX, axisY, axisZ applied to a view-space vector.
    auto toWorld = [this](TezVector3<float> const& d) { return TezVector3<float>(axisX * d, axisY * d, axisZ * d); };
    if (perspective) {
        float const c = 1.0f / halfTan;
        float const length = std::sqrt(u * u + v * v + c * c);
        return TezRay(eye, toWorld(TezVector3<float>(u / length, v / length, c / length)));
    }
    TezVector3<float> const sight = focus - eye;
    float const distance = sight.Length();
    float const s = halfTan * distance;
    return TezRay(eye + toWorld(TezVector3<float>(u * s, v * s, 0.0f)), sight / distance);
}
