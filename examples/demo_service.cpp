// demo_service: a small service built only on zor, along the library's typical path.
//
//   - the logger writes asynchronously into <workdir>/logs/demo.log, separated into backups;
//   - the action manager runs a periodic action that hands an MD5 job to the thread pool;
//   - an Epoll reactor serves a TCP echo protocol on a loopback port (echo_server.h), and a built-in
//     client drives it for --seconds;
//   - the service's own file-system changes go to the change journal in <workdir>;
//   - everything stops in order (client, actions, pool, reactor, journal, logger last) and the demo
//     prints what it did. It exits 0 only if no echo was lost and no thread or descriptor is left.
//
// demo_service --help lists the options; the soak test uses --sync-log, --churn and many clients.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Action.h"
#include "FileSystem.h"
#include "Logger.h"
#include "MD5.h"
#include "OSTime.h"
#include "SysUtils.h"
#include "TCPServer.h"
#include "TCPSocket.h"
#include "Thread.h"
#include "ThreadPool.h"
#include "ZorVersion.h"
#include "echo_server.h"

namespace {

struct Options {
    int iSeconds = 5;
    int iPort = 0;  // 0: the first free port from 20000 on
    int iClients = 8;
    int iLogLines = 50;  // lines per log file before it is separated into a backup
    bool bSyncLog = false;
    bool bChurn = false;
    std::string sWorkDir = "demo-run";
};

const char* const USAGE =
    "Usage: demo_service [OPTION]...\n"
    "Runs a small service built on zor, stops it in order and checks that nothing was lost.\n"
    "\n"
    "  --seconds N     run the echo clients for N seconds (1 to 86400; default 5)\n"
    "  --port P        serve on 127.0.0.1:P (1 to 65535; default: the first free port from 20000)\n"
    "  --clients N     open N client connections (1 to 1000; default 8)\n"
    "  --log-lines N   separate the log into a backup every N lines (1 to 1000000000; default 50)\n"
    "  --workdir DIR   write the log, the journal and the demo's files under DIR (default demo-run)\n"
    "  --sync-log      write the log synchronously instead of through its writer thread\n"
    "  --churn         repeat the journalled file-system changes at every tick\n"
    "  --help          print this help and exit\n"
    "\n"
    "Exit status: 0 when the demo finished cleanly, 1 when it failed, 2 for a wrong command line.\n";

// Says what is wrong with the command line; returns the exit status for it.
int usageError(const std::string& problem) {
    std::fprintf(stderr, "demo_service: %s\nTry 'demo_service --help'.\n", problem.c_str());
    return 2;
}

// An option that takes a whole number from lo to hi.
struct Numeric {
    const char* name;
    int* value;
    long lo, hi;
};

// Stores the number in `text` if it is a whole one in range; false otherwise.
bool parseNumber(const char* text, const Numeric& option) {
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || number < option.lo || number > option.hi) return false;
    *option.value = static_cast<int>(number);
    return true;
}

// Fills `options` from the command line. Returns -1 to run the demo, or the status to exit with at once.
int parseOptions(int argc, char** argv, Options& options) {
    const Numeric numerics[] = {{"--seconds", &options.iSeconds, 1, 86400},
                                {"--port", &options.iPort, 1, 65535},
                                {"--clients", &options.iClients, 1, 1000},
                                {"--log-lines", &options.iLogLines, 1, 1000000000}};
    const Numeric* const noNumeric = std::end(numerics);
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help") {
            std::fputs(USAGE, stdout);
            return 0;
        }
        if (arg == "--sync-log" || arg == "--churn") {
            (arg == "--sync-log" ? options.bSyncLog : options.bChurn) = true;
            continue;
        }
        if (arg.compare(0, 2, "--") != 0) return usageError("unexpected argument '" + arg + "'");
        const Numeric* numeric =
            std::find_if(std::begin(numerics), noNumeric, [&](const Numeric& n) { return arg == n.name; });
        if (numeric == noNumeric && arg != "--workdir") return usageError("unknown option '" + arg + "'");
        if (++i == argc) return usageError(arg + " needs a value");
        if (numeric == noNumeric) {
            options.sWorkDir = argv[i];
        } else if (!parseNumber(argv[i], *numeric)) {
            return usageError(arg + " needs a whole number from " + std::to_string(numeric->lo) + " to " +
                              std::to_string(numeric->hi) + ", not '" + argv[i] + "'");
        }
    }
    return -1;
}

int countEntries(const char* dir) {
    int count = 0;
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(dir), closedir);
    while (listing && readdir(listing.get()) != nullptr) ++count;
    return count;
}
int openDescriptors() { return countEntries("/proc/self/fd") - 3; }  // ".", ".." and the listing itself
int runningThreads() { return countEntries("/proc/self/task") - 2; }

// Threads beyond `atStart`. A thread that was just joined stays listed for a moment after pthread_join
// returns, so the count is given up to two seconds to settle; one that really runs on is still counted.
int threadsLeftOver(int atStart) {
    for (int waited = 0; runningThreads() > atStart && waited < 2000; waited += 10) {
        zor::SysUtils::DelayMseconds(10);
    }
    return runningThreads() - atStart;
}

struct Counters {
    std::atomic<long> actions{0};
    std::atomic<long> jobsPushed{0};
    std::atomic<long> jobsDone{0};
    std::atomic<long> echoes{0};
    std::atomic<long> echoErrors{0};
    std::atomic<long> logCalls{0};
    std::atomic<bool> stopping{false};
    bool bChurn = false;
};
Counters g_counters;

// Every line the demo logs is counted, so that the end can check that none was lost.
#define DEMO_LOG(...)              \
    do {                           \
        ++g_counters.logCalls;     \
        ZOR_LOG_INFO(__VA_ARGS__); \
    } while (0)

void touchTheDisk();

// ---- work: a periodic action hands MD5 jobs to the pool ----

class DigestJob : public zor::CJob {
public:
    explicit DigestJob(ZR_Uint32 seed) : zor::CJob("digest", nullptr), m_seed(seed) {}
    void Run() override {
        std::vector<ZR_BYTE> buffer(64 * 1024);
        for (size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<ZR_BYTE>(i * 31 + m_seed);
        zor::MD5 digest(buffer.data(), static_cast<ZR_Uint32>(buffer.size()));
        DEMO_LOG("job %u: md5 of 64 KiB = %s", GetJobNo(), digest.ToString().c_str());
        ++g_counters.jobsDone;
    }

private:
    ZR_Uint32 m_seed;
};

int onTick(void* data) {
    auto* self = static_cast<zor::Action*>(data);
    if (g_counters.stopping) return 0;
    const long n = ++g_counters.actions;
    ++g_counters.jobsPushed;
    zor::CThreadPool::GetInstance()->PushJob(new DigestJob(static_cast<ZR_Uint32>(n)));
    if (g_counters.bChurn) touchTheDisk();
    zor::ActionMgr::Instance()->NewAction(self, 100);  // again in one tick
    return 0;
}

// ---- the echo server's loop: the reactor dispatches on a thread of its own ----

class Dispatcher : public zor::OSThread {
public:
    explicit Dispatcher(echo::Server& server) : m_server(server) {}
    // Stop() wakes the loop wherever it waits; then the thread can be joined.
    ~Dispatcher() override {
        m_server.Stop();
        StopAndWait();
    }

protected:
    void Entry() override { m_server.Run(); }

private:
    echo::Server& m_server;
};

// ---- the built-in client: several connections, each message checked when it comes back ----

class EchoClient : public zor::OSThread {
public:
    EchoClient(const zor::SockAddress& server, int connections)
        : m_server(server), m_connections(connections) {}
    ~EchoClient() override { StopAndWait(); }

protected:
    void Entry() override {
        std::vector<std::unique_ptr<zor::TCPSocket>> sockets;
        for (int i = 0; i < m_connections; ++i) {
            sockets.emplace_back(new zor::TCPSocket(1));
            if (sockets.back()->Connect(m_server) != 0) ++g_counters.echoErrors;
        }
        for (long seq = 0; !IsStop(); ++seq) {
            for (size_t i = 0; i < sockets.size(); ++i) roundTrip(*sockets[i], i, seq);
            if (seq % 500 == 0) DEMO_LOG("client: %ld echo round trips so far", g_counters.echoes.load());
        }
    }

private:
    static void roundTrip(zor::TCPSocket& socket, size_t connection, long seq) {
        char message[64];
        std::memset(message, '.', sizeof message);
        std::snprintf(message, sizeof message, "connection %zu message %ld ", connection, seq);
        message[sizeof message - 1] = '.';  // a fixed 64-byte frame
        const auto* bytes = reinterpret_cast<const ZR_BYTE*>(message);
        char reply[sizeof message] = {};
        if (socket.SendBytes(bytes, sizeof message) != static_cast<ZR_INT>(sizeof message)) {
            ++g_counters.echoErrors;
            return;
        }
        for (size_t got = 0; got < sizeof reply;) {
            const ZR_INT n = socket.RecvBytes(reinterpret_cast<ZR_BYTE*>(reply) + got,
                                              static_cast<ZR_Uint32>(sizeof reply - got));
            if (n <= 0) {
                ++g_counters.echoErrors;
                return;
            }
            got += static_cast<size_t>(n);
        }
        if (std::memcmp(message, reply, sizeof message) == 0) {
            ++g_counters.echoes;
        } else {
            ++g_counters.echoErrors;
        }
    }

    zor::SockAddress m_server;
    int m_connections;
};

// ---- the service's own file-system changes, recorded in the journal ----

void touchTheDisk() {
    zor::filesystem::CreateDir("./archive");
    zor::StreamFile report("./report.txt");
    if (report.Open(zor::File::OpenModeWrite) == 0) report.WriteLine("demo report\n");
    report.Close();
    zor::filesystem::Rename("./report.txt", "report-final.txt");
    zor::filesystem::Remove("./archive", 1);
}

int countBackups(const std::string& logPath) {
    int backups = 0;
    for (int n = 1; n <= 5; ++n)
        backups += access((logPath + "_" + std::to_string(n)).c_str(), F_OK) == 0 ? 1 : 0;
    return backups;
}

long countLines(const std::string& path) {
    std::ifstream in(path);
    return std::count(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>(), '\n');
}

// Lines of the demo found in the live log and its backups.
long demoLinesKept(const std::string& logPath) {
    long lines = countLines(logPath);
    for (int n = 1; n <= 5; ++n) lines += countLines(logPath + "_" + std::to_string(n));
    return lines;
}

// The periodic action feeds the pool: the pool starts first and the action is scheduled last.
zor::Action* startWork() {
    zor::CThreadPool::GetInstance()->Initialize();
    auto* ticker = new zor::Action("ticker");
    ticker->SetProcessor(onTick, ticker);
    zor::ActionMgr::Instance()->NewAction(ticker, 100);
    return ticker;
}

// The reverse: no new job once the action is gone, then the pool once the jobs pushed are done.
void stopWork(zor::Action* ticker) {
    g_counters.stopping = true;
    zor::ActionMgr::Instance()->DeleteAction(ticker);
    zor::ActionMgr::DestroyInstance();
    delete ticker;  // after DeleteAction: the manager no longer holds it
    while (g_counters.jobsDone < g_counters.jobsPushed) zor::SysUtils::DelayMseconds(10);
    zor::CThreadPool::DeleteInstance();
}

// Serves echoes while the built-in client drives them and the periodic work runs, then stops it all in
// order: client, action and pool, reactor loop, server. False when the server cannot listen.
bool serveEchoes(const Options& options, ZR_Uint16 port) {
    std::unique_ptr<echo::Server> server;
    try {
        server.reset(new echo::Server(zor::SockAddress("127.0.0.1", port)));
    } catch (const std::runtime_error& e) {
        std::fprintf(stderr, "demo_service: %s\n", e.what());
        return false;
    }
    DEMO_LOG("echo server on %s", server->Address().ToString().c_str());
    zor::Action* ticker = startWork();
    {
        Dispatcher dispatcher(*server);
        dispatcher.Start();
        {
            EchoClient client(server->Address(), options.iClients);
            client.Start();
            zor::SysUtils::DelaySeconds(options.iSeconds);
        }  // the client stops and closes its connections
        stopWork(ticker);
    }  // the reactor's loop ends
    return true;
}  // the server closes what is still open

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const int status = parseOptions(argc, argv, options);
    if (status >= 0) return status;
    std::signal(SIGPIPE, SIG_IGN);  // our sockets send without MSG_NOSIGNAL: a vanished peer is an error
    const int descriptorsAtStart = openDescriptors();
    // ThreadSanitizer's runtime starts a thread of its own with the process's first thread: have that
    // happen before the count, so that only the demo's threads are compared at the end.
    std::thread([] {}).join();
    const int threadsAtStart = runningThreads();
    ::mkdir(options.sWorkDir.c_str(), 0755);
    if (chdir(options.sWorkDir.c_str()) != 0) {
        std::fprintf(stderr, "demo_service: cannot enter %s\n", options.sWorkDir.c_str());
        return 1;
    }
    const std::string workDir = zor::filesystem::GetCurWorkDir();
    std::printf("zor %s demo service in %s, running %d s\n", ZOR_VERSION_STRING, workDir.c_str(),
                options.iSeconds);

    // The logger first: everything below logs. Debug lines stay out (threshold 5).
    zor::Logger::Instance()->Initialize("demo", "./logs/demo.log", 64,
                                        static_cast<ZR_Uint32>(options.iLogLines), 5, 0,
                                        options.bSyncLog ? 1 : 0);
    const ZR_Uint32 linesBefore = zor::Logger::Instance()->TotalLines();
    DEMO_LOG("demo service starting");
    g_counters.bChurn = options.bChurn;
    zor::Path::SetOutput(1);
    touchTheDisk();
    const ZR_Uint16 port = options.iPort > 0 ? static_cast<ZR_Uint16>(options.iPort)
                                             : zor::SysUtils::GetAvailPortTCP("127.0.0.1", 20000, 40000);
    const bool bServed = port != 0 && serveEchoes(options, port);

    const std::string logPath = workDir + "/logs/demo.log";
    const std::string journalPath = workDir + "/.filesystem." + std::to_string(getpid()) + ".log";
    DEMO_LOG("demo service stopping");
    const ZR_Uint32 logLines = zor::Logger::Instance()->TotalLines() - linesBefore;
    zor::path_inner::Printer::DestroyInstance();
    zor::Logger::DestroyInstance();  // the writer drains its queue into the file first
    // Separations beyond the five backups drop the oldest on purpose; below that nothing may be missing.
    const bool bRotatedAway = countBackups(logPath) == 5;
    const long linesKept = demoLinesKept(logPath);
    const bool bLogOk = bRotatedAway || linesKept >= g_counters.logCalls;

    const int threadsLeft = threadsLeftOver(threadsAtStart);
    const int descriptorsLeft = openDescriptors() - descriptorsAtStart;
    std::printf("actions run:        %ld\n", g_counters.actions.load());
    std::printf("jobs done:          %ld (MD5 of 64 KiB each)\n", g_counters.jobsDone.load());
    std::printf("echo round trips:   %ld on port %u, %ld lost\n", g_counters.echoes.load(), port,
                g_counters.echoErrors.load());
    std::printf("log lines written:  %u (%ld kept in the log and its backups), backups: %d\n", logLines,
                linesKept, countBackups(logPath));
    std::printf("log:                %s\n", logPath.c_str());
    std::printf("journal:            %s\n", journalPath.c_str());
    std::printf("threads left:       %d, descriptors left: %d\n", threadsLeft, descriptorsLeft);
    const bool ok = bServed && g_counters.echoErrors == 0 && g_counters.echoes > 0 &&
                    g_counters.jobsDone > 0 && bLogOk && threadsLeft == 0 && descriptorsLeft == 0;
    std::printf("%s\n", ok ? "demo finished cleanly" : "demo FAILED");
    return ok ? 0 : 1;
}
