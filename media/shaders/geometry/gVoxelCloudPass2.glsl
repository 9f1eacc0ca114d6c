#version 430 core
// Second pass of the voxel cloud (styles other than 2): the twelve edges of
// each visible cube, over the depth the first pass laid down.
layout(points) in;
layout(line_strip, max_vertices = 24) out;

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

void Emit(vec3 world)
{
    vec4 p = viewMatrix * vec4(world, 1.0);
    viewPosition = p.xyz;
    viewNormal = -p.xyz; // edges face the viewer
    vec4 clip = projectionMatrix * p;
    clip.z -= 0.0005 * clip.w; // in front of the faces they bound
    gl_Position = clip;
    EmitVertex();
}

void main()
{
    int code = vsPacked[0];
    if (renderingStyle == 2 || !Visible(code % 4))
        return;
    float h = float(code / 4) * cellSize;
    vec3 c = gl_in[0].gl_Position.xyz;
    for (int axis = 0; axis < 3; ++axis) {
        for (int k = 0; k < 4; ++k) {
            vec3 offset = vec3(0.0);
            offset[(axis + 1) % 3] = (k & 1) != 0 ? h : -h;
            offset[(axis + 2) % 3] = (k & 2) != 0 ? h : -h;
            vec3 along = vec3(0.0);
            along[axis] = h;
            Emit(c + offset - along);
            Emit(c + offset + along);
            EndPrimitive();
        }
    }
}
