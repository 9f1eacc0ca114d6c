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
// - Empty blocks. Inside a brick, a 4^3 block whose mask bit (Octree::
//   blockMasks) says it holds no voxel that could end the walk is left in
//   one step, through the face the voxel walk would leave it by; the next
//   voxel is found as the voxel walk finds it. Only where the ray passes
//   within the step epsilon of a block's edge could the two walks enter
//   different voxels.
//
// Host only: the path lives in the caller's stack frame.

#include "volume/device/OctreeKernels.inl"

#include <climits>
#include <cstring>

#if defined(__SSE2__)
#    include <emmintrin.h>
#endif

namespace TezOctreeDevice {

// Levels the path can hold; q * 2^PathLevels stays exact below 2^31.
inline constexpr int PathLevels = 24;

struct MarchPath
{
    int depth = -1;               // the last descent stopped at this level; -1: none yet
    int cx = 0, cy = 0, cz = 0;   // cell of its point at level PathLevels
    int children[PathLevels + 1]; // first child of node index[level], so that re-entry loads no node
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
// over (see above); skipState is the state that allows it, or -1. With SSE2
// the three axes sit in the lanes of a register (the fourth holds whatever
// follows in the record and is never looked at): the same operations lane
// by lane, so the same results.
TEZ_KERNEL_STEP Descent DescendFromPath(const Octree& oct, const Ray& ray, float t, int lod, MarchPath& path,
                                        int skipState, int blockLevel, const LevelSteps& steps, bool& skip)
{
    Descent d{};
    skip = false;
    // The cells at the finest level. Scaling by a power of two is exact, so
    // ToInt(q) lies in [0, 1], as the descent from the root asks, exactly
    // where these lie in (-2^24, 2^25).
    const float finest = static_cast<float>(1 << PathLevels);
#if defined(__SSE2__)
    const __m128 q =
        _mm_mul_ps(_mm_add_ps(_mm_loadu_ps(&ray.origin.x), _mm_mul_ps(_mm_loadu_ps(&ray.dir.x), _mm_set1_ps(t))),
                   _mm_set1_ps(2.0f));
    alignas(16) int c[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(c), _mm_cvttps_epi32(_mm_mul_ps(q, _mm_set1_ps(finest))));
    if (c[0] == INT_MIN || c[1] == INT_MIN || c[2] == INT_MIN) { // NaN and far points as ToInt takes them
        alignas(16) float p[4];
        _mm_store_ps(p, q);
        c[0] = ToInt(p[0] * finest), c[1] = ToInt(p[1] * finest), c[2] = ToInt(p[2] * finest);
    }
#else
    const float3s q = Scale(Add(ray.origin, Scale(ray.dir, t)), 2.0f);
    int c[3] = {ToInt(q.x * finest), ToInt(q.y * finest), ToInt(q.z * finest)};
#endif
    constexpr int low = -(1 << PathLevels), high = 2 << PathLevels;
    if (c[0] <= low || c[1] <= low || c[2] <= low || c[0] >= high || c[1] >= high || c[2] >= high) {
        d.left = true;
        return d;
    }
    // A point a little below 0 descends along the cells at 0 until it would
    // leave; that is checked at the level where the descent stops.
    const int cx = c[0] < 0 ? 0 : c[0], cy = c[1] < 0 ? 0 : c[1], cz = c[2] < 0 ? 0 : c[2];
#if defined(__SSE2__)
    const __m128i cells = _mm_setr_epi32(cx, cy, cz, 0);
#endif
    int level = 0;
    if (path.depth >= 0) {
        const unsigned diff =
            static_cast<unsigned>((cx ^ path.cx) | (cy ^ path.cy) | (cz ^ path.cz)) >> (PathLevels - path.depth);
        // Levels up to the stop of the last descent whose cells agree.
        level = diff == 0 ? path.depth : path.depth - (31 - __builtin_clz(diff));
        level = level < lod ? level : (lod < 0 ? 0 : lod);
    }
    path.cx = cx, path.cy = cy, path.cz = cz;
    int base = level == 0 ? 1 : path.children[level - 1];
    for (;; ++level) {
        const int shift = PathLevels - level;
#if defined(__SSE2__)
        // Bit `shift` of each axis's cell, moved to the sign and gathered.
        const int octant = _mm_movemask_ps(_mm_castsi128_ps(_mm_sll_epi32(cells, _mm_cvtsi32_si128(31 - shift)))) & 7;
#else
        const int octant = ((cx >> shift) & 1) + 2 * ((cy >> shift) & 1) + 4 * ((cz >> shift) & 1);
#endif
        const int index = base + octant;
        const Node& node = oct.nodes[index];
        const uint32_t children = node.children & TezNodeLowMask;
        path.children[level] = static_cast<int>(children);
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
#if defined(__SSE2__)
            const __m128 scaled = _mm_mul_ps(q, _mm_set1_ps(scale));
            const __m128i n = _mm_cvttps_epi32(scaled); // below 2^25 here; a NaN point leaves
            alignas(16) float f[4];
            alignas(16) int cell[4];
            _mm_store_ps(f, _mm_sub_ps(scaled, _mm_cvtepi32_ps(n)));
            _mm_store_si128(reinterpret_cast<__m128i*>(cell), n);
            d.nx = cell[0], d.ny = cell[1], d.nz = cell[2];
            d.f = Make3(f[0], f[1], f[2]);
#else
            const float sx = q.x * scale, sy = q.y * scale, sz = q.z * scale;
            d.nx = ToInt(sx), d.ny = ToInt(sy), d.nz = ToInt(sz);
            d.f = Make3(sx - static_cast<float>(d.nx), sy - static_cast<float>(d.ny), sz - static_cast<float>(d.nz));
#endif
            if (d.nx < 0 || d.ny < 0 || d.nz < 0) {
                d.left = true;
                skip = false;
                return d;
            }
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

inline int ClampInt(int v, int low, int high) { return v < low ? low : (v > high ? high : v); }
inline int AbsInt(int v) { return v < 0 ? -v : v; }

// Gradient of OctreeKernels.inl from the same 27 samples and weights. All
// of them are whole numbers and no partial sum reaches 2^24, so sums in
// integers give the float sums bit for bit; and a neighbouring brick is
// looked up once, not once for each of its samples.
template <class V>
TEZ_KERNEL_STEP float3s GradientOnHost(const Octree& oct, const V* brick, int nx, int ny, int nz, int level, int x,
                                       int y, int z)
{
    static constexpr int wx[27] = {-1, 0,  1, -3, 0,  3, -1, 0,  1, -3, 0,  3, -6, 0,
                                   6,  -3, 0, 3,  -1, 0, 1,  -3, 0, 3,  -1, 0, 1};
    static constexpr int wy[27] = {-1, -3, -1, 0, 0,  0,  1,  3, 1, -3, -6, -3, 0, 0,
                                   0,  3,  6,  3, -1, -3, -1, 0, 0, 0,  1,  3,  1};
    static constexpr int wz[27] = {-1, -3, -1, -3, -6, -3, -1, -3, -1, 0, 0, 0, 0, 0,
                                   0,  0,  0,  0,  1,  3,  1,  3,  6,  3, 1, 3, 1};
    int sample[27];
    const bool interior =
        x > 0 && y > 0 && z > 0 && x < TezBrickEdge - 1 && y < TezBrickEdge - 1 && z < TezBrickEdge - 1;
    if (interior) {
        const V* at = brick + BrickIndex(x - 1, y - 1, z - 1);
        for (int k = 0, dz = 0; dz < 3; ++dz)
            for (int dy = 0; dy < 3; ++dy, k += 3) {
                const V* row = at + BrickIndex(0, dy, dz);
                sample[k] = row[0], sample[k + 1] = row[1], sample[k + 2] = row[2];
            }
    } else {
        // The samples of one neighbouring brick: its node's value, or the
        // brick (perhaps a coarser one) with the shift and offset that
        // NeighbourSample reads it at.
        struct Neighbour
        {
            int kind = -1; // -1 not looked up; 0 a value; 1 a brick
            int value = 0;
            const V* voxels = nullptr;
            int shift = 0, ox = 0, oy = 0, oz = 0;
        } near[27];
        for (int k = 0, dz = -1; dz <= 1; ++dz)
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx, ++k) {
                    int cx = x + dx, cy = y + dy, cz = z + dz;
                    const int mx = cx < 0 ? -1 : (cx >= TezBrickEdge ? 1 : 0);
                    const int my = cy < 0 ? -1 : (cy >= TezBrickEdge ? 1 : 0);
                    const int mz = cz < 0 ? -1 : (cz >= TezBrickEdge ? 1 : 0);
                    cx -= mx * TezBrickEdge, cy -= my * TezBrickEdge, cz -= mz * TezBrickEdge;
                    if (mx == 0 && my == 0 && mz == 0) {
                        sample[k] = brick[BrickIndex(cx, cy, cz)];
                        continue;
                    }
                    Neighbour& n = near[(mz + 1) * 9 + (my + 1) * 3 + (mx + 1)];
                    if (n.kind < 0) {
                        const int ax = nx + mx, ay = ny + my, az = nz + mz;
                        n.kind = 0;
                        if (ax < 0 || ay < 0 || az < 0 || (ax >> level) > 1 || (ay >> level) > 1 || (az >> level) > 1) {
                            n.value = 0;
                        } else {
                            int shift;
                            const Node node = NodeAtLevel(oct, ax, ay, az, level, shift);
                            if (!(node.children & TezNodeFlagBit)) {
                                if (node.data > 65535u) // beyond the exact sums: the kernel's own way
                                    return Gradient(oct, brick, nx, ny, nz, level, x, y, z);
                                n.value = static_cast<int>(node.data);
                            } else if (!(node.data & TezNodeFlagBit)) {
                                n.value = 1;
                            } else {
                                const int s = 1 << shift;
                                n.kind = 1;
                                n.voxels = static_cast<const V*>(oct.leaves) +
                                           static_cast<size_t>(node.data & TezNodeLowMask) * TezBrickVoxels;
                                n.shift = shift;
                                n.ox = (ax & (s - 1)) * TezBrickEdge, n.oy = (ay & (s - 1)) * TezBrickEdge,
                                n.oz = (az & (s - 1)) * TezBrickEdge;
                            }
                        }
                    }
                    sample[k] = n.kind == 0 ? n.value
                                            : n.voxels[BrickIndex((n.ox + cx) >> n.shift, (n.oy + cy) >> n.shift,
                                                                  (n.oz + cz) >> n.shift)];
                }
    }
    int gx = 0, gy = 0, gz = 0;
    for (int k = 0; k < 27; ++k) {
        gx += sample[k] * wx[k];
        gy += sample[k] * wy[k];
        gz += sample[k] * wz[k];
    }
    return Make3(static_cast<float>(gx), static_cast<float>(gy), static_cast<float>(gz));
}

// What the marches of one launch share: the record, the table, the side
// they start on and what follows from those.
struct MarchShared
{
    Octree oct;
    const float* table;
    bool inside;
    int skipState;
    int blockLevel;
    const uint64_t* masks;
    const LevelSteps* steps;
    MarchCounters* counters;
};

inline MarchShared MakeMarchShared(const Octree& oct, const float* table, bool inside, MarchCounters* counters)
{
    MarchShared m;
    m.oct = oct;
    m.table = table;
    m.inside = inside;
    m.skipState =
        oct.skipByState && oct.treeSize >= 16 ? static_cast<int>(inside ? TezNodeStateFull : TezNodeStateEmpty) : -1;
    m.blockLevel = BlockLevel(oct);
    m.masks = oct.skipByState ? oct.blockMasks : nullptr;
    m.steps = oct.levelSteps ? oct.levelSteps : &LevelStepsOf(oct);
    m.counters = counters;
    return m;
}

// March of OctreeKernels.inl with the shortcuts above, as a machine that
// takes one step a call: a descent with what follows it, or one voxel (or
// block) of the brick being walked. A host thread steps two of them in
// turn, so that the long chains of dependent arithmetic and loads of one
// ray overlap with the other's.
template <class V>
struct MarchLane
{
    Ray ray;
    MarchResult r;
    float t;
    int lod;
    int lastNode, nodeRepeats, stopCounter;
    bool onCut, walking, done;
    float cutShade;
    // The brick being walked: WalkBrick of OctreeKernels.inl, stepping over
    // the empty blocks (mask: the brick's mask for this march; all bits set
    // where there is none).
    const V* brick = nullptr;
    uint64_t mask = 0;
    int nx = 0, ny = 0, nz = 0, level = 0;
    float3s v0{0.0f, 0.0f, 0.0f}, v{0.0f, 0.0f, 0.0f};
    float s = 0.0f, limit = 0.0f, voxelCell = 0.0f, advance = 0.0f;
    int lastVoxel = -1, voxelRepeats = 0;
    MarchPath path;

    void Start(const MarchShared& m, const Ray& startRay, float start)
    {
        ray = startRay;
        r = MarchResult{0.0f, 0.0f, 0.0f, 0.0f};
        t = start;
        onCut = ray.cutEntry && t <= ray.tEntry && (m.oct.looks & LookCutShading);
        cutShade = Saturate(Dot(ray.viewDir, ray.cutNormal) + 0.2f);
        path.depth = -1;
        // One root for the limit at the start; the table follows it down.
        const int limitAtStart = LevelLimit(m.oct, t);
        lod = limitAtStart < PathLevels + 1 ? limitAtStart : PathLevels + 1;
        stopCounter = 0;
        lastNode = -1, nodeRepeats = 0;
        walking = false;
        done = false;
    }

    TEZ_KERNEL_STEP void Step(const MarchShared& m)
    {
        if (walking)
            WalkStep(m);
        else
            DescentStep(m);
    }

    TEZ_KERNEL_STEP void DescentStep(const MarchShared& m)
    {
        const Octree& oct = m.oct;
        if (!(r.alpha < 1.0f && t < ray.tExit && stopCounter < 1)) {
            done = true;
            return;
        }
        if (r.alpha == 0.0f)
            r.hitDepth = t;
        if (m.counters)
            ++m.counters->steps;
        bool skipSubtree = false;
        lod = m.steps->LimitAt(t, lod);
        const Descent d = DescendFromPath(oct, ray, t, lod, path, m.skipState, m.blockLevel, *m.steps, skipSubtree);
        if (d.left) {
            t = ray.tExit;
            return;
        }
        nodeRepeats = d.index == lastNode ? nodeRepeats + 1 : 0;
        lastNode = d.index;
        const float exitLocal = Min3(Add(Mul(ray.inv, d.f), ray.exitBias));
        const float step = d.cell * exitLocal + StepEpsilon(0.0005f, nodeRepeats, 0.5f * d.cell * ray.unitT);
        const Node& node = d.node;
        if (skipSubtree) {
            onCut = false;
        } else if (!(node.children & TezNodeFlagBit)) {
            const float entry = TableEntry(m.table, oct.valueScale, static_cast<float>(node.data));
            if ((entry >= OpaqueThreshold) != m.inside) {
                r.shade = onCut ? cutShade : ((oct.looks & LookFaceShading) ? FaceShade(ray, d.f) : 1.0f);
                r.alpha = 1.0f;
                r.opacity = entry;
            }
            onCut = false;
        } else if (oct.skipByState && node.state == (m.inside ? TezNodeStateFull : TezNodeStateEmpty) &&
                   (node.data & TezNodeFlagBit)) {
            onCut = false;
        } else if (!(node.data & TezNodeFlagBit)) {
            if (stopCounter == 0)
                r.hitDepth = t;
            ++stopCounter;
        } else if (16.0f * exitLocal > 0.0f && r.alpha < 1.0f) {
            const uint32_t b = node.data & TezNodeLowMask;
            brick = static_cast<const V*>(oct.leaves) + static_cast<size_t>(b) * TezBrickVoxels;
            mask = m.masks ? m.masks[2 * static_cast<size_t>(b) + (m.inside ? 1 : 0)] : ~uint64_t(0);
            nx = d.nx, ny = d.ny, nz = d.nz, level = d.level;
            v0 = v = Scale(d.f, 16.0f);
            s = 0.0f;
            limit = 16.0f * exitLocal;
            voxelCell = d.cell / 16.0f;
            lastVoxel = -1, voxelRepeats = 0;
            advance = step;
            walking = true;
            return;
        }
        t = Advance(t, step);
    }

    TEZ_KERNEL_STEP void WalkStep(const MarchShared& m)
    {
        const int bx = ToInt(v.x), by = ToInt(v.y), bz = ToInt(v.z);
        if (OutsideUnit(bx, 15) || OutsideUnit(by, 15) || OutsideUnit(bz, 15)) {
            EndWalk();
            return;
        }
        const int voxel = BrickIndex(bx, by, bz);
        voxelRepeats = voxel == lastVoxel ? voxelRepeats + 1 : 0;
        lastVoxel = voxel;
        const bool block = !onCut && !((mask >> ((bx >> 2) + 4 * (by >> 2) + 16 * (bz >> 2))) & 1u);
        // The corner of the voxel, or of its block: the exit is the same
        // expression at four times the scale.
        const int corner = block ? ~3 : ~0;
        const float3s local = Make3(v.x - static_cast<float>(bx & corner), v.y - static_cast<float>(by & corner),
                                    v.z - static_cast<float>(bz & corner));
        const float e = Min3(Add(Mul(ray.inv, local), block ? Scale(ray.exitBias, 4.0f) : ray.exitBias));
        s = s + e + StepEpsilon(0.001f, voxelRepeats, 0.5f * ray.unitT);
        if (r.alpha == 0.0f) {
            // The voxel walk adds each voxel's exit, measured from a point
            // one epsilon past its entry: across a block it counts the
            // block's exit less an epsilon for each voxel after the first.
            float walked = e;
            if (block) {
                const float3s end = Add(v, Scale(ray.dir, e));
                const int x0 = bx & ~3, y0 = by & ~3, z0 = bz & ~3;
                const int ex = ClampInt(ToInt(end.x), x0, x0 + 3), ey = ClampInt(ToInt(end.y), y0, y0 + 3),
                          ez = ClampInt(ToInt(end.z), z0, z0 + 3);
                walked = e - static_cast<float>(AbsInt(ex - bx) + AbsInt(ey - by) + AbsInt(ez - bz)) * 0.001f;
            }
            r.hitDepth = r.hitDepth + voxelCell * walked;
        }
        if (!block) {
            if (m.counters)
                ++m.counters->voxels;
            const float entry = TableEntry(m.table, m.oct.valueScale, static_cast<float>(brick[voxel]));
            if ((entry >= OpaqueThreshold) != m.inside) {
                if (onCut) {
                    r.shade = cutShade;
                } else {
                    const float3s g = GradientOnHost(m.oct, brick, nx, ny, nz, level, bx, by, bz);
                    r.shade = ShadeFromGradient(g, ray.viewDir);
                }
                r.alpha = 1.0f;
                r.opacity = entry;
                onCut = false;
                EndWalk();
                return;
            }
            onCut = false;
        }
        if (!(s < limit)) {
            EndWalk();
            return;
        }
        v = Add(v0, Scale(ray.dir, s));
    }

    TEZ_KERNEL_STEP void EndWalk()
    {
        walking = false;
        t = Advance(t, advance);
    }
};

// One march from t to its end.
template <class V>
inline MarchResult MarchWithPath(const Octree& oct, const Ray& ray, const float* table, bool inside, float t,
                                 MarchCounters* counters = nullptr)
{
    const MarchShared shared = MakeMarchShared(oct, table, inside, counters);
    MarchLane<V> lane;
    lane.Start(shared, ray, t);
    while (!lane.done)
        lane.Step(shared);
    return lane.r;
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
