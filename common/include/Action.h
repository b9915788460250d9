/// @file
/// Action and ActionMgr: callbacks run by a tick-driven scheduler thread.
#ifndef ZOR_ACTION_H_
#define ZOR_ACTION_H_

#include <atomic>
#include <list>
#include <string>

#include "BaseTypes.h"
#include "Locks.h"
#include "Thread.h"

namespace zor {

typedef ZR_Uint64 ActionTick;  ///< A count of the manager's polls.
typedef ZR_Uint64 ActionTime;  ///< A delay in milliseconds.
/// The callback of an Action: receives the data given to Action::SetProcessor(); the result is ignored.
typedef int (*ActionCallback)(void*);

/// A named callback with a scheduling state, run by ActionMgr.
///
/// The caller allocates an action on the heap and keeps ownership, except that the manager's destruction
/// deletes the actions still queued. Changing an action's ticks or state directly while the manager holds
/// it is not supported: the setters are for the manager.
class Action {
public:
    /// Where an action stands with respect to the manager's lists.
    enum __ACTION_STATE {
        STATE_INVALID = 0,       ///< Never set by the library.
        STATE_WAITING = 1,       ///< In the pending list.
        STATE_SCHEDULED = 2,     ///< In the active list.
        STATE_NOTSCHEDULED = 3,  ///< In no list: new, or already run.
        STATE_POLL_WAITING = 4,  ///< In the poll list: became due while a poll was running.
        STATE_TOBEDELETED = 5,   ///< Taken out by ActionMgr::DeleteAction().
        STATE_UNKNOWN = 6,       ///< Never set by the library.
    };
    typedef __ACTION_STATE State;  ///< The state type.

    /// A new action: not scheduled, ticks 0, no callback, detachable.
    explicit Action(const std::string& name);
    /// Waits while the callback runs (see Wait4Detachable()).
    ~Action();
    Action(const Action&) = delete;             ///< Not copyable.
    Action& operator=(const Action&) = delete;  ///< Not copyable.

    /// Sets the callback and the data passed to it.
    void SetProcessor(ActionCallback cb, void* data);
    /// Calls the callback with its data (nothing without a callback); the result is ignored.
    void Execute();
    /// Back to a new action: not scheduled, ticks 0, no callback, detachable.
    void Reset();
    /// Sleeps in 10-microsecond steps until the callback is not running.
    void Wait4Detachable();

    /// @name Manager bookkeeping
    /// Read and written by ActionMgr while it holds the action.
    ///@{
    /// False while the callback runs
    ZOR_INLINE void SetDetachable(bool bDetachable) { m_bDetachable = bDetachable; }
    /// False only while the callback runs
    ZOR_INLINE bool GetDetachable() const { return m_bDetachable; }
    /// Sets the list the action is in.
    ZOR_INLINE void SetState(State eState) { m_eState = eState; }
    ZOR_INLINE State GetState() const { return m_eState; }  ///< The list the action is in.
    /// Sets the manager's tick at which the action entered the pending list.
    ZOR_INLINE void SetSchedTick(ActionTick tick) { m_tickSched = tick; }
    /// The manager's tick at which the action entered the pending list.
    ZOR_INLINE ActionTick GetSchedTick() const { return m_tickSched; }
    /// Sets the delay in ticks; the action is due at GetSchedTick() + GetDelayTicks().
    ZOR_INLINE void SetDelayTicks(ActionTick ticks) { m_tickDelay = ticks; }
    /// The delay in ticks counted from GetSchedTick().
    ZOR_INLINE ActionTick GetDelayTicks() const { return m_tickDelay; }
    ///@}
    /// The name given at construction.
    ZOR_INLINE const std::string& Name() const { return m_sName; }

private:
    friend class ActionMgr;

    std::atomic<State> m_eState;
    std::atomic<bool> m_bDetachable;  ///< false only while the callback runs
    // Callbacks of this action running right now (more than one only under concurrent polls). Deleting
    // an action whose callback runs must not mark it detachable, or its destructor would not wait.
    std::atomic<int> m_iCallbacks{0};
    // Set under the manager's lock when a waiting action is scheduled again: the pending list may then
    // hold a second entry for it, which deleting the action must not leave behind.
    bool m_bStrayEntry = false;
    ActionTick m_tickSched;  ///< the manager's tick when the action entered the pending list
    ActionTick m_tickDelay;  ///< due tick = m_tickSched + m_tickDelay
    void* m_pData;
    ActionCallback m_callback;
    std::string m_sName;
};

/// A tick-driven scheduler of Action callbacks: a process-wide singleton with a thread of its own.
///
/// The manager's thread polls every resolution (100 ms by default): each poll advances the tick, moves
/// the actions that are due from the pending list (sorted by due tick, newest first among equal ticks) to
/// the active list and runs their callbacks one after another in the manager's thread, without the
/// manager's lock held.
///
/// @code
///   int onTick(void* data) { ...; return 0; }
///   auto* a = new zor::Action("flush");
///   a->SetProcessor(onTick, &state);
///   zor::ActionMgr::Instance()->NewAction(a, 500);   // runs after 5 ticks
///   ...
///   zor::ActionMgr::Instance()->DeleteAction(a);     // take it out of every list
///   delete a;                                        // waits for a callback that is running
/// @endcode
///
/// Any thread may schedule, re-time and delete actions; the lists are guarded by one recursive mutex.
/// Misuse (an action in the wrong state, deleting twice, rescheduling a deleted action) is only logged:
/// scheduling an action that already waits (not through ModActionTime()) leaves a second pending entry
/// for it, which the manager keeps (and runs when due) until the action is deleted: DeleteAction() takes
/// out every entry of the action, so that its owner may free it. An action deleted while its callback runs
/// (for example one that the callback has just rescheduled) stays busy until the callback returns, so its
/// destructor still waits for it.
///
/// The manager logs through Logger: initialise the logger first and destroy it after the manager. Its
/// debug lines use levels 1, 3 and 5; raise the logger's debug threshold to 5 to silence them when
/// scheduling at high rates.
class ActionMgr : public OSThread {
public:
    /// The manager, created with its thread running on first use.
    static ActionMgr* Instance();
    /// Stops and joins the thread, deletes every action still queued, forgets the instance.
    static void DestroyInstance();
    /// Does nothing.
    ZOR_INLINE void Initialize() {}

    /// Runs the action at the next poll (or, during a poll, at the one after: an action that reschedules
    /// itself from its callback runs once per poll).
    void Schedule(Action* a);
    /// As Schedule(), but first in line; from inside a callback the action runs again in the same poll.
    void ScheduleHead(Action* a);
    /// Runs the action after ms / resolution ticks (0 ticks: as Schedule()).
    void NewAction(Action* a, ActionTime ms);
    /// Re-times a waiting action, counting from now. 0 on success, -1 when it is not waiting.
    ZR_Int32 ModActionTime(Action* a, ActionTime ms);
    /// Takes the action out of every list that holds it (with the entry that scheduling it again while it
    /// waited left behind) and marks it deleted. The caller still owns it and may free it at once; the
    /// destructor waits for a callback that is running. An action in no list (never scheduled, already run
    /// or deleted, its callback running) is only marked, and the warning "Wrong actor %s state %d, cannot
    /// be deleted" is logged.
    void DeleteAction(Action* a);
    /// One scheduling step; the manager's thread calls it every tick.
    ///
    /// Calling it from elsewhere works but is logged as not recommended. Throws "Cannot unlock mutex,
    /// error = 1" after a poll that found an active action in a wrong state (the poll is otherwise
    /// complete and the lock released).
    void Poll();

    /// @name Tuning
    /// Read without the lock; set them before scheduling. The thread measures its drift against
    /// resolution x interval as they were when it started.
    ///@{
    /// Sets the milliseconds per tick (100).
    ZOR_INLINE void SetResolution(ZR_Int32 ms) { m_iResolution = ms; }
    ZOR_INLINE ZR_Int32 GetResolution() const { return m_iResolution; }  ///< Milliseconds per tick.
    /// Sets how many polls pass between two checks for due actions (1: every poll).
    ZOR_INLINE void SetMaxLoops(ZR_Uint32 loops) { m_iMaxLoops = loops; }
    /// Polls between two checks for due actions.
    ZOR_INLINE ZR_Uint32 GetMaxLoops() const { return m_iMaxLoops; }
    /// Sets how many polls pass between two drift measurements of the thread (5).
    ZOR_INLINE void SetCompInterval(ZR_Uint32 polls) { m_iCompInterval = polls; }
    /// Polls between drift measurements.
    ZOR_INLINE ZR_Uint32 GetCompInterval() const { return m_iCompInterval; }
    ///@}

protected:
    /// Starts the manager's thread; resolution 100 ms, checks every poll, drift measured every 5 polls.
    ActionMgr();
    /// Stops and joins the thread, then deletes every queued action once.
    ~ActionMgr() override;
    /// Polls every resolution until stopped, catching up with one extra poll when it falls a tick behind.
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
    class CallbackScope;
    static void releaseUnlessRunning(Action* a);
    void purgeAction(Action* a);
    bool runActiveList(RelockableLock& lock);
    void activatePollList();

    std::list<Action*> m_listPend;    ///< ascending by due tick
    std::list<Action*> m_listPoll;    ///< became due during a poll, in arrival order
    std::list<Action*> m_listActive;  ///< run by the current or next poll, front first
    std::atomic<ZR_BOOL> m_bInProgress;
    ZR_Uint32 m_iSchedLoops;
    ActionTick m_atPreTicks;
    ActionTick m_atTicks;
    std::atomic<ZR_Int32> m_iResolution;
    std::atomic<ZR_Uint32> m_iMaxLoops;
    std::atomic<ZR_Uint32> m_iCompInterval;
    Mutex m_mtxLock;
    /// False once a waiting action was rescheduled in place: its old entry then sits at a position that no
    /// longer matches its due tick, and insertion falls back to the plain walk from the front.
    bool m_bPendSorted;

    static std::atomic<ActionMgr*> _instance;
    static Mutex _mutex;
};

}  // namespace zor

#endif  // ZOR_ACTION_H_
