#include "SysUtils.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "IPAddress.h"
#include "Locks.h"
#include "Network.h"
#include "PosixUtil.h"
#include "RouteParse.h"

namespace zor {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Sleeps by poll() with no descriptors; a signal only interrupts one poll, the rest is slept after it.
void sleepMilliseconds(ZR_Int64 ms) {
    const SteadyClock::time_point end = SteadyClock::now() + std::chrono::milliseconds(ms);
    for (ZR_Int64 left = ms; left > 0;) {
        if (::poll(nullptr, 0, static_cast<int>(left)) == 0 || errno != EINTR) return;
        left = std::chrono::duration_cast<std::chrono::milliseconds>(end - SteadyClock::now()).count();
    }
}

void requirePath(const std::string& path) {
    if (path.empty()) throw std::runtime_error("File path must not be empty!!");
}

// The interface list is read into room for this many requests (320 bytes): a deliberate fixed limit.
constexpr int MAX_LISTED_NICS = 8;
static_assert(sizeof(ifreq) * MAX_LISTED_NICS == 320, "the interface list buffer is 320 bytes");

const char ROUTE_FILE[] = "/proc/net/route";

// The first rule that matches wins, so "eth_lo" is Ethernet.
ZR_ULONG classifyNIC(const std::string& name) {
    if (name.find("eth") != std::string::npos) return NIC_ETHERNET;
    if (name.find("vir") != std::string::npos) return NIC_VIRTUAL;
    if (name.find("lo") != std::string::npos) return NIC_LOOPBACK;
    return NIC_OTHER;
}

// The 4 address bytes of an IPv4 socket address inside an interface request.
void copyIPv4(const sockaddr& from, IPAddress& to) {
    in_addr raw;
    std::memcpy(&raw, reinterpret_cast<const char*>(&from) + offsetof(sockaddr_in, sin_addr), sizeof raw);
    to.SetAddress(static_cast<const void*>(&raw), sizeof raw);
}

std::string formatHardwareAddress(const sockaddr& hw) {
    const unsigned char* b = reinterpret_cast<const unsigned char*>(hw.sa_data);
    char text[18] = {};
    std::snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", b[0], b[1], b[2], b[3], b[4], b[5]);
    return text;
}

// Fills info from the five queries of one interface; false as soon as one of them fails.
bool queryInterface(int iSock, const ifreq& listed, NICInfo& info) {
    ifreq req{};
    std::memcpy(req.ifr_name, listed.ifr_name, IFNAMSIZ);
    req.ifr_name[IFNAMSIZ - 1] = '\0';
    info.sNICName = req.ifr_name;
    info.eNICType = classifyNIC(info.sNICName);
    if (::ioctl(iSock, SIOCGIFADDR, &req) == -1) return false;
    copyIPv4(req.ifr_addr, info.ipaddr);
    if (::ioctl(iSock, SIOCGIFNETMASK, &req) == -1) return false;
    copyIPv4(req.ifr_netmask, info.netmask);
    if (::ioctl(iSock, SIOCGIFBRDADDR, &req) == -1) return false;
    copyIPv4(req.ifr_broadaddr, info.broadcast);
    if (::ioctl(iSock, SIOCGIFINDEX, &req) == -1) return false;
    info.iNICIndex = static_cast<ZR_ULONG>(req.ifr_ifindex);
    if (::ioctl(iSock, SIOCGIFHWADDR, &req) == -1) return false;
    info.sPhyAddr = formatHardwareAddress(req.ifr_hwaddr);
    return true;
}

const NICInfo* findNIC(const NICsTable& nics, const std::string& name) {
    for (size_t i = 0; i < nics.GetTableSize(); ++i) {
        if (nics[i].sNICName == name) return &nics[i];
    }
    return nullptr;
}

}  // namespace

Mutex SysUtils::m_portMutex(0);

ZR_Int32 SysUtils::GetOSMinPriority(ZR_Int32 policy) { return sched_get_priority_min(policy); }

ZR_Int32 SysUtils::GetOSMaxPriority(ZR_Int32 policy) { return sched_get_priority_max(policy); }

ZR_Int32 SysUtils::MapPriority(ZR_Int32 priority, ZR_Int32 policy) {
    const ZR_Int32 min = GetOSMinPriority(policy);
    const ZR_Int32 max = GetOSMaxPriority(policy);
    const ZR_Int32 range = max - min;
    switch (priority) {
        case 0:  // PRIO_LOWEST
            return min;
        case 1:  // PRIO_LOW
            return min + range / 4;
        case 3:  // PRIO_HIGHEST
            return max;
        case 4:  // PRIO_HIGH
            return min + (3 * range) / 4;
        default:  // PRIO_NORMAL and anything unknown
            return min + range / 2;
    }
}

ZR_Int32 SysUtils::ReverseMapPriority(ZR_Int32 osPriority, ZR_Int32 policy) {
    if (policy != 0) return 3;  // every real-time thread reads back as the highest level
    const ZR_Int32 min = GetOSMinPriority(policy);
    const ZR_Int32 max = GetOSMaxPriority(policy);
    const ZR_Int32 mid = min + (max - min) / 2;
    if (osPriority == min) return 0;
    if (osPriority < mid) return 1;
    if (osPriority == mid) return 2;
    if (osPriority == max) return 3;
    return 4;
}

ZR_Int32 SysUtils::GetCPUNumber() { return static_cast<ZR_Int32>(sysconf(_SC_NPROCESSORS_ONLN)); }

ZR_Int32 SysUtils::InvalidCPU(ZR_Int32 index) { return (index < 0 || index >= GetCPUNumber()) ? 1 : 0; }

ZR_Int32 SysUtils::DelaySeconds(ZR_Int32 s) {
    sleepMilliseconds(static_cast<ZR_Int64>(s) * 1000);
    return 0;
}

ZR_Int32 SysUtils::DelayMseconds(ZR_Int32 ms) {
    sleepMilliseconds(ms);
    return 0;
}

ZR_Int32 SysUtils::DelayUseconds(ZR_Int32 us) {
    if (us > 999999) return -1;
    const SteadyClock::time_point end = SteadyClock::now() + std::chrono::microseconds(us);
    timeval tv{0, us};
    while (::select(0, nullptr, nullptr, nullptr, &tv) == -1 && errno == EINTR) {
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(end - SteadyClock::now()).count();
        if (left <= 0) break;
        tv = timeval{0, static_cast<suseconds_t>(left)};
    }
    return 0;
}

ZR_DLLHD SysUtils::LoadLibrary(const std::string& path) { return dlopen(path.c_str(), RTLD_LAZY); }

ZR_PVOID SysUtils::GetSymbol(ZR_DLLHD handle, const std::string& name) { return dlsym(handle, name.c_str()); }

void SysUtils::FreeLibrary(ZR_DLLHD handle) { dlclose(handle); }

ZR_INT SysUtils::ForkDaemon() {
    pid_t pid = -1;
    while ((pid = fork()) < 0) {
    }
    if (pid > 0) _exit(0);
    setsid();
    return 0;
}

ZR_BOOL SysUtils::IsLinkFile(const std::string& path) {
    requirePath(path);
    struct stat info {};
    return (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) ? 1 : 0;
}

ZR_BOOL SysUtils::IsDeviceFile(const std::string& path) {
    requirePath(path);
    struct stat info {};
    return (stat(path.c_str(), &info) == 0 && (S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode))) ? 1 : 0;
}

ZR_BOOL SysUtils::IsDirectoryFile(const std::string& path) {
    requirePath(path);
    struct stat info {};
    return (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) ? 1 : 0;
}

ZR_BOOL SysUtils::IsHiddenFile(const std::string& path) {
    requirePath(path);
    if (path == "." || path == "..") return 0;
    return path[0] == '.' ? 1 : 0;
}

ZR_Int32 SysUtils::GetSysNICsTable(NICsTable& table) {
    // Close-on-exec: a fork and exec in another thread must not inherit this short-lived socket.
    const detail::FdGuard sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (sock.Get() < 0) return -1;
    ifreq listed[MAX_LISTED_NICS] = {};
    ifconf conf{};
    conf.ifc_len = sizeof listed;
    conf.ifc_req = listed;
    if (::ioctl(sock.Get(), SIOCGIFCONF, &conf) == -1) return -1;
    const int iCount = conf.ifc_len / static_cast<int>(sizeof(ifreq));
    for (int i = 0; i < iCount && i < MAX_LISTED_NICS; ++i) {
        NICInfo info;
        if (!queryInterface(sock.Get(), listed[i], info)) return -1;  // earlier records stay appended
        table.AddNICInfo(info);
    }
    return 0;
}

ZR_Int32 SysUtils::GetSysRouteTable(RouteTable& table) {
    std::ifstream in(ROUTE_FILE);
    if (!in.is_open()) return -1;
    // The interfaces are read at the first route and reused for the rest: one snapshot per call.
    NICsTable nics;
    int iNicsState = 0;  // 0 not read yet, 1 read, -1 unreadable
    route_inner::parseRouteTable(in, table, [&](const std::string& name, IPAddress& address) {
        if (iNicsState == 0) iNicsState = GetSysNICsTable(nics) == 0 ? 1 : -1;
        const NICInfo* nic = iNicsState == 1 ? findNIC(nics, name) : nullptr;
        if (nic != nullptr) address = nic->ipaddr;
    });
    return 0;
}

ZR_Uint16 SysUtils::GetAvailPortTCP(const ZR_CHAR* host, ZR_Uint16 start, ZR_Uint16 end) {
    return searchPort(SOCK_STREAM, host, start, end);
}

ZR_Uint16 SysUtils::GetAvailPortUDP(const ZR_CHAR* host, ZR_Uint16 start, ZR_Uint16 end) {
    return searchPort(SOCK_DGRAM, host, start, end);
}

ZR_Int32 SysUtils::getNICAddrInfo(const std::string& name, IPAddress& addr, IPAddress& mask,
                                  IPAddress& broadcast) {
    NICsTable nics;
    if (GetSysNICsTable(nics) != 0) return -1;
    const NICInfo* nic = findNIC(nics, name);
    if (nic == nullptr) return -1;
    addr = nic->ipaddr;
    mask = nic->netmask;
    broadcast = nic->broadcast;
    return 0;
}

ZR_Int32 SysUtils::getNICAddrInfo(const ZR_ULONG& /*index*/, IPAddress& /*addr*/, IPAddress& /*mask*/,
                                  IPAddress& /*broadcast*/) {
    return -1;
}

ZR_Uint16 SysUtils::getAvailPort(ZR_SOCKET fd, const ZR_CHAR* host, ZR_Uint16 start, ZR_Uint16 end) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = (host != nullptr && host[0] != '\0') ? inet_addr(host) : htonl(INADDR_ANY);
    ScopedLock hold(m_portMutex);
    if (start == 0 && end == 0) {
        sockaddr_in own{};  // zeroed: an unbound socket reports port 0
        socklen_t len = sizeof own;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &len) != 0) return 0;
        return own.sin_port;  // as stored, in network byte order
    }
    for (ZR_Uint32 port = start; port < end; ++port) {
        addr.sin_port = htons(static_cast<ZR_Uint16>(port));
        if (::bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0) {
            return static_cast<ZR_Uint16>(port);
        }
    }
    return 0;
}

ZR_Uint16 SysUtils::searchPort(int iKind, const ZR_CHAR* host, ZR_Uint16 start, ZR_Uint16 end) {
    if (end < start) return 65535;
    ZR_Uint16 port = 0;
    {
        // A failed socket() is not checked: every bind then fails and the answer is 0.
        const detail::FdGuard sock(::socket(AF_INET, iKind | SOCK_CLOEXEC, 0));
        port = getAvailPort(sock.Get(), host, start, end);
    }  // closing the socket frees the port again
    if (port != 0) DelayMseconds(100);
    return port;
}

}  // namespace zor
