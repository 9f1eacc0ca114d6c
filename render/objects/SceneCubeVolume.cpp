#include "render/objects/SceneCubeVolume.h"

#include "render/CameraView.h"
#include "render/effects/VolumeEffects.h"
#include "render/gl/Texture.h"
#include "render/scene/SceneDrawData.h"
#include "volume/CubeVolume.h"
#include "volume/TransferFunction.h"

#include <GL/glew.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

TEZ_TYPIFIED_IMPL(TezSceneCubeVolume, "Scene Cube Volume")
TEZ_DEFINE_REF_FUNCTIONS(TezSceneCubeVolume)

namespace {

// The slice polygon has up to six corners, found by the vertex program from
// each vertex's number; four triangles cover it (repeated corners of smaller
// polygons make empty triangles).
unsigned const kSliceIndices[12] = {0, 1, 2, 2, 3, 4, 4, 5, 0, 0, 2, 4};

} // namespace

TezSceneCubeVolume::TezSceneCubeVolume(TezRef<TezCubeVolume> volume)
    : TezSceneObject(TezCubeVolumeEffect::StaticType()), m_volume(volume)
{
    SetColor({1.0f, 1.0f, 1.0f, 1.0f});
    SetProperty(NeedsBuild, true);
}

TezSceneCubeVolume::TezSceneCubeVolume() : TezSceneCubeVolume(nullptr) {}

TezSceneCubeVolume::~TezSceneCubeVolume()
{
    // GL names without a current context go with the context.
}

TezRef<TezSceneCubeVolume> TezSceneCubeVolume::Create(TezRef<TezCubeVolume> volume)
{
    if (!volume)
        throw std::runtime_error("TezSceneCubeVolume::Create: null volume");
    return TezRef<TezSceneCubeVolume>(new TezSceneCubeVolume(volume));
}

TezBox3<float> TezSceneCubeVolume::GetObjectBounds()
{
    if (!m_volume)
        return TezBox3<float>();
    return TezBox3<float>(TezVector3<float>(0, 0, 0), m_volume->GetDimensions());
}

bool TezSceneCubeVolume::BuildObject()
{
    if (!m_volume)
        return false;
    TezVector3<int> const size = m_volume->Dimensions();
    if (!m_texture && m_volume->GetData() && size.x > 0 && size.y > 0 && size.z > 0) {
        m_texture = TezTexture::Create(TezTexture::PixelR8, size.x, size.y, size.z, TezTexture::Type3D, true);
        m_texture->Load(m_volume->GetData(), size_t(m_volume->VoxelCount()));
    }
    if (!m_vertexArray) {
        float vertices[18] = {0};
        for (int i = 0; i < 6; ++i)
            vertices[3 * i] = float(i);
        glGenVertexArrays(1, &m_vertexArray);
        glGenBuffers(1, &m_vertexBuffer);
        glGenBuffers(1, &m_indexBuffer);
        glBindVertexArray(m_vertexArray);
        glBindBuffer(GL_ARRAY_BUFFER, m_vertexBuffer);
        glBufferData(GL_ARRAY_BUFFER, sizeof(vertices), vertices, GL_STATIC_DRAW);
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 12, nullptr);
        glEnableVertexAttribArray(0);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_indexBuffer);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof(kSliceIndices), kSliceIndices, GL_STATIC_DRAW);
        glBindVertexArray(0);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    }
    return true;
}

bool TezSceneCubeVolume::UnbuildObject()
{
    m_texture = nullptr;
    if (m_vertexArray) {
        glDeleteVertexArrays(1, &m_vertexArray);
        glDeleteBuffers(1, &m_vertexBuffer);
        glDeleteBuffers(1, &m_indexBuffer);
    }
    m_vertexArray = m_vertexBuffer = m_indexBuffer = 0;
    return true;
}

int TezSceneCubeVolume::FindFrontIndex(TezCameraView const& camera, float& nearest, float& farthest)
{
    static int const kCorners[8][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1},
                                       {1, 1, 0}, {1, 0, 1}, {0, 1, 1}, {1, 1, 1}};
    TezVector3<float> const eye = camera.GetEye();
    TezVector3<float> const view = (camera.GetFocus() - eye).Normalized();
    TezBox3<float> const box = GetObjectBounds();
    TezVector3<float> const low = box.GetMinimum(), high = box.GetMaximum();
    TezMatrix44<float> const world = GetWorldMatrix();
    int front = 0;
    for (int i = 0; i < 8; ++i) {
        TezVector3<float> const corner(kCorners[i][0] ? high.x : low.x, kCorners[i][1] ? high.y : low.y,
                                       kCorners[i][2] ? high.z : low.z);
        TezVector4<float> const w = world * TezVector4<float>(corner.x, corner.y, corner.z, 1.0f);
        float const d = view * (TezVector3<float>(w.x, w.y, w.z) - eye);
        if (i == 0 || d < nearest) {
            front = i;
            nearest = d;
        }
        if (i == 0 || d > farthest)
            farthest = d;
    }
    return front;
}

bool TezSceneCubeVolume::DrawObject(TezSceneDrawData const& data)
{
    auto* effect = dynamic_cast<TezCubeVolumeEffect*>(data.GetEffect().Get());
    TezRef<TezCameraView> camera = data.GetCamera();
    if (!m_volume || !m_texture || !m_vertexArray || !effect || !camera)
        return true;
    float nearest = 0.0f, farthest = 0.0f;
    effect->SetFrontIndex(FindFrontIndex(*camera, nearest, farthest));
    effect->SetDimensions(m_volume->GetDimensions());
    effect->SetOrigin({0.0f, 0.0f, 0.0f});
    effect->SetTexture(m_texture);
    effect->SetEnableLighting(data.GetMode() != TezSceneDrawData::ModeMapping);
    if (m_transferFunction.size() >= 2) {
        unsigned char table[256];
        TezVolumeCreateTransferFunction(m_transferFunction, table, 256);
        effect->UpdateTransferFunction(table);
    }
    // The effect bound its textures before this object's turn: the volume
    // goes to its unit here, sampled smoothly between voxels.
    m_texture->BindSlot(1);
    glTexParameteri(m_texture->GetTarget(), GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(m_texture->GetTarget(), GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glActiveTexture(GL_TEXTURE0);

    float const pixelDepth = camera->GetNear() / float(std::max(camera->GetHeight(), 1));
    TezVector3<int> const voxels = m_volume->Dimensions();
    int const most = 2 * std::max(voxels.x, std::max(voxels.y, voxels.z));
    int const count = std::max(1, std::min(most, int((farthest - nearest) / pixelDepth + 1.0f)));
    float const step = (farthest - nearest) / float(count);
    glBindVertexArray(m_vertexArray);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, m_indexBuffer);
    for (int i = 0; i < count; ++i) {
        effect->SetDistance(std::abs(farthest - step * 0.5f - step * float(i)));
        effect->Apply(data);
        glDrawElements(GL_TRIANGLES, 12, GL_UNSIGNED_INT, nullptr);
    }
    glBindVertexArray(0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    m_texture->UnbindSlot(1);
    glActiveTexture(GL_TEXTURE0);
    return true;
}
