// PathTest.cpp: normalisation, the text form and the pure-text operations of Path. The component
// invariants on arbitrary text are checked by the Path fuzz target.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "FileSystem.h"
#include "StringUtils.h"
#include "TestUtil.h"

using zor::Path;

TEST(PathNormalise, FollowsTheTableAndTheAppendRules) {
    const std::pair<const char*, const char*> table[] = {
        {"a//b/../c", "./a/c"}, {"/a/./b/", "/a/b"}, {"/a/../../b", "/b"},
        {"../a", "../a"},       {"a/../..", ".."},   {"./../..", "../.."},
        {"\\x\\y", "/x/y"},     {"", "."},           {"/", "/"},
    };
    for (const auto& row : table) EXPECT_EQ(row.second, Path(row.first).ToString()) << row.first;

    EXPECT_EQ("", Path().ToString());
    EXPECT_EQ("/a/b", (Path("/a") += "/b").ToString());
    EXPECT_EQ("./a/b", (Path("a") += Path("/b")).ToString());
    EXPECT_EQ("/c", (Path("/a") += "../../c").ToString());
    EXPECT_EQ("./x", (Path() += "x").ToString());
    EXPECT_EQ("/a/b", (Path("/a") + Path("b")).ToString());
    EXPECT_EQ("/a/b", ("/a" + Path("./b")).ToString());
    EXPECT_EQ("/a/c", Path::Joint("/a/b", "../c"));
    EXPECT_EQ("/a/x", Path("/a").Joint("x"));
    EXPECT_EQ("/x", Path().Joint("x"));
    EXPECT_EQ("/a/../x", Path("/a").Joint("../x"));  // text only, not normalised
}

TEST(PathNormalise, RandomTextsAgreeWithTheStandardLibraryAndRoundTrip) {
    const char* const pieces[] = {"a", "bc", ".", "..", "/", "//", "\\", ".x"};
    std::mt19937 rng(7);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (int i = 0, count = 1 + static_cast<int>(rng() % 10); i < count; ++i) text += pieces[rng() % 8];
        const Path path(text);
        EXPECT_EQ(path, Path(path.ToString())) << text;  // the text form parses back to the same list

        // Same meaning as lexically_normal, up to our "./" prefix and its trailing "/".
        std::string expected = text;
        zor::StringUtils::Replace(expected, '\\', '/');
        expected = std::filesystem::path(expected).lexically_normal().string();
        while (expected.size() > 1 && expected.back() == '/') expected.pop_back();
        std::string ours = path.ToString();
        if (ours.compare(0, 2, "./") == 0) ours.erase(0, 2);
        EXPECT_EQ(expected, ours) << text;
    }
}

TEST(PathParts, BaseLeafAndPopDirKeepTheirAsymmetry) {
    const char* const base[][2] = {{"/a/b", "/a/"},  {"/a", "/"},           {"/", "/"},
                                   {"./a", "./"},    {".", "../"},          {"a/b", "./a/"},
                                   {"..", "../../"}, {"../..", "../../../"}};
    for (const auto& row : base) EXPECT_EQ(row[1], Path(row[0]).GetBasePath()) << row[0];
    const char* const leaf[][2] = {{"/a/b", "b"}, {"/", "/"},       {".", "."},
                                   {"..", "../"}, {"../..", "../"}, {"../../..", "../../"}};
    for (const auto& row : leaf) EXPECT_EQ(row[1], Path(row[0]).GetLeafName()) << row[0];
    EXPECT_EQ("", Path().GetBasePath() + Path().GetLeafName());

    Path up("x");
    EXPECT_EQ(1, up.PopDir(3));
    EXPECT_EQ("../..", up.ToString());
    Path root("/");
    root.PopDir(1);
    EXPECT_TRUE(root.IsEmpty());
    EXPECT_EQ(1, root.PopDir(2));  // stops at the empty path
    Path deep("/a/b/c");
    deep.PopDir(2);
    EXPECT_EQ("/a", deep.ToString());
}

TEST(PathCompare, ComparesComponentsWithoutTouchingTheDisk) {
    EXPECT_EQ(0, Path("/a/b").IsParentPath("/a/b"));
    EXPECT_EQ(1, Path("/a").IsParentPath("/a/b/c"));
    EXPECT_EQ(0, Path("/a/b/c").IsParentPath("/a"));
    EXPECT_EQ(1, Path("/a/b").IsSubPath("/a"));
    EXPECT_EQ(0, Path("/ab").IsSubPath(Path("/a")));
    EXPECT_TRUE(Path("a") == "./a");
    EXPECT_FALSE(Path("a") == "/a");
    EXPECT_FALSE(Path(".") == Path("/"));
    EXPECT_EQ(0, Path(".").IsParentPath("/x"));

    EXPECT_EQ(1, Path("/" + std::string(255, 'n')).CheckName());
    EXPECT_EQ(0, Path("/a/" + std::string(256, 'n') + "/b").CheckName());
}

TEST(PathAbsolute, ResolvesRelativePathsAgainstTheWorkingDirectory) {
    zortest::ScratchDir scratch;
    zortest::WorkDir inScratch(scratch.Path());
    const std::string cwd = zor::filesystem::GetCurWorkDir();
    EXPECT_EQ(Path(cwd).GetBasePath() + "x", Path("../x").ToAbsolutionPath());
    EXPECT_EQ("/etc", Path("/etc").ToAbsolutionPath());
    EXPECT_EQ("", Path().ToAbsolutionPath());
    Path relative("./y");
    relative.ConvertAbsolutionPath();
    EXPECT_EQ(cwd + "/y", relative.ToString());
}
