#include "Thread.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>

#include "Semaphore.h"
#include "SysUtils.h"
#include "TestUtil.h"

namespace {

// Records what its thread saw, then either returns at once or loops until asked to stop. Counts the
// Entry() calls made and those running at once.
class Probe : public zor::OSThread {
public:
    explicit Probe(bool bLoop) : m_bLoop(bLoop), m_entered(64) {}
    ~Probe() override { StopAndWait(); }

    std::atomic<int> entries{0}, alive{0};
    std::atomic<zor::OSThread*> current{nullptr};
    std::atomic<int> cpu{-1};
    std::atomic<size_t> stackSize{0};
    std::atomic<bool> finished{false};

    bool WaitEntered() { return m_entered.Wait(10000) == 1; }

protected:
    void Entry() override {
        ++entries;
        ++alive;
        current = zor::OSThread::Current();
        cpu = sched_getcpu();
        pthread_attr_t attr;
        if (pthread_getattr_np(pthread_self(), &attr) == 0) {
            size_t size = 0;
            pthread_attr_getstacksize(&attr, &size);
            stackSize = size;
            pthread_attr_destroy(&attr);
        }
        m_entered.Signal();
        zortest::waitUntil([this] { return !m_bLoop || IsStop() != 0; });
        --alive;
        finished = true;
    }

private:
    const bool m_bLoop;
    zor::Semaphore m_entered;
};

TEST(OSThreadLifecycle, StaysRunningAfterEntryReturnsUntilStoppedAndAJoinedThreadIsNotJoinedAgain) {
    EXPECT_EQ(nullptr, zor::OSThread::Current());  // null outside threads we started
    EXPECT_EQ("", zor::OSThread::CurrentName());
    EXPECT_EQ(pthread_self(), zor::OSThread::CurrentTid());
    Probe probe(false);
    EXPECT_EQ(0, probe.IsRunning());
    EXPECT_EQ(static_cast<pthread_t>(-1), probe.GetTid());
    probe.Start();
    ASSERT_TRUE(probe.WaitEntered());
    ASSERT_TRUE(zortest::waitUntil([&] { return probe.finished.load(); }));  // Entry() returns by itself
    EXPECT_EQ(1, probe.IsRunning());
    EXPECT_EQ(0, probe.IsStop());
    probe.StopAndWait();  // joins the finished thread at once
    EXPECT_EQ(0, probe.IsRunning());
    EXPECT_EQ(static_cast<pthread_t>(-1), probe.GetTid());
    EXPECT_EQ(&probe, probe.current.load());
    probe.Start();
    probe.Join();
    EXPECT_NO_THROW(probe.StopAndWait());  // the thread is gone: joining it again would fail or hang
}

// A thread of an earlier Start() keeps seeing its stop request after a restart.
TEST(OSThreadLifecycle, DoubleStartMakesOneThreadAndARestartNeverRevivesTheDetachedLoop) {
    Probe loop(true);
    loop.Start();
    loop.Start();
    ASSERT_TRUE(loop.WaitEntered());
    EXPECT_NE(static_cast<pthread_t>(-1), loop.GetTid());
    loop.StopAndWait();
    EXPECT_EQ(1, loop.entries.load());

    loop.Start();
    ASSERT_TRUE(loop.WaitEntered());
    loop.Stop();  // detached: Join() has nothing to wait for
    EXPECT_EQ(1, loop.IsStop());
    loop.Join();
    loop.Start();  // the old loop has most likely not looked at its flag yet
    ASSERT_TRUE(zortest::waitUntil([&] { return loop.entries >= 3; }));
    EXPECT_TRUE(zortest::waitUntil([&] { return loop.alive == 1; }, 10000));
    EXPECT_EQ(0, loop.IsStop());
}

TEST(OSThreadSettings, AreRefusedWhileRunningAndAppliedAtTheNextStartButAPolicyReachesTheSystem) {
    Probe probe(true);
    EXPECT_EQ(0, probe.SetCPUIndex(-1));
    EXPECT_EQ(0, probe.SetCPUIndex(zor::SysUtils::GetCPUNumber()));
    EXPECT_EQ(1, probe.SetCPUIndex(0));
    EXPECT_EQ(1, probe.SetStackSize(4 * 1024 * 1024));
    EXPECT_EQ(1, probe.SetThreadName("worker"));
    EXPECT_EQ(0, probe.SetPriority(zor::PRIO_NORMAL));  // unchanged
    EXPECT_EQ(0, probe.SetPriority(zor::PRIO_HIGH));    // stored, not applied before Start()

    probe.Start();
    ASSERT_TRUE(probe.WaitEntered());
    EXPECT_EQ(0, probe.cpu.load());
    EXPECT_GE(probe.stackSize.load(), 4U * 1024 * 1024);
    EXPECT_EQ(0, probe.SetStackSize(zor::STACK_MIN));
    EXPECT_EQ(0, probe.SetThreadName("other"));
    EXPECT_EQ(0, probe.SetCPUIndex(0));
    EXPECT_EQ("worker", probe.GetThreadName());

    // A policy set on the running thread reaches the system.
    const std::string error =
        zortest::thrownMessage([&] { EXPECT_EQ(1, probe.SetPolicy(zor::POLICY_FIFO)); });
    if (!error.empty()) {
        EXPECT_EQ("Set thread schedule policy failed", error);
        GTEST_SKIP() << "this machine refuses real-time scheduling";
    }
    int policy = -1;
    sched_param param{};
    ASSERT_EQ(0, pthread_getschedparam(probe.GetTid(), &policy, &param));
    EXPECT_EQ(SCHED_FIFO, policy);
    EXPECT_EQ(74, param.sched_priority);  // the PRIO_HIGH stored before the start, mapped into 1..99
    EXPECT_EQ(1, probe.SetPriority(zor::PRIO_HIGHEST));
    ASSERT_EQ(0, pthread_getschedparam(probe.GetTid(), &policy, &param));
    EXPECT_EQ(99, param.sched_priority);
}

}  // namespace
