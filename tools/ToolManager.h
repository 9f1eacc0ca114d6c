#pragma once
// TezToolManager: receives the raw input of one render view from the host
// and hands it out.
//
// - A stack of modal tools: only the top one is active. Pushing stops the
//   tool beneath, popping starts it again.
// - A set of pick tools (ordered by pointer) that all see the input first;
//   the one that answers a press with true captures the gesture until the
//   release.
// - The gestures that need no tool: the middle button orbits, the right
//   button pans, the wheel zooms (a positive delta zooms in), and a left
//   drag with the first modifier draws a zoom window, which becomes one
//   undoable step on the document's focus command manager.
// - Before a press is handed on, the view's identity map is drawn and the
//   id under the pointer picked, so that each tool gets it as an argument.
//   Plain moves pick only when a tool asks (IsMouseMoveMapRequired).
//
// A drag is a drag once the pointer has moved 4 pixels on one axis from the
// press. Cursors are shown through the application's UI manager. Nothing
// here fails: with no scene the map still runs and the id is 0. All handlers
// run on the host's UI thread, and may paint on it; the render thread must
// not paint at the same time. The view owns its manager, which keeps the
// view as a plain pointer.

#include "core/RefCounter.h"
#include "core/ResourceManager.h"
#include "tools/Tool.h"

#include <set>

TEZ_DECLARE_REF_FUNCTIONS(TezSceneRectangle)

class TEZ_API TezToolManager : public TezRefCounter
{
public:
    static TezRef<TezToolManager> Create(TezRenderView* view);
    // The manager of a view; null for a view without one.
    static TezRef<TezToolManager> Of(TezRenderView* view);
    // Pixels on one axis from the press that make a drag.
    static constexpr int DragThreshold = 4;

    ~TezToolManager() override;

    virtual TezRef<TezTool> GetActiveTool() { return m_activeTool; }
    virtual std::set<TezRef<TezTool>> const& GetPickTools() { return m_pickTools; }
    // The popped tool, null when the stack was empty.
    virtual TezRef<TezTool> PopTool();
    // Null does nothing.
    virtual void PushTool(TezRef<TezTool> tool);
    virtual void ClearAllTools();
    virtual void AddPickTool(TezRef<TezTool> tool);
    virtual void RemovePickTool(TezRef<TezTool> tool);
    virtual bool IsPickTool(TezRef<TezTool> tool);

    virtual void OnMouseDown(int x, int y, bool first, bool second);
    virtual void OnMouseMiddleDown(int x, int y, bool first, bool second);
    virtual void OnMouseRightDown(int x, int y, bool first, bool second);
    virtual void OnMouseMove(int x, int y, bool first, bool second);
    virtual void OnMouseDrag(int x, int y, bool first, bool second);
    virtual void OnMouseMiddleDrag(int x, int y, bool first, bool second);
    virtual void OnMouseRightDrag(int x, int y, bool first, bool second);
    virtual void OnMouseUp(int x, int y, bool first, bool second);
    virtual void OnMouseMiddleUp(int x, int y, bool first, bool second);
    virtual void OnMouseRightUp(int x, int y, bool first, bool second);
    virtual void OnMouseDblClick(int x, int y, bool first, bool second);
    // Always true.
    virtual bool OnMouseWheel(int delta, bool first, bool second);
    virtual bool OnKeyDown(int key, bool first, bool second);
    virtual void OnModifierKeyChange(bool first, bool second, bool third);

    TezRenderView* GetRenderView() const { return m_renderView; }
    void SetRenderView(TezRenderView* view) { m_renderView = view; }
    void SetRotateMode(bool on);
    bool IsDragging() const { return m_dragging; }
    bool IsZoomWindowActive() const { return m_zoomWindowActive; }
    TezRef<TezSceneRectangle> GetZoomRectangle() const { return m_zoomRectangle; }
    // The id picked at the last press.
    unsigned long GetLastPickedId() const { return m_lastPickedId; }

    // What the view calls as it dies: every tool is stopped and let go, and
    // the view is forgotten.
    void End();

protected:
    explicit TezToolManager(TezRenderView* view);

private:
    unsigned long PickAt(int x, int y);
    // Steps 1 to 5 of a press: true when a tool took it.
    bool Press(int x, int y, bool first, bool second, bool (TezTool::*handler)(int, int, unsigned long, bool, bool));
    void Release(int x, int y, bool first, bool second, bool (TezTool::*handler)(int, int, bool, bool),
                 bool zoomWindow);
    bool UpdateDragging(int x, int y);
    void UpdateRotateCursor(bool first, bool second, bool state);
    void SetCursor(TezResourceManager::Cursors cursor);

    TezRef<TezTool> m_activeTool;
    std::set<TezRef<TezTool>> m_pickTools;
    TezRef<TezTool> m_capturedTool;
    TezRenderView* m_renderView = nullptr;
    int32_t m_lastX = 0, m_lastY = 0;
    int32_t m_downX = 0, m_downY = 0;
    bool m_dragging = false;
    int m_rotateCursor = 0;
    bool m_rotateCursorDragging = false;
    bool m_rotateMode = false;
    TezRef<TezSceneRectangle> m_zoomRectangle;
    bool m_zoomWindowActive = false;
    unsigned long m_lastPickedId = 0;
};
