#pragma once
// TezMemoryVolume: a dense volume held in memory as a volume source.
//
// The voxels are 8- or 16-bit, x fastest, then y, then z. Copy delivers either
// depth: 16-bit voxels read at 8 bits keep their high byte, 8-bit voxels read
// at 16 bits are scaled by 257 so that 255 becomes 65535. The data is shared,
// not copied, when it is handed over as a vector.

#include "volume/VolumeData.h"

#include <cstdint>
#include <memory>
#include <vector>

class TEZ_API TezMemoryVolume : public TezVolumeData
{
public:
    // Refuses (std::runtime_error) sizes below 1 or a buffer of the wrong length.
    static TezRef<TezMemoryVolume> Create8(int width, int height, int depth, std::vector<uint8_t> voxels);
    static TezRef<TezMemoryVolume> Create16(int width, int height, int depth, std::vector<uint16_t> voxels);

    // Typed but not registered: a memory volume is never stored in a file.
    uint32_t Type() const override;
    TezString const& TypeName() const override;

    bool IsValid() const override { return m_width > 0; }
    int GetWidth() const override { return m_width; }
    int GetHeight() const override { return m_height; }
    int GetDepth() const override { return m_depth; }
    int GetBitsPerPixel() const { return m_bits; }
    bool Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel, uint64_t rowStride,
              uint64_t sliceStride, uint8_t** interpolationBuffers) override;
    bool CopyFillsBox() const override { return true; }
    // Any box inside the volume, at the depth the voxels are held in.
    bool ViewBox(int x, int y, int z, int width, int height, int depth, int bitsPerPixel, uint8_t const*& voxels,
                 uint64_t& rowStride, uint64_t& sliceStride) const override;

    uint8_t const* Data8() const { return m_voxels8.data(); }
    uint16_t const* Data16() const { return m_voxels16.data(); }

private:
    TezMemoryVolume() = default;

    int m_width = 0;
    int m_height = 0;
    int m_depth = 0;
    int m_bits = 8;
    std::vector<uint8_t> m_voxels8;
    std::vector<uint16_t> m_voxels16;
};
