#include "render/text/QuickFont.h"

#include "core/Logger.h"
#include "render/text/detail/FontFace.h"

#include <FreeImage.h>
#include <GL/glew.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <stdexcept>

namespace QuickFont {

TEZ_DEFINE_REF_FUNCTIONS(QFontBuilderConfiguration)
TEZ_DEFINE_REF_FUNCTIONS(QFontRenderOptions)
TEZ_DEFINE_REF_FUNCTIONS(QFontData)
TEZ_DEFINE_REF_FUNCTIONS(QFont)

namespace {

long g_buildCount = 0;

char const kCharSet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ1234567890"
                        ".:,;'\"(!?)+-*/=_{}[]@~#\\<>|^%$\xA3&\xB0";

std::string PagePath(std::string const& base, size_t page, size_t count)
{
    if (count == 1)
        return base + ".png";
    return base + "_sheet_" + std::to_string(page) + ".png";
}

// FNV-1a over a page's coverage: a page image that decodes but was changed
// is caught as well as one that does not decode.
unsigned long long PageHash(TexturePage const& page)
{
    unsigned long long h = 1469598103934665603ull;
    for (unsigned char c : page.alpha) {
        h ^= c;
        h *= 1099511628211ull;
    }
    return h;
}

bool Overlap(QFontGlyph const& a, QFontGlyph const& b)
{
    if (a.page != b.page || a.width <= 0 || a.height <= 0 || b.width <= 0 || b.height <= 0)
        return false;
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
}

void CheckOverlaps(QFontGlyph const* glyphs, char const* prefix)
{
    for (int i = 0; i < 256; ++i) {
        if (glyphs[i].page < 0)
            continue;
        for (int j = i + 1; j < 256; ++j)
            if (glyphs[j].page >= 0 && Overlap(glyphs[i], glyphs[j]))
                throw std::runtime_error(std::string(prefix) + static_cast<char>(i) + "' and '" + static_cast<char>(j) +
                                         "' overlap");
    }
}

bool SavePage(TexturePage const& page, std::string const& path)
{
    FIBITMAP* bitmap = FreeImage_Allocate(page.width, page.height, 32);
    if (!bitmap)
        return false;
    for (int row = 0; row < page.height; ++row) {
        // FreeImage keeps rows bottom up.
        BYTE* line = FreeImage_GetScanLine(bitmap, page.height - 1 - row);
        for (int x = 0; x < page.width; ++x) {
            line[x * 4 + FI_RGBA_RED] = 255;
            line[x * 4 + FI_RGBA_GREEN] = 255;
            line[x * 4 + FI_RGBA_BLUE] = 255;
            line[x * 4 + FI_RGBA_ALPHA] = page.alpha[static_cast<size_t>(row) * page.width + x];
        }
    }
    bool const ok = FreeImage_Save(FIF_PNG, bitmap, path.c_str(), 0) != 0;
    FreeImage_Unload(bitmap);
    return ok;
}

void LoadPage(TexturePage& page, std::string const& path)
{
    FREE_IMAGE_FORMAT const format = FreeImage_GetFileType(path.c_str(), 0);
    if (format != FIF_PNG)
        throw std::runtime_error("Failed to load font page image " + path);
    FIBITMAP* bitmap = FreeImage_Load(format, path.c_str(), 0);
    if (!bitmap)
        throw std::runtime_error("Failed to load font page image " + path);
    bool const fits = FreeImage_GetBPP(bitmap) == 32 && static_cast<int>(FreeImage_GetWidth(bitmap)) == page.width &&
                      static_cast<int>(FreeImage_GetHeight(bitmap)) == page.height;
    if (fits) {
        page.alpha.assign(static_cast<size_t>(page.width) * page.height, 0);
        for (int row = 0; row < page.height; ++row) {
            BYTE const* line = FreeImage_GetScanLine(bitmap, page.height - 1 - row);
            for (int x = 0; x < page.width; ++x)
                page.alpha[static_cast<size_t>(row) * page.width + x] = line[x * 4 + FI_RGBA_ALPHA];
        }
    }
    FreeImage_Unload(bitmap);
    if (!fits)
        throw std::runtime_error("Font page image " + path + " does not match its .qfont file");
}

int NextPowerOfTwo(int n)
{
    int p = 1;
    while (p < n)
        p <<= 1;
    return p;
}

bool Writable(std::string const& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    std::string const probe = folder + ".tez-write-probe";
    FILE* file = std::fopen(probe.c_str(), "wb");
    if (!file)
        return false;
    std::fclose(file);
    std::remove(probe.c_str());
    return true;
}

} // namespace

// ---------------------------------------------------------------------------

QFontBuilderConfiguration::QFontBuilderConfiguration() : charSet(kCharSet) {}

TezRef<QFontBuilderConfiguration> QFontBuilderConfiguration::Create(bool addDropShadow)
{
    TezRef<QFontBuilderConfiguration> config(new QFontBuilderConfiguration());
    config->hasShadowConfig = addDropShadow;
    return config;
}

void QFontBuilderConfiguration::Check() const
{
    if (superSampleLevels < 1 || superSampleLevels > 8)
        throw std::runtime_error("SuperSampleLevels = [" + std::to_string(superSampleLevels) +
                                 "] is an unsupported value. Please use values in the range [1,8]");
    if (forcePowerOfTwo && (superSampleLevels & (superSampleLevels - 1)) != 0)
        throw std::runtime_error("SuperSampleLevels must be a power of two when using ForcePowerOfTwo.");
}

TezRef<QFontRenderOptions> QFontRenderOptions::Create() { return TezRef<QFontRenderOptions>(new QFontRenderOptions()); }

// ---------------------------------------------------------------------------

TezRef<QFontData> QFontData::Create() { return TezRef<QFontData>(new QFontData()); }

QFontData::~QFontData() = default;

bool QFontData::Save(std::string const& base) const
{
    for (size_t p = 0; p < pages.size(); ++p) {
        std::string const path = PagePath(base, p, pages.size());
        if (!SavePage(pages[p], path + ".tmp") || std::rename((path + ".tmp").c_str(), path.c_str()) != 0) {
            std::remove((path + ".tmp").c_str());
            return false;
        }
    }
    int count = 0;
    for (QFontGlyph const& g : glyphs)
        count += g.page >= 0 ? 1 : 0;
    std::string const temp = base + ".qfont.tmp";
    FILE* file = std::fopen(temp.c_str(), "wb");
    if (!file)
        return false;
    std::fprintf(file, "%zu\n%d\n0\n", pages.size(), count);
    for (TexturePage const& page : pages)
        std::fprintf(file, "%d %d\n", page.width, page.height);
    for (int c = 0; c < 256; ++c) {
        QFontGlyph const& g = glyphs[c];
        if (g.page >= 0)
            std::fprintf(file, "%c %d %d %d %d %d %d %d %d\n", static_cast<char>(c), g.page, g.x, g.y, g.width,
                         g.height, g.yOffset, g.advance, g.xOffset);
    }
    std::fprintf(file, "metrics %d %d %d %d\n", ascender, descender, lineHeight, spaceAdvance);
    std::fprintf(file, "check");
    for (TexturePage const& page : pages)
        std::fprintf(file, " %llu", PageHash(page));
    std::fprintf(file, "\n");
    bool const ok = std::fclose(file) == 0;
    if (!ok || std::rename(temp.c_str(), (base + ".qfont").c_str()) != 0) {
        std::remove(temp.c_str());
        return false;
    }
    return true;
}

TezRef<QFontData> QFontData::Load(std::string const& base)
{
    FILE* file = std::fopen((base + ".qfont").c_str(), "rb");
    if (!file)
        throw std::runtime_error("Could not open file");
    std::vector<std::string> lines;
    char buffer[4096];
    while (std::fgets(buffer, sizeof buffer, file)) {
        std::string line(buffer);
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
            line.pop_back();
        lines.push_back(line);
    }
    std::fclose(file);

    auto invalid = [] { return std::runtime_error("Failed to parse qfont file. Invalid format."); };
    auto integers = [&](std::string const& text, size_t from, std::vector<long>& out) {
        out.clear();
        char const* p = text.c_str() + from;
        while (*p) {
            if (*p != ' ')
                throw invalid();
            ++p;
            char* end = nullptr;
            long const v = std::strtol(p, &end, 10);
            if (end == p)
                throw invalid();
            out.push_back(v);
            p = end;
        }
    };
    auto single = [&](size_t i) {
        std::vector<long> v;
        if (i >= lines.size())
            throw invalid();
        integers(" " + lines[i], 0, v);
        if (v.size() != 1)
            throw invalid();
        return v[0];
    };

    long const numPages = single(0);
    long const numChars = single(1);
    if (numPages < 1 || numPages > 64 || numChars < 1 || numChars > 256 || single(2) != 0)
        throw invalid();
    if (lines.size() < static_cast<size_t>(3 + numPages + numChars))
        throw invalid();
    TezRef<QFontData> data = Create();
    std::vector<long> v;
    for (long p = 0; p < numPages; ++p) {
        integers(" " + lines[3 + p], 0, v);
        if (v.size() != 2 || v[0] < 1 || v[1] < 1 || v[0] > 16384 || v[1] > 16384)
            throw invalid();
        TexturePage page;
        page.width = static_cast<int>(v[0]);
        page.height = static_cast<int>(v[1]);
        data->pages.push_back(std::move(page));
    }
    for (long c = 0; c < numChars; ++c) {
        std::string const& line = lines[3 + numPages + c];
        if (line.size() < 3)
            throw invalid();
        integers(line, 1, v);
        if (v.size() != 6 && v.size() != 8)
            throw invalid();
        QFontGlyph& g = data->glyphs[static_cast<unsigned char>(line[0])];
        if (g.page >= 0 || v[0] < 0 || v[0] >= numPages)
            throw invalid();
        TexturePage const& page = data->pages[v[0]];
        if (v[1] < 0 || v[2] < 0 || v[3] < 0 || v[4] < 0 || v[1] + v[3] > page.width || v[2] + v[4] > page.height ||
            std::labs(v[5]) > 16384)
            throw invalid();
        g.page = static_cast<int>(v[0]);
        g.x = static_cast<int>(v[1]);
        g.y = static_cast<int>(v[2]);
        g.width = static_cast<int>(v[3]);
        g.height = static_cast<int>(v[4]);
        g.yOffset = static_cast<int>(v[5]);
        g.advance = v.size() == 8 ? static_cast<int>(v[6]) : g.width;
        g.xOffset = v.size() == 8 ? static_cast<int>(v[7]) : 0;
        if (std::labs(g.advance) > 16384 || std::labs(g.xOffset) > 16384)
            throw invalid();
    }
    CheckOverlaps(data->glyphs, "Failed to load font from file. Glyphs '");

    std::vector<unsigned long long> hashes;
    bool haveMetrics = false;
    for (size_t i = 3 + numPages + numChars; i < lines.size(); ++i) {
        std::string const& line = lines[i];
        if (line.rfind("metrics", 0) == 0) {
            integers(line, 7, v);
            if (v.size() != 4 || v[2] < 0 || v[2] > 16384 || std::labs(v[0]) > 16384 || std::labs(v[1]) > 16384 ||
                v[3] < 0 || v[3] > 16384)
                throw invalid();
            data->ascender = static_cast<int>(v[0]);
            data->descender = static_cast<int>(v[1]);
            data->lineHeight = static_cast<int>(v[2]);
            data->spaceAdvance = static_cast<int>(v[3]);
            haveMetrics = true;
        } else if (line.rfind("check", 0) == 0) {
            char const* p = line.c_str() + 5;
            while (*p == ' ') {
                char* end = nullptr;
                unsigned long long const h = std::strtoull(p + 1, &end, 10);
                if (end == p + 1)
                    throw invalid();
                hashes.push_back(h);
                p = end;
            }
            if (*p || hashes.size() != data->pages.size())
                throw invalid();
        } else if (!line.empty()) {
            throw invalid();
        }
    }
    if (!haveMetrics) {
        // An older file: the line from the tallest glyph.
        for (QFontGlyph const& g : data->glyphs)
            if (g.page >= 0)
                data->lineHeight = std::max(data->lineHeight, g.yOffset + g.height);
        data->ascender = data->lineHeight;
        data->spaceAdvance = data->glyphs['a'].page >= 0 ? data->glyphs['a'].advance : data->lineHeight / 3;
    }
    for (size_t p = 0; p < data->pages.size(); ++p) {
        LoadPage(data->pages[p], PagePath(base, p, data->pages.size()));
        if (!hashes.empty() && PageHash(data->pages[p]) != hashes[p])
            throw std::runtime_error("Font page image " + PagePath(base, p, data->pages.size()) +
                                     " does not match its .qfont file");
    }
    for (QFontGlyph const& g : data->glyphs)
        if (g.page >= 0)
            data->maxCellWidth = std::max(data->maxCellWidth, static_cast<float>(g.advance));
    return data;
}

float QFontData::Measure(TezString const& text, float spacing) const
{
    float longest = 0, line = 0;
    bool first = true;
    char const* p = text.c_str();
    for (; p && *p; ++p) {
        unsigned char const c = static_cast<unsigned char>(*p);
        if (c == '\n') {
            longest = std::max(longest, line);
            line = 0;
            first = true;
            continue;
        }
        float step = 0;
        if (c == ' ')
            step = static_cast<float>(spaceAdvance);
        else if (glyphs[c].page >= 0)
            step = static_cast<float>(glyphs[c].advance);
        else
            continue;
        line += (first ? 0.0f : spacing) + step;
        first = false;
    }
    return std::max(longest, line);
}

// ---------------------------------------------------------------------------

long Builder::GetBuildCount() { return g_buildCount; }

TezRef<QFontData> Builder::Build(std::string const& family, double points, QFontBuilderConfiguration const& config)
{
    config.Check();
    ++g_buildCount;
    int const level = config.superSampleLevels;
    tez_text::FontFace face(tez_text::ResolveFont(family), points * 96.0 / 72.0 * level);
    FT_Face ft = face.Get();
    FT_Int32 const loadFlags = config.textGenerationRenderHint == 3 ? FT_LOAD_TARGET_LIGHT : FT_LOAD_NO_HINTING;

    TezRef<QFontData> data = QFontData::Create();
    struct Raster
    {
        int code, width, height;
        std::vector<unsigned char> alpha;
    };
    std::vector<Raster> rasters;
    auto down = [level](double v) { return static_cast<int>(std::lround(v / level)); };
    for (char ch : config.charSet) {
        unsigned char const code = static_cast<unsigned char>(ch);
        unsigned const index = face.GlyphIndex(code);
        if (index == 0 || FT_Load_Glyph(ft, index, loadFlags) != 0 ||
            FT_Render_Glyph(ft->glyph, FT_RENDER_MODE_NORMAL) != 0)
            continue;
        FT_Bitmap const& bm = ft->glyph->bitmap;
        Raster r;
        r.code = code;
        r.width = (static_cast<int>(bm.width) + level - 1) / level;
        r.height = (static_cast<int>(bm.rows) + level - 1) / level;
        r.alpha.assign(static_cast<size_t>(r.width) * r.height, 0);
        // Box filter of the super-sampled raster back to the target size.
        for (int y = 0; y < r.height; ++y)
            for (int x = 0; x < r.width; ++x) {
                int sum = 0;
                for (int sy = y * level; sy < std::min<int>((y + 1) * level, bm.rows); ++sy)
                    for (int sx = x * level; sx < std::min<int>((x + 1) * level, bm.width); ++sx)
                        sum += bm.buffer[sy * bm.pitch + sx];
                r.alpha[static_cast<size_t>(y) * r.width + x] = static_cast<unsigned char>(sum / (level * level));
            }
        QFontGlyph& g = data->glyphs[code];
        g.width = r.width;
        g.height = r.height;
        g.xOffset = down(ft->glyph->bitmap_left);
        g.advance = down(ft->glyph->advance.x / 64.0);
        g.yOffset = 0;                     // set below, once the ascender is known
        g.y = down(ft->glyph->bitmap_top); // kept here for now
        g.page = 0;
        rasters.push_back(std::move(r));
    }
    if (rasters.empty())
        throw std::runtime_error("Failed to create glyph set. The font has none of the characters");
    data->ascender = down(std::ceil(ft->size->metrics.ascender / 64.0));
    data->descender = down(std::floor(ft->size->metrics.descender / 64.0));
    data->lineHeight = down(std::ceil(ft->size->metrics.height / 64.0));
    unsigned const space = face.GlyphIndex(' ');
    data->spaceAdvance =
        space && FT_Load_Glyph(ft, space, loadFlags) == 0 ? down(ft->glyph->advance.x / 64.0) : data->lineHeight / 3;
    for (Raster const& r : rasters) {
        QFontGlyph& g = data->glyphs[r.code];
        g.yOffset = data->ascender - g.y;
        data->maxCellWidth = std::max(data->maxCellWidth, static_cast<float>(g.advance));
    }

    // Shelf packing, tallest first, into square pages of one size.
    int const margin = config.glyphMargin;
    long area = 0;
    int widest = 0;
    for (Raster const& r : rasters) {
        area += static_cast<long>(r.width + 2 * margin) * (r.height + 2 * margin);
        widest = std::max({widest, r.width + 2 * margin, r.height + 2 * margin});
    }
    if (widest > config.pageMaxTextureSize)
        throw std::runtime_error("Failed to fit font into texture pages");
    int side = static_cast<int>(std::ceil(std::sqrt(area * 1.2)));
    side = std::max(side, widest);
    side = config.forcePowerOfTwo ? NextPowerOfTwo(side) : side;
    side = std::min(side, config.pageMaxTextureSize);
    std::vector<size_t> order(rasters.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return rasters[a].height > rasters[b].height; });
    int page = 0, x = 0, y = 0, shelf = 0;
    data->pages.push_back({side, side, std::vector<unsigned char>(static_cast<size_t>(side) * side, 0), 0});
    for (size_t i : order) {
        Raster const& r = rasters[i];
        int const w = r.width + 2 * margin, h = r.height + 2 * margin;
        if (x + w > side) {
            x = 0;
            y += shelf;
            shelf = 0;
        }
        if (y + h > side) {
            ++page;
            if (page >= 64)
                throw std::runtime_error("Failed to fit font into texture pages");
            data->pages.push_back({side, side, std::vector<unsigned char>(static_cast<size_t>(side) * side, 0), 0});
            x = y = shelf = 0;
        }
        QFontGlyph& g = data->glyphs[r.code];
        g.page = page;
        g.x = x + margin;
        g.y = y + margin;
        TexturePage& target = data->pages[page];
        for (int row = 0; row < r.height; ++row)
            std::memcpy(&target.alpha[static_cast<size_t>(g.y + row) * side + g.x],
                        &r.alpha[static_cast<size_t>(row) * r.width], r.width);
        x += w;
        shelf = std::max(shelf, h);
    }
    CheckOverlaps(data->glyphs, "Failed to create glyph set. Glyphs '");
    return data;
}

// ---------------------------------------------------------------------------

QFont::QFont(TezRef<QFontData> data) : m_data(std::move(data)) { m_options.push_back(QFontRenderOptions::Create()); }

QFont::~QFont() = default; // GL names go with the shared context (see ReleaseGL)

TezRef<QFont> QFont::Create(TezRef<QFontData> data)
{
    if (!data)
        throw std::runtime_error("QFont::Create: no font data");
    return TezRef<QFont>(new QFont(std::move(data)));
}

std::string QFont::UserCacheFolder()
{
    char const* xdg = std::getenv("XDG_CACHE_HOME");
    std::string root;
    if (xdg && *xdg)
        root = xdg;
    else if (char const* home = std::getenv("HOME"))
        root = std::string(home) + "/.cache";
    else
        root = "/tmp";
    return root + "/tezcore/fonts/";
}

TezRef<QFont> QFont::Open(std::string const& family, int points, std::string const& folder)
{
    std::string name = family;
    for (char& c : name)
        if (c == '/' || c == '\\' || c == ':')
            c = '_';
    name += "-PLAIN-" + std::to_string(points);
    std::string const mainBase = folder + name;
    std::string const userBase = UserCacheFolder() + name;
    for (std::string const& base : {mainBase, userBase}) {
        if (!std::filesystem::exists(base + ".qfont"))
            continue;
        try {
            return Create(QFontData::Load(base));
        } catch (std::exception const& e) {
            TezLogger::warn("Font cache %s.qfont is damaged (%s); building it again\n", base.c_str(), e.what());
        }
    }
    TezRef<QFontBuilderConfiguration> config = QFontBuilderConfiguration::Create(true);
    config->textGenerationRenderHint = points <= 12 ? 3 : 0;
    TezRef<QFontData> data = Builder::Build(family, points, *config);
    if (!(Writable(folder) && data->Save(mainBase))) {
        if (!(Writable(UserCacheFolder()) && data->Save(userBase)))
            TezLogger::warn("Font pages of %s could not be cached in %s nor in %s\n", name.c_str(), folder.c_str(),
                            UserCacheFolder().c_str());
    }
    for (QFontGlyph const& g : data->glyphs)
        if (g.page >= 0)
            data->maxCellWidth = std::max(data->maxCellWidth, static_cast<float>(g.advance));
    return Create(data);
}

void QFont::PushOptions(TezRef<QFontRenderOptions> options)
{
    m_options.push_back(options ? options : QFontRenderOptions::Create());
}

void QFont::PopOptions()
{
    if (m_options.size() <= 1)
        throw std::runtime_error(
            "Attempted to pop from options stack when there is only one Options object on the stack.");
    m_options.pop_back();
}

float QFont::Step(QFontGlyph const& glyph) const
{
    return GetOptions()->monospacing == QFontRenderOptions::Yes ? m_data->maxCellWidth
                                                                : static_cast<float>(glyph.advance);
}

float QFont::Measure(TezString const& text) const
{
    QFontRenderOptions const& o = *GetOptions();
    if (o.monospacing != QFontRenderOptions::Yes)
        return m_data->Measure(text, o.monospacingSpacing);
    float longest = 0, line = 0;
    for (char const* p = text.c_str(); p && *p; ++p) {
        if (*p == '\n') {
            longest = std::max(longest, line);
            line = 0;
        } else {
            line += (line > 0 ? o.monospacingSpacing : 0.0f) + m_data->maxCellWidth;
        }
    }
    return std::max(longest, line);
}

TezBox2<float> QFont::MeasureInk(TezString const& text) const
{
    std::vector<float> quads;
    Layout(text, 0, 0, quads);
    TezBox2<float> box;
    for (size_t i = 0; i + 4 < quads.size(); i += 5)
        box += TezVector2<float>(quads[i], quads[i + 1]);
    return box;
}

void QFont::Layout(TezString const& text, float x0, float y0, std::vector<float>& out, int onlyPage) const
{
    QFontData const& d = *m_data;
    QFontRenderOptions const& o = *GetOptions();
    bool const mono = o.monospacing == QFontRenderOptions::Yes;
    float x = x0, y = y0;
    bool first = true;
    for (char const* p = text.c_str(); p && *p; ++p) {
        unsigned char const c = static_cast<unsigned char>(*p);
        if (c == '\n') {
            x = x0;
            y -= static_cast<float>(d.lineHeight);
            first = true;
            continue;
        }
        QFontGlyph const& g = d.glyphs[c];
        if (c != ' ' && g.page < 0)
            continue;
        if (!first)
            x += o.monospacingSpacing;
        first = false;
        if (c == ' ') {
            x += mono ? d.maxCellWidth : static_cast<float>(d.spaceAdvance);
            continue;
        }
        if (g.width > 0 && g.height > 0 && (onlyPage < 0 || g.page == onlyPage)) {
            TexturePage const& page = d.pages[g.page];
            float const cell = mono ? std::floor((d.maxCellWidth - g.advance) * 0.5f) : 0.0f;
            float const left = x + cell + g.xOffset, right = left + g.width;
            float const top = y + d.ascender - g.yOffset, bottom = top - g.height;
            float const u0 = static_cast<float>(g.x) / page.width, u1 = static_cast<float>(g.x + g.width) / page.width;
            float const v0 = static_cast<float>(g.y) / page.height,
                        v1 = static_cast<float>(g.y + g.height) / page.height;
            float const quad[] = {left, bottom, 0, u0, v1, right, bottom, 0, u1, v1, right, top, 0, u1, v0,
                                  left, bottom, 0, u0, v1, right, top,    0, u1, v0, left,  top, 0, u0, v0};
            out.insert(out.end(), std::begin(quad), std::end(quad));
        }
        x += Step(g);
    }
}

bool QFont::EnsureTextures()
{
    for (TexturePage& page : m_data->pages) {
        if (page.texture)
            continue;
        GLuint name = 0;
        glGenTextures(1, &name);
        glBindTexture(GL_TEXTURE_2D, name);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_R8, page.width, page.height, 0, GL_RED, GL_UNSIGNED_BYTE, page.alpha.data());
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        // Coverage in alpha, white in colour, as the page images hold it.
        GLint const swizzle[] = {GL_ONE, GL_ONE, GL_ONE, GL_RED};
        glTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_RGBA, swizzle);
        glBindTexture(GL_TEXTURE_2D, 0);
        page.texture = name;
    }
    if (!m_array) {
        glGenVertexArrays(1, &m_array);
        glGenBuffers(1, &m_buffer);
        glBindVertexArray(m_array);
        glBindBuffer(GL_ARRAY_BUFFER, m_buffer);
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 5 * sizeof(float), nullptr);
        glEnableVertexAttribArray(2);
        glVertexAttribPointer(2, 2, GL_FLOAT, GL_FALSE, 5 * sizeof(float),
                              reinterpret_cast<void const*>(3 * sizeof(float)));
        glDisableVertexAttribArray(1);
        glVertexAttrib3f(1, 0.0f, 0.0f, 1.0f);
        glBindVertexArray(0);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
    }
    return m_array != 0;
}

void QFont::Print(TezString const& text, float x, float y)
{
    if (!EnsureTextures())
        return;
    if (GetOptions()->pixelSnap) {
        x = std::round(x);
        y = std::round(y);
    }
    GLboolean const blend = glIsEnabled(GL_BLEND);
    GLboolean depthMask = GL_TRUE;
    glGetBooleanv(GL_DEPTH_WRITEMASK, &depthMask);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glDepthMask(GL_FALSE);
    glBindVertexArray(m_array);
    glBindBuffer(GL_ARRAY_BUFFER, m_buffer);
    glActiveTexture(GL_TEXTURE0);
    for (size_t p = 0; p < m_data->pages.size(); ++p) {
        m_scratch.clear();
        Layout(text, x, y, m_scratch, m_data->pages.size() == 1 ? -1 : static_cast<int>(p));
        if (m_scratch.empty())
            continue;
        // A fresh store each time (the driver orphans the old one), so that
        // no draw waits for the one before it to finish reading.
        size_t const count = m_scratch.size() / 5;
        glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(m_scratch.size() * sizeof(float)), m_scratch.data(),
                     GL_STREAM_DRAW);
        glBindTexture(GL_TEXTURE_2D, m_data->pages[p].texture);
        glDrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(count));
    }
    glBindTexture(GL_TEXTURE_2D, 0);
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glDepthMask(depthMask);
    if (!blend)
        glDisable(GL_BLEND);
}

void QFont::ReleaseGL()
{
    for (TexturePage& page : m_data->pages)
        if (page.texture) {
            glDeleteTextures(1, &page.texture);
            page.texture = 0;
        }
    if (m_array) {
        glDeleteVertexArrays(1, &m_array);
        glDeleteBuffers(1, &m_buffer);
        m_array = m_buffer = 0;
    }
}

} // namespace QuickFont
