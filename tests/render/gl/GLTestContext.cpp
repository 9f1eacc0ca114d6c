#include "tests/render/gl/GLTestContext.h"

#include "platform/gl/GLPlatform.h"
#include "render/gl/OpenGLSupport.h"

#include <GL/glew.h>

TezGLTestContext& TezGLTestContext::Get()
{
    static TezGLTestContext context = [] {
        TezGLTestContext c;
        c.window = TezGLPlatform::CreateOffscreenWindow(256, 256);
        int const code = TezOpenGLSupport::TezInitializeGLRC(c.window, c.context);
        if (code != TezOpenGLSupport::Success) {
            c.reason =
                "no GL 4.3 context can be made here: " + std::string(TezOpenGLSupport::TezErrorString(code).c_str());
            return c;
        }
        c.dc = TezGLPlatform::GetDC(c.window);
        if (!TezGLPlatform::MakeCurrent(c.dc, c.context) || !TezOpenGLSupport::LoadEntryPoints()) {
            c.reason = "the GL context was made but cannot be bound";
            return c;
        }
        c.ok = true;
        return c;
    }();
    return context;
}

void GLTest::SetUp()
{
    TezGLTestContext& gl = TezGLTestContext::Get();
    if (!gl.ok)
        GTEST_SKIP() << gl.reason;
    // Views unbind the context at the end of every paint, map and pick:
    // each test starts with it bound on this thread again.
    TezGLPlatform::MakeCurrent(gl.dc, gl.context);
    m_app = std::make_unique<TestApplication>(gl.context, gl.window);
    glGetError();
}

void GLTest::TearDown() { m_app.reset(); }

std::vector<unsigned char> GLTest::ReadPixel(int x, int y)
{
    std::vector<unsigned char> rgba(4, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(x, y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
    return rgba;
}
