#pragma once
// TezMeshOctree: an octree over the triangles of a TezIndexedMesh.
//
// Branches divide their box at its centre. A triangle goes to every octant its
// bounding box reaches, with inclusive comparisons: a box touching the centre
// on an axis goes to both sides. A child becomes a branch while it holds at
// least GetMaxLeafTriangles (100) triangles and lies above GetMaxDepth (15),
// unless it holds all of its parent's triangles. Octant k takes the upper half
// on x for bit 0, y for bit 1, z for bit 2; a point on the centre goes up.

#include "core/RefCounter.h"
#include "math/Box.h"
#include "math/Vector.h"
#include "mesh/IndexedMesh.h"

#include <memory>
#include <vector>

class TezMeshOctreeBranch;
class TezMeshOctreeLeaf;
class TezMeshOctree;

TEZ_DECLARE_REF_FUNCTIONS(TezMeshOctree)

class TEZ_API TezMeshOctreeNode
{
public:
    enum Type { BranchNode, LeafNode };

    virtual ~TezMeshOctreeNode() = default;
    virtual void Clear() = 0;
    virtual TezMeshOctreeLeaf* FindContainingLeaf(TezVector3<float> const& point) = 0;
    virtual void Stats(int& nodes, int& leaves, int& triangles, int& depth) const = 0;
    virtual Type GetType() const = 0;

    TezMeshOctreeBranch* GetParent() const { return m_parent; }
    TezMeshOctree* GetTree() const { return m_tree; }
    TezBox3<float> const& GetBounds() const { return m_bounds; }
    int GetDepth() const { return m_depth; }

protected:
    TezMeshOctreeNode(TezMeshOctreeBranch* parent, TezMeshOctree* tree, TezBox3<float> const& bounds, int depth)
        : m_parent(parent), m_tree(tree), m_bounds(bounds), m_depth(depth)
    {
    }

private:
    TezMeshOctreeBranch* m_parent;
    TezMeshOctree* m_tree;
    TezBox3<float> m_bounds;
    int m_depth;
};

class TEZ_API TezMeshOctreeBranch : public TezMeshOctreeNode
{
public:
    TezMeshOctreeBranch(TezMeshOctreeBranch* parent, TezMeshOctree* tree, TezBox3<float> const& bounds, int depth)
        : TezMeshOctreeNode(parent, tree, bounds, depth), m_centre(bounds.Center())
    {
    }

    void Clear() override;
    TezMeshOctreeLeaf* FindContainingLeaf(TezVector3<float> const& point) override;
    void Stats(int& nodes, int& leaves, int& triangles, int& depth) const override;
    Type GetType() const override { return BranchNode; }

    TezVector3<float> const& GetCentre() const { return m_centre; }
    TezMeshOctreeNode* GetChild(int octant) const { return m_children[octant].get(); }
    // The box of one octant of this branch.
    TezBox3<float> OctantBounds(int octant) const;

private:
    friend class TezMeshOctree;
    TezVector3<float> m_centre;
    std::unique_ptr<TezMeshOctreeNode> m_children[8];
};

class TEZ_API TezMeshOctreeLeaf : public TezMeshOctreeNode
{
public:
    TezMeshOctreeLeaf(TezMeshOctreeBranch* parent, TezMeshOctree* tree, TezBox3<float> const& bounds, int depth,
                      std::vector<unsigned int> triangles)
        : TezMeshOctreeNode(parent, tree, bounds, depth), m_triangles(std::move(triangles))
    {
    }

    void Clear() override { m_triangles.clear(); }
    TezMeshOctreeLeaf* FindContainingLeaf(TezVector3<float> const&) override { return this; }
    void Stats(int& nodes, int& leaves, int& triangles, int& depth) const override;
    Type GetType() const override { return LeafNode; }

    size_t GetNumTriangles() const { return m_triangles.size(); }
    unsigned int GetTriangleIndex(size_t i) const { return m_triangles[i]; }

private:
    std::vector<unsigned int> m_triangles;
};

class TEZ_API TezMeshOctree : public TezRefCounter
{
public:
    static TezRef<TezMeshOctree> Create(TezRef<TezIndexedMesh> mesh);

    // False, with no root, for a missing mesh or one without triangles.
    bool Build();
    void Clear() { m_root.reset(); }

    TezRef<TezIndexedMesh> GetMesh() const { return m_mesh; }
    TezMeshOctreeBranch* GetRoot() const { return m_root.get(); }
    TezMeshOctreeLeaf* FindContainingLeaf(TezVector3<float> const& point) const;
    void ComputeStatistics(int& nodes, int& leaves, int& triangles, int& depth) const;

    int GetMaxLeafTriangles() const { return m_maxLeafTriangles; }
    void SetMaxLeafTriangles(int value) { m_maxLeafTriangles = value; }
    int GetMaxDepth() const { return m_maxDepth; }
    void SetMaxDepth(int value) { m_maxDepth = value; }

    ~TezMeshOctree() override = default;

private:
    explicit TezMeshOctree(TezRef<TezIndexedMesh> mesh) : m_mesh(std::move(mesh)) {}
    void BuildBranch(TezMeshOctreeBranch* branch, std::vector<unsigned int>& triangles);
    void AssignTriangle(unsigned int triangle, TezMeshOctreeBranch const* branch,
                        std::vector<unsigned int> lists[8]) const;
    TezBox3<float> TriangleBounds(unsigned int triangle) const;

    TezRef<TezIndexedMesh> m_mesh;
    std::unique_ptr<TezMeshOctreeBranch> m_root;
    int m_maxLeafTriangles = 100;
    int m_maxDepth = 15;
};
