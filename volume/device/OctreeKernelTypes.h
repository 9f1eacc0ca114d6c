#pragma once
// Plain records shared by the octree ray casting and node state kernels.
//
// Everything here compiles both as ordinary C++ and under nvcc: the records
// are passed by value to the kernels, the pointers in them name either host
// arrays (host loops) or device memory (CUDA launches). The octree is the
// unit cube [0,1]^3; node i is three 32-bit words at byte 12 * i, brick i
// starts at element 4096 * i of the leaf pool, voxel (x, y, z) of a brick at
// (z * 16 + y) * 16 + x.

#include "core/Constants.h"
#include "volume/VoxelOctreeNode.h"

#include <cstdint>

namespace TezOctreeDevice {

inline constexpr uint32_t MAX_UINT = 0xFFFFFFFFu;
inline constexpr float MAX_CONT_FLOAT = 16777216.0f;

// A table entry at or above this opacity makes a voxel value opaque.
inline constexpr float OpaqueThreshold = 0.0001f;
// The host pass's mark for a node state not yet seen (the states themselves
// are TezNodeState... of volume/VoxelOctreeNode.h).
inline constexpr uint32_t StateUnseen = 1024;

struct LevelSteps; // host loops only (OctreeHostMarch.h)

struct float3s
{
    float x, y, z;
};

struct float4s
{
    float x, y, z, w;
};

struct uchar4s
{
    uint8_t x, y, z, w;
};

// Three words of a node: children (bit 31: has a brick), data (bit 31: a
// brick index follows; clear: a uniform value), state.
using Node = TezVoxelOctreeNode;

struct Camera
{
    uint8_t perspective;
    float3s eye;
    float3s axisX;
    float3s axisY;
    float3s axisZ;
    float3s focus;
    float near;
    float far;
    float fov; // radians
    int32_t width;
    int32_t height;
};

struct Octree
{
    float valueScale; // 1/255 for 8-bit voxels, 1/65535 for 16-bit voxels
    float voxelSize;
    int32_t maxDepth;
    Node* nodes;
    const void* leaves;
    int32_t treeSize; // used by the node state kernels only
    // Node states hold for the table in use: a brick whose node cannot
    // change the ray's classification (empty outside, full inside) is
    // stepped over without walking its voxels. The picture is the same.
    int32_t skipByState;
    // Looks beyond the plain kernels, a bit each (Look...): all clear gives
    // the plain pictures.
    uint32_t looks;
    // Host loops only, with valid node states (null otherwise): per brick b,
    // blockMasks[2 * b] has bit (x / 4) + 4 * (y / 4) + 16 * (z / 4) set
    // where that 4^3 block of the brick holds an opaque voxel, and
    // blockMasks[2 * b + 1] where it holds a clear one. A march steps over
    // the blocks that cannot change its classification.
    const uint64_t* blockMasks;
    // Host loops only: the level limit as a table, made once a launch; null
    // where a march makes its own.
    const LevelSteps* levelSteps;
};

// A first hit in a uniform node is shaded by the face the ray came in
// through, instead of full brightness: flat regions and the sides of a
// constant volume keep their shape.
constexpr uint32_t LookFaceShading = 1u;
// A hit on the first sample behind a cross-section plane is flat-lit by the
// plane's normal instead of by the gradient of the voxels it cuts.
constexpr uint32_t LookCutShading = 2u;
// Transparent layers take their alpha from the opacity table (the entry of
// the voxel where the ray went in, for the surfaces going in and out)
// instead of 1.
constexpr uint32_t LookTableOpacity = 4u;

// The opacity table of 256 entries.
struct LookupTransferFunction
{
    const float* table;
};

// As above; flags[0] is the inside flag a ray starts with, the rest unused.
struct LookupTransparentTransferFunction
{
    const float* table;
    uint8_t flags[4];
};

// No clipping.
struct DefaultRangeFunction
{
};

// Keeps the half space the unit normal points into, in octree space.
struct XSectionRangeFunction
{
    float3s root;
    float3s normal;
};

// What one launch of a kernel takes: the records above, in the order the
// kernels read them, with the buffers of the side that runs it.
struct SolidLaunch
{
    Camera camera;
    Octree octree;
    const float* transform;
    float3s colour;
    uint32_t imagePitch;
    uchar4s* image;
    uint32_t depthPitch;
    uint32_t* depth;
    LookupTransferFunction lookup;
};

struct TransparentLaunch
{
    Camera camera;
    Octree octree;
    const float* transform;
    float4s colour;
    int32_t layerCount;
    uchar4s* colourLayers;
    uint32_t colourPitch;
    float* rayLayers;
    uint32_t rayPitch;
    LookupTransparentTransferFunction lookup;
};

struct BlendLaunch
{
    Camera camera;
    int32_t layerCount;
    uchar4s* colourLayers;
    uint32_t colourPitch;
    float* rayLayers;
    uint32_t rayPitch;
    uint32_t* depth;
    uint32_t depthPitch;
    uchar4s* image;
    uint32_t imagePitch;
};

} // namespace TezOctreeDevice
