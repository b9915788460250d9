// The reactor echo server the examples share: a client that never reads its replies must not hold up
// the others or lose bytes, and a server out of descriptors must neither spin nor stop serving.
#include "echo_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TestUtil.h"

namespace {

// A connected client. Its receives give up after 30 s, so a stalled server fails a test instead of
// hanging it; a receive buffer set before connecting keeps the window that a non-reader offers small.
std::unique_ptr<zor::TCPSocket> connectTo(const zor::SockAddress& address, ZR_Uint32 receiveBuffer = 0) {
    auto socket = std::make_unique<zor::TCPSocket>(1);
    const timeval limit{30, 0};
    ::setsockopt(socket->Descriptor(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (receiveBuffer > 0) socket->SetRecvBuffSize(receiveBuffer);
    return socket->Connect(address) == 0 ? std::move(socket) : nullptr;
}

// Sends numbered bytes without blocking until the connection has taken nothing for half a second (or
// 256 MiB went out); returns what was sent.
std::string fillUntilStuck(zor::TCPSocket& socket) {
    std::string sent;
    pollfd writable{socket.Descriptor(), POLLOUT, 0};
    while (sent.size() < (256u << 20) && ::poll(&writable, 1, 500) == 1) {
        std::string chunk(64 * 1024, '\0');
        for (size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>((sent.size() + i) % 251);
        const ssize_t n = ::send(socket.Descriptor(), chunk.data(), chunk.size(), MSG_DONTWAIT);
        if (n > 0) sent.append(chunk, 0, static_cast<size_t>(n));
        if (n < 0 && errno != EAGAIN) break;
    }
    return sent;
}

// Up to n bytes: fewer when the peer closes or the receive times out.
std::string receive(zor::TCPSocket& socket, size_t n) {
    std::string got(n, '\0');
    size_t have = 0;
    while (have < n) {
        const ssize_t r = ::recv(socket.Descriptor(), &got[have], n - have, 0);
        if (r <= 0) break;
        have += static_cast<size_t>(r);
    }
    got.resize(have);
    return got;
}

bool sendAll(zor::TCPSocket& socket, const std::string& text) {
    return ::send(socket.Descriptor(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

TEST(EchoServerBackPressure, AClientThatNeverReadsHoldsUpNoOneAndLosesNothing) {
    ::signal(SIGPIPE, SIG_IGN);
    const int before = zortest::openDescriptorCount();
    {
        echo::Server server(zor::SockAddress("127.0.0.1", 0));
        auto hog = connectTo(server.Address(), 4096);  // the listener's backlog takes them
        auto other = connectTo(server.Address());
        ASSERT_TRUE(hog && other);
        std::thread loop([&] { server.Run(); });
        const std::string sent = fillUntilStuck(*hog);  // and reads nothing
        EXPECT_TRUE(sendAll(*other, "still served"));
        EXPECT_EQ("still served", receive(*other, 12));
        EXPECT_TRUE(sent == receive(*hog, sent.size())) << sent.size() << " bytes sent";
        // A client that stops sending still gets every reply, then the server closes.
        EXPECT_TRUE(sendAll(*other, "last words") && ::shutdown(other->Descriptor(), SHUT_WR) == 0);
        EXPECT_EQ("last words", receive(*other, 100));
        server.Stop();
        loop.join();
    }
    EXPECT_EQ(before, zortest::openDescriptorCount());
}

// ---- a server in a child process whose descriptor limit leaves room for a few connections ----

constexpr int CHILD_CONNECTIONS = 4;

// The lowest descriptor number not in use.
int lowestFreeDescriptor() {
    const int fd = ::open("/dev/null", O_RDONLY);
    ::close(fd);
    return fd;
}

[[noreturn]] void serveWithFewDescriptors(int portPipe, int limit) {
    const rlimit few{static_cast<rlim_t>(limit), static_cast<rlim_t>(limit)};
    if (::setrlimit(RLIMIT_NOFILE, &few) != 0) ::_exit(1);
    echo::Server server(zor::SockAddress("127.0.0.1", 0));
    const ZR_Uint16 port = server.Address().Port();
    if (::write(portPipe, &port, sizeof port) != sizeof port) ::_exit(1);
    server.Run();
    ::_exit(0);
}

// Forks a child serving with descriptor numbers below `limit` only; `port` is its port, 0 on failure.
pid_t startServer(int limit, ZR_Uint16& port) {
    int portPipe[2];
    if (::pipe(portPipe) != 0) return -1;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(portPipe[0]);
        serveWithFewDescriptors(portPipe[1], limit);
    }
    ::close(portPipe[1]);
    pollfd reported{portPipe[0], POLLIN, 0};
    if (::poll(&reported, 1, 60000) != 1 || ::read(portPipe[0], &port, sizeof port) != sizeof port) port = 0;
    ::close(portPipe[0]);
    return child;
}

// Kills and reaps the child when the test ends, however it ends.
struct ChildGuard {
    pid_t pid;
    ~ChildGuard() {
        if (pid <= 0) return;
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
};

// The child's CPU time so far, in clock ticks.
long cpuTicks(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    long ticks = 0;
    for (int i = 1; i <= 15 && in >> field; ++i) ticks += (i == 14 || i == 15) ? std::stol(field) : 0;
    return ticks;  // the command field of our own programs holds no blank
}

// True once the child uses every descriptor number below `limit`; false after 60 s.
bool descriptorsFull(pid_t pid, int limit) {
    const std::string dir = "/proc/" + std::to_string(pid) + "/fd/";
    for (int round = 0; round < 6000; ++round) {
        int used = 0;
        for (int fd = 0; fd < limit; ++fd) used += ::access((dir + std::to_string(fd)).c_str(), F_OK) == 0;
        if (used == limit) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

TEST(EchoServerOutOfDescriptors, TheAcceptorIdlesInsteadOfSpinningAndServesAgainOnceDescriptorsFree) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // UndefinedBehaviorSanitizer's type check, for one, opens a pipe to probe memory and reports a bad
    // object when it cannot.
    GTEST_SKIP() << "the sanitizer runtimes open descriptors of their own and misreport when none is left";
#endif
    // Room for the server's own four descriptors (listener, epoll, eventfd, timer) and a few connections.
    const int limit = lowestFreeDescriptor() + 4 + CHILD_CONNECTIONS;
    ZR_Uint16 port = 0;
    const ChildGuard child{startServer(limit, port)};
    ASSERT_NE(0, port);
    const zor::SockAddress address("127.0.0.1", port);

    std::vector<std::unique_ptr<zor::TCPSocket>> clients;  // far more than the child can accept
    for (int i = 0; i < 8 * CHILD_CONNECTIONS; ++i) clients.push_back(connectTo(address));
    EXPECT_TRUE(descriptorsFull(child.pid, limit));
    const long ticksBefore = cpuTicks(child.pid);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    // Waiting costs next to nothing; failing accept() in a loop would burn most of a core.
    EXPECT_LT(cpuTicks(child.pid) - ticksBefore, ::sysconf(_SC_CLK_TCK) / 5) << "CPU ticks in 2 s";

    clients.clear();  // the child's connections end and free their descriptors
    auto late = connectTo(address);
    ASSERT_TRUE(late != nullptr);
    EXPECT_TRUE(sendAll(*late, "served at last"));
    EXPECT_EQ("served at last", receive(*late, 14));
}

}  // namespace
