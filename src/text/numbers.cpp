#include "kiv/numbers.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kiv/encodings.h"

namespace kiv {

namespace {

template <class... Args>
String Format(const char* format, Args... args) {
  // Large enough for "%f" of the largest double (309 integer digits, point, six decimals).
  char text[400];
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
  int n = std::snprintf(text, sizeof text, format, args...);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
  if (n < 0) n = 0;
  if (n >= static_cast<int>(sizeof text)) n = sizeof text - 1;
  return String(TextEncodingExp::MakeAscii(), static_cast<void*>(text), static_cast<unsigned>(n));
}

// The text as 8-bit characters: an ASCII copy, terminated.
CString Narrow(const String& text) { return CString(text->Encode(TextEncodingExp::MakeAscii())); }

// The sign and magnitude that the C runtime's strtol/strtoul see, with the magnitude clamped to
// 64 bits; `overflow` is set when it does not fit there.
std::uint64_t ParseMagnitude(const char* p, bool& negative, bool& overflow) {
  while (std::isspace(static_cast<unsigned char>(*p))) ++p;
  negative = false;
  if (*p == '-' || *p == '+') negative = *p++ == '-';
  overflow = false;
  // After the sign come the digits (or a 0x prefix); a second sign or blank ends the number.
  if (!std::isalnum(static_cast<unsigned char>(*p))) return 0;
  errno = 0;
  unsigned long long value = std::strtoull(p, nullptr, 0);
  overflow = errno == ERANGE;
  return value;
}

// ValueOf's own 64-bit parser: white space, a sign (signed variant), a base prefix, then digits
// up to the first character that is not a digit of the base; overflow wraps.
std::uint64_t Parse64(const char* p, int base, bool is_signed) {
  while (std::isspace(static_cast<unsigned char>(*p))) ++p;
  bool negative = false;
  if (is_signed) {
    if (*p == '-') {
      negative = true;
      ++p;
    } else if (*p == '+') {
      ++p;
    }
  }
  if (base == 0 || base == 16) {
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
      p += 2;
      base = 16;
    } else if (p[0] == '0') {
      ++p;
      if (base == 0) base = 8;
    } else if (base == 0) {
      base = 10;
    }
  }
  std::uint64_t value = 0;
  for (;; ++p) {
    int digit;
    char c = *p;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'A' && c <= 'Z') {
      digit = c - 'A' + 10;
    } else if (c >= 'a' && c <= 'z') {
      digit = c - 'a' + 10;
    } else {
      break;
    }
    if (digit >= base) break;
    value = value * static_cast<std::uint64_t>(base) + static_cast<std::uint64_t>(digit);
  }
  return negative ? 0 - value : value;
}

}  // namespace

String NumberConversion::ToString(bool value) {
  static const char kTrue[] = "true";
  static const char kFalse[] = "false";
  return String(TextEncodingExp::MakeAscii(), static_cast<const void*>(value ? kTrue : kFalse));
}
String NumberConversion::ToHexString(bool value) { return ToString(value); }
String NumberConversion::ToString(std::int32_t value) { return Format("%" PRId32, value); }
String NumberConversion::ToHexString(std::int32_t value) {
  return Format("0x%" PRIX32, static_cast<std::uint32_t>(value));
}
String NumberConversion::ToString(std::uint32_t value) { return Format("%" PRIu32, value); }
String NumberConversion::ToHexString(std::uint32_t value) { return Format("0x%" PRIX32, value); }
String NumberConversion::ToString(std::int64_t value) { return Format("%" PRId64, value); }
String NumberConversion::ToHexString(std::int64_t value) {
  return Format("0x%" PRIX64, static_cast<std::uint64_t>(value));
}
String NumberConversion::ToString(std::uint64_t value) { return Format("%" PRIu64, value); }
String NumberConversion::ToHexString(std::uint64_t value) { return Format("0x%" PRIX64, value); }
String NumberConversion::ToString(double value) { return Format("%f", value); }
String NumberConversion::ToHexString(double value) { return ToString(value); }

bool NumberConversion::ValueOf(const String& text, const bool*) {
  if (text->Length() == 0) return false;
  String wide = text->Encode(TextEncodingExp::MakeUTF16());
  // KEPT: exactly these six spellings are true; "y", "Y" and mixed case such as "True" are
  // false, as configuration files are read.
  static const char16_t* const kTrue[] = {u"true", u"TRUE", u"t", u"T", u"yes", u"YES"};
  for (const char16_t* t : kTrue) {
    if (wide == static_cast<const void*>(t)) return true;
  }
  return false;
}

std::int32_t NumberConversion::ValueOf(const String& text, const std::int32_t*) {
  if (text->Length() == 0) return 0;
  CString narrow = Narrow(text);
  bool negative = false;
  bool overflow = false;
  std::uint64_t magnitude = ParseMagnitude(narrow.c_str(), negative, overflow);
  // strtol on a 32-bit long: out-of-range values clamp to the nearest limit.
  if (negative) {
    if (overflow || magnitude > 0x80000000ull) return INT32_MIN;
    return static_cast<std::int32_t>(0 - static_cast<std::uint32_t>(magnitude));
  }
  if (overflow || magnitude > 0x7FFFFFFFull) return INT32_MAX;
  return static_cast<std::int32_t>(magnitude);
}

std::uint32_t NumberConversion::ValueOf(const String& text, const std::uint32_t*) {
  if (text->Length() == 0) return 0;
  CString narrow = Narrow(text);
  bool negative = false;
  bool overflow = false;
  std::uint64_t magnitude = ParseMagnitude(narrow.c_str(), negative, overflow);
  // strtoul on a 32-bit unsigned long: a magnitude that does not fit gives the maximum; a minus
  // sign negates in unsigned arithmetic ("-1" is 0xFFFFFFFF).
  if (overflow || magnitude > 0xFFFFFFFFull) return UINT32_MAX;
  std::uint32_t value = static_cast<std::uint32_t>(magnitude);
  return negative ? 0u - value : value;
}

std::int64_t NumberConversion::ValueOf(const String& text, const std::int64_t*) {
  if (text->Length() == 0) return 0;
  return static_cast<std::int64_t>(Parse64(Narrow(text).c_str(), 0, true));
}

std::uint64_t NumberConversion::ValueOf(const String& text, const std::uint64_t*) {
  if (text->Length() == 0) return 0;
  return Parse64(Narrow(text).c_str(), 0, false);
}

double NumberConversion::ValueOf(const String& text, const double*) {
  if (text->Length() == 0) return 0.0;
  return std::strtod(Narrow(text).c_str(), nullptr);
}

double ToDouble(std::uint64_t value) {
  if (value < (1ull << 63)) return static_cast<double>(static_cast<std::int64_t>(value));
  double half = static_cast<double>(static_cast<std::int64_t>(value >> 1));
  return half * 2.0 + static_cast<double>(value & 1);
}

template <class T>
Number<T>::~Number() = default;

template <class T>
bool Number<T>::Equals(const RefCount& other) const {
  const Number<T>* n = dynamic_cast<const Number<T>*>(&other);
  return n != nullptr ? n->value_ == value_ : RefCount::Equals(other);
}

template <class T>
int Number<T>::Compare(const RefCount& other) const {
  const Number<T>* n = dynamic_cast<const Number<T>*>(&other);
  if (n == nullptr) return RefCount::Compare(other);
  return value_ < n->value_ ? -1 : (n->value_ < value_ ? 1 : 0);
}

template class Number<std::int32_t>;
template class Number<std::int64_t>;
template class Number<std::uint64_t>;
template class Number<bool>;

Integer32::~Integer32() = default;
Integer64::~Integer64() = default;
UnsignedInteger64::~UnsignedInteger64() = default;

}  // namespace kiv
