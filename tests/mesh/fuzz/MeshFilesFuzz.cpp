// libFuzzer target: the mesh readers on hostile files. The first input byte
// picks the kind (STL, OBJ, PLY, or the scanner's PLY); the rest is the file.
// A read must end in null or in a mesh whose indices all name vertices.
// fuzz-subsystems: core math document render volume mesh platform

#include "mesh/IndexedMesh.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

struct TezIndexedMeshInternals
{
    static TezRef<TezIndexedMesh> ReadScannerPly(char const* path)
    {
        return TezIndexedMesh::ReadFromPlyFileBrontesFlavor(TezString(path));
    }
};

namespace {

char const* const kExtensions[] = {".stl", ".obj", ".ply", ".ply"};

void WriteSeed(std::string const& dir, int index, int kind, std::string const& bytes)
{
    std::string path = dir + "/seed-" + std::to_string(index);
    if (FILE* file = std::fopen(path.c_str(), "wb")) {
        std::fputc(kind, file);
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::fclose(file);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    char const* dir = std::getenv("TEZ_FUZZ_SEED_DIR");
    if (!dir || !*dir)
        return 0;
    std::string const xyz = "property float x\nproperty float y\nproperty float z\n";
    WriteSeed(dir, 0, 0,
              "solid s\nfacet normal 0 0 1\n  outer loop\n    vertex 0 0 0\n    vertex 1 0 0\n    vertex 0 1 0\n"
              "  endloop\nendfacet\nendsolid s\n");
    std::string binary(80, '\x80');
    binary += std::string("\x01\0\0\0", 4) + std::string(48, '\x3f') + std::string(2, '\0');
    WriteSeed(dir, 1, 0, binary);
    WriteSeed(dir, 2, 1, "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 1\nf 1//1 2//1 3//1\nf -1 -2 -3 1\n");
    WriteSeed(dir, 3, 2,
              "ply\nformat ascii 1.0\nelement vertex 4\n" + xyz +
                  "element face 2\nproperty list uchar int vertex_index\nend_header\n"
                  "0 0 0\n1 0 0\n1 1 0\n0 1 0\n3 0 1 2\n4 0 1 2 3\n");
    std::string ply = "ply\nformat binary_big_endian 1.0\nelement vertex 3\n" + xyz +
                      "element face 1\nproperty list uchar int vertex_indices\nend_header\n";
    ply += std::string(36, '\x3f') + std::string("\x03\0\0\0\0\0\0\0\x01\0\0\0\x02", 13);
    WriteSeed(dir, 4, 3, ply);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size == 0)
        return 0;
    int const kind = data[0] % 4;
    static std::string const base = "/tmp/tez-mesh-fuzz-" + std::to_string(getpid());
    std::string const path = base + kExtensions[kind];
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data + 1, 1, size - 1, file);
    std::fclose(file);

    TezRef<TezIndexedMesh> mesh = kind == 3 ? TezIndexedMeshInternals::ReadScannerPly(path.c_str())
                                            : TezIndexedMesh::ReadFromFile(TezString(path.c_str()));
    std::remove(path.c_str());
    if (!mesh)
        return 0;
    for (unsigned int index : mesh->GetIndices())
        if (index >= mesh->GetNumVertices())
            std::abort();
    TezMeshCheckResults check;
    mesh->Check(check);
    (void)mesh->ComputeSurfaceArea();
    return 0;
}
