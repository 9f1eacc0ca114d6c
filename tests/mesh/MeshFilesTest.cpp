#include "mesh/IndexedMesh.h"
#include "mesh/detail/TextScan.h"

#include "MeshTestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <random>

using Vec = TezVector3<float>;

namespace {

TezRef<TezIndexedMesh> MovedTorus()
{
    TezRef<TezIndexedMesh> torus = TezIndexedMesh::CreateTorus(12, 20, 2.0f, 0.5f);
    torus->TransformGeometry(TezTranslationTransform<float>(Vec(0.5f, -2.0f, 3.25f)));
    // Vertices in the order the triangles first meet them, as a reader gives.
    TezIndexedMeshInternals::EliminateDuplicateVertices(*torus);
    return torus;
}

std::string Facet(char const* a, char const* b, char const* c)
{
    return std::string("facet normal 0 0 1\n  outer loop\n") + "    vertex " + a + "\n    vertex " + b +
           "\n    vertex " + c + "\n  endloop\nendfacet\n";
}

std::string Float(float f) { return std::string(reinterpret_cast<char const*>(&f), 4); }

} // namespace

TEST(TezMeshFiles, StlRoundTripsJoinTheCornersAgain)
{
    ScratchFolder folder;
    TezRef<TezIndexedMesh> torus = MovedTorus();
    for (bool binary : {true, false}) {
        std::string const path = folder.File(binary ? "b.stl" : "a.stl");
        ASSERT_TRUE(TezIndexedMesh::WriteToStlFile(torus, TezString(path.c_str()), binary));
        TezRef<TezIndexedMesh> back = TezIndexedMesh::ReadFromStlFile(TezString(path.c_str()));
        ASSERT_TRUE(back) << path;
        EXPECT_EQ(torus->GetNumTriangles(), back->GetNumTriangles());
        ASSERT_EQ(torus->GetNumVertices(), back->GetNumVertices());
        // Corners come back in the order of the triangles, joined by position.
        for (size_t t = 0; t < torus->GetNumTriangles(); ++t) {
            for (int c = 0; c < 3; ++c) {
                Vec const a = torus->GetVertex(torus->GetIndex(t, c)).position;
                Vec const b = back->GetVertex(back->GetIndex(t, c)).position;
                if (binary)
                    EXPECT_TRUE(a.x == b.x && a.y == b.y && a.z == b.z);
                else
                    EXPECT_EQ(a, b); // six decimals
            }
        }
        // Smooth normals: the unweighted mean of the facets', pointing out.
        for (size_t i = 0; i < back->GetNumVertices(); ++i) {
            EXPECT_NEAR(1.0f, back->GetVertex(i).normal.Length(), 1e-5);
            EXPECT_GT(back->GetVertex(i).normal * torus->GetVertex(i).normal, 0.95f);
        }
    }
    // Binary layout: signature, zero padding, count, 50 bytes per facet.
    std::string const bytes = ReadBytes(folder.File("b.stl"));
    ASSERT_EQ(84 + 50 * torus->GetNumTriangles(), bytes.size());
    EXPECT_EQ("Ostran Metrologies, Incorporated STL Writer", bytes.substr(0, 43));
    EXPECT_EQ(std::string(37, '\0'), bytes.substr(43, 37));
    uint32_t count;
    std::memcpy(&count, &bytes[80], 4);
    EXPECT_EQ(torus->GetNumTriangles(), count);
    EXPECT_EQ(std::string(2, '\0'), bytes.substr(84 + 48, 2));
}

TEST(TezMeshFiles, StlTextLayoutIsExact)
{
    ScratchFolder folder;
    TezRef<TezIndexedMesh> mesh = MakeMesh({{0, 0, 0}, {2, 0, 0}, {0, 1.5f, -1}}, {0, 1, 2});
    // The vertices' own normals are never written.
    mesh->SetVertex(0, TezMeshVertex(Vec(0, 0, 0), Vec(1, 0, 0)));
    std::string const path = folder.File("t.stl");
    ASSERT_TRUE(TezIndexedMesh::WriteToStlFile(mesh, TezString(path.c_str()), false));
    Vec const n = mesh->GetTriangle(0).ComputeNormal();
    char normal[128];
    std::snprintf(normal, sizeof normal, "facet normal %f %f %f\n", n.x, n.y, n.z);
    EXPECT_EQ(std::string("solid OstranMetrologiesMesh\n") + normal +
                  "  outer loop\n"
                  "    vertex 0.000000 0.000000 0.000000\n"
                  "    vertex 2.000000 0.000000 0.000000\n"
                  "    vertex 0.000000 1.500000 -1.000000\n"
                  "  endloop\n"
                  "endfacet\n"
                  "endsolid OstranMetrologiesMesh\n",
              ReadBytes(path));
    EXPECT_FALSE(TezIndexedMesh::WriteToStlFile(mesh, TezString(folder.File("no/such/dir.stl").c_str()), true));
}

TEST(TezMeshFiles, StlTextJoinsOnlyBitEqualPositions)
{
    ScratchFolder folder;
    // Two facets share an edge; a third corner differs from the first in the
    // last bit of x and stays apart.
    std::string const text = "solid x\n" + Facet("0 0 0", "1 0 0", "0 1 0") + Facet("1 0 0", "1 1 0", "0 1 0") +
                             Facet("1.0000001 0 0", "2 0 0", "2 1 0") + "endsolid x\n";
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromStlFile(TezString(folder.Write("j.stl", text).c_str()));
    ASSERT_TRUE(mesh);
    EXPECT_EQ(3u, mesh->GetNumTriangles());
    EXPECT_EQ(7u, mesh->GetNumVertices());
    EXPECT_EQ((std::vector<unsigned int>{0, 1, 2, 1, 3, 2, 4, 5, 6}), mesh->GetIndices());
    EXPECT_EQ(Vec(0, 0, 1), mesh->GetVertex(1).normal);

    // Case does not matter for the choice of reader; the last four
    // characters do.
    std::string const upper = folder.Write("MODEL.STL", text);
    EXPECT_TRUE(TezIndexedMesh::ReadFromFile(TezString(upper.c_str())));
    EXPECT_FALSE(TezIndexedMesh::ReadFromFile(TezString(folder.Write("model.stl2", text).c_str())));
}

TEST(TezMeshFiles, StlBinaryOfSmallBytesFallsThroughTheTextReader)
{
    ScratchFolder folder;
    // Every byte below 127 and no newline: the text reader counts no facet,
    // the binary reader takes over.
    std::string bytes(80, '\0');
    bytes += std::string("\x01\0\0\0", 4);
    for (float f : {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 2.0f, 0.0f, 0.0f, 0.0f, 2.0f, 0.0f})
        bytes += Float(f);
    bytes += std::string(2, '\0');
    for (unsigned char c : bytes)
        ASSERT_LT(c, 127);
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromStlFile(TezString(folder.Write("s.stl", bytes).c_str()));
    ASSERT_TRUE(mesh);
    EXPECT_EQ(1u, mesh->GetNumTriangles());
    EXPECT_EQ(Vec(2, 0, 0), mesh->GetVertex(1).position);
}

TEST(TezMeshFiles, BrokenStlFilesGiveNull)
{
    ScratchFolder folder;
    auto read = [&](std::string const& bytes) {
        return TezIndexedMesh::ReadFromStlFile(TezString(folder.Write("x.stl", bytes).c_str()));
    };
    EXPECT_FALSE(TezIndexedMesh::ReadFromStlFile(TezString(folder.File("missing.stl").c_str())));
    EXPECT_FALSE(read(""));
    std::string header(80, '\x80');
    EXPECT_FALSE(read(header));                                                          // no count
    EXPECT_FALSE(read(header + std::string("\xff\xff\xff\x0f", 4)));                     // a count the file cannot hold
    EXPECT_FALSE(read(header + std::string("\x02\0\0\0", 4) + std::string(60, '\x80'))); // truncated
    // A text facet with a word where a number belongs, then nothing to fall
    // back on.
    EXPECT_FALSE(read("solid x\n" + Facet("0 0 0", "1 zero 0", "0 1 0") + "endsolid x\n"));
    // An empty binary file is an empty mesh, not an error.
    TezRef<TezIndexedMesh> empty = read(header + std::string(4, '\0'));
    ASSERT_TRUE(empty);
    EXPECT_EQ(0u, empty->GetNumTriangles());
}

TEST(TezMeshFiles, EveryReaderRefusesPathsThatAreNotRegularFiles)
{
    ScratchFolder folder;
    // Named like mesh files, so that the choice by extension reaches each
    // reader: a folder, a pipe (opening it would wait for a writer) and a
    // device that reads endlessly.
    std::vector<std::string> paths;
    for (char const* name : {"dir.stl", "dir.obj", "dir.ply"}) {
        std::filesystem::create_directory(folder.File(name));
        paths.push_back(folder.File(name));
    }
    ASSERT_EQ(0, mkfifo(folder.File("pipe.stl").c_str(), 0600));
    paths.push_back(folder.File("pipe.stl"));
    paths.push_back("/dev/zero");
    for (std::string const& path : paths) {
        SCOPED_TRACE(path);
        TezString const name(path.c_str());
        EXPECT_FALSE(TezIndexedMesh::ReadFromFile(name));
        EXPECT_FALSE(TezIndexedMesh::ReadFromStlFile(name));
        EXPECT_FALSE(TezIndexedMesh::ReadFromObjFile(name));
        EXPECT_FALSE(TezIndexedMesh::ReadFromPlyFile(name));
        EXPECT_FALSE(TezIndexedMeshInternals::ReadScannerPly(path.c_str()));
    }
}

TEST(TezMeshFiles, ObjCornersFansAndNormals)
{
    ScratchFolder folder;
    std::string const text = "# a square and a triangle\n"
                             "mtllib none.mtl\n"
                             "o square\n"
                             "v 0 0 0\n"
                             "  v 1 0 0\n"
                             "\tv 1 1 0\n"
                             "v 0 1 0\n"
                             "vt 0.5 0.5\n"
                             "vn 0 0 -1\n"
                             "vn 0 1 0\n"
                             "g first\n"
                             "usemtl red\n"
                             "f 1/1/1 2/1/2 3/1/1 4/1/1\n"
                             "\n"
                             "v 5 5 5\n"
                             "f -1//2 1 2 # negative counts from the positions so far\n"
                             "s off\n"
                             "f 0 2 3\n";
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::ReadFromObjFile(TezString(folder.Write("m.obj", text).c_str()));
    ASSERT_TRUE(mesh);
    EXPECT_EQ(5u, mesh->GetNumVertices());
    EXPECT_EQ((std::vector<unsigned int>{0, 1, 2, 0, 2, 3, 4, 0, 1, 0, 1, 2}), mesh->GetIndices());
    // Normals go to vertices by their order in the file, whatever the faces
    // say; vertices past the last normal point up.
    EXPECT_EQ(Vec(0, 0, -1), mesh->GetVertex(0).normal);
    EXPECT_EQ(Vec(0, 1, 0), mesh->GetVertex(1).normal);
    EXPECT_EQ(Vec(0, 0, 1), mesh->GetVertex(4).normal);

    TezRef<TezIndexedMesh> bare =
        TezIndexedMesh::ReadFromFile(TezString(folder.Write("bare.OBJ", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3").c_str()));
    ASSERT_TRUE(bare);
    EXPECT_EQ(Vec(0, 0, 1), bare->GetVertex(2).normal);
    EXPECT_EQ(1u, bare->GetNumTriangles());

    // Indices past the positions, before the first one, or no number at all.
    for (char const* broken : {"v 0 0 0\nf 1 2 3\n", "v 0 0 0\nf -2 1 1\n", "v 0 0 0\nf a b c\n", "v 0 0\n"})
        EXPECT_FALSE(TezIndexedMesh::ReadFromObjFile(TezString(folder.Write("bad.obj", broken).c_str()))) << broken;
    EXPECT_FALSE(TezIndexedMesh::ReadFromObjFile(TezString(folder.File("missing.obj").c_str())));
}

TEST(TezMeshFiles, PlainDecimalsParseAsTheCLibraryDoes)
{
    // The short path for plain decimals must round exactly as strtof and
    // strtod do; the numbers cover every digit count and sign.
    std::mt19937_64 random(5);
    std::uniform_real_distribution<double> magnitude(-12.0, 12.0);
    char text[64];
    for (int i = 0; i < 200000; ++i) {
        double const value = std::pow(10.0, magnitude(random)) * (i % 2 ? -1 : 1);
        int const precision = i % 12;
        std::snprintf(text, sizeof text, i % 3 ? "%.*f" : "%.*g", precision + (i % 3 ? 0 : 1), value);
        tez_detail::TextScan scan{text, text + std::strlen(text)};
        float f;
        ASSERT_TRUE(scan.Number(f)) << text;
        float const expectedFloat = std::strtof(text, nullptr);
        ASSERT_EQ(0, std::memcmp(&f, &expectedFloat, 4)) << text;
        scan = tez_detail::TextScan{text, text + std::strlen(text)};
        double d;
        ASSERT_TRUE(scan.Number(d)) << text;
        double const expectedDouble = std::strtod(text, nullptr);
        ASSERT_EQ(0, std::memcmp(&d, &expectedDouble, 8)) << text;
    }
    for (char const* odd : {"+1.5", "-0", "1.", ".25", "7e-3", "-inf", "16777217", "0.12345678901234567890123"}) {
        tez_detail::TextScan scan{odd, odd + std::strlen(odd)};
        float f;
        ASSERT_TRUE(scan.Number(f)) << odd;
        float const expected = std::strtof(odd, nullptr);
        EXPECT_EQ(0, std::memcmp(&f, &expected, 4)) << odd;
    }
    for (char const* bad : {"", "-", ".", "x1", "+-1"}) {
        tez_detail::TextScan scan{bad, bad + std::strlen(bad)};
        float f;
        EXPECT_FALSE(scan.Number(f)) << bad;
    }
}
