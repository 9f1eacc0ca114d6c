#pragma once
// TezSceneIntersectionLines: the curves where the surfaces of two scene
// objects meet, drawn in this object's colour by the "Equal Depth Effect"
// (on top, four passes for each object):
//   pass 0  the second object's depth into a depth buffer of the view's size
//   pass 1  the first object's surface where its depth equals that depth
//           within the tolerance
//   passes 2 and 3  the same with the objects' roles swapped
// so the curve is drawn from both surfaces. The tolerance is in window depth
// units (0 to 1 over the camera's near to far), 0.004 to start: a curve a
// pixel or two wide where near and far hug the scene. The curve is wider
// where the surfaces meet at a grazing angle, and thinner (broken, at
// worst) where they meet steeply or near and far lie wide apart. RenderMode VisibleOnly keeps the depth
// test of the frame (hidden parts of the curve stay hidden); ShowThrough
// draws the whole curve over everything. Shading lights the curve as its
// surface is lit; without it the colour is flat.
//
// The two objects are drawn through their own DrawObject with this effect's
// program, so they must be kinds whose DrawObject only binds their geometry
// and draws (meshes and the shapes made of meshes), and must be in the scene,
// built by their own draws earlier in the frame. The object holds both with
// counted references. Not mappable unless told; no bounds. Drawing needs
// the context current.

#include "render/gl/FrameBuffer.h"
#include "render/scene/SceneObject.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneIntersectionLines)

class TEZ_API TezSceneIntersectionLines : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneIntersectionLines)
public:
    enum RenderMode { VisibleOnly = 0, ShowThrough = 1 };

    static TezRef<TezSceneIntersectionLines> Create(TezRef<TezSceneObject> first = nullptr,
                                                    TezRef<TezSceneObject> second = nullptr);
    ~TezSceneIntersectionLines() override;

    void SetObjects(TezRef<TezSceneObject> first, TezRef<TezSceneObject> second);
    TezRef<TezSceneObject> GetFirst() const { return m_first; }
    TezRef<TezSceneObject> GetSecond() const { return m_second; }
    float GetDepthTolerance() const { return m_depthTolerance; }
    void SetDepthTolerance(float tolerance) { m_depthTolerance = tolerance; }
    int GetRenderMode() const { return m_renderMode; }
    void SetRenderMode(int mode) { m_renderMode = mode; }
    bool GetShadingEnabled() const { return m_shadingEnabled; }
    void SetShadingEnabled(bool enabled) { m_shadingEnabled = enabled; }

    bool BuildObject() override { return BuildObject(m_first.Get(), m_second.Get()); }
    bool UnbuildObject() override { return UnbuildObject(m_first.Get(), m_second.Get()); }
    bool DrawObject(TezSceneDrawData const& data) override { return DrawObject(data, m_first.Get(), m_second.Get()); }

protected:
    TezSceneIntersectionLines();
    bool BuildObject(TezSceneObject* first, TezSceneObject* second);
    bool UnbuildObject(TezSceneObject* first, TezSceneObject* second);
    bool DrawObject(TezSceneDrawData const& data, TezSceneObject* first, TezSceneObject* second);

private:
    TezRef<TezSceneObject> m_first;
    TezRef<TezSceneObject> m_second;
    float m_depthTolerance = 4e-3f;
    int m_renderMode = VisibleOnly;
    bool m_shadingEnabled = true;
    TezRef<TezFrameBuffer> m_depthBuffer;
};
