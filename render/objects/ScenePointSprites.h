#pragma once
// TezScenePointSprites: points drawn as sprites of a fixed size in pixels:
// small lit spheres ("Circle Point Sprite Effect") or triangles that point
// along each point's direction as seen on the screen ("Triangle Point Sprite
// Effect"). The shape is chosen at creation, since it decides the effect.
// SetPoints marks the object for a rebuild; bounds are the points' box.
// Drawing needs the context current.

#include "math/Box.h"
#include "render/gl/Primitives.h"
#include "render/scene/SceneObject.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezScenePointSprites)

class TEZ_API TezScenePointSprites : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezScenePointSprites)
public:
    enum Shape { Circles = 0, Triangles = 1 };

    static TezRef<TezScenePointSprites> Create(Shape shape = Circles);
    ~TezScenePointSprites() override;

    // Directions, one per point, turn the triangles; missing ones are zero
    // (the triangle then points right). Circles ignore them.
    void SetPoints(std::vector<TezVector3<float>> const& points, std::vector<TezVector3<float>> const& directions = {});
    size_t GetNumPoints() const { return m_points.size(); }
    // Pixels across; 8 to start.
    void SetPointSize(float size) { m_pointSize = size; }
    float GetPointSize() const { return m_pointSize; }
    Shape GetShape() const { return m_shape; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezScenePointSprites();
    explicit TezScenePointSprites(Shape shape);

private:
    Shape m_shape;
    std::vector<TezVector3<float>> m_points;
    std::vector<TezVector3<float>> m_directions;
    float m_pointSize = 8.0f;
    TezGLPrimitives m_sprites;
};
