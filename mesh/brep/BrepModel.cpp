#include "mesh/brep/BrepModel.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

using V2 = TezVector2<double>;
using V3 = TezVector3<double>;

namespace {

double Dot(V3 const& a, V3 const& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
double Length(V3 const& a) { return std::sqrt(Dot(a, a)); }
V3 Sub(V3 const& a, V3 const& b) { return V3(a.x - b.x, a.y - b.y, a.z - b.z); }

// The distinct knot values of the curve's or surface's range, in order.
std::vector<double> Breaks(std::vector<double> const& knots, int degree)
{
    std::vector<double> breaks;
    int const n = static_cast<int>(knots.size());
    if (n < 2 * degree + 2)
        return breaks;
    for (int i = degree; i <= n - degree - 1; ++i)
        if (breaks.empty() || knots[i] > breaks.back())
            breaks.push_back(knots[i]);
    return breaks;
}

// Parameters over the breaks, `perSpan` equal steps in each span.
std::vector<double> Subdivide(std::vector<double> const& breaks, int perSpan)
{
    std::vector<double> params;
    for (size_t s = 0; s + 1 < breaks.size(); ++s)
        for (int k = 0; k < perSpan; ++k)
            params.push_back(breaks[s] + (breaks[s + 1] - breaks[s]) * k / perSpan);
    if (!breaks.empty())
        params.push_back(breaks.back());
    return params;
}

// a + (b - a) i / n, exactly b at i = n.
double Lerp(double a, double b, int i, int n) { return i >= n ? b : a + (b - a) * i / n; }

int SegmentsPerSpan(int degree) { return degree <= 1 ? 1 : 4 * degree; }

std::vector<double> CurveKnots(TezBrepCurve const& curve)
{
    std::vector<double> knots(curve.GetNumKnots());
    for (int i = 0; i < curve.GetNumKnots(); ++i)
        knots[i] = curve.GetKnot(i);
    return knots;
}

std::vector<double> SurfaceKnots(TezNurbsSurface3<double> const& s, bool u)
{
    int const n = u ? s.GetNumKnotsU() : s.GetNumKnotsV();
    std::vector<double> knots(n);
    for (int i = 0; i < n; ++i)
        knots[i] = u ? s.GetKnotU(i) : s.GetKnotV(i);
    return knots;
}

// Closest points on a surface for points that lie on it (or nearly): a
// Gauss-Newton iteration from the best of a few starts, clamped to the
// surface's range.
class TezSurfacePullback
{
public:
    explicit TezSurfacePullback(TezNurbsSurface3<double> const& surface) : m_surface(surface)
    {
        m_u0 = surface.GetKnotU(surface.GetDegreeU());
        m_u1 = surface.GetKnotU(surface.GetNumCtrlPtsU());
        m_v0 = surface.GetKnotV(surface.GetDegreeV());
        m_v1 = surface.GetKnotV(surface.GetNumCtrlPtsV());
        if (!(m_u1 > m_u0) || !(m_v1 > m_v0))
            throw std::runtime_error("empty parameter range");
        int const seeds = 12;
        TezVector3<double> lo(1e300, 1e300, 1e300), hi(-1e300, -1e300, -1e300);
        for (int j = 0; j <= seeds; ++j) {
            for (int i = 0; i <= seeds; ++i) {
                V2 const uv(Lerp(m_u0, m_u1, i, seeds), Lerp(m_v0, m_v1, j, seeds));
                V3 const p = m_surface.Evaluate(uv.x, uv.y);
                m_seeds.push_back({uv, p});
                lo = V3(std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z));
                hi = V3(std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z));
            }
        }
        m_scale = std::max(Length(Sub(hi, lo)), 1e-12);
        m_tolerance = 1e-7 * m_scale;
        m_closedU = SidesMeet(true);
        m_closedV = SidesMeet(false);
    }

    double U0() const { return m_u0; }
    double U1() const { return m_u1; }
    double V0() const { return m_v0; }
    double V1() const { return m_v1; }
    bool ClosedU() const { return m_closedU; }
    bool ClosedV() const { return m_closedV; }
    double Scale() const { return m_scale; }

    // The parameters of the surface point nearest to p, starting at `guess`
    // when there is one, and from the nearest grid seeds when that fails.
    V2 Project(V3 const& p, V2 const* guess) const
    {
        double best = std::numeric_limits<double>::max();
        V2 bestUV;
        if (guess) {
            bestUV = Newton(p, *guess, best);
            if (best <= m_tolerance * 10)
                return bestUV;
        }
        // The three nearest seeds: a closed or folded surface can put a far
        // part of itself nearest in space.
        std::vector<std::pair<double, int>> order;
        order.reserve(m_seeds.size());
        for (size_t k = 0; k < m_seeds.size(); ++k)
            order.push_back({Length(Sub(m_seeds[k].point, p)), static_cast<int>(k)});
        std::partial_sort(order.begin(), order.begin() + std::min<size_t>(3, order.size()), order.end());
        for (size_t k = 0; k < std::min<size_t>(3, order.size()); ++k) {
            double d = 0;
            V2 const uv = Newton(p, m_seeds[order[k].second].uv, d);
            if (d < best) {
                best = d;
                bestUV = uv;
            }
            if (best <= m_tolerance * 10)
                break;
        }
        return bestUV;
    }

    // Whether the surface's first derivative along u (or v) vanishes at uv:
    // a pole, where u (or v) means nothing.
    bool SingularAt(V2 const& uv, bool alongU) const
    {
        V3 d[9];
        m_surface.Derivatives(uv.x, uv.y, 1, d);
        V3 const& derivative = alongU ? d[2] : d[1];
        double const span = alongU ? (m_u1 - m_u0) : (m_v1 - m_v0);
        return Length(derivative) * span < 1e-9 * m_scale;
    }

private:
    struct Seed
    {
        V2 uv;
        V3 point;
    };

    V2 Clamp(V2 uv) const { return V2(std::min(std::max(uv.x, m_u0), m_u1), std::min(std::max(uv.y, m_v0), m_v1)); }

    V2 Newton(V3 const& p, V2 uv, double& distance) const
    {
        uv = Clamp(uv);
        V3 d[4];
        for (int iteration = 0; iteration < 30; ++iteration) {
            m_surface.Derivatives(uv.x, uv.y, 1, d);
            V3 const r = Sub(d[0], p);
            V3 const& su = d[2];
            V3 const& sv = d[1];
            double const a = Dot(su, su), b = Dot(su, sv), c = Dot(sv, sv);
            double const f = Dot(r, su), g = Dot(r, sv);
            // Damped normal equations: a pole leaves one direction without
            // a derivative.
            double const damping = 1e-12 * (a + c) + 1e-300;
            double const det = (a + damping) * (c + damping) - b * b;
            if (!(std::abs(det) > 0))
                break;
            double const du = -((c + damping) * f - b * g) / det;
            double const dv = -((a + damping) * g - b * f) / det;
            V2 const next = Clamp(V2(uv.x + du, uv.y + dv));
            double const step = std::abs(next.x - uv.x) / (m_u1 - m_u0) + std::abs(next.y - uv.y) / (m_v1 - m_v0);
            uv = next;
            if (step < 1e-13)
                break;
        }
        distance = Length(Sub(m_surface.Evaluate(uv.x, uv.y), p));
        return uv;
    }

    // Whether the sides u = u0 and u = u1 (or v = v0 and v = v1) are the
    // same curve in space: the surface closes on itself there.
    bool SidesMeet(bool alongU) const
    {
        for (int k = 0; k <= 8; ++k) {
            double const t = alongU ? Lerp(m_v0, m_v1, k, 8) : Lerp(m_u0, m_u1, k, 8);
            V3 const a = alongU ? m_surface.Evaluate(m_u0, t) : m_surface.Evaluate(t, m_v0);
            V3 const b = alongU ? m_surface.Evaluate(m_u1, t) : m_surface.Evaluate(t, m_v1);
            if (Length(Sub(a, b)) > 1e-6 * m_scale)
                return false;
        }
        return true;
    }

    TezNurbsSurface3<double> const& m_surface;
    double m_u0 = 0, m_u1 = 1, m_v0 = 0, m_v1 = 1;
    double m_scale = 1, m_tolerance = 1e-7;
    bool m_closedU = false, m_closedV = false;
    std::vector<Seed> m_seeds;
};

using Piece = std::vector<TezBrepTrimPoint>;

// On a closed direction the parameters of consecutive points jump by the
// period where the curve crosses the seam; the jumps are taken out and the
// whole piece moved back into the range.
void Unwrap(Piece& piece, bool alongU, double lo, double hi)
{
    double const period = hi - lo;
    auto value = [&](TezBrepTrimPoint& p) -> double& { return alongU ? p.uv.x : p.uv.y; };
    for (size_t i = 1; i < piece.size(); ++i) {
        double const previous = value(piece[i - 1]);
        double& current = value(piece[i]);
        while (current - previous > period / 2)
            current -= period;
        while (current - previous < -period / 2)
            current += period;
    }
    double minimum = 1e300, maximum = -1e300;
    for (TezBrepTrimPoint& p : piece) {
        minimum = std::min(minimum, value(p));
        maximum = std::max(maximum, value(p));
    }
    double const eps = 1e-9 * period;
    double shift = 0;
    if (minimum < lo - eps)
        shift = period;
    else if (maximum > hi + eps)
        shift = -period;
    for (TezBrepTrimPoint& p : piece)
        value(p) += shift;
}

// A pole's parameter along the degenerate direction is arbitrary: it is
// taken from the neighbouring point, so that the loop runs straight into it.
void FixPoles(Piece& piece, TezSurfacePullback const& pullback)
{
    size_t const n = piece.size();
    if (n < 2)
        return;
    for (int along = 0; along < 2; ++along) {
        bool const alongU = along == 0;
        for (size_t i = 0; i < n; ++i) {
            if (!pullback.SingularAt(piece[i].uv, alongU))
                continue;
            size_t const neighbour = i == 0 ? 1 : i - 1;
            if (alongU)
                piece[i].uv.x = piece[neighbour].uv.x;
            else
                piece[i].uv.y = piece[neighbour].uv.y;
        }
    }
}

bool AllNear(Piece const& piece, bool alongU, double value, double eps)
{
    for (TezBrepTrimPoint const& p : piece)
        if (std::abs((alongU ? p.uv.x : p.uv.y) - value) > eps)
            return false;
    return true;
}

double SignedArea(Piece const& loop)
{
    double area = 0;
    for (size_t i = 0, n = loop.size(); i < n; ++i) {
        V2 const& a = loop[i].uv;
        V2 const& b = loop[(i + 1) % n].uv;
        area += a.x * b.y - b.x * a.y;
    }
    return area / 2;
}

bool Inside(Piece const& loop, V2 const& p)
{
    bool inside = false;
    for (size_t i = 0, n = loop.size(), j = n - 1; i < n; j = i++) {
        V2 const& a = loop[i].uv;
        V2 const& b = loop[j].uv;
        if ((a.y > p.y) != (b.y > p.y) && p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x)
            inside = !inside;
    }
    return inside;
}

} // namespace

TezVector3<double> TezBrepModelBrep::Transform(TezVector3<double> const& p) const
{
    double const* m = transform;
    double const w = m[12] * p.x + m[13] * p.y + m[14] * p.z + m[15];
    double const s = w != 0 ? 1 / w : 1;
    return V3((m[0] * p.x + m[1] * p.y + m[2] * p.z + m[3]) * s, (m[4] * p.x + m[5] * p.y + m[6] * p.z + m[7]) * s,
              (m[8] * p.x + m[9] * p.y + m[10] * p.z + m[11]) * s);
}

TezVector3<double> TezBrepModelBrep::TransformNormal(TezVector3<double> const& n) const
{
    // The inverse transpose of the linear part, up to a factor: its
    // cofactor matrix.
    double const* m = transform;
    double const a = m[0], b = m[1], c = m[2], d = m[4], e = m[5], f = m[6], g = m[8], h = m[9], i = m[10];
    V3 const r((e * i - f * h) * n.x + (f * g - d * i) * n.y + (d * h - e * g) * n.z,
               (c * h - b * i) * n.x + (a * i - c * g) * n.y + (b * g - a * h) * n.z,
               (b * f - c * e) * n.x + (c * d - a * f) * n.y + (a * e - b * d) * n.z);
    double const length = Length(r);
    return length > 0 ? V3(r.x / length, r.y / length, r.z / length) : n;
}

bool TezBrepModelBrep::IsIdentity() const
{
    static double const identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    return std::equal(transform, transform + 16, identity);
}

void TezBrepModelBrep::SampleEdges()
{
    if (m_localEdgePoints.size() == edges.size())
        return;
    m_localEdgePoints.assign(edges.size(), {});
    edgePoints.assign(edges.size(), {});
    for (size_t e = 0; e < edges.size(); ++e) {
        TezBrepCurve const& curve = edges[e];
        if (curve.GetNumCtrlPts() == 0)
            continue;
        std::vector<double> const params =
            Subdivide(Breaks(CurveKnots(curve), curve.GetDegree()), SegmentsPerSpan(curve.GetDegree()));
        std::vector<V3>& points = m_localEdgePoints[e];
        for (double t : params)
            points.push_back(curve.Evaluate(t));
        if (points.size() >= 2) {
            // The curve's ends may miss their vertex by up to the tolerance.
            double const reach = std::max(2 * tolerance, 1e-9 * (1 + Length(points.front())));
            for (V3* end : {&points.front(), &points.back()}) {
                double best = reach;
                for (V3 const& v : vertices) {
                    double const d = Length(Sub(v, *end));
                    if (d <= best) {
                        best = d;
                        *end = v;
                    }
                }
            }
        }
        for (V3 const& p : points)
            edgePoints[e].push_back(Transform(p));
    }
}

void TezBrepGridParams(TezNurbsSurface3<double> const& surface, std::vector<double>& us, std::vector<double>& vs)
{
    int const degreeU = surface.GetDegreeU(), degreeV = surface.GetDegreeV();
    std::vector<double> const breaksU = Breaks(SurfaceKnots(surface, true), degreeU);
    std::vector<double> const breaksV = Breaks(SurfaceKnots(surface, false), degreeV);
    bool const curved = degreeU > 1 || degreeV > 1;
    auto perSpan = [&](int degree, size_t breaks) {
        int const spans = std::max<int>(1, static_cast<int>(breaks) - 1);
        int per = SegmentsPerSpan(degree);
        // A curved face needs inner grid lines both ways, even along a
        // straight direction, so that its triangles stay near the surface.
        if (curved)
            per = std::max(per, (4 + spans - 1) / spans);
        return std::max(1, std::min(per, 256 / spans));
    };
    us = Subdivide(breaksU, perSpan(degreeU, breaksU.size()));
    vs = Subdivide(breaksV, perSpan(degreeV, breaksV.size()));
}

TezVector3<double> TezBrepSurfaceNormal(TezNurbsSurface3<double> const& surface, double u, double v, bool reversed,
                                        TezVector3<double>* point)
{
    double u0, u1, v0, v1;
    TezBrepSurfaceRange(surface, u0, u1, v0, v1);
    u = std::min(std::max(u, u0), u1);
    v = std::min(std::max(v, v0), v1);
    V3 d[4];
    surface.Derivatives(u, v, 1, d);
    if (point)
        *point = d[0];
    auto cross = [](V3 const& a, V3 const& b) {
        return V3(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
    };
    V3 n = cross(d[2], d[1]);
    double length = Length(n);
    if (length < 1e-14 * (1 + Dot(d[0], d[0]))) {
        double const uu = u + (u < (u0 + u1) / 2 ? 1 : -1) * 1e-5 * (u1 - u0);
        double const vv = v + (v < (v0 + v1) / 2 ? 1 : -1) * 1e-5 * (v1 - v0);
        V3 e[4];
        surface.Derivatives(uu, vv, 1, e);
        n = cross(e[2], e[1]);
        length = Length(n);
    }
    if (!(length > 0))
        return V3(0, 0, 1);
    double const s = (reversed ? -1.0 : 1.0) / length;
    return V3(n.x * s, n.y * s, n.z * s);
}

void TezBrepSurfaceRange(TezNurbsSurface3<double> const& surface, double& u0, double& u1, double& v0, double& v1)
{
    u0 = surface.GetKnotU(surface.GetDegreeU());
    u1 = surface.GetKnotU(surface.GetNumCtrlPtsU());
    v0 = surface.GetKnotV(surface.GetDegreeV());
    v1 = surface.GetKnotV(surface.GetNumCtrlPtsV());
}

std::vector<std::vector<TezBrepTrimPoint>> TezBrepFaceTrims(TezBrepModelBrep const& brep, int faceIndex)
{
    if (faceIndex < 0 || faceIndex >= static_cast<int>(brep.faces.size()))
        throw std::runtime_error("TezBrepFaceTrims: face " + std::to_string(faceIndex) + " out of range");
    TezBrepModelFace const& face = brep.faces[faceIndex];
    std::vector<Piece> loops;
    try {
        TezSurfacePullback const pullback(face.surface);
        double const du = pullback.U1() - pullback.U0(), dv = pullback.V1() - pullback.V0();
        auto const& samples = brep.EdgeSamples();

        // Each edge pulled back, seam edges twice: once on either side of
        // the parameter range.
        std::vector<Piece> pieces;
        for (int e : face.edges) {
            if (e < 0 || e >= static_cast<int>(samples.size()) || samples[e].size() < 2)
                continue;
            Piece piece;
            piece.reserve(samples[e].size());
            V2 last;
            for (size_t k = 0; k < samples[e].size(); ++k) {
                V2 const uv = pullback.Project(samples[e][k], k ? &last : nullptr);
                piece.push_back({uv, samples[e][k]});
                last = uv;
            }
            FixPoles(piece, pullback);
            if (pullback.ClosedU())
                Unwrap(piece, true, pullback.U0(), pullback.U1());
            if (pullback.ClosedV())
                Unwrap(piece, false, pullback.V0(), pullback.V1());
            pieces.push_back(piece);
            for (int along = 0; along < 2; ++along) {
                bool const alongU = along == 0;
                if (!(alongU ? pullback.ClosedU() : pullback.ClosedV()))
                    continue;
                double const lo = alongU ? pullback.U0() : pullback.V0();
                double const hi = alongU ? pullback.U1() : pullback.V1();
                double const eps = 1e-7 * (hi - lo);
                double shift = 0;
                if (AllNear(piece, alongU, lo, eps))
                    shift = hi - lo;
                else if (AllNear(piece, alongU, hi, eps))
                    shift = lo - hi;
                if (shift == 0)
                    continue;
                Piece copy = piece;
                for (TezBrepTrimPoint& p : copy)
                    (alongU ? p.uv.x : p.uv.y) += shift;
                pieces.push_back(copy);
            }
        }

        if (pieces.empty()) {
            // No edges: the whole surface.
            Piece whole;
            for (V2 const& uv : {V2(pullback.U0(), pullback.V0()), V2(pullback.U1(), pullback.V0()),
                                 V2(pullback.U1(), pullback.V1()), V2(pullback.U0(), pullback.V1())})
                whole.push_back({uv, face.surface.Evaluate(uv.x, uv.y)});
            loops.push_back(whole);
        }

        // Pieces joined end to start where they meet in space; of several
        // that meet there (the two sides of a seam), the one nearest in
        // parameter space. A gap in parameter space between points that
        // meet in space runs along a pole.
        double const tolerance = std::max(1e-5 * pullback.Scale(), 2 * brep.tolerance);
        auto uvDistance = [&](V2 const& a, V2 const& b) { return std::hypot((a.x - b.x) / du, (a.y - b.y) / dv); };
        std::vector<bool> used(pieces.size(), false);
        for (size_t start = 0; start < pieces.size(); ++start) {
            if (used[start])
                continue;
            used[start] = true;
            Piece loop = pieces[start];
            for (;;) {
                TezBrepTrimPoint const& end = loop.back();
                double best = 1e300;
                long bestPiece = -2; // -1: close the loop
                bool bestReversed = false;
                if (Length(Sub(loop.front().point, end.point)) <= tolerance && loop.size() > 2) {
                    best = uvDistance(loop.front().uv, end.uv);
                    bestPiece = -1;
                }
                for (size_t k = 0; k < pieces.size(); ++k) {
                    if (used[k])
                        continue;
                    for (int side = 0; side < 2; ++side) {
                        TezBrepTrimPoint const& candidate = side == 0 ? pieces[k].front() : pieces[k].back();
                        if (Length(Sub(candidate.point, end.point)) > tolerance)
                            continue;
                        double const d = uvDistance(candidate.uv, end.uv);
                        if (d < best) {
                            best = d;
                            bestPiece = static_cast<long>(k);
                            bestReversed = side == 1;
                        }
                    }
                }
                if (bestPiece < 0) {
                    // Closed, or open with no piece to follow: closed with a
                    // straight line either way.
                    if (Length(Sub(loop.front().point, loop.back().point)) <= tolerance &&
                        uvDistance(loop.front().uv, loop.back().uv) < 1e-9)
                        loop.pop_back();
                    break;
                }
                used[bestPiece] = true;
                Piece next = pieces[bestPiece];
                if (bestReversed)
                    std::reverse(next.begin(), next.end());
                // The shared end point once, unless a pole lies between.
                size_t const skip = uvDistance(next.front().uv, loop.back().uv) < 1e-9 ? 1 : 0;
                loop.insert(loop.end(), next.begin() + skip, next.end());
            }
            if (loop.size() >= 3)
                loops.push_back(loop);
        }
    } catch (std::runtime_error const& error) {
        throw std::runtime_error("TezBrepFaceTrims: face " + std::to_string(faceIndex) + ": " + error.what());
    }

    // Outer loops counter-clockwise, holes clockwise, by how deep each lies
    // in the others.
    for (size_t i = 0; i < loops.size(); ++i) {
        V2 const& a = loops[i][0].uv;
        V2 const& b = loops[i][1].uv;
        V2 const probe((a.x + b.x) / 2, (a.y + b.y) / 2);
        int depth = 0;
        for (size_t j = 0; j < loops.size(); ++j)
            if (j != i && Inside(loops[j], probe))
                ++depth;
        bool const outer = depth % 2 == 0;
        if ((SignedArea(loops[i]) > 0) != outer)
            std::reverse(loops[i].begin(), loops[i].end());
    }
    return loops;
}
