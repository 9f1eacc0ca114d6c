#include "core/Archive.h"
#include "document/CommandManager.h"
#include "document/DocumentCommands.h"
#include "document/objects/DocCloud.h"
#include "document/objects/DocCubeVolume.h"
#include "document/objects/DocIndexedMesh.h"
#include "mesh/IndexedMesh.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneObject.h"
#include "tez/HostApplication.h"
#include "volume/MemoryVolume.h"
#include "volume/VoxelCloud.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace {

// A document object kind: the base part is all it writes.
class Marker : public TezDocumentObject
{
    TEZ_TYPIFIED_CLASS(Marker)
public:
    static TezRef<Marker> Create(char const* name)
    {
        TezRef<Marker> marker(new Marker());
        marker->SetName(name);
        return marker;
    }
};

TEZ_TYPIFIED_IMPL(Marker, "Test Marker")

// An object that is no document object: a document skips its records.
class Stray : public TezIdentifiableObject
{
    TEZ_TYPIFIED_CLASS(Stray)
public:
    static TezRef<Stray> Create() { return TezRef<Stray>(new Stray()); }
};

TEZ_TYPIFIED_IMPL(Stray, "Test Stray")

std::string Bytes(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

class HostDocuments : public ::testing::Test
{
protected:
    std::string Path(char const* name) { return ::testing::TempDir() + "tez-host-" + name; }
    void TearDown() override
    {
        for (std::string const& path : made)
            std::remove(path.c_str());
    }
    std::string Made(char const* name)
    {
        made.push_back(Path(name));
        return made.back();
    }

    TezHostApplication app;
    std::vector<std::string> made;
};

TezRef<TezHostDocument> Active(TezHostApplication& app) { return TezRef<TezHostDocument>(app.GetActiveDocument()); }

} // namespace

TEST_F(HostDocuments, NewAndOpenMakeTheDocumentActiveWithItsRootCommand)
{
    EXPECT_FALSE(app.GetActiveDocument());
    TezRef<TezDocument> created = app.NewDocument();
    ASSERT_TRUE(created);
    EXPECT_EQ(created, app.GetActiveDocument());
    auto const& undo = created->GetCommandManager()->GetUndoList();
    ASSERT_EQ(1u, undo.size());
    EXPECT_TRUE(TezRef<TezCmdDocumentNew>(undo.front()));
    EXPECT_FALSE(created->GetCommandManager()->CanUndo()) << "the root command is never undone";

    std::string path = Made("root.mvne");
    created->Save(TezString(path.c_str()));
    TezRef<TezDocument> opened = app.OpenDocument(TezString(path.c_str()));
    EXPECT_EQ(TezDocument::DocNoError, opened->GetLastError());
    EXPECT_EQ(opened, app.GetActiveDocument());
    EXPECT_STREQ(path.c_str(), opened->GetFileName().c_str());
    std::vector<TezString> script = opened->GetCommandManager()->BuildPython();
    ASSERT_EQ(5u, script.size());
    EXPECT_STREQ(("tez.open(r'" + path + "')\n").c_str(), script[3].c_str());
}

TEST_F(HostDocuments, SaveAndOpenRoundTripObjectsInOrderAndTheSameContentGivesTheSameBytes)
{
    app.NewDocument();
    ASSERT_TRUE(Active(app)->AddObject(Marker::Create("first")));
    ASSERT_TRUE(Active(app)->AddObject(Marker::Create("second")));
    EXPECT_FALSE(Active(app)->AddObject(Active(app)->GetObjects()[0])) << "an object is held once";
    Active(app)->SetModified(true);

    std::string path = Made("objects.mvne"), again = Made("objects-again.mvne");
    Active(app)->Save(TezString(path.c_str()));
    EXPECT_FALSE(Active(app)->IsModified());
    EXPECT_STREQ(path.c_str(), Active(app)->GetFileName().c_str());
    Active(app)->Save(TezString(again.c_str()));
    EXPECT_EQ(Bytes(path), Bytes(again));

    TezRef<TezDocument> opened = app.OpenDocument(TezString(path.c_str()));
    ASSERT_EQ(TezDocument::DocNoError, opened->GetLastError());
    auto const& objects = TezRef<TezHostDocument>(opened)->GetObjects();
    ASSERT_EQ(2u, objects.size());
    EXPECT_TRUE(TezRef<Marker>(objects[0]));
    EXPECT_STREQ("first", objects[0]->GetName().c_str());
    EXPECT_STREQ("second", objects[1]->GetName().c_str());
}

TEST_F(HostDocuments, ReadingSkipsUnknownTagsSectionsAndObjects)
{
    std::string path = Made("future.mvne");
    {
        TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
        archive->WriteStartSection("Morvane Document");
        archive->WriteInt("version", 1);
        archive->WriteString("comment", "from a later program");
        archive->WriteStartSection("Later Settings");
        archive->WriteInt("level", 4);
        archive->WriteEndSection();
        // A record of an object that is not a document object, with its data.
        archive->WriteObject("object", Stray::Create());
        archive->WriteStartSection("Object Name");
        archive->WriteString("name", "lost");
        archive->WriteEndSection();
        TezRef<Marker> kept = Marker::Create("kept");
        archive->WriteObject("object", kept);
        kept->Save(archive);
        archive->WriteEndSection();
    }
    TezRef<TezDocument> opened = app.OpenDocument(TezString(path.c_str()));
    ASSERT_EQ(TezDocument::DocNoError, opened->GetLastError());
    auto const& objects = TezRef<TezHostDocument>(opened)->GetObjects();
    ASSERT_EQ(1u, objects.size());
    EXPECT_STREQ("kept", objects[0]->GetName().c_str());
}

TEST_F(HostDocuments, FailedOpensKeepTheActiveDocumentAndReportError)
{
    TezRef<TezDocument> before = app.NewDocument();
    std::string foreign = Made("foreign.mvne"), truncated = Made("truncated.mvne"), good = Made("good.mvne");
    std::ofstream(foreign, std::ios::binary) << "plain text, not an archive";
    before->Save(TezString(good.c_str()));
    std::string bytes = Bytes(good);
    std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() - 6);

    for (std::string const& path : {Path("missing.mvne"), foreign, truncated}) {
        SCOPED_TRACE(path);
        TezRef<TezDocument> failed = app.OpenDocument(TezString(path.c_str()));
        ASSERT_TRUE(failed);
        EXPECT_EQ(TezHostApplication::DocumentOpenError, failed->GetLastError());
        EXPECT_EQ(before, app.GetActiveDocument());
        try {
            TezCmdDocumentOpen::Run(TezString(path.c_str()));
            ADD_FAILURE() << "no exception";
        } catch (std::runtime_error const& e) {
            EXPECT_EQ("Unable to open Morvane document " + path + " successfully.", std::string(e.what()));
        }
    }
    EXPECT_EQ(before, app.GetActiveDocument());
}

// A volume document: octree, transfer function, colour and visibility come
// back from the file, and the opened document saves the same content again.
TEST_F(HostDocuments, VolumeObjectsSaveAndOpenWithTheirOctreeAndLooks)
{
    int const n = 16;
    std::vector<uint8_t> voxels(size_t(n) * n * n, 0);
    for (size_t i = 0; i < voxels.size(); i += 5)
        voxels[i] = uint8_t(40 + i % 200);
    TezRef<TezDocCubeVolume> volume = TezDocCubeVolume::Create(
        TezVoxelOctree::CreateFromVolumeData("v", TezMemoryVolume::Create8(n, n, n, voxels), 0.5, 8, 64));
    app.NewDocument();
    ASSERT_TRUE(Active(app)->AddObject(volume));
    // Without a GL context the host's documents have no scene to join.
    if (TezRef<TezScene> scene = Active(app)->GetScene()) {
        EXPECT_EQ(1, scene->GetRoot()->GetNumChildren()) << "its scene object joins the scene";
    }
    volume->SetTransferFunction({{0, 0}, {0.3f, 0.5f}, {1, 1}});
    volume->GetSceneObject()->SetColor({0.25f, 0.5f, 0.75f, 1.0f});
    volume->SetVisible(false);
    TezMatrix44<float> const placed =
        TezTranslationTransform<float>({1.0f, -2.0f, 0.5f}) * TezScaleTransform<float>(2.0f);
    volume->SetTransform(placed);

    std::string path = Made("volume.mvne"), twice = Made("volume-twice.mvne"), again = Made("volume-again.mvne");
    Active(app)->Save(TezString(path.c_str()));
    Active(app)->Save(TezString(twice.c_str()));
    EXPECT_EQ(Bytes(path), Bytes(twice));
    TezRef<TezDocument> opened = app.OpenDocument(TezString(path.c_str()));
    ASSERT_EQ(TezDocument::DocNoError, opened->GetLastError());
    auto const& objects = TezRef<TezHostDocument>(opened)->GetObjects();
    ASSERT_EQ(1u, objects.size());
    TezRef<TezDocCubeVolume> back(objects[0]);
    ASSERT_TRUE(back && back->GetVoxelOctree());
    EXPECT_EQ(volume->GetTransferFunction(), back->GetTransferFunction());
    EXPECT_EQ(volume->GetHistogram(), back->GetHistogram());
    EXPECT_EQ(volume->GetSceneObject()->GetColor(), back->GetSceneObject()->GetColor());
    EXPECT_FALSE(back->GetVisible());
    EXPECT_EQ(0.5f, back->GetVoxelSize());
    EXPECT_EQ(volume->GetVoxelOctree()->GetNodePool().GetSizeBytes(),
              back->GetVoxelOctree()->GetNodePool().GetSizeBytes());

    EXPECT_EQ(placed, back->GetTransform());

    // The opened objects have ids of their own; records number them in
    // order, so the file is the same.
    opened->Save(TezString(again.c_str()));
    EXPECT_EQ(Bytes(path), Bytes(again));
}

TEST_F(HostDocuments, MeshAndPointFilesOpenAsDocumentsThatSaveOpenAndSaveToTheSameBytes)
{
    std::string const stl = Made("ring.stl");
    ASSERT_TRUE(
        TezIndexedMesh::WriteToStlFile(TezIndexedMesh::CreateTorus(8, 12, 1.0f, 0.3f), TezString(stl.c_str()), true));
    TezRef<TezDocument> opened = app.OpenDocument(TezString(stl.c_str()));
    ASSERT_EQ(TezDocument::DocNoError, opened->GetLastError());
    EXPECT_EQ(opened, app.GetActiveDocument());
    auto const& objects = TezRef<TezHostDocument>(opened)->GetObjects();
    ASSERT_EQ(1u, objects.size());
    TezRef<TezDocIndexedMesh> mesh(objects[0]);
    ASSERT_TRUE(mesh);
    EXPECT_STREQ("tez-host-ring", mesh->GetName().c_str());
    EXPECT_EQ(192u, mesh->GetGeometry()->GetNumTriangles());
    EXPECT_STREQ("", opened->GetFileName().c_str()) << "a mesh file is not written over";
    EXPECT_TRUE(opened->IsModified());

    std::string const points = Made("points.txt");
    {
        std::ofstream out(points);
        out << "0 0 0\n1 2 3\n-1.5 4 0.25\n";
    }
    TezRef<TezHostDocument> cloudFile = TezHostDocument::Create();
    ASSERT_TRUE(cloudFile->Read(TezString(points.c_str())));
    ASSERT_EQ(1u, cloudFile->GetObjects().size());
    TezRef<TezDocCloud> cloud(cloudFile->GetObjects()[0]);
    ASSERT_TRUE(cloud);
    EXPECT_EQ(3u, cloud->GetCloud()->GetNumPoints());
    TezRef<TezHostDocument>(opened)->AddObject(cloud);

    std::string const path = Made("mesh-and-cloud.mvne"), again = Made("mesh-and-cloud-again.mvne");
    opened->Save(TezString(path.c_str()));
    TezRef<TezDocument> reopened = app.OpenDocument(TezString(path.c_str()));
    ASSERT_EQ(TezDocument::DocNoError, reopened->GetLastError());
    auto const& back = TezRef<TezHostDocument>(reopened)->GetObjects();
    ASSERT_EQ(2u, back.size());
    EXPECT_TRUE(TezRef<TezDocIndexedMesh>(back[0]));
    EXPECT_TRUE(TezRef<TezDocCloud>(back[1]));
    EXPECT_EQ(reopened->GetScene() ? 2 : 0,
              reopened->GetScene() ? reopened->GetScene()->GetRoot()->GetNumChildren() : 0);
    reopened->Save(TezString(again.c_str()));
    EXPECT_EQ(Bytes(path), Bytes(again));

    // Files that hold nothing to show are refused, and the document stays.
    std::string const empty = Made("empty.txt");
    std::ofstream(empty).close();
    EXPECT_FALSE(cloudFile->Read(TezString(empty.c_str())));
    EXPECT_EQ(1u, cloudFile->GetObjects().size());
    EXPECT_FALSE(cloudFile->Read(TezString(Path("missing.ply").c_str())));
}
