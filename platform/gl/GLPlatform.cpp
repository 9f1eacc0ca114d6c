#include "platform/gl/GLPlatform.h"

// No X11 headers: the host's display and window come in as opaque values.
#define EGL_NO_X11
#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace {

struct DisplayRecord
{
    EGLDisplay display = EGL_NO_DISPLAY;
    char const* platformName = "";
    int version = 0; // major * 10 + minor
};

thread_local TezGLPlatform::Failure t_lastError = TezGLPlatform::NoFailure;
thread_local HGLRC t_current = nullptr;

std::mutex g_displayMutex;
DisplayRecord g_headless;
bool g_headlessTried = false;
std::map<void*, DisplayRecord> g_x11Displays;

bool HasWord(char const* list, char const* name)
{
    if (!list)
        return false;
    size_t const length = std::strlen(name);
    for (char const* p = std::strstr(list, name); p; p = std::strstr(p + 1, name))
        if ((p == list || p[-1] == ' ') && (p[length] == ' ' || p[length] == '\0'))
            return true;
    return false;
}

bool HasClientExtension(char const* name) { return HasWord(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), name); }

bool Initialise(DisplayRecord& record, EGLDisplay display, char const* platformName)
{
    if (display == EGL_NO_DISPLAY)
        return false;
    EGLint major = 0, minor = 0;
    if (!eglInitialize(display, &major, &minor))
        return false;
    record.display = display;
    record.platformName = platformName;
    record.version = major * 10 + minor;
    return true;
}

// A device that is not Mesa's software rasteriser: on a GPU machine this is
// the GPU, and llvmpipe stays the choice of the surfaceless platform.
EGLDisplay HardwareDeviceDisplay(PFNEGLGETPLATFORMDISPLAYEXTPROC getPlatformDisplay)
{
    if (!HasClientExtension("EGL_EXT_device_enumeration") || !HasClientExtension("EGL_EXT_platform_device"))
        return EGL_NO_DISPLAY;
    auto queryDevices = reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
    auto queryString = reinterpret_cast<PFNEGLQUERYDEVICESTRINGEXTPROC>(eglGetProcAddress("eglQueryDeviceStringEXT"));
    if (!queryDevices || !queryString)
        return EGL_NO_DISPLAY;
    EGLDeviceEXT devices[16];
    EGLint count = 0;
    if (!queryDevices(16, devices, &count))
        return EGL_NO_DISPLAY;
    for (EGLint i = 0; i < count; ++i) {
        char const* extensions = queryString(devices[i], EGL_EXTENSIONS);
        if (HasWord(extensions, "EGL_MESA_device_software"))
            continue;
        EGLDisplay display = getPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr);
        if (display != EGL_NO_DISPLAY)
            return display;
    }
    return EGL_NO_DISPLAY;
}

DisplayRecord* HeadlessDisplay()
{
    std::lock_guard<std::mutex> lock(g_displayMutex);
    if (g_headlessTried)
        return g_headless.display == EGL_NO_DISPLAY ? nullptr : &g_headless;
    g_headlessTried = true;

    char const* forced = std::getenv("TEZ_EGL_PLATFORM");
    std::string const choice = forced ? forced : "";
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));

    if (getPlatformDisplay && (choice.empty() || choice == "device")) {
        EGLDisplay display = HardwareDeviceDisplay(getPlatformDisplay);
        if (Initialise(g_headless, display, "device"))
            return &g_headless;
    }
    if (getPlatformDisplay && (choice.empty() || choice == "surfaceless") &&
        HasClientExtension("EGL_MESA_platform_surfaceless")) {
        EGLDisplay display = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (Initialise(g_headless, display, "surfaceless"))
            return &g_headless;
    }
    if (choice.empty() || choice == "default") {
        if (Initialise(g_headless, eglGetDisplay(EGL_DEFAULT_DISPLAY), "default"))
            return &g_headless;
    }
    g_headless = DisplayRecord();
    return nullptr;
}

DisplayRecord* X11Display(void* native)
{
    std::lock_guard<std::mutex> lock(g_displayMutex);
    auto found = g_x11Displays.find(native);
    if (found != g_x11Displays.end())
        return &found->second;
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getPlatformDisplay || !HasClientExtension("EGL_EXT_platform_x11"))
        return nullptr;
    DisplayRecord record;
    if (!Initialise(record, getPlatformDisplay(EGL_PLATFORM_X11_EXT, native, nullptr), "x11"))
        return nullptr;
    return &(g_x11Displays[native] = record);
}

} // namespace

struct TezWindowHandle
{
    bool offscreen = true;
    int width = 1;
    int height = 1;
    void* x11Display = nullptr;
    unsigned long x11Window = 0;
    TezDeviceContextHandle* dc = nullptr;
    int dcUses = 0;
};

struct TezDeviceContextHandle
{
    TezWindowHandle* window = nullptr; // null: the headless display without a surface
    DisplayRecord* display = nullptr;
    EGLConfig config = nullptr;
    bool configChosen = false;
    EGLSurface surface = EGL_NO_SURFACE;
    int surfaceWidth = 0;
    int surfaceHeight = 0;
};

struct TezRenderContextHandle
{
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
};

namespace {

void DropSurface(TezDeviceContextHandle* dc)
{
    if (dc->surface != EGL_NO_SURFACE) {
        // A surface that is current on this thread must be unbound first.
        if (eglGetCurrentSurface(EGL_DRAW) == dc->surface)
            eglMakeCurrent(dc->display->display, EGL_NO_SURFACE, EGL_NO_SURFACE, eglGetCurrentContext());
        eglDestroySurface(dc->display->display, dc->surface);
        dc->surface = EGL_NO_SURFACE;
    }
}

// The window's surface at the window's present size; a pbuffer for an
// off-screen window, or none where the config cannot make one and EGL can
// bind a context without a surface.
bool MakeSurface(TezDeviceContextHandle* dc)
{
    TezWindowHandle* window = dc->window;
    if (!window)
        return true;
    if (dc->surface != EGL_NO_SURFACE && dc->surfaceWidth == window->width && dc->surfaceHeight == window->height)
        return true;
    DropSurface(dc);
    EGLDisplay display = dc->display->display;
    if (window->offscreen) {
        EGLint surfaceType = 0;
        eglGetConfigAttrib(display, dc->config, EGL_SURFACE_TYPE, &surfaceType);
        if (surfaceType & EGL_PBUFFER_BIT) {
            EGLint const attributes[] = {EGL_WIDTH, window->width, EGL_HEIGHT, window->height, EGL_NONE};
            dc->surface = eglCreatePbufferSurface(display, dc->config, attributes);
        }
        if (dc->surface == EGL_NO_SURFACE &&
            !HasWord(eglQueryString(display, EGL_EXTENSIONS), "EGL_KHR_surfaceless_context"))
            return false;
    } else {
        dc->surface =
            eglCreateWindowSurface(display, dc->config, static_cast<EGLNativeWindowType>(window->x11Window), nullptr);
        if (dc->surface == EGL_NO_SURFACE)
            return false;
    }
    dc->surfaceWidth = window->width;
    dc->surfaceHeight = window->height;
    return true;
}

bool PickConfig(TezDeviceContextHandle* dc)
{
    EGLDisplay display = dc->display->display;
    bool const onScreen = dc->window && !dc->window->offscreen;
    // Preferred first: the surface the window needs with a depth buffer;
    // then without depth (frame buffer objects bring their own); then any
    // surface type, for displays that offer no pbuffer at all.
    EGLint const surfaceTypes[] = {onScreen ? EGL_WINDOW_BIT : EGL_PBUFFER_BIT, 0};
    EGLint const depths[] = {24, 0};
    for (EGLint surfaceType : surfaceTypes) {
        if (onScreen && surfaceType == 0)
            break;
        for (EGLint depth : depths) {
            EGLint const attributes[] = {EGL_SURFACE_TYPE,
                                         surfaceType,
                                         EGL_RENDERABLE_TYPE,
                                         EGL_OPENGL_BIT,
                                         EGL_RED_SIZE,
                                         8,
                                         EGL_GREEN_SIZE,
                                         8,
                                         EGL_BLUE_SIZE,
                                         8,
                                         EGL_ALPHA_SIZE,
                                         8,
                                         EGL_DEPTH_SIZE,
                                         depth,
                                         EGL_NONE};
            EGLConfig config = nullptr;
            EGLint count = 0;
            if (eglChooseConfig(display, attributes, &config, 1, &count) && count > 0) {
                dc->config = config;
                return true;
            }
        }
    }
    return false;
}

} // namespace

void TezGLPlatform::SetLastError(Failure failure) { t_lastError = failure; }

TezGLPlatform::Failure TezGLPlatform::GetLastError()
{
    Failure failure = t_lastError;
    t_lastError = NoFailure;
    return failure;
}

HWND TezGLPlatform::CreateOffscreenWindow(int width, int height)
{
    if (width < 1 || height < 1)
        return nullptr;
    HWND window = new TezWindowHandle();
    window->width = width;
    window->height = height;
    return window;
}

HWND TezGLPlatform::WrapX11Window(void* x11Display, unsigned long x11Window)
{
    if (!x11Display || x11Window == 0)
        return nullptr;
    HWND window = new TezWindowHandle();
    window->offscreen = false;
    window->x11Display = x11Display;
    window->x11Window = x11Window;
    return window;
}

void TezGLPlatform::DestroyWindow(HWND window)
{
    if (!window)
        return;
    if (window->dc) {
        DropSurface(window->dc);
        delete window->dc;
    }
    delete window;
}

bool TezGLPlatform::GetWindowSize(HWND window, int& width, int& height)
{
    if (!window)
        return false;
    if (!window->offscreen && window->dc && window->dc->surface != EGL_NO_SURFACE) {
        EGLint w = 0, h = 0;
        eglQuerySurface(window->dc->display->display, window->dc->surface, EGL_WIDTH, &w);
        eglQuerySurface(window->dc->display->display, window->dc->surface, EGL_HEIGHT, &h);
        window->width = w;
        window->height = h;
    }
    width = window->width;
    height = window->height;
    return true;
}

bool TezGLPlatform::ResizeOffscreenWindow(HWND window, int width, int height)
{
    if (!window || !window->offscreen || width < 1 || height < 1)
        return false;
    window->width = width;
    window->height = height;
    return true;
}

HDC TezGLPlatform::GetDC(HWND window)
{
    if (window && window->dc) {
        ++window->dcUses;
        return window->dc;
    }
    DisplayRecord* display = window && !window->offscreen ? X11Display(window->x11Display) : HeadlessDisplay();
    if (!display) {
        SetLastError(NoDisplay);
        return nullptr;
    }
    if (display->version < 14) {
        SetLastError(OldEGL);
        return nullptr;
    }
    HDC dc = new TezDeviceContextHandle();
    dc->window = window;
    dc->display = display;
    if (window) {
        window->dc = dc;
        window->dcUses = 1;
    }
    return dc;
}

void TezGLPlatform::ReleaseDC(HWND window, HDC dc)
{
    if (!dc)
        return;
    if (window && window->dc == dc) {
        // The window keeps its surface while anyone still draws into it.
        if (--window->dcUses > 0)
            return;
        window->dc = nullptr;
    }
    DropSurface(dc);
    delete dc;
}

bool TezGLPlatform::ChooseConfig(HDC dc)
{
    if (!dc) {
        SetLastError(NoDisplay);
        return false;
    }
    if (!dc->configChosen) {
        if (!eglBindAPI(EGL_OPENGL_API) || !PickConfig(dc)) {
            SetLastError(NoConfig);
            return false;
        }
        dc->configChosen = true;
    }
    if (!MakeSurface(dc)) {
        SetLastError(NoSurface);
        return false;
    }
    return true;
}

HGLRC TezGLPlatform::CreateContext(HDC dc, ContextAttributes const& attributes, HGLRC share)
{
    if (!dc || !dc->configChosen) {
        SetLastError(NoConfig);
        return nullptr;
    }
    EGLDisplay display = dc->display->display;
    EGLint list[16];
    int n = 0;
    if (attributes.major > 0) {
        if (dc->display->version < 15 && !HasDisplayExtension(dc, "EGL_KHR_create_context")) {
            SetLastError(NoCreateContextExtension);
            return nullptr;
        }
        list[n++] = EGL_CONTEXT_MAJOR_VERSION;
        list[n++] = attributes.major;
        list[n++] = EGL_CONTEXT_MINOR_VERSION;
        list[n++] = attributes.minor;
        list[n++] = EGL_CONTEXT_OPENGL_PROFILE_MASK;
        list[n++] =
            attributes.coreProfile ? EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT : EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT;
        if (attributes.forwardCompatible) {
            list[n++] = EGL_CONTEXT_OPENGL_FORWARD_COMPATIBLE;
            list[n++] = EGL_TRUE;
        }
    }
    list[n] = EGL_NONE;
    eglBindAPI(EGL_OPENGL_API);
    EGLContext context = eglCreateContext(display, dc->config, share ? share->context : EGL_NO_CONTEXT, list);
    if (context == EGL_NO_CONTEXT) {
        SetLastError(NoContext);
        return nullptr;
    }
    HGLRC handle = new TezRenderContextHandle();
    handle->display = display;
    handle->context = context;
    return handle;
}

void TezGLPlatform::DestroyContext(HGLRC context)
{
    if (!context)
        return;
    if (eglGetCurrentContext() == context->context)
        eglMakeCurrent(context->display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (t_current == context)
        t_current = nullptr;
    eglDestroyContext(context->display, context->context);
    delete context;
}

bool TezGLPlatform::MakeCurrent(HDC dc, HGLRC context)
{
    if (!context) {
        t_current = nullptr;
        EGLDisplay display = eglGetCurrentDisplay();
        if (display == EGL_NO_DISPLAY)
            return true;
        return eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT) == EGL_TRUE;
    }
    EGLSurface surface = EGL_NO_SURFACE;
    if (dc) {
        // A device context nobody chose a config for gets the one every
        // device context gets, and an off-screen window resized since the
        // last bind gets its new surface, here where the context needs them.
        if (dc->window && !ChooseConfig(dc))
            return false;
        surface = dc->surface;
    }
    if (eglMakeCurrent(context->display, surface, surface, context->context) != EGL_TRUE)
        return false;
    t_current = context;
    return true;
}

HGLRC TezGLPlatform::GetCurrentContext()
{
    // Someone may have bound another context behind our back.
    if (t_current && eglGetCurrentContext() != t_current->context)
        t_current = nullptr;
    return t_current;
}

bool TezGLPlatform::SwapBuffers(HDC dc)
{
    if (!dc || dc->surface == EGL_NO_SURFACE)
        return dc != nullptr;
    if (dc->window && dc->window->offscreen)
        return true;
    return eglSwapBuffers(dc->display->display, dc->surface) == EGL_TRUE;
}

bool TezGLPlatform::HasDisplayExtension(HDC dc, char const* name)
{
    return dc && HasWord(eglQueryString(dc->display->display, EGL_EXTENSIONS), name);
}

int TezGLPlatform::GetEGLVersion(HDC dc) { return dc ? dc->display->version : 0; }

char const* TezGLPlatform::GetPlatformName(HDC dc) { return dc ? dc->display->platformName : ""; }

void* TezGLPlatform::GetProcAddress(char const* name) { return reinterpret_cast<void*>(eglGetProcAddress(name)); }
