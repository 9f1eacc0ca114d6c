#pragma once
// The march of the host loops. It takes the same steps as March in
// OctreeKernels.inl and finds the same hits, with two shortcuts a CPU
// rewards and a GPU thread (no stack, little local memory) would not:
//
// - Re-entry. The node a descent from the root reaches at level L depends
//   only on floor(q * 2^L) per axis (q = twice the ray's point), since each
//   level's doubling and subtraction of the cell index is exact in float. So
//   the path of the last descent is kept, and the next one starts at the
//   first level where the new point's cell differs, or at the level limit
//   where that is shallower. Node, cell position, edge and coordinates come
//   out bit for bit as a descent from the root gives them.
// - Empty subtrees. With valid node states, a node with children whose state
//   says nothing below it can change the ray's classification is stepped
//   over as a whole, when the level limit at its far side still lies below
//   it (so that a descent from the root anywhere in its cell would pass it
//   too) and below the levels above the build blocks (whose values are
//   averages, not samples of the source). The ray leaves it through the
//   same face as through the last of its children; t may differ from the
//   child-by-child walk in its last bits.
//
// Host only: the path lives in the caller's stack frame.

#include "volume/device/OctreeKernels.inl"

#include <cstring>

namespace TezOctreeDevice {

// Levels the path can hold; q * 2^PathLevels stays exact below 2^31.
inline constexpr int PathLevels = 24;

struct MarchPath
{
    int depth = -1;             // the last descent stopped at this level; -1: none yet
    int cx = 0, cy = 0, cz = 0; // cell of its point at level PathLevels
    int index[PathLevels + 1];
};

// LevelLimit as a table: it depends on t alone, never rises as t grows, and
// a ray's t only grows, so a march looks up where it falls instead of taking
// a root and a division at every step. at[k] is the first t whose limit is
// k or less (k from 2, the smallest limit); beyond PathLevels any limit is
// as good as none.
struct LevelSteps
{
    int32_t maxDepth = -1;
    float voxelSize = 0.0f;
    float at[PathLevels + 2];

    void Fill(const Octree& oct)
    {
        maxDepth = oct.maxDepth;
        voxelSize = oct.voxelSize;
        for (int k = 2; k <= PathLevels + 1; ++k) {
            // The bit patterns of floats from 0 to infinity are in order.
            uint32_t low = 0, high = 0x7F800000u;
            while (low < high) {
                const uint32_t mid = low + (high - low) / 2;
                float t;
                std::memcpy(&t, &mid, sizeof t);
                if (LevelLimit(oct, t) <= k)
                    high = mid;
                else
                    low = mid + 1;
            }
            std::memcpy(&at[k], &low, sizeof low);
        }
    }
    // The limit at t, given that it is at most `from` (a limit at a smaller t).
    int LimitAt(float t, int from) const
    {
        int lod = from;
        while (lod > 2 && t >= at[lod - 1])
            --lod;
        return lod;
    }
};

inline const LevelSteps& LevelStepsOf(const Octree& oct)
{
    thread_local LevelSteps steps;
    if (steps.maxDepth != oct.maxDepth || std::memcmp(&steps.voxelSize, &oct.voxelSize, sizeof(float)) != 0)
        steps.Fill(oct);
    return steps;
}

// The level of the build's blocks: the levels above hold the pyramid.
inline int BlockLevel(const Octree& oct)
{
    int blocks = oct.treeSize / 256; // blocks in a row of the tree
    int level = -1;
    for (; blocks > 1; blocks >>= 1)
        ++level;
    return level < 0 ? 0 : level;
}

// Descend of OctreeKernels.inl, entered at the deepest level the last
// descent shares with this one. skip: the node is an empty subtree to step
// over (see above); skipState is the state that allows it, or -1.
TEZ_KERNEL_STEP Descent DescendFromPath(const Octree& oct, const Ray& ray, float t, int lod, MarchPath& path,
                                        int skipState, int blockLevel, const LevelSteps& steps, bool& skip)
{
    Descent d{};
    skip = false;
    const float3s q = Scale(Add(ray.origin, Scale(ray.dir, t)), 2.0f);
    {
        const int ix = ToInt(q.x), iy = ToInt(q.y), iz = ToInt(q.z);
        if (OutsideUnit(ix, 1) || OutsideUnit(iy, 1) || OutsideUnit(iz, 1)) {
            d.left = true;
            return d;
        }
    }
    // A point a little below 0 descends along the cells at 0 until it would
    // leave; that is checked at the level where the descent stops.
    const float finest = static_cast<float>(1 << PathLevels);
    int cx = ToInt(q.x * finest), cy = ToInt(q.y * finest), cz = ToInt(q.z * finest);
    cx = cx < 0 ? 0 : cx, cy = cy < 0 ? 0 : cy, cz = cz < 0 ? 0 : cz;
    int level = 0;
    if (path.depth >= 0) {
        const unsigned diff =
            static_cast<unsigned>((cx ^ path.cx) | (cy ^ path.cy) | (cz ^ path.cz)) >> (PathLevels - path.depth);
        // Levels up to the stop of the last descent whose cells agree.
        level = diff == 0 ? path.depth : path.depth - (31 - __builtin_clz(diff));
        level = level < lod ? level : (lod < 0 ? 0 : lod);
    }
    path.cx = cx, path.cy = cy, path.cz = cz;
    int base = level == 0 ? 1 : static_cast<int>(oct.nodes[path.index[level - 1]].children & TezNodeLowMask);
    for (;; ++level) {
        const int shift = PathLevels - level;
        const int index = base + ((cx >> shift) & 1) + 2 * ((cy >> shift) & 1) + 4 * ((cz >> shift) & 1);
        path.index[level] = index;
        const Node& node = oct.nodes[index];
        const uint32_t children = node.children & TezNodeLowMask;
        bool stop = children == 0 || level == lod || level == PathLevels;
        if (!stop && static_cast<int>(node.state) == skipState && level >= blockLevel)
            stop = skip = true; // confirmed below, once the cell's exit is known
        if (stop) {
            path.depth = level;
            d.node = node;
            d.index = index;
            d.level = level;
            d.cell = 0.5f / static_cast<float>(1 << level);
            const float scale = static_cast<float>(1 << level);
            const float sx = q.x * scale, sy = q.y * scale, sz = q.z * scale;
            d.nx = ToInt(sx), d.ny = ToInt(sy), d.nz = ToInt(sz);
            if (d.nx < 0 || d.ny < 0 || d.nz < 0) {
                d.left = true;
                skip = false;
                return d;
            }
            d.f = Make3(sx - static_cast<float>(d.nx), sy - static_cast<float>(d.ny), sz - static_cast<float>(d.nz));
            if (skip) {
                const float exitLocal = Min3(Add(Mul(ray.inv, d.f), ray.exitBias));
                if (steps.LimitAt(t + d.cell * exitLocal, lod) <= level) {
                    skip = false; // a descent further on would stop here or above: go on down
                    base = static_cast<int>(children);
                    continue;
                }
            }
            return d;
        }
        base = static_cast<int>(children);
    }
}

// March of OctreeKernels.inl with the shortcuts above.
template <class V>
inline MarchResult MarchWithPath(const Octree& oct, const Ray& ray, const float* table, bool inside, float t,
                                 MarchCounters* counters = nullptr)
{
    MarchResult r{0.0f, 0.0f, 0.0f, 0.0f};
    const V* leaves = static_cast<const V*>(oct.leaves);
    bool onCut = ray.cutEntry && t <= ray.tEntry && (oct.looks & LookCutShading);
    const float cutShade = Saturate(Dot(ray.viewDir, ray.cutNormal) + 0.2f);
    const int skipState =
        oct.skipByState && oct.treeSize >= 16 ? static_cast<int>(inside ? TezNodeStateFull : TezNodeStateEmpty) : -1;
    const int blockLevel = BlockLevel(oct);
    MarchPath path;
    const LevelSteps& steps = LevelStepsOf(oct);
    // One root for the limit at the start; the table follows it down.
    int lod = LevelLimit(oct, t);
    lod = lod < PathLevels + 1 ? lod : PathLevels + 1;
    int stopCounter = 0;
    int lastNode = -1, nodeRepeats = 0;
    while (r.alpha < 1.0f && t < ray.tExit && stopCounter < 1) {
        if (r.alpha == 0.0f)
            r.hitDepth = t;
        if (counters)
            ++counters->steps;
        bool skipSubtree = false;
        lod = steps.LimitAt(t, lod);
        const Descent d = DescendFromPath(oct, ray, t, lod, path, skipState, blockLevel, steps, skipSubtree);
        if (d.left) {
            t = ray.tExit;
            continue;
        }

        nodeRepeats = d.index == lastNode ? nodeRepeats + 1 : 0;
        lastNode = d.index;
        const float exitLocal = Min3(Add(Mul(ray.inv, d.f), ray.exitBias));
        const float advance = d.cell * exitLocal + StepEpsilon(0.0005f, nodeRepeats, 0.5f * d.cell * ray.unitT);
        const Node& node = d.node;

        if (skipSubtree) {
            onCut = false;
        } else if (!(node.children & TezNodeFlagBit)) {
            const float entry = TableEntry(table, oct.valueScale, static_cast<float>(node.data));
            if ((entry >= OpaqueThreshold) != inside) {
                r.shade = onCut ? cutShade : ((oct.looks & LookFaceShading) ? FaceShade(ray, d.f) : 1.0f);
                r.alpha = 1.0f;
                r.opacity = entry;
            }
            onCut = false;
        } else if (oct.skipByState && node.state == (inside ? TezNodeStateFull : TezNodeStateEmpty) &&
                   (node.data & TezNodeFlagBit)) {
            onCut = false;
        } else if (!(node.data & TezNodeFlagBit)) {
            if (stopCounter == 0)
                r.hitDepth = t;
            ++stopCounter;
        } else {
            const V* brick = leaves + static_cast<size_t>(node.data & TezNodeLowMask) * TezBrickVoxels;
            WalkBrick<V>(oct, ray, table, inside, brick, d, exitLocal, onCut, cutShade, r, counters);
        }
        t = Advance(t, advance);
    }
    return r;
}

// The host loops' march, for the pixel kernels' March parameter.
struct PathMarch
{
    template <class V>
    static MarchResult Run(const Octree& oct, const Ray& ray, const float* table, bool inside, float t)
    {
        return MarchWithPath<V>(oct, ray, table, inside, t);
    }
};

} // namespace TezOctreeDevice
