#include "render/objects/SceneBackground.h"

#include "render/CameraView.h"
#include "render/effects/DefaultEffects.h"
#include "render/objects/detail/ObjectGL.h"
#include "render/scene/SceneDrawData.h"
#include "volume/Color.h"

#include <GL/glew.h>

#include <algorithm>
#include <cstring>
#include <vector>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneBackground)
TEZ_TYPIFIED_IMPL(TezSceneBackground, "Background Image")

namespace {
constexpr int kGradientRows = 256;
}

TezSceneBackground::TezSceneBackground() : TezSceneObject(TezBackgroundEffect::StaticType())
{
    // The effect tints the gradient with the object colour: keep it white.
    SetColor(TezVector4<float>(1.0f, 1.0f, 1.0f, 1.0f));
    SetProperty(NoBounds, true);
}

TezSceneBackground::~TezSceneBackground() = default;

TezRef<TezSceneBackground> TezSceneBackground::Create() { return TezRef<TezSceneBackground>(new TezSceneBackground()); }

void TezSceneBackground::SetHue(float hue)
{
    m_hue = hue;
    SetProperty(NeedsBuild, true);
}

void TezSceneBackground::SetSaturation(float saturation)
{
    m_saturation = saturation;
    SetProperty(NeedsBuild, true);
}

void TezSceneBackground::SetValue(float value)
{
    m_value = value;
    SetProperty(NeedsBuild, true);
}

void TezSceneBackground::SetGradientSize(float size)
{
    m_gradientSize = size;
    SetProperty(NeedsBuild, true);
}

void TezSceneBackground::SetImage(TezRef<TezRgbaBitmap> image)
{
    m_image = image;
    SetProperty(NeedsBuild, true);
}

void TezSceneBackground::SetImageLevel(float level) { m_imageLevel = level; }

void TezSceneBackground::LoadImage()
{
    int const width = m_image->GetWidth(), height = m_image->GetHeight();
    if (!m_imageTexture || m_imageTexture->GetWidth() != width || m_imageTexture->GetHeight() != height)
        m_imageTexture = TezTexture::Create(TezTexture::PixelRGBA8, width, height, 1, TezTexture::Type2D, false);
    // The bitmap's rows run down from the top; GL's first row is the bottom.
    size_t const row = static_cast<size_t>(width) * 4;
    std::vector<unsigned char> flipped(row * static_cast<size_t>(height));
    for (int y = 0; y < height; ++y)
        std::memcpy(flipped.data() + row * static_cast<size_t>(height - 1 - y),
                    m_image->GetPixels() + row * static_cast<size_t>(y), row);
    m_imageTexture->Load(flipped.data(), flipped.size());
    m_imageTexture->Bind();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    m_imageTexture->Unbind();
    m_imageVersion = m_image->GetVersion();
}

void TezSceneBackground::SetImageSize(int width, int height)
{
    m_imageWidth = width;
    m_imageHeight = height;
}

void TezSceneBackground::SetViewport(int x, int y, int width, int height)
{
    m_viewport[0] = x;
    m_viewport[1] = y;
    m_viewport[2] = width;
    m_viewport[3] = height;
}

bool TezSceneBackground::BuildObject()
{
    // One column of the gradient, bottom row first as GL counts rows.
    std::vector<unsigned char> pixels(kGradientRows * 4);
    for (int row = 0; row < kGradientRows; ++row) {
        float const t = static_cast<float>(row) / (kGradientRows - 1);
        float const value = m_value * (1.0f - m_gradientSize * (1.0f - t));
        TezVector3<float> const rgb =
            TezColor::HsvToRgb(TezVector3<float>(m_hue, m_saturation, std::clamp(value, 0.0f, 1.0f)));
        for (int c = 0; c < 3; ++c)
            pixels[row * 4 + c] = static_cast<unsigned char>(std::clamp(rgb[c], 0.0f, 1.0f) * 255.0f + 0.5f);
        pixels[row * 4 + 3] = 255;
    }
    m_gradient = TezTexture::Create(TezTexture::PixelRGBA8, 1, kGradientRows, 1, TezTexture::Type2D, false);
    m_gradient->Load(pixels.data(), pixels.size());
    m_gradient->Bind();
    // Smooth between the rows: the gradient must not band.
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    m_gradient->Unbind();

    float const quad[] = {-1, -1, 0, 1, -1, 0, -1, 1, 0, 1, 1, 0};
    m_imageTexture = nullptr;
    if (m_image)
        LoadImage();
    m_vertexArray.Bind();
    m_vertices.Upload(GL_ARRAY_BUFFER, sizeof quad, quad);
    TezGLVertexArray::SetFloatAttribute(0, 3, 3 * sizeof(float), 0);
    TezGLVertexArray::Unbind();
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    return true;
}

bool TezSceneBackground::UnbuildObject()
{
    m_gradient = nullptr;
    m_imageTexture = nullptr;
    m_vertexArray.Release();
    m_vertices.Release();
    return true;
}

void TezSceneBackground::DrawImage(TezSceneDrawData const& data)
{
    if (m_image->GetVersion() != m_imageVersion)
        LoadImage();
    TezRef<TezCameraView> camera = data.GetCamera();
    float viewWidth = static_cast<float>(m_viewport[2]), viewHeight = static_cast<float>(m_viewport[3]);
    if ((viewWidth <= 0.0f || viewHeight <= 0.0f) && camera) {
        viewWidth = static_cast<float>(camera->GetWidth());
        viewHeight = static_cast<float>(camera->GetHeight());
    }
    float const imageWidth = static_cast<float>(m_imageWidth > 0 ? m_imageWidth : m_image->GetWidth());
    float const imageHeight = static_cast<float>(m_imageHeight > 0 ? m_imageHeight : m_image->GetHeight());
    if (viewWidth <= 0.0f || viewHeight <= 0.0f || imageWidth <= 0.0f || imageHeight <= 0.0f)
        return;
    // The largest size with the picture's proportions that fits the view,
    // as a share of the view's half extents (the quad spans -1..1).
    float const fit = std::min(viewWidth / imageWidth, viewHeight / imageHeight);
    TezMatrix44<float> const place =
        TezAnisotropicTransform<float>({imageWidth * fit / viewWidth, imageHeight * fit / viewHeight, 1.0f});
    GLuint const program = tez_objects::CurrentProgram();
    TezVector4<float> const tint = GetColor();
    tez_objects::SetUniform(program, "modelMatrix", place);
    tez_objects::SetUniform(program, "objectColor",
                            TezVector4<float>(tint.x, tint.y, tint.z, std::clamp(m_imageLevel, 0.0f, 1.0f)));
    GLboolean const blend = glIsEnabled(GL_BLEND);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    m_imageTexture->BindSlot(0);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    m_imageTexture->UnbindSlot(0);
    if (!blend)
        glDisable(GL_BLEND);
    // The world matrix and colour the scene gave stand for the next draw.
    tez_objects::SetUniform(program, "modelMatrix", GetWorldMatrix());
    tez_objects::SetUniform(program, "objectColor", tint);
}

bool TezSceneBackground::DrawObject(TezSceneDrawData const& data)
{
    if (!m_gradient || !m_vertexArray)
        return false;
    GLboolean const depthTest = glIsEnabled(GL_DEPTH_TEST);
    GLboolean depthWrite = GL_TRUE;
    glGetBooleanv(GL_DEPTH_WRITEMASK, &depthWrite);
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    m_gradient->BindSlot(0);
    m_vertexArray.Bind();
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    m_gradient->UnbindSlot(0);
    if (m_image && m_imageLevel > 0.0f)
        DrawImage(data);
    TezGLVertexArray::Unbind();
    glDepthMask(depthWrite);
    if (depthTest)
        glEnable(GL_DEPTH_TEST);
    return true;
}
