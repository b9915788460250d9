#include "Logger.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "SysUtils.h"
#include "TestUtil.h"

namespace {

using zortest::linesOf;

std::string messageOf(const std::string& line) { return line.substr(line.find(") ") + 2); }

class LoggerTest : public ::testing::Test {
protected:
    void TearDown() override { zor::Logger::DestroyInstance(); }

    std::string start(const std::string& name, ZR_Uint32 mbytes, ZR_Uint32 lines, ZR_BOOL sync) {
        const std::string path = m_dir / name;
        zor::Logger::Instance()->Initialize("Mod", path, mbytes, lines, 0, 0, sync);
        return path;
    }

    zortest::ScratchDir m_dir;
};

TEST_F(LoggerTest, SyncLinesHaveTheLayoutPrefixesDebugThresholdAndPercentRule) {
    const std::string path = start("sync.log", 1, 1000, 1);
    zor::Logger::Instance()->Initialize("Other", m_dir / "other.log", 1, 1000, 0, 0, 1);  // only alerts
    ZOR_LOG_INFO("value %d", 42);
    ZOR_LOG_WARN("w");
    ZOR_LOG_ERROR("e");
    ZOR_LOG_ALERT("a");
    ZOR_LOG_DEBUG(0, "never");  // LogDebug shows only levels above the threshold
    ZOR_LOG_DEBUG(1, "d");
    zor::Logger::Instance()->SetLogDebugLevel(5);
    ZOR_LOG_DEBUG(5, "hidden");
    ZOR_LOG_DEBUG(6, "shown");
    ZOR_LOG_INFO("%s", "100%% %s %n %d");  // survives expansion; only %% collapses when written
    ZOR_LOG_INFO("%s", std::string(300, 'x').c_str());
    const auto lines = linesOf(path);
    ASSERT_EQ(9U, lines.size());
    const auto laidOut = [&](size_t i, const std::string& source) {
        const std::string head = R"(\{Mod\} \[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] \()";
        return std::regex_match(lines[i], std::regex(head + source));
    };
    EXPECT_TRUE(laidOut(0, R"(Logger\.cpp:Initialize:166\) Alert: The Logger has been initialized!!)"))
        << lines[0];
    EXPECT_TRUE(laidOut(1, R"(LoggerTest\.cpp:TestBody:\d+\) Info:  value 42)")) << lines[1];
    std::vector<std::string> messages;
    for (size_t i = 2; i < lines.size(); ++i) messages.push_back(messageOf(lines[i]));
    EXPECT_EQ((std::vector<std::string>{"Warn:  w", "Error: e", "Alert: a", "Debug: d", "Debug: shown",
                                        "Info:  100% %s %n %d", "Info:  " + std::string(255, 'x')}),
              messages);
}

TEST_F(LoggerTest, PacedAsyncProducerLosesNothingAndTheQueueDrainsOnDestroy) {
    const std::string path = start("async.log", 1024, 100000, 0);
    for (int i = 0; i < 3000; ++i) {
        ZOR_LOG_INFO("p %d", i);
        if (i % 100 == 99) zor::SysUtils::DelayMseconds(5);
    }
    ZOR_LOG_INFO("%s", "100%% %s");  // written as expanded
    ZOR_LOG_INFO("%s", std::string(1200, 'y').c_str());
    zor::Logger::DestroyInstance();
    const auto lines = linesOf(path);
    ASSERT_EQ(3002U, lines.size());
    for (int i = 0; i < 3000; ++i) ASSERT_EQ("Info:  p " + std::to_string(i), messageOf(lines[i]));
    EXPECT_EQ("Info:  100%% %s", messageOf(lines[3000]));
    EXPECT_EQ("Info:  " + std::string(999, 'y'), messageOf(lines[3001]));
}

// Line n (from 1) of a fresh file brings the counter to n - 1, so the separations follow lines 11, 21,
// ...; the sixth rotates the backups and the oldest is dropped.
TEST_F(LoggerTest, SeparatesByLineCountOrSizeAndRotatesFiveBackups) {
    struct Limit {
        const char* name;
        ZR_Uint32 mbytes, lines;
    };
    // 4096 MiB wraps to a 0-byte limit, so the size check separates at every tenth line.
    for (const Limit& limit : {Limit{"lines.log", 1, 10}, Limit{"size.log", 4096, 1000}}) {
        const std::string path = start(limit.name, limit.mbytes, limit.lines, 1);
        for (int n = 1; n <= 61; ++n) ZOR_LOG_INFO("n %d", n);
        zor::Logger::DestroyInstance();
        for (int backup = 1; backup <= 5; ++backup) {
            const auto lines = linesOf(path + "_" + std::to_string(backup));
            ASSERT_EQ(10U, lines.size()) << path << backup;
            EXPECT_EQ("Info:  n " + std::to_string(10 * backup + 2), messageOf(lines.front()));
            EXPECT_EQ("Info:  n " + std::to_string(10 * backup + 11), messageOf(lines.back()));
        }
        EXPECT_TRUE(linesOf(path).empty());
        EXPECT_NE(0, access((path + "_6").c_str(), F_OK));
    }
}

TEST_F(LoggerTest, UnopenableFileLeavesItUninitialisedMissingDirectoriesAreMadeExistingLinesCounted) {
    EXPECT_EQ("open logger file failed!!", zortest::thrownMessage([&] { start("", 1, 1000, 1); }));
    const std::string deep = start("a b/c/deep.log", 1, 1000, 1);  // not "already initialised"
    ZOR_LOG_INFO("made");
    EXPECT_EQ(1U, linesOf(deep).size());
    zor::Logger::DestroyInstance();

    zortest::writeFile(m_dir / "old.log", "one\ntwo\nthree");
    start("old.log", 1, 1000, 1);
    ZOR_LOG_INFO("four");
    EXPECT_EQ(4U, zor::Logger::Instance()->TotalLines());
}

TEST_F(LoggerTest, ConfigFileFormRunsWithTheDefaults) {
    zortest::WorkDir here(m_dir.Path());
    zortest::writeFile("log.conf", "module = Svc\nfile = ./svc.log\nsync = 1\n");
    zor::Logger::Instance()->Initialize(m_dir / "log.conf");  // its FileConfig is never initialised
    ZOR_LOG_INFO("hello");
    zor::Logger::DestroyInstance();  // the defaults are asynchronous
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

}  // namespace
