#version 430 core
// A box of half sizes "width" and "depth" and full height "height" from
// parametric corners: x and y in -1..1, z in 0..1 (the middle of the bottom
// face at the origin). The normal points out through the corner.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;
uniform float width;
uniform float depth;
uniform float height;

layout(location = 0) in vec3 inPosition;

out vec3 vsViewPosition;
out vec3 vsViewNormal;

void main()
{
    mat4 modelView = viewMatrix * modelMatrix;
    vec4 p = modelView * vec4(inPosition.x * width, inPosition.y * depth, inPosition.z * height, 1.0);
    vsViewPosition = p.xyz;
    vsViewNormal = mat3(modelView) * vec3(inPosition.x, inPosition.y, inPosition.z * 2.0 - 1.0);
    gl_Position = projectionMatrix * p;
}
