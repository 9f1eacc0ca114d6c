// TezCompress: the frame, round trips, zlib interoperation and hostile frames.

#include "core/Compress.h"

#include "CompressTestData.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

using tezcompresstest::Random;
using tezcompresstest::SmoothNoisy;

namespace {

struct Frame
{
    unsigned width, parts;
    std::vector<uint64_t> lengths;
    size_t header;
};

Frame ReadFrame(const std::vector<uint8_t>& f)
{
    Frame r{unsigned(f[0] >> 4), unsigned(f[0] & 15), {}, 0};
    r.header = 1 + size_t(r.width) * r.parts;
    for (unsigned i = 0; i < r.parts; ++i) {
        uint64_t v = 0;
        for (unsigned b = 0; b < r.width; ++b)
            v |= uint64_t(f[1 + i * r.width + b]) << (8 * b);
        r.lengths.push_back(v);
    }
    return r;
}

std::vector<uint8_t> RoundTrip(const std::vector<uint8_t>& src, int level = 1)
{
    std::vector<uint8_t> frame, back(src.size());
    TezCompress::Compress(src.data(), src.size(), frame, level);
    TezCompress::Uncompress(frame, back.data(), back.size());
    return back;
}

std::string ErrorOf(const std::function<void()>& f)
{
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "<no error>";
}

} // namespace

TEST(TezCompressFrame, EmptySourceIsFiveBytesOfTwoEmptyRawParts)
{
    std::vector<uint8_t> frame{9, 9, 9};
    TezCompress::Compress(nullptr, 0, frame, 1);
    EXPECT_EQ(frame, (std::vector<uint8_t>{0x22, 0, 0, 0, 0}));
    EXPECT_EQ(TezCompress::GetCompressedSize(frame.data()), 0u);
    TezCompress::Uncompress(frame, nullptr, 0);
    const uint8_t noParts[] = {0x20};
    EXPECT_EQ(TezCompress::GetCompressedSize(noParts), 0u);
}

TEST(TezCompressFrame, WidthAndPartCountFollowTheSize)
{
    const struct
    {
        size_t size;
        uint8_t header;
    } cases[] = {{1, 0x22}, {65535, 0x22}, {65536, 0x44}, {262143, 0x44}, {262144, 0x48}, {1000003, 0x48}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.size);
        const auto src = SmoothNoisy(c.size);
        std::vector<uint8_t> frame;
        TezCompress::Compress(src.data(), src.size(), frame, 1);
        const Frame f = ReadFrame(frame);
        EXPECT_EQ(frame[0], c.header);
        EXPECT_EQ(f.header, TezCompress::GetHeaderSize(c.size));
        uint64_t sum = 0;
        for (auto l : f.lengths)
            sum += l;
        EXPECT_EQ(frame.size(), f.header + sum);
        EXPECT_EQ(TezCompress::GetCompressedSize(frame.data()), sum);
        std::vector<uint8_t> back(src.size());
        TezCompress::Uncompress(frame, back.data(), back.size());
        EXPECT_EQ(back, src);
    }
    EXPECT_EQ(TezCompress::GetHeaderSize(0xFFFFFFFFull), 33u);
    EXPECT_EQ(TezCompress::GetHeaderSize(0x100000000ull), 65u);
}

TEST(TezCompressFrame, LastPartTakesTheRemainder)
{
    // Random data is stored raw, so each part's length is its source length.
    for (size_t size : {size_t(65537), size_t(65539), size_t(262151), size_t(7)}) {
        SCOPED_TRACE(size);
        const auto src = Random(size);
        std::vector<uint8_t> frame;
        TezCompress::Compress(src.data(), size, frame, 1);
        const Frame f = ReadFrame(frame);
        const size_t part = size / f.parts;
        for (unsigned i = 0; i + 1 < f.parts; ++i)
            EXPECT_EQ(f.lengths[i], part);
        EXPECT_EQ(f.lengths.back(), size - part * (f.parts - 1));
        EXPECT_EQ(frame.size(), size + f.header);
        EXPECT_EQ(0, std::memcmp(frame.data() + f.header, src.data(), size));
        EXPECT_EQ(RoundTrip(src), src);
    }
}

TEST(TezCompressFrame, EveryLevelRoundTripsAndBadLevelsLeaveOutputAlone)
{
    const auto src = SmoothNoisy(300000);
    for (int level = -1; level <= 9; ++level) {
        SCOPED_TRACE(level);
        EXPECT_EQ(RoundTrip(src, level), src);
    }
    std::vector<uint8_t> frame{1, 2, 3};
    EXPECT_EQ(ErrorOf([&] { TezCompress::Compress(src.data(), src.size(), frame, 10); }),
              "Argument out of range: level");
    EXPECT_EQ(ErrorOf([&] { TezCompress::Compress(src.data(), src.size(), frame, -2); }),
              "Argument out of range: level");
    EXPECT_EQ(frame, (std::vector<uint8_t>{1, 2, 3}));
}

TEST(TezCompressFrame, CompressibleDataShrinksAndSmallPartsStayRaw)
{
    const auto src = SmoothNoisy(1 << 20);
    std::vector<uint8_t> frame;
    TezCompress::Compress(src.data(), src.size(), frame, 1);
    EXPECT_LT(frame.size(), src.size() * 3 / 4);
    // Five bytes a part cannot hold a zlib stream: both parts stay raw.
    const std::vector<uint8_t> tiny{1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    TezCompress::Compress(tiny.data(), tiny.size(), frame, 9);
    EXPECT_EQ(frame.size(), 15u);
    EXPECT_EQ(RoundTrip(tiny), tiny);
}

TEST(TezCompressFrame, CacheAlignedOverloadKeepsTheDeflaterOutputOfPartsThatDoNotShrink)
{
    // Compressible data: both overloads write the same frame.
    const auto smooth = SmoothNoisy(200000);
    std::vector<uint8_t> plain;
    TezCompress::AlignedByteVector aligned;
    TezCompress::Compress(smooth.data(), smooth.size(), plain, 1);
    TezCompress::Compress(smooth.data(), smooth.size(), aligned, 1);
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), aligned.begin(), aligned.end()));
    std::vector<uint8_t> back(smooth.size());
    TezCompress::Uncompress(aligned, back.data(), back.size());
    EXPECT_EQ(back, smooth);

    // Random data: the part lengths are full size, but the bytes are the
    // start of a zlib stream, so they do not read back as the source.
    const auto noise = Random(100000);
    TezCompress::Compress(noise.data(), noise.size(), aligned, 1);
    ASSERT_EQ(aligned.size(), noise.size() + 17);
    EXPECT_EQ(aligned[17], 0x78); // zlib CMF where the vector overload has raw bytes
    TezCompress::Uncompress(aligned, back.data(), noise.size());
    EXPECT_NE(std::vector<uint8_t>(back.begin(), back.begin() + long(noise.size())), noise);
}

TEST(TezCompressZlib, EveryPartWeWriteInflatesWithZlib)
{
    const auto src = SmoothNoisy(700001);
    for (int level : {1, 6, 9}) {
        std::vector<uint8_t> frame;
        TezCompress::Compress(src.data(), src.size(), frame, level);
        const Frame f = ReadFrame(frame);
        const size_t part = src.size() / f.parts;
        size_t at = f.header;
        for (unsigned i = 0; i < f.parts; ++i) {
            const size_t n = i + 1 == f.parts ? src.size() - part * (f.parts - 1) : part;
            ASSERT_NE(f.lengths[i], n) << "part " << i << " stayed raw";
            std::vector<uint8_t> out(n);
            uLongf outLen = uLongf(n);
            ASSERT_EQ(uncompress(out.data(), &outLen, frame.data() + at, uLong(f.lengths[i])), Z_OK);
            ASSERT_EQ(outLen, n);
            EXPECT_EQ(0, std::memcmp(out.data(), src.data() + i * part, n));
            at += f.lengths[i];
        }
    }
}

TEST(TezCompressZlib, FrameOfZlibLevelOneStreamsExpands)
{
    const auto src = SmoothNoisy(500000, 3);
    const unsigned parts = 8, width = 4;
    const size_t part = src.size() / parts;
    std::vector<uint8_t> frame(1 + parts * width);
    frame[0] = uint8_t(width * 16 + parts);
    for (unsigned i = 0; i < parts; ++i) {
        const size_t n = i + 1 == parts ? src.size() - part * (parts - 1) : part;
        std::vector<uint8_t> z(compressBound(uLong(n)));
        uLongf zLen = uLongf(z.size());
        ASSERT_EQ(compress2(z.data(), &zLen, src.data() + i * part, uLong(n), 1), Z_OK);
        for (unsigned b = 0; b < width; ++b)
            frame[1 + i * width + b] = uint8_t(zLen >> (8 * b));
        frame.insert(frame.end(), z.begin(), z.begin() + long(zLen));
    }
    std::vector<uint8_t> back(src.size());
    TezCompress::Uncompress(frame, back.data(), back.size());
    EXPECT_EQ(back, src);
}

TEST(TezCompressHostile, BadHeaderBytesAndSizesThatDoNotAddUp)
{
    const auto src = SmoothNoisy(100000);
    std::vector<uint8_t> frame, out(src.size());
    TezCompress::Compress(src.data(), src.size(), frame, 1);

    auto bad = frame;
    bad[0] = 0x43;
    EXPECT_EQ(ErrorOf([&] { TezCompress::Uncompress(bad, out.data(), out.size()); }),
              "TezCompress::Uncompress: bad frame header byte 0x43");
    bad[0] = 0x04;
    EXPECT_NE(ErrorOf([&] { TezCompress::Uncompress(bad, out.data(), out.size()); }), "<no error>");

    // One byte more or less than the lengths claim.
    bad = frame;
    bad.push_back(0);
    EXPECT_NE(ErrorOf([&] { TezCompress::Uncompress(bad, out.data(), out.size()); }).find("add up"), std::string::npos);
    // Every truncation of the frame, header included, is refused.
    for (size_t cut = 0; cut < frame.size(); cut += cut < 40 ? 1 : 997) {
        SCOPED_TRACE(cut);
        EXPECT_THROW(TezCompress::Uncompress(frame.data(), cut, out.data(), out.size()), std::runtime_error);
    }
    // Lengths near 2^64 must not wrap around into a small total.
    const std::vector<uint8_t> huge{0x82, 0x10, 0, 0, 0, 0, 0, 0, 0, 0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_THROW(TezCompress::Uncompress(huge.data(), huge.size(), out.data(), 16), std::runtime_error);
    EXPECT_THROW(TezCompress::Uncompress(huge.data(), out.data(), 16), std::runtime_error);
}

TEST(TezCompressHostile, GarbageAndTruncatedPartsFailCleanly)
{
    const auto src = SmoothNoisy(100000);
    std::vector<uint8_t> frame, out(src.size());
    TezCompress::Compress(src.data(), src.size(), frame, 1);
    const Frame f = ReadFrame(frame);

    // A compressed part (length not its size) over garbage.
    auto garbage = frame;
    std::mt19937 rng(5);
    for (size_t i = f.header; i < f.header + f.lengths[0]; ++i)
        garbage[i] = uint8_t(rng());
    EXPECT_THROW(TezCompress::Uncompress(garbage, out.data(), out.size()), std::runtime_error);

    // Part 1 cut short, with its length and the frame shortened to match.
    auto cut = frame;
    const size_t part1End = f.header + f.lengths[0] + f.lengths[1];
    cut.erase(cut.begin() + long(part1End) - 100, cut.begin() + long(part1End));
    const uint64_t shorter = f.lengths[1] - 100;
    for (unsigned b = 0; b < 4; ++b)
        cut[1 + 4 + b] = uint8_t(shorter >> (8 * b));
    const std::string error = ErrorOf([&] { TezCompress::Uncompress(cut, out.data(), out.size()); });
    EXPECT_NE(error.find("part 1"), std::string::npos) << error;

    // A flipped byte in the checksum.
    auto flipped = frame;
    flipped[f.header + f.lengths[0] - 1] ^= 1;
    EXPECT_EQ(ErrorOf([&] { TezCompress::Uncompress(flipped, out.data(), out.size()); }), "Adler chksum doesn't match");

    // Random single-byte damage anywhere: a clean error or a result, never a crash.
    for (int round = 0; round < 3000; ++round) {
        auto damaged = frame;
        damaged[rng() % damaged.size()] = uint8_t(rng());
        try {
            TezCompress::Uncompress(damaged, out.data(), out.size());
        } catch (const std::runtime_error&) {
        }
    }
}

TEST(TezCompressHostile, WrongSizeFillsOnlyWhatTheStreamsHold)
{
    const auto src = SmoothNoisy(80000);
    std::vector<uint8_t> frame;
    TezCompress::Compress(src.data(), src.size(), frame, 1);
    // Smaller: each part yields exactly its shorter stretch.
    std::vector<uint8_t> small(60000);
    TezCompress::Uncompress(frame, small.data(), small.size());
    EXPECT_EQ(0, std::memcmp(small.data(), src.data(), 15000));
    // Larger: the streams end early and the calls return without error.
    std::vector<uint8_t> large(120000, 0xAB);
    TezCompress::Uncompress(frame, large.data(), large.size());
    EXPECT_EQ(0, std::memcmp(large.data(), src.data(), 20000));
    EXPECT_EQ(large.back(), 0xAB);
}

TEST(TezCompressConcurrency, ThreadsShareNothing)
{
    std::vector<std::thread> threads;
    std::vector<int> ok(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &ok] {
            const auto src = SmoothNoisy(300000 + size_t(t) * 1001, uint32_t(t));
            bool good = true;
            for (int i = 0; i < 5; ++i)
                good = good && RoundTrip(src, t + 1) == src;
            ok[size_t(t)] = good;
        });
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(ok, std::vector<int>(4, 1));
}

// Needs about 13 GB of memory, so it only runs when asked for
// (--gtest_also_run_disabled_tests).
TEST(TezCompressFrame, DISABLED_AboveFourGigabytesUsesEightByteSizes)
{
    const size_t size = (size_t(1) << 32) + 9;
    std::vector<uint8_t> src(size);
    for (size_t i = 0; i < size; ++i)
        src[i] = uint8_t((i >> 12) ^ (i % 251 == 0 ? i : 0));
    std::vector<uint8_t> frame;
    TezCompress::Compress(src.data(), size, frame, 1);
    EXPECT_EQ(frame[0], 0x88);
    std::vector<uint8_t> back(size);
    TezCompress::Uncompress(frame, back.data(), size);
    EXPECT_TRUE(back == src);
}
