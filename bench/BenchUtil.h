// BenchUtil.h
//
// Conventions shared by the benchmark programs. A benchmark is named "<case>/<impl>[/args]", where impl
// is "zor" for the library and the peer's name otherwise ("std", "spdlog", "poco", "openssl", ...). The
// shared main prints, after the usual report, one row per case: zor's time, the peer's time and the ratio
// peer/zor (above 1 means zor is faster). ZOR_BENCH_TARGET records the ratio a case must reach, either
// for every peer ("case") or for one ("case/peer").
#ifndef ZOR_BENCH_BENCHUTIL_H_
#define ZOR_BENCH_BENCHUTIL_H_

#include <sched.h>

#include <string>

namespace zor_bench {

// Binds the calling thread to one CPU (taken modulo the CPUs online). Round trips between two threads
// depend mostly on whether they share a core, which the scheduler decides afresh for every run; pinned
// the same way, both sides of a comparison run under the same conditions.
void PinTo(int iCpu);

// Keeps the calling thread's CPU set and gives it back when the benchmark ends.
class SavedAffinity {
public:
    SavedAffinity();
    ~SavedAffinity();
    SavedAffinity(const SavedAffinity&) = delete;
    SavedAffinity& operator=(const SavedAffinity&) = delete;

private:
    cpu_set_t m_saved;
};

// Registers the lowest acceptable peer/zor ratio of a case and the wording of the goal.
bool RegisterTarget(const std::string& sCase, double dMinRatio, const std::string& sGoal);
// Registers the longest acceptable zor time of a case that has no peer, in nanoseconds.
bool RegisterLimit(const std::string& sCase, double dMaxNs, const std::string& sGoal);

}  // namespace zor_bench

#define ZOR_BENCH_CONCAT_(a, b) a##b
#define ZOR_BENCH_CONCAT(a, b) ZOR_BENCH_CONCAT_(a, b)
#define ZOR_BENCH_TARGET(caseName, minRatio, goal)                                   \
    static const bool ZOR_BENCH_CONCAT(zorBenchTarget_, __LINE__) [[maybe_unused]] = \
        zor_bench::RegisterTarget(caseName, minRatio, goal)

#define ZOR_BENCH_LIMIT(caseName, maxNs, goal)                                      \
    static const bool ZOR_BENCH_CONCAT(zorBenchLimit_, __LINE__) [[maybe_unused]] = \
        zor_bench::RegisterLimit(caseName, maxNs, goal)

#endif  // ZOR_BENCH_BENCHUTIL_H_
