// TestUtil.h
//
// Helpers shared by the test programs: the message of a thrown runtime error, a bounded wait for a
// condition, threads and child processes that run a check, a scratch directory that a test works in,
// and the number of open descriptors of the process (for leak checks).
#ifndef ZOR_TEST_TESTUTIL_H_
#define ZOR_TEST_TESTUTIL_H_

#include <dirent.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace zortest {

// The what() of the std::runtime_error that fn throws, or "" when it throws nothing.
template <typename Fn>
std::string thrownMessage(Fn fn) {
    try {
        fn();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

// Polls pred every millisecond until it holds (true) or timeoutMs have passed (false). Every wait in
// the tests is bounded this way, so a fault fails the test instead of hanging the run.
template <typename Pred>
bool waitUntil(Pred pred, int timeoutMs = 30000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

using Clock = std::chrono::steady_clock;

inline long elapsedMs(Clock::time_point since) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count());
}

// Runs fn(0) to fn(count - 1), each on a thread of its own, all at once, and waits for every one.
template <typename Fn>
void onThreads(int count, Fn fn) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t) threads.emplace_back(fn, t);
    for (std::thread& thread : threads) thread.join();
}

// Runs check in a forked child and gives its exit status, or -1 when it did not exit (a signal, such as
// the alarm that bounds a child that hangs). Checks that change the whole process, such as its
// descriptor limit, its user or its namespaces, run this way and return the number of the first
// check that failed, or 0.
template <typename Check>
int exitStatusOf(Check check) {
    const pid_t child = fork();
    if (child < 0) return -1;
    if (child == 0) {
        alarm(60);
        _exit(check());
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

// The bytes of a text, as the operations on raw buffers take them.
inline const uint8_t* bytes(const std::string& text) { return reinterpret_cast<const uint8_t*>(text.data()); }

// Number of entries in a directory, without "." and "..": under /proc/self, what the process holds.
inline int entryCount(const char* dir) {
    int count = 0;
    if (DIR* listing = opendir(dir)) {
        while (readdir(listing) != nullptr) ++count;
        closedir(listing);
    }
    return count - 2;
}

// Descriptors and threads the process has right now, for leak checks. The listing's own descriptor
// does not count.
inline int openDescriptorCount() { return entryCount("/proc/self/fd") - 1; }
inline int threadCount() { return entryCount("/proc/self/task"); }

// A fresh directory under /tmp, removed with everything in it when the object goes.
class ScratchDir {
public:
    ScratchDir() {
        char templ[] = "/tmp/zortest.XXXXXX";
        if (mkdtemp(templ) == nullptr) throw std::runtime_error("cannot make a scratch directory");
        m_path = templ;
    }
    ~ScratchDir() { std::system(("rm -rf '" + m_path + "'").c_str()); }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// Runs the scope with the working directory changed to `dir`, restoring it afterwards.
class WorkDir {
public:
    explicit WorkDir(const std::string& dir) {
        char buffer[4096];
        m_previous = getcwd(buffer, sizeof buffer) != nullptr ? buffer : "/";
        if (chdir(dir.c_str()) != 0) throw std::runtime_error("cannot enter " + dir);
    }
    ~WorkDir() { (void)!chdir(m_previous.c_str()); }
    WorkDir(const WorkDir&) = delete;
    WorkDir& operator=(const WorkDir&) = delete;

private:
    std::string m_previous;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

// The lines of a text file, without their newlines.
inline std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream in(readFile(path));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Which of the six comparisons of a with b hold, e.g. "!= < <=".
template <typename T>
std::string relations(const T& a, const T& b) {
    const char* const names[] = {"==", "!=", "<", "<=", ">", ">="};
    const bool holds[] = {a == b, a != b, a<b, a <= b, a> b, a >= b};
    std::string s;
    for (int i = 0; i < 6; ++i) s += holds[i] ? std::string(" ") + names[i] : "";
    return s.substr(1);  // == or != always holds
}

}  // namespace zortest

#endif  // ZOR_TEST_TESTUTIL_H_
