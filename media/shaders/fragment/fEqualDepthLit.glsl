#version 430 core
// fEqualDepth with the head-light shading of fDefaultLit, unless
// "disableShading" is set.
uniform sampler2D depthTexture;
uniform float textureWidth;
uniform float textureHeight;
uniform float depthTolerance;
uniform int disableShading;
uniform vec4 objectColor;

in vec3 viewPosition;
in vec3 viewNormal;

out vec4 fragColor;

void main()
{
    float stored = texture(depthTexture, gl_FragCoord.xy / vec2(textureWidth, textureHeight)).r;
    if (abs(gl_FragCoord.z - stored) > depthTolerance)
        discard;
    float facing = 1.0;
    if (disableShading == 0 && length(viewNormal) > 1e-6 && length(viewPosition) > 1e-6)
        facing = abs(dot(normalize(viewNormal), normalize(-viewPosition)));
    fragColor = vec4(objectColor.rgb * (0.3 + 0.7 * facing), objectColor.a);
}
