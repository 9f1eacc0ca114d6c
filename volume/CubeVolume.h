#pragma once
// TezCubeVolume: a dense 8-bit voxel grid held whole in memory.
//
// Voxel (x, y, z) lies at (height * z + y) * width + x; a "stack" is one z
// slice of width * height bytes. Voxel access is unchecked. Resize leaves the
// voxels uninitialised and throws std::runtime_error for negative sizes or
// sizes that cannot be addressed; Load throws std::runtime_error for a stored
// size that cannot be right and returns with the object unchanged when the
// section is not a cube volume's.

#include "core/Archive.h"
#include "core/Identifiable.h"
#include "math/Vector.h"

#include <cstdint>
#include <memory>

class TezVolumeData;

class TEZ_API TezCubeVolume : public TezIdentifiableObject
{
    TEZ_TYPIFIED_CLASS(TezCubeVolume)

public:
    static TezRef<TezCubeVolume> Create();
    // A volume of the source's size, filled by one Copy of the whole at 8
    // bits. Returned even when the source refuses the copy.
    static TezRef<TezCubeVolume> ReadFromImageStack(TezRef<TezVolumeData> stack, float voxelSize);
    // Reads nothing: an empty volume with voxel size 1.
    static TezRef<TezCubeVolume> ReadFromTiffStack(int count, char const* const* names);

    ~TezCubeVolume() override;
    TezCubeVolume(TezCubeVolume const&) = delete;
    TezCubeVolume& operator=(TezCubeVolume const&) = delete;

    void Resize(TezVector3<int> const& dimensions);
    void Assign(uint8_t value);

    uint8_t GetValue(int x, int y, int z) const { return m_data[Offset(x, y, z)]; }
    uint8_t GetValue(TezVector3<int> const& p) const { return GetValue(p.x, p.y, p.z); }
    void SetValue(int x, int y, int z, uint8_t value) { m_data[Offset(x, y, z)] = value; }
    void SetValue(TezVector3<int> const& p, uint8_t value) { SetValue(p.x, p.y, p.z, value); }
    uint8_t& operator()(int x, int y, int z) { return m_data[Offset(x, y, z)]; }
    uint8_t operator()(int x, int y, int z) const { return m_data[Offset(x, y, z)]; }
    uint8_t& operator()(TezVector3<int> const& p) { return (*this)(p.x, p.y, p.z); }
    uint8_t operator()(TezVector3<int> const& p) const { return (*this)(p.x, p.y, p.z); }

    uint8_t* GetStack(int z) { return m_data.get() + Offset(0, 0, z); }
    uint8_t const* GetStack(int z) const { return m_data.get() + Offset(0, 0, z); }
    uint8_t* GetStackRow(int y, int z) { return m_data.get() + Offset(0, y, z); }
    uint8_t const* GetStackRow(int y, int z) const { return m_data.get() + Offset(0, y, z); }
    // Row byte i = source[i * stride].
    void SetStackRow(int y, int z, int stride, uint8_t const* source);
    // Voxel (x, y) of slice z = source[x * xStride + y * yStride].
    void SetStack(int z, int yStride, int xStride, uint8_t const* source);
    // Like SetStack on the part of the rectangle that lies inside the slice.
    void SetStackRegion(int z, int x, int y, int width, int height, int xStride, int yStride, uint8_t const* source);

    uint8_t* GetData() { return m_data.get(); }
    uint8_t const* GetData() const { return m_data.get(); }
    uint64_t RowSize() const { return static_cast<uint64_t>(m_dimensions.x); }
    uint64_t StackSize() const { return RowSize() * static_cast<uint64_t>(m_dimensions.y); }
    uint64_t VoxelCount() const { return StackSize() * static_cast<uint64_t>(m_dimensions.z); }

    TezVector3<int> const& Dimensions() const { return m_dimensions; }
    // Dimensions times the voxel size.
    TezVector3<float> GetDimensions() const;
    float GetVoxelSize() const { return m_voxelSize; }
    void SetVoxelSize(float voxelSize) { m_voxelSize = voxelSize; }

    void Save(TezRef<TezArchive> archive) const;
    void Load(TezRef<TezArchive> archive);

private:
    TezCubeVolume() = default;
    size_t Offset(int x, int y, int z) const
    {
        return (static_cast<size_t>(m_dimensions.y) * static_cast<size_t>(z) + static_cast<size_t>(y)) *
                   static_cast<size_t>(m_dimensions.x) +
               static_cast<size_t>(x);
    }

    TezVector3<int> m_dimensions{0, 0, 0};
    float m_voxelSize = 1.0f;
    std::unique_ptr<uint8_t[]> m_data;
};
