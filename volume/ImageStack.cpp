#include "volume/ImageStack.h"

#include "core/Logger.h"
#include "core/Progress.h"
#include "volume/Image.h"

#include <tbb/parallel_for.h>

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <thread>

TEZ_TYPIFIED_IMPL(TezImageStack, "TezImageStack")

namespace {

// A box of a copy request in the caller's buffer.
struct Box
{
    uint8_t* buffer;
    int x, y, z, width, height, depth, bitsPerPixel;
    uint64_t rowStride, sliceStride;

    size_t Bytes() const { return static_cast<size_t>(bitsPerPixel / 8); }
    size_t RowBytes() const { return static_cast<size_t>(width) * Bytes(); }
    uint8_t* Slice(int s) const { return buffer + static_cast<uint64_t>(s) * sliceStride; }
};

// Whether the box lies in a stack of the size, in 8 or 16 bits, and every
// slice of the buffer holds the box's rows at the given strides.
bool IsValidBox(Box const& box, int width, int height, int depth)
{
    if (!box.buffer || (box.bitsPerPixel != 8 && box.bitsPerPixel != 16) || box.x < 0 || box.y < 0 || box.z < 0 ||
        box.width < 0 || box.height < 0 || box.depth < 0 || int64_t(box.x) + box.width > width ||
        int64_t(box.y) + box.height > height || int64_t(box.z) + box.depth > depth)
        return false;
    if (box.width == 0 || box.height == 0 || box.depth == 0)
        return true;
    uint64_t const rowBytes = box.RowBytes();
    return box.rowStride >= rowBytes &&
           box.rowStride <= (std::numeric_limits<uint64_t>::max() - rowBytes) / uint64_t(box.height) &&
           box.sliceStride >= uint64_t(box.height - 1) * box.rowStride + rowBytes &&
           (box.bitsPerPixel == 8 || (box.rowStride % 2 == 0 && box.sliceStride % 2 == 0));
}

// Copies the box's rows of one slice; the same slice is left as it is.
void CopyRows(Box const& box, uint8_t const* source, uint8_t* destination)
{
    if (source == destination)
        return;
    for (int r = 0; r < box.height; ++r)
        std::memcpy(destination + static_cast<uint64_t>(r) * box.rowStride,
                    source + static_cast<uint64_t>(r) * box.rowStride, box.RowBytes());
}

bool FileExists(char const* path)
{
    struct stat info;
    return stat(path, &info) == 0 && !S_ISDIR(info.st_mode);
}

// True for a printf format with exactly one integer conversion and no other
// conversion but "%%": anything else would read arguments that are not there.
bool IsNumberPattern(char const* pattern)
{
    int conversions = 0;
    for (char const* c = pattern; *c; ++c) {
        if (*c != '%')
            continue;
        ++c;
        if (*c == '%')
            continue;
        while (*c && std::strchr("-+ 0#", *c))
            ++c;
        while (*c >= '0' && *c <= '9')
            ++c;
        if (*c == '.') {
            ++c;
            while (*c >= '0' && *c <= '9')
                ++c;
        }
        if (!*c || !std::strchr("diouxX", *c))
            return false;
        ++conversions;
    }
    return conversions == 1;
}

TezString FormatNumber(char const* pattern, int number)
{
    // The pattern was checked by IsNumberPattern.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    int length = std::snprintf(nullptr, 0, pattern, number);
    if (length < 0 || static_cast<size_t>(length) > TezImage::MaxPathLength)
        return TezString();
    std::vector<char> text(static_cast<size_t>(length) + 1);
    std::snprintf(text.data(), text.size(), pattern, number);
#pragma GCC diagnostic pop
    return TezString(text.data());
}

// The parts of a pattern with one conversion around the path component
// that holds it: the folder to list, the component as a pattern of its own,
// its literal text before and after the conversion, and the conversion letter.
struct NumberedComponent
{
    std::string folder;
    std::string pattern;
    std::string prefix, suffix;
    char conversion = 'd';
};

std::string Unescape(std::string const& text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        plain.push_back(text[i]);
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%')
            ++i;
    }
    return plain;
}

NumberedComponent SplitPattern(std::string const& pattern)
{
    size_t start = 0;
    while ((start = pattern.find('%', start)) != std::string::npos && pattern.compare(start, 2, "%%") == 0)
        start += 2;
    size_t const letter = pattern.find_first_of("diouxX", start);
    size_t const slash = pattern.rfind('/', start);
    size_t const next = pattern.find('/', letter);
    size_t const begin = slash == std::string::npos ? 0 : slash + 1;
    size_t const end = next == std::string::npos ? pattern.size() : next;

    NumberedComponent part;
    part.folder = slash == std::string::npos ? "." : slash == 0 ? "/" : Unescape(pattern.substr(0, slash));
    part.pattern = pattern.substr(begin, end - begin);
    part.prefix = Unescape(pattern.substr(begin, start - begin));
    part.suffix = Unescape(pattern.substr(letter + 1, end - letter - 1));
    part.conversion = pattern[letter];
    return part;
}

// The number that the component's pattern prints as `name`, if any.
bool MatchNumber(NumberedComponent const& part, std::string const& name, int& number)
{
    if (name.size() <= part.prefix.size() + part.suffix.size() || name.compare(0, part.prefix.size(), part.prefix) ||
        name.compare(name.size() - part.suffix.size(), part.suffix.size(), part.suffix))
        return false;
    std::string const digits = name.substr(part.prefix.size(), name.size() - part.prefix.size() - part.suffix.size());
    int const base = part.conversion == 'o' ? 8 : (part.conversion == 'x' || part.conversion == 'X') ? 16 : 10;
    errno = 0;
    char* end = nullptr;
    long long const value = std::strtoll(digits.c_str(), &end, base);
    if (errno || end != digits.c_str() + digits.size() || value < std::numeric_limits<int>::min() ||
        value > std::numeric_limits<int>::max())
        return false;
    number = static_cast<int>(value);
    // Only the exact spelling counts: "7" is not "%04d".
    TezString const printed = FormatNumber(part.pattern.c_str(), number);
    return printed.Length() > 0 && name == printed.c_str();
}

bool IsDirectory(char const* path)
{
    struct stat info;
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

bool IsRegularFile(char const* path)
{
    struct stat info;
    return stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

int WorkerCount()
{
    unsigned threads = std::thread::hardware_concurrency();
    return 2 * static_cast<int>(threads > 0 ? threads : 1);
}

template <class T>
void BlendSlice(T* destination, T const* a, T const* b, int width, int height, uint64_t rowStride, int64_t t)
{
    int64_t const weightA = ~t & 0xFFFF;
    for (int r = 0; r < height; ++r) {
        uint64_t const row = static_cast<uint64_t>(r) * rowStride;
        for (int c = 0; c < width; ++c) {
            uint64_t const i = row + static_cast<uint64_t>(c);
            destination[i] = static_cast<T>((weightA * a[i] + t * b[i]) >> 16);
        }
    }
}

// Fills the box slices between a lower slice a at position p and an upper
// slice b at position q. Exclusive leaves out the slices at p and q.
void Interpolate(Box const& box, uint8_t const* a, uint8_t const* b, double p, double q, bool exclusive)
{
    if (!(q > p))
        return;
    int end = box.depth;
    if (static_cast<int>(q) < box.depth)
        end = exclusive ? static_cast<int>(q) : static_cast<int>(q + 1);
    int start = std::max(static_cast<int>(std::ceil(p)) + (exclusive ? 1 : 0), 0);
    for (int s = start; s < end; ++s) {
        int64_t const t = static_cast<int64_t>((s - p) / (q - p) * 65535.0);
        uint8_t* destination = box.Slice(s);
        if (box.bitsPerPixel == 8)
            BlendSlice(destination, a, b, box.width, box.height, box.rowStride, t);
        else
            BlendSlice(reinterpret_cast<uint16_t*>(destination), reinterpret_cast<uint16_t const*>(a),
                       reinterpret_cast<uint16_t const*>(b), box.width, box.height, box.rowStride / 2, t);
    }
}

} // namespace

// ---- creation ----

TezRef<TezImageStack> TezImageStack::Create(char const* pattern, int first, int last)
{
    TezRef<TezImageStack> stack(new TezImageStack());
    if (!pattern || !IsNumberPattern(pattern)) {
        TezLogger::warn("TezImageStack::Create: '%s' is not a pattern with one number\n", pattern ? pattern : "");
        return stack;
    }
    std::vector<ImageFile> images;
    for (ImageFile& file : FindNumberedFiles(pattern, first, last))
        if (!IsDirectory(file.name.c_str()))
            images.push_back(std::move(file));
    stack->LoadImageList(images);
    return stack;
}

std::vector<TezImageStack::ImageFile> TezImageStack::FindNumberedFiles(char const* pattern, int first, int last)
{
    std::vector<ImageFile> files;
    if (!pattern || !IsNumberPattern(pattern) || last < first || std::strlen(pattern) > TezImage::MaxPathLength)
        return files;
    NumberedComponent const part = SplitPattern(pattern);
    DIR* folder = opendir(part.folder.c_str());
    if (!folder)
        return files;
    while (dirent const* entry = readdir(folder)) {
        int number = 0;
        if (!MatchNumber(part, entry->d_name, number) || number < first || number > last)
            continue;
        // The numbered part may be a folder with more path after it.
        TezString name = FormatNumber(pattern, number);
        struct stat info;
        if (name.Length() > 0 && stat(name.c_str(), &info) == 0)
            files.push_back(ImageFile{name, static_cast<int>(int64_t(number) - first)});
    }
    closedir(folder);
    std::sort(files.begin(), files.end(), [](ImageFile const& a, ImageFile const& b) { return a.index < b.index; });
    return files;
}

TezRef<TezImageStack> TezImageStack::Create(std::vector<TezString> const& names)
{
    TezRef<TezImageStack> stack(new TezImageStack());
    std::vector<ImageFile> images;
    for (size_t i = 0; i < names.size(); ++i)
        if (FileExists(names[i].c_str()))
            images.push_back(ImageFile{names[i], static_cast<int>(i)});
    stack->LoadImageList(images);
    return stack;
}

TezRef<TezImageStack> TezImageStack::Create(std::vector<ImageFile> const& images)
{
    TezRef<TezImageStack> stack(new TezImageStack());
    stack->LoadImageList(images);
    return stack;
}

bool TezImageStack::LoadImageList(std::vector<ImageFile> const& images)
{
    m_images.clear();
    m_fileWidth = m_fileHeight = m_fileDepth = m_width = m_height = m_depth = 0;
    m_fileCount = images.size();
    TezImage image;
    size_t first = 0;
    while (first < images.size() && !image.Load(images[first].name.c_str()))
        NoteUnreadable(images[first++].name);
    if (first == images.size())
        return false;
    size_t last = images.size() - 1;
    TezImage probe;
    while (last > first && !probe.Load(images[last].name.c_str()))
        NoteUnreadable(images[last--].name);
    int const depth = images[last].index - images[first].index + 1;
    if (depth < 1) // not ascending
        return false;
    m_images.assign(images.begin() + static_cast<ptrdiff_t>(first), images.begin() + static_cast<ptrdiff_t>(last) + 1);
    m_fileWidth = m_width = image.GetWidth();
    m_fileHeight = m_height = image.GetHeight();
    m_fileDepth = m_depth = depth;
    return true;
}

// ---- unreadable files ----

void TezImageStack::NoteUnreadable(TezString const& name)
{
    std::lock_guard<std::mutex> lock(m_unreadableMutex);
    if (std::find(m_unreadable.begin(), m_unreadable.end(), name) != m_unreadable.end())
        return;
    m_unreadable.push_back(name);
    TezLogger::warn("TezImageStack: skipping slice file '%s': %s\n", name.c_str(),
                    IsRegularFile(name.c_str()) ? "not a readable image" : "not a regular file");
}

std::vector<TezString> TezImageStack::GetUnreadableFiles() const
{
    std::lock_guard<std::mutex> lock(m_unreadableMutex);
    return m_unreadable;
}

size_t TezImageStack::CheckFiles()
{
    // Header reads are bound by file access, like the slice reads of Copy.
    int const workers = WorkerCount();
    tbb::parallel_for(0, workers, [&](int worker) {
        for (size_t i = static_cast<size_t>(worker); i < m_images.size(); i += static_cast<size_t>(workers))
            if (!TezImage::IsReadable(m_images[i].name.c_str()))
                NoteUnreadable(m_images[i].name);
    });
    std::lock_guard<std::mutex> lock(m_unreadableMutex);
    return m_unreadable.size();
}

// ---- size ----

void TezImageStack::Resize(int width, int height)
{
    m_width = width;
    m_height = height;
}

void TezImageStack::SetScale(double factor)
{
    auto scaled = [factor](int size) { return std::max(static_cast<int>(size * factor), 1); };
    m_width = scaled(m_fileWidth);
    m_height = scaled(m_fileHeight);
    m_depth = scaled(m_fileDepth);
}

// ---- copying ----

// The copy of one box: where it goes, the two buffers for slices from
// outside it, the slices last loaded, and the steps that fill it.
class TezImageStack::Copier
{
public:
    Copier(TezImageStack& stack, Box const& box, uint8_t* interpolation[2], TezProgress& progress)
        : m_stack(stack), m_images(stack.m_images), m_box(box), m_interpolation{interpolation[0], interpolation[1]},
          m_progress(progress), m_first(m_images.front().index), m_last(m_images.back().index),
          m_ratio(static_cast<double>(stack.m_depth) / stack.m_fileDepth)
    {
    }

    // The stack at its files' depth: the files inside the box load in
    // parallel, then the gaps are interpolated.
    void CopySameDepth();
    // The stack scaled in depth: each slice of the box from the one or two
    // files around its place, read in order and kept for the next slice.
    void CopyResampled();

private:
    // A file's slice in memory: its list position and where its voxels are
    // (an interpolation buffer or a slice of the box).
    struct Held
    {
        long position = -1;
        uint8_t const* data = nullptr;
    };

    size_t FirstFileAtLeast(int64_t index) const;
    std::vector<int> LoadFilesInBox(size_t begin, size_t end, int zAbsolute);
    void AddNeighboursOutside(size_t begin, size_t end, int zAbsolute, std::vector<int>& slices);
    void InterpolateGaps(std::vector<int> const& slices);

    void FindSources(int slice, long& lower, long& upper) const;
    void CopyFromOne(int slice, long position);
    void CopyBetween(int slice, long lower, long upper);
    uint8_t const* HeldData(long position) const;

    // The file at `position`, or the nearest one in direction `step` that
    // loads, extracted to `destination`; its position, or -1.
    long LoadNearest(long position, long step, uint8_t* destination);
    // Loads and extracts one file, recording it as unreadable on failure.
    bool LoadSlice(TezImage& image, ImageFile const& file, uint8_t* destination) const;
    bool ExtractSlice(TezImage& image, uint8_t* destination) const;

    TezImageStack& m_stack;
    std::vector<ImageFile> const& m_images;
    Box const& m_box;
    uint8_t* m_interpolation[2];
    TezProgress& m_progress;
    int const m_first;
    int const m_last;
    double const m_ratio;
    TezImage m_image;
    Held m_held[2];
    int m_loads = 0;
};

bool TezImageStack::Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel,
                         uint64_t rowStride, uint64_t sliceStride, uint8_t** interpolationBuffers)
{
    Box const box{static_cast<uint8_t*>(buffer), x, y, z, width, height, depth, bitsPerPixel, rowStride, sliceStride};
    bool const valid = !m_images.empty() && IsValidBox(box, m_width, m_height, m_depth) &&
                       (!interpolationBuffers || (interpolationBuffers[0] && interpolationBuffers[1]));
    if (!valid) {
        TezLogger::warn("TezImageStack::Copy: invalid copy request\n");
        return false;
    }

    std::vector<uint8_t> ownLower, ownUpper;
    uint8_t* interpolation[2];
    if (interpolationBuffers) {
        interpolation[0] = interpolationBuffers[0];
        interpolation[1] = interpolationBuffers[1];
    } else {
        TezLogger::info("TezImageStack::Copy: allocating memory for interpolation\n");
        ownLower.resize(sliceStride);
        ownUpper.resize(sliceStride);
        interpolation[0] = ownLower.data();
        interpolation[1] = ownUpper.data();
    }

    // Both ways start a section, and the interpolation of gaps another
    // after it; the host sees one end for the whole copy.
    TezProgress progress;
    Copier copier(*this, box, interpolation, progress);
    if (m_depth == m_fileDepth)
        copier.CopySameDepth();
    else
        copier.CopyResampled();
    progress.End();
    return true;
}

bool TezImageStack::Copier::ExtractSlice(TezImage& image, uint8_t* destination) const
{
    int const width = m_stack.m_width, height = m_stack.m_height;
    if (image.GetColorType() != TezImage::ColorTypeMinIsBlack || image.GetBPP() != m_box.bitsPerPixel)
        image.ConvertToGreyscale(m_box.bitsPerPixel);
    if (image.GetWidth() != width || image.GetHeight() != height)
        image.Resize(width, height);
    // The rows below are read at the box's offsets: the bitmap must now be
    // exactly what the stack delivers.
    if (image.GetBPP() != m_box.bitsPerPixel || image.GetWidth() != width || image.GetHeight() != height)
        return false;
    size_t const offset = static_cast<size_t>(m_box.x) * m_box.Bytes();
    for (int r = 0; r < m_box.height; ++r)
        std::memcpy(destination + static_cast<uint64_t>(r) * m_box.rowStride, image.GetScanLine(r + m_box.y) + offset,
                    m_box.RowBytes());
    return true;
}

bool TezImageStack::Copier::LoadSlice(TezImage& image, ImageFile const& file, uint8_t* destination) const
{
    if (image.Load(file.name.c_str()) && ExtractSlice(image, destination))
        return true;
    m_stack.NoteUnreadable(file.name);
    return false;
}

long TezImageStack::Copier::LoadNearest(long position, long step, uint8_t* destination)
{
    long const count = static_cast<long>(m_images.size());
    for (; position >= 0 && position < count; position += step) {
        if (LoadSlice(m_image, m_images[static_cast<size_t>(position)], destination)) {
            ++m_loads;
            return position;
        }
    }
    return -1;
}

// -- at the files' depth --

void TezImageStack::Copier::CopySameDepth()
{
    int const zAbsolute = m_box.z + m_first;
    size_t const begin = FirstFileAtLeast(zAbsolute);
    size_t const end = std::max(FirstFileAtLeast(int64_t(zAbsolute) + m_box.depth), begin);
    std::vector<int> slices = LoadFilesInBox(begin, end, zAbsolute);
    AddNeighboursOutside(begin, end, zAbsolute, slices);
    InterpolateGaps(slices);
}

size_t TezImageStack::Copier::FirstFileAtLeast(int64_t index) const
{
    size_t i = 0;
    while (i < m_images.size() && m_images[i].index < index)
        ++i;
    return i;
}

// Loads the files at list positions [begin, end) into their slices of the
// box; answers the slices that loaded, ascending.
std::vector<int> TezImageStack::Copier::LoadFilesInBox(size_t begin, size_t end, int zAbsolute)
{
    m_progress.Start("Image Stack: Loading...", end - begin);
    // Slice reads are bound by file access more than by the processor.
    int const workers = WorkerCount();
    std::vector<char> loaded(static_cast<size_t>(m_box.depth), 0);
    tbb::parallel_for(0, workers, [&](int worker) {
        TezImage image;
        for (size_t position = begin + static_cast<size_t>(worker); position < end; position += size_t(workers)) {
            // A stopped copy leaves the rest of the box as it was; the caller
            // polls the same flag and drops it.
            if (m_progress.StopRequested())
                break;
            ImageFile const& file = m_images[position];
            int const slice = file.index - zAbsolute;
            // Indices count from the stack's first image, which need not be 0.
            if (file.index - m_first >= m_stack.m_depth) {
                TezLogger::error("error: image depth out of bounds\n");
            } else if (slice >= 0 && slice < m_box.depth && LoadSlice(image, file, m_box.Slice(slice))) {
                loaded[static_cast<size_t>(slice)] = 1;
            }
            m_progress.Step();
        }
    });

    std::vector<int> slices;
    for (int s = 0; s < m_box.depth; ++s)
        if (loaded[static_cast<size_t>(s)])
            slices.push_back(s);
    return slices;
}

// The nearest files that load below and above the box, into the
// interpolation buffers, for the gaps at its ends; their slices (outside the
// box) join the list.
void TezImageStack::Copier::AddNeighboursOutside(size_t begin, size_t end, int zAbsolute, std::vector<int>& slices)
{
    if ((slices.empty() || slices.front() > 0) && begin >= 1) {
        TezLogger::info("Find and load first image for interpolation %d\n", slices.empty() ? -1 : slices.front());
        long const position = LoadNearest(static_cast<long>(begin) - 1, -1, m_interpolation[0]);
        if (position >= 0)
            slices.insert(slices.begin(), m_images[static_cast<size_t>(position)].index - zAbsolute);
    }
    if (!slices.empty() && slices.back() + 1 < m_box.depth && end < m_images.size()) {
        TezLogger::info("Find and load last image for interpolation %d\n", slices.back());
        long const position = LoadNearest(static_cast<long>(end), 1, m_interpolation[1]);
        if (position >= 0)
            slices.push_back(m_images[static_cast<size_t>(position)].index - zAbsolute);
    }
}

// Interpolates when a slice of the box lacks its image. The neighbours found
// outside the box do not count: with them the list can reach the box's
// depth while a gap inside remains.
void TezImageStack::Copier::InterpolateGaps(std::vector<int> const& slices)
{
    size_t const inside = static_cast<size_t>(
        std::count_if(slices.begin(), slices.end(), [&](int s) { return s >= 0 && s < m_box.depth; }));
    if (slices.size() < 2 || inside >= static_cast<size_t>(m_box.depth))
        return;
    TezLogger::info("Interpolating images\n");
    m_progress.Start("Image Stack: Interpolating...", slices.size());
    // Each pair fills only the slices strictly between its two.
    tbb::parallel_for(size_t(0), slices.size() - 1, [&](size_t pair) {
        int const s0 = slices[pair], s1 = slices[pair + 1];
        if (s1 - s0 < 2)
            return;
        uint8_t const* a = s0 < 0 ? m_interpolation[0] : m_box.Slice(s0);
        uint8_t const* b = s1 < m_box.depth ? m_box.Slice(s1) : m_interpolation[1];
        Interpolate(m_box, a, b, s0, s1, true);
        m_progress.Step();
    });
}

// -- resampled in depth --

void TezImageStack::Copier::CopyResampled()
{
    m_progress.Start("Loading Image Stack...", static_cast<uint64_t>(m_box.depth));
    for (int s = 0; s < m_box.depth; ++s) {
        long lower = 0, upper = 0;
        FindSources(s, lower, upper);
        if (lower == upper)
            CopyFromOne(s, lower);
        else
            CopyBetween(s, lower, upper);
        m_progress.Step();
    }
    TezLogger::info("TezImageStack::Copy: imageLoads: %d\n", m_loads);
}

// The list positions of the files at and after the slice's place in the
// files' numbering; one position when a single file serves.
void TezImageStack::Copier::FindSources(int slice, long& lower, long& upper) const
{
    long const count = static_cast<long>(m_images.size());
    int const source = static_cast<int>((m_box.z + slice) / m_ratio + m_first);
    int const low = std::max(source, m_first);
    int const high = std::min(m_last, source + 1);
    long lo = 0;
    while (lo < count - 1 && m_images[static_cast<size_t>(lo)].index < low)
        ++lo;
    if (m_images[static_cast<size_t>(lo)].index > low && lo > 0)
        --lo;
    long up = lo;
    while (up < count - 1 && m_images[static_cast<size_t>(up)].index < high)
        ++up;
    lower = lo;
    upper = up;
}

uint8_t const* TezImageStack::Copier::HeldData(long position) const
{
    for (Held const& h : m_held)
        if (h.position == position)
            return h.data;
    return nullptr;
}

// A slice served by one file: copied from memory, or loaded straight into
// the box, where it is kept for the slices after it.
void TezImageStack::Copier::CopyFromOne(int slice, long position)
{
    uint8_t* destination = m_box.Slice(slice);
    if (uint8_t const* held = HeldData(position)) {
        CopyRows(m_box, held, destination);
        return;
    }
    long const loaded = LoadNearest(position, -1, destination);
    if (loaded >= 0) {
        m_held[0] = m_held[1];
        m_held[1] = Held{loaded, destination};
    }
}

// A slice between two files: those not in memory go to the interpolation
// buffers, one each, and the slice is blended from both; when one side has
// nothing that loads, the other is repeated.
void TezImageStack::Copier::CopyBetween(int slice, long lower, long upper)
{
    uint8_t const* a = HeldData(lower);
    uint8_t const* b = HeldData(upper);
    long aPosition = lower;
    long bPosition = upper;
    if (!a) {
        uint8_t* destination = b == m_interpolation[0] ? m_interpolation[1] : m_interpolation[0];
        aPosition = LoadNearest(lower, -1, destination);
        a = aPosition >= 0 ? destination : nullptr;
    }
    if (!b) {
        uint8_t* destination = a == m_interpolation[0] ? m_interpolation[1] : m_interpolation[0];
        bPosition = LoadNearest(upper, 1, destination);
        b = bPosition >= 0 ? destination : nullptr;
    }
    if (a && b) {
        double const p = (m_images[static_cast<size_t>(aPosition)].index - m_first) * m_ratio - m_box.z;
        double const q = (m_images[static_cast<size_t>(bPosition)].index - m_first) * m_ratio - m_box.z;
        Interpolate(m_box, a, b, p, q, false);
        m_held[0] = Held{aPosition, a};
        m_held[1] = Held{bPosition, b};
    } else if (a || b) {
        CopyRows(m_box, a ? a : b, m_box.Slice(slice));
    }
}

// ---- archive ----

void TezImageStack::Save(TezRef<TezArchive> archive) const
{
    archive->WriteStartSection(TypeName());
    archive->WriteEndSection();
}

void TezImageStack::Load(TezRef<TezArchive>) {}
