#pragma once
// The geometric kernels of hole filling, on plain positions.
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

#include "platform/Api.h"
#include "math/Vector.h"

#include <utility>
#include <vector>

TEZ_API std::vector<int> TezTriangulateHoleRing(std::vector<TezVector3<float>> const& ring,
                                                std::vector<unsigned int> const& ids,
                                                std::vector<std::pair<int, int>> const& joined = {});

TEZ_API bool TezCheckRelaxNeed(TezVector3<float> const& p, TezVector3<float> const& e, TezVector3<float> const& f,
                               TezVector3<float> const& q, bool retry);
