// What every file of this folder includes for the system's API, with the system header's
// function-name macros that collide with the platform layer's own names taken away again.
#ifndef KIV_PLATFORM_WIN32_WINDOWS_NAMES_H_
#define KIV_PLATFORM_WIN32_WINDOWS_NAMES_H_

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

// <windows.h> maps these to their ...A or ...W forms; the platform layer has functions of the
// same names and calls the system's wide forms by their full names.
#undef GetEnvironmentVariable
#undef SetEnvironmentVariable
#undef ReplaceFile

#include <string>

namespace kiv::platform {

// 16-bit text is the system's own wide text here: a UTF-16 path or name needs no conversion.
static_assert(sizeof(wchar_t) == sizeof(char16_t), "wide characters are 16-bit on this system");

inline std::wstring Wide(const std::u16string& text) {
  return std::wstring(text.begin(), text.end());
}

inline std::u16string Units(const wchar_t* text, std::size_t length) {
  return std::u16string(text, text + length);
}

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_WIN32_WINDOWS_NAMES_H_
