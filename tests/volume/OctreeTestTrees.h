#pragma once
// Small octrees built by hand for the kernel tests, and the camera and
// drawing helpers those tests share.

#include "volume/device/OctreeKernels.inl"
#include "volume/device/OctreeLaunch.h"
#include "volume/device/OctreeRender.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

namespace TezOctreeTestTrees {

using namespace TezOctreeDevice;

inline Node Uniform(uint32_t value) { return Node{0, value, 0}; }
inline Node WithBrick(uint32_t brick) { return Node{TezNodeFlagBit, TezNodeFlagBit | brick, 0}; }

// A tree under construction: node 0 is the root, its children at 1..8.
struct TestTree
{
    std::vector<Node> nodes{Node{1, 0, 0}};
    std::vector<uint16_t> bricks; // voxel values, kept wide; narrowed for 8 bits
    int maxDepth = 1;
    float voxelSize = 1.0f / 32.0f;
    std::vector<uint8_t> leaves8;
    std::vector<uint16_t> leaves16;

    TestTree() { nodes.resize(9, Uniform(0)); }

    uint32_t AddGroup()
    {
        const uint32_t first = static_cast<uint32_t>(nodes.size());
        nodes.resize(nodes.size() + 8, Uniform(0));
        return first;
    }
    uint32_t AddBrick(const std::function<uint16_t(int, int, int)>& value)
    {
        const uint32_t index = static_cast<uint32_t>(bricks.size() / TezBrickVoxels);
        for (int z = 0; z < 16; ++z)
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 16; ++x)
                    bricks.push_back(value(x, y, z));
        return index;
    }
    TezOctreeRenderSource Source(int bits, uint16_t scale16 = 257)
    {
        leaves8.assign(bricks.begin(), bricks.end());
        leaves16.clear();
        for (uint16_t v : bricks)
            leaves16.push_back(static_cast<uint16_t>(v * scale16));
        TezOctreeRenderSource s;
        s.bitsPerPixel = bits;
        s.voxelSize = voxelSize;
        s.maxDepth = maxDepth;
        s.treeSize = 16 << maxDepth;
        s.nodes = nodes.data();
        s.leaves = bits == 16 ? static_cast<const void*>(leaves16.data()) : leaves8.data();
        if (bricks.empty())
            s.leaves = &voxelSize; // never read
        s.nodeCount = static_cast<int32_t>(nodes.size());
        return s;
    }
};

// Opaque from bin 100 up; bin 60 sits exactly on the threshold.
inline std::vector<float> StepTable()
{
    std::vector<float> t(256, 0.0f);
    for (int i = 100; i < 256; ++i)
        t[i] = 1.0f;
    t[60] = 0.0001f;
    return t;
}

inline const TezVector3<float> Axes[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

// Looks along +z from z = -1 at the unit square: pixel (x, y) of a square
// image sees world (1 - (x + 0.5) / w, (y + 0.5) / h).
inline Camera OrthoCamera(int w, int h)
{
    const float fov = 2.0f * std::atan(0.5f) * 180.0f / 3.1415927f;
    return TezMakeOctreeCamera(false, {0.5f, 0.5f, -1.0f}, Axes, {0.5f, 0.5f, 0.0f}, 0.0f, 10.0f, fov, w, h);
}

inline TezMatrix44<float> Identity()
{
    return TezMatrix44<float>({1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1});
}

inline uint32_t OrthoDepth(float t) { return static_cast<uint32_t>(16777216.0 * (t / 10.0 * 0.5 + 0.5)); }

struct Picture
{
    std::vector<uint8_t> image;
    std::vector<uint32_t> depth;
    const uint8_t* Pixel(int x, int y, int w) const { return &image[(y * w + x) * 4]; }
};

inline Picture RenderSolid(TestTree& tree, int bits, int w, int h, const TezPlane<float>* plane = nullptr,
                           const TezMatrix44<float>& matrix = Identity(), const Camera* camera = nullptr)
{
    TezOctreeRenderBuffers buffers(w, h, 0, false);
    const std::vector<float> table = StepTable();
    const Camera cam = camera ? *camera : OrthoCamera(w, h);
    EXPECT_TRUE(TezRenderOctreeSolid(buffers.GetTarget(), tree.Source(bits), cam, matrix, {1, 0.5f, 0.25f, 1},
                                     table.data(), plane));
    return Picture{buffers.ReadImage(), buffers.ReadDepth()};
}

inline TestTree TwoLevelTree(const std::function<uint32_t(int, int, int)>& value)
{
    TestTree tree;
    tree.maxDepth = 2;
    tree.voxelSize = 1.0f / 64.0f;
    for (int c = 0; c < 8; ++c) {
        const uint32_t group = tree.AddGroup();
        tree.nodes[1 + c] = Node{group, 0, 0};
        for (int k = 0; k < 8; ++k) {
            const int ix = 2 * (c & 1) + (k & 1), iy = 2 * ((c >> 1) & 1) + ((k >> 1) & 1),
                      iz = 2 * (c >> 2) + (k >> 2);
            tree.nodes[group + k] = Uniform(value(ix, iy, iz));
        }
    }
    return tree;
}

} // namespace TezOctreeTestTrees
