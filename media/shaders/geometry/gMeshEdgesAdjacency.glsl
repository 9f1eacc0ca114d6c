#version 430 core
// Every edge of the mesh once, from triangles with adjacency: corners at
// 0, 2, 4, the vertex across edge k (from corner 2k to corner 2k+2) at
// 2k+1. Of the two triangles at an interior edge, the one whose own
// opposite corner sorts first (x, then y, then z) draws it. A boundary edge
// carries the triangle's own opposite corner as its neighbour; it is drawn
// once, as kind 1.
layout(triangles_adjacency) in;
layout(line_strip, max_vertices = 6) out;

in vec3 vsViewPosition[];
in vec3 vsViewNormal[];

out vec3 viewPosition;
out vec3 viewNormal;
flat out int edgeKind;

bool Before(vec3 a, vec3 b)
{
    if (a.x != b.x)
        return a.x < b.x;
    if (a.y != b.y)
        return a.y < b.y;
    return a.z < b.z;
}

void Emit(int i, int kind)
{
    vec4 p = gl_in[i].gl_Position;
    p.z -= 0.0005 * p.w;
    gl_Position = p;
    viewPosition = vsViewPosition[i];
    viewNormal = vsViewNormal[i];
    edgeKind = kind;
    EmitVertex();
}

void main()
{
    for (int k = 0; k < 3; ++k) {
        int a = 2 * k;
        int b = (2 * k + 2) % 6;
        int own = (2 * k + 4) % 6;
        vec3 mine = vsViewPosition[own];
        vec3 across = vsViewPosition[2 * k + 1];
        bool boundary = all(equal(mine, across));
        if (!boundary && !Before(mine, across))
            continue;
        Emit(a, boundary ? 1 : 0);
        Emit(b, boundary ? 1 : 0);
        EndPrimitive();
    }
}
