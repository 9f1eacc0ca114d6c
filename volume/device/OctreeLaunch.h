#pragma once
// The two ways of running a kernel launch: a TBB loop over 16 x 16 pixel
// tiles on the host, or a CUDA launch of 16 x 16 thread blocks on a grid of
// (width >> 4) + 1 by (height >> 4) + 1. Pointers in the launch records name
// memory of the side that runs them. Internal to the library.

#include "platform/Api.h"
#include "volume/device/OctreeKernelTypes.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace TezOctreeDevice {

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

// One voxel type and one range function for a launch: fn(voxel, range) is
// called with a uint8_t or uint16_t value (only its type counts) and the
// cut's XSectionRangeFunction or the DefaultRangeFunction.
template <class Fn>
void WithVoxelAndRange(bool sixteenBit, const XSectionRangeFunction* xsection, const Fn& fn)
{
    if (xsection) {
        if (sixteenBit)
            fn(uint16_t{}, *xsection);
        else
            fn(uint8_t{}, *xsection);
    } else if (sixteenBit) {
        fn(uint16_t{}, DefaultRangeFunction{});
    } else {
        fn(uint8_t{}, DefaultRangeFunction{});
    }
}

// The kernels run one way or the other: over 16 x 16 pixel tiles (nodes in
// ranges) on the host, or as CUDA launches. Device launches are queued; their
// errors show in TezDeviceGetLastError, which the caller checks with its tag.
// xsection null: no clipping; sixteenBit picks the leaves' voxel width.
struct LaunchBackend
{
    void (*solid)(const SolidLaunch& args, bool sixteenBit, const XSectionRangeFunction* xsection);
    void (*transparent)(const TransparentLaunch& args, bool sixteenBit, const XSectionRangeFunction* xsection);
    void (*blend)(const BlendLaunch& args);
    void (*nodeStates)(const Octree& octree, int nodeCount, const float* table, bool sixteenBit);
    void (*nodeStatesAdjacent)(const Octree& octree);
};

extern const LaunchBackend HostLaunches;

// Pixels [x0, x1) x [y0, y1) of the camera's view outside which no ray of
// SetUpRay meets the unit cube (T: world to cube, as the launches take it):
// the box of the cube's corners as the camera sees them, two pixels wider
// on each side than rounding needs. The whole view where the camera is
// inside the cube or a corner is not in front of it.
struct PixelRect
{
    int x0, y0, x1, y1;
};
TEZ_API PixelRect CubeOnScreen(const Camera& camera, const float* T);

// Octree::blockMasks of every brick a node refers to, on host nodes and
// leaves whose states hold for `table`; masks is resized to twice the
// highest brick index plus 2.
void HostBlockMasks(const Octree& octree, int nodeCount, const float* table, bool sixteenBit,
                    std::vector<uint64_t>& masks);
// Null members where the library was built without its device kernels.
extern const LaunchBackend CudaLaunches;
bool CudaKernelsBuilt();

} // namespace TezOctreeDevice
