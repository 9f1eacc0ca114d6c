#include "tez/CommandLine.h"
#include "volume/Image.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace
{
std::string DataPath(char const* name) { return std::string(std::getenv("TEZ_TEST_DATA")) + "/data/" + name; }

std::vector<uint8_t> Pixels(std::string const& path, int& width, int& height)
{
    TezImage image;
    EXPECT_TRUE(image.Load(path.c_str())) << path;
    width = image.GetWidth();
    height = image.GetHeight();
    std::vector<uint8_t> pixels(size_t(width) * size_t(height) * 3);
    EXPECT_TRUE(image.ReadPixels(pixels.data(), 3, size_t(width) * 3, true));
    return pixels;
}

// Pictures match when under 1% of the pixels differ by more than 24 levels
// in a channel: float rounding moves single surface voxels, not the picture.
void ExpectSamePicture(std::string const& made, std::string const& golden)
{
    int w = 0, h = 0, gw = 0, gh = 0;
    std::vector<uint8_t> const a = Pixels(made, w, h), b = Pixels(golden, gw, gh);
    ASSERT_EQ(w, gw);
    ASSERT_EQ(h, gh);
    size_t differing = 0;
    for (size_t i = 0; i < a.size(); i += 3)
        for (size_t c = 0; c < 3; ++c)
            if (std::abs(int(a[i + c]) - int(b[i + c])) > 24) {
                ++differing;
                break;
            }
    EXPECT_LT(double(differing), 0.01 * w * h) << made << " differs from " << golden;
}

struct Captured
{
    int code;
    std::string out, err;
};

Captured RunTez(TezArgs const& args)
{
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    Captured c{TezRunCommandLine(args, out, err), "", ""};
    for (auto [file, text] : {std::pair{out, &c.out}, std::pair{err, &c.err}}) {
        std::rewind(file);
        for (int ch; (ch = std::fgetc(file)) != EOF;)
            text->push_back(char(ch));
        std::fclose(file);
    }
    return c;
}
} // namespace

TEST(TezRenderCommand, SamplePicturesMatchTheGoldenImages)
{
    std::string const dir = ::testing::TempDir() + "tez-render-test";
    std::filesystem::create_directories(dir);
    Captured solid = RunTez({"render", "--size", "160x120", "-o", dir + "/solid.png"});
    ASSERT_EQ(solid.code, 0) << solid.err;
    ExpectSamePicture(dir + "/solid.png", DataPath("render-sample.png"));
    Captured layered =
        RunTez({"render", "--size", "160x120", "--transparent", "--cut", "y", "-o", dir + "/transparent.png"});
    ASSERT_EQ(layered.code, 0) << layered.err;
    ExpectSamePicture(dir + "/transparent.png", DataPath("render-sample-transparent.png"));
}

TEST(TezRenderCommand, NoArgumentsWritesTheSampleHere)
{
    std::string const dir = ::testing::TempDir() + "tez-render-default";
    std::filesystem::create_directories(dir);
    std::string const before = std::filesystem::current_path().string();
    std::filesystem::current_path(dir);
    Captured c = RunTez({"render"});
    std::filesystem::current_path(before);
    ASSERT_EQ(c.code, 0) << c.err;
    EXPECT_EQ(c.out, "tez-render.png\n");
    int w = 0, h = 0;
    Pixels(dir + "/tez-render.png", w, h);
    EXPECT_EQ(w, 1024);
    EXPECT_EQ(h, 768);
}

TEST(TezRenderCommand, BadArgumentsAreRefused)
{
    EXPECT_EQ(RunTez({"render", "--view", "sideways"}).code, 2);
    EXPECT_EQ(RunTez({"render", "--size", "0x10"}).code, 2);
    EXPECT_EQ(RunTez({"render", "--tf", "0:0,0.5:1"}).code, 2);
    EXPECT_EQ(RunTez({"render", "a%d.png", "1"}).code, 2);
    Captured missing = RunTez({"render", "--octree", "/nonexistent/tree.tez"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("cannot open"), std::string::npos);
}
