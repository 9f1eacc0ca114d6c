#include "tez/CommandLine.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

// Runs one command line with both streams captured.
struct CliRun
{
    explicit CliRun(TezArgs args)
    {
        FILE* out = std::tmpfile();
        FILE* err = std::tmpfile();
        code = TezRunCommandLine(args, out, err);
        stdoutText = Read(out);
        stderrText = Read(err);
    }
    static std::string Read(FILE* file)
    {
        std::rewind(file);
        std::string text;
        char chunk[4096];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0)
            text.append(chunk, n);
        std::fclose(file);
        return text;
    }
    int code = -1;
    std::string stdoutText, stderrText;
};

} // namespace

TEST(TezCommandLine, HelpAndVersionGoToStdoutAndSucceed)
{
    CliRun help({"--help"});
    EXPECT_EQ(0, help.code);
    EXPECT_NE(std::string::npos, help.stdoutText.find("usage: tez"));
    EXPECT_NE(std::string::npos, help.stdoutText.find("info"));
    EXPECT_TRUE(help.stderrText.empty());

    CliRun version({"--version"});
    EXPECT_EQ(0, version.code);
    EXPECT_EQ(0u, version.stdoutText.find("tez (Tezcore) "));
}

TEST(TezCommandLine, BadUsageGoesToStderrWithExitCodeTwo)
{
    CliRun unknown({"frobnicate"});
    EXPECT_EQ(2, unknown.code);
    EXPECT_TRUE(unknown.stdoutText.empty());
    EXPECT_NE(std::string::npos, unknown.stderrText.find("unknown command 'frobnicate'"));
    EXPECT_NE(std::string::npos, unknown.stderrText.find("usage: tez"));

    CliRun nothing({});
    EXPECT_EQ(2, nothing.code);
    EXPECT_NE(std::string::npos, nothing.stderrText.find("usage: tez"));

    CliRun extra({"info", "surplus"});
    EXPECT_EQ(2, extra.code);
}

TEST(TezCommandLine, InfoStartsAndStopsTheKernel)
{
    CliRun info({"info"});
    ASSERT_EQ(0, info.code) << info.stderrText;
    std::string const& text = info.stdoutText;
    for (char const* expected :
         {"Tezcore ", "registered types: ", "  Request Redraw Event\n", "  Selection Changed Event\n",
          "log folder: ", "temp folder: ", "user folder: ", "  event manager: present\n", "  UI manager: present\n",
          "  resource manager: present\n", "3D graphics: no\n", "script module: tez\n"})
        EXPECT_NE(std::string::npos, text.find(expected)) << expected;

    // The application is gone afterwards, so a second run works too.
    EXPECT_EQ(0, CliRun({"info"}).code);
}

TEST(TezCommandLine, ScriptRunChecksItsArguments)
{
    for (TezArgs const& args : std::vector<TezArgs>{{"script"},
                                                    {"script", "play", "a.py"},
                                                    {"script", "run"},
                                                    {"script", "run", "a.py", "--history"},
                                                    {"script", "run", "--fast", "a.py"}}) {
        CliRun run(args);
        EXPECT_EQ(2, run.code) << args.size();
        EXPECT_NE(std::string::npos, run.stderrText.find("Run 'tez script")) << run.stderrText;
    }

    CliRun missing({"script", "run", "no-such-script.py"});
    EXPECT_EQ(1, missing.code);
    EXPECT_EQ("tez: cannot read script no-such-script.py: No such file or directory\n", missing.stderrText);
}
