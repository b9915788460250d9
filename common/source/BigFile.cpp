#include "BigFile.h"

#include <cerrno>
#include <cstdio>
#include <utility>

namespace zor {

BigFile::BigFile(const std::string& path) : m_file(nullptr), m_openMode(0), m_filePath(path) {}

BigFile::BigFile() : m_file(nullptr), m_openMode(0) {}

BigFile::~BigFile() { Close(); }

BigFile::BigFile(BigFile&& other) noexcept
    : m_file(std::exchange(other.m_file, nullptr)),
      m_openMode(other.m_openMode),
      m_filePath(std::move(other.m_filePath)) {}

BigFile& BigFile::operator=(BigFile&& other) noexcept {
    if (this != &other) {
        Close();
        m_file = std::exchange(other.m_file, nullptr);
        m_openMode = other.m_openMode;
        m_filePath = std::move(other.m_filePath);
    }
    return *this;
}

ZR_Int32 BigFile::Open(ZR_Uint32 openMode) {
    if (m_file != nullptr) return 0;
    if (m_filePath.empty()) return -1;
    m_openMode = openMode;
    m_file = ::fopen64(m_filePath.c_str(), StreamFile::getStrFileMode(openMode).c_str());
    return m_file == nullptr ? -1 : 0;
}

ZR_Int32 BigFile::Close() {
    if (m_file != nullptr) {
        std::fclose(m_file);
        m_file = nullptr;
    }
    return 0;
}

ZR_Int64 BigFile::Read(ZR_BYTE* pData, ZR_Int64 readLen) {
    if (m_file == nullptr) return -1;
    if (readLen < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<ZR_Int64>(std::fread(pData, 1, static_cast<size_t>(readLen), m_file));
}

ZR_Int64 BigFile::Write(const ZR_BYTE* pData, ZR_Int64 writeLen) {
    if (m_file == nullptr) return -1;
    if (writeLen < 0) {
        errno = EINVAL;
        return -1;
    }
    const size_t count = std::fwrite(pData, 1, static_cast<size_t>(writeLen), m_file);
    if (count > 0 && (m_openMode & File::OpenModeSync) != 0) std::fflush(m_file);
    return static_cast<ZR_Int64>(count);
}

ZR_Int64 BigFile::Seek(ZR_Int64 offset, File::FileSeekPos pos) {
    if (m_file == nullptr) return -1;
    return ::fseeko64(m_file, offset, pos);
}

ZR_Int64 BigFile::Tell() const {
    if (m_file == nullptr) return -1;
    return ::ftello64(m_file);
}

ZR_Int64 BigFile::Truncate(ZR_Int64 /*newSize*/) { return -1; }

ZR_Int64 BigFile::GetFileSize() {
    if (m_file == nullptr) return -1;
    const ZR_Int64 iPosition = Tell();
    if (iPosition == -1) return -1;
    const ZR_Int64 iSize = Seek(0, File::SeekPosEnd) == 0 ? Tell() : -1;
    Seek(iPosition, File::SeekPosSet);
    return iSize;
}

ZR_BOOL BigFile::IsEndOfFile() {
    const ZR_Int64 iPosition = Tell();
    if (iPosition == -1) return 0;
    return iPosition == GetFileSize() ? 1 : 0;
}

}  // namespace zor
