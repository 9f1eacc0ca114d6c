#include "render/objects/RgbaBitmap.h"

#include <stdexcept>
#include <string>

TEZ_DEFINE_REF_FUNCTIONS(TezRgbaBitmap)

TezRgbaBitmap::TezRgbaBitmap(int width, int height)
    : m_width(width), m_height(height), m_pixels(static_cast<size_t>(width) * static_cast<size_t>(height) * 4, 0)
{
}

TezRef<TezRgbaBitmap> TezRgbaBitmap::Create(int width, int height)
{
    if (width < 1 || height < 1)
        throw std::runtime_error("TezRgbaBitmap::Create: no picture of " + std::to_string(width) + "x" +
                                 std::to_string(height) + " pixels");
    return TezRef<TezRgbaBitmap>(new TezRgbaBitmap(width, height));
}

size_t TezRgbaBitmap::Offset(int x, int y) const
{
    if (x < 0 || y < 0 || x >= m_width || y >= m_height)
        throw std::out_of_range("TezRgbaBitmap: pixel (" + std::to_string(x) + ", " + std::to_string(y) +
                                ") is outside the picture");
    return (static_cast<size_t>(y) * static_cast<size_t>(m_width) + static_cast<size_t>(x)) * 4;
}

TezVector4<unsigned char> TezRgbaBitmap::GetPixel(int x, int y) const
{
    size_t const i = Offset(x, y);
    return TezVector4<unsigned char>(m_pixels[i], m_pixels[i + 1], m_pixels[i + 2], m_pixels[i + 3]);
}

void TezRgbaBitmap::SetPixel(int x, int y, TezVector4<unsigned char> const& rgba)
{
    size_t const i = Offset(x, y);
    for (int c = 0; c < 4; ++c)
        m_pixels[i + static_cast<size_t>(c)] = rgba[c];
    Changed();
}

void TezRgbaBitmap::Fill(TezVector4<unsigned char> const& rgba)
{
    for (size_t i = 0; i < m_pixels.size(); i += 4)
        for (int c = 0; c < 4; ++c)
            m_pixels[i + static_cast<size_t>(c)] = rgba[c];
    Changed();
}
