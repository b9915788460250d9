/// @file
/// The library's mutual-exclusion primitives over POSIX threads: Mutex, RWLock and ScopedLock.
///
/// Every object may be shared between threads. A failing POSIX call is never returned: it throws
/// std::runtime_error whose message names the operation and ends with the POSIX error number. "Try"
/// operations return 1 when the lock was taken and 0 when it was busy or the wait ran out.
///
/// @code
///   zor::Mutex guard(0);                  // 0 = recursive, as every mutex inside the library
///   { zor::ScopedLock hold(guard); ... }  // released on every way out of the scope
/// @endcode
#ifndef ZOR_LOCKS_H_
#define ZOR_LOCKS_H_

#include <pthread.h>

#include <cerrno>

#include "BaseTypes.h"

namespace zor {

/// A mutex, recursive or normal.
///
/// Mind the inverted argument: bFast = 0 makes a recursive mutex (the owner may lock it again and must
/// unlock it as often), any other value an ordinary non-recursive one. Not copyable.
class Mutex {
public:
    /// Throws "Cannot create mutex, error = N" when the mutex cannot be made.
    explicit Mutex(ZR_BOOL bFast);
    /// Destroys the POSIX mutex; it must not be held.
    ~Mutex();
    Mutex(const Mutex&) = delete;             ///< Not copyable.
    Mutex& operator=(const Mutex&) = delete;  ///< Not copyable.

    /// Blocks until the calling thread holds the mutex. Throws "Cannot lock mutex, error = N".
    ZOR_INLINE void Lock() {
        const int iError = pthread_mutex_lock(&m_mutex);
        if (iError != 0) throwLockError(iError);
    }
    /// Releases the mutex. Throws "Cannot unlock mutex, error = N", for example when the caller does not
    /// hold it.
    ZOR_INLINE void Unlock() {
        const int iError = pthread_mutex_unlock(&m_mutex);
        if (iError != 0) throwUnlockError(iError);
    }
    /// One attempt without blocking: 1 when taken, 0 when busy. Other errors throw as Lock().
    ZOR_INLINE ZR_BOOL TryLock() {
        const int iError = pthread_mutex_trylock(&m_mutex);
        if (iError == 0) return 1;
        if (iError != EBUSY) throwLockError(iError);  // busy is an answer, not a failure
        return 0;
    }
    /// Polls every 5 ms until taken (1) or until mseconds have been spent (0).
    ///
    /// The timeout is granular to 5 ms and no attempt is made after the last sleep: TryLock(0) on a busy
    /// mutex makes one attempt, sleeps 5 ms and returns 0; TryLock(12) tries at 0, 5 and 10 ms and
    /// returns after about 15 ms.
    ZR_BOOL TryLock(ZR_LONG mseconds);

private:
    // Lock and unlock sit on every hot path, so they are inline (and exported for out-of-line callers);
    // only the rare throw is out of line.
    [[noreturn]] static void throwLockError(int iError);
    [[noreturn]] static void throwUnlockError(int iError);

    pthread_mutex_t m_mutex;
};

/// A read-write lock (many readers or one writer) with the system's default attributes.
///
/// Unlock() releases either kind. Errors throw `"Cannot <operation> RW lock, error = N"`. There is no timed
/// variant.
class RWLock {
public:
    /// Throws "Cannot create RW lock, error = N".
    RWLock();
    /// Destroys the POSIX lock; it must not be held.
    ~RWLock();
    RWLock(const RWLock&) = delete;             ///< Not copyable.
    RWLock& operator=(const RWLock&) = delete;  ///< Not copyable.

    /// Blocks until the calling thread holds the lock for reading, shared with other readers.
    void ReadLock();
    /// Blocks until the calling thread holds the lock alone, for writing.
    void WriteLock();
    /// Releases the read or write hold of the calling thread.
    void Unlock();
    /// One attempt to read-lock without blocking: 1 when taken, 0 when the lock is busy.
    ZR_BOOL TryReadLock();
    /// One attempt to write-lock without blocking: 1 when taken, 0 when the lock is busy.
    ZR_BOOL TryWriteLock();

private:
    pthread_rwlock_t m_rw;
};

/// Locks a Mutex on construction and unlocks it on destruction.
///
/// A lock failure propagates out of the constructor; an unlock failure in the destructor terminates the
/// process (destructors never throw).
class ScopedLock {
public:
    /// Locks m, which must outlive this object.
    ZOR_INLINE explicit ScopedLock(Mutex& m) : m_mutex(m) { m_mutex.Lock(); }
    /// Unlocks the mutex. noexcept: an unlock failure here ends the process by design.
    ZOR_INLINE ~ScopedLock() { m_mutex.Unlock(); }      // NOLINT(bugprone-exception-escape): by design
    ScopedLock(const ScopedLock&) = delete;             ///< Not copyable.
    ScopedLock& operator=(const ScopedLock&) = delete;  ///< Not copyable.

private:
    Mutex& m_mutex;
};

}  // namespace zor

#endif  // ZOR_LOCKS_H_
