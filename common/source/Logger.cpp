#include "Logger.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <stdexcept>

#include "FileConfig.h"
#include "Singleton.h"

namespace zor {

const char* const Logger::PREFIX_INFO = "Info:  ";
const char* const Logger::PREFIX_WARN = "Warn:  ";
const char* const Logger::PREFIX_ERROR = "Error: ";
const char* const Logger::PREFIX_ALERT = "Alert: ";
const char* const Logger::PREFIX_DEBUG = "Debug: ";

std::atomic<Logger*> Logger::_instance{nullptr};
Mutex Logger::_mutex(0);

namespace {

constexpr ZR_Uint32 NO_LIMIT = 0xFFFFFFFFU;
constexpr ZR_Uint32 BACKUP_FILES = 5;
constexpr size_t SYNC_MESSAGE_BYTES = 256;
constexpr int ALERT_LINE = 166;

// Appends "{module} [YYYY-MM-DD HH:MM:SS.mmm] (file:func:line) prefix", the head of every line, for the
// wall clock at the call in local time. The date part is formatted once per second per thread: the
// line formatting is on every caller's path, and localtime_r plus snprintf cost more than all the rest.
void appendHeader(std::string& out, const std::string& module, const char* file, const char* func, int line,
                  const char* prefix) {
    thread_local time_t cachedSecond = -1;
    thread_local char cachedDate[64];  // "YYYY-MM-DD HH:MM:SS."
    timeval tv{};
    gettimeofday(&tv, nullptr);
    if (tv.tv_sec != cachedSecond) {
        tm t{};
        localtime_r(&tv.tv_sec, &t);
        std::snprintf(cachedDate, sizeof cachedDate, "%04d-%02d-%02d %02d:%02d:%02d.", t.tm_year + 1900,
                      t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
        cachedSecond = tv.tv_sec;
    }
    const long ms = static_cast<long>(tv.tv_usec / 1000);
    const char millis[3] = {static_cast<char>('0' + ms / 100), static_cast<char>('0' + ms / 10 % 10),
                            static_cast<char>('0' + ms % 10)};
    char number[16];
    const auto lineEnd = std::to_chars(number, number + sizeof number, line).ptr;
    out += '{';
    out += module;
    out += "} [";
    out += cachedDate;
    out.append(millis, sizeof millis);
    out += "] (";
    out += file != nullptr ? file : "(null)";  // what printf prints for a null string
    out += ':';
    out += func != nullptr ? func : "(null)";
    out += ':';
    out.append(number, lineEnd);
    out += ") ";
    out += prefix;
}

// Appends text the way printf would print it as a format without arguments: "%%" becomes "%". Any other
// conversion would read arguments that do not exist, so it is written as it stands instead.
void appendAsFormat(std::string& out, const char* text) {
    for (const char* p = text; *p != '\0'; ++p) {
        out.push_back(*p);
        if (p[0] == '%' && p[1] == '%') ++p;
    }
}

std::string backupName(const std::string& path, ZR_Uint32 number) {
    return path + "_" + std::to_string(number);
}

// Single-quotes a word for the shell, so that a directory with blanks or quotes stays one argument.
std::string shellQuoted(const std::string& word) {
    std::string quoted = "'";
    for (char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

}  // namespace

Logger* Logger::Instance() {
    return detail::instanceOf(_instance, _mutex, [] { return new Logger(); });
}

void Logger::DestroyInstance() {
    detail::destroyInstance(_instance, _mutex, [](Logger* logger) { delete logger; });
}

Logger::Logger()
    : m_bSyncWrite(0),
      m_bForeground(0),
      m_bInitialized(0),
      m_iDebugLevel(0),
      m_iCurrLineIdx(0),
      m_iCurrFileIdx(0),
      m_iMaxBytes(NO_LIMIT),
      m_iMaxLines(NO_LIMIT),
      m_iMaxFiles(NO_LIMIT),
      m_sFilePath("./file.log"),
      m_sModuleName("Logger"),
      m_mutex(0),
      m_fileStream(nullptr),
      m_sem(4096),
      m_queueMutex(0) {}

Logger::~Logger() {
    StopAndWait();  // the writer drains the queue before it ends
    ScopedLock hold(m_mutex);
    if (m_fileStream != nullptr) {
        std::fclose(m_fileStream);
        m_fileStream = nullptr;
    }
}

void Logger::Initialize(const std::string& configPath) {
    std::string module, file, mbytes = "1", lines = "1000", level = "0", foreground = "0", sync = "0";
    {
        FileConfig config(configPath, 1);  // deliberately not initialised: every key keeps its default
        config.GetValue("module", module);
        config.GetValue("file", file);
        config.GetValue("mbytes", mbytes);
        config.GetValue("lines", lines);
        config.GetValue("level", level);
        config.GetValue("foreground", foreground);
        config.GetValue("sync", sync);
    }
    Initialize(module, file, static_cast<ZR_Uint32>(std::atoi(mbytes.c_str())),
               static_cast<ZR_Uint32>(std::atoi(lines.c_str())),
               static_cast<ZR_Uint32>(std::atoi(level.c_str())), std::atoi(foreground.c_str()),
               std::atoi(sync.c_str()));
}

void Logger::Initialize(const std::string& module, const std::string& file, ZR_Uint32 mbytes, ZR_Uint32 lines,
                        ZR_Uint32 level, ZR_BOOL foreground, ZR_BOOL sync) {
    bool bAlready = false;
    {
        ScopedLock hold(m_mutex);  // two threads initialising at once must not both open the file
        bAlready = m_bInitialized != 0;
        if (!bAlready) applySettings(module, file, mbytes, lines, level, foreground, sync);
    }
    // Logged without m_mutex held: the asynchronous path takes the queue lock, which ranks before it.
    if (bAlready) {
        LogAlert(LogFileName(__FILE__), "Initialize", ALERT_LINE, "The Logger has been initialized!!");
        return;
    }
    if (!sync) Start();
}

// With m_mutex held: everything Initialize sets, the file opened last and the logger published.
void Logger::applySettings(const std::string& module, const std::string& file, ZR_Uint32 mbytes,
                           ZR_Uint32 lines, ZR_Uint32 level, ZR_BOOL foreground, ZR_BOOL sync) {
    if (!module.empty() && module != m_sModuleName) m_sModuleName = module;
    if (!file.empty() && file != m_sFilePath) m_sFilePath = file;
    m_iMaxBytes = mbytes << 20;
    m_iMaxLines = lines;
    m_iMaxFiles = BACKUP_FILES;
    touchFilePath(m_sFilePath);
    m_iCurrLineIdx = getFileLineCount(m_sFilePath);
    m_fileStream = std::fopen(m_sFilePath.c_str(), "a+");
    if (m_fileStream == nullptr) throw std::runtime_error("open logger file failed!!");
    m_iDebugLevel = level;
    m_bSyncWrite = sync;
    m_bForeground = foreground;
    m_bInitialized.store(1, std::memory_order_release);
}

ZR_Uint32 Logger::TotalLines() {
    ScopedLock hold(m_mutex);
    return m_iCurrLineIdx;
}

void Logger::logWithPrefix(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                           const ZR_CHAR* fmt, va_list args) {
    // Read first: once it is set, the mode read next is the one Initialize published with it, so a line
    // logged while Initialize runs is never queued for a writer that synchronous mode does not start.
    const bool bReady = m_bInitialized.load(std::memory_order_acquire) != 0;
    if (m_bSyncWrite.load(std::memory_order_acquire)) {
        if (bReady) doLog(file, func, line, prefix, fmt, args);
        return;
    }
    if (bReady) doLogAsync(file, func, line, prefix, fmt, args);
    m_sem.Signal();  // also before Initialize: the count then grows with nobody to take it
}

#define ZOR_DEFINE_LOG_LEVEL(name, prefix)                                                              \
    void Logger::name(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* fmt, ...) { \
        va_list args;                                                                                   \
        va_start(args, fmt);                                                                            \
        logWithPrefix(file, func, line, prefix, fmt, args);                                             \
        va_end(args);                                                                                   \
    }
ZOR_DEFINE_LOG_LEVEL(LogInfo, PREFIX_INFO)
ZOR_DEFINE_LOG_LEVEL(LogWarn, PREFIX_WARN)
ZOR_DEFINE_LOG_LEVEL(LogError, PREFIX_ERROR)
ZOR_DEFINE_LOG_LEVEL(LogAlert, PREFIX_ALERT)
#undef ZOR_DEFINE_LOG_LEVEL

void Logger::LogDebug(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, ZR_UINT level,
                      const ZR_CHAR* fmt, ...) {
    if (level <= m_iDebugLevel.load(std::memory_order_relaxed)) return;
    va_list args;
    va_start(args, fmt);
    logWithPrefix(file, func, line, PREFIX_DEBUG, fmt, args);
    va_end(args);
}

void Logger::doLog(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                   const ZR_CHAR* fmt, va_list args) {
    char message[SYNC_MESSAGE_BYTES] = {};
    std::vsnprintf(message, sizeof message, fmt, args);

    thread_local std::string text;  // reused: no allocation per line once it has grown
    text.clear();
    appendHeader(text, m_sModuleName, file, func, line, prefix);
    appendAsFormat(text, message);
    text.push_back('\n');
    // Written, counted and separated in one critical section (the mutex is recursive): the line that
    // reaches a limit is then the last of its file even while other threads log.
    ScopedLock hold(m_mutex);
    writeToOutputs(text.data(), text.size());
    check4Seperate();
}

void Logger::doLogAsync(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                        const ZR_CHAR* fmt, va_list args) {
    std::string item;
    item.reserve(128);
    appendHeader(item, m_sModuleName, file, func, line, prefix);
    if (item.size() >= MAX_LENGTH) item.resize(MAX_LENGTH - 1);  // the header is cut like the message
    char buffer[MAX_LENGTH];
    std::vsnprintf(buffer, sizeof buffer, fmt, args);
    item += buffer;
    item += '\n';
    {
        ScopedLock hold(m_queueMutex);
        m_itemQueue.push_back(std::move(item));
    }
    check4Seperate();
}

// With m_mutex held: the line to the file (if open) and, when echoing, to standard output.
void Logger::writeToOutputs(const char* pData, size_t len) {
    if (m_fileStream != nullptr) {
        std::fwrite(pData, 1, len, m_fileStream);
        std::fflush(m_fileStream);
    }
    if (m_bForeground) {
        std::fwrite(pData, 1, len, stdout);
        std::fflush(stdout);
    }
}

void Logger::outputLogItem(const std::string& text) {
    ScopedLock hold(m_mutex);
    writeToOutputs(text.data(), text.size());
}

void Logger::Entry() {
    std::string current;  // lives across rounds: a unit taken from an empty queue writes it again
    for (;;) {
        if (IsStop()) {
            ScopedLock hold(m_queueMutex);
            for (const std::string& item : m_itemQueue) outputLogItem(item);
            m_itemQueue.clear();
            return;
        }
        if (m_sem.Wait(100) == 0) continue;
        {
            ScopedLock hold(m_queueMutex);
            if (!m_itemQueue.empty()) {
                current.swap(m_itemQueue.front());
                m_itemQueue.pop_front();
            }
        }
        outputLogItem(current);
    }
}

void Logger::check4Seperate() {
    ScopedLock hold(m_mutex);
    ++m_iCurrLineIdx;
    if (m_iMaxLines == NO_LIMIT || m_iMaxBytes == NO_LIMIT) return;  // either limit unset disables both
    bool due = false;
    if (m_iCurrLineIdx % 10 == 0) {
        struct stat info {};
        if (stat(m_sFilePath.c_str(), &info) != 0) return;
        due = static_cast<ZR_Uint64>(info.st_size) >= m_iMaxBytes;
    }
    // The counter is never reset, so lines are counted across files and the test is by remainder.
    // A line limit of 0 would divide by zero; it disables the line test instead.
    if (!due && m_iMaxLines != 0 && m_iCurrLineIdx != 0 && m_iCurrLineIdx % m_iMaxLines == 0) due = true;
    if (due) separate();
}

// With m_mutex held: the live file becomes the newest backup and a new, empty file takes its place.
void Logger::separate() {
    if (m_iCurrFileIdx < m_iMaxFiles) {
        ++m_iCurrFileIdx;
        if (m_fileStream != nullptr) std::fclose(m_fileStream);
        std::rename(m_sFilePath.c_str(), backupName(m_sFilePath, m_iCurrFileIdx).c_str());
        m_fileStream = std::fopen(m_sFilePath.c_str(), "w+");
        return;
    }
    // Every number is in use: shift _2.._max down to _1.._max-1, losing the oldest, _1.
    for (ZR_Uint32 n = 2; n <= m_iMaxFiles; ++n) {
        std::rename(backupName(m_sFilePath, n).c_str(), backupName(m_sFilePath, n - 1).c_str());
    }
    if (m_fileStream != nullptr) std::fclose(m_fileStream);
    const std::string newest = m_iMaxFiles != 0 ? backupName(m_sFilePath, m_iMaxFiles) : m_sFilePath;
    std::rename(m_sFilePath.c_str(), newest.c_str());
    m_fileStream = std::fopen(m_sFilePath.c_str(), "w+");
}

void Logger::touchFilePath(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return;  // the working directory or the root
    const std::string dir = path.substr(0, slash);
    if (access(dir.c_str(), F_OK) == 0) return;
    const int ignored = std::system(("mkdir -p " + shellQuoted(dir)).c_str());
    (void)ignored;
}

ZR_Uint32 Logger::getFileLineCount(const std::string& path) {
    FILE* in = std::fopen(path.c_str(), "r");
    if (in == nullptr) return NO_LIMIT;  // counts the first line to 0
    struct stat info {};
    if (fstat(fileno(in), &info) != 0 || !S_ISREG(info.st_mode)) {
        std::fclose(in);  // a device or a pipe has no lines to count, and /dev/zero-like ones never end
        return 0;
    }
    ZR_Uint32 lines = 0;
    char buffer[65536];
    char last = '\n';
    size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof buffer, in)) > 0) {
        for (size_t i = 0; i < got; ++i) lines += buffer[i] == '\n' ? 1 : 0;
        last = buffer[got - 1];
    }
    std::fclose(in);
    return last == '\n' ? lines : lines + 1;  // a last line without newline is still a line
}

}  // namespace zor
