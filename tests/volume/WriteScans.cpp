// tez_write_scans FOLDER: one CT-like ball in every scan format, for the
// tests that run the real tez program. The same voxels and spacing
// (0.75 x 0.5 x 2.5) in each:
//   ball.nrrd (gzip, big endian)   ball.nhdr + ball.raw (plain, little endian)
//   ball.mha (zlib, little endian) ball.mhd + ball-big.raw (plain, big endian)
//   ball-le.raw (int16, little endian, headerless)
//   dicom/ (one file a slice, unsigned samples with intercept -3000)
//   mixed/: that series and one file of another
//   bomb.nrrd: a stream that inflates far beyond its header's promise

#include "ScanFileWriters.h"

#include <cstdio>
#include <exception>
#include <string>
#include <sys/stat.h>

using namespace TezScanFiles;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: tez_write_scans FOLDER\n");
        return 2;
    }
    std::string const folder = argv[1];
    try {
        mkdir(folder.c_str(), 0755);
        mkdir((folder + "/dicom").c_str(), 0755);
        mkdir((folder + "/mixed").c_str(), 0755);
        Grid const ball = MakeBall(24, 20, 12);
        std::string const sizes = "24 20 12";
        auto nrrd = [&](std::string const& endian, std::string const& encoding, std::string const& extra) {
            return NrrdHeader({"type: short", "dimension: 3", "sizes: " + sizes, "spacings: 0.75 0.5 2.5",
                               "endian: " + endian, "encoding: " + encoding, extra});
        };
        WriteFile(folder + "/ball.nrrd", nrrd("big", "gzip", "content: ball") + Gzip(Samples16(ball, true)));
        WriteFile(folder + "/ball.raw", Samples16(ball, false));
        WriteFile(folder + "/ball-le.raw", Samples16(ball, false));
        WriteFile(folder + "/ball.nhdr", nrrd("little", "raw", "data file: ball.raw"));
        auto meta = [&](bool big, bool compressed, std::string const& file) {
            return MetaHeader({"ObjectType = Image", "NDims = 3", "DimSize = " + sizes, "ElementSpacing = 0.75 0.5 2.5",
                               big ? "ElementByteOrderMSB = True" : "ElementByteOrderMSB = False",
                               compressed ? "CompressedData = True" : "CompressedData = False",
                               "ElementType = MET_SHORT", "ElementDataFile = " + file});
        };
        WriteFile(folder + "/ball.mha", meta(false, true, "LOCAL") + Zlib(Samples16(ball, false)));
        WriteFile(folder + "/ball-big.raw", Samples16(ball, true));
        WriteFile(folder + "/ball.mhd", meta(true, false, "ball-big.raw"));
        WriteDicomSeries(folder + "/dicom", ball, "ball");
        WriteDicomSeries(folder + "/mixed", ball, "ball");
        DicomSlice other;
        other.uid = "1.2.826.0.1.3680043.2.1125.2";
        WriteDicom(folder + "/mixed/other.dcm", other, ball.w, ball.h,
                   std::vector<int16_t>(ball.values.size() / ball.d), false);
        WriteFile(folder + "/bomb.nrrd",
                  NrrdHeader({"type: uchar", "dimension: 3", "sizes: 16 16 16", "encoding: gzip"}) +
                      Gzip(std::string(size_t(1) << 26, '\0')));
    } catch (std::exception const& error) {
        std::fprintf(stderr, "tez_write_scans: %s\n", error.what());
        return 1;
    }
    std::printf("%s\n", folder.c_str());
    return 0;
}
