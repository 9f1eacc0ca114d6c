#include "tez/Cli.h"
#include "tests/apps/CommandRun.h"
#include "tez/OutputFile.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

// "tez t [--size N] [--flag]" with a sub-command "sub FILE".
struct Parsed
{
    explicit Parsed(TezArgs const& args)
    {
        CLI::App app("A command for the tests.", "tez t");
        app.add_option("--size", size)->check(CLI::Range(1, 5));
        CLI::App* sub = app.add_subcommand("sub", "a nested command");
        sub->add_option("file", file)->required();
        sub->add_flag("--flag", flag);
        FILE* out = std::tmpfile();
        FILE* err = std::tmpfile();
        code = TezCliParse(app, args, out, err);
        outText = FileText(out);
        errText = FileText(err);
        std::fclose(out);
        std::fclose(err);
    }
    int size = 0;
    std::string file;
    bool flag = false;
    int code = 0;
    std::string outText, errText;
};

std::string Slurp(std::string const& path)
{
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

TEST(TezCli, BothOptionFormsParseAndTheCommandRunsOn)
{
    EXPECT_EQ(3, Parsed({"--size=3"}).size);
    Parsed spaced({"--size", "4", "sub", "a.stl", "--flag"});
    EXPECT_EQ(-1, spaced.code);
    EXPECT_EQ(4, spaced.size);
    EXPECT_EQ("a.stl", spaced.file);
    EXPECT_TRUE(spaced.flag);
    EXPECT_EQ("", spaced.outText + spaced.errText);
}

TEST(TezCli, HelpGoesToOutForTheCommandNamedBeforeIt)
{
    Parsed top({"--size", "--help"}); // help, even where it would be a value
    EXPECT_EQ(0, top.code);
    EXPECT_NE(std::string::npos, top.outText.find("Usage: tez t [OPTIONS] [SUBCOMMAND]")) << top.outText;
    Parsed nested({"sub", "x", "-h"});
    EXPECT_EQ(0, nested.code);
    EXPECT_NE(std::string::npos, nested.outText.find("a nested command\nUsage: tez t sub [OPTIONS] file"))
        << nested.outText;
    EXPECT_EQ("", top.errText + nested.errText);
}

TEST(TezCli, UsageErrorsNameTheCommandAndAnswer2)
{
    Parsed range({"--size", "9"});
    EXPECT_EQ(2, range.code);
    EXPECT_EQ("tez t: --size: Value 9 not in range 1 to 5\nRun 'tez t --help' for its options.\n", range.errText);
    Parsed missing({"sub"});
    EXPECT_EQ(2, missing.code);
    EXPECT_EQ("tez t sub: file is required\nRun 'tez t sub --help' for its options.\n", missing.errText);
    Parsed unknown({"nope"});
    EXPECT_EQ(2, unknown.code);
    EXPECT_EQ("tez t: unknown command 'nope' (known: sub)\nRun 'tez t --help' for its options.\n", unknown.errText);
    EXPECT_EQ("", range.outText + missing.outText + unknown.outText);
}

TEST(TezCli, ValueChecksNameWhatTheyAccept)
{
    std::string value = "640x480";
    EXPECT_EQ("", TezCliPictureSize(16, 8192)(value));
    value = "8x8";
    EXPECT_EQ("'8x8' is no WxH size with sides from 16 to 8192 pixels", TezCliPictureSize(16, 8192)(value));
    value = "0.5,1,0";
    EXPECT_EQ("", TezCliNumbers(3, 4, 0.0, 1.0)(value));
    for (std::string bad : {"2,0,0", "1,1", "1,1,1,1,1", "a,b,c", "1,,1"})
        EXPECT_NE("", TezCliNumbers(3, 4, 0.0, 1.0)(bad)) << bad;
    value = "out.EXR";
    EXPECT_EQ("", TezCliImageName()(value));
    EXPECT_NE("", TezCliImageName(false)(value));
    value = "mesh.obj";
    EXPECT_EQ("", TezCliMeshName()(value));
    value = "mesh.png";
    EXPECT_EQ("'mesh.png' must end in .stl, .obj or .ply", TezCliMeshName()(value));
}

TEST(TezOutputFile, AResultReplacesTheOldFileOnlyWhenCommitted)
{
    std::filesystem::path const folder =
        std::filesystem::temp_directory_path() / ("tez-output-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    std::string const path = (folder / "result.png").string();
    std::ofstream(path) << "old";
    {
        TezOutputFile abandoned(path);
        EXPECT_EQ(".png", std::filesystem::path(abandoned.GetTemporaryPath()).extension());
        EXPECT_EQ(folder, std::filesystem::path(abandoned.GetTemporaryPath()).parent_path());
        std::ofstream(abandoned.GetTemporaryPath()) << "half";
    }
    EXPECT_EQ("old", Slurp(path));
    {
        TezOutputFile done(path);
        std::ofstream(done.GetTemporaryPath()) << "new";
        EXPECT_TRUE(done.Commit());
    }
    EXPECT_EQ("new", Slurp(path));
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()));
    TezOutputFile nowhere((folder / "missing" / "x.stl").string());
    EXPECT_FALSE(nowhere.Commit());
    std::filesystem::remove_all(folder);
}
