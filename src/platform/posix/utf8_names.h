// Names the system keeps as 8-bit text (environment variables, file paths) are UTF-8 here; the
// platform layer takes and gives them as 16-bit text. Conversion is standard UTF-8 both ways:
// surrogate pairs become one four-byte sequence, and bytes that are not UTF-8 read as U+FFFD (a
// lone surrogate is written as its own three-byte form, so no name is ever lost on the way out).
#ifndef KIV_PLATFORM_POSIX_UTF8_NAMES_H_
#define KIV_PLATFORM_POSIX_UTF8_NAMES_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace kiv::platform {

inline std::string ToUtf8(const std::u16string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t c = text[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

inline std::u16string FromUtf8(const char* text, std::size_t length) {
  std::u16string out;
  out.reserve(length);
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* end = p + length;
  while (p < end) {
    std::uint32_t c = *p;
    if (c < 0x80) {
      out += static_cast<char16_t>(c);
      ++p;
      continue;
    }
    unsigned extra = 0;
    if (c >= 0xC2 && c < 0xE0) {
      extra = 1;
    } else if (c >= 0xE0 && c < 0xF0) {
      extra = 2;
    } else if (c >= 0xF0 && c < 0xF5) {
      extra = 3;
    }
    if (extra == 0 || static_cast<std::size_t>(end - p) <= extra) {
      out += u'\uFFFD';
      ++p;
      continue;
    }
    c &= 0x3Fu >> extra;
    bool valid = true;
    for (unsigned k = 1; k <= extra; ++k) {
      if ((p[k] & 0xC0) != 0x80) {
        valid = false;
        break;
      }
      c = (c << 6) | (p[k] & 0x3F);
    }
    static const std::uint32_t kMinimum[] = {0, 0x80, 0x800, 0x10000};
    if (!valid || c < kMinimum[extra] || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) {
      out += u'\uFFFD';
      ++p;
      continue;
    }
    if (c >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
    p += extra + 1;
  }
  return out;
}

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_POSIX_UTF8_NAMES_H_
