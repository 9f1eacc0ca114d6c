#version 430 core
// One slice of a volume: the polygon where the plane at distance "planeDist"
// from the eye, facing along the view, cuts the box from "origin" to
// "origin" + "scale" (object space). Each slice is drawn from six vertices
// whose inPosition.x is their number 0 to 5; vertex i walks its share of the
// box's edges from the corner nearest the viewer ("frontIndex") and lands on
// the first edge the plane crosses (Rezk-Salama and Kolb's slicing on the
// GPU, as in Engel et al., "Real-Time Volume Graphics", 3.5.3).
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;
uniform int frontIndex;
uniform vec4 scale;
uniform vec4 origin;
uniform float planeDist;

layout(location = 0) in vec3 inPosition;

out vec3 texCoord;
flat out vec3 textureViewDirection;

// Corners by their index as the scene object counts them (x, y, z bits).
const vec3 kCorner[8] = vec3[8](vec3(0, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0), vec3(0, 0, 1),
                                 vec3(1, 1, 0), vec3(1, 0, 1), vec3(0, 1, 1), vec3(1, 1, 1));
// The walk's corners relative to the front corner: v0 the front, v7 the
// back; the paths v0-v1-v4-v7, v0-v2-v5-v7, v0-v3-v6-v7 and the cross
// edges v1-v5, v2-v6, v3-v4.
const ivec3 kWalk[8] = ivec3[8](ivec3(0, 0, 0), ivec3(1, 0, 0), ivec3(0, 1, 0), ivec3(0, 0, 1),
                                ivec3(1, 0, 1), ivec3(1, 1, 0), ivec3(0, 1, 1), ivec3(1, 1, 1));
// Edges tried by each polygon vertex, from and to.
const int kFrom[24] = int[24](0, 1, 4, 4, 1, 0, 1, 4, 0, 2, 5, 5, 2, 0, 2, 5, 0, 3, 6, 6, 3, 0, 3, 6);
const int kTo[24] = int[24](1, 4, 7, 7, 5, 1, 4, 7, 2, 5, 7, 7, 6, 2, 5, 7, 3, 6, 7, 7, 4, 3, 6, 7);

vec3 Corner(int walk, ivec3 front)
{
    // Mirroring the walk onto the front corner keeps every edge an edge.
    return vec3(kWalk[walk] ^ front);
}

void main()
{
    mat3 rotation = mat3(viewMatrix);
    vec3 eye = -(transpose(rotation) * viewMatrix[3].xyz);
    vec3 viewDirection = vec3(viewMatrix[0][2], viewMatrix[1][2], viewMatrix[2][2]);
    ivec3 front = ivec3(kCorner[clamp(frontIndex, 0, 7)]);
    int vertex = clamp(int(inPosition.x + 0.5), 0, 5);

    vec3 unitPoint = vec3(0.0);
    bool found = false;
    for (int e = 0; e < 4 && !found; ++e) {
        vec3 a = Corner(kFrom[vertex * 4 + e], front);
        vec3 b = Corner(kTo[vertex * 4 + e], front);
        vec3 wa = (modelMatrix * vec4(origin.xyz + a * scale.xyz, 1.0)).xyz;
        vec3 wb = (modelMatrix * vec4(origin.xyz + b * scale.xyz, 1.0)).xyz;
        float denominator = dot(viewDirection, wb - wa);
        float lambda = abs(denominator) > 1e-12 ? (planeDist - dot(viewDirection, wa - eye)) / denominator : -1.0;
        if (lambda >= 0.0 && lambda <= 1.0) {
            unitPoint = mix(a, b, lambda);
            found = true;
        }
    }
    texCoord = unitPoint;
    textureViewDirection = normalize(transpose(mat3(modelMatrix)) * viewDirection / max(scale.xyz, vec3(1e-6)));
    if (!found) {
        gl_Position = vec4(0.0); // no cut: a degenerate vertex draws nothing
        return;
    }
    vec4 world = modelMatrix * vec4(origin.xyz + unitPoint * scale.xyz, 1.0);
    gl_Position = projectionMatrix * viewMatrix * world;
}
