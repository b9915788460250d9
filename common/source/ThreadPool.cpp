#include "ThreadPool.h"

#include <sched.h>

#include <chrono>
#include <memory>

#include "Logger.h"
#include "Singleton.h"
#include "SysUtils.h"

// Last, and with NDEBUG lifted: a null job must end the process in release builds too.
#undef NDEBUG
#include <cassert>

namespace zor {

namespace {

constexpr ZR_Uint32 SEMAPHORE_CEILING = 4096;
constexpr auto ROUND_LENGTH = std::chrono::milliseconds(100);
constexpr ZR_Uint32 ROUNDS_BEFORE_TRIM = 19;  // trimming when the counter passes it: every 20th round

int printableTid(const OSThread* thread) { return static_cast<int>(thread->GetTid()); }

// Holds the hand-over gate for reading if it is free. It is not free only while TerminateAll runs, and
// then a hand-over simply finds no worker.
class HandOverGuard {
public:
    explicit HandOverGuard(RWLock& gate) : m_gate(gate), m_bHeld(gate.TryReadLock()) {}
    ~HandOverGuard() {
        if (m_bHeld) m_gate.Unlock();
    }
    HandOverGuard(const HandOverGuard&) = delete;
    HandOverGuard& operator=(const HandOverGuard&) = delete;
    bool Held() const { return m_bHeld != 0; }

private:
    RWLock& m_gate;
    const ZR_BOOL m_bHeld;
};

class WriteGuard {
public:
    explicit WriteGuard(RWLock& lock) : m_lock(lock) { m_lock.WriteLock(); }
    ~WriteGuard() { m_lock.Unlock(); }
    WriteGuard(const WriteGuard&) = delete;
    WriteGuard& operator=(const WriteGuard&) = delete;

private:
    RWLock& m_lock;
};

}  // namespace

// ---------------------------------------------------------------------------------------------- CJob

ZR_Uint32 CJob::_jobNo = 0;
Mutex CJob::_jobNoMutex(0);

CJob::CJob(const std::string& name, void* data)
    : m_jobNo(0), m_toDeleted(1), m_jobName(name), m_jobData(data) {
    ScopedLock hold(_jobNoMutex);
    m_jobNo = _jobNo++;
}

CJob::~CJob() {}

// ------------------------------------------------------------------------------------- CWorkerThread

CWorkerThread::CWorkerThread(CThreadPool* pool)
    : m_threadPool(pool), m_job(nullptr), m_bExit(0), m_jobCond(SEMAPHORE_CEILING) {}

CWorkerThread::~CWorkerThread() {
    // A running thread would outlive the members it uses.
    if (IsRunning()) StopWork();
    if (m_job != nullptr && m_job->ToDeleted()) delete m_job;
    m_job = nullptr;
}

void CWorkerThread::StartWork(CJob* job) {
    m_job = job;
    m_jobCond.Signal();
}

void CWorkerThread::StopWork() {
    m_bExit = 1;
    m_jobCond.Signal();
    StopAndWait();
}

void CWorkerThread::Entry() {
    while (!IsStop()) {
        m_jobCond.Wait();
        if (m_bExit) break;
        CJob* job = m_job;
        if (job == nullptr) continue;
        // A job its owner keeps may be freed by that owner the moment Run() signals the end of the
        // work, so the job is not looked at again afterwards. A job the worker owns may still hand
        // itself over to someone else during Run() by clearing its flag.
        const bool bWorkerOwned = job->ToDeleted() != 0;
        job->Run();
        if (bWorkerOwned && job->ToDeleted()) delete job;
        m_job = nullptr;
        m_threadPool->moveToIdleList(this);
    }
}

// --------------------------------------------------------------------------------------- CThreadPool

std::atomic<CThreadPool*> CThreadPool::_instance(nullptr);
Mutex CThreadPool::_insMutex(0);

CThreadPool* CThreadPool::GetInstance() {
    return detail::instanceOf(_instance, _insMutex, [] { return new CThreadPool(); });
}

// A job still finishing may reach the pool through GetInstance() while it is destroyed: its hand-over
// is refused and the job queued.
void CThreadPool::DeleteInstance() {
    detail::destroyInstance(_instance, _insMutex, [](CThreadPool* pool) { delete pool; });
}

CThreadPool::CThreadPool()
    : m_busyMutex(0),
      m_idleMutex(0),
      m_jobMutex(0),
      m_maxNum(30),
      m_availLow(4),
      m_availHigh(12),
      m_availNum(0),
      m_initNum(10),
      m_jobNum(0),
      m_wakeup(SEMAPHORE_CEILING),
      m_bWakePending(0) {}

CThreadPool::~CThreadPool() { TerminateAll(); }

ZR_INT CThreadPool::Initialize() {
    {
        ScopedLock busy(m_busyMutex);
        m_busyList.clear();
    }
    {
        ScopedLock idle(m_idleMutex);
        m_idleList.clear();
        createIdleThread(m_initNum);
    }
    Start();
    return 0;
}

void CThreadPool::PushJob(CJob* job) {
    assert(job != NULL);  // NOLINT(modernize-use-nullptr): callers see this text when the process ends
    if (setJob2WorkerThread(job) == 0) return;
    {
        ScopedLock hold(m_jobMutex);
        m_jobList.push_back(job);
        ++m_jobNum;
    }
    // A worker that came back between the failed hand-over and the queueing saw no job waiting.
    if (m_availNum != 0) wakeManager();
}

void CThreadPool::TerminateAll() {
    StopAndWait();  // the manager: it must not hand jobs to the workers destroyed below
    WriteGuard gate(m_handOverLock);
    std::list<CWorkerThread*> workers;
    {
        ScopedLock idle(m_idleMutex);
        workers.swap(m_threadList);
    }
    // No lock while waiting: a worker finishing its job still returns itself to the idle list.
    for (CWorkerThread* worker : workers) {
        worker->StopWork();
        delete worker;
    }
    {
        ScopedLock busy(m_busyMutex);
        m_busyList.clear();
    }
    ScopedLock idle(m_idleMutex);
    m_idleList.clear();
}

ZR_Uint32 CThreadPool::GetAllThreadNum() {
    ScopedLock hold(m_idleMutex);
    return static_cast<ZR_Uint32>(m_threadList.size());
}

ZR_Uint32 CThreadPool::GetBusyThreadNum() {
    ScopedLock hold(m_busyMutex);
    return static_cast<ZR_Uint32>(m_busyList.size());
}

ZR_INT CThreadPool::setJob2WorkerThread(CJob* job) {
    ZOR_LOG_DEBUG(3, "Current all thread num is %u, busy thread num is %u", GetAllThreadNum(),
                  GetBusyThreadNum());
    HandOverGuard gate(m_handOverLock);
    CWorkerThread* worker = gate.Held() ? getIdleThread() : nullptr;
    if (worker == nullptr) {
        ZOR_LOG_DEBUG(5, "Get idle thread failed, set job to job list");
        return -1;
    }
    moveToBusyList(worker);
    ZOR_LOG_DEBUG(5, "Job is set to thread %d", printableTid(worker));
    worker->StartWork(job);
    return 0;
}

CWorkerThread* CThreadPool::getIdleThread() {
    ScopedLock hold(m_idleMutex);
    const ZR_Uint32 avail = m_availNum;
    const ZR_Uint32 max = m_maxNum;
    if (avail < m_availLow && GetAllThreadNum() < max) {
        const ZR_Uint32 all = GetAllThreadNum();
        const ZR_Uint32 init = m_initNum;
        // Top the idle count up to the initial size, or grow to the maximum when that is nearer. An idle
        // count already at the initial size (a low-water mark set above it) adds nobody.
        if (max > all + init - avail) {
            createIdleThread(avail < init ? init - avail : 0);
        } else {
            createIdleThread(max - all);
        }
    }
    if (m_idleList.empty()) return nullptr;
    CWorkerThread* worker = m_idleList.front();
    ZOR_LOG_DEBUG(5, "Get Idle thread %d", printableTid(worker));
    m_idleList.pop_front();
    --m_availNum;
    return worker;
}

void CThreadPool::appendToIdleList(CWorkerThread* worker) {
    m_idleList.push_back(worker);
    m_threadList.push_back(worker);
    ++m_availNum;
}

void CThreadPool::moveToBusyList(CWorkerThread* worker) {
    ScopedLock hold(m_busyMutex);
    m_busyList.push_back(worker);
}

void CThreadPool::moveToIdleList(CWorkerThread* worker) {
    // Idle first, busy second: the worker is always counted in one of the lists, so the manager never
    // sees a free slot without an idle worker and never sends a job to the back of the queue for it.
    {
        ScopedLock idle(m_idleMutex);
        m_idleList.push_back(worker);
        ++m_availNum;
    }
    {
        // Only the first entry: a caller may already have taken the worker again and listed it as busy.
        ScopedLock busy(m_busyMutex);
        for (auto it = m_busyList.begin(); it != m_busyList.end(); ++it) {
            if (*it == worker) {
                m_busyList.erase(it);
                break;
            }
        }
    }
    if (m_jobNum != 0) wakeManager();
}

void CThreadPool::createIdleThread(ZR_Uint32 num) {
    ZOR_LOG_DEBUG(5, "Enter into CThreadPool::createIdleThread");
    for (ZR_Uint32 i = 0; i < num; ++i) {
        std::unique_ptr<CWorkerThread> worker(new CWorkerThread(this));
        worker->Start();
        appendToIdleList(worker.release());
    }
    ZOR_LOG_DEBUG(5, "Create %u idle threads~~~~", num);
}

void CThreadPool::deleteIdleThread(ZR_Uint32 num) {
    ZOR_LOG_DEBUG(5, "Enter into CThreadPool::deleteIdleThread");
    ScopedLock hold(m_idleMutex);
    ZOR_LOG_DEBUG(3, "Delete idle thread Num is %u", num);
    for (ZR_Uint32 i = 0; i < num; ++i) {
        if (m_idleList.empty()) {
            ZOR_LOG_DEBUG(5, "No more idle thread can be deleted!!!");
            return;
        }
        CWorkerThread* worker = m_idleList.front();
        ZOR_LOG_DEBUG(5, "Idle thread %d will be deleted", printableTid(worker));
        m_idleList.pop_front();
        m_threadList.remove(worker);
        worker->StopWork();
        delete worker;
        --m_availNum;
        ZOR_LOG_DEBUG(3, "The idle thread available num: %u", m_availNum.load());
        ZOR_LOG_DEBUG(3, "The idlelist num: %d", static_cast<int>(m_idleList.size()));
    }
}

void CThreadPool::Entry() {
    ZR_Uint32 round = 0;
    while (!IsStop()) {
        dispatchQueuedJobs();
        if (round > ROUNDS_BEFORE_TRIM) {
            if (GetIdleThreadNum() > GetHighIdleThreadNum()) {
                deleteIdleThread(GetIdleThreadNum() - GetInitThreadNum());
            }
            round = 0;
        }
        sleepRound();
        ++round;
    }
}

void CThreadPool::dispatchQueuedJobs() {
    while (m_jobNum != 0 && GetBusyThreadNum() < m_maxNum && !IsStop()) {
        CJob* job = nullptr;
        {
            ScopedLock hold(m_jobMutex);
            if (m_jobList.empty()) return;
            job = m_jobList.front();
            m_jobList.pop_front();
            --m_jobNum;
        }
        if (setJob2WorkerThread(job) == 0) continue;
        {
            // The back, not the front: a job that could not be placed loses its place.
            ScopedLock hold(m_jobMutex);
            m_jobList.push_back(job);
            ++m_jobNum;
        }
        sched_yield();  // the worker this loop waits for needs the processor more
    }
}

void CThreadPool::sleepRound() {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + ROUND_LENGTH;
    while (!IsStop()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || !m_wakeup.Wait(left.count())) return;
        m_bWakePending = 0;
        dispatchQueuedJobs();
    }
}

void CThreadPool::wakeManager() {
    if (!m_bWakePending.exchange(1)) m_wakeup.Signal();
}

}  // namespace zor
