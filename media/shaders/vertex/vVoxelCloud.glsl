#version 430 core
// Voxel cloud points: x, y, z the cube's centre, w packing its size in
// cells (w / 4) and its state (w mod 4). The geometry stage makes the cubes.
uniform mat4 modelMatrix;

layout(location = 0) in vec4 inPosition;

flat out int vsPacked;

void main()
{
    gl_Position = modelMatrix * vec4(inPosition.xyz, 1.0);
    vsPacked = int(inPosition.w);
}
