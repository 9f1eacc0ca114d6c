#version 430 core
// Emissive + ambient + diffuse + Blinn-Phong specular, with "objectColor" as
// the diffuse colour and a white light at "lightPosition". Two-sided: the
// normal is turned towards the eye.
uniform vec4 objectColor;
uniform vec3 globalAmbient;
uniform vec3 lightPosition;
uniform vec3 eyePosition;
uniform vec3 Ke;
uniform vec3 Ka;
uniform vec3 Ks;
uniform float shininess;

in vec3 worldPosition;
in vec3 worldNormal;

out vec4 fragColor;

void main()
{
    vec3 N = length(worldNormal) > 1e-6 ? normalize(worldNormal) : vec3(0.0, 0.0, 1.0);
    vec3 toEye = eyePosition - worldPosition;
    vec3 V = length(toEye) > 1e-6 ? normalize(toEye) : N;
    if (dot(N, V) < 0.0)
        N = -N;
    vec3 toLight = lightPosition - worldPosition;
    vec3 L = length(toLight) > 1e-6 ? normalize(toLight) : V;
    float diffuse = max(dot(N, L), 0.0);
    vec3 H = normalize(L + V);
    float specular = diffuse > 0.0 ? pow(max(dot(N, H), 0.0), shininess) : 0.0;
    vec3 color = Ke + Ka * globalAmbient + objectColor.rgb * diffuse + Ks * specular;
    fragColor = vec4(min(color, vec3(1.0)), objectColor.a);
}
