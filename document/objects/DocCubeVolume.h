#pragma once
// TezDocCubeVolume: the document object of volume data. It holds the source
// (an image stack, may be null), the volume built from it, the histogram
// (256 fractions), the transfer function's control points and the scene
// object that draws the volume, which knows this object as its owner.
//
// Volume type 0 is a dense 8-bit TezCubeVolume drawn by GL as textured
// slices (TezSceneCubeVolume); type 1 is a TezVoxelOctree cast by the GPU
// render view (TezSceneVoxelOctree). ConvertTo rebuilds one from the other's
// image stack and puts the new scene object in the old one's place, with
// its transform, colour and visibility. Other type numbers are refused with
// std::runtime_error. New objects get the transfer function (0, 0),
// (0.0588, 0), (1, 1): transparent below 15 of 255, then a straight ramp.
//
// The transfer function is control points with x ascending over the voxel
// range; fewer than 2 points change nothing, and the ends are pinned to x 0
// and 1. The archive form is the section of TypeName(): the base part,
// "color", "visible", "voxelSize", "bpp", "histogramSize" and its values,
// "transferFunctionSize" and its points, then object records "cubeVolume",
// "octree" and "imageStack", each followed by the object's own section when
// not null, and last "transform" (16 floats, column by column). The same
// content saves to the same bytes.

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
    void ApplyTransferFunction();

    TezRef<TezImageStack> m_imageStack;
    double m_voxelSize = 1.0;
    int32_t m_bitsPerPixel = 8;
    TezRef<TezCubeVolume> m_cubeVolume;
    TezRef<TezVoxelOctree> m_voxelOctree;
    TezRef<TezSceneObject> m_sceneObject;
    std::vector<TezVector2<float>> m_transferFunction;
    std::vector<float> m_histogram;
};
