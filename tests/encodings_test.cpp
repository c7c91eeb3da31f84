#include <gtest/gtest.h>
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>

#include <string>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

std::string U16(std::initializer_list<unsigned> units) {
  std::string s;
  for (unsigned u : units) {
    auto v = static_cast<unsigned short>(u);
    s.append(reinterpret_cast<const char*>(&v), 2);
  }
  return s;
}

unsigned Len(const std::string& s) { return static_cast<unsigned>(s.size()); }

// Converts all of `in`, as a stream would, in calls of at most `chunk` output bytes.
std::string ConvertAll(BlockConverter c, const std::string& in, unsigned chunk = 1000) {
  std::string out;
  std::vector<char> buffer(chunk);
  unsigned done = 0;
  while (done < in.size()) {
    unsigned out_size = chunk, out_pos = 0, in_pos = 0, in_size = Len(in) - done;
    int r = c->Convert(buffer.data(), out_size, out_pos, in.data() + done, in_size, in_pos, true);
    if (r != DataConverterItf::ResultOK && in_pos == 0) break;
    out.append(buffer.data(), out_size);
    done += in_size;
  }
  return out;
}

TEST(Encodings, SharedInstancesAndConverters) {
  TextEncoding ascii = TextEncodingExp::MakeAscii(), utf8 = TextEncodingExp::MakeUTF8(),
               utf16 = TextEncodingExp::MakeUTF16(), utf32 = TextEncodingExp::MakeUTF32();
  EXPECT_EQ(TextEncodingExp::MakeAppDefault(), utf16);
  EXPECT_EQ(TextEncodingExp::MakeSystemDefault(), utf8);
  EXPECT_EQ(TextEncodingExp::MakeAscii(), ascii);
  EXPECT_EQ(ascii->UnitBits(), 8u);
  EXPECT_EQ(utf8->UnitBits(), 8u);
  EXPECT_EQ(utf16->UnitBits(), 16u);
  EXPECT_EQ(utf32->UnitBits(), 32u);
  for (TextEncoding e : {ascii, utf8, utf16, utf32}) {
    EXPECT_TRUE(e->GetFlag());
    EXPECT_FALSE(!e->GetToWideConverter());
    EXPECT_FALSE(!e->GetFromWideConverter());
    EXPECT_FALSE(!e->GetToLowerConverter());
    EXPECT_FALSE(!e->GetToUpperConverter());
  }
  EXPECT_EQ(utf16->GetToWideConverter(), utf16->GetFromWideConverter());
  EXPECT_NE(utf16->GetToWideConverter(), BlockCopyConverterExp::Make());
}

TEST(Encodings, DataAtBoundsDifferBetweenFixedAndUtf8) {
  TextEncoding ascii = TextEncodingExp::MakeAscii(), utf8 = TextEncodingExp::MakeUTF8();
  const char* text = "abcde";
  unsigned length = 5;
  EXPECT_EQ(ascii->DataAt(static_cast<const void*>(text), length, 5), text + 5);
  EXPECT_EQ(length, 0u);
  length = 5;
  EXPECT_THROW(ascii->DataAt(static_cast<const void*>(text), length, 6), BoundsException);
  EXPECT_THROW(ascii->DataAt(static_cast<const void*>(text), length, -1), BoundsException);
  length = 0;
  EXPECT_THROW(ascii->DataAt(static_cast<const void*>(text), length, 1), NoSuchElementException);
  std::string wide = U16({'a', 'b', 'c'});
  length = 6;
  EXPECT_EQ(TextEncodingExp::MakeUTF16()->DataAt(wide.data(), length, 2), wide.data() + 4);
  EXPECT_EQ(length, 2u);

  std::string u = "a\xC3\xA9z";
  length = Len(u);
  EXPECT_EQ(utf8->DataAt(u.data(), length, 2), u.data() + 3);  // the writable form
  EXPECT_EQ(length, 1u);
  length = 3;
  EXPECT_THROW(utf8->DataAt(static_cast<const void*>("abc"), length, 3), BoundsException);
  length = 0;
  const void* empty = "";
  EXPECT_EQ(utf8->DataAt(empty, length, 0), empty);
  EXPECT_THROW(utf8->DataAt(empty, length, 1), NoSuchElementException);
  length = 1;  // a cut-off sequence is no character to step over
  EXPECT_THROW(utf8->DataAt(static_cast<const void*>("\xC3\xA9"), length, 1), BoundsException);
  try {
    length = 3;
    utf8->DataAt(static_cast<const void*>("abc"), length, 7);
    FAIL();
  } catch (const BoundsException& e) {
    EXPECT_EQ(e.What(), 7);
  }
}

TEST(Encodings, SearchAndCompareSignedness) {
  TextEncoding ascii = TextEncodingExp::MakeAscii(), utf8 = TextEncodingExp::MakeUTF8();
  std::string s = "x\xE9y\xE9";
  EXPECT_EQ(ascii->Find(0xE9, s.data(), Len(s)), -1);
  EXPECT_EQ(ascii->Find(0xFFFFFFE9u, s.data(), Len(s)), 1);  // the sign-extended byte
  EXPECT_EQ(ascii->FindLast('y', s.data(), 0, 3), 2);        // length is not consulted
  EXPECT_EQ(ascii->FindLast('y', s.data(), Len(s), 2), -1);
  EXPECT_LT(ascii->Compare("\x80", 1, "\x41", 1), 0);
  EXPECT_GT(utf8->Compare("\x80", 1, "\x41", 1), 0);
  EXPECT_EQ(ascii->Compare("abc", 3, "ab", 2), 1);
  EXPECT_EQ(utf8->Compare("ab", 2, "abcd", 4), -2);

  std::string w = U16({'a', 0xE9, 'b', 0xE9, 0xFFFF});
  TextEncoding utf16 = TextEncodingExp::MakeUTF16();
  EXPECT_EQ(utf16->Find(0xE9, w.data(), Len(w)), 1);
  EXPECT_EQ(utf16->FindLast(0xE9, w.data(), Len(w), 5), 3);
  EXPECT_GT(utf16->Compare(U16({0xFFFF}).data(), 2, U16({1}).data(), 2), 0);
  std::uint32_t big[] = {0xFFFFFFFFu, 0};
  EXPECT_GT(TextEncodingExp::MakeUTF32()->Compare(big, 4, big + 1, 4), 0);

  std::string u =
      "a\xC3\xA9"
      "b\xC3\xA9";
  EXPECT_EQ(utf8->Find(0xE9, u.data(), Len(u)), 1);
  EXPECT_EQ(utf8->FindLast(0xE9, u.data(), Len(u), 4), 3);
  EXPECT_EQ(utf8->FindLast(0xE9, u.data(), Len(u), 3), 1);
  EXPECT_EQ(utf8->FindLast(0xE9, u.data(), Len(u), 0), -1);
  EXPECT_EQ(utf8->Find(0xE9, "ab\xC3", 3), -1);  // a cut-off sequence ends the search
  EXPECT_THROW(utf8->Find(0xE9, "a\xFF\xC3\xA9", 4), CannotConvertException);
}

TEST(Encodings, CountsTrimAndTerminators) {
  TextEncoding ascii = TextEncodingExp::MakeAscii(), utf8 = TextEncodingExp::MakeUTF8(),
               utf16 = TextEncodingExp::MakeUTF16(), utf32 = TextEncodingExp::MakeUTF32();
  EXPECT_EQ(utf8->CharacterCount("a\xC3\xA9", 3), 2u);
  EXPECT_EQ(utf8->CharacterCount("a\xC3", 2), 1u);
  EXPECT_THROW(utf8->CharacterCount("a\xFF", 2), CannotConvertException);
  EXPECT_EQ(utf16->CharacterCount("abcde", 5), 2u);
  unsigned length = 99;
  EXPECT_EQ(utf8->TerminatedLength("a\xC3\xA9z", length), 3u);
  EXPECT_EQ(length, 4u);
  EXPECT_THROW(utf8->TerminatedLength("a\xC3", length), CannotConvertException);
  std::string w = U16({'a', 'b', 0, 'c'});
  EXPECT_EQ(utf16->TerminatedLength(w.data(), length), 2u);
  EXPECT_EQ(length, 4u);

  auto trim = [](TextEncoding e, const std::string& s, std::string* kept) {
    const void* data = s.data();
    unsigned len = Len(s);
    unsigned chars = e->Trim(data, len);
    *kept = std::string(static_cast<const char*>(data), len);
    return chars;
  };
  std::string kept;
  EXPECT_EQ(trim(utf16, U16({' ', 'a', ' '}), &kept), 1u);
  EXPECT_EQ(kept, U16({'a'}));
  EXPECT_EQ(trim(ascii, "   ", &kept), 0u);
  EXPECT_EQ(kept, "");
  EXPECT_EQ(trim(ascii, " \xA0x ", &kept), 2u);  // a byte above 127 is never white space
  EXPECT_EQ(trim(utf8, " \t\xC3\xA9 b \n", &kept), 3u);
  EXPECT_EQ(kept, "\xC3\xA9 b");
  EXPECT_EQ(trim(utf8, "  \xE2\x82", &kept), 0u);  // cut off while skipping white space
  EXPECT_EQ(trim(utf8, "x \xE2\x82", &kept), 1u);
  EXPECT_EQ(kept, "x");
  EXPECT_THROW(trim(utf8, " \xC0\x80", &kept), CannotConvertException);
  std::uint32_t values[] = {' ', 0x1F600, ' '};
  const void* data = values;
  length = sizeof values;
  EXPECT_EQ(utf32->Trim(data, length), 1u);
  EXPECT_EQ(data, values + 1);

  unsigned char buffer[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  for (TextEncoding e : {ascii, utf8, utf16, utf32}) {
    EXPECT_FALSE(e->Terminate(buffer, 8, 8));
    EXPECT_TRUE(e->Terminate(buffer, 0, 8));
    EXPECT_TRUE(e->IsTerminatorAt(buffer, 0));
  }
  EXPECT_FALSE(utf16->Terminate(buffer, 7, 8));
  EXPECT_FALSE(utf32->Terminate(buffer, 5, 8));
  EXPECT_EQ(buffer[7], 1);
  EXPECT_FALSE(utf16->IsTerminatorAt(buffer, 6));
}

// The corpus holds one text per script in UTF-8, UTF-16 and UTF-32 (unicode_lipsum). The UTF-8
// and UTF-32 forms decode to exactly the UTF-16 file (less the byte order mark that only the
// UTF-16 files start with). Wide text goes out to UTF-8 and UTF-32 one
// unit at a time (a surrogate pair becomes two encoded surrogates) and comes back unchanged.
TEST(Encodings, RoundTripsOverCorpus) {
  std::string dir = testing::CorpusDir();
  if (dir.empty()) GTEST_SKIP() << "corpus folder ../shared/corpus not found";
  TextEncoding utf8 = TextEncodingExp::MakeUTF8(), utf16 = TextEncodingExp::MakeUTF16(),
               utf32 = TextEncodingExp::MakeUTF32(), ascii = TextEncodingExp::MakeAscii();
  for (const char* script : {"Arabic", "Chinese", "Emoji", "Hebrew", "Hindi", "Japanese", "Korean",
                             "Latin", "Russian"}) {
    SCOPED_TRACE(script);
    std::string base = dir + "/unicode_lipsum/" + script + "-Lipsum";
    std::string u8 = testing::ReadFile(base + ".utf8.txt");
    std::string u16 = testing::ReadFile(base + ".utf16.txt").substr(2);
    std::string u32 = testing::ReadFile(base + ".utf32.txt");
    ASSERT_FALSE(u8.empty() || u16.empty() || u32.empty());
    EXPECT_EQ(ConvertAll(utf8->GetToWideConverter(), u8), u16);
    EXPECT_EQ(ConvertAll(utf32->GetToWideConverter(), u32), u16);
    EXPECT_EQ(ConvertAll(utf16->GetToWideConverter(), u16, 999), u16);

    std::string back8 = ConvertAll(utf8->GetFromWideConverter(), u16);
    std::string back32 = ConvertAll(utf32->GetFromWideConverter(), u16);
    bool supplementary = std::string(script) == "Emoji";
    EXPECT_EQ(back8 == u8, !supplementary);
    EXPECT_EQ(back32 == u32, !supplementary);
    EXPECT_EQ(ConvertAll(utf8->GetToWideConverter(), back8), u16);
    EXPECT_EQ(ConvertAll(utf32->GetToWideConverter(), back32), u16);
    EXPECT_EQ(utf32->CharacterCount(back32.data(), Len(back32)), u16.size() / 2);

    // Characters: the UTF-8 count equals the UTF-32 file's; ASCII keeps one byte per unit.
    EXPECT_EQ(utf8->CharacterCount(u8.data(), Len(u8)), u32.size() / 4);
    std::string narrow = ConvertAll(ascii->GetFromWideConverter(), u16);
    EXPECT_EQ(narrow.size(), u16.size() / 2);
    EXPECT_EQ(ascii->Find('.', narrow.data(), Len(narrow)) >= 0, true);
  }
}

}  // namespace
}  // namespace kiv
