#pragma once
// TezSceneRectangle: a rectangle outlined on the screen, the rubber band of
// a selection drag. Its corners are in normalized screen units, x and y from
// 0 (left, bottom) to 1 (right, top), drawn by the "Screen Space Effect"
// without the camera, over everything (the depth test is off while it
// draws). No bounds in the scene; not mappable. SetRectangle marks it for a
// rebuild; an empty rectangle draws nothing. Drawing needs the context
// current.

#include "math/Box.h"
#include "render/gl/Primitives.h"
#include "render/scene/SceneObject.h"

TEZ_DECLARE_REF_FUNCTIONS(TezSceneRectangle)

class TEZ_API TezSceneRectangle : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneRectangle)
public:
    static TezRef<TezSceneRectangle> Create(TezBox2<float> const& rectangle = TezBox2<float>());
    ~TezSceneRectangle() override;

    TezBox2<float> GetRectangle() const { return m_rectangle; }
    void SetRectangle(TezBox2<float> const& rectangle);

    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    TezSceneRectangle();

private:
    TezBox2<float> m_rectangle;
    TezGLPrimitives m_outline;
};
