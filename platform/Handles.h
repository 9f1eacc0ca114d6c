#pragma once
// Opaque handles of the host's rendering context, main window and the
// drawing surface bound to a window.
// The kernel only stores them, tests them for null and hands them on; what
// they point to is platform/gl's business: a window is a host's X11 window or
// an off-screen surface of a given size, a device context the EGL surface
// bound to it, a render context one EGL context.

struct TezRenderContextHandle;
struct TezWindowHandle;
struct TezDeviceContextHandle;

using HGLRC = TezRenderContextHandle*;
using HWND = TezWindowHandle*;
using HDC = TezDeviceContextHandle*;
