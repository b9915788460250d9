#include "TCPSocket.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <stdexcept>

#include "ErrorCode.h"

namespace zor {

namespace {

int domainForType(ZR_Uint32 uType) {
    if (uType == 1) return AF_INET;
    if (uType == 4) return AF_UNIX;
    return -1;
}

}  // namespace

TCPSocket::TCPSocket(ZR_Uint32 uType) : Socket(uType) { openDescriptor(domainForType(uType), SOCK_STREAM); }

TCPSocket::TCPSocket(ZR_SOCKET iFd, ZR_Uint32 uType) : Socket(uType) {
    m_sock = iFd;
    initfd();
}

TCPSocket::TCPSocket(const Socket& other) : Socket(other) {
    if (m_type != 1 && m_type != 4) throw std::runtime_error("invalid socket type!");
    ensureDescriptor(SOCK_STREAM);
}

TCPSocket::~TCPSocket() {}

ZR_INT TCPSocket::Bind(const SockAddress& addr) { return ::bind(m_sock, addr.Addr(), addr.Size()); }

ZR_INT TCPSocket::Connect(const SockAddress& addr) {
    if (::connect(m_sock, addr.Addr(), addr.Size()) != 0) return -1;
    m_connected = 1;
    return 0;
}

// Linux moves at most INT_MAX bytes per call, so the count always fits the result.
ZR_INT TCPSocket::RecvBytes(ZR_BYTE* pBuf, ZR_Uint32 uLen) {
    return static_cast<ZR_INT>(::recv(m_sock, pBuf, uLen, 0));
}

ZR_INT TCPSocket::SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen) {
    return static_cast<ZR_INT>(::send(m_sock, pBuf, uLen, 0));
}

ZR_INT TCPSocket::SendBytes(const ZR_BYTE*, ZR_Uint32, const SockAddress&) { return E_UNSUPPORT; }

ZR_INT TCPSocket::SetLinger(ZR_BOOL bOn, ZR_Uint32 uSeconds) {
    const linger value{bOn != 0 ? 1 : 0, static_cast<int>(uSeconds)};
    return setRawOption(SOL_SOCKET, SO_LINGER, &value, sizeof(value));
}

ZR_INT TCPSocket::GetLinger(ZR_BOOL& bOn, ZR_Uint32& uSeconds) const {
    linger value{};
    ZR_SOCKLEN uLen = sizeof(value);
    if (getRawOption(SOL_SOCKET, SO_LINGER, &value, uLen) != 0) return -1;
    bOn = value.l_onoff != 0;
    uSeconds = static_cast<ZR_Uint32>(value.l_linger);
    return 0;
}

ZR_INT TCPSocket::SetNoDelay(ZR_BOOL bOn) { return setFlag(IPPROTO_TCP, TCP_NODELAY, bOn); }
ZR_BOOL TCPSocket::GetNoDelay() const { return getFlag(IPPROTO_TCP, TCP_NODELAY); }
ZR_INT TCPSocket::SetKeepAlive(ZR_BOOL bOn) { return setFlag(SOL_SOCKET, SO_KEEPALIVE, bOn); }
ZR_BOOL TCPSocket::GetKeepAlive() const { return getFlag(SOL_SOCKET, SO_KEEPALIVE); }

ZR_INT TCPSocket::SendUrgent(ZR_BYTE byte) { return static_cast<ZR_INT>(::send(m_sock, &byte, 1, MSG_OOB)); }

}  // namespace zor
