// FileSystemTest.cpp: ExecPath and the journal on real scratch trees. Trees are compared before and
// after each change; journal lines are matched by pattern.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <regex>
#include <thread>
#include <tuple>
#include <vector>

#include "FileSystem.h"
#include "TestUtil.h"

using zor::ExecPath;
using zor::path_inner::Printer;
using zortest::exitStatusOf;
namespace fs = std::filesystem;

namespace {

// Relative path -> "d", "f:<content>" or "l:<target>", never following links.
std::map<std::string, std::string> snapshot(const std::string& root) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        tree[entry.path().lexically_relative(root).string()] =
            entry.is_symlink()     ? "l:" + fs::read_symlink(entry.path()).string()
            : entry.is_directory() ? "d"
                                   : "f:" + zortest::readFile(entry.path().string());
    }
    return tree;
}

std::string journalName() { return ".filesystem." + std::to_string(getpid()) + ".log"; }

std::vector<std::string> journalLines() { return zortest::linesOf(journalName()); }

// Whether line is a journal line with this tag and message.
bool isLine(const std::string& line, const std::string& tag, const std::string& message) {
    const std::string quoted = std::regex_replace(message, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
    return std::regex_match(line,
                            std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d \[\d+\] )" + tag + " " + quoted));
}

mode_t modeOf(const std::string& path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0;
}

// Works in a scratch directory, where the journal file lands, and ends the journal afterwards.
class FileSystemTest : public ::testing::Test {
protected:
    FileSystemTest() : m_inScratch(m_scratch.Path()) {}
    ~FileSystemTest() override { Printer::DestroyInstance(); }
    std::string at(const std::string& name) const { return m_scratch / name; }
    // A tree with an odd name and links to "outside" (made here too), to nowhere and to a directory.
    void makeTree(const std::string& root) {
        fs::create_directories(at("outside/inner"));
        zortest::writeFile(at("outside/keep"), "must survive");
        fs::create_directories(root + "/sub/deeper");
        zortest::writeFile(root + "/f", "one");
        zortest::writeFile(root + "/sub/g", "two");
        zortest::writeFile(root + "/..\\..", "name of dots and backslashes");
        fs::create_symlink(at("outside"), root + "/sub/dirlink");
        fs::create_symlink(at("outside/keep"), root + "/filelink");
        fs::create_symlink(at("nowhere"), root + "/dangling");
    }

    zortest::ScratchDir m_scratch;
    zortest::WorkDir m_inScratch;
};

// An attacker racing a walk of the tree. As soon as `trigger` is gone (the walk has begun removing inside
// `dir`), it keeps parking the real directory `dir` at `parking`, putting a symbolic link to `target` in
// its place for a while and the real directory back for a moment, until the walk has removed `dir` or
// the attacker is destroyed.
class LinkSwapper {
public:
    LinkSwapper(const std::string& dir, const std::string& trigger, const std::string& parking,
                const std::string& target)
        : m_dir(dir), m_trigger(trigger), m_parking(parking), m_target(target) {
        m_thread = std::thread([this] { run(); });
    }
    ~LinkSwapper() {
        m_stop = true;
        m_thread.join();
    }
    std::atomic<int> m_swaps{0};

private:
    void run() {
        struct stat info;
        while (!m_stop && lstat(m_trigger.c_str(), &info) == 0) {
        }
        while (!m_stop && rename(m_dir.c_str(), m_parking.c_str()) == 0) {
            if (symlink(m_target.c_str(), m_dir.c_str()) == 0) ++m_swaps;
            hold(std::chrono::microseconds(200));
            unlink(m_dir.c_str());
            rename(m_parking.c_str(), m_dir.c_str());
            hold(std::chrono::microseconds(20));
        }
    }
    // Keeps the current state long enough for the walk to take a few steps in it.
    void hold(std::chrono::microseconds span) const {
        const auto until = std::chrono::steady_clock::now() + span;
        while (!m_stop && std::chrono::steady_clock::now() < until) {
        }
    }

    const std::string m_dir, m_trigger, m_parking, m_target;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

TEST_F(FileSystemTest, RemoveClearAndMoveNeverFollowALinkSwappedInDuringTheWalk) {
    const auto fill = [&](const std::string& dir, const char* content) {
        for (int i = 0; i < 100; ++i) zortest::writeFile(at(dir + "/f" + std::to_string(i)), content);
    };
    fs::create_directories(at("outside"));
    fill("outside", "victim");
    fs::create_directories(at("dest"));
    const auto outside = snapshot(at("outside"));
    const int descriptors = zortest::openDescriptorCount();
    int damaged = 0, swaps = 0;
    for (int round = 0; round < 60; ++round) {
        fs::create_directories(at("t/sub/deeper"));
        fill("t/sub", "mine");
        {
            // The first name readdir gives is the entry the walk removes first.
            const fs::path first = fs::directory_iterator(at("t/sub"))->path();
            LinkSwapper attacker(at("t/sub"), first.string(), at("parking"), at("outside"));
            ExecPath tree(at("t"));
            if (round % 3 == 0) tree.Remove(1);
            if (round % 3 == 1) tree.ClearDir(0);
            if (round % 3 == 2) tree.Move(at("dest"));
            swaps += attacker.m_swaps;
        }
        if (snapshot(at("outside")) != outside) {
            ++damaged;
            fill("outside", "victim");
        }
        for (const char* left : {"t", "parking", "dest/t"}) fs::remove_all(at(left));
    }
    EXPECT_EQ(0, damaged) << "of 60 rounds changed the outside directory";
    EXPECT_GT(swaps, 0) << "the attacker never got in, so the walk was never tested";
    EXPECT_EQ(descriptors, zortest::openDescriptorCount());
}

// A walk holds a descriptor per level: where they run out, it must stop there, keep what it could not
// reach, say so and leak nothing.
TEST_F(FileSystemTest, WalksStopWhereDescriptorsRunOutAndLeakNone) {
    std::string chain = at("deep");
    for (int level = 0; level < 100; ++level) chain += "/d";
    fs::create_directories(chain);
    const int status = exitStatusOf([&] {  // the number of the first check that failed
        const int descriptors = zortest::openDescriptorCount();
        struct rlimit limit;
        if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
        struct rlimit scarce = limit;
        scarce.rlim_cur = static_cast<rlim_t>(descriptors) + 3 + 40;
        if (setrlimit(RLIMIT_NOFILE, &scarce) != 0) return 2;
        if (ExecPath(at("deep")).GetDirectoryContentSize() != -1) return 3;
        if (ExecPath(at("deep")).Remove(1) == 0 || !fs::exists(chain)) return 4;
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || zortest::openDescriptorCount() != descriptors) return 5;
        return ExecPath(at("deep")).Remove(1) == 0 && !fs::exists(at("deep")) ? 0 : 6;
    });
    EXPECT_EQ(0, status) << "failed check number " << status;
}

TEST_F(FileSystemTest, JournalIsOffUntilSwitchedOnThenFixedAndLinesFromManyThreadsStayWhole) {
    ASSERT_EQ(0, ExecPath(at("quiet")).CreateDir());
    EXPECT_FALSE(fs::exists(journalName()));
    zor::Path::SetOutput(1);
    zor::Path::SetOutput(1);
    zor::Path::SetOutput(0);  // too late: the first successful call decided
    ASSERT_EQ(0, ExecPath(at("p%%q%s%d")).CreateDir());
    auto* printer = Printer::Instance();
    printer->PrintCreate("%s", std::string(5000, 'x').c_str());
    std::vector<std::string> lines = journalLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("// xxxx-xx-xxTxx:xx:xx [thread_id] TAGS [src_path] => [dst_path]", lines[0]);
    EXPECT_TRUE(isLine(lines[1], "CREATE", "[0] [" + at("p%q%s%d") + "]")) << lines[1];
    EXPECT_TRUE(isLine(lines[2], "CREATE", std::string(4095, 'x'))) << lines[2].size();

    printer->Dispose();  // closed: lines are dropped until the next Initialize
    printer->PrintRemove("[%d] [%s]", 0, "dropped");
    zor::Path::SetOutput(1);
    zortest::onThreads(4, [](int t) {
        for (int i = 0; i < 200; ++i) Printer::Instance()->PrintRename("[%d] [%d] => [%s]", t, i, "x");
    });
    lines = journalLines();
    ASSERT_EQ(804u, lines.size());
    EXPECT_EQ(lines[0], lines[3]);
    const std::regex whole(R"(\S+ \[\d+\] RENAME \[\d\] \[\d+\] => \[x\])");
    for (size_t i = 4; i < lines.size(); ++i) EXPECT_TRUE(std::regex_match(lines[i], whole)) << lines[i];
}

// The journal's name is easy to guess, so another user may plant something there first. Each plant
// must leave the journal off and untouched, as an unopenable file does. Run in a child, whose process
// id names a fresh journal.
TEST_F(FileSystemTest, JournalRefusesALinkAPipeOrAHardLinkPlantedAtItsName) {
    zortest::writeFile(at("victim"), "precious\n");
    Printer::DestroyInstance();
    const int status = exitStatusOf([&] {  // the number of the first check that failed
        const std::string name = journalName();
        const auto journalStaysOff = [&] {
            zor::Path::SetOutput(1);  // refused, so nothing is fixed and a later call tries again
            return ExecPath("made").CreateDir() == 0 && ExecPath("made").Remove(0) == 0;
        };
        if (symlink(at("victim").c_str(), name.c_str()) != 0 || !journalStaysOff()) return 1;
        if (zortest::readFile(at("victim")) != "precious\n") return 2;
        if (unlink(name.c_str()) != 0 || mkfifo(name.c_str(), 0600) != 0) return 3;
        if (!journalStaysOff()) return 4;  // a pipe without a reader would block an open for writing
        if (unlink(name.c_str()) != 0 || link(at("victim").c_str(), name.c_str()) != 0) return 5;
        if (!journalStaysOff() || zortest::readFile(at("victim")) != "precious\n") return 6;
        if (unlink(name.c_str()) != 0) return 7;
        zor::Path::SetOutput(1);
        if (ExecPath("made").CreateDir() != 0 || modeOf(name) != (0600 & ~umask(0))) return 8;
        return journalLines().size() == 2 ? 0 : 9;
    });
    EXPECT_EQ(0, status) << "failed check number " << status;
}

// A name holding a line break must not start a line of its own that reads as another entry.
TEST_F(FileSystemTest, JournalEscapesLineBreaksSoANameCannotForgeAnEntry) {
    const std::string forged = "2024-01-02T03:04:05 [1] DELETE [0] [precious]";
    zor::Path::SetOutput(1);
    ASSERT_EQ(0, ExecPath(at("a\n" + forged)).CreateDir());
    ExecPath renamed(at("a\n" + forged));
    ASSERT_EQ(0, renamed.Rename("b\n" + forged));
    const std::vector<std::string> lines = journalLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_TRUE(isLine(lines[1], "CREATE", "[0] [" + at("a\\n" + forged) + "]")) << lines[1];
    EXPECT_TRUE(
        isLine(lines[2], "RENAME", "[0] [" + at("a\\n" + forged) + "] => [" + at("b\\n" + forged) + "]"))
        << lines[2];
}

TEST_F(FileSystemTest, SuperuserCreatesTheWholeChainRootMostFirst) {
    if (geteuid() != 0) GTEST_SKIP() << "needs the superuser: mkdir inside a 0600 directory";
    zor::Path::SetOutput(1);
    const mode_t mask = umask(0);
    umask(mask);
    ASSERT_EQ(0, ExecPath(at("a/b/c")).CreateDir());
    for (const char* dir : {"a", "a/b", "a/b/c"}) EXPECT_EQ(0600 & ~mask, modeOf(at(dir))) << dir;
    zortest::writeFile(at("file"), "");
    EXPECT_EQ(0, ExecPath(at("file")).CreateDir());  // something exists there: nothing to do
    EXPECT_EQ(0, ExecPath(at("a")).AssureExist());
    EXPECT_EQ(0, ExecPath(at("a")).CreateSubDir("/x"));
    EXPECT_TRUE(fs::is_directory(at("a/x")));
    EXPECT_EQ(zor::E_FAILED_CREATE_DIR, ExecPath(at("file/under")).CreateDir());
    fs::create_directories(at("w/v"));
    {
        zortest::WorkDir below(at("w/v"));
        EXPECT_EQ(0, ExecPath("../../r/s").CreateDir());
    }
    EXPECT_TRUE(fs::is_directory(at("r/s")));
    const std::vector<std::string> lines = journalLines();
    ASSERT_EQ(8u, lines.size());
    EXPECT_TRUE(isLine(lines[1], "CREATE", "[0] [" + at("a") + "]"));
    EXPECT_TRUE(isLine(lines[3], "CREATE", "[0] [" + at("a/b/c") + "]"));
    EXPECT_TRUE(isLine(lines[5], "CREATE", "[-1] [" + at("file/under") + "]"));
    EXPECT_TRUE(isLine(lines[6], "CREATE", "[0] [../../r]"));
    EXPECT_TRUE(isLine(lines[7], "CREATE", "[0] [../../r/s]"));
}

// An ordinary user cannot enter the 0600 directory it just made. Run in a child that drops to nobody.
TEST_F(FileSystemTest, OrdinaryUserStopsAfterTheFirstLevelAndCannotListUnreadableDirs) {
    if (geteuid() != 0) GTEST_SKIP() << "cannot drop privileges without being the superuser";
    ASSERT_EQ(0, chmod(m_scratch.Path().c_str(), 0777));
    ASSERT_EQ(0, mkdir(at("closed").c_str(), 0));
    Printer::DestroyInstance();
    const int status = exitStatusOf([&] {  // the number of the first check that failed
        if (setgid(65534) != 0 || setuid(65534) != 0) return 90;
        zor::Path::SetOutput(1);
        if (ExecPath("./a/b/c").CreateDir() != zor::E_FAILED_CREATE_DIR) return 1;
        if (modeOf("a") != (0600 & ~umask(0))) return 2;
        const std::vector<std::string> lines = journalLines();
        if (lines.size() != 3 || !isLine(lines[1], "CREATE", "[0] [./a]")) return 3;
        if (!isLine(lines[2], "CREATE", "[-1] [./a/b]")) return 4;
        std::list<std::string> names;
        return ExecPath("closed").GetFileList(names, 0) != zor::E_FAILED_OPEN_DIR ? 5 : 0;
    });
    if (status == 90) GTEST_SKIP() << "setuid to nobody (65534) failed";
    EXPECT_EQ(0, status) << "failed check number " << status;
}

TEST_F(FileSystemTest, RemoveClearAndMoveTakeLinksAlongButNeverWhatTheyPointAtNorIntoThemselves) {
    for (const char* root : {"t", "c", "m"}) makeTree(at(root));
    fs::create_directories(at("dest"));
    const auto tree = snapshot(at("m"));
    const auto outside = snapshot(at("outside"));
    zor::Path::SetOutput(1);
    EXPECT_EQ(-1, ExecPath(at("t")).Remove(0));  // not empty
    EXPECT_EQ(0, ExecPath(at("t")).Remove(1));
    EXPECT_FALSE(fs::exists(fs::symlink_status(at("t"))));
    EXPECT_EQ(0, ExecPath(at("t")).Remove(1));  // gone already: nothing to do, nothing journalled
    const std::vector<std::string> lines = journalLines();
    ASSERT_EQ(5u, lines.size());  // header, the refused DELETE, "sub/deeper", "sub", the tree itself
    EXPECT_TRUE(isLine(lines[1], "DELETE", "[-1] [" + at("t") + "]"));
    EXPECT_TRUE(isLine(lines[4], "DELETE", "[0] [" + at("t") + "]"));

    EXPECT_EQ(0, ExecPath(at("c")).ClearDir(zor::FT_REG));  // every type goes, whatever the filter
    EXPECT_TRUE(snapshot(at("c")).empty());
    EXPECT_TRUE(fs::is_directory(at("c")));
    EXPECT_EQ(zor::E_FS_ISNOT_DIR, ExecPath(at("outside/keep")).ClearDir(0));
    EXPECT_EQ(outside, snapshot(at("outside")));

    ExecPath moved(at("m"));
    EXPECT_EQ(-1, moved.Move(at("m/sub")));
    EXPECT_EQ(EINVAL, errno);
    fs::create_symlink(at("m/sub"), at("into"));
    EXPECT_EQ(-1, moved.Move(at("into")));  // below itself through a link
    EXPECT_EQ(tree, snapshot(at("m")));
    fs::create_directories(at("dest/m"));
    fs::create_symlink(at("outside"), at("dest/m/sub"));  // planted where a directory is to be made
    EXPECT_EQ(-1, moved.Move(at("dest")));
    EXPECT_EQ(outside, snapshot(at("outside")));
    EXPECT_EQ("two", zortest::readFile(at("m/sub/g")));  // kept, as it could not be moved
    fs::remove(at("dest/m/sub"));
    ASSERT_EQ(0, moved.Move(at("dest")));
    EXPECT_EQ(at("dest/m"), moved.ToString());
    EXPECT_FALSE(fs::exists(at("m")));
    EXPECT_EQ(tree, snapshot(at("dest/m")));
    EXPECT_EQ(outside, snapshot(at("outside")));

    ExecPath file(at("dest/m/f"));
    ASSERT_EQ(0, file.Move(at("")));
    EXPECT_EQ(at("f"), file.ToString());
    EXPECT_EQ("one", zortest::readFile(at("f")));
}

// A tree that cannot be renamed across file systems must stay where it was, whole.
TEST_F(FileSystemTest, MoveThatCannotRenameKeepsTheSource) {
    struct stat shm, tmp;
    if (stat("/dev/shm", &shm) != 0 || stat(m_scratch.Path().c_str(), &tmp) != 0 ||
        shm.st_dev == tmp.st_dev) {
        GTEST_SKIP() << "needs /dev/shm on a file system other than the scratch directory's";
    }
    char templ[] = "/dev/shm/zortest.XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(templ));
    const std::string source = std::string(templ) + "/t";
    makeTree(source);
    auto kept = snapshot(source);
    ExecPath moving(source);
    EXPECT_EQ(-1, moving.Move(m_scratch.Path()));
    kept.erase("sub/deeper");  // empty, so it did move
    EXPECT_EQ(kept, snapshot(source));
    EXPECT_TRUE(fs::is_directory(at("t/sub/deeper")));
    EXPECT_EQ(source, moving.ToString());
    EXPECT_EQ(0, ExecPath(templ).Remove(1));
}

TEST_F(FileSystemTest, RenameRefusesBadNamesAndFollowsTheFile) {
    zortest::writeFile(at("old"), "data");
    zor::Path::SetOutput(1);
    ExecPath file(at("old"));
    for (const std::string& bad : {std::string("a/b"), std::string("a\\b"), std::string(256, 'n')}) {
        EXPECT_EQ(zor::E_FS_INVAILED_NAME, file.Rename(bad));
    }
    EXPECT_EQ(0, file.Rename(std::string(255, 'n')));
    EXPECT_EQ(at(std::string(255, 'n')), file.ToString());
    EXPECT_EQ("data", zortest::readFile(file.ToString()));
    EXPECT_EQ(-1, ExecPath(at("missing")).Rename("y"));
    const std::vector<std::string> lines = journalLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_TRUE(isLine(lines[2], "RENAME", "[-1] [" + at("missing") + "] => [" + at("y") + "]"));
}

TEST_F(FileSystemTest, ListingsFilterByTypePrefixAndSuffixWithoutLeaking) {
    fs::create_directories(at("d/logs"));
    zortest::writeFile(at("d/log1"), "1");
    zortest::writeFile(at("d/log2.txt"), "22");
    zortest::writeFile(at("d/.hidden"), "");
    fs::create_symlink("log1", at("d/loglink"));
    const int descriptors = zortest::openDescriptorCount();
    ExecPath dir(at("d"));
    std::list<std::string> names{"kept"};
    EXPECT_EQ(0, dir.GetFileListByPre(names, "log", zor::FT_REG));
    names.sort();
    EXPECT_EQ((std::list<std::string>{"kept", "log1", "log2.txt"}), names);
    names.clear();
    EXPECT_EQ(0, dir.GetFileList(names, zor::FT_DIRC | zor::FT_LINK));
    names.sort();
    EXPECT_EQ((std::list<std::string>{"loglink", "logs"}), names);
    std::list<zor::FileInfo> infos;
    EXPECT_EQ(0, dir.GetFileListBySuffix(infos, ".txt", 0));
    ASSERT_EQ(1u, infos.size());
    const zor::FileInfo& info = infos.front();
    EXPECT_EQ(std::make_tuple(int(zor::FT_REG), ZR_Int64(2), at("d") + "/", std::string("log2.txt"),
                              std::string(".txt")),
              std::make_tuple(info.FileType, info.FileSize, info.BaseDir, info.Name, info.Suffix));
    EXPECT_EQ(1, ExecPath(at("d/.hidden")).GetFileInfo().IsHidden);
    EXPECT_EQ(zor::E_FS_ISNOT_DIR, ExecPath(at("d/log1")).GetFileList(names, 0));
    EXPECT_EQ(zor::E_FS_ISNOT_DIR, ExecPath(at("none")).GetFileList(names, 0));
    EXPECT_EQ(descriptors, zortest::openDescriptorCount());

    // Content size: file bytes plus the link's own size; directories add nothing.
    EXPECT_EQ(1 + 2 + 4, dir.GetDirectoryContentSize());
    EXPECT_EQ(-1, ExecPath(at("none")).GetDirectoryContentSize());
}

}  // namespace
