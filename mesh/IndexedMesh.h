#pragma once
// TezIndexedMesh: the kernel's plain triangle mesh, shared by reference.
//
// An array of 24-byte vertices (position, normal) and an array of indices,
// three to a triangle, both contiguous so that the render path can hand them
// to the graphics library as they stand. Indices are not range-checked
// anywhere: a mesh with indices past its vertices is the caller's affair.
//
// The check and clean-up operations compare vertex indices only, never
// positions, and report progress through the application's UI manager (and
// run silently without an application). Readers return a null reference on
// any failure (missing file, bad header, short or malformed data, or the
// host's stop flag raised while an STL file is read) and never throw; a file that claims more data than it holds is
// refused before anything of that size is allocated. A path that is not a regular file (a directory, a device) is
// refused with a warning in the log.

#include "core/RefCounter.h"
#include "core/String.h"
#include "math/Box.h"
#include "math/Matrix.h"
#include "math/Plane.h"
#include "math/Vector.h"

#include <cstdio>
#include <map>
#include <set>
#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezIndexedMesh)
TEZ_DECLARE_REF_FUNCTIONS(TezMeshIndexList)
TEZ_DECLARE_REF_FUNCTIONS(TezMeshKDTree)

struct TezMeshVertex
{
    TezVector3<float> position;
    TezVector3<float> normal;

    // Value-initialisation (TezMeshVertex{}, vector::resize) gives zeros.
    TezMeshVertex() = default;
    TezMeshVertex(TezVector3<float> const& p, TezVector3<float> const& n) : position(p), normal(n) {}
};
static_assert(sizeof(TezMeshVertex) == 24, "mesh vertices are handed to the GPU as they stand");

// Three counters, in this order.
struct TezMeshCheckResults
{
    int degenerateTriangles = 0;
    int duplicateTriangles = 0;
    int nonManifoldEdges = 0;
};

// A light view of one triangle: three vertex indices and the mesh they index.
class TEZ_API TezMeshTriangle
{
public:
    TezMeshTriangle(unsigned int i0, unsigned int i1, unsigned int i2, TezRef<TezIndexedMesh> mesh = nullptr);
    TezMeshTriangle(unsigned int const* indices, TezRef<TezIndexedMesh> mesh);

    TezMeshVertex const& GetVertex(int corner) const;
    unsigned int GetVertexIndex(int corner) const { return m_index[corner]; }
    TezRef<TezIndexedMesh> const& GetMesh() const { return m_mesh; }

    // Two equal indices; positions are not compared.
    bool CheckDegenerate() const;
    // Base times height over two; 0 when the first edge or the height is
    // below 1e-6.
    float ComputeArea() const;
    // (p1-p0) x (p2-p0), each edge and the result normalised.
    TezVector3<float> ComputeNormal() const;
    // Interior angle at each corner, in radians.
    TezVector3<float> ComputeAngles() const;
    TezVector3<float> ComputeCentroid() const;
    TezBox3<float> ComputeBounds() const;
    // The plane through p2, p1, p0 in that order.
    TezPlane<float> GetPlane() const;

    // True if any index of one triangle equals any index of the other.
    static bool HasCommonVertices(TezMeshTriangle const& a, TezMeshTriangle const& b);
    // Moeller's interval test (mesh/TriangleIntersection.h); touching counts.
    static bool Intersect(TezMeshTriangle const& a, TezMeshTriangle const& b);
    // Also the coplanar flag and, for a crossing pair, the segment of
    // intersection with the triangle (0 a, 1 b) and edge of each end.
    static bool Intersect(TezMeshTriangle const& a, TezMeshTriangle const& b, bool& coplanar, TezVector3<float>& start,
                          int& startTriangle, int& startEdge, TezVector3<float>& end, int& endTriangle, int& endEdge);

private:
    unsigned int m_index[3];
    TezRef<TezIndexedMesh> m_mesh;
};

class TEZ_API TezIndexedMesh : public TezRefCounter
{
public:
    static TezRef<TezIndexedMesh> CreateEmpty();
    // A deep copy of both arrays.
    TezRef<TezIndexedMesh> Copy() const;
    void Resize(size_t numVertices, size_t numTriangles);

    // ---- access ----
    size_t GetNumVertices() const { return m_vertices.size(); }
    size_t GetNumTriangles() const { return m_indices.size() / 3; }
    size_t GetNumIndices() const { return m_indices.size(); }
    TezMeshVertex const& GetVertex(size_t i) const { return m_vertices[i]; }
    void SetVertex(size_t i, TezMeshVertex const& vertex) { m_vertices[i] = vertex; }
    unsigned int GetIndex(size_t triangle, int corner) const { return m_indices[3 * triangle + corner]; }
    void SetIndex(size_t triangle, int corner, unsigned int value) { m_indices[3 * triangle + corner] = value; }
    TezMeshTriangle GetTriangle(size_t i);
    // Returns the new vertex's index.
    unsigned int AddVertex(TezMeshVertex const& vertex);
    // Appends the triangle's three indices; its mesh is not looked at.
    void AddTriangle(TezMeshTriangle const& triangle);

    // The arrays themselves, for bulk work and the render path.
    std::vector<TezMeshVertex>& GetVertices() { return m_vertices; }
    std::vector<TezMeshVertex> const& GetVertices() const { return m_vertices; }
    std::vector<unsigned int>& GetIndices() { return m_indices; }
    std::vector<unsigned int> const& GetIndices() const { return m_indices; }

    // ---- measures ----
    // Box of all vertex positions (used or not); empty for no vertices.
    TezBox3<float> ComputeBounds() const;
    // Sum of the triangles' ComputeArea, added up in double.
    float ComputeSurfaceArea() const;
    // Signed: positive for a closed mesh wound counterclockwise outwards.
    float ComputeVolume() const;
    // Extent along `axis` (taken mod 3) and the smallest circle around the
    // positions projected on the two other axes: base[axis] is the minimum,
    // the other two elements of base the circle's centre. False for a mesh
    // with no vertices. Fischer and Gaertner's pivoting walk ("Fast smallest-
    // enclosing-ball computation in high dimensions", ESA 2003).
    bool ComputeBoundingCylinder(int axis, TezVector3<float>& base, float& length, float& radius) const;
    // Positions only; normals are left as they are on purpose.
    void TransformGeometry(TezMatrix44<float> const& transform);

    // ---- check and clean-up ----
    // Counts degenerate triangles (two equal indices), duplicate triangles
    // (same three indices in any order) and non-manifold edges (edges of
    // three or more triangles). True when all three counts are 0.
    bool Check(TezMeshCheckResults& results);
    // The two removals leave the mesh as it was when the host raises its
    // stop flag while they look for triangles to remove.
    void RemoveDegenerateTriangles();
    // Vertices with a NaN or infinite coordinate, used by a triangle or not.
    // Check leaves positions alone; a file can still carry such values.
    size_t CountNonFiniteVertices() const;
    // keepFirst false removes every copy of a repeated triangle.
    void RemoveDuplicateTriangles(bool keepFirst);
    // Drops the listed triangles; vertices stay, used or not.
    void RemoveTriangles(TezRef<TezMeshIndexList> triangles);

    // ---- self-intersections (mesh/MeshKDTree.h) ----
    // Pairs (t, u), t < u, of intersecting triangles without a common vertex
    // index, found through the tree's corner leaves; returns their number.
    // A tree over another mesh is refused with std::runtime_error.
    size_t FindSelfIntersections(TezRef<TezMeshKDTree> tree, std::multimap<unsigned int, unsigned int>& pairs);
    // The triangles of the map's first pair only, as it stands; empty for an
    // empty map.
    static TezRef<TezMeshIndexList> IndexListFromMap(std::multimap<unsigned int, unsigned int>& pairs);

    // ---- files ----
    // By the path's last four characters, in any case: ".ply", ".stl",
    // ".obj"; null for anything else.
    static TezRef<TezIndexedMesh> ReadFromFile(TezString const& path);
    // Text unless the file holds a byte of 127 or more; a file that fails as
    // text is tried as binary. Corners of bit-equal position are joined and
    // their facet normals averaged.
    static TezRef<TezIndexedMesh> ReadFromStlFile(TezString const& path);
    // Positions, normals by order of appearance ((0,0,1) without), faces as
    // fans. Prints "Cannot open file [path]" to stderr for a missing file.
    static TezRef<TezIndexedMesh> ReadFromObjFile(TezString const& path);
    // Vertex x, y, z (nx, ny, nz when present) and the face lists of
    // "vertex_index" or, failing that, "vertex_indices", of any integer
    // types; a quad gives two triangles, longer faces lose their corners
    // after the fourth. Faces with neither list are warned about in the log.
    static TezRef<TezIndexedMesh> ReadFromPlyFile(TezString const& path);
    // Normals are recomputed from the positions. False when the file cannot
    // be opened or written; a partial file stays on the disk.
    static bool WriteToStlFile(TezRef<TezIndexedMesh> mesh, TezString const& path, bool binary);

    // ---- generators ----
    // Along +z with its tip at z = 1 whatever the lengths; 7n+1 vertices, 6n
    // triangles.
    static TezRef<TezIndexedMesh> CreateArrow(int n, float rodLength, float headLength, float rodRadius,
                                              float headRadius);
    // Symmetric about z = 0; 10n vertices, 10n triangles.
    static TezRef<TezIndexedMesh> CreateDoubleArrow(int n, float rodHalfLength, float headLength, float rodRadius,
                                                    float headRadius);
    // slices >= 4, stacks >= 2 (smaller values are raised); closed by caps.
    static TezRef<TezIndexedMesh> CreateCylinder(int slices, int stacks, float bottomRadius, float topRadius,
                                                 float height);
    // Unit sphere; (stacks+1)*slices vertices, 2*stacks*slices triangles.
    static TezRef<TezIndexedMesh> CreateSphere(int stacks, int slices);
    // Around the z axis.
    static TezRef<TezIndexedMesh> CreateTorus(int tubeSlices, int ringSlices, float ringRadius, float tubeRadius);
    // An annulus slab of the given height centred on z = 0; n >= 4.
    static TezRef<TezIndexedMesh> CreateFlatRing(int n, float outerRadius, float innerRadius, float height);
    // A square frame slab of the given height centred on z = 0.
    static TezRef<TezIndexedMesh> CreateFrame(float outerHalfSize, float innerHalfSize, float height);
    // A flat rectangle in z = 0 facing +z.
    static TezRef<TezIndexedMesh> CreateQuad(float halfWidth, float halfHeight);

    // Area-weighted sums of the face normals, normalised; unused vertices
    // get a zero normal.
    void MakeNormalsFromPositions();

    ~TezIndexedMesh() override = default;

protected:
    TezIndexedMesh() = default;

private:
    friend class TezVolumeTessellator;
    friend struct TezIndexedMeshInternals;

    int CheckDegenerate();
    int CheckDuplicate();
    int CheckNonManifold();
    void RemoveTriangles(std::set<unsigned int>& triangles);
    // Merges vertices of bit-identical positions (-0 and +0 alike) in the
    // order the indices first meet them; unused vertices vanish, the first
    // vertex met of each position keeps its normal.
    void EliminateDuplicateVertices();

    static TezRef<TezIndexedMesh> ReadFromStlAscii(FILE* file);
    static TezRef<TezIndexedMesh> ReadFromStlBinary(FILE* file);
    static bool WriteToStlFileAscii(TezRef<TezIndexedMesh> mesh, FILE* file);
    static bool WriteToStlFileBinary(TezRef<TezIndexedMesh> mesh, FILE* file);
    static TezRef<TezIndexedMesh> ReadFromPlyFileRhinoFlavor(TezString const& path);
    // A scanner's output: "vertex_indices" triangles, positions moved by the
    // scanner's fixed calibration, normals made from the positions.
    static TezRef<TezIndexedMesh> ReadFromPlyFileBrontesFlavor(TezString const& path);

    // Two equally long closed outlines joined into a band at their height,
    // mirrored below z = 0, with inner and outer walls.
    static TezRef<TezIndexedMesh> CreateExtrudedMesh(std::vector<TezVector3<float>> const& outer,
                                                     std::vector<TezVector3<float>> const& inner, float height);

    std::vector<TezMeshVertex> m_vertices;
    std::vector<unsigned int> m_indices;
};
