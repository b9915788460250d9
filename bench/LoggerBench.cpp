// The logger beside spdlog, with the same line content and the same flush policy, in the same run:
// synchronous lines with a flush per line (1 and 4 threads) and the producer's cost per asynchronous line.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "BenchUtil.h"
#include "Logger.h"

namespace {

ZOR_BENCH_TARGET("log_sync_flush", 1.0, ">= 1.0x spdlog");

const std::string DIR = "/tmp/zor-logger-bench." + std::to_string(getpid());
constexpr ZR_Uint32 UNLIMITED = 0xFFFFFFFFU;  // no separation during a run
constexpr int ASYNC_BATCH = 2000;             // well below the logger's 4096-line queue ceiling

void prepareDir() { std::system(("rm -rf " + DIR + " && mkdir -p " + DIR).c_str()); }

void startZor(ZR_BOOL sync) {
    prepareDir();
    zor::Logger::Instance()->Initialize("Bench", DIR + "/zor.log", 1024, UNLIMITED, 0, 0, sync);
}
void zorSyncSetup(const benchmark::State&) { startZor(1); }
void zorAsyncSetup(const benchmark::State&) { startZor(0); }
void zorTeardown(const benchmark::State&) { zor::Logger::DestroyInstance(); }

std::shared_ptr<spdlog::logger> g_spd;
void spdSyncSetup(const benchmark::State&) {
    prepareDir();
    g_spd = spdlog::basic_logger_mt("bench", DIR + "/spd.log", true);
    g_spd->set_pattern("{%n} [%Y-%m-%d %H:%M:%S.%e] %v");
    g_spd->flush_on(spdlog::level::trace);
}
void spdAsyncSetup(const benchmark::State&) {
    prepareDir();
    spdlog::init_thread_pool(8192, 1);
    g_spd = spdlog::create_async<spdlog::sinks::basic_file_sink_mt>("bench", DIR + "/spd.log", true);
    g_spd->set_pattern("{%n} [%Y-%m-%d %H:%M:%S.%e] %v");
}
void spdTeardown(const benchmark::State&) {
    g_spd.reset();
    spdlog::drop_all();
    spdlog::shutdown();
}

void logSyncZor(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) zor::Logger::Instance()->LogInfo("LoggerBench.cpp", "logSync", 42, "value %d", ++i);
}
BENCHMARK(logSyncZor)
    ->Name("log_sync_flush/zor")
    ->Setup(zorSyncSetup)
    ->Teardown(zorTeardown)
    ->Threads(1)
    ->Threads(4)
    ->UseRealTime();

void logSyncSpd(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) g_spd->info("({}:{}:{}) Info:  value {}", "LoggerBench.cpp", "logSync", 42, ++i);
}
BENCHMARK(logSyncSpd)
    ->Name("log_sync_flush/spdlog")
    ->Setup(spdSyncSetup)
    ->Teardown(spdTeardown)
    ->Threads(1)
    ->Threads(4)
    ->UseRealTime();

// The writer threads are given time to catch up between batches, outside the measured time.
void pauseForWriter(benchmark::State& state, int i) {
    if (i % ASYNC_BATCH != 0) return;
    state.PauseTiming();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    state.ResumeTiming();
}

void logAsyncZor(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        zor::Logger::Instance()->LogInfo("LoggerBench.cpp", "logAsync", 42, "value %d", ++i);
        pauseForWriter(state, i);
    }
}
BENCHMARK(logAsyncZor)->Name("log_async_producer/zor")->Setup(zorAsyncSetup)->Teardown(zorTeardown);

void logAsyncSpd(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        g_spd->info("({}:{}:{}) Info:  value {}", "LoggerBench.cpp", "logAsync", 42, ++i);
        pauseForWriter(state, i);
    }
}
BENCHMARK(logAsyncSpd)->Name("log_async_producer/spdlog")->Setup(spdAsyncSetup)->Teardown(spdTeardown);

}  // namespace
