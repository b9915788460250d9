/// @file
/// OSThread, the base of every thread in the library, and the thread scheduling constants.
#ifndef ZOR_THREAD_H_
#define ZOR_THREAD_H_

#include <pthread.h>

#include <atomic>
#include <string>

#include "BaseTypes.h"

namespace zor {

/// The library's five thread priority levels, mapped onto a policy's range by SysUtils::MapPriority().
///
/// The numbers are not in rising order of priority: the mapping follows the names.
enum __PRIORITY {
    PRIO_LOWEST = 0,   ///< The policy's minimum.
    PRIO_LOW = 1,      ///< A quarter of the way up the range.
    PRIO_NORMAL = 2,   ///< Half way up the range.
    PRIO_HIGHEST = 3,  ///< The policy's maximum.
    PRIO_HIGH = 4,     ///< Three quarters of the way up the range.
    DEFAULT_PRIO = 2,  ///< The priority of a new OSThread: PRIO_NORMAL.
};

/// Scheduling policies, equal to SCHED_OTHER, SCHED_FIFO and SCHED_RR; passed to the system unchanged.
enum __POLICY {
    POLICY_OTHER = 0,    ///< SCHED_OTHER, the time-sharing default.
    POLICY_FIFO = 1,     ///< SCHED_FIFO, real-time first in, first out.
    POLICY_RR = 2,       ///< SCHED_RR, real-time round robin.
    DEFAULT_POLICY = 0,  ///< The policy of a new OSThread: POLICY_OTHER.
};

/// Thread stack sizes in bytes.
enum __STACKSIZE {
    STACK_MIN = 16384,            ///< 16 KiB, the POSIX minimum.
    STACK_NORMAL = 2097152,       ///< 2 MiB.
    STACK_MAX = 16777216,         ///< 16 MiB.
    DEFAULT_STACKSIZE = 2097152,  ///< The stack of a new OSThread: 2 MiB.
};

typedef pthread_t STTid;        ///< A thread id.
typedef pthread_attr_t STAttr;  ///< A set of thread attributes.
typedef pthread_key_t STKey;    ///< A key of thread-specific data.

/// The base of every thread in the library and of a service's own long-lived workers.
///
/// Derive, implement Entry() and let it loop while IsStop() is 0; Start() runs it on a new POSIX thread.
/// Stopping is cooperative: Stop() raises the flag and detaches, StopAndWait() raises it and joins. Stack
/// size and CPU binding are applied at the next Start(); policy and priority reach the system only when
/// set on a running thread. Current() tells a thread which OSThread object it belongs to.
///
/// @code
///   class Ticker : public zor::OSThread {
///       void Entry() override { while (!IsStop()) { tick(); zor::SysUtils::DelayMseconds(100); } }
///   public:
///       ~Ticker() override { StopAndWait(); }   // stop before the members Entry() uses go away
///   };
/// @endcode
///
/// Start(), Stop(), StopAndWait() and the setters belong to one controlling thread. Failures of thread
/// creation, attribute changes, joins and scheduling changes throw std::runtime_error; refused changes
/// (while running, an invalid CPU, an unchanged value) return 0.
class OSThread {
public:
    /// Defaults: stack 2 MiB, policy 0, priority 2, no CPU binding, system contention scope.
    /// Throws "Set default stack size failed" or "Set thread scope failed".
    OSThread();
    /// Never waits: a still-running thread is only stopped and detached. A subclass whose Entry() uses its
    /// own members must call StopAndWait() in its own destructor.
    virtual ~OSThread();
    OSThread(const OSThread&) = delete;             ///< Not copyable.
    OSThread& operator=(const OSThread&) = delete;  ///< Not copyable.

    /// Starts the thread unless it is already running (then nothing happens). Throws "Create thread failed".
    /// A thread left over from an earlier Stop() keeps seeing IsStop() as 1, so a restart never brings
    /// the old Entry() loop back beside the new one.
    void Start();
    /// Raises the stop flag and detaches the thread; does not wait for Entry() to return.
    void Stop();
    /// Raises the stop flag and joins the thread (at once when Join() already did).
    void StopAndWait();
    /// Joins a running thread without raising the stop flag; returns at once when not running or when
    /// already joined since the last Start(). Throws "Cannot join the thread".
    void Join();

    /// 1 from Start() until Stop()/StopAndWait(), also after Entry() returned on its own.
    ZOR_INLINE ZR_BOOL IsRunning() const { return m_bStop.load() == 0 ? 1 : 0; }
    /// The cooperative stop request that Entry() polls; always 1 in a thread of an earlier Start().
    ZR_BOOL IsStop() const;

    /// Sets the stack size in bytes for the next Start(): refused (0) while running, otherwise 1.
    /// Throws "Set stack size failed" when the system rejects the size.
    ZR_BOOL SetStackSize(ZR_Int32 iSize);
    /// Binds the next Start() to one CPU: refused (0) while running or for an invalid index
    /// (SysUtils::InvalidCPU()), otherwise 1. Throws "Bind the thread to specified CPU failed".
    ZR_BOOL SetCPUIndex(ZR_Int32 iIndex);
    /// Sets the scheduling policy (a __POLICY value). 0 for an unchanged value. A new value is stored; on
    /// a running thread it is applied at once (with SysUtils::MapPriority()) and 1 is returned, otherwise
    /// 0. Throws "Set thread schedule policy failed".
    ZR_BOOL SetPolicy(ZR_Int32 iPolicy);
    /// Sets the priority level (a __PRIORITY value), with the same rules and results as SetPolicy().
    ZR_BOOL SetPriority(ZR_Int32 iPriority);
    /// Sets a label only; refused (0) while running, otherwise 1.
    ZR_BOOL SetThreadName(const std::string& sName);

    /// The stack size in bytes last set.
    ZOR_INLINE ZR_Int32 GetStackSize() const { return m_iStackSize; }
    /// The bound CPU, -1 for none.
    ZOR_INLINE ZR_Int32 GetCPUIndex() const { return m_iCPUIndex; }
    /// The policy last stored.
    ZOR_INLINE ZR_Int32 GetPolicy() const { return m_iPolicy; }
    /// The priority level last stored.
    ZOR_INLINE ZR_Int32 GetPriority() const { return m_iPriority; }
    /// The label; empty by default.
    ZOR_INLINE const std::string& GetThreadName() const { return m_sName; }
    /// The thread's id while running, all ones otherwise.
    STTid GetTid() const;

    /// pthread_self() of the caller.
    static STTid CurrentTid();
    /// The OSThread object of the calling thread; null in a thread no OSThread started (main, foreign).
    static OSThread* Current();
    /// The name of Current(). In a thread that no OSThread started it returns an empty name.
    static const std::string& CurrentName();

protected:
    /// The thread's body. Runs on the new thread; loop while IsStop() is 0.
    virtual void Entry() = 0;

private:
    /// Holds, in each thread started by an OSThread, a pointer to that object.
    class ThreadHolder {
    public:
        ThreadHolder();  ///< throws "Create thread key failed"
        ~ThreadHolder();
        void* Get();
        void Set(void* pData);

    private:
        STKey m_key;
    };

    struct Launch;  // what a new thread is told: its object and the Start() that made it
    static void* __Running(void* arg);
    void applySchedule(ZR_Int32 iPolicy, ZR_Int32 iPriority);

    // Written by the controlling thread, read by the thread itself without a lock.
    std::atomic<ZR_BOOL> m_bRunning;
    std::atomic<ZR_BOOL> m_bStop;
    std::atomic<ZR_Uint32> m_uGeneration;  // counts the threads started; a thread knows its own number
    bool m_bJoined;  // the controlling thread's own: the current thread was joined, never join it twice
    ZR_Int32 m_iStackSize;
    ZR_Int32 m_iPolicy;
    ZR_Int32 m_iPriority;
    ZR_Int32 m_iCPUIndex;
    STTid m_threadID;
    STAttr m_threadAttr;
    std::string m_sName;

    static ThreadHolder m_holder;
};

}  // namespace zor

#endif  // ZOR_THREAD_H_
