#include "volume/PackedPool.h"
#include "core/Archive.h"
#include "core/Compress.h"
#include "platform/DeviceMemory.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Blocks of 16 chunks of 64 bytes: runs of a few values, some constant, some
// noise that no stage can shrink.
Bytes RandomBlock(std::mt19937& random, int kind)
{
    Bytes raw(16 * 64);
    if (kind == 0) {
        std::fill(raw.begin(), raw.end(), static_cast<uint8_t>(random() % 3));
    } else if (kind == 1) {
        for (uint8_t& value : raw)
            value = static_cast<uint8_t>(random());
    } else {
        uint8_t value = 0;
        for (size_t i = 0; i < raw.size(); ++i) {
            if (random() % 9 == 0)
                value = static_cast<uint8_t>(100 + random() % (kind == 2 ? 4 : 40));
            raw[i] = value;
        }
    }
    return raw;
}

std::vector<Bytes> Fill(TezPackedPool& pool, int count, uint32_t seed)
{
    std::mt19937 random(seed);
    std::vector<Bytes> contents;
    for (int i = 0; i < count; ++i) {
        contents.push_back(RandomBlock(random, i % 4));
        EXPECT_TRUE(pool.Push(TezPackedBlock::CreateCopy(16, 64, contents.back().data())));
    }
    return contents;
}

void ExpectContents(TezPackedPool& pool, std::vector<Bytes> const& contents)
{
    ASSERT_EQ(pool.GetCount(), contents.size());
    for (size_t i = 0; i < contents.size(); ++i) {
        Bytes copy(contents[i].size());
        pool.RetrieveBlock(i)->CopyData(copy.data());
        ASSERT_EQ(copy, contents[i]) << "block " << i;
    }
}

void RoundTrip(std::function<void(TezArchive&)> const& save, std::function<void(TezArchive&)> const& load)
{
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        TezRef<TezArchive> out = TezArchive::Open(file, TezArchive::Write);
        save(*out);
        out->Flush();
    }
    std::rewind(file);
    {
        TezRef<TezArchive> in = TezArchive::Open(file, TezArchive::Read);
        load(*in);
    }
    std::fclose(file);
}

} // namespace

TEST(PackedPool, BlocksOfThePoolsShape)
{
    auto pool = TezPackedPool::Create(16, 64);
    EXPECT_EQ(pool->GetBlockSizeBytes(), 1024u);
    EXPECT_TRUE(pool->Push(TezPackedBlock::Create(16, 64, 3)));
    EXPECT_FALSE(pool->Push(TezPackedBlock::Create(64, 16, 3)));
    EXPECT_FALSE(pool->Push(nullptr));
    EXPECT_EQ(pool->GetCount(), 1u);
    pool->Resize(5, true);
    EXPECT_EQ(pool->GetCount(), 5u);
    EXPECT_FALSE(pool->RetrieveBlock(4)->HasData());
    EXPECT_TRUE(pool->RetrieveBlock(4)->GetDisposeOnPack());
    pool->Resize(2, false);
    EXPECT_EQ(pool->GetCount(), 2u);

    // A column of bytes keeps its shape as asked although it is stored inverted.
    auto column = TezPackedPool::Create(300, 1);
    EXPECT_TRUE(column->Push(TezPackedBlock::Create(300, 1, 0)));
}

TEST(PackedPool, ParallelPackAndUnpack)
{
    auto pool = TezPackedPool::Create(16, 64);
    std::vector<Bytes> contents = Fill(*pool, 403, 11);
    pool->Push(TezPackedBlock::CreateEmpty(16, 64, false));
    contents.emplace_back();
    EXPECT_EQ(pool->GetUnpackCount(), 403u);
    pool->PackAll();
    EXPECT_EQ(pool->GetUnpackCount(), 0u);
    for (size_t i = 0; i < 403; ++i)
        ASSERT_TRUE(pool->RetrieveBlock(i)->IsPacked()) << i;

    pool->UnpackSelected(100, 50);
    EXPECT_EQ(pool->GetUnpackCount(), 50u);
    EXPECT_TRUE(pool->RetrieveBlock(99)->IsPacked());
    EXPECT_FALSE(pool->RetrieveBlock(149)->IsPacked());
    EXPECT_TRUE(pool->RetrieveBlock(150)->IsPacked());

    pool->UnpackRange(0, 100000, 2.0); // a limit never reached: the whole pool
    EXPECT_EQ(pool->GetUnpackCount(), 403u);
    pool->PackAll();
    pool->UnpackRange(0, 1000, 0.0); // stops at the first look at the load, if it comes
    contents.pop_back();
    for (size_t i = 0; i < contents.size(); ++i)
        ASSERT_EQ(Bytes(pool->RetrieveBlock(i)->Get().begin(), pool->RetrieveBlock(i)->Get().end()), contents[i]);
}

TEST(PackedPool, CompressRoundTrip)
{
    auto pool = TezPackedPool::Create(16, 64);
    std::vector<Bytes> contents = Fill(*pool, 64, 5);
    pool->Compress();
    EXPECT_TRUE(pool->IsCompressed());
    EXPECT_GT(pool->GetPackedSize(), 0u);
    EXPECT_EQ(pool->GetUnpackCount(), 0u);
    TezRef<TezPackedBlock> block = pool->RetrieveBlock(1);
    EXPECT_FALSE(pool->IsCompressed());
    EXPECT_TRUE(block->IsPacked()); // expanding gives packed blocks, not raw
    ExpectContents(*pool, contents);

    // Deep copy against shared assignment.
    pool->Compress();
    auto copy = TezPackedPool::Create(*pool);
    auto shared = TezPackedPool::Create(1, 1);
    *shared = *pool;
    EXPECT_NE(copy->RetrieveBlock(3).Get(), pool->RetrieveBlock(3).Get());
    EXPECT_EQ(shared->RetrieveBlock(3).Get(), pool->RetrieveBlock(3).Get());
    ExpectContents(*copy, contents);
}

TEST(PackedPool, NothingToCompress)
{
    auto pool = TezPackedPool::Create(8, 8);
    pool->Resize(10, false);
    pool->Compress();
    EXPECT_FALSE(pool->IsCompressed());
    EXPECT_EQ(pool->GetCompressedSize(), 0u);
    // Disposable content goes at the pack, so there is nothing either.
    pool->Push(TezPackedBlock::Create(8, 8, 9));
    pool->RetrieveBlock(10)->SetDisposeOnPack(true);
    pool->Compress();
    EXPECT_FALSE(pool->IsCompressed());
    EXPECT_FALSE(pool->RetrieveBlock(10)->HasData());
    EXPECT_TRUE(pool->RetrieveBlock(42).IsNull());
}

TEST(PackedPool, SaveAndRead)
{
    auto pool = TezPackedPool::Create(16, 64);
    std::vector<Bytes> contents = Fill(*pool, 40, 3);
    pool->RetrieveBlock(7)->SetDisposeOnPack(true);
    pool->RetrieveBlock(8)->SetValue(uint64_t(5), 1); // maximum 1 at index 0 from now on
    contents[8][5] = 1;
    auto loaded = TezPackedPool::Create(1, 1);
    RoundTrip([&](TezArchive& a) { pool->Save(a); }, [&](TezArchive& a) { loaded->Read(a); });
    EXPECT_TRUE(pool->IsCompressed());
    EXPECT_TRUE(loaded->IsCompressed());
    EXPECT_EQ(loaded->GetNumChunks(), 16);
    EXPECT_EQ(loaded->GetChunkSize(), 64);
    EXPECT_EQ(loaded->GetPackedSize(), pool->GetPackedSize());
    contents[7].clear(); // packed away as disposable
    for (size_t i = 0; i < contents.size(); ++i) {
        TezRef<TezPackedBlock> block = loaded->RetrieveBlock(i);
        TezRef<TezPackedBlock> original = pool->RetrieveBlock(i);
        EXPECT_EQ(block->GetDisposeOnPack(), i == 7);
        EXPECT_EQ(block->GetMaxValue(), original->GetMaxValue()) << i;
        EXPECT_EQ(block->GetMaxIndex(), original->GetMaxIndex()) << i;
        if (contents[i].empty()) {
            EXPECT_FALSE(block->HasData());
            continue;
        }
        ASSERT_TRUE(block->IsPacked());
        ASSERT_EQ(Bytes(block->Get().begin(), block->Get().end()), contents[i]) << i;
    }
    EXPECT_EQ(loaded->RetrieveBlock(8)->GetMaxValue(), 1);

    // An empty pool is saved and read without a stream.
    auto empty = TezPackedPool::Create(4, 4);
    empty->Resize(3, false);
    RoundTrip([&](TezArchive& a) { empty->Save(a); }, [&](TezArchive& a) { loaded->Read(a); });
    EXPECT_FALSE(loaded->IsCompressed());
    EXPECT_EQ(loaded->GetCount(), 3u);
}

TEST(PackedPool, DamagedArchivesAreRefused)
{
    // Sections stated by hand; the stream, where there is one, holds 4096 zeros.
    auto write = [](uint64_t numChunks, uint64_t packedSize, uint64_t numBlocks, bool withStream) {
        return [=](TezArchive& a) {
            a.WriteStartSection("pool");
            a.WriteSizet("numChunks", numChunks);
            a.WriteSizet("chunkSize", 64);
            a.WriteSizet("packedSize", packedSize);
            a.WriteSizet("numBlocks", numBlocks);
            a.WriteBool("isCompressed", withStream);
            if (withStream) {
                std::vector<uint8_t> frame;
                Bytes zeros(4096, 0);
                TezCompress::Compress(zeros.data(), zeros.size(), frame, 1);
                a.WriteCompressedBinary("", frame.data(), zeros.size(), frame.size());
            }
            a.WriteEndSection();
        };
    };
    auto loaded = TezPackedPool::Create(1, 1);
    auto reads = [&](TezArchive& a) { loaded->Read(a); };
    auto refused = [&](TezArchive& a) { EXPECT_THROW(loaded->Read(a), std::runtime_error); };
    // A block count no memory holds.
    RoundTrip(write(16, 0, uint64_t(1) << 50, false), refused);
    // A shape no block can have.
    RoundTrip(write(uint64_t(1) << 40, 0, 1, false), refused);
    // A stream far too small for the packed size it claims.
    RoundTrip(write(16, uint64_t(1) << 40, 4, true), refused);
    // Lengths (all zero here) that do not add up to the packed size: refused
    // when the pool expands.
    RoundTrip(write(16, 4000, 4, true), reads);
    EXPECT_THROW(loaded->RetrieveBlock(0), std::runtime_error);
    // A truncated file.
    RoundTrip(
        [&](TezArchive& a) {
            a.WriteStartSection("pool");
            a.WriteSizet("numChunks", 16);
        },
        refused);
}

TEST(PackedPool, DeviceCopy)
{
    auto pool = TezPackedPool::Create(16, 64);
    std::vector<Bytes> contents = Fill(*pool, 10, 4);
    pool->Push(TezPackedBlock::CreateEmpty(16, 64, false));
    pool->PackAll();
    EXPECT_FALSE(pool->isValidCUDA());
    void* device = pool->EstablishCUDA(0, 1000);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(pool->GetCUDALast(), 10u);
    EXPECT_EQ(pool->EstablishCUDA(0, 10), device);
    pool->WriteToCUDA();
    EXPECT_TRUE(pool->isValidCUDA());
    Bytes linear(11 * 1024);
    ASSERT_EQ(TezDeviceMemcpy(linear.data(), device, linear.size(), TezDeviceDeviceToHost), 0);
    for (size_t i = 0; i < 10; ++i)
        ASSERT_EQ(Bytes(linear.begin() + i * 1024, linear.begin() + (i + 1) * 1024), contents[i]) << i;
    EXPECT_EQ(linear[10 * 1024 + 5], 0); // a block without data reads as zeros

    // A device change comes back into the blocks.
    linear[3 * 1024 + 7] = 250;
    ASSERT_EQ(TezDeviceMemcpy(device, linear.data(), linear.size(), TezDeviceHostToDevice), 0);
    pool->ReadFromCUDA();
    EXPECT_EQ(pool->RetrieveBlock(3)->GetValue(uint64_t(3 * 0 + 7)), 250);
    EXPECT_EQ(pool->RetrieveBlock(3)->GetMaxValue(), 250);

    // A range from a later block keeps the absolute layout.
    pool->MarkDirty();
    uint8_t* ranged = static_cast<uint8_t*>(pool->EstablishCUDA(4, 5));
    pool->WriteToCUDA();
    Bytes block(1024);
    ASSERT_EQ(TezDeviceMemcpy(block.data(), ranged + 5 * 1024, 1024, TezDeviceDeviceToHost), 0);
    EXPECT_EQ(block, contents[5]);
    pool->FreeCUDA();
    EXPECT_EQ(pool->GetCUDA(), nullptr);
    EXPECT_TRUE(pool->isDirty());
}
