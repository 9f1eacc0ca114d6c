#include "core/String.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(TezString, DefaultAndEmptyStatesBothHaveLengthZero)
{
    TezString none;
    EXPECT_EQ(nullptr, static_cast<char const*>(none));
    EXPECT_EQ(0, none.Length());
    EXPECT_EQ(0, none.BufferSize());

    TezString empty("");
    EXPECT_NE(nullptr, static_cast<char const*>(empty));
    EXPECT_EQ(0, empty.Length());
    EXPECT_EQ(1, empty.BufferSize());

    TezString fromNull(static_cast<char const*>(nullptr));
    EXPECT_EQ(nullptr, static_cast<char const*>(fromNull));
    TezString copyOfNone(none);
    EXPECT_EQ(nullptr, static_cast<char const*>(copyOfNone));
}

TEST(TezString, ResizeAllocatesExactlyAndKeepsThePrefix)
{
    TezString s("abcdef");
    s.Resize(3);
    EXPECT_STREQ("abc", s);
    EXPECT_EQ(4, s.BufferSize());
    s.Resize(10);
    EXPECT_STREQ("abc", s);
    EXPECT_EQ(11, s.BufferSize());
}

TEST(TezString, AppendGrowsOnlyWhenTheResultDoesNotFit)
{
    TezString s;
    s.Resize(10);
    EXPECT_EQ(3, s.Append(TezString("abc")));
    EXPECT_EQ(11, s.BufferSize());
    EXPECT_EQ(4, s.Append('d'));
    EXPECT_EQ(11, s.BufferSize());
    EXPECT_EQ(4, s.Append(TezString()));
    s.Append(TezString("efghijk"));
    EXPECT_STREQ("abcdefghijk", s);
    EXPECT_EQ(12, s.BufferSize());
    s.Append(s); // appending itself
    EXPECT_STREQ("abcdefghijkabcdefghijk", s);
}

TEST(TezString, PrependAndInsert)
{
    TezString s("world");
    EXPECT_EQ(6, s.Prepend(' '));
    EXPECT_EQ(11, s.Prepend(TezString("hello")));
    EXPECT_STREQ("hello world", s);
    EXPECT_EQ(12, s.Insert(',', 5));
    EXPECT_STREQ("hello, world", s);
    s.Insert(TezString("big "), 7);
    EXPECT_STREQ("hello, big world", s);
    s.Insert(TezString("!"), 1000); // past the end appends
    EXPECT_STREQ("hello, big world!", s);
}

TEST(TezString, FormatMeasuresThenPrints)
{
    TezString s("old text that is long");
    s.Format("%d-%s-%.2f", 42, "x", 1.5);
    EXPECT_STREQ("42-x-1.50", s);
    EXPECT_EQ(10, s.BufferSize());
    std::string big(5000, 'q');
    s.Format("%s", big.c_str());
    EXPECT_EQ(5000, s.Length());
}

TEST(TezString, FindVariants)
{
    TezString s("abcabc");
    EXPECT_EQ(1, s.Find(TezString("bc")));
    EXPECT_EQ(4, s.Find(TezString("bc"), 2));
    EXPECT_EQ(-1, s.Find(TezString("zz")));
    EXPECT_EQ(2, s.Find('c'));
    EXPECT_EQ(5, s.Find('c', 3));
    EXPECT_EQ(-1, s.Find('c', 99));
    EXPECT_EQ(3, s.FindNoCase(TezString("ABC"), 1));
    EXPECT_EQ(5, s.ReverseFind('c'));
    EXPECT_EQ(5, s.ReverseFind('c', 2)); // the position argument has no effect
    EXPECT_EQ(-1, s.ReverseFind('z'));
    EXPECT_EQ(-1, TezString().Find('a'));
}

TEST(TezString, CompareIsUnsignedBytewise)
{
    EXPECT_EQ(0, TezString("abc").Compare(TezString("abc")));
    EXPECT_EQ(-1, TezString("abc").Compare(TezString("abd")));
    EXPECT_EQ(1, TezString("abcd").Compare(TezString("abc")));
    EXPECT_EQ(1, TezString("\xE9").Compare(TezString("z"))); // high bytes sort last
    EXPECT_EQ(0, TezString().Compare(TezString("")));
    EXPECT_EQ(0, TezString("HeLLo").CompareNoCase(TezString("hello")));
    EXPECT_TRUE(TezString("a") < TezString("b"));
    EXPECT_TRUE(TezString("b") >= TezString("b"));
    EXPECT_TRUE(TezString("ab") == "ab");
    EXPECT_STREQ("ab", TezString("a") + TezString("b"));
}

TEST(TezString, LeftRightMidGiveEmptyWhenAskedForTooMuch)
{
    TezString abc("abc");
    EXPECT_EQ(nullptr, static_cast<char const*>(abc.Left(5)));
    EXPECT_STREQ("ab", abc.Left(2));
    EXPECT_STREQ("abc", abc.Left(3));
    EXPECT_EQ(nullptr, static_cast<char const*>(abc.Right(4)));
    EXPECT_STREQ("bc", abc.Right(2));
    EXPECT_STREQ("bc", abc.Mid(1, 2));
    EXPECT_EQ(0, abc.Mid(2, 5).Length());
    EXPECT_EQ(nullptr, static_cast<char const*>(abc.Mid(2, 5)));
    EXPECT_STREQ("c", abc.Mid(2, 3));
    EXPECT_EQ(nullptr, static_cast<char const*>(abc.Mid(3, 1)));
}

TEST(TezString, TrimAndWhitespace)
{
    TezString blanks("   \t\n ");
    blanks.Trim();
    EXPECT_EQ(nullptr, static_cast<char const*>(blanks));
    EXPECT_EQ(0, blanks.BufferSize());

    TezString padded("  a b \r\n");
    padded.Trim();
    EXPECT_STREQ("a b", padded);

    TezString custom("xxhixx");
    custom.Trim(TezString("x"));
    EXPECT_STREQ("hi", custom);

    TezString spaced("  a b\tc \xA0"
                     "d");
    spaced.CollapseWhitespace();
    EXPECT_STREQ("abc\xA0"
                 "d",
                 spaced); // high-bit bytes are never whitespace
}

TEST(TezString, SplitHasStrtokSemantics)
{
    auto parts = TezString(",a,,b,").Split(TezString(","));
    ASSERT_EQ(2u, parts.size());
    EXPECT_STREQ("a", parts[0]);
    EXPECT_STREQ("b", parts[1]);
    EXPECT_TRUE(TezString("").Split(TezString(",")).empty());
    EXPECT_TRUE(TezString(",,,").Split(TezString(",")).empty());
    auto mixed = TezString("x y;z").Split(TezString(" ;"));
    ASSERT_EQ(3u, mixed.size());
    EXPECT_STREQ("z", mixed[2]);
}

TEST(TezString, CaseAndReverse)
{
    TezString s("Hello");
    s.MakeUpper();
    EXPECT_STREQ("HELLO", s);
    s.MakeLower();
    EXPECT_STREQ("hello", s);
    s.Reverse();
    EXPECT_STREQ("olleh", s);
    TezString none;
    none.MakeUpper();
    none.Reverse();
    EXPECT_EQ(0, none.Length());
}

TEST(TezString, ToSingleByteTruncatesAndTerminates)
{
    char buffer[4] = {'x', 'x', 'x', 'x'};
    TezString("abcdef").ToSingleByte(4, buffer);
    EXPECT_STREQ("abc", buffer);
    TezString().ToSingleByte(4, buffer);
    EXPECT_STREQ("", buffer);
    buffer[0] = 'q';
    TezString("zz").ToSingleByte(0, buffer);
    EXPECT_EQ('q', buffer[0]);
    TezString("zz").ToSingleByte(4, nullptr); // no fault
}

TEST(TezString, ConvertRules)
{
    int i = 7;
    EXPECT_TRUE(TezString("12abc").Convert(i));
    EXPECT_EQ(12, i);
    EXPECT_TRUE(TezString("  -3").Convert(i));
    EXPECT_EQ(-3, i);
    i = 7;
    EXPECT_FALSE(TezString("   ").Convert(i));
    EXPECT_FALSE(TezString("abc").Convert(i));
    EXPECT_FALSE(TezString("99999999999999").Convert(i));
    EXPECT_FALSE(TezString().Convert(i));
    EXPECT_EQ(7, i);

    unsigned u = 0;
    EXPECT_TRUE(TezString("-5").Convert(u));
    EXPECT_EQ(5u, u);

    float f = 0;
    EXPECT_TRUE(TezString("2.5e1").Convert(f));
    EXPECT_FLOAT_EQ(25.0f, f);
    EXPECT_FALSE(TezString("1e99").Convert(f));

    double d = 0;
    EXPECT_TRUE(TezString("0.1").Convert(d));
    EXPECT_EQ(static_cast<double>(0.1f), d);
    EXPECT_NE(0.1, d);
}

TEST(TezString, PythonizeRoundTrip)
{
    TezString path("C:\\a");
    EXPECT_STREQ("r'C:\\a'", path.Pythonize());
    EXPECT_STREQ("C:\\a", path.Pythonize().DePythonize());
    EXPECT_STREQ("r'", TezString("r'").DePythonize());
    EXPECT_STREQ("", TezString("r''").DePythonize());
    EXPECT_STREQ("plain", TezString("plain").DePythonize());
}

TEST(TezString, WideConstruction)
{
    TezString s(L"wide text");
    EXPECT_STREQ("wide text", s);
    TezString none(static_cast<wchar_t const*>(nullptr));
    EXPECT_EQ(nullptr, static_cast<char const*>(none));
}
