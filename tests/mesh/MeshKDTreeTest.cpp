#include "mesh/MeshKDTree.h"
#include "mesh/MeshOctree.h"
#include "mesh/TriangleIntersection.h"

#include "TopologyTestShapes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <stdexcept>

using namespace topology_test;

namespace {

// An axis-aligned closed box from its two corners, wound outwards.
void AddBox(TezIndexedMesh& mesh, Vec const& lo, Vec const& hi)
{
    unsigned int const base = static_cast<unsigned int>(mesh.GetNumVertices());
    for (int k = 0; k < 8; ++k)
        mesh.AddVertex(TezMeshVertex(Vec(k & 1 ? hi.x : lo.x, k & 2 ? hi.y : lo.y, k & 4 ? hi.z : lo.z), Vec(0, 0, 1)));
    int const quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    for (auto const& q : quads) {
        AddTriangle(mesh, base + q[0], base + q[1], base + q[2]);
        AddTriangle(mesh, base + q[0], base + q[2], base + q[3]);
    }
}

std::set<unsigned int> CollectLeafTriangles(TezMeshKDNode const* node)
{
    std::set<unsigned int> out;
    if (node->GetType() == TezMeshKDNode::LeafNode) {
        auto const* leaf = static_cast<TezMeshKDLeaf const*>(node);
        for (size_t i = 0; i < leaf->GetNumTriangles(); ++i)
            out.insert(leaf->GetTriangleIndex(i));
        return out;
    }
    auto const* branch = static_cast<TezMeshKDBranch const*>(node);
    for (auto d : {TezMeshKDBranch::Lower, TezMeshKDBranch::Upper}) {
        std::set<unsigned int> const part = CollectLeafTriangles(branch->GetChild(d));
        out.insert(part.begin(), part.end());
    }
    return out;
}

} // namespace

TEST(MeshKDTree, SmallMeshIsOneBranchWithTwoLeaves)
{
    auto tree = TezMeshKDTree::Create(Sphere(6, 8));
    ASSERT_TRUE(tree->Build());
    int nodes, leaves, triangles, depth;
    tree->ComputeStatistics(nodes, leaves, triangles, depth);
    EXPECT_EQ(nodes, 3);
    EXPECT_EQ(leaves, 2);
    EXPECT_EQ(depth, 1);
    EXPECT_GE(triangles, 80);
    EXPECT_EQ(tree->GetRoot()->GetAxis(), TezMeshKDBranch::X);

    EXPECT_FALSE(TezMeshKDTree::Create(TezIndexedMesh::CreateEmpty())->Build());

    // A triangle with a corner at no finite place stays out of both trees.
    TezRef<TezIndexedMesh> odd = Sphere(6, 8);
    unsigned int const lost = odd->AddVertex(TezMeshVertex(Vec(std::nanf(""), 0, 0), Vec(0, 0, 1)));
    AddTriangle(*odd, 0, 1, lost);
    auto oddTree = TezMeshKDTree::Create(odd);
    ASSERT_TRUE(oddTree->Build());
    EXPECT_EQ(CollectLeafTriangles(oddTree->GetRoot()).count(static_cast<unsigned int>(odd->GetNumTriangles() - 1)),
              0u);
    auto oddOctree = TezMeshOctree::Create(odd);
    ASSERT_TRUE(oddOctree->Build());
    oddOctree->ComputeStatistics(nodes, leaves, triangles, depth);
    EXPECT_GT(triangles, 0);
}

TEST(MeshKDTree, FlatTriangleInTheDividingPlaneDropsOut)
{
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateEmpty();
    auto add = [&](float x0, float x1) {
        unsigned int const a = mesh->AddVertex(TezMeshVertex(Vec(x0, 0, 0), Vec(0, 0, 1)));
        unsigned int const b = mesh->AddVertex(TezMeshVertex(Vec(x1, 0, 0), Vec(0, 0, 1)));
        unsigned int const c = mesh->AddVertex(TezMeshVertex(Vec(x0, 1, 0), Vec(0, 0, 1)));
        AddTriangle(*mesh, a, b, c);
    };
    add(-2, -1);
    add(-2, -1);
    add(1, 2);
    add(1, 2);
    // Flat in x = 0, the median of this set.
    unsigned int const a = mesh->AddVertex(TezMeshVertex(Vec(0, 0, 0), Vec(1, 0, 0)));
    unsigned int const b = mesh->AddVertex(TezMeshVertex(Vec(0, 1, 0), Vec(1, 0, 0)));
    unsigned int const c = mesh->AddVertex(TezMeshVertex(Vec(0, 0, 1), Vec(1, 0, 0)));
    AddTriangle(*mesh, a, b, c);

    auto tree = TezMeshKDTree::Create(mesh);
    ASSERT_TRUE(tree->Build());
    EXPECT_FLOAT_EQ(tree->GetRoot()->GetValue(), 0.0f);
    EXPECT_EQ(CollectLeafTriangles(tree->GetRoot()), (std::set<unsigned int>{0, 1, 2, 3}));
    // On the dividing value a point goes up.
    EXPECT_EQ(tree->FindContainingLeaf(Vec(0, 0.5f, 0)), tree->GetRoot()->GetChild(TezMeshKDBranch::Upper));
    EXPECT_EQ(tree->FindContainingLeaf(Vec(-1e-3f, 0.5f, 0)), tree->GetRoot()->GetChild(TezMeshKDBranch::Lower));
}

TEST(MeshKDTree, LargeMeshSplitsIntoSmallLeavesCoveringAllTriangles)
{
    TezRef<TezIndexedMesh> mesh = Sphere(40, 60);
    auto tree = TezMeshKDTree::Create(mesh);
    tree->SetMaxLeafTriangles(50);
    ASSERT_TRUE(tree->Build());
    EXPECT_EQ(CollectLeafTriangles(tree->GetRoot()).size(), mesh->GetNumTriangles());
    int nodes, leaves, triangles, depth;
    tree->ComputeStatistics(nodes, leaves, triangles, depth);
    EXPECT_EQ(nodes, 2 * leaves - 1);
    EXPECT_GT(depth, 3);
    EXPECT_LE(depth, tree->GetMaxDepth());
    // Every vertex falls in a leaf whose cell holds it.
    for (size_t v = 0; v < mesh->GetNumVertices(); v += 7) {
        TezMeshKDLeaf* leaf = tree->FindContainingLeaf(mesh->GetVertex(v).position);
        ASSERT_TRUE(leaf);
        EXPECT_TRUE(leaf->GetBounds().Contains(mesh->GetVertex(v).position));
        EXPECT_LT(leaf->GetNumTriangles(), 50u + 50u);
    }
}

TEST(MeshOctree, SplitsAtTheCentreWithTouchingTrianglesOnBothSides)
{
    TezRef<TezIndexedMesh> mesh = Sphere(40, 60);
    auto tree = TezMeshOctree::Create(mesh);
    ASSERT_TRUE(tree->Build());
    int nodes, leaves, triangles, depth;
    tree->ComputeStatistics(nodes, leaves, triangles, depth);
    EXPECT_EQ(nodes - leaves, (leaves - 1) / 7);
    EXPECT_GE(triangles, static_cast<int>(mesh->GetNumTriangles()));
    EXPECT_LE(depth, 15);
    for (size_t v = 0; v < mesh->GetNumVertices(); v += 5) {
        TezMeshOctreeLeaf* leaf = tree->FindContainingLeaf(mesh->GetVertex(v).position);
        ASSERT_TRUE(leaf);
        EXPECT_TRUE(leaf->GetBounds().Contains(mesh->GetVertex(v).position));
    }

    // A triangle touching the centre's x plane goes to both x sides.
    TezRef<TezIndexedMesh> few = TezIndexedMesh::CreateEmpty();
    Vec const corners[9] = {Vec(-1, -1, -1),    Vec(-0.9f, -1, -1),    Vec(-1, -0.9f, -1),
                            Vec(1, 1, 1),       Vec(0.9f, 1, 1),       Vec(1, 0.9f, 1),
                            Vec(0, 0.5f, 0.5f), Vec(0.5f, 0.5f, 0.5f), Vec(0.5f, 0.6f, 0.5f)};
    for (Vec const& p : corners)
        few->AddVertex(TezMeshVertex(p, Vec(0, 0, 1)));
    for (unsigned int t = 0; t < 3; ++t)
        AddTriangle(*few, 3 * t, 3 * t + 1, 3 * t + 2);
    auto small = TezMeshOctree::Create(few);
    ASSERT_TRUE(small->Build());
    EXPECT_EQ(small->GetRoot()->GetCentre(), Vec(0, 0, 0));
    auto leafOf = [&](int octant) {
        TezMeshOctreeNode* child = small->GetRoot()->GetChild(octant);
        EXPECT_EQ(child->GetType(), TezMeshOctreeNode::LeafNode);
        auto* leaf = static_cast<TezMeshOctreeLeaf*>(child);
        std::set<unsigned int> out;
        for (size_t i = 0; i < leaf->GetNumTriangles(); ++i)
            out.insert(leaf->GetTriangleIndex(i));
        return out;
    };
    EXPECT_EQ(leafOf(0), (std::set<unsigned int>{0}));
    EXPECT_EQ(leafOf(6), (std::set<unsigned int>{2}));
    EXPECT_EQ(leafOf(7), (std::set<unsigned int>{1, 2}));
    EXPECT_EQ(leafOf(1), (std::set<unsigned int>{}));
    // A point on the centre goes to the upper octant.
    EXPECT_EQ(small->FindContainingLeaf(Vec(0, 0, 0)), small->GetRoot()->GetChild(7));
}

TEST(TriangleIntersection, MollerTestCases)
{
    Vec const a[3] = {Vec(0, 0, 0), Vec(2, 0, 0), Vec(0, 2, 0)};
    // Piercing a's interior.
    Vec const b[3] = {Vec(0.5f, 0.5f, -1), Vec(0.5f, 0.5f, 1), Vec(1.5f, -1.0f, 0)};
    EXPECT_TRUE(TezTrianglesIntersect(a, b));
    // Beside a, crossing its plane.
    Vec const c[3] = {Vec(3, 3, -1), Vec(3, 3, 1), Vec(4, 2, 0)};
    EXPECT_FALSE(TezTrianglesIntersect(a, c));
    // Wholly above.
    Vec const d[3] = {Vec(0, 0, 1), Vec(1, 0, 2), Vec(0, 1, 1)};
    EXPECT_FALSE(TezTrianglesIntersect(a, d));
    // Coplanar: overlapping, edge-crossing, and apart.
    Vec const e[3] = {Vec(0.2f, 0.2f, 0), Vec(0.6f, 0.2f, 0), Vec(0.2f, 0.6f, 0)};
    Vec const f[3] = {Vec(1, -1, 0), Vec(1, 3, 0), Vec(3, 1, 0)};
    Vec const g[3] = {Vec(5, 5, 0), Vec(6, 5, 0), Vec(5, 6, 0)};
    EXPECT_TRUE(TezTrianglesIntersect(a, e));
    EXPECT_TRUE(TezTrianglesIntersect(e, a));
    EXPECT_TRUE(TezTrianglesIntersect(a, f));
    EXPECT_FALSE(TezTrianglesIntersect(a, g));

    // The long form: b meets a along x + y... from its edge 0 down to a's hypotenuse.
    Vec const h[3] = {Vec(0.5f, 0.5f, -1), Vec(0.5f, 0.5f, 1), Vec(3.5f, 0.5f, 0)};
    bool coplanar = true;
    TezTriangleSegmentEnd start{}, end{};
    ASSERT_TRUE(TezTrianglesIntersect(a, h, coplanar, start, end));
    EXPECT_FALSE(coplanar);
    EXPECT_EQ(start.point, Vec(0.5f, 0.5f, 0));
    EXPECT_EQ(start.triangle, 1);
    EXPECT_EQ(start.edge, 0);
    EXPECT_EQ(end.point, Vec(1.5f, 0.5f, 0));
    EXPECT_EQ(end.triangle, 0);
    EXPECT_EQ(end.edge, 1);
    EXPECT_TRUE(TezTrianglesIntersect(a, e, coplanar, start, end));
    EXPECT_TRUE(coplanar);
    EXPECT_EQ(start.triangle, -1);
}

TEST(MeshSelfIntersections, CrossingBoxesButNotASphere)
{
    TezRef<TezIndexedMesh> boxes = TezIndexedMesh::CreateEmpty();
    AddBox(*boxes, Vec(0, 0, 0), Vec(2, 2, 2));
    AddBox(*boxes, Vec(1, 0.5f, 0.5f), Vec(3, 1.5f, 1.5f));
    auto tree = TezMeshKDTree::Create(boxes);
    ASSERT_TRUE(tree->Build());
    std::multimap<unsigned int, unsigned int> pairs;
    EXPECT_GT(boxes->FindSelfIntersections(tree, pairs), 0u);
    std::set<std::pair<unsigned int, unsigned int>> unique;
    for (auto const& [t, u] : pairs) {
        EXPECT_LT(t, 12u); // first box
        EXPECT_GE(u, 12u); // second box
        EXPECT_TRUE(unique.emplace(t, u).second);
    }
    TezRef<TezMeshIndexList> first = TezIndexedMesh::IndexListFromMap(pairs);
    ASSERT_EQ(first->GetNumIndices(), 2u);
    EXPECT_EQ(first->Value(0), pairs.begin()->first);
    EXPECT_EQ(first->Value(1), pairs.begin()->second);

    // Every pair reported intersects by the triangle test, in either order.
    for (auto const& [t, u] : pairs)
        EXPECT_TRUE(TezMeshTriangle::Intersect(boxes->GetTriangle(u), boxes->GetTriangle(t)));

    auto sphere = TezMeshKDTree::Create(Sphere(30, 40));
    ASSERT_TRUE(sphere->Build());
    EXPECT_THROW(boxes->FindSelfIntersections(sphere, pairs), std::runtime_error) << "a tree over another mesh";
    EXPECT_EQ(TezFindSelfIntersections(sphere, pairs), 0u);
    EXPECT_EQ(TezIndexListFromMap(pairs)->GetNumIndices(), 0u);

    // Two triangles folded through each other but sharing an edge are skipped.
    TezRef<TezIndexedMesh> fold = TezIndexedMesh::CreateEmpty();
    for (Vec const& p : {Vec(0, 0, 0), Vec(1, 0, 0), Vec(0.5f, 1, 0), Vec(0.5f, 0.5f, 0)})
        fold->AddVertex(TezMeshVertex(p, Vec(0, 0, 1)));
    AddTriangle(*fold, 0, 1, 2);
    AddTriangle(*fold, 1, 0, 3);
    auto foldTree = TezMeshKDTree::Create(fold);
    ASSERT_TRUE(foldTree->Build());
    EXPECT_EQ(TezFindSelfIntersections(foldTree, pairs), 0u);

    // The same overlap without a shared index is reported.
    fold->AddVertex(TezMeshVertex(Vec(1, 0, 0), Vec(0, 0, 1)));
    fold->AddVertex(TezMeshVertex(Vec(0, 0, 0), Vec(0, 0, 1)));
    fold->GetIndices() = {0, 1, 2, 4, 5, 3};
    ASSERT_TRUE(foldTree->Build());
    EXPECT_EQ(TezFindSelfIntersections(foldTree, pairs), 1u);
    EXPECT_EQ(pairs.begin()->first, 0u);
    EXPECT_EQ(pairs.begin()->second, 1u);
}
