#include "core/String.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>

namespace {

bool IsBlank(unsigned char c)
{
    // Bytes with the high bit set are text, never whitespace, whatever the locale.
    return c < 0x80 && std::isspace(c);
}

} // namespace

TezString::TezString(TezString const& other) { Assign(other); }

TezString::TezString(TezString&& other) noexcept : m_buffer(other.m_buffer), m_bufferSize(other.m_bufferSize)
{
    other.m_buffer = nullptr;
    other.m_bufferSize = 0;
}

TezString::TezString(char const* text) { Assign(text); }
TezString::TezString(wchar_t const* text) { Assign(text); }
TezString::~TezString() { Erase(); }

TezString& TezString::operator=(TezString const& other)
{
    if (this != &other)
        Assign(other);
    return *this;
}

TezString& TezString::operator=(TezString&& other) noexcept
{
    if (this != &other) {
        Erase();
        m_buffer = other.m_buffer;
        m_bufferSize = other.m_bufferSize;
        other.m_buffer = nullptr;
        other.m_bufferSize = 0;
    }
    return *this;
}

TezString& TezString::operator=(char const* text)
{
    Assign(text);
    return *this;
}

TezString& TezString::operator=(wchar_t const* text)
{
    Assign(text);
    return *this;
}

int TezString::Length() const { return m_buffer ? static_cast<int>(std::strlen(m_buffer)) : 0; }

void TezString::Resize(int n)
{
    if (n < 0)
        n = 0;
    char* fresh = new char[static_cast<size_t>(n) + 1];
    int keep = std::min(Length(), n);
    if (keep > 0)
        std::memcpy(fresh, m_buffer, static_cast<size_t>(keep));
    fresh[keep] = '\0';
    delete[] m_buffer;
    m_buffer = fresh;
    m_bufferSize = n + 1;
}

void TezString::Erase()
{
    delete[] m_buffer;
    m_buffer = nullptr;
    m_bufferSize = 0;
}

void TezString::AssignBytes(char const* text, int length)
{
    // The source may live inside our own buffer (Assign(Mid(...)) and the like).
    std::vector<char> copy(text, text + length);
    Resize(length);
    if (length > 0)
        std::memcpy(m_buffer, copy.data(), static_cast<size_t>(length));
    m_buffer[length] = '\0';
}

void TezString::Assign(TezString const& other)
{
    if (this == &other)
        return;
    if (!other.m_buffer) {
        Erase();
        return;
    }
    AssignBytes(other.m_buffer, other.Length());
}

void TezString::Assign(char const* text)
{
    if (!text) {
        Erase();
        return;
    }
    AssignBytes(text, static_cast<int>(std::strlen(text)));
}

void TezString::Assign(wchar_t const* text)
{
    if (!text) {
        Erase();
        return;
    }
    size_t n = std::wcstombs(nullptr, text, 0);
    if (n == static_cast<size_t>(-1)) {
        // Not representable in the current locale: keep what converts, byte by byte.
        std::string bytes;
        for (wchar_t const* p = text; *p; ++p)
            bytes.push_back(static_cast<unsigned>(*p) < 0x80 ? static_cast<char>(*p) : '?');
        AssignBytes(bytes.data(), static_cast<int>(bytes.size()));
        return;
    }
    std::vector<char> bytes(n + 1);
    std::wcstombs(bytes.data(), text, n + 1);
    AssignBytes(bytes.data(), static_cast<int>(n));
}

int TezString::Append(TezString const& text)
{
    int len = Length();
    int add = text.Length();
    if (add == 0)
        return len;
    std::vector<char> copy(text.m_buffer, text.m_buffer + add); // text may be *this
    if (len + add >= m_bufferSize)
        Resize(len + add);
    std::memcpy(m_buffer + len, copy.data(), static_cast<size_t>(add));
    m_buffer[len + add] = '\0';
    return len + add;
}

int TezString::Append(char c)
{
    int len = Length();
    if (len + 1 >= m_bufferSize)
        Resize(len + 1);
    m_buffer[len] = c;
    m_buffer[len + 1] = '\0';
    return Length();
}

int TezString::Prepend(TezString const& text)
{
    int len = Length();
    int add = text.Length();
    char* fresh = new char[static_cast<size_t>(len + add) + 1];
    if (add)
        std::memcpy(fresh, text.m_buffer, static_cast<size_t>(add));
    if (len)
        std::memcpy(fresh + add, m_buffer, static_cast<size_t>(len));
    fresh[len + add] = '\0';
    delete[] m_buffer;
    m_buffer = fresh;
    m_bufferSize = len + add + 1;
    return len + add;
}

int TezString::Prepend(char c)
{
    char text[2] = {c, '\0'};
    return Prepend(TezString(text));
}

int TezString::Insert(TezString const& text, int pos)
{
    int len = Length();
    int add = text.Length();
    if (add == 0)
        return len;
    pos = std::clamp(pos, 0, len);
    std::vector<char> copy(text.m_buffer, text.m_buffer + add);
    if (len + add >= m_bufferSize)
        Resize(len + add);
    std::memmove(m_buffer + pos + add, m_buffer + pos, static_cast<size_t>(len - pos) + 1);
    std::memcpy(m_buffer + pos, copy.data(), static_cast<size_t>(add));
    return len + add;
}

int TezString::Insert(char c, int pos)
{
    char text[2] = {c, '\0'};
    return Insert(TezString(text), pos);
}

void TezString::Format(char const* format, ...)
{
    va_list args;
    va_start(args, format);
    FormatLo(format, args);
    va_end(args);
}

void TezString::FormatLo(char const* format, va_list args)
{
    va_list measure;
    va_copy(measure, args);
    int n = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    Erase();
    if (n < 0)
        return;
    Resize(n);
    std::vsnprintf(m_buffer, static_cast<size_t>(n) + 1, format, args);
}

int TezString::Find(TezString const& text, int start) const
{
    int len = Length();
    if (start < 0 || start > len || !m_buffer)
        return -1;
    char const* hit = std::strstr(m_buffer + start, text.c_str());
    return hit ? static_cast<int>(hit - m_buffer) : -1;
}

int TezString::Find(char c, int start) const
{
    int len = Length();
    if (start < 0 || start >= len)
        return -1;
    char const* hit = std::strchr(m_buffer + start, c);
    return hit ? static_cast<int>(hit - m_buffer) : -1;
}

int TezString::FindNoCase(TezString const& text, int start) const
{
    TezString self(*this), other(text);
    self.MakeLower();
    other.MakeLower();
    return self.Find(other, start);
}

int TezString::ReverseFind(char c, int) const
{
    if (!m_buffer)
        return -1;
    char const* hit = std::strrchr(m_buffer, c);
    return hit ? static_cast<int>(hit - m_buffer) : -1;
}

int TezString::Compare(TezString const& other) const
{
    auto const* a = reinterpret_cast<unsigned char const*>(c_str());
    auto const* b = reinterpret_cast<unsigned char const*>(other.c_str());
    while (*a && *a == *b) {
        ++a;
        ++b;
    }
    return *a < *b ? -1 : (*a > *b ? 1 : 0);
}

int TezString::CompareNoCase(TezString const& other) const { return strcasecmp(c_str(), other.c_str()); }

TezString TezString::operator+(TezString const& other) const
{
    TezString result(*this);
    result.Append(other);
    return result;
}

TezString& TezString::operator+=(TezString const& other)
{
    Append(other);
    return *this;
}

TezString& TezString::operator+=(char c)
{
    Append(c);
    return *this;
}

TezString TezString::Left(int n) const
{
    int len = Length();
    TezString result;
    if (n < 0 || n > len)
        return result;
    result.AssignBytes(c_str(), n);
    return result;
}

TezString TezString::Right(int n) const
{
    int len = Length();
    TezString result;
    if (n < 0 || n > len)
        return result;
    result.AssignBytes(c_str() + len - n, n);
    return result;
}

TezString TezString::Mid(int start, int n) const
{
    int len = Length();
    TezString result;
    if (n < 0 || n > len || start < 0 || start >= len)
        return result;
    result.AssignBytes(c_str() + start, std::min(n, len - start));
    return result;
}

void TezString::MakeLower()
{
    for (char* p = m_buffer; p && *p; ++p)
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
}

void TezString::MakeUpper()
{
    for (char* p = m_buffer; p && *p; ++p)
        *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
}

void TezString::Reverse()
{
    if (m_buffer)
        std::reverse(m_buffer, m_buffer + Length());
}

void TezString::Trim() { Trim(TezString(" \t\n\r")); }

void TezString::Trim(TezString const& set)
{
    int len = Length();
    char const* chars = set.c_str();
    int first = 0;
    while (first < len && std::strchr(chars, m_buffer[first]))
        ++first;
    if (first == len) {
        Erase();
        return;
    }
    int last = len;
    while (last > first && std::strchr(chars, m_buffer[last - 1]))
        --last;
    if (first > 0 || last < len)
        AssignBytes(m_buffer + first, last - first);
}

void TezString::CollapseWhitespace()
{
    if (!m_buffer)
        return;
    char* out = m_buffer;
    for (char const* p = m_buffer; *p; ++p)
        if (!IsBlank(static_cast<unsigned char>(*p)))
            *out++ = *p;
    *out = '\0';
}

std::vector<TezString> TezString::Split(TezString const& separators) const
{
    std::vector<TezString> tokens;
    int len = Length();
    char const* seps = separators.c_str();
    int i = 0;
    while (i < len) {
        while (i < len && std::strchr(seps, m_buffer[i]))
            ++i;
        int begin = i;
        while (i < len && !std::strchr(seps, m_buffer[i]))
            ++i;
        if (i > begin) {
            TezString token;
            token.AssignBytes(m_buffer + begin, i - begin);
            tokens.push_back(std::move(token));
        }
    }
    return tokens;
}

void TezString::ToSingleByte(int size, char* dst) const
{
    if (size <= 0 || !dst)
        return;
    int n = std::min(Length(), size - 1);
    if (n > 0)
        std::memcpy(dst, m_buffer, static_cast<size_t>(n));
    dst[n] = '\0';
}

bool TezString::Convert(int& value) const
{
    if (!m_buffer)
        return false;
    errno = 0;
    char* end = nullptr;
    long parsed = std::strtol(m_buffer, &end, 10);
    if (end == m_buffer || errno == ERANGE || parsed < INT_MIN || parsed > INT_MAX)
        return false;
    value = static_cast<int>(parsed);
    return true;
}

bool TezString::Convert(unsigned int& value) const
{
    int parsed = 0;
    if (!Convert(parsed))
        return false;
    value = parsed < 0 ? 0u - static_cast<unsigned int>(parsed) : static_cast<unsigned int>(parsed);
    return true;
}

bool TezString::Convert(float& value) const
{
    if (!m_buffer)
        return false;
    errno = 0;
    char* end = nullptr;
    float parsed = std::strtof(m_buffer, &end);
    if (end == m_buffer || errno == ERANGE)
        return false;
    value = parsed;
    return true;
}

bool TezString::Convert(double& value) const
{
    float parsed = 0.0f;
    if (!Convert(parsed))
        return false;
    value = parsed;
    return true;
}

TezString TezString::Pythonize() const
{
    TezString result("r'");
    result.Append(*this);
    result.Append('\'');
    return result;
}

TezString TezString::DePythonize() const
{
    int len = Length();
    if (len >= 3 && m_buffer[0] == 'r' && m_buffer[1] == '\'' && m_buffer[len - 1] == '\'')
        return Mid(2, len - 3);
    return *this;
}

TezString operator+(char const* left, TezString const& right)
{
    TezString result(left);
    result.Append(right);
    return result;
}
