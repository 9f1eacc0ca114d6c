#pragma once
// TezImage: one owned FreeImage bitmap.
//
// Load detects the format from the file's contents, then from its name, and
// reads any format the library can read (PNG, TIFF with 8 or 16 bits in
// either byte order, BMP, JPEG ...). Save writes the format the name's
// extension names (.png, .jpg/.jpeg, .tif/.tiff, .bmp, .exr), converting
// what that format cannot hold (alpha for JPEG, integers for EXR), and PNG
// for any other name; 16-bit grey stays 16-bit in PNG and TIFF. Paths are single-byte text of at most 1024 bytes;
// longer ones are refused. Scan lines are in the library's order: row 0 is the bottom row of the picture, as FreeImage
// stores it; colour bitmaps hold their channels in the library's order (BGR(A) on little-endian machines), which
// CreateFromPixels and ReadPixels translate.
//
// Only regular files are read: directories, pipes and devices are refused
// before the library opens them. The image libraries' own messages (FreeImage's
// and those of the shared libtiff it loads, such as one line per unknown TIFF
// tag) go to the log at debug level, one line per file; taking them over
// replaces libtiff's handlers for the whole process.
//
// Not copyable; one bitmap per object, no shared state: distinct images may
// be used on distinct threads.

#include "platform/Api.h"

#include <cstddef>
#include <cstdint>

struct FIBITMAP;

class TEZ_API TezImage
{
public:
    // The library's colour type for grey images with black as zero.
    static constexpr int ColorTypeMinIsBlack = 1;
    static constexpr size_t MaxPathLength = 1024;

    TezImage() = default;
    ~TezImage();
    TezImage(TezImage const&) = delete;
    TezImage& operator=(TezImage const&) = delete;
    TezImage(TezImage&& other) noexcept;
    TezImage& operator=(TezImage&& other) noexcept;

    // Drops any old bitmap first. False for unknown or unreadable formats and
    // for bitmaps without pixels or with a zero size.
    bool Load(char const* path);
    // True when Load would find a readable format and a non-zero size. Reads
    // only the header where the format allows it, so a file whose pixel data
    // is damaged can pass and fail Load later.
    static bool IsReadable(char const* path);
    bool Save(char const* path) const;
    // True when the name's extension is one Save writes as that format.
    static bool IsSavableName(char const* path);
    // Bicubic rescale; the bitmap is kept when the library fails.
    bool Resize(int width, int height);
    // bits 8: 8-bit grey; anything else: 16-bit grey. Kept on failure.
    bool ConvertToGreyscale(int bits);

    // A zeroed bitmap of 8 (grey), 24 (RGB) or 32 (RGBA) bits per pixel.
    bool Create(int width, int height, int bitsPerPixel);
    // A bitmap from 8-bit pixels of 1 (grey), 3 (RGB) or 4 (RGBA) channels in
    // that order; rowStride in bytes; topRowFirst false for bottom-up data
    // such as a GL read-back.
    bool CreateFromPixels(uint8_t const* pixels, int width, int height, int channels, size_t rowStride,
                          bool topRowFirst);
    // A grey bitmap from values in 0 to 1 (clamped), rows as above: 32-bit
    // floats when floating (for EXR), else 16-bit integers scaled to 0 to
    // 65535 (for PNG and TIFF).
    bool CreateGreyFromValues(float const* values, int width, int height, bool topRowFirst, bool floating);
    // The reverse, for 8-bit grey, RGB and RGBA bitmaps; false for others.
    // A grey bitmap fills every colour channel; missing alpha reads 255.
    bool ReadPixels(uint8_t* pixels, int channels, size_t rowStride, bool topRowFirst) const;

    int GetBPP() const;
    int GetColorType() const;
    uint8_t* GetData() const;
    int GetHeight() const;
    unsigned GetPitch() const;
    uint8_t* GetScanLine(int row) const;
    int GetWidth() const;
    bool IsValid() const { return m_bitmap != nullptr; }

private:
    void Replace(FIBITMAP* bitmap);

    FIBITMAP* m_bitmap = nullptr;
};
