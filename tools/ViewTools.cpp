#include "tools/ViewTools.h"

#include "core/UIManager.h"
#include "document/CommandManager.h"
#include "document/ViewCommands.h"
#include "math/Constants.h"
#include "render/CameraView.h"
#include "render/objects/SceneRectangle.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"
#include "tools/ToolManager.h"

#include <cmath>
#include <cstdlib>

namespace {

void SetToolCursor(int cursor)
{
    if (TezRef<TezUIManager> ui = TezUIManager::GetAppUIManager())
        ui->SetToolCursor(static_cast<TezResourceManager::Cursors>(cursor));
}

void PaintNow(TezRenderView* view)
{
    if (!view->IsContinuousRender())
        view->Paint();
}

void SetDynamic(TezRef<TezRenderView> const& view, bool on)
{
    if (view)
        view->GetCamera()->SetDynamic(on);
}

} // namespace

// ---- rotate ----

TezRef<TezToolRotateView> TezToolRotateView::Create() { return TezRef<TezToolRotateView>(new TezToolRotateView()); }

bool TezToolRotateView::RotateView(TezRef<TezRenderView> view, int x, int y, int lastX, int lastY, bool first,
                                   bool second)
{
    if (!view)
        return false;
    TezBox3<float> const box = view->GetBounds(true);
    bool const moved = view->GetCamera()->RotateView(box, x, y, lastX, lastY, first, second);
    if (moved)
        PaintNow(view.Get());
    return moved;
}

void TezToolRotateView::Start()
{
    SetToolCursor(TezResourceManager::CursorOrbit);
    if (TezToolManager* manager = GetToolManager())
        manager->SetRotateMode(true);
}

void TezToolRotateView::Stop()
{
    SetToolCursor(0);
    if (TezToolManager* manager = GetToolManager())
        manager->SetRotateMode(false);
}

bool TezToolRotateView::OnMouseDown(int x, int y, unsigned long, bool, bool)
{
    SetDynamic(GetRenderView(), true);
    m_lastX = x;
    m_lastY = y;
    return true;
}

bool TezToolRotateView::OnMouseDrag(int x, int y, bool first, bool second)
{
    RotateView(GetRenderView(), x, y, m_lastX, m_lastY, first, second);
    m_lastX = x;
    m_lastY = y;
    return true;
}

bool TezToolRotateView::OnMouseUp(int, int, bool, bool)
{
    SetDynamic(GetRenderView(), false);
    return false;
}

// ---- pan ----

TezRef<TezToolPanView> TezToolPanView::Create() { return TezRef<TezToolPanView>(new TezToolPanView()); }

void TezToolPanView::PanView(TezRef<TezRenderView> view, int dx, int dy, bool)
{
    if (!view)
        return;
    TezBox3<float> const box = view->GetBounds(true);
    view->GetCamera()->PanView(box, dx, dy);
    PaintNow(view.Get());
}

void TezToolPanView::Start() { SetToolCursor(TezResourceManager::CursorPan); }
void TezToolPanView::Stop() { SetToolCursor(0); }

bool TezToolPanView::OnMouseDown(int x, int y, unsigned long, bool, bool)
{
    SetDynamic(GetRenderView(), true);
    m_lastX = x;
    m_lastY = y;
    return true;
}

bool TezToolPanView::OnMouseDrag(int x, int y, bool first, bool)
{
    PanView(GetRenderView(), m_lastX - x, m_lastY - y, first);
    m_lastX = x;
    m_lastY = y;
    return true;
}

bool TezToolPanView::OnMouseUp(int, int, bool, bool)
{
    SetDynamic(GetRenderView(), false);
    return true;
}

// ---- zoom ----

TezRef<TezToolZoomView> TezToolZoomView::Create() { return TezRef<TezToolZoomView>(new TezToolZoomView()); }

void TezToolZoomView::ZoomView(TezRef<TezRenderView> view, float delta)
{
    if (!view)
        return;
    TezBox3<float> const box = view->GetBounds(true);
    view->GetCamera()->ZoomView(box, delta);
    PaintNow(view.Get());
}

void TezToolZoomView::Start() { SetToolCursor(TezResourceManager::CursorZoom); }
void TezToolZoomView::Stop() { SetToolCursor(0); }

bool TezToolZoomView::OnMouseDown(int x, int y, unsigned long, bool, bool)
{
    SetDynamic(GetRenderView(), true);
    m_lastX = x;
    m_lastY = y;
    return true;
}

bool TezToolZoomView::OnMouseDrag(int x, int y, bool, bool)
{
    ZoomView(GetRenderView(), static_cast<float>(m_lastY - y));
    m_lastX = x;
    m_lastY = y;
    return true;
}

bool TezToolZoomView::OnMouseUp(int, int, bool, bool)
{
    SetDynamic(GetRenderView(), false);
    return true;
}

bool TezToolZoomView::OnMouseWheel(int delta, bool, bool)
{
    ZoomView(GetRenderView(), static_cast<float>(-delta));
    return true;
}

// ---- zoom window ----

TezRef<TezToolZoomWindow> TezToolZoomWindow::Create() { return TezRef<TezToolZoomWindow>(new TezToolZoomWindow()); }

TezRef<TezSceneRectangle> TezToolZoomWindow::CreateRectangle()
{
    TezRef<TezSceneRectangle> rectangle = TezSceneRectangle::Create();
    rectangle->SetColor({1.0f, 1.0f, 0.3f, 1.0f});
    rectangle->SetProperty(TezSceneObject::Visible, false);
    return rectangle;
}

TezToolZoomWindow::TezToolZoomWindow() : m_rectangle(CreateRectangle()) {}

TezToolZoomWindow::~TezToolZoomWindow() = default;

void TezToolZoomWindow::StartZoomWindow(TezRef<TezRenderView> view, TezRef<TezSceneRectangle> rectangle, int, int)
{
    TezRef<TezScene> scene = view ? view->GetScene() : nullptr;
    if (scene && rectangle)
        scene->AddChild(scene->GetRoot(), rectangle);
}

void TezToolZoomWindow::DragZoomWindow(TezRef<TezRenderView> view, TezRef<TezSceneRectangle> rectangle, int x, int y,
                                       int x0, int y0)
{
    if (!view || !rectangle)
        return;
    TezRef<TezCameraView> camera = view->GetCamera();
    float const w = static_cast<float>(camera->GetWidth()), h = static_cast<float>(camera->GetHeight());
    TezBox2<float> box;
    box += (TezVector2<float>((w - x0) / w, (h - y0) / h));
    box += (TezVector2<float>((w - x) / w, (h - y) / h));
    rectangle->SetRectangle(box);
    rectangle->SetProperty(TezSceneObject::Visible, true);
    PaintNow(view.Get());
}

void TezToolZoomWindow::StopZoomWindow(TezRef<TezRenderView> view, TezRef<TezSceneRectangle> rectangle, int x, int y,
                                       int x0, int y0)
{
    if (!view)
        return;
    if (rectangle) {
        rectangle->SetProperty(TezSceneObject::Visible, false);
        if (TezRef<TezScene> scene = view->GetScene())
            scene->RemoveChild(rectangle);
    }
    if (std::abs(x - x0) < 3 || std::abs(y - y0) < 3) {
        if (TezRef<TezUIManager> ui = TezUIManager::GetAppUIManager())
            ui->ZoomAll();
        return;
    }
    TezRef<TezCameraView> camera = view->GetCamera();
    float const W = static_cast<float>(camera->GetWidth()), H = static_cast<float>(camera->GetHeight());
    float const aspect = W / H;
    // The rectangle's centre in the view, from -0.5 to 0.5 with x to the
    // left (the view's x axis), at the middle of its pixel.
    float const cx = (std::floor((2.0f * W - x - x0) / 2.0f) - std::floor(W / 2.0f) + 0.5f) / W;
    float const cy = (std::floor((2.0f * H - y - y0) / 2.0f) - std::floor(H / 2.0f) + 0.5f) / H;

    TezVector3<float> const eye = camera->GetEye(), focus = camera->GetFocus();
    float const fov = camera->GetFov();
    TezVector3<float> const d = eye - focus;
    float const L = d.Length();
    float const R = camera->UsingPerspective() ? camera->GetNear() : L;
    float const s = std::tan(TezPif * 0.5f * fov / 180.0f) * R;
    TezVector3<float> const back = d.Normalized();
    TezVector3<float> const r = (camera->GetUp().Normalized() ^ back).Normalized();
    TezVector3<float> const u = (back ^ r).Normalized();
    TezVector3<float> const newEye = eye + r * (-(s * aspect) * -2.0f * -cx) + u * (s * -2.0f * -cy);
    TezVector3<float> const newFocus = newEye - back * L;
    float const h = std::fabs((2.0f * y0 / H - 1.0f) * s - (2.0f * y / H - 1.0f) * s);
    float const newFov = std::atan2(h * 0.5f, R) * 360.0f / TezPif;

    TezRef<TezCommand> move = TezCmdMoveFocus::Create(view, newEye, newFocus, newFov);
    TezRef<TezCommandManager> focusManager = TezCommandManager::GetActiveFocusCommandMgr();
    if (focusManager)
        focusManager->Execute(move);
    else
        move->Execute(); // no document: the move still happens, with no undo step
}

void TezToolZoomWindow::Start() { SetToolCursor(TezResourceManager::CursorZoomWindow); }

void TezToolZoomWindow::Stop() { SetToolCursor(0); }

bool TezToolZoomWindow::OnMouseDown(int x, int y, unsigned long, bool, bool)
{
    m_lastX = x;
    m_lastY = y;
    StartZoomWindow(GetRenderView(), m_rectangle, x, y);
    return true;
}

bool TezToolZoomWindow::OnMouseDrag(int x, int y, bool, bool)
{
    DragZoomWindow(GetRenderView(), m_rectangle, x, y, m_lastX, m_lastY);
    return true;
}

bool TezToolZoomWindow::OnMouseUp(int x, int y, bool, bool)
{
    StopZoomWindow(GetRenderView(), m_rectangle, x, y, m_lastX, m_lastY);
    return true;
}
