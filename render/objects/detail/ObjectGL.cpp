#include "render/objects/detail/ObjectGL.h"

namespace tez_objects {

GLuint CurrentProgram()
{
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    return static_cast<GLuint>(program);
}

} // namespace tez_objects
