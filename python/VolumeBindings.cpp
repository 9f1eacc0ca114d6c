// Volume sources for Python: files, image stacks, arrays.

#include "python/KernelBindings.h"
#include "python/KernelObjects.h"
#include "python/LongWork.h"
#include "tez/SampleStack.h"
#include "volume/MemoryVolume.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdio>
#include <new>
#include <stdexcept>

namespace py = pybind11;

namespace {

// Reads the headers of the source the arguments name; Error with the helper's
// messages when it cannot, its notes as warnings when it can.
TezPyVolume Open(std::shared_ptr<TezVolumeSourceArgs> source, std::vector<std::string> const& words,
                 std::string const& origin)
{
    std::string const problem = source->Parse(words);
    if (!problem.empty())
        throw py::value_error(problem);
    TezPyVolume volume;
    std::string const messages = TezPyCaptureMessages(
        "python", [&](FILE* err) { TezRunLongWork([&] { volume.data = source->Open("python", err); }); });
    if (!volume.data)
        throw std::runtime_error(messages.empty() ? "cannot open the volume" : messages);
    TezPyWarnLines(messages);
    volume.source = source;
    volume.bits = source->NativeBits();
    volume.origin = origin;
    return volume;
}

std::string Triple(py::object const& value, char const* name)
{
    if (value.is_none())
        return std::string();
    auto const numbers = value.cast<std::vector<double>>();
    if (numbers.size() != 3)
        throw py::value_error(std::string(name) + " must hold three numbers");
    char text[128];
    std::snprintf(text, sizeof text, "%.17g,%.17g,%.17g", numbers[0], numbers[1], numbers[2]);
    return text;
}

// The raw-file keywords as given, after the call's other words.
void AddRawKeywords(std::vector<std::string>& words, py::object const& dims, std::string const& type,
                    std::string const& endian, py::object const& spacing)
{
    if (!dims.is_none())
        words.push_back("dims=" + py::repr(py::tuple(dims)).cast<std::string>());
    if (!type.empty())
        words.push_back("type=" + TezPyQuote(type));
    if (!endian.empty())
        words.push_back("endian=" + TezPyQuote(endian));
    if (!spacing.is_none())
        words.push_back("spacing=" + py::repr(py::tuple(spacing)).cast<std::string>());
}

// The raw-file settings as the command line's options would give them.
std::shared_ptr<TezVolumeSourceArgs> RawArgs(py::object const& dims, std::string const& type, std::string const& endian,
                                             py::object const& spacing)
{
    auto args = std::make_shared<TezVolumeSourceArgs>();
    args->dims = Triple(dims, "dims");
    args->type = type;
    args->endian = endian;
    args->spacing = Triple(spacing, "spacing");
    return args;
}

// The voxels at 8 or 16 bits as an array (depth, height, width).
template <class T>
py::array Voxels(TezPyVolume const& volume, int bits)
{
    TezVolumeData& data = *volume.data;
    int const w = data.GetWidth(), h = data.GetHeight(), d = data.GetDepth();
    py::array_t<T> array({d, h, w});
    T* voxels = array.mutable_data();
    bool const read = TezRunLongWork<bool>([&] {
        uint64_t const row = uint64_t(w) * sizeof(T);
        return data.Copy(voxels, 0, 0, 0, w, h, d, bits, row, row * uint64_t(h), nullptr);
    });
    if (!read)
        throw std::runtime_error("the volume cannot be read at " + std::to_string(bits) + " bits");
    return std::move(array);
}

template <class T>
TezRef<TezMemoryVolume> Grid(TezPyVolume const& volume, int bits)
{
    TezVolumeData& data = *volume.data;
    int const w = data.GetWidth(), h = data.GetHeight(), d = data.GetDepth();
    std::vector<T> voxels;
    try {
        voxels.resize(size_t(w) * size_t(h) * size_t(d));
    } catch (std::bad_alloc const&) {
        throw std::runtime_error(std::to_string(w) + " x " + std::to_string(h) + " x " + std::to_string(d) +
                                 " voxels do not fit in memory");
    }
    bool const read = TezRunLongWork<bool>([&] {
        uint64_t const row = uint64_t(w) * sizeof(T);
        return data.Copy(voxels.data(), 0, 0, 0, w, h, d, bits, row, row * uint64_t(h), nullptr);
    });
    if (!read)
        throw std::runtime_error("the volume cannot be read at " + std::to_string(bits) + " bits");
    if constexpr (sizeof(T) == 2)
        return TezMemoryVolume::Create16(w, h, d, std::move(voxels));
    else
        return TezMemoryVolume::Create8(w, h, d, std::move(voxels));
}

} // namespace

TezRef<TezMemoryVolume> TezPyReadGrid(TezPyVolume const& volume, int bits)
{
    return bits == 16 ? Grid<uint16_t>(volume, 16) : Grid<uint8_t>(volume, 8);
}

int TezPyVolumeBits(TezPyVolume const& volume, int bits)
{
    if (bits == 0)
        return volume.bits;
    if (bits != 8 && bits != 16)
        throw py::value_error("bits must be 8 or 16, not " + std::to_string(bits));
    return bits;
}

void TezPyAcceptAfterRead(TezPyVolume const& volume)
{
    if (!volume.source)
        return;
    bool accepted = true;
    std::string const messages =
        TezPyCaptureMessages("python", [&](FILE* err) { accepted = volume.source->AcceptAfterRead("python", err); });
    if (!accepted)
        throw std::runtime_error(messages);
    TezPyWarnLines(messages);
}

namespace {

TezPyVolume FromArray(py::array const& array)
{
    if (array.ndim() != 3)
        throw py::value_error("a volume array must have three dimensions (depth, height, width)");
    int const d = int(array.shape(0)), h = int(array.shape(1)), w = int(array.shape(2));
    if (d < 1 || h < 1 || w < 1)
        throw py::value_error("a volume array must not be empty");
    TezPyVolume volume;
    if (py::isinstance<py::array_t<uint8_t>>(array)) {
        auto const voxels = py::array_t<uint8_t, py::array::c_style | py::array::forcecast>::ensure(array);
        volume.data =
            TezMemoryVolume::Create8(w, h, d, std::vector<uint8_t>(voxels.data(), voxels.data() + voxels.size()));
        volume.bits = 8;
    } else if (py::isinstance<py::array_t<uint16_t>>(array)) {
        auto const voxels = py::array_t<uint16_t, py::array::c_style | py::array::forcecast>::ensure(array);
        volume.data =
            TezMemoryVolume::Create16(w, h, d, std::vector<uint16_t>(voxels.data(), voxels.data() + voxels.size()));
        volume.bits = 16;
    } else {
        throw py::type_error("a volume array must hold uint8 or uint16 values, not " +
                             py::str(array.dtype()).cast<std::string>());
    }
    return volume;
}

void BindSources(py::module_& m)
{
    m.def(
        "open_volume",
        [](py::object const& source, py::object const& dims, std::string const& type, std::string const& endian,
           py::object const& spacing) {
            std::shared_ptr<TezVolumeSourceArgs> args = RawArgs(dims, type, endian, spacing);
            std::vector<std::string> words;
            py::object fspath = py::module_::import("os").attr("fspath");
            bool const one = py::isinstance<py::str>(source) || py::hasattr(source, "__fspath__");
            if (one)
                words.push_back(py::str(fspath(source)).cast<std::string>());
            else
                for (py::handle item : source)
                    words.push_back(py::str(fspath(item)).cast<std::string>());
            std::vector<std::string> call{one ? TezPyQuote(words[0]) : py::repr(py::cast(words)).cast<std::string>()};
            AddRawKeywords(call, dims, type, endian, spacing);
            return Open(args, words, TezPyCallText("open_volume", call));
        },
        py::arg("source"), py::kw_only(), py::arg("dims") = py::none(), py::arg("type") = "", py::arg("endian") = "",
        py::arg("spacing") = py::none(),
        "A volume source by what it is: a folder of one DICOM series or a list of .dcm files, a .nrrd, .nhdr,\n"
        ".mhd or .mha file, or a raw file with dims=(x, y, z), type ('uint8', 'int8', 'uint16', 'int16'),\n"
        "endian ('little', 'big') and spacing=(x, y, z). Signed samples are shifted by 32768.");
    m.def(
        "image_stack",
        [](std::string const& pattern, int first, int last, bool allowBadSlices) {
            auto args = std::make_shared<TezVolumeSourceArgs>();
            args->stack.allowUnreadable = allowBadSlices;
            args->stack.allowOption = "allow_bad_slices=True";
            std::vector<std::string> call{TezPyQuote(pattern), std::to_string(first), std::to_string(last)};
            if (allowBadSlices)
                call.push_back("allow_bad_slices=True");
            return Open(args, {pattern, std::to_string(first), std::to_string(last)},
                        TezPyCallText("image_stack", call));
        },
        py::arg("pattern"), py::arg("first"), py::arg("last"), py::arg("allow_bad_slices") = false,
        "A numbered stack of slice images: pattern is printf-style (slice%03d.png), first and last the\n"
        "numbers of files that exist. Missing and unreadable slices are filled by interpolation, more\n"
        "than 10% unreadable only with allow_bad_slices.");
    m.def(
        "dicom_folder",
        [](std::string const& folder) {
            auto args = std::make_shared<TezVolumeSourceArgs>();
            if (args->Parse({folder}).empty() && args->kind != TezVolumeSourceArgs::Kind::DicomFolder)
                throw py::value_error("'" + folder + "' is no folder");
            return Open(args, {folder}, TezPyCallText("dicom_folder", {TezPyQuote(folder)}));
        },
        py::arg("folder"), "The DICOM files of one series in a folder.");
    m.def(
        "nrrd",
        [](std::string const& path) {
            return Open(std::make_shared<TezVolumeSourceArgs>(), {path}, TezPyCallText("nrrd", {TezPyQuote(path)}));
        },
        py::arg("path"), "A NRRD file (.nrrd, or .nhdr with its data file).");
    m.def(
        "metaimage",
        [](std::string const& path) {
            return Open(std::make_shared<TezVolumeSourceArgs>(), {path},
                        TezPyCallText("metaimage", {TezPyQuote(path)}));
        },
        py::arg("path"), "A MetaImage file (.mhd with its data file, or .mha).");
    m.def(
        "raw_volume",
        [](std::string const& path, py::object const& dims, std::string const& type, std::string const& endian,
           py::object const& spacing) {
            std::shared_ptr<TezVolumeSourceArgs> args = RawArgs(dims, type, endian, spacing);
            std::vector<std::string> call{TezPyQuote(path)};
            AddRawKeywords(call, dims, type, endian, spacing);
            return Open(args, {path}, TezPyCallText("raw_volume", call));
        },
        py::arg("path"), py::arg("dims"), py::arg("type"), py::arg("endian") = "", py::arg("spacing") = py::none(),
        "Raw voxels without a header: dims=(x, y, z), type 'uint8', 'int8', 'uint16' or 'int16', endian\n"
        "'little' or 'big' (needed for 16 bits), spacing=(x, y, z).");
    m.def("volume_from_numpy", &FromArray, py::arg("voxels"),
          "A volume held in memory from a uint8 or uint16 array (depth, height, width).");
    m.def(
        "write_sample_stack",
        [](std::string const& folder, int size) {
            if (size < 8 || size > 1024)
                throw py::value_error("size must be 8 to 1024");
            std::string pattern = TezRunLongWork<std::string>([&] { return TezWriteSampleStack(folder, size); });
            if (pattern.empty())
                throw std::runtime_error("cannot write the sample stack into " + folder);
            return pattern;
        },
        py::arg("folder"), py::arg("size") = 128,
        "Writes the built-in CT-like sample as size slices of size x size PNG files into folder and\n"
        "answers their pattern, for image_stack(pattern, 0, size - 1).");
}

void BindClasses(py::module_& m)
{
    if (!TezPyReuseClass<TezPyVolume>(m, "Volume"))
        py::class_<TezPyVolume>(m, "Volume", "A source of grey voxels.")
            .def_property_readonly("width", [](TezPyVolume const& v) { return v.data->GetWidth(); })
            .def_property_readonly("height", [](TezPyVolume const& v) { return v.data->GetHeight(); })
            .def_property_readonly("depth", [](TezPyVolume const& v) { return v.data->GetDepth(); })
            .def_property_readonly("shape",
                                   [](TezPyVolume const& v) {
                                       return py::make_tuple(v.data->GetDepth(), v.data->GetHeight(),
                                                             v.data->GetWidth());
                                   })
            .def_property_readonly("spacing",
                                   [](TezPyVolume const& v) {
                                       TezVector3<double> const s = v.data->GetSpacing();
                                       return py::make_tuple(s.x, s.y, s.z);
                                   })
            .def_property_readonly("bits", [](TezPyVolume const& v) { return v.bits; })
            .def(
                "to_numpy",
                [](TezPyVolume const& v, int bits) {
                    bits = TezPyVolumeBits(v, bits);
                    return bits == 16 ? Voxels<uint16_t>(v, 16) : Voxels<uint8_t>(v, 8);
                },
                py::arg("bits") = 0, "The voxels as an array (depth, height, width) of uint8 or uint16.")
            .def("__repr__", [](TezPyVolume const& v) {
                return "<Volume " + std::to_string(v.data->GetWidth()) + " x " + std::to_string(v.data->GetHeight()) +
                       " x " + std::to_string(v.data->GetDepth()) + ", " + std::to_string(v.bits) + " bits>";
            });
}

} // namespace

void TezBindVolumes(py::module_& module)
{
    BindClasses(module);
    BindSources(module);
}
