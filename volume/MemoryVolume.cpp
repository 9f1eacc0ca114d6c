#include "volume/MemoryVolume.h"

#include <tbb/parallel_for.h>

#include <cstring>
#include <stdexcept>

namespace {
void CheckSize(int width, int height, int depth, size_t length)
{
    if (width < 1 || height < 1 || depth < 1)
        throw std::runtime_error("TezMemoryVolume: every dimension must be at least 1");
    if (uint64_t(width) * uint64_t(height) * uint64_t(depth) != length)
        throw std::runtime_error("TezMemoryVolume: the voxel count does not match the dimensions");
}

template <typename From, typename To>
To Convert(From value)
{
    if constexpr (sizeof(From) == sizeof(To))
        return To(value);
    else if constexpr (sizeof(From) == 1)
        return To(value * 257u);
    else
        return To(value >> 8);
}

template <typename From, typename To>
void CopyBox(From const* voxels, int width, int height, uint8_t* out, int x, int y, int z, int w, int h, int d,
             uint64_t rowStride, uint64_t sliceStride)
{
    tbb::parallel_for(0, d, [&](int k) {
        for (int j = 0; j < h; ++j) {
            From const* from = voxels + ((uint64_t(z + k) * uint64_t(height) + uint64_t(y + j)) * uint64_t(width) + x);
            To* to = reinterpret_cast<To*>(out + uint64_t(k) * sliceStride + uint64_t(j) * rowStride);
            if constexpr (sizeof(From) == sizeof(To))
                std::memcpy(to, from, size_t(w) * sizeof(To));
            else
                for (int i = 0; i < w; ++i)
                    to[i] = Convert<From, To>(from[i]);
        }
    });
}
} // namespace

uint32_t TezMemoryVolume::Type() const
{
    static uint32_t const type = TezAssignObjectType();
    return type;
}

TezString const& TezMemoryVolume::TypeName() const
{
    static TezString const name("TezMemoryVolume");
    return name;
}

TezRef<TezMemoryVolume> TezMemoryVolume::Create8(int width, int height, int depth, std::vector<uint8_t> voxels)
{
    CheckSize(width, height, depth, voxels.size());
    TezRef<TezMemoryVolume> volume(new TezMemoryVolume());
    volume->m_width = width;
    volume->m_height = height;
    volume->m_depth = depth;
    volume->m_bits = 8;
    volume->m_voxels8 = std::move(voxels);
    return volume;
}

TezRef<TezMemoryVolume> TezMemoryVolume::Create16(int width, int height, int depth, std::vector<uint16_t> voxels)
{
    CheckSize(width, height, depth, voxels.size());
    TezRef<TezMemoryVolume> volume(new TezMemoryVolume());
    volume->m_width = width;
    volume->m_height = height;
    volume->m_depth = depth;
    volume->m_bits = 16;
    volume->m_voxels16 = std::move(voxels);
    return volume;
}

bool TezMemoryVolume::Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel,
                           uint64_t rowStride, uint64_t sliceStride, uint8_t** /*interpolationBuffers*/)
{
    int const bytes = bitsPerPixel / 8;
    if (!buffer || (bitsPerPixel != 8 && bitsPerPixel != 16) || x < 0 || y < 0 || z < 0 || width < 0 || height < 0 ||
        depth < 0 || x + width > m_width || y + height > m_height || z + depth > m_depth ||
        rowStride < uint64_t(width) * uint64_t(bytes) || sliceStride < rowStride * uint64_t(height))
        return false;
    auto* out = static_cast<uint8_t*>(buffer);
    if (m_bits == 8) {
        if (bitsPerPixel == 8)
            CopyBox<uint8_t, uint8_t>(m_voxels8.data(), m_width, m_height, out, x, y, z, width, height, depth,
                                      rowStride, sliceStride);
        else
            CopyBox<uint8_t, uint16_t>(m_voxels8.data(), m_width, m_height, out, x, y, z, width, height, depth,
                                       rowStride, sliceStride);
    } else {
        if (bitsPerPixel == 8)
            CopyBox<uint16_t, uint8_t>(m_voxels16.data(), m_width, m_height, out, x, y, z, width, height, depth,
                                       rowStride, sliceStride);
        else
            CopyBox<uint16_t, uint16_t>(m_voxels16.data(), m_width, m_height, out, x, y, z, width, height, depth,
                                        rowStride, sliceStride);
    }
    return true;
}

bool TezMemoryVolume::ViewBox(int x, int y, int z, int width, int height, int depth, int bitsPerPixel,
                              uint8_t const*& voxels, uint64_t& rowStride, uint64_t& sliceStride) const
{
    if (bitsPerPixel != m_bits || x < 0 || y < 0 || z < 0 || width < 0 || height < 0 || depth < 0 ||
        x + width > m_width || y + height > m_height || z + depth > m_depth)
        return false;
    uint64_t const bytes = uint64_t(m_bits / 8);
    rowStride = uint64_t(m_width) * bytes;
    sliceStride = rowStride * uint64_t(m_height);
    uint8_t const* data = m_bits == 8 ? m_voxels8.data() : reinterpret_cast<uint8_t const*>(m_voxels16.data());
    voxels = data + uint64_t(z) * sliceStride + uint64_t(y) * rowStride + uint64_t(x) * bytes;
    return true;
}
