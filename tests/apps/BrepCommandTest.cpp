// tez brep as a user runs it, in-process: sample files, info, a closed mesh
// that tez mesh check accepts, a picture, hostile files; and a document
// holding a B-rep that saves and opens again to the same bytes.
#include "document/objects/DocBrep.h"
#include "mesh/IndexedMesh.h"
#include "mesh/brep/BrepRhino.h"
#include "tez/CommandLine.h"
#include "tez/HostApplication.h"
#include "tez/HostDocument.h"
#include "tez/MeshCommand.h"
#include "volume/Image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

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

std::string Temp(std::string const& name)
{
    return testing::TempDir() + "tez_brepcli_" + std::to_string(getpid()) + "_" + name;
}

std::string Bytes(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

bool Has(std::string const& text, std::string const& part) { return text.find(part) != std::string::npos; }

} // namespace

TEST(BrepCommand, TubeMeshesIntoAClosedSurfaceThatMeshCheckAccepts)
{
    std::string const model = Temp("tube.3dm"), stl = Temp("tube.stl");
    CliRun sample({"brep", "sample", "pipe", "-o", model});
    ASSERT_EQ(sample.code, 0) << sample.stderrText;

    CliRun info({"brep", "info", model});
    ASSERT_EQ(info.code, 0) << info.stderrText;
    EXPECT_TRUE(Has(info.stdoutText, "faces: 4\n")) << info.stdoutText;
    EXPECT_TRUE(Has(info.stdoutText, "mesh holes: 0\n")) << info.stdoutText;

    CliRun mesh({"brep", "mesh", model, "-o", stl});
    ASSERT_EQ(mesh.code, 0) << mesh.stderrText;
    CliRun check({"mesh", "check", stl});
    EXPECT_EQ(check.code, 0) << check.stdoutText;
    TezRef<TezIndexedMesh> read = TezIndexedMesh::ReadFromFile(TezString(stl.c_str()));
    ASSERT_TRUE(read);
    EXPECT_EQ(TezMeshCountHoles(read), 0u);
    EXPECT_NEAR(read->ComputeVolume(), 9 * 3.14159265, 9 * 3.14159265 * 0.02);
    std::remove(model.c_str());
    std::remove(stl.c_str());
}

TEST(BrepCommand, OlderFileVersionAndOtherObjectsAreRead)
{
    std::string const model = Temp("mixed5.3dm");
    ASSERT_EQ(CliRun({"brep", "sample", "mixed", "--version", "5", "-o", model}).code, 0);
    CliRun info({"brep", "info", model});
    ASSERT_EQ(info.code, 0) << info.stderrText;
    EXPECT_TRUE(Has(info.stdoutText, "3dm version: 5\n")) << info.stdoutText;
    EXPECT_TRUE(Has(info.stdoutText, "breps: 3\n")) << info.stdoutText;
    EXPECT_TRUE(Has(info.stdoutText, "non-breps: 2\n")) << info.stdoutText;
    std::remove(model.c_str());
}

TEST(BrepCommand, PictureShowsTheModelOverTheBackground)
{
    std::string const model = Temp("box.3dm"), png = Temp("box.png");
    ASSERT_EQ(CliRun({"brep", "sample", "box", "-o", model}).code, 0);
    CliRun render({"brep", "render", model, "-o", png, "--size", "160x120"});
    ASSERT_EQ(render.code, 0) << render.stderrText;
    TezImage image;
    ASSERT_TRUE(image.Load(png.c_str()));
    ASSERT_EQ(image.GetWidth(), 160);
    std::vector<uint8_t> rgba(160 * 120 * 4);
    ASSERT_TRUE(image.ReadPixels(rgba.data(), 4, 160 * 4, true));
    // The box sits in the middle; the corner is background, a blue-grey.
    auto at = [&](int x, int y) { return &rgba[(static_cast<size_t>(y) * 160 + x) * 4]; };
    uint8_t const* middle = at(80, 60);
    uint8_t const* corner = at(2, 2);
    int const difference =
        std::abs(middle[0] - corner[0]) + std::abs(middle[1] - corner[1]) + std::abs(middle[2] - corner[2]);
    EXPECT_GT(difference, 40);
    std::remove(model.c_str());
    std::remove(png.c_str());
}

TEST(BrepCommand, HostileFilesFailWithAMessage)
{
    std::string const garbage = Temp("garbage.3dm");
    {
        std::ofstream out(garbage, std::ios::binary);
        out << std::string(3000, '\x07');
    }
    CliRun bad({"brep", "info", garbage});
    EXPECT_EQ(bad.code, 1);
    EXPECT_TRUE(Has(bad.stderrText, "cannot read")) << bad.stderrText;
    CliRun missing({"brep", "mesh", Temp("none.3dm"), "-o", Temp("none.stl")});
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(CliRun({"brep"}).code, 2);
    EXPECT_EQ(CliRun({"brep", "frobnicate", "x"}).code, 2);
    CliRun help({"brep", "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(Has(help.stdoutText, "render")) << help.stdoutText;
    std::remove(garbage.c_str());
}

TEST(BrepCommand, DocumentWithABrepSavesAndOpensAgainToTheSameBytes)
{
    TezHostApplication app;
    app.NewDocument();
    TezRef<TezHostDocument> document(app.GetActiveDocument());
    TezRef<TezBrepRhino> brep = TezBrepRhino::CreateFromBytes(TezBrepRhino::MakeSampleFile("pipe", 0));
    ASSERT_TRUE(brep);
    TezRef<TezDocBrep> object = TezDocBrep::Create(brep);
    EXPECT_EQ(object->GetFaceObjects().size(), 4u);
    EXPECT_EQ(object->GetEdgeObjects().size(), 6u);
    object->SetColor({0.2f, 0.5f, 0.7f, 1.0f});
    object->SetVisible(false);
    ASSERT_TRUE(document->AddObject(object));

    std::string const path = Temp("doc.mvne"), twice = Temp("doc2.mvne"), again = Temp("doc3.mvne");
    document->Save(TezString(path.c_str()));
    document->Save(TezString(twice.c_str()));
    EXPECT_EQ(Bytes(path), Bytes(twice));

    TezRef<TezDocument> opened = app.OpenDocument(TezString(path.c_str()));
    ASSERT_EQ(TezDocument::DocNoError, opened->GetLastError());
    auto const& objects = TezRef<TezHostDocument>(opened)->GetObjects();
    ASSERT_EQ(objects.size(), 1u);
    TezRef<TezDocBrep> back(objects[0]);
    ASSERT_TRUE(back && back->GetBrep());
    auto* backBrep = static_cast<TezBrepRhino*>(back->GetBrep().Get());
    EXPECT_EQ(backBrep->GetBytes(), brep->GetBytes());
    EXPECT_EQ(back->GetFaceObjects().size(), 4u);
    EXPECT_EQ(back->GetColor(), object->GetColor());
    EXPECT_FALSE(back->GetVisible());

    // Records are numbered in the order written: the opened document saves
    // to the very same bytes.
    opened->Save(TezString(again.c_str()));
    EXPECT_EQ(Bytes(path), Bytes(again));
    for (std::string const& file : {path, twice, again})
        std::remove(file.c_str());
}
