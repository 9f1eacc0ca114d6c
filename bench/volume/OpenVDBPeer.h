#pragma once
// OpenVDB as the peer of the octree build and ray caster, in a file of its
// own: it is compiled with default symbol visibility, as OpenVDB expects of
// code that instantiates its templates.

#include <cstdint>
#include <memory>

namespace tezpeer {

// Dense-to-sparse copy of an edge^3 volume (x fastest, 1 or 2 bytes per
// voxel) into a grid with background 0; answers the active voxel count and,
// in bytes, the grid's memory.
uint64_t OpenVDBCopyFromDense(void const* voxels, int edge, int bytesPerVoxel, uint64_t* bytes = nullptr);

// An 8-bit volume as a grid, and first hits along rays: each ray is six
// floats (origin, unit direction) in a space where voxel i spans [i, i + 1).
// The grid keeps only the voxels at or above the threshold active (the rest
// is background), so its hierarchical DDA skips whatever cannot be hit, as
// the octree's node states do. Grid and intersector are made here, once.
class OpenVDBRayScene
{
public:
    OpenVDBRayScene(uint8_t const* voxels, int edge, int threshold);
    ~OpenVDBRayScene();
    // Writes for each ray the distance to its first active voxel, 0 where it
    // finds none, and answers the number of hits; parallel over rays.
    uint64_t FirstHits(float const* rays, int count, float* distances) const;
    uint64_t ActiveVoxels() const;
    uint64_t MemoryBytes() const;

private:
    struct Grid;
    std::unique_ptr<Grid> m_grid;
};

} // namespace tezpeer
