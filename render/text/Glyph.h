#pragma once
// TezGlyph: one character of solid text, a small extruded mesh built from
// the character's outline.
//
// Realize takes the outline from a FreeType face (no GL). GetContourList
// turns it into closed polygons in glyph units (font units x scale, the
// left edge of the inked box at x = 0, y up from the baseline), with each
// quadratic or cubic arc cut into 2^bezierDepth pieces. CreateMesh (no GL)
// triangulates the contours with GLU's tessellator by the odd winding rule,
// a face at z = -depth / 2 facing -z and, unless depth is 0, one at
// z = depth / 2 facing +z with the sides between them, wound outwards: the
// whole is a closed surface. DrawMesh uploads the lists on its first call
// (position at attribute 0, normal at attribute 1) and draws; it and
// ReleaseGL need the context current. A glyph without outline (a space)
// stays unrealized and draws nothing.

#include "math/Box.h"
#include "math/Vector.h"
#include "platform/Api.h"

#include <string>
#include <vector>

class TezSceneDrawData;

namespace tez_text {
class FontFace;
}

class TEZ_API TezGlyph
{
public:
    using Contour = std::vector<TezVector2<float>>;

    TezGlyph() = default;
    ~TezGlyph();
    TezGlyph(TezGlyph const&) = delete;
    TezGlyph& operator=(TezGlyph const&) = delete;

    // Takes the outline of `code` (a byte read as Latin-1) from the face;
    // false, leaving the glyph unrealized, when the font has no outline for it.
    bool Realize(unsigned code, tez_text::FontFace const& face);
    bool IsRealized() const { return m_realized; }
    // Builds the host mesh; false for an unrealized glyph.
    bool CreateMesh(float depth);
    void DrawMesh(TezSceneDrawData const& data);
    void ReleaseGL();

    // The inked box at the pen position (x, y), in glyph units.
    TezBox2<float> GetBoundingRect(float x = 0, float y = 0) const;
    std::vector<Contour> GetContourList() const;
    // Each contour's points, one line each, for logs.
    std::string DumpContourList() const;

    // Angles in degrees of the outline's 2 x 2 matrix; take effect at the
    // next Realize.
    void SetAngle(double angleX, double angleY);
    double GetAngleX() const { return m_angleX; }
    double GetAngleY() const { return m_angleY; }
    void SetScale(double scale) { m_scale = scale; }
    double GetScale() const { return m_scale; }
    // Clamped to 1 .. 5.
    void SetBezierDepth(int depth);
    int GetBezierDepth() const { return m_bezierDepth; }

    // Six floats a vertex (position, normal) and index triples.
    std::vector<float> const& GetVertices() const { return m_vertices; }
    std::vector<unsigned> const& GetIndices() const { return m_indices; }
    // Index count of the faces alone; the sides follow them.
    size_t GetNumFaceIndices() const { return m_faceIndices; }

private:
    void TesselateFace(std::vector<Contour> const& contours, float z, bool up);

    double m_angleX = 0;
    double m_angleY = 180;
    double m_scale = 1;
    int m_bezierDepth = 2;
    bool m_realized = false;
    unsigned m_code = 0;
    // The outline as FreeType gives it, in 26.6 units.
    std::vector<TezVector2<double>> m_points;
    std::vector<char> m_tags;
    std::vector<int> m_contourEnds;
    float m_originX = 0, m_width = 0, m_yMin = 0, m_yMax = 0;
    std::vector<float> m_vertices;
    std::vector<unsigned> m_indices;
    size_t m_faceIndices = 0;
    unsigned m_array = 0, m_vertexBuffer = 0, m_indexBuffer = 0;
    bool m_uploaded = false;
};
