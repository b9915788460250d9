#include "UDPSocket.h"

#include <sys/socket.h>

#include <stdexcept>

namespace zor {

namespace {

int domainForType(ZR_Uint32 uType) {
    if (uType == 0) return AF_INET;
    if (uType == 3) return AF_UNIX;
    return -1;
}

}  // namespace

UDPSocket::UDPSocket(ZR_Uint32 uType) : Socket(uType), m_raddr() {
    openDescriptor(domainForType(uType), SOCK_DGRAM);
}

UDPSocket::UDPSocket(const Socket& other) : Socket(other), m_raddr() {
    if (m_type != 0 && m_type != 3) throw std::runtime_error("invalid socket type!");
    ensureDescriptor(SOCK_DGRAM);
}

UDPSocket::~UDPSocket() {}

ZR_INT UDPSocket::Bind(const SockAddress& addr) {
    if (addr.Family() == AF_UN) m_type = 3;
    return ::bind(m_sock, addr.Addr(), addr.Size());
}

ZR_INT UDPSocket::Connect(const SockAddress& addr) {
    if (::connect(m_sock, addr.Addr(), addr.Size()) != 0) return -1;
    m_connected = 1;
    m_raddr = addr;
    return 0;
}

ZR_INT UDPSocket::RecvBytes(ZR_BYTE* pBuf, ZR_Uint32 uLen) {
    sockaddr_storage source{};  // 128 bytes, a full record of any family
    socklen_t uSourceLen = sizeof(source);
    const ZR_INT iRead = static_cast<ZR_INT>(
        ::recvfrom(m_sock, pBuf, uLen, 0, reinterpret_cast<sockaddr*>(&source), &uSourceLen));
    if (iRead < 1) return iRead;
    SockAddress sender(reinterpret_cast<const sockaddr*>(&source), uSourceLen);
    m_raddr.Swap(sender);
    return iRead;
}

ZR_INT UDPSocket::SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen) { return SendBytes(pBuf, uLen, m_raddr); }

ZR_INT UDPSocket::SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen, const SockAddress& to) {
    return static_cast<ZR_INT>(::sendto(m_sock, pBuf, uLen, 0, to.Addr(), to.Size()));
}

SockAddress UDPSocket::PeerAddress() const { return m_raddr; }

ZR_INT UDPSocket::SetBroadcast(ZR_BOOL bOn) { return setFlag(SOL_SOCKET, SO_BROADCAST, bOn); }
ZR_BOOL UDPSocket::GetBroadcast() const { return getFlag(SOL_SOCKET, SO_BROADCAST); }

}  // namespace zor
