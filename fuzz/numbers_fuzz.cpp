// Number parsing against the C library and the rules the parsers document: 32-bit values as the
// C library's strtol and strtoul read them into a 32-bit long (clamped), 64-bit values by the
// library's own base-0 parser (which wraps), doubles as strtod reads them, and truth values from
// the six accepted words only. The text is parsed from an ASCII string and from its UTF-16 copy;
// both must give the same values.
//
// Input: the text (bytes folded into 7 bits).
#include <kiv/encodings.h>
#include <kiv/numbers.h>
#include <kiv/string.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "fuzz_support.h"

namespace {

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'z') return c - 'a' + 10;
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  return 99;
}

// The library's 64-bit parser: white space, a sign (signed only), the base from the prefix ("0x"
// hexadecimal, "0" octal, else decimal), digits accumulated with wrap-around.
std::uint64_t Parse64(const std::string& text, bool is_signed) {
  const char* p = text.c_str();
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  bool negative = false;
  if (is_signed && (*p == '-' || *p == '+')) negative = *p++ == '-';
  unsigned base = 10;
  if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
    base = 16, p += 2;
  } else if (p[0] == '0') {
    base = 8, p += 1;
  }
  std::uint64_t value = 0;
  for (; DigitValue(*p) < static_cast<int>(base); ++p) {
    value = value * base + static_cast<unsigned>(DigitValue(*p));
  }
  return negative ? 0 - value : value;
}

bool SameDouble(double a, double b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), std::min<std::size_t>(size, 256));
  for (char& c : text) c = static_cast<char>(c & 0x7F);
  const std::string shown = kiv::fuzz::Escaped(text);

  using kiv::NumberConversion;
  const kiv::String ascii(kiv::TextEncodingExp::MakeAscii(), text.data(),
                          static_cast<unsigned>(text.size()));
  const kiv::String wide = ascii->Encode(kiv::TextEncodingExp::MakeUTF16());
  for (const bool is_wide : {false, true}) {
    const kiv::String& s = is_wide ? wide : ascii;
    // Parsing re-encodes as ASCII, in which the wide unit 0x7F becomes '.'; it stops at a zero
    // byte, as the C library does.
    std::string upto_zero(text.c_str());
    if (is_wide) std::replace(upto_zero.begin(), upto_zero.end(), '\x7F', '.');
    const std::int32_t l = NumberConversion::ValueOf(s, static_cast<const std::int32_t*>(nullptr));
    KIV_FUZZ_CHECK(l == kiv::fuzz::Strtol32(upto_zero, 0), "int32 %d, strtol %d: \"%s\"", l,
                   kiv::fuzz::Strtol32(upto_zero, 0), shown.c_str());
    const std::uint32_t ul =
        NumberConversion::ValueOf(s, static_cast<const std::uint32_t*>(nullptr));
    KIV_FUZZ_CHECK(ul == kiv::fuzz::Strtoul32(upto_zero, 0), "uint32 %u, strtoul %u: \"%s\"", ul,
                   kiv::fuzz::Strtoul32(upto_zero, 0), shown.c_str());
    const std::int64_t ll = NumberConversion::ValueOf(s, static_cast<const std::int64_t*>(nullptr));
    KIV_FUZZ_CHECK(static_cast<std::uint64_t>(ll) == Parse64(upto_zero, true),
                   "int64 %lld, expected %lld: \"%s\"", static_cast<long long>(ll),
                   static_cast<long long>(Parse64(upto_zero, true)), shown.c_str());
    const std::uint64_t ull =
        NumberConversion::ValueOf(s, static_cast<const std::uint64_t*>(nullptr));
    KIV_FUZZ_CHECK(ull == Parse64(upto_zero, false), "uint64 %llu, expected %llu: \"%s\"",
                   static_cast<unsigned long long>(ull),
                   static_cast<unsigned long long>(Parse64(upto_zero, false)), shown.c_str());
    const double d = NumberConversion::ValueOf(s, static_cast<const double*>(nullptr));
    const double want = std::strtod(upto_zero.c_str(), nullptr);
    KIV_FUZZ_CHECK(SameDouble(d, want), "double %.17g, strtod %.17g: \"%s\"", d, want,
                   shown.c_str());
    const bool b = NumberConversion::ValueOf(s, static_cast<const bool*>(nullptr));
    const bool truth = text == "true" || text == "TRUE" || text == "t" || text == "T" ||
                       text == "yes" || text == "YES";
    KIV_FUZZ_CHECK(b == truth, "bool %d: \"%s\"", b, shown.c_str());
  }
  return 0;
}
