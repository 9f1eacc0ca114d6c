#include "render/effects/ScreenEffects.h"

#include "render/effects/detail/EffectGL.h"
#include "render/effects/detail/LightUniforms.h"
#include "render/scene/SceneDrawData.h"

using namespace tez_effects;

TEZ_TYPIFIED_IMPL(TezSceneTextEffect, "Scene Text Effect")
TEZ_TYPIFIED_IMPL(TezScreenSpaceEffect, "Screen Space Effect")
TEZ_TYPIFIED_IMPL(TezLineEffect, "Line Effect")

TezSceneTextEffect::TezSceneTextEffect()
    : TezMultiPassEffect(1, {{"vSceneText.glsl", nullptr, "fSceneText.glsl", nullptr}},
                         {"inPosition", "inNormal", "inTexture"})
{
}

bool TezSceneTextEffect::GLInitialize()
{
    if (!TezMultiPassEffect::GLInitialize())
        return false;
    GLuint const program = GetProgram(0, false);
    TezVector3<float> const zero(0.0f, 0.0f, 0.0f);
    glUseProgram(program);
    SetUniform(program, "globalAmbient", TezVector3<float>(1.0f, 1.0f, 1.0f));
    SetUniform(program, "lightPosition", zero);
    SetUniform(program, "eyePosition", zero);
    SetUniform(program, "Ks", TezVector3<float>(0.9f, 0.9f, 0.9f));
    SetUniform(program, "shininess", 20.0f);
    SetUniformInt(program, "paramBitmap", 0);
    glUseProgram(0);
    return true;
}

void TezSceneTextEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezMultiPassEffect::StartEffect(data, pass);
    SetLightUniforms(m_currentProgram, data);
}

TezScreenSpaceEffect::TezScreenSpaceEffect()
    : TezMultiPassEffect(1, {{"vScreenSpace.glsl", nullptr, "fScreenSpace.glsl", nullptr}}, {"inPosition"})
{
    SetUsesCamera(false);
}

TezLineEffect::TezLineEffect() : TezDefaultEffectImpl("TezLine.fx", "TezLine.fx", "", false) {}

// One file holds both stages; a define after its #version line picks one.
bool TezLineEffect::GLInitialize()
{
    GLRelease();
    m_vertexShader = CompileShaderFile(m_vertexFile, GL_VERTEX_SHADER, "#define TEZ_VERTEX_STAGE 1\n");
    if (m_vertexShader)
        m_fragmentShader = CompileShaderFile(m_fragmentFile, GL_FRAGMENT_SHADER, "#define TEZ_FRAGMENT_STAGE 1\n");
    if (m_fragmentShader)
        m_program = LinkProgram({m_vertexShader, m_fragmentShader}, {"inPosition"}, {m_vertexFile, m_fragmentFile});
    m_mapProgram = m_program;
    if (!m_program) {
        GLRelease();
        return false;
    }
    return true;
}
