#pragma once
// Checksums of the Compression namespace.
//
// IChecksum is the common interface; Adler32 (RFC 1950, starts at 1) is the
// one the zlib streams carry. StrangeCRC is an MSB-first CRC-32 with the
// polynomial 0x04C11DB7, start value 0xFFFFFFFF and a complemented result;
// Crc32 is the reflected CRC-32 of ISO 3309 (as in gzip and PNG).
//
// Update(buffer, offset, count) reads buffer[offset .. offset + count). The
// argument checks throw std::runtime_error with the texts in
// CompressErrors.h; the caller vouches that the range lies in the buffer.

#include "platform/Api.h"

#include <cstddef>
#include <cstdint>

namespace Compression {

class TEZ_API IChecksum
{
public:
    virtual ~IChecksum() = default;
    virtual uint32_t GetValue() const = 0;
    virtual void Reset() = 0;
    virtual void Update(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count) = 0;
    // Adds one byte (the low 8 bits of value).
    virtual void Update(int value) = 0;
};

class TEZ_API Adler32 : public IChecksum
{
public:
    Adler32() = default;
    uint32_t GetValue() const override { return m_value; }
    void Reset() override { m_value = 1; }
    void Update(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count) override;
    void Update(int value) override;

private:
    uint32_t m_value = 1;
};

class TEZ_API StrangeCRC : public IChecksum
{
public:
    StrangeCRC() = default;
    uint32_t GetValue() const override { return ~m_crc; }
    void Reset() override { m_crc = 0xFFFFFFFFu; }
    void Update(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count) override;
    void Update(int value) override;

private:
    uint32_t m_crc = 0xFFFFFFFFu;
};

class TEZ_API Crc32 : public IChecksum
{
public:
    Crc32() = default;
    uint32_t GetValue() const override { return m_crc; }
    void Reset() override { m_crc = 0; }
    void Update(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count) override;
    void Update(int value) override;

private:
    uint32_t m_crc = 0;
};

} // namespace Compression
