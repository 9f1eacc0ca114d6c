#pragma once
// Small, allocation-free scanning of text held in memory: the mesh readers'
// tokenizer and number parsers. Numbers follow the C library's rules closely
// (a leading '+' is accepted, overflow gives infinity) at a fraction of the
// cost of scanf or streams.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace tez_detail {

inline bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

struct TextScan
{
    char const* p;
    char const* end;

    bool AtEnd() const { return p >= end; }
    void SkipSpace()
    {
        while (p < end && IsBlank(*p))
            ++p;
    }
    // Skips blanks and one token (like scanf's "%*s"); false at the end.
    bool SkipToken()
    {
        SkipSpace();
        if (p >= end)
            return false;
        while (p < end && !IsBlank(*p))
            ++p;
        return true;
    }
    void SkipLine()
    {
        char const* nl = static_cast<char const*>(std::memchr(p, '\n', size_t(end - p)));
        p = nl ? nl + 1 : end;
    }

    template <class Real>
    bool Number(Real& value)
    {
        SkipSpace();
        char const* q = p;
        if (q < end && *q == '+' && q + 1 < end && *(q + 1) != '-')
            ++q;
        std::from_chars_result const r = std::from_chars(q, end, value, std::chars_format::general);
        if (r.ec == std::errc::invalid_argument)
            return false;
        if (r.ec == std::errc::result_out_of_range) {
            // from_chars leaves the value alone; the C library saturates.
            char buffer[64];
            size_t const n = std::min(size_t(r.ptr - q), sizeof buffer - 1);
            std::memcpy(buffer, q, n);
            buffer[n] = 0;
            value = static_cast<Real>(std::strtod(buffer, nullptr));
        }
        p = r.ptr;
        return true;
    }

    // A decimal integer with an optional sign.
    bool Integer(long long& value)
    {
        SkipSpace();
        char const* q = p;
        if (q < end && *q == '+')
            ++q;
        std::from_chars_result const r = std::from_chars(q, end, value);
        if (r.ec != std::errc())
            return false;
        p = r.ptr;
        return true;
    }
};

// The bytes from the file's current position to its end; false on a read
// error. Regular files are read in one go, anything else in chunks.
inline bool ReadRest(FILE* file, std::vector<char>& bytes)
{
    bytes.clear();
    long const here = std::ftell(file);
    if (here >= 0 && std::fseek(file, 0, SEEK_END) == 0) {
        long const size = std::ftell(file);
        if (size >= here && std::fseek(file, here, SEEK_SET) == 0) {
            bytes.resize(size_t(size - here));
            size_t const got = std::fread(bytes.data(), 1, bytes.size(), file);
            bytes.resize(got);
            if (std::ferror(file))
                return false;
        }
    }
    char chunk[1 << 16];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        bytes.insert(bytes.end(), chunk, chunk + got);
    return !std::ferror(file);
}

} // namespace tez_detail
