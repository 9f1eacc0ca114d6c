#include "volume/Image.h"

#include <FreeImage.h>

#include <cstring>
#include <utility>

// The shared FreeImage library initialises itself when it is loaded; only a
// static build of it (FREEIMAGE_LIB) needs the explicit call, made once.
#if defined(FREEIMAGE_LIB)
#    include <mutex>
namespace {
void EnsureFreeImage()
{
    static std::once_flag once;
    std::call_once(once, [] { FreeImage_Initialise(FALSE); });
}
} // namespace
#else
namespace {
void EnsureFreeImage() {}
} // namespace
#endif

namespace {

bool PathFits(char const* path) { return path && std::strlen(path) <= TezImage::MaxPathLength; }

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
    if (!PathFits(path))
        return false;
    EnsureFreeImage();
    FREE_IMAGE_FORMAT format = FreeImage_GetFileType(path, 0);
    if (format == FIF_UNKNOWN)
        format = FreeImage_GetFIFFromFilename(path);
    if (format == FIF_UNKNOWN || !FreeImage_FIFSupportsReading(format))
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

bool TezImage::Save(char const* path) const
{
    if (!m_bitmap || !PathFits(path))
        return false;
    EnsureFreeImage();
    return FreeImage_Save(FIF_PNG, m_bitmap, path, 0) != 0;
}

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
