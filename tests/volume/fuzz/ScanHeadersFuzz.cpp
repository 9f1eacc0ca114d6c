// libFuzzer target: the scan file readers on hostile files. The first input
// byte picks the reader (NRRD, MetaImage, a DICOM file as a series of one);
// the rest is the file. A read must end in std::runtime_error or in a source
// whose voxels all copy; the readers refuse any promise the file's bytes
// cannot keep, so memory stays near the input's size (deflate's 1032:1 at
// most).
// fuzz-subsystems: core math document render volume mesh platform

#include "volume/DicomSeries.h"
#include "volume/MetaImageFile.h"
#include "volume/NrrdFile.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

char const* const kExtensions[] = {".nrrd", ".mha", ".dcm"};

// Every voxel of small volumes, the first and last slice of larger ones;
// nothing of slices over 4 MiB (what Create accepted is the point there).
void CopySome(TezVolumeData& volume)
{
    int const w = volume.GetWidth(), h = volume.GetHeight(), d = volume.GetDepth();
    uint64_t const slice = uint64_t(w) * uint64_t(h) * 2;
    if (slice > (uint64_t(1) << 22))
        return;
    std::vector<uint8_t> buffer(size_t(slice) * (d <= 4 ? size_t(d) : 1));
    if (d <= 4) {
        if (!volume.Copy(buffer.data(), 0, 0, 0, w, h, d, 16, uint64_t(w) * 2, slice, nullptr))
            std::abort();
        return;
    }
    if (!volume.Copy(buffer.data(), 0, 0, 0, w, h, 1, 16, uint64_t(w) * 2, slice, nullptr) ||
        !volume.Copy(buffer.data(), 0, 0, d - 1, w, h, 1, 8, uint64_t(w), slice, nullptr))
        std::abort();
}

} // namespace

// Freed blocks of tens of MiB (decoded slices of headers that claim large
// images) would otherwise pile up in the sanitizer's quarantine beyond the
// fuzzer's memory limit.
extern "C" char const* __asan_default_options() { return "quarantine_size_mb=64"; }

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size == 0)
        return 0;
    int const kind = data[0] % 3;
    static std::string const base = "/tmp/tez-scan-fuzz-" + std::to_string(getpid());
    std::string const path = base + kExtensions[kind];
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data + 1, 1, size - 1, file);
    std::fclose(file);
    try {
        TezRef<TezVolumeData> volume;
        if (kind == 0)
            volume = TezNrrdFile::Open(path);
        else if (kind == 1)
            volume = TezMetaImageFile::Open(path);
        else
            volume = TezDicomSeries::Create(std::vector<std::string>{path});
        if (volume)
            CopySome(*volume);
    } catch (std::runtime_error const&) {
    }
    std::remove(path.c_str());
    return 0;
}
