/// @file
/// IPAddress, host addresses as value types, and its family-specific implementations.
#ifndef ZOR_IPADDRESS_H_
#define ZOR_IPADDRESS_H_

#include <netinet/in.h>

#include <string>

#include "BaseTypes.h"

namespace zor {

/// The family codes every Family() returns. AF_UNKNOWN is never produced, only rejected.
enum __ADDR_FAMILY : ZR_Uint32 {
    AF_V4 = 0,       ///< IPv4.
    AF_V6 = 1,       ///< IPv6.
    AF_UN = 2,       ///< Unix-domain path.
    AF_UNKNOWN = 3,  ///< Not a family; refused where a family is asked for.
};

/// The raw-size marker that makes IPAddress(const void*, ZR_Uint32) read a zero-terminated Unix path.
constexpr ZR_Uint32 UNIX_PATH_SIZE_MARKER = 0xFFFFFFFFu;

/// The start-up hook for a network stack that needs one; every address, socket-address and socket
/// object calls it once when made. On Linux it does nothing.
void InitOSNetwork();
/// The counterpart of InitOSNetwork(), called once by every such object when destroyed. On Linux it does
/// nothing.
void UninitOSNetwork();

/// The family-specific half of an IPAddress. Abstract; the constructor announces the object with
/// InitOSNetwork() and the destructor with UninitOSNetwork().
class IPAddressImp {
public:
    virtual ZR_Uint32 Size() const = 0;        ///< Bytes of the raw address: 4, 16 or 108.
    virtual ZR_Uint32 Scope() const = 0;       ///< IPv6 interface index, else 0.
    virtual ZR_Uint32 Family() const = 0;      ///< A value of __ADDR_FAMILY.
    virtual std::string ToString() const = 0;  ///< The text form (see IPAddress).
    virtual const void* Addr() const = 0;      ///< Raw bytes inside the object, network byte order.
    virtual ZR_BOOL IsWildcard() const = 0;    ///< 1 for the any-address (0.0.0.0 or ::).
    virtual ZR_BOOL IsBroadcast() const = 0;   ///< 1 for the IPv4 limited broadcast 255.255.255.255.
    virtual ZR_BOOL IsLoopback() const = 0;    ///< 1 for a loopback address (127.0.0.0/8 or ::1).
    virtual ZR_BOOL IsMulticast() const = 0;   ///< 1 for a multicast address.
    /// Copies Size() raw bytes from pAddr (for Unix: a path, at most 108 characters). Returns 0.
    virtual ZR_INT SetAddress(const void* pAddr) = 0;
    /// Calls UninitOSNetwork().
    virtual ~IPAddressImp();

    IPAddressImp(const IPAddressImp&) = delete;             ///< Not copyable: IPAddress builds a new one.
    IPAddressImp& operator=(const IPAddressImp&) = delete;  ///< Not copyable.

protected:
    /// Calls InitOSNetwork().
    IPAddressImp();
};

/// An IPv4 address (4 bytes, network byte order).
class IPv4IPAddressImp : public IPAddressImp {
public:
    IPv4IPAddressImp();                            ///< 0.0.0.0
    explicit IPv4IPAddressImp(const void* pAddr);  ///< copies 4 bytes

    /// Parses IPv4 text with the system's permissive parser (127.1, 0x7f.0.0.1 and the like are
    /// accepted). Returns a new object that the caller deletes, or nullptr for empty or rejected text.
    static IPv4IPAddressImp* Parse(const std::string& sText);

    ZR_Uint32 Size() const override;
    ZR_Uint32 Scope() const override;
    ZR_Uint32 Family() const override;
    std::string ToString() const override;
    const void* Addr() const override;
    ZR_BOOL IsWildcard() const override;
    ZR_BOOL IsBroadcast() const override;
    ZR_BOOL IsLoopback() const override;            ///< 1 for 127.0.0.0/8.
    ZR_BOOL IsMulticast() const override;           ///< 1 for 224.0.0.0/4.
    ZR_INT SetAddress(const void* pAddr) override;  ///< Copies 4 bytes; returns 0.

private:
    in_addr m_addr;
};

/// An IPv6 address (16 bytes) with an interface index as scope.
class IPv6IPAddressImp : public IPAddressImp {
public:
    IPv6IPAddressImp();                                     ///< ::, scope 0
    explicit IPv6IPAddressImp(const void* pAddr);           ///< 16 bytes, scope 0
    IPv6IPAddressImp(const void* pAddr, ZR_Uint32 uScope);  ///< 16 bytes and the scope

    /// Parses IPv6 text. Without a `%` the whole text must be an IPv6 address (scope 0). With one, the part
    /// before it (after an optional leading '[') is the address and the rest names the interface whose index
    /// becomes the scope. A closing ']' stays part of the interface name, so `"[fe80::1%lo]"` is rejected
    /// while `"[fe80::1%lo"` and `"fe80::1%lo"` parse. Returns a new object that the caller deletes, or
    /// nullptr.
    static IPv6IPAddressImp* Parse(const std::string& sText);

    ZR_Uint32 Size() const override;
    ZR_Uint32 Scope() const override;
    ZR_Uint32 Family() const override;
    std::string ToString() const override;  ///< always "Bingo, I am IPv6"
    const void* Addr() const override;
    ZR_BOOL IsWildcard() const override;
    ZR_BOOL IsBroadcast() const override;  ///< IPv6 has no broadcast: always 0.
    ZR_BOOL IsLoopback() const override;   ///< 1 for ::1.
    /// ff00::/8 with the three highest flag bits clear (ff10::1 is multicast, ff20::1 is not).
    ZR_BOOL IsMulticast() const override;
    ZR_INT SetAddress(const void* pAddr) override;  ///< copies 16 bytes; the scope stays

private:
    in6_addr m_addr;
    ZR_Uint32 m_scope;
};

/// A Unix-domain path of at most 108 characters. It is never a wildcard, broadcast, loopback or
/// multicast address.
class UnixIPAddressImp : public IPAddressImp {
public:
    static constexpr ZR_Uint32 PATH_CAPACITY = 108;  ///< The path buffer's size, as in sockaddr_un.

    UnixIPAddressImp();  ///< empty path
    /// Keeps at most 108 characters of sPath. A path of 108 characters or more fills the buffer
    /// without a terminating zero; ToString() still stops at the end of the buffer.
    explicit UnixIPAddressImp(const std::string& sPath);

    ZR_Uint32 Size() const override;
    ZR_Uint32 Scope() const override;
    ZR_Uint32 Family() const override;
    std::string ToString() const override;  ///< the path up to its first zero byte
    const void* Addr() const override;
    ZR_BOOL IsWildcard() const override;   ///< Always 0.
    ZR_BOOL IsBroadcast() const override;  ///< Always 0.
    ZR_BOOL IsLoopback() const override;   ///< Always 0.
    ZR_BOOL IsMulticast() const override;  ///< Always 0.
    /// Reads a zero-terminated path, at most 108 characters of it; the rest of the buffer is zeroed.
    ZR_INT SetAddress(const void* pAddr) override;

private:
    ZR_CHAR m_addr[PATH_CAPACITY];
};

/// A host address as a value type: an IPv4 address, an IPv6 address (with an interface index as
/// scope) or a Unix-domain path.
///
/// The handle owns one implementation object of the matching family (IPv4IPAddressImp,
/// IPv6IPAddressImp, UnixIPAddressImp) and never shares it: copies and assignments build a new one.
/// Copying an IPv6 address drops its scope (the copy has scope 0).
///
/// Text forms: IPv4 prints dotted decimal; every IPv6 address prints the same fixed text
/// "Bingo, I am IPv6", so all IPv6 addresses compare equal and none orders before another; a Unix address
/// prints its path. Equality is "same family and same text"; ordering is "smaller raw size first, then
/// byte-wise text order" (so 10.0.0.10 < 10.0.0.2, and IPv4 < IPv6 < Unix).
///
/// IsUnicast() is 1 for an IPv4 address that is neither the wildcard, the broadcast address nor
/// multicast, and for an IPv6 address that is neither the wildcard nor multicast; loopback addresses
/// count as unicast. Unix paths are never unicast.
///
/// Constructors throw std::runtime_error ("Invalid address family!", "Invalid address format!",
/// "Invalid address size!"); SetAddress() never throws for bad input, it returns -1 and keeps the value.
/// No locking: one object belongs to one thread at a time; distinct objects are independent.
///
/// @code
///   zor::IPAddress host("127.1", 0);          // permissive IPv4 text: 127.0.0.1
///   if (host.IsLoopback()) { ... }
///   zor::IPAddress link("fe80::1%lo", 0);     // IPv6 with the scope of interface "lo"
///   zor::IPAddress path("/run/app.sock", 1);  // Unix-domain path
/// @endcode
class IPAddress {
public:
    IPAddress();  ///< IPv4 0.0.0.0
    /// 0: IPv4 0.0.0.0, 1: IPv6 :: with scope 0, 2: empty Unix path. Throws "Invalid address family!".
    explicit IPAddress(ZR_Uint32 uFamily);
    /// Same family and address; the IPv6 scope is not copied.
    IPAddress(const IPAddress& other);
    /// bIsUnix != 0: the Unix path sAddr (at most 108 characters kept). Otherwise IPv4 text, then IPv6
    /// text; throws "Invalid address format!" when neither parses.
    IPAddress(const std::string& sAddr, ZR_BOOL bIsUnix);
    /// The same for a C string. Without it a literal such as IPAddress("10.0.0.1", 0) would convert to
    /// const void* and silently pick the raw-bytes constructor below. Pass raw bytes as const void*.
    IPAddress(const char* pszAddr, ZR_BOOL bIsUnix);
    /// uSize 4: IPv4 bytes; 16: IPv6 bytes (scope 0); UNIX_PATH_SIZE_MARKER: a zero-terminated path.
    /// Throws "Invalid address size!" for any other size.
    IPAddress(const void* pAddr, ZR_Uint32 uSize);
    /// Always IPv6: reads 16 bytes at pAddr (before looking at uSize) and keeps uScope. Throws
    /// "Invalid address size!" unless uSize is 16.
    IPAddress(const void* pAddr, ZR_Uint32 uSize, ZR_Uint32 uScope);
    ~IPAddress();  ///< Deletes the implementation object.

    /// Copy-and-swap; like the copy constructor it drops an IPv6 scope.
    IPAddress& operator=(const IPAddress& other);
    /// Exchanges the two values; never fails.
    void Swap(IPAddress& other);

    /// Parses sText in the current family only (a Unix address takes any text as its path). Returns 0 on
    /// success, -1 with the value unchanged otherwise. The family never changes, and an IPv6 scope in the
    /// text is ignored: the current scope stays.
    ZR_INT SetAddress(const std::string& sText);
    /// Copies uSize raw bytes when uSize equals Size() and returns 0; returns -1 otherwise.
    ZR_INT SetAddress(const void* pAddr, ZR_Uint32 uSize);

    ZR_Uint32 Size() const;        ///< Bytes of the raw address: 4, 16 or 108.
    ZR_Uint32 Scope() const;       ///< The IPv6 interface index, else 0.
    ZR_Uint32 Family() const;      ///< A value of __ADDR_FAMILY.
    std::string ToString() const;  ///< Dotted decimal, the fixed IPv6 text, or the Unix path.
    const void* Addr() const;      ///< The raw bytes, network byte order; valid while this object lives.
    ZR_BOOL IsWildcard() const;    ///< 1 for 0.0.0.0 or ::.
    ZR_BOOL IsBroadcast() const;   ///< 1 for 255.255.255.255.
    ZR_BOOL IsLoopback() const;    ///< 1 for 127.0.0.0/8 or ::1.
    ZR_BOOL IsMulticast() const;   ///< 1 for 224.0.0.0/4, or ff00::/8 with the three high flag bits clear.
    ZR_BOOL IsUnicast() const;     ///< See the rule in the class description.

    /// @name Comparisons
    /// Equality is same family and same text; ordering is smaller raw size first, then byte-wise text.
    ///@{
    bool operator==(const IPAddress& other) const;  ///< Same family and same text.
    bool operator!=(const IPAddress& other) const;  ///< Not ==.
    bool operator<(const IPAddress& other) const;   ///< Smaller size, or same size and smaller text.
    bool operator<=(const IPAddress& other) const;  ///< < or ==.
    bool operator>(const IPAddress& other) const;   ///< Not <=.
    bool operator>=(const IPAddress& other) const;  ///< Not <.
    ///@}

private:
    IPAddressImp* m_imp;  ///< owned, never null
};

}  // namespace zor

#endif  // ZOR_IPADDRESS_H_
