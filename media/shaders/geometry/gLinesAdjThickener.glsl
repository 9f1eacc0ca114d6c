#version 430 core
// Lines with adjacency (previous, start, end, next; view space) into bands
// of "thickness" view units that face the viewer, mitred at the joints and
// shaded round across their width.
layout(lines_adjacency) in;
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

// The side direction at a joint: across the mean of the two directions.
vec3 Side(vec3 at, vec3 before, vec3 after)
{
    vec3 toEye = SafeNormalize(-at, vec3(0.0, 0.0, -1.0));
    vec3 mean = SafeNormalize(before + after, after);
    vec3 side = SafeNormalize(cross(mean, toEye), vec3(1.0, 0.0, 0.0));
    vec3 sideOfSegment = SafeNormalize(cross(after, toEye), side);
    float stretch = max(dot(side, sideOfSegment), 0.25);
    return side / stretch;
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
    vec3 p0 = gl_in[0].gl_Position.xyz;
    vec3 a = gl_in[1].gl_Position.xyz;
    vec3 b = gl_in[2].gl_Position.xyz;
    vec3 p3 = gl_in[3].gl_Position.xyz;
    vec3 dir = SafeNormalize(b - a, vec3(1.0, 0.0, 0.0));
    vec3 sideA = Side(a, SafeNormalize(a - p0, dir), dir) * (0.5 * thickness);
    vec3 sideB = Side(b, dir, SafeNormalize(p3 - b, dir)) * (0.5 * thickness);
    vec3 toEyeA = SafeNormalize(-a, vec3(0.0, 0.0, -1.0));
    vec3 toEyeB = SafeNormalize(-b, vec3(0.0, 0.0, -1.0));
    vec3 nSide = SafeNormalize(sideA, vec3(1.0, 0.0, 0.0));
    Emit(a - sideA, -nSide);
    Emit(b - sideB, -nSide);
    Emit(a, toEyeA);
    Emit(b, toEyeB);
    Emit(a + sideA, nSide);
    Emit(b + sideB, nSide);
    EndPrimitive();
}
