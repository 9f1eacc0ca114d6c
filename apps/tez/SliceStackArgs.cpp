#include "tez/SliceStackArgs.h"

#include "platform/System.h"

#include <cctype>
#include <cstring>
#include <stdexcept>
#include <sys/stat.h>
#include <vector>

namespace
{
bool ParseInt(std::string const& text, int& value)
{
    try {
        size_t used = 0;
        value = std::stoi(text, &used);
        return used == text.size();
    } catch (std::exception const&) {
        return false;
    }
}

// One integer conversion, optionally with flags, width and precision.
bool HasOneIntegerField(std::string const& pattern)
{
    int fields = 0;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%')
            continue;
        if (i + 1 < pattern.size() && pattern[i + 1] == '%') {
            ++i;
            continue;
        }
        size_t j = i + 1;
        while (j < pattern.size() && std::strchr("-+ 0#", pattern[j]))
            ++j;
        while (j < pattern.size() && (std::isdigit(static_cast<unsigned char>(pattern[j])) || pattern[j] == '.'))
            ++j;
        if (j >= pattern.size() || !std::strchr("diu", pattern[j]))
            return false;
        ++fields;
        i = j;
    }
    return fields == 1;
}

bool IsFile(std::string const& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode);
}
} // namespace

std::string TezSliceStackArgs::Parse(std::string const& pattern_, std::string const& first_,
                                     std::string const& last_)
{
    pattern = pattern_;
    if (!HasOneIntegerField(pattern))
        return "PATTERN '" + pattern + "' must hold one number field such as %04d";
    if (pattern.size() > 1000)
        return "PATTERN is too long";
    if (!ParseInt(first_, first) || !ParseInt(last_, last))
        return "FIRST and LAST must be integers";
    if (first < 0 || last < first)
        return "FIRST must be at least 0 and LAST at least FIRST";
    return std::string();
}

std::string TezSliceStackArgs::FileName(int number) const
{
    std::vector<char> name(pattern.size() + 32);
    std::snprintf(name.data(), name.size(), pattern.c_str(), number);
    return std::string(name.data());
}

TezRef<TezImageStack> TezSliceStackArgs::Open(FILE* err) const
{
    std::string folder = ".";
    size_t const slash = pattern.find_last_of('/');
    if (slash != std::string::npos)
        folder = slash == 0 ? "/" : pattern.substr(0, slash);
    if (!TezIsDirectory(TezString(folder.c_str()))) {
        std::fprintf(err, "tez: folder '%s' does not exist\n", folder.c_str());
        return TezRef<TezImageStack>();
    }
    std::vector<int> missing;
    for (int number = first; number <= last; ++number)
        if (!IsFile(FileName(number)))
            missing.push_back(number);
    if (missing.size() == size_t(last - first + 1)) {
        std::fprintf(err, "tez: no file matches %s for %d..%d\n", pattern.c_str(), first, last);
        return TezRef<TezImageStack>();
    }
    TezRef<TezImageStack> stack = TezImageStack::Create(pattern.c_str(), first, last);
    if (!stack || !stack->IsValid()) {
        std::fprintf(err, "tez: none of the files %s for %d..%d is a readable image\n", pattern.c_str(), first,
                     last);
        return TezRef<TezImageStack>();
    }
    if (!missing.empty()) {
        std::fprintf(err, "tez: %zu of %d slices missing (", missing.size(), last - first + 1);
        for (size_t i = 0; i < missing.size() && i < 8; ++i)
            std::fprintf(err, "%s%d", i ? ", " : "", missing[i]);
        std::fprintf(err, "%s): filled by interpolation where neighbours exist\n", missing.size() > 8 ? ", ..." : "");
    }
    return stack;
}
