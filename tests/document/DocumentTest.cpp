#include "DocumentFixture.h"
#include "core/Application.h"
#include "render/RenderViewManager.h"

#include "core/Archive.h"
#include "render/objects/SceneBackground.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneObject.h"

#include <cstdio>

namespace {

class Item : public TezDocumentObject
{
    TEZ_TYPIFIED_CLASS(Item)
public:
    static TezRef<Item> Create() { return TezRef<Item>(new Item()); }
};

TEZ_TYPIFIED_IMPL(Item, "Test Document Item")

class Documents : public ::testing::Test
{
protected:
    void SetUp() override
    {
        app.NewDocument();
        log = EventLog::Create();
    }
    TestApplication app;
    TezRef<EventLog> log;
};

} // namespace

TEST_F(Documents, WithoutRenderContextThereAreNoScenes)
{
    TezRef<TezDocument> document = app.active;
    EXPECT_FALSE(document->GetScene());
    EXPECT_FALSE(document->GetAuxiliaryScene());
    EXPECT_TRUE(document->GetSelection());
    EXPECT_TRUE(document->GetCommandManager());
    EXPECT_NE(document->GetCommandManager(), document->GetFocusCommandManager());
    app.active = nullptr; // destruction without scenes works
}

TEST(DocumentsWithContext, HaveTwoScenes)
{
    TestApplication app(reinterpret_cast<HGLRC>(0x1));
    auto document = TestDocument::Create();
    EXPECT_TRUE(document->GetScene());
    EXPECT_TRUE(document->GetAuxiliaryScene());
    EXPECT_NE(document->GetScene(), document->GetAuxiliaryScene());
    // The main scene starts with its background under the root; the
    // auxiliary one starts empty.
    ASSERT_EQ(1, document->GetScene()->GetRoot()->GetNumChildren());
    EXPECT_EQ(TezSceneBackground::StaticType(), document->GetScene()->GetRoot()->GetChild(0)->Type());
    EXPECT_EQ(0, document->GetAuxiliaryScene()->GetRoot()->GetNumChildren());
}

TEST_F(Documents, SaveNeedsANameAndCatchesFailures)
{
    auto document = app.active;
    document->Save();
    EXPECT_EQ(TezDocument::DocSaveError, document->GetLastError());
    EXPECT_EQ(TezDocument::DocNoError, document->GetLastError()); // reading consumed it
    EXPECT_TRUE(document->savedTo.empty());

    document->SetFileName(TezString("a.mvne"));
    document->Save();
    EXPECT_EQ((std::vector<std::string>{"a.mvne"}), document->savedTo);
    EXPECT_EQ(TezDocument::DocNoError, document->GetLastError());
    EXPECT_FALSE(document->IsModified()); // saving leaves the flag to the host

    document->throwOnSave = true;
    document->Save();
    EXPECT_EQ(TezDocument::DocSaveError, document->GetLastError());
}

TEST_F(Documents, ReportingCanBeSuspendedWithoutAFloor)
{
    log->Listen<TezEventDocumentChanging, TezEventDocumentChanged, TezEventDocumentSelected>(app.GetEventManager());
    auto document = app.active;
    document->Report(TezDocument::DocChanging);
    document->Report(TezDocument::DocSelected);
    document->Report(static_cast<TezDocument::DocEventType>(3)); // nothing
    document->SuspendReporting();
    document->SuspendReporting();
    document->ResumeReporting();
    document->Report(TezDocument::DocChanged); // still muted, and lost
    document->ResumeReporting();
    document->Report(TezDocument::DocChanged);
    document->ResumeReporting(); // -1 mutes too
    document->Report(TezDocument::DocChanged);
    EXPECT_EQ(
        (std::vector<std::string>{"Document Changing Event", "Document Selected Event", "Document Changed Event"}),
        log->names);
}

TEST_F(Documents, ObjectsReportToTheActiveDocument)
{
    log->Listen<TezEventDocumentChanged>(app.GetEventManager());
    auto item = Item::Create();
    auto other = TestDocument::Create(); // not active, and muted
    other->SuspendReporting();
    item->Report(TezDocument::DocChanged);
    EXPECT_EQ(1u, log->names.size());
}

TEST_F(Documents, SelectionEventsAndRules)
{
    // Patterns match one selection only: listen to the active one.
    auto bus = app.GetEventManager();
    auto selection = app.active->GetSelection();
    bus->Subscribe(TezEventSelectionChanging::Create(selection), log);
    bus->Subscribe(TezEventSelectionChanged::Create(selection), log);

    auto a = Item::Create(), b = Item::Create();
    a->Select(true);
    EXPECT_TRUE(a->IsSelected());
    a->Select(true); // again: both events, same count
    EXPECT_EQ(1u, selection->GetCount());
    EXPECT_EQ(4u, log->names.size());

    log->names.clear();
    b->Select(false); // not selected: nothing
    EXPECT_TRUE(log->names.empty());
    b->Select(true);
    b->SelectIndex(3);
    selection->RemoveAllIndices();
    EXPECT_TRUE(b->GetSelectedIndices().empty());
    EXPECT_EQ(2u, selection->GetCount());

    std::set<TezSelectableObject*> walked;
    for (auto o = selection->GetFirstObject(); o; o = selection->GetNextObject())
        walked.insert(o.Get());
    EXPECT_EQ((std::set<TezSelectableObject*>{a.Get(), b.Get()}), walked);

    log->names.clear();
    selection->RemoveAll();
    EXPECT_FALSE(a->IsSelected());
    EXPECT_TRUE(selection->IsEmpty());
    selection->RemoveAll(); // empty: still both events
    EXPECT_EQ((std::vector<std::string>{"Selection Changing Event", "Selection Changed Event",
                                        "Selection Changing Event", "Selection Changed Event"}),
              log->names);
    EXPECT_TRUE(selection->AddObject(nullptr));
    EXPECT_FALSE(selection->GetFirstObject());
}

TEST_F(Documents, ObjectNameRoundTripsAndLoadSkipsTheUnknown)
{
    char path[] = "/tmp/tez_doc_XXXXXX";
    fclose(fdopen(mkstemp(path), "w"));
    auto item = Item::Create();
    item->SetName(TezString("Skull CT"));
    {
        TezRef<TezArchive> archive = TezArchive::Open(path, TezArchive::Write);
        archive->WriteObject("object", item);
        archive->WriteStartSection("Object Name");
        archive->WriteDouble("future", 1.0);
        archive->WriteStartSection("Nested From A Later Version");
        archive->WriteString("name", "not this one");
        archive->WriteEndSection();
        archive->WriteString("name", "Skull CT");
        archive->WriteEndSection();
        archive->WriteInt("after", 5);
    }
    TezRef<TezArchive> archive = TezArchive::Open(path, TezArchive::Read);
    TezRef<Item> back(archive->ReadObject());
    ASSERT_TRUE(back);
    EXPECT_NE(item->Id(), back->Id()); // read objects get fresh ids
    back->Load(archive);
    EXPECT_STREQ("Skull CT", back->GetName());
    EXPECT_EQ(5, archive->ReadInt());
    std::remove(path);
}

TEST(TezDocumentAccessors, AnswerNullWithoutAnApplication)
{
    ASSERT_EQ(nullptr, TezApplication::Instance());
    EXPECT_FALSE(TezRenderViewManager::GetAppRenderViewManager());
    EXPECT_FALSE(TezDocument::GetActiveDocument());
}
