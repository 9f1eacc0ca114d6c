#pragma once
// What the scene object kinds share below their interface: uniform writes on
// the program their effect has bound. Internal to the object kinds (it
// brings in GL's headers); needs the context current.

#include "render/effects/detail/EffectGL.h"

namespace tez_objects {

using tez_effects::SetUniform;
using tez_effects::SetUniformInt;

// The program bound now (by the effect's StartEffect); 0 for none.
GLuint CurrentProgram();

} // namespace tez_objects
