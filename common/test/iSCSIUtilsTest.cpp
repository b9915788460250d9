// CiSCSIUtils against stand-ins for iscsiadm, ps, grep, killall and the init script (fake-iscsi) put first
// on PATH: they replay output in the real tools' format and record their command lines and output files.
#include "iSCSIUtils.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "TestUtil.h"

namespace {

using namespace zor;
using zortest::readFile;
using zortest::writeFile;

const std::string kSourceFile = __FILE__;
const std::string kFakes = kSourceFile.substr(0, kSourceFile.rfind('/')) + "/fake-iscsi";
char kDiskA[] = "iqn.2003-01.org.example.san:disk-a";
char kDiskB[] = "iqn.2003-01.org.example.san:disk-b";
char kPortal7[] = "192.168.1.7";
char kPortal8[] = "192.168.1.8";
const std::string kWatch = "ps -e; grep iscsid; ";  // the two sides of the daemon status pipe

// Opens the protected members to the tests.
struct Probe : CiSCSIUtils {
    Probe() : CiSCSIUtils(0) { Initialize(); }
    using CiSCSIUtils::executeCommand;
    using CiSCSIUtils::getSessionStatus;
    using CiSCSIUtils::reportiSCSITargetList;
};

class ISCSI : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string copy =
            "cd '" + m_dir.Path() + "' && cp -r '" + kFakes + "/bin' . && chmod 755 bin/*";
        ASSERT_EQ(0, std::system((copy + " && mkdir replies").c_str()));
        setenv("ZOR_FAKE_DIR", m_dir.Path().c_str(), 1);
        setenv("PATH", (m_dir / "bin:" + m_path).c_str(), 1);
    }
    void TearDown() override {
        std::istringstream outputs(readFile(m_dir / "outputs.log"));
        for (std::string out; std::getline(outputs, out);) {
            if (out.compare(0, 5, "/tmp/") != 0) continue;  // the pipe between ps and grep
            EXPECT_TRUE(std::regex_match(out, std::regex(R"(/tmp/\d+\.iscsi)"))) << out;
            EXPECT_NE(0, access(out.c_str(), F_OK)) << out << " was left behind";
        }
        setenv("PATH", m_path.c_str(), 1);
    }
    // Makes the stand-ins answer `command` with the canned file `reply` followed by `text`. They look it up
    // under the command line with every space made '_' (the lines here hold no other special character).
    void Reply(std::string command, const std::string& reply, const std::string& text = "") {
        std::replace(command.begin(), command.end(), ' ', '_');
        writeFile(m_dir / ("replies/" + command), readFile(kFakes + "/replies/" + reply) + text);
    }
    void DaemonRuns() { Reply("ps -e", "ps-running.txt"); }
    std::string Commands() {  // the command lines run since the last call, each ended by "; "
        std::string commands = readFile(m_dir / "commands.log");
        std::remove((m_dir / "commands.log").c_str());
        for (size_t end; (end = commands.find('\n')) != std::string::npos;) commands.replace(end, 1, "; ");
        return commands;
    }

    zortest::ScratchDir m_dir;
    // Taken before SetUp() changes it, so that a SetUp() that fails half-way still restores it.
    const std::string m_path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
    Probe m_iscsi;
};

TEST_F(ISCSI, RunnerRunsOnlyTableCommandsIntoPrivateFilesAndLeavesRandomAlone) {
    std::string out = "untouched";
    for (ZR_UINT outside : {85u, 101u}) EXPECT_EQ(iSCSI_RTS_FAILED, m_iscsi.executeCommand(outside, "", out));
    EXPECT_EQ("untouched", out);
    EXPECT_EQ("", Commands());

    srandom(7);
    const long expected = random();
    srandom(7);
    std::string first, last, tooLong;
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.executeCommand(86, "", first));
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.executeCommand(100, " -T t", last));
    EXPECT_EQ(expected, random());
    EXPECT_EQ("iscsiadm -m node; iscsiadm -m node -o delete -T t; ", Commands());
    EXPECT_NE(first, last);
    struct stat info;
    ASSERT_EQ(0, lstat(first.c_str(), &info));
    EXPECT_EQ(S_IFREG | 0600u, info.st_mode);

    // A line past 127 characters would lose its redirection if cut, so it does not run at all.
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.executeCommand(86, " -T " + std::string(120, 'x'), tooLong));
    EXPECT_EQ("", Commands());
    EXPECT_EQ(0, access(tooLong.c_str(), F_OK));
    for (const std::string& file : {first, last, tooLong}) std::remove(file.c_str());
}

TEST_F(ISCSI, DaemonStatusDecidesStopAndDiscovery) {
    std::vector<ISCSIPortal> portals;
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIStopDaemon());  // ps shows no iscsid
    EXPECT_EQ(iSCSI_RTS_DAEMON_DOWN, m_iscsi.iSCSIDiscoveryIPSAN(kPortal7, portals));
    Reply("ps -e", "ps-dead.txt");  // the 'D' test wins over the name
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIStopDaemon());
    EXPECT_EQ(iSCSI_RTS_DAEMON_DEAD, m_iscsi.iSCSIDiscoveryIPSAN(kPortal7, portals));
    EXPECT_EQ(kWatch + kWatch + kWatch + kWatch, Commands());  // status checks and nothing else
    DaemonRuns();
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIStopDaemon());
    EXPECT_EQ(kWatch + "killall -q -9 iscsid; ", Commands());
    EXPECT_TRUE(portals.empty());
}

TEST_F(ISCSI, DiscoveryKeepsThePortalsTargetsAndCutsAddressesAtTheFirstColon) {
    DaemonRuns();
    Reply("iscsiadm -m node", "node.txt");
    Reply("iscsiadm -m discovery -t st -p 192.168.1.8", "discovery.txt");
    std::vector<ISCSIPortal> portals;
    ASSERT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIDiscoveryIPSAN(kPortal8, portals));
    ASSERT_EQ(1u, portals.size());
    EXPECT_STREQ("iqn.2003-01.org.example.san:disk-c", portals[0].szTargetIQN);
    EXPECT_STREQ("192.168.1.8", portals[0].szIPAddr);
    EXPECT_EQ(3260, portals[0].iPort);
    EXPECT_EQ(kWatch + "iscsiadm -m discovery -t st -p 192.168.1.8; iscsiadm -m node; ", Commands());

    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.reportiSCSITargetList(nullptr, portals));
    ASSERT_EQ(5u, portals.size());
    EXPECT_STREQ("[fd00", portals[4].szIPAddr);
    EXPECT_EQ(0, portals[4].iPort);
}

TEST_F(ISCSI, UnsafeTextsNeverReachTheShell) {
    DaemonRuns();
    std::string texts[] = {"", "1.2.3.4;touch x", "$(id)", "a b", "x>y", "a|b", "`id`", "a\nb"};
    std::vector<char*> bad{nullptr};
    for (std::string& text : texts) bad.push_back(&text[0]);
    std::vector<ISCSIPortal> portals;
    std::vector<ISCSIDISK> disks;
    std::vector<SCSIDEVICE> devices;
    SCSIDEVICE device;
    for (char* text : bad) {
        EXPECT_EQ(iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSIDiscoveryIPSAN(text, portals));
        EXPECT_EQ(iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILoginIPSAN(text, disks));
        EXPECT_EQ(iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILoginIPSANTarget(kPortal7, text, devices));
        EXPECT_EQ(iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILoginIPSANDevice(text, kDiskA, 1, device));
        EXPECT_EQ(iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILogoutIPSAN(text));
        EXPECT_EQ(iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILogoutIPSANTarget(text, kDiskA));
        EXPECT_EQ(iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSIRemoveTargetPortal(kPortal7, text));
    }
    EXPECT_EQ("", Commands());
    // The node record goes by target name alone, whatever the address says.
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIRemoveTargetPortal(bad[2], kDiskA));
    EXPECT_EQ("iscsiadm -m node -o delete -T " + std::string(kDiskA) + "; ", Commands());
}

// "[::1]" is a bracket expression to the shell: next to files named "1" and ":" it would reach the tool
// as the two words ": 1".
TEST_F(ISCSI, BracketedAddressesReachTheToolAsWrittenBesideMatchingFiles) {
    DaemonRuns();
    const std::string dir = m_dir / "cwd";
    ASSERT_EQ(0, mkdir(dir.c_str(), 0700));
    for (const char* name : {"1", ":", "a"}) writeFile(dir + "/" + name, "");
    zortest::WorkDir cwd(dir);
    char ip[] = "[::1]", target[] = "[a]";
    std::vector<ISCSIPortal> portals;
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIDiscoveryIPSAN(ip, portals));
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIRemoveTargetPortal(ip, target));
    EXPECT_EQ(kWatch + "iscsiadm -m discovery -t st -p [::1]; iscsiadm -m node; " +
                  "iscsiadm -m node -o delete -T [a]; ",
              Commands());
}

TEST_F(ISCSI, SessionStatusCountAndLunLookupFollowTheToolsOutput) {
    Reply("iscsiadm -m session -P 1", "session-P1.txt");
    Reply("iscsiadm -m session -P 3 -r 12", "session-P3.txt");
    ZR_UINT sid = 99;
    char absent[] = "iqn.2003-01.org.example.san:disk-z";
    EXPECT_EQ(iSCSI_RTS_SESSION_LOGOFF, m_iscsi.getSessionStatus(absent, sid));
    EXPECT_EQ(99u, sid);
    EXPECT_EQ(iSCSI_RTS_SESSION_LOGOFF, m_iscsi.getSessionStatus(kDiskB, sid));  // TRANSPORT WAIT
    EXPECT_EQ(13u, sid);
    EXPECT_EQ(iSCSI_RTS_SESSION_LOGON, m_iscsi.getSessionStatus(kDiskA, sid));
    EXPECT_EQ(12u, sid);
    Commands();

    const std::string status = "iscsiadm -m session -P 1; ", devices = "iscsiadm -m session -P 3 -r 12; ";
    ZR_UINT count = 0;
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIGetSessionDeviceCount(kDiskA, count));
    EXPECT_EQ(2u, count);  // LUN 0 has no disk
    EXPECT_EQ(status + "iscsiadm -m session -R all; " + devices, Commands());
    SCSIDEVICE device;
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIGetAttachedDeviceByLun(kDiskA, 2, device));
    EXPECT_EQ(status + "iscsiadm -m session -R -r 12; " + devices, Commands());
    EXPECT_EQ(4, device.iHost);
    EXPECT_EQ(0, device.iChannel + device.iTarget);
    EXPECT_EQ(2, device.iLun);
    EXPECT_STREQ("/dev/sdd", device.szPath);
    EXPECT_EQ(iSCSI_RTS_DEVICE_INEXISTED, m_iscsi.iSCSIGetAttachedDeviceByLun(kDiskA, 9, device));
    EXPECT_EQ(iSCSI_RTS_SESSION_LOGOFF, m_iscsi.iSCSIGetSessionDeviceCount(kDiskB, count));
}

// One 3 s wait for each portal flow; logging in to all nodes waits, logging out of all does not.
TEST_F(ISCSI, LoginLogsOutALiveSessionFirstAndPortalLogoutSkipsTargetsWithoutSession) {
    DaemonRuns();  // no node list: the target is discovered first
    Reply("iscsiadm -m session -P 1", "session-P1.txt");
    Reply("iscsiadm -m session -P 3 -r 12", "session-P3.txt");
    std::vector<SCSIDEVICE> devices;
    ASSERT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSILoginIPSANTarget(kPortal7, kDiskA, devices));
    ASSERT_EQ(2u, devices.size());
    EXPECT_STREQ("/dev/sdc", devices[0].szPath);
    EXPECT_EQ(1, devices[0].iLun);
    const std::string portal = std::string(" -T ") + kDiskA + " -p 192.168.1.7; ";
    EXPECT_EQ("iscsiadm -m node; iscsiadm -m discovery -t st -p 192.168.1.7; " + kWatch +
                  "iscsiadm -m session -P 1; iscsiadm -m node -u" + portal + "iscsiadm -m node -l" + portal +
                  "iscsiadm -m session -P 1; iscsiadm -m session -P 3 -r 12; ",
              Commands());

    // Of the node list only disk-a has a session; the unsafe name is never put on a shell line.
    Reply("iscsiadm -m node", "node.txt", "192.168.1.7:3260,1 iqn.evil;touch${IFS}x\n");
    Reply("iscsiadm -m session", "session.txt");
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSILogoutIPSAN(kPortal7));
    EXPECT_EQ(kWatch + "iscsiadm -m discovery -t st -p 192.168.1.7; iscsiadm -m node; iscsiadm -m session; " +
                  "iscsiadm -m node -u" + portal + "iscsiadm -m session; ",
              Commands());
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSILoginAll());
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSILogoutALL());
    EXPECT_EQ("iscsiadm -m node -L all; iscsiadm -m node -U all; ", Commands());
}

// Lays a throw-away layer over /etc in a private mount namespace, so the host's files stay untouched. The
// process goes back to the host's namespace, and to its working directory, with the object.
class PrivateEtc {
public:
    explicit PrivateEtc(const std::string& scratch) {
        if (m_host < 0 || unshare(CLONE_NEWNS) != 0) return;
        const std::string script =
            "S=" + scratch +
            " && mount --make-rprivate / && mkdir $S/etc && mount -t tmpfs tmpfs $S/etc"
            " && mkdir $S/etc/up $S/etc/work && mount -t overlay overlay -o lowerdir=/etc,"
            "upperdir=$S/etc/up,workdir=$S/etc/work /etc"
            " && mkdir -p /etc/init.d && cp $S/bin/iscsid-init /etc/init.d/iscsid";
        m_ready = std::system(script.c_str()) == 0;
    }
    ~PrivateEtc() {
        (void)!setns(m_host, CLONE_NEWNS);
        close(m_host);
    }
    bool Ready() const { return m_ready; }

private:
    zortest::WorkDir m_cwd{"."};  // joining a namespace moves to its root
    const int m_host = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
    bool m_ready = false;
};

TEST_F(ISCSI, InitiatorNameAndDaemonRestartInAPrivateEtc) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root for a private mount namespace over /etc";
    PrivateEtc etc(m_dir.Path());
    if (!etc.Ready()) GTEST_SKIP() << "cannot lay a private /etc over the host's";
    DaemonRuns();
    const char* const file = "/etc/iscsi/initiatorname.iscsi";
    char name[300];
    std::memset(name, 'x', sizeof name);  // a copy without its terminator shows as trailing x
    char iqn[] = "iqn.node-1";
    ASSERT_EQ(0, std::system("rm -rf /etc/iscsi"));  // in the layer only
    EXPECT_EQ(iSCSI_RTS_SYSCALL_FAILED, m_iscsi.GetInitiatorIQN(name));
    EXPECT_EQ(iSCSI_RTS_SYSCALL_FAILED, m_iscsi.SetInitiatorIQN(iqn));
    ASSERT_EQ(0, mkdir("/etc/iscsi", 0755));
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.SetInitiatorIQN(iqn));
    EXPECT_EQ("InitiatorName=iqn.node-1", readFile(file));
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.GetInitiatorIQN(name));
    EXPECT_STREQ(iqn, name);
    writeFile(file, readFile(kFakes + "/replies/initiatorname.iscsi"));
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.GetInitiatorIQN(name));
    EXPECT_STREQ("iqn.1993-08.org.debian:01:5e4d3c2b1a09", name);
    writeFile(file, "InitiatorName=" + std::string(290, 'q') + "\n");
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.GetInitiatorIQN(name));
    EXPECT_EQ(std::string(255, 'q'), name);  // cut to 255
    writeFile(file, "# none here\n");
    EXPECT_EQ(iSCSI_RTS_GET_LOCALIQN_FAILED, m_iscsi.GetInitiatorIQN(name));
    EXPECT_EQ(iSCSI_RTS_SUCCEED, m_iscsi.iSCSIRestartDaemon());
    EXPECT_EQ(kWatch + "killall -q -9 iscsid; /etc/init.d/iscsid force-start; ", Commands());
}

}  // namespace
