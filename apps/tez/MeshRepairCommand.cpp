#include "tez/MeshRepairCommand.h"

#include "core/Progress.h"
#include "mesh/MeshCurvature.h"
#include "mesh/TopologyMesh.h"
#include "tez/Cli.h"
#include "tez/MeshHolesPicture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

namespace {

struct Range
{
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    double sum = 0.0;
    size_t count = 0;

    void Add(float value)
    {
        low = std::min(low, static_cast<double>(value));
        high = std::max(high, static_cast<double>(value));
        sum += value;
        ++count;
    }
    void Print(FILE* out, char const* name) const
    {
        if (count == 0)
            std::fprintf(out, "%s: none\n", name);
        else
            std::fprintf(out, "%s: min %g mean %g max %g\n", name, low, sum / count, high);
    }
};

} // namespace

void TezMeshFillHolesOptions(CLI::App& app, TezMeshArgs& args)
{
    app.add_option("--max-edges", args.maxEdges, "fill only holes of at most N boundary edges (default: all)")
        ->type_name("N")
        ->check(CLI::Range(0, 1000000000));
    app.add_option("--picture", args.picture, "draw the mesh before and after, holes in red")->type_name("OUT.png");
}

void TezMeshCurvatureOptions(CLI::App& app, TezMeshArgs& args)
{
    app.add_option("--per-vertex", args.perVertex, "write one CSV row per vertex")->type_name("OUT.csv");
    app.add_flag("--file-normals", args.fileNormals, "keep the file's normals instead of making them");
}

int TezMeshFillHolesCommand(TezMeshArgs const& args, FILE* out, FILE* err)
{
    size_t const maxEdges = args.maxEdges;
    TezRef<TezIndexedMesh> mesh = TezMeshRead(args, err);
    if (!mesh)
        return 1;

    // Degenerate and repeated triangles would tangle the boundary walks.
    args.ui->BeginStep(args.sub, 7);
    size_t const read = mesh->GetNumTriangles();
    mesh->RemoveDegenerateTriangles();
    mesh->RemoveDuplicateTriangles(true);
    size_t const triangles = mesh->GetNumTriangles();
    size_t const vertices = mesh->GetNumVertices();
    TezRef<TezIndexedMesh> const before = args.picture.empty() ? nullptr : mesh->Copy();

    TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(mesh, true);
    if (int code = TezMeshStopped(args, err))
        return code;
    size_t const holes = topology->GetNumHoles();
    size_t filled = 0, skipped = 0;
    // FillHole takes the hole off the list; a hole left alone stays at the front.
    TezProgress progress("filling holes", holes);
    while (topology->GetNumHoles() > skipped && !progress.StopRequested()) {
        progress.Step();
        TezRef<TezTopologyHole> hole = topology->GetHole(skipped);
        if (static_cast<size_t>(hole->GetNumEdges()) <= maxEdges && topology->FillHole(hole))
            ++filled;
        else
            ++skipped;
    }
    progress.End();
    if (int code = TezMeshStopped(args, err))
        return code;
    std::fprintf(out, "faulty triangles removed: %zu\n", read - triangles);
    std::fprintf(out, "holes: %zu\n", holes);
    std::fprintf(out, "filled: %zu\n", filled);
    std::fprintf(out, "skipped: %zu\n", skipped);
    std::fprintf(out, "vertices added: %zu\n", mesh->GetNumVertices() - vertices);
    std::fprintf(out, "triangles added: %zu\n", mesh->GetNumTriangles() - triangles);
    if (int code = TezMeshWrite(mesh, args, out, err))
        return code;
    // The holes left are counted afresh on the mesh as written (read back
    // from the file), by the same count as tez mesh info: the topology that
    // did the filling only knows what it changed.
    TezRef<TezIndexedMesh> result = mesh;
    if (!args.output.empty()) {
        result = TezIndexedMesh::ReadFromFile(TezString(args.output.c_str()));
        if (!result) {
            std::fprintf(err, "tez mesh %s: cannot read back '%s'\n", args.sub.c_str(), args.output.c_str());
            return 1;
        }
    }
    std::fprintf(out, "holes left: %zu\n", TezMeshCountHoles(result));
    return before ? TezWriteHolesPicture(before, result, args.picture, 1280, 640, out, err) : 0;
}

int TezMeshCurvatureCommand(TezMeshArgs const& args, FILE* out, FILE* err)
{
    std::string const& perVertex = args.perVertex;
    bool const fileNormals = args.fileNormals;
    TezRef<TezIndexedMesh> mesh = TezMeshRead(args, err);
    if (!mesh)
        return 1;
    args.ui->BeginStep(args.sub, 3);
    if (!fileNormals)
        mesh->MakeNormalsFromPositions();

    TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(mesh, true);
    if (int code = TezMeshStopped(args, err))
        return code;
    TezRef<TezMeshCurvature> curvature = TezMeshCurvatureAnalyzer::Instance().Compute(topology);
    // Vertices of no triangle carry no curvature and stay out of the summary.
    Range mean, gaussian, maximum, minimum;
    size_t used = 0;
    for (size_t v = 0; v < curvature->GetNumVertices(); ++v) {
        if (topology->GetVertex(v)->GetNumEdges() == 0)
            continue;
        ++used;
        mean.Add(curvature->GetMeanCurvature(v));
        gaussian.Add(curvature->GetGaussianCurvature(v));
        maximum.Add(curvature->GetMaximumCurvature(v));
        minimum.Add(curvature->GetMinimumCurvature(v));
    }
    if (int code = TezMeshStopped(args, err))
        return code;
    std::fprintf(out, "vertices: %zu\n", used);
    mean.Print(out, "mean curvature");
    gaussian.Print(out, "gaussian curvature");
    maximum.Print(out, "maximum curvature");
    minimum.Print(out, "minimum curvature");

    if (perVertex.empty())
        return 0;
    FILE* csv = std::fopen(perVertex.c_str(), "w");
    if (!csv) {
        std::fprintf(err, "tez mesh %s: cannot write '%s': %s\n", args.sub.c_str(), perVertex.c_str(),
                     std::strerror(errno));
        return 1;
    }
    std::fprintf(csv, "vertex,x,y,z,mean,gaussian,maximum,minimum,max_dx,max_dy,max_dz,min_dx,min_dy,min_dz\n");
    for (size_t v = 0; v < curvature->GetNumVertices(); ++v) {
        TezVector3<float> const& p = mesh->GetVertex(v).position;
        TezVector3<float> const& a = curvature->GetMaximumDirection(v);
        TezVector3<float> const& b = curvature->GetMinimumDirection(v);
        std::fprintf(csv, "%zu,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g\n", v, p.x, p.y, p.z,
                     curvature->GetMeanCurvature(v), curvature->GetGaussianCurvature(v),
                     curvature->GetMaximumCurvature(v), curvature->GetMinimumCurvature(v), a.x, a.y, a.z, b.x, b.y,
                     b.z);
    }
    bool const ok = std::fclose(csv) == 0;
    if (!ok) {
        std::fprintf(err, "tez mesh %s: cannot write '%s'\n", args.sub.c_str(), perVertex.c_str());
        return 1;
    }
    std::fprintf(out, "written: %s\n", perVertex.c_str());
    return 0;
}
