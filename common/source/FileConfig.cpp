#include "FileConfig.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string_view>

#include "PosixUtil.h"

namespace zor {

namespace {

// A piece is one ReadLine into this buffer: at most 255 characters of a line.
constexpr size_t kPieceSize = 256;

struct Piece {
    char text[kPieceSize];
    size_t length;  // bytes taken from the file, NUL bytes inside the line included
};

// Reads the next piece. The buffer is pre-filled with newlines so the real length can be told even when
// the line holds NUL bytes: fgets stops after the only newline it copies, and everything after its
// terminating zero is still filler.
bool readPiece(File& file, Piece& piece) {
    std::memset(piece.text, '\n', kPieceSize);
    if (file.ReadLine(piece.text, kPieceSize) != 0) return false;
    const void* pNewline = std::memchr(piece.text, '\n', kPieceSize);
    if (pNewline == nullptr) {
        piece.length = kPieceSize - 1;  // a full piece: the terminator sits in the last byte
        return true;
    }
    const size_t index = static_cast<const char*>(pNewline) - piece.text;
    const bool lineEnd = index + 1 < kPieceSize && piece.text[index + 1] == '\0';
    piece.length = lineEnd ? index + 1 : index - 1;
    return true;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

// The first blank-delimited word of [begin, end), empty when there is none.
std::string_view firstWord(const char* begin, const char* end) {
    while (begin < end && isBlank(*begin)) ++begin;
    const char* wordEnd = begin;
    while (wordEnd < end && !isBlank(*wordEnd)) ++wordEnd;
    return std::string_view(begin, wordEnd - begin);
}

// The '=' of a key line, or null for a comment or a piece without '='. Only the text up to the first
// NUL byte counts, as for any C string.
const char* findEquals(const Piece& piece) {
    if (piece.text[0] == '#') return nullptr;
    return std::strchr(piece.text, '=');
}

bool keyMatches(const Piece& piece, const char* pEquals, const std::string& key) {
    return firstWord(piece.text, pEquals) == key;
}

// The value after '='. An empty value part yields the key: both words share one buffer in this format's
// reading, and the key is what an empty scan leaves in it.
std::string valueOf(const char* pEquals, const std::string& key) {
    const std::string_view word = firstWord(pEquals + 1, pEquals + std::strlen(pEquals));
    return word.empty() ? key : std::string(word);
}

// A key or value holding a line end would write a line of its own into the file.
bool hasLineBreak(const std::string& text) { return text.find_first_of("\r\n") != std::string::npos; }

// Makes a rename in the directory of `path` durable: until the directory is synced, a power cut can
// still bring the old entry back. Best effort, as the rename itself has been done either way.
void syncDirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const detail::FdGuard fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.Get() >= 0) ::fsync(fd.Get());
}

// Unlocks the file when a search or copy ends, however it ends.
class FileUnlocker {
public:
    explicit FileUnlocker(File& file) : m_file(file) {}
    ~FileUnlocker() { m_file.Unlock(); }
    FileUnlocker(const FileUnlocker&) = delete;
    FileUnlocker& operator=(const FileUnlocker&) = delete;

private:
    File& m_file;
};

}  // namespace

FileConfig::FileConfig(const std::string& path, ZR_BOOL readonly)
    : m_readonly(readonly), m_file(std::make_unique<StreamFile>(path)) {}

FileConfig::~FileConfig() {}

ZR_INT FileConfig::Initialize() {
    if (m_readonly) return m_file->Open(File::OpenModeRead);
    const ZR_Uint32 mode =
        File::OpenModeRead | File::OpenModeWrite | File::OpenModeAppend | File::OpenModeSync;
    return m_file->Open(mode) != 0 ? E_FAILED : E_OK;
}

ZR_INT FileConfig::GetValue(const std::string& key, std::string& value) {
    if (m_file) m_file->Seek(0, File::SeekPosSet);
    return GetValueContinous(key, value);
}

ZR_INT FileConfig::GetValueContinous(const std::string& key, std::string& value) {
    if (key.empty() || !m_file) return E_INVPARAM;
    m_file->Lock(0, 0);  // advisory only: a lock held elsewhere does not stop the read
    FileUnlocker unlocker(*m_file);
    Piece piece;
    while (readPiece(*m_file, piece)) {
        const char* pEquals = findEquals(piece);
        if (pEquals != nullptr && keyMatches(piece, pEquals, key)) {
            value = valueOf(pEquals, key);
            return E_OK;
        }
    }
    return E_FAILED;
}

ZR_INT FileConfig::SetValue(const std::string& key, const std::string& value) {
    if (m_readonly) return E_UNSUPPORT;
    if (key.empty() || value.empty() || !m_file) return E_INVPARAM;
    if (hasLineBreak(key) || hasLineBreak(value)) return E_INVPARAM;
    const std::string tempPath = m_file->GetFilePath() + "_tmp";
    StreamFile temp(tempPath);
    if (temp.Open(File::OpenModeWrite) != 0) return E_CREATEFAIL;

    m_file->Lock(0, 0);
    m_file->Seek(0, File::SeekPosSet);
    ZR_Int64 matchEnd = -1;
    const CopyResult copied = copyPieces(temp, key, true, matchEnd);
    if (copied != COPY_MATCHED) return abandon(temp, tempPath, E_FAILED);
    const ZR_INT result = replaceWith(temp, tempPath, key + " = " + value + "\n");
    if (result != E_OK) return result;

    m_file = std::make_unique<StreamFile>(m_file->GetFilePath());
    m_file->Open(File::OpenModeRead | File::OpenModeWrite | File::OpenModeSync);
    // The old file's offset, deliberately not corrected for a new line of another length.
    m_file->Seek(matchEnd, File::SeekPosSet);
    return E_OK;
}

FileConfig::CopyResult FileConfig::copyPieces(File& target, const std::string& key, bool matchKey,
                                              ZR_Int64& matchEnd) {
    Piece piece;
    while (readPiece(*m_file, piece)) {
        if (matchKey) {
            const char* pEquals = findEquals(piece);
            if (pEquals != nullptr && keyMatches(piece, pEquals, key)) {
                matchEnd = m_file->Tell();
                return COPY_MATCHED;
            }
        }
        // Written by length rather than as a C string, so NUL bytes in the file survive the rewrite.
        const ZR_BYTE* pBytes = reinterpret_cast<const ZR_BYTE*>(piece.text);
        const ZR_Int32 length = static_cast<ZR_Int32>(piece.length);
        if (target.Write(pBytes, static_cast<ZR_Uint32>(length)) != length) return COPY_WRITE_FAILED;
    }
    return COPY_DONE;
}

ZR_INT FileConfig::replaceWith(StreamFile& temp, const std::string& tempPath, const std::string& line) {
    ZR_Int64 unused = -1;
    if (temp.WriteLine(line.c_str()) != static_cast<ZR_Int32>(line.size()) ||
        copyPieces(temp, std::string(), false, unused) != COPY_DONE || temp.Sync() != 0) {
        // The copy is on the disk before it takes the file's place, so neither a full disk nor a crash
        // can put a short file there.
        return abandon(temp, tempPath, E_FAILED);
    }
    m_file->Unlock();
    m_file->Close();
    temp.Close();
    // Renamed over the old file, never removing it first: the path holds the old or the new file at every
    // moment, so a process killed here leaves a whole configuration for its successor.
    const std::string path = m_file->GetFilePath();
    File::Rename(tempPath, path);
    syncDirectoryOf(path);
    return E_OK;
}

ZR_INT FileConfig::abandon(File& temp, const std::string& tempPath, ZR_INT result) {
    m_file->Unlock();
    temp.Close();
    File::Remove(tempPath);
    return result;
}

}  // namespace zor
