#include <gtest/gtest.h>
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using DC = DataConverterItf;

template <class T>
std::string Units(std::initializer_list<std::uint32_t> values) {
  std::string s;
  for (std::uint32_t v : values) {
    const auto unit = static_cast<T>(v);
    s.append(reinterpret_cast<const char*>(&unit), sizeof unit);
  }
  return s;
}
std::string U16(std::initializer_list<std::uint32_t> units) { return Units<std::uint16_t>(units); }
std::string U32(std::initializer_list<std::uint32_t> values) {
  return Units<std::uint32_t>(values);
}

// One Convert: result, sizes, positions (block calls), exception and the whole 0xA5-filled buffer.
struct Outcome {
  int result = -1;
  unsigned out_size = 0, in_size = 0, out_pos = 0, in_pos = 0;
  std::string thrown{};
  std::string buffer;
  bool operator==(const Outcome&) const = default;
};

// "OK 2->4 @9/15": result, input and output sizes, then the positions after a block call (which
// start at 7 and 11); or the exception thrown.
std::string Brief(const Outcome& o) {
  if (!o.thrown.empty()) return o.thrown;
  static const char* const kResults[] = {"OK", "Incomplete", "TooSmall"};
  const std::string brief =
      kResults[o.result] + (" " + std::to_string(o.in_size)) + "->" + std::to_string(o.out_size);
  return o.in_pos == 0 ? brief
                       : brief + " @" + std::to_string(o.in_pos) + "/" + std::to_string(o.out_pos);
}

template <class F>
Outcome Run(unsigned room, unsigned in_size, F convert) {
  Outcome o{.out_size = room, .in_size = in_size, .buffer = std::string(room, '\xA5')};
  try {
    o.result = convert(o);
  } catch (const CannotConvertException&) {
    o.thrown = "CannotConvert";
  } catch (const InternalError& e) {
    o.thrown = "InternalError:" + testing::Utf8(e.What());
  }
  return o;
}

Outcome Block(BlockConverter c, const std::string& in, unsigned room, bool eoi = false,
              bool null_out = false) {
  return Run(room, static_cast<unsigned>(in.size()), [&](Outcome& o) {
    o.out_pos = 11;
    o.in_pos = 7;
    return c->Convert(null_out ? nullptr : o.buffer.data(), o.out_size, o.out_pos, in.data(),
                      o.in_size, o.in_pos, eoi);
  });
}

// One character through a data converter.
Outcome ConvertOne(DataConverter dc, const std::string& in, unsigned room = 16) {
  return Run(room, static_cast<unsigned>(in.size()), [&](Outcome& o) {
    return dc->Convert(o.buffer.data(), o.out_size, in.data(), o.in_size, false);
  });
}
std::string Output(const Outcome& o) { return o.buffer.substr(0, o.out_size); }

// All of `in` converted in one call with room to spare.
std::string ConvertAll(BlockConverter c, const std::string& in) {
  return Output(Block(c, in, 4 * static_cast<unsigned>(in.size()) + 8));
}

// A plain UTF-8 encoder of `value` in exactly `length` bytes (overlong when longer than needed).
std::string EncodeUtf8(std::uint32_t value, int length) {
  static const unsigned char kLead[] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  if (length == 1) return std::string(1, static_cast<char>(value));
  std::string s(length, '\0');
  for (int i = length - 1; i > 0; --i, value >>= 6) s[i] = static_cast<char>(0x80 | (value & 0x3F));
  s[0] = static_cast<char>(kLead[length] | value);
  return s;
}
int ShortestLength(std::uint32_t v) {
  return v < 0x80 ? 1 : v < 0x800 ? 2 : v < 0x10000 ? 3 : v < 0x200000 ? 4 : v < 0x4000000 ? 5 : 6;
}

// Block conversions of every built-in encoding to and from wide text are held to a model by the
// converters fuzz target; these tests keep the data faces, the other converters and the quirks.
TEST(UnitConverters, AsciiCaseAndCopy) {
  TextEncoding ascii = TextEncodingExp::MakeAscii();
  BlockConverter narrow = ascii->GetFromWideConverter();
  EXPECT_EQ(Block(ascii->GetToWideConverter(), "A\xE9", 4).buffer, U16({0x41, 0xFFE9}));
  EXPECT_EQ(Output(Block(narrow, U16({0x7E, 0x7F, 0xE9, 0x20AC, 0x41}), 16)), "~...A");
  DataConverter dc = narrow->GetDataConverter();
  EXPECT_EQ(Brief(ConvertOne(dc, "x")), "Incomplete 0->0");
  EXPECT_EQ(Brief(ConvertOne(dc, U16({0x41}), 0)), "TooSmall 2->1");
  unsigned out_size = 9, in_size = 9;
  EXPECT_EQ(dc->Convert(nullptr, out_size, nullptr, in_size, false), DC::ResultOK);
  EXPECT_EQ(out_size + in_size, 0u);

  EXPECT_EQ(ConvertAll(TextEncodingExp::MakeAscii()->GetToUpperConverter(), "aZ1\xE9"), "AZ1\xE9");
  BlockConverter upper16 = TextEncodingExp::MakeUTF16()->GetToUpperConverter();
  EXPECT_EQ(ConvertAll(upper16, U16({'a', 'Z', 0xD83D, 0xDE00})), U16({'A', 'Z', 0xD83D, 0xDE00}));
  EXPECT_EQ(Block(upper16, U16({'a', 'b'}) + "x", 16).in_size, 4u);  // the odd byte stays behind
  EXPECT_EQ(Block(upper16, "x", 16).result, DC::ResultInputIncomplete);

  BlockConverter lower32 = TextEncodingExp::MakeUTF32()->GetToLowerConverter();
  EXPECT_EQ(ConvertAll(lower32, U32({'A', 0xD800, 0x1F600, 0x110041})),
            U32({'a', 0xD800, 0x1F600, 0x110041}));
  EXPECT_EQ(Brief(ConvertOne(lower32->GetDataConverter(), U32({'A'}), 3)), "TooSmall 4->4");
  EXPECT_EQ(ConvertOne(lower32->GetDataConverter(), "abc").result, DC::ResultInputIncomplete);

  // Copies of N-byte blocks round sizes with the mask 0 - N, a round-down only for N a power of 2.
  EXPECT_EQ(BlockCopyConverterExp::Make(1), BlockCopyConverterExp::Make());
  const std::string ten = "0123456789";
  struct Case {
    unsigned block, in, room;
    const char* brief;
  } const kCases[] = {
      {4, 10, 64, "OK 8->8 @15/19"},      {3, 7, 64, "OK 5->5 @12/16"},
      {4, 10, 7, "OK 4->4 @11/15"},       {4, 10, 3, "TooSmall 8->8 @7/11"},
      {4, 3, 8, "Incomplete 0->0 @7/11"}, {0, 10, 8, "OK 0->0 @7/11"},
  };
  for (const Case& c : kCases) {
    Outcome o = Block(BlockCopyConverterExp::Make(c.block), ten.substr(0, c.in), c.room);
    EXPECT_EQ(Brief(o), c.brief) << c.block << " " << c.in << " " << c.room;
    EXPECT_TRUE(o.result != DC::ResultOK || Output(o) == ten.substr(0, o.out_size));
  }

  DataConverter copy2 = BlockCopyConverterExp::Make(2)->GetDataConverter();
  EXPECT_EQ(Brief(ConvertOne(copy2, "abc", 1)), "TooSmall 2->2");
  EXPECT_EQ(Output(ConvertOne(copy2, "abc")), "ab");
  EXPECT_EQ(ConvertOne(copy2, "a").result, DC::ResultInputIncomplete);
}

// A data converter that needs end_of_input to finish its last character, to watch the generic
// block converter's second try.
struct PairConverter : DataConverterItf {
  BufferResult ComputeSizes(unsigned& out_size, const void*, unsigned& in_size, bool eoi) override {
    if (in_size == 0) return out_size = 0, ResultOK;
    if (in_size < 2 && !eoi) return in_size = out_size = 0, ResultInputIncomplete;
    return in_size = std::min(in_size, 2u), out_size = 1, ResultOK;
  }
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool eoi) override {
    const unsigned room = out ? out_size : 0;
    const BufferResult r = ComputeSizes(out_size, in, in_size, eoi);
    if (r != ResultOK || in_size == 0) return r;
    if (room < 1) return ResultOutputTooSmall;
    return *static_cast<char*>(out) = *static_cast<const char*>(in), ResultOK;
  }
};

TEST(GenericBlockConverter, TabStopsRetryAtEndAndPartialRuns) {
  BlockConverter tabs = BlockConverterExp::Make(AsciiTab2SpaceDataConverterExp::Make(8), 1.0f);
  EXPECT_EQ(ConvertAll(tabs, "ab\tc\n\tx\r\ty"), "ab      c\n        x\r      y");
  DataConverter dc = AsciiTab2SpaceDataConverterExp::Make(4);
  EXPECT_EQ(Output(ConvertOne(dc, "a")), "a");
  // Needs 3 spaces now; sizing does not move the column.
  EXPECT_EQ(Brief(ConvertOne(dc, "\t", 2)), "TooSmall 1->3");
  EXPECT_EQ(Output(ConvertOne(dc, "\t")), "   ");
  // The generic ComputeSizes sizes every tab from the current column.
  tabs = BlockConverterExp::Make(AsciiTab2SpaceDataConverterExp::Make(8), 1.0f);
  unsigned total = 0, all = 3;
  EXPECT_EQ(tabs->ComputeSizes(total, 0, "\t\t\t", all, 0, false), DC::ResultOK);
  EXPECT_EQ(total, 24u);

  // The generic block converter asks again with end_of_input for the last character.
  BlockConverter c = BlockConverterExp::Make(DataConverter(new PairConverter), 0.5f);
  unsigned out_size = 0, in_size = 3;
  EXPECT_EQ(c->EstimateSizes(out_size, 0, "abc", in_size, 0, false), DC::ResultOK);
  EXPECT_EQ(out_size, 2u);

  Outcome o = Block(c, "abcde", 16, false);
  EXPECT_EQ(Brief(o) + " " + Output(o), "Incomplete 4->2 @11/13 ac");
  o = Block(c, "abcde", 16, true);
  EXPECT_EQ(Brief(o) + " " + Output(o), "OK 5->3 @12/14 ace");
  EXPECT_EQ(Brief(Block(c, "abcde", 2)), "OK 4->2 @11/13");       // the third does not fit
  EXPECT_EQ(Brief(Block(c, "abcde", 0)), "TooSmall 4->2 @7/11");  // sizes of the whole input
  EXPECT_EQ(Brief(Block(c, "a", 4)), "Incomplete 0->0 @7/11");    // the failing call's sizes
}

TEST(UnicodeConverters, HelpersDataFacesEstimatesAndCase) {
  unsigned short out[2] = {0, 0};
  EXPECT_EQ(UTF32toUTF16(out, out + 1, 0x1F600), 0);
  EXPECT_EQ(out[0], 0xD83D);  // the lead surrogate is stored already
  EXPECT_EQ(UTF32toUTF16(out, out + 2, 0x110000), -1);
  EXPECT_EQ(UTF32toUTF16(out, out + 1, 0xDC00), 1);
  std::uint32_t value = 0;
  const unsigned short lead = 0xD83D;
  EXPECT_EQ(UTF16toUTF32(&value, &lead, nullptr), 1);
  EXPECT_EQ(value, 0xD83Du);

  char name[8];
  EXPECT_EQ(DataConverterExp::CopyConverterName(name, 4, "utf-16", 0), 3u);  // room for 3
  EXPECT_EQ(DataConverterExp::CopyConverterName(name, 8, "utf-16", 3), 3u);  // 3 asked for
  EXPECT_STREQ(name, "utf");
  EXPECT_EQ(DataConverterExp::CopyConverterName(name, 8, nullptr, 0), 0u);
  EXPECT_STREQ(name, "");

  DataConverter dec = TextEncodingExp::MakeUTF8()->GetToWideConverter()->GetDataConverter();
  EXPECT_EQ(ConvertOne(dec, "\xE2\x41").result, DC::ResultInputIncomplete);  // too short first
  EXPECT_EQ(ConvertOne(dec, "\xE2\x41\x41").thrown, "CannotConvert");
  Outcome o = ConvertOne(dec, "\xF0\x9F\x98\x80", 3);
  EXPECT_EQ(Brief(o), "TooSmall 4->4");
  // One unit of room: lenient UTF-8 stores the lead surrogate anyway, the standard one nothing.
  EXPECT_EQ(o.buffer.substr(0, 2), U16({0xD83D}));
  DataConverter standard =
      TextEncodingExp::MakeStandardUTF8()->GetToWideConverter()->GetDataConverter();
  EXPECT_EQ(ConvertOne(standard, "\xF0\x9F\x98\x80", 3).buffer, "\xA5\xA5\xA5");
  unsigned out_size = 99, in_size = 1;
  EXPECT_EQ(dec->EstimateSizes(out_size, "a", in_size, false), DC::ResultOK);
  EXPECT_EQ(out_size, 99u);  // left as passed

  BlockConverter enc = TextEncodingExp::MakeUTF8()->GetFromWideConverter();
  EXPECT_DOUBLE_EQ(enc->GetExpansionFactor(), 0.5);
  EXPECT_EQ(ConvertAll(enc, U16({0xD83D, 0xDE00})), "\xED\xA0\xBD\xED\xB8\x80");  // unit by unit
  in_size = 3;  // a nominal character is 2 / 0.5 + 0.5 = 4 bytes
  EXPECT_EQ(enc->GetDataConverter()->EstimateSizes(out_size, "abc", in_size, false),
            DC::ResultInputIncomplete);
  // UTF-32 to wide: 4 / 0.5 + 0.5 input bytes a character.
  BlockConverter to_wide = TextEncodingExp::MakeUTF32()->GetToWideConverter();
  in_size = 7;
  EXPECT_EQ(to_wide->EstimateSizes(out_size, 0, "abcdefg", in_size, 0, false), DC::ResultOK);
  EXPECT_EQ(in_size + 100 * out_size, 4u + 200u);

  // UTF-8 case conversion goes through wide text.
  TextEncoding utf8 = TextEncodingExp::MakeUTF8();
  EXPECT_EQ(ConvertAll(utf8->GetToUpperConverter(), "ab\xC3\xA9z"), "AB\xC3\x89Z");
  // OHM SIGN lowers to small omega, 3 bytes to 2; the sizes follow the conversion.
  BlockConverter lower = utf8->GetToLowerConverter();
  const std::string ohm_a = std::string("\xE2\x84\xA6") + 'A';
  in_size = 4, out_size = 0;
  EXPECT_EQ(lower->ComputeSizes(out_size, 0, ohm_a.data(), in_size, 0, false), DC::ResultOK);
#if defined(_WIN32)
  // The system's case table decides here; Wine's leaves OHM SIGN as it is.
  if (ConvertAll(lower, "\xE2\x84\xA6") == "\xE2\x84\xA6") {
    EXPECT_EQ(out_size, 4u);
  } else
#endif
  {
    EXPECT_EQ(out_size, 3u);
    EXPECT_EQ(ConvertAll(lower, ohm_a), std::string("\xCF\x89") + 'a');
  }
  // A character that needs two wide units does not fit the chain's scratch unit.
  EXPECT_EQ(Block(lower, "\xF0\x9F\x98\x80", 16).thrown, "InternalError:");
  EXPECT_EQ(Brief(Block(lower, "A\xE2\x82", 16)), "Incomplete 1->1 @8/12");
}

// Every scalar value decodes back from its shortest form; values above 0x10FFFF (sampled up to
// 0x7FFFFFFF) are characters of the UTF-8 encoding without a wide form; longer forms are overlong.
TEST(Utf8Decoder, EveryValueDecodesBack) {
  TextEncoding utf8 = TextEncodingExp::MakeUTF8();
  DataConverter dec = utf8->GetToWideConverter()->GetDataConverter();
  for (std::uint32_t v = 0; v < 0x110000; ++v) {
    Outcome o = ConvertOne(dec, EncodeUtf8(v, ShortestLength(v)), 4);
    ASSERT_EQ(o.in_size, static_cast<unsigned>(ShortestLength(v))) << v;
    unsigned short u[2];
    std::memcpy(u, o.buffer.data(), 4);
    ASSERT_EQ(o.out_size == 2 ? u[0] : 0x10000 + ((u[0] - 0xD800u) << 10) + (u[1] - 0xDC00u), v);
  }
  std::vector<std::uint32_t> samples = {0x1FFFFF, 0x200000, 0x3FFFFFF, 0x4000000, 0x7FFFFFFF};
  for (std::uint32_t v = 0x110000; v < 0x7FFFFFFF - 7919 * 4099u; v += 7919 * 4099u + 1)
    samples.push_back(v);
  for (std::uint32_t v : samples) {
    std::string s = EncodeUtf8(v, ShortestLength(v));
    EXPECT_EQ(utf8->Find(v, s.data(), static_cast<unsigned>(s.size())), 0) << v;
    EXPECT_EQ(utf8->CharacterCount(s.data(), static_cast<unsigned>(s.size())), 1u);
    EXPECT_EQ(ConvertOne(dec, s).thrown, "CannotConvert");
  }
  // Overlong: every longer form of NUL, '/' and each length's largest value; decoder and count.
  for (std::uint32_t v : {0x0u, 0x2Fu, 0x7Fu, 0x7FFu, 0xFFFFu, 0x10FFFFu, 0x1FFFFFu, 0x3FFFFFFu}) {
    for (int length = ShortestLength(v) + 1; length <= 6; ++length) {
      std::string s = EncodeUtf8(v, length);
      EXPECT_EQ(ConvertOne(dec, s).thrown, "CannotConvert") << v << " in " << length;
      EXPECT_THROW(utf8->CharacterCount(s.data(), static_cast<unsigned>(s.size())),
                   CannotConvertException);
    }
  }
  EXPECT_EQ(utf8->CharacterCount("\xED\xA0\x80\xED\xB0\x80", 6), 2u);  // each surrogate is one
}

// The block faces of the UTF-8 converters run whole runs in a tight loop; they must give exactly
// what the generic block converter over their data face gives, byte for byte, at every room.
void ExpectSameAsByCharacter(BlockConverter fast, const std::string& in) {
  BlockConverter reference = BlockConverterExp::Make(fast->GetDataConverter(), 1.0f);
  for (unsigned room = 0; room <= 2 * in.size() + 4; room += 1 + room / 16) {
    for (bool eoi : {false, true}) {
      ASSERT_EQ(Block(fast, in, room, eoi), Block(reference, in, room, eoi))
          << "room " << room << " input bytes " << in.size();
    }
  }
  ASSERT_EQ(Block(fast, in, 8, false, true), Block(reference, in, 8, false, true));
}

// Lenient and standard UTF-8 (which stops its loops at encoded surrogates and pairs surrogates).
class Utf8FastPath : public ::testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(Forms, Utf8FastPath, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Standard" : "Lenient"; });

TEST_P(Utf8FastPath, SameAsCharacterByCharacter) {
  TextEncoding utf8 =
      GetParam() ? TextEncodingExp::MakeStandardUTF8() : TextEncodingExp::MakeUTF8();
  BlockConverter to_wide = utf8->GetToWideConverter();
  std::mt19937 rng(20240611);
  // Text as runs of characters of one length, as real text has them: ASCII, two, three
  // (surrogates included) and four bytes, and (rarer, never in every third round) values without
  // a wide form; now and then a malformed piece.
  const std::uint32_t kFrom[] = {0, 0x80, 0x800, 0x10000, 0x110000, 0x200000, 0x80000000};
  const int kRuns[] = {0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 5};
  for (int round = 0; round < 400; ++round) {
    std::string in;
    for (int pieces = static_cast<int>(rng() % 30); pieces > 0; --pieces) {
      const int k = kRuns[rng() % (round % 3 == 0 ? 9 : 11)];
      for (int n = 1 + static_cast<int>(rng() % (k == 0 ? 40 : 12)); n > 0; --n) {
        const std::uint32_t v = kFrom[k] + rng() % (kFrom[k + 1] - kFrom[k]);
        in += EncodeUtf8(v, ShortestLength(v));
      }
    }
    if (round % 4 == 3 && !in.empty()) {
      const char kBad[] = {'\x80', '\xBF', '\xFE', '\xFF', '\xC0', '\xE0', '\xE2', '\xF0'};
      in[rng() % in.size()] = kBad[rng() % sizeof kBad];
      // Overlong, surrogate, long and too large forms, and cut-off sequences.
      const char* kForms[] = {"\xE0\x80\xAF",         "\xE0\x9F\xBF", "\xC1\xBF",
                              "\xF0\x8F\xBF\xBF",     "\xED\xA0\x80", "\xF4\x90\x80\x80",
                              "\xF8\x88\x80\x80\x80", "\xE2\x82",     "\xF0\x9F\x98"};
      in.insert(rng() % in.size(), kForms[rng() % 9]);
    }
    if (round % 5 == 4 && !in.empty()) in.pop_back();  // maybe cut the last sequence
    ExpectSameAsByCharacter(to_wide, in);
    // Wide input: the decoded text when there is one, else the raw bytes as units.
    Outcome o = Block(to_wide, in, static_cast<unsigned>(2 * in.size()));
    std::string units = o.thrown.empty() ? Output(o) : in;
    if (GetParam() && round % 4 == 1 && units.size() >= 2) {  // a surrogate without its pair
      const char* lone = rng() % 2 ? "\x3D\xD8" : "\x00\xDE";
      units.insert(2 * (rng() % (units.size() / 2)), lone, 2);
    }
    if (round % 6 == 5) units.push_back('x');  // an odd trailing byte
    ExpectSameAsByCharacter(utf8->GetFromWideConverter(), units);
  }
}

}  // namespace
}  // namespace kiv
