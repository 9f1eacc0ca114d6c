#version 430 core
// A bitmap over the view: the unit square (0..1) placed in normalized device
// coordinates by "modelMatrix"; its corners are the texture coordinates.
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;

out vec2 uv;

void main()
{
    uv = inPosition.xy;
    gl_Position = modelMatrix * vec4(inPosition.xy, 0.0, 1.0);
}
