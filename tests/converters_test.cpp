#include <gtest/gtest.h>
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>

#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using DC = DataConverterItf;

std::string U16(std::initializer_list<unsigned> units) {
  std::string s;
  for (unsigned u : units) {
    auto v = static_cast<unsigned short>(u);
    s.append(reinterpret_cast<const char*>(&v), 2);
  }
  return s;
}

std::string U32(std::initializer_list<std::uint32_t> values) {
  std::string s;
  for (std::uint32_t v : values) s.append(reinterpret_cast<const char*>(&v), 4);
  return s;
}

// The outcome of one Convert: result, sizes, positions (block calls only), the whole output
// buffer (filled with 0xA5 before the call) and the exception thrown, if any.
struct Outcome {
  int result = -1;
  unsigned out_size = 0, in_size = 0, out_pos = 0, in_pos = 0;
  std::string buffer;
  std::string thrown;
  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Outcome& o) {
  return os << "{result " << o.result << " out " << o.out_size << " in " << o.in_size << " pos "
            << o.out_pos << "/" << o.in_pos << " thrown '" << o.thrown << "'}";
}

// "OK 2->4 @9/15": result, input and output sizes, then the positions after a block call (which
// start at 7 and 11); or the exception thrown.
std::string Brief(const Outcome& o) {
  if (!o.thrown.empty()) return o.thrown;
  const char* r = o.result == DC::ResultOK                ? "OK"
                  : o.result == DC::ResultInputIncomplete ? "Incomplete"
                  : o.result == DC::ResultOutputTooSmall  ? "TooSmall"
                                                          : "?";
  std::ostringstream os;
  os << r << " " << o.in_size << "->" << o.out_size;
  if (o.in_pos != 0) os << " @" << o.in_pos << "/" << o.out_pos;
  return os.str();
}

template <class F>
Outcome Run(unsigned room, unsigned in_size, F convert) {
  Outcome o;
  o.buffer.assign(room, '\xA5');
  o.out_size = room;
  o.in_size = in_size;
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

// Converts all of `in` through `c` in calls of at most `chunk` output bytes, as a stream does.
std::string ConvertAll(BlockConverter c, const std::string& in, unsigned chunk = 4096) {
  std::string out;
  std::vector<char> buffer(chunk);
  unsigned done = 0;
  while (done < in.size()) {
    unsigned out_size = chunk, out_pos = 0, in_pos = 0;
    unsigned in_size = static_cast<unsigned>(in.size()) - done;
    int r = c->Convert(buffer.data(), out_size, out_pos, in.data() + done, in_size, in_pos, true);
    if (r != DC::ResultOK && in_pos == 0) break;  // stuck: incomplete tail or no room
    out.append(buffer.data(), out_size);
    done += in_size;
  }
  return out;
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

TEST(AsciiConverters, SignExtendWidenAndDotNarrow) {
  TextEncoding ascii = TextEncodingExp::MakeAscii();
  BlockConverter widen = ascii->GetToWideConverter(), narrow = ascii->GetFromWideConverter();
  Outcome o = Block(widen, "A\xE9", 4);
  EXPECT_EQ(Brief(o), "OK 2->4 @9/15");
  EXPECT_EQ(o.buffer, U16({0x41, 0xFFE9}));
  // Partial room converts what fits and still answers OK; under one unit is too small.
  EXPECT_EQ(Brief(Block(widen, "abc", 5)), "OK 2->4 @9/15");
  o = Block(widen, "abc", 1);
  o.in_size = 0;  // left open when nothing is converted
  EXPECT_EQ(Brief(o), "TooSmall 0->6 @7/11");

  o = Block(narrow, U16({0x7E, 0x7F, 0xE9, 0x20AC, 0x41}) + "x", 16);
  EXPECT_EQ(Brief(o), "OK 10->5 @17/16");
  EXPECT_EQ(o.buffer.substr(0, 5), "~...A");
  EXPECT_EQ(Brief(Block(narrow, "x", 4)), "Incomplete 0->0 @7/11");
  EXPECT_EQ(Brief(Block(narrow, U16({1, 2, 3}), 0)), "TooSmall 6->3 @7/11");

  DataConverter dc = narrow->GetDataConverter();
  EXPECT_EQ(dc.Get(), dynamic_cast<DataConverterItf*>(narrow.Get()));
  EXPECT_EQ(Brief(ConvertOne(dc, "x")), "Incomplete 0->0");
  EXPECT_EQ(Brief(ConvertOne(dc, U16({0x41}), 0)), "TooSmall 2->1");
  unsigned out_size = 9, in_size = 9;
  EXPECT_EQ(dc->Convert(nullptr, out_size, nullptr, in_size, false), DC::ResultOK);
  EXPECT_EQ(out_size + in_size, 0u);
}

TEST(CaseConverters, UnitsMapOneByOne) {
  EXPECT_EQ(ConvertAll(TextEncodingExp::MakeAscii()->GetToUpperConverter(), "aZ1\xE9"), "AZ1\xE9");
  EXPECT_EQ(ConvertAll(TextEncodingExp::MakeAscii()->GetToLowerConverter(), "aZ1"), "az1");
  BlockConverter upper16 = TextEncodingExp::MakeUTF16()->GetToUpperConverter();
  EXPECT_EQ(ConvertAll(upper16, U16({'a', 'Z', 0xD83D, 0xDE00})), U16({'A', 'Z', 0xD83D, 0xDE00}));
  EXPECT_EQ(Block(upper16, U16({'a', 'b'}) + "x", 16).in_size, 4u);  // the odd byte stays behind
  EXPECT_EQ(Block(upper16, "x", 16).result, DC::ResultInputIncomplete);

  BlockConverter lower32 = TextEncodingExp::MakeUTF32()->GetToLowerConverter();
  EXPECT_EQ(ConvertAll(lower32, U32({'A', 0xD800, 0x1F600, 0x110041})),
            U32({'a', 0xD800, 0x1F600, 0x110041}));
  EXPECT_EQ(Brief(ConvertOne(lower32->GetDataConverter(), U32({'A'}), 3)), "TooSmall 4->4");
  EXPECT_EQ(ConvertOne(lower32->GetDataConverter(), "abc").result, DC::ResultInputIncomplete);
}

// Sizes are rounded with the mask 0 - N, a round-down only for N a power of two.
TEST(CopyConverter, MaskRuleAndSharedInstance) {
  EXPECT_EQ(BlockCopyConverterExp::Make(1), BlockCopyConverterExp::Make());
  EXPECT_NE(BlockCopyConverterExp::Make(2), BlockCopyConverterExp::Make(2));
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
    if (o.result == DC::ResultOK) {
      EXPECT_EQ(Output(o), ten.substr(0, o.out_size));
    }
  }
  DataConverter dc = BlockCopyConverterExp::Make(2)->GetDataConverter();
  EXPECT_EQ(Brief(ConvertOne(dc, "abc", 1)), "TooSmall 2->2");
  EXPECT_EQ(Output(ConvertOne(dc, "abc")), "ab");
  EXPECT_EQ(ConvertOne(dc, "a").result, DC::ResultInputIncomplete);
}

TEST(TabConverter, ExpandsToTabStopsAndTracksColumns) {
  BlockConverter tabs = BlockConverterExp::Make(AsciiTab2SpaceDataConverterExp::Make(8), 1.0f);
  EXPECT_EQ(ConvertAll(tabs, "ab\tc\n\tx\r\ty"), "ab      c\n        x\r      y");
  DataConverter dc = AsciiTab2SpaceDataConverterExp::Make(4);
  unsigned out_size = 0, in_size = 1;
  EXPECT_EQ(dc->ComputeSizes(out_size, "\t", in_size, false), DC::ResultOK);
  EXPECT_EQ(out_size, 4u);
  EXPECT_EQ(Output(ConvertOne(dc, "a")), "a");
  // Needs 3 spaces now; sizing did not move the column.
  EXPECT_EQ(Brief(ConvertOne(dc, "\t", 2)), "TooSmall 1->3");
  EXPECT_EQ(Output(ConvertOne(dc, "\t")), "   ");
  // The generic ComputeSizes sizes every tab from the current column.
  tabs = BlockConverterExp::Make(AsciiTab2SpaceDataConverterExp::Make(8), 1.0f);
  unsigned total = 0, all = 3;
  EXPECT_EQ(tabs->ComputeSizes(total, 0, "\t\t\t", all, 0, false), DC::ResultOK);
  EXPECT_EQ(total, 24u);
}

// A data converter that needs end_of_input to finish its last character, to watch the generic
// block converter's second try.
struct PairConverter : DataConverterItf {
  BufferResult ComputeSizes(unsigned& out_size, const void*, unsigned& in_size, bool eoi) override {
    if (in_size == 0) return out_size = 0, ResultOK;
    if (in_size < 2 && !eoi) return in_size = out_size = 0, ResultInputIncomplete;
    in_size = in_size < 2 ? 1 : 2;
    out_size = 1;
    return ResultOK;
  }
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool eoi) override {
    unsigned room = out ? out_size : 0;
    BufferResult r = ComputeSizes(out_size, in, in_size, eoi);
    if (r != ResultOK || in_size == 0) return r;
    if (room < 1) return ResultOutputTooSmall;
    *static_cast<char*>(out) = *static_cast<const char*>(in);
    return ResultOK;
  }
};

TEST(GenericBlockConverter, RetriesAtEndAndReportsPartialRuns) {
  BlockConverter c = BlockConverterExp::Make(DataConverter(new PairConverter), 0.5f);
  EXPECT_DOUBLE_EQ(c->GetExpansionFactor(), 0.5);
  unsigned out_size = 0, in_size = 3;
  EXPECT_EQ(c->EstimateSizes(out_size, 0, "abc", in_size, 0, false), DC::ResultOK);
  EXPECT_EQ(out_size, 2u);

  Outcome o = Block(c, "abcde", 16, false);
  EXPECT_EQ(Brief(o), "Incomplete 4->2 @11/13");
  EXPECT_EQ(o.buffer.substr(0, 2), "ac");
  o = Block(c, "abcde", 16, true);
  EXPECT_EQ(Brief(o), "OK 5->3 @12/14");
  EXPECT_EQ(o.buffer.substr(0, 3), "ace");
  EXPECT_EQ(Brief(Block(c, "abcde", 2)), "OK 4->2 @11/13");  // the third does not fit
  // No room: ComputeSizes of the whole input.
  EXPECT_EQ(Brief(Block(c, "abcde", 0)), "TooSmall 4->2 @7/11");
  // An error before anything was consumed gives the failing call's sizes.
  EXPECT_EQ(Brief(Block(c, "a", 4)), "Incomplete 0->0 @7/11");
}

TEST(UnicodeHelpers, UTF32toUTF16AndBack) {
  unsigned short out[2] = {0, 0};
  EXPECT_EQ(UTF32toUTF16(out, out + 1, 0x1F600), 0);
  EXPECT_EQ(out[0], 0xD83D);  // the lead surrogate is stored already
  EXPECT_EQ(UTF32toUTF16(out, out + 2, 0x1F600), 2);
  EXPECT_EQ(out[1], 0xDE00);
  EXPECT_EQ(UTF32toUTF16(out, out + 2, 0x110000), -1);
  EXPECT_EQ(UTF32toUTF16(out, out, 0x41), 0);
  EXPECT_EQ(UTF32toUTF16(out, out + 1, 0xDC00), 1);
  std::uint32_t value = 0;
  const unsigned short lead = 0xD83D;
  EXPECT_EQ(UTF16toUTF32(&value, &lead, nullptr), 1);
  EXPECT_EQ(value, 0xD83Du);

  char name[8];
  EXPECT_EQ(DataConverterExp::CopyConverterName(name, 4, "utf-16", 0), 3u);
  EXPECT_STREQ(name, "utf");
  EXPECT_EQ(DataConverterExp::CopyConverterName(name, 8, "utf-16", 3), 3u);
  EXPECT_STREQ(name, "utf");
  EXPECT_EQ(DataConverterExp::CopyConverterName(name, 8, nullptr, 0), 0u);
  EXPECT_STREQ(name, "");
}

TEST(Utf32Converters, PairingAndLimits) {
  TextEncoding utf32 = TextEncodingExp::MakeUTF32();
  BlockConverter to_wide = utf32->GetToWideConverter();
  EXPECT_EQ(ConvertAll(to_wide, U32({0x41, 0x1F600})), U16({0x41, 0xD83D, 0xDE00}));
  EXPECT_EQ(ConvertAll(utf32->GetFromWideConverter(), U16({0xD83D, 0x41})), U32({0xD83D, 0x41}));
  EXPECT_EQ(Block(to_wide, U32({0x41, 0x110000}), 16).thrown, "CannotConvert");
  // A pair with one unit of room: too small, yet the lead surrogate is already stored.
  Outcome o = Block(to_wide, U32({0x41, 0x1F600}), 4);
  EXPECT_EQ(Brief(o), "TooSmall 4->2 @11/13");
  EXPECT_EQ(o.buffer, U16({0x41, 0xD83D}));
  EXPECT_EQ(Brief(Block(to_wide, U32({0x1F600}), 3)), "TooSmall 4->4 @7/11");
  // Nominal estimates from the factor: 4 / 0.5 + 0.5 input bytes for UTF-32.
  unsigned out_size = 0, in_size = 4;
  EXPECT_EQ(to_wide->GetDataConverter()->EstimateSizes(out_size, "abcd", in_size, false),
            DC::ResultOK);
  EXPECT_EQ(in_size + 100 * out_size, 8u + 400u);
  in_size = 7;
  EXPECT_EQ(to_wide->EstimateSizes(out_size, 0, "abcdefg", in_size, 0, false), DC::ResultOK);
  EXPECT_EQ(in_size + 100 * out_size, 4u + 200u);
}

TEST(Utf8Converters, CharactersAndBoundaries) {
  DataConverter dec = TextEncodingExp::MakeUTF8()->GetToWideConverter()->GetDataConverter();
  EXPECT_EQ(Output(ConvertOne(dec, "\xC3\xA9")), U16({0xE9}));
  EXPECT_EQ(ConvertOne(dec, "\xC0\x80").thrown, "CannotConvert");
  EXPECT_EQ(Brief(ConvertOne(dec, "\xE2\x82")), "Incomplete 0->0");
  EXPECT_EQ(ConvertOne(dec, "\xE2\x41").result, DC::ResultInputIncomplete);  // too short first
  EXPECT_EQ(ConvertOne(dec, "\xE2\x41\x41").thrown, "CannotConvert");
  EXPECT_EQ(Output(ConvertOne(dec, "\xF0\x9F\x98\x80")), U16({0xD83D, 0xDE00}));
  Outcome o = ConvertOne(dec, "\xF0\x9F\x98\x80", 3);
  EXPECT_EQ(Brief(o), "TooSmall 4->4");
  // With room for one unit the lead surrogate is stored before the shortage is reported (the
  // pair writer stores it first); the standard decoder writes nothing.
  EXPECT_EQ(o.buffer.substr(0, 2), U16({0xD83D}));
  o = ConvertOne(TextEncodingExp::MakeStandardUTF8()->GetToWideConverter()->GetDataConverter(),
                 "\xF0\x9F\x98\x80", 3);
  EXPECT_EQ(Brief(o), "TooSmall 4->4");
  EXPECT_EQ(o.buffer, "\xA5\xA5\xA5");
  unsigned out_size = 99, in_size = 1;
  EXPECT_EQ(dec->EstimateSizes(out_size, "a", in_size, false), DC::ResultOK);
  EXPECT_EQ(out_size, 99u);  // left as passed

  BlockConverter enc = TextEncodingExp::MakeUTF8()->GetFromWideConverter();
  EXPECT_DOUBLE_EQ(enc->GetExpansionFactor(), 0.5);
  EXPECT_EQ(ConvertAll(enc, U16({0xD83D, 0xDE00})), "\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(Brief(Block(enc, U16({'a', 0x20AC}), 3)), "TooSmall 2->1 @9/12");
  EXPECT_EQ(Brief(Block(enc, U16({0x20AC}), 2)), "TooSmall 2->3 @7/11");
  in_size = 3;  // a nominal character is 2 / 0.5 + 0.5 = 4 bytes
  EXPECT_EQ(enc->GetDataConverter()->EstimateSizes(out_size, "abc", in_size, false),
            DC::ResultInputIncomplete);

  BlockConverter to_wide = TextEncodingExp::MakeUTF8()->GetToWideConverter();
  EXPECT_EQ(Brief(Block(to_wide, "ab\xE2\x82", 16, true)), "Incomplete 2->4 @9/15");
  o = Block(to_wide, "ab\xFF", 16);
  EXPECT_EQ(o.thrown, "CannotConvert");
  EXPECT_EQ(o.buffer.substr(0, 4), U16({'a', 'b'}));
  // Odd room: the second character finds no whole unit.
  EXPECT_EQ(Brief(Block(to_wide, "a\xC3\xA9", 3)), "TooSmall 1->2 @8/13");
  EXPECT_EQ(Brief(Block(to_wide, "a\xC3\xA9", 4)), "OK 3->4 @10/15");
}

TEST(Utf8Converters, CaseThroughWideText) {
  TextEncoding utf8 = TextEncodingExp::MakeUTF8();
  EXPECT_EQ(ConvertAll(utf8->GetToUpperConverter(), "ab\xC3\xA9z"), "AB\xC3\x89Z");
  EXPECT_EQ(ConvertAll(utf8->GetToLowerConverter(), "ABC"), "abc");
  // The case of a character may take fewer bytes (OHM SIGN to small omega: 3 bytes to 2), and
  // the sizes follow the conversion.
  BlockConverter lower = utf8->GetToLowerConverter();
  const std::string ohm_a =
      "\xE2\x84\xA6"
      "A";
  unsigned out_size = 0, in_size = 4;
  EXPECT_EQ(lower->ComputeSizes(out_size, 0, ohm_a.data(), in_size, 0, false), DC::ResultOK);
#if defined(_WIN32)
  // The system's case table decides here; Wine's leaves OHM SIGN as it is.
  if (ConvertAll(lower, "\xE2\x84\xA6") == "\xE2\x84\xA6") {
    EXPECT_EQ(out_size, 4u);
  } else
#endif
  {
    EXPECT_EQ(out_size, 3u);
    EXPECT_EQ(ConvertAll(lower, ohm_a),
              "\xCF\x89"
              "a");
  }
  // A character that needs two wide units does not fit the chain's scratch unit.
  EXPECT_EQ(Block(lower, "\xF0\x9F\x98\x80", 16).thrown, "InternalError:");
  EXPECT_EQ(Brief(Block(lower, "A\xE2\x82", 16)), "Incomplete 1->1 @8/12");
}

// Every scalar value decodes back from its shortest form; values above 0x10FFFF (sampled up to
// 0x7FFFFFFF, the first and last of each length included) decode in the UTF-8 encoding but have
// no wide form; longer forms are overlong. These are the cases of the well-known UTF-8 decoder
// stress test that state values; malformed byte sequences of every kind (stray, lone, cut off)
// are held to a model on every input by the converters fuzz target.
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
  for (std::uint32_t v = 0x110000; v < 0x7FFFFFFF - 7919 * 4099u; v += 7919 * 4099u + 1) {
    samples.push_back(v);
  }
  for (std::uint32_t v : samples) {
    std::string s = EncodeUtf8(v, ShortestLength(v));
    EXPECT_EQ(utf8->Find(v, s.data(), static_cast<unsigned>(s.size())), 0) << v;
    EXPECT_EQ(utf8->CharacterCount(s.data(), static_cast<unsigned>(s.size())), 1u);
    EXPECT_EQ(ConvertOne(dec, s).thrown, "CannotConvert");
  }
  // Overlong forms (every longer form of NUL, '/' and the largest value of each length) are
  // refused by the decoder and the character count alike.
  for (std::uint32_t v : {0x0u, 0x2Fu, 0x7Fu, 0x7FFu, 0xFFFFu, 0x10FFFFu, 0x1FFFFFu, 0x3FFFFFFu}) {
    for (int length = ShortestLength(v) + 1; length <= 6; ++length) {
      std::string s = EncodeUtf8(v, length);
      EXPECT_EQ(ConvertOne(dec, s).thrown, "CannotConvert") << v << " in " << length;
      EXPECT_THROW(utf8->CharacterCount(s.data(), static_cast<unsigned>(s.size())),
                   CannotConvertException);
    }
  }
  // Encoded surrogates are characters of their own, paired or not.
  EXPECT_EQ(utf8->CharacterCount("\xED\xA0\x80\xED\xB0\x80", 6), 2u);
}

// The block faces of the UTF-8 converters run whole runs in a tight loop; they must give exactly
// what converting one character per data-converter call gives (the generic block converter over
// the same data converter): result, sizes, positions, every output byte, and the exception.
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

// Both UTF-8 forms: the lenient one and the standard one (which stops its loops at encoded
// surrogates, and pairs surrogates when encoding).
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
