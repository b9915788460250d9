#include "SysUtils.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include "TestUtil.h"

namespace {

using zor::SysUtils;

TEST(SysUtilsPriority, LevelsFollowTheirNamesUnderRealTimePolicies) {
    ASSERT_EQ(1, SysUtils::GetOSMinPriority(SCHED_FIFO));
    ASSERT_EQ(99, SysUtils::GetOSMaxPriority(SCHED_FIFO));
    const int fifo[] = {1, 25, 50, 99, 74};  // lowest, low, normal, highest, high
    for (int level = 0; level <= 4; ++level) {
        EXPECT_EQ(fifo[level], SysUtils::MapPriority(level, SCHED_FIFO)) << level;
        EXPECT_EQ(0, SysUtils::MapPriority(level, SCHED_OTHER)) << level;
    }
    EXPECT_EQ(50, SysUtils::MapPriority(17, SCHED_RR));  // unknown levels map like normal

    EXPECT_EQ(3, SysUtils::ReverseMapPriority(10, SCHED_FIFO));  // every real-time priority reads back as 3
    EXPECT_EQ(3, SysUtils::ReverseMapPriority(1, SCHED_RR));
    EXPECT_EQ(0, SysUtils::ReverseMapPriority(0, SCHED_OTHER));
}

TEST(SysUtilsFiles, TypeTestsLookAtTheRightObject) {
    zortest::ScratchDir dir;
    zortest::writeFile(dir / "file", "x");
    ASSERT_EQ(0, symlink((dir / "file").c_str(), (dir / "link").c_str()));
    EXPECT_EQ(1, SysUtils::IsLinkFile(dir / "link"));
    EXPECT_EQ(0, SysUtils::IsLinkFile(dir / "file"));
    EXPECT_EQ(1, SysUtils::IsDirectoryFile(dir.Path()));
    EXPECT_EQ(0, SysUtils::IsDirectoryFile(dir / "link"));
    EXPECT_EQ(1, SysUtils::IsDeviceFile("/dev/null"));
    EXPECT_EQ(0, SysUtils::IsDeviceFile(dir / "missing"));
    for (auto test :
         {SysUtils::IsLinkFile, SysUtils::IsDeviceFile, SysUtils::IsDirectoryFile, SysUtils::IsHiddenFile}) {
        EXPECT_EQ("File path must not be empty!!", zortest::thrownMessage([&] { test(""); }));
    }
    EXPECT_EQ(0, SysUtils::IsHiddenFile("."));
    EXPECT_EQ(0, SysUtils::IsHiddenFile(".."));
    EXPECT_EQ(1, SysUtils::IsHiddenFile(".profile"));
    EXPECT_EQ(0, SysUtils::IsHiddenFile("dir/.name"));  // only the first character of the whole text counts
}

TEST(SysUtilsLibrary, LoadsFindsAndFreesASharedLibrary) {
    EXPECT_EQ(nullptr, SysUtils::LoadLibrary("/nonexistent/libnothing.so"));
    ZR_DLLHD libm = SysUtils::LoadLibrary("libm.so.6");
    ASSERT_NE(nullptr, libm);
    auto cosine = reinterpret_cast<double (*)(double)>(SysUtils::GetSymbol(libm, "cos"));
    ASSERT_NE(nullptr, cosine);
    EXPECT_DOUBLE_EQ(1.0, cosine(0.0));
    EXPECT_EQ(nullptr, SysUtils::GetSymbol(libm, "no_such_symbol_here"));
    SysUtils::FreeLibrary(libm);
}

TEST(SysUtilsDaemon, ParentExitsWithZeroAndChildLeadsANewSession) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    // The child sends its own id, then its child, the daemon, sends its id and its session's.
    const int status = zortest::exitStatusOf([&] {
        const pid_t parent = getpid();
        (void)!write(fds[1], &parent, sizeof parent);
        SysUtils::ForkDaemon();  // the child of this process exits here; the grandchild continues
        const pid_t ids[2] = {getpid(), getsid(0)};
        (void)!write(fds[1], ids, sizeof ids);
        return 0;
    });
    EXPECT_EQ(0, status);
    close(fds[1]);
    pid_t parent = 0, ids[2] = {0, 0};
    ASSERT_EQ(static_cast<ssize_t>(sizeof parent), read(fds[0], &parent, sizeof parent));
    ASSERT_EQ(static_cast<ssize_t>(sizeof ids), read(fds[0], ids, sizeof ids));
    close(fds[0]);
    EXPECT_NE(parent, ids[0]);
    EXPECT_EQ(ids[0], ids[1]);  // the daemon is the leader of its own session
}

}  // namespace
