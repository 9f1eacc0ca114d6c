#include "render/gl/OpenGLSupport.h"

#include "core/Logger.h"
#include "core/ResourceManager.h"
#include "core/UIManager.h"
#include "platform/gl/GLPlatform.h"

#include <GL/glew.h>

#include <string>

namespace {

int CodeOfPlatformFailure(TezGLPlatform::Failure failure)
{
    switch (failure) {
    case TezGLPlatform::OldEGL:
        return TezOpenGLSupport::BadDisplayVersion;
    case TezGLPlatform::NoConfig:
        return TezOpenGLSupport::PixelFormatFailed;
    case TezGLPlatform::NoSurface:
        return TezOpenGLSupport::PixelFormatFailed;
    case TezGLPlatform::NoCreateContextExtension:
        return TezOpenGLSupport::NoContextAttributes;
    default:
        return TezOpenGLSupport::NoDisplay;
    }
}

char const* PlatformFailureText(TezGLPlatform::Failure failure)
{
    switch (failure) {
    case TezGLPlatform::NoDisplay:
        return "no EGL display could be opened";
    case TezGLPlatform::OldEGL:
        return "EGL is older than 1.4";
    case TezGLPlatform::NoConfig:
        return "no EGL config renders desktop OpenGL";
    case TezGLPlatform::NoSurface:
        return "the window's EGL surface could not be made";
    case TezGLPlatform::NoContext:
        return "eglCreateContext refused";
    case TezGLPlatform::NoCreateContextExtension:
        return "EGL_KHR_create_context is missing";
    default:
        return "no reason given";
    }
}

// Shows a compile or link log where the user sees it, and in the log file.
void ReportInfoLog(std::string const& log)
{
    if (log.empty())
        return;
    TezRef<TezUIManager> ui = TezUIManager::GetAppUIManager();
    if (ui)
        ui->ReportError(TezString(log.c_str()));
    TezLogger::error("%s\n", log.c_str());
}

} // namespace

bool TezOpenGLSupport::IsVersionSupported(int major, int minor)
{
    // major + minor / 10 >= 4.3, in integers so that 4.3 itself is not lost
    // to rounding.
    return major * 10 + minor >= 43;
}

bool TezOpenGLSupport::LoadEntryPoints()
{
    glewExperimental = GL_TRUE;
    GLenum const result = glewInit();
    // GLEW_ERROR_NO_GLX_DISPLAY: the GLX part failed after the GL part
    // succeeded, as it always does on EGL.
    if (result != GLEW_OK && result != GLEW_ERROR_NO_GLX_DISPLAY)
        return false;
    glGetError(); // glewInit leaves GL_INVALID_ENUM behind on core contexts
    return glGenFramebuffers != nullptr && glCreateProgram != nullptr;
}

bool TezOpenGLSupport::TezSetPixelFormat(HDC dc) { return TezGLPlatform::ChooseConfig(dc); }

int TezOpenGLSupport::TezInitializeGLRC(HWND window, HGLRC& context)
{
    context = nullptr;
    HDC dc = TezGLPlatform::GetDC(window);
    if (!dc) {
        TezGLPlatform::Failure failure = TezGLPlatform::GetLastError();
        TezLogger::error("OpenGL context: %s\n", PlatformFailureText(failure));
        return CodeOfPlatformFailure(failure);
    }

    int result = Success;
    HGLRC bootstrap = nullptr;
    if (!TezSetPixelFormat(dc)) {
        TezGLPlatform::Failure failure = TezGLPlatform::GetLastError();
        TezLogger::error("OpenGL context: %s\n", PlatformFailureText(failure));
        result = PixelFormatFailed;
    } else if (!(bootstrap = TezGLPlatform::CreateContext(dc, TezGLPlatform::ContextAttributes())) ||
               !TezGLPlatform::MakeCurrent(dc, bootstrap)) {
        result = StandardContextFailed;
    } else if (!LoadEntryPoints()) {
        result = LibraryFailed;
    } else {
        GLint major = 0, minor = 0;
        glGetIntegerv(GL_MAJOR_VERSION, &major);
        glGetIntegerv(GL_MINOR_VERSION, &minor);
        TezLogger::info("OpenGL version: %d.%d\n", major, minor);
        if (!IsVersionSupported(major, minor)) {
            result = VersionTooOld;
        } else if (TezGLPlatform::GetEGLVersion(dc) < 15 &&
                   !TezGLPlatform::HasDisplayExtension(dc, "EGL_KHR_create_context")) {
            result = NoContextAttributes;
        } else {
            TezGLPlatform::ContextAttributes attributes;
            attributes.major = 4;
            attributes.minor = 3;
            attributes.coreProfile = true;
            attributes.forwardCompatible = true;
            context = TezGLPlatform::CreateContext(dc, attributes);
            if (!context)
                result = ContextFailed;
        }
    }

    TezGLPlatform::MakeCurrent(nullptr, nullptr);
    TezGLPlatform::DestroyContext(bootstrap);
    TezGLPlatform::GetLastError(); // the failures above are told by the code
    TezGLPlatform::ReleaseDC(window, dc);
    return result;
}

void TezOpenGLSupport::TezReleaseGLRC(HGLRC context) { TezGLPlatform::DestroyContext(context); }

TezString TezOpenGLSupport::TezErrorString(int code)
{
    switch (code) {
    case Success:
        return TezString("");
    case PixelFormatFailed:
        return TezString("ERROR: Failed to set the desired pixel format needed by OpenGL.\n");
    case StandardContextFailed:
        return TezString("ERROR: Failed to create a standard OpenGL context.\n");
    case ContextFailed:
        return TezString("ERROR: Failed to create the OpenGL context.\n");
    case NoContextAttributes:
        return TezString("ERROR: OpenGL does not support creating a context with attributes.\n");
    case LibraryFailed:
        return TezString("ERROR: Failed to initialize OpenGL library.\n");
    case VersionTooOld:
        return TezString("ERROR: Morvane requires OpenGL version 4.3 or greater.\n");
    case NoDisplay:
        return TezString("ERROR: Unable to connect to X display.\n");
    case BadDisplayVersion:
        return TezString("ERROR: Invalid GLX version.  Must be 1.3 or greater.\n");
    case NoFrameBufferConfig:
        return TezString("ERROR: Unable to find an adequate frame buffer.\n");
    case NoWindow:
        return TezString("ERROR: Unable to create an X window.\n");
    case CudaInitFailed:
        return TezString("ERROR: Failed to initialize NVidia's CUDA library.\n");
    case CudaNoDevice:
        return TezString("ERROR: No NVidia CUDA devices found.\n");
    case CudaNoProperties:
        return TezString("ERROR: Failed to get CUDA properties.\n");
    case CudaSetDeviceFailed:
        return TezString("ERROR: Failed to set CUDA device.\n");
    case CudaDeviceUnusable:
        return TezString("ERROR: NVidia CUDA device cannot be used by Morvane.\n");
    default:
        return TezString("ERROR: Unknown error\n");
    }
}

unsigned TezOpenGLSupport::TezCreateShaderFromFile(unsigned type, TezString const& path)
{
    TezString const source = TezResourceManager::BufferFromFile(path);
    if (source.Length() == 0) {
        TezLogger::error("Missing shader file with path: %s\n", path.c_str());
        return 0;
    }
    return TezCreateShaderFromSource(type, source, path);
}

unsigned TezOpenGLSupport::TezCreateShaderFromSource(unsigned type, TezString const& source, TezString const& label)
{
    if (source.Length() == 0) {
        TezLogger::error("Missing shader file with path: %s\n", label.c_str());
        return 0;
    }
    GLuint shader = glCreateShader(type);
    if (shader == 0)
        return 0;
    GLchar const* text = source.c_str();
    GLint const length = static_cast<GLint>(source.Length());
    glShaderSource(shader, 1, &text, &length);
    glCompileShader(shader);
    return shader;
}

bool TezOpenGLSupport::TezValidateShader(unsigned shader)
{
    if (shader == 0)
        return false;
    GLint status = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &status);
    if (status != GL_TRUE) {
        GLint length = 0;
        glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
        std::string log(length > 0 ? static_cast<size_t>(length) : 0, '\0');
        if (length > 0)
            glGetShaderInfoLog(shader, length, nullptr, &log[0]);
        ReportInfoLog(log.c_str());
    }
    return status == GL_TRUE;
}

bool TezOpenGLSupport::TezValidateProgram(unsigned program)
{
    if (program == 0)
        return false;
    GLint status = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &status);
    if (status != GL_TRUE) {
        GLint length = 0;
        glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
        std::string log(length > 0 ? static_cast<size_t>(length) : 0, '\0');
        if (length > 0)
            glGetProgramInfoLog(program, length, nullptr, &log[0]);
        ReportInfoLog(log.c_str());
    }
    return status == GL_TRUE;
}

void TezOpenGLSupport::MakeIndicesForGrid(int columns, int rows, std::vector<unsigned>& indices)
{
    indices.clear();
    if (columns < 2 || rows < 2)
        return;
    indices.reserve(static_cast<size_t>(columns - 1) * (rows - 1) * 6);
    for (int r = 0; r + 1 < rows; ++r) {
        for (int c = 0; c + 1 < columns; ++c) {
            unsigned const a = static_cast<unsigned>(r * columns + c);
            unsigned const b = a + 1;
            unsigned const d = a + static_cast<unsigned>(columns);
            unsigned const e = d + 1;
            indices.insert(indices.end(), {a, b, e, a, e, d});
        }
    }
}

TezString TezOpenGLSupport::GetContextDescription()
{
    if (!TezGLPlatform::GetCurrentContext())
        return TezString();
    char const* version = reinterpret_cast<char const*>(glGetString(GL_VERSION));
    char const* renderer = reinterpret_cast<char const*>(glGetString(GL_RENDERER));
    std::string text = "GL ";
    text += version ? version : "?";
    text += " on ";
    text += renderer ? renderer : "?";
    return TezString(text.c_str());
}
