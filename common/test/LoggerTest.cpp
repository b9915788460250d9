#include "Logger.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "SysUtils.h"
#include "TestUtil.h"

namespace {

using zortest::readFile;

std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream in(readFile(path));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::string messageOf(const std::string& line) { return line.substr(line.find(") ") + 2); }

class LoggerTest : public ::testing::Test {
protected:
    void TearDown() override { zor::Logger::DestroyInstance(); }

    // Initialises the logger on `name` inside the scratch directory.
    std::string start(const std::string& name, ZR_Uint32 mbytes, ZR_Uint32 lines, ZR_BOOL sync) {
        const std::string path = m_dir / name;
        zor::Logger::Instance()->Initialize("Mod", path, mbytes, lines, 0, 0, sync);
        return path;
    }

    zortest::ScratchDir m_dir;
};

TEST_F(LoggerTest, SyncLinesHaveTheLayoutPrefixesAndPercentRule) {
    const std::string path = start("sync.log", 1, 1000, 1);
    ZOR_LOG_INFO("value %d", 42);
    ZOR_LOG_WARN("w");
    ZOR_LOG_ERROR("e");
    ZOR_LOG_ALERT("a");
    ZOR_LOG_DEBUG(1, "d");
    ZOR_LOG_INFO("%s", "100%% %s %n %d");  // survives expansion; only %% collapses when written
    ZOR_LOG_INFO("%s", std::string(300, 'x').c_str());
    const auto lines = linesOf(path);
    ASSERT_EQ(7U, lines.size());
    const std::regex layout(
        R"(\{Mod\} \[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] \(LoggerTest\.cpp:TestBody:\d+\) Info:  value 42)");
    EXPECT_TRUE(std::regex_match(lines[0], layout)) << lines[0];
    EXPECT_EQ("Warn:  w", messageOf(lines[1]));
    EXPECT_EQ("Error: e", messageOf(lines[2]));
    EXPECT_EQ("Alert: a", messageOf(lines[3]));
    EXPECT_EQ("Debug: d", messageOf(lines[4]));
    EXPECT_EQ("Info:  100% %s %n %d", messageOf(lines[5]));
    EXPECT_EQ("Info:  " + std::string(255, 'x'), messageOf(lines[6]));
}

TEST_F(LoggerTest, AsyncLinesAreWrittenAsExpandedAndDrainedOnDestroy) {
    const std::string path = start("async.log", 1, 1000, 0);
    ZOR_LOG_INFO("%s", "100%% %s");
    ZOR_LOG_INFO("%s", std::string(1200, 'y').c_str());
    for (int i = 0; i < 50; ++i) ZOR_LOG_INFO("line %d", i);
    zor::Logger::DestroyInstance();
    const auto lines = linesOf(path);
    ASSERT_GE(lines.size(), 52U);
    EXPECT_EQ("Info:  100%% %s", messageOf(lines[0]));
    EXPECT_EQ("Info:  " + std::string(999, 'y'), messageOf(lines[1]));
    for (int i = 0; i < 50; ++i) EXPECT_EQ("Info:  line " + std::to_string(i), messageOf(lines[2 + i]));
}

TEST_F(LoggerTest, DebugThresholdHidesLevelsUpToIt) {
    const std::string path = start("debug.log", 1, 1000, 1);
    ZOR_LOG_DEBUG(0, "never");
    zor::Logger::Instance()->SetLogDebugLevel(5);
    ZOR_LOG_DEBUG(5, "hidden");
    ZOR_LOG_DEBUG(6, "shown");
    const auto lines = linesOf(path);
    ASSERT_EQ(1U, lines.size());
    EXPECT_EQ("Debug: shown", messageOf(lines[0]));
}

TEST_F(LoggerTest, SecondInitializeOnlyLogsTheAlertAtItsFixedLine) {
    const std::string path = start("twice.log", 1, 1000, 1);
    zor::Logger::Instance()->Initialize("Other", m_dir / "other.log", 1, 1000, 0, 0, 1);
    EXPECT_EQ(path, zor::Logger::Instance()->LogFilePath());
    const auto lines = linesOf(path);
    ASSERT_EQ(1U, lines.size());
    EXPECT_EQ(0U, lines[0].find("{Mod} [")) << lines[0];
    EXPECT_NE(std::string::npos,
              lines[0].find("(Logger.cpp:Initialize:166) Alert: The Logger has been initialized!!"));
}

// Line n (from 1) of a fresh file brings the counter to n - 1, so with a limit of 10 the separations
// follow lines 11, 21, 31, ...; the sixth rotates the backups and the first file is lost.
void expectSixSeparations(const std::string& path) {
    for (int backup = 1; backup <= 5; ++backup) {
        const auto lines = linesOf(path + "_" + std::to_string(backup));
        ASSERT_EQ(10U, lines.size()) << backup;
        EXPECT_EQ("Info:  n " + std::to_string(10 * backup + 2), messageOf(lines.front()));
        EXPECT_EQ("Info:  n " + std::to_string(10 * backup + 11), messageOf(lines.back()));
    }
    EXPECT_TRUE(linesOf(path).empty());
    EXPECT_FALSE(zor::SysUtils::IsDirectoryFile(path + "_6"));
}

TEST_F(LoggerTest, SeparatesByLineCountAndRotatesFiveBackups) {
    const std::string path = start("lines.log", 1, 10, 1);
    for (int n = 1; n <= 61; ++n) ZOR_LOG_INFO("n %d", n);
    expectSixSeparations(path);
}

TEST_F(LoggerTest, SeparatesBySizeEveryTenthLineWhenTheLimitWrapsToZero) {
    const std::string path = start("size.log", 4096, 1000, 1);  // 4096 MiB wraps to a 0-byte limit
    for (int n = 1; n <= 61; ++n) ZOR_LOG_INFO("n %d", n);
    expectSixSeparations(path);
}

TEST_F(LoggerTest, CountsExistingLinesAndCreatesMissingDirectories) {
    zortest::writeFile(m_dir / "old.log", "one\ntwo\nthree");
    start("old.log", 1, 1000, 1);
    EXPECT_EQ(3U, zor::Logger::Instance()->TotalLines());
    ZOR_LOG_INFO("four");
    EXPECT_EQ(4U, zor::Logger::Instance()->TotalLines());
    zor::Logger::DestroyInstance();

    const std::string deep = start("a b/c/deep.log", 1, 1000, 1);
    ZOR_LOG_INFO("made");
    EXPECT_EQ(1U, linesOf(deep).size());
}

TEST_F(LoggerTest, UnopenableFileThrowsAndLeavesTheLoggerUninitialised) {
    EXPECT_EQ("open logger file failed!!", zortest::thrownMessage([&] { start("", 1, 1000, 1); }));
    const std::string path = start("good.log", 1, 1000, 1);  // not "already initialised"
    ZOR_LOG_INFO("ok");
    EXPECT_EQ(1U, linesOf(path).size());
}

TEST_F(LoggerTest, ConfigFileFormRunsWithTheDefaults) {
    zortest::WorkDir here(m_dir.Path());
    zortest::writeFile("log.conf", "module = Svc\nfile = ./svc.log\nsync = 1\n");
    zor::Logger::Instance()->Initialize(m_dir / "log.conf");  // its FileConfig is never initialised
    ZOR_LOG_INFO("hello");
    zor::Logger::DestroyInstance();
    const auto lines = linesOf(m_dir / "file.log");
    ASSERT_EQ(1U, lines.size());
    EXPECT_EQ(0U, lines[0].find("{Logger} ["));
}

TEST_F(LoggerTest, AsyncCallsBeforeInitializeCountUntilTheSemaphoreIsExhausted) {
    for (int i = 0; i < 4096; ++i) ZOR_LOG_INFO("dropped");
    EXPECT_EQ("Signal exhausted", zortest::thrownMessage([] { ZOR_LOG_INFO("one too many"); }));
}

TEST_F(LoggerTest, EightSyncThreadsLoseNoLineAndNeverInterleave) {
    const std::string path = start("load.log", 1024, 50000, 1);
    constexpr int THREADS = 8, LINES = 20000;
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < LINES; ++i) ZOR_LOG_INFO("t%d i%d end", t, i);
        });
    }
    for (auto& thread : threads) thread.join();
    std::set<std::string> seen;
    for (const std::string& file : {path + "_1", path + "_2", path + "_3", path}) {
        for (const std::string& line : linesOf(file)) {
            const std::string message = messageOf(line);
            ASSERT_EQ(0U, message.find("Info:  t")) << line;
            ASSERT_EQ(message.size() - 3, message.rfind("end")) << line;
            EXPECT_TRUE(seen.insert(message).second) << "twice: " << line;
        }
    }
    EXPECT_EQ(static_cast<size_t>(THREADS * LINES), seen.size());
}

TEST_F(LoggerTest, PacedAsyncProducerLosesNothing) {
    const std::string path = start("paced.log", 1024, 100000, 0);
    for (int i = 0; i < 3000; ++i) {
        ZOR_LOG_INFO("p %d", i);
        if (i % 100 == 99) zor::SysUtils::DelayMseconds(5);
    }
    zor::Logger::DestroyInstance();
    const auto lines = linesOf(path);
    ASSERT_EQ(3000U, lines.size());
    for (int i = 0; i < 3000; ++i) ASSERT_EQ("Info:  p " + std::to_string(i), messageOf(lines[i]));
}

}  // namespace
