#pragma once
// TezVolumeTessellator: the isosurface of a cube volume by marching cubes.
//
// One process-wide instance holds the threshold (128 at start). A voxel
// strictly below it is outside; the surface runs through each edge between
// an outside and an inside voxel at the linearly interpolated crossing, in
// voxel units with voxel centres at half-integers (the voxel size is not
// applied). Cells are taken with z outermost, then y, then x, and
// triangulated by Lorensen and Cline's case table ("Marching cubes: a high
// resolution 3D surface construction algorithm", SIGGRAPH 1987) in the form
// whose case 1 is the triangle (0, 8, 3). Crossings of equal position are one
// vertex, numbered in the order the triangles first use them, and normals are
// made from the positions: area-weighted, pointing to the outside voxels.
//
// A null volume, or one with a dimension below 2, gives an empty mesh. The
// threshold is shared state: set it and tessellate from one thread.

#include "mesh/IndexedMesh.h"
#include "volume/CubeVolume.h"

#include <cstdint>

class TEZ_API TezVolumeTessellator
{
public:
    static TezVolumeTessellator& Instance();

    virtual TezRef<TezIndexedMesh> Tessellate(TezRef<TezCubeVolume> volume);
    virtual uint8_t GetIsoValue() const { return m_isoValue; }
    virtual void SetIsoValue(uint8_t isoValue) { m_isoValue = isoValue; }

    virtual ~TezVolumeTessellator() = default;
    TezVolumeTessellator(TezVolumeTessellator const&) = delete;
    TezVolumeTessellator& operator=(TezVolumeTessellator const&) = delete;

protected:
    TezVolumeTessellator() = default;

private:
    uint8_t m_isoValue = 128;
};
