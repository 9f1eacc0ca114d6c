#version 430 core
// Screen-space shapes (the rubber band) in "objectColor".
uniform vec4 objectColor;

out vec4 fragColor;

void main()
{
    fragColor = objectColor;
}
