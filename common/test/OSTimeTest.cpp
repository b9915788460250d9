#include "OSTime.h"

#include <gtest/gtest.h>

#include <random>

#include "TestUtil.h"

namespace {

using zortest::thrownMessage;

const char* const WRONG_FORMAT = "wrong format of OSTime string";
const char* const INVALID_TIME = "invalid time of OSTime string";

TEST(OSTimeParse, AcceptsBothLayoutsAndRejectsWhatIsIncompleteOrOutOfRange) {
    const zor::OSTime iso("2024-01-02T03:04:05.000123");
    EXPECT_EQ(2024U, iso.year);
    EXPECT_EQ(5U, iso.second);
    EXPECT_EQ(123U, iso.usecond);
    EXPECT_EQ(5U, zor::OSTime("2024-01-02 03:04:05.5").usecond);  // digits count microseconds
    EXPECT_EQ(500000U, zor::OSTime("2024-01-02 03:04:05.500000").usecond);
    EXPECT_NO_THROW(zor::OSTime("2024-02-29 23:59:59"));
    EXPECT_NO_THROW(zor::OSTime("1900-01-01 00:00:00"));
    EXPECT_NO_THROW(zor::OSTime("2000-02-29 00:00:60"));  // 2000 is leap; a leap second is accepted

    for (const char* text : {"2024-01-02", "2024-01-02 03:04", "", "garbage", "2024/01/02 03:04:05"}) {
        EXPECT_EQ(WRONG_FORMAT, thrownMessage([&] { zor::OSTime t(text); })) << text;
    }
    for (const char* text : {"2023-02-29 00:00:00", "2024-04-31 00:00:00", "1899-12-31 00:00:00",
                             "2024-01-01 24:00:00", "1900-02-29 00:00:00", "2024-13-01 00:00:00",
                             "2024-01-00 00:00:00", "2024-01-01 00:00:00.1000000"}) {
        EXPECT_EQ(INVALID_TIME, thrownMessage([&] { zor::OSTime t(text); })) << text;
    }
}

TEST(OSTimeFormat, LevelsAddMicrosecondsAndEpochSecondsAndComparisonsUseNormalisedInstants) {
    zor::OSTime t("2024-01-02 03:04:05");
    t.usecond = 7;
    EXPECT_EQ("2024-01-02 03:04:05", t.ToString(0));
    EXPECT_EQ("2024-01-02 03:04:05.000007", t.ToString(1));
    EXPECT_EQ("2024-01-02 03:04:05.000007; " + std::to_string(t.Syssec()) + ".7", t.ToString(2));
    EXPECT_EQ("2024-01-02T03:04:05", t.ToStringISO());
    EXPECT_EQ("1970-01-01 00:00:00.000000", zor::OSTime().ToString(1));

    zor::OSTime a("2024-03-01 00:00:00");
    zor::OSTime b("2024-02-28 00:00:00");
    b.day = 30;  // mktime normalises February 30th of a leap year to March 1st
    EXPECT_TRUE(a == b);
    b.usecond = 1;
    EXPECT_TRUE(a < b);
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(b < a);
}

zor::OSTime randomValidTime(std::mt19937& rng) {
    static const unsigned DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    zor::OSTime t;
    t.year = std::uniform_int_distribution<unsigned>(1971, 4095)(rng);
    t.month = std::uniform_int_distribution<unsigned>(1, 12)(rng);
    t.day = std::uniform_int_distribution<unsigned>(1, DAYS[t.month - 1])(rng);
    t.hour = std::uniform_int_distribution<unsigned>(0, 23)(rng);
    t.minute = std::uniform_int_distribution<unsigned>(0, 59)(rng);
    t.second = std::uniform_int_distribution<unsigned>(0, 59)(rng);
    t.usecond = std::uniform_int_distribution<unsigned>(0, 999999)(rng);
    return t;
}

bool sameFields(const zor::OSTime& a, const zor::OSTime& b) {
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second && a.usecond == b.usecond;
}

TEST(OSTimeRoundTrip, TextAndPackedFormsReproduceRandomTimesPackedOrderIsChronologicalFieldsMasked) {
    std::mt19937 rng(20240229);
    zor::OSTime previous = randomValidTime(rng);
    for (int i = 0; i < 2000; ++i) {
        const zor::OSTime t = randomValidTime(rng);
        EXPECT_TRUE(sameFields(t, zor::OSTime(t.ToString(1)))) << t.ToString(1);
        EXPECT_TRUE(sameFields(t, zor::OSTime(t.ToUint64()))) << t.ToString(1);
        const bool packedLess = t.ToUint64() < previous.ToUint64();
        const bool fieldsLess = t.ToString(1) < previous.ToString(1);  // fixed-width text sorts by time
        EXPECT_EQ(fieldsLess, packedLess) << t.ToString(1) << " vs " << previous.ToString(1);
        previous = t;
    }
    zor::OSTime wide("2024-01-02 03:04:05");  // packed fields are masked to their widths
    wide.year = 4096 + 2024;
    EXPECT_EQ(2024U, zor::OSTime(wide.ToUint64()).year);
    EXPECT_EQ(0U, wide.ToUint64() >> 60);
}

TEST(OSTimeClock, NowAgreesWithTheTick) {
    const ZR_Uint64 before = zor::OSTime::GetOSTick();
    const zor::OSTime now = zor::OSTime::Now();
    const ZR_Uint64 after = zor::OSTime::GetOSTick();
    const ZR_Uint64 nowTick = static_cast<ZR_Uint64>(now.Syssec()) * 1000000ULL + now.usecond;
    EXPECT_LE(before, nowTick);
    EXPECT_LE(nowTick, after);
    const zor::OSTime fromEpoch(static_cast<ZR_Uint32>(now.Syssec()), now.usecond);
    EXPECT_TRUE(sameFields(now, fromEpoch)) << now.ToString(1) << " vs " << fromEpoch.ToString(1);
}

}  // namespace
