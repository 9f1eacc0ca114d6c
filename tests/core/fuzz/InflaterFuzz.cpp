// libFuzzer target: the streaming inflater against zlib. Every stream zlib
// expands in full must expand to the same bytes with ours, fed and drained
// in the pieces the first byte chooses; anything else must end in a clean
// std::runtime_error or a stop for want of input.
// fuzz-subsystems: platform core
// fuzz-libs: -lz

#include "core/CompressInflater.h"

#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr size_t kOutputCap = size_t(1) << 20;

bool ZlibInflate(const uint8_t* data, size_t size, std::vector<uint8_t>& out)
{
    static std::vector<uint8_t> buffer(kOutputCap);
    z_stream zs{};
    if (inflateInit(&zs) != Z_OK)
        return false;
    zs.next_in = const_cast<uint8_t*>(data);
    zs.avail_in = uInt(size);
    zs.next_out = buffer.data();
    zs.avail_out = uInt(buffer.size());
    const int r = inflate(&zs, Z_FINISH);
    out.assign(buffer.begin(), buffer.begin() + long(zs.total_out));
    inflateEnd(&zs);
    return r == Z_STREAM_END;
}

} // namespace

// Seeds: zlib streams of stored, fixed and dynamic blocks, each behind a
// piece-size byte, when TEZ_FUZZ_SEED_DIR names a folder.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    const char* dir = std::getenv("TEZ_FUZZ_SEED_DIR");
    if (!dir || !*dir)
        return 0;
    int index = 0;
    for (size_t size : {size_t(0), size_t(50), size_t(3000), size_t(70000)}) {
        std::vector<uint8_t> src(size);
        for (size_t i = 0; i < size; ++i)
            src[i] = uint8_t((i / 5) % 11 + (i % 7 == 0 ? i * 13 % 17 : 0));
        for (int level : {0, 1, 9}) {
            std::vector<uint8_t> z(compressBound(uLong(size)) + 1);
            uLongf n = uLongf(z.size() - 1);
            compress2(z.data() + 1, &n, src.data(), uLong(size), level);
            z[0] = uint8_t(index * 37);
            const std::string path = std::string(dir) + "/seed-" + std::to_string(index++);
            if (FILE* f = std::fopen(path.c_str(), "wb")) {
                std::fwrite(z.data(), 1, n + 1, f);
                std::fclose(f);
            }
        }
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const size_t chunk = size_t(data[0] & 15) * 37 + 1, pull = size_t(data[0] >> 4) * 1111 + 1;
    ++data;
    --size;

    std::vector<uint8_t> expected;
    const bool zlibOk = ZlibInflate(data, size, expected);

    std::vector<uint8_t> ours, buffer(pull);
    bool finished = false;
    try {
        Compression::Inflater inflater;
        size_t at = 0;
        while (ours.size() <= kOutputCap) {
            if (inflater.IsNeedingInput() && at < size) {
                const size_t n = std::min(chunk, size - at);
                inflater.SetInput(data + at, 0, std::ptrdiff_t(n));
                at += n;
            }
            const auto got = inflater.Inflate(buffer.data(), 0, std::ptrdiff_t(buffer.size()));
            ours.insert(ours.end(), buffer.begin(), buffer.begin() + got);
            if (inflater.IsFinished()) {
                finished = true;
                break;
            }
            if (got == 0 && (at == size || !inflater.IsNeedingInput()))
                break; // out of input, or waiting for a dictionary
        }
    } catch (const std::runtime_error&) {
        if (zlibOk)
            std::abort();
        return 0;
    }
    if (zlibOk && (!finished || ours != expected))
        std::abort();
    return 0;
}
