#include "volume/PackedBlock.h"
#include "volume/AlignedBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Packed(Bytes const& raw, int numChunks, int chunkSize)
{
    TezRef<TezPackedBlock> block = TezPackedBlock::CreateCopy(numChunks, chunkSize, raw.data());
    auto const& packed = block->GetPacked();
    Bytes bytes(packed.begin(), packed.end());
    EXPECT_TRUE(block->IsPacked());
    // Every packed form decodes back to its bytes.
    EXPECT_EQ(Bytes(block->Get().begin(), block->Get().end()), raw);
    return bytes;
}

Bytes Chunk(std::initializer_list<uint8_t> values, size_t repeat = 1)
{
    Bytes out;
    for (size_t r = 0; r < repeat; ++r)
        out.insert(out.end(), values);
    return out;
}

} // namespace

TEST(PackedBlock, ConstantChunks)
{
    // Three chunks of 16: zeros, ones, sevens.
    Bytes raw(48, 0);
    std::fill(raw.begin() + 16, raw.begin() + 32, 1);
    std::fill(raw.begin() + 32, raw.end(), 7);
    EXPECT_EQ(Packed(raw, 3, 16), (Bytes{0, 1, 5, 7}));
}

TEST(PackedBlock, RunTagsAndBases)
{
    // {0,1}: tag 2, a run byte is value << 7 | length - 1.
    EXPECT_EQ(Packed(Chunk({0, 0, 1, 0}), 1, 4), (Bytes{2, 0x01, 0x80, 0x00}));
    // {200,201}: tag 6 over base 200.
    EXPECT_EQ(Packed(Chunk({201, 200, 200}), 1, 3), (Bytes{6, 200, 0x80, 0x01}));
    // {1,2,3}: tag 3 with base 0, two value bits.
    EXPECT_EQ(Packed(Chunk({1, 2, 3, 3}), 1, 4), (Bytes{3, 1 << 6, 2 << 6, 3 << 6 | 1}));
    // {4,5,6}: tag 7 over base 4.
    EXPECT_EQ(Packed(Chunk({4, 5, 6}), 1, 3), (Bytes{7, 4, 0, 1 << 6, 2 << 6}));
    // Range 5 to 8: tags 4 and 8, three value bits.
    EXPECT_EQ(Packed(Chunk({0, 7, 7}), 1, 3), (Bytes{4, 0, 7 << 5 | 1}));
    EXPECT_EQ(Packed(Chunk({10, 17}), 1, 2), (Bytes{8, 10, 0, 7 << 5}));
}

TEST(PackedBlock, LongRunsSplit)
{
    // 300 ones after a zero in a tag-2 chunk: 128 + 128 + 44.
    Bytes raw(301, 1);
    raw[0] = 0;
    EXPECT_EQ(Packed(raw, 1, 301), (Bytes{2, 0x00, 0xFF, 0xFF, 0x80 | 43}));
    // Two value bits leave runs of 64.
    Bytes wide(132, 3);
    wide[0] = 0;
    wide[1] = 1;
    EXPECT_EQ(Packed(wide, 1, 132), (Bytes{3, 0x00, 1 << 6, 0xFF, 0xFF, 3 << 6 | 1}));
}

TEST(PackedBlock, LiteralAndRunGroups)
{
    // Opens as a run (first two equal), then a literal that meets two equal
    // bytes and keeps the first of them.
    Bytes raw = {50, 50, 50, 10, 20, 30, 30, 90};
    EXPECT_EQ(Packed(raw, 1, 8), (Bytes{9, 0x82, 50, 2, 10, 20, 30, 1, 30, 90}));
    // 200 distinct-neighbour bytes: a literal of 128 and one of 72.
    Bytes saw(200);
    for (size_t i = 0; i < saw.size(); ++i)
        saw[i] = static_cast<uint8_t>(i % 2 ? 100 : i % 50);
    Bytes packed = Packed(saw, 1, 200);
    ASSERT_EQ(packed.size(), 1 + 129 + 73u);
    EXPECT_EQ(packed[1], 127);
    EXPECT_EQ(packed[130], 71);
    // The literal {0, 77} keeps the first 77; the run of the other 300 splits
    // into 128 + 128 + 44; the last byte is a literal of its own.
    Bytes run(303, 77);
    run[0] = 0;
    run[302] = 255;
    EXPECT_EQ(Packed(run, 1, 303), (Bytes{9, 1, 0, 77, 0xFF, 77, 0xFF, 77, 0x80 | 43, 77, 0, 255}));
}

TEST(PackedBlock, SingleByteChunksAreInverted)
{
    Bytes raw(300, 0);
    raw[299] = 1;
    TezRef<TezPackedBlock> block = TezPackedBlock::CreateCopy(300, 1, raw.data());
    EXPECT_TRUE(block->IsInverted());
    EXPECT_EQ(block->GetNumChunks(), 300);
    EXPECT_EQ(block->GetChunkSize(), 1);
    EXPECT_EQ(block->GetPackedSizeBytes(), 5u); // one chunk: tag, 128 + 128 + 43, 1
    EXPECT_EQ(block->GetValue(299, 0), 1);
    TezRef<TezPackedBlock> copy = TezPackedBlock::CreateCopy(block);
    EXPECT_EQ(copy->GetNumChunks(), 300);
    EXPECT_EQ(copy->GetValue(299, 0), 1);
}

TEST(PackedBlock, RandomRoundTrips)
{
    std::mt19937 random(7);
    for (int trial = 0; trial < 200; ++trial) {
        int numChunks = 1 + random() % 20;
        int chunkSize = 1 + random() % 300;
        int spread = 1 << (random() % 9);                          // 1 .. 256 distinct values
        int runLength = 1 + random() % (trial % 3 == 0 ? 300 : 8); // some runs past one run byte
        Bytes raw(size_t(numChunks) * chunkSize);
        uint8_t value = 0;
        for (size_t i = 0; i < raw.size(); ++i) {
            if (i % runLength == 0)
                value = static_cast<uint8_t>(random() % spread + (trial % 2 ? 100 : 0));
            raw[i] = value;
        }
        TezRef<TezPackedBlock> block = TezPackedBlock::CreateCopy(numChunks, chunkSize, raw.data());
        uint8_t max = *std::max_element(raw.begin(), raw.end());
        uint32_t maxIndex = static_cast<uint32_t>(std::find(raw.begin(), raw.end(), max) - raw.begin());
        block->Pack();
        ASSERT_TRUE(block->IsPacked());
        Bytes copied(raw.size());
        block->CopyData(copied.data()); // decodes without unpacking
        ASSERT_EQ(copied, raw) << trial;
        ASSERT_TRUE(block->IsPacked());
        EXPECT_EQ(block->GetMaxValue(), max);
        EXPECT_EQ(block->GetMaxIndex(), maxIndex);
        block->Unpack();
        ASSERT_EQ(Bytes(block->Get().begin(), block->Get().end()), raw) << trial;
    }
}

TEST(PackedBlock, MaximumRules)
{
    Bytes raw = {3, 9, 1, 9};
    TezRef<TezPackedBlock> block = TezPackedBlock::CreateCopy(2, 2, raw.data());
    EXPECT_EQ(block->GetMaxValue(), 9);
    EXPECT_EQ(block->GetMaxIndex(), 1u);
    // The flat SetValue stores what it wrote as the maximum, large or not.
    block->SetValue(uint64_t(2), 4);
    EXPECT_EQ(block->GetMaxValue(), 4);
    EXPECT_EQ(block->GetMaxIndex(), 0u);
    // The two-index form marks it not valid; the next read scans again.
    block->SetValue(1, 1, 12); // position 1 + 2 * 1
    EXPECT_FALSE(block->IsMaxValueValid());
    EXPECT_EQ(block->GetMaxValue(), 12);
    EXPECT_EQ(block->GetMaxIndex(), 3u);
    // All zeros: maximum 0 at index 0.
    TezRef<TezPackedBlock> zeros = TezPackedBlock::Create(4, 4, 0);
    zeros->UpdateMaxValue();
    EXPECT_EQ(zeros->GetMaxIndex(), 0u);
    EXPECT_THROW(block->GetValue(uint64_t(4)), std::runtime_error);
}

TEST(PackedBlock, FormsAndSetters)
{
    TezRef<TezPackedBlock> block = TezPackedBlock::CreateEmpty(4, 4, true);
    EXPECT_FALSE(block->HasData());
    EXPECT_FALSE(block->IsMaxValueValid());
    block->Resize(4, 4, 6);
    EXPECT_TRUE(block->HasData());
    block->Pack(); // disposable content is dropped, not packed
    EXPECT_FALSE(block->HasData());

    TezPackedBlock::ByteVector wrong(5, 1);
    block->Set(std::move(wrong));
    EXPECT_FALSE(block->HasData());
    TezPackedBlock::ByteVector right(16, 2);
    right[9] = 8;
    block->Set(std::move(right));
    EXPECT_EQ(block->GetMaxIndex(), 9u);

    uint8_t packed[] = {5, 3, 0, 1, 2, 0x80 | 3};
    block->SetPacked(packed, sizeof packed);
    EXPECT_TRUE(block->IsPacked());
    EXPECT_EQ(block->GetMaxValue(), 8); // left alone
    EXPECT_EQ(block->GetValue(uint64_t(0)), 3);
    EXPECT_EQ(block->GetValue(uint64_t(15)), 1);
    EXPECT_EQ(block->GetValue(uint64_t(5)), 0);
}

TEST(PackedBlock, DamagedPackedBytesAreRefused)
{
    TezRef<TezPackedBlock> block = TezPackedBlock::CreateEmpty(2, 8, false);
    Bytes const cases[] = {
        {0},                // second chunk missing
        {0, 12},            // unknown tag
        {2, 0x7F},          // run longer than the chunk
        {9, 0x05, 1, 2},    // literal past the end of the data
        {9, 0x87, 1, 0, 0}, // bytes after the last chunk
        {6},                // base missing
    };
    for (Bytes const& bytes : cases) {
        block->SetPacked(bytes.data(), bytes.size());
        EXPECT_THROW(block->Unpack(), std::runtime_error);
        EXPECT_TRUE(block->IsPacked());
    }
}

TEST(AlignedBytes, WholeUnitsAtLeastOnce)
{
    alignas(16) uint8_t a[64];
    alignas(16) uint8_t b[64];
    std::memset(a, 0xEE, sizeof a);
    TezSetAlignedBytes(a, 7, 3); // one whole unit
    EXPECT_EQ(a[15], 7);
    EXPECT_EQ(a[16], 0xEE);
    TezZeroAlignedBytes(a, 40); // two units; the rest untouched
    EXPECT_EQ(a[31], 0);
    EXPECT_EQ(a[32], 0xEE);
    for (int i = 0; i < 64; ++i)
        b[i] = static_cast<uint8_t>(i);
    TezCopyAlignedBytes8(b, a, 12);
    EXPECT_EQ(a[7], 7);
    EXPECT_EQ(a[8], 0);
    TezCopyAlignedBytes4(b, a, 2);
    EXPECT_EQ(a[3], 3);
    TezCopyAlignedBytes16(b, a, 64);
    EXPECT_EQ(std::memcmp(a, b, 64), 0);
    std::memset(a, 0x40, sizeof a);
    TezOrAlignedBytes(b, a, 16);
    EXPECT_EQ(a[5], 0x45);
    EXPECT_EQ(a[15], 0x4F);
    EXPECT_EQ(a[16], 0x40);
}
