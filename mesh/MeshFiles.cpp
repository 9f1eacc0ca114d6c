// STL and OBJ files of TezIndexedMesh, and the choice of reader by name.

#include "mesh/IndexedMesh.h"

#include "core/Logger.h"
#include "core/Progress.h"
#include "core/Threads.h"
#include "mesh/detail/FileBytes.h"
#include "mesh/detail/PositionMap.h"
#include "mesh/detail/TextScan.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include <sys/stat.h>

namespace {

using tez_detail::PositionMap;
using tez_detail::TextScan;
using Vec = TezVector3<float>;

struct FileCloser
{
    void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

File Open(TezString const& path, char const* mode) { return File(std::fopen(path.c_str(), mode)); }

// Joins STL corners of equal position: a new position takes the facet normal,
// a known one adds it, and every normal is normalised at the end.
class CornerJoiner
{
public:
    // `triangles` is a guess that sizes the arrays up front; a stream whose
    // size is unknown may claim anything, so the guess is capped.
    explicit CornerJoiner(size_t triangles) : m_map(std::min(triangles, kMaxGuess) / 2 + 16)
    {
        triangles = std::min(triangles, kMaxGuess);
        m_vertices.reserve(triangles / 2 + 16);
        m_indices.reserve(3 * triangles);
    }

    void Add(Vec const& position, Vec const& normal)
    {
        uint32_t const next = static_cast<uint32_t>(m_vertices.size());
        uint32_t const found = m_map.FindOrInsert(position, next);
        if (found == PositionMap::kNone) {
            m_vertices.emplace_back(position, normal);
            m_indices.push_back(next);
        } else {
            m_vertices[found].normal += normal;
            m_indices.push_back(found);
        }
    }

    TezRef<TezIndexedMesh> Finish()
    {
        for (TezMeshVertex& v : m_vertices)
            v.normal.Normalize();
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
        m_vertices.shrink_to_fit();
        mesh->GetVertices().swap(m_vertices);
        mesh->GetIndices().swap(m_indices);
        return mesh;
    }

private:
    static constexpr size_t kMaxGuess = size_t(1) << 24;
    PositionMap m_map;
    std::vector<TezMeshVertex> m_vertices;
    std::vector<unsigned int> m_indices;
};

bool EndsWithNoCase(TezString const& path, char const* suffix)
{
    int const n = path.Length(), k = static_cast<int>(std::strlen(suffix));
    return n >= k && path.Right(k).CompareNoCase(TezString(suffix)) == 0;
}

} // namespace

TezRef<TezIndexedMesh> TezIndexedMesh::ReadFromFile(TezString const& path)
{
    if (EndsWithNoCase(path, ".ply"))
        return ReadFromPlyFile(path);
    if (EndsWithNoCase(path, ".stl"))
        return ReadFromStlFile(path);
    if (EndsWithNoCase(path, ".obj"))
        return ReadFromObjFile(path);
    return nullptr;
}

// ---- STL ----

TezRef<TezIndexedMesh> TezIndexedMesh::ReadFromStlFile(TezString const& path)
{
    if (!tez_detail::IsRegularMeshFile(path.c_str(), "TezIndexedMesh::ReadFromStlFile"))
        return nullptr;
    File file = Open(path, "r");
    if (!file)
        return nullptr;
    // Text unless a byte of 127 or more shows up; "solid" decides nothing.
    bool text = true;
    unsigned char chunk[1 << 16];
    size_t got;
    while (text && (got = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        for (size_t i = 0; i < got; ++i) {
            if (chunk[i] >= 127) {
                text = false;
                break;
            }
        }
    }
    if (text) {
        std::rewind(file.get());
        if (TezRef<TezIndexedMesh> mesh = ReadFromStlAscii(file.get()))
            return mesh;
    }
    file = Open(path, "rb");
    if (!file)
        return nullptr;
    return ReadFromStlBinary(file.get());
}

TezRef<TezIndexedMesh> TezIndexedMesh::ReadFromStlAscii(FILE* file)
{
    int64_t const start = TezTimer::TimeNow();
    std::vector<char> bytes;
    if (!tez_detail::ReadRest(file, bytes))
        return nullptr;
    char const* const begin = bytes.data();
    char const* const end = begin + bytes.size();

    // Seven lines of five or more characters to a facet, the newline counted.
    size_t longLines = 0;
    for (char const* p = begin; p < end;) {
        char const* nl = static_cast<char const*>(std::memchr(p, '\n', size_t(end - p)));
        char const* next = nl ? nl + 1 : end;
        if (next - p >= 5)
            ++longLines;
        p = next;
    }
    size_t const count = longLines / 7;
    if (count == 0 || count > 0xffffffffu / 3)
        return nullptr;

    TextScan scan{begin, end};
    scan.SkipLine();
    CornerJoiner joiner(count);
    TezProgress progress("Reading STL file...", count / 1000);
    for (size_t t = 0; t < count; ++t) {
        Vec normal, p[3];
        // facet normal x y z / outer loop / vertex x y z (three) / endloop / endfacet
        if (!scan.SkipToken() || !scan.SkipToken() || !scan.Number(normal.x) || !scan.Number(normal.y) ||
            !scan.Number(normal.z) || !scan.SkipToken() || !scan.SkipToken())
            return nullptr;
        for (Vec& corner : p)
            if (!scan.SkipToken() || !scan.Number(corner.x) || !scan.Number(corner.y) || !scan.Number(corner.z))
                return nullptr;
        scan.SkipToken();
        scan.SkipToken();
        for (Vec const& corner : p)
            joiner.Add(corner, normal);
        if ((t + 1) % 1000 == 0) {
            progress.Step();
            if (progress.StopRequested())
                return nullptr;
        }
    }
    TezRef<TezIndexedMesh> mesh = joiner.Finish();
    TezLogger::info("TIME: Read ASCII STL file: %.3f\n", TezTimer::TimeElapsed(start));
    return mesh;
}

TezRef<TezIndexedMesh> TezIndexedMesh::ReadFromStlBinary(FILE* file)
{
    int64_t const start = TezTimer::TimeNow();
    unsigned char header[84];
    if (std::fread(header, 1, sizeof header, file) != sizeof header || std::ferror(file))
        return nullptr;
    uint32_t const count =
        uint32_t(header[80]) | uint32_t(header[81]) << 8 | uint32_t(header[82]) << 16 | uint32_t(header[83]) << 24;
    if (count > 0xffffffffu / 3)
        return nullptr;
    // A count that the file cannot hold is refused before anything is sized
    // by it.
    long const here = std::ftell(file);
    if (here >= 0 && std::fseek(file, 0, SEEK_END) == 0) {
        long const size = std::ftell(file);
        if (size < 0 || std::fseek(file, here, SEEK_SET) != 0)
            return nullptr;
        if (uint64_t(size - here) < uint64_t(count) * 50)
            return nullptr;
    }

    CornerJoiner joiner(count);
    TezProgress progress("Reading STL file...", count / 5000);
    size_t const chunkTriangles = 5000;
    std::vector<unsigned char> chunk(chunkTriangles * 50);
    for (uint32_t done = 0; done < count;) {
        size_t const n = std::min<size_t>(chunkTriangles, count - done);
        if (std::fread(chunk.data(), 50, n, file) != n)
            return nullptr;
        for (size_t t = 0; t < n; ++t) {
            float f[12];
            std::memcpy(f, &chunk[50 * t], sizeof f);
            Vec const normal(f[0], f[1], f[2]);
            joiner.Add(Vec(f[3], f[4], f[5]), normal);
            joiner.Add(Vec(f[6], f[7], f[8]), normal);
            joiner.Add(Vec(f[9], f[10], f[11]), normal);
        }
        done += static_cast<uint32_t>(n);
        if (n == chunkTriangles)
            progress.Step();
        if (progress.StopRequested())
            return nullptr;
    }
    if (std::ferror(file))
        return nullptr;
    TezRef<TezIndexedMesh> mesh = joiner.Finish();
    TezLogger::info("TIME: Read binary STL file: %.3f\n", TezTimer::TimeElapsed(start));
    return mesh;
}

bool TezIndexedMesh::WriteToStlFile(TezRef<TezIndexedMesh> mesh, TezString const& path, bool binary)
{
    File file = Open(path, binary ? "wb" : "w");
    if (!file)
        return false;
    bool const written = binary ? WriteToStlFileBinary(mesh, file.get()) : WriteToStlFileAscii(mesh, file.get());
    return std::fclose(file.release()) == 0 && written;
}

namespace {

Vec FaceNormal(TezIndexedMesh const& mesh, size_t t)
{
    // The stored normal is always the positions', never the vertices'.
    Vec const& p0 = mesh.GetVertex(mesh.GetIndex(t, 0)).position;
    Vec e1 = mesh.GetVertex(mesh.GetIndex(t, 1)).position - p0;
    Vec e2 = mesh.GetVertex(mesh.GetIndex(t, 2)).position - p0;
    e1.Normalize();
    e2.Normalize();
    Vec n = e1 ^ e2;
    n.Normalize();
    return n;
}

} // namespace

bool TezIndexedMesh::WriteToStlFileAscii(TezRef<TezIndexedMesh> mesh, FILE* file)
{
    std::fputs("solid OstranMetrologiesMesh\n", file);
    for (size_t t = 0; mesh && t < mesh->GetNumTriangles(); ++t) {
        Vec const n = FaceNormal(*mesh, t);
        std::fprintf(file, "facet normal %f %f %f\n", n.x, n.y, n.z);
        std::fputs("  outer loop\n", file);
        for (int c = 0; c < 3; ++c) {
            Vec const& p = mesh->GetVertex(mesh->GetIndex(t, c)).position;
            std::fprintf(file, "    vertex %f %f %f\n", p.x, p.y, p.z);
        }
        std::fputs("  endloop\n", file);
        std::fputs("endfacet\n", file);
    }
    std::fputs("endsolid OstranMetrologiesMesh\n", file);
    return !std::ferror(file);
}

bool TezIndexedMesh::WriteToStlFileBinary(TezRef<TezIndexedMesh> mesh, FILE* file)
{
    unsigned char header[84] = {};
    static char const kSignature[] = "Ostran Metrologies, Incorporated STL Writer";
    static_assert(sizeof kSignature - 1 == 43, "the header's text is 43 characters");
    std::memcpy(header, kSignature, 43);
    uint32_t const count = mesh ? static_cast<uint32_t>(mesh->GetNumTriangles()) : 0;
    for (int i = 0; i < 4; ++i)
        header[80 + i] = static_cast<unsigned char>(count >> (8 * i));
    std::fwrite(header, 1, sizeof header, file);

    // Floats go out as the machine holds them: this build assumes a
    // little-endian host, as every target of the kernel is.
    std::vector<unsigned char> chunk;
    chunk.reserve(50 * 4096);
    for (uint32_t t = 0; t < count; ++t) {
        float f[12];
        Vec const n = FaceNormal(*mesh, t);
        f[0] = n.x, f[1] = n.y, f[2] = n.z;
        for (int c = 0; c < 3; ++c) {
            Vec const& p = mesh->GetVertex(mesh->GetIndex(t, c)).position;
            f[3 + 3 * c] = p.x, f[4 + 3 * c] = p.y, f[5 + 3 * c] = p.z;
        }
        size_t const at = chunk.size();
        chunk.resize(at + 50);
        std::memcpy(&chunk[at], f, 48);
        chunk[at + 48] = chunk[at + 49] = 0;
        if (chunk.size() == chunk.capacity()) {
            std::fwrite(chunk.data(), 1, chunk.size(), file);
            chunk.clear();
        }
    }
    std::fwrite(chunk.data(), 1, chunk.size(), file);
    return !std::ferror(file);
}

// ---- OBJ ----

TezRef<TezIndexedMesh> TezIndexedMesh::ReadFromObjFile(TezString const& path)
{
    tez_detail::FileBytes bytes;
    struct stat info;
    bool const exists = stat(path.c_str(), &info) == 0;
    if (exists && !tez_detail::IsRegularMeshFile(path.c_str(), "TezIndexedMesh::ReadFromObjFile"))
        return nullptr;
    if (!exists || !bytes.Open(path.c_str())) {
        std::fprintf(stderr, "Cannot open file [%s]\n", path.c_str());
        return nullptr;
    }

    std::vector<Vec> positions, normals;
    std::vector<unsigned int> indices;
    std::vector<unsigned int> face;

    char const* p = bytes.Data();
    char const* const end = p + bytes.Size();
    while (p < end) {
        char const* eol = static_cast<char const*>(std::memchr(p, '\n', size_t(end - p)));
        if (!eol)
            eol = end;
        TextScan line{p, eol};
        p = eol + 1;
        while (line.p < line.end && (*line.p == ' ' || *line.p == '\t'))
            ++line.p;
        char const* word = line.p;
        while (line.p < line.end && !tez_detail::IsBlank(*line.p))
            ++line.p;
        size_t const length = size_t(line.p - word);
        if (length == 1 && word[0] == 'v') {
            Vec v;
            if (!line.Number(v.x) || !line.Number(v.y) || !line.Number(v.z))
                return nullptr;
            positions.push_back(v);
        } else if (length == 2 && word[0] == 'v' && word[1] == 'n') {
            Vec n;
            if (!line.Number(n.x) || !line.Number(n.y) || !line.Number(n.z))
                return nullptr;
            normals.push_back(n);
        } else if (length == 1 && word[0] == 'f') {
            // Corners v, v/vt, v//vn or v/vt/vn: the position's number alone
            // counts. A face of k corners becomes a fan from its first corner.
            face.clear();
            for (;;) {
                line.SkipSpace();
                if (line.AtEnd() || *line.p == '#')
                    break;
                long long n;
                if (!line.Integer(n))
                    return nullptr;
                long long index = n > 0 ? n - 1 : n < 0 ? static_cast<long long>(positions.size()) + n : 0;
                if (index < 0 || index > 0xfffffffell)
                    return nullptr;
                face.push_back(static_cast<unsigned int>(index));
                while (line.p < line.end && !tez_detail::IsBlank(*line.p))
                    ++line.p;
            }
            for (size_t i = 2; i < face.size(); ++i) {
                indices.push_back(face[0]);
                indices.push_back(face[i - 1]);
                indices.push_back(face[i]);
            }
        }
        // vt, usemtl, mtllib, g, o, s, comments and the rest change nothing.
    }
    for (unsigned int index : indices)
        if (index >= positions.size())
            return nullptr;

    TezRef<TezIndexedMesh> mesh = CreateEmpty();
    std::vector<TezMeshVertex>& vertices = mesh->GetVertices();
    vertices.resize(positions.size());
    for (size_t i = 0; i < positions.size(); ++i)
        vertices[i] = TezMeshVertex(positions[i], i < normals.size() ? normals[i] : Vec(0.0f, 0.0f, 1.0f));
    mesh->GetIndices().swap(indices);
    return mesh;
}
