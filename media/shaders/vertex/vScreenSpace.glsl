#version 430 core
// Positions in normalized screen units: x and y from 0 (left, bottom) to 1
// (right, top); no camera.
layout(location = 0) in vec3 inPosition;

void main()
{
    gl_Position = vec4(inPosition.xy * 2.0 - 1.0, 0.0, 1.0);
}
