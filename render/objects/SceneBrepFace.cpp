#include "render/objects/SceneBrepFace.h"

#include "core/Logger.h"
#include "mesh/brep/Brep.h"
#include "render/effects/GeometryEffects.h"
#include "render/gl/FrameBuffer.h"
#include "render/gl/Texture.h"
#include "render/scene/SceneDrawData.h"

#include <GL/glew.h>

#include <stdexcept>

TEZ_DEFINE_REF_FUNCTIONS(TezSceneBrepFace)
TEZ_TYPIFIED_IMPL(TezSceneBrepFace, "Brep Face Scene Object")

TezSceneBrepFace::TezSceneBrepFace() : TezSceneObject(TezEffectBrepFace::StaticType()) { SetProperty(Mappable, true); }

TezSceneBrepFace::~TezSceneBrepFace() = default;

TezRef<TezSceneBrepFace> TezSceneBrepFace::Create(TezRef<TezBrepFace> face)
{
    TezRef<TezSceneBrepFace> object(new TezSceneBrepFace());
    object->SetFace(face);
    return object;
}

void TezSceneBrepFace::SetFace(TezRef<TezBrepFace> face)
{
    m_face = face;
    m_boundsValid = false;
    SetProperty(NeedsBuild, true);
}

TezRef<TezBrepFace> TezSceneBrepFace::GetFace() const { return m_face; }

TezBox3<float> TezSceneBrepFace::GetObjectBounds()
{
    if (!m_boundsValid && m_face) {
        m_bounds = m_face->ComputeBounds();
        m_boundsValid = true;
    }
    return m_boundsValid ? m_bounds : TezBox3<float>();
}

bool TezSceneBrepFace::BuildObject()
{
    m_grid.Release();
    m_trimmed.Release();
    m_trimRendered = false;
    if (!m_face)
        return true;

    int nu = 0, nv = 0;
    std::vector<TezBrepFacePoint> points;
    TezBrepFaceMesh mesh;
    try {
        m_face->MakeSurfaceGrid(nu, nv, points);
        m_face->Tessellate(mesh);
    } catch (std::runtime_error const& error) {
        // A face that cannot be rebuilt is not drawn; the others are.
        TezLogger::warn("TezSceneBrepFace: %s\n", error.what());
        return true;
    }
    std::vector<float> floats;
    floats.reserve(points.size() * 8);
    for (TezBrepFacePoint const& p : points)
        floats.insert(floats.end(), {p.position.x, p.position.y, p.position.z, p.normal.x, p.normal.y, p.normal.z,
                                     p.param.x, p.param.y});
    std::vector<unsigned> indices;
    for (int j = 0; j + 1 < nv; ++j) {
        for (int i = 0; i + 1 < nu; ++i) {
            unsigned const a = static_cast<unsigned>(j * nu + i), b = a + 1;
            unsigned const c = a + static_cast<unsigned>(nu), d = c + 1;
            indices.insert(indices.end(), {a, b, d, a, d, c});
        }
    }
    m_grid.Upload(floats, {3, 3, 2}, indices);

    // The trimmed region, for the trim texture.
    floats.clear();
    for (size_t i = 0; i < mesh.positions.size(); ++i)
        floats.insert(floats.end(), {mesh.positions[i].x, mesh.positions[i].y, mesh.positions[i].z, mesh.normals[i].x,
                                     mesh.normals[i].y, mesh.normals[i].z, mesh.params[i].x, mesh.params[i].y});
    m_trimmed.Upload(floats, {3, 3, 2}, mesh.indices);

    if (!m_trimTexture)
        m_trimTexture =
            TezTexture::Create(TezTexture::PixelR8, TrimTextureSize, TrimTextureSize, 1, TezTexture::Type2D, false);
    if (!m_trimFrame) {
        m_trimFrame = TezFrameBuffer::Create();
        m_trimFrame->SetColorAttachment(0, m_trimTexture);
    }
    return true;
}

bool TezSceneBrepFace::UnbuildObject()
{
    m_grid.Release();
    m_trimmed.Release();
    if (m_trimFrame)
        m_trimFrame->Unbuild();
    if (m_trimTexture)
        m_trimTexture->Unbuild();
    m_trimFrame = nullptr;
    m_trimTexture = nullptr;
    m_trimRendered = false;
    return true;
}

// Draws the trimmed region white on black into the trim texture, with the
// pass-0 program that the effect has bound.
bool TezSceneBrepFace::RenderTrimTexture()
{
    // The caller's frame buffer is read before Build, which unbinds.
    GLint frame = 0, viewport[4] = {0, 0, 0, 0}, program = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &frame);
    if (!m_trimFrame || (!m_trimFrame->IsValid() && !m_trimFrame->Build())) {
        glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(frame));
        return false;
    }
    glGetIntegerv(GL_VIEWPORT, viewport);
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    GLboolean const depth = glIsEnabled(GL_DEPTH_TEST);
    GLboolean const blend = glIsEnabled(GL_BLEND);
    GLfloat clear[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);

    glBindFramebuffer(GL_FRAMEBUFFER, m_trimFrame->GetName());
    glViewport(0, 0, TrimTextureSize, TrimTextureSize);
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
    GLint const color = glGetUniformLocation(static_cast<GLuint>(program), "objectColor");
    if (color >= 0)
        glUniform4f(color, 1, 1, 1, 1);
    m_trimmed.Draw(GL_TRIANGLES);

    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(frame));
    glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
    glClearColor(clear[0], clear[1], clear[2], clear[3]);
    if (depth)
        glEnable(GL_DEPTH_TEST);
    if (blend)
        glEnable(GL_BLEND);
    return true;
}

bool TezSceneBrepFace::DrawObject(TezSceneDrawData const& data)
{
    if (data.GetEffectPass() == 0) {
        if (!m_trimRendered)
            m_trimRendered = RenderTrimTexture();
        return true;
    }
    if (!m_trimRendered || !m_trimTexture)
        return true;
    m_trimTexture->BindSlot(0);
    m_grid.Draw(GL_TRIANGLES);
    m_trimTexture->UnbindSlot(0);
    glActiveTexture(GL_TEXTURE0);
    return true;
}
