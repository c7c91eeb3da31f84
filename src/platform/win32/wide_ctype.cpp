#include "platform/wide_ctype.h"

#include <wctype.h>

#include "platform/win32/windows_names.h"

namespace kiv::platform {

namespace {

// The runtime's towlower and towupper map only A-Z in the "C" locale, and the library never
// changes the locale; the system's own mapping with the invariant locale gives the Unicode simple
// case mapping whatever locale the host set. Characters outside the 16-bit range and lone
// surrogates are returned unchanged.
std::uint32_t MapCase(std::uint32_t c, DWORD how) noexcept {
  if (c > 0xFFFF || (c >= 0xD800 && c < 0xE000)) return c;
  const wchar_t in = static_cast<wchar_t>(c);
  wchar_t out = in;
  if (::LCMapStringW(LOCALE_INVARIANT, how, &in, 1, &out, 1) != 1) return c;
  return static_cast<std::uint16_t>(out);
}

}  // namespace

std::uint32_t ToLowerWide(std::uint32_t c) noexcept {
  if (c < 0x80) return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
  return MapCase(c, LCMAP_LOWERCASE);
}

std::uint32_t ToUpperWide(std::uint32_t c) noexcept {
  if (c < 0x80) return c >= 'a' && c <= 'z' ? c - ('a' - 'A') : c;
  return MapCase(c, LCMAP_UPPERCASE);
}

// The runtime's iswspace classifies every 16-bit unit by the system's character tables, which
// do not depend on the locale.
bool IsSpaceWide(std::uint32_t c) noexcept {
  if (c > 0xFFFF) return false;
  return ::iswspace(static_cast<wint_t>(c)) != 0;
}

}  // namespace kiv::platform
