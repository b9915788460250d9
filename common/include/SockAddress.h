/// @file
/// SockAddress, socket endpoints as value types, and its family-specific implementations.
#ifndef ZOR_SOCKADDRESS_H_
#define ZOR_SOCKADDRESS_H_

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "BaseTypes.h"
#include "IPAddress.h"

namespace zor {

/// The family-specific half of a SockAddress. Abstract; announces itself with InitOSNetwork() and
/// UninitOSNetwork() like every address object.
class SockAddressImp {
public:
    virtual IPAddress Host() const = 0;        ///< The host part as an address value.
    virtual ZR_Uint16 Port() const = 0;        ///< The port, host byte order.
    virtual ZR_SOCKLEN Size() const = 0;       ///< Bytes of the stored record.
    virtual ZR_Uint32 Family() const = 0;      ///< A value of __ADDR_FAMILY.
    virtual int SinFamily() const = 0;         ///< The system family stored in the record (AF_INET, ...).
    virtual const sockaddr* Addr() const = 0;  ///< The stored record, ready for bind() or connect().
    /// Calls UninitOSNetwork().
    virtual ~SockAddressImp();

    SockAddressImp(const SockAddressImp&) = delete;             ///< Not copyable.
    SockAddressImp& operator=(const SockAddressImp&) = delete;  ///< Not copyable.

protected:
    /// Calls InitOSNetwork().
    SockAddressImp();
};

/// An IPv4 endpoint stored as a sockaddr_in.
class IPv4SockAddressImp : public SockAddressImp {
public:
    IPv4SockAddressImp();                                   ///< 0.0.0.0:0
    explicit IPv4SockAddressImp(const sockaddr_in* pAddr);  ///< copies the 16-byte record as it is
    /// pAddr: 4 address bytes, or nullptr for 0.0.0.0.
    IPv4SockAddressImp(const void* pAddr, ZR_Uint16 uPort);

    IPAddress Host() const override;
    ZR_Uint16 Port() const override;
    ZR_SOCKLEN Size() const override;
    ZR_Uint32 Family() const override;
    int SinFamily() const override;
    const sockaddr* Addr() const override;

private:
    sockaddr_in m_addr;
};

/// An IPv6 endpoint stored as a sockaddr_in6, scope id included.
class IPv6SockAddressImp : public SockAddressImp {
public:
    explicit IPv6SockAddressImp(const sockaddr_in6* pAddr);  ///< copies the 28-byte record
    /// pAddr: 16 address bytes, or nullptr for ::. Scope id 0.
    IPv6SockAddressImp(const void* pAddr, ZR_Uint16 uPort);
    /// pAddr must point at 16 bytes here.
    IPv6SockAddressImp(const void* pAddr, ZR_Uint16 uPort, ZR_Uint32 uScope);

    IPAddress Host() const override;  ///< carries the record's scope id
    ZR_Uint16 Port() const override;
    ZR_SOCKLEN Size() const override;
    ZR_Uint32 Family() const override;
    int SinFamily() const override;
    const sockaddr* Addr() const override;

private:
    sockaddr_in6 m_addr;
};

/// A Unix-domain endpoint stored as a sockaddr_un.
class UnixSockAddressImp : public SockAddressImp {
public:
    UnixSockAddressImp();                                   ///< empty path
    explicit UnixSockAddressImp(const sockaddr_un* pAddr);  ///< copies the full 110-byte record
    /// Keeps at most 108 characters; a path of 108 or more fills sun_path with no terminating zero.
    explicit UnixSockAddressImp(const std::string& sPath);

    IPAddress Host() const override;   ///< a Unix IPAddress holding the path
    ZR_Uint16 Port() const override;   ///< always 0
    ZR_SOCKLEN Size() const override;  ///< always 110
    ZR_Uint32 Family() const override;
    int SinFamily() const override;
    const sockaddr* Addr() const override;

private:
    sockaddr_un m_addr;
};

/// A socket endpoint as a value type: an IPv4 or IPv6 host with a port, or a Unix-domain path.
///
/// Each SockAddress owns one implementation object (IPv4SockAddressImp, IPv6SockAddressImp,
/// UnixSockAddressImp) that stores the system's own record (sockaddr_in, sockaddr_in6, sockaddr_un), so
/// Addr() and Size() go straight to bind(), connect() and sendto(). A Unix endpoint always reports the
/// full record size, 110, whatever the length of its path, and its port is 0.
///
/// Building from an IPAddress drops an IPv6 scope (the record's scope id is 0); copying a SockAddress
/// copies the record byte for byte and keeps it.
///
/// Text form: "192.168.0.1:80" for IPv4, "[" + host text + "]:port" for IPv6 (and since every IPv6 host
/// prints the same fixed text, so do all IPv6 endpoints of one port), the bare path for Unix.
/// Equality: equal hosts (see IPAddress) and equal ports. Ordering: by system family (Unix 1 < IPv4 2 <
/// IPv6 10), then host, then port.
///
/// Constructors throw std::runtime_error: "Invalid address family!" for a host of an unknown family,
/// "Invalid address format!" for unparsable host text, and "Invalid address family or length!" for a raw
/// record that is not a full IPv4 or IPv6 record nor a Unix one; that last failure first prints the line
/// "family = F, size = N" on standard output. Accessors never fail. No locking: one object per thread.
///
/// @code
///   zor::SockAddress web("192.168.0.1", 80);
///   ::connect(fd, web.Addr(), web.Size());
///   zor::SockAddress local("/run/app.sock");       // Unix-domain endpoint
/// @endcode
class SockAddress {
public:
    SockAddress();                          ///< 0.0.0.0:0
    explicit SockAddress(ZR_Uint16 uPort);  ///< 0.0.0.0:uPort
    /// IPv4 or IPv6 host with uPort (an IPv6 scope is not carried over), or a Unix host whose text
    /// becomes the path (uPort ignored). Throws "Invalid address family!" for any other family.
    SockAddress(const IPAddress& host, ZR_Uint16 uPort);
    /// Parses sHost as IPAddress(sHost, 0) does (throws "Invalid address format!"), then as above.
    SockAddress(const std::string& sHost, ZR_Uint16 uPort);
    /// A Unix-domain endpoint.
    explicit SockAddress(const std::string& sPath);
    /// From a system record: AF_INET with uLen >= 16, else AF_INET6 with uLen >= 28, else AF_UNIX with any
    /// uLen. A Unix record is always read in full (110 bytes), so pAddr must hold that many. Anything
    /// else prints "family = F, size = N" on standard output and throws
    /// "Invalid address family or length!".
    SockAddress(const sockaddr* pAddr, ZR_SOCKLEN uLen);
    /// Byte-for-byte copy of the record (an IPv6 scope id survives).
    SockAddress(const SockAddress& other);
    ~SockAddress();  ///< Deletes the implementation object.

    SockAddress& operator=(const SockAddress& other);  ///< copy-and-swap
    void Swap(SockAddress& other);                     ///< never fails

    IPAddress Host() const;        ///< The host; a Unix endpoint gives a Unix address holding the path.
    ZR_Uint16 Port() const;        ///< The port in host byte order; 0 for Unix.
    ZR_SOCKLEN Size() const;       ///< Bytes of the record: 16, 28 or 110.
    ZR_Uint32 Family() const;      ///< A value of __ADDR_FAMILY.
    int SinFamily() const;         ///< The system family of the record: AF_INET, AF_INET6 or AF_UNIX.
    const sockaddr* Addr() const;  ///< The record, valid while this object lives and is not assigned.
    std::string ToString() const;  ///< "host:port", "[host]:port" or the path (see the class description).

    /// @name Comparisons
    /// By system family, then host, then port; equality needs equal hosts and ports.
    ///@{
    bool operator==(const SockAddress& other) const;  ///< Equal hosts and equal ports.
    bool operator!=(const SockAddress& other) const;  ///< Not ==.
    bool operator<(const SockAddress& other) const;   ///< Smaller system family, then host, then port.
    bool operator<=(const SockAddress& other) const;  ///< < or ==.
    bool operator>(const SockAddress& other) const;   ///< Not <=.
    bool operator>=(const SockAddress& other) const;  ///< Not <.
    ///@}

private:
    SockAddressImp* m_imp;  ///< owned, never null
};

}  // namespace zor

#endif  // ZOR_SOCKADDRESS_H_
