// Dates: the calendar arithmetic against an independent calendar, file times, date strings and
// time zones.
#include <gtest/gtest.h>
#include <kiv/date.h>
#include <kiv/exception.h>
#include <time.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Utf8;

constexpr std::int64_t kDay = 86400000;
constexpr std::int64_t kJulian1970 = 210866803200000;

TEST(Date, FieldsAgreeWithTheStandardCalendarFromJulianDayZeroToYear9999) {
  using namespace std::chrono;
  // Julian Day 0 to the end of 9999, and offsets east and west.
  std::mt19937_64 random(7);
  const std::int64_t last = kJulian1970 + std::int64_t{253402300799} * 1000;
  std::uniform_int_distribution<std::int64_t> times(0, last);
  std::uniform_int_distribution<std::int64_t> offsets(-14 * 3600000, 14 * 3600000);
  for (int i = 0; i < 20000; ++i) {
    const std::int64_t time = i < 4 ? std::int64_t{i} * kDay - (i % 2) : times(random);
    const std::int64_t offset = i % 3 == 0 ? 0 : offsets(random);
    const std::int64_t local = time + offset;
    if (local < 0) continue;
    Date date = DateExp::Make(time, offset);
    const sys_days day{days{local / kDay - kJulian1970 / kDay}};
    const year_month_day ymd(day);
    const hh_mm_ss<milliseconds> clock{milliseconds{local % kDay}};
    SCOPED_TRACE(time);
    ASSERT_EQ(date->GetYear(), int(ymd.year()));
    ASSERT_EQ(date->GetMonth(), int(unsigned(ymd.month())));
    ASSERT_EQ(date->GetDay(), int(unsigned(ymd.day())));
    // Before year 1 the weekday formula's truncating divisions part from the calendar, and from
    // 1 March 4600 on its remainder can turn negative (-6..-1 for the days 1..6): both are kept.
    if (date->GetYear() >= 1) {
      ASSERT_EQ((date->GetDayOfWeek() + 7) % 7, int(weekday(day).c_encoding()));
      if (date->GetYear() < 4600) {
        ASSERT_GE(date->GetDayOfWeek(), 0);
      }
    }
    ASSERT_EQ(date->GetHour(), clock.hours().count());
    ASSERT_EQ(date->GetMinute(), clock.minutes().count());
    ASSERT_EQ(date->GetSecond(), clock.seconds().count());
    ASSERT_EQ(date->GetMillisecond(), clock.subseconds().count());
    ASSERT_EQ(date->GetTime(), time);
    ASSERT_EQ(date->GetTimeZoneOffset(), offset);
  }
}

TEST(Date, KnownPointsAndTheEdgesOfTheRange) {
  Date epoch = DateExp::Make(kJulian1970, 0);
  EXPECT_EQ(epoch->GetYear(), 1970);
  EXPECT_EQ(epoch->GetDayOfWeek(), 4);
  // Leap days, and a February that the day-of-week rule must count as the year's twelfth month.
  Date leap = DateExp::Make(kJulian1970 + std::int64_t{19782} * kDay, 0);  // 2024-02-29
  EXPECT_EQ(leap->GetMonth() * 100 + leap->GetDay(), 229);
  EXPECT_EQ(leap->GetDayOfWeek(), 4);
  // One millisecond before Julian Day 0: 24 November 4714 BC, a negative millisecond.
  Date before = DateExp::Make(-1, 0);
  EXPECT_EQ(before->GetYear(), -4713);
  EXPECT_EQ(before->GetMonth() * 100 + before->GetDay(), 1124);
  EXPECT_EQ(before->GetMillisecond(), -1);
  // Any values: the sum wraps instead of overflowing (the sanitizers watch this).
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  for (std::int64_t time : {kMin, kMin + 1, std::int64_t{-1}, kMax - 1, kMax}) {
    for (std::int64_t offset : {kMin, std::int64_t{-1}, std::int64_t{0}, kMax}) {
      Date date = DateExp::Make(time, offset);
      EXPECT_EQ(date->GetTime(), time);
      EXPECT_LT(date->GetMonth(), 13);
    }
  }
}

TEST(Date, FileTimesRoundHalfUpFrom1601) {
  EXPECT_EQ(FILETIME2Julian(0), 199222329600000);
  EXPECT_EQ(FILETIME2Julian(4999), 199222329600000);
  EXPECT_EQ(FILETIME2Julian(5000), 199222329600001);
  EXPECT_EQ(FILETIME2Julian(15000), 199222329600002);
  EXPECT_EQ(FILETIME2Julian(116444736000000000), kJulian1970);
  EXPECT_EQ(FILETIME2Julian(std::numeric_limits<std::uint64_t>::max()),
            std::int64_t{1844674407370955} + 199222329600000);
  // Now is the system clock on the same scale.
  const std::int64_t now = std::int64_t(time(nullptr)) * 1000 + kJulian1970;
  EXPECT_NEAR(double(DateExp::Now()), double(now), 2000.0);
}

TEST(DateString, MatchesStrftimeAndPrintsTheFieldsItHolds) {
  std::mt19937_64 random(11);
  // 1970 to 9999 against gmtime and strftime, which cover every month and weekday name. The
  // Windows runtime's gmtime stops at the end of 3000.
#if defined(_WIN32)
  std::uniform_int_distribution<std::int64_t> seconds(0, 32503680000 - 1);
#else
  std::uniform_int_distribution<std::int64_t> seconds(0, 253402300799);
#endif
  for (int i = 0; i < 5000; ++i) {
    const time_t t = static_cast<time_t>(seconds(random));
    struct tm utc;
#if defined(_WIN32)
    ASSERT_EQ(gmtime_s(&utc, &t), 0);
#else
    gmtime_r(&t, &utc);
#endif
    char expected[64];
    strftime(expected, sizeof expected, "%a, %d %b %Y %H:%M:%S GMT", &utc);
    ASSERT_EQ(Utf8(DateStringExp::Make(DateExp::Make(kJulian1970 + std::int64_t{t} * 1000, 0))),
              expected);
  }
  const std::int64_t y2000 = 211813488000000;
  EXPECT_EQ(Utf8(DateStringExp::Make(DateExp::Make(y2000, 0))), "Sat, 01 Jan 2000 00:00:00 GMT");
  // An offset moves the fields, and the text still says GMT.
  EXPECT_EQ(Utf8(DateStringExp::Make(DateExp::Make(y2000, 3600000))),
            "Sat, 01 Jan 2000 01:00:00 GMT");

  const std::int64_t y10000 = kJulian1970 + std::int64_t{253402300800} * 1000;
  EXPECT_EQ(testing::ThrownText<UnrepresentableYearException>(
                [&] { static_cast<void>(DateStringExp::Make(DateExp::Make(y10000, 0))); }),
            "kiv::UnrepresentableYearException - 10000");
  EXPECT_THROW(static_cast<void>(DateStringExp::Make(DateExp::Make(y10000 - 1, 1))),
               UnrepresentableYearException);
  EXPECT_EQ(Utf8(DateStringExp::Make(DateExp::Make(y10000 - 1, 0))),
            "Fri, 31 Dec 9999 23:59:59 GMT");
  EXPECT_THROW(static_cast<void>(DateStringExp::Make(DateExp::Make(-1, 0))),
               UnrepresentableYearException);
}

#if defined(_WIN32)
// Windows takes the zone from the system's settings, not from TZ: the offset is checked against
// the runtime's own local time of the same moment.
TEST(DateZone, CurrentOffsetAgreesWithTheRuntimesLocalTime) {
  const time_t now = time(nullptr);
  struct tm local;
  struct tm utc;
  ASSERT_EQ(localtime_s(&local, &now), 0);
  ASSERT_EQ(gmtime_s(&utc, &now), 0);
  auto seconds = [](const struct tm& t) {
    using namespace std::chrono;
    const sys_days day = year(t.tm_year + 1900) / (t.tm_mon + 1) / t.tm_mday;
    return std::int64_t{day.time_since_epoch().count()} * 86400 + t.tm_hour * 3600 + t.tm_min * 60 +
           t.tm_sec;
  };
  const std::int64_t offset = (seconds(local) - seconds(utc)) * 1000;
  // The minute may turn between the two questions.
  EXPECT_NEAR(double(DateExp::CurrentTimeZoneOffset()), double(offset), 60000.0);
}
#else
TEST(DateZone, CurrentOffsetFollowsTZ) {
  struct Case {
    const char* zone;
    std::int64_t offset;
  };
  for (Case c : {Case{"UTC0", 0}, Case{"EST5", -18000000}, Case{"IST-5:30", 19800000},
                 // Daylight saving all year round: standard -3 hours, daylight one hour more.
                 Case{"AAA3BBB,J1/0,J365/25", -7200000}}) {
    testing::ScopedZone zone(c.zone);
    EXPECT_EQ(DateExp::CurrentTimeZoneOffset(), c.offset) << c.zone;
    // Make(time) takes the offset in force now.
    EXPECT_EQ(DateExp::Make(kJulian1970)->GetTimeZoneOffset(), c.offset);
    EXPECT_EQ(DateExp::Make()->GetTimeZoneOffset(), c.offset);
  }
}
#endif

}  // namespace
}  // namespace kiv
