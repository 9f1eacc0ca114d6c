#version 430 core
// The trimmed face in "objectColor" unchanged (mapping).
uniform sampler2D trimTexture;
uniform vec4 objectColor;

in vec2 uv;

out vec4 fragColor;

void main()
{
    if (texture(trimTexture, uv).r < 0.5)
        discard;
    fragColor = objectColor;
}
