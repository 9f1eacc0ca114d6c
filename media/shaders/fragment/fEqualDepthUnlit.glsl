#version 430 core
// The depth match of fEqualDepth with "objectColor" unchanged (mapping).
uniform sampler2D depthTexture;
uniform float textureWidth;
uniform float textureHeight;
uniform float depthTolerance;
uniform vec4 objectColor;

out vec4 fragColor;

void main()
{
    float stored = texture(depthTexture, gl_FragCoord.xy / vec2(textureWidth, textureHeight)).r;
    if (abs(gl_FragCoord.z - stored) > depthTolerance)
        discard;
    fragColor = objectColor;
}
