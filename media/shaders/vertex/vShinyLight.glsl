#version 430 core
// World-space position and normal for the positioned light of fShinyLight.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;

layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;

out vec3 worldPosition;
out vec3 worldNormal;

void main()
{
    vec4 p = modelMatrix * vec4(inPosition, 1.0);
    worldPosition = p.xyz;
    worldNormal = mat3(modelMatrix) * inNormal;
    gl_Position = projectionMatrix * viewMatrix * p;
}
