#include "DocumentFixture.h"

#include "document/DocumentCommands.h"
#include "document/ExportCommands.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace {

// Records what happens to it; holds "undo data" until released.
class Step : public TezCommand
{
public:
    static TezRef<Step> Create(std::string name, std::vector<std::string>* log, bool succeed = true)
    {
        return TezRef<Step>(new Step(std::move(name), log, succeed));
    }
    bool Execute() override
    {
        m_log->push_back("do " + m_name);
        return m_succeed;
    }
    bool IsUndoable() override { return m_hasUndoData; }
    bool Undo() override
    {
        m_log->push_back("undo " + m_name);
        return true;
    }
    bool Redo() override
    {
        m_log->push_back("redo " + m_name);
        return true;
    }
    void ClearUndoMemory() override
    {
        ++released;
        m_hasUndoData = false;
    }
    TezString BuildPython() const override
    {
        TezString line;
        line.Format("tez.step('%s')\n", m_name.c_str());
        return line;
    }
    int released = 0;

private:
    Step(std::string name, std::vector<std::string>* log, bool succeed)
        : m_name(std::move(name)), m_log(log), m_succeed(succeed)
    {
    }
    std::string m_name;
    std::vector<std::string>* m_log;
    bool m_succeed;
    bool m_hasUndoData = true;
};

class Commands : public ::testing::Test
{
protected:
    void SetUp() override
    {
        app.NewDocument();
        manager = app.active->GetCommandManager();
        manager->SetMaxUndoCommands(5);
        status = EventLog::Create();
        status->Listen<TezEventCommandManagerStatusChanged>(app.GetEventManager());
    }
    void TearDown() override { TezCommandManager::GetMaxUndoOption()->Set(5); }
    TezRef<Step> Run(std::string name, bool succeed = true)
    {
        auto step = Step::Create(std::move(name), &log, succeed);
        manager->Execute(step);
        return step;
    }
    TestApplication app;
    TezRef<TezCommandManager> manager;
    TezRef<EventLog> status;
    std::vector<std::string> log;
};

} // namespace

TEST_F(Commands, TheRootCommandIsNeverUndone)
{
    Run("root");
    EXPECT_FALSE(manager->CanUndo());
    Run("second");
    EXPECT_TRUE(manager->CanUndo());
    manager->Undo();
    EXPECT_FALSE(manager->CanUndo());
    EXPECT_TRUE(manager->CanRedo());
    manager->Undo(); // silent
    manager->Redo();
    EXPECT_FALSE(manager->CanRedo());
    manager->Redo(); // silent
    EXPECT_EQ((std::vector<std::string>{"do root", "do second", "undo second", "redo second"}), log);
    EXPECT_EQ(2u, manager->GetUndoList().size());
}

TEST_F(Commands, ExecuteRecordsFirstAndDropsTheTailOnFailure)
{
    Run("root");
    Run("a");
    manager->Undo();
    status->names.clear();
    Run("fails", false);
    EXPECT_TRUE(manager->CanRedo()); // a failure leaves redo alone
    EXPECT_TRUE(status->names.empty());
    EXPECT_EQ(1u, manager->GetUndoList().size());

    Run("b");
    EXPECT_FALSE(manager->CanRedo());    // success clears redo
    EXPECT_EQ(2u, status->names.size()); // one from ClearRedo, one for the change

    manager->Push(Step::Create("pushed", &log));
    EXPECT_EQ(3u, manager->GetUndoList().size());
    EXPECT_EQ("do b", log.back()); // pushed commands do not run
}

TEST_F(Commands, TheUndoLimitReleasesDataWithoutShorteningTheList)
{
    std::vector<TezRef<Step>> steps;
    for (int i = 0; i < 7; ++i)
        steps.push_back(Run("s" + std::to_string(i)));
    EXPECT_EQ(7u, manager->GetUndoList().size());
    EXPECT_EQ(1, steps[0]->released); // sixth entry released the oldest
    EXPECT_EQ(1, steps[1]->released); // seventh released the second
    for (int i = 2; i < 7; ++i)
        EXPECT_EQ(0, steps[i]->released) << i;
}

TEST_F(Commands, LimitsZeroAndMinusOneReleaseEachNewCommandAtOnce)
{
    for (int limit : {0, -1}) {
        manager->ClearAll();
        manager->SetMaxUndoCommands(limit);
        auto root = Run("root");
        auto step = Run("step");
        EXPECT_EQ(1, step->released) << limit;
        EXPECT_FALSE(manager->CanUndo()) << limit;
    }
}

TEST_F(Commands, ChangingTheLimit)
{
    std::vector<TezRef<Step>> steps;
    for (int i = 0; i < 4; ++i)
        steps.push_back(Run("s" + std::to_string(i)));
    manager->SetMaxUndoCommands(-1); // releases nothing at once
    for (auto const& step : steps)
        EXPECT_EQ(0, step->released);
    manager->SetMaxUndoCommands(2);
    EXPECT_EQ((std::vector<int>{1, 1, 0, 0}),
              (std::vector<int>{steps[0]->released, steps[1]->released, steps[2]->released, steps[3]->released}));

    // A change of the option from outside is applied by the next Execute, and only that.
    TezCommandManager::GetMaxUndoOption()->Set(1);
    auto next = Run("next");
    EXPECT_EQ(1, manager->GetMaxUndoCommands());
    EXPECT_EQ(1, steps[3]->released);
    EXPECT_EQ(0, next->released);
}

TEST_F(Commands, BatchesRunEverythingAndAndTheResults)
{
    auto batch = TezCommandBatch::Create();
    EXPECT_TRUE(batch->Execute()); // empty
    batch->Add(Step::Create("first", &log, false));
    batch->Add(Step::Create("second", &log));
    EXPECT_FALSE(batch->Execute());
    EXPECT_EQ((std::vector<std::string>{"do first", "do second"}), log);
    log.clear();
    batch->Undo();
    EXPECT_EQ((std::vector<std::string>{"undo second", "undo first"}), log);
    EXPECT_STREQ("tez.step('first')\ntez.step('second')\n", batch->BuildPython());
    batch->ClearUndoMemory();
    EXPECT_FALSE(batch->IsUndoable());

    Run("root");
    EXPECT_TRUE(manager->Execute(TezCommandBatch::Create())); // recorded like any other
    EXPECT_EQ(2u, manager->GetUndoList().size());
}

TEST_F(Commands, HistoryAsPython)
{
    EXPECT_EQ((std::vector<TezString>{TezString("import tez\n"), TezString("\n"), TezString("tez.start()\n"),
                                      TezString("tez.stop()\n")}),
              manager->BuildPython());
    manager->Push(TezCmdDocumentNew::Create());
    Run("a");
    Run("b");
    manager->Undo(); // undone commands leave the script
    manager->Push(TezCmdInsertPython::Create(TezString("# note\n\nx = 1\n")));
    manager->Push(TezCmdDocumentSaveAs::Create(TezString("C:\\out.mvne")));
    std::vector<TezString> lines = manager->BuildPython();
    std::string text;
    for (auto const& line : lines)
        text += line.c_str();
    EXPECT_EQ("import tez\n\ntez.start()\ntez.new()\ntez.step('a')\n# note\nx = 1\ntez.save_as(r'C:\\out.mvne')\n"
              "tez.stop()\n",
              text);

    char path[] = "/tmp/tez_history_XXXXXX";
    fclose(fdopen(mkstemp(path), "w"));
    EXPECT_TRUE(manager->ExportPython(TezString(path)));
    std::stringstream written;
    written << std::ifstream(path).rdbuf();
    EXPECT_EQ(text, written.str());
    std::remove(path);
    EXPECT_FALSE(manager->ExportPython(TezString("/no/such/dir/x.py")));
}

TEST_F(Commands, DocumentCommandsAndTheirMessages)
{
    auto expectError = [](auto&& fn, std::string const& message) {
        try {
            fn();
            ADD_FAILURE() << "no error, expected: " << message;
        } catch (std::runtime_error const& e) {
            EXPECT_EQ(message, e.what());
        }
    };
    EXPECT_TRUE(TezCmdDocumentNew::Run());
    EXPECT_EQ(2, app.newCount);
    expectError([] { TezCmdDocumentSave::Run(); }, "The active document has never been saved. Try save_as.");
    EXPECT_TRUE(TezCmdDocumentSave::Create()->Execute());
    EXPECT_EQ(TezDocument::DocSaveError, app.active->GetLastError());

    expectError([] { TezCmdDocumentSaveAs::Run(TezString("")); }, "Please specify a filename.");
    EXPECT_TRUE(TezCmdDocumentSaveAs::Run(TezString("x.mvne")));
    EXPECT_EQ((std::vector<std::string>{"x.mvne"}), app.active->savedTo);

    expectError([] { TezCmdDocumentOpen::Run(TezString("")); }, "Please specify a filename.");
    app.failOpen = true;
    expectError([] { TezCmdDocumentOpen::Run(TezString("bad.mvne")); },
                "Unable to open Morvane document bad.mvne successfully.");
    app.failOpen = false;
    EXPECT_TRUE(TezCmdDocumentOpen::Run(TezString("good.mvne")));

    app.active = nullptr;
    expectError([] { TezCmdDocumentSave::Run(); }, "No active document to save.");
    expectError([] { TezCmdDocumentSaveAs::Run(TezString("y")); }, "No active document to save.");
    expectError([] { TezCmdExportMainWindowImage::Run(TezString("a.png")); },
                "Main window does not exist. Cannot export image.");
    expectError([] { TezCmdExportRenderViewImage::RunStandard(TezString("a.png"), TezString("top")); },
                "Render View window does not exist. Cannot export image.");
}

TEST(ExportNames, GenericNamesAndViewIndices)
{
    EXPECT_STREQ("generic_x_1.png",
                 TezCmdExportRenderViewImage::GetGenericName(TezString(""), TezString("x"), TezString("png")));
    EXPECT_STREQ("generic_p_1.bmp",
                 TezCmdExportRenderViewImage::GetGenericName(TezString("nodot"), TezString("p"), TezString("bmp")));
    char dir[] = "/tmp/tez_names_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    std::string base = std::string(dir) + "/shot.png";
    std::ofstream(std::string(dir) + "/shot_a_1.png") << "taken";
    EXPECT_EQ(
        std::string(dir) + "/shot_a_2.png",
        TezCmdExportRenderViewImage::GetGenericName(TezString(base.c_str()), TezString("a"), TezString("png")).c_str());
    std::remove((std::string(dir) + "/shot_a_1.png").c_str());
    rmdir(dir);
    EXPECT_EQ(7, TezCmdExportRenderViewImage::StandardViewIndex(TezString("ISOMETRIC")));
    EXPECT_EQ(6, TezCmdExportRenderViewImage::StandardViewIndex(TezString("sideways")));
    EXPECT_EQ(0, TezCmdExportRenderViewImage::StandardViewIndex(TezString("Front")));
}

TEST(ScriptFunctions, RegisteredInTableOrderThenMoveFocus)
{
    std::vector<std::string> names;
    for (auto const& def : TezCommand::GetCommandList())
        names.push_back(def.name);
    EXPECT_EQ((std::vector<std::string>{"new", "open", "save", "save_as", "export_main_window", "export_standard_view",
                                        "export_animated_view", "move_focus"}),
              names);
}
