#pragma once
// "eyePosition" from the draw data's camera and "lightPosition" from its
// light, for the effects that shade with a positioned light. A light at the
// origin stands at the eye; a disabled one leaves "lightPosition" alone.

#include <GL/glew.h>

class TezSceneDrawData;

namespace tez_effects {

void SetLightUniforms(GLuint program, TezSceneDrawData const& data);

} // namespace tez_effects
