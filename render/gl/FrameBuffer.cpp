#include "render/gl/FrameBuffer.h"

#include "core/Logger.h"

#include <GL/glew.h>

TEZ_DEFINE_REF_FUNCTIONS(TezFrameBuffer)

TezRef<TezFrameBuffer> TezFrameBuffer::Create() { return TezRef<TezFrameBuffer>(new TezFrameBuffer()); }

TezRef<TezFrameBuffer> TezFrameBuffer::Create(int width, int height)
{
    TezRef<TezFrameBuffer> buffer = Create();
    buffer->SetColorAttachment(0,
                               TezTexture::Create(TezTexture::PixelRGBA8, width, height, 1, TezTexture::Type2D, false));
    buffer->SetDepthAttachment(
        TezTexture::Create(TezTexture::PixelDepth32F, width, height, 1, TezTexture::Type2D, false));
    return buffer;
}

TezFrameBuffer::~TezFrameBuffer() { Unbuild(); }

bool TezFrameBuffer::CheckStatus()
{
    GLenum const status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    if (status != GL_FRAMEBUFFER_COMPLETE) {
        TezLogger::error("Framebuffer status incomplete\n");
        return false;
    }
    return true;
}

bool TezFrameBuffer::Build()
{
    if (m_framebuffer != 0)
        return true;
    GLuint name = 0;
    glGenFramebuffers(1, &name);
    if (name == 0) {
        TezLogger::error("Creating frame buffer failed!\n");
        return false;
    }
    m_framebuffer = name;
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    if (m_depthAttachment && m_depthAttachment->Build())
        glFramebufferTexture(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, m_depthAttachment->GetName(), 0);
    for (size_t i = 0; i < m_colorAttachments.size(); ++i)
        if (m_colorAttachments[i] && m_colorAttachments[i]->Build())
            glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0 + static_cast<GLenum>(i),
                                 m_colorAttachments[i]->GetName(), 0);
    bool const complete = CheckStatus();
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    return complete;
}

void TezFrameBuffer::Unbuild()
{
    if (m_framebuffer == 0)
        return;
    GLuint name = m_framebuffer;
    glDeleteFramebuffers(1, &name);
    m_framebuffer = 0;
}

void TezFrameBuffer::Bind()
{
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    std::vector<GLenum> buffers;
    for (size_t i = 0; i < m_colorAttachments.size(); ++i)
        buffers.push_back(m_colorAttachments[i] ? GL_COLOR_ATTACHMENT0 + static_cast<GLenum>(i) : GL_NONE);
    if (buffers.empty())
        buffers.push_back(GL_NONE);
    glDrawBuffers(static_cast<GLsizei>(buffers.size()), buffers.data());
}

void TezFrameBuffer::Unbind() { glBindFramebuffer(GL_FRAMEBUFFER, 0); }

TezRef<TezTexture> TezFrameBuffer::FirstAttachment() const
{
    for (TezRef<TezTexture> const& texture : m_colorAttachments)
        if (texture)
            return texture;
    return m_depthAttachment;
}

int TezFrameBuffer::GetWidth() const
{
    TezRef<TezTexture> texture = FirstAttachment();
    return texture ? texture->GetWidth() : 0;
}

int TezFrameBuffer::GetHeight() const
{
    TezRef<TezTexture> texture = FirstAttachment();
    return texture ? texture->GetHeight() : 0;
}

bool TezFrameBuffer::Resize(int width, int height)
{
    if (m_framebuffer == 0)
        return false;
    bool differs = false;
    auto test = [&](TezRef<TezTexture> const& texture) {
        if (texture && (texture->GetWidth() != width || texture->GetHeight() != height || texture->GetDepth() != 1))
            differs = true;
    };
    test(m_depthAttachment);
    for (TezRef<TezTexture> const& texture : m_colorAttachments)
        test(texture);
    if (!differs)
        return false;
    Unbuild();
    if (m_depthAttachment)
        m_depthAttachment->Resize(width, height, 1);
    for (TezRef<TezTexture> const& texture : m_colorAttachments)
        if (texture)
            texture->Resize(width, height, 1);
    return Build();
}

bool TezFrameBuffer::SetColorAttachment(int index, TezRef<TezTexture> texture)
{
    if (index < 0)
        return false;
    if (static_cast<size_t>(index) >= m_colorAttachments.size())
        m_colorAttachments.resize(static_cast<size_t>(index) + 1);
    m_colorAttachments[static_cast<size_t>(index)] = texture;
    if (m_framebuffer == 0)
        return true;
    GLint previous = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &previous);
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    GLuint const name = texture && texture->Build() ? texture->GetName() : 0;
    glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0 + static_cast<GLenum>(index), name, 0);
    bool const complete = CheckStatus();
    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(previous));
    return complete;
}

TezRef<TezTexture> TezFrameBuffer::GetColorAttachment(int index) const
{
    if (index < 0 || static_cast<size_t>(index) >= m_colorAttachments.size())
        return nullptr;
    return m_colorAttachments[static_cast<size_t>(index)];
}

bool TezFrameBuffer::SetDepthAttachment(TezRef<TezTexture> texture)
{
    m_depthAttachment = texture;
    if (m_framebuffer == 0)
        return true;
    GLint previous = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &previous);
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    GLuint const name = texture && texture->Build() ? texture->GetName() : 0;
    glFramebufferTexture(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, name, 0);
    bool const complete = CheckStatus();
    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(previous));
    return complete;
}

bool TezFrameBuffer::ReadPixels(int index, std::vector<unsigned char>& rgba)
{
    TezRef<TezTexture> texture = GetColorAttachment(index);
    if (m_framebuffer == 0 || !texture)
        return false;
    int const width = texture->GetWidth(), height = texture->GetHeight();
    rgba.assign(static_cast<size_t>(width) * static_cast<size_t>(height) * 4, 0);
    GLint previous = 0;
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &previous);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, m_framebuffer);
    glReadBuffer(GL_COLOR_ATTACHMENT0 + static_cast<GLenum>(index));
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
    glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(previous));
    return glGetError() == GL_NO_ERROR;
}

bool TezFrameBuffer::ReadDepth(std::vector<float>& depth)
{
    if (m_framebuffer == 0 || !m_depthAttachment)
        return false;
    int const width = m_depthAttachment->GetWidth(), height = m_depthAttachment->GetHeight();
    depth.assign(static_cast<size_t>(width) * static_cast<size_t>(height), 0.0f);
    GLint previous = 0;
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &previous);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, m_framebuffer);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width, height, GL_DEPTH_COMPONENT, GL_FLOAT, depth.data());
    glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(previous));
    return glGetError() == GL_NO_ERROR;
}
