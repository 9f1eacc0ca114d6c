#include "render/objects/SceneIntersectionLines.h"

#include "render/CameraView.h"
#include "render/effects/EqualDepthEffect.h"
#include "render/scene/SceneDrawData.h"

#include <GL/glew.h>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneIntersectionLines)
TEZ_TYPIFIED_IMPL(TezSceneIntersectionLines, "Intersection Lines Scene Object")

TezSceneIntersectionLines::TezSceneIntersectionLines() : TezSceneObject(TezEqualDepthEffect::StaticType())
{
    SetColor(TezVector4<float>(1.0f, 0.85f, 0.1f, 1.0f));
}

TezSceneIntersectionLines::~TezSceneIntersectionLines() = default;

TezRef<TezSceneIntersectionLines> TezSceneIntersectionLines::Create(TezRef<TezSceneObject> first,
                                                                    TezRef<TezSceneObject> second)
{
    TezRef<TezSceneIntersectionLines> object(new TezSceneIntersectionLines());
    object->SetObjects(first, second);
    return object;
}

void TezSceneIntersectionLines::SetObjects(TezRef<TezSceneObject> first, TezRef<TezSceneObject> second)
{
    m_first = first;
    m_second = second;
    SetProperty(NeedsBuild, true);
}

bool TezSceneIntersectionLines::BuildObject(TezSceneObject*, TezSceneObject*)
{
    // The depth buffer follows the view's size, which only a draw knows.
    m_depthBuffer = nullptr;
    return true;
}

bool TezSceneIntersectionLines::UnbuildObject(TezSceneObject*, TezSceneObject*)
{
    m_depthBuffer = nullptr;
    return true;
}

bool TezSceneIntersectionLines::DrawObject(TezSceneDrawData const& data, TezSceneObject* first, TezSceneObject* second)
{
    auto* effect = dynamic_cast<TezEqualDepthEffect*>(data.GetEffect().Get());
    TezRef<TezCameraView> camera = data.GetCamera();
    if (!effect || !first || !second || !camera || camera->GetWidth() < 1 || camera->GetHeight() < 1)
        return true;
    // An object not yet built draws nothing this frame; its own draw builds it.
    if (first->GetProperty(NeedsBuild) || second->GetProperty(NeedsBuild))
        return true;
    int const width = camera->GetWidth(), height = camera->GetHeight();
    unsigned const pass = data.GetEffectPass();
    TezSceneObject* const surface = pass < 2 ? second : first; // whose depth is kept
    TezSceneObject* const drawn = pass < 2 ? first : second;   // where the curve is drawn

    if (pass % 2 == 0) {
        if (!m_depthBuffer) {
            m_depthBuffer = TezFrameBuffer::Create(width, height);
            if (!m_depthBuffer->Build()) {
                m_depthBuffer = nullptr;
                return false;
            }
        } else {
            m_depthBuffer->Resize(width, height);
        }
        GLint drawFrame = 0, readFrame = 0;
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &drawFrame);
        glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &readFrame);
        GLboolean depthTest = glIsEnabled(GL_DEPTH_TEST);
        m_depthBuffer->Bind();
        glDepthMask(GL_TRUE);
        glClear(GL_DEPTH_BUFFER_BIT);
        glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
        glEnable(GL_DEPTH_TEST);
        // Depth only: no texture to compare with, and a tolerance beyond the
        // depth range, so that nothing is discarded.
        glActiveTexture(GL_TEXTURE0);
        glBindTexture(GL_TEXTURE_2D, 0);
        effect->SetEqualDepthParams(data, nullptr, width, height, 2.0f);
        effect->SetWorldMatrix(surface->GetWorldMatrix());
        surface->DrawObject(data);
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        if (!depthTest)
            glDisable(GL_DEPTH_TEST);
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(drawFrame));
        glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(readFrame));
        return true;
    }

    if (!m_depthBuffer)
        return true;
    effect->SetEqualDepthParams(data, m_depthBuffer->GetDepthAttachment(), width, height, m_depthTolerance);
    effect->DisableShading(!m_shadingEnabled);
    effect->SetWorldMatrix(drawn->GetWorldMatrix());
    GLboolean const depthTest = glIsEnabled(GL_DEPTH_TEST);
    GLint depthFunction = GL_LESS;
    glGetIntegerv(GL_DEPTH_FUNC, &depthFunction);
    if (m_renderMode == ShowThrough) {
        glDisable(GL_DEPTH_TEST);
    } else {
        // The drawn surface is in the frame's depth already: pull the curve
        // a hair towards the eye so that it wins over its own surface.
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LEQUAL);
        glEnable(GL_POLYGON_OFFSET_FILL);
        glPolygonOffset(0.0f, -4.0f);
    }
    drawn->DrawObject(data);
    glDisable(GL_POLYGON_OFFSET_FILL);
    glDepthFunc(static_cast<GLenum>(depthFunction));
    if (depthTest)
        glEnable(GL_DEPTH_TEST);
    else
        glDisable(GL_DEPTH_TEST);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, 0);
    return true;
}
