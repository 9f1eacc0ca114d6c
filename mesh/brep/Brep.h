#pragma once
// TezBrep and TezBrepFace: boundary representations read from Rhino 3DM
// files, behind two abstract classes that hide the library which reads them
// (TezBrepRhino and TezBrepFaceRhino are the one implementation).
//
// A brep is a list of faces: each a NURBS surface clipped by closed loops
// of edges. The kernel draws a face as a grid over its whole surface,
// discarded outside the loops (MakeSurfaceGrid, TessellateLoops), and meshes
// it for export (Tessellate). Surface parameters handed out here are
// normalised: 0 to 1 over the surface's knot range in each direction.
//
// Failures: ReadFromFile gives null and logs; writers give false and log.
// A face whose loops cannot be rebuilt throws std::runtime_error, naming
// the face, from its TessellateLoops and Tessellate; the brep's Tessellate
// and the bounds leave such a face out with a warning.

#include "core/Archive.h"
#include "core/RefCounter.h"
#include "core/String.h"
#include "math/Box.h"
#include "math/Vector.h"

#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezBrep)
TEZ_DECLARE_REF_FUNCTIONS(TezBrepFace)
TEZ_DECLARE_REF_FUNCTIONS(TezIndexedMesh)

// A point of a face's surface grid, as evaluated (no trimming): position,
// unit normal (turned over on a reversed face) and the normalised surface
// parameters.
struct TezBrepFacePoint
{
    TezVector3<float> position;
    TezVector3<float> normal;
    TezVector2<float> param;
};

// One closed trim loop of a face: the same points in normalised surface
// parameters and in space, without repeating the first at the end. Outer
// loops run counter-clockwise in parameter space, holes clockwise.
struct TezBrepLoop
{
    std::vector<TezVector2<float>> params;
    std::vector<TezVector3<float>> points;
    bool outer = true;
};

// A face meshed alone: positions, normals, normalised parameters and
// triangles wound counter-clockwise seen from the face's outside.
struct TezBrepFaceMesh
{
    std::vector<TezVector3<float>> positions;
    std::vector<TezVector3<float>> normals;
    std::vector<TezVector2<float>> params;
    std::vector<unsigned> indices;
};

class TEZ_API TezBrepFace : public TezRefCounter
{
public:
    virtual TezBox3<float> ComputeBounds() = 0;
    // The face's trim loops (see TezBrepLoop).
    virtual void TessellateLoops(std::vector<TezBrepLoop>& loops) = 0;
    // The untrimmed surface sampled on a grid of nu x nv points, row after
    // row of u (point (i, j) at j * nu + i).
    virtual void MakeSurfaceGrid(int& nu, int& nv, std::vector<TezBrepFacePoint>& points) = 0;
    // The trimmed face as triangles. Its boundary points are the points of
    // its edges, shared with the neighbouring faces, so that the faces of a
    // closed brep mesh into a closed surface.
    virtual void Tessellate(TezBrepFaceMesh& mesh) = 0;

protected:
    TezBrepFace() = default;
};

class TEZ_API TezBrep : public TezRefCounter
{
public:
    // Reads a 3DM file (TezBrepRhino::ReadFromFile).
    static TezRef<TezBrep> ReadFromFile(TezString const& path);

    virtual TezBox3<float> ComputeBounds() = 0;
    virtual TezRef<TezBrep> Copy() = 0;
    // Writes a 3DM file.
    virtual bool Save(TezString const& path) = 0;
    // Writes and reads the brep inside a document archive, as the tagged
    // count "brep" followed by the bytes of a 3DM file. Load is called with
    // the tag "brep" already read.
    virtual void Save(TezRef<TezArchive> archive) = 0;
    virtual void Load(TezRef<TezArchive> archive) = 0;
    virtual void MakeFaceList(std::vector<TezRef<TezBrepFace>>& faces) = 0;
    // One polyline per edge, in space.
    virtual void TessellateEdges(std::vector<std::vector<TezVector3<float>>>& polylines) = 0;
    virtual void GetVertexPoints(std::vector<TezVector3<float>>& points) = 0;

    // Every face meshed and joined; points of equal position are merged, so
    // a closed brep gives a closed mesh. Faces that cannot be meshed are
    // left out with a warning.
    TezRef<TezIndexedMesh> Tessellate();

protected:
    TezBrep() = default;
};
