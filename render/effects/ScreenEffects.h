#pragma once
// Effects for text, screen-space shapes and lines.
//   TezSceneTextEffect  "Scene Text Effect": vSceneText + fSceneText; flat
//       glyphs ("usePixelPos" 1, "pixelPos", "viewport") unlit with their
//       coverage from "paramBitmap" (unit 0), solid glyphs lit with "globalAmbient" (1, 1,
//       1), "lightPosition" and "eyePosition" (0, 0, 0 to start, then the
//       scene's light and the camera's eye), "Ks" (0.9, 0.9, 0.9),
//       "shininess" 20; "inPosition", "inNormal", "inTexture". Maps with its
//       own program.
//   TezScreenSpaceEffect "Screen Space Effect": vScreenSpace + fScreenSpace;
//       positions in normalized screen units (0..1, y up), no camera matrices.
//   TezLineEffect        "Line Effect": both stages from "TezLine.fx", lines
//       in "objectColor" through the camera.
// The context must be current.

#include "render/effects/DefaultEffectImpl.h"
#include "render/effects/MultiPassEffect.h"

class TEZ_API TezSceneTextEffect : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezSceneTextEffect)
public:
    bool GLInitialize() override;
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;

protected:
    TezSceneTextEffect();
};

class TEZ_API TezScreenSpaceEffect : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezScreenSpaceEffect)
protected:
    TezScreenSpaceEffect();
};

class TEZ_API TezLineEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezLineEffect)
public:
    bool GLInitialize() override;

protected:
    TezLineEffect();
};
