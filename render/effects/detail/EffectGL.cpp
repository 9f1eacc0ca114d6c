#include "render/effects/detail/EffectGL.h"

#include "core/Logger.h"
#include "render/CameraView.h"
#include "render/gl/OpenGLSupport.h"
#include "render/scene/SceneDrawData.h"

#include <string>

namespace tez_effects {

TezString ShaderPath(TezResourceManager::ResourceType type, TezString const& name)
{
    TezRef<TezResourceManager> manager = TezResourceManager::GetAppResourceManager();
    if (!manager) {
        static TezRef<TezResourceManager> const fallback = TezResourceManager::Create();
        manager = fallback;
    }
    return manager->GetFullPath(type, name);
}

GLenum StageOfFile(TezString const& name)
{
    char const* text = name.c_str();
    char const first = text ? text[0] : '\0';
    if (first == 'g')
        return GL_GEOMETRY_SHADER;
    if (first == 'f')
        return GL_FRAGMENT_SHADER;
    return GL_VERTEX_SHADER;
}

namespace {

TezResourceManager::ResourceType FolderOfStage(GLenum stage)
{
    switch (stage) {
    case GL_GEOMETRY_SHADER:
        return TezResourceManager::ResourceGeometryShader;
    case GL_FRAGMENT_SHADER:
        return TezResourceManager::ResourceFragmentShader;
    default:
        return TezResourceManager::ResourceVertexShader;
    }
}

char const* StageName(GLenum stage)
{
    switch (stage) {
    case GL_GEOMETRY_SHADER:
        return "geometry";
    case GL_FRAGMENT_SHADER:
        return "fragment";
    default:
        return "vertex";
    }
}

// The text after the first line (the #version line) gets the defines.
TezString WithDefines(TezString const& source, char const* defines)
{
    if (!defines || source.Length() == 0)
        return source;
    std::string text = source.c_str();
    size_t const end = text.find('\n');
    text.insert(end == std::string::npos ? text.size() : end + 1, defines);
    return TezString(text.c_str());
}

} // namespace

GLuint CompileShaderFile(TezString const& name, GLenum stage, char const* defines)
{
    if (stage == 0)
        stage = StageOfFile(name);
    std::string const text = name.c_str() ? name.c_str() : "";
    bool const effectFile = text.size() > 3 && text.compare(text.size() - 3, 3, ".fx") == 0;
    TezString const path =
        ShaderPath(effectFile ? TezResourceManager::ResourceVertexShader : FolderOfStage(stage), name);
    GLuint shader = 0;
    if (!defines) {
        shader = TezOpenGLSupport::TezCreateShaderFromFile(stage, path);
    } else {
        TezString const source = TezResourceManager::BufferFromFile(path);
        if (source.Length() == 0)
            TezLogger::error("Missing shader file with path: %s\n", path.c_str());
        else
            shader = TezOpenGLSupport::TezCreateShaderFromSource(stage, WithDefines(source, defines), path);
    }
    if (!TezOpenGLSupport::TezValidateShader(shader)) {
        TezLogger::error("Error compiling %s shader: %s\n", StageName(stage), name.c_str());
        if (shader)
            glDeleteShader(shader);
        return 0;
    }
    return shader;
}

GLuint LinkProgram(std::initializer_list<GLuint> shaders, std::vector<char const*> const& attributes,
                   std::initializer_list<TezString> names)
{
    GLuint program = glCreateProgram();
    for (GLuint shader : shaders)
        if (shader)
            glAttachShader(program, shader);
    // Before the link: bindings made after it would wait for the next one.
    GLuint index = 0;
    for (char const* attribute : attributes)
        glBindAttribLocation(program, index++, attribute);
    glLinkProgram(program);
    if (!TezOpenGLSupport::TezValidateProgram(program)) {
        std::string joined;
        for (TezString const& name : names) {
            if (name.Length() == 0)
                continue;
            if (!joined.empty())
                joined += " and ";
            joined += name.c_str();
        }
        TezLogger::error("Error linking shader program with %s\n", joined.c_str());
        glDeleteProgram(program);
        return 0;
    }
    return program;
}

GLuint BuildProgram(TezString const& vertex, TezString const& geometry, TezString const& fragment,
                    std::vector<char const*> const& attributes)
{
    GLuint const vs = CompileShaderFile(vertex);
    if (!vs)
        return 0;
    GLuint gs = 0;
    if (geometry.Length() > 0 && !(gs = CompileShaderFile(geometry))) {
        glDeleteShader(vs);
        return 0;
    }
    GLuint const fs = CompileShaderFile(fragment);
    GLuint program = 0;
    if (fs)
        program = LinkProgram({vs, gs, fs}, attributes, {vertex, geometry, fragment});
    // A linked program keeps working without its shader objects.
    for (GLuint shader : {vs, gs, fs}) {
        if (!shader)
            continue;
        if (program)
            glDetachShader(program, shader);
        glDeleteShader(shader);
    }
    return program;
}

void SetUniform(GLuint program, char const* name, TezMatrix44<float> const& m)
{
    GLint const location = program ? glGetUniformLocation(program, name) : -1;
    if (location < 0)
        return;
    float values[16];
    m.Array(values);
    glUniformMatrix4fv(location, 1, GL_FALSE, values);
}

void SetUniform(GLuint program, char const* name, TezVector4<float> const& v)
{
    GLint const location = program ? glGetUniformLocation(program, name) : -1;
    if (location >= 0)
        glUniform4f(location, v.x, v.y, v.z, v.w);
}

void SetUniform(GLuint program, char const* name, TezVector3<float> const& v)
{
    GLint const location = program ? glGetUniformLocation(program, name) : -1;
    if (location >= 0)
        glUniform3f(location, v.x, v.y, v.z);
}

void SetUniform(GLuint program, char const* name, float v)
{
    GLint const location = program ? glGetUniformLocation(program, name) : -1;
    if (location >= 0)
        glUniform1f(location, v);
}

void SetUniformInt(GLuint program, char const* name, int v)
{
    GLint const location = program ? glGetUniformLocation(program, name) : -1;
    if (location >= 0)
        glUniform1i(location, v);
}

void SetCameraMatrices(GLuint program, TezSceneDrawData const& data)
{
    TezRef<TezCameraView> camera = data.GetCamera();
    TezMatrix44<float> const identity = TezIdentityTransform<float>();
    SetUniform(program, "projectionMatrix", camera ? camera->GetProjectionMatrix() : identity);
    SetUniform(program, "viewMatrix", camera ? camera->GetViewMatrix() : identity);
    SetUniform(program, "modelMatrix", identity);
}

} // namespace tez_effects
