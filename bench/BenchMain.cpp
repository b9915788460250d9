// The main of every benchmark program: the usual console report, then a table that puts each zor case
// beside its peer with the ratio peer/zor. With ZOR_BENCH_MARKDOWN=file the rows are also appended to
// that file as Markdown, for the results page.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "BenchUtil.h"

namespace {

// A case is met when peer/zor reaches dMinRatio or, for a case without a peer, zor's time stays at or
// below dMaxNs.
struct Target {
    double dMinRatio;
    double dMaxNs;
    std::string sGoal;
};

std::map<std::string, Target>& targets() {
    static std::map<std::string, Target> table;
    return table;
}

struct Row {
    std::map<std::string, double> nsByImpl;  // "zor" and the peer(s)
};

std::string describeTime(double ns) {
    char text[64];
    if (ns >= 1e6) {
        std::snprintf(text, sizeof text, "%.2f ms", ns / 1e6);
    } else if (ns >= 1e3) {
        std::snprintf(text, sizeof text, "%.2f us", ns / 1e3);
    } else {
        std::snprintf(text, sizeof text, "%.1f ns", ns);
    }
    return text;
}

// Splits "case/impl/rest" into the case key (case plus rest) and the implementation name.
bool splitName(const std::string& sName, std::string& sKey, std::string& sImpl) {
    const size_t first = sName.find('/');
    if (first == std::string::npos) return false;
    const size_t second = sName.find('/', first + 1);
    sImpl = sName.substr(first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
    sKey = sName.substr(0, first) + (second == std::string::npos ? "" : sName.substr(second));
    return true;
}

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const bool isMedian = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type == Run::RT_Aggregate && !isMedian) continue;  // with repetitions, the median
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty()) name += "/" + run.run_name.args;
            if (!run.run_name.threads.empty()) name += "/" + run.run_name.threads;
            std::string sKey, sImpl;
            if (!splitName(name, sKey, sImpl)) continue;
            const double ns =
                run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
            m_rows[sKey].nsByImpl[sImpl] = ns;
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-40s %12s %12s %-10s %8s  %s\n", "case", "zor", "peer", "peer-name", "ratio",
                    "target");
        const char* mdPath = std::getenv("ZOR_BENCH_MARKDOWN");
        FILE* md = mdPath != nullptr ? std::fopen(mdPath, "a") : nullptr;
        for (const auto& [sKey, row] : m_rows) printRow(sKey, row, md);
        if (md != nullptr) std::fclose(md);
    }

private:
    static void printRow(const std::string& sKey, const Row& row, FILE* md) {
        const auto zor = row.nsByImpl.find("zor");
        if (zor == row.nsByImpl.end()) return;
        if (row.nsByImpl.size() == 1) printAlone(sKey, zor->second, md);
        for (const auto& [sImpl, ns] : row.nsByImpl) {
            if (sImpl == "zor") continue;
            const double ratio = ns / zor->second;
            std::string goal = "-";
            const char* verdict = "";
            const std::string sCase = sKey.substr(0, sKey.find('/'));
            auto target = targets().find(sCase + "/" + sImpl);  // a target for this peer, else the case's
            if (target == targets().end()) target = targets().find(sCase);
            if (target != targets().end()) {
                goal = target->second.sGoal;
                verdict = ratio >= target->second.dMinRatio ? "met" : "MISSED";
            }
            std::printf("%-40s %12s %12s %-10s %8.3f  %s %s\n", sKey.c_str(),
                        describeTime(zor->second).c_str(), describeTime(ns).c_str(), sImpl.c_str(), ratio,
                        goal.c_str(), verdict);
            if (md != nullptr) {
                std::fprintf(md, "| %s | %s | %s (%s) | %.3f | %s | %s |\n", sKey.c_str(),
                             describeTime(zor->second).c_str(), describeTime(ns).c_str(), sImpl.c_str(),
                             ratio, goal.c_str(), verdict);
            }
        }
    }

    static void printAlone(const std::string& sKey, double ns, FILE* md) {
        std::string goal = "-";
        const char* verdict = "";
        const auto target = targets().find(sKey.substr(0, sKey.find('/')));
        if (target != targets().end() && target->second.dMaxNs > 0) {
            goal = target->second.sGoal;
            verdict = ns <= target->second.dMaxNs ? "met" : "MISSED";
        }
        std::printf("%-40s %12s %12s %-10s %8s  %s %s\n", sKey.c_str(), describeTime(ns).c_str(), "-", "-",
                    "-", goal.c_str(), verdict);
        if (md != nullptr) {
            std::fprintf(md, "| %s | %s | - | - | %s | %s |\n", sKey.c_str(), describeTime(ns).c_str(),
                         goal.c_str(), verdict);
        }
    }

    std::map<std::string, Row> m_rows;
};

}  // namespace

namespace zor_bench {

void PinTo(int iCpu) {
    const long lCpus = sysconf(_SC_NPROCESSORS_ONLN);
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(iCpu % static_cast<int>(lCpus > 0 ? lCpus : 1), &cpus);
    pthread_setaffinity_np(pthread_self(), sizeof cpus, &cpus);
}

SavedAffinity::SavedAffinity() { pthread_getaffinity_np(pthread_self(), sizeof m_saved, &m_saved); }

SavedAffinity::~SavedAffinity() { pthread_setaffinity_np(pthread_self(), sizeof m_saved, &m_saved); }

bool RegisterTarget(const std::string& sCase, double dMinRatio, const std::string& sGoal) {
    targets()[sCase] = Target{dMinRatio, 0, sGoal};
    return true;
}

bool RegisterLimit(const std::string& sCase, double dMaxNs, const std::string& sGoal) {
    targets()[sCase] = Target{0, dMaxNs, sGoal};
    return true;
}

}  // namespace zor_bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
