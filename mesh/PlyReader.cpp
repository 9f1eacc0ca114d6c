#include "mesh/PlyReader.h"

#include "mesh/detail/FileBytes.h"
#include "mesh/detail/TextScan.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

struct t_ply_property_
{
    std::string name;
    e_ply_type type = PLY_FLOAT32;
    e_ply_type lengthType = PLY_UINT8;
    e_ply_type valueType = PLY_INT32;
    p_ply_read_cb readCb = nullptr;
    void* pdata = nullptr;
    long idata = 0;
};

struct t_ply_element_
{
    std::string name;
    long ninstances = 0;
    std::vector<t_ply_property_> properties;
};

namespace {

enum Storage { Ascii, LittleEndian, BigEndian };

} // namespace

struct t_ply_
{
    tez_detail::FileBytes owned;
    char const* data = nullptr;
    size_t size = 0;
    size_t at = 0; // read position
    Storage storage = Ascii;
    std::vector<t_ply_element_> elements;
    p_ply_error_cb errorCb = nullptr;
    void* pdata = nullptr;
    long idata = 0;
    bool headerRead = false;
};

namespace {

void Fail(p_ply ply, std::string const& message)
{
    if (ply->errorCb)
        ply->errorCb(ply, message.c_str());
    else
        std::fprintf(stderr, "ply: %s\n", message.c_str());
}

struct TypeName
{
    char const* name;
    e_ply_type type;
};

TypeName const kTypes[] = {
    {"int8", PLY_INT8},   {"uint8", PLY_UINT8},  {"int16", PLY_INT16},     {"uint16", PLY_UINT16},
    {"int32", PLY_INT32}, {"uint32", PLY_UIN32}, {"float32", PLY_FLOAT32}, {"float64", PLY_FLOAT64},
    {"char", PLY_CHAR},   {"uchar", PLY_UCHAR},  {"short", PLY_SHORT},     {"ushort", PLY_USHORT},
    {"int", PLY_INT},     {"uint", PLY_UINT},    {"float", PLY_FLOAT},     {"double", PLY_DOUBLE},
};

bool ParseType(std::string const& word, e_ply_type& type)
{
    for (TypeName const& t : kTypes) {
        if (word == t.name) {
            type = t.type;
            return true;
        }
    }
    return false;
}

// The two spellings of each type share one size and one decoding.
e_ply_type Canonical(e_ply_type type) { return type >= PLY_CHAR && type <= PLY_DOUBLE ? e_ply_type(type - 8) : type; }

size_t TypeSize(e_ply_type type)
{
    switch (Canonical(type)) {
    case PLY_INT8:
    case PLY_UINT8:
        return 1;
    case PLY_INT16:
    case PLY_UINT16:
        return 2;
    case PLY_INT32:
    case PLY_UIN32:
    case PLY_FLOAT32:
        return 4;
    default:
        return 8;
    }
}

bool IsInteger(e_ply_type type)
{
    e_ply_type const t = Canonical(type);
    return t != PLY_FLOAT32 && t != PLY_FLOAT64;
}

template <class T>
T Load(char const* p, bool swap)
{
    unsigned char b[sizeof(T)];
    std::memcpy(b, p, sizeof(T));
    if (swap)
        for (size_t i = 0; i < sizeof(T) / 2; ++i)
            std::swap(b[i], b[sizeof(T) - 1 - i]);
    T value;
    std::memcpy(&value, b, sizeof(T));
    return value;
}

bool HostIsLittleEndian()
{
    uint16_t const one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

// One value of `type` at the read position, as a double. `type` is
// canonical; `swap` says the data's byte order is not the host's.
inline bool ReadBinary(p_ply ply, e_ply_type type, bool swap, double& value)
{
    size_t const n = TypeSize(type);
    if (ply->size - ply->at < n)
        return false;
    char const* p = ply->data + ply->at;
    switch (type) {
    case PLY_INT8:
        value = static_cast<int8_t>(*p);
        break;
    case PLY_UINT8:
        value = static_cast<uint8_t>(*p);
        break;
    case PLY_INT16:
        value = Load<int16_t>(p, swap);
        break;
    case PLY_UINT16:
        value = Load<uint16_t>(p, swap);
        break;
    case PLY_INT32:
        value = Load<int32_t>(p, swap);
        break;
    case PLY_UIN32:
        value = Load<uint32_t>(p, swap);
        break;
    case PLY_FLOAT32:
        value = Load<float>(p, swap);
        break;
    default:
        value = Load<double>(p, swap);
        break;
    }
    ply->at += n;
    return true;
}

bool ReadAscii(p_ply ply, e_ply_type type, double& value)
{
    tez_detail::TextScan scan{ply->data + ply->at, ply->data + ply->size};
    scan.SkipSpace();
    if (scan.AtEnd())
        return false;
    if (!scan.Number(value) || (scan.p < scan.end && !tez_detail::IsBlank(*scan.p)))
        return false;
    // Integers must be whole numbers; "1.5" for a count is an error.
    if (IsInteger(type) && value != std::floor(value))
        return false;
    ply->at = size_t(scan.p - ply->data);
    return true;
}

p_ply Make(p_ply_error_cb errorCb, long idata, void* pdata)
{
    p_ply ply = new t_ply_();
    ply->errorCb = errorCb;
    ply->idata = idata;
    ply->pdata = pdata;
    return ply;
}

// The next header line, without its line end; false at the end of the data.
bool HeaderLine(p_ply ply, std::string& line)
{
    if (ply->at >= ply->size)
        return false;
    char const* p = ply->data + ply->at;
    char const* nl = static_cast<char const*>(std::memchr(p, '\n', ply->size - ply->at));
    if (!nl)
        return false;
    size_t length = size_t(nl - p);
    if (length > 0 && p[length - 1] == '\r')
        --length;
    line.assign(p, length);
    ply->at = size_t(nl - ply->data) + 1;
    return true;
}

std::vector<std::string> Words(std::string const& line)
{
    std::vector<std::string> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && tez_detail::IsBlank(line[i]))
            ++i;
        size_t const start = i;
        while (i < line.size() && !tez_detail::IsBlank(line[i]))
            ++i;
        if (i > start)
            words.emplace_back(line, start, i - start);
    }
    return words;
}

} // namespace

p_ply ply_open(const char* name, p_ply_error_cb error_cb, long idata, void* pdata)
{
    if (!name)
        return nullptr;
    p_ply ply = Make(error_cb, idata, pdata);
    if (!ply->owned.Open(name)) {
        delete ply;
        return nullptr;
    }
    ply->data = ply->owned.Data();
    ply->size = ply->owned.Size();
    return ply;
}

p_ply ply_open_from_memory(const void* data, size_t size, p_ply_error_cb error_cb, long idata, void* pdata)
{
    if (!data && size > 0)
        return nullptr;
    p_ply ply = Make(error_cb, idata, pdata);
    ply->data = static_cast<char const*>(data);
    ply->size = size;
    return ply;
}

int ply_get_ply_user_data(p_ply ply, void** pdata, long* idata)
{
    if (!ply)
        return 0;
    if (pdata)
        *pdata = ply->pdata;
    if (idata)
        *idata = ply->idata;
    return 1;
}

int ply_read_header(p_ply ply)
{
    if (!ply || ply->headerRead)
        return 0;
    std::string line;
    if (!HeaderLine(ply, line) || line != "ply") {
        Fail(ply, "not a PLY file");
        return 0;
    }
    bool format = false;
    for (;;) {
        if (!HeaderLine(ply, line)) {
            Fail(ply, "header has no end_header");
            return 0;
        }
        std::vector<std::string> const w = Words(line);
        if (w.empty())
            continue;
        if (w[0] == "end_header")
            break;
        if (w[0] == "comment" || w[0] == "obj_info")
            continue;
        if (w[0] == "format") {
            if (w.size() < 2 || format) {
                Fail(ply, "bad format line: " + line);
                return 0;
            }
            if (w[1] == "ascii")
                ply->storage = Ascii;
            else if (w[1] == "binary_little_endian")
                ply->storage = LittleEndian;
            else if (w[1] == "binary_big_endian")
                ply->storage = BigEndian;
            else {
                Fail(ply, "unknown format: " + w[1]);
                return 0;
            }
            format = true;
        } else if (w[0] == "element") {
            if (w.size() != 3) {
                Fail(ply, "bad element line: " + line);
                return 0;
            }
            long long count = 0;
            tez_detail::TextScan scan{w[2].data(), w[2].data() + w[2].size()};
            if (!scan.Integer(count) || !scan.AtEnd() || count < 0 || count > std::numeric_limits<long>::max()) {
                Fail(ply, "bad element count: " + line);
                return 0;
            }
            t_ply_element_ element;
            element.name = w[1];
            element.ninstances = static_cast<long>(count);
            ply->elements.push_back(std::move(element));
        } else if (w[0] == "property") {
            if (ply->elements.empty()) {
                Fail(ply, "property outside an element: " + line);
                return 0;
            }
            t_ply_property_ property;
            bool ok;
            if (w.size() == 5 && w[1] == "list") {
                property.type = PLY_LIST;
                ok = ParseType(w[2], property.lengthType) && ParseType(w[3], property.valueType) &&
                     IsInteger(property.lengthType);
                property.name = w[4];
            } else {
                ok = w.size() == 3 && ParseType(w[1], property.type);
                property.name = w.size() == 3 ? w[2] : std::string();
            }
            if (!ok) {
                Fail(ply, "bad property line: " + line);
                return 0;
            }
            ply->elements.back().properties.push_back(std::move(property));
        } else {
            Fail(ply, "unknown header keyword: " + w[0]);
            return 0;
        }
    }
    if (!format) {
        Fail(ply, "header has no format line");
        return 0;
    }
    // Every value takes at least one byte: counts beyond what follows are
    // refused here, so that nobody sizes anything by them.
    size_t const remaining = ply->size - ply->at;
    size_t values = 0;
    for (t_ply_element_ const& element : ply->elements) {
        size_t const perInstance = element.properties.size();
        if (perInstance == 0)
            continue;
        if (size_t(element.ninstances) > (remaining - values) / perInstance) {
            Fail(ply, "element '" + element.name + "' claims more data than the file holds");
            return 0;
        }
        values += size_t(element.ninstances) * perInstance;
    }
    ply->headerRead = true;
    return 1;
}

long ply_set_read_cb(p_ply ply, const char* element_name, const char* property_name, p_ply_read_cb read_cb, void* pdata,
                     long idata)
{
    if (!ply || !element_name || !property_name)
        return 0;
    for (t_ply_element_& element : ply->elements) {
        if (element.name != element_name)
            continue;
        for (t_ply_property_& property : element.properties) {
            if (property.name == property_name) {
                property.readCb = read_cb;
                property.pdata = pdata;
                property.idata = idata;
                return element.ninstances;
            }
        }
        return 0;
    }
    return 0;
}

p_ply_element ply_get_next_element(p_ply ply, p_ply_element last)
{
    if (!ply || ply->elements.empty())
        return nullptr;
    if (!last)
        return &ply->elements.front();
    size_t const next = size_t(last - ply->elements.data()) + 1;
    return next < ply->elements.size() ? &ply->elements[next] : nullptr;
}

int ply_get_element_info(p_ply_element element, const char** name, long* ninstances)
{
    if (!element)
        return 0;
    if (name)
        *name = element->name.c_str();
    if (ninstances)
        *ninstances = element->ninstances;
    return 1;
}

p_ply_property ply_get_next_property(p_ply_element element, p_ply_property last)
{
    if (!element || element->properties.empty())
        return nullptr;
    if (!last)
        return &element->properties.front();
    size_t const next = size_t(last - element->properties.data()) + 1;
    return next < element->properties.size() ? &element->properties[next] : nullptr;
}

int ply_get_property_info(p_ply_property property, const char** name, e_ply_type* type, e_ply_type* length_type,
                          e_ply_type* value_type)
{
    if (!property)
        return 0;
    if (name)
        *name = property->name.c_str();
    if (type)
        *type = property->type;
    if (length_type)
        *length_type = property->lengthType;
    if (value_type)
        *value_type = property->valueType;
    return 1;
}

namespace {

// Reads every element; the byte order and the storage are template
// parameters so that decoding a value inlines into the loop.
template <Storage kStorage>
int ReadData(p_ply ply)
{
    bool const swap = (kStorage == LittleEndian) != HostIsLittleEndian();
    auto read = [ply, swap](e_ply_type type, double& value) {
        if constexpr (kStorage == Ascii)
            return ReadAscii(ply, type, value);
        else
            return ReadBinary(ply, Canonical(type), swap, value);
    };
    auto fail = [ply](t_ply_element_ const& element, t_ply_property_ const& property, long instance, char const* what) {
        Fail(ply, std::string(what) + " '" + element.name + "." + property.name + "' of instance " +
                      std::to_string(instance));
        return 0;
    };
    t_ply_argument_ argument;
    for (t_ply_element_& element : ply->elements) {
        argument.element = &element;
        if (element.properties.empty())
            continue;
        for (long instance = 0; instance < element.ninstances; ++instance) {
            argument.instanceIndex = instance;
            for (t_ply_property_& property : element.properties) {
                argument.property = &property;
                argument.pdata = property.pdata;
                argument.idata = property.idata;
                if (property.type != PLY_LIST) {
                    if (!read(property.type, argument.value))
                        return fail(element, property, instance, "error reading");
                    argument.length = 1;
                    argument.valueIndex = 0;
                    if (property.readCb && !property.readCb(&argument))
                        return fail(element, property, instance, "reading stopped at");
                    continue;
                }
                double length;
                if (!read(property.lengthType, length) || length < 0 ||
                    length > double(std::numeric_limits<long>::max()))
                    return fail(element, property, instance, "bad list length of");
                argument.length = static_cast<long>(length);
                argument.valueIndex = -1;
                argument.value = length;
                if (property.readCb && !property.readCb(&argument))
                    return fail(element, property, instance, "reading stopped at");
                // Each value consumes at least a byte, so a lying length runs
                // out of data instead of looping on.
                for (long i = 0; i < argument.length; ++i) {
                    if (!read(property.valueType, argument.value))
                        return fail(element, property, instance, "error reading");
                    argument.valueIndex = i;
                    if (property.readCb && !property.readCb(&argument))
                        return fail(element, property, instance, "reading stopped at");
                }
            }
        }
    }
    return 1;
}

} // namespace

int ply_read(p_ply ply)
{
    if (!ply || !ply->headerRead) {
        if (ply)
            Fail(ply, "header not read");
        return 0;
    }
    switch (ply->storage) {
    case Ascii:
        return ReadData<Ascii>(ply);
    case LittleEndian:
        return ReadData<LittleEndian>(ply);
    default:
        return ReadData<BigEndian>(ply);
    }
}

int ply_close(p_ply ply)
{
    delete ply;
    return 1;
}
