// TezCompress against one zlib stream at level 1 on 256 MiB of CT-like data
// (a smooth phantom with noise, 8 and 16 bits per voxel, fixed seed). With
// TEZ_PEER_BENCH, libdeflate level 1, zstd level 1 (one and two workers),
// LZ4 and ISA-L's igzip level 1 join. All figures are wall-clock.
// TezCompress runs its parts in parallel, so it is measured on every thread
// of the machine (threads:2 here) and on one (threads:1): the single-threaded
// peers compare with the second. Every side compresses the whole buffer in
// memory into a buffer made before the timing. Counters: ratio = source /
// compressed; vs_zlib1 = compressed size over zlib level 1's.

#include "core/Compress.h"

#include "Phantom.h"

#include <benchmark/benchmark.h>
#include <zlib.h>

#if TEZ_PEER_BENCH
#    include <isa-l/igzip_lib.h>
#    include <libdeflate.h>
#    include <lz4.h>
#    include <zstd.h>
#endif

#include <tbb/global_control.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

constexpr size_t kBytes = size_t(256) << 20;

// The phantom of 8 or 16 bits, made once, slices split over two threads.
const std::vector<uint8_t>& Source(int bits)
{
    static std::map<int, std::vector<uint8_t>> cache;
    auto& v = cache[bits];
    if (v.empty()) {
        tezbench::PhantomShape shape;
        const size_t voxel = size_t(bits / 8), slice = size_t(shape.nx) * shape.ny * voxel;
        shape.nz = int(kBytes / slice);
        v.resize(slice * size_t(shape.nz));
        auto fill = [&](int first, int step) {
            for (int z = first; z < shape.nz; z += step) {
                if (bits == 8)
                    tezbench::FillPhantomSlice(v.data() + slice * size_t(z), z, shape, 20240611);
                else
                    tezbench::FillPhantomSlice(reinterpret_cast<uint16_t*>(v.data() + slice * size_t(z)), z, shape,
                                               20240611);
            }
        };
        std::thread other(fill, 1, 2);
        fill(0, 2);
        other.join();
    }
    return v;
}

std::vector<uint8_t> ZlibCompress(const std::vector<uint8_t>& src)
{
    std::vector<uint8_t> out(compressBound(uLong(src.size())));
    uLongf n = uLongf(out.size());
    if (compress2(out.data(), &n, src.data(), uLong(src.size()), 1) != Z_OK)
        throw std::runtime_error("zlib compress2 failed");
    out.resize(n);
    return out;
}

size_t Zlib1Size(int bits)
{
    static std::map<int, size_t> cache;
    auto& n = cache[bits];
    if (!n)
        n = ZlibCompress(Source(bits)).size();
    return n;
}

void Report(benchmark::State& state, size_t source, size_t compressed, int bits)
{
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(source));
    state.counters["ratio"] = double(source) / double(compressed);
    state.counters["vs_zlib1"] = double(compressed) / double(Zlib1Size(bits));
}

// TezCompress's worker count: the second argument, 0 for all threads.
size_t Threads(benchmark::State& state)
{
    const int threads = int(state.range(1));
    return threads > 0 ? size_t(threads) : size_t(std::max(1u, std::thread::hardware_concurrency()));
}

void BM_TezCompress_Compress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, Threads(state));
    const auto& src = Source(bits);
    std::vector<uint8_t> frame;
    frame.reserve(src.size() + 64);
    for (auto _ : state) {
        TezCompress::Compress(src.data(), src.size(), frame, 1);
        benchmark::DoNotOptimize(frame.data());
    }
    Report(state, src.size(), frame.size(), bits);
}

void BM_TezCompress_Uncompress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, Threads(state));
    const auto& src = Source(bits);
    std::vector<uint8_t> frame, out(src.size());
    TezCompress::Compress(src.data(), src.size(), frame, 1);
    for (auto _ : state) {
        TezCompress::Uncompress(frame, out.data(), out.size());
        benchmark::DoNotOptimize(out.data());
    }
    if (out != src)
        state.SkipWithError("round trip differs");
    Report(state, src.size(), frame.size(), bits);
}

void BM_Zlib1_Compress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    std::vector<uint8_t> out(compressBound(uLong(src.size())));
    uLongf n = 0;
    for (auto _ : state) {
        n = uLongf(out.size());
        compress2(out.data(), &n, src.data(), uLong(src.size()), 1);
        benchmark::DoNotOptimize(out.data());
    }
    Report(state, src.size(), n, bits);
}

void BM_Zlib1_Uncompress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    const auto z = ZlibCompress(src);
    std::vector<uint8_t> out(src.size());
    for (auto _ : state) {
        uLongf n = uLongf(out.size());
        uncompress(out.data(), &n, z.data(), uLong(z.size()));
        benchmark::DoNotOptimize(out.data());
    }
    if (out != src)
        state.SkipWithError("round trip differs");
    Report(state, src.size(), z.size(), bits);
}

#if TEZ_PEER_BENCH
void BM_Zstd1_Compress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    std::vector<uint8_t> out(ZSTD_compressBound(src.size()));
    size_t n = 0;
    for (auto _ : state) {
        n = ZSTD_compress(out.data(), out.size(), src.data(), src.size(), 1);
        benchmark::DoNotOptimize(out.data());
    }
    Report(state, src.size(), n, bits);
}

// zstd level 1 with two worker threads: the parallel peer of TezCompress.
void BM_Zstd1Workers2_Compress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    std::vector<uint8_t> out(ZSTD_compressBound(src.size()));
    ZSTD_CCtx* context = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, 1);
    if (ZSTD_isError(ZSTD_CCtx_setParameter(context, ZSTD_c_nbWorkers, 2))) {
        ZSTD_freeCCtx(context);
        state.SkipWithError("zstd built without threads");
        return;
    }
    size_t n = 0;
    for (auto _ : state) {
        n = ZSTD_compress2(context, out.data(), out.size(), src.data(), src.size());
        benchmark::DoNotOptimize(out.data());
    }
    ZSTD_freeCCtx(context);
    Report(state, src.size(), n, bits);
}

void BM_Zstd1_Uncompress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    std::vector<uint8_t> z(ZSTD_compressBound(src.size())), out(src.size());
    z.resize(ZSTD_compress(z.data(), z.size(), src.data(), src.size(), 1));
    for (auto _ : state) {
        ZSTD_decompress(out.data(), out.size(), z.data(), z.size());
        benchmark::DoNotOptimize(out.data());
    }
    if (out != src)
        state.SkipWithError("round trip differs");
    Report(state, src.size(), z.size(), bits);
}

void BM_LZ4_Compress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    std::vector<char> out(size_t(LZ4_compressBound(int(src.size()))));
    int n = 0;
    for (auto _ : state) {
        n = LZ4_compress_default(reinterpret_cast<const char*>(src.data()), out.data(), int(src.size()),
                                 int(out.size()));
        benchmark::DoNotOptimize(out.data());
    }
    Report(state, src.size(), size_t(n), bits);
}

void BM_LZ4_Uncompress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    std::vector<char> z(size_t(LZ4_compressBound(int(src.size()))));
    std::vector<uint8_t> out(src.size());
    z.resize(size_t(
        LZ4_compress_default(reinterpret_cast<const char*>(src.data()), z.data(), int(src.size()), int(z.size()))));
    for (auto _ : state) {
        LZ4_decompress_safe(z.data(), reinterpret_cast<char*>(out.data()), int(z.size()), int(out.size()));
        benchmark::DoNotOptimize(out.data());
    }
    if (out != src)
        state.SkipWithError("round trip differs");
    Report(state, src.size(), z.size(), bits);
}

// libdeflate level 1, one zlib stream in one call, one thread.
void BM_Libdeflate1_Compress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    libdeflate_compressor* compressor = libdeflate_alloc_compressor(1);
    std::vector<uint8_t> out(libdeflate_zlib_compress_bound(compressor, src.size()));
    size_t n = 0;
    for (auto _ : state) {
        n = libdeflate_zlib_compress(compressor, src.data(), src.size(), out.data(), out.size());
        benchmark::DoNotOptimize(out.data());
    }
    libdeflate_free_compressor(compressor);
    Report(state, src.size(), n, bits);
}

void BM_Libdeflate1_Uncompress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    libdeflate_compressor* compressor = libdeflate_alloc_compressor(1);
    std::vector<uint8_t> z(libdeflate_zlib_compress_bound(compressor, src.size())), out(src.size());
    z.resize(libdeflate_zlib_compress(compressor, src.data(), src.size(), z.data(), z.size()));
    libdeflate_free_compressor(compressor);
    libdeflate_decompressor* decompressor = libdeflate_alloc_decompressor();
    for (auto _ : state) {
        libdeflate_zlib_decompress(decompressor, z.data(), z.size(), out.data(), out.size(), nullptr);
        benchmark::DoNotOptimize(out.data());
    }
    libdeflate_free_decompressor(decompressor);
    if (out != src)
        state.SkipWithError("round trip differs");
    Report(state, src.size(), z.size(), bits);
}

// igzip, the engine we measured against libdeflate, as one zlib stream.
size_t IsalCompress(const std::vector<uint8_t>& src, std::vector<uint8_t>& out)
{
    std::vector<uint8_t> levelBuffer(ISAL_DEF_LVL1_DEFAULT);
    isal_zstream s;
    isal_deflate_init(&s);
    s.level = 1;
    s.level_buf = levelBuffer.data();
    s.level_buf_size = uint32_t(levelBuffer.size());
    s.gzip_flag = IGZIP_ZLIB;
    s.end_of_stream = 1;
    s.flush = NO_FLUSH;
    s.next_in = const_cast<uint8_t*>(src.data());
    s.avail_in = uint32_t(src.size());
    s.next_out = out.data();
    s.avail_out = uint32_t(out.size());
    if (isal_deflate(&s) != COMP_OK || s.internal_state.state != ZSTATE_END)
        throw std::runtime_error("isal_deflate failed");
    return s.total_out;
}

void BM_Isal1_Compress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    std::vector<uint8_t> out(src.size() + src.size() / 16 + 4096);
    size_t n = 0;
    for (auto _ : state) {
        n = IsalCompress(src, out);
        benchmark::DoNotOptimize(out.data());
    }
    Report(state, src.size(), n, bits);
}

void BM_Isal1_Uncompress(benchmark::State& state)
{
    const int bits = int(state.range(0));
    const auto& src = Source(bits);
    std::vector<uint8_t> z(src.size() + src.size() / 16 + 4096), out(src.size());
    z.resize(IsalCompress(src, z));
    for (auto _ : state) {
        inflate_state s;
        isal_inflate_init(&s);
        s.crc_flag = ISAL_ZLIB;
        s.next_in = z.data();
        s.avail_in = uint32_t(z.size());
        s.next_out = out.data();
        s.avail_out = uint32_t(out.size());
        isal_inflate(&s);
        benchmark::DoNotOptimize(out.data());
    }
    if (out != src)
        state.SkipWithError("round trip differs");
    Report(state, src.size(), z.size(), bits);
}
#endif

void Configure(benchmark::internal::Benchmark* b)
{
    b->Arg(8)->Arg(16)->ArgName("bits")->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
}

// Ours on all threads (0) and on one.
void ConfigureThreads(benchmark::internal::Benchmark* b)
{
    b->ArgsProduct({{8, 16}, {0, 1}})->ArgNames({"bits", "threads"})->Unit(benchmark::kMillisecond)->UseRealTime();
    b->MinTime(2.0);
}

} // namespace

BENCHMARK(BM_TezCompress_Compress)->Apply(ConfigureThreads);
BENCHMARK(BM_TezCompress_Uncompress)->Apply(ConfigureThreads);
BENCHMARK(BM_Zlib1_Compress)->Apply(Configure);
BENCHMARK(BM_Zlib1_Uncompress)->Apply(Configure);
#if TEZ_PEER_BENCH
BENCHMARK(BM_Zstd1_Compress)->Apply(Configure);
BENCHMARK(BM_Zstd1_Uncompress)->Apply(Configure);
BENCHMARK(BM_Zstd1Workers2_Compress)->Apply(Configure);
BENCHMARK(BM_Libdeflate1_Compress)->Apply(Configure);
BENCHMARK(BM_Libdeflate1_Uncompress)->Apply(Configure);
BENCHMARK(BM_LZ4_Compress)->Apply(Configure);
BENCHMARK(BM_LZ4_Uncompress)->Apply(Configure);
BENCHMARK(BM_Isal1_Compress)->Apply(Configure);
BENCHMARK(BM_Isal1_Uncompress)->Apply(Configure);
#endif
