#pragma once
// Arguments of one kernel launch, and the two ways of running it: a TBB loop
// over 16 x 16 pixel tiles on the host, or a CUDA launch of 16 x 16 thread
// blocks on a grid of (width >> 4) + 1 by (height >> 4) + 1. Pointers name
// memory of the side that runs the launch. Internal to the library.

#include "volume/device/OctreeKernelTypes.h"

#include <cstddef>
#include <stdexcept>
#include <string>

namespace TezOctreeDevice {

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

struct Grid3
{
    unsigned x, y, z;
};

// Blocks of 256 threads for the node state kernel: a row of up to 1024
// blocks, then rows of 1024 (y), then planes of 1024 x 1024 (z). Node index
// is ((z << 20) + (y << 10) + x) * 256 + thread.
inline Grid3 NodeStateGrid(int nodeCount)
{
    const unsigned count = nodeCount > 0 ? static_cast<unsigned>(nodeCount) : 0u;
    const unsigned blocks = (count + 255) >> 8;
    if (blocks <= 1024)
        return Grid3{blocks, 1, 1};
    const unsigned y = ((count + 255) >> 18) + 1;
    if (y > 1023)
        return Grid3{1024, 1024, (y >> 10) + 1};
    return Grid3{1024, y, 1};
}

// The host pass of the node states: each child with children takes the
// combined state of its own children; a group whose children all agree has
// their state, otherwise 2. nodeAt(i) gives node i by reference.
template <class NodeAt>
uint32_t CombineChildStates(const NodeAt& nodeAt, uint64_t count, uint32_t first, int depth)
{
    if (first == 0 || uint64_t(first) + 8 > count || depth > 31)
        throw std::runtime_error("TezCalculateOctreeNodeStates: child group " + std::to_string(first) +
                                 " outside the node pool of " + std::to_string(count));
    uint32_t result = StateUnseen;
    for (uint32_t k = 0; k < 8; ++k) {
        Node& node = nodeAt(first + k);
        const uint32_t children = node.children & TezNodeLowMask;
        if (children != 0)
            node.state = CombineChildStates(nodeAt, count, children, depth + 1);
        if (result == StateUnseen)
            result = node.state;
        else if (node.state != result)
            result = TezNodeStateBoundary;
    }
    return result;
}

// xsection null: no clipping. sixteenBit picks the voxel width of the leaves.
void RunSolidHost(const SolidLaunch& args, bool sixteenBit, const XSectionRangeFunction* xsection);
void RunTransparentHost(const TransparentLaunch& args, bool sixteenBit, const XSectionRangeFunction* xsection);
void RunBlendHost(const BlendLaunch& args);
void RunNodeStatesHost(const Octree& octree, int nodeCount, const float* table, bool sixteenBit);
void RunNodeStatesAdjacentHost(const Octree& octree);

// The same on the device; false (with the error text) when the launch
// failed. Present only when the library is built with CUDA.
bool CudaDeviceAvailable();
bool RunSolidCuda(const SolidLaunch& args, bool sixteenBit, const XSectionRangeFunction* xsection, const char** error);
bool RunTransparentCuda(const TransparentLaunch& args, bool sixteenBit, const XSectionRangeFunction* xsection,
                        const char** error);
bool RunBlendCuda(const BlendLaunch& args, const char** error);
bool RunNodeStatesCuda(const Octree& octree, int nodeCount, const float* table, bool sixteenBit, const char** error);
bool RunNodeStatesAdjacentCuda(const Octree& octree, const char** error);

// The CUDA status of this thread's last failed device call above (0 when
// none failed), for the fatal check of device errors.
int LastCudaStatus();

// Device memory for the owning buffers and the host passes.
bool CudaMallocPitch(void** pointer, size_t* pitch, size_t widthBytes, size_t height, const char** error);
bool CudaFree(void* pointer, const char** error);
bool CudaMemset2D(void* pointer, size_t pitch, int value, size_t widthBytes, size_t height, const char** error);
bool CudaCopy(void* destination, const void* source, size_t bytes, bool toDevice, const char** error);
bool CudaCopy2DToHost(void* destination, size_t destinationPitch, const void* source, size_t sourcePitch,
                      size_t widthBytes, size_t height, const char** error);

} // namespace TezOctreeDevice
