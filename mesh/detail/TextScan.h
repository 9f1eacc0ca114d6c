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

    // Plain decimals ("-12.375") take a short exact path: an integer
    // mantissa and a power of ten both exact in the type give one correctly
    // rounded division, as the full parser would. Anything else (exponents,
    // long mantissas, inf, nan) goes to std::from_chars.
    bool Number(float& value) { return Decimal(value, uint64_t(1) << 24, 10); }
    bool Number(double& value) { return Decimal(value, uint64_t(1) << 53, 22); }

    template <class Real>
    bool Decimal(Real& value, uint64_t maxMantissa, int maxFraction)
    {
        static constexpr double kPowers[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                               1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
        SkipSpace();
        char const* q = p;
        bool const negative = q < end && *q == '-';
        if (q < end && (*q == '-' || *q == '+'))
            ++q;
        uint64_t mantissa = 0;
        int digits = 0, fraction = 0;
        for (; q < end && unsigned(*q - '0') < 10 && digits < 19; ++q, ++digits)
            mantissa = mantissa * 10 + unsigned(*q - '0');
        if (q < end && *q == '.') {
            ++q;
            for (; q < end && unsigned(*q - '0') < 10 && digits < 19; ++q, ++digits, ++fraction)
                mantissa = mantissa * 10 + unsigned(*q - '0');
        }
        bool const plain = digits > 0 && mantissa <= maxMantissa && fraction <= maxFraction &&
                           (q == end || (unsigned(*q - '0') >= 10 && *q != 'e' && *q != 'E' && *q != '.'));
        if (plain) {
            Real const magnitude = static_cast<Real>(mantissa) / static_cast<Real>(kPowers[fraction]);
            value = negative ? -magnitude : magnitude;
            p = q;
            return true;
        }
        return General(value);
    }

    template <class Real>
    bool General(Real& value)
    {
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

    // A decimal integer with an optional sign, of at most 18 digits.
    bool Integer(long long& value)
    {
        SkipSpace();
        char const* q = p;
        bool const negative = q < end && *q == '-';
        if (q < end && (*q == '-' || *q == '+'))
            ++q;
        char const* const digits = q;
        long long magnitude = 0;
        for (; q < end && unsigned(*q - '0') < 10; ++q) {
            if (q - digits == 18)
                return false;
            magnitude = magnitude * 10 + (*q - '0');
        }
        if (q == digits)
            return false;
        value = negative ? -magnitude : magnitude;
        p = q;
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
