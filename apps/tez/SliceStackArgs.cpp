#include "tez/SliceStackArgs.h"

#include "platform/System.h"
#include "volume/Image.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <sys/stat.h>
#include <vector>

namespace {
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

bool IsRegularFile(std::string const& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool IsDirectory(std::string const& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}
} // namespace

std::string TezSliceStackArgs::Parse(std::string const& pattern_, std::string const& first_, std::string const& last_)
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

int TezSliceStackArgs::SliceBits(TezImageStack const& stack)
{
    if (stack.GetImages().empty())
        return 0;
    TezImage image;
    if (!image.Load(stack.GetImages().front().name.c_str()))
        return 0;
    int const bpp = image.GetBPP();
    bool const grey16 = bpp == 16 && image.GetColorType() == TezImage::ColorTypeMinIsBlack;
    return grey16 || bpp == 48 || bpp == 64 ? 16 : 8;
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
    if (pattern.find('%') > slash && !TezIsDirectory(folder.c_str())) {
        std::fprintf(err, "tez: folder '%s' does not exist\n", folder.c_str());
        return TezRef<TezImageStack>();
    }
    std::vector<TezImageStack::ImageFile> const files = TezImageStack::FindNumberedFiles(pattern.c_str(), first, last);
    if (files.empty()) {
        std::fprintf(err, "tez: no file matches %s for %d..%d\n", pattern.c_str(), first, last);
        return TezRef<TezImageStack>();
    }
    for (TezImageStack::ImageFile const& file : files)
        if (!IsRegularFile(file.name.c_str())) {
            std::fprintf(err, "tez: %s is %s, not an image file\n", file.name.c_str(),
                         IsDirectory(file.name.c_str()) ? "a directory" : "not a regular file");
            return TezRef<TezImageStack>();
        }

    // The range must be the files' own: a LAST far beyond them would make a
    // stack of almost nothing but interpolation.
    int64_t const lowest = int64_t(first) + files.front().index;
    int64_t const highest = int64_t(first) + files.back().index;
    int64_t const range = int64_t(last) - first + 1;
    if (lowest != first || highest != last) {
        std::fprintf(err, "tez: the files of %s run from %lld to %lld; FIRST and LAST (%d..%d) must be within them\n",
                     pattern.c_str(), (long long)lowest, (long long)highest, first, last);
        return TezRef<TezImageStack>();
    }
    int64_t const missing = range - int64_t(files.size());
    if (missing > int64_t(files.size())) {
        std::fprintf(err, "tez: only %zu of the %lld numbers %d..%d have a file; most of the stack would be invented\n",
                     files.size(), (long long)range, first, last);
        return TezRef<TezImageStack>();
    }

    TezRef<TezImageStack> stack = TezImageStack::Create(files);
    if (!stack || !stack->IsValid()) {
        std::fprintf(err, "tez: none of the files %s for %d..%d is a readable image\n", pattern.c_str(), first, last);
        return TezRef<TezImageStack>();
    }
    stack->CheckFiles();
    if (!AcceptUnreadable(*stack, err))
        return TezRef<TezImageStack>();
    if (missing > 0) {
        // The first few numbers without a file, found by walking the files.
        std::vector<int> shown;
        size_t next = 0;
        for (int64_t number = first; number <= last && shown.size() < 8; ++number) {
            if (next < files.size() && int64_t(first) + files[next].index == number)
                ++next;
            else
                shown.push_back(int(number));
        }
        std::fprintf(err, "tez: %lld of %lld slices missing (", (long long)missing, (long long)range);
        for (size_t i = 0; i < shown.size(); ++i)
            std::fprintf(err, "%s%d", i ? ", " : "", shown[i]);
        std::fprintf(err, "%s): filled by interpolation\n", missing > int64_t(shown.size()) ? ", ..." : "");
    }
    return stack;
}

bool TezSliceStackArgs::AcceptUnreadable(TezImageStack const& stack, FILE* err) const
{
    size_t const bad = stack.GetUnreadableFiles().size();
    size_t const files = stack.GetFileCount();
    bool const accepted = allowUnreadable || double(bad) <= kMaxUnreadableShare * double(files);
    if (bad > m_reported || !accepted)
        std::fprintf(err, "tez: %zu of %zu slice files cannot be read as images (named above)", bad, files);
    if (!accepted) {
        std::fprintf(err, ": more than %d%% is refused%s%s%s\n", int(kMaxUnreadableShare * 100 + 0.5),
                     allowOption.empty() ? "" : " (", allowOption.c_str(),
                     allowOption.empty() ? "" : " uses the rest)");
        return false;
    }
    if (bad > m_reported)
        std::fprintf(err, "; their slices are filled by interpolation\n");
    m_reported = bad;
    return true;
}
