#pragma once
// OpenVDB as the peer of the octree build and ray caster, in a file of its
// own: it is compiled with default symbol visibility, as OpenVDB expects of
// code that instantiates its templates.

#include <cstdint>
#include <memory>

namespace tezpeer {

// Dense-to-sparse copy of an edge^3 volume (x fastest, 1 or 2 bytes per
// voxel) into a grid with background 0; answers the active voxel count.
uint64_t OpenVDBCopyFromDense(void const* voxels, int edge, int bytesPerVoxel);

// An 8-bit volume as a grid, and first hits along rays: each ray is six
// floats (origin, unit direction) in a space where voxel i spans [i, i + 1).
class OpenVDBRayScene
{
public:
    OpenVDBRayScene(uint8_t const* voxels, int edge);
    ~OpenVDBRayScene();
    // The number of rays that reach a voxel at or above threshold, marching
    // the grid's hierarchical DDA and then voxels; parallel over rays.
    uint64_t FirstHits(float const* rays, int count, int threshold) const;

private:
    struct Grid;
    std::unique_ptr<Grid> m_grid;
};

} // namespace tezpeer
