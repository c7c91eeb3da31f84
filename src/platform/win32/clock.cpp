#include "platform/clock.h"

#include "platform/win32/windows_names.h"

namespace kiv::platform {

std::uint64_t SystemTimeAsFileTime() noexcept {
  FILETIME now;
  ::GetSystemTimeAsFileTime(&now);
  return (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
}

bool FileTimeToCalendar(std::uint64_t file_time, CalendarFields& fields) noexcept {
  FILETIME time;
  time.dwLowDateTime = static_cast<DWORD>(file_time & 0xFFFFFFFFu);
  time.dwHighDateTime = static_cast<DWORD>(file_time >> 32);
  SYSTEMTIME utc;
  if (!::FileTimeToSystemTime(&time, &utc)) return false;
  fields.year = utc.wYear;
  fields.month = utc.wMonth;
  fields.day = utc.wDay;
  fields.hour = utc.wHour;
  fields.minute = utc.wMinute;
  fields.second = utc.wSecond;
  fields.millisecond = utc.wMilliseconds;
  return true;
}

// The system's answer passes through with one adjustment: its standard bias (almost always 0) is
// folded into `bias`, and taken out of `daylight_bias` again, so that standard time is `bias`
// alone and daylight time `bias + daylight_bias`, which is the rule the date code applies. A zone
// without daylight-saving rules reports its whole offset in Bias.
std::uint32_t GetTimeZone(std::int32_t& bias, std::int32_t& daylight_bias) noexcept {
  TIME_ZONE_INFORMATION zone;
  const DWORD id = ::GetTimeZoneInformation(&zone);
  switch (id) {
    case TIME_ZONE_ID_STANDARD:
    case TIME_ZONE_ID_DAYLIGHT:
      bias = zone.Bias + zone.StandardBias;
      daylight_bias = zone.DaylightBias - zone.StandardBias;
      return id == TIME_ZONE_ID_DAYLIGHT ? kZoneDaylight : kZoneStandard;
    case TIME_ZONE_ID_UNKNOWN:
      bias = zone.Bias;
      daylight_bias = 0;
      return kZoneUnknown;
    default:
      return kZoneFailed;
  }
}

}  // namespace kiv::platform
