#include "tez/OctreeCast.h"

#include "platform/DeviceBuffer.h"
#include "platform/DeviceMemory.h"
#include "render/OctreeCamera.h"
#include "volume/TransferFunction.h"
#include "volume/device/VoxelOctreeKernels.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

bool TezOctreeDataRange(std::vector<float> const& histogram, int bits, double& low, double& high)
{
    double const unit = bits == 16 ? 256.0 : 1.0;
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

bool TezOctreeDataRange(TezVoxelOctree const& tree, double& low, double& high)
{
    return TezOctreeDataRange(tree.GetHistogram(), tree.GetBitsPerPixel(), low, high);
}

std::vector<TezVector2<float>> TezDefaultTransferPoints(double low, double high)
{
    double const base = high - low < 2.0 ? 0.0 : low;
    float const from = float(base + 0.30 * (high - base)), to = float(base + 0.32 * (high - base));
    return {{0.0f, 0.0f}, {from, 0.0f}, {std::max(to, from + 1.0f), 1.0f}};
}

std::vector<TezVector2<float>> TezNormalisedTransferPoints(std::vector<TezVector2<float>> const& points, int bits)
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

namespace {

// The opacity table where the kernels read it: device memory when they run
// on the device, host memory otherwise.
TezDeviceBuffer KernelTable(std::vector<float> const& table, bool onDevice)
{
    size_t const bytes = table.size() * sizeof(float);
    TezDeviceBuffer buffer(bytes, 1, onDevice);
    if (buffer.Upload(table.data(), bytes) != TezDeviceSuccess)
        throw std::runtime_error("cannot copy the transfer function to the device");
    return buffer;
}

std::vector<TezVector2<float>> DataPoints(TezVoxelOctree const& tree, TezOctreeCastOptions const& o)
{
    if (!o.points.empty())
        return o.points;
    double low = 0.0, high = 0.0;
    TezOctreeDataRange(tree, low, high);
    return TezDefaultTransferPoints(low, high);
}

} // namespace

TezBox3<float> TezProportionedBox(TezBox3<float> const& box, TezVector3<float> const& proportions)
{
    TezVector3<float> low = box.GetMinimum(), high = box.GetMaximum();
    for (int axis = 0; axis < 3; ++axis) {
        low[axis] *= proportions[axis];
        high[axis] *= proportions[axis];
    }
    return TezBox3<float>(low, high);
}

TezOctreeCast TezCastOctree(TezRef<TezVoxelOctree> const& octree, TezOctreeCastOptions const& o)
{
    TezVoxelOctree& tree = *octree;
    TezMatrix44<float> const matrix = TezAnisotropicTransform<float>(o.proportions) *
                                      TezScaleTransform<float>(float(tree.GetTreeSize()) * tree.GetVoxelSize());

    TezRef<TezCameraView> camera = TezCameraView::Create();
    camera->Resize(o.width, o.height);
    camera->UsePerspective(o.perspective);
    // The whole volume in the picture, at any voxel size.
    camera->FrameStandardView(TezProportionedBox(tree.GetBounds(), o.proportions), o.view);

    // Node states for this very table let the ray caster step over bricks
    // that hold nothing it could hit; the picture is the same.
    bool const onDevice = TezDeviceIsCuda();
    TezDeviceBuffer const tableBuffer = KernelTable(
        TezVolumeCreateTransferFunction(TezNormalisedTransferPoints(DataPoints(tree, o), tree.GetBitsPerPixel()), 256),
        onDevice);
    float const* table = static_cast<float const*>(tableBuffer.Get());
    bool const states = TezVoxelOctreeCalculateNodeStates(octree, table);
    TezOctreeRenderSource source = TezMakeOctreeRenderSource(tree);
    source.statesValid = states;
    source.looks =
        TezOctreeDevice::LookFaceShading | TezOctreeDevice::LookCutShading | TezOctreeDevice::LookTableOpacity;
    TezPlane<float> const* cut = o.hasCut ? &o.cut : nullptr;

    TezOctreeCast cast{TezOctreeRenderBuffers(o.width, o.height, o.transparent ? o.layers : 0, onDevice), false};
    TezOctreeRenderTarget const& target = cast.buffers.GetTarget();
    TezOctreeDevice::Camera const record = TezMakeOctreeCamera(*camera);
    TezClearOctreeImage(target, 0);
    if (o.transparent) {
        TezClearOctreeDepth(target, 0xFF);
        TezClearOctreeLayers(target);
        cast.drawn = TezRenderOctreeTransparent(target, source, record, matrix, o.colour, table, cut);
    } else {
        cast.drawn = TezRenderOctreeSolid(target, source, record, matrix, o.colour, table, cut);
    }
    return cast;
}

std::vector<uint8_t> TezComposeOctreeCast(TezOctreeCast const& cast, TezOctreeCastOptions const& o, size_t& shown)
{
    // Transparent layers go over the background back to front, each by its
    // own alpha, so the background shows through as much as the surfaces in
    // front of it let it.
    static float const background[3] = {28.0f, 30.0f, 36.0f};
    std::vector<uint8_t> image = cast.buffers.ReadImage();
    size_t const pixels = size_t(o.width) * size_t(o.height);
    std::vector<uint8_t> colours;
    std::vector<float> depths;
    if (o.transparent) {
        colours = cast.buffers.ReadColourLayers();
        depths = cast.buffers.ReadRayLayers();
    }
    shown = 0;
    for (size_t i = 0; i < pixels; ++i) {
        uint8_t* px = &image[4 * i];
        float running[3] = {background[0], background[1], background[2]};
        if (o.transparent) {
            for (int k = o.layers - 1; k >= 0; --k) {
                size_t const at = size_t(k) * pixels + i;
                if (!(depths[at] > 0.0f))
                    continue;
                float const a = colours[4 * at + 3] / 255.0f;
                for (int c = 0; c < 3; ++c)
                    running[c] = a * colours[4 * at + c] + (1.0f - a) * running[c];
                ++shown;
            }
        } else if (px[3] != 0) {
            for (int c = 0; c < 3; ++c)
                running[c] = px[c];
            ++shown;
        }
        for (int c = 0; c < 3; ++c)
            px[c] = uint8_t(std::lround(running[c]));
        px[3] = 255;
    }
    return image;
}
