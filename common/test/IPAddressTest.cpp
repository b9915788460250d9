#include "IPAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <cstring>
#include <string>

#include "TestUtil.h"

using zor::IPAddress;
using zortest::relations;
using zortest::thrownMessage;

namespace {

in6_addr v6(const char* pszText) {
    in6_addr addr{};
    inet_pton(AF_INET6, pszText, &addr);
    return addr;
}

// The classes an address falls in: Loopback, Multicast, Broadcast, Wildcard, Unicast ('-' for no).
std::string classes(const IPAddress& a) {
    const ZR_BOOL is[] = {a.IsLoopback(), a.IsMulticast(), a.IsBroadcast(), a.IsWildcard(), a.IsUnicast()};
    std::string s;
    for (int i = 0; i < 5; ++i) s += is[i] ? "LMBWU"[i] : '-';
    return s;
}

}  // namespace

TEST(IPAddressConstruct, TextIsParsedAsIPv4FirstThenIPv6WithTheScopeRuleAndBadInputThrowsItsOwnMessage) {
    const unsigned char raw[16] = {};
    EXPECT_EQ("Invalid address format!", thrownMessage([] { IPAddress a("", 0); }));
    EXPECT_EQ("Invalid address format!", thrownMessage([] { IPAddress a("300.1.1.1", 0); }));
    EXPECT_EQ("Invalid address family!", thrownMessage([] { IPAddress a(3u); }));
    EXPECT_EQ("Invalid address size!", thrownMessage([&] { IPAddress a(raw, 8u); }));
    EXPECT_EQ("Invalid address size!", thrownMessage([&] { IPAddress a(raw, 4u, 2u); }));
    EXPECT_EQ("127.0.0.1", IPAddress("127.1", 0).ToString());
    EXPECT_EQ("127.0.0.1", IPAddress("0x7f.1", 0).ToString());
    EXPECT_EQ(zor::AF_V6, IPAddress("::1", 0).Family());

    const ZR_Uint32 loIndex = if_nametoindex("lo");
    ASSERT_NE(0u, loIndex);
    EXPECT_EQ(loIndex, IPAddress("fe80::1%lo", 0).Scope());
    const IPAddress bracketed("[fe80::1%lo", 0);
    EXPECT_EQ(loIndex, bracketed.Scope());
    EXPECT_EQ(0, std::memcmp(v6("fe80::1").s6_addr, bracketed.Addr(), 16));
    // The closing bracket stays in the interface name, which then names no interface.
    EXPECT_NE("", thrownMessage([] { IPAddress a("[fe80::1%lo]", 0); }));
    EXPECT_NE("", thrownMessage([] { IPAddress a("[::1]", 0); }));
    EXPECT_NE("", thrownMessage([] { IPAddress a("fe80::1%no-such-if", 0); }));
}

TEST(IPAddressConstruct, RawUnixMarkerAndLongPathsStayBounded) {
    const char path[] = "/run/app.sock";
    const IPAddress fromRaw(static_cast<const void*>(path), zor::UNIX_PATH_SIZE_MARKER);
    EXPECT_EQ(zor::AF_UN, fromRaw.Family());
    EXPECT_EQ("/run/app.sock", fromRaw.ToString());

    const std::string longPath(130, 'p');
    const IPAddress bounded(longPath, 1);
    EXPECT_EQ(108u, bounded.Size());
    EXPECT_EQ(longPath.substr(0, 108), bounded.ToString());
    // Copies read the unterminated 108-byte buffer without running past it.
    const IPAddress copy(bounded);
    EXPECT_EQ(longPath.substr(0, 108), copy.ToString());
    EXPECT_TRUE(copy == bounded);
}

// Copies and assignment drop the scope; a failed SetAddress leaves the value and the family alone.
TEST(IPAddressValue, CopiesDropTheScopeAndFailedSetsChangeNothing) {
    const in6_addr bytes = v6("fe80::1");
    IPAddress scoped(&bytes, 16u, 3u);
    EXPECT_EQ(0u, IPAddress(scoped).Scope());
    IPAddress v4("10.0.0.1", 0), assigned("10.1.2.3", 0);
    assigned = scoped;
    EXPECT_EQ(zor::AF_V6, assigned.Family());
    EXPECT_EQ(0u, assigned.Scope());
    EXPECT_EQ(0, std::memcmp(&bytes, assigned.Addr(), 16));

    EXPECT_EQ(-1, v4.SetAddress(std::string("::1")));
    EXPECT_EQ(-1, v4.SetAddress(std::string("")));
    EXPECT_EQ("10.0.0.1", v4.ToString());
    EXPECT_EQ(0, v4.SetAddress(std::string("10.0.0.9")));
    const unsigned char raw16[16] = {1};
    EXPECT_EQ(-1, v4.SetAddress(raw16, 16u));
    EXPECT_EQ("10.0.0.9", v4.ToString());
    EXPECT_EQ(0, scoped.SetAddress(std::string("fe80::2%lo")));
    EXPECT_EQ(3u, scoped.Scope());
    EXPECT_EQ(0, std::memcmp(v6("fe80::2").s6_addr, scoped.Addr(), 16));
    IPAddress path(2u);
    EXPECT_EQ(0, path.SetAddress(std::string("/var/run/s")));
    EXPECT_EQ("/var/run/s", path.ToString());
}

TEST(IPAddressClassify, EachFamilyFollowsItsTable) {
    const char* const texts[][2] = {
        {"127.255.0.1", "L---U"}, {"192.168.1.10", "----U"}, {"224.0.0.1", "-M---"},
        {"239.1.1.1", "-M---"},   {"240.0.0.1", "----U"},    {"255.255.255.255", "--B--"},
        {"::1", "L---U"},         {"::2", "----U"},          {"ff10::1", "-M---"},
        {"ff02::1", "-M---"},     {"ff20::1", "----U"},      {"2001:db8::1", "----U"}};
    for (const auto& row : texts) EXPECT_EQ(row[1], classes(IPAddress(row[0], 0))) << row[0];
    for (const IPAddress& any : {IPAddress(), IPAddress(0u), IPAddress(1u)}) EXPECT_EQ("---W-", classes(any));
    EXPECT_EQ("-----", classes(IPAddress("/x", 1)));
}

TEST(IPAddressCompare, EqualityByFamilyAndTextOrderBySizeThenText) {
    const IPAddress a6("fe80::1", 0);
    EXPECT_EQ("Bingo, I am IPv6", a6.ToString());
    EXPECT_EQ("== <= >=", relations(a6, IPAddress("2001:db8::1", 0)));  // the text hides the bytes
    EXPECT_EQ("!= < <=", relations(IPAddress("10.0.0.10", 0), IPAddress("10.0.0.2", 0)));
    EXPECT_EQ("!= < <=", relations(IPAddress("255.255.255.255", 0), a6));
    EXPECT_EQ("!= > >=", relations(IPAddress("/a", 1), a6));
    // Same text but different family is not equal.
    EXPECT_EQ("!= < <=", relations(IPAddress("1.2.3.4", 0), IPAddress("1.2.3.4", 1)));
}
