#include "SockAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestUtil.h"

using zor::IPAddress;
using zor::SockAddress;
using zortest::relations;
using zortest::thrownMessage;

TEST(SockAddressRaw, ShortOrUnknownRecordsPrintThenThrowUnixTakesAnyLength) {
    sockaddr_storage record{};
    for (const auto& bad : {std::make_pair(AF_INET, 15), {AF_INET6, 27}, {AF_PACKET, 128}}) {
        record.ss_family = bad.first;
        testing::internal::CaptureStdout();
        EXPECT_EQ("Invalid address family or length!", thrownMessage([&] {
                      SockAddress a(reinterpret_cast<const sockaddr*>(&record), bad.second);
                  }));
        EXPECT_EQ("family = " + std::to_string(bad.first) + ", size = " + std::to_string(bad.second) + "\n",
                  testing::internal::GetCapturedStdout());
    }
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
    sockaddr_in6 record{};
    record.sin6_family = AF_INET6;
    record.sin6_port = htons(8080);
    inet_pton(AF_INET6, "fe80::1", &record.sin6_addr);
    record.sin6_scope_id = 4;
    const SockAddress fromHost(IPAddress(&record.sin6_addr, 16u, 4u), 8080);
    EXPECT_EQ(0u, reinterpret_cast<const sockaddr_in6*>(fromHost.Addr())->sin6_scope_id);

    const SockAddress original(reinterpret_cast<const sockaddr*>(&record), sizeof(record));
    SockAddress assigned;
    assigned = original;
    EXPECT_EQ(4u, SockAddress(original).Host().Scope());
    EXPECT_EQ(4u, assigned.Host().Scope());
    EXPECT_EQ(0, std::memcmp(&record, assigned.Addr(), sizeof(record)));
}

TEST(SockAddressCompare, FamilyThenHostThenPort) {
    const SockAddress path(std::string("/z")), v4("255.255.255.255", 65535), v6("::", 0);
    EXPECT_EQ("!= < <=", relations(path, v4));
    EXPECT_EQ("!= < <=", relations(v4, v6));
    EXPECT_EQ("!= > >=", relations(v6, path));
    EXPECT_EQ("!= < <=", relations(SockAddress("10.0.0.1", 9), SockAddress("10.0.0.1", 10)));
    EXPECT_EQ("!= < <=", relations(SockAddress("10.0.0.10", 2), SockAddress("10.0.0.2", 1)));  // host first
    EXPECT_EQ("== <= >=", relations(SockAddress("10.0.0.1", 9), SockAddress("10.0.0.1", 9)));
    EXPECT_EQ("== <= >=", relations(SockAddress(std::string("/a")), SockAddress(std::string("/a"))));
    // Every IPv6 host prints the same text, so only the port tells two IPv6 endpoints apart.
    EXPECT_EQ("== <= >=", relations(SockAddress("fe80::1", 5), SockAddress("2001:db8::7", 5)));
}
