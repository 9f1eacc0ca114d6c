#version 430 core
// The overlay bitmap with its own alpha times the opacity in objectColor.a.
uniform sampler2D paramBitmap;
uniform vec4 objectColor;

in vec2 uv;

out vec4 fragColor;

void main()
{
    vec4 texel = texture(paramBitmap, uv);
    fragColor = vec4(texel.rgb, texel.a * objectColor.a);
}
