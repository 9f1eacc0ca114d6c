// Host loops over the kernels: TBB over 16 x 16 pixel tiles, over node
// ranges for the node states.

#include "core/Progress.h"
#include "volume/device/OctreeKernels.inl"
#include "volume/device/OctreeLaunch.h"
#include "volume/device/OctreeRender.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

namespace TezOctreeDevice {
namespace {

constexpr int TileEdge = 16;

// Each tile is one step of the host's progress; once the host asks to stop,
// the tiles left are skipped and the caller, seeing the stop flag, drops
// the picture.
template <class Fn>
void ForEachPixel(int width, int height, const Fn& fn)
{
    if (width <= 0 || height <= 0)
        return;
    const int tilesX = (width + TileEdge - 1) / TileEdge;
    const int tilesY = (height + TileEdge - 1) / TileEdge;
    TezProgress progress(nullptr, uint64_t(tilesX) * uint64_t(tilesY));
    tbb::parallel_for(tbb::blocked_range<int>(0, tilesX * tilesY), [&](const tbb::blocked_range<int>& r) {
        for (int tile = r.begin(); tile != r.end(); ++tile) {
            if (progress.StopRequested())
                return;
            const int x0 = (tile % tilesX) * TileEdge, y0 = (tile / tilesX) * TileEdge;
            const int x1 = x0 + TileEdge < width ? x0 + TileEdge : width;
            const int y1 = y0 + TileEdge < height ? y0 + TileEdge : height;
            for (int y = y0; y < y1; ++y)
                for (int x = x0; x < x1; ++x)
                    fn(x, y);
            progress.Step();
        }
    });
}

void Solid(const SolidLaunch& a, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    WithVoxelAndRange(sixteenBit, xsection, [&](auto voxel, const auto& range) {
        using V = decltype(voxel);
        ForEachPixel(a.camera.width, a.camera.height, [&](int x, int y) { RenderSolidPixel<V>(a, range, x, y); });
    });
}

void Transparent(const TransparentLaunch& a, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    WithVoxelAndRange(sixteenBit, xsection, [&](auto voxel, const auto& range) {
        using V = decltype(voxel);
        ForEachPixel(a.camera.width, a.camera.height, [&](int x, int y) { RenderTransparentPixel<V>(a, range, x, y); });
    });
}

void Blend(const BlendLaunch& a)
{
    ForEachPixel(a.camera.width, a.camera.height, [&](int x, int y) { BlendPixel(a, x, y); });
}

template <class V>
void NodeStatesOf(const Octree& octree, int nodeCount, const float* table)
{
    tbb::parallel_for(tbb::blocked_range<int>(0, nodeCount, 256), [&](const tbb::blocked_range<int>& r) {
        for (int i = r.begin(); i != r.end(); ++i)
            NodeState<V>(octree, nodeCount, table, i);
    });
}

void NodeStates(const Octree& octree, int nodeCount, const float* table, bool sixteenBit)
{
    sixteenBit ? NodeStatesOf<uint16_t>(octree, nodeCount, table) : NodeStatesOf<uint8_t>(octree, nodeCount, table);
}

void NodeStatesAdjacent(const Octree& octree)
{
    const int size = octree.treeSize;
    tbb::parallel_for(tbb::blocked_range<int>(0, size > 0 ? size * size : 0), [&](const tbb::blocked_range<int>& r) {
        for (int i = r.begin(); i != r.end(); ++i)
            NodeStateAdjacentColumn(octree, i % size, i / size);
    });
}

} // namespace

const LaunchBackend HostLaunches{&Solid, &Transparent, &Blend, &NodeStates, &NodeStatesAdjacent};

} // namespace TezOctreeDevice

uint32_t TezOctreeDepthWord(const TezOctreeDevice::Camera& camera, int x, int y, float distance)
{
    return TezOctreeDevice::DepthWord(camera, x, y, distance);
}
