#include "mesh/TriangleIntersection.h"

#include "mesh/IndexedMesh.h"

#include <algorithm>
#include <cmath>

namespace {

using Vec = TezVector3<float>;

// Distances to a plane closer than this are taken as zero.
constexpr float kPlaneEpsilon = 1e-6f;

Vec TriangleNormal(const Vec p[3])
{
    Vec e1 = p[1] - p[0];
    Vec e2 = p[2] - p[0];
    e1.Normalize();
    e2.Normalize();
    Vec n = e1 ^ e2;
    n.Normalize();
    return n;
}

void PlaneDistances(const Vec& normal, float offset, const Vec p[3], float d[3])
{
    for (int k = 0; k < 3; ++k) {
        d[k] = normal * p[k] + offset;
        if (std::fabs(d[k]) < kPlaneEpsilon)
            d[k] = 0.0f;
    }
}

bool AllOnOneSide(const float d[3]) { return d[0] * d[1] > 0.0f && d[0] * d[2] > 0.0f; }

// The corner alone on its side of the other plane (or on it while the other two
// are on one side); -1 when all three lie in the plane.
int LoneCorner(const float d[3])
{
    if (d[0] * d[1] > 0.0f)
        return 2;
    if (d[0] * d[2] > 0.0f)
        return 1;
    if (d[1] * d[2] > 0.0f || d[0] != 0.0f)
        return 0;
    if (d[1] != 0.0f)
        return 1;
    if (d[2] != 0.0f)
        return 2;
    return -1;
}

// One triangle's stretch of the line where the planes meet: its two ends, each
// on an edge that crosses the other plane, and their parameters along the line.
struct Interval
{
    TezTriangleSegmentEnd end[2];
    float t[2];
};

void ComputeInterval(const Vec p[3], const float d[3], int lone, int axis, int triangle, Interval& out)
{
    const int o1 = (lone + 1) % 3;
    const int o2 = (lone + 2) % 3;
    const float f1 = d[lone] / (d[lone] - d[o1]);
    const float f2 = d[lone] / (d[lone] - d[o2]);
    out.end[0] = {p[lone] + (p[o1] - p[lone]) * f1, triangle, lone};
    out.end[1] = {p[lone] + (p[o2] - p[lone]) * f2, triangle, o2};
    out.t[0] = out.end[0].point[axis];
    out.t[1] = out.end[1].point[axis];
    if (out.t[0] > out.t[1]) {
        std::swap(out.t[0], out.t[1]);
        std::swap(out.end[0], out.end[1]);
    }
}

float Orient(float ax, float ay, float bx, float by, float cx, float cy)
{
    return (bx - ax) * (cy - ay) - (by - ay) * (cx - ax);
}

struct Point2
{
    float x, y;
};

bool OnSegment(const Point2& p, const Point2& q, const Point2& r)
{
    return std::min(p.x, q.x) <= r.x && r.x <= std::max(p.x, q.x) && std::min(p.y, q.y) <= r.y &&
           r.y <= std::max(p.y, q.y);
}

bool SegmentsMeet(const Point2& p1, const Point2& p2, const Point2& q1, const Point2& q2)
{
    const float d1 = Orient(q1.x, q1.y, q2.x, q2.y, p1.x, p1.y);
    const float d2 = Orient(q1.x, q1.y, q2.x, q2.y, p2.x, p2.y);
    const float d3 = Orient(p1.x, p1.y, p2.x, p2.y, q1.x, q1.y);
    const float d4 = Orient(p1.x, p1.y, p2.x, p2.y, q2.x, q2.y);
    if (((d1 > 0 && d2 < 0) || (d1 < 0 && d2 > 0)) && ((d3 > 0 && d4 < 0) || (d3 < 0 && d4 > 0)))
        return true;
    return (d1 == 0 && OnSegment(q1, q2, p1)) || (d2 == 0 && OnSegment(q1, q2, p2)) ||
           (d3 == 0 && OnSegment(p1, p2, q1)) || (d4 == 0 && OnSegment(p1, p2, q2));
}

bool PointInTriangle(const Point2& p, const Point2 t[3])
{
    const float o0 = Orient(t[0].x, t[0].y, t[1].x, t[1].y, p.x, p.y);
    const float o1 = Orient(t[1].x, t[1].y, t[2].x, t[2].y, p.x, p.y);
    const float o2 = Orient(t[2].x, t[2].y, t[0].x, t[0].y, p.x, p.y);
    return (o0 >= 0 && o1 >= 0 && o2 >= 0) || (o0 <= 0 && o1 <= 0 && o2 <= 0);
}

bool CoplanarIntersect(const Vec& normal, const Vec a[3], const Vec b[3])
{
    // Project away the axis along which the normal is longest.
    const Vec n(std::fabs(normal.x), std::fabs(normal.y), std::fabs(normal.z));
    int i0 = 1, i1 = 2;
    if (n.x > n.y) {
        if (n.x <= n.z) {
            i0 = 0;
            i1 = 1;
        }
    } else if (n.z > n.y) {
        i0 = 0;
        i1 = 1;
    } else {
        i0 = 0;
        i1 = 2;
    }
    Point2 pa[3], pb[3];
    for (int k = 0; k < 3; ++k) {
        pa[k] = {a[k][i0], a[k][i1]};
        pb[k] = {b[k][i0], b[k][i1]};
    }
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (SegmentsMeet(pa[i], pa[(i + 1) % 3], pb[j], pb[(j + 1) % 3]))
                return true;
    return PointInTriangle(pa[0], pb) || PointInTriangle(pb[0], pa);
}

// The shared part of both forms. Returns false early on rejection; sets
// coplanar, and fills the two intervals when the triangles are not coplanar.
bool Classify(const Vec a[3], const Vec b[3], bool& coplanar, bool& hit, Interval& ia, Interval& ib)
{
    coplanar = false;
    hit = false;
    const Vec na = TriangleNormal(a);
    float db[3];
    PlaneDistances(na, -(na * a[0]), b, db);
    if (AllOnOneSide(db))
        return false;

    const Vec nb = TriangleNormal(b);
    float da[3];
    PlaneDistances(nb, -(nb * b[0]), a, da);
    if (AllOnOneSide(da))
        return false;

    const int loneA = LoneCorner(da);
    const int loneB = LoneCorner(db);
    if (loneA < 0 || loneB < 0) {
        coplanar = true;
        hit = CoplanarIntersect(na, a, b);
        return true;
    }

    const Vec line = na ^ nb;
    const int axis = line.Longest();
    ComputeInterval(a, da, loneA, axis, 0, ia);
    ComputeInterval(b, db, loneB, axis, 1, ib);
    hit = !(ia.t[0] > ib.t[1]) && !(ib.t[0] > ia.t[1]);
    return true;
}

} // namespace

bool TezTrianglesIntersect(const TezVector3<float> a[3], const TezVector3<float> b[3])
{
    bool coplanar = false, hit = false;
    Interval ia, ib;
    Classify(a, b, coplanar, hit, ia, ib);
    return hit;
}

bool TezTrianglesIntersect(const TezVector3<float> a[3], const TezVector3<float> b[3], bool& coplanar,
                           TezTriangleSegmentEnd& start, TezTriangleSegmentEnd& end)
{
    bool hit = false;
    Interval ia, ib;
    Classify(a, b, coplanar, hit, ia, ib);
    if (coplanar) {
        start.triangle = start.edge = end.triangle = end.edge = -1;
        return hit;
    }
    if (!hit)
        return false;
    // The overlap runs from the later of the two starts to the earlier of the two ends.
    start = ia.t[0] < ib.t[0] ? ib.end[0] : ia.end[0];
    end = ia.t[1] < ib.t[1] ? ia.end[1] : ib.end[1];
    return true;
}

namespace {

void Corners(const TezMeshTriangle& t, TezVector3<float> p[3])
{
    for (int k = 0; k < 3; ++k)
        p[k] = t.GetVertex(k).position;
}

} // namespace

bool TezMeshTrianglesIntersect(const TezMeshTriangle& a, const TezMeshTriangle& b)
{
    TezVector3<float> pa[3], pb[3];
    Corners(a, pa);
    Corners(b, pb);
    return TezTrianglesIntersect(pa, pb);
}

bool TezMeshTrianglesIntersect(const TezMeshTriangle& a, const TezMeshTriangle& b, bool& coplanar,
                               TezVector3<float>& start, int& startTriangle, int& startEdge, TezVector3<float>& end,
                               int& endTriangle, int& endEdge)
{
    TezVector3<float> pa[3], pb[3];
    Corners(a, pa);
    Corners(b, pb);
    TezTriangleSegmentEnd first{start, -1, -1}, last{end, -1, -1};
    bool const hit = TezTrianglesIntersect(pa, pb, coplanar, first, last);
    start = first.point;
    startTriangle = first.triangle;
    startEdge = first.edge;
    end = last.point;
    endTriangle = last.triangle;
    endEdge = last.edge;
    return hit;
}

bool TezMeshTriangle::Intersect(TezMeshTriangle const& a, TezMeshTriangle const& b)
{
    return TezMeshTrianglesIntersect(a, b);
}

bool TezMeshTriangle::Intersect(TezMeshTriangle const& a, TezMeshTriangle const& b, bool& coplanar,
                                TezVector3<float>& start, int& startTriangle, int& startEdge, TezVector3<float>& end,
                                int& endTriangle, int& endEdge)
{
    return TezMeshTrianglesIntersect(a, b, coplanar, start, startTriangle, startEdge, end, endTriangle, endEdge);
}
