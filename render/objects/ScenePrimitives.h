#pragma once
// The simple shapes of the scene:
//   TezSceneBox       a box's twelve edges as lines, unlit ("Unlit Effect");
//                     the box is given in the object's frame (SetBox)
//   TezSceneCone      a cone along +z, base of `radius` at z = 0, apex at
//                     z = height, lit ("Default Effect")
//   TezSceneCylinder  a closed cylinder along +z from z = 0 to height, lit
//   TezSceneSphere    a sphere of `radius` around the origin, lit
//   TezSceneQuad      a flat rectangle in z = 0 facing +z, lit; GetMesh
//   TezSceneFrame     a square frame slab centred on the origin, lit
// The lit shapes are triangle meshes (TezSceneMesh) made by the mesh
// generators; their setters make a new mesh and mark the object for a
// rebuild, which uploads it at the next draw. Sizes are not checked: a zero
// or negative size gives an empty or inside-out shape. Drawing needs the
// context current.

#include "math/Box.h"
#include "render/gl/Primitives.h"
#include "render/objects/SceneMesh.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneBox)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneCone)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneCylinder)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneSphere)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneQuad)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneFrame)

class TEZ_API TezSceneBox : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneBox)
public:
    static TezRef<TezSceneBox> Create(TezBox3<float> const& box = TezBox3<float>());
    ~TezSceneBox() override;

    TezBox3<float> GetBox() const { return m_box; }
    void SetBox(TezBox3<float> const& box);

    TezBox3<float> GetObjectBounds() override { return m_box; }
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneBox();

private:
    TezBox3<float> m_box;
    TezGLPrimitives m_edges;
};

class TEZ_API TezSceneCone : public TezSceneMesh
{
    TEZ_TYPIFIED_CLASS(TezSceneCone)
public:
    static TezRef<TezSceneCone> Create(float radius = 0.5f, float height = 1.0f);
    void SetCone(float radius, float height);
    float GetRadius() const { return m_radius; }
    float GetHeight() const { return m_height; }

protected:
    TezSceneCone();

private:
    float m_radius = 0.5f;
    float m_height = 1.0f;
};

class TEZ_API TezSceneCylinder : public TezSceneMesh
{
    TEZ_TYPIFIED_CLASS(TezSceneCylinder)
public:
    static TezRef<TezSceneCylinder> Create(float radius = 0.5f, float height = 1.0f);
    void SetCylinder(float radius, float height);
    float GetRadius() const { return m_radius; }
    float GetHeight() const { return m_height; }

protected:
    TezSceneCylinder();

private:
    float m_radius = 0.5f;
    float m_height = 1.0f;
};

class TEZ_API TezSceneSphere : public TezSceneMesh
{
    TEZ_TYPIFIED_CLASS(TezSceneSphere)
public:
    static TezRef<TezSceneSphere> Create(float radius = 1.0f);
    void SetRadius(float radius);
    float GetRadius() const { return m_radius; }

protected:
    TezSceneSphere();

private:
    float m_radius = 1.0f;
};

class TEZ_API TezSceneQuad : public TezSceneMesh
{
    TEZ_TYPIFIED_CLASS(TezSceneQuad)
public:
    static TezRef<TezSceneQuad> Create(float halfWidth = 0.5f, float halfHeight = 0.5f);
    void SetQuad(float halfWidth, float halfHeight);

protected:
    TezSceneQuad();
};

class TEZ_API TezSceneFrame : public TezSceneMesh
{
    TEZ_TYPIFIED_CLASS(TezSceneFrame)
public:
    static TezRef<TezSceneFrame> Create(float outerHalfSize = 0.5f, float innerHalfSize = 0.35f, float height = 0.1f);
    void SetFrame(float outerHalfSize, float innerHalfSize, float height);

protected:
    TezSceneFrame();
};
