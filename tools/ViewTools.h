#pragma once
// The view tools: pointer motion turned into camera motion. Each exists
// twice: as a modal tool driven by the left button, and as static functions
// that the tool manager calls for its own gestures (middle button, right
// button, wheel, first-modifier left drag) with no tool on the stack.
//
// Rotate, pan and zoom move the camera directly and leave no undo step; the
// camera's near and far are refitted to the view's bounds (all objects,
// NoBounds ones included) and the view repaints at once unless the render
// thread paints continuously. A rotate that moves the camera not at all
// (a drag along one axis only, see TezCameraView::RotateView) paints
// nothing. The zoom window narrows the field of view to the dragged
// rectangle through a TezCmdMoveFocus run on the active document's focus
// command manager, so one undo takes it back; a window under 3 pixels on an
// axis is a click and asks the UI manager to zoom all. The modal tools raise
// the camera's dynamic flag for the length of their gesture.

#include "tools/Tool.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneRectangle)

class TEZ_API TezToolRotateView : public TezTool
{
public:
    static TezRef<TezToolRotateView> Create();
    // The camera's rotate gesture from (lastX, lastY) to (x, y); true when
    // the camera moved.
    static bool RotateView(TezRef<TezRenderView> view, int x, int y, int lastX, int lastY, bool first, bool second);

    void Start() override;
    void Stop() override;
    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseDrag(int x, int y, bool first, bool second) override;
    bool OnMouseUp(int x, int y, bool first, bool second) override;

protected:
    TezToolRotateView() = default;

private:
    int32_t m_lastX = 0, m_lastY = 0;
};

class TEZ_API TezToolPanView : public TezTool
{
public:
    static TezRef<TezToolPanView> Create();
    // Moves eye and focus by (dx, dy) pixels; always paints.
    static void PanView(TezRef<TezRenderView> view, int dx, int dy, bool first);

    void Start() override;
    void Stop() override;
    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseDrag(int x, int y, bool first, bool second) override;
    bool OnMouseUp(int x, int y, bool first, bool second) override;

protected:
    TezToolPanView() = default;

private:
    int32_t m_lastX = 0, m_lastY = 0;
};

class TEZ_API TezToolZoomView : public TezTool
{
public:
    static TezRef<TezToolZoomView> Create();
    // The eye moves along the sight by distance x delta / view height: a
    // positive delta moves it away, a negative one nearer.
    static void ZoomView(TezRef<TezRenderView> view, float delta);

    void Start() override;
    void Stop() override;
    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    // Only the vertical motion counts: dragging up moves the eye away.
    bool OnMouseDrag(int x, int y, bool first, bool second) override;
    bool OnMouseUp(int x, int y, bool first, bool second) override;
    bool OnMouseWheel(int delta, bool first, bool second) override;

protected:
    TezToolZoomView() = default;

private:
    int32_t m_lastX = 0, m_lastY = 0;
};

class TEZ_API TezToolZoomWindow : public TezTool
{
public:
    static TezRef<TezToolZoomWindow> Create();
    // A hidden rubber band, as the manager and this tool make theirs.
    static TezRef<TezSceneRectangle> CreateRectangle();
    // Hangs the rectangle under the scene's root.
    static void StartZoomWindow(TezRef<TezRenderView> view, TezRef<TezSceneRectangle> rectangle, int x, int y);
    // Shows the rectangle from the press (x0, y0) to the pointer (x, y).
    static void DragZoomWindow(TezRef<TezRenderView> view, TezRef<TezSceneRectangle> rectangle, int x, int y, int x0,
                               int y0);
    // Removes the rectangle and zooms to it (or zooms all for a click).
    static void StopZoomWindow(TezRef<TezRenderView> view, TezRef<TezSceneRectangle> rectangle, int x, int y, int x0,
                               int y0);

    ~TezToolZoomWindow() override;
    void Start() override;
    void Stop() override;
    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseDrag(int x, int y, bool first, bool second) override;
    bool OnMouseUp(int x, int y, bool first, bool second) override;

protected:
    TezToolZoomWindow();

private:
    int32_t m_lastX = 0, m_lastY = 0;
    TezRef<TezSceneRectangle> m_rectangle;
};
