// Action.h
//
// A tick-driven scheduler of callbacks. ActionMgr is a process-wide singleton whose own thread polls every
// resolution (100 ms by default): each poll advances the tick, moves the actions that are due from the
// pending list (sorted by due tick, newest first among equal ticks) to the active list and runs their
// callbacks one after another in the manager's thread, without the manager's lock held. An Action is a
// named callback with a state; the caller allocates it on the heap and keeps ownership, except that the
// manager's destruction deletes the actions still queued.
//
//   int onTick(void* data) { ...; return 0; }
//   auto* a = new zor::Action("flush");
//   a->SetProcessor(onTick, &state);
//   zor::ActionMgr::Instance()->NewAction(a, 500);   // runs after 5 ticks
//   ...
//   zor::ActionMgr::Instance()->DeleteAction(a);     // take it out of every list
//   delete a;                                        // waits for a callback that is running
//
// Any thread may schedule, re-time and delete actions; the lists are guarded by one recursive mutex.
// Misuse (an action in the wrong state, deleting twice, rescheduling a deleted action) is only logged:
// scheduling an action that already waits (not through ModActionTime) leaves a second pending entry for
// it, which the manager keeps as it is. Changing an action's ticks or state directly while the manager
// holds it is not supported. The manager logs through Logger: initialise the logger first and destroy
// it after the manager. Its debug lines use levels 1, 3 and 5; raise the logger's debug threshold to 5
// to silence them when scheduling at high rates.
#ifndef ZOR_ACTION_H_
#define ZOR_ACTION_H_

#include <atomic>
#include <list>
#include <string>

#include "BaseTypes.h"
#include "Locks.h"
#include "Thread.h"

namespace zor {

typedef ZR_Uint64 ActionTick;  // a count of polls
typedef ZR_Uint64 ActionTime;  // a delay in milliseconds
typedef int (*ActionCallback)(void*);

class Action {
public:
    enum __ACTION_STATE {
        STATE_INVALID = 0,
        STATE_WAITING = 1,       // in the pending list
        STATE_SCHEDULED = 2,     // in the active list
        STATE_NOTSCHEDULED = 3,  // in no list: new, or already run
        STATE_POLL_WAITING = 4,  // in the poll list: became due while a poll was running
        STATE_TOBEDELETED = 5,   // taken out by DeleteAction
        STATE_UNKNOWN = 6,
    };
    typedef __ACTION_STATE State;

    explicit Action(const std::string& name);
    // Waits while the callback runs (see Wait4Detachable).
    ~Action();
    Action(const Action&) = delete;
    Action& operator=(const Action&) = delete;

    void SetProcessor(ActionCallback cb, void* data);
    // Calls the callback with its data; the result is ignored.
    void Execute();
    // Back to a new action: not scheduled, ticks 0, no callback, detachable.
    void Reset();
    // Sleeps in 10-microsecond steps until the callback is not running.
    void Wait4Detachable();

    void SetDetachable(bool bDetachable) { m_bDetachable = bDetachable; }
    bool GetDetachable() const { return m_bDetachable; }
    void SetState(State eState) { m_eState = eState; }
    State GetState() const { return m_eState; }
    void SetSchedTick(ActionTick tick) { m_tickSched = tick; }
    ActionTick GetSchedTick() const { return m_tickSched; }
    void SetDelayTicks(ActionTick ticks) { m_tickDelay = ticks; }
    ActionTick GetDelayTicks() const { return m_tickDelay; }
    const std::string& Name() const { return m_sName; }

private:
    std::atomic<State> m_eState;
    std::atomic<bool> m_bDetachable;  // false only while the callback runs
    ActionTick m_tickSched;           // the manager's tick when the action entered the pending list
    ActionTick m_tickDelay;           // due tick = m_tickSched + m_tickDelay
    void* m_pData;
    ActionCallback m_callback;
    std::string m_sName;
};

class ActionMgr : public OSThread {
public:
    // The manager, created with its thread running on first use.
    static ActionMgr* Instance();
    // Stops and joins the thread, deletes every action still queued, forgets the instance.
    static void DestroyInstance();
    // Does nothing.
    void Initialize() {}

    // Runs the action at the next poll (or, during a poll, at the one after: an action that reschedules
    // itself from its callback runs once per poll).
    void Schedule(Action* a);
    // As Schedule, but first in line; from inside a callback the action runs again in the same poll.
    void ScheduleHead(Action* a);
    // Runs the action after ms / resolution ticks (0 ticks: as Schedule).
    void NewAction(Action* a, ActionTime ms);
    // Re-times a waiting action, counting from now. 0 on success, -1 when it is not waiting.
    ZR_Int32 ModActionTime(Action* a, ActionTime ms);
    // Takes the action out of whichever list holds it and marks it deleted; the caller still owns it.
    void DeleteAction(Action* a);
    // One scheduling step; the manager's thread calls it every tick. Calling it from elsewhere works but
    // is logged as not recommended. Throws "Cannot unlock mutex, error = 1" after a poll that found an
    // active action in a wrong state (the poll is otherwise complete and the lock released).
    void Poll();

    // Tuning, read without the lock; set them before scheduling. The thread measures its drift against
    // resolution x interval as they were when it started.
    void SetResolution(ZR_Int32 ms) { m_iResolution = ms; }
    ZR_Int32 GetResolution() const { return m_iResolution; }
    void SetMaxLoops(ZR_Uint32 loops) { m_iMaxLoops = loops; }
    ZR_Uint32 GetMaxLoops() const { return m_iMaxLoops; }
    void SetCompInterval(ZR_Uint32 polls) { m_iCompInterval = polls; }
    ZR_Uint32 GetCompInterval() const { return m_iCompInterval; }

protected:
    ActionMgr();
    ~ActionMgr() override;
    void Entry() override;

private:
    ActionTick actionTime2Ticks(ActionTime ms) const;
    ActionTick actionTickDiff(const Action* a, ActionTick now) const;
    void checkAction(ActionTick now);
    static bool isTickAfter(ActionTick a, ActionTick b);
    static ZR_Int32 findAndEraseAction(std::list<Action*>& list, Action* a);
    void scheduleImp(Action* a, ActionTime ms, ZR_BOOL head);
    void insertPending(Action* a, ActionTick due);
    class RelockableLock;
    bool runActiveList(RelockableLock& lock);
    void activatePollList();

    std::list<Action*> m_listPend;    // ascending by due tick
    std::list<Action*> m_listPoll;    // became due during a poll, in arrival order
    std::list<Action*> m_listActive;  // run by the current or next poll, front first
    std::atomic<ZR_BOOL> m_bInProgress;
    ZR_Uint32 m_iSchedLoops;
    ActionTick m_atPreTicks;
    ActionTick m_atTicks;
    std::atomic<ZR_Int32> m_iResolution;
    std::atomic<ZR_Uint32> m_iMaxLoops;
    std::atomic<ZR_Uint32> m_iCompInterval;
    Mutex m_mtxLock;
    // False once a waiting action was rescheduled in place: its old entry then sits at a position that no
    // longer matches its due tick, and insertion falls back to the plain walk from the front.
    bool m_bPendSorted;

    static std::atomic<ActionMgr*> _instance;
    static Mutex _mutex;
};

}  // namespace zor

#endif  // ZOR_ACTION_H_
