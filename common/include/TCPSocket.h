/// @file
/// TCPSocket, a connected stream socket.
#ifndef ZOR_TCPSOCKET_H_
#define ZOR_TCPSOCKET_H_

#include "Socket.h"

namespace zor {

class TCPServer;

/// A connected stream socket over IPv4 (type 1) or a Unix-domain path (type 4), as made by Connect() on
/// a new socket or handed out by TCPServer::Accept().
///
/// Copies share the descriptor (see Socket). Send and receive return the system call's result unchanged:
/// a byte count, 0 at the end of the stream, or -1 with errno; a partial send is the caller's to finish.
/// Unaddressed sockets cannot send to an address: that form returns E_UNSUPPORT. Sends use no flags, so
/// sending on a connection the peer has closed raises SIGPIPE: a server ignores that signal once at
/// start-up. No locking: one object per thread.
///
/// @code
///   zor::TCPSocket conn(1);
///   conn.SetNoDelay(1);
///   if (conn.Connect(zor::SockAddress("127.0.0.1", 7000)) == 0) conn.SendBytes(data, size);
/// @endcode
class TCPSocket : public Socket {
public:
    /// Type 1 opens an IPv4 stream socket, type 4 a Unix-domain one. Any other type opens nothing and
    /// throws "create socket failed!", as does a failing socket() call.
    explicit TCPSocket(ZR_Uint32 uType);
    /// Takes over an open descriptor (as accept() returns it); never throws. The object now owns iFd.
    TCPSocket(ZR_SOCKET iFd, ZR_Uint32 uType);
    /// Shares other's descriptor. Throws "invalid socket type!" unless other's type is 1 or 4. When
    /// other has no descriptor, opens a new IPv4 stream socket (for type 4 too) or throws
    /// "create socket failed!".
    TCPSocket(const Socket& other);
    /// Drops this holder; the last holder closes the descriptor.
    ~TCPSocket() override;

    /// bind(); 0 or -1 with errno.
    ZR_INT Bind(const SockAddress& addr) override;
    /// connect(); 0 (now connected) or -1 with errno.
    ZR_INT Connect(const SockAddress& addr) override;
    /// recv() without flags: the count, 0 at the end of the stream, or -1 with errno.
    ZR_INT RecvBytes(ZR_BYTE* pBuf, ZR_Uint32 uLen) override;
    /// send() without flags: the count sent (possibly short) or -1 with errno.
    ZR_INT SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen) override;
    /// Not supported on a stream: returns E_UNSUPPORT.
    ZR_INT SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen, const SockAddress& to) override;

    /// Sets SO_LINGER: on/off and the time in seconds. 0 or -1.
    ZR_INT SetLinger(ZR_BOOL bOn, ZR_Uint32 uSeconds);
    /// Reads SO_LINGER into its outputs, which stay alone on failure. 0 or -1.
    ZR_INT GetLinger(ZR_BOOL& bOn, ZR_Uint32& uSeconds) const;
    ZR_INT SetNoDelay(ZR_BOOL bOn);    ///< Sets TCP_NODELAY on or off. 0 or -1.
    ZR_BOOL GetNoDelay() const;        ///< 1 when TCP_NODELAY is on.
    ZR_INT SetKeepAlive(ZR_BOOL bOn);  ///< Sets SO_KEEPALIVE on or off. 0 or -1.
    ZR_BOOL GetKeepAlive() const;      ///< 1 when SO_KEEPALIVE is on.
    /// Sends one byte out of band (MSG_OOB); the result of send().
    ZR_INT SendUrgent(ZR_BYTE byte);

private:
    friend class TCPServer;  ///< Accept() hands its blocking mode and connection state to the new socket
};

}  // namespace zor

#endif  // ZOR_TCPSOCKET_H_
