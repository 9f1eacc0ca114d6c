#include "mesh/MeshOctree.h"

#include <algorithm>
#include <cmath>

TEZ_DEFINE_REF_FUNCTIONS(TezMeshOctree)

void TezMeshOctreeBranch::Clear()
{
    for (auto& child : m_children)
        child.reset();
}

TezMeshOctreeLeaf* TezMeshOctreeBranch::FindContainingLeaf(TezVector3<float> const& point)
{
    int const octant =
        (point.x >= m_centre.x ? 1 : 0) | (point.y >= m_centre.y ? 2 : 0) | (point.z >= m_centre.z ? 4 : 0);
    TezMeshOctreeNode* child = m_children[octant].get();
    return child ? child->FindContainingLeaf(point) : nullptr;
}

void TezMeshOctreeBranch::Stats(int& nodes, int& leaves, int& triangles, int& depth) const
{
    ++nodes;
    depth = std::max(depth, GetDepth());
    for (auto const& child : m_children)
        if (child)
            child->Stats(nodes, leaves, triangles, depth);
}

TezBox3<float> TezMeshOctreeBranch::OctantBounds(int octant) const
{
    TezVector3<float> low = GetBounds().GetMinimum();
    TezVector3<float> high = GetBounds().GetMaximum();
    for (int axis = 0; axis < 3; ++axis) {
        if (octant & (1 << axis))
            low[axis] = m_centre[axis];
        else
            high[axis] = m_centre[axis];
    }
    return TezBox3<float>(low, high);
}

void TezMeshOctreeLeaf::Stats(int& nodes, int& leaves, int& triangles, int& depth) const
{
    ++nodes;
    ++leaves;
    triangles += static_cast<int>(m_triangles.size());
    depth = std::max(depth, GetDepth());
}

TezRef<TezMeshOctree> TezMeshOctree::Create(TezRef<TezIndexedMesh> mesh) { return new TezMeshOctree(mesh); }

TezBox3<float> TezMeshOctree::TriangleBounds(unsigned int triangle) const
{
    TezBox3<float> box;
    for (int k = 0; k < 3; ++k)
        box += m_mesh->GetVertex(m_mesh->GetIndex(triangle, k)).position;
    return box;
}

bool TezMeshOctree::Build()
{
    Clear();
    if (!m_mesh || m_mesh->GetNumTriangles() == 0)
        return false;
    size_t const numVertices = m_mesh->GetNumVertices();
    std::vector<unsigned int> const& indices = m_mesh->GetIndices();
    TezBox3<float> bounds;
    std::vector<unsigned int> triangles;
    for (size_t t = 0; t < m_mesh->GetNumTriangles(); ++t) {
        if (indices[3 * t] >= numVertices || indices[3 * t + 1] >= numVertices || indices[3 * t + 2] >= numVertices)
            continue;
        TezBox3<float> const box = TriangleBounds(static_cast<unsigned int>(t));
        TezVector3<float> const& lo = box.GetMinimum();
        TezVector3<float> const& hi = box.GetMaximum();
        if (!std::isfinite(lo.x + lo.y + lo.z + hi.x + hi.y + hi.z))
            continue; // a triangle with a corner nowhere cannot be placed
        bounds += box;
        triangles.push_back(static_cast<unsigned int>(t));
    }
    if (triangles.empty())
        return false;
    m_root = std::make_unique<TezMeshOctreeBranch>(nullptr, this, bounds, 0);
    BuildBranch(m_root.get(), triangles);
    return true;
}

void TezMeshOctree::AssignTriangle(unsigned int triangle, TezMeshOctreeBranch const* branch,
                                   std::vector<unsigned int> lists[8]) const
{
    TezBox3<float> const box = TriangleBounds(triangle);
    TezVector3<float> const& centre = branch->GetCentre();
    for (int octant = 0; octant < 8; ++octant) {
        bool reaches = true;
        for (int axis = 0; axis < 3 && reaches; ++axis)
            reaches = (octant & (1 << axis)) ? box.GetMaximum()[axis] >= centre[axis]
                                             : box.GetMinimum()[axis] <= centre[axis];
        if (reaches)
            lists[octant].push_back(triangle);
    }
}

void TezMeshOctree::BuildBranch(TezMeshOctreeBranch* branch, std::vector<unsigned int>& triangles)
{
    std::vector<unsigned int> lists[8];
    for (unsigned int t : triangles)
        AssignTriangle(t, branch, lists);
    size_t const parentCount = triangles.size();
    triangles.clear();
    triangles.shrink_to_fit();
    int const depth = branch->GetDepth() + 1;
    for (int octant = 0; octant < 8; ++octant) {
        std::vector<unsigned int>& list = lists[octant];
        TezBox3<float> const bounds = branch->OctantBounds(octant);
        // A child that keeps all of its parent's triangles would repeat the parent.
        if (static_cast<int>(list.size()) >= m_maxLeafTriangles && depth < m_maxDepth && list.size() < parentCount) {
            auto child = std::make_unique<TezMeshOctreeBranch>(branch, this, bounds, depth);
            TezMeshOctreeBranch* raw = child.get();
            branch->m_children[octant] = std::move(child);
            BuildBranch(raw, list);
        } else {
            branch->m_children[octant] = std::make_unique<TezMeshOctreeLeaf>(branch, this, bounds, depth, list);
            list.clear();
            list.shrink_to_fit();
        }
    }
}

TezMeshOctreeLeaf* TezMeshOctree::FindContainingLeaf(TezVector3<float> const& point) const
{
    return m_root ? m_root->FindContainingLeaf(point) : nullptr;
}

void TezMeshOctree::ComputeStatistics(int& nodes, int& leaves, int& triangles, int& depth) const
{
    nodes = leaves = triangles = depth = 0;
    if (m_root)
        m_root->Stats(nodes, leaves, triangles, depth);
}
