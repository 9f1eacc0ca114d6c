#include "render/effects/GeometryEffects.h"

#include "render/effects/detail/EffectGL.h"

using namespace tez_effects;

TEZ_TYPIFIED_IMPL(TezEffectTriangleMesh, "Effect Revolved Ribbon")
TEZ_TYPIFIED_IMPL(TezEffectThickPolyline, "Effect Thick Polyline")
TEZ_TYPIFIED_IMPL(TezEffectRectangularRibbon, "Effect Rectangular Ribbon")
TEZ_TYPIFIED_IMPL(TezEffectRevolvedRibbon, "Effect Revolved Ribbon")
TEZ_TYPIFIED_IMPL(TezEffectPolarRibbon, "Effect Polar Ribbon")
TEZ_TYPIFIED_IMPL(TezEffectCoordSys, "Effect Oriented Polyline")
TEZ_TYPIFIED_IMPL(TezEffectBrepFace, "Effect Brep Face")

TezEffectTriangleMesh::TezEffectTriangleMesh()
    : TezMultiPassEffect(
          2,
          {{"vDefault.glsl", nullptr, "fDefaultLit.glsl", "fDefaultUnlit.glsl"},
           {"vDefaultForGeomShader.glsl", "gWireframeMesh.glsl", "fDefaultUnlit.glsl", "fDefaultUnlit.glsl"}},
          {"inPosition", "inNormal"})
{
}

TezEffectThickPolyline::TezEffectThickPolyline()
    : TezMultiPassEffect(2,
                         {{"vNoProjection.glsl", "gLinesAdjThickener.glsl", "fDefaultLit.glsl", "fDefaultUnlit.glsl"}},
                         {"inPosition"})
{
}

bool TezEffectThickPolyline::GLInitialize()
{
    if (!TezMultiPassEffect::GLInitialize())
        return false;
    for (bool mapping : {false, true}) {
        GLuint const program = GetProgram(0, mapping);
        glUseProgram(program);
        SetUniform(program, "thickness", 0.02f);
    }
    glUseProgram(0);
    return true;
}

TezEffectRectangularRibbon::TezEffectRectangularRibbon()
    : TezMultiPassEffect(
          1,
          {{"vParametricToWorld.glsl", "gLinesAdjWidener.glsl", "fLitWithDarkerBackside.glsl", "fDefaultUnlit.glsl"}},
          {"inPosition"})
{
}

TezEffectRevolvedRibbon::TezEffectRevolvedRibbon()
    : TezMultiPassEffect(
          1,
          {{"vCylindricalToWorld.glsl", "gLinesAdjWidener.glsl", "fLitWithDarkerBackside.glsl", "fDefaultUnlit.glsl"}},
          {"inPosition"})
{
}

TezEffectPolarRibbon::TezEffectPolarRibbon()
    : TezMultiPassEffect(
          2,
          {{"vLatitudeToWorld.glsl", "gLinesWidener.glsl", "fLitWithDarkerBackside.glsl", "fDefaultUnlit.glsl"},
           {"vLongitudeToWorld.glsl", "gLinesWidener.glsl", "fLitWithDarkerBackside.glsl", "fDefaultUnlit.glsl"}},
          {"inParam"})
{
}

TezEffectCoordSys::TezEffectCoordSys()
    : TezMultiPassEffect(
          3,
          {{"vNoProjection.glsl", "gLinesThickener.glsl", "fDefaultLit.glsl", "fDefaultUnlit.glsl"},
           {"vDefaultSprite.glsl", nullptr, "fLitCircleSprite.glsl", "fUnlitCircleSprite.glsl"},
           {"vDefaultTriangleSprite.glsl", nullptr, "fLitTriangleSprite.glsl", "fUnlitTriangleSprite.glsl"}},
          {"inPosition", "inOrientation"})
{
}

bool TezEffectCoordSys::GLInitialize()
{
    if (!TezMultiPassEffect::GLInitialize())
        return false;
    for (unsigned pass = 0; pass < 3; ++pass) {
        for (bool mapping : {false, true}) {
            GLuint const program = GetProgram(pass, mapping);
            glUseProgram(program);
            SetUniform(program, "thickness", 0.02f);
            SetUniform(program, "pointSize", 12.0f);
        }
    }
    glUseProgram(0);
    return true;
}

void TezEffectCoordSys::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezMultiPassEffect::StartEffect(data, pass);
    if (pass > 0)
        glEnable(GL_PROGRAM_POINT_SIZE);
}

void TezEffectCoordSys::EndEffect(TezSceneDrawData const& data, unsigned pass)
{
    glDisable(GL_PROGRAM_POINT_SIZE);
    TezMultiPassEffect::EndEffect(data, pass);
}

TezEffectBrepFace::TezEffectBrepFace()
    : TezMultiPassEffect(2,
                         {{"vParam2D.glsl", nullptr, "fDefaultUnlit.glsl", "fDefaultUnlit.glsl"},
                          {"vDefaultWithUV.glsl", nullptr, "fTrimmedLit.glsl", "fTrimmedUnlit.glsl"}},
                         {"inPosition", "inNormal", "inParam"})
{
}

void TezEffectBrepFace::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezMultiPassEffect::StartEffect(data, pass);
    SetUniformInt(m_currentProgram, "trimTexture", 0);
}
