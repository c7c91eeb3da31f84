#include "platform/wide_ctype.h"

#include <wctype.h>

#include "platform/win32/windows_names.h"
#include "unicode/utf_codec.h"

namespace kiv::platform {

namespace {

// The runtime's towlower and towupper map only A-Z in the "C" locale, and the library never
// changes the locale; the system's own mapping with the invariant locale gives the Unicode simple
// case mapping whatever locale the host set. A character above U+FFFF is handed over as its
// surrogate pair; lone surrogates, and anything the system does not map one to one, come back
// unchanged.
std::uint32_t MapCase(std::uint32_t c, DWORD how) noexcept {
  if (c > codec::kMaxScalar || codec::IsSurrogate(c)) return c;
  wchar_t in[2] = {0, 0};
  const int units = codec::Utf16Encode(in, c);
  wchar_t out[2] = {in[0], in[1]};
  if (::LCMapStringW(LOCALE_INVARIANT, how, in, units, out, units) != units) return c;
  if (units == 1) return static_cast<std::uint16_t>(out[0]);
  std::uint32_t mapped = 0;
  return codec::Utf16Decode(out, 2, mapped) == 2 ? mapped : c;
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
