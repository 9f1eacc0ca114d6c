#version 430 core
// The three edges of every triangle as lines, pulled a little towards the
// viewer so that they win the depth test against their own surface.
layout(triangles) in;
layout(line_strip, max_vertices = 4) out;

in vec3 vsViewPosition[];
in vec3 vsViewNormal[];

out vec3 viewPosition;
out vec3 viewNormal;
flat out int edgeKind;

void main()
{
    for (int i = 0; i < 4; ++i) {
        int k = i % 3;
        vec4 p = gl_in[k].gl_Position;
        p.z -= 0.0005 * p.w;
        gl_Position = p;
        viewPosition = vsViewPosition[k];
        viewNormal = vsViewNormal[k];
        edgeKind = 0;
        EmitVertex();
    }
    EndPrimitive();
}
