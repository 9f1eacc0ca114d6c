#include "render/objects/SceneRibbons.h"

#include "core/Preferences.h"
#include "math/Constants.h"
#include "render/CameraView.h"
#include "render/effects/GeometryEffects.h"
#include "render/objects/detail/ObjectGL.h"
#include "render/scene/SceneDrawData.h"

#include <algorithm>
#include <cmath>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneRibbonBox)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneRibbonCylinder)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneRibbonSphere)
TEZ_TYPIFIED_IMPL(TezSceneRibbonBox, "Scene Ribbon Box")
TEZ_TYPIFIED_IMPL(TezSceneRibbonCylinder, "Scene Ribbon Cylinder")
TEZ_TYPIFIED_IMPL(TezSceneRibbonSphere, "Scene Ribbon Sphere")

namespace {

TezRef<TezPrefOptionBool> g_showBoxDiagonals;

// Rims and circles: segments enough that a ribbon 20 pixels wide bends
// smoothly on a view-filling shape.
constexpr int kCircleSegments = 64;

// The ribbon's width in pixels as device units along x and y, which is what
// the widening geometry stages take.
void SetPixelWidth(TezSceneDrawData const& data, float pixels)
{
    TezRef<TezCameraView> camera = data.GetCamera();
    float const width = camera ? static_cast<float>(std::max(camera->GetWidth(), 1)) : 1.0f;
    float const height = camera ? static_cast<float>(std::max(camera->GetHeight(), 1)) : 1.0f;
    tez_objects::SetUniform(tez_objects::CurrentProgram(), "pixelWidth",
                            TezVector3<float>(2.0f * pixels / width, 2.0f * pixels / height, 0.0f));
}

// The ribbons are marked for blending by an alpha of 0.2 on the base colour.
void RibbonDefaults(TezSceneObject& object)
{
    object.SetProperty(TezSceneObject::Mappable, true);
    TezVector4<float> color = object.GetColor();
    color.w = 0.2f;
    object.SetColor(color);
}

// A closed loop of n vertices from `first` as lines with adjacency, each
// joint mitred with its neighbours.
void AppendLoop(std::vector<unsigned>& indices, unsigned first, unsigned n)
{
    for (unsigned k = 0; k < n; ++k)
        indices.insert(indices.end(), {first + (k + n - 1) % n, first + k, first + (k + 1) % n, first + (k + 2) % n});
}

// A lone segment with square ends.
void AppendSegment(std::vector<unsigned>& indices, unsigned a, unsigned b)
{
    indices.insert(indices.end(), {a, a, b, b});
}

} // namespace

// ---- TezSceneRibbonBox ----

TezSceneRibbonBox::TezSceneRibbonBox() : TezSceneObject(TezEffectRectangularRibbon::StaticType())
{
    RibbonDefaults(*this);
}

TezSceneRibbonBox::~TezSceneRibbonBox() = default;

TezRef<TezSceneRibbonBox> TezSceneRibbonBox::Create() { return TezRef<TezSceneRibbonBox>(new TezSceneRibbonBox()); }

TezRef<TezSceneRibbonBox> TezSceneRibbonBox::Create(float width, float depth, float height)
{
    TezRef<TezSceneRibbonBox> object = Create();
    object->m_width = width;
    object->m_depth = depth;
    object->m_height = height;
    return object;
}

void TezSceneRibbonBox::SetWidth(float width)
{
    m_width = width;
    SetProperty(NeedsBuild, true);
}

void TezSceneRibbonBox::SetDepth(float depth)
{
    m_depth = depth;
    SetProperty(NeedsBuild, true);
}

void TezSceneRibbonBox::SetHeight(float height)
{
    m_height = height;
    SetProperty(NeedsBuild, true);
}

void TezSceneRibbonBox::SetBox(TezBox3<float> const& box)
{
    TezVector3<float> const e = box.Extents();
    m_width = e.x * 0.5f;
    m_depth = e.y * 0.5f;
    m_height = e.z;
    SetTransform(TezTranslationTransform<float>(box.GetMinimum() + TezVector3<float>(m_width, m_depth, 0.0f)));
    SetProperty(NeedsBuild, true);
}

void TezSceneRibbonBox::SetShowDiagonals(TezRef<TezPrefOptionBool> option) { g_showBoxDiagonals = option; }

TezBox3<float> TezSceneRibbonBox::GetObjectBounds()
{
    return TezBox3<float>({-m_width, -m_depth, 0.0f}, {m_width, m_depth, m_height});
}

bool TezSceneRibbonBox::BuildObject()
{
    glGetError();
    // Parametric corners: corner c has x from bit 0, y from bit 1 (-1 or 1)
    // and z from bit 2 (0 or 1); the shaders scale them.
    std::vector<float> corners;
    for (int c = 0; c < 8; ++c)
        corners.insert(corners.end(), {(c & 1) ? 1.0f : -1.0f, (c & 2) ? 1.0f : -1.0f, (c & 4) ? 1.0f : 0.0f});
    std::vector<unsigned> edges;
    for (unsigned base : {0u, 4u}) {
        // The rims run round the faces, so their corners are mitred.
        unsigned const loop[4] = {base, base + 1, base + 3, base + 2};
        for (unsigned k = 0; k < 4; ++k)
            edges.insert(edges.end(), {loop[(k + 3) % 4], loop[k], loop[(k + 1) % 4], loop[(k + 2) % 4]});
    }
    for (unsigned c = 0; c < 4; ++c)
        AppendSegment(edges, c, c + 4);
    std::vector<unsigned> diagonals;
    unsigned const faces[6][4] = {{0, 1, 2, 3}, {4, 5, 6, 7}, {0, 2, 4, 6}, {1, 3, 5, 7}, {0, 1, 4, 5}, {2, 3, 6, 7}};
    for (auto const& face : faces) {
        AppendSegment(diagonals, face[0], face[3]);
        AppendSegment(diagonals, face[1], face[2]);
    }
    m_edges.Upload(corners, {3}, edges);
    m_diagonals.Upload(corners, {3}, diagonals);
    return true;
}

bool TezSceneRibbonBox::UnbuildObject()
{
    m_edges.Release();
    m_diagonals.Release();
    return true;
}

bool TezSceneRibbonBox::DrawObject(TezSceneDrawData const& data)
{
    GLuint const program = tez_objects::CurrentProgram();
    tez_objects::SetUniform(program, "width", m_width);
    tez_objects::SetUniform(program, "depth", m_depth);
    tez_objects::SetUniform(program, "height", m_height);
    SetPixelWidth(data, m_ribbonWidth);
    m_edges.Draw(GL_LINES_ADJACENCY);
    if (g_showBoxDiagonals && g_showBoxDiagonals->Get())
        m_diagonals.Draw(GL_LINES_ADJACENCY);
    return true;
}

// ---- TezSceneRibbonCylinder ----

TezSceneRibbonCylinder::TezSceneRibbonCylinder() : TezSceneObject(TezEffectRevolvedRibbon::StaticType())
{
    RibbonDefaults(*this);
}

TezSceneRibbonCylinder::~TezSceneRibbonCylinder() = default;

TezRef<TezSceneRibbonCylinder> TezSceneRibbonCylinder::Create(float bottomRadius, float topRadius, float height)
{
    TezRef<TezSceneRibbonCylinder> object(new TezSceneRibbonCylinder());
    object->SetCylinder(bottomRadius, topRadius, height);
    return object;
}

void TezSceneRibbonCylinder::SetBottomRadius(float radius)
{
    m_bottomRadius = radius;
    SetProperty(NeedsBuild, true);
}

void TezSceneRibbonCylinder::SetTopRadius(float radius)
{
    m_topRadius = radius;
    SetProperty(NeedsBuild, true);
}

void TezSceneRibbonCylinder::SetHeight(float height)
{
    m_height = height;
    SetProperty(NeedsBuild, true);
}

void TezSceneRibbonCylinder::SetCylinder(float bottomRadius, float topRadius, float height)
{
    m_bottomRadius = bottomRadius;
    m_topRadius = topRadius;
    m_height = height;
    SetProperty(NeedsBuild, true);
}

TezBox3<float> TezSceneRibbonCylinder::GetObjectBounds()
{
    float const r = std::max(std::abs(m_bottomRadius), std::abs(m_topRadius));
    return TezBox3<float>({-r, -r, std::min(0.0f, m_height)}, {r, r, std::max(0.0f, m_height)});
}

bool TezSceneRibbonCylinder::BuildObject()
{
    glGetError();
    // (angle, height fraction): the bottom rim, then the top rim.
    unsigned const n = kCircleSegments;
    std::vector<float> params;
    for (float t : {0.0f, 1.0f})
        for (unsigned k = 0; k < n; ++k)
            params.insert(params.end(), {2.0f * TezPif * static_cast<float>(k) / static_cast<float>(n), t, 0.0f});
    std::vector<unsigned> rims;
    AppendLoop(rims, 0, n);
    AppendLoop(rims, n, n);
    std::vector<unsigned> generators;
    for (unsigned quarter = 0; quarter < 4; ++quarter)
        AppendSegment(generators, quarter * n / 4, quarter * n / 4 + n);
    m_rims.Upload(params, {3}, rims);
    m_generators.Upload(params, {3}, generators);
    return true;
}

bool TezSceneRibbonCylinder::UnbuildObject()
{
    m_rims.Release();
    m_generators.Release();
    return true;
}

bool TezSceneRibbonCylinder::DrawObject(TezSceneDrawData const& data)
{
    GLuint const program = tez_objects::CurrentProgram();
    tez_objects::SetUniform(program, "bottomRadius", m_bottomRadius);
    tez_objects::SetUniform(program, "topRadius", m_topRadius);
    tez_objects::SetUniform(program, "height", m_height);
    SetPixelWidth(data, m_ribbonWidth);
    m_rims.Draw(GL_LINES_ADJACENCY);
    if (m_showDiagonals)
        m_generators.Draw(GL_LINES_ADJACENCY);
    return true;
}

// ---- TezSceneRibbonSphere ----

TezSceneRibbonSphere::TezSceneRibbonSphere() : TezSceneObject(TezEffectPolarRibbon::StaticType())
{
    RibbonDefaults(*this);
}

TezSceneRibbonSphere::~TezSceneRibbonSphere() = default;

TezRef<TezSceneRibbonSphere> TezSceneRibbonSphere::Create(float radius)
{
    TezRef<TezSceneRibbonSphere> object(new TezSceneRibbonSphere());
    object->SetRadius(radius);
    return object;
}

void TezSceneRibbonSphere::SetRadius(float radius)
{
    m_radius = radius;
    SetProperty(NeedsBuild, true);
}

TezBox3<float> TezSceneRibbonSphere::GetObjectBounds()
{
    float const r = std::abs(m_radius);
    return TezBox3<float>({-r, -r, -r}, {r, r, r});
}

bool TezSceneRibbonSphere::BuildObject()
{
    glGetError();
    float const degree = TezPif / 180.0f;
    // Latitude circles as (longitude, latitude) segments.
    std::vector<float> latitudes;
    for (float latitude : {-60.0f, -30.0f, 0.0f, 30.0f, 60.0f}) {
        for (int k = 0; k < kCircleSegments; ++k) {
            float const a = 2.0f * TezPif * static_cast<float>(k) / kCircleSegments;
            float const b = 2.0f * TezPif * static_cast<float>(k + 1) / kCircleSegments;
            latitudes.insert(latitudes.end(), {a, latitude * degree, b, latitude * degree});
        }
    }
    // Meridians every 30 degrees as (latitude, longitude) segments, pole to pole.
    std::vector<float> meridians;
    int const steps = kCircleSegments / 2;
    for (int m = 0; m < 12; ++m) {
        float const longitude = static_cast<float>(m) * 30.0f * degree;
        for (int k = 0; k < steps; ++k) {
            float const a = -0.5f * TezPif + TezPif * static_cast<float>(k) / static_cast<float>(steps);
            float const b = -0.5f * TezPif + TezPif * static_cast<float>(k + 1) / static_cast<float>(steps);
            meridians.insert(meridians.end(), {a, longitude, b, longitude});
        }
    }
    m_latitudes.Upload(latitudes, {2});
    m_meridians.Upload(meridians, {2});
    return true;
}

bool TezSceneRibbonSphere::UnbuildObject()
{
    m_latitudes.Release();
    m_meridians.Release();
    return true;
}

bool TezSceneRibbonSphere::DrawObject(TezSceneDrawData const& data)
{
    tez_objects::SetUniform(tez_objects::CurrentProgram(), "radius", m_radius);
    SetPixelWidth(data, m_ribbonWidth);
    if (data.GetEffectPass() == 0)
        m_latitudes.Draw(GL_LINES);
    else
        m_meridians.Draw(GL_LINES);
    return true;
}
