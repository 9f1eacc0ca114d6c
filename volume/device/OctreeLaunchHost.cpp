// Host loops over the kernels: TBB over 16 x 16 pixel tiles, over node
// ranges for the node states.

#include "core/Progress.h"
#include "volume/device/OctreeHostMarch.h"
#include "volume/device/OctreeLaunch.h"
#include "volume/device/OctreeRender.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <stdexcept>
#include <type_traits>

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
        const RayFrame frame = MakeRayFrame(a.camera);
        ForEachPixel(a.camera.width, a.camera.height, [&](int x, int y) {
            RenderSolidPixel<V, std::decay_t<decltype(range)>, PathMarch>(a, frame, range, x, y);
        });
    });
}

void Transparent(const TransparentLaunch& a, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    WithVoxelAndRange(sixteenBit, xsection, [&](auto voxel, const auto& range) {
        using V = decltype(voxel);
        const RayFrame frame = MakeRayFrame(a.camera);
        ForEachPixel(a.camera.width, a.camera.height, [&](int x, int y) {
            RenderTransparentPixel<V, std::decay_t<decltype(range)>, PathMarch>(a, frame, range, x, y);
        });
    });
}

void Blend(const BlendLaunch& a)
{
    const RayFrame frame = MakeRayFrame(a.camera);
    ForEachPixel(a.camera.width, a.camera.height, [&](int x, int y) { BlendPixel(a, frame, x, y); });
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

// Which voxel values end a march that starts outside (opaque) and one that
// starts inside (clear), bit 0 and bit 1 per value: TableEntry's own verdict.
std::vector<uint8_t> ValueClasses(const Octree& octree, const float* table, bool sixteenBit)
{
    std::vector<uint8_t> classes(sixteenBit ? 65536 : 256);
    for (size_t v = 0; v < classes.size(); ++v)
        classes[v] = IsOpaque(table, octree.valueScale, static_cast<float>(v)) ? 1 : 2;
    return classes;
}

template <class V>
void BrickMasks(const V* brick, const uint8_t* classes, uint64_t* out)
{
    uint64_t opaque = 0, clear = 0;
    for (int z = 0; z < TezBrickEdge; ++z)
        for (int y = 0; y < TezBrickEdge; ++y) {
            const V* row = brick + BrickIndex(0, y, z);
            const int blockRow = 4 * (y >> 2) + 16 * (z >> 2);
            for (int bx = 0; bx < 4; ++bx) {
                const uint8_t c = classes[row[4 * bx]] | classes[row[4 * bx + 1]] | classes[row[4 * bx + 2]] |
                                  classes[row[4 * bx + 3]];
                opaque |= uint64_t(c & 1) << (blockRow + bx);
                clear |= uint64_t(c >> 1) << (blockRow + bx);
            }
        }
    out[0] = opaque, out[1] = clear;
}

} // namespace

void HostBlockMasks(const Octree& octree, int nodeCount, const float* table, bool sixteenBit,
                    std::vector<uint64_t>& masks)
{
    int64_t highest = -1;
    for (int i = 0; i < nodeCount; ++i) {
        const Node& node = octree.nodes[i];
        if ((node.children & TezNodeFlagBit) && (node.data & TezNodeFlagBit))
            highest = std::max<int64_t>(highest, node.data & TezNodeLowMask);
    }
    if (highest >= 0 && !octree.leaves)
        throw std::runtime_error("TezCalculateOctreeBlockMasks: nodes refer to bricks but the leaf pool is missing");
    masks.assign(static_cast<size_t>(2 * (highest + 1)), 0);
    const std::vector<uint8_t> classes = ValueClasses(octree, table, sixteenBit);
    tbb::parallel_for(tbb::blocked_range<int>(0, nodeCount, 256), [&](const tbb::blocked_range<int>& r) {
        for (int i = r.begin(); i != r.end(); ++i) {
            const Node& node = octree.nodes[i];
            if (!(node.children & TezNodeFlagBit) || !(node.data & TezNodeFlagBit))
                continue;
            const size_t b = node.data & TezNodeLowMask;
            uint64_t* out = &masks[2 * b];
            // A childless brick's state is its voxels' verdict; a brick above
            // children holds averages and is looked at voxel by voxel.
            const bool childless = (node.children & TezNodeLowMask) == 0;
            if (childless && node.state == TezNodeStateFull) {
                out[0] = ~uint64_t(0), out[1] = 0;
            } else if (childless && node.state == TezNodeStateEmpty) {
                out[0] = 0, out[1] = ~uint64_t(0);
            } else if (sixteenBit) {
                BrickMasks(static_cast<const uint16_t*>(octree.leaves) + b * TezBrickVoxels, classes.data(), out);
            } else {
                BrickMasks(static_cast<const uint8_t*>(octree.leaves) + b * TezBrickVoxels, classes.data(), out);
            }
        }
    });
}

const LaunchBackend HostLaunches{&Solid, &Transparent, &Blend, &NodeStates, &NodeStatesAdjacent};

} // namespace TezOctreeDevice

uint32_t TezOctreeDepthWord(const TezOctreeDevice::Camera& camera, int x, int y, float distance)
{
    return TezOctreeDevice::DepthWord(camera, x, y, distance);
}
