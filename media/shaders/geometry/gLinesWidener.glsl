#version 430 core
// Plain lines (clip space) into ribbons of constant width on the screen,
// "pixelWidth".xy wide in normalized device units.
layout(lines) in;
layout(triangle_strip, max_vertices = 4) out;

uniform vec3 pixelWidth;

in vec3 vsViewPosition[];
in vec3 vsViewNormal[];

out vec3 viewPosition;
out vec3 viewNormal;

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
    vec2 a = gl_in[0].gl_Position.xy / (gl_in[0].gl_Position.w * unit);
    vec2 b = gl_in[1].gl_Position.xy / (gl_in[1].gl_Position.w * unit);
    vec2 dir = b - a;
    dir = length(dir) > 1e-9 ? normalize(dir) : vec2(1.0, 0.0);
    vec2 side = vec2(-dir.y, dir.x) * 0.5;
    Emit(0, -side, unit);
    Emit(0, side, unit);
    Emit(1, -side, unit);
    Emit(1, side, unit);
    EndPrimitive();
}
