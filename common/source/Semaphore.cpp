#include "Semaphore.h"

#include <sched.h>
#include <sys/time.h>

#include <cerrno>
#include <stdexcept>
#include <string>

namespace zor {

namespace {

constexpr long NANOS_PER_SECOND = 1000000000L;

// The absolute wall-clock instant lMseconds from now, as pthread_cond_timedwait expects it.
timespec deadlineAfter(ZR_LONG lMseconds) {
    timeval now{};
    gettimeofday(&now, nullptr);
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + lMseconds / 1000;
    long nanos = (lMseconds % 1000) * 1000000L + now.tv_usec * 1000L;
    if (nanos > NANOS_PER_SECOND - 1) {
        nanos -= NANOS_PER_SECOND;
        deadline.tv_sec += 1;
    } else if (nanos < 0) {  // a negative wait: the deadline lies in the past
        nanos += NANOS_PER_SECOND;
        deadline.tv_sec -= 1;
    }
    deadline.tv_nsec = nanos;
    return deadline;
}

}  // namespace

Semaphore::Semaphore(ZR_Uint32 iMax) : m_iCount(0), m_iMax(static_cast<ZR_Int32>(iMax)), m_iSignalling(0) {
    if (pthread_mutex_init(&m_mutex, nullptr) != 0) throw std::runtime_error("Initialize mutex failed");
    if (pthread_cond_init(&m_cond, nullptr) != 0) {
        pthread_mutex_destroy(&m_mutex);
        throw std::runtime_error("Initialize cond failed");
    }
}

Semaphore::~Semaphore() {
    while (m_iSignalling.load(std::memory_order_acquire) != 0) sched_yield();
    pthread_mutex_destroy(&m_mutex);
    pthread_cond_destroy(&m_cond);
}

void Semaphore::lock() {
    if (pthread_mutex_lock(&m_mutex) != 0) throw std::runtime_error("Cannot lock mutex");
}

void Semaphore::Signal() {
    lock();
    if (m_iCount >= m_iMax) {
        pthread_mutex_unlock(&m_mutex);
        throw std::runtime_error("Signal exhausted");
    }
    ++m_iCount;
    // The waiter is woken after the unlock, so that it does not wake only to block on the mutex we still
    // hold. A waiter may destroy the semaphore as soon as its Wait() returns, so the destructor waits
    // until no Signal() is still inside the condition variable.
    m_iSignalling.fetch_add(1, std::memory_order_relaxed);
    pthread_mutex_unlock(&m_mutex);
    const int iError = pthread_cond_signal(&m_cond);
    m_iSignalling.fetch_sub(1, std::memory_order_release);
    if (iError != 0) throw std::runtime_error("Signal condition failed");
}

void Semaphore::Wait() {
    lock();
    while (m_iCount <= 0) {
        if (pthread_cond_wait(&m_cond, &m_mutex) != 0) {
            pthread_mutex_unlock(&m_mutex);
            throw std::runtime_error("Cannot wait signal");
        }
    }
    --m_iCount;
    pthread_mutex_unlock(&m_mutex);
}

ZR_BOOL Semaphore::Wait(ZR_LONG lMseconds) {
    const timespec deadline = deadlineAfter(lMseconds);
    lock();
    while (m_iCount <= 0) {
        const int iError = pthread_cond_timedwait(&m_cond, &m_mutex, &deadline);
        if (iError == ETIMEDOUT) {
            pthread_mutex_unlock(&m_mutex);
            return 0;
        }
        if (iError != 0) {
            pthread_mutex_unlock(&m_mutex);
            throw std::runtime_error("Cannot wait signal " + std::to_string(iError));
        }
    }
    --m_iCount;
    pthread_mutex_unlock(&m_mutex);
    return 1;
}

ZR_BOOL Semaphore::TryWait() { return TryWaitUpTo(1); }

ZR_Int32 Semaphore::TryWaitUpTo(ZR_Int32 iMost) {
    if (iMost <= 0) return 0;
    lock();
    const ZR_Int32 iTaken = m_iCount < iMost ? m_iCount : iMost;
    m_iCount -= iTaken;
    pthread_mutex_unlock(&m_mutex);
    return iTaken;
}

ZR_Int32 Semaphore::Count() {
    lock();
    const ZR_Int32 iCount = m_iCount;
    pthread_mutex_unlock(&m_mutex);
    return iCount;
}

}  // namespace zor
