#include "render/effects/PointSpriteEffects.h"

#include "render/effects/detail/EffectGL.h"

using namespace tez_effects;

TEZ_TYPIFIED_IMPL(TezCirclePointSpriteEffect, "Circle Point Sprite Effect")
TEZ_TYPIFIED_IMPL(TezTrianglePointSpriteEffect, "Triangle Point Sprite Effect")
TEZ_TYPIFIED_IMPL(TezCirclePointBBSpriteEffect, "Circle Point Sprite Bounding Box Effect")

TezPointSpriteEffect::TezPointSpriteEffect(char const* vertexFile, char const* fragmentFile,
                                           char const* mapFragmentFile)
    : TezDefaultEffectImpl(vertexFile, fragmentFile, mapFragmentFile, true)
{
}

void TezPointSpriteEffect::SetPointSize(float size)
{
    m_pointSize = size;
    SetUniform(m_currentProgram, "pointSize", size);
}

void TezPointSpriteEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezDefaultEffectImpl::StartEffect(data, pass);
    glEnable(GL_PROGRAM_POINT_SIZE);
    SetUniform(m_currentProgram, "pointSize", m_pointSize);
}

void TezPointSpriteEffect::EndEffect(TezSceneDrawData const& data, unsigned pass)
{
    glDisable(GL_PROGRAM_POINT_SIZE);
    TezDefaultEffectImpl::EndEffect(data, pass);
}

TezCirclePointSpriteEffect::TezCirclePointSpriteEffect()
    : TezPointSpriteEffect("vDefaultSprite.glsl", "fLitCircleSprite.glsl", "fUnlitCircleSprite.glsl")
{
}

TezTrianglePointSpriteEffect::TezTrianglePointSpriteEffect()
    : TezPointSpriteEffect("vDefaultTriangleSprite.glsl", "fLitTriangleSprite.glsl", "fUnlitTriangleSprite.glsl")
{
}

TezCirclePointBBSpriteEffect::TezCirclePointBBSpriteEffect()
    : TezPointSpriteEffect("vBoundingBoxSprite.glsl", "fLitCircleSprite.glsl", "fUnlitCircleSprite.glsl")
{
}

void TezCirclePointBBSpriteEffect::SetBounds(TezVector3<float> const& minPt, TezVector3<float> const& maxPt)
{
    m_minPt = minPt;
    m_maxPt = maxPt;
    SetUniform(m_currentProgram, "minPt", minPt);
    SetUniform(m_currentProgram, "maxPt", maxPt);
}

void TezCirclePointBBSpriteEffect::SetDisjointColor(TezVector4<float> const& color)
{
    m_disjointColor = color;
    SetUniform(m_currentProgram, "disjointColor", color);
}

void TezCirclePointBBSpriteEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezPointSpriteEffect::StartEffect(data, pass);
    SetUniform(m_currentProgram, "minPt", m_minPt);
    SetUniform(m_currentProgram, "maxPt", m_maxPt);
    SetUniform(m_currentProgram, "disjointColor", m_disjointColor);
}
