/// @file
/// Semaphore, a counting semaphore with a ceiling.
#ifndef ZOR_SEMAPHORE_H_
#define ZOR_SEMAPHORE_H_

#include <pthread.h>

#include <atomic>

#include "BaseTypes.h"

namespace zor {

/// Counting semaphore for handing units of work between threads, built from a mutex and a condition
/// variable.
///
/// Signal() adds a unit and wakes one waiter; Wait() takes one, blocking until it exists or, in the timed
/// form, until a deadline passes. The count never exceeds the ceiling given at construction: a Signal()
/// beyond it throws "Signal exhausted" and leaves the count as it was. Callable from any thread. POSIX
/// failures throw std::runtime_error; before throwing, the internal mutex is released, so the semaphore
/// stays usable.
///
/// @code
///   queueJob(job); jobsReady.Signal();              // producer
///   if (jobsReady.Wait(100)) { runNextJob(); }      // consumer
/// @endcode
class Semaphore {
public:
    /// Count 0, ceiling iMax. Throws "Initialize mutex failed" or "Initialize cond failed".
    explicit Semaphore(ZR_Uint32 iMax);
    /// Destroys the condition variable and the mutex; nobody may still wait.
    ~Semaphore();
    Semaphore(const Semaphore&) = delete;             ///< Not copyable.
    Semaphore& operator=(const Semaphore&) = delete;  ///< Not copyable.

    /// Adds a unit and wakes one waiter. Throws "Signal exhausted" when the count is at the ceiling,
    /// "Cannot lock mutex" or "Signal condition failed" on POSIX failures.
    void Signal();
    /// Takes a unit, waiting as long as it takes. Throws "Cannot lock mutex" or "Cannot wait signal".
    void Wait();
    /// Takes one unit, waiting at most lMseconds.
    ///
    /// Returns 1 when a unit was taken, 0 when the deadline passed first (a zero or negative wait only
    /// takes a unit that is already there). The deadline is wall-clock time, so stepping the system clock
    /// moves it. Other failures throw "Cannot wait signal N".
    ZR_BOOL Wait(ZR_LONG lMseconds);
    /// Takes one unit if one is there, without waiting for it. Returns 1 when a unit was taken, 0 when
    /// the count was 0. Unlike Wait(0) it reads no clock.
    ZR_BOOL TryWait();
    /// Takes every unit that is there, up to iMost, without waiting, under one lock. Returns the number
    /// taken: 0 when the count was 0 or iMost is not positive. A consumer that works in batches takes a
    /// batch's units at once, instead of contending with the producers for the lock once per unit.
    ZR_Int32 TryWaitUpTo(ZR_Int32 iMost);

    /// The current count, read under the semaphore's own mutex.
    ZR_Int32 Count();
    /// The ceiling fixed at construction.
    ZOR_INLINE ZR_Int32 Max() const { return m_iMax; }

private:
    /// Locks m_mutex, throwing "Cannot lock mutex" on failure; the caller unlocks.
    void lock();

    pthread_mutex_t m_mutex;
    pthread_cond_t m_cond;
    ZR_Int32 m_iCount;  ///< only read and written with m_mutex held
    const ZR_Int32 m_iMax;
    std::atomic<ZR_Int32> m_iSignalling;  ///< Signal() calls between their unlock and the wake-up
};

}  // namespace zor

#endif  // ZOR_SEMAPHORE_H_
