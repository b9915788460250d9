#include "IPAddress.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <cstring>
#include <memory>
#include <stdexcept>

namespace zor {

namespace {

const char* const IPV6_TEXT = "Bingo, I am IPv6";

// An empty address of the given family; the caller owns it.
IPAddressImp* newEmptyImp(ZR_Uint32 uFamily) {
    switch (uFamily) {
        case AF_V4:
            return new IPv4IPAddressImp();
        case AF_V6:
            return new IPv6IPAddressImp();
        case AF_UN:
            return new UnixIPAddressImp();
        default:
            throw std::runtime_error("Invalid address family!");
    }
}

// The family an address of a given raw size belongs to, or AF_UNKNOWN.
ZR_Uint32 familyOfRawSize(ZR_Uint32 uSize) {
    if (uSize == sizeof(in_addr)) return AF_V4;
    if (uSize == sizeof(in6_addr)) return AF_V6;
    if (uSize == UNIX_PATH_SIZE_MARKER) return AF_UN;
    return AF_UNKNOWN;
}

}  // namespace

// Linux sockets need no start-up; the hooks stay so that every object keeps announcing itself.
void InitOSNetwork() {}
void UninitOSNetwork() {}

IPAddressImp::IPAddressImp() { InitOSNetwork(); }
IPAddressImp::~IPAddressImp() { UninitOSNetwork(); }

// ---- IPv4 ----

IPv4IPAddressImp::IPv4IPAddressImp() : m_addr{} {}

IPv4IPAddressImp::IPv4IPAddressImp(const void* pAddr) : m_addr{} { IPv4IPAddressImp::SetAddress(pAddr); }

IPv4IPAddressImp* IPv4IPAddressImp::Parse(const std::string& sText) {
    if (sText.empty()) return nullptr;
    in_addr parsed{};
    if (inet_aton(sText.c_str(), &parsed) == 0) return nullptr;
    return new IPv4IPAddressImp(&parsed);
}

ZR_Uint32 IPv4IPAddressImp::Size() const { return sizeof(m_addr); }
ZR_Uint32 IPv4IPAddressImp::Scope() const { return 0; }
ZR_Uint32 IPv4IPAddressImp::Family() const { return AF_V4; }

std::string IPv4IPAddressImp::ToString() const {
    // inet_ntop prints what inet_ntoa would, without sharing a static buffer.
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &m_addr, text, sizeof text);
}

const void* IPv4IPAddressImp::Addr() const { return &m_addr; }
ZR_BOOL IPv4IPAddressImp::IsWildcard() const { return m_addr.s_addr == INADDR_ANY; }
ZR_BOOL IPv4IPAddressImp::IsBroadcast() const { return m_addr.s_addr == INADDR_BROADCAST; }
ZR_BOOL IPv4IPAddressImp::IsLoopback() const { return (ntohl(m_addr.s_addr) >> 24) == 127; }
ZR_BOOL IPv4IPAddressImp::IsMulticast() const { return (ntohl(m_addr.s_addr) >> 28) == 0xE; }

ZR_INT IPv4IPAddressImp::SetAddress(const void* pAddr) {
    std::memcpy(&m_addr, pAddr, sizeof(m_addr));
    return 0;
}

// ---- IPv6 ----

IPv6IPAddressImp::IPv6IPAddressImp() : m_addr{}, m_scope(0) {}

IPv6IPAddressImp::IPv6IPAddressImp(const void* pAddr) : m_addr{}, m_scope(0) {
    IPv6IPAddressImp::SetAddress(pAddr);
}

IPv6IPAddressImp::IPv6IPAddressImp(const void* pAddr, ZR_Uint32 uScope) : m_addr{}, m_scope(uScope) {
    IPv6IPAddressImp::SetAddress(pAddr);
}

IPv6IPAddressImp* IPv6IPAddressImp::Parse(const std::string& sText) {
    if (sText.empty()) return nullptr;
    in6_addr parsed{};
    const size_t pos = sText.find('%');
    if (pos == std::string::npos) {
        if (inet_pton(AF_INET6, sText.c_str(), &parsed) != 1) return nullptr;
        return new IPv6IPAddressImp(&parsed);
    }
    const size_t start = sText[0] == '[' ? 1 : 0;
    if (pos < start) return nullptr;
    const std::string sHost = sText.substr(start, pos - start);
    // The interface name runs to the end of the text, a closing ']' included, so a bracketed address
    // with a scope never names a real interface.
    const std::string sInterface = sText.substr(pos + 1);
    const ZR_Uint32 uScope = if_nametoindex(sInterface.c_str());
    if (uScope == 0 || inet_pton(AF_INET6, sHost.c_str(), &parsed) != 1) return nullptr;
    return new IPv6IPAddressImp(&parsed, uScope);
}

ZR_Uint32 IPv6IPAddressImp::Size() const { return sizeof(m_addr); }
ZR_Uint32 IPv6IPAddressImp::Scope() const { return m_scope; }
ZR_Uint32 IPv6IPAddressImp::Family() const { return AF_V6; }
std::string IPv6IPAddressImp::ToString() const { return IPV6_TEXT; }
const void* IPv6IPAddressImp::Addr() const { return &m_addr; }

ZR_BOOL IPv6IPAddressImp::IsWildcard() const {
    static const in6_addr zero{};
    return std::memcmp(&m_addr, &zero, sizeof(m_addr)) == 0;
}

ZR_BOOL IPv6IPAddressImp::IsBroadcast() const { return 0; }

ZR_BOOL IPv6IPAddressImp::IsLoopback() const {
    static const in6_addr loopback = IN6ADDR_LOOPBACK_INIT;
    return std::memcmp(&m_addr, &loopback, sizeof(m_addr)) == 0;
}

ZR_BOOL IPv6IPAddressImp::IsMulticast() const {
    const ZR_Uint16 uFirstWord = static_cast<ZR_Uint16>((m_addr.s6_addr[0] << 8) | m_addr.s6_addr[1]);
    return (uFirstWord & 0xFFE0) == 0xFF00;
}

ZR_INT IPv6IPAddressImp::SetAddress(const void* pAddr) {
    std::memcpy(&m_addr, pAddr, sizeof(m_addr));
    return 0;
}

// ---- Unix ----

UnixIPAddressImp::UnixIPAddressImp() : m_addr{} {}

UnixIPAddressImp::UnixIPAddressImp(const std::string& sPath) : m_addr{} {
    UnixIPAddressImp::SetAddress(sPath.c_str());
}

ZR_Uint32 UnixIPAddressImp::Size() const { return PATH_CAPACITY; }
ZR_Uint32 UnixIPAddressImp::Scope() const { return 0; }
ZR_Uint32 UnixIPAddressImp::Family() const { return AF_UN; }

std::string UnixIPAddressImp::ToString() const { return std::string(m_addr, strnlen(m_addr, PATH_CAPACITY)); }

const void* UnixIPAddressImp::Addr() const { return m_addr; }
ZR_BOOL UnixIPAddressImp::IsWildcard() const { return 0; }
ZR_BOOL UnixIPAddressImp::IsBroadcast() const { return 0; }
ZR_BOOL UnixIPAddressImp::IsLoopback() const { return 0; }
ZR_BOOL UnixIPAddressImp::IsMulticast() const { return 0; }

ZR_INT UnixIPAddressImp::SetAddress(const void* pAddr) {
    // Never reads past 108 characters: the source may itself be a full, unterminated path buffer.
    const char* pszPath = static_cast<const char*>(pAddr);
    const size_t uLength = strnlen(pszPath, PATH_CAPACITY);
    std::memcpy(m_addr, pszPath, uLength);
    std::memset(m_addr + uLength, 0, PATH_CAPACITY - uLength);
    return 0;
}

// ---- IPAddress ----

IPAddress::IPAddress() : m_imp(new IPv4IPAddressImp()) {}

IPAddress::IPAddress(ZR_Uint32 uFamily) : m_imp(newEmptyImp(uFamily)) {}

IPAddress::IPAddress(const IPAddress& other) : m_imp(nullptr) {
    std::unique_ptr<IPAddressImp> imp(newEmptyImp(other.Family()));
    imp->SetAddress(other.Addr());
    m_imp = imp.release();
}

IPAddress::IPAddress(const std::string& sAddr, ZR_BOOL bIsUnix) : m_imp(nullptr) {
    if (bIsUnix != 0) {
        m_imp = new UnixIPAddressImp(sAddr);
        return;
    }
    m_imp = IPv4IPAddressImp::Parse(sAddr);
    if (m_imp == nullptr) m_imp = IPv6IPAddressImp::Parse(sAddr);
    if (m_imp == nullptr) throw std::runtime_error("Invalid address format!");
}

IPAddress::IPAddress(const char* pszAddr, ZR_BOOL bIsUnix) : IPAddress(std::string(pszAddr), bIsUnix) {}

IPAddress::IPAddress(const void* pAddr, ZR_Uint32 uSize) : m_imp(nullptr) {
    const ZR_Uint32 uFamily = familyOfRawSize(uSize);
    if (uFamily == AF_UNKNOWN) throw std::runtime_error("Invalid address size!");
    std::unique_ptr<IPAddressImp> imp(newEmptyImp(uFamily));
    imp->SetAddress(pAddr);
    m_imp = imp.release();
}

IPAddress::IPAddress(const void* pAddr, ZR_Uint32 uSize, ZR_Uint32 uScope) : m_imp(nullptr) {
    std::unique_ptr<IPAddressImp> imp(new IPv6IPAddressImp(pAddr, uScope));
    if (uSize != imp->Size()) throw std::runtime_error("Invalid address size!");
    m_imp = imp.release();
}

IPAddress::~IPAddress() {
    delete m_imp;
    m_imp = nullptr;
}

IPAddress& IPAddress::operator=(const IPAddress& other) {
    IPAddress copy(other);
    Swap(copy);
    return *this;
}

void IPAddress::Swap(IPAddress& other) { std::swap(m_imp, other.m_imp); }

ZR_INT IPAddress::SetAddress(const std::string& sText) {
    std::unique_ptr<IPAddressImp> parsed;
    switch (Family()) {
        case AF_V4:
            parsed.reset(IPv4IPAddressImp::Parse(sText));
            break;
        case AF_V6:
            parsed.reset(IPv6IPAddressImp::Parse(sText));
            break;
        case AF_UN:
            parsed.reset(new UnixIPAddressImp(sText));
            break;
        default:
            return -1;
    }
    if (!parsed) return -1;
    return m_imp->SetAddress(parsed->Addr());
}

ZR_INT IPAddress::SetAddress(const void* pAddr, ZR_Uint32 uSize) {
    if (uSize != Size()) return -1;
    return m_imp->SetAddress(pAddr);
}

ZR_Uint32 IPAddress::Size() const { return m_imp->Size(); }
ZR_Uint32 IPAddress::Scope() const { return m_imp->Scope(); }
ZR_Uint32 IPAddress::Family() const { return m_imp->Family(); }
std::string IPAddress::ToString() const { return m_imp->ToString(); }
const void* IPAddress::Addr() const { return m_imp->Addr(); }
ZR_BOOL IPAddress::IsWildcard() const { return m_imp->IsWildcard(); }
ZR_BOOL IPAddress::IsBroadcast() const { return m_imp->IsBroadcast(); }
ZR_BOOL IPAddress::IsLoopback() const { return m_imp->IsLoopback(); }
ZR_BOOL IPAddress::IsMulticast() const { return m_imp->IsMulticast(); }

ZR_BOOL IPAddress::IsUnicast() const {
    if (Family() == AF_UN) return 0;
    return !IsWildcard() && !IsBroadcast() && !IsMulticast();
}

bool IPAddress::operator==(const IPAddress& other) const {
    return Family() == other.Family() && ToString() == other.ToString();
}

bool IPAddress::operator!=(const IPAddress& other) const { return !(*this == other); }

bool IPAddress::operator<(const IPAddress& other) const {
    if (Size() != other.Size()) return Size() < other.Size();
    // std::string compares its bytes as unsigned characters, like memcmp.
    return ToString() < other.ToString();
}

bool IPAddress::operator<=(const IPAddress& other) const { return *this < other || *this == other; }
bool IPAddress::operator>(const IPAddress& other) const { return !(*this <= other); }
bool IPAddress::operator>=(const IPAddress& other) const { return !(*this < other); }

}  // namespace zor
