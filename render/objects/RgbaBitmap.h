#pragma once
// TezRgbaBitmap: a picture of 8-bit red, green, blue and alpha bytes that the
// host fills and scene objects show (the overlay bitmap, the background
// picture). Rows run from the top of the picture down, four bytes a pixel,
// no padding. Counted, so that objects share it with the host; after
// changing the pixels the host calls Changed(), and the objects showing the
// bitmap load it again at their next draw. Needs no GL context. Not thread
// safe: change it while nothing paints.

#include "core/RefCounter.h"
#include "math/Vector.h"

#include <cstdint>
#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezRgbaBitmap)

class TEZ_API TezRgbaBitmap : public TezRefCounter
{
public:
    // Transparent black; sizes below 1 are refused with std::runtime_error.
    static TezRef<TezRgbaBitmap> Create(int width, int height);

    int GetWidth() const { return m_width; }
    int GetHeight() const { return m_height; }
    unsigned char* GetPixels() { return m_pixels.data(); }
    unsigned char const* GetPixels() const { return m_pixels.data(); }
    // Pixel (x, y), y counting down from the top; out of range: refused
    // with std::out_of_range.
    TezVector4<unsigned char> GetPixel(int x, int y) const;
    void SetPixel(int x, int y, TezVector4<unsigned char> const& rgba);
    void Fill(TezVector4<unsigned char> const& rgba);

    // Marks the pixels as changed; Fill and SetPixel do so themselves.
    void Changed() { ++m_version; }
    uint64_t GetVersion() const { return m_version; }

private:
    TezRgbaBitmap(int width, int height);
    size_t Offset(int x, int y) const;

    int m_width;
    int m_height;
    std::vector<unsigned char> m_pixels;
    uint64_t m_version = 1;
};
