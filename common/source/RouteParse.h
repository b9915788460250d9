// RouteParse.h (internal, never installed)
//
// The reader behind SysUtils::GetSysRouteTable(): it turns the text of the kernel route table into
// Route records. It works on any std::istream, so the library feeds it "/proc/net/route" and the fuzzer
// arbitrary text. Header-only, so that a fuzz target gets it without the library exporting internals.
//
// The kernel prints each address as the hexadecimal value of its 32 raw bytes read in the machine's byte
// order, so storing that value's bytes as they lie in memory gives the address back (0101A8C0 is
// 192.168.1.1 on x86). Lines are trusted for nothing: a missing column reads as 0 and a column that is
// not hexadecimal reads as strtoul() reads it (the value of its leading hex digits, else 0).
#ifndef ZOR_ROUTEPARSE_H_
#define ZOR_ROUTEPARSE_H_

#include <cstdint>
#include <cstdlib>
#include <istream>
#include <limits>
#include <string>

#include "Network.h"

namespace zor {
namespace route_inner {

// Column positions of a route line: interface, destination, gateway, flags, reference count, use count,
// metric, mask, MTU, window, IRTT.
enum RouteColumn {
    COL_IFACE = 0,
    COL_DEST = 1,
    COL_GATEWAY = 2,
    COL_FLAGS = 3,
    COL_MASK = 7,
    COL_COUNT = 11
};

inline bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// The first COL_COUNT words of the line; absent ones stay empty.
inline void splitColumns(const std::string& line, std::string (&columns)[COL_COUNT]) {
    size_t pos = 0;
    for (std::string& column : columns) {
        while (pos < line.size() && isBlank(line[pos])) ++pos;
        const size_t start = pos;
        while (pos < line.size() && !isBlank(line[pos])) ++pos;
        column.assign(line, start, pos - start);
    }
}

inline ZR_ULONG parseHex(const std::string& word) { return std::strtoul(word.c_str(), nullptr, 16); }

// Stores the low 32 bits of the column's value as raw address bytes, in memory order.
inline void setAddressFromHex(IPAddress& address, const std::string& word) {
    const uint32_t raw = static_cast<uint32_t>(parseHex(word));
    address.SetAddress(static_cast<const void*>(&raw), 4);
}

// Fills destination, gateway, netmask, flags and the ages marker from one line and returns the
// interface name (empty when the line has no words). NICAddr is left to the caller.
inline std::string parseRouteLine(const std::string& line, Route& route) {
    std::string columns[COL_COUNT];
    splitColumns(line, columns);
    setAddressFromHex(route.destination, columns[COL_DEST]);
    setAddressFromHex(route.gateway, columns[COL_GATEWAY]);
    setAddressFromHex(route.netmask, columns[COL_MASK]);
    route.flags = parseHex(columns[COL_FLAGS]);
    route.ages = std::numeric_limits<ZR_ULONG>::max();  // a fixed marker: the kernel reports no age
    return columns[COL_IFACE];
}

// Skips the header line, then appends one route per further line. lookupNICAddr(name, address) sets
// the interface address of the route's interface, or leaves it 0.0.0.0 when it knows none.
template <typename Lookup>
void parseRouteTable(std::istream& in, RouteTable& table, Lookup&& lookupNICAddr) {
    std::string line;
    if (!std::getline(in, line)) return;
    while (std::getline(in, line)) {
        Route route;
        const std::string name = parseRouteLine(line, route);
        lookupNICAddr(name, route.NICAddr);
        table.AddRoute(route);
    }
}

}  // namespace route_inner
}  // namespace zor

#endif  // ZOR_ROUTEPARSE_H_
