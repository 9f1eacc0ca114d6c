#pragma once
// TezMeshKDTree: a kd-tree over the triangles of a TezIndexedMesh.
//
// Branches cycle through the axes x, y, z and divide at the mean of the median
// triangle minimum and the median triangle maximum on their axis. Triangles
// are not clipped: one that straddles the division goes to both sides, and one
// that lies flat in the dividing plane goes to neither and drops out of the
// tree. A child becomes a branch while it holds at least GetMaxLeafTriangles
// (100) triangles and lies above GetMaxDepth (30); a division that leaves both
// children with all their parent's triangles ends in two leaves.
//
// The tree keeps the mesh but does not watch it: Build again after editing.

#include "core/RefCounter.h"
#include "math/Box.h"
#include "math/Vector.h"
#include "mesh/IndexedMesh.h"
#include "mesh/MeshIndexList.h"

#include <map>
#include <memory>
#include <vector>

class TezMeshKDBranch;
class TezMeshKDLeaf;
class TezMeshKDTree;

TEZ_DECLARE_REF_FUNCTIONS(TezMeshKDTree)

class TEZ_API TezMeshKDNode
{
public:
    enum Type { BranchNode, LeafNode };

    virtual ~TezMeshKDNode() = default;
    virtual void Clear() = 0;
    // The leaf whose cell holds the point; see TezMeshKDTree.
    virtual TezMeshKDLeaf* FindContainingLeaf(TezVector3<float> const& point) = 0;
    // Adds this subtree's nodes, leaves, leaf triangle entries and depth.
    virtual void Stats(int& nodes, int& leaves, int& triangles, int& depth) const = 0;
    virtual Type GetType() const = 0;

    TezMeshKDBranch* GetParent() const { return m_parent; }
    TezMeshKDTree* GetTree() const { return m_tree; }
    TezBox3<float> const& GetBounds() const { return m_bounds; }
    int GetDepth() const { return m_depth; }

protected:
    TezMeshKDNode(TezMeshKDBranch* parent, TezMeshKDTree* tree, TezBox3<float> const& bounds, int depth)
        : m_parent(parent), m_tree(tree), m_bounds(bounds), m_depth(depth)
    {
    }

private:
    TezMeshKDBranch* m_parent;
    TezMeshKDTree* m_tree;
    TezBox3<float> m_bounds;
    int m_depth;
};

class TEZ_API TezMeshKDBranch : public TezMeshKDNode
{
public:
    enum Axis { X = 0, Y = 1, Z = 2 };
    enum Direction { Lower = 0, Upper = 1 };

    TezMeshKDBranch(TezMeshKDBranch* parent, TezMeshKDTree* tree, TezBox3<float> const& bounds, int depth, Axis axis)
        : TezMeshKDNode(parent, tree, bounds, depth), m_axis(axis)
    {
    }

    void Clear() override;
    TezMeshKDLeaf* FindContainingLeaf(TezVector3<float> const& point) override;
    void Stats(int& nodes, int& leaves, int& triangles, int& depth) const override;
    Type GetType() const override { return BranchNode; }

    Axis GetAxis() const { return m_axis; }
    float GetValue() const { return m_value; }
    TezMeshKDNode* GetChild(Direction direction) const { return m_children[direction].get(); }

private:
    friend class TezMeshKDTree;
    Axis m_axis;
    float m_value = 0.0f;
    std::unique_ptr<TezMeshKDNode> m_children[2];
};

class TEZ_API TezMeshKDLeaf : public TezMeshKDNode
{
public:
    TezMeshKDLeaf(TezMeshKDBranch* parent, TezMeshKDTree* tree, TezBox3<float> const& bounds, int depth,
                  std::vector<unsigned int> triangles)
        : TezMeshKDNode(parent, tree, bounds, depth), m_triangles(std::move(triangles))
    {
    }

    void Clear() override { m_triangles.clear(); }
    TezMeshKDLeaf* FindContainingLeaf(TezVector3<float> const&) override { return this; }
    void Stats(int& nodes, int& leaves, int& triangles, int& depth) const override;
    Type GetType() const override { return LeafNode; }

    size_t GetNumTriangles() const { return m_triangles.size(); }
    unsigned int GetTriangleIndex(size_t i) const { return m_triangles[i]; }

private:
    std::vector<unsigned int> m_triangles;
};

class TEZ_API TezMeshKDTree : public TezRefCounter
{
public:
    // An unbuilt tree over the mesh; call Build.
    static TezRef<TezMeshKDTree> Create(TezRef<TezIndexedMesh> mesh);

    // False, with no root, for a missing mesh or one without triangles.
    bool Build();
    void Clear() { m_root.reset(); }

    TezRef<TezIndexedMesh> GetMesh() const { return m_mesh; }
    TezMeshKDBranch* GetRoot() const { return m_root.get(); }
    // Descends to the lower child where the dividing value is strictly above
    // the point's coordinate, else to the upper one. Null for no root.
    TezMeshKDLeaf* FindContainingLeaf(TezVector3<float> const& point) const;
    void ComputeStatistics(int& nodes, int& leaves, int& triangles, int& depth) const;

    int GetMaxLeafTriangles() const { return m_maxLeafTriangles; }
    void SetMaxLeafTriangles(int value) { m_maxLeafTriangles = value; }
    int GetMaxDepth() const { return m_maxDepth; }
    void SetMaxDepth(int value) { m_maxDepth = value; }

    ~TezMeshKDTree() override = default;

private:
    explicit TezMeshKDTree(TezRef<TezIndexedMesh> mesh) : m_mesh(std::move(mesh)) {}
    void BuildBranch(TezMeshKDBranch* branch, std::vector<unsigned int>& triangles);
    float FindMedian(int axis, std::vector<unsigned int> const& triangles) const;
    void SplitParentTriangles(TezMeshKDBranch const* branch, std::vector<unsigned int> const& triangles,
                              std::vector<unsigned int>& lower, std::vector<unsigned int>& upper) const;
    void BuildChild(TezMeshKDBranch* branch, std::vector<unsigned int>& triangles, int direction, bool split);
    void TriangleRange(unsigned int triangle, int axis, float& low, float& high) const;

    TezRef<TezIndexedMesh> m_mesh;
    std::unique_ptr<TezMeshKDBranch> m_root;
    int m_maxLeafTriangles = 100;
    int m_maxDepth = 30;
};

// Pairs (t, u), t < u, of triangles without a common vertex index that
// intersect, found by testing each triangle against the triangles in the
// leaves of its corners; pairs that meet only away from both triangles' corner
// leaves are missed. Each pair is entered once. Returns the number of pairs.
TEZ_API size_t TezFindSelfIntersections(TezRef<TezMeshKDTree> tree, std::multimap<unsigned int, unsigned int>& pairs);
// The two triangles of the map's first pair (one if they are equal); empty for
// an empty map.
TEZ_API TezRef<TezMeshIndexList> TezIndexListFromMap(std::multimap<unsigned int, unsigned int> const& pairs);
