#include "tools/ToolManager.h"

#include "core/UIManager.h"
#include "render/CameraView.h"
#include "render/objects/SceneRectangle.h"
#include "render/views/RenderView.h"
#include "tools/ViewTools.h"

#include <cstdlib>

TEZ_DEFINE_REF_FUNCTIONS(TezToolManager)

namespace {

// The render layer knows the tools only as counted objects: it is handed
// these at load, before any view exists.
struct HookRegistration
{
    HookRegistration()
    {
        TezRenderView::ToolManagerHooks hooks;
        hooks.create = [](TezRenderView* view) { return TezRef<TezRefCounter>(TezToolManager::Create(view)); };
        hooks.end = [](TezRefCounter* manager) {
            if (auto* tools = dynamic_cast<TezToolManager*>(manager))
                tools->End();
        };
        hooks.activeTool = [](TezRefCounter* manager) {
            auto* tools = dynamic_cast<TezToolManager*>(manager);
            return tools ? TezRef<TezRefCounter>(tools->GetActiveTool()) : nullptr;
        };
        TezRenderView::SetToolManagerHooks(hooks);
    }
};

HookRegistration const g_hooks;

} // namespace

TezRef<TezToolManager> TezToolManager::Create(TezRenderView* view)
{
    return TezRef<TezToolManager>(new TezToolManager(view));
}

TezRef<TezToolManager> TezToolManager::Of(TezRenderView* view)
{
    return view ? TezRef<TezToolManager>(view->GetToolManager()) : nullptr;
}

TezToolManager::TezToolManager(TezRenderView* view)
    : m_renderView(view), m_zoomRectangle(TezToolZoomWindow::CreateRectangle())
{
}

TezToolManager::~TezToolManager() { End(); }

void TezToolManager::End()
{
    ClearAllTools();
    m_capturedTool = nullptr;
    for (TezRef<TezTool> const& tool : m_pickTools) {
        tool->Stop();
        tool->SetToolManager(nullptr);
    }
    m_pickTools.clear();
    m_renderView = nullptr;
}

TezRef<TezTool> TezToolManager::PopTool()
{
    TezRef<TezTool> popped = m_activeTool;
    if (!popped)
        return nullptr;
    popped->Stop();
    m_activeTool = popped->GetNext();
    popped->SetNext(nullptr);
    popped->SetToolManager(nullptr);
    if (m_activeTool)
        m_activeTool->Start();
    return popped;
}

void TezToolManager::PushTool(TezRef<TezTool> tool)
{
    if (!tool)
        return;
    if (m_activeTool)
        m_activeTool->Stop();
    tool->SetNext(m_activeTool);
    tool->SetToolManager(this);
    tool->Start();
    m_activeTool = tool;
}

void TezToolManager::ClearAllTools()
{
    while (PopTool()) {
    }
}

void TezToolManager::AddPickTool(TezRef<TezTool> tool)
{
    if (!tool)
        return;
    m_pickTools.insert(tool);
    tool->SetToolManager(this);
    tool->Start();
}

void TezToolManager::RemovePickTool(TezRef<TezTool> tool)
{
    if (m_pickTools.erase(tool) > 0)
        tool->Stop();
}

bool TezToolManager::IsPickTool(TezRef<TezTool> tool) { return m_pickTools.count(tool) > 0; }

void TezToolManager::SetCursor(TezResourceManager::Cursors cursor)
{
    if (TezRef<TezUIManager> ui = TezUIManager::GetAppUIManager())
        ui->SetCursor(cursor);
}

unsigned long TezToolManager::PickAt(int x, int y)
{
    if (!m_renderView)
        return 0;
    m_renderView->Map();
    // The host counts y down from the top, GL up from the bottom.
    return m_renderView->Pick(TezVector2<int>(x, m_renderView->GetCamera()->GetHeight() - y));
}

bool TezToolManager::Press(int x, int y, bool first, bool second,
                           bool (TezTool::*handler)(int, int, unsigned long, bool, bool))
{
    m_downX = m_lastX = x;
    m_downY = m_lastY = y;
    m_dragging = false;
    m_zoomWindowActive = false;
    m_rotateCursor = 0;
    unsigned long const id = PickAt(x, y);
    m_lastPickedId = id;
    m_capturedTool = nullptr;
    // A copy: a tool may add or remove pick tools while it is told.
    std::set<TezRef<TezTool>> const pickTools = m_pickTools;
    for (TezRef<TezTool> const& tool : pickTools)
        if (((*tool).*handler)(x, y, id, first, second)) {
            m_capturedTool = tool;
            return true;
        }
    if (TezRef<TezTool> active = m_activeTool)
        return ((*active).*handler)(x, y, id, first, second);
    return false;
}

void TezToolManager::OnMouseDown(int x, int y, bool first, bool second)
{
    if (Press(x, y, first, second, &TezTool::OnMouseDown) || !first)
        return;
    SetCursor(TezResourceManager::CursorZoomWindow);
    TezToolZoomWindow::StartZoomWindow(m_renderView, m_zoomRectangle, x, y);
    m_zoomWindowActive = true;
}

void TezToolManager::OnMouseMiddleDown(int x, int y, bool first, bool second)
{
    Press(x, y, first, second, &TezTool::OnMouseMiddleDown);
}

void TezToolManager::OnMouseRightDown(int x, int y, bool first, bool second)
{
    Press(x, y, first, second, &TezTool::OnMouseRightDown);
}

bool TezToolManager::UpdateDragging(int x, int y)
{
    if (!m_dragging && (std::abs(m_downX - x) >= DragThreshold || std::abs(m_downY - y) >= DragThreshold)) {
        m_dragging = true;
        return true;
    }
    return false;
}

void TezToolManager::OnMouseDrag(int x, int y, bool first, bool second)
{
    UpdateDragging(x, y);
    if (m_capturedTool)
        m_capturedTool->OnMouseDrag(x, y, first, second);
    else if (m_zoomWindowActive)
        TezToolZoomWindow::DragZoomWindow(m_renderView, m_zoomRectangle, x, y, m_downX, m_downY);
    else if (TezRef<TezTool> active = m_activeTool)
        active->OnMouseDrag(x, y, first, second);
}

void TezToolManager::OnMouseMiddleDrag(int x, int y, bool first, bool second)
{
    bool const wasDragging = m_dragging;
    UpdateDragging(x, y);
    if (!m_dragging)
        return;
    UpdateRotateCursor(first, second, wasDragging);
    TezToolRotateView::RotateView(m_renderView, x, y, m_lastX, m_lastY, first, second);
    m_lastX = x;
    m_lastY = y;
}

void TezToolManager::OnMouseRightDrag(int x, int y, bool first, bool second)
{
    if (UpdateDragging(x, y))
        SetCursor(TezResourceManager::CursorPan);
    if (!m_dragging)
        return;
    TezToolPanView::PanView(m_renderView, m_lastX - x, m_lastY - y, first);
    m_lastX = x;
    m_lastY = y;
}

void TezToolManager::UpdateRotateCursor(bool first, bool second, bool state)
{
    int const cursor = first && second ? TezResourceManager::CursorRotateX
                       : second        ? TezResourceManager::CursorRotateY
                       : first         ? TezResourceManager::CursorRotateZ
                                       : TezResourceManager::CursorOrbit;
    if (cursor == m_rotateCursor && state == m_rotateCursorDragging)
        return;
    SetCursor(static_cast<TezResourceManager::Cursors>(cursor));
    m_rotateCursor = cursor;
    m_rotateCursorDragging = state;
}

void TezToolManager::Release(int x, int y, bool first, bool second, bool (TezTool::*handler)(int, int, bool, bool),
                             bool zoomWindow)
{
    if (!m_dragging && !m_capturedTool) {
        std::set<TezRef<TezTool>> const pickTools = m_pickTools;
        for (TezRef<TezTool> const& tool : pickTools)
            if (((*tool).*handler)(x, y, first, second))
                return;
    }
    if (m_capturedTool) {
        TezRef<TezTool> captured = m_capturedTool;
        ((*captured).*handler)(x, y, first, second);
        m_capturedTool = nullptr;
    } else if (zoomWindow && m_zoomWindowActive) {
        m_zoomWindowActive = false;
        TezToolZoomWindow::StopZoomWindow(m_renderView, m_zoomRectangle, x, y, m_downX, m_downY);
    } else if (TezRef<TezTool> active = m_activeTool) {
        ((*active).*handler)(x, y, first, second);
    }
    SetCursor(static_cast<TezResourceManager::Cursors>(0));
    m_dragging = false;
}

void TezToolManager::OnMouseUp(int x, int y, bool first, bool second)
{
    Release(x, y, first, second, &TezTool::OnMouseUp, true);
}

void TezToolManager::OnMouseMiddleUp(int x, int y, bool first, bool second)
{
    Release(x, y, first, second, &TezTool::OnMouseMiddleUp, false);
}

void TezToolManager::OnMouseRightUp(int x, int y, bool first, bool second)
{
    Release(x, y, first, second, &TezTool::OnMouseRightUp, false);
}

void TezToolManager::OnMouseDblClick(int x, int y, bool first, bool second)
{
    std::set<TezRef<TezTool>> const pickTools = m_pickTools;
    for (TezRef<TezTool> const& tool : pickTools)
        if (tool->OnMouseDblClick(x, y, first, second)) {
            m_capturedTool = nullptr;
            return;
        }
    if (TezRef<TezTool> active = m_activeTool)
        active->OnMouseDblClick(x, y, first, second);
}

void TezToolManager::OnMouseMove(int x, int y, bool first, bool second)
{
    std::set<TezRef<TezTool>> const pickTools = m_pickTools;
    TezRef<TezTool> active = m_activeTool;
    // Everyone is asked: a tool may track the pointer as it answers.
    bool wanted = false;
    for (TezRef<TezTool> const& tool : pickTools)
        wanted = tool->IsMouseMoveMapRequired(x, y, first, second) || wanted;
    if (active)
        wanted = active->IsMouseMoveMapRequired(x, y, first, second) || wanted;
    unsigned long const id = wanted ? PickAt(x, y) : 0;
    for (TezRef<TezTool> const& tool : pickTools)
        tool->OnMouseMove(x, y, id, first, second);
    if (active)
        active->OnMouseMove(x, y, id, first, second);
}

bool TezToolManager::OnMouseWheel(int delta, bool first, bool second)
{
    std::set<TezRef<TezTool>> const pickTools = m_pickTools;
    for (TezRef<TezTool> const& tool : pickTools)
        if (tool->OnMouseWheel(delta, first, second))
            return true;
    if (TezRef<TezTool> active = m_activeTool)
        if (active->OnMouseWheel(delta, first, second))
            return true;
    TezToolZoomView::ZoomView(m_renderView, static_cast<float>(-delta));
    return true;
}

bool TezToolManager::OnKeyDown(int key, bool first, bool second)
{
    std::set<TezRef<TezTool>> const pickTools = m_pickTools;
    for (TezRef<TezTool> const& tool : pickTools)
        if (tool->OnKeyDown(key, first, second))
            return true;
    TezRef<TezTool> active = m_activeTool;
    return active && active->OnKeyDown(key, first, second);
}

void TezToolManager::OnModifierKeyChange(bool first, bool second, bool third)
{
    if ((m_rotateCursor != 0 && m_dragging) || m_rotateMode)
        UpdateRotateCursor(first, second, m_dragging);
    if (m_capturedTool) {
        m_capturedTool->OnModifierKeyChange(first, second, third);
    } else if (!m_dragging) {
        std::set<TezRef<TezTool>> const pickTools = m_pickTools;
        for (TezRef<TezTool> const& tool : pickTools)
            tool->OnModifierKeyChange(first, second, third);
    }
}

void TezToolManager::SetRotateMode(bool on)
{
    m_rotateMode = on;
    m_rotateCursor = on ? TezResourceManager::CursorOrbit : 0;
}
