// tez octree: builds a voxel octree from a volume source (a slice stack or a
// scan file) and saves it, or describes a saved one.

#include "core/Archive.h"
#include "core/Logger.h"
#include "core/UIManager.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/OutputFile.h"
#include "tez/VolumeSourceArgs.h"
#include "volume/ImageStack.h"
#include "volume/VoxelOctree.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace {

int Stopped(FILE* err)
{
    std::fprintf(err, "tez octree: stopped; nothing written\n");
    return 1;
}

double MiB(uint64_t bytes) { return double(bytes) / 1048576.0; }

int PrintInfo(std::string const& path, FILE* out, FILE* err)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Read);
    if (!archive) {
        std::fprintf(err, "tez octree: cannot open %s\n", path.c_str());
        return 1;
    }
    TezRef<TezVoxelOctree> tree(new TezVoxelOctree());
    try {
        tree->Load(archive);
    } catch (std::exception const& error) {
        std::fprintf(err, "tez octree: %s is not a readable octree: %s\n", path.c_str(), error.what());
        return 1;
    }
    if (tree->GetTreeSize() <= 0) {
        std::fprintf(err, "tez octree: %s holds no octree\n", path.c_str());
        return 1;
    }
    TezVector3<int> const size = tree->GetDimensionsInVoxels();
    auto& nodes = tree->GetNodePool();
    auto& leaves = tree->GetLeafPool();
    uint64_t const nodeCount = nodes.GetNumElements();
    uint64_t const brickCount = leaves.GetNumElements();
    uint64_t const brickBytes = 4096u * uint64_t(tree->GetBitsPerPixel() / 8);
    uint64_t const sourceVoxels = uint64_t(size[0]) * uint64_t(size[1]) * uint64_t(size[2]);
    uint64_t const treeBytes = nodeCount * sizeof(TezVoxelOctreeNode) + brickCount * brickBytes;

    std::fprintf(out, "file: %s\n", path.c_str());
    std::fprintf(out, "bits per voxel: %d\n", tree->GetBitsPerPixel());
    std::fprintf(out, "dimensions: %d x %d x %d voxels\n", size[0], size[1], size[2]);
    std::fprintf(out, "voxel size: %g\n", double(tree->GetVoxelSize()));
    std::fprintf(out, "tree size: %d\n", tree->GetTreeSize());
    std::fprintf(out, "levels with bricks: %d\n", tree->GetMaxDepth());
    std::fprintf(out, "nodes: %llu (%.2f MiB)\n", (unsigned long long)nodeCount,
                 MiB(nodeCount * sizeof(TezVoxelOctreeNode)));
    std::fprintf(out, "bricks: %llu (%.2f MiB)\n", (unsigned long long)brickCount, MiB(brickCount * brickBytes));
    std::vector<int32_t> const& levels = tree->GetLeafsPerSlice();
    for (size_t level = 0; level < levels.size(); ++level)
        std::fprintf(out, "  level %zu: edge %d, %d bricks, %.2f MiB\n", level, tree->GetTreeSize() >> level,
                     levels[level], MiB(uint64_t(levels[level]) * brickBytes));
    if (sourceVoxels > 0)
        std::fprintf(out, "bytes per source voxel: %.4f\n", double(treeBytes) / double(sourceVoxels));

    std::vector<float> const& histogram = tree->GetHistogram();
    if (histogram.size() == 256) {
        double mean = 0, total = 0;
        int low = -1, high = -1, peak = 1;
        for (int bin = 0; bin < 256; ++bin) {
            double const f = histogram[size_t(bin)];
            total += f;
            mean += f * bin;
            if (f > 0) {
                high = bin;
                if (low < 0)
                    low = bin;
            }
            if (bin > 0 && f > histogram[size_t(peak)])
                peak = bin;
        }
        std::fprintf(out, "histogram: bins %d..%d, mean bin %.1f, empty (bin 0) %.1f%%, peak above 0 at bin %d\n", low,
                     high, total > 0 ? mean / total : 0.0, 100.0 * histogram[0], peak);
    }
    return 0;
}
} // namespace

int TezOctreeCommand(TezArgs const& args, FILE* out, FILE* err)
{
    TezVolumeSourceArgs source;
    int bits = 0;           // 0: as the source
    double voxelSize = 0.0; // 0: the source's x spacing
    int memoryLimit = 1024;
    std::string output, info;
    CLI::App cli("Builds a voxel octree from a volume source and saves it, or describes a saved one (--info).",
                 "tez octree");
    source.AddOptions(cli);
    CLI::Option* infoOption = cli.add_option("--info", info, "describe the saved octree FILE and stop");
    cli.add_option("-o,--output", output, "octree file to write")->excludes(infoOption);
    cli.add_option("--bpp", bits, "bits per voxel (default: the source's)")->check(CLI::IsMember({8, 16}));
    cli.add_option("--voxel-size", voxelSize, "voxel size (default: the source's x spacing, 1 for slice stacks)")
        ->check(CLI::PositiveNumber);
    cli.add_option("--memory-limit", memoryLimit,
                   "MiB of slices held while building (default 1024); the octree comes on top")
        ->check(CLI::Range(1, 1 << 30));
    cli.add_flag("--allow-bad-slices", source.stack.allowUnreadable,
                 "fill any share of unreadable slice files by interpolation (default: at most 10%)");
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    if (!info.empty()) {
        if (!source.words.empty() || cli.count("--bpp") || cli.count("--voxel-size") || cli.count("--memory-limit"))
            return TezCliUsageError(cli, "--info takes one FILE and nothing else", err);
        return PrintInfo(info, out, err);
    }
    bool const limitGiven = cli.count("--memory-limit") > 0;
    std::string const problem = source.Parse();
    if (!problem.empty())
        return TezCliUsageError(cli, problem, err);
    if (output.empty())
        return TezCliUsageError(cli, "missing -o FILE", err);

    TezHostApplication app;
    source.stack.allowOption = "--allow-bad-slices";
    TezRef<TezVolumeData> images = source.Open("octree", err);
    if (!images)
        return 1;
    if (bits == 0)
        bits = source.NativeBits();
    if (voxelSize == 0.0)
        voxelSize = images->GetSpacing().x;
    std::string const described = source.Describe();
    if (!described.empty())
        std::fprintf(out, "%s\n", described.c_str());

    // A limit below one row of blocks would be exceeded, not obeyed: refuse
    // it. The default gives way to what the stack needs, with the builder's
    // warning.
    int const smallest =
        TezVoxelOctreeSmallestMemoryLimit(images->GetWidth(), images->GetHeight(), images->GetDepth(), bits);
    if (limitGiven && memoryLimit < smallest) {
        std::fprintf(err,
                     "tez octree: --memory-limit %d MiB is too small for this %d x %d x %d stack at %d bits: one "
                     "slab of slices needs %d MiB; use --memory-limit %d or more\n",
                     memoryLimit, images->GetWidth(), images->GetHeight(), images->GetDepth(), bits, smallest,
                     smallest);
        return 2;
    }

    TezTerminalUI& ui = app.GetTerminalUI();
    ui.PlanSteps({{"building the octree", 4.0}, {"writing the octree", 1.0}});
    ui.BeginStep("building the octree");
    TezRef<TezVoxelOctree> tree =
        TezVoxelOctree::CreateFromVolumeData(TezString(output.c_str()), images, voxelSize, bits, memoryLimit);
    ui.ClearProgress();
    if (TezTerminalUI::StopRequested())
        return Stopped(err);
    if (!tree) {
        std::fprintf(err, "tez octree: the build was refused; see the log\n");
        return 1;
    }
    // Damaged pixel data shows only while the slices are read.
    if (!source.AcceptAfterRead("octree", err))
        return 1;
    ui.BeginStep("writing the octree");
    TezOutputFile file(output);
    std::string failure;
    try {
        TezRef<TezArchive> archive = TezArchive::Open(file.GetTemporaryPath().c_str(), TezArchive::Write);
        if (!archive)
            throw std::runtime_error(std::strerror(errno));
        tree->Save(archive);
        archive->Flush();
    } catch (std::exception const& error) {
        failure = error.what();
    }
    ui.ClearProgress();
    if (TezTerminalUI::StopRequested())
        return Stopped(err);
    if (failure.empty() && !file.Commit())
        failure = std::strerror(errno);
    if (!failure.empty()) {
        std::fprintf(err, "tez octree: cannot write %s: %s\n", output.c_str(), failure.c_str());
        return 1;
    }
    TezVector3<int> const size = tree->GetDimensionsInVoxels();
    std::fprintf(out, "%s: %d x %d x %d voxels, tree %d, %llu nodes, %llu bricks\n", output.c_str(), size[0], size[1],
                 size[2], tree->GetTreeSize(), (unsigned long long)tree->GetNodePool().GetNumElements(),
                 (unsigned long long)tree->GetLeafPool().GetNumElements());
    return 0;
}
