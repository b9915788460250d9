#include "Logger.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "FileConfig.h"
#include "PosixUtil.h"
#include "Singleton.h"
#include "TextFormat.h"

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
constexpr size_t SYNC_LINE_BYTES = 1024;  // on the stack; a longer head spills to the heap
constexpr int ALERT_LINE = 166;
constexpr useconds_t PASS_PAUSE_US = 100;
constexpr ZR_Uint32 FULL_PASS = 64;
constexpr size_t GIVE_WAY_LINES = 2048;
constexpr useconds_t GIVE_WAY_US = 100;

// "YYYY-MM-DD HH:MM:SS." of one second, shared by every thread. Formatting the date costs more than the
// rest of a line (localtime_r takes a lock) and changes once a second, so one thread formats it and the
// others copy it. The version is odd while the text is rewritten; a reader that sees it change copies
// again (a sequence lock, with every field atomic so that no read races a write).
class SecondText {
public:
    static constexpr size_t BYTES = 32;

    // Writes the text for `second` to out (BYTES bytes, terminated).
    void CopyTo(time_t second, char* out) {
        if (tryCopy(second, out)) return;
        tm local{};
        localtime_r(&second, &local);
        char text[80];  // room for any int in each field; a real date takes 20 characters
        const int length =
            std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.", local.tm_year + 1900,
                          local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
        const size_t kept = std::min(static_cast<size_t>(std::max(length, 0)), BYTES - 1);
        std::memcpy(out, text, kept);
        std::memset(out + kept, 0, BYTES - kept);
        publish(second, out);
    }

private:
    static constexpr size_t WORDS = BYTES / sizeof(std::uint64_t);

    bool tryCopy(time_t second, char* out) const {
        for (;;) {
            const std::uint32_t version = m_version.load(std::memory_order_acquire);
            if ((version & 1U) != 0 || m_second.load(std::memory_order_acquire) != second) return false;
            std::uint64_t words[WORDS];
            // Acquire loads: the second look at the version cannot move before them, and a word from a
            // rewrite shows that rewrite's odd version to it.
            for (size_t i = 0; i < WORDS; ++i) words[i] = m_words[i].load(std::memory_order_acquire);
            if (m_version.load(std::memory_order_relaxed) == version) {
                std::memcpy(out, words, BYTES);
                return true;
            }
        }
    }

    // Only one thread rewrites at a time; the others keep the text they formatted for themselves.
    void publish(time_t second, const char* text) {
        std::uint32_t version = m_version.load(std::memory_order_relaxed);
        if ((version & 1U) != 0 ||
            !m_version.compare_exchange_strong(version, version + 1, std::memory_order_relaxed)) {
            return;
        }
        std::uint64_t words[WORDS];
        std::memcpy(words, text, BYTES);
        m_second.store(second, std::memory_order_release);
        for (size_t i = 0; i < WORDS; ++i) m_words[i].store(words[i], std::memory_order_release);
        m_version.store(version + 2, std::memory_order_release);
    }

    std::atomic<std::uint32_t> m_version{0};
    std::atomic<std::int64_t> m_second{-1};
    std::atomic<std::uint64_t> m_words[WORDS] = {};
};

SecondText g_secondText;

// The head of every line, "{module} [YYYY-MM-DD HH:MM:SS.mmm] (file:func:line) prefix", for the wall
// clock at the call in local time. The parts that vary are measured once; the head is then written with a
// few short copies, its fixed characters stored directly.
class LineHead {
public:
    LineHead(const std::string& module, const char* file, const char* func, int line, const char* prefix)
        : m_module(module),
          m_file(orNull(file)),
          m_func(orNull(func)),
          m_prefix(prefix),
          m_dateLength(stampNow(m_date)),
          m_numberLength(static_cast<size_t>(std::to_chars(m_number, m_number + sizeof m_number, line).ptr -
                                             m_number)) {}

    size_t Size() const {
        return FIXED + m_module.size() + m_dateLength + m_file.size() + m_func.size() + m_numberLength +
               m_prefix.size();
    }

    // Copies the head, cut to at most max characters, to out. Returns the characters copied.
    size_t CopyTo(char* out, size_t max) const {
        if (Size() > max) return copyCut(out, max);
        char* const start = out;
        *out++ = '{';
        out = put(out, m_module);
        out = put(out, "} [", 3);
        out = put(out, m_date, m_dateLength);
        out = put(out, "] (", 3);
        out = put(out, m_file);
        *out++ = ':';
        out = put(out, m_func);
        *out++ = ':';
        out = put(out, m_number, m_numberLength);
        out = put(out, ") ", 2);
        out = put(out, m_prefix);
        return static_cast<size_t>(out - start);
    }

private:
    static constexpr size_t FIXED = 12;  // "{", "} [", "] (", ":", ":", ") "

    static std::string_view orNull(const char* text) { return text != nullptr ? text : "(null)"; }
    static char* put(char* out, const char* text, size_t length) {
        detail::copyBytes(out, text, length);
        return out + length;
    }
    static char* put(char* out, std::string_view text) { return put(out, text.data(), text.size()); }

    // Writes the date and time of now, to the millisecond, to date; returns its length.
    static size_t stampNow(char* date) {
        timeval now{};
        gettimeofday(&now, nullptr);
        g_secondText.CopyTo(now.tv_sec, date);
        const size_t length = std::strlen(date);
        const long ms = static_cast<long>(now.tv_usec / 1000);
        date[length] = static_cast<char>('0' + ms / 100);
        date[length + 1] = static_cast<char>('0' + ms / 10 % 10);
        date[length + 2] = static_cast<char>('0' + ms % 10);
        return length + 3;
    }

    // The head cut to max characters, for the rare head longer than the line allows.
    size_t copyCut(char* out, size_t max) const {
        const std::string_view pieces[] = {"{", m_module, "} [", {m_date, m_dateLength},     "] (", m_file,
                                           ":", m_func,   ":",   {m_number, m_numberLength}, ") ",  m_prefix};
        size_t copied = 0;
        for (const std::string_view& piece : pieces) {
            const size_t n = std::min(piece.size(), max - copied);
            std::memcpy(out + copied, piece.data(), n);
            copied += n;
        }
        return copied;
    }

    std::string_view m_module, m_file, m_func, m_prefix;
    char m_date[SecondText::BYTES + 3];
    char m_number[16];
    size_t m_dateLength;
    size_t m_numberLength;
};

// Counts a log call for as long as it runs, so that DestroyInstance can wait for the calls that found the
// logger initialised before it resets the logger under them. Calls are counted by epoch: the destroyer
// moves to the next epoch and waits only for the calls of the last one, which may have found the logger
// initialised; calls that keep coming cannot keep it waiting.
class CallInFlight {
public:
    CallInFlight(std::atomic<ZR_Uint32>* calls, const std::atomic<ZR_Uint32>& epoch)
        : m_calls(calls[epoch.load() & 1U]) {
        m_calls.fetch_add(1);
    }
    ~CallInFlight() { m_calls.fetch_sub(1, std::memory_order_release); }
    CallInFlight(const CallInFlight&) = delete;
    CallInFlight& operator=(const CallInFlight&) = delete;

private:
    std::atomic<ZR_Uint32>& m_calls;
};

// Releases, at the end of the scope, a mutex that was locked by hand in an enclosing scope.
class HeldLock {
public:
    explicit HeldLock(Mutex& mutex) : m_mutex(mutex) {}
    ~HeldLock() { m_mutex.Unlock(); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

private:
    Mutex& m_mutex;
};

// Moves the oldest `count` lines of `from` to the end of `to` by relinking their nodes. Only the shorter
// side of the split is walked: when the writer takes nearly everything, it takes it all and hands the
// few newest lines back.
void moveOldest(std::list<std::string>& from, size_t count, std::list<std::string>& to) {
    const size_t rest = from.size() - std::min(count, from.size());
    if (count <= rest) {
        to.splice(to.end(), from, from.begin(), std::next(from.begin(), static_cast<long>(count)));
        return;
    }
    std::list<std::string> newest;
    newest.splice(newest.end(), from, std::prev(from.end(), static_cast<long>(rest)), from.end());
    to.splice(to.end(), from);
    from.swap(newest);
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

void Logger::StreamCloser::operator()(FILE* stream) const { std::fclose(stream); }

Logger* Logger::Instance() {
    return detail::instanceOf(_instance, _mutex, [] { return new Logger(); });
}

// The object is never freed: a thread may still hold the pointer that Instance() gave it, so the logger
// is brought back to its state after construction instead, and stays reachable from _instance.
void Logger::DestroyInstance() {
    ScopedLock hold(_mutex);
    Logger* logger = _instance.load(std::memory_order_acquire);
    if (logger != nullptr) logger->shutDown();
}

Logger::Logger()
    : m_bInitialized(0),
      m_mutex(0),
      m_sem(4096),
      m_queueMutex(0),
      m_iCallsInFlight{{0}, {0}},
      m_iCallEpoch(0),
      m_bClosing(0) {
    resetSettings();
}

// What Initialize may change, as a new logger has it.
void Logger::resetSettings() {
    m_bSyncWrite = 0;
    m_bForeground = 0;
    m_iDebugLevel = 0;
    m_iCurrLineIdx = 0;
    m_iCurrFileIdx = 0;
    m_iMaxBytes = m_iMaxLines = m_iMaxFiles = NO_LIMIT;
    m_sFilePath = "./file.log";
    m_sModuleName = "Logger";
    m_iWrittenAhead = 0;
}

Logger::~Logger() { StopAndWait(); }  // the writer drains the queue before the members (the file) go

// Calls that find the flag cleared drop their line, and while m_bClosing is set they do not count on the
// semaphore either: the writer still running would take such a unit from an empty queue and write its
// current line again. Calls that found the flag set are waited for, so that their lines are queued
// before the writer drains the queue and stops.
void Logger::shutDown() {
    m_bClosing.store(1);
    m_bInitialized.store(0);
    const ZR_Uint32 lastEpoch = m_iCallEpoch.fetch_add(1) & 1U;
    while (m_iCallsInFlight[lastEpoch].load() != 0) sched_yield();
    StopAndWait();
    ScopedLock queue(m_queueMutex);
    ScopedLock file(m_mutex);
    resetSettings();
    m_fileStream.reset();
    m_sem.TryWaitUpTo(m_sem.Max());
    m_itemQueue.clear();
    m_spareItems.clear();
    m_sCurrentLine.clear();
    std::string().swap(m_sPass);
    m_bClosing.store(0);
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
    m_fileStream.reset(std::fopen(m_sFilePath.c_str(), "a+"));
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

// The lines queued before the call were logged into the old file, so they are written there first (by
// this thread, with the writer's units owed to them counted in m_iWrittenAhead). The writer hands its
// taken lines from the queue lock to the file lock without a gap, so none is between the two here.
ZR_INT Logger::Reopen() {
    ScopedLock queue(m_queueMutex);
    ScopedLock file(m_mutex);
    if (m_bInitialized.load(std::memory_order_acquire) == 0) {
        errno = EBADF;
        return -1;
    }
    m_iWrittenAhead += writeQueued();
    FILE* stream = std::fopen(m_sFilePath.c_str(), "a+");
    if (stream == nullptr) return -1;  // the current file stays open, errno from fopen
    m_fileStream.reset(stream);
    return 0;
}

void Logger::logWithPrefix(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                           const ZR_CHAR* fmt, va_list args) {
    const CallInFlight call(m_iCallsInFlight, m_iCallEpoch);
    // Read after the call is counted (see shutDown), and before the mode: once it is set, the mode read
    // next is the one Initialize published with it, so a line logged while Initialize runs is never
    // queued for a writer that synchronous mode does not start.
    const bool bReady = m_bInitialized.load() != 0;
    if (!bReady && m_bClosing.load()) return;
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

// The expanded message is written as a format without arguments would print it, so "%%" collapses.
void Logger::doLog(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                   const ZR_CHAR* fmt, va_list args) {
    const LineHead head(m_sModuleName, file, func, line, prefix);
    const size_t need = head.Size() + SYNC_MESSAGE_BYTES + 1;
    char onStack[SYNC_LINE_BYTES];
    std::string onHeap;
    char* text = onStack;
    if (need > sizeof onStack) {
        onHeap.resize(need);
        text = &onHeap[0];
    }
    size_t length = head.CopyTo(text, head.Size());
    const size_t expanded = detail::formatInto(text + length, SYNC_MESSAGE_BYTES, fmt, args);
    length += detail::collapsePercents(text + length, expanded);
    text[length++] = '\n';
    // Written, counted and separated in one critical section (the mutex is recursive): the line that
    // reaches a limit is then the last of its file even while other threads log.
    ScopedLock hold(m_mutex);
    writeToOutputs(text, length);
    check4Seperate();
}

void Logger::doLogAsync(const ZR_CHAR* file, const ZR_CHAR* func, ZR_INT line, const ZR_CHAR* prefix,
                        const ZR_CHAR* fmt, va_list args) {
    char text[2 * MAX_LENGTH];  // a head and a message of at most MAX_LENGTH - 1 each, and the newline
    const LineHead head(m_sModuleName, file, func, line, prefix);
    size_t length = head.CopyTo(text, MAX_LENGTH - 1);  // the head is cut like the message
    length += detail::formatInto(text + length, MAX_LENGTH, fmt, args);
    text[length++] = '\n';
    queueLine(text, length);
    check4Seperate();
}

// A spare node is reused when there is one: its string kept the capacity of an earlier line, so that
// queueing a line allocates nothing once the queue has been as long as it gets. A caller that finds the
// writer far behind gives way to it for a moment: with more logging threads than cores the writer
// otherwise gets no more time than any one of them, and the units pile up to the ceiling. (The queue
// alone could mislead: it also holds the lines of calls whose signal failed, which have no unit.)
void Logger::queueLine(const char* text, size_t length) {
    size_t queued = 0;
    {
        ScopedLock hold(m_queueMutex);
        if (m_spareItems.empty()) {
            m_itemQueue.emplace_back();
        } else {
            m_itemQueue.splice(m_itemQueue.end(), m_spareItems, m_spareItems.begin());
        }
        m_itemQueue.back().assign(text, length);
        queued = m_itemQueue.size();
    }
    if (queued >= GIVE_WAY_LINES && m_sem.Count() >= static_cast<ZR_Int32>(GIVE_WAY_LINES)) {
        usleep(GIVE_WAY_US);
    }
}

// With m_mutex held: the text to the file (if open) and, when echoing, to standard output. Only this
// logger touches its stream, always under m_mutex, so the stream's own lock is skipped.
void Logger::writeToOutputs(const char* pData, size_t len) {
    if (len == 0) return;
    if (m_fileStream != nullptr) {
        fwrite_unlocked(pData, 1, len, m_fileStream.get());
        fflush_unlocked(m_fileStream.get());
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
    std::list<std::string> taken;  // the lines of the last pass; their nodes go back at the next
    for (;;) {
        if (IsStop()) {
            ScopedLock queue(m_queueMutex);
            ScopedLock file(m_mutex);
            writeQueued();
            return;
        }
        if (m_sem.Wait(100) == 0) continue;
        // Every further unit at once: taking them one lock at a time would fight the callers' Signal()
        // for the semaphore's lock once per line.
        const ZR_Uint32 units = 1 + static_cast<ZR_Uint32>(m_sem.TryWaitUpTo(m_sem.Max()));
        writePass(units, taken);
        // Caught up: let lines gather for a moment, so that callers do not each wake the writer.
        if (units < FULL_PASS) usleep(PASS_PAUSE_US);
    }
}

// One line per unit, oldest first; a unit that finds the queue empty writes the current line again.
// Units whose lines Reopen has already written are only counted off.
void Logger::writePass(ZR_Uint32 units, std::list<std::string>& taken) {
    {
        ScopedLock queue(m_queueMutex);
        m_spareItems.splice(m_spareItems.end(), taken);
        const ZR_Uint32 ahead = std::min(units, m_iWrittenAhead);
        m_iWrittenAhead -= ahead;
        units -= ahead;
        moveOldest(m_itemQueue, units, taken);
        m_mutex.Lock();  // before the queue lock is left: see Reopen
    }
    const HeldLock file(m_mutex);
    writeLines(taken, units - static_cast<ZR_Uint32>(taken.size()));
}

// With both locks held: every queued line in one write, the queue emptied. Returns the lines written.
ZR_Uint32 Logger::writeQueued() {
    const auto count = static_cast<ZR_Uint32>(m_itemQueue.size());
    writeLines(m_itemQueue, 0);
    m_spareItems.splice(m_spareItems.end(), m_itemQueue);
    return count;
}

// With m_mutex held: the lines, then `repeats` copies of the last line written, with one write and one
// flush. The last line becomes the current one.
void Logger::writeLines(std::list<std::string>& lines, ZR_Uint32 repeats) {
    m_sPass.clear();
    for (const std::string& line : lines) m_sPass += line;
    if (!lines.empty()) m_sCurrentLine.swap(lines.back());  // already in the pass; its node is reused
    for (ZR_Uint32 i = 0; i < repeats; ++i) m_sPass += m_sCurrentLine;
    outputLogItem(m_sPass);
}

// Only the lines on which a check is due take m_mutex: the count itself is atomic, so every line still
// gets its own number and the checks fall on exactly the same numbers.
void Logger::check4Seperate() {
    const ZR_Uint32 count = m_iCurrLineIdx.fetch_add(1, std::memory_order_relaxed) + 1;
    if (m_iMaxLines == NO_LIMIT || m_iMaxBytes == NO_LIMIT) return;  // either limit unset disables both
    const bool sizeDue = count % 10 == 0;
    // The counter is never reset, so lines are counted across files and the test is by remainder.
    // A line limit of 0 would divide by zero; it disables the line test instead.
    const bool linesDue = m_iMaxLines != 0 && count != 0 && count % m_iMaxLines == 0;
    if (!sizeDue && !linesDue) return;
    ScopedLock hold(m_mutex);
    bool due = false;
    if (sizeDue) {
        struct stat info {};
        if (stat(m_sFilePath.c_str(), &info) != 0) return;
        due = static_cast<ZR_Uint64>(info.st_size) >= m_iMaxBytes;
    }
    if (due || linesDue) separate();
}

// With m_mutex held: the live file becomes the newest backup and a new, empty file takes its place.
// The old stream is renamed with the file and closed as the new one replaces it.
void Logger::separate() {
    if (m_iCurrFileIdx < m_iMaxFiles) {
        ++m_iCurrFileIdx;
        std::rename(m_sFilePath.c_str(), backupName(m_sFilePath, m_iCurrFileIdx).c_str());
    } else {
        // Every number is in use: shift _2.._max down to _1.._max-1, losing the oldest, _1.
        for (ZR_Uint32 n = 2; n <= m_iMaxFiles; ++n) {
            std::rename(backupName(m_sFilePath, n).c_str(), backupName(m_sFilePath, n - 1).c_str());
        }
        const std::string newest = m_iMaxFiles != 0 ? backupName(m_sFilePath, m_iMaxFiles) : m_sFilePath;
        std::rename(m_sFilePath.c_str(), newest.c_str());
    }
    m_fileStream.reset(std::fopen(m_sFilePath.c_str(), "w+"));
}

void Logger::touchFilePath(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return;  // the working directory or the root
    const std::string dir = path.substr(0, slash);
    if (access(dir.c_str(), F_OK) == 0) return;
    const int ignored = std::system(("mkdir -p " + shellQuoted(dir)).c_str());
    (void)ignored;
}

// Opened without blocking: opening a named pipe for reading would otherwise wait for a writer to appear.
ZR_Uint32 Logger::getFileLineCount(const std::string& path) {
    const detail::FdGuard in(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (in.Get() < 0) return NO_LIMIT;  // counts the first line to 0
    struct stat info {};
    // A device or a pipe has no lines to count, and /dev/zero-like ones never end.
    if (fstat(in.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return 0;
    ZR_Uint32 lines = 0;
    char buffer[65536];
    char last = '\n';
    for (;;) {
        const ssize_t got = ::read(in.Get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        lines += static_cast<ZR_Uint32>(std::count(buffer, buffer + got, '\n'));
        last = buffer[got - 1];
    }
    return last == '\n' ? lines : lines + 1;  // a last line without newline is still a line
}

}  // namespace zor
