#include "ThreadPool.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "Logger.h"
#include "Semaphore.h"
#include "SysUtils.h"
#include "TestUtil.h"

namespace {

using zortest::threadCount;

// Runs fn on a worker; the pool deletes it afterwards unless kept is set.
struct FnJob : zor::CJob {
    explicit FnJob(std::function<void()> fn, bool kept = false) : CJob("fn", nullptr), m_fn(std::move(fn)) {
        if (kept) m_toDeleted = 0;
    }
    void Run() override { m_fn(); }
    std::function<void()> m_fn;
};

class ThreadPoolTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Synchronous, so the logger adds no thread of its own; threshold 5 hides the pool's debug lines.
        zor::Logger::Instance()->Initialize("Pool", m_dir / "pool.log", 16, 0xFFFFFFFFU, 5, 0, 1);
    }
    void TearDown() override {
        zor::CThreadPool::DeleteInstance();
        zor::Logger::DestroyInstance();
    }
    static zor::CThreadPool* pool() { return zor::CThreadPool::GetInstance(); }
    // A job that blocks until gate is signalled (bounded, so a fault fails instead of hanging).
    static zor::CJob* gated(zor::Semaphore& gate) {
        return new FnJob([&gate] { gate.Wait(60000); });
    }

    zortest::ScratchDir m_dir;
};

TEST_F(ThreadPoolTest, GrowsBelowLowWaterMarkAndTrimsIdleSurplusBackToInitialSize) {
    zor::Semaphore gate(100);
    ASSERT_EQ(0, pool()->Initialize());
    EXPECT_EQ(10U, pool()->GetIdleThreadNum());
    for (int i = 0; i < 7; ++i) pool()->PushJob(gated(gate));
    EXPECT_EQ(3U, pool()->GetIdleThreadNum());
    EXPECT_EQ(7U, pool()->GetBusyThreadNum());
    pool()->PushJob(gated(gate));  // 3 idle < 4: tops the idle count up to 10 first
    EXPECT_EQ(17U, pool()->GetAllThreadNum());
    EXPECT_EQ(9U, pool()->GetIdleThreadNum());

    pool()->SetHighIdleThreadNum(100);  // no trimming while the idle count climbs
    for (int i = 0; i < 6; ++i) gate.Signal();
    ASSERT_TRUE(zortest::waitUntil(
        [] { return pool()->GetIdleThreadNum() == 15 && pool()->GetBusyThreadNum() == 2; }));
    pool()->SetHighIdleThreadNum(12);
    ASSERT_TRUE(zortest::waitUntil([] { return pool()->GetAllThreadNum() == 12; }));
    EXPECT_EQ(10U, pool()->GetIdleThreadNum());  // 15 - (15 - 10)
    for (int i = 0; i < 2; ++i) gate.Signal();
    EXPECT_TRUE(zortest::waitUntil([] { return pool()->GetBusyThreadNum() == 0; }));
}

TEST_F(ThreadPoolTest, QueuedJobsRunInArrivalOrderAndKeptJobsAreNotDeleted) {
    pool()->SetInitThreadNum(1);
    pool()->SetMaxThreadNum(1);
    pool()->SetLowIdleThreadNum(0);
    pool()->Initialize();
    zor::Semaphore gate(1);
    pool()->PushJob(gated(gate));
    std::atomic<int> next(0);
    std::vector<std::unique_ptr<FnJob>> jobs;  // kept: a pool that deleted them fails under ASan
    for (int i = 0; i < 20; ++i) {
        jobs.emplace_back(new FnJob([&next, i] { EXPECT_EQ(i, next.fetch_add(1)); }, true));
        EXPECT_EQ(jobs[0]->GetJobNo() + i, jobs[i]->GetJobNo());  // numbered across the process
        pool()->PushJob(jobs.back().get());
    }
    EXPECT_EQ(0U, pool()->GetIdleThreadNum());
    gate.Signal();
    EXPECT_TRUE(zortest::waitUntil([&] { return next == 20 && pool()->GetBusyThreadNum() == 0; }));
    // Kept jobs that their owner frees as soon as the work is done; here the work frees its job itself,
    // so a worker that looks at the job after Run() reads freed memory.
    std::atomic<int> freed(0);
    for (int i = 0; i < 50; ++i) {
        auto* job = new FnJob(nullptr, true);
        job->m_fn = [job, &freed] {
            std::atomic<int>& done = freed;  // the captures go with the job
            delete job;
            ++done;
        };
        pool()->PushJob(job);
    }
    EXPECT_TRUE(zortest::waitUntil([&] { return freed == 50 && pool()->GetBusyThreadNum() == 0; }));
}

TEST_F(ThreadPoolTest, HundredThousandJobsFromFourThreadsEachRunExactlyOnce) {
    constexpr int PRODUCERS = 4, PER_PRODUCER = 25000;
    pool()->Initialize();
    std::unique_ptr<std::atomic<int>[]> runs(new std::atomic<int>[PRODUCERS * PER_PRODUCER]());
    std::atomic<int> total(0);
    zortest::onThreads(PRODUCERS, [&](int p) {
        for (int i = p * PER_PRODUCER; i < (p + 1) * PER_PRODUCER; ++i) {
            pool()->PushJob(new FnJob([&, i] {
                runs[i].fetch_add(1);
                total.fetch_add(1);
            }));
        }
    });
    ASSERT_TRUE(zortest::waitUntil([&] { return total.load() == PRODUCERS * PER_PRODUCER; }, 300000));
    int wrong = 0;
    for (int i = 0; i < PRODUCERS * PER_PRODUCER; ++i) wrong += runs[i].load() != 1;
    EXPECT_EQ(0, wrong);
    EXPECT_LE(pool()->GetAllThreadNum(), 30U);
}

TEST_F(ThreadPoolTest, DeleteInstanceFinishesRunningJobsAndLeavesNoThread) {
    std::thread([] {}).join();  // a sanitizer's helper thread, if any, starts with the first thread
    const int before = threadCount();
    pool()->Initialize();
    std::atomic<int> finished(0);
    zor::Semaphore started(10);
    for (int i = 0; i < 3; ++i) {
        pool()->PushJob(new FnJob([&] {
            started.Signal();
            zor::SysUtils::DelayMseconds(200);
            finished.fetch_add(1);
        }));
    }
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(started.Wait(30000));
    pool()->TerminateAll();
    EXPECT_EQ(3, finished.load());
    EXPECT_EQ(0U, pool()->GetAllThreadNum());

    // With no worker left the job waits in the queue; it stays its owner's when the pool goes.
    bool ran = false;
    FnJob orphan([&ran] { ran = true; }, true);
    pool()->PushJob(&orphan);
    zor::CThreadPool::DeleteInstance();
    EXPECT_FALSE(ran);
    // A joined thread leaves /proc a moment after pthread_join returns, later still on a loaded machine.
    EXPECT_TRUE(zortest::waitUntil([before] { return threadCount() == before; }))
        << threadCount() << " threads";
}

TEST_F(ThreadPoolTest, NullJobEndsTheProcessWithTheAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(pool()->PushJob(nullptr), "job != NULL");
}

}  // namespace
