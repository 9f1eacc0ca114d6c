#pragma once
// Shapes outlined by ribbons of a constant width in pixels, whatever the
// distance: the effects' geometry stages widen lines on the screen, and the
// vertex stages make the shape from a few parameters, so the vertex sets are
// small and a change of size is only a uniform.
//   TezSceneRibbonBox       the twelve edges of a box ("Effect Rectangular
//                           Ribbon"); the face diagonals too while the
//                           show-diagonals option is set
//   TezSceneRibbonCylinder  the two rims of a (truncated) cone along +z, and
//                           four generators with SetShowDiagonals ("Effect
//                           Revolved Ribbon")
//   TezSceneRibbonSphere    circles of latitude, then meridians, of a
//                           sphere around the origin ("Effect Polar Ribbon")
// Each is mappable, starts with the base colour at alpha 0.2 and a ribbon
// 20 pixels wide. Setters that change the shape mark the object for a
// rebuild. Drawing needs the context current.
//
// The box: width and depth are HALF sizes along x and y, height a full size
// along z, from the middle of the bottom face at the origin. SetBox(box)
// takes half the box's x and y extents and its z extent, and moves the
// object (its transform) to the middle of the box's bottom face.

#include "math/Box.h"
#include "render/gl/Primitives.h"
#include "render/scene/SceneObject.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneRibbonBox)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneRibbonCylinder)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneRibbonSphere)
class TezPrefOptionBool;

class TEZ_API TezSceneRibbonBox : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneRibbonBox)
public:
    static TezRef<TezSceneRibbonBox> Create();
    static TezRef<TezSceneRibbonBox> Create(float width, float depth, float height);
    ~TezSceneRibbonBox() override;

    virtual float GetWidth() const { return m_width; }
    virtual void SetWidth(float width);
    virtual float GetDepth() const { return m_depth; }
    virtual void SetDepth(float depth);
    float GetHeight() const { return m_height; }
    void SetHeight(float height);
    float GetRibbonWidth() const { return m_ribbonWidth; }
    void SetRibbonWidth(float pixels) { m_ribbonWidth = pixels; }
    void SetBox(TezBox3<float> const& box);
    // The option that shows the diagonals of every ribbon box; none: hidden.
    static void SetShowDiagonals(TezRef<TezPrefOptionBool> option);

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneRibbonBox();

private:
    float m_depth = 0.5f;
    float m_height = 1.0f;
    float m_width = 0.5f;
    float m_ribbonWidth = 20.0f;
    TezGLPrimitives m_edges;
    TezGLPrimitives m_diagonals;
};

class TEZ_API TezSceneRibbonCylinder : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneRibbonCylinder)
public:
    static TezRef<TezSceneRibbonCylinder> Create(float bottomRadius = 0.5f, float topRadius = 0.5f,
                                                 float height = 1.0f);
    ~TezSceneRibbonCylinder() override;

    float GetBottomRadius() const { return m_bottomRadius; }
    void SetBottomRadius(float radius);
    float GetTopRadius() const { return m_topRadius; }
    void SetTopRadius(float radius);
    float GetHeight() const { return m_height; }
    void SetHeight(float height);
    void SetCylinder(float bottomRadius, float topRadius, float height);
    void SetShowDiagonals(bool show) { m_showDiagonals = show; }
    bool GetShowDiagonals() const { return m_showDiagonals; }
    float GetRibbonWidth() const { return m_ribbonWidth; }
    void SetRibbonWidth(float pixels) { m_ribbonWidth = pixels; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneRibbonCylinder();

private:
    float m_bottomRadius = 0.5f;
    float m_topRadius = 0.5f;
    float m_height = 1.0f;
    bool m_showDiagonals = false;
    float m_ribbonWidth = 20.0f;
    TezGLPrimitives m_rims;
    TezGLPrimitives m_generators;
};

class TEZ_API TezSceneRibbonSphere : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneRibbonSphere)
public:
    static TezRef<TezSceneRibbonSphere> Create(float radius = 1.0f);
    ~TezSceneRibbonSphere() override;

    float GetRadius() const { return m_radius; }
    void SetRadius(float radius);
    float GetRibbonWidth() const { return m_ribbonWidth; }
    void SetRibbonWidth(float pixels) { m_ribbonWidth = pixels; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    // Latitudes in the effect's pass 0, meridians in pass 1.
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneRibbonSphere();

private:
    float m_radius = 1.0f;
    float m_ribbonWidth = 20.0f;
    TezGLPrimitives m_latitudes;
    TezGLPrimitives m_meridians;
};
