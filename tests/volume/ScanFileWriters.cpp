#include "ScanFileWriters.h"

#include <gdcmAttribute.h>
#include <gdcmImage.h>
#include <gdcmImageChangeTransferSyntax.h>
#include <gdcmImageWriter.h>
#include <gdcmMediaStorage.h>
#include <gdcmTrace.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace TezScanFiles {
Grid MakeGrid(int w, int h, int d)
{
    Grid grid;
    grid.w = w;
    grid.h = h;
    grid.d = d;
    grid.values.resize(size_t(w) * h * d);
    for (size_t i = 0; i < grid.values.size(); ++i)
        grid.values[i] = int16_t(7 * int(i) - 3000);
    return grid;
}

Grid MakeBall(int w, int h, int d)
{
    Grid grid;
    grid.w = w;
    grid.h = h;
    grid.d = d;
    grid.values.reserve(size_t(w) * h * d);
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                double const u = (x + 0.5 - w / 2.0) / (0.4 * w), v = (y + 0.5 - h / 2.0) / (0.4 * h),
                             t = (z + 0.5 - d / 2.0) / (0.4 * d);
                grid.values.push_back(int16_t(u * u + v * v + t * t <= 1.0 ? 1000 : -1000));
            }
    return grid;
}

std::string Samples16(Grid const& grid, bool bigEndian)
{
    std::string bytes;
    for (int16_t value : grid.values) {
        auto const u = uint16_t(value);
        char const high = char(u >> 8), low = char(u & 0xff);
        bytes += bigEndian ? high : low;
        bytes += bigEndian ? low : high;
    }
    return bytes;
}

std::string Samples8(Grid const& grid)
{
    std::string bytes;
    for (int16_t value : grid.values)
        bytes += char((value >> 8) + 128);
    return bytes;
}

namespace {
std::string Deflate(std::string const& bytes, int windowBits)
{
    z_stream stream{};
    if (deflateInit2(&stream, 6, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("deflateInit2");
    std::string out(deflateBound(&stream, uLong(bytes.size())) + 32, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = uInt(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(&out[0]);
    stream.avail_out = uInt(out.size());
    int const rc = deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    if (rc != Z_STREAM_END)
        throw std::runtime_error("deflate");
    return out;
}
} // namespace

std::string Gzip(std::string const& bytes) { return Deflate(bytes, 15 + 16); }
std::string Zlib(std::string const& bytes) { return Deflate(bytes, 15); }

void WriteFile(std::string const& path, std::string const& bytes)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file || std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size())
        throw std::runtime_error("cannot write " + path);
    std::fclose(file);
}

std::string NrrdHeader(std::vector<std::string> const& fields)
{
    std::string text = "NRRD0004\n# written by the tests\n";
    for (std::string const& field : fields)
        text += field + "\n";
    return text + "\n";
}

std::string MetaHeader(std::vector<std::string> const& lines)
{
    std::string text;
    for (std::string const& line : lines)
        text += line + "\n";
    return text;
}

void WriteDicom(std::string const& path, DicomSlice const& slice, int columns, int rows,
                std::vector<int16_t> const& samples, bool signedSamples, DicomSyntax syntax)
{
    gdcm::Trace::WarningOff();
    gdcm::ImageWriter writer;
    gdcm::Image& image = writer.GetImage();
    image.SetNumberOfDimensions(2);
    image.SetDimension(0, unsigned(columns));
    image.SetDimension(1, unsigned(rows));
    image.SetPixelFormat(gdcm::PixelFormat(signedSamples ? gdcm::PixelFormat::INT16 : gdcm::PixelFormat::UINT16));
    image.SetPhotometricInterpretation(gdcm::PhotometricInterpretation::MONOCHROME2);
    image.SetTransferSyntax(gdcm::TransferSyntax::ExplicitVRLittleEndian);
    // A 2D image keeps two origin coordinates unless given one by one.
    for (unsigned i = 0; i < 3; ++i)
        image.SetOrigin(i, slice.position[i]);
    image.SetDirectionCosines(slice.orientation);
    image.SetSpacing(0, slice.pixelSpacing[1]);
    image.SetSpacing(1, slice.pixelSpacing[0]);
    image.SetSpacing(2, 1.0);
    image.SetSlope(slice.slope);
    image.SetIntercept(slice.intercept);
    gdcm::DataElement pixels(gdcm::Tag(0x7fe0, 0x0010));
    pixels.SetByteValue(reinterpret_cast<char const*>(samples.data()), uint32_t(samples.size() * 2));
    image.SetDataElement(pixels);

    gdcm::DataSet& data = writer.GetFile().GetDataSet();
    gdcm::MediaStorage const storage(gdcm::MediaStorage::CTImageStorage);
    gdcm::DataElement sopClass(gdcm::Tag(0x0008, 0x0016));
    sopClass.SetByteValue(storage.GetString(), uint32_t(std::strlen(storage.GetString())));
    sopClass.SetVR(gdcm::Attribute<0x0008, 0x0016>::GetVR());
    data.Replace(sopClass);
    gdcm::Attribute<0x0020, 0x000e> series;
    series.SetValue(slice.uid.c_str());
    data.Replace(series.GetAsDataElement());
    if (syntax != DicomSyntax::ExplicitLittle) {
        gdcm::TransferSyntax::TSType const types[] = {
            gdcm::TransferSyntax::ExplicitVRLittleEndian, gdcm::TransferSyntax::ImplicitVRLittleEndian,
            gdcm::TransferSyntax::ExplicitVRBigEndian, gdcm::TransferSyntax::RLELossless,
            gdcm::TransferSyntax::JPEGLosslessProcess14_1};
        gdcm::ImageChangeTransferSyntax change;
        change.SetTransferSyntax(types[int(syntax)]);
        change.SetInput(image);
        if (!change.Change())
            throw std::runtime_error("cannot change the transfer syntax of " + path);
        writer.SetImage(change.GetOutput());
    }
    writer.SetFileName(path.c_str());
    if (!writer.Write())
        throw std::runtime_error("cannot write DICOM " + path);
}

void WriteDicomSeries(std::string const& folder, Grid const& grid, char const* name, DicomSyntax syntax)
{
    size_t const pixels = size_t(grid.w) * grid.h;
    for (int z = 0; z < grid.d; ++z) {
        DicomSlice slice;
        slice.position[0] = 10;
        slice.position[1] = 20;
        slice.position[2] = 5 + 2.5 * z;
        slice.pixelSpacing[0] = 0.5;
        slice.pixelSpacing[1] = 0.75;
        std::vector<int16_t> samples(grid.values.begin() + z * pixels, grid.values.begin() + (z + 1) * pixels);
        slice.intercept = -3000;
        for (int16_t& s : samples)
            s = int16_t(uint16_t(s + 3000));
        WriteDicom(folder + "/" + name + "-" + std::to_string(grid.d - 1 - z) + ".dcm", slice, grid.w, grid.h, samples,
                   false, syntax);
    }
}
} // namespace TezScanFiles
