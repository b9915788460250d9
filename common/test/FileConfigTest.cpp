#include "FileConfig.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "TestUtil.h"

using zor::FileConfig;
using zortest::readFile;
using zortest::writeFile;

class FileConfigTest : public ::testing::Test {
protected:
    zortest::ScratchDir dir;
    std::string path = dir / "app.conf";

    // The value GetValue finds for key, or "<code N>" when it fails (the output must then be untouched).
    std::string get(FileConfig& config, const std::string& key) {
        std::string value = "untouched";
        const ZR_INT result = config.GetValue(key, value);
        if (result != zor::E_OK) {
            EXPECT_EQ("untouched", value);
            return "<code " + std::to_string(result) + ">";
        }
        return value;
    }
};

TEST_F(FileConfigTest, KeysAndValuesAreFirstWordsAroundTheFirstEquals) {
    writeFile(path,
              "a = 1\n#b = 1\n #c = 2\nname = hello world\nx=hello\ne =\nlog level = 3\n"
              "k = v = w\nb = 2\nlast=final");
    FileConfig config(path, 1);
    EXPECT_EQ("<code -1>", get(config, "a"));  // not initialised: nothing is found
    ASSERT_EQ(0, config.Initialize());
    EXPECT_EQ("1", get(config, "a"));
    EXPECT_EQ("2", get(config, "b"));
    EXPECT_EQ("2", get(config, "#c"));
    EXPECT_EQ("hello", get(config, "name"));
    EXPECT_EQ("hello", get(config, "x"));
    EXPECT_EQ("e", get(config, "e"));
    EXPECT_EQ("3", get(config, "log"));
    EXPECT_EQ("v", get(config, "k"));
    EXPECT_EQ("final", get(config, "last"));
    EXPECT_EQ("<code -1>", get(config, "c"));
    EXPECT_EQ("<code -1>", get(config, "level"));
    EXPECT_EQ("<code -4098>", get(config, ""));
    EXPECT_EQ(-1, FileConfig(dir / "missing", 1).Initialize());
    EXPECT_EQ(zor::E_FAILED, FileConfig(dir / "no/such/dir", 0).Initialize());
}

TEST_F(FileConfigTest, RepeatedKeysAreWalkedInFileOrder) {
    writeFile(path, "k = 1\nother = x\nk = 2\n");
    FileConfig config(path, 1);
    ASSERT_EQ(0, config.Initialize());
    std::string value;
    ASSERT_EQ(zor::E_OK, config.GetValue("k", value));
    EXPECT_EQ("1", value);
    ASSERT_EQ(zor::E_OK, config.GetValueContinous("k", value));
    EXPECT_EQ("2", value);
    EXPECT_EQ(zor::E_FAILED, config.GetValueContinous("k", value));
    EXPECT_EQ("2", value);
    EXPECT_EQ(zor::E_UNSUPPORT, config.SetValue("", ""));
}

TEST_F(FileConfigTest, SetValueRewritesOnlyTheFirstMatchingLine) {
    const std::string head = "# comment = here\nno equals sign\n a = 1 \n";
    writeFile(path, head + "b=2\nb = 3\ntail");
    FileConfig config(path, 0);
    ASSERT_EQ(zor::E_OK, config.Initialize());
    ASSERT_EQ(zor::E_OK, config.SetValue("b", "seven"));
    EXPECT_EQ(head + "b = seven\nb = 3\ntail", readFile(path));
    EXPECT_FALSE(std::ifstream(path + "_tmp").good());

    // The reopened file resumes at the old line's end offset, which now lies inside the new line.
    std::string value;
    ASSERT_EQ(zor::E_OK, config.GetValueContinous("b", value));
    EXPECT_EQ("3", value);
    ASSERT_EQ(zor::E_OK, config.SetValue("a", "0"));
    EXPECT_EQ("# comment = here\nno equals sign\na = 0\nb = seven\nb = 3\ntail", readFile(path));
}

TEST_F(FileConfigTest, FailedRewritesLeaveTheFileAlone) {
    const std::string content = "a = 1\n";
    writeFile(path, content);
    FileConfig config(path, 0);
    ASSERT_EQ(zor::E_OK, config.Initialize());
    EXPECT_EQ(zor::E_FAILED, config.SetValue("absent", "1"));
    EXPECT_FALSE(std::ifstream(path + "_tmp").good());
    EXPECT_EQ(zor::E_INVPARAM, config.SetValue("a", ""));
    // A line break would smuggle a line of its own into the file.
    EXPECT_EQ(zor::E_INVPARAM, config.SetValue("a", "1\nb = injected"));
    EXPECT_EQ(zor::E_INVPARAM, config.SetValue("a", "1\rb = injected"));
    EXPECT_EQ(zor::E_INVPARAM, config.SetValue("a\nb", "2"));
    EXPECT_EQ(zor::E_UNSUPPORT, FileConfig(path, 1).SetValue("a", "1\n"));
    ASSERT_EQ(0, mkdir((path + "_tmp").c_str(), 0700));
    EXPECT_EQ(zor::E_CREATEFAIL, config.SetValue("a", "2"));
    EXPECT_EQ(content, readFile(path));
    EXPECT_EQ(zor::E_UNSUPPORT, FileConfig(path, 1).SetValue("a", "2"));
}

TEST_F(FileConfigTest, LongLinesAndNulBytesArePiecesAndSurviveRewrites) {
    const std::string longLine = std::string(255, 'x') + "key = long\n";  // "key" starts the second piece
    const std::string binary("bin\0ary = 1\nz\0=\0\n", 17);
    writeFile(path, longLine + binary + "z =");
    FileConfig config(path, 0);
    ASSERT_EQ(zor::E_OK, config.Initialize());
    EXPECT_EQ("long", get(config, "key"));
    EXPECT_EQ("<code -1>", get(config, "bin"));  // its '=' lies beyond the NUL byte
    EXPECT_EQ("z", get(config, "z"));
    ASSERT_EQ(zor::E_OK, config.SetValue("z", "9"));
    EXPECT_EQ(longLine + binary + "z = 9\n", readFile(path));
}
