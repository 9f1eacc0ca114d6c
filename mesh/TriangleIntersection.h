#pragma once
// Exact triangle against triangle test after Möller ("A fast triangle-triangle
// intersection test", 1997): both planes reject first, then the two
// triangles' intervals on the planes' common line are compared. Coplanar
// pairs are tested in the plane where the normal is longest: edges against
// edges, then a corner of each inside the other.
//
// Distances to a plane below 1e-6 count as zero, so touching counts as
// intersecting. Degenerate triangles (no normal) give a zero normal and thus
// a coplanar test in the xy plane.

#include "math/Vector.h"
#include "platform/Api.h"

class TezMeshTriangle;

// Where one end of the segment of intersection came from: the triangle
// (0 the first, 1 the second) and its edge (edge k runs from corner k to
// corner k+1 mod 3).
struct TezTriangleSegmentEnd
{
    TezVector3<float> point;
    int triangle;
    int edge;
};

TEZ_API bool TezTrianglesIntersect(const TezVector3<float> a[3], const TezVector3<float> b[3]);

// The long form: also says whether the two are coplanar and, when they are not
// and they intersect, the segment of intersection with the origin of its ends.
// For a coplanar pair start and end are left as they are and their triangle
// and edge are -1.
TEZ_API bool TezTrianglesIntersect(const TezVector3<float> a[3], const TezVector3<float> b[3], bool& coplanar,
                                   TezTriangleSegmentEnd& start, TezTriangleSegmentEnd& end);

// The same on mesh triangles (TezMeshTriangle::HasCommonVertices tells shared corners).
TEZ_API bool TezMeshTrianglesIntersect(const TezMeshTriangle& a, const TezMeshTriangle& b);
TEZ_API bool TezMeshTrianglesIntersect(const TezMeshTriangle& a, const TezMeshTriangle& b, bool& coplanar,
                                       TezVector3<float>& start, int& startTriangle, int& startEdge,
                                       TezVector3<float>& end, int& endTriangle, int& endEdge);
