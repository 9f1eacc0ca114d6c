#pragma once
// Commands that move the camera of a render view, undoable and kept on the
// document's focus command manager.
//
// TezCmdMoveFocus animates the view's camera to a target eye, focus, up and
// field of view (10 steps through TezCameraView::AnimateMove, ending on the
// target). Execute, Undo and Redo are one swap of the camera's pose with the
// stored one, so each call goes back to where the last one came from. Its
// script line names the target pose: module.move_focus(eye x, y, z, focus
// x, y, z, up x, y, z, fov), so that a history replays the moves. The
// static Run is that script function: it moves the first render view through
// the active focus command manager (directly when there is no document) and
// throws through TezLogger::except without a render view or with a field of
// view outside (0, 180).
//
// TezCmdViewNormalToPlane looks at the scene's bounds straight down a
// plane's normal, from the normal's side, with the plane's V direction up, a
// 30 degree field of view and near and far fitted to the scene. Undo and Redo
// swap the camera's fov, eye, focus, up, near and far with the saved ones.
//
// ClearUndoMemory drops the view (camera and scene), after which the
// command is no longer undoable. Creating either with a null view or camera
// throws std::runtime_error.

#include "document/CommandManager.h"
#include "math/Plane.h"
#include "math/Vector.h"

TEZ_DECLARE_REF_FUNCTIONS(TezRenderView)
TEZ_DECLARE_REF_FUNCTIONS(TezCameraView)
TEZ_DECLARE_REF_FUNCTIONS(TezScene)

class TEZ_API TezCmdMoveFocus : public TezCommand
{
public:
    static TezRef<TezCmdMoveFocus> Create(TezRef<TezRenderView> view, TezVector3<float> const& eye,
                                          TezVector3<float> const& focus, float fov, TezVector3<float> const& up);
    // Up is the camera's current one.
    static TezRef<TezCmdMoveFocus> Create(TezRef<TezRenderView> view, TezVector3<float> const& eye,
                                          TezVector3<float> const& focus, float fov);
    // Up and field of view are the camera's current ones.
    static TezRef<TezCmdMoveFocus> Create(TezRef<TezRenderView> view, TezVector3<float> const& eye,
                                          TezVector3<float> const& focus);
    static bool Run(TezVector3<float> const& eye, TezVector3<float> const& focus, TezVector3<float> const& up,
                    float fov);

    bool Execute() override;
    bool IsUndoable() override { return m_view != nullptr; }
    bool Undo() override;
    bool Redo() override { return Undo(); }
    void ClearUndoMemory() override;
    TezString BuildPython() const override;

protected:
    TezCmdMoveFocus(TezRef<TezRenderView> view, TezVector3<float> const& eye, TezVector3<float> const& focus,
                    TezVector3<float> const& up, float fov);

private:
    TezRef<TezRenderView> m_view;
    TezVector3<float> m_eye, m_focus, m_up;
    float m_fov;
    TezVector3<float> m_savedEye, m_savedFocus, m_savedUp;
    float m_savedFov = 0.0f;
};

class TEZ_API TezCmdViewNormalToPlane : public TezCommand
{
public:
    static TezRef<TezCmdViewNormalToPlane> Create(TezRef<TezCameraView> camera, TezRef<TezScene> scene,
                                                  TezPlane<float> const& plane);

    bool Execute() override;
    bool IsUndoable() override { return m_camera != nullptr; }
    bool Undo() override;
    bool Redo() override { return Undo(); }
    void ClearUndoMemory() override;

protected:
    TezCmdViewNormalToPlane(TezRef<TezCameraView> camera, TezRef<TezScene> scene, TezPlane<float> const& plane);

private:
    TezRef<TezCameraView> m_camera;
    TezRef<TezScene> m_scene;
    TezPlane<float> m_plane;
    float m_fov = 0.0f;
    TezVector3<float> m_eye, m_focus, m_up;
    float m_nearPlane = 5.0f;
    float m_farPlane = 50.0f;
};
