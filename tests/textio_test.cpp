// Text input streams, readers, writers and line mode.
#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

using kiv::testing::FakeInput;
using kiv::testing::FakeOutput;
using kiv::testing::U16;
using kiv::testing::Utf8;
using Strings = std::vector<std::string>;

TEST(Reader, TimeoutThrowsOnlyBeforeTheFirstByteOfALine) {
  // Reads 0 and 2 time out, read 1 gives "ab".
  kiv::SyncInputStream in(new FakeInput({{"", true}, {"ab"}, {"", true}, {"c\nd"}}));
  kiv::Reader reader =
      kiv::ReaderExp::Make(kiv::TextInputStreamExp::Make(in, kiv::BufferExp::Make(16),
                                                         kiv::TextEncodingExp::MakeAscii()),
                           -1);
  kiv::String line;
  EXPECT_THROW(reader->ReadLine(line), kiv::IOTimeoutException);
  Strings lines;
  while (reader->ReadLine(line)) lines.push_back(Utf8(line));
  EXPECT_EQ(lines, (Strings{"ab", "c\n", "d"}));  // "ab" cut short by the time-out
  EXPECT_TRUE(line->IsEmpty());
  EXPECT_FALSE(reader->ReadLine(line));  // and stays at the end
}

// The first `n` results of ReadChar over `text` through an 8-byte read-ahead buffer.
std::vector<std::uint32_t> ReadChars(const std::string& text, const kiv::TextEncoding& encoding,
                                     unsigned max_read, std::size_t n) {
  kiv::SyncInputStream in(new FakeInput(text, {max_read}));
  kiv::TextInputStream tis = kiv::TextInputStreamExp::Make(in, kiv::BufferExp::Make(8), encoding);
  std::vector<std::uint32_t> got;
  while (got.size() < n) got.push_back(tis->ReadChar(-1));
  return got;
}

// Each character comes back as one 16-bit unit; one that needs two (above U+FFFF in UTF-8 or
// UTF-32) is consumed and reads as 0. Shifting the text by a prefix puts every character across
// the end of the 8-byte read-ahead buffer once, with the wrapped stream giving all it has or one
// byte per read.
TEST(TextInputStream, ReadCharGivesOneUnitPerCharacterWhereverTheBufferEnds) {
  struct Case {
    kiv::TextEncoding encoding;
    std::string unit_x;  // the character x in the encoding
    std::string text;
    std::vector<std::uint32_t> chars;
  };
  const std::u32string wide32 = U"a\u00E9\u20AC\U0001F600b";
  const Case cases[] = {
      {kiv::TextEncodingExp::MakeUTF8(),
       "x",
       "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z",
       {'a', 0xE9, 0x20AC, 0, 'z'}},
      {kiv::TextEncodingExp::MakeUTF16(),
       U16(u"x"),
       U16(u"a\u00E9\u20AC\U0001F600b"),
       {'a', 0xE9, 0x20AC, 0xD83D, 0xDE00, 'b'}},
      {kiv::TextEncodingExp::MakeUTF32(),
       std::string("x\0\0\0", 4),
       std::string(reinterpret_cast<const char*>(wide32.data()), wide32.size() * 4),
       {'a', 0xE9, 0x20AC, 0, 'b'}},
      {kiv::TextEncodingExp::MakeAscii(), "x", "a\xE9\x7F", {'a', 0xFFE9, 0x7F}},
  };
  for (const Case& k : cases) {
    for (unsigned shift = 0; shift < 8; ++shift) {
      for (unsigned max_read : {UINT_MAX, 1u}) {
        SCOPED_TRACE(::testing::Message() << k.encoding->UnitBits() << "-bit units, shift " << shift
                                          << ", read " << max_read);
        std::string text;
        for (unsigned n = 0; n < shift; ++n) text += k.unit_x;
        std::vector<std::uint32_t> expected(shift, 'x');
        expected.insert(expected.end(), k.chars.begin(), k.chars.end());
        expected.push_back(0);  // end of data
        EXPECT_EQ(ReadChars(text + k.text, k.encoding, max_read, expected.size()), expected);
      }
    }
  }
  // Malformed UTF-8 and a character cut off by the end of data read as 0 and are consumed.
  EXPECT_EQ(ReadChars(std::string("\xFF") + "b\xE2\x82", kiv::TextEncodingExp::MakeUTF8(), 1, 4),
            (std::vector<std::uint32_t>{0, 'b', 0, 0}));
  // The reader forwards: a character above U+FFFF is a failed read, then the next one follows.
  kiv::Reader reader = kiv::testing::MakeReader(cases[0].text, kiv::TextEncodingExp::MakeUTF8());
  unsigned short unit = 1;
  std::uint32_t c = 0;
  for (int i = 0; i < 3; ++i) reader->ReadChar(c);
  EXPECT_FALSE(reader->ReadChar(unit));
  EXPECT_EQ(unit, 0);
  EXPECT_TRUE(reader->ReadChar(c));
  EXPECT_EQ(c, 'z');
}

TEST(TextInputStream, ReadLineNeverWritesPastTheRoomGiven) {
  kiv::SyncInputStream in(new FakeInput(U16(u"abcdef\n")));
  kiv::TextInputStream tis = kiv::TextInputStreamExp::Make(in, kiv::BufferExp::Make(64),
                                                           kiv::TextEncodingExp::MakeUTF16());
  char out[16] = "###############";
  EXPECT_EQ(tis->ReadLine(out, 5, -1), 4u);  // whole units only
  EXPECT_EQ(out[4], '#');
  EXPECT_EQ(tis->ReadLine(out, 16, -1), 10u);
  EXPECT_EQ(std::string(out, 10), U16(u"cdef\n"));
  EXPECT_EQ(tis->ReadLine(out, 16, -1), 0u);
}

TEST(Writer, TextNumbersAndCharacters) {
  using kiv::Writer;
  using kiv::testing::WrittenText;
  // C text is sent unchanged or converted; an ASCII writer writes '.' for what it cannot hold.
  EXPECT_EQ(
      WrittenText([](Writer& w) { w->Write("abc\xC3\xA9"); }, kiv::TextEncodingExp::MakeAscii()),
      "abc.");
  EXPECT_EQ(WrittenText([](Writer& w) {
              w->Write("\xC3\xA9 "), w->Write(INT32_MIN), w->Write(' '), w->Write(UINT32_MAX);
              w->Write(' '), w->Write(INT64_MIN), w->Write(' '), w->Write(UINT64_MAX);
              w->Write(' '), w->Write(0.5), w->Write(' '), w->WriteHex(255, 4);
              w->WriteChar(0x20AC), w->WriteChar(0x1F600), w->Write('\xE9');  // Latin-1
              w->NewLine();
            }),
            "\xC3\xA9 -2147483648 4294967295 -9223372036854775808 18446744073709551615 0.5 00ff"
            "\xE2\x82\xAC\xF0\x9F\x98\x80\xC3\xA9\n");
  EXPECT_EQ(WrittenText(
                [](Writer& w) {
                  w->Write("a\xC3\xA9"), w->Write(42), w->WriteChar(0x1F600);
                  w->WriteLine(kiv::testing::Wide("ok"));
                },
                kiv::TextEncodingExp::MakeUTF16()),
            U16(u"a\u00E942\U0001F600ok\n"));
  EXPECT_THROW(WrittenText([](Writer& w) { w->WriteChar(0x110000); }), kiv::CannotConvertException);
}

TEST(LineMode, EachCompletedLineGoesOutWholeAndUnchangedAndRefusalsAreReported) {
  auto* raw = new FakeOutput();
  kiv::SyncOutputStream out(raw);
  {
    kiv::Writer writer = kiv::WriterExp::Make(kiv::TextEncodingExp::MakeUTF8(), out);
    writer->SetLineMode(true);
    writer->Write("one ");
    writer->Write("two\r\nthree ");
    writer->Write(5);
    EXPECT_EQ(raw->pieces, (Strings{"one two\r\n"}));
    writer->NewLine();
    writer->Write("held");
    writer->Flush();  // hands on the unfinished line and flushes the sink
    EXPECT_EQ(raw->flushes, 1);
    writer->Write("a\nb\nc");    // two lines in one write
    writer->SetLineMode(false);  // hands on what is held, keeping the order
    writer->Write(" raw");
    writer->SetLineMode(true);
    writer->Write("unterminated");
  }  // releasing the writer hands on what is held
  EXPECT_EQ(raw->pieces,
            (Strings{"one two\r\n", "three 5\n", "held", "a\nb\n", "c", " raw", "unterminated"}));

  // Line feeds are found only at unit boundaries: U+010A holds the byte 0x0A.
  raw->pieces.clear();
  kiv::SyncOutputStream line =
      kiv::LineModeSyncOutputStreamExp::Make(out, kiv::TextEncodingExp::MakeUTF16());
  for (char c : U16(u"a\u010A\nc\n")) line->Write(static_cast<unsigned char>(c));
  EXPECT_EQ(raw->pieces, (Strings{U16(u"a\u010A\n"), U16(u"c\n")}));

  // A sink that refuses is reported; what line mode holds waits for it.
  kiv::Writer refused = kiv::WriterExp::Make(kiv::TextEncodingExp::MakeUTF8(),
                                             kiv::SyncOutputStream(new FakeOutput(2)));
  EXPECT_FALSE(refused->Write("abcd"));
  EXPECT_EQ(refused->WriteBytes("xy", 2), 0u);
  kiv::SyncOutputStream held = kiv::LineModeSyncOutputStreamExp::Make(
      kiv::SyncOutputStream(new FakeOutput(3)), kiv::TextEncodingExp::MakeAscii());
  EXPECT_EQ(held->Write("abcdef\n", 7), 7u);  // held: the sink took only "abc"
  EXPECT_EQ(held->Write("x", 1), 0u);         // still refused: nothing taken
}

}  // namespace
