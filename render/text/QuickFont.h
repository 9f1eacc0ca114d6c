#pragma once
// QuickFont: flat text from font texture pages, laid out in pixels.
//
// Builder rasterises the characters of a configuration's set once with
// FreeType into texture pages (white, coverage in alpha) and QFontData keeps
// the result. Save writes it as "<base>.qfont" (plain text, below) with the
// pages beside it as "<base>.png", or "<base>_sheet_<n>.png" for several;
// Load reads them back and trusts nothing: counts, sizes, rectangles and the
// page images are checked, and any fault throws std::runtime_error so that
// the caller builds the font anew.
//
// The .qfont file: line 1 the number of pages, line 2 the number of
// characters, line 3 the integer 0, one line per page with its width and
// height, one line per character with the character (one byte), its page,
// rectangle x, y, width, height and y offset (from the top of the line to
// the top of the glyph), each field after one blank. Two fields more on a
// character line, the advance and the x offset from the pen, and a last line
// "metrics <ascender> <descender> <line height> <space advance>" hold what
// pixel-exact layout needs; a file without them still loads.
//
// QFont draws: its textures are made on the first Print with the context
// current, and Print writes quads (pixel offsets from "pixelPos" at
// attribute 0, texture coordinates at attribute 2) for the program bound
// now. Measuring needs no context.

#include "core/RefCounter.h"
#include "core/String.h"
#include "math/Box.h"

#include <string>
#include <vector>

namespace QuickFont {

TEZ_DECLARE_REF_FUNCTIONS(QFontBuilderConfiguration)
TEZ_DECLARE_REF_FUNCTIONS(QFontRenderOptions)
TEZ_DECLARE_REF_FUNCTIONS(QFontData)
TEZ_DECLARE_REF_FUNCTIONS(QFont)

class TEZ_API QFontBuilderConfiguration : public TezRefCounter
{
public:
    // `addDropShadow` attaches the small shadow record (kept, not drawn).
    static TezRef<QFontBuilderConfiguration> Create(bool addDropShadow = false);

    // Throws the fixed messages for a super-sample level outside 1..8, or
    // not a power of two while ForcePowerOfTwo is on.
    void Check() const;

    int superSampleLevels = 1;
    int pageMaxTextureSize = 1024;
    bool forcePowerOfTwo = true;
    int glyphMargin = 2;
    int textGenerationRenderHint = 2; // 0 or 3 for the hinted raster of small sizes
    std::string charSet;
    bool hasShadowConfig = false;
    float shadowScale = 1.0f;

protected:
    QFontBuilderConfiguration();
};

struct QFontGlyph
{
    int page = -1; // -1: not in the font
    int x = 0, y = 0, width = 0, height = 0;
    int yOffset = 0; // from the line's top down to the glyph's top
    int advance = 0; // pen step after the glyph
    int xOffset = 0; // from the pen to the glyph's left edge
};

// One page: width x height coverage bytes, row 0 at the top.
struct TexturePage
{
    int width = 0, height = 0;
    std::vector<unsigned char> alpha;
    unsigned texture = 0; // GL name once uploaded
};

class TEZ_API QFontData : public TezRefCounter
{
public:
    static TezRef<QFontData> Create();
    ~QFontData() override;

    // Writes "<base>.qfont" and the page images; false when any file cannot
    // be written (nothing is left half written under the final names).
    bool Save(std::string const& base) const;
    // Reads what Save wrote; throws "Could not open file", "Failed to parse
    // qfont file. Invalid format.", "Failed to load font from file. Glyphs
    // 'a' and 'b' overlap" or a message naming the page image at fault.
    static TezRef<QFontData> Load(std::string const& base);

    // Pixel width of the longest line of `text` with `spacing` pixels added
    // between characters; a character the font lacks counts nothing.
    float Measure(TezString const& text, float spacing) const;

    QFontGlyph glyphs[256];
    std::vector<TexturePage> pages;
    int ascender = 0, descender = 0, lineHeight = 0, spaceAdvance = 0;
    float maxCellWidth = 0; // the widest advance, the monospaced cell

protected:
    QFontData() = default;
};

// Builds a font's pages. The build count goes up by one per Build, so that
// callers can tell a cache hit from a rebuild.
class TEZ_API Builder
{
public:
    // The family resolves through fontconfig (see FontFace.h); `points` at
    // 96 dots per inch. Throws "Failed to fit font into texture pages" and
    // the configuration's messages.
    static TezRef<QFontData> Build(std::string const& family, double points, QFontBuilderConfiguration const& config);
    static long GetBuildCount();
};

class TEZ_API QFontRenderOptions : public TezRefCounter
{
public:
    enum Monospacing { Natural = 0, Yes = 1, No = 2 };
    static TezRef<QFontRenderOptions> Create();

    int monospacing = Natural;
    float monospacingSpacing = 0.0f; // extra pixels between characters
    bool pixelSnap = true;

protected:
    QFontRenderOptions() = default;
};

class TEZ_API QFont : public TezRefCounter
{
public:
    static TezRef<QFont> Create(TezRef<QFontData> data);
    ~QFont() override;

    // The cached font under `folder` (family "-PLAIN-" size), else a new
    // build that is written there, or, where the folder cannot be written,
    // under the per-user cache folder. A damaged cache is rebuilt and
    // overwritten. Throws only when the font cannot be built at all.
    static TezRef<QFont> Open(std::string const& family, int points, std::string const& folder);
    // The per-user cache folder: $XDG_CACHE_HOME/tezcore/fonts/, else
    // ~/.cache/tezcore/fonts/.
    static std::string UserCacheFolder();

    TezRef<QFontData> GetData() const { return m_data; }
    TezRef<QFontRenderOptions> GetOptions() const { return m_options.back(); }
    void PushOptions(TezRef<QFontRenderOptions> options);
    // Throws when only one options object is left.
    void PopOptions();

    float Measure(TezString const& text) const;
    // Pixel box of the inked area of `text` with its pen starting at (0, 0)
    // on the baseline, y up.
    TezBox2<float> MeasureInk(TezString const& text) const;
    // Appends the quads of `text`, pen at (x, y) on the baseline, y up:
    // six vertices of x, y, 0, u, v each per character; with `onlyPage`
    // the quads of that page alone.
    void Layout(TezString const& text, float x, float y, std::vector<float>& out, int onlyPage = -1) const;
    // Draws `text` with its pen at pixel offset (x, y) from "pixelPos";
    // needs the context current and the text program bound.
    void Print(TezString const& text, float x, float y);
    // Deletes the GL objects; the context must be current.
    void ReleaseGL();

protected:
    explicit QFont(TezRef<QFontData> data);

private:
    bool EnsureTextures();
    float Step(QFontGlyph const& glyph) const;

    TezRef<QFontData> m_data;
    std::vector<TezRef<QFontRenderOptions>> m_options;
    unsigned m_array = 0, m_buffer = 0;
    std::vector<float> m_scratch;
};

} // namespace QuickFont
