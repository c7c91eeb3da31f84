// Dates against the standard calendar (fuzz/date_fuzz.cpp holds the fields to the day-number
// formulas and the printed text to the fields), file times and time zones.
#include <kiv/date.h>
#include <time.h>

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <utility>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Utf8;

constexpr std::int64_t kDay = 86400000;
constexpr std::int64_t kJulian1970 = 210866803200000;

TEST(Date, FieldsAgreeWithTheStandardCalendarAndAnyValuesWrap) {
  using namespace std::chrono;
  std::mt19937_64 random(7);
  std::uniform_int_distribution<std::int64_t> times(0, kJulian1970 + 253402300799000);
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
    // 1 March 4600 on its remainder can turn negative: both are kept.
    ASSERT_TRUE(date->GetYear() < 1 ||
                (date->GetDayOfWeek() + 7) % 7 == int(weekday(day).c_encoding()));
    ASSERT_EQ(date->GetHour(), clock.hours().count());
    ASSERT_EQ(date->GetMinute(), clock.minutes().count());
    ASSERT_EQ(date->GetSecond(), clock.seconds().count());
    ASSERT_EQ(date->GetMillisecond(), clock.subseconds().count());
  }
  // From 1 March 4600 the weekday can be negative: -1 names Saturday.
  const std::int64_t march4600 = (sys_days{year{4600} / 3 / 1}.time_since_epoch().count());
  EXPECT_EQ(DateExp::Make(kJulian1970 + march4600 * kDay, 0)->GetDayOfWeek(), -1);

  // Any values: the sum of time and offset wraps (the sanitizers watch this).
  constexpr std::int64_t kMax = INT64_MAX, kMin = INT64_MIN;
  for (std::int64_t time : {kMin, kMin + 1, std::int64_t{-1}, kMax - 1, kMax}) {
    for (std::int64_t offset : {kMin, std::int64_t{-1}, std::int64_t{0}, kMax}) {
      Date date = DateExp::Make(time, offset);
      EXPECT_EQ(date->GetTime(), time);
      EXPECT_LT(date->GetMonth(), 13);
    }
  }
}

TEST(Date, FileTimesRoundHalfUpFrom1601) {
  EXPECT_EQ(FILETIME2Julian(4999), 199222329600000);
  EXPECT_EQ(FILETIME2Julian(15000), 199222329600002);
  EXPECT_EQ(FILETIME2Julian(116444736000000000), kJulian1970);
  EXPECT_EQ(FILETIME2Julian(UINT64_MAX), std::int64_t{1844674407370955} + 199222329600000);
  // Now is the system clock on the same scale.
  EXPECT_NEAR(double(DateExp::Now()), double(time(nullptr)) * 1000 + kJulian1970, 2000.0);
}

TEST(DateString, PrintsTheFieldsAsHeldAsGmtAndRefusesYearsPastFourDigits) {
  // The fields are printed as held, always as GMT; a refusal carries the year.
  EXPECT_EQ(Utf8(DateStringExp::Make(DateExp::Make(211813488000000, 3600000))),
            "Sat, 01 Jan 2000 01:00:00 GMT");
  const Date y10000 = DateExp::Make(kJulian1970 + 253402300800000, 0);
  EXPECT_EQ(testing::ThrownText<UnrepresentableYearException>(
                [&] { static_cast<void>(DateStringExp::Make(y10000)); }),
            "kiv::UnrepresentableYearException - 10000");
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
  // The last: daylight saving all year round, standard -3 hours, daylight one hour more. Make(time)
  // takes the offset in force now.
  for (auto [name, offset] : {std::pair<const char*, std::int64_t>{"UTC0", 0},
                              {"EST5", -18000000},
                              {"IST-5:30", 19800000},
                              {"AAA3BBB,J1/0,J365/25", -7200000}}) {
    testing::ScopedZone zone(name);
    EXPECT_EQ(DateExp::CurrentTimeZoneOffset(), offset) << name;
    EXPECT_EQ(DateExp::Make(kJulian1970)->GetTimeZoneOffset(), offset);
    EXPECT_EQ(DateExp::Make()->GetTimeZoneOffset(), offset);
  }
}
#endif

}  // namespace
}  // namespace kiv
