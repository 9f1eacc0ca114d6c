#include "python/OctreePicture.h"

#include "render/OctreeCamera.h"
#include "tez/OctreeCast.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

void CheckOptions(TezVoxelOctree const& tree, TezOctreePictureOptions const& o)
{
    if (tree.GetTreeSize() <= 0)
        throw std::runtime_error("render: the octree holds no nodes");
    if (o.width < 1 || o.width > 16384 || o.height < 1 || o.height > 16384)
        throw std::runtime_error("render: the size " + std::to_string(o.width) + "x" + std::to_string(o.height) +
                                 " is outside 1 to 16384");
    if (o.transparent && (o.layers < 1 || o.layers > 16))
        throw std::runtime_error("render: layers must be 1 to 16, not " + std::to_string(o.layers));
    if (o.view < 0 || o.view >= TezCameraView::StandardViewCount)
        throw std::runtime_error("render: unknown view " + std::to_string(o.view));
    for (size_t i = 0; i < o.points.size(); ++i) {
        TezVector2<float> const& p = o.points[i];
        if (!(p[0] >= 0 && p[0] <= 65535 && p[1] >= 0 && p[1] <= 1) || (i > 0 && p[0] <= o.points[i - 1][0]))
            throw std::runtime_error("render: the transfer function needs (x, y) points, x a data value rising "
                                     "from point to point, y from 0 to 1");
    }
}

} // namespace

TezOctreePicture TezRenderOctreePicture(TezRef<TezVoxelOctree> const& octree, TezOctreePictureOptions const& o)
{
    if (!octree)
        throw std::runtime_error("render: no octree");
    CheckOptions(*octree, o);
    TezOctreeCastOptions c = o;
    if (o.cutNormal.Length() > 0.0f) {
        c.cut = TezPlane<float>(o.cutPoint, o.cutNormal.Normalized());
        c.hasCut = true;
    }
    std::unique_ptr<TezOctreeCast> cast;
    try {
        cast = std::make_unique<TezOctreeCast>(TezCastOctree(octree, c));
    } catch (std::runtime_error const& error) {
        throw std::runtime_error(std::string("render: ") + error.what());
    }
    if (!cast->drawn)
        throw std::runtime_error("render: a render step failed; see the log");

    // The cast is bottom row first, as GL reads back.
    TezOctreePicture picture;
    std::vector<uint8_t> const image = TezComposeOctreeCast(*cast, c, picture.shownPixels);
    size_t const row = size_t(o.width) * 4;
    picture.rgba.resize(image.size());
    for (int y = 0; y < o.height; ++y)
        std::copy_n(&image[size_t(y) * row], row, &picture.rgba[size_t(o.height - 1 - y) * row]);
    return picture;
}
