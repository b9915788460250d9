/// @file
/// CThreadPool, a process-wide, self-sizing pool of worker threads, and its jobs (CJob).
#ifndef ZOR_THREADPOOL_H_
#define ZOR_THREADPOOL_H_

#include <atomic>
#include <list>
#include <string>

#include "BaseTypes.h"
#include "Locks.h"
#include "Semaphore.h"
#include "Thread.h"

namespace zor {

class CThreadPool;

/// One unit of work for CThreadPool. Each job gets a process-wide serial number (0, 1, 2, ... in
/// construction order).
///
/// Subclasses set m_toDeleted to 0 when they keep ownership of the job themselves, before handing the job
/// to the pool: the worker reads the flag before Run() and, for a kept job, never touches it after Run()
/// returns, so its owner may free it as soon as Run() has signalled that the work is done.
class CJob {
public:
    /// name and data are kept for the subclass; data is not owned. The worker deletes the job after Run().
    CJob(const std::string& name, void* data);
    /// Releases nothing: the data given at construction is not owned.
    virtual ~CJob();

    /// The job's serial number.
    ZOR_INLINE ZR_Uint32 GetJobNo() const { return m_jobNo; }
    /// Non-zero when the worker deletes the job after Run().
    ZOR_INLINE ZR_BOOL ToDeleted() const { return m_toDeleted; }
    /// The work; runs once, on a worker thread.
    virtual void Run() = 0;

protected:
    ZR_Uint32 m_jobNo;      ///< The serial number.
    ZR_BOOL m_toDeleted;    ///< 1 (the default): the worker deletes the job after Run(); 0: the owner does.
    std::string m_jobName;  ///< The name given at construction.
    void* m_jobData;        ///< The data given at construction, not owned.

private:
    CJob(const CJob&) = delete;
    CJob& operator=(const CJob&) = delete;

    static ZR_Uint32 _jobNo;
    static Mutex _jobNoMutex;
};

/// A thread of the pool. It sleeps on its own semaphore until StartWork() gives it a job, runs it and
/// returns itself to the pool's idle list. Created, started and destroyed only by CThreadPool.
class CWorkerThread : public OSThread {
public:
    /// Job null, not started.
    explicit CWorkerThread(CThreadPool* pool);
    /// Stops the thread if it still runs; deletes a job it was given but never ran (if ToDeleted()).
    ~CWorkerThread() override;

    /// Hands over one job; the worker must be idle. The semaphore publishes the job to the thread.
    void StartWork(CJob* job);
    /// Asks the thread to leave and joins it; a job that is running is finished first.
    void StopWork();

protected:
    /// Waits for a job, runs it, deletes it when ToDeleted() and goes back to the idle list, until stopped.
    void Entry() override;

private:
    CThreadPool* m_threadPool;
    CJob* m_job;
    std::atomic<ZR_BOOL> m_bExit;
    Semaphore m_jobCond;
};

/// A process-wide, self-sizing pool of worker threads for caller-defined jobs.
///
/// Derive from CJob, put the work in Run() and hand a heap-allocated job to PushJob(). An idle worker
/// takes it at once; when none is free the job waits in a first-in, first-out list that the pool's own
/// manager thread hands out as workers come back. The pool starts with GetInitThreadNum() idle workers,
/// grows whenever fewer than GetLowIdleThreadNum() are idle (never beyond GetMaxThreadNum() workers)
/// and, every twentieth manager round of 100 ms, trims back to the initial size when more than
/// GetHighIdleThreadNum() sit idle.
///
/// @code
///   class Resize : public zor::CJob {
///   public:
///       explicit Resize(Image* img) : CJob("resize", img) {}
///       void Run() override { static_cast<Image*>(m_jobData)->Shrink(); }
///   };
///   zor::Logger::Instance()->Initialize(...);             // first: the pool logs
///   zor::CThreadPool* pool = zor::CThreadPool::GetInstance();
///   pool->SetMaxThreadNum(16);                            // sizing before Initialize
///   pool->Initialize();
///   pool->PushJob(new Resize(img));                       // the worker deletes it after Run()
///   ...
///   zor::CThreadPool::DeleteInstance();
///   zor::Logger::DestroyInstance();                       // last
/// @endcode
///
/// Ownership: a worker deletes each job after Run() unless the job cleared m_toDeleted. Jobs still waiting
/// in the list when the pool is destroyed are neither run nor deleted; they stay the caller's.
///
/// Logging: the pool writes debug lines of levels 3 and 5 for every hand-over through Logger::Instance().
/// Initialise the logger before the pool (in asynchronous mode an uninitialised logger counts every line
/// until its semaphore throws "Signal exhausted") and raise its debug threshold to 5 to silence them.
///
/// Threads: PushJob() and the accessors may be called from any thread, also from a running job;
/// TerminateAll() and DeleteInstance() from any thread but a worker (a worker cannot join itself). Jobs
/// run on worker threads, never in the caller's. The busy-list and idle-list mutexes are never held
/// together. A null job ends the process with the assertion "job != NULL".
///
/// Choices made here:
/// - A worker that comes back while jobs are waiting wakes the manager, so a queued job does not sit out
///   the rest of the 100 ms round. Rounds still last 100 ms, so trimming keeps its two-second rhythm.
/// - TerminateAll() first stops and joins the manager thread, so nothing can hand a job to a worker that
///   is being destroyed. DeleteInstance() therefore stops the manager, then every worker (waiting for the
///   jobs they run), and leaves no thread behind. A job pushed while TerminateAll() runs is queued.
class CThreadPool : public OSThread {
    friend class CWorkerThread;  // workers return themselves through moveToIdleList

public:
    /// The pool, created (without threads) on first use.
    static CThreadPool* GetInstance();
    /// Stops the manager, then every worker (waiting for the jobs they run), and destroys the pool. Call it
    /// when no other thread pushes jobs any more.
    static void DeleteInstance();

    /// Clears the busy and idle lists, starts GetInitThreadNum() workers and the manager thread; returns 0.
    /// Thread creation failures throw "Create thread failed". Set the sizes before calling it.
    ZR_INT Initialize();
    /// Gives job to an idle worker at once, or queues it. job must not be null.
    void PushJob(CJob* job);
    /// Stops and joins the manager thread, then stops and destroys every worker in creation order, each
    /// after its running job ended, and empties the worker lists. Queued jobs and the idle count stay.
    void TerminateAll();

    /// @name Sizing
    /// Read without a lock; set them before Initialize().
    ///@{
    /// Sets the most workers there may be (30).
    ZOR_INLINE void SetMaxThreadNum(ZR_Uint32 num) { m_maxNum = num; }
    /// The most workers there may be.
    ZOR_INLINE ZR_Uint32 GetMaxThreadNum() const { return m_maxNum; }
    /// Sets the idle count below which the pool grows (4).
    ZOR_INLINE void SetLowIdleThreadNum(ZR_Uint32 num) { m_availLow = num; }
    /// The idle count below which it grows.
    ZOR_INLINE ZR_Uint32 GetLowIdleThreadNum() const { return m_availLow; }
    /// Sets the idle count above which the pool trims back to the initial size (12).
    ZOR_INLINE void SetHighIdleThreadNum(ZR_Uint32 num) { m_availHigh = num; }
    /// The idle count above which it trims.
    ZOR_INLINE ZR_Uint32 GetHighIdleThreadNum() const { return m_availHigh; }
    /// Sets the workers started at first (10).
    ZOR_INLINE void SetInitThreadNum(ZR_Uint32 num) { m_initNum = num; }
    /// The workers started by Initialize().
    ZOR_INLINE ZR_Uint32 GetInitThreadNum() const { return m_initNum; }
    ///@}
    /// Workers counted idle; read without a lock, so it may lag a hand-over in progress.
    ZOR_INLINE ZR_Uint32 GetIdleThreadNum() const { return m_availNum; }
    /// Every worker that exists.
    ZR_Uint32 GetAllThreadNum();
    /// Workers running (or about to run) a job.
    ZR_Uint32 GetBusyThreadNum();

protected:
    /// No threads yet: at most 30 workers, grows below 4 idle, trims above 12 idle, starts 10.
    CThreadPool();
    /// TerminateAll().
    ~CThreadPool() override;

    /// 0 when an idle worker took the job, -1 when none could be had (the caller queues it).
    ZR_INT setJob2WorkerThread(CJob* job);
    /// Grows the pool when idle workers run low, then takes the front idle worker; null when none.
    CWorkerThread* getIdleThread();
    /// With m_idleMutex held: records a new idle worker.
    void appendToIdleList(CWorkerThread* worker);
    /// Records a worker that was handed a job as busy.
    void moveToBusyList(CWorkerThread* worker);
    /// Returns a worker that finished its job to the idle list and wakes the manager when jobs wait.
    void moveToIdleList(CWorkerThread* worker);
    /// With m_idleMutex held: starts num workers and adds them to the idle list.
    void createIdleThread(ZR_Uint32 num);
    /// Stops and destroys up to num idle workers, from the front of the idle list.
    void deleteIdleThread(ZR_Uint32 num);
    /// The manager: hands out queued jobs, trims idle workers every twentieth round.
    void Entry() override;

private:
    /// Hands out queued jobs while workers are not all busy; a job that finds no worker goes to the end.
    void dispatchQueuedJobs();
    /// Waits out one 100 ms round, dispatching queued jobs whenever a worker comes back meanwhile.
    void sleepRound();
    void wakeManager();

    Mutex m_busyMutex;
    Mutex m_idleMutex;
    Mutex m_jobMutex;
    std::list<CWorkerThread*> m_threadList;
    std::list<CWorkerThread*> m_busyList;
    std::list<CWorkerThread*> m_idleList;
    std::list<CJob*> m_jobList;
    std::atomic<ZR_Uint32> m_maxNum;
    std::atomic<ZR_Uint32> m_availLow;
    std::atomic<ZR_Uint32> m_availHigh;
    std::atomic<ZR_Uint32> m_availNum;
    std::atomic<ZR_Uint32> m_initNum;
    std::atomic<ZR_Uint32> m_jobNum;
    /// Hand-overs hold it for reading; TerminateAll for writing, so no worker it destroys is in flight.
    RWLock m_handOverLock;
    /// Wakes the manager early; m_bWakePending keeps at most one wake-up outstanding.
    Semaphore m_wakeup;
    std::atomic<ZR_BOOL> m_bWakePending;

    static std::atomic<CThreadPool*> _instance;
    static Mutex _insMutex;
};

}  // namespace zor

#endif  // ZOR_THREADPOOL_H_
