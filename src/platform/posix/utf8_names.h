// Names the system keeps as 8-bit text (environment variables, file paths) are UTF-8 here; the
// platform layer takes and gives them as 16-bit text. Conversion is standard UTF-8 both ways:
// surrogate pairs become one four-byte sequence, and bytes that are not UTF-8 read as U+FFFD (a
// lone surrogate is written as its own three-byte form, so no name is ever lost on the way out).
#ifndef KIV_PLATFORM_POSIX_UTF8_NAMES_H_
#define KIV_PLATFORM_POSIX_UTF8_NAMES_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "unicode/utf_codec.h"

namespace kiv::platform {

inline std::string ToUtf8(const std::u16string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    std::uint32_t c = 0;
    i += static_cast<std::size_t>(codec::Utf16Decode(text.data() + i, text.size() - i, c));
    unsigned char sequence[codec::kStandardUtf8MaxLength];
    const int n = codec::Utf8Encode(sequence, sequence + sizeof sequence, c);
    out.append(reinterpret_cast<const char*>(sequence), static_cast<std::size_t>(n));
  }
  return out;
}

inline std::u16string FromUtf8(const char* text, std::size_t length) {
  std::u16string out;
  out.reserve(length);
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* end = p + length;
  while (p < end) {
    std::uint32_t c = 0;
    const int n = codec::StandardUtf8Decode(p, end, c);
    if (n <= 0) {
      // Whatever is not standard UTF-8, a cut-off sequence included, reads one byte at a time.
      out += static_cast<char16_t>(codec::kReplacementCharacter);
      ++p;
      continue;
    }
    char16_t units[2];
    out.append(units, static_cast<std::size_t>(codec::Utf16Encode(units, c)));
    p += n;
  }
  return out;
}

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_POSIX_UTF8_NAMES_H_
