#version 430 core
// Draws in a face's parameter space: inParam (u, v in 0..1) fills the view,
// so that the trim loops can be rendered into the face's trim texture.
layout(location = 0) in vec3 inPosition;
layout(location = 1) in vec3 inNormal;
layout(location = 2) in vec2 inParam;

void main()
{
    gl_Position = vec4(inParam * 2.0 - 1.0, 0.0, 1.0);
}
