// Triangle meshes for Python: numpy arrays in and out, files, hole filling.

#include "mesh/MeshWriter.h"
#include "mesh/TopologyMesh.h"
#include "python/KernelBindings.h"
#include "python/KernelObjects.h"
#include "python/LongWork.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>

namespace py = pybind11;

namespace {

using FloatRows = py::array_t<float, py::array::c_style | py::array::forcecast>;
using IndexRows = py::array_t<int64_t, py::array::c_style | py::array::forcecast>;

void CheckRows(py::array const& array, char const* name)
{
    if (array.ndim() != 2 || array.shape(1) != 3)
        throw py::value_error(
            std::string(name) + " must be an array of shape (n, 3), not " +
            py::str(py::tuple(py::cast(std::vector<ssize_t>(array.shape(), array.shape() + array.ndim()))))
                .cast<std::string>());
}

TezPyMesh FromArrays(FloatRows const& positions, IndexRows const& triangles)
{
    CheckRows(positions, "vertices");
    CheckRows(triangles, "triangles");
    size_t const n = size_t(positions.shape(0)), m = size_t(triangles.shape(0));
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    mesh->Resize(n, m);
    float const* p = positions.data();
    for (size_t i = 0; i < n; ++i)
        mesh->SetVertex(i, TezMeshVertex(TezVector3<float>(p[3 * i], p[3 * i + 1], p[3 * i + 2]),
                                         TezVector3<float>(0.0f, 0.0f, 0.0f)));
    int64_t const* t = triangles.data();
    for (size_t i = 0; i < 3 * m; ++i) {
        if (t[i] < 0 || uint64_t(t[i]) >= n)
            throw py::value_error("triangle " + std::to_string(i / 3) + " names vertex " + std::to_string(t[i]) +
                                  "; there are " + std::to_string(n));
        mesh->SetIndex(i / 3, int(i % 3), unsigned(t[i]));
    }
    mesh->MakeNormalsFromPositions();
    return TezPyMesh{mesh};
}

py::array Positions(TezPyMesh const& mesh, bool normals)
{
    std::vector<TezMeshVertex> const& vertices = mesh.mesh->GetVertices();
    py::array_t<float> array({ssize_t(vertices.size()), ssize_t(3)});
    float* out = array.mutable_data();
    for (size_t i = 0; i < vertices.size(); ++i) {
        TezVector3<float> const& v = normals ? vertices[i].normal : vertices[i].position;
        out[3 * i] = v.x;
        out[3 * i + 1] = v.y;
        out[3 * i + 2] = v.z;
    }
    return std::move(array);
}

py::array Triangles(TezPyMesh const& mesh)
{
    std::vector<unsigned int> const& indices = mesh.mesh->GetIndices();
    py::array_t<uint32_t> array({ssize_t(indices.size() / 3), ssize_t(3)});
    std::memcpy(array.mutable_data(), indices.data(), indices.size() * sizeof(unsigned int));
    return std::move(array);
}

struct FillReport
{
    size_t holes = 0, filled = 0, skipped = 0, faulty = 0, verticesAdded = 0, trianglesAdded = 0;
};

// Faulty triangles off first: degenerate and repeated ones would tangle the
// boundary walks. A hole the filling refuses stays, and so does one of more
// than maxEdges edges.
FillReport FillHoles(TezRef<TezIndexedMesh> const& geometry, size_t maxEdges)
{
    FillReport report;
    TezIndexedMesh& mesh = *geometry;
    size_t const read = mesh.GetNumTriangles();
    mesh.RemoveDegenerateTriangles();
    mesh.RemoveDuplicateTriangles(true);
    size_t const triangles = mesh.GetNumTriangles(), vertices = mesh.GetNumVertices();
    report.faulty = read - triangles;
    TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(geometry, true);
    report.holes = topology->GetNumHoles();
    // FillHole takes the hole off the list; a hole left alone stays at the front.
    while (topology->GetNumHoles() > report.skipped) {
        TezRef<TezTopologyHole> hole = topology->GetHole(report.skipped);
        if (size_t(hole->GetNumEdges()) <= maxEdges && topology->FillHole(hole))
            ++report.filled;
        else
            ++report.skipped;
    }
    report.verticesAdded = mesh.GetNumVertices() - vertices;
    report.trianglesAdded = mesh.GetNumTriangles() - triangles;
    return report;
}

size_t CountHoles(TezPyMesh const& mesh)
{
    TezRef<TezIndexedMesh> copy = mesh.mesh->Copy();
    copy->RemoveDegenerateTriangles();
    copy->RemoveDuplicateTriangles(true);
    return TezTopologyMesh::Create(copy)->GetNumHoles();
}

} // namespace

void TezBindMeshes(py::module_& m)
{
    if (!TezPyReuseClass<TezPyMesh>(m, "Mesh"))
        py::class_<TezPyMesh>(m, "Mesh", "A triangle mesh: vertex positions and three vertex indices a triangle.")
            .def(py::init(&FromArrays), py::arg("vertices"), py::arg("triangles"),
                 "From an array (n, 3) of positions and an array (m, 3) of vertex indices, wound\n"
                 "counterclockwise seen from outside. Normals come from the positions.")
            .def_property_readonly(
                "vertices", [](TezPyMesh const& mesh) { return Positions(mesh, false); },
                "The positions, a float32 array (n, 3) (a copy).")
            .def_property_readonly(
                "normals", [](TezPyMesh const& mesh) { return Positions(mesh, true); },
                "The vertex normals, a float32 array (n, 3) (a copy).")
            .def_property_readonly("triangles", &Triangles, "The vertex indices, a uint32 array (m, 3) (a copy).")
            .def_property_readonly("area", [](TezPyMesh const& mesh) { return mesh.mesh->ComputeSurfaceArea(); })
            .def_property_readonly(
                "volume", [](TezPyMesh const& mesh) { return mesh.mesh->ComputeVolume(); },
                "Signed: positive for a closed mesh wound counterclockwise outwards.")
            .def_property_readonly("hole_count", &CountHoles,
                                   "Boundary loops, counted after degenerate and repeated triangles are set aside.")
            .def(
                "fill_holes",
                [](TezPyMesh& mesh, std::optional<size_t> maxEdges) {
                    FillReport const report = TezRunLongWork<FillReport>([&] {
                        return FillHoles(mesh.mesh, maxEdges ? *maxEdges : std::numeric_limits<size_t>::max());
                    });
                    py::dict answer;
                    answer["holes"] = report.holes;
                    answer["filled"] = report.filled;
                    answer["skipped"] = report.skipped;
                    answer["faulty_triangles_removed"] = report.faulty;
                    answer["vertices_added"] = report.verticesAdded;
                    answer["triangles_added"] = report.trianglesAdded;
                    return answer;
                },
                py::arg("max_edges") = py::none(),
                "Fills the mesh's holes in place (Liepa's minimum-area patch, refined and faired), those of\n"
                "at most max_edges edges when given, after taking off degenerate and repeated triangles.\n"
                "Answers a dict: holes, filled, skipped, faulty_triangles_removed, vertices_added,\n"
                "triangles_added.")
            .def(
                "save",
                [](TezPyMesh const& mesh, std::string const& path, bool ascii) {
                    if (TezMeshWriter::FormatForName(path) == TezMeshWriter::Format::Unknown)
                        throw py::value_error("'" + path + "' has no mesh extension (.stl, .obj, .ply)");
                    bool const written =
                        TezRunLongWork<bool>([&] { return TezMeshWriter::Write(mesh.mesh, path, ascii); });
                    if (!written)
                        throw std::runtime_error("cannot write '" + path + "': " + std::strerror(errno));
                },
                py::arg("path"), py::arg("ascii") = false,
                "Writes STL, OBJ or PLY by the extension; STL and PLY binary unless ascii.")
            .def("__repr__", [](TezPyMesh const& mesh) {
                return "<Mesh " + std::to_string(mesh.mesh->GetNumVertices()) + " vertices, " +
                       std::to_string(mesh.mesh->GetNumTriangles()) + " triangles>";
            });

    m.def(
        "read_mesh",
        [](std::string const& path) {
            TezRef<TezIndexedMesh> mesh = TezRunLongWork<TezRef<TezIndexedMesh>>(
                [&] { return TezIndexedMesh::ReadFromFile(TezString(path.c_str())); });
            if (!mesh)
                throw std::runtime_error("cannot read mesh '" + path + "' (STL, OBJ or PLY)");
            return TezPyMesh{mesh};
        },
        py::arg("path"), "Reads an STL, OBJ or PLY file, by its extension.");
}
