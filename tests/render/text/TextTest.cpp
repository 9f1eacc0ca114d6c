#include "render/text/Glyph.h"
#include "render/text/QuickFont.h"
#include "render/text/Text3d.h"
#include "render/text/detail/FontFace.h"

#include FT_OUTLINE_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// A fresh folder per test, removed afterwards.
struct TempFolder
{
    fs::path path;
    TempFolder()
    {
        path = fs::temp_directory_path() / ("tez-text-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~TempFolder() { fs::remove_all(path); }
    std::string Folder() const { return path.string() + "/"; }
    static inline int counter = 0;
};

std::string ReadAll(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

TEST(FontResolve, WindowsFamiliesFallBackToAnInstalledFont)
{
    tez_text::FontFile const calibri = tez_text::ResolveFont("Calibri");
    EXPECT_TRUE(fs::exists(calibri.path)) << calibri.path;
    EXPECT_FALSE(calibri.family.empty());
    tez_text::FontFile const dejavu = tez_text::ResolveFont("DejaVu Sans");
    EXPECT_TRUE(dejavu.exact);
    EXPECT_EQ(dejavu.family, "DejaVu Sans");
}

TEST(QuickFontConfig, DefaultsAndRefusals)
{
    TezRef<QuickFont::QFontBuilderConfiguration> config = QuickFont::QFontBuilderConfiguration::Create();
    EXPECT_EQ(config->charSet.size(), 95u);
    EXPECT_EQ(config->pageMaxTextureSize, 1024);
    EXPECT_EQ(config->glyphMargin, 2);
    config->superSampleLevels = 9;
    try {
        config->Check();
        FAIL();
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ(e.what(), "SuperSampleLevels = [9] is an unsupported value. Please use values in the range [1,8]");
    }
    config->superSampleLevels = 3;
    EXPECT_THROW(config->Check(), std::runtime_error);
    config->forcePowerOfTwo = false;
    EXPECT_NO_THROW(config->Check());

    TezRef<QuickFont::QFont> font = QuickFont::QFont::Create(QuickFont::QFontData::Create());
    try {
        font->PopOptions();
        FAIL();
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ(e.what(),
                     "Attempted to pop from options stack when there is only one Options object on the stack.");
    }
}

// The laid-out ink of a string against FreeType's own outline boxes and
// advances for the same font and size.
TEST(QuickFontLayout, InkBoxMatchesFreeTypeMetrics)
{
    TezRef<QuickFont::QFontData> data =
        QuickFont::Builder::Build("DejaVu Sans", 16, *QuickFont::QFontBuilderConfiguration::Create());
    TezRef<QuickFont::QFont> font = QuickFont::QFont::Create(data);
    font->GetOptions()->monospacing = QuickFont::QFontRenderOptions::No;
    std::string const text = "Hello, Wq!";
    TezBox2<float> const ink = font->MeasureInk(text.c_str());

    tez_text::FontFace face(tez_text::ResolveFont("DejaVu Sans"), 16 * 96.0 / 72.0);
    double pen = 0, left = 1e9, right = -1e9, top = -1e9, bottom = 1e9;
    for (char c : text) {
        FT_Load_Glyph(face.Get(), face.GlyphIndex(static_cast<unsigned char>(c)), FT_LOAD_NO_HINTING);
        FT_BBox box;
        FT_Outline_Get_CBox(&face.Get()->glyph->outline, &box);
        if (c != ' ') {
            left = std::min(left, pen + box.xMin / 64.0);
            right = std::max(right, pen + box.xMax / 64.0);
            top = std::max(top, box.yMax / 64.0);
            bottom = std::min(bottom, box.yMin / 64.0);
        }
        pen += face.Get()->glyph->advance.x / 64.0;
    }
    // Whole pixels of the raster against exact outlines: within 1.5 pixels,
    // with the error of rounded advances growing by at most half a pixel a
    // character.
    EXPECT_NEAR(ink.GetMinimum().x, left, 1.5);
    EXPECT_NEAR(ink.GetMaximum().x, right, 1.5 + 0.5 * text.size());
    EXPECT_NEAR(ink.GetMaximum().y, top, 1.5);
    EXPECT_NEAR(ink.GetMinimum().y, bottom, 1.5);
    EXPECT_NEAR(font->Measure(text.c_str()), pen, 0.5 * text.size());
    // A second line starts again at the left, one line lower.
    EXPECT_FLOAT_EQ(font->Measure("a\nbb"), font->Measure("bb"));
    EXPECT_NEAR(font->MeasureInk("a\nbb").GetMinimum().y, -data->lineHeight, 1.5);
}

TEST(QuickFontCache, WrittenOnceThenLoadedWithoutRasterising)
{
    TempFolder folder;
    long const builds = QuickFont::Builder::GetBuildCount();
    TezRef<QuickFont::QFont> first = QuickFont::QFont::Open("DejaVu Sans", 14, folder.Folder());
    EXPECT_EQ(QuickFont::Builder::GetBuildCount(), builds + 1);
    std::string const base = folder.Folder() + "DejaVu Sans-PLAIN-14";
    ASSERT_TRUE(fs::exists(base + ".qfont"));
    ASSERT_TRUE(fs::exists(base + ".png"));
    std::ifstream in(base + ".qfont");
    std::string line1, line2, line3;
    std::getline(in, line1);
    std::getline(in, line2);
    std::getline(in, line3);
    EXPECT_EQ(line1, "1");
    EXPECT_EQ(line2, "95");
    EXPECT_EQ(line3, "0");

    TezRef<QuickFont::QFont> second = QuickFont::QFont::Open("DejaVu Sans", 14, folder.Folder());
    EXPECT_EQ(QuickFont::Builder::GetBuildCount(), builds + 1);
    for (unsigned char c : std::string("AgWq~\xB0")) {
        QuickFont::QFontGlyph const& a = first->GetData()->glyphs[c];
        QuickFont::QFontGlyph const& b = second->GetData()->glyphs[c];
        EXPECT_EQ(a.x, b.x);
        EXPECT_EQ(a.width, b.width);
        EXPECT_EQ(a.advance, b.advance);
        EXPECT_EQ(a.yOffset, b.yOffset);
    }
    EXPECT_EQ(first->GetData()->pages[0].alpha, second->GetData()->pages[0].alpha);
    EXPECT_FLOAT_EQ(first->Measure("Tezcore"), second->Measure("Tezcore"));
}

// Each kind of damage is caught at loading, and the font is built and
// written again, after which it loads cleanly.
TEST(QuickFontCache, DamagedFilesAreRebuiltNotTrusted)
{
    TempFolder folder;
    std::string const base = folder.Folder() + "DejaVu Sans-PLAIN-13";
    QuickFont::QFont::Open("DejaVu Sans", 13, folder.Folder());
    std::string const good = ReadAll(base + ".qfont");
    std::string const goodPng = ReadAll(base + ".png");

    std::map<std::string, std::function<void()>> damage = {
        {"truncated qfont",
         [&] { std::ofstream(base + ".qfont", std::ios::binary) << good.substr(0, good.size() / 2); }},
        {"garbage qfont", [&] { std::ofstream(base + ".qfont", std::ios::binary) << "1\n95\n0\n1024 -7\n"; }},
        {"rectangle off the page",
         [&] {
             std::string bad = good;
             size_t const at = bad.find("\nA ") + 1;
             bad.replace(at, bad.find('\n', at) - at, "A 0 99999 0 10 10 0 10 0");
             std::ofstream(base + ".qfont", std::ios::binary) << bad;
         }},
        {"truncated png", [&] { std::ofstream(base + ".png", std::ios::binary) << goodPng.substr(0, 200); }},
        {"missing png", [&] { fs::remove(base + ".png"); }},
        {"other png",
         [&] {
             // A valid image of the right size with other contents.
             TezRef<QuickFont::QFontData> other =
                 QuickFont::Builder::Build("DejaVu Serif", 13, *QuickFont::QFontBuilderConfiguration::Create());
             other->pages.resize(1);
             other->Save(folder.Folder() + "other");
             fs::copy_file(folder.Folder() + "other.png", base + ".png", fs::copy_options::overwrite_existing);
         }},
    };
    for (auto const& [name, act] : damage) {
        SCOPED_TRACE(name);
        act();
        EXPECT_THROW(QuickFont::QFontData::Load(base), std::runtime_error);
        long const builds = QuickFont::Builder::GetBuildCount();
        TezRef<QuickFont::QFont> font = QuickFont::QFont::Open("DejaVu Sans", 13, folder.Folder());
        EXPECT_EQ(QuickFont::Builder::GetBuildCount(), builds + 1);
        EXPECT_GT(font->Measure("abc"), 10.0f);
        EXPECT_NO_THROW(QuickFont::QFontData::Load(base));
    }
    EXPECT_THROW(QuickFont::QFontData::Load(folder.Folder() + "nothing"), std::runtime_error);
}

TEST(QuickFontCache, UnwritableFolderFallsBackToTheUserCache)
{
    TempFolder cache;
    char const* old = std::getenv("XDG_CACHE_HOME");
    std::string const saved = old ? old : "";
    setenv("XDG_CACHE_HOME", cache.path.c_str(), 1);
    std::string const denied = "/proc/tez-no-such-folder/fonts/";
    long const builds = QuickFont::Builder::GetBuildCount();
    QuickFont::QFont::Open("DejaVu Sans", 11, denied);
    EXPECT_TRUE(fs::exists(cache.path / "tezcore/fonts/DejaVu Sans-PLAIN-11.qfont"));
    QuickFont::QFont::Open("DejaVu Sans", 11, denied);
    EXPECT_EQ(QuickFont::Builder::GetBuildCount(), builds + 1);
    if (old)
        setenv("XDG_CACHE_HOME", saved.c_str(), 1);
    else
        unsetenv("XDG_CACHE_HOME");
}

TEST(Glyph, OHasTwoContoursAHoleAndAClosedMesh)
{
    tez_text::FontFace face(tez_text::ResolveFont("DejaVu Sans"), 200);
    TezGlyph glyph;
    glyph.SetScale(0.1);
    ASSERT_TRUE(glyph.Realize('O', face));
    std::vector<TezGlyph::Contour> const contours = glyph.GetContourList();
    ASSERT_EQ(contours.size(), 2u);
    // The hole: the inner contour lies inside the outer one and turns the
    // other way.
    auto area = [](TezGlyph::Contour const& c) {
        double a = 0;
        for (size_t i = 0; i < c.size(); ++i)
            a += c[i].x * c[(i + 1) % c.size()].y - c[(i + 1) % c.size()].x * c[i].y;
        return a / 2;
    };
    double const a0 = area(contours[0]), a1 = area(contours[1]);
    EXPECT_LT(a0 * a1, 0);
    EXPECT_NE(std::fabs(a0), std::fabs(a1));

    ASSERT_TRUE(glyph.CreateMesh(1.5f));
    std::vector<float> const& v = glyph.GetVertices();
    std::vector<unsigned> const& idx = glyph.GetIndices();
    ASSERT_EQ(idx.size() % 3, 0u);
    // Weld by position; then each directed edge must meet its reverse once.
    std::map<std::tuple<float, float, float>, unsigned> weld;
    std::vector<unsigned> id(v.size() / 6);
    for (size_t i = 0; i < id.size(); ++i)
        id[i] = weld.emplace(std::make_tuple(v[i * 6], v[i * 6 + 1], v[i * 6 + 2]), weld.size()).first->second;
    std::map<std::pair<unsigned, unsigned>, int> edges;
    double volume = 0;
    for (size_t t = 0; t < idx.size(); t += 3) {
        for (int k = 0; k < 3; ++k)
            ++edges[{id[idx[t + k]], id[idx[t + (k + 1) % 3]]}];
        float const* p = &v[idx[t] * 6];
        float const* q = &v[idx[t + 1] * 6];
        float const* r = &v[idx[t + 2] * 6];
        volume += (p[0] * (q[1] * r[2] - q[2] * r[1]) - p[1] * (q[0] * r[2] - q[2] * r[0]) +
                   p[2] * (q[0] * r[1] - q[1] * r[0])) /
                  6.0;
    }
    for (auto const& [edge, count] : edges) {
        EXPECT_EQ(count, 1);
        auto reverse = edges.find({edge.second, edge.first});
        ASSERT_NE(reverse, edges.end());
        EXPECT_EQ(reverse->second, 1);
    }
    // Wound outwards: the volume is positive and that of the ring's area.
    EXPECT_NEAR(volume, std::fabs(std::fabs(a0) - std::fabs(a1)) * 1.5, 0.02 * volume);

    ASSERT_TRUE(glyph.CreateMesh(0.0f));
    EXPECT_EQ(glyph.GetNumFaceIndices(), glyph.GetIndices().size()); // one face, no sides
    for (size_t i = 0; i < glyph.GetVertices().size(); i += 6)
        EXPECT_EQ(glyph.GetVertices()[i + 5], -1.0f);

    TezGlyph space;
    EXPECT_FALSE(space.Realize(' ', face));
    EXPECT_FALSE(space.CreateMesh(1.0f));
    space.SetBezierDepth(0);
    EXPECT_EQ(space.GetBezierDepth(), 1);
    space.SetBezierDepth(9);
    EXPECT_EQ(space.GetBezierDepth(), 5);
}

TEST(Text3d, FieldsNamesAndMeasures)
{
    TezText3d text;
    EXPECT_STREQ(text.GetFontName().c_str(), "bitmap,Calibri,16");
    EXPECT_FLOAT_EQ(text.GetFlipAngle(), 1000.0f);
    EXPECT_FLOAT_EQ(text.GetSpacing(), 0.1f);
    EXPECT_TRUE(text.GetFlatLayout());
    EXPECT_FLOAT_EQ(text.GetShadowSize(), 0.1f);

    text.SetDefFont("DejaVu Sans,20");
    EXPECT_FALSE(text.IsBitmapFont());
    text.SetFlatLayout(false);
    text.SetScale(2.0f);
    text.SetAspect(2.0f);
    float const bb = text.GetRawLength("bb");
    EXPECT_GT(bb, 0);
    EXPECT_FLOAT_EQ(text.GetRawLength("a\nbb"), bb);
    EXPECT_FLOAT_EQ(text.GetLength("bb"), bb);
    EXPECT_GT(text.GetRawHeightAbove(), 10);
    EXPECT_GT(text.GetRawHeightBelow(), 0);
    EXPECT_FLOAT_EQ(text.GetHeight(), text.GetRawHeight() * 2.0f);
    text.SetFlatLayout(true);
    EXPECT_FLOAT_EQ(text.GetScale(), 1.0f);
    EXPECT_FLOAT_EQ(text.GetAspect(), 1.0f);

    TezText3d mono;
    EXPECT_THROW(mono.SetFont("DejaVu Sans,mono"), std::logic_error);
    EXPECT_THROW(mono.SetTextPosition(static_cast<TezText3d::TextPosition>(8)), std::runtime_error);

    // The eight anchors place the text around the point.
    using P = TezText3d;
    EXPECT_FLOAT_EQ(P::AnchorOffset(P::TextRight, 10, 4, 1).x, -10);
    EXPECT_FLOAT_EQ(P::AnchorOffset(P::TextAbove, 10, 4, 1).y, 1);
    EXPECT_FLOAT_EQ(P::AnchorOffset(P::TextBelow, 10, 4, 1).y, -4);
    EXPECT_FLOAT_EQ(P::AnchorOffset(P::TextMiddle, 10, 4, 1).y, -1.5f);
}
