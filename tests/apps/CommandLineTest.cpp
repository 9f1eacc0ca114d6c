#include "tez/CommandLine.h"
#include "tests/apps/CommandRun.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

TEST(TezCommandLine, HelpAndVersionGoToStdoutAndSucceed)
{
    Captured const help = RunCommandLine({"--help"});
    EXPECT_EQ(0, help.code);
    EXPECT_NE(std::string::npos, help.out.find("usage: tez"));
    EXPECT_NE(std::string::npos, help.out.find("info"));
    EXPECT_TRUE(help.err.empty());

    Captured const version = RunCommandLine({"--version"});
    EXPECT_EQ(0, version.code);
    EXPECT_EQ(0u, version.out.find("tez (Tezcore) "));
}

TEST(TezCommandLine, BadUsageGoesToStderrWithExitCodeTwo)
{
    Captured const unknown = RunCommandLine({"frobnicate"});
    EXPECT_EQ(2, unknown.code);
    EXPECT_TRUE(unknown.out.empty());
    EXPECT_NE(std::string::npos, unknown.err.find("unknown command 'frobnicate'"));
    EXPECT_NE(std::string::npos, unknown.err.find("usage: tez"));

    Captured const nothing = RunCommandLine({});
    EXPECT_EQ(2, nothing.code);
    EXPECT_NE(std::string::npos, nothing.err.find("usage: tez"));

    Captured const extra = RunCommandLine({"info", "surplus"});
    EXPECT_EQ(2, extra.code);
}

TEST(TezCommandLine, InfoStartsAndStopsTheKernel)
{
    Captured const info = RunCommandLine({"info"});
    ASSERT_EQ(0, info.code) << info.err;
    std::string const& text = info.out;
    for (char const* expected :
         {"Tezcore ", "registered types: ", "  Request Redraw Event\n", "  Selection Changed Event\n",
          "log folder: ", "temp folder: ", "user folder: ", "  event manager: present\n", "  UI manager: present\n",
          "  resource manager: present\n", "3D graphics: no\n", "script module: tez\n"})
        EXPECT_NE(std::string::npos, text.find(expected)) << expected;

    // The application is gone afterwards, so a second run works too.
    EXPECT_EQ(0, RunCommandLine({"info"}).code);
}

TEST(TezCommandLine, ScriptRunChecksItsArguments)
{
    for (TezArgs const& args : std::vector<TezArgs>{{"script"},
                                                    {"script", "play", "a.py"},
                                                    {"script", "run"},
                                                    {"script", "run", "a.py", "--history"},
                                                    {"script", "run", "--fast", "a.py"}}) {
        Captured const run = RunCommandLine(args);
        EXPECT_EQ(2, run.code) << args.size();
        EXPECT_NE(std::string::npos, run.err.find("Run 'tez script")) << run.err;
    }

    Captured const missing = RunCommandLine({"script", "run", "no-such-script.py"});
    EXPECT_EQ(1, missing.code);
    EXPECT_EQ("tez: cannot read script no-such-script.py: No such file or directory\n", missing.err);
}
