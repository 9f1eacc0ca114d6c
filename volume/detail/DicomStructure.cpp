#include "volume/detail/DicomStructure.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <sys/stat.h>

namespace
{
constexpr uint32_t kUndefined = 0xFFFFFFFFu;
constexpr uint32_t kItem = 0xFFFEE000u, kItemEnd = 0xFFFEE00Du, kSequenceEnd = 0xFFFEE0DDu;
constexpr uint32_t kPixelData = 0x7FE00010u;
constexpr int kMostDepth = 32;

struct Fault : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

class Walker
{
public:
    Walker(FILE* file, uint64_t size) : m_file(file), m_size(size) {}

    // The meta group at 132; answers the data set's transfer syntax.
    std::string ReadMeta()
    {
        char magic[4];
        Seek(128);
        Read(magic, 4);
        if (std::memcmp(magic, "DICM", 4) != 0)
            throw Fault("no DICM preamble");
        m_explicit = true;
        m_big = false;
        std::string syntax;
        while (m_at + 8 <= m_size) {
            uint64_t const start = m_at;
            if (ReadTag() >> 16 != 0x0002) {
                Seek(start);
                break;
            }
            Seek(start);
            Element const e = ReadElement();
            uint32_t const length = e.length;
            if (length == kUndefined || length > m_size - m_at)
                throw Fault("a meta element runs past the end of the file");
            // The meta group holds plain values only; GDCM asserts on others.
            if (e.vr != "UL" && e.vr != "OB" && e.vr != "UI" && e.vr != "SH" && e.vr != "AE" && e.vr != "UR")
                throw Fault("a meta element of representation " + e.vr);
            if (e.tag == 0x00020010u && length <= 64) {
                std::string value(length, '\0');
                Read(&value[0], length);
                while (!value.empty() && (value.back() == '\0' || value.back() == ' '))
                    value.pop_back();
                syntax = value;
            } else {
                Seek(m_at + length);
            }
        }
        return syntax;
    }

    void SetSyntax(std::string const& syntax)
    {
        if (syntax == "1.2.840.10008.1.2.1.99")
            throw Fault("deflated data sets are not read");
        m_explicit = syntax != "1.2.840.10008.1.2";
        m_big = syntax == "1.2.840.10008.1.2.2";
    }

    // Elements from here to `end`, or to the item delimiter when
    // `delimited`; true when the pixel data was met at the top level.
    bool Walk(uint64_t end, bool delimited, int depth, bool top)
    {
        if (depth > kMostDepth)
            throw Fault("sequences nest deeper than 32 levels");
        while (m_at < end) {
            Element const e = ReadElement();
            if (m_at > end)
                throw Fault("an element's header runs past the end of its parent");
            if (e.tag == kItemEnd && delimited)
                return false;
            if (e.tag >> 16 == 0xFFFE)
                throw Fault("an item or delimiter where an element belongs");
            bool const opaque = e.vr == "OB" || e.vr == "OW" || (e.vr.empty() && e.tag == kPixelData);
            if (e.length == kUndefined) {
                // Encapsulated pixel data: fragments; UN: an implicit
                // sequence inside an explicit data set; else a sequence.
                bool const wasExplicit = m_explicit;
                m_explicit = m_explicit && e.vr != "UN";
                uint64_t const before = m_at;
                Items(end, true, opaque, depth + 1);
                m_fragmentBytes = m_at - before;
                m_explicit = wasExplicit;
            } else {
                if (e.length > end - m_at)
                    throw Fault("an element runs past the end of its parent or the file");
                uint64_t const stop = m_at + e.length;
                // Implicit syntax names no VR, and UN hides it: a value
                // that opens with an item is taken for the sequence it is.
                bool sequence = e.vr == "SQ";
                if ((e.vr.empty() || e.vr == "UN") && !opaque && e.length >= 8) {
                    sequence = PeekTag() == kItem;
                }
                if (sequence) {
                    bool const wasExplicit = m_explicit;
                    m_explicit = m_explicit && e.vr != "UN";
                    Items(stop, false, false, depth + 1);
                    m_explicit = wasExplicit;
                }
                Seek(stop);
            }
            if (top && e.tag == kPixelData) {
                m_encapsulated = e.length == kUndefined;
                m_pixelBytes = m_encapsulated ? m_fragmentBytes : e.length;
                m_pixels = true;
            }
        }
        if (delimited)
            throw Fault("an item of undefined length has no end");
        return top && m_pixels;
    }

private:
    struct Element
    {
        uint32_t tag = 0;
        uint32_t length = 0;
        std::string vr; // empty in implicit syntax and for items
    };

    // Items (or opaque fragments) up to `end`; a sequence of undefined
    // length must end in its delimiter before that.
    void Items(uint64_t end, bool delimited, bool opaque, int depth)
    {
        while (m_at < end) {
            uint32_t const tag = ReadTag();
            uint32_t const length = U32();
            if (m_at > end)
                throw Fault("an item's header runs past the end of its sequence");
            if (tag == kSequenceEnd) {
                if (length != 0)
                    throw Fault("a delimiter with a length");
                if (!delimited)
                    throw Fault("a delimiter in a sequence of defined length");
                return;
            }
            if (tag != kItem)
                throw Fault("a sequence holds something other than items");
            if (length == kUndefined) {
                if (opaque)
                    throw Fault("a pixel fragment of undefined length");
                Walk(end, true, depth, false);
                continue;
            }
            if (length > end - m_at)
                throw Fault("an item runs past the end of its sequence or the file");
            uint64_t const stop = m_at + length;
            if (!opaque)
                Walk(stop, false, depth, false);
            Seek(stop);
        }
        if (delimited)
            throw Fault("a sequence of undefined length has no end");
    }

    Element ReadElement()
    {
        Element e;
        e.tag = ReadTag();
        if (e.tag >> 16 == 0xFFFE || !m_explicit) {
            e.length = U32();
            if ((e.tag == kItemEnd || e.tag == kSequenceEnd) && e.length != 0)
                throw Fault("a delimiter with a length");
            return e;
        }
        char vr[2];
        Read(vr, 2);
        e.vr.assign(vr, 2);
        // GDCM stops on an assertion at a representation it does not know.
        static char const* const known[] = {"AE", "AS", "AT", "CS", "DA", "DS", "DT", "FD", "FL", "IS", "LO",
                                            "LT", "OB", "OD", "OF", "OL", "OV", "OW", "PN", "SH", "SL", "SQ",
                                            "SS", "ST", "SV", "TM", "UC", "UI", "UL", "UN", "UR", "US", "UT", "UV"};
        if (std::none_of(std::begin(known), std::end(known), [&](char const* form) { return e.vr == form; }))
            throw Fault("an element without a known value representation in an explicit syntax");
        static char const* const longForms[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ",
                                                "SV", "UC", "UN", "UR", "UT", "UV"};
        bool isLong = false;
        for (char const* form : longForms)
            isLong = isLong || e.vr == form;
        if (!isLong) {
            e.length = U16();
            return e;
        }
        U16(); // reserved
        e.length = U32();
        if (e.length == kUndefined && e.vr != "SQ" && e.vr != "UN" && e.vr != "OB" && e.vr != "OW")
            throw Fault("an undefined length on a value that cannot have one");
        return e;
    }

    uint32_t PeekTag()
    {
        uint64_t const at = m_at;
        uint32_t const tag = ReadTag();
        Seek(at);
        return tag;
    }

    void Read(void* into, size_t bytes)
    {
        if (m_at + bytes > m_size || std::fread(into, 1, bytes, m_file) != bytes)
            throw Fault("the file ends inside an element's header");
        m_at += bytes;
    }
    void Seek(uint64_t at)
    {
        if (at > m_size || fseeko(m_file, off_t(at), SEEK_SET) != 0)
            throw Fault("the file ends inside an element");
        m_at = at;
    }
    uint16_t U16()
    {
        uint8_t b[2];
        Read(b, 2);
        return m_big ? uint16_t(b[0] << 8 | b[1]) : uint16_t(b[1] << 8 | b[0]);
    }
    uint32_t U32()
    {
        uint8_t b[4];
        Read(b, 4);
        return m_big ? uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3]
                     : uint32_t(b[3]) << 24 | uint32_t(b[2]) << 16 | uint32_t(b[1]) << 8 | b[0];
    }
    uint32_t ReadTag()
    {
        uint32_t const group = U16();
        return group << 16 | U16();
    }

public:
    uint64_t m_pixelBytes = 0;
    bool m_encapsulated = false;
    bool m_pixels = false;
    uint64_t m_fragmentBytes = 0; // of the last element of undefined length

private:
    FILE* m_file;
    uint64_t m_size;
    uint64_t m_at = 0;
    bool m_explicit = true;
    bool m_big = false;
};
} // namespace

TezDicomStructure TezCheckDicomStructure(std::string const& path)
{
    TezDicomStructure result;
    struct stat info;
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 132)
        return result;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return result;
    char magic[4] = {};
    result.part10 = fseeko(file, 128, SEEK_SET) == 0 && std::fread(magic, 1, 4, file) == 4 &&
                    std::memcmp(magic, "DICM", 4) == 0;
    if (result.part10) {
        try {
            Walker walker(file, uint64_t(info.st_size));
            walker.SetSyntax(walker.ReadMeta());
            result.pixels = walker.Walk(uint64_t(info.st_size), false, 0, true);
            result.pixelBytes = walker.m_pixelBytes;
            result.encapsulated = walker.m_encapsulated;
        } catch (Fault const& fault) {
            result.problem = fault.what();
        }
    }
    std::fclose(file);
    return result;
}
