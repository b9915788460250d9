#include "Locks.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>

#include "OSTime.h"
#include "TestUtil.h"

namespace {

// Runs fn on another thread and returns its result; TryLock from a second thread sees ownership.
template <typename Fn>
auto onOtherThread(Fn fn) {
    return std::async(std::launch::async, fn).get();
}

// Whether another thread can take the mutex; it lets go again at once.
bool freeForOthers(zor::Mutex& mutex) {
    return onOtherThread([&] {
               const ZR_BOOL taken = mutex.TryLock();
               if (taken) mutex.Unlock();
               return taken;
           }) == 1;
}

// Unlocking a mutex not held is a deliberate misuse that ThreadSanitizer would report, so it is left out
// there.
TEST(MutexKind, ZeroMakesRecursiveNonZeroNormalAndMisuseOrAnExceptionLeavesNoLockBehind) {
    zor::Mutex recursive(0);
    recursive.Lock();
    EXPECT_EQ(1, recursive.TryLock());  // the owner may lock again
    recursive.Unlock();
    EXPECT_FALSE(freeForOthers(recursive));  // still held once
    recursive.Unlock();
    EXPECT_TRUE(freeForOthers(recursive));
#if !defined(__SANITIZE_THREAD__)
    EXPECT_EQ("Cannot unlock mutex, error = 1", zortest::thrownMessage([&] { recursive.Unlock(); }));
#endif
    EXPECT_EQ("leave", zortest::thrownMessage([&] {
                  zor::ScopedLock hold(recursive);
                  throw std::runtime_error("leave");
              }));
    EXPECT_TRUE(freeForOthers(recursive));

    zor::Mutex normal(1);
    normal.Lock();
    EXPECT_EQ(0, normal.TryLock());  // a normal mutex is busy even for its owner
    normal.Unlock();
}

TEST(MutexTimedTry, GivesUpWhileHeldAndTakesTheMutexOnceReleased) {
    zor::Mutex mutex(0);
    std::promise<void> held, release;
    std::thread owner([&] {
        mutex.Lock();
        held.set_value();
        release.get_future().wait();
        mutex.Unlock();
    });
    held.get_future().wait();

    EXPECT_EQ(0, mutex.TryLock(0));
    EXPECT_EQ(0, mutex.TryLock(12));

    release.set_value();
    EXPECT_EQ(1, mutex.TryLock(10000));  // taken as soon as the owner lets go
    mutex.Unlock();
    owner.join();
}

// The lock operations are inline in the header, but a program that calls them out of line or looks them
// up by name needs them in the shared library as well.
TEST(MutexSymbols, TheLibraryExportsEveryLockOperation) {
    Dl_info info{};
    ASSERT_NE(0, dladdr(reinterpret_cast<void*>(&zor::OSTime::GetOSTick), &info));
    if (std::string(info.dli_fname).find("libzor.so") == std::string::npos) {
        GTEST_SKIP() << "the library is linked statically";
    }
    void* library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(nullptr, library);
    // Member functions called through plain pointers: the object travels as the first argument.
    const auto lock = reinterpret_cast<void (*)(zor::Mutex*)>(dlsym(library, "_ZN3zor5Mutex4LockEv"));
    const auto tryLock =
        reinterpret_cast<ZR_BOOL (*)(zor::Mutex*)>(dlsym(library, "_ZN3zor5Mutex7TryLockEv"));
    const auto unlock = reinterpret_cast<void (*)(zor::Mutex*)>(dlsym(library, "_ZN3zor5Mutex6UnlockEv"));
    dlclose(library);
    ASSERT_TRUE(lock != nullptr && tryLock != nullptr && unlock != nullptr);
    zor::Mutex mutex(1);
    lock(&mutex);
    EXPECT_FALSE(freeForOthers(mutex));
    unlock(&mutex);
    EXPECT_EQ(1, tryLock(&mutex));
    mutex.Unlock();
}

TEST(RWLockSharing, ReadersShareAndExcludeWriters) {
    zor::RWLock lock;
    lock.ReadLock();
    EXPECT_EQ(1, onOtherThread([&] {
                  const ZR_BOOL taken = lock.TryReadLock();
                  if (taken) lock.Unlock();
                  return taken;
              }));
    EXPECT_EQ(0, onOtherThread([&] { return lock.TryWriteLock(); }));
    lock.Unlock();
    EXPECT_EQ(1, lock.TryWriteLock());
    EXPECT_EQ(0, onOtherThread([&] { return lock.TryReadLock(); }));
    lock.Unlock();
}

}  // namespace
