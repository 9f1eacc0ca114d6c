#include "BenchGL.h"

#include "platform/gl/GLPlatform.h"
#include "render/gl/OpenGLSupport.h"

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
