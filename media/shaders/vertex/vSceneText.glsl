#version 430 core
// Glyph quads or meshes in the world, with their texture coordinates.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;
layout(location = 2) in vec2 inTexture;

out vec3 worldPosition;
out vec3 worldNormal;
out vec2 uv;

void main()
{
    vec4 p = modelMatrix * vec4(inPosition, 1.0);
    worldPosition = p.xyz;
    worldNormal = mat3(modelMatrix) * inNormal;
    uv = inTexture;
    gl_Position = projectionMatrix * viewMatrix * p;
}
