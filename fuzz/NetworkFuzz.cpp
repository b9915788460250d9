// Feeds arbitrary text to the route-table reader as if it were the kernel's route file. Besides the
// sanitizers' checks it asserts what must hold for any text: one route per line after the first, each with
// IPv4 addresses and the ages marker, and one interface lookup per route.
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string>

#include "RouteParse.h"

namespace {

void require(bool bHolds) {
    if (!bHolds) std::abort();
}

size_t linesAfterTheFirst(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    size_t count = 0;
    while (std::getline(in, line)) ++count;
    return count == 0 ? 0 : count - 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::istringstream in(text);
    zor::RouteTable table;
    size_t lookups = 0;
    zor::route_inner::parseRouteTable(in, table, [&](const std::string& name, zor::IPAddress& address) {
        ++lookups;
        if (name == "eth0") address = zor::IPAddress("192.0.2.2", 0);
    });
    require(table.GetTableSize() == linesAfterTheFirst(text) && lookups == table.GetTableSize());
    for (size_t i = 0; i < table.GetTableSize(); ++i) {
        const zor::Route& route = table[i];
        require(route.ages == std::numeric_limits<ZR_ULONG>::max());
        require(route.destination.Family() == zor::AF_V4 && route.gateway.Family() == zor::AF_V4);
        require(route.netmask.Family() == zor::AF_V4 && route.NICAddr.Family() == zor::AF_V4);
    }
    return 0;
}
