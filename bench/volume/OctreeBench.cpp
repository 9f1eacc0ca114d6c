// Voxel octree build: from memory against OpenVDB's dense-to-sparse copy
// (both on all threads, bytes per voxel of both), from PNG, 8-bit TIFF and
// 16-bit TIFF stacks against the bare decode of the same files, and the peak
// memory of a build from files against its limit. Then first-hit ray casting
// of the built octree against OpenVDB on a grid of the same threshold.
//
// The phantom is 512^3, CT-like, with air exactly 0 around the body.

#include "volume/ImageStack.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelOctree.h"

#include "Phantom.h"

#include <FreeImage.h>
#include <benchmark/benchmark.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#if TEZ_PEER_BENCH
#    include "OpenVDBPeer.h"
#endif

namespace {
constexpr int kEdge = 512;
constexpr uint64_t kVoxels = uint64_t(kEdge) * kEdge * kEdge;

template <typename Voxel>
std::vector<Voxel> const& Phantom()
{
    static std::vector<Voxel> const voxels = [] {
        std::vector<Voxel> v(kVoxels);
        tezbench::PhantomShape shape;
        shape.nz = kEdge;
        tbb::parallel_for(0, kEdge, [&](int z) {
            tezbench::FillPhantomSlice(v.data() + uint64_t(z) * kEdge * kEdge, z, shape, 20240611, true);
        });
        return v;
    }();
    return voxels;
}

template <typename Voxel>
TezRef<TezMemoryVolume> PhantomVolume()
{
    if constexpr (sizeof(Voxel) == 1)
        return TezMemoryVolume::Create8(kEdge, kEdge, kEdge, Phantom<uint8_t>());
    else
        return TezMemoryVolume::Create16(kEdge, kEdge, kEdge, Phantom<uint16_t>());
}

void ReportTree(benchmark::State& state, TezVoxelOctree& tree)
{
    uint64_t const nodes = tree.GetNodePool().GetNumElements();
    uint64_t const bricks = tree.GetLeafPool().GetNumElements();
    uint64_t const bytes = nodes * sizeof(TezVoxelOctreeNode) + bricks * 4096u * (tree.GetBitsPerPixel() / 8);
    state.counters["nodes"] = double(nodes);
    state.counters["bricks"] = double(bricks);
    state.counters["bytes/voxel"] = double(bytes) / double(kVoxels);
}

template <typename Voxel>
void BM_OctreeBuildFromMemory(benchmark::State& state)
{
    TezRef<TezMemoryVolume> volume = PhantomVolume<Voxel>();
    TezRef<TezVoxelOctree> tree;
    for (auto _ : state)
        tree = TezVoxelOctree::CreateFromVolumeData("bench", volume, 1.0, 8 * int(sizeof(Voxel)), 1024);
    state.counters["Mvoxels/s"] =
        benchmark::Counter(double(kVoxels) * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    ReportTree(state, *tree);
}
BENCHMARK_TEMPLATE(BM_OctreeBuildFromMemory, uint8_t)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_TEMPLATE(BM_OctreeBuildFromMemory, uint16_t)->Unit(benchmark::kMillisecond)->UseRealTime();

#if TEZ_PEER_BENCH
template <typename Voxel>
void BM_OpenVDBCopyFromDense(benchmark::State& state)
{
    std::vector<Voxel> const& voxels = Phantom<Voxel>();
    uint64_t active = 0, bytes = 0;
    for (auto _ : state)
        active = tezpeer::OpenVDBCopyFromDense(voxels.data(), kEdge, int(sizeof(Voxel)), &bytes);
    state.counters["Mvoxels/s"] =
        benchmark::Counter(double(kVoxels) * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["active"] = double(active);
    state.counters["bytes/voxel"] = double(bytes) / double(kVoxels);
}
BENCHMARK_TEMPLATE(BM_OpenVDBCopyFromDense, uint8_t)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_TEMPLATE(BM_OpenVDBCopyFromDense, uint16_t)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// The phantom as 512 slice files in a temporary folder, written once: PNG
// and TIFF of the 8-bit phantom, uncompressed TIFF of the 16-bit one.
enum class Stack { Png8, Tiff8, Tiff16 };

char const* StackName(Stack kind) { return kind == Stack::Png8 ? "png" : (kind == Stack::Tiff8 ? "tif" : "tif16"); }

std::string const& SliceStack(Stack kind)
{
    static std::string patterns[3];
    std::string& pattern = patterns[int(kind)];
    if (!pattern.empty())
        return pattern;
    std::string const folder = (std::filesystem::temp_directory_path() /
                                ("tez-octree-bench-" + std::to_string(getpid()) + "-" + StackName(kind)))
                                   .string();
    std::filesystem::create_directories(folder);
    pattern = folder + (kind == Stack::Png8 ? "/slice%04d.png" : "/slice%04d.tif");
    FREE_IMAGE_FORMAT const format = kind == Stack::Png8 ? FIF_PNG : FIF_TIFF;
    int const bytes = kind == Stack::Tiff16 ? 2 : 1;
    uint8_t const* voxels =
        bytes == 2 ? reinterpret_cast<uint8_t const*>(Phantom<uint16_t>().data()) : Phantom<uint8_t>().data();
    tbb::parallel_for(0, kEdge, [&](int z) {
        FIBITMAP* bitmap =
            bytes == 2 ? FreeImage_AllocateT(FIT_UINT16, kEdge, kEdge, 16) : FreeImage_Allocate(kEdge, kEdge, 8);
        for (int y = 0; y < kEdge; ++y)
            std::memcpy(FreeImage_GetScanLine(bitmap, y), voxels + ((uint64_t(z) * kEdge + y) * kEdge) * bytes,
                        size_t(kEdge) * bytes);
        char name[4096];
        std::snprintf(name, sizeof name, pattern.c_str(), z);
        FreeImage_Save(format, bitmap, name, format == FIF_PNG ? PNG_Z_BEST_SPEED : TIFF_NONE);
        FreeImage_Unload(bitmap);
    });
    return pattern;
}

void BM_DecodeStack(benchmark::State& state, Stack kind)
{
    std::string const& pattern = SliceStack(kind);
    FREE_IMAGE_FORMAT const format = kind == Stack::Png8 ? FIF_PNG : FIF_TIFF;
    for (auto _ : state) {
        // The same 2x-hardware-thread parallel read the image stack uses.
        int const workers = 2 * int(std::max(1u, std::thread::hardware_concurrency()));
        tbb::parallel_for(0, workers, [&](int w) {
            for (int z = w; z < kEdge; z += workers) {
                char name[4096];
                std::snprintf(name, sizeof name, pattern.c_str(), z);
                FIBITMAP* bitmap = FreeImage_Load(format, name);
                benchmark::DoNotOptimize(FreeImage_GetBits(bitmap));
                FreeImage_Unload(bitmap);
            }
        });
    }
    state.counters["Mvoxels/s"] =
        benchmark::Counter(double(kVoxels) * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK_CAPTURE(BM_DecodeStack, png, Stack::Png8)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK_CAPTURE(BM_DecodeStack, tiff, Stack::Tiff8)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK_CAPTURE(BM_DecodeStack, tiff16, Stack::Tiff16)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

void BM_OctreeBuildFromStack(benchmark::State& state, Stack kind)
{
    std::string const& pattern = SliceStack(kind);
    TezRef<TezVoxelOctree> tree;
    for (auto _ : state) {
        TezRef<TezImageStack> stack = TezImageStack::Create(pattern.c_str(), 0, kEdge - 1);
        tree = TezVoxelOctree::CreateFromVolumeData("bench", stack, 1.0, kind == Stack::Tiff16 ? 16 : 8, 1024);
    }
    state.counters["Mvoxels/s"] =
        benchmark::Counter(double(kVoxels) * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    ReportTree(state, *tree);
}
BENCHMARK_CAPTURE(BM_OctreeBuildFromStack, png, Stack::Png8)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);
BENCHMARK_CAPTURE(BM_OctreeBuildFromStack, tiff, Stack::Tiff8)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);
BENCHMARK_CAPTURE(BM_OctreeBuildFromStack, tiff16, Stack::Tiff16)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);

long StatusKiB(char const* field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field, 0) == 0)
            return std::stol(line.substr(std::strlen(field) + 1));
    return -1;
}

// Peak resident growth of a build from the PNG stack at a memory limit, in
// a child process so that nothing else this binary holds is counted.
void BM_OctreeBuildPeakMemory(benchmark::State& state)
{
    int const limit = int(state.range(0));
    std::string const& pattern = SliceStack(Stack::Png8);
    double growthMiB = 0, poolsMiB = 0;
    for (auto _ : state) {
        int pipeFds[2];
        if (pipe(pipeFds) != 0) {
            state.SkipWithError("pipe failed");
            return;
        }
        pid_t const child = fork();
        if (child == 0) {
            malloc_trim(0);
            std::ofstream("/proc/self/clear_refs") << "5"; // restart the peak from here
            long const before = StatusKiB("VmRSS:");
            TezRef<TezImageStack> stack = TezImageStack::Create(pattern.c_str(), 0, kEdge - 1);
            TezRef<TezVoxelOctree> tree = TezVoxelOctree::CreateFromVolumeData("bench", stack, 1.0, 8, limit);
            double figures[2] = {double(StatusKiB("VmHWM:") - before) / 1024.0,
                                 double(tree->GetNodePool().GetSizeBytes() + tree->GetLeafPool().GetSizeBytes()) /
                                     1048576.0};
            ssize_t const written = write(pipeFds[1], figures, sizeof figures);
            _exit(written == sizeof figures ? 0 : 1);
        }
        double figures[2] = {0, 0};
        ssize_t const got = read(pipeFds[0], figures, sizeof figures);
        close(pipeFds[0]);
        close(pipeFds[1]);
        waitpid(child, nullptr, 0);
        if (got != sizeof figures) {
            state.SkipWithError("child failed");
            return;
        }
        growthMiB = figures[0];
        poolsMiB = figures[1];
    }
    state.counters["peakMiB"] = growthMiB;
    state.counters["limitMiB"] = limit;
    state.counters["poolsMiB"] = poolsMiB;
    state.counters["peak/(limit+pools)"] = growthMiB / (limit + poolsMiB);
}
BENCHMARK(BM_OctreeBuildPeakMemory)->Arg(64)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
} // namespace

// ---- Ray casting the built octree: 1024 x 768 from the "tilted" view ----

#include "render/OctreeCamera.h"
#include "volume/device/OctreeHostMarch.h"
#include "volume/device/OctreeRender.h"
#include "volume/device/OctreeScreen.h"

namespace {
constexpr int kWidth = 1024, kHeight = 768;
// Opaque from grey 77 up (about 200 HU in the 8-bit phantom): bone and table.
constexpr int kThreshold = 77;

struct RenderScene
{
    TezRef<TezVoxelOctree> tree;
    TezOctreeRenderSource source;
    std::vector<float> table = std::vector<float>(256, 0.0f);
    std::vector<uint64_t> masks;
    TezOctreeDevice::Camera camera, perspective;
    TezMatrix44<float> matrix;

    RenderScene()
    {
        tree = TezVoxelOctree::CreateFromVolumeData("bench", PhantomVolume<uint8_t>(), 1.0, 8, 1024);
        for (int i = kThreshold; i < 256; ++i)
            table[size_t(i)] = 1.0f;
        auto& nodes = tree->GetNodePool();
        auto& leaves = tree->GetLeafPool();
        nodes.WriteToCUDA();
        leaves.WriteToCUDA();
        source.bitsPerPixel = 8;
        source.voxelSize = 1.0f;
        source.maxDepth = tree->GetMaxDepth();
        source.treeSize = tree->GetTreeSize();
        source.nodes = static_cast<TezOctreeDevice::Node*>(nodes.GetCUDA());
        source.leaves = leaves.GetCUDA();
        source.nodeCount = int32_t(nodes.GetNumElements());
        TezCalculateOctreeNodeStates(source, table.data(), false);
        TezCalculateOctreeBlockMasks(source, table.data(), masks);
        source.blockMasks = masks.data();
        source.statesValid = true;

        TezRef<TezCameraView> view = TezCameraView::Create();
        view->Resize(kWidth, kHeight);
        TezVector3<float> eye, focus, up;
        TezBox3<float> const bounds = tree->GetBounds();
        view->CalcStandardView(bounds, TezIdentityTransform<float>(), TezCameraView::Tilted, view->GetFov(), eye, focus,
                               up);
        view->SetEye(eye);
        view->SetFocus(focus);
        view->SetUp(up);
        view->NearFarToBox(bounds);
        camera = TezMakeOctreeCamera(*view); // a new view's default: orthographic
        view->UsePerspective(true);
        perspective = TezMakeOctreeCamera(*view);
        matrix = TezScaleTransform<float>(float(tree->GetTreeSize()));
    }
};

RenderScene& Scene()
{
    static RenderScene scene;
    return scene;
}

void OctreeRaySolid(benchmark::State& state, bool perspective)
{
    RenderScene& scene = Scene();
    const TezOctreeDevice::Camera& camera = perspective ? scene.perspective : scene.camera;
    TezOctreeRenderBuffers buffers(kWidth, kHeight, 0, false);
    for (auto _ : state)
        TezRenderOctreeSolid(buffers.GetTarget(), scene.source, camera, scene.matrix, {1, 1, 1, 1}, scene.table.data());
    std::vector<uint8_t> const image = buffers.ReadImage();
    size_t hits = 0;
    for (size_t i = 3; i < image.size(); i += 4)
        hits += image[i] != 0;
    // Mean descents and voxels read per pixel, over every 4th row, each
    // march from where the render starts it.
    float const unit = float(scene.tree->GetTreeSize());
    float const inverse[16] = {1 / unit, 0, 0, 0, 0, 1 / unit, 0, 0, 0, 0, 1 / unit, 0, 0, 0, 0, 1};
    TezOctreeDevice::Octree const octree = TezMakeOctreeRecord(scene.source);
    using TezOctreeDevice::StartBoxes;
    StartBoxes boxes;
    boxes.Make(camera, inverse, octree, scene.table.data(), false);
    TezOctreeDevice::MarchCounters counters{0, 0};
    double rays = 0;
    float starts[StartBoxes::TileEdge * StartBoxes::TileEdge];
    for (int y = 0; y < kHeight; y += 4)
        for (int x = 0; x < kWidth; ++x, ++rays) {
            const int tx = x - x % StartBoxes::TileEdge, ty = y - y % StartBoxes::TileEdge;
            if (x == tx)
                boxes.TileStarts(tx, ty, starts);
            const float start = starts[(y - ty) * StartBoxes::TileEdge + (x - tx)];
            TezOctreeDevice::Ray ray;
            if (start != StartBoxes::None &&
                TezOctreeDevice::SetUpRay(camera, inverse, x, y, TezOctreeDevice::DefaultRangeFunction{}, ray))
                TezOctreeDevice::MarchWithPath<uint8_t>(octree, ray, scene.table.data(), false,
                                                        std::max(ray.tEntry, start), &counters);
        }
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["Mrays/s"] =
        benchmark::Counter(double(kWidth) * kHeight * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["steps/ray"] = double(counters.steps) / rays;
    state.counters["voxels/ray"] = double(counters.voxels) / rays;
    state.counters["hit_fraction"] = double(hits) / (double(kWidth) * kHeight);
}
void BM_OctreeRaySolid(benchmark::State& state) { OctreeRaySolid(state, false); }
void BM_OctreeRaySolidPerspective(benchmark::State& state) { OctreeRaySolid(state, true); }
BENCHMARK(BM_OctreeRaySolid)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OctreeRaySolidPerspective)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OctreeRayTransparent(benchmark::State& state)
{
    RenderScene& scene = Scene();
    TezOctreeRenderBuffers buffers(kWidth, kHeight, 2, false);
    for (auto _ : state) {
        TezClearOctreeLayers(buffers.GetTarget());
        TezRenderOctreeTransparent(buffers.GetTarget(), scene.source, scene.camera, scene.matrix, {1, 1, 1, 0.5f},
                                   scene.table.data());
        TezBlendOctreeLayers(buffers.GetTarget(), scene.camera);
    }
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["Mrays/s"] =
        benchmark::Counter(double(kWidth) * kHeight * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_OctreeRayTransparent)->Unit(benchmark::kMillisecond)->UseRealTime();

#if TEZ_PEER_BENCH
// The same first hit with OpenVDB, along the ray caster's own world rays, on
// a grid that holds only the voxels at or above the threshold: the peer's
// counterpart of the node states. Grid, intersector and rays are made before
// the timing, as the octree and its states are; each ray's hit distance is
// written out, as the octree writes its depth (the octree also shades its
// hits from a 27-voxel gradient, which the peer does not).
void OpenVDBRayFirstHit(benchmark::State& state, bool perspective)
{
    RenderScene& scene = Scene();
    const TezOctreeDevice::Camera& camera = perspective ? scene.perspective : scene.camera;
    float const identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    std::vector<float> rays(size_t(kWidth) * kHeight * 6), distances(size_t(kWidth) * kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            TezOctreeDevice::Ray r;
            TezOctreeDevice::SetUpRay(camera, identity, x, y, TezOctreeDevice::DefaultRangeFunction{}, r);
            float* out = &rays[(size_t(y) * kWidth + x) * 6];
            out[0] = r.origin.x, out[1] = r.origin.y, out[2] = r.origin.z;
            out[3] = r.viewDir.x, out[4] = r.viewDir.y, out[5] = r.viewDir.z;
        }
    static tezpeer::OpenVDBRayScene const peer(Phantom<uint8_t>().data(), kEdge, kThreshold);
    uint64_t hits = 0;
    for (auto _ : state)
        hits = peer.FirstHits(rays.data(), kWidth * kHeight, distances.data());
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["Mrays/s"] =
        benchmark::Counter(double(kWidth) * kHeight * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["hit_fraction"] = double(hits) / (double(kWidth) * kHeight);
    state.counters["active"] = double(peer.ActiveVoxels());
    state.counters["bytes/voxel"] = double(peer.MemoryBytes()) / double(kVoxels);
}
void BM_OpenVDBRayFirstHit(benchmark::State& state) { OpenVDBRayFirstHit(state, false); }
void BM_OpenVDBRayFirstHitPerspective(benchmark::State& state) { OpenVDBRayFirstHit(state, true); }
BENCHMARK(BM_OpenVDBRayFirstHit)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenVDBRayFirstHitPerspective)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif
} // namespace
