#include <kiv/buffer.h>
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/numbers.h>
#include <kiv/string.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::Utf8;
using testing::Wide;

String Ascii(const char* text) { return String(TextEncodingExp::MakeAscii(), text); }
String U8(const char* text) { return String(TextEncodingExp::MakeUTF8(), text); }

std::vector<std::string> Pieces(Container c) {
  std::vector<std::string> out;
  for (Ref<EnumerationItf> e = c->Elements(); e->HasMoreElements();) {
    out.push_back(Utf8(String(e->NextElement())));
  }
  return out;
}

TEST(StringTest, ConstructionWrapsConstantsAndCopiesWritableText) {
  String empty(TextEncodingExp::MakeUTF16());
  EXPECT_EQ(empty->Length(), 0u);
  EXPECT_TRUE(empty == static_cast<const void*>(u""));

  static const char kConstant[] = "hello";
  String wrapped = Ascii(kConstant);
  EXPECT_EQ(wrapped->GetData(), kConstant);
  EXPECT_EQ(wrapped->Length(), 5u);

  char writable[] = "hello";
  String copied(TextEncodingExp::MakeAscii(), static_cast<void*>(writable));
  writable[0] = 'j';
  EXPECT_EQ(Utf8(copied), "hello");
  EXPECT_EQ(copied->GetBuffer()->GetSize(), 5u + 4u);

  EXPECT_EQ(Utf8(String(TextEncodingExp::MakeUTF8(), static_cast<unsigned short>(0xE9))), "é");
  String reencoded(TextEncodingExp::MakeUTF32(), *U8("añb").operator->());
  EXPECT_EQ(reencoded->ByteLength(), 12u);
  EXPECT_EQ(Utf8(reencoded), "añb");

  EXPECT_EQ(String(TextEncodingExp::MakeUTF8(), static_cast<const void*>(nullptr))->Length(), 0u);
  EXPECT_TRUE(Wide("") == static_cast<const void*>(nullptr));

  String none;
  try {
    none->Length();
    FAIL();
  } catch (const NullPointerException& e) {
    EXPECT_EQ(Utf8(e.What()), "kiv::StringItf");
  }
  EXPECT_THROW(String(Object(new Integer32(1))), BadCastException);
}

TEST(StringTest, ComparisonIsCodeUnitOrderWithPrefixesSmaller) {
  EXPECT_TRUE(Ascii("ab") < Ascii("abc"));
  EXPECT_TRUE(Ascii("A") < Ascii("a"));
  EXPECT_TRUE(Wide("A") < Wide("a"));
  EXPECT_TRUE(Wide("abc") == Ascii("abc"));  // the right operand is re-encoded
  EXPECT_TRUE(U8("é") > U8("z"));            // UTF-8 compares unsigned bytes
  EXPECT_TRUE(Ascii("abc") == static_cast<const void*>("abc"));
  EXPECT_TRUE(Wide("b") == static_cast<unsigned short>('b'));
  EXPECT_TRUE(U8("ÉCOLE")->EqualsIgnoreCase(Wide("école")));
  // Object handles of strings compare by content.
  EXPECT_TRUE(Object(Wide("x")) == Object(Ascii("x")));
}

TEST(StringTest, IndexingAndSearching) {
  String s = U8("aéb€c");
  EXPECT_EQ(s->Length(), 5u);
  EXPECT_EQ(s[1], 0xE9);
  EXPECT_EQ(s[3], 0x20AC);
  EXPECT_EQ(U8("😀")->CharAt(0), 0x1F600u);
  String three = Wide("xyz");
  EXPECT_EQ(three[2], 'z');
  for (std::int32_t bad : {3, 4, -1}) {
    try {
      three[bad];
      FAIL() << bad;
    } catch (const BoundsException& e) {
      EXPECT_EQ(e.What(), bad);
    }
  }
  EXPECT_THROW(static_cast<void>(String(TextEncodingExp::MakeUTF8())[0]), BoundsException);
  const unsigned char odd_tail[] = {'a', 0, 'b'};  // one unit and a stray byte
  EXPECT_THROW(String(TextEncodingExp::MakeUTF16(), static_cast<const void*>(odd_tail), 3)[1],
               BoundsException);

  EXPECT_EQ(s->IndexOf(0x20ACu), 3);
  EXPECT_EQ(s->IndexOf(static_cast<std::uint32_t>('q')), -1);
  EXPECT_EQ(s->IndexOf(Wide("b€")), 2);
  EXPECT_EQ(s->IndexOf(Wide("€b")), -1);
  String rep = Wide("abcabc");
  EXPECT_EQ(rep->LastIndexOf(static_cast<std::uint32_t>('b')), 4);
  EXPECT_EQ(rep->LastIndexOf(Ascii("bc")), 4);
  EXPECT_EQ(rep->IndexOf(Ascii("bc"), 2), 4);
  EXPECT_EQ(rep->CountOf('c'), 2u);
  // UTF-8 refuses an index equal to its character count; a match at the end still counts.
  EXPECT_EQ(U8("ab,c,")->CountOf(','), 2u);
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
  EXPECT_EQ(Utf8(Ascii("x") + static_cast<unsigned short>('y') + static_cast<const void*>("z")),
            "xyz");
}

TEST(StringBufferTest, GrowsByExactFitAndToStringSurvivesLaterWrites) {
  StringBuffer b(TextEncodingExp::MakeAscii());
  EXPECT_EQ(b->Capacity(), 0u);
  b += Ascii("abc");
  EXPECT_EQ(b->Capacity(), 3u + 4u);
  b += static_cast<unsigned short>('d');
  EXPECT_EQ(b->Capacity(), 3u + 1u + 4u);
  String snapshot = b.ToString();
  b += static_cast<const void*>("e");
  b = Ascii("zz");
  EXPECT_EQ(Utf8(snapshot), "abcd");
  EXPECT_EQ(Utf8(b.ToString()), "zz");

  char storage[16];
  StringBuffer over(TextEncodingExp::MakeAscii(), BufferExp::Make(storage, sizeof storage));
  over += Ascii("0123456789");
  EXPECT_EQ(over->GetData(), storage);
  over += Ascii("0123456789");
  EXPECT_NE(over->GetData(), storage);
  EXPECT_EQ(over->Capacity(), 24u);
  EXPECT_EQ(Utf8(String(over)), "01234567890123456789");
}

TEST(StringTest, CaseTrimSplitAndQuote) {
  EXPECT_EQ(Utf8(U8("Ábc Déf")->ToUpper()), "ÁBC DÉF");
  EXPECT_EQ(Utf8(U8("Ábc Déf")->ToLower()), "ábc déf");
  EXPECT_EQ(Utf8(Wide("  a b \t")->Trim()), "a b");
  EXPECT_EQ(Wide("   ")->Trim()->Length(), 0u);

  EXPECT_EQ(Pieces(Ascii("a, b, c")->Split(',', true, 2)), (std::vector<std::string>{"a", "b, c"}));
  EXPECT_EQ(Pieces(Wide("a--b--c")->Split(Ascii("--"), false, 10)),
            (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(Pieces(U8(",x,")->Split(',', false, 5)), (std::vector<std::string>{"", "x", ""}));

  EXPECT_EQ(Utf8(U8("a\"b\\c\nd\x01é")->Quote()), "\"a\\\"b\\\\c\\nd\\u0001é\"");
  EXPECT_EQ(Utf8(Wide("héllo")->Substring(1, 3)), "éll");
  EXPECT_EQ(Utf8(U8("héllo")->Substring(3)), "lo");
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

  const char bad[] = {'a', static_cast<char>(0xFF), 0};
  EXPECT_THROW(U8(bad)->Encode(TextEncodingExp::MakeUTF16()), CannotConvertException);
  const char cut[] = {'a', static_cast<char>(0xC3), 0};
  EXPECT_THROW(U8(cut)->Encode(TextEncodingExp::MakeUTF16()), CannotConvertException);
  char out[8];
  EXPECT_EQ(U8("a€")->CopyTo(out, 3, TextEncodingExp::MakeUTF8()), 1u);
  // Empty text has no storage at all; nothing may copy from it.
  EXPECT_EQ(String(TextEncodingExp::MakeUTF8())->CopyTo(out, 4, TextEncodingExp::MakeUTF16()), 0u);
  EXPECT_TRUE(String(TextEncodingExp::MakeUTF8())->StartsWith(Wide("")));
  EXPECT_EQ(out[1], 0);
}

}  // namespace
}  // namespace kiv
