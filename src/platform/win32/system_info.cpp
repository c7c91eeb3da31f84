#include "platform/system_info.h"

#include <cstdio>

#include "platform/win32/windows_names.h"

namespace kiv::platform {

namespace {

using RtlGetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);

// GetVersionExA answers 6.2 on every system from Windows 8.1 on unless the program's manifest
// declares that it knows the newer system; a library cannot rely on its host's manifest, so the
// version is asked of ntdll's RtlGetVersion, which never pretends. GetVersionExA stays as the
// answer where ntdll lacks the call.
bool AskSystem(DWORD& major, DWORD& minor, DWORD& build, DWORD& family) {
  if (HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll")) {
    const auto rtl_get_version = reinterpret_cast<RtlGetVersionFunction>(
        reinterpret_cast<void*>(::GetProcAddress(ntdll, "RtlGetVersion")));
    OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof info;
    if (rtl_get_version != nullptr && rtl_get_version(&info) == 0) {
      major = info.dwMajorVersion;
      minor = info.dwMinorVersion;
      build = info.dwBuildNumber;
      family = info.dwPlatformId;
      return true;
    }
  }
  // The extended record first, then the basic one that the oldest systems still accept.
  OSVERSIONINFOEXA info{};
  info.dwOSVersionInfoSize = sizeof info;
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
  BOOL answered = ::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info));
  if (!answered) {
    info.dwOSVersionInfoSize = sizeof(OSVERSIONINFOA);
    answered = ::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info));
  }
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
  if (!answered) return false;
  major = info.dwMajorVersion;
  minor = info.dwMinorVersion;
  build = info.dwBuildNumber;
  family = info.dwPlatformId;
  return true;
}

}  // namespace

// "major.minor.build", as "10.0.19045". A system of a family other than the three known ones
// (Win32s, Windows 9x, Windows NT) gives an empty text: its numbers are not a version the caller
// could read.
bool SystemVersionText(std::string& text) {
  DWORD major = 0;
  DWORD minor = 0;
  DWORD build = 0;
  DWORD family = 0;
  if (!AskSystem(major, minor, build, family)) return false;
  if (family > VER_PLATFORM_WIN32_NT) {
    text.clear();
    return true;
  }
  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%lu.%lu.%lu", static_cast<unsigned long>(major),
                static_cast<unsigned long>(minor), static_cast<unsigned long>(build));
  text = buffer;
  return true;
}

// New files get the access of the directory they are made in; there is no mask to set.
bool HasFileCreationMask() noexcept { return false; }

std::uint32_t SetFileCreationMask(std::uint32_t) noexcept { return 0; }

}  // namespace kiv::platform
