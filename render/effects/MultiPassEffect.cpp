#include "render/effects/MultiPassEffect.h"

#include "render/effects/detail/EffectGL.h"
#include "render/scene/SceneDrawData.h"

#include <utility>

using namespace tez_effects;

namespace {

GLuint Build(TezMultiPassEffect::PassSource const& source, char const* fragment,
             std::vector<char const*> const& attributes)
{
    return BuildProgram(TezString(source.vertex), TezString(source.geometry ? source.geometry : ""),
                        TezString(fragment), attributes);
}

} // namespace

TezMultiPassEffect::TezMultiPassEffect(unsigned numPasses, std::vector<PassSource> sources,
                                       std::vector<char const*> attributes)
    : m_numPasses(numPasses), m_sources(std::move(sources)), m_attributes(std::move(attributes))
{
}

bool TezMultiPassEffect::GLInitialize()
{
    GLRelease();
    for (PassSource const& source : m_sources) {
        GLuint const program = Build(source, source.fragment, m_attributes);
        GLuint const map = program && source.mapFragment ? Build(source, source.mapFragment, m_attributes) : program;
        m_programs.push_back(program);
        m_mapPrograms.push_back(map);
        if (!program || !map) {
            GLRelease();
            return false;
        }
    }
    m_initialized = true;
    return true;
}

void TezMultiPassEffect::GLRelease()
{
    for (size_t i = 0; i < m_programs.size(); ++i) {
        if (m_mapPrograms.size() > i && m_mapPrograms[i] && m_mapPrograms[i] != m_programs[i])
            glDeleteProgram(m_mapPrograms[i]);
        if (m_programs[i])
            glDeleteProgram(m_programs[i]);
    }
    m_programs.clear();
    m_mapPrograms.clear();
    m_initialized = false;
    m_currentProgram = 0;
}

unsigned TezMultiPassEffect::GetProgram(unsigned pass, bool mapping) const
{
    if (m_programs.empty() || pass >= m_numPasses)
        return 0;
    size_t const entry = pass < m_programs.size() ? pass : m_programs.size() - 1;
    return mapping ? m_mapPrograms[entry] : m_programs[entry];
}

unsigned TezMultiPassEffect::GetProgramId() { return GetProgram(0, false); }
unsigned TezMultiPassEffect::GetMapProgramId() { return GetProgram(0, true); }

void TezMultiPassEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    if (!m_initialized)
        GLInitialize();
    m_currentProgram = GetProgram(pass, data.IsMapping());
    glUseProgram(m_currentProgram);
    if (m_usesCamera)
        SetCameraMatrices(m_currentProgram, data);
}

void TezMultiPassEffect::EndEffect(TezSceneDrawData const&, unsigned) { glUseProgram(0); }

void TezMultiPassEffect::SetWorldMatrix(TezMatrix44<float> const& matrix)
{
    if (m_usesCamera)
        SetUniform(m_currentProgram, "modelMatrix", matrix);
}

void TezMultiPassEffect::SetObjectColor(TezVector4<float> const& color)
{
    SetUniform(m_currentProgram, "objectColor", color);
}

bool TezMultiPassEffect::PreReset()
{
    GLRelease();
    return true;
}

bool TezMultiPassEffect::PostReset()
{
    GLInitialize();
    return true;
}
