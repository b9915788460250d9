#include "Logger.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <future>
#include <regex>
#include <set>
#include <thread>
#include <vector>

#include "../source/TextFormat.h"
#include "TestUtil.h"

namespace {

using zortest::linesOf;

std::string messageOf(const std::string& line) { return line.substr(line.find(") ") + 2); }

// The messages of the lines of a file, from `first` on.
std::vector<std::string> messagesOf(const std::string& path, size_t first = 0) {
    std::vector<std::string> messages;
    const auto lines = linesOf(path);
    for (size_t i = first; i < lines.size(); ++i) messages.push_back(messageOf(lines[i]));
    return messages;
}

// Checks that lines from `first` on are "Info:  t<thread> i<index>" with each thread's indices going on
// from next[thread], and moves next on past them.
void expectThreadOrder(const std::vector<std::string>& lines, size_t first, std::vector<int>& next) {
    for (size_t n = first; n < lines.size(); ++n) {
        int t = -1, i = -1;
        ASSERT_EQ(2, std::sscanf(messageOf(lines[n]).c_str(), "Info:  t%d i%d", &t, &i)) << lines[n];
        ASSERT_EQ(next.at(t)++, i) << lines[n];
    }
}

// "YYYY-MM-DD HH:MM:SS" of a moment in local time, as the lines show it.
std::string localSecond(time_t moment) {
    tm local{};
    localtime_r(&moment, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

// The head of a line up to the file name, for the module "Mod".
const std::string HEAD = R"(\{Mod\} \[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] \()";

// A function name that makes the head longer than any line buffer, and the head it gives.
const std::string LONG_FUNC(2000, 'f');
const std::string LONG_HEAD_TAIL = "(F:" + LONG_FUNC + ":7) Info:  ";

void logLongHead() { zor::Logger::Instance()->LogInfo("F", LONG_FUNC.c_str(), 7, "long head"); }

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
    const time_t before = time(nullptr);
    ZOR_LOG_INFO("value %d", 42);
    const time_t after = time(nullptr);
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
    ZOR_LOG_INFO("a%cb", 0);  // the text ends at the NUL
    logLongHead();            // never cut in this mode
    const auto lines = linesOf(path);
    ASSERT_EQ(11U, lines.size());
    const auto laidOut = [&](size_t i, const std::string& source) {
        return std::regex_match(lines[i], std::regex(HEAD + source));
    };
    EXPECT_TRUE(laidOut(0, R"(Logger\.cpp:Initialize:166\) Alert: The Logger has been initialized!!)"))
        << lines[0];
    EXPECT_TRUE(laidOut(1, R"(LoggerTest\.cpp:TestBody:\d+\) Info:  value 42)")) << lines[1];
    const std::string stamp = lines[1].substr(7, 19);
    EXPECT_TRUE(stamp == localSecond(before) || stamp == localSecond(after)) << lines[1];
    EXPECT_EQ((std::vector<std::string>{"Warn:  w", "Error: e", "Alert: a", "Debug: d", "Debug: shown",
                                        "Info:  100% %s %n %d", "Info:  " + std::string(255, 'x'), "Info:  a",
                                        "Info:  long head"}),
              messagesOf(path, 2));
    EXPECT_EQ(LONG_HEAD_TAIL + "long head", lines[10].substr(lines[10].find("] (") + 2));
}

// Four threads log back to back. A call may throw "Signal exhausted" when the writer falls 4096 lines
// behind, but its line was queued first and is written all the same.
TEST_F(LoggerTest, AsyncLinesKeepLayoutCutsAndEachThreadsOrderAndTheQueueDrainsOnDestroy) {
    const std::string path = start("async.log", 1024, 100000, 0);
    ZOR_LOG_INFO("%s", "100%% %s");  // written as expanded
    ZOR_LOG_INFO("%s", std::string(1200, 'y').c_str());
    ZOR_LOG_INFO("a%cb", 0);
    logLongHead();  // the head is cut at 999 characters, then the message follows
    constexpr int THREADS = 4, LINES = 5000;
    zortest::onThreads(THREADS, [](int t) {
        for (int i = 0; i < LINES; ++i) zortest::thrownMessage([&] { ZOR_LOG_INFO("t%d i%d", t, i); });
    });
    zor::Logger::DestroyInstance();
    const auto lines = linesOf(path);
    ASSERT_EQ(4U + THREADS * LINES, lines.size());
    EXPECT_TRUE(
        std::regex_match(lines[0], std::regex(HEAD + R"(LoggerTest\.cpp:TestBody:\d+\) Info:  100%% %s)")))
        << lines[0];
    EXPECT_EQ("Info:  " + std::string(999, 'y'), messageOf(lines[1]));
    EXPECT_EQ("Info:  a", messageOf(lines[2]));
    const size_t open = lines[3].find("] (");
    EXPECT_EQ((LONG_HEAD_TAIL.substr(0, 999 - open - 2) + "long head"), lines[3].substr(open + 2));
    std::vector<int> next(THREADS, 0);
    expectThreadOrder(lines, 4, next);
}

// The writer is held back until lines are queued behind units that have none: it takes all five units
// in one pass, writes the two lines, then the last line once more for each unit left over.
TEST_F(LoggerTest, UnitsWithoutALineWriteTheCurrentLineAgain) {
    struct HeldWriter : zor::Logger {
        ~HeldWriter() override { StopAndWait(); }
        void Entry() override {
            go.get_future().wait();
            Logger::Entry();
        }
        std::promise<void> go;
    };
    const std::string path = m_dir / "held.log";
    {
        HeldWriter logger;
        for (int i = 0; i < 3; ++i) logger.LogInfo("f", "g", 1, "before");  // units, no line
        logger.Initialize("Mod", path, 1, 1000, 0, 0, 0);
        logger.LogInfo("f", "g", 1, "A");
        logger.LogInfo("f", "g", 1, "B");
        logger.go.set_value();
        // Stopping at once would only drain the queue; wait (boundedly) for the pass first.
        zortest::waitUntil([&] { return linesOf(path).size() >= 5; });
    }
    EXPECT_EQ((std::vector<std::string>{"Info:  A", "Info:  B", "Info:  B", "Info:  B", "Info:  B"}),
              messagesOf(path));
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
        // Asynchronous: the separations fall on the same counts, though which file a line reaches depends
        // on when the writer gets to it.
        const std::string asyncPath = start(std::string("async-") + limit.name, limit.mbytes, limit.lines, 0);
        for (int n = 1; n <= 61; ++n) ZOR_LOG_INFO("n %d", n);
        EXPECT_EQ(60U, zor::Logger::Instance()->TotalLines());
        zor::Logger::DestroyInstance();
        EXPECT_EQ(0, access((asyncPath + "_5").c_str(), F_OK));
        EXPECT_NE(0, access((asyncPath + "_6").c_str(), F_OK));

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

TEST_F(LoggerTest,
       UnopenableFileLeavesItUninitialisedMissingDirsAreMadeLinesCountedAndConfigFormUsesDefaults) {
    EXPECT_EQ("open logger file failed!!", zortest::thrownMessage([&] { start("", 1, 1000, 1); }));
    const std::string deep = start("a b/c/deep.log", 1, 1000, 1);  // not "already initialised"
    ZOR_LOG_INFO("made");
    EXPECT_EQ(1U, linesOf(deep).size());
    zor::Logger::DestroyInstance();

    zortest::writeFile(m_dir / "old.log", "one\ntwo\nthree");
    start("old.log", 1, 1000, 1);
    ZOR_LOG_INFO("four");
    EXPECT_EQ(4U, zor::Logger::Instance()->TotalLines());
    zor::Logger::DestroyInstance();

    // The configuration-file form runs with the defaults: its FileConfig is never initialised.
    zortest::WorkDir here(m_dir.Path());
    zortest::writeFile("log.conf", "module = Svc\nfile = ./svc.log\nsync = 1\n");
    zor::Logger::Instance()->Initialize(m_dir / "log.conf");
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
    zortest::onThreads(THREADS, [](int t) {
        for (int i = 0; i < LINES; ++i) ZOR_LOG_INFO("t%d i%d end", t, i);
    });
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

// As logrotate's "create" mode does it: the file is renamed away, then the logger told to reopen. Three
// threads log meanwhile; every line is whole and in exactly one file, each thread's lines in order across
// the renamed files.
TEST_F(LoggerTest, ReopenAfterRenameSendsEarlierLinesToTheMovedFileAndLaterOnesToTheNewFile) {
    EXPECT_EQ(-1, zor::Logger::Instance()->Reopen());  // nothing to reopen yet
    EXPECT_EQ(EBADF, errno);
    for (const ZR_BOOL sync : {1, 0}) {
        const std::string path = start(sync ? "sync.log" : "async.log", 1024, 1000000, sync);
        ZOR_LOG_INFO("old");
        ASSERT_EQ(0, std::rename(path.c_str(), (path + ".1").c_str()));
        ZOR_LOG_INFO("still old");  // the file is still open where it was moved to
        ASSERT_EQ(0, zor::Logger::Instance()->Reopen());
        ZOR_LOG_INFO("new");

        constexpr int THREADS = 3, LINES = 3000, ROTATIONS = 10;
        std::vector<std::thread> threads;
        for (int t = 0; t < THREADS; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < LINES; ++i)
                    zortest::thrownMessage([&] { ZOR_LOG_INFO("t%d i%d", t, i); });
            });
        }
        for (int r = 2; r < 2 + ROTATIONS; ++r) {
            ASSERT_EQ(0, std::rename(path.c_str(), (path + "." + std::to_string(r)).c_str()));
            ASSERT_EQ(0, zor::Logger::Instance()->Reopen());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        for (auto& thread : threads) thread.join();
        zor::Logger::DestroyInstance();

        EXPECT_EQ((std::vector<std::string>{"Info:  old", "Info:  still old"}), messagesOf(path + ".1"));
        EXPECT_EQ("Info:  new", messagesOf(path + ".2").at(0));
        std::vector<int> next(THREADS, 0);
        for (int r = 2; r <= 2 + ROTATIONS; ++r) {
            const std::string file = r < 2 + ROTATIONS ? path + "." + std::to_string(r) : path;
            SCOPED_TRACE(file);
            expectThreadOrder(linesOf(file), r == 2 ? 1 : 0, next);
        }
        EXPECT_EQ(std::vector<int>(THREADS, LINES), next) << (sync ? "sync" : "async");
    }
}

// The expansion does the common conversions itself: text and length must be vsnprintf's, cut included,
// both for those and for every form it hands on.
template <typename... Args>
void expectPrintfText(const char* fmt, Args... args) {
    for (const size_t size : {1, 7, 40, 1000}) {
        std::vector<char> want(size), got(size, 'z');
        std::snprintf(want.data(), size, fmt, args...);
        const size_t length = zor::detail::formatText(got.data(), size, fmt, args...);
        ASSERT_EQ(std::string(want.data()), std::string(got.data(), length)) << fmt << " in " << size;
        ASSERT_EQ('\0', got[length]) << fmt;
    }
}

TEST(TextFormat, ExpandsExactlyAsPrintfDoes) {
    expectPrintfText("plain text, 100%% sure");
    for (const int n : {0, 7, -7, INT_MIN, INT_MAX})
        expectPrintfText("[%d|%5i|%-5d|%05d|%-05d|%012d]", n, n, n, n, n, n);
    expectPrintfText("%u %x %X %08x %lx %llu %zu %jd %td %hd %hhu %lld", 3000000000U, 0xbeefU, 0xbeefU, 42U,
                     ~0UL, ~0ULL, size_t{12}, intmax_t{-5}, ptrdiff_t{-6}, 70000, 300, LLONG_MIN);
    expectPrintfText("%s|%10s|%-10s|%.3s|%8.3s|%.0s|%s", "alice", "bob", "carol", "dave", "erin", "x", "");
    for (const double v : {0.125, 2.5, 0.5, 1.5, -0.0, 1e20, 123.456, -3.14159, 9.9999996})
        expectPrintfText("%f %.0f %.2f %10.3f %-10.3f %010.3f %lf", v, v, v, v, v, v, v);
    // Left to vsnprintf: other conversions, flags, starred fields, precision on integers, odd values.
    expectPrintfText("%c|%e|%g|%p|%+d|% d|%#x|%*d|%.3d|%o", 'q', 1.5, 2.5, static_cast<const void*>("p"), 1,
                     2, 255, 4, 5, 6, 8);
    const char* volatile none = nullptr;  // hidden from the compiler's format checks
    expectPrintfText("%s %f %f %Lf", none, HUGE_VAL, NAN, 1.0L);
    expectPrintfText("%99999d|%.99999f", 1, 0.5);
    EXPECT_EQ(
        1U, zor::detail::formatText(std::vector<char>(8).data(), 8, "a%cb", 0));  // the text ends at the NUL
}

}  // namespace
