#pragma once
// The object tools: pointer input turned into edits of objects.
//
// TezToolMoveObject and TezToolRotateObject show a widget (arrows or rings,
// see render/objects/SceneWidgets.h) and are used as pick tools: a press on
// one of its parts captures the gesture, a press elsewhere is left to the
// other tools. A drag moves the widget along the axis under the pointer at
// the press (the move follows the pointer on a plane through the widget
// that holds the axis and faces the viewer), or turns it about that axis by
// 0.02 radians a pixel dragged along the ring's tangent on the screen. The
// object the tool is given (SetObject) follows on the screen during the
// drag; the release leaves one TezCmdTransformObject on the active command
// manager, so one undo takes the whole drag back (a click that moved nothing
// leaves none). Each step is also handed
// to the callback, as a world matrix (move) or as a vector holding the
// angle on the axis (rotate). Hovering a part highlights it and asks for one
// redraw per change of part.
//
// The widget's transform is baseTransform (where the tool was placed, see
// SetTransform) times deltaTransform (the scale given to AddToScene, then
// the steps of the drags); the widget's parent gives only its position.
//
// TezToolSelection draws a rubber band while the left button drags and then
// hands the view, the press and the release to its callback; SelectBlock is
// the block pick that such a callback usually runs. TezToolPickOverlayPoint
// hands each press and key to its callback. TezToolDrawPolyline adds a
// point under each press (just behind the near plane)
// and shows the polyline with a rubber band to the pointer.
//
// All need the tool manager's view; without one they do nothing. Handlers
// run on the host's UI thread and may paint.

#include "math/Matrix.h"
#include "tools/Tool.h"

#include <functional>
#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezSceneObject)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneMoveWidget)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneRotateWidget)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneRectangle)
TEZ_DECLARE_REF_FUNCTIONS(TezScenePolyline)
TEZ_DECLARE_REF_FUNCTIONS(TezDocIndexedMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezSelection)

// What the move and rotate tools share: the target, the gesture, the
// command at the release.
class TEZ_API TezToolTransformObject : public TezTool
{
public:
    // The object that follows the widget: a document mesh, or a bare scene
    // object. Either may be null (the widget alone moves).
    void SetObject(TezRef<TezDocIndexedMesh> mesh);
    void SetObject(TezRef<TezSceneObject> object);
    // The widget's placement; also the base of the next drags.
    virtual void SetTransform(TezMatrix44<float> const& transform);
    TezMatrix44<float> GetBaseTransform() const { return m_baseTransform; }
    TezMatrix44<float> GetDeltaTransform() const { return m_deltaTransform; }
    int GetAxis() const { return m_axis; }

    // Hangs the widget and its parts under parent (the scene root when
    // parent is the root); removes it first when it is in a scene.
    virtual void AddToScene(TezRef<TezSceneObject> parent, float scale);
    virtual void RemoveFromScene();

    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseMove(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseUp(int x, int y, bool first, bool second) override;
    bool IsMouseMoveMapRequired(int x, int y, bool first, bool second) override { return true; }

protected:
    TezToolTransformObject();
    // The widget as a scene object, and its part of an axis.
    virtual TezRef<TezSceneObject> GetWidgetObject() const = 0;
    virtual TezRef<TezSceneObject> GetPart(int axis) const = 0;
    // The axis (0 to 2) whose part has this id; -1 for none. Stores x, y.
    int IsMouseOnAxis(int x, int y, unsigned long id);
    void SetHighLight();
    // Adds a world step to the gesture: the widget and the object follow.
    void Step(TezMatrix44<float> const& worldStep);
    void UpdateWidget();
    void RefitAndRedraw();

    int32_t m_axis = -1;
    int32_t m_lastX = 0, m_lastY = 0;
    TezMatrix44<float> m_baseTransform;
    TezMatrix44<float> m_deltaTransform;

private:
    TezRef<TezDocIndexedMesh> m_mesh;
    TezRef<TezSceneObject> m_object;
    TezMatrix44<float> m_gesture;         // the world steps of this drag
    TezMatrix44<float> m_objectTransform; // the object's scene transform at the press
    bool m_gestureActive = false;
    bool m_stepped = false;
};

class TEZ_API TezToolMoveObject : public TezToolTransformObject
{
public:
    // Told every step, with the world translation of the step.
    using Callback = std::function<void(TezMatrix44<float> const& step)>;
    static TezRef<TezToolMoveObject> Create();

    TezRef<TezSceneMoveWidget> GetWidget() const { return m_widget; }
    void SetCallback(Callback callback) { m_callback = std::move(callback); }
    bool OnMouseDrag(int x, int y, bool first, bool second) override;

protected:
    TezToolMoveObject();
    TezRef<TezSceneObject> GetWidgetObject() const override;
    TezRef<TezSceneObject> GetPart(int axis) const override;

private:
    TezRef<TezSceneMoveWidget> m_widget;
    Callback m_callback;
};

class TEZ_API TezToolRotateObject : public TezToolTransformObject
{
public:
    // Told every step, with the angle (radians) on the dragged axis.
    using Callback = std::function<void(TezVector3<float> const& angles)>;
    static TezRef<TezToolRotateObject> Create();

    TezRef<TezSceneRotateWidget> GetWidget() const { return m_widget; }
    void SetCallback(Callback callback) { m_callback = std::move(callback); }
    // While suspended the widget keeps its place during a drag.
    void SetSuspendTransform(bool suspend) { m_suspendTransform = suspend; }
    TezVector3<float> GetScreenDirection() const { return m_screenDirection; }

    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseDrag(int x, int y, bool first, bool second) override;

protected:
    TezToolRotateObject();
    TezRef<TezSceneObject> GetWidgetObject() const override;
    TezRef<TezSceneObject> GetPart(int axis) const override;

private:
    TezRef<TezSceneRotateWidget> m_widget;
    Callback m_callback;
    TezVector3<float> m_screenDirection{0, 0, 0};
    bool m_suspendTransform = false;
};

class TEZ_API TezToolSelection : public TezTool
{
public:
    // The view, the press and the release, in the view's pixels (y down).
    using Callback = std::function<void(TezRef<TezRenderView> view, int x0, int y0, int x1, int y1)>;
    static TezRef<TezToolSelection> Create(Callback callback = nullptr);
    ~TezToolSelection() override;

    // Maps the view and selects every object with a pixel in the rectangle
    // (corners included): the document object that owns a scene object, or
    // else the scene object itself. Without `add` the selection is emptied
    // first. Answers how many objects were found.
    static size_t SelectBlock(TezRef<TezRenderView> view, TezRef<TezSelection> selection, int x0, int y0, int x1,
                              int y1, bool add = false);

    void SetCallback(Callback callback) { m_callback = std::move(callback); }
    TezRef<TezSceneRectangle> GetRectangle() const { return m_rectangle; }

    void Start() override;
    void Stop() override;
    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseDrag(int x, int y, bool first, bool second) override;
    bool OnMouseUp(int x, int y, bool first, bool second) override;

protected:
    explicit TezToolSelection(Callback callback);

private:
    Callback m_callback;
    TezRef<TezSceneRectangle> m_rectangle;
    int32_t m_downX = 0, m_downY = 0;
    bool m_pressed = false;
};

class TEZ_API TezToolPickOverlayPoint : public TezTool
{
public:
    // A press (key 0) with its pixel and the id under it, or a key (x, y
    // and id are then those of the last press).
    using Callback = std::function<void(TezRef<TezRenderView> view, int x, int y, unsigned long id, int key)>;
    static TezRef<TezToolPickOverlayPoint> Create(Callback callback = nullptr);

    void SetCallback(Callback callback) { m_callback = std::move(callback); }
    // False always: the press goes on to the other tools.
    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    // False always: the key is also left to the other tools and the host.
    bool OnKeyDown(int key, bool first, bool second) override;

protected:
    explicit TezToolPickOverlayPoint(Callback callback) : m_callback(std::move(callback)) {}

private:
    Callback m_callback;
    int32_t m_lastX = 0, m_lastY = 0;
    unsigned long m_lastId = 0;
};

class TEZ_API TezToolDrawPolyline : public TezTool
{
public:
    static TezRef<TezToolDrawPolyline> Create();
    ~TezToolDrawPolyline() override;

    std::vector<TezVector3<float>> const& GetVertices() const { return m_vertices; }
    void ClearVertices();
    TezRef<TezScenePolyline> GetPolyline() const { return m_polyline; }

    void Start() override;
    void Stop() override;
    bool OnMouseDown(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseMove(int x, int y, unsigned long id, bool first, bool second) override;
    bool OnMouseDblClick(int x, int y, bool first, bool second) override { return true; }

protected:
    TezToolDrawPolyline();

private:
    TezRef<TezScenePolyline> m_polyline;
    std::vector<TezVector3<float>> m_vertices;
};
