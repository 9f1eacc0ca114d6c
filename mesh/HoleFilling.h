#pragma once
// Hole filling after Liepa, "Filling holes in meshes" (SGP 2003), and its
// geometric kernels on plain positions.
//
// TezFillHole: fills one hole of a topology mesh through the mesh's public
// operations: a minimum-area triangulation of the boundary, refinement to
// the density of the surrounding mesh (alpha = sqrt 2) with Delaunay-style
// edge swaps, and five rounds of second-order umbrella fairing of the new
// vertices; the ring stays put. The new triangles and vertices are appended
// to the indexed mesh. False, with nothing changed, for a mesh that is not
// editable (TezTopologyMesh::IsEditable), a hole of fewer than 3 edges or
// whose edges are no longer on the boundary, or one that cannot be closed
// without doubling an edge the mesh has already. The hole stays in the
// mesh's list: TezTopologyMesh::FillHole is the call that also takes it off.
// The vertices' scratch values are used: the ring's and the new vertices'
// float and vector, and the patch's bools, are left as the fill leaves them.
//
// TezTriangulateHoleRing: the minimum-area triangulation of a closed polygon
// by dynamic programming over all sub-polygons (Liepa's hole triangulation,
// area as the only weight), cubic in time and quadratic in memory. Among equal
// sums the split at the lowest middle corner wins. The polygon runs in the
// order of the mesh's boundary half-edges; the triangles come out wound the
// other way, to close the mesh, as corners into the ring, three to a triangle,
// in the order they are made. Corners with equal ids (a boundary that passes
// one vertex twice) never share a triangle, and no triangle gets an edge
// between the ring corners of a listed pair (corners the mesh already joins,
// ring indices, smaller first). Empty when no triangulation is left.
//
// TezCheckRelaxNeed: whether the edge E-F between the triangles P E F and F E Q
// should be swapped for P-Q: Q lies inside the circumcircle of P E F (in its
// plane) by more than 1e-6. When P E F is too thin for a circumcircle, retry
// asks the same of Q F E and P instead, and without retry the answer is no.

#include "math/Vector.h"
#include "platform/Api.h"

#include <utility>
#include <vector>

class TezTopologyHole;
class TezTopologyMesh;

TEZ_API bool TezFillHole(TezTopologyMesh& mesh, TezTopologyHole const& hole);

TEZ_API std::vector<int> TezTriangulateHoleRing(std::vector<TezVector3<float>> const& ring,
                                                std::vector<unsigned int> const& ids,
                                                std::vector<std::pair<int, int>> const& joined = {});

TEZ_API bool TezCheckRelaxNeed(TezVector3<float> const& p, TezVector3<float> const& e, TezVector3<float> const& f,
                               TezVector3<float> const& q, bool retry);
