#include "render/text/detail/FontFace.h"

#include "core/Logger.h"

#include <fontconfig/fontconfig.h>

#include <cmath>
#include <set>
#include <stdexcept>
#include <strings.h>

namespace tez_text {

namespace {

FT_Library Library()
{
    static FT_Library library = [] {
        FT_Library lib = nullptr;
        if (FT_Init_FreeType(&lib) != 0)
            throw std::runtime_error("FontFace: FreeType cannot start");
        return lib;
    }();
    return library;
}

// Asked for a family fontconfig does not know, it still answers its best
// scalable font; the last resort is DejaVu's file at its usual place.
FontFile Match(std::string const& family)
{
    FontFile found;
    if (!FcInit())
        return found;
    FcPattern* pattern = FcNameParse(reinterpret_cast<FcChar8 const*>(family.c_str()));
    if (!pattern)
        return found;
    FcPatternAddBool(pattern, FC_SCALABLE, FcTrue);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    if (match) {
        FcChar8* file = nullptr;
        FcChar8* name = nullptr;
        int index = 0;
        if (FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch) {
            found.path = reinterpret_cast<char const*>(file);
            if (FcPatternGetInteger(match, FC_INDEX, 0, &index) == FcResultMatch)
                found.index = index;
            if (FcPatternGetString(match, FC_FAMILY, 0, &name) == FcResultMatch)
                found.family = reinterpret_cast<char const*>(name);
        }
        FcPatternDestroy(match);
    }
    FcPatternDestroy(pattern);
    return found;
}

} // namespace

FontFile ResolveFont(std::string const& family)
{
    FontFile found = Match(family);
    if (found.path.empty()) {
        found.path = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
        found.family = "DejaVu Sans";
        found.index = 0;
    }
    found.exact = strcasecmp(found.family.c_str(), family.c_str()) == 0;
    if (!found.exact) {
        static std::set<std::string> warned;
        if (warned.insert(family).second)
            TezLogger::warn("Font '%s' is not installed; using '%s' (%s)\n", family.c_str(), found.family.c_str(),
                            found.path.c_str());
    }
    return found;
}

FontFace::FontFace(FontFile const& file, double pixelsPerEm) : m_file(file)
{
    if (FT_New_Face(Library(), file.path.c_str(), file.index, &m_face) != 0 || !m_face) {
        m_face = nullptr;
        throw std::runtime_error("FontFace: cannot open " + file.path);
    }
    FT_Select_Charmap(m_face, FT_ENCODING_UNICODE);
    FT_F26Dot6 const size = static_cast<FT_F26Dot6>(std::lround(pixelsPerEm * 64.0));
    if (FT_Set_Char_Size(m_face, 0, size > 64 ? size : 64, 72, 72) != 0) {
        FT_Done_Face(m_face);
        m_face = nullptr;
        throw std::runtime_error("FontFace: cannot size " + file.path);
    }
}

FontFace::~FontFace()
{
    if (m_face)
        FT_Done_Face(m_face);
}

unsigned FontFace::GlyphIndex(unsigned char code) const { return FT_Get_Char_Index(m_face, code); }

} // namespace tez_text
