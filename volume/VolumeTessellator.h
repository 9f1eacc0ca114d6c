#pragma once
// TezVolumeTessellator: the isosurface of a voxel grid by marching cubes.
//
// One process-wide instance holds the 8-bit threshold of cube volumes (128 at
// start), the method and the slab size. A voxel strictly below the threshold
// is outside; the surface runs through each edge between an outside and an
// inside voxel at the linearly interpolated crossing, in voxel units with
// voxel centres at half-integers (the voxel size is not applied). Triangles
// are wound with their normals towards the outside voxels, and the vertex
// normals are made from the positions, area-weighted.
//
// Two methods:
// - Closed (what `tez tessellate` uses): a closed, manifold surface, with no degenerate or
//   repeated triangles, wherever the inside stays off the grid's border. One
//   vertex per crossed lattice edge, faces with diagonal inside corners
//   decided by the asymptotic decider (Nielson and Hamann, Visualization
//   1991) and crossings kept 1/64 voxel off voxel centres; see
//   volume/detail/ClosedMarchingCubes.h. Slabs of cell layers are marched in
//   parallel; the mesh is the same for every slab size.
// - Classic: Lorensen and Cline's case table ("Marching cubes: a high
//   resolution 3D surface construction algorithm", SIGGRAPH 1987) in the
//   form whose case 1 is the triangle (0, 8, 3), each crossing interpolated
//   in the table's direction along its edge, crossings of equal position
//   joined. That leaves cracks where the two directions round apart or two
//   cells decide a face differently, and folds triangles onto the centre of
//   a voxel equal to the threshold. The default, for results that must
//   match the classic algorithm; ask for Closed for a clean surface.
// Cells are taken with z outermost, then y, then x; vertices are numbered in
// the order the triangles first use them.
//
// A null volume, or one with a dimension below 2, gives an empty mesh. The
// settings are shared state: set them and tessellate from one thread.

#include "mesh/IndexedMesh.h"
#include "volume/CubeVolume.h"

#include <cstdint>

class TezMemoryVolume;

class TEZ_API TezVolumeTessellator
{
public:
    enum class Method { Closed, Classic };

    static TezVolumeTessellator& Instance();

    // An 8-bit cube volume at GetIsoValue.
    virtual TezRef<TezIndexedMesh> Tessellate(TezRef<TezCubeVolume> volume);
    virtual uint8_t GetIsoValue() const { return m_isoValue; }
    virtual void SetIsoValue(uint8_t isoValue) { m_isoValue = isoValue; }

    // A memory volume of 8 or 16 bits at a threshold in the volume's own
    // units. Throws std::runtime_error for a threshold outside 0 to 255 or 0
    // to 65535 respectively.
    TezRef<TezIndexedMesh> Tessellate(TezRef<TezMemoryVolume> volume, int isoValue);

    Method GetMethod() const { return m_method; }
    void SetMethod(Method method) { m_method = method; }
    // Cell layers per parallel slab of the closed method; 0 lets the machine
    // choose. Negative values count as 0.
    int GetSlabSize() const { return m_slabSize; }
    void SetSlabSize(int layers) { m_slabSize = layers < 0 ? 0 : layers; }

    virtual ~TezVolumeTessellator() = default;
    TezVolumeTessellator(TezVolumeTessellator const&) = delete;
    TezVolumeTessellator& operator=(TezVolumeTessellator const&) = delete;

protected:
    TezVolumeTessellator() = default;

private:
    template <class T>
    TezRef<TezIndexedMesh> Run(T const* voxels, TezVector3<int> const& size, int isoValue);

    uint8_t m_isoValue = 128;
    Method m_method = Method::Classic;
    int m_slabSize = 0;
};
