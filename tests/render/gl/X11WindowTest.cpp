#include "platform/gl/GLPlatform.h"
#include "render/gl/OpenGLSupport.h"
#include "tests/render/gl/GLTestContext.h"

#include <GL/glew.h>
#include <X11/Xlib.h>

#include <cstdlib>

namespace {

// A host's X11 window: the context is made on the X11 platform for it,
// draws into the window's own surface, and swaps. Runs where DISPLAY is set
// (CI runs it under Xvfb); the headless context of the other tests is bound
// again afterwards.
TEST(X11Window, ContextDrawsIntoAHostWindow)
{
    if (!std::getenv("DISPLAY"))
        GTEST_SKIP() << "no X display (DISPLAY is not set)";
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        GTEST_SKIP() << "the X display cannot be opened";
    Window const x11 = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 40, 30, 0, 0, 0);
    XMapWindow(display, x11);
    XSync(display, False);

    HWND window = TezGLPlatform::WrapX11Window(display, x11);
    HGLRC context = nullptr;
    ASSERT_EQ(0, TezOpenGLSupport::TezInitializeGLRC(window, context));
    HDC dc = TezGLPlatform::GetDC(window);
    ASSERT_TRUE(TezGLPlatform::MakeCurrent(dc, context));
    EXPECT_STREQ("x11", TezGLPlatform::GetPlatformName(dc));
    int width = 0, height = 0;
    EXPECT_TRUE(TezGLPlatform::GetWindowSize(window, width, height));
    EXPECT_EQ(40, width);
    EXPECT_EQ(30, height);
    glClearColor(1, 0, 1, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    unsigned char pixel[4] = {};
    glReadPixels(5, 5, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
    EXPECT_EQ(255, pixel[0]);
    EXPECT_EQ(0, pixel[1]);
    EXPECT_TRUE(TezGLPlatform::SwapBuffers(dc));

    TezGLPlatform::MakeCurrent(nullptr, nullptr);
    TezOpenGLSupport::TezReleaseGLRC(context);
    TezGLPlatform::ReleaseDC(window, dc);
    TezGLPlatform::DestroyWindow(window);
    XDestroyWindow(display, x11);
    XCloseDisplay(display);
    TezGLTestContext& gl = TezGLTestContext::Get();
    if (gl.ok)
        TezGLPlatform::MakeCurrent(gl.dc, gl.context);
}

} // namespace
