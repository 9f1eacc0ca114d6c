#include "render/effects/DefaultEffects.h"

#include "render/effects/detail/EffectGL.h"
#include "render/effects/detail/LightUniforms.h"
#include "render/scene/SceneDrawData.h"

using namespace tez_effects;

TEZ_TYPIFIED_IMPL(TezDefaultEffect, "Default Effect")
TEZ_TYPIFIED_IMPL(TezDefaultUnlitEffect, "Default Unlit Effect")
TEZ_TYPIFIED_IMPL(TezUnlitEffect, "Unlit Effect")
TEZ_TYPIFIED_IMPL(TezBackgroundEffect, "Background Image Effect")
TEZ_TYPIFIED_IMPL(TezGdiOverlayEffect, "Gdi Overlay Effect")
TEZ_TYPIFIED_IMPL(TezShinyLightEffect, "Default Shiny Effect")

TezDefaultEffect::TezDefaultEffect()
    : TezDefaultEffectImpl("vDefault.glsl", "fDefaultLit.glsl", "fDefaultUnlit.glsl", true)
{
}

TezRef<TezDefaultEffect> TezDefaultEffect::Create() { return TezRef<TezDefaultEffect>(new TezDefaultEffect()); }

TezDefaultUnlitEffect::TezDefaultUnlitEffect()
    : TezDefaultEffectImpl("vDefault.glsl", "fDefaultUnlit.glsl", "fDefaultUnlit.glsl", true)
{
}

// One program serves both drawing and mapping.
TezUnlitEffect::TezUnlitEffect() : TezDefaultEffectImpl("vDefault.glsl", "fDefaultUnlit.glsl", "", true) {}

TezBackgroundEffect::TezBackgroundEffect()
    : TezDefaultEffectImpl("vBackgroundImage.glsl", "fBackgroundImage.glsl", "fDefaultUnlit.glsl", true)
{
}

TezRef<TezBackgroundEffect> TezBackgroundEffect::Create()
{
    return TezRef<TezBackgroundEffect>(new TezBackgroundEffect());
}

void TezBackgroundEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezDefaultEffectImpl::StartEffect(data, pass);
    SetUniformInt(m_currentProgram, "paramBitmap", 0);
}

TezGdiOverlayEffect::TezGdiOverlayEffect()
    : TezDefaultEffectImpl("vGdiOverlay.glsl", "fGdiOverlay.glsl", "fDefaultUnlit.glsl", true)
{
}

void TezGdiOverlayEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezDefaultEffectImpl::StartEffect(data, pass);
    SetUniformInt(m_currentProgram, "paramBitmap", 0);
}

TezShinyLightEffect::TezShinyLightEffect()
    : TezDefaultEffectImpl("vShinyLight.glsl", "fShinyLight.glsl", "fDefaultUnlit.glsl", true)
{
}

bool TezShinyLightEffect::GLInitialize()
{
    if (!TezDefaultEffectImpl::GLInitialize())
        return false;
    TezVector3<float> const zero(0.0f, 0.0f, 0.0f);
    glUseProgram(m_program);
    SetUniform(m_program, "globalAmbient", TezVector3<float>(1.0f, 1.0f, 1.0f));
    SetUniform(m_program, "lightPosition", zero);
    SetUniform(m_program, "eyePosition", zero);
    SetUniform(m_program, "Ke", zero);
    SetUniform(m_program, "Ka", zero);
    SetUniform(m_program, "Ks", TezVector3<float>(0.7f, 0.7f, 0.7f));
    SetUniform(m_program, "shininess", 50.0f);
    glUseProgram(0);
    return true;
}

void TezShinyLightEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezDefaultEffectImpl::StartEffect(data, pass);
    if (!data.IsMapping())
        SetLightUniforms(m_currentProgram, data);
}
