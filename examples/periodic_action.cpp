// periodic_action: an action that runs every PERIOD_MS by scheduling itself again from its callback,
// stopped from another thread.
//
// The action manager runs each scheduled action once. A periodic job is an action whose callback ends by
// calling NewAction() on itself; the new delay counts from the tick on which the callback runs. To stop
// it, DeleteAction() takes it out of whichever list holds it (even when the callback is re-arming it at
// that moment) and marks it deleted, so that rescheduling it does nothing; deleting the object then
// waits for a callback still running.
#include <cstdio>

#include "Action.h"
#include "Logger.h"
#include "Semaphore.h"

namespace {

const zor::ActionTime PERIOD_MS = 200;  // two ticks of the manager's default 100 ms

struct Heartbeat {
    zor::Action* action;
    zor::Semaphore beats{4096};
    int count = 0;  // touched only by the callback, which always runs on the manager's thread
};

int beat(void* data) {
    auto* heartbeat = static_cast<Heartbeat*>(data);
    ZOR_LOG_INFO("beat %d", ++heartbeat->count);
    heartbeat->beats.Signal();
    zor::ActionMgr::Instance()->NewAction(heartbeat->action, PERIOD_MS);  // due again in one period
    return 0;
}

}  // namespace

int main() {
    // The manager logs, so the logger comes first and goes last. Level 5 hides its debug lines.
    zor::Logger::Instance()->Initialize("periodic", "./logs/periodic_action.log", 1, 100000, 5, 1, 0);
    zor::ActionMgr* manager = zor::ActionMgr::Instance();  // starts the manager's thread

    Heartbeat heartbeat;
    heartbeat.action = new zor::Action("heartbeat");  // a heap object: the manager may delete it
    heartbeat.action->SetProcessor(beat, &heartbeat);
    manager->NewAction(heartbeat.action, PERIOD_MS);

    int seen = 0;
    while (seen < 5 && heartbeat.beats.Wait(10 * PERIOD_MS)) ++seen;  // a missed beat ends the wait

    manager->DeleteAction(heartbeat.action);  // no more beats; the manager no longer holds it
    delete heartbeat.action;                  // waits if the callback is running right now
    zor::ActionMgr::DestroyInstance();
    zor::Logger::DestroyInstance();
    std::printf("%d beats seen\n", seen);
    return seen == 5 ? 0 : 1;
}
