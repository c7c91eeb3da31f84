#include <time.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "platform/clock.h"

namespace kiv::platform {

namespace {

constexpr std::uint64_t kTicksPerSecond = 10000000;
constexpr std::uint64_t kTicksPerMillisecond = 10000;
// Seconds from 1 January 1601 to 1 January 1970.
constexpr std::int64_t kSecondsFrom1601To1970 = 11644473600;

}  // namespace

std::uint64_t SystemTimeAsFileTime() noexcept {
  struct timespec now;
  if (::clock_gettime(CLOCK_REALTIME, &now) != 0) return 0;
  const std::int64_t seconds = static_cast<std::int64_t>(now.tv_sec) + kSecondsFrom1601To1970;
  if (seconds < 0) return 0;
  return static_cast<std::uint64_t>(seconds) * kTicksPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec / 100);
}

bool FileTimeToCalendar(std::uint64_t file_time, CalendarFields& fields) noexcept {
  const std::uint64_t seconds = file_time / kTicksPerSecond;
  const time_t unix_seconds =
      static_cast<time_t>(static_cast<std::int64_t>(seconds) - kSecondsFrom1601To1970);
  struct tm utc;
  if (::gmtime_r(&unix_seconds, &utc) == nullptr) return false;
  fields.year = utc.tm_year + 1900;
  fields.month = utc.tm_mon + 1;
  fields.day = utc.tm_mday;
  fields.hour = utc.tm_hour;
  fields.minute = utc.tm_min;
  fields.second = utc.tm_sec;
  fields.millisecond = static_cast<int>((file_time % kTicksPerSecond) / kTicksPerMillisecond);
  return true;
}

// POSIX gives the whole offset in force now (tm_gmtoff, daylight saving included) and whether
// daylight saving is in force; the zone is reported with that whole offset as its bias and no
// further daylight bias, which yields the same offset by the Windows rule.
//
// Asking the C library costs a look at the zone file each time, and every log line asks, so the
// answer is kept for the rest of its second: zones change only at whole seconds, and a change of
// TZ is noticed at once (the variable is compared on every call). Only a replaced zone file is
// seen up to a second late.
std::uint32_t GetTimeZone(std::int32_t& bias, std::int32_t& daylight_bias) noexcept {
  // The C library guards its zone state with a lock of its own that thread checkers cannot see,
  // so the calls are also made under a lock they can.
  static std::mutex zone_lock;
  static time_t cached_second = -1;
  static std::string cached_tz;
  static bool cached_tz_set = false;
  static struct tm cached;
  std::lock_guard<std::mutex> hold(zone_lock);
  const time_t now = ::time(nullptr);
  const char* tz = ::getenv("TZ");
  if (now != cached_second || (tz != nullptr) != cached_tz_set ||
      (tz != nullptr && cached_tz != tz)) {
    // localtime_r need not notice a change of TZ by itself; tzset makes it follow the variable.
    ::tzset();
    if (::localtime_r(&now, &cached) == nullptr) {
      cached_second = -1;
      return kZoneFailed;
    }
    cached_second = now;
    cached_tz_set = tz != nullptr;
    try {
      cached_tz = tz != nullptr ? tz : "";
    } catch (...) {
      cached_second = -1;  // out of memory: ask again next time
    }
  }
  bias = static_cast<std::int32_t>(-cached.tm_gmtoff / 60);
  daylight_bias = 0;
  if (cached.tm_isdst > 0) return kZoneDaylight;
  return cached.tm_isdst == 0 ? kZoneStandard : kZoneUnknown;
}

}  // namespace kiv::platform
