#pragma once
// A walk over a DICOM file's elements that reads their headers only, run
// before GDCM sees the file. Internal: not installed.
//
// GDCM trusts lengths: a cut file or an element longer than the file stops
// it on an assertion or makes it allocate what the file does not hold. The
// walk demands a Part 10 file (128-byte preamble, "DICM", explicit little
// endian meta group) and then, in the transfer syntax the meta group names,
// that every element, item and fragment lies within its parent and the file,
// that undefined lengths end in their delimiters, and that nesting stays
// below 32 levels, to the end of the file: GDCM reads what follows the
// pixel data too. Deflated data sets
// are refused: they cannot be walked without inflating them.

#include <cstdint>
#include <string>

struct TezDicomStructure
{
    bool part10 = false;  // a regular file with the preamble and "DICM"
    std::string problem;  // empty when the walk passed
    bool pixels = false;  // the file has top-level pixel data
    uint64_t pixelBytes = 0; // the top-level pixel data's bytes (fragments and their headers when encapsulated)
    bool encapsulated = false; // compressed fragments
};

TezDicomStructure TezCheckDicomStructure(std::string const& path);
