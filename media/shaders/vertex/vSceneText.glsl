#version 430 core
// Glyph meshes in the world, or, with "usePixelPos", flat glyph quads whose
// positions are pixel offsets from "pixelPos" (window pixels, y up, and the
// depth in normalized device units) in a "viewport" of that many pixels.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;
uniform int usePixelPos;
uniform vec3 pixelPos;
uniform vec2 viewport;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;
layout(location = 2) in vec2 inTexture;

out vec3 worldPosition;
out vec3 worldNormal;
out vec2 uv;

void main()
{
    uv = inTexture;
    if (usePixelPos != 0) {
        vec2 p = pixelPos.xy + inPosition.xy;
        worldPosition = vec3(0.0);
        worldNormal = vec3(0.0, 0.0, 1.0);
        gl_Position = vec4(p / max(viewport, vec2(1.0)) * 2.0 - 1.0, pixelPos.z, 1.0);
        return;
    }
    vec4 p = modelMatrix * vec4(inPosition, 1.0);
    worldPosition = p.xyz;
    worldNormal = mat3(modelMatrix) * inNormal;
    gl_Position = projectionMatrix * viewMatrix * p;
}
