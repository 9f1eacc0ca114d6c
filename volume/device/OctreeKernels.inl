#pragma once
// The octree kernels as functions of one pixel or one node.
//
// This file is the single source of the kernels: the host loops include it
// as ordinary C++, the CUDA translation unit includes it under nvcc, where
// every function becomes device code. Nothing here allocates; all arithmetic
// is single precision, except the one double product of the depth word.

#include "volume/device/OctreeKernelTypes.h"

#include <climits>
#include <cmath>
#include <cstddef>

#if !defined(__CUDACC__) && defined(__SSE__)
#    include <xmmintrin.h>
#endif

#if defined(__CUDACC__)
#    define TEZ_KERNELFN __device__ inline
#    define TEZ_KERNEL_STEP __device__ __forceinline__
#    define TEZ_KERNEL_TABLE static __constant__ const
#else
#    define TEZ_KERNELFN inline
#    define TEZ_KERNEL_STEP inline __attribute__((always_inline))
#    define TEZ_KERNEL_TABLE static const
#endif
// TEZ_KERNEL_STEP: a named step of a loop that must compile as if written
// in place, its state kept in registers.

namespace TezOctreeDevice {

// 3 x 3 x 3 derivative kernels, entry 9 * (dz + 1) + 3 * (dy + 1) + (dx + 1).
// Weights 6, 3, 1 by the number of zero offsets across the derivative's axis.
TEZ_KERNEL_TABLE float dxCoeff[27] = {-1, 0, 1, -3, 0, 3, -1, 0, 1, //
                                      -3, 0, 3, -6, 0, 6, -3, 0, 3, //
                                      -1, 0, 1, -3, 0, 3, -1, 0, 1};
TEZ_KERNEL_TABLE float dyCoeff[27] = {-1, -3, -1, 0, 0, 0, 1, 3, 1, //
                                      -3, -6, -3, 0, 0, 0, 3, 6, 3, //
                                      -1, -3, -1, 0, 0, 0, 1, 3, 1};
TEZ_KERNEL_TABLE float dzCoeff[27] = {-1, -3, -1, -3, -6, -3, -1, -3, -1, //
                                      0,  0,  0,  0,  0,  0,  0,  0,  0,  //
                                      1,  3,  1,  3,  6,  3,  1,  3,  1};

TEZ_KERNELFN float3s Make3(float x, float y, float z) { return float3s{x, y, z}; }
TEZ_KERNELFN float3s Add(const float3s& a, const float3s& b) { return float3s{a.x + b.x, a.y + b.y, a.z + b.z}; }
TEZ_KERNELFN float3s Sub(const float3s& a, const float3s& b) { return float3s{a.x - b.x, a.y - b.y, a.z - b.z}; }
TEZ_KERNELFN float3s Mul(const float3s& a, const float3s& b) { return float3s{a.x * b.x, a.y * b.y, a.z * b.z}; }
TEZ_KERNELFN float3s Scale(const float3s& a, float s) { return float3s{a.x * s, a.y * s, a.z * s}; }
TEZ_KERNELFN float Dot(const float3s& a, const float3s& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
// The smallest of three finite values; on the host a compare, where fminf
// would be a library call in the innermost loop.
TEZ_KERNELFN float Min3(const float3s& a)
{
#if defined(__CUDA_ARCH__)
    return fminf(a.x, fminf(a.y, a.z));
#else
    const float m = a.z < a.y ? a.z : a.y;
    return m < a.x ? m : a.x;
#endif
}
// fmaxf and fminf as glibc's give them (maxss/minss, the other operand where
// one is NaN); on the host a compare, where the two would be library calls.
TEZ_KERNELFN float MaxF(float a, float b)
{
#if defined(__CUDA_ARCH__)
    return fmaxf(a, b);
#else
    return a > b ? a : (b != b ? a : b);
#endif
}
TEZ_KERNELFN float MinF(float a, float b)
{
#if defined(__CUDA_ARCH__)
    return fminf(a, b);
#else
    return a < b ? a : (b != b ? a : b);
#endif
}
TEZ_KERNELFN float Max3(const float3s& a) { return MaxF(a.x, MaxF(a.y, a.z)); }
TEZ_KERNELFN float Saturate(float v) { return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v); }

// Float to int as the device converts: out-of-range values saturate and NaN
// gives 0. A plain cast on the host would be undefined for those.
TEZ_KERNELFN int ToInt(float v)
{
#if defined(__CUDA_ARCH__)
    return static_cast<int>(v);
#elif defined(__SSE__) && !defined(__CUDACC__)
    // The conversion instruction answers INT_MIN for NaN and for every value
    // out of range; only then are the device's rules needed.
    const int i = _mm_cvtt_ss2si(_mm_set_ss(v));
    if (i != INT_MIN)
        return i;
    if (!(v == v))
        return 0;
    return v > 0.0f ? INT_MAX : INT_MIN;
#else
    if (!(v == v))
        return 0;
    if (v >= 2147483648.0f)
        return INT_MAX;
    if (v <= -2147483648.0f)
        return INT_MIN;
    return static_cast<int>(v);
#endif
}

TEZ_KERNELFN uint32_t ToUint(float v)
{
#if defined(__CUDA_ARCH__)
    return static_cast<uint32_t>(v);
#else
    if (!(v > 0.0f))
        return 0;
    if (v >= 4294967296.0f)
        return MAX_UINT;
    return static_cast<uint32_t>(v);
#endif
}

// Square root for the level-of-detail estimate: on the device through the
// approximate exponential and logarithm instructions, on the host the square
// root instruction, which agrees with them to float rounding and costs a
// tenth of the two library calls.
TEZ_KERNELFN float ApproxSqrt(float v)
{
#if defined(__CUDA_ARCH__)
    return exp2f(0.5f * __log2f(v));
#else
    return v > 0.0f ? sqrtf(v) : exp2f(0.5f * log2f(v));
#endif
}

TEZ_KERNELFN bool OutsideUnit(int i, int edge) { return static_cast<unsigned>(i) > static_cast<unsigned>(edge); }

// Table entry of a voxel value: its bin of 256.
TEZ_KERNELFN float TableEntry(const float* table, float valueScale, float value)
{
    int bin = ToInt(valueScale * value * 255.0f);
    bin = bin < 0 ? 0 : (bin > 255 ? 255 : bin);
    return table[bin];
}

// Opacity of a voxel value: its table bin at or above the threshold.
TEZ_KERNELFN bool IsOpaque(const float* table, float valueScale, float value)
{
    return TableEntry(table, valueScale, value) >= OpaqueThreshold;
}

TEZ_KERNELFN int BrickIndex(int x, int y, int z) { return (z * TezBrickEdge + y) * TezBrickEdge + x; }

// A ray in octree space with its slab set-up.
struct Ray
{
    float3s origin;
    float3s dir;     // clamped away from zero per axis
    float3s viewDir; // unit, for shading
    float3s inv;     // -1 / dir
    float3s exitBias;
    float tEntry;
    float tExit;
    float unitT;       // t that moves the ray one unit of the cube along its main axis
    bool cutEntry;     // tEntry lies on a cross-section plane
    float3s cutNormal; // that plane's normal, into the kept half space
};

TEZ_KERNELFN void ApplyRange(const DefaultRangeFunction&, const float3s&, const float3s&, Ray&) {}

TEZ_KERNELFN void ApplyRange(const XSectionRangeFunction& range, const float3s& origin, const float3s& dir, Ray& ray)
{
    float& tEntry = ray.tEntry;
    float& tExit = ray.tExit;
    const float denom = Dot(range.normal, dir);
    const float tp = MaxF(Dot(range.normal, Sub(range.root, origin)) / denom, 0.0f);
    const float nearT = denom > 0.0f ? tp : 0.0f;
    const float farT = denom > 0.0f ? TezInfinityf : tp;
    ray.cutEntry = nearT > tEntry;
    ray.cutNormal = range.normal;
    tEntry = MaxF(tEntry, nearT);
    tExit = MinF(tExit, farT);
}

// Keeps a direction component away from zero, so that every slab time is
// finite. The floor is 1e-6 of the direction's length (and never above
// 1e-6): the ray drifts by floor / length across the tree, so an absolute
// floor would push the rays of a large tree, whose octree-space directions
// are short, by whole voxels sideways.
TEZ_KERNELFN float ClampAxis(float d, float floor) { return fabsf(d) < floor ? copysignf(floor, d) : d; }

// What every pixel of a camera shares: its aspect and the tangent of half
// its field of view. A device thread makes its own; the host loops make one
// a launch.
struct RayFrame
{
    float aspect;
    float h;
};

TEZ_KERNELFN RayFrame MakeRayFrame(const Camera& cam)
{
    return RayFrame{static_cast<float>(cam.width) / static_cast<float>(cam.height), tanf(cam.fov / 2.0f)};
}

// Builds the ray of pixel (x, y); false when it misses the cube.
template <class Range>
TEZ_KERNEL_STEP bool SetUpRay(const Camera& cam, const RayFrame& frame, const float* T, int x, int y,
                              const Range& range, Ray& ray)
{
    const float v = 2.0f * (static_cast<float>(y) + 0.5f) / static_cast<float>(cam.height) - 1.0f;
    const float aspect = frame.aspect;
    const float u = (1.0f - 2.0f * (static_cast<float>(x) + 0.5f) / static_cast<float>(cam.width)) * aspect;
    const float h = frame.h;

    float3s origin, dir;
    if (cam.perspective) {
        const float c = 1.0f / h;
        const float L = sqrtf(u * u + v * v + c * c);
        const float3s w = Make3(u / L, v / L, c / L);
        dir = Make3(Dot(cam.axisX, w), Dot(cam.axisY, w), Dot(cam.axisZ, w));
        origin = cam.eye;
    } else {
        const float3s D = Sub(cam.focus, cam.eye);
        const float dist = sqrtf(Dot(D, D));
        const float s = h * dist;
        const float3s w = Make3(u * s, v * s, 0.0f);
        origin = Add(cam.eye, Make3(Dot(cam.axisX, w), Dot(cam.axisY, w), Dot(cam.axisZ, w)));
        dir = Make3(D.x / dist, D.y / dist, D.z / dist);
    }

    // The transform's entries 0..3 are the first row of a row-vector matrix.
    const float3s o = Make3(origin.x * T[0] + origin.y * T[4] + origin.z * T[8] + T[12],
                            origin.x * T[1] + origin.y * T[5] + origin.z * T[9] + T[13],
                            origin.x * T[2] + origin.y * T[6] + origin.z * T[10] + T[14]);
    const float3s d = Make3(dir.x * T[0] + dir.y * T[4] + dir.z * T[8], dir.x * T[1] + dir.y * T[5] + dir.z * T[9],
                            dir.x * T[2] + dir.y * T[6] + dir.z * T[10]);
    const float len = sqrtf(Dot(d, d));
    ray.origin = o;
    ray.viewDir = Make3(d.x / len, d.y / len, d.z / len);
    const float floor = TezEpsilonf * MinF(len, 1.0f);
    ray.dir = Make3(ClampAxis(d.x, floor), ClampAxis(d.y, floor), ClampAxis(d.z, floor));
    ray.inv = Make3(-1.0f / ray.dir.x, -1.0f / ray.dir.y, -1.0f / ray.dir.z);
    ray.unitT = 1.0f / Max3(Make3(fabsf(ray.dir.x), fabsf(ray.dir.y), fabsf(ray.dir.z)));
    const float3s corner = Make3(ray.dir.x < 0.0f ? ray.inv.x : 0.0f, ray.dir.y < 0.0f ? ray.inv.y : 0.0f,
                                 ray.dir.z < 0.0f ? ray.inv.z : 0.0f);
    const float3s pos = Mul(o, ray.inv);
    ray.tEntry = MaxF(Max3(Sub(pos, corner)) + 0.0005f, 0.0f);
    ray.exitBias = Sub(corner, ray.inv);
    ray.tExit = MinF(Min3(Add(pos, ray.exitBias)), TezInfinityf);
    ray.cutEntry = false;
    ray.cutNormal = Make3(0.0f, 0.0f, 0.0f);
    ApplyRange(range, o, d, ray);
    return ray.tEntry < ray.tExit;
}

template <class Range>
TEZ_KERNELFN bool SetUpRay(const Camera& cam, const float* T, int x, int y, const Range& range, Ray& ray)
{
    return SetUpRay(cam, MakeRayFrame(cam), T, x, y, range, ray);
}

// The node holding cell (nx, ny, nz) of level `level` (inside the tree), or
// the childless node above it where the tree ends sooner; shift: the levels
// between the two.
TEZ_KERNELFN Node NodeAtLevel(const Octree& oct, int nx, int ny, int nz, int level, int& shift)
{
    int base = 1;
    shift = level;
    Node node;
    for (;;) {
        node = oct.nodes[base + ((nx >> shift) & 1) + 2 * ((ny >> shift) & 1) + 4 * ((nz >> shift) & 1)];
        const uint32_t children = node.children & TezNodeLowMask;
        if (children == 0 || shift == 0)
            return node;
        base = static_cast<int>(children);
        --shift;
    }
}

// A sample for the gradient at brick coordinates (cx, cy, cz), which may lie
// one voxel outside the brick of the node at (nx, ny, nz) on its level.
template <class V>
TEZ_KERNELFN float NeighbourSample(const Octree& oct, const V* brick, int nx, int ny, int nz, int level, int cx, int cy,
                                   int cz)
{
    bool moved = false;
    if (cx >= TezBrickEdge) {
        ++nx, cx -= TezBrickEdge, moved = true;
    } else if (cx < 0) {
        --nx, cx += TezBrickEdge, moved = true;
    }
    if (cy >= TezBrickEdge) {
        ++ny, cy -= TezBrickEdge, moved = true;
    } else if (cy < 0) {
        --ny, cy += TezBrickEdge, moved = true;
    }
    if (cz >= TezBrickEdge) {
        ++nz, cz -= TezBrickEdge, moved = true;
    } else if (cz < 0) {
        --nz, cz += TezBrickEdge, moved = true;
    }
    if (!moved)
        return static_cast<float>(brick[BrickIndex(cx, cy, cz)]);
    if (nx < 0 || ny < 0 || nz < 0 || (nx >> level) > 1 || (ny >> level) > 1 || (nz >> level) > 1)
        return 0.0f;

    // n is not negative here and s a power of 2: the divisions and
    // remainders by s are shifts and masks.
    int shift;
    const Node node = NodeAtLevel(oct, nx, ny, nz, level, shift);
    const int s = 1 << shift;
    if (!(node.children & TezNodeFlagBit))
        return static_cast<float>(node.data);
    if (!(node.data & TezNodeFlagBit))
        return 1.0f;
    // A descent that stopped early reads the same spot in the coarser brick.
    const V* other =
        static_cast<const V*>(oct.leaves) + static_cast<size_t>(node.data & TezNodeLowMask) * TezBrickVoxels;
    const int px = ((nx & (s - 1)) * TezBrickEdge + cx) >> shift;
    const int py = ((ny & (s - 1)) * TezBrickEdge + cy) >> shift;
    const int pz = ((nz & (s - 1)) * TezBrickEdge + cz) >> shift;
    return static_cast<float>(other[BrickIndex(px, py, pz)]);
}

template <class V>
TEZ_KERNELFN float3s Gradient(const Octree& oct, const V* brick, int nx, int ny, int nz, int level, int x, int y, int z)
{
    float3s g = Make3(0.0f, 0.0f, 0.0f);
    const bool interior =
        x > 0 && y > 0 && z > 0 && x < TezBrickEdge - 1 && y < TezBrickEdge - 1 && z < TezBrickEdge - 1;
    int k = 0;
    for (int dz = -1; dz <= 1; ++dz)
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx, ++k) {
                const float s = interior ? static_cast<float>(brick[BrickIndex(x + dx, y + dy, z + dz)])
                                         : NeighbourSample(oct, brick, nx, ny, nz, level, x + dx, y + dy, z + dz);
                g.x += s * dxCoeff[k];
                g.y += s * dyCoeff[k];
                g.z += s * dzCoeff[k];
            }
    return g;
}

TEZ_KERNELFN float ShadeFromGradient(const float3s& g, const float3s& viewDir)
{
    const float gg = Dot(g, g);
    float3s n = Make3(1.0f, 1.0f, 1.0f);
    if (gg > 0.001f) {
        const float len = sqrtf(gg);
        n = Make3(g.x / len, g.y / len, g.z / len);
    }
    return Saturate(Dot(viewDir, n) + 0.2f);
}

// Shade of a hit on a uniform node at cell position f: lit by the normal of
// the face the ray came in through, the axis whose entry side f is nearest.
TEZ_KERNELFN float FaceShade(const Ray& ray, const float3s& f)
{
    const float dx = ray.dir.x > 0.0f ? f.x : 1.0f - f.x;
    const float dy = ray.dir.y > 0.0f ? f.y : 1.0f - f.y;
    const float dz = ray.dir.z > 0.0f ? f.z : 1.0f - f.z;
    const float along = dx <= dy && dx <= dz ? ray.viewDir.x : (dy <= dz ? ray.viewDir.y : ray.viewDir.z);
    return Saturate(fabsf(along) + 0.2f);
}

// What a march found: alpha is 0 (nothing) or 1 (a surface at hitDepth);
// opacity is the table entry of the value that made the hit.
struct MarchResult
{
    float shade;
    float alpha;
    float hitDepth;
    float opacity;
};

// t + advance, and at least the next float: far from the tree a step can be
// smaller than t's spacing, and a ray must never stand still.
TEZ_KERNELFN float Advance(float t, float advance)
{
    const float next = t + advance;
    return next > t ? next : nextafterf(t, TezInfinityf);
}

// The epsilon that pushes a step past the cell's exit. The stated epsilons
// are absolute: on a large tree, or far from one, they round away against t
// or the position, and the ray would stand on the same cell for millions of
// steps. A step that lands on the cell it started from therefore gets a
// larger epsilon, four times larger at each further repeat, up to cap (half
// the cell along the ray's main axis). One repeat keeps the stated epsilon:
// a step can land on its exit boundary by rounding alone.
TEZ_KERNELFN float StepEpsilon(float epsilon, int repeats, float cap)
{
    if (repeats < 2)
        return epsilon;
    float grown = epsilon;
    for (int k = 1; k < repeats && grown < cap; ++k)
        grown *= 4.0f;
    grown = grown < cap ? grown : cap;
    return grown > epsilon ? grown : epsilon;
}

// Work of one march, for measurements; the kernels pass no counters.
struct MarchCounters
{
    unsigned steps;  // descents from the root
    unsigned voxels; // brick voxels visited
};

// Where one descent from the root stopped: the node, the ray's point inside
// its cell (f, in cell units), the cell's edge and level, the node's integer
// coordinates at that level, and its index in the pool. left: the point lay
// outside the tree.
struct Descent
{
    Node node;
    float3s f;
    float cell;
    int level;
    int nx, ny, nz;
    int index;
    bool left;
};

// The level a descent at distance t may reach: finer near the eye. At t = 0
// the quotient overflows the conversion to the largest int, which is no limit.
TEZ_KERNEL_STEP int LevelLimit(const Octree& oct, float t)
{
    const int lod = ToInt(static_cast<float>(oct.maxDepth) / ApproxSqrt(t / (oct.voxelSize * 750.0f)) + 0.5f);
    return lod > 2 ? lod : 2;
}

// Descends from the root to the childless node (or the node at level lod)
// that holds the ray's point at t.
TEZ_KERNEL_STEP Descent Descend(const Octree& oct, const Ray& ray, float t, int lod)
{
    Descent d{};
    float3s q = Scale(Add(ray.origin, Scale(ray.dir, t)), 2.0f);
    int ix = ToInt(q.x), iy = ToInt(q.y), iz = ToInt(q.z);
    if (OutsideUnit(ix, 1) || OutsideUnit(iy, 1) || OutsideUnit(iz, 1)) {
        d.left = true;
        return d;
    }
    int base = 1;
    d.cell = 0.5f;
    for (;;) {
        d.f = Make3(q.x - static_cast<float>(ix), q.y - static_cast<float>(iy), q.z - static_cast<float>(iz));
        d.nx += ix, d.ny += iy, d.nz += iz;
        d.index = base + ix + 2 * iy + 4 * iz;
        d.node = oct.nodes[d.index];
        const uint32_t children = d.node.children & TezNodeLowMask;
        if (children == 0 || d.level == lod)
            return d;
        base = static_cast<int>(children);
        d.nx *= 2, d.ny *= 2, d.nz *= 2;
        ++d.level;
        d.cell = d.cell / 2.0f;
        q = Scale(d.f, 2.0f);
        ix = ToInt(q.x), iy = ToInt(q.y), iz = ToInt(q.z);
        if (OutsideUnit(ix, 1) || OutsideUnit(iy, 1) || OutsideUnit(iz, 1)) {
            d.left = true;
            return d;
        }
    }
}

// Walks the voxels of the brick of node d along the ray until a voxel's
// classification differs from `inside` or the ray leaves the cell
// (exitLocal: the exit in the cell's units). Adds the distance walked to
// r.hitDepth while nothing is hit.
template <class V>
TEZ_KERNEL_STEP void WalkBrick(const Octree& oct, const Ray& ray, const float* table, bool inside, const V* brick,
                               const Descent& d, float exitLocal, bool& onCut, float cutShade, MarchResult& r,
                               MarchCounters* counters)
{
    const float3s v0 = Scale(d.f, 16.0f);
    float3s v = v0;
    float s = 0.0f;
    const float limit = 16.0f * exitLocal;
    const float voxelCell = d.cell / 16.0f;
    int lastVoxel = -1, voxelRepeats = 0;
    if (!(limit > 0.0f && r.alpha < 1.0f))
        return;
    do {
        const int bx = ToInt(v.x), by = ToInt(v.y), bz = ToInt(v.z);
        if (OutsideUnit(bx, 15) || OutsideUnit(by, 15) || OutsideUnit(bz, 15))
            break;
        const int voxel = BrickIndex(bx, by, bz);
        voxelRepeats = voxel == lastVoxel ? voxelRepeats + 1 : 0;
        lastVoxel = voxel;
        if (counters)
            ++counters->voxels;
        const float3s local =
            Make3(v.x - static_cast<float>(bx), v.y - static_cast<float>(by), v.z - static_cast<float>(bz));
        const float e = Min3(Add(Mul(ray.inv, local), ray.exitBias));
        s = s + e + StepEpsilon(0.001f, voxelRepeats, 0.5f * ray.unitT);
        const float3s next = Add(v0, Scale(ray.dir, s));
        if (r.alpha == 0.0f)
            r.hitDepth = r.hitDepth + voxelCell * e;
        const float entry = TableEntry(table, oct.valueScale, static_cast<float>(brick[voxel]));
        if ((entry >= OpaqueThreshold) != inside) {
            if (onCut) {
                r.shade = cutShade;
            } else {
                const float3s g = Gradient(oct, brick, d.nx, d.ny, d.nz, d.level, bx, by, bz);
                r.shade = ShadeFromGradient(g, ray.viewDir);
            }
            r.alpha = 1.0f;
            r.opacity = entry;
        }
        onCut = false;
        v = next;
    } while (r.alpha < 1.0f && s < limit);
}

// Walks the ray from t through the tree, restarting every step at the root:
// descend to the node at t, then either classify a uniform node, step over a
// brick that cannot change the classification, or walk the brick; then step
// past the cell. A surface is where the opacity differs from `inside`
// (false: first hit).
template <class V>
TEZ_KERNELFN MarchResult March(const Octree& oct, const Ray& ray, const float* table, bool inside, float t,
                               MarchCounters* counters = nullptr)
{
    MarchResult r{0.0f, 0.0f, 0.0f, 0.0f};
    const V* leaves = static_cast<const V*>(oct.leaves);
    // A hit on the very first sample of a march that starts on the cut plane
    // is the cut face itself.
    bool onCut = ray.cutEntry && t <= ray.tEntry && (oct.looks & LookCutShading);
    const float cutShade = Saturate(Dot(ray.viewDir, ray.cutNormal) + 0.2f);
    int stopCounter = 0;
    int lastNode = -1, nodeRepeats = 0;
    while (r.alpha < 1.0f && t < ray.tExit && stopCounter < 1) {
        if (r.alpha == 0.0f)
            r.hitDepth = t;
        if (counters)
            ++counters->steps;
        const Descent d = Descend(oct, ray, t, LevelLimit(oct, t));
        if (d.left) {
            t = ray.tExit;
            continue;
        }

        nodeRepeats = d.index == lastNode ? nodeRepeats + 1 : 0;
        lastNode = d.index;
        const float exitLocal = Min3(Add(Mul(ray.inv, d.f), ray.exitBias));
        const float advance = d.cell * exitLocal + StepEpsilon(0.0005f, nodeRepeats, 0.5f * d.cell * ray.unitT);
        const Node& node = d.node;

        if (!(node.children & TezNodeFlagBit)) {
            const float entry = TableEntry(table, oct.valueScale, static_cast<float>(node.data));
            if ((entry >= OpaqueThreshold) != inside) {
                r.shade = onCut ? cutShade : ((oct.looks & LookFaceShading) ? FaceShade(ray, d.f) : 1.0f);
                r.alpha = 1.0f;
                r.opacity = entry;
            }
            onCut = false;
        } else if (oct.skipByState && node.state == (inside ? TezNodeStateFull : TezNodeStateEmpty) &&
                   (node.data & TezNodeFlagBit)) {
            // Every voxel of this brick classifies as the ray already does:
            // walking it could not hit, and t moves on as after the walk.
            onCut = false;
        } else if (!(node.data & TezNodeFlagBit)) {
            // A brick flag without a brick: the ray ends here.
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

// The march the pixel kernels use unless told otherwise: March above. The
// host loops pass one of their own (OctreeHostMarch.h) that finds the same
// hits.
struct RestartMarch
{
    template <class V>
    TEZ_KERNELFN static MarchResult Run(const Octree& oct, const Ray& ray, const float* table, bool inside, float t)
    {
        return March<V>(oct, ray, table, inside, t);
    }
};

// The 24-bit depth of a distance along the ray of pixel (x, y), in a word.
TEZ_KERNELFN uint32_t DepthWord(const Camera& cam, const RayFrame& frame, int x, int y, float hitDepth)
{
    const float aspect = frame.aspect;
    const float h = frame.h;
    const float ndcX = 2.0f * static_cast<float>(x) / static_cast<float>(cam.width) - 1.0f;
    const float ndcY = 2.0f * static_cast<float>(y) / static_cast<float>(cam.height) - 1.0f;
    const float a = aspect * ndcX * h;
    const float b = ndcY * h;
    const float range = cam.far - cam.near;
    float ndc;
    if (cam.perspective) {
        const float z = hitDepth / sqrtf(a * a + b * b + 1.0f);
        ndc = (cam.far + cam.near) / range + (-2.0f * cam.far * cam.near / range) / z;
    } else {
        ndc = (hitDepth - cam.near) / range;
    }
    const double scaled = 16777216.0 * static_cast<double>(ndc * 0.5f + 0.5f);
    return ToUint(floorf(static_cast<float>(scaled)));
}

TEZ_KERNELFN uint32_t DepthWord(const Camera& cam, int x, int y, float hitDepth)
{
    return DepthWord(cam, MakeRayFrame(cam), x, y, hitDepth);
}

TEZ_KERNELFN uint8_t ColourByte(float v) { return static_cast<uint8_t>(ToUint(Saturate(v) * 255.0f)); }

template <class T>
TEZ_KERNELFN T* PitchedAt(T* base, uint32_t pitch, int row, int x)
{
    return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(base) + static_cast<size_t>(row) * pitch) + x;
}

template <class T>
TEZ_KERNELFN const T* PitchedAt(const T* base, uint32_t pitch, int row, int x)
{
    return reinterpret_cast<const T*>(reinterpret_cast<const unsigned char*>(base) + static_cast<size_t>(row) * pitch) +
           x;
}

// Colour and depth of a solid pixel from its ray's march: a hit in front
// of far is written, anything else leaves the pixel as it was.
TEZ_KERNELFN void WriteSolidPixel(const SolidLaunch& a, const RayFrame& frame, int x, int y, const MarchResult& r)
{
    const Camera& cam = a.camera;
    if (!(r.alpha > 0.0f && r.hitDepth <= cam.far))
        return;
    const float3s& colour = a.colour;
    *PitchedAt(a.image, a.imagePitch, y, x) =
        uchar4s{ColourByte(colour.x * r.shade), ColourByte(colour.y * r.shade), ColourByte(colour.z * r.shade), 255};
    *PitchedAt(a.depth, a.depthPitch, y, x) = DepthWord(cam, frame, x, y, r.hitDepth);
}

template <class V, class Range, class Marcher = RestartMarch>
TEZ_KERNELFN void RenderSolidPixel(const SolidLaunch& a, const RayFrame& frame, const Range& range, int x, int y)
{
    const Camera& cam = a.camera;
    if (x >= cam.width || y >= cam.height)
        return;
    Ray ray;
    if (!SetUpRay(cam, frame, a.transform, x, y, range, ray))
        return;
    WriteSolidPixel(a, frame, x, y, Marcher::template Run<V>(a.octree, ray, a.lookup.table, false, ray.tEntry));
}

// Where a transparent pixel's marches stand between two of them: the next
// layer, the side its march starts on, from where, and the opacity of the
// material the ray is in, for its way out.
struct LayerWalk
{
    int layer;
    bool inside;
    float start;
    float opacity;
};

TEZ_KERNELFN LayerWalk StartLayers(const TransparentLaunch& a)
{
    return LayerWalk{0, a.lookup.flags[0] != 0, 0.0f, 1.0f};
}

// Files the surface march r found as layer w.layer of pixel (x, y) and sets
// w up for the next march; false when the pixel has no more layers to seek.
TEZ_KERNELFN bool StoreLayer(const TransparentLaunch& a, int x, int y, const MarchResult& r, LayerWalk& w)
{
    const Camera& cam = a.camera;
    const int layerCount = a.layerCount;
    uchar4s* colourLayers = a.colourLayers;
    float* rayLayers = a.rayLayers;
    const uint32_t colourPitch = a.colourPitch, rayPitch = a.rayPitch;
    const float4s& colour = a.colour;
    if (!(r.alpha > 0.0f && r.hitDepth <= cam.far))
        return false;
    float alpha = r.alpha;
    if (a.octree.looks & LookTableOpacity) {
        if (!w.inside)
            w.opacity = Saturate(r.opacity);
        alpha = w.opacity;
    }
    const uchar4s hit{ColourByte(colour.x * r.shade), ColourByte(colour.y * r.shade), ColourByte(colour.z * r.shade),
                      ColourByte(colour.w * alpha)};
    w.inside = !w.inside;

    // Insert into the layers sorted by distance; 0 marks an empty slot and
    // an equal distance goes behind the stored one.
    bool stored = false;
    for (int j = w.layer; j < layerCount && !stored; ++j) {
        const float there = *PitchedAt(rayLayers, rayPitch, j * cam.height + y, x);
        if (there > r.hitDepth || there == 0.0f) {
            for (int k = layerCount - 1; k > j; --k) {
                *PitchedAt(rayLayers, rayPitch, k * cam.height + y, x) =
                    *PitchedAt(rayLayers, rayPitch, (k - 1) * cam.height + y, x);
                *PitchedAt(colourLayers, colourPitch, k * cam.height + y, x) =
                    *PitchedAt(colourLayers, colourPitch, (k - 1) * cam.height + y, x);
            }
            *PitchedAt(rayLayers, rayPitch, j * cam.height + y, x) = r.hitDepth;
            *PitchedAt(colourLayers, colourPitch, j * cam.height + y, x) = hit;
            stored = true;
        }
    }
    if (!stored)
        return false;
    w.start = r.hitDepth + 4.0f * a.octree.voxelSize;
    return ++w.layer < layerCount;
}

template <class V, class Range, class Marcher = RestartMarch>
TEZ_KERNELFN void RenderTransparentPixel(const TransparentLaunch& a, const RayFrame& frame, const Range& range, int x,
                                         int y)
{
    if (x >= a.camera.width || y >= a.camera.height)
        return;
    Ray ray;
    if (!SetUpRay(a.camera, frame, a.transform, x, y, range, ray))
        return;
    LayerWalk w = StartLayers(a);
    if (w.layer >= a.layerCount)
        return;
    for (;;) {
        const MarchResult r =
            Marcher::template Run<V>(a.octree, ray, a.lookup.table, w.inside, MaxF(ray.tEntry, w.start));
        if (!StoreLayer(a, x, y, r, w))
            return;
    }
}

// Composites the layers of pixel (x, y) back to front into image and depth.
TEZ_KERNELFN void BlendPixel(const BlendLaunch& a, const RayFrame& frame, int x, int y)
{
    const Camera& cam = a.camera;
    const int layerCount = a.layerCount;
    const uchar4s* colourLayers = a.colourLayers;
    const float* rayLayers = a.rayLayers;
    const uint32_t colourPitch = a.colourPitch, rayPitch = a.rayPitch, depthPitch = a.depthPitch,
                   imagePitch = a.imagePitch;
    uint32_t* depth = a.depth;
    uchar4s* image = a.image;
    if (x >= cam.width || y >= cam.height)
        return;
    const float first = *PitchedAt(rayLayers, rayPitch, y, x);
    if (!(first > 0.0f))
        return;
    *PitchedAt(depth, depthPitch, y, x) = DepthWord(cam, frame, x, y, first);

    uint32_t running[3] = {0, 0, 0};
    bool met = false;
    for (int k = layerCount - 1; k >= 1; --k) {
        if (!(*PitchedAt(rayLayers, rayPitch, k * cam.height + y, x) > 0.0f))
            continue;
        if (!met) {
            const uchar4s c = *PitchedAt(colourLayers, colourPitch, k * cam.height + y, x);
            running[0] = c.x, running[1] = c.y, running[2] = c.z;
            met = true;
        }
        const uchar4s over = *PitchedAt(colourLayers, colourPitch, (k - 1) * cam.height + y, x);
        const float a = static_cast<float>(over.w) / 255.0f;
        const uint8_t channels[3] = {over.x, over.y, over.z};
        for (int c = 0; c < 3; ++c)
            running[c] = ToUint(a * static_cast<float>(channels[c]) + (1.0f - a) * static_cast<float>(running[c]));
    }
    const uchar4s base = *PitchedAt(colourLayers, colourPitch, y, x);
    if (!met)
        running[0] = base.x, running[1] = base.y, running[2] = base.z;
    *PitchedAt(image, imagePitch, y, x) = uchar4s{static_cast<uint8_t>(running[0]), static_cast<uint8_t>(running[1]),
                                                  static_cast<uint8_t>(running[2]), base.w};
}

// State of one childless node from its value or its brick; nodes with
// children are left to the host pass.
template <class V>
TEZ_KERNELFN void NodeState(const Octree& oct, int nodeCount, const float* table, int index)
{
    if (index < 0 || index >= nodeCount)
        return;
    Node& node = oct.nodes[index];
    if ((node.children & TezNodeLowMask) != 0)
        return;
    if (!(node.children & TezNodeFlagBit)) {
        node.state =
            IsOpaque(table, oct.valueScale, static_cast<float>(node.data)) ? TezNodeStateFull : TezNodeStateEmpty;
        return;
    }
    if (!(node.data & TezNodeFlagBit))
        return;
    const V* brick =
        static_cast<const V*>(oct.leaves) + static_cast<size_t>(node.data & TezNodeLowMask) * TezBrickVoxels;
    const bool first = IsOpaque(table, oct.valueScale, static_cast<float>(brick[0]));
    for (int k = 1; k < TezBrickVoxels; ++k)
        if (IsOpaque(table, oct.valueScale, static_cast<float>(brick[k])) != first) {
            node.state = TezNodeStateBoundary;
            return;
        }
    node.state = first ? TezNodeStateFull : TezNodeStateEmpty;
}

// Index of the childless node holding voxel (x, y, z) of a tree of treeSize
// voxels, or -1 outside the tree.
TEZ_KERNELFN int LeafAt(const Octree& oct, int x, int y, int z)
{
    if (oct.treeSize < 2 || OutsideUnit(x, oct.treeSize - 1) || OutsideUnit(y, oct.treeSize - 1) ||
        OutsideUnit(z, oct.treeSize - 1))
        return -1;
    int base = 1;
    int half = oct.treeSize >> 1;
    for (;;) {
        const int index = base + ((x / half) & 1) + 2 * ((y / half) & 1) + 4 * ((z / half) & 1);
        const uint32_t children = oct.nodes[index].children & TezNodeLowMask;
        if (children == 0 || half == 1)
            return index;
        base = static_cast<int>(children);
        half >>= 1;
    }
}

// Marks full nodes of column (x, y) that touch a node that is not full.
TEZ_KERNELFN void NodeStateAdjacentColumn(const Octree& oct, int x, int y)
{
    if (x >= oct.treeSize || y >= oct.treeSize)
        return;
    for (int z = 0; z < oct.treeSize; ++z) {
        const int index = LeafAt(oct, x, y, z);
        if (index < 0 || oct.nodes[index].state != TezNodeStateFull)
            continue;
        const int offsets[6][3] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}};
        for (int k = 0; k < 6; ++k) {
            const int other = LeafAt(oct, x + offsets[k][0], y + offsets[k][1], z + offsets[k][2]);
            if (other >= 0 && other != index && oct.nodes[other].state != TezNodeStateFull) {
                oct.nodes[index].state = TezNodeStateBoundary;
                break;
            }
        }
    }
}

} // namespace TezOctreeDevice
