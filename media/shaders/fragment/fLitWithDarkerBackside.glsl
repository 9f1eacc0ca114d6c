#version 430 core
// Head-light shading of "objectColor"; where the surface turns its back on
// the viewer the colour is halved, so both sides of a ribbon read apart.
uniform vec4 objectColor;

in vec3 viewPosition;
in vec3 viewNormal;

out vec4 fragColor;

void main()
{
    float facing = 1.0;
    if (length(viewNormal) > 1e-6 && length(viewPosition) > 1e-6)
        facing = dot(normalize(viewNormal), normalize(-viewPosition));
    float shade = 0.3 + 0.7 * abs(facing);
    if (facing < 0.0)
        shade *= 0.5;
    fragColor = vec4(objectColor.rgb * shade, objectColor.a);
}
