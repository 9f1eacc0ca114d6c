#include "document/ViewCommands.h"

#include "core/Application.h"
#include "core/Logger.h"
#include "document/Document.h"
#include "math/Box.h"
#include "render/CameraView.h"
#include "render/RenderViewManager.h"
#include "render/scene/Scene.h"
#include "render/views/RenderView.h"

#include <cmath>
#include <stdexcept>

// ---- move focus ----

TezCmdMoveFocus::TezCmdMoveFocus(TezRef<TezRenderView> view, TezVector3<float> const& eye,
                                 TezVector3<float> const& focus, TezVector3<float> const& up, float fov)
    : m_view(view), m_eye(eye), m_focus(focus), m_up(up), m_fov(fov)
{
}

TezRef<TezCmdMoveFocus> TezCmdMoveFocus::Create(TezRef<TezRenderView> view, TezVector3<float> const& eye,
                                                TezVector3<float> const& focus, float fov, TezVector3<float> const& up)
{
    if (!view)
        throw std::runtime_error("TezCmdMoveFocus::Create: no render view");
    return TezRef<TezCmdMoveFocus>(new TezCmdMoveFocus(view, eye, focus, up, fov));
}

TezRef<TezCmdMoveFocus> TezCmdMoveFocus::Create(TezRef<TezRenderView> view, TezVector3<float> const& eye,
                                                TezVector3<float> const& focus, float fov)
{
    if (!view)
        throw std::runtime_error("TezCmdMoveFocus::Create: no render view");
    return Create(view, eye, focus, fov, view->GetCamera()->GetUp());
}

TezRef<TezCmdMoveFocus> TezCmdMoveFocus::Create(TezRef<TezRenderView> view, TezVector3<float> const& eye,
                                                TezVector3<float> const& focus)
{
    if (!view)
        throw std::runtime_error("TezCmdMoveFocus::Create: no render view");
    return Create(view, eye, focus, view->GetCamera()->GetFov(), view->GetCamera()->GetUp());
}

bool TezCmdMoveFocus::Execute()
{
    m_savedEye = m_eye;
    m_savedFocus = m_focus;
    m_savedUp = m_up;
    m_savedFov = m_fov;
    return Undo();
}

bool TezCmdMoveFocus::Undo()
{
    if (!m_view)
        return false;
    TezRef<TezCameraView> camera = m_view->GetCamera();
    TezVector3<float> const eye = camera->GetEye(), focus = camera->GetFocus(), up = camera->GetUp();
    float const fov = camera->GetFov();
    camera->AnimateMove(m_savedEye, m_savedFocus, m_savedUp, m_savedFov, m_view->GetBounds(false), 10);
    m_savedEye = eye;
    m_savedFocus = focus;
    m_savedUp = up;
    m_savedFov = fov;
    return true;
}

void TezCmdMoveFocus::ClearUndoMemory() { m_view = nullptr; }

TezString TezCmdMoveFocus::BuildPython() const
{
    TezApplication* app = TezApplication::Instance();
    TezString line = app ? app->GetScriptModuleName() : TezString("");
    // Nine significant digits give every float back exactly.
    TezString call;
    call.Format(".move_focus(%.9g, %.9g, %.9g, %.9g, %.9g, %.9g, %.9g, %.9g, %.9g, %.9g)\n", m_eye.x, m_eye.y, m_eye.z,
                m_focus.x, m_focus.y, m_focus.z, m_up.x, m_up.y, m_up.z, m_fov);
    line.Append(call);
    return line;
}

bool TezCmdMoveFocus::Run(TezVector3<float> const& eye, TezVector3<float> const& focus, TezVector3<float> const& up,
                          float fov)
{
    TezRef<TezRenderViewManager> views = TezRenderViewManager::GetAppRenderViewManager();
    if (!views || views->GetRenderViewList().empty())
        TezLogger::except("Render View window does not exist. Cannot move the camera.");
    if (!(fov > 0.0f && fov < 180.0f))
        TezLogger::except("The field of view must lie between 0 and 180 degrees, not %g.", static_cast<double>(fov));
    TezRef<TezCommand> command = Create(views->GetRenderViewList().front(), eye, focus, fov, up);
    TezRef<TezDocument> document = TezDocument::GetActiveDocument();
    bool const done = document ? document->GetFocusCommandManager()->Execute(command) : command->Execute();
    if (!done)
        TezLogger::except("Unable to move the camera.");
    TezLogger::info("Moved the camera to eye (%g, %g, %g), focus (%g, %g, %g).\n", eye.x, eye.y, eye.z, focus.x,
                    focus.y, focus.z);
    return true;
}

// ---- view normal to plane ----

TezCmdViewNormalToPlane::TezCmdViewNormalToPlane(TezRef<TezCameraView> camera, TezRef<TezScene> scene,
                                                 TezPlane<float> const& plane)
    : m_camera(camera), m_scene(scene), m_plane(plane)
{
}

TezRef<TezCmdViewNormalToPlane> TezCmdViewNormalToPlane::Create(TezRef<TezCameraView> camera, TezRef<TezScene> scene,
                                                                TezPlane<float> const& plane)
{
    if (!camera)
        throw std::runtime_error("TezCmdViewNormalToPlane::Create: no camera");
    return TezRef<TezCmdViewNormalToPlane>(new TezCmdViewNormalToPlane(camera, scene, plane));
}

bool TezCmdViewNormalToPlane::Execute()
{
    if (!m_camera)
        return false;
    m_fov = m_camera->GetFov();
    m_eye = m_camera->GetEye();
    m_focus = m_camera->GetFocus();
    m_up = m_camera->GetUp();
    m_nearPlane = m_camera->GetNear();
    m_farPlane = m_camera->GetFar();

    TezBox3<float> const box = m_scene ? m_scene->GetBounds(false) : TezBox3<float>();
    m_camera->SetFov(30.0f);
    TezBox2<float> flat;
    for (int i = 0; i < 8; ++i)
        flat += m_plane.Project(box.Corner(i & 1, i & 2, i & 4));
    TezVector3<float> const high = m_plane.Evaluate(flat.GetMaximum());
    TezVector3<float> const low = m_plane.Evaluate(flat.GetMinimum());
    TezVector3<float> const root = m_plane.GetRoot();
    m_camera->SetFocus(root);
    float distance = (high - low).Length() * 0.5f / std::tan(15.0f * TezPif / 180.0f);
    if (std::fabs(distance) < 1e-6f)
        distance = 0.1f;
    m_camera->SetEye(root + m_plane.GetNormal() * distance);
    m_camera->SetUp(m_plane.GetVDirection());
    float const extent = (box.GetMaximum() - box.GetMinimum()).Length() * 1.1f;
    m_camera->SetNear(extent <= distance ? distance - extent : 1e-6f);
    m_camera->SetFar(extent + distance);
    return true;
}

bool TezCmdViewNormalToPlane::Undo()
{
    if (!m_camera)
        return false;
    float const fov = m_camera->GetFov(), nearPlane = m_camera->GetNear(), farPlane = m_camera->GetFar();
    TezVector3<float> const eye = m_camera->GetEye(), focus = m_camera->GetFocus(), up = m_camera->GetUp();
    m_camera->SetFov(m_fov);
    m_camera->SetEye(m_eye);
    m_camera->SetFocus(m_focus);
    m_camera->SetUp(m_up);
    m_camera->SetNear(m_nearPlane);
    m_camera->SetFar(m_farPlane);
    m_fov = fov;
    m_eye = eye;
    m_focus = focus;
    m_up = up;
    m_nearPlane = nearPlane;
    m_farPlane = farPlane;
    return true;
}

void TezCmdViewNormalToPlane::ClearUndoMemory()
{
    m_camera = nullptr;
    m_scene = nullptr;
}
