// The octree kernels as CUDA kernels, from the same source as the host loops,
// and the few runtime calls the host side needs.

#include "volume/device/OctreeKernels.inl"
#include "volume/device/OctreeLaunch.h"

#include <cuda_runtime.h>

namespace TezOctreeDevice {
namespace {

constexpr int BlockEdge = 16;

dim3 PixelGrid(int width, int height)
{
    return dim3(static_cast<unsigned>(width >> 4) + 1, static_cast<unsigned>(height >> 4) + 1, 1);
}

thread_local int g_lastStatus = 0;

bool Check(cudaError_t status, const char** error)
{
    if (status == cudaSuccess)
        return true;
    g_lastStatus = static_cast<int>(status);
    if (error)
        *error = cudaGetErrorString(status);
    return false;
}

bool CheckLaunch(const char** error) { return Check(cudaGetLastError(), error); }

} // namespace

int LastCudaStatus() { return g_lastStatus; }

template <class V, class Range>
__global__ void RenderSolid(Camera camera, Octree octree, const float* transform, float3s colour,
                            uint32_t imagePitch, uchar4s* image, uint32_t depthPitch, uint32_t* depth,
                            LookupTransferFunction lookup, Range range)
{
    const int x = blockIdx.x * blockDim.x + threadIdx.x;
    const int y = blockIdx.y * blockDim.y + threadIdx.y;
    RenderSolidPixel<V>(camera, octree, transform, colour, imagePitch, image, depthPitch, depth, lookup, range, x, y);
}

template <class V, class Range>
__global__ void RenderTransparent(Camera camera, Octree octree, const float* transform, float4s colour,
                                  int32_t layerCount, uchar4s* colourLayers, uint32_t colourPitch, float* rayLayers,
                                  uint32_t rayPitch, LookupTransparentTransferFunction lookup, Range range)
{
    const int x = blockIdx.x * blockDim.x + threadIdx.x;
    const int y = blockIdx.y * blockDim.y + threadIdx.y;
    RenderTransparentPixel<V>(camera, octree, transform, colour, layerCount, colourLayers, colourPitch, rayLayers,
                              rayPitch, lookup, range, x, y);
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

__global__ void blendAccumlatedBuffers(Camera camera, int32_t layerCount, uchar4s* colourLayers, uint32_t colourPitch,
                                       float* rayLayers, uint32_t rayPitch, uint32_t* depth, uint32_t depthPitch,
                                       uchar4s* image, uint32_t imagePitch)
{
    const int x = blockIdx.x * blockDim.x + threadIdx.x;
    const int y = blockIdx.y * blockDim.y + threadIdx.y;
    BlendPixel(camera, layerCount, colourLayers, colourPitch, rayLayers, rayPitch, depth, depthPitch, image, imagePitch,
               x, y);
}

namespace {

template <class V, class Range>
bool LaunchSolid(const SolidLaunch& a, const Range& range, const char** error)
{
    RenderSolid<V, Range><<<PixelGrid(a.camera.width, a.camera.height), dim3(BlockEdge, BlockEdge)>>>(
        a.camera, a.octree, a.transform, a.colour, a.imagePitch, a.image, a.depthPitch, a.depth, a.lookup, range);
    return CheckLaunch(error);
}

template <class V, class Range>
bool LaunchTransparent(const TransparentLaunch& a, const Range& range, const char** error)
{
    RenderTransparent<V, Range><<<PixelGrid(a.camera.width, a.camera.height), dim3(BlockEdge, BlockEdge)>>>(
        a.camera, a.octree, a.transform, a.colour, a.layerCount, a.colourLayers, a.colourPitch, a.rayLayers, a.rayPitch,
        a.lookup, range);
    return CheckLaunch(error);
}

} // namespace

bool CudaDeviceAvailable()
{
    int count = 0;
    return cudaGetDeviceCount(&count) == cudaSuccess && count > 0;
}

bool RunSolidCuda(const SolidLaunch& args, bool sixteenBit, const XSectionRangeFunction* xsection, const char** error)
{
    if (xsection)
        return sixteenBit ? LaunchSolid<uint16_t>(args, *xsection, error)
                          : LaunchSolid<uint8_t>(args, *xsection, error);
    return sixteenBit ? LaunchSolid<uint16_t>(args, DefaultRangeFunction{}, error)
                      : LaunchSolid<uint8_t>(args, DefaultRangeFunction{}, error);
}

bool RunTransparentCuda(const TransparentLaunch& args, bool sixteenBit, const XSectionRangeFunction* xsection,
                        const char** error)
{
    if (xsection)
        return sixteenBit ? LaunchTransparent<uint16_t>(args, *xsection, error)
                          : LaunchTransparent<uint8_t>(args, *xsection, error);
    return sixteenBit ? LaunchTransparent<uint16_t>(args, DefaultRangeFunction{}, error)
                      : LaunchTransparent<uint8_t>(args, DefaultRangeFunction{}, error);
}

bool RunBlendCuda(const BlendLaunch& a, const char** error)
{
    blendAccumlatedBuffers<<<PixelGrid(a.camera.width, a.camera.height), dim3(BlockEdge, BlockEdge)>>>(
        a.camera, a.layerCount, a.colourLayers, a.colourPitch, a.rayLayers, a.rayPitch, a.depth, a.depthPitch, a.image,
        a.imagePitch);
    return CheckLaunch(error) && Check(cudaDeviceSynchronize(), error);
}

bool RunNodeStatesCuda(const Octree& octree, int nodeCount, const float* table, bool sixteenBit, const char** error)
{
    const Grid3 g = NodeStateGrid(nodeCount);
    if (g.x == 0)
        return true;
    const dim3 grid(g.x, g.y, g.z);
    if (sixteenBit)
        CalculateNodeStates<uint16_t><<<grid, 256>>>(octree, nodeCount, table);
    else
        CalculateNodeStates<uint8_t><<<grid, 256>>>(octree, nodeCount, table);
    return CheckLaunch(error);
}

bool RunNodeStatesAdjacentCuda(const Octree& octree, const char** error)
{
    CalculateNodeStatesAdjacent<<<PixelGrid(octree.treeSize, octree.treeSize), dim3(BlockEdge, BlockEdge)>>>(octree);
    return CheckLaunch(error);
}

bool CudaMallocPitch(void** pointer, size_t* pitch, size_t widthBytes, size_t height, const char** error)
{
    return Check(cudaMallocPitch(pointer, pitch, widthBytes, height), error);
}

bool CudaFree(void* pointer, const char** error) { return Check(cudaFree(pointer), error); }

bool CudaMemset2D(void* pointer, size_t pitch, int value, size_t widthBytes, size_t height, const char** error)
{
    return Check(cudaMemset2D(pointer, pitch, value, widthBytes, height), error);
}

bool CudaCopy(void* destination, const void* source, size_t bytes, bool toDevice, const char** error)
{
    return Check(cudaMemcpy(destination, source, bytes, toDevice ? cudaMemcpyHostToDevice : cudaMemcpyDeviceToHost),
                 error);
}

bool CudaCopy2DToHost(void* destination, size_t destinationPitch, const void* source, size_t sourcePitch,
                      size_t widthBytes, size_t height, const char** error)
{
    return Check(
        cudaMemcpy2D(destination, destinationPitch, source, sourcePitch, widthBytes, height, cudaMemcpyDeviceToHost),
        error);
}

} // namespace TezOctreeDevice
