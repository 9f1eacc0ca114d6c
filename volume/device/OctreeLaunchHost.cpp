// Host loops over the kernels: TBB over 16 x 16 pixel tiles, over node
// ranges for the node states.

#include "core/Progress.h"
#include "volume/device/OctreeHostMarch.h"
#include "volume/device/OctreeHostRays.h"
#include "volume/device/OctreeLaunch.h"
#include "volume/device/OctreeRender.h"
#include "volume/device/OctreeScreen.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <type_traits>

namespace TezOctreeDevice {
namespace {

constexpr int TileEdge = StartBoxes::TileEdge;

// Each tile is one step of the host's progress; once the host asks to stop,
// the tiles left are skipped and the caller, seeing the stop flag, drops
// the picture. fn(x0, y0, x1, y1) takes the pixels of a tile inside `only`.
template <class Fn>
void ForEachTile(int width, int height, const PixelRect& only, const Fn& fn)
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
            const int tx = (tile % tilesX) * TileEdge, ty = (tile / tilesX) * TileEdge;
            const int x0 = std::max(tx, only.x0), y0 = std::max(ty, only.y0);
            const int x1 = std::min({tx + TileEdge, width, only.x1}), y1 = std::min({ty + TileEdge, height, only.y1});
            if (x0 < x1 && y0 < y1)
                fn(x0, y0, x1, y1);
            progress.Step();
        }
    });
}

template <class Fn>
void ForEachPixel(int width, int height, const PixelRect& only, const Fn& fn)
{
    ForEachTile(width, height, only, [&](int x0, int y0, int x1, int y1) {
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                fn(x, y);
    });
}

template <class Fn>
void ForEachPixel(int width, int height, const Fn& fn)
{
    ForEachPixel(width, height, PixelRect{0, 0, width, height}, fn);
}

// Runs the pixels of a tile through a few marches in turn: two chains of
// dependent steps keep this machine's cores busier than one; three gain
// nothing more. begin(k, x, y) starts lane k on pixel (x, y), false where
// there is nothing to march; step(k) takes one step of lane k, false once
// its pixel is finished.
constexpr int Lanes = 2;

template <class Begin, class Step>
void InTurn(int x0, int y0, int x1, int y1, const Begin& begin, const Step& step)
{
    bool busy[Lanes] = {};
    int x = x0, y = y0;
    const auto next = [&](int k) {
        while (y < y1) {
            const int cx = x, cy = y;
            if (++x == x1)
                x = x0, ++y;
            if (begin(k, cx, cy))
                return true;
        }
        return false;
    };
    int running = 0;
    for (int k = 0; k < Lanes; ++k)
        running += busy[k] = next(k);
    while (running > 0)
        for (int k = 0; k < Lanes; ++k) {
            if (!busy[k] || step(k))
                continue;
            busy[k] = next(k);
            running -= !busy[k];
        }
}

// The rays of a tile's pixels, set up four of a row at a time as the
// pixels are asked for in order.
template <class Range>
struct RowRays
{
    const Camera& camera;
    const RayFrame& frame;
    const float* transform;
    const Range& range;
    int x = 0, y = -1, valid = 0;
    Ray rays[4];

    RowRays(const Camera& c, const RayFrame& f, const float* t, const Range& r)
        : camera(c), frame(f), transform(t), range(r)
    {
    }

    // Pixel (px, py)'s ray, null where it misses the cube.
    const Ray* At(int px, int py)
    {
        if (py != y || px < x || px >= x + 4) {
            x = px, y = py;
            valid = SetUpRays4(camera, frame, transform, px, py, range, rays);
        }
        return (valid >> (px - x)) & 1 ? &rays[px - x] : nullptr;
    }
};

// The starts of a tile's pixels from the start boxes (StartBoxes::None
// where a ray meets none); 0, the ray's own start, where there are none.
struct TileStarts
{
    int tx, ty;
    float at[TileEdge * TileEdge];

    TileStarts(const StartBoxes* boxes, int x0, int y0) : tx(x0 - x0 % TileEdge), ty(y0 - y0 % TileEdge)
    {
        if (boxes)
            boxes->TileStarts(tx, ty, at);
        else
            std::fill(at, at + TileEdge * TileEdge, 0.0f);
    }
    float operator()(int x, int y) const { return at[(y - ty) * TileEdge + (x - tx)]; }
};

// The solid pixels of a tile.
template <class V, class Range>
void SolidTile(const SolidLaunch& a, const RayFrame& frame, const Range& range, const MarchShared& shared,
               const StartBoxes* boxes, int x0, int y0, int x1, int y1)
{
    MarchLane<V> lanes[Lanes];
    int px[Lanes] = {}, py[Lanes] = {};
    // Where each ray may first meet something; its march starts there.
    const TileStarts starts(boxes, x0, y0);
    RowRays<Range> rays(a.camera, frame, a.transform, range);
    InTurn(
        x0, y0, x1, y1,
        [&](int k, int x, int y) {
            const float first = starts(x, y);
            const Ray* ray = first == StartBoxes::None ? nullptr : rays.At(x, y);
            if (!ray)
                return false;
            const float start = MaxF(ray->tEntry, first);
            if (!(start < ray->tExit))
                return false; // meets nothing: a miss
            lanes[k].Start(shared, *ray, start);
            px[k] = x, py[k] = y;
            return true;
        },
        [&](int k) {
            lanes[k].Step(shared);
            if (!lanes[k].done)
                return true;
            WriteSolidPixel(a, frame, px[k], py[k], lanes[k].r);
            return false;
        });
}

// What a march launch does around its tiles: the level table once, one
// voxel type and range, the ray frame, the marches' shared record
// (makeShared(octree)) and the start boxes; then tile(voxel, range, frame,
// shared, boxes, x0, y0, x1, y1) for each tile of the cube's box on screen.
template <class Launch, class MakeShared, class Tile>
void MarchTiles(Launch a, bool sixteenBit, const XSectionRangeFunction* xsection, const MakeShared& makeShared,
                const Tile& tile)
{
    LevelSteps steps;
    steps.Fill(a.octree);
    a.octree.levelSteps = &steps;
    const RayFrame frame = MakeRayFrame(a.camera);
    const auto shared = makeShared(a.octree);
    StartBoxes boxes;
    const StartBoxes* starts = boxes.Make(a.camera, a.transform, a.octree, a.lookup.table, false) ? &boxes : nullptr;
    WithVoxelAndRange(sixteenBit, xsection, [&](auto voxel, const auto& range) {
        ForEachTile(a.camera.width, a.camera.height, CubeOnScreen(a.camera, a.transform),
                    [&](int x0, int y0, int x1, int y1) { tile(voxel, range, frame, shared, starts, x0, y0, x1, y1); });
    });
}

void Solid(const SolidLaunch& launch, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    MarchTiles(
        launch, sixteenBit, xsection,
        [&](const Octree& octree) { return MakeMarchShared(octree, launch.lookup.table, false, nullptr); },
        [&](auto voxel, const auto& range, const RayFrame& frame, const MarchShared& shared, const StartBoxes* boxes,
            int x0, int y0, int x1,
            int y1) { SolidTile<decltype(voxel)>(launch, frame, range, shared, boxes, x0, y0, x1, y1); });
}

// The layers of the pixels of a tile.
template <class V, class Range>
void TransparentTile(const TransparentLaunch& a, const RayFrame& frame, const Range& range,
                     const std::array<MarchShared, 2>& shared, const StartBoxes* boxes, int x0, int y0, int x1, int y1)
{
    MarchLane<V> lanes[Lanes];
    LayerWalk walks[Lanes];
    int px[Lanes] = {}, py[Lanes] = {};
    // A march from outside starts no earlier than where its ray may first
    // meet something; one from inside has no such place.
    const TileStarts starts(boxes, x0, y0);
    RowRays<Range> rays(a.camera, frame, a.transform, range);
    const auto march = [&](int k) {
        const LayerWalk& w = walks[k];
        float start = MaxF(lanes[k].ray.tEntry, w.start);
        if (!w.inside)
            start = MaxF(start, starts(px[k], py[k]));
        lanes[k].Start(shared[w.inside], lanes[k].ray, start);
    };
    InTurn(
        x0, y0, x1, y1,
        [&](int k, int x, int y) {
            const Ray* ray = rays.At(x, y);
            if (!ray)
                return false;
            lanes[k].ray = *ray;
            walks[k] = StartLayers(a);
            if (walks[k].layer >= a.layerCount)
                return false;
            px[k] = x, py[k] = y;
            march(k);
            return true;
        },
        [&](int k) {
            lanes[k].Step(shared[walks[k].inside]);
            if (!lanes[k].done)
                return true;
            if (!StoreLayer(a, px[k], py[k], lanes[k].r, walks[k]))
                return false;
            march(k);
            return true;
        });
}

void Transparent(const TransparentLaunch& launch, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    MarchTiles(
        launch, sixteenBit, xsection,
        [&](const Octree& octree) {
            return std::array<MarchShared, 2>{MakeMarchShared(octree, launch.lookup.table, false, nullptr),
                                              MakeMarchShared(octree, launch.lookup.table, true, nullptr)};
        },
        [&](auto voxel, const auto& range, const RayFrame& frame, const std::array<MarchShared, 2>& shared,
            const StartBoxes* boxes, int x0, int y0, int x1,
            int y1) { TransparentTile<decltype(voxel)>(launch, frame, range, shared, boxes, x0, y0, x1, y1); });
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
