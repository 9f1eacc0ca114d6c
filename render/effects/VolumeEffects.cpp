#include "render/effects/VolumeEffects.h"

#include "render/effects/detail/EffectGL.h"

#include <cstring>

using namespace tez_effects;

TEZ_TYPIFIED_IMPL(TezEffectVoxelCloud, "Effect Voxel Cloud")
TEZ_TYPIFIED_IMPL(TezCubeVolumeEffect, "Cube Volume Effect")
TEZ_TYPIFIED_IMPL(TezVoxelOctreeEffect, "Voxel Octree Effect")

TezEffectVoxelCloud::TezEffectVoxelCloud()
    : TezMultiPassEffect(2,
                         {{"vVoxelCloud.glsl", "gVoxelCloudPass1.glsl", "fDefaultLit.glsl", "fDefaultUnlit.glsl"},
                          {"vVoxelCloud.glsl", "gVoxelCloudPass2.glsl", "fDefaultLit.glsl", "fDefaultUnlit.glsl"}},
                         {"inPosition"})
{
}

TezCubeVolumeEffect::TezCubeVolumeEffect()
    : TezDefaultEffectImpl("vCubeVolume.glsl", "fCubeVolume.glsl", "fCubeVolumeMap.glsl", false)
{
    std::memset(m_transferTable, 255, sizeof m_transferTable);
}

TezRef<TezCubeVolumeEffect> TezCubeVolumeEffect::Create()
{
    return TezRef<TezCubeVolumeEffect>(new TezCubeVolumeEffect());
}

bool TezCubeVolumeEffect::GLInitialize()
{
    if (!TezDefaultEffectImpl::GLInitialize())
        return false;
    m_transferTexture = TezTexture::Create(TezTexture::PixelR8, 256, 1, 1, TezTexture::Type1D, true);
    m_transferTexture->Load(m_transferTable, sizeof m_transferTable);
    return true;
}

void TezCubeVolumeEffect::GLRelease()
{
    m_transferTexture = nullptr;
    TezDefaultEffectImpl::GLRelease();
}

void TezCubeVolumeEffect::UpdateTransferFunction(unsigned char const* table)
{
    if (!table)
        return;
    std::memcpy(m_transferTable, table, sizeof m_transferTable);
    if (!m_transferTexture)
        return;
    // Loading unbinds the texture; between StartEffect and EndEffect the
    // slices still sample it from unit 0.
    m_transferTexture->Load(m_transferTable, sizeof m_transferTable);
    m_transferTexture->BindSlot(0);
}

void TezCubeVolumeEffect::StartEffect(TezSceneDrawData const& data, unsigned pass)
{
    TezDefaultEffectImpl::StartEffect(data, pass);
    if (m_transferTexture)
        m_transferTexture->BindSlot(0);
    if (m_volumeTexture) {
        m_volumeTexture->BindSlot(1);
        GLenum const target = m_volumeTexture->GetTarget();
        // Slices fall between voxels: sample them smoothly.
        glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    }
    glActiveTexture(GL_TEXTURE0);
    SetUniformInt(m_currentProgram, "transferFunction", 0);
    SetUniformInt(m_currentProgram, "volumeTexture", 1);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    Apply(data);
}

void TezCubeVolumeEffect::Apply(TezSceneDrawData const&)
{
    SetUniformInt(m_currentProgram, "frontIndex", m_frontIndex);
    SetUniform(m_currentProgram, "scale", TezVector4<float>(m_dimensions.x, m_dimensions.y, m_dimensions.z, 1.0f));
    SetUniform(m_currentProgram, "origin", TezVector4<float>(m_origin.x, m_origin.y, m_origin.z, 0.0f));
    SetUniform(m_currentProgram, "planeDist", m_planeDistance);
    SetUniformInt(m_currentProgram, "enableLighting", m_enableLighting ? 1 : 0);
}

void TezCubeVolumeEffect::EndEffect(TezSceneDrawData const& data, unsigned pass)
{
    glDisable(GL_BLEND);
    if (m_volumeTexture)
        m_volumeTexture->UnbindSlot(1);
    if (m_transferTexture)
        m_transferTexture->UnbindSlot(0);
    glActiveTexture(GL_TEXTURE0);
    TezDefaultEffectImpl::EndEffect(data, pass);
}
