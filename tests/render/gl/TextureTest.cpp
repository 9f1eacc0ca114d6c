#include "tests/render/gl/GLTestContext.h"

#include "core/Logger.h"
#include "render/gl/FrameBuffer.h"
#include "render/gl/Texture.h"

#include <GL/glew.h>

#include <stdexcept>
#include <string>

namespace {

class TextureTest : public GLTest
{
protected:
    void TearDown() override
    {
        TezLogger::SetConsoleLevel(m_consoleLevel);
        GLTest::TearDown();
    }
    int m_consoleLevel = TezLogger::GetConsoleLevel();
};

TEST_F(TextureTest, BuildsOnTheTargetTheSizeAndHintChoose)
{
    struct Case
    {
        int width, height, depth;
        TezTexture::TypeHint hint;
        GLenum target;
    } const cases[] = {
        {8, 1, 1, TezTexture::TypeAuto, GL_TEXTURE_1D},          {8, 1, 1, TezTexture::Type2D, GL_TEXTURE_2D},
        {8, 4, 1, TezTexture::TypeAuto, GL_TEXTURE_2D},          {8, 4, 3, TezTexture::TypeAuto, GL_TEXTURE_3D},
        {8, 4, 3, TezTexture::Type2DArray, GL_TEXTURE_2D_ARRAY}, {8, 4, 1, TezTexture::Type3D, GL_TEXTURE_3D},
    };
    for (Case const& c : cases) {
        TezRef<TezTexture> texture =
            TezTexture::Create(TezTexture::PixelRGBA8, c.width, c.height, c.depth, c.hint, true);
        ASSERT_TRUE(texture->IsValid());
        EXPECT_EQ(c.target, texture->GetTarget()) << c.width << "x" << c.height << "x" << c.depth << " hint " << c.hint;
        texture->Bind();
        GLint width = 0;
        glGetTexLevelParameteriv(c.target, 0, GL_TEXTURE_WIDTH, &width);
        EXPECT_EQ(c.width, width);
        texture->Unbind();
    }
    EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
}

// Every format of the table makes storage without a GL error in a core
// context, the legacy alpha and luminance ones included.
TEST_F(TextureTest, EveryPixelFormatBuildsAndLoadsCleanly)
{
    TezLogger::SetConsoleLevel(TezLogger::Error);
    ::testing::internal::CaptureStdout();
    for (int format = TezTexture::PixelBGRA8; format <= TezTexture::PixelDepth32F; ++format) {
        TezRef<TezTexture> texture =
            TezTexture::Create(static_cast<TezTexture::PixelFormat>(format), 4, 4, 1, TezTexture::TypeAuto, true);
        std::vector<unsigned char> bytes(texture->GetByteSize(), 7);
        EXPECT_TRUE(texture->Load(bytes.data(), bytes.size())) << "format " << format;
    }
    std::string const console = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::string::npos, console.find("TezTexture error")) << console;
}

TEST_F(TextureTest, LoadedPixelsReadBackThroughAFrameBuffer)
{
    unsigned char const pixels[2 * 2 * 4] = {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 10, 20, 30, 40};
    TezRef<TezTexture> texture = TezTexture::Create(TezTexture::PixelRGBA8, 2, 2, 1, TezTexture::TypeAuto, false);
    ASSERT_TRUE(texture->Load(pixels, sizeof pixels));
    TezRef<TezFrameBuffer> buffer = TezFrameBuffer::Create();
    buffer->SetColorAttachment(0, texture);
    ASSERT_TRUE(buffer->Build());
    std::vector<unsigned char> back;
    ASSERT_TRUE(buffer->ReadPixels(0, back));
    EXPECT_EQ(std::vector<unsigned char>(pixels, pixels + sizeof pixels), back);

    // BGRA data lands with red and blue swapped into place.
    unsigned char const bgra[4] = {1, 2, 3, 4};
    TezRef<TezTexture> swapped = TezTexture::Create(TezTexture::PixelBGRA8, 1, 1, 1, TezTexture::Type2D, true);
    swapped->Load(bgra, sizeof bgra);
    buffer->SetColorAttachment(0, swapped);
    ASSERT_TRUE(buffer->ReadPixels(0, back));
    EXPECT_EQ((std::vector<unsigned char>{3, 2, 1, 4}), back);
}

TEST_F(TextureTest, ShortBufferIsRefusedAndResizeRebuilds)
{
    TezRef<TezTexture> texture = TezTexture::Create(TezTexture::PixelR16, 4, 4, 2, TezTexture::TypeAuto, true);
    EXPECT_EQ(2, texture->GetBytesPerPixel());
    std::vector<unsigned char> small(4 * 4 * 2 * 2 - 1);
    EXPECT_THROW(texture->Load(small.data(), small.size()), std::runtime_error);

    EXPECT_TRUE(texture->Resize(16, 1, 1));
    EXPECT_EQ(unsigned(GL_TEXTURE_1D), texture->GetTarget());
    EXPECT_TRUE(texture->IsValid());
    texture->Unbuild();
    EXPECT_FALSE(texture->IsValid());
    texture->Unbuild(); // twice is harmless
}

TEST_F(TextureTest, FrameBufferResizeOnlyWhenTheSizeDiffers)
{
    TezRef<TezFrameBuffer> buffer = TezFrameBuffer::Create(32, 16);
    EXPECT_FALSE(buffer->Resize(32, 16)); // not built: nothing to do
    ASSERT_TRUE(buffer->Build());
    unsigned const colour = buffer->GetColorAttachment(0)->GetName();
    unsigned const depth = buffer->GetDepthAttachment()->GetName();
    EXPECT_FALSE(buffer->Resize(32, 16));
    EXPECT_EQ(colour, buffer->GetColorAttachment(0)->GetName());
    EXPECT_EQ(depth, buffer->GetDepthAttachment()->GetName());

    EXPECT_TRUE(buffer->Resize(20, 10));
    EXPECT_EQ(20, buffer->GetWidth());
    EXPECT_EQ(10, buffer->GetDepthAttachment()->GetHeight());
    buffer->Bind();
    glViewport(0, 0, 20, 10);
    glClearColor(0.0f, 0.0f, 1.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 255, 255}), ReadPixel(19, 9));
    buffer->Unbind();
}

TEST_F(TextureTest, SecondColourAttachmentOnABuiltBufferAttachesAtOnce)
{
    TezRef<TezFrameBuffer> buffer = TezFrameBuffer::Create(8, 8);
    ASSERT_TRUE(buffer->Build());
    EXPECT_TRUE(buffer->SetColorAttachment(
        2, TezTexture::Create(TezTexture::PixelRGBA8, 8, 8, 1, TezTexture::TypeAuto, false)));
    EXPECT_EQ(3, buffer->GetNumColorAttachments());
    EXPECT_TRUE(buffer->GetColorAttachment(1).IsNull());
    buffer->Bind();
    glClearColor(1.0f, 1.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    buffer->Unbind();
    std::vector<unsigned char> pixels;
    ASSERT_TRUE(buffer->ReadPixels(2, pixels));
    EXPECT_EQ(255, pixels[0]);
    EXPECT_EQ(0, pixels[2]);

    // A mismatched attachment makes the buffer incomplete, and says so.
    TezLogger::SetConsoleLevel(TezLogger::Error);
    ::testing::internal::CaptureStdout();
    EXPECT_FALSE(buffer->SetColorAttachment(
        1, TezTexture::Create(TezTexture::PixelDepth32F, 8, 8, 1, TezTexture::TypeAuto, false)));
    EXPECT_NE(std::string::npos, ::testing::internal::GetCapturedStdout().find("Framebuffer status incomplete"));
}

} // namespace
