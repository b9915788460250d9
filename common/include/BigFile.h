/// @file
/// BigFile, a buffered stream file with 64-bit offsets for files beyond 2 GiB.
#ifndef ZOR_BIGFILE_H_
#define ZOR_BIGFILE_H_

#include <cstdio>
#include <string>

#include "BaseTypes.h"
#include "File.h"

namespace zor {

/// A buffered stream file for files beyond 2 GiB: it opens with fopen64, seeks with fseeko64 and tells
/// with ftello64, and takes and returns 64-bit counts.
///
/// It is not a File (no virtual operations, no line operations, no locking) but reuses File's open-mode
/// bits and seek origins, and builds its fopen mode string by the same rules as StreamFile ("r", "w",
/// "a", "r+", "a+", then "b"/"t").
///
/// Differences from StreamFile worth knowing: Open() on an open object is a no-op that returns 0 and
/// keeps the first stream and mode (no reopen); an empty path is refused instead of making a temporary
/// file; Truncate() is not supported.
///
/// Error convention: nothing throws; failures return -1 (or a short count) with errno as the failing call
/// set it. The object owns its stream and closes it in its destructor. It can be moved but not copied, so
/// a default-constructed object (closed, mode 0, empty path) can be assigned over. Not thread-safe.
///
/// @code
///   zor::BigFile disk("/data/image.raw");
///   if (disk.Open(zor::File::OpenModeRead | zor::File::OpenModeWrite) == 0) {
///       disk.Seek(5LL << 30, zor::File::SeekPosSet);   // past 4 GiB
///       disk.Write(block, sizeof block);
///   }
/// @endcode
class BigFile {
public:
    /// A file object over path; nothing is opened yet.
    explicit BigFile(const std::string& path);
    /// Closed, mode 0, empty path: only useful to be assigned over.
    BigFile();
    ~BigFile();                                   ///< Closes the stream.
    BigFile(const BigFile&) = delete;             ///< Not copyable.
    BigFile& operator=(const BigFile&) = delete;  ///< Not copyable.
    /// Hands the stream, mode and path over; the source is left closed.
    BigFile(BigFile&& other) noexcept;
    /// Closes this object's stream, then takes over other's; the source is left closed.
    BigFile& operator=(BigFile&& other) noexcept;

    /// Opens the file.
    ///
    /// 0 at once when already open (the old stream and mode stay); -1 for an empty path; otherwise stores
    /// openMode and opens with fopen64: 0 when a stream was obtained, else -1.
    ZR_Int32 Open(ZR_Uint32 openMode);
    /// Closes the stream if open. Always 0.
    ZR_Int32 Close();
    /// fread of readLen bytes: the count, short at the end or on an error; -1 when closed or for a
    /// negative length (errno EINVAL).
    ZR_Int64 Read(ZR_BYTE* pData, ZR_Int64 readLen);
    /// fwrite of writeLen bytes: the count, short on an error; -1 when closed or for a negative length
    /// (errno EINVAL). Flushes under OpenModeSync once at least one byte was written.
    ZR_Int64 Write(const ZR_BYTE* pData, ZR_Int64 writeLen);
    /// fseeko64 with pos passed through as the whence value (an invalid one fails in fseeko64). 0 or -1.
    ZR_Int64 Seek(ZR_Int64 offset, File::FileSeekPos pos);
    /// ftello64, or -1 when closed.
    ZR_Int64 Tell() const;
    /// Not supported: always -1, the file is not touched.
    ZR_Int64 Truncate(ZR_Int64 newSize);
    /// The size in bytes, by seeking to the end; the position is always put back, even when that seek failed
    /// (the size is then -1). -1 when closed.
    ZR_Int64 GetFileSize();
    /// The path given at construction.
    ZOR_INLINE const std::string& GetFilePath() const { return m_filePath; }
    /// 1 exactly when Tell() equals GetFileSize(); 0 when the position cannot be read.
    ZR_BOOL IsEndOfFile();

private:
    FILE* m_file;          ///< null when closed
    ZR_Uint32 m_openMode;  ///< File::FileOpenMode bits of the last Open() that got past the checks
    std::string m_filePath;
};

}  // namespace zor

#endif  // ZOR_BIGFILE_H_
