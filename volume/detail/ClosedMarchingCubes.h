#pragma once
// The closed marching-cubes surface behind TezVolumeTessellator's default
// method, on a dense grid of 8- or 16-bit voxels (x fastest, then y, then z).
//
// Three rules make the surface closed and manifold where the classic table
// leaves cracks and folds:
// - one vertex per crossed lattice edge, interpolated from its lower end to
//   its upper end, so that every cell sharing the edge gets the same point;
// - a face whose inside corners are diagonal is decided by the saddle value
//   of the bilinear interpolant over the face (Nielson and Hamann's
//   asymptotic decider, "The asymptotic decider: resolving the ambiguity in
//   marching cubes", Visualization 1991), a function of the face's four
//   values alone, so the two cells on it agree; the cell's polygons are then
//   walked from its faces and fanned around a centre vertex of their own, so
//   that no triangle or diagonal lies in a face two cells share;
// - a crossing never lies within 1/64 of a voxel of the voxel's centre, so
//   that a voxel equal to the threshold does not fold triangles onto one
//   point.
// The grid is marched in slabs of cell layers, in parallel; the vertices of
// the layers where slabs meet are joined afterwards, and all vertices are
// numbered in the order the triangles first use them, so the mesh does not
// depend on the slab size. Each slab is a step of the host's progress; when
// the host raises its stop flag the mesh comes back empty.

#include "mesh/IndexedMesh.h"

#include <cstdint>
#include <vector>

namespace tez_detail {

// Fills positions (normals zero) and indices, three to a triangle wound
// with their normals towards the voxels below the threshold. `slab` is the
// number of cell layers per parallel task, at least 1.
template <class T>
void MarchClosed(T const* voxels, int width, int height, int depth, int isoValue, int slab,
                 std::vector<TezMeshVertex>& vertices, std::vector<unsigned int>& indices);

extern template void MarchClosed<uint8_t>(uint8_t const*, int, int, int, int, int, std::vector<TezMeshVertex>&,
                                          std::vector<unsigned int>&);
extern template void MarchClosed<uint16_t>(uint16_t const*, int, int, int, int, int, std::vector<TezMeshVertex>&,
                                           std::vector<unsigned int>&);

} // namespace tez_detail
