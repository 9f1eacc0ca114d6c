#include "render/views/RenderView.h"

#include "render/CameraView.h"
#include "render/scene/Scene.h"

TEZ_DEFINE_REF_FUNCTIONS(TezRenderView)

TezRenderView::TezRenderView() : m_camera(TezCameraView::Create()) {}
TezRenderView::~TezRenderView() = default;
TezRef<TezCameraView> TezRenderView::GetCamera() { return m_camera; }
TezRef<TezScene> TezRenderView::GetScene() { return m_scene; }
void TezRenderView::SetScene(TezRef<TezScene> scene) { m_scene = scene; }
