// Calendar fields of a time value: the fields of a date must be those of the day-number rule
// (truncating integer formulas, so values before the start of the scale follow the formulas),
// and from the start of the scale on the time value rebuilt from the fields, through the Julian
// Day Number of the date, must be the local time again, with the day of the week following the
// day number. The date string must print those fields, or refuse a year outside 0-9999.
//
// Input: the time value and the offset (8 bytes each, folded into ranges whose sum cannot
// overflow).
#include <kiv/date.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/string.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "fuzz_support.h"

namespace {

constexpr std::int64_t kMsPerDay = 86'400'000;

struct Fields {
  std::int64_t year, month, day, day_of_week, hour, minute, second, millisecond;
  bool operator==(const Fields&) const = default;
};

std::string Text(const Fields& f) {
  char text[200];
  std::snprintf(text, sizeof text, "%lld-%lld-%lld (%lld) %lld:%lld:%lld.%lld", (long long)f.year,
                (long long)f.month, (long long)f.day, (long long)f.day_of_week, (long long)f.hour,
                (long long)f.minute, (long long)f.second, (long long)f.millisecond);
  return text;
}

// The fields of local time by the day-number rule; every division truncates toward zero.
Fields FieldsOf(std::int64_t local) {
  const std::int64_t days = local / kMsPerDay;
  const std::int64_t ms = local % kMsPerDay;
  Fields f{};
  std::int64_t l = days + 68569;
  const std::int64_t n = 4 * l / 146097;
  l = l - (146097 * n + 3) / 4;
  const std::int64_t i = 4000 * (l + 1) / 1461001;
  l = l - 1461 * i / 4 + 31;
  const std::int64_t j = 80 * l / 2447;
  f.day = l - 2447 * j / 80;
  l = j / 11;
  f.month = j + 2 - 12 * l;
  f.year = 100 * (n - 49) + i + l;
  f.millisecond = ms % 1000;
  f.second = (ms / 1000) % 60;
  f.minute = (ms / 60000) % 60;
  f.hour = ms / 3'600'000;
  const std::int64_t a = (f.month - 14) / 12;
  const std::int64_t y = f.year + a;
  const std::int64_t c = y / 100;
  const std::int64_t yy = y - 100 * c;
  // March is month 1 and February month 12 (the remainder 0 stands for 12).
  std::int64_t m = (f.month + 10) - 12 * ((f.month + 10) / 12);
  if (m == 0) m = 12;
  f.day_of_week = (y / 400 + (13 * m - 1) / 5 + 5 * yy / 4 - 2 * c + f.day + 77) % 7;
  return f;
}

std::int64_t JulianDay(std::int64_t year, std::int64_t month, std::int64_t day) {
  const std::int64_t a = (month - 14) / 12;
  return 1461 * (year + 4800 + a) / 4 + 367 * (month - 2 - 12 * a) / 12 -
         3 * ((year + 4900 + a) / 100) / 4 + day - 32075;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const std::uint64_t raw_time = input.Bits(4) | std::uint64_t{input.Bits(4)} << 32;
  const std::uint64_t raw_offset = input.Bits(4) | std::uint64_t{input.Bits(4)} << 32;
  // Times within +-2^61 ms (the scale's whole useful range many times over) and offsets within
  // +-2^40 ms; small offsets are the common case.
  const auto time = static_cast<std::int64_t>(raw_time << 2) >> 2;
  const std::int64_t offset = (raw_offset & 1) != 0
                                  ? static_cast<std::int64_t>(raw_offset << 23) >> 23
                                  : static_cast<std::int64_t>(raw_offset % 1'800'001) - 900'000;
  const std::int64_t local = time + offset;

  const kiv::Date date = kiv::DateExp::Make(time, offset);
  const Fields want = FieldsOf(local);
  const Fields got{date->GetYear(), date->GetMonth(),  date->GetDay(),    date->GetDayOfWeek(),
                   date->GetHour(), date->GetMinute(), date->GetSecond(), date->GetMillisecond()};
  char what[160];
  std::snprintf(what, sizeof what, "time %" PRId64 " offset %" PRId64, time, offset);
  KIV_FUZZ_CHECK(got == want, "%s: fields %s, expected %s", what, Text(got).c_str(),
                 Text(want).c_str());
  KIV_FUZZ_CHECK(date->GetTime() == time && date->GetTimeZoneOffset() == offset,
                 "%s: kept %" PRId64 " and %" PRId64, what, date->GetTime(),
                 date->GetTimeZoneOffset());

  if (local >= 0) {
    // From day 0 on the formulas are a calendar: the fields lead back to the same instant.
    KIV_FUZZ_CHECK(got.month >= 1 && got.month <= 12 && got.day >= 1 && got.day <= 31 &&
                       got.hour < 24 && got.minute < 60 && got.second < 60,
                   "%s: a field out of its range", what);
    const std::int64_t rebuilt = JulianDay(got.year, got.month, got.day) * kMsPerDay +
                                 ((got.hour * 60 + got.minute) * 60 + got.second) * 1000 +
                                 got.millisecond;
    KIV_FUZZ_CHECK(rebuilt == local, "%s: fields give back %" PRId64 ", not %" PRId64, what,
                   rebuilt, local);
    // Julian Day 0 was a Monday. The weekday rule holds from year 1 on (its divisions truncate,
    // so earlier years follow the formula, not the calendar); in late years its remainder turns
    // negative but still names the day it is congruent to.
    KIV_FUZZ_CHECK(got.year < 1 || (got.day_of_week % 7 + 7) % 7 == (local / kMsPerDay + 1) % 7,
                   "%s: day of week %lld", what, (long long)got.day_of_week);
  }

  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"",    "Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  try {
    const kiv::String text =
        kiv::DateStringExp::Make(date)->Encode(kiv::TextEncodingExp::MakeAscii());
    KIV_FUZZ_CHECK(want.year >= 0 && want.year <= 9999, "%s: year %lld printed", what,
                   (long long)want.year);
    char expected[64];
    std::snprintf(expected, sizeof expected, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                  kDays[(want.day_of_week % 7 + 7) % 7], (int)want.day, kMonths[want.month],
                  (int)want.year, (int)want.hour, (int)want.minute, (int)want.second);
    const std::string printed(static_cast<const char*>(text->GetData()), text->ByteLength());
    KIV_FUZZ_CHECK(printed == expected, "%s: \"%s\", expected \"%s\"", what, printed.c_str(),
                   expected);
  } catch (const kiv::UnrepresentableYearException&) {
    KIV_FUZZ_CHECK(want.year < 0 || want.year > 9999, "%s: year %lld refused", what,
                   (long long)want.year);
  }
  return 0;
}
