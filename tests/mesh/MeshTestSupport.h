#pragma once
// Shared helpers of the mesh tests: an application whose UI bridge records
// the progress protocol, and small mesh builders.

#include "core/Application.h"
#include "core/UIManager.h"
#include "mesh/IndexedMesh.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

// Reaches the operations the class keeps for itself and its readers.
struct TezIndexedMeshInternals
{
    static void EliminateDuplicateVertices(TezIndexedMesh& m) { m.EliminateDuplicateVertices(); }
    static void MakeNormalsFromPositions(TezIndexedMesh& m) { m.MakeNormalsFromPositions(); }
    static TezRef<TezIndexedMesh> ReadScannerPly(char const* path)
    {
        return TezIndexedMesh::ReadFromPlyFileBrontesFlavor(TezString(path));
    }
};

class MeshTestUI : public TezUICallback
{
public:
    std::vector<std::string> messages;
    uint64_t started = 0, steps = 0, ended = 0;
    bool stop = false; // the host's stop flag
    void StartProgress(uint64_t) override { ++started; }
    void EndProgress() override { ++ended; }
    void StepProgress(uint32_t n) override { steps += n; }
    void SetProgressMessage(TezString const& m) override { messages.emplace_back(m.c_str()); }
    void StartNestedSection(bool) override {}
    void FinishNestedSection() override {}
    void AddNode(int) override {}
    void RemoveNode(int) override {}
    void SetActiveNode(int) override {}
    void SetActiveLevel(int) override {}
    int GetActiveLevel() override { return 0; }
    bool GetStopFlag() override { return stop; }
    void ZoomAll() override {}
    void SetCursor(TezResourceManager::Cursors) override {}
    void SetToolCursor(TezResourceManager::Cursors) override {}
    void ReportError(TezString const&) override {}
};

// Becomes the application while it lives; its UI manager reports to `ui`.
class MeshTestApplication : public TezApplication
{
public:
    MeshTestApplication() : TezApplication(nullptr, nullptr)
    {
        m_instance = this;
        GetUIManager()->SetCallback(&ui);
    }
    ~MeshTestApplication() override
    {
        GetUIManager()->SetCallback(nullptr);
        m_instance = nullptr;
    }
    TezRef<TezDocument> GetActiveDocument() override { return nullptr; }
    TezRef<TezDocument> NewDocument() override { return nullptr; }
    TezRef<TezDocument> OpenDocument(TezString const&) override { return nullptr; }
    TezString const& GetScriptModuleName() override { return m_name; }

    MeshTestUI ui;

private:
    TezString m_name{"mesh-test"};
};

inline TezRef<TezIndexedMesh> MakeMesh(std::vector<TezVector3<float>> const& positions,
                                       std::vector<unsigned int> const& indices)
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    for (TezVector3<float> const& p : positions)
        mesh->AddVertex(TezMeshVertex(p, TezVector3<float>(0.0f, 0.0f, 0.0f)));
    mesh->GetIndices() = indices;
    return mesh;
}

// A closed tetrahedron wound counterclockwise outwards, volume 1/6.
inline TezRef<TezIndexedMesh> MakeTetrahedron()
{
    return MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {0, 2, 1, 0, 1, 3, 0, 3, 2, 1, 2, 3});
}

// A fresh folder for one test's files, removed afterwards.
class ScratchFolder
{
public:
    ScratchFolder()
    {
        static int serial = 0;
        m_path = std::filesystem::temp_directory_path() /
                 ("tez-mesh-" + std::to_string(getpid()) + "-" + std::to_string(serial++));
        std::filesystem::create_directories(m_path);
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    std::string File(std::string const& name) const { return (m_path / name).string(); }
    // Writes the bytes and returns the file's path.
    std::string Write(std::string const& name, std::string const& bytes) const
    {
        std::string const path = File(name);
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
        return path;
    }

private:
    std::filesystem::path m_path;
};

inline std::string ReadBytes(std::string const& path)
{
    std::string bytes;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        char buffer[4096];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
            bytes.append(buffer, n);
        std::fclose(f);
    }
    return bytes;
}
