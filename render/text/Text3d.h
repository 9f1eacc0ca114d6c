#pragma once
// TezText3d: a piece of text that scene objects and widgets hold, flat or
// solid by its font name.
//
// A font name is a list of fields separated by commas. "bitmap,<family>,
// <size>[,mono]" is flat text: the font's texture pages (QuickFont), kept in
// the font folder "fonts/" under the resource manager's path (or the
// per-user cache folder when that cannot be written), drawn in pixels at
// the projected position. "<family>[,<size>]" is solid text: each character
// an extruded mesh (TezGlyph) of the outline, drawn in the world, its height
// in units of the size's pixels; resolving such a font turns the flat
// layout off, as a bitmap font turns it on. Families resolve through fontconfig to the
// installed font of that name or the closest one, with one warning; a size
// of 0 or below is 12. One font record per name lives for the process and is
// shared by all texts.
//
// Print draws through the program bound now (the "Scene Text Effect"),
// reading back and restoring its "modelMatrix"; it needs the context
// current. Measuring needs no context. SetFont throws std::runtime_error
// only where no font at all can be found; a second field "mono" of a solid
// font fails as a number does ("stoi").

#include "core/String.h"
#include "math/Box.h"
#include "math/Matrix.h"

class TezSceneDrawData;
struct TezFontRecord;

class TEZ_API TezText3d
{
public:
    // Where the position sits on the text.
    enum TextPosition {
        TextLeft = 0,    // left end of the baseline
        TextCenter,      // middle of the baseline
        TextRight,       // right end of the baseline
        TextAbove,       // the text centred above the point
        TextBelow,       // the text centred below the point
        TextMiddle,      // the middle of the text
        TextMiddleLeft,  // the middle of the left edge
        TextMiddleRight, // the middle of the right edge
        TextPositionCount
    };
    enum ShadowType { ShadowNone = 0, ShadowDrop, ShadowOutline };

    TezText3d();
    virtual ~TezText3d();

    void SetFont(TezString const& name);
    // Names the font without resolving it (that happens on first use).
    void SetDefFont(TezString const& name);
    TezString const& GetFontName() const { return m_fontName; }
    // The family of the file the font resolved to; resolves it.
    TezString GetResolvedFamily();
    bool IsBitmapFont();

    // Text at (x, y, z) in the frame of `matrix` (the identity with
    // SetUseIdentity), anchored by the text position.
    void Print(TezSceneDrawData const& data, TezMatrix44<float> const& matrix, TezString const& text, float x, float y,
               float z);
    // Flat text with its pen at window pixel (x, y), y up; nothing unless
    // the layout is flat.
    void Print(TezSceneDrawData const& data, TezString const& text, int x, int y);
    // Solid text printed with its shadow under it (ShadowDrop: once moved
    // down and right, darker; ShadowOutline: four times around it); flat
    // text as Print.
    void PrintWithShadow(TezSceneDrawData const& data, TezMatrix44<float> const& matrix, TezString const& text, float x,
                         float y, float z);

    float GetLength(TezString const& text) { return GetRawLength(text) * (m_scale / m_aspect); }
    float GetRawLength(TezString const& text);
    float GetHeight() { return GetRawHeight() * m_scale; }
    float GetHeightAbove() { return GetRawHeightAbove() * m_scale; }
    float GetHeightBelow() { return GetRawHeightBelow() * m_scale; }
    float GetRawHeight();
    float GetRawHeightAbove();
    float GetRawHeightBelow();

    float GetScale() const { return m_scale; }
    void SetScale(float scale) { m_scale = scale; }
    float GetZScale() const { return m_zScale; }
    void SetZScale(float scale) { m_zScale = scale; }
    float GetXRotate() const { return m_xRotate; }
    void SetXRotate(float degrees) { m_xRotate = degrees; }
    float GetYRotate() const { return m_yRotate; }
    void SetYRotate(float degrees) { m_yRotate = degrees; }
    float GetZRotate() const { return m_zRotate; }
    void SetZRotate(float degrees) { m_zRotate = degrees; }
    // Past `angle` degrees between the text's direction on the screen and
    // the screen's x axis the text turns round to read forwards: about its
    // up axis, or about its view axis with `aboutViewAxis`; `keepBaseline`
    // turns it about its baseline rather than its middle. 1000: never.
    float GetFlipAngle() const { return m_flipAngle; }
    void SetFlipAngle(float angle, bool aboutViewAxis = false, bool keepBaseline = false);
    bool GetFlipAboutViewAxis() const { return m_flipAboutViewAxis; }
    bool GetFlipKeepBaseline() const { return m_flipKeepBaseline; }
    float GetAspect() const { return m_aspect; }
    void SetAspect(float aspect) { m_aspect = aspect; }
    float GetSpacing() const { return m_spacing; }
    void SetSpacing(float spacing) { m_spacing = spacing; }
    bool GetFlatLayout() const { return m_flatLayout; }
    // Flat also resets scale, zScale, the rotations, aspect and flip angle.
    void SetFlatLayout(bool flat);
    bool GetUseIdentity() const { return m_useIdentity; }
    void SetUseIdentity(bool use) { m_useIdentity = use; }
    TextPosition GetTextPosition() const { return m_textPosition; }
    // Throws std::runtime_error for a value outside the enumeration.
    void SetTextPosition(TextPosition position);
    ShadowType GetShadowType() const { return m_shadowType; }
    void SetShadowType(ShadowType type) { m_shadowType = type; }
    float GetShadowSize() const { return m_shadowSize; }
    void SetShadowSize(float size) { m_shadowSize = size; }
    float GetShadowOpacity() const { return m_shadowOpacity; }
    void SetShadowOpacity(float opacity) { m_shadowOpacity = opacity; }

    // The offset of the pen from the anchor for a text of this length,
    // height above and below the baseline, by the text position.
    static TezVector2<float> AnchorOffset(TextPosition position, float length, float above, float below);

private:
    TezFontRecord* Resolve();
    void CheckInitialization();
    void PrintSolid(TezMatrix44<float> const& base, TezString const& text, TezSceneDrawData const& data);

    TezFontRecord* m_font = nullptr;
    TezString m_fontName;
    float m_scale = 1;
    float m_zScale = 1;
    float m_xRotate = 0, m_yRotate = 0, m_zRotate = 0;
    float m_flipAngle = 1000;
    bool m_flipAboutViewAxis = false, m_flipKeepBaseline = false;
    float m_aspect = 1;
    float m_spacing = 0.1f;
    bool m_flatLayout = true;
    bool m_useIdentity = false;
    float m_rawHeightAbove = 0, m_rawHeightBelow = 0, m_rawHeight = 0;
    TextPosition m_textPosition = TextLeft;
    ShadowType m_shadowType = ShadowNone;
    float m_shadowSize = 0.1f;
    float m_shadowOpacity = 1;
};
