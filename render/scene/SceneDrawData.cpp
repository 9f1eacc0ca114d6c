#include "render/scene/SceneDrawData.h"

#include "render/CameraView.h"
#include "render/effects/Effect.h"
#include "render/scene/Light.h"
#include "render/views/RenderView.h"

TezSceneDrawData::TezSceneDrawData() = default;
TezSceneDrawData::TezSceneDrawData(TezSceneDrawData const& other) = default;
TezSceneDrawData& TezSceneDrawData::operator=(TezSceneDrawData const& other) = default;
TezSceneDrawData::~TezSceneDrawData() = default;

void TezSceneDrawData::SetEffect(TezRef<TezEffect> effect) { m_effect = effect; }
TezRef<TezEffect> TezSceneDrawData::GetEffect() const { return m_effect; }
void TezSceneDrawData::SetRenderView(TezRef<TezRenderView> view) { m_renderView = view; }
TezRef<TezRenderView> TezSceneDrawData::GetRenderView() const { return m_renderView; }
void TezSceneDrawData::SetCamera(TezRef<TezCameraView> camera) { m_camera = camera; }
void TezSceneDrawData::SetLight(TezRef<TezLight> light) { m_light = light; }
TezRef<TezLight> TezSceneDrawData::GetLight() const { return m_light; }

TezRef<TezCameraView> TezSceneDrawData::GetCamera() const
{
    if (m_camera)
        return m_camera;
    return m_renderView ? m_renderView->GetCamera() : nullptr;
}
