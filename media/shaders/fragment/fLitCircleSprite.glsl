#version 430 core
// A round sprite shaded as a small sphere lit from the eye.
flat in vec4 spriteColor;

out vec4 fragColor;

void main()
{
    vec2 p = gl_PointCoord * 2.0 - 1.0;
    float r2 = dot(p, p);
    if (r2 > 1.0)
        discard;
    float facing = sqrt(1.0 - r2);
    fragColor = vec4(spriteColor.rgb * (0.3 + 0.7 * facing), spriteColor.a);
}
