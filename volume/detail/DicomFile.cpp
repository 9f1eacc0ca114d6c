#include "volume/detail/DicomFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <sys/stat.h>

namespace {
constexpr uint32_t kUndefined = 0xFFFFFFFFu;
constexpr uint32_t kItem = 0xFFFEE000u, kItemEnd = 0xFFFEE00Du, kSequenceEnd = 0xFFFEE0DDu;
constexpr uint32_t kPixelData = 0x7FE00010u;
constexpr int kMostDepth = 32;
constexpr uint32_t kMostValue = 1024;

// The attributes a volume source reads; those of them that are binary
// integers (US) in implicit syntax.
constexpr uint32_t kWanted[] = {0x0020000Eu, 0x00200013u, 0x00200032u, 0x00200037u, 0x00280002u,
                                0x00280004u, 0x00280008u, 0x00280010u, 0x00280011u, 0x00280030u,
                                0x00280100u, 0x00280101u, 0x00280102u, 0x00280103u, 0x00281052u,
                                0x00281053u, 0x00180050u, 0x00180088u, 0x00181164u};
constexpr uint32_t kImplicitUS[] = {0x00280002u, 0x00280010u, 0x00280011u, 0x00280100u,
                                    0x00280101u, 0x00280102u, 0x00280103u};

struct Fault : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

class Walker
{
public:
    Walker(FILE* file, uint64_t size, TezDicomFile& out) : m_file(file), m_size(size), m_out(out) {}

    // The meta group after "DICM": explicit little endian, group 0002.
    void ReadMeta()
    {
        Seek(132);
        m_explicit = true;
        m_big = false;
        while (m_at + 8 <= m_size) {
            uint64_t const start = m_at;
            bool const meta = ReadTag() >> 16 == 0x0002;
            Seek(start);
            if (!meta)
                break;
            Element const e = ReadElement();
            if (e.length == kUndefined || e.length > m_size - m_at)
                throw Fault("a meta element runs past the end of the file");
            if (e.tag == 0x00020010u && e.length <= 64)
                m_out.syntax = Text(ReadValue(e.length));
            else
                Seek(m_at + e.length);
        }
    }

    void SetSyntax()
    {
        std::string const& s = m_out.syntax;
        if (s == "1.2.840.10008.1.2") {
            m_explicit = false;
        } else if (s == "1.2.840.10008.1.2.1") {
        } else if (s == "1.2.840.10008.1.2.2") {
            m_big = true;
        } else if (s.compare(0, 20, "1.2.840.10008.1.2.4.") == 0 || s == "1.2.840.10008.1.2.5") {
            m_out.encapsulated = true;
        } else {
            throw Fault(s.empty() ? "no transfer syntax" : "transfer syntax " + s + " is not read");
        }
        m_out.bigEndian = m_big;
    }

    // Elements from here to `end`, or to the item delimiter when
    // `delimited`.
    void Walk(uint64_t end, bool delimited, int depth)
    {
        if (depth > kMostDepth)
            throw Fault("sequences nest deeper than 32 levels");
        while (m_at < end) {
            Element const e = ReadElement();
            if (m_at > end)
                throw Fault("an element's header runs past the end of its parent");
            if (e.tag == kItemEnd && delimited)
                return;
            if (e.tag >> 16 == 0xFFFE)
                throw Fault("an item or delimiter where an element belongs");
            bool const top = depth == 0;
            if (e.length == kUndefined) {
                // Encapsulated pixel data: fragments; UN: an implicit
                // sequence inside an explicit data set; else a sequence.
                bool const fragments = e.vr == "OB" || e.vr == "OW" || (e.vr.empty() && e.tag == kPixelData);
                bool const wasExplicit = m_explicit;
                m_explicit = m_explicit && e.vr != "UN";
                std::vector<TezDicomFile::Span> spans;
                Items(end, true, fragments ? &spans : nullptr, depth + 1);
                m_explicit = wasExplicit;
                if (top && e.tag == kPixelData)
                    SetPixels(spans, true);
                continue;
            }
            if (e.length > end - m_at)
                throw Fault("an element runs past the end of its parent or the file");
            uint64_t const stop = m_at + e.length;
            if (top && e.tag == kPixelData) {
                SetPixels({{m_at, e.length}}, false);
            } else if (top && e.length <= kMostValue &&
                       std::find(std::begin(kWanted), std::end(kWanted), e.tag) != std::end(kWanted)) {
                m_out.values[e.tag] = Decode(e, ReadValue(e.length));
            } else if (e.vr == "SQ" || ((e.vr.empty() || e.vr == "UN") && e.length >= 8 && PeekTag() == kItem)) {
                // Implicit syntax names no VR, and UN hides it: a value
                // that opens with an item is taken for the sequence it is.
                bool const wasExplicit = m_explicit;
                m_explicit = m_explicit && e.vr != "UN";
                Items(stop, false, nullptr, depth + 1);
                m_explicit = wasExplicit;
            }
            Seek(stop);
        }
        if (delimited)
            throw Fault("an item of undefined length has no end");
    }

private:
    struct Element
    {
        uint32_t tag = 0;
        uint32_t length = 0;
        std::string vr; // empty in implicit syntax and for items
    };

    void SetPixels(std::vector<TezDicomFile::Span> const& spans, bool encapsulated)
    {
        if (m_out.pixels)
            throw Fault("two pixel data elements");
        m_out.pixels = true;
        if (encapsulated != m_out.encapsulated)
            throw Fault(encapsulated ? "fragments of pixel data in a native syntax"
                                     : "native pixel data in an encapsulated syntax");
        m_out.pixelSpans = spans;
        for (TezDicomFile::Span const& span : spans)
            m_out.pixelBytes += span.length;
    }

    // Items up to `end`; a sequence of undefined length must end in its
    // delimiter before that. Fragments (opaque items) go to `spans`.
    void Items(uint64_t end, bool delimited, std::vector<TezDicomFile::Span>* spans, int depth)
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
                if (spans)
                    throw Fault("a pixel fragment of undefined length");
                Walk(end, true, depth);
                continue;
            }
            if (length > end - m_at)
                throw Fault("an item runs past the end of its sequence or the file");
            uint64_t const stop = m_at + length;
            if (spans)
                spans->push_back({m_at, length});
            else
                Walk(stop, false, depth);
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
        static char const* const known[] = {"AE", "AS", "AT", "CS", "DA", "DS", "DT", "FD", "FL", "IS", "LO", "LT",
                                            "OB", "OD", "OF", "OL", "OV", "OW", "PN", "SH", "SL", "SQ", "SS", "ST",
                                            "SV", "TM", "UC", "UI", "UL", "UN", "UR", "US", "UT", "UV"};
        if (std::none_of(std::begin(known), std::end(known), [&](char const* form) { return e.vr == form; }))
            throw Fault("an element without a known value representation in an explicit syntax");
        static char const* const longForms[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ",
                                                "SV", "UC", "UN", "UR", "UT", "UV"};
        if (std::none_of(std::begin(longForms), std::end(longForms), [&](char const* form) { return e.vr == form; })) {
            e.length = U16();
            return e;
        }
        U16(); // reserved
        e.length = U32();
        if (e.length == kUndefined && e.vr != "SQ" && e.vr != "UN" && e.vr != "OB" && e.vr != "OW")
            throw Fault("an undefined length on a value that cannot have one");
        return e;
    }

    std::string Decode(Element const& e, std::string const& bytes) const
    {
        bool const implicitUS =
            e.vr.empty() && std::find(std::begin(kImplicitUS), std::end(kImplicitUS), e.tag) != std::end(kImplicitUS);
        if ((implicitUS || e.vr == "US" || e.vr == "SS") && bytes.size() >= 2) {
            auto const* b = reinterpret_cast<uint8_t const*>(bytes.data());
            uint16_t const u = m_big ? uint16_t(b[0] << 8 | b[1]) : uint16_t(b[1] << 8 | b[0]);
            return std::to_string(e.vr == "SS" ? int(int16_t(u)) : int(u));
        }
        if ((e.vr == "UL" || e.vr == "SL") && bytes.size() >= 4) {
            auto const* b = reinterpret_cast<uint8_t const*>(bytes.data());
            uint32_t const u = m_big ? uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3]
                                     : uint32_t(b[3]) << 24 | uint32_t(b[2]) << 16 | uint32_t(b[1]) << 8 | b[0];
            return e.vr == "SL" ? std::to_string(int32_t(u)) : std::to_string(u);
        }
        return Text(bytes);
    }

    static std::string Text(std::string text)
    {
        while (!text.empty() && (text.back() == '\0' || text.back() == ' '))
            text.pop_back();
        size_t start = 0;
        while (start < text.size() && text[start] == ' ')
            ++start;
        return text.substr(start);
    }

    std::string ReadValue(uint32_t length)
    {
        std::string value(length, '\0');
        if (length)
            Read(&value[0], length);
        return value;
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
    uint32_t PeekTag()
    {
        uint64_t const at = m_at;
        uint32_t const tag = ReadTag();
        Seek(at);
        return tag;
    }

    FILE* m_file;
    uint64_t m_size;
    TezDicomFile& m_out;
    uint64_t m_at = 0;
    bool m_explicit = true;
    bool m_big = false;
};
} // namespace

TezDicomFile TezDicomFile::Read(std::string const& path)
{
    TezDicomFile result;
    struct stat info;
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 132)
        return result;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return result;
    char magic[4] = {};
    result.part10 =
        fseeko(file, 128, SEEK_SET) == 0 && std::fread(magic, 1, 4, file) == 4 && std::memcmp(magic, "DICM", 4) == 0;
    if (result.part10) {
        try {
            Walker walker(file, uint64_t(info.st_size), result);
            walker.ReadMeta();
            walker.SetSyntax();
            walker.Walk(uint64_t(info.st_size), false, 0);
        } catch (Fault const& fault) {
            result.problem = fault.what();
        }
    }
    std::fclose(file);
    return result;
}

std::string TezDicomFile::Value(uint32_t tag) const
{
    auto const found = values.find(tag);
    return found == values.end() ? std::string() : found->second;
}
