#version 430 core
// vDefault for programs with a geometry stage: clip position in
// gl_Position, the view-space position and normal beside it.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;

out vec3 vsViewPosition;
out vec3 vsViewNormal;

void main()
{
    mat4 modelView = viewMatrix * modelMatrix;
    vec4 p = modelView * vec4(inPosition, 1.0);
    vsViewPosition = p.xyz;
    vsViewNormal = mat3(modelView) * inNormal;
    gl_Position = projectionMatrix * p;
}
