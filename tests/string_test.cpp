#include <kiv/buffer.h>
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/numbers.h>
#include <kiv/string.h>

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Utf8;
using testing::Wide;
using namespace std::string_view_literals;

String Ascii(const char* text) { return String(TextEncodingExp::MakeAscii(), text); }
String U8(const char* text) { return String(TextEncodingExp::MakeUTF8(), text); }

std::vector<std::string> Pieces(Container c) { return testing::Strings(c->Elements()); }

TEST(StringTest, ConstructionWrapsConstantsAndCopiesWritableText) {
  String empty(TextEncodingExp::MakeUTF16());
  EXPECT_EQ(empty->Length(), 0u);
  EXPECT_TRUE(empty == static_cast<const void*>(u""));

  static const char kConstant[] = "hello";
  String wrapped = Ascii(kConstant);
  EXPECT_EQ(wrapped->GetData(), kConstant);

  char writable[] = "hello";
  String copied(TextEncodingExp::MakeAscii(), static_cast<void*>(writable));
  writable[0] = 'j';
  EXPECT_EQ(Utf8(copied), "hello");
  EXPECT_EQ(copied->GetBuffer()->GetSize(), 5u + 4u);

  String reencoded(TextEncodingExp::MakeUTF32(), *U8("añb").operator->());
  EXPECT_EQ(Utf8(reencoded), "añb");

  EXPECT_EQ(String(TextEncodingExp::MakeUTF8(), static_cast<const void*>(nullptr))->Length(), 0u);
  EXPECT_TRUE(Wide("") == static_cast<const void*>(nullptr));
  EXPECT_THROW(String(Object(new Integer32(1))), BadCastException);
}

TEST(StringTest, IndexingAndSearching) {
  String s = U8("aéb€c");
  EXPECT_EQ(s[3], 0x20AC);
  EXPECT_EQ(U8("😀")->CharAt(0), 0x1F600u);
  String three = Wide("xyz");
  EXPECT_THROW(static_cast<void>(three[3]), BoundsException);
  EXPECT_THROW(static_cast<void>(three[-1]), BoundsException);
  EXPECT_THROW(static_cast<void>(String(TextEncodingExp::MakeUTF8())[0]), BoundsException);
  const unsigned char odd_tail[] = {'a', 0, 'b'};  // one unit and a stray byte
  EXPECT_THROW(String(TextEncodingExp::MakeUTF16(), static_cast<const void*>(odd_tail), 3)[1],
               BoundsException);

  // Searching for characters: the string_search fuzz target. Here searching for text.
  EXPECT_EQ(s->IndexOf(Wide("b€")), 2);
  EXPECT_EQ(s->IndexOf(Wide("€b")), -1);
  String rep = Wide("abcabc");
  EXPECT_EQ(rep->LastIndexOf(Ascii("bc")), 4);
  EXPECT_EQ(rep->IndexOf(Ascii("bc"), 2), 4);
  // A 16-bit needle never matches across unit boundaries.
  const unsigned short odd[] = {0x4142, 0x4344, 0};
  EXPECT_EQ(String(TextEncodingExp::MakeUTF16(), odd)->IndexOf(Wide("\xE4\x88\xB3")), -1);
  EXPECT_TRUE(rep->EndsWith(U8("cabc")));
  EXPECT_FALSE(rep->EndsWith(U8("abcabcabc")));
}

TEST(StringTest, ConcatenationAllocatesOnceInTheLeftEncoding) {
  String left = Wide("ab");
  String joined = left + U8("€");
  EXPECT_EQ(Utf8(joined), "ab€");
  EXPECT_EQ(joined->GetEncoding().Get(), TextEncodingExp::MakeUTF16().Get());
  // Sized by both operands' own bytes (the right one is still UTF-8 then) and a terminator.
  EXPECT_EQ(joined->GetBuffer()->GetSize(), 4u + 3u + 4u);
  // The result's buffer and substrings share its storage and outlive it.
  Buffer storage = joined->GetBuffer();
  String tail = joined->Substring(1);
  EXPECT_EQ(joined->GetData(), storage->GetData());
  joined = String();
  EXPECT_EQ(Utf8(tail), "b€");
  EXPECT_EQ(std::memcmp(storage->GetData(), u"ab\u20AC", 8), 0);  // the text and a terminator
  storage = Buffer();
  EXPECT_EQ(Utf8(tail + tail), "b€b€");
  EXPECT_EQ(Utf8(Ascii("x") + static_cast<unsigned short>('y') + static_cast<const void*>("z")),
            "xyz");
}

TEST(StringBufferTest, GrowsByExactFitAndToStringSurvivesLaterWrites) {
  StringBuffer b(TextEncodingExp::MakeAscii());
  b += Ascii("abc");
  b += static_cast<unsigned short>('d');
  EXPECT_EQ(b->Capacity(), 3u + 1u + 4u);
  String snapshot = b.ToString();
  b += static_cast<const void*>("e");
  EXPECT_EQ(Utf8(snapshot), "abcd");

  char storage[16];
  StringBuffer over(TextEncodingExp::MakeAscii(), BufferExp::Make(storage, sizeof storage));
  over += Ascii("0123456789");
  EXPECT_EQ(over->GetData(), storage);
  over += Ascii("0123456789");
  EXPECT_EQ(over->Capacity(), 24u);
  EXPECT_EQ(Utf8(String(over)), "01234567890123456789");
}

TEST(StringTest, CaseTrimSplitAndQuote) {
  EXPECT_EQ(Utf8(U8("Ábc Déf")->ToUpper()), "ÁBC DÉF");
  EXPECT_EQ(Utf8(Wide("  a b \t")->Trim()), "a b");
  EXPECT_EQ(Wide("   ")->Trim()->Length(), 0u);

  EXPECT_EQ(Pieces(Ascii("a, b, c")->Split(',', true, 2)), (std::vector<std::string>{"a", "b, c"}));
  EXPECT_EQ(Pieces(Wide("a--b--c")->Split(Ascii("--"), false, 10)),
            (std::vector<std::string>{"a", "b", "c"}));

  EXPECT_EQ(Utf8(U8("a\"b\\c\nd\x01é")->Quote()), "\"a\\\"b\\\\c\\nd\\u0001é\"");
  EXPECT_EQ(Utf8(Wide("héllo")->Substring(1, 3)), "éll");
  EXPECT_EQ(Utf8(U8("héllo")->Substring(3)), "lo");
}

// A character argument is laid out in the string's own code units, by Concat and by a buffer's
// Append alike, in every built-in encoding and at every width boundary, so that IndexOf finds it.
TEST(StringTest, CharacterArgumentsAreLaidOutInTheStringsUnits) {
  const std::uint32_t kChars[] = {0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x10FFFF};
  // Per character: the bytes it takes ('1'-'4'), or 'a'-'d' when held but never found ('a' for
  // ASCII: 0xFFFF is the widened byte 0xFF), or '.' when the encoding cannot hold it.
  const std::pair<TextEncoding, const char*> kCases[] = {{TextEncodingExp::MakeAscii(), "1a..a.."},
                                                         {TextEncodingExp::MakeUTF8(), "1223344"},
                                                         {TextEncodingExp::MakeUTF16(), "22222dd"},
                                                         {TextEncodingExp::MakeUTF32(), "4444444"}};
  for (const auto& [encoding, layout] : kCases) {
    for (int i = 0; i < 7; ++i) {
      const std::uint32_t c = kChars[i];
      SCOPED_TRACE(::testing::Message() << encoding->UnitBits() << " U+" << std::hex << c);
      String a(encoding, static_cast<unsigned short>('a'));
      if (layout[i] == '.') {
        // ASCII replaces what it cannot hold by '.', never reporting it, as its converter does.
        EXPECT_TRUE(a->Concat(c) == String(encoding, static_cast<const void*>("a.")));
        continue;
      }
      String text = a->Concat(c)->Concat('b');
      StringBuffer appended(encoding);
      appended += a;
      appended->Append(c);
      appended += static_cast<unsigned short>('b');
      EXPECT_TRUE(text == appended);
      const bool found = layout[i] <= '4';
      EXPECT_EQ(text->ByteLength(),
                2 * encoding->UnitBits() / 8 + (layout[i] - (found ? '0' : '`')));
      if (c <= 0xFFFF) {  // the same from a 16-bit unit
        EXPECT_TRUE(text->Substring(1, 1) == static_cast<unsigned short>(c));
        EXPECT_TRUE(String(encoding, static_cast<unsigned short>(c)) == text->Substring(1, 1));
      }
      EXPECT_EQ(text->IndexOf(c), found ? 1 : -1);
    }
  }
  // An ASCII byte above 0x7F reads as its sign-extended unit, which makes the same byte again.
  String latin = Ascii("x\xE9y");
  EXPECT_TRUE(String(TextEncodingExp::MakeAscii(), latin[1]) == latin->Substring(1, 1));
  // Past what each encoding can carry.
  EXPECT_THROW(static_cast<void>(U8("a")->Concat(0x80000000u)), CannotConvertException);
  EXPECT_THROW(static_cast<void>(Wide("a")->Concat(0x110000u)), CannotConvertException);
  EXPECT_EQ(String(TextEncodingExp::MakeUTF32())->Concat(0x80000000u)->IndexOf(0x80000000u), 0);
}

TEST(StringTest, NarrowViewsAndMalformedText) {
  CString narrow(Ascii("abc"));
  EXPECT_STREQ(narrow, "abc");
  CString wide(Wide("ab"));
  const unsigned short* units = wide;
  EXPECT_EQ(units[1], 'b');
  EXPECT_EQ(units[2], 0);

  MacPascalString pascal(Wide("hello"));
  const unsigned char* p = pascal;
  EXPECT_EQ(p[0], 5);
  EXPECT_EQ(Utf8(pascal.ToString()), "hello");

  const char cut[] = {'a', static_cast<char>(0xC3), 0};
  EXPECT_THROW(static_cast<void>(U8(cut)->Encode(TextEncodingExp::MakeUTF16())),
               CannotConvertException);
  char out[8];
  EXPECT_EQ(U8("a€")->CopyTo(out, 3, TextEncodingExp::MakeUTF8()), 1u);
  // Empty text has no storage at all; nothing may copy from it.
  EXPECT_EQ(String(TextEncodingExp::MakeUTF8())->CopyTo(out, 4, TextEncodingExp::MakeUTF16()), 0u);
  EXPECT_TRUE(String(TextEncodingExp::MakeUTF8())->StartsWith(Wide("")));
  EXPECT_EQ(out[1], 0);
}

// Text literals handed to an existing string's raw-text operations do not compile; views and
// strings do. The constructors take the encoding beside the literal and cannot refuse it.
template <class L, class R>
concept EqualityComparable = requires(const L& l, const R& r) {
  l == r;
};
template <class T>
concept SplitsOn = requires(const String& s, const T& t) {
  s->Split(t, true, 2);
};
template <class T>
concept AppendsText = requires(StringBuffer& b, const T& t) {
  b += t;
};

static_assert(!EqualityComparable<String, char[4]> && !EqualityComparable<char[4], String>);
static_assert(!EqualityComparable<String, char16_t[4]> &&
              !EqualityComparable<StringBuffer, char8_t[4]>);
static_assert(!SplitsOn<char[3]> && !SplitsOn<char16_t[3]> && !AppendsText<char[2]>);
static_assert(EqualityComparable<String, const void*> && SplitsOn<const void*> &&
              AppendsText<const void*>);
static_assert(std::is_constructible_v<String, TextEncoding, const char16_t (&)[4]>);
static_assert(std::is_constructible_v<String, std::string_view> &&
              !std::is_convertible_v<std::string_view, String>);

TEST(StringInterop, ViewsAreCopiedInAndStandardStringsComeOut) {
  // UTF-8 in: copied, in the UTF-8 encoding, characters beyond U+FFFF included.
  std::string source = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  String from8(source);
  source[0] = 'z';
  EXPECT_EQ(from8->GetEncoding().Get(), TextEncodingExp::MakeUTF8().Get());
  EXPECT_EQ(from8->CharAt(3), 0x1F600u);
  EXPECT_EQ(from8.ToUTF8(), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_TRUE(String(std::string_view())->IsEmpty());
  // Text the UTF-8 encoding cannot read: stray continuation byte, overlong form, cut-off end.
  for (std::string_view bad : {"a\x80"sv, "\xC0\x80"sv, "a\xF0\x9F\x98"sv}) {
    EXPECT_THROW(String{bad}, CannotConvertException);
    EXPECT_TRUE(Wide("a") != bad);  // compared as bytes, never equal to valid text
  }

  // UTF-16 in: units as they are, an unpaired surrogate included.
  const std::u16string units = u"a\u00E9\U0001F600\xD800z";
  String from16(units);
  EXPECT_EQ(from16.ToUTF16(), units);
  // Out as standard UTF-8: the pair joins into four bytes, the lone surrogate becomes U+FFFD.
  EXPECT_EQ(from16.ToUTF8(), "a\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBDz");

  // Every encoding gives the same standard text back.
  const std::u16string text16 = u"a\u00E9\u20AC\U0001F600";
  for (const TextEncoding& encoding :
       {TextEncodingExp::MakeUTF8(), TextEncodingExp::MakeUTF16(), TextEncodingExp::MakeUTF32()}) {
    String s = String(text16)->Encode(encoding);
    EXPECT_EQ(s.ToUTF16(), text16);
    EXPECT_EQ(s.ToUTF8(), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  }
  // The library's own UTF-8 writes a pair as two three-byte sequences; ToUTF8 joins them.
  const char split_pair[] = "\xED\xA0\xBD\xED\xB8\x80";
  EXPECT_EQ(U8(split_pair).ToUTF8(), "\xF0\x9F\x98\x80");
  // An ASCII byte above 0x7F reads as its sign-extended unit.
  EXPECT_EQ(Ascii("x\xE9").ToUTF8(), "x\xEF\xBF\xA9");
  StringBuffer buffer(TextEncodingExp::MakeUTF32());
  buffer->Append(0x110000u);
  EXPECT_THROW(static_cast<void>(buffer.ToUTF8()), CannotConvertException);
  EXPECT_THROW(static_cast<void>(U8("a\xFF").ToUTF16()), CannotConvertException);
  EXPECT_THROW(static_cast<void>(String().ToUTF8()), NullPointerException);
}

TEST(StringInterop, ComparisonPrintingAndHashingAgreeAcrossEncodings) {
  EXPECT_TRUE(Ascii("ab") < Ascii("abc"));
  EXPECT_TRUE(Wide("abc") == Ascii("abc"));  // the right operand is re-encoded
  EXPECT_TRUE(U8("é") > U8("z"));            // UTF-8 compares unsigned bytes
  EXPECT_TRUE(Ascii("abc") == static_cast<const void*>("abc"));
  EXPECT_TRUE(Wide("b") == static_cast<unsigned short>('b'));
  EXPECT_TRUE(U8("ÉCOLE")->EqualsIgnoreCase(Wide("école")));
  EXPECT_TRUE(Object(Wide("x")) == Object(Ascii("x")));  // handles compare by content
  String wide = Wide("ab\xF0\x9F\x98\x80");
  EXPECT_TRUE(wide == "ab\xF0\x9F\x98\x80"sv);
  EXPECT_TRUE(wide == u"ab\U0001F600"sv);
  EXPECT_TRUE(wide > "ab"sv);  // a proper prefix is smaller
  EXPECT_TRUE("ac"sv > wide);
  StringBuffer buffer(TextEncodingExp::MakeUTF32());
  buffer += wide;
  EXPECT_TRUE(buffer == "ab\xF0\x9F\x98\x80"sv);

  std::ostringstream out;
  out << wide << '|' << buffer;
  EXPECT_EQ(out.str(), "ab\xF0\x9F\x98\x80|ab\xF0\x9F\x98\x80");

  // Equal strings hash alike in every encoding. (Beyond U+FFFF a UTF-8 and a UTF-16 string are
  // not equal at all: the library writes a surrogate pair into UTF-8 as two sequences.)
  std::unordered_set<String> set{Wide("a\xC3\xA9\xE2\x82\xAC"), Ascii("plain")};
  EXPECT_EQ(set.count(U8("a\xC3\xA9\xE2\x82\xAC")), 1u);
  EXPECT_EQ(set.count(String(TextEncodingExp::MakeUTF32(), *U8("plain").operator->())), 1u);
  // As standard text, the encodings agree beyond U+FFFF too.
  EXPECT_TRUE(U8("ab\xF0\x9F\x98\x80") == u"ab\U0001F600"sv);
  // UTF-8 views order by code point, UTF-16 views by unit, whatever the string's encoding.
  EXPECT_TRUE(Wide("\xEF\xBF\xBF") < "\xF0\x90\x80\x80"sv);
  EXPECT_TRUE(U8("\xEF\xBF\xBF") > u"\U00010000"sv);
  EXPECT_EQ(std::hash<String>()(wide), wide->Hash());  // UTF-16 text hashes as itself
}

}  // namespace
}  // namespace kiv
