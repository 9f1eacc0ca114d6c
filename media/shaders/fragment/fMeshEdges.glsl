#version 430 core
// Edges of a mesh, unlit: "edgeColor" for ordinary edges (kind 0),
// "boundaryColor" for the edges of a hole (kind 1).
uniform vec4 edgeColor;
uniform vec4 boundaryColor;

in vec3 viewPosition;
in vec3 viewNormal;
flat in int edgeKind;

out vec4 fragColor;

void main()
{
    fragColor = edgeKind == 1 ? boundaryColor : edgeColor;
}
