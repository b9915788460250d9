/// @file
/// The host's IPv4 configuration as plain values: Route, NICInfo and their tables.
///
/// Route is one line of the kernel route table and NICInfo one configured interface address; RouteTable
/// and NICsTable hold them. The tables are filled by SysUtils::GetSysRouteTable() and
/// SysUtils::GetSysNICsTable() (SysUtils.h), or by hand.
///
/// Equality is deliberately narrow: two routes are equal when their destinations are, two interface
/// records when their addresses (ipaddr) are; RouteTable::DelRoute() and NICsTable::DelNICInfo() remove by
/// that rule. The tables keep insertion order and allow duplicates. Everything here is a value type with
/// no locking: one object belongs to one thread at a time. Indexing past the end throws
/// std::runtime_error ("Invalid index for route table", "Invalid index for NICs table").
///
/// @code
///   zor::RouteTable routes;
///   if (zor::SysUtils::GetSysRouteTable(routes) == 0) {
///       for (size_t i = 0; i < routes.GetTableSize(); ++i) use(routes[i].destination, routes[i].gateway);
///   }
/// @endcode
#ifndef ZOR_NETWORK_H_
#define ZOR_NETWORK_H_

#include <cstddef>
#include <string>
#include <vector>

#include "BaseTypes.h"
#include "IPAddress.h"

namespace zor {

/// Interface class codes of NICInfo::eNICType, decided by the interface name.
///
/// "eth" anywhere gives ETHERNET, else "vir" anywhere VIRTUAL, else "lo" anywhere LOOPBACK, else OTHER. So
/// veth0 and eth_lo are Ethernet, virbr0 is virtual, docker0 and wlan0 are other.
enum __NIC_TYPE : ZR_Uint32 {
    NIC_LOOPBACK = 0,  ///< "lo" in the name (and neither "eth" nor "vir").
    NIC_VIRTUAL = 1,   ///< "vir" in the name (and not "eth").
    NIC_ETHERNET = 2,  ///< "eth" in the name.
    NIC_OTHER = 3,     ///< Any other name.
};

/// One IPv4 route. All addresses default to 0.0.0.0, ages and flags to 0.
struct Route {
    IPAddress destination;  ///< destination network
    IPAddress netmask;      ///< destination mask
    IPAddress gateway;      ///< next hop; 0.0.0.0 for a directly connected network
    IPAddress NICAddr;      ///< IPv4 address of the interface carrying the route (0.0.0.0 if it has none)
    ZR_ULONG ages = 0;      ///< the route reader stores all ones here as a marker
    ZR_ULONG flags = 0;     ///< the kernel's route flag bits (RTF_UP 0x1, RTF_GATEWAY 0x2, ...)
};

/// Compares the destinations only; netmask, gateway and the rest are ignored.
bool operator==(const Route& lhs, const Route& rhs);

/// One configured IPv4 interface address.
struct NICInfo {
    IPAddress broadcast;            ///< The broadcast address of the interface's network.
    IPAddress ipaddr;               ///< The interface's IPv4 address; the key of equality.
    IPAddress netmask;              ///< The network mask.
    ZR_ULONG iNICIndex = 0;         ///< the kernel's interface index
    ZR_ULONG eNICType = NIC_OTHER;  ///< a __NIC_TYPE code
    std::string sNICName;           ///< interface name (an alias label such as "eth0:1" where one is set)
    std::string sPhyAddr;           ///< hardware address, "00:1A:2B:3C:4D:5E" (upper-case hex)
};

/// Compares the interface addresses (ipaddr) only.
bool operator==(const NICInfo& lhs, const NICInfo& rhs);

/// An ordered list of routes, duplicates allowed.
class RouteTable {
public:
    /// Appends a copy; duplicates are kept.
    void AddRoute(const Route& route);
    /// Removes the first route with the same destination; does nothing when there is none.
    void DelRoute(const Route& route);
    /// The number of routes.
    size_t GetTableSize() const;
    /// The route at index i; throws "Invalid index for route table" when i >= GetTableSize().
    Route& operator[](size_t i);
    /// The route at index i, read-only; throws like the other form.
    const Route& operator[](size_t i) const;

private:
    std::vector<Route> m_routeTable;
};

/// An ordered list of interface records, duplicates allowed.
class NICsTable {
public:
    /// Appends a copy; duplicates are kept.
    void AddNICInfo(const NICInfo& info);
    /// Removes the first record with the same ipaddr; does nothing when there is none.
    void DelNICInfo(const NICInfo& info);
    /// The number of records.
    size_t GetTableSize() const;
    /// The record at index i; throws "Invalid index for NICs table" when i >= GetTableSize().
    NICInfo& operator[](size_t i);
    /// The record at index i, read-only; throws like the other form.
    const NICInfo& operator[](size_t i) const;

private:
    std::vector<NICInfo> m_NICInfoTable;
};

}  // namespace zor

#endif  // ZOR_NETWORK_H_
