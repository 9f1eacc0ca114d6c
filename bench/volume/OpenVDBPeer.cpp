#include "OpenVDBPeer.h"

#include <openvdb/math/DDA.h>
#include <openvdb/openvdb.h>
#include <openvdb/tools/Dense.h>
#include <openvdb/tools/RayIntersector.h>
#include <tbb/blocked_range.h>
#include <tbb/combinable.h>
#include <tbb/parallel_for.h>

namespace tezpeer {
namespace {
template <typename Voxel>
using GridOf = openvdb::Grid<typename openvdb::tree::Tree4<Voxel, 5, 4, 3>::Type>;

// Voxels of value tolerance or less are left out of the grid (background 0).
template <typename Voxel>
typename GridOf<Voxel>::Ptr Convert(Voxel const* voxels, int edge, Voxel tolerance)
{
    openvdb::initialize();
    openvdb::CoordBBox const box(openvdb::Coord(0, 0, 0), openvdb::Coord(edge - 1, edge - 1, edge - 1));
    openvdb::tools::Dense<Voxel, openvdb::tools::LayoutXYZ> dense(box, const_cast<Voxel*>(voxels));
    auto grid = GridOf<Voxel>::create(Voxel(0));
    openvdb::tools::copyFromDense(dense, *grid, tolerance);
    return grid;
}
} // namespace

uint64_t OpenVDBCopyFromDense(void const* voxels, int edge, int bytesPerVoxel, uint64_t* bytes)
{
    if (bytesPerVoxel == 1) {
        auto grid = Convert(static_cast<uint8_t const*>(voxels), edge, uint8_t(0));
        if (bytes)
            *bytes = grid->memUsage();
        return grid->activeVoxelCount();
    }
    auto grid = Convert(static_cast<uint16_t const*>(voxels), edge, uint16_t(0));
    if (bytes)
        *bytes = grid->memUsage();
    return grid->activeVoxelCount();
}

struct OpenVDBRayScene::Grid
{
    using GridT = GridOf<uint8_t>;
    using Intersector = openvdb::tools::VolumeRayIntersector<GridT>;
    GridT::Ptr grid;
    std::unique_ptr<Intersector> prototype;
};

OpenVDBRayScene::OpenVDBRayScene(uint8_t const* voxels, int edge, int threshold) : m_grid(new Grid)
{
    // copyFromDense drops values within the tolerance of the background:
    // 0 .. threshold - 1 go, threshold and above stay active.
    m_grid->grid = Convert(voxels, edge, uint8_t(threshold - 1));
    m_grid->prototype.reset(new Grid::Intersector(*m_grid->grid));
}
OpenVDBRayScene::~OpenVDBRayScene() = default;

uint64_t OpenVDBRayScene::ActiveVoxels() const { return m_grid->grid->activeVoxelCount(); }
uint64_t OpenVDBRayScene::MemoryBytes() const { return m_grid->grid->memUsage(); }

uint64_t OpenVDBRayScene::FirstHits(float const* rays, int count, float* distances) const
{
    using RayT = openvdb::math::Ray<double>;
    Grid::GridT const& grid = *m_grid->grid;
    tbb::combinable<uint64_t> hits([] { return uint64_t(0); });
    tbb::parallel_for(tbb::blocked_range<int>(0, count, 4096), [&](tbb::blocked_range<int> const& range) {
        Grid::Intersector intersector(*m_grid->prototype);
        auto accessor = grid.getConstAccessor();
        uint64_t found = 0;
        for (int i = range.begin(); i < range.end(); ++i) {
            float const* r = rays + size_t(i) * 6;
            distances[i] = 0.0f;
            // Voxel i spans [i, i + 1) in the rays' space and is centred on i in the grid.
            RayT const ray(openvdb::Vec3d(r[0] - 0.5, r[1] - 0.5, r[2] - 0.5), openvdb::Vec3d(r[3], r[4], r[5]));
            if (!intersector.setIndexRay(ray))
                continue;
            double t0 = 0, t1 = 0;
            bool hit = false;
            while (!hit && intersector.march(t0, t1)) {
                RayT span = ray;
                span.setTimes(t0, t1);
                openvdb::math::DDA<RayT, 0> dda(span);
                do {
                    hit = accessor.isValueOn(dda.voxel());
                    if (hit)
                        distances[i] = float(dda.time());
                } while (!hit && dda.step());
            }
            found += hit;
        }
        hits.local() += found;
    });
    return hits.combine([](uint64_t a, uint64_t b) { return a + b; });
}

} // namespace tezpeer
