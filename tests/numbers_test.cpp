#include <kiv/encodings.h>
#include <kiv/numbers.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Utf8;
using testing::Wide;

template <class T>
T Parse(const char* text) {
  return NumberConversion::ValueOf(Wide(text), static_cast<const T*>(nullptr));
}

TEST(NumberFormatTest, FixedFormats) {
  EXPECT_EQ(Utf8(NumberConversion::ToString(true)), "true");
  EXPECT_EQ(Utf8(NumberConversion::ToString(std::int32_t{-12})), "-12");
  EXPECT_EQ(Utf8(NumberConversion::ToHexString(std::int32_t{-1})), "0xFFFFFFFF");
  EXPECT_EQ(Utf8(NumberConversion::ToHexString(std::uint32_t{0xabc})), "0xABC");
  EXPECT_EQ(Utf8(NumberConversion::ToString(std::int64_t{INT64_MIN})), "-9223372036854775808");
  EXPECT_EQ(Utf8(NumberConversion::ToHexString(std::int64_t{-1})), "0xFFFFFFFFFFFFFFFF");
  EXPECT_EQ(Utf8(NumberConversion::ToString(UINT64_MAX)), "18446744073709551615");
  EXPECT_EQ(Utf8(NumberConversion::ToString(1.5)), "1.500000");
  EXPECT_EQ(Utf8(NumberConversion::ToHexString(1.5)), "1.500000");
  String huge = NumberConversion::ToString(1e300);
  EXPECT_EQ(huge->Length(), 301u + 7u);
  EXPECT_EQ(NumberConversion::ToString(std::int32_t{5})->GetEncoding().Get(),
            TextEncodingExp::MakeAscii().Get());
}

// Lenient rules, one case each; the numbers fuzz target holds every type to the C library's
// reading (32 bits), the own 64-bit parser's rules and the six true spellings.
TEST(NumberParseTest, LenientRulesOfEachType) {
  EXPECT_EQ(Parse<std::int64_t>("  -0x1F"), -31);
  EXPECT_EQ(Parse<std::int32_t>("  -0x1F"), -31);
  EXPECT_EQ(Parse<std::uint64_t>("019"), 1u);  // octal stops at the 9
  EXPECT_EQ(Parse<std::int32_t>("12abc"), 12);
  EXPECT_EQ(Parse<std::int32_t>("abc"), 0);
  EXPECT_EQ(Parse<double>(" 2.5e1x"), 25.0);
  // 32-bit results as the C runtime gives them on a 32-bit long; the own 64-bit parser wraps.
  EXPECT_EQ(Parse<std::int32_t>("-99999999999"), INT32_MIN);
  EXPECT_EQ(Parse<std::uint32_t>("-1"), 0xFFFFFFFFu);
  EXPECT_EQ(Parse<std::uint32_t>("4294967296"), 0xFFFFFFFFu);
  EXPECT_EQ(Parse<std::uint64_t>("18446744073709551617"), 1u);
  // Exactly six spellings are true, as configuration files are read.
  for (const char* t : {"true", "TRUE", "t", "T", "yes", "YES"}) EXPECT_TRUE(Parse<bool>(t)) << t;
  for (const char* f : {"", "false", "no", "y", "Y", "True", "Yes", "1", " true"}) {
    EXPECT_FALSE(Parse<bool>(f)) << f;
  }
  EXPECT_TRUE(NumberConversion::ValueOf(String(TextEncodingExp::MakeUTF8(), "yes"),
                                        static_cast<const bool*>(nullptr)));
}

TEST(NumberTest, ToDoubleAndBoxes) {
  EXPECT_EQ(ToDouble(UINT64_MAX), std::ldexp(1.0, 64));
  Object a(new Integer32(3));
  Object b(new Integer32(3));
  Object c(new UnsignedInteger64(3));
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a == c);
  EXPECT_TRUE(a < Object(new Integer32(4)));
}

}  // namespace
}  // namespace kiv
