#pragma once
// TezOpenGLSupport: the application's one GL context, and the shader helpers
// every effect uses.
//
// TezInitializeGLRC makes the context for a window (an off-screen window of
// platform/gl, a host's X11 window, or null for a headless context without a
// surface): a plain bootstrap context first, GLEW's entry points loaded with
// it current, the version tested (4.3 or later), then a 4.3 core, forward
// compatible context. It returns one of the codes below, whose texts
// TezErrorString gives; the new context is left unbound, and the bootstrap
// context is gone in every case. The caller binds it with
// TezGLPlatform::MakeCurrent and frees it with TezReleaseGLRC.
//
// GLEW 2.2 as Debian builds it knows GLX only: on EGL its glewInit answers
// GLEW_ERROR_NO_GLX_DISPLAY after the core entry points are loaded, which is
// taken as success here.
//
// The shader helpers need a current context. They never throw: a missing or
// empty shader file logs "Missing shader file with path: <path>" at error
// level and answers 0; a failed compile or link shows the driver's log
// through the UI manager's ReportError and logs it.

#include "core/String.h"
#include "platform/Api.h"
#include "platform/Handles.h"

#include <vector>

class TEZ_API TezOpenGLSupport
{
public:
    enum ErrorCode {
        Success = 0,
        PixelFormatFailed = 16,
        StandardContextFailed = 17,
        ContextFailed = 18,
        NoContextAttributes = 19,
        LibraryFailed = 20,
        VersionTooOld = 21,
        NoDisplay = 32,
        BadDisplayVersion = 33,
        NoFrameBufferConfig = 34,
        NoWindow = 35,
        CudaInitFailed = 4097,
        CudaNoDevice = 4098,
        CudaNoProperties = 4099,
        CudaSetDeviceFailed = 4100,
        CudaDeviceUnusable = 4101,
    };

    static int TezInitializeGLRC(HWND window, HGLRC& context);
    static void TezReleaseGLRC(HGLRC context);
    // Chooses the device context's config and makes its surface.
    static bool TezSetPixelFormat(HDC dc);
    // The text of a code; "ERROR: Unknown error\n" for any other value.
    static TezString TezErrorString(int code);

    // A compiled shader of `type` (GL_VERTEX_SHADER, ...) from the file at
    // `path`, or 0 when the file is missing or empty. The compile status is
    // not tested here: TezValidateShader does that.
    static unsigned TezCreateShaderFromFile(unsigned type, TezString const& path);
    // As above from source text in memory; `label` names it in the logs.
    static unsigned TezCreateShaderFromSource(unsigned type, TezString const& source, TezString const& label);
    static bool TezValidateShader(unsigned shader);
    static bool TezValidateProgram(unsigned program);

    // Triangle indices of a grid of columns x rows vertices stored row by
    // row: two triangles per cell, counter-clockwise seen with rows going up
    // and columns going right. Empty for fewer than two rows or columns.
    static void MakeIndicesForGrid(int columns, int rows, std::vector<unsigned>& indices);

    // The version rule of TezInitializeGLRC: major + minor / 10 of at least 4.3.
    static bool IsVersionSupported(int major, int minor);
    // Loads GLEW's entry points for the current context; true where they are.
    static bool LoadEntryPoints();
    // "GL 4.5 (Core Profile) Mesa 22.3.6 on llvmpipe (...)": version and
    // renderer of the current context, empty without one.
    static TezString GetContextDescription();
};
