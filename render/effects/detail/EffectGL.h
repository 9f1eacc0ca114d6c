#pragma once
// What the effects share below their interface: shader file lookup, program
// building with the logged texts of a failure, and uniform writes that ask
// for the location every time (a program without the uniform is passed over).
// Needs a current context; internal to the effects.

#include "core/ResourceManager.h"
#include "core/String.h"
#include "math/Matrix.h"
#include "math/Vector.h"

#include <GL/glew.h>

#include <initializer_list>
#include <vector>

class TezSceneDrawData;

namespace tez_effects {

// The path of a shader file through the application's resource manager (or,
// without an application, one rooted at the executable's folder).
TezString ShaderPath(TezResourceManager::ResourceType type, TezString const& name);

// Stage of a shader file: GL_VERTEX_SHADER for names starting with "v" (and
// for ".fx" files), GL_GEOMETRY_SHADER for "g", GL_FRAGMENT_SHADER otherwise.
GLenum StageOfFile(TezString const& name);

// A compiled and validated shader from a resource file, or 0 after logging
// "Error compiling <stage> shader: <name>". The stage comes from the name
// unless given; ".fx" files, which hold several stages, live in the vertex
// folder and get `defines` after their #version line to pick one.
GLuint CompileShaderFile(TezString const& name, GLenum stage = 0, char const* defines = nullptr);

// Links the shaders (0s skipped) into a program with the attributes bound to
// 0, 1, 2 ... in order; 0 after logging "Error linking shader program with "
// and the file names joined by " and ".
GLuint LinkProgram(std::initializer_list<GLuint> shaders, std::vector<char const*> const& attributes,
                   std::initializer_list<TezString> names);

// A whole program of vertex, optional geometry (empty name: none) and
// fragment files; the shaders are deleted once linked.
GLuint BuildProgram(TezString const& vertex, TezString const& geometry, TezString const& fragment,
                    std::vector<char const*> const& attributes);

void SetUniform(GLuint program, char const* name, TezMatrix44<float> const& m);
void SetUniform(GLuint program, char const* name, TezVector4<float> const& v);
void SetUniform(GLuint program, char const* name, TezVector3<float> const& v);
void SetUniform(GLuint program, char const* name, float v);
void SetUniformInt(GLuint program, char const* name, int v);

// "projectionMatrix" and "viewMatrix" from the draw data's camera (identity
// without one), "modelMatrix" the identity.
void SetCameraMatrices(GLuint program, TezSceneDrawData const& data);

} // namespace tez_effects
