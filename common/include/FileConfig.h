/// @file
/// FileConfig, reading and rewriting flat "key = value" text files.
#ifndef ZOR_FILECONFIG_H_
#define ZOR_FILECONFIG_H_

#include <memory>
#include <string>

#include "BaseTypes.h"
#include "ErrorCode.h"
#include "File.h"

namespace zor {

/// Reads and rewrites flat "key = value" text files through a StreamFile.
///
/// The format:
///   - the file is read in pieces of at most 255 characters (one line, or one part of a longer line);
///   - a piece whose very first character is '#' is a comment ("  #x = 1" is not: its key is "#x");
///   - a piece without '=' is ignored; otherwise the key is the first blank-delimited word before the
///     first '=' and the value the first blank-delimited word after it (so values hold no blanks, and
///     "log level = 3" has the key "log");
///   - keys compare byte for byte; the first matching piece wins. There are no sections or quoting.
///
/// A matching piece with nothing after '=' ("name =") yields the key itself as the value: the key and the
/// value are scanned into one word buffer, and an empty value leaves the key in it. Callers rely on it.
///
/// Results are __ErrorCode values: E_OK, E_FAILED (key absent, file not open, read error), E_INVPARAM
/// (empty key or value, a line break in what SetValue() would write, no file object), E_UNSUPPORT
/// (SetValue() on a read-only object), E_CREATEFAIL (the rewrite's temporary file cannot be made).
/// Nothing throws or logs; a failed read leaves `value` as it was, so preset it with the default.
///
/// Every get and every rewrite holds an exclusive non-blocking flock on the file; when another process
/// holds it the work goes on regardless. Not thread-safe: one thread uses an object at a time.
///
/// @code
///   zor::FileConfig cfg("/etc/app.conf", 0);
///   if (cfg.Initialize() == zor::E_OK) {
///       std::string port = "8080";
///       cfg.GetValue("port", port);       // keeps "8080" when the key is absent
///       cfg.SetValue("port", "9090");     // rewrites the first "port" line as "port = 9090"
///   }
/// @endcode
class FileConfig {
public:
    /// Creates the file object over path; nothing is opened until Initialize().
    FileConfig(const std::string& path, ZR_BOOL readonly);
    ~FileConfig();                                      ///< Closes the file.
    FileConfig(const FileConfig&) = delete;             ///< Not copyable.
    FileConfig& operator=(const FileConfig&) = delete;  ///< Not copyable.

    /// Opens the file.
    ///
    /// Read-only: opened for reading, and the result of the open is returned as it
    /// stands (0 or -1). Read-write: opened with Read|Write|Append|Sync (created when missing), E_OK or
    /// E_FAILED. Without a successful Initialize every get and set finds nothing (E_FAILED).
    ZR_INT Initialize();

    /// Rewinds, then searches like GetValueContinous(): the first occurrence of key in the file.
    ZR_INT GetValue(const std::string& key, std::string& value);
    /// Searches from the current read position onward and leaves the position just after the matching
    /// piece, so successive calls walk repeated keys. E_FAILED at the end of the file.
    ZR_INT GetValueContinous(const std::string& key, std::string& value);
    /// Replaces the first piece whose key is `key` by `"key = value\n"`.
    ///
    /// Every other byte of the file is copied unchanged to the sibling file path + "_tmp", which is written
    /// through to the disk (fflush and fsync) and then renamed over the file, and the directory is synced.
    /// So at every moment, also when the process or the host dies mid-way, the path holds the whole old
    /// file or the whole new one; a crash may leave the "_tmp" file behind, which the next SetValue()
    /// overwrites. A key that is not in the file is never added: E_FAILED, the file is untouched and no
    /// "_tmp" file is left. Checks come in this order: read-only (E_UNSUPPORT), then empty key or value,
    /// or a key or value holding a line break (`\n` or `\r`, which would put a line of its own into the
    /// file) (E_INVPARAM). A failed write or sync of the temporary file, or a value holding a NUL byte,
    /// also gives E_FAILED and leaves the file as it was. Afterwards the file is reopened for reading and
    /// writing and positioned at the offset just after the replaced piece as it was in the old file, so when
    /// the new line differs in length from the old one, a following GetValueContinous() resumes that many
    /// bytes off.
    ZR_INT SetValue(const std::string& key, const std::string& value);

private:
    enum CopyResult { COPY_DONE, COPY_MATCHED, COPY_WRITE_FAILED };

    /// Copies pieces to `target` until one whose key is `key` is read (not copied; the offset after it is
    /// stored in matchEnd) or the file ends. matchKey false copies everything.
    CopyResult copyPieces(File& target, const std::string& key, bool matchKey, ZR_Int64& matchEnd);
    /// Writes the new line and the rest of the file to `temp`, then puts `temp` in the file's place.
    ZR_INT replaceWith(StreamFile& temp, const std::string& tempPath, const std::string& line);
    /// Gives up a rewrite: unlocks, removes the temporary file.
    ZR_INT abandon(File& temp, const std::string& tempPath, ZR_INT result);

    ZR_BOOL m_readonly;
    std::unique_ptr<File> m_file;  ///< always a StreamFile, replaced by each successful SetValue
};

}  // namespace zor

#endif  // ZOR_FILECONFIG_H_
