// libFuzzer target: TezCompress::Uncompress on hostile frames, and a round
// trip of the same bytes through TezCompress::Compress.
// Input: three bytes of uncompressed size (little-endian, at most 1 MiB), a
// level byte, then the frame.
// fuzz-subsystems: platform core

#include "core/Compress.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

void WriteSeed(const std::string& dir, int index, size_t size, int level, const std::vector<uint8_t>& frame)
{
    std::vector<uint8_t> input{uint8_t(size), uint8_t(size >> 8), uint8_t(size >> 16), uint8_t(level)};
    input.insert(input.end(), frame.begin(), frame.end());
    const std::string path = dir + "/seed-" + std::to_string(index);
    if (FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(input.data(), 1, input.size(), f);
        std::fclose(f);
    }
}

} // namespace

// Seeds the corpus with valid frames of each layout when TEZ_FUZZ_SEED_DIR
// names a folder.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    const char* dir = std::getenv("TEZ_FUZZ_SEED_DIR");
    if (!dir || !*dir)
        return 0;
    int index = 0;
    for (size_t size : {size_t(0), size_t(9), size_t(1000), size_t(65536), size_t(300000)}) {
        std::vector<uint8_t> src(size);
        for (size_t i = 0; i < size; ++i)
            src[i] = uint8_t((i / 7) % 13 + (i % 3 == 0 ? i * 31 % 5 : 0));
        for (int level : {0, 1, 9}) {
            std::vector<uint8_t> frame;
            TezCompress::Compress(src.data(), size, frame, level);
            WriteSeed(dir, index++, size, level, frame);
        }
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 4)
        return 0;
    const size_t target = (size_t(data[0]) | size_t(data[1]) << 8 | size_t(data[2]) << 16) & 0xFFFFF;
    const int level = int(data[3] % 12) - 1; // -1..10: 10 must be refused
    const uint8_t* frame = data + 4;
    const size_t frameSize = size - 4;

    std::vector<uint8_t> out(target);
    try {
        TezCompress::Uncompress(frame, frameSize, out.data(), out.size());
    } catch (const std::runtime_error&) {
    }

    // Whatever the bytes, they must survive a round trip of their own.
    std::vector<uint8_t> packed;
    try {
        TezCompress::Compress(frame, frameSize, packed, level);
    } catch (const std::runtime_error&) {
        if (level >= -1 && level <= 9)
            std::abort();
        return 0;
    }
    if (level > 9)
        std::abort();
    std::vector<uint8_t> back(frameSize);
    TezCompress::Uncompress(packed, back.data(), back.size());
    if (frameSize && std::memcmp(back.data(), frame, frameSize) != 0)
        std::abort();
    if (TezCompress::GetCompressedSize(packed.data()) + TezCompress::GetHeaderSize(frameSize) != packed.size())
        std::abort();
    return 0;
}
