/// @file
/// Logger, the process-wide log, and the ZOR_LOG_* macros that write to it.
#ifndef ZOR_LOGGER_H_
#define ZOR_LOGGER_H_

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <list>
#include <string>

#include "BaseTypes.h"
#include "Locks.h"
#include "Semaphore.h"
#include "Thread.h"

namespace zor {

/// The part of a path after its last '/', evaluated at compile time for __FILE__.
constexpr const char* LogFileName(const char* pszPath) {
    const char* pszBase = pszPath;
    for (const char* p = pszPath; *p != '\0'; ++p) {
        if (*p == '/') pszBase = p + 1;
    }
    return pszBase;
}

/// The process-wide log: one file of text lines, optionally echoed to standard output, separated into
/// numbered backups (path_1 oldest ... path_5 newest) when it grows past a size or line limit.
///
/// Lines look like
///
///     {Module} [2024-01-02 03:04:05.678] (File.cpp:Function:42) Info:  message
///
/// Two modes, chosen by Initialize(): synchronous (the caller formats and writes under a lock, flushing
/// every line; messages are cut at 255 characters) and asynchronous, the default (the caller formats the
/// line into a queue and the logger's own thread writes it; messages are cut at 999 characters).
///
/// @code
///   zor::Logger::Instance()->Initialize("svc", "/var/log/svc/svc.log", 16, 100000, 0, 0, 0);
///   ZOR_LOG_INFO("listening on port %d", port);
///   ...
///   zor::Logger::DestroyInstance();   // last: after the pool and the action manager, which log
/// @endcode
///
/// Any thread may log. Before Initialize() nothing is written; in asynchronous mode every call still
/// counts on the logger's semaphore (ceiling 4096), so the 4097th call before Initialize(), or any call
/// while 4096 lines wait, throws "Signal exhausted". Initialize() throws "open logger file failed!!"
/// when the file cannot be opened and leaves the logger uninitialised. Everything else (directory
/// creation, rename, reopen, write) is unchecked: a line that cannot be written is lost silently.
///
/// In synchronous mode the expanded message is written like a printf format without arguments would be:
/// `"%%"` becomes `"%"`, every other `%` sequence is written as it stands. In asynchronous mode the expanded
/// text is written unchanged.
class Logger : public OSThread {
public:
    static const char* const PREFIX_INFO;   ///< The level tag of LogInfo() lines: "Info:  ".
    static const char* const PREFIX_WARN;   ///< The level tag of LogWarn() lines: "Warn:  ".
    static const char* const PREFIX_ERROR;  ///< The level tag of LogError() lines: "Error: ".
    static const char* const PREFIX_ALERT;  ///< The level tag of LogAlert() lines: "Alert: ".
    static const char* const PREFIX_DEBUG;  ///< The level tag of LogDebug() lines: "Debug: ".
    /// The longest line the asynchronous path formats, terminator included.
    static const ZR_Uint32 MAX_LENGTH = 1000;

    /// The logger, created on first use.
    static Logger* Instance();
    /// Stops the writer thread (which first writes every queued line), closes the file and forgets the
    /// instance. The next Instance() makes a fresh, uninitialised logger.
    static void DestroyInstance();

    /// Reads the settings "module", "file", "mbytes", "lines", "level", "foreground" and "sync" through a
    /// read-only FileConfig on configPath, then calls the other form.
    ///
    /// The FileConfig is deliberately not initialised, so no key is found and the defaults apply: module
    /// and file unchanged, 1 MiB, 1000 lines, level 0, no echo, asynchronous.
    void Initialize(const std::string& configPath);
    /// Applies the settings and opens the file (mode "a+"; a missing directory is made with "mkdir -p").
    ///
    /// Empty module or file keep "Logger" and "./file.log". mbytes is in MiB (shifted in 32 bits, so 4096
    /// and above wrap); lines is the line limit; 5 backups are kept. A second call only logs the alert
    /// "The Logger has been initialized!!". In asynchronous mode the writer thread starts here.
    void Initialize(const std::string& module, const std::string& file, ZR_Uint32 mbytes, ZR_Uint32 lines,
                    ZR_Uint32 level, ZR_BOOL foreground, ZR_BOOL sync);

    /// The path of the log file ("./file.log" until Initialize() sets another).
    const std::string& LogFilePath() const { return m_sFilePath; }
    /// Log calls accepted since the count was taken from the existing file (see Initialize()).
    ZR_Uint32 TotalLines();
    /// Debug lines are written only when their level is above this threshold.
    void SetLogDebugLevel(ZR_Uint32 level) { m_iDebugLevel = level; }

    /// @name Writing lines
    /// Each writes one line with its level's tag. Pass the source file's base name, the function and the
    /// line (the ZOR_LOG_* macros do); a message longer than the mode's limit is cut.
    ///@{
    /// One line tagged PREFIX_INFO; fmt and the arguments as for printf.
    void LogInfo(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* fmt, ...)
        __attribute__((format(printf, 5, 6)));
    /// One line tagged PREFIX_WARN; fmt and the arguments as for printf.
    void LogWarn(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* fmt, ...)
        __attribute__((format(printf, 5, 6)));
    /// One line tagged PREFIX_ERROR; fmt and the arguments as for printf.
    void LogError(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* fmt, ...)
        __attribute__((format(printf, 5, 6)));
    /// One line tagged PREFIX_ALERT; fmt and the arguments as for printf.
    void LogAlert(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* fmt, ...)
        __attribute__((format(printf, 5, 6)));
    /// One line tagged PREFIX_DEBUG, written only when level > the threshold (unsigned): level 0 never,
    /// and raising the threshold hides more. A line that is not written does not count on the semaphore
    /// either.
    void LogDebug(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, ZR_UINT level, const ZR_CHAR* fmt,
                  ...) __attribute__((format(printf, 6, 7)));
    ///@}

protected:
    /// Uninitialised: module "Logger", file "./file.log", no limits, threshold 0, asynchronous.
    Logger();
    /// Stops the writer thread, which first writes every queued line, and closes the file.
    ~Logger() override;
    Logger(const Logger&) = delete;             ///< Not copyable.
    Logger& operator=(const Logger&) = delete;  ///< Not copyable.

    /// The synchronous path: formats the line and writes it, counting and separating, under the lock.
    void doLog(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
               const ZR_CHAR* fmt, va_list args);
    /// The asynchronous path: formats the line and queues it for the writer thread.
    void doLogAsync(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                    const ZR_CHAR* fmt, va_list args);
    /// Counts an accepted line and separates the file into a backup when a limit is reached.
    void check4Seperate();
    /// Makes the directory of path with "mkdir -p" when it is missing.
    void touchFilePath(const std::string& path);
    /// The number of lines in an existing regular file, which the line limit then counts on from.
    ZR_Uint32 getFileLineCount(const std::string& path);
    /// Writes a formatted line as it is, flushing.
    void outputLogItem(const std::string& text);
    /// The writer thread of the asynchronous mode: writes queued lines until stopped, then the rest.
    void Entry() override;

private:
    void logWithPrefix(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                       const ZR_CHAR* fmt, va_list args);
    void applySettings(const std::string& module, const std::string& file, ZR_Uint32 mbytes, ZR_Uint32 lines,
                       ZR_Uint32 level, ZR_BOOL foreground, ZR_BOOL sync);
    void separate();
    void writeToOutputs(const char* pData, size_t len);

    std::atomic<ZR_BOOL> m_bSyncWrite;
    ZR_BOOL m_bForeground;
    std::atomic<ZR_BOOL> m_bInitialized;  ///< published last by Initialize; read by every log call
    std::atomic<ZR_Uint32> m_iDebugLevel;
    ZR_Uint32 m_iCurrLineIdx;
    ZR_Uint32 m_iCurrFileIdx;
    ZR_Uint32 m_iMaxBytes;
    ZR_Uint32 m_iMaxLines;
    ZR_Uint32 m_iMaxFiles;
    std::string m_sFilePath;
    std::string m_sModuleName;
    Mutex m_mutex;  ///< the stream, the counters and separation
    FILE* m_fileStream;
    Semaphore m_sem;
    Mutex m_queueMutex;  ///< the queue only; taken before m_mutex where both are held
    std::list<std::string> m_itemQueue;

    static std::atomic<Logger*> _instance;
    static Mutex _mutex;
};

}  // namespace zor

/// @name Logging macros
/// Log through the process-wide logger with this source file's name, function and line; the arguments
/// are a printf format and its values.
///@{

/// An information line through Logger::LogInfo().
#define ZOR_LOG_INFO(...) \
    ::zor::Logger::Instance()->LogInfo(::zor::LogFileName(__FILE__), __func__, __LINE__, __VA_ARGS__)
/// A warning line through Logger::LogWarn().
#define ZOR_LOG_WARN(...) \
    ::zor::Logger::Instance()->LogWarn(::zor::LogFileName(__FILE__), __func__, __LINE__, __VA_ARGS__)
/// An error line through Logger::LogError().
#define ZOR_LOG_ERROR(...) \
    ::zor::Logger::Instance()->LogError(::zor::LogFileName(__FILE__), __func__, __LINE__, __VA_ARGS__)
/// An alert line through Logger::LogAlert().
#define ZOR_LOG_ALERT(...) \
    ::zor::Logger::Instance()->LogAlert(::zor::LogFileName(__FILE__), __func__, __LINE__, __VA_ARGS__)
/// A debug line of the given level through Logger::LogDebug(), written above the debug threshold.
#define ZOR_LOG_DEBUG(level, ...) \
    ::zor::Logger::Instance()->LogDebug(::zor::LogFileName(__FILE__), __func__, __LINE__, level, __VA_ARGS__)
///@}

#endif  // ZOR_LOGGER_H_
