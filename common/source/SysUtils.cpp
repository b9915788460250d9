#include "SysUtils.h"

#include <dlfcn.h>
#include <poll.h>
#include <sched.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>

namespace zor {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Sleeps by poll() with no descriptors; a signal only interrupts one poll, the rest is slept after it.
void sleepMilliseconds(ZR_Int64 ms) {
    const SteadyClock::time_point end = SteadyClock::now() + std::chrono::milliseconds(ms);
    for (ZR_Int64 left = ms; left > 0;) {
        if (::poll(nullptr, 0, static_cast<int>(left)) == 0 || errno != EINTR) return;
        left = std::chrono::duration_cast<std::chrono::milliseconds>(end - SteadyClock::now()).count();
    }
}

void requirePath(const std::string& path) {
    if (path.empty()) throw std::runtime_error("File path must not be empty!!");
}

}  // namespace

ZR_Int32 SysUtils::GetOSMinPriority(ZR_Int32 policy) { return sched_get_priority_min(policy); }

ZR_Int32 SysUtils::GetOSMaxPriority(ZR_Int32 policy) { return sched_get_priority_max(policy); }

ZR_Int32 SysUtils::MapPriority(ZR_Int32 priority, ZR_Int32 policy) {
    const ZR_Int32 min = GetOSMinPriority(policy);
    const ZR_Int32 max = GetOSMaxPriority(policy);
    const ZR_Int32 range = max - min;
    switch (priority) {
        case 0:  // PRIO_LOWEST
            return min;
        case 1:  // PRIO_LOW
            return min + range / 4;
        case 3:  // PRIO_HIGHEST
            return max;
        case 4:  // PRIO_HIGH
            return min + (3 * range) / 4;
        default:  // PRIO_NORMAL and anything unknown
            return min + range / 2;
    }
}

ZR_Int32 SysUtils::ReverseMapPriority(ZR_Int32 osPriority, ZR_Int32 policy) {
    if (policy != 0) return 3;  // every real-time thread reads back as the highest level
    const ZR_Int32 min = GetOSMinPriority(policy);
    const ZR_Int32 max = GetOSMaxPriority(policy);
    const ZR_Int32 mid = min + (max - min) / 2;
    if (osPriority == min) return 0;
    if (osPriority < mid) return 1;
    if (osPriority == mid) return 2;
    if (osPriority == max) return 3;
    return 4;
}

ZR_Int32 SysUtils::GetCPUNumber() { return static_cast<ZR_Int32>(sysconf(_SC_NPROCESSORS_ONLN)); }

ZR_Int32 SysUtils::InvalidCPU(ZR_Int32 index) { return (index < 0 || index >= GetCPUNumber()) ? 1 : 0; }

ZR_Int32 SysUtils::DelaySeconds(ZR_Int32 s) {
    sleepMilliseconds(static_cast<ZR_Int64>(s) * 1000);
    return 0;
}

ZR_Int32 SysUtils::DelayMseconds(ZR_Int32 ms) {
    sleepMilliseconds(ms);
    return 0;
}

ZR_Int32 SysUtils::DelayUseconds(ZR_Int32 us) {
    if (us > 999999) return -1;
    const SteadyClock::time_point end = SteadyClock::now() + std::chrono::microseconds(us);
    timeval tv{0, us};
    while (::select(0, nullptr, nullptr, nullptr, &tv) == -1 && errno == EINTR) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - SteadyClock::now()).count();
        if (left <= 0) break;
        tv = timeval{0, static_cast<suseconds_t>(left)};
    }
    return 0;
}

ZR_DLLHD SysUtils::LoadLibrary(const std::string& path) { return dlopen(path.c_str(), RTLD_LAZY); }

ZR_PVOID SysUtils::GetSymbol(ZR_DLLHD handle, const std::string& name) { return dlsym(handle, name.c_str()); }

void SysUtils::FreeLibrary(ZR_DLLHD handle) { dlclose(handle); }

ZR_INT SysUtils::ForkDaemon() {
    pid_t pid = -1;
    while ((pid = fork()) < 0) {
    }
    if (pid > 0) _exit(0);
    setsid();
    return 0;
}

ZR_BOOL SysUtils::IsLinkFile(const std::string& path) {
    requirePath(path);
    struct stat info {};
    return (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) ? 1 : 0;
}

ZR_BOOL SysUtils::IsDeviceFile(const std::string& path) {
    requirePath(path);
    struct stat info {};
    return (stat(path.c_str(), &info) == 0 && (S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode))) ? 1 : 0;
}

ZR_BOOL SysUtils::IsDirectoryFile(const std::string& path) {
    requirePath(path);
    struct stat info {};
    return (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) ? 1 : 0;
}

ZR_BOOL SysUtils::IsHiddenFile(const std::string& path) {
    requirePath(path);
    if (path == "." || path == "..") return 0;
    return path[0] == '.' ? 1 : 0;
}

}  // namespace zor
