#pragma once
// TezCameraView: the camera of one render view.
//
// Holds eye, focus, up hint, vertical field of view (degrees), near and far
// distances and the viewport size, and derives from them the view and
// projection matrices, pixel/ray/point conversions, the tools' gestures, box
// fits and the eight standard views. Nothing is validated: a zero width or
// height gives infinities or NaNs on the perspective paths.
//
// Conventions callers must know:
// - The view's x axis points to the viewer's left; both projections mirror it.
// - The perspective matrix maps depth to -1..1, the orthographic one to 0..1.
// - RayToPixel and PointFromPixel take y counting down from the top and use
//   the pixel's centre; PixelFromPoint answers y counting up from the bottom.
//   They are not inverses in y: callers flip where they need to.
// - ZoomAll forces a 30 degree field of view and rotates the box about the
//   world origin without recentring it; CalcZoomAll recentres the box, honours
//   the given fov and fits with a margin (0.6 of the angle instead of 0.5).
// - AnimateMove blocks and asks for a redraw (TezRequestRedraw) after every
//   step it applies; the render views listen for TezEventRequestRedraw.
// The camera takes no lock; angles given to the rotations are radians.

#include "core/RefCounter.h"
#include "math/Box.h"
#include "math/Matrix.h"
#include "math/Quaternion.h"
#include "math/Ray.h"
#include "math/Solids.h"
#include "math/Vector.h"

TEZ_DECLARE_REF_FUNCTIONS(TezCameraView)

class TEZ_API TezCameraView : public TezRefCounter
{
public:
    enum StandardView { Front = 0, Back, Right, Left, Top, Bottom, Tilted, Isometric, StandardViewCount };
    // Rows of the standard view table: the sight runs from `from` to `to`.
    // "top" looks along +Y and "bottom" along -Y.
    static TezVector3<float> const StandardFrom[StandardViewCount];
    static TezVector3<float> const StandardTo[StandardViewCount];
    static TezVector3<float> const StandardUp[StandardViewCount];

    // Lower-case name of a standard view; null out of range.
    static char const* GetStandardViewName(int view);
    // Index of a view name in any case, or -1 when it is not a standard view.
    static int FindStandardView(char const* name);
    // As FindStandardView, but an unknown or null name gives Tilted.
    static int StandardViewIndex(char const* name);

    static TezRef<TezCameraView> Create();
    TezCameraView(TezCameraView const& other) = default;
    TezCameraView& operator=(TezCameraView const& other) = default;
    ~TezCameraView() override = default;

    virtual void SetWidth(int width) { m_width = width; }
    virtual int GetWidth() const { return m_width; }
    virtual void SetHeight(int height) { m_height = height; }
    virtual int GetHeight() const { return m_height; }
    virtual void Resize(int width, int height);
    virtual void SetFov(float fov) { m_fov = fov; }
    virtual float GetFov() const { return m_fov; }
    virtual void SetNear(float nearDist) { m_near = nearDist; }
    virtual float GetNear() const { return m_near; }
    virtual void SetFar(float farDist) { m_far = farDist; }
    virtual float GetFar() const { return m_far; }
    virtual void SetEye(TezVector3<float> const& eye) { m_eye = eye; }
    virtual TezVector3<float> GetEye() const { return m_eye; }
    virtual void SetFocus(TezVector3<float> const& focus) { m_focus = focus; }
    virtual TezVector3<float> GetFocus() const { return m_focus; }
    virtual void SetUp(TezVector3<float> const& up) { m_up = up; }
    virtual TezVector3<float> GetUp() const { return m_up; }

    // Turns up, and eye about the focus, by q.
    virtual void RotateView(TezQuaternion<float> const& q);
    // Rolls up about the line of sight.
    virtual void RotateAround(float angle);
    // Turns eye about the focus around the up vector as it stands.
    virtual void RotateHorizontally(float angle);
    // Tilts the line of sight about the axis up x (eye - focus).
    virtual void RotateVertically(float angle);
    // Pans eye and focus together by a pixel offset.
    virtual void Move(int dx, int dy);
    // Re-fits near and far around the box, seen from the eye.
    virtual void NearFarToBox(TezBox3<float> const& box);

    virtual void UsePerspective(bool on) { m_perspective = on; }
    virtual bool UsingPerspective() const { return m_perspective; }
    virtual TezMatrix44<float> GetPerspectiveMatrix() const;
    virtual TezMatrix44<float> GetOrthographicMatrix() const;
    virtual TezMatrix44<float> GetProjectionMatrix() const;
    virtual TezMatrix44<float> GetViewOrientationMatrix() const;
    virtual TezMatrix44<float> GetViewMatrix() const;
    // x = normalize(up ^ z) (the viewer's left), y = normalize(z ^ x),
    // z = normalize(focus - eye).
    virtual void GetViewAxes(TezVector3<float>& x, TezVector3<float>& y, TezVector3<float>& z) const;
    // Rows of the inverse of the matrix with x, y, z as its rows: a matrix
    // with these rows takes world offsets into view coordinates.
    virtual void GetInverseViewAxes(TezVector3<float>& x, TezVector3<float>& y, TezVector3<float>& z) const;
    // Point of the pixel's ray at distance near (perspective) or at the focus
    // distance (orthographic).
    virtual TezVector3<float> PointFromPixel(int x, int y) const;
    // (pixel x, pixel y counting up from the bottom, depth).
    virtual TezVector3<float> PixelFromPoint(TezVector3<float> const& p) const;
    virtual void SetDynamic(bool on) { m_dynamic = on; }
    virtual bool IsDynamic() const { return m_dynamic; }
    // Half the height of the view at the focus distance.
    virtual float GetScale() const;
    // Ray through the centre of pixel (x, y), y counting down from the top;
    // the direction is unit length.
    virtual TezRay RayToPixel(float x, float y) const;
    // Four planes through the corner rays of a pixel rectangle, inside
    // pointing inward; no near or far plane.
    virtual TezClipRegion<float> ClipRegionFromPixel(int x0, int y0, int x1, int y1) const;
    // Fits the box into the view at a field of view of 30 degrees.
    virtual void ZoomAll(TezBox3<float> const& box);
    // Moves to the given view in `steps` steps, blocking; steps behind a
    // schedule of 0.1 s each are skipped, the last one always applied.
    virtual void AnimateMove(TezVector3<float> const& eye, TezVector3<float> const& focus, TezVector3<float> const& up,
                             float fov, TezBox3<float> const& box, int steps);

    // Eye and focus that fit the box looking from `from` towards `to`; the
    // camera is untouched, and so are the outputs when the box is empty.
    void CalcZoomAll(TezBox3<float> box, TezVector3<float> const& from, TezVector3<float> const& to,
                     TezVector3<float> const& up, float fov, TezVector3<float>& outEye,
                     TezVector3<float>& outFocus) const;
    // Standard view `view` (0 to 7) of the box, with the table's vectors
    // taken through transform. Throws std::runtime_error for another index.
    void CalcStandardView(TezBox3<float> box, TezMatrix44<float> const& transform, int view, float fov,
                          TezVector3<float>& outEye, TezVector3<float>& outFocus, TezVector3<float>& outUp) const;

    // Frames the whole box: looking from `from` towards `to` with `up`, sets
    // eye and focus so that every corner of the box lies inside the view
    // with `margin` (0.05: 5% of the half extent) to spare, for the current
    // projection, field of view and viewport; then fits near and far. Unlike
    // CalcZoomAll, whose fit may crop, nothing of the box is cut off, at any
    // scale. In orthographic mode the eye also stays in front of the box.
    // Does nothing on an empty box.
    void FrameBox(TezBox3<float> const& box, TezVector3<float> const& from, TezVector3<float> const& to,
                  TezVector3<float> const& up, float margin = 0.05f);
    // FrameBox along standard view `view`; throws std::runtime_error for an
    // index outside 0 to 7.
    void FrameStandardView(TezBox3<float> const& box, int view, float margin = 0.05f);

    // The tools' gestures; the box is the scene's bounds, to which near and
    // far are re-fitted afterwards.
    void PanView(TezBox3<float> box, int dx, int dy);
    // False, and nothing changes, unless the drag moved on both axes.
    bool RotateView(TezBox3<float> box, int x0, int y0, int x1, int y1, bool horizontal, bool vertical);
    void ZoomView(TezBox3<float> box, float delta);

private:
    TezCameraView() = default;

    // tan of half the field of view.
    float HalfAngleTan() const;
    float Aspect() const;

    int m_width = 0;
    int m_height = 0;
    float m_fov = 30.0f;
    TezVector3<float> m_focus{0, 0, 0};
    TezVector3<float> m_eye{0, 0, 10};
    TezVector3<float> m_up{0, 1, 0};
    float m_near = 5.0f;
    float m_far = 40.0f;
    bool m_perspective = false;
    bool m_dynamic = false;
};
