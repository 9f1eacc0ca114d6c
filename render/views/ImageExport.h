#pragma once
// TezImageExport: writes a frame to an image file through FreeImage, the
// format chosen by the name's extension.
//
// The extension is the text after the name's last "." ("JPG" when there is
// none), compared without regard to case: "BMP" gives "image/bmp", "PNG"
// "image/png", "EXIF" "image/exif", "EMF" "image/emf", "TIF" and "TIFF"
// "image/tiff", "JPG" and anything else "image/jpeg". FreeImage has no
// writer for EXIF and EMF: for those nothing is written, as when an encoder
// is missing. Needs no GL context.

#include "core/String.h"

class TEZ_API TezImageExport
{
public:
    // The MIME type of the encoder for the name, by the table above.
    static TezString GetEncoderMimeType(TezString const& name);
    // The FreeImage format of a MIME type; -1 (FIF_UNKNOWN) where FreeImage
    // has no writer for it.
    static int GetEncoderFormat(TezString const& mimeType);
    // Writes `height` rows of `width` blue-green-red pixels, the top row
    // first, `stride` bytes apart. False when nothing was written (no
    // writer, or the write failed); refuses a null buffer or a stride below
    // three bytes a pixel with std::runtime_error.
    static bool SaveBitmap(TezString const& name, unsigned char const* pixels, int width, int height, int stride);
};
