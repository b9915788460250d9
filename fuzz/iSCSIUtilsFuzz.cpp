// Feeds arbitrary text to the readers of iscsiadm, ps and initiator-name output, as if a tool had printed
// it. The first byte picks how much of the input after it serves as the filter (portal address or target
// name); the rest is the output text. Beyond the sanitizers' checks, the records must stay inside their
// arrays, and only texts free of shell syntax may pass the safety check.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "iSCSIParse.h"

namespace {

using namespace zor::iscsi_inner;

void require(bool ok) {
    if (!ok) std::abort();
}

void checkShellSafety(const std::string& text) {
    if (!isShellSafe(text.c_str())) return;
    require(text.find_first_of(" \t\n;&|<>$`'\"\\()*?!{}~#=%") == std::string::npos);
}

void readAll(const std::string& filter, const std::string& text) {
    std::istringstream daemon(text);
    parseDaemonStatus(daemon);

    std::vector<zor::ISCSIPortal> portals;
    std::istringstream all(text), some(text);
    parseTargetList(all, nullptr, portals);
    parseTargetList(some, filter.c_str(), portals);
    for (const zor::ISCSIPortal& portal : portals) {
        require(boundedText(portal.szIPAddr).size() <= sizeof portal.szIPAddr);
        require(boundedText(portal.szTargetIQN).size() <= sizeof portal.szTargetIQN);
    }

    ZR_UINT sid = 0;
    std::istringstream status(text);
    parseSessionStatus(status, filter.c_str(), sid);

    std::vector<zor::SCSIDEVICE> devices;
    std::istringstream disks(text);
    parseSessionDevices(disks, devices, true);  // stop where the library would spin for ever
    for (const zor::SCSIDEVICE& device : devices) {
        require(strnlen(device.szPath, sizeof device.szPath) < sizeof device.szPath);
        require(std::strncmp(device.szPath, "/dev/", 5) == 0);
    }

    std::istringstream sessions(text);
    anyLineContains(sessions, filter);

    char iqn[256];
    std::istringstream name(text);
    if (parseInitiatorName(name, iqn) == zor::iSCSI_RTS_SUCCEED) require(std::strlen(iqn) <= 255);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
    const size_t split = data[0] < input.size() ? data[0] : input.size();
    const std::string filter = input.substr(0, split).c_str();  // a C string ends at its first NUL
    checkShellSafety(filter);
    readAll(filter, input.substr(split));
    return 0;
}
