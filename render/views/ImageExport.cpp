#include "render/views/ImageExport.h"

#include "core/Logger.h"

#include <FreeImage.h>

#include <stdexcept>
#include <string>

TezString TezImageExport::GetEncoderMimeType(TezString const& name)
{
    std::string const text = name.c_str();
    size_t const dot = text.rfind('.');
    TezString const extension(dot == std::string::npos ? "JPG" : text.c_str() + dot + 1);
    struct Entry
    {
        char const* extension;
        char const* mime;
    };
    static Entry const table[] = {{"BMP", "image/bmp"}, {"PNG", "image/png"},  {"EXIF", "image/exif"},
                                  {"EMF", "image/emf"}, {"TIF", "image/tiff"}, {"TIFF", "image/tiff"}};
    for (Entry const& entry : table)
        if (extension.CompareNoCase(TezString(entry.extension)) == 0)
            return TezString(entry.mime);
    return TezString("image/jpeg");
}

int TezImageExport::GetEncoderFormat(TezString const& mimeType)
{
    std::string const mime = mimeType.c_str();
    if (mime == "image/bmp")
        return FIF_BMP;
    if (mime == "image/png")
        return FIF_PNG;
    if (mime == "image/tiff")
        return FIF_TIFF;
    if (mime == "image/jpeg")
        return FIF_JPEG;
    return FIF_UNKNOWN;
}

bool TezImageExport::SaveBitmap(TezString const& name, unsigned char const* pixels, int width, int height, int stride)
{
    if (!pixels)
        throw std::runtime_error("TezImageExport::SaveBitmap: null pixels");
    if (width < 1 || height < 1 || stride < width * 3)
        throw std::runtime_error("TezImageExport::SaveBitmap: " + std::to_string(width) + "x" + std::to_string(height) +
                                 " pixels do not fit a stride of " + std::to_string(stride));
    int const format = GetEncoderFormat(GetEncoderMimeType(name));
    if (format == FIF_UNKNOWN)
        return false;
    // FreeImage keeps 24-bit pixels blue first on little-endian machines,
    // the order of the frame; top-down tells it that the first row is the
    // top one.
    FIBITMAP* bitmap = FreeImage_ConvertFromRawBits(const_cast<BYTE*>(pixels), width, height, stride, 24,
                                                    FI_RGBA_RED_MASK, FI_RGBA_GREEN_MASK, FI_RGBA_BLUE_MASK, TRUE);
    if (!bitmap)
        return false;
    bool const saved = FreeImage_Save(static_cast<FREE_IMAGE_FORMAT>(format), bitmap, name.c_str(), 0) != 0;
    FreeImage_Unload(bitmap);
    if (!saved)
        TezLogger::error("Unable to write the image %s\n", name.c_str());
    return saved;
}
