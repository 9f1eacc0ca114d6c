#include "volume/Image.h"

#include "core/Logger.h"

#include <FreeImage.h>

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_set>
#include <utility>

#if __has_include(<dlfcn.h>)
#    include <dlfcn.h>
#endif

namespace {

// The file being read on this thread. The image libraries' messages (a TIFF
// with private tags gives dozens per file) are gathered here and logged as
// one debug line when the file's first read ends.
struct ReadContext
{
    char const* path;
    std::string first;
    int count = 0;
};
thread_local ReadContext* t_reading = nullptr;

void LibraryMessage(char const* text)
{
    if (ReadContext* reading = t_reading) {
        if (reading->count++ == 0)
            reading->first = text;
        return;
    }
    TezLogger::debug("FreeImage: %s\n", text);
}

void OnFreeImageMessage(FREE_IMAGE_FORMAT, char const* message) { LibraryMessage(message ? message : ""); }

#if __has_include(<dlfcn.h>)
using TiffHandler = void (*)(char const* module, char const* format, va_list args);
using TiffSetHandler = TiffHandler (*)(TiffHandler);

void OnTiffMessage(char const* module, char const* format, va_list args)
{
    char text[512];
    std::vsnprintf(text, sizeof text, format, args);
    if (module && *module) {
        char line[600];
        std::snprintf(line, sizeof line, "%s: %s", module, text);
        LibraryMessage(line);
    } else {
        LibraryMessage(text);
    }
}

// A FreeImage built against the shared libtiff (as distributions build it)
// leaves libtiff's own handlers in place, and those print every warning and
// every unknown tag to stderr. Reach the libtiff that is already loaded -
// never load one - and hand its messages to ours.
void RouteTiffMessages()
{
    void* library = nullptr;
    void* setWarning = dlsym(RTLD_DEFAULT, "TIFFSetWarningHandler");
    void* setError = dlsym(RTLD_DEFAULT, "TIFFSetErrorHandler");
    for (char const* name : {"libtiff.so.6", "libtiff.so.5"}) {
        if (setWarning && setError)
            break;
        if ((library = dlopen(name, RTLD_LAZY | RTLD_NOLOAD)) != nullptr) {
            setWarning = dlsym(library, "TIFFSetWarningHandler");
            setError = dlsym(library, "TIFFSetErrorHandler");
        }
    }
    if (setWarning && setError) {
        reinterpret_cast<TiffSetHandler>(setWarning)(OnTiffMessage);
        reinterpret_cast<TiffSetHandler>(setError)(OnTiffMessage);
    }
    // FreeImage keeps libtiff loaded; the reference taken here is not needed.
    if (library)
        dlclose(library);
}
#else
void RouteTiffMessages() {}
#endif

void EnsureFreeImage()
{
    static std::once_flag once;
    std::call_once(once, [] {
    // Only a static build of FreeImage needs the explicit start; the
    // shared library starts itself when it is loaded.
#if defined(FREEIMAGE_LIB)
        FreeImage_Initialise(FALSE);
#endif
        FreeImage_SetOutputMessage(OnFreeImageMessage);
        RouteTiffMessages();
    });
}

// A stack reads each file several times (probe, header check, slab after
// slab); its messages are logged at the first read only. The set forgets
// everything once it is large, to stay bounded in a long-lived host.
bool FirstReport(char const* path)
{
    static std::mutex mutex;
    static std::unordered_set<std::string> reported;
    std::lock_guard<std::mutex> lock(mutex);
    if (reported.size() >= 100000)
        reported.clear();
    return reported.insert(path).second;
}

// Gathers the libraries' messages while it lives.
class ReadScope
{
public:
    explicit ReadScope(char const* path)
    {
        m_context.path = path;
        m_outer = std::exchange(t_reading, &m_context);
    }
    ~ReadScope()
    {
        t_reading = m_outer;
        if (m_context.count == 0 || !FirstReport(m_context.path))
            return;
        if (m_context.count == 1)
            TezLogger::debug("TezImage: %s: %s\n", m_context.path, m_context.first.c_str());
        else if (m_context.count > 1)
            TezLogger::debug("TezImage: %s: %s (and %d more messages from the image library)\n", m_context.path,
                             m_context.first.c_str(), m_context.count - 1);
    }
    ReadScope(ReadScope const&) = delete;
    ReadScope& operator=(ReadScope const&) = delete;

private:
    ReadContext m_context;
    ReadContext* m_outer;
};

bool PathFits(char const* path) { return path && std::strlen(path) <= TezImage::MaxPathLength; }

// Directories, pipes and devices are refused before the library opens them:
// a pipe would block the read, a directory reads as garbage.
bool IsRegularFile(char const* path)
{
    struct stat info;
    return stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

// The format from the contents, then from the name; unknown when unreadable.
FREE_IMAGE_FORMAT ReadableFormat(char const* path)
{
    FREE_IMAGE_FORMAT format = FreeImage_GetFileType(path, 0);
    if (format == FIF_UNKNOWN)
        format = FreeImage_GetFIFFromFilename(path);
    if (format != FIF_UNKNOWN && !FreeImage_FIFSupportsReading(format))
        format = FIF_UNKNOWN;
    return format;
}

// The format an output name's extension names; unknown for other names.
FREE_IMAGE_FORMAT SavedFormat(char const* path)
{
    std::string const name = path ? path : "";
    size_t const dot = name.find_last_of('.');
    if (dot == std::string::npos || name.find('/', dot) != std::string::npos)
        return FIF_UNKNOWN;
    std::string extension = name.substr(dot + 1);
    for (char& c : extension)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    if (extension == "png")
        return FIF_PNG;
    if (extension == "jpg" || extension == "jpeg")
        return FIF_JPEG;
    if (extension == "tif" || extension == "tiff")
        return FIF_TIFF;
    if (extension == "bmp")
        return FIF_BMP;
    if (extension == "exr")
        return FIF_EXR;
    return FIF_UNKNOWN;
}

// A copy of the bitmap in a type the format can write, or null when the
// bitmap can be written as it is.
FIBITMAP* ConvertedFor(FREE_IMAGE_FORMAT format, FIBITMAP* bitmap)
{
    FREE_IMAGE_TYPE const type = FreeImage_GetImageType(bitmap);
    if (format == FIF_EXR) {
        if (type == FIT_FLOAT || type == FIT_RGBF || type == FIT_RGBAF)
            return nullptr;
        return type == FIT_UINT16 || FreeImage_GetColorType(bitmap) == FIC_MINISBLACK
                   ? FreeImage_ConvertToFloat(bitmap)
                   : FreeImage_ConvertToRGBAF(bitmap);
    }
    if (format == FIF_JPEG && type == FIT_BITMAP && FreeImage_GetBPP(bitmap) == 32)
        return FreeImage_ConvertTo24Bits(bitmap);
    if ((format == FIF_JPEG || format == FIF_BMP) && type != FIT_BITMAP)
        return FreeImage_ConvertToStandardType(bitmap, TRUE);
    return nullptr;
}

} // namespace

TezImage::~TezImage() { Replace(nullptr); }

TezImage::TezImage(TezImage&& other) noexcept : m_bitmap(std::exchange(other.m_bitmap, nullptr)) {}

TezImage& TezImage::operator=(TezImage&& other) noexcept
{
    if (this != &other)
        Replace(std::exchange(other.m_bitmap, nullptr));
    return *this;
}

void TezImage::Replace(FIBITMAP* bitmap)
{
    if (m_bitmap)
        FreeImage_Unload(m_bitmap);
    m_bitmap = bitmap;
}

bool TezImage::Load(char const* path)
{
    Replace(nullptr);
    if (!PathFits(path) || !IsRegularFile(path))
        return false;
    EnsureFreeImage();
    ReadScope scope(path);
    FREE_IMAGE_FORMAT const format = ReadableFormat(path);
    if (format == FIF_UNKNOWN)
        return false;
    FIBITMAP* bitmap = FreeImage_Load(format, path, 0);
    if (!bitmap)
        return false;
    if (!FreeImage_HasPixels(bitmap) || FreeImage_GetWidth(bitmap) == 0 || FreeImage_GetHeight(bitmap) == 0) {
        FreeImage_Unload(bitmap);
        return false;
    }
    Replace(bitmap);
    return true;
}

bool TezImage::IsReadable(char const* path)
{
    if (!PathFits(path) || !IsRegularFile(path))
        return false;
    EnsureFreeImage();
    ReadScope scope(path);
    FREE_IMAGE_FORMAT const format = ReadableFormat(path);
    if (format == FIF_UNKNOWN)
        return false;
    int const flags = FreeImage_FIFSupportsNoPixels(format) ? FIF_LOAD_NOPIXELS : 0;
    FIBITMAP* bitmap = FreeImage_Load(format, path, flags);
    if (!bitmap)
        return false;
    bool const sized = FreeImage_GetWidth(bitmap) > 0 && FreeImage_GetHeight(bitmap) > 0;
    FreeImage_Unload(bitmap);
    return sized;
}

bool TezImage::Save(char const* path) const
{
    if (!m_bitmap || !PathFits(path))
        return false;
    EnsureFreeImage();
    FREE_IMAGE_FORMAT format = SavedFormat(path);
    if (format == FIF_UNKNOWN)
        format = FIF_PNG;
    FIBITMAP* converted = ConvertedFor(format, m_bitmap);
    int const flags = format == FIF_JPEG ? JPEG_QUALITYSUPERB : 0;
    bool const saved = FreeImage_Save(format, converted ? converted : m_bitmap, path, flags) != 0;
    if (converted)
        FreeImage_Unload(converted);
    return saved;
}

bool TezImage::IsSavableName(char const* path) { return PathFits(path) && SavedFormat(path) != FIF_UNKNOWN; }

bool TezImage::Resize(int width, int height)
{
    if (!m_bitmap || width <= 0 || height <= 0)
        return false;
    FIBITMAP* scaled = FreeImage_Rescale(m_bitmap, width, height, FILTER_BICUBIC);
    if (!scaled)
        return false;
    Replace(scaled);
    return true;
}

bool TezImage::ConvertToGreyscale(int bits)
{
    if (!m_bitmap)
        return false;
    FIBITMAP* grey = bits == 8 ? FreeImage_ConvertToGreyscale(m_bitmap) : FreeImage_ConvertToUINT16(m_bitmap);
    if (!grey)
        return false;
    Replace(grey);
    return true;
}

bool TezImage::Create(int width, int height, int bitsPerPixel)
{
    if (width <= 0 || height <= 0 || (bitsPerPixel != 8 && bitsPerPixel != 24 && bitsPerPixel != 32))
        return false;
    EnsureFreeImage();
    FIBITMAP* bitmap = FreeImage_Allocate(width, height, bitsPerPixel);
    if (!bitmap)
        return false;
    if (bitsPerPixel == 8) { // a grey ramp palette makes the bitmap MINISBLACK
        RGBQUAD* palette = FreeImage_GetPalette(bitmap);
        for (int i = 0; i < 256; ++i)
            palette[i].rgbRed = palette[i].rgbGreen = palette[i].rgbBlue = static_cast<BYTE>(i);
    }
    Replace(bitmap);
    return true;
}

bool TezImage::CreateFromPixels(uint8_t const* pixels, int width, int height, int channels, size_t rowStride,
                                bool topRowFirst)
{
    if (!pixels || (channels != 1 && channels != 3 && channels != 4) ||
        rowStride < static_cast<size_t>(width) * static_cast<size_t>(channels) || !Create(width, height, channels * 8))
        return false;
    for (int row = 0; row < height; ++row) {
        uint8_t const* source = pixels + static_cast<size_t>(topRowFirst ? height - 1 - row : row) * rowStride;
        BYTE* line = FreeImage_GetScanLine(m_bitmap, row);
        if (channels == 1) {
            std::memcpy(line, source, static_cast<size_t>(width));
            continue;
        }
        for (int x = 0; x < width; ++x, source += channels, line += channels) {
            line[FI_RGBA_RED] = source[0];
            line[FI_RGBA_GREEN] = source[1];
            line[FI_RGBA_BLUE] = source[2];
            if (channels == 4)
                line[FI_RGBA_ALPHA] = source[3];
        }
    }
    return true;
}

bool TezImage::CreateGreyFromValues(float const* values, int width, int height, bool topRowFirst, bool floating)
{
    if (!values || width <= 0 || height <= 0)
        return false;
    EnsureFreeImage();
    FIBITMAP* bitmap = FreeImage_AllocateT(floating ? FIT_FLOAT : FIT_UINT16, width, height);
    if (!bitmap)
        return false;
    for (int row = 0; row < height; ++row) {
        float const* source = values + static_cast<size_t>(topRowFirst ? height - 1 - row : row) * size_t(width);
        BYTE* line = FreeImage_GetScanLine(bitmap, row);
        for (int x = 0; x < width; ++x) {
            float const v = std::isnan(source[x]) ? 0.0f : std::min(std::max(source[x], 0.0f), 1.0f);
            if (floating)
                reinterpret_cast<float*>(line)[x] = v;
            else
                reinterpret_cast<uint16_t*>(line)[x] = static_cast<uint16_t>(std::lround(v * 65535.0f));
        }
    }
    Replace(bitmap);
    return true;
}

bool TezImage::ReadPixels(uint8_t* pixels, int channels, size_t rowStride, bool topRowFirst) const
{
    if (!m_bitmap || !pixels || channels < 1 || channels > 4 || FreeImage_GetImageType(m_bitmap) != FIT_BITMAP)
        return false;
    int const bpp = GetBPP(), width = GetWidth(), height = GetHeight();
    if ((bpp != 8 && bpp != 24 && bpp != 32) || rowStride < static_cast<size_t>(width) * static_cast<size_t>(channels))
        return false;
    RGBQUAD const* palette = bpp == 8 ? FreeImage_GetPalette(m_bitmap) : nullptr;
    for (int row = 0; row < height; ++row) {
        BYTE const* line = FreeImage_GetScanLine(m_bitmap, row);
        uint8_t* out = pixels + static_cast<size_t>(topRowFirst ? height - 1 - row : row) * rowStride;
        for (int x = 0; x < width; ++x, out += channels) {
            uint8_t rgba[4];
            if (bpp == 8) {
                RGBQUAD const& entry = palette[line[x]];
                rgba[0] = entry.rgbRed;
                rgba[1] = entry.rgbGreen;
                rgba[2] = entry.rgbBlue;
                rgba[3] = 255;
            } else {
                BYTE const* p = line + x * (bpp / 8);
                rgba[0] = p[FI_RGBA_RED];
                rgba[1] = p[FI_RGBA_GREEN];
                rgba[2] = p[FI_RGBA_BLUE];
                rgba[3] = bpp == 32 ? p[FI_RGBA_ALPHA] : 255;
            }
            if (channels == 1)
                out[0] = rgba[0];
            else
                std::memcpy(out, rgba, static_cast<size_t>(channels));
        }
    }
    return true;
}

int TezImage::GetBPP() const { return m_bitmap ? static_cast<int>(FreeImage_GetBPP(m_bitmap)) : 0; }
int TezImage::GetColorType() const { return m_bitmap ? static_cast<int>(FreeImage_GetColorType(m_bitmap)) : 0; }
uint8_t* TezImage::GetData() const { return m_bitmap ? FreeImage_GetBits(m_bitmap) : nullptr; }
int TezImage::GetHeight() const { return m_bitmap ? static_cast<int>(FreeImage_GetHeight(m_bitmap)) : 0; }
unsigned TezImage::GetPitch() const { return m_bitmap ? FreeImage_GetPitch(m_bitmap) : 0; }
int TezImage::GetWidth() const { return m_bitmap ? static_cast<int>(FreeImage_GetWidth(m_bitmap)) : 0; }

uint8_t* TezImage::GetScanLine(int row) const { return m_bitmap ? FreeImage_GetScanLine(m_bitmap, row) : nullptr; }
