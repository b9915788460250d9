#include "Action.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "Logger.h"
#include "TestUtil.h"

namespace {

using zor::Action;
using zor::ActionMgr;

// One action's callback data: the log of runs (several actions may share one) and reschedules left.
struct Recorder {
    std::vector<std::string>* runs = nullptr;
    int rescheduleLeft = 0;
    bool useHead = false;
    Action* self = nullptr;
};

int record(void* data) {
    auto* r = static_cast<Recorder*>(data);
    r->runs->push_back(r->self->Name());
    if (r->rescheduleLeft-- > 0) {
        ActionMgr* mgr = ActionMgr::Instance();
        r->useHead ? mgr->ScheduleHead(r->self) : mgr->Schedule(r->self);
    }
    return 0;
}

// Tests drive the polls by hand: the manager's own thread is stopped first.
class ActionMgrTest : public ::testing::Test {
protected:
    void SetUp() override {
        zor::Logger::Instance()->Initialize("Test", m_dir / "action.log", 64, 1000000, 5, 0, 1);
        m_mgr = ActionMgr::Instance();
        m_mgr->StopAndWait();
    }
    void TearDown() override {
        for (auto& a : m_owned) m_mgr->DeleteAction(a.get());  // ours, not the manager's, to delete
        ActionMgr::DestroyInstance();
        zor::Logger::DestroyInstance();
    }

    // An action recording into `runs`, rescheduling itself `again` times.
    Action* make(const std::string& name, std::vector<std::string>& runs, int again = 0, bool head = false) {
        m_owned.emplace_back(new Action(name));
        m_recorders.emplace_back(new Recorder{&runs, again, head, m_owned.back().get()});
        m_owned.back()->SetProcessor(record, m_recorders.back().get());
        return m_owned.back().get();
    }
    void polls(int n) {
        for (int i = 0; i < n; ++i) m_mgr->Poll();
    }
    bool logged(const std::string& text) {
        return zortest::readFile(m_dir / "action.log").find(text) != std::string::npos;
    }

    zortest::ScratchDir m_dir;
    ActionMgr* m_mgr = nullptr;
    std::vector<std::unique_ptr<Action>> m_owned;
    std::vector<std::unique_ptr<Recorder>> m_recorders;
};

// An action that reschedules itself from its callback runs once per poll, but at the head it runs again
// in the same poll.
TEST_F(ActionMgrTest, DelaysCountTicksFromNowEqualTicksRunNewestFirstAndSelfReschedulesRunPerPoll) {
    std::vector<std::string> runs, tail, head;
    Action* quick = make("quick", runs);
    m_mgr->NewAction(quick, 50);  // under one tick: next poll
    m_mgr->Schedule(make("tail", tail, 5));
    m_mgr->Schedule(make("head", head, 2, true));
    EXPECT_EQ(Action::STATE_SCHEDULED, quick->GetState());
    polls(1);
    EXPECT_EQ(1U, runs.size());
    EXPECT_EQ(1U, tail.size());
    EXPECT_EQ(3U, head.size());  // itself plus two ScheduleHead reruns
    EXPECT_EQ(Action::STATE_NOTSCHEDULED, quick->GetState());

    polls(9);  // the tick is now 10
    EXPECT_EQ(6U, tail.size());
    runs.clear();
    Action* older = make("older", runs);
    Action* moved = make("moved", runs);
    m_mgr->NewAction(moved, 300);
    m_mgr->NewAction(older, 300);                 // due at tick 13
    m_mgr->NewAction(make("newer", runs), 399);   // 3 ticks as well: the same due tick, scheduled later
    m_mgr->NewAction(make("sooner", runs), 250);  // due at tick 12
    EXPECT_EQ(Action::STATE_WAITING, older->GetState());
    polls(2);  // ticks 10 and 11
    EXPECT_TRUE(runs.empty());
    EXPECT_EQ(0, m_mgr->ModActionTime(moved, 300));  // due at tick 15: not 13 (unchanged) nor 16
    polls(3);                                        // ticks 12 to 14
    EXPECT_EQ((std::vector<std::string>{"sooner", "newer", "older"}), runs);
    polls(1);
    EXPECT_EQ("moved", runs.back());
    EXPECT_TRUE(logged("Warn:  Re-schedule waiting actor moved"));
}

TEST_F(ActionMgrTest, MisuseIsOnlyLoggedWithItsFixedLinesAndChangesNothing) {
    std::vector<std::string> runs;
    Action* a = make("a", runs);
    m_mgr->Schedule(a);
    m_mgr->Schedule(a);
    m_mgr->ScheduleHead(a);
    polls(2);
    EXPECT_EQ(1U, runs.size());
    EXPECT_EQ(-1, m_mgr->ModActionTime(a, 100));  // not waiting
    m_mgr->NewAction(a, 500);
    m_mgr->DeleteAction(a);
    EXPECT_FALSE(logged("cannot be deleted") || logged("not existed"));
    m_mgr->DeleteAction(a);  // in no list: only the wrong-state line
    m_mgr->Schedule(a);
    EXPECT_EQ(-1, m_mgr->ModActionTime(a, 100));
    polls(10);
    EXPECT_EQ(1U, runs.size());
    EXPECT_TRUE(logged("(Action.cpp:DeleteAction:288) Warn:  Wrong actor a state 5, cannot be deleted"));
    EXPECT_FALSE(logged("not existed"));
    Action* lost = make("lost", runs);
    lost->SetState(Action::STATE_WAITING);  // misuse: waiting, yet in no list
    m_mgr->DeleteAction(lost);
    EXPECT_TRUE(logged("(Action.cpp:DeleteAction:297) Warn:  The actor is not existed: actor state = 5"));
    EXPECT_FALSE(logged("Wrong actor lost"));
    EXPECT_EQ(Action::STATE_TOBEDELETED, lost->GetState());
    Action* again = make("again", runs);  // scheduled again while waiting: two pending entries
    m_mgr->NewAction(again, 200);
    m_mgr->NewAction(again, 300);
    m_mgr->DeleteAction(again);  // takes both out, so its owner may free it at once
    polls(5);
    EXPECT_EQ(1U, runs.size());
    Action* invalid = make("invalid", runs);
    invalid->SetState(Action::STATE_UNKNOWN);
    m_mgr->Schedule(invalid);
    EXPECT_TRUE(logged("Error: Schedule an invalid actor invalid"));

    auto* twice = new Action("twice");  // left queued: the manager deletes it once, as AddressSanitizer sees
    m_mgr->NewAction(twice, 500);
    m_mgr->NewAction(twice, 900);  // a second pending entry for the same action
    m_mgr->Schedule(new Action("active"));
}

// Scheduling a waiting action again with no delay, at the head, or from a callback leaves its pending
// entry behind; deleting it must take that entry out too, or a later poll or insertion reads it after the
// owner has freed the action.
TEST_F(ActionMgrTest, DeletingAnActionScheduledAgainWhileWaitingLeavesNoEntryBehind) {
    std::vector<std::string> runs;
    using Again = void (*)(ActionMgr*, Action*);
    const Again agains[] = {[](ActionMgr* m, Action* a) { m->Schedule(a); },
                            [](ActionMgr* m, Action* a) { m->ScheduleHead(a); },
                            [](ActionMgr* m, Action* a) { m->NewAction(a, 0); },
                            [](ActionMgr* m, Action* a) { m->NewAction(a, 300); }};
    for (Again again : agains) {
        auto* a = new Action("freed");
        a->SetProcessor(record, nullptr);  // would crash if it ever ran
        m_mgr->NewAction(a, 100000);
        again(m_mgr, a);
        m_mgr->DeleteAction(a);
        delete a;
        m_mgr->NewAction(make("after", runs), 200000);  // walks the pending list
    }
    Action* ran = make("ran", runs);  // its stray entry outlives one run, then goes with the delete
    m_mgr->NewAction(ran, 100);
    m_mgr->Schedule(ran);
    polls(1);
    m_mgr->DeleteAction(ran);
    polls(3);
    EXPECT_EQ((std::vector<std::string>{"ran"}), runs);
}

TEST_F(ActionMgrTest, CorruptedActiveActionFailsThePollButLeavesTheManagerUsable) {
    std::vector<std::string> runs;
    Action* a = make("bad", runs);
    m_mgr->Schedule(a);
    a->SetState(Action::STATE_NOTSCHEDULED);  // misuse: the manager still holds it
    EXPECT_EQ("Cannot unlock mutex, error = 1", zortest::thrownMessage([&] { m_mgr->Poll(); }));
    EXPECT_TRUE(logged("Error: Active list: actor bad state corrupted"));
    Action* later = make("later", runs);
    std::thread other([&] { m_mgr->Schedule(later); });  // the lock was given back
    other.join();
    polls(1);
    EXPECT_EQ((std::vector<std::string>{"later"}), runs);
}

// A callback that reschedules its own action leaves it waiting in the poll list while it still runs:
// deleting it then must not let the destructor go ahead before the callback returns.
TEST_F(ActionMgrTest, DeletingAnActionThatReschedulesItselfStillWaitsForItsCallback) {
    struct Gate {
        Action* self = nullptr;
        std::atomic<bool> entered{false}, release{false};
    } gate;
    auto* a = new Action("self");
    gate.self = a;
    a->SetProcessor(
        [](void* d) {
            auto* g = static_cast<Gate*>(d);
            ActionMgr::Instance()->Schedule(g->self);
            g->entered = true;
            zortest::waitUntil([g] { return g->release.load(); });
            return 0;
        },
        &gate);
    m_mgr->Schedule(a);
    std::thread poller([&] { m_mgr->Poll(); });
    if (!zortest::waitUntil([&] { return gate.entered.load(); })) {
        gate.release = true;
        poller.join();
        FAIL() << "the callback never ran";
    }
    EXPECT_EQ(Action::STATE_POLL_WAITING, a->GetState());
    m_mgr->DeleteAction(a);
    EXPECT_FALSE(a->GetDetachable());  // still running: a destructor would wait
    gate.release = true;
    delete a;  // returns once the callback is done
    poller.join();
}

TEST_F(ActionMgrTest, ANewManagerRunsDueActionsOnItsOwnThread) {
    ActionMgr::DestroyInstance();
    m_mgr = ActionMgr::Instance();  // starts its thread by itself
    std::vector<std::string> runs;
    Action* a = make("tick", runs);
    m_mgr->NewAction(a, 200);
    zortest::waitUntil([&] { return a->GetState() == Action::STATE_NOTSCHEDULED; });
    m_mgr->StopAndWait();  // the callback is over once the thread is joined
    EXPECT_EQ(1U, runs.size());
}

// Eight threads schedule, re-time and delete while the manager polls every 10 ms and callbacks
// reschedule themselves: every action runs, and none is freed while its callback runs.
using ActionMgrLoad = ActionMgrTest;

TEST_F(ActionMgrLoad, EightThreadsScheduleRetimeAndDeleteTenThousandActions) {
    m_mgr->SetResolution(10);
    m_mgr->Start();

    struct Slot {
        std::atomic<int> runs{0};
        std::atomic<int> rescheduleLeft{2};
        Action* action = nullptr;
    };
    constexpr int THREADS = 8, PER_THREAD = 1250;
    std::vector<Slot> slots(THREADS * PER_THREAD);
    auto callback = [](void* d) {
        auto* slot = static_cast<Slot*>(d);
        ++slot->runs;
        if (slot->rescheduleLeft.fetch_sub(1) > 0) ActionMgr::Instance()->Schedule(slot->action);
        return 0;
    };
    zortest::onThreads(THREADS, [&](int t) {
        std::mt19937 rng(t);
        for (int i = t * PER_THREAD; i < (t + 1) * PER_THREAD; ++i) {
            slots[i].action = new Action("load" + std::to_string(i));
            slots[i].action->SetProcessor(callback, &slots[i]);
            m_mgr->NewAction(slots[i].action, rng() % 200);
            if (i % 3 == 0) m_mgr->ModActionTime(slots[i].action, rng() % 100);
        }
    });
    EXPECT_TRUE(zortest::waitUntil(
        [&] { return std::all_of(slots.begin(), slots.end(), [](const Slot& s) { return s.runs > 0; }); },
        60000));
    zortest::onThreads(THREADS, [&](int t) {
        for (int i = t * PER_THREAD; i < (t + 1) * PER_THREAD; ++i) {
            m_mgr->NewAction(slots[i].action, 0);  // some are still running or rescheduling
            m_mgr->DeleteAction(slots[i].action);
            delete slots[i].action;  // waits for a callback that is running
        }
    });
}

}  // namespace
