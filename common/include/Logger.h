/// @file
/// Logger, the process-wide log, and the ZOR_LOG_* macros that write to it.
#ifndef ZOR_LOGGER_H_
#define ZOR_LOGGER_H_

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <list>
#include <memory>
#include <string>

#include "BaseTypes.h"
#include "Locks.h"
#include "Semaphore.h"
#include "Thread.h"

namespace zor {

/// The part of a path after its last '/', evaluated at compile time for __FILE__.
ZOR_INLINE constexpr const char* LogFileName(const char* pszPath) {
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
/// line into a queue and the logger's own thread writes it; messages are cut at 999 characters). The
/// asynchronous writer works in passes: woken by one line's unit on the semaphore, it takes every further
/// unit already there and as many queued lines, oldest first, and writes the pass with one write and one
/// flush. So it flushes once per pass, not once per line; a line is on disk at the latest when the pass
/// that took it ends. After a small pass it pauses for 100 us to let lines gather, and a caller that
/// finds 2048 lines or more waiting sleeps 100 us to give the writer the processor.
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
/// text is written unchanged. In both the message ends at the first NUL that the expansion produced.
///
/// External rotation: the logger separates the file by itself when a limit is set, but a tool such as
/// logrotate may move the file away instead. After a rename the logger would keep writing into the moved
/// file (and, once that is removed, the size check finds no file and never separates again), so tell it
/// to start on the path again with Reopen(), for instance from a thread that waits for SIGHUP:
///
/// @code
///   # /etc/logrotate.d/svc (logrotate's default "create" mode renames the file away)
///   /var/log/svc/svc.log {
///       daily
///       rotate 7
///       postrotate
///           kill -HUP $(cat /run/svc.pid)
///       endscript
///   }
///
///   // in the service: block SIGHUP in every thread before starting any, then
///   std::thread([] {
///       sigset_t hup;
///       sigemptyset(&hup);
///       sigaddset(&hup, SIGHUP);
///       for (int sig; sigwait(&hup, &sig) == 0;) zor::Logger::Instance()->Reopen();
///   }).detach();
/// @endcode
///
/// "copytruncate" needs no Reopen(): the file stays where it is (lines written while it is copied can be
/// lost, as with any program).
class Logger : public OSThread {
public:
    static const char* const PREFIX_INFO;   ///< The level tag of LogInfo() lines: "Info:  ".
    static const char* const PREFIX_WARN;   ///< The level tag of LogWarn() lines: "Warn:  ".
    static const char* const PREFIX_ERROR;  ///< The level tag of LogError() lines: "Error: ".
    static const char* const PREFIX_ALERT;  ///< The level tag of LogAlert() lines: "Alert: ".
    static const char* const PREFIX_DEBUG;  ///< The level tag of LogDebug() lines: "Debug: ".
    /// The asynchronous path's limit: the head and the message of a line are each cut to MAX_LENGTH - 1
    /// characters.
    static const ZR_Uint32 MAX_LENGTH = 1000;

    /// The logger, created on first use.
    static Logger* Instance();
    /// Stops the writer thread (which first writes every queued line), closes the file and makes the
    /// logger fresh and uninitialised again, as Instance() first returned it.
    ///
    /// Destroy it last, after everything that logs. A thread that still logs meanwhile (a straggler) is
    /// safe all the same: the object is never freed, so a pointer from Instance() stays valid for the life
    /// of the process, and DestroyInstance() waits for the calls that found the logger initialised. Such
    /// a call writes its line to the file being closed; a call that starts once DestroyInstance() has
    /// begun drops its line (and one that starts after it has returned is a call to the fresh logger).
    /// Settings of the writer thread made through OSThread (stack size, CPU, name) are kept.
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

    /// Closes the log file and opens its path again in mode "a+", for external rotation (see above).
    ///
    /// Callable from any thread, though not from a signal handler. It takes the same locks as writing, so
    /// every line logged before the call is in the old file, every line logged after it in the new one,
    /// none lost, split or repeated: lines still queued for the writer are written to the old file first.
    /// Separation by size and lines goes on as before, with the line count carried over. Returns 0, or -1
    /// with errno set when the path cannot be opened (the current file then stays open) or the logger is
    /// not initialised (EBADF).
    ZR_INT Reopen();

    /// The path of the log file ("./file.log" until Initialize() sets another).
    ZOR_INLINE const std::string& LogFilePath() const { return m_sFilePath; }
    /// Log calls accepted since the count was taken from the existing file (see Initialize()).
    ZR_Uint32 TotalLines();
    /// Debug lines are written only when their level is above this threshold.
    ZOR_INLINE void SetLogDebugLevel(ZR_Uint32 level) { m_iDebugLevel = level; }

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
    /// Writes formatted text (one line, or a writer's pass of lines) as it is, flushing once.
    void outputLogItem(const std::string& text);
    /// The writer thread of the asynchronous mode: writes queued lines in passes until stopped, then the
    /// rest.
    void Entry() override;

private:
    /// Closes the log file (the one owner of the stream, replaced whole at each separation or reopen).
    struct StreamCloser {
        void operator()(FILE* stream) const;
    };

    void shutDown();
    void resetSettings();
    void logWithPrefix(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                       const ZR_CHAR* fmt, va_list args);
    void applySettings(const std::string& module, const std::string& file, ZR_Uint32 mbytes, ZR_Uint32 lines,
                       ZR_Uint32 level, ZR_BOOL foreground, ZR_BOOL sync);
    void separate();
    void writeToOutputs(const char* pData, size_t len);
    void queueLine(const char* text, size_t length);
    void writePass(ZR_Uint32 units, std::list<std::string>& taken);
    ZR_Uint32 writeQueued();
    void writeLines(std::list<std::string>& lines, ZR_Uint32 repeats);

    std::atomic<ZR_BOOL> m_bSyncWrite;
    ZR_BOOL m_bForeground;
    std::atomic<ZR_BOOL> m_bInitialized;  ///< published last by Initialize; read by every log call
    std::atomic<ZR_Uint32> m_iDebugLevel;
    std::atomic<ZR_Uint32> m_iCurrLineIdx;  ///< counted without m_mutex; see check4Seperate
    ZR_Uint32 m_iCurrFileIdx;
    ZR_Uint32 m_iMaxBytes;
    ZR_Uint32 m_iMaxLines;
    ZR_Uint32 m_iMaxFiles;
    std::string m_sFilePath;
    std::string m_sModuleName;
    Mutex m_mutex;  ///< the stream, the counters and separation
    std::unique_ptr<FILE, StreamCloser> m_fileStream;
    // Each group below on cache lines of its own: the callers take the semaphore and the queue on every
    // line while the writer assembles and writes a pass, and sharing a line would make each of them miss
    // the other's writes.
    alignas(64) Semaphore m_sem;
    alignas(64) Mutex m_queueMutex;  ///< the queue and its spares; taken before m_mutex where both are held
    std::list<std::string> m_itemQueue;
    /// Nodes of lines already written, kept with their strings' capacity for the next lines; moving a
    /// node between the lists neither allocates nor copies.
    std::list<std::string> m_spareItems;
    ZR_Uint32 m_iWrittenAhead;               ///< units whose lines Reopen wrote before the writer took them
    alignas(64) std::string m_sCurrentLine;  ///< the writer's last line, written again for a unit without one
    std::string m_sPass;                     ///< the text of the writer's pass, reused; under m_mutex
    alignas(
        64) std::atomic<ZR_Uint32> m_iCallsInFlight[2];  ///< log calls running, by epoch; see DestroyInstance
    std::atomic<ZR_Uint32> m_iCallEpoch;                 ///< the epoch new calls count in
    std::atomic<ZR_BOOL> m_bClosing;                     ///< set while DestroyInstance resets the logger

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
