/// @file
/// SysUtils, static wrappers of operating-system services.
#ifndef ZOR_SYSUTILS_H_
#define ZOR_SYSUTILS_H_

#include <string>

#include "BaseTypes.h"

namespace zor {

class IPAddress;
class Mutex;
class NICsTable;
class RouteTable;

/// Static wrappers of operating-system services: sleeping, processor count, scheduling-priority ranges
/// and the mapping of the library's five priority levels onto them, dynamic library loading, file-type
/// tests, turning the process into a daemon, and the host's network tables.
///
/// The class has no state; call the static operations directly. Everything may be called from any
/// thread. Only the file tests throw (an empty path).
///
/// The network members read the host's IPv4 interface and route tables into NICsTable and RouteTable
/// (Network.h, which callers include for those types) and look for a free local port. They keep no state
/// between calls; a process-wide mutex serialises the port searches of one process (not across
/// processes). They never throw or log.
///
/// @code
///   zor::SysUtils::DelayMseconds(100);
///   int osPriority = zor::SysUtils::MapPriority(zor::PRIO_HIGH, SCHED_FIFO);  // 74 for the range 1-99
/// @endcode
class SysUtils {
public:
    ZOR_INLINE SysUtils() {}   ///< Stateless; there is nothing to construct.
    ZOR_INLINE ~SysUtils() {}  ///< Stateless; there is nothing to release.

    /// sched_get_priority_min() of a POSIX policy.
    static ZR_Int32 GetOSMinPriority(ZR_Int32 policy);
    /// sched_get_priority_max() of a POSIX policy.
    static ZR_Int32 GetOSMaxPriority(ZR_Int32 policy);
    /// Maps a library level (PRIO_LOWEST 0, PRIO_LOW 1, PRIO_NORMAL 2, PRIO_HIGHEST 3, PRIO_HIGH 4) to an
    /// operating-system priority of `policy`: min, min + range/4, min + range/2, max, min + 3*range/4.
    /// Unknown levels map like PRIO_NORMAL. Under SCHED_OTHER every level maps to 0.
    static ZR_Int32 MapPriority(ZR_Int32 priority, ZR_Int32 policy);
    /// The reverse of MapPriority(): the library level of an operating-system priority. Any policy other
    /// than 0 reads back as PRIO_HIGHEST (3) whatever the priority.
    static ZR_Int32 ReverseMapPriority(ZR_Int32 osPriority, ZR_Int32 policy);

    /// Number of online processors.
    static ZR_Int32 GetCPUNumber();
    /// 1 when index is negative or not below GetCPUNumber(), else 0.
    static ZR_Int32 InvalidCPU(ZR_Int32 index);

    /// @name Sleeping
    /// Sleep for the given time and return 0. A signal does not cut the sleep short: the remaining time is
    /// slept.
    ///@{
    static ZR_Int32 DelaySeconds(ZR_Int32 s);    ///< Sleeps s seconds; returns 0.
    static ZR_Int32 DelayMseconds(ZR_Int32 ms);  ///< Sleeps ms milliseconds; returns 0.
    /// Sleeps us microseconds and returns 0; returns -1 at once for more than 999999 microseconds.
    static ZR_Int32 DelayUseconds(ZR_Int32 us);
    ///@}

    /// Loads a shared library: dlopen(path, RTLD_LAZY); null on failure.
    static ZR_DLLHD LoadLibrary(const std::string& path);
    /// The address of a symbol of a loaded library: dlsym(); null when absent.
    static ZR_PVOID GetSymbol(ZR_DLLHD handle, const std::string& name);
    /// Unloads a library loaded by LoadLibrary(): dlclose().
    static void FreeLibrary(ZR_DLLHD handle);

    /// Turns the process into a daemon. Forks (retrying a failed fork at once until one succeeds). The
    /// parent ends with exit status 0 through _exit(), so buffered output is written once, by the child; the
    /// child starts a new session and returns 0. Working directory, umask and open descriptors are left as
    /// they were.
    static ZR_INT ForkDaemon();

    /// @name File tests
    /// An empty path throws std::runtime_error("File path must not be empty!!"); a path that does not
    /// exist gives 0.
    ///@{
    /// 1 for a symbolic link (lstat: the link itself is tested).
    static ZR_BOOL IsLinkFile(const std::string& path);
    /// 1 for a character or block device (stat).
    static ZR_BOOL IsDeviceFile(const std::string& path);
    /// 1 for a directory (stat, so a link to a directory counts).
    static ZR_BOOL IsDirectoryFile(const std::string& path);
    /// Looks at the text only: 1 when the first character of the whole string is '.', except for "."
    /// and ".." (so "dir/.name" is not hidden by this test).
    static ZR_BOOL IsHiddenFile(const std::string& path);
    ///@}

    /// Appends one record per configured IPv4 interface address, in the kernel's order, and returns 0.
    /// Only the first 8 are seen: the list is asked for (SIOCGIFCONF) into room for 8 entries on purpose.
    /// Returns -1 when no socket can be opened, the list cannot be read or any query of an interface
    /// fails; the records appended before the failure stay in `table`. The table is not cleared first.
    static ZR_Int32 GetSysNICsTable(NICsTable& table);
    /// Appends one route per line of "/proc/net/route" (after its header) and returns 0, or returns -1
    /// when the file cannot be opened. Each route carries the IPv4 address of its interface (0.0.0.0 when
    /// the interface has none among those GetSysNICsTable() sees) and ages = all ones. The interfaces are
    /// read once per call rather than once per line. The table is not cleared first.
    static ZR_Int32 GetSysRouteTable(RouteTable& table);
    /// A port in [start, end) that a new IPv4 stream (TCP) socket could bind on `host`.
    ///
    /// host is dotted text, not validated; null or empty for any address. Returns 0 when none binds or the
    /// range is empty, 65535 when end < start, and for start = end = 0 the port of a new unbound socket,
    /// that is 0. After finding a port it pauses 100 ms so that the system has released it. The port is only
    /// a hint: nothing reserves it once the call returns.
    static ZR_Uint16 GetAvailPortTCP(const ZR_CHAR* host, ZR_Uint16 start, ZR_Uint16 end);
    /// As GetAvailPortTCP(), for a datagram (UDP) socket.
    static ZR_Uint16 GetAvailPortUDP(const ZR_CHAR* host, ZR_Uint16 start, ZR_Uint16 end);

private:
    /// The address, mask and broadcast address of the first interface named exactly `name`: 0, or -1
    /// with the outputs untouched when it is absent or the interfaces cannot be read.
    static ZR_Int32 getNICAddrInfo(const std::string& name, IPAddress& addr, IPAddress& mask,
                                   IPAddress& broadcast);
    /// Lookup by interface index is not offered: always -1, outputs untouched.
    static ZR_Int32 getNICAddrInfo(const ZR_ULONG& index, IPAddress& addr, IPAddress& mask,
                                   IPAddress& broadcast);
    /// Binds fd on host:start, start + 1, ... below end under m_portMutex; the first port that binds, or
    /// 0. For start = end = 0 it binds nothing and answers the socket's own port as stored.
    static ZR_Uint16 getAvailPort(ZR_SOCKET fd, const ZR_CHAR* host, ZR_Uint16 start, ZR_Uint16 end);
    /// The public searches: range check, a socket of iKind, the search, the close and the pause.
    static ZR_Uint16 searchPort(int iKind, const ZR_CHAR* host, ZR_Uint16 start, ZR_Uint16 end);

    static Mutex m_portMutex;  ///< recursive
};

}  // namespace zor

#endif  // ZOR_SYSUTILS_H_
