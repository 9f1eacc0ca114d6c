#version 430 core
// Plain lines (view space) into bands of "thickness" view units facing the
// viewer, shaded round across their width.
layout(lines) in;
layout(triangle_strip, max_vertices = 6) out;

uniform mat4 projectionMatrix;
uniform float thickness;

out vec3 viewPosition;
out vec3 viewNormal;

vec3 SafeNormalize(vec3 v, vec3 fallback)
{
    float len = length(v);
    return len > 1e-9 ? v / len : fallback;
}

void Emit(vec3 p, vec3 normal)
{
    viewPosition = p;
    viewNormal = normal;
    gl_Position = projectionMatrix * vec4(p, 1.0);
    EmitVertex();
}

void main()
{
    vec3 a = gl_in[0].gl_Position.xyz;
    vec3 b = gl_in[1].gl_Position.xyz;
    vec3 dir = SafeNormalize(b - a, vec3(1.0, 0.0, 0.0));
    vec3 toEye = SafeNormalize(-(a + b) * 0.5, vec3(0.0, 0.0, -1.0));
    vec3 nSide = SafeNormalize(cross(dir, toEye), vec3(1.0, 0.0, 0.0));
    vec3 side = nSide * (0.5 * thickness);
    Emit(a - side, -nSide);
    Emit(b - side, -nSide);
    Emit(a, toEye);
    Emit(b, toEye);
    Emit(a + side, nSide);
    Emit(b + side, nSide);
    EndPrimitive();
}
