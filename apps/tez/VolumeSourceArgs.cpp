#include "tez/VolumeSourceArgs.h"

#include "platform/System.h"
#include "tez/Cli.h"
#include "volume/DicomSeries.h"
#include "volume/ImageStack.h"
#include "volume/MetaImageFile.h"
#include "volume/NrrdFile.h"
#include "volume/RawVolume.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

char const* const TezVolumeSourceArgs::kSynopsis = "SOURCE";
char const* const TezVolumeSourceArgs::kHelp =
    "SOURCE is one of: a folder of the DICOM files of one series (or those .dcm files);\n"
    "a .nrrd, .nhdr, .mhd or .mha file; a raw file with --dims X,Y,Z --type uint8|int8|uint16|int16\n"
    "--endian little|big [--spacing X,Y,Z]; or PATTERN FIRST LAST, a numbered slice stack.\n"
    "Signed samples and DICOM values that can be negative are shifted by 32768 (HU h lands on h + 32768).\n";

namespace {
std::string Extension(std::string const& path)
{
    size_t const dot = path.find_last_of('.');
    size_t const slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return std::string();
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

bool IsInteger(std::string const& text)
{
    if (text.empty())
        return false;
    size_t start = text[0] == '-' || text[0] == '+' ? 1 : 0;
    return start < text.size() &&
           std::all_of(text.begin() + long(start), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

// Three comma-separated numbers; false when there are not exactly three.
bool Three(std::string const& text, double values[3])
{
    std::stringstream stream(text);
    std::string item;
    int count = 0;
    while (std::getline(stream, item, ',')) {
        if (count == 3)
            return false;
        try {
            size_t used = 0;
            values[count] = std::stod(item, &used);
            if (used != item.size())
                return false;
        } catch (std::exception const&) {
            return false;
        }
        ++count;
    }
    return count == 3;
}

TezVoxelSample SampleOf(std::string const& type)
{
    return type == "uint8"    ? TezVoxelSample::UInt8
           : type == "int8"   ? TezVoxelSample::Int8
           : type == "uint16" ? TezVoxelSample::UInt16
                              : TezVoxelSample::Int16;
}
} // namespace

void TezVolumeSourceArgs::AddOptions(CLI::App& app)
{
    app.add_option("source", words, "SOURCE (see below)");
    app.add_option("--dims", dims, "raw file: voxels along X,Y,Z")->type_name("X,Y,Z");
    app.add_option("--type", type, "raw file: sample type")->check(CLI::IsMember({"uint8", "int8", "uint16", "int16"}));
    app.add_option("--endian", endian, "raw file: byte order of 16-bit samples")
        ->check(CLI::IsMember({"little", "big"}));
    app.add_option("--spacing", spacing, "raw file: voxel spacing (default 1,1,1)")->type_name("X,Y,Z");
    app.footer(kHelp);
}

std::string TezVolumeSourceArgs::Parse(std::vector<std::string> const& positional)
{
    paths.clear();
    bool const rawOptions = !dims.empty() || !type.empty() || !endian.empty() || !spacing.empty();
    if (positional.empty())
        return "missing SOURCE";

    if (positional.size() == 3 && IsInteger(positional[1]) && IsInteger(positional[2])) {
        if (rawOptions)
            return "--dims, --type, --endian and --spacing are for a raw file, not a slice stack";
        kind = Kind::Stack;
        return stack.Parse(positional[0], positional[1], positional[2]);
    }
    paths = positional;
    if (rawOptions) {
        if (positional.size() != 1)
            return "a raw file is one FILE";
        if (dims.empty() || type.empty())
            return "a raw file needs --dims X,Y,Z and --type";
        double d[3];
        if (!Three(dims, d))
            return "--dims must be X,Y,Z";
        for (int axis = 0; axis < 3; ++axis) {
            if (!(d[axis] >= 1 && d[axis] <= TezRawVolume::kMaxSize && d[axis] == std::floor(d[axis])))
                return "--dims must be three whole numbers from 1 to " + std::to_string(TezRawVolume::kMaxSize);
            m_dims[axis] = int(d[axis]);
        }
        if (type != "uint8" && type != "int8" && type != "uint16" && type != "int16")
            return "--type must be uint8, int8, uint16 or int16";
        if (!endian.empty() && endian != "little" && endian != "big")
            return "--endian must be little or big";
        if (endian.empty() && TezVoxelSampleBytes(SampleOf(type)) == 2)
            return "--endian little|big is needed for 16-bit samples";
        if (!spacing.empty()) {
            if (!Three(spacing, m_spacing) ||
                !std::all_of(m_spacing, m_spacing + 3, [](double s) { return s > 0 && std::isfinite(s); }))
                return "--spacing must be three positive numbers X,Y,Z";
        }
        kind = Kind::Raw;
        return std::string();
    }
    if (std::all_of(positional.begin(), positional.end(), [](std::string const& p) { return Extension(p) == "dcm"; })) {
        kind = Kind::DicomFiles;
        return std::string();
    }
    if (positional.size() != 1)
        return "expected one SOURCE (or PATTERN FIRST LAST), got " + std::to_string(positional.size()) + " words";
    std::string const ext = Extension(positional[0]);
    if (ext == "nrrd" || ext == "nhdr")
        kind = Kind::Nrrd;
    else if (ext == "mhd" || ext == "mha")
        kind = Kind::MetaImage;
    else
        kind = Kind::DicomFolder; // Open says so when it is no folder
    return std::string();
}

TezRef<TezVolumeData> TezVolumeSourceArgs::Open(char const* command, FILE* err)
{
    m_source = TezRef<TezVolumeData>();
    if (kind == Kind::Stack) {
        TezRef<TezImageStack> images = stack.Open(err);
        m_source = images;
        return m_source;
    }
    std::string const& path = paths.front();
    try {
        switch (kind) {
        case Kind::DicomFolder: {
            if (!TezIsDirectory(path.c_str())) {
                std::fprintf(err,
                             "tez %s: '%s' is no folder of DICOM files and has no known extension (.nrrd, .nhdr, "
                             ".mhd, .mha, .dcm); a raw file needs --dims, --type and --endian\n",
                             command, path.c_str());
                return m_source;
            }
            m_source = TezDicomSeries::Create(path);
            break;
        }
        case Kind::DicomFiles:
            m_source = TezDicomSeries::Create(paths);
            break;
        case Kind::Nrrd:
            m_source = TezNrrdFile::Open(path);
            break;
        case Kind::MetaImage:
            m_source = TezMetaImageFile::Open(path);
            break;
        case Kind::Raw:
            m_source =
                TezRawVolume::CreateFromRawFile(path, m_dims[0], m_dims[1], m_dims[2], SampleOf(type), endian == "big",
                                                TezVector3<double>(m_spacing[0], m_spacing[1], m_spacing[2]));
            break;
        default:
            std::fprintf(err, "tez %s: no volume source given\n", command);
            return m_source;
        }
    } catch (std::exception const& error) {
        std::fprintf(err, "tez %s: %s\n", command, error.what());
        m_source = TezRef<TezVolumeData>();
        return m_source;
    }
    if (auto* series = dynamic_cast<TezDicomSeries*>(m_source.Get()))
        for (std::string const& note : series->GetNotes())
            std::fprintf(err, "tez %s: note: %s\n", command, note.c_str());
    return m_source;
}

int TezVolumeSourceArgs::NativeBits() const
{
    if (auto* images = dynamic_cast<TezImageStack*>(m_source.Get()))
        return std::max(TezSliceStackArgs::SliceBits(*images), 8);
    if (auto* raw = dynamic_cast<TezRawVolume*>(m_source.Get()))
        return raw->GetBitsPerPixel();
    if (auto* series = dynamic_cast<TezDicomSeries*>(m_source.Get()))
        return series->GetBitsPerPixel();
    return 8;
}

std::string TezVolumeSourceArgs::Describe() const
{
    if (!m_source || kind == Kind::Stack)
        return std::string();
    TezVector3<double> const s = m_source->GetSpacing();
    char line[256];
    std::snprintf(line, sizeof line, "source: %d x %d x %d voxels of %d bits, spacing %g x %g x %g",
                  m_source->GetWidth(), m_source->GetHeight(), m_source->GetDepth(), NativeBits(), s.x, s.y, s.z);
    std::string text = line;
    if (auto* series = dynamic_cast<TezDicomSeries*>(m_source.Get()))
        text += ", values + " + std::to_string(series->GetValueOffset());
    return text;
}

bool TezVolumeSourceArgs::AcceptAfterRead(char const* command, FILE* err) const
{
    if (auto* images = dynamic_cast<TezImageStack*>(m_source.Get()))
        return stack.AcceptUnreadable(*images, err);
    if (auto* series = dynamic_cast<TezDicomSeries*>(m_source.Get())) {
        std::vector<std::string> const bad = series->GetUnreadableFiles();
        if (!bad.empty()) {
            std::fprintf(err, "tez %s: %zu DICOM file%s did not decode (first '%s')\n", command, bad.size(),
                         bad.size() > 1 ? "s" : "", bad.front().c_str());
            return false;
        }
    }
    return true;
}
