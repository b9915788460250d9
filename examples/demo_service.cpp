// demo_service: a small service built only on zor. A producer thread hands numbered units of work to
// two consumer threads through a Semaphore; the consumers fold them into a total under a Mutex; the
// main thread stops everything after --seconds and prints what was done.
//
//   demo_service [--seconds N] [--port P] [--workdir DIR]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include "Locks.h"
#include "OSTime.h"
#include "Semaphore.h"
#include "SysUtils.h"
#include "Thread.h"
#include "ZorVersion.h"

namespace {

struct Options {
    int iSeconds = 2;
    int iPort = 0;
    std::string sWorkDir = ".";
};

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seconds") == 0) options.iSeconds = std::atoi(argv[i + 1]);
        if (std::strcmp(argv[i], "--port") == 0) options.iPort = std::atoi(argv[i + 1]);
        if (std::strcmp(argv[i], "--workdir") == 0) options.sWorkDir = argv[i + 1];
    }
    return options;
}

// Work shared by the threads: a queue of units guarded by a mutex, counted by a semaphore.
struct WorkQueue {
    zor::Mutex mutex{0};
    zor::Semaphore ready{4096};
    std::deque<long> units;
    long total = 0;
    long done = 0;
};

class Producer : public zor::OSThread {
public:
    explicit Producer(WorkQueue& queue) : m_queue(queue) {}
    ~Producer() override { StopAndWait(); }
    long produced = 0;

protected:
    void Entry() override {
        while (!IsStop()) {
            if (m_queue.ready.Count() < 4000) {
                {
                    zor::ScopedLock hold(m_queue.mutex);
                    m_queue.units.push_back(++produced);
                }
                m_queue.ready.Signal();
            } else {
                zor::SysUtils::DelayMseconds(1);
            }
        }
    }

private:
    WorkQueue& m_queue;
};

class Consumer : public zor::OSThread {
public:
    explicit Consumer(WorkQueue& queue) : m_queue(queue) {}
    ~Consumer() override { StopAndWait(); }

protected:
    void Entry() override {
        while (!IsStop()) {
            if (m_queue.ready.Wait(100) == 0) continue;
            zor::ScopedLock hold(m_queue.mutex);
            m_queue.total += m_queue.units.front();
            m_queue.units.pop_front();
            ++m_queue.done;
        }
    }

private:
    WorkQueue& m_queue;
};

}  // namespace

int main(int argc, char** argv) {
    const Options options = parseOptions(argc, argv);
    std::printf("zor %s demo service, started %s, running %d s\n", ZOR_VERSION_STRING,
                zor::OSTime::Now().ToString(1).c_str(), options.iSeconds);

    WorkQueue queue;
    Producer producer(queue);
    Consumer first(queue), second(queue);
    first.Start();
    second.Start();
    producer.Start();
    zor::SysUtils::DelaySeconds(options.iSeconds);
    producer.StopAndWait();
    while (queue.ready.Count() > 0) zor::SysUtils::DelayMseconds(10);  // let the consumers drain the queue
    first.StopAndWait();
    second.StopAndWait();

    const long expected = producer.produced * (producer.produced + 1) / 2;
    std::printf("units produced: %ld, consumed: %ld, checksum %s\n", producer.produced, queue.done,
                queue.total == expected ? "ok" : "WRONG");
    std::printf("finished %s\n", zor::OSTime::Now().ToString(1).c_str());
    return queue.total == expected && queue.done == producer.produced ? 0 : 1;
}
