#include "mesh/MeshWriter.h"

#include "MeshTestSupport.h"

#include <gtest/gtest.h>

#include <cerrno>

using Vec = TezVector3<float>;

namespace {

// A tetrahedron with normals of its own and coordinates that need all of a
// float's digits.
TezRef<TezIndexedMesh> Tetrahedron()
{
    TezRef<TezIndexedMesh> mesh = MakeTetrahedron();
    std::vector<TezMeshVertex>& v = mesh->GetVertices();
    v[1].position.x = 1.0f / 3.0f;
    v[3].position.z = 1.0f + 2.5e-7f;
    for (size_t i = 0; i < v.size(); ++i)
        v[i].normal = Vec(0.1f * float(i), -0.7f, 1.0f / 7.0f);
    return mesh;
}

} // namespace

TEST(TezMeshWriter, EachFormatReadsBackAsWritten)
{
    ScratchFolder folder;
    TezRef<TezIndexedMesh> const mesh = Tetrahedron();
    struct Case
    {
        char const* name;
        bool ascii;
        bool keepsVertices; // STL keeps corners only, joined again on reading
    };
    for (Case const& c : {Case{"t.stl", false, false}, Case{"t.STL", true, false}, Case{"t.obj", false, true},
                          Case{"t.ply", false, true}, Case{"t.Ply", true, true}}) {
        std::string const path = folder.File(c.name);
        ASSERT_TRUE(TezMeshWriter::Write(mesh, path, c.ascii)) << c.name;
        TezRef<TezIndexedMesh> back = TezIndexedMesh::ReadFromFile(TezString(path.c_str()));
        ASSERT_TRUE(back) << c.name;
        ASSERT_EQ(mesh->GetNumTriangles(), back->GetNumTriangles()) << c.name;
        EXPECT_NEAR(mesh->ComputeVolume(), back->ComputeVolume(), 1e-6) << c.name;
        for (size_t t = 0; t < mesh->GetNumTriangles(); ++t)
            for (int k = 0; k < 3; ++k) {
                TezMeshVertex const& a = mesh->GetVertex(mesh->GetIndex(t, k));
                TezMeshVertex const& b = back->GetVertex(back->GetIndex(t, k));
                float const tolerance = c.ascii ? 1e-6f : 1e-12f; // text STL has 7 digits
                EXPECT_LT((a.position - b.position).Length(), tolerance) << c.name << " triangle " << t;
                if (c.keepsVertices) {
                    EXPECT_EQ(mesh->GetIndex(t, k), back->GetIndex(t, k)) << c.name;
                    EXPECT_EQ(a.normal, b.normal) << c.name;
                }
            }
    }
}

TEST(TezMeshWriter, UnknownNamesAndUnwritablePlacesAreRefused)
{
    ScratchFolder folder;
    TezRef<TezIndexedMesh> const mesh = Tetrahedron();
    EXPECT_EQ(TezMeshWriter::Format::Unknown, TezMeshWriter::FormatForName("mesh.vtk"));
    EXPECT_EQ(TezMeshWriter::Format::Unknown, TezMeshWriter::FormatForName("a.stl/mesh"));
    EXPECT_EQ(TezMeshWriter::Format::Obj, TezMeshWriter::FormatForName("dir.d/Mesh.OBJ"));
    EXPECT_FALSE(TezMeshWriter::Write(mesh, folder.File("mesh.vtk"), false));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_FALSE(std::filesystem::exists(folder.File("mesh.vtk")));
    EXPECT_FALSE(TezMeshWriter::Write(mesh, folder.File("missing/mesh.ply"), false));
    EXPECT_FALSE(TezMeshWriter::Write(nullptr, folder.File("none.obj"), false));
}

TEST(TezMeshWriter, AStoppedCleanUpLeavesTheMeshAsItWas)
{
    MeshTestApplication app;
    // Triangle 1 is degenerate, triangle 2 repeats triangle 0.
    TezRef<TezIndexedMesh> mesh = MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {0, 1, 2, 0, 0, 1, 2, 0, 1});
    app.ui.stop = true;
    mesh->RemoveDegenerateTriangles();
    mesh->RemoveDuplicateTriangles(true);
    EXPECT_EQ(3u, mesh->GetNumTriangles());
    app.ui.stop = false;
    mesh->RemoveDegenerateTriangles();
    mesh->RemoveDuplicateTriangles(true);
    EXPECT_EQ(1u, mesh->GetNumTriangles());
}
