#include "tez/ScriptBridge.h"
#include "document/CommandManager.h"
#include "document/Document.h"
#include "tez/HostApplication.h"
#include "tez/ScriptCalls.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

struct ProbeCall
{
    std::string text;
    float number;
    int integer;
};
std::vector<ProbeCall> g_calls;

double RunProbe(void*, void** args, int n)
{
    EXPECT_EQ(3, n);
    g_calls.push_back(
        {*static_cast<char const* const*>(args[0]), *static_cast<float*>(args[1]), *static_cast<int*>(args[2])});
    return g_calls.back().integer + 1;
}

// A script function with all three argument types that answers an int.
void* PyProbe(void* args, void* kwargs)
{
    TezScriptParseMethod parse = TezCommand::GetParseMethod();
    return parse ? parse(&RunProbe, "sfi", "i", args, kwargs, nullptr) : nullptr;
}

char const* const kProbeHelp = "A probe.\nParameters:\n    text - a text\n    number - a number\n    count - a count\n";

class ScriptBridge : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TezCommand::GetCommandList().push_back({&PyProbe, nullptr, nullptr, "probe", kProbeHelp});
        app = std::make_unique<TezHostApplication>();
        bridge = std::make_unique<TezScriptBridge>();
        g_calls.clear();
    }
    void TearDown() override
    {
        bridge.reset();
        app.reset();
        auto& list = TezCommand::GetCommandList();
        for (auto it = list.begin(); it != list.end(); ++it)
            if (std::strcmp(it->name, "probe") == 0) {
                list.erase(it);
                break;
            }
    }
    // Runs text as a script named "check.py"; answers the exit status.
    int Run(std::string const& text) { return bridge->RunText(text, "check.py"); }

    std::unique_ptr<TezHostApplication> app;
    std::unique_ptr<TezScriptBridge> bridge;
};

std::vector<std::string> History(TezHostApplication& app)
{
    std::vector<std::string> lines;
    for (TezString const& line : app.GetActiveDocument()->GetCommandManager()->BuildPython())
        lines.emplace_back(line.c_str());
    return lines;
}

} // namespace

TEST_F(ScriptBridge, ConvertsArgumentsByTheFormat)
{
    ASSERT_EQ(0, Run("import tez, pathlib\n"
                     "assert tez.probe('a b', 2.5, 7) == 8\n"
                     "tez.probe(pathlib.PurePosixPath('/x/y'), 3, -2147483648)\n"))
        << bridge->GetError();
    ASSERT_EQ(2u, g_calls.size());
    EXPECT_EQ("a b", g_calls[0].text);
    EXPECT_FLOAT_EQ(2.5f, g_calls[0].number);
    EXPECT_EQ(7, g_calls[0].integer);
    EXPECT_EQ("/x/y", g_calls[1].text);
    EXPECT_FLOAT_EQ(3.0f, g_calls[1].number);
    EXPECT_EQ(-2147483648, g_calls[1].integer);
}

TEST_F(ScriptBridge, BadArgumentsFailWithTheScriptLineAndDoNotRun)
{
    struct Case
    {
        char const* call;
        char const* message;
    } const cases[] = {
        {"tez.probe('a', 1.0)", "TypeError: probe() takes 3 arguments (2 given)"},
        {"tez.probe(1, 1.0, 2)", "TypeError: probe() argument 1 must be str, not int"},
        {"tez.probe('a', 'b', 2)", "TypeError: probe() argument 2 must be float, not str"},
        {"tez.probe('a', 1.0, 2.0)", "TypeError: probe() argument 3 must be int, not float"},
        {"tez.probe('a', 1.0, True)", "TypeError: probe() argument 3 must be int, not bool"},
        {"tez.probe('a', 1.0, 2**40)", "OverflowError: probe() argument 3 does not fit in a 32-bit int"},
        {"tez.probe('a', 1.0, 2, extra=1)", "TypeError: probe() takes no keyword arguments"},
        {"tez.save_as()", "TypeError: save_as() takes 1 argument (0 given)"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.call);
        EXPECT_EQ(1, Run(std::string("import tez\n\n") + c.call + "\n"));
        EXPECT_EQ(std::string("check.py:3: ") + c.message, bridge->GetError());
    }
    EXPECT_TRUE(g_calls.empty());
}

TEST_F(ScriptBridge, KernelFailuresAreModuleErrorsWithTheKernelsMessage)
{
    EXPECT_EQ(0, Run("import tez\n"
                     "try:\n"
                     "    tez.save()\n"
                     "except tez.Error as e:\n"
                     "    assert isinstance(e, RuntimeError)\n"
                     "    assert str(e) == 'No active document to save.', str(e)\n"
                     "else:\n"
                     "    raise AssertionError('no error')\n"))
        << bridge->GetError();

    // Uncaught: the line is the script's own innermost one.
    EXPECT_EQ(1, Run("import tez\n"
                     "def make():\n"
                     "    tez.new()\n"
                     "    tez.save()\n"
                     "make()\n"));
    EXPECT_EQ("check.py:4: The active document has never been saved. Try save_as.", bridge->GetError());

    EXPECT_EQ(1, Run("import tez\nx = (\n"));
    EXPECT_EQ("check.py:2: SyntaxError: '(' was never closed", bridge->GetError());
}

TEST_F(ScriptBridge, SystemExitGivesTheExitStatus)
{
    EXPECT_EQ(4, Run("import sys\nsys.exit(4)\n"));
    EXPECT_EQ(0, Run("import sys\nsys.exit()\n"));
    EXPECT_EQ(1, Run("import sys\nsys.exit('bye')\n"));
    EXPECT_EQ("bye", bridge->GetError());
}

TEST_F(ScriptBridge, SavesAreRecordedSoThatTheHistoryReplaysTheScript)
{
    std::string path = ::testing::TempDir() + "tez-bridge-history.mvne";
    ASSERT_EQ(0, Run("import tez\ntez.start()\ntez.new()\ntez.save_as('" + path + "')\ntez.save()\ntez.stop()\n"))
        << bridge->GetError();
    std::vector<std::string> expected = {
        "import tez\n", "\n",          "tez.start()\n", "tez.new()\n", "tez.save_as(r'" + path + "')\n",
        "tez.save()\n", "tez.stop()\n"};
    EXPECT_EQ(expected, History(*app));

    // A failed save records nothing.
    EXPECT_EQ(1, Run("import tez\ntez.save_as('/no/such/folder/x.mvne')\n"));
    EXPECT_EQ(expected, History(*app));
    std::remove(path.c_str());
}

TEST_F(ScriptBridge, TheScriptManagerDescribesTheFunctionsAndScriptsStillRun)
{
    std::vector<TezString>& names = app->GetScriptManager().GetCommandListNames();
    ASSERT_GE(names.size(), 5u);
    EXPECT_STREQ("new", names[0].c_str());
    EXPECT_STREQ("save_as", names[3].c_str());
    auto const& saveAs = app->GetScriptManager().GetCommandList()[3];
    EXPECT_STREQ("s", saveAs.format.c_str());
    ASSERT_EQ(1u, saveAs.params.size());
    EXPECT_STREQ("filename", saveAs.params[0].name.c_str());
    EXPECT_EQ(&TezScriptCalls::ParseMethod, TezCommand::GetParseMethod());
    EXPECT_EQ(0, Run("import tez\nassert 'Save the current' in tez.save_as.__doc__\ntez.probe('', 0, 0)\n"))
        << bridge->GetError();
}

namespace {

class RenamedApplication : public TezHostApplication
{
public:
    TezString const& GetScriptModuleName() override { return m_name; }

private:
    TezString m_name{"morvane"};
};

} // namespace

TEST(ScriptBridgeModule, TakesTheApplicationsModuleName)
{
    RenamedApplication app;
    {
        TezScriptBridge bridge;
        ASSERT_EQ(0, bridge.RunText("import morvane\nmorvane.start()\nmorvane.new()\nmorvane.stop()\n", "m.py"))
            << bridge.GetError();
        EXPECT_EQ(1, bridge.RunText("import tez\n", "m.py"));
        EXPECT_EQ("m.py:1: ModuleNotFoundError: No module named 'tez'", bridge.GetError());
    }
    std::vector<TezString> script = app.GetActiveDocument()->GetCommandManager()->BuildPython();
    ASSERT_EQ(5u, script.size());
    EXPECT_STREQ("import morvane\n", script[0].c_str());
    EXPECT_STREQ("morvane.new()\n", script[3].c_str());
}
