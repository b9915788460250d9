#include "FileSystem.h"

#include <dirent.h>
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

#include "OSTime.h"
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
        // Append mode ("a"); Sync flushes each line as it is written so the trace is on disk at once.
        if (m_file->Open(File::OpenModeAppend | File::OpenModeSync) != 0) return;
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
    line.append(message, length);
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

// Owns an open directory stream for one scope.
class DirGuard {
public:
    explicit DirGuard(const std::string& path) : m_dir(opendir(path.c_str())) {}
    ~DirGuard() {
        if (m_dir != nullptr) closedir(m_dir);
    }
    DirGuard(const DirGuard&) = delete;
    DirGuard& operator=(const DirGuard&) = delete;
    DIR* Get() const { return m_dir; }

private:
    DIR* m_dir;
};

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
    std::list<std::string> names;
    if (GetFileList(names, FT_ALL) != 0) return -1;
    ZR_Int64 total = 0;
    for (const std::string& name : names) {
        const ZR_Int64 size = child(name).GetDirectoryContentSize();
        if (size < 0) return -1;
        total += size;
    }
    return total;
}

template <typename Keep>
ZR_INT ExecPath::listNames(std::list<std::string>& list, ZR_Uint32 type, Keep keep) const {
    if (!IsDirectory()) return E_FS_ISNOT_DIR;
    const std::string text = ToString();
    DirGuard dir(text);
    if (dir.Get() == nullptr) return E_FAILED_OPEN_DIR;
    std::string entryText = text + SPCH;
    const size_t prefixLength = entryText.size();
    while (const struct dirent* entry = readdir(dir.Get())) {
        if (isDotEntry(entry->d_name)) continue;
        const std::string name(entry->d_name);
        if (!keep(name)) continue;
        if (type != FT_ALL) {
            entryText.replace(prefixLength, std::string::npos, name);
            const ZR_INT entryType = typeOfText(entryText);
            // An unknown type (-1) has every bit set, so it passes every filter.
            if ((static_cast<ZR_Uint32>(entryType) & type) == 0) continue;
        }
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

ZR_INT ExecPath::CreateDir() const {
    if (IsExist()) return 0;
    const ExecPath parent(GetBasePath());
    // Only a parent nearer the root is created first; a ".." path's "parent" grows instead, and
    // recursing on it could never end.
    if (!parent.IsEmpty() && parent.Size() < Size() && !parent.IsExist() && parent.CreateDir() != 0) {
        return E_FAILED_CREATE_DIR;
    }
    const std::string text = ToString();
    const int result = mkdir(text.c_str(), 0600);
    path_inner::Printer::Instance()->PrintCreate("[%d] [%s]", result, text.c_str());
    return result != 0 ? E_FAILED_CREATE_DIR : 0;
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
    std::list<std::string> names;
    ZR_INT result = GetFileList(names, FT_ALL);
    for (const std::string& name : names) result |= child(name).Remove(1);
    return result;
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
    std::list<std::string> names;
    ZR_INT result = GetFileList(names, FT_ALL);
    for (const std::string& name : names) {
        const ZR_INT moved = child(name).moveTo(target.child(name));
        if (result == 0) result = moved;
    }
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
