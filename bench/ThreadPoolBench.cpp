// The thread pool beside POCO's Poco::ThreadPool, both sized 10 to 30 threads, in the same run: the time
// from handing a job over to its Run() with idle workers (p50/p99 as counters), and 100,000 tiny jobs
// pushed from 4 threads until the last has run. POCO refuses work when every thread is busy, so its
// producers retry as a POCO user would. Task::ExecuteAsync(0, 1) is set beside a std::thread that is
// spawned and joined.
#include <Poco/Exception.h>
#include <Poco/Runnable.h>
#include <Poco/ThreadPool.h>
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchUtil.h"
#include "Logger.h"
#include "Task.h"
#include "ThreadPool.h"

namespace {

ZOR_BENCH_TARGET("pool_dispatch_latency", 1.0, ">= 1.0x Poco::ThreadPool");
ZOR_BENCH_TARGET("pool_100k_jobs", 1.0, ">= 1.0x Poco::ThreadPool");
ZOR_BENCH_TARGET("task_execute_async", 1.0, ">= 1.0x std::thread spawn+join");

constexpr int PRODUCERS = 4;
constexpr int JOBS = 100000;
const std::string DIR = "/tmp/zor-pool-bench." + std::to_string(getpid());

using Clock = std::chrono::steady_clock;

void waitFor(const std::atomic<int>& counter, int value) {
    while (counter.load(std::memory_order_acquire) < value) std::this_thread::yield();
}

// Per-iteration latencies in microseconds, reported as p50/p99 counters.
class Percentiles {
public:
    void Add(Clock::duration d) { m_us.push_back(std::chrono::duration<double, std::micro>(d).count()); }
    void Report(benchmark::State& state) {
        if (m_us.empty()) return;
        std::sort(m_us.begin(), m_us.end());
        state.counters["p50_us"] = m_us[m_us.size() / 2];
        state.counters["p99_us"] = m_us[m_us.size() * 99 / 100];
    }

private:
    std::vector<double> m_us;
};

// ----------------------------------------------------------------------------------------------- zor

class CountJob : public zor::CJob {
public:
    explicit CountJob(std::atomic<int>& counter, bool kept) : CJob("count", nullptr), m_counter(counter) {
        if (kept) m_toDeleted = 0;
    }
    void Run() override { m_counter.fetch_add(1, std::memory_order_release); }

private:
    std::atomic<int>& m_counter;
};

void zorSetup(const benchmark::State&) {
    std::system(("mkdir -p " + DIR).c_str());
    zor::Logger::Instance()->Initialize("Bench", DIR + "/zor.log", 16, 0xFFFFFFFFU, 5, 0, 1);
    zor::CThreadPool::GetInstance()->Initialize();
}
void zorTeardown(const benchmark::State&) {
    zor::CThreadPool::DeleteInstance();
    zor::Logger::DestroyInstance();
    std::system(("rm -rf " + DIR).c_str());
}

void dispatchZor(benchmark::State& state) {
    std::atomic<int> done(0);
    CountJob job(done, true);
    Percentiles latency;
    int expected = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        zor::CThreadPool::GetInstance()->PushJob(&job);
        waitFor(done, ++expected);
        latency.Add(Clock::now() - start);
    }
    while (zor::CThreadPool::GetInstance()->GetBusyThreadNum() != 0) std::this_thread::yield();
    latency.Report(state);
}

void manyJobsZor(benchmark::State& state) {
    for (auto _ : state) {
        std::atomic<int> done(0);
        std::vector<std::thread> producers;
        for (int p = 0; p < PRODUCERS; ++p) {
            producers.emplace_back([&done] {
                for (int i = 0; i < JOBS / PRODUCERS; ++i) {
                    zor::CThreadPool::GetInstance()->PushJob(new CountJob(done, false));
                }
            });
        }
        for (std::thread& t : producers) t.join();
        waitFor(done, JOBS);
    }
}

class ReturnOne : public zor::Task {
public:
    zor::RetType ExecuteSync() override { return 1; }
};

void taskZor(benchmark::State& state) {
    ReturnOne task;
    int sum = 0;
    for (auto _ : state) sum += task.ExecuteAsync(0, 1);
    benchmark::DoNotOptimize(sum);
}

// ---------------------------------------------------------------------------------------------- peers

class CountRunnable : public Poco::Runnable {
public:
    explicit CountRunnable(std::atomic<int>& counter) : m_counter(counter) {}
    void run() override { m_counter.fetch_add(1, std::memory_order_release); }

private:
    std::atomic<int>& m_counter;
};

std::unique_ptr<Poco::ThreadPool> g_poco;
void pocoSetup(const benchmark::State&) { g_poco.reset(new Poco::ThreadPool(10, 30)); }
void pocoTeardown(const benchmark::State&) {
    g_poco->joinAll();
    g_poco.reset();
}

// Poco::ThreadPool has no queue: a start() with every thread busy throws, and the caller tries again.
void startPoco(Poco::Runnable& runnable) {
    for (;;) {
        try {
            g_poco->start(runnable);
            return;
        } catch (const Poco::NoThreadAvailableException&) {
            std::this_thread::yield();
        }
    }
}

void dispatchPoco(benchmark::State& state) {
    std::atomic<int> done(0);
    CountRunnable runnable(done);
    Percentiles latency;
    int expected = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        startPoco(runnable);
        waitFor(done, ++expected);
        latency.Add(Clock::now() - start);
    }
    g_poco->joinAll();
    latency.Report(state);
}

void manyJobsPoco(benchmark::State& state) {
    for (auto _ : state) {
        std::atomic<int> done(0);
        CountRunnable runnable(done);
        std::vector<std::thread> producers;
        for (int p = 0; p < PRODUCERS; ++p) {
            producers.emplace_back([&runnable] {
                for (int i = 0; i < JOBS / PRODUCERS; ++i) startPoco(runnable);
            });
        }
        for (std::thread& t : producers) t.join();
        waitFor(done, JOBS);
    }
}

void taskStd(benchmark::State& state) {
    int sum = 0;
    for (auto _ : state) {
        int result = 0;
        std::thread worker([&result] { result = 1; });
        worker.join();
        sum += result;
    }
    benchmark::DoNotOptimize(sum);
}

// Each case beside its peer, so that both run under the same machine load.
BENCHMARK(dispatchZor)
    ->Name("pool_dispatch_latency/zor")
    ->Setup(zorSetup)
    ->Teardown(zorTeardown)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(dispatchPoco)
    ->Name("pool_dispatch_latency/poco")
    ->Setup(pocoSetup)
    ->Teardown(pocoTeardown)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(manyJobsZor)
    ->Name("pool_100k_jobs/zor")
    ->Setup(zorSetup)
    ->Teardown(zorTeardown)
    ->Iterations(5)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(manyJobsPoco)
    ->Name("pool_100k_jobs/poco")
    ->Setup(pocoSetup)
    ->Teardown(pocoTeardown)
    ->Iterations(5)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(taskZor)->Name("task_execute_async/zor")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(taskStd)->Name("task_execute_async/std")->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
