#version 430 core
// Lines with adjacency (clip space) into ribbons of constant width on the
// screen: "pixelWidth".xy is the ribbon's width in normalized device units
// along x and y. Joints are mitred; the surface normal passes through for
// the lighting of the ribbon's two sides.
layout(lines_adjacency) in;
layout(triangle_strip, max_vertices = 4) out;

uniform vec3 pixelWidth;

in vec3 vsViewPosition[];
in vec3 vsViewNormal[];

out vec3 viewPosition;
out vec3 viewNormal;

vec2 Safe(vec2 v, vec2 fallback)
{
    float len = length(v);
    return len > 1e-9 ? v / len : fallback;
}

// Screen positions in units of the ribbon's width.
vec2 Screen(vec4 clip, vec2 unit)
{
    return clip.xy / (clip.w * unit);
}

vec2 Mitre(vec2 before, vec2 after)
{
    vec2 normalAfter = vec2(-after.y, after.x);
    vec2 mitre = Safe(vec2(-(before + after).y, (before + after).x), normalAfter);
    return mitre / max(dot(mitre, normalAfter), 0.25);
}

void Emit(int i, vec2 offset, vec2 unit)
{
    vec4 p = gl_in[i].gl_Position;
    p.xy += offset * unit * p.w;
    gl_Position = p;
    viewPosition = vsViewPosition[i];
    viewNormal = vsViewNormal[i];
    EmitVertex();
}

void main()
{
    vec2 unit = max(pixelWidth.xy, vec2(1e-6));
    vec2 s0 = Screen(gl_in[0].gl_Position, unit);
    vec2 s1 = Screen(gl_in[1].gl_Position, unit);
    vec2 s2 = Screen(gl_in[2].gl_Position, unit);
    vec2 s3 = Screen(gl_in[3].gl_Position, unit);
    vec2 dir = Safe(s2 - s1, vec2(1.0, 0.0));
    vec2 mitreA = Mitre(Safe(s1 - s0, dir), dir) * 0.5;
    vec2 mitreB = Mitre(dir, Safe(s3 - s2, dir)) * 0.5;
    Emit(1, -mitreA, unit);
    Emit(1, mitreA, unit);
    Emit(2, -mitreB, unit);
    Emit(2, mitreB, unit);
    EndPrimitive();
}
