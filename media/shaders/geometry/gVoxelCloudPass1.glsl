#version 430 core
// First pass of the voxel cloud: the faces of each visible cube. With
// "renderingStyle" 2 this is the only pass and the faces are what is seen;
// with the other styles the object writes depth only here, to hide the
// edges that the second pass draws.
layout(points) in;
layout(triangle_strip, max_vertices = 24) out;

uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform float cellSize;
uniform int renderingStyle;
uniform int emptyVisible;
uniform int fullVisible;
uniform int boundaryVisible;
uniform int state3Visible;

flat in int vsPacked[];

out vec3 viewPosition;
out vec3 viewNormal;

bool Visible(int state)
{
    return (state == 0 && emptyVisible != 0) || (state == 1 && fullVisible != 0) ||
           (state == 2 && boundaryVisible != 0) || (state == 3 && state3Visible != 0);
}

void main()
{
    int code = vsPacked[0];
    if (!Visible(code % 4))
        return;
    float h = float(code / 4) * cellSize;
    vec3 c = gl_in[0].gl_Position.xyz;
    for (int axis = 0; axis < 3; ++axis) {
        for (int side = -1; side <= 1; side += 2) {
            vec3 n = vec3(0.0);
            n[axis] = float(side);
            vec3 u = vec3(0.0), v = vec3(0.0);
            u[(axis + 1) % 3] = 1.0;
            v[(axis + 2) % 3] = 1.0;
            vec3 viewN = mat3(viewMatrix) * n;
            for (int k = 0; k < 4; ++k) {
                float su = (k & 1) != 0 ? 1.0 : -1.0;
                float sv = (k & 2) != 0 ? 1.0 : -1.0;
                vec4 p = viewMatrix * vec4(c + h * (n + su * u + sv * v), 1.0);
                viewPosition = p.xyz;
                viewNormal = viewN;
                gl_Position = projectionMatrix * p;
                EmitVertex();
            }
            EndPrimitive();
        }
    }
}
