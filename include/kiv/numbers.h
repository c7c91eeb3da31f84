// Number formatting and parsing, and counted number boxes.
//
// Formatting writes fixed C formats ("%d", "0x%X", "%f", ...). KEPT: parsing is lenient:
// trailing characters are ignored, text without digits gives 0, and nothing is thrown for bad
// text. 32-bit results follow the C runtime's strtol/strtoul on a 32-bit long (clamped), on every
// platform.
#ifndef KIV_NUMBERS_H_
#define KIV_NUMBERS_H_

#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/string.h>

#include <cstdint>

namespace kiv {

class KIV_EXPORT NumberConversion {
 public:
  // "true" / "false" (both forms).
  static String ToString(bool value);
  static String ToHexString(bool value);
  // "%d" and "0x%X" (negative values as their 32-bit two's complement).
  static String ToString(std::int32_t value);
  static String ToHexString(std::int32_t value);
  static String ToString(std::uint32_t value);
  static String ToHexString(std::uint32_t value);
  static String ToString(std::int64_t value);
  static String ToHexString(std::int64_t value);
  static String ToString(std::uint64_t value);
  static String ToHexString(std::uint64_t value);
  // "%f": fixed notation with six decimals (both forms).
  static String ToString(double value);
  static String ToHexString(double value);

  // Parsers; the pointer only selects the overload and is never read. Empty text gives 0.
  // bool: true for "true", "TRUE", "t", "T", "yes", "YES" only (so "True", "y" and "Y" are false).
  static bool ValueOf(const String& text, const bool* tag);
  // strtol / strtoul with base 0, 32-bit results.
  static std::int32_t ValueOf(const String& text, const std::int32_t* tag);
  static std::uint32_t ValueOf(const String& text, const std::uint32_t* tag);
  // The library's own 64-bit parser with base 0 (0x for hex, leading 0 for octal); overflow
  // wraps without notice.
  static std::int64_t ValueOf(const String& text, const std::int64_t* tag);
  static std::uint64_t ValueOf(const String& text, const std::uint64_t* tag);
  // strtod.
  static double ValueOf(const String& text, const double* tag);
};

// The nearest double to an unsigned 64-bit value.
KIV_EXPORT double ToDouble(std::uint64_t value);

// A counted box for one value, to store numbers where counted objects are expected. Boxes of
// equal type and value are Equal and order by value.
template <class T>
class Number : public virtual RefCount {
 public:
  explicit Number(T value = T()) noexcept : value_(value) {}
  ~Number() override;
  T Get() const noexcept { return value_; }
  void Set(T value) noexcept { value_ = value; }
  bool Equals(const RefCount& other) const override;
  int Compare(const RefCount& other) const override;

 private:
  T value_;
};

extern template class KIV_EXPORT Number<std::int32_t>;
extern template class KIV_EXPORT Number<std::int64_t>;
extern template class KIV_EXPORT Number<std::uint64_t>;
extern template class KIV_EXPORT Number<bool>;

class KIV_EXPORT Integer32 : public Number<std::int32_t> {
 public:
  explicit Integer32(std::int32_t value = 0) noexcept : Number(value) {}
  ~Integer32() override;
};

class KIV_EXPORT Integer64 : public Number<std::int64_t> {
 public:
  explicit Integer64(std::int64_t value = 0) noexcept : Number(value) {}
  ~Integer64() override;
};

class KIV_EXPORT UnsignedInteger64 : public Number<std::uint64_t> {
 public:
  explicit UnsignedInteger64(std::uint64_t value = 0) noexcept : Number(value) {}
  ~UnsignedInteger64() override;
};

}  // namespace kiv

#endif  // KIV_NUMBERS_H_
