#pragma once
// TezFrameBuffer: a GL frame buffer object over counted textures, counted.
//
// Build makes the GL object, builds and attaches the depth texture and each
// colour texture (colour i at GL_COLOR_ATTACHMENT0 + i), and tests
// completeness: an incomplete one logs "Framebuffer status incomplete" and
// answers false. SetColorAttachment on a built buffer attaches at once.
// Resize does nothing unless the buffer is built and some attachment differs
// from the new size; otherwise it unbuilds, resizes every attachment to
// width x height x 1 and builds again.
//
// Everything but Create and the accessors needs the context current. Bind
// draws into all colour attachments; Unbind returns to frame buffer 0 (the
// window's surface). ReadPixels is the read-back of the headless path.

#include "core/RefCounter.h"
#include "render/gl/Texture.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezFrameBuffer)

class TEZ_API TezFrameBuffer : public TezRefCounter
{
public:
    static TezRef<TezFrameBuffer> Create();
    // The usual one: an RGBA colour texture and a float depth texture of the
    // given size, not yet built.
    static TezRef<TezFrameBuffer> Create(int width, int height);
    ~TezFrameBuffer() override;
    TezFrameBuffer(TezFrameBuffer const&) = delete;
    TezFrameBuffer& operator=(TezFrameBuffer const&) = delete;

    void Bind();
    void Unbind();
    bool Build();
    void Unbuild();
    bool IsValid() const { return m_framebuffer != 0; }
    // True when it rebuilt, false when there was nothing to do or the
    // rebuild failed.
    bool Resize(int width, int height);
    bool SetColorAttachment(int index, TezRef<TezTexture> texture);
    TezRef<TezTexture> GetColorAttachment(int index) const;
    int GetNumColorAttachments() const { return static_cast<int>(m_colorAttachments.size()); }
    bool SetDepthAttachment(TezRef<TezTexture> texture);
    TezRef<TezTexture> GetDepthAttachment() const { return m_depthAttachment; }

    // Size of the first attachment there is; 0 x 0 for none.
    int GetWidth() const;
    int GetHeight() const;
    unsigned GetName() const { return m_framebuffer; }

    // RGBA bytes of colour attachment `index`, bottom row first as GL keeps
    // them; false when the buffer is not built or has no such attachment.
    bool ReadPixels(int index, std::vector<unsigned char>& rgba);
    // Depth values of the depth attachment in 0..1, bottom row first.
    bool ReadDepth(std::vector<float>& depth);

private:
    TezFrameBuffer() = default;
    bool CheckStatus();
    TezRef<TezTexture> FirstAttachment() const;

    unsigned m_framebuffer = 0;
    std::vector<TezRef<TezTexture>> m_colorAttachments;
    TezRef<TezTexture> m_depthAttachment;
};
