// Mutex and Semaphore beside the standard library's equivalents, in the same run.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "BenchUtil.h"
#include "Locks.h"
#include "Semaphore.h"

namespace {

ZOR_BENCH_TARGET("mutex_uncontended", 1 / 1.1, "within 1.1x of std");
ZOR_BENCH_TARGET("mutex_2threads", 1 / 1.1, "within 1.1x of std");
ZOR_BENCH_TARGET("semaphore_pingpong", 1 / 1.1, "within 1.1x of std");

void mutexUncontendedZor(benchmark::State& state) {
    zor::Mutex mutex(0);
    for (auto _ : state) {
        mutex.Lock();
        mutex.Unlock();
    }
}
BENCHMARK(mutexUncontendedZor)->Name("mutex_uncontended/zor");

void mutexUncontendedStd(benchmark::State& state) {
    std::recursive_mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(mutexUncontendedStd)->Name("mutex_uncontended/std");

// Each mutex sits with the counter it guards on cache lines of its own, so that neither side gains or
// loses from where the linker happened to place it (a mutex straddling two lines, or sharing one with
// the other side's data, moved the ratio by half).
struct alignas(64) GuardedZor {
    zor::Mutex mutex{0};
    long counter = 0;
} sharedZor;
struct alignas(64) GuardedStd {
    std::recursive_mutex mutex;
    long counter = 0;
} sharedStd;

void mutexContendedZor(benchmark::State& state) {
    for (auto _ : state) {
        zor::ScopedLock hold(sharedZor.mutex);
        benchmark::DoNotOptimize(++sharedZor.counter);
    }
}
BENCHMARK(mutexContendedZor)->Name("mutex_2threads/zor")->Threads(2)->UseRealTime();

void mutexContendedStd(benchmark::State& state) {
    for (auto _ : state) {
        std::lock_guard<std::recursive_mutex> hold(sharedStd.mutex);
        benchmark::DoNotOptimize(++sharedStd.counter);
    }
}
BENCHMARK(mutexContendedStd)->Name("mutex_2threads/std")->Threads(2)->UseRealTime();

// The semaphore a user would write with the standard library: a count under a mutex and a condition.
class StdSemaphore {
public:
    void Signal() {
        {
            std::lock_guard<std::mutex> hold(m_mutex);
            ++m_count;
        }
        m_cond.notify_one();
    }
    void Wait() {
        std::unique_lock<std::mutex> hold(m_mutex);
        m_cond.wait(hold, [this] { return m_count > 0; });
        --m_count;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cond;
    int m_count = 0;
};

// One iteration is a round trip: ping to the echo thread, pong back.
template <typename Sem>
void pingPong(benchmark::State& state, Sem& ping, Sem& pong, bool& stop) {
    std::thread echo([&] {
        for (;;) {
            ping.Wait();
            if (stop) return;
            pong.Signal();
        }
    });
    for (auto _ : state) {
        ping.Signal();
        pong.Wait();
    }
    stop = true;
    ping.Signal();
    echo.join();
}

void semaphorePingPongZor(benchmark::State& state) {
    zor::Semaphore ping(4096), pong(4096);
    bool stop = false;
    pingPong(state, ping, pong, stop);
}
BENCHMARK(semaphorePingPongZor)->Name("semaphore_pingpong/zor")->UseRealTime();

void semaphorePingPongStd(benchmark::State& state) {
    StdSemaphore ping, pong;
    bool stop = false;
    pingPong(state, ping, pong, stop);
}
BENCHMARK(semaphorePingPongStd)->Name("semaphore_pingpong/std")->UseRealTime();

}  // namespace
