#pragma once
// The fonts of the text classes below their interface: one FreeType library
// for the process, font families found through fontconfig, and a face per
// resolved file and pixel size. Internal to render/text (it brings in
// FreeType's headers). No GL; no lock, as text runs on the thread that owns
// the context.
//
// A family that is not installed (the Windows names "Calibri", "Arial" and
// the like) resolves to fontconfig's closest match and logs one warning for
// that family; only a system without any scalable font makes ResolveFont
// throw std::runtime_error.

#include "platform/Api.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <memory>
#include <string>

namespace tez_text {

struct FontFile
{
    std::string path;
    int index = 0;
    std::string family; // the family of the file found
    bool exact = false; // the family asked for is the one found
};

TEZ_API FontFile ResolveFont(std::string const& family);

// A face at a size in pixels per em; closes itself.
class TEZ_API FontFace
{
public:
    // Throws std::runtime_error "FontFace: cannot open <path>" when FreeType
    // cannot read the file.
    FontFace(FontFile const& file, double pixelsPerEm);
    ~FontFace();
    FontFace(FontFace const&) = delete;
    FontFace& operator=(FontFace const&) = delete;

    FT_Face Get() const { return m_face; }
    FontFile const& File() const { return m_file; }
    // Glyph index of a byte of text, read as Latin-1; 0 when the font lacks it.
    unsigned GlyphIndex(unsigned char code) const;

private:
    FontFile m_file;
    FT_Face m_face = nullptr;
};

} // namespace tez_text
