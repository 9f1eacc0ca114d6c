#pragma once
// TezVolumeData: a source of grey voxels that delivers rectangular boxes.
//
// The voxel octree builder reads any source through this interface, one slab
// at a time. Sizes are the delivered sizes (a source may resample what it
// holds on disk).

#include "core/Identifiable.h"
#include "math/Vector.h"

#include <cstdint>

class TEZ_API TezVolumeData : public TezIdentifiableObject
{
public:
    ~TezVolumeData() override = default;

    virtual bool IsValid() const = 0;
    virtual int GetWidth() const = 0;
    virtual int GetHeight() const = 0;
    virtual int GetDepth() const = 0;

    // Fills `buffer` with the box whose corner is (x, y, z) and whose size is
    // width x height x depth, at bitsPerPixel 8 or 16. Slice s of the box
    // starts at byte s * sliceStride, row r of a slice at r * rowStride.
    // interpolationBuffers is null or points to two scratch buffers of
    // sliceStride bytes each. False when the request is refused; the buffer
    // is then untouched.
    virtual bool Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel,
                      uint64_t rowStride, uint64_t sliceStride, uint8_t** interpolationBuffers) = 0;

    // True when every Copy that succeeds writes each voxel of its box, so a
    // caller need not clear the box first. Sources that may leave slices
    // as they were (a missing file, say) answer false.
    virtual bool CopyFillsBox() const { return false; }

    // Where the source already holds the box in memory at bitsPerPixel, x
    // fastest: points `voxels` at its corner, sets the strides in bytes and
    // answers true, so that a reader can use the voxels where they lie
    // instead of copying them. The voxels stay valid and unchanged while the
    // source lives. False (the default) when the box must be copied.
    virtual bool ViewBox(int /*x*/, int /*y*/, int /*z*/, int /*width*/, int /*height*/, int /*depth*/,
                         int /*bitsPerPixel*/, uint8_t const*& /*voxels*/, uint64_t& /*rowStride*/,
                         uint64_t& /*sliceStride*/) const
    {
        return false;
    }

    // Distance between neighbouring voxel centres along x, y and z, in the
    // source's own unit (millimetres for scans); (1, 1, 1) for sources that
    // carry none, such as image stacks.
    virtual TezVector3<double> GetSpacing() const { return TezVector3<double>(1.0, 1.0, 1.0); }

    // The spacing along y and z over the spacing along x: the stretch an
    // octree built at the x spacing needs to keep the source's proportions;
    // (1, 1, 1) where a spacing is not positive.
    TezVector3<float> GetProportions() const
    {
        TezVector3<double> const s = GetSpacing();
        if (!(s.x > 0 && s.y > 0 && s.z > 0))
            return TezVector3<float>(1.0f, 1.0f, 1.0f);
        return TezVector3<float>(1.0f, float(s.y / s.x), float(s.z / s.x));
    }

protected:
    TezVolumeData() = default;
};
