#version 430 core
// The round sprite's footprint in "objectColor" unchanged (mapping).
uniform vec4 objectColor;

out vec4 fragColor;

void main()
{
    vec2 p = gl_PointCoord * 2.0 - 1.0;
    if (dot(p, p) > 1.0)
        discard;
    fragColor = objectColor;
}
