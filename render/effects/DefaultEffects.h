#pragma once
// The one-pass effects over TezDefaultEffectImpl, with their shader files
// (vertex, fragment, map fragment):
//   TezDefaultEffect       "Default Effect"          vDefault, fDefaultLit, fDefaultUnlit
//   TezDefaultUnlitEffect  "Default Unlit Effect"    vDefault, fDefaultUnlit, fDefaultUnlit
//   TezUnlitEffect         "Unlit Effect"            vDefault, fDefaultUnlit, the same program
//   TezBackgroundEffect    "Background Image Effect" vBackgroundImage, fBackgroundImage, fDefaultUnlit
//   TezGdiOverlayEffect    "Gdi Overlay Effect"      vGdiOverlay, fGdiOverlay, fDefaultUnlit; on top
//   TezShinyLightEffect    "Default Shiny Effect"    vShinyLight, fShinyLight, fDefaultUnlit
// The lit shaders light from the eye (a head light) on both sides of a
// surface. The background and overlay effects sample "paramBitmap" from
// texture unit 0, which the object binds. The shiny effect starts with
// "globalAmbient" (1, 1, 1), "lightPosition", "eyePosition", "Ke", "Ka" at 0,
// "Ks" (0.7, 0.7, 0.7) and "shininess" 50, and on every StartEffect puts the
// camera's eye into "eyePosition" and the scene light's position into
// "lightPosition" (see TezLight). The context must be current, as for every
// effect.

#include "render/effects/DefaultEffectImpl.h"

class TEZ_API TezDefaultEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezDefaultEffect)
public:
    static TezRef<TezDefaultEffect> Create();

protected:
    TezDefaultEffect();
};

class TEZ_API TezDefaultUnlitEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezDefaultUnlitEffect)
protected:
    TezDefaultUnlitEffect();
};

class TEZ_API TezUnlitEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezUnlitEffect)
protected:
    TezUnlitEffect();
};

class TEZ_API TezBackgroundEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezBackgroundEffect)
public:
    static TezRef<TezBackgroundEffect> Create();
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;

protected:
    TezBackgroundEffect();
};

class TEZ_API TezGdiOverlayEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezGdiOverlayEffect)
public:
    bool OnTop() const override { return true; }
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;

protected:
    TezGdiOverlayEffect();
};

class TEZ_API TezShinyLightEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezShinyLightEffect)
public:
    bool GLInitialize() override;
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;

protected:
    TezShinyLightEffect();
};
