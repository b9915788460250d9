#include "Task.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "SysUtils.h"
#include "TestUtil.h"

namespace {

using zortest::Clock;
using zortest::elapsedMs;

// Remembers which thread ran it and whether that thread had been asked to stop while the work ran.
class Probe : public zor::Task {
public:
    zor::RetType ExecuteSync() override {
        m_runner = zor::OSThread::Current();
        zor::SysUtils::DelayMseconds(20);
        m_stopSeen = m_runner != nullptr && m_runner->IsStop();
        m_runs.fetch_add(1);
        return 42;
    }
    zor::OSThread* m_runner = nullptr;
    bool m_stopSeen = false;
    std::atomic<int> m_runs{0};
};

TEST(Task, AsyncRunsOnItsOwnThreadAndReturnsOnlyAfterTheDelayedWork) {
    Probe probe;
    Clock::time_point start = Clock::now();
    EXPECT_EQ(42, probe.ExecuteAsync(200, 1));
    EXPECT_GE(elapsedMs(start), 200);
    EXPECT_NE(nullptr, probe.m_runner);
    EXPECT_FALSE(probe.m_stopSeen);  // not asked to stop before the work ended

    start = Clock::now();
    EXPECT_EQ(0, probe.ExecuteAsync(200, 0));
    EXPECT_GE(elapsedMs(start), 200);
    EXPECT_EQ(2, probe.m_runs.load());  // the work ran before ExecuteAsync returned
}

TEST(Task, ExecutorWithoutTaskReturnsZeroWithoutHanging) {
    zor::TaskExecutor waited(nullptr, 0);
    EXPECT_EQ(0, waited.ExecuteTask(1));
    zor::TaskExecutor unwaited(nullptr, 5);
    EXPECT_EQ(0, unwaited.ExecuteTask(0));
}

}  // namespace
