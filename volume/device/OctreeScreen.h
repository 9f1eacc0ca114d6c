#pragma once
// Where the octree's cube and its nodes fall on a camera's screen, for the
// host loops. CubeOnScreen (OctreeLaunch.h) gives the pixels whose rays can
// meet the cube at all; StartBoxes gives, pixel by pixel, a distance along
// the ray before which it meets no node that could stop its march or be
// walked voxel by voxel. A march started there instead of at the cube's face
// steps through the same nodes from there on (each step lands one epsilon
// past the exit of the node it is in, wherever in the node it started), so
// it finds the same hit; only the last bits of t may differ.
//
// Host only: internal to the library's host loops and their tests.

#include "volume/device/OctreeLaunch.h"

#include <cstdint>
#include <vector>

namespace TezOctreeDevice {

// A point of the unit cube as the camera sees it. Pixel k's ray passes
// through screen coordinate k; depth is the view depth of the point
// (perspective) or the ray's t there (orthographic), in world units.
class TEZ_API ScreenProjector
{
public:
    ScreenProjector(const Camera& cam, const float* T);

    // False where the camera or the transform is degenerate.
    bool Valid() const { return valid_; }
    // False where the point is not in front of the eye; depth is set
    // either way.
    bool Project(double cx, double cy, double cz, double& x, double& y, double& depth) const;
    // A cube point in view terms (perspective: depth is w[2]), and a view
    // point in front of the eye on the screen.
    void View(double cx, double cy, double cz, double (&w)[3]) const;
    void Screen(const double (&w)[3], double& x, double& y) const;
    // Perspective: no ray meets the cube box [lo, hi] at a t below this.
    double NearestT(const double (&lo)[3], const double (&hi)[3]) const;
    // Perspective: the largest t a unit of view depth takes on any pixel's ray.
    double MaxSlope() const;
    // The world distance of a cube point from the eye.
    double Distance(double cx, double cy, double cz) const;
    // At most how many pixels across a cube of the given edge (in cube
    // terms) spans at view depth `depth`.
    double Pixels(double edge, double depth) const;
    // The t of pixel (x, y)'s ray where its view depth is `depth`.
    float RayT(int x, int y, float depth) const;

private:
    bool valid_ = false;
    bool perspective_ = true;
    int width_ = 0, height_ = 0;
    double Linv_[3][3]{}, Rinv_[3][3]{}, shift_[3]{}, eye_[3]{}, aspect_ = 1.0, h_ = 1.0, s_ = 0.0, g_[3]{0, 0, 1};
    double eyeCube_[3]{}, viewToCube_ = 0.0;
};

// Screen boxes of the nodes where a march may stop without stepping on:
// those that end it (a uniform value of the other side) or are walked
// voxel by voxel (a brick whose state does not allow stepping over it). A
// node is taken where the descents of the view's level limits can stop:
// childless, or at a level between the limits at the cube's near and far
// depths; of a brick with block masks, only the pixels of the part its
// blocks that can stop a walk bound. Where nodes are only a few pixels
// across, a node above them stands for all of them. Binned by 16 x 16
// pixel tile.
class TEZ_API StartBoxes
{
public:
    static constexpr int TileEdge = 16;
    // The start of a pixel whose ray meets no box.
    static constexpr float None = __builtin_huge_valf();

    // False (and nothing to use) where the camera or transform is degenerate.
    bool Make(const Camera& cam, const float* T, const Octree& oct, const float* table, bool inside);

    // starts[(y - ty) * TileEdge + (x - tx)] for the tile at (tx, ty) (a
    // multiple of TileEdge): a t no later than the first at which the pixel's
    // ray meets one of the boxes; None where it meets none.
    void TileStarts(int tx, int ty, float* starts) const;

    size_t BoxCount() const { return boxes_.size(); }

private:
    struct Box
    {
        int x0, y0, x1, y1; // pixels, inclusive
        float depth;
    };
    // Nodes under this many pixels across at the nearest depth are not boxed one by one.
    static constexpr double MinBoxPixels = 4.0;

    bool Stops(const Octree& oct, const float* table, bool inside, const Node& node, int level, bool childless) const;
    bool AnyStops(const Octree& oct, const float* table, bool inside, int index, int level) const;
    void Collect(const Octree& oct, const float* table, bool inside, int index, int level, int nx, int ny, int nz,
                 std::vector<Box>& out) const;
    // What the corners of a node's part (blocks: from and to, in quarters of
    // the node, per axis), widened by the margin, show: the box of their
    // screen points and their nearest depth, whether one is beside or behind
    // the eye and whether one is in front of it.
    struct Extent
    {
        double minX = __builtin_huge_val(), maxX = -__builtin_huge_val(), minY = __builtin_huge_val(),
               maxY = -__builtin_huge_val(), minDepth = __builtin_huge_val();
        bool inFront = false, beside = false;

        void Take(double x, double y, double depth)
        {
            minX = x < minX ? x : minX, maxX = x > maxX ? x : maxX;
            minY = y < minY ? y : minY, maxY = y > maxY ? y : maxY;
            minDepth = depth < minDepth ? depth : minDepth;
        }
    };
    static constexpr int WholeNode[6] = {0, 0, 0, 4, 4, 4};
    Extent Corners(int level, int nx, int ny, int nz, const int (&blocks)[6]) const;
    bool InView(int level, int nx, int ny, int nz) const;
    // The extent of a node reaching behind the eye; false where the eye is in it.
    bool AroundTheEye(int level, int nx, int ny, int nz, Extent& e) const;
    void AddBox(int level, int nx, int ny, int nz, const int (&blocks)[6], std::vector<Box>& out) const;

    ScreenProjector projector_{Camera{}, nullptr};
    int width_ = 0, height_ = 0, tilesX_ = 0, tilesY_ = 0;
    int lodLow_ = 0, lodHigh_ = 0, boxLevel_ = 0;
    double margin_ = 0.0;
    std::vector<Box> boxes_;
    std::vector<uint32_t> tileFirst_, tileBoxes_;
};

} // namespace TezOctreeDevice
