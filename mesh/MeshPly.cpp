// PLY files of TezIndexedMesh, through the RPly-style reader.

#include "mesh/IndexedMesh.h"

#include "core/Logger.h"
#include "mesh/PlyReader.h"
#include "mesh/detail/FileBytes.h"

#include <algorithm>
#include <string>

namespace {

void IgnoreErrors(p_ply, const char*) {}

// Index arrays start at the header's face count up to this many faces and
// grow with the data beyond it: a face may take as little as one byte.
size_t const kPresizedFaces = size_t(1) << 22;

struct PlyTarget
{
    std::vector<TezMeshVertex>* vertices = nullptr;
    std::vector<unsigned int>* indices = nullptr;
    size_t counter[6] = {}; // one per vertex property
    size_t triangles = 0;
    bool longList = false;
};

// x, y, z, nx, ny, nz: idata is the float's offset within the vertex.
int VertexValue(p_ply_argument argument)
{
    void* pdata = nullptr;
    long offset = 0;
    ply_get_argument_user_data(argument, &pdata, &offset);
    PlyTarget& target = *static_cast<PlyTarget*>(pdata);
    size_t& counter = target.counter[offset];
    if (counter >= target.vertices->size())
        return 0;
    float* vertex = &(*target.vertices)[counter].position.x;
    vertex[offset] = static_cast<float>(ply_get_argument_value(argument));
    ++counter;
    return 1;
}

unsigned int IndexValue(double value)
{
    // Out-of-range values become an index no mesh has; checked afterwards.
    return value >= 0.0 && value < 4294967295.0 ? static_cast<unsigned int>(value) : 0xffffffffu;
}

// A face list: triangles as they are, a quad (a,b,c,d) as (a,b,c), (a,c,d);
// values after the fourth are ignored.
int FaceValue(p_ply_argument argument)
{
    void* pdata = nullptr;
    ply_get_argument_user_data(argument, &pdata, nullptr);
    PlyTarget& target = *static_cast<PlyTarget*>(pdata);
    long length = 0, index = 0;
    ply_get_argument_property(argument, nullptr, &length, &index);
    double const value = ply_get_argument_value(argument);
    std::vector<unsigned int>& indices = *target.indices;
    size_t const t = target.triangles;
    if (indices.size() < 3 * (t + 2))
        indices.resize(3 * (t + 2) + indices.size() / 2); // quads beyond the first guess
    switch (index) {
    case -1:
        target.longList = length > 3;
        break;
    case 0:
        indices[3 * t] = IndexValue(value);
        if (target.longList)
            indices[3 * (t + 1)] = IndexValue(value);
        break;
    case 1:
        indices[3 * t + 1] = IndexValue(value);
        break;
    case 2:
        indices[3 * t + 2] = IndexValue(value);
        if (target.longList)
            indices[3 * (t + 1) + 1] = IndexValue(value);
        else
            target.triangles += 1;
        break;
    case 3:
        indices[3 * (t + 1) + 2] = IndexValue(value);
        target.triangles += 2;
        break;
    default:
        break;
    }
    return 1;
}

// Scanner triangles: three values to a face, anything longer is ignored.
int TriangleValue(p_ply_argument argument)
{
    void* pdata = nullptr;
    ply_get_argument_user_data(argument, &pdata, nullptr);
    PlyTarget& target = *static_cast<PlyTarget*>(pdata);
    long index = 0;
    ply_get_argument_property(argument, nullptr, nullptr, &index);
    std::vector<unsigned int>& indices = *target.indices;
    size_t const t = target.triangles;
    if (index < 0 || index > 2)
        return 1;
    if (indices.size() < 3 * (t + 1))
        indices.resize(3 * (t + 1) + indices.size() / 2);
    indices[3 * t + size_t(index)] = IndexValue(ply_get_argument_value(argument));
    if (index == 2)
        target.triangles += 1;
    return 1;
}

// Registers the face callback on the index list, by either of its two
// names: Rhino writes "vertex_index", scanners and the model repositories
// "vertex_indices". Returns the number of faces. Faces that carry neither
// list cannot be read, which is worth a warning: the file is not empty.
long SetFaceCallback(p_ply ply, p_ply_read_cb callback, PlyTarget* target, char const* reader, char const* path)
{
    for (char const* name : {"vertex_index", "vertex_indices"})
        if (long const faces = ply_set_read_cb(ply, "face", name, callback, target, 0))
            return faces;
    for (p_ply_element element = ply_get_next_element(ply, nullptr); element;
         element = ply_get_next_element(ply, element)) {
        char const* name = nullptr;
        long instances = 0;
        ply_get_element_info(element, &name, &instances);
        if (name && std::string(name) == "face" && instances > 0)
            TezLogger::warn("%s: '%s' has %ld face(s) with no vertex_index or vertex_indices list; none is read\n",
                            reader, path, instances);
    }
    return 0;
}

bool IndicesInRange(TezIndexedMesh const& mesh)
{
    for (unsigned int index : mesh.GetIndices())
        if (index >= mesh.GetNumVertices())
            return false;
    return true;
}

} // namespace

TezRef<TezIndexedMesh> TezIndexedMesh::ReadFromPlyFile(TezString const& path)
{
    return ReadFromPlyFileRhinoFlavor(path);
}

TezRef<TezIndexedMesh> TezIndexedMesh::ReadFromPlyFileRhinoFlavor(TezString const& path)
{
    if (!tez_detail::IsRegularMeshFile(path.c_str(), "TezIndexedMesh::ReadFromPlyFile"))
        return nullptr;
    p_ply ply = ply_open(path.c_str(), IgnoreErrors, 0, nullptr);
    if (!ply)
        return nullptr;
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    PlyTarget target;
    target.vertices = &mesh->m_vertices;
    target.indices = &mesh->m_indices;
    bool ok = ply_read_header(ply) != 0;
    if (ok) {
        static char const* const kNames[6] = {"x", "y", "z", "nx", "ny", "nz"};
        long vertices = 0;
        for (long offset = 0; offset < 6; ++offset)
            vertices = std::max(vertices, ply_set_read_cb(ply, "vertex", kNames[offset], VertexValue, &target, offset));
        // The reader has bounded the counts by the file's size.
        mesh->m_vertices.resize(size_t(vertices));
        long const faces = SetFaceCallback(ply, FaceValue, &target, "TezIndexedMesh::ReadFromPlyFile", path.c_str());
        // Room for triangles; quads grow the array as they come.
        mesh->m_indices.resize(3 * std::min<size_t>(size_t(faces), kPresizedFaces) + 6);
        ok = ply_read(ply) != 0;
    }
    ply_close(ply);
    if (!ok)
        return nullptr;
    mesh->m_indices.resize(3 * target.triangles);
    if (mesh->m_indices.capacity() > mesh->m_indices.size() + mesh->m_indices.size() / 4)
        mesh->m_indices.shrink_to_fit();
    if (!IndicesInRange(*mesh))
        return nullptr;
    return mesh;
}

TezRef<TezIndexedMesh> TezIndexedMesh::ReadFromPlyFileBrontesFlavor(TezString const& path)
{
    if (!tez_detail::IsRegularMeshFile(path.c_str(), "TezIndexedMesh::ReadFromPlyFileBrontesFlavor"))
        return nullptr;
    p_ply ply = ply_open(path.c_str(), IgnoreErrors, 0, nullptr);
    if (!ply)
        return nullptr;
    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    PlyTarget target;
    target.vertices = &mesh->m_vertices;
    target.indices = &mesh->m_indices;
    bool ok = ply_read_header(ply) != 0;
    if (ok) {
        static char const* const kNames[3] = {"x", "y", "z"};
        long vertices = 0;
        for (long offset = 0; offset < 3; ++offset)
            vertices = std::max(vertices, ply_set_read_cb(ply, "vertex", kNames[offset], VertexValue, &target, offset));
        mesh->m_vertices.resize(size_t(vertices));
        long const faces =
            SetFaceCallback(ply, TriangleValue, &target, "TezIndexedMesh::ReadFromPlyFileBrontesFlavor", path.c_str());
        mesh->m_indices.resize(3 * std::min<size_t>(size_t(faces), kPresizedFaces));
        ok = ply_read(ply) != 0;
    }
    ply_close(ply);
    if (!ok)
        return nullptr;
    mesh->m_indices.resize(3 * target.triangles);
    if (!IndicesInRange(*mesh))
        return nullptr;
    // The scanner's calibration, stored column by column.
    TezMatrix44<float> const calibration(
        TezVector4<float>(0.2905f, 0.9063f, -0.3067f, 0.0f), TezVector4<float>(0.9565f, -0.2665f, 0.1184f, 0.0f),
        TezVector4<float>(0.02554f, -0.3277f, -0.9444f, 0.0f), TezVector4<float>(0.205f, -42.216f, 26.26f, 1.0f));
    mesh->TransformGeometry(calibration);
    mesh->MakeNormalsFromPositions();
    return mesh;
}
