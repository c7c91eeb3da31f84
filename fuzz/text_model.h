// Reference forms of the library's character rules, written from the rules alone, for the fuzz
// targets to compare the library with.
#ifndef KIV_FUZZ_TEXT_MODEL_H_
#define KIV_FUZZ_TEXT_MODEL_H_

#include <cstdint>
#include <string>

namespace kiv::fuzz {

// One character of the six-byte form of UTF-8 (31-bit values, overlong forms invalid, encoded
// surrogates accepted) at [p, end): its length, 0 when the text ends inside it (decided from the
// lead byte alone), -1 when it is invalid.
inline int DecodeUtf8(const unsigned char* p, const unsigned char* end, std::uint32_t& value) {
  const unsigned char lead = *p;
  if (lead < 0x80) {
    value = lead;
    return 1;
  }
  int length;
  std::uint32_t lowest;
  if (lead < 0xC0 || lead >= 0xFE) return -1;
  if (lead < 0xE0) {
    length = 2, value = lead & 0x1F, lowest = 0x80;
  } else if (lead < 0xF0) {
    length = 3, value = lead & 0x0F, lowest = 0x800;
  } else if (lead < 0xF8) {
    length = 4, value = lead & 0x07, lowest = 0x10000;
  } else if (lead < 0xFC) {
    length = 5, value = lead & 0x03, lowest = 0x200000;
  } else {
    length = 6, value = lead & 0x01, lowest = 0x4000000;
  }
  if (end - p < length) return 0;
  for (int i = 1; i < length; ++i) {
    if ((p[i] & 0xC0) != 0x80) return -1;
    value = (value << 6) | (p[i] & 0x3F);
  }
  return value < lowest ? -1 : length;
}

// `c` (below 2^31) in the six-byte form of UTF-8.
inline std::string EncodeUtf8(std::uint32_t c) {
  int length = c < 0x80        ? 1
               : c < 0x800     ? 2
               : c < 0x10000   ? 3
               : c < 0x200000  ? 4
               : c < 0x4000000 ? 5
                               : 6;
  static constexpr unsigned char kLead[] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  std::string out(static_cast<std::size_t>(length), '\0');
  for (int i = length - 1; i > 0; --i) {
    out[static_cast<std::size_t>(i)] = static_cast<char>((c & 0x3F) | 0x80);
    c >>= 6;
  }
  out[0] = static_cast<char>(kLead[length] | c);
  return out;
}

// `c` as 16-bit units: one below 0x10000 (surrogate values pass as they are), a pair below
// 0x110000, nothing (not representable) above.
inline std::u16string Utf16Of(std::uint32_t c) {
  if (c < 0x10000) return std::u16string(1, static_cast<char16_t>(c));
  if (c >= 0x110000) return std::u16string();
  return {static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)),
          static_cast<char16_t>(0xDC00 + (c & 0x3FF))};
}

}  // namespace kiv::fuzz

#endif  // KIV_FUZZ_TEXT_MODEL_H_
