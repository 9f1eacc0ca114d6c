#version 430 core
// "objectColor" unchanged: the mapping pass relies on it to write id colours
// bit for bit.
uniform vec4 objectColor;

out vec4 fragColor;

void main()
{
    fragColor = objectColor;
}
