#version 430 core
// Circles of latitude on a sphere of "radius": inParam.x is the longitude
// along the circle, inParam.y the circle's latitude, both in radians.
uniform mat4 projectionMatrix;
uniform mat4 viewMatrix;
uniform mat4 modelMatrix;
uniform float radius;

layout(location = 0) in vec2 inParam;

out vec3 vsViewPosition;
out vec3 vsViewNormal;

void main()
{
    float longitude = inParam.x;
    float latitude = inParam.y;
    vec3 n = vec3(cos(latitude) * cos(longitude), cos(latitude) * sin(longitude), sin(latitude));
    mat4 modelView = viewMatrix * modelMatrix;
    vec4 p = modelView * vec4(n * radius, 1.0);
    vsViewPosition = p.xyz;
    vsViewNormal = mat3(modelView) * n;
    gl_Position = projectionMatrix * p;
}
