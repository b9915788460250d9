#include "IPAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <cstring>
#include <string>

#include "TestUtil.h"

using zor::IPAddress;
using zortest::thrownMessage;

namespace {

in6_addr v6(const char* pszText) {
    in6_addr addr{};
    inet_pton(AF_INET6, pszText, &addr);
    return addr;
}

}  // namespace

TEST(IPAddressConstruct, BadInputThrowsItsOwnMessage) {
    const unsigned char raw[16] = {};
    EXPECT_EQ("Invalid address format!", thrownMessage([] { IPAddress a("", 0); }));
    EXPECT_EQ("Invalid address format!", thrownMessage([] { IPAddress a("300.1.1.1", 0); }));
    EXPECT_EQ("Invalid address family!", thrownMessage([] { IPAddress a(3u); }));
    EXPECT_EQ("Invalid address size!", thrownMessage([&] { IPAddress a(raw, 8u); }));
    EXPECT_EQ("Invalid address size!", thrownMessage([&] { IPAddress a(raw, 4u, 2u); }));
}

TEST(IPAddressConstruct, TextIsParsedAsIPv4FirstThenIPv6WithTheScopeRule) {
    EXPECT_EQ("127.0.0.1", IPAddress("127.1", 0).ToString());
    EXPECT_EQ("127.0.0.1", IPAddress("0x7f.1", 0).ToString());
    const IPAddress loop6("::1", 0);
    EXPECT_EQ(zor::AF_V6, loop6.Family());
    EXPECT_EQ(0u, loop6.Scope());

    const ZR_Uint32 loIndex = if_nametoindex("lo");
    ASSERT_NE(0u, loIndex);
    EXPECT_EQ(loIndex, IPAddress("fe80::1%lo", 0).Scope());
    const IPAddress bracketed("[fe80::1%lo", 0);
    EXPECT_EQ(loIndex, bracketed.Scope());
    const in6_addr expected = v6("fe80::1");
    EXPECT_EQ(0, std::memcmp(&expected, bracketed.Addr(), 16));
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

TEST(IPAddressValue, CopiesAndAssignmentDropTheScopeSwapExchanges) {
    const in6_addr bytes = v6("fe80::1");
    const IPAddress scoped(&bytes, 16u, 2u);
    EXPECT_EQ(2u, scoped.Scope());
    EXPECT_EQ(0u, IPAddress(scoped).Scope());
    IPAddress assigned("10.1.2.3", 0);
    assigned = scoped;
    EXPECT_EQ(zor::AF_V6, assigned.Family());
    EXPECT_EQ(0u, assigned.Scope());
    EXPECT_EQ(0, std::memcmp(&bytes, assigned.Addr(), 16));

    IPAddress a("1.2.3.4", 0);
    IPAddress b("/tmp/x", 1);
    a.Swap(b);
    EXPECT_EQ("/tmp/x", a.ToString());
    EXPECT_EQ("1.2.3.4", b.ToString());
}

TEST(IPAddressSetAddress, FailuresLeaveTheValueAndTheFamilyAlone) {
    IPAddress v4("10.0.0.1", 0);
    EXPECT_EQ(-1, v4.SetAddress(std::string("::1")));
    EXPECT_EQ(-1, v4.SetAddress(std::string("")));
    EXPECT_EQ("10.0.0.1", v4.ToString());
    EXPECT_EQ(0, v4.SetAddress(std::string("10.0.0.9")));
    EXPECT_EQ("10.0.0.9", v4.ToString());
    const unsigned char raw16[16] = {1};
    EXPECT_EQ(-1, v4.SetAddress(raw16, 16u));
    EXPECT_EQ("10.0.0.9", v4.ToString());

    const in6_addr start = v6("fe80::1");
    IPAddress scoped(&start, 16u, 3u);
    EXPECT_EQ(0, scoped.SetAddress(std::string("fe80::2%lo")));
    EXPECT_EQ(3u, scoped.Scope());
    const in6_addr expected = v6("fe80::2");
    EXPECT_EQ(0, std::memcmp(&expected, scoped.Addr(), 16));

    IPAddress path(2u);
    EXPECT_EQ(0, path.SetAddress(std::string("/var/run/s")));
    EXPECT_EQ("/var/run/s", path.ToString());
}

TEST(IPAddressClassify, EachFamilyFollowsItsTable) {
    EXPECT_TRUE(IPAddress("127.255.0.1", 0).IsLoopback());
    EXPECT_TRUE(IPAddress("239.1.1.1", 0).IsMulticast());
    EXPECT_FALSE(IPAddress("240.0.0.1", 0).IsMulticast());
    EXPECT_TRUE(IPAddress("255.255.255.255", 0).IsBroadcast());
    EXPECT_TRUE(IPAddress().IsWildcard());
    EXPECT_TRUE(IPAddress("ff10::1", 0).IsMulticast());
    EXPECT_FALSE(IPAddress("ff20::1", 0).IsMulticast());
    EXPECT_TRUE(IPAddress("::1", 0).IsLoopback());
    EXPECT_FALSE(IPAddress("::2", 0).IsLoopback());
    EXPECT_TRUE(IPAddress(1u).IsWildcard());

    EXPECT_TRUE(IPAddress("192.168.1.10", 0).IsUnicast());
    EXPECT_TRUE(IPAddress("127.0.0.1", 0).IsUnicast());
    EXPECT_FALSE(IPAddress("255.255.255.255", 0).IsUnicast());
    EXPECT_FALSE(IPAddress("224.0.0.1", 0).IsUnicast());
    EXPECT_FALSE(IPAddress(0u).IsUnicast());
    EXPECT_TRUE(IPAddress("2001:db8::1", 0).IsUnicast());
    EXPECT_FALSE(IPAddress("ff02::1", 0).IsUnicast());
    const IPAddress path("/x", 1);
    EXPECT_FALSE(path.IsUnicast() || path.IsLoopback() || path.IsWildcard() || path.IsMulticast());
}

TEST(IPAddressCompare, EqualityByFamilyAndTextOrderBySizeThenText) {
    const IPAddress a6("fe80::1", 0);
    const IPAddress b6("2001:db8::1", 0);
    EXPECT_EQ("Bingo, I am IPv6", a6.ToString());
    EXPECT_TRUE(a6 == b6);
    EXPECT_FALSE(a6 < b6 || b6 < a6);
    EXPECT_TRUE(a6 <= b6 && a6 >= b6 && !(a6 > b6));

    const IPAddress ten("10.0.0.10", 0);
    const IPAddress two("10.0.0.2", 0);
    EXPECT_TRUE(ten < two);
    EXPECT_TRUE(two > ten && two >= ten && ten <= two && ten != two);
    const IPAddress path("/a", 1);
    EXPECT_TRUE(IPAddress("255.255.255.255", 0) < a6);
    EXPECT_TRUE(a6 < path);
    // Same text but different family is not equal.
    EXPECT_FALSE(IPAddress("1.2.3.4", 0) == IPAddress("1.2.3.4", 1));
}
