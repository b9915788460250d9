/// @file
/// OSTime, local calendar time with microseconds, and the library's clock.
#ifndef ZOR_OSTIME_H_
#define ZOR_OSTIME_H_

#include <ctime>
#include <string>

#include "BaseTypes.h"

namespace zor {

/// Local calendar time with microseconds, and the library's clock.
///
/// An OSTime is a plain value: seven public fields (local time, never UTC), text in two layouts, a packed
/// 64-bit form that sorts chronologically, and comparisons by the instant that mktime() gives the fields.
/// GetOSTick() is the wall clock in microseconds (it jumps when the system time is set; it is not
/// monotonic).
///
/// @code
///   zor::OSTime t("2024-01-02 03:04:05.000123");   // throws on bad text
///   t.ToString(1) == "2024-01-02 03:04:05.000123";
///   zor::OSTime same(t.ToUint64());                 // exact round trip for years below 4096
/// @endcode
///
/// Only the text constructor throws: "wrong format of OSTime string" when fewer than six fields are
/// found, "invalid time of OSTime string" when a field is out of range. Fields set directly are not
/// checked anywhere. Values are independent; share one between threads only under the caller's lock.
class OSTime {
public:
    /// The fields of 1970-01-01 00:00:00.000000.
    OSTime();
    /// Unpacks the form made by ToUint64(): usecond in bits 0-19, second 20-25, minute 26-31, hour 32-37,
    /// day 38-43, month 44-47, year 48-59.
    explicit OSTime(ZR_Uint64 packed);
    /// Parses "YYYY-MM-DD HH:MM:SS[.U]" or "YYYY-MM-DDTHH:MM:SS[.U]". The digits after the point count
    /// microseconds as an integer: ".5" is 5 microseconds, ".500000" half a second.
    explicit OSTime(const std::string& s);
    /// Local broken-down time of `seconds` since the epoch, with `useconds` stored as given.
    OSTime(ZR_Uint32 seconds, ZR_Uint32 useconds);

    /// The current wall-clock time.
    static OSTime Now();
    /// Wall-clock microseconds since the epoch: the tick of the whole library.
    static ZR_Uint64 GetOSTick();
    /// Ticks per second: always 1,000,000.
    static ZR_Uint64 GetOSFreq();

    /// The packed form; each field is masked to its width (a year above 4095 loses its high bits).
    ZR_Uint64 ToUint64() const;
    /// "YYYY-MM-DD HH:MM:SS"; level >= 1 adds ".uuuuuu"; level >= 2 adds `"; <Syssec()>.<usecond>"`.
    std::string ToString(ZR_Uint32 level) const;
    /// "YYYY-MM-DDTHH:MM:SS", no fraction.
    std::string ToStringISO() const;
    /// Seconds since the epoch of the local fields, by mktime() with daylight saving left to the system.
    time_t Syssec() const;

    /// @name Comparisons
    /// Compare the normalised instants (Syssec(), then usecond), not the fields: two values that mktime()
    /// maps to the same second compare equal.
    ///@{
    bool operator<(const OSTime& other) const;   ///< This instant comes before other's.
    bool operator==(const OSTime& other) const;  ///< Both name the same instant.
    bool operator!=(const OSTime& other) const;  ///< The instants differ.
    ///@}

    ZR_Uint32 year;     ///< The full year, e.g. 2024.
    ZR_Uint32 month;    ///< 1 to 12.
    ZR_Uint32 day;      ///< Day of the month, 1 to 31.
    ZR_Uint32 hour;     ///< 0 to 23.
    ZR_Uint32 minute;   ///< 0 to 59.
    ZR_Uint32 second;   ///< 0 to 59 (60 for a leap second).
    ZR_Uint32 usecond;  ///< Microseconds, 0 to 999999.

private:
    bool isLeapYear() const;
    bool timeIsValid() const;
    void setFromEpoch(time_t seconds, ZR_Uint32 useconds);
};

}  // namespace zor

#endif  // ZOR_OSTIME_H_
