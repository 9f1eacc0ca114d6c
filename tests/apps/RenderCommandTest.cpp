#include "math/Matrix.h"
#include "mesh/IndexedMesh.h"
#include "tests/apps/CommandRun.h"
#include "tests/apps/PictureFiles.h"
#include "tez/CommandLine.h"
#include "volume/Image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <unistd.h>

namespace {
std::string DataPath(char const* name) { return std::string(std::getenv("TEZ_TEST_DATA")) + "/data/" + name; }

// A numbered stack of binary PGM slices (8 or 16 bits) in a fresh folder;
// value(x, y, z) gives the voxels. Returns the pattern.
std::string WriteStack(std::string const& name, int w, int h, int d, int bits,
                       std::function<unsigned(int, int, int)> const& value)
{
    std::string const dir = ::testing::TempDir() + name;
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    for (int z = 0; z < d; ++z) {
        std::string const path = dir + "/s" + std::to_string(1000 + z) + ".pgm";
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fprintf(f, "P5 %d %d %d\n", w, h, bits == 16 ? 65535 : 255);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                unsigned const v = value(x, y, z);
                if (bits == 16)
                    std::fputc(int(v >> 8), f);
                std::fputc(int(v & 255), f);
            }
        std::fclose(f);
    }
    return dir + "/s%d.pgm";
}

struct Lit
{
    size_t count = 0;
    int left = 1 << 30, right = -1, top = 1 << 30, bottom = -1;
    double meanDifference = 0.0; // from the background, per channel
    std::set<int> shades;
};

// What of a picture is not the background (28, 30, 36).
Lit LitPixels(std::string const& path)
{
    int w = 0, h = 0;
    std::vector<uint8_t> const p = Pixels(path, w, h);
    Lit lit;
    int const background[3] = {28, 30, 36};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t const* px = &p[(size_t(y) * w + x) * 3];
            int difference = 0;
            for (int c = 0; c < 3; ++c)
                difference += std::abs(px[c] - background[c]);
            lit.meanDifference += difference / 3.0 / (double(w) * h);
            if (difference == 0)
                continue;
            ++lit.count;
            lit.shades.insert(px[0]);
            lit.left = std::min(lit.left, x), lit.right = std::max(lit.right, x);
            lit.top = std::min(lit.top, y), lit.bottom = std::max(lit.bottom, y);
        }
    return lit;
}
} // namespace

TEST(TezRenderCommand, TallThinStackIsFramedWholeAtEveryVoxelSize)
{
    // 16 x 16 pixels, 600 slices, a bright rod along it: a tree of 1024 whose
    // rays once stood still, at voxel size 1 and up, or missed the rod.
    std::string const pattern = WriteStack("tez-render-tall", 16, 16, 600, 8, [](int x, int y, int) {
        return (x - 8) * (x - 8) + (y - 8) * (y - 8) < 30 ? 220u : 10u;
    });
    std::string const out = ::testing::TempDir() + "tez-render-tall.png";
    std::vector<size_t> counts;
    for (char const* size : {"0.001", "1", "13", "1000"}) {
        Captured c =
            RunCommandLine({"render", pattern, "1000", "1599", "--voxel-size", size, "--size", "60x80", "-o", out});
        ASSERT_EQ(c.code, 0) << size << ": " << c.err;
        EXPECT_EQ(c.err.find("warning"), std::string::npos) << c.err;
        Lit const lit = LitPixels(out);
        EXPECT_GT(lit.top, 0) << size;
        EXPECT_LT(lit.bottom, 79) << size;
        EXPECT_GT(lit.bottom - lit.top, 60) << size;
        counts.push_back(lit.count);
    }
    for (size_t count : counts)
        EXPECT_NEAR(double(count), double(counts[1]), 0.05 * double(counts[1]));
}

TEST(TezRenderCommand, SixteenBitDataKeepsItsUnits)
{
    // A 12-bit sphere in 16-bit files: drawn by default, and by a transfer
    // function given in the data's own values.
    std::string const pattern = WriteStack("tez-render-16", 24, 24, 24, 16, [](int x, int y, int z) {
        return (x - 12) * (x - 12) + (y - 12) * (y - 12) + (z - 12) * (z - 12) < 64 ? 3000u : 100u;
    });
    std::string const out = ::testing::TempDir() + "tez-render-16.png";
    Captured c = RunCommandLine({"render", pattern, "1000", "1023", "--size", "40x30", "-o", out});
    ASSERT_EQ(c.code, 0) << c.err;
    EXPECT_GT(LitPixels(out).count, 50u) << c.err;
    c = RunCommandLine({"render", pattern, "1000", "1023", "--size", "40x30", "--tf", "0:0,1500:0,1600:1", "-o", out});
    EXPECT_GT(LitPixels(out).count, 50u) << c.err;
    c = RunCommandLine({"render", pattern, "1000", "1023", "--size", "40x30", "--tf", "0:0,3500:0,3600:1", "-o", out});
    EXPECT_EQ(c.code, 0);
    EXPECT_NE(c.err.find("the picture shows nothing"), std::string::npos) << c.err;
    EXPECT_NE(c.err.find("from 0 to 3071"), std::string::npos) << c.err;
}

TEST(TezRenderCommand, ConstantVolumeShowsShadedFacesFramedWhole)
{
    std::string const pattern = WriteStack("tez-render-const", 32, 32, 32, 8, [](int, int, int) { return 200u; });
    std::string const out = ::testing::TempDir() + "tez-render-const.png";
    Captured c =
        RunCommandLine({"render", pattern, "1000", "1031", "--view", "isometric", "--size", "80x60", "-o", out});
    ASSERT_EQ(c.code, 0) << c.err;
    Lit const lit = LitPixels(out);
    EXPECT_GT(lit.left, 0);
    EXPECT_LT(lit.right, 79);
    EXPECT_GT(lit.top, 0);
    EXPECT_LT(lit.bottom, 59);
    EXPECT_GE(lit.shades.size(), 3u); // three faces, three shades
}

TEST(TezRenderCommand, TransparentOpacityBlendsByItsValue)
{
    // The plateau's opacity rises: the picture moves from the background
    // towards the surfaces, step by step.
    std::string const out = ::testing::TempDir() + "tez-render-opacity.png";
    double last = -1.0;
    for (char const* opacity : {"0.1", "0.3", "0.6", "1"}) {
        std::string const tf = std::string("0:0,76:0,80:") + opacity + ",255:" + opacity;
        Captured c =
            RunCommandLine({"render", "--size", "64x48", "--transparent", "--layers", "4", "--tf", tf, "-o", out});
        ASSERT_EQ(c.code, 0) << c.err;
        double const now = LitPixels(out).meanDifference;
        EXPECT_GT(now, last + 1.0) << opacity;
        last = now;
    }
}

TEST(TezRenderCommand, SamplePicturesMatchTheGoldenImages)
{
    std::string const dir = ::testing::TempDir() + "tez-render-test";
    std::filesystem::create_directories(dir);
    Captured solid = RunCommandLine({"render", "--size", "160x120", "-o", dir + "/solid.png"});
    ASSERT_EQ(solid.code, 0) << solid.err;
    ExpectAlikePictures(dir + "/solid.png", DataPath("render-sample.png"), 0.01);
    Captured layered =
        RunCommandLine({"render", "--size", "160x120", "--transparent", "--cut", "y", "-o", dir + "/transparent.png"});
    ASSERT_EQ(layered.code, 0) << layered.err;
    ExpectAlikePictures(dir + "/transparent.png", DataPath("render-sample-transparent.png"), 0.01);
}

TEST(TezRenderCommand, NoArgumentsWritesTheSampleHere)
{
    std::string const dir = ::testing::TempDir() + "tez-render-default";
    std::filesystem::create_directories(dir);
    std::string const before = std::filesystem::current_path().string();
    std::filesystem::current_path(dir);
    Captured c = RunCommandLine({"render"});
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
    EXPECT_EQ(RunCommandLine({"render", "--view", "sideways"}).code, 2);
    EXPECT_EQ(RunCommandLine({"render", "--size", "0x10"}).code, 2);
    EXPECT_EQ(RunCommandLine({"render", "--tf", "0:0"}).code, 2);
    EXPECT_EQ(RunCommandLine({"render", "--tf", "50:0,20:1"}).code, 2);
    EXPECT_EQ(RunCommandLine({"render", "a%d.png", "1"}).code, 2);
    Captured missing = RunCommandLine({"render", "--octree", "/nonexistent/tree.tez"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("cannot open"), std::string::npos);
}

// A mesh sphere half inside an opaque cube volume, seen from the front
// (+z) without perspective: the cap in front of the face hides the volume,
// and the volume hides the rest of the sphere. The cube fills [0, 1]^3
// (32 voxels of 1/32); the sphere of radius 0.25 is centred at z 0.9, so it
// leaves the face z = 1 on a circle of radius 0.229 and its outline, 0.25,
// lies behind the face. Solid and layered volumes alike.
TEST(TezRenderCommand, MeshBesideTheVolumeHidesAndIsHiddenByDepth)
{
    std::string const dir = ::testing::TempDir() + "tez-render-mesh";
    std::string const pattern = WriteStack("tez-render-mesh-stack", 32, 32, 32, 8, [](int, int, int) { return 200u; });
    std::filesystem::create_directories(dir);
    TezRef<TezIndexedMesh> sphere = TezIndexedMesh::CreateSphere(48, 96);
    sphere->TransformGeometry(TezTranslationTransform<float>({0.5f, 0.5f, 0.9f}) * TezScaleTransform<float>(0.25f));
    std::string const stl = dir + "/sphere.stl";
    ASSERT_TRUE(TezIndexedMesh::WriteToStlFile(sphere, TezString(stl.c_str()), true));

    for (bool layered : {false, true}) {
        std::string const out = dir + (layered ? "/layered.png" : "/solid.png");
        TezArgs args = {"render", pattern,   "1000",   "1031", "--voxel-size", "0.03125", "--view", "front", "--ortho",
                        "--size", "200x200", "--mesh", stl,    "-o",           out};
        if (layered)
            args.push_back("--transparent");
        Captured c = RunCommandLine(args);
        if (c.code != 0 && c.err.find("need GL") != std::string::npos)
            GTEST_SKIP() << c.err;
        ASSERT_EQ(c.code, 0) << c.err;
        int w = 0, h = 0;
        std::vector<uint8_t> const p = Pixels(out, w, h);
        // The face's extent on the middle row gives the scale of the picture.
        int const row = h / 2;
        int left = -1, right = -1;
        for (int x = 0; x < w; ++x) {
            uint8_t const* px = &p[(size_t(row) * w + x) * 3];
            if (px[0] != 28 || px[1] != 30 || px[2] != 36) {
                if (left < 0)
                    left = x;
                right = x;
            }
        }
        ASSERT_GT(right - left, 50) << "the volume fills the middle of the picture";
        double const unit = double(right - left + 1), middle = 0.5 * (left + right + 1);
        auto at = [&](double radius) {
            int const x = int(middle + radius * unit);
            return std::vector<uint8_t>(&p[(size_t(row) * w + x) * 3], &p[(size_t(row) * w + x) * 3 + 3]);
        };
        auto isMesh = [](std::vector<uint8_t> const& c) { return c[2] > c[0] + 30; };   // blue
        auto isVolume = [](std::vector<uint8_t> const& c) { return c[0] > c[2] + 10; }; // warm grey
        char const* kind = layered ? "layered" : "solid";
        EXPECT_TRUE(isMesh(at(0.0))) << kind << ": the cap in front of the face";
        EXPECT_TRUE(isMesh(at(0.2))) << kind << ": still in front, inside the circle";
        EXPECT_TRUE(isVolume(at(0.241))) << kind << ": the sphere behind the face is hidden";
        EXPECT_TRUE(isVolume(at(-0.241))) << kind << ": on both sides";
        EXPECT_TRUE(isVolume(at(0.4))) << kind << ": the face beyond the sphere";
    }
}

// A picture's document, saved and drawn again: the same picture.
TEST(TezRenderCommand, SavedDocumentRendersTheSamePicture)
{
    std::string const dir = ::testing::TempDir() + "tez-render-document";
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    std::string const doc = dir + "/sample.mvne";
    Captured first = RunCommandLine(
        {"render", "--size", "160x120", "--color", "0.4,0.8,0.5", "--save", doc, "-o", dir + "/first.png"});
    if (first.code != 0 && first.err.find("need GL") != std::string::npos)
        GTEST_SKIP() << first.err;
    ASSERT_EQ(first.code, 0) << first.err;
    Captured again = RunCommandLine({"render", doc, "--size", "160x120", "-o", dir + "/again.png"});
    ASSERT_EQ(again.code, 0) << again.err;
    ExpectAlikePictures(dir + "/again.png", dir + "/first.png", 0.01);
    EXPECT_EQ(RunCommandLine({"render", dir + "/missing.mvne"}).code, 1);
}

// The same stack as a cube volume of GL textured slices covers about the
// same part of the picture as the cast octree.
TEST(TezRenderCommand, SlicesCoverWhatTheCastCovers)
{
    std::string const dir = ::testing::TempDir() + "tez-render-slices";
    std::filesystem::create_directories(dir);
    Captured slices = RunCommandLine({"render", "--slices", "--size", "160x120", "-o", dir + "/slices.png"});
    if (slices.code != 0 && slices.err.find("need GL") != std::string::npos)
        GTEST_SKIP() << slices.err;
    ASSERT_EQ(slices.code, 0) << slices.err;
    ASSERT_EQ(RunCommandLine({"render", "--size", "160x120", "-o", dir + "/cast.png"}).code, 0);
    Lit const a = LitPixels(dir + "/slices.png"), b = LitPixels(dir + "/cast.png");
    EXPECT_NEAR(double(a.count), double(b.count), 0.1 * double(b.count));
    EXPECT_NEAR(a.left, b.left, 3);
    EXPECT_NEAR(a.right, b.right, 3);
    EXPECT_EQ(RunCommandLine({"render", "--slices", "--transparent"}).code, 2) << "layers are the octree's";
}

TEST(TezRenderCommand, AnisotropicScanKeepsItsProportions)
{
    // A ball 52 units across in a scan with slices 2 units apart: 64 x 64
    // pixels, 32 slices. Seen from the side it must be as tall as it is wide,
    // through the document and through the bare cast (a depth output).
    std::string const path = ::testing::TempDir() + "tez-render-aniso.nrrd";
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    std::fprintf(f, "NRRD0004\ntype: uint8\ndimension: 3\nsizes: 64 64 32\nspacings: 1 1 2\nencoding: raw\n\n");
    for (int z = 0; z < 32; ++z)
        for (int y = 0; y < 64; ++y)
            for (int x = 0; x < 64; ++x) {
                double const dx = x - 31.5, dy = y - 31.5, dz = (z - 15.5) * 2.0;
                std::fputc(dx * dx + dy * dy + dz * dz < 26.0 * 26.0 ? 200 : 0, f);
            }
    std::fclose(f);
    std::string const out = ::testing::TempDir() + "tez-render-aniso.png";
    std::string const depth = ::testing::TempDir() + "tez-render-aniso-depth.png";
    for (bool bare : {false, true}) {
        for (char const* view : {"front", "right", "top"}) {
            TezArgs args{"render", path, "--view", view, "--ortho", "--size", "200x200", "-o", out};
            if (bare)
                args.insert(args.end(), {"--depth", depth});
            Captured c = RunCommandLine(args);
            ASSERT_EQ(c.code, 0) << c.err;
            Lit const lit = LitPixels(out);
            double const width = lit.right - lit.left + 1, height = lit.bottom - lit.top + 1;
            EXPECT_NEAR(width / height, 1.0, 0.06) << view << (bare ? " (bare cast)" : " (document)");
        }
    }
}
