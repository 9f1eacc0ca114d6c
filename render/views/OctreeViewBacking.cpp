#include "render/views/OctreeViewBacking.h"

#include <GL/glew.h>

#include <stdexcept>
#include <string>

namespace {

class TezHostOctreeViewBacking final : public TezOctreeViewBacking
{
public:
    bool IsOnDevice() const override { return false; }

    void Allocate(int width, int height, int layers) override
    {
        if (width < 1 || height < 1 || layers < 0)
            throw std::runtime_error("TezOctreeViewBacking::Allocate: bad size " + std::to_string(width) + " x " +
                                     std::to_string(height) + " with " + std::to_string(layers) + " layers");
        m_buffers.reset();
        m_buffers.reset(new TezOctreeRenderBuffers(width, height, layers, false));
        TezClearOctreeDepth(GetTarget(), 0x00);
        TezClearOctreeImage(GetTarget(), 0x00);
    }

    void Release() override { m_buffers.reset(); }

    const TezOctreeRenderTarget& GetTarget() const override { return m_buffers ? m_buffers->GetTarget() : m_empty; }

    bool Upload(unsigned imageTexture, unsigned depthTexture) override
    {
        const TezOctreeRenderTarget& t = GetTarget();
        if (!t.image || !t.depth)
            return false;
        // Rows are pitched; GL reads them in place with the row length set.
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(t.imagePitch / 4));
        glBindTexture(GL_TEXTURE_2D, imageTexture);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, t.width, t.height, GL_RGBA_INTEGER, GL_UNSIGNED_BYTE, t.image);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(t.depthPitch / 4));
        glBindTexture(GL_TEXTURE_2D, depthTexture);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, t.width, t.height, GL_RED_INTEGER, GL_UNSIGNED_INT, t.depth);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        glBindTexture(GL_TEXTURE_2D, 0);
        return glGetError() == GL_NO_ERROR;
    }

private:
    std::unique_ptr<TezOctreeRenderBuffers> m_buffers;
    TezOctreeRenderTarget m_empty;
};

} // namespace

std::unique_ptr<TezOctreeViewBacking> TezCreateHostOctreeViewBacking()
{
    return std::unique_ptr<TezOctreeViewBacking>(new TezHostOctreeViewBacking());
}

std::unique_ptr<TezOctreeViewBacking> TezCreateOctreeViewBacking()
{
    std::unique_ptr<TezOctreeViewBacking> device = TezCreateCudaOctreeViewBacking();
    return device ? std::move(device) : TezCreateHostOctreeViewBacking();
}
