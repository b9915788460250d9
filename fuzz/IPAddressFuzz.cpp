// Feeds arbitrary bytes to the address parsers: host texts of every family, raw host bytes of every
// accepted size, and raw socket-address records of any family and claimed length. Besides the sanitizers'
// checks it asserts the value rules that must hold for whatever parses: a copy equals its original, no
// address orders before itself, and an IPv4 or Unix address survives a trip through its own text.
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "IPAddress.h"
#include "SockAddress.h"

namespace {

void require(bool bHolds) {
    if (!bHolds) std::abort();
}

void checkHost(const zor::IPAddress& host) {
    const zor::IPAddress copy(host);
    require(copy.Family() == host.Family() && !(host < host) && host <= copy);
    require(copy == host || host.Family() == zor::AF_V6);  // equal anyway: every IPv6 text is the same
    require(host.IsUnicast() == 0 || (!host.IsMulticast() && !host.IsWildcard()));
    if (host.Family() == zor::AF_V4) require(zor::IPAddress(host.ToString(), 0) == host);
    if (host.Family() == zor::AF_UN) require(zor::IPAddress(host.ToString(), 1) == host);
}

void checkEndpoint(const zor::SockAddress& endpoint) {
    zor::SockAddress copy(endpoint);
    require(copy == endpoint && !(endpoint < copy) && !(copy < endpoint));
    require(std::memcmp(copy.Addr(), endpoint.Addr(), endpoint.Size()) == 0);
    (void)endpoint.ToString();
    checkHost(endpoint.Host());
}

void parseText(const std::string& sText) {
    try {
        checkHost(zor::IPAddress(sText, 0));
        checkEndpoint(zor::SockAddress(sText, 80));
    } catch (const std::runtime_error&) {
    }
    checkHost(zor::IPAddress(sText, 1));
    for (ZR_Uint32 uFamily = zor::AF_V4; uFamily <= zor::AF_UN; ++uFamily) {
        zor::IPAddress target(uFamily);
        const std::string sBefore = target.ToString();
        if (target.SetAddress(sText) != 0) require(target.ToString() == sBefore);
    }
}

void parseRawHost(const uint8_t* pData, size_t uSize) {
    char buffer[129] = {};  // zero after the copied bytes, so a path is always terminated
    std::memcpy(buffer, pData, uSize < 128 ? uSize : 128);
    const ZR_Uint32 sizes[] = {4, 16, zor::UNIX_PATH_SIZE_MARKER, static_cast<ZR_Uint32>(uSize)};
    for (ZR_Uint32 uClaimed : sizes) {
        try {
            checkHost(zor::IPAddress(static_cast<const void*>(buffer), uClaimed));
            checkHost(zor::IPAddress(static_cast<const void*>(buffer), uClaimed, uClaimed));
        } catch (const std::runtime_error&) {
        }
    }
}

void parseRecord(const uint8_t* pData, size_t uSize) {
    if (uSize == 0) return;
    sockaddr_storage record{};  // a full record of any family, as the sockets always pass
    const ZR_SOCKLEN uClaimed = pData[0];
    std::memcpy(&record, pData + 1, uSize - 1 < sizeof(record) ? uSize - 1 : sizeof(record));
    try {
        checkEndpoint(zor::SockAddress(reinterpret_cast<const sockaddr*>(&record), uClaimed));
    } catch (const std::runtime_error&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Rejected records print a line each; the fuzzer reports on stderr, so stdout can go.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize) {
    parseText(std::string(reinterpret_cast<const char*>(pData), uSize));
    parseRawHost(pData, uSize);
    parseRecord(pData, uSize);
    return 0;
}
