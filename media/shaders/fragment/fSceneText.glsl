#version 430 core
// Text in "objectColor": flat glyphs ("usePixelPos") unlit, their coverage
// from the glyph page's alpha; solid glyphs lit by the scene's light with a
// white highlight.
uniform sampler2D paramBitmap;
uniform vec4 objectColor;
uniform vec3 globalAmbient;
uniform vec3 lightPosition;
uniform vec3 eyePosition;
uniform vec3 Ks;
uniform float shininess;
uniform int usePixelPos;

in vec3 worldPosition;
in vec3 worldNormal;
in vec2 uv;

out vec4 fragColor;

void main()
{
    if (usePixelPos != 0) {
        float coverage = texture(paramBitmap, uv).a;
        if (coverage < 0.01)
            discard;
        fragColor = vec4(objectColor.rgb, objectColor.a * coverage);
        return;
    }
    vec3 N = length(worldNormal) > 1e-6 ? normalize(worldNormal) : vec3(0.0, 0.0, 1.0);
    vec3 toEye = eyePosition - worldPosition;
    vec3 V = length(toEye) > 1e-6 ? normalize(toEye) : N;
    if (dot(N, V) < 0.0)
        N = -N;
    vec3 toLight = lightPosition - worldPosition;
    vec3 L = length(toLight) > 1e-6 ? normalize(toLight) : V;
    float diffuse = max(dot(N, L), 0.0);
    float specular = diffuse > 0.0 ? pow(max(dot(N, normalize(L + V)), 0.0), shininess) : 0.0;
    vec3 color = objectColor.rgb * (0.2 * globalAmbient + 0.8 * diffuse) + Ks * specular;
    fragColor = vec4(min(color, vec3(1.0)), objectColor.a);
}
