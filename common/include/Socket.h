/// @file
/// Socket, the abstract base of the library's sockets, and SockList.
#ifndef ZOR_SOCKET_H_
#define ZOR_SOCKET_H_

#include <netinet/in.h>
#include <poll.h>

#include <vector>

#include "BaseTypes.h"
#include "RefCounter.h"
#include "SockAddress.h"

namespace zor {

class Socket;

/// A list of sockets for Socket::SelectList(); it does not own them.
typedef std::vector<Socket*> SockList;

/// The abstract base of the library's sockets (TCPSocket, UDPSocket, TCPServer, MulticastSocket).
///
/// It holds one descriptor that all copies of the object share through a RefCounter: copying or
/// assigning adds a holder, destroying or being assigned over removes one, and the holder that removes
/// the last one closes the descriptor. Socket never opens a descriptor itself; the derived constructors
/// do, by type:
///
/// | Type | Kind            | Type | Kind           |
/// |------|-----------------|------|----------------|
/// | 0    | IPv4 datagram   | 3    | Unix datagram  |
/// | 1    | IPv4 stream     | 4    | Unix stream    |
/// | 2    | IPv4 listener   | 5    | Unix listener  |
///
/// Close() closes the shared descriptor at once but resets only the calling object: other copies keep
/// the old number and still report IsValid(). The shared counter remembers the close, so neither those
/// copies' Close() nor the last one's destruction closes that number again: by then the process may
/// have given it to another file or socket.
///
/// Waits (timeouts in microseconds) come in two kinds on purpose: SelectForRead(), Select() and
/// SelectList() use poll() with us / 1000 milliseconds, so values under 1000 only check and 0xFFFFFFFF
/// gives up after 4294967 ms; SelectForWrite() and SelectForError() use select(), honour microseconds
/// and wait without limit for 0xFFFFFFFF. select() cannot watch a descriptor of FD_SETSIZE (1024) or
/// above, nor -1: those two waits then return -1 with errno EBADF instead of overrunning the set.
///
/// Errors: nothing is thrown or logged by Socket itself except that LocalAddress()/PeerAddress() pass on
/// SockAddress's "Invalid address family or length!". Operations return 0 or a count on success and -1
/// on failure with the cause in errno (LastError()). No call is retried on EINTR: an interrupted wait,
/// send, receive, connect or accept returns -1 with errno EINTR and the caller decides whether to go on;
/// close() is never retried because Linux releases the descriptor even when it reports EINTR.
///
/// Threads: only the shared use count is locked, so copies may be made and dropped in different
/// threads; everything else belongs to one object used by one thread at a time.
///
/// @code
///   zor::TCPSocket conn(1);
///   if (conn.Connect(zor::SockAddress("127.0.0.1", 8080)) == 0 && conn.SelectForRead(5000000) > 0) {
///       conn.RecvBytes(buffer, sizeof buffer);
///   }
/// @endcode
class Socket {
public:
    /// No descriptor yet (-1), blocking mode 1, a fresh counter holding this object.
    explicit Socket(ZR_Uint32 uType);
    /// Shares other's descriptor and counter.
    Socket(const Socket& other);
    /// Leaves the current descriptor (closing it when this was its last holder), then shares other's.
    /// Assigning a socket to itself or to a copy of itself changes nothing.
    Socket& operator=(const Socket& other);
    /// Drops this holder; the last holder closes the descriptor.
    virtual ~Socket();

    /// Binds the descriptor to addr (bind()). 0 or -1 with errno.
    virtual ZR_INT Bind(const SockAddress& addr) = 0;
    /// Connects the descriptor to addr (connect()). 0 or -1 with errno.
    virtual ZR_INT Connect(const SockAddress& addr) = 0;
    /// Receives at most uLen bytes into pBuf: the count, 0 at the end of a stream, or -1 with errno.
    virtual ZR_INT RecvBytes(ZR_BYTE* pBuf, ZR_Uint32 uLen) = 0;
    /// Sends uLen bytes from pBuf to the connected peer: the count sent or -1 with errno.
    virtual ZR_INT SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen) = 0;
    /// Sends uLen bytes from pBuf to the address to: the count sent or -1 with errno.
    virtual ZR_INT SendBytes(const ZR_BYTE* pBuf, ZR_Uint32 uLen, const SockAddress& to) = 0;
    /// The bound address (getsockname), or 0.0.0.0:0 without a descriptor or when the call fails.
    virtual SockAddress LocalAddress() const;
    /// The connected peer (getpeername), or 0.0.0.0:0 without a descriptor or when the call fails.
    virtual SockAddress PeerAddress() const;

    /// Closes the descriptor for every holder but resets only this object (see the class description).
    void Close();

    ZR_BOOL IsValid() const;       ///< 1 when this object has a descriptor.
    ZR_SOCKET Descriptor() const;  ///< The descriptor, -1 for none.
    ZR_Uint32 Type() const;        ///< The type code (see the class description).
    ZR_BOOL GetBlocking() const;   ///< The mode last set through SetBlocking(), initially 1.
    /// The poll record of the poll-based waits: the descriptor, POLLIN and the events last returned.
    pollfd& Pollfd();
    /// The poll record, read-only.
    const pollfd& Pollfd() const;
    /// The calling thread's errno; it does not depend on the object.
    ZR_INT LastError() const;
    /// A state word for derived classes and their users; 0 until set.
    ZR_Uint32 State() const;

    /// Clears O_NONBLOCK for a non-zero bBlocking, sets it otherwise. Tries even without a descriptor.
    ZR_INT SetBlocking(ZR_BOOL bBlocking);
    /// @name Socket options
    /// Setters return 0 or -1; every option call returns -1 at once (errno untouched) when the socket has
    /// no descriptor. The size getters return 0xFFFFFFFF on failure, the flag getters 1 only when the
    /// query succeeds and the flag is set.
    ///@{
    ZR_INT SetSendBuffSize(ZR_Uint32 uSize);  ///< Sets SO_SNDBUF.
    ZR_Uint32 GetSendBuffSize() const;        ///< SO_SNDBUF, or 0xFFFFFFFF.
    ZR_INT SetRecvBuffSize(ZR_Uint32 uSize);  ///< Sets SO_RCVBUF.
    ZR_Uint32 GetRecvBuffSize() const;        ///< SO_RCVBUF, or 0xFFFFFFFF.
    ZR_INT SetReuseAddress(ZR_BOOL bReuse);   ///< Sets SO_REUSEADDR on or off.
    ZR_BOOL GetReuseAddress() const;          ///< 1 when SO_REUSEADDR is on.
    ZR_INT SetReusePort(ZR_BOOL bReuse);      ///< Sets SO_REUSEPORT on or off.
    ZR_BOOL GetReusePort() const;             ///< 1 when SO_REUSEPORT is on.
    ///@}
    /// Bytes waiting to be read (FIONREAD), or -1. Tries even without a descriptor.
    ZR_INT Available() const;

    /// poll() for readability; returns 1, 0 on timeout or -1, and stores the returned events in Pollfd().
    ZR_INT SelectForRead(ZR_Uint32 uMicroseconds);
    /// The same wait as SelectForRead(); the three flags are left as they are, read Pollfd().revents.
    ZR_INT Select(ZR_Uint32 uMicroseconds, ZR_BOOL& bRead, ZR_BOOL& bWrite, ZR_BOOL& bError);
    /// select() for writability; returns select()'s result (1, 0 on timeout, or -1).
    ZR_INT SelectForWrite(ZR_Uint32 uMicroseconds) const;
    /// select() for exceptional conditions; returns select()'s result (1, 0 on timeout, or -1).
    ZR_INT SelectForError(ZR_Uint32 uMicroseconds) const;
    /// Polls the sockets of readList for the events each one's Pollfd() requests. On a result above 0,
    /// readList keeps only the readable sockets, in order, and sockets reporting POLLOUT / POLLERR are
    /// appended to writeList / exceptList (which are never cleared here). On 0 or -1 all three lists stay
    /// as they were. An empty readList simply sleeps for the timeout.
    static ZR_INT SelectList(SockList& readList, SockList& writeList, SockList& exceptList,
                             ZR_Uint32 uMicroseconds);

    /// @name Comparisons
    /// Sockets compare by descriptor number.
    ///@{
    bool operator==(const Socket& other) const;  ///< Same descriptor number.
    bool operator!=(const Socket& other) const;  ///< Different descriptor numbers.
    bool operator<(const Socket& other) const;   ///< Smaller descriptor number.
    bool operator<=(const Socket& other) const;  ///< Descriptor number not greater.
    bool operator>(const Socket& other) const;   ///< Greater descriptor number.
    bool operator>=(const Socket& other) const;  ///< Descriptor number not smaller.
    ///@}

protected:
    /// Points the poll record at the current descriptor, asking for POLLIN.
    void initfd();
    /// Sets the word State() returns.
    void setState(ZR_Uint32 uState);
    /// For the derived constructors: opens a descriptor of iDomain and iKind (iDomain -1 opens none),
    /// points the poll record at it and throws "create socket failed!" when there is no descriptor.
    void openDescriptor(int iDomain, int iKind);
    /// For the constructors that copy another socket: when the shared descriptor is gone, opens a new
    /// IPv4 descriptor of iKind on a counter of this object's own, so that it cannot outlive its holders
    /// unclosed. Throws "create socket failed!".
    void ensureDescriptor(int iKind);

    /// setsockopt() of uLen bytes at pValue; -1 at once without a descriptor, else its result.
    ZR_INT setRawOption(int iLevel, int iName, const void* pValue, ZR_SOCKLEN uLen);
    /// getsockopt() into at most uLen bytes at pValue (uLen becomes the size written); -1 at once without
    /// a descriptor, else its result.
    ZR_INT getRawOption(int iLevel, int iName, void* pValue, ZR_SOCKLEN& uLen) const;
    ZR_INT setOption(int iLevel, int iName, int iValue);             ///< setRawOption() of an int.
    ZR_INT setOption(int iLevel, int iName, unsigned int uValue);    ///< setRawOption() of an unsigned int.
    ZR_INT setOption(int iLevel, int iName, unsigned char ucValue);  ///< setRawOption() of one byte.
    ZR_INT setOption(int iLevel, int iName, const ip_mreq& value);   ///< setRawOption() of an ip_mreq.
    ZR_INT setOption(int iLevel, int iName, const in_addr& value);   ///< setRawOption() of an in_addr.
    ZR_INT getOption(int iLevel, int iName, int& iValue) const;      ///< getRawOption() of an int.
    ZR_INT getOption(int iLevel, int iName, unsigned int& uValue) const;  ///< getRawOption() of an unsigned.
    ZR_INT getOption(int iLevel, int iName, unsigned char& ucValue) const;  ///< getRawOption() of one byte.
    ZR_INT getOption(int iLevel, int iName, ip_mreq& value) const;          ///< getRawOption() of an ip_mreq.
    ZR_INT getOption(int iLevel, int iName, in_addr& value) const;          ///< getRawOption() of an in_addr.
    /// Sets an int-sized on/off option, writing 1 or 0. 0 or -1.
    ZR_INT setFlag(int iLevel, int iName, ZR_BOOL bOn);
    /// Reads an int-sized on/off option: 1 only when the query succeeds and the value is non-zero.
    ZR_BOOL getFlag(int iLevel, int iName) const;

    ZR_SOCKET m_sock;      ///< The descriptor; -1: none.
    ZR_Uint32 m_type;      ///< The type code (see the class description).
    ZR_BOOL m_blocking;    ///< The blocking mode last set.
    ZR_BOOL m_connected;   ///< 1 after a successful Connect()/Accept(), 0 after Close().
    pollfd m_pfd;          ///< The record of the poll-based waits.
    RefCounter* m_refcnt;  ///< The use count shared with every copy.
    ZR_Uint32 m_state;     ///< See State().

private:
    /// Drops this object's share of the counter; the last holder closes and deletes it.
    void releaseShare();
    /// Gives up the shared counter and starts a new one held by this object alone.
    void ownNewCounter();
    ZR_Uint32 getSize(int iName) const;
    ZR_INT selectOne(ZR_Uint32 uMicroseconds, bool bForWrite) const;
};

}  // namespace zor

#endif  // ZOR_SOCKET_H_
