#include "render/views/RenderView.h"

#include "core/Application.h"
#include "core/Threads.h"
#include "math/IdColor.h"
#include "math/Matrix.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/gl/OpenGLSupport.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"
#include "render/scene/SceneObject.h"
#include "render/views/ImageExport.h"

#include <GL/glew.h>

#include <cstring>
#include <stdexcept>
#include <string>

TEZ_DEFINE_REF_FUNCTIONS(TezRenderView)

namespace {

TezRenderView::ToolManagerHooks g_toolHooks;

// Paints its view on every redraw request, unless the render thread does.
// The view removes the subscription before it dies, so the plain pointer
// never dangles.
class TezRenderViewRequestRedrawHandler : public TezEventHandler
{
public:
    explicit TezRenderViewRequestRedrawHandler(TezRenderView* view) : m_view(view) {}
    void Handle(TezRef<TezEvent>) override
    {
        if (!m_view->IsContinuousRender())
            m_view->Paint();
    }

private:
    TezRenderView* m_view;
};

} // namespace

void TezRenderView::SetToolManagerHooks(ToolManagerHooks const& hooks) { g_toolHooks = hooks; }

TezRenderView::TezRenderView() : m_backgroundColor(0.5f, 0.5f, 0.5f, 1.0f)
{
    m_camera = TezCameraView::Create();
    m_redrawHandlerId = TezEventKey();
    if (g_toolHooks.create)
        m_toolManager = g_toolHooks.create(this);
    m_startCounter = TezTimer::TimeNow();
    m_counterFrequency = TezTimer::GetTimerFrequency();
}

TezRenderView::~TezRenderView()
{
    if (m_redrawHandlerId.sequence != 0) {
        TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
        if (events)
            events->Unsubscribe(m_redrawHandlerId);
    }
    m_camera = nullptr;
    if (m_toolManager && g_toolHooks.end)
        g_toolHooks.end(m_toolManager.Get());
    m_toolManager = nullptr;
    if (m_deviceContext)
        TezGLPlatform::ReleaseDC(m_window, m_deviceContext);
    if (m_ownsWindow)
        TezGLPlatform::DestroyWindow(m_window);
}

bool TezRenderView::Initialize(HWND window, unsigned width, unsigned height)
{
    // A second Initialize starts over rather than leaking the first one's
    // device context and subscription.
    if (m_deviceContext)
        TezGLPlatform::ReleaseDC(m_window, m_deviceContext);
    m_window = window;
    m_deviceContext = TezGLPlatform::GetDC(window);
    bool const pixelFormat = m_deviceContext && TezOpenGLSupport::TezSetPixelFormat(m_deviceContext);
    TezApplication* app = TezApplication::Instance();
    m_renderContext = app ? app->GetRenderContext() : nullptr;
    m_camera->Resize(static_cast<int>(width), static_cast<int>(height));

    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events) {
        if (m_redrawHandlerId.sequence != 0)
            events->Unsubscribe(m_redrawHandlerId);
        m_redrawHandlerId = events->Subscribe(TezEventRequestRedraw::Create(),
                                              TezRef<TezEventHandler>(new TezRenderViewRequestRedrawHandler(this)));
    }
    return pixelFormat;
}

bool TezRenderView::Resize(unsigned width, unsigned height)
{
    m_camera->Resize(static_cast<int>(width), static_cast<int>(height));
    // A host's window already has its new size; an off-screen one is ours to
    // follow. Its surface is made anew at the next bind.
    if (m_window && width > 0 && height > 0)
        TezGLPlatform::ResizeOffscreenWindow(m_window, static_cast<int>(width), static_cast<int>(height));
    return true;
}

bool TezRenderView::ActivateContext() const
{
    bool const bound = TezGLPlatform::MakeCurrent(m_deviceContext, m_renderContext);
    if (bound)
        glViewport(0, 0, m_camera->GetWidth(), m_camera->GetHeight());
    return bound;
}

void TezRenderView::DeactivateContext() const { TezGLPlatform::MakeCurrent(nullptr, nullptr); }

bool TezRenderView::BeginPaint()
{
    bool const active = ActivateContext();
    glClearColor(m_backgroundColor.x, m_backgroundColor.y, m_backgroundColor.z, m_backgroundColor.w);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    return active;
}

bool TezRenderView::EndPaint()
{
    TezGLPlatform::SwapBuffers(m_deviceContext);
    DeactivateContext();
    return true;
}

bool TezRenderView::Paint()
{
    bool const begin = BeginPaint();
    bool const drawn = PaintLo();
    bool const end = EndPaint();
    return begin && drawn && end;
}

bool TezRenderView::PaintLo()
{
    if (!m_scene)
        return true;
    // Without a context, objects would "build" into nothing and clear their
    // build flags, and draw nothing after: leave them for a frame that can
    // draw.
    if (!TezGLPlatform::GetCurrentContext())
        return false;
    TezSceneDrawData data;
    data.SetRenderView(this);
    bool result = m_scene->Draw(data);

    data.SetTransparent();
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glDisable(GL_DEPTH_TEST);
    result = m_scene->Draw(data) && result;
    glDisable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);

    glClear(GL_DEPTH_BUFFER_BIT);
    TezSceneDrawData overlay;
    overlay.SetRenderView(this);
    overlay.SetOverlay();
    result = m_scene->Draw(overlay) && result;
    return result;
}

bool TezRenderView::Map()
{
    bool const active = ActivateContext();
    glDisable(GL_MULTISAMPLE);
    glClearColor(0.0f, 0.0f, 0.0f, 0.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    TezSceneDrawData data;
    data.SetRenderView(this);
    data.SetMapping();
    bool const draw = m_scene && TezGLPlatform::GetCurrentContext();
    if (draw)
        m_scene->Draw(data);
    glClear(GL_DEPTH_BUFFER_BIT);
    data.SetOverlay();
    if (draw)
        m_scene->Draw(data);
    glEnable(GL_MULTISAMPLE);
    // Picks follow at once: the frame must be complete before they read it.
    glFinish();
    DeactivateContext();
    return active;
}

unsigned long TezRenderView::Pick(TezVector2<int> const& point) const
{
    ActivateContext();
    TezVector4<unsigned char> color(0, 0, 0, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(point.x, point.y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, &color.x);
    unsigned long const id = TezIdFromColor(color);
    DeactivateContext();
    return id;
}

std::vector<unsigned long> TezRenderView::Pick(TezVector2<int> const& corner, TezVector2<int> const& opposite) const
{
    std::vector<unsigned long> ids;
    int const width = opposite.x - corner.x + 1;
    int const height = opposite.y - corner.y + 1;
    if (width < 1 || height < 1)
        return ids;
    std::vector<unsigned char> rgba(static_cast<size_t>(width) * static_cast<size_t>(height) * 4, 0);
    ActivateContext();
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(corner.x, corner.y, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
    DeactivateContext();
    for (size_t i = 0; i < rgba.size(); i += 4) {
        uint32_t const id = TezIdFromColor(TezVector4<unsigned char>(rgba[i], rgba[i + 1], rgba[i + 2], rgba[i + 3]));
        if (id != 0)
            ids.push_back(id);
    }
    return ids;
}

bool TezRenderView::ExportImage(void* buffer, int stride)
{
    int const width = m_camera->GetWidth(), height = m_camera->GetHeight();
    if (!buffer)
        throw std::runtime_error("TezRenderView::ExportImage: null buffer");
    if (width < 1 || height < 1 || stride < width * 3)
        throw std::runtime_error("TezRenderView::ExportImage: stride " + std::to_string(stride) +
                                 " cannot hold a row of " + std::to_string(width) + " pixels");
    Paint();
    bool const begin = BeginPaint();
    bool const drawn = PaintLo();
    // Read before the swap: a window's back buffer is undefined after it
    // (an off-screen surface keeps its pixels either way).
    size_t const rowBytes = static_cast<size_t>(width) * 3;
    std::vector<unsigned char> pixels(rowBytes * static_cast<size_t>(height));
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width, height, GL_BGR, GL_UNSIGNED_BYTE, pixels.data());
    TezGLPlatform::SwapBuffers(m_deviceContext);
    unsigned char* rows = static_cast<unsigned char*>(buffer);
    for (int y = 0; y < height; ++y)
        std::memcpy(rows + static_cast<size_t>(y) * stride, pixels.data() + rowBytes * y, rowBytes);

    // GL's rows run bottom up: swap row i with row height - 1 - i, leaving
    // the middle row of an odd height where it is.
    std::vector<unsigned char> scratch(static_cast<size_t>(stride));
    for (int i = 0; i < height / 2; ++i) {
        unsigned char* top = rows + static_cast<size_t>(i) * stride;
        unsigned char* bottom = rows + static_cast<size_t>(height - 1 - i) * stride;
        std::memcpy(scratch.data(), top, stride);
        std::memcpy(top, bottom, stride);
        std::memcpy(bottom, scratch.data(), stride);
    }
    DeactivateContext();
    bool const end = EndPaint();
    return begin && drawn && end;
}

bool TezRenderView::ExportImageToFile(TezString const& name)
{
    int const width = m_camera->GetWidth(), height = m_camera->GetHeight();
    if (width < 1 || height < 1)
        return true;
    // Rows padded to four bytes, as bitmaps keep them.
    int const stride = (width * 3 + 3) & ~3;
    std::vector<unsigned char> pixels(static_cast<size_t>(stride) * static_cast<size_t>(height));
    ExportImage(pixels.data(), stride);
    TezImageExport::SaveBitmap(name, pixels.data(), width, height, stride);
    return true;
}

TezBox3<float> TezRenderView::GetBounds(bool includeAll)
{
    return m_scene ? m_scene->GetBounds(includeAll) : TezBox3<float>();
}

TezRef<TezRefCounter> TezRenderView::GetToolManager() { return m_toolManager; }

TezRef<TezRefCounter> TezRenderView::GetActiveTool()
{
    if (!m_toolManager || !g_toolHooks.activeTool)
        return nullptr;
    return g_toolHooks.activeTool(m_toolManager.Get());
}

bool TezRenderView::PreReset()
{
    TezGLPlatform::ReleaseDC(m_window, m_deviceContext);
    m_deviceContext = nullptr;
    return true;
}

bool TezRenderView::PostReset()
{
    m_deviceContext = TezGLPlatform::GetDC(m_window);
    return true;
}

void TezRenderView::CalcStandardView(int view, float fov, TezVector3<float>& eye, TezVector3<float>& focus,
                                     TezVector3<float>& up)
{
    m_camera->CalcStandardView(GetBounds(false), TezIdentityTransform<float>(), view, fov, eye, focus, up);
}

void TezRenderView::CalcStandardViewOfObject(int view, TezRef<TezSceneObject> object, float fov, TezVector3<float>& eye,
                                             TezVector3<float>& focus, TezVector3<float>& up)
{
    if (!object)
        throw std::runtime_error("TezRenderView::CalcStandardViewOfObject: no object");
    m_camera->CalcStandardView(object->GetBounds(false), object->GetWorldMatrix(), view, fov, eye, focus, up);
}

void TezRenderView::CalcZoomAll(TezVector3<float> const& from, TezVector3<float> const& to, TezVector3<float> const& up,
                                float fov, TezVector3<float>& eye, TezVector3<float>& focus)
{
    m_camera->CalcZoomAll(GetBounds(false), from, to, up, fov, eye, focus);
}

void TezRenderView::CalcZoomAllOfObject(TezRef<TezSceneObject> object, TezVector3<float> const& from,
                                        TezVector3<float> const& to, TezVector3<float> const& up, float fov,
                                        TezVector3<float>& eye, TezVector3<float>& focus)
{
    if (!object)
        throw std::runtime_error("TezRenderView::CalcZoomAllOfObject: no object");
    m_camera->CalcZoomAll(object->GetBounds(false), from, to, up, fov, eye, focus);
}

bool TezRenderView::IsContinuousRender() const
{
    TezRef<TezRenderViewManager> manager = TezRenderViewManager::GetAppRenderViewManager();
    return manager && manager->IsContinuousRender();
}

HDC TezRenderView::GetDC() const { return TezGLPlatform::GetDC(m_window); }

void TezRenderView::ReleaseDC(HDC dc) const { TezGLPlatform::ReleaseDC(m_window, dc); }
