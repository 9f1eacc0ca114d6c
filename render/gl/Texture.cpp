#include "render/gl/Texture.h"

#include "core/Logger.h"

#include <GL/glew.h>

#include <stdexcept>
#include <string>

TEZ_DEFINE_REF_FUNCTIONS(TezTexture)

namespace {

struct FormatRow
{
    GLenum internalFormat;
    GLenum dataFormat;
    GLenum dataType;
    int bytesPerPixel;
};

// Indexed by PixelFormat - 1.
FormatRow const kFormats[] = {
    {GL_RGBA, GL_BGRA, GL_UNSIGNED_BYTE, 4},
    {GL_RGBA, GL_RGBA, GL_UNSIGNED_BYTE, 4},
    {GL_RGB, GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 2},
    {GL_RGB, GL_RGB, GL_UNSIGNED_BYTE, 3},
    {GL_ALPHA, GL_ALPHA, GL_UNSIGNED_BYTE, 1},
    {GL_LUMINANCE, GL_LUMINANCE, GL_UNSIGNED_BYTE, 1},
    {GL_LUMINANCE_ALPHA, GL_LUMINANCE_ALPHA, GL_UNSIGNED_BYTE, 2},
    {GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1},
    {GL_R16, GL_RED, GL_UNSIGNED_SHORT, 2},
    {GL_R32F, GL_RED, GL_FLOAT, 4},
    {GL_DEPTH_COMPONENT, GL_DEPTH_COMPONENT, GL_FLOAT, 4},
};

void CheckStep(char const* step)
{
    GLenum const error = glGetError();
    if (error != GL_NO_ERROR)
        TezLogger::error("TezTexture error: %s - %d\n", step, static_cast<int>(error));
}

bool IsCoreContext()
{
    GLint mask = 0;
    glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &mask);
    glGetError();
    return (mask & GL_CONTEXT_CORE_PROFILE_BIT) != 0;
}

// The legacy single- and two-channel formats in a core context: red (and
// green) storage, read through a swizzle as alpha, luminance or
// luminance-alpha were.
bool CoreSubstitute(TezTexture::PixelFormat format, FormatRow& row, GLint swizzle[4])
{
    switch (format) {
    case TezTexture::PixelAlpha8:
        row = {GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1};
        swizzle[0] = GL_ZERO;
        swizzle[1] = GL_ZERO;
        swizzle[2] = GL_ZERO;
        swizzle[3] = GL_RED;
        return true;
    case TezTexture::PixelLuminance8:
        row = {GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1};
        swizzle[0] = GL_RED;
        swizzle[1] = GL_RED;
        swizzle[2] = GL_RED;
        swizzle[3] = GL_ONE;
        return true;
    case TezTexture::PixelLuminanceAlpha8:
        row = {GL_RG8, GL_RG, GL_UNSIGNED_BYTE, 2};
        swizzle[0] = GL_RED;
        swizzle[1] = GL_RED;
        swizzle[2] = GL_RED;
        swizzle[3] = GL_GREEN;
        return true;
    default:
        return false;
    }
}

char const* BindLabel(GLenum target)
{
    switch (target) {
    case GL_TEXTURE_1D:
        return "glBindTexture(GL_TEXTURE_1D)";
    case GL_TEXTURE_2D:
        return "glBindTexture(GL_TEXTURE_2D)";
    default:
        return "glBindTexture(GL_TEXTURE_3D)";
    }
}

} // namespace

TezTexture::TezTexture(PixelFormat format, int width, int height, int depth, TypeHint hint)
    : m_format(format), m_width(width), m_height(height), m_depth(depth), m_typeHint(hint)
{
    m_target = ChooseTarget(height, depth, hint);
}

TezTexture::~TezTexture() { Unbuild(); }

TezRef<TezTexture> TezTexture::Create(PixelFormat format, int width, int height, int depth, TypeHint hint,
                                      bool buildNow)
{
    TezRef<TezTexture> texture(new TezTexture(format, width, height, depth, hint));
    if (buildNow)
        texture->Build();
    return texture;
}

unsigned TezTexture::ChooseTarget(int height, int depth, TypeHint hint)
{
    if (depth != 1 || hint >= Type2DArray)
        return hint == Type2DArray ? GL_TEXTURE_2D_ARRAY : GL_TEXTURE_3D;
    if (height != 1 || hint > Type1D)
        return GL_TEXTURE_2D;
    return GL_TEXTURE_1D;
}

bool TezTexture::GetFormatInfo(PixelFormat format, unsigned& internalFormat, unsigned& dataFormat, unsigned& dataType,
                               int& bytesPerPixel)
{
    if (format < PixelBGRA8 || format > PixelDepth32F)
        return false;
    FormatRow const& row = kFormats[format - 1];
    internalFormat = row.internalFormat;
    dataFormat = row.dataFormat;
    dataType = row.dataType;
    bytesPerPixel = row.bytesPerPixel;
    return true;
}

int TezTexture::GetBytesPerPixel() const
{
    unsigned i, f, t;
    int bytes = 0;
    return GetFormatInfo(m_format, i, f, t, bytes) ? bytes : 0;
}

size_t TezTexture::GetByteSize() const
{
    if (m_width <= 0 || m_height <= 0 || m_depth <= 0)
        return 0;
    return static_cast<size_t>(m_width) * static_cast<size_t>(m_height) * static_cast<size_t>(m_depth) *
           static_cast<size_t>(GetBytesPerPixel());
}

bool TezTexture::Build()
{
    if (m_texture != 0)
        return true;
    return CreateTexture();
}

bool TezTexture::CreateTexture()
{
    if (m_format < PixelBGRA8 || m_format > PixelDepth32F) {
        TezLogger::error("TezTexture error: pixel format %d is not one of 1 to 11\n", static_cast<int>(m_format));
        return false;
    }
    glGetError();
    m_target = ChooseTarget(m_height, m_depth, m_typeHint);
    GLuint name = 0;
    glGenTextures(1, &name);
    if (name == 0) {
        TezLogger::error("Creating texture failed!\n");
        return false;
    }
    m_texture = name;
    glBindTexture(m_target, m_texture);
    CheckStep(BindLabel(m_target));
    glTexParameteri(m_target, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(m_target, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(m_target, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(m_target, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(m_target, GL_TEXTURE_WRAP_R, GL_CLAMP_TO_EDGE);
    bool const ok = Specify(nullptr, false);
    glBindTexture(m_target, 0);
    return ok;
}

// glTexImage of the right dimension with the format table's row; `load`
// picks the step labels of Load.
bool TezTexture::Specify(unsigned char const* data, bool load)
{
    FormatRow row = kFormats[m_format - 1];
    GLint swizzle[4];
    bool const substituted = IsCoreContext() && CoreSubstitute(m_format, row, swizzle);
    if (substituted)
        glTexParameteriv(m_target, GL_TEXTURE_SWIZZLE_RGBA, swizzle);
    GLenum error = GL_NO_ERROR;
    auto check = [&error](char const* step) {
        GLenum const e = glGetError();
        if (e != GL_NO_ERROR) {
            TezLogger::error("TezTexture error: %s - %d\n", step, static_cast<int>(e));
            error = e;
        }
    };
    switch (m_target) {
    case GL_TEXTURE_1D:
        glTexImage1D(m_target, 0, row.internalFormat, m_width, 0, row.dataFormat, row.dataType, data);
        check(load ? "glTexImage1D(Load)" : "glTexImage1D");
        break;
    case GL_TEXTURE_2D:
        glTexImage2D(m_target, 0, row.internalFormat, m_width, m_height, 0, row.dataFormat, row.dataType, data);
        check(load ? "glTexImage2D(Load)" : "glTexImage2D");
        break;
    default:
        glTexImage3D(m_target, 0, row.internalFormat, m_width, m_height, m_depth, 0, row.dataFormat, row.dataType,
                     data);
        check(load ? "glTexImage3D(Load)" : "glTexImage3D");
        break;
    }
    return error == GL_NO_ERROR;
}

void TezTexture::Unbuild()
{
    if (m_texture == 0)
        return;
    GLuint name = m_texture;
    glDeleteTextures(1, &name);
    m_texture = 0;
}

bool TezTexture::Load(unsigned char const* data)
{
    if (!Build())
        return false;
    glGetError();
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    CheckStep("glPixelStorei");
    glBindTexture(m_target, m_texture);
    CheckStep("glBindTexture(target)");
    bool const ok = Specify(data, true);
    glBindTexture(m_target, 0);
    return ok;
}

bool TezTexture::Load(unsigned char const* data, size_t size)
{
    if (data && size < GetByteSize())
        throw std::runtime_error("TezTexture::Load: " + std::to_string(size) + " bytes given for a texture of " +
                                 std::to_string(GetByteSize()));
    return Load(data);
}

bool TezTexture::Resize(int width, int height, int depth)
{
    m_width = width;
    m_height = height;
    m_depth = depth;
    if (m_texture == 0) {
        m_target = ChooseTarget(m_height, m_depth, m_typeHint);
        return true;
    }
    Unbuild();
    return Build();
}

void TezTexture::Bind() { glBindTexture(m_target, m_texture); }

void TezTexture::Unbind() { glBindTexture(m_target, 0); }

void TezTexture::BindSlot(int slot)
{
    glActiveTexture(GL_TEXTURE0 + slot);
    glBindTexture(m_target, m_texture);
}

void TezTexture::UnbindSlot(int slot)
{
    glActiveTexture(GL_TEXTURE0 + slot);
    glBindTexture(m_target, 0);
}
