#include "render/objects/ScenePolyline.h"

#include "render/effects/DefaultEffects.h"
#include "render/effects/GeometryEffects.h"
#include "render/objects/detail/ObjectGL.h"

TEZ_DEFINE_REF_FUNCTIONS(TezScenePolyline)
TEZ_DEFINE_REF_FUNCTIONS(TezScenePolylineGroup)
TEZ_DEFINE_REF_FUNCTIONS(TezSceneThickPolyline)
TEZ_TYPIFIED_IMPL(TezScenePolyline, "Polyline")
TEZ_TYPIFIED_IMPL(TezScenePolylineGroup, "Polyline group")
TEZ_TYPIFIED_IMPL(TezSceneThickPolyline, "Polyline")

namespace {

TezBox3<float> BoxOf(std::vector<TezVector3<float>> const& points)
{
    TezBox3<float> box;
    for (TezVector3<float> const& p : points)
        box += p;
    return box;
}

void Append(std::vector<float>& floats, std::vector<TezVector3<float>> const& points)
{
    for (TezVector3<float> const& p : points)
        floats.insert(floats.end(), {p.x, p.y, p.z});
}

// Points are drawn at the size the state gives: set it around the draw.
void DrawPoints(TezGLPrimitives const& points, size_t first = 0, long count = -1)
{
    glPointSize(TezScenePolyline::PointSize);
    points.Draw(GL_POINTS, first, count);
    glPointSize(1.0f);
}

} // namespace

// ---- TezScenePolyline ----

TezScenePolyline::TezScenePolyline() : TezSceneObject(TezUnlitEffect::StaticType()) {}
TezScenePolyline::~TezScenePolyline() = default;

TezRef<TezScenePolyline> TezScenePolyline::Create(std::vector<TezVector3<float>> const& vertices, RenderType type)
{
    TezRef<TezScenePolyline> object(new TezScenePolyline());
    object->SetVertices(vertices);
    object->SetRenderType(type);
    return object;
}

void TezScenePolyline::SetVertices(std::vector<TezVector3<float>> const& vertices)
{
    m_vertices = vertices;
    SetProperty(NeedsBuild, true);
}

TezBox3<float> TezScenePolyline::GetObjectBounds() { return BoxOf(m_vertices); }

bool TezScenePolyline::BuildObject()
{
    std::vector<float> floats;
    Append(floats, m_vertices);
    m_lines.Upload(floats, {3});
    return true;
}

bool TezScenePolyline::UnbuildObject()
{
    m_lines.Release();
    return true;
}

bool TezScenePolyline::DrawObject(TezSceneDrawData const&)
{
    switch (m_renderType) {
    case Loop:
        m_lines.Draw(GL_LINE_LOOP);
        break;
    case Segments:
        m_lines.Draw(GL_LINES);
        break;
    case Points:
        DrawPoints(m_lines);
        break;
    default:
        m_lines.Draw(GL_LINE_STRIP);
        break;
    }
    return true;
}

// ---- TezScenePolylineGroup ----

TezScenePolylineGroup::TezScenePolylineGroup() : TezSceneObject(TezUnlitEffect::StaticType()) {}
TezScenePolylineGroup::~TezScenePolylineGroup() = default;

TezRef<TezScenePolylineGroup>
TezScenePolylineGroup::Create(std::vector<std::vector<TezVector3<float>>> const& polylines)
{
    TezRef<TezScenePolylineGroup> object(new TezScenePolylineGroup());
    object->SetVertices(polylines);
    return object;
}

void TezScenePolylineGroup::SetVertices(std::vector<std::vector<TezVector3<float>>> const& polylines)
{
    m_polylines = polylines;
    SetProperty(NeedsBuild, true);
}

TezBox3<float> TezScenePolylineGroup::GetObjectBounds()
{
    TezBox3<float> box;
    for (auto const& polyline : m_polylines)
        box += BoxOf(polyline);
    return box;
}

bool TezScenePolylineGroup::BuildObject()
{
    std::vector<float> floats;
    for (auto const& polyline : m_polylines)
        Append(floats, polyline);
    m_lines.Upload(floats, {3});
    return true;
}

bool TezScenePolylineGroup::UnbuildObject()
{
    m_lines.Release();
    return true;
}

bool TezScenePolylineGroup::DrawObject(TezSceneDrawData const&)
{
    if (m_renderAsPoints) {
        DrawPoints(m_lines);
        return true;
    }
    // One buffer, one strip per polyline.
    size_t first = 0;
    for (auto const& polyline : m_polylines) {
        m_lines.Draw(GL_LINE_STRIP, first, static_cast<long>(polyline.size()));
        first += polyline.size();
    }
    return true;
}

// ---- TezSceneThickPolyline ----

TezSceneThickPolyline::TezSceneThickPolyline() : TezSceneObject(TezEffectThickPolyline::StaticType()) {}
TezSceneThickPolyline::~TezSceneThickPolyline() = default;

TezRef<TezSceneThickPolyline> TezSceneThickPolyline::Create(std::vector<TezVector3<float>> const& vertices, bool closed)
{
    TezRef<TezSceneThickPolyline> object(new TezSceneThickPolyline());
    object->SetVertices(vertices);
    object->SetClosed(closed);
    return object;
}

void TezSceneThickPolyline::SetVertices(std::vector<TezVector3<float>> const& vertices)
{
    m_vertices = vertices;
    SetProperty(NeedsBuild, true);
}

void TezSceneThickPolyline::SetClosed(bool closed)
{
    m_closed = closed;
    SetProperty(NeedsBuild, true);
}

TezBox3<float> TezSceneThickPolyline::GetObjectBounds() { return BoxOf(m_vertices); }

bool TezSceneThickPolyline::BuildObject()
{
    m_segments.Release();
    size_t const n = m_vertices.size();
    if (n < 2)
        return true;
    std::vector<float> floats;
    Append(floats, m_vertices);
    // Lines with adjacency: (before, start, end, after) per segment. Open
    // ends repeat their own point, which the thickener reads as "straight
    // on"; a closed polyline wraps around.
    auto at = [&](long i) -> unsigned {
        long const count = static_cast<long>(n);
        if (m_closed)
            return static_cast<unsigned>(((i % count) + count) % count);
        return static_cast<unsigned>(std::min(std::max(i, 0L), count - 1));
    };
    std::vector<unsigned> indices;
    long const segments = static_cast<long>(m_closed ? n : n - 1);
    for (long s = 0; s < segments; ++s) {
        unsigned const before = (!m_closed && s == 0) ? at(s) : at(s - 1);
        unsigned const after = (!m_closed && s + 1 == segments) ? at(s + 1) : at(s + 2);
        indices.insert(indices.end(), {before, at(s), at(s + 1), after});
    }
    m_segments.Upload(floats, {3}, indices);
    return true;
}

bool TezSceneThickPolyline::UnbuildObject()
{
    m_segments.Release();
    return true;
}

bool TezSceneThickPolyline::DrawObject(TezSceneDrawData const&)
{
    tez_objects::SetUniform(tez_objects::CurrentProgram(), "thickness", m_thickness);
    m_segments.Draw(GL_LINES_ADJACENCY);
    return true;
}
