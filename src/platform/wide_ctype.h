// Case mapping and white-space tests on wide characters, as the C runtime's towlower, towupper
// and iswspace give them for Unicode text.
//
// The library never changes the process's locale. On POSIX these use a private UTF-8 character
// locale (so that, for example, U+00E9 upper-cases to U+00C9 whatever locale the host set); where
// no such locale exists they fall back to the current one.
#ifndef KIV_PLATFORM_WIDE_CTYPE_H_
#define KIV_PLATFORM_WIDE_CTYPE_H_

#include <cstdint>

namespace kiv::platform {

std::uint32_t ToLowerWide(std::uint32_t c) noexcept;
std::uint32_t ToUpperWide(std::uint32_t c) noexcept;
bool IsSpaceWide(std::uint32_t c) noexcept;

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_WIDE_CTYPE_H_
