#version 430 core
// The triangle sprite's footprint in "objectColor" unchanged (mapping).
uniform vec4 objectColor;
flat in float spriteAngle;

out vec4 fragColor;

void main()
{
    vec2 p = gl_PointCoord * 2.0 - 1.0;
    float c = cos(spriteAngle), s = sin(spriteAngle);
    vec2 q = vec2(c * p.x + s * p.y, -s * p.x + c * p.y);
    if (q.x < -1.0 || abs(q.y) > (1.0 - q.x) * 0.5)
        discard;
    fragColor = objectColor;
}
