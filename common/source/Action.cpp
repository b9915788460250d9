#include "Action.h"

#include <stdexcept>
#include <unordered_set>

#include "Logger.h"
#include "OSTime.h"
#include "Singleton.h"
#include "SysUtils.h"

namespace zor {

std::atomic<ActionMgr*> ActionMgr::_instance{nullptr};
Mutex ActionMgr::_mutex(0);

namespace {

// Log lines whose line numbers are part of the log's contract.
constexpr int CONCURRENT_POLL_LINE = 156;
constexpr int WRONG_STATE_LINE = 288;
constexpr int NOT_EXISTED_LINE = 297;

Logger* log() { return Logger::Instance(); }

long long asLong(ActionTick tick) { return static_cast<long long>(tick); }

}  // namespace

// Holds a mutex that the holder may give up and take back; releases it on every way out, so that an
// exception from a callback or from the logger never leaves the manager locked.
class ActionMgr::RelockableLock {
public:
    explicit RelockableLock(Mutex& mutex) : m_mutex(mutex) { Lock(); }
    ~RelockableLock() {
        if (m_bHeld) m_mutex.Unlock();
    }
    RelockableLock(const RelockableLock&) = delete;
    RelockableLock& operator=(const RelockableLock&) = delete;
    void Lock() {
        m_mutex.Lock();
        m_bHeld = true;
    }
    void Unlock() {
        m_bHeld = false;
        m_mutex.Unlock();
    }

private:
    Mutex& m_mutex;
    bool m_bHeld = false;
};

// Runs one callback with the manager's lock given up. The action counts as running until the lock is
// back, and it is marked detachable again under the lock, also when the callback throws: a DeleteAction
// racing with the end of the callback then sees either a running action or a detachable one, never a
// moment in which the owner could free the action before this scope last touched it.
class ActionMgr::CallbackScope {
public:
    CallbackScope(Action* a, RelockableLock& lock) : m_action(a), m_lock(lock) {
        ++m_action->m_iCallbacks;
        m_lock.Unlock();
    }
    ~CallbackScope() {
        m_lock.Lock();
        if (--m_action->m_iCallbacks == 0) m_action->SetDetachable(true);
    }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

private:
    Action* m_action;
    RelockableLock& m_lock;
};

// ---- Action ----

Action::Action(const std::string& name)
    : m_eState(STATE_NOTSCHEDULED),
      m_bDetachable(true),
      m_tickSched(0),
      m_tickDelay(0),
      m_pData(nullptr),
      m_callback(nullptr),
      m_sName(name) {}

Action::~Action() {
    Wait4Detachable();
    m_pData = nullptr;
    m_callback = nullptr;
}

void Action::SetProcessor(ActionCallback cb, void* data) {
    m_callback = cb;
    m_pData = data;
}

void Action::Execute() {
    if (m_callback != nullptr) m_callback(m_pData);
}

void Action::Reset() {
    m_eState = STATE_NOTSCHEDULED;
    m_tickSched = 0;
    m_tickDelay = 0;
    m_pData = nullptr;
    m_callback = nullptr;
    m_bDetachable = true;
}

void Action::Wait4Detachable() {
    while (!m_bDetachable) SysUtils::DelayUseconds(10);
}

// ---- ActionMgr: lifecycle ----

ActionMgr* ActionMgr::Instance() {
    return detail::instanceOf(_instance, _mutex, [] { return new ActionMgr(); });
}

void ActionMgr::DestroyInstance() {
    detail::destroyInstance(_instance, _mutex, [](ActionMgr* mgr) { delete mgr; });
}

ActionMgr::ActionMgr()
    : m_bInProgress(0),
      m_iSchedLoops(0),
      m_atPreTicks(0),
      m_atTicks(0),
      m_iResolution(100),
      m_iMaxLoops(1),
      m_iCompInterval(5),
      m_mtxLock(0),
      m_bPendSorted(true) {
    Start();
}

ActionMgr::~ActionMgr() {
    StopAndWait();
    // The queued actions belong to the manager now. An action scheduled twice sits in the lists twice,
    // so each is deleted once.
    std::unordered_set<Action*> deleted;
    for (std::list<Action*>* list : {&m_listPend, &m_listPoll, &m_listActive}) {
        for (Action* a : *list) {
            if (a != nullptr && deleted.insert(a).second) delete a;
        }
        list->clear();
    }
}

// ---- ActionMgr: conversions ----

ActionTick ActionMgr::actionTime2Ticks(ActionTime ms) const {
    const ZR_Int32 resolution = m_iResolution;
    return resolution > 0 ? ms / static_cast<ActionTick>(resolution) : ms;  // a resolution of 0 counts ms
}

bool ActionMgr::isTickAfter(ActionTick a, ActionTick b) { return static_cast<ZR_Int64>(a - b) >= 0; }

ActionTick ActionMgr::actionTickDiff(const Action* a, ActionTick now) const {
    const ActionTick sched = a->GetSchedTick();
    const ActionTick delay = a->GetDelayTicks();
    if (now < sched || now - sched >= delay) return 0;
    return sched - now + delay;
}

ZR_Int32 ActionMgr::findAndEraseAction(std::list<Action*>& list, Action* a) {
    for (auto it = list.begin(); it != list.end(); ++it) {
        if (*it == a) {
            list.erase(it);
            return 0;
        }
    }
    return -1;
}

// Drops every entry left for an action: once deleted, its owner may free it, and an entry that came due
// later would run a freed action.
void ActionMgr::purgeAction(Action* a) {
    m_listPend.remove(a);
    m_listPoll.remove(a);
    m_listActive.remove(a);
    a->m_bStrayEntry = false;
}

// ---- ActionMgr: scheduling ----

void ActionMgr::Schedule(Action* a) {
    ScopedLock hold(m_mtxLock);
    scheduleImp(a, 0, 0);
}

void ActionMgr::ScheduleHead(Action* a) {
    ScopedLock hold(m_mtxLock);
    scheduleImp(a, 0, 1);
}

void ActionMgr::NewAction(Action* a, ActionTime ms) {
    ScopedLock hold(m_mtxLock);
    scheduleImp(a, ms, 0);
}

void ActionMgr::scheduleImp(Action* a, ActionTime ms, ZR_BOOL head) {
    if (a == nullptr) return;
    const ActionTick delay = actionTime2Ticks(ms);
    const ActionTick now = m_atTicks;
    log()->LogDebug(LogFileName(__FILE__), "scheduleImp", __LINE__, 3,
                    "Action %s is scheduled at %lld, delay ticks = %lld", a->Name().c_str(), asLong(now),
                    asLong(delay));
    const Action::State state = a->GetState();
    switch (state) {
        case Action::STATE_SCHEDULED:
        case Action::STATE_POLL_WAITING:
        case Action::STATE_TOBEDELETED:
            return;  // scheduling twice is harmless, and a deleted action stays deleted
        case Action::STATE_WAITING:
            log()->LogWarn(LogFileName(__FILE__), "scheduleImp", __LINE__, "Re-schedule waiting actor %s",
                           a->Name().c_str());
            break;
        case Action::STATE_NOTSCHEDULED:
            break;
        default:
            log()->LogError(LogFileName(__FILE__), "scheduleImp", __LINE__, "Schedule an invalid actor %s",
                            a->Name().c_str());
            return;
    }
    // A waiting action scheduled again keeps its pending entry, whichever list it goes to now: deleting
    // it must then look for that entry as well.
    if (state == Action::STATE_WAITING) a->m_bStrayEntry = true;
    if (delay == 0) {
        if (m_bInProgress && head == 0) {
            a->SetState(Action::STATE_POLL_WAITING);
            m_listPoll.push_back(a);
            log()->LogDebug(LogFileName(__FILE__), "scheduleImp", __LINE__, 5, "push Action %s to poll list",
                            a->Name().c_str());
            return;
        }
        a->SetState(Action::STATE_SCHEDULED);
        if (head) {
            m_listActive.push_front(a);
        } else {
            m_listActive.push_back(a);
        }
        return;
    }
    // A new due tick for an action with an entry left behind moves that entry's due tick too, without
    // moving the entry: the list is no longer sorted.
    if (a->m_bStrayEntry) m_bPendSorted = false;
    a->SetState(Action::STATE_WAITING);
    a->SetSchedTick(now);
    a->SetDelayTicks(delay);
    insertPending(a, now + delay);
}

// Inserts before the first pending action, from the front, whose due tick is at or after `due` (so the
// newest comes first among equal ticks). While the list is sorted that place is found from whichever
// end is nearer in the common cases: deadlines that grow come last, equal deadlines come first.
void ActionMgr::insertPending(Action* a, ActionTick due) {
    auto dueOf = [](const Action* p) { return p->GetSchedTick() + p->GetDelayTicks(); };
    if (m_listPend.empty() || isTickAfter(dueOf(m_listPend.front()), due)) {
        m_listPend.push_front(a);
        return;
    }
    if (m_bPendSorted) {
        auto it = m_listPend.end();
        while (it != m_listPend.begin() && isTickAfter(dueOf(*std::prev(it)), due)) --it;
        m_listPend.insert(it, a);
        return;
    }
    auto it = m_listPend.begin();
    while (it != m_listPend.end() && (*it == nullptr || !isTickAfter(dueOf(*it), due))) ++it;
    m_listPend.insert(it, a);
}

ZR_Int32 ActionMgr::ModActionTime(Action* a, ActionTime ms) {
    if (a == nullptr || a->GetState() != Action::STATE_WAITING) return -1;
    ScopedLock hold(m_mtxLock);
    if (findAndEraseAction(m_listPend, a) != 0) return -1;
    const bool bWasSorted = m_bPendSorted, bHadStray = a->m_bStrayEntry;
    scheduleImp(a, ms, 0);  // logs the re-schedule: the state is still waiting
    // The entry it had is gone, so no extra one was made, and the order holds unless another entry of
    // this action is left from before.
    a->m_bStrayEntry = bHadStray;
    m_bPendSorted = bWasSorted && !bHadStray;
    return 0;
}

// An action rescheduled by its own callback (or by another thread while the callback runs) is waiting
// again while still busy: it becomes detachable only when that callback returns.
void ActionMgr::releaseUnlessRunning(Action* a) {
    if (a->m_iCallbacks.load() == 0) a->SetDetachable(true);
}

void ActionMgr::DeleteAction(Action* a) {
    if (a == nullptr) return;
    ScopedLock hold(m_mtxLock);
    ZR_Int32 found = 0;  // states without a list look nowhere, so they miss nothing
    switch (a->GetState()) {
        case Action::STATE_WAITING:
            found = findAndEraseAction(m_listPend, a);
            releaseUnlessRunning(a);
            break;
        case Action::STATE_SCHEDULED:
            found = findAndEraseAction(m_listActive, a);
            a->SetState(Action::STATE_NOTSCHEDULED);
            break;
        case Action::STATE_POLL_WAITING:
            found = findAndEraseAction(m_listPoll, a);
            releaseUnlessRunning(a);
            break;
        default:
            log()->LogWarn(LogFileName(__FILE__), "DeleteAction", WRONG_STATE_LINE,
                           "Wrong actor %s state %d, cannot be deleted", a->Name().c_str(),
                           static_cast<int>(a->GetState()));
            break;
    }
    if (a->m_bStrayEntry) purgeAction(a);
    a->SetState(Action::STATE_TOBEDELETED);
    if (found != 0) {
        log()->LogWarn(LogFileName(__FILE__), "DeleteAction", NOT_EXISTED_LINE,
                       "The actor is not existed: actor state = %d", static_cast<int>(a->GetState()));
    }
    if (m_listPend.empty()) m_bPendSorted = true;
}

// ---- ActionMgr: polling ----

void ActionMgr::checkAction(ActionTick now) {
    while (!m_listPend.empty()) {
        Action* a = m_listPend.front();
        if (actionTickDiff(a, now) != 0) {
            log()->LogDebug(LogFileName(__FILE__), "checkAction", __LINE__, 1,
                            "Action %s will wait some more time, current tick = %lld", a->Name().c_str(),
                            asLong(now));
            break;
        }
        if (m_bInProgress) {
            a->SetState(Action::STATE_POLL_WAITING);
            m_listPoll.push_back(a);
            log()->LogDebug(LogFileName(__FILE__), "checkAction", __LINE__, 5,
                            "Action %s turns to be STATE_POLL_WAITING", a->Name().c_str());
        } else {
            a->SetState(Action::STATE_SCHEDULED);
            m_listActive.push_back(a);
            log()->LogDebug(LogFileName(__FILE__), "checkAction", __LINE__, 1,
                            "Action %s turns to be STATE_SCHEDULED", a->Name().c_str());
        }
        m_listPend.pop_front();
    }
    if (m_listPend.empty()) m_bPendSorted = true;
}

void ActionMgr::Poll() {
    if (m_bInProgress) {
        log()->LogWarn(LogFileName(__FILE__), "Poll", CONCURRENT_POLL_LINE,
                       "!!!!Concurrent poll is not recommended");
    }
    RelockableLock lock(m_mtxLock);
    log()->LogDebug(LogFileName(__FILE__), "Poll", __LINE__, 1,
                    "current ticks = %lld, pre ticks = %lld, loops = %d", asLong(m_atTicks),
                    asLong(m_atPreTicks), static_cast<int>(m_iSchedLoops));
    if (++m_iSchedLoops >= m_iMaxLoops) {
        m_iSchedLoops = 0;
        if (m_atTicks != m_atPreTicks) {
            m_atPreTicks = m_atTicks;
            checkAction(m_atTicks);
        }
    }
    log()->LogDebug(LogFileName(__FILE__), "Poll", __LINE__, 1, "size of active list = %d",
                    static_cast<int>(m_listActive.size()));
    m_bInProgress = 1;
    const bool bCorrupted = runActiveList(lock);
    m_bInProgress = 0;
    log()->LogDebug(LogFileName(__FILE__), "Poll", __LINE__, 1, "size of poll list = %d",
                    static_cast<int>(m_listPoll.size()));
    activatePollList();
    ++m_atTicks;
    lock.Unlock();
    // An action found in a wrong state leaves the poll as if the lock had been given up twice: the caller
    // sees the mutex's unlock error, after every list has been brought up to date under the lock.
    if (bCorrupted) throw std::runtime_error("Cannot unlock mutex, error = 1");
}

// With the lock held on entry and exit: runs the active list front first, giving up the lock around each
// callback so that it may schedule, re-time or delete actions. Returns true when an action was found in
// a state other than scheduled.
bool ActionMgr::runActiveList(RelockableLock& lock) {
    bool bCorrupted = false;
    while (!m_listActive.empty()) {
        Action* a = m_listActive.front();
        m_listActive.pop_front();
        log()->LogDebug(LogFileName(__FILE__), "Poll", __LINE__, 1, "execute active actor %s:%p",
                        a != nullptr ? a->Name().c_str() : "", static_cast<void*>(a));
        if (a == nullptr) continue;
        // The state is taken and the action marked busy before the lock goes, so a DeleteAction racing
        // with this poll sees an action that is no longer scheduled and a destructor waits for the callback.
        a->SetDetachable(false);
        if (a->GetState() != Action::STATE_SCHEDULED) {
            log()->LogError(LogFileName(__FILE__), "Poll", __LINE__, "Active list: actor %s state corrupted",
                            a->Name().c_str());
            a->SetDetachable(true);
            bCorrupted = true;
            continue;
        }
        a->SetState(Action::STATE_NOTSCHEDULED);
        CallbackScope running(a, lock);
        a->Execute();
    }
    return bCorrupted;
}

void ActionMgr::activatePollList() {
    while (!m_listPoll.empty()) {
        Action* a = m_listPoll.front();
        m_listPoll.pop_front();
        if (a == nullptr) continue;
        if (a->GetState() != Action::STATE_POLL_WAITING) {
            log()->LogError(LogFileName(__FILE__), "Poll", __LINE__, "Poll list: actor %s state corrupted",
                            a->Name().c_str());
        }
        log()->LogDebug(LogFileName(__FILE__), "Poll", __LINE__, 1, "Action %s is activated",
                        a->Name().c_str());
        a->SetState(Action::STATE_SCHEDULED);
        m_listActive.push_back(a);
    }
}

void ActionMgr::Entry() {
    ZR_Int64 lag = 0;  // milliseconds the last measured rounds ran beyond (or, negative, short of) nominal
    ZR_Uint32 count = 0;
    ZR_Uint64 last = OSTime::GetOSTick();
    const ZR_Int32 resolution = m_iResolution;
    const ZR_Uint32 interval = m_iCompInterval;
    const ZR_Int64 expected = static_cast<ZR_Int64>(resolution) * interval;
    auto poll = [this] {
        try {
            Poll();
        } catch (const std::exception& e) {  // a corrupted action must not end the whole process
            try {
                log()->LogError(LogFileName(__FILE__), "Entry", __LINE__, "Poll failed: %s", e.what());
            } catch (const std::exception&) {  // the logger itself is overrun: nothing more to do
            }
        }
    };
    while (!IsStop()) {
        if (lag >= resolution) {
            lag = resolution > 0 ? lag % resolution : 0;
            poll();  // one catch-up poll without sleeping, however far behind
        } else if (count == interval) {
            const ZR_Uint64 now = OSTime::GetOSTick();
            const ZR_Uint64 elapsedMs = (now - last) * 1000 / OSTime::GetOSFreq();
            lag = static_cast<ZR_Int64>(elapsedMs) - expected;
            // Only whole milliseconds are compensated; the fraction left over counts in the next
            // round instead of being dropped, so the tick does not slip a little every round.
            last += elapsedMs * OSTime::GetOSFreq() / 1000;
            count = 0;
        } else {
            SysUtils::DelayMseconds(static_cast<ZR_Int32>(resolution - lag));
            ++count;
            lag = 0;
            poll();
        }
    }
}

}  // namespace zor
