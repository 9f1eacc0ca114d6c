// The document's meshes in their modes and the clouds' cubes and dots, drawn
// on llvmpipe. Each test leaves its pictures in /tmp (tez-mesh-*.png,
// tez-voxel-cloud-*.png) for a person to look at.

#include "tests/render/gl/GLViewTest.h"

#include "mesh/IndexedMesh.h"
#include "mesh/MeshIndexList.h"
#include "mesh/TopologyMesh.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/objects/SceneIndexedMesh.h"
#include "render/objects/SceneMeshHole.h"
#include "render/objects/SceneVoxelCloud.h"
#include "render/scene/Scene.h"
#include "render/views/ImageExport.h"
#include "render/views/RenderView.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelCloud.h"
#include "volume/VoxelOctree.h"
#include "volume/device/VoxelOctreeKernels.h"

#include <set>
#include <string>
#include <vector>

namespace {

constexpr int kSize = 128;

struct Rgb
{
    int r, g, b;
    int Sum() const { return r + g + b; }
};

class MeshCloudDrawTest : public GLViewTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        if (IsSkipped())
            return;
        MakeView(kSize, kSize, {0.0f, 0.0f, 5.0f}, {0, 0, 0}, 2.0f, 9.0f);
        if (HasFatalFailure())
            return;
        view->ActivateContext();
        view->SetScene(TezScene::Create());
        view->DeactivateContext();
        scene = view->GetScene();
    }

    void TearDown() override
    {
        scene = nullptr;
        GLViewTest::TearDown();
    }

    // Paints and keeps the frame (blue, green, red rows, top first); saved
    // as /tmp/<name>.png.
    void Shoot(char const* name)
    {
        frame.assign(size_t(kSize) * kSize * 3, 0);
        ASSERT_TRUE(view->ExportImage(frame.data(), kSize * 3));
        TezImageExport::SaveBitmap(TezString((std::string("/tmp/") + name + ".png").c_str()), frame.data(), kSize,
                                   kSize, kSize * 3);
    }

    // x from the left, y from the top.
    Rgb At(int x, int y) const
    {
        size_t const i = (size_t(y) * kSize + x) * 3;
        return {frame[i + 2], frame[i + 1], frame[i]};
    }

    int Count(bool (*test)(Rgb)) const
    {
        int n = 0;
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x)
                n += test(At(x, y)) ? 1 : 0;
        return n;
    }

    size_t DistinctColours() const
    {
        std::set<int> colours;
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x) {
                Rgb const c = At(x, y);
                if (c.Sum() > 0)
                    colours.insert((c.r << 16) | (c.g << 8) | c.b);
            }
        return colours.size();
    }

    TezRef<TezScene> scene;
    std::vector<unsigned char> frame;
};

bool Lit(Rgb c) { return c.Sum() > 30; }
bool Red(Rgb c) { return c.r > 150 && c.g < 80 && c.b < 80; }

// A torus around the z axis (ring radius 1, tube 0.45), facing the eye,
// with a patch of the tube's front cut out at the bottom of the ring: one
// hole, seen from the eye.
TezRef<TezIndexedMesh> TorusWithHole()
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateTorus(16, 32, 1.0f, 0.45f);
    TezRef<TezMeshIndexList> cut = TezMeshIndexList::Create();
    for (size_t t = 0; t < mesh->GetNumTriangles(); ++t) {
        TezVector3<float> const c = mesh->GetTriangle(t).ComputeCentroid();
        if (c.y < -0.7f && c.z > 0.2f && c.x > -0.25f && c.x < 0.25f)
            cut->Add(unsigned(t));
    }
    mesh->RemoveTriangles(cut);
    return mesh;
}

} // namespace

TEST_F(MeshCloudDrawTest, MeshModesShadeSmoothFlatAndAsWireframeWithItsHoleInRed)
{
    TezRef<TezIndexedMesh> mesh = TorusWithHole();
    TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(mesh);
    ASSERT_EQ(1u, topology->GetNumHoles());
    TezRef<TezSceneIndexedMesh> object = TezSceneIndexedMesh::Create(mesh);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(object));

    Shoot("tez-mesh-smooth");
    size_t const smoothColours = DistinctColours();
    int const smoothLit = Count(Lit);
    TezVector3<float> const top = view->GetCamera()->PixelFromPoint({0.0f, 1.0f, 0.45f});
    Rgb const middle = At(int(top.x), kSize - 1 - int(top.y));
    EXPECT_GT(middle.b, 150) << "the lit front of the steel-blue tube";
    EXPECT_EQ(0, At(2, 2).Sum());
    EXPECT_EQ(0, At(kSize / 2, kSize / 2).Sum()) << "the middle of the ring";
    EXPECT_FALSE(Red(middle));
    EXPECT_EQ(mesh->GetNumVertices(), object->GetRenderable()->GetNumVertices());

    object->SetMode(TezMeshModeFlat);
    EXPECT_TRUE(object->GetRenderable()->GetFlatShading());
    Shoot("tez-mesh-flat");
    EXPECT_EQ(3 * mesh->GetNumTriangles(), object->GetRenderable()->GetNumVertices());
    // One colour a facet against a gradient: far fewer colours.
    EXPECT_LT(DistinctColours() * 2, smoothColours);
    EXPECT_NEAR(smoothLit, Count(Lit), smoothLit / 20);

    object->SetMode(TezMeshModeFlatEdges);
    EXPECT_FALSE(object->GetProperty(TezSceneObject::NeedsBuild)) << "2 and 3 share their buffers";
    Shoot("tez-mesh-flat-edges");
    // Dark edges now cross the facets.
    EXPECT_GT(Count([](Rgb c) { return c.Sum() > 0 && c.b < 60; }), 200);

    object->SetMode(TezMeshModeWireframe);
    EXPECT_TRUE(object->GetRenderable()->GetNeedAdjacency());
    Shoot("tez-mesh-wireframe");
    EXPECT_TRUE(object->GetRenderable()->HasAdjacency());
    int const wireLit = Count(Lit);
    EXPECT_GT(wireLit, 300);
    EXPECT_LT(wireLit, smoothLit / 2) << "lines, not a surface";
    // The hole's rim is drawn in red, and nothing else is.
    int const red = Count(Red);
    EXPECT_GT(red, 20);
    EXPECT_LT(red, wireLit / 3);
    // Hidden lines stay hidden: the back of the tube does not show through
    // its front, whose facets are mostly dark inside.
    int litOnTop = 0;
    for (int y = -3; y < 3; ++y)
        for (int x = -3; x < 3; ++x)
            litOnTop += Lit(At(int(top.x) + x, kSize - 1 - int(top.y) + y)) ? 1 : 0;
    EXPECT_LT(litOnTop, 24);
}

TEST_F(MeshCloudDrawTest, SelectedTrianglesAndHolesShowAndTheMeshIsPicked)
{
    TezRef<TezIndexedMesh> mesh = TorusWithHole();
    TezRef<TezTopologyMesh> topology = TezTopologyMesh::Create(mesh);
    TezRef<TezSceneIndexedMesh> object = TezSceneIndexedMesh::Create(mesh);
    TezRef<TezSceneMeshHole> hole = TezSceneMeshHole::Create(topology->GetHole(0), object->GetRenderable());
    EXPECT_EQ(size_t(topology->GetHole(0)->GetNumEdges()), hole->GetLoop().size());
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(object));
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(hole));

    // The triangle nearest the eye on the ring's right.
    unsigned best = 0;
    float bestZ = -2.0f;
    for (size_t t = 0; t < mesh->GetNumTriangles(); ++t) {
        TezVector3<float> const c = mesh->GetTriangle(t).ComputeCentroid();
        if (c.x > 0.8f && c.y > -0.2f && c.y < 0.2f && c.z > bestZ) {
            bestZ = c.z;
            best = unsigned(t);
        }
    }
    Shoot("tez-mesh-unselected");
    object->SelectIndex(best);
    EXPECT_EQ(1u, object->GetIndexList()->GetNumIndices());
    EXPECT_FALSE(object->GetProperty(TezSceneObject::NeedsBuild)) << "a selection does not send the mesh again";
    Shoot("tez-mesh-selected");
    TezVector3<float> const pixel = view->GetCamera()->PixelFromPoint(mesh->GetTriangle(best).ComputeCentroid());
    EXPECT_TRUE(Red(At(int(pixel.x), kSize - 1 - int(pixel.y))));
    EXPECT_GT(Count(Red), 30) << "the triangle and the hole's loop";
    object->ClearIndices();
    Shoot("tez-mesh-hole-loop");
    EXPECT_FALSE(Red(At(int(pixel.x), kSize - 1 - int(pixel.y))));
    EXPECT_GT(Count(Red), 10) << "the loop alone";

    ASSERT_TRUE(view->Map());
    EXPECT_EQ(object->Id(), view->Pick({int(pixel.x), int(pixel.y)}));
    EXPECT_EQ(0u, view->Pick({1, 1}));
}

TEST_F(MeshCloudDrawTest, MeshWithIndicesPastItsVerticesDrawsNothing)
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateSphere(4, 6);
    mesh->SetIndex(0, 1, unsigned(mesh->GetNumVertices()) + 7);
    TezRef<TezSceneIndexedMesh> object = TezSceneIndexedMesh::Create(mesh);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(object));
    Shoot("tez-mesh-bad-indices");
    EXPECT_EQ(0, Count(Lit));
    EXPECT_FALSE(object->GetRenderable()->HasBuffers());
}

TEST_F(MeshCloudDrawTest, VoxelCloudPointsBecomeCubesSolidOrAsHiddenLines)
{
    // Two cubes of half edge 0.5 (size 2, cell 0.25), seen from above and
    // aside: a full one left, a boundary one right. Cubes stay aligned with
    // the axes; the object's matrix moves their centres.
    view->GetCamera()->SetEye({2.5f, 2.5f, 4.0f});
    view->GetCamera()->SetFar(12.0f);
    TezRef<TezVoxelCloud> cloud = TezVoxelCloud::CreateEmpty(0.25f);
    cloud->AddPoint({-1.0f, 0.0f, 0.0f, TezVoxelCloud::Pack(2, TezVoxelCloud::StateFull)});
    cloud->AddPoint({1.0f, 0.0f, 0.0f, TezVoxelCloud::Pack(2, TezVoxelCloud::StateBoundary)});
    TezRef<TezSceneVoxelCloud> object = TezSceneVoxelCloud::Create();
    object->SetCloud(cloud, 0.25f);
    object->SetTransform(TezTranslationTransform<float>({0.0f, -0.2f, 0.0f}));
    object->SetRenderStyle(TezSceneVoxelCloud::Solid);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(object));
    TezBox3<float> const bounds = object->GetObjectBounds();
    EXPECT_FLOAT_EQ(-1.5f, bounds.GetMinimum().x);
    EXPECT_FLOAT_EQ(1.5f, bounds.GetMaximum().x);

    TezCameraView& camera = *view->GetCamera();
    auto pixelOf = [&](TezVector3<float> const& p) {
        TezVector3<float> const q = camera.PixelFromPoint(object->GetWorldMatrix() * p);
        return std::pair<int, int>(int(q.x), kSize - 1 - int(q.y));
    };
    // The middles of the cubes' front faces.
    auto const left = pixelOf({-1.0f, 0, 0.5f});
    auto const right = pixelOf({1.0f, 0, 0.5f});
    auto const between = pixelOf({0, 0, 0});

    Shoot("tez-voxel-cloud-solid");
    EXPECT_TRUE(Lit(At(left.first, left.second)));
    EXPECT_TRUE(Lit(At(right.first, right.second)));
    EXPECT_FALSE(Lit(At(between.first, between.second))) << "the gap between the cubes";
    int const solid = Count(Lit);

    // Hidden lines: edges only; the faces' middles stay dark.
    object->SetRenderStyle(TezSceneVoxelCloud::HiddenLine);
    Shoot("tez-voxel-cloud-edges");
    int const edges = Count(Lit);
    EXPECT_GT(edges, 100);
    EXPECT_LT(edges, solid / 2);
    EXPECT_FALSE(Lit(At(left.first, left.second)));

    // A state turned off disappears from the picture and from the bounds.
    object->SetRenderStyle(TezSceneVoxelCloud::Solid);
    object->SetFullVisible(false);
    EXPECT_FALSE(cloud->GetFullVisible());
    Shoot("tez-voxel-cloud-boundary-only");
    EXPECT_FALSE(Lit(At(left.first, left.second)));
    EXPECT_TRUE(Lit(At(right.first, right.second)));
    EXPECT_FLOAT_EQ(0.5f, object->GetObjectBounds().GetMinimum().x);
}

TEST_F(MeshCloudDrawTest, PointCloudDrawsItsPointsAsDots)
{
    TezRef<TezPointCloud> cloud = TezPointCloud::CreateEmpty();
    cloud->AddPoint({-0.5f, -0.5f, 0});
    cloud->AddPoint({0.5f, 0.5f, 0});
    TezRef<TezScenePointCloud> object = TezScenePointCloud::Create(cloud);
    object->SetPointSize(5.0f);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(object));
    Shoot("tez-point-cloud");
    TezVector3<float> const p = view->GetCamera()->PixelFromPoint({0.5f, 0.5f, 0});
    EXPECT_TRUE(Lit(At(int(p.x), kSize - 1 - int(p.y))));
    int const lit = Count(Lit);
    EXPECT_GE(lit, 2 * 16);
    EXPECT_LE(lit, 2 * 36);
}

TEST_F(MeshCloudDrawTest, OctreeNodeStatesShowAsCubes)
{
    // A ball in a 128^3 volume (three levels of 16^3 bricks): full nodes
    // inside, boundary nodes around.
    int const n = 128;
    std::vector<uint8_t> voxels(size_t(n) * n * n, 0);
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                float const dx = x - 63.5f, dy = y - 63.5f, dz = z - 63.5f;
                voxels[(size_t(z) * n + y) * n + x] = dx * dx + dy * dy + dz * dz < 56.0f * 56.0f ? 220 : 0;
            }
    TezRef<TezVoxelOctree> octree =
        TezVoxelOctree::CreateFromVolumeData("ball", TezMemoryVolume::Create8(n, n, n, voxels), 2.0 / n, 8, 64);
    ASSERT_TRUE(octree);
    // Node states under an opacity step at 100.
    std::vector<float> table(256, 0.0f);
    for (int v = 100; v < 256; ++v)
        table[size_t(v)] = 1.0f;
    ASSERT_TRUE(TezVoxelOctreeCalculateNodeStates(octree, table.data()));
    TezRef<TezVoxelCloud> cloud = TezVoxelCloud::CreateFromOctree(octree, 4);
    ASSERT_TRUE(cloud);
    size_t full = 0, boundary = 0;
    for (TezVector4<float> const& p : cloud->GetPoints()) {
        full += TezVoxelCloud::StateOf(p) == TezVoxelCloud::StateFull ? 1 : 0;
        boundary += TezVoxelCloud::StateOf(p) == TezVoxelCloud::StateBoundary ? 1 : 0;
    }
    EXPECT_GT(full, 0u);
    EXPECT_GT(boundary, 0u);

    // Full nodes solid and gold; boundary nodes as blue edges; empty ones
    // hidden. Each object shows its own copy: the flags are the cloud's.
    view->GetCamera()->SetEye({3.0f, 2.5f, 4.0f});
    view->GetCamera()->SetFar(12.0f);
    TezMatrix44<float> const centred = TezTranslationTransform<float>({-1, -1, -1});
    TezRef<TezSceneVoxelCloud> inside = TezSceneVoxelCloud::Create();
    inside->SetCloud(cloud->Copy(), cloud->GetCellSize());
    inside->SetEmptyVisible(false);
    inside->SetBoundaryVisible(false);
    inside->SetRenderStyle(TezSceneVoxelCloud::Solid);
    inside->SetTransform(centred);
    TezRef<TezSceneVoxelCloud> rim = TezSceneVoxelCloud::Create();
    rim->SetCloud(cloud->Copy(), cloud->GetCellSize());
    rim->SetEmptyVisible(false);
    rim->SetFullVisible(false);
    rim->SetColor({0.3f, 0.6f, 1.0f, 1.0f});
    rim->SetTransform(centred);
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(inside));
    scene->AddChild(scene->GetRoot(), TezRef<TezSceneObject>(rim));
    Shoot("tez-voxel-cloud-octree");
    int const gold = Count([](Rgb c) { return c.r > 100 && c.r > c.b + 40; });
    int const blue = Count([](Rgb c) { return c.b > 100 && c.b > c.r + 40; });
    EXPECT_GT(gold, 200);
    EXPECT_GT(blue, 200);
    // Boundary nodes surround the full ones: their box is the larger.
    EXPECT_LT(inside->GetObjectBounds().GetMaximum().x, rim->GetObjectBounds().GetMaximum().x);
}

TEST(RenderableIndexedMesh, AdjacencyNamesTheVertexAcrossEachEdgeOrTheTrianglesOwnCorner)
{
    // Two triangles over the square's diagonal (0, 2): each sees the other's
    // far corner across it, and its own opposite corner across the rim.
    TezRef<TezIndexedMesh> square = TezIndexedMesh::CreateEmpty();
    for (TezVector3<float> const& p : {TezVector3<float>(0, 0, 0), TezVector3<float>(1, 0, 0),
                                       TezVector3<float>(1, 1, 0), TezVector3<float>(0, 1, 0)})
        square->AddVertex(TezMeshVertex(p, {0, 0, 1}));
    square->GetIndices() = {0, 1, 2, 0, 2, 3};
    std::vector<unsigned int> const smooth = TezRenderableIndexedMesh::MakeAdjacencyIndices(square, false);
    EXPECT_EQ((std::vector<unsigned int>{0, 2, 1, 0, 2, 3, 0, 1, 2, 0, 3, 2}), smooth);
    // Flat: the same, in the numbers of three vertices a triangle.
    std::vector<unsigned int> const flat = TezRenderableIndexedMesh::MakeAdjacencyIndices(square, true);
    EXPECT_EQ((std::vector<unsigned int>{0, 2, 1, 0, 2, 5, 3, 1, 4, 3, 5, 4}), flat);
    std::vector<TezMeshVertex> const vertices = TezRenderableIndexedMesh::MakeFlatVertices(*square);
    ASSERT_EQ(6u, vertices.size());
    EXPECT_EQ(TezVector3<float>(0, 1, 0), vertices[5].position);
    EXPECT_EQ(TezVector3<float>(0, 0, 1), vertices[4].normal);
}
