/// @file
/// File objects behind one abstract interface, File, in two kinds: PrimeFile and StreamFile.
#ifndef ZOR_FILE_H_
#define ZOR_FILE_H_

#include <cstdio>
#include <string>

#include "BaseTypes.h"

namespace zor {

/// The abstract interface of the library's file objects.
///
/// Two kinds implement it: PrimeFile works on an operating-system descriptor
/// (open/read/write/lseek/ftruncate/flock), StreamFile on a buffered stdio stream
/// (fopen/fread/fwrite/fgets/fseeko/ftello). Pick the kind, then talk to it through File.
///
/// Error convention: nothing here throws or logs. Every operation answers in the POSIX manner, 0 or a
/// count for success and -1 (or a short count) for failure, and leaves errno as the failing call set it.
///
/// Ownership and threads: each object owns its descriptor or stream and closes it in its destructor;
/// objects cannot be copied. There is no locking inside: one object belongs to one thread at a time.
/// Lock()/Unlock() are advisory whole-file flock locks for cooperation between processes or between
/// separately opened descriptors, not between threads sharing one object.
///
/// An empty path selects an anonymous temporary file: PrimeFile makes one from "tmpfile.XXXXXX" in the
/// working directory and unlinks the name at once, StreamFile uses tmpfile(). Either way nothing is left
/// on disk once the object is closed. Such a file is always readable and writable, whatever the mode; the
/// working directory must be writable for PrimeFile's.
///
/// @code
///   zor::StreamFile log("app.log");
///   if (log.Open(zor::File::OpenModeWrite | zor::File::OpenModeAppend) == 0) {
///       log.WriteLine("started\n");                 // no newline is added for you
///   }
/// @endcode
class File {
public:
    /// Open-mode bits, combined with |.
    ///
    /// Binary and Text only matter to StreamFile's mode string; Sync
    /// makes PrimeFile open with O_SYNC and StreamFile flush after every Write/WriteLine.
    enum FileOpenMode {
        OpenModeRead = 1,    ///< Open for reading.
        OpenModeWrite = 2,   ///< Open for writing (truncating unless combined with Read or Append).
        OpenModeAppend = 4,  ///< Every write goes to the end of the file.
        OpenModeBinary = 8,  ///< "b" in StreamFile's mode string.
        OpenModeText = 16,   ///< "t" in StreamFile's mode string.
        OpenModeSync = 32,   ///< Synchronous writes: O_SYNC, or a flush after every write.
    };
    /// Seek origins.
    ///
    /// The underlying type is fixed so that an out-of-range value cast in by a caller is a
    /// well-defined value, which Seek() then refuses.
    enum FileSeekPos : ZR_Int32 {
        SeekPosSet = 0,  ///< From the start of the file (SEEK_SET).
        SeekPosCur = 1,  ///< From the current position (SEEK_CUR).
        SeekPosEnd = 2,  ///< From the end of the file (SEEK_END).
    };
    typedef ZR_Int32 FileHandle;  ///< An operating-system file descriptor.

    /// The derived destructors close the descriptor or stream.
    virtual ~File();
    File(const File&) = delete;             ///< Not copyable.
    File& operator=(const File&) = delete;  ///< Not copyable.

    /// Stores openMode, then opens the path (or an anonymous temporary file for an empty path).
    /// 0 on success, -1 on failure. Reopening an open object closes the previous descriptor first.
    virtual ZR_Int32 Open(ZR_Uint32 openMode) = 0;
    /// Closes the descriptor or stream if there is one. Always 0; may be called any number of times.
    virtual ZR_Int32 Close() = 0;
    /// Bytes read (0 at the end) or -1.
    virtual ZR_Int32 Read(ZR_BYTE* pData, ZR_Uint32 readLen) = 0;
    /// Bytes written or -1.
    virtual ZR_Int32 Write(const ZR_BYTE* pData, ZR_Uint32 writeLen) = 0;
    /// One line of at most readLen - 1 characters into pData, newline kept, zero-terminated. 0 or -1.
    virtual ZR_Int32 ReadLine(ZR_CHAR* pData, ZR_Uint32 readLen) = 0;
    /// The bytes of the zero-terminated pData, with no newline added. Count written or -1.
    virtual ZR_Int32 WriteLine(const ZR_CHAR* pData) = 0;
    /// Moves the position; pos outside 0..2 is refused. 0 or -1.
    virtual ZR_Int32 Seek(ZR_Int64 offset, FileSeekPos pos) = 0;
    /// The current position or -1.
    virtual ZR_Int64 Tell() const = 0;
    /// Sets the file's size. 0 or -1.
    virtual ZR_Int64 Truncate(ZR_Uint64 newSize) = 0;
    /// Takes an advisory whole-file lock with flock: exclusive unless shared, and with LOCK_NB unless
    /// blocking (then a held lock fails at once with EWOULDBLOCK). The result of flock as it stands.
    virtual ZR_INT Lock(ZR_BOOL shared, ZR_BOOL blocking) = 0;
    /// Releases the lock taken by Lock() (flock LOCK_UN). The result of flock as it stands.
    virtual ZR_INT Unlock() = 0;

    /// The path given at construction; empty for an anonymous temporary file.
    ZOR_INLINE const std::string& GetFilePath() const { return m_filePath; }
    /// Size in bytes measured by seeking to the end and back, so the position is unchanged afterwards.
    /// -1 when the position cannot be read or the seek to the end fails (the position may then have
    /// moved).
    ZR_Int64 GetFileSize();
    /// A position test, not the stream's end-of-file flag: 1 exactly when Tell() equals GetFileSize(),
    /// so it is 1 right after opening an empty file. 0 when the position cannot be read.
    ZR_BOOL IsEndOfFile();

    /// unlink(path); its result as it stands (0 or -1 with errno).
    static ZR_INT Remove(const std::string& path);
    /// rename(origin, target); its result as it stands (0 or -1 with errno).
    static ZR_INT Rename(const std::string& origin, const std::string& target);

protected:
    /// A file object over filePath; nothing is opened yet.
    explicit File(const std::string& filePath);
    /// A file object with an empty path: Open() makes an anonymous temporary file.
    File();

    std::string m_filePath;  ///< The path given at construction.
    ZR_Uint32 m_openMode;    ///< FileOpenMode bits of the last Open(); 0 before
};

/// A file on an operating-system descriptor.
///
/// ReadLine and WriteLine are not supported (always -1). Operations other than
/// Open and Close do not test the descriptor: on a closed object they hand -1 to the system call, which
/// fails with EBADF.
class PrimeFile : public File {
public:
    explicit PrimeFile(const std::string& filePath);  ///< A closed file object over filePath.
    PrimeFile();            ///< A closed file object for an anonymous temporary file.
    ~PrimeFile() override;  ///< Closes the descriptor.

    ZR_Int32 Open(ZR_Uint32 openMode) override;
    ZR_Int32 Close() override;
    ZR_Int32 Read(ZR_BYTE* pData, ZR_Uint32 readLen) override;
    ZR_Int32 Write(const ZR_BYTE* pData, ZR_Uint32 writeLen) override;
    ZR_Int32 ReadLine(ZR_CHAR* pData, ZR_Uint32 readLen) override;  ///< Not supported: always -1.
    ZR_Int32 WriteLine(const ZR_CHAR* pData) override;              ///< Not supported: always -1.
    /// Moves the position with lseek; pos outside 0..2 is refused.
    /// 0 when the new offset is not negative, else -1.
    ZR_Int32 Seek(ZR_Int64 offset, FileSeekPos pos) override;
    ZR_Int64 Tell() const override;
    ZR_Int64 Truncate(ZR_Uint64 newSize) override;
    ZR_INT Lock(ZR_BOOL shared, ZR_BOOL blocking) override;
    ZR_INT Unlock() override;

    /// The open(2) flags of the stored mode: O_RDONLY by default; Write gives O_WRONLY|O_CREAT|O_TRUNC;
    /// Read with Write gives O_RDWR|O_CREAT (no truncation); Append overrides both with
    /// O_RDWR|O_CREAT|O_APPEND (with Read) or O_WRONLY|O_CREAT|O_APPEND (without); Sync adds O_SYNC.
    /// Binary and Text are ignored.
    ZR_Int32 GetIntFileMode() const;

private:
    FileHandle m_handle;  ///< -1 when closed
};

/// A file on a buffered stdio stream.
///
/// Every operation returns -1 when no stream is open.
/// The fopen mode string is built from the open mode by successive assignments, a later rule replacing
/// an earlier one: Read "r", Write "w", Append "a", Read+Write "r+", Read+Append "a+"; then Binary
/// appends "b" and Text "t". So Read|Write|Append is "a+" and Write|Append is "a"; a mode without
/// Read, Write or Append gives no valid string and Open fails.
class StreamFile : public File {
public:
    explicit StreamFile(const std::string& filePath);  ///< A closed file object over filePath.
    StreamFile();            ///< A closed file object for an anonymous temporary file (tmpfile()).
    ~StreamFile() override;  ///< Closes the stream.

    ZR_Int32 Open(ZR_Uint32 openMode) override;
    /// Takes over handle, a descriptor the caller opened itself (with flags Open() cannot give, such as
    /// O_NOFOLLOW), as this object's stream: closes any stream first, stores openMode and fdopens handle
    /// with the mode string of openMode. 0 on success, after which the object owns handle and closes it;
    /// -1 on failure, when handle stays the caller's to close. The path is not touched.
    ZR_Int32 Attach(FileHandle handle, ZR_Uint32 openMode);
    ZR_Int32 Close() override;
    /// fread of readLen bytes: the count read, short at the end or on an error. A request beyond
    /// 2^31 - 1 bytes is cut to that size so the count always fits the result.
    ZR_Int32 Read(ZR_BYTE* pData, ZR_Uint32 readLen) override;
    /// fwrite of writeLen bytes (cut like Read), flushed under OpenModeSync. The count written.
    ZR_Int32 Write(const ZR_BYTE* pData, ZR_Uint32 writeLen) override;
    /// fgets: 0 on success (a final line without newline comes back without one; a buffer of size 1
    /// yields ""), -1 at the end of the file, on an error or for a size of 0.
    ZR_Int32 ReadLine(ZR_CHAR* pData, ZR_Uint32 readLen) override;
    ZR_Int32 WriteLine(const ZR_CHAR* pData) override;
    ZR_Int32 Seek(ZR_Int64 offset, FileSeekPos pos) override;
    ZR_Int64 Tell() const override;
    /// ftruncate on the stream's descriptor; buffered data is not flushed first.
    ZR_Int64 Truncate(ZR_Uint64 newSize) override;
    ZR_INT Lock(ZR_BOOL shared, ZR_BOOL blocking) override;
    ZR_INT Unlock() override;
    /// Hands the stream's buffered data to the system (fflush), then waits until the system has the
    /// file's data on the disk (fsync), so that it survives a crash of the process or of the host.
    /// 0, or -1 with errno as the failing call set it.
    ZR_Int32 Sync();

private:
    friend class BigFile;  ///< builds its mode string by the same rules
    static std::string getStrFileMode(ZR_Uint32 openMode);
    /// Writes under the Sync rule shared by Write and WriteLine.
    ZR_Int32 writeBytes(const void* pData, size_t len);

    FILE* m_file;  ///< null when closed
};

}  // namespace zor

#endif  // ZOR_FILE_H_
