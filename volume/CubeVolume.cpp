#include "volume/CubeVolume.h"

#include "volume/VolumeData.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

TEZ_TYPIFIED_IMPL(TezCubeVolume, "TezCubeVolume")

namespace {

// A cube volume is held whole in memory; anything above this is a corrupt
// size rather than a volume.
constexpr uint64_t kMaxVoxels = uint64_t(1) << 40;

bool IsTag(TezString const& tag, char const* name) { return tag.CompareNoCase(TezString(name)) == 0; }

} // namespace

TezRef<TezCubeVolume> TezCubeVolume::Create() { return TezRef<TezCubeVolume>(new TezCubeVolume()); }

TezRef<TezCubeVolume> TezCubeVolume::ReadFromImageStack(TezRef<TezVolumeData> stack, float voxelSize)
{
    TezRef<TezCubeVolume> volume = Create();
    volume->SetVoxelSize(voxelSize);
    if (!stack)
        return volume;
    int const width = stack->GetWidth(), height = stack->GetHeight(), depth = stack->GetDepth();
    volume->Resize(TezVector3<int>(width, height, depth));
    // The result is the volume whatever the source says about the request.
    (void)stack->Copy(volume->GetData(), 0, 0, 0, width, height, depth, 8, volume->RowSize(), volume->StackSize(),
                      nullptr);
    return volume;
}

TezRef<TezCubeVolume> TezCubeVolume::ReadFromTiffStack(int, char const* const*)
{
    TezRef<TezCubeVolume> volume = Create();
    volume->SetVoxelSize(1.0f);
    return volume;
}

TezCubeVolume::~TezCubeVolume() = default;

void TezCubeVolume::Resize(TezVector3<int> const& dimensions)
{
    if (dimensions.x < 0 || dimensions.y < 0 || dimensions.z < 0)
        throw std::runtime_error("TezCubeVolume::Resize: negative dimensions " + std::to_string(dimensions.x) + " x " +
                                 std::to_string(dimensions.y) + " x " + std::to_string(dimensions.z));
    // Two factors below 2^31 cannot overflow; the third is checked first.
    uint64_t const slice = uint64_t(dimensions.x) * uint64_t(dimensions.y);
    if (slice != 0 && uint64_t(dimensions.z) > kMaxVoxels / slice)
        throw std::runtime_error("TezCubeVolume::Resize: " + std::to_string(dimensions.x) + " x " +
                                 std::to_string(dimensions.y) + " x " + std::to_string(dimensions.z) +
                                 " voxels cannot be held");
    uint64_t const count = slice * uint64_t(dimensions.z);
    m_data.reset();
    m_dimensions = TezVector3<int>(0, 0, 0);
    if (count > 0) {
        try {
            m_data.reset(new uint8_t[count]);
        } catch (std::bad_alloc const&) {
            throw std::runtime_error("TezCubeVolume::Resize: cannot allocate " + std::to_string(count) + " voxels");
        }
    }
    m_dimensions = dimensions;
}

void TezCubeVolume::Assign(uint8_t value)
{
    if (m_data)
        std::memset(m_data.get(), value, VoxelCount());
}

void TezCubeVolume::SetStackRow(int y, int z, int stride, uint8_t const* source)
{
    uint8_t* row = GetStackRow(y, z);
    for (int i = 0; i < m_dimensions.x; ++i)
        row[i] = source[static_cast<ptrdiff_t>(i) * stride];
}

void TezCubeVolume::SetStack(int z, int yStride, int xStride, uint8_t const* source)
{
    for (int y = 0; y < m_dimensions.y; ++y) {
        uint8_t* row = GetStackRow(y, z);
        uint8_t const* line = source + static_cast<ptrdiff_t>(y) * yStride;
        for (int x = 0; x < m_dimensions.x; ++x)
            row[x] = line[static_cast<ptrdiff_t>(x) * xStride];
    }
}

void TezCubeVolume::SetStackRegion(int z, int x, int y, int width, int height, int xStride, int yStride,
                                   uint8_t const* source)
{
    x = std::clamp(x, 0, m_dimensions.x);
    y = std::clamp(y, 0, m_dimensions.y);
    width = std::min(width, m_dimensions.x - x);
    height = std::min(height, m_dimensions.y - y);
    for (int j = 0; j < height; ++j) {
        uint8_t* row = GetStackRow(y + j, z) + x;
        uint8_t const* line = source + static_cast<ptrdiff_t>(j) * yStride;
        for (int i = 0; i < width; ++i)
            row[i] = line[static_cast<ptrdiff_t>(i) * xStride];
    }
}

TezVector3<float> TezCubeVolume::GetDimensions() const
{
    return TezVector3<float>(static_cast<float>(m_dimensions.x) * m_voxelSize,
                             static_cast<float>(m_dimensions.y) * m_voxelSize,
                             static_cast<float>(m_dimensions.z) * m_voxelSize);
}

void TezCubeVolume::Save(TezRef<TezArchive> archive) const
{
    archive->WriteStartSection(TypeName());
    archive->WriteFloat("voxelSize", m_voxelSize);
    int32_t const dimensions[3] = {m_dimensions.x, m_dimensions.y, m_dimensions.z};
    archive->WriteBinary("dimensions", dimensions, sizeof dimensions);
    archive->WriteBinary("", m_data.get(), VoxelCount());
    archive->WriteEndSection();
}

void TezCubeVolume::Load(TezRef<TezArchive> archive)
{
    TezString expected(TypeName());
    expected.CollapseWhitespace();
    bool inSection = false;
    for (;;) {
        TezString tag = archive->ReadTag();
        if (IsTag(tag, "sectionEnd")) {
            archive->ReadEndSection();
            break;
        }
        if (IsTag(tag, "sectionStart")) {
            if (!inSection) {
                if (archive->ReadStartSection(0) != expected)
                    return;
                inSection = true;
            } else {
                archive->ReadStartSection(1);
            }
        } else if (IsTag(tag, "voxelSize")) {
            m_voxelSize = archive->ReadFloat();
        } else if (IsTag(tag, "dimensions")) {
            int32_t dimensions[3] = {0, 0, 0};
            archive->ReadBinary(dimensions, sizeof dimensions);
            Resize(TezVector3<int>(dimensions[0], dimensions[1], dimensions[2]));
            // The voxels follow their size at once (ReadBinary takes their
            // tag). ReadBinary with 0 would accept any size, so an empty
            // volume leaves its entry to the loop. A short entry leaves zeros.
            if (VoxelCount() > 0) {
                try {
                    Assign(0);
                    archive->ReadBinary(m_data.get(), VoxelCount());
                } catch (...) {
                    Resize(TezVector3<int>(0, 0, 0));
                    throw;
                }
            }
        } else {
            archive->SkipUnknownTag();
        }
    }
}
