// Dates: the calendar arithmetic on time values, and the names the date texts use.
#ifndef KIV_SRC_SERVICES_DATE_IMPL_H_
#define KIV_SRC_SERVICES_DATE_IMPL_H_

#include <cstdint>

#include "kiv/date.h"

namespace kiv {

inline constexpr std::int64_t kMillisecondsPerDay = 86400000;

// "Jan" ... "Dec" for months 1 to 12; null for any other number.
const char* MonthAbbreviation(int month) noexcept;
// "Sun" ... "Sat" for days 0 to 6; null for any other number.
const char* DayAbbreviation(int day_of_week) noexcept;

// The Julian Day Number of a calendar date.
std::int64_t JulianDayNumber(std::int64_t year, std::int64_t month, std::int64_t day) noexcept;

class DateImpl final : public DateItf {
 public:
  // The fields of `time` + `offset`.
  DateImpl(std::int64_t time, std::int64_t offset) noexcept;
  ~DateImpl() override;

  int GetYear() const override { return year_; }
  int GetMonth() const override { return month_; }
  int GetDay() const override { return day_; }
  int GetDayOfWeek() const override { return day_of_week_; }
  int GetHour() const override { return hour_; }
  int GetMinute() const override { return minute_; }
  int GetSecond() const override { return second_; }
  int GetMillisecond() const override { return millisecond_; }
  std::int64_t GetTimeZoneOffset() const override { return offset_; }
  std::int64_t GetTime() const override { return time_; }

 private:
  std::int32_t year_;
  std::int32_t month_;
  std::int32_t day_;
  std::int32_t day_of_week_;
  std::int32_t hour_;
  std::int32_t minute_;
  std::int32_t second_;
  std::int32_t millisecond_;
  std::int64_t time_;
  std::int64_t offset_;
};

}  // namespace kiv

#endif  // KIV_SRC_SERVICES_DATE_IMPL_H_
