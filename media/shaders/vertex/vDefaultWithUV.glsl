#version 430 core
// vDefault that also hands on the surface parameters for the trim test.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;
layout(location = 2) in vec2 inParam;

out vec3 viewPosition;
out vec3 viewNormal;
out vec2 uv;

void main()
{
    mat4 modelView = viewMatrix * modelMatrix;
    vec4 p = modelView * vec4(inPosition, 1.0);
    viewPosition = p.xyz;
    viewNormal = mat3(modelView) * inNormal;
    uv = inParam;
    gl_Position = projectionMatrix * p;
}
