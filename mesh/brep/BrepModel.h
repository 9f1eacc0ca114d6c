#pragma once
// The geometry of a 3DM model as the B-rep classes use it: every brep with
// its faces as NURBS surfaces, its edges as NURBS curves in space, which
// edges bound which face, and its vertices, in double precision, each brep
// with the 4x4 transform that places it (row-major, points as columns).
//
// TezBrepFaceTrims rebuilds what a face needs for drawing and meshing from
// that: the edges sampled once per brep (so that two faces meeting at an
// edge share its points), pulled back into the face's parameter space by
// Newton's method, and chained into closed loops.

#include "math/NurbsCurve.h"
#include "math/NurbsSurface.h"
#include "math/Vector.h"
#include "platform/Api.h"

#include <memory>
#include <string>
#include <vector>

using TezBrepCurve = TezNurbsCurve<double, 3, TezVector3<double>>;

struct TezBrepModelFace
{
    TezNurbsSurface3<double> surface;
    bool reversed = false;
    std::vector<int> edges;
};

struct TEZ_API TezBrepModelBrep
{
    double transform[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    std::vector<TezVector3<double>> vertices;
    std::vector<TezBrepCurve> edges;
    std::vector<TezBrepModelFace> faces;
    // The model's absolute tolerance: how far apart the ends of edges that
    // meet may lie (0 when the file names none).
    double tolerance = 0;
    // Filled by SampleEdges: the points of each edge, transformed.
    std::vector<std::vector<TezVector3<double>>> edgePoints;

    TezVector3<double> Transform(TezVector3<double> const& p) const;
    TezVector3<double> TransformNormal(TezVector3<double> const& n) const;
    bool IsIdentity() const;
    // Samples every edge (untransformed and transformed); runs once. An
    // edge's ends are moved onto the brep vertex they lie at (within the
    // tolerance), so that edges meeting there share one point.
    void SampleEdges();
    std::vector<std::vector<TezVector3<double>>> const& EdgeSamples() const { return m_localEdgePoints; }

private:
    std::vector<std::vector<TezVector3<double>>> m_localEdgePoints;
};

struct TezBrepModel
{
    int archiveVersion = 0;
    bool valid = false;
    double tolerance = 0;
    int numBreps = 0;
    int numInstanceDefinitionObjects = 0;
    int numBrepsInInstanceDefinitions = 0;
    int numInstanceReferences = 0;
    int numNonBreps = 0;
    std::vector<TezBrepModelBrep> breps;
};

// A point of a trim loop: its surface parameters (not normalised) and its
// place in space, untransformed.
struct TezBrepTrimPoint
{
    TezVector2<double> uv;
    TezVector3<double> point;
};

// The trim loops of one face, outer loops counter-clockwise and holes
// clockwise in (u, v), each without its closing point. Throws
// std::runtime_error naming the face when its edges do not close into loops.
TEZ_API std::vector<std::vector<TezBrepTrimPoint>> TezBrepFaceTrims(TezBrepModelBrep const& brep, int face);

// The grid lines of a surface along u and v, from the first knot of its
// range to the last: every knot, with more lines between them in a curved
// direction (and at least 4 segments each way on a curved surface).
TEZ_API void TezBrepGridParams(TezNurbsSurface3<double> const& surface, std::vector<double>& us,
                               std::vector<double>& vs);

struct TezBrepFaceMesh;

// Meshes face `face` of the brep inside its trim loops (TezBrepFaceTrims),
// transformed by the brep's transform: grid cells that lie wholly inside
// become two triangles each, and the rest of the trimmed region is
// triangulated between the loops and those cells, so that the boundary
// keeps exactly the points of the edges.
TEZ_API void TezBrepTessellateFace(TezBrepModelBrep const& brep, int face,
                                   std::vector<std::vector<TezBrepTrimPoint>> const& loops, TezBrepFaceMesh& mesh);

// The unit normal Su x Sv at (u, v), turned over for a reversed face; at a
// pole, where the cross product vanishes, taken a little way inside the
// range. The point goes to `point` when asked for.
TEZ_API TezVector3<double> TezBrepSurfaceNormal(TezNurbsSurface3<double> const& surface, double u, double v,
                                                bool reversed, TezVector3<double>* point = nullptr);

// A surface's parameter range: the knots at its degree and at its point count.
TEZ_API void TezBrepSurfaceRange(TezNurbsSurface3<double> const& surface, double& u0, double& u1, double& v0,
                                 double& v1);
