#pragma once
// TezMetaImageFile: MetaImage volumes (ITK's MetaIO), one file (.mha, the
// samples after the header's last line, "ElementDataFile = LOCAL") or a
// header (.mhd) naming its data file, as TezRawVolume sources.
//
// Read: NDims 2 or 3, one channel of MET_UCHAR, MET_CHAR, MET_USHORT or
// MET_SHORT, binary samples in either byte order, plain or zlib-compressed
// ("CompressedData = True", "CompressedDataSize" bounding the stream),
// "HeaderSize" before detached samples (-1: the samples end the file).
// Spacing from "ElementSpacing", else "ElementSize", else 1. Other keys are
// ignored; keys are matched without regard to case.
//
// Refused with std::runtime_error naming the file: text samples, other
// element types, several channels or data files, missing keys, a header
// over 1 MiB, and every fault TezRawVolume::Create refuses.

#include "volume/RawVolume.h"

#include <string>

class TEZ_API TezMetaImageFile
{
public:
    static TezRef<TezRawVolume> Open(std::string const& path);
    static TezRawVolumeLayout ReadLayout(std::string const& path);
};
