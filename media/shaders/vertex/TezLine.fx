#version 430 core
// Lines in "objectColor" through the camera. One file for both stages: the
// effect compiles it twice, defining TEZ_VERTEX_STAGE or TEZ_FRAGMENT_STAGE.

#ifdef TEZ_VERTEX_STAGE
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;

void main()
{
    gl_Position = projectionMatrix * viewMatrix * modelMatrix * vec4(inPosition, 1.0);
}
#endif

#ifdef TEZ_FRAGMENT_STAGE
uniform vec4 objectColor;

out vec4 fragColor;

void main()
{
    fragColor = objectColor;
}
#endif
