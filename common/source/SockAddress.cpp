#include "SockAddress.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace zor {

namespace {

constexpr size_t UNIX_PATH_CAPACITY = sizeof(sockaddr_un::sun_path);
static_assert(sizeof(sockaddr_un) == 110 && UNIX_PATH_CAPACITY == 108, "unexpected sockaddr_un layout");

// The endpoint for a parsed host; the caller owns it.
SockAddressImp* newImpForHost(const IPAddress& host, ZR_Uint16 uPort) {
    switch (host.Family()) {
        case AF_V4:
            return new IPv4SockAddressImp(host.Addr(), uPort);
        case AF_V6:
            return new IPv6SockAddressImp(host.Addr(), uPort);  // scope deliberately not carried
        case AF_UN:
            return new UnixSockAddressImp(host.ToString());
        default:
            throw std::runtime_error("Invalid address family!");
    }
}

// The endpoint for a system record; the caller owns it. Only the Unix family skips the length test, so
// the caller's buffer must hold a full sockaddr_un for it.
SockAddressImp* newImpForRecord(const sockaddr* pAddr, ZR_SOCKLEN uLen) {
    const int iFamily = pAddr->sa_family;
    if (iFamily == AF_INET && uLen >= sizeof(sockaddr_in)) {
        return new IPv4SockAddressImp(reinterpret_cast<const sockaddr_in*>(pAddr));
    }
    if (iFamily == AF_INET6 && uLen >= sizeof(sockaddr_in6)) {
        return new IPv6SockAddressImp(reinterpret_cast<const sockaddr_in6*>(pAddr));
    }
    if (iFamily == AF_UNIX) return new UnixSockAddressImp(reinterpret_cast<const sockaddr_un*>(pAddr));
    std::printf("family = %d, size = %d\n", iFamily, static_cast<int>(uLen));
    std::fflush(stdout);
    throw std::runtime_error("Invalid address family or length!");
}

}  // namespace

SockAddressImp::SockAddressImp() { InitOSNetwork(); }
SockAddressImp::~SockAddressImp() { UninitOSNetwork(); }

// ---- IPv4 ----

IPv4SockAddressImp::IPv4SockAddressImp() : m_addr{} { m_addr.sin_family = AF_INET; }

IPv4SockAddressImp::IPv4SockAddressImp(const sockaddr_in* pAddr) : m_addr{} {
    std::memcpy(&m_addr, pAddr, sizeof(m_addr));
}

IPv4SockAddressImp::IPv4SockAddressImp(const void* pAddr, ZR_Uint16 uPort) : m_addr{} {
    m_addr.sin_family = AF_INET;
    m_addr.sin_port = htons(uPort);
    if (pAddr != nullptr) std::memcpy(&m_addr.sin_addr, pAddr, sizeof(m_addr.sin_addr));
}

IPAddress IPv4SockAddressImp::Host() const { return IPAddress(&m_addr.sin_addr, sizeof(m_addr.sin_addr)); }
ZR_Uint16 IPv4SockAddressImp::Port() const { return ntohs(m_addr.sin_port); }
ZR_SOCKLEN IPv4SockAddressImp::Size() const { return sizeof(m_addr); }
ZR_Uint32 IPv4SockAddressImp::Family() const { return AF_V4; }
int IPv4SockAddressImp::SinFamily() const { return m_addr.sin_family; }
const sockaddr* IPv4SockAddressImp::Addr() const { return reinterpret_cast<const sockaddr*>(&m_addr); }

// ---- IPv6 ----

IPv6SockAddressImp::IPv6SockAddressImp(const sockaddr_in6* pAddr) : m_addr{} {
    std::memcpy(&m_addr, pAddr, sizeof(m_addr));
}

IPv6SockAddressImp::IPv6SockAddressImp(const void* pAddr, ZR_Uint16 uPort) : m_addr{} {
    m_addr.sin6_family = AF_INET6;
    m_addr.sin6_port = htons(uPort);
    if (pAddr != nullptr) std::memcpy(&m_addr.sin6_addr, pAddr, sizeof(m_addr.sin6_addr));
}

IPv6SockAddressImp::IPv6SockAddressImp(const void* pAddr, ZR_Uint16 uPort, ZR_Uint32 uScope) : m_addr{} {
    m_addr.sin6_family = AF_INET6;
    m_addr.sin6_port = htons(uPort);
    m_addr.sin6_scope_id = uScope;
    std::memcpy(&m_addr.sin6_addr, pAddr, sizeof(m_addr.sin6_addr));
}

IPAddress IPv6SockAddressImp::Host() const {
    return IPAddress(&m_addr.sin6_addr, sizeof(m_addr.sin6_addr), m_addr.sin6_scope_id);
}

ZR_Uint16 IPv6SockAddressImp::Port() const { return ntohs(m_addr.sin6_port); }
ZR_SOCKLEN IPv6SockAddressImp::Size() const { return sizeof(m_addr); }
ZR_Uint32 IPv6SockAddressImp::Family() const { return AF_V6; }
int IPv6SockAddressImp::SinFamily() const { return m_addr.sin6_family; }
const sockaddr* IPv6SockAddressImp::Addr() const { return reinterpret_cast<const sockaddr*>(&m_addr); }

// ---- Unix ----

UnixSockAddressImp::UnixSockAddressImp() : m_addr{} { m_addr.sun_family = AF_UNIX; }

UnixSockAddressImp::UnixSockAddressImp(const sockaddr_un* pAddr) : m_addr{} {
    std::memcpy(&m_addr, pAddr, sizeof(m_addr));
}

UnixSockAddressImp::UnixSockAddressImp(const std::string& sPath) : m_addr{} {
    m_addr.sun_family = AF_UNIX;
    std::memcpy(m_addr.sun_path, sPath.c_str(), strnlen(sPath.c_str(), UNIX_PATH_CAPACITY));
}

IPAddress UnixSockAddressImp::Host() const {
    return IPAddress(std::string(m_addr.sun_path, strnlen(m_addr.sun_path, UNIX_PATH_CAPACITY)), 1);
}

ZR_Uint16 UnixSockAddressImp::Port() const { return 0; }
ZR_SOCKLEN UnixSockAddressImp::Size() const { return sizeof(m_addr); }
ZR_Uint32 UnixSockAddressImp::Family() const { return AF_UN; }
int UnixSockAddressImp::SinFamily() const { return m_addr.sun_family; }
const sockaddr* UnixSockAddressImp::Addr() const { return reinterpret_cast<const sockaddr*>(&m_addr); }

// ---- SockAddress ----

SockAddress::SockAddress() : m_imp(new IPv4SockAddressImp()) {}

SockAddress::SockAddress(ZR_Uint16 uPort) : m_imp(new IPv4SockAddressImp(nullptr, uPort)) {}

SockAddress::SockAddress(const IPAddress& host, ZR_Uint16 uPort) : m_imp(newImpForHost(host, uPort)) {}

SockAddress::SockAddress(const std::string& sHost, ZR_Uint16 uPort)
    : m_imp(newImpForHost(IPAddress(sHost, 0), uPort)) {}

SockAddress::SockAddress(const std::string& sPath) : m_imp(new UnixSockAddressImp(sPath)) {}

SockAddress::SockAddress(const sockaddr* pAddr, ZR_SOCKLEN uLen) : m_imp(newImpForRecord(pAddr, uLen)) {}

SockAddress::SockAddress(const SockAddress& other) : SockAddress(other.Addr(), other.Size()) {}

SockAddress::~SockAddress() {
    delete m_imp;
    m_imp = nullptr;
}

SockAddress& SockAddress::operator=(const SockAddress& other) {
    SockAddress copy(other);
    Swap(copy);
    return *this;
}

void SockAddress::Swap(SockAddress& other) { std::swap(m_imp, other.m_imp); }

IPAddress SockAddress::Host() const { return m_imp->Host(); }
ZR_Uint16 SockAddress::Port() const { return m_imp->Port(); }
ZR_SOCKLEN SockAddress::Size() const { return m_imp->Size(); }
ZR_Uint32 SockAddress::Family() const { return m_imp->Family(); }
int SockAddress::SinFamily() const { return m_imp->SinFamily(); }
const sockaddr* SockAddress::Addr() const { return m_imp->Addr(); }

std::string SockAddress::ToString() const {
    const ZR_Uint32 uFamily = Family();
    std::string sText;
    if (uFamily == AF_V6) sText += '[';
    sText += Host().ToString();
    if (uFamily == AF_V6) sText += ']';
    if (uFamily != AF_UN) {
        sText += ':';
        sText += std::to_string(Port());
    }
    return sText;
}

bool SockAddress::operator==(const SockAddress& other) const {
    return Host() == other.Host() && Port() == other.Port();
}

bool SockAddress::operator!=(const SockAddress& other) const { return !(*this == other); }

bool SockAddress::operator<(const SockAddress& other) const {
    if (SinFamily() != other.SinFamily()) return SinFamily() < other.SinFamily();
    const IPAddress host = Host();
    const IPAddress otherHost = other.Host();
    if (host < otherHost) return true;
    if (host > otherHost) return false;
    return Port() < other.Port();
}

bool SockAddress::operator<=(const SockAddress& other) const { return *this < other || *this == other; }
bool SockAddress::operator>(const SockAddress& other) const { return !(*this <= other); }
bool SockAddress::operator>=(const SockAddress& other) const { return !(*this < other); }

}  // namespace zor
