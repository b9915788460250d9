#include "FileConfig.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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

TEST_F(FileConfigTest, KeysAndValuesAreFirstWordsAroundTheFirstEqualsAndRepeatsAreWalkedInOrder) {
    writeFile(path,
              "a = 1\n#b = 1\n #c = 2\nname = hello world\nx=hello\ne =\nlog level = 3\n"
              "k = v = w\nb = 2\na = again\nlast=final");
    FileConfig config(path, 1);
    EXPECT_EQ("<code -1>", get(config, "a"));  // not initialised: nothing is found
    ASSERT_EQ(0, config.Initialize());
    const char* const found[][2] = {{"a", "1"}, {"b", "2"},   {"#c", "2"}, {"name", "hello"}, {"x", "hello"},
                                    {"e", "e"}, {"log", "3"}, {"k", "v"},  {"last", "final"}};
    for (const auto& row : found) EXPECT_EQ(row[1], get(config, row[0])) << row[0];
    for (const char* key : {"c", "level"}) EXPECT_EQ("<code -1>", get(config, key)) << key;
    EXPECT_EQ("<code -4098>", get(config, ""));
    std::string value;
    ASSERT_EQ(zor::E_OK, config.GetValue("a", value));
    ASSERT_EQ(zor::E_OK, config.GetValueContinous("a", value));
    EXPECT_EQ("again", value);
    EXPECT_EQ(zor::E_FAILED, config.GetValueContinous("a", value));
    EXPECT_EQ("again", value);
    EXPECT_EQ(zor::E_UNSUPPORT, config.SetValue("", ""));  // opened for reading only
    EXPECT_EQ(-1, FileConfig(dir / "missing", 1).Initialize());
    EXPECT_EQ(zor::E_FAILED, FileConfig(dir / "no/such/dir", 0).Initialize());
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
    // An empty value, or a line break that would smuggle a line of its own into the file.
    for (const auto& [key, value] :
         {std::make_pair("a", ""), {"a", "1\nb = injected"}, {"a", "1\rb = injected"}, {"a\nb", "2"}}) {
        EXPECT_EQ(zor::E_INVPARAM, config.SetValue(key, value)) << key << " = " << value;
    }
    EXPECT_EQ(zor::E_UNSUPPORT, FileConfig(path, 1).SetValue("a", "1\n"));
    ASSERT_EQ(0, mkdir((path + "_tmp").c_str(), 0700));
    EXPECT_EQ(zor::E_CREATEFAIL, config.SetValue("a", "2"));
    EXPECT_EQ(content, readFile(path));
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

// A process rewriting `key` of a file over and over, alternating "one" and "two", until it is killed. The
// destructor kills and reaps it, so a failed assertion cannot leave it running.
class Rewriter {
public:
    Rewriter(const std::string& path, const std::string& key) {
        if (pipe(m_ready) != 0 || (m_pid = fork()) < 0) throw std::runtime_error("cannot start a writer");
        if (m_pid == 0) {
            FileConfig config(path, 0);
            const bool ready = config.Initialize() == zor::E_OK;
            (void)!write(m_ready[1], ready ? "1" : "0", 1);
            for (unsigned turn = 0; ready; ++turn) config.SetValue(key, turn % 2 ? "one" : "two");
            _exit(1);
        }
    }
    ~Rewriter() {
        Kill();
        close(m_ready[0]);
        close(m_ready[1]);
    }
    Rewriter(const Rewriter&) = delete;
    Rewriter& operator=(const Rewriter&) = delete;

    // True once the writer has opened the file; false if it could not, or did not say within 30 s.
    bool WaitReady() {
        pollfd ready = {m_ready[0], POLLIN, 0};
        char answer = '0';
        return poll(&ready, 1, 30000) == 1 && read(m_ready[0], &answer, 1) == 1 && answer == '1';
    }
    void Kill() {
        if (m_pid > 0 && kill(m_pid, SIGKILL) == 0) waitpid(m_pid, nullptr, 0);
        m_pid = 0;
    }

private:
    int m_ready[2] = {-1, -1};
    pid_t m_pid = 0;
};

TEST_F(FileConfigTest, AWriterKilledAtAnyStepLeavesTheOldOrTheNewFile) {
    const std::string before = "# service\nkey = ", after = "\nport = 80\n";
    writeFile(path, before + "one" + after);
    for (int round = 0; round < 100; ++round) {
        Rewriter writer(path, "key");
        ASSERT_TRUE(writer.WaitReady());
        // Look at the file while it is being replaced, a little longer each round, then kill the writer
        // wherever it is: the file must be there at every moment, whole.
        for (int look = 0; look < round * 100; ++look) ASSERT_EQ(0, access(path.c_str(), F_OK)) << round;
        writer.Kill();
        ASSERT_EQ(0, access(path.c_str(), F_OK)) << "killed in round " << round;
        const std::string content = readFile(path);
        ASSERT_TRUE(content == before + "one" + after || content == before + "two" + after) << content;
    }
}
