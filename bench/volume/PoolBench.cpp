// Packed pool on the 512^3 8-bit CT-like phantom cut into 16^3 bricks (32,768
// blocks of 4 KiB), with the brick's rows (16 bytes), slices (256 bytes) or
// the whole brick (4096 bytes) as the packing chunk. PackAll, UnpackSelected
// (the whole pool) and Compress are each timed alone; MB/s counts raw brick
// bytes. Counters: packed_ratio and compressed_ratio are raw size over packed
// and compressed size.

#include "volume/PackedPool.h"

#include "Phantom.h"

#include <benchmark/benchmark.h>
#include <tbb/parallel_for.h>

#include <vector>

namespace {

constexpr int kEdge = 512;
constexpr int kBrick = 16;
constexpr int kBricksPerEdge = kEdge / kBrick;
constexpr size_t kBrickBytes = size_t(kBrick) * kBrick * kBrick;
constexpr size_t kBrickCount = size_t(kBricksPerEdge) * kBricksPerEdge * kBricksPerEdge;

// The phantom, made once, already in brick order: brick (bx, by, bz) is
// block bx + 32 * (by + 32 * bz), voxel (x, y, z) at (z * 16 + y) * 16 + x.
std::vector<uint8_t> const& Bricks()
{
    static std::vector<uint8_t> bricks;
    if (!bricks.empty())
        return bricks;
    bricks.resize(kBrickCount * kBrickBytes);
    tezbench::PhantomShape shape;
    shape.nx = shape.ny = shape.nz = kEdge;
    tbb::parallel_for(0, kEdge, [&](int z) {
        std::vector<uint8_t> slice(size_t(kEdge) * kEdge);
        tezbench::FillPhantomSlice(slice.data(), z, shape, 20240611);
        for (int y = 0; y < kEdge; ++y)
            for (int x = 0; x < kEdge; ++x) {
                size_t brick =
                    size_t(x / kBrick) + kBricksPerEdge * (size_t(y / kBrick) + kBricksPerEdge * (z / kBrick));
                size_t voxel = (size_t(z % kBrick) * kBrick + y % kBrick) * kBrick + x % kBrick;
                bricks[brick * kBrickBytes + voxel] = slice[size_t(y) * kEdge + x];
            }
    });
    return bricks;
}

void Refill(TezPackedPool& pool)
{
    std::vector<uint8_t> const& bricks = Bricks();
    tbb::parallel_for(size_t(0), kBrickCount,
                      [&](size_t i) { pool.RetrieveBlock(i)->SetRaw(bricks.data() + i * kBrickBytes); });
}

std::unique_ptr<TezPackedPool> MakePool(int chunkSize)
{
    int const numChunks = int(kBrickBytes) / chunkSize;
    auto pool = TezPackedPool::Create(numChunks, chunkSize);
    pool->Resize(kBrickCount, false);
    Refill(*pool);
    return pool;
}

uint64_t PackedBytes(TezPackedPool& pool)
{
    uint64_t total = 0;
    for (uint64_t i = 0; i < pool.GetCount(); ++i)
        total += pool.RetrieveBlock(i)->GetPackedSizeBytes();
    return total;
}

void BM_PoolPackAll(benchmark::State& state)
{
    auto pool = MakePool(int(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        Refill(*pool);
        state.ResumeTiming();
        pool->PackAll();
    }
    double const raw = double(kBrickCount * kBrickBytes);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(raw));
    state.counters["packed_ratio"] = raw / double(PackedBytes(*pool));
    state.counters["packed_MiB"] = double(PackedBytes(*pool)) / 1048576.0;
}

void BM_PoolCompress(benchmark::State& state)
{
    auto pool = MakePool(int(state.range(0)));
    pool->PackAll();
    for (auto _ : state) {
        state.PauseTiming();
        pool->Uncompress(); // packed blocks again, as before the first run
        state.ResumeTiming();
        pool->Compress();
    }
    double const raw = double(kBrickCount * kBrickBytes);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(raw));
    state.counters["compressed_ratio"] = raw / double(pool->GetCompressedSize());
    state.counters["compressed_MiB"] = double(pool->GetCompressedSize()) / 1048576.0;
    state.counters["packed_ratio"] = raw / double(pool->GetPackedSize());
}

void BM_PoolUnpack(benchmark::State& state)
{
    auto pool = MakePool(int(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        pool->PackAll();
        state.ResumeTiming();
        pool->UnpackSelected(0, pool->GetCount());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBrickCount * kBrickBytes));
}

} // namespace

BENCHMARK(BM_PoolPackAll)->Arg(16)->Arg(256)->Arg(4096)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PoolUnpack)->Arg(16)->Arg(256)->Arg(4096)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PoolCompress)->Arg(16)->Arg(256)->Arg(4096)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
