// The mesh and point cloud document objects: their archive forms, what they
// refuse, and the registry that rebuilds every kind from its stored name.

#include "tests/document/DocumentFixture.h"

#include "core/Archive.h"
#include "core/Typified.h"
#include "document/objects/DocCloud.h"
#include "document/objects/DocCubeVolume.h"
#include "document/objects/DocIndexedMesh.h"
#include "mesh/IndexedMesh.h"
#include "mesh/MeshIndexList.h"
#include "mesh/MeshKDTree.h"
#include "mesh/TopologyMesh.h"
#include "render/objects/SceneIndexedMesh.h"
#include "render/objects/SceneMeshHole.h"
#include "render/objects/ScenePolyline.h"
#include "render/objects/ScenePrimitives.h"
#include "render/objects/SceneVoxelCloud.h"
#include "render/objects/SceneVoxelOctree.h"
#include "render/scene/Scene.h"
#include "volume/VoxelCloud.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::string TempPath(char const* name) { return ::testing::TempDir() + name; }

std::vector<unsigned char> FileBytes(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(std::string const& path, std::vector<unsigned char> const& bytes, size_t count)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<char const*>(bytes.data()), std::streamsize(count));
}

// Each object as a document stores it: its record, numbered by its place,
// then its own section.
void SaveObjects(std::string const& path, std::vector<TezRef<TezDocumentObject>> const& objects)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
    ASSERT_TRUE(archive);
    for (size_t i = 0; i < objects.size(); ++i) {
        archive->WriteObjectRecord("object", uint32_t(i + 1), objects[i]->TypeName());
        objects[i]->Save(archive);
    }
    archive->Flush();
}

std::vector<TezRef<TezDocumentObject>> LoadObjects(std::string const& path, size_t count)
{
    std::vector<TezRef<TezDocumentObject>> objects;
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Read);
    if (!archive)
        return objects;
    while (objects.size() < count && archive->ReadTag().Length() > 0) {
        TezRef<TezDocumentObject> object(dynamic_cast<TezDocumentObject*>(archive->ReadObject().Get()));
        if (!object)
            throw std::runtime_error("not a document object");
        object->Load(archive);
        objects.push_back(object);
    }
    return objects;
}

// A torus with one hole and normals that are not the positions' own, so
// that a recomputation would show.
TezRef<TezIndexedMesh> Torus()
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateTorus(8, 12, 1.0f, 0.3f);
    for (TezMeshVertex& v : mesh->GetVertices())
        v.normal = TezVector3<float>(0.0f, 0.6f, 0.8f);
    TezRef<TezMeshIndexList> cut = TezMeshIndexList::Create();
    cut->Add(5);
    mesh->RemoveTriangles(cut);
    return mesh;
}

// Writes a mesh section by hand, counts and blocks as given.
void WriteMeshSection(std::string const& path, uint64_t numVertices, uint64_t numTriangles,
                      std::vector<TezMeshVertex> const& vertices, std::vector<unsigned int> const& indices)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
    archive->WriteStartSection("Indexed Mesh Document Object");
    archive->WriteStartSection("Object Name");
    archive->WriteString("name", "forged");
    archive->WriteEndSection();
    archive->WriteSizet("numVertices", numVertices);
    archive->WriteSizet("numTriangles", numTriangles);
    archive->WriteBinary("vertices", vertices.data(), vertices.size() * sizeof(TezMeshVertex));
    archive->WriteBinary("indexes", indices.data(), indices.size() * sizeof(unsigned int));
    archive->WriteBool("visible", true);
    archive->WriteEndSection();
    archive->Flush();
}

void LoadInto(TezRef<TezDocumentObject> object, std::string const& path)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Read);
    ASSERT_TRUE(archive);
    object->Load(archive);
}

} // namespace

TEST(MeshCloudDocument, SaveOpenSaveIsByteIdenticalAndKeepsWhatWasStored)
{
    TezRef<TezIndexedMesh> mesh = Torus();
    TezRef<TezDocIndexedMesh> meshObject = TezDocIndexedMesh::Create(TezTopologyMesh::Create(mesh));
    meshObject->SetName("ring");
    meshObject->SetVisible(false);
    EXPECT_EQ(1u, meshObject->GetHoleObjects().size());
    TezRef<TezPointCloud> cloud = TezPointCloud::CreateEmpty();
    for (int i = 0; i < 100; ++i)
        cloud->AddPoint({float(i), float(i * i) * 0.5f, -float(i)});
    TezRef<TezDocCloud> cloudObject = TezDocCloud::Create(cloud);
    cloudObject->GetSceneObject()->SetColor({0.1f, 0.2f, 0.3f, 0.4f});
    TezRef<TezDocIndexedMesh> empty = TezDocIndexedMesh::Create(TezIndexedMesh::CreateEmpty());

    std::string const first = TempPath("tez-meshdoc-1.arc"), second = TempPath("tez-meshdoc-2.arc");
    SaveObjects(first, {meshObject, cloudObject, empty});
    std::vector<TezRef<TezDocumentObject>> loaded = LoadObjects(first, 3);
    ASSERT_EQ(3u, loaded.size());
    SaveObjects(second, loaded);
    EXPECT_EQ(FileBytes(first), FileBytes(second));

    auto* meshBack = dynamic_cast<TezDocIndexedMesh*>(loaded[0].Get());
    ASSERT_TRUE(meshBack);
    EXPECT_STREQ("ring", meshBack->GetName().c_str());
    EXPECT_FALSE(meshBack->GetVisible());
    EXPECT_EQ(mesh->GetIndices(), meshBack->GetGeometry()->GetIndices());
    EXPECT_EQ(0.6f, meshBack->GetGeometry()->GetVertex(3).normal.y) << "normals load as saved";
    EXPECT_FALSE(meshBack->GetTopology()) << "topology and holes are not stored";
    EXPECT_TRUE(meshBack->GetHoleObjects().empty());
    ASSERT_TRUE(meshBack->GetSceneObject());
    EXPECT_EQ(meshBack, meshBack->GetSceneObject()->GetDocumentObject());
    ASSERT_TRUE(meshBack->GetTree());
    EXPECT_EQ(meshBack->GetGeometry(), meshBack->GetTree()->GetMesh());

    auto* cloudBack = dynamic_cast<TezDocCloud*>(loaded[1].Get());
    ASSERT_TRUE(cloudBack);
    EXPECT_EQ(cloud->GetPoints(), cloudBack->GetCloud()->GetPoints());
    EXPECT_FLOAT_EQ(0.4f, cloudBack->GetSceneObject()->GetColor().w);
    EXPECT_TRUE(dynamic_cast<TezScenePointCloud*>(cloudBack->GetSceneObject().Get()));

    auto* emptyBack = dynamic_cast<TezDocIndexedMesh*>(loaded[2].Get());
    ASSERT_TRUE(emptyBack && emptyBack->GetGeometry());
    EXPECT_EQ(0u, emptyBack->GetGeometry()->GetNumIndices());
    std::remove(first.c_str());
    std::remove(second.c_str());
}

TEST(MeshCloudDocument, ObjectsWithoutDataHaveNoSceneObjectAndTransformsMoveTheMesh)
{
    EXPECT_FALSE(TezDocIndexedMesh::Create(TezRef<TezIndexedMesh>())->GetSceneObject());
    EXPECT_FALSE(TezDocIndexedMesh::Create(TezRef<TezIndexedMesh>())->GetTree());
    EXPECT_FALSE(TezDocCloud::Create(nullptr)->GetSceneObject());

    TezRef<TezIndexedMesh> mesh = Torus();
    TezRef<TezDocIndexedMesh> object = TezDocIndexedMesh::Create(mesh);
    TezRef<TezMeshKDTree> tree = object->GetTree();
    object->TransformGeometry(TezTranslationTransform<float>({0, 0, 5}) *
                              TezRotationTransform<float>(1.5707964f, {1, 0, 0}));
    TezBox3<float> const box = mesh->ComputeBounds();
    EXPECT_NEAR(5.0f - 1.3f, box.GetMinimum().z, 1e-4f);
    EXPECT_NEAR(-0.3f, box.GetMinimum().y, 1e-4f);
    // (0, 0.6, 0.8) turned a quarter about x.
    EXPECT_NEAR(-0.8f, mesh->GetVertex(0).normal.y, 1e-5f);
    EXPECT_NEAR(0.6f, mesh->GetVertex(0).normal.z, 1e-5f);
    EXPECT_NE(tree, object->GetTree()) << "the tree is built again over the moved mesh";
    EXPECT_TRUE(object->GetSceneObject()->GetProperty(TezSceneObject::NeedsBuild));

    TezRef<TezTopologyMesh> other = TezTopologyMesh::Create(Torus());
    EXPECT_THROW(object->SetTopology(other), std::runtime_error);
}

TEST(MeshCloudDocument, LyingCountsAndBadIndicesAreRefusedBeforeAnythingIsAllocated)
{
    std::string const path = TempPath("tez-meshdoc-forged.arc");
    TezRef<TezIndexedMesh> mesh = Torus();
    std::vector<TezMeshVertex> const& v = mesh->GetVertices();
    std::vector<unsigned int> const& i = mesh->GetIndices();
    size_t const nv = mesh->GetNumVertices(), nt = mesh->GetNumTriangles();

    struct Case
    {
        char const* what;
        uint64_t numVertices, numTriangles;
        std::vector<unsigned int> indices;
    };
    std::vector<unsigned int> pastTheEnd = i;
    pastTheEnd[7] = unsigned(nv);
    for (Case const& c :
         {Case{"vertices claimed beyond the block", uint64_t(1) << 40, nt, i},
          Case{"fewer vertices claimed", nv - 1, nt, i}, Case{"a count that overflows", ~uint64_t(0) / 2, nt, i},
          Case{"triangles claimed beyond the block", nv, nt + 1000000, i},
          Case{"triangles without their block", nv, nt, {}}, Case{"an index past the vertices", nv, nt, pastTheEnd}}) {
        WriteMeshSection(path, c.numVertices, c.numTriangles, v, c.indices);
        TezRef<TezDocIndexedMesh> object = TezDocIndexedMesh::Create(mesh);
        EXPECT_THROW(LoadInto(object, path), std::runtime_error) << c.what;
        EXPECT_EQ(mesh, object->GetGeometry()) << c.what << ": the object is left as it was";
    }

    // A section of another kind.
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
    TezDocCloud::Create(TezPointCloud::CreateEmpty())->Save(archive);
    archive->Flush();
    archive = nullptr;
    EXPECT_THROW(LoadInto(TezDocIndexedMesh::Create(mesh), path), std::runtime_error);

    // A cloud whose count lies.
    archive = TezArchive::Open(path.c_str(), TezArchive::Write);
    archive->WriteStartSection("Point Cloud Document Object");
    archive->WriteSizet("numPoints", 1000000000);
    float const points[6] = {1, 2, 3, 4, 5, 6};
    archive->WriteBinary("points", points, sizeof points);
    archive->WriteEndSection();
    archive->Flush();
    archive = nullptr;
    TezRef<TezPointCloud> cloud = TezPointCloud::CreateEmpty();
    TezRef<TezDocCloud> cloudObject = TezDocCloud::Create(cloud);
    EXPECT_THROW(LoadInto(cloudObject, path), std::runtime_error);
    EXPECT_EQ(cloud, cloudObject->GetCloud());
    std::remove(path.c_str());
}

TEST(MeshCloudDocument, EveryCutOfAnArchiveLoadsOrIsRefusedWithoutHanging)
{
    std::string const whole = TempPath("tez-meshdoc-whole.arc"), cut = TempPath("tez-meshdoc-cut.arc");
    TezRef<TezPointCloud> cloud = TezPointCloud::CreateEmpty();
    cloud->AddPoint({1, 2, 3});
    SaveObjects(whole, {TezDocIndexedMesh::Create(TezIndexedMesh::CreateSphere(3, 4)), TezDocCloud::Create(cloud)});
    std::vector<unsigned char> const bytes = FileBytes(whole);
    ASSERT_GT(bytes.size(), 100u);
    size_t refused = 0;
    for (size_t n = 0; n < bytes.size(); ++n) {
        WriteBytes(cut, bytes, n);
        try {
            LoadObjects(cut, 2);
        } catch (std::exception const&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, bytes.size() / 2);
    std::remove(whole.c_str());
    std::remove(cut.c_str());
}

TEST(MeshCloudDocument, EveryKindIsRebuiltFromItsStoredName)
{
    struct Row
    {
        char const* name;
        uint32_t type;
    };
    for (Row const& row :
         {Row{"Indexed Mesh Document Object", TezDocIndexedMesh::StaticType()},
          Row{"Point Cloud Document Object", TezDocCloud::StaticType()},
          Row{"Cube Volume Document Object", TezDocCubeVolume::StaticType()},
          Row{"Indexed Mesh Scene Object", TezSceneIndexedMesh::StaticType()},
          Row{"Mesh Hole Scene Object", TezSceneMeshHole::StaticType()},
          Row{"Voxel Cloud", TezSceneVoxelCloud::StaticType()}, Row{"Point Cloud", TezScenePointCloud::StaticType()},
          Row{"Voxel Octree Scene Object", TezSceneVoxelOctree::StaticType()}, Row{"Box", TezSceneBox::StaticType()},
          Row{"Sphere", TezSceneSphere::StaticType()}, Row{"Polyline", TezSceneThickPolyline::StaticType()},
          Row{"Ring", TezSceneFrame::StaticType()}}) {
        TezRef<TezTypifiedObject> object = TezCreateObjectFromName(TezString(row.name));
        ASSERT_TRUE(object) << row.name;
        EXPECT_EQ(row.type, object->Type()) << row.name;
        EXPECT_STREQ(row.name, object->TypeName().c_str());
    }
    // The second holder of a shared name still answers it.
    EXPECT_STREQ("Polyline", TezScenePolyline::StaticTypeName().c_str());
}

TEST(MeshCloudDocument, InADocumentTheMeshAndItsHolesJoinTheSceneAndSelectTogether)
{
    TestApplication app(reinterpret_cast<HGLRC>(0x1));
    app.NewDocument();
    TezRef<TezScene> scene = app.active->GetScene();
    ASSERT_TRUE(scene);
    TezRef<TezSceneObject> root = scene->GetRoot();
    int const background = root->GetNumChildren();

    TezRef<TezIndexedMesh> mesh = Torus();
    TezRef<TezDocIndexedMesh> object = TezDocIndexedMesh::Create(TezTopologyMesh::Create(mesh));
    object->OnAdd(app.active);
    EXPECT_EQ(background + 2, root->GetNumChildren()) << "the mesh and its one hole";
    EXPECT_EQ(scene, object->GetSceneObject()->GetScene());
    EXPECT_EQ(scene, object->GetHoleObjects()[0]->GetScene());

    // A second hole: the hole objects are made anew, in the same scene.
    TezRef<TezMeshIndexList> cut = TezMeshIndexList::Create();
    cut->Add(40);
    TezRef<TezTopologyMesh> topology = object->GetTopology();
    topology->Remove(cut);
    object->RegenerateHoles();
    ASSERT_EQ(2u, object->GetHoleObjects().size());
    EXPECT_EQ(background + 3, root->GetNumChildren());
    EXPECT_TRUE(object->GetSceneObject()->GetProperty(TezSceneObject::NeedsBuild));

    object->SetVisible(false);
    EXPECT_FALSE(object->GetHoleObjects()[1]->GetProperty(TezSceneObject::Visible));

    object->Select(true);
    EXPECT_TRUE(object->IsSelected());
    EXPECT_TRUE(object->GetSceneObject()->IsSelected()) << "drawn in the selected colour";
    object->Select(false);
    EXPECT_FALSE(object->GetSceneObject()->IsSelected());

    object->OnRemove(app.active);
    EXPECT_EQ(background, root->GetNumChildren());
}
