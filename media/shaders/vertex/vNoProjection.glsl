#version 430 core
// View-space positions for geometry stages that build their shapes in view
// space and project them themselves.
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inOrientation;

void main()
{
    gl_Position = viewMatrix * modelMatrix * vec4(inPosition, 1.0);
}
