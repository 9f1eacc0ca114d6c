// tez tessellate SOURCE --iso V -o OUT.stl|.obj|.ply [--bpp 8|16] [--ascii]
//
// The source is read at its own depth (or --bpp), so that the threshold is
// in the data's own units, and tessellated by the closed method: a closed
// surface wherever the object stays off the volume's border. The mesh comes
// out in the source's units: voxel (i, j, k) spans [i, i + 1) times the
// spacing along each axis.

#include "core/Logger.h"
#include "core/Threads.h"
#include "mesh/MeshWriter.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/OutputFile.h"
#include "tez/VolumeSourceArgs.h"
#include "volume/Image.h"
#include "volume/ImageStack.h"
#include "volume/MemoryVolume.h"
#include "volume/VolumeTessellator.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

namespace {

char const* const kReading = "reading the volume";
char const* const kTessellating = "tessellating";
char const* const kWriting = "writing the mesh";

int Stopped(FILE* err)
{
    std::fprintf(err, "tez tessellate: stopped; nothing written\n");
    return 1;
}

// The whole source at the given depth; null after a message on err.
template <class T>
TezRef<TezMemoryVolume> ReadVolume(TezVolumeData& stack, int bits, FILE* err)
{
    int const w = stack.GetWidth(), h = stack.GetHeight(), d = stack.GetDepth();
    uint64_t const row = uint64_t(w) * sizeof(T), slice = row * uint64_t(h);
    std::vector<T> voxels;
    try {
        voxels.resize(size_t(w) * size_t(h) * size_t(d));
    } catch (std::bad_alloc const&) {
        std::fprintf(err, "tez tessellate: %d x %d x %d voxels of %d bits do not fit in memory\n", w, h, d, bits);
        return nullptr;
    }
    if (!stack.Copy(voxels.data(), 0, 0, 0, w, h, d, bits, row, slice, nullptr)) {
        std::fprintf(err, "tez tessellate: the source cannot be read at %d bits\n", bits);
        return nullptr;
    }
    if constexpr (sizeof(T) == 2)
        return TezMemoryVolume::Create16(w, h, d, std::move(voxels));
    else
        return TezMemoryVolume::Create8(w, h, d, std::move(voxels));
}

} // namespace

int TezTessellateCommand(TezArgs const& args, FILE* out, FILE* err)
{
    TezVolumeSourceArgs source;
    std::string output;
    long long iso = -1;
    int bpp = 0;
    bool ascii = false;
    CLI::App cli("Writes the isosurface of a volume source as a closed mesh, in the source's units (its voxel "
                 "spacing; 1 per voxel for slice stacks).",
                 "tez tessellate");
    source.AddOptions(cli);
    cli.add_option("-o,--output", output, "mesh to write: .stl, .obj or .ply")->required()->check(TezCliMeshName());
    cli.add_option("--iso", iso,
                   "the surface runs where the voxels cross V, in the source's values: 0 to 255 for 8-bit data "
                   "(default 128), 0 to 65535 for 16-bit data (default 32768)")
        ->type_name("V")
        ->check(CLI::Range(0, 65535));
    cli.add_option("--bpp", bpp, "read the source at 8 or 16 bits (default: its own)")->check(CLI::IsMember({8, 16}));
    cli.add_flag("--ascii", ascii, "text STL or PLY instead of binary");
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    std::string const problem = source.Parse();
    if (!problem.empty())
        return TezCliUsageError(cli, problem, err);

    TezLogger::SetConsoleLevel(TezLogger::Warn);
    TezHostApplication app;
    TezTerminalUI& ui = app.GetTerminalUI();
    ui.PlanSteps({{kReading, 2.0}, {kTessellating, 2.0}, {kWriting, 1.0}});
    TezRef<TezVolumeData> stack = source.Open("tessellate", err);
    if (!stack)
        return 1;
    auto* images = dynamic_cast<TezImageStack*>(stack.Get());
    int const bits = bpp != 0 ? int(bpp) : images ? TezSliceStackArgs::SliceBits(*images) : source.NativeBits();
    if (bits == 0) {
        std::fprintf(err, "tez tessellate: cannot read '%s'\n", images->GetImages().front().name.c_str());
        return 1;
    }
    long long const top = bits == 16 ? 65535 : 255;
    if (iso < 0)
        iso = (top + 1) / 2;
    if (iso > top)
        return TezCliUsageError(cli,
                                "--iso " + std::to_string(iso) + " is above " + std::to_string(top) + ", the largest " +
                                    std::to_string(bits) + "-bit value" +
                                    (bits == 8 ? " (--bpp 16 reads 16 bits)" : ""),
                                err);
    ui.BeginStep(kReading);
    TezRef<TezMemoryVolume> volume =
        bits == 16 ? ReadVolume<uint16_t>(*stack, bits, err) : ReadVolume<uint8_t>(*stack, bits, err);
    ui.ClearProgress();
    if (TezTerminalUI::StopRequested())
        return Stopped(err);
    // Damaged pixel data shows only while the slices are read.
    if (!volume || !source.AcceptAfterRead("tessellate", err))
        return 1;
    std::fprintf(out, "volume: %d x %d x %d\n", volume->GetWidth(), volume->GetHeight(), volume->GetDepth());
    std::fprintf(out, "bits per voxel: %d\n", bits);
    TezVector3<double> const spacing = stack->GetSpacing();
    if (!images)
        std::fprintf(out, "spacing: %g x %g x %g\n", spacing.x, spacing.y, spacing.z);

    // The closed method: a surface that passes `tez mesh check`, which the
    // classic table does not promise.
    TezVolumeTessellator& tessellator = TezVolumeTessellator::Instance();
    tessellator.SetMethod(TezVolumeTessellator::Method::Closed);
    int64_t const start = TezTimer::TimeNow();
    ui.BeginStep(kTessellating);
    TezRef<TezIndexedMesh> mesh = tessellator.Tessellate(volume, int(iso));
    double const seconds = TezTimer::TimeElapsed(start);
    ui.ClearProgress();
    if (TezTerminalUI::StopRequested())
        return Stopped(err);
    // Voxel units to the source's own.
    if (spacing.x != 1.0 || spacing.y != 1.0 || spacing.z != 1.0) {
        mesh->TransformGeometry(
            TezAnisotropicTransform<float>(TezVector3<float>(float(spacing.x), float(spacing.y), float(spacing.z))));
    }
    std::fprintf(out, "iso value: %lld\n", iso);
    std::fprintf(out, "vertices: %zu\n", mesh->GetNumVertices());
    std::fprintf(out, "triangles: %zu\n", mesh->GetNumTriangles());
    std::fprintf(out, "seconds: %.3f\n", seconds);
    if (mesh->GetNumTriangles() == 0) {
        // Most often a threshold in other units than the slices' values.
        int low = 65535, high = 0;
        for (size_t i = 0, n = size_t(volume->GetWidth()) * volume->GetHeight() * volume->GetDepth(); i < n; ++i) {
            int const v = bits == 16 ? volume->Data16()[i] : volume->Data8()[i];
            low = std::min(low, v);
            high = std::max(high, v);
        }
        std::fprintf(err, "tez tessellate: warning: the surface is empty; the voxels run from %d to %d\n", low, high);
    }
    ui.BeginStep(kWriting);
    TezOutputFile file(output);
    bool const written = TezMeshWriter::Write(mesh, file.GetTemporaryPath(), ascii);
    ui.ClearProgress();
    if (TezTerminalUI::StopRequested())
        return Stopped(err);
    if (!written || !file.Commit()) {
        std::fprintf(err, "tez tessellate: cannot write '%s': %s\n", output.c_str(), std::strerror(errno));
        return 1;
    }
    std::fprintf(out, "written: %s\n", output.c_str());
    return 0;
}
