#pragma once
// TezEqualDepthEffect, "Equal Depth Effect": draws the parts of surfaces
// that lie on a given depth map, within a tolerance (intersection lines of
// one object on another). Four passes, object-major, drawn on top.
//
// Two program pairs over "vDefault.glsl": the first of "fEqualDepth.glsl"
// (map "fEqualDepthUnlit.glsl"), which initialises the effect, and the
// second of "fEqualDepthLit.glsl" (map "fEqualDepthUnlit.glsl"), which
// StartEffect binds after the base's and gives the three matrices.
// SetEqualDepthParams binds the depth texture on unit 0 (nearest, repeat)
// and writes "depthTexture", "textureWidth", "textureHeight" and
// "depthTolerance"; DisableShading writes "disableShading". The context
// must be current.

#include "render/effects/DefaultEffectImpl.h"
#include "render/gl/Texture.h"

class TEZ_API TezEqualDepthEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezEqualDepthEffect)
public:
    unsigned GetNumPasses() const override { return 4; }
    bool OnTop() const override { return true; }
    bool RenderPerPass() const override { return false; }
    bool GLInitialize() override;
    void GLRelease() override;
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;

    void SetEqualDepthParams(TezSceneDrawData const& data, TezRef<TezTexture> texture, int width, int height,
                             float tolerance);
    void DisableShading(bool disable);

protected:
    TezEqualDepthEffect();

private:
    unsigned m_litProgram = 0;
    unsigned m_litMapProgram = 0;
};
