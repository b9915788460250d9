// shutdown_order: the order in which a service starts its parts and the reverse order in which it stops
// them, on SIGINT or SIGTERM.
//
//   up:   logger, thread pool, action manager and its actions, reactor loop
//   down: reactor loop, actions and manager, thread pool (once its queue is empty), logger
//
// Each part stops before the parts it uses: the actions push jobs to the pool, and everything logs, so
// the logger goes last. The pool does not run or free jobs still queued when it is destroyed, so the
// service lets the queue drain first.
//
//   shutdown_order [SECONDS]    (stops by itself after SECONDS, default 1, if no signal comes first)
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

#include "Action.h"
#include "Logger.h"
#include "SysUtils.h"
#include "ThreadPool.h"
#include "echo_server.h"

namespace {

std::atomic<int> g_jobsPending{0};  // jobs pushed and not yet deleted by a worker

class TickJob : public zor::CJob {
public:
    TickJob() : zor::CJob("tick", nullptr) { ++g_jobsPending; }
    ~TickJob() override { --g_jobsPending; }
    void Run() override { ZOR_LOG_INFO("job %u ran", GetJobNo()); }
};

int onTick(void* data) {
    zor::CThreadPool::GetInstance()->PushJob(new TickJob);
    zor::ActionMgr::Instance()->NewAction(static_cast<zor::Action*>(data), 300);
    return 0;
}

// Waits for SIGINT or SIGTERM, at most `seconds`. Returns the signal, or 0 when the time ran out.
int waitForStop(const sigset_t& stopSignals, int seconds) {
    const timespec limit{seconds, 0};
    int received;
    do {
        received = sigtimedwait(&stopSignals, nullptr, &limit);
    } while (received < 0 && errno == EINTR);
    return received > 0 ? received : 0;
}

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 1;
    // Block the stop signals before the first thread starts: every thread inherits the mask, so the
    // signals wait for main's sigtimedwait() instead of interrupting whichever thread they hit.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);  // sockets send without MSG_NOSIGNAL: a vanished client is an error

    zor::Logger::Instance()->Initialize("shutdown", "./logs/shutdown_order.log", 1, 100000, 5, 1, 0);
    zor::CThreadPool::GetInstance()->Initialize();
    auto* ticker = new zor::Action("ticker");
    ticker->SetProcessor(onTick, ticker);
    zor::ActionMgr::Instance()->NewAction(ticker, 300);
    {
        echo::Server server(zor::SockAddress("127.0.0.1", 0));
        std::thread loop([&] { server.Run(); });
        ZOR_LOG_INFO("echo server on %s", server.Address().ToString().c_str());

        const int received = waitForStop(stopSignals, seconds);
        ZOR_LOG_INFO("stopping (%s)", received != 0 ? strsignal(received) : "time is up");

        server.Stop();  // wakes the loop, which returns
        loop.join();
    }  // the server closes its connections
    zor::ActionMgr::Instance()->DeleteAction(ticker);
    zor::ActionMgr::DestroyInstance();  // joins the manager's thread: no callback runs any more
    delete ticker;
    for (int i = 0; g_jobsPending > 0 && i < 1000; ++i) zor::SysUtils::DelayMseconds(10);
    zor::CThreadPool::DeleteInstance();  // joins the workers
    ZOR_LOG_INFO("stopped; %d jobs left undone", g_jobsPending.load());
    zor::Logger::DestroyInstance();  // writes every queued line
    return g_jobsPending == 0 ? 0 : 1;
}
