#include "platform/wide_ctype.h"

#include <locale.h>
#include <wctype.h>

namespace kiv::platform {

namespace {

// Made once and kept for the life of the process (a locale object is never freed while any
// thread may still be using it).
locale_t UnicodeLocale() noexcept {
  static const locale_t locale = [] {
    locale_t made = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    if (made == static_cast<locale_t>(nullptr)) {
      made = newlocale(LC_CTYPE_MASK, "en_US.UTF-8", static_cast<locale_t>(nullptr));
    }
    return made;
  }();
  return locale;
}

}  // namespace

std::uint32_t ToLowerWide(std::uint32_t c) noexcept {
  locale_t l = UnicodeLocale();
  wint_t w = static_cast<wint_t>(c);
  return static_cast<std::uint32_t>(l ? towlower_l(w, l) : towlower(w));
}

std::uint32_t ToUpperWide(std::uint32_t c) noexcept {
  locale_t l = UnicodeLocale();
  wint_t w = static_cast<wint_t>(c);
  return static_cast<std::uint32_t>(l ? towupper_l(w, l) : towupper(w));
}

bool IsSpaceWide(std::uint32_t c) noexcept {
  locale_t l = UnicodeLocale();
  wint_t w = static_cast<wint_t>(c);
  return (l ? iswspace_l(w, l) : iswspace(w)) != 0;
}

}  // namespace kiv::platform
