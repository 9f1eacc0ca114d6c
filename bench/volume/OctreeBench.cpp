// Voxel octree build: from memory against OpenVDB's dense-to-sparse copy,
// from PNG and TIFF stacks against the bare decode of the same files, and the
// peak memory of a build from files against its limit.
//
// The phantom is 512^3, CT-like, with air exactly 0 around the body.

#include "volume/ImageStack.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelOctree.h"

#include "Phantom.h"

#include <FreeImage.h>
#include <benchmark/benchmark.h>
#include <tbb/parallel_for.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#if TEZ_PEER_BENCH
#include <openvdb/openvdb.h>
#include <openvdb/tools/Dense.h>
#endif

namespace
{
constexpr int kEdge = 512;
constexpr uint64_t kVoxels = uint64_t(kEdge) * kEdge * kEdge;

template <typename Voxel> std::vector<Voxel> const& Phantom()
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

template <typename Voxel> TezRef<TezMemoryVolume> PhantomVolume()
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

template <typename Voxel> void BM_OctreeBuildFromMemory(benchmark::State& state)
{
    TezRef<TezMemoryVolume> volume = PhantomVolume<Voxel>();
    TezRef<TezVoxelOctree> tree;
    for (auto _ : state)
        tree = TezVoxelOctree::CreateFromVolumeData("bench", volume, 1.0,
                                                    8 * int(sizeof(Voxel)), 1024);
    state.counters["Mvoxels/s"] =
        benchmark::Counter(double(kVoxels) * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    ReportTree(state, *tree);
}
BENCHMARK_TEMPLATE(BM_OctreeBuildFromMemory, uint8_t)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_TEMPLATE(BM_OctreeBuildFromMemory, uint16_t)->Unit(benchmark::kMillisecond)->UseRealTime();

#if TEZ_PEER_BENCH
template <typename Voxel> void BM_OpenVDBCopyFromDense(benchmark::State& state)
{
    openvdb::initialize();
    using Tree = typename openvdb::tree::Tree4<Voxel, 5, 4, 3>::Type;
    using Grid = openvdb::Grid<Tree>;
    std::vector<Voxel>& voxels = const_cast<std::vector<Voxel>&>(Phantom<Voxel>());
    openvdb::CoordBBox const box(openvdb::Coord(0, 0, 0), openvdb::Coord(kEdge - 1, kEdge - 1, kEdge - 1));
    // x fastest, as the phantom is stored.
    openvdb::tools::Dense<Voxel, openvdb::tools::LayoutXYZ> dense(box, voxels.data());
    uint64_t active = 0;
    for (auto _ : state) {
        typename Grid::Ptr grid = Grid::create(Voxel(0));
        openvdb::tools::copyFromDense(dense, *grid, Voxel(0));
        active = grid->activeVoxelCount();
        benchmark::DoNotOptimize(grid);
    }
    state.counters["Mvoxels/s"] =
        benchmark::Counter(double(kVoxels) * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["active"] = double(active);
}
BENCHMARK_TEMPLATE(BM_OpenVDBCopyFromDense, uint8_t)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_TEMPLATE(BM_OpenVDBCopyFromDense, uint16_t)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// The 8-bit phantom as 512 slice files in a temporary folder, written once.
std::string const& SliceStack(FREE_IMAGE_FORMAT format)
{
    static std::string pngPattern, tiffPattern;
    std::string& pattern = format == FIF_PNG ? pngPattern : tiffPattern;
    if (!pattern.empty())
        return pattern;
    std::string const folder = (std::filesystem::temp_directory_path() /
                                ("tez-octree-bench-" + std::to_string(getpid()) + (format == FIF_PNG ? "-png" : "-tif")))
                                   .string();
    std::filesystem::create_directories(folder);
    pattern = folder + (format == FIF_PNG ? "/slice%04d.png" : "/slice%04d.tif");
    std::vector<uint8_t> const& voxels = Phantom<uint8_t>();
    tbb::parallel_for(0, kEdge, [&](int z) {
        FIBITMAP* bitmap = FreeImage_Allocate(kEdge, kEdge, 8);
        for (int y = 0; y < kEdge; ++y)
            std::memcpy(FreeImage_GetScanLine(bitmap, y), voxels.data() + (uint64_t(z) * kEdge + y) * kEdge, kEdge);
        char name[4096];
        std::snprintf(name, sizeof name, pattern.c_str(), z);
        FreeImage_Save(format, bitmap, name, format == FIF_PNG ? PNG_Z_BEST_SPEED : TIFF_NONE);
        FreeImage_Unload(bitmap);
    });
    return pattern;
}

void BM_DecodeStack(benchmark::State& state, FREE_IMAGE_FORMAT format)
{
    std::string const& pattern = SliceStack(format);
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
BENCHMARK_CAPTURE(BM_DecodeStack, png, FIF_PNG)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK_CAPTURE(BM_DecodeStack, tiff, FIF_TIFF)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

void BM_OctreeBuildFromStack(benchmark::State& state, FREE_IMAGE_FORMAT format)
{
    std::string const& pattern = SliceStack(format);
    TezRef<TezVoxelOctree> tree;
    for (auto _ : state) {
        TezRef<TezImageStack> stack = TezImageStack::Create(pattern.c_str(), 0, kEdge - 1);
        tree = TezVoxelOctree::CreateFromVolumeData("bench", stack, 1.0, 8, 1024);
    }
    state.counters["Mvoxels/s"] =
        benchmark::Counter(double(kVoxels) * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    ReportTree(state, *tree);
}
BENCHMARK_CAPTURE(BM_OctreeBuildFromStack, png, FIF_PNG)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK_CAPTURE(BM_OctreeBuildFromStack, tiff, FIF_TIFF)
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
    std::string const& pattern = SliceStack(FIF_PNG);
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
            TezRef<TezVoxelOctree> tree =
                TezVoxelOctree::CreateFromVolumeData("bench", stack, 1.0, 8, limit);
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
