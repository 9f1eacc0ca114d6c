// The octree kernels as CUDA kernels, from the same source as the host loops.

#include "volume/device/OctreeKernels.inl"
#include "volume/device/OctreeLaunch.h"

#include <cuda_runtime.h>

#include <type_traits>

namespace TezOctreeDevice {
namespace {

constexpr int BlockEdge = 16;

dim3 PixelGrid(int width, int height)
{
    return dim3(static_cast<unsigned>(width >> 4) + 1, static_cast<unsigned>(height >> 4) + 1, 1);
}

} // namespace

template <class V, class Range>
__global__ void RenderSolid(SolidLaunch launch, Range range)
{
    const int x = blockIdx.x * blockDim.x + threadIdx.x;
    const int y = blockIdx.y * blockDim.y + threadIdx.y;
    RenderSolidPixel<V>(launch, MakeRayFrame(launch.camera), range, x, y);
}

template <class V, class Range>
__global__ void RenderTransparent(TransparentLaunch launch, Range range)
{
    const int x = blockIdx.x * blockDim.x + threadIdx.x;
    const int y = blockIdx.y * blockDim.y + threadIdx.y;
    RenderTransparentPixel<V>(launch, MakeRayFrame(launch.camera), range, x, y);
}

template <class V>
__global__ void CalculateNodeStates(Octree octree, int32_t nodeCount, const float* table)
{
    const int block =
        (static_cast<int>(blockIdx.z) << 20) + (static_cast<int>(blockIdx.y) << 10) + static_cast<int>(blockIdx.x);
    NodeState<V>(octree, nodeCount, table, block * 256 + static_cast<int>(threadIdx.x));
}

__global__ void CalculateNodeStatesAdjacent(Octree octree)
{
    const int x = blockIdx.x * blockDim.x + threadIdx.x;
    const int y = blockIdx.y * blockDim.y + threadIdx.y;
    NodeStateAdjacentColumn(octree, x, y);
}

__global__ void blendAccumlatedBuffers(BlendLaunch launch)
{
    const int x = blockIdx.x * blockDim.x + threadIdx.x;
    const int y = blockIdx.y * blockDim.y + threadIdx.y;
    BlendPixel(launch, MakeRayFrame(launch.camera), x, y);
}

namespace {

void Solid(const SolidLaunch& a, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    WithVoxelAndRange(sixteenBit, xsection, [&](auto voxel, const auto& range) {
        using V = decltype(voxel);
        using R = std::decay_t<decltype(range)>;
        RenderSolid<V, R><<<PixelGrid(a.camera.width, a.camera.height), dim3(BlockEdge, BlockEdge)>>>(a, range);
    });
}

void Transparent(const TransparentLaunch& a, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    WithVoxelAndRange(sixteenBit, xsection, [&](auto voxel, const auto& range) {
        using V = decltype(voxel);
        using R = std::decay_t<decltype(range)>;
        RenderTransparent<V, R><<<PixelGrid(a.camera.width, a.camera.height), dim3(BlockEdge, BlockEdge)>>>(a, range);
    });
}

void Blend(const BlendLaunch& a)
{
    blendAccumlatedBuffers<<<PixelGrid(a.camera.width, a.camera.height), dim3(BlockEdge, BlockEdge)>>>(a);
}

void NodeStates(const Octree& octree, int nodeCount, const float* table, bool sixteenBit)
{
    const Grid3 g = NodeStateGrid(nodeCount);
    if (g.x == 0)
        return;
    const dim3 grid(g.x, g.y, g.z);
    if (sixteenBit)
        CalculateNodeStates<uint16_t><<<grid, 256>>>(octree, nodeCount, table);
    else
        CalculateNodeStates<uint8_t><<<grid, 256>>>(octree, nodeCount, table);
}

void NodeStatesAdjacent(const Octree& octree)
{
    CalculateNodeStatesAdjacent<<<PixelGrid(octree.treeSize, octree.treeSize), dim3(BlockEdge, BlockEdge)>>>(octree);
}

} // namespace

const LaunchBackend CudaLaunches{&Solid, &Transparent, &Blend, &NodeStates, &NodeStatesAdjacent};

bool CudaKernelsBuilt() { return true; }

} // namespace TezOctreeDevice
