// Octrees, their pictures and marching cubes for Python.

#include "core/Archive.h"
#include "python/KernelBindings.h"
#include "python/KernelObjects.h"
#include "python/LongWork.h"
#include "python/OctreePicture.h"
#include "render/CameraView.h"
#include "volume/Image.h"
#include "volume/MemoryVolume.h"
#include "volume/VolumeTessellator.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace py = pybind11;

namespace {

TezPyOctree BuildOctree(TezPyVolume const& volume, int bits, double voxelSize, int memoryLimit)
{
    TezVolumeData& data = *volume.data;
    bits = TezPyVolumeBits(volume, bits);
    if (voxelSize == 0.0)
        voxelSize = data.GetSpacing().x;
    if (!(voxelSize > 0.0) || !std::isfinite(voxelSize))
        throw py::value_error("voxel_size must be a positive number");
    int const smallest = TezVoxelOctreeSmallestMemoryLimit(data.GetWidth(), data.GetHeight(), data.GetDepth(), bits);
    if (memoryLimit < smallest)
        throw py::value_error("memory_limit " + std::to_string(memoryLimit) + " MiB is too small for this volume at " +
                              std::to_string(bits) + " bits: one slab of slices needs " + std::to_string(smallest) +
                              " MiB");
    TezPyOctree octree;
    octree.proportions = data.GetProportions();
    octree.tree = TezRunLongWork<TezRef<TezVoxelOctree>>([&] {
        return TezVoxelOctree::CreateFromVolumeData(TezString("python"), volume.data, voxelSize, bits, memoryLimit);
    });
    if (!octree.tree)
        throw std::runtime_error("the octree build was refused");
    TezPyAcceptAfterRead(volume);
    if (!volume.origin.empty()) {
        std::vector<std::string> call{volume.origin, "bits=" + std::to_string(bits)};
        char size[64];
        std::snprintf(size, sizeof size, "voxel_size=%.17g", voxelSize);
        call.push_back(size);
        call.push_back("memory_limit=" + std::to_string(memoryLimit));
        octree.origin = TezPyCallText("build_octree", call);
    }
    return octree;
}

TezPyOctree LoadOctree(std::string const& path)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Read);
    if (!archive)
        throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
    TezPyOctree octree;
    octree.tree = TezRef<TezVoxelOctree>(new TezVoxelOctree());
    try {
        TezRunLongWork([&] { octree.tree->Load(archive); });
    } catch (std::runtime_error const& error) {
        throw std::runtime_error(path + " is not a readable octree: " + error.what());
    }
    if (octree.tree->GetTreeSize() <= 0)
        throw std::runtime_error(path + " holds no octree");
    octree.origin = TezPyCallText("load_octree", {TezPyQuote(path)});
    return octree;
}

void SaveOctree(TezPyOctree const& octree, std::string const& path)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
    if (!archive)
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    TezRunLongWork([&] {
        octree.tree->Save(archive);
        archive->Flush();
    });
}

TezOctreePictureOptions PictureOptions(int width, int height, std::string const& view, bool perspective,
                                       bool transparent, int layers, py::object const& tf,
                                       std::vector<float> const& color, py::object const& cut,
                                       TezPyOctree const& octree)
{
    TezVoxelOctree const& tree = *octree.tree;
    if (width < 1 || width > 16384 || height < 1 || height > 16384)
        throw py::value_error("width and height must be 1 to 16384");
    if (transparent && (layers < 1 || layers > 16))
        throw py::value_error("layers must be 1 to 16");
    TezOctreePictureOptions o;
    o.width = width;
    o.height = height;
    o.view = TezCameraView::FindStandardView(view.c_str());
    if (o.view < 0)
        throw py::value_error("unknown view '" + view + "'");
    o.perspective = perspective;
    o.transparent = transparent;
    o.layers = layers;
    o.proportions = octree.proportions;
    if (!tf.is_none())
        for (auto const& point : tf.cast<std::vector<std::pair<float, float>>>()) {
            if (!(point.first >= 0 && point.first <= 65535 && point.second >= 0 && point.second <= 1) ||
                (!o.points.empty() && point.first <= o.points.back()[0]))
                throw py::value_error("tf needs (value, opacity) points, the value rising from point to point "
                                      "within 0..65535, the opacity within 0..1");
            o.points.emplace_back(point.first, point.second);
        }
    if (color.size() < 3 || color.size() > 4)
        throw py::value_error("color needs (r, g, b) or (r, g, b, a)");
    o.colour = TezVector4<float>(color[0], color[1], color[2], color.size() == 4 ? color[3] : 1.0f);
    if (py::isinstance<py::str>(cut)) {
        // Through the centre, keeping the far half.
        std::string const axis = cut.cast<std::string>();
        if (axis != "x" && axis != "y" && axis != "z")
            throw py::value_error("cut takes 'x', 'y', 'z' or (px, py, pz, nx, ny, nz)");
        o.cutPoint = TezProportionedBox(tree.GetBounds(), o.proportions).Center();
        o.cutNormal[axis[0] - 'x'] = 1.0f;
    } else if (!cut.is_none()) {
        auto const plane = cut.cast<std::vector<float>>();
        if (plane.size() != 6 || plane[3] * plane[3] + plane[4] * plane[4] + plane[5] * plane[5] == 0.0f)
            throw py::value_error("cut needs (px, py, pz, nx, ny, nz) with a non-zero normal");
        o.cutPoint = TezVector3<float>(plane[0], plane[1], plane[2]);
        o.cutNormal = TezVector3<float>(plane[3], plane[4], plane[5]);
    }
    return o;
}

TezOctreePicture Render(TezPyOctree const& octree, TezOctreePictureOptions const& options)
{
    return TezRunLongWork<TezOctreePicture>([&] { return TezRenderOctreePicture(octree.tree, options); });
}

TezPyMesh Tessellate(TezPyVolume const& volume, std::optional<int> iso, int bits, std::string const& method)
{
    bits = TezPyVolumeBits(volume, bits);
    int const top = bits == 16 ? 65535 : 255;
    int const value = iso ? *iso : (top + 1) / 2;
    if (value < 0 || value > top)
        throw py::value_error("iso " + std::to_string(value) + " is outside 0.." + std::to_string(top) + " of " +
                              std::to_string(bits) + "-bit data");
    if (method != "closed" && method != "classic")
        throw py::value_error("method must be 'closed' or 'classic'");
    TezRef<TezMemoryVolume> const grid = TezPyReadGrid(volume, bits);
    TezPyAcceptAfterRead(volume);
    TezVector3<double> const spacing = volume.data->GetSpacing();
    TezPyMesh mesh;
    mesh.mesh = TezRunLongWork<TezRef<TezIndexedMesh>>([&] {
        TezVolumeTessellator& tessellator = TezVolumeTessellator::Instance();
        tessellator.SetMethod(method == "closed" ? TezVolumeTessellator::Method::Closed
                                                 : TezVolumeTessellator::Method::Classic);
        TezRef<TezIndexedMesh> surface = tessellator.Tessellate(grid, value);
        // Voxel units to the source's own.
        if (surface && (spacing.x != 1.0 || spacing.y != 1.0 || spacing.z != 1.0))
            surface->TransformGeometry(TezAnisotropicTransform<float>(
                TezVector3<float>(float(spacing.x), float(spacing.y), float(spacing.z))));
        return surface;
    });
    if (!mesh.mesh)
        throw std::runtime_error("the tessellation was refused");
    return mesh;
}

void BindOctreeClass(py::module_& m)
{
    if (!TezPyReuseClass<TezPyOctree>(m, "Octree"))
        py::class_<TezPyOctree>(m, "Octree", "A sparse voxel octree with a 16^3 brick at every level.")
            .def_property_readonly("bits", [](TezPyOctree const& o) { return o.tree->GetBitsPerPixel(); })
            .def_property_readonly("tree_size", [](TezPyOctree const& o) { return o.tree->GetTreeSize(); })
            .def_property_readonly("voxel_size", [](TezPyOctree const& o) { return o.tree->GetVoxelSize(); })
            .def_property_readonly("dimensions",
                                   [](TezPyOctree const& o) {
                                       TezVector3<int> const d = o.tree->GetDimensionsInVoxels();
                                       return py::make_tuple(d[0], d[1], d[2]);
                                   })
            .def_property_readonly("node_count",
                                   [](TezPyOctree const& o) { return o.tree->GetNodePool().GetNumElements(); })
            .def_property_readonly("brick_count",
                                   [](TezPyOctree const& o) { return o.tree->GetLeafPool().GetNumElements(); })
            .def_property_readonly("histogram", [](TezPyOctree const& o) { return o.tree->GetHistogram(); })
            .def("save", &SaveOctree, py::arg("path"), "Writes the octree to an archive file.");
}

void BindOctrees(py::module_& m)
{
    m.def("build_octree", &BuildOctree, py::arg("volume"), py::arg("bits") = 0, py::arg("voxel_size") = 0.0,
          py::arg("memory_limit") = 1024,
          "Builds an octree from a volume: bits 8 or 16 (0: as the source), voxel_size (0: the source's x\n"
          "spacing), memory_limit in MiB for the slices held at once. Ctrl-C stops it.");
    m.def("load_octree", &LoadOctree, py::arg("path"), "Reads an octree written by Octree.save or tez octree.");

    char const* const renderHelp =
        "Ray-casts the octree from a standard view (front, back, right, left, top, bottom, tilted,\n"
        "isometric). tf: (value, opacity) points, value in the data's units rising, opacity 0..1\n"
        "(default: opaque from 30% of the data's range). color: (r, g, b[, a]) in 0..1. cut: 'x', 'y'\n"
        "or 'z' through the centre, or (px, py, pz, nx, ny, nz), keeping the side the normal points to.";
    auto render = [](TezPyOctree const& octree, int width, int height, std::string const& view, bool perspective,
                     bool transparent, int layers, py::object const& tf, std::vector<float> const& color,
                     py::object const& cut) {
        TezOctreePictureOptions const options =
            PictureOptions(width, height, view, perspective, transparent, layers, tf, color, cut, octree);
        TezOctreePicture picture = Render(octree, options);
        py::array_t<uint8_t> array({options.height, options.width, 4});
        std::memcpy(array.mutable_data(), picture.rgba.data(), picture.rgba.size());
        return array;
    };
    auto renderToFile = [](TezPyOctree const& octree, std::string const& path, int width, int height,
                           std::string const& view, bool perspective, bool transparent, int layers,
                           py::object const& tf, std::vector<float> const& color, py::object const& cut) {
        TezOctreePictureOptions const options =
            PictureOptions(width, height, view, perspective, transparent, layers, tf, color, cut, octree);
        TezOctreePicture picture = Render(octree, options);
        TezImage image;
        if (!image.CreateFromPixels(picture.rgba.data(), options.width, options.height, 4, size_t(options.width) * 4,
                                    true) ||
            !image.Save(path.c_str()))
            throw std::runtime_error("cannot write " + path);
        return path;
    };
    std::vector<float> const colour{0.9f, 0.85f, 0.75f, 1.0f};
    m.def("render", render, py::arg("octree"), py::kw_only(), py::arg("width") = 1024, py::arg("height") = 768,
          py::arg("view") = "tilted", py::arg("perspective") = true, py::arg("transparent") = false,
          py::arg("layers") = 2, py::arg("tf") = py::none(), py::arg("color") = colour, py::arg("cut") = py::none(),
          (std::string(renderHelp) + "\nAnswers an RGBA uint8 array (height, width, 4), top row first.").c_str());
    m.def("render_to_file", renderToFile, py::arg("octree"), py::arg("path"), py::kw_only(), py::arg("width") = 1024,
          py::arg("height") = 768, py::arg("view") = "tilted", py::arg("perspective") = true,
          py::arg("transparent") = false, py::arg("layers") = 2, py::arg("tf") = py::none(), py::arg("color") = colour,
          py::arg("cut") = py::none(),
          (std::string(renderHelp) + "\nWrites the picture (PNG, BMP, ... by the extension) and answers the path.")
              .c_str());
    m.def("tessellate", &Tessellate, py::arg("volume"), py::arg("iso") = py::none(), py::arg("bits") = 0,
          py::arg("method") = "closed",
          "Marching cubes over the whole volume at iso (in the data's units; default the middle of its\n"
          "range), read at bits (0: as the source). 'closed' gives a closed surface wherever the object\n"
          "stays off the border, 'classic' the classic table. The mesh is in the source's units.");
}

} // namespace

void TezBindOctrees(py::module_& module)
{
    BindOctreeClass(module);
    BindOctrees(module);
}
