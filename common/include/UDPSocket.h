/// @file
/// UDPSocket, a datagram socket that remembers its current peer.
#ifndef ZOR_UDPSOCKET_H_
#define ZOR_UDPSOCKET_H_

#include "Socket.h"

namespace zor {

/// A datagram socket over IPv4 (type 0) or a Unix-domain path (type 3) that remembers its current peer:
/// the address of the last successful Connect() or of the sender of the last datagram received.
///
/// The unaddressed SendBytes() goes to that peer, so a server answers whoever spoke last simply by
/// calling RecvBytes() then SendBytes(). Before either, the peer is 0.0.0.0:0. Copies share the
/// descriptor (see Socket); a copy made from a plain Socket starts with that default peer.
///
/// Results are those of the system calls (count or -1 with errno). RecvBytes() throws SockAddress's
/// "Invalid address family or length!" when a datagram arrives from an address of unknown family, for
/// example from an unbound Unix-domain sender; the datagram is consumed. No locking: one object per
/// thread.
///
/// @code
///   zor::UDPSocket server(0);
///   server.Bind(zor::SockAddress(5300));
///   ZR_BYTE buf[1500];
///   const ZR_INT n = server.RecvBytes(buf, sizeof buf);
///   if (n > 0) server.SendBytes(buf, n);  // echo to the sender
/// @endcode
class UDPSocket : public Socket {
public:
    /// Type 0 opens an IPv4 datagram socket, type 3 a Unix-domain one; any other type opens nothing and
    /// throws "create socket failed!", as does a failing socket() call.
    explicit UDPSocket(ZR_Uint32 uType);
    /// Shares other's descriptor. Throws "invalid socket type!" unless other's type is 0 or 3. When
    /// other has no descriptor, opens a new IPv4 datagram socket (for type 3 too) or throws
    /// "create socket failed!".
    UDPSocket(const Socket& other);
    /// Drops this holder; the last holder closes the descriptor.
    ~UDPSocket() override;

    /// bind(); 0 or -1 with errno. A Unix address turns the socket into type 3 before binding, whether or
    /// not the bind succeeds.
    ZR_INT Bind(const SockAddress& addr) override;
    /// connect(); 0 or -1 with errno. On success the peer becomes addr.
    ZR_INT Connect(const SockAddress& addr) override;
    /// recvfrom(): the count or -1 with errno. On a datagram the peer becomes its sender.
    ZR_INT RecvBytes(ZR_BYTE* pBuf, ZR_Uint32 uLen) override;
    /// sendto() the current peer: the count or -1 with errno.
    ZR_INT SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen) override;
    /// sendto() `to`: the count or -1 with errno; the current peer stays.
    ZR_INT SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen, const SockAddress& to) override;
    /// The current peer; no system call.
    SockAddress PeerAddress() const override;

    ZR_INT SetBroadcast(ZR_BOOL bOn);  ///< Sets SO_BROADCAST on or off. 0 or -1.
    ZR_BOOL GetBroadcast() const;      ///< 1 when SO_BROADCAST is on.

protected:
    SockAddress m_raddr;  ///< The current peer.
};

}  // namespace zor

#endif  // ZOR_UDPSOCKET_H_
