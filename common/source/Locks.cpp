#include "Locks.h"

#include <sys/select.h>

#include <cerrno>
#include <cstdlib>

#include "PosixUtil.h"

namespace zor {

namespace {

constexpr ZR_LONG TRY_LOCK_STEP_US = 5000;

// Releases a mutex attribute object on every way out of the constructor.
class MutexAttr {
public:
    MutexAttr() { pthread_mutexattr_init(&m_attr); }
    ~MutexAttr() { pthread_mutexattr_destroy(&m_attr); }
    MutexAttr(const MutexAttr&) = delete;
    MutexAttr& operator=(const MutexAttr&) = delete;
    pthread_mutexattr_t* Get() { return &m_attr; }

private:
    pthread_mutexattr_t m_attr;
};

// A 5 ms pause between attempts. An interrupting signal only shortens one pause: the budget still
// shrinks by a whole step, so a signal storm cannot stretch the wait.
void pauseOneStep() {
    timeval tv{0, TRY_LOCK_STEP_US};
    ::select(0, nullptr, nullptr, nullptr, &tv);
}

}  // namespace

Mutex::Mutex(ZR_BOOL bFast) {
    MutexAttr attr;
    pthread_mutexattr_settype(attr.Get(), bFast == 0 ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL);
    detail::throwOnError(pthread_mutex_init(&m_mutex, attr.Get()), "Cannot create mutex, error = ");
}

Mutex::~Mutex() { pthread_mutex_destroy(&m_mutex); }

void Mutex::throwLockError(int iError) {
    detail::throwOnError(iError, "Cannot lock mutex, error = ");
    std::abort();  // not reached: iError is never 0 here
}

void Mutex::throwUnlockError(int iError) {
    detail::throwOnError(iError, "Cannot unlock mutex, error = ");
    std::abort();
}

ZR_BOOL Mutex::TryLock(ZR_LONG mseconds) {
    const ZR_LONG budget = mseconds * 1000;
    for (ZR_LONG waited = 0;;) {
        if (TryLock() != 0) return 1;
        pauseOneStep();
        waited += TRY_LOCK_STEP_US;
        if (waited >= budget) return 0;
    }
}

RWLock::RWLock() {
    detail::throwOnError(pthread_rwlock_init(&m_rw, nullptr), "Cannot create RW lock, error = ");
}

RWLock::~RWLock() { pthread_rwlock_destroy(&m_rw); }

void RWLock::ReadLock() {
    detail::throwOnError(pthread_rwlock_rdlock(&m_rw), "Cannot read lock RW lock, error = ");
}

void RWLock::WriteLock() {
    detail::throwOnError(pthread_rwlock_wrlock(&m_rw), "Cannot write lock RW lock, error = ");
}

void RWLock::Unlock() {
    detail::throwOnError(pthread_rwlock_unlock(&m_rw), "Cannot unlock RW lock, error = ");
}

ZR_BOOL RWLock::TryReadLock() {
    const int iError = pthread_rwlock_tryrdlock(&m_rw);
    if (iError == EBUSY) return 0;
    detail::throwOnError(iError, "Cannot try read lock RW lock, error = ");
    return 1;
}

ZR_BOOL RWLock::TryWriteLock() {
    const int iError = pthread_rwlock_trywrlock(&m_rw);
    if (iError == EBUSY) return 0;
    detail::throwOnError(iError, "Cannot try write lock RW lock, error = ");
    return 1;
}

}  // namespace zor
