#include "SockAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestUtil.h"

using zor::IPAddress;
using zor::SockAddress;
using zortest::thrownMessage;

namespace {

// The message thrown by building from a raw record, with what the constructor printed first.
std::string rawFailure(const sockaddr_storage& record, ZR_SOCKLEN uLen, std::string& sPrinted) {
    testing::internal::CaptureStdout();
    const std::string sMessage =
        thrownMessage([&] { SockAddress a(reinterpret_cast<const sockaddr*>(&record), uLen); });
    sPrinted = testing::internal::GetCapturedStdout();
    return sMessage;
}

}  // namespace

TEST(SockAddressRaw, ShortOrUnknownRecordsPrintThenThrowUnixTakesAnyLength) {
    sockaddr_storage record{};
    std::string sPrinted;
    record.ss_family = AF_INET;
    EXPECT_EQ("Invalid address family or length!", rawFailure(record, 15, sPrinted));
    EXPECT_EQ("family = 2, size = 15\n", sPrinted);
    record.ss_family = AF_INET6;
    EXPECT_EQ("Invalid address family or length!", rawFailure(record, 27, sPrinted));
    EXPECT_EQ("family = 10, size = 27\n", sPrinted);
    record.ss_family = AF_PACKET;
    EXPECT_EQ("Invalid address family or length!", rawFailure(record, 128, sPrinted));
    EXPECT_EQ("family = 17, size = 128\n", sPrinted);

    record.ss_family = AF_UNIX;
    std::strcpy(reinterpret_cast<sockaddr_un*>(&record)->sun_path, "/run/x");
    const SockAddress unix(reinterpret_cast<const sockaddr*>(&record), 3);
    EXPECT_EQ(110u, unix.Size());
    EXPECT_EQ("/run/x", unix.ToString());
}

TEST(SockAddressText, EachFamilyPrintsItsOwnForm) {
    EXPECT_EQ("0.0.0.0:0", SockAddress().ToString());
    EXPECT_EQ("0.0.0.0:80", SockAddress(ZR_Uint16(80)).ToString());
    EXPECT_EQ("192.168.0.1:80", SockAddress("192.168.0.1", 80).ToString());
    EXPECT_EQ("[Bingo, I am IPv6]:443", SockAddress("::1", 443).ToString());
    const SockAddress path(std::string("/run/app.sock"));
    EXPECT_EQ("/run/app.sock", path.ToString());
    EXPECT_EQ(0, path.Port());
    EXPECT_EQ(AF_UNIX, path.SinFamily());
    // A Unix host keeps its path and ignores the port.
    EXPECT_EQ("/run/app.sock", SockAddress(IPAddress("/run/app.sock", 1), 99).ToString());
    EXPECT_EQ("Invalid address format!", thrownMessage([] { SockAddress a("no.such.host", 1); }));

    const std::string longPath(120, 'q');
    const SockAddress bounded(longPath);
    EXPECT_EQ(longPath.substr(0, 108), bounded.ToString());
    EXPECT_EQ(longPath.substr(0, 108), SockAddress(bounded).Host().ToString());
}

TEST(SockAddressScope, HostsDropTheScopeRecordCopiesKeepIt) {
    in6_addr bytes{};
    inet_pton(AF_INET6, "fe80::1", &bytes);
    const SockAddress fromHost(IPAddress(&bytes, 16u, 4u), 8080);
    EXPECT_EQ(0u, reinterpret_cast<const sockaddr_in6*>(fromHost.Addr())->sin6_scope_id);

    sockaddr_in6 record{};
    record.sin6_family = AF_INET6;
    record.sin6_port = htons(8080);
    record.sin6_addr = bytes;
    record.sin6_scope_id = 4;
    const SockAddress original(reinterpret_cast<const sockaddr*>(&record), sizeof(record));
    const SockAddress copy(original);
    SockAddress assigned;
    assigned = original;
    EXPECT_EQ(4u, copy.Host().Scope());
    EXPECT_EQ(4u, assigned.Host().Scope());
    EXPECT_EQ(0, std::memcmp(&record, assigned.Addr(), sizeof(record)));
    EXPECT_EQ(8080, assigned.Port());
}

TEST(SockAddressCompare, FamilyThenHostThenPort) {
    const SockAddress path(std::string("/z"));
    const SockAddress v4("255.255.255.255", 65535);
    const SockAddress v6("::", 0);
    EXPECT_TRUE(path < v4 && v4 < v6 && path < v6);
    EXPECT_TRUE(v6 > v4 && v4 >= path && !(v4 < path));

    EXPECT_TRUE(SockAddress("10.0.0.1", 9) < SockAddress("10.0.0.1", 10));
    EXPECT_TRUE(SockAddress("10.0.0.10", 1) < SockAddress("10.0.0.2", 1));
    EXPECT_FALSE(SockAddress("10.0.0.2", 1) < SockAddress("10.0.0.10", 2));
    EXPECT_TRUE(SockAddress("10.0.0.1", 9) == SockAddress("10.0.0.1", 9));
    EXPECT_TRUE(SockAddress("10.0.0.1", 9) != SockAddress("10.0.0.1", 8));
    // Every IPv6 host prints the same text, so only the port tells two IPv6 endpoints apart.
    EXPECT_TRUE(SockAddress("fe80::1", 5) == SockAddress("2001:db8::7", 5));
    EXPECT_TRUE(SockAddress("fe80::1", 5) <= SockAddress("2001:db8::7", 5));
    EXPECT_TRUE(SockAddress(std::string("/a")) == SockAddress(std::string("/a")));
}
