#version 430 core
// A slice of the volume: the voxel value through the transfer table gives
// the opacity, "objectColor" the colour; with "enableLighting" the value's
// gradient shades it as a surface lit from the eye. Slices are blended back
// to front.
uniform sampler3D volumeTexture;
uniform sampler1D transferFunction;
uniform int enableLighting;
uniform vec4 objectColor;

in vec3 texCoord;
flat in vec3 textureViewDirection;

out vec4 fragColor;

void main()
{
    float value = texture(volumeTexture, texCoord).r;
    float opacity = texture(transferFunction, value).r;
    if (opacity <= 0.0)
        discard;
    float shade = 1.0;
    if (enableLighting != 0) {
        vec3 step = 1.0 / vec3(textureSize(volumeTexture, 0));
        vec3 gradient = vec3(texture(volumeTexture, texCoord + vec3(step.x, 0, 0)).r -
                                 texture(volumeTexture, texCoord - vec3(step.x, 0, 0)).r,
                             texture(volumeTexture, texCoord + vec3(0, step.y, 0)).r -
                                 texture(volumeTexture, texCoord - vec3(0, step.y, 0)).r,
                             texture(volumeTexture, texCoord + vec3(0, 0, step.z)).r -
                                 texture(volumeTexture, texCoord - vec3(0, 0, step.z)).r);
        if (length(gradient) > 1e-4)
            shade = 0.3 + 0.7 * abs(dot(normalize(gradient), textureViewDirection));
    }
    fragColor = vec4(objectColor.rgb * shade, opacity * objectColor.a);
}
