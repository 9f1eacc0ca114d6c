#pragma once
// TezDicomSeries: one DICOM series, one file a slice, as a volume source.
// Headers are read by our own checked walk over each file's elements
// (volume/detail/DicomFile.h); compressed pixel data (JPEG family, JPEG-LS,
// JPEG 2000, RLE) is decoded by GDCM's codecs.
//
// Slices are ordered by their image position along the slice normal (the
// cross product of the row and column directions of the image orientation),
// or by instance number where a file carries no position. x runs along an
// image row, z along the normal; the first row of an image is its top and
// lands at y = height - 1, as for image stacks. Spacing: the pixel spacing
// (x between columns, y between rows) and the mean distance between
// neighbouring positions.
//
// Values: each stored sample s (bits stored, sign as the pixel representation
// says) becomes round(s * slope + intercept) with the file's rescale slope
// and intercept. When the series can hold negative values (signed samples,
// or a rescale that maps some possible sample below 0) every value is
// shifted by GetValueOffset() = 32768, the same shift as signed 16-bit NRRD
// samples, so CT's Hounsfield units land on HU + 32768 (-1024 on 31744, 0 on
// 32768); otherwise the offset is 0. The result is clamped to 0..65535. The
// mapping depends on the headers only, never on the pixel data, so a
// threshold means the same for every series. A series of unsigned 8-bit
// samples without rescale stays 8-bit; all others are 16-bit.
//
// Create throws std::runtime_error with a message naming the files for: no
// DICOM image, a damaged file (cut, a length beyond its parent, another
// transfer syntax), colour or multi-frame images, samples other than 8 or 16
// bits, and mixed series (different series UID, slice size, orientation,
// pixel spacing or sample type; two slices at one position). The folder form
// reads every regular file of the folder (not its subfolders) and skips,
// with a note, those that are not DICOM images (a DICOMDIR, a text file);
// the list form refuses them.
//
// Copy decodes the files of the requested slices in parallel, with progress
// through the application's UI manager. A file that no longer decodes as
// its header promised leaves its slice 0 and is listed by
// GetUnreadableFiles.

#include "volume/VolumeData.h"

#include <mutex>
#include <string>
#include <vector>

class TEZ_API TezDicomSeries : public TezVolumeData
{
public:
    static TezRef<TezDicomSeries> Create(std::string const& folder);
    static TezRef<TezDicomSeries> Create(std::vector<std::string> const& files);

    uint32_t Type() const override;
    TezString const& TypeName() const override;

    bool IsValid() const override { return !m_slices.empty(); }
    int GetWidth() const override { return m_width; }
    int GetHeight() const override { return m_height; }
    int GetDepth() const override { return int(m_slices.size()); }
    TezVector3<double> GetSpacing() const override { return m_spacing; }
    int GetBitsPerPixel() const { return m_bits; }
    int GetValueOffset() const { return m_offset; }
    std::string const& GetSeriesUid() const { return m_seriesUid; }
    // The files in slice order.
    std::vector<std::string> GetFiles() const;
    // What a user should know: files skipped, uneven slice gaps, slices
    // ordered by instance number.
    std::vector<std::string> const& GetNotes() const { return m_notes; }
    std::vector<std::string> GetUnreadableFiles() const;

    bool Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel, uint64_t rowStride,
              uint64_t sliceStride, uint8_t** interpolationBuffers) override;

private:
    struct Slice
    {
        std::string file;
        double position = 0; // along the normal
        double slope = 1, intercept = 0;
    };

    TezDicomSeries() = default;
    static TezRef<TezDicomSeries> Make(std::vector<std::string> const& files, bool skipOthers);
    // The slice's values after rescale, offset and clamp, at m_bits; false
    // when the file does not decode as its header promised.
    bool DecodeSlice(Slice const& slice, std::vector<uint8_t>& values) const;

    std::vector<Slice> m_slices;
    int m_width = 0, m_height = 0, m_bits = 16, m_offset = 0;
    int m_bitsAllocated = 16, m_bitsStored = 16, m_highBit = 15;
    bool m_signed = false;
    TezVector3<double> m_spacing{1.0, 1.0, 1.0};
    std::string m_seriesUid;
    std::vector<std::string> m_notes;
    mutable std::mutex m_unreadableMutex;
    std::vector<std::string> m_unreadable;
};
