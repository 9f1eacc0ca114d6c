#include "render/objects/SceneBackground.h"

#include "render/effects/DefaultEffects.h"
#include "render/scene/SceneDrawData.h"
#include "volume/Color.h"

#include <GL/glew.h>

#include <algorithm>
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

TezRef<TezSceneBackground> TezSceneBackground::Create()
{
    return TezRef<TezSceneBackground>(new TezSceneBackground());
}

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

void TezSceneBackground::SetImageLevel(float level) { m_imageLevel = level; }

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
        TezVector3<float> const rgb = TezColor::HsvToRgb(
            TezVector3<float>(m_hue, m_saturation, std::clamp(value, 0.0f, 1.0f)));
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
    m_vertexArray.Release();
    m_vertices.Release();
    return true;
}

bool TezSceneBackground::DrawObject(TezSceneDrawData const&)
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
    TezGLVertexArray::Unbind();
    m_gradient->UnbindSlot(0);
    glDepthMask(depthWrite);
    if (depthTest)
        glEnable(GL_DEPTH_TEST);
    return true;
}
