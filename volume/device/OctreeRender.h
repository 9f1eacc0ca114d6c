#pragma once
// Host entry points of the octree ray caster and node classifier.
//
// A render writes into a TezOctreeRenderTarget: plain pitched buffers of
// RGBA8 colour, 32-bit depth words (24-bit fixed point, 0 and 0xFFFFFFFF
// meaning no surface), and for transparency `layerCount` stacked layers of
// RGBA8 colour and float ray distance (layer k starts at row k * height).
// Buffers, tree pools and the 256-entry opacity table all live on one side:
// host memory (onDevice false: TBB loops) or CUDA device memory (onDevice
// true: kernel launches; only where the library is built with CUDA and a
// device is present). Who allocated them does not matter.
//
// The render functions return false after logging the failing step's tag
// ("TezVoxelOctreeRenderSolid.A" ...); the render goes on past a failed step.
// Invalid arguments (null buffers, sizes, bit depth, a tree whose root has no
// children: the kernels start at nodes 1 to 8) throw std::runtime_error.

#include "math/Matrix.h"
#include "math/Plane.h"
#include "math/Vector.h"
#include "platform/Api.h"
#include "platform/DeviceBuffer.h"
#include "volume/device/CameraRecord.h"
#include "volume/device/OctreeKernelTypes.h"

#include <cstdint>
#include <vector>

struct TezOctreeRenderTarget
{
    int32_t width = 0;
    int32_t height = 0;
    bool onDevice = false;
    uint8_t* image = nullptr; // RGBA8
    uint32_t imagePitch = 0;
    uint32_t* depth = nullptr;
    uint32_t depthPitch = 0;
    int32_t layerCount = 0;
    uint8_t* colourLayers = nullptr; // RGBA8, layerCount * height rows
    uint32_t colourLayersPitch = 0;
    float* rayLayers = nullptr; // layerCount * height rows
    uint32_t rayLayersPitch = 0;
    // 16 floats the inverse object matrix is copied to, as the kernels read
    // it: for a tree of one brick, scaled by one half into the stand-in tree
    // it is drawn through. May be null on the host side, where a local copy
    // is used.
    float* transform = nullptr;
};

// The octree as the kernels see it: the pools' linear copies. Where the pools
// were established on the device (TezMemoryPool::EstablishCUDA), nodes and
// leaves are their GetCUDA() pointers, on the device when TezDeviceIsCuda().
struct TezOctreeRenderSource
{
    int32_t bitsPerPixel = 8; // 8 or 16
    float voxelSize = 1.0f;
    int32_t maxDepth = 0; // number of levels
    int32_t treeSize = 0; // edge in voxels, for the node state kernels
    TezOctreeDevice::Node* nodes = nullptr;
    const void* leaves = nullptr;
    int32_t nodeCount = 0;
    // Set after TezCalculateOctreeNodeStates with the table the render uses:
    // the render then skips bricks that hold nothing the ray could hit.
    bool statesValid = false;
    // TezOctreeDevice::Look... bits: shading and opacity beyond the plain
    // pictures (face-lit uniform nodes, flat-lit cut faces, transparent
    // layers blended by the table's opacity). 0 gives the plain pictures.
    uint32_t looks = 0;
    // Host renders with valid states: the masks TezCalculateOctreeBlockMasks
    // made for the same table, or null. They let a march step over the
    // empty 4^3 blocks of a brick; the picture is the same.
    const uint64_t* blockMasks = nullptr;
};

// Camera record from plain fields; fovDegrees is converted to radians.
// axes are the three vectors of the camera's inverse view axes. Row y of a
// target is the y-th row from the bottom of the view.
TEZ_API TezOctreeDevice::Camera TezMakeOctreeCamera(bool perspective, const TezVector3<float>& eye,
                                                    const TezVector3<float> axes[3], const TezVector3<float>& focus,
                                                    float nearPlane, float farPlane, float fovDegrees, int width,
                                                    int height);
// The same from a camera record (render/OctreeCamera.h makes both from a
// camera view).
TEZ_API TezOctreeDevice::Camera TezMakeOctreeCamera(const TezCameraRecord& record);
// Octree record of a source; throws on a bit depth other than 8 or 16.
TEZ_API TezOctreeDevice::Octree TezMakeOctreeRecord(const TezOctreeRenderSource& source);

// The depth word of a surface at `distance` along the ray of pixel (x, y):
// the window depth GL would give the same point under the camera's
// projection (depth range 0 to 1), in 24-bit fixed point (d / 2^24). This is
// the one definition the kernels write and the GL merge reads back.
TEZ_API uint32_t TezOctreeDepthWord(const TezOctreeDevice::Camera& camera, int x, int y, float distance);

// True when launches on device memory are possible in this process.
TEZ_API bool TezOctreeKernelsHaveDevice();

// Solid ray casting: clears the depth to 0xFFFFFFFF, then writes colour and
// depth of every pixel whose ray hits an opaque voxel in front of far. The
// camera's width and height are taken from the target.
// matrix maps the unit cube to the world. xsection, in world space, keeps the
// half space its normal points into.
TEZ_API bool TezRenderOctreeSolid(const TezOctreeRenderTarget& target, const TezOctreeRenderSource& source,
                                  const TezOctreeDevice::Camera& camera, const TezMatrix44<float>& matrix,
                                  const TezVector4<float>& colour, const float* transferFunction,
                                  const TezPlane<float>* xsection = nullptr);

// Layered ray casting: inserts up to layerCount surfaces per pixel into the
// target's layers, sorted by distance, keeping what earlier calls stored.
TEZ_API bool TezRenderOctreeTransparent(const TezOctreeRenderTarget& target, const TezOctreeRenderSource& source,
                                        const TezOctreeDevice::Camera& camera, const TezMatrix44<float>& matrix,
                                        const TezVector4<float>& colour, const float* transferFunction,
                                        const TezPlane<float>* xsection = nullptr);

// Blends the layers back to front into image and depth (pixels with no
// first layer keep what they had).
TEZ_API bool TezBlendOctreeLayers(const TezOctreeRenderTarget& target, const TezOctreeDevice::Camera& camera);

// Byte fills of the target's buffers: depth (0xFF for "no surface"), the
// image, both layer stacks (0: empty).
TEZ_API bool TezClearOctreeDepth(const TezOctreeRenderTarget& target, uint8_t byte);
TEZ_API bool TezClearOctreeImage(const TezOctreeRenderTarget& target, uint8_t byte);
TEZ_API bool TezClearOctreeLayers(const TezOctreeRenderTarget& target);

// Node states (word 2) under a transfer function: childless nodes from their
// value or brick, then every node with children from its children, the root
// last. With onDevice, source's pools and the table are device memory; the
// nodes are read back into hostNodes (nodeCount entries), completed, and
// written back. On the host, hostNodes may be null: source.nodes is used.
TEZ_API bool TezCalculateOctreeNodeStates(const TezOctreeRenderSource& source, const float* transferFunction,
                                          bool onDevice, TezOctreeDevice::Node* hostNodes = nullptr);

// The block masks of every brick (two words a brick) for host renders with
// valid states: source's pools are host memory and its states hold for
// transferFunction. Set source.blockMasks to masks.data() to use them.
TEZ_API bool TezCalculateOctreeBlockMasks(const TezOctreeRenderSource& source, const float* transferFunction,
                                          std::vector<uint64_t>& masks);

// Turns full childless nodes next to a node that is not full into boundary
// nodes; needs source.treeSize.
TEZ_API bool TezCalculateOctreeNodeStatesAdjacent(const TezOctreeRenderSource& source, bool onDevice);

// Buffers for a target, owned: host arrays, or device memory when onDevice.
// Movable, not copyable.
class TEZ_API TezOctreeRenderBuffers
{
public:
    TezOctreeRenderBuffers(int width, int height, int layerCount, bool onDevice);

    const TezOctreeRenderTarget& GetTarget() const { return m_target; }

    // Tightly packed copies on the host: width * height RGBA8, words, and
    // layerCount * width * height layer entries.
    std::vector<uint8_t> ReadImage() const;
    std::vector<uint32_t> ReadDepth() const;
    std::vector<uint8_t> ReadColourLayers() const;
    std::vector<float> ReadRayLayers() const;

private:
    TezOctreeRenderTarget m_target;
    TezDeviceBuffer m_image, m_depth, m_colourLayers, m_rayLayers, m_transform;
};
