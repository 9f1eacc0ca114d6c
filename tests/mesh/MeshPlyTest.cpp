#include "mesh/IndexedMesh.h"

#include "MeshTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <random>

using Vec = TezVector3<float>;

namespace {

// Binary values of any PLY type in either byte order.
class PlyBytes
{
public:
    explicit PlyBytes(bool bigEndian) : m_big(bigEndian) {}
    template <class T>
    PlyBytes& Put(T value)
    {
        char b[sizeof(T)];
        std::memcpy(b, &value, sizeof(T));
        if (m_big)
            std::reverse(b, b + sizeof(T));
        bytes.append(b, sizeof(T));
        return *this;
    }
    std::string bytes;

private:
    bool m_big;
};

std::string const kAsciiQuadsAndPentagon = "ply\n"
                                           "format ascii 1.0\n"
                                           "comment made by hand\n"
                                           "element vertex 5\n"
                                           "property float x\n"
                                           "property float y\n"
                                           "property float z\n"
                                           "property float nx\n"
                                           "property float ny\n"
                                           "property float nz\n"
                                           "element face 3\n"
                                           "property list uchar int vertex_index\n"
                                           "end_header\n"
                                           "0 0 0 0 0 1\n"
                                           "1 0 0 0 0 1\n"
                                           "1 1 0 0 0 1\n"
                                           "0 1 0 0 0 1\n"
                                           "0.5 1.5 0 0 0 1\n"
                                           "3 0 1 2\n"
                                           "4 0 1 2 3\n"
                                           "5 0 1 4 2 3\n";

} // namespace

TEST(TezMeshPly, AsciiQuadsAndPentagonsBecomeTwoTriangles)
{
    ScratchFolder folder;
    TezRef<TezIndexedMesh> mesh =
        TezIndexedMesh::ReadFromPlyFile(TezString(folder.Write("a.ply", kAsciiQuadsAndPentagon).c_str()));
    ASSERT_TRUE(mesh);
    EXPECT_EQ(5u, mesh->GetNumVertices());
    // (a,b,c,d) gives (a,b,c), (a,c,d); a pentagon loses its last corner.
    EXPECT_EQ((std::vector<unsigned int>{0, 1, 2, 0, 1, 2, 0, 2, 3, 0, 1, 4, 0, 4, 2}), mesh->GetIndices());
    EXPECT_EQ(Vec(0.5f, 1.5f, 0), mesh->GetVertex(4).position);
    EXPECT_EQ(Vec(0, 0, 1), mesh->GetVertex(4).normal);
    // The same through the choice by extension, in capitals.
    EXPECT_TRUE(TezIndexedMesh::ReadFromFile(TezString(folder.Write("A.PLY", kAsciiQuadsAndPentagon).c_str())));
}

TEST(TezMeshPly, BinaryOfBothByteOrdersAndEveryScalarType)
{
    ScratchFolder folder;
    for (bool big : {false, true}) {
        // Positions of three different types, extra properties of the rest,
        // no normals, and lists counted by ushort with uint values.
        std::string header = std::string("ply\r\nformat ") + (big ? "binary_big_endian" : "binary_little_endian") +
                             " 1.0\r\n"
                             "obj_info scanner 7\n"
                             "element vertex 4\n"
                             "property char a\n"
                             "property double x\n"
                             "property int16 y\n"
                             "property uchar b\n"
                             "property float32 z\n"
                             "property ushort c\n"
                             "property int d\n"
                             "property uint32 e\n"
                             "element edge 1\n"
                             "property list uint8 float other\n"
                             "element face 2\n"
                             "property list ushort uint vertex_index\n"
                             "end_header\n";
        PlyBytes data(big);
        double const xs[4] = {0.25, 1e10, -3.5, 0.0};
        int16_t const ys[4] = {-300, 2, 3, 32767};
        float const zs[4] = {1.5f, -2.0f, 0.0f, 7.0f};
        for (int i = 0; i < 4; ++i)
            data.Put<int8_t>(-5)
                .Put(xs[i])
                .Put(ys[i])
                .Put<uint8_t>(200)
                .Put(zs[i])
                .Put<uint16_t>(60000)
                .Put<int32_t>(-70000)
                .Put<uint32_t>(4000000000u);
        data.Put<uint8_t>(2).Put(1.0f).Put(2.0f);
        data.Put<uint16_t>(3).Put<uint32_t>(0).Put<uint32_t>(1).Put<uint32_t>(2);
        data.Put<uint16_t>(4).Put<uint32_t>(3).Put<uint32_t>(2).Put<uint32_t>(1).Put<uint32_t>(0);
        TezRef<TezIndexedMesh> mesh =
            TezIndexedMesh::ReadFromPlyFile(TezString(folder.Write("b.ply", header + data.bytes).c_str()));
        ASSERT_TRUE(mesh) << (big ? "big" : "little");
        ASSERT_EQ(4u, mesh->GetNumVertices());
        for (int i = 0; i < 4; ++i) {
            Vec const& p = mesh->GetVertex(i).position;
            EXPECT_EQ(static_cast<float>(xs[i]), p.x);
            EXPECT_EQ(static_cast<float>(ys[i]), p.y);
            EXPECT_EQ(zs[i], p.z);
            EXPECT_EQ(Vec(0, 0, 0), mesh->GetVertex(i).normal);
        }
        EXPECT_EQ((std::vector<unsigned int>{0, 1, 2, 3, 2, 1, 3, 1, 0}), mesh->GetIndices());
    }
}

TEST(TezMeshPly, HostileFilesFailQuicklyWithoutHugeAllocations)
{
    ScratchFolder folder;
    auto read = [&](std::string const& bytes) {
        return TezIndexedMesh::ReadFromPlyFile(TezString(folder.Write("h.ply", bytes).c_str()));
    };
    std::string const xyz = "property float x\nproperty float y\nproperty float z\n";
    std::string const faces = "element face 1\nproperty list uchar int vertex_index\n";
    auto start = std::chrono::steady_clock::now();
    // A header claiming 2^40 vertices over a kilobyte of data.
    EXPECT_FALSE(read("ply\nformat binary_little_endian 1.0\nelement vertex 1099511627776\n" + xyz + "end_header\n" +
                      std::string(1024, '\x01')));
    // Likewise a face count, and a list length that runs past the end.
    EXPECT_FALSE(read("ply\nformat binary_little_endian 1.0\nelement vertex 0\n" + xyz +
                      "element face 1099511627776\nproperty list uchar int vertex_index\nend_header\n" +
                      std::string(1024, '\x03')));
    PlyBytes longList(false);
    longList.Put<uint32_t>(0x7fffffffu).Put<int32_t>(0);
    EXPECT_FALSE(read("ply\nformat binary_little_endian 1.0\nelement face 1\n"
                      "property list uint int vertex_index\nend_header\n" +
                      longList.bytes));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));

    PlyBytes triangle(false);
    for (float f : {0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f})
        triangle.Put(f);
    std::string const binaryHeader =
        "ply\nformat binary_little_endian 1.0\nelement vertex 3\n" + xyz + faces + "end_header\n";
    PlyBytes good = triangle;
    good.Put<uint8_t>(3).Put<int32_t>(0).Put<int32_t>(1).Put<int32_t>(2);
    ASSERT_TRUE(read(binaryHeader + good.bytes)); // the control
    // Truncated anywhere.
    for (size_t cut : {size_t(1), size_t(4), size_t(13), good.bytes.size() - 1})
        EXPECT_FALSE(read(binaryHeader + good.bytes.substr(0, good.bytes.size() - cut))) << cut;
    // Indices past the vertices, or negative.
    for (int32_t bad : {3, -1}) {
        PlyBytes b = triangle;
        b.Put<uint8_t>(3).Put<int32_t>(0).Put<int32_t>(bad).Put<int32_t>(2);
        EXPECT_FALSE(read(binaryHeader + b.bytes)) << bad;
    }
    // Headers that do not parse.
    for (std::string const& header :
         {std::string(""), std::string("ply\n"), std::string("plyformat ascii 1.0\nend_header\n"),
          std::string("ply\nformat ascii 1.0\nelement vertex 3\n") + xyz, // no end_header
          std::string("ply\nformat ascii 2.0x\nproperty float x\nend_header\n"),
          std::string("ply\nformat unknown 1.0\nend_header\n"),
          std::string("ply\nformat ascii 1.0\nelement vertex -3\nend_header\n"),
          std::string("ply\nformat ascii 1.0\nelement vertex 1\nproperty float128 x\nend_header\n0\n"),
          std::string("ply\nformat ascii 1.0\nelement vertex 1\nproperty list float int x\nend_header\n1 1\n"),
          std::string("ply\nformat ascii 1.0\nbogus\nend_header\n")})
        EXPECT_FALSE(read(header)) << header;
    // Bad ASCII numbers, and a fractional list length.
    EXPECT_FALSE(read("ply\nformat ascii 1.0\nelement vertex 1\n" + xyz + "end_header\n1 2 x\n"));
    EXPECT_FALSE(read("ply\nformat ascii 1.0\nelement vertex 3\n" + xyz + faces +
                      "end_header\n0 0 0\n1 0 0\n0 1 0\n2.5 0 1 2\n"));
    EXPECT_FALSE(TezIndexedMesh::ReadFromPlyFile(TezString(folder.File("missing.ply").c_str())));
}

TEST(TezMeshPly, ScannerFlavourCalibratesAndMakesNormals)
{
    ScratchFolder folder;
    std::string const text = "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                             "property float z\nelement face 2\nproperty list uchar int vertex_indices\n"
                             "end_header\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n3 0 1 2\n4 0 3 1 2\n";
    TezRef<TezIndexedMesh> mesh = TezIndexedMeshInternals::ReadScannerPly(folder.Write("s.ply", text).c_str());
    ASSERT_TRUE(mesh);
    // Triangles only: the second face keeps its first three corners.
    EXPECT_EQ((std::vector<unsigned int>{0, 1, 2, 0, 3, 1}), mesh->GetIndices());
    // Positions through the fixed calibration (columns as stored).
    EXPECT_EQ(Vec(0.205f, -42.216f, 26.26f), mesh->GetVertex(0).position);
    EXPECT_EQ(Vec(0.2905f + 0.205f, 0.9063f - 42.216f, -0.3067f + 26.26f), mesh->GetVertex(1).position);
    EXPECT_NEAR(1.0f, mesh->GetVertex(1).normal.Length(), 1e-6);
    // The public reader takes the same list, and splits the quad.
    TezRef<TezIndexedMesh> plain = TezIndexedMesh::ReadFromPlyFile(TezString(folder.File("s.ply").c_str()));
    ASSERT_TRUE(plain);
    EXPECT_EQ((std::vector<unsigned int>{0, 1, 2, 0, 3, 1, 0, 1, 2}), plain->GetIndices());
    EXPECT_EQ(Vec(1, 0, 0), plain->GetVertex(1).position);
}

TEST(TezMeshPly, FaceListsOfEitherNameAndAnyIntegerTypes)
{
    ScratchFolder folder;
    // Value writers by PLY type name, in both spellings of each type.
    auto put = [](PlyBytes& bytes, std::string const& type, int value) {
        if (type == "char" || type == "int8")
            bytes.Put<int8_t>(int8_t(value));
        else if (type == "uchar" || type == "uint8")
            bytes.Put<uint8_t>(uint8_t(value));
        else if (type == "short" || type == "int16")
            bytes.Put<int16_t>(int16_t(value));
        else if (type == "ushort" || type == "uint16")
            bytes.Put<uint16_t>(uint16_t(value));
        else if (type == "int" || type == "int32")
            bytes.Put<int32_t>(value);
        else
            bytes.Put<uint32_t>(uint32_t(value));
    };
    std::string const types[][2] = {{"uchar", "int"},    {"uint8", "uint32"}, {"char", "uint"},
                                    {"ushort", "short"}, {"int16", "uint16"}, {"int", "int8"},
                                    {"uint", "uchar"},   {"int32", "int32"},  {"uint32", "ushort"}};
    for (char const* name : {"vertex_index", "vertex_indices"})
        for (auto const& type : types)
            for (bool big : {false, true}) {
                std::string const header = std::string("ply\nformat ") +
                                           (big ? "binary_big_endian" : "binary_little_endian") +
                                           " 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                                           "property float z\nelement face 2\nproperty list " +
                                           type[0] + " " + type[1] + " " + name + "\nend_header\n";
                PlyBytes data(big);
                for (float f : {0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 1.f, 1.f, 0.f, 0.f, 1.f, 0.f})
                    data.Put(f);
                put(data, type[0], 3);
                for (int i : {0, 1, 2})
                    put(data, type[1], i);
                put(data, type[0], 4);
                for (int i : {3, 2, 1, 0})
                    put(data, type[1], i);
                SCOPED_TRACE(testing::Message()
                             << name << " list " << type[0] << " " << type[1] << (big ? " big" : ""));
                TezRef<TezIndexedMesh> mesh =
                    TezIndexedMesh::ReadFromPlyFile(TezString(folder.Write("f.ply", header + data.bytes).c_str()));
                ASSERT_TRUE(mesh);
                EXPECT_EQ((std::vector<unsigned int>{0, 1, 2, 3, 2, 1, 3, 1, 0}), mesh->GetIndices());
            }
    // Both lists present: the Rhino name is the one read.
    std::string const both = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                             "property float z\nelement face 1\nproperty list uchar int vertex_indices\n"
                             "property list uchar int vertex_index\nend_header\n0 0 0\n1 0 0\n0 1 0\n"
                             "3 2 1 0 3 0 1 2\n";
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromPlyFile(TezString(folder.Write("b.ply", both).c_str()));
    ASSERT_TRUE(mesh);
    EXPECT_EQ((std::vector<unsigned int>{0, 1, 2}), mesh->GetIndices());
}

// Real files written by many programs: each gives a mesh or a null result,
// and a few are known exactly.
TEST(TezMeshFiles, AssimpSampleModels)
{
    std::filesystem::path const root = "/usr/share/assimp/models";
    if (!std::filesystem::is_directory(root))
        GTEST_SKIP() << "assimp-testmodels is not installed";
    int files = 0, meshes = 0;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(root)) {
        std::string ext = entry.path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
        if (!entry.is_regular_file() || (ext != ".stl" && ext != ".ply" && ext != ".obj"))
            continue;
        ++files;
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromFile(TezString(entry.path().c_str()));
        if (!mesh)
            continue;
        ++meshes;
        for (unsigned int index : mesh->GetIndices())
            ASSERT_LT(index, mesh->GetNumVertices()) << entry.path();
    }
    EXPECT_GT(files, 30);
    EXPECT_GT(meshes, files / 2);

    struct Known
    {
        char const* file;
        size_t vertices, triangles;
    };
    for (Known const& known :
         {Known{"STL/triangle.stl", 3, 1}, Known{"PLY/cube.ply", 8, 12},
          Known{"PLY/cube_binary.ply", 8, 12} /* faces as "vertex_indices" */, Known{"OBJ/box.obj", 8, 12}}) {
        TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromFile(TezString((root / known.file).c_str()));
        ASSERT_TRUE(mesh) << known.file;
        EXPECT_EQ(known.vertices, mesh->GetNumVertices()) << known.file;
        EXPECT_EQ(known.triangles, mesh->GetNumTriangles()) << known.file;
    }
    // The two spiders are one model in text and in binary.
    TezRef<TezIndexedMesh> text = TezIndexedMesh::ReadFromFile(TezString((root / "STL/Spider_ascii.stl").c_str()));
    TezRef<TezIndexedMesh> binary = TezIndexedMesh::ReadFromFile(TezString((root / "STL/Spider_binary.stl").c_str()));
    ASSERT_TRUE(text && binary);
    EXPECT_EQ(binary->GetNumTriangles(), text->GetNumTriangles());
}

TEST(TezMeshFiles, MutatedFilesNeverYieldBadIndices)
{
    // Valid files of each kind with random bytes changed, cut or repeated:
    // every read ends with a mesh whose indices are in range, or null.
    ScratchFolder folder;
    PlyBytes ply(true);
    for (float f : {0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 1.0f, 0.0f})
        ply.Put(f);
    ply.Put<uint8_t>(4).Put<int32_t>(0).Put<int32_t>(1).Put<int32_t>(3).Put<int32_t>(2);
    std::string const seeds[] = {
        "ply\nformat binary_big_endian 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
        "property float z\nelement face 1\nproperty list uchar int vertex_index\nend_header\n" +
            ply.bytes,
        kAsciiQuadsAndPentagon, "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\nvn 0 0 1\nf 1//1 2//1 4//1 3//1\nf -1 -2 -3\n",
        "solid s\nfacet normal 0 0 1\n  outer loop\n    vertex 0 0 0\n    vertex 1 0 0\n    vertex 0 1 0\n"
        "  endloop\nendfacet\nendsolid s\n"};
    char const* const names[] = {"m.ply", "m.ply", "m.obj", "m.stl"};
    std::mt19937 random(17);
    for (int seed = 0; seed < 4; ++seed) {
        for (int trial = 0; trial < 400; ++trial) {
            std::string bytes = seeds[seed];
            int const edits = 1 + trial % 4;
            for (int e = 0; e < edits; ++e) {
                size_t const at = random() % bytes.size();
                switch (random() % 3) {
                case 0:
                    bytes[at] = char(random());
                    break;
                case 1:
                    bytes.resize(at);
                    break;
                default:
                    bytes.insert(at, bytes.substr(at, random() % 16));
                    break;
                }
                if (bytes.empty())
                    break;
            }
            std::string const path = folder.Write(names[seed], bytes);
            TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromFile(TezString(path.c_str()));
            if (!mesh)
                continue;
            for (unsigned int index : mesh->GetIndices())
                ASSERT_LT(index, mesh->GetNumVertices()) << seed << "/" << trial;
        }
    }
}
