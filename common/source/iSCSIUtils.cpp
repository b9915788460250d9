#include "iSCSIUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>

#include "PosixUtil.h"
#include "SysUtils.h"
#include "iSCSIParse.h"

namespace zor {

using namespace iscsi_inner;

std::map<ZR_UINT, std::string> CiSCSIUtils::m_mapCommandTable;
std::string CiSCSIUtils::m_sDefaultParam;

namespace {

const char* const kInitiatorNameFile = "/etc/iscsi/initiatorname.iscsi";
const ZR_UINT kAllSessions = 0xFFFFFFFFu;
const int kMaxNameAttempts = 100;

// Removes an output file when the operation leaves, whichever way it leaves.
class OutputRemover {
public:
    explicit OutputRemover(const std::string& file) : m_file(file) {}
    ~OutputRemover() {
        if (!m_file.empty()) ::unlink(m_file.c_str());
    }
    OutputRemover(const OutputRemover&) = delete;
    OutputRemover& operator=(const OutputRemover&) = delete;

private:
    const std::string& m_file;
};

std::seed_seq::result_type freshSeedPart() {
    try {
        return std::random_device()();
    } catch (const std::exception&) {  // no entropy source: the clock and pid still differ per process
        return static_cast<std::seed_seq::result_type>(
            std::chrono::high_resolution_clock::now().time_since_epoch().count());
    }
}

// A value like random()'s (0 to 2^31-1) from a generator of our own, so that the host's random()
// sequence stays as the host left it. Each thread has its own engine, seeded afresh in every process:
// a forked child must not repeat its parent's names.
unsigned long drawRandomHalf() {
    thread_local std::mt19937 engine;
    thread_local pid_t seededFor = 0;
    const pid_t pid = ::getpid();
    if (seededFor != pid) {
        const auto now = std::chrono::high_resolution_clock::now().time_since_epoch().count();
        std::seed_seq seed{freshSeedPart(), freshSeedPart(), static_cast<std::seed_seq::result_type>(pid),
                           static_cast<std::seed_seq::result_type>(now)};
        engine.seed(seed);
        seededFor = pid;
    }
    return static_cast<unsigned long>(engine() & 0x7FFFFFFFu);
}

// Opens the named file for reading; the readers treat a file that cannot be opened as a failed call.
bool openOutput(const std::string& file, std::ifstream& in) {
    if (file.empty()) return false;
    in.open(file);
    return in.is_open();
}

// The parameter as the shell must see it: a backslash before each '[' and ']'. The checked texts may
// hold them (bracketed IPv6 portals), and a bare "[::1]" is a pattern the shell would replace by the
// names of matching files in the working directory. Every other character they may hold is plain to
// the shell, so a parameter without brackets stays as it is.
std::string escapeBrackets(const std::string& param) {
    std::string escaped;
    escaped.reserve(param.size());
    for (const char c : param) {
        if (c == '[' || c == ']') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// Copies the first device with the LUN into `device`.
iSCSI_RTS deviceByLun(const std::vector<SCSIDEVICE>& devices, ZR_UCHAR lun, SCSIDEVICE& device) {
    for (const SCSIDEVICE& candidate : devices) {
        if (candidate.iLun == lun) {
            device = candidate;
            return iSCSI_RTS_SUCCEED;
        }
    }
    return iSCSI_RTS_DEVICE_INEXISTED;
}

}  // namespace

SCSIDEVICE::SCSIDEVICE() : iHost(0), iChannel(0), iTarget(0), iLun(0), szPath() {}

ISCSIDISK::ISCSIDISK() : stDevice(), szTargetIQN() {}

ISCSIPortal::ISCSIPortal() : szTargetIQN(), szIPAddr(), iPort(3260) {}

CiSCSIUtils::CiSCSIUtils(IPSAN_TYPE type) : m_iIPSANType(type) {}

CiSCSIUtils::~CiSCSIUtils() {}

iSCSI_RTS CiSCSIUtils::Initialize() {
    if (!m_mapCommandTable.empty()) return iSCSI_RTS_SUCCEED;
    m_mapCommandTable = {
        {iSCSI_CMD_GET_PORTALS, "iscsiadm -m node"},
        {iSCSI_CMD_DISCOVERY, "iscsiadm -m discovery -t st"},
        {iSCSI_CMD_LOGIN_PORTAL, "iscsiadm -m node -l"},
        {iSCSI_CMD_LOGIN_ALL, "iscsiadm -m node -L all"},
        {iSCSI_CMD_LOGOUT_PORTAL, "iscsiadm -m node -u"},
        {iSCSI_CMD_LOGOUT_ALL, "iscsiadm -m node -U all"},
        {iSCSI_CMD_RESCAN_SESSION, "iscsiadm -m session -R"},
        {iSCSI_CMD_RESCAN_ALL, "iscsiadm -m session -R all"},
        {iSCSI_CMD_GET_SESSIONS, "iscsiadm -m session"},
        {iSCSI_CMD_GET_SESSION_STATUS, "iscsiadm -m session -P 1"},
        {iSCSI_CMD_GET_SESSION_DEVICES, "iscsiadm -m session -P 3"},
        {iSCSI_CMD_START_DAEMON, "/etc/init.d/iscsid force-start"},
        {iSCSI_CMD_STOP_DAEMON, "killall -q -9 iscsid"},
        {iSCSI_CMD_WATCH_DAEMON, "ps -e | grep iscsid"},
        {iSCSI_CMD_REMOVE_PORTAL, "iscsiadm -m node -o delete"},
    };
    return iSCSI_RTS_SUCCEED;
}

// ---- daemon ----

iSCSI_RTS CiSCSIUtils::iSCSIStartDaemon() { return runCommand(iSCSI_CMD_START_DAEMON, m_sDefaultParam); }

iSCSI_RTS CiSCSIUtils::iSCSIStopDaemon() {
    if (getDaemonStatus() != iSCSI_RTS_DAEMON_RUNNING) return iSCSI_RTS_SUCCEED;
    return runCommand(iSCSI_CMD_STOP_DAEMON, m_sDefaultParam);
}

iSCSI_RTS CiSCSIUtils::iSCSIRestartDaemon() {
    iSCSIStopDaemon();
    SysUtils::DelayMseconds(100);
    iSCSIStartDaemon();
    return iSCSI_RTS_SUCCEED;
}

// ---- discovery, login, logout ----

iSCSI_RTS CiSCSIUtils::iSCSIDiscoveryIPSAN(char* ip, std::vector<ISCSIPortal>& portals) {
    if (!isShellSafe(ip)) return iSCSI_RTS_INVALID_PARAM;
    return addiSCSITargetPortal(ip, nullptr, nullptr, portals);
}

iSCSI_RTS CiSCSIUtils::iSCSILoginAll() {
    std::string sOut;
    OutputRemover remover(sOut);
    executeCommand(iSCSI_CMD_LOGIN_ALL, m_sDefaultParam, sOut);
    delaySeconds(30);  // the disks of every session take their time to show up
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::iSCSILoginIPSAN(char* ip, std::vector<ISCSIDISK>& disks) {
    if (!isShellSafe(ip)) return iSCSI_RTS_INVALID_PARAM;
    std::vector<ISCSIPortal> portals;
    const iSCSI_RTS rc = addiSCSITargetPortal(ip, nullptr, nullptr, portals);
    if (rc != iSCSI_RTS_SUCCEED) return rc;
    iSCSI_RTS last = iSCSI_RTS_SUCCEED;
    for (ISCSIPortal& portal : portals) {
        std::vector<SCSIDEVICE> devices;
        last = loginTargetPortal(portal, devices);
        if (last != iSCSI_RTS_SUCCEED) continue;
        for (const SCSIDEVICE& device : devices) {
            ISCSIDISK disk;
            disk.stDevice = device;
            std::memcpy(disk.szTargetIQN, portal.szTargetIQN, sizeof disk.szTargetIQN);
            disks.push_back(disk);
        }
    }
    return last;
}

iSCSI_RTS CiSCSIUtils::iSCSILoginIPSANTarget(char* ip, char* target, std::vector<SCSIDEVICE>& devices) {
    if (!isShellSafe(ip) || !isShellSafe(target)) return iSCSI_RTS_INVALID_PARAM;
    if (!portalExisted(ip, target)) runCommand(iSCSI_CMD_DISCOVERY, " -p " + std::string(ip));
    ISCSIPortal portal;
    copyBounded(portal.szTargetIQN, target);
    copyBounded(portal.szIPAddr, ip);
    return loginTargetPortal(portal, devices);
}

iSCSI_RTS CiSCSIUtils::iSCSILoginIPSANDevice(char* ip, char* target, ZR_UCHAR lun, SCSIDEVICE& device) {
    if (!isShellSafe(ip) || !isShellSafe(target)) return iSCSI_RTS_INVALID_PARAM;
    ZR_UINT sid = 0;
    if (getSessionStatus(target, sid) == iSCSI_RTS_SESSION_LOGON) {
        return iSCSIGetAttachedDeviceByLun(target, lun, device);
    }
    std::vector<SCSIDEVICE> devices;
    const iSCSI_RTS rc = iSCSILoginIPSANTarget(ip, target, devices);
    if (rc != iSCSI_RTS_SUCCEED) return rc;
    return deviceByLun(devices, lun, device);
}

iSCSI_RTS CiSCSIUtils::iSCSILogoutALL() {
    runCommand(iSCSI_CMD_LOGOUT_ALL, m_sDefaultParam);
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::iSCSILogoutIPSAN(char* ip) {
    if (!isShellSafe(ip)) return iSCSI_RTS_INVALID_PARAM;
    std::vector<ISCSIPortal> portals;
    const iSCSI_RTS rc = addiSCSITargetPortal(ip, nullptr, nullptr, portals);
    if (rc != iSCSI_RTS_SUCCEED) return rc;
    for (ISCSIPortal& portal : portals) logoutTargetPortal(portal);
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::iSCSILogoutIPSANTarget(char* ip, char* target) {
    if (!isShellSafe(ip) || !isShellSafe(target)) return iSCSI_RTS_INVALID_PARAM;
    ISCSIPortal portal;
    copyBounded(portal.szTargetIQN, target);
    copyBounded(portal.szIPAddr, ip);
    return logoutTargetPortal(portal);
}

iSCSI_RTS CiSCSIUtils::iSCSIRemoveTargetPortal(char* /*ip*/, char* target) {
    if (!isShellSafe(target)) return iSCSI_RTS_INVALID_PARAM;
    runCommand(iSCSI_CMD_REMOVE_PORTAL, " -T " + std::string(target));
    return iSCSI_RTS_SUCCEED;
}

// ---- sessions and devices ----

iSCSI_RTS CiSCSIUtils::iSCSIGetSessionStatus(char* target) {
    if (target == nullptr || *target == '\0') return iSCSI_RTS_INVALID_PARAM;
    ZR_UINT sid = 0;
    return getSessionStatus(target, sid);
}

iSCSI_RTS CiSCSIUtils::iSCSIGetSessionDeviceCount(char* target, ZR_UINT& count) {
    if (target == nullptr || *target == '\0') return iSCSI_RTS_INVALID_PARAM;
    ZR_UINT sid = 0;
    if (getSessionStatus(target, sid) != iSCSI_RTS_SESSION_LOGON) return iSCSI_RTS_SESSION_LOGOFF;
    refreshOSDeviceList(kAllSessions);  // the count rescans every session, unlike the lookup by LUN
    std::vector<SCSIDEVICE> devices;
    const iSCSI_RTS rc = getSessionDevices(sid, devices);
    if (rc == iSCSI_RTS_SUCCEED) count = static_cast<ZR_UINT>(devices.size());
    return rc;
}

iSCSI_RTS CiSCSIUtils::iSCSIGetAttachedDeviceByLun(char* target, ZR_UCHAR lun, SCSIDEVICE& device) {
    if (target == nullptr || *target == '\0') return iSCSI_RTS_INVALID_PARAM;
    ZR_UINT sid = kAllSessions;
    if (getSessionStatus(target, sid) != iSCSI_RTS_SESSION_LOGON) return iSCSI_RTS_SESSION_LOGOFF;
    refreshOSDeviceList(sid);
    std::vector<SCSIDEVICE> devices;
    const iSCSI_RTS rc = getSessionDevices(sid, devices);
    if (rc != iSCSI_RTS_SUCCEED) return rc;
    return deviceByLun(devices, lun, device);
}

// ---- initiator name ----

iSCSI_RTS CiSCSIUtils::SetInitiatorIQN(char* iqn) {
    if (iqn == nullptr) return iSCSI_RTS_INVALID_PARAM;
    std::ofstream out(kInitiatorNameFile, std::ios::binary | std::ios::trunc);
    if (!out.is_open()) return iSCSI_RTS_SYSCALL_FAILED;
    out << "InitiatorName=" << iqn;
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::GetInitiatorIQN(char* iqn) {
    if (iqn == nullptr) return iSCSI_RTS_INVALID_PARAM;
    std::ifstream in(kInitiatorNameFile);
    if (!in.is_open()) return iSCSI_RTS_SYSCALL_FAILED;
    return parseInitiatorName(in, iqn);
}

// ---- readers ----

iSCSI_RTS CiSCSIUtils::reportiSCSITargetList(char* ip, std::vector<ISCSIPortal>& portals) {
    std::string sOut;
    OutputRemover remover(sOut);
    executeCommand(iSCSI_CMD_GET_PORTALS, m_sDefaultParam, sOut);
    std::ifstream in;
    if (!openOutput(sOut, in)) return iSCSI_RTS_SYSCALL_FAILED;
    parseTargetList(in, ip, portals);
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::getSessionStatus(char* target, ZR_UINT& sid) {
    if (target == nullptr) return iSCSI_RTS_INVALID_PARAM;
    std::string sOut;
    OutputRemover remover(sOut);
    executeCommand(iSCSI_CMD_GET_SESSION_STATUS, m_sDefaultParam, sOut);
    if (sOut.empty()) return iSCSI_RTS_FAILED;
    std::ifstream in;
    if (!openOutput(sOut, in)) return iSCSI_RTS_SYSCALL_FAILED;
    return parseSessionStatus(in, target, sid);
}

iSCSI_RTS CiSCSIUtils::getSessionDevices(ZR_UINT sid, std::vector<SCSIDEVICE>& devices) {
    std::string sOut;
    OutputRemover remover(sOut);
    executeCommand(iSCSI_CMD_GET_SESSION_DEVICES, " -r " + std::to_string(sid), sOut);
    if (sOut.empty()) return iSCSI_RTS_FAILED;
    std::ifstream in;
    if (!openOutput(sOut, in)) return iSCSI_RTS_SYSCALL_FAILED;
    parseSessionDevices(in, devices, false);
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::refreshOSDeviceList(ZR_UINT sid) {
    if (sid == kAllSessions) {
        runCommand(iSCSI_CMD_RESCAN_ALL, m_sDefaultParam);
    } else {
        runCommand(iSCSI_CMD_RESCAN_SESSION, " -r " + std::to_string(sid));
    }
    return iSCSI_RTS_SUCCEED;
}

// ---- flows behind the public operations ----

iSCSI_RTS CiSCSIUtils::addiSCSITargetPortal(char* ip, char* /*unused1*/, char* /*unused2*/,
                                            std::vector<ISCSIPortal>& portals) {
    const iSCSI_RTS status = getDaemonStatus();
    if (status != iSCSI_RTS_DAEMON_RUNNING) return status;
    if (ip != nullptr) {
        if (!isShellSafe(ip)) return iSCSI_RTS_INVALID_PARAM;
        runCommand(iSCSI_CMD_DISCOVERY, " -p " + std::string(ip));
    }
    return reportiSCSITargetList(ip, portals);
}

iSCSI_RTS CiSCSIUtils::loginTargetPortal(ISCSIPortal& portal, std::vector<SCSIDEVICE>& devices) {
    const std::string param = portalParam(portal);
    if (param.empty()) return iSCSI_RTS_INVALID_PARAM;
    const iSCSI_RTS status = getDaemonStatus();
    if (status != iSCSI_RTS_DAEMON_RUNNING) return status;
    std::string target = boundedText(portal.szTargetIQN);
    ZR_UINT sid = 0;
    if (getSessionStatus(&target[0], sid) == iSCSI_RTS_SESSION_LOGON) {
        runCommand(iSCSI_CMD_LOGOUT_PORTAL, param);
    }
    runCommand(iSCSI_CMD_LOGIN_PORTAL, param);
    delaySeconds(3);  // give the kernel time to attach the session's disks
    if (getSessionStatus(&target[0], sid) != iSCSI_RTS_SESSION_LOGON) return iSCSI_RTS_LOGIN_PORTAL_FAILED;
    return getSessionDevices(sid, devices);
}

iSCSI_RTS CiSCSIUtils::logoutTargetPortal(ISCSIPortal& portal) {
    const std::string param = portalParam(portal);
    if (param.empty()) return iSCSI_RTS_INVALID_PARAM;
    std::string sOut;
    OutputRemover remover(sOut);
    executeCommand(iSCSI_CMD_GET_SESSIONS, m_sDefaultParam, sOut);
    std::ifstream in;
    if (!openOutput(sOut, in)) return iSCSI_RTS_SYSCALL_FAILED;
    if (anyLineContains(in, boundedText(portal.szTargetIQN))) {
        runCommand(iSCSI_CMD_LOGOUT_PORTAL, param);
        delaySeconds(3);  // let the session's disks go before the caller looks again
    }
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::refreshSendTargetPortals() { return iSCSI_RTS_SUCCEED; }

// ---- command runner ----

ZR_BOOL CiSCSIUtils::validCommand(ZR_UINT command) {
    return (command > iSCSI_CMD_BEGIN && command < iSCSI_CMD_END) ? 1 : 0;
}

ZR_BOOL CiSCSIUtils::portalExisted(char* ip, char* target) {
    std::vector<ISCSIPortal> portals;
    if (reportiSCSITargetList(ip, portals) != iSCSI_RTS_SUCCEED) return 0;
    for (const ISCSIPortal& portal : portals) {
        if (std::strncmp(portal.szTargetIQN, target, sizeof portal.szTargetIQN) == 0) return 1;
    }
    return 0;
}

iSCSI_RTS CiSCSIUtils::delaySeconds(ZR_UINT seconds) {
    SysUtils::DelaySeconds(static_cast<ZR_Int32>(seconds));
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::generateFileName(std::string& outFile) {
    for (int attempt = 0; attempt < kMaxNameAttempts; ++attempt) {
        char szName[32];
        std::snprintf(szName, sizeof szName, "%s%lu.iscsi", "/tmp/", drawRandomHalf() + drawRandomHalf());
        const int fd = ::open(szName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd >= 0) {
            detail::FdGuard guard(fd);
            outFile = szName;
            return iSCSI_RTS_SUCCEED;
        }
        if (errno != EEXIST) break;  // only a taken name is worth another draw
    }
    outFile.clear();
    return iSCSI_RTS_SYSCALL_FAILED;
}

iSCSI_RTS CiSCSIUtils::removeFile(const std::string& file) {
    ::unlink(file.c_str());
    return iSCSI_RTS_SUCCEED;
}

iSCSI_RTS CiSCSIUtils::getDaemonStatus() {
    std::string sOut;
    OutputRemover remover(sOut);
    executeCommand(iSCSI_CMD_WATCH_DAEMON, m_sDefaultParam, sOut);
    std::ifstream in;
    if (!openOutput(sOut, in)) return iSCSI_RTS_SYSCALL_FAILED;
    return parseDaemonStatus(in);
}

iSCSI_RTS CiSCSIUtils::executeCommand(ZR_UINT command, const std::string& param, std::string& outFile) {
    if (!validCommand(command)) return iSCSI_RTS_FAILED;
    const std::map<ZR_UINT, std::string>::const_iterator it = m_mapCommandTable.find(command);
    if (it == m_mapCommandTable.end()) return iSCSI_RTS_FAILED;  // Initialize() has not run
    if (generateFileName(outFile) != iSCSI_RTS_SUCCEED) return iSCSI_RTS_SYSCALL_FAILED;
    char szLine[128];
    const int len = std::snprintf(szLine, sizeof szLine, "%s %s > %s", it->second.c_str(),
                                  escapeBrackets(param).c_str(), outFile.c_str());
    // A cut line could lose its redirection or name another target, so a line that does not fit is not
    // run; its output file stays empty.
    if (len < 0 || static_cast<size_t>(len) >= sizeof szLine) return iSCSI_RTS_SUCCEED;
    const int iIgnored = std::system(szLine);  // the tool's verdict is read from its output, not its status
    (void)iIgnored;
    return iSCSI_RTS_SUCCEED;
}

// ---- private helpers ----

iSCSI_RTS CiSCSIUtils::runCommand(ZR_UINT command, const std::string& param) {
    std::string sOut;
    OutputRemover remover(sOut);
    return executeCommand(command, param, sOut);
}

std::string CiSCSIUtils::portalParam(const ISCSIPortal& portal) {
    const std::string target = boundedText(portal.szTargetIQN);
    const std::string address = boundedText(portal.szIPAddr);
    if (!isShellSafe(target.c_str()) || !isShellSafe(address.c_str())) return "";
    return " -T " + target + " -p " + address;
}

}  // namespace zor
