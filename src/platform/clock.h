// The system clock and time zone, in the shapes the date family computes with: file times
// (100-nanosecond ticks since 1 January 1601 UTC) and a bias in minutes west of UTC.
#ifndef KIV_PLATFORM_CLOCK_H_
#define KIV_PLATFORM_CLOCK_H_

#include <cstdint>

namespace kiv::platform {

// The current time as a file time.
std::uint64_t SystemTimeAsFileTime() noexcept;

struct CalendarFields {
  int year;
  int month;  // 1-12
  int day;    // 1-31
  int hour;
  int minute;
  int second;
  int millisecond;
};

// The UTC calendar fields of a file time; false when the system cannot convert it.
bool FileTimeToCalendar(std::uint64_t file_time, CalendarFields& fields) noexcept;

// What GetTimeZone reports about the current moment.
inline constexpr std::uint32_t kZoneUnknown = 0;   // no daylight-saving rule applies
inline constexpr std::uint32_t kZoneStandard = 1;  // standard time
inline constexpr std::uint32_t kZoneDaylight = 2;  // daylight-saving time
inline constexpr std::uint32_t kZoneFailed = 0xFFFFFFFF;

// The current zone: `bias` is the standard offset in minutes west of UTC (UTC = local + bias),
// `daylight_bias` the further minutes west that daylight-saving time adds (usually -60).
std::uint32_t GetTimeZone(std::int32_t& bias, std::int32_t& daylight_bias) noexcept;

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_CLOCK_H_
