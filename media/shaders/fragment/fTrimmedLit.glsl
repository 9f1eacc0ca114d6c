#version 430 core
// fDefaultLit where the trim texture is set; trimmed-away parts are discarded.
uniform sampler2D trimTexture;
uniform vec4 objectColor;

in vec3 viewPosition;
in vec3 viewNormal;
in vec2 uv;

out vec4 fragColor;

void main()
{
    if (texture(trimTexture, uv).r < 0.5)
        discard;
    float facing = 1.0;
    if (length(viewNormal) > 1e-6 && length(viewPosition) > 1e-6)
        facing = abs(dot(normalize(viewNormal), normalize(-viewPosition)));
    fragColor = vec4(objectColor.rgb * (0.3 + 0.7 * facing), objectColor.a);
}
