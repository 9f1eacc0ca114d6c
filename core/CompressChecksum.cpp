#include "core/CompressChecksum.h"

#include "core/CompressErrors.h"

#include <libdeflate.h>

#include <array>
#include <stdexcept>

namespace Compression {

namespace {

// Table of the MSB-first CRC with polynomial 0x04C11DB7.
std::array<uint32_t, 256> MakeStrangeTable()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i << 24;
        for (int k = 0; k < 8; ++k)
            c = (c & 0x80000000u) ? (c << 1) ^ 0x04C11DB7u : c << 1;
        table[i] = c;
    }
    return table;
}

const std::array<uint32_t, 256>& StrangeTable()
{
    static const std::array<uint32_t, 256> table = MakeStrangeTable();
    return table;
}

} // namespace

void Adler32::Update(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count)
{
    if (!buffer)
        throw std::runtime_error(Messages::kAdlerNullBuffer);
    if (offset < 0)
        throw std::runtime_error(Messages::kAdlerNegativeOffset);
    if (count < 0)
        throw std::runtime_error(Messages::kAdlerNegativeCount);
    // libdeflate's vectorised Adler-32 continues from any running value.
    m_value = libdeflate_adler32(m_value, buffer + offset, size_t(count));
}

void Adler32::Update(int value)
{
    uint32_t a = m_value & 0xFFFF, b = m_value >> 16;
    a = (a + uint32_t(value & 0xFF)) % 65521u;
    b = (b + a) % 65521u;
    m_value = (b << 16) | a;
}

void StrangeCRC::Update(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count)
{
    if (!buffer)
        throw std::runtime_error(Messages::kStrangeNullBuffer);
    if (offset < 0 || count < 0)
        throw std::runtime_error(Messages::kStrangeNegative);
    const auto& table = StrangeTable();
    const uint8_t* p = buffer + offset;
    uint32_t crc = m_crc;
    for (std::ptrdiff_t i = 0; i < count; ++i)
        crc = (crc << 8) ^ table[(crc >> 24) ^ p[i]];
    m_crc = crc;
}

void StrangeCRC::Update(int value) { m_crc = (m_crc << 8) ^ StrangeTable()[(m_crc >> 24) ^ uint32_t(value & 0xFF)]; }

void Crc32::Update(const uint8_t* buffer, std::ptrdiff_t offset, std::ptrdiff_t count)
{
    if (!buffer)
        throw std::runtime_error(Messages::kCrcNullBuffer);
    if (count < 0)
        throw std::runtime_error(Messages::kCrcNegativeCount);
    if (offset < 0)
        throw std::runtime_error(Messages::kCrcBadOffset);
    // libdeflate_crc32 complements before and after, exactly this checksum's rule.
    m_crc = libdeflate_crc32(m_crc, buffer + offset, size_t(count));
}

void Crc32::Update(int value)
{
    const uint8_t byte = uint8_t(value & 0xFF);
    m_crc = libdeflate_crc32(m_crc, &byte, 1);
}

} // namespace Compression
