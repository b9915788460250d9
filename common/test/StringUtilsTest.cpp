// StringUtilsTest.cpp
#include "StringUtils.h"

#include <gtest/gtest.h>

using zor::StringUtils;

TEST(StringUtilsSplit, DropsEmptyPiecesAndAppendsToBothContainers) {
    std::vector<std::string> vec;
    StringUtils::Split("a,b,,c,", ',', vec);
    StringUtils::Split(",,", ',', vec);
    StringUtils::Split("", ',', vec);
    StringUtils::Split(",d", ',', vec);  // a second call appends
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c", "d"}), vec);

    std::list<std::string> lst{"keep"};
    StringUtils::Split(std::string("a b\t\tc \0x", 9), std::set<char>{' ', '\t'}, lst);
    EXPECT_EQ((std::list<std::string>{"keep", "a", "b", "c", std::string("\0x", 2)}), lst);
    StringUtils::Split("abc", std::set<char>{}, lst);  // no separator: the whole text is one piece
    EXPECT_EQ("abc", lst.back());
}

TEST(StringUtilsTrunc, CutsAtTheLastOccurrenceOrClears) {
    // text, separator, suffix, prefix; a text without the separator clears the output.
    const char* const table[][4] = {
        {"dir/file.tar.gz", ".", ".gz", "dir/file.tar"}, {"/x", "/", "/x", ""}, {"abc", ".", "", ""}};
    for (const auto& row : table) {
        std::string out = "stale";
        StringUtils::TruncSuffix(row[0], out, row[1][0]);
        EXPECT_EQ(row[2], out) << row[0];
        out = "stale";
        StringUtils::TruncPrefix(row[0], out, row[1][0]);
        EXPECT_EQ(row[3], out) << row[0];
    }
    // The suffix is read as NUL-terminated text; the same object may be input and output.
    std::string out;
    StringUtils::TruncSuffix(std::string("a.b\0c", 5), out, '.');
    EXPECT_EQ(".b", out);
    std::string self = "x.y.z";
    StringUtils::TruncSuffix(self, self, '.');
    EXPECT_EQ(".z", self);
    self = "x.y.z";
    StringUtils::TruncPrefix(self, self, '.');
    EXPECT_EQ("x.y", self);
}

TEST(StringUtilsTests, PrefixSuffixContainAndReplace) {
    EXPECT_EQ(1, StringUtils::IsBeginStr("abc", ""));
    EXPECT_EQ(1, StringUtils::IsEndStr("abc", ""));
    EXPECT_EQ(0, StringUtils::IsBeginStr("ab", "abc"));
    EXPECT_EQ(0, StringUtils::IsBeginStr("abc", "AB"));
    EXPECT_EQ(1, StringUtils::IsEndStr("abc", "bc"));
    EXPECT_EQ(0, StringUtils::IsEndStr("bc", "abc"));
    EXPECT_EQ(0, StringUtils::IsContain("abc", std::set<char>{}));
    EXPECT_EQ(1, StringUtils::IsContain("a\\b", std::set<char>{'/', '\\'}));
    EXPECT_EQ(0, StringUtils::IsContain("ab", std::set<char>{'/', '\\'}));
    std::string text = "a\\b\\c";
    StringUtils::Replace(text, '\\', '/');
    EXPECT_EQ("a/b/c", text);
}
