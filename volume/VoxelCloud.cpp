#include "volume/VoxelCloud.h"

#include "volume/VoxelOctree.h"
#include "volume/VoxelOctreeNode.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

TEZ_DEFINE_REF_FUNCTIONS(TezVoxelCloud)
TEZ_DEFINE_REF_FUNCTIONS(TezPointCloud)

namespace {

bool EndsWithTxt(TezString const& path)
{
    size_t const length = path.Length();
    if (length < 4)
        return false;
    return TezString(path.c_str() + length - 4).CompareNoCase(TezString(".txt")) == 0;
}

// Lines of at least 4 characters before their line feed; a last line
// without one counts by the same rule.
size_t CountRecordLines(FILE* file)
{
    size_t count = 0;
    size_t length = 0;
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) {
        if (c == '\n') {
            if (length >= 4)
                ++count;
            length = 0;
        } else {
            ++length;
        }
    }
    if (length >= 4)
        ++count;
    return count;
}

struct File
{
    explicit File(TezString const& path) : handle(std::fopen(path.c_str(), "rb")) {}
    ~File()
    {
        if (handle)
            std::fclose(handle);
    }
    File(File const&) = delete;
    File& operator=(File const&) = delete;
    FILE* handle;
};

} // namespace

// ---- TezVoxelCloud ----

TezRef<TezVoxelCloud> TezVoxelCloud::CreateEmpty(float cellSize)
{
    TezRef<TezVoxelCloud> cloud(new TezVoxelCloud());
    cloud->m_cellSize = cellSize;
    return cloud;
}

TezRef<TezVoxelCloud> TezVoxelCloud::Copy() const { return TezRef<TezVoxelCloud>(new TezVoxelCloud(*this)); }

uint32_t TezVoxelCloud::PackedCode(float w)
{
    // The comparison is false for NaN as well.
    if (!(w >= 0.0f && w < 2147483648.0f))
        return 0;
    return static_cast<uint32_t>(static_cast<int32_t>(w));
}

bool TezVoxelCloud::IsStateVisible(State state) const
{
    switch (state) {
    case StateEmpty:
        return m_emptyVisible;
    case StateFull:
        return m_fullVisible;
    case StateBoundary:
        return m_boundaryVisible;
    default:
        return m_state3Visible;
    }
}

TezRef<TezVoxelCloud> TezVoxelCloud::ReadFromFile(TezString const& path)
{
    return EndsWithTxt(path) ? ReadFromTxtFile(path) : nullptr;
}

TezRef<TezVoxelCloud> TezVoxelCloud::ReadFromTxtFile(TezString const& path)
{
    TezRef<TezVoxelCloud> cloud = CreateEmpty();
    File file(path);
    if (!file.handle)
        return cloud;
    size_t const count = CountRecordLines(file.handle);
    std::rewind(file.handle);
    cloud->Resize(count);
    for (TezVector4<float>& p : cloud->m_points)
        if (std::fscanf(file.handle, "%f %f %f %f\n", &p.x, &p.y, &p.z, &p.w) != 4)
            break;
    return cloud;
}

TezRef<TezVoxelCloud> TezVoxelCloud::CreateFromOctree(TezRef<TezVoxelOctree> octree, int maxDepth)
{
    if (maxDepth < 0)
        throw std::runtime_error("TezVoxelCloud::CreateFromOctree: negative depth " + std::to_string(maxDepth));
    if (!octree)
        return nullptr;
    // Deeper than 30 levels a node's size in cells no longer fits the packing.
    maxDepth = std::min(maxDepth, 30);
    float const rootEdge = float(octree->GetTreeSize()) * octree->GetVoxelSize();
    TezRef<TezVoxelCloud> cloud = CreateEmpty(rootEdge / float(1u << maxDepth) * 0.5f);
    TezVoxelOctreeNodePool& pool = octree->GetNodePool();
    uint64_t const numNodes = pool.GetNumElements();
    if (numNodes == 0 || rootEdge <= 0.0f)
        return cloud;
    if (pool.IsCompressed())
        pool.Uncompress();

    struct Item
    {
        uint32_t node;
        int depth;
        TezVector3<float> low;
    };
    std::vector<Item> stack{{0u, 0, TezVector3<float>(0, 0, 0)}};
    // A tree meets each node once; a damaged one that shares children is
    // walked no more often than it has nodes.
    std::vector<bool> visited(numNodes, false);
    while (!stack.empty()) {
        Item const item = stack.back();
        stack.pop_back();
        if (visited[item.node])
            continue;
        visited[item.node] = true;
        TezVoxelOctreeNode const& node = *pool.ElementAt(item.node);
        float const edge = rootEdge / float(1u << item.depth);
        uint32_t const first = TezNodeFirstChild(node);
        // A child index past the pool, or one that does not lead deeper in
        // the array, ends the descent there: no loop can follow.
        bool const descend =
            item.depth < maxDepth && TezNodeHasChildren(node) && first > item.node && uint64_t(first) + 8 <= numNodes;
        if (!descend) {
            float const half = edge * 0.5f;
            uint32_t const size = 1u << (maxDepth - item.depth);
            cloud->AddPoint(TezVector4<float>(item.low.x + half, item.low.y + half, item.low.z + half,
                                              Pack(size, State(node.state & 3u))));
            continue;
        }
        float const h = edge * 0.5f;
        for (int z = 0; z < 2; ++z)
            for (int y = 0; y < 2; ++y)
                for (int x = 0; x < 2; ++x)
                    stack.push_back({TezNodeChildIndex(first, x, y, z), item.depth + 1,
                                     TezVector3<float>(item.low.x + x * h, item.low.y + y * h, item.low.z + z * h)});
    }
    return cloud;
}

TezBox3<float> TezVoxelCloud::ComputeBounds(float cellSize) const
{
    TezBox3<float> box;
    for (TezVector4<float> const& p : m_points) {
        uint32_t const code = PackedCode(p.w);
        if (!IsStateVisible(State(code % 4u)))
            continue;
        float const h = float(code / 4u) * cellSize;
        box += TezVector3<float>(p.x - h, p.y - h, p.z - h);
        box += TezVector3<float>(p.x + h, p.y + h, p.z + h);
    }
    return box;
}

// ---- TezPointCloud ----

TezRef<TezPointCloud> TezPointCloud::CreateEmpty() { return TezRef<TezPointCloud>(new TezPointCloud()); }

TezRef<TezPointCloud> TezPointCloud::Copy() const { return TezRef<TezPointCloud>(new TezPointCloud(*this)); }

TezRef<TezPointCloud> TezPointCloud::ReadFromFile(TezString const& path)
{
    return EndsWithTxt(path) ? ReadFromTxtFile(path) : nullptr;
}

TezRef<TezPointCloud> TezPointCloud::ReadFromTxtFile(TezString const& path)
{
    TezRef<TezPointCloud> cloud = CreateEmpty();
    File file(path);
    if (!file.handle)
        return cloud;
    size_t const count = CountRecordLines(file.handle);
    std::rewind(file.handle);
    cloud->Resize(count);
    for (TezVector3<float>& p : cloud->m_points)
        if (std::fscanf(file.handle, "%f %f %f\n", &p.x, &p.y, &p.z) != 3)
            break;
    return cloud;
}

TezBox3<float> TezPointCloud::ComputeBounds() const
{
    TezBox3<float> box;
    for (TezVector3<float> const& p : m_points)
        box += p;
    return box;
}

void TezPointCloud::Transform(TezMatrix44<float> const& matrix)
{
    for (TezVector3<float>& p : m_points)
        p = matrix * p;
}
