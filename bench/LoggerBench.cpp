// The logger beside spdlog in the same run, on lines like those services write: messages of 16, 100 and
// 250 characters carrying a request id, a user name, a status, a duration and a size, in lines of the
// same layout and length for both libraries ("{Bench} [date time.ms] (file:function:line) Info:  message").
// Both write into one directory on a tmpfs (/dev/shm), so that the disk's latency does not hide what the
// libraries themselves cost. Times are per line; the ratio peer/zor is above 1 when zor is faster (for
// log_async_drain it is zor's lines per second over spdlog's).
//
//   log_sync_flush    synchronous, flushed every line; spdlog: basic_file_sink_mt, flush_on(trace)
//   log_sync_rotate   the same with separation at 1 MiB and 5 backups; spdlog: rotating_file_sink_mt
//   log_async_burst   the caller's cost per line, bursts of 4000 with the writers idle before each
//   log_async_drain   one thread's 20000 lines until all are in the file, flushed per line by spdlog's
//                     writer (block policy) and per pass by zor's
//   log_async_flood   1 or 4 threads back to back; exhausted_pct = share of zor's calls that threw
//                     "Signal exhausted" (spdlog blocks instead)
// A single caller is pinned to CPU 0; writer threads are not pinned, so that a busy core does not starve
// them (an affinity set on the logger's thread would outlive the case).
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

#include "BenchUtil.h"
#include "Logger.h"

namespace {

ZOR_BENCH_TARGET("log_sync_flush", 1.0, ">= 1.0x spdlog");
ZOR_BENCH_TARGET("log_sync_rotate", 0.9, ">= 0.9x spdlog");
ZOR_BENCH_TARGET("log_async_burst", 1.0, ">= 1.0x spdlog");
ZOR_BENCH_TARGET("log_async_drain", 1.0, ">= 1.0x spdlog lines/s");

using Clock = std::chrono::steady_clock;

const std::string DIR = "/dev/shm/zor-logger-bench." + std::to_string(getpid());
const std::string ZOR_PATH = DIR + "/zor.log";
const std::string SPD_PATH = DIR + "/spd.log";
constexpr ZR_Uint32 UNLIMITED = 0xFFFFFFFFU;   // either limit unset: no separation
constexpr ZR_Uint32 MANY_LINES = 0xFFFFFFFEU;  // a line limit never reached, so the size limit counts
constexpr int BURST = 4000;                    // below the logger's 4096 pending lines
constexpr int DRAIN_LINES = 20000;
constexpr int CALLER_CPU = 0;
const char* const FILE_NAME = "LoggerBench.cpp";
const char* const FUNCTION = "handleRequest";
constexpr int LINE = 42;
const char* const PATTERN = "{%n} [%Y-%m-%d %H:%M:%S.%e] (%s:%!:%#) Info:  %v";

// The values of one request; every field has a fixed printed width, so every line has the same length.
struct Request {
    int id;
    const char* user;
    int status;
    double ms;
    int bytes;
    unsigned trace;
};

Request requestFor(long i) {
    static const char* const USERS[] = {"alice", "bob", "carol", "dave"};
    const int n = static_cast<int>(i % 1000000);
    return {n, USERS[n % 4], 200, (n % 1000) * 0.137, n, static_cast<unsigned>(i) * 2654435761U};
}

void logZor(int size, long i) {
    const Request r = requestFor(i);
    zor::Logger* log = zor::Logger::Instance();
    if (size == 16) {
        log->LogInfo(FILE_NAME, FUNCTION, LINE, "id %06d st %3d", r.id, r.status);
    } else if (size == 100) {
        log->LogInfo(FILE_NAME, FUNCTION, LINE,
                     "GET /api/v1/orders/%08d: user %-8s status %3d in %7.3f ms, %06d bytes, request %08x.",
                     r.id, r.user, r.status, r.ms, r.bytes, r.trace);
    } else {
        log->LogInfo(FILE_NAME, FUNCTION, LINE,
                     "POST /api/v2/accounts/%08d/transfers user %-8s status %3d in %7.3f ms: accepted a "
                     "transfer of %06d cents from the checking account to the savings account after fraud "
                     "screening and all limit checks passed, request %08x, trace %08x.",
                     r.id, r.user, r.status, r.ms, r.bytes, r.trace, r.trace ^ 0xFFFFU);
    }
}

std::shared_ptr<spdlog::logger> g_spd;

void logSpd(int size, long i) {
    const Request r = requestFor(i);
    const spdlog::source_loc where{FILE_NAME, LINE, FUNCTION};
    if (size == 16) {
        g_spd->log(where, spdlog::level::info, "id {:06d} st {:3d}", r.id, r.status);
    } else if (size == 100) {
        g_spd->log(where, spdlog::level::info,
                   "GET /api/v1/orders/{:08d}: user {:<8} status {:3d} in {:7.3f} ms, {:06d} bytes, request "
                   "{:08x}.",
                   r.id, r.user, r.status, r.ms, r.bytes, r.trace);
    } else {
        g_spd->log(where, spdlog::level::info,
                   "POST /api/v2/accounts/{:08d}/transfers user {:<8} status {:3d} in {:7.3f} ms: accepted a "
                   "transfer of {:06d} cents from the checking account to the savings account after fraud "
                   "screening and all limit checks passed, request {:08x}, trace {:08x}.",
                   r.id, r.user, r.status, r.ms, r.bytes, r.trace, r.trace ^ 0xFFFFU);
    }
}

void prepareDir() { std::system(("rm -rf " + DIR + " && mkdir -p " + DIR).c_str()); }

// Removes the directory when the program ends.
struct DirRemover {
    ~DirRemover() { std::system(("rm -rf " + DIR).c_str()); }
} g_dirRemover;

// ---- set-up and tear-down of each configuration ----

void startZor(ZR_Uint32 mbytes, ZR_Uint32 lines, ZR_BOOL sync) {
    prepareDir();
    zor::Logger::Instance()->Initialize("Bench", ZOR_PATH, mbytes, lines, 0, 0, sync);
}
void zorSync(const benchmark::State&) { startZor(1024, UNLIMITED, 1); }
void zorRotate(const benchmark::State&) { startZor(1, MANY_LINES, 1); }
void zorAsync(const benchmark::State&) { startZor(1024, UNLIMITED, 0); }
void zorStop(const benchmark::State&) { zor::Logger::DestroyInstance(); }

void startSpd(std::shared_ptr<spdlog::logger> logger, bool flushEveryLine) {
    g_spd = std::move(logger);
    g_spd->set_pattern(PATTERN);
    if (flushEveryLine) g_spd->flush_on(spdlog::level::trace);
}
void spdSync(const benchmark::State&) {
    prepareDir();
    startSpd(spdlog::basic_logger_mt("Bench", SPD_PATH, true), true);
}
void spdRotate(const benchmark::State&) {
    prepareDir();
    startSpd(spdlog::rotating_logger_mt("Bench", SPD_PATH, 1024 * 1024, 5), true);
}
std::shared_ptr<spdlog::logger> spdAsyncLogger() {
    prepareDir();
    spdlog::init_thread_pool(8192, 1);
    return spdlog::create_async<spdlog::sinks::basic_file_sink_mt>("Bench", SPD_PATH, true);
}
void spdAsync(const benchmark::State&) { startSpd(spdAsyncLogger(), false); }
void spdAsyncFlushed(const benchmark::State&) { startSpd(spdAsyncLogger(), true); }
void spdStop(const benchmark::State&) {
    g_spd.reset();
    spdlog::drop_all();
    spdlog::shutdown();
}

// ---- the measured loops, shared by both libraries ----

using LogFn = void (*)(int, long);

// Logs one line; a call that throws "Signal exhausted" (its line was queued all the same) is counted.
void logCounting(LogFn log, int size, long i, long& thrown) {
    try {
        log(size, i);
    } catch (const std::runtime_error&) {
        ++thrown;
    }
}

void reportExhausted(benchmark::State& state, long thrown, long calls) {
    state.counters["exhausted_pct"] =
        benchmark::Counter(100.0 * static_cast<double>(thrown) / static_cast<double>(calls > 0 ? calls : 1),
                           benchmark::Counter::kAvgThreads);
}

void logEveryIteration(benchmark::State& state, LogFn log) {
    const int size = static_cast<int>(state.range(0));
    long i = state.thread_index() * 100000000L;
    for (auto _ : state) log(size, ++i);
}

void logInBursts(benchmark::State& state, LogFn log) {
    const zor_bench::SavedAffinity saved;
    zor_bench::PinTo(CALLER_CPU);
    const int size = static_cast<int>(state.range(0));
    long i = 0, thrown = 0;
    rusage before{};
    getrusage(RUSAGE_THREAD, &before);
    for (auto _ : state) {
        logCounting(log, size, ++i, thrown);
        if (i % BURST != 0) continue;
        state.PauseTiming();  // the writer empties its queue outside the measured time
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        state.ResumeTiming();
    }
    rusage after{};
    getrusage(RUSAGE_THREAD, &after);
    // How often the caller lost its core per burst (one is the pause between bursts): a writer woken
    // onto the caller's core, or a caller giving way, shows here and not in the CPU time.
    const long switches = (after.ru_nvcsw - before.ru_nvcsw) + (after.ru_nivcsw - before.ru_nivcsw);
    state.counters["switches_per_burst"] = static_cast<double>(switches) / static_cast<double>(i / BURST);
    reportExhausted(state, thrown, i);
}

long fileSize(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? static_cast<long>(info.st_size) : -1;
}

// Waits until the file holds `bytes`, at most ten seconds.
void waitForSize(const std::string& path, long bytes) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (fileSize(path) < bytes && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::microseconds(20));
}

// One line first gives the length of every line; then the time from the first call of the batch until
// its last line is in the file, per line.
void logUntilWritten(benchmark::State& state, LogFn log, const std::string& path) {
    const zor_bench::SavedAffinity saved;
    zor_bench::PinTo(CALLER_CPU);
    const int size = static_cast<int>(state.range(0));
    log(size, 0);
    waitForSize(path, 1);
    const long lineBytes = fileSize(path);
    long i = 0, thrown = 0;
    for (auto _ : state) {
        const long target = fileSize(path) + lineBytes * DRAIN_LINES;
        const auto start = Clock::now();
        for (int n = 0; n < DRAIN_LINES; ++n) logCounting(log, size, ++i, thrown);
        waitForSize(path, target);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count() / DRAIN_LINES);
    }
    reportExhausted(state, thrown, i);
    state.counters["line_bytes"] = static_cast<double>(lineBytes);  // the same for both libraries
}

void logBackToBack(benchmark::State& state, LogFn log) {
    const int size = static_cast<int>(state.range(0));
    long i = state.thread_index() * 100000000L, calls = 0, thrown = 0;
    for (auto _ : state) {
        logCounting(log, size, ++i, thrown);
        ++calls;
    }
    reportExhausted(state, thrown, calls);
}

// ---- the cases ----

void syncZor(benchmark::State& state) { logEveryIteration(state, logZor); }
void syncSpd(benchmark::State& state) { logEveryIteration(state, logSpd); }
void burstZor(benchmark::State& state) { logInBursts(state, logZor); }
void burstSpd(benchmark::State& state) { logInBursts(state, logSpd); }
void drainZor(benchmark::State& state) { logUntilWritten(state, logZor, ZOR_PATH); }
void drainSpd(benchmark::State& state) { logUntilWritten(state, logSpd, SPD_PATH); }
void floodZor(benchmark::State& state) { logBackToBack(state, logZor); }
void floodSpd(benchmark::State& state) { logBackToBack(state, logSpd); }

using Case = void (*)(benchmark::State&);
using Hook = void (*)(const benchmark::State&);
using Options = void (*)(benchmark::internal::Benchmark*);

// Registers a case for both libraries with the same message sizes and options, each with its own set-up.
void registerPair(const std::string& name, Case zorCase, Hook zorSetup, Case spdCase, Hook spdSetup,
                  Options options) {
    for (const bool zor : {true, false}) {
        benchmark::internal::Benchmark* b = benchmark::RegisterBenchmark(
            (name + (zor ? "/zor" : "/spdlog")).c_str(), zor ? zorCase : spdCase);
        b->Arg(16)->Arg(100)->Arg(250)->Setup(zor ? zorSetup : spdSetup)->Teardown(zor ? zorStop : spdStop);
        options(b);
    }
}

const bool g_registered = [] {
    registerPair("log_sync_flush", syncZor, zorSync, syncSpd, spdSync,
                 [](benchmark::internal::Benchmark* b) { b->Threads(1)->Threads(4)->UseRealTime(); });
    registerPair("log_sync_rotate", syncZor, zorRotate, syncSpd, spdRotate,
                 [](benchmark::internal::Benchmark* b) { b->UseRealTime(); });
    registerPair("log_async_burst", burstZor, zorAsync, burstSpd, spdAsync,
                 [](benchmark::internal::Benchmark* b) { b->Iterations(BURST * 25); });
    registerPair("log_async_drain", drainZor, zorAsync, drainSpd, spdAsyncFlushed,
                 [](benchmark::internal::Benchmark* b) { b->Iterations(5)->UseManualTime(); });
    registerPair(
        "log_async_flood", floodZor, zorAsync, floodSpd, spdAsync,
        [](benchmark::internal::Benchmark* b) { b->Threads(1)->Threads(4)->MinTime(1.0)->UseRealTime(); });
    return true;
}();

}  // namespace
