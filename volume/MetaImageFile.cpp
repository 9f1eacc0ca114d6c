#include "volume/MetaImageFile.h"

#include "volume/detail/HeaderText.h"

#include <cmath>
#include <map>
#include <stdexcept>

namespace {
[[noreturn]] void Fail(std::string const& path, std::string const& what)
{
    throw std::runtime_error("'" + path + "': " + what);
}

bool IsTrue(std::string const& value)
{
    std::string const v = TezLower(value);
    return v == "true" || v == "1" || v == "yes";
}

// Up to three positive finite numbers, 1 where one is missing or bad.
TezVector3<double> ReadSpacing(std::string const& text)
{
    double spacing[3] = {1.0, 1.0, 1.0};
    std::vector<std::string> const words = TezSplitWords(text);
    for (size_t axis = 0; axis < 3 && axis < words.size(); ++axis) {
        double value = 0.0;
        if (TezParseDouble(words[axis], value) && std::isfinite(value) && std::fabs(value) > 0)
            spacing[axis] = std::fabs(value);
    }
    return TezVector3<double>(spacing[0], spacing[1], spacing[2]);
}
} // namespace

TezRawVolumeLayout TezMetaImageFile::ReadLayout(std::string const& path)
{
    std::string const head = TezReadFileHead(path, kTezMaxHeaderBytes + 1);
    std::map<std::string, std::string> keys;
    size_t dataStart = std::string::npos;
    size_t start = 0;
    while (start < head.size()) {
        size_t const end = head.find('\n', start);
        if (end == std::string::npos && head.size() > kTezMaxHeaderBytes)
            Fail(path, "the MetaImage header is longer than 1 MiB");
        std::string line = head.substr(start, end == std::string::npos ? std::string::npos : end - start);
        start = end == std::string::npos ? head.size() : end + 1;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (TezTrim(line).empty())
            continue;
        size_t const equals = line.find('=');
        if (equals == std::string::npos)
            Fail(path, "MetaImage header line '" + line.substr(0, 80) + "' is not 'Key = Value'");
        std::string const key = TezLower(TezTrim(line.substr(0, equals)));
        keys[key] = TezTrim(line.substr(equals + 1));
        // The data file's key ends the header; LOCAL samples follow it.
        if (key == "elementdatafile") {
            dataStart = start;
            break;
        }
    }
    if (dataStart == std::string::npos)
        Fail(path, "not a MetaImage header (no ElementDataFile)");
    for (char const* needed : {"ndims", "dimsize", "elementtype"})
        if (!keys.count(needed))
            Fail(path, std::string("the MetaImage header has no ") + (needed[0] == 'n'   ? "NDims"
                                                                      : needed[0] == 'd' ? "DimSize"
                                                                                         : "ElementType"));

    TezRawVolumeLayout layout;
    std::string const type = keys["elementtype"];
    if (type == "MET_UCHAR")
        layout.sample = TezVoxelSample::UInt8;
    else if (type == "MET_CHAR")
        layout.sample = TezVoxelSample::Int8;
    else if (type == "MET_USHORT")
        layout.sample = TezVoxelSample::UInt16;
    else if (type == "MET_SHORT")
        layout.sample = TezVoxelSample::Int16;
    else
        Fail(path,
             "MetaImage element type '" + type + "' is not read (MET_UCHAR, MET_CHAR, MET_USHORT, MET_SHORT are)");
    if (keys.count("elementnumberofchannels") && keys["elementnumberofchannels"] != "1")
        Fail(path, "MetaImage samples of " + keys["elementnumberofchannels"] + " channels are not read (1 is)");
    if (keys.count("binarydata") && !IsTrue(keys["binarydata"]))
        Fail(path, "MetaImage text samples (BinaryData = False) are not read");

    int64_t dims = 0;
    if (!TezParseInt64(keys["ndims"], dims) || dims < 2 || dims > 3)
        Fail(path, "MetaImage NDims '" + keys["ndims"] + "' is not read (2 or 3 are)");
    std::vector<std::string> const sizes = TezSplitWords(keys["dimsize"]);
    if (int64_t(sizes.size()) != dims)
        Fail(path, "DimSize has " + std::to_string(sizes.size()) + " entries for NDims " + std::to_string(dims));
    int64_t size[3] = {1, 1, 1};
    for (int64_t axis = 0; axis < dims; ++axis)
        if (!TezParseInt64(sizes[size_t(axis)], size[axis]) || size[axis] < 1 || size[axis] > TezRawVolume::kMaxSize)
            Fail(path, "size '" + sizes[size_t(axis)] + "' is not a whole number from 1 to " +
                           std::to_string(TezRawVolume::kMaxSize));
    layout.width = int(size[0]);
    layout.height = int(size[1]);
    layout.depth = int(size[2]);
    layout.spacing = ReadSpacing(keys.count("elementspacing") ? keys["elementspacing"] : keys["elementsize"]);

    layout.bigEndian =
        IsTrue(keys.count("elementbyteordermsb") ? keys["elementbyteordermsb"] : keys["binarydatabyteordermsb"]);
    layout.compressed = keys.count("compresseddata") && IsTrue(keys["compresseddata"]);
    if (layout.compressed && keys.count("compresseddatasize")) {
        int64_t bytes = 0;
        if (!TezParseInt64(keys["compresseddatasize"], bytes) || bytes < 1)
            Fail(path, "bad CompressedDataSize '" + keys["compresseddatasize"] + "'");
        layout.compressedSize = uint64_t(bytes);
    }

    std::string const dataFile = keys["elementdatafile"];
    if (dataFile == "LOCAL") {
        layout.path = path;
        layout.offset = dataStart;
        return layout;
    }
    if (dataFile.empty() || dataFile == "LIST" || dataFile.find('%') != std::string::npos)
        Fail(path, "MetaImage samples in several data files are not read");
    layout.path = TezBesideFile(path, dataFile);
    int64_t headerSize = 0;
    if (keys.count("headersize") &&
        (!TezParseInt64(keys["headersize"], headerSize) || headerSize < -1 || (headerSize == -1 && layout.compressed)))
        Fail(path, "bad HeaderSize '" + keys["headersize"] + "'");
    if (headerSize == -1)
        layout.offsetFromEnd = true;
    else
        layout.offset = uint64_t(headerSize);
    return layout;
}

TezRef<TezRawVolume> TezMetaImageFile::Open(std::string const& path) { return TezRawVolume::Create(ReadLayout(path)); }
