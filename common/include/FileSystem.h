/// @file
/// Paths and the operations on the file system behind them.
///
/// - Path: a path held as a list of components, normalised after every change ("a//b/../c" is
///   "./a/c"). Backslashes are read as "/". Pure text work: only Path::ToAbsolutionPath() and
///   Path::ConvertAbsolutionPath() look at the process (its working directory). Path::SetOutput()
///   switches the change journal.
/// - ExecPath: a Path that acts on the disk: tests, lstat-based information, listings with filters,
///   creation of directory chains, recursive removal, renaming, moving, and file-object factories.
/// - FileInfo: one directory entry as a plain record. __FILE_TYPE / __FILESYSTEM_ERRORCODE: its type bits
///   and the operations' error codes.
/// - zor::filesystem: free functions taking a path string and calling the ExecPath member of that name.
/// - path_inner::Printer: the per-process journal `"./.filesystem.<pid>.log"` of every directory creation,
///   removal and rename, off until Path::SetOutput(true).
///
/// Errors: nothing here throws (except std::bad_alloc) or logs. Operations answer with 0, the system
/// call's own -1 (errno left as it failed), an __FILESYSTEM_ERRORCODE value, or 1/0 for tests.
/// Threads: Path and ExecPath objects are values without locking; share one between threads only under
/// the caller's lock. Concurrent changes to the same tree race exactly as the system calls do. The
/// journal serialises its lines, so lines from different threads never interleave.
///
/// @code
///   zor::Path::SetOutput(1);                          // journal on, for the life of the process
///   zor::ExecPath dir("/var/lib/svc/cache");
///   if (dir.CreateDir() != 0) { ... }                // makes missing parents too, mode 0600
///   std::list<std::string> logs;
///   dir.GetFileListByPre(logs, "log", zor::FT_REG);   // regular files named log*, in directory order
///   dir.Remove(1);                                    // the whole tree; symbolic links are not followed
/// @endcode
#ifndef ZOR_FILESYSTEM_H_
#define ZOR_FILESYSTEM_H_

#include <atomic>
#include <cstdarg>
#include <list>
#include <memory>
#include <string>

#include "BaseTypes.h"
#include "BigFile.h"
#include "File.h"
#include "Locks.h"

namespace zor {

/// Type bits of a directory entry as lstat reports it, combinable as listing filters. No type uses 64.
enum __FILE_TYPE {
    FT_UNKNOWN = -1,  ///< lstat failed, or a type not listed here.
    FT_ALL = 0,       ///< Filter only: every type.
    FT_REG = 1,       ///< A regular file.
    FT_DIRC = 2,      ///< A directory.
    FT_LINK = 4,      ///< A symbolic link.
    FT_BLOCK = 8,     ///< A block device.
    FT_CHAR = 16,     ///< A character device.
    FT_FIFO = 32,     ///< A named pipe.
    FT_SOCKET = 128,  ///< A Unix-domain socket.
};

/// Results of the file-system operations besides 0 and the system calls' -1.
enum __FILESYSTEM_ERRORCODE {
    E_FS_PATH_NULL = -0x3001,       ///< -12289, reserved; no operation returns it
    E_FAILED_CREATE_DIR = -0x3002,  ///< -12290, CreateDir: mkdir of the path or of a parent failed
    E_FAILED_OPEN_DIR = -0x3003,    ///< -12291, listings: opendir failed
    E_FS_ISNOT_DIR = -0x3011,       ///< -12305, listings and ClearDir on something not a directory
    E_FS_INVAILED_NAME = -0x3012,   ///< -12306, Rename: name too long or holding a separator
};

/// One directory entry. The numeric fields start as "unknown" (FT_UNKNOWN, 0, -1) so that a default
/// record never holds indeterminate values.
struct FileInfo {
    FileInfo() = default;                            ///< An "unknown" record.
    FileInfo(const FileInfo&) = default;             ///< Copyable.
    FileInfo(FileInfo&&) = default;                  ///< Movable.
    FileInfo& operator=(const FileInfo&) = default;  ///< Copyable.
    FileInfo& operator=(FileInfo&&) = default;       ///< Movable.

    ZR_INT FileType = FT_UNKNOWN;  ///< A __FILE_TYPE value.
    ZR_BOOL IsHidden = 0;          ///< The last name begins with ".".
    ZR_BOOL IsExist = 0;           ///< The path exists (access() F_OK, following links).
    ZR_BOOL IsRead = 0;            ///< Readable: access() by the caller's identity.
    ZR_BOOL IsWrite = 0;           ///< Writable: access() by the caller's identity.
    ZR_BOOL IsExec = 0;            ///< Executable or searchable: access() by the caller's identity.
    ZR_Int64 FileSize = -1;        ///< Bytes; -1 when unknown.
    /// Last content modification, seconds since the epoch; -1 when unknown.
    ZR_Int64 LastTime = -1;
    std::string BaseDir;  ///< The parent directory, ending with "/".
    std::string Name;     ///< The last name.
    /// Name from its last "." on (".gz" of "a.tar.gz"); empty without a dot.
    std::string Suffix;
};

/// A normalised list of path components.
///
/// Text is parsed by reading a backslash as "/", putting "/" (absolute) or "." (relative) first, splitting
/// at "/" and folding the pieces: "." is dropped, ".." removes the name before it, stays at the front of a
/// relative path and vanishes after the root, repeated slashes vanish. So the first component is "/", "." or
/// "..", ".." occurs only at the front and no component is empty. A default-constructed Path has no
/// components at all (text ""), while Path("") is ".".
///
///   zor::Path p("/srv//data/./in/../out/");  // "/srv/data/out"
///   p += "../log";                           // "/srv/data/log"
///   p.GetBasePath();                         // "/srv/data/"
///   p.GetLeafName();                         // "log"
class Path {
public:
    typedef std::list<std::string>::const_iterator PathConstIterator;  ///< Walks the components.

    /// The separator placed between components in the text form.
    static const std::string SPCH;

    /// An empty path: no components, text "".
    Path();
    /// Parses path. Implicit on purpose: a Path stands wherever path text is accepted.
    Path(const std::string& path);
    Path(const Path& other);                   ///< Copies the components.
    Path(Path&& other) noexcept;               ///< Takes the components over.
    Path& operator=(const Path& other);        ///< Copies the components.
    Path& operator=(Path&& other) noexcept;    ///< Takes the components over.
    Path& operator=(const std::string& path);  ///< Clears the components and parses path.
    virtual ~Path();                           ///< Virtual: ExecPath derives from Path.

    /// Appends the other path's components and normalises ("./a" += "/b" is "./a/b").
    Path& operator+=(const Path& path);
    Path& operator+=(Path&& path);  ///< As the copying form.
    /// Parses the text onto this path; a leading "/" of the text is only a separator unless this path
    /// is empty. "/a" += "../../c" is "/c".
    Path& operator+=(const std::string& path);
    /// The same as += of dir.
    Path& PushDir(const std::string& dir);
    /// Goes up level times without normalising: a last "." becomes "..", a last ".." gets another "..",
    /// anything else (the root "/" too) is removed; stops early when the path is empty. Always 1.
    /// Path("x").PopDir(3) is "../..", Path("/").PopDir(1) is empty.
    ZR_BOOL PopDir(ZR_Uint32 level);

    ZOR_INLINE PathConstIterator begin() const { return m_pathList.begin(); }  ///< The first component.
    ZOR_INLINE PathConstIterator end() const { return m_pathList.end(); }      ///< Past the last component.
    ZOR_INLINE size_t Size() const { return m_pathList.size(); }               ///< The number of components.
    ZOR_INLINE ZR_BOOL IsEmpty() const { return m_pathList.empty() ? 1 : 0; }  ///< 1 with no components.
    ZOR_INLINE void Clear() { m_pathList.clear(); }                            ///< Removes every component.

    /// Components joined by "/" ("/a/b", "./a", "..", "/"); "" for an empty path.
    std::string ToString() const;
    ZOR_INLINE operator std::string() const { return ToString(); }  ///< ToString().

    /// A relative path ("." or ".." first) resolved against the current working directory
    /// ("../x" in "/home/u" is "/home/x"); an absolute path's text as it is; "" for an empty path.
    std::string ToAbsolutionPath() const;
    /// Replaces a relative path by its absolute form; leaves other paths alone.
    void ConvertAbsolutionPath();

    /// The parent directory as text ending with "/": "/a/b" gives "/a/", "/" gives "/", "." gives "../",
    /// "../.." gives "../../../"; "" for an empty path.
    std::string GetBasePath() const;
    /// The last component ("/a/b" gives "b", "/" gives "/"); for a path of ".." components only, that
    /// path less one "..", with "/" after each (".." and "../.." give "../"); "" for an empty path.
    std::string GetLeafName() const;

    /// @name Comparisons
    /// Component-by-component comparisons, exact and case-sensitive; no file-system access, so "." and
    /// "/" are never equal or related even when they name the same directory. A string is parsed first.
    ///@{
    bool operator==(const Path& path) const;         ///< The same components.
    bool operator==(const std::string& path) const;  ///< The same components as the parsed text.
    ZOR_INLINE bool operator!=(const Path& path) const { return !(*this == path); }         ///< Not ==.
    ZOR_INLINE bool operator!=(const std::string& path) const { return !(*this == path); }  ///< Not ==.
    /// This path has fewer components than path, and they begin path's list. A path is not its own parent.
    ZR_BOOL IsParentPath(const Path& path) const;
    ZR_BOOL IsParentPath(const std::string& path) const;  ///< IsParentPath() of the parsed text.
    /// This path has more components than path, and path's components begin this path's list.
    ZR_BOOL IsSubPath(const Path& path) const;
    ZR_BOOL IsSubPath(const std::string& path) const;  ///< IsSubPath() of the parsed text.
    ///@}

    /// 1 when no component is longer than 255 bytes.
    ZR_BOOL CheckName() const;

    /// ToString() + "/" + dir as plain text, not normalised ("/a" gives "/a/x"; the empty path "/x").
    const std::string Joint(const std::string& dir) const;
    /// Parses path, appends dir with +=, and returns the text: Joint("/a/b", "../c") is "/a/c".
    static const std::string Joint(const std::string& path, const std::string& dir);

    /// Switches the change journal on (1) or off (0) for the whole process. The first call that succeeds
    /// fixes the choice until path_inner::Printer::DestroyInstance(); later calls change nothing.
    static void SetOutput(ZR_BOOL enable);

protected:
    /// Clears the list and parses path.
    void assign(const std::string& path);
    /// Parses text onto the list (leading "/" or "." only when the list is empty), normalising as it goes.
    void serialize(const std::string& path);
    /// Appends components, normalising as it goes.
    void serialize(const std::list<std::string>& list);
    /// Re-normalises the whole list.
    void format();
    /// Builds the text form that ToString() returns.
    std::string tostring() const;
    /// Adds one component by the folding rules; the list is normalised before and after.
    void appendComponent(const std::string& component);
    /// As the string form, for size bytes at data.
    void appendComponent(const char* data, size_t size);

    std::list<std::string> m_pathList;  ///< The normalised components.
};

//// @name Path concatenation
/// Copy the left side (text is parsed), then Path::PushDir() the right side's text.
///@{
Path operator+(const Path& path, const Path& pathr);       ///< path, then pathr's text pushed on.
Path operator+(const Path& path, const std::string& str);  ///< path, then str pushed on.
Path operator+(const std::string& str, const Path& path);  ///< str parsed, then path's text pushed on.
///@}

/// A Path that acts on the file system. Every operation hands ToString() to the system, so a relative
/// path is resolved against the working directory at the time of the call. Information is taken with
/// lstat: a symbolic link is described, listed, removed and moved as itself and never followed.
///
/// The listings and the recursive operations (Remove(1), ClearDir(), Move() of a directory,
/// GetDirectoryContentSize()) walk the tree by directory descriptors: the path's own directory is opened
/// from its text (links among its leading components are followed, a link as its last component is
/// refused), every directory below it from its parent's descriptor without following a link, and each
/// entry is typed, renamed and removed relative to its directory. So a walk never follows a symbolic
/// link, not even one that another user swaps in for a directory while the walk goes on: the link is
/// removed or moved as itself, or that branch fails, and nothing outside the tree is touched.
///
/// A walk holds one descriptor for each level it is inside, one more while it reads a directory, and
/// goes at most 2048 levels below its start (no deeper directory can be named by a path). Where the
/// descriptors run out (RLIMIT_NOFILE) or the tree goes deeper, the directory that cannot be opened
/// counts as one that cannot be listed: removal leaves it with its contents and reports a failure, the
/// size is -1, a move keeps the source. Nothing leaks.
///
/// Children found by listing a directory are addressed by their exact names, so an entry whose name
/// holds a backslash (or is made of dots and backslashes) is handled as that entry and never read as a
/// path to somewhere else.
class ExecPath : public Path {
public:
    ExecPath();                                      ///< An empty path.
    ExecPath(const std::string& path);               ///< Parses path, as Path does; implicit.
    ExecPath(const Path& path);                      ///< Copies path's components.
    ExecPath(Path&& path);                           ///< Takes path's components over.
    ExecPath(const ExecPath& other);                 ///< Copies the components.
    ExecPath(ExecPath&& other) noexcept;             ///< Takes the components over.
    ExecPath& operator=(const ExecPath& other);      ///< Copies the components.
    ExecPath& operator=(ExecPath&& other) noexcept;  ///< Takes the components over.
    ~ExecPath() override;                            ///< Touches nothing on disk.

    /// A new Path parsed from ToString().
    Path GetPathObject() const;

    /// access(F_OK) succeeds. access follows symbolic links: a dangling link does not exist here.
    ZR_BOOL IsExist() const;
    ZR_BOOL IsRead() const;   ///< access(R_OK) succeeds.
    ZR_BOOL IsWrite() const;  ///< access(W_OK) succeeds.
    ZR_BOOL IsExec() const;   ///< access(X_OK) succeeds.
    /// filesystem::IsHidden(ToString()): the last name of the text begins with "." ("." and ".." too).
    ZR_BOOL IsHidden() const;
    /// The last component begins with "."; 0 for an empty path.
    ZR_BOOL IsHiddenFile() const;
    ZR_BOOL IsDirectory() const;     ///< GetFileType() is FT_DIRC.
    ZR_BOOL IsRegFile() const;       ///< GetFileType() is FT_REG.
    ZR_BOOL IsLinkFile() const;      ///< GetFileType() is FT_LINK (lstat: the link itself).
    ZR_BOOL IsBlockDevFile() const;  ///< GetFileType() is FT_BLOCK.
    ZR_BOOL IsCharDevFile() const;   ///< GetFileType() is FT_CHAR.
    ZR_BOOL IsFifoFile() const;      ///< GetFileType() is FT_FIFO.
    ZR_BOOL IsSocketFile() const;    ///< GetFileType() is FT_SOCKET.

    /// @name Information
    /// lstat-based; each gives -1 when lstat fails. The times are whole seconds since the epoch.
    ///@{
    /// A __FILE_TYPE value (FT_UNKNOWN, -1, for a type not listed or when lstat fails).
    ZR_INT GetFileType() const;
    ZR_Int64 GetFileSize() const;  ///< st_size in bytes, or -1.
    /// st_blocks times st_blksize (that product, not the 512-byte count), or -1.
    ZR_Int64 GetFileUsage() const;
    ZR_Int64 LastVisitTime() const;          ///< Last access (st_atime), or -1.
    ZR_Int64 LastContentModifyTime() const;  ///< Last content modification (st_mtime), or -1.
    ZR_Int64 LastStatusModifyTime() const;   ///< Last status change (st_ctime), or -1.
    /// A record of this path: type, tests, size, parent, name, suffix and modification time.
    FileInfo GetFileInfo() const;
    ///@}
    /// Bytes held by the tree: a file's (or link's own) size, or the sum over a directory's entries
    /// (directories add nothing themselves). -1 when the path does not exist, a directory cannot be
    /// listed or any entry cannot be measured. A symbolic link counts as itself, dangling or not.
    ZR_Int64 GetDirectoryContentSize() const;

    /// @name Listings
    /// The entry names (never "." or ".."), in the order readdir gives them, are appended to list. type is
    /// a __FILE_TYPE bit set (0 for every type); an entry whose lstat fails passes every filter. Each
    /// returns 0, E_FS_ISNOT_DIR when this is not a directory, or E_FAILED_OPEN_DIR when it cannot be
    /// opened or read. The FileInfo forms describe each listed entry.
    ///@{
    /// Appends the names of the entries of the given types.
    ZR_INT GetFileList(std::list<std::string>& list, ZR_Uint32 type) const;
    /// Appends a record of each entry of the given types.
    ZR_INT GetFileList(std::list<FileInfo>& list, ZR_Uint32 type) const;
    /// Appends the names beginning with pre.
    ZR_INT GetFileListByPre(std::list<std::string>& list, const std::string& pre, ZR_Uint32 type) const;
    /// Appends a record of each entry whose name begins with pre.
    ZR_INT GetFileListByPre(std::list<FileInfo>& list, const std::string& pre, ZR_Uint32 type) const;
    /// Appends the names ending with suffix.
    ZR_INT GetFileListBySuffix(std::list<std::string>& list, const std::string& suffix, ZR_Uint32 type) const;
    /// Appends a record of each entry whose name ends with suffix.
    ZR_INT GetFileListBySuffix(std::list<FileInfo>& list, const std::string& suffix, ZR_Uint32 type) const;
    ///@}

    /// Creates the directory and its missing parents, root-most first, each with mode 0600 less the
    /// umask (owner read and write, no search bit: an ordinary user therefore cannot create a second
    /// level inside a new directory; the superuser can). Journals one CREATE line per mkdir. 0 when the
    /// path exists already (whatever it is) or was made; E_FAILED_CREATE_DIR otherwise.
    ZR_INT CreateDir() const;
    /// CreateDir(), then always 0, whatever happened: test IsExist() afterwards.
    ZR_BOOL AssureExist() const;
    /// CreateDir() of this path joined with path and normalised ("/a" with "x" or "/x" is "/a/x").
    ZR_INT CreateSubDir(const Path& path) const;
    ZR_INT CreateSubDir(const std::string& path) const;  ///< CreateSubDir() of the parsed text.
    /// isForce 0: remove(3) of a file or an empty directory, journalled as DELETE; the result of remove.
    /// isForce 1: a directory is emptied (ClearDir) and removed, journalled as DELETE with the OR of the
    /// results; anything else is removed without a journal line. 0 when there is nothing to remove.
    /// Existence is judged by lstat here, so a dangling symbolic link is removed too.
    ZR_INT Remove(ZR_BOOL isForce) const;
    /// Removes every entry inside the directory, which stays (type is accepted but does not filter).
    /// E_FS_ISNOT_DIR when this is not a directory; else the OR of the results, so 0 only when every
    /// removal succeeded. A directory that cannot be listed gives E_FAILED_OPEN_DIR (no entry removed).
    ZR_INT ClearDir(ZR_Uint32 type) const;
    /// Renames the last component within its directory; journalled as RENAME with the result. On
    /// success this object names the file under its new name. E_FS_INVAILED_NAME when name is longer
    /// than 255 bytes or holds "/" or a backslash; otherwise the result of rename.
    ZR_INT Rename(const std::string& name);
    /// Moves this file or directory into the directory named by path (the target is path + leaf name).
    /// A file or link is renamed; a directory is re-created at the target and its entries moved one by
    /// one (each rename journalled as RENAME), then the emptied source is removed. On success this
    /// object names the target and the result is 0. If an entry cannot be moved (another file system,
    /// permissions) the remaining entries are still moved but the source is kept with whatever could not
    /// be moved (a directory that could not be made at the target too, even an empty one), and the
    /// failing rename's -1 is returned: a move never deletes data it did not move.
    /// Moving a directory below itself (also through symbolic links) is refused with -1 and errno
    /// EINVAL; moving it to where it already is changes nothing and gives 0. A directory of the target
    /// that is a symbolic link is not entered: the renames into it fail and the source is kept.
    ZR_INT Move(const std::string& path);

    /// A StreamFile on ToString(), made but not opened, in shared ownership.
    std::shared_ptr<StreamFile> GetStreamFilePtr() const;
    /// A PrimeFile on ToString(), made but not opened, in shared ownership.
    std::shared_ptr<PrimeFile> GetPrimeFilePtr() const;
    /// Always empty: construct BigFile directly where one is needed.
    std::shared_ptr<BigFile> GetBigFilePtr() const;

private:
    /// This path with one directory entry's exact name appended as a component (no parsing).
    ExecPath child(const std::string& name) const;
    /// lstat succeeds (a dangling link exists).
    bool existsNoFollow() const;
    /// The shared listing walk; keep decides on a name before its type is looked up.
    template <typename Keep>
    ZR_INT listNames(std::list<std::string>& list, ZR_Uint32 type, Keep keep) const;
    void describeAll(const std::list<std::string>& names, std::list<FileInfo>& list) const;
    /// Move to the full target path, once Move has checked that it is safe.
    ZR_INT moveTo(const ExecPath& target);
};

/// Free functions taking a path string: each builds an ExecPath (or reads the text directly) and answers
/// as the ExecPath member of the same name.
namespace filesystem {

/// access(F_OK) of the text directly.
ZR_BOOL IsExist(const std::string& path);
ZR_BOOL IsExec(const std::string& path);   ///< access(X_OK) of the text directly.
ZR_BOOL IsRead(const std::string& path);   ///< access(R_OK) of the text directly.
ZR_BOOL IsWrite(const std::string& path);  ///< access(W_OK) of the text directly.
/// Splits the text at "/" and backslashes into non-empty pieces: 0 when there is none, else whether the last
/// piece begins with ".".
ZR_BOOL IsHidden(const std::string& path);
/// @name ExecPath operations by path text
/// Each of the following is ExecPath(path) and the member of the same name.
///@{
ZR_INT GetFileType(const std::string& path);                       ///< ExecPath::GetFileType().
FileInfo GetFileInfo(const std::string& path);                     ///< ExecPath::GetFileInfo().
ZR_INT CreateDir(const std::string& path);                         ///< ExecPath::CreateDir().
ZR_INT Remove(const std::string& path, ZR_BOOL isForce);           ///< ExecPath::Remove().
ZR_INT Rename(const std::string& path, const std::string& name);   ///< ExecPath::Rename().
ZR_INT Move(const std::string& path, const std::string& newpath);  ///< ExecPath::Move().
ZR_INT ClearDir(const std::string& path, ZR_Uint32 type);          ///< ExecPath::ClearDir().
/// ExecPath::GetFileList(), names.
ZR_INT GetFileList(const std::string& path, std::list<std::string>& list, ZR_Uint32 type);
/// ExecPath::GetFileList(), records.
ZR_INT GetFileList(const std::string& path, std::list<FileInfo>& list, ZR_Uint32 type);
/// ExecPath::GetFileListByPre(), names.
ZR_INT GetFileListByPre(const std::string& path, std::list<std::string>& list, const std::string& pre,
                        ZR_Uint32 type);
/// ExecPath::GetFileListByPre(), records.
ZR_INT GetFileListByPre(const std::string& path, std::list<FileInfo>& list, const std::string& pre,
                        ZR_Uint32 type);
/// ExecPath::GetFileListBySuffix(), names.
ZR_INT GetFileListBySuffix(const std::string& path, std::list<std::string>& list, const std::string& suffix,
                           ZR_Uint32 type);
/// ExecPath::GetFileListBySuffix(), records.
ZR_INT GetFileListBySuffix(const std::string& path, std::list<FileInfo>& list, const std::string& suffix,
                           ZR_Uint32 type);
///@}
/// Path(path).CheckName(): no component longer than 255 bytes.
ZR_BOOL CheckName(const std::string& path);
/// The process working directory (getcwd into 4096 bytes); "" when getcwd fails.
std::string GetCurWorkDir();

}  // namespace filesystem

/// The journal behind Path::SetOutput(); public so that tools and tests can drive it.
namespace path_inner {

/// The per-process journal of the changes made to the disk, `"./.filesystem.<pid>.log"` in the working
/// directory at the time it is switched on.
///
/// The file opens (appending) with the header line
/// "// xxxx-xx-xxTxx:xx:xx [thread_id] TAGS [src_path] => [dst_path]" and gets one line per change:
///
///     2024-01-02T03:04:05 [140233442297600] CREATE [0] [/tmp/a]
///
/// (local time to the second, the thread id as std::thread::id prints it, the tag, the message). Each
/// line is written whole under a mutex and flushed at once, so the trace survives a crash and lines of
/// different threads never mix. Writing is silent: an unopenable file leaves the journal off, a failed
/// write is ignored, and the journal never changes the result of the operation it records.
///
/// The name is easy to guess, so the file is opened as a plain file of its own or not at all: created
/// with mode 0600 (less the umask), never through a symbolic link, and a named pipe or a second name
/// (hard link) of another file found there is refused too. Any of these leaves the journal off exactly
/// as an unopenable file does.
///
/// Messages are cut to 4095 bytes. In the `Print<Tag>` forms the caller's text (paths) is never used as a
/// format: after the first formatting, `"%%"` becomes `"%"` and every other `"%"` is written as it stands.
/// A line break in a message is written as a backslash and an "n", so a name holding one cannot end its
/// line early and pass the rest off as another entry; every other byte is written as it is.
///
/// Lifecycle: Instance() creates it off; the first Initialize that succeeds fixes it on or off; Dispose
/// closes the file (later lines are dropped) and allows a new Initialize; DestroyInstance() ends it.
class Printer {
public:
    /// The single instance, created on first use.
    static Printer* Instance();
    /// Destroys the instance (closing the file); the next Instance() makes a fresh, switched-off one.
    /// Call it only when no other thread is using the journal.
    static void DestroyInstance();

    /// Effective only until a call completes: enable 0 switches the journal off for good; enable 1
    /// opens the file and writes the header, and if the file cannot be opened (or something other than
    /// a plain file of its own is at its name) nothing is fixed, so a later call may try again.
    void Initialize(ZR_BOOL enable);
    /// Closes the file and allows Initialize again; the on/off choice stays until then.
    void Dispose();

    /// Writes one line with tag pre and the printf-formatted message.
    void Print(const char* pre, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// One line tagged "CREATE" with the printf-formatted message.
    void PrintCreate(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// One line tagged "DELETE" with the printf-formatted message.
    void PrintRemove(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// One line tagged "MOVE" with the printf-formatted message.
    void PrintMove(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// One line tagged "RENAME" with the printf-formatted message.
    void PrintRename(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// One line tagged "LINK" with the printf-formatted message.
    void PrintLink(const char* format, ...) __attribute__((format(printf, 2, 3)));

    Printer(const Printer&) = delete;             ///< Not copyable.
    Printer& operator=(const Printer&) = delete;  ///< Not copyable.

private:
    Printer();
    ~Printer();
    void printTagged(const char* pre, const char* format, va_list args);
    void writeLine(const char* pre, const char* message, size_t length);

    ZR_BOOL m_inited;
    std::string m_filename;
    Mutex m_mutex;  ///< the file, its lines and the switch
    std::shared_ptr<StreamFile> m_file;
    std::atomic<ZR_BOOL> m_enable;  ///< read without the lock on every change the library makes

    static std::atomic<Printer*> _instance;
    static Mutex _mutex;
};

}  // namespace path_inner

}  // namespace zor

#endif  // ZOR_FILESYSTEM_H_
