#include "render/objects/SceneRectangle.h"

#include "render/effects/ScreenEffects.h"

#include <GL/glew.h>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneRectangle)
TEZ_TYPIFIED_IMPL(TezSceneRectangle, "Rectangle")

TezSceneRectangle::TezSceneRectangle() : TezSceneObject(TezScreenSpaceEffect::StaticType())
{
    SetProperty(NoBounds, true);
}

TezSceneRectangle::~TezSceneRectangle() = default;

TezRef<TezSceneRectangle> TezSceneRectangle::Create(TezBox2<float> const& rectangle)
{
    TezRef<TezSceneRectangle> object(new TezSceneRectangle());
    object->SetRectangle(rectangle);
    return object;
}

void TezSceneRectangle::SetRectangle(TezBox2<float> const& rectangle)
{
    m_rectangle = rectangle;
    SetProperty(NeedsBuild, true);
}

bool TezSceneRectangle::BuildObject()
{
    m_outline.Release();
    if (m_rectangle.Empty())
        return true;
    TezVector2<float> const a = m_rectangle.GetMinimum(), b = m_rectangle.GetMaximum();
    m_outline.Upload({a.x, a.y, 0, b.x, a.y, 0, b.x, b.y, 0, a.x, b.y, 0}, {3});
    return true;
}

bool TezSceneRectangle::UnbuildObject()
{
    m_outline.Release();
    return true;
}

bool TezSceneRectangle::DrawObject(TezSceneDrawData const&)
{
    GLboolean const depthTest = glIsEnabled(GL_DEPTH_TEST);
    glDisable(GL_DEPTH_TEST);
    m_outline.Draw(GL_LINE_LOOP);
    if (depthTest)
        glEnable(GL_DEPTH_TEST);
    return true;
}
