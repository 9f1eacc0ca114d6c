#version 430 core
// Keeps the fragments whose depth matches "depthTexture" within
// "depthTolerance", in "objectColor".
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
