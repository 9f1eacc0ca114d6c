#include "volume/RawVolume.h"

#include "volume/detail/VoxelRows.h"

#include <tbb/parallel_for.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {
// Deflate emits at least one bit per 258 repeated bytes: no stream inflates
// by more than about 1032 times its own size.
constexpr uint64_t kMostInflation = 1032;

bool const kHostBigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

[[noreturn]] void Fail(std::string const& path, std::string const& what)
{
    throw std::runtime_error("'" + path + "': " + what);
}

char const* SampleName(TezVoxelSample sample)
{
    switch (sample) {
    case TezVoxelSample::UInt8:
        return "uint8";
    case TezVoxelSample::Int8:
        return "int8";
    case TezVoxelSample::UInt16:
        return "uint16";
    case TezVoxelSample::Int16:
        return "int16";
    }
    return "?";
}

std::string Promise(TezRawVolumeLayout const& layout, uint64_t bytes)
{
    return std::to_string(layout.width) + " x " + std::to_string(layout.height) + " x " + std::to_string(layout.depth) +
           " " + SampleName(layout.sample) + " samples (" + std::to_string(bytes) + " bytes)";
}

// The file's size; throws when it is missing or not a regular file.
uint64_t RegularFileSize(std::string const& path)
{
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        Fail(path, std::string("cannot open: ") + std::strerror(errno));
    if (!S_ISREG(info.st_mode))
        Fail(path, "not a regular file");
    return uint64_t(info.st_size);
}

struct InflateStream
{
    z_stream stream{};
    bool open = false;
    ~InflateStream()
    {
        if (open)
            inflateEnd(&stream);
    }
};

struct File
{
    FILE* handle = nullptr;
    ~File()
    {
        if (handle)
            std::fclose(handle);
    }
};
} // namespace

uint32_t TezRawVolume::Type() const
{
    static uint32_t const type = TezAssignObjectType();
    return type;
}

TezString const& TezRawVolume::TypeName() const
{
    static TezString const name("TezRawVolume");
    return name;
}

uint64_t TezRawVolume::CountBytes(int width, int height, int depth, TezVoxelSample sample, std::string const& what)
{
    for (int size : {width, height, depth})
        if (size < 1 || size > kMaxSize)
            Fail(what, "size " + std::to_string(size) + " is outside 1.." + std::to_string(kMaxSize));
    uint64_t bytes = uint64_t(TezVoxelSampleBytes(sample));
    for (int size : {width, height, depth})
        if (__builtin_mul_overflow(bytes, uint64_t(size), &bytes))
            Fail(what, "the sizes' product overflows");
    return bytes;
}

TezRef<TezRawVolume> TezRawVolume::Create(TezRawVolumeLayout const& layout)
{
    uint64_t const bytes = CountBytes(layout.width, layout.height, layout.depth, layout.sample, layout.path);
    if (!(layout.spacing.x > 0 && layout.spacing.y > 0 && layout.spacing.z > 0) ||
        !std::isfinite(layout.spacing.x * layout.spacing.y * layout.spacing.z))
        Fail(layout.path, "the voxel spacing must be positive");
    TezRef<TezRawVolume> volume(new TezRawVolume());
    volume->m_layout = layout;
    if (layout.compressed)
        volume->Inflate(bytes);
    else
        volume->Map(bytes);
    return volume;
}

TezRef<TezRawVolume> TezRawVolume::CreateFromRawFile(std::string const& path, int width, int height, int depth,
                                                     TezVoxelSample sample, bool bigEndian,
                                                     TezVector3<double> const& spacing)
{
    TezRawVolumeLayout layout;
    layout.path = path;
    layout.width = width;
    layout.height = height;
    layout.depth = depth;
    layout.sample = sample;
    layout.bigEndian = bigEndian;
    layout.spacing = spacing;
    uint64_t const bytes = CountBytes(width, height, depth, sample, path);
    uint64_t const size = RegularFileSize(path);
    if (size != bytes)
        Fail(path, "the file holds " + std::to_string(size) + " bytes, but " + Promise(layout, bytes) +
                       (size > bytes ? " are fewer" : " are more") + ": check the sizes and the type");
    return Create(layout);
}

TezRawVolume::~TezRawVolume()
{
    if (m_mapping)
        munmap(m_mapping, m_mappingBytes);
}

void TezRawVolume::Map(uint64_t bytes)
{
    std::string const& path = m_layout.path;
    uint64_t const size = RegularFileSize(path);
    uint64_t offset = m_layout.offset;
    if (m_layout.offsetFromEnd) {
        if (size < bytes)
            Fail(path, "the file holds " + std::to_string(size) + " bytes, fewer than " + Promise(m_layout, bytes));
        offset = size - bytes;
    } else if (offset > size || size - offset < bytes) {
        Fail(path, "the file holds " + std::to_string(offset > size ? 0 : size - offset) + " bytes after byte " +
                       std::to_string(offset) + ", fewer than " + Promise(m_layout, bytes) +
                       ": cut short, or the header lies");
    }
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        Fail(path, std::string("cannot open: ") + std::strerror(errno));
    void* mapping = mmap(nullptr, size_t(size), PROT_READ, MAP_PRIVATE, fd, 0);
    int const mapError = errno;
    close(fd);
    if (mapping == MAP_FAILED)
        Fail(path, std::string("cannot map the file: ") + std::strerror(mapError));
    m_mapping = mapping;
    m_mappingBytes = size;
    m_data = static_cast<uint8_t const*>(mapping) + offset;
}

void TezRawVolume::Inflate(uint64_t bytes)
{
    std::string const& path = m_layout.path;
    uint64_t const size = RegularFileSize(path);
    uint64_t const offset = m_layout.offset;
    if (offset >= size)
        Fail(path, "no compressed samples after byte " + std::to_string(offset));
    uint64_t input = size - offset;
    if (m_layout.compressedSize) {
        if (m_layout.compressedSize > input)
            Fail(path, "the header promises " + std::to_string(m_layout.compressedSize) +
                           " compressed bytes, the file holds " + std::to_string(input) + ": cut short");
        input = m_layout.compressedSize;
    }
    uint64_t wanted = 0;
    if (input > UINT64_MAX / kMostInflation || __builtin_add_overflow(bytes, m_layout.compressedSkip, &wanted) ||
        wanted > input * kMostInflation + 4096)
        Fail(path, "the header promises " + Promise(m_layout, bytes) + ", more than " + std::to_string(input) +
                       " compressed bytes can hold");

    File file;
    file.handle = std::fopen(path.c_str(), "rb");
    if (!file.handle || fseeko(file.handle, off_t(offset), SEEK_SET) != 0)
        Fail(path, std::string("cannot read: ") + std::strerror(errno));
    // Left uninitialised: pages are only taken as the stream fills them.
    m_inflated.reset(new (std::nothrow) uint8_t[size_t(bytes)]);
    if (!m_inflated)
        Fail(path, Promise(m_layout, bytes) + " do not fit in memory");

    InflateStream z;
    if (inflateInit2(&z.stream, 15 + 32) != Z_OK) // zlib or gzip, told by the header
        Fail(path, "cannot start inflating");
    z.open = true;
    std::vector<uint8_t> in(1 << 16), scratch(1 << 16);
    uint64_t inputLeft = input, skipLeft = m_layout.compressedSkip, produced = 0;
    bool ended = false;
    while (!ended) {
        if (z.stream.avail_in == 0) {
            if (inputLeft == 0)
                break;
            size_t const got = std::fread(in.data(), 1, size_t(std::min<uint64_t>(in.size(), inputLeft)), file.handle);
            if (got == 0)
                break;
            inputLeft -= got;
            z.stream.next_in = in.data();
            z.stream.avail_in = uInt(got);
        }
        // Skipped bytes go to scratch; once the samples are complete, a
        // one-byte probe tells a stream that has more to give.
        bool const probe = skipLeft == 0 && produced == bytes;
        uint8_t* out = scratch.data();
        uint64_t room = 1;
        if (skipLeft)
            room = std::min<uint64_t>(scratch.size(), skipLeft);
        else if (!probe) {
            out = m_inflated.get() + produced;
            room = std::min<uint64_t>(bytes - produced, 1u << 30);
        }
        z.stream.next_out = out;
        z.stream.avail_out = uInt(room);
        int const rc = inflate(&z.stream, Z_NO_FLUSH);
        uint64_t const got = room - z.stream.avail_out;
        if (probe && got)
            Fail(path, "the compressed samples inflate to more than the header's " + Promise(m_layout, bytes));
        if (skipLeft)
            skipLeft -= got;
        else
            produced += got;
        if (rc == Z_STREAM_END)
            ended = true;
        else if (rc == Z_BUF_ERROR && got == 0 && z.stream.avail_in != 0)
            Fail(path, "the compressed samples are damaged");
        else if (rc != Z_OK && rc != Z_BUF_ERROR)
            Fail(path, std::string("the compressed samples are damaged: ") +
                           (z.stream.msg ? z.stream.msg : "inflate error " + std::to_string(rc)));
    }
    if (produced < bytes)
        Fail(path, "the compressed samples end after " + std::to_string(produced) + " of the " +
                       Promise(m_layout, bytes) + ": cut short, or the header lies");
    m_data = m_inflated.get();
}

bool TezRawVolume::Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel,
                        uint64_t rowStride, uint64_t sliceStride, uint8_t** /*interpolationBuffers*/)
{
    TezRawVolumeLayout const& l = m_layout;
    if (!m_data || !TezIsValidCopyRequest(l.width, l.height, l.depth, buffer, x, y, z, width, height, depth,
                                          bitsPerPixel, rowStride, sliceStride))
        return false;
    bool const swap = l.bigEndian != kHostBigEndian;
    uint64_t const sliceBytes = uint64_t(l.width) * uint64_t(l.height) * uint64_t(TezVoxelSampleBytes(l.sample));
    auto* out = static_cast<uint8_t*>(buffer);
    tbb::parallel_for(0, depth, [&](int k) {
        TezCopySliceBox(m_data + uint64_t(z + k) * sliceBytes, l.width, l.height, l.sample, swap, x, y, width, height,
                        out + uint64_t(k) * sliceStride, rowStride, bitsPerPixel);
    });
    return true;
}
