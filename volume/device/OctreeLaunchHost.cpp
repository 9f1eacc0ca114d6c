// Host loops over the kernels: TBB over 16 x 16 pixel tiles, over node
// ranges for the node states.

#include "core/Progress.h"
#include "volume/device/OctreeHostMarch.h"
#include "volume/device/OctreeLaunch.h"
#include "volume/device/OctreeRender.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <type_traits>

namespace TezOctreeDevice {
namespace {

constexpr int TileEdge = 16;

// Each tile is one step of the host's progress; once the host asks to stop,
// the tiles left are skipped and the caller, seeing the stop flag, drops
// the picture. Pixels outside `only` are left alone.
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

// The solid pixels of a tile, two rays marching in turn (MarchLane): two
// chains of dependent steps keep this machine's cores busier than one;
// three gain nothing more.
template <class V, class Range>
void SolidTile(const SolidLaunch& a, const RayFrame& frame, const Range& range, const MarchShared& shared, int x0,
               int y0, int x1, int y1)
{
    constexpr int Lanes = 2;
    MarchLane<V> lanes[Lanes];
    int px[Lanes] = {}, py[Lanes] = {};
    bool busy[Lanes] = {};
    int x = x0, y = y0;
    // Starts lane k on the next pixel whose ray meets the cube.
    const auto next = [&](int k) {
        while (y < y1) {
            const int cx = x, cy = y;
            if (++x == x1)
                x = x0, ++y;
            Ray ray;
            if (!SetUpRay(a.camera, frame, a.transform, cx, cy, range, ray))
                continue;
            lanes[k].Start(shared, ray, ray.tEntry);
            px[k] = cx, py[k] = cy;
            return true;
        }
        return false;
    };
    int running = 0;
    for (int k = 0; k < Lanes; ++k)
        running += busy[k] = next(k);
    while (running > 0)
        for (int k = 0; k < Lanes; ++k) {
            if (!busy[k])
                continue;
            lanes[k].Step(shared);
            if (lanes[k].done) {
                WriteSolidPixel(a, frame, px[k], py[k], lanes[k].r);
                busy[k] = next(k);
                running -= !busy[k];
            }
        }
}

void Solid(const SolidLaunch& launch, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    SolidLaunch a = launch;
    LevelSteps steps;
    steps.Fill(a.octree);
    a.octree.levelSteps = &steps;
    WithVoxelAndRange(sixteenBit, xsection, [&](auto voxel, const auto& range) {
        using V = decltype(voxel);
        const RayFrame frame = MakeRayFrame(a.camera);
        const MarchShared shared = MakeMarchShared(a.octree, a.lookup.table, false, nullptr);
        ForEachTile(a.camera.width, a.camera.height, CubeOnScreen(a.camera, a.transform),
                    [&](int x0, int y0, int x1, int y1) { SolidTile<V>(a, frame, range, shared, x0, y0, x1, y1); });
    });
}

// The layers of the pixels of a tile, two pixels' marches in turn.
template <class V, class Range>
void TransparentTile(const TransparentLaunch& a, const RayFrame& frame, const Range& range,
                     const MarchShared (&shared)[2], int x0, int y0, int x1, int y1)
{
    constexpr int Lanes = 2;
    MarchLane<V> lanes[Lanes];
    LayerWalk walks[Lanes];
    int px[Lanes] = {}, py[Lanes] = {};
    bool busy[Lanes] = {};
    int x = x0, y = y0;
    const auto march = [&](int k) {
        const LayerWalk& w = walks[k];
        lanes[k].Start(shared[w.inside], lanes[k].ray, MaxF(lanes[k].ray.tEntry, w.start));
    };
    // Starts lane k on the next pixel whose ray meets the cube.
    const auto next = [&](int k) {
        while (y < y1) {
            const int cx = x, cy = y;
            if (++x == x1)
                x = x0, ++y;
            if (!SetUpRay(a.camera, frame, a.transform, cx, cy, range, lanes[k].ray))
                continue;
            walks[k] = StartLayers(a);
            if (walks[k].layer >= a.layerCount)
                continue;
            march(k);
            px[k] = cx, py[k] = cy;
            return true;
        }
        return false;
    };
    int running = 0;
    for (int k = 0; k < Lanes; ++k)
        running += busy[k] = next(k);
    while (running > 0)
        for (int k = 0; k < Lanes; ++k) {
            if (!busy[k])
                continue;
            lanes[k].Step(shared[walks[k].inside]);
            if (!lanes[k].done)
                continue;
            if (StoreLayer(a, px[k], py[k], lanes[k].r, walks[k])) {
                march(k);
            } else {
                busy[k] = next(k);
                running -= !busy[k];
            }
        }
}

void Transparent(const TransparentLaunch& launch, bool sixteenBit, const XSectionRangeFunction* xsection)
{
    TransparentLaunch a = launch;
    LevelSteps steps;
    steps.Fill(a.octree);
    a.octree.levelSteps = &steps;
    WithVoxelAndRange(sixteenBit, xsection, [&](auto voxel, const auto& range) {
        using V = decltype(voxel);
        const RayFrame frame = MakeRayFrame(a.camera);
        const MarchShared shared[2] = {MakeMarchShared(a.octree, a.lookup.table, false, nullptr),
                                       MakeMarchShared(a.octree, a.lookup.table, true, nullptr)};
        ForEachTile(
            a.camera.width, a.camera.height, CubeOnScreen(a.camera, a.transform),
            [&](int x0, int y0, int x1, int y1) { TransparentTile<V>(a, frame, range, shared, x0, y0, x1, y1); });
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

namespace {

// Inverse of a 3 x 3 matrix (rows m[0..2]); false when it is singular.
bool Invert3(const double m[3][3], double out[3][3])
{
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    if (!(std::fabs(det) > 1e-300) || !std::isfinite(det))
        return false;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int i1 = (j + 1) % 3, i2 = (j + 2) % 3, j1 = (i + 1) % 3, j2 = (i + 2) % 3;
            out[i][j] = (m[i1][j1] * m[i2][j2] - m[i1][j2] * m[i2][j1]) / det;
        }
    return true;
}

} // namespace

PixelRect CubeOnScreen(const Camera& cam, const float* T)
{
    const PixelRect all{0, 0, cam.width, cam.height};
    if (cam.width <= 0 || cam.height <= 0)
        return all;
    // Cube to world: the inverse of T's linear part (row vectors: p' = p L + t).
    double L[3][3], Linv[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            L[i][j] = T[4 * i + j];
    // Camera: a direction w in view terms is R w in world terms, R's rows the axes.
    const float3s axes[3] = {cam.axisX, cam.axisY, cam.axisZ};
    double R[3][3], Rinv[3][3];
    for (int i = 0; i < 3; ++i)
        R[i][0] = axes[i].x, R[i][1] = axes[i].y, R[i][2] = axes[i].z;
    if (!Invert3(L, Linv) || !Invert3(R, Rinv))
        return all;
    const double aspect = double(cam.width) / double(cam.height);
    const double h = std::tan(double(cam.fov) / 2.0);
    if (!(h > 0.0) || !std::isfinite(h))
        return all;
    const double eye[3] = {cam.eye.x, cam.eye.y, cam.eye.z};
    double s = 0.0, g[3] = {0, 0, 1};
    if (!cam.perspective) {
        const double D[3] = {cam.focus.x - eye[0], cam.focus.y - eye[1], cam.focus.z - eye[2]};
        const double dist = std::sqrt(D[0] * D[0] + D[1] * D[1] + D[2] * D[2]);
        s = h * dist;
        for (int i = 0; i < 3; ++i)
            g[i] = (Rinv[i][0] * D[0] + Rinv[i][1] * D[1] + Rinv[i][2] * D[2]) / dist;
        if (!(std::fabs(g[2]) > 1e-6) || !(s > 0.0))
            return all;
    }
    double minX = INFINITY, maxX = -INFINITY, minY = INFINITY, maxY = -INFINITY;
    for (int corner = 0; corner < 8; ++corner) {
        // The corner in world terms: (c - t) L^-1.
        const double c[3] = {double(corner & 1) - T[12], double((corner >> 1) & 1) - T[13],
                             double((corner >> 2) & 1) - T[14]};
        double p[3], w[3];
        for (int j = 0; j < 3; ++j)
            p[j] = c[0] * Linv[0][j] + c[1] * Linv[1][j] + c[2] * Linv[2][j] - eye[j];
        for (int i = 0; i < 3; ++i)
            w[i] = Rinv[i][0] * p[0] + Rinv[i][1] * p[1] + Rinv[i][2] * p[2];
        double u, v;
        if (cam.perspective) {
            const double length = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
            if (!(w[2] > 1e-6 * length))
                return all; // a corner beside or behind the eye
            u = w[0] / w[2] / h, v = w[1] / w[2] / h;
        } else {
            const double t = w[2] / g[2];
            u = (w[0] - g[0] * t) / s, v = (w[1] - g[1] * t) / s;
        }
        const double x = (1.0 - u / aspect) * cam.width / 2.0 - 0.5, y = (v + 1.0) * cam.height / 2.0 - 0.5;
        if (!std::isfinite(x) || !std::isfinite(y))
            return all;
        minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
    }
    const auto clampTo = [](double v, int high) {
        return v < 0.0 ? 0 : (v > double(high) ? high : static_cast<int>(v));
    };
    PixelRect r{clampTo(std::floor(minX) - 2.0, cam.width), clampTo(std::floor(minY) - 2.0, cam.height),
                clampTo(std::ceil(maxX) + 3.0, cam.width), clampTo(std::ceil(maxY) + 3.0, cam.height)};
    if (r.x1 < r.x0)
        r.x1 = r.x0;
    if (r.y1 < r.y0)
        r.y1 = r.y0;
    return r;
}

const LaunchBackend HostLaunches{&Solid, &Transparent, &Blend, &NodeStates, &NodeStatesAdjacent};

} // namespace TezOctreeDevice

uint32_t TezOctreeDepthWord(const TezOctreeDevice::Camera& camera, int x, int y, float distance)
{
    return TezOctreeDevice::DepthWord(camera, x, y, distance);
}
