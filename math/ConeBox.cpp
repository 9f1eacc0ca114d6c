#include "math/ConeBox.h"

#include <algorithm>
#include <cmath>

namespace {

using V3 = TezVector3<double>;

// Box corners in the cone frame, in double.
template <class T>
void ConeFrameCorners(const TezMatrix44<T>& inverse, const TezVector3<T>& mn, const TezVector3<T>& ext, V3 out[8])
{
    for (int c = 0; c < 8; ++c) {
        const TezVector3<T> p(mn.x + ((c & 1) ? ext.x : T(0)), mn.y + ((c & 2) ? ext.y : T(0)),
                              mn.z + ((c & 4) ? ext.z : T(0)));
        out[c] = V3(inverse * p);
    }
}

struct Frustum
{
    double h, r0, r1;

    // Farthest point in direction d: the better of the two end discs.
    V3 Support(const V3& d) const
    {
        const double lxy = std::sqrt(d.x * d.x + d.y * d.y);
        const double ux = lxy > 0 ? d.x / lxy : 0, uy = lxy > 0 ? d.y / lxy : 0;
        const double v0 = r0 * lxy, v1 = d.z * h + r1 * lxy;
        return v1 > v0 ? V3(r1 * ux, r1 * uy, h) : V3(r0 * ux, r0 * uy, 0);
    }
    // Extent of the projection onto axis d.
    void Project(const V3& d, double& lo, double& hi) const
    {
        hi = Support(d) * d;
        lo = -(Support(-d) * -d);
    }
};

double Scale(const V3 corners[8], const Frustum& f)
{
    double s = std::max({f.h, std::abs(f.r0), std::abs(f.r1)});
    for (int c = 0; c < 8; ++c)
        s = std::max(s, std::abs(corners[c].x) + std::abs(corners[c].y) + std::abs(corners[c].z));
    return s;
}

// Minimum-norm point of the convex hull of up to four points, by trying
// every face of the simplex; `keep` receives the bit mask of the face.
V3 MinNormPoint(const V3* p, int n, int& keep)
{
    V3 best(0, 0, 0);
    double bestNorm = -1;
    keep = 0;
    for (int mask = 1; mask < (1 << n); ++mask) {
        int idx[4] = {0, 0, 0, 0}, k = 0;
        for (int i = 0; i < n; ++i)
            if (mask & (1 << i))
                idx[k++] = i;
        // Affine minimiser: x = q0 + sum mu_j (q_j - q0), G mu = -E^T q0.
        const V3 q0 = p[idx[0]];
        V3 e[3];
        double g[3][3], rhs[3], mu[3] = {0, 0, 0};
        for (int j = 1; j < k; ++j)
            e[j - 1] = p[idx[j]] - q0;
        const int m = k - 1;
        for (int a = 0; a < m; ++a) {
            rhs[a] = -(e[a] * q0);
            for (int b = 0; b < m; ++b)
                g[a][b] = e[a] * e[b];
        }
        // Gaussian elimination with partial pivoting on the tiny system.
        bool singular = false;
        for (int c = 0; c < m && !singular; ++c) {
            int piv = c;
            for (int r = c + 1; r < m; ++r)
                if (std::abs(g[r][c]) > std::abs(g[piv][c]))
                    piv = r;
            if (std::abs(g[piv][c]) < 1e-300) {
                singular = true;
                break;
            }
            if (piv != c) {
                std::swap(g[piv], g[c]);
                std::swap(rhs[piv], rhs[c]);
            }
            for (int r = c + 1; r < m; ++r) {
                const double f = g[r][c] / g[c][c];
                for (int cc = c; cc < m; ++cc)
                    g[r][cc] -= f * g[c][cc];
                rhs[r] -= f * rhs[c];
            }
        }
        if (singular)
            continue;
        for (int r = m - 1; r >= 0; --r) {
            double s = rhs[r];
            for (int cc = r + 1; cc < m; ++cc)
                s -= g[r][cc] * mu[cc];
            mu[r] = s / g[r][r];
        }
        double lambda0 = 1;
        bool inside = true;
        for (int j = 0; j < m; ++j) {
            if (mu[j] <= 0)
                inside = false;
            lambda0 -= mu[j];
        }
        if (!inside || lambda0 <= 0)
            continue;
        V3 x = q0;
        for (int j = 0; j < m; ++j)
            x += e[j] * mu[j];
        const double nx = x * x;
        if (bestNorm < 0 || nx < bestNorm) {
            bestNorm = nx;
            best = x;
            keep = mask;
        }
    }
    if (bestNorm < 0) { // numerically degenerate: fall back to the nearest vertex
        int b = 0;
        for (int i = 1; i < n; ++i)
            if (p[i] * p[i] < p[b] * p[b])
                b = i;
        keep = 1 << b;
        best = p[b];
    }
    return best;
}

} // namespace

template <class T>
bool TezConeBoxOverlapApproximate(const TezMatrix44<T>& transform, const TezMatrix44<T>& inverse, T height,
                                  T startRadius, T endRadius, const TezBox3<T>& box)
{
    const T r = box.MinLength();
    const TezVector3<T> c = inverse * box.Center();
    if (c.z < -r || c.z > height + r)
        return false;
    T f = height > T(0) ? c.z / height : T(0);
    f = std::min(std::max(f, T(0)), T(1));
    const T coneR = startRadius + (endRadius - startRadius) * f;
    return std::sqrt(c.x * c.x + c.y * c.y) <= coneR + r;
}

template <class T>
bool TezConeBoxOverlapPrecision(const TezMatrix44<T>& transform, const TezMatrix44<T>& inverse, T height, T startRadius,
                                T endRadius, const TezBox3<T>& box)
{
    if (box.Empty())
        return false;
    return TezConeBoxOverlapPrecisionV3(transform, inverse, height, startRadius, endRadius, box.GetMinimum(),
                                        box.Extents());
}

template <class T>
bool TezConeBoxOverlapPrecisionV2(const TezMatrix44<T>& transform, const TezMatrix44<T>& inverse, T height,
                                  T startRadius, T endRadius, const TezVector3<T>& boxMinimum,
                                  const TezVector3<T>& boxExtents)
{
    V3 corner[8];
    ConeFrameCorners(inverse, boxMinimum, boxExtents, corner);
    const Frustum f{double(height), double(startRadius), double(endRadius)};
    const double tol = 1e-6 * Scale(corner, f);

    const V3 z(0, 0, 1);
    const V3 e[3] = {corner[1] - corner[0], corner[2] - corner[0], corner[4] - corner[0]};
    V3 centre(0, 0, 0);
    for (const V3& c : corner)
        centre += c * 0.125;
    V3 axes[20];
    int n = 0;
    axes[n++] = z;
    for (int i = 0; i < 3; ++i) {
        axes[n++] = e[i];
        axes[n++] = e[(i + 1) % 3] ^ e[(i + 2) % 3];
        axes[n++] = e[i] ^ z;
    }
    // Radial directions to the box centre and to the corner nearest the
    // axis, level and tilted to the normal of the cone's side there.
    int near = 0;
    for (int c = 1; c < 8; ++c)
        if (corner[c].x * corner[c].x + corner[c].y * corner[c].y <
            corner[near].x * corner[near].x + corner[near].y * corner[near].y)
            near = c;
    const double slope = f.h > 0 ? -(f.r1 - f.r0) / f.h : 0.0;
    for (const V3& p : {centre, corner[near]}) {
        const double rl = std::sqrt(p.x * p.x + p.y * p.y);
        if (rl > 0) {
            axes[n++] = V3(p.x / rl, p.y / rl, 0);
            axes[n++] = V3(p.x / rl, p.y / rl, slope);
        }
    }

    for (int a = 0; a < n; ++a) {
        const V3 d = axes[a];
        const double len = d.Length();
        if (len < 1e-12)
            continue;
        double blo = corner[0] * d, bhi = blo;
        for (int c = 1; c < 8; ++c) {
            const double v = corner[c] * d;
            blo = std::min(blo, v);
            bhi = std::max(bhi, v);
        }
        double clo, chi;
        f.Project(d, clo, chi);
        if (blo > chi + tol * len || clo > bhi + tol * len)
            return false;
    }
    return true;
}

template <class T>
bool TezConeBoxOverlapPrecisionV3(const TezMatrix44<T>& transform, const TezMatrix44<T>& inverse, T height,
                                  T startRadius, T endRadius, const TezVector3<T>& boxMinimum,
                                  const TezVector3<T>& boxExtents)
{
    V3 corner[8];
    ConeFrameCorners(inverse, boxMinimum, boxExtents, corner);
    const Frustum f{double(height), double(startRadius), double(endRadius)};
    const double tol = 1e-6 * Scale(corner, f);

    // Support of the Minkowski difference box - cone.
    auto support = [&](const V3& d) {
        int b = 0;
        double bv = corner[0] * d;
        for (int c = 1; c < 8; ++c) {
            const double v = corner[c] * d;
            if (v > bv) {
                bv = v;
                b = c;
            }
        }
        return corner[b] - f.Support(-d);
    };

    V3 centre(0, 0, 0);
    for (const V3& c : corner)
        centre += c * 0.125;
    V3 simplex[4];
    int n = 1;
    simplex[0] = support(V3(centre.x, centre.y, centre.z - f.h / 2));
    V3 v = simplex[0];
    for (int iter = 0; iter < 64; ++iter) {
        const double vv = v * v;
        if (vv <= tol * tol)
            return true; // origin on (or within tol of) the difference set
        const V3 w = support(-v);
        const double len = std::sqrt(vv);
        // The plane through w normal to v bounds the whole set away from the
        // origin: a certificate of separation.
        if (w * v > tol * len)
            return false;
        // No more progress towards the origin: the distance is below tol.
        if (vv - (w * v) <= 1e-12 * vv)
            return true;
        simplex[n++] = w;
        int keep;
        v = MinNormPoint(simplex, n, keep);
        int k = 0;
        for (int i = 0; i < n; ++i)
            if (keep & (1 << i))
                simplex[k++] = simplex[i];
        n = k;
        if (n == 4)
            return true; // origin inside the tetrahedron
    }
    return true;
}

#define TEZ_INSTANTIATE(T)                                                                                             \
    template TEZ_API bool TezConeBoxOverlapApproximate<T>(const TezMatrix44<T>&, const TezMatrix44<T>&, T, T, T,       \
                                                          const TezBox3<T>&);                                          \
    template TEZ_API bool TezConeBoxOverlapPrecision<T>(const TezMatrix44<T>&, const TezMatrix44<T>&, T, T, T,         \
                                                        const TezBox3<T>&);                                            \
    template TEZ_API bool TezConeBoxOverlapPrecisionV2<T>(const TezMatrix44<T>&, const TezMatrix44<T>&, T, T, T,       \
                                                          const TezVector3<T>&, const TezVector3<T>&);                 \
    template TEZ_API bool TezConeBoxOverlapPrecisionV3<T>(const TezMatrix44<T>&, const TezMatrix44<T>&, T, T, T,       \
                                                          const TezVector3<T>&, const TezVector3<T>&);
TEZ_INSTANTIATE(float)
TEZ_INSTANTIATE(double)
