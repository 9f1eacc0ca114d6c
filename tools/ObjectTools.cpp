#include "tools/ObjectTools.h"

#include "core/Events.h"
#include "core/Identifiable.h"
#include "core/UIManager.h"
#include "document/CommandManager.h"
#include "document/Document.h"
#include "document/DocumentObject.h"
#include "document/Selection.h"
#include "document/objects/CmdTransformObject.h"
#include "document/objects/DocIndexedMesh.h"
#include "math/Intersect.h"
#include "math/Plane.h"
#include "render/CameraView.h"
#include "render/objects/SceneIndexedMesh.h"
#include "render/objects/ScenePolyline.h"
#include "render/objects/SceneRectangle.h"
#include "render/objects/SceneText.h"
#include "render/objects/SceneWidgets.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"
#include "tools/ToolManager.h"
#include "tools/ViewTools.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace {

void SetToolCursor(int cursor)
{
    if (TezRef<TezUIManager> ui = TezUIManager::GetAppUIManager())
        ui->SetToolCursor(static_cast<TezResourceManager::Cursors>(cursor));
}

void PaintNow(TezRenderView* view)
{
    if (view && !view->IsContinuousRender())
        view->Paint();
}

TezVector3<float> Xyz(TezVector4<float> const& v) { return TezVector3<float>(v.x, v.y, v.z); }

TezVector3<float> UnitAxis(int axis)
{
    TezVector3<float> v(0, 0, 0);
    v[axis] = 1.0f;
    return v;
}

// The point under a pixel for a drawn polyline. PointFromPixel lies at the
// near distance along the ray, which off the centre is in front of the near
// plane and clipped; the point is taken a hair behind the plane instead.
TezVector3<float> PolylinePoint(TezCameraView const& camera, int x, int y)
{
    if (!camera.UsingPerspective())
        return camera.PointFromPixel(x, y);
    TezRay const ray = camera.RayToPixel(static_cast<float>(x), static_cast<float>(y));
    float const along = ray.GetDirection() * (camera.GetFocus() - camera.GetEye()).Normalized();
    if (along <= 0)
        return camera.PointFromPixel(x, y);
    return ray.PointOnRay(camera.GetNear() * 1.01f / along);
}

} // namespace

// ---- move and rotate: the shared part ----

TezToolTransformObject::TezToolTransformObject()
    : m_baseTransform(TezIdentityTransform<float>()), m_deltaTransform(TezIdentityTransform<float>()),
      m_gesture(TezIdentityTransform<float>()), m_objectTransform(TezIdentityTransform<float>())
{
}

void TezToolTransformObject::SetObject(TezRef<TezDocIndexedMesh> mesh)
{
    m_mesh = mesh;
    m_object = nullptr;
}

void TezToolTransformObject::SetObject(TezRef<TezSceneObject> object)
{
    m_object = object;
    m_mesh = nullptr;
}

void TezToolTransformObject::SetTransform(TezMatrix44<float> const& transform)
{
    m_baseTransform = transform;
    UpdateWidget();
}

void TezToolTransformObject::UpdateWidget()
{
    if (TezRef<TezSceneObject> widget = GetWidgetObject())
        widget->SetTransform(m_baseTransform * m_deltaTransform);
}

void TezToolTransformObject::AddToScene(TezRef<TezSceneObject> parent, float scale)
{
    RemoveFromScene();
    TezRef<TezSceneObject> widget = GetWidgetObject();
    TezRef<TezScene> scene = parent ? parent->GetScene() : nullptr;
    if (!scene && parent && parent->GetProperty(TezSceneObject::SceneRoot))
        scene = GetScene();
    if (!widget || !scene)
        return;
    m_deltaTransform = TezScaleTransform(scale);
    UpdateWidget();
    scene->AddChild(parent, widget);
    for (int axis = 0; axis < 3; ++axis)
        scene->AddChild(widget, GetPart(axis));
    if (TezRef<TezSceneMoveWidget> move = TezRef<TezSceneMoveWidget>(dynamic_cast<TezSceneMoveWidget*>(widget.Get())))
        for (int axis = 0; axis < 3; ++axis)
            scene->AddChild(widget, move->GetLabel(axis));
}

void TezToolTransformObject::RemoveFromScene()
{
    TezRef<TezSceneObject> widget = GetWidgetObject();
    if (widget && widget->GetScene())
        widget->GetScene()->RemoveChild(widget);
}

int TezToolTransformObject::IsMouseOnAxis(int x, int y, unsigned long id)
{
    m_lastX = x;
    m_lastY = y;
    if (id == 0)
        return -1;
    TezIdentifiableObject* object = TezObjectFromId(static_cast<uint32_t>(id));
    if (!object)
        return -1;
    for (int axis = 0; axis < 3; ++axis) {
        TezRef<TezSceneObject> part = GetPart(axis);
        if (part && part->Id() == object->Id())
            return axis;
    }
    return -1;
}

void TezToolTransformObject::SetHighLight()
{
    for (int axis = 0; axis < 3; ++axis)
        if (TezRef<TezSceneObject> part = GetPart(axis))
            part->SetColor(TezWidgetAxisColor(axis, axis == m_axis));
}

bool TezToolTransformObject::OnMouseDown(int x, int y, unsigned long id, bool, bool)
{
    m_axis = IsMouseOnAxis(x, y, id);
    SetHighLight();
    if (m_axis < 0)
        return false;
    m_gesture = TezIdentityTransform<float>();
    m_gestureActive = true;
    m_stepped = false;
    if (m_mesh && m_mesh->GetSceneObject())
        m_objectTransform = m_mesh->GetSceneObject()->GetTransform();
    else if (m_object)
        m_objectTransform = m_object->GetTransform();
    if (TezRef<TezRenderView> view = GetRenderView())
        view->GetCamera()->SetDynamic(true);
    return true;
}

bool TezToolTransformObject::OnMouseMove(int x, int y, unsigned long id, bool, bool)
{
    int const axis = IsMouseOnAxis(x, y, id);
    if (axis == m_axis)
        return false;
    m_axis = axis;
    SetHighLight();
    TezRequestRedraw();
    return false;
}

void TezToolTransformObject::Step(TezMatrix44<float> const& worldStep)
{
    m_gesture = worldStep * m_gesture;
    m_stepped = true;
    // The object shows the gesture on its scene node until the release
    // turns it into a command.
    TezSceneObject* shown = m_mesh ? m_mesh->GetSceneObject().Get() : m_object.Get();
    if (shown)
        shown->SetTransform(m_gesture * m_objectTransform);
}

bool TezToolTransformObject::OnMouseUp(int, int, bool, bool)
{
    if (!m_gestureActive)
        return false;
    m_gestureActive = false;
    if (TezRef<TezRenderView> view = GetRenderView())
        view->GetCamera()->SetDynamic(false);
    TezRef<TezCmdTransformObject> command;
    if (!m_stepped) {
        // A click on the widget: nothing moved, no step in the history.
    } else if (m_mesh) {
        if (TezSceneObject* shown = m_mesh->GetSceneObject().Get())
            shown->SetTransform(m_objectTransform);
        command = TezCmdTransformObject::Create(m_mesh, m_gesture);
    } else if (m_object) {
        m_object->SetTransform(m_objectTransform);
        command = TezCmdTransformObject::Create(m_object, m_gesture);
    }
    if (command) {
        if (TezRef<TezDocument> document = TezDocument::GetActiveDocument())
            document->GetCommandManager()->Execute(command);
        else
            command->Execute(); // no document: the object moves, with no undo step
    }
    m_gesture = TezIdentityTransform<float>();
    TezRequestRedraw();
    return true;
}

void TezToolTransformObject::RefitAndRedraw()
{
    if (TezRef<TezRenderView> view = GetRenderView())
        view->GetCamera()->NearFarToBox(view->GetBounds(true));
    TezRequestRedraw();
}

// ---- move ----

TezRef<TezToolMoveObject> TezToolMoveObject::Create() { return TezRef<TezToolMoveObject>(new TezToolMoveObject()); }

TezToolMoveObject::TezToolMoveObject() : m_widget(TezSceneMoveWidget::Create()) {}

TezRef<TezSceneObject> TezToolMoveObject::GetWidgetObject() const { return m_widget; }

TezRef<TezSceneObject> TezToolMoveObject::GetPart(int axis) const { return m_widget->GetArrow(axis); }

bool TezToolMoveObject::OnMouseDrag(int x, int y, bool, bool)
{
    TezRef<TezRenderView> view = GetRenderView();
    if (!m_widget || m_axis < 0 || !view)
        return true;
    TezRef<TezCameraView> camera = view->GetCamera();
    TezRay const a = camera->RayToPixel(static_cast<float>(m_lastX), static_cast<float>(m_lastY));
    TezRay const b = camera->RayToPixel(static_cast<float>(x), static_cast<float>(y));

    // The drag runs on the plane through the widget that holds the axis and
    // faces the viewer best: its normal is the other axis nearer the sight.
    TezMatrix44<float> const world = m_widget->GetWorldMatrix();
    TezMatrix44<float> const rotation = world.ExtractRotation();
    TezVector3<float> const axis = Xyz(rotation[m_axis]).Normalized();
    TezVector3<float> const u = Xyz(rotation[(m_axis + 1) % 3]).Normalized();
    TezVector3<float> const v = Xyz(rotation[(m_axis + 2) % 3]).Normalized();
    TezVector3<float> const normal = std::fabs(a.GetDirection() * u) > std::fabs(a.GetDirection() * v) ? u : v;
    TezPlane<float> const plane(Xyz(world[3]), normal);
    float ta = 0, tb = 0;
    // Parallel to the plane: no step, and the last position stays.
    if (!TezIntersect(a, plane, ta, 1e30f) || !TezIntersect(b, plane, tb, 1e30f))
        return true;
    float const d = (b.PointOnRay(tb) - a.PointOnRay(ta)) * axis;
    TezVector3<float> const step = axis * d;
    m_deltaTransform = TezTranslationTransform(step) * m_deltaTransform;
    UpdateWidget();
    TezMatrix44<float> const worldStep = TezTranslationTransform(step);
    Step(worldStep);
    if (m_callback)
        m_callback(worldStep);
    m_lastX = x;
    m_lastY = y;
    RefitAndRedraw();
    return true;
}

// ---- rotate ----

TezRef<TezToolRotateObject> TezToolRotateObject::Create()
{
    return TezRef<TezToolRotateObject>(new TezToolRotateObject());
}

TezToolRotateObject::TezToolRotateObject() : m_widget(TezSceneRotateWidget::Create()) {}

TezRef<TezSceneObject> TezToolRotateObject::GetWidgetObject() const { return m_widget; }

TezRef<TezSceneObject> TezToolRotateObject::GetPart(int axis) const { return m_widget->GetRing(axis); }

bool TezToolRotateObject::OnMouseDown(int x, int y, unsigned long id, bool first, bool second)
{
    if (!TezToolTransformObject::OnMouseDown(x, y, id, first, second))
        return false;
    TezRef<TezRenderView> view = GetRenderView();
    if (!view)
        return true;
    TezRef<TezCameraView> camera = view->GetCamera();
    TezMatrix44<float> const world = m_widget->GetWorldMatrix();
    TezVector3<float> const centre = Xyz(world[3]);
    TezVector3<float> const axis = Xyz(world.ExtractRotation()[m_axis]).Normalized();
    TezRay const ray = camera->RayToPixel(static_cast<float>(x), static_cast<float>(y));
    // Where the press meets the ring's plane; edge on, the ray's nearest
    // approach to the centre stands for it.
    float t = 0;
    TezVector3<float> hit;
    if (TezIntersect(ray, TezPlane<float>(centre, axis), t, 1e30f))
        hit = ray.PointOnRay(t);
    else
        hit = ray.PointOnRay((centre - ray.GetStart()) * ray.GetDirection());
    TezVector3<float> radius = hit - centre;
    TezVector3<float> tangent = axis ^ radius;
    if (tangent.Length() < 1e-6f)
        tangent = axis ^ ray.GetDirection();
    tangent = tangent.Normalized() * std::max(radius.Length(), 1e-3f);
    // On the screen with y down as the pointer counts; the angle grows
    // when the pointer moves along the tangent, hence the sign.
    TezVector3<float> const p0 = camera->PixelFromPoint(hit);
    TezVector3<float> const p1 = camera->PixelFromPoint(hit + tangent * 0.01f);
    TezVector3<float> direction(-(p1.x - p0.x), p1.y - p0.y, 0.0f);
    float const length = direction.Length();
    m_screenDirection = length > 0 ? direction * (1.0f / length) : TezVector3<float>(0, 0, 0);
    return true;
}

bool TezToolRotateObject::OnMouseDrag(int x, int y, bool, bool)
{
    if (!m_widget || m_axis < 0 || !GetRenderView())
        return true;
    float const angle = (static_cast<float>(m_lastY - y) * m_screenDirection.y +
                         static_cast<float>(m_lastX - x) * m_screenDirection.x + m_screenDirection.z * 0.0f) *
                        0.02f;
    TezMatrix44<float> const world = m_widget->GetWorldMatrix();
    TezVector3<float> const centre = Xyz(world[3]);
    TezVector3<float> const worldAxis = Xyz(world.ExtractRotation()[m_axis]).Normalized();
    m_deltaTransform = m_deltaTransform * TezRotationTransform(angle, UnitAxis(m_axis));
    if (!m_suspendTransform)
        UpdateWidget();
    Step(TezTranslationTransform(centre) * TezRotationTransform(angle, worldAxis) * TezTranslationTransform(-centre));
    if (m_callback)
        m_callback(UnitAxis(m_axis) * angle);
    m_lastX = x;
    m_lastY = y;
    RefitAndRedraw();
    return true;
}

// ---- selection ----

TezRef<TezToolSelection> TezToolSelection::Create(Callback callback)
{
    return TezRef<TezToolSelection>(new TezToolSelection(std::move(callback)));
}

TezToolSelection::TezToolSelection(Callback callback)
    : m_callback(std::move(callback)), m_rectangle(TezToolZoomWindow::CreateRectangle())
{
}

TezToolSelection::~TezToolSelection() = default;

size_t TezToolSelection::SelectBlock(TezRef<TezRenderView> view, TezRef<TezSelection> selection, int x0, int y0, int x1,
                                     int y1, bool add)
{
    if (!view || !selection)
        return 0;
    if (!add)
        selection->RemoveAll();
    int const w = static_cast<int>(view->GetCamera()->GetWidth()), h = static_cast<int>(view->GetCamera()->GetHeight());
    if (w <= 0 || h <= 0)
        return 0;
    // The pick counts y up from the bottom; the rectangle is kept inside
    // the view.
    auto clampX = [w](int x) { return std::clamp(x, 0, w - 1); };
    auto clampY = [h](int y) { return std::clamp(h - 1 - y, 0, h - 1); };
    TezVector2<int> const corner(clampX(std::min(x0, x1)), clampY(std::max(y0, y1)));
    TezVector2<int> const opposite(clampX(std::max(x0, x1)), clampY(std::min(y0, y1)));
    view->Map();
    std::vector<unsigned long> const ids = view->Pick(corner, opposite);
    std::set<unsigned long> const unique(ids.begin(), ids.end());
    std::set<TezSelectableObject*> owners;
    for (unsigned long id : unique) {
        auto* object = dynamic_cast<TezSceneObject*>(TezObjectFromId(static_cast<uint32_t>(id)));
        if (!object)
            continue;
        TezSelectableObject* owner = object->GetDocumentObject();
        if (!owner)
            owner = object;
        owners.insert(owner);
    }
    bool const active = selection == TezSelection::GetActiveSelection();
    for (TezSelectableObject* owner : owners) {
        // A document object selects through the active selection, which
        // also marks the scene objects that draw it.
        if (active && dynamic_cast<TezDocumentObject*>(owner))
            owner->Select(true);
        else
            selection->AddObject(TezRef<TezSelectableObject>(owner));
    }
    return owners.size();
}

void TezToolSelection::Start()
{
    TezRef<TezScene> scene = GetScene();
    if (scene && m_rectangle)
        scene->AddChild(scene->GetRoot(), m_rectangle);
    SetToolCursor(9);
}

void TezToolSelection::Stop()
{
    if (m_rectangle && m_rectangle->GetScene())
        m_rectangle->GetScene()->RemoveChild(m_rectangle);
    SetToolCursor(0);
}

bool TezToolSelection::OnMouseDown(int x, int y, unsigned long, bool, bool)
{
    m_downX = x;
    m_downY = y;
    m_pressed = true;
    // The tool may have been started before the view had its scene.
    if (m_rectangle && !m_rectangle->GetScene())
        if (TezRef<TezScene> scene = GetScene())
            scene->AddChild(scene->GetRoot(), m_rectangle);
    return true;
}

bool TezToolSelection::OnMouseDrag(int x, int y, bool, bool)
{
    TezRef<TezRenderView> view = GetRenderView();
    if (!m_pressed || !view)
        return true;
    TezRef<TezCameraView> camera = view->GetCamera();
    float const w = static_cast<float>(camera->GetWidth()), h = static_cast<float>(camera->GetHeight());
    TezBox2<float> box;
    box += TezVector2<float>((w - m_downX) / w, (h - m_downY) / h);
    box += TezVector2<float>((w - x) / w, (h - y) / h);
    m_rectangle->SetRectangle(box);
    m_rectangle->SetProperty(TezSceneObject::Visible, true);
    PaintNow(view.Get());
    return true;
}

bool TezToolSelection::OnMouseUp(int x, int y, bool, bool)
{
    if (!m_pressed)
        return false;
    m_pressed = false;
    TezRef<TezRenderView> view = GetRenderView();
    if (m_rectangle)
        m_rectangle->SetProperty(TezSceneObject::Visible, false);
    if (m_callback && view)
        m_callback(view, m_downX, m_downY, x, y);
    TezRequestRedraw();
    return true;
}

// ---- pick overlay point ----

TezRef<TezToolPickOverlayPoint> TezToolPickOverlayPoint::Create(Callback callback)
{
    return TezRef<TezToolPickOverlayPoint>(new TezToolPickOverlayPoint(std::move(callback)));
}

bool TezToolPickOverlayPoint::OnMouseDown(int x, int y, unsigned long id, bool, bool)
{
    if (!m_callback)
        return false;
    m_lastX = x;
    m_lastY = y;
    m_lastId = id;
    m_callback(GetRenderView(), x, y, id, 0);
    return false;
}

bool TezToolPickOverlayPoint::OnKeyDown(int key, bool, bool)
{
    if (!m_callback)
        return false;
    m_callback(GetRenderView(), m_lastX, m_lastY, m_lastId, key);
    return false;
}

// ---- draw polyline ----

TezRef<TezToolDrawPolyline> TezToolDrawPolyline::Create()
{
    return TezRef<TezToolDrawPolyline>(new TezToolDrawPolyline());
}

TezToolDrawPolyline::TezToolDrawPolyline() : m_polyline(TezScenePolyline::Create())
{
    m_polyline->SetColor({1.0f, 0.85f, 0.2f, 1.0f});
}

TezToolDrawPolyline::~TezToolDrawPolyline() = default;

void TezToolDrawPolyline::ClearVertices()
{
    m_vertices.clear();
    m_polyline->SetVertices(m_vertices);
}

void TezToolDrawPolyline::Start()
{
    if (TezRef<TezScene> scene = GetScene()) {
        m_polyline->SetProperty(TezSceneObject::Visible, true);
        scene->AddChild(scene->GetRoot(), m_polyline);
    }
    SetToolCursor(TezResourceManager::CursorCrossHair);
}

void TezToolDrawPolyline::Stop()
{
    m_polyline->SetProperty(TezSceneObject::Visible, false);
    if (m_polyline->GetScene())
        m_polyline->GetScene()->RemoveChild(m_polyline);
    SetToolCursor(0);
}

bool TezToolDrawPolyline::OnMouseDown(int x, int y, unsigned long, bool, bool)
{
    TezRef<TezRenderView> view = GetRenderView();
    if (!view)
        return false;
    m_vertices.push_back(PolylinePoint(*view->GetCamera(), x, y));
    m_polyline->SetVertices(m_vertices);
    PaintNow(view.Get());
    return true;
}

bool TezToolDrawPolyline::OnMouseMove(int x, int y, unsigned long, bool, bool)
{
    TezRef<TezRenderView> view = GetRenderView();
    if (m_vertices.empty() || !view)
        return true;
    std::vector<TezVector3<float>> band = m_vertices;
    band.push_back(PolylinePoint(*view->GetCamera(), x, y));
    m_polyline->SetVertices(band);
    PaintNow(view.Get());
    return true;
}
