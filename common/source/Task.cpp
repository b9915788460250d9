#include "Task.h"

#include <sched.h>

#include <climits>

#include "SysUtils.h"

namespace zor {

namespace {

constexpr ZR_Uint32 SEMAPHORE_CEILING = 4096;
constexpr int POLLS_BEFORE_SLEEP = 200;

// DelayMseconds takes a signed count; longer delays are slept in INT_MAX pieces instead of going negative.
void delayMseconds(ZR_Uint32 mseconds) {
    while (mseconds > static_cast<ZR_Uint32>(INT_MAX)) {
        SysUtils::DelayMseconds(INT_MAX);
        mseconds -= static_cast<ZR_Uint32>(INT_MAX);
    }
    SysUtils::DelayMseconds(static_cast<ZR_Int32>(mseconds));
}

}  // namespace

RetType Task::ExecuteAsync(ZR_Uint32 delay, ZR_BOOL waitRst) {
    TaskExecutor executor(this, delay);
    return executor.ExecuteTask(waitRst);
}

TaskExecutor::TaskExecutor(Task* task, ZR_Uint32 delay)
    : m_task(task), m_result(0), m_delay(delay), m_sema(SEMAPHORE_CEILING) {
    SetStackSize(STACK_NORMAL);
}

TaskExecutor::~TaskExecutor() {
    StopAndWait();
    m_task = nullptr;
}

RetType TaskExecutor::ExecuteTask(ZR_BOOL waitRst) {
    Start();
    if (waitRst) {
        // The stop flag is raised only after the work: a task that polls IsStop() runs to its end.
        // Quick work is usually done within a few scheduler turns; polling for it first spares the
        // caller a sleep on the semaphore on top of the one in the join.
        for (int i = 0; i < POLLS_BEFORE_SLEEP && !m_bSignalled.load(std::memory_order_acquire); ++i)
            sched_yield();
        m_sema.Wait();
        StopAndWait();
    }
    return m_result.load();
}

void TaskExecutor::Entry() {
    if (m_task != nullptr) {
        if (m_delay != 0) delayMseconds(m_delay);
        m_result = m_task->ExecuteSync();
    }
    m_bSignalled.store(true, std::memory_order_release);
    m_sema.Signal();
}

}  // namespace zor
