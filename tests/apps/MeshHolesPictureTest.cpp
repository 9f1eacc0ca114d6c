// The before-and-after picture of hole filling: red rims on the left, where
// the mesh is open, and none on the right, where it was closed.

#include "tez/MeshHolesPicture.h"
#include "mesh/MeshIndexList.h"
#include "mesh/TopologyMesh.h"
#include "tez/HostApplication.h"
#include "tez/OffscreenGL.h"
#include "volume/Image.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

TEST(TezMeshHolesPicture, ShowsTheRimsBeforeAndNoneAfterTheFilling)
{
    TezRef<TezIndexedMesh> before = TezIndexedMesh::CreateTorus(12, 24, 1.0f, 0.4f);
    // Two patches cut from the side that faces the eye.
    TezRef<TezMeshIndexList> cut = TezMeshIndexList::Create();
    for (size_t t = 0; t < before->GetNumTriangles(); ++t) {
        TezVector3<float> const c = before->GetTriangle(t).ComputeCentroid();
        if (c.z > 0.2f && ((c.y > 0.8f && c.x > -0.35f && c.x < 0.35f) || (c.x < -0.9f && c.y > -0.3f && c.y < 0.3f)))
            cut->Add(unsigned(t));
    }
    before->RemoveTriangles(cut);
    size_t const kept = before->GetNumTriangles();
    TezRef<TezIndexedMesh> after = before->Copy();
    TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(after);
    ASSERT_EQ(2u, topology->GetNumHoles());
    while (topology->GetNumHoles() > 0)
        ASSERT_TRUE(topology->FillHole(topology->GetHole(0)));

    std::string const path = ::testing::TempDir() + "tez-holes-before-after.png";
    std::string const shown = "/tmp/tez-mesh-fill-holes.png";
    FILE* sink = std::tmpfile();
    {
        TezHostApplication plain;
        EXPECT_EQ(1, TezWriteHolesPicture(before, after, path, 320, 160, sink, sink)) << "no GL context";
    }
    TezOffscreenGL gl;
    ASSERT_TRUE(gl.GetContext()) << gl.Problem();
    TezHostApplication app(gl.GetContext(), gl.GetWindow());
    ASSERT_EQ(0, TezWriteHolesPicture(before, after, path, 320, 160, sink, sink));
    ASSERT_EQ(0, TezWriteHolesPicture(before, after, shown, 640, 320, sink, sink));
    std::fclose(sink);
    EXPECT_EQ(kept, before->GetNumTriangles()) << "the meshes are not changed";

    TezImage image;
    ASSERT_TRUE(image.Load(path.c_str()));
    ASSERT_EQ(320, image.GetWidth());
    std::vector<uint8_t> rgb(size_t(320) * 160 * 3);
    ASSERT_TRUE(image.ReadPixels(rgb.data(), 3, 320 * 3, true));
    int red[2] = {0, 0}, lit[2] = {0, 0};
    for (int y = 0; y < 160; ++y)
        for (int x = 0; x < 320; ++x) {
            uint8_t const* p = &rgb[(size_t(y) * 320 + x) * 3];
            int const side = x < 160 ? 0 : 1;
            red[side] += p[0] > 150 && p[1] < 80 && p[2] < 80 ? 1 : 0;
            lit[side] += p[0] + p[1] + p[2] > 150 ? 1 : 0;
        }
    EXPECT_GT(red[0], 40);
    EXPECT_EQ(0, red[1]);
    EXPECT_GT(lit[0], 2000);
    EXPECT_GT(lit[1], 2000);
    std::remove(path.c_str());
}
