#include "core/Archive.h"

#include "core/Compress.h"

#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the archive writes the host's bytes as little-endian");

char const* const TezArchiveReferenceNull = "referenceNull";
char const* const TezArchiveReferenceObject = "referenceObject";

namespace {

constexpr size_t kBlockSize = 0x40000;
constexpr unsigned kCompressedThreshold = 250;
// DEFLATE cannot expand by more than about 1032:1; anything claiming more
// is not a compressed payload we wrote.
constexpr uint64_t kMaxExpansion = 1032;

char const* const kEndOfFile = "Unexpected end of file reading file.";

[[noreturn]] void Fail(std::string const& text) { throw std::runtime_error(text); }

} // namespace

// ---- opening ----

TezArchive::TezArchive(FILE* file, Mode mode, bool ownsFile)
    : m_file(file), m_mode(mode), m_buffer(kBlockSize), m_ownsFile(ownsFile)
{
    struct stat info;
    if (mode == Read && fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode))
        m_fileSize = static_cast<int64_t>(info.st_size);
}

TezRef<TezArchive> TezArchive::Open(char const* path, Mode mode)
{
    if (!path)
        return nullptr;
    FILE* file = std::fopen(path, mode == Read ? "rb" : "wb");
    if (!file)
        return nullptr;
    return TezRef<TezArchive>(new TezArchive(file, mode, true));
}

TezRef<TezArchive> TezArchive::Open(FILE* file, Mode mode)
{
    if (!file)
        return nullptr;
    return TezRef<TezArchive>(new TezArchive(file, mode, false));
}

TezArchive::~TezArchive()
{
    if (m_ownsFile && m_file) {
        if (m_mode != Read)
            Flush();
        std::fclose(m_file);
    }
}

// A copy shares the stream; only the original closes it.
TezArchive::TezArchive(TezArchive const& other)
    : TezRefCounter(other), m_file(other.m_file), m_mode(other.m_mode), m_objects(other.m_objects),
      m_pendingTag(other.m_pendingTag), m_bufferPosition(other.m_bufferPosition), m_bufferFill(other.m_bufferFill),
      m_buffer(other.m_buffer), m_compressLevel(other.m_compressLevel), m_ownsFile(false), m_fileSize(other.m_fileSize)
{
}

TezArchive& TezArchive::operator=(TezArchive const& other)
{
    if (this != &other) {
        TezRefCounter::operator=(other);
        m_file = other.m_file;
        m_mode = other.m_mode;
        m_objects = other.m_objects;
        m_pendingTag = other.m_pendingTag;
        m_bufferPosition = other.m_bufferPosition;
        m_bufferFill = other.m_bufferFill;
        m_buffer = other.m_buffer;
        m_compressLevel = other.m_compressLevel;
        m_ownsFile = false;
        m_fileSize = other.m_fileSize;
    }
    return *this;
}

// ---- writing ----

void TezArchive::WriteBytes(void const* data, size_t size)
{
    auto const* bytes = static_cast<unsigned char const*>(data);
    if (size >= kBlockSize) {
        // Large runs skip the copy through the block buffer.
        Flush();
        std::fwrite(bytes, 1, size, m_file);
        return;
    }
    while (size > 0) {
        size_t room = kBlockSize - m_bufferPosition;
        size_t n = size < room ? size : room;
        std::memcpy(m_buffer.data() + m_bufferPosition, bytes, n);
        m_bufferPosition += n;
        bytes += n;
        size -= n;
        if (m_bufferPosition == kBlockSize) {
            std::fwrite(m_buffer.data(), 1, kBlockSize, m_file);
            m_bufferPosition = 0;
        }
    }
}

void TezArchive::WriteSize(uint64_t size, bool compressed)
{
    unsigned char code;
    if (!compressed && size < kCompressedThreshold) {
        code = static_cast<unsigned char>(size);
        WriteBytes(&code, 1);
    } else if (size < 0x10000) {
        code = compressed ? 253 : 250;
        uint16_t value = static_cast<uint16_t>(size);
        WriteBytes(&code, 1);
        WriteBytes(&value, 2);
    } else if (size < 0x100000000ull) {
        code = compressed ? 254 : 251;
        uint32_t value = static_cast<uint32_t>(size);
        WriteBytes(&code, 1);
        WriteBytes(&value, 4);
    } else {
        code = compressed ? 255 : 252;
        WriteBytes(&code, 1);
        WriteBytes(&size, 8);
    }
}

void TezArchive::WritePayload(void const* data, size_t size)
{
    if (size < kCompressedThreshold || m_compressLevel == 0) {
        WriteSize(size, false);
        WriteBytes(data, size);
        return;
    }
    std::vector<uint8_t> frame;
    TezCompress::Compress(data, size, frame, m_compressLevel);
    WriteSize(size, true);
    WriteSize(frame.size(), false);
    WriteBytes(frame.data(), frame.size());
}

void TezArchive::WriteTag(char const* tag) { WritePayload(tag ? tag : "", tag ? std::strlen(tag) : 0); }

void TezArchive::WriteBinary(char const* tag, void const* data, size_t size)
{
    WriteTag(tag);
    WritePayload(data, data ? size : 0);
}

void TezArchive::WriteBool(char const* tag, bool value)
{
    unsigned char byte = value ? 1 : 0;
    WriteBinary(tag, &byte, 1);
}

void TezArchive::WriteInt(char const* tag, int32_t value) { WriteBinary(tag, &value, 4); }
void TezArchive::WriteUnsigned(char const* tag, uint32_t value) { WriteBinary(tag, &value, 4); }
void TezArchive::WriteLong(char const* tag, int32_t value) { WriteBinary(tag, &value, 4); }
void TezArchive::WriteUnsignedLong(char const* tag, uint32_t value) { WriteBinary(tag, &value, 4); }
void TezArchive::WriteSizet(char const* tag, uint64_t value) { WriteBinary(tag, &value, 8); }
void TezArchive::WriteFloat(char const* tag, float value) { WriteBinary(tag, &value, 4); }
void TezArchive::WriteDouble(char const* tag, double value) { WriteBinary(tag, &value, 8); }

void TezArchive::WriteString(char const* tag, TezString const& value)
{
    WriteBinary(tag, value.c_str(), static_cast<size_t>(value.Length()));
}

void TezArchive::WriteString(char const* tag, char const* value)
{
    WriteBinary(tag, value, value ? std::strlen(value) : 0);
}

void TezArchive::WriteCompressedBinary(char const* tag, void const* data, size_t size, size_t compressedSize)
{
    WriteTag(tag);
    WriteSize(size, true);
    WriteSize(compressedSize, false);
    WriteBytes(data, compressedSize);
}

void TezArchive::WriteStartSection(char const* name)
{
    TezString collapsed(name);
    collapsed.CollapseWhitespace();
    WriteString("sectionStart", collapsed);
}

void TezArchive::WriteEndSection() { WriteString("sectionEnd", "end"); }

void TezArchive::WriteObject(char const* tag, TezRef<TezIdentifiableObject> object)
{
    uint32_t id = object ? object->Id() : 0;
    if (id != 0 && m_numberObjectsInOrder)
        id = m_writtenNumbers.emplace(id, uint32_t(m_writtenNumbers.size() + 1)).first->second;
    WriteObjectRecord(tag, id, object ? object->TypeName() : TezString(""));
}

void TezArchive::WriteObjectRecord(char const* tag, uint32_t id, TezString const& typeName)
{
    WriteTag(tag);
    WriteSize(0, false);
    WriteUnsignedLong("ObjectId", id);
    WriteString("TypeName", typeName);
}

void TezArchive::Flush()
{
    if (m_mode == Read)
        return;
    if (m_bufferPosition > 0) {
        std::fwrite(m_buffer.data(), 1, m_bufferPosition, m_file);
        m_bufferPosition = 0;
    }
    std::fflush(m_file);
}

// ---- reading ----

size_t TezArchive::ReadBytes(void* dest, size_t size)
{
    auto* bytes = static_cast<unsigned char*>(dest);
    size_t done = 0;
    while (done < size) {
        if (m_bufferPosition >= m_bufferFill) {
            if (m_bufferFill != 0 && m_bufferFill < kBlockSize)
                Fail(kEndOfFile);
            m_bufferFill = std::fread(m_buffer.data(), 1, kBlockSize, m_file);
            m_bufferPosition = 0;
            if (m_bufferFill == 0)
                return done; // the end of a whole block: the read ends silently
        }
        size_t available = m_bufferFill - m_bufferPosition;
        size_t n = size - done < available ? size - done : available;
        std::memcpy(bytes + done, m_buffer.data() + m_bufferPosition, n);
        m_bufferPosition += n;
        done += n;
    }
    return done;
}

// Reads `size` bytes into `out`, growing it only as the bytes arrive, so a
// stored size that lies costs no more memory than the data really there.
template <class Vector>
void TezArchive::ReadGrowing(Vector& out, uint64_t size)
{
    constexpr uint64_t kStep = 1 << 20;
    out.clear();
    uint64_t done = 0;
    while (done < size) {
        uint64_t step = size - done < kStep ? size - done : kStep;
        out.resize(static_cast<size_t>(done + step));
        if (ReadBytes(out.data() + done, static_cast<size_t>(step)) < step)
            Fail(kEndOfFile);
        done += step;
    }
}

bool TezArchive::AtEnd()
{
    if (m_bufferPosition < m_bufferFill)
        return false;
    if (m_bufferFill != 0 && m_bufferFill < kBlockSize)
        return true;
    m_bufferFill = std::fread(m_buffer.data(), 1, kBlockSize, m_file);
    m_bufferPosition = 0;
    return m_bufferFill == 0;
}

void TezArchive::CheckAvailable(uint64_t size, char const* what)
{
    if (m_fileSize < 0)
        return;
    int64_t position = GetPosition();
    uint64_t left = position < m_fileSize ? static_cast<uint64_t>(m_fileSize - position) : 0;
    if (size > left)
        Fail(std::string(kEndOfFile));
    (void)what;
}

TezArchive::SizeCode TezArchive::ReadSize()
{
    SizeCode code;
    unsigned char first = 0;
    ReadBytes(&first, 1);
    if (first < kCompressedThreshold) {
        code.size = first;
        return code;
    }
    code.compressed = first >= 253;
    switch (first) {
    case 250:
    case 253: {
        uint16_t value = 0;
        ReadBytes(&value, 2);
        code.size = value;
        break;
    }
    case 251:
    case 254: {
        uint32_t value = 0;
        ReadBytes(&value, 4);
        code.size = value;
        break;
    }
    default: {
        uint64_t value = 0;
        ReadBytes(&value, 8);
        code.size = value;
        break;
    }
    }
    return code;
}

// The frame of a compressed payload, after checking that it can hold what
// the size code claims.
std::vector<uint8_t> TezArchive::ReadCompressedPayload(SizeCode code)
{
    SizeCode frameSize = ReadSize();
    CheckAvailable(frameSize.size, "compressed value");
    if (code.size > frameSize.size * kMaxExpansion + 1024)
        Fail("TezArchive: a compressed value of " + std::to_string(frameSize.size) + " bytes cannot hold " +
             std::to_string(code.size) + " bytes");
    std::vector<uint8_t> frame;
    ReadGrowing(frame, frameSize.size);
    return frame;
}

void TezArchive::ReadValue(void* dest, SizeCode code)
{
    if (!code.compressed) {
        CheckAvailable(code.size, "value");
        ReadBytes(dest, code.size);
        return;
    }
    std::vector<uint8_t> frame = ReadCompressedPayload(code);
    if (code.size > 0)
        TezCompress::Uncompress(frame.data(), frame.size(), dest, code.size);
}

TezString TezArchive::ConsumeTag()
{
    if (m_pendingTag.Length() > 0) {
        TezString tag = m_pendingTag;
        m_pendingTag.Erase();
        return tag;
    }
    return ReadByteString();
}

TezString TezArchive::ReadTag()
{
    m_pendingTag = ConsumeTag();
    return m_pendingTag;
}

void TezArchive::ReadBinary(void* dest, size_t expected)
{
    TezString tag = ConsumeTag();
    SizeCode code = ReadSize();
    if (expected != 0 && code.size > expected) {
        TezString text;
        text.Format("Read size incorrect in TezArchive: expected:%d  actual:%d  tag <%s>\n", static_cast<int>(expected),
                    static_cast<int>(code.size), tag.c_str());
        Fail(text.c_str());
    }
    ReadValue(dest, code);
}

uint64_t TezArchive::PeekValueSize()
{
    int64_t const position = GetPosition();
    SizeCode const code = ReadSize();
    SetPosition(position);
    return code.size;
}

bool TezArchive::ReadBool()
{
    unsigned char value = 0;
    ReadBinary(&value, 1);
    return value != 0;
}

#define TEZ_READ_SCALAR(Name, Type)                                                                                    \
    Type TezArchive::Name()                                                                                            \
    {                                                                                                                  \
        Type value{};                                                                                                  \
        ReadBinary(&value, sizeof value);                                                                              \
        return value;                                                                                                  \
    }

TEZ_READ_SCALAR(ReadInt, int32_t)
TEZ_READ_SCALAR(ReadUnsigned, uint32_t)
TEZ_READ_SCALAR(ReadLong, int32_t)
TEZ_READ_SCALAR(ReadUnsignedLong, uint32_t)
TEZ_READ_SCALAR(ReadSizet, uint64_t)
TEZ_READ_SCALAR(ReadFloat, float)
TEZ_READ_SCALAR(ReadDouble, double)
#undef TEZ_READ_SCALAR

TezString TezArchive::ReadString()
{
    ConsumeTag();
    return ReadByteString();
}

TezString TezArchive::ReadByteString()
{
    SizeCode code = ReadSize();
    int32_t length = static_cast<int32_t>(code.size);
    if (length < 0 || static_cast<uint64_t>(length) != code.size)
        Fail("TezArchive::ReadString: a string of " + std::to_string(code.size) + " bytes is not readable");
    if (length == 0) {
        if (code.compressed)
            ReadValue(nullptr, code);
        return TezString("");
    }
    std::vector<char> text;
    if (code.compressed) {
        std::vector<uint8_t> frame = ReadCompressedPayload(code);
        text.resize(static_cast<size_t>(length));
        TezCompress::Uncompress(frame.data(), frame.size(), text.data(), text.size());
    } else {
        CheckAvailable(code.size, "string");
        ReadGrowing(text, code.size);
    }
    text.push_back('\0');
    return TezString(text.data());
}

TezString const TezArchive::ReadStartSection(int skip)
{
    if (skip == 0)
        return ReadString();
    SkipSection();
    return TezString();
}

// Walks to the end of the section just started; nested sections too, without
// recursion, so that any depth is safe.
void TezArchive::SkipSection()
{
    ReadString();
    uint64_t depth = 1;
    while (depth > 0) {
        TezString tag = ReadTag();
        if (tag.CompareNoCase(TezString("sectionStart")) == 0) {
            ReadString();
            ++depth;
        } else if (tag.CompareNoCase(TezString("sectionEnd")) == 0) {
            ReadEndSection();
            --depth;
        } else {
            SkipUnknownTag();
        }
    }
}

void TezArchive::ReadEndSection() { ReadString(); }

void TezArchive::SkipUnknownTag()
{
    // A loader walking past the end would otherwise loop on empty tags.
    if (AtEnd())
        Fail(kEndOfFile);
    SizeCode code = ReadSize();
    std::vector<unsigned char> scratch;
    auto drop = [&](uint64_t size) {
        CheckAvailable(size, "skipped value");
        scratch.resize(size < kBlockSize ? size : kBlockSize);
        while (size > 0) {
            size_t n = size < kBlockSize ? size : kBlockSize;
            if (ReadBytes(scratch.data(), n) < n)
                Fail(kEndOfFile);
            size -= n;
        }
    };
    if (code.compressed) {
        drop(ReadSize().size);
        return; // the tag stays pending
    }
    int32_t size = static_cast<int32_t>(code.size);
    if (size > 0)
        drop(static_cast<uint64_t>(size));
    m_pendingTag.Erase();
}

TezRef<TezIdentifiableObject> TezArchive::ReadObject()
{
    ConsumeTag();
    int64_t position = GetPosition();
    SizeCode marker = ReadSize();
    if (marker.size != 0 || marker.compressed)
        SetPosition(position); // records without the zero byte are accepted
    uint32_t id = ReadUnsignedLong();
    TezString typeName = ReadString();
    if (id == 0)
        return nullptr;
    auto found = m_objects.find(id);
    if (found != m_objects.end())
        return found->second;
    TezRef<TezIdentifiableObject> object(TezCreateObjectFromName(typeName));
    m_objects[id] = object;
    return object;
}

template <class Vector>
void TezArchive::ReadFrame(Vector& out)
{
    ConsumeTag();
    SizeCode code = ReadSize();
    if (code.compressed) {
        SizeCode frameSize = ReadSize();
        CheckAvailable(frameSize.size, "compressed value");
        ReadGrowing(out, frameSize.size);
        return;
    }
    CheckAvailable(code.size, "value");
    std::vector<unsigned char> raw;
    ReadGrowing(raw, code.size);
    out.clear();
    TezCompress::Compress(raw.data(), raw.size(), out, 1);
}

void TezArchive::ReadCompressedBinary(std::vector<unsigned char>& out) { ReadFrame(out); }

void TezArchive::ReadCompressedBinary(std::vector<unsigned char, tbb::cache_aligned_allocator<unsigned char>>& out)
{
    ReadFrame(out);
}

// ---- positions ----

int64_t TezArchive::GetPosition()
{
    int64_t position = static_cast<int64_t>(std::ftell(m_file));
    if (m_mode == Read)
        return position - static_cast<int32_t>(m_bufferFill - m_bufferPosition);
    return position + static_cast<int64_t>(m_bufferPosition);
}

void TezArchive::SetPosition(int64_t position)
{
    if (m_mode == Read) {
        m_bufferPosition = 0;
        m_bufferFill = 0;
    } else {
        Flush();
    }
    std::fseek(m_file, static_cast<long>(position), SEEK_SET);
}

// ---- file or memory ----

void TezRead(void* buffer, size_t size, size_t count, FILE* stream, unsigned char** cursor)
{
    if (stream)
        std::fread(buffer, size, count, stream);
    if (cursor && *cursor) {
        std::memcpy(buffer, *cursor, size * count);
        *cursor += size * count;
    }
}

void TezWrite(void const* buffer, size_t size, size_t count, FILE* stream, std::vector<unsigned char>* out)
{
    if (stream)
        std::fwrite(buffer, size, count, stream);
    if (out) {
        auto const* bytes = static_cast<unsigned char const*>(buffer);
        out->insert(out->end(), bytes, bytes + size * count);
    }
}
