// Dates: points in time as one signed 64-bit time value, split into calendar fields in a given
// time-zone offset, and printed as the date string of HTTP answers.
//
// A time value counts milliseconds since 00:00:00.000 UTC at the start of Julian Day 0 (24
// November 4714 BC in the proleptic Gregorian calendar): 1 January 1970 00:00 UTC is
// 210,866,803,200,000. An offset is the milliseconds to add to UTC to get local time (positive
// east of Greenwich).
//
//   kiv::Date now = kiv::DateExp::Make(kiv::DateExp::Now(), 0);   // now, in UTC
//   kiv::String header = kiv::DateStringExp::Make(now);             // "Sat, 01 Jan 2000 00:00:00
//   GMT"
//
// The calendar arithmetic is integer arithmetic whose every division truncates toward zero, for
// every value: dates before 1970 and before year 1 follow the same formulas (so the fields of
// values far outside the years 1 to 9999 are what the formulas give, not a historical calendar).
// Dates are immutable and may be shared between threads.
#ifndef KIV_DATE_H_
#define KIV_DATE_H_

#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/string.h>

#include <cstdint>

namespace kiv {

// A point in time with the offset in which its fields are expressed. The fields are the local
// calendar fields, those of time value + offset.
struct KIV_EXPORT DateItf : public virtual RefCount {
  ~DateItf() override;

  virtual int GetYear() const = 0;
  // 1-12.
  virtual int GetMonth() const = 0;
  // 1-31.
  virtual int GetDay() const = 0;
  // 0 = Sunday ... 6 = Saturday. KEPT: the weekday formula uses a truncating remainder: from 1
  // March 4600 on it can give -6 ... -1 for Monday ... Saturday (a value v < 0 names the day v +
  // 7), and before the year 1 its truncating divisions part from the calendar. The date string
  // names the right day either way.
  virtual int GetDayOfWeek() const = 0;
  // 0-23.
  virtual int GetHour() const = 0;
  virtual int GetMinute() const = 0;
  virtual int GetSecond() const = 0;
  virtual int GetMillisecond() const = 0;
  // The offset the fields are expressed in, in milliseconds.
  virtual std::int64_t GetTimeZoneOffset() const = 0;
  // The time value (UTC).
  virtual std::int64_t GetTime() const = 0;
};

KIV_DECLARE_HANDLE(Date, DateItf);

struct KIV_EXPORT DateExp {
  // The current time value, from the system clock.
  [[nodiscard]] static std::int64_t Now();
  // The current offset of local time from UTC in milliseconds: the standard offset in standard
  // time, the standard plus the daylight-saving offset in daylight time (following TZ on POSIX
  // systems); 0 when the system cannot tell.
  [[nodiscard]] static std::int64_t CurrentTimeZoneOffset();
  // Now, in the current offset.
  [[nodiscard]] static Date Make();
  // `time` in the current offset: the offset in force now, not the one in force at `time`, so a
  // winter date made in summer shows summer's local time.
  [[nodiscard]] static Date Make(std::int64_t time);
  // `time` in `offset`. Any two values are accepted: when time + offset leaves the 64-bit range
  // it wraps around (two's complement) before the fields are computed.
  [[nodiscard]] static Date Make(std::int64_t time, std::int64_t offset);
};

struct KIV_EXPORT DateStringExp {
  // The date string "Sun, 06 Nov 1994 08:49:37 GMT": day name, day, month name, four-digit year,
  // hour, minute, second. KEPT: the fields are printed as the date holds them and the text always
  // says GMT: the formatter converts nothing, so a true GMT string needs a date made with offset 0
  // (DateExp::Make(time, 0)). UnrepresentableYearException (carrying the year) for years outside
  // 0-9999.
  [[nodiscard]] static String Make(const Date& date);
};

// The time value of a file time: `file_time` counts 100-nanosecond ticks since 1 January 1601
// UTC and is rounded half up to whole milliseconds.
[[nodiscard]] KIV_EXPORT std::int64_t FILETIME2Julian(std::uint64_t file_time);

}  // namespace kiv

#endif  // KIV_DATE_H_
