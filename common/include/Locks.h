// Locks.h
//
// The library's mutual-exclusion primitives over POSIX threads: Mutex (recursive or normal), RWLock
// (many readers or one writer) and ScopedLock (holds a Mutex for one scope). Every object may be shared
// between threads. A failing POSIX call is never returned: it throws std::runtime_error whose message
// names the operation and ends with the POSIX error number. "Try" operations return 1 when the lock was
// taken and 0 when it was busy or the wait ran out.
//
//   zor::Mutex guard(0);                  // 0 = recursive, as every mutex inside the library
//   { zor::ScopedLock hold(guard); ... }  // released on every way out of the scope
#ifndef ZOR_LOCKS_H_
#define ZOR_LOCKS_H_

#include <pthread.h>

#include <cerrno>

#include "BaseTypes.h"

namespace zor {

// A mutex. Mind the inverted argument: bFast = 0 makes a recursive mutex (the owner may lock it again and
// must unlock it as often), any other value an ordinary non-recursive one. Not copyable.
class Mutex {
public:
    // Throws "Cannot create mutex, error = N" when the mutex cannot be made.
    explicit Mutex(ZR_BOOL bFast);
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Blocks until the calling thread holds the mutex. Throws "Cannot lock mutex, error = N".
    void Lock() {
        const int iError = pthread_mutex_lock(&m_mutex);
        if (iError != 0) throwLockError(iError);
    }
    // Throws "Cannot unlock mutex, error = N", for example when the caller does not hold it.
    void Unlock() {
        const int iError = pthread_mutex_unlock(&m_mutex);
        if (iError != 0) throwUnlockError(iError);
    }
    // One attempt without blocking: 1 when taken, 0 when busy. Other errors throw as Lock().
    ZR_BOOL TryLock() {
        const int iError = pthread_mutex_trylock(&m_mutex);
        if (iError == 0) return 1;
        if (iError != EBUSY) throwLockError(iError);  // busy is an answer, not a failure
        return 0;
    }
    // Polls every 5 ms until taken (1) or until mseconds have been spent (0). The timeout is granular to
    // 5 ms and no attempt is made after the last sleep: TryLock(0) on a busy mutex makes one attempt,
    // sleeps 5 ms and returns 0; TryLock(12) tries at 0, 5 and 10 ms and returns after about 15 ms.
    ZR_BOOL TryLock(ZR_LONG mseconds);

private:
    // Lock and unlock sit on every hot path, so they are inline; only the rare throw is out of line.
    [[noreturn]] static void throwLockError(int iError);
    [[noreturn]] static void throwUnlockError(int iError);

    pthread_mutex_t m_mutex;
};

// A read-write lock with the system's default attributes. Unlock() releases either kind. Errors throw
// "Cannot <operation> RW lock, error = N". There is no timed variant.
class RWLock {
public:
    RWLock();
    ~RWLock();
    RWLock(const RWLock&) = delete;
    RWLock& operator=(const RWLock&) = delete;

    void ReadLock();
    void WriteLock();
    void Unlock();
    // 1 when taken, 0 when the lock is busy.
    ZR_BOOL TryReadLock();
    ZR_BOOL TryWriteLock();

private:
    pthread_rwlock_t m_rw;
};

// Locks a Mutex on construction and unlocks it on destruction. A lock failure propagates out of the
// constructor; an unlock failure in the destructor terminates the process (destructors never throw).
class ScopedLock {
public:
    explicit ScopedLock(Mutex& m) : m_mutex(m) { m_mutex.Lock(); }
    // noexcept destructor: an unlock failure here ends the process by design.
    ~ScopedLock() { m_mutex.Unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    Mutex& m_mutex;
};

}  // namespace zor

#endif  // ZOR_LOCKS_H_
