#include "tez/MeshCommand.h"
#include "tez/MeshRepairCommand.h"

#include "core/Logger.h"
#include "core/UIManager.h"
#include "tez/HostApplication.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

std::vector<TezMeshSubCommand> const& TezMeshSubCommands()
{
    static std::vector<TezMeshSubCommand> const commands = {
        {"info", "", "print counts, faults, bounds, area and volume", TezMeshInfoCommand},
        {"check", "", "count degenerate and duplicate triangles and non-manifold edges; exit 1 if any",
         TezMeshCheckCommand},
        {"clean", "", "remove degenerate and duplicate triangles", TezMeshCleanCommand},
        // topology, hole filling and curvature
        {"fill-holes", "[--max-edges N]", "fill holes (of at most N edges)", TezMeshFillHolesCommand},
        {"curvature", "[--per-vertex OUT.csv]", "summarise the vertices' curvatures", TezMeshCurvatureCommand},
    };
    return commands;
}

namespace {

void PrintMeshUsage(FILE* stream)
{
    std::fprintf(stream, "usage: tez mesh COMMAND FILE [-o OUT.stl] [--ascii]\n"
                         "FILE is an STL, OBJ or PLY file; -o writes the result as binary STL, or text\n"
                         "STL with --ascii.\n\ncommands:\n");
    for (TezMeshSubCommand const& sub : TezMeshSubCommands()) {
        std::string const synopsis = std::string(sub.name) + " FILE" + (*sub.options ? " " : "") + sub.options;
        std::fprintf(stream, "  %-34s %s\n", synopsis.c_str(), sub.summary);
    }
}

int RefuseRest(TezMeshArgs const& args, FILE* err)
{
    if (args.rest.empty())
        return 0;
    return TezMeshUsage(err, args.sub, "unexpected argument '" + args.rest[0] + "'");
}

} // namespace

int TezMeshUsage(FILE* err, std::string const& sub, std::string const& problem)
{
    std::fprintf(err, "tez mesh%s%s: %s\n", sub.empty() ? "" : " ", sub.c_str(), problem.c_str());
    PrintMeshUsage(err);
    return 2;
}

TezRef<TezIndexedMesh> TezMeshRead(TezMeshArgs const& args, FILE* err)
{
    if (FILE* probe = std::fopen(args.input.c_str(), "rb")) {
        std::fclose(probe);
    } else {
        std::fprintf(err, "tez mesh %s: cannot open '%s': %s\n", args.sub.c_str(), args.input.c_str(),
                     std::strerror(errno));
        return nullptr;
    }
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromFile(TezString(args.input.c_str()));
    if (!mesh)
        std::fprintf(err, "tez mesh %s: cannot read '%s': not a readable STL, OBJ or PLY mesh\n", args.sub.c_str(),
                     args.input.c_str());
    return mesh;
}

int TezMeshWrite(TezRef<TezIndexedMesh> mesh, TezMeshArgs const& args, FILE* out, FILE* err)
{
    if (args.output.empty())
        return 0;
    if (!TezIndexedMesh::WriteToStlFile(mesh, TezString(args.output.c_str()), !args.ascii)) {
        std::fprintf(err, "tez mesh %s: cannot write '%s': %s\n", args.sub.c_str(), args.output.c_str(),
                     std::strerror(errno));
        return 1;
    }
    std::fprintf(out, "written: %s\n", args.output.c_str());
    return 0;
}

size_t TezMeshCountHoles(TezIndexedMesh const& mesh)
{
    // Edges as they run in their triangles, grouped by their two ends.
    struct Edge
    {
        unsigned int from, to;
        uint64_t Key() const { return from < to ? uint64_t(from) << 32 | to : uint64_t(to) << 32 | from; }
    };
    std::vector<unsigned int> const& idx = mesh.GetIndices();
    std::vector<Edge> edges;
    edges.reserve(idx.size());
    for (size_t t = 0; t + 2 < idx.size(); t += 3)
        for (int e = 0; e < 3; ++e)
            edges.push_back(Edge{idx[t + e], idx[t + (e + 1) % 3]});
    std::sort(edges.begin(), edges.end(), [](Edge const& a, Edge const& b) { return a.Key() < b.Key(); });
    std::vector<Edge> boundary;
    for (size_t i = 0; i < edges.size();) {
        size_t j = i + 1;
        while (j < edges.size() && edges[j].Key() == edges[i].Key())
            ++j;
        if (j - i == 1 && edges[i].from != edges[i].to)
            boundary.push_back(edges[i]);
        i = j;
    }
    // Walk the boundary edges head to tail; each closed walk is one hole. A
    // vertex where two holes touch is left by whichever edge comes first.
    std::sort(boundary.begin(), boundary.end(), [](Edge const& a, Edge const& b) { return a.from < b.from; });
    std::vector<bool> used(boundary.size(), false);
    auto outgoing = [&](unsigned int vertex) -> size_t {
        auto it = std::lower_bound(boundary.begin(), boundary.end(), vertex,
                                   [](Edge const& e, unsigned int v) { return e.from < v; });
        for (; it != boundary.end() && it->from == vertex; ++it)
            if (!used[size_t(it - boundary.begin())])
                return size_t(it - boundary.begin());
        return boundary.size();
    };
    size_t holes = 0;
    for (size_t first = 0; first < boundary.size(); ++first) {
        if (used[first])
            continue;
        used[first] = true;
        unsigned int const start = boundary[first].from;
        unsigned int at = boundary[first].to;
        while (at != start) {
            size_t const next = outgoing(at);
            if (next == boundary.size())
                break; // an open chain: the surface is not oriented there
            used[next] = true;
            at = boundary[next].to;
        }
        ++holes;
    }
    return holes;
}

int TezMeshCommand(TezArgs const& args, FILE* out, FILE* err)
{
    if (args.empty())
        return TezMeshUsage(err, "", "missing command");
    if (args[0] == "--help" || args[0] == "-h") {
        PrintMeshUsage(out);
        return 0;
    }
    TezMeshSubCommand const* sub = nullptr;
    for (TezMeshSubCommand const& candidate : TezMeshSubCommands())
        if (args[0] == candidate.name)
            sub = &candidate;
    if (!sub)
        return TezMeshUsage(err, "", "unknown command '" + args[0] + "'");

    TezMeshArgs parsed;
    parsed.sub = sub->name;
    for (size_t i = 1; i < args.size(); ++i) {
        std::string const& arg = args[i];
        if (arg == "-o" || arg == "--output") {
            if (++i == args.size())
                return TezMeshUsage(err, parsed.sub, arg + " needs a file name");
            parsed.output = args[i];
        } else if (arg == "--ascii") {
            parsed.ascii = true;
        } else if (parsed.input.empty() && !(arg.size() > 1 && arg[0] == '-')) {
            parsed.input = arg;
        } else {
            parsed.rest.push_back(arg);
        }
    }
    if (parsed.input.empty())
        return TezMeshUsage(err, parsed.sub, "missing mesh file");

    // Timing lines of the readers stay off the report unless MVLog asks.
    TezLogger::SetConsoleLevel(TezLogger::Warn);
    TezHostApplication app;
    return sub->run(parsed, out, err);
}

int TezMeshInfoCommand(TezMeshArgs const& args, FILE* out, FILE* err)
{
    if (int code = RefuseRest(args, err))
        return code;
    TezRef<TezIndexedMesh> mesh = TezMeshRead(args, err);
    if (!mesh)
        return 1;
    TezMeshCheckResults check;
    mesh->Check(check);
    TezBox3<float> const bounds = mesh->ComputeBounds();
    std::fprintf(out, "vertices: %zu\n", mesh->GetNumVertices());
    std::fprintf(out, "triangles: %zu\n", mesh->GetNumTriangles());
    std::fprintf(out, "holes: %zu\n", TezMeshCountHoles(*mesh));
    std::fprintf(out, "degenerate triangles: %d\n", check.degenerateTriangles);
    std::fprintf(out, "duplicate triangles: %d\n", check.duplicateTriangles);
    std::fprintf(out, "non-manifold edges: %d\n", check.nonManifoldEdges);
    if (bounds.Empty()) {
        std::fprintf(out, "bounds: empty\n");
    } else {
        TezVector3<float> const& lo = bounds.GetMinimum();
        TezVector3<float> const& hi = bounds.GetMaximum();
        std::fprintf(out, "bounds: %g %g %g .. %g %g %g\n", lo.x, lo.y, lo.z, hi.x, hi.y, hi.z);
    }
    std::fprintf(out, "area: %g\n", mesh->ComputeSurfaceArea());
    std::fprintf(out, "volume: %g\n", mesh->ComputeVolume());
    return TezMeshWrite(mesh, args, out, err);
}

int TezMeshCheckCommand(TezMeshArgs const& args, FILE* out, FILE* err)
{
    if (int code = RefuseRest(args, err))
        return code;
    TezRef<TezIndexedMesh> mesh = TezMeshRead(args, err);
    if (!mesh)
        return 1;
    TezMeshCheckResults check;
    bool const clean = mesh->Check(check);
    std::fprintf(out, "degenerate triangles: %d\n", check.degenerateTriangles);
    std::fprintf(out, "duplicate triangles: %d\n", check.duplicateTriangles);
    std::fprintf(out, "non-manifold edges: %d\n", check.nonManifoldEdges);
    std::fprintf(out, "result: %s\n", clean ? "ok" : "faults found");
    if (int code = TezMeshWrite(mesh, args, out, err))
        return code;
    return clean ? 0 : 1;
}

int TezMeshCleanCommand(TezMeshArgs const& args, FILE* out, FILE* err)
{
    if (int code = RefuseRest(args, err))
        return code;
    TezRef<TezIndexedMesh> mesh = TezMeshRead(args, err);
    if (!mesh)
        return 1;
    size_t const before = mesh->GetNumTriangles();
    mesh->RemoveDegenerateTriangles();
    size_t const afterDegenerate = mesh->GetNumTriangles();
    mesh->RemoveDuplicateTriangles(true);
    std::fprintf(out, "degenerate triangles removed: %zu\n", before - afterDegenerate);
    std::fprintf(out, "duplicate triangles removed: %zu\n", afterDegenerate - mesh->GetNumTriangles());
    std::fprintf(out, "triangles: %zu\n", mesh->GetNumTriangles());
    return TezMeshWrite(mesh, args, out, err);
}
