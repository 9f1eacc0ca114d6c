#include "render/effects/DefaultEffectImpl.h"

#include "render/effects/detail/EffectGL.h"
#include "render/scene/SceneDrawData.h"

#include <vector>

using namespace tez_effects;

TezDefaultEffectImpl::TezDefaultEffectImpl(char const* vertexFile, char const* fragmentFile,
                                           char const* mapFragmentFile, bool hasNormals)
    : m_vertexFile(vertexFile), m_fragmentFile(fragmentFile), m_mapFragmentFile(mapFragmentFile ? mapFragmentFile : ""),
      m_hasNormals(hasNormals)
{
}

bool TezDefaultEffectImpl::GLInitialize()
{
    GLRelease();
    m_vertexShader = CompileShaderFile(m_vertexFile);
    if (m_vertexShader)
        m_fragmentShader = CompileShaderFile(m_fragmentFile);
    bool const ownMap = m_mapFragmentFile.Length() > 0;
    if (m_fragmentShader && ownMap)
        m_mapFragmentShader = CompileShaderFile(m_mapFragmentFile);
    if (!m_vertexShader || !m_fragmentShader || (ownMap && !m_mapFragmentShader)) {
        GLRelease();
        return false;
    }
    std::vector<char const*> const attributes =
        m_hasNormals ? std::vector<char const*>{"inPosition", "inNormal"} : std::vector<char const*>{"inPosition"};
    m_program = LinkProgram({m_vertexShader, m_fragmentShader}, attributes, {m_vertexFile, m_fragmentFile});
    if (m_program && ownMap)
        m_mapProgram =
            LinkProgram({m_vertexShader, m_mapFragmentShader}, attributes, {m_vertexFile, m_mapFragmentFile});
    else
        m_mapProgram = m_program;
    if (!m_program || !m_mapProgram) {
        GLRelease();
        return false;
    }
    return true;
}

void TezDefaultEffectImpl::GLRelease()
{
    bool const shared = m_mapProgram == m_program;
    auto detach = [](unsigned program, unsigned shader) {
        if (program && shader)
            glDetachShader(program, shader);
    };
    detach(m_program, m_vertexShader);
    detach(m_program, m_fragmentShader);
    if (!shared) {
        detach(m_mapProgram, m_vertexShader);
        detach(m_mapProgram, m_mapFragmentShader);
    }
    for (unsigned shader : {m_vertexShader, m_fragmentShader, m_mapFragmentShader})
        if (shader)
            glDeleteShader(shader);
    if (m_program)
        glDeleteProgram(m_program);
    if (m_mapProgram && !shared)
        glDeleteProgram(m_mapProgram);
    m_vertexShader = m_fragmentShader = m_mapFragmentShader = 0;
    m_program = m_mapProgram = m_currentProgram = 0;
}

void TezDefaultEffectImpl::StartEffect(TezSceneDrawData const& data, unsigned)
{
    if (m_program == 0)
        GLInitialize();
    m_currentProgram = data.IsMapping() ? m_mapProgram : m_program;
    glUseProgram(m_currentProgram);
    SetCameraMatrices(m_currentProgram, data);
}

void TezDefaultEffectImpl::EndEffect(TezSceneDrawData const&, unsigned) { glUseProgram(0); }

void TezDefaultEffectImpl::SetWorldMatrix(TezMatrix44<float> const& matrix)
{
    SetUniform(m_currentProgram, "modelMatrix", matrix);
}

void TezDefaultEffectImpl::SetObjectColor(TezVector4<float> const& color)
{
    SetUniform(m_currentProgram, "objectColor", color);
}

bool TezDefaultEffectImpl::PreReset()
{
    GLRelease();
    return true;
}

bool TezDefaultEffectImpl::PostReset()
{
    GLInitialize();
    return true;
}
