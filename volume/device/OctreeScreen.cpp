#include "volume/device/OctreeScreen.h"

#include "volume/device/OctreeHostMarch.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace TezOctreeDevice {
namespace {

// Inverse of a 3 x 3 matrix (rows m[0..2]); false when it is singular.
bool Invert3(const double m[3][3], double out[3][3])
{
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    if (!(std::fabs(det) > 1e-300) || !std::isfinite(det))
        return false;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int i1 = (j + 1) % 3, i2 = (j + 2) % 3, j1 = (i + 1) % 3, j2 = (i + 2) % 3;
            out[i][j] = (m[i1][j1] * m[i2][j2] - m[i1][j2] * m[i2][j1]) / det;
        }
    return true;
}

} // namespace

ScreenProjector::ScreenProjector(const Camera& cam, const float* T)
{
    if (!T || cam.width <= 0 || cam.height <= 0)
        return;
    width_ = cam.width, height_ = cam.height;
    perspective_ = cam.perspective != 0;
    // Cube to world: the inverse of T's linear part (row vectors: p' = p L + t).
    double L[3][3];
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            L[i][j] = T[4 * i + j];
        shift_[i] = T[12 + i];
    }
    // Camera: a direction w in view terms is R w in world terms, R's rows the axes.
    const float3s axes[3] = {cam.axisX, cam.axisY, cam.axisZ};
    double R[3][3];
    for (int i = 0; i < 3; ++i)
        R[i][0] = axes[i].x, R[i][1] = axes[i].y, R[i][2] = axes[i].z;
    if (!Invert3(L, Linv_) || !Invert3(R, Rinv_))
        return;
    // The eye in cube terms, and cube to view terms: w = A (c - eye).
    for (int k = 0; k < 3; ++k)
        eyeCube_[k] = cam.eye.x * L[0][k] + cam.eye.y * L[1][k] + cam.eye.z * L[2][k] + shift_[k];
    double A[3][3], Ainv[3][3];
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k)
            A[i][k] = Rinv_[i][0] * Linv_[k][0] + Rinv_[i][1] * Linv_[k][1] + Rinv_[i][2] * Linv_[k][2];
    if (!Invert3(A, Ainv))
        return;
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k)
            viewToCube_ += Ainv[i][k] * Ainv[i][k];
    viewToCube_ = std::sqrt(viewToCube_);
    aspect_ = double(cam.width) / double(cam.height);
    h_ = std::tan(double(cam.fov) / 2.0);
    if (!(h_ > 0.0) || !std::isfinite(h_))
        return;
    eye_[0] = cam.eye.x, eye_[1] = cam.eye.y, eye_[2] = cam.eye.z;
    if (!perspective_) {
        const double D[3] = {cam.focus.x - eye_[0], cam.focus.y - eye_[1], cam.focus.z - eye_[2]};
        const double dist = std::sqrt(D[0] * D[0] + D[1] * D[1] + D[2] * D[2]);
        s_ = h_ * dist;
        for (int i = 0; i < 3; ++i)
            g_[i] = (Rinv_[i][0] * D[0] + Rinv_[i][1] * D[1] + Rinv_[i][2] * D[2]) / dist;
        if (!(std::fabs(g_[2]) > 1e-6) || !(s_ > 0.0))
            return;
    }
    valid_ = true;
}

double ScreenProjector::Distance(double cx, double cy, double cz) const
{
    const double c[3] = {cx - shift_[0], cy - shift_[1], cz - shift_[2]};
    double sum = 0.0;
    for (int j = 0; j < 3; ++j) {
        const double p = c[0] * Linv_[0][j] + c[1] * Linv_[1][j] + c[2] * Linv_[2][j] - eye_[j];
        sum += p * p;
    }
    return std::sqrt(sum);
}

void ScreenProjector::View(double cx, double cy, double cz, double (&w)[3]) const
{
    // The point in world terms, (c - t) L^-1, then in view terms.
    const double c[3] = {cx - shift_[0], cy - shift_[1], cz - shift_[2]};
    double p[3];
    for (int j = 0; j < 3; ++j)
        p[j] = c[0] * Linv_[0][j] + c[1] * Linv_[1][j] + c[2] * Linv_[2][j] - eye_[j];
    for (int i = 0; i < 3; ++i)
        w[i] = Rinv_[i][0] * p[0] + Rinv_[i][1] * p[1] + Rinv_[i][2] * p[2];
}

void ScreenProjector::Screen(const double (&w)[3], double& x, double& y) const
{
    const double u = w[0] / w[2] / h_, v = w[1] / w[2] / h_;
    x = (1.0 - u / aspect_) * width_ / 2.0 - 0.5, y = (v + 1.0) * height_ / 2.0 - 0.5;
}

double ScreenProjector::NearestT(const double (&lo)[3], const double (&hi)[3]) const
{
    // A perspective ray's t is the length of its point in view terms, at
    // least the cube distance over the largest stretch of view to cube.
    double sum = 0.0;
    for (int k = 0; k < 3; ++k) {
        const double d = std::max({lo[k] - eyeCube_[k], 0.0, eyeCube_[k] - hi[k]});
        sum += d * d;
    }
    return std::sqrt(sum) / viewToCube_;
}

double ScreenProjector::MaxSlope() const { return std::sqrt(1.0 + h_ * h_ * (1.0 + aspect_ * aspect_)); }

bool ScreenProjector::Project(double cx, double cy, double cz, double& x, double& y, double& depth) const
{
    double w[3];
    View(cx, cy, cz, w);
    double u, v;
    if (perspective_) {
        const double length = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
        depth = w[2];
        if (!(w[2] > 1e-6 * length))
            return false; // beside or behind the eye
        Screen(w, x, y);
        return std::isfinite(x) && std::isfinite(y) && std::isfinite(depth);
    } else {
        depth = w[2] / g_[2];
        u = (w[0] - g_[0] * depth) / s_, v = (w[1] - g_[1] * depth) / s_;
    }
    x = (1.0 - u / aspect_) * width_ / 2.0 - 0.5, y = (v + 1.0) * height_ / 2.0 - 0.5;
    return std::isfinite(x) && std::isfinite(y) && std::isfinite(depth);
}

double ScreenProjector::Pixels(double edge, double depth) const
{
    // The cube's diagonal in world terms, at most the sum of the world
    // lengths of its edges; a world length at view depth z spans
    // height / (2 z h) pixels (height / (2 s) orthographic).
    double diagonal = 0.0;
    for (int i = 0; i < 3; ++i)
        diagonal += edge * std::sqrt(Linv_[i][0] * Linv_[i][0] + Linv_[i][1] * Linv_[i][1] + Linv_[i][2] * Linv_[i][2]);
    return perspective_ ? diagonal * height_ / (2.0 * depth * h_) : diagonal * height_ / (2.0 * s_);
}

float ScreenProjector::RayT(int x, int y, float depth) const
{
    if (!perspective_)
        return depth;
    // SetUpRay's direction is (u, v, 1/h) / L in view terms: its view depth
    // grows by 1 / (h L) a unit of t.
    const double v = 2.0 * (y + 0.5) / height_ - 1.0;
    const double u = (1.0 - 2.0 * (x + 0.5) / width_) * aspect_;
    return static_cast<float>(depth * std::sqrt(u * h_ * u * h_ + v * h_ * v * h_ + 1.0));
}

PixelRect CubeOnScreen(const Camera& cam, const float* T)
{
    const PixelRect all{0, 0, cam.width, cam.height};
    const ScreenProjector projector(cam, T);
    if (!projector.Valid())
        return all;
    double minX = INFINITY, maxX = -INFINITY, minY = INFINITY, maxY = -INFINITY;
    for (int corner = 0; corner < 8; ++corner) {
        double x, y, depth;
        if (!projector.Project(corner & 1, (corner >> 1) & 1, (corner >> 2) & 1, x, y, depth))
            return all;
        minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
    }
    const auto clampTo = [](double v, int high) {
        return v < 0.0 ? 0 : (v > double(high) ? high : static_cast<int>(v));
    };
    PixelRect r{clampTo(std::floor(minX) - 2.0, cam.width), clampTo(std::floor(minY) - 2.0, cam.height),
                clampTo(std::ceil(maxX) + 3.0, cam.width), clampTo(std::ceil(maxY) + 3.0, cam.height)};
    if (r.x1 < r.x0)
        r.x1 = r.x0;
    if (r.y1 < r.y0)
        r.y1 = r.y0;
    return r;
}

bool StartBoxes::Make(const Camera& cam, const float* T, const Octree& oct, const float* table, bool inside)
{
    boxes_.clear();
    tileFirst_.clear();
    tileBoxes_.clear();
    projector_ = ScreenProjector(cam, T);
    if (!projector_.Valid() || !oct.nodes)
        return false;
    width_ = cam.width, height_ = cam.height;
    tilesX_ = (width_ + TileEdge - 1) / TileEdge, tilesY_ = (height_ + TileEdge - 1) / TileEdge;
    // The level limits of the view: the limit falls as t grows, and no ray
    // in the cube has t below the nearest corner's depth (0 where a corner
    // is not in front) or above the farthest corner's distance (its depth
    // in an orthographic view, where t is the depth).
    double nearDepth = INFINITY, farT = 0.0;
    for (int corner = 0; corner < 8; ++corner) {
        const double c[3] = {double(corner & 1), double((corner >> 1) & 1), double((corner >> 2) & 1)};
        double x, y, depth;
        if (!projector_.Project(c[0], c[1], c[2], x, y, depth))
            nearDepth = 0.0;
        nearDepth = std::min(nearDepth, depth);
        farT = std::max(farT, cam.perspective ? projector_.Distance(c[0], c[1], c[2]) : depth);
    }
    nearDepth = std::max(nearDepth, 0.0);
    lodHigh_ = LevelLimit(oct, static_cast<float>(nearDepth * 0.999));
    lodLow_ = std::isfinite(farT) ? LevelLimit(oct, static_cast<float>(farT * 1.001)) : 0;
    // Rounding of the march's points against the boxes': a voxel of the
    // finest level all round.
    margin_ = oct.treeSize > 0 ? 1.0 / oct.treeSize : 1.0 / 4096.0;
    // Nodes smaller on screen than a few pixels even at the cube's nearest
    // depth are taken together: a large tree seen whole would give more
    // boxes than pixels.
    boxLevel_ = PathLevels;
    if (nearDepth > 0.0 || !cam.perspective)
        for (int level = 0; level < PathLevels; ++level)
            if (projector_.Pixels(1.0 / double(2 << level), nearDepth) < MinBoxPixels) {
                boxLevel_ = std::max(0, level - 1);
                break;
            }
    // The root's eight children in parallel, joined in order.
    std::vector<Box> parts[8];
    tbb::parallel_for(
        0, 8, [&](int k) { Collect(oct, table, inside, 1 + k, 0, k & 1, (k >> 1) & 1, (k >> 2) & 1, parts[k]); });
    for (const std::vector<Box>& part : parts)
        boxes_.insert(boxes_.end(), part.begin(), part.end());
    // Bin by tile: counts, then places.
    tileFirst_.assign(size_t(tilesX_) * tilesY_ + 1, 0);
    const auto forTiles = [&](const Box& b, auto&& fn) {
        for (int ty = b.y0 / TileEdge; ty <= b.y1 / TileEdge; ++ty)
            for (int tx = b.x0 / TileEdge; tx <= b.x1 / TileEdge; ++tx)
                fn(ty * tilesX_ + tx);
    };
    for (const Box& b : boxes_)
        forTiles(b, [&](int tile) { ++tileFirst_[tile + 1]; });
    for (size_t k = 1; k < tileFirst_.size(); ++k)
        tileFirst_[k] += tileFirst_[k - 1];
    tileBoxes_.resize(tileFirst_.back());
    std::vector<uint32_t> fill(tileFirst_.begin(), tileFirst_.end() - 1);
    for (uint32_t i = 0; i < boxes_.size(); ++i)
        forTiles(boxes_[i], [&](int tile) { tileBoxes_[fill[tile]++] = i; });
    return true;
}

bool StartBoxes::Stops(const Octree& oct, const float* table, bool inside, const Node& node, int level,
                       bool childless) const
{
    // Where a descent can stop, the march's own verdict on the node.
    if (!childless && level < lodLow_)
        return false;
    if (!(node.children & TezNodeFlagBit))
        return (TableEntry(table, oct.valueScale, static_cast<float>(node.data)) >= OpaqueThreshold) != inside;
    return !(oct.skipByState && node.state == (inside ? TezNodeStateFull : TezNodeStateEmpty) &&
             (node.data & TezNodeFlagBit));
}

bool StartBoxes::AnyStops(const Octree& oct, const float* table, bool inside, int index, int level) const
{
    const Node& node = oct.nodes[index];
    const uint32_t children = node.children & TezNodeLowMask;
    const bool childless = children == 0 || level >= PathLevels;
    if (Stops(oct, table, inside, node, level, childless))
        return true;
    if (childless || level >= lodHigh_)
        return false;
    for (int k = 0; k < 8; ++k)
        if (AnyStops(oct, table, inside, static_cast<int>(children) + k, level + 1))
            return true;
    return false;
}

void StartBoxes::Collect(const Octree& oct, const float* table, bool inside, int index, int level, int nx, int ny,
                         int nz, std::vector<Box>& out) const
{
    const Node& node = oct.nodes[index];
    const uint32_t children = node.children & TezNodeLowMask;
    const bool childless = children == 0 || level >= PathLevels;
    if (Stops(oct, table, inside, node, level, childless)) {
        // A brick's walk can stop only in the blocks its mask marks: only
        // rays through their bounds need to start early for it. A march that
        // starts inside a brick it then walks through without a stop leaves
        // it as one that came in at its face.
        int blocks[6] = {0, 0, 0, 4, 4, 4};
        uint64_t mask = ~uint64_t(0);
        if ((node.children & TezNodeFlagBit) && (node.data & TezNodeFlagBit) && oct.skipByState && oct.blockMasks) {
            mask = oct.blockMasks[2 * size_t(node.data & TezNodeLowMask) + (inside ? 1 : 0)];
            blocks[0] = blocks[1] = blocks[2] = 4, blocks[3] = blocks[4] = blocks[5] = 0;
            for (uint64_t bits = mask; bits; bits &= bits - 1) {
                const int b = __builtin_ctzll(bits), at[3] = {b & 3, (b >> 2) & 3, b >> 4};
                for (int axis = 0; axis < 3; ++axis) {
                    blocks[axis] = std::min(blocks[axis], at[axis]);
                    blocks[axis + 3] = std::max(blocks[axis + 3], at[axis] + 1);
                }
            }
        }
        if (mask != 0)
            AddBox(level, nx, ny, nz, blocks, out);
        // Where a descent may also go below it, its children have boxes of
        // their own.
        if (childless || level >= lodHigh_)
            return;
    } else if (childless || level >= lodHigh_) {
        return;
    }
    if (!InView(level, nx, ny, nz))
        return; // nothing below can meet a ray of this view
    if (level >= boxLevel_) {
        for (int k = 0; k < 8; ++k)
            if (AnyStops(oct, table, inside, static_cast<int>(children) + k, level + 1)) {
                AddBox(level, nx, ny, nz, WholeNode, out);
                return;
            }
        return;
    }
    for (int k = 0; k < 8; ++k)
        Collect(oct, table, inside, static_cast<int>(children) + k, level + 1, 2 * nx + (k & 1),
                2 * ny + ((k >> 1) & 1), 2 * nz + ((k >> 2) & 1), out);
}

StartBoxes::Extent StartBoxes::Corners(int level, int nx, int ny, int nz, const int (&blocks)[6]) const
{
    const double cell = 1.0 / double(2 << level), block = cell / 4.0;
    const double origin[3] = {nx * cell, ny * cell, nz * cell};
    Extent e;
    for (int corner = 0; corner < 8; ++corner) {
        double at[3];
        for (int axis = 0; axis < 3; ++axis) {
            const bool high = (corner >> axis) & 1;
            at[axis] = origin[axis] + blocks[axis + (high ? 3 : 0)] * block + (high ? margin_ : -margin_);
        }
        double x, y, depth;
        const bool seen = projector_.Project(at[0], at[1], at[2], x, y, depth);
        e.beside = e.beside || !seen;
        e.inFront = e.inFront || seen || depth > 0.0;
        if (seen)
            e.Take(x, y, depth);
    }
    return e;
}

void StartBoxes::AddBox(int level, int nx, int ny, int nz, const int (&blocks)[6], std::vector<Box>& out) const
{
    // The pixels come from the part of the node its blocks bound, the depth
    // from the whole node, so that no march starts inside a node.
    const Extent whole = Corners(level, nx, ny, nz, WholeNode);
    Extent part = Corners(level, nx, ny, nz, blocks);
    part.minDepth = whole.minDepth;
    if (!whole.inFront)
        return; // behind the eye: no ray meets it
    if ((whole.beside || part.beside) && !AroundTheEye(level, nx, ny, nz, part)) {
        // The eye in it or at its face: any pixel's ray may meet it at once.
        out.push_back(Box{0, 0, width_ - 1, height_ - 1, 0.0f});
        return;
    }
    if (!(part.minX <= part.maxX))
        return; // no part in view
    Box b;
    const auto clampTo = [](double v, int high) { return static_cast<int>(std::min(std::max(v, -1.0), double(high))); };
    b.x0 = std::max(0, clampTo(std::floor(part.minX) - 1.0, width_));
    b.y0 = std::max(0, clampTo(std::floor(part.minY) - 1.0, height_));
    b.x1 = std::min(width_ - 1, clampTo(std::ceil(part.maxX) + 1.0, width_));
    b.y1 = std::min(height_ - 1, clampTo(std::ceil(part.maxY) + 1.0, height_));
    if (b.x0 > b.x1 || b.y0 > b.y1)
        return;
    b.depth = static_cast<float>(std::max(0.0, part.minDepth * (1.0 - 1e-6)));
    out.push_back(b);
}

bool StartBoxes::InView(int level, int nx, int ny, int nz) const
{
    // Whole behind the eye or off the screen (with the margins AddBox
    // gives); a node with a corner beside the eye counts as in view.
    const Extent e = Corners(level, nx, ny, nz, WholeNode);
    if (!e.inFront)
        return false;
    return e.beside || (e.maxX >= -2.0 && e.minX <= width_ + 1.0 && e.maxY >= -2.0 && e.minY <= height_ + 1.0);
}

bool StartBoxes::AroundTheEye(int level, int nx, int ny, int nz, Extent& e) const
{
    // A node reaching behind the eye: no ray meets it nearer than its
    // distance from the eye, nor, along the view, below that over the
    // steepest ray's slope. The part of the node beyond that depth (the
    // corners there and where its edges cross it) bounds its pixels.
    const double cell = 1.0 / double(2 << level);
    const double lo[3] = {nx * cell - margin_, ny * cell - margin_, nz * cell - margin_};
    const double hi[3] = {(nx + 1) * cell + margin_, (ny + 1) * cell + margin_, (nz + 1) * cell + margin_};
    const double nearest = projector_.NearestT(lo, hi);
    if (!(nearest > 0.0) || !std::isfinite(nearest))
        return false;
    const double cut = nearest / projector_.MaxSlope() * (1.0 - 1e-9);
    double w[8][3];
    for (int corner = 0; corner < 8; ++corner)
        projector_.View(corner & 1 ? hi[0] : lo[0], corner & 2 ? hi[1] : lo[1], corner & 4 ? hi[2] : lo[2], w[corner]);
    e = Extent{};
    const auto take = [&](const double(&p)[3]) {
        double x, y;
        projector_.Screen(p, x, y);
        e.Take(x, y, p[2]);
    };
    for (int a = 0; a < 8; ++a) {
        if (w[a][2] >= cut)
            take(w[a]);
        for (int axis = 0; axis < 3; ++axis) {
            const int b = a | (1 << axis);
            if (b == a || (w[a][2] >= cut) == (w[b][2] >= cut))
                continue;
            const double f = (cut - w[a][2]) / (w[b][2] - w[a][2]);
            const double p[3] = {w[a][0] + f * (w[b][0] - w[a][0]), w[a][1] + f * (w[b][1] - w[a][1]), cut};
            take(p);
        }
    }
    return true; // with no point of it in view, minX > maxX
}

void StartBoxes::TileStarts(int tx, int ty, float* starts) const
{
    std::fill(starts, starts + TileEdge * TileEdge, None);
    const int tile = (ty / TileEdge) * tilesX_ + tx / TileEdge;
    for (uint32_t k = tileFirst_[tile]; k < tileFirst_[tile + 1]; ++k) {
        const Box& b = boxes_[tileBoxes_[k]];
        const int x0 = std::max(b.x0, tx) - tx, x1 = std::min(b.x1, tx + TileEdge - 1) - tx;
        const int y0 = std::max(b.y0, ty) - ty, y1 = std::min(b.y1, ty + TileEdge - 1) - ty;
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x)
                starts[y * TileEdge + x] = std::min(starts[y * TileEdge + x], b.depth);
    }
    for (int y = 0; y < TileEdge; ++y)
        for (int x = 0; x < TileEdge; ++x) {
            float& s = starts[y * TileEdge + x];
            if (s != None && s > 0.0f)
                s = projector_.RayT(tx + x, ty + y, s) * (1.0f - 1e-5f);
        }
}

} // namespace TezOctreeDevice
