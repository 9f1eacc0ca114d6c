#include "render/objects/SceneText.h"

#include "render/CameraView.h"
#include "render/effects/ScreenEffects.h"
#include "render/objects/detail/ObjectGL.h"
#include "render/scene/SceneDrawData.h"

#include <GL/glew.h>

#include <cmath>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneText)
TEZ_TYPIFIED_IMPL(TezSceneText, "Text Scene Object")

TezSceneText::TezSceneText() : TezSceneObject(TezSceneTextEffect::StaticType()) {}

TezSceneText::~TezSceneText() = default;

TezRef<TezSceneText> TezSceneText::Create(TezString const& text, TezVector3<float> const& position)
{
    TezRef<TezSceneText> object(new TezSceneText());
    object->m_text = text;
    object->m_position = position;
    return object;
}

bool TezSceneText::DrawObject(TezSceneDrawData const& data)
{
    if (m_text.Length() == 0)
        return true;
    TezMatrix44<float> const world = GetWorldMatrix();
    float const scale = m_text3d.GetScale();
    TezRef<TezCameraView> camera = data.GetCamera();
    if (m_viewIndependent && !m_text3d.GetFlatLayout() && camera && camera->GetHeight() > 0) {
        // World size of one pixel at the position, from the projection's
        // vertical scale and the depth there.
        TezMatrix44<float> const projection = camera->GetProjectionMatrix();
        TezVector4<float> const clip =
            projection *
            (camera->GetViewMatrix() * (world * TezVector4<float>(m_position.x, m_position.y, m_position.z, 1.0f)));
        float const pixel = 2.0f * std::fabs(clip.w) / (std::fabs(projection[1].y) * camera->GetHeight());
        if (std::isfinite(pixel) && pixel > 0)
            m_text3d.SetScale(scale * pixel);
    }
    m_text3d.Print(data, world, m_text, m_position.x, m_position.y, m_position.z);
    m_text3d.SetScale(scale);
    return true;
}
