#include "python/OctreePicture.h"

#include "platform/DeviceBuffer.h"
#include "platform/DeviceMemory.h"
#include "render/OctreeCamera.h"
#include "volume/TransferFunction.h"
#include "volume/device/OctreeRender.h"
#include "volume/device/VoxelOctreeKernels.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace {

// Lowest and highest value in the data, from the octree's histogram (at 16
// bits to the width of its bins). False for an empty histogram.
bool DataRange(TezVoxelOctree const& tree, double& low, double& high)
{
    std::vector<float> const& histogram = tree.GetHistogram();
    double const unit = tree.GetBitsPerPixel() == 16 ? 256.0 : 1.0;
    int first = -1, last = -1;
    for (int i = 0; i < int(histogram.size()); ++i)
        if (histogram[size_t(i)] > 0.0f) {
            if (first < 0)
                first = i;
            last = i;
        }
    if (first < 0)
        return false;
    low = first * unit;
    high = last * unit + (unit - 1.0);
    return true;
}

std::vector<TezVector2<float>> DefaultPoints(TezVoxelOctree const& tree)
{
    double low = 0.0, high = 0.0;
    DataRange(tree, low, high);
    // A range of one value (a constant volume) counts from 0, so that it shows.
    double const base = high - low < 2.0 ? 0.0 : low;
    float const from = float(base + 0.30 * (high - base)), to = float(base + 0.32 * (high - base));
    return {{0.0f, 0.0f}, {from, 0.0f}, {std::max(to, from + 1.0f), 1.0f}};
}

// Data units to the table builder's 0..1 of the voxel type's range, flat
// beyond the given ends.
std::vector<TezVector2<float>> NormalisedPoints(std::vector<TezVector2<float>> const& points, int bits)
{
    float const top = bits == 16 ? 65535.0f : 255.0f;
    std::vector<TezVector2<float>> out;
    for (TezVector2<float> const& p : points) {
        float const x = std::min(p[0] / top, 1.0f);
        if (out.empty() && x > 0.0f)
            out.emplace_back(0.0f, p[1]);
        if (out.empty() || x > out.back()[0])
            out.emplace_back(x, p[1]);
    }
    if (out.back()[0] < 1.0f)
        out.emplace_back(1.0f, out.back()[1]);
    return out;
}

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

// Background, then the solid image or the layers back to front; top row first.
TezOctreePicture Compose(TezOctreeRenderBuffers& buffers, TezOctreePictureOptions const& o)
{
    static float const background[3] = {28.0f, 30.0f, 36.0f};
    std::vector<uint8_t> image = buffers.ReadImage();
    size_t const pixels = size_t(o.width) * size_t(o.height);
    std::vector<uint8_t> colours;
    std::vector<float> depths;
    if (o.transparent) {
        colours = buffers.ReadColourLayers();
        depths = buffers.ReadRayLayers();
    }
    TezOctreePicture picture;
    picture.rgba.resize(pixels * 4);
    size_t const row = size_t(o.width) * 4;
    for (size_t i = 0; i < pixels; ++i) {
        uint8_t const* px = &image[4 * i];
        float running[3] = {background[0], background[1], background[2]};
        if (o.transparent) {
            for (int k = o.layers - 1; k >= 0; --k) {
                size_t const at = size_t(k) * pixels + i;
                if (!(depths[at] > 0.0f))
                    continue;
                float const a = colours[4 * at + 3] / 255.0f;
                for (int c = 0; c < 3; ++c)
                    running[c] = a * colours[4 * at + c] + (1.0f - a) * running[c];
                ++picture.shownPixels;
            }
        } else if (px[3] != 0) {
            for (int c = 0; c < 3; ++c)
                running[c] = px[c];
            ++picture.shownPixels;
        }
        // The buffers are bottom row first, as GL reads back.
        size_t const y = i / size_t(o.width), x = i % size_t(o.width);
        uint8_t* out = &picture.rgba[(size_t(o.height) - 1 - y) * row + 4 * x];
        for (int c = 0; c < 3; ++c)
            out[c] = uint8_t(std::lround(running[c]));
        out[3] = 255;
    }
    return picture;
}

} // namespace

TezOctreePicture TezRenderOctreePicture(TezRef<TezVoxelOctree> const& octree, TezOctreePictureOptions const& o)
{
    if (!octree)
        throw std::runtime_error("render: no octree");
    TezVoxelOctree& tree = *octree;
    CheckOptions(tree, o);
    TezBox3<float> const bounds = tree.GetBounds();
    TezMatrix44<float> const matrix = TezScaleTransform<float>(float(tree.GetTreeSize()) * tree.GetVoxelSize());

    TezRef<TezCameraView> camera = TezCameraView::Create();
    camera->Resize(o.width, o.height);
    camera->UsePerspective(o.perspective);
    camera->FrameStandardView(bounds, o.view);

    // The opacity table where the kernels read it; node states for this very
    // table let the rays step over bricks that hold nothing they could hit.
    bool const onDevice = TezDeviceIsCuda();
    std::vector<float> const table = TezVolumeCreateTransferFunction(
        NormalisedPoints(o.points.empty() ? DefaultPoints(tree) : o.points, tree.GetBitsPerPixel()), 256);
    size_t const bytes = table.size() * sizeof(float);
    TezDeviceBuffer tableBuffer(bytes, 1, onDevice);
    if (tableBuffer.Upload(table.data(), bytes) != TezDeviceSuccess)
        throw std::runtime_error("render: cannot copy the transfer function to the device");
    float const* kernelTable = static_cast<float const*>(tableBuffer.Get());
    bool const states = TezVoxelOctreeCalculateNodeStates(octree, kernelTable);
    TezOctreeRenderSource source = TezMakeOctreeRenderSource(tree);
    source.statesValid = states;
    source.looks =
        TezOctreeDevice::LookFaceShading | TezOctreeDevice::LookCutShading | TezOctreeDevice::LookTableOpacity;

    TezPlane<float> plane;
    TezPlane<float> const* cut = nullptr;
    if (o.cutNormal.Length() > 0.0f) {
        plane = TezPlane<float>(o.cutPoint, o.cutNormal.Normalized());
        cut = &plane;
    }

    TezOctreeRenderBuffers buffers(o.width, o.height, o.transparent ? o.layers : 0, onDevice);
    TezOctreeRenderTarget const& target = buffers.GetTarget();
    TezOctreeDevice::Camera const record = TezMakeOctreeCamera(*camera);
    TezClearOctreeImage(target, 0);
    bool drawn = false;
    if (o.transparent) {
        TezClearOctreeDepth(target, 0xFF);
        TezClearOctreeLayers(target);
        drawn = TezRenderOctreeTransparent(target, source, record, matrix, o.colour, kernelTable, cut);
    } else {
        drawn = TezRenderOctreeSolid(target, source, record, matrix, o.colour, kernelTable, cut);
    }
    if (!drawn)
        throw std::runtime_error("render: a render step failed; see the log");
    return Compose(buffers, o);
}
