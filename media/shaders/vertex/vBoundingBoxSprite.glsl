#version 430 core
// Circle sprites in "objectColor" inside the box "minPt".."maxPt" (world
// space) and in "disjointColor" outside it.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;
uniform float pointSize;
uniform vec4 objectColor;
uniform vec3 minPt;
uniform vec3 maxPt;
uniform vec4 disjointColor;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;

flat out vec4 spriteColor;
flat out float spriteAngle;

void main()
{
    vec4 world = modelMatrix * vec4(inPosition, 1.0);
    bool inside = all(greaterThanEqual(world.xyz, minPt)) && all(lessThanEqual(world.xyz, maxPt));
    spriteColor = inside ? objectColor : disjointColor;
    spriteAngle = 0.0;
    gl_Position = projectionMatrix * viewMatrix * world;
    gl_PointSize = pointSize;
}
