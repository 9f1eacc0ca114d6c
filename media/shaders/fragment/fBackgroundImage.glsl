#version 430 core
// The background picture (or gradient) from "paramBitmap", tinted by
// "objectColor".
uniform sampler2D paramBitmap;
uniform vec4 objectColor;

in vec2 uv;

out vec4 fragColor;

void main()
{
    fragColor = texture(paramBitmap, uv) * objectColor;
}
