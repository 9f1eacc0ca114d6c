#pragma once
// TezSceneVoxelOctree: a voxel octree drawn by the GPU render view's ray
// caster, through the "Voxel Octree Effect" (which does nothing in GL).
//
// In the plain pass of a TezCudaRenderView, an opaque object casts into the
// view's image and depth and posts them at once (PostToOpenGL), so it meets
// the GL depth drawn before it; an object with the Transparent property casts
// into the view's layer stacks, which the view blends after the transparent
// pass. Other views, mapping and the overlay pass draw nothing.
//
// The octree maps its unit cube to [0, treeSize x voxelSize]^3 in object
// space; the object's world matrix places that. Bounds are the octree's.
// After a change of transfer function the tree's node states are recomputed
// for it on the next draw. Default colour (0.4667, 0.5333, 0.6, 0.6). The object never owns the document's
// data beyond its reference to the tree. Drawing needs the view's context
// current; the table's copy lives on the side the kernels run on.

#include "math/Plane.h"
#include "render/scene/SceneObject.h"

#include "math/Vector.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezSceneVoxelOctree)
TEZ_DECLARE_REF_FUNCTIONS(TezVoxelOctree)

class TEZ_API TezSceneVoxelOctree : public TezSceneObject
{
    TEZ_TYPIFIED_CLASS(TezSceneVoxelOctree)
public:
    // A null octree is refused with std::runtime_error.
    static TezRef<TezSceneVoxelOctree> Create(TezRef<TezVoxelOctree> octree);
    ~TezSceneVoxelOctree() override;

    TezRef<TezVoxelOctree> GetOctree() const { return m_octree; }
    // Control points (x over the voxel range, 0 to 1; y the opacity), sampled
    // into the 256-entry table the kernels read; fewer than 2 points change
    // nothing. The default is (0, 0), (1, 1).
    virtual void SetTransferFunction(std::vector<TezVector2<float>> const& points);
    // The sampled table (256 opacities).
    std::vector<float> const& GetTransferTable() const { return m_table; }
    // The cut keeps the half space the plane's normal points into (world
    // space); off by default.
    virtual bool IsShowingXSection() const { return m_showXSection; }
    virtual void SetShowXSection(bool on) { m_showXSection = on; }
    virtual TezPlane<float> GetXSectionPlane() const { return m_xSectionPlane; }
    virtual void SetXSectionPlane(TezPlane<float> const& plane) { m_xSectionPlane = plane; }

    TezBox3<float> GetObjectBounds() override;
    bool DrawObject(TezSceneDrawData const& data) override;

protected:
    // Without a tree (as the type registry makes it) it draws nothing.
    TezSceneVoxelOctree();
    explicit TezSceneVoxelOctree(TezRef<TezVoxelOctree> octree);

private:
    TezRef<TezVoxelOctree> m_octree;
    std::vector<float> m_table;
    // 256 floats where the kernels read them (TezDeviceMalloc), made on the
    // first draw.
    float* m_deviceTable = nullptr;
    bool m_tableStale = true;
    bool m_statesValid = false;
    bool m_showXSection = false;
    TezPlane<float> m_xSectionPlane;
};
