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
#include <string_view>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::U16;

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

TEST(Encodings, SharedInstancesAndRegistration) {
  TextEncoding utf8 = TextEncodingExp::MakeUTF8(), utf16 = TextEncodingExp::MakeUTF16();
  EXPECT_EQ(TextEncodingExp::MakeAppDefault(), utf16);
  EXPECT_EQ(TextEncodingExp::MakeSystemDefault(), utf8);
  EXPECT_EQ(utf16->GetToWideConverter(), utf16->GetFromWideConverter());
  EXPECT_NE(TextEncodingExp::MakeStandardUTF8(), utf8);  // registered by name: registry_test
}

TEST(Encodings, DataAtAndSearchByForm) {
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
  EXPECT_EQ(at(ascii, "abcde", 0, 1), "NoSuchElement");
  EXPECT_EQ(at(TextEncodingExp::MakeUTF16(), U16(u"abc"), 6, 2), "4/2");
  EXPECT_EQ(at(utf8, "abc", 3, 3), "Bounds 3");  // but not in UTF-8
  EXPECT_EQ(at(utf8, "", 0, 0), "0/0");
  EXPECT_EQ(at(utf8, "\xC3\xA9", 1, 1), "Bounds 1");  // a cut-off sequence is no character
  std::string u = "a\xC3\xA9z";
  unsigned length = Len(u);
  EXPECT_EQ(utf8->DataAt(u.data(), length, 2), u.data() + 3);  // the writable form
  EXPECT_EQ(length, 1u);

  // Search for characters: the string_search fuzz target. Here the 8-bit form's signed bytes and
  // the UTF-8 walk.
  std::string s = "x\xE9y\xE9";
  EXPECT_EQ(ascii->Find(0xE9, s.data(), Len(s)), -1);
  EXPECT_EQ(ascii->Find(0xFFFFFFE9u, s.data(), Len(s)), 1);  // the sign-extended byte
  EXPECT_EQ(ascii->FindLast('y', s.data(), 0, 3), 2);        // length is not consulted
  EXPECT_EQ(ascii->FindLast('y', s.data(), Len(s), 2), -1);

  const std::string t = "a\xC3\xA9z\xC3\xA9";
  EXPECT_EQ(utf8->FindLast(0xE9, t.data(), Len(t), 4), 3);
  EXPECT_EQ(utf8->FindLast(0xE9, t.data(), Len(t), 3), 1);
  EXPECT_EQ(utf8->Find(0xE9, "ab\xC3", 3), -1);  // a cut-off sequence ends the search
  EXPECT_THROW(utf8->Find(0xE9, "a\xFF\xC3\xA9", 4), CannotConvertException);
}

// Compare skips equal runs a word at a time; its result must stay that of comparing unit by unit
// (the first differing units' difference, else the byte lengths'), wherever the difference lies.
TEST(Encodings, CompareMatchesUnitByUnitAtEveryOffset) {
  std::mt19937 rng(7);
  const TextEncoding ascii = TextEncodingExp::MakeAscii();
  for (TextEncoding e : {ascii, TextEncodingExp::MakeUTF8(), TextEncodingExp::MakeUTF16(),
                         TextEncodingExp::MakeUTF32()}) {
    const unsigned unit = e->UnitBits() / 8;
    auto value = [&](const unsigned char* p) -> std::int64_t {
      if (e == ascii) return static_cast<signed char>(*p);
      std::uint32_t v = 0;
      std::memcpy(&v, p, unit);  // little-endian, as the targets are
      return v;
    };
    for (int round = 0; round < 2000; ++round) {
      std::vector<unsigned char> a(unit * (rng() % 40)), b;
      for (auto& byte : a) byte = static_cast<unsigned char>(rng() % 4 == 0 ? rng() : 'a');
      b.assign(a.begin(), a.begin() + static_cast<long>(unit * (rng() % (a.size() / unit + 1))));
      for (unsigned extra = rng() % 20 * unit; extra > 0; --extra) {
        b.push_back(static_cast<unsigned char>(rng() % 2 ? rng() : 'a'));
      }
      const auto la = static_cast<unsigned>(a.size()), lb = static_cast<unsigned>(b.size());
      unsigned i = 0;
      while (i < std::min(la, lb) && value(&a[i]) == value(&b[i])) i += unit;
      const std::int64_t expected =
          i < std::min(la, lb)
              ? std::clamp<std::int64_t>(value(&a[i]) - value(&b[i]), INT32_MIN, INT32_MAX)
              : static_cast<std::int64_t>(la) - lb;
      ASSERT_EQ(e->Compare(a.data(), la, b.data(), lb), expected) << unit << " " << round;
    }
  }
}

TEST(Encodings, CountsTrimAndTerminators) {
  TextEncoding ascii = TextEncodingExp::MakeAscii(), utf8 = TextEncodingExp::MakeUTF8(),
               utf16 = TextEncodingExp::MakeUTF16(), utf32 = TextEncodingExp::MakeUTF32();
  EXPECT_EQ(utf8->CharacterCount("a\xC3", 2), 1u);
  EXPECT_THROW(utf8->CharacterCount("a\xFF", 2), CannotConvertException);
  EXPECT_EQ(utf16->CharacterCount("abcde", 5), 2u);
  unsigned length = 99;
  EXPECT_EQ(utf8->TerminatedLength("a\xC3\xA9z", length), 3u);
  EXPECT_EQ(length, 4u);
  EXPECT_THROW(utf8->TerminatedLength("a\xC3", length), CannotConvertException);
  EXPECT_EQ(utf16->TerminatedLength(u"ab\0c", length), 2u);
  EXPECT_EQ(length, 4u);

  // The characters Trim leaves, and their bytes.
  auto trim = [](TextEncoding e, const std::string& s) {
    const void* data = s.data();
    unsigned len = Len(s);
    unsigned chars = e->Trim(data, len);
    return std::to_string(chars) + ":" + std::string(static_cast<const char*>(data), len);
  };
  EXPECT_EQ(trim(utf16, U16(u" a ")), "1:" + U16(u"a"));
  EXPECT_EQ(trim(ascii, " \xA0x "), "2:\xA0x");  // a byte above 127 is never white space
  EXPECT_EQ(trim(utf8, " \t\xC3\xA9 b \n"), "3:\xC3\xA9 b");
  EXPECT_EQ(trim(utf8, "  \xE2\x82"), "0:");  // cut off while skipping white space
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
  EXPECT_FALSE(utf16->IsTerminatorAt(buffer, 6));
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

// Every scalar value, as wide text, goes out as its shortest UTF-8 form and comes back.
TEST(StandardUtf8, EveryScalarValueRoundTrips) {
  TextEncoding standard = TextEncodingExp::MakeStandardUTF8();
  std::string wide, expected;
  const std::uint32_t count = 0x110000 - 0x800;  // the scalar values
  for (std::uint32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c < 0xE000) continue;
    unsigned short units[2];
    int n = UTF32toUTF16(units, units + 2, c);
    wide.append(reinterpret_cast<const char*>(units), 2 * n);
    expected += Utf8Of(c);
  }
  std::string encoded = ConvertAll(standard->GetFromWideConverter(), wide, 4093);
  ASSERT_EQ(encoded, expected);
  EXPECT_EQ(ConvertAll(standard->GetToWideConverter(), encoded, 4093), wide);
  EXPECT_EQ(standard->CharacterCount(encoded.data(), Len(encoded)), count);
  EXPECT_TRUE(TextEncodingExp::Validate(standard, encoded.data(), encoded.size()).valid);
  const std::int32_t emoji = 0x1F600 - 0x800;  // its index: the surrogates are left out
  EXPECT_EQ(standard->Find(0x1F600, encoded.data(), Len(encoded)), emoji);
  unsigned length = Len(encoded);
  EXPECT_EQ(standard->DataAt(static_cast<const void*>(encoded.data()), length, emoji),
            encoded.data() + expected.find(Utf8Of(0x1F600)));
  EXPECT_EQ(standard->CharacterCount(encoded.data() + Len(encoded) - length, length),
            count - emoji);
}

// Each class of malformed input, after two good characters: the decoder and the character walk
// refuse it, the validator names it at offset 2; the lenient encoding takes the encoded surrogate.
TEST(StandardUtf8, RefusesEachMalformedClassAndLoneSurrogates) {
  TextEncoding standard = TextEncodingExp::MakeStandardUTF8();
  // "\xE0\x41" is no cut-off sequence: invalid at once.
  const std::pair<const char*, const char*> kCases[] = {
      {"\x80", "stray continuation byte"},
      {"\xC0\xAF", "overlong form"},
      {"\xE0\x80\xAF", "overlong form"},
      {"\xF0\x8F\xBF\xBF", "overlong form"},
      {"\xED\xA0\x80", "encoded surrogate"},
      {"\xF4\x90\x80\x80", "value above U+10FFFF"},
      {"\xF5\x80\x80\x80", "value above U+10FFFF"},
      {"\xF8\x88\x80\x80\x80", "byte never used in UTF-8"},
      {"\xFC\x84\x80\x80\x80\x80", "byte never used in UTF-8"},
      {"\xFE", "byte never used in UTF-8"},
      {"\xE2\x28\xA1", "missing continuation byte"},
      {"\xE0\x41", "missing continuation byte"}};
  for (const auto& [bytes, reason] : kCases) {
    SCOPED_TRACE(bytes);
    std::string text = std::string("ab") + bytes + "z";
    EXPECT_THROW(ConvertAll(standard->GetToWideConverter(), text), CannotConvertException);
    EXPECT_THROW(standard->CharacterCount(text.data(), Len(text)), CannotConvertException);
    TextValidation v = TextEncodingExp::Validate(standard, text.data(), text.size());
    EXPECT_TRUE(!v.valid && !v.incomplete && v.offset == 2u);
    EXPECT_STREQ(v.reason, reason);
  }
  EXPECT_TRUE(TextEncodingExp::Validate(TextEncodingExp::MakeUTF8(), "ab\xED\xA0\x80", 5).valid);
  // Cut off at the end (the validator and the converter: the Validation test): the count stops.
  EXPECT_EQ(standard->CharacterCount("ab\xF0\x9F\x98", 5), 2u);

  // The encoder writes a pair as one four-byte sequence and refuses a surrogate without it.
  BlockConverter encoder = standard->GetFromWideConverter();
  DataConverter out = encoder->GetDataConverter();
  std::string pair = U16(u"a\xD83D\xDE00");
  EXPECT_EQ(ConvertAll(encoder, pair), "a\xF0\x9F\x98\x80");
  // One character through the standard encoder: result, sizes, and whether it wrote anything.
  auto one = [&](const std::string& in, unsigned room, bool eoi) -> std::string {
    char buffer[8] = {0x5A};
    unsigned out_size = room, in_size = Len(in);
    try {
      const int r = out->Convert(buffer, out_size, in.data(), in_size, eoi);
      static const char* const kResults[] = {"OK ", "Incomplete ", "TooSmall "};
      return kResults[r] + std::to_string(in_size) + "->" + std::to_string(out_size) +
             (buffer[0] == 0x5A ? "" : " written");
    } catch (const CannotConvertException&) {
      return "CannotConvert";
    }
  };
  EXPECT_EQ(one(pair.substr(2), 8, false), "OK 4->4 written");
  EXPECT_EQ(one(pair.substr(2), 3, false), "TooSmall 4->4");      // no room: the needs reported
  EXPECT_EQ(one(pair.substr(2, 2), 8, true), "Incomplete 0->0");  // the lead may still get its pair
  for (const char16_t* lone : {u"\xDE00\x61", u"\xD83D\x61", u"\xD83D\xD83D"}) {
    EXPECT_EQ(one(U16(lone), 8, false), "CannotConvert");
  }
}

TEST(StandardUtf8, StringsInTheEncoding) {
  TextEncoding standard = TextEncodingExp::MakeStandardUTF8();
  const std::string bytes =
      "Gr\xC3\xBC\xC3\x9F" + std::string("e \xF0\x9F\x98\x80 x\xF0\x90\x90\x80");
  String s(standard, bytes.data(), Len(bytes));
  EXPECT_EQ(s->Length(), 10u);
  EXPECT_EQ(s->CharAt(6), 0x1F600u);
  String wide = s->Encode(TextEncodingExp::MakeUTF16());
  EXPECT_EQ(wide->Length(), 12u);  // two characters as surrogate pairs
  EXPECT_TRUE(wide->Encode(standard) == s);
  // Case folds whole characters, those above U+FFFF included (U+10400 and U+10428).
  String upper = s->ToUpper();
  EXPECT_EQ(testing::Bytes(upper),
            "GR\xC3\x9C\xC3\x9F" + std::string("E \xF0\x9F\x98\x80 X\xF0\x90\x90\x80"));
#if defined(_WIN32)
  // System case tables (Wine's among them) may leave characters above U+FFFF unmapped.
  EXPECT_TRUE(upper->ToLower()->CharAt(9) == 0x10428u || upper->ToLower()->CharAt(9) == 0x10400u);
#else
  EXPECT_EQ(upper->ToLower()->CharAt(9), 0x10428u);
#endif
  EXPECT_TRUE(s->EqualsIgnoreCase(upper));
}

// Where the decoder stops, reading `text` as a stream does: its data converter one character at
// a time, asked again with end_of_input set after ResultInputIncomplete.
TextValidation DecoderStop(TextEncoding encoding, const std::string& text) {
  DataConverter dc = encoding->GetToWideConverter()->GetDataConverter();
  std::size_t offset = 0;
  char out[8];
  while (offset < text.size()) {
    int r = DataConverterItf::ResultInputIncomplete;
    unsigned in_size = 0;
    try {
      for (int eoi = 0; eoi < 2 && r == DataConverterItf::ResultInputIncomplete; ++eoi) {
        unsigned out_size = sizeof out;
        in_size = Len(text) - static_cast<unsigned>(offset);
        r = dc->Convert(out, out_size, text.data() + offset, in_size, eoi == 1);
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

// The validator stops exactly where each decoder stops, on text of pieces that trouble decoders.
TEST(Validation, AgreesWithTheDecodersOnTroublingText) {
  const TextEncoding kAll[] = {TextEncodingExp::MakeUTF8(), TextEncodingExp::MakeStandardUTF8(),
                               TextEncodingExp::MakeUTF16(), TextEncodingExp::MakeUTF32(),
                               TextEncodingExp::MakeAscii()};
  std::mt19937 rng(20240612);
  const char* kValid[] = {"a", "hello, ", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80"};
  const char* kTroubling[] = {"\xED\xA0\x80",     "\xED\x9F\xBF",     "\xEE\x80\x80",
                              "\xF4\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xC0\xAF",
                              "\xE0\x9F\xBF",     "\xF0\x8F\xBF\xBF", "\xE2\x82",
                              "\xF0\x9F\x98",     "\xC2\xC2",         "\x80\xFE"};
  const char* kStray[] = {"\xF8\x88\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80", "\x80", "\xFE",
                          "\xC2"};
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    const int pieces = static_cast<int>(rng() % 60);
    const bool clean = round % 3 == 0;  // valid pieces mostly, a fault late in the text
    for (int i = 0; i < pieces; ++i) {
      const std::size_t k = rng() % (clean && i < pieces - 1 ? 5 : 22);
      text += k < 5 ? kValid[k] : k < 17 ? kTroubling[k - 5] : kStray[k - 17];
    }
    if (round % 7 == 0) {  // plain random bytes
      text.clear();
      for (int n = static_cast<int>(rng() % 100); n > 0; --n) text += static_cast<char>(rng());
    }
    for (TextEncoding e : kAll) ExpectValidatorAgrees(e, text);
  }
}

// One text per script in UTF-8, UTF-16 (after a byte order mark) and UTF-32: each decodes to the
// UTF-16 text, which encodes back to the UTF-8 text, and the validator stops where each decoder
// stops, also on texts cut or changed.
TEST(Validation, CorpusRoundTripsAndAgreement) {
  std::string dir = testing::CorpusDir();
  if (dir.empty()) GTEST_SKIP() << "corpus folder ../shared/corpus not found";
  const TextEncoding kUtf8[] = {TextEncodingExp::MakeUTF8(), TextEncodingExp::MakeStandardUTF8()};
  std::mt19937 rng(20240613);
  for (const char* script : {"Arabic", "Chinese", "Emoji", "Hebrew", "Hindi", "Japanese", "Korean",
                             "Latin", "Russian"}) {
    SCOPED_TRACE(script);
    std::string base = dir + "/unicode_lipsum/" + script + "-Lipsum";
    const std::string u8 = testing::ReadFile(base + ".utf8.txt");
    const std::string u16 = testing::ReadFile(base + ".utf16.txt");
    const std::string u32 = testing::ReadFile(base + ".utf32.txt");
    ASSERT_FALSE(u8.empty() || u16.empty() || u32.empty());
    const std::string wide = u16.substr(2);
    EXPECT_EQ(ConvertAll(kUtf8[0]->GetToWideConverter(), u8), wide);
    EXPECT_EQ(ConvertAll(TextEncodingExp::MakeUTF32()->GetToWideConverter(), u32), wide);
    EXPECT_EQ(kUtf8[0]->CharacterCount(u8.data(), Len(u8)), u32.size() / 4);
    EXPECT_EQ(ConvertAll(kUtf8[1]->GetFromWideConverter(), wide), u8);
    if (std::string(script) != "Emoji") {  // the lenient form writes a pair as two sequences
      EXPECT_EQ(ConvertAll(kUtf8[0]->GetFromWideConverter(), wide), u8);
    }
    const std::pair<std::string, std::vector<TextEncoding>> forms[] = {
        {u8, {kUtf8[0], kUtf8[1], TextEncodingExp::MakeAscii()}},
        {u16, {TextEncodingExp::MakeUTF16()}},
        {u32, {TextEncodingExp::MakeUTF32()}}};
    for (const auto& [text, encodings] : forms) {
      for (TextEncoding e : encodings) {
        ExpectValidatorAgrees(e, text);
        ExpectValidatorAgrees(e, text.substr(0, text.size() - 1));
        for (int change = 0; change < 6; ++change) {
          std::string changed = text;
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
