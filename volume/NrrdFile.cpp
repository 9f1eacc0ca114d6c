#include "volume/NrrdFile.h"

#include "volume/detail/HeaderText.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace {
[[noreturn]] void Fail(std::string const& path, std::string const& what)
{
    throw std::runtime_error("'" + path + "': " + what);
}

TezVoxelSample ParseType(std::string const& path, std::string const& text)
{
    std::string const type = TezLower(text);
    for (char const* name : {"uchar", "unsigned char", "uint8", "uint8_t"})
        if (type == name)
            return TezVoxelSample::UInt8;
    for (char const* name : {"signed char", "int8", "int8_t"})
        if (type == name)
            return TezVoxelSample::Int8;
    for (char const* name : {"ushort", "unsigned short", "unsigned short int", "uint16", "uint16_t"})
        if (type == name)
            return TezVoxelSample::UInt16;
    for (char const* name : {"short", "short int", "signed short", "signed short int", "int16", "int16_t"})
        if (type == name)
            return TezVoxelSample::Int16;
    Fail(path, "NRRD type '" + text + "' is not read (8- and 16-bit integers are)");
}

// A positive finite spacing, or 1 for an axis that has none ("nan", 0).
double Spacing(double value)
{
    value = std::fabs(value);
    return std::isfinite(value) && value > 0 ? value : 1.0;
}

// The length of "(a,b,c)", or 0 for "none" and anything unreadable.
double DirectionLength(std::string const& word)
{
    if (word.size() < 2 || word.front() != '(' || word.back() != ')')
        return 0.0;
    std::string const inner = word.substr(1, word.size() - 2);
    double sum = 0.0;
    size_t start = 0;
    while (start <= inner.size()) {
        size_t const comma = inner.find(',', start);
        std::string const part =
            TezTrim(inner.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        double value = 0.0;
        if (!TezParseDouble(part, value))
            return 0.0;
        sum += value * value;
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return std::sqrt(sum);
}

// The offset after `lines` more line ends from `offset` in the file.
uint64_t SkipLines(std::string const& path, uint64_t offset, int64_t lines)
{
    if (lines <= 0)
        return offset;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file || fseeko(file, off_t(offset), SEEK_SET) != 0) {
        if (file)
            std::fclose(file);
        Fail(path, "cannot read the data file");
    }
    int c;
    while (lines > 0 && (c = std::fgetc(file)) != EOF) {
        ++offset;
        if (c == '\n')
            --lines;
    }
    std::fclose(file);
    if (lines > 0)
        Fail(path, "the file ends within its 'line skip'");
    return offset;
}
} // namespace

TezRawVolumeLayout TezNrrdFile::ReadLayout(std::string const& path)
{
    std::string const head = TezReadFileHead(path, kTezMaxHeaderBytes + 1);
    if (head.compare(0, 7, "NRRD000") != 0 || head.size() < 8 || head[7] < '1' || head[7] > '9')
        Fail(path, "not a NRRD file (no NRRD000x magic)");

    TezRawVolumeLayout layout;
    std::string type, encoding, endian, dataFile;
    std::vector<std::string> sizes, spacings, directions;
    int64_t dimension = 0, byteSkip = 0, lineSkip = 0;
    bool ended = false;
    size_t headerEnd = head.size();
    size_t position = head.find('\n');
    while (position != std::string::npos && position + 1 <= head.size()) {
        size_t const start = position + 1;
        size_t const end = head.find('\n', start);
        if (end == std::string::npos) {
            // The last line counts only when the file ends with it.
            if (head.size() > kTezMaxHeaderBytes)
                Fail(path, "the NRRD header is longer than 1 MiB");
            if (start == head.size())
                break;
        }
        std::string line = head.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        position = end;
        if (line.empty()) {
            ended = true;
            headerEnd = end + 1;
            break;
        }
        if (line[0] == '#' || line.find(":=") != std::string::npos)
            continue;
        size_t const colon = line.find(": ");
        if (colon == std::string::npos)
            Fail(path, "NRRD header line '" + line.substr(0, 80) + "' is not 'field: value'");
        std::string const field = TezLower(TezTrim(line.substr(0, colon)));
        std::string const value = TezTrim(line.substr(colon + 2));
        if (field == "type")
            type = value;
        else if (field == "dimension" && !TezParseInt64(value, dimension))
            Fail(path, "bad dimension '" + value + "'");
        else if (field == "sizes")
            sizes = TezSplitWords(value);
        else if (field == "spacings")
            spacings = TezSplitWords(value);
        else if (field == "space directions")
            directions = TezSplitWords(value);
        else if (field == "endian")
            endian = TezLower(value);
        else if (field == "encoding")
            encoding = TezLower(value);
        else if (field == "data file" || field == "datafile")
            dataFile = value;
        else if ((field == "byte skip" || field == "byteskip") && !TezParseInt64(value, byteSkip))
            Fail(path, "bad byte skip '" + value + "'");
        else if ((field == "line skip" || field == "lineskip") && !TezParseInt64(value, lineSkip))
            Fail(path, "bad line skip '" + value + "'");
    }

    if (type.empty() || dimension == 0 || sizes.empty() || encoding.empty())
        Fail(path, std::string("the NRRD header has no '") +
                       (type.empty()     ? "type"
                        : dimension == 0 ? "dimension"
                        : sizes.empty()  ? "sizes"
                                         : "encoding") +
                       "' field");
    layout.sample = ParseType(path, type);
    if (dimension < 2 || dimension > 3)
        Fail(path, "NRRD dimension " + std::to_string(dimension) + " is not read (2 or 3 axes of scalar samples are)");
    if (int64_t(sizes.size()) != dimension)
        Fail(path,
             "'sizes' has " + std::to_string(sizes.size()) + " entries for dimension " + std::to_string(dimension));
    int64_t size[3] = {1, 1, 1};
    for (int64_t axis = 0; axis < dimension; ++axis)
        if (!TezParseInt64(sizes[size_t(axis)], size[axis]) || size[axis] < 1 || size[axis] > TezRawVolume::kMaxSize)
            Fail(path, "size '" + sizes[size_t(axis)] + "' is not a whole number from 1 to " +
                           std::to_string(TezRawVolume::kMaxSize));
    layout.width = int(size[0]);
    layout.height = int(size[1]);
    layout.depth = int(size[2]);

    double spacing[3] = {1.0, 1.0, 1.0};
    if (int64_t(spacings.size()) == dimension) {
        for (int64_t axis = 0; axis < dimension; ++axis) {
            double value = 0.0;
            spacing[axis] = Spacing(TezParseDouble(spacings[size_t(axis)], value) ? value : 0.0);
        }
    } else if (int64_t(directions.size()) == dimension) {
        for (int64_t axis = 0; axis < dimension; ++axis)
            spacing[axis] = Spacing(DirectionLength(directions[size_t(axis)]));
    }
    layout.spacing = TezVector3<double>(spacing[0], spacing[1], spacing[2]);

    if (encoding == "gzip" || encoding == "gz")
        layout.compressed = true;
    else if (encoding != "raw")
        Fail(path, "NRRD encoding '" + encoding + "' is not read (raw and gzip are)");
    if (endian == "big")
        layout.bigEndian = true;
    else if (endian.empty() && TezVoxelSampleBytes(layout.sample) > 1)
        Fail(path, "16-bit samples need an 'endian' field");
    else if (!endian.empty() && endian != "little")
        Fail(path, "bad endian '" + endian + "'");

    uint64_t offset = 0;
    if (dataFile.empty()) {
        if (!ended)
            Fail(path, "no samples after the NRRD header (no blank line, no data file)");
        layout.path = path;
        offset = headerEnd;
    } else {
        std::vector<std::string> const words = TezSplitWords(dataFile);
        if (dataFile == "LIST" || (words.size() >= 4 && dataFile.find('%') != std::string::npos))
            Fail(path, "NRRD samples in several data files are not read");
        layout.path = TezBesideFile(path, dataFile);
    }
    if (lineSkip < 0)
        Fail(path, "bad line skip " + std::to_string(lineSkip));
    offset = SkipLines(layout.path, offset, lineSkip);
    if (byteSkip < -1 || (byteSkip == -1 && layout.compressed))
        Fail(path, "bad byte skip " + std::to_string(byteSkip));
    layout.offset = offset;
    if (byteSkip == -1)
        layout.offsetFromEnd = true;
    else if (layout.compressed)
        layout.compressedSkip = uint64_t(byteSkip);
    else if (__builtin_add_overflow(layout.offset, uint64_t(byteSkip), &layout.offset))
        Fail(path, "bad byte skip " + std::to_string(byteSkip));
    return layout;
}

TezRef<TezRawVolume> TezNrrdFile::Open(std::string const& path) { return TezRawVolume::Create(ReadLayout(path)); }
