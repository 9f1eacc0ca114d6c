#pragma once
// TezSceneCubeVolume: a dense 8-bit volume drawn by GL as textured slices
// facing the camera, blended back to front through the "Cube Volume Effect".
//
// The volume is one 3D texture (made on the first build, at the volume's
// size in voxels), cut by planes at right angles to the view from the far
// end of the box to its near end. The slices are as many as fit at the
// camera's pixel depth at the near plane, but no more than two per voxel
// along the volume's longest edge: finer slices only add blending steps.
// The transfer function's control points (x over 0..255, y the opacity)
// become the effect's 256-entry table at each draw. Bounds run from the
// origin to the volume's dimensions times its voxel size.
//
// BuildObject, DrawObject and UnbuildObject need the context current;
// BuildObject is false without a volume. A null volume is refused by Create
// with std::runtime_error.

#include "render/scene/SceneObject.h"

#include "math/Vector.h"
#include "volume/CubeVolume.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezSceneCubeVolume)
TEZ_DECLARE_REF_FUNCTIONS(TezTexture)
TEZ_DECLARE_REF_FUNCTIONS(TezCameraView)

class TEZ_API TezSceneCubeVolume : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneCubeVolume)
public:
    static TezRef<TezSceneCubeVolume> Create(TezRef<TezCubeVolume> volume);
    ~TezSceneCubeVolume() override;

    virtual TezRef<TezCubeVolume> GetVolume() const { return m_volume; }
    // Stored; fewer than 2 points leave the effect's table as it is.
    virtual void SetTransferFunction(std::vector<TezVector2<float>> const& points) { m_transferFunction = points; }
    std::vector<TezVector2<float>> const& GetTransferFunction() const { return m_transferFunction; }

    TezBox3<float> GetObjectBounds() override;
    bool BuildObject() override;
    bool UnbuildObject() override;
    bool DrawObject(TezSceneDrawData const& data) override;

    // The corner of the bounds (in the order 000, 100, 010, 001, 110, 101,
    // 011, 111 of its x, y, z bits) nearest the camera along the view, the
    // first in a tie; nearest and farthest such distance of any corner.
    int FindFrontIndex(TezCameraView const& camera, float& nearest, float& farthest);

protected:
    TezSceneCubeVolume();
    explicit TezSceneCubeVolume(TezRef<TezCubeVolume> volume);

private:
    TezRef<TezCubeVolume> m_volume;
    TezRef<TezTexture> m_texture;
    unsigned m_vertexArray = 0;
    unsigned m_vertexBuffer = 0;
    unsigned m_indexBuffer = 0;
    std::vector<TezVector2<float>> m_transferFunction;
};
