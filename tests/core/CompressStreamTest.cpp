// The Compression namespace: checksums, the streaming deflater and inflater,
// zlib interoperation in both directions and the fixed error texts.

#include "core/CompressChecksum.h"
#include "core/CompressDeflater.h"
#include "core/CompressInflater.h"

#include "CompressTestData.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

using namespace Compression;
using tezcompresstest::Random;
using tezcompresstest::SmoothNoisy;

namespace {

std::string ErrorOf(const std::function<void()>& f)
{
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "<no error>";
}

std::vector<uint8_t> ZlibCompress(const std::vector<uint8_t>& src, int level)
{
    std::vector<uint8_t> z(compressBound(uLong(src.size())));
    uLongf n = uLongf(z.size());
    EXPECT_EQ(compress2(z.data(), &n, src.data(), uLong(src.size()), level), Z_OK);
    z.resize(n);
    return z;
}

// Inflates a whole zlib stream with zlib; empty on failure.
std::vector<uint8_t> ZlibInflate(const std::vector<uint8_t>& z, size_t size)
{
    std::vector<uint8_t> out(size);
    uLongf n = uLongf(size);
    if (uncompress(out.data(), &n, z.data(), uLong(z.size())) != Z_OK)
        return {};
    out.resize(n);
    return out;
}

// Our deflater, fed `chunk` bytes at a time and drained through a small buffer.
std::vector<uint8_t> Deflate(const std::vector<uint8_t>& src, int level, size_t chunk)
{
    Deflater d(level);
    std::vector<uint8_t> out;
    uint8_t buf[1000];
    for (size_t at = 0; at < src.size(); at += chunk) {
        d.SetInput(src.data() + at, 0, std::ptrdiff_t(std::min(chunk, src.size() - at)));
        while (!d.IsNeedingInput())
            out.insert(out.end(), buf, buf + d.Deflate(buf, 0, sizeof buf));
    }
    d.Finish();
    while (!d.IsFinished())
        out.insert(out.end(), buf, buf + d.Deflate(buf, 0, sizeof buf));
    return out;
}

// Our inflater, fed `chunk` bytes at a time and drained `pull` bytes at a time.
std::vector<uint8_t> Inflate(const std::vector<uint8_t>& z, size_t chunk, size_t pull)
{
    Inflater inf;
    std::vector<uint8_t> out, buf(pull);
    size_t at = 0;
    while (!inf.IsFinished()) {
        if (inf.IsNeedingInput()) {
            if (at == z.size())
                break;
            const size_t n = std::min(chunk, z.size() - at);
            inf.SetInput(z.data() + at, 0, std::ptrdiff_t(n));
            at += n;
        }
        const auto got = inf.Inflate(buf.data(), 0, std::ptrdiff_t(pull));
        out.insert(out.end(), buf.begin(), buf.begin() + got);
    }
    return out;
}

// A zlib header and one final dynamic block with 257 literal and 1 distance
// lengths, whose code length code gives the listed (symbol, length) pairs,
// followed by raw (value, bits) fields.
std::vector<uint8_t> DynamicHeader(std::vector<std::pair<int, int>> codeLengths,
                                   std::vector<std::pair<unsigned, int>> fields)
{
    static const int order[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    std::vector<uint8_t> out{0x78, 0x01};
    uint32_t acc = 0;
    int bits = 0;
    auto put = [&](unsigned v, int n) {
        acc |= v << bits;
        bits += n;
        while (bits >= 8) {
            out.push_back(uint8_t(acc));
            acc >>= 8;
            bits -= 8;
        }
    };
    put(1, 1); // final
    put(2, 2); // dynamic
    put(0, 5);
    put(0, 5);
    put(15, 4); // all 19 code length lengths
    for (int sym : order) {
        int len = 0;
        for (auto [s, l] : codeLengths)
            if (s == sym)
                len = l;
        put(unsigned(len), 3);
    }
    for (auto [v, n] : fields)
        put(v, n);
    put(0, 7);
    return out;
}

// A copy of v with count bytes from at inverted.
std::vector<uint8_t> Damaged(std::vector<uint8_t> v, size_t at, size_t count)
{
    for (auto it = v.begin() + long(at); it != v.end() && count; ++it, --count)
        *it = uint8_t(~*it);
    return v;
}

} // namespace

TEST(CompressionChecksum, KnownValuesAndByteByByteUpdates)
{
    const std::string text = "123456789";
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    Adler32 adler;
    Crc32 crc;
    StrangeCRC strange;
    IChecksum* all[] = {&adler, &crc, &strange};
    const uint32_t expected[] = {0x091E01DEu, 0xCBF43926u, 0xFC891918u};
    for (int k = 0; k < 3; ++k) {
        SCOPED_TRACE(k);
        all[k]->Update(p, 0, 9);
        EXPECT_EQ(all[k]->GetValue(), expected[k]);
        all[k]->Reset();
        all[k]->Update(p, 0, 4);
        for (int i = 4; i < 9; ++i)
            all[k]->Update(int(text[size_t(i)]) | 0x100); // only the low byte counts
        EXPECT_EQ(all[k]->GetValue(), expected[k]);
    }
    // Adler-32 of a long run must reduce modulo 65521 correctly.
    const auto big = Random(1 << 20);
    adler.Reset();
    adler.Update(big.data(), 0, std::ptrdiff_t(big.size()));
    EXPECT_EQ(adler.GetValue(), uint32_t(adler32(1, big.data(), uInt(big.size()))));
}

TEST(CompressionChecksum, ArgumentErrors)
{
    const uint8_t b[4] = {};
    Adler32 adler;
    Crc32 crc;
    StrangeCRC strange;
    EXPECT_EQ(ErrorOf([&] { adler.Update(nullptr, 0, 1); }), "Argument Null Exception: buffer");
    EXPECT_EQ(ErrorOf([&] { adler.Update(b, -1, 1); }), "Argument cannot be negative: offset");
    EXPECT_EQ(ErrorOf([&] { adler.Update(b, 0, -1); }), "Argument cannot be negative: count");
    EXPECT_EQ(ErrorOf([&] { crc.Update(nullptr, 0, 1); }), "Argument Null: buffer");
    EXPECT_EQ(ErrorOf([&] { crc.Update(b, 0, -1); }), "Argument out of range: count cannot be less than zero");
    EXPECT_EQ(ErrorOf([&] { crc.Update(b, -1, 1); }), "Argument out of range: offset");
    EXPECT_EQ(ErrorOf([&] { strange.Update(nullptr, 0, 1); }), "Argument Null: buffer");
    EXPECT_EQ(ErrorOf([&] { strange.Update(b, -1, 1); }), "Argument out of range: cannot be less than zero");
    EXPECT_EQ(ErrorOf([&] { strange.Update(b, 0, -1); }), "Argument out of range: cannot be less than zero");
}

TEST(CompressionInterop, OurStreamsInflateWithZlib)
{
    const auto src = SmoothNoisy(200000);
    for (int level : {0, 1, 4, 6, 9}) {
        SCOPED_TRACE(level);
        const auto z = Deflate(src, level, 7777);
        EXPECT_EQ(ZlibInflate(z, src.size()), src);
        EXPECT_EQ(z[0], 0x78);
        EXPECT_EQ((z[0] * 256 + z[1]) % 31, 0);
        EXPECT_EQ(z[1] >> 6, std::min(3, std::max(0, (level - 1) / 2)));
    }
    // Flushed pieces are decodable before Finish; the whole still is after.
    Deflater d(1);
    std::vector<uint8_t> z(300000);
    d.SetInput(src.data(), 0, 50000);
    d.Flush();
    std::ptrdiff_t n = d.Deflate(z.data(), 0, std::ptrdiff_t(z.size()));
    z_stream zs{};
    ASSERT_EQ(inflateInit(&zs), Z_OK);
    std::vector<uint8_t> part(50000);
    zs.next_in = z.data();
    zs.avail_in = uInt(n);
    zs.next_out = part.data();
    zs.avail_out = uInt(part.size());
    EXPECT_EQ(inflate(&zs, Z_SYNC_FLUSH), Z_OK);
    EXPECT_EQ(zs.avail_out, 0u);
    inflateEnd(&zs);
    EXPECT_EQ(0, std::memcmp(part.data(), src.data(), part.size()));
    d.SetInput(src.data(), 50000, std::ptrdiff_t(src.size()) - 50000);
    d.Finish();
    while (!d.IsFinished())
        n += d.Deflate(z.data(), n, std::ptrdiff_t(z.size()) - n);
    z.resize(size_t(n));
    EXPECT_EQ(ZlibInflate(z, src.size()), src);
}

TEST(CompressionInterop, ZlibStreamsInflateWithOursInAnyPieces)
{
    const auto src = SmoothNoisy(150000, 9);
    for (int level : {0, 1, 9}) {
        const auto z = ZlibCompress(src, level);
        for (auto [chunk, pull] : {std::pair<size_t, size_t>{1, 1}, {3, 4096}, {z.size(), 100000}}) {
            SCOPED_TRACE(testing::Message() << level << " " << chunk << " " << pull);
            EXPECT_EQ(Inflate(z, chunk, pull), src);
        }
    }
    // Stored blocks of random data, and an empty stream.
    const auto noise = Random(100000);
    EXPECT_EQ(Inflate(ZlibCompress(noise, 6), 999, 777), noise);
    EXPECT_TRUE(Inflate(ZlibCompress({}, 1), 1, 1).empty());
}

TEST(CompressionInterop, RawDeflateWithoutHeaderOrChecksum)
{
    const auto src = SmoothNoisy(60000, 4);
    Deflater d(1, true);
    d.SetInput(src.data(), 0, std::ptrdiff_t(src.size()));
    d.Finish();
    std::vector<uint8_t> raw(70000);
    raw.resize(size_t(d.Deflate(raw.data(), 0, std::ptrdiff_t(raw.size()))));
    ASSERT_TRUE(d.IsFinished());

    z_stream zs{};
    ASSERT_EQ(inflateInit2(&zs, -15), Z_OK);
    std::vector<uint8_t> out(src.size());
    zs.next_in = raw.data();
    zs.avail_in = uInt(raw.size());
    zs.next_out = out.data();
    zs.avail_out = uInt(out.size());
    EXPECT_EQ(inflate(&zs, Z_FINISH), Z_STREAM_END);
    inflateEnd(&zs);
    EXPECT_EQ(out, src);

    Inflater inf(true);
    std::fill(out.begin(), out.end(), 0);
    inf.SetInput(raw.data(), 0, std::ptrdiff_t(raw.size()));
    EXPECT_EQ(inf.Inflate(out.data(), 0, std::ptrdiff_t(out.size())), std::ptrdiff_t(src.size()));
    EXPECT_TRUE(inf.IsFinished());
    EXPECT_EQ(out, src);
}

TEST(CompressionInterop, PresetDictionaryBothWays)
{
    const auto dict = SmoothNoisy(4000, 1);
    const auto src = SmoothNoisy(20000, 2);
    // zlib writes with the dictionary, we read.
    z_stream zs{};
    ASSERT_EQ(deflateInit(&zs, 6), Z_OK);
    ASSERT_EQ(deflateSetDictionary(&zs, dict.data(), uInt(dict.size())), Z_OK);
    std::vector<uint8_t> z(30000);
    zs.next_in = const_cast<uint8_t*>(src.data());
    zs.avail_in = uInt(src.size());
    zs.next_out = z.data();
    zs.avail_out = uInt(z.size());
    ASSERT_EQ(deflate(&zs, Z_FINISH), Z_STREAM_END);
    z.resize(zs.total_out);
    deflateEnd(&zs);

    Inflater inf;
    std::vector<uint8_t> out(src.size());
    inf.SetInput(z.data(), 0, std::ptrdiff_t(z.size()));
    EXPECT_EQ(inf.Inflate(out.data(), 0, 100), 0);
    ASSERT_TRUE(inf.IsNeedingDictionary());
    EXPECT_EQ(ErrorOf([&] { inf.SetDictionary(src.data(), 0, 10); }), "Wrong adler checksum");
    inf.SetDictionary(dict.data(), 0, std::ptrdiff_t(dict.size()));
    EXPECT_EQ(inf.Inflate(out.data(), 0, std::ptrdiff_t(out.size())), std::ptrdiff_t(src.size()));
    EXPECT_TRUE(inf.IsFinished());
    EXPECT_EQ(out, src);
    EXPECT_EQ(ErrorOf([&] { inf.SetDictionary(dict.data(), 0, 1); }), "Invalid Operation: Dictionary is not needed");

    // We write with the dictionary, zlib reads.
    Deflater d(1);
    d.SetDictionary(dict.data(), 0, std::ptrdiff_t(dict.size()));
    d.SetInput(src.data(), 0, std::ptrdiff_t(src.size()));
    d.Finish();
    std::vector<uint8_t> ours(40000);
    ours.resize(size_t(d.Deflate(ours.data(), 0, std::ptrdiff_t(ours.size()))));
    ASSERT_TRUE(d.IsFinished());
    z_stream is{};
    ASSERT_EQ(inflateInit(&is), Z_OK);
    is.next_in = ours.data();
    is.avail_in = uInt(ours.size());
    is.next_out = out.data();
    is.avail_out = uInt(out.size());
    ASSERT_EQ(inflate(&is, Z_FINISH), Z_NEED_DICT);
    ASSERT_EQ(inflateSetDictionary(&is, dict.data(), uInt(dict.size())), Z_OK);
    EXPECT_EQ(inflate(&is, Z_FINISH), Z_STREAM_END);
    inflateEnd(&is);
    EXPECT_EQ(out, src);
}

TEST(CompressionDeflater, StateAndArgumentErrors)
{
    const uint8_t b[8] = {};
    uint8_t out[64];
    EXPECT_EQ(ErrorOf([] { Deflater d(10); }), "Argument out of range: level");
    Deflater d;
    EXPECT_EQ(d.GetLevel(), 6);
    EXPECT_EQ(ErrorOf([&] { d.SetLevel(-2); }), "Argument out of range: level");
    EXPECT_EQ(ErrorOf([&] { d.SetInput(nullptr, 0, 4); }), "Argument Null: buffer");
    EXPECT_EQ(ErrorOf([&] { d.SetInput(b, -1, 4); }), "Argument out of range: offset");
    EXPECT_EQ(ErrorOf([&] { d.SetInput(b, 0, -4); }), "Argument out of range: count");
    d.SetInput(b, 0, 8);
    EXPECT_EQ(ErrorOf([&] { d.SetInput(b, 0, 8); }), "Invalid Operation: Old input was not completely processed");
    d.Deflate(out, 0, 64);
    EXPECT_EQ(ErrorOf([&] { d.SetDictionary(b, 0, 8); }), "Invalid Operation");
    d.Finish();
    EXPECT_EQ(ErrorOf([&] { d.SetInput(b, 0, 8); }), "Invalid Operation: Finish() already called");
    d.End();
    EXPECT_EQ(ErrorOf([&] { d.Deflate(out, 0, 64); }), "Invalid Operation: Deflater closed");
}

TEST(CompressionInflater, CorruptStreamsNameTheirFault)
{
    const auto src = SmoothNoisy(50000);
    const auto good = ZlibCompress(src, 6);
    auto inflateAll = [&](std::vector<uint8_t> z) {
        return [z] {
            Inflater inf;
            std::vector<uint8_t> out(60000);
            inf.SetInput(z.data(), 0, std::ptrdiff_t(z.size()));
            inf.Inflate(out.data(), 0, std::ptrdiff_t(out.size()));
        };
    };
    auto with = [&](std::vector<uint8_t> bytes) { return ErrorOf(inflateAll(std::move(bytes))); };

    EXPECT_EQ(with({0x78, 0x9D}), "Header checksum illegal");
    EXPECT_EQ(with({0x79, 0x18}), "Compression Method unknown"); // CM 9, check bits valid
    EXPECT_EQ(with({0x78, 0x01, 0x07}), "Unknown block type");   // BFINAL, BTYPE 3
    EXPECT_EQ(with({0x78, 0x01, 0x01, 0x05, 0x00, 0xFB, 0xFF}), "broken uncompressed block");
    // Dynamic blocks with two-symbol code length codes, each one bit long:
    // "repeat previous" first, then zero runs beyond the 258 lengths.
    EXPECT_EQ(with(DynamicHeader({{16, 1}, {0, 1}}, {{1, 1}})), "Ptr is zero in decoder");
    EXPECT_EQ(with(DynamicHeader({{18, 1}, {0, 1}}, {{1, 1}, {127, 7}, {1, 1}, {127, 7}})),
              "Ptr plus count too large in decoder");
    EXPECT_EQ(with(Damaged(good, good.size() - 1, 1)), "Adler chksum doesn't match");
    EXPECT_NE(with(Damaged(good, 10, 50)), "<no error>");

    Inflater inf;
    uint8_t out[8];
    EXPECT_EQ(ErrorOf([&] { inf.Inflate(out, 0, -1); }), "Argument out of range: count cannot be negative");
    EXPECT_EQ(ErrorOf([&] { inf.Inflate(out, -1, 1); }), "Argument out of range: offset cannot be negative");
    EXPECT_EQ(ErrorOf([&] { inf.SetDictionary(nullptr, 0, 1); }), "Null argument: buffer");
    EXPECT_EQ(ErrorOf([&] { inf.SetDictionary(out, -1, 1); }), "Argument out of range: index");
    EXPECT_EQ(ErrorOf([&] { inf.SetDictionary(out, 0, 1); }), "Invalid Operation: Dictionary is not needed");
}
