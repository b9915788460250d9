#include "Thread.h"

#include <sched.h>

#include <stdexcept>

#include "SysUtils.h"

namespace zor {

namespace {

// The generation of the calling thread's own OSThread start; 0 in threads no OSThread started.
thread_local ZR_Uint32 t_uGeneration = 0;

// Destroys an initialised attribute object when the scope is left by an exception, so that no throwing
// path needs its own clean-up; Keep() hands it on to its owner once set up.
class AttrGuard {
public:
    explicit AttrGuard(pthread_attr_t* pAttr) : m_pAttr(pAttr) { pthread_attr_init(m_pAttr); }
    ~AttrGuard() {
        if (m_pAttr != nullptr) pthread_attr_destroy(m_pAttr);
    }
    AttrGuard(const AttrGuard&) = delete;
    AttrGuard& operator=(const AttrGuard&) = delete;
    pthread_attr_t* Get() const { return m_pAttr; }
    void Keep() { m_pAttr = nullptr; }

private:
    pthread_attr_t* m_pAttr;
};

}  // namespace

// Created when the library is loaded, so that Current() works in every thread an OSThread starts.
OSThread::ThreadHolder OSThread::m_holder;

OSThread::ThreadHolder::ThreadHolder() {
    if (pthread_key_create(&m_key, nullptr) != 0) throw std::runtime_error("Create thread key failed");
}

OSThread::ThreadHolder::~ThreadHolder() { pthread_key_delete(m_key); }

void* OSThread::ThreadHolder::Get() { return pthread_getspecific(m_key); }

void OSThread::ThreadHolder::Set(void* pData) { pthread_setspecific(m_key, pData); }

OSThread::OSThread()
    : m_bRunning(0),
      m_bStop(1),
      m_uGeneration(0),
      m_bJoined(false),
      m_iStackSize(STACK_NORMAL),
      m_iPolicy(DEFAULT_POLICY),
      m_iPriority(DEFAULT_PRIO),
      m_iCPUIndex(-1),
      m_threadID(),
      m_threadAttr() {
    AttrGuard attr(&m_threadAttr);
    if (pthread_attr_setstacksize(attr.Get(), STACK_NORMAL) != 0) {
        throw std::runtime_error("Set default stack size failed");
    }
    if (pthread_attr_setscope(attr.Get(), PTHREAD_SCOPE_SYSTEM) != 0) {
        throw std::runtime_error("Set thread scope failed");
    }
    attr.Keep();  // owned by the object from here on; the destructor releases it
}

OSThread::~OSThread() {
    pthread_attr_destroy(&m_threadAttr);
    if (IsRunning()) Stop();
}

struct OSThread::Launch {
    OSThread* self;
    ZR_Uint32 generation;
};

void* OSThread::__Running(void* arg) {
    const Launch launch = *static_cast<Launch*>(arg);
    delete static_cast<Launch*>(arg);
    m_holder.Set(launch.self);
    t_uGeneration = launch.generation;
    launch.self->Entry();
    return nullptr;  // the same as pthread_exit(nullptr); nothing is reset here
}

ZR_BOOL OSThread::IsStop() const {
    // A detached thread of an earlier Start() must not see the stop flag lowered for its successor.
    if (t_uGeneration != 0 && m_holder.Get() == this && t_uGeneration != m_uGeneration.load()) return 1;
    return m_bStop.load();
}

void OSThread::Start() {
    if (m_bRunning) return;
    m_bStop = 0;
    auto* launch = new Launch{this, m_uGeneration.load() + 1};
    m_uGeneration = launch->generation;
    if (pthread_create(&m_threadID, &m_threadAttr, &OSThread::__Running, launch) != 0) {
        delete launch;
        m_bStop = 1;
        throw std::runtime_error("Create thread failed");
    }
    m_bJoined = false;
    m_bRunning = 1;
}

void OSThread::Stop() {
    if (!m_bRunning) return;
    m_bStop = 1;
    if (!m_bJoined) pthread_detach(m_threadID);  // a joined thread is gone and cannot be detached
    m_bRunning = 0;
}

void OSThread::StopAndWait() {
    if (!m_bRunning) return;
    m_bStop = 1;
    Join();
    m_bRunning = 0;
}

void OSThread::Join() {
    if (!m_bRunning || m_bJoined) return;
    if (pthread_join(m_threadID, nullptr) != 0) throw std::runtime_error("Cannot join the thread");
    m_bJoined = true;
}

ZR_BOOL OSThread::SetStackSize(ZR_Int32 iSize) {
    if (m_bRunning) return 0;
    if (pthread_attr_setstacksize(&m_threadAttr, static_cast<size_t>(iSize)) != 0) {
        throw std::runtime_error("Set stack size failed");
    }
    m_iStackSize = iSize;
    return 1;
}

ZR_BOOL OSThread::SetCPUIndex(ZR_Int32 iIndex) {
    if (SysUtils::InvalidCPU(iIndex) || m_bRunning) return 0;
    cpu_set_t cpus;  // 1024 bits
    CPU_ZERO(&cpus);
    CPU_SET(iIndex, &cpus);
    if (pthread_attr_setaffinity_np(&m_threadAttr, sizeof(cpus), &cpus) != 0) {
        throw std::runtime_error("Bind the thread to specified CPU failed");
    }
    m_iCPUIndex = iIndex;
    return 1;
}

void OSThread::applySchedule(ZR_Int32 iPolicy, ZR_Int32 iPriority) {
    sched_param param{};
    param.sched_priority = SysUtils::MapPriority(iPriority, iPolicy);
    if (pthread_setschedparam(m_threadID, iPolicy, &param) != 0) {
        throw std::runtime_error("Set thread schedule policy failed");
    }
}

ZR_BOOL OSThread::SetPolicy(ZR_Int32 iPolicy) {
    if (iPolicy == m_iPolicy) return 0;
    m_iPolicy = iPolicy;
    if (!m_bRunning) return 0;  // kept for later, but not applied to a thread that does not run
    applySchedule(iPolicy, m_iPriority);
    return 1;
}

ZR_BOOL OSThread::SetPriority(ZR_Int32 iPriority) {
    if (iPriority == m_iPriority) return 0;
    m_iPriority = iPriority;
    if (!m_bRunning) return 0;
    applySchedule(m_iPolicy, iPriority);
    return 1;
}

ZR_BOOL OSThread::SetThreadName(const std::string& sName) {
    if (m_bRunning) return 0;
    if (sName != m_sName) m_sName = sName;
    return 1;
}

STTid OSThread::GetTid() const { return m_bRunning ? m_threadID : static_cast<STTid>(-1); }

STTid OSThread::CurrentTid() { return pthread_self(); }

OSThread* OSThread::Current() { return static_cast<OSThread*>(m_holder.Get()); }

const std::string& OSThread::CurrentName() {
    static const std::string noName;
    const OSThread* self = Current();
    return self != nullptr ? self->GetThreadName() : noName;
}

}  // namespace zor
