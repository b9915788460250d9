#include "FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <thread>
#include <vector>

#include "OSTime.h"
#include "PosixUtil.h"
#include "Singleton.h"
#include "StringUtils.h"
#include "TextFormat.h"

// ---- Path: parsing, normalisation and text ----

namespace zor {

namespace {

const char kDot[] = ".";
const char kDotDot[] = "..";
const char kRoot[] = "/";

bool isSeparator(char c) { return c == '/' || c == '\\'; }

bool equals(const char* data, size_t size, const char* word) {
    return size == strlen(word) && memcmp(data, word, size) == 0;
}

bool allDotDot(const std::list<std::string>& list) {
    return !list.empty() &&
           std::all_of(list.begin(), list.end(), [](const std::string& c) { return c == kDotDot; });
}

// Each component followed by "/", with a leading "//" (from the root) reduced to "/".
std::string joinWithTrailingSlash(const std::list<std::string>& list) {
    std::string text;
    for (const std::string& component : list) {
        text += component;
        text += '/';
    }
    if (text.compare(0, 2, "//") == 0) text.erase(0, 1);
    return text;
}

// Whether the first prefix.size() components of longer equal those of prefix (longer is not shorter).
bool beginsWith(const std::list<std::string>& longer, const std::list<std::string>& prefix) {
    return std::equal(prefix.begin(), prefix.end(), longer.begin());
}

}  // namespace

const std::string Path::SPCH = "/";

Path::Path() = default;
Path::Path(const std::string& path) { serialize(path); }
Path::Path(const Path& other) = default;
Path::Path(Path&& other) noexcept : m_pathList(std::move(other.m_pathList)) {}
Path& Path::operator=(const Path& other) = default;
Path& Path::operator=(Path&& other) noexcept {
    m_pathList = std::move(other.m_pathList);
    return *this;
}
Path& Path::operator=(const std::string& path) {
    assign(path);
    return *this;
}
Path::~Path() = default;

Path& Path::operator+=(const Path& path) {
    serialize(path.m_pathList);
    return *this;
}

Path& Path::operator+=(Path&& path) {
    if (m_pathList.empty()) {
        m_pathList = std::move(path.m_pathList);  // an empty list folds the components unchanged
    } else {
        serialize(path.m_pathList);
    }
    return *this;
}

Path& Path::operator+=(const std::string& path) {
    serialize(path);
    return *this;
}

Path& Path::PushDir(const std::string& dir) { return *this += dir; }

ZR_BOOL Path::PopDir(ZR_Uint32 level) {
    for (ZR_Uint32 i = 0; i < level && !m_pathList.empty(); ++i) {
        std::string& last = m_pathList.back();
        if (last == kDot) {
            last = kDotDot;
        } else if (last == kDotDot) {
            m_pathList.emplace_back(kDotDot);
        } else {
            m_pathList.pop_back();
        }
    }
    return 1;
}

std::string Path::ToString() const { return tostring(); }

std::string Path::ToAbsolutionPath() const {
    if (m_pathList.empty()) return "";
    const std::string& first = m_pathList.front();
    if (first != kDot && first != kDotDot) return tostring();
    Path absolute(filesystem::GetCurWorkDir());
    absolute += tostring();
    return absolute.tostring();
}

void Path::ConvertAbsolutionPath() {
    if (m_pathList.empty()) return;
    const std::string& first = m_pathList.front();
    if (first == kDot || first == kDotDot) assign(ToAbsolutionPath());
}

std::string Path::GetBasePath() const {
    if (m_pathList.empty()) return "";
    std::list<std::string> parent(m_pathList);
    if (allDotDot(parent)) {
        parent.emplace_back(kDotDot);
    } else if (parent.size() == 1 && parent.front() == kDot) {
        parent.front() = kDotDot;
    } else if (!(parent.size() == 1 && parent.front() == kRoot)) {
        parent.pop_back();
    }
    return joinWithTrailingSlash(parent);
}

std::string Path::GetLeafName() const {
    if (m_pathList.empty()) return "";
    if (!allDotDot(m_pathList)) return m_pathList.back();
    // Only ".." components: the leaf is named by the path one level shorter (at least "..").
    std::list<std::string> shorter(m_pathList);
    shorter.pop_back();
    if (shorter.empty()) shorter.emplace_back(kDotDot);
    return joinWithTrailingSlash(shorter);
}

bool Path::operator==(const Path& path) const { return m_pathList == path.m_pathList; }
bool Path::operator==(const std::string& path) const { return *this == Path(path); }

ZR_BOOL Path::IsParentPath(const Path& path) const {
    return m_pathList.size() < path.m_pathList.size() && beginsWith(path.m_pathList, m_pathList) ? 1 : 0;
}
ZR_BOOL Path::IsParentPath(const std::string& path) const { return IsParentPath(Path(path)); }

ZR_BOOL Path::IsSubPath(const Path& path) const { return path.IsParentPath(*this); }
ZR_BOOL Path::IsSubPath(const std::string& path) const { return IsSubPath(Path(path)); }

ZR_BOOL Path::CheckName() const {
    return std::all_of(m_pathList.begin(), m_pathList.end(),
                       [](const std::string& c) { return c.size() <= 255; })
               ? 1
               : 0;
}

const std::string Path::Joint(const std::string& dir) const {
    std::string text = tostring();
    text.reserve(text.size() + 1 + dir.size());
    text += SPCH;
    text += dir;
    return text;
}

const std::string Path::Joint(const std::string& path, const std::string& dir) {
    Path joined(path);
    joined += dir;
    return joined.tostring();
}

void Path::SetOutput(ZR_BOOL enable) { path_inner::Printer::Instance()->Initialize(enable); }

void Path::assign(const std::string& path) {
    m_pathList.clear();
    serialize(path);
}

// One pass over the text: backslashes count as "/", and each piece is folded into the list as it is
// cut out, so a parse allocates only the components it keeps.
void Path::serialize(const std::string& path) {
    const char* cursor = path.data();
    const char* const end = cursor + path.size();
    if (m_pathList.empty()) m_pathList.emplace_back(cursor != end && isSeparator(*cursor) ? kRoot : kDot);
    while (cursor != end) {
        if (isSeparator(*cursor)) {
            ++cursor;
            continue;
        }
        const char* const pieceEnd = std::find_if(cursor, end, isSeparator);
        appendComponent(cursor, static_cast<size_t>(pieceEnd - cursor));
        cursor = pieceEnd;
    }
}

void Path::serialize(const std::list<std::string>& list) {
    for (const std::string& component : list) appendComponent(component);
}

// The list is kept normalised after every change, and normalising is a left fold over the components,
// so folding a whole list again from empty gives the same list as folding new components onto it.
void Path::format() {
    std::list<std::string> components;
    components.swap(m_pathList);
    serialize(components);
}

std::string Path::tostring() const {
    size_t length = 0;
    for (const std::string& component : m_pathList) length += component.size() + 1;
    std::string text;
    text.reserve(length);
    bool first = true;
    for (const std::string& component : m_pathList) {
        if (!first) text += SPCH;
        first = false;
        text += component;
    }
    if (text.compare(0, 2, "//") == 0) text.erase(0, 1);
    return text;
}

void Path::appendComponent(const std::string& component) {
    appendComponent(component.data(), component.size());
}

void Path::appendComponent(const char* data, size_t size) {
    if (m_pathList.empty()) {
        m_pathList.emplace_back(data, size);
        return;
    }
    if (equals(data, size, kDot) || equals(data, size, kRoot)) return;
    if (equals(data, size, kDotDot)) {
        std::string& last = m_pathList.back();
        if (last == kDot) {
            last = kDotDot;  // "./.." is ".."
        } else if (last == kDotDot) {
            m_pathList.emplace_back(kDotDot);
        } else if (last != kRoot) {
            m_pathList.pop_back();  // a name and its ".." cancel; the root's parent is the root
        }
        return;
    }
    m_pathList.emplace_back(data, size);
}

Path operator+(const Path& path, const Path& pathr) {
    Path sum(path);
    sum.PushDir(pathr.ToString());
    return sum;
}

Path operator+(const Path& path, const std::string& str) {
    Path sum(path);
    sum.PushDir(str);
    return sum;
}

Path operator+(const std::string& str, const Path& path) {
    Path sum(str);
    sum.PushDir(path.ToString());
    return sum;
}

}  // namespace zor

// ---- path_inner::Printer: the change journal ----

namespace zor {
namespace path_inner {

namespace {

const size_t kMessageBuffer = 4096;  // a message keeps at most 4095 bytes
const char kHeader[] = "// xxxx-xx-xxTxx:xx:xx [thread_id] TAGS [src_path] => [dst_path]\n";

std::string currentThreadId() {
    std::ostringstream id;
    id << std::this_thread::get_id();
    return id.str();
}

// Opens the journal at name into file, appending, and refuses whatever another user may have planted
// at that guessable name in a shared working directory: a symbolic link (O_NOFOLLOW), a named pipe
// (O_NONBLOCK fails the open instead of waiting for a reader; on a regular file it changes nothing)
// or a second name of someone else's file (a hard link). True when the journal is open.
bool openJournal(StreamFile& file, const std::string& name) {
    detail::FdGuard journal(
        open(name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    struct stat info;
    if (journal.Get() < 0 || fstat(journal.Get(), &info) != 0) return false;
    if (!S_ISREG(info.st_mode) || info.st_nlink != 1) return false;
    // Append mode ("a"); Sync flushes each line as it is written so the trace is on disk at once.
    if (file.Attach(journal.Get(), File::OpenModeAppend | File::OpenModeSync) != 0) return false;
    journal.Release();  // the stream owns it now
    return true;
}

// A line break inside a message would end the journal line early and let the rest of a name read as
// an entry of its own, so each one is written as a backslash followed by an "n".
void appendEscaped(std::string& line, const char* message, size_t length) {
    for (const char* end = message + length; message != end; ++message) {
        if (*message == '\n') {
            line += "\\n";
        } else {
            line += *message;
        }
    }
}

}  // namespace

std::atomic<Printer*> Printer::_instance{nullptr};
Mutex Printer::_mutex(0);

Printer::Printer() : m_inited(0), m_mutex(0), m_enable(0) {}

Printer::~Printer() { Dispose(); }

Printer* Printer::Instance() {
    return detail::instanceOf(_instance, _mutex, [] { return new Printer(); });
}

void Printer::DestroyInstance() {
    detail::destroyInstance(_instance, _mutex, [](Printer* printer) { delete printer; });
}

void Printer::Initialize(ZR_BOOL enable) {
    ScopedLock hold(m_mutex);
    if (m_inited) return;
    m_enable.store(enable, std::memory_order_release);
    if (enable) {
        m_filename = "./.filesystem." + std::to_string(getpid()) + ".log";
        m_file = std::make_shared<StreamFile>(m_filename);
        if (!openJournal(*m_file, m_filename)) return;
        m_file->Write(reinterpret_cast<const ZR_BYTE*>(kHeader), sizeof kHeader - 1);
    }
    m_inited = 1;
}

void Printer::Dispose() {
    ScopedLock hold(m_mutex);
    if (!m_inited) return;
    if (m_file) m_file->Close();
    m_inited = 0;
}

void Printer::Print(const char* pre, const char* format, ...) {
    if (!m_enable.load(std::memory_order_acquire)) return;
    char message[kMessageBuffer];
    va_list args;
    va_start(args, format);
    const size_t length = detail::formatInto(message, kMessageBuffer, format, args);
    va_end(args);
    writeLine(pre, message, length);
}

void Printer::PrintCreate(const char* format, ...) {
    va_list args;
    va_start(args, format);
    printTagged("CREATE", format, args);
    va_end(args);
}

void Printer::PrintRemove(const char* format, ...) {
    va_list args;
    va_start(args, format);
    printTagged("DELETE", format, args);
    va_end(args);
}

void Printer::PrintMove(const char* format, ...) {
    va_list args;
    va_start(args, format);
    printTagged("MOVE", format, args);
    va_end(args);
}

void Printer::PrintRename(const char* format, ...) {
    va_list args;
    va_start(args, format);
    printTagged("RENAME", format, args);
    va_end(args);
}

void Printer::PrintLink(const char* format, ...) {
    va_list args;
    va_start(args, format);
    printTagged("LINK", format, args);
    va_end(args);
}

void Printer::printTagged(const char* pre, const char* format, va_list args) {
    if (!m_enable.load(std::memory_order_acquire)) return;
    char message[kMessageBuffer];
    const size_t length =
        detail::collapsePercents(message, detail::formatInto(message, kMessageBuffer, format, args));
    writeLine(pre, message, length);
}

void Printer::writeLine(const char* pre, const char* message, size_t length) {
    std::string line = OSTime::Now().ToStringISO();
    line.reserve(line.size() + 32 + length);
    line += " [";
    line += currentThreadId();
    line += "] ";
    line += pre;
    line += ' ';
    appendEscaped(line, message, length);
    line += '\n';
    ScopedLock hold(m_mutex);
    if (m_file) {
        m_file->Write(reinterpret_cast<const ZR_BYTE*>(line.data()), static_cast<ZR_Uint32>(line.size()));
    }
}

}  // namespace path_inner
}  // namespace zor

// ---- ExecPath and the zor::filesystem functions ----

namespace zor {

namespace {

bool lstatText(const std::string& text, struct stat& info) { return lstat(text.c_str(), &info) == 0; }

ZR_INT typeOfMode(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return FT_REG;
        case S_IFDIR:
            return FT_DIRC;
        case S_IFLNK:
            return FT_LINK;
        case S_IFBLK:
            return FT_BLOCK;
        case S_IFCHR:
            return FT_CHAR;
        case S_IFIFO:
            return FT_FIFO;
        case S_IFSOCK:
            return FT_SOCKET;
        default:
            return FT_UNKNOWN;
    }
}

ZR_INT typeOfText(const std::string& text) {
    struct stat info;
    return lstatText(text, info) ? typeOfMode(info.st_mode) : FT_UNKNOWN;
}

bool isDotEntry(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

ZR_BOOL accessible(const std::string& text, int mode) { return access(text.c_str(), mode) == 0 ? 1 : 0; }

// The path with symbolic links resolved as far as it exists, the missing tail appended as text. A
// missing component cannot be a link, so this names where the path will be once it is created.
std::string resolvedText(Path path) {
    path.ConvertAbsolutionPath();
    std::list<std::string> missing;
    char resolved[PATH_MAX];
    while (!path.IsEmpty() && realpath(path.ToString().c_str(), resolved) == nullptr) {
        missing.push_front(path.GetLeafName());
        path.PopDir(1);
    }
    Path result(path.IsEmpty() ? std::string("/") : std::string(resolved));
    for (const std::string& name : missing) result += name;
    return result.ToString();
}

// The text of the entry name in the directory whose text is dir, as ToString() of the longer path gives.
std::string childText(const std::string& dir, const std::string& name) {
    return dir == kRoot ? dir + name : dir + '/' + name;
}

// The length of the text of each leading part of a path that CreateDir may have to make, shortest first
// and the whole text last ("/", "/a", "/a/b" for "/a/b"). A leading run of ".." is one part: those
// directories exist, or none of them could be made.
std::vector<size_t> partEnds(const std::string& text, const std::list<std::string>& components) {
    std::vector<size_t> ends;
    size_t length = 0;
    for (auto it = components.begin(); it != components.end(); ++it) {
        if (length != 0 && text[length - 1] != '/') ++length;  // the root needs no separator after it
        length += it->size();
        const auto next = std::next(it);
        if (next == components.end() || *it != kDotDot || *next != kDotDot) ends.push_back(length);
    }
    if (ends.empty()) ends.push_back(0);
    return ends;
}

// Owns a directory stream over a second descriptor of a directory, for one scope. The descriptor given
// stays open for calls relative to it; the two share one offset, so the stream starts by rewinding.
class DirStream {
public:
    explicit DirStream(int fd) : m_dir(nullptr) {
        detail::FdGuard copy(fcntl(fd, F_DUPFD_CLOEXEC, 0));
        if (copy.Get() < 0) return;
        m_dir = fdopendir(copy.Get());
        if (m_dir == nullptr) return;
        copy.Release();  // the stream owns it now
        rewinddir(m_dir);
    }
    ~DirStream() {
        if (m_dir != nullptr) closedir(m_dir);
    }
    DirStream(const DirStream&) = delete;
    DirStream& operator=(const DirStream&) = delete;
    DIR* Get() const { return m_dir; }

private:
    DIR* m_dir;
};

// Opens a directory to list it and act on its entries.
const int kListFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Opens a directory only to reach into it (a target of renames and mkdirs): it need not be readable.
const int kReachFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Levels a walk goes below where it starts. No deeper directory can be named by a path (each level
// takes two bytes of PATH_MAX), and the cap bounds the stack a walk uses, whatever the descriptor limit.
const int kMaxDepth = PATH_MAX / 2;

// One directory of a walk, held open by its descriptor. Below the starting directory each directory is
// opened relative to its parent's descriptor and never through a symbolic link (O_NOFOLLOW), and every
// entry is typed, renamed and removed relative to its directory's descriptor: a directory swapped for a
// link while the walk goes on is refused, never followed. The text is for journal lines only.
class WalkDir {
public:
    // The directory at text; its last component must not be a symbolic link.
    WalkDir(const std::string& text, int flags)
        : m_text(text), m_depth(0), m_fd(open(text.c_str(), flags)), m_error(errno) {}
    // The directory entry name of parent.
    WalkDir(const WalkDir& parent, const std::string& name, int flags)
        : m_text(childText(parent.m_text, name)),
          m_depth(parent.m_depth + 1),
          m_fd(parent.openBelow(name, flags)),
          m_error(errno) {}
    WalkDir(const WalkDir&) = delete;
    WalkDir& operator=(const WalkDir&) = delete;

    const std::string& Text() const { return m_text; }
    // The descriptor, or -1 with errno set to why the directory could not be opened.
    int Fd() const {
        if (m_fd.Get() < 0) errno = m_error;
        return m_fd.Get();
    }
    // The entry names but "." and "..", in the order readdir gives them. False when the directory
    // cannot be read to the end.
    bool ReadNames(std::vector<std::string>& names) const {
        if (Fd() < 0) return false;
        const DirStream stream(m_fd.Get());
        if (stream.Get() == nullptr) return false;
        const int before = errno;  // a failure met earlier in the walk stays visible to the caller
        errno = 0;
        while (const struct dirent* entry = readdir(stream.Get())) {
            if (!isDotEntry(entry->d_name)) names.emplace_back(entry->d_name);
        }
        if (errno != 0) return false;  // readdir's only way to tell an error from the end
        errno = before;
        return true;
    }
    // lstat of the entry name.
    bool StatEntry(const std::string& name, struct stat& info) const {
        return fstatat(Fd(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
    }
    // The __FILE_TYPE of the entry name, FT_UNKNOWN when it cannot be read.
    ZR_INT TypeOf(const std::string& name) const {
        struct stat info;
        return StatEntry(name, info) ? typeOfMode(info.st_mode) : FT_UNKNOWN;
    }

private:
    int openBelow(const std::string& name, int flags) const {
        if (m_depth >= kMaxDepth) {
            errno = ENAMETOOLONG;
            return -1;
        }
        return Fd() < 0 ? -1 : openat(m_fd.Get(), name.c_str(), flags);
    }

    const std::string m_text;
    const int m_depth;
    const detail::FdGuard m_fd;
    const int m_error;  // errno of a failed open
};

ZR_INT clearTree(const WalkDir& dir);

// Empties sub, the directory entry name of parent, and removes it: DELETE with the OR of the results.
ZR_INT removeSubDir(const WalkDir& parent, const std::string& name, const WalkDir& sub) {
    ZR_INT result = clearTree(sub);
    result |= unlinkat(parent.Fd(), name.c_str(), AT_REMOVEDIR);
    path_inner::Printer::Instance()->PrintRemove("[%d] [%s]", result, sub.Text().c_str());
    return result;
}

// Removes the entry name of dir; only a directory gets a journal line. An entry gone already counts as
// removed.
ZR_INT removeEntry(const WalkDir& dir, const std::string& name) {
    struct stat info;
    if (!dir.StatEntry(name, info)) return 0;
    if (!S_ISDIR(info.st_mode)) return unlinkat(dir.Fd(), name.c_str(), 0);
    return removeSubDir(dir, name, WalkDir(dir, name, kListFlags));
}

// Removes everything inside dir: the OR of the results, E_FAILED_OPEN_DIR among them when dir cannot
// be listed.
ZR_INT clearTree(const WalkDir& dir) {
    std::vector<std::string> names;
    ZR_INT result = dir.ReadNames(names) ? 0 : E_FAILED_OPEN_DIR;
    for (const std::string& name : names) result |= removeEntry(dir, name);
    return result;
}

// Bytes held below dir; -1 as soon as an entry cannot be measured or a directory cannot be listed.
ZR_Int64 sizeOfTree(const WalkDir& dir) {
    std::vector<std::string> names;
    if (!dir.ReadNames(names)) return -1;
    ZR_Int64 total = 0;
    for (const std::string& name : names) {
        struct stat info;
        if (!dir.StatEntry(name, info)) return -1;
        const ZR_Int64 size =
            S_ISDIR(info.st_mode) ? sizeOfTree(WalkDir(dir, name, kListFlags)) : info.st_size;
        if (size < 0) return -1;
        total += size;
    }
    return total;
}

// Renames the entry name of from to the same name in to, journalled as RENAME.
int renameEntry(const WalkDir& from, const WalkDir& to, const std::string& name) {
    const int target = to.Fd();
    const int result = target < 0 ? -1 : renameat(from.Fd(), name.c_str(), target, name.c_str());
    path_inner::Printer::Instance()->PrintRename("[%d] [%s] => [%s]", result,
                                                 childText(from.Text(), name).c_str(),
                                                 childText(to.Text(), name).c_str());
    return result;
}

// Makes the directory name in dir unless something is there already, as CreateDir would: mode 0600 and
// a CREATE line. Whether it worked shows when entries are moved into it.
void makeSubDir(const WalkDir& dir, const std::string& name) {
    const int fd = dir.Fd();
    if (fd >= 0 && faccessat(fd, name.c_str(), F_OK, 0) == 0) return;
    const int result = fd < 0 ? -1 : mkdirat(fd, name.c_str(), 0600);
    path_inner::Printer::Instance()->PrintCreate("[%d] [%s]", result, childText(dir.Text(), name).c_str());
}

ZR_INT moveTree(const WalkDir& from, const WalkDir& to);

// Moves the entry name of from into to. A directory is made again in to, its entries are moved one by
// one and then it is removed, but only when all of them could be moved.
ZR_INT moveEntry(const WalkDir& from, const WalkDir& to, const std::string& name) {
    if (from.TypeOf(name) != FT_DIRC) return renameEntry(from, to, name);
    makeSubDir(to, name);
    const WalkDir source(from, name, kListFlags);
    const ZR_INT result = moveTree(source, WalkDir(to, name, kReachFlags));
    return result != 0 ? result : removeSubDir(from, name, source);
}

// Moves every entry of from into to. The first failure is the result, E_FAILED_OPEN_DIR when from
// cannot be listed; the entries after a failure are still moved. Where to cannot be reached, not even
// an empty from has been moved, so the result is -1 and from is kept.
ZR_INT moveTree(const WalkDir& from, const WalkDir& to) {
    std::vector<std::string> names;
    ZR_INT result = from.ReadNames(names) ? 0 : E_FAILED_OPEN_DIR;
    for (const std::string& name : names) {
        const ZR_INT moved = moveEntry(from, to, name);
        if (result == 0) result = moved;
    }
    return result == 0 && to.Fd() < 0 ? -1 : result;
}

}  // namespace

ExecPath::ExecPath() = default;
ExecPath::ExecPath(const std::string& path) : Path(path) {}
ExecPath::ExecPath(const Path& path) : Path(path) {}
ExecPath::ExecPath(Path&& path) : Path(std::move(path)) {}
ExecPath::ExecPath(const ExecPath& other) = default;
ExecPath::ExecPath(ExecPath&& other) noexcept : Path(std::move(other)) {}
ExecPath& ExecPath::operator=(const ExecPath& other) = default;
ExecPath& ExecPath::operator=(ExecPath&& other) noexcept {
    Path::operator=(std::move(other));
    return *this;
}
ExecPath::~ExecPath() = default;

Path ExecPath::GetPathObject() const { return Path(ToString()); }

ZR_BOOL ExecPath::IsExist() const { return accessible(ToString(), F_OK); }
ZR_BOOL ExecPath::IsRead() const { return accessible(ToString(), R_OK); }
ZR_BOOL ExecPath::IsWrite() const { return accessible(ToString(), W_OK); }
ZR_BOOL ExecPath::IsExec() const { return accessible(ToString(), X_OK); }
ZR_BOOL ExecPath::IsHidden() const { return filesystem::IsHidden(ToString()); }

ZR_BOOL ExecPath::IsHiddenFile() const {
    return !m_pathList.empty() && !m_pathList.back().empty() && m_pathList.back()[0] == '.' ? 1 : 0;
}

ZR_BOOL ExecPath::IsDirectory() const { return GetFileType() == FT_DIRC ? 1 : 0; }
ZR_BOOL ExecPath::IsRegFile() const { return GetFileType() == FT_REG ? 1 : 0; }
ZR_BOOL ExecPath::IsLinkFile() const { return GetFileType() == FT_LINK ? 1 : 0; }
ZR_BOOL ExecPath::IsBlockDevFile() const { return GetFileType() == FT_BLOCK ? 1 : 0; }
ZR_BOOL ExecPath::IsCharDevFile() const { return GetFileType() == FT_CHAR ? 1 : 0; }
ZR_BOOL ExecPath::IsFifoFile() const { return GetFileType() == FT_FIFO ? 1 : 0; }
ZR_BOOL ExecPath::IsSocketFile() const { return GetFileType() == FT_SOCKET ? 1 : 0; }

ZR_INT ExecPath::GetFileType() const { return typeOfText(ToString()); }

ZR_Int64 ExecPath::GetFileSize() const {
    struct stat info;
    return lstatText(ToString(), info) ? static_cast<ZR_Int64>(info.st_size) : -1;
}

ZR_Int64 ExecPath::GetFileUsage() const {
    struct stat info;
    return lstatText(ToString(), info) ? static_cast<ZR_Int64>(info.st_blocks) * info.st_blksize : -1;
}

ZR_Int64 ExecPath::LastVisitTime() const {
    struct stat info;
    return lstatText(ToString(), info) ? static_cast<ZR_Int64>(info.st_atime) : -1;
}

ZR_Int64 ExecPath::LastContentModifyTime() const {
    struct stat info;
    return lstatText(ToString(), info) ? static_cast<ZR_Int64>(info.st_mtime) : -1;
}

ZR_Int64 ExecPath::LastStatusModifyTime() const {
    struct stat info;
    return lstatText(ToString(), info) ? static_cast<ZR_Int64>(info.st_ctime) : -1;
}

FileInfo ExecPath::GetFileInfo() const {
    FileInfo info;
    info.FileType = GetFileType();
    info.IsHidden = IsHidden();
    info.IsExist = IsExist();
    info.IsRead = IsRead();
    info.IsWrite = IsWrite();
    info.IsExec = IsExec();
    info.FileSize = GetFileSize();
    info.BaseDir = GetBasePath();
    info.Name = GetLeafName();
    StringUtils::TruncSuffix(info.Name, info.Suffix, '.');
    info.LastTime = LastContentModifyTime();
    return info;
}

ZR_Int64 ExecPath::GetDirectoryContentSize() const {
    if (!existsNoFollow()) return -1;
    if (!IsDirectory()) return GetFileSize();
    return sizeOfTree(WalkDir(ToString(), kListFlags));
}

template <typename Keep>
ZR_INT ExecPath::listNames(std::list<std::string>& list, ZR_Uint32 type, Keep keep) const {
    if (!IsDirectory()) return E_FS_ISNOT_DIR;
    const WalkDir dir(ToString(), kListFlags);
    std::vector<std::string> names;
    if (!dir.ReadNames(names)) return E_FAILED_OPEN_DIR;
    for (const std::string& name : names) {
        if (!keep(name)) continue;
        // An unknown type (-1) has every bit set, so it passes every filter.
        if (type != FT_ALL && (static_cast<ZR_Uint32>(dir.TypeOf(name)) & type) == 0) continue;
        list.push_back(name);
    }
    return 0;
}

void ExecPath::describeAll(const std::list<std::string>& names, std::list<FileInfo>& list) const {
    for (const std::string& name : names) list.push_back(child(name).GetFileInfo());
}

ZR_INT ExecPath::GetFileList(std::list<std::string>& list, ZR_Uint32 type) const {
    return listNames(list, type, [](const std::string&) { return true; });
}

ZR_INT ExecPath::GetFileList(std::list<FileInfo>& list, ZR_Uint32 type) const {
    std::list<std::string> names;
    const ZR_INT result = GetFileList(names, type);
    describeAll(names, list);
    return result;
}

ZR_INT ExecPath::GetFileListByPre(std::list<std::string>& list, const std::string& pre,
                                  ZR_Uint32 type) const {
    return listNames(list, type,
                     [&pre](const std::string& name) { return StringUtils::IsBeginStr(name, pre); });
}

ZR_INT ExecPath::GetFileListByPre(std::list<FileInfo>& list, const std::string& pre, ZR_Uint32 type) const {
    std::list<std::string> names;
    const ZR_INT result = GetFileListByPre(names, pre, type);
    describeAll(names, list);
    return result;
}

ZR_INT ExecPath::GetFileListBySuffix(std::list<std::string>& list, const std::string& suffix,
                                     ZR_Uint32 type) const {
    return listNames(list, type,
                     [&suffix](const std::string& name) { return StringUtils::IsEndStr(name, suffix); });
}

ZR_INT ExecPath::GetFileListBySuffix(std::list<FileInfo>& list, const std::string& suffix,
                                     ZR_Uint32 type) const {
    std::list<std::string> names;
    const ZR_INT result = GetFileListBySuffix(names, suffix, type);
    describeAll(names, list);
    return result;
}

// Every missing directory of the chain is made, root-most first; the first that exists is found from
// the root too, so each part is looked up once and the text is rendered once.
ZR_INT ExecPath::CreateDir() const {
    if (IsExist()) return 0;
    const std::string text = ToString();
    bool making = false;
    for (const size_t end : partEnds(text, m_pathList)) {
        const std::string part = text.substr(0, end);
        if (!making && end < text.size() && accessible(part, F_OK)) continue;
        making = true;  // once one part is missing, so is every longer one
        const int result = mkdir(part.c_str(), 0600);
        path_inner::Printer::Instance()->PrintCreate("[%d] [%s]", result, part.c_str());
        if (result != 0) return E_FAILED_CREATE_DIR;
    }
    return 0;
}

ZR_BOOL ExecPath::AssureExist() const {
    CreateDir();
    return 0;
}

ZR_INT ExecPath::CreateSubDir(const Path& path) const { return CreateSubDir(path.ToString()); }

ZR_INT ExecPath::CreateSubDir(const std::string& path) const {
    return ExecPath(ToString() + SPCH + path).CreateDir();
}

ZR_INT ExecPath::Remove(ZR_BOOL isForce) const {
    if (!existsNoFollow()) return 0;
    const std::string text = ToString();
    if (!isForce) {
        const int result = remove(text.c_str());
        path_inner::Printer::Instance()->PrintRemove("[%d] [%s]", result, text.c_str());
        return result;
    }
    if (!IsDirectory()) return remove(text.c_str());
    ZR_INT result = ClearDir(FT_ALL);
    result |= remove(text.c_str());
    path_inner::Printer::Instance()->PrintRemove("[%d] [%s]", result, text.c_str());
    return result;
}

ZR_INT ExecPath::ClearDir(ZR_Uint32 /*type: every entry goes, whatever its type*/) const {
    if (!IsDirectory()) return E_FS_ISNOT_DIR;
    return clearTree(WalkDir(ToString(), kListFlags));
}

ZR_INT ExecPath::Rename(const std::string& name) {
    if (!filesystem::CheckName(name) || StringUtils::IsContain(name, '/') ||
        StringUtils::IsContain(name, '\\')) {
        return E_FS_INVAILED_NAME;
    }
    const std::string from = ToString();
    const std::string to = GetBasePath() + name;
    const int result = rename(from.c_str(), to.c_str());
    path_inner::Printer::Instance()->PrintRename("[%d] [%s] => [%s]", result, from.c_str(), to.c_str());
    if (result == 0) assign(to);
    return result;
}

ZR_INT ExecPath::Move(const std::string& path) {
    const ExecPath target(Path::Joint(path, GetLeafName()));
    if (IsDirectory()) {
        const Path resolvedSource(resolvedText(*this));
        const Path resolvedTarget(resolvedText(target));
        if (resolvedTarget == resolvedSource) return 0;  // already there, as rename(x, x) would say
        if (resolvedTarget.IsSubPath(resolvedSource)) {
            errno = EINVAL;  // the tree would have to be moved into itself
            return -1;
        }
    }
    return moveTo(target);
}

ZR_INT ExecPath::moveTo(const ExecPath& target) {
    const std::string from = ToString();
    const std::string to = target.ToString();
    if (!IsDirectory()) {
        const int result = rename(from.c_str(), to.c_str());
        path_inner::Printer::Instance()->PrintRename("[%d] [%s] => [%s]", result, from.c_str(), to.c_str());
        if (result == 0) assign(to);
        return result;
    }
    target.CreateDir();
    ZR_INT result = moveTree(WalkDir(from, kListFlags), WalkDir(to, kReachFlags));
    if (result != 0) return result;  // keep the source: it still holds what could not be moved
    result = Remove(1);
    if (result != 0) return result;
    *this = target;
    return 0;
}

std::shared_ptr<StreamFile> ExecPath::GetStreamFilePtr() const {
    return std::make_shared<StreamFile>(ToString());
}

std::shared_ptr<PrimeFile> ExecPath::GetPrimeFilePtr() const {
    return std::make_shared<PrimeFile>(ToString());
}

std::shared_ptr<BigFile> ExecPath::GetBigFilePtr() const { return std::shared_ptr<BigFile>(); }

ExecPath ExecPath::child(const std::string& name) const {
    ExecPath entry(*this);
    entry.m_pathList.push_back(name);
    return entry;
}

bool ExecPath::existsNoFollow() const {
    struct stat info;
    return lstatText(ToString(), info);
}

namespace filesystem {

ZR_BOOL IsExist(const std::string& path) { return accessible(path, F_OK); }
ZR_BOOL IsExec(const std::string& path) { return accessible(path, X_OK); }
ZR_BOOL IsRead(const std::string& path) { return accessible(path, R_OK); }
ZR_BOOL IsWrite(const std::string& path) { return accessible(path, W_OK); }

ZR_BOOL IsHidden(const std::string& path) {
    const std::string::size_type end = path.find_last_not_of("/\\");
    if (end == std::string::npos) return 0;
    const std::string::size_type start = path.find_last_of("/\\", end);
    return path[start == std::string::npos ? 0 : start + 1] == '.' ? 1 : 0;
}

ZR_INT GetFileType(const std::string& path) { return ExecPath(path).GetFileType(); }
FileInfo GetFileInfo(const std::string& path) { return ExecPath(path).GetFileInfo(); }
ZR_INT CreateDir(const std::string& path) { return ExecPath(path).CreateDir(); }
ZR_INT Remove(const std::string& path, ZR_BOOL isForce) { return ExecPath(path).Remove(isForce); }
ZR_INT Rename(const std::string& path, const std::string& name) { return ExecPath(path).Rename(name); }
ZR_INT Move(const std::string& path, const std::string& newpath) { return ExecPath(path).Move(newpath); }
ZR_INT ClearDir(const std::string& path, ZR_Uint32 type) { return ExecPath(path).ClearDir(type); }

ZR_INT GetFileList(const std::string& path, std::list<std::string>& list, ZR_Uint32 type) {
    return ExecPath(path).GetFileList(list, type);
}

ZR_INT GetFileList(const std::string& path, std::list<FileInfo>& list, ZR_Uint32 type) {
    return ExecPath(path).GetFileList(list, type);
}

ZR_INT GetFileListByPre(const std::string& path, std::list<std::string>& list, const std::string& pre,
                        ZR_Uint32 type) {
    return ExecPath(path).GetFileListByPre(list, pre, type);
}

ZR_INT GetFileListByPre(const std::string& path, std::list<FileInfo>& list, const std::string& pre,
                        ZR_Uint32 type) {
    return ExecPath(path).GetFileListByPre(list, pre, type);
}

ZR_INT GetFileListBySuffix(const std::string& path, std::list<std::string>& list, const std::string& suffix,
                           ZR_Uint32 type) {
    return ExecPath(path).GetFileListBySuffix(list, suffix, type);
}

ZR_INT GetFileListBySuffix(const std::string& path, std::list<FileInfo>& list, const std::string& suffix,
                           ZR_Uint32 type) {
    return ExecPath(path).GetFileListBySuffix(list, suffix, type);
}

ZR_BOOL CheckName(const std::string& path) { return Path(path).CheckName(); }

std::string GetCurWorkDir() {
    char buffer[4096];
    return getcwd(buffer, sizeof buffer) != nullptr ? std::string(buffer) : std::string();
}

}  // namespace filesystem

}  // namespace zor
