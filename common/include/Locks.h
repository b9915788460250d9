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
    void Lock();
    // Throws "Cannot unlock mutex, error = N", for example when the caller does not hold it.
    void Unlock();
    // One attempt without blocking: 1 when taken, 0 when busy. Other errors throw as Lock().
    ZR_BOOL TryLock();
    // Polls every 5 ms until taken (1) or until mseconds have been spent (0). The timeout is granular to
    // 5 ms and no attempt is made after the last sleep: TryLock(0) on a busy mutex makes one attempt,
    // sleeps 5 ms and returns 0; TryLock(12) tries at 0, 5 and 10 ms and returns after about 15 ms.
    ZR_BOOL TryLock(ZR_LONG mseconds);

private:
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
    explicit ScopedLock(Mutex& m);
    ~ScopedLock();
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    Mutex& m_mutex;
};

}  // namespace zor

#endif  // ZOR_LOCKS_H_
