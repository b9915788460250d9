// The action manager: the cost of filling the pending list, how late callbacks run relative to their
// due tick, and how far the tick drifts from wall-clock time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "Action.h"
#include "BenchUtil.h"
#include "Logger.h"
#include "OSTime.h"
#include "SysUtils.h"

namespace {

ZOR_BENCH_LIMIT("newaction_100k_growing", 50e6, "< 50 ms");
ZOR_BENCH_LIMIT("tick_drift_20", 2e6, "< 2 ms");

const std::string LOG_PATH = "/tmp/zor-action-bench." + std::to_string(getpid()) + ".log";

// The manager logs a debug line per scheduling; a threshold of 5 keeps them out of the measurement.
void startLogger() { zor::Logger::Instance()->Initialize("Bench", LOG_PATH, 64, 1000000, 5, 0, 1); }
void stopAll() {
    zor::ActionMgr::DestroyInstance();
    zor::Logger::DestroyInstance();
    std::remove(LOG_PATH.c_str());
}

void newActionGrowing(benchmark::State& state) {
    startLogger();
    zor::ActionMgr* mgr = zor::ActionMgr::Instance();
    mgr->StopAndWait();  // nothing becomes due while the list fills
    constexpr int COUNT = 100000;
    std::vector<std::unique_ptr<zor::Action>> actions;
    for (int i = 0; i < COUNT; ++i) actions.emplace_back(new zor::Action("a"));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < COUNT; ++i)
            mgr->NewAction(actions[i].get(), 100 + static_cast<zor::ActionTime>(i) * 10);
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        state.PauseTiming();
        for (auto& a : actions) mgr->DeleteAction(a.get());
        for (auto& a : actions) a->Reset();
        state.ResumeTiming();
    }
    stopAll();
}
BENCHMARK(newActionGrowing)
    ->Name("newaction_100k_growing/zor")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Each callback records how many microseconds after its due time it ran.
struct Probe {
    zor::Action action{"probe"};
    ZR_Uint64 dueUs = 0;
    std::vector<double>* lateness = nullptr;
};

int onProbe(void* data) {
    auto* probe = static_cast<Probe*>(data);
    probe->lateness->push_back(static_cast<double>(zor::OSTime::GetOSTick() - probe->dueUs) /
                               1e5);  // in ticks
    return 0;
}

// Reported as the 99th percentile of lateness (one tick is 100 ms); the median is the p50_ticks counter.
void callbackLateness(benchmark::State& state) {
    startLogger();
    zor::ActionMgr* mgr = zor::ActionMgr::Instance();
    for (auto _ : state) {
        std::vector<double> lateness;
        std::mt19937 rng(7);
        std::vector<std::unique_ptr<Probe>> probes;
        for (int i = 0; i < 100; ++i) {
            probes.emplace_back(new Probe);
            Probe& p = *probes.back();
            const zor::ActionTime delay = 100 + rng() % 9900;
            p.lateness = &lateness;
            p.dueUs = zor::OSTime::GetOSTick() + delay / 100 * 100000;
            p.action.SetProcessor(onProbe, &p);
            mgr->NewAction(&p.action, delay);
        }
        zor::SysUtils::DelayMseconds(10300);
        for (auto& p : probes) mgr->DeleteAction(&p->action);
        std::sort(lateness.begin(), lateness.end());
        const double p99 = lateness.empty() ? 1e3 : lateness[lateness.size() * 99 / 100];
        state.counters["p50_ticks"] = lateness.empty() ? 1e3 : lateness[lateness.size() / 2];
        state.counters["p99_ticks"] = p99;
        state.SetIterationTime(p99 * 0.1);  // ticks of 100 ms
    }
    stopAll();
}
BENCHMARK(callbackLateness)
    ->Name("callback_lateness_p99/zor")
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// The time 20 ticks take on the manager's own thread, less the nominal 2 s.
int onTick(void* data) {
    auto* ticks = static_cast<std::vector<ZR_Uint64>*>(data);
    ticks->push_back(zor::OSTime::GetOSTick());
    return 0;
}

void tickDrift(benchmark::State& state) {
    startLogger();
    zor::ActionMgr* mgr = zor::ActionMgr::Instance();
    for (auto _ : state) {
        std::vector<ZR_Uint64> ticks;
        std::vector<std::unique_ptr<zor::Action>> actions;
        for (int i = 0; i <= 20; ++i) {
            actions.emplace_back(new zor::Action("tick"));
            actions.back()->SetProcessor(onTick, &ticks);
            mgr->NewAction(actions.back().get(), 100 * (i + 1));
        }
        zor::SysUtils::DelayMseconds(2400);
        for (auto& a : actions) mgr->DeleteAction(a.get());
        const double driftUs =
            ticks.size() == 21 ? std::abs(static_cast<double>(ticks[20] - ticks[0]) - 2e6) : 1e9;
        state.SetIterationTime(driftUs / 1e6);
    }
    stopAll();
}
BENCHMARK(tickDrift)
    ->Name("tick_drift_20/zor")
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
