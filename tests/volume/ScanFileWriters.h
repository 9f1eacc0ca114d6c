#pragma once
// Small scan files written by the tests themselves: raw samples, NRRD,
// MetaImage and DICOM series (through GDCM), around one known grid.

#include <cstdint>
#include <string>
#include <vector>

namespace TezScanFiles {
// w x h x d signed 16-bit values, x fastest, rows in stored order (row 0
// is the top of a slice), value(x, row, z) = 7 (x + w row + w h z) - 3000.
struct Grid
{
    int w = 0, h = 0, d = 0;
    std::vector<int16_t> values;
    int16_t At(int x, int row, int z) const { return values[(size_t(z) * h + row) * w + x]; }
};
Grid MakeGrid(int w, int h, int d);
// An ellipsoid of 1000 in -1000 (CT-like: bone in air), its semi-axes 40%
// of the sizes, centred.
Grid MakeBall(int w, int h, int d);

std::string Samples16(Grid const& grid, bool bigEndian);
// The high bytes as unsigned 8-bit samples (value >> 8) + 128.
std::string Samples8(Grid const& grid);
std::string Gzip(std::string const& bytes);
std::string Zlib(std::string const& bytes);
void WriteFile(std::string const& path, std::string const& bytes);

// "NRRD0004" and the fields, each "name: value", then the blank line.
std::string NrrdHeader(std::vector<std::string> const& fields);
// "Key = Value" lines; put ElementDataFile last.
std::string MetaHeader(std::vector<std::string> const& lines);

struct DicomSlice
{
    std::string uid = "1.2.826.0.1.3680043.2.1125.1";
    double position[3] = {0, 0, 0};
    double orientation[6] = {1, 0, 0, 0, 1, 0};
    double pixelSpacing[2] = {0.5, 0.5}; // between rows, between columns
    double slope = 1, intercept = -1024;
};
// Transfer syntaxes the writers can give a file.
enum class DicomSyntax { ExplicitLittle, ImplicitLittle, ExplicitBig, Rle, JpegLossless };
// One file of `rows` x `columns` 16-bit samples (signed when `signedSamples`),
// CT image storage.
void WriteDicom(std::string const& path, DicomSlice const& slice, int columns, int rows,
                std::vector<int16_t> const& samples, bool signedSamples,
                DicomSyntax syntax = DicomSyntax::ExplicitLittle);
// The grid's slices as files "name-<reverse index>.dcm", so that their
// names run against the slice order: slice z at position (10, 20, 5 + 2.5 z),
// axial, pixel spacing 0.5 x 0.75 (rows, columns), stored samples value + 3000
// unsigned with the rescale intercept -3000 (the grid must stay below 62535).
void WriteDicomSeries(std::string const& folder, Grid const& grid, char const* name = "ct",
                      DicomSyntax syntax = DicomSyntax::ExplicitLittle);
} // namespace TezScanFiles
