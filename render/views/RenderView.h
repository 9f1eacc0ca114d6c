#pragma once
// TezRenderView: one view of a scene: its camera and the scene it shows.
//
// This is the part of a view that drawing needs today (draw data names the
// view it draws for, and the effects take the view's camera). Windows,
// painting, mapping, picking and the render thread build on it.

#include "core/RefCounter.h"

TEZ_DECLARE_REF_FUNCTIONS(TezRenderView)
TEZ_DECLARE_REF_FUNCTIONS(TezCameraView)
TEZ_DECLARE_REF_FUNCTIONS(TezScene)

class TEZ_API TezRenderView : public TezRefCounter
{
public:
    ~TezRenderView() override;
    virtual TezRef<TezCameraView> GetCamera();
    virtual TezRef<TezScene> GetScene();
    virtual void SetScene(TezRef<TezScene> scene);

protected:
    // Makes the view's own camera.
    TezRenderView();

private:
    TezRef<TezCameraView> m_camera;
    TezRef<TezScene> m_scene;
};
