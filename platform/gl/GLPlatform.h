#pragma once
// TezGLPlatform: the seam between the kernel's GL code and the window
// system. EGL is included here and nowhere else.
//
// Displays, in order of preference: the host's X11 display for a window made
// with WrapX11Window; otherwise a hardware device of EGL_EXT_platform_device
// (NVIDIA's EGL on a GPU machine), then Mesa's surfaceless platform
// (llvmpipe: no display, no GPU), then EGL's default display. The variable
// TEZ_EGL_PLATFORM ("device", "surfaceless", "default") forces one.
//
// An off-screen window is a size and, once GetDC is asked, a pbuffer surface
// of that size; where the config offers no pbuffer the device context has no
// surface and callers draw into a frame buffer object. Pbuffers are single
// buffered: SwapBuffers on them does nothing and succeeds.
//
// Nothing here throws. Failures answer null or false and leave the reason in
// GetLastError(), one of the Failure values, which TezOpenGLSupport turns
// into its error codes. Not thread safe except MakeCurrent, which binds on
// the calling thread as EGL does.

#include "platform/Api.h"
#include "platform/Handles.h"

#include <cstdint>

class TEZ_API TezGLPlatform
{
public:
    enum Failure {
        NoFailure = 0,
        NoDisplay,                // no EGL display could be opened or initialised
        OldEGL,                   // EGL below 1.4
        NoConfig,                 // no config renders desktop GL into the surface type
        NoSurface,                // the window's surface could not be made
        NoContext,                // eglCreateContext refused
        NoCreateContextExtension, // EGL_KHR_create_context missing (and EGL < 1.5)
    };

    struct ContextAttributes
    {
        int major = 0; // 0: whatever the driver gives by default
        int minor = 0;
        bool coreProfile = false;
        bool forwardCompatible = false;
    };

    // A window of no screen: width x height pixels (both at least 1).
    static HWND CreateOffscreenWindow(int width, int height);
    // A host's X11 window on its display (Display* and Window, passed as
    // opaque values so that no X11 header is needed).
    static HWND WrapX11Window(void* x11Display, unsigned long x11Window);
    // Releases the window's surface; the host's own window stays.
    static void DestroyWindow(HWND window);
    static bool GetWindowSize(HWND window, int& width, int& height);
    // Resizes an off-screen window; its surface is remade on the next GetDC.
    static bool ResizeOffscreenWindow(HWND window, int width, int height);

    // The window's device context, made on first ask and shared by later
    // asks (one per window, counted). A null window gives a device context
    // of the headless display with no surface.
    static HDC GetDC(HWND window);
    static void ReleaseDC(HWND window, HDC dc);
    // Picks the config of the device context (RGBA 8 bits, depth 24 or more,
    // desktop GL) and makes its surface; false with the reason on failure.
    static bool ChooseConfig(HDC dc);

    // A context on the device context's display and config; shares objects
    // with `share` when given. Null with the reason on failure.
    static HGLRC CreateContext(HDC dc, ContextAttributes const& attributes, HGLRC share = nullptr);
    static void DestroyContext(HGLRC context);
    // Binds context and the device context's surface (none where it has
    // none) on this thread, choosing the config first where nobody did;
    // MakeCurrent(nullptr, nullptr) unbinds.
    static bool MakeCurrent(HDC dc, HGLRC context);
    static HGLRC GetCurrentContext();
    static bool SwapBuffers(HDC dc);

    static bool HasDisplayExtension(HDC dc, char const* name);
    // EGL version of the device context's display (major * 10 + minor).
    static int GetEGLVersion(HDC dc);
    // "x11", "device", "surfaceless" or "default"; empty before a display.
    static char const* GetPlatformName(HDC dc);
    static void* GetProcAddress(char const* name);

    // The reason of the last failure; reading clears it.
    static Failure GetLastError();

private:
    static void SetLastError(Failure failure);
};
