#include "Semaphore.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "TestUtil.h"

namespace {

using zortest::Clock;
using zortest::elapsedMs;

TEST(SemaphoreTimedWait, DeadlineCarriesIntoTheNextSecond) {
    zor::Semaphore sem(1);
    // Start late in a second so that microseconds plus the 700 ms wait overflow the nanosecond field.
    timeval now{};
    do {
        gettimeofday(&now, nullptr);
    } while (now.tv_usec < 600000);
    const auto start = Clock::now();
    EXPECT_EQ(0, sem.Wait(700));
    EXPECT_GE(elapsedMs(start), 690);
    EXPECT_LT(elapsedMs(start), 10000);
}

// Zero and negative waits and TryWait take only units already there; a Signal past the ceiling throws and
// leaves the count alone.
TEST(SemaphoreTryWait, TakesOnlyUnitsAlreadyThereAndTheCeilingHolds) {
    zor::Semaphore sem(2);
    EXPECT_EQ(0, sem.Wait(0));
    EXPECT_EQ(0, sem.Wait(-250));
    EXPECT_EQ(0, sem.TryWait());
    sem.Signal();
    sem.Signal();
    EXPECT_EQ("Signal exhausted", zortest::thrownMessage([&] { sem.Signal(); }));
    EXPECT_EQ(2, sem.Count());
    EXPECT_EQ(1, sem.Wait(0));
    EXPECT_EQ(1, sem.TryWait());
    EXPECT_EQ(0, sem.TryWait());
    sem.Signal();
    sem.Signal();
    EXPECT_EQ(0, sem.TryWaitUpTo(0));
    EXPECT_EQ(1, sem.TryWaitUpTo(1));
    EXPECT_EQ(1, sem.TryWaitUpTo(5));  // only what is there
    EXPECT_EQ(0, sem.TryWaitUpTo(5));
    EXPECT_EQ(0, sem.Count());
}

// One producer signals 20,000 units to two takers at once, one that blocks and one that never does: each
// unit goes to exactly one of them. Then a wait without a time limit takes one more.
TEST(SemaphoreHandOver, EveryUnitGoesToExactlyOneTakerBlockingOrNot) {
    zor::Semaphore sem(4096);
    constexpr int UNITS = 20000;
    std::atomic<int> taken{0};
    std::atomic<bool> waitingForever{false};
    const auto start = Clock::now();
    std::thread blocking([&] {
        while (taken < UNITS && elapsedMs(start) < 60000) taken += sem.Wait(100);
        waitingForever = true;
        sem.Wait();
    });
    std::thread trying([&] {
        while (taken < UNITS && elapsedMs(start) < 60000) {
            if (sem.TryWait() == 1) {
                ++taken;
            } else {
                std::this_thread::yield();  // leave the producer a core
            }
        }
    });
    for (int i = 0; i < UNITS; ++i) {
        while (sem.Count() >= sem.Max()) std::this_thread::yield();
        sem.Signal();
    }
    trying.join();
    zortest::waitUntil([&] { return waitingForever.load(); });
    EXPECT_EQ(UNITS, taken.load());
    sem.Signal();
    blocking.join();
    EXPECT_EQ(0, sem.Count());
}

}  // namespace
