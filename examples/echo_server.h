// echo_server.h
//
// echo::Server, a TCP echo service on one zor::Epoll reactor, written the way a reactor server should be:
//   - every socket is non-blocking, so no client can hold up the dispatching thread;
//   - a connection keeps at most MAX_PENDING bytes of replies; while replies wait it asks for EPOLLOUT,
//     and while its buffer is full it stops reading, which pushes back on a client that does not read;
//   - when the process runs out of descriptors the acceptor stops watching the listener and tries again
//     a little later, instead of failing accept() over and over at full speed;
//   - Run() dispatches until Stop(), which another thread or a signal handler calls.
// Everything but Stop() runs on the thread that calls Run(); the handlers need no locks.
//
//   std::signal(SIGPIPE, SIG_IGN);   // sockets send without MSG_NOSIGNAL: a vanished client is an error
//   echo::Server server(zor::SockAddress("127.0.0.1", 0));
//   std::thread loop([&] { server.Run(); });
//   ...
//   server.Stop();
//   loop.join();                     // the server, once destroyed, closes every connection
#ifndef ZOR_EXAMPLES_ECHO_SERVER_H_
#define ZOR_EXAMPLES_ECHO_SERVER_H_

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "Epoll.h"
#include "SockAddress.h"
#include "TCPServer.h"
#include "TCPSocket.h"

namespace echo {

// One client: echoes what it sends, through a bounded reply buffer. Ends itself when the client goes.
class Connection : public zor::IOEventHandler {
public:
    static constexpr size_t MAX_PENDING = 64 * 1024;

    Connection(zor::Epoll& reactor, zor::TCPSocket* socket) : m_reactor(reactor), m_socket(socket) {}

    void Recvice() override {
        char buffer[16 * 1024];
        // Readability is watched only while the buffer has room, so `room` is never 0 here (a read of 0
        // bytes would look like the end of the stream).
        const size_t room = std::min(sizeof buffer, MAX_PENDING - m_pending.size());
        const ZR_INT got =
            m_socket->RecvBytes(reinterpret_cast<ZR_BYTE*>(buffer), static_cast<ZR_Uint32>(room));
        if (got > 0) m_pending.append(buffer, static_cast<size_t>(got));
        if (got == 0) m_bClientDone = true;  // it sends no more: reply to the rest, then close
        if (got < 0 && !wouldBlock()) return close();
        flush();
    }
    void Send() override { flush(); }
    void Exception(ZR_Int32) override { close(); }  // error or hang-up with nothing left to read

private:
    static bool wouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

    // Sends what the socket takes now, then watches for what lets the connection go on: room to read
    // into, and a writable socket while replies wait.
    void flush() {
        while (!m_pending.empty()) {
            const ZR_INT sent = m_socket->SendBytes(reinterpret_cast<const ZR_BYTE*>(m_pending.data()),
                                                    static_cast<ZR_Uint32>(m_pending.size()));
            if (sent < 0 && wouldBlock()) break;
            if (sent <= 0) return close();
            m_pending.erase(0, static_cast<size_t>(sent));
        }
        if (m_bClientDone && m_pending.empty()) return close();
        int events = 0;
        if (!m_bClientDone && m_pending.size() < MAX_PENDING) events |= EPOLLIN;
        if (!m_pending.empty()) events |= EPOLLOUT;
        watch(events);
    }

    void watch(int events) {
        if (events == m_events) return;
        m_events = events;
        m_reactor.EpollModify(m_socket->Descriptor(), events, this);
    }

    // The reactor forgets the descriptor before the socket closes it; nothing may touch `this` after.
    void close() {
        m_reactor.EpollDelete(m_socket->Descriptor(), 0, this);
        delete this;
    }

    zor::Epoll& m_reactor;
    std::unique_ptr<zor::TCPSocket> m_socket;
    std::string m_pending;  // replies not yet taken by the socket
    int m_events = EPOLLIN;
    bool m_bClientDone = false;
};

// Accepts every waiting connection. It handles two descriptors, the listener and its own retry timer:
// whichever is ready, the answer is to accept what waits.
class Acceptor : public zor::IOEventHandler {
public:
    static constexpr int RETRY_MS = 100;

    Acceptor(zor::Epoll& reactor, zor::TCPServer& listener)
        : m_reactor(reactor),
          m_listener(listener),
          m_timer(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}
    ~Acceptor() override {
        if (m_timer >= 0) ::close(m_timer);
    }
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;

    int Timer() const { return m_timer; }  // -1 when it could not be made

    void Recvice() override {
        uint64_t expirations = 0;
        (void)!::read(m_timer, &expirations, sizeof expirations);  // re-armed below if still needed
        zor::SockAddress peer;
        for (;;) {
            if (zor::TCPSocket* socket = m_listener.Accept(peer)) {
                serve(socket);
            } else if (errno != ECONNABORTED && errno != EINTR) {  // those two: try the next one
                // Out of descriptors or memory, the connections still waiting keep the listener readable:
                // watching it now would only fail accept() again at once.
                pause(errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM);
                return;  // else EAGAIN: all accepted
            }
        }
    }
    void Send() override {}
    void Exception(ZR_Int32) override {}

private:
    void serve(zor::TCPSocket* socket) {
        auto* connection = new Connection(m_reactor, socket);
        // accept() does not pass O_NONBLOCK on: each new socket needs it.
        if (socket->SetBlocking(0) != 0 ||
            m_reactor.EpollAdd(socket->Descriptor(), EPOLLIN, connection) != zor::E_OK) {
            delete connection;
        }
    }

    void pause(bool bPause) {
        if (bPause) {
            itimerspec retry{};
            retry.it_value.tv_nsec = RETRY_MS * 1000000L;
            ::timerfd_settime(m_timer, 0, &retry, nullptr);
        }
        if (bPause == m_bPaused) return;
        m_bPaused = bPause;
        m_reactor.EpollModify(m_listener.Descriptor(), bPause ? 0 : static_cast<int>(EPOLLIN), this);
    }

    zor::Epoll& m_reactor;
    zor::TCPServer& m_listener;
    const int m_timer;
    bool m_bPaused = false;
};

// The listener, the reactor and the loop. Throws std::runtime_error when it cannot listen.
class Server {
public:
    explicit Server(const zor::SockAddress& address) : m_listener(2), m_reactor(-1, 64) {
        m_listener.SetReuseAddress(1);
        if (m_listener.Bind(address) != 0 || m_listener.Listen(128) != 0 || m_listener.SetBlocking(0) != 0)
            throw std::runtime_error("cannot listen on " + address.ToString());
        // Stop() depends on waking the loop, so make sure it can (the first wait then returns at once).
        if (m_reactor.EpollInitialize() != zor::E_OK || m_reactor.Wakeup() != zor::E_OK)
            throw std::runtime_error("cannot set up the reactor");
        auto* acceptor = new Acceptor(m_reactor, m_listener);
        if (m_reactor.EpollAdd(m_listener.Descriptor(), EPOLLIN, acceptor) != zor::E_OK) {
            delete acceptor;
            throw std::runtime_error("cannot watch the listener");
        }
        // From here on the reactor owns the acceptor and deletes it, also when this throws.
        if (acceptor->Timer() < 0 || m_reactor.EpollAdd(acceptor->Timer(), EPOLLIN, acceptor) != zor::E_OK)
            throw std::runtime_error("cannot make the accept retry timer");
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    zor::SockAddress Address() const { return m_listener.LocalAddress(); }

    // Dispatches on the calling thread until Stop().
    void Run() {
        while (!m_bStopping.load()) m_reactor.EpollWait(-1);
    }
    // Any thread, or a signal handler: the flag first, so the loop sees it whenever the wake arrives.
    void Stop() {
        m_bStopping.store(true);
        m_reactor.Wakeup();
    }

private:
    zor::TCPServer m_listener;
    zor::Epoll m_reactor;  // destroyed first: it deletes the handlers, which close their sockets
    std::atomic<bool> m_bStopping{false};
};

}  // namespace echo

#endif  // ZOR_EXAMPLES_ECHO_SERVER_H_
