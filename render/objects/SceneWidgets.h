#pragma once
// The handles that the object tools show in the scene:
//   TezSceneArrow         a lit arrow from the origin to 1 along one axis
//   TezSceneRing          a lit ring of radius 1 around one axis
//   TezSceneMoveWidget    three arrows and their labels "X", "Y", "Z"
//   TezSceneRotateWidget  three rings
// Arrows and rings are mappable, so the identity map tells which one is
// under the pointer. A widget's own node draws nothing; its parts are its
// children once a tool hangs them in a scene (the widget keeps them between
// scenes, since removing a branch from a scene dismantles it).
//
// A widget stays upright and of its own size: its world matrix is a
// translation to the position of the parent's world matrix (column 3)
// times its own transform, so the parent's rotation and scale do not reach
// it. Colours follow the axis (red, green, blue in HSV), brighter when the
// axis is highlighted. Drawing needs the context current.

#include "render/objects/SceneMesh.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneArrow)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneRing)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneText)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneMoveWidget)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneRotateWidget)

// The colour of an axis (0 to 2), normal or highlighted, as RGBA.
TEZ_API TezVector4<float> TezWidgetAxisColor(int axis, bool highlighted);

class TEZ_API TezSceneArrow : public TezSceneMesh
{
    TEZ_TYPIFIED_CLASS(TezSceneArrow)
public:
    // An axis outside 0..2 is refused with std::runtime_error.
    static TezRef<TezSceneArrow> Create(int axis = 2);
    int GetAxis() const { return m_axis; }

protected:
    TezSceneArrow();

private:
    int m_axis = 2;
};

class TEZ_API TezSceneRing : public TezSceneMesh
{
    TEZ_TYPIFIED_CLASS(TezSceneRing)
public:
    enum RingType { Torus = 0, Flat = 1 };
    // An axis outside 0..2 is refused with std::runtime_error.
    static TezRef<TezSceneRing> Create(RingType type = Torus, int axis = 2);
    int GetAxis() const { return m_axis; }
    RingType GetRingType() const { return m_ringType; }

protected:
    TezSceneRing();

private:
    RingType m_ringType = Torus;
    int m_axis = 2;
};

class TEZ_API TezSceneMoveWidget : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneMoveWidget)
public:
    static TezRef<TezSceneMoveWidget> Create();
    // Only the chosen axes are visible; labelSize is the labels' height in
    // pixels.
    static TezRef<TezSceneMoveWidget> Create(bool x, bool y, bool z, int labelSize);

    // Null for an index outside 0..2.
    TezRef<TezSceneArrow> GetArrow(int index) const;
    TezRef<TezSceneText> GetLabel(int index) const;

    TezMatrix44<float> GetWorldMatrix() override;
    // Turns the labels with the view before the base draws.
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneMoveWidget();

private:
    TezRef<TezSceneArrow> m_arrows[3];
    TezRef<TezSceneText> m_labels[3];
};

class TEZ_API TezSceneRotateWidget : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneRotateWidget)
public:
    static TezRef<TezSceneRotateWidget> Create();
    // Null for an index outside 0..2.
    TezRef<TezSceneRing> GetRing(int index) const;

    TezMatrix44<float> GetWorldMatrix() override;

protected:
    TezSceneRotateWidget();

private:
    TezRef<TezSceneRing> m_rings[3];
};
