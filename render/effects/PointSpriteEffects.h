#pragma once
// Point sprites: each GL point drawn as a shape of "pointSize" pixels.
//   TezCirclePointSpriteEffect   "Circle Point Sprite Effect"      vDefaultSprite, fLitCircleSprite, fUnlitCircleSprite
//   TezTrianglePointSpriteEffect "Triangle Point Sprite Effect"    vDefaultTriangleSprite, fLitTriangleSprite,
//   fUnlitTriangleSprite TezCirclePointBBSpriteEffect "Circle Point Sprite Bounding Box Effect"
//                                vBoundingBoxSprite, fLitCircleSprite, fUnlitCircleSprite
// Circles are shaded as little spheres. Triangles point along the projected
// direction of the vertex's second attribute. The bounding-box sprites draw
// the points outside "minPt".."maxPt" in "disjointColor". Program point size
// is on between StartEffect and EndEffect. The context must be current.

#include "render/effects/DefaultEffectImpl.h"

class TEZ_API TezPointSpriteEffect : public TezDefaultEffectImpl
{
public:
    // Writes "pointSize" now and at every StartEffect.
    void SetPointSize(float size);
    float GetPointSize() const { return m_pointSize; }
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;
    void EndEffect(TezSceneDrawData const& data, unsigned pass) override;

protected:
    TezPointSpriteEffect(char const* vertexFile, char const* fragmentFile, char const* mapFragmentFile);

private:
    float m_pointSize = 8.0f;
};

class TEZ_API TezCirclePointSpriteEffect : public TezPointSpriteEffect
{
    TEZ_TYPIFIED_CLASS(TezCirclePointSpriteEffect)
protected:
    TezCirclePointSpriteEffect();
};

class TEZ_API TezTrianglePointSpriteEffect : public TezPointSpriteEffect
{
    TEZ_TYPIFIED_CLASS(TezTrianglePointSpriteEffect)
protected:
    TezTrianglePointSpriteEffect();
};

class TEZ_API TezCirclePointBBSpriteEffect : public TezPointSpriteEffect
{
    TEZ_TYPIFIED_CLASS(TezCirclePointBBSpriteEffect)
public:
    void SetBounds(TezVector3<float> const& minPt, TezVector3<float> const& maxPt);
    void SetDisjointColor(TezVector4<float> const& color);
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;

protected:
    TezCirclePointBBSpriteEffect();

private:
    TezVector3<float> m_minPt{-1e30f, -1e30f, -1e30f};
    TezVector3<float> m_maxPt{1e30f, 1e30f, 1e30f};
    TezVector4<float> m_disjointColor{0.5f, 0.5f, 0.5f, 1.0f};
};
