#pragma once
// TezTexture: one GL texture of a pixel format and a size, counted.
//
// The target follows from the size and the hint (ChooseTarget): a depth
// other than 1, or a hint of 2D array or 3D, gives GL_TEXTURE_2D_ARRAY (hint
// 3) or GL_TEXTURE_3D; else a height other than 1, or a hint above 1D, gives
// GL_TEXTURE_2D; else GL_TEXTURE_1D. Every texture samples GL_NEAREST and
// clamps to the edge on all three axes.
//
// Build, Unbuild, Load, Resize, Bind and the slot calls need the context
// current; Create with buildNow false and the accessors do not. GL errors of
// each step are read and logged as "TezTexture error: <step> - <code>", and
// never thrown: a texture that failed to build answers IsValid() false.
// Formats 5 to 7 (alpha, luminance, luminance-alpha) have no storage of
// their own in a core context; there they are stored as GL_R8 or GL_RG8
// with a swizzle that reads back as the old formats did.
// The destructor deletes the GL name if one was made, so the last reference
// must go while the context (or one sharing with it) is current, or after
// the context is gone, never while another unrelated context is bound.

#include "core/RefCounter.h"

#include <cstddef>

TEZ_DECLARE_REF_FUNCTIONS(TezTexture)

class TEZ_API TezTexture : public TezRefCounter
{
public:
    enum PixelFormat {
        PixelBGRA8 = 1,
        PixelRGBA8 = 2,
        PixelRGB565 = 3,
        PixelRGB8 = 4,
        PixelAlpha8 = 5,
        PixelLuminance8 = 6,
        PixelLuminanceAlpha8 = 7,
        PixelR8 = 8,
        PixelR16 = 9,
        PixelR32F = 10,
        PixelDepth32F = 11,
    };
    enum TypeHint { TypeAuto = 0, Type1D = 1, Type2D = 2, Type2DArray = 3, Type3D = 4 };

    static TezRef<TezTexture> Create(PixelFormat format, int width, int height, int depth, TypeHint hint,
                                     bool buildNow);
    ~TezTexture() override;
    TezTexture(TezTexture const&) = delete;
    TezTexture& operator=(TezTexture const&) = delete;

    void Bind();
    void Unbind();
    // Binds to texture unit `slot` and leaves that unit active.
    void BindSlot(int slot);
    void UnbindSlot(int slot);
    // Makes the GL texture with undefined contents; true if it exists after.
    bool Build();
    void Unbuild();
    bool IsValid() const { return m_texture != 0; }
    // Re-specifies the storage from `data`, which must hold
    // width x height x depth x GetBytesPerPixel() bytes (null: undefined
    // contents). Builds first where needed.
    bool Load(unsigned char const* data);
    // As Load, refusing with std::runtime_error a buffer shorter than the
    // texture instead of reading past it.
    bool Load(unsigned char const* data, size_t size);
    // New size; a built texture is made anew (its contents are lost).
    bool Resize(int width, int height, int depth);
    int GetBytesPerPixel() const;
    size_t GetByteSize() const;

    unsigned GetName() const { return m_texture; }
    unsigned GetTarget() const { return m_target; }
    PixelFormat GetFormat() const { return m_format; }
    int GetWidth() const { return m_width; }
    int GetHeight() const { return m_height; }
    int GetDepth() const { return m_depth; }
    TypeHint GetTypeHint() const { return m_typeHint; }

    // The target rule above, as a GL enum value; needs no context.
    static unsigned ChooseTarget(int height, int depth, TypeHint hint);
    // The pixel-format table: internal format, data format, data type, bytes
    // per pixel; false for a value outside 1 to 11.
    static bool GetFormatInfo(PixelFormat format, unsigned& internalFormat, unsigned& dataFormat, unsigned& dataType,
                              int& bytesPerPixel);

private:
    TezTexture(PixelFormat format, int width, int height, int depth, TypeHint hint);
    bool CreateTexture();
    bool Specify(unsigned char const* data, bool load);

    unsigned m_texture = 0;
    unsigned m_target = 0;
    PixelFormat m_format;
    int m_width;
    int m_height;
    int m_depth;
    TypeHint m_typeHint;
};
