#include "render/text/Text3d.h"

#include "core/Logger.h"
#include "core/ResourceManager.h"
#include "platform/System.h"
#include "render/text/Glyph.h"
#include "render/text/QuickFont.h"
#include "render/text/detail/FontFace.h"

#include <GL/glew.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// One per font name, for the process.
struct TezFontRecord
{
    std::string family;
    std::string resolvedFamily;
    bool initialized = false;
    float depth = 1.5f;
    std::unique_ptr<TezGlyph> glyphs[256];
    std::vector<float> kerning; // empty, or 256 x 256
    float spaceWidth = 0;
    bool monospaced = false;
    double cellWidth = 0, heightAbove = 0, heightBelow = 0;
    double size = 12;
    TezRef<QuickFont::QFont> qfont;
};

namespace {

constexpr float kDegrees = 3.14159265358979323846f / 180.0f;

std::map<std::string, std::unique_ptr<TezFontRecord>>& Fonts()
{
    static std::map<std::string, std::unique_ptr<TezFontRecord>> fonts;
    return fonts;
}

std::vector<std::string> Split(std::string const& name)
{
    std::vector<std::string> fields;
    size_t start = 0;
    while (true) {
        size_t const comma = name.find(',', start);
        fields.push_back(name.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return fields;
}

std::string FontFolder()
{
    TezRef<TezResourceManager> manager = TezResourceManager::GetAppResourceManager();
    std::string root = manager ? manager->GetResourcePath().c_str() : TezGetExecutableDir();
    if (!root.empty() && root.back() != '/')
        root += '/';
    return root + TezTransformPath("fonts\\");
}

GLint CurrentProgram()
{
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    return program;
}

TezMatrix44<float> ReadMatrix(GLint program, char const* name)
{
    TezMatrix44<float> m = TezIdentityTransform<float>();
    GLint const location = program ? glGetUniformLocation(program, name) : -1;
    if (location >= 0) {
        float values[16];
        glGetUniformfv(program, location, values);
        m.FromArray(values);
    }
    return m;
}

void WriteMatrix(GLint program, char const* name, TezMatrix44<float> const& m)
{
    GLint const location = program ? glGetUniformLocation(program, name) : -1;
    if (location < 0)
        return;
    float values[16];
    m.Array(values);
    glUniformMatrix4fv(location, 1, GL_FALSE, values);
}

void WriteInt(GLint program, char const* name, int v)
{
    GLint const location = program ? glGetUniformLocation(program, name) : -1;
    if (location >= 0)
        glUniform1i(location, v);
}

} // namespace

TezText3d::TezText3d() : m_fontName("bitmap,Calibri,16") {}

TezText3d::~TezText3d() = default;

void TezText3d::SetDefFont(TezString const& name)
{
    m_fontName = name;
    m_font = nullptr;
    m_rawHeight = m_rawHeightAbove = m_rawHeightBelow = 0;
}

void TezText3d::SetFont(TezString const& name)
{
    SetDefFont(name);
    Resolve();
}

TezFontRecord* TezText3d::Resolve()
{
    if (m_font)
        return m_font;
    std::string const name = m_fontName.c_str() ? m_fontName.c_str() : "";
    auto& fonts = Fonts();
    auto found = fonts.find(name);
    if (found != fonts.end()) {
        m_font = found->second.get();
        if (m_font->qfont)
            SetFlatLayout(true);
        else
            m_flatLayout = false;
        return m_font;
    }
    auto record = std::make_unique<TezFontRecord>();
    std::vector<std::string> const fields = Split(name);
    if (fields.size() >= 3 && fields[0] == "bitmap") {
        SetFlatLayout(true);
        record->family = fields[1];
        long size = std::strtol(fields[2].c_str(), nullptr, 10);
        record->size = size <= 0 ? 12 : static_cast<double>(size);
        record->qfont = QuickFont::QFont::Open(record->family, static_cast<int>(record->size), FontFolder());
        record->qfont->GetOptions()->monospacing = fields.size() >= 4 && fields[3] == "mono"
                                                       ? QuickFont::QFontRenderOptions::Yes
                                                       : QuickFont::QFontRenderOptions::No;
        TezRef<QuickFont::QFontData> data = record->qfont->GetData();
        record->cellWidth = data->maxCellWidth;
        record->heightAbove = data->ascender;
        record->heightBelow = -data->descender;
        record->resolvedFamily = tez_text::ResolveFont(record->family).family;
    } else {
        record->family = fields[0];
        if (fields.size() >= 2) {
            int const size = std::stoi(fields[1]); // "mono" throws here, as it always has
            record->size = size <= 0 ? 12 : size;
            record->monospaced = fields[1] == "mono";
        }
        record->resolvedFamily = tez_text::ResolveFont(record->family).family;
        // Outline glyphs have no pixel form.
        m_flatLayout = false;
    }
    m_font = record.get();
    fonts.emplace(name, std::move(record));
    return m_font;
}

TezString TezText3d::GetResolvedFamily() { return TezString(Resolve()->resolvedFamily.c_str()); }

bool TezText3d::IsBitmapFont() { return Resolve()->qfont.Get() != nullptr; }

void TezText3d::CheckInitialization()
{
    TezFontRecord* font = Resolve();
    if (font->initialized || font->qfont)
        return;
    font->initialized = true;
    // Ten times the size, scaled back by 0.1: finer outlines at the same units.
    tez_text::FontFace face(tez_text::ResolveFont(font->family), font->size * 96.0 / 72.0 * 10.0);
    for (unsigned code = 0; code < 256; ++code) {
        auto glyph = std::make_unique<TezGlyph>();
        glyph->SetScale(0.1);
        if (glyph->Realize(code, face))
            glyph->CreateMesh(font->depth);
        font->glyphs[code] = std::move(glyph);
    }
    float digits = 0;
    for (char c = '0'; c <= '9'; ++c) {
        TezGlyph const& g = *font->glyphs[static_cast<unsigned char>(c)];
        if (g.IsRealized()) {
            TezVector2<float> const e = g.GetBoundingRect().Extents();
            digits += e.x;
        }
    }
    font->spaceWidth = digits / 10.0f;
    FT_Face ft = face.Get();
    if (FT_HAS_KERNING(ft)) {
        font->kerning.assign(256 * 256, 0.0f);
        unsigned index[256];
        for (unsigned c = 0; c < 256; ++c)
            index[c] = face.GlyphIndex(static_cast<unsigned char>(c));
        for (unsigned a = 32; a < 256; ++a) {
            if (!index[a])
                continue;
            for (unsigned b = 32; b < 256; ++b) {
                FT_Vector k{0, 0};
                if (index[b] && FT_Get_Kerning(ft, index[a], index[b], FT_KERNING_UNFITTED, &k) == 0 && k.x != 0)
                    font->kerning[a * 256 + b] = static_cast<float>(k.x / 64.0 * 0.1);
            }
        }
    }
    float above = 0, below = 0;
    for (auto const& g : font->glyphs)
        if (g->IsRealized()) {
            TezBox2<float> const box = g->GetBoundingRect();
            above = std::max(above, box.GetMaximum().y);
            below = std::max(below, -box.GetMinimum().y);
        }
    font->heightAbove = above;
    font->heightBelow = below;
}

float TezText3d::GetRawLength(TezString const& text)
{
    TezFontRecord* font = Resolve();
    if (font->qfont) {
        font->qfont->GetOptions()->monospacingSpacing = m_spacing * 0.5f;
        return font->qfont->Measure(text);
    }
    int const n = text.Length();
    if (font->monospaced)
        return static_cast<float>((n - 1) * font->cellWidth * m_spacing + n * font->cellWidth);
    CheckInitialization();
    float longest = 0, line = 0;
    char const* s = text.c_str();
    for (int i = 0; i < n; ++i) {
        unsigned char const c = static_cast<unsigned char>(s[i]);
        if (c == '\n') {
            longest = std::max(longest, line);
            line = 0;
            continue;
        }
        TezGlyph const& g = *font->glyphs[c];
        if (g.IsRealized()) {
            line += c == ' ' ? font->spaceWidth : g.GetBoundingRect().Extents().x;
            if (i + 1 < n && s[i + 1] != '\n') {
                line += font->spaceWidth * m_spacing;
                if (!font->kerning.empty())
                    line += font->kerning[c * 256 + static_cast<unsigned char>(s[i + 1])];
            }
        } else if (c == ' ') {
            line += font->spaceWidth;
        }
    }
    return std::max(longest, line);
}

float TezText3d::GetRawHeight()
{
    if (m_rawHeight == 0) {
        m_rawHeight = GetRawHeightAbove() + GetRawHeightBelow();
    }
    return m_rawHeight;
}

float TezText3d::GetRawHeightAbove()
{
    if (m_rawHeightAbove == 0) {
        CheckInitialization();
        m_rawHeightAbove = static_cast<float>(Resolve()->heightAbove);
    }
    return m_rawHeightAbove;
}

float TezText3d::GetRawHeightBelow()
{
    if (m_rawHeightBelow == 0) {
        CheckInitialization();
        m_rawHeightBelow = static_cast<float>(Resolve()->heightBelow);
    }
    return m_rawHeightBelow;
}

void TezText3d::SetFlipAngle(float angle, bool aboutViewAxis, bool keepBaseline)
{
    m_flipAngle = angle;
    m_flipAboutViewAxis = aboutViewAxis;
    m_flipKeepBaseline = keepBaseline;
}

void TezText3d::SetFlatLayout(bool flat)
{
    m_flatLayout = flat;
    if (flat) {
        m_scale = m_zScale = 1;
        m_xRotate = m_yRotate = m_zRotate = 0;
        m_aspect = 1;
        m_flipAngle = 1000;
    }
}

void TezText3d::SetTextPosition(TextPosition position)
{
    if (position < TextLeft || position >= TextPositionCount)
        throw std::runtime_error("TezText3d::SetTextPosition: no text position " +
                                 std::to_string(static_cast<int>(position)));
    m_textPosition = position;
}

TezVector2<float> TezText3d::AnchorOffset(TextPosition position, float length, float above, float below)
{
    float const middle = (above - below) * 0.5f; // the text's middle above the baseline
    switch (position) {
    case TextLeft:
        return {0, 0};
    case TextCenter:
        return {-length * 0.5f, 0};
    case TextRight:
        return {-length, 0};
    case TextAbove:
        return {-length * 0.5f, below};
    case TextBelow:
        return {-length * 0.5f, -above};
    case TextMiddle:
        return {-length * 0.5f, -middle};
    case TextMiddleLeft:
        return {0, -middle};
    case TextMiddleRight:
        return {-length, -middle};
    default:
        return {0, 0};
    }
}

void TezText3d::Print(TezSceneDrawData const& data, TezMatrix44<float> const& matrix, TezString const& text, float x,
                      float y, float z)
{
    TezFontRecord* font = Resolve();
    if (!m_flatLayout && font->qfont)
        m_flatLayout = true;
    CheckInitialization();
    GLint const program = CurrentProgram();
    if (!program || !text.c_str())
        return;
    TezMatrix44<float> const saved = ReadMatrix(program, "modelMatrix");
    TezMatrix44<float> const model = m_useIdentity ? TezIdentityTransform<float>() : matrix;
    WriteInt(program, "usePixelPos", m_flatLayout ? 1 : 0);
    if (m_flatLayout) {
        if (font->qfont) {
            TezMatrix44<float> const toClip =
                ReadMatrix(program, "projectionMatrix") * ReadMatrix(program, "viewMatrix") * model;
            TezVector4<float> const clip = toClip * TezVector4<float>(x, y, z, 1.0f);
            GLint viewport[4] = {0, 0, 1, 1};
            glGetIntegerv(GL_VIEWPORT, viewport);
            // Behind the eye: nothing to show.
            if (clip.w > 1e-6f) {
                float const px = (clip.x / clip.w * 0.5f + 0.5f) * viewport[2];
                float const py = (clip.y / clip.w * 0.5f + 0.5f) * viewport[3];
                float const length = GetRawLength(text);
                TezVector2<float> const offset =
                    AnchorOffset(m_textPosition, length, GetRawHeightAbove(), GetRawHeightBelow());
                GLint const pixelPos = glGetUniformLocation(program, "pixelPos");
                GLint const size = glGetUniformLocation(program, "viewport");
                glUniform3f(pixelPos, std::round(px), std::round(py), clip.z / clip.w);
                glUniform2f(size, static_cast<float>(viewport[2]), static_cast<float>(viewport[3]));
                font->qfont->Print(text, offset.x, offset.y);
            }
        }
    } else {
        TezMatrix44<float> rotate = TezRotationAboutZ<float>(m_zRotate * kDegrees) *
                                    TezRotationAboutY<float>(m_yRotate * kDegrees) *
                                    TezRotationAboutX<float>(m_xRotate * kDegrees);
        TezMatrix44<float> base = model * TezTranslationTransform<float>({x, y, z}) * rotate *
                                  TezAnisotropicTransform<float>({m_scale / m_aspect, m_scale, m_scale * m_zScale});
        float const length = GetRawLength(text);
        float const above = GetRawHeightAbove(), below = GetRawHeightBelow();
        if (m_flipAngle < 1000) {
            // The text's x axis on the screen; past the flip angle from the
            // screen's x it is turned round to read forwards.
            TezMatrix44<float> const toClip =
                ReadMatrix(program, "projectionMatrix") * ReadMatrix(program, "viewMatrix") * base;
            TezVector4<float> const o = toClip * TezVector4<float>(0, 0, 0, 1);
            TezVector4<float> const e = toClip * TezVector4<float>(1, 0, 0, 1);
            if (o.w > 1e-6f && e.w > 1e-6f) {
                float const dx = e.x / e.w - o.x / o.w, dy = e.y / e.w - o.y / o.w;
                float const angle = std::fabs(std::atan2(dy, dx)) / kDegrees;
                if (angle > m_flipAngle) {
                    float const cy = m_flipKeepBaseline ? 0.0f : (above - below) * 0.5f;
                    TezMatrix44<float> const turn = m_flipAboutViewAxis ? TezRotationAboutZ<float>(180 * kDegrees)
                                                                        : TezRotationAboutY<float>(180 * kDegrees);
                    // About the anchor's middle, so that the text stays in place.
                    base = base * TezTranslationTransform<float>({0, cy, 0}) * turn *
                           TezTranslationTransform<float>({0, -cy, 0});
                }
            }
        }
        TezVector2<float> const offset = AnchorOffset(m_textPosition, length, above, below);
        PrintSolid(base * TezTranslationTransform<float>({offset.x, offset.y, 0}), text, data);
    }
    WriteInt(program, "usePixelPos", 0);
    WriteMatrix(program, "modelMatrix", saved);
}

void TezText3d::PrintSolid(TezMatrix44<float> const& base, TezString const& text, TezSceneDrawData const& data)
{
    TezFontRecord* font = Resolve();
    GLint const program = CurrentProgram();
    float pen = 0, line = 0;
    float const lineStep = static_cast<float>(font->heightAbove + font->heightBelow) * 1.2f;
    char const* s = text.c_str();
    int const n = text.Length();
    for (int i = 0; i < n; ++i) {
        unsigned char const c = static_cast<unsigned char>(s[i]);
        if (c == '\n') {
            pen = 0;
            line -= lineStep;
            continue;
        }
        TezGlyph& g = *font->glyphs[c];
        if (g.IsRealized()) {
            if (c != ' ') {
                WriteMatrix(program, "modelMatrix", base * TezTranslationTransform<float>({pen, line, 0}));
                g.DrawMesh(data);
            }
            pen += c == ' ' ? font->spaceWidth : g.GetBoundingRect().Extents().x;
            if (i + 1 < n && s[i + 1] != '\n') {
                pen += font->spaceWidth * m_spacing;
                if (!font->kerning.empty())
                    pen += font->kerning[c * 256 + static_cast<unsigned char>(s[i + 1])];
            }
        } else if (c == ' ') {
            pen += font->spaceWidth;
        }
    }
}

void TezText3d::Print(TezSceneDrawData const&, TezString const& text, int x, int y)
{
    TezFontRecord* font = Resolve();
    if (!m_flatLayout || !font->qfont || !text.c_str())
        return;
    GLint const program = CurrentProgram();
    if (!program)
        return;
    GLint viewport[4] = {0, 0, 1, 1};
    glGetIntegerv(GL_VIEWPORT, viewport);
    WriteInt(program, "usePixelPos", 1);
    glUniform3f(glGetUniformLocation(program, "pixelPos"), static_cast<float>(x), static_cast<float>(y), -1.0f);
    glUniform2f(glGetUniformLocation(program, "viewport"), static_cast<float>(viewport[2]),
                static_cast<float>(viewport[3]));
    font->qfont->GetOptions()->monospacingSpacing = m_spacing * 0.5f;
    font->qfont->Print(text, 0, 0);
    WriteInt(program, "usePixelPos", 0);
}

void TezText3d::PrintWithShadow(TezSceneDrawData const& data, TezMatrix44<float> const& matrix, TezString const& text,
                                float x, float y, float z)
{
    TezFontRecord* font = Resolve();
    GLint const program = CurrentProgram();
    if (font->qfont || m_shadowType == ShadowNone || !program) {
        Print(data, matrix, text, x, y, z);
        return;
    }
    GLint const colorAt = glGetUniformLocation(program, "objectColor");
    GLint const shininessAt = glGetUniformLocation(program, "shininess");
    float color[4] = {1, 1, 1, 1};
    float shininess = 20;
    if (colorAt >= 0)
        glGetUniformfv(program, colorAt, color);
    if (shininessAt >= 0)
        glGetUniformfv(program, shininessAt, &shininess);
    float const d = m_shadowSize * GetRawHeightAbove() * m_scale;
    if (colorAt >= 0)
        glUniform4f(colorAt, color[0] * 0.2f, color[1] * 0.2f, color[2] * 0.2f, color[3] * m_shadowOpacity);
    if (shininessAt >= 0)
        glUniform1f(shininessAt, 1.0f);
    if (m_shadowType == ShadowDrop) {
        Print(data, matrix, text, x + d, y - d, z - d);
    } else {
        Print(data, matrix, text, x + d, y, z - d);
        Print(data, matrix, text, x - d, y, z - d);
    }
    if (colorAt >= 0)
        glUniform4fv(colorAt, 1, color);
    if (shininessAt >= 0)
        glUniform1f(shininessAt, shininess);
    Print(data, matrix, text, x, y, z);
}
