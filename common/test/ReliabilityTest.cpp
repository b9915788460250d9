// Faults from outside: a full disk, no descriptors left, signals interrupting waits, peers that reset.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <set>
#include <thread>
#include <vector>

#include "Epoll.h"
#include "File.h"
#include "FileSystem.h"
#include "Logger.h"
#include "Semaphore.h"
#include "SysUtils.h"
#include "TCPServer.h"
#include "TCPSocket.h"
#include "TestUtil.h"

namespace {

using zortest::linesOf;

// A character device that behaves like /dev/full, made inside the scratch directory so that renaming it
// never touches the real /dev. Empty when the process may not make device nodes.
std::string makeFullDevice(const zortest::ScratchDir& dir, const std::string& name) {
    const std::string path = dir / name;
    return mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 7)) == 0 ? path : "";
}

TEST(FaultDiskFull, LoggerDropsLinesWhileTheDiskIsFullAndWritesAgainAfterSeparation) {
    zortest::ScratchDir dir;
    const std::string path = makeFullDevice(dir, "full.log");
    if (path.empty()) GTEST_SKIP() << "cannot make a full-device node here (needs root)";
    zor::Logger::Instance()->Initialize("Full", path, 1, 10, 0, 0, 1);
    for (int n = 1; n <= 15; ++n) ZOR_LOG_INFO("n %d", n);  // lines 1-10 are lost, then the file is separated
    zor::Logger::DestroyInstance();
    const auto lines = linesOf(path);
    ASSERT_EQ(5U, lines.size());
    EXPECT_NE(std::string::npos, lines.front().find("Info:  n 11"));
    EXPECT_TRUE(zor::SysUtils::IsDeviceFile(path + "_1"));  // the full device became the first backup
}

// Counting the lines of the existing file used to open it for reading, which for a named pipe waits for
// a writer that never comes. If Initialize hangs, opening the pipe for writing lets it go.
TEST(FaultNamedPipe, LoggerInitializesOnAPipeAndItsLinesReachTheReader) {
    zortest::ScratchDir dir;
    for (const ZR_BOOL sync : {1, 0}) {
        const std::string path = dir / (sync ? "sync.pipe" : "async.pipe");
        ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
        const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        ASSERT_GE(reader, 0);
        auto initialized = std::async(std::launch::async, [&] {
            zor::Logger::Instance()->Initialize("Pipe", path, 1, 1000, 0, 0, sync);
        });
        const bool returned = initialized.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
        if (!returned) close(open(path.c_str(), O_WRONLY | O_NONBLOCK));
        initialized.get();
        ASSERT_TRUE(returned) << "Initialize blocked on the pipe";
        ZOR_LOG_INFO("through the pipe");
        zor::Logger::DestroyInstance();
        std::string text;
        zortest::waitUntil([&] {
            char buffer[512];
            const ssize_t got = read(reader, buffer, sizeof buffer);
            if (got > 0) text.append(buffer, static_cast<size_t>(got));
            return text.find('\n') != std::string::npos;
        });
        close(reader);
        EXPECT_NE(std::string::npos, text.find(") Info:  through the pipe\n")) << text;
    }
}

// Eight threads log back to back through Instance() while the logger is destroyed under them, in both
// modes. No call may touch freed memory or abort; each call either writes its whole line or drops it,
// and every call that returned before DestroyInstance began is in the file.
TEST(FaultDestroyWhileLogging, StragglersWriteOrDropTheirLinesAndNeverCrash) {
    zortest::ScratchDir dir;
    constexpr int THREADS = 8, ROUNDS = 6;
    for (int round = 0; round < ROUNDS; ++round) {
        const std::string path = dir / ("round" + std::to_string(round) + ".log");
        zor::Logger::Instance()->Initialize("Race", path, 1024, 1000000, 0, 0, round % 2);
        std::atomic<bool> destroying{false}, stop{false};
        std::atomic<int> calls{0};
        std::vector<int> lastBefore(THREADS, -1);
        std::vector<std::thread> threads;
        for (int t = 0; t < THREADS; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; !stop; ++i) {
                    zortest::thrownMessage([&] { ZOR_LOG_INFO("t%d i%d end", t, i); });
                    if (!destroying) lastBefore[t] = i;
                    ++calls;
                }
            });
        }
        zortest::waitUntil([&] { return calls >= THREADS * 200; }, 10000);
        destroying = true;
        zor::Logger::DestroyInstance();
        const int after = calls;
        zortest::waitUntil([&] { return calls >= after + THREADS * 200; }, 10000);
        stop = true;
        for (auto& thread : threads) thread.join();
        zor::Logger::DestroyInstance();  // the stragglers' units, counted on the fresh logger, go too

        std::vector<std::set<int>> written(THREADS);
        for (const std::string& line : linesOf(path)) {
            int t = -1, i = -1;
            char end[4] = {};
            ASSERT_EQ(3, std::sscanf(line.c_str() + line.find(") Info:  ") + 9, "t%d i%d %3s", &t, &i, end))
                << line;
            ASSERT_STREQ("end", end) << line;
            EXPECT_TRUE(written.at(t).insert(i).second) << "twice: " << line;
        }
        for (int t = 0; t < THREADS; ++t) {
            for (int i = 0; i <= lastBefore[t]; ++i) ASSERT_EQ(1U, written[t].count(i)) << round << " t" << t;
        }
    }
}

TEST(FaultDiskFull, JournalDropsLinesOnAFullDiskWithoutChangingResultsAndWritesAgainWhenReopened) {
    zortest::ScratchDir dir;
    zortest::WorkDir here(dir.Path());
    const std::string journal = ".filesystem." + std::to_string(getpid()) + ".log";
    if (makeFullDevice(dir, journal).empty())
        GTEST_SKIP() << "cannot make a full-device node here (needs root)";
    zor::Path::SetOutput(1);
    EXPECT_EQ(0, zor::filesystem::CreateDir(dir / "lost"));  // the change happens; only its line is lost
    EXPECT_TRUE(zor::SysUtils::IsDirectoryFile(dir / "lost"));
    zor::path_inner::Printer::Instance()->Dispose();
    ASSERT_EQ(0, unlink(journal.c_str()));  // the disk has room again
    zor::path_inner::Printer::Instance()->Initialize(1);
    EXPECT_EQ(0, zor::filesystem::CreateDir(dir / "kept"));
    zor::path_inner::Printer::DestroyInstance();
    const auto lines = linesOf(dir / journal);
    ASSERT_EQ(2U, lines.size());  // the header and the second change
    EXPECT_NE(std::string::npos, lines[1].find("CREATE [0] [" + dir / "kept" + "]"));
}

TEST(FaultNoDescriptors, EveryOpenFailsWithItsOwnResultAndWorksAgainOnceDescriptorsAreFree) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer runtimes open descriptors of their own and misreport when none is left";
#endif
    zortest::ScratchDir dir;
    const std::string logPath = dir / "fd.log";
    const std::string filePath = dir / "data";
    const int status = zortest::exitStatusOf([&] {  // fills its descriptor table, then runs the checks
        rlimit limit{64, 64};
        setrlimit(RLIMIT_NOFILE, &limit);
        std::vector<int> spare;
        for (int fd; (fd = dup(0)) >= 0;) spare.push_back(fd);
        if (zortest::thrownMessage([] { zor::TCPSocket socket(1); }) != "create socket failed!") return 1;
        zor::PrimeFile prime(filePath);
        zor::StreamFile stream(filePath);
        if (prime.Open(zor::File::OpenModeWrite) != -1 || stream.Open(zor::File::OpenModeWrite) != -1)
            return 2;
        const std::string error = zortest::thrownMessage(
            [&] { zor::Logger::Instance()->Initialize("Fd", logPath, 1, 100, 0, 0, 1); });
        if (error != "open logger file failed!!") return 3;
        for (int fd : spare) close(fd);
        zor::TCPSocket socket(1);
        if (prime.Open(zor::File::OpenModeWrite) != 0 || stream.Open(zor::File::OpenModeRead) != 0) return 4;
        zor::Logger::Instance()->Initialize("Fd", logPath, 1, 100, 0, 0, 1);  // not initialised before
        ZOR_LOG_INFO("back");
        zor::Logger::DestroyInstance();
        return linesOf(logPath).size() == 1 ? 0 : 5;
    });
    EXPECT_EQ(0, status) << "failed check number " << status;
}

void onSignal(int) {}

// SIGUSR1 arrives every 3 ms without SA_RESTART, so interruptible calls return EINTR.
TEST(FaultSignals, WaitsAndDelaysSurviveInterruptionsOrReportThem) {
    zor::Semaphore sem(1);
    zor::TCPServer server(2);
    ASSERT_EQ(0, server.Bind(zor::SockAddress("127.0.0.1", 0)));
    ASSERT_EQ(0, server.Listen(4));
    struct sigaction action = {}, previous = {};
    action.sa_handler = onSignal;
    sigaction(SIGUSR1, &action, &previous);
    std::atomic<bool> stop{false};
    std::thread storm([&, target = pthread_self()] {
        for (int n = 0; !stop; ++n) {
            if (n == 30) sem.Signal();  // about 100 ms into the storm
            pthread_kill(target, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
    });
    EXPECT_EQ(1, sem.Wait(10000));  // condition waits are not cut short by signals
    auto start = zortest::Clock::now();
    EXPECT_EQ(0, zor::SysUtils::DelayMseconds(300));  // nor are the library's delays
    EXPECT_GE(zortest::elapsedMs(start), 295);
    start = zortest::Clock::now();
    EXPECT_EQ(0, zor::SysUtils::DelayUseconds(200000));
    EXPECT_GE(zortest::elapsedMs(start), 195);
    EXPECT_EQ(-1, zor::SysUtils::DelayUseconds(1000000));  // a whole second or more is refused
    int interrupted = 0;
    for (int i = 0; i < 20 && interrupted == 0; ++i) {
        const int result = server.SelectForRead(50000);
        if (result == -1) interrupted = errno;
        EXPECT_NE(1, result);  // nobody connects: never "ready"
    }
    EXPECT_EQ(EINTR, interrupted);  // poll-based waits report the signal as -1 with EINTR
    zor::Epoll reactor(60000, 4);
    EXPECT_EQ(zor::E_OK, reactor.EpollInitialize());
    start = zortest::Clock::now();
    reactor.EpollWait();  // interrupted: returns at once instead of waiting its minute
    EXPECT_LT(zortest::elapsedMs(start), 30000);
    stop = true;
    storm.join();
    sigaction(SIGUSR1, &previous, nullptr);
}

TEST(FaultPeerReset, ReceiveReportsTheResetAndTheServerKeepsServingOthers) {
    zor::TCPServer server(2);
    ASSERT_EQ(0, server.Bind(zor::SockAddress("127.0.0.1", 0)));
    ASSERT_EQ(0, server.Listen(4));
    const int before = zortest::openDescriptorCount();
    {
        zor::TCPSocket rude(1), polite(1);
        zor::SockAddress peer;
        ASSERT_EQ(0, rude.Connect(server.LocalAddress()));
        std::unique_ptr<zor::TCPSocket> reset(server.Accept(peer));
        ASSERT_TRUE(reset != nullptr && rude.SetLinger(1, 0) == 0);  // closing then sends a reset
        rude.Close();
        ZR_BYTE got[4] = {};
        EXPECT_EQ(-1, reset->RecvBytes(got, 1));
        EXPECT_EQ(ECONNRESET, reset->LastError());
        ASSERT_EQ(0, polite.Connect(server.LocalAddress()));
        std::unique_ptr<zor::TCPSocket> served(server.Accept(peer));
        ASSERT_NE(nullptr, served);
        ASSERT_EQ(4, polite.SendBytes(zortest::bytes("ping"), 4));
        ASSERT_EQ(4, served->RecvBytes(got, 4));
        EXPECT_EQ(0, std::memcmp("ping", got, 4));
    }
    EXPECT_EQ(before, zortest::openDescriptorCount());
}

}  // namespace
