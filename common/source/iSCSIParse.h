// iSCSIParse.h (internal, never installed)
//
// The readers behind CiSCSIUtils: they turn the text that iscsiadm, ps and the initiator-name file hold
// into records and result codes. They work on any std::istream, so the class feeds them its output files
// and the fuzzer feeds them arbitrary text. Header-only, so that a fuzz target gets them without the
// library having to export internals. Nothing here touches the file system or the shell.
#ifndef ZOR_ISCSIPARSE_H_
#define ZOR_ISCSIPARSE_H_

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <string>
#include <vector>

#include "iSCSIUtils.h"

namespace zor {
namespace iscsi_inner {

// atoi without its overflow hazard: in-range text converts as atoi does, out-of-range text as glibc's
// atoi does (the long result cut to int).
inline int toInt(const char* psz) { return static_cast<int>(std::strtol(psz, nullptr, 10)); }

// atoi of the text from its first decimal digit ("scsi4" and "SID: 12" give 4 and 12); 0 without one.
inline int fromFirstDigit(const std::string& text) {
    const size_t pos = text.find_first_of("0123456789");
    return pos == std::string::npos ? 0 : toInt(text.c_str() + pos);
}

inline bool contains(const std::string& line, const char* pszNeedle) {
    return line.find(pszNeedle) != std::string::npos;
}

// The first `maxWords` whitespace-separated words of a line (fewer when the line has fewer).
inline std::vector<std::string> splitWords(const std::string& line, size_t maxWords) {
    std::vector<std::string> words;
    size_t pos = 0;
    while (words.size() < maxWords) {
        while (pos < line.size() && std::isspace(static_cast<unsigned char>(line[pos]))) ++pos;
        if (pos == line.size()) break;
        const size_t start = pos;
        while (pos < line.size() && !std::isspace(static_cast<unsigned char>(line[pos]))) ++pos;
        words.emplace_back(line, start, pos - start);
    }
    return words;
}

// A copy of `text` into a record's array with strncpy's rule: the array's full length at most, the
// rest zero-filled, no terminating NUL when the text fills the whole array.
template <size_t N>
void copyBounded(ZR_CHAR (&dst)[N], const std::string& text) {
    const size_t len = text.size() < N ? text.size() : N;
    std::memcpy(dst, text.data(), len);
    std::memset(dst + len, 0, N - len);
}

// The text a record's array holds, stopping at its end when no NUL ends it.
template <size_t N>
std::string boundedText(const ZR_CHAR (&src)[N]) {
    return std::string(src, strnlen(src, N));
}

// True for a non-empty text made only of characters a portal address or an iSCSI name can hold. Such a
// text means nothing to the shell but for the pattern brackets '[' ']', which the runner escapes.
inline bool isShellSafe(const char* psz) {
    if (psz == nullptr || *psz == '\0') return false;
    for (; *psz != '\0'; ++psz) {
        const unsigned char c = static_cast<unsigned char>(*psz);
        if (!std::isalnum(c) && std::strchr(".-:[],_", c) == nullptr) return false;
    }
    return true;
}

// Output of "ps -e | grep iscsid". The 'D' test comes before the name test, so any line holding an
// upper-case D reads as a dead daemon.
inline iSCSI_RTS parseDaemonStatus(std::istream& in) {
    std::string line;
    while (std::getline(in, line)) {
        if (contains(line, "D")) return iSCSI_RTS_DAEMON_DEAD;
        if (contains(line, "iscsid")) return iSCSI_RTS_DAEMON_RUNNING;
    }
    return iSCSI_RTS_DAEMON_DOWN;
}

// Lines of "iscsiadm -m node": "address:port,group target". Appends the targets whose address equals
// `pszIp`, or all of them for a null `pszIp`. The address ends at the portal word's first ':'.
inline void parseTargetList(std::istream& in, const char* pszIp, std::vector<ISCSIPortal>& portals) {
    std::string line;
    while (std::getline(in, line)) {
        const std::vector<std::string> words = splitWords(line, 2);
        if (words.size() < 2) continue;
        const std::string& portal = words[0];
        const size_t colon = portal.find(':');
        const std::string address = portal.substr(0, colon);
        if (pszIp != nullptr && address != pszIp) continue;
        ISCSIPortal entry;
        copyBounded(entry.szIPAddr, address);
        copyBounded(entry.szTargetIQN, words[1]);
        entry.iPort =
            static_cast<ZR_USHORT>(colon == std::string::npos ? 0 : toInt(portal.c_str() + colon + 1));
        portals.push_back(entry);
    }
}

// Output of "iscsiadm -m session -P 1": after the first line holding `pszTarget`, the session id and the
// connection state that follow it. LOGOFF when the target or its state line never comes.
inline iSCSI_RTS parseSessionStatus(std::istream& in, const char* pszTarget, ZR_UINT& sid) {
    std::string line;
    bool bFound = false;
    while (!bFound && std::getline(in, line)) bFound = contains(line, pszTarget);
    while (bFound && std::getline(in, line)) {
        if (contains(line, "SID:")) sid = static_cast<ZR_UINT>(fromFirstDigit(line));
        if (contains(line, "iSCSI Connection State:")) {
            return contains(line, "LOGGED IN") ? iSCSI_RTS_SESSION_LOGON : iSCSI_RTS_SESSION_LOGOFF;
        }
    }
    return iSCSI_RTS_SESSION_LOGOFF;
}

// One disk from "scsi4 Channel 00 Id 0 Lun: 1" and "Attached scsi disk sdc State: running".
inline SCSIDEVICE parseDisk(const std::string& channelLine, const std::string& diskLine) {
    std::vector<std::string> at = splitWords(channelLine, 7);
    at.resize(7);
    std::vector<std::string> disk = splitWords(diskLine, 4);
    disk.resize(4);
    SCSIDEVICE device;
    device.iHost = static_cast<ZR_UCHAR>(fromFirstDigit(at[0]));
    device.iChannel = static_cast<ZR_UCHAR>(toInt(at[2].c_str()));
    device.iTarget = static_cast<ZR_UCHAR>(toInt(at[4].c_str()));
    device.iLun = static_cast<ZR_UCHAR>(toInt(at[6].c_str()));
    copyBounded(device.szPath, "/dev/" + disk[3].substr(0, sizeof device.szPath - 6));
    return device;
}

// Output of "iscsiadm -m session -P 3": every "Channel" line directly followed by a disk line is a disk.
// A line after a "Channel" line that is not a disk line is carried over and examined without reading
// another; only a disk line clears that mark, so a carried line holding neither marker is examined for
// ever. iscsiadm always prints a disk or another "Channel" line after a "Channel" line, and the library
// keeps the loop as it is. With `bStopOnStall` (for the fuzzer) the reader returns false there instead.
inline bool parseSessionDevices(std::istream& in, std::vector<SCSIDEVICE>& devices, bool bStopOnStall) {
    std::string current;
    std::string next;
    bool bCarried = false;
    for (;;) {
        if (!bCarried && !std::getline(in, current)) return true;
        if (!contains(current, "Channel")) {
            if (bCarried && bStopOnStall) return false;
            continue;
        }
        if (!std::getline(in, next)) return true;
        if (contains(next, "Attached scsi disk")) {
            devices.push_back(parseDisk(current, next));
            bCarried = false;
        } else {
            current.swap(next);
            bCarried = true;
        }
    }
}

// True when a line holds `needle` ("iscsiadm -m session" lists one session per line).
inline bool anyLineContains(std::istream& in, const std::string& needle) {
    std::string line;
    while (std::getline(in, line)) {
        if (line.find(needle) != std::string::npos) return true;
    }
    return false;
}

// The initiator-name file: the text after the first '=' of the first line holding "InitiatorName=",
// at most 255 characters and a NUL into `pszIqn`.
inline iSCSI_RTS parseInitiatorName(std::istream& in, char* pszIqn) {
    std::string line;
    while (std::getline(in, line)) {
        if (!contains(line, "InitiatorName=")) continue;
        const size_t start = line.find('=') + 1;
        const size_t len = line.copy(pszIqn, 255, start);
        pszIqn[len] = '\0';
        return iSCSI_RTS_SUCCEED;
    }
    return iSCSI_RTS_GET_LOCALIQN_FAILED;
}

}  // namespace iscsi_inner
}  // namespace zor

#endif  // ZOR_ISCSIPARSE_H_
