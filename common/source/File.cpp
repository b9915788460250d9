#include "File.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

namespace zor {

namespace {

const int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};

bool validOrigin(File::FileSeekPos pos) { return pos >= File::SeekPosSet && pos <= File::SeekPosEnd; }

int lockOperation(ZR_BOOL shared, ZR_BOOL blocking) {
    const int iOperation = shared ? LOCK_SH : LOCK_EX;
    return blocking ? iOperation : iOperation | LOCK_NB;
}

// Counts are returned as 32-bit numbers, so one call never moves more than fits in them.
size_t clampLength(size_t len) { return len > INT_MAX ? static_cast<size_t>(INT_MAX) : len; }

bool has(ZR_Uint32 openMode, File::FileOpenMode bit) { return (openMode & bit) != 0; }

}  // namespace

// ---- File ----

File::File(const std::string& filePath) : m_filePath(filePath), m_openMode(0) {}

File::File() : m_openMode(0) {}

File::~File() {}

ZR_Int64 File::GetFileSize() {
    const ZR_Int64 iPosition = Tell();
    if (iPosition == -1) return -1;
    if (Seek(0, SeekPosEnd) != 0) return -1;
    const ZR_Int64 iSize = Tell();
    Seek(iPosition, SeekPosSet);
    return iSize;
}

ZR_BOOL File::IsEndOfFile() {
    const ZR_Int64 iPosition = Tell();
    if (iPosition == -1) return 0;
    return iPosition == GetFileSize() ? 1 : 0;
}

ZR_INT File::Remove(const std::string& path) { return ::unlink(path.c_str()); }

ZR_INT File::Rename(const std::string& origin, const std::string& target) {
    return ::rename(origin.c_str(), target.c_str());
}

// ---- PrimeFile ----

PrimeFile::PrimeFile(const std::string& filePath) : File(filePath), m_handle(-1) {}

PrimeFile::PrimeFile() : m_handle(-1) {}

PrimeFile::~PrimeFile() { PrimeFile::Close(); }

ZR_Int32 PrimeFile::Open(ZR_Uint32 openMode) {
    Close();
    m_openMode = openMode;
    if (m_filePath.empty()) {
        char templ[] = "tmpfile.XXXXXX";
        m_handle = ::mkstemp(templ);
        if (m_handle == -1) return -1;
        // The descriptor keeps the data reachable; without a name the file vanishes on close.
        ::unlink(templ);
        return 0;
    }
    m_handle = ::open(m_filePath.c_str(), GetIntFileMode(), 0666);
    return m_handle == -1 ? -1 : 0;
}

ZR_Int32 PrimeFile::Close() {
    if (m_handle != -1) {
        ::close(m_handle);
        m_handle = -1;
    }
    return 0;
}

ZR_Int32 PrimeFile::Read(ZR_BYTE* pData, ZR_Uint32 readLen) {
    return static_cast<ZR_Int32>(::read(m_handle, pData, clampLength(readLen)));
}

ZR_Int32 PrimeFile::Write(const ZR_BYTE* pData, ZR_Uint32 writeLen) {
    return static_cast<ZR_Int32>(::write(m_handle, pData, clampLength(writeLen)));
}

ZR_Int32 PrimeFile::ReadLine(ZR_CHAR* /*pData*/, ZR_Uint32 /*readLen*/) { return -1; }

ZR_Int32 PrimeFile::WriteLine(const ZR_CHAR* /*pData*/) { return -1; }

ZR_Int32 PrimeFile::Seek(ZR_Int64 offset, FileSeekPos pos) {
    if (!validOrigin(pos)) return -1;
    return ::lseek(m_handle, offset, kWhence[pos]) >= 0 ? 0 : -1;
}

ZR_Int64 PrimeFile::Tell() const { return ::lseek(m_handle, 0, SEEK_CUR); }

ZR_Int64 PrimeFile::Truncate(ZR_Uint64 newSize) {
    return ::ftruncate(m_handle, static_cast<off_t>(newSize)) == 0 ? 0 : -1;
}

ZR_INT PrimeFile::Lock(ZR_BOOL shared, ZR_BOOL blocking) {
    return ::flock(m_handle, lockOperation(shared, blocking));
}

ZR_INT PrimeFile::Unlock() { return ::flock(m_handle, LOCK_UN); }

ZR_Int32 PrimeFile::GetIntFileMode() const {
    int iFlags = O_RDONLY;
    if (has(m_openMode, OpenModeWrite)) iFlags = O_WRONLY | O_CREAT | O_TRUNC;
    if (has(m_openMode, OpenModeWrite) && has(m_openMode, OpenModeRead)) iFlags = O_RDWR | O_CREAT;
    if (has(m_openMode, OpenModeAppend)) {
        iFlags = (has(m_openMode, OpenModeRead) ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND;
    }
    if (has(m_openMode, OpenModeSync)) iFlags |= O_SYNC;
    return iFlags;
}

// ---- StreamFile ----

StreamFile::StreamFile(const std::string& filePath) : File(filePath), m_file(nullptr) {}

StreamFile::StreamFile() : m_file(nullptr) {}

StreamFile::~StreamFile() { StreamFile::Close(); }

ZR_Int32 StreamFile::Open(ZR_Uint32 openMode) {
    Close();
    m_openMode = openMode;
    if (m_filePath.empty()) {
        m_file = std::tmpfile();
    } else {
        m_file = std::fopen(m_filePath.c_str(), getStrFileMode(openMode).c_str());
    }
    return m_file == nullptr ? -1 : 0;
}

ZR_Int32 StreamFile::Attach(FileHandle handle, ZR_Uint32 openMode) {
    Close();
    m_openMode = openMode;
    m_file = ::fdopen(handle, getStrFileMode(openMode).c_str());
    return m_file == nullptr ? -1 : 0;
}

ZR_Int32 StreamFile::Close() {
    if (m_file != nullptr) {
        std::fclose(m_file);
        m_file = nullptr;
    }
    return 0;
}

ZR_Int32 StreamFile::Read(ZR_BYTE* pData, ZR_Uint32 readLen) {
    if (m_file == nullptr) return -1;
    return static_cast<ZR_Int32>(std::fread(pData, 1, clampLength(readLen), m_file));
}

ZR_Int32 StreamFile::Write(const ZR_BYTE* pData, ZR_Uint32 writeLen) {
    if (m_file == nullptr) return -1;
    return writeBytes(pData, clampLength(writeLen));
}

ZR_Int32 StreamFile::ReadLine(ZR_CHAR* pData, ZR_Uint32 readLen) {
    if (m_file == nullptr || readLen == 0) return -1;
    return std::fgets(pData, static_cast<int>(clampLength(readLen)), m_file) != nullptr ? 0 : -1;
}

ZR_Int32 StreamFile::WriteLine(const ZR_CHAR* pData) {
    if (m_file == nullptr) return -1;
    return writeBytes(pData, clampLength(std::strlen(pData)));
}

ZR_Int32 StreamFile::Seek(ZR_Int64 offset, FileSeekPos pos) {
    if (m_file == nullptr || !validOrigin(pos)) return -1;
    return ::fseeko(m_file, offset, kWhence[pos]);
}

ZR_Int64 StreamFile::Tell() const {
    if (m_file == nullptr) return -1;
    return ::ftello(m_file);
}

ZR_Int64 StreamFile::Truncate(ZR_Uint64 newSize) {
    if (m_file == nullptr) return -1;
    return ::ftruncate(::fileno(m_file), static_cast<off_t>(newSize)) == 0 ? 0 : -1;
}

ZR_INT StreamFile::Lock(ZR_BOOL shared, ZR_BOOL blocking) {
    if (m_file == nullptr) return -1;
    return ::flock(::fileno(m_file), lockOperation(shared, blocking));
}

ZR_INT StreamFile::Unlock() {
    if (m_file == nullptr) return -1;
    return ::flock(::fileno(m_file), LOCK_UN);
}

ZR_Int32 StreamFile::Sync() {
    if (m_file == nullptr) return -1;
    if (std::fflush(m_file) != 0) return -1;
    return ::fsync(::fileno(m_file)) == 0 ? 0 : -1;
}

std::string StreamFile::getStrFileMode(ZR_Uint32 openMode) {
    std::string mode;
    if (has(openMode, OpenModeRead)) mode = "r";
    if (has(openMode, OpenModeWrite)) mode = "w";
    if (has(openMode, OpenModeAppend)) mode = "a";
    if (has(openMode, OpenModeRead) && has(openMode, OpenModeWrite)) mode = "r+";
    if (has(openMode, OpenModeAppend) && has(openMode, OpenModeRead)) mode = "a+";
    if (has(openMode, OpenModeBinary)) mode += "b";
    if (has(openMode, OpenModeText)) mode += "t";
    return mode;
}

ZR_Int32 StreamFile::writeBytes(const void* pData, size_t len) {
    const size_t count = std::fwrite(pData, 1, len, m_file);
    if (has(m_openMode, OpenModeSync)) std::fflush(m_file);
    return static_cast<ZR_Int32>(count);
}

}  // namespace zor
