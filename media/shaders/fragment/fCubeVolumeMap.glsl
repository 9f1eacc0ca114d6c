#version 430 core
// The volume in "objectColor" unchanged wherever it is at least half opaque
// (mapping).
uniform sampler3D volumeTexture;
uniform sampler1D transferFunction;
uniform vec4 objectColor;

in vec3 texCoord;

out vec4 fragColor;

void main()
{
    float value = texture(volumeTexture, texCoord).r;
    if (texture(transferFunction, value).r < 0.5)
        discard;
    fragColor = objectColor;
}
