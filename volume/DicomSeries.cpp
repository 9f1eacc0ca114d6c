#include "volume/DicomSeries.h"

#include "core/Logger.h"
#include "core/UIManager.h"
#include "volume/detail/DicomFile.h"
#include "volume/detail/VoxelRows.h"

#include <gdcmFragment.h>
#include <gdcmImage.h>
#include <gdcmSequenceOfFragments.h>
#include <gdcmTrace.h>

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <stdexcept>

namespace {
// What the slice files' headers say; rows == 0 for a file that is no DICOM
// image.
struct Header
{
    std::string file;
    std::string uid;
    int rows = 0, columns = 0, frames = 1, samples = 1;
    int bitsAllocated = 0, bitsStored = 0, highBit = -1, representation = 0;
    std::vector<double> position, orientation, pixelSpacing;
    double slope = 1, intercept = 0, thickness = 0, between = 0;
    double instance = 0;
    bool encapsulated = false; // compressed pixel data
    uint64_t pixelBytes = 0;
    std::string damage; // why a DICOM file cannot be read safely
};

std::string Clean(std::string text)
{
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0'))
        text.pop_back();
    size_t start = 0;
    while (start < text.size() && text[start] == ' ')
        ++start;
    return text.substr(start);
}

// The values of a multi-valued number field ("0.5\0.5"); empty when any
// value does not read as a finite number.
std::vector<double> Numbers(std::string const& text)
{
    std::vector<double> values;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\\', start);
        if (end == std::string::npos)
            end = text.size();
        std::string const item = Clean(text.substr(start, end - start));
        char* stop = nullptr;
        double const value = std::strtod(item.c_str(), &stop);
        if (item.empty() || stop != item.c_str() + item.size() || !std::isfinite(value))
            return {};
        values.push_back(value);
        start = end + 1;
    }
    return values;
}

double Number(std::string const& text, double fallback)
{
    std::vector<double> const values = Numbers(text);
    return values.empty() ? fallback : values[0];
}

int Whole(std::string const& text, int fallback)
{
    double const value = Number(text, fallback);
    return value >= -1e9 && value <= 1e9 ? int(value) : fallback;
}

// False for a file that is no DICOM image; a damaged DICOM file answers
// true with the damage noted, to be refused by name.
bool ReadHeader(std::string const& path, Header& header)
{
    header.file = path;
    TezDicomFile const file = TezDicomFile::Read(path);
    if (!file.part10 || (file.problem.empty() && !file.pixels))
        return false;
    if (!file.problem.empty()) {
        header.damage = file.problem;
        return true;
    }
    header.encapsulated = file.encapsulated;
    header.pixelBytes = file.pixelBytes;
    auto text = [&](uint32_t tag) { return file.Value(tag); };
    header.rows = Whole(text(0x00280010), 0);
    header.columns = Whole(text(0x00280011), 0);
    if (header.rows <= 0 || header.columns <= 0)
        return false;
    header.uid = text(0x0020000E);
    header.frames = Whole(text(0x00280008), 1);
    header.samples = Whole(text(0x00280002), 1);
    header.bitsAllocated = Whole(text(0x00280100), 0);
    header.bitsStored = Whole(text(0x00280101), header.bitsAllocated);
    header.highBit = Whole(text(0x00280102), header.bitsStored - 1);
    header.representation = Whole(text(0x00280103), 0);
    header.position = Numbers(text(0x00200032));
    header.orientation = Numbers(text(0x00200037));
    header.pixelSpacing = Numbers(text(0x00280030));
    if (header.pixelSpacing.size() != 2)
        header.pixelSpacing = Numbers(text(0x00181164)); // imager pixel spacing
    header.slope = Number(text(0x00281053), 1.0);
    header.intercept = Number(text(0x00281052), 0.0);
    header.thickness = Number(text(0x00180050), 0.0);
    header.between = Number(text(0x00180088), 0.0);
    header.instance = Number(text(0x00200013), 0.0);
    return true;
}

std::string Name(std::string const& path) { return "'" + path + "'"; }

[[noreturn]] void Mixed(Header const& a, Header const& b, std::string const& what)
{
    throw std::runtime_error("TezDicomSeries: " + Name(a.file) + " and " + Name(b.file) + " " + what +
                             ": the files are not one series");
}

bool Same(std::vector<double> const& a, std::vector<double> const& b, double tolerance)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::fabs(a[i] - b[i]) > tolerance * std::max(1.0, std::fabs(a[i])))
            return false;
    return true;
}

std::string Size(Header const& h) { return std::to_string(h.columns) + " x " + std::to_string(h.rows); }

// The checks on one file of a series that do not need the others.
void CheckAlone(Header const& h)
{
    if (!h.damage.empty())
        throw std::runtime_error("TezDicomSeries: " + Name(h.file) + " is a damaged DICOM file: " + h.damage);
    if (h.samples != 1)
        throw std::runtime_error("TezDicomSeries: " + Name(h.file) + " has " + std::to_string(h.samples) +
                                 " samples per pixel: colour images are not read");
    if (h.frames > 1)
        throw std::runtime_error("TezDicomSeries: " + Name(h.file) + " holds " + std::to_string(h.frames) +
                                 " frames: multi-frame files are not read");
    if (h.bitsAllocated != 8 && h.bitsAllocated != 16)
        throw std::runtime_error("TezDicomSeries: " + Name(h.file) + " has " + std::to_string(h.bitsAllocated) +
                                 "-bit samples: 8 and 16 bits are read");
    if (h.bitsStored < 1 || h.bitsStored > h.bitsAllocated || h.highBit < h.bitsStored - 1 ||
        h.highBit >= h.bitsAllocated || (h.representation != 0 && h.representation != 1))
        throw std::runtime_error("TezDicomSeries: " + Name(h.file) + " has an impossible sample layout (" +
                                 std::to_string(h.bitsStored) + " bits stored, high bit " + std::to_string(h.highBit) +
                                 ")");
    // Plain pixel data must hold the pixels the header promises, and
    // compressed data must be able to: no codec of DICOM's comes near 8192:1
    // on a real image, so more is a header lying about the image's size.
    uint64_t const needed = uint64_t(h.rows) * uint64_t(h.columns) * uint64_t(h.bitsAllocated / 8);
    if (h.encapsulated && needed > h.pixelBytes * 8192)
        throw std::runtime_error("TezDicomSeries: " + Name(h.file) + " claims " + Size(h) + " pixels, more than its " +
                                 std::to_string(h.pixelBytes) + " bytes of compressed pixel data can hold");
    if (!h.encapsulated && h.pixelBytes < needed)
        throw std::runtime_error("TezDicomSeries: " + Name(h.file) + " holds " + std::to_string(h.pixelBytes) +
                                 " bytes of pixel data, fewer than its " + Size(h) + " pixels need (" +
                                 std::to_string(needed) + ")");
    if (!(h.slope != 0.0) || std::fabs(h.slope) > 1e6 || std::fabs(h.intercept) > 1e9)
        throw std::runtime_error("TezDicomSeries: " + Name(h.file) + " has an unusable rescale (slope " +
                                 std::to_string(h.slope) + ", intercept " + std::to_string(h.intercept) + ")");
}

void QuietGdcm()
{
    // GDCM prints to stderr on every odd file; our own messages name them.
    static std::once_flag once;
    std::call_once(once, [] {
        gdcm::Trace::WarningOff();
        gdcm::Trace::ErrorOff();
        gdcm::Trace::DebugOff();
    });
}
} // namespace

uint32_t TezDicomSeries::Type() const
{
    static uint32_t const type = TezAssignObjectType();
    return type;
}

TezString const& TezDicomSeries::TypeName() const
{
    static TezString const name("TezDicomSeries");
    return name;
}

TezRef<TezDicomSeries> TezDicomSeries::Create(std::string const& folder)
{
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error))
        throw std::runtime_error("TezDicomSeries: " + Name(folder) + " is not a folder");
    std::vector<std::string> files;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->is_regular_file(error))
            files.push_back(it->path().string());
    if (error)
        throw std::runtime_error("TezDicomSeries: cannot list " + Name(folder) + ": " + error.message());
    std::sort(files.begin(), files.end());
    return Make(files, true);
}

TezRef<TezDicomSeries> TezDicomSeries::Create(std::vector<std::string> const& files) { return Make(files, false); }

TezRef<TezDicomSeries> TezDicomSeries::Make(std::vector<std::string> const& files, bool skipOthers)
{
    QuietGdcm();
    std::vector<Header> headers(files.size());
    std::vector<char> read(files.size(), 0);
    tbb::parallel_for(size_t(0), files.size(), [&](size_t i) { read[i] = ReadHeader(files[i], headers[i]); });

    std::vector<Header> images;
    size_t skipped = 0;
    std::string firstSkipped;
    for (size_t i = 0; i < files.size(); ++i) {
        if (read[i]) {
            images.push_back(std::move(headers[i]));
            continue;
        }
        if (!skipOthers)
            throw std::runtime_error("TezDicomSeries: " + Name(files[i]) + " is not a DICOM image");
        if (skipped++ == 0)
            firstSkipped = files[i];
    }
    if (images.empty())
        throw std::runtime_error("TezDicomSeries: no DICOM image among the " + std::to_string(files.size()) + " files");

    TezRef<TezDicomSeries> series(new TezDicomSeries());
    if (skipped)
        series->m_notes.push_back(
            "skipped " + std::to_string(skipped) +
            (skipped > 1 ? " files that are no DICOM images (" : " file that is no DICOM image (") +
            Name(firstSkipped) + (skipped > 1 ? ", ..." : "") + ")");

    Header const& first = images.front();
    for (Header const& h : images) {
        CheckAlone(h);
        if (h.uid != first.uid)
            Mixed(first, h, "belong to different series (UIDs " + first.uid + " and " + h.uid + ")");
        if (h.rows != first.rows || h.columns != first.columns)
            Mixed(first, h, "have different sizes (" + Size(first) + " and " + Size(h) + " pixels)");
        if (!Same(h.orientation, first.orientation, 1e-4))
            Mixed(first, h, "have different orientations");
        if (!Same(h.pixelSpacing, first.pixelSpacing, 1e-4))
            Mixed(first, h, "have different pixel spacings");
        if (h.bitsAllocated != first.bitsAllocated || h.bitsStored != first.bitsStored || h.highBit != first.highBit ||
            h.representation != first.representation)
            Mixed(first, h, "have different sample types");
    }

    // Order along the normal; without positions and orientation, by instance
    // number.
    bool located = images.size() > 1 && first.orientation.size() == 6;
    for (Header const& h : images)
        located = located && h.position.size() == 3;
    double normal[3] = {0, 0, 1};
    if (located) {
        double const* r = first.orientation.data();
        double const* c = r + 3;
        normal[0] = r[1] * c[2] - r[2] * c[1];
        normal[1] = r[2] * c[0] - r[0] * c[2];
        normal[2] = r[0] * c[1] - r[1] * c[0];
        if (std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]) < 0.5)
            throw std::runtime_error("TezDicomSeries: " + Name(first.file) + " has an impossible image orientation");
    } else if (images.size() > 1) {
        series->m_notes.push_back("the files carry no image position: slices ordered by instance number");
    }
    std::vector<Slice> slices;
    for (Header const& h : images) {
        Slice slice;
        slice.file = h.file;
        slice.position =
            located ? h.position[0] * normal[0] + h.position[1] * normal[1] + h.position[2] * normal[2] : h.instance;
        slice.slope = h.slope;
        slice.intercept = h.intercept;
        slices.push_back(slice);
    }
    std::stable_sort(slices.begin(), slices.end(),
                     [](Slice const& a, Slice const& b) { return a.position < b.position; });

    double spacingZ = first.between > 0 ? first.between : first.thickness > 0 ? first.thickness : 0.0;
    if (located) {
        double smallest = 1e300, largest = 0;
        for (size_t i = 1; i < slices.size(); ++i) {
            double const gap = slices[i].position - slices[i - 1].position;
            if (gap < 1e-3)
                throw std::runtime_error("TezDicomSeries: " + Name(slices[i - 1].file) + " and " +
                                         Name(slices[i].file) + " lie at the same position (" +
                                         std::to_string(slices[i].position) + "): two acquisitions of one series?");
            smallest = std::min(smallest, gap);
            largest = std::max(largest, gap);
        }
        spacingZ = (slices.back().position - slices.front().position) / double(slices.size() - 1);
        if (largest - smallest > 0.01 * spacingZ + 1e-3)
            series->m_notes.push_back("slice gaps run from " + std::to_string(smallest) + " to " +
                                      std::to_string(largest) + ": the volume uses their mean, " +
                                      std::to_string(spacingZ));
    }

    // The value mapping, from the headers alone.
    int const bits = first.bitsStored;
    double const low = first.representation ? -std::ldexp(1.0, bits - 1) : 0.0;
    double const high = first.representation ? std::ldexp(1.0, bits - 1) - 1 : std::ldexp(1.0, bits) - 1;
    bool negative = false, identity = true;
    for (Slice const& s : slices) {
        negative = negative || std::min(s.slope * low, s.slope * high) + s.intercept < 0;
        identity = identity && s.slope == 1.0 && s.intercept == 0.0;
    }
    series->m_slices = std::move(slices);
    series->m_width = first.columns;
    series->m_height = first.rows;
    series->m_bitsAllocated = first.bitsAllocated;
    series->m_bitsStored = first.bitsStored;
    series->m_highBit = first.highBit;
    series->m_signed = first.representation == 1;
    series->m_offset = negative ? 32768 : 0;
    series->m_bits = first.bitsAllocated == 8 && !series->m_signed && identity ? 8 : 16;
    series->m_seriesUid = first.uid;
    double const spacingX = first.pixelSpacing.size() == 2 && first.pixelSpacing[1] > 0 ? first.pixelSpacing[1] : 1.0;
    double const spacingY = first.pixelSpacing.size() == 2 && first.pixelSpacing[0] > 0 ? first.pixelSpacing[0] : 1.0;
    series->m_spacing = TezVector3<double>(spacingX, spacingY, spacingZ > 0 ? spacingZ : spacingX);
    return series;
}

std::vector<std::string> TezDicomSeries::GetFiles() const
{
    std::vector<std::string> files;
    for (Slice const& slice : m_slices)
        files.push_back(slice.file);
    return files;
}

std::vector<std::string> TezDicomSeries::GetUnreadableFiles() const
{
    std::lock_guard<std::mutex> lock(m_unreadableMutex);
    return m_unreadable;
}

bool TezDicomSeries::DecodeSlice(Slice const& slice, std::vector<uint8_t>& values) const
{
    size_t const pixels = size_t(m_width) * size_t(m_height);
    size_t const bytes = pixels * size_t(m_bitsAllocated / 8);
    std::vector<char> raw;
    // The file is walked again: it may have changed since Create.
    TezDicomFile const file = TezDicomFile::Read(slice.file);
    if (!file.problem.empty() || !file.pixels || file.pixelSpans.empty())
        return false;
    FILE* handle = std::fopen(slice.file.c_str(), "rb");
    if (!handle)
        return false;
    auto readSpan = [&](TezDicomFile::Span const& span, uint64_t length, std::vector<char>& into) {
        into.resize(size_t(length));
        return fseeko(handle, off_t(span.offset), SEEK_SET) == 0 &&
               (length == 0 || std::fread(into.data(), 1, size_t(length), handle) == size_t(length));
    };
    bool read = false;
    if (!file.encapsulated) {
        read = file.pixelSpans[0].length >= bytes && readSpan(file.pixelSpans[0], bytes, raw);
        if (read && file.bigEndian && m_bitsAllocated == 16)
            for (size_t i = 0; i + 1 < raw.size(); i += 2)
                std::swap(raw[i], raw[i + 1]);
    } else if (file.pixelSpans.size() >= 2 && uint64_t(bytes) <= file.pixelBytes * 8192) {
        // Compressed: the fragments (not the offset table) go to GDCM's
        // codecs as an image built from our reading of the header.
        try {
            gdcm::SmartPointer<gdcm::SequenceOfFragments> fragments = new gdcm::SequenceOfFragments;
            std::vector<char> piece;
            read = true;
            for (size_t i = 1; read && i < file.pixelSpans.size(); ++i) {
                read = readSpan(file.pixelSpans[i], file.pixelSpans[i].length, piece);
                gdcm::Fragment fragment;
                fragment.SetByteValue(piece.data(), uint32_t(piece.size()));
                fragments->AddFragment(fragment);
            }
            gdcm::DataElement pixelData(gdcm::Tag(0x7fe0, 0x0010));
            pixelData.SetValue(*fragments);
            pixelData.SetVLToUndefined(); // before the VR: GDCM asserts on OB
            pixelData.SetVR(gdcm::VR::OB);
            gdcm::Image image;
            image.SetNumberOfDimensions(2);
            image.SetDimension(0, unsigned(m_width));
            image.SetDimension(1, unsigned(m_height));
            image.SetPixelFormat(gdcm::PixelFormat(1, (unsigned short)m_bitsAllocated, (unsigned short)m_bitsStored,
                                                   (unsigned short)(m_bitsStored - 1), m_signed ? 1 : 0));
            image.SetPhotometricInterpretation(gdcm::PhotometricInterpretation::MONOCHROME2);
            image.SetTransferSyntax(gdcm::TransferSyntax::GetTSType(file.syntax.c_str()));
            image.SetDataElement(pixelData);
            read = read && image.GetBufferLength() == bytes;
            if (read) {
                raw.resize(bytes);
                read = image.GetBuffer(raw.data());
            }
        } catch (std::exception const&) {
            read = false;
        }
    }
    std::fclose(handle);
    if (!read)
        return false;
    // Codecs give the stored bits in the low bits.
    bool const encapsulated = file.encapsulated;

    values.resize(pixels * size_t(m_bits / 8));
    if (m_bits == 8) {
        std::memcpy(values.data(), raw.data(), pixels);
        return true;
    }
    int const shift = encapsulated ? 0 : m_highBit + 1 - m_bitsStored;
    uint32_t const mask = (1u << m_bitsStored) - 1u;
    uint32_t const sign = 1u << (m_bitsStored - 1);
    uint16_t* out = reinterpret_cast<uint16_t*>(values.data());
    for (size_t i = 0; i < pixels; ++i) {
        uint32_t stored;
        if (m_bitsAllocated == 8) {
            stored = uint8_t(raw[i]);
        } else {
            uint16_t word;
            std::memcpy(&word, raw.data() + 2 * i, 2);
            stored = word;
        }
        stored = (stored >> shift) & mask;
        int32_t const sample = m_signed && (stored & sign) ? int32_t(stored) - int32_t(mask) - 1 : int32_t(stored);
        double const value = std::nearbyint(sample * slice.slope + slice.intercept) + m_offset;
        out[i] = uint16_t(std::clamp(value, 0.0, 65535.0));
    }
    return true;
}

bool TezDicomSeries::Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel,
                          uint64_t rowStride, uint64_t sliceStride, uint8_t** /*interpolationBuffers*/)
{
    if (m_slices.empty() || !TezIsValidCopyRequest(m_width, m_height, GetDepth(), buffer, x, y, z, width, height, depth,
                                                   bitsPerPixel, rowStride, sliceStride))
        return false;
    TezRef<TezUIManager> ui = TezUIManager::GetAppUIManager();
    if (ui) {
        ui->SetProgressMessage(TezString("DICOM: Loading..."));
        ui->StartProgress(uint32_t(depth));
    }
    auto* out = static_cast<uint8_t*>(buffer);
    TezVoxelSample const sample = m_bits == 8 ? TezVoxelSample::UInt8 : TezVoxelSample::UInt16;
    tbb::parallel_for(0, depth, [&](int k) {
        Slice const& slice = m_slices[size_t(z + k)];
        std::vector<uint8_t> values;
        uint8_t* target = out + uint64_t(k) * sliceStride;
        if (DecodeSlice(slice, values)) {
            TezCopySliceBox(values.data(), m_width, m_height, sample, false, x, y, width, height, target, rowStride,
                            bitsPerPixel);
        } else {
            for (int j = 0; j < height; ++j)
                std::memset(target + uint64_t(j) * rowStride, 0, size_t(width) * size_t(bitsPerPixel / 8));
            std::lock_guard<std::mutex> lock(m_unreadableMutex);
            if (std::find(m_unreadable.begin(), m_unreadable.end(), slice.file) == m_unreadable.end()) {
                m_unreadable.push_back(slice.file);
                TezLogger::error("TezDicomSeries: '%s' does not decode as its header promised\n", slice.file.c_str());
            }
        }
        if (ui)
            ui->StepProgress(1);
    });
    if (ui)
        ui->EndProgress();
    return true;
}
