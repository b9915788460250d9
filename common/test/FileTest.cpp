#include "File.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>

#include "TestUtil.h"

using zor::File;
using zor::PrimeFile;
using zor::StreamFile;
using zortest::bytes;
using zortest::readFile;

namespace {

// Opens `path` with `mode`, writes "xy" and closes; returns the file's content afterwards.
template <typename Kind>
std::string writeXyWith(const std::string& path, ZR_Uint32 mode) {
    Kind file(path);
    EXPECT_EQ(0, file.Open(mode)) << path << " mode " << mode;
    file.Write(bytes("xy"), 2);
    file.Close();
    return readFile(path);
}

class FileTest : public ::testing::Test {
protected:
    std::string Make(const std::string& name, const std::string& content) {  // returns the path
        zortest::writeFile(dir / name, content);
        return dir / name;
    }
    zortest::ScratchDir dir;
};

TEST_F(FileTest, OpenModesTruncateOrAppendOnlyWhereTheyShould) {
    const ZR_Uint32 rw = File::OpenModeRead | File::OpenModeWrite;
    EXPECT_EQ("xy", writeXyWith<PrimeFile>(dir / "created", rw));
    EXPECT_EQ("xy3456", writeXyWith<PrimeFile>(Make("p1", "123456"), rw));
    EXPECT_EQ("xy", writeXyWith<PrimeFile>(Make("p2", "123456"), File::OpenModeWrite | File::OpenModeSync));
    EXPECT_EQ("123xy", writeXyWith<PrimeFile>(Make("p3", "123"), File::OpenModeWrite | File::OpenModeAppend));
    EXPECT_EQ("xy", writeXyWith<StreamFile>(Make("s2", "123456"), File::OpenModeWrite | File::OpenModeText));
    EXPECT_EQ("123xy", writeXyWith<StreamFile>(Make("s3", "123"), rw | File::OpenModeAppend));

    // Write|Append is "a": writes land at the end and the stream cannot read.
    StreamFile appendOnly(Make("s4", "123"));
    ASSERT_EQ(0, appendOnly.Open(File::OpenModeWrite | File::OpenModeAppend | File::OpenModeSync));
    ZR_BYTE buffer[4];
    EXPECT_EQ(0, appendOnly.Read(buffer, sizeof buffer));
    EXPECT_EQ(2, appendOnly.Write(bytes("xy"), 2));
    EXPECT_EQ("123xy", readFile(dir / "s4"));  // Sync flushed without a Close
    StreamFile buffered(dir / "s5");
    EXPECT_EQ(-1, buffered.Sync());  // nothing open
    ASSERT_EQ(0, buffered.Open(File::OpenModeWrite));
    EXPECT_EQ(2, buffered.Write(bytes("xy"), 2));
    EXPECT_EQ("", readFile(dir / "s5"));  // still in the stream's buffer
    EXPECT_EQ(0, buffered.Sync());
    EXPECT_EQ("xy", readFile(dir / "s5"));

    EXPECT_EQ(-1, PrimeFile(dir / "missing").Open(File::OpenModeRead));
    for (ZR_Uint32 mode : {0u, 8u, 16u, 32u}) EXPECT_EQ(-1, StreamFile(dir / "s2").Open(mode)) << mode;
}

TEST_F(FileTest, LinesAreWrittenAsGivenAndReadInBufferSizedPieces) {
    StreamFile out(dir / "lines");
    ASSERT_EQ(0, out.Open(File::OpenModeWrite));
    EXPECT_EQ(3, out.WriteLine("abc"));
    EXPECT_EQ(4, out.WriteLine("\nend"));
    out.Close();
    EXPECT_EQ("abc\nend", readFile(dir / "lines"));

    StreamFile in(dir / "lines");
    ASSERT_EQ(0, in.Open(File::OpenModeRead));
    char line[8] = "zzz";
    EXPECT_EQ(0, in.ReadLine(line, 1));
    EXPECT_STREQ("", line);
    for (const char* expected : {"abc\n", "end"}) {
        EXPECT_EQ(0, in.ReadLine(line, sizeof line));
        EXPECT_STREQ(expected, line);
    }
    EXPECT_EQ(-1, in.ReadLine(line, sizeof line));
}

TEST_F(FileTest, PositionQueriesLeaveThePositionAlone) {
    for (bool stream : {false, true}) {
        const std::string path = Make("pos", "");
        std::unique_ptr<File> file(stream ? static_cast<File*>(new StreamFile(path)) : new PrimeFile(path));
        EXPECT_EQ(-1, file->GetFileSize());  // not open yet
        EXPECT_EQ(0, file->IsEndOfFile());
        ASSERT_EQ(0, file->Open(File::OpenModeRead | File::OpenModeWrite));
        EXPECT_EQ(1, file->IsEndOfFile());
        ASSERT_EQ(10, file->Write(bytes("0123456789"), 10));
        ASSERT_EQ(0, file->Seek(-6, File::SeekPosEnd));
        EXPECT_EQ(10, file->GetFileSize());
        EXPECT_EQ(4, file->Tell());
        EXPECT_EQ(0, file->IsEndOfFile());
        EXPECT_EQ(-1, file->Seek(0, static_cast<File::FileSeekPos>(3)));
        EXPECT_EQ(0, file->Truncate(3));
        EXPECT_EQ(3, file->GetFileSize());
    }
    EXPECT_EQ(-1, PrimeFile(dir / "pos").Write(bytes("x"), 1));  // never opened: the call says why
    EXPECT_EQ(EBADF, errno);
}

TEST_F(FileTest, LocksAreRefusedBetweenDescriptorsUntilReleased) {
    PrimeFile holder(Make("locked", "x"));
    StreamFile other(dir / "locked");
    ASSERT_EQ(0, holder.Open(File::OpenModeRead));
    ASSERT_EQ(0, other.Open(File::OpenModeRead));
    ASSERT_EQ(0, holder.Lock(0, 1));
    EXPECT_EQ(-1, other.Lock(1, 0));
    EXPECT_EQ(EWOULDBLOCK, errno);
    EXPECT_EQ(0, holder.Unlock());
    EXPECT_EQ(0, other.Lock(1, 0));
    EXPECT_EQ(-1, holder.Lock(0, 0));
}

TEST_F(FileTest, AnonymousFilesLeaveNoNameAndNoDescriptor) {
    zortest::WorkDir inside(dir.Path());
    const int before = zortest::openDescriptorCount();
    {
        PrimeFile prime;
        StreamFile stream;
        ASSERT_EQ(0, prime.Open(File::OpenModeWrite));
        ASSERT_EQ(0, prime.Open(File::OpenModeWrite));  // reopening must not leak the first one
        ASSERT_EQ(0, stream.Open(File::OpenModeWrite));
        EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
        for (File* file : {static_cast<File*>(&prime), static_cast<File*>(&stream)}) {
            char back[4] = {};
            ASSERT_EQ(3, file->Write(bytes("abc"), 3));
            ASSERT_EQ(0, file->Seek(0, File::SeekPosSet));
            EXPECT_EQ(3, file->Read(reinterpret_cast<ZR_BYTE*>(back), 3));
            EXPECT_STREQ("abc", back);
        }
    }
    EXPECT_EQ(before, zortest::openDescriptorCount());
    EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

}  // namespace
