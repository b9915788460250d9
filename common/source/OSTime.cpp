#include "OSTime.h"

#include <sys/time.h>

#include <cstdio>
#include <stdexcept>

namespace zor {

namespace {

struct Field {
    unsigned shift;
    unsigned width;
};

constexpr Field USECOND_BITS{0, 20};
constexpr Field SECOND_BITS{20, 6};
constexpr Field MINUTE_BITS{26, 6};
constexpr Field HOUR_BITS{32, 6};
constexpr Field DAY_BITS{38, 6};
constexpr Field MONTH_BITS{44, 4};
constexpr Field YEAR_BITS{48, 12};

constexpr ZR_Uint64 pack(ZR_Uint32 value, Field field) {
    return (static_cast<ZR_Uint64>(value) & ((1ULL << field.width) - 1)) << field.shift;
}

constexpr ZR_Uint32 unpack(ZR_Uint64 packed, Field field) {
    return static_cast<ZR_Uint32>((packed >> field.shift) & ((1ULL << field.width) - 1));
}

// Writes "YYYY-MM-DD<sep>HH:MM:SS" for the fields.
std::string formatDateTime(const OSTime& t, char separator) {
    char text[80];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u%c%02u:%02u:%02u", t.year, t.month, t.day, separator,
                  t.hour, t.minute, t.second);
    return text;
}

}  // namespace

OSTime::OSTime() : year(1970), month(1), day(1), hour(0), minute(0), second(0), usecond(0) {}

OSTime::OSTime(ZR_Uint64 packed)
    : year(unpack(packed, YEAR_BITS)),
      month(unpack(packed, MONTH_BITS)),
      day(unpack(packed, DAY_BITS)),
      hour(unpack(packed, HOUR_BITS)),
      minute(unpack(packed, MINUTE_BITS)),
      second(unpack(packed, SECOND_BITS)),
      usecond(unpack(packed, USECOND_BITS)) {}

OSTime::OSTime(const std::string& s) : year(0), month(0), day(0), hour(0), minute(0), second(0), usecond(0) {
    const char* text = s.c_str();
    int fields =
        std::sscanf(text, "%u-%u-%u %u:%u:%u.%u", &year, &month, &day, &hour, &minute, &second, &usecond);
    if (fields == 3) {
        // The date matched but no blank followed it: try the ISO separator.
        fields =
            std::sscanf(text, "%u-%u-%uT%u:%u:%u.%u", &year, &month, &day, &hour, &minute, &second, &usecond);
    }
    if (fields != 6 && fields != 7) throw std::runtime_error("wrong format of OSTime string");
    if (!timeIsValid()) throw std::runtime_error("invalid time of OSTime string");
}

OSTime::OSTime(ZR_Uint32 seconds, ZR_Uint32 useconds) {
    setFromEpoch(static_cast<time_t>(seconds), useconds);
}

void OSTime::setFromEpoch(time_t seconds, ZR_Uint32 useconds) {
    tm local{};
    localtime_r(&seconds, &local);
    year = static_cast<ZR_Uint32>(local.tm_year + 1900);
    month = static_cast<ZR_Uint32>(local.tm_mon + 1);
    day = static_cast<ZR_Uint32>(local.tm_mday);
    hour = static_cast<ZR_Uint32>(local.tm_hour);
    minute = static_cast<ZR_Uint32>(local.tm_min);
    second = static_cast<ZR_Uint32>(local.tm_sec);
    usecond = useconds;
}

OSTime OSTime::Now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    OSTime t;
    t.setFromEpoch(now.tv_sec, static_cast<ZR_Uint32>(now.tv_usec));
    return t;
}

ZR_Uint64 OSTime::GetOSTick() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<ZR_Uint64>(now.tv_sec) * 1000000ULL + static_cast<ZR_Uint64>(now.tv_usec);
}

ZR_Uint64 OSTime::GetOSFreq() { return 1000000ULL; }

ZR_Uint64 OSTime::ToUint64() const {
    return pack(usecond, USECOND_BITS) | pack(second, SECOND_BITS) | pack(minute, MINUTE_BITS) |
           pack(hour, HOUR_BITS) | pack(day, DAY_BITS) | pack(month, MONTH_BITS) | pack(year, YEAR_BITS);
}

std::string OSTime::ToString(ZR_Uint32 level) const {
    std::string text = formatDateTime(*this, ' ');
    char tail[64];
    if (level >= 1) {
        std::snprintf(tail, sizeof tail, ".%06u", usecond);
        text += tail;
    }
    if (level >= 2) {
        std::snprintf(tail, sizeof tail, "; %lld.%u", static_cast<long long>(Syssec()), usecond);
        text += tail;
    }
    return text;
}

std::string OSTime::ToStringISO() const { return formatDateTime(*this, 'T'); }

time_t OSTime::Syssec() const {
    tm fields{};
    fields.tm_year = static_cast<int>(year) - 1900;
    fields.tm_mon = static_cast<int>(month) - 1;
    fields.tm_mday = static_cast<int>(day);
    fields.tm_hour = static_cast<int>(hour);
    fields.tm_min = static_cast<int>(minute);
    fields.tm_sec = static_cast<int>(second);
    fields.tm_isdst = -1;
    return mktime(&fields);
}

bool OSTime::operator<(const OSTime& other) const {
    const time_t mine = Syssec();
    const time_t theirs = other.Syssec();
    if (mine != theirs) return mine < theirs;
    return usecond < other.usecond;
}

bool OSTime::operator==(const OSTime& other) const {
    return Syssec() == other.Syssec() && usecond == other.usecond;
}

bool OSTime::operator!=(const OSTime& other) const { return !(*this == other); }

bool OSTime::isLeapYear() const { return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0); }

bool OSTime::timeIsValid() const {
    if (year < 1900 || month < 1 || month > 12 || day < 1 || day > 31) return false;
    if (hour > 23 || minute > 59 || second > 60 || usecond > 999999) return false;
    if (day == 31 && (month == 4 || month == 6 || month == 9 || month == 11)) return false;
    if (month == 2 && day > (isLeapYear() ? 29U : 28U)) return false;
    return true;
}

}  // namespace zor
