#version 430 core
// Triangle sprites that point along the projected direction of the second
// attribute (a normal or an orientation).
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;
uniform float pointSize;
uniform vec4 objectColor;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;

flat out vec4 spriteColor;
flat out float spriteAngle;

void main()
{
    mat4 mvp = projectionMatrix * viewMatrix * modelMatrix;
    vec4 base = mvp * vec4(inPosition, 1.0);
    vec4 tip = mvp * vec4(inPosition + inNormal, 1.0);
    vec2 direction = tip.xy / tip.w - base.xy / base.w;
    // Point coordinates run down the sprite; screen y runs up.
    spriteAngle = length(direction) > 1e-9 ? atan(-direction.y, direction.x) : 0.0;
    gl_Position = base;
    gl_PointSize = pointSize;
    spriteColor = objectColor;
}
