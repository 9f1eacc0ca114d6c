#version 430 core
// A triangle pointing at "spriteAngle", lighter towards its tip.
flat in vec4 spriteColor;
flat in float spriteAngle;

out vec4 fragColor;

void main()
{
    vec2 p = gl_PointCoord * 2.0 - 1.0;
    float c = cos(spriteAngle), s = sin(spriteAngle);
    vec2 q = vec2(c * p.x + s * p.y, -s * p.x + c * p.y); // tip along +x
    // Inside the triangle with its tip at (1, 0) and base from (-1, -1) to (-1, 1).
    if (q.x < -1.0 || abs(q.y) > (1.0 - q.x) * 0.5)
        discard;
    fragColor = vec4(spriteColor.rgb * (0.6 + 0.4 * (q.x * 0.5 + 0.5)), spriteColor.a);
}
