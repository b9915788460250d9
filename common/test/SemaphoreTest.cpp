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

TEST(SemaphoreCeiling, SignalPastTheCeilingThrowsAndKeepsTheCount) {
    zor::Semaphore sem(1);
    sem.Signal();
    EXPECT_EQ("Signal exhausted", zortest::thrownMessage([&] { sem.Signal(); }));
    EXPECT_EQ(1, sem.Count());
    EXPECT_EQ(1, sem.Wait(0));  // still usable after the throw
    EXPECT_EQ(0, sem.Count());
}

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

// A blocking consumer takes every unit one producer signals, then waits without a time limit for one more.
TEST(SemaphoreHandOver, EveryUnitSignalledIsTakenExactlyOnce) {
    zor::Semaphore items(4096);
    constexpr int UNITS = 20000;
    int taken = 0;
    std::thread consumer([&] {
        while (taken < UNITS && items.Wait(10000) == 1) ++taken;
        items.Wait();
    });
    for (int i = 0; i <= UNITS; ++i) {
        while (items.Count() >= items.Max()) std::this_thread::yield();
        items.Signal();
    }
    consumer.join();
    EXPECT_EQ(UNITS, taken);
    EXPECT_EQ(0, items.Count());
}

// Zero and negative waits and TryWait take only units already there. Then two takers that never block
// race for the units of one producer: each unit goes to exactly one of them.
TEST(SemaphoreTryWait, TakesOnlyUnitsAlreadyThereEachExactlyOnce) {
    zor::Semaphore sem(2);
    EXPECT_EQ(0, sem.Wait(0));
    EXPECT_EQ(0, sem.Wait(-250));
    EXPECT_EQ(0, sem.TryWait());
    sem.Signal();
    sem.Signal();
    EXPECT_EQ(1, sem.Wait(0));
    EXPECT_EQ(1, sem.Count());
    EXPECT_EQ(1, sem.TryWait());
    EXPECT_EQ(0, sem.TryWait());
    EXPECT_EQ(0, sem.Count());
    sem.Signal();
    sem.Signal();
    EXPECT_EQ(0, sem.TryWaitUpTo(0));
    EXPECT_EQ(1, sem.TryWaitUpTo(1));
    EXPECT_EQ(1, sem.TryWaitUpTo(5));  // only what is there
    EXPECT_EQ(0, sem.TryWaitUpTo(5));

    constexpr int UNITS = 20000;
    std::atomic<int> taken{0};
    const auto take = [&] {
        for (const auto start = Clock::now(); taken < UNITS && elapsedMs(start) < 60000;) {
            if (sem.TryWait() == 1) {
                ++taken;
            } else {
                std::this_thread::yield();  // leave the producer a core
            }
        }
    };
    std::thread first(take), second(take);
    for (int i = 0; i < UNITS; ++i) {
        while (sem.Count() >= sem.Max()) std::this_thread::yield();
        sem.Signal();
    }
    first.join();
    second.join();
    EXPECT_EQ(UNITS, taken.load());
    EXPECT_EQ(0, sem.Count());
}

}  // namespace
