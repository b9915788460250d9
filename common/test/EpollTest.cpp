#include "Epoll.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TCPServer.h"
#include "TCPSocket.h"
#include "TestUtil.h"

namespace {

// Records which callbacks ran; counts its own destructions.
struct Recorder : zor::IOEventHandler {
    explicit Recorder(int* pDeleted = nullptr) : m_pDeleted(pDeleted) {}
    ~Recorder() override {
        if (m_pDeleted != nullptr) ++*m_pDeleted;
    }
    void Recvice() override { m_calls += "R"; }
    void Send() override { m_calls += "S"; }
    void Exception(ZR_Int32 events) override { m_calls += "E" + std::to_string(events); }
    int* m_pDeleted;
    std::string m_calls;
};

// A pipe, or a socket pair whose ends are both readable and writable.
struct Pipe {
    int fds[2];
    Pipe(bool bSocket = false) {
        EXPECT_EQ(0, bSocket ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) : ::pipe(fds));
    }
    ~Pipe() { closeEnd(0), closeEnd(1); }
    void closeEnd(int i) {
        if (fds[i] >= 0) ::close(fds[i]);
        fds[i] = -1;
    }
};

TEST(EpollRegistration, KernelFirstThenMapAndAReopenedNumberKeepsItsOldHandler) {
    zor::Epoll reactor(0, 16);
    Recorder first, second;
    Pipe pipe;
    EXPECT_EQ(zor::E_ADDFAIL, reactor.EpollAdd(pipe.fds[0], EPOLLIN, &first));  // not initialised
    ASSERT_EQ(zor::E_OK, reactor.EpollInitialize());
    ASSERT_EQ(zor::E_OK, reactor.EpollAdd(pipe.fds[0], EPOLLIN, &first));
    EXPECT_EQ(zor::E_ADDFAIL, reactor.EpollAdd(pipe.fds[0], EPOLLIN, &second));
    const int number = pipe.fds[0];
    pipe.closeEnd(0);  // the kernel forgets it, the map does not
    Pipe reopened;
    ASSERT_EQ(number, reopened.fds[0]);
    EXPECT_EQ(zor::E_IOEVENTEXIST, reactor.EpollAdd(number, EPOLLIN, &second));
    ASSERT_EQ(1, ::write(reopened.fds[1], "x", 1));
    reactor.EpollWait();
    EXPECT_EQ(zor::E_OK, reactor.EpollModify(number, EPOLLIN, &second));
    reactor.EpollWait();
    EXPECT_EQ("R|R", first.m_calls + "|" + second.m_calls);
    EXPECT_EQ(zor::E_OK, reactor.EpollDelete(number, 0, nullptr));
    EXPECT_EQ(zor::E_DELETEFAIL, reactor.EpollDelete(number, 0, nullptr));
    EXPECT_EQ(zor::E_MODIFYFAIL, reactor.EpollModify(number, EPOLLIN, &second));
    EXPECT_EQ(zor::E_CREATEFAIL, zor::Epoll(0, 0).EpollInitialize());
}

TEST(EpollDispatch, OneCallPerEventReadableFirstAtMostCapacityAndHandlersDeletedOnce) {
    Pipe broken, pipes[6] = {true, true, true, true, true, true};
    broken.closeEnd(0);  // a write end without a reader: EPOLLERR alone when nothing is asked for
    const int before = zortest::openDescriptorCount();
    int deleted = 0;
    Recorder error, kept(&deleted);
    {
        zor::Epoll reactor(0, 4);
        ASSERT_EQ(zor::E_OK, reactor.EpollInitialize());
        ASSERT_EQ(zor::E_OK, reactor.EpollAdd(broken.fds[1], 0, &error));
        reactor.EpollWait();
        EXPECT_EQ("E" + std::to_string(EPOLLERR), error.m_calls);
        reactor.EpollDelete(broken.fds[1], 0, nullptr);
        Recorder* shared = new Recorder(&deleted);  // serves all six: readable and writable at once
        for (Pipe& p : pipes) {
            ASSERT_EQ(1, ::write(p.fds[1], "x", 1));
            ASSERT_EQ(zor::E_OK, reactor.EpollAdd(p.fds[0], EPOLLIN | EPOLLOUT, shared));
        }
        reactor.EpollWait();
        EXPECT_EQ("RRRR", shared->m_calls);  // Recvice() alone, four events of six
        reactor.EpollAdd(broken.fds[1], EPOLLOUT, &kept);
        reactor.EpollDelete(broken.fds[1], 0, &kept);  // taken back: not the reactor's to delete
    }
    EXPECT_EQ(1, deleted);
    EXPECT_EQ(before, zortest::openDescriptorCount());
}

// ---- waking the dispatching thread ----

// A wake ends the wait under way in the dispatching thread, or else the next one; wakes given before one
// is collected count as one, none reaches a handler, and the reactor closes its eventfd when it goes.
TEST(EpollWakeup, EndsTheWaitUnderWayOrTheNextOnceWithoutCallingAHandler) {
    EXPECT_EQ(zor::E_FAILED, zor::Epoll(0, 4).Wakeup());  // nothing to wake before initialisation
    Pipe pipe;  // its byte makes a wait return if waking does not, so a failure cannot hang
    const int before = zortest::openDescriptorCount();
    {
        zor::Epoll reactor(-1, 1);  // no time limit, and the wake may take the only event slot
        ASSERT_EQ(zor::E_OK, reactor.EpollInitialize());
        auto* recorder = new Recorder;  // deleted by the reactor
        ASSERT_EQ(zor::E_OK, reactor.EpollAdd(pipe.fds[0], EPOLLIN, recorder));
        std::atomic<pid_t> tid{0};
        std::atomic<bool> returned{false};
        std::thread dispatcher([&] {
            tid = static_cast<pid_t>(::syscall(SYS_gettid));
            reactor.EpollWait();
            returned = true;
        });
        EXPECT_TRUE(zortest::waitUntil([&] {  // until the thread sleeps in epoll_wait or epoll_pwait
            std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/syscall");
            long number = -1;
            return in >> number && (number == SYS_epoll_wait || number == SYS_epoll_pwait);
        }));
        EXPECT_EQ(zor::E_OK, reactor.Wakeup());
        const bool bWoken = zortest::waitUntil([&] { return returned.load(); }, 60000);
        if (!bWoken) (void)!::write(pipe.fds[1], "x", 1);
        dispatcher.join();
        ASSERT_TRUE(bWoken);
        EXPECT_EQ("", recorder->m_calls);

        for (int i = 0; i < 3; ++i) EXPECT_EQ(zor::E_OK, reactor.Wakeup());
        auto start = zortest::Clock::now();
        reactor.EpollWait(60000);
        EXPECT_LT(zortest::elapsedMs(start), 30000);
        start = zortest::Clock::now();
        reactor.EpollWait(100);  // the three wakes were one, and it has been collected
        EXPECT_GE(zortest::elapsedMs(start), 90);
        ASSERT_EQ(1, ::write(pipe.fds[1], "x", 1));
        reactor.EpollWait(60000);
        EXPECT_EQ("R", recorder->m_calls);
    }
    EXPECT_EQ(before, zortest::openDescriptorCount());
}

TEST(EpollWakeup, WithoutADescriptorToSpareTheReactorWorksAndSaysItCannotWake) {
    rlimit saved{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &saved));
    const int lowestFree = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(lowestFree, 0);
    ::close(lowestFree);
    rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(lowestFree) + 1;  // room for the epoll descriptor only
    zor::Epoll reactor(0, 4);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &tight));
    const ZR_INT initialized = reactor.EpollInitialize();
    ::setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(zor::E_OK, initialized);
    EXPECT_EQ(zor::E_FAILED, reactor.Wakeup());
    auto* recorder = new Recorder;
    Pipe pipe;
    ASSERT_EQ(zor::E_OK, reactor.EpollAdd(pipe.fds[0], EPOLLIN, recorder));
    ASSERT_EQ(1, ::write(pipe.fds[1], "x", 1));
    reactor.EpollWait();
    EXPECT_EQ("R", recorder->m_calls);
}

// ---- an echo server on the reactor, under load and with clients that vanish mid-message ----

// Echoes what arrives; removes and deletes itself when the peer goes or a reply fails.
struct EchoConn : Recorder {
    EchoConn(zor::Epoll& reactor, zor::TCPSocket* sock, std::atomic<int>& live)
        : m_reactor(reactor), m_sock(sock), m_live(live) {}
    // Replies are small and read before the next request, so a blocking send never stalls the loop.
    void Recvice() override {
        ZR_BYTE buffer[4096];
        const ZR_INT n = m_sock->RecvBytes(buffer, sizeof buffer);
        if (n <= 0 || m_sock->SendBytes(buffer, n) != n) Exception(0);
    }
    void Exception(ZR_Int32) override {
        m_reactor.EpollDelete(m_sock->Descriptor(), 0, this);
        --m_live;
        delete this;
    }
    zor::Epoll& m_reactor;
    std::unique_ptr<zor::TCPSocket> m_sock;
    std::atomic<int>& m_live;
};

struct OnReadable : Recorder {
    explicit OnReadable(std::function<void()> fn) : m_fn(std::move(fn)) {}
    void Recvice() override { m_fn(); }
    std::function<void()> m_fn;
};

std::string message(int conn, int round) {
    std::string text = std::to_string(conn) + ":" + std::to_string(round) + ":";
    return text.append(1 + (conn * 7 + round) % 200, static_cast<char>('a' + (conn + round) % 26));
}

bool sendText(zor::TCPSocket& sock, const std::string& text) {
    return sock.SendBytes(reinterpret_cast<const ZR_BYTE*>(text.data()), text.size()) == ZR_INT(text.size());
}

std::unique_ptr<zor::TCPSocket> connectTo(const zor::SockAddress& address) {
    auto sock = std::make_unique<zor::TCPSocket>(1);
    const timeval limit{60, 0};  // a lost byte fails the read instead of hanging it
    ::setsockopt(sock->Descriptor(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return sock->Connect(address) == 0 ? std::move(sock) : nullptr;
}

// One client thread: each connection makes `rounds` round trips, sent in two pieces on odd rounds.
bool runClient(const zor::SockAddress& address, int firstConn, int conns, int rounds) {
    std::vector<std::unique_ptr<zor::TCPSocket>> socks;
    for (int c = 0; c < conns; ++c) socks.push_back(connectTo(address));
    if (std::find(socks.begin(), socks.end(), nullptr) != socks.end()) return false;
    for (int r = 0; r < rounds; ++r) {
        for (int c = 0; c < conns; ++c) {
            const std::string text = message(firstConn + c, r);
            const size_t cut = (r % 2) ? text.size() / 2 : text.size();
            if (!sendText(*socks[c], text.substr(0, cut)) || !sendText(*socks[c], text.substr(cut)))
                return false;
        }
        for (int c = 0; c < conns; ++c) {
            std::string got(message(firstConn + c, r).size(), '\0');
            const ssize_t n = ::recv(socks[c]->Descriptor(), &got[0], got.size(), MSG_WAITALL);
            if (n != ssize_t(got.size()) || got != message(firstConn + c, r)) return false;
        }
    }
    return true;
}

TEST(EpollEchoServer, ServesManyConnectionsInOrderAndReleasesVanishedClients) {
    std::signal(SIGPIPE, SIG_IGN);
    rlimit limit{};  // 1,000 connections and then some
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < 4096 && limit.rlim_max >= 4096) {
        limit.rlim_cur = 4096;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    constexpr int CLIENT_THREADS = 4, CONNS_PER_THREAD = 125, ROUNDS = 1000, VANISHING = 60;
    const int before = zortest::openDescriptorCount();
    std::atomic<int> live{0}, failures{0};
    {
        zor::TCPServer server(2);
        ASSERT_EQ(0, server.Bind(zor::SockAddress("127.0.0.1", 0)));
        ASSERT_EQ(0, server.Listen(1024));
        server.SetBlocking(0);  // a client gone before accept() must not block the loop
        zor::Epoll reactor(50, 256);
        ASSERT_EQ(zor::E_OK, reactor.EpollInitialize());
        auto accept = [&] {
            zor::SockAddress peer;
            if (zor::TCPSocket* sock = server.Accept(peer)) {
                ++live;
                reactor.EpollAdd(sock->Descriptor(), EPOLLIN, new EchoConn(reactor, sock, live));
            }
        };
        ASSERT_EQ(zor::E_OK, reactor.EpollAdd(server.Descriptor(), EPOLLIN, new OnReadable(accept)));
        std::atomic<bool> stop{false};
        std::thread dispatcher([&] {
            while (!stop) reactor.EpollWait();  // the only thread that adds, waits and dispatches
        });
        std::vector<std::thread> clients;
        for (int t = 0; t < CLIENT_THREADS; ++t) {
            clients.emplace_back([&, t] {
                if (!runClient(server.LocalAddress(), t * CONNS_PER_THREAD, CONNS_PER_THREAD, ROUNDS))
                    ++failures;
            });
        }
        for (int c = 0; c < VANISHING; ++c) {  // half a message, then gone; every other one resets
            auto sock = connectTo(server.LocalAddress());
            if (sock && sendText(*sock, "12:3") && c % 2) sock->SetLinger(1, 0);
        }
        for (std::thread& client : clients) client.join();
        zortest::waitUntil([&] { return live == 0; }, 60000);
        EXPECT_EQ(0, live.load());  // the server closed every connection by itself
        stop = true;
        dispatcher.join();
    }
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(before, zortest::openDescriptorCount());
}

}  // namespace
