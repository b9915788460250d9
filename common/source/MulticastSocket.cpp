#include "MulticastSocket.h"

#include <arpa/inet.h>

namespace zor {

namespace {

std::string dottedText(const in_addr& addr) {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &addr, text, sizeof text);
}

}  // namespace

MulticastSocket::MulticastSocket() : UDPSocket(0) {}

MulticastSocket::MulticastSocket(const Socket& other) : UDPSocket(other) {}

MulticastSocket::~MulticastSocket() {}

ZR_INT MulticastSocket::Join2MCGroup(const std::string& sGroup, const std::string& sInterface) {
    ip_mreq request{};
    request.imr_multiaddr.s_addr = inet_addr(sGroup.c_str());
    request.imr_interface.s_addr = sInterface.empty() ? htonl(INADDR_ANY) : inet_addr(sInterface.c_str());
    return setOption(IPPROTO_IP, IP_ADD_MEMBERSHIP, request);
}

ZR_INT MulticastSocket::LeaveFromMCGroup(const std::string& sGroup) {
    ip_mreq request{};
    request.imr_multiaddr.s_addr = inet_addr(sGroup.c_str());
    request.imr_interface.s_addr = htonl(INADDR_ANY);
    return setOption(IPPROTO_IP, IP_DROP_MEMBERSHIP, request);
}

std::string MulticastSocket::GetMulticastAddr() const {
    ip_mreq request{};
    if (getOption(IPPROTO_IP, IP_DROP_MEMBERSHIP, request) != 0) return "";
    return dottedText(request.imr_multiaddr);
}

ZR_INT MulticastSocket::SetMulticastLoop(ZR_BOOL bOn) {
    return setOption(IPPROTO_IP, IP_MULTICAST_LOOP, static_cast<unsigned char>(bOn != 0 ? 1 : 0));
}

ZR_BOOL MulticastSocket::GetMulticastLoop() const {
    unsigned char ucValue = 0;
    return getOption(IPPROTO_IP, IP_MULTICAST_LOOP, ucValue) == 0 && ucValue != 0;
}

ZR_INT MulticastSocket::SetMulticastTTL(ZR_Uint8 uTtl) {
    return setOption(IPPROTO_IP, IP_MULTICAST_TTL, static_cast<unsigned char>(uTtl));
}

ZR_Uint8 MulticastSocket::GetMulticastTTL() const {
    unsigned char ucValue = 0;
    return getOption(IPPROTO_IP, IP_MULTICAST_TTL, ucValue) == 0 ? ucValue : 0;
}

ZR_INT MulticastSocket::SetMulticastIF(const std::string& sAddr) {
    in_addr iface{};
    if (inet_aton(sAddr.c_str(), &iface) == 0) return -1;
    return setOption(IPPROTO_IP, IP_MULTICAST_IF, iface);
}

std::string MulticastSocket::GetMulticastIF() const {
    in_addr iface{};
    if (getOption(IPPROTO_IP, IP_MULTICAST_IF, iface) != 0) return "";
    return dottedText(iface);
}

}  // namespace zor
