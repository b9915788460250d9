#include "BigFile.h"

#include <gtest/gtest.h>

#include <cstring>

#include "TestUtil.h"

using zor::BigFile;
using zor::File;

using zortest::bytes;

TEST(BigFile, ReadsAndWritesBeyondFourGiBInASparseFile) {
    zortest::ScratchDir dir;
    const ZR_Int64 far = (5LL << 30) + 7;
    {
        BigFile out(dir / "sparse");
        ASSERT_EQ(0, out.Open(File::OpenModeWrite | File::OpenModeBinary));
        ASSERT_EQ(0, out.Seek(far, File::SeekPosSet));
        ASSERT_EQ(5, out.Write(bytes("tail!"), 5));
        EXPECT_EQ(far + 5, out.Tell());
    }
    BigFile in(dir / "sparse");
    ASSERT_EQ(0, in.Open(File::OpenModeRead));
    EXPECT_EQ(far + 5, in.GetFileSize());
    EXPECT_EQ(0, in.Tell());
    ASSERT_EQ(0, in.Seek(far - 1, File::SeekPosSet));
    EXPECT_EQ(0, in.IsEndOfFile());
    ZR_BYTE back[8] = {};
    EXPECT_EQ(6, in.Read(back, sizeof back));
    EXPECT_EQ(0, std::memcmp(back, "\0tail!", 6));
    EXPECT_EQ(1, in.IsEndOfFile());
}

TEST(BigFile, OpenIsNotRepeatedAndBadRequestsFail) {
    zortest::ScratchDir dir;
    zortest::writeFile(dir / "f", "abc");
    BigFile file(dir / "f");
    EXPECT_EQ(-1, file.Tell());
    ASSERT_EQ(0, file.Open(File::OpenModeRead));
    EXPECT_EQ(0, file.Open(File::OpenModeWrite));  // no reopen: still read-only, nothing truncated
    EXPECT_EQ(0, file.Write(bytes("x"), 1));
    EXPECT_EQ(-1, file.Truncate(1));
    EXPECT_EQ(-1, file.Read(nullptr, -1));
    EXPECT_EQ(-1, file.Seek(0, static_cast<File::FileSeekPos>(7)));
    ASSERT_EQ(0, file.Seek(1, File::SeekPosSet));
    EXPECT_EQ(3, file.GetFileSize());
    EXPECT_EQ(1, file.Tell());
    EXPECT_EQ("abc", zortest::readFile(dir / "f"));
    EXPECT_EQ(-1, BigFile().Open(File::OpenModeRead));

    BigFile later;
    later = std::move(file);
    EXPECT_EQ(1, later.Tell());
    EXPECT_EQ(-1, file.Tell());
}
