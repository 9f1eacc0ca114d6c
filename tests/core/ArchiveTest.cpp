#include "core/Archive.h"
#include "core/Events.h"

#include "core/Compress.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// Writes through an archive on a temporary file and hands back its bytes.
template <class Fn>
Bytes Write(Fn&& fill, int level = 3)
{
    FILE* file = std::tmpfile();
    {
        TezRef<TezArchive> archive = TezArchive::Open(file, TezArchive::Write);
        archive->SetCompressLevel(level);
        fill(*archive);
        archive->Flush();
    }
    Bytes bytes;
    std::rewind(file);
    int c;
    while ((c = std::fgetc(file)) != EOF)
        bytes.push_back(static_cast<unsigned char>(c));
    std::fclose(file);
    return bytes;
}

// An archive reading the given bytes from a temporary file.
struct Reader
{
    explicit Reader(Bytes const& bytes)
    {
        file = std::tmpfile();
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::rewind(file);
        archive = TezArchive::Open(file, TezArchive::Read);
    }
    ~Reader()
    {
        archive = nullptr;
        std::fclose(file);
    }
    TezArchive* operator->() { return archive.Get(); }
    FILE* file;
    TezRef<TezArchive> archive;
};

Bytes Pattern(size_t n)
{
    Bytes bytes(n);
    for (size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<unsigned char>((i * 7) % 13);
    return bytes;
}

std::string ErrorOf(std::function<void()> const& fn)
{
    try {
        fn();
    } catch (std::runtime_error const& e) {
        return e.what();
    }
    return "no error";
}

} // namespace

TEST(TezArchiveFormat, ScalarEntriesHaveTheirExactBytes)
{
    EXPECT_EQ((Bytes{0x03, 'b', 'p', 'p', 0x04, 0x08, 0x00, 0x00, 0x00}),
              Write([](TezArchive& a) { a.WriteInt("bpp", 8); }));
    EXPECT_EQ((Bytes{0x01, 'b', 0x01, 0x01}), Write([](TezArchive& a) { a.WriteBool("b", true); }));
    EXPECT_EQ((Bytes{0x01, 's', 0x08, 0x2A, 0, 0, 0, 0, 0, 0, 0}), Write([](TezArchive& a) { a.WriteSizet("s", 42); }));
    EXPECT_EQ((Bytes{0x00, 0x02, 'h', 'i'}), Write([](TezArchive& a) { a.WriteString("", "hi"); }));
    EXPECT_EQ((Bytes{0x01, 'n', 0x00}),
              Write([](TezArchive& a) { a.WriteString("n", static_cast<char const*>(nullptr)); }));

    Bytes section = Write([](TezArchive& a) {
        a.WriteStartSection("My Object");
        a.WriteEndSection();
    });
    Bytes expected{12};
    for (char c : std::string("sectionStart"))
        expected.push_back(static_cast<unsigned char>(c));
    expected.push_back(8);
    for (char c : std::string("MyObject")) // whitespace collapses away
        expected.push_back(static_cast<unsigned char>(c));
    expected.push_back(10);
    for (char c : std::string("sectionEnd"))
        expected.push_back(static_cast<unsigned char>(c));
    expected.push_back(3);
    for (char c : std::string("end"))
        expected.push_back(static_cast<unsigned char>(c));
    EXPECT_EQ(expected, section);
}

TEST(TezArchiveFormat, SizeCodesAndTheCompressionThreshold)
{
    Bytes small = Pattern(249), edge = Pattern(250), big = Pattern(65536);

    Bytes raw249 = Write([&](TezArchive& a) { a.WriteBinary("", small.data(), small.size()); });
    ASSERT_EQ(2u + 249u, raw249.size());
    EXPECT_EQ(249, raw249[1]);

    Bytes packed250 = Write([&](TezArchive& a) { a.WriteBinary("", edge.data(), edge.size()); });
    EXPECT_EQ(253, packed250[1]);
    EXPECT_EQ(250, packed250[2] | (packed250[3] << 8));
    size_t frameSize = packed250[4];
    EXPECT_EQ(packed250.size(), 5 + frameSize);

    Bytes level0 = Write([&](TezArchive& a) { a.WriteBinary("", edge.data(), edge.size()); }, 0);
    EXPECT_EQ((Bytes{0x00, 0xFA, 250, 0}), Bytes(level0.begin(), level0.begin() + 4));
    EXPECT_EQ(4u + 250u, level0.size());

    Bytes raw64k = Write([&](TezArchive& a) { a.WriteBinary("", big.data(), big.size()); }, 0);
    EXPECT_EQ((Bytes{0x00, 0xFB, 0x00, 0x00, 0x01, 0x00}), Bytes(raw64k.begin(), raw64k.begin() + 6));

    // Readers at any level read both forms.
    for (Bytes const* file : {&packed250, &level0}) {
        Reader reader(*file);
        reader->SetCompressLevel(0);
        Bytes back(250);
        reader->ReadBinary(back.data(), 250);
        EXPECT_EQ(edge, back);
    }

    Bytes preCompressed = Write([&](TezArchive& a) {
        std::vector<uint8_t> frame;
        TezCompress::Compress(small.data(), 100, frame, 1);
        a.WriteCompressedBinary("z", frame.data(), 100, frame.size());
    });
    EXPECT_EQ(253, preCompressed[2]); // the flag form, even for a small size
    Reader reader(preCompressed);
    Bytes back(100);
    reader->ReadBinary(back.data(), 100);
    EXPECT_EQ(Bytes(small.begin(), small.begin() + 100), back);
}

TEST(TezArchiveReading, RoundTripOfEveryKindAcrossBlocks)
{
    Bytes blob = Pattern(700000);
    std::string longText(5000, 'x');
    Bytes file = Write([&](TezArchive& a) {
        a.WriteStartSection("Thing");
        for (int i = 0; i < 20000; ++i)
            a.WriteInt("i", i);
        a.WriteBool("flag", true);
        a.WriteUnsigned("u", 4000000000u);
        a.WriteLong("l", -7);
        a.WriteUnsignedLong("ul", 7);
        a.WriteSizet("size", 1ull << 40);
        a.WriteFloat("f", 1.5f);
        a.WriteDouble("d", -2.25);
        a.WriteString("text", TezString(longText.c_str()));
        a.WriteBinary("blob", blob.data(), blob.size());
        a.WriteEndSection();
    });
    Reader r(file);
    EXPECT_STREQ("sectionStart", r->ReadTag());
    EXPECT_STREQ("Thing", r->ReadStartSection(0));
    for (int i = 0; i < 20000; ++i)
        ASSERT_EQ(i, r->ReadInt());
    EXPECT_TRUE(r->ReadBool());
    EXPECT_EQ(4000000000u, r->ReadUnsigned());
    EXPECT_EQ(-7, r->ReadLong());
    EXPECT_EQ(7u, r->ReadUnsignedLong());
    EXPECT_EQ(1ull << 40, r->ReadSizet());
    EXPECT_EQ(1.5f, r->ReadFloat());
    EXPECT_EQ(-2.25, r->ReadDouble());
    EXPECT_STREQ(longText.c_str(), r->ReadString());
    Bytes back(blob.size());
    EXPECT_STREQ("blob", r->ReadTag());
    r->ReadBinary(back.data(), back.size());
    EXPECT_EQ(blob, back);
    r->ReadEndSection();
    // Past the end of a file that ends inside a block.
    EXPECT_EQ("Unexpected end of file reading file.", ErrorOf([&] { r->ReadTag(); }));
}

TEST(TezArchiveReading, SizeRulesAndTheirMessage)
{
    Bytes file = Write([](TezArchive& a) {
        a.WriteSizet("wide", 5);
        a.WriteInt("narrow", -1);
    });
    Reader r(file);
    EXPECT_EQ("Read size incorrect in TezArchive: expected:4  actual:8  tag <wide>\n", ErrorOf([&] { r->ReadInt(); }));

    Reader ok(file);
    EXPECT_EQ(5u, ok->ReadSizet());
    EXPECT_EQ(0xFFFFFFFFull, ok->ReadSizet()); // shorter values zero-extend
}

TEST(TezArchiveReading, LoadLoopSkipsUnknownTagsAndSectionsAtAnyDepth)
{
    Bytes file = Write([](TezArchive& a) {
        a.WriteStartSection("Outer");
        a.WriteInt("known", 1);
        a.WriteDouble("unknownDouble", 3.0);
        a.WriteStartSection("Nested");
        a.WriteStartSection("Deeper");
        a.WriteString("deep", "value");
        a.WriteEndSection();
        a.WriteInt("known", 99); // inside the skipped section: must not be seen
        a.WriteEndSection();
        a.WriteInt("KNOWN", 2);
        a.WriteEndSection();
        a.WriteInt("after", 3);
    });
    Reader r(file);
    r->ReadTag();
    EXPECT_STREQ("Outer", r->ReadStartSection(0));
    std::vector<int> seen;
    for (;;) {
        TezString tag = r->ReadTag();
        if (tag.CompareNoCase(TezString("known")) == 0)
            seen.push_back(r->ReadInt());
        else if (tag.CompareNoCase(TezString("sectionStart")) == 0)
            EXPECT_EQ(0, r->ReadStartSection(1).Length());
        else if (tag.CompareNoCase(TezString("sectionEnd")) == 0) {
            r->ReadEndSection();
            break;
        } else
            r->SkipUnknownTag();
    }
    EXPECT_EQ((std::vector<int>{1, 2}), seen);
    EXPECT_EQ(3, r->ReadInt());
}

TEST(TezArchiveReading, SkippingACompressedEntryLeavesItsTagPending)
{
    Bytes big = Pattern(1000);
    Bytes file = Write([&](TezArchive& a) {
        a.WriteBinary("packed", big.data(), big.size());
        a.WriteInt("next", 5);
    });
    Reader r(file);
    EXPECT_STREQ("packed", r->ReadTag());
    r->SkipUnknownTag();
    EXPECT_STREQ("packed", r->ReadTag()); // seen once more
    // Reads go by position: the pending tag stands in for the next entry's.
    EXPECT_STREQ("next", r->ReadString());

    Bytes plain = Write([&](TezArchive& a) {
        a.WriteInt("small", 4);
        a.WriteInt("next", 5);
    });
    Reader p(plain);
    EXPECT_STREQ("small", p->ReadTag());
    p->SkipUnknownTag();
    EXPECT_STREQ("next", p->ReadTag());
    EXPECT_EQ(5, p->ReadInt());
}

TEST(TezArchiveReading, ObjectRecords)
{
    TezRef<TezIdentifiableObject> none;
    Bytes file = Write([&](TezArchive& a) {
        a.WriteObject("first", none);
        a.WriteObject("second", none);
    });
    // Null: a zero byte, id 0, empty type name.
    Bytes expected{5, 'f', 'i', 'r', 's', 't', 0, 8, 'O', 'b', 'j', 'e', 'c', 't', 'I', 'd', 4, 0, 0, 0, 0};
    EXPECT_EQ(expected, Bytes(file.begin(), file.begin() + expected.size()));

    Reader nulls(file);
    EXPECT_FALSE(nulls->ReadObject());
    EXPECT_FALSE(nulls->ReadObject());

    // Records of one id give one object; unknown types give null; records
    // without the zero marker are accepted.
    Bytes records = Write([](TezArchive& a) {
        for (int i = 0; i < 2; ++i) {
            a.WriteString("obj", "");
            a.WriteUnsignedLong("ObjectId", 77);
            a.WriteString("TypeName", "No Such Type");
        }
    });
    Reader unknown(records);
    EXPECT_FALSE(unknown->ReadObject());
    EXPECT_FALSE(unknown->ReadObject());
}

namespace {

class ArchiveItem : public TezIdentifiableObject
{
    TEZ_TYPIFIED_CLASS(ArchiveItem)
public:
    static TezRef<ArchiveItem> Create() { return TezRef<ArchiveItem>(new ArchiveItem()); }
};

TEZ_TYPIFIED_IMPL(ArchiveItem, "Archive Test Item")

} // namespace

// Numbered in order, records of the same objects give the same bytes
// whatever ids the process handed out, and still tell the objects apart.
TEST(TezArchiveReading, ObjectRecordsNumberedInOrder)
{
    auto records = [](bool inOrder) {
        TezRef<ArchiveItem> first = ArchiveItem::Create(), second = ArchiveItem::Create();
        return Write([&](TezArchive& a) {
            a.SetNumberObjectsInOrder(inOrder);
            a.WriteObject("o", second);
            a.WriteObject("o", first);
            a.WriteObject("o", second);
        });
    };
    EXPECT_NE(records(false), records(false)) << "the objects' own ids";
    Bytes const file = records(true);
    EXPECT_EQ(file, records(true));
    Reader reader(file);
    TezRef<TezIdentifiableObject> const a = reader->ReadObject(), b = reader->ReadObject(), c = reader->ReadObject();
    ASSERT_TRUE(a && b);
    EXPECT_NE(a, b);
    EXPECT_EQ(a, c);
}

TEST(TezArchiveReading, PositionsAndCompressedReads)
{
    Bytes raw = Pattern(300);
    Bytes file = Write(
        [&](TezArchive& a) {
            a.WriteInt("a", 1);
            a.WriteBinary("raw", raw.data(), raw.size());
        },
        0);
    Reader r(file);
    int64_t start = r->GetPosition();
    EXPECT_EQ(1, r->ReadInt());
    int64_t second = r->GetPosition();
    std::vector<unsigned char> frame;
    r->ReadCompressedBinary(frame); // raw on file: compressed for the caller
    Bytes back(raw.size());
    TezCompress::Uncompress(frame.data(), frame.size(), back.data(), back.size());
    EXPECT_EQ(raw, back);
    r->SetPosition(second);
    std::vector<unsigned char, tbb::cache_aligned_allocator<unsigned char>> aligned;
    r->ReadCompressedBinary(aligned);
    EXPECT_EQ(frame.size(), aligned.size());
    r->SetPosition(start);
    EXPECT_EQ(1, r->ReadInt());
}

TEST(TezArchiveHostile, EmptyAndTruncatedFiles)
{
    Reader empty(Bytes{});
    EXPECT_EQ(0, empty->ReadTag().Length());
    EXPECT_THROW(empty->SkipUnknownTag(), std::runtime_error); // no endless skipping at the end

    Bytes file = Write([](TezArchive& a) {
        a.WriteStartSection("S");
        a.WriteString("text", "some text here");
        a.WriteEndSection();
    });
    for (size_t cut = 1; cut < file.size(); ++cut) {
        Reader r(Bytes(file.begin(), file.begin() + cut));
        EXPECT_THROW(
            {
                r->ReadTag();
                r->ReadStartSection(1);
            },
            std::runtime_error)
            << "cut at " << cut;
    }
}

TEST(TezArchiveHostile, LiesAboutSizesAreRefusedWithoutHugeAllocations)
{
    // A string claiming 2^31 - 1 bytes in a tiny file.
    Bytes bigString{0x01, 't', 0xFB, 0xFF, 0xFF, 0xFF, 0x7F, 'a'};
    Reader s(bigString);
    EXPECT_EQ("Unexpected end of file reading file.", ErrorOf([&] { s->ReadString(); }));

    // A size code with the 8-byte form beyond any int.
    Bytes huge{0x01, 't', 0xFC, 0, 0, 0, 0, 1, 0, 0, 0};
    Reader h(huge);
    EXPECT_THROW(h->ReadString(), std::runtime_error);

    // A compressed flag over garbage.
    Bytes garbage{0x01, 't', 0xFD, 0x00, 0x10, 0x08, 0x22, 0x04, 0x00, 0x04, 0x00, 1, 2, 3, 4, 5, 6, 7, 8};
    Reader g(garbage);
    Bytes dest(4096);
    EXPECT_THROW(g->ReadBinary(dest.data(), dest.size()), std::runtime_error);

    // A compressed payload claiming far more than DEFLATE can give.
    Bytes bomb{0x01, 't', 0xFF, 0, 0, 0, 0, 0, 1, 0, 0, 0x04, 0x22, 1, 0, 1, 0, 0, 0};
    Reader b(bomb);
    EXPECT_THROW(b->ReadString(), std::runtime_error);
}

TEST(TezArchiveHostile, AMillionNestedSectionsAreSkippedWithoutRecursion)
{
    int const depth = 1000000;
    Bytes file = Write(
        [&](TezArchive& a) {
            for (int i = 0; i < depth; ++i)
                a.WriteStartSection("n");
            for (int i = 0; i < depth; ++i)
                a.WriteEndSection();
            a.WriteInt("after", 1);
        },
        0);
    Reader r(file);
    r->ReadTag();
    r->ReadStartSection(1);
    EXPECT_EQ(1, r->ReadInt());

    // The same, cut short: a clean error, not a crash or a hang.
    Reader cut(Bytes(file.begin(), file.begin() + static_cast<long>(file.size() / 2)));
    cut->ReadTag();
    EXPECT_THROW(cut->ReadStartSection(1), std::runtime_error);
}

TEST(TezArchive, OpenByPathAndFileOrMemoryHelpers)
{
    EXPECT_FALSE(TezArchive::Open("/no/such/dir/file.mvne", TezArchive::Read));
    EXPECT_FALSE(TezArchive::Open("/no/such/dir/file.mvne", TezArchive::Write));
    char path[] = "/tmp/tez_archive_XXXXXX";
    close(mkstemp(path));
    {
        TezRef<TezArchive> out = TezArchive::Open(path, TezArchive::Write);
        ASSERT_TRUE(out);
        out->WriteDouble("pi", 3.14159);
    } // the owned file is flushed and closed
    {
        TezRef<TezArchive> in = TezArchive::Open(path, TezArchive::Read);
        EXPECT_DOUBLE_EQ(3.14159, in->ReadDouble());
    }
    std::remove(path);

    std::vector<unsigned char> memory;
    int values[3] = {1, 2, 3};
    TezWrite(values, sizeof(int), 3, nullptr, &memory);
    int back[3] = {};
    unsigned char* cursor = memory.data();
    TezRead(back, sizeof(int), 3, nullptr, &cursor);
    EXPECT_EQ(memory.data() + sizeof values, cursor);
    EXPECT_EQ(0, std::memcmp(values, back, sizeof values));
}
