// Stream filters: the kept chunked coding, the converting streams, the small filters, and the
// thread-safe output stream.
#include <gtest/gtest.h>
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/filters.h>
#include <kiv/streams.h>
#include <kiv/textio.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"

namespace {

using kiv::testing::Bytes;
using kiv::testing::FakeInput;
using kiv::testing::FakeOutput;
using kiv::testing::ReadAll;
using kiv::testing::ThrownText;
using kiv::testing::Wide;

std::string Decode(const std::string& wire, unsigned count) {
  return ReadAll(kiv::ChunkedSyncIOStreamExp::Make(kiv::SyncInputStream(new FakeInput(wire))),
                 count);
}

// The kept rules, one case each; the chunked_decode fuzz target holds the decoder to a model of
// them over any input.
TEST(ChunkedInput, DecodesAsTheKeptRulesSay) {
  const std::string tail = "\r\n0123456789abcdef0123\r\n0\r\n";
  const struct {
    std::string wire;
    unsigned count;
    std::string expected;
  } cases[] = {
      // Lines that are not size lines are skipped: empty, no CR, a lone CR.
      {"\r\n5\n\r\n5\r\nhello\r\n0\r\n", 5, "hello"},
      {"3\r\nabc\r\n0\r\n\r\n", 100, "abc\r\n0\r\n\r\n"},  // a long read takes framing as data
      {"3\r\nabcXY3\r\ndef\r\n0\r\n", 3, "abc"},           // a chunk not closed by CR LF ends it
      // Sizes are read as strtoul reads them into 32 bits; no digits read as the last chunk.
      {" +0x10;x" + tail, 16, "0123456789abcdef"},
      {std::string("10\0ff", 5) + tail, 16, "0123456789abcdef"},
      {"zz" + tail, 16, ""},
      {"-1" + tail, 7, tail.substr(2)},
      {"123456789abcdef" + tail, 7, tail.substr(2)},
      // 63 bytes and the line feed is the longest size line; a longer one is dropped.
      {std::string(61, '0') + "3\r\nabc\r\n0\r\n", 3, "abc"},
      {std::string(62, '0') + "9\r\n3\r\nabc\r\n0\r\n", 3, "abc"},
      {std::string(1 << 20, 'f'), 100, ""},  // an endless size line ends the body
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Decode(c.wire, c.count), c.expected) << c.wire.substr(0, 40);
  }
  // Capped, reads stop at the chunk's end.
  EXPECT_EQ(ReadAll(kiv::ChunkedSyncIOStreamExp::MakeCapped(
                        kiv::SyncInputStream(new FakeInput("3\r\nab\n\r\n2\r\ncd\r\n0\r\n\r\n"))),
                    100),
            "ab\ncd");
}

TEST(ChunkedInput, ATimeoutInsideTheFramingResumesWhereItStruck) {
  auto* raw =
      new FakeInput({{"1"}, {"", true}, {"0\r\n0123456789abcdef\r"}, {"", true}, {"\n0\r\n"}});
  kiv::SyncInputStream chunked = kiv::ChunkedSyncIOStreamExp::Make(kiv::SyncInputStream(raw));
  char buf[16];
  EXPECT_THROW(chunked->Read(buf, 16, -1), kiv::IOTimeoutException);
  EXPECT_EQ(chunked->Read(buf, 16, -1), 16u);  // the size line "10" read whole
  EXPECT_EQ(chunked->Read(buf, 16, -1), 0u);   // the chunk's LF, then the last chunk
  EXPECT_EQ(raw->Rest(), "");
}

// The chunk format itself the chunked_round_trip fuzz target pins for any writes.
TEST(ChunkedOutput, WritesTheLastChunkAndFlushesOnlyOnRelease) {
  auto* raw = new FakeOutput();
  kiv::SyncOutputStream sink(raw);
  {
    kiv::SyncOutputStream chunked = kiv::ChunkedSyncIOStreamExp::Make(sink);
    EXPECT_EQ(chunked->Write("abc", 3), 3u);
    EXPECT_EQ(raw->flushes, 0);
  }
  EXPECT_EQ(raw->text, "3\r\nabc\r\n0\r\n\r\n");
  EXPECT_EQ(raw->flushes, 1);
  // One wrapped write per part: what a sink leaves of the header or the line break is not
  // examined, and the count returned is what it took of the data.
  auto* narrow = new FakeOutput(UINT_MAX, 3);
  kiv::SyncOutputStream narrow_sink(narrow);
  EXPECT_EQ(kiv::ChunkedSyncIOStreamExp::Make(narrow_sink)->Write("abcdefghij", 10), 3u);
  EXPECT_EQ(narrow->text, "a\r\nabc\r\n0\r\n");
}

TEST(FixedLength, EndsAtTheLimitAndAtAnEarlyEnd) {
  auto* raw = new FakeInput("abcdef");
  kiv::SyncInputStream wrapped(raw);
  kiv::SyncInputStream none = kiv::FixedLengthSyncInputStreamExp::Make(wrapped, 0);
  char buf[8];
  EXPECT_EQ(none->Read(buf, 8, -1), 0u);
  EXPECT_TRUE(raw->timeouts.empty());  // the wrapped stream was never read
  EXPECT_EQ(ReadAll(kiv::FixedLengthSyncInputStreamExp::Make(wrapped, 4), 3), "abcd");
  EXPECT_EQ(raw->Rest(), "ef");
  kiv::SyncInputStream longer = kiv::FixedLengthSyncInputStreamExp::Make(wrapped, 10);
  EXPECT_EQ(ReadAll(longer, 8), "ef");
  EXPECT_EQ(longer->Read(-1), -1);
}

TEST(ConsumeAll, DrainsOnReleaseUnlessAtTheEnd) {
  auto* raw = new FakeInput(std::string(10000, 'x'));
  kiv::SyncInputStream wrapped(raw);
  {
    char buf[10];
    kiv::ConsumeAllSyncInputStreamExp::Make(wrapped, 42)->Read(buf, 10, -1);
  }
  EXPECT_EQ(raw->Rest(), "");
  EXPECT_EQ(raw->timeouts.back(), 42);
  const size_t reads = raw->timeouts.size();
  {
    kiv::SyncInputStream s = kiv::ConsumeAllSyncInputStreamExp::Make(wrapped, 42);
    EXPECT_EQ(s->Read(-1), -1);
  }
  EXPECT_EQ(raw->timeouts.size(), reads + 1);  // no draining after the end was seen
  // A failure while draining is dropped.
  kiv::SyncInputStream failing(new FakeInput({{"abc"}, {"", true}}));
  EXPECT_NO_THROW(kiv::ConsumeAllSyncInputStreamExp::Make(failing, 0));
}

TEST(DefaultTimeout, ReplacesOnlyNegativeTimeouts) {
  auto* raw = new FakeInput("abcd");
  kiv::SyncInputStream s =
      kiv::DefaultTimeoutSyncInputStreamExp::Make(kiv::SyncInputStream(raw), 500);
  char c;
  s->Read(&c, 1, -1);
  s->Read(&c, 1, 0);
  s->Read(&c, 1, 7);
  s->Read(-5);
  EXPECT_EQ(raw->timeouts, (std::vector<std::int64_t>{500, 0, 7, 500}));
}

TEST(Tee, CopiesWhatTheFirstAcceptedAndDropsTheSecondsFailures) {
  auto* first = new FakeOutput(3);
  auto* second = new FakeOutput();
  kiv::SyncOutputStream tee =
      kiv::SyncOutputStreamExp::Make(kiv::SyncOutputStream(first), kiv::SyncOutputStream(second));
  EXPECT_EQ(tee->Write("0123456789", 10), 3u);
  EXPECT_EQ(second->text, "012");
  EXPECT_FALSE(tee->Write(static_cast<unsigned char>('x')));
  second->fails = true;
  auto* roomy = new FakeOutput();
  kiv::SyncOutputStream tee2 =
      kiv::SyncOutputStreamExp::Make(kiv::SyncOutputStream(roomy), kiv::SyncOutputStream(second));
  EXPECT_EQ(tee2->Write("ab", 2), 2u);
  EXPECT_TRUE(tee2->Write(static_cast<unsigned char>('c')));
  EXPECT_EQ(roomy->text, "abc");
  EXPECT_THROW(tee2->ToStreamMarker(), kiv::NotRandomAccessException);

  char a[8], b[8];
  kiv::SyncOutputStream sa = kiv::SyncOutputStreamExp::Make(kiv::BufferExp::Make(a, 8));
  kiv::SyncOutputStream sb = kiv::SyncOutputStreamExp::Make(kiv::BufferExp::Make(b, 8));
  kiv::SyncOutputStream both = kiv::SyncOutputStreamExp::Make(sa, sb);
  both->Write("abcd", 4);
  both->ToStreamMarker()->SetPosition(1);
  both->Write("X", 1);
  EXPECT_EQ(std::string(a, 4), "aXcd");
  EXPECT_EQ(std::string(b, 4), "aXcd");
}

TEST(LoggingInput, LogsWhatIsReadAndMarkerMoves) {
  char bytes[] = "ab\0cdefghijklmnop";
  auto* log = new FakeOutput();
  kiv::SyncInputStream in = kiv::SyncInputStreamExp::Make(
      kiv::SyncInputStreamExp::Make(kiv::BufferExp::Make(bytes, 17)), kiv::SyncOutputStream(log));
  char buf[2];
  EXPECT_EQ(in->Read(buf, 2, -1), 2u);
  EXPECT_EQ(in->Read(-1), 0);  // a zero byte read singly is not logged
  EXPECT_EQ(in->Read(-1), 'c');
  EXPECT_EQ(log->text, "abc");
  kiv::Ref<kiv::StreamMarkerItf> marker = in->ToStreamMarker();
  marker->SetPosition(10);
  log->text.clear();
  marker->SetPosition(10);
  EXPECT_EQ(log->text, "");
  marker->SetPosition(4);
  EXPECT_EQ(log->text, "\n### INPUT MARKER RESET FROM 10 TO 4\n");
  EXPECT_EQ(marker->GetPosition(), 4);
  EXPECT_THROW(marker->SetPosition(100), kiv::BoundsException);
  kiv::SyncInputStream plain = kiv::SyncInputStreamExp::Make(
      kiv::SyncInputStream(new FakeInput("x")), kiv::SyncOutputStream(log));
  EXPECT_FALSE(plain->IsRandomAccess());
  EXPECT_THROW(plain->ToStreamMarker(), kiv::NotRandomAccessException);
}

// Lines of characters of one to four bytes in UTF-8.
std::string Utf8Sample(int lines) {
  std::string s;
  for (int i = 0; i < lines; ++i) s += "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 line\n";
  return s;
}

TEST(ConvertingInput, DeliversWhatTheBlockConverterMakesWhateverTheReadSizes) {
  const std::string text = Utf8Sample(200), expected = Bytes(Wide(text.c_str()));
  for (unsigned read_size : {1u, 3u, 1000u}) {
    for (unsigned max_read : {1u, UINT_MAX}) {
      kiv::SyncInputStream in =
          kiv::SyncInputStreamExp::Make(kiv::SyncInputStream(new FakeInput(text, {max_read})),
                                        kiv::TextEncodingExp::MakeUTF8()->GetToWideConverter());
      EXPECT_TRUE(ReadAll(in, read_size) == expected) << read_size << " " << max_read;
    }
  }
  // Once it holds data for the caller it does not wait again.
  auto* raw = new FakeInput("abcdefgh", {2});
  kiv::SyncInputStream copy =
      kiv::SyncInputStreamExp::Make(kiv::SyncInputStream(raw), kiv::BlockCopyConverterExp::Make());
  char buf[8];
  EXPECT_EQ(copy->Read(buf, 8, 1234), 8u);
  EXPECT_EQ(raw->timeouts, (std::vector<std::int64_t>{1234, 0, 0, 0}));
}

// Asks for 3 bytes per character and never manages to convert into them.
class StubbornConverter : public kiv::BlockConverterItf {
 public:
  kiv::DataConverter GetDataConverter() override { return kiv::DataConverter(); }
  double GetExpansionFactor() override { return 1.0; }
  BufferResult ComputeSizes(unsigned& out_size, unsigned, const void*, unsigned&, unsigned,
                            bool) override {
    out_size = 3;
    return kiv::DataConverterItf::ResultOK;
  }
  BufferResult Convert(void*, unsigned& out_size, unsigned&, const void*, unsigned& in_size,
                       unsigned&, bool) override {
    out_size = 3;
    in_size = 1;
    return kiv::DataConverterItf::ResultOutputTooSmall;
  }
};

TEST(ConvertingInput, ThrowsTheNeededSizeWhenEvenTheOverflowStoreFails) {
  kiv::SyncInputStream in = kiv::SyncInputStreamExp::Make(
      kiv::SyncInputStream(new FakeInput("abc")), kiv::BlockConverter(new StubbornConverter()));
  char buf[2];
  EXPECT_EQ(ThrownText<kiv::DataConverterBufferException>([&] { in->Read(buf, 2, -1); }),
            "kiv::DataConverterBufferException - 3");
}

TEST(ConvertingOutput, ConvertsLargeWritesAndDropsAnIncompleteTail) {
  const kiv::String wide = Wide(Utf8Sample(600).c_str());
  // What the block converter makes of it (it writes surrogates one by one).
  const std::string text = Bytes(wide->Encode(kiv::TextEncodingExp::MakeUTF8()));
  auto* raw = new FakeOutput();
  kiv::SyncOutputStream out = kiv::SyncOutputStreamExp::Make(
      kiv::SyncOutputStream(raw), kiv::TextEncodingExp::MakeUTF8()->GetFromWideConverter());
  EXPECT_EQ(out->Write(wide->GetData(), wide->ByteLength()), wide->ByteLength());
  EXPECT_TRUE(raw->text == text);
  EXPECT_EQ(out->Write("a\0b", 3), 2u);  // the odd byte is not a whole unit
  EXPECT_TRUE(raw->text == text + "a");
}

TEST(ThreadSafeOutput, EveryWriteLandsWhole) {
  // Writers in line mode hand each line over in one Write; the lock keeps it whole and the sink's
  // bookkeeping free of races.
  auto* raw = new FakeOutput();
  kiv::SyncOutputStream shared = kiv::MTSyncIOStreamExp::Make(kiv::SyncOutputStream(raw));
  constexpr int kThreads = 4, kLines = 300;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&shared, t] {
      kiv::Writer writer = kiv::WriterExp::Make(kiv::TextEncodingExp::MakeUTF8(), shared);
      writer->SetLineMode(true);
      for (std::int32_t i = 0; i < kLines; ++i) {
        writer->Write(static_cast<std::int32_t>(t));
        writer->Write(":");
        writer->Write(i);
        writer->NewLine();
      }
    });
  }
  for (auto& th : threads) th.join();
  std::vector<int> next(kThreads, 0);
  for (size_t pos = 0, end; (end = raw->text.find('\n', pos)) != std::string::npos; pos = end + 1) {
    const std::string line = raw->text.substr(pos, end - pos);
    int t = -1, i = -1;
    ASSERT_EQ(std::sscanf(line.c_str(), "%d:%d", &t, &i), 2) << line;
    ASSERT_EQ(line, std::to_string(t) + ":" + std::to_string(i));
    ASSERT_EQ(i, next[t]++) << line;
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

}  // namespace
