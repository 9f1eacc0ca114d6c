#pragma once
// The effects of the volume kinds.
//   TezEffectVoxelCloud  "Effect Voxel Cloud", 2 passes: vVoxelCloud with
//       gVoxelCloudPass1 (depth-only cubes, or the coloured cubes of style 2)
//       and gVoxelCloudPass2 (the visible pass: cube edges, nothing for
//       style 2), fDefaultLit / fDefaultUnlit. The object sets
//       "renderingStyle", "cellSize" and the four "...Visible" flags; a
//       point's w packs size (w / 4, in cells) and state (w mod 4).
//   TezCubeVolumeEffect  "Cube Volume Effect": slices of a 3D texture drawn
//       back to front (vCubeVolume + fCubeVolume, map fCubeVolumeMap). The
//       vertex program cuts the box from "origin" to "origin" + "scale" with
//       the plane at distance "planeDist" from the eye along the view, six
//       vertices per slice, starting from the corner "frontIndex" (corners
//       ordered by x, y, z bits: 000, 100, 010, 001, 110, 101, 011, 111). The
//       volume sits on unit 1 ("volumeTexture"), the 256-entry transfer table
//       on unit 0 ("transferFunction"; all 255 until UpdateTransferFunction).
//       Apply writes the stored values; blending is on between StartEffect
//       and EndEffect.
//   TezVoxelOctreeEffect "Voxel Octree Effect": does nothing; the octree's
//       object draws through the ray caster. Programs are 0.
// The context must be current, except for TezVoxelOctreeEffect.

#include "render/effects/DefaultEffectImpl.h"
#include "render/effects/MultiPassEffect.h"
#include "render/gl/Texture.h"

class TEZ_API TezEffectVoxelCloud : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectVoxelCloud)
protected:
    TezEffectVoxelCloud();
};

class TEZ_API TezCubeVolumeEffect : public TezDefaultEffectImpl
{
    TEZ_TYPIFIED_CLASS(TezCubeVolumeEffect)
public:
    static TezRef<TezCubeVolumeEffect> Create();

    bool GLInitialize() override;
    void GLRelease() override;
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;
    void EndEffect(TezSceneDrawData const& data, unsigned pass) override;
    void Apply(TezSceneDrawData const& data) override;

    void SetTexture(TezRef<TezTexture> texture) { m_volumeTexture = texture; }
    TezRef<TezTexture> GetTexture() const { return m_volumeTexture; }
    void SetFrontIndex(int index) { m_frontIndex = index; }
    void SetDimensions(TezVector3<float> const& dimensions) { m_dimensions = dimensions; }
    void SetOrigin(TezVector3<float> const& origin) { m_origin = origin; }
    void SetDistance(float distance) { m_planeDistance = distance; }
    void SetEnableLighting(bool enable) { m_enableLighting = enable; }
    // 256 opacities, 0 to 255, one per voxel value; loaded at once when the
    // transfer texture exists, else at GLInitialize.
    void UpdateTransferFunction(unsigned char const* table);

protected:
    TezCubeVolumeEffect();

private:
    TezRef<TezTexture> m_transferTexture;
    TezRef<TezTexture> m_volumeTexture;
    unsigned char m_transferTable[256];
    int m_frontIndex = 0;
    TezVector3<float> m_dimensions{1.0f, 1.0f, 1.0f};
    TezVector3<float> m_origin{0.0f, 0.0f, 0.0f};
    float m_planeDistance = 0.0f;
    bool m_enableLighting = true;
};

class TEZ_API TezVoxelOctreeEffect : public TezEffect
{
    TEZ_TYPIFIED_CLASS(TezVoxelOctreeEffect)
public:
    unsigned GetNumPasses() const override { return 1; }
    bool OnTop() const override { return false; }
    void StartEffect(TezSceneDrawData const&, unsigned) override {}
    void EndEffect(TezSceneDrawData const&, unsigned) override {}
    void SetWorldMatrix(TezMatrix44<float> const&) override {}
    void SetObjectColor(TezVector4<float> const&) override {}
    void Apply(TezSceneDrawData const&) override {}
    bool PreReset() override { return true; }
    bool PostReset() override { return true; }
    unsigned GetProgramId() override { return 0; }
    unsigned GetMapProgramId() override { return 0; }

protected:
    TezVoxelOctreeEffect() = default;
};
