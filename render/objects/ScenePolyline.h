#pragma once
// Lines through points of the object's frame:
//   TezScenePolyline       one polyline, unlit ("Unlit Effect"), drawn as a
//                          strip, a closed loop, separate segments (pairs of
//                          points) or points, by SetRenderType
//   TezScenePolylineGroup  many polylines in one buffer, unlit, as strips or
//                          (SetRenderAsPoints) as points
//   TezSceneThickPolyline  one polyline as a band of constant thickness in
//                          view units that faces the viewer, lit, mitred at
//                          the joints ("Effect Thick Polyline")
// Lines are one pixel wide (the core profile has no wider lines); points
// are drawn PointSize pixels across. Setters of the points mark the object
// for a rebuild; bounds are the points' box. Drawing needs the context
// current.

#include "math/Box.h"
#include "render/gl/Primitives.h"
#include "render/scene/SceneObject.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezScenePolyline)
TEZ_DECLARE_REF_FUNCTIONS(TezScenePolylineGroup)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneThickPolyline)

class TEZ_API TezScenePolyline : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezScenePolyline)
public:
    enum RenderType { Strip = 0, Loop = 1, Segments = 2, Points = 3 };
    static constexpr float PointSize = 4.0f;

    static TezRef<TezScenePolyline> Create(std::vector<TezVector3<float>> const& vertices = {},
                                           RenderType type = Strip);
    ~TezScenePolyline() override;

    void SetVertices(std::vector<TezVector3<float>> const& vertices);
    std::vector<TezVector3<float>> const& GetVertices() const { return m_vertices; }
    void SetRenderType(RenderType type) { m_renderType = type; }
    RenderType GetRenderType() const { return m_renderType; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezScenePolyline();

private:
    std::vector<TezVector3<float>> m_vertices;
    RenderType m_renderType = Strip;
    TezGLPrimitives m_lines;
};

class TEZ_API TezScenePolylineGroup : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezScenePolylineGroup)
public:
    static TezRef<TezScenePolylineGroup> Create(std::vector<std::vector<TezVector3<float>>> const& polylines = {});
    ~TezScenePolylineGroup() override;

    void SetVertices(std::vector<std::vector<TezVector3<float>>> const& polylines);
    size_t GetNumPolylines() const { return m_polylines.size(); }
    void SetRenderAsPoints(bool points) { m_renderAsPoints = points; }
    bool GetRenderAsPoints() const { return m_renderAsPoints; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezScenePolylineGroup();

private:
    std::vector<std::vector<TezVector3<float>>> m_polylines;
    bool m_renderAsPoints = false;
    TezGLPrimitives m_lines;
};

class TEZ_API TezSceneThickPolyline : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneThickPolyline)
public:
    static TezRef<TezSceneThickPolyline> Create(std::vector<TezVector3<float>> const& vertices = {},
                                                bool closed = false);
    ~TezSceneThickPolyline() override;

    void SetVertices(std::vector<TezVector3<float>> const& vertices);
    std::vector<TezVector3<float>> const& GetVertices() const { return m_vertices; }
    // A closed polyline joins its last point to its first, mitred there too.
    void SetClosed(bool closed);
    bool IsClosed() const { return m_closed; }
    // Width of the band in view units (the effect starts at 0.02).
    void SetThickness(float thickness) { m_thickness = thickness; }
    float GetThickness() const { return m_thickness; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneThickPolyline();

private:
    std::vector<TezVector3<float>> m_vertices;
    bool m_closed = false;
    float m_thickness = 0.02f;
    TezGLPrimitives m_segments;
};
