#include "BenchGL.h"

#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/gl/OpenGLSupport.h"

#include <GL/glew.h>

TezBenchGL TezMakeBenchGL(int width, int height)
{
    TezBenchGL gl;
    gl.window = TezGLPlatform::CreateOffscreenWindow(width, height);
    int const code = TezOpenGLSupport::TezInitializeGLRC(gl.window, gl.context);
    if (code != TezOpenGLSupport::Success) {
        gl.reason = TezOpenGLSupport::TezErrorString(code).c_str();
        return gl;
    }
    gl.dc = TezGLPlatform::GetDC(gl.window);
    gl.ok = TezGLPlatform::MakeCurrent(gl.dc, gl.context) && TezOpenGLSupport::LoadEntryPoints();
    if (!gl.ok)
        gl.reason = "the GL context cannot be bound";
    return gl;
}

TezBenchGL& TezBenchContext(int width, int height)
{
    static TezBenchGL context = TezMakeBenchGL(width, height);
    if (context.ok)
        TezGLPlatform::MakeCurrent(context.dc, context.context);
    return context;
}

TezBenchFrame::TezBenchFrame(int w, int h, float eyeZ, float far) : width(w), height(h)
{
    scene = TezScene::Create();
    TezRef<TezCameraView> camera = TezCameraView::Create();
    camera->Resize(width, height);
    camera->UsePerspective(true);
    camera->SetEye({0.0f, 0.0f, eyeZ});
    camera->SetFocus({0.0f, 0.0f, 0.0f});
    camera->SetFov(40.0f);
    camera->SetNear(1.0f);
    camera->SetFar(far);
    data.SetCamera(camera);
    buffer = TezFrameBuffer::Create(width, height);
    buffer->Build();
}

void TezBenchFrame::Draw()
{
    buffer->Bind();
    glViewport(0, 0, width, height);
    glClearColor(0.2f, 0.2f, 0.25f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    scene->Draw(data);
    glFinish();
    buffer->Unbind();
}
