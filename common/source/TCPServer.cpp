#include "TCPServer.h"

#include <sys/socket.h>

#include <memory>
#include <stdexcept>

#include "ErrorCode.h"

namespace zor {

namespace {

ZR_Uint32 checkedServerType(ZR_Uint32 uType) {
    if (uType != 2 && uType != 5) throw std::runtime_error("invalid socket type!");
    return uType;
}

}  // namespace

TCPServer::TCPServer(ZR_Uint32 uType) : Socket(checkedServerType(uType)) {
    openDescriptor(uType == 2 ? AF_INET : AF_UNIX, SOCK_STREAM);
}

TCPServer::~TCPServer() {}

ZR_INT TCPServer::Bind(const SockAddress& addr) {
    if (m_type == 5 && addr.Family() != AF_UN) return -1;
    return ::bind(m_sock, addr.Addr(), addr.Size());
}

ZR_INT TCPServer::Listen(ZR_Uint32 uBacklog) { return ::listen(m_sock, static_cast<int>(uBacklog)); }

TCPSocket* TCPServer::Accept(SockAddress& peer) {
    sockaddr_storage source{};
    socklen_t uSourceLen = sizeof(source);
    const ZR_SOCKET iFd = ::accept(m_sock, reinterpret_cast<sockaddr*>(&source), &uSourceLen);
    if (iFd == -1) return nullptr;
    // Every accepted connection is reported as type 1, whatever the listener's family.
    std::unique_ptr<TCPSocket> conn(new TCPSocket(iFd, 1));
    conn->m_blocking = m_blocking;
    conn->m_connected = 1;
    peer = conn->PeerAddress();
    return conn.release();
}

ZR_INT TCPServer::Connect(const SockAddress&) { return E_UNSUPPORT; }
ZR_INT TCPServer::RecvBytes(ZR_BYTE*, ZR_Uint32) { return E_UNSUPPORT; }
ZR_INT TCPServer::SendBytes(const ZR_BYTE*, ZR_Uint32) { return E_UNSUPPORT; }
ZR_INT TCPServer::SendBytes(const ZR_BYTE*, ZR_Uint32, const SockAddress&) { return E_UNSUPPORT; }

}  // namespace zor
