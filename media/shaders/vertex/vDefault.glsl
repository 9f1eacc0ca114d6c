#version 430 core
// Positions and normals through model, view and projection; the lit
// fragment shaders read the view-space position and normal.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;

out vec3 viewPosition;
out vec3 viewNormal;

void main()
{
    mat4 modelView = viewMatrix * modelMatrix;
    vec4 p = modelView * vec4(inPosition, 1.0);
    viewPosition = p.xyz;
    viewNormal = mat3(modelView) * inNormal;
    gl_Position = projectionMatrix * p;
}
