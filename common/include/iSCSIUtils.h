/// @file
/// CiSCSIUtils, control of the host's open-iscsi initiator, with its result codes and records.
#ifndef ZOR_ISCSIUTILS_H_
#define ZOR_ISCSIUTILS_H_

#include <map>
#include <string>
#include <vector>

#include "BaseTypes.h"

namespace zor {

/// Kind of storage network given to CiSCSIUtils; stored for the caller's benefit, no flow reads it.
typedef ZR_Uint32 IPSAN_TYPE;

/// The results of every CiSCSIUtils operation. Codes marked reserved are part of the set but no
/// operation returns them today.
enum __iSCSI_RTS_CODE {
    iSCSI_RTS_SUCCEED = 0,              ///< Success.
    iSCSI_RTS_FAILED,                   ///< No output could be read, or an unknown command number.
    iSCSI_RTS_SESSION_LOGON,            ///< The target's session is logged in.
    iSCSI_RTS_SESSION_LOGOFF,           ///< The target has no logged-in session.
    iSCSI_RTS_INVALID_PARAM,            ///< A null or unsafe argument; nothing was run.
    iSCSI_RTS_LOAD_DLL_FAILED,          ///< Loading a library failed; reserved, not returned today.
    iSCSI_RTS_SYSCALL_FAILED,           ///< A file could not be created, read or written.
    iSCSI_RTS_REPORT_TARGET_FAILED,     ///< Reserved, not returned today.
    iSCSI_RTS_REPORT_PORTAL_FAILED,     ///< Reserved, not returned today.
    iSCSI_RTS_ADD_PORTAL_FAILED,        ///< Reserved, not returned today.
    iSCSI_RTS_SET_LOCALIQN_FAILED,      ///< Reserved, not returned today.
    iSCSI_RTS_GET_LOCALIQN_FAILED,      ///< The initiator file has no "InitiatorName=" line.
    iSCSI_RTS_LOGIN_PORTAL_FAILED,      ///< The target has no logged-in session after the login.
    iSCSI_RTS_LOGOUT_PORTAL_FAILED,     ///< Reserved, not returned today.
    iSCSI_RTS_REFRESH_STPORTAL_FAILED,  ///< Reserved, not returned today.
    iSCSI_RTS_REPORT_STPORTAL_FAILED,   ///< Reserved, not returned today.
    iSCSI_RTS_REMOVE_STPORTAL_FAILED,   ///< Reserved, not returned today.
    iSCSI_RTS_DAEMON_RUNNING,           ///< iscsid runs.
    iSCSI_RTS_DAEMON_DOWN,              ///< iscsid does not run.
    iSCSI_RTS_DAEMON_DEAD,              ///< iscsid is in uninterruptible sleep ('D' in the process list).
    iSCSI_RTS_GET_DEVICE_FAILED,        ///< Reserved, not returned today.
    iSCSI_RTS_DEVICE_INEXISTED,         ///< No attached disk has the LUN asked for.
    iSCSI_RTS_WAITING_ATTACH_DEVICE,    ///< Reserved, not returned today.
    iSCSI_RTS_END,                      ///< The bound of the set; not a result.
};
typedef __iSCSI_RTS_CODE iSCSI_RTS;  ///< A result of a CiSCSIUtils operation.

/// Numbers of the command table, with the command each runs; the two bounds have no command text.
enum __iSCSI_CMD_ON_LINUX {
    iSCSI_CMD_BEGIN = 85,           ///< Lower bound, no command.
    iSCSI_CMD_GET_PORTALS,          ///< iscsiadm -m node
    iSCSI_CMD_DISCOVERY,            ///< iscsiadm -m discovery -t st
    iSCSI_CMD_LOGIN_PORTAL,         ///< iscsiadm -m node -l
    iSCSI_CMD_LOGIN_ALL,            ///< iscsiadm -m node -L all
    iSCSI_CMD_LOGOUT_PORTAL,        ///< iscsiadm -m node -u
    iSCSI_CMD_LOGOUT_ALL,           ///< iscsiadm -m node -U all
    iSCSI_CMD_RESCAN_SESSION,       ///< iscsiadm -m session -R
    iSCSI_CMD_RESCAN_ALL,           ///< iscsiadm -m session -R all
    iSCSI_CMD_GET_SESSIONS,         ///< iscsiadm -m session
    iSCSI_CMD_GET_SESSION_STATUS,   ///< iscsiadm -m session -P 1
    iSCSI_CMD_GET_SESSION_DEVICES,  ///< iscsiadm -m session -P 3
    iSCSI_CMD_START_DAEMON,         ///< /etc/init.d/iscsid force-start
    iSCSI_CMD_STOP_DAEMON,          ///< killall -q -9 iscsid
    iSCSI_CMD_WATCH_DAEMON,         ///< ps -e | grep iscsid
    iSCSI_CMD_REMOVE_PORTAL,        ///< iscsiadm -m node -o delete
    iSCSI_CMD_END,                  ///< Upper bound, no command.
};

/// One SCSI disk attached through an iSCSI session. Numbers wrap at 256.
struct SCSIDEVICE {
    SCSIDEVICE();         ///< All numbers 0, empty path.
    ZR_UCHAR iHost;       ///< The digits of the "scsiN" word.
    ZR_UCHAR iChannel;    ///< SCSI channel.
    ZR_UCHAR iTarget;     ///< SCSI target id.
    ZR_UCHAR iLun;        ///< Logical unit number.
    ZR_CHAR szPath[128];  ///< "/dev/" and the disk name, e.g. "/dev/sdb".
};

/// A disk together with the target it was attached through.
struct ISCSIDISK {
    ISCSIDISK();               ///< An empty device and target name.
    SCSIDEVICE stDevice;       ///< The disk.
    ZR_CHAR szTargetIQN[256];  ///< The iSCSI qualified name of the target it came through.
};

/// A target as the node list records it: name, portal address and port (3260 unless read otherwise).
struct ISCSIPortal {
    ISCSIPortal();             ///< Empty texts, port 3260.
    ZR_CHAR szTargetIQN[256];  ///< The target's iSCSI qualified name.
    ZR_CHAR szIPAddr[32];      ///< The address text only; IPv6 portals are cut at their first ':'.
    ZR_USHORT iPort;           ///< The portal's TCP port.
};

/// Controls the host's open-iscsi initiator by running its command-line tools through the shell and
/// reading back what they print.
///
/// It starts and stops the iscsid daemon, discovers the targets of a storage portal, logs in and out of
/// targets, reports session state and the SCSI disks a session attached, and reads and writes the
/// initiator's own name in "/etc/iscsi/initiatorname.iscsi". Most operations need root, as the tools do.
///
/// @code
///   zor::CiSCSIUtils iscsi(0);
///   iscsi.Initialize();                                  // once, before any thread runs a command
///   char ip[] = "192.168.1.7";
///   std::vector<zor::ISCSIDISK> disks;
///   if (iscsi.iSCSILoginIPSAN(ip, disks) == zor::iSCSI_RTS_SUCCEED) { use(disks); }
/// @endcode
///
/// How a command runs: its text from the shared command table, a parameter fragment (`" -p <address>"`, `"
/// -T <target>"`, `" -r <session id>"`) and a redirection into a fresh file `"/tmp/<number>.iscsi"` form the
/// shell line `"<command> <fragment> > <file>"`, which goes to system(). The shell's exit status is never
/// looked at; results come only from reading the output back. Every operation removes the output files it
/// made before it returns, on every path.
///
/// Safety of the shell line:
/// - Every caller text that reaches the line (portal address, target name) may hold only letters, digits
///   and ". - : [ ] , _" (what an IPv4/IPv6 portal or an iSCSI name needs). Anything else, blanks and
///   shell metacharacters included, gives iSCSI_RTS_INVALID_PARAM and runs nothing, so nothing can be
///   injected. Target names read back from the tool's own node list pass the same check before they are
///   used.
/// - Of those characters only '[' and ']' mean something to the shell: "[::1]" would be matched against
///   the names of files in the working directory. The runner puts a backslash before each of them on the
///   line, so the tool receives the text as written; a line without brackets is unchanged.
/// - The output file is created exclusively (O_CREAT|O_EXCL, mode 0600) before the line runs, under a
///   number drawn from the library's own generator, seeded afresh in every process (and again after a
///   fork); a name that already exists is never reused, so a planted link cannot catch a root command's
///   output. The host program's random() sequence is left untouched.
/// - A shell line is at most 127 characters, escapes included. A line that would be longer is not run at
///   all (cutting it could lose the redirection or shorten a target name into another target's); the
///   runner still reports success, as it does for any shell outcome, and the readers then see an empty
///   output.
///
/// Results: every operation returns an iSCSI_RTS code; none throws and none logs. Strings are
/// NUL-terminated buffers owned by the caller. The character arrays of the records are filled with a
/// bounded copy of their full length, so a text of 256 (or 32) characters or more fills the array
/// without a terminating NUL; code reading them must bound itself by the array size, as this class does.
///
/// Threads: nothing is locked. The command table is written only by the first Initialize(), which must
/// have returned before other threads run commands; after that separate objects, or one object, may be
/// used from several threads, each run having its own output file. Several operations block on the
/// tools and on fixed waits: 30 s in iSCSILoginAll(), 3 s after each single login or logout, 100 ms in a
/// restart.
class CiSCSIUtils {
public:
    /// Stores the storage network kind; runs nothing.
    explicit CiSCSIUtils(IPSAN_TYPE type);
    ~CiSCSIUtils();  ///< Runs nothing; the command table stays for the process.

    /// Fills the process-wide command table unless it already holds entries. Always iSCSI_RTS_SUCCEED.
    iSCSI_RTS Initialize();

    /// Runs the init script's force-start and returns the runner's result (it does not ask first whether
    /// the daemon runs).
    iSCSI_RTS iSCSIStartDaemon();
    /// Kills iscsid when the daemon status is "running" and returns the runner's result; any other status
    /// gives iSCSI_RTS_SUCCEED without running anything.
    iSCSI_RTS iSCSIStopDaemon();
    /// Stop, 100 ms, start. Always iSCSI_RTS_SUCCEED.
    iSCSI_RTS iSCSIRestartDaemon();

    /// Discovers the portal `ip` and appends its targets to `portals`. Needs the daemon running (else its
    /// status comes back).
    iSCSI_RTS iSCSIDiscoveryIPSAN(char* ip, std::vector<ISCSIPortal>& portals);
    /// Logs in to every recorded node, then waits 30 s for the disks to appear. Always iSCSI_RTS_SUCCEED.
    iSCSI_RTS iSCSILoginAll();
    /// Discovers the portal and logs in to each of its targets in turn (3 s each), appending one ISCSIDISK
    /// per attached disk. A failed login does not stop the others; the last target's result is returned
    /// (iSCSI_RTS_SUCCEED when the portal has none).
    iSCSI_RTS iSCSILoginIPSAN(char* ip, std::vector<ISCSIDISK>& disks);
    /// Logs in to one target (discovering the portal first when the node is not recorded) and appends the
    /// session's disks to `devices`. A target already logged in is logged out and in again.
    iSCSI_RTS iSCSILoginIPSANTarget(char* ip, char* target, std::vector<SCSIDEVICE>& devices);
    /// The disk with LUN `lun` of `target`, logging in first when the target has no live session.
    /// iSCSI_RTS_DEVICE_INEXISTED when no disk has that LUN.
    iSCSI_RTS iSCSILoginIPSANDevice(char* ip, char* target, ZR_UCHAR lun, SCSIDEVICE& device);
    /// Logs out of every node, without waiting. Always iSCSI_RTS_SUCCEED.
    iSCSI_RTS iSCSILogoutALL();
    /// Discovers the portal and logs out of each of its targets that has a session.
    iSCSI_RTS iSCSILogoutIPSAN(char* ip);
    /// Logs out of one target when it has a session (then waits 3 s).
    iSCSI_RTS iSCSILogoutIPSANTarget(char* ip, char* target);
    /// Deletes the node record of `target`. `ip` is deliberately ignored: records go by target name alone.
    iSCSI_RTS iSCSIRemoveTargetPortal(char* ip, char* target);

    /// iSCSI_RTS_SESSION_LOGON when the target's connection is "LOGGED IN", iSCSI_RTS_SESSION_LOGOFF when
    /// it is in another state or absent. The target is matched as a substring of the tool's lines.
    iSCSI_RTS iSCSIGetSessionStatus(char* target);
    /// Rescans all sessions, then sets `count` to the number of disks the target's session attached.
    iSCSI_RTS iSCSIGetSessionDeviceCount(char* target, ZR_UINT& count);
    /// Rescans the target's session and copies the disk with LUN `lun` into `device`.
    iSCSI_RTS iSCSIGetAttachedDeviceByLun(char* target, ZR_UCHAR lun, SCSIDEVICE& device);

    /// Rewrites "/etc/iscsi/initiatorname.iscsi" to hold exactly `"InitiatorName=<iqn>"` (no line end).
    /// iSCSI_RTS_SYSCALL_FAILED when the file cannot be written, iSCSI_RTS_INVALID_PARAM for a null iqn.
    iSCSI_RTS SetInitiatorIQN(char* iqn);
    /// Copies the text after the first '=' of the file's first line holding "InitiatorName=" into `iqn`,
    /// which must have room for 256 characters: at most 255 are copied and a NUL always follows.
    /// iSCSI_RTS_SYSCALL_FAILED when the file cannot be read, iSCSI_RTS_GET_LOCALIQN_FAILED without such
    /// a line.
    iSCSI_RTS GetInitiatorIQN(char* iqn);

protected:
    /// Reads the node list and appends the targets of portal `ip` to `portals` (every reader runs one
    /// command and removes its output file).
    iSCSI_RTS reportiSCSITargetList(char* ip, std::vector<ISCSIPortal>& portals);
    /// iSCSI_RTS_SESSION_LOGON with the session id in `sid` when `target` is logged in, else
    /// iSCSI_RTS_SESSION_LOGOFF; a failure code when the session list cannot be read.
    iSCSI_RTS getSessionStatus(char* target, ZR_UINT& sid);
    /// Appends the disks attached by session `sid` to `devices`.
    ///
    /// Never returns when a "Channel" line is followed by a line holding neither "Channel" nor a disk:
    /// the reader counts on the tool never printing that.
    iSCSI_RTS getSessionDevices(ZR_UINT sid, std::vector<SCSIDEVICE>& devices);
    /// Rescans session `sid`, or every session for 0xFFFFFFFF. Always iSCSI_RTS_SUCCEED.
    iSCSI_RTS refreshOSDeviceList(ZR_UINT sid);

    /// Daemon check, then discovery of `ip` (when not null), then the node list of `ip`. The two middle
    /// arguments are unused.
    iSCSI_RTS addiSCSITargetPortal(char* ip, char* unused1, char* unused2, std::vector<ISCSIPortal>& portals);
    /// Logs in to the portal's target (out and in again when already logged in), waits 3 s and appends
    /// the session's disks to `devices`.
    iSCSI_RTS loginTargetPortal(ISCSIPortal& portal, std::vector<SCSIDEVICE>& devices);
    /// Logs out of the portal's target when it has a session, then waits 3 s.
    iSCSI_RTS logoutTargetPortal(ISCSIPortal& portal);
    iSCSI_RTS refreshSendTargetPortals();  ///< Does nothing; iSCSI_RTS_SUCCEED.

    /// 1 exactly for the numbers with a command text (86 to 100).
    ZR_BOOL validCommand(ZR_UINT command);
    /// 1 when the node list of `ip` holds `target` (compared over at most 256 characters).
    ZR_BOOL portalExisted(char* ip, char* target);
    /// Sleeps the given seconds; iSCSI_RTS_SUCCEED.
    iSCSI_RTS delaySeconds(ZR_UINT seconds);
    /// Creates a new empty output file `"/tmp/<number>.iscsi"` (exclusively, mode 0600) and names it in
    /// `outFile`. iSCSI_RTS_SYSCALL_FAILED, with `outFile` emptied, when no file could be created.
    iSCSI_RTS generateFileName(std::string& outFile);
    /// Unlinks the file. Always iSCSI_RTS_SUCCEED.
    iSCSI_RTS removeFile(const std::string& file);
    /// iSCSI_RTS_DAEMON_DEAD when a line of "ps -e | grep iscsid" holds a 'D' (tested first),
    /// iSCSI_RTS_DAEMON_RUNNING when one holds "iscsid", else iSCSI_RTS_DAEMON_DOWN.
    iSCSI_RTS getDaemonStatus();
    /// Runs one command, followed by `param` with a backslash before each '[' and ']', with its output
    /// redirected into a new file named in `outFile`, which the caller reads and removes.
    /// iSCSI_RTS_FAILED, running nothing and leaving `outFile` alone, for a number without a command;
    /// iSCSI_RTS_SYSCALL_FAILED when no output file could be made; otherwise iSCSI_RTS_SUCCEED whatever
    /// the shell did.
    iSCSI_RTS executeCommand(ZR_UINT command, const std::string& param, std::string& outFile);

    static std::map<ZR_UINT, std::string> m_mapCommandTable;  ///< Filled by the first Initialize().
    static std::string m_sDefaultParam;                       ///< Empty: the fragment of plain commands.
    IPSAN_TYPE m_iIPSANType;                                  ///< The kind given at construction.

private:
    /// Runs a command and removes its output unread; returns the runner's result.
    iSCSI_RTS runCommand(ZR_UINT command, const std::string& param);
    /// `" -T <target> -p <address>"` for a portal whose two texts are safe, else "".
    static std::string portalParam(const ISCSIPortal& portal);
};

}  // namespace zor

#endif  // ZOR_ISCSIUTILS_H_
