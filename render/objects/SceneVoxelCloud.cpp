#include "render/objects/SceneVoxelCloud.h"

#include "render/CameraView.h"
#include "render/effects/DefaultEffects.h"
#include "render/effects/VolumeEffects.h"
#include "render/objects/detail/ObjectGL.h"
#include "render/scene/SceneDrawData.h"
#include "volume/VoxelCloud.h"

using namespace tez_objects;

TEZ_DEFINE_REF_FUNCTIONS(TezSceneVoxelCloud)
TEZ_DEFINE_REF_FUNCTIONS(TezScenePointCloud)
TEZ_TYPIFIED_IMPL(TezSceneVoxelCloud, "Voxel Cloud")
TEZ_TYPIFIED_IMPL(TezScenePointCloud, "Point Cloud")

// ---- TezSceneVoxelCloud ----

TezSceneVoxelCloud::TezSceneVoxelCloud() : TezSceneObject(TezEffectVoxelCloud::StaticType())
{
    SetProperty(Visible, true);
    SetProperty(Mappable, true);
    SetColor(TezVector4<float>(0.9f, 0.75f, 0.3f, 1.0f));
}

TezSceneVoxelCloud::~TezSceneVoxelCloud() = default;

TezRef<TezSceneVoxelCloud> TezSceneVoxelCloud::Create() { return TezRef<TezSceneVoxelCloud>(new TezSceneVoxelCloud()); }

void TezSceneVoxelCloud::SetCloud(TezRef<TezVoxelCloud> cloud, float cellSize)
{
    m_cloud = cloud;
    m_cellSize = cellSize;
    if (cloud) {
        m_emptyVisible = cloud->GetEmptyVisible();
        m_fullVisible = cloud->GetFullVisible();
        m_boundaryVisible = cloud->GetBoundaryVisible();
        m_state3Visible = cloud->GetState3Visible();
    }
    m_boundsValid = false;
    SetProperty(NeedsBuild, true);
}

TezRef<TezVoxelCloud> TezSceneVoxelCloud::GetCloud() const { return m_cloud; }

void TezSceneVoxelCloud::FlagsChanged()
{
    if (m_cloud) {
        m_cloud->SetEmptyVisible(m_emptyVisible);
        m_cloud->SetFullVisible(m_fullVisible);
        m_cloud->SetBoundaryVisible(m_boundaryVisible);
        m_cloud->SetState3Visible(m_state3Visible);
    }
    m_boundsValid = false;
}

void TezSceneVoxelCloud::SetEmptyVisible(bool on)
{
    m_emptyVisible = on;
    FlagsChanged();
}

void TezSceneVoxelCloud::SetFullVisible(bool on)
{
    m_fullVisible = on;
    FlagsChanged();
}

void TezSceneVoxelCloud::SetBoundaryVisible(bool on)
{
    m_boundaryVisible = on;
    FlagsChanged();
}

void TezSceneVoxelCloud::SetState3Visible(bool on)
{
    m_state3Visible = on;
    FlagsChanged();
}

void TezSceneVoxelCloud::SetCamera(TezRef<TezCameraView> camera) { m_camera = camera; }

void TezSceneVoxelCloud::SetViewport(int x, int y, int width, int height)
{
    m_viewport[0] = x;
    m_viewport[1] = y;
    m_viewport[2] = width;
    m_viewport[3] = height;
}

void TezSceneVoxelCloud::SetDirty()
{
    m_boundsValid = false;
    SetProperty(NeedsBuild, true);
}

bool TezSceneVoxelCloud::BuildObject()
{
    m_vertexArray.Bind();
    m_numUploaded = 0;
    if (m_cloud && m_cloud->GetNumPoints() > 0) {
        std::vector<TezVector4<float>> const& points = m_cloud->GetPoints();
        m_vertexBuffer.Upload(GL_ARRAY_BUFFER, points.size() * sizeof(TezVector4<float>), points.data(),
                              GL_STATIC_DRAW);
        m_numUploaded = points.size();
    } else if (!m_vertexBuffer) {
        // An empty store still gives the attribute a buffer to name.
        m_vertexBuffer.Upload(GL_ARRAY_BUFFER, 0, nullptr, GL_STATIC_DRAW);
    }
    TezGLVertexArray::SetFloatAttribute(0, 4, sizeof(TezVector4<float>), 0);
    TezGLVertexArray::Unbind();
    return true;
}

bool TezSceneVoxelCloud::UnbuildObject()
{
    m_vertexBuffer.Release();
    m_vertexArray.Release();
    m_numUploaded = 0;
    return true;
}

TezBox3<float> TezSceneVoxelCloud::GetObjectBounds()
{
    if (!m_boundsValid) {
        m_bounds = m_cloud ? m_cloud->ComputeBounds(m_cellSize) : TezBox3<float>();
        m_boundsValid = true;
    }
    return m_bounds;
}

bool TezSceneVoxelCloud::DrawObject(TezSceneDrawData const& data)
{
    if (m_numUploaded == 0)
        return true;
    unsigned const pass = data.GetEffectPass();
    bool const solid = m_renderStyle == Solid;
    if (pass == 1 && (solid || data.IsMapping()))
        return true;
    m_vertexArray.Bind();
    TezRef<TezCameraView> camera = m_camera ? m_camera : data.GetCamera();
    GLint viewport[4] = {0, 0, 0, 0};
    glGetIntegerv(GL_VIEWPORT, viewport);
    if (m_viewport[2] > 0)
        glViewport(m_viewport[0], m_viewport[1], m_viewport[2], m_viewport[3]);

    GLuint const program = CurrentProgram();
    TezMatrix44<float> const identity = TezIdentityTransform<float>();
    SetUniform(program, "projectionMatrix", camera ? camera->GetProjectionMatrix() : identity);
    SetUniform(program, "viewMatrix", camera ? camera->GetViewMatrix() : identity);
    SetUniform(program, "modelMatrix", GetWorldMatrix());
    // Mapping draws the faces in the id colour whatever the style.
    SetUniformInt(program, "renderingStyle", data.IsMapping() ? int(Solid) : int(m_renderStyle));
    SetUniform(program, "cellSize", m_cellSize);
    SetUniformInt(program, "emptyVisible", m_emptyVisible);
    SetUniformInt(program, "fullVisible", m_fullVisible);
    SetUniformInt(program, "boundaryVisible", m_boundaryVisible);
    SetUniformInt(program, "state3Visible", m_state3Visible);

    GLboolean const depthTest = glIsEnabled(GL_DEPTH_TEST);
    glEnable(GL_DEPTH_TEST);
    if (pass == 0) {
        bool const depthOnly = !solid && !data.IsMapping();
        if (depthOnly) {
            glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
            glEnable(GL_POLYGON_OFFSET_FILL);
            glPolygonOffset(1.0f, 1.0f);
        }
        glDrawArrays(GL_POINTS, 0, GLsizei(m_numUploaded));
        glDisable(GL_POLYGON_OFFSET_FILL);
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    } else {
        glDrawArrays(GL_POINTS, 0, GLsizei(m_numUploaded));
    }
    if (!depthTest)
        glDisable(GL_DEPTH_TEST);
    if (m_viewport[2] > 0)
        glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
    TezGLVertexArray::Unbind();
    return true;
}

// ---- TezScenePointCloud ----

TezScenePointCloud::TezScenePointCloud() : TezSceneObject(TezUnlitEffect::StaticType())
{
    SetProperty(Visible, true);
    SetProperty(Mappable, true);
    SetColor(TezVector4<float>(0.3f, 0.85f, 0.4f, 1.0f));
}

TezScenePointCloud::~TezScenePointCloud() = default;

TezRef<TezScenePointCloud> TezScenePointCloud::Create(TezRef<TezPointCloud> cloud)
{
    TezRef<TezScenePointCloud> object(new TezScenePointCloud());
    object->SetCloud(cloud);
    return object;
}

void TezScenePointCloud::SetCloud(TezRef<TezPointCloud> cloud)
{
    m_cloud = cloud;
    m_renderingBounds = cloud ? cloud->ComputeBounds() : TezBox3<float>();
    SetProperty(NeedsBuild, true);
}

TezRef<TezPointCloud> TezScenePointCloud::GetCloud() const { return m_cloud; }

bool TezScenePointCloud::BuildObject()
{
    m_numUploaded = 0;
    if (!m_cloud || m_cloud->GetNumPoints() == 0)
        return false;
    std::vector<TezVector3<float>> const& points = m_cloud->GetPoints();
    m_vertexArray.Bind();
    m_vertexBuffer.Upload(GL_ARRAY_BUFFER, points.size() * sizeof(TezVector3<float>), points.data(), GL_STATIC_DRAW);
    TezGLVertexArray::SetFloatAttribute(0, 3, sizeof(TezVector3<float>), 0);
    TezGLVertexArray::Unbind();
    m_numUploaded = points.size();
    return true;
}

bool TezScenePointCloud::UnbuildObject()
{
    m_vertexBuffer.Release();
    m_vertexArray.Release();
    m_numUploaded = 0;
    return true;
}

bool TezScenePointCloud::DrawObject(TezSceneDrawData const&)
{
    if (m_numUploaded == 0)
        return true;
    m_vertexArray.Bind();
    glPointSize(m_pointSize);
    glDrawArrays(GL_POINTS, 0, GLsizei(m_numUploaded));
    glPointSize(1.0f);
    TezGLVertexArray::Unbind();
    return true;
}
