#include <gtest/gtest.h>
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>

#include <kiv/string.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
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
  EXPECT_EQ(ascii->UnitBits() + utf8->UnitBits() + utf16->UnitBits(), 8u + 8u + 16u);
  EXPECT_EQ(utf32->UnitBits(), 32u);
  for (TextEncoding e : {ascii, utf8, utf16, utf32}) {
    EXPECT_TRUE(e->GetFlag() && e->GetToWideConverter() && e->GetFromWideConverter() &&
                e->GetToLowerConverter() && e->GetToUpperConverter());
  }
  EXPECT_EQ(utf16->GetToWideConverter(), utf16->GetFromWideConverter());
  EXPECT_NE(utf16->GetToWideConverter(), BlockCopyConverterExp::Make());
}

TEST(Encodings, DataAtBoundsDifferBetweenFixedAndUtf8) {
  TextEncoding ascii = TextEncodingExp::MakeAscii(), utf8 = TextEncodingExp::MakeUTF8();
  // Where DataAt points and the length it leaves, or what it throws.
  auto at = [](TextEncoding e, const std::string& text, unsigned length, int index) {
    try {
      const void* p = e->DataAt(static_cast<const void*>(text.data()), length, index);
      return std::to_string(static_cast<const char*>(p) - text.data()) + "/" +
             std::to_string(length);
    } catch (const BoundsException& x) {
      return "Bounds " + std::to_string(x.What());
    } catch (const NoSuchElementException&) {
      return std::string("NoSuchElement");
    }
  };
  EXPECT_EQ(at(ascii, "abcde", 5, 5), "5/0");  // one past the last character is allowed
  EXPECT_EQ(at(ascii, "abcde", 5, 6), "Bounds 6");
  EXPECT_EQ(at(ascii, "abcde", 5, -1), "Bounds -1");
  EXPECT_EQ(at(ascii, "abcde", 0, 1), "NoSuchElement");
  EXPECT_EQ(at(TextEncodingExp::MakeUTF16(), U16({'a', 'b', 'c'}), 6, 2), "4/2");
  EXPECT_EQ(at(utf8, "abc", 3, 3), "Bounds 3");  // but not in UTF-8
  EXPECT_EQ(at(utf8, "abc", 3, 7), "Bounds 7");
  EXPECT_EQ(at(utf8, "", 0, 0), "0/0");
  EXPECT_EQ(at(utf8, "", 0, 1), "NoSuchElement");
  EXPECT_EQ(at(utf8, "\xC3\xA9", 1, 1), "Bounds 1");  // a cut-off sequence is no character
  std::string u = "a\xC3\xA9z";
  unsigned length = Len(u);
  EXPECT_EQ(utf8->DataAt(u.data(), length, 2), u.data() + 3);  // the writable form
  EXPECT_EQ(length, 1u);
}

// Compare skips equal runs a word at a time; its result must stay that of comparing unit by unit
// (the first differing units' difference, else the byte lengths'), wherever the difference lies.
TEST(Encodings, CompareMatchesUnitByUnitAtEveryOffset) {
  struct Case {
    TextEncoding encoding;
    unsigned unit;
    std::int64_t (*value)(const unsigned char*);
  };
  const Case cases[] = {
      {TextEncodingExp::MakeAscii(), 1,
       [](const unsigned char* p) -> std::int64_t { return static_cast<signed char>(*p); }},
      {TextEncodingExp::MakeUTF8(), 1, [](const unsigned char* p) -> std::int64_t { return *p; }},
      {TextEncodingExp::MakeUTF16(), 2,
       [](const unsigned char* p) -> std::int64_t {
         std::uint16_t u;
         std::memcpy(&u, p, 2);
         return u;
       }},
      {TextEncodingExp::MakeUTF32(), 4, [](const unsigned char* p) -> std::int64_t {
         std::uint32_t u;
         std::memcpy(&u, p, 4);
         return u;
       }}};
  std::mt19937 rng(7);
  for (const Case& c : cases) {
    for (int round = 0; round < 2000; ++round) {
      std::vector<unsigned char> a(c.unit * (rng() % 40)), b;
      for (auto& byte : a) byte = static_cast<unsigned char>(rng() % 4 == 0 ? rng() : 'a');
      b.assign(a.begin(),
               a.begin() + static_cast<long>(c.unit * (rng() % (a.size() / c.unit + 1))));
      for (unsigned extra = rng() % 20 * c.unit; extra > 0; --extra) {
        b.push_back(static_cast<unsigned char>(rng() % 2 ? rng() : 'a'));
      }
      const auto la = static_cast<unsigned>(a.size()), lb = static_cast<unsigned>(b.size());
      std::int64_t expected = static_cast<std::int64_t>(la) - lb;
      for (unsigned i = 0; i < std::min(la, lb); i += c.unit) {
        const std::int64_t d = c.value(&a[i]) - c.value(&b[i]);
        if (d != 0) {
          expected = std::clamp<std::int64_t>(d, INT32_MIN, INT32_MAX);
          break;
        }
      }
      ASSERT_EQ(c.encoding->Compare(a.data(), la, b.data(), lb), expected)
          << c.unit << " " << round;
    }
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

  // The characters Trim leaves, and their bytes.
  auto trim = [](TextEncoding e, const std::string& s) {
    const void* data = s.data();
    unsigned len = Len(s);
    unsigned chars = e->Trim(data, len);
    return std::to_string(chars) + ":" + std::string(static_cast<const char*>(data), len);
  };
  EXPECT_EQ(trim(utf16, U16({' ', 'a', ' '})), "1:" + U16({'a'}));
  EXPECT_EQ(trim(ascii, "   "), "0:");
  EXPECT_EQ(trim(ascii, " \xA0x "), "2:\xA0x");  // a byte above 127 is never white space
  EXPECT_EQ(trim(utf8, " \t\xC3\xA9 b \n"), "3:\xC3\xA9 b");
  EXPECT_EQ(trim(utf8, "  \xE2\x82"), "0:");  // cut off while skipping white space
  EXPECT_EQ(trim(utf8, "x \xE2\x82"), "1:x");
  EXPECT_THROW(trim(utf8, " \xC0\x80"), CannotConvertException);
  const std::uint32_t values[] = {' ', 0x1F600, ' '};
  const char* bytes = reinterpret_cast<const char*>(values);
  EXPECT_EQ(trim(utf32, std::string(bytes, sizeof values)), "1:" + std::string(bytes + 4, 4));

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
// UTF-16 files start with), and wide text goes back out to the UTF-8 file. Every conversion of
// these encodings, character by character, is held to a model by the converters fuzz target.
TEST(Encodings, RoundTripsOverCorpus) {
  std::string dir = testing::CorpusDir();
  if (dir.empty()) GTEST_SKIP() << "corpus folder ../shared/corpus not found";
  TextEncoding utf8 = TextEncodingExp::MakeUTF8(), utf16 = TextEncodingExp::MakeUTF16(),
               utf32 = TextEncodingExp::MakeUTF32();
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
    EXPECT_EQ(utf8->CharacterCount(u8.data(), Len(u8)), u32.size() / 4);
    // Lenient UTF-8 writes a surrogate pair as two encoded surrogates (only the Emoji text has
    // pairs) and reads them back; standard UTF-8 writes one sequence, as the file has it.
    std::string back8 = ConvertAll(utf8->GetFromWideConverter(), u16);
    EXPECT_EQ(back8 == u8, std::string(script) != "Emoji");
    EXPECT_EQ(ConvertAll(utf8->GetToWideConverter(), back8), u16);
    EXPECT_EQ(ConvertAll(TextEncodingExp::MakeStandardUTF8()->GetFromWideConverter(), u16), u8);
  }
}

// `c` in its shortest UTF-8 form (up to four bytes).
std::string Utf8Of(std::uint32_t c) {
  if (c < 0x80) return std::string(1, static_cast<char>(c));
  const int n = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
  std::string s(n, '\0');
  for (int i = n - 1; i > 0; --i, c >>= 6) s[i] = static_cast<char>(0x80 | (c & 0x3F));
  s[0] = static_cast<char>((0xF00 >> n) | c);
  return s;
}

TEST(StandardUtf8, RegisteredBesideTheLenientOne) {
  TextEncoding standard = TextEncodingExp::MakeStandardUTF8();
  EXPECT_EQ(TextEncodingExp::MakeStandardUTF8(), standard);
  EXPECT_NE(standard, TextEncodingExp::MakeUTF8());
  EXPECT_EQ(TextEncodingExp::Make(testing::Wide("utf-8-standard")), standard);
  EXPECT_EQ(BlockConverterExp::Make(testing::Wide("utf-8-standard->wchar_t")),
            standard->GetToWideConverter());
  EXPECT_EQ(BlockConverterExp::Make(testing::Wide("wchar_t->utf-8-standard")),
            standard->GetFromWideConverter());
  EXPECT_EQ(DataConverterExp::Make(testing::Wide("wchar_t->utf-8-standard")),
            standard->GetFromWideConverter()->GetDataConverter());
  EXPECT_EQ(standard->UnitBits(), 8u);
  EXPECT_TRUE(standard->GetFlag());
}

// Every scalar value, as wide text, goes out as its shortest UTF-8 form and comes back; the
// encoding counts, finds and indexes the characters its converters produce.
TEST(StandardUtf8, EveryScalarValueRoundTrips) {
  TextEncoding standard = TextEncodingExp::MakeStandardUTF8();
  std::string wide, expected;
  std::uint32_t count = 0;
  for (std::uint32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c < 0xE000) continue;
    unsigned short units[2];
    int n = UTF32toUTF16(units, units + 2, c);
    wide.append(reinterpret_cast<const char*>(units), 2 * n);
    expected += Utf8Of(c);
    ++count;
  }
  std::string encoded = ConvertAll(standard->GetFromWideConverter(), wide, 4093);
  ASSERT_EQ(encoded, expected);
  EXPECT_EQ(ConvertAll(standard->GetToWideConverter(), encoded, 4093), wide);
  EXPECT_EQ(standard->CharacterCount(encoded.data(), Len(encoded)), count);
  EXPECT_TRUE(TextEncodingExp::Validate(standard, encoded.data(), encoded.size()).valid);
  const std::size_t at_emoji = expected.find(Utf8Of(0x1F600));
  EXPECT_EQ(standard->Find(0x1F600, encoded.data(), Len(encoded)),
            static_cast<std::int32_t>(0x1F600 - 0x800));
  unsigned length = Len(encoded);
  EXPECT_EQ(standard->DataAt(static_cast<const void*>(encoded.data()), length, 0x1F600 - 0x800),
            encoded.data() + at_emoji);
  EXPECT_EQ(standard->CharacterCount(encoded.data() + at_emoji, length), count - (0x1F600 - 0x800));
}

// The lenient encoder writes a pair as two encoded surrogates; the standard one writes one
// four-byte sequence and refuses a surrogate without its pair.
TEST(StandardUtf8, SurrogatesArePairedOrRefused) {
  DataConverter out =
      TextEncodingExp::MakeStandardUTF8()->GetFromWideConverter()->GetDataConverter();
  BlockConverter lenient = TextEncodingExp::MakeUTF8()->GetFromWideConverter();
  std::string pair = U16({'a', 0xD83D, 0xDE00});
  EXPECT_EQ(ConvertAll(TextEncodingExp::MakeStandardUTF8()->GetFromWideConverter(), pair),
            "a\xF0\x9F\x98\x80");
  EXPECT_EQ(ConvertAll(lenient, pair), "a\xED\xA0\xBD\xED\xB8\x80");

  // One character through the standard encoder: result, sizes, and whether it wrote anything.
  auto one = [&](const std::string& in, unsigned room, bool eoi) -> std::string {
    char buffer[8];
    std::memset(buffer, 0x5A, sizeof buffer);
    unsigned out_size = room, in_size = Len(in);
    try {
      const int r = out->Convert(buffer, out_size, in.data(), in_size, eoi);
      return (r == DataConverterItf::ResultOK               ? "OK "
              : r == DataConverterItf::ResultOutputTooSmall ? "TooSmall "
                                                            : "Incomplete ") +
             std::to_string(in_size) + "->" + std::to_string(out_size) +
             (buffer[0] == 0x5A ? "" : " written");
    } catch (const CannotConvertException&) {
      return "CannotConvert";
    }
  };
  EXPECT_EQ(one(pair.substr(2), 8, false), "OK 4->4 written");
  EXPECT_EQ(one(pair.substr(2), 3, false), "TooSmall 4->4");      // no room: the needs reported
  EXPECT_EQ(one(pair.substr(2, 2), 8, true), "Incomplete 0->0");  // the lead may still get its pair
  for (const std::string& lone : {U16({0xDE00, 'a'}), U16({0xD83D, 'a'}), U16({0xD83D, 0xD83D})}) {
    EXPECT_EQ(one(lone, 8, false), "CannotConvert");
  }
}

// Each class of malformed input, after two good characters: the decoder and the character walk
// refuse it, the validator names it at offset 2; the lenient encoding takes the encoded surrogate.
TEST(StandardUtf8, RefusesEachMalformedClass) {
  TextEncoding standard = TextEncodingExp::MakeStandardUTF8();
  struct Case {
    const char* bytes;
    const char* reason;
  };
  const Case kCases[] = {
      {"\x80", "stray continuation byte"},
      {"\xC0\xAF", "overlong form"},
      {"\xE0\x80\xAF", "overlong form"},
      {"\xF0\x8F\xBF\xBF", "overlong form"},
      {"\xED\xA0\x80", "encoded surrogate"},
      {"\xED\xBF\xBF", "encoded surrogate"},
      {"\xF4\x90\x80\x80", "value above U+10FFFF"},
      {"\xF5\x80\x80\x80", "value above U+10FFFF"},
      {"\xF8\x88\x80\x80\x80", "byte never used in UTF-8"},
      {"\xFC\x84\x80\x80\x80\x80", "byte never used in UTF-8"},
      {"\xFE", "byte never used in UTF-8"},
      {"\xE2\x28\xA1", "missing continuation byte"},
      {"\xE0\x41", "missing continuation byte"},  // not a cut-off sequence: invalid at once
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.bytes);
    std::string text = std::string("ab") + c.bytes + "z";
    EXPECT_THROW(ConvertAll(standard->GetToWideConverter(), text), CannotConvertException);
    EXPECT_THROW(standard->CharacterCount(text.data(), Len(text)), CannotConvertException);
    TextValidation v = TextEncodingExp::Validate(standard, text.data(), text.size());
    EXPECT_TRUE(!v.valid && !v.incomplete && v.offset == 2u);
    EXPECT_STREQ(v.reason, c.reason);
  }
  std::string surrogate = "ab\xED\xA0\x80";
  EXPECT_TRUE(TextEncodingExp::Validate(TextEncodingExp::MakeUTF8(), surrogate.data(), 5).valid);
  // Cut off at the end: incomplete for the converter, the count stops before it.
  std::string cut = "ab\xF0\x9F\x98";
  unsigned out_size = 16, out_pos = 0, in_pos = 0, in_size = 3;
  char buffer[16];
  EXPECT_EQ(standard->GetToWideConverter()->Convert(buffer, out_size, out_pos, cut.data() + 2,
                                                    in_size, in_pos, true),
            DataConverterItf::ResultInputIncomplete);
  EXPECT_EQ(standard->CharacterCount(cut.data(), Len(cut)), 2u);
  TextValidation v = TextEncodingExp::Validate(standard, cut.data(), cut.size());
  EXPECT_TRUE(!v.valid && v.incomplete && v.offset == 2);
}

TEST(StandardUtf8, StringsInTheEncoding) {
  TextEncoding standard = TextEncodingExp::MakeStandardUTF8();
  const std::string bytes =
      "  Gr\xC3\xBC\xC3\x9F"
      "e \xF0\x9F\x98\x80 x\xF0\x90\x90\x80 ";
  String s(standard, bytes.data(), Len(bytes));
  EXPECT_EQ(s->Length(), 13u);
  EXPECT_EQ(s->CharAt(8), 0x1F600u);
  EXPECT_EQ(s->IndexOf(0x1F600u), 8);
  EXPECT_EQ(s->LastIndexOf(' '), 12);
  String wide = s->Encode(TextEncodingExp::MakeUTF16());
  EXPECT_EQ(wide->Length(), 15u);  // two characters as surrogate pairs
  String back = wide->Encode(standard);
  EXPECT_EQ(std::string(static_cast<const char*>(back->GetData()), back->ByteLength()), bytes);
  EXPECT_TRUE(back == s);
  String trimmed = s->Trim();
  EXPECT_EQ(trimmed->Length(), 10u);
  EXPECT_EQ(trimmed->Substring(6, 1)->CharAt(0), 0x1F600u);
  // Case folds whole characters, those above U+FFFF included (U+10400 and U+10428).
  String upper = trimmed->ToUpper();
  EXPECT_EQ(std::string(static_cast<const char*>(upper->GetData()), upper->ByteLength()),
            "GR\xC3\x9C\xC3\x9F"
            "E \xF0\x9F\x98\x80 X\xF0\x90\x90\x80");
#if defined(_WIN32)
  // The system's case tables (Wine's among them) may leave characters above U+FFFF unmapped;
  // the library hands them over as surrogate pairs and takes what comes back.
  EXPECT_TRUE(upper->ToLower()->CharAt(9) == 0x10428u || upper->ToLower()->CharAt(9) == 0x10400u);
#else
  EXPECT_EQ(upper->ToLower()->CharAt(9), 0x10428u);
#endif
  EXPECT_TRUE(trimmed->EqualsIgnoreCase(upper));
  EXPECT_TRUE(s->Contains(String(standard, "\xF0\x9F\x98\x80", 4)));
}

// Where the decoder stops, reading `text` as a stream does: its data converter one character at
// a time, asked again with end_of_input set after ResultInputIncomplete.
TextValidation DecoderStop(TextEncoding encoding, const std::string& text) {
  DataConverter dc = encoding->GetToWideConverter()->GetDataConverter();
  std::size_t offset = 0;
  char out[8];
  while (offset < text.size()) {
    unsigned out_size = sizeof out, in_size = Len(text) - static_cast<unsigned>(offset);
    int r;
    try {
      r = dc->Convert(out, out_size, text.data() + offset, in_size, false);
      if (r == DataConverterItf::ResultInputIncomplete) {
        out_size = sizeof out, in_size = Len(text) - static_cast<unsigned>(offset);
        r = dc->Convert(out, out_size, text.data() + offset, in_size, true);
      }
    } catch (const CannotConvertException&) {
      return {false, false, offset, ""};
    }
    if (r == DataConverterItf::ResultInputIncomplete) return {false, true, offset, ""};
    offset += in_size;
  }
  return {true, false, text.size(), ""};
}

void ExpectValidatorAgrees(TextEncoding encoding, const std::string& text) {
  TextValidation expected = DecoderStop(encoding, text);
  TextValidation v = TextEncodingExp::Validate(encoding, text.data(), text.size());
  ASSERT_EQ(v.valid, expected.valid) << "bytes " << text.size();
  ASSERT_EQ(v.incomplete, expected.incomplete) << "at " << v.offset;
  ASSERT_EQ(v.offset, expected.offset) << v.reason;
  ASSERT_EQ(*v.reason == '\0', v.valid);
}

// The validator stops exactly where each decoder stops: on the corpora as they are and with bytes
// changed at random places, and on random text built from pieces that trouble decoders.
TEST(Validation, AgreesWithTheDecoders) {
  const TextEncoding kUtf8[] = {TextEncodingExp::MakeUTF8(), TextEncodingExp::MakeStandardUTF8()};
  const TextEncoding kAll[] = {kUtf8[0], kUtf8[1], TextEncodingExp::MakeUTF16(),
                               TextEncodingExp::MakeUTF32(), TextEncodingExp::MakeAscii()};
  std::mt19937 rng(20240612);
  const char* kPieces[] = {"a",
                           "hello, ",
                           "\xC3\xA9",
                           "\xE4\xB8\xAD",
                           "\xF0\x9F\x98\x80",
                           "\xED\xA0\x80",
                           "\xED\x9F\xBF",
                           "\xEE\x80\x80",
                           "\xF4\x8F\xBF\xBF",
                           "\xF4\x90\x80\x80",
                           "\xC0\xAF",
                           "\xE0\x9F\xBF",
                           "\xF0\x8F\xBF\xBF",
                           "\xF8\x88\x80\x80\x80",
                           "\x80",
                           "\xFE",
                           "\xE2\x82",
                           "\xF0\x9F\x98",
                           "\xC2",
                           "\xFC\x84\x80\x80\x80\x80"};
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    const int pieces = static_cast<int>(rng() % 60);
    const bool clean = round % 3 == 0;  // valid pieces mostly, a fault late in the text
    for (int i = 0; i < pieces; ++i) {
      std::size_t k = rng() % (clean ? 5 : std::size(kPieces));
      if (clean && i == pieces - 1) k = rng() % std::size(kPieces);
      text += kPieces[k];
    }
    if (round % 7 == 0) {  // plain random bytes
      text.clear();
      for (int n = static_cast<int>(rng() % 100); n > 0; --n) text += static_cast<char>(rng());
    }
    for (TextEncoding e : kAll) ExpectValidatorAgrees(e, text);
  }
  std::string dir = testing::CorpusDir();
  if (dir.empty()) GTEST_SKIP() << "corpus folder ../shared/corpus not found";
  for (const char* script : {"Arabic", "Chinese", "Emoji", "Hebrew", "Hindi", "Japanese", "Korean",
                             "Latin", "Russian"}) {
    SCOPED_TRACE(script);
    std::string base = dir + "/unicode_lipsum/" + script + "-Lipsum";
    struct Form {
      std::string text;
      std::vector<TextEncoding> encodings;
    };
    std::vector<Form> forms = {
        {testing::ReadFile(base + ".utf8.txt"), {kUtf8[0], kUtf8[1], kAll[4]}},
        {testing::ReadFile(base + ".utf16.txt"), {kAll[2]}},
        {testing::ReadFile(base + ".utf32.txt"), {kAll[3]}}};
    for (const Form& form : forms) {
      ASSERT_FALSE(form.text.empty());
      for (TextEncoding e : form.encodings) {
        ExpectValidatorAgrees(e, form.text);
        ExpectValidatorAgrees(e, form.text.substr(0, form.text.size() - 1));
        for (int change = 0; change < 6; ++change) {
          std::string changed = form.text;
          changed[rng() % changed.size()] = static_cast<char>(rng());
          changed[rng() % changed.size()] = static_cast<char>(0x80 | rng());
          ExpectValidatorAgrees(e, changed);
        }
      }
    }
  }
  std::string stress = testing::ReadFile(dir + "/utf8_stress/UTF-8-test.txt");
  for (TextEncoding e : kUtf8) ExpectValidatorAgrees(e, stress);
}

}  // namespace
}  // namespace kiv
