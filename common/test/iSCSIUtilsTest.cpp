// Tests of CiSCSIUtils against stand-in tools (common/test/fake-iscsi): fake iscsiadm, ps, grep, killall
// and init script go first on PATH, replay canned output in the real tools' format and record the
// command lines they get and the files their output went to.
#include "iSCSIUtils.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "TestUtil.h"

namespace {

using zor::CiSCSIUtils;
using zortest::readFile;
using zortest::writeFile;
typedef std::vector<std::string> Lines;

const std::string kSourceFile = __FILE__;
const std::string kFakes = kSourceFile.substr(0, kSourceFile.rfind('/')) + "/fake-iscsi";
char kDiskA[] = "iqn.2003-01.org.example.san:disk-a";
char kDiskB[] = "iqn.2003-01.org.example.san:disk-b";
char kDiskC[] = "iqn.2003-01.org.example.san:disk-c";
char kPortal7[] = "192.168.1.7";
char kPortal8[] = "192.168.1.8";
const char* const kWatch[] = {"ps -e", "grep iscsid"};

// Opens the protected members to the tests.
class Probe : public CiSCSIUtils {
public:
    Probe() : CiSCSIUtils(0) { Initialize(); }
    using CiSCSIUtils::executeCommand;
    using CiSCSIUtils::getSessionDevices;
    using CiSCSIUtils::getSessionStatus;
    using CiSCSIUtils::removeFile;
    using CiSCSIUtils::reportiSCSITargetList;
};

Lines lines(const std::string& text) {
    std::istringstream in(text);
    Lines result;
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
}

// A forked child running `body`; what body returns comes back through a pipe ("" when its checks held).
struct Child {
    explicit Child(const std::function<std::string()>& body) {
        if (pipe(fds) != 0) throw std::runtime_error("pipe");
        pid = fork();
        if (pid == 0) {
            const std::string report = body();
            (void)!write(fds[1], report.data(), report.size());
            _exit(0);
        }
        close(fds[1]);
    }
    bool Exited(int seconds) {  // true when the child ended within `seconds`
        for (int slice = 0; slice < seconds * 20 && !reaped; ++slice) {
            if (!(reaped = waitpid(pid, nullptr, WNOHANG) == pid)) usleep(50000);
        }
        return reaped;
    }
    std::string Kill() {  // ends the child if it still runs; returns its report
        if (!reaped) kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
        std::string report;
        char buffer[512];
        for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;) report.append(buffer, n);
        close(fds[0]);
        return report;
    }
    int fds[2];
    pid_t pid;
    bool reaped = false;
};

bool isOutputName(const std::string& name) {  // "/tmp/<digits>.iscsi"
    const size_t end = name.find_first_not_of("0123456789", 5);
    return name.compare(0, 5, "/tmp/") == 0 && end > 5 && name.compare(end, std::string::npos, ".iscsi") == 0;
}

std::string check(bool ok, const std::string& what) { return ok ? "" : what + "; "; }

class ISCSI : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string bin = m_dir / "bin";
        ASSERT_EQ(0, std::system(("cp -r '" + kFakes + "/bin' '" + bin + "' && chmod 755 '" + bin +
                                  "'/* && mkdir '" + (m_dir / "replies") + "'")
                                     .c_str()));
        m_path = std::getenv("PATH");
        setenv("ZOR_FAKE_DIR", m_dir.Path().c_str(), 1);
        setenv("PATH", (bin + ":" + m_path).c_str(), 1);
    }
    void TearDown() override {
        for (const std::string& out : lines(readFile(m_dir / "outputs.log"))) {
            if (out.compare(0, 5, "/tmp/") != 0) continue;  // the pipe between ps and grep
            EXPECT_TRUE(isOutputName(out)) << out;
            EXPECT_NE(0, access(out.c_str(), F_OK)) << out << " was left behind";
        }
        setenv("PATH", m_path.c_str(), 1);
    }
    // Makes the stand-ins answer `command` with the canned file `reply` (or with `text`).
    void Reply(const std::string& command, const std::string& reply, const std::string& text = "") {
        std::string key = command;
        for (char& c : key) {
            if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-') c = '_';
        }
        writeFile(m_dir / ("replies/" + key), readFile(kFakes + "/replies/" + reply) + text);
    }
    void DaemonRuns() { Reply("ps -e", "ps-running.txt"); }
    Lines Commands() {  // the command lines run since the last call
        const Lines commands = lines(readFile(m_dir / "commands.log"));
        std::remove((m_dir / "commands.log").c_str());
        return commands;
    }

    zortest::ScratchDir m_dir;
    std::string m_path;
    Probe m_iscsi;
};

TEST_F(ISCSI, RunnerRunsOnlyTableCommandsIntoPrivateFilesAndLeavesRandomAlone) {
    std::string out = "untouched";
    EXPECT_EQ(zor::iSCSI_RTS_FAILED, m_iscsi.executeCommand(85, "", out));
    EXPECT_EQ(zor::iSCSI_RTS_FAILED, m_iscsi.executeCommand(101, "", out));
    EXPECT_EQ("untouched", out);
    EXPECT_TRUE(Commands().empty());

    srandom(7);
    const long expected = random();
    srandom(7);
    std::string first, last, tooLong;
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.executeCommand(86, "", first));
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.executeCommand(100, " -T t", last));
    EXPECT_EQ(expected, random());
    EXPECT_EQ((Lines{"iscsiadm -m node", "iscsiadm -m node -o delete -T t"}), Commands());
    EXPECT_NE(first, last);
    struct stat info;
    ASSERT_EQ(0, lstat(first.c_str(), &info));
    EXPECT_EQ(S_IFREG | 0600u, info.st_mode);

    // A line past 127 characters would lose its redirection if cut, so it does not run at all.
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.executeCommand(86, " -T " + std::string(120, 'x'), tooLong));
    EXPECT_TRUE(Commands().empty());
    EXPECT_EQ(0, access(tooLong.c_str(), F_OK));
    for (const std::string& file : {first, last, tooLong}) m_iscsi.removeFile(file);
}

TEST_F(ISCSI, DaemonStatusDecidesStopAndDiscovery) {
    std::vector<zor::ISCSIPortal> portals;
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSIStopDaemon());  // ps shows no iscsid
    EXPECT_EQ(zor::iSCSI_RTS_DAEMON_DOWN, m_iscsi.iSCSIDiscoveryIPSAN(kPortal7, portals));
    Reply("ps -e", "ps-dead.txt");  // the 'D' test wins over the name
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSIStopDaemon());
    EXPECT_EQ(zor::iSCSI_RTS_DAEMON_DEAD, m_iscsi.iSCSIDiscoveryIPSAN(kPortal7, portals));
    Lines fourChecks;
    for (int i = 0; i < 4; ++i) fourChecks.insert(fourChecks.end(), kWatch, kWatch + 2);
    EXPECT_EQ(fourChecks, Commands());  // status checks and nothing else
    DaemonRuns();
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSIStopDaemon());
    EXPECT_EQ((Lines{kWatch[0], kWatch[1], "killall -q -9 iscsid"}), Commands());
    EXPECT_TRUE(portals.empty());
}

TEST_F(ISCSI, DiscoveryKeepsThePortalsTargetsAndCutsAddressesAtTheFirstColon) {
    DaemonRuns();
    Reply("iscsiadm -m node", "node.txt");
    Reply("iscsiadm -m discovery -t st -p 192.168.1.8", "discovery.txt");
    std::vector<zor::ISCSIPortal> portals;
    ASSERT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSIDiscoveryIPSAN(kPortal8, portals));
    ASSERT_EQ(1u, portals.size());
    EXPECT_STREQ(kDiskC, portals[0].szTargetIQN);
    EXPECT_STREQ("192.168.1.8", portals[0].szIPAddr);
    EXPECT_EQ(3260, portals[0].iPort);
    EXPECT_EQ((Lines{kWatch[0], kWatch[1], "iscsiadm -m discovery -t st -p 192.168.1.8", "iscsiadm -m node"}),
              Commands());

    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.reportiSCSITargetList(nullptr, portals));
    ASSERT_EQ(5u, portals.size());
    EXPECT_STREQ("[fd00", portals[4].szIPAddr);
    EXPECT_EQ(0, portals[4].iPort);
}

TEST_F(ISCSI, UnsafeTextsNeverReachTheShell) {
    DaemonRuns();
    char* bad[] = {nullptr,
                   const_cast<char*>(""),
                   const_cast<char*>("1.2.3.4;touch x"),
                   const_cast<char*>("$(id)"),
                   const_cast<char*>("a b"),
                   const_cast<char*>("x>y"),
                   const_cast<char*>("a|b"),
                   const_cast<char*>("`id`"),
                   const_cast<char*>("a\nb")};
    std::vector<zor::ISCSIPortal> portals;
    std::vector<zor::ISCSIDISK> disks;
    std::vector<zor::SCSIDEVICE> devices;
    zor::SCSIDEVICE device;
    for (char* text : bad) {
        EXPECT_EQ(zor::iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSIDiscoveryIPSAN(text, portals));
        EXPECT_EQ(zor::iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILoginIPSAN(text, disks));
        EXPECT_EQ(zor::iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILoginIPSANTarget(kPortal7, text, devices));
        EXPECT_EQ(zor::iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILoginIPSANDevice(text, kDiskA, 1, device));
        EXPECT_EQ(zor::iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILogoutIPSAN(text));
        EXPECT_EQ(zor::iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSILogoutIPSANTarget(text, kDiskA));
        EXPECT_EQ(zor::iSCSI_RTS_INVALID_PARAM, m_iscsi.iSCSIRemoveTargetPortal(kPortal7, text));
    }
    EXPECT_TRUE(Commands().empty());
    // The node record goes by target name alone, whatever the address says.
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSIRemoveTargetPortal(bad[2], kDiskA));
    EXPECT_EQ(Lines{"iscsiadm -m node -o delete -T " + std::string(kDiskA)}, Commands());
}

TEST_F(ISCSI, SessionStatusCountAndLunLookupFollowTheToolsOutput) {
    Reply("iscsiadm -m session -P 1", "session-P1.txt");
    Reply("iscsiadm -m session -P 3 -r 12", "session-P3.txt");
    ZR_UINT sid = 99;
    char absent[] = "iqn.2003-01.org.example.san:disk-z";
    EXPECT_EQ(zor::iSCSI_RTS_SESSION_LOGOFF, m_iscsi.getSessionStatus(absent, sid));
    EXPECT_EQ(99u, sid);
    EXPECT_EQ(zor::iSCSI_RTS_SESSION_LOGOFF, m_iscsi.getSessionStatus(kDiskB, sid));  // TRANSPORT WAIT
    EXPECT_EQ(13u, sid);
    EXPECT_EQ(zor::iSCSI_RTS_SESSION_LOGON, m_iscsi.getSessionStatus(kDiskA, sid));
    EXPECT_EQ(12u, sid);
    Commands();

    ZR_UINT count = 0;
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSIGetSessionDeviceCount(kDiskA, count));
    EXPECT_EQ(2u, count);  // LUN 0 has no disk
    EXPECT_EQ(
        (Lines{"iscsiadm -m session -P 1", "iscsiadm -m session -R all", "iscsiadm -m session -P 3 -r 12"}),
        Commands());
    zor::SCSIDEVICE device;
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSIGetAttachedDeviceByLun(kDiskA, 2, device));
    EXPECT_EQ(
        (Lines{"iscsiadm -m session -P 1", "iscsiadm -m session -R -r 12", "iscsiadm -m session -P 3 -r 12"}),
        Commands());
    EXPECT_EQ(4, device.iHost);
    EXPECT_EQ(0, device.iChannel + device.iTarget);
    EXPECT_EQ(2, device.iLun);
    EXPECT_STREQ("/dev/sdd", device.szPath);
    EXPECT_EQ(zor::iSCSI_RTS_DEVICE_INEXISTED, m_iscsi.iSCSIGetAttachedDeviceByLun(kDiskA, 9, device));
    EXPECT_EQ(zor::iSCSI_RTS_SESSION_LOGOFF, m_iscsi.iSCSIGetSessionDeviceCount(kDiskB, count));
}

TEST_F(ISCSI, DeviceReaderSpinsOnAChannelLineFollowedByAPlainLine) {
    Reply("iscsiadm -m session -P 3 -r 77", "session-P3.txt", "\t\tscsi4 Channel 00 Id 0 Lun: 3\n\n");
    Child child([this] {
        std::vector<zor::SCSIDEVICE> devices;
        m_iscsi.getSessionDevices(77, devices);
        return std::string("returned");
    });
    // Wait until the tool has run, so the output file is known, then give the reader time to return.
    for (int slice = 0; slice < 1200 && lines(readFile(m_dir / "outputs.log")).empty(); ++slice)
        usleep(50000);
    EXPECT_FALSE(child.Exited(2));
    EXPECT_EQ("", child.Kill());
    for (const std::string& out : lines(readFile(m_dir / "outputs.log"))) std::remove(out.c_str());
}

TEST_F(ISCSI, LoginLogsOutALiveSessionFirstThenListsTheNewDisks) {
    DaemonRuns();  // no node list: the target is discovered first
    Reply("iscsiadm -m session -P 1", "session-P1.txt");
    Reply("iscsiadm -m session -P 3 -r 12", "session-P3.txt");
    std::vector<zor::SCSIDEVICE> devices;
    ASSERT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSILoginIPSANTarget(kPortal7, kDiskA, devices));
    ASSERT_EQ(2u, devices.size());
    EXPECT_STREQ("/dev/sdc", devices[0].szPath);
    EXPECT_EQ(1, devices[0].iLun);
    const std::string portal = std::string(" -T ") + kDiskA + " -p 192.168.1.7";
    EXPECT_EQ(
        (Lines{"iscsiadm -m node", "iscsiadm -m discovery -t st -p 192.168.1.7", kWatch[0], kWatch[1],
               "iscsiadm -m session -P 1", "iscsiadm -m node -u" + portal, "iscsiadm -m node -l" + portal,
               "iscsiadm -m session -P 1", "iscsiadm -m session -P 3 -r 12"}),
        Commands());
}

TEST_F(ISCSI, PortalLogoutSkipsTargetsWithoutSessionAndUnsafeNames) {
    DaemonRuns();
    Reply("iscsiadm -m node", "node.txt", "192.168.1.7:3260,1 iqn.evil;touch${IFS}x\n");
    Reply("iscsiadm -m session", "session.txt");
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSILogoutIPSAN(kPortal7));
    EXPECT_EQ(
        (Lines{kWatch[0], kWatch[1], "iscsiadm -m discovery -t st -p 192.168.1.7", "iscsiadm -m node",
               "iscsiadm -m session", "iscsiadm -m node -u -T " + std::string(kDiskA) + " -p 192.168.1.7",
               "iscsiadm -m session"}),
        Commands());
}

TEST_F(ISCSI, LoginAllWaitsThenLogoutAllDoesNot) {
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSILoginAll());
    EXPECT_EQ(zor::iSCSI_RTS_SUCCEED, m_iscsi.iSCSILogoutALL());
    EXPECT_EQ((Lines{"iscsiadm -m node -L all", "iscsiadm -m node -U all"}), Commands());
}

// Mounts a throw-away layer over /etc in a private mount namespace, so the host's files stay untouched.
std::string privateEtc(const std::string& scratch) {
    const std::string layer = scratch + "/etc-layer";
    const std::string options = "lowerdir=/etc,upperdir=" + layer + "/upper,workdir=" + layer + "/work";
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mkdir(layer.c_str(), 0700) != 0 || mount("tmpfs", layer.c_str(), "tmpfs", 0, nullptr) != 0 ||
        mkdir((layer + "/upper").c_str(), 0755) != 0 || mkdir((layer + "/work").c_str(), 0755) != 0 ||
        mount("overlay", "/etc", "overlay", 0, options.c_str()) != 0) {
        return std::string("SKIP no private /etc: ") + std::strerror(errno);
    }
    return std::system(
               ("mkdir -p /etc/init.d && cp " + scratch + "/bin/iscsid-init /etc/init.d/iscsid").c_str()) == 0
               ? ""
               : "SKIP cannot place the init script";
}

TEST_F(ISCSI, InitiatorNameAndDaemonRestartInAPrivateEtc) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root for a private mount namespace over /etc";
    DaemonRuns();
    Child child([this] {
        std::string report = privateEtc(m_dir.Path());
        if (!report.empty()) return report;
        char name[300];
        std::memset(name, 'x', sizeof name);
        char iqn[] = "iqn.node-1";
        (void)!std::system("rm -rf /etc/iscsi");  // in the layer only
        report += check(m_iscsi.GetInitiatorIQN(name) == zor::iSCSI_RTS_SYSCALL_FAILED, "get without file");
        report += check(m_iscsi.SetInitiatorIQN(iqn) == zor::iSCSI_RTS_SYSCALL_FAILED, "set without dir");
        mkdir("/etc/iscsi", 0755);
        m_iscsi.SetInitiatorIQN(iqn);
        report += check(readFile("/etc/iscsi/initiatorname.iscsi") == "InitiatorName=iqn.node-1", "set");
        report += check(m_iscsi.GetInitiatorIQN(name) == zor::iSCSI_RTS_SUCCEED && !strcmp(name, iqn), "get");
        writeFile("/etc/iscsi/initiatorname.iscsi", readFile(kFakes + "/replies/initiatorname.iscsi"));
        m_iscsi.GetInitiatorIQN(name);
        report += check(std::string(name) == "iqn.1993-08.org.debian:01:5e4d3c2b1a09", "debian file");
        writeFile("/etc/iscsi/initiatorname.iscsi", "InitiatorName=" + std::string(290, 'q') + "\n");
        m_iscsi.GetInitiatorIQN(name);
        report += check(std::string(name) == std::string(255, 'q'), "long name is cut to 255");
        writeFile("/etc/iscsi/initiatorname.iscsi", "# none here\n");
        report += check(m_iscsi.GetInitiatorIQN(name) == zor::iSCSI_RTS_GET_LOCALIQN_FAILED, "no line");
        report += check(m_iscsi.iSCSIRestartDaemon() == zor::iSCSI_RTS_SUCCEED, "restart");
        return report;
    });
    ASSERT_TRUE(child.Exited(120));
    const std::string report = child.Kill();
    if (report.compare(0, 4, "SKIP") == 0) GTEST_SKIP() << report;
    EXPECT_EQ("", report);
    EXPECT_EQ((Lines{kWatch[0], kWatch[1], "killall -q -9 iscsid", "/etc/init.d/iscsid force-start"}),
              Commands());
}

}  // namespace
