#include "mesh/MeshKDTree.h"

#include "mesh/TriangleIntersection.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>

TEZ_DEFINE_REF_FUNCTIONS(TezMeshKDTree)

void TezMeshKDBranch::Clear()
{
    m_children[0].reset();
    m_children[1].reset();
}

TezMeshKDLeaf* TezMeshKDBranch::FindContainingLeaf(TezVector3<float> const& point)
{
    TezMeshKDNode* child = m_children[m_value > point[static_cast<int>(m_axis)] ? Lower : Upper].get();
    return child ? child->FindContainingLeaf(point) : nullptr;
}

void TezMeshKDBranch::Stats(int& nodes, int& leaves, int& triangles, int& depth) const
{
    ++nodes;
    depth = std::max(depth, GetDepth());
    for (auto const& child : m_children)
        if (child)
            child->Stats(nodes, leaves, triangles, depth);
}

void TezMeshKDLeaf::Stats(int& nodes, int& leaves, int& triangles, int& depth) const
{
    ++nodes;
    ++leaves;
    triangles += static_cast<int>(m_triangles.size());
    depth = std::max(depth, GetDepth());
}

TezRef<TezMeshKDTree> TezMeshKDTree::Create(TezRef<TezIndexedMesh> mesh) { return new TezMeshKDTree(mesh); }

bool TezMeshKDTree::Build()
{
    Clear();
    if (!m_mesh || m_mesh->GetNumTriangles() == 0)
        return false;
    size_t const numTriangles = m_mesh->GetNumTriangles();
    size_t const numVertices = m_mesh->GetNumVertices();
    std::vector<unsigned int> const& indices = m_mesh->GetIndices();
    TezBox3<float> bounds;
    std::vector<unsigned int> triangles;
    triangles.reserve(numTriangles);
    for (size_t t = 0; t < numTriangles; ++t) {
        // Triangles that name missing vertices or lie nowhere cannot be placed.
        if (indices[3 * t] >= numVertices || indices[3 * t + 1] >= numVertices || indices[3 * t + 2] >= numVertices)
            continue;
        bool finite = true;
        for (int k = 0; k < 3; ++k) {
            TezVector3<float> const& p = m_mesh->GetVertex(indices[3 * t + k]).position;
            finite = finite && std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
        }
        if (!finite)
            continue;
        for (int k = 0; k < 3; ++k)
            bounds += m_mesh->GetVertex(indices[3 * t + k]).position;
        triangles.push_back(static_cast<unsigned int>(t));
    }
    if (triangles.empty())
        return false;
    m_root = std::make_unique<TezMeshKDBranch>(nullptr, this, bounds, 0, TezMeshKDBranch::X);
    BuildBranch(m_root.get(), triangles);
    return true;
}

void TezMeshKDTree::TriangleRange(unsigned int triangle, int axis, float& low, float& high) const
{
    std::vector<TezMeshVertex> const& vertices = m_mesh->GetVertices();
    std::vector<unsigned int> const& indices = m_mesh->GetIndices();
    float const a = vertices[indices[3 * triangle]].position[axis];
    float const b = vertices[indices[3 * triangle + 1]].position[axis];
    float const c = vertices[indices[3 * triangle + 2]].position[axis];
    low = std::min(a, std::min(b, c));
    high = std::max(a, std::max(b, c));
}

float TezMeshKDTree::FindMedian(int axis, std::vector<unsigned int> const& triangles) const
{
    size_t const n = triangles.size();
    std::vector<float> mins(n), maxs(n);
    for (size_t i = 0; i < n; ++i)
        TriangleRange(triangles[i], axis, mins[i], maxs[i]);
    std::sort(mins.begin(), mins.end());
    std::sort(maxs.begin(), maxs.end());
    return (mins[n / 2] + maxs[n / 2]) * 0.5f;
}

void TezMeshKDTree::SplitParentTriangles(TezMeshKDBranch const* branch, std::vector<unsigned int> const& triangles,
                                         std::vector<unsigned int>& lower, std::vector<unsigned int>& upper) const
{
    int const axis = static_cast<int>(branch->m_axis);
    float const value = branch->m_value;
    for (unsigned int t : triangles) {
        float low, high;
        TriangleRange(t, axis, low, high);
        // A triangle flat in the dividing plane satisfies neither test.
        if (value > low)
            lower.push_back(t);
        if (high > value)
            upper.push_back(t);
    }
}

void TezMeshKDTree::BuildBranch(TezMeshKDBranch* branch, std::vector<unsigned int>& triangles)
{
    branch->m_value = triangles.empty() ? branch->GetBounds().Center()[static_cast<int>(branch->m_axis)]
                                        : FindMedian(static_cast<int>(branch->m_axis), triangles);
    std::vector<unsigned int> lower, upper;
    SplitParentTriangles(branch, triangles, lower, upper);
    bool const progress = lower.size() < triangles.size() || upper.size() < triangles.size();
    triangles.clear();
    triangles.shrink_to_fit();
    BuildChild(branch, lower, 0, progress);
    BuildChild(branch, upper, 1, progress);
}

void TezMeshKDTree::BuildChild(TezMeshKDBranch* branch, std::vector<unsigned int>& triangles, int direction, bool split)
{
    int const axis = static_cast<int>(branch->m_axis);
    TezVector3<float> low = branch->GetBounds().GetMinimum();
    TezVector3<float> high = branch->GetBounds().GetMaximum();
    if (direction == 0)
        high[axis] = branch->m_value;
    else
        low[axis] = branch->m_value;
    TezBox3<float> const bounds(low, high);
    int const depth = branch->GetDepth() + 1;
    if (split && static_cast<int>(triangles.size()) >= m_maxLeafTriangles && depth < m_maxDepth) {
        auto child = std::make_unique<TezMeshKDBranch>(branch, this, bounds, depth,
                                                       static_cast<TezMeshKDBranch::Axis>((axis + 1) % 3));
        TezMeshKDBranch* raw = child.get();
        branch->m_children[direction] = std::move(child);
        BuildBranch(raw, triangles);
    } else {
        branch->m_children[direction] = std::make_unique<TezMeshKDLeaf>(branch, this, bounds, depth, triangles);
        triangles.clear();
        triangles.shrink_to_fit();
    }
}

TezMeshKDLeaf* TezMeshKDTree::FindContainingLeaf(TezVector3<float> const& point) const
{
    return m_root ? m_root->FindContainingLeaf(point) : nullptr;
}

void TezMeshKDTree::ComputeStatistics(int& nodes, int& leaves, int& triangles, int& depth) const
{
    nodes = leaves = triangles = depth = 0;
    if (m_root)
        m_root->Stats(nodes, leaves, triangles, depth);
}

size_t TezFindSelfIntersections(TezRef<TezMeshKDTree> tree, std::multimap<unsigned int, unsigned int>& pairs)
{
    pairs.clear();
    if (!tree || !tree->GetRoot())
        return 0;
    TezRef<TezIndexedMesh> mesh = tree->GetMesh();
    size_t const numVertices = mesh->GetNumVertices();
    std::vector<unsigned int> const& indices = mesh->GetIndices();
    // tested[u] == t once u has been tried against t.
    std::vector<size_t> tested(mesh->GetNumTriangles(), ~size_t(0));
    for (size_t t = 0; t < mesh->GetNumTriangles(); ++t) {
        unsigned int const* corner = &indices[3 * t];
        if (corner[0] >= numVertices || corner[1] >= numVertices || corner[2] >= numVertices)
            continue;
        TezMeshTriangle const a(corner, mesh);
        TezMeshKDLeaf* leaves[3] = {nullptr, nullptr, nullptr};
        for (int k = 0; k < 3; ++k) {
            TezMeshKDLeaf* leaf = tree->FindContainingLeaf(mesh->GetVertex(corner[k]).position);
            if (!leaf || leaf == leaves[0] || leaf == leaves[1])
                continue;
            leaves[k] = leaf;
            for (size_t i = 0; i < leaf->GetNumTriangles(); ++i) {
                unsigned int const u = leaf->GetTriangleIndex(i);
                if (u <= t || u >= tested.size() || tested[u] == t)
                    continue;
                tested[u] = t;
                TezMeshTriangle const b(&indices[3 * u], mesh);
                if (!TezMeshTriangle::HasCommonVertices(a, b) && TezMeshTrianglesIntersect(a, b))
                    pairs.emplace(static_cast<unsigned int>(t), u);
            }
        }
    }
    return pairs.size();
}

TezRef<TezMeshIndexList> TezIndexListFromMap(std::multimap<unsigned int, unsigned int> const& pairs)
{
    TezRef<TezMeshIndexList> list = TezMeshIndexList::Create();
    if (pairs.empty())
        return list;
    std::set<unsigned int> const both = {pairs.begin()->first, pairs.begin()->second};
    for (unsigned int t : both)
        list->Add(t);
    return list;
}

size_t TezIndexedMesh::FindSelfIntersections(TezRef<TezMeshKDTree> tree,
                                             std::multimap<unsigned int, unsigned int>& pairs)
{
    if (tree && tree->GetMesh().Get() != this)
        throw std::runtime_error("TezIndexedMesh::FindSelfIntersections: the tree is built over another mesh");
    return TezFindSelfIntersections(tree, pairs);
}

TezRef<TezMeshIndexList> TezIndexedMesh::IndexListFromMap(std::multimap<unsigned int, unsigned int>& pairs)
{
    return TezIndexListFromMap(pairs);
}
