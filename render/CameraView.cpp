#include "render/CameraView.h"

#include "core/Events.h"
#include "core/Threads.h"
#include "math/Constants.h"
#include "math/Distance.h"
#include "math/Plane.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <strings.h>

TEZ_DEFINE_REF_FUNCTIONS(TezCameraView)

using Vec3 = TezVector3<float>;
using Mat44 = TezMatrix44<float>;

TezVector3<float> const TezCameraView::StandardFrom[StandardViewCount] = {
    {0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, -1, 0.5f}, {2, 2, 1}};
TezVector3<float> const TezCameraView::StandardTo[StandardViewCount] = {{0, 0, -1}, {0, 0, 1},  {-1, 0, 0}, {1, 0, 0},
                                                                        {0, 1, 0},  {0, -1, 0}, {0, 0, 0},  {0, 0, 0}};
TezVector3<float> const TezCameraView::StandardUp[StandardViewCount] = {{0, 1, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 1},
                                                                        {0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}};

namespace {

char const* const g_viewNames[TezCameraView::StandardViewCount] = {"front", "back",   "right",  "left",
                                                                   "top",   "bottom", "tilted", "isometric"};

Mat44 Identity() { return TezIdentityTransform<float>(); }

} // namespace

char const* TezCameraView::GetStandardViewName(int view)
{
    return view >= 0 && view < StandardViewCount ? g_viewNames[view] : nullptr;
}

int TezCameraView::FindStandardView(char const* name)
{
    if (!name)
        return -1;
    for (int i = 0; i < StandardViewCount; ++i)
        if (strcasecmp(name, g_viewNames[i]) == 0)
            return i;
    return -1;
}

int TezCameraView::StandardViewIndex(char const* name)
{
    int const view = FindStandardView(name);
    return view < 0 ? Tilted : view;
}

TezRef<TezCameraView> TezCameraView::Create() { return TezRef<TezCameraView>(new TezCameraView()); }

void TezCameraView::Resize(int width, int height)
{
    m_width = width;
    m_height = height;
}

float TezCameraView::HalfAngleTan() const { return std::tan(TezPif * 0.5f * m_fov / 180.0f); }

float TezCameraView::Aspect() const { return static_cast<float>(m_width) / static_cast<float>(m_height); }

// ---- rotations and motion ----

void TezCameraView::RotateView(TezQuaternion<float> const& q)
{
    TezMatrix33<float> const r = q.Matrix();
    SetUp(r * GetUp());
    SetEye(GetFocus() + r * (GetEye() - GetFocus()));
}

void TezCameraView::RotateAround(float angle)
{
    TezQuaternion<float> const q(angle, (GetEye() - GetFocus()).Normalized());
    SetUp(q.Matrix() * GetUp());
}

void TezCameraView::RotateHorizontally(float angle)
{
    // The up vector serves as the axis unnormalised, as it stands.
    TezQuaternion<float> const q(angle, GetUp());
    SetEye(GetFocus() + q.Matrix() * (GetEye() - GetFocus()));
}

void TezCameraView::RotateVertically(float angle)
{
    Vec3 const axis = (GetUp() ^ (GetEye() - GetFocus())).Normalized();
    RotateView(TezQuaternion<float>(angle, axis));
}

void TezCameraView::Move(int dx, int dy)
{
    float const fx = static_cast<float>(dx) / static_cast<float>(GetWidth());
    float const fy = static_cast<float>(dy) / static_cast<float>(GetHeight());
    float const aspect = static_cast<float>(GetWidth()) / static_cast<float>(GetHeight());
    Vec3 back = GetEye() - GetFocus();
    float const s = HalfAngleTan() * back.Length();
    back.Normalize();
    Vec3 const r = (GetUp().Normalized() ^ back).Normalized();
    Vec3 const u = (back ^ r).Normalized();
    Vec3 const offset = r * (2.0f * s * aspect * fx) + u * (-2.0f * s * fy);
    SetEye(GetEye() + offset);
    SetFocus(GetFocus() + offset);
}

void TezCameraView::NearFarToBox(TezBox3<float> const& box)
{
    Vec3 const eye = GetEye();
    Vec3 const dir = (GetFocus() - eye).Normalized();
    float nearD = TezMinDistBoxOnRay(eye, dir, box);
    float farD = TezMaxDistBoxOnRay(eye, dir, box);
    if (static_cast<double>(farD) < 1e-06)
        farD = 10.0f;
    if (static_cast<double>(nearD) < 1e-06)
        nearD = farD * 0.1f;
    if (nearD > farD)
        farD = nearD * 10.0f;
    SetNear(nearD * 0.9f);
    SetFar(farD * 1.1f);
}

// ---- matrices and axes ----

TezMatrix44<float> TezCameraView::GetPerspectiveMatrix() const
{
    float const f = 1.0f / HalfAngleTan();
    float const aspect = Aspect();
    Mat44 m = Identity();
    m[0][0] = -(f / aspect);
    m[1][1] = f;
    m[2][2] = (m_near + m_far) / (m_far - m_near);
    m[2][3] = 1.0f;
    m[3][2] = -2.0f * m_near * m_far / (m_far - m_near);
    m[3][3] = 0.0f;
    return m;
}

TezMatrix44<float> TezCameraView::GetOrthographicMatrix() const
{
    float const aspect = m_height > 0 ? Aspect() : 1.0f;
    float const top = HalfAngleTan() * (m_focus - m_eye).Length();
    float const right = top * aspect;
    Mat44 m = Identity();
    m[0][0] = 2.0f / (-right - right);
    m[1][1] = 2.0f / (top + top);
    m[2][2] = 1.0f / (m_far - m_near);
    m[3][2] = m_near / (m_near - m_far);
    return m;
}

TezMatrix44<float> TezCameraView::GetProjectionMatrix() const
{
    return UsingPerspective() ? GetPerspectiveMatrix() : GetOrthographicMatrix();
}

TezMatrix44<float> TezCameraView::GetViewOrientationMatrix() const
{
    Vec3 x, y, z;
    GetViewAxes(x, y, z);
    Mat44 m = Identity();
    for (int i = 0; i < 3; ++i)
        m[i] = TezVector4<float>(x[i], y[i], z[i], 0.0f);
    return m;
}

TezMatrix44<float> TezCameraView::GetViewMatrix() const
{
    Vec3 x, y, z;
    GetViewAxes(x, y, z);
    Mat44 m = GetViewOrientationMatrix();
    m[3] = TezVector4<float>(-(x * m_eye), -(y * m_eye), -(z * m_eye), 1.0f);
    return m;
}

void TezCameraView::GetViewAxes(TezVector3<float>& x, TezVector3<float>& y, TezVector3<float>& z) const
{
    z = (m_focus - m_eye).Normalized();
    x = (m_up ^ z).Normalized();
    y = (z ^ x).Normalized();
}

void TezCameraView::GetInverseViewAxes(TezVector3<float>& x, TezVector3<float>& y, TezVector3<float>& z) const
{
    Vec3 ax, ay, az;
    GetViewAxes(ax, ay, az);
    TezMatrix33<float> const inverse = TezMatrix33<float>(ax, ay, az).Inverse();
    x = inverse[0];
    y = inverse[1];
    z = inverse[2];
}

float TezCameraView::GetScale() const { return HalfAngleTan() * (m_focus - m_eye).Length(); }

// ---- pixels, points and rays ----

TezRay TezCameraView::RayToPixel(float x, float y) const
{
    float const w = static_cast<float>(m_width);
    float const h = static_cast<float>(m_height);
    float const sx = -(2.0f * (x + 0.5f) / w - 1.0f);
    float const sy = -(2.0f * (y + 0.5f) / h - 1.0f);
    float const aspect = w / h;
    float const t = HalfAngleTan();
    if (UsingPerspective()) {
        Vec3 const d = Vec3(aspect * sx, sy, 1.0f / t).Normalized();
        return TezRay(m_eye, GetViewOrientationMatrix().Inverse() * d);
    }
    float const half = t * (m_focus - m_eye).Length();
    Vec3 const start = GetViewMatrix().Inverse() * Vec3(half * aspect * sx, half * sy, 0.0f);
    return TezRay(start, (m_focus - m_eye).Normalized());
}

TezVector3<float> TezCameraView::PointFromPixel(int x, int y) const
{
    TezRay const ray = RayToPixel(static_cast<float>(x), static_cast<float>(y));
    float const distance = UsingPerspective() ? m_near : (m_eye - m_focus).Length();
    return ray.PointOnRay(distance);
}

TezVector3<float> TezCameraView::PixelFromPoint(TezVector3<float> const& p) const
{
    Vec3 ix, iy, iz;
    GetInverseViewAxes(ix, iy, iz);
    Vec3 const v = TezMatrix33<float>(ix, iy, iz) * (p - m_eye);
    float const t = HalfAngleTan();
    float const aspect = Aspect();
    float half, depth;
    if (UsingPerspective()) {
        half = t * v.z;
        depth = v.Length();
    } else {
        half = t * (m_eye - m_focus).Length();
        depth = std::abs(v.z);
    }
    float const u = v.x / -(half * aspect);
    float const w = v.y / half;
    return Vec3((u + 1.0f) * 0.5f * static_cast<float>(m_width), (w + 1.0f) * 0.5f * static_cast<float>(m_height),
                depth);
}

TezClipRegion<float> TezCameraView::ClipRegionFromPixel(int x0, int y0, int x1, int y1) const
{
    if (x0 > x1)
        std::swap(x0, x1);
    if (y0 > y1)
        std::swap(y0, y1);
    if (x0 == x1)
        ++x1;
    if (y0 == y1)
        ++y1;
    TezRay const corners[4] = {
        RayToPixel(static_cast<float>(x0), static_cast<float>(y0)),
        RayToPixel(static_cast<float>(x1), static_cast<float>(y0)),
        RayToPixel(static_cast<float>(x1), static_cast<float>(y1)),
        RayToPixel(static_cast<float>(x0), static_cast<float>(y1)),
    };
    TezClipRegion<float> region;
    for (int i = 0; i < 4; ++i) {
        TezRay const& a = corners[i];
        TezRay const& b = corners[(i + 1) % 4];
        region.AddPlane(TezPlane<float>(a.GetStart(), a.PointOnRay(100.0f), b.PointOnRay(100.0f)));
    }
    return region;
}

// ---- fits ----

void TezCameraView::ZoomAll(TezBox3<float> const& box)
{
    SetFov(30.0f);
    Vec3 const m = box.Middle();
    Vec3 const n = (GetFocus() - GetEye()).Normalized();
    Vec3 const x = (GetUp() ^ n).Normalized();
    Vec3 const y = (n ^ x).Normalized();
    // The translation lands in the bottom row, which a point transform
    // ignores: the box is only rotated about the origin, not recentred.
    Mat44 rotation = Identity();
    rotation[0] = TezVector4<float>(x, m * -x);
    rotation[1] = TezVector4<float>(y, m * -y);
    rotation[2] = TezVector4<float>(n, m * -n);
    TezBox3<float> const rotated = rotation * box;

    float const k = 1.0f / std::tan(TezPif * 15.0f / 180.0f);
    float const ka = k * static_cast<float>(GetWidth()) / static_cast<float>(GetHeight());
    float d = 0.0f;
    for (int c = 0; c < 8; ++c) {
        Vec3 const p = rotated.Corner(c & 1, c & 2, c & 4);
        d = std::min({d, -(std::abs(p.y) * k) - p.z, -(std::abs(p.x) * ka) - p.z});
    }
    SetFocus(m);
    SetEye(m + n * d);
    NearFarToBox(box);
}

void TezCameraView::CalcZoomAll(TezBox3<float> box, TezVector3<float> const& from, TezVector3<float> const& to,
                                TezVector3<float> const& up, float fov, TezVector3<float>& outEye,
                                TezVector3<float>& outFocus) const
{
    if (box.Empty())
        return;
    Vec3 const m = box.Middle();
    outFocus = m;
    Vec3 const n = (to - from).Normalized();
    Vec3 const x = (up ^ n).Normalized();
    Vec3 const y = (n ^ x).Normalized();
    Mat44 rotation = Identity();
    rotation[0] = TezVector4<float>(x, 0.0f);
    rotation[1] = TezVector4<float>(y, 0.0f);
    rotation[2] = TezVector4<float>(n, 0.0f);
    TezBox3<float> const local = (rotation * TezTranslationTransform(-m)) * box;

    float const aspect = static_cast<float>(GetWidth()) / static_cast<float>(GetHeight());
    // 0.6 where the half angle would be 0.5: the margin of this fit.
    float const k = 1.0f / std::tan(fov * 0.6f * TezPif / 180.0f);
    float d = 0.0f;
    for (int c = 0; c < 8; ++c) {
        Vec3 const p = local.Corner(c & 1, c & 2, c & 4);
        d = std::min({d, -(std::abs(p.y) * k) - p.z, (-(std::abs(p.x) * k) - p.z) / aspect});
    }
    outEye = m + n * d;
}

void TezCameraView::CalcStandardView(TezBox3<float> box, TezMatrix44<float> const& transform, int view, float fov,
                                     TezVector3<float>& outEye, TezVector3<float>& outFocus,
                                     TezVector3<float>& outUp) const
{
    if (view < 0 || view >= StandardViewCount)
        throw std::runtime_error("TezCameraView::CalcStandardView: no standard view " + std::to_string(view));
    Vec3 const from = transform * StandardFrom[view];
    Vec3 const to = transform * StandardTo[view];
    outUp = transform.ExtractRotation() * StandardUp[view];
    CalcZoomAll(transform * box, from, to, outUp, fov, outEye, outFocus);
}

void TezCameraView::FrameBox(TezBox3<float> const& box, TezVector3<float> const& from, TezVector3<float> const& to,
                             TezVector3<float> const& up, float margin)
{
    if (box.Empty())
        return;
    Vec3 const m = box.Middle();
    Vec3 const n = (to - from).Normalized();
    Vec3 const x = (up ^ n).Normalized();
    Vec3 const y = (n ^ x).Normalized();
    float const t = HalfAngleTan();
    float const aspect = Aspect();
    float const grow = 1.0f + margin;
    // Corners relative to the middle, in view axes (z along the sight).
    // Perspective: a corner at view depth D + z is inside when its offsets
    // are within t (D + z) vertically and t aspect (D + z) horizontally.
    // Orthographic: the view's half height is t times the focus distance.
    float need = 0.0f;
    float behind = 0.0f;
    for (int c = 0; c < 8; ++c) {
        Vec3 const p = box.Corner(c & 1, c & 2, c & 4) - m;
        float const px = std::abs(p * x) * grow, py = std::abs(p * y) * grow, pz = p * n;
        behind = std::max(behind, -pz);
        if (m_perspective)
            need = std::max({need, py / t - pz, px / (t * aspect) - pz});
        else
            need = std::max({need, py / t, px / (t * aspect)});
    }
    // The eye stays clear of the box: a little beyond its nearest corner.
    float const clearance = behind * grow + 1e-3f * (behind + need);
    if (m_perspective) {
        float const d = std::max(need, clearance);
        SetFocus(m);
        SetEye(m - n * d);
    } else {
        float const back = std::max(clearance, need);
        SetEye(m - n * back);
        SetFocus(m - n * back + n * need);
    }
    SetUp(up);
    NearFarToBox(box);
}

void TezCameraView::FrameStandardView(TezBox3<float> const& box, int view, float margin)
{
    if (view < 0 || view >= StandardViewCount)
        throw std::runtime_error("TezCameraView::FrameStandardView: no standard view " + std::to_string(view));
    FrameBox(box, StandardFrom[view], StandardTo[view], StandardUp[view], margin);
}

// ---- gestures ----

void TezCameraView::PanView(TezBox3<float> box, int dx, int dy)
{
    Move(dx, dy);
    NearFarToBox(box);
}

bool TezCameraView::RotateView(TezBox3<float> box, int x0, int y0, int x1, int y1, bool horizontal, bool vertical)
{
    float const w = static_cast<float>(GetWidth());
    float const h = static_cast<float>(GetHeight());
    float const a = (w - 2.0f * static_cast<float>(x0)) / w;
    float const b = (h - 2.0f * static_cast<float>(y0)) / h;
    float const c = (w - 2.0f * static_cast<float>(x1)) / w;
    float const d = (h - 2.0f * static_cast<float>(y1)) / h;
    // A drag along one axis only is ignored, whatever the mode.
    if (!(std::abs(a - c) > 1e-06f) || !(std::abs(b - d) > 1e-06f))
        return false;
    if (horizontal && vertical) {
        RotateAround(std::atan2(a, b) - std::atan2(c, d));
    } else if (horizontal) {
        RotateHorizontally(TezPif * (a - c));
    } else if (vertical) {
        RotateVertically(TezPif * (b - d));
    } else {
        RotateVertically(-(TezPif * (d - b)));
        RotateHorizontally(-(TezPif * (c - a)));
    }
    NearFarToBox(box);
    return true;
}

void TezCameraView::ZoomView(TezBox3<float> box, float delta)
{
    float const s = delta / static_cast<float>(GetHeight());
    Vec3 const e = GetEye();
    Vec3 const f = GetFocus();
    Vec3 const d = e - f;
    Vec3 const n = -d.Normalized();
    Vec3 const eye = e + d * s;
    SetEye(eye);
    // Past the focus: keep the focus one unit ahead of the eye.
    if ((eye - GetFocus()) * n > 0.0f)
        SetFocus(eye + n);
    NearFarToBox(box);
}

// ---- animation ----

void TezCameraView::AnimateMove(TezVector3<float> const& eye, TezVector3<float> const& focus,
                                TezVector3<float> const& up, float fov, TezBox3<float> const& box, int steps)
{
    int64_t const start = TezTimer::TimeNow();
    if (steps <= 0)
        return;
    float const count = static_cast<float>(steps);
    Vec3 const eyeStep = (GetEye() - eye) / count;
    Vec3 const focusStep = (GetFocus() - focus) / count;
    Vec3 const upStep = (GetUp() - up) / count;
    float const fovStep = (GetFov() - fov) / count;

    Vec3 runEye = GetEye(), runFocus = GetFocus(), runUp = GetUp();
    float runFov = GetFov();
    for (int i = 0; i < steps; ++i) {
        runEye -= eyeStep;
        runFocus -= focusStep;
        runUp -= upStep;
        runFov -= fovStep;
        if (i == steps - 1) {
            // The steps' sum misses the target by rounding, differently
            // from every start: land on the target itself.
            runEye = eye;
            runFocus = focus;
            runUp = up;
            runFov = fov;
        }
        // Steps that fall behind a 0.1 s schedule are dropped; the last one
        // always lands, so the camera ends on the target.
        if (i == steps - 1 || static_cast<double>(i) * 0.1 > TezTimer::TimeElapsed(start)) {
            SetEye(runEye);
            SetFocus(runFocus);
            SetUp(runUp);
            SetFov(runFov);
            NearFarToBox(box);
            TezRequestRedraw();
        }
    }
}
