#pragma once
// Opaque handles of the host's rendering context and main window.
// The kernel only stores them, tests them for null and hands them on to the
// render view layer; what they point to is the platform layer's business
// (an EGL context, a GLFW window, ...).

struct TezRenderContextHandle;
struct TezWindowHandle;

using HGLRC = TezRenderContextHandle*;
using HWND = TezWindowHandle*;
