#include "render/text/Glyph.h"

#include "core/Logger.h"
#include "render/text/detail/FontFace.h"

#include <GL/glew.h>
#include <GL/glu.h>
#include FT_OUTLINE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <sstream>

namespace {

constexpr double kPi = 3.14159265358979323846;

using Contour = TezGlyph::Contour;

// What the tessellator's callbacks write into: points (the contours' and
// those the tessellator adds where contours cross) and plain triangles.
struct Tessellation
{
    std::deque<TezVector3<double>> points;
    size_t contourPoints = 0;
    std::vector<unsigned> triangles;
    std::vector<unsigned> primitive;
    GLenum type = GL_TRIANGLES;
    unsigned code = 0;
    bool overflowLogged = false;
};

void GLAPIENTRY OnBegin(GLenum type, void* user)
{
    auto* t = static_cast<Tessellation*>(user);
    t->type = type;
    t->primitive.clear();
}

void GLAPIENTRY OnVertex(void* vertex, void* user)
{
    static_cast<Tessellation*>(user)->primitive.push_back(static_cast<unsigned>(reinterpret_cast<uintptr_t>(vertex)));
}

// Strips and fans become plain triangles, each wound as its primitive is.
void GLAPIENTRY OnEnd(void* user)
{
    auto* t = static_cast<Tessellation*>(user);
    std::vector<unsigned> const& v = t->primitive;
    if (t->type == GL_TRIANGLES) {
        for (size_t i = 0; i + 2 < v.size(); i += 3)
            t->triangles.insert(t->triangles.end(), {v[i], v[i + 1], v[i + 2]});
    } else if (t->type == GL_TRIANGLE_STRIP) {
        for (size_t i = 0; i + 2 < v.size(); ++i) {
            if (i % 2 == 0)
                t->triangles.insert(t->triangles.end(), {v[i], v[i + 1], v[i + 2]});
            else
                t->triangles.insert(t->triangles.end(), {v[i + 1], v[i], v[i + 2]});
        }
    } else if (t->type == GL_TRIANGLE_FAN) {
        for (size_t i = 1; i + 1 < v.size(); ++i)
            t->triangles.insert(t->triangles.end(), {v[0], v[i], v[i + 1]});
    }
    t->primitive.clear();
}

void GLAPIENTRY OnError(GLenum error, void* user)
{
    auto* t = static_cast<Tessellation*>(user);
    TezLogger::error("Error in GLU tesselation (of '%c'): %s\n", static_cast<char>(t->code),
                     reinterpret_cast<char const*>(gluErrorString(error)));
}

void GLAPIENTRY OnCombine(GLdouble coords[3], void* [4], GLfloat[4], void** out, void* user)
{
    auto* t = static_cast<Tessellation*>(user);
    if (t->points.size() - t->contourPoints >= 60 && !t->overflowLogged) {
        // Kept going all the same: the deque does not move its points.
        TezLogger::error("Combine Overflow\n");
        t->overflowLogged = true;
    }
    t->points.emplace_back(coords[0], coords[1], coords[2]);
    *out = reinterpret_cast<void*>(static_cast<uintptr_t>(t->points.size() - 1));
}

float SignedArea(Contour const& c)
{
    double a = 0;
    for (size_t i = 0; i < c.size(); ++i) {
        TezVector2<float> const& p = c[i];
        TezVector2<float> const& q = c[(i + 1) % c.size()];
        a += static_cast<double>(p.x) * q.y - static_cast<double>(q.x) * p.y;
    }
    return static_cast<float>(a * 0.5);
}

} // namespace

TezGlyph::~TezGlyph() = default; // GL names go with the shared context (see ReleaseGL)

void TezGlyph::SetAngle(double angleX, double angleY)
{
    m_angleX = angleX;
    m_angleY = angleY;
}

void TezGlyph::SetBezierDepth(int depth) { m_bezierDepth = std::clamp(depth, 1, 5); }

bool TezGlyph::Realize(unsigned code, tez_text::FontFace const& face)
{
    m_realized = false;
    m_code = code;
    m_points.clear();
    m_tags.clear();
    m_contourEnds.clear();
    unsigned const index = code < 256 ? face.GlyphIndex(static_cast<unsigned char>(code)) : 0;
    FT_Face ft = face.Get();
    if (index == 0 || FT_Load_Glyph(ft, index, FT_LOAD_NO_BITMAP | FT_LOAD_NO_HINTING) != 0 ||
        ft->glyph->format != FT_GLYPH_FORMAT_OUTLINE || ft->glyph->outline.n_contours <= 0)
        return false;
    // The platform's matrix (cos a, sin b; -sin a, cos b) has y down; in
    // FreeType's y-up frame the defaults (0, 180) are the identity.
    double const a = m_angleX * kPi / 180.0, b = m_angleY * kPi / 180.0;
    double const xx = std::cos(a), xy = std::sin(b), yx = std::sin(a), yy = -std::cos(b);
    FT_Outline const& outline = ft->glyph->outline;
    for (int i = 0; i < outline.n_points; ++i) {
        double const x = outline.points[i].x, y = outline.points[i].y;
        m_points.emplace_back(xx * x + xy * y, yx * x + yy * y);
        m_tags.push_back(static_cast<char>(FT_CURVE_TAG(outline.tags[i])));
    }
    for (int c = 0; c < outline.n_contours; ++c)
        m_contourEnds.push_back(outline.contours[c]);
    double xMin = 1e30, xMax = -1e30, yMin = 1e30, yMax = -1e30;
    for (TezVector2<double> const& p : m_points) {
        xMin = std::min(xMin, p.x);
        xMax = std::max(xMax, p.x);
        yMin = std::min(yMin, p.y);
        yMax = std::max(yMax, p.y);
    }
    double const unit = m_scale / 64.0;
    m_originX = static_cast<float>(xMin);
    m_width = static_cast<float>((xMax - xMin) * unit);
    m_yMin = static_cast<float>(yMin * unit);
    m_yMax = static_cast<float>(yMax * unit);
    m_realized = true;
    return true;
}

TezBox2<float> TezGlyph::GetBoundingRect(float x, float y) const
{
    if (!m_realized)
        return TezBox2<float>();
    return TezBox2<float>({x, y + m_yMin}, {x + m_width, y + m_yMax});
}

std::vector<Contour> TezGlyph::GetContourList() const
{
    std::vector<Contour> contours;
    if (!m_realized)
        return contours;
    double const unit = m_scale / 64.0;
    int const pieces = 1 << m_bezierDepth;
    auto add = [&](Contour& c, TezVector2<double> const& p) {
        TezVector2<float> const q(static_cast<float>((p.x - m_originX) * unit), static_cast<float>(p.y * unit));
        if (c.empty() || c.back().x != q.x || c.back().y != q.y)
            c.push_back(q);
    };
    int start = 0;
    for (int end : m_contourEnds) {
        int const n = end - start + 1;
        if (n < 2) {
            start = end + 1;
            continue;
        }
        auto point = [&](int i) { return m_points[start + ((i % n) + n) % n]; };
        auto tag = [&](int i) { return m_tags[start + ((i % n) + n) % n]; };
        // Start on an on-curve point; a contour of conic points alone
        // starts at the midpoint of its last and first.
        int first = 0;
        while (first < n && tag(first) != FT_CURVE_TAG_ON)
            ++first;
        TezVector2<double> pen;
        if (first == n) {
            pen = (point(-1) + point(0)) * 0.5;
            first = 0;
        } else {
            pen = point(first);
            ++first;
        }
        TezVector2<double> const begin = pen;
        Contour contour;
        add(contour, pen);
        for (int k = 0; k < n;) {
            int const i = first + k;
            char const t = tag(i);
            if (t == FT_CURVE_TAG_ON) {
                pen = point(i);
                add(contour, pen);
                ++k;
            } else if (t == FT_CURVE_TAG_CONIC) {
                TezVector2<double> const control = point(i);
                TezVector2<double> to;
                bool const last = k + 1 >= n;
                if (last)
                    to = begin;
                else if (tag(i + 1) == FT_CURVE_TAG_CONIC)
                    to = (control + point(i + 1)) * 0.5; // the implied on-curve midpoint
                else
                    to = point(i + 1);
                for (int s = 1; s <= pieces; ++s) {
                    double const u = static_cast<double>(s) / pieces, v = 1.0 - u;
                    add(contour, pen * (v * v) + control * (2 * u * v) + to * (u * u));
                }
                pen = to;
                k += (!last && tag(i + 1) == FT_CURVE_TAG_ON) ? 2 : 1;
            } else {
                // Cubic: two control points, then the end point.
                TezVector2<double> const c1 = point(i), c2 = point(i + 1);
                TezVector2<double> const to = k + 2 >= n ? begin : point(i + 2);
                for (int s = 1; s <= pieces; ++s) {
                    double const u = static_cast<double>(s) / pieces, v = 1.0 - u;
                    add(contour, pen * (v * v * v) + c1 * (3 * u * v * v) + c2 * (3 * u * u * v) + to * (u * u * u));
                }
                pen = to;
                k += 3;
            }
        }
        // Closed implicitly: drop a last point that repeats the first.
        while (contour.size() > 1 && contour.back().x == contour.front().x && contour.back().y == contour.front().y)
            contour.pop_back();
        if (contour.size() >= 3)
            contours.push_back(std::move(contour));
        start = end + 1;
    }
    return contours;
}

std::string TezGlyph::DumpContourList() const
{
    std::ostringstream out;
    for (Contour const& c : GetContourList()) {
        for (TezVector2<float> const& p : c)
            out << p.x << ',' << p.y << ' ';
        out << '\n';
    }
    return out.str();
}

void TezGlyph::TesselateFace(std::vector<Contour> const& contours, float z, bool up)
{
    Tessellation t;
    t.code = m_code;
    for (Contour const& c : contours)
        for (TezVector2<float> const& p : c)
            t.points.emplace_back(p.x, p.y, z);
    t.contourPoints = t.points.size();

    GLUtesselator* tess = gluNewTess();
    if (!tess)
        return;
    gluTessCallback(tess, GLU_TESS_BEGIN_DATA, reinterpret_cast<void(GLAPIENTRY*)()>(&OnBegin));
    gluTessCallback(tess, GLU_TESS_VERTEX_DATA, reinterpret_cast<void(GLAPIENTRY*)()>(&OnVertex));
    gluTessCallback(tess, GLU_TESS_END_DATA, reinterpret_cast<void(GLAPIENTRY*)()>(&OnEnd));
    gluTessCallback(tess, GLU_TESS_ERROR_DATA, reinterpret_cast<void(GLAPIENTRY*)()>(&OnError));
    gluTessCallback(tess, GLU_TESS_COMBINE_DATA, reinterpret_cast<void(GLAPIENTRY*)()>(&OnCombine));
    gluTessProperty(tess, GLU_TESS_WINDING_RULE, GLU_TESS_WINDING_ODD);
    gluTessProperty(tess, GLU_TESS_BOUNDARY_ONLY, GL_FALSE);
    gluTessNormal(tess, 0.0, 0.0, -1.0);
    gluTessBeginPolygon(tess, &t);
    size_t index = 0;
    for (Contour const& c : contours) {
        gluTessBeginContour(tess);
        for (size_t i = 0; i < c.size(); ++i, ++index)
            gluTessVertex(tess, &t.points[index].x, reinterpret_cast<void*>(static_cast<uintptr_t>(index)));
        gluTessEndContour(tess);
    }
    gluTessEndPolygon(tess);
    gluDeleteTess(tess);

    unsigned const base = static_cast<unsigned>(m_vertices.size() / 6);
    float const nz = up ? 1.0f : -1.0f;
    for (TezVector3<double> const& p : t.points)
        m_vertices.insert(m_vertices.end(),
                          {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z), 0.0f, 0.0f, nz});
    // Each triangle is wound to face its side, whatever order the
    // tessellator gave it.
    for (size_t i = 0; i + 2 < t.triangles.size(); i += 3) {
        unsigned a = t.triangles[i], b = t.triangles[i + 1], c = t.triangles[i + 2];
        TezVector3<double> const& p = t.points[a];
        TezVector3<double> const& q = t.points[b];
        TezVector3<double> const& r = t.points[c];
        double const cross = (q.x - p.x) * (r.y - p.y) - (q.y - p.y) * (r.x - p.x);
        if ((cross > 0) != up)
            std::swap(b, c);
        m_indices.insert(m_indices.end(), {base + a, base + b, base + c});
    }
}

bool TezGlyph::CreateMesh(float depth)
{
    if (!m_realized)
        return false;
    std::vector<Contour> const contours = GetContourList();
    m_vertices.clear();
    m_indices.clear();
    m_uploaded = false;
    TesselateFace(contours, -depth / 2, false);
    if (depth != 0) {
        TesselateFace(contours, depth / 2, true);
        m_faceIndices = m_indices.size();
        // The fill's own turning sense, from the largest contour (an outer
        // one): outwards is then edge x z for counter-clockwise fills.
        float largest = 0;
        for (Contour const& c : contours) {
            float const a = SignedArea(c);
            if (std::fabs(a) > std::fabs(largest))
                largest = a;
        }
        float const sense = largest >= 0 ? 1.0f : -1.0f;
        for (Contour const& c : contours) {
            for (size_t i = 0; i < c.size(); ++i) {
                TezVector2<float> const& p = c[i];
                TezVector2<float> const& q = c[(i + 1) % c.size()];
                float nx = (q.y - p.y) * sense, ny = -(q.x - p.x) * sense;
                float const length = std::sqrt(nx * nx + ny * ny);
                if (length <= 0)
                    continue;
                nx /= length;
                ny /= length;
                unsigned const base = static_cast<unsigned>(m_vertices.size() / 6);
                float const lo = -depth / 2, hi = depth / 2;
                m_vertices.insert(m_vertices.end(), {p.x, p.y, lo, nx, ny, 0, q.x, q.y, lo, nx, ny, 0,
                                                     q.x, q.y, hi, nx, ny, 0, p.x, p.y, hi, nx, ny, 0});
                if (sense > 0)
                    m_indices.insert(m_indices.end(), {base, base + 1, base + 2, base, base + 2, base + 3});
                else
                    m_indices.insert(m_indices.end(), {base, base + 2, base + 1, base, base + 3, base + 2});
            }
        }
    } else {
        m_faceIndices = m_indices.size();
    }
    return true;
}

void TezGlyph::DrawMesh(TezSceneDrawData const&)
{
    if (!m_realized || m_indices.empty())
        return;
    if (!m_uploaded) {
        if (!m_array) {
            glGenVertexArrays(1, &m_array);
            glGenBuffers(1, &m_vertexBuffer);
            glGenBuffers(1, &m_indexBuffer);
        }
        glBindVertexArray(m_array);
        glBindBuffer(GL_ARRAY_BUFFER, m_vertexBuffer);
        glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(m_vertices.size() * sizeof(float)), m_vertices.data(),
                     GL_STATIC_DRAW);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_indexBuffer);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(m_indices.size() * sizeof(unsigned)),
                     m_indices.data(), GL_STATIC_DRAW);
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 6 * sizeof(float), nullptr);
        glEnableVertexAttribArray(1);
        glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 6 * sizeof(float),
                              reinterpret_cast<void const*>(3 * sizeof(float)));
        glDisableVertexAttribArray(2);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        m_uploaded = true;
    } else {
        glBindVertexArray(m_array);
    }
    glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(m_indices.size()), GL_UNSIGNED_INT, nullptr);
    glBindVertexArray(0);
}

void TezGlyph::ReleaseGL()
{
    if (m_array) {
        glDeleteVertexArrays(1, &m_array);
        glDeleteBuffers(1, &m_vertexBuffer);
        glDeleteBuffers(1, &m_indexBuffer);
    }
    m_array = m_vertexBuffer = m_indexBuffer = 0;
    m_uploaded = false;
}
