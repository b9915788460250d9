#include "Network.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "../source/RouteParse.h"
#include "SysUtils.h"
#include "TestUtil.h"
#include "UDPSocket.h"

namespace {

using zor::IPAddress;
typedef std::vector<std::string> Words;

// The output of a command, split into lines of words.
std::vector<Words> run(const std::string& command) {
    std::string out;
    if (FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r")) {
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
        ::pclose(pipe);
    }
    std::vector<Words> lines;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        lines.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
    }
    return lines;
}

IPAddress maskOfPrefix(int bits) {
    const uint32_t mask = bits == 0 ? 0 : htonl(0xFFFFFFFFu << (32 - bits));
    return IPAddress(static_cast<const void*>(&mask), 4);
}

// Checks the table against `ip -4 -o addr` (same order, label, index, address, mask, broadcast) and
// `ip -o link` (hardware address); returns how many addresses the tools list.
size_t expectMatchesHost(const zor::NICsTable& table) {
    std::map<std::string, std::string> macs;
    for (const Words& w : run("ip -o link")) {
        const auto link = std::find(w.begin(), w.end(), "link/ether");
        std::string mac = link != w.end() && link + 1 != w.end() ? *(link + 1) : "";
        std::transform(mac.begin(), mac.end(), mac.begin(), ::toupper);
        macs[w.at(1).substr(0, w[1].find_first_of("@:"))] = mac;
    }
    const std::vector<Words> addrs = run("ip -4 -o addr");
    EXPECT_EQ(std::min<size_t>(8, addrs.size()), table.GetTableSize());
    for (size_t i = 0; i < table.GetTableSize() && i < addrs.size(); ++i) {
        const Words& w = addrs[i];
        const zor::NICInfo& nic = table[i];
        const size_t slash = w.at(3).find('/');
        const auto brd = std::find(w.begin(), w.end(), "brd");
        const auto label =
            std::find_if(w.begin(), w.end(), [](const std::string& s) { return s.back() == '\\'; });
        EXPECT_EQ(std::stoul(w[0]), nic.iNICIndex);
        EXPECT_EQ(label == w.end() ? "" : label->substr(0, label->size() - 1), nic.sNICName);
        EXPECT_EQ(IPAddress(w[3].substr(0, slash), 0), nic.ipaddr) << nic.sNICName;
        EXPECT_EQ(maskOfPrefix(std::stoi(w[3].substr(slash + 1))), nic.netmask) << nic.sNICName;
        EXPECT_EQ(brd == w.end() ? IPAddress() : IPAddress(*(brd + 1), 0), nic.broadcast) << nic.sNICName;
        const std::string& mac = macs[w[1]];
        EXPECT_TRUE(mac.size() != 17 || mac == nic.sPhyAddr) << nic.sNICName << " " << mac;
    }
    return addrs.size();
}

TEST(NetworkTables, DeleteByNarrowEqualityAndCheckedIndex) {
    zor::Route a, b, c;
    b.destination = c.destination = IPAddress("10.1.0.0", 0);
    c.gateway = IPAddress("10.1.0.254", 0);  // same destination, other gateway: equal
    zor::RouteTable routes;
    for (const zor::Route& r : {a, b, a}) routes.AddRoute(r);
    routes.DelRoute(c);
    ASSERT_EQ(2u, routes.GetTableSize());
    EXPECT_EQ(a.destination, routes[1].destination);
    const zor::RouteTable& constRoutes = routes;
    EXPECT_EQ("Invalid index for route table", zortest::thrownMessage([&] { constRoutes[2]; }));
    zor::NICsTable nics;
    zor::NICInfo n;
    nics.AddNICInfo(n);
    n.sNICName = "other";  // names do not count
    nics.DelNICInfo(n);
    EXPECT_EQ("Invalid index for NICs table", zortest::thrownMessage([&] { nics[0]; }));
}

// One route as "destination gateway netmask flags interface-address".
std::string describe(const zor::Route& r) {
    return r.destination.ToString() + " " + r.gateway.ToString() + " " + r.netmask.ToString() + " " +
           std::to_string(r.flags) + " " + r.NICAddr.ToString();
}

// x86-64 is little-endian: the kernel's 0101A8C0 is 192.168.1.1.
TEST(RouteParsing, MachineOrderAddressesAndBrokenLinesReadAsZero) {
    std::istringstream text(
        "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\tMTU\tWindow\tIRTT\n"
        "eth0\t0001A8C0\t0101A8C0\t0003\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
        "wlan9\t0101A8C0\n"
        "\n"
        "eth0 zz12 -1 0x1G 0 0 0 FFFFFFFFFFFFFFFFFFFFFFFF 0 0 0 extra\n");
    zor::RouteTable table;
    zor::route_inner::parseRouteTable(text, table, [](const std::string& name, IPAddress& addr) {
        if (name == "eth0") addr = IPAddress("192.168.1.7", 0);
    });
    ASSERT_EQ(4u, table.GetTableSize());
    EXPECT_EQ("192.168.1.0 192.168.1.1 255.255.255.0 3 192.168.1.7", describe(table[0]));
    EXPECT_EQ(~0ul, table[0].ages);
    EXPECT_EQ("192.168.1.1 0.0.0.0 0.0.0.0 0 0.0.0.0", describe(table[1]));  // missing columns, unknown NIC
    EXPECT_EQ("0.0.0.0 0.0.0.0 0.0.0.0 0 0.0.0.0", describe(table[2]));
    // Not hexadecimal reads as 0; strtoul's -1 and its overflow are cut to 32 bits.
    EXPECT_EQ("0.0.0.0 255.255.255.255 255.255.255.255 1 192.168.1.7", describe(table[3]));
}

TEST(SysUtilsHostView, RoutesAndInterfacesMatchTheSystemTools) {
    zor::NICsTable nics;
    ASSERT_EQ(0, zor::SysUtils::GetSysNICsTable(nics));
    if (expectMatchesHost(nics) == 0) GTEST_SKIP() << "`ip -4 -o addr` lists nothing to compare with";
    zor::RouteTable routes;
    ASSERT_EQ(0, zor::SysUtils::GetSysRouteTable(routes));
    const std::string proc = zortest::readFile("/proc/net/route");
    EXPECT_EQ(size_t(std::count(proc.begin(), proc.end(), '\n') - 1), routes.GetTableSize());
    for (const Words& w : run("ip -4 route show table main")) {
        const IPAddress dest =
            w.at(0) == "default" ? IPAddress() : IPAddress(w[0].substr(0, w[0].find('/')), 0);
        const auto via = std::find(w.begin(), w.end(), "via"), src = std::find(w.begin(), w.end(), "src");
        size_t i = 0;
        while (i < routes.GetTableSize() && !(routes[i].destination == dest)) ++i;
        ASSERT_LT(i, routes.GetTableSize()) << "no route to " << w[0];
        EXPECT_EQ(via == w.end() ? IPAddress() : IPAddress(*(via + 1), 0), routes[i].gateway);
        if (src != w.end()) {
            EXPECT_EQ(IPAddress(*(src + 1), 0), routes[i].NICAddr) << w[0];
        }
    }
}

// In a network namespace of its own (root only) with ten IPv4 interfaces, of which 8 are seen.
TEST(SysUtilsNamespace, OnlyEightInterfacesAreListedAndNamesGiveTheClass) {
    const Words names = {"eth_lo", "veth7", "virbr7", "wlan7", "docker7", "xlo7", "virlo", "nic8", "nic9"};
    std::string skip;
    zor::NICsTable table;
    size_t listed = 0;
    std::thread inNamespace([&] {  // unshare() moves only this thread into the new namespace
        if (::unshare(CLONE_NEWNET) != 0) return void(skip = "cannot unshare the network namespace");
        std::string kind;
        for (const char* k : {"dummy", "bridge", "ifb"}) {
            if (kind.empty() &&
                std::system(("ip link add probe0 type " + std::string(k) + " 2>/dev/null").c_str()) == 0)
                kind = k;
        }
        if (kind.empty()) return void(skip = "no dummy, bridge or ifb links in this kernel");
        std::string script = "ip link del probe0 && ip link set lo up";
        for (size_t i = 0; i < names.size(); ++i) {
            script += " && ip link add " + names[i] + (i == 0 ? " address 00:1a:2b:3c:4d:5e" : "") +
                      " type " + kind + " && ip addr add 192.0.2." + std::to_string(10 + i) +
                      "/24 brd 192.0.2.255 dev " + names[i] + " && ip link set " + names[i] + " up";
        }
        if (std::system(script.c_str()) != 0) return void(skip = "cannot set up the interfaces");
        if (zor::SysUtils::GetSysNICsTable(table) != 0) return void(skip = "GetSysNICsTable failed");
        listed = expectMatchesHost(table);
    });
    inNamespace.join();
    if (!skip.empty()) GTEST_SKIP() << skip;
    EXPECT_EQ(10u, listed);
    ASSERT_EQ(8u, table.GetTableSize());
    const std::vector<ZR_ULONG> classes = {0, 2, 2, 1, 3, 3, 0, 1};  // lo first, then the links in order
    for (size_t i = 0; i < 8; ++i) EXPECT_EQ(classes[i], table[i].eNICType) << table[i].sNICName;
    EXPECT_EQ("00:1A:2B:3C:4D:5E", table[1].sPhyAddr);
}

// A child process hides its /proc/self/net in a private mount namespace (root only), so the route file
// is missing.
TEST(SysUtilsRouteFile, AFileThatCannotBeOpenedGivesMinusOneAndNoRoutes) {
    const int status = zortest::exitStatusOf([] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", "/proc/self/net", "tmpfs", 0, nullptr) != 0)
            return 77;
        zor::RouteTable table;
        return zor::SysUtils::GetSysRouteTable(table) == -1 && table.GetTableSize() == 0 ? 0 : 1;
    });
    if (status == 77) GTEST_SKIP() << "cannot hide /proc from a child";
    EXPECT_EQ(0, status);
}

TEST(SysUtilsPortSearch, RangeEdgesAndATakenPortIsSkipped) {
    EXPECT_EQ(65535, zor::SysUtils::GetAvailPortTCP("127.0.0.1", 6000, 5000));
    EXPECT_EQ(0, zor::SysUtils::GetAvailPortTCP("127.0.0.1", 5000, 5000));
    EXPECT_EQ(0, zor::SysUtils::GetAvailPortUDP(nullptr, 0, 0));
    zor::UDPSocket taken(0);
    ASSERT_EQ(0, taken.Bind(zor::SockAddress("0.0.0.0", 0)));
    const int port = taken.LocalAddress().Port();
    if (port > 65500) GTEST_SKIP() << "ephemeral port too close to the top";
    EXPECT_EQ(0, zor::SysUtils::GetAvailPortTCP("203.0.113.7", port, port + 3));  // not a host address
    const int found = zor::SysUtils::GetAvailPortUDP("", port, port + 10);
    EXPECT_GT(found, port);  // normally port + 1
    EXPECT_LT(found, port + 10);
}

}  // namespace
