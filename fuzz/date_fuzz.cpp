// Calendar fields of a time value against the day-number rule (truncating integer formulas, which
// values before the start of the scale follow too); from the start on, the fields must lead back
// through the Julian Day Number to the local time, the day of the week following the day number.
// The date string must print those fields, or refuse a year outside 0-9999. Input: the time value
// and the offset (8 bytes each, folded into ranges whose sum cannot overflow).
#include <kiv/date.h>
#include <kiv/exception.h>
#include <kiv/string.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "fuzz_support.h"

namespace {

constexpr long long kMsPerDay = 86'400'000;

struct Fields {
  long long year, month, day, day_of_week, hour, minute, second, millisecond;
  std::string Text() const {
    char text[200];
    std::snprintf(text, sizeof text, "%lld-%lld-%lld (%lld) %lld:%lld:%lld.%lld", year, month, day,
                  day_of_week, hour, minute, second, millisecond);
    return text;
  }
};

// The fields of local time by the day-number rule; every division truncates toward zero.
Fields FieldsOf(long long local) {
  long long l = local / kMsPerDay + 68569;
  const long long n = 4 * l / 146097;
  l = l - (146097 * n + 3) / 4;
  const long long i = 4000 * (l + 1) / 1461001;
  l = l - 1461 * i / 4 + 31;
  const long long j = 80 * l / 2447;
  const long long day = l - 2447 * j / 80;
  l = j / 11;
  const long long month = j + 2 - 12 * l, year = 100 * (n - 49) + i + l;
  const long long y = year + (month - 14) / 12, c = y / 100;
  // March is month 1 and February month 12 (the remainder 0 stands for 12).
  const long long m = (month + 10) % 12 == 0 ? 12 : (month + 10) % 12;
  const long long ms = local % kMsPerDay;
  const long long weekday =
      (y / 400 + (13 * m - 1) / 5 + 5 * (y - 100 * c) / 4 - 2 * c + day + 77) % 7;
  return {year, month, day, weekday, ms / 3'600'000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000};
}

long long JulianDay(long long year, long long month, long long day) {
  const long long a = (month - 14) / 12;
  return 1461 * (year + 4800 + a) / 4 + 367 * (month - 2 - 12 * a) / 12 -
         3 * ((year + 4900 + a) / 100) / 4 + day - 32075;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const std::uint64_t raw_time = input.Bits(4) | std::uint64_t{input.Bits(4)} << 32;
  const std::uint64_t raw_offset = input.Bits(4) | std::uint64_t{input.Bits(4)} << 32;
  // Times within +-2^61 ms, offsets within +-2^40 ms; small offsets are the common case.
  const auto time = static_cast<std::int64_t>(raw_time << 2) >> 2;
  const std::int64_t offset = (raw_offset & 1) != 0
                                  ? static_cast<std::int64_t>(raw_offset << 23) >> 23
                                  : static_cast<std::int64_t>(raw_offset % 1'800'001) - 900'000;
  const long long local = time + offset;

  const kiv::Date date = kiv::DateExp::Make(time, offset);
  const Fields want = FieldsOf(local);
  const Fields got{date->GetYear(), date->GetMonth(),  date->GetDay(),    date->GetDayOfWeek(),
                   date->GetHour(), date->GetMinute(), date->GetSecond(), date->GetMillisecond()};
  char what[160];
  std::snprintf(what, sizeof what, "time %" PRId64 " offset %" PRId64, time, offset);
  KIV_FUZZ_CHECK(got.Text() == want.Text(), "%s: fields %s, expected %s", what, got.Text().c_str(),
                 want.Text().c_str());
  KIV_FUZZ_CHECK(date->GetTime() == time && date->GetTimeZoneOffset() == offset,
                 "%s: kept %" PRId64 " and %" PRId64, what, date->GetTime(),
                 date->GetTimeZoneOffset());

  if (local >= 0) {
    // From day 0 on the formulas are a calendar: the fields, each in its range, lead back to the
    // same instant.
    const long long rebuilt = JulianDay(got.year, got.month, got.day) * kMsPerDay +
                              ((got.hour * 60 + got.minute) * 60 + got.second) * 1000 +
                              got.millisecond;
    KIV_FUZZ_CHECK(rebuilt == local && got.month >= 1 && got.month <= 12 && got.day >= 1 &&
                       got.day <= 31 && got.hour < 24 && got.minute < 60 && got.second < 60,
                   "%s: fields %s give back %lld", what, got.Text().c_str(), rebuilt);
    // Julian Day 0 was a Monday. The weekday rule holds from year 1 on (earlier years follow the
    // formula); in late years its remainder turns negative but names the day it is congruent to.
    KIV_FUZZ_CHECK(got.year < 1 || (got.day_of_week % 7 + 7) % 7 == (local / kMsPerDay + 1) % 7,
                   "%s: day of week %lld", what, got.day_of_week);
  }

  try {
    const std::string printed = kiv::DateStringExp::Make(date).ToUTF8();
    KIV_FUZZ_CHECK(want.year >= 0 && want.year <= 9999, "%s: year %lld printed", what, want.year);
    char expected[64];
    std::snprintf(expected, sizeof expected, "%.3s, %02lld %.3s %04lld %02lld:%02lld:%02lld GMT",
                  &"SunMonTueWedThuFriSat"[(want.day_of_week % 7 + 7) % 7 * 3], want.day,
                  &"JanFebMarAprMayJunJulAugSepOctNovDec"[(want.month - 1) * 3], want.year,
                  want.hour, want.minute, want.second);
    KIV_FUZZ_CHECK(printed == expected, "%s: \"%s\", expected \"%s\"", what, printed.c_str(),
                   expected);
  } catch (const kiv::UnrepresentableYearException&) {
    KIV_FUZZ_CHECK(want.year < 0 || want.year > 9999, "%s: year %lld refused", what, want.year);
  }
  return 0;
}
