#pragma once
// GLViewTest: a GLTest with one off-screen render view of the application's
// manager, on black, seen through a perspective camera of 30 degrees with y
// up. TearDown drops the view's scene with its context bound and hands the
// view back before the application goes.

#include "tests/render/gl/GLTestContext.h"

#include "math/Vector.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/views/RenderView.h"

class GLViewTest : public GLTest
{
protected:
    // Call from SetUp, after GLTest::SetUp, where the test is not skipped.
    void MakeView(int width, int height, TezVector3<float> const& eye, TezVector3<float> const& focus, float near,
                  float far)
    {
        view = TezRenderViewManager::GetAppRenderViewManager()->CreateOffScreenCuda(width, height);
        ASSERT_TRUE(view);
        view->SetBackgroundColor({0, 0, 0, 1});
        TezRef<TezCameraView> camera = view->GetCamera();
        camera->UsePerspective(true);
        camera->SetEye(eye);
        camera->SetFocus(focus);
        camera->SetUp({0, 1, 0});
        camera->SetFov(30.0f);
        camera->SetNear(near);
        camera->SetFar(far);
    }

    void TearDown() override
    {
        if (view) {
            view->ActivateContext();
            view->SetScene(nullptr);
            view->DeactivateContext();
            TezRenderViewManager::GetAppRenderViewManager()->ReleaseRenderView(view);
        }
        view = nullptr;
        GLTest::TearDown();
    }

    TezRef<TezRenderView> view;
};
