#include "tests/render/gl/GLTestContext.h"

#include "core/Logger.h"
#include "platform/gl/GLPlatform.h"
#include "render/gl/OpenGLSupport.h"

#include <GL/glew.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

class OpenGLSupportTest : public GLTest
{
protected:
    void TearDown() override
    {
        TezLogger::SetConsoleLevel(m_consoleLevel);
        GLTest::TearDown();
    }
    int m_consoleLevel = TezLogger::GetConsoleLevel();
};

TEST_F(OpenGLSupportTest, ContextIsCoreProfileOfAtLeastFourThree)
{
    GLint major = 0, minor = 0, mask = 0, flags = 0;
    glGetIntegerv(GL_MAJOR_VERSION, &major);
    glGetIntegerv(GL_MINOR_VERSION, &minor);
    glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &mask);
    glGetIntegerv(GL_CONTEXT_FLAGS, &flags);
    EXPECT_TRUE(TezOpenGLSupport::IsVersionSupported(major, minor)) << major << "." << minor;
    EXPECT_TRUE(mask & GL_CONTEXT_CORE_PROFILE_BIT);
    EXPECT_TRUE(flags & GL_CONTEXT_FLAG_FORWARD_COMPATIBLE_BIT);
    EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
    EXPECT_NE(nullptr, TezGLPlatform::GetCurrentContext());
    std::printf("[ context  ] %s (EGL platform %s)\n", TezOpenGLSupport::GetContextDescription().c_str(),
                TezGLPlatform::GetPlatformName(TezGLTestContext::Get().dc));
}

// A second context through the same path logs its version and leaves the
// caller's binding alone, so a host can make its context at any time.
TEST_F(OpenGLSupportTest, InitializeLogsVersionAndLeavesNewContextUnbound)
{
    TezLogger::SetConsoleLevel(TezLogger::Info);
    HWND window = TezGLPlatform::CreateOffscreenWindow(8, 8);
    HGLRC context = nullptr;
    ::testing::internal::CaptureStdout();
    int const code = TezOpenGLSupport::TezInitializeGLRC(window, context);
    std::string const console = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(0, code);
    ASSERT_NE(nullptr, context);
    EXPECT_NE(std::string::npos, console.find("OpenGL version: 4.")) << console;

    // Nothing is bound after it: the test's own context must be bound again.
    EXPECT_EQ(nullptr, TezGLPlatform::GetCurrentContext());
    HDC dc = TezGLPlatform::GetDC(window);
    ASSERT_TRUE(TezGLPlatform::MakeCurrent(dc, context));
    glClearColor(0, 1, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    EXPECT_EQ((std::vector<unsigned char>{0, 255, 0, 255}), ReadPixel(4, 4));
    TezOpenGLSupport::TezReleaseGLRC(context);
    TezGLPlatform::ReleaseDC(window, dc);
    TezGLPlatform::DestroyWindow(window);

    TezGLTestContext& gl = TezGLTestContext::Get();
    ASSERT_TRUE(TezGLPlatform::MakeCurrent(gl.dc, gl.context));
}

TEST_F(OpenGLSupportTest, ShaderFromMissingOrEmptyFileIsZeroAndLogged)
{
    std::string const empty = testing::TempDir() + "empty.glsl";
    std::ofstream(empty).close();
    TezLogger::SetConsoleLevel(TezLogger::Error);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(0u, TezOpenGLSupport::TezCreateShaderFromFile(GL_VERTEX_SHADER, TezString("/no/such/vX.glsl")));
    EXPECT_EQ(0u, TezOpenGLSupport::TezCreateShaderFromFile(GL_VERTEX_SHADER, TezString(empty.c_str())));
    std::string const console = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, console.find("Missing shader file with path: /no/such/vX.glsl\n")) << console;
    EXPECT_NE(std::string::npos, console.find("Missing shader file with path: " + empty + "\n")) << console;
}

TEST_F(OpenGLSupportTest, CompileFailureIsReportedThroughTheUIAndFalse)
{
    unsigned shader = TezOpenGLSupport::TezCreateShaderFromSource(
        GL_FRAGMENT_SHADER, TezString("#version 430 core\nvoid main() { undefinedThing = 1; }\n"), TezString("bad"));
    ASSERT_NE(0u, shader);
    TezLogger::SetConsoleLevel(TezLogger::None);
    EXPECT_FALSE(TezOpenGLSupport::TezValidateShader(shader));
    glDeleteShader(shader);

    shader = TezOpenGLSupport::TezCreateShaderFromSource(
        GL_FRAGMENT_SHADER, TezString("#version 430 core\nout vec4 c;\nvoid main() { c = vec4(1); }\n"),
        TezString("good"));
    EXPECT_TRUE(TezOpenGLSupport::TezValidateShader(shader));
    glDeleteShader(shader);
}

} // namespace
