#include "render/objects/SceneGdiOverlay.h"

#include "render/CameraView.h"
#include "render/effects/DefaultEffects.h"
#include "render/objects/detail/ObjectGL.h"
#include "render/scene/SceneDrawData.h"

#include <cstring>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneGdiOverlay)
TEZ_TYPIFIED_IMPL(TezSceneGdiOverlay, "Gdi Overlay")

TezSceneGdiOverlay::TezSceneGdiOverlay() : TezSceneObject(TezGdiOverlayEffect::StaticType())
{
    SetProperty(NoBounds, true);
}

TezSceneGdiOverlay::~TezSceneGdiOverlay() = default;

TezRef<TezSceneGdiOverlay> TezSceneGdiOverlay::Create(TezRef<TezRgbaBitmap> bitmap)
{
    TezRef<TezSceneGdiOverlay> object(new TezSceneGdiOverlay());
    object->SetBitmap(bitmap);
    return object;
}

void TezSceneGdiOverlay::SetBitmap(TezRef<TezRgbaBitmap> bitmap)
{
    m_bitmap = bitmap;
    SetProperty(NeedsBuild, true);
}

void TezSceneGdiOverlay::LoadTexture()
{
    int const width = m_bitmap->GetWidth(), height = m_bitmap->GetHeight();
    if (!m_texture || m_texture->GetWidth() != width || m_texture->GetHeight() != height)
        m_texture = TezTexture::Create(TezTexture::PixelRGBA8, width, height, 1, TezTexture::Type2D, false);
    // The bitmap's rows run down from the top; GL's first row is the bottom.
    size_t const row = static_cast<size_t>(width) * 4;
    std::vector<unsigned char> flipped(row * static_cast<size_t>(height));
    for (int y = 0; y < height; ++y)
        std::memcpy(flipped.data() + row * static_cast<size_t>(height - 1 - y),
                    m_bitmap->GetPixels() + row * static_cast<size_t>(y), row);
    m_texture->Load(flipped.data(), flipped.size());
    m_loadedVersion = m_bitmap->GetVersion();
}

bool TezSceneGdiOverlay::BuildObject()
{
    // The unit square; the model matrix places it in device coordinates.
    m_quad.Upload({0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}, {3});
    m_texture = nullptr;
    if (m_bitmap)
        LoadTexture();
    return true;
}

bool TezSceneGdiOverlay::UnbuildObject()
{
    m_quad.Release();
    m_texture = nullptr;
    return true;
}

bool TezSceneGdiOverlay::DrawObject(TezSceneDrawData const& data)
{
    TezRef<TezCameraView> camera = data.GetCamera();
    if (!m_bitmap || !camera || camera->GetWidth() < 1 || camera->GetHeight() < 1)
        return true;
    if (m_bitmap->GetVersion() != m_loadedVersion)
        LoadTexture();
    float const viewWidth = static_cast<float>(camera->GetWidth());
    float const viewHeight = static_cast<float>(camera->GetHeight());
    float const width = static_cast<float>(m_size.x > 0 ? m_size.x : m_bitmap->GetWidth());
    float const height = static_cast<float>(m_size.y > 0 ? m_size.y : m_bitmap->GetHeight());
    // Pixels to device coordinates: x right from -1, y up from -1.
    float const left = 2.0f * static_cast<float>(m_position.x) / viewWidth - 1.0f;
    float const bottom = 1.0f - 2.0f * (static_cast<float>(m_position.y) + height) / viewHeight;
    TezMatrix44<float> const place =
        TezTranslationTransform<float>({left, bottom, 0.0f}) *
        TezAnisotropicTransform<float>({2.0f * width / viewWidth, 2.0f * height / viewHeight, 1.0f});
    GLuint const program = tez_objects::CurrentProgram();
    tez_objects::SetUniform(program, "modelMatrix", place);
    TezVector4<float> color = GetColor();
    if (!data.IsMapping())
        color.w = m_opacity;
    tez_objects::SetUniform(program, "objectColor", color);

    GLboolean const depthTest = glIsEnabled(GL_DEPTH_TEST);
    GLboolean const blend = glIsEnabled(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    if (!data.IsMapping()) {
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    }
    m_texture->BindSlot(0);
    m_quad.Draw(GL_TRIANGLE_STRIP);
    m_texture->UnbindSlot(0);
    if (!blend)
        glDisable(GL_BLEND);
    if (depthTest)
        glEnable(GL_DEPTH_TEST);
    return true;
}
