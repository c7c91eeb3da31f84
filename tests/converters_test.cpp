#include <gtest/gtest.h>
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
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

// The outcome of one block Convert: result, sizes, positions, the whole output buffer (filled
// with 0xA5 before the call) and the exception thrown, if any.
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

Outcome Block(BlockConverter c, const std::string& in, unsigned room, bool eoi = false,
              bool null_out = false) {
  Outcome o;
  o.buffer.assign(room, '\xA5');
  o.out_size = room;
  o.in_size = static_cast<unsigned>(in.size());
  o.out_pos = 11;
  o.in_pos = 7;
  try {
    o.result = c->Convert(null_out ? nullptr : o.buffer.data(), o.out_size, o.out_pos, in.data(),
                          o.in_size, o.in_pos, eoi);
  } catch (const CannotConvertException&) {
    o.thrown = "CannotConvert";
  } catch (const InternalError& e) {
    o.thrown = "InternalError:" + testing::Utf8(e.What());
  }
  return o;
}

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

// One character through a data converter: result, in_size, out_size and the output.
struct One {
  int result;
  unsigned in_size, out_size;
  std::string out;
};

One ConvertOne(DataConverter dc, const std::string& in, unsigned room = 16) {
  std::string buffer(room, '\0');
  unsigned out_size = room, in_size = static_cast<unsigned>(in.size());
  int r = dc->Convert(buffer.data(), out_size, in.data(), in_size, false);
  buffer.resize(r == DC::ResultOK ? out_size : 0);
  return {r, in_size, out_size, buffer};
}

DataConverter Utf8Decoder() {
  return TextEncodingExp::MakeUTF8()->GetToWideConverter()->GetDataConverter();
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
  BlockConverter widen = ascii->GetToWideConverter();
  BlockConverter narrow = ascii->GetFromWideConverter();

  Outcome o = Block(widen, "A\xE9", 4);
  EXPECT_EQ(o.result, DC::ResultOK);
  EXPECT_EQ(o.buffer, U16({0x41, 0xFFE9}));
  EXPECT_EQ(o.in_pos, 9u);
  EXPECT_EQ(o.out_pos, 15u);
  // Partial room converts what fits and still answers OK; under one unit is too small.
  o = Block(widen, "abc", 5);
  EXPECT_EQ(o.result, DC::ResultOK);
  EXPECT_EQ(o.in_size, 2u);
  EXPECT_EQ(o.out_size, 4u);
  o = Block(widen, "abc", 1);
  EXPECT_EQ(o.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(o.out_size, 6u);
  EXPECT_EQ(o.in_pos, 7u);

  o = Block(narrow, U16({0x7E, 0x7F, 0xE9, 0x20AC, 0x41}) + "x", 16);
  EXPECT_EQ(o.result, DC::ResultOK);
  EXPECT_EQ(o.in_size, 10u);
  EXPECT_EQ(o.buffer.substr(0, 5), "~...A");
  EXPECT_EQ(Block(narrow, "x", 4).result, DC::ResultInputIncomplete);
  o = Block(narrow, U16({1, 2, 3}), 0);
  EXPECT_EQ(o.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(o.out_size, 3u);

  DataConverter dc = narrow->GetDataConverter();
  EXPECT_EQ(dc.Get(), dynamic_cast<DataConverterItf*>(narrow.Get()));
  EXPECT_EQ(ConvertOne(dc, "x").result, DC::ResultInputIncomplete);
  One one = ConvertOne(dc, U16({0x41}), 0);
  EXPECT_EQ(one.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(one.out_size, 1u);
  EXPECT_EQ(one.in_size, 2u);
  unsigned out_size = 9, in_size = 9;
  EXPECT_EQ(dc->Convert(nullptr, out_size, nullptr, in_size, false), DC::ResultOK);
  EXPECT_EQ(out_size + in_size, 0u);
}

TEST(CaseConverters, UnitsMapOneByOne) {
  EXPECT_EQ(ConvertAll(TextEncodingExp::MakeAscii()->GetToUpperConverter(), "aZ1\xE9"), "AZ1\xE9");
  EXPECT_EQ(ConvertAll(TextEncodingExp::MakeAscii()->GetToLowerConverter(), "aZ1"), "az1");
  BlockConverter upper16 = TextEncodingExp::MakeUTF16()->GetToUpperConverter();
  EXPECT_EQ(ConvertAll(upper16, U16({'a', 'Z', 0xD83D, 0xDE00})), U16({'A', 'Z', 0xD83D, 0xDE00}));
  Outcome o = Block(upper16, U16({'a', 'b'}) + "x", 16);  // the odd byte stays behind
  EXPECT_EQ(o.in_size, 4u);
  EXPECT_EQ(Block(upper16, "x", 16).result, DC::ResultInputIncomplete);

  BlockConverter lower32 = TextEncodingExp::MakeUTF32()->GetToLowerConverter();
  EXPECT_EQ(ConvertAll(lower32, U32({'A', 0xD800, 0x1F600, 0x110041})),
            U32({'a', 0xD800, 0x1F600, 0x110041}));
  One one = ConvertOne(lower32->GetDataConverter(), U32({'A'}), 3);
  EXPECT_EQ(one.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(one.in_size + one.out_size, 8u);
  EXPECT_EQ(ConvertOne(lower32->GetDataConverter(), "abc").result, DC::ResultInputIncomplete);
}

TEST(CopyConverter, MaskRuleAndSharedInstance) {
  EXPECT_EQ(BlockCopyConverterExp::Make(1), BlockCopyConverterExp::Make());
  EXPECT_NE(BlockCopyConverterExp::Make(2), BlockCopyConverterExp::Make(2));
  std::string ten = "0123456789";
  Outcome o = Block(BlockCopyConverterExp::Make(4), ten, 64);
  EXPECT_EQ(o.in_size, 8u);
  EXPECT_EQ(o.buffer.substr(0, 8), "01234567");
  EXPECT_EQ(Block(BlockCopyConverterExp::Make(3), ten.substr(0, 7), 64).in_size, 5u);
  // Room is masked too: 7 bytes of room with 4-byte blocks takes 4; 3 bytes is too small.
  EXPECT_EQ(Block(BlockCopyConverterExp::Make(4), ten, 7).out_size, 4u);
  o = Block(BlockCopyConverterExp::Make(4), ten, 3);
  EXPECT_EQ(o.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(o.out_size, 8u);
  EXPECT_EQ(Block(BlockCopyConverterExp::Make(4), "abc", 8).result, DC::ResultInputIncomplete);
  o = Block(BlockCopyConverterExp::Make(0), ten, 8);
  EXPECT_EQ(o.result, DC::ResultOK);
  EXPECT_EQ(o.in_size + o.out_size, 0u);

  DataConverter dc = BlockCopyConverterExp::Make(2)->GetDataConverter();
  One one = ConvertOne(dc, "abc", 1);
  EXPECT_EQ(one.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(one.in_size + one.out_size, 4u);
  EXPECT_EQ(ConvertOne(dc, "abc").out, "ab");
  EXPECT_EQ(ConvertOne(dc, "a").result, DC::ResultInputIncomplete);
}

TEST(TabConverter, ExpandsToTabStopsAndTracksColumns) {
  BlockConverter tabs = BlockConverterExp::Make(AsciiTab2SpaceDataConverterExp::Make(8), 1.0f);
  EXPECT_EQ(ConvertAll(tabs, "ab\tc\n\tx\r\ty"), "ab      c\n        x\r      y");
  DataConverter dc = AsciiTab2SpaceDataConverterExp::Make(4);
  unsigned out_size = 0, in_size = 1;
  EXPECT_EQ(dc->ComputeSizes(out_size, "\t", in_size, false), DC::ResultOK);
  EXPECT_EQ(out_size, 4u);
  EXPECT_EQ(ConvertOne(dc, "a").out, "a");
  One one = ConvertOne(dc, "\t", 2);  // needs 3 spaces now; sizing did not move the column
  EXPECT_EQ(one.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(one.out_size, 3u);
  EXPECT_EQ(ConvertOne(dc, "\t").out, "   ");
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
  EXPECT_EQ(o.result, DC::ResultInputIncomplete);
  EXPECT_EQ(o.in_size, 4u);
  EXPECT_EQ(o.buffer.substr(0, 2), "ac");
  o = Block(c, "abcde", 16, true);
  EXPECT_EQ(o.result, DC::ResultOK);
  EXPECT_EQ(o.in_size, 5u);
  EXPECT_EQ(o.buffer.substr(0, 3), "ace");
  o = Block(c, "abcde", 2);  // two characters fit, the third does not
  EXPECT_EQ(o.result, DC::ResultOK);
  EXPECT_EQ(o.out_pos, 13u);
  o = Block(c, "abcde", 0);  // no room: ComputeSizes of the whole input
  EXPECT_EQ(o.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(o.out_size, 2u);
  EXPECT_EQ(o.in_size, 4u);
  o = Block(c, "a", 4);  // an error before anything was consumed gives the failing call's sizes
  EXPECT_EQ(o.result, DC::ResultInputIncomplete);
  EXPECT_EQ(o.in_size + o.out_size + o.in_pos, 7u);
}

TEST(UnicodeHelpers, UTF32toUTF16AndBack) {
  unsigned short out[2] = {0, 0};
  EXPECT_EQ(UTF32toUTF16(out, out + 1, 0x1F600), 0);
  EXPECT_EQ(out[0], 0xD83D);
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
  EXPECT_EQ(o.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(o.out_size, 2u);
  EXPECT_EQ(o.buffer, U16({0x41, 0xD83D}));
  o = Block(to_wide, U32({0x1F600}), 3);
  EXPECT_EQ(o.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(o.out_size, 4u);
  EXPECT_EQ(o.in_size, 4u);
  // Nominal estimates from the factor: 4 / 0.5 + 0.5 input bytes for UTF-32.
  unsigned out_size = 0, in_size = 4;
  DataConverter dc = to_wide->GetDataConverter();
  EXPECT_EQ(dc->EstimateSizes(out_size, "abcd", in_size, false), DC::ResultOK);
  EXPECT_EQ(in_size, 8u);
  EXPECT_EQ(out_size, 4u);
  in_size = 7;
  EXPECT_EQ(to_wide->EstimateSizes(out_size, 0, "abcdefg", in_size, 0, false), DC::ResultOK);
  EXPECT_EQ(in_size, 4u);
  EXPECT_EQ(out_size, 2u);
}

TEST(Utf8Converters, CharactersAndBoundaries) {
  DataConverter dec = Utf8Decoder();
  EXPECT_EQ(ConvertOne(dec, "\xC3\xA9").out, U16({0xE9}));
  EXPECT_THROW(ConvertOne(dec, "\xC0\x80"), CannotConvertException);
  One one = ConvertOne(dec, "\xE2\x82");
  EXPECT_EQ(one.result, DC::ResultInputIncomplete);
  EXPECT_EQ(one.in_size + one.out_size, 0u);
  EXPECT_EQ(ConvertOne(dec, "\xE2\x41").result, DC::ResultInputIncomplete);  // too short first
  EXPECT_THROW(ConvertOne(dec, "\xE2\x41\x41"), CannotConvertException);
  EXPECT_EQ(ConvertOne(dec, "\xF0\x9F\x98\x80").out, U16({0xD83D, 0xDE00}));
  one = ConvertOne(dec, "\xF0\x9F\x98\x80", 3);
  EXPECT_EQ(one.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(one.out_size, 4u);
  EXPECT_EQ(one.in_size, 4u);
  {
    // With room for one unit the lead surrogate is stored before the shortage is reported (the
    // pair writer stores it first); the standard decoder writes nothing.
    unsigned short room[2] = {0, 0};
    unsigned out_size = 3, in_size = 4;
    EXPECT_EQ(dec->Convert(room, out_size, "\xF0\x9F\x98\x80", in_size, false),
              DC::ResultOutputTooSmall);
    EXPECT_EQ(room[0], 0xD83D);
    room[0] = 0;
    out_size = 3;
    in_size = 4;
    EXPECT_EQ(
        TextEncodingExp::MakeStandardUTF8()->GetToWideConverter()->GetDataConverter()->Convert(
            room, out_size, "\xF0\x9F\x98\x80", in_size, false),
        DC::ResultOutputTooSmall);
    EXPECT_EQ(room[0], 0);
  }
  unsigned out_size = 99, in_size = 1;
  EXPECT_EQ(dec->EstimateSizes(out_size, "a", in_size, false), DC::ResultOK);
  EXPECT_EQ(out_size, 99u);  // left as passed

  BlockConverter enc = TextEncodingExp::MakeUTF8()->GetFromWideConverter();
  EXPECT_DOUBLE_EQ(enc->GetExpansionFactor(), 0.5);
  EXPECT_EQ(ConvertAll(enc, U16({0xD83D, 0xDE00})), "\xED\xA0\xBD\xED\xB8\x80");
  Outcome o = Block(enc, U16({'a', 0x20AC}), 3);
  EXPECT_EQ(o.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(o.out_size, 1u);
  o = Block(enc, U16({0x20AC}), 2);
  EXPECT_EQ(o.out_size, 3u);
  EXPECT_EQ(o.in_size, 2u);
  in_size = 3;
  EXPECT_EQ(enc->GetDataConverter()->EstimateSizes(out_size, "abc", in_size, false),
            DC::ResultInputIncomplete);  // a nominal character is 2 / 0.5 + 0.5 = 4 bytes

  BlockConverter to_wide = TextEncodingExp::MakeUTF8()->GetToWideConverter();
  o = Block(to_wide, "ab\xE2\x82", 16, true);
  EXPECT_EQ(o.result, DC::ResultInputIncomplete);
  EXPECT_EQ(o.in_size, 2u);
  o = Block(to_wide, "ab\xFF", 16);
  EXPECT_EQ(o.thrown, "CannotConvert");
  EXPECT_EQ(o.buffer.substr(0, 4), U16({'a', 'b'}));
  o = Block(to_wide, "a\xC3\xA9", 3);  // odd room: the second character finds no whole unit
  EXPECT_EQ(o.result, DC::ResultOutputTooSmall);
  EXPECT_EQ(o.in_size, 1u);
  o = Block(to_wide, "a\xC3\xA9", 4);
  EXPECT_EQ(o.result, DC::ResultOK);
  EXPECT_EQ(o.in_size, 3u);
}

TEST(Utf8Converters, CaseThroughWideText) {
  TextEncoding utf8 = TextEncodingExp::MakeUTF8();
  EXPECT_EQ(ConvertAll(utf8->GetToUpperConverter(), "ab\xC3\xA9z"), "AB\xC3\x89Z");
  EXPECT_EQ(ConvertAll(utf8->GetToLowerConverter(), "ABC"), "abc");
  // The case of a character may take fewer bytes (OHM SIGN to small omega: 3 bytes to 2), and
  // the sizes follow the conversion.
  BlockConverter lower = utf8->GetToLowerConverter();
  unsigned out_size = 0, in_size = 4;
  EXPECT_EQ(lower->ComputeSizes(out_size, 0,
                                "\xE2\x84\xA6"
                                "A",
                                in_size, 0, false),
            DC::ResultOK);
#if defined(_WIN32)
  // The system's case table decides here; Wine's leaves OHM SIGN as it is.
  if (ConvertAll(lower, "\xE2\x84\xA6") == "\xE2\x84\xA6") {
    EXPECT_EQ(out_size, 4u);
  } else
#endif
  {
    EXPECT_EQ(out_size, 3u);
    EXPECT_EQ(ConvertAll(lower,
                         "\xE2\x84\xA6"
                         "A"),
              "\xCF\x89"
              "a");
  }
  // A character that needs two wide units does not fit the chain's scratch unit.
  EXPECT_EQ(Block(utf8->GetToLowerConverter(), "\xF0\x9F\x98\x80", 16).thrown, "InternalError:");
  Outcome o = Block(utf8->GetToLowerConverter(), "A\xE2\x82", 16);
  EXPECT_EQ(o.result, DC::ResultInputIncomplete);
  EXPECT_EQ(o.in_size, 1u);
}

// Every input of one and two bytes, and every three-byte input whose later bytes can matter
// (the others with representative later bytes), against the rule: a sequence is valid exactly
// when its bytes are the shortest encoding of the value they spell; a lead byte that announces
// more bytes than there are is incomplete whatever follows.
TEST(Utf8Decoder, EveryInputOfUpToThreeBytes) {
  DataConverter dec = Utf8Decoder();
  auto announced = [](unsigned lead) {
    return lead < 0x80   ? 1
           : lead < 0xC0 ? 0
           : lead < 0xE0 ? 2
           : lead < 0xF0 ? 3
           : lead < 0xF8 ? 4
           : lead < 0xFC ? 5
           : lead < 0xFE ? 6
                         : 0;
  };
  long mismatches = 0;
  auto check = [&](const unsigned char* in, int n) {
    int length = announced(in[0]);
    int expect_result = DC::ResultOK;
    bool expect_throw = length == 0;
    std::uint32_t value = in[0] & (length == 1 ? 0x7F : 0x7F >> length);
    if (length > n) {
      expect_result = DC::ResultInputIncomplete;
    } else if (length > 0) {
      for (int i = 1; i < length; ++i) value = (value << 6) | (in[i] & 0x3F);
      std::string own(reinterpret_cast<const char*>(in), length);
      expect_throw = EncodeUtf8(value, ShortestLength(value)) != own;
    }
    unsigned short out[2];
    unsigned out_size = sizeof out, in_size = static_cast<unsigned>(n);
    bool threw = false;
    int r = -1;
    try {
      r = dec->Convert(out, out_size, in, in_size, false);
    } catch (const CannotConvertException&) {
      threw = true;
    }
    bool ok = threw == expect_throw &&
              (threw || (r == expect_result &&
                         (r != DC::ResultOK || (in_size == static_cast<unsigned>(length) &&
                                                out_size == 2 && out[0] == value))));
    if (!ok && ++mismatches < 10) {
      ADD_FAILURE() << "bytes " << std::hex << +in[0] << " " << +in[1] << " " << +in[2] << " n "
                    << n;
    }
  };
  const unsigned char kSome[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x9F, 0xA0, 0xBF, 0xC0, 0xE0, 0xFF};
  unsigned char in[3];
  for (unsigned lead = 0; lead < 256; ++lead) {
    in[0] = static_cast<unsigned char>(lead);
    check(in, 1);
    for (unsigned second = 0; second < 256; ++second) {
      in[1] = static_cast<unsigned char>(second);
      check(in, 2);
      bool all_third = announced(lead) == 3 && (second & 0xC0) == 0x80;
      for (unsigned third = 0; third < 256; ++third) {
        if (!all_third && std::find(std::begin(kSome), std::end(kSome), third) == std::end(kSome)) {
          continue;
        }
        in[2] = static_cast<unsigned char>(third);
        check(in, 3);
      }
    }
  }
  EXPECT_EQ(mismatches, 0);
}

// Every scalar value decodes back from its shortest form; values above 0x10FFFF (sampled up to
// 0x7FFFFFFF) decode in the UTF-8 encoding but have no wide form; longer forms are overlong.
TEST(Utf8Decoder, EveryValueDecodesBack) {
  DataConverter dec = Utf8Decoder();
  TextEncoding utf8 = TextEncodingExp::MakeUTF8();
  unsigned short out[2];
  for (std::uint32_t v = 0; v < 0x110000; ++v) {
    std::string s = EncodeUtf8(v, ShortestLength(v));
    unsigned out_size = sizeof out, in_size = static_cast<unsigned>(s.size());
    ASSERT_EQ(dec->Convert(out, out_size, s.data(), in_size, false), DC::ResultOK) << v;
    ASSERT_EQ(in_size, s.size());
    std::uint32_t back =
        out_size == 2 ? out[0] : 0x10000 + ((out[0] - 0xD800u) << 10) + (out[1] - 0xDC00u);
    ASSERT_EQ(back, v);
  }
  std::vector<std::uint32_t> samples = {0x110000,  0x1FFFFF,  0x200000,
                                        0x3FFFFFF, 0x4000000, 0x7FFFFFFF};
  for (std::uint32_t v = 0x110000; v < 0x7FFFFFFF - 7919 * 4099u; v += 7919 * 4099u + 1) {
    samples.push_back(v);
  }
  for (std::uint32_t v : samples) {
    std::string s = EncodeUtf8(v, ShortestLength(v));
    EXPECT_EQ(utf8->Find(v, s.data(), static_cast<unsigned>(s.size())), 0) << v;
    EXPECT_EQ(utf8->CharacterCount(s.data(), static_cast<unsigned>(s.size())), 1u);
    unsigned out_size = sizeof out, in_size = static_cast<unsigned>(s.size());
    EXPECT_THROW(dec->Convert(out, out_size, s.data(), in_size, false), CannotConvertException);
    if (ShortestLength(v) < 6) {
      std::string overlong = EncodeUtf8(v, ShortestLength(v) + 1);
      EXPECT_THROW(utf8->CharacterCount(overlong.data(), static_cast<unsigned>(overlong.size())),
                   CannotConvertException);
    }
  }
}

// Cases of "UTF-8 decoder capability and stress test" by Markus Kuhn (2015-08-28, CC BY 4.0).
// The stored copy is valid UTF-8 throughout (its malformed samples were replaced by U+FFFD), so
// the malformed inputs are rebuilt from what each case line states: its bytes in hex ("= c0 af
// ="), its value and length, or its byte ranges. Expected outcomes under our decoder: every
// correct form up to six bytes decodes (surrogates and noncharacters included, values above
// 0x10FFFF only without a wide form); stray continuation bytes, lone lead bytes followed by more
// text, 0xFE/0xFF and overlong forms throw; a sequence cut off by the end of the input is
// ResultInputIncomplete.
TEST(Utf8Decoder, StressCorpus) {
  std::string dir = testing::CorpusDir();
  if (dir.empty())
    GTEST_SKIP() << "corpus folder ../shared/corpus not found; UTF-8 stress test skipped";
  std::string text = testing::ReadFile(dir + "/utf8_stress/UTF-8-test.txt");
  ASSERT_FALSE(text.empty());
  TextEncoding utf8 = TextEncodingExp::MakeUTF8();
  BlockConverter to_wide = utf8->GetToWideConverter();
  auto count = [&](const std::string& s) {
    return utf8->CharacterCount(s.data(), static_cast<unsigned>(s.size()));
  };
  // The whole file: wide and back again gives the same wide text.
  std::string wide = ConvertAll(to_wide, text);
  EXPECT_EQ(ConvertAll(to_wide, ConvertAll(utf8->GetFromWideConverter(), wide)), wide);
  EXPECT_GT(count(text), 7000u);

  // Pieces of a case line: "2.3.1  U-0000D7FF = ed 9f bf = ...", "2.1.2  2 bytes (U-00000080)",
  // "3.2.1  All 32 first bytes of 2-byte sequences (0xc0-0xdf)", "3.3.1  2-byte sequence with
  // last byte missing (U+0000)".
  auto hex_after = [](const std::string& line, const char* marker) -> long {
    std::size_t at = line.find(marker);
    return at == std::string::npos ? -1
                                   : std::stol(line.substr(at + std::strlen(marker)), nullptr, 16);
  };
  auto hex_bytes = [](const std::string& line, std::size_t label_end, std::string* bytes) {
    std::size_t eq = line.rfind('=', line.find('"'));
    if (eq == std::string::npos || eq < label_end) return false;
    std::size_t from = line.rfind('=', eq - 1);
    from = from == std::string::npos || from < label_end ? label_end : from + 1;
    std::istringstream words(line.substr(from, eq - from));
    bytes->clear();
    for (std::string word; words >> word;) {
      if (word.size() != 2 || !std::isxdigit(static_cast<unsigned char>(word[0])) ||
          !std::isxdigit(static_cast<unsigned char>(word[1]))) {
        return false;
      }
      bytes->push_back(static_cast<char>(std::stoul(word, nullptr, 16)));
    }
    return !bytes->empty();
  };
  std::istringstream lines(text);
  std::string line, bytes;
  int cases = 0;
  std::string concatenated;
  while (std::getline(lines, line)) {
    std::size_t label_end = line.find(' ');
    if (line.size() < 6 || !std::isdigit(static_cast<unsigned char>(line[0])) || line[1] != '.' ||
        label_end == std::string::npos ||
        std::count(line.begin(), line.begin() + label_end, '.') != 2) {
      continue;
    }
    std::string section = line.substr(0, label_end);
    std::size_t number = line.find_first_not_of(' ', label_end);
    if (hex_bytes(line, label_end, &bytes)) {
      if (section[0] == '2' || section[0] == '5') {
        bool wide_form = section != "2.3.5";  // U-00110000
        EXPECT_EQ(Block(to_wide, bytes, 16).thrown.empty(), wide_form) << section;
        EXPECT_EQ(count(bytes), section.starts_with("5.2") ? 2u : 1u) << section;
      } else {
        EXPECT_THROW(count(bytes), CannotConvertException) << section;
        EXPECT_EQ(Block(to_wide, bytes, 16).thrown, "CannotConvert") << section;
      }
      ++cases;
    } else if (section.starts_with("2.1.") || section.starts_with("2.2.")) {
      auto v = static_cast<std::uint32_t>(hex_after(line, "(U-"));
      bytes = EncodeUtf8(v, line[number] - '0');
      EXPECT_EQ(utf8->Find(v, bytes.data(), static_cast<unsigned>(bytes.size())), 0) << section;
      EXPECT_EQ(Block(to_wide, bytes, 16).thrown.empty(), v < 0x110000) << section;
      ++cases;
    } else if (section.starts_with("3.2.")) {  // lone lead bytes, each followed by a space
      for (long lead = hex_after(line, "(0x"); lead >= 0 && lead <= hex_after(line, "-0x");
           ++lead) {
        bytes = {static_cast<char>(lead), ' ', 'a', 'b', 'c', 'd', 'e'};
        EXPECT_EQ(Block(to_wide, bytes, 16).thrown, "CannotConvert") << lead;
        ++cases;
      }
    } else if (section.starts_with("3.3.")) {  // the last byte missing
      long v = std::max(hex_after(line, "(U+"), hex_after(line, "(U-"));
      bytes = EncodeUtf8(static_cast<std::uint32_t>(v), line[number] - '0');
      bytes.pop_back();
      Outcome o = Block(to_wide, bytes, 16, true);
      EXPECT_EQ(o.result, DC::ResultInputIncomplete) << line;
      EXPECT_EQ(o.in_size + o.out_size + o.in_pos, 7u) << line;
      EXPECT_EQ(count(bytes), 0u);
      EXPECT_EQ(Block(to_wide, bytes + "\"", 16).thrown, "CannotConvert") << line;
      concatenated += bytes;
      ++cases;
    } else if (section.starts_with("3.1.")) {  // n stray continuation bytes
      bytes.assign(section == "3.1.9" ? 64 : section[4] >= '3' ? section[4] - '1' : 1, 0);
      for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(0x80 + i);
      if (section == "3.1.2") bytes[0] = '\xBF';
      EXPECT_THROW(count(bytes), CannotConvertException) << line;
      ++cases;
    }
  }
  EXPECT_EQ(concatenated.size(), 30u);  // section 3.4: the ten cut-off sequences in a row
  EXPECT_EQ(Block(to_wide, concatenated, 64).thrown, "CannotConvert");
  EXPECT_GE(cases, 130);  // 133 case lines and lead bytes in the 2015 edition
}

// The block faces of the UTF-8 converters run whole runs in a tight loop; they must give exactly
// what converting one character per data-converter call gives (the generic block converter over
// the same data converter): result, sizes, positions, every output byte, and the exception.
void ExpectSameAsByCharacter(BlockConverter fast, const std::string& in,
                             const std::vector<unsigned>& rooms) {
  BlockConverter reference = BlockConverterExp::Make(fast->GetDataConverter(), 1.0f);
  for (unsigned room : rooms) {
    for (bool eoi : {false, true}) {
      ASSERT_EQ(Block(fast, in, room, eoi), Block(reference, in, room, eoi))
          << "room " << room << " input bytes " << in.size();
    }
  }
  ASSERT_EQ(Block(fast, in, 8, false, true), Block(reference, in, 8, false, true));
}

// Both UTF-8 forms: the lenient one and the standard one (which stops its loops at encoded
// surrogates, and pairs surrogates when encoding).
class Utf8FastPath : public ::testing::TestWithParam<bool> {
 protected:
  static TextEncoding Encoding() {
    return GetParam() ? TextEncodingExp::MakeStandardUTF8() : TextEncodingExp::MakeUTF8();
  }
};

INSTANTIATE_TEST_SUITE_P(Forms, Utf8FastPath, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Standard" : "Lenient"; });

TEST_P(Utf8FastPath, SameAsCharacterByCharacter) {
  TextEncoding utf8 = Encoding();
  BlockConverter to_wide = utf8->GetToWideConverter();
  BlockConverter from_wide = utf8->GetFromWideConverter();
  std::mt19937 rng(20240611);
  // Random mixes of valid sequences of every length, with malformed pieces sprinkled in.
  const std::uint32_t kTops[] = {0x80, 0x800, 0x10000, 0x110000, 0x200000, 0x80000000};
  for (int round = 0; round < 400; ++round) {
    std::string in;
    int pieces = static_cast<int>(rng() % 90);
    bool malformed = round % 4 == 3;
    for (int i = 0; i < pieces; ++i) {
      int kind = static_cast<int>(rng() % (round % 3 == 0 ? 3 : 7));
      if (kind == 0) {  // ASCII runs, long enough for the wide loops
        in.append(1 + rng() % 40, static_cast<char>('a' + rng() % 26));
        continue;
      }
      if (kind == 6) {  // runs of four-byte sequences, now and then one too large
        for (int n = 1 + static_cast<int>(rng() % 8); n > 0; --n) {
          in += EncodeUtf8(0x10000 + rng() % (round % 2 ? 0x100000 : 0x120000), 4);
        }
        continue;
      }
      std::uint32_t v = rng() % kTops[kind - 1 + (round % 7 == 0 ? 1 : 0)];
      in += EncodeUtf8(v, ShortestLength(v));
    }
    if (malformed && !in.empty()) {
      std::size_t at = rng() % in.size();
      const char kBad[] = {'\x80', '\xBF', '\xFE', '\xFF', '\xC0', '\xE0', '\xE2', '\xF0'};
      in[at] = kBad[rng() % sizeof kBad];
      // Overlong, surrogate, long and too large forms.
      const char* kForms[] = {"\xE0\x80\xAF",         "\xE0\x9F\xBF", "\xC1\xBF",
                              "\xF0\x8F\xBF\xBF",     "\xED\xA0\x80", "\xF4\x90\x80\x80",
                              "\xF8\x88\x80\x80\x80", "\xE2\x82",     "\xF0\x9F\x98"};
      in.insert(rng() % in.size(), kForms[rng() % 9]);
    }
    if (round % 5 == 4 && !in.empty()) in.pop_back();  // maybe cut the last sequence
    std::vector<unsigned> rooms;
    for (unsigned r = 0; r <= 2 * in.size() + 4; r += 1 + r / 16) rooms.push_back(r);
    ExpectSameAsByCharacter(to_wide, in, rooms);
    // Wide input: the decoded text when there is one, else the raw bytes as units.
    Outcome o = Block(to_wide, in, static_cast<unsigned>(2 * in.size()));
    std::string units = o.thrown.empty() ? o.buffer.substr(0, o.out_size) : in;
    if (GetParam() && round % 4 == 1 && units.size() >= 2) {  // a surrogate without its pair
      const char* lone = rng() % 2 ? "\x3D\xD8" : "\x00\xDE";
      units.insert(2 * (rng() % (units.size() / 2)), lone, 2);
    }
    if (round % 6 == 5) units.push_back('x');  // an odd trailing byte
    rooms.clear();
    for (unsigned r = 0; r <= 3 * units.size() / 2 + 4; r += 1 + r / 16) rooms.push_back(r);
    ExpectSameAsByCharacter(from_wide, units, rooms);
  }
}

TEST_P(Utf8FastPath, SameAsCharacterByCharacterOnCorpus) {
  std::string dir = testing::CorpusDir();
  if (dir.empty()) GTEST_SKIP() << "corpus folder ../shared/corpus not found";
  TextEncoding utf8 = Encoding();
  for (const char* script : {"Arabic", "Chinese", "Emoji", "Hebrew", "Hindi", "Japanese", "Korean",
                             "Latin", "Russian"}) {
    SCOPED_TRACE(script);
    std::string base = dir + "/unicode_lipsum/" + script + "-Lipsum";
    std::string u8 = testing::ReadFile(base + ".utf8.txt");
    std::string u16 = testing::ReadFile(base + ".utf16.txt");
    ASSERT_FALSE(u8.empty());
    std::vector<unsigned> rooms = {static_cast<unsigned>(4 * u8.size())};
    for (unsigned r = 1; r < 80; ++r) rooms.push_back(r);
    for (unsigned r : {255u, 256u, 1023u, 4096u, 65537u}) rooms.push_back(r);
    for (std::size_t start : {std::size_t{0}, std::size_t{1}, u8.size() / 3, u8.size() - 5}) {
      ExpectSameAsByCharacter(utf8->GetToWideConverter(), u8.substr(start), rooms);
    }
    for (std::size_t start : {std::size_t{0}, std::size_t{2}, u16.size() / 2 + 1}) {
      ExpectSameAsByCharacter(utf8->GetFromWideConverter(), u16.substr(start), rooms);
    }
  }
}

}  // namespace
}  // namespace kiv
