#include "tez/MeshCommand.h"
#include "tez/MeshRepairCommand.h"

#include "core/Logger.h"
#include "core/UIManager.h"
#include "mesh/MeshWriter.h"
#include "mesh/TopologyMesh.h"
#include "tez/Cli.h"
#include "tez/HostApplication.h"
#include "tez/MeshHolesPicture.h"
#include "tez/OffscreenGL.h"
#include "tez/OutputFile.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

std::vector<TezMeshSubCommand> const& TezMeshSubCommands()
{
    static std::vector<TezMeshSubCommand> const commands = {
        {"info", "print counts, faults, bounds, area and volume", nullptr, TezMeshInfoCommand},
        {"check", "count faulty triangles and edges; exit 1 if any", nullptr, TezMeshCheckCommand},
        {"clean", "remove degenerate and duplicate triangles", nullptr, TezMeshCleanCommand},
        // topology, hole filling and curvature
        {"fill-holes", "fill holes (of at most N edges)", TezMeshFillHolesOptions, TezMeshFillHolesCommand},
        {"curvature", "summarise the vertices' curvatures", TezMeshCurvatureOptions, TezMeshCurvatureCommand},
    };
    return commands;
}

TezRef<TezIndexedMesh> TezMeshRead(TezMeshArgs const& args, FILE* err)
{
    char const* sub = args.sub.c_str();
    char const* path = args.input.c_str();
    struct stat info;
    if (stat(path, &info) != 0) {
        std::fprintf(err, "tez mesh %s: cannot open '%s': %s\n", sub, path, std::strerror(errno));
        return nullptr;
    }
    // The readers refuse these too, but only in the log.
    if (!S_ISREG(info.st_mode)) {
        std::fprintf(err, "tez mesh %s: cannot read '%s': %s, not a mesh file\n", sub, path,
                     S_ISDIR(info.st_mode) ? "it is a directory" : "it is not a regular file");
        return nullptr;
    }
    if (FILE* probe = std::fopen(path, "rb")) {
        std::fclose(probe);
    } else {
        std::fprintf(err, "tez mesh %s: cannot open '%s': %s\n", sub, path, std::strerror(errno));
        return nullptr;
    }
    args.ui->BeginStep("reading the mesh");
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromFile(TezString(path));
    if (TezMeshStopped(args, err))
        return nullptr;
    if (!mesh)
        std::fprintf(err, "tez mesh %s: cannot read '%s': not a readable STL, OBJ or PLY mesh\n", sub, path);
    else if (mesh->GetNumTriangles() == 0)
        std::fprintf(err, "tez mesh %s: warning: '%s' gives 0 faces\n", sub, path);
    return mesh;
}

int TezMeshStopped(TezMeshArgs const& args, FILE* err)
{
    args.ui->ClearProgress();
    if (!TezTerminalUI::StopRequested())
        return 0;
    std::fprintf(err, "tez mesh %s: stopped; nothing written\n", args.sub.c_str());
    return 1;
}

size_t TezMeshCountHoles(TezRef<TezIndexedMesh> mesh) { return TezTopologyMesh::Create(mesh, false)->GetNumHoles(); }

int TezMeshWrite(TezRef<TezIndexedMesh> mesh, TezMeshArgs const& args, FILE* out, FILE* err)
{
    if (args.output.empty())
        return 0;
    args.ui->BeginStep("writing the mesh");
    TezOutputFile file(args.output);
    bool const written = TezMeshWriter::Write(mesh, file.GetTemporaryPath(), args.ascii);
    if (TezMeshStopped(args, err))
        return 1;
    if (!written || !file.Commit()) {
        std::fprintf(err, "tez mesh %s: cannot write '%s': %s\n", args.sub.c_str(), args.output.c_str(),
                     std::strerror(errno));
        return 1;
    }
    std::fprintf(out, "written: %s\n", args.output.c_str());
    return 0;
}

int TezMeshCommand(TezArgs const& args, FILE* out, FILE* err)
{
    TezMeshArgs parsed;
    CLI::App cli("Reads an STL, OBJ or PLY mesh and reports on it or repairs it; -o writes the result by the "
                 "name's extension (.stl, .obj, .ply).",
                 "tez mesh");
    cli.require_subcommand(1);
    for (TezMeshSubCommand const& sub : TezMeshSubCommands()) {
        CLI::App* app = cli.add_subcommand(sub.name, sub.summary);
        app->add_option("file", parsed.input, "STL, OBJ or PLY mesh to read")->required();
        app->add_option("-o,--output", parsed.output, "mesh to write: .stl, .obj or .ply")->check(TezCliMeshName());
        app->add_flag("--ascii", parsed.ascii, "text STL or PLY instead of binary");
        if (sub.options)
            sub.options(*app, parsed);
    }
    if (int code = TezCliParse(cli, args, out, err); code >= 0)
        return code;
    TezMeshSubCommand const* sub = nullptr;
    for (TezMeshSubCommand const& candidate : TezMeshSubCommands())
        if (cli.got_subcommand(candidate.name))
            sub = &candidate;
    parsed.sub = sub->name;

    // Timing lines of the readers stay off the report unless MVLog asks.
    TezLogger::SetConsoleLevel(TezLogger::Warn);
    // A picture to draw needs the application's GL context.
    TezOffscreenGL gl(!parsed.picture.empty());
    TezHostApplication app(gl.GetContext(), gl.GetWindow());
    parsed.ui = &app.GetTerminalUI();
    parsed.ui->PlanSteps({{"reading the mesh", 2.0}, {parsed.sub, 2.0}, {"writing the mesh", 1.0}});
    int const code = sub->run(parsed, out, err);
    parsed.ui->ClearProgress();
    return code;
}

int TezMeshInfoCommand(TezMeshArgs const& args, FILE* out, FILE* err)
{
    TezRef<TezIndexedMesh> mesh = TezMeshRead(args, err);
    if (!mesh)
        return 1;
    args.ui->BeginStep(args.sub, 6);
    TezMeshCheckResults check;
    mesh->Check(check);
    size_t const holes = TezMeshCountHoles(mesh);
    if (int code = TezMeshStopped(args, err))
        return code;
    TezBox3<float> const bounds = mesh->ComputeBounds();
    std::fprintf(out, "vertices: %zu\n", mesh->GetNumVertices());
    std::fprintf(out, "triangles: %zu\n", mesh->GetNumTriangles());
    std::fprintf(out, "holes: %zu\n", holes);
    std::fprintf(out, "degenerate triangles: %d\n", check.degenerateTriangles);
    std::fprintf(out, "duplicate triangles: %d\n", check.duplicateTriangles);
    std::fprintf(out, "non-manifold edges: %d\n", check.nonManifoldEdges);
    std::fprintf(out, "non-finite vertices: %zu\n", mesh->CountNonFiniteVertices());
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
    TezRef<TezIndexedMesh> mesh = TezMeshRead(args, err);
    if (!mesh)
        return 1;
    TezMeshCheckResults check;
    // Positions that are not numbers spoil every measure taken on the mesh.
    size_t const nonFinite = mesh->CountNonFiniteVertices();
    args.ui->BeginStep(args.sub, 4);
    bool const clean = mesh->Check(check) && nonFinite == 0;
    if (int code = TezMeshStopped(args, err))
        return code;
    std::fprintf(out, "degenerate triangles: %d\n", check.degenerateTriangles);
    std::fprintf(out, "duplicate triangles: %d\n", check.duplicateTriangles);
    std::fprintf(out, "non-manifold edges: %d\n", check.nonManifoldEdges);
    std::fprintf(out, "non-finite vertices: %zu\n", nonFinite);
    std::fprintf(out, "result: %s\n", clean ? "ok" : "faults found");
    if (int code = TezMeshWrite(mesh, args, out, err))
        return code;
    return clean ? 0 : 1;
}

int TezMeshCleanCommand(TezMeshArgs const& args, FILE* out, FILE* err)
{
    TezRef<TezIndexedMesh> mesh = TezMeshRead(args, err);
    if (!mesh)
        return 1;
    args.ui->BeginStep(args.sub, 4);
    size_t const before = mesh->GetNumTriangles();
    mesh->RemoveDegenerateTriangles();
    size_t const afterDegenerate = mesh->GetNumTriangles();
    mesh->RemoveDuplicateTriangles(true);
    if (int code = TezMeshStopped(args, err))
        return code;
    std::fprintf(out, "degenerate triangles removed: %zu\n", before - afterDegenerate);
    std::fprintf(out, "duplicate triangles removed: %zu\n", afterDegenerate - mesh->GetNumTriangles());
    std::fprintf(out, "triangles: %zu\n", mesh->GetNumTriangles());
    return TezMeshWrite(mesh, args, out, err);
}
