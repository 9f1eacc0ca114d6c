// The archive's cost over plain compression: one 256 MiB CT-like volume
// written and read as a single entry through a file, against compressing it
// with TezCompress and writing the frame with fwrite.

#include "core/Archive.h"
#include "core/Compress.h"

#include "../volume/Phantom.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

namespace {

std::vector<uint8_t> const& Volume()
{
    static std::vector<uint8_t> const volume = tezbench::MakePhantom<uint8_t>(size_t(256) << 20);
    return volume;
}

std::string const& FilePath()
{
    static std::string const path = [] {
        char const* dir = std::getenv("TMPDIR");
        return std::string(dir && *dir ? dir : "/tmp") + "/tez_bench_archive.mvne";
    }();
    return path;
}

// The baseline a caller would write by hand: a fresh frame, then one fwrite.
void BM_Archive_CompressAndFwrite(benchmark::State& state)
{
    auto const& volume = Volume();
    for (auto _ : state) {
        std::vector<uint8_t> frame;
        TezCompress::Compress(volume.data(), volume.size(), frame, 1);
        FILE* file = std::fopen(FilePath().c_str(), "wb");
        std::fwrite(frame.data(), 1, frame.size(), file);
        std::fclose(file);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(volume.size()));
}

void BM_Archive_Write(benchmark::State& state)
{
    auto const& volume = Volume();
    for (auto _ : state) {
        TezRef<TezArchive> archive = TezArchive::Open(FilePath().c_str(), TezArchive::Write);
        archive->SetCompressLevel(1);
        archive->WriteBinary("volume", volume.data(), volume.size());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(volume.size()));
}

void BM_Archive_Read(benchmark::State& state)
{
    auto const& volume = Volume();
    {
        TezRef<TezArchive> archive = TezArchive::Open(FilePath().c_str(), TezArchive::Write);
        archive->SetCompressLevel(1);
        archive->WriteBinary("volume", volume.data(), volume.size());
    }
    std::vector<uint8_t> back(volume.size());
    for (auto _ : state) {
        TezRef<TezArchive> archive = TezArchive::Open(FilePath().c_str(), TezArchive::Read);
        archive->ReadBinary(back.data(), back.size());
    }
    if (back != volume)
        state.SkipWithError("round trip differs");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(volume.size()));
    std::remove(FilePath().c_str());
}

void Configure(benchmark::internal::Benchmark* b) { b->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(4.0); }

} // namespace

BENCHMARK(BM_Archive_CompressAndFwrite)->Apply(Configure);
BENCHMARK(BM_Archive_Write)->Apply(Configure);
BENCHMARK(BM_Archive_Read)->Apply(Configure);
