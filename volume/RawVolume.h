#pragma once
// TezRawVolume: a dense grid of 8- or 16-bit voxels stored in one file, the
// common ground of raw files, NRRD and MetaImage.
//
// The layout says where the samples start, their type and byte order, and
// whether they are plain or one zlib or gzip stream. Plain samples are mapped
// from the file and converted where Copy asks, so a volume larger than memory
// can be read. A compressed stream is inflated at Create into exactly the
// bytes the layout promises; a stream that would give more (a zip bomb) or
// less (cut short) is refused, and so is a promise the file cannot keep: more
// plain bytes than it holds, or more than deflate's largest ratio (1032:1)
// can make of its compressed bytes.
//
// Signed samples are shifted by half their range (int16 -32768 lands on 0,
// 0 on 32768); at the other depth, 16-bit values keep their high byte and
// 8-bit values are scaled by 257. The first stored row of a slice is its
// top, as in image files, and is delivered at y = height - 1, so views show
// a slice as image viewers and the image stack do. x runs along a stored
// row, z from the first stored slice.
//
// Create throws std::runtime_error naming the file and the fault. Copy
// answers false for a request outside the volume (the buffer is untouched).

#include "math/Vector.h"
#include "volume/VolumeData.h"
#include "volume/VoxelSample.h"

#include <cstdint>
#include <memory>
#include <string>

struct TezRawVolumeLayout
{
    std::string path;            // the file that holds the samples
    uint64_t offset = 0;         // bytes before them (before the stream when compressed)
    bool offsetFromEnd = false;  // plain samples only: they are the file's last bytes
    uint64_t compressedSkip = 0; // inflated bytes to drop before the samples
    uint64_t compressedSize = 0; // bytes of the stream; 0: to the end of the file
    int width = 0, height = 0, depth = 0;
    TezVoxelSample sample = TezVoxelSample::UInt8;
    bool bigEndian = false;
    bool compressed = false;
    TezVector3<double> spacing{1.0, 1.0, 1.0};
};

class TEZ_API TezRawVolume : public TezVolumeData
{
public:
    // Each size from 1 to kMaxSize; the byte count of the samples must not
    // overflow 64 bits.
    static constexpr int kMaxSize = 1 << 20;

    static TezRef<TezRawVolume> Create(TezRawVolumeLayout const& layout);

    // A headerless file of exactly width x height x depth samples: a file of
    // any other length is refused, since it means wrong sizes or type.
    static TezRef<TezRawVolume> CreateFromRawFile(std::string const& path, int width, int height, int depth,
                                                  TezVoxelSample sample, bool bigEndian,
                                                  TezVector3<double> const& spacing);

    // The stored bytes of width x height x depth samples of this kind; throws
    // when a size is out of range or the count overflows. `what` names the
    // file in the message.
    static uint64_t CountBytes(int width, int height, int depth, TezVoxelSample sample, std::string const& what);

    ~TezRawVolume() override;

    uint32_t Type() const override;
    TezString const& TypeName() const override;

    bool IsValid() const override { return m_data != nullptr; }
    int GetWidth() const override { return m_layout.width; }
    int GetHeight() const override { return m_layout.height; }
    int GetDepth() const override { return m_layout.depth; }
    TezVector3<double> GetSpacing() const override { return m_layout.spacing; }
    // 8 or 16: the width of the stored samples.
    int GetBitsPerPixel() const { return 8 * TezVoxelSampleBytes(m_layout.sample); }
    TezRawVolumeLayout const& GetLayout() const { return m_layout; }

    bool Copy(void* buffer, int x, int y, int z, int width, int height, int depth, int bitsPerPixel, uint64_t rowStride,
              uint64_t sliceStride, uint8_t** interpolationBuffers) override;

private:
    TezRawVolume() = default;
    void Map(uint64_t bytes);
    void Inflate(uint64_t bytes);

    TezRawVolumeLayout m_layout;
    uint8_t const* m_data = nullptr; // the first sample
    void* m_mapping = nullptr;
    uint64_t m_mappingBytes = 0;
    std::unique_ptr<uint8_t[]> m_inflated;
};
