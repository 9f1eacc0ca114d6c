#pragma once
// SetUpRay of OctreeKernels.inl for four pixels of a row at once, in the
// lanes of SSE registers: the same operations in the same order, each lane
// rounding as the scalar code does (no fused multiply-adds on either side),
// so the rays are bit for bit those of SetUpRay. Without SSE2, four calls of
// SetUpRay.
//
// Host only.

#include "volume/device/OctreeKernels.inl"

#if defined(__SSE2__)
#    include <emmintrin.h>
#endif

namespace TezOctreeDevice {

#if defined(__SSE2__)
namespace rays4 {

using F = __m128;

inline F Set(float v) { return _mm_set1_ps(v); }
inline F Select(F mask, F a, F b) { return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b)); }
// MaxF and MinF lane by lane: a where it wins or b is NaN, else b.
inline F Max(F a, F b) { return Select(_mm_or_ps(_mm_cmpgt_ps(a, b), _mm_cmpunord_ps(b, b)), a, b); }
inline F Min(F a, F b) { return Select(_mm_or_ps(_mm_cmplt_ps(a, b), _mm_cmpunord_ps(b, b)), a, b); }

struct F3
{
    F x, y, z;
};

inline F Dot(const float3s& a, const F3& b)
{
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(Set(a.x), b.x), _mm_mul_ps(Set(a.y), b.y)), _mm_mul_ps(Set(a.z), b.z));
}
inline F Dot(const F3& a, const F3& b)
{
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(a.x, b.x), _mm_mul_ps(a.y, b.y)), _mm_mul_ps(a.z, b.z));
}
// Row-vector transform of OctreeKernels.inl: column j of T's upper 3 x 3.
inline F Column(const F3& p, const float* T, int j)
{
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(p.x, Set(T[j])), _mm_mul_ps(p.y, Set(T[4 + j]))),
                      _mm_mul_ps(p.z, Set(T[8 + j])));
}
inline F ClampAxis(F d, F floor)
{
    const F sign = Set(-0.0f);
    const F magnitude = _mm_andnot_ps(sign, d);
    return Select(_mm_cmplt_ps(magnitude, floor), _mm_or_ps(_mm_andnot_ps(sign, floor), _mm_and_ps(sign, d)), d);
}

} // namespace rays4

// Rays of pixels (x .. x + 3, y); bit k of the answer is SetUpRay's answer
// for pixel x + k.
template <class Range>
inline int SetUpRays4(const Camera& cam, const RayFrame& frame, const float* T, int x, int y, const Range& range,
                      Ray (&rays)[4])
{
    using namespace rays4;
    const float v = 2.0f * (static_cast<float>(y) + 0.5f) / static_cast<float>(cam.height) - 1.0f;
    const F px = _mm_add_ps(_mm_cvtepi32_ps(_mm_setr_epi32(x, x + 1, x + 2, x + 3)), Set(0.5f));
    const F u =
        _mm_mul_ps(_mm_sub_ps(Set(1.0f), _mm_div_ps(_mm_mul_ps(Set(2.0f), px), Set(static_cast<float>(cam.width)))),
                   Set(frame.aspect));
    const float h = frame.h;
    F3 origin, dir;
    if (cam.perspective) {
        const float c = 1.0f / h;
        const F L = _mm_sqrt_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(u, u), Set(v * v)), Set(c * c)));
        const F3 w{_mm_div_ps(u, L), _mm_div_ps(Set(v), L), _mm_div_ps(Set(c), L)};
        dir = F3{Dot(cam.axisX, w), Dot(cam.axisY, w), Dot(cam.axisZ, w)};
        origin = F3{Set(cam.eye.x), Set(cam.eye.y), Set(cam.eye.z)};
    } else {
        const float3s D = Sub(cam.focus, cam.eye);
        const float dist = sqrtf(TezOctreeDevice::Dot(D, D));
        const float s = h * dist;
        const F3 w{_mm_mul_ps(u, Set(s)), Set(v * s), Set(0.0f)};
        origin = F3{_mm_add_ps(Set(cam.eye.x), Dot(cam.axisX, w)), _mm_add_ps(Set(cam.eye.y), Dot(cam.axisY, w)),
                    _mm_add_ps(Set(cam.eye.z), Dot(cam.axisZ, w))};
        dir = F3{Set(D.x / dist), Set(D.y / dist), Set(D.z / dist)};
    }
    const F3 o{_mm_add_ps(Column(origin, T, 0), Set(T[12])), _mm_add_ps(Column(origin, T, 1), Set(T[13])),
               _mm_add_ps(Column(origin, T, 2), Set(T[14]))};
    const F3 d{Column(dir, T, 0), Column(dir, T, 1), Column(dir, T, 2)};
    const F len = _mm_sqrt_ps(Dot(d, d));
    const F3 viewDir{_mm_div_ps(d.x, len), _mm_div_ps(d.y, len), _mm_div_ps(d.z, len)};
    const F floor = _mm_mul_ps(Set(TezEpsilonf), Min(len, Set(1.0f)));
    const F3 clamped{ClampAxis(d.x, floor), ClampAxis(d.y, floor), ClampAxis(d.z, floor)};
    const F3 inv{_mm_div_ps(Set(-1.0f), clamped.x), _mm_div_ps(Set(-1.0f), clamped.y),
                 _mm_div_ps(Set(-1.0f), clamped.z)};
    const F sign = Set(-0.0f);
    const F unitT = _mm_div_ps(Set(1.0f), Max(_mm_andnot_ps(sign, clamped.x),
                                              Max(_mm_andnot_ps(sign, clamped.y), _mm_andnot_ps(sign, clamped.z))));
    const F zero = _mm_setzero_ps();
    const F3 corner{_mm_and_ps(_mm_cmplt_ps(clamped.x, zero), inv.x), _mm_and_ps(_mm_cmplt_ps(clamped.y, zero), inv.y),
                    _mm_and_ps(_mm_cmplt_ps(clamped.z, zero), inv.z)};
    const F3 pos{_mm_mul_ps(o.x, inv.x), _mm_mul_ps(o.y, inv.y), _mm_mul_ps(o.z, inv.z)};
    const F entry = Max(_mm_sub_ps(pos.x, corner.x), Max(_mm_sub_ps(pos.y, corner.y), _mm_sub_ps(pos.z, corner.z)));
    const F tEntry = Max(_mm_add_ps(entry, Set(0.0005f)), zero);
    const F3 exitBias{_mm_sub_ps(corner.x, inv.x), _mm_sub_ps(corner.y, inv.y), _mm_sub_ps(corner.z, inv.z)};
    // Min3: the smaller of z and y, then of that and x.
    const F ex = _mm_add_ps(pos.x, exitBias.x), ey = _mm_add_ps(pos.y, exitBias.y), ez = _mm_add_ps(pos.z, exitBias.z);
    const F zy = Select(_mm_cmplt_ps(ez, ey), ez, ey);
    const F tExit = Min(Select(_mm_cmplt_ps(zy, ex), zy, ex), Set(TezInfinityf));

    alignas(16) float lanes[22][4];
    const F all[22] = {o.x,       o.y,   o.z,   clamped.x, clamped.y,  clamped.z,  viewDir.x,  viewDir.y,
                       viewDir.z, inv.x, inv.y, inv.z,     exitBias.x, exitBias.y, exitBias.z, tEntry,
                       tExit,     unitT, d.x,   d.y,       d.z,        zero};
    for (int i = 0; i < 22; ++i)
        _mm_store_ps(lanes[i], all[i]);
    int valid = 0;
    for (int k = 0; k < 4; ++k) {
        Ray& ray = rays[k];
        ray.origin = Make3(lanes[0][k], lanes[1][k], lanes[2][k]);
        ray.dir = Make3(lanes[3][k], lanes[4][k], lanes[5][k]);
        ray.viewDir = Make3(lanes[6][k], lanes[7][k], lanes[8][k]);
        ray.inv = Make3(lanes[9][k], lanes[10][k], lanes[11][k]);
        ray.exitBias = Make3(lanes[12][k], lanes[13][k], lanes[14][k]);
        ray.tEntry = lanes[15][k];
        ray.tExit = lanes[16][k];
        ray.unitT = lanes[17][k];
        ray.cutEntry = false;
        ray.cutNormal = Make3(0.0f, 0.0f, 0.0f);
        ApplyRange(range, ray.origin, Make3(lanes[18][k], lanes[19][k], lanes[20][k]), ray);
        valid |= (ray.tEntry < ray.tExit) << k;
    }
    return valid;
}
#else
template <class Range>
inline int SetUpRays4(const Camera& cam, const RayFrame& frame, const float* T, int x, int y, const Range& range,
                      Ray (&rays)[4])
{
    int valid = 0;
    for (int k = 0; k < 4; ++k)
        valid |= SetUpRay(cam, frame, T, x + k, y, range, rays[k]) << k;
    return valid;
}
#endif

} // namespace TezOctreeDevice
