#version 430 core
// A full-view quad given in normalized device coordinates (x, y in -1..1),
// placed by "modelMatrix" only; the texture coordinate runs 0..1 over it.
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;

out vec2 uv;

void main()
{
    uv = inPosition.xy * 0.5 + 0.5;
    gl_Position = modelMatrix * vec4(inPosition.xy, 0.0, 1.0);
}
