#pragma once
// Small procedural meshes for the topology, tree and curvature tests. The
// sphere and tube have single pole vertices and shared seams, so that they
// are closed (or open only where stated) by index, not just by position.

#include "core/Constants.h"
#include "mesh/IndexedMesh.h"

#include <cmath>
#include <functional>

namespace topology_test {

using Vec = TezVector3<float>;

inline void AddTriangle(TezIndexedMesh& mesh, unsigned int a, unsigned int b, unsigned int c)
{
    mesh.GetIndices().insert(mesh.GetIndices().end(), {a, b, c});
}

// A flat square grid of n x n cells in z = 0, facing +z, spanning [0, n*step].
inline TezRef<TezIndexedMesh> Grid(int n, float step = 1.0f)
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i)
            mesh->AddVertex(TezMeshVertex(Vec(i * step, j * step, 0.0f), Vec(0.0f, 0.0f, 1.0f)));
    auto at = [n](int i, int j) { return static_cast<unsigned int>(j * (n + 1) + i); };
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            AddTriangle(*mesh, at(i, j), at(i + 1, j), at(i + 1, j + 1));
            AddTriangle(*mesh, at(i, j), at(i + 1, j + 1), at(i, j + 1));
        }
    return mesh;
}

// A closed sphere of the radius around the origin, outward normals, wound
// counterclockwise seen from outside.
inline TezRef<TezIndexedMesh> Sphere(int stacks, int slices, float radius = 1.0f)
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    double const pi = TezPi;
    mesh->AddVertex(TezMeshVertex(Vec(0, 0, -radius), Vec(0, 0, -1)));
    for (int s = 1; s < stacks; ++s) {
        double const lat = -pi / 2 + pi * s / stacks;
        for (int k = 0; k < slices; ++k) {
            double const lon = 2 * pi * k / slices;
            Vec const n(static_cast<float>(std::cos(lon) * std::cos(lat)),
                        static_cast<float>(std::sin(lon) * std::cos(lat)), static_cast<float>(std::sin(lat)));
            mesh->AddVertex(TezMeshVertex(n * radius, n));
        }
    }
    unsigned int const top = mesh->AddVertex(TezMeshVertex(Vec(0, 0, radius), Vec(0, 0, 1)));
    auto at = [slices](int ring, int k) { return static_cast<unsigned int>(1 + (ring - 1) * slices + (k % slices)); };
    for (int k = 0; k < slices; ++k)
        AddTriangle(*mesh, 0, at(1, k + 1), at(1, k));
    for (int s = 1; s + 1 < stacks; ++s)
        for (int k = 0; k < slices; ++k) {
            AddTriangle(*mesh, at(s, k), at(s, k + 1), at(s + 1, k + 1));
            AddTriangle(*mesh, at(s, k), at(s + 1, k + 1), at(s + 1, k));
        }
    for (int k = 0; k < slices; ++k)
        AddTriangle(*mesh, top, at(stacks - 1, k), at(stacks - 1, k + 1));
    return mesh;
}

// An open tube of the radius along z from 0 to height, outward normals.
inline TezRef<TezIndexedMesh> Tube(int rings, int slices, float radius, float height)
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    double const pi = TezPi;
    for (int r = 0; r < rings; ++r)
        for (int k = 0; k < slices; ++k) {
            double const a = 2 * pi * k / slices;
            Vec const n(static_cast<float>(std::cos(a)), static_cast<float>(std::sin(a)), 0.0f);
            mesh->AddVertex(TezMeshVertex(Vec(n.x * radius, n.y * radius, height * r / (rings - 1)), n));
        }
    auto at = [slices](int r, int k) { return static_cast<unsigned int>(r * slices + (k % slices)); };
    for (int r = 0; r + 1 < rings; ++r)
        for (int k = 0; k < slices; ++k) {
            AddTriangle(*mesh, at(r, k), at(r, k + 1), at(r + 1, k + 1));
            AddTriangle(*mesh, at(r, k), at(r + 1, k + 1), at(r + 1, k));
        }
    return mesh;
}

// A copy of the mesh without the triangles whose centroid the predicate picks.
inline TezRef<TezIndexedMesh> Without(TezRef<TezIndexedMesh> mesh, std::function<bool(Vec const&)> const& drop)
{
    TezRef<TezIndexedMesh> out = mesh->Copy();
    out->GetIndices().clear();
    for (size_t t = 0; t < mesh->GetNumTriangles(); ++t) {
        TezMeshTriangle const tri = mesh->GetTriangle(t);
        if (!drop(tri.ComputeCentroid()))
            AddTriangle(*out, tri.GetVertexIndex(0), tri.GetVertexIndex(1), tri.GetVertexIndex(2));
    }
    return out;
}

} // namespace topology_test
