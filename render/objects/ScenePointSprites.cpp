#include "render/objects/ScenePointSprites.h"

#include "render/effects/PointSpriteEffects.h"
#include "render/objects/detail/ObjectGL.h"

TEZ_DEFINE_REF_FUNCTIONS(TezScenePointSprites)
TEZ_TYPIFIED_IMPL(TezScenePointSprites, "PointSprites")

TezScenePointSprites::TezScenePointSprites() : TezScenePointSprites(Circles) {}

TezScenePointSprites::TezScenePointSprites(Shape shape)
    : TezSceneObject(shape == Triangles ? TezTrianglePointSpriteEffect::StaticType()
                                        : TezCirclePointSpriteEffect::StaticType()),
      m_shape(shape)
{
}

TezScenePointSprites::~TezScenePointSprites() = default;

TezRef<TezScenePointSprites> TezScenePointSprites::Create(Shape shape)
{
    return TezRef<TezScenePointSprites>(new TezScenePointSprites(shape));
}

void TezScenePointSprites::SetPoints(std::vector<TezVector3<float>> const& points,
                                     std::vector<TezVector3<float>> const& directions)
{
    m_points = points;
    m_directions = directions;
    m_directions.resize(m_points.size(), TezVector3<float>(0, 0, 0));
    SetProperty(NeedsBuild, true);
}

TezBox3<float> TezScenePointSprites::GetObjectBounds()
{
    TezBox3<float> box;
    for (TezVector3<float> const& p : m_points)
        box += p;
    return box;
}

bool TezScenePointSprites::BuildObject()
{
    std::vector<float> floats;
    floats.reserve(m_points.size() * 6);
    for (size_t i = 0; i < m_points.size(); ++i) {
        TezVector3<float> const& p = m_points[i];
        TezVector3<float> const& d = m_directions[i];
        floats.insert(floats.end(), {p.x, p.y, p.z, d.x, d.y, d.z});
    }
    m_sprites.Upload(floats, {3, 3});
    return true;
}

bool TezScenePointSprites::UnbuildObject()
{
    m_sprites.Release();
    return true;
}

bool TezScenePointSprites::DrawObject(TezSceneDrawData const&)
{
    // The effect writes its own size at the start of the pass; each object
    // draws at its own.
    tez_objects::SetUniform(tez_objects::CurrentProgram(), "pointSize", m_pointSize);
    m_sprites.Draw(GL_POINTS);
    return true;
}
