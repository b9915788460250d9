/// @file
/// Task and TaskExecutor: one piece of work run on a fresh thread of its own.
#ifndef ZOR_TASK_H_
#define ZOR_TASK_H_

#include <atomic>

#include "BaseTypes.h"
#include "Semaphore.h"
#include "Thread.h"

namespace zor {

typedef ZR_INT RetType;  ///< The integer result of a Task's work.

/// One piece of work run on a fresh thread of its own, optionally after a delay, with its integer result
/// handed back.
///
/// Derive from Task and implement ExecuteSync(); calling it directly runs the work in the calling thread,
/// ExecuteAsync() runs it on a new thread through a TaskExecutor.
///
/// @code
///   class Checksum : public zor::Task {
///   public:
///       zor::RetType ExecuteSync() override { return computeChecksum(); }
///   };
///   Checksum job;
///   zor::RetType sum = job.ExecuteAsync(0, 1);      // on another thread, result returned
///   job.ExecuteAsync(500, 0);                       // starts after 500 ms there; returns 0
/// @endcode
///
/// ExecuteAsync() always returns after the work has run, whatever waitRst says: the executor is a local
/// object and its destructor joins the thread. The delay is spent on the new thread, but the caller waits
/// through it all the same. Thread creation failures throw "Create thread failed"; an exception thrown
/// by ExecuteSync() on the new thread is not caught and ends the process.
///
/// A Task may be used by one caller at a time.
class Task {
public:
    /// The work.
    virtual RetType ExecuteSync() = 0;
    /// Runs ExecuteSync() on a new thread after delay milliseconds and returns once it has run.
    ///
    /// Returns its result when waitRst is non-zero; otherwise the result as it stood just after the
    /// thread started, which is 0 unless the work had already finished.
    virtual RetType ExecuteAsync(ZR_Uint32 delay, ZR_BOOL waitRst);

protected:
    /// For subclasses only.
    ZOR_INLINE Task() {}
    /// Not virtual, and protected so that a Task cannot be deleted through a base pointer.
    ZOR_INLINE ~Task() {}
};

/// The one-shot thread behind Task::ExecuteAsync(). It runs the task at most once.
///
/// TaskExecutor objects belong to the thread that made them.
class TaskExecutor : public OSThread {
public:
    /// task is not owned and may be null (the thread then only signals). The thread gets a 2 MiB stack.
    TaskExecutor(Task* task, ZR_Uint32 delay);
    /// Joins the thread if it was started and not yet joined.
    ~TaskExecutor() override;

    /// Starts the thread. With waitRst non-zero, waits until the work has run, joins the thread and
    /// returns the work's result; with 0 returns the result read at once (0 unless the work is done).
    RetType ExecuteTask(ZR_BOOL waitRst);

protected:
    /// Sleeps the delay, runs the task, stores its result and signals that the work is done.
    void Entry() override;

private:
    Task* m_task;
    /// Written by the thread and, without waitRst, read by the caller while the thread may still run.
    std::atomic<RetType> m_result;
    ZR_Uint32 m_delay;
    Semaphore m_sema;
    /// Set just before m_sema is signalled, so that the caller can poll for the work's end without taking
    /// the semaphore's lock.
    std::atomic<bool> m_bSignalled{false};
};

}  // namespace zor

#endif  // ZOR_TASK_H_
