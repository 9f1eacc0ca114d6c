#pragma once
// TezNrrdFile: NRRD volumes (teem's "nearly raw raster data"), attached
// (.nrrd: header, blank line, samples) or detached (.nhdr naming its
// "data file"), as TezRawVolume sources.
//
// Read: 2- or 3-dimensional grids of 8- or 16-bit integers (uchar, signed
// char, ushort, short and their other spellings), raw or gzip encoding,
// either endian, "byte skip" (-1: the samples end the file; raw only) and
// "line skip". Spacing comes from "spacings" or the lengths of the "space
// directions"; an axis without one gets 1. Key/value pairs, comments and
// fields that do not change the samples are ignored.
//
// Refused with std::runtime_error naming the file: no NRRD magic, a header
// over 1 MiB, other types or encodings, more than 3 axes, several data
// files, missing fields, and every fault TezRawVolume::Create refuses (data
// shorter than promised, a promise no compressed stream can keep, a stream
// that inflates to more or less).

#include "volume/RawVolume.h"

#include <string>

class TEZ_API TezNrrdFile
{
public:
    static TezRef<TezRawVolume> Open(std::string const& path);
    // The layout the file's header describes, its line skip resolved.
    static TezRawVolumeLayout ReadLayout(std::string const& path);
};
