#include "tez/OffscreenGL.h"

#include "platform/gl/GLPlatform.h"
#include "render/gl/OpenGLSupport.h"
#include "tez/Cli.h"
#include "tez/CommandLine.h"

TezOffscreenGL::TezOffscreenGL(bool wanted, int width, int height)
{
    if (!wanted)
        return;
    m_window = TezGLPlatform::CreateOffscreenWindow(width, height);
    HGLRC context = nullptr;
    int const code = TezOpenGLSupport::TezInitializeGLRC(m_window, context);
    if (code != TezOpenGLSupport::Success) {
        m_problem = TezOpenGLSupport::TezErrorString(code).c_str();
        return;
    }
    m_dc = TezGLPlatform::GetDC(m_window);
    if (!TezGLPlatform::MakeCurrent(m_dc, context) || !TezOpenGLSupport::LoadEntryPoints()) {
        m_problem = "the GL context cannot be bound\n";
        TezGLPlatform::MakeCurrent(nullptr, nullptr);
        TezOpenGLSupport::TezReleaseGLRC(context);
        return;
    }
    m_context = context;
}

TezOffscreenGL::~TezOffscreenGL()
{
    if (m_context) {
        TezGLPlatform::MakeCurrent(nullptr, nullptr);
        TezOpenGLSupport::TezReleaseGLRC(m_context);
    }
    if (m_dc)
        TezGLPlatform::ReleaseDC(m_window, m_dc);
    if (m_window)
        TezGLPlatform::DestroyWindow(m_window);
}

bool TezOffscreenGL::MakeCurrent() const { return m_context && TezGLPlatform::MakeCurrent(m_dc, m_context); }

void TezPictureArgs::AddOptions(CLI::App& cli, bool withExr)
{
    cli.add_option("-o,--output", output, "picture to write; the extension picks the format")
        ->check(TezCliImageName(withExr))
        ->capture_default_str();
    std::string const defaultSize = std::to_string(width) + "x" + std::to_string(height);
    cli.add_option("--size", size, "picture size in pixels (default " + defaultSize + ")")
        ->check(TezCliPictureSize(16, 8192));
}

void TezPictureArgs::Finish()
{
    if (!size.empty())
        TezParsePictureSize(size, width, height);
}
