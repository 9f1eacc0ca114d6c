#version 430 core
// A (truncated) cone along z from cylindrical parameters: x the angle in
// radians, y the height fraction 0..1; the radius runs from "bottomRadius"
// to "topRadius" over "height".
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;
uniform float bottomRadius;
uniform float topRadius;
uniform float height;

layout(location = 0) in vec3 inPosition;

out vec3 vsViewPosition;
out vec3 vsViewNormal;

void main()
{
    float angle = inPosition.x;
    float t = inPosition.y;
    float radius = mix(bottomRadius, topRadius, t);
    vec3 around = vec3(cos(angle), sin(angle), 0.0);
    mat4 modelView = viewMatrix * modelMatrix;
    vec4 p = modelView * vec4(around * radius + vec3(0.0, 0.0, t * height), 1.0);
    vsViewPosition = p.xyz;
    vsViewNormal = mat3(modelView) * around;
    gl_Position = projectionMatrix * p;
}
