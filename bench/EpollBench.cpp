// Round trips per second of an echo server on 50 loopback connections: the Epoll reactor with handlers
// on our TCPSocket objects, beside a libevent server (one persistent read event per connection) and a
// bare epoll loop with no handlers and no map (the physical reference). All three serve the same client
// on identical connections with 64-byte messages, recv() into the same 4 KiB buffer and echo at once.
// One benchmark iteration is one round: a message on each connection, then every reply.
#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "BenchUtil.h"
#include "Epoll.h"
#include "TCPServer.h"
#include "TCPSocket.h"

namespace {

// One target per case: 0.95 is the bound against the bare loop; against libevent the goal is 1.0.
ZOR_BENCH_TARGET("epoll_echo/libevent", 1.0, ">= 1.0x libevent");
ZOR_BENCH_TARGET("epoll_echo/bare", 0.95, "within 5% of a bare epoll loop");

constexpr int CONNECTIONS = 50;
constexpr size_t MESSAGE = 64;
constexpr size_t BUFFER = 4096;

typedef std::vector<std::unique_ptr<zor::TCPSocket>> Connections;

// The listener, the client ends, the server ends and the pipe that tells a server to stop.
struct Rig {
    zor::TCPServer server{2};
    Connections clients;
    Connections accepted;
    int stop[2] = {-1, -1};

    Rig() {
        if (server.Bind(zor::SockAddress("127.0.0.1", 0)) != 0 || server.Listen(CONNECTIONS) != 0 ||
            ::pipe(stop) != 0) {
            throw std::runtime_error("cannot set up the echo rig");
        }
        zor::SockAddress peer;
        for (int i = 0; i < CONNECTIONS; ++i) {
            clients.push_back(std::make_unique<zor::TCPSocket>(1));
            if (clients.back()->Connect(server.LocalAddress()) != 0)
                throw std::runtime_error("connect failed");
            accepted.emplace_back(server.Accept(peer));
            if (!accepted.back()) throw std::runtime_error("accept failed");
            clients.back()->SetNoDelay(1);
            accepted.back()->SetNoDelay(1);
        }
    }
    ~Rig() {
        ::close(stop[0]);
        ::close(stop[1]);
    }

    void round() {
        char message[MESSAGE] = {'p'};
        for (auto& c : clients) {
            if (::send(c->Descriptor(), message, MESSAGE, 0) != static_cast<ssize_t>(MESSAGE)) {
                throw std::runtime_error("send failed");
            }
        }
        for (auto& c : clients) {
            for (size_t got = 0; got < MESSAGE;) {
                const ssize_t n = ::recv(c->Descriptor(), message + got, MESSAGE - got, 0);
                if (n <= 0) throw std::runtime_error("recv failed");
                got += static_cast<size_t>(n);
            }
        }
    }
};

// ---- zor: one handler per connection on the reactor ----

class ZorEcho : public zor::IOEventHandler {
public:
    explicit ZorEcho(zor::TCPSocket& sock) : m_sock(sock) {}
    void Recvice() override {
        ZR_BYTE buffer[BUFFER];
        const ZR_INT n = m_sock.RecvBytes(buffer, sizeof buffer);
        if (n > 0) m_sock.SendBytes(buffer, static_cast<ZR_Uint32>(n));
    }
    void Send() override {}
    void Exception(ZR_Int32) override {}

private:
    zor::TCPSocket& m_sock;
};

struct StopFlag : zor::IOEventHandler {
    bool& m_bStop;
    explicit StopFlag(bool& bStop) : m_bStop(bStop) {}
    void Recvice() override { m_bStop = true; }
    void Send() override {}
    void Exception(ZR_Int32) override {}
};

struct ZorServer {
    static void serve(Connections& conns, int stopFd) {
        zor::Epoll reactor(-1, 64);
        if (reactor.EpollInitialize() != zor::E_OK) throw std::runtime_error("reactor failed");
        bool bStop = false;
        reactor.EpollAdd(stopFd, EPOLLIN, new StopFlag(bStop));
        for (auto& c : conns) reactor.EpollAdd(c->Descriptor(), EPOLLIN, new ZorEcho(*c));
        while (!bStop) reactor.EpollWait();
    }
};

// ---- libevent: a persistent read event per connection ----

void libeventEcho(evutil_socket_t fd, short, void*) {
    char buffer[BUFFER];
    const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
    if (n > 0) ::send(fd, buffer, static_cast<size_t>(n), 0);
}

void libeventStop(evutil_socket_t, short, void* base) {
    event_base_loopbreak(static_cast<event_base*>(base));
}

struct LibeventServer {
    static void serve(Connections& conns, int stopFd) {
        event_base* base = event_base_new();
        std::vector<event*> events;
        events.push_back(event_new(base, stopFd, EV_READ | EV_PERSIST, libeventStop, base));
        for (auto& c : conns)
            events.push_back(event_new(base, c->Descriptor(), EV_READ | EV_PERSIST, libeventEcho, nullptr));
        for (event* e : events) event_add(e, nullptr);
        event_base_dispatch(base);
        for (event* e : events) event_free(e);
        event_base_free(base);
    }
};

// ---- bare: epoll_wait and the calls, nothing else ----

struct BareServer {
    static void serve(Connections& conns, int stopFd) {
        const int ep = ::epoll_create1(0);
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = stopFd;
        ::epoll_ctl(ep, EPOLL_CTL_ADD, stopFd, &event);
        for (auto& c : conns) {
            event.data.fd = c->Descriptor();
            ::epoll_ctl(ep, EPOLL_CTL_ADD, event.data.fd, &event);
        }
        epoll_event ready[64];
        char buffer[BUFFER];
        for (bool bStop = false; !bStop;) {
            const int count = ::epoll_wait(ep, ready, 64, -1);
            for (int i = 0; i < count; ++i) {
                const int fd = ready[i].data.fd;
                if (fd == stopFd) bStop = true;
                const ssize_t n = fd == stopFd ? 0 : ::recv(fd, buffer, sizeof buffer, 0);
                if (n > 0) ::send(fd, buffer, static_cast<size_t>(n), 0);
            }
        }
        ::close(ep);
    }
};

template <typename Server>
void epollEcho(benchmark::State& state) {
    Rig rig;
    // Client and server share one processor. Spread over two, each round trip waits for the other
    // processor to wake from idle, which in a virtual machine takes long and varies from run to run by a
    // factor of two or three, swamping the differences measured here. On one processor every event costs
    // its full price.
    zor_bench::SavedAffinity saved;
    const int cpu = sched_getcpu();
    zor_bench::PinTo(cpu);
    std::thread server([&rig, cpu] {
        zor_bench::PinTo(cpu);
        Server::serve(rig.accepted, rig.stop[0]);
    });
    for (auto _ : state) rig.round();
    if (::write(rig.stop[1], "x", 1) != 1) state.SkipWithError("cannot stop the server");
    server.join();
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * CONNECTIONS);
}

BENCHMARK_TEMPLATE(epollEcho, ZorServer)->Name("epoll_echo/zor")->UseRealTime();
BENCHMARK_TEMPLATE(epollEcho, LibeventServer)->Name("epoll_echo/libevent")->UseRealTime();
BENCHMARK_TEMPLATE(epollEcho, BareServer)->Name("epoll_echo/bare")->UseRealTime();

}  // namespace
