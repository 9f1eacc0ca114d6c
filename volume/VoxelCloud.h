#pragma once
// TezVoxelCloud: a list of axis-aligned cubes of various sizes and states,
// each packed in one TezVector4<float>; TezPointCloud: a plain list of 3D
// points. Both are light, shared by reference and not locked.
//
// A voxel point's x, y, z are the cube's centre; w, read as the integer
// v = (int) w, packs v / 4, the cube's half edge in cells, and v % 4, its
// state: 0 empty, 1 full, 2 boundary (the octree's node states), 3 a fourth
// state. A w that is not a number from 0 to 2^31 reads as 0 (an empty cube
// of no size), so that no float reaches an undefined integer conversion.
// Each state has a visibility flag, which ComputeBounds obeys.
//
// Text files (".txt", any case) hold one point per line: "x y z w" for a
// voxel cloud, "x y z" for a point cloud. Lines of fewer than 4 characters
// are not counted; the cloud is sized to the count, then that many records
// are scanned, and the first record that does not scan ends the reading,
// leaving the remaining points at zero. A file that cannot be opened gives an
// empty cloud; another extension gives a null reference. Nothing is logged.

#include "core/RefCounter.h"
#include "core/String.h"
#include "math/Box.h"
#include "math/Matrix.h"
#include "math/Vector.h"

#include <cstdint>
#include <vector>

TEZ_DECLARE_REF_FUNCTIONS(TezVoxelCloud)
TEZ_DECLARE_REF_FUNCTIONS(TezPointCloud)
TEZ_DECLARE_REF_FUNCTIONS(TezVoxelOctree)

class TEZ_API TezVoxelCloud : public TezRefCounter
{
public:
    enum State { StateEmpty = 0, StateFull = 1, StateBoundary = 2, State3 = 3 };

    static TezRef<TezVoxelCloud> CreateEmpty(float cellSize = 1.0f);
    TezRef<TezVoxelCloud> Copy() const;
    static TezRef<TezVoxelCloud> ReadFromFile(TezString const& path);
    static TezRef<TezVoxelCloud> ReadFromTxtFile(TezString const& path);
    // The node states of the octree down to `maxDepth` (the root is depth 0),
    // one cube per node that has no children or stands at that depth, in the
    // octree's frame (the box from 0 to its dimensions). The cell is half the
    // edge of a node at maxDepth. Null for a null octree; a negative depth is
    // refused with std::runtime_error.
    static TezRef<TezVoxelCloud> CreateFromOctree(TezRef<TezVoxelOctree> octree, int maxDepth);

    // The w that packs a half edge of `size` cells and a state.
    static float Pack(uint32_t size, State state) { return float(size * 4u + uint32_t(state)); }
    static uint32_t PackedCode(float w);
    static uint32_t SizeOf(TezVector4<float> const& point) { return PackedCode(point.w) / 4u; }
    static State StateOf(TezVector4<float> const& point) { return State(PackedCode(point.w) % 4u); }

    void AddPoint(TezVector4<float> const& point) { m_points.push_back(point); }
    void SetPoint(size_t i, TezVector4<float> const& point) { m_points[i] = point; }
    TezVector4<float> const& GetPoint(size_t i) const { return m_points[i]; }
    size_t GetNumPoints() const { return m_points.size(); }
    void Resize(size_t count) { m_points.resize(count, TezVector4<float>(0, 0, 0, 0)); }
    std::vector<TezVector4<float>> const& GetPoints() const { return m_points; }

    float GetCellSize() const { return m_cellSize; }
    void SetCellSize(float size) { m_cellSize = size; }
    bool GetEmptyVisible() const { return m_emptyVisible; }
    void SetEmptyVisible(bool on) { m_emptyVisible = on; }
    bool GetFullVisible() const { return m_fullVisible; }
    void SetFullVisible(bool on) { m_fullVisible = on; }
    bool GetBoundaryVisible() const { return m_boundaryVisible; }
    void SetBoundaryVisible(bool on) { m_boundaryVisible = on; }
    bool GetState3Visible() const { return m_state3Visible; }
    void SetState3Visible(bool on) { m_state3Visible = on; }
    bool IsStateVisible(State state) const;

    // The box of the visible cubes, each grown by its half edge; empty when
    // none is visible. The second form sizes the cubes by another cell.
    TezBox3<float> ComputeBounds() const { return ComputeBounds(m_cellSize); }
    TezBox3<float> ComputeBounds(float cellSize) const;

    ~TezVoxelCloud() override = default;

protected:
    TezVoxelCloud() = default;

private:
    std::vector<TezVector4<float>> m_points;
    float m_cellSize = 1.0f;
    bool m_emptyVisible = true;
    bool m_fullVisible = true;
    bool m_boundaryVisible = true;
    bool m_state3Visible = true;
};

class TEZ_API TezPointCloud : public TezRefCounter
{
public:
    static TezRef<TezPointCloud> CreateEmpty();
    TezRef<TezPointCloud> Copy() const;
    static TezRef<TezPointCloud> ReadFromFile(TezString const& path);
    static TezRef<TezPointCloud> ReadFromTxtFile(TezString const& path);

    size_t GetNumPoints() const { return m_points.size(); }
    TezVector3<float> const& GetPoint(size_t i) const { return m_points[i]; }
    void SetPoint(size_t i, TezVector3<float> const& point) { m_points[i] = point; }
    void AddPoint(TezVector3<float> const& point) { m_points.push_back(point); }
    void Resize(size_t count) { m_points.resize(count, TezVector3<float>(0, 0, 0)); }
    std::vector<TezVector3<float>>& GetPoints() { return m_points; }
    std::vector<TezVector3<float>> const& GetPoints() const { return m_points; }

    TezBox3<float> ComputeBounds() const;
    // Each point becomes its image.
    void Transform(TezMatrix44<float> const& matrix);

    ~TezPointCloud() override = default;

protected:
    TezPointCloud() = default;

private:
    std::vector<TezVector3<float>> m_points;
};
