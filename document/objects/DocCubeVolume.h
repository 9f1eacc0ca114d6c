#pragma once
// TezDocCubeVolume: the document object of volume data. It holds the source
// (an image stack, may be null), the octree built from it, the histogram
// (256 fractions), the transfer function's control points and the scene
// object that draws the volume (a TezSceneVoxelOctree, cast by the GPU
// render view).
//
// Volume type 1 is the voxel octree. Type 0, the cube volume drawn as
// textured slices, is not drawn yet: asking for it throws
// std::runtime_error, and archives holding a cube volume load it without a
// scene object.
//
// The transfer function is control points with x ascending over the voxel
// range; fewer than 2 points change nothing, and the ends are pinned to x 0
// and 1. The archive form is the section of TypeName(): the base part,
// "color", "visible", "voxelSize", "bpp", "histogramSize" and its values,
// "transferFunctionSize" and its points, then object records "cubeVolume",
// "octree" and "imageStack", each followed by the object's own section when
// not null. The same content saves to the same bytes.

#include "document/DocumentObject.h"
#include "math/Matrix.h"
#include "math/Vector.h"
#include "volume/CubeVolume.h"
#include "volume/ImageStack.h"
#include "volume/VoxelOctree.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezDocCubeVolume)
TEZ_DECLARE_REF_FUNCTIONS(TezSceneObject)

class TEZ_API TezDocCubeVolume : public TezDocumentObject
{
    TEZ_TYPIFIED_CLASS(TezDocCubeVolume)
public:
    enum VolumeType { CubeVolumeType = 0, VoxelOctreeType = 1 };

    // Builds the volume of `volumeType` from the stack (the octree with a
    // 512 MiB slab limit). A stack that does not build leaves no octree and
    // no scene object.
    static TezRef<TezDocCubeVolume> Create(TezRef<TezImageStack> imageStack, double voxelSize, int bitsPerPixel,
                                           int volumeType);
    // Takes voxel size, bit depth and histogram from the octree; no image
    // stack, so no conversion. A null octree is refused with
    // std::runtime_error.
    static TezRef<TezDocCubeVolume> Create(TezRef<TezVoxelOctree> octree);
    ~TezDocCubeVolume() override;

    void OnAdd(TezRef<TezDocument> document) override;
    void OnRemove(TezRef<TezDocument> document) override;
    void Save(TezRef<TezArchive> archive) override;
    void Load(TezRef<TezArchive> archive) override;
    virtual TezRef<TezSceneObject> GetSceneObject() const { return m_sceneObject; }

    bool CanConvertVolumeType() const;
    // Rebuilds the volume as `type` from the image stack and swaps the scene
    // object in the scene; nothing without a valid stack or for the present
    // type.
    void ConvertTo(int type);

    int GetVolumeType() const { return m_cubeVolume ? CubeVolumeType : VoxelOctreeType; }
    int GetBitsPerPixel() const { return m_bitsPerPixel; }
    std::vector<float> const& GetHistogram() const { return m_histogram; }
    TezRef<TezImageStack> GetImageStack() const { return m_imageStack; }
    TezRef<TezVoxelOctree> GetVoxelOctree() const { return m_voxelOctree; }
    TezRef<TezCubeVolume> GetCubeVolume() const { return m_cubeVolume; }
    std::vector<TezVector2<float>> const& GetTransferFunction() const { return m_transferFunction; }
    void SetTransferFunction(std::vector<TezVector2<float>> const& points);

    // The octree's, else the cube volume's, else zero.
    TezVector3<float> GetDimensions() const;
    TezVector3<int> GetDimensionsInVoxels() const;
    float GetVoxelSize() const { return float(m_voxelSize); }
    void SetVoxelSize(float size);

    // Through the scene object (identity and false without one).
    TezMatrix44<float> GetTransform() const;
    void SetTransform(TezMatrix44<float> const& transform);
    bool GetVisible() const;
    // Reported to the active document as changing, then changed.
    void SetVisible(bool visible);

protected:
    TezDocCubeVolume();

private:
    void CreateTransferFunction();
    void CreateCubeVolume(int type);
    void MakeSceneObject();

    TezRef<TezImageStack> m_imageStack;
    double m_voxelSize = 1.0;
    int32_t m_bitsPerPixel = 8;
    TezRef<TezCubeVolume> m_cubeVolume;
    TezRef<TezVoxelOctree> m_voxelOctree;
    TezRef<TezSceneObject> m_sceneObject;
    std::vector<TezVector2<float>> m_transferFunction;
    std::vector<float> m_histogram;
};
