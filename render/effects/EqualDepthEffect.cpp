#include "render/effects/EqualDepthEffect.h"

#include "render/effects/detail/EffectGL.h"
#include "render/scene/SceneDrawData.h"

using namespace tez_effects;

TEZ_TYPIFIED_IMPL(TezEqualDepthEffect, "Equal Depth Effect")

TezEqualDepthEffect::TezEqualDepthEffect()
    : TezDefaultEffectImpl("vDefault.glsl", "fEqualDepth.glsl", "fEqualDepthUnlit.glsl", true)
{
}

bool TezEqualDepthEffect::GLInitialize()
{
    if (!TezDefaultEffectImpl::GLInitialize())
        return false;
    m_litProgram =
        BuildProgram(m_vertexFile, TezString(), TezString("fEqualDepthLit.glsl"), {"inPosition", "inNormal"});
    m_litMapProgram = BuildProgram(m_vertexFile, TezString(), m_mapFragmentFile, {"inPosition", "inNormal"});
    if (!m_litProgram || !m_litMapProgram) {
        GLRelease();
        return false;
    }
    return true;
}

void TezEqualDepthEffect::GLRelease()
{
    if (m_litProgram)
        glDeleteProgram(m_litProgram);
    if (m_litMapProgram)
        glDeleteProgram(m_litMapProgram);
    m_litProgram = m_litMapProgram = 0;
    TezDefaultEffectImpl::GLRelease();
}

void TezEqualDepthEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezDefaultEffectImpl::StartEffect(data, pass);
    m_currentProgram = data.IsMapping() ? m_litMapProgram : m_litProgram;
    glUseProgram(m_currentProgram);
    SetCameraMatrices(m_currentProgram, data);
}

void TezEqualDepthEffect::SetEqualDepthParams(TezSceneDrawData const&, TezRef<TezTexture> texture, int width,
                                              int height, float tolerance)
{
    if (texture) {
        texture->BindSlot(0);
        GLenum const target = texture->GetTarget();
        glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glTexParameteri(target, GL_TEXTURE_WRAP_S, GL_REPEAT);
        glTexParameteri(target, GL_TEXTURE_WRAP_T, GL_REPEAT);
    }
    SetUniformInt(m_currentProgram, "depthTexture", 0);
    SetUniform(m_currentProgram, "textureWidth", static_cast<float>(width));
    SetUniform(m_currentProgram, "textureHeight", static_cast<float>(height));
    SetUniform(m_currentProgram, "depthTolerance", tolerance);
}

void TezEqualDepthEffect::DisableShading(bool disable)
{
    SetUniformInt(m_currentProgram, "disableShading", disable ? 1 : 0);
}
