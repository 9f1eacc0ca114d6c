#include "mesh/MeshWriter.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct Closer
{
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, Closer>;

bool WriteObj(TezIndexedMesh const& mesh, FILE* file)
{
    std::fprintf(file, "# %zu vertices, %zu triangles\n", mesh.GetNumVertices(), mesh.GetNumTriangles());
    for (TezMeshVertex const& v : mesh.GetVertices())
        std::fprintf(file, "v %.9g %.9g %.9g\n", v.position.x, v.position.y, v.position.z);
    for (TezMeshVertex const& v : mesh.GetVertices())
        std::fprintf(file, "vn %.9g %.9g %.9g\n", v.normal.x, v.normal.y, v.normal.z);
    for (size_t t = 0; t < mesh.GetNumTriangles(); ++t) {
        // OBJ counts from 1.
        unsigned const a = mesh.GetIndex(t, 0) + 1, b = mesh.GetIndex(t, 1) + 1, c = mesh.GetIndex(t, 2) + 1;
        std::fprintf(file, "f %u//%u %u//%u %u//%u\n", a, a, b, b, c, c);
    }
    return !std::ferror(file);
}

bool WritePly(TezIndexedMesh const& mesh, FILE* file, bool ascii)
{
    std::fprintf(file,
                 "ply\nformat %s 1.0\nelement vertex %zu\n"
                 "property float x\nproperty float y\nproperty float z\n"
                 "property float nx\nproperty float ny\nproperty float nz\n"
                 "element face %zu\nproperty list uchar int vertex_indices\nend_header\n",
                 ascii ? "ascii" : "binary_little_endian", mesh.GetNumVertices(), mesh.GetNumTriangles());
    if (ascii) {
        for (TezMeshVertex const& v : mesh.GetVertices())
            std::fprintf(file, "%.9g %.9g %.9g %.9g %.9g %.9g\n", v.position.x, v.position.y, v.position.z, v.normal.x,
                         v.normal.y, v.normal.z);
        for (size_t t = 0; t < mesh.GetNumTriangles(); ++t)
            std::fprintf(file, "3 %u %u %u\n", mesh.GetIndex(t, 0), mesh.GetIndex(t, 1), mesh.GetIndex(t, 2));
        return !std::ferror(file);
    }
    static_assert(sizeof(TezMeshVertex) == 6 * sizeof(float), "a vertex is the six floats of the header");
    // The machine's own order is the file's on the little-endian machines we run on.
    std::vector<TezMeshVertex> const& vertices = mesh.GetVertices();
    if (!vertices.empty() &&
        std::fwrite(vertices.data(), sizeof(TezMeshVertex), vertices.size(), file) != vertices.size())
        return false;
    for (size_t t = 0; t < mesh.GetNumTriangles(); ++t) {
        unsigned char face[13];
        face[0] = 3;
        for (int k = 0; k < 3; ++k) {
            int32_t const index = int32_t(mesh.GetIndex(t, k));
            std::memcpy(face + 1 + 4 * k, &index, 4);
        }
        if (std::fwrite(face, sizeof face, 1, file) != 1)
            return false;
    }
    return true;
}

} // namespace

TezMeshWriter::Format TezMeshWriter::FormatForName(std::string const& path)
{
    size_t const dot = path.find_last_of('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos)
        return Format::Unknown;
    std::string extension = path.substr(dot + 1);
    for (char& c : extension)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return extension == "stl"   ? Format::Stl
           : extension == "obj" ? Format::Obj
           : extension == "ply" ? Format::Ply
                                : Format::Unknown;
}

bool TezMeshWriter::Write(TezRef<TezIndexedMesh> const& mesh, std::string const& path, bool ascii)
{
    Format const format = FormatForName(path);
    if (format == Format::Unknown || !mesh) {
        errno = EINVAL;
        return false;
    }
    if (format == Format::Stl)
        return TezIndexedMesh::WriteToStlFile(mesh, TezString(path.c_str()), !ascii);
    bool written = false;
    {
        File file(std::fopen(path.c_str(), format == Format::Ply && !ascii ? "wb" : "w"));
        if (!file)
            return false;
        written = format == Format::Obj ? WriteObj(*mesh, file.get()) : WritePly(*mesh, file.get(), ascii);
        written = std::fclose(file.release()) == 0 && written;
    }
    if (!written) {
        int const saved = errno;
        std::remove(path.c_str());
        errno = saved;
    }
    return written;
}
