#include "DocumentFixture.h"

#include "document/DocumentCommands.h"
#include "document/ScriptManager.h"

namespace {

int g_defaultsCalls = 0;
void Defaults(std::vector<TezString>* values)
{
    ++g_defaultsCalls;
    for (size_t i = 0; i < values->size(); ++i)
        (*values)[i].Format("%d", static_cast<int>(10 + i));
}
bool Validate(std::vector<TezString>* values)
{
    (*values)[0] = TezString("7"); // validation may change values
    return true;
}
double RunTwo(void*, void**, int) { return 1.0; }
void* PyTwo(void* a, void* b) { return TezCommand::CallParseMethod(&RunTwo, "if", a, b); }

TezCommand::CommandDef const kTwo{&PyTwo, &Defaults, &Validate, "two",
                                  "Takes two numbers.\nParameters:\n    count - how many\n        (at least 1)\n"
                                  "    size - how big\n"};

class HostScripts : public TezScriptManager
{
public:
    HostScripts() { m_instance = this; }
    ~HostScripts() override { m_instance = nullptr; }
    void Initialize() override
    {
        if (m_initialized)
            return;
        m_initialized = true;
        TezScriptParseMethod real = TezCommand::GetParseMethod();
        TezCommand::SetParseMethod(&TezScriptManager::ParseMethod);
        std::vector<TezCommand::CommandDef> all = TezCommand::GetCommandList();
        all.push_back(kTwo);
        BuildCommandList(all);
        for (auto const& entry : m_commandList)
            m_commandNames.emplace_back(entry.def.name);
        TezCommand::SetParseMethod(real);
    }
    // Puts lines into the current view directly.
    void Show(std::vector<TezString> lines)
    {
        m_liveScript = std::move(lines);
        m_liveFlags.assign(m_liveScript.size(), 0);
    }
    using TezScriptManager::m_liveStart;
    using TezScriptManager::m_mergedStart;

private:
    bool m_initialized = false;
};

class Scripts : public ::testing::Test
{
protected:
    int Index(char const* name)
    {
        auto const& names = scripts.GetCommandListNames();
        for (size_t i = 0; i < names.size(); ++i)
            if (names[i] == name)
                return static_cast<int>(i);
        return -1;
    }
    TezScriptManager::CommandDef& Entry(char const* name) { return scripts.GetCommandList()[Index(name)]; }
    TestApplication app;
    HostScripts scripts;
};

TezString S(char const* text) { return TezString(text); }

} // namespace

TEST_F(Scripts, CommandsAreDescribedFromTheirHelpTexts)
{
    auto& open = Entry("open");
    EXPECT_STREQ("s", open.format);
    EXPECT_EQ('v', open.rtnArg);
    EXPECT_NE(nullptr, open.runMethod);
    EXPECT_STREQ("Open an existing Morvane document.", open.description);
    ASSERT_EQ(1u, open.params.size());
    EXPECT_STREQ("filename", open.params[0].name);
    EXPECT_STREQ("The file name of the Morvane document to open (ext:mvne)", open.params[0].description);
    EXPECT_EQ('s', open.params[0].type);

    auto& newEntry = Entry("new");
    EXPECT_STREQ("Create a new Morvane document.\n", newEntry.description); // no parameters: the whole help
    EXPECT_TRUE(newEntry.params.empty());

    auto& animated = Entry("export_animated_view");
    ASSERT_EQ(14u, animated.params.size());
    EXPECT_STREQ("up_x", animated.params[10].name);
    EXPECT_EQ('f', animated.params[10].type);
    EXPECT_EQ('i', animated.params[13].type);

    auto& standard = Entry("export_standard_view");
    EXPECT_STREQ("name of standard camera view to use\n        (front, back, right, left, top, bottom, tilted, "
                 "isometric)",
                 standard.params[1].description);

    auto& two = Entry("two");
    ASSERT_EQ(2u, two.params.size());
    EXPECT_EQ('i', two.params[0].type);
    EXPECT_EQ('f', two.params[1].type);
}

TEST_F(Scripts, ParsesOneCallPerLine)
{
    scripts.Show({S("tez.open(r'a.mvne')\n"), S("tez.new()\n"), S("foo(1)\n"), S("x = tez.two([1, 2])\n"),
                  S("tez.two(1, 2, 3)\n"), S("tez.open(r'a,b.mvne')\n"), S("# just a comment\n")});

    EXPECT_FALSE(scripts.SetActiveScriptLine(0)); // no defaults function: false
    EXPECT_EQ(Index("open"), scripts.GetActiveScriptCommand());
    auto& open = Entry("open");
    EXPECT_STREQ("r'a.mvne'", open.params[0].value);
    EXPECT_STREQ("tez.open(", open.prefix);
    EXPECT_STREQ(")\n", open.suffix);

    EXPECT_FALSE(scripts.SetActiveScriptLine(1));
    EXPECT_EQ(Index("new"), scripts.GetActiveScriptCommand());

    EXPECT_FALSE(scripts.SetActiveScriptLine(2));
    EXPECT_EQ(-1, scripts.GetActiveScriptCommand());

    EXPECT_FALSE(scripts.SetActiveScriptLine(3)); // nothing was missing: no defaults used
    auto& two = Entry("two");
    EXPECT_EQ(Index("two"), scripts.GetActiveScriptCommand());
    EXPECT_STREQ("1", two.params[0].value); // the list is flattened
    EXPECT_STREQ("2", two.params[1].value);

    scripts.SetActiveScriptLine(4);
    ASSERT_EQ(3u, two.params.size());
    EXPECT_EQ('?', two.params[2].type);
    EXPECT_STREQ("3", two.params[2].value);

    scripts.SetActiveScriptLine(5); // commas inside quotes still split
    EXPECT_STREQ("r'a", open.params[0].value);

    EXPECT_FALSE(scripts.SetActiveScriptLine(6));
    EXPECT_EQ(-1, scripts.GetActiveScriptCommand());
    EXPECT_FALSE(scripts.SetActiveScriptLine(99));
}

TEST_F(Scripts, DefaultsFillMissingValuesAndEditsRebuildTheLine)
{
    scripts.Show({S("tez.two(5)\n"), S("tez.open(r'a.mvne')\n")});
    g_defaultsCalls = 0;
    EXPECT_TRUE(scripts.SetActiveScriptLine(0));
    EXPECT_EQ(1, g_defaultsCalls);
    EXPECT_STREQ("tez.two(5, 11)\n", scripts.GetScript()[0]);
    EXPECT_EQ(1, scripts.GetScriptFlags()[0] & 1);

    EXPECT_FALSE(scripts.SetNewParamValue(Index("open"), 0, S("x"))); // not the active command
    EXPECT_TRUE(scripts.SetNewParamValue(Index("two"), 1, S("42")));
    EXPECT_STREQ("tez.two(7, 42)\n", scripts.GetScript()[0]);

    scripts.SetActiveScriptLine(1);
    EXPECT_FALSE(scripts.SetNewParamValue(Index("open"), 0, S("r'b.mvne'"))); // no validate function
    EXPECT_STREQ("tez.open(r'b.mvne')\n", scripts.GetScript()[1]);

    scripts.SetScriptCommentFlag(1, true);
    EXPECT_EQ(3, scripts.GetScriptFlags()[1]);
    scripts.SetScriptCommentFlag(1, false);
    scripts.SetScriptCommentFlag(50, true); // ignored
    EXPECT_EQ(1, scripts.GetScriptFlags()[1]);
}

TEST_F(Scripts, MergingAStoredScriptWithTheHistory)
{
    std::vector<TezString> stored{
        S("import tez\n"), S("\n"), S("tez.start()\n"), S("tez.new()\n"), S("# tez.save_as(r'old.mvne')\n"),
        S("tez.stop()\n")};
    EXPECT_TRUE(scripts.MergeDocScript({S("one line\n")}).empty()); // no document yet: nothing live

    app.NewDocument();
    auto manager = app.active->GetCommandManager();
    manager->Push(TezCmdDocumentNew::Create());
    manager->Push(TezCmdDocumentSaveAs::Create(S("b.mvne")));

    auto merged = scripts.MergeDocScript(stored);
    std::vector<TezString> expected{S("import tez\n"),
                                    S("\n"),
                                    S("tez.start()\n"),
                                    S("tez.new()\n"),
                                    S("# tez.save_as(r'old.mvne')\n"),
                                    S("tez.save_as(r'b.mvne')\n"),
                                    S("tez.stop()\n")};
    EXPECT_EQ(expected, merged);
    EXPECT_EQ(4, scripts.m_liveStart);
    EXPECT_EQ(5, scripts.m_mergedStart);

    scripts.SetDocScript(stored);
    scripts.RefreshScript(true);
    auto const& view = scripts.GetScript();
    ASSERT_EQ(7u, view.size());
    EXPECT_STREQ("tez.save_as(r'old.mvne')\n", view[4]); // a stored comment comes back flagged
    EXPECT_EQ(2, scripts.GetScriptFlags()[4]);

    scripts.RefreshScript(false);
    EXPECT_EQ(6u, scripts.GetScript().size()); // the live view: the history alone

    // Executing mode freezes the history and ignores new stored scripts.
    scripts.SetExecutingMode(true);
    manager->Push(TezCmdDocumentSave::Create());
    scripts.SetDocScript({});
    EXPECT_EQ(6u, scripts.MergeDocScript({}).size());
    scripts.SetExecutingMode(false);
    EXPECT_EQ(7u, scripts.MergeDocScript({}).size());
}

TEST_F(Scripts, AnEditedLineSurvivesARefresh)
{
    app.NewDocument();
    auto manager = app.active->GetCommandManager();
    manager->Push(TezCmdDocumentNew::Create());
    manager->Push(TezCmdDocumentOpen::Create(S("a.mvne")));
    scripts.RefreshScript(false);
    ASSERT_EQ(6u, scripts.GetScript().size());
    scripts.SetActiveScriptLine(4);
    scripts.SetNewParamValue(Index("open"), 0, S("r'edited.mvne'"));
    manager->Push(TezCmdDocumentSave::Create());
    scripts.RefreshScript(false);
    auto const& view = scripts.GetScript();
    ASSERT_EQ(7u, view.size());
    EXPECT_STREQ("tez.open(r'edited.mvne')\n", view[4]);
    EXPECT_STREQ("tez.save()\n", view[5]);
}
