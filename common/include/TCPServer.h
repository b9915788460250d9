/// @file
/// TCPServer, a listening stream socket.
#ifndef ZOR_TCPSERVER_H_
#define ZOR_TCPSERVER_H_

#include "TCPSocket.h"

namespace zor {

/// A listening stream socket on IPv4 (type 2) or a Unix-domain path (type 5).
///
/// Accept() hands out each new connection as a TCPSocket of type 1 (also for a Unix-domain server) that
/// the caller owns and deletes. The listener itself neither sends nor receives: those operations return
/// E_UNSUPPORT. Copies share the descriptor (see Socket); a server cannot be made from another kind of
/// socket. Results are 0 or -1 with errno. No locking: one object per thread.
///
/// @code
///   zor::TCPServer server(2);
///   server.SetReuseAddress(1);
///   server.Bind(zor::SockAddress("127.0.0.1", 7000));
///   server.Listen(16);
///   zor::SockAddress peer;
///   std::unique_ptr<zor::TCPSocket> conn(server.Accept(peer));
/// @endcode
class TCPServer : public Socket {
public:
    /// Throws "invalid socket type!" for a type other than 2 or 5 (before opening anything) and
    /// "create socket failed!" when socket() fails.
    explicit TCPServer(ZR_Uint32 uType);
    TCPServer(const Socket& other) = delete;             ///< Not made from another socket.
    TCPServer& operator=(const Socket& other) = delete;  ///< Not assigned from another socket.
    ~TCPServer() override;  ///< Drops this holder; the last holder closes the descriptor.

    /// bind(); 0 or -1 with errno. A Unix-domain server (type 5) refuses a non-Unix address with -1 without
    /// calling bind().
    ZR_INT Bind(const SockAddress& addr) override;
    /// listen() with a queue of uBacklog pending connections; 0 or -1 with errno.
    ZR_INT Listen(ZR_Uint32 uBacklog);
    /// Waits for a connection (unless the listener is non-blocking). Returns a new connected TCPSocket of
    /// type 1 carrying this server's blocking flag (the new descriptor's own mode is the system's
    /// default), and sets peer to its getpeername() address; the caller deletes the socket. Returns
    /// nullptr with errno set, and peer untouched, when accept() fails.
    TCPSocket* Accept(SockAddress& peer);

    /// @name Not supported
    /// A listener does not carry data: each returns E_UNSUPPORT.
    ///@{
    ZR_INT Connect(const SockAddress& addr) override;                ///< Not supported: E_UNSUPPORT.
    ZR_INT RecvBytes(ZR_BYTE* pBuf, ZR_Uint32 uLen) override;        ///< Not supported: E_UNSUPPORT.
    ZR_INT SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen) override;  ///< Not supported: E_UNSUPPORT.
    /// Not supported: E_UNSUPPORT.
    ZR_INT SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen, const SockAddress& to) override;
    ///@}
};

}  // namespace zor

#endif  // ZOR_TCPSERVER_H_
