#include "render/scene/Light.h"

#include "render/CameraView.h"
#include "render/scene/SceneDrawData.h"

#include <cmath>

TEZ_DEFINE_REF_FUNCTIONS(TezLight)

namespace {

using Vec3 = TezVector3<float>;
using Vec4 = TezVector4<float>;
using Mat44 = TezMatrix44<float>;

// The x and y axes of a frame with the given z: up is Y, or Z where z runs
// along Y.
void FrameAxes(Vec3 const& z, Vec3& x, Vec3& y, bool normalizeY)
{
    Vec3 up(0.0f, 1.0f, 0.0f);
    if (std::fabs(std::fabs(z * up) - 1.0f) < 1e-06f)
        up = Vec3(0.0f, 0.0f, 1.0f);
    x = (up ^ z).Normalized();
    y = z ^ x;
    if (normalizeY)
        y.Normalize();
}

// Rows x, y, z with the translation -axis . origin in the last column,
// written row by row and then turned into the column storage of TezMatrix44.
Mat44 ViewFromAxes(Vec3 const& x, Vec3 const& y, Vec3 const& z, Vec3 const& origin)
{
    Mat44 rows = TezIdentityTransform<float>();
    rows[0] = Vec4(x.x, x.y, x.z, -(x * origin));
    rows[1] = Vec4(y.x, y.y, y.z, -(y * origin));
    rows[2] = Vec4(z.x, z.y, z.z, -(z * origin));
    return rows.Transpose();
}

// The box's corners in the view, on the plane at depth 1 in x and y while
// z keeps its value.
TezBox3<float> LightSpaceBounds(Mat44 const& view, TezBox3<float> const& box)
{
    TezBox3<float> bounds;
    for (int i = 0; i < 8; ++i) {
        Vec3 const c = box.Corner((i & 1) != 0, (i & 2) != 0, (i & 4) != 0);
        Vec4 v = view * Vec4(c.x, c.y, c.z, 1.0f);
        v = Vec4(v.x / v.w, v.y / v.w, v.z / v.w, 1.0f);
        float const depth = std::fabs(v.z);
        bounds += Vec3(v.x / depth, v.y / depth, v.z);
    }
    return bounds;
}

Mat44 ProjectionFromBounds(TezBox3<float> const& bounds)
{
    Vec3 const& mn = bounds.GetMinimum();
    Vec3 const& mx = bounds.GetMaximum();
    float const maxZ = std::fabs(mx.z);
    float const minZ = std::fabs(mn.z);
    Mat44 rows = TezIdentityTransform<float>();
    rows[0][0] = 2.0f / (mx.x - mn.x);
    rows[0][2] = (mn.x + mx.x) / (mx.x - mn.x);
    rows[1][1] = 2.0f / (mx.y - mn.y);
    rows[1][2] = (mn.y + mx.y) / (mx.y - mn.y);
    rows[2][2] = minZ / (maxZ - minZ);
    rows[2][3] = minZ * maxZ / (maxZ - minZ);
    rows[3][2] = -1.0f;
    rows[3][3] = 0.0f;
    return rows.Transpose();
}

} // namespace

TezLight::TezLight() : m_shadowView(TezIdentityTransform<float>()), m_shadowProjection(TezIdentityTransform<float>()) {}

TezRef<TezLight> TezLight::Create() { return TezRef<TezLight>(new TezLight()); }

bool TezLight::ComputeShadowMatrices(TezSceneDrawData const&) { return ComputeNormalShadowMatrices(m_shadowBounds); }

TezMatrix44<float> TezLight::GetShadowMatrix() const { return m_shadowProjection * m_shadowView; }

bool TezLight::ComputeNormalShadowMatrices(TezBox3<float> const& box)
{
    Vec3 const z = (m_position - box.Middle()).Normalized();
    Vec3 x, y;
    FrameAxes(z, x, y, true);
    m_shadowView = ViewFromAxes(x, y, z, m_position);
    m_shadowProjection = ProjectionFromBounds(LightSpaceBounds(m_shadowView, box));
    return true;
}

bool TezLight::ComputePSMShadowMatrices(TezSceneDrawData const& data, TezBox3<float> const& box)
{
    TezRef<TezCameraView> camera = data.GetCamera();
    if (!camera)
        return false;
    Mat44 const P = camera->GetProjectionMatrix();
    Mat44 const V = camera->GetViewMatrix();
    Mat44 const M = P * V;
    // Points through the three-element product: no division by w.
    Vec3 const l = M * m_position;
    Vec3 const m = M * box.Middle();
    Vec3 const z = (l - m).Normalized();
    Vec3 x, y;
    FrameAxes(z, x, y, false);
    // V * P, the reverse of M, is what the shadow pass expects.
    m_shadowView = (V * P) * ViewFromAxes(x, y, z, l);
    m_shadowProjection = ProjectionFromBounds(LightSpaceBounds(m_shadowView, box));
    return true;
}
