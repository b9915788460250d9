// Tests of the socket classes (Socket, TCPSocket, UDPSocket, TCPServer, MulticastSocket) against each
// other on loopback. Every blocking step is preceded by a bounded wait, so a fault fails instead of hanging.
#include "Socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>

#include "ErrorCode.h"
#include "MulticastSocket.h"
#include "TCPServer.h"
#include "TCPSocket.h"
#include "TestUtil.h"
#include "UDPSocket.h"

using zor::SockAddress;
using zortest::bytes;
using zortest::openDescriptorCount;
using zortest::thrownMessage;

namespace {

constexpr ZR_Uint32 WAIT_US = 10 * 1000 * 1000;  // generous: loopback answers in microseconds

bool isOpen(int iFd) { return fcntl(iFd, F_GETFD) != -1; }

// Binds and listens, connects the client and accepts it; the server's peer report lands in `peer`.
std::unique_ptr<zor::TCPSocket> connectPair(zor::TCPServer& server, zor::TCPSocket& client,
                                            const SockAddress& at, SockAddress& peer) {
    EXPECT_EQ(0, server.Bind(at));
    EXPECT_EQ(0, server.Listen(16));
    EXPECT_EQ(0, client.Connect(server.LocalAddress()));
    EXPECT_EQ(1, server.SelectForRead(WAIT_US));
    return std::unique_ptr<zor::TCPSocket>(server.Accept(peer));
}

// Reads exactly uCount bytes, or what arrived before a wait ran out or the stream ended.
std::string receive(zor::Socket& sock, size_t uCount) {
    std::string sData;
    ZR_BYTE buf[4096];
    while (sData.size() < uCount && sock.SelectForRead(WAIT_US) == 1) {
        const size_t uWanted = std::min(sizeof buf, uCount - sData.size());
        const ZR_INT iRead = sock.RecvBytes(buf, static_cast<ZR_Uint32>(uWanted));
        if (iRead <= 0) break;
        sData.append(reinterpret_cast<char*>(buf), iRead);
    }
    return sData;
}

// Sends a line each way between two connected sockets.
void expectEcho(zor::Socket& from, zor::Socket& to) {
    const std::string sLine = "ping over loopback";
    ASSERT_EQ(static_cast<ZR_INT>(sLine.size()), from.SendBytes(bytes(sLine), sLine.size()));
    ASSERT_EQ(sLine, receive(to, sLine.size()));
    ASSERT_EQ(static_cast<ZR_INT>(sLine.size()), to.SendBytes(bytes(sLine), sLine.size()));
    EXPECT_EQ(sLine, receive(from, sLine.size()));
}

}  // namespace

TEST(SocketConstruct, WrongTypesThrowTheirMessagesAndLeakNothing) {
    const int iBefore = openDescriptorCount();
    EXPECT_EQ("create socket failed!", thrownMessage([] { zor::TCPSocket s(0); }));
    EXPECT_EQ("create socket failed!", thrownMessage([] { zor::UDPSocket s(1); }));
    EXPECT_EQ("invalid socket type!", thrownMessage([] { zor::TCPServer s(1); }));
    {
        zor::UDPSocket udp(0);
        zor::TCPSocket tcp(1);
        EXPECT_EQ("invalid socket type!", thrownMessage([&] { zor::TCPSocket s(udp); }));
        EXPECT_EQ("invalid socket type!", thrownMessage([&] { zor::UDPSocket s(tcp); }));
        EXPECT_EQ(iBefore + 2, openDescriptorCount());  // the failed copies closed nothing...
    }
    EXPECT_EQ(iBefore, openDescriptorCount());  // ...and kept no share that holds a descriptor open
}

TEST(SocketSharing, TheLastHolderClosesInEveryOrderAndOnEveryThread) {
    const int iBefore = openDescriptorCount();
    int iFd = -1;
    {
        zor::TCPSocket a(1);
        iFd = a.Descriptor();
        {
            zor::TCPSocket b(a), c(4);
            c = b;  // c's own descriptor had no other holder
            zor::TCPSocket& alias = c;
            c = alias;  // a self-assignment must neither close nor free
            b = a;      // a copy of the same descriptor
        }
        EXPECT_TRUE(isOpen(iFd));
        zor::TCPSocket other(1);
        other = a;
        EXPECT_EQ(iBefore + 1, openDescriptorCount());

        zor::TCPSocket copy(a), last(a);
        a.Close();
        EXPECT_TRUE(!a.IsValid() && copy.IsValid() && copy.Descriptor() == iFd);
        EXPECT_FALSE(isOpen(iFd));
        // The process reuses the number; neither another copy's Close() nor the last holder may close it.
        const int iNull = ::open("/dev/null", O_RDONLY);  // likely gets iFd itself, the lowest free number
        if (iNull != iFd) {
            ASSERT_EQ(iFd, ::dup2(iNull, iFd));
            ::close(iNull);
        }
        copy.Close();
        EXPECT_TRUE(isOpen(iFd));
    }
    EXPECT_TRUE(isOpen(iFd));
    ::close(iFd);
    {  // a copy of a closed socket opens a descriptor of its own, IPv4 even for the Unix-domain type
        zor::TCPSocket closed(4);
        closed.Close();
        zor::TCPSocket reopened(static_cast<const zor::Socket&>(closed));
        EXPECT_EQ(4u, reopened.Type());
        int iDomain = 0;
        socklen_t uLen = sizeof iDomain;
        getsockopt(reopened.Descriptor(), SOL_SOCKET, SO_DOMAIN, &iDomain, &uLen);
        EXPECT_EQ(AF_INET, iDomain);
    }  // ...and it goes with its holder even though `closed` outlived it
    {
        zor::UDPSocket origin(0);  // copies made and dropped on many threads at once
        zortest::onThreads(4, [&origin](int) {
            for (int i = 0; i < 2000; ++i) zor::UDPSocket copy(origin), second(copy);
        });
        EXPECT_TRUE(isOpen(origin.Descriptor()));
    }
    EXPECT_EQ(iBefore, openDescriptorCount());
}

TEST(SocketOptions, SettingsReachTheDescriptorAndFailWithoutOne) {
    zor::TCPSocket tcp(1);
    zor::UDPSocket udp(0);
    EXPECT_EQ(0, tcp.SetReuseAddress(7));  // any non-zero means on
    EXPECT_EQ(0, tcp.SetReusePort(1) | tcp.SetNoDelay(1) | tcp.SetKeepAlive(1) | udp.SetBroadcast(1));
    EXPECT_TRUE(tcp.GetReuseAddress() == 1 && tcp.GetReusePort() == 1 && tcp.GetNoDelay() == 1 &&
                tcp.GetKeepAlive() == 1 && udp.GetBroadcast() == 1);
    EXPECT_EQ(0, tcp.SetRecvBuffSize(65536));
    EXPECT_GE(tcp.GetRecvBuffSize(), 65536u);
    EXPECT_EQ(0, tcp.SetBlocking(0));
    EXPECT_TRUE(tcp.GetBlocking() == 0 && (fcntl(tcp.Descriptor(), F_GETFL) & O_NONBLOCK));
    ZR_BOOL bOn = 0;
    ZR_Uint32 uSeconds = 0;
    EXPECT_EQ(0, tcp.SetLinger(1, 7));
    EXPECT_EQ(0, tcp.GetLinger(bOn, uSeconds));
    EXPECT_TRUE(bOn == 1 && uSeconds == 7u);

    tcp.Close();
    errno = 0;
    EXPECT_EQ(0xFFFFFFFFu, tcp.GetSendBuffSize());
    EXPECT_EQ(0, tcp.GetReuseAddress());
    EXPECT_EQ(-1, tcp.SetReusePort(1));
    EXPECT_EQ(0, errno);  // refused before any system call
    EXPECT_EQ(-1, tcp.SetBlocking(0));
    EXPECT_EQ(-1, tcp.Available());
    EXPECT_EQ("0.0.0.0:0", tcp.LocalAddress().ToString());
    EXPECT_EQ("0.0.0.0:0", tcp.PeerAddress().ToString());
    EXPECT_EQ(-1, tcp.SelectForWrite(0));
}

TEST(TCPLoopback, EchoOverIPv4AndUnixDomainWithAddressesBothEndsAgreeOn) {
    zortest::ScratchDir dir;
    zor::TCPServer server(2), unixServer(5);
    zor::TCPSocket client(1), unixClient(4);
    SockAddress peer, unixPeer;
    std::unique_ptr<zor::TCPSocket> conn = connectPair(server, client, SockAddress("127.0.0.1", 0), peer);
    std::unique_ptr<zor::TCPSocket> unixConn =
        connectPair(unixServer, unixClient, SockAddress(dir / "srv"), unixPeer);
    ASSERT_TRUE(conn != nullptr && unixConn != nullptr);
    EXPECT_EQ(client.LocalAddress(), peer);
    EXPECT_EQ(client.LocalAddress(), conn->PeerAddress());
    EXPECT_EQ(conn->LocalAddress(), client.PeerAddress());
    EXPECT_EQ(1u, unixConn->Type());  // a Unix-domain server accepts a type-one socket
    EXPECT_EQ(zor::AF_UN, unixPeer.Family());
    EXPECT_EQ(dir / "srv", unixClient.PeerAddress().ToString());
    EXPECT_EQ(dir / "srv", unixConn->LocalAddress().ToString());
    expectEcho(client, *conn);
    expectEcho(*unixConn, unixClient);

    EXPECT_EQ(1, client.SelectForWrite(WAIT_US));
    EXPECT_EQ(1, client.SendUrgent('!'));
    client.Close();
    EXPECT_EQ("", receive(*conn, 1));  // end of stream; the urgent byte is out of band
}

TEST(TCPServerRules, UnsupportedOperationsAndBindFamilies) {
    zor::TCPServer unixServer(5), inetServer(2);
    errno = 0;
    EXPECT_EQ(-1, unixServer.Bind(SockAddress("127.0.0.1", 0)));
    EXPECT_EQ(0, errno);  // refused without calling bind()
    EXPECT_EQ(-1, inetServer.Bind(SockAddress(std::string("/nonexistent/dir/x"))));
    EXPECT_NE(0, errno);  // this one reached bind()

    ZR_BYTE buf[4] = {};
    EXPECT_EQ(zor::E_UNSUPPORT, inetServer.Connect(SockAddress()));
    EXPECT_EQ(zor::E_UNSUPPORT, inetServer.RecvBytes(buf, 4));
    EXPECT_EQ(zor::E_UNSUPPORT, inetServer.SendBytes(buf, 4));
    EXPECT_EQ(zor::E_UNSUPPORT, inetServer.SendBytes(buf, 4, SockAddress()));
    EXPECT_EQ(zor::E_UNSUPPORT, zor::TCPSocket(1).SendBytes(buf, 4, SockAddress()));
    EXPECT_EQ(0, inetServer.SetBlocking(0));
    SockAddress untouched("10.9.8.7", 6);
    EXPECT_EQ(nullptr, inetServer.Accept(untouched));  // not listening
    EXPECT_EQ("10.9.8.7:6", untouched.ToString());
}

// Last, a socket both readable and failed lands in the read and the exception lists.
TEST(SocketWait, PollAndSelectWaitsReportReadinessAndErrors) {
    zor::UDPSocket receiver(0), idle(0), sender(0), gone(0), sock(0);
    ASSERT_EQ(0, receiver.Bind(SockAddress("127.0.0.1", 0)));
    ASSERT_EQ(0, idle.Bind(SockAddress("127.0.0.1", 0)));
    EXPECT_EQ(0, receiver.SelectForRead(999));  // under a millisecond: a bare check
    zor::SockList readList{&idle, &receiver}, writeList, exceptList, none;
    EXPECT_EQ(0, zor::Socket::SelectList(readList, writeList, exceptList, 1000));
    EXPECT_EQ(2u, readList.size());  // a timeout leaves the lists alone

    ASSERT_EQ(1, sender.SendBytes(bytes("x"), 1, receiver.LocalAddress()));
    ZR_BOOL r = 7, w = 8, e = 9;
    EXPECT_EQ(1, receiver.Select(WAIT_US, r, w, e));
    EXPECT_EQ(7 + 8 + 9, r + w + e);
    EXPECT_TRUE(receiver.Pollfd().revents & POLLIN);
    EXPECT_EQ(1, receiver.Available());
    EXPECT_EQ(1, receiver.SelectForWrite(WAIT_US));
    EXPECT_EQ(0, receiver.SelectForError(1000));
    EXPECT_EQ(1, zor::Socket::SelectList(readList, writeList, exceptList, WAIT_US));
    ASSERT_EQ(1u, readList.size());
    EXPECT_EQ(&receiver, readList[0]);
    EXPECT_EQ(0, zor::Socket::SelectList(none, writeList, exceptList, 1000));

    ASSERT_EQ(0, gone.Bind(SockAddress("127.0.0.1", 0)));
    ASSERT_EQ(0, sock.Connect(gone.LocalAddress()));
    gone.Close();
    ASSERT_EQ(1, sock.SendBytes(bytes("x"), 1));  // answered by "port unreachable"
    ASSERT_EQ(1, sock.SelectForRead(WAIT_US));
    ASSERT_TRUE(sock.Pollfd().revents & POLLERR);
    ASSERT_EQ(0, shutdown(sock.Descriptor(), SHUT_RD));  // makes it readable as well
    readList = {&sock};
    EXPECT_EQ(1, zor::Socket::SelectList(readList, writeList, exceptList, WAIT_US));
    EXPECT_EQ(1u, readList.size());
    ASSERT_EQ(1u, exceptList.size());
    EXPECT_EQ(&sock, exceptList[0]);
}

// Over IPv4 and over Unix-domain paths; binding to a path switches an IPv4 socket's type.
TEST(UDPLoopback, RepliesGoToTheLastSender) {
    zortest::ScratchDir dir;
    zor::UDPSocket server(0), first(0), second(0), a(3), b(3);
    ASSERT_EQ(0, server.Bind(SockAddress("127.0.0.1", 0)));
    EXPECT_EQ("0.0.0.0:0", server.PeerAddress().ToString());
    ASSERT_EQ(0, first.Bind(SockAddress("127.0.0.1", 0)));  // an unbound sender would report 0.0.0.0
    ASSERT_EQ(0, second.Connect(server.LocalAddress()));
    EXPECT_EQ(server.LocalAddress(), second.PeerAddress());
    for (zor::UDPSocket* client : {&first, &second}) {
        ASSERT_EQ(5, client->SendBytes(bytes("hello"), 5, server.LocalAddress()));
        ASSERT_EQ("hello", receive(server, 5));
        EXPECT_EQ(client->LocalAddress(), server.PeerAddress());
        ASSERT_EQ(3, server.SendBytes(bytes("ack"), 3));
        EXPECT_EQ("ack", receive(*client, 3));
    }

    zor::UDPSocket inet(0);
    EXPECT_EQ(-1, inet.Bind(SockAddress(dir / "wrong")));
    EXPECT_EQ(3u, inet.Type());  // switched although the IPv4 socket cannot take the path
    ASSERT_EQ(0, a.Bind(SockAddress(dir / "a")));
    ASSERT_EQ(0, b.Bind(SockAddress(dir / "b")));
    ASSERT_EQ(4, a.SendBytes(bytes("ping"), 4, SockAddress(dir / "b")));
    ASSERT_EQ("ping", receive(b, 4));
    EXPECT_EQ(dir / "a", b.PeerAddress().ToString());
    ASSERT_EQ(4, b.SendBytes(bytes("pong"), 4));
    EXPECT_EQ("pong", receive(a, 4));
    EXPECT_EQ(dir / "b", a.PeerAddress().ToString());
}

TEST(MulticastLoopback, SettingsReadBackAndAJoinedGroupHearsItsOwnDatagrams) {
    zor::MulticastSocket mc;
    EXPECT_EQ(0, mc.SetMulticastTTL(9));
    EXPECT_EQ(9, mc.GetMulticastTTL());
    EXPECT_EQ(0, mc.SetMulticastLoop(0));  // the kernel's default is on
    EXPECT_EQ(0, mc.GetMulticastLoop());
    EXPECT_EQ(-1, mc.SetMulticastIF("not an address"));
    EXPECT_EQ(0, mc.SetMulticastIF("127.0.0.1"));
    EXPECT_EQ("127.0.0.1", mc.GetMulticastIF());
    EXPECT_EQ("", mc.GetMulticastAddr());  // Linux does not answer the leave-group query

    const std::string sGroup = "239.255.42.99";
    ASSERT_EQ(0, mc.SetReuseAddress(1));
    ASSERT_EQ(0, mc.Bind(SockAddress("0.0.0.0", 0)));
    if (mc.Join2MCGroup(sGroup, "127.0.0.1") != 0) {
        GTEST_SKIP() << "this machine refuses multicast on 127.0.0.1 (errno " << mc.LastError() << ")";
    }
    ASSERT_EQ(0, mc.SetMulticastLoop(1));
    if (mc.SendBytes(bytes("hi"), 2, SockAddress(sGroup, mc.LocalAddress().Port())) != 2) {
        GTEST_SKIP() << "this machine cannot send to a group on 127.0.0.1 (errno " << mc.LastError() << ")";
    }
    if (mc.SelectForRead(2 * 1000 * 1000) != 1) GTEST_SKIP() << "loopback does not deliver multicast here";
    EXPECT_EQ("hi", receive(mc, 2));
    EXPECT_EQ(mc.LocalAddress().Port(), mc.PeerAddress().Port());
}

TEST(TCPLoad, TenThousandAcceptCloseCyclesLeaveNoDescriptorBehind) {
    zortest::ScratchDir dir;
    const int iBefore = openDescriptorCount();
    {
        zor::TCPServer server(5);
        ASSERT_EQ(0, server.Bind(SockAddress(dir / "load")));
        ASSERT_EQ(0, server.Listen(64));
        SockAddress peer;
        for (int i = 0; i < 10000; ++i) {
            zor::TCPSocket client(4);
            ASSERT_EQ(0, client.Connect(server.LocalAddress())) << "cycle " << i;
            ASSERT_EQ(1, server.SelectForRead(WAIT_US)) << "cycle " << i;
            std::unique_ptr<zor::TCPSocket> conn(server.Accept(peer));
            ASSERT_NE(nullptr, conn) << "cycle " << i;
            if (i % 2 == 0) conn.reset();  // alternate which end closes first
        }
    }
    EXPECT_EQ(iBefore, openDescriptorCount());
}
