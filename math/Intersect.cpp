#include "math/Intersect.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {
constexpr float kEpsf = 1e-6f;
}

template <class T>
int TezIntersect(const TezVector3<T>& start, const TezVector3<T>& direction, const TezVector3<T>& center, T radius,
                 TezVector2<T>& t, T tolerance)
{
    const TezVector3<T> d = start - center;
    const T b = d * direction;
    const T x = b * b - (d * d - radius * radius);
    if (x < 0)
        return 0;
    if (x < tolerance) {
        t[0] = -b;
        return 1;
    }
    const T s = std::sqrt(x);
    t[0] = -b - s;
    t[1] = s - b;
    return 2;
}

TezVector3<float> TezIntersect(const TezRay& ray, const TezVector3<float>& center, float radius)
{
    const TezVector3<float> d = ray.GetStart() - center;
    const float b = d * ray.GetDirection();
    const float t = std::sqrt(b * b - (d * d - radius * radius)) - b;
    return ray.PointOnRay(t);
}

bool TezIntersect(const TezRay& ray, const TezBox3<float>& box, TezVector2<float>& t, float tolerance)
{
    t = TezVector2<float>(-1e30f, 1e30f);
    const TezVector3<float>& s = ray.GetStart();
    const TezVector3<float>& d = ray.GetDirection();
    const TezVector3<float>& mn = box.GetMinimum();
    const TezVector3<float>& mx = box.GetMaximum();
    for (int i = 0; i < 3; ++i) {
        if (std::abs(d[i]) < kEpsf) {
            if (mn[i] - s[i] > tolerance || s[i] - mx[i] > tolerance)
                return false;
            continue;
        }
        float t0 = (mn[i] - tolerance - s[i]) / d[i];
        float t1 = (mx[i] + tolerance - s[i]) / d[i];
        if (t0 > t1)
            std::swap(t0, t1);
        t[0] = std::max(t[0], t0);
        t[1] = std::min(t[1], t1);
        if (t[0] > t[1] || t[1] < 0)
            return false;
    }
    return true;
}

bool TezIntersect(const TezRay& ray, const TezPlane<float>& plane, float& t, float tolerance)
{
    const float d = ray.GetDirection() * plane.GetNormal();
    if (std::abs(d) < kEpsf)
        return false;
    t = ((plane.GetRoot() - ray.GetStart()) * plane.GetNormal()) / d;
    return t >= -tolerance;
}

bool TezIntersect(const TezPlane<float>& plane, const TezBox3<float>& box, float tolerance)
{
    const TezVector3<float>& n = plane.GetNormal();
    const TezVector3<float> l = box.Length();
    const float r = (std::abs(n.x * l.x) + std::abs(n.y * l.y) + std::abs(n.z * l.z)) / 2;
    return std::abs(plane.Distance(box.Center())) <= r + tolerance;
}

bool TezIntersect(const TezPlane<float>& plane, const TezBox3<float>& box, std::vector<TezVector3<float>>& polygon,
                  float tolerance)
{
    polygon.clear();
    if (!TezIntersect(plane, box, tolerance))
        return false;
    // Where the plane crosses the twelve edges (corners on the plane count
    // once per edge and are merged below).
    float dist[8];
    TezVector3<float> corner[8];
    for (int c = 0; c < 8; ++c) {
        corner[c] = box.Corner(c & 1, c & 2, c & 4);
        dist[c] = plane.Distance(corner[c]);
    }
    std::vector<TezVector3<float>> pts;
    for (int c = 0; c < 8; ++c) {
        for (int axis = 0; axis < 3; ++axis) {
            const int o = c | (1 << axis);
            if (o == c)
                continue;
            const float da = dist[c], db = dist[o];
            if (da == 0)
                pts.push_back(corner[c]);
            if (db == 0)
                pts.push_back(corner[o]);
            if ((da < 0 && db > 0) || (da > 0 && db < 0))
                pts.push_back(corner[c] + (corner[o] - corner[c]) * (da / (da - db)));
        }
    }
    if (pts.empty())
        return true; // within tolerance but not crossing
    TezVector3<float> centre(0, 0, 0);
    for (const auto& p : pts)
        centre += p;
    centre = centre / static_cast<float>(pts.size());
    const TezVector3<float>& u = plane.GetUDirection();
    const TezVector3<float>& v = plane.GetVDirection();
    // Orientation of (u, v) relative to the normal decides the turning sense.
    const bool flip = ((u ^ v) * plane.GetNormal()) < 0;
    std::vector<std::pair<float, TezVector3<float>>> sorted;
    for (const auto& p : pts) {
        const TezVector3<float> d = p - centre;
        float a = std::atan2(d * v, d * u);
        sorted.emplace_back(flip ? -a : a, p);
    }
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    const float merge = 1e-5f * std::max(1.0f, box.Extents().Length());
    for (const auto& e : sorted)
        if (polygon.empty() || (polygon.back() - e.second).Length() > merge)
            polygon.push_back(e.second);
    while (polygon.size() > 1 && (polygon.back() - polygon.front()).Length() <= merge)
        polygon.pop_back();
    return true;
}

template <class T>
bool TezBoxBoxOverlap(const TezBox3<T>& box1, const TezBox3<T>& box2, const TezMatrix44<T>& m)
{
    if (box1.Empty() || box2.Empty())
        return false;
    // Each box as a centre and three half-axis vectors.
    const TezVector3<T> c1 = box1.Center();
    const TezVector3<T> h1 = box1.Extents() * T(0.5);
    const TezVector3<T> a1[3] = {TezVector3<T>(h1.x, 0, 0), TezVector3<T>(0, h1.y, 0), TezVector3<T>(0, 0, h1.z)};
    const TezVector3<T> c2 = m * box2.Center();
    const TezVector3<T> h2 = box2.Extents() * T(0.5);
    TezVector3<T> a2[3];
    for (int i = 0; i < 3; ++i)
        a2[i] = TezVector3<T>(m[i][0], m[i][1], m[i][2]) * h2[i];
    const TezVector3<T> d = c2 - c1;

    auto separated = [&](const TezVector3<T>& axis) {
        const T len = axis.Length();
        if (len < T(1e-6) * (T(1) + h1.Length() + h2.Length()))
            return false; // degenerate axis (parallel edges): no verdict
        T r1 = 0, r2 = 0;
        for (int i = 0; i < 3; ++i) {
            r1 += std::abs(axis * a1[i]);
            r2 += std::abs(axis * a2[i]);
        }
        return std::abs(axis * d) > r1 + r2;
    };
    const TezVector3<T> e1[3] = {TezVector3<T>(1, 0, 0), TezVector3<T>(0, 1, 0), TezVector3<T>(0, 0, 1)};
    TezVector3<T> e2[3];
    for (int i = 0; i < 3; ++i)
        e2[i] = TezVector3<T>(m[i][0], m[i][1], m[i][2]).Normalized();
    for (int i = 0; i < 3; ++i)
        if (separated(e1[i]))
            return false;
    // Face normals of the placed box (the transform may shear).
    const TezVector3<T> n2[3] = {e2[1] ^ e2[2], e2[2] ^ e2[0], e2[0] ^ e2[1]};
    for (int i = 0; i < 3; ++i)
        if (separated(n2[i]))
            return false;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (separated(e1[i] ^ e2[j]))
                return false;
    return true;
}

template <class T>
void TezGetProjectedPointSequence(const TezBox3<T>& box, const TezVector3<T>& direction,
                                  std::vector<TezVector3<T>>& points)
{
    points.clear();
    if (box.Empty() || direction.Length() < T(1e-6))
        return;
    const TezVector3<T> view = direction.Normalized();
    const TezVector3<T> u = view.Perpendicular();
    const TezVector3<T> v = view ^ u; // u x v = view
    TezVector3<T> corner[8];
    T px[8], py[8];
    for (int c = 0; c < 8; ++c) {
        corner[c] = box.Corner(c & 1, c & 2, c & 4);
        px[c] = corner[c] * u;
        py[c] = corner[c] * v;
    }
    // Gift wrapping over the eight projected corners: tiny, and the start at
    // the lowest index keeps the order fixed for each sign pattern. Corners
    // that project onto a hull edge (or onto another corner) are skipped.
    const T scale = std::max(T(1), box.Extents().Length());
    const T tol = T(1e-5) * scale * scale;
    int start = 0;
    for (int c = 1; c < 8; ++c)
        if (px[c] < px[start] - T(1e-6) * scale ||
            (std::abs(px[c] - px[start]) <= T(1e-6) * scale && py[c] < py[start]))
            start = c;
    int cur = start;
    for (int guard = 0; guard < 8; ++guard) {
        points.push_back(corner[cur]);
        int next = -1;
        for (int c = 0; c < 8; ++c) {
            if (std::abs(px[c] - px[cur]) + std::abs(py[c] - py[cur]) <= T(1e-6) * scale)
                continue;
            if (next < 0) {
                next = c;
                continue;
            }
            const T cross = (px[next] - px[cur]) * (py[c] - py[cur]) - (py[next] - py[cur]) * (px[c] - px[cur]);
            const T dn = (px[next] - px[cur]) * (px[next] - px[cur]) + (py[next] - py[cur]) * (py[next] - py[cur]);
            const T dc = (px[c] - px[cur]) * (px[c] - px[cur]) + (py[c] - py[cur]) * (py[c] - py[cur]);
            // Keep the most clockwise candidate; among collinear ones the farthest.
            if (cross < -tol || (std::abs(cross) <= tol && dc > dn))
                next = c;
        }
        if (next < 0 || next == start)
            break;
        cur = next;
    }
    // Rotate so that the lowest corner index comes first.
    std::vector<int> idx;
    for (const auto& p : points)
        for (int c = 0; c < 8; ++c)
            if (p == corner[c]) {
                idx.push_back(c);
                break;
            }
    const size_t first = std::min_element(idx.begin(), idx.end()) - idx.begin();
    std::rotate(points.begin(), points.begin() + first, points.end());
}

template <class T>
void TezGetClosestLineBoxPoints(const TezVector3<T>& start, const TezVector3<T>& direction, const TezBox3<T>& box,
                                TezVector3<T>& linePoint, TezVector3<T>& boxPoint)
{
    // The squared distance from the line point to the box is a convex,
    // piecewise quadratic function of t whose pieces change where the point
    // crosses a face plane; minimise each piece.
    const TezVector3<T>& mn = box.GetMinimum();
    const TezVector3<T>& mx = box.GetMaximum();
    const T dd = direction * direction;
    if (!(dd > T(0))) {
        linePoint = start;
        boxPoint = box.Closest(start);
        return;
    }
    std::vector<T> breaks;
    for (int i = 0; i < 3; ++i) {
        if (direction[i] != T(0)) {
            breaks.push_back((mn[i] - start[i]) / direction[i]);
            breaks.push_back((mx[i] - start[i]) / direction[i]);
        }
    }
    std::sort(breaks.begin(), breaks.end());
    auto dist2 = [&](T t) {
        const TezVector3<T> p = start + direction * t;
        const TezVector3<T> q = box.Closest(p);
        return (p - q) * (p - q);
    };
    // Minimum of the quadratic on the piece around tm, clamped to [lo, hi].
    auto pieceMin = [&](T lo, T hi, T tm) {
        const TezVector3<T> p = start + direction * tm;
        T a = 0, b = 0; // sum over outside axes of (p_i - face_i + d_i t)^2 -> a t^2 + 2 b t
        for (int i = 0; i < 3; ++i) {
            T face;
            if (p[i] < mn[i])
                face = mn[i];
            else if (p[i] > mx[i])
                face = mx[i];
            else
                continue;
            a += direction[i] * direction[i];
            b += direction[i] * (start[i] - face);
        }
        T t = a > T(0) ? -b / a : tm;
        return std::min(std::max(t, lo), hi);
    };
    const T big = std::numeric_limits<T>::max();
    T bestT = 0, best = big;
    std::vector<T> edges;
    edges.push_back(-big);
    edges.insert(edges.end(), breaks.begin(), breaks.end());
    edges.push_back(big);
    for (size_t k = 0; k + 1 < edges.size(); ++k) {
        const T lo = edges[k], hi = edges[k + 1];
        T tm;
        if (lo == -big && hi == big)
            tm = 0;
        else if (lo == -big)
            tm = hi - T(1);
        else if (hi == big)
            tm = lo + T(1);
        else
            tm = (lo + hi) / 2;
        const T t = pieceMin(lo, hi, tm);
        const T d2 = dist2(t);
        if (d2 < best) {
            best = d2;
            bestT = t;
        }
    }
    linePoint = start + direction * bestT;
    boxPoint = box.Closest(linePoint);
}

#define TEZ_INSTANTIATE(T)                                                                                             \
    template TEZ_API int TezIntersect<T>(const TezVector3<T>&, const TezVector3<T>&, const TezVector3<T>&, T,          \
                                         TezVector2<T>&, T);                                                           \
    template TEZ_API bool TezBoxBoxOverlap<T>(const TezBox3<T>&, const TezBox3<T>&, const TezMatrix44<T>&);            \
    template TEZ_API void TezGetProjectedPointSequence<T>(const TezBox3<T>&, const TezVector3<T>&,                     \
                                                          std::vector<TezVector3<T>>&);                                \
    template TEZ_API void TezGetClosestLineBoxPoints<T>(const TezVector3<T>&, const TezVector3<T>&, const TezBox3<T>&, \
                                                        TezVector3<T>&, TezVector3<T>&);
TEZ_INSTANTIATE(float)
TEZ_INSTANTIATE(double)
