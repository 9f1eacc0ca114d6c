// tez tessellate PATTERN FIRST LAST --iso V -o OUT.stl [--ascii]

#include "core/Logger.h"
#include "core/Threads.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "volume/CubeVolume.h"
#include "volume/ImageStack.h"
#include "volume/VolumeTessellator.h"

#include <cerrno>
#include <charconv>
#include <cstring>

namespace {

char const* const kUsage = "usage: tez tessellate PATTERN FIRST LAST --iso V -o OUT.stl [--ascii]\n"
                           "PATTERN is a printf pattern of the slice files, e.g. slice%03d.png; the\n"
                           "surface runs where the voxels cross V (0 to 255, default 128).\n";

int Usage(FILE* err, std::string const& problem)
{
    std::fprintf(err, "tez tessellate: %s\n%s", problem.c_str(), kUsage);
    return 2;
}

bool ParseInt(std::string const& text, long long& value)
{
    char const* end = text.data() + text.size();
    std::from_chars_result const r = std::from_chars(text.data(), end, value);
    return r.ec == std::errc() && r.ptr == end;
}

} // namespace

int TezTessellateCommand(TezArgs const& args, FILE* out, FILE* err)
{
    std::vector<std::string> positional;
    std::string output;
    long long iso = 128;
    bool ascii = false;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string const& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, out);
            return 0;
        } else if (arg == "-o" || arg == "--output") {
            if (++i == args.size())
                return Usage(err, arg + " needs a file name");
            output = args[i];
        } else if (arg == "--iso") {
            if (++i == args.size() || !ParseInt(args[i], iso) || iso < 0 || iso > 255)
                return Usage(err, "--iso needs a value from 0 to 255");
        } else if (arg == "--ascii") {
            ascii = true;
        } else if (arg.size() > 1 && arg[0] == '-' && !(arg[1] >= '0' && arg[1] <= '9')) {
            return Usage(err, "unknown option '" + arg + "'");
        } else {
            positional.push_back(arg);
        }
    }
    if (positional.size() != 3)
        return Usage(err, positional.size() < 3 ? "missing arguments" : "unexpected argument '" + positional[3] + "'");
    long long first, last;
    if (!ParseInt(positional[1], first) || !ParseInt(positional[2], last) || first < 0 || last < first ||
        last > 1000000000)
        return Usage(err, "FIRST and LAST must be numbers with 0 <= FIRST <= LAST");
    if (output.empty())
        return Usage(err, "missing -o OUT.stl");

    TezLogger::SetConsoleLevel(TezLogger::Warn);
    TezHostApplication app;
    std::string const& pattern = positional[0];
    TezRef<TezImageStack> stack = TezImageStack::Create(pattern.c_str(), int(first), int(last));
    if (!stack || !stack->IsValid()) {
        std::fprintf(err, "tez tessellate: no readable images for '%s' from %lld to %lld\n", pattern.c_str(), first,
                     last);
        return 1;
    }
    TezRef<TezCubeVolume> volume = TezCubeVolume::ReadFromImageStack(stack, 1.0f);
    TezVector3<int> const size = volume->Dimensions();
    std::fprintf(out, "volume: %d x %d x %d\n", size.x, size.y, size.z);

    TezVolumeTessellator& tessellator = TezVolumeTessellator::Instance();
    tessellator.SetIsoValue(static_cast<uint8_t>(iso));
    int64_t const start = TezTimer::TimeNow();
    TezRef<TezIndexedMesh> mesh = tessellator.Tessellate(volume);
    double const seconds = TezTimer::TimeElapsed(start);
    std::fprintf(out, "iso value: %lld\n", iso);
    std::fprintf(out, "vertices: %zu\n", mesh->GetNumVertices());
    std::fprintf(out, "triangles: %zu\n", mesh->GetNumTriangles());
    std::fprintf(out, "seconds: %.3f\n", seconds);
    if (!TezIndexedMesh::WriteToStlFile(mesh, TezString(output.c_str()), !ascii)) {
        std::fprintf(err, "tez tessellate: cannot write '%s': %s\n", output.c_str(), std::strerror(errno));
        return 1;
    }
    std::fprintf(out, "written: %s\n", output.c_str());
    return 0;
}
