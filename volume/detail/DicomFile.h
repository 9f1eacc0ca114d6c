#pragma once
// TezDicomFile: one DICOM Part 10 file read by our own walk over its
// elements: its structure checked, the attributes a volume needs, and where
// its pixel data lies. Internal: not installed.
//
// GDCM's reader trusts lengths and guesses at broken files, and Debian builds
// it with assertions: a cut or lying file stops the process or makes it
// allocate what the file does not hold. So the header is read here, with
// every length checked against its parent and the file, and GDCM only
// decodes compressed pixel data handed to it as fragments.
//
// Read: a 128-byte preamble and "DICM", an explicit little endian meta
// group, then the data set in implicit or explicit little endian, explicit
// big endian, or an encapsulated syntax (JPEG family, JPEG-LS, JPEG 2000,
// RLE), walked to the end of the file; sequences nest at most 32 deep.
// Deflated data sets and other syntaxes are refused.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct TezDicomFile
{
    struct Span
    {
        uint64_t offset = 0, length = 0;
    };

    bool part10 = false; // a regular file with the preamble and "DICM"
    std::string problem; // empty when the walk passed
    bool pixels = false; // the data set holds pixel data
    std::string syntax;  // the transfer syntax UID
    bool bigEndian = false;
    bool encapsulated = false;
    // Top-level values of the attributes a volume needs, by tag (group <<
    // 16 | element): text values without padding, binary integers in
    // decimal. Values over 1 KiB are left out.
    std::map<uint32_t, std::string> values;
    // Native pixel data: one span. Encapsulated: the offset table, then
    // each fragment.
    std::vector<Span> pixelSpans;
    uint64_t pixelBytes = 0; // of all spans

    static TezDicomFile Read(std::string const& path);

    // The value of `tag`, or empty.
    std::string Value(uint32_t tag) const;
};
