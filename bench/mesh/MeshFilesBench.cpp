// Reading mesh files of two million triangles: binary STL (corners joined by
// position), OBJ and binary PLY, against Assimp and tinyobjloader. Every
// reader here runs on one thread, ours included.

#include "core/Logger.h"
#include "mesh/IndexedMesh.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#if TEZ_PEER_BENCH
#    include <assimp/Importer.hpp>
#    include <assimp/postprocess.h>
#    include <assimp/scene.h>
#    include <tiny_obj_loader.h>
#endif

namespace {

// A torus of 1000 x 1000 quads: two million triangles, a million vertices,
// written once per run into a temporary folder as STL, OBJ and PLY.
class MeshFiles
{
public:
    static MeshFiles& Get()
    {
        static MeshFiles files;
        return files;
    }
    std::string stl, obj, ply;
    size_t triangles = 0;

private:
    MeshFiles()
    {
        TezLogger::SetConsoleLevel(TezLogger::Warn); // the readers' timing lines
        m_folder = std::filesystem::temp_directory_path() / ("tez-mesh-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(m_folder);
        TezRef<TezIndexedMesh> torus = TezIndexedMesh::CreateTorus(1000, 1000, 3.0f, 1.0f);
        triangles = torus->GetNumTriangles();
        stl = (m_folder / "torus.stl").string();
        obj = (m_folder / "torus.obj").string();
        ply = (m_folder / "torus.ply").string();
        TezIndexedMesh::WriteToStlFile(torus, TezString(stl.c_str()), true);

        FILE* f = std::fopen(obj.c_str(), "w");
        for (TezMeshVertex const& v : torus->GetVertices())
            std::fprintf(f, "v %.7g %.7g %.7g\n", v.position.x, v.position.y, v.position.z);
        for (TezMeshVertex const& v : torus->GetVertices())
            std::fprintf(f, "vn %.6f %.6f %.6f\n", v.normal.x, v.normal.y, v.normal.z);
        std::vector<unsigned int> const& idx = torus->GetIndices();
        for (size_t t = 0; t < idx.size(); t += 3)
            std::fprintf(f, "f %u//%u %u//%u %u//%u\n", idx[t] + 1, idx[t] + 1, idx[t + 1] + 1, idx[t + 1] + 1,
                         idx[t + 2] + 1, idx[t + 2] + 1);
        std::fclose(f);

        f = std::fopen(ply.c_str(), "wb");
        std::fprintf(f,
                     "ply\nformat binary_little_endian 1.0\nelement vertex %zu\nproperty float x\n"
                     "property float y\nproperty float z\nproperty float nx\nproperty float ny\n"
                     "property float nz\nelement face %zu\nproperty list uchar int vertex_index\nend_header\n",
                     torus->GetNumVertices(), torus->GetNumTriangles());
        std::fwrite(torus->GetVertices().data(), sizeof(TezMeshVertex), torus->GetNumVertices(), f);
        for (size_t t = 0; t < idx.size(); t += 3) {
            unsigned char const three = 3;
            std::fwrite(&three, 1, 1, f);
            std::fwrite(&idx[t], 4, 3, f);
        }
        std::fclose(f);
    }
    ~MeshFiles()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    std::filesystem::path m_folder;
};

void Report(benchmark::State& state, std::string const& path)
{
    MeshFiles& files = MeshFiles::Get();
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(files.triangles));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(std::filesystem::file_size(path)));
}

void BM_MeshReadStlBinary(benchmark::State& state)
{
    MeshFiles& files = MeshFiles::Get();
    for (auto _ : state) {
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromStlFile(TezString(files.stl.c_str()));
        if (!mesh || mesh->GetNumVertices() != files.triangles / 2)
            state.SkipWithError("wrong mesh");
        benchmark::DoNotOptimize(mesh.Get());
    }
    Report(state, files.stl);
}
BENCHMARK(BM_MeshReadStlBinary)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MeshReadObj(benchmark::State& state)
{
    MeshFiles& files = MeshFiles::Get();
    for (auto _ : state) {
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromObjFile(TezString(files.obj.c_str()));
        if (!mesh || mesh->GetNumTriangles() != files.triangles)
            state.SkipWithError("wrong mesh");
        benchmark::DoNotOptimize(mesh.Get());
    }
    Report(state, files.obj);
}
BENCHMARK(BM_MeshReadObj)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MeshReadPlyBinary(benchmark::State& state)
{
    MeshFiles& files = MeshFiles::Get();
    for (auto _ : state) {
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromPlyFile(TezString(files.ply.c_str()));
        if (!mesh || mesh->GetNumTriangles() != files.triangles)
            state.SkipWithError("wrong mesh");
        benchmark::DoNotOptimize(mesh.Get());
    }
    Report(state, files.ply);
}
BENCHMARK(BM_MeshReadPlyBinary)->Unit(benchmark::kMillisecond)->UseRealTime();

#if TEZ_PEER_BENCH

void AssimpRead(benchmark::State& state, std::string const& path, unsigned int flags)
{
    MeshFiles& files = MeshFiles::Get();
    for (auto _ : state) {
        Assimp::Importer importer;
        aiScene const* scene = importer.ReadFile(path, flags);
        if (!scene || scene->mNumMeshes == 0)
            state.SkipWithError(importer.GetErrorString());
        benchmark::DoNotOptimize(scene);
    }
    Report(state, path);
    (void)files;
}

// Assimp reads the triangles as they stand, without joining corners: less
// work than ours, which joins them by position.
void BM_MeshReadStlBinary_Assimp(benchmark::State& state) { AssimpRead(state, MeshFiles::Get().stl, 0); }
BENCHMARK(BM_MeshReadStlBinary_Assimp)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same work as ours: the face normal every STL corner carries is dropped
// first (else Assimp's joining would compare it too and give another mesh),
// then corners are joined by position. The vertex count is checked against
// ours.
void BM_MeshReadStlBinary_AssimpJoined(benchmark::State& state)
{
    MeshFiles& files = MeshFiles::Get();
    for (auto _ : state) {
        Assimp::Importer importer;
        importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS);
        aiScene const* scene =
            importer.ReadFile(files.stl, aiProcess_RemoveComponent | aiProcess_JoinIdenticalVertices);
        if (!scene || scene->mNumMeshes != 1 || scene->mMeshes[0]->mNumVertices != files.triangles / 2) {
            state.SkipWithError(scene ? "another mesh than ours" : importer.GetErrorString());
            break;
        }
        benchmark::DoNotOptimize(scene);
    }
    Report(state, files.stl);
}
BENCHMARK(BM_MeshReadStlBinary_AssimpJoined)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MeshReadPlyBinary_Assimp(benchmark::State& state) { AssimpRead(state, MeshFiles::Get().ply, 0); }
BENCHMARK(BM_MeshReadPlyBinary_Assimp)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MeshReadObj_TinyObjLoader(benchmark::State& state)
{
    MeshFiles& files = MeshFiles::Get();
    for (auto _ : state) {
        tinyobj::attrib_t attrib;
        std::vector<tinyobj::shape_t> shapes;
        std::vector<tinyobj::material_t> materials;
        std::string warn, err;
        if (!tinyobj::LoadObj(&attrib, &shapes, &materials, &warn, &err, files.obj.c_str()))
            state.SkipWithError(err.c_str());
        benchmark::DoNotOptimize(attrib.vertices.data());
    }
    Report(state, files.obj);
}
BENCHMARK(BM_MeshReadObj_TinyObjLoader)->Unit(benchmark::kMillisecond)->UseRealTime();

#endif

} // namespace
