#pragma once
// TezString: the kernel's owned, NUL-terminated byte string.
//
// Text is bytes; nothing here knows UTF-8. There is no stored length: Length()
// scans on every call. The default state has a null buffer and size 0; it and
// a one-byte buffer holding "" both have Length() 0. Operations that read the
// text treat a null buffer as empty text.
//
// Some rules are deliberately unusual and callers rely on them: Left/Right/Mid
// give the default (empty) string when asked for more than there is, Trim of a
// string made only of trimmed characters gives the default state, ReverseFind
// ignores its second argument, Convert(unsigned int&) takes the absolute value
// and Convert(double&) parses in single precision.

#include "platform/Api.h"

#include <cstdarg>
#include <vector>

class TEZ_API TezString
{
public:
    TezString() = default;
    TezString(TezString const& other);
    TezString(TezString&& other) noexcept;
    TezString(char const* text);
    TezString(wchar_t const* text);
    ~TezString();

    TezString& operator=(TezString const& other);
    TezString& operator=(TezString&& other) noexcept;
    TezString& operator=(char const* text);
    TezString& operator=(wchar_t const* text);

    int Length() const;
    int BufferSize() const { return m_bufferSize; }

    // Allocates exactly n+1 bytes and keeps at most the first n characters.
    void Resize(int n);
    void Erase();
    void Assign(TezString const& other);
    void Assign(char const* text);
    void Assign(wchar_t const* text);

    int Append(TezString const& text);
    int Append(char c);
    int Prepend(TezString const& text);
    int Prepend(char c);
    int Insert(TezString const& text, int pos);
    int Insert(char c, int pos);

    void Format(char const* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

    int Find(TezString const& text, int start = 0) const;
    int Find(char c, int start = 0) const;
    int FindNoCase(TezString const& text, int start = 0) const;
    int ReverseFind(char c, int ignored = 0) const;

    int Compare(TezString const& other) const;
    int CompareNoCase(TezString const& other) const;

    bool operator==(TezString const& o) const { return Compare(o) == 0; }
    bool operator!=(TezString const& o) const { return Compare(o) != 0; }
    bool operator<(TezString const& o) const { return Compare(o) < 0; }
    bool operator<=(TezString const& o) const { return Compare(o) <= 0; }
    bool operator>(TezString const& o) const { return Compare(o) > 0; }
    bool operator>=(TezString const& o) const { return Compare(o) >= 0; }
    bool operator==(char const* o) const { return Compare(TezString(o)) == 0; }
    bool operator!=(char const* o) const { return Compare(TezString(o)) != 0; }

    TezString operator+(TezString const& other) const;
    TezString& operator+=(TezString const& other);
    TezString& operator+=(char c);

    operator char*() { return m_buffer; }
    operator char const*() const { return m_buffer; }
    // The text, never null: "" for the default state.
    char const* c_str() const { return m_buffer ? m_buffer : ""; }

    TezString Left(int n) const;
    TezString Right(int n) const;
    TezString Mid(int start, int n) const;

    void MakeLower();
    void MakeUpper();
    void Reverse();
    void Trim();
    void Trim(TezString const& set);
    void CollapseWhitespace();
    std::vector<TezString> Split(TezString const& separators) const;

    void ToSingleByte(int size, char* dst) const;

    bool Convert(int& value) const;
    bool Convert(unsigned int& value) const;
    bool Convert(float& value) const;
    bool Convert(double& value) const;

    TezString Pythonize() const;
    TezString DePythonize() const;

private:
    void FormatLo(char const* format, va_list args);
    void AssignBytes(char const* text, int length);

    char* m_buffer = nullptr;
    int m_bufferSize = 0;
};

TEZ_API TezString operator+(char const* left, TezString const& right);
