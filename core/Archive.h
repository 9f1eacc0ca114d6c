#pragma once
// TezArchive: the kernel's one tagged binary format.
//
// A flat stream of entries, no header, no table of contents: an entry is a
// tag (a byte string) and a value; readers pick the tags they know and skip
// the rest. Lengths use a size code (one byte below 250; 0xFA/0xFB/0xFC then
// 2/4/8 bytes; 0xFD/0xFE/0xFF the same for a compressed payload). With a
// non-zero compress level (default 3) every run of 250 bytes or more is stored
// as a TezCompress frame. Numbers are little-endian; long is 32 bits.
// Sections ("sectionStart" name ... "sectionEnd") nest and carry no length.
//
// The reading pattern every object follows:
//   ReadStartSection(0); loop { tag = ReadTag(); known tag -> its Read...;
//   "sectionStart" -> ReadStartSection(1); "sectionEnd" -> ReadEndSection(),
//   stop; else SkipUnknownTag(); }   (tags compared without regard to case)
//
// Reading past the end of a file that ends inside a block throws
// "Unexpected end of file reading file."; at the end of a whole block the read
// ends silently and leaves the destination as it was (an empty file reads as
// an empty tag). A stored size above the expected one throws the size error.
// Sizes a file cannot hold (more bytes than are left, or a compressed payload
// expanding beyond what DEFLATE can) are refused with std::runtime_error, as
// are unknown size codes that would need it; nothing is allocated for them.

#include "core/Identifiable.h"

#include <tbb/cache_aligned_allocator.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <vector>

TEZ_API extern char const* const TezArchiveReferenceNull;   // "referenceNull"
TEZ_API extern char const* const TezArchiveReferenceObject; // "referenceObject"

class TEZ_API TezArchive : public TezRefCounter
{
public:
    enum Mode { Read = 0, Write = 1 };

    // Opens by path ("rb" to read, "wb" otherwise); null when it cannot.
    static TezRef<TezArchive> Open(char const* path, Mode mode);
    // Wraps an open stream that stays the caller's; call Flush when writing.
    static TezRef<TezArchive> Open(FILE* file, Mode mode);
    ~TezArchive() override;

    TezArchive(TezArchive const& other);
    TezArchive& operator=(TezArchive const& other);

    // Writing.
    void WriteBool(char const* tag, bool value);
    void WriteInt(char const* tag, int32_t value);
    void WriteUnsigned(char const* tag, uint32_t value);
    void WriteLong(char const* tag, int32_t value);
    void WriteUnsignedLong(char const* tag, uint32_t value);
    void WriteSizet(char const* tag, uint64_t value);
    void WriteFloat(char const* tag, float value);
    void WriteDouble(char const* tag, double value);
    void WriteString(char const* tag, TezString const& value);
    void WriteString(char const* tag, char const* value);
    void WriteBinary(char const* tag, void const* data, size_t size);
    // data already holds `compressedSize` bytes of a TezCompress frame of `size` bytes.
    void WriteCompressedBinary(char const* tag, void const* data, size_t size, size_t compressedSize);
    void WriteStartSection(char const* name);
    void WriteEndSection();
    // Writes which object is meant (id and type name), not its contents.
    void WriteObject(char const* tag, TezRef<TezIdentifiableObject> object);
    // The same record with an id of the writer's choice (0: none), for
    // files that number their objects themselves and so save the same
    // content to the same bytes in every process.
    void WriteObjectRecord(char const* tag, uint32_t id, TezString const& typeName);
    // Off by default: records carry the objects' own ids. On: the first
    // object written is 1, the next new one 2, and so on, so that the same
    // content gives the same bytes whatever ids this process handed out
    // (readers tell objects apart by the stored number either way).
    void SetNumberObjectsInOrder(bool on) { m_numberObjectsInOrder = on; }

    // Reading.
    // The next tag, left pending so that the next read sees it again.
    TezString ReadTag();
    // Reads a value of at most `expected` bytes (0: any size) into dest.
    void ReadBinary(void* dest, size_t expected);
    bool ReadBool();
    int32_t ReadInt();
    uint32_t ReadUnsigned();
    int32_t ReadLong();
    uint32_t ReadUnsignedLong();
    uint64_t ReadSizet();
    float ReadFloat();
    double ReadDouble();
    TezString ReadString();
    // skip 0: the section's name. Otherwise skips the whole section, nested
    // ones included, and answers an empty string.
    TezString const ReadStartSection(int skip);
    void ReadEndSection();
    // Skips the value of the pending tag. A compressed value leaves the tag
    // pending, to be seen once more by the next ReadTag.
    void SkipUnknownTag();
    // The size the pending tag's value will read as (the expanded size of a
    // compressed one), looked at without reading it: readers check a stored
    // count against it before they allocate. Call after ReadTag, on a stream
    // that can seek (files do).
    uint64_t PeekValueSize();
    // The object a record means: one object per stored id in this archive,
    // built by type name; null for id 0 or an unknown type.
    TezRef<TezIdentifiableObject> ReadObject();
    // The value as a compressed frame: stored frames as they are, raw values
    // compressed at level 1.
    void ReadCompressedBinary(std::vector<unsigned char>& out);
    void ReadCompressedBinary(std::vector<unsigned char, tbb::cache_aligned_allocator<unsigned char>>& out);

    void Flush();
    int GetCompressLevel() const { return m_compressLevel; }
    void SetCompressLevel(int level) { m_compressLevel = level; }
    int64_t GetPosition();
    void SetPosition(int64_t position);
    Mode GetMode() const { return m_mode; }

private:
    TezArchive(FILE* file, Mode mode, bool ownsFile);

    struct SizeCode
    {
        uint64_t size = 0;
        bool compressed = false;
    };

    void WriteBytes(void const* data, size_t size);
    void WriteSize(uint64_t size, bool compressed);
    void WritePayload(void const* data, size_t size);
    void WriteTag(char const* tag);

    size_t ReadBytes(void* dest, size_t size);
    void ReadExactly(void* dest, size_t size, char const* what);
    SizeCode ReadSize();
    TezString ConsumeTag();
    TezString ReadByteString();
    void ReadValue(void* dest, SizeCode code);
    std::vector<uint8_t> ReadCompressedPayload(SizeCode code);
    template <class Vector>
    void ReadFrame(Vector& out);
    template <class Vector>
    void ReadGrowing(Vector& out, uint64_t size);
    void CheckAvailable(uint64_t size, char const* what);
    bool AtEnd();
    void SkipSection();

    FILE* m_file = nullptr;
    Mode m_mode = Read;
    std::map<uint32_t, TezRef<TezIdentifiableObject>> m_objects;
    bool m_numberObjectsInOrder = false;
    std::map<uint32_t, uint32_t> m_writtenNumbers;
    TezString m_pendingTag;
    uint64_t m_bufferPosition = 0;
    uint64_t m_bufferFill = 0;
    std::vector<unsigned char> m_buffer;
    int m_compressLevel = 3;
    bool m_ownsFile = false;
    int64_t m_fileSize = -1; // -1 when the stream's size is unknown
};

// Read from a stream and/or a memory cursor, write to a stream and/or a
// vector: helpers for code that handles files and memory alike.
TEZ_API void TezRead(void* buffer, size_t size, size_t count, FILE* stream, unsigned char** cursor);
TEZ_API void TezWrite(void const* buffer, size_t size, size_t count, FILE* stream, std::vector<unsigned char>* out);
