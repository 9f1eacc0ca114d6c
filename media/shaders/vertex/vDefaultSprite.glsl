#version 430 core
// One sprite per point, "pointSize" pixels across, in "objectColor".
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
    gl_Position = projectionMatrix * viewMatrix * modelMatrix * vec4(inPosition, 1.0);
    gl_PointSize = pointSize;
    spriteColor = objectColor;
    spriteAngle = 0.0;
}
