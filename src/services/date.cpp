// Time values, calendar fields and date strings.
#include <atomic>
#include <cstdio>
#include <cstring>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "platform/clock.h"
#include "services/date_impl.h"

namespace kiv {

DateItf::~DateItf() = default;

namespace {

constexpr std::uint64_t kTicksPerMillisecond = 10000;
constexpr std::int64_t kMillisecondsPerMinute = 60000;
// Years that the date string can print.
constexpr int kFirstPrintableYear = 0;
constexpr int kLastPrintableYear = 9999;

// The length of "Sun, 06 Nov 1994 08:49:37 GMT".
constexpr unsigned kDateStringLength = 29;

// Writes `value` (0 <= value < 10^width) as `width` decimal digits.
void PutDigits(char* out, int width, int value) noexcept {
  for (int i = width - 1; i >= 0; --i) {
    out[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
}

const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

// The time value of calendar fields in `offset`.
std::int64_t TimeOfFields(const platform::CalendarFields& f, std::int64_t offset) noexcept {
  return JulianDayNumber(f.year, f.month, f.day) * kMillisecondsPerDay +
         ((std::int64_t{f.hour} * 60 + f.minute) * 60 + f.second) * 1000 + f.millisecond - offset;
}

// The time value of 1 January 1601 00:00 UTC, the zero of file times: asked of the system once
// (the zero file time's fields) and kept. Threads that fill it at once store the same value.
std::int64_t Base1601() noexcept {
  static std::atomic<std::int64_t> base{0};
  std::int64_t value = base.load(std::memory_order_relaxed);
  if (value == 0) {
    platform::CalendarFields fields{1601, 1, 1, 0, 0, 0, 0};
    platform::FileTimeToCalendar(0, fields);
    value = TimeOfFields(fields, 0);
    base.store(value, std::memory_order_relaxed);
  }
  return value;
}

}  // namespace

const char* MonthAbbreviation(int month) noexcept {
  return month >= 1 && month <= 12 ? kMonths[month - 1] : nullptr;
}

const char* DayAbbreviation(int day_of_week) noexcept {
  return day_of_week >= 0 && day_of_week <= 6 ? kDays[day_of_week] : nullptr;
}

// Every division below truncates toward zero, as C++ integer division does.
std::int64_t JulianDayNumber(std::int64_t year, std::int64_t month, std::int64_t day) noexcept {
  const std::int64_t a = (month - 14) / 12;
  return 1461 * (year + 4800 + a) / 4 + 367 * (month - 2 - 12 * a) / 12 -
         3 * ((year + 4900 + a) / 100) / 4 + day - 32075;
}

DateImpl::DateImpl(std::int64_t time, std::int64_t offset) noexcept : time_(time), offset_(offset) {
  // A sum beyond the 64-bit range wraps around instead of overflowing.
  const std::int64_t local = static_cast<std::int64_t>(static_cast<std::uint64_t>(time) +
                                                       static_cast<std::uint64_t>(offset));
  const std::int64_t days = local / kMillisecondsPerDay;
  const std::int64_t ms_of_day = local % kMillisecondsPerDay;

  std::int64_t l = days + 68569;
  const std::int64_t n = 4 * l / 146097;
  l = l - (146097 * n + 3) / 4;
  const std::int64_t i = 4000 * (l + 1) / 1461001;
  l = l - 1461 * i / 4 + 31;
  const std::int64_t j = 80 * l / 2447;
  const std::int64_t day = l - 2447 * j / 80;
  l = j / 11;
  const std::int64_t month = j + 2 - 12 * l;
  const std::int64_t year = 100 * (n - 49) + i + l;
  year_ = static_cast<std::int32_t>(year);
  month_ = static_cast<std::int32_t>(month);
  day_ = static_cast<std::int32_t>(day);

  millisecond_ = static_cast<std::int32_t>(ms_of_day % 1000);
  second_ = static_cast<std::int32_t>((ms_of_day / 1000) % 60);
  minute_ = static_cast<std::int32_t>((ms_of_day / 60000) % 60);
  hour_ = static_cast<std::int32_t>(ms_of_day / 3600000);

  // Zeller-style day of week with March as month 1. Written out literally the month term would
  // make February 0, but it counts February as month 12 of the previous year, and so it is taken
  // here: with 0, every date in February would come out three days early.
  const std::int64_t a = (month - 14) / 12;
  const std::int64_t y = year + a;
  const std::int64_t c = y / 100;
  const std::int64_t yy = y - 100 * c;
  std::int64_t m = (month + 10) - 12 * ((month + 10) / 12);
  if (m == 0) m = 12;
  const std::int64_t w = y / 400 + (13 * m - 1) / 5 + 5 * yy / 4 - 2 * c + day + 77;
  day_of_week_ = static_cast<std::int32_t>(w % 7);
}

DateImpl::~DateImpl() = default;

// ---- the factories ----

std::int64_t FILETIME2Julian(std::uint64_t file_time) {
  // Half up to whole milliseconds, without the overflow that adding half a millisecond first
  // would risk at the top of the range.
  const std::uint64_t ms = file_time / kTicksPerMillisecond +
                           (file_time % kTicksPerMillisecond >= kTicksPerMillisecond / 2 ? 1 : 0);
  return static_cast<std::int64_t>(ms) + Base1601();
}

std::int64_t DateExp::Now() { return FILETIME2Julian(platform::SystemTimeAsFileTime()); }

std::int64_t DateExp::CurrentTimeZoneOffset() {
  std::int32_t bias = 0;
  std::int32_t daylight_bias = 0;
  switch (platform::GetTimeZone(bias, daylight_bias)) {
    case platform::kZoneDaylight:
      return (std::int64_t{bias} + daylight_bias) * -kMillisecondsPerMinute;
    case platform::kZoneUnknown:
    case platform::kZoneStandard:
      // Standard time and zones without daylight saving: the standard bias alone.
      return std::int64_t{bias} * -kMillisecondsPerMinute;
    default:
      return 0;
  }
}

Date DateExp::Make() { return Make(Now(), CurrentTimeZoneOffset()); }

Date DateExp::Make(std::int64_t time) { return Make(time, CurrentTimeZoneOffset()); }

Date DateExp::Make(std::int64_t time, std::int64_t offset) {
  return Date(new DateImpl(time, offset));
}

String DateStringExp::Make(const Date& date) {
  const int year = date->GetYear();
  if (year < kFirstPrintableYear || year > kLastPrintableYear) {
    throw UnrepresentableYearException(year);
  }
  // The day of week may be a negative remainder (late years); it names the day it is congruent to.
  const char* day_name = DayAbbreviation((date->GetDayOfWeek() % 7 + 7) % 7);
  const char* month_name = MonthAbbreviation(date->GetMonth());
  const int day = date->GetDay();
  const int hour = date->GetHour();
  const int minute = date->GetMinute();
  const int second = date->GetSecond();
  static const TextEncoding ascii = TextEncodingExp::MakeAscii();
  auto two_digits = [](int v) { return v >= 0 && v <= 99; };
  if (month_name == nullptr || !two_digits(day) || !two_digits(hour) || !two_digits(minute) ||
      !two_digits(second)) {
    // Only a date class of the caller's own can get here; it gets the format as printf writes it.
    char text[96];
    std::snprintf(text, sizeof text, "%s, %02u %s %04u %02u:%02u:%02u GMT", day_name,
                  static_cast<unsigned>(day), month_name != nullptr ? month_name : "???",
                  static_cast<unsigned>(year), static_cast<unsigned>(hour),
                  static_cast<unsigned>(minute), static_cast<unsigned>(second));
    return String(ascii, static_cast<void*>(text));
  }
  // The format written out by hand: this is the text of every answer a host sends.
  char text[30];
  std::memcpy(text, day_name, 3);
  text[3] = ',';
  text[4] = ' ';
  PutDigits(text + 5, 2, day);
  text[7] = ' ';
  std::memcpy(text + 8, month_name, 3);
  text[11] = ' ';
  PutDigits(text + 12, 4, year);
  text[16] = ' ';
  PutDigits(text + 17, 2, hour);
  text[19] = ':';
  PutDigits(text + 20, 2, minute);
  text[22] = ':';
  PutDigits(text + 23, 2, second);
  std::memcpy(text + 25, " GMT", 4);
  return String(ascii, static_cast<void*>(text), kDateStringLength, kDateStringLength);
}

}  // namespace kiv
