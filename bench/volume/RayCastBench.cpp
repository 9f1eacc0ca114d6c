// Octree ray casting on the host loops: rays per second of solid and layered
// renders of a 256^3 CT-like phantom (8-bit, fixed seed), packed into an
// octree of 16^3 bricks by a plain builder below (uniform where a node's cube
// holds one value, a brick otherwise, children down to bricks of full
// resolution). Bone and the table are opaque. Counters: steps_per_ray (root
// descents per ray), voxels_per_ray (brick voxels visited), hit_fraction.

#include "volume/device/OctreeKernels.inl"
#include "volume/device/OctreeRender.h"

#include "Phantom.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

using namespace TezOctreeDevice;

constexpr int kEdge = 256;

struct SyntheticOctree
{
    std::vector<uint8_t> volume; // kEdge^3, x fastest
    std::vector<Node> nodes;
    std::vector<uint8_t> leaves;
    std::vector<float> table;
    int maxDepth = 0;

    uint8_t At(int x, int y, int z) const { return volume[(size_t(z) * kEdge + y) * kEdge + x]; }

    void Fill(uint32_t index, int x0, int y0, int z0, int edge)
    {
        const uint8_t first = At(x0, y0, z0);
        bool uniform = true;
        for (int z = z0; z < z0 + edge && uniform; ++z)
            for (int y = y0; y < y0 + edge && uniform; ++y)
                for (int x = x0; x < x0 + edge && uniform; ++x)
                    uniform = At(x, y, z) == first;
        if (uniform) {
            nodes[index] = Node{0, first, 0};
            return;
        }
        const uint32_t brick = uint32_t(leaves.size() / TezBrickVoxels);
        const int step = edge / TezBrickEdge;
        for (int z = 0; z < TezBrickEdge; ++z)
            for (int y = 0; y < TezBrickEdge; ++y)
                for (int x = 0; x < TezBrickEdge; ++x)
                    leaves.push_back(At(x0 + x * step, y0 + y * step, z0 + z * step));
        if (edge == TezBrickEdge) {
            nodes[index] = Node{TezNodeFlagBit, TezNodeFlagBit | brick, 0};
            return;
        }
        const uint32_t group = uint32_t(nodes.size());
        nodes.resize(nodes.size() + 8);
        nodes[index] = Node{TezNodeFlagBit | group, TezNodeFlagBit | brick, 0};
        const int half = edge / 2;
        for (int k = 0; k < 8; ++k)
            Fill(group + k, x0 + (k & 1) * half, y0 + ((k >> 1) & 1) * half, z0 + (k >> 2) * half, half);
    }

    SyntheticOctree()
    {
        tezbench::PhantomShape shape;
        shape.nx = shape.ny = shape.nz = kEdge;
        volume.resize(size_t(kEdge) * kEdge * kEdge);
        for (int z = 0; z < kEdge; ++z)
            tezbench::FillPhantomSlice(volume.data() + size_t(z) * kEdge * kEdge, z, shape, 20240611);
        nodes.resize(9);
        nodes[0] = Node{1, 0, 0};
        for (int k = 0; k < 8; ++k)
            Fill(1 + k, (k & 1) * kEdge / 2, ((k >> 1) & 1) * kEdge / 2, (k >> 2) * kEdge / 2, kEdge / 2);
        for (int e = kEdge / 2; e >= TezBrickEdge; e /= 2)
            ++maxDepth;
        table.assign(256, 0.0f);
        for (int i = 80; i < 256; ++i) // above about 260 HU
            table[i] = 1.0f;
    }

    TezOctreeRenderSource Source()
    {
        TezOctreeRenderSource s;
        s.bitsPerPixel = 8;
        s.voxelSize = 1.0f / kEdge;
        s.maxDepth = maxDepth;
        s.treeSize = kEdge;
        s.nodes = nodes.data();
        s.leaves = leaves.data();
        s.nodeCount = int32_t(nodes.size());
        return s;
    }
};

SyntheticOctree& Tree()
{
    static SyntheticOctree tree;
    return tree;
}

TezVector3<float> Normalised(const TezVector3<float>& v) { return v * (1.0f / v.Length()); }

// Camera at eye looking at the cube's centre, z up; the axes are the rows of
// the matrix whose columns are right, up and forward.
Camera LookAtCentre(bool perspective, const TezVector3<float>& eye, int size)
{
    const TezVector3<float> centre(0.5f, 0.5f, 0.5f);
    const TezVector3<float> f = Normalised(centre - eye);
    const TezVector3<float> r = Normalised(f ^ TezVector3<float>(0, 0, 1));
    const TezVector3<float> u = r ^ f;
    const TezVector3<float> axes[3] = {{r.x, u.x, f.x}, {r.y, u.y, f.y}, {r.z, u.z, f.z}};
    const float distance = (centre - eye).Length();
    const float fov = 2.0f * std::atan(0.75f / distance) * 180.0f / 3.1415927f;
    return TezMakeOctreeCamera(perspective, eye, axes, centre, 0.1f, 10.0f, fov, size, size);
}

Camera ViewCamera(int view, int size)
{
    return view == 0 ? LookAtCentre(false, {0.5f, -1.5f, 0.5f}, size) : LookAtCentre(true, {2.0f, -1.2f, 1.4f}, size);
}

const TezMatrix44<float> kIdentity({1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1});

void Measure(benchmark::State& state, const Camera& cam)
{
    SyntheticOctree& tree = Tree();
    const Octree oct = TezMakeOctreeRecord(tree.Source());
    const float T[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    MarchCounters counters{0, 0};
    unsigned hits = 0;
    for (int y = 0; y < cam.height; ++y)
        for (int x = 0; x < cam.width; ++x) {
            Ray ray;
            if (SetUpRay(cam, T, x, y, DefaultRangeFunction{}, ray))
                hits += March<uint8_t>(oct, ray, tree.table.data(), false, ray.tEntry, &counters).alpha > 0.0f;
        }
    const double rays = double(cam.width) * cam.height;
    state.counters["steps_per_ray"] = counters.steps / rays;
    state.counters["voxels_per_ray"] = counters.voxels / rays;
    state.counters["hit_fraction"] = hits / rays;
    state.counters["bricks"] = double(tree.leaves.size() / TezBrickVoxels);
}

void BM_RayCastSolid(benchmark::State& state)
{
    const int size = int(state.range(1));
    const Camera cam = ViewCamera(int(state.range(0)), size);
    SyntheticOctree& tree = Tree();
    TezOctreeRenderBuffers buffers(size, size, 0, false);
    for (auto _ : state)
        TezRenderOctreeSolid(buffers.GetTarget(), tree.Source(), cam, kIdentity, {1, 1, 1, 1}, tree.table.data());
    state.SetItemsProcessed(state.iterations() * int64_t(size) * size);
    state.SetLabel(state.range(0) == 0 ? "orthographic front" : "perspective oblique");
    Measure(state, cam);
}
BENCHMARK(BM_RayCastSolid)->Args({0, 512})->Args({1, 512})->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RayCastTransparent(benchmark::State& state)
{
    const int size = int(state.range(1));
    const Camera cam = ViewCamera(int(state.range(0)), size);
    SyntheticOctree& tree = Tree();
    TezOctreeRenderBuffers buffers(size, size, 2, false);
    for (auto _ : state) {
        TezClearOctreeLayers(buffers.GetTarget());
        TezRenderOctreeTransparent(buffers.GetTarget(), tree.Source(), cam, kIdentity, {1, 1, 1, 0.5f},
                                   tree.table.data());
        TezBlendOctreeLayers(buffers.GetTarget(), cam);
    }
    state.SetItemsProcessed(state.iterations() * int64_t(size) * size);
    state.SetLabel(state.range(0) == 0 ? "orthographic front, 2 layers" : "perspective oblique, 2 layers");
}
BENCHMARK(BM_RayCastTransparent)->Args({1, 512})->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
