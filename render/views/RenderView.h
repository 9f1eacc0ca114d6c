#pragma once
// TezRenderView: binds a window, the application's one GL context, a camera,
// a scene and a tool manager, and paints one frame on request.
//
// A frame (Paint) is BeginPaint (bind the context on this thread, clear to
// the background colour, depth test on), PaintLo, EndPaint (swap, unbind).
// PaintLo draws the scene three times: the plain pass; the transparent pass
// (objects with Transparent on, blended, depth test OFF); and, over a cleared
// depth buffer, the overlay pass (objects with Overlay on). Objects marked
// transparent or overlay also draw in the plain pass.
//
// The context is bound for the length of one paint, map or pick and unbound
// at its end: ActivateContext/DeactivateContext are how the one context is
// handed between threads and views. Whatever context the calling thread had
// bound before is NOT restored. Two threads must never paint at once; with
// the render thread running, hold it with PauseContinuousRender(true) first.
//
// Picking: Map draws every Mappable object in its id colour into the back
// buffer (never swapped); Pick reads ids back, y counting up from the
// bottom, 0 for nothing. Picks read whatever the buffer holds: run Map just
// before.
//
// Redraw requests (TezRequestRedraw) paint every initialised view at once on
// the requesting thread, unless the render thread paints continuously.
//
// On this platform the window is one of platform/gl: an off-screen window
// (a pbuffer of its size) or a host's X11 window. Failures of the context
// answer false; the view never throws from painting. ExportImage refuses a
// null buffer or a stride below three bytes a pixel with std::runtime_error.

#include "core/Events.h"
#include "core/RefCounter.h"
#include "core/String.h"
#include "math/Box.h"
#include "math/Vector.h"
#include "platform/Handles.h"

#include <cstdint>
#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezRenderView)
TEZ_DECLARE_REF_FUNCTIONS(TezCameraView)
TEZ_DECLARE_REF_FUNCTIONS(TezScene)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneObject)

class TEZ_API TezRenderView : public TezRefCounter
{
public:
    // The tools live above the render layer, so the view knows its tool
    // manager and tools only as counted objects (the tools layer casts them
    // back with TezRef's checked cast). The tools layer hands the views how
    // to make a view's tool manager (which must keep the view as a plain
    // pointer: the view owns it), how to end one, and how to ask for its
    // current tool. Without hooks a view has no tool manager.
    struct ToolManagerHooks
    {
        TezRef<TezRefCounter> (*create)(TezRenderView* view) = nullptr;
        void (*end)(TezRefCounter* manager) = nullptr;
        TezRef<TezRefCounter> (*activeTool)(TezRefCounter* manager) = nullptr;
    };
    static void SetToolManagerHooks(ToolManagerHooks const& hooks);

    ~TezRenderView() override;

    // Takes the window's device context, sets its pixel format, takes the
    // application's render context, sizes the camera and listens for redraw
    // requests. False when the device context or its pixel format fails.
    virtual bool Initialize(HWND window, unsigned width, unsigned height);
    // Sizes the camera (and an off-screen window's surface); true.
    virtual bool Resize(unsigned width, unsigned height);
    // BeginPaint, PaintLo, EndPaint, results joined by AND; drawing runs
    // even when the context could not be bound.
    virtual bool Paint();
    // The three passes, no clear and no swap; true with no scene.
    virtual bool PaintLo();
    // Paints, paints again and reads the frame into `buffer` as rows of
    // blue-green-red bytes, `stride` bytes apart, the top row first.
    virtual bool ExportImage(void* buffer, int stride);
    // The scene's bounds; empty without a scene.
    virtual TezBox3<float> GetBounds(bool includeAll);
    virtual TezRef<TezRefCounter> GetToolManager();
    // Let go of the device context before a reset, take it again after.
    virtual bool PreReset();
    virtual bool PostReset();

    bool ActivateContext() const;
    void DeactivateContext() const;
    bool BeginPaint();
    bool EndPaint();
    // The identity map for picking; false when the context could not be bound.
    bool Map();
    unsigned long Pick(TezVector2<int> const& point) const;
    // Ids of the block from corner (lower left) to opposite, both included,
    // in pixel order, one entry per pixel that holds one (ids repeat).
    std::vector<unsigned long> Pick(TezVector2<int> const& corner, TezVector2<int> const& opposite) const;
    // Saves the frame through FreeImage, the format by the extension (see
    // TezImageExport); true in all cases.
    bool ExportImageToFile(TezString const& name);

    // Eye, focus and up of standard view `view` (0 to 7, else
    // std::runtime_error) and the zoom-all fit, over the scene's bounds or
    // one object's (a null object is refused with std::runtime_error).
    void CalcStandardView(int view, float fov, TezVector3<float>& eye, TezVector3<float>& focus, TezVector3<float>& up);
    void CalcStandardViewOfObject(int view, TezRef<TezSceneObject> object, float fov, TezVector3<float>& eye,
                                  TezVector3<float>& focus, TezVector3<float>& up);
    void CalcZoomAll(TezVector3<float> const& from, TezVector3<float> const& to, TezVector3<float> const& up, float fov,
                     TezVector3<float>& eye, TezVector3<float>& focus);
    void CalcZoomAllOfObject(TezRef<TezSceneObject> object, TezVector3<float> const& from, TezVector3<float> const& to,
                             TezVector3<float> const& up, float fov, TezVector3<float>& eye, TezVector3<float>& focus);

    TezRef<TezRefCounter> GetActiveTool();
    // Whether the application's render thread paints by itself now.
    bool IsContinuousRender() const;
    TezRef<TezCameraView> GetCamera() const { return m_camera; }
    TezRef<TezScene> GetScene() const { return m_scene; }
    void SetScene(TezRef<TezScene> scene) { m_scene = scene; }
    TezVector4<float> GetBackgroundColor() const { return m_backgroundColor; }
    void SetBackgroundColor(TezVector4<float> const& color) { m_backgroundColor = color; }
    HGLRC GetRenderContext() const { return m_renderContext; }
    void SetRenderContext(HGLRC context) { m_renderContext = context; }
    // A device context of the window, counted: give it back with ReleaseDC.
    HDC GetDC() const;
    void ReleaseDC(HDC dc) const;
    HWND GetHWnd() const { return m_window; }
    TezString const& GetLabel() const { return m_label; }
    void SetLabel(TezString const& label) { m_label = label; }

    // Performance counter and its frequency when the view was made.
    int64_t GetStartCounter() const { return m_startCounter; }
    int64_t GetCounterFrequency() const { return m_counterFrequency; }
    bool IsInitialized() const { return m_redrawHandlerId.sequence != 0; }

protected:
    TezRenderView();

private:
    friend class TezRenderViewManager;

    HWND m_window = nullptr;
    HDC m_deviceContext = nullptr;
    HGLRC m_renderContext = nullptr;
    int64_t m_startCounter = 0;
    int64_t m_counterFrequency = 0;
    TezVector4<float> m_backgroundColor;
    TezRef<TezCameraView> m_camera;
    TezRef<TezScene> m_scene;
    TezRef<TezRefCounter> m_toolManager;
    TezString m_label;
    TezEventKey m_redrawHandlerId;
    // Set for the off-screen windows the view manager makes: the view
    // destroys them with itself.
    bool m_ownsWindow = false;
};
