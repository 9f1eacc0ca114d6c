#version 430 core
// "objectColor" lit by a head light: 30 % ambient, 70 % diffuse, on both
// sides of the surface. A zero normal counts as facing the eye.
uniform vec4 objectColor;

in vec3 viewPosition;
in vec3 viewNormal;

out vec4 fragColor;

void main()
{
    float facing = 1.0;
    float len = length(viewNormal);
    if (len > 1e-6) {
        vec3 toEye = length(viewPosition) > 1e-6 ? normalize(-viewPosition) : vec3(0.0, 0.0, -1.0);
        facing = abs(dot(viewNormal / len, toEye));
    }
    fragColor = vec4(objectColor.rgb * (0.3 + 0.7 * facing), objectColor.a);
}
