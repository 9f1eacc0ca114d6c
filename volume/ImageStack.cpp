#include "volume/ImageStack.h"

#include "core/Logger.h"
#include "core/UIManager.h"
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

struct TezImageStack::Box
{
    uint8_t* buffer;
    int x, y, z, width, height, depth, bitsPerPixel;
    uint64_t rowStride, sliceStride;

    size_t Bytes() const { return static_cast<size_t>(bitsPerPixel / 8); }
    size_t RowBytes() const { return static_cast<size_t>(width) * Bytes(); }
    uint8_t* Slice(int s) const { return buffer + static_cast<uint64_t>(s) * sliceStride; }
};

namespace {

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

// Progress through the application's UI manager; silent without an application.
class Progress
{
public:
    Progress() : m_ui(TezUIManager::GetAppUIManager()) {}
    void Start(char const* message, uint64_t count)
    {
        if (m_ui) {
            m_ui->SetProgressMessage(TezString(message));
            m_ui->StartProgress(count);
        }
    }
    void Step()
    {
        if (m_ui)
            m_ui->StepProgress(1);
    }
    void End()
    {
        if (m_ui)
            m_ui->EndProgress();
    }

private:
    TezRef<TezUIManager> m_ui;
};

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
void Interpolate(uint8_t* buffer, int width, int height, int depth, int bitsPerPixel, uint64_t rowStride,
                 uint64_t sliceStride, uint8_t const* a, uint8_t const* b, double p, double q, bool exclusive)
{
    if (!(q > p))
        return;
    int end = depth;
    if (static_cast<int>(q) < depth)
        end = exclusive ? static_cast<int>(q) : static_cast<int>(q + 1);
    int start = std::max(static_cast<int>(std::ceil(p)) + (exclusive ? 1 : 0), 0);
    for (int s = start; s < end; ++s) {
        int64_t const t = static_cast<int64_t>((s - p) / (q - p) * 65535.0);
        uint8_t* destination = buffer + static_cast<uint64_t>(s) * sliceStride;
        if (bitsPerPixel == 8)
            BlendSlice(destination, a, b, width, height, rowStride, t);
        else
            BlendSlice(reinterpret_cast<uint16_t*>(destination), reinterpret_cast<uint16_t const*>(a),
                       reinterpret_cast<uint16_t const*>(b), width, height, rowStride / 2, t);
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

bool TezImageStack::LoadSlice(TezImage& image, ImageFile const& file, uint8_t* destination, Box const& box)
{
    if (image.Load(file.name.c_str()) && ExtractSlice(image, destination, box))
        return true;
    NoteUnreadable(file.name);
    return false;
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

bool TezImageStack::Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel,
                         uint64_t rowStride, uint64_t sliceStride, uint8_t** interpolationBuffers)
{
    bool valid = !m_images.empty() && (bitsPerPixel == 8 || bitsPerPixel == 16) && x >= 0 && y >= 0 && z >= 0 &&
                 width >= 0 && height >= 0 && depth >= 0 && int64_t(x) + width <= m_width &&
                 int64_t(y) + height <= m_height && int64_t(z) + depth <= m_depth && buffer != nullptr;
    if (valid && width > 0 && height > 0 && depth > 0) {
        // Every slice, and each interpolation buffer, must hold the rows of
        // the box at the given strides.
        uint64_t const rowBytes = uint64_t(width) * uint64_t(bitsPerPixel / 8);
        valid = rowStride >= rowBytes &&
                rowStride <= (std::numeric_limits<uint64_t>::max() - rowBytes) / uint64_t(height) &&
                sliceStride >= uint64_t(height - 1) * rowStride + rowBytes &&
                (bitsPerPixel == 8 || (rowStride % 2 == 0 && sliceStride % 2 == 0));
    }
    if (valid && interpolationBuffers)
        valid = interpolationBuffers[0] && interpolationBuffers[1];
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

    Box const box{static_cast<uint8_t*>(buffer), x, y, z, width, height, depth, bitsPerPixel, rowStride, sliceStride};
    if (m_depth == m_fileDepth)
        CopySameDepth(box, interpolation);
    else
        CopyResampled(box, interpolation);
    if (TezRef<TezUIManager> ui = TezUIManager::GetAppUIManager())
        ui->EndProgress();
    return true;
}

bool TezImageStack::ExtractSlice(TezImage& image, uint8_t* destination, Box const& box) const
{
    if (image.GetColorType() != TezImage::ColorTypeMinIsBlack || image.GetBPP() != box.bitsPerPixel)
        image.ConvertToGreyscale(box.bitsPerPixel);
    if (image.GetWidth() != m_width || image.GetHeight() != m_height)
        image.Resize(m_width, m_height);
    // The rows below are read at the box's offsets: the bitmap must now be
    // exactly what the stack delivers.
    if (image.GetBPP() != box.bitsPerPixel || image.GetWidth() != m_width || image.GetHeight() != m_height)
        return false;
    size_t const offset = static_cast<size_t>(box.x) * box.Bytes();
    for (int r = 0; r < box.height; ++r)
        std::memcpy(destination + static_cast<uint64_t>(r) * box.rowStride, image.GetScanLine(r + box.y) + offset,
                    box.RowBytes());
    return true;
}

void TezImageStack::CopySameDepth(Box const& box, uint8_t* interpolation[2])
{
    size_t const count = m_images.size();
    int const zAbsolute = box.z + m_images.front().index;
    auto firstAtLeast = [&](int64_t index) {
        size_t i = 0;
        while (i < count && m_images[i].index < index)
            ++i;
        return i;
    };
    size_t const i0 = firstAtLeast(zAbsolute);
    size_t const i1 = std::max(firstAtLeast(int64_t(zAbsolute) + box.depth), i0);

    Progress progress;
    progress.Start("Image Stack: Loading...", i1 - i0);
    int const workers = WorkerCount();
    std::vector<char> loaded(static_cast<size_t>(box.depth), 0);
    tbb::parallel_for(0, workers, [&](int worker) {
        TezImage image;
        for (size_t position = i0 + static_cast<size_t>(worker); position < i1; position += size_t(workers)) {
            ImageFile const& file = m_images[position];
            int const slice = file.index - zAbsolute;
            // Indices count from the stack's first image, which need not be 0.
            if (file.index - m_images.front().index >= m_depth) {
                TezLogger::error("error: image depth out of bounds\n");
            } else if (slice >= 0 && slice < box.depth && LoadSlice(image, file, box.Slice(slice), box)) {
                loaded[static_cast<size_t>(slice)] = 1;
            }
            progress.Step();
        }
    });

    std::vector<int> slices;
    for (int s = 0; s < box.depth; ++s)
        if (loaded[static_cast<size_t>(s)])
            slices.push_back(s);

    // Neighbours outside the box, for the gaps at its ends.
    TezImage image;
    if ((slices.empty() || slices.front() > 0) && i0 >= 1) {
        TezLogger::info("Find and load first image for interpolation %d\n", slices.empty() ? -1 : slices.front());
        for (size_t position = i0; position-- > 0;) {
            if (LoadSlice(image, m_images[position], interpolation[0], box)) {
                slices.insert(slices.begin(), m_images[position].index - zAbsolute);
                break;
            }
        }
    }
    if (!slices.empty() && slices.back() + 1 < box.depth && i1 < count) {
        TezLogger::info("Find and load last image for interpolation %d\n", slices.back());
        for (size_t position = i1; position < count; ++position) {
            if (LoadSlice(image, m_images[position], interpolation[1], box)) {
                slices.push_back(m_images[position].index - zAbsolute);
                break;
            }
        }
    }

    // Interpolate when a slice of the box lacks its image. The neighbours
    // found outside the box do not count: with them the list can reach the
    // box's depth while a gap inside remains.
    size_t const inside = static_cast<size_t>(
        std::count_if(slices.begin(), slices.end(), [&](int s) { return s >= 0 && s < box.depth; }));
    if (slices.size() > 1 && inside < static_cast<size_t>(box.depth)) {
        TezLogger::info("Interpolating images\n");
        progress.Start("Image Stack: Interpolating...", slices.size());
        std::mutex cursorMutex;
        size_t cursor = 0;
        tbb::parallel_for(0, workers, [&](int) {
            for (;;) {
                size_t pair;
                {
                    std::lock_guard<std::mutex> lock(cursorMutex);
                    if (cursor + 1 >= slices.size())
                        return;
                    pair = cursor++;
                }
                int const s0 = slices[pair], s1 = slices[pair + 1];
                if (s1 - s0 < 2)
                    continue;
                uint8_t const* a = s0 < 0 ? interpolation[0] : box.Slice(s0);
                uint8_t const* b = s1 < box.depth ? box.Slice(s1) : interpolation[1];
                Interpolate(box.buffer, box.width, box.height, box.depth, box.bitsPerPixel, box.rowStride,
                            box.sliceStride, a, b, s0, s1, true);
                progress.Step();
            }
        });
    }
}

void TezImageStack::CopyResampled(Box const& box, uint8_t* interpolation[2])
{
    long const count = static_cast<long>(m_images.size());
    double const ratio = static_cast<double>(m_depth) / m_fileDepth;
    int const first = m_images.front().index;
    int const lastIndex = m_images.back().index;

    Progress progress;
    progress.Start("Loading Image Stack...", static_cast<uint64_t>(box.depth));

    // The two slices last used: the list position they came from and where
    // their voxels are (an interpolation buffer or a slice of the box).
    struct Held
    {
        long position = -1;
        uint8_t const* data = nullptr;
    };
    Held held[2];
    auto heldData = [&](long position) -> uint8_t const* {
        for (Held const& h : held)
            if (h.position == position)
                return h.data;
        return nullptr;
    };

    int loads = 0;
    TezImage image;
    // The entry at `position`, or the nearest one in direction `step` that
    // loads, extracted to `destination`; its position, or -1.
    auto loadNear = [&](long position, long step, uint8_t* destination) -> long {
        for (; position >= 0 && position < count; position += step) {
            if (LoadSlice(image, m_images[static_cast<size_t>(position)], destination, box)) {
                ++loads;
                return position;
            }
        }
        return -1;
    };
    auto copySlice = [&](uint8_t const* source, uint8_t* destination) {
        if (source == destination)
            return;
        for (int r = 0; r < box.height; ++r)
            std::memcpy(destination + static_cast<uint64_t>(r) * box.rowStride,
                        source + static_cast<uint64_t>(r) * box.rowStride, box.RowBytes());
    };

    for (int s = 0; s < box.depth; ++s) {
        int const source = static_cast<int>((box.z + s) / ratio + first);
        int const lower = std::max(source, first);
        int const upper = std::min(lastIndex, source + 1);
        long lo = 0;
        while (lo < count - 1 && m_images[static_cast<size_t>(lo)].index < lower)
            ++lo;
        if (m_images[static_cast<size_t>(lo)].index > lower && lo > 0)
            --lo;
        long up = lo;
        while (up < count - 1 && m_images[static_cast<size_t>(up)].index < upper)
            ++up;

        uint8_t* slice = box.Slice(s);
        uint8_t const* a = heldData(lo);
        long aPosition = lo;
        if (lo == up) {
            if (a) {
                copySlice(a, slice);
            } else if ((aPosition = loadNear(lo, -1, slice)) >= 0) {
                held[0] = held[1];
                held[1] = Held{aPosition, slice};
            }
            progress.Step();
            continue;
        }

        uint8_t const* b = heldData(up);
        long bPosition = up;
        // Slices not in memory go to the interpolation buffers, one each.
        if (!a) {
            uint8_t* destination = b == interpolation[0] ? interpolation[1] : interpolation[0];
            aPosition = loadNear(lo, -1, destination);
            a = aPosition >= 0 ? destination : nullptr;
        }
        if (!b) {
            uint8_t* destination = a == interpolation[0] ? interpolation[1] : interpolation[0];
            bPosition = loadNear(up, 1, destination);
            b = bPosition >= 0 ? destination : nullptr;
        }
        if (a && b) {
            double const p = (m_images[static_cast<size_t>(aPosition)].index - first) * ratio - box.z;
            double const q = (m_images[static_cast<size_t>(bPosition)].index - first) * ratio - box.z;
            Interpolate(box.buffer, box.width, box.height, box.depth, box.bitsPerPixel, box.rowStride, box.sliceStride,
                        a, b, p, q, false);
            held[0] = Held{aPosition, a};
            held[1] = Held{bPosition, b};
        } else if (a || b) { // one side has nothing that loads: repeat the other
            copySlice(a ? a : b, slice);
        }
        progress.Step();
    }
    TezLogger::info("TezImageStack::Copy: imageLoads: %d\n", loads);
}

// ---- archive ----

void TezImageStack::Save(TezRef<TezArchive> archive) const
{
    archive->WriteStartSection(TypeName());
    archive->WriteEndSection();
}

void TezImageStack::Load(TezRef<TezArchive>) {}
