#include <kiv/buffer.h>
#include <kiv/exception.h>
#include <kiv/streams.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using testing::FakeInput;
using testing::FakeOutput;

Buffer BufferOf(const std::string& s) {
  Buffer b = BufferExp::Make(static_cast<unsigned>(s.size()));
  std::memcpy(b->GetData(), s.data(), s.size());
  return b;
}

std::string Text(const Buffer& b, std::size_t n) {
  return std::string(static_cast<const char*>(b->GetData()), n);
}

std::string ReadSome(SyncInputStream& s, unsigned count) {
  std::string out(count, '\0');
  out.resize(s->Read(out.data(), count, -1));
  return out;
}

std::int64_t BoundsPayload(StreamMarkerItf& m, std::int64_t pos) {
  return testing::ThrownWhat<BoundsException>([&] { m.SetPosition(pos); });
}

TEST(BufferStreams, EdgesAndMarkers) {
  SyncInputStream in = SyncInputStreamExp::Make(BufferOf("abcde"));
  EXPECT_EQ(ReadSome(in, 3), "abc");
  EXPECT_EQ(ReadSome(in, 9), "de");
  Ref<StreamMarkerItf> m = static_cast<const SyncInputStreamItf&>(*in).ToStreamMarker();
  EXPECT_EQ(m->GetLength(), 5);
  m->SetPosition(5);  // exactly at the end is allowed
  EXPECT_EQ(in->Read(-1), -1);
  for (std::int64_t bad : {std::int64_t{6}, std::int64_t{-1}, std::int64_t{1} << 32}) {
    EXPECT_EQ(BoundsPayload(*m, bad), bad);
  }

  // Output fills up and keeps its high-water mark.
  Buffer b = BufferExp::Make(4);
  SyncOutputStream out = SyncOutputStreamExp::Make(b);
  m = out->ToStreamMarker();
  EXPECT_EQ(BoundsPayload(*m, 1), 1);  // nothing written yet
  EXPECT_EQ(out->Write("abc", 3), 3u);
  m->SetPosition(1);
  EXPECT_TRUE(out->Write(static_cast<unsigned char>('X')));
  EXPECT_EQ(m->GetLength(), 3);  // overwriting does not move the mark
  EXPECT_EQ(out->Write("yz", 2), 2u);
  EXPECT_EQ(out->Write("q", 1), 0u);
  EXPECT_EQ(Text(b, 4), "aXyz");
}

TEST(BufferedInput, ReportsWrappedPositionsBypassesForLargeReadsAndReadsOncePerCall) {
  SyncInputStream raw = SyncInputStreamExp::Make(BufferOf("0123456789"));
  Ref<StreamMarkerItf> rawMarker = raw->ToStreamMarker();
  rawMarker->SetPosition(2);
  SyncInputStream in = SyncInputStreamExp::Make(raw, BufferExp::Make(4));
  Ref<StreamMarkerItf> m = in->ToStreamMarker();
  EXPECT_EQ(m->GetPosition(), 2);
  EXPECT_EQ(ReadSome(in, 1), "2");    // fills 2345
  EXPECT_EQ(ReadSome(in, 9), "345");  // the rest of the buffer only
  m->SetPosition(3);                  // inside the window: served from the buffer
  EXPECT_EQ(in->Read(-1), '3');
  EXPECT_EQ(rawMarker->GetPosition(), 6);
  m->SetPosition(8);  // outside: the wrapped stream moves
  EXPECT_EQ(ReadSome(in, 9), "89");
  EXPECT_EQ(BoundsPayload(*m, 11), 11);
  EXPECT_EQ(m->GetPosition(), 10);  // a refused move changes nothing

  // Large reads bypass the buffer and keep positions.
  in = SyncInputStreamExp::Make(SyncInputStreamExp::Make(BufferOf("abcdefghijklmnop")),
                                BufferExp::Make(4));
  m = in->ToStreamMarker();
  EXPECT_EQ(ReadSome(in, 2), "ab");  // buffer holds abcd
  EXPECT_EQ(ReadSome(in, 8), "cd");
  EXPECT_EQ(ReadSome(in, 8), "efghijkl");  // straight from the wrapped stream
  EXPECT_EQ(m->GetPosition(), 12);
  m->SetPosition(10);  // must not land in the bytes buffered before the direct read
  EXPECT_EQ(ReadSome(in, 2), "kl");

  // Over a trickle, one wrapped read per call.
  auto* trickle = new FakeInput("abcdefghij", {3});
  in = SyncInputStreamExp::Make(SyncInputStream(trickle), BufferExp::Make(5));
  EXPECT_THROW(in->ToStreamMarker(), NotRandomAccessException);
  EXPECT_EQ(ReadSome(in, 4), "abc");  // one fill of 5 brought only 3
  EXPECT_EQ(in->Read(std::int64_t{77}), 'd');
  std::string big(6, '\0');  // the buffer holds "ef": served first, no wrapped read
  EXPECT_EQ(in->Read(big.data(), 6, -1), 2u);
  EXPECT_EQ(in->Read(big.data(), 6, 5), 3u);  // empty buffer, count >= capacity: direct
  EXPECT_EQ(big.substr(0, 3), "ghi");
  EXPECT_EQ(trickle->counts, (std::vector<unsigned>{5, 5, 6}));
  EXPECT_EQ(trickle->timeouts, (std::vector<std::int64_t>{-1, 77, 5}));  // the caller's, unchanged
}

TEST(BufferedOutput, FlushIsOneWrappedWriteReleaseDropsPendingAndLargeWritesGoStraight) {
  auto* sink = new FakeOutput(UINT_MAX, 3);
  SyncOutputStream sinkRef(sink);
  {
    SyncOutputStream out = SyncOutputStreamExp::Make(sinkRef, BufferExp::Make(8));
    EXPECT_EQ(out->Write("abcdefg", 7), 7u);
    out->Flush();
    EXPECT_EQ(sink->text, "abc");
    out->Flush();
    EXPECT_EQ(sink->text, "abcdef");
    EXPECT_EQ(out->Write("hi", 2), 2u);  // pending "ghi" after the moved rest
  }
  EXPECT_EQ(sink->text, "abcdef");
  EXPECT_EQ(sink->writes, 2);

  // A full buffer flushes once, then stores.
  auto* sink1 = new FakeOutput(UINT_MAX, 2);
  SyncOutputStream out1 = SyncOutputStreamExp::Make(SyncOutputStream(sink1), BufferExp::Make(4));
  EXPECT_EQ(out1->Write("abcdef", 6), 6u);  // 4 fit, one flush takes 2, 2 more fit
  EXPECT_EQ(sink1->text, "ab");
  EXPECT_TRUE(out1->Write(static_cast<unsigned char>('g')));  // full: flush "cd", then store
  EXPECT_EQ(sink1->text, "abcd");
  // Straight through when the rest exceeds the buffer; what the flush left pending is dropped.
  auto* sink2 = new FakeOutput(UINT_MAX, 3);
  SyncOutputStream out2 = SyncOutputStreamExp::Make(SyncOutputStream(sink2), BufferExp::Make(4));
  EXPECT_EQ(out2->Write("ab", 2), 2u);
  EXPECT_EQ(out2->Write("0123456789", 10), 5u);  // 2 buffered + 3 taken straight
  EXPECT_EQ(sink2->text, "ab0234");
  out2->Flush();
  EXPECT_EQ(sink2->writes, 2);
}

TEST(BufferedOutput, MarkerBookkeepingOverRandomAccessStream) {
  Buffer store = BufferExp::Make(32);
  SyncOutputStream raw = SyncOutputStreamExp::Make(store);
  SyncOutputStream out = SyncOutputStreamExp::Make(raw, BufferExp::Make(4));
  Ref<StreamMarkerItf> m = out->ToStreamMarker();
  EXPECT_EQ(out->Write("abc", 3), 3u);
  EXPECT_EQ(m->GetLength(), 3);  // pending bytes count
  m->SetPosition(1);             // inside the pending window
  EXPECT_TRUE(out->Write(static_cast<unsigned char>('B')));
  out->Flush();
  EXPECT_EQ(m->GetPosition(), 3);  // a cursor behind the flushed bytes lands after them
  m->SetPosition(3);
  EXPECT_EQ(out->Write("de", 2), 2u);
  out->Flush();
  // Straight through, the bytes buffered before the flush count twice: the position runs ahead.
  EXPECT_EQ(out->Write("wx", 2), 2u);
  EXPECT_EQ(out->Write("yz0123456", 9), 9u);  // 2 fit, flush 4, straight 7 (> capacity)
  EXPECT_EQ(raw->ToStreamMarker()->GetPosition(), 16);
  EXPECT_EQ(m->GetPosition(), 18);
  EXPECT_EQ(Text(store, 16), "aBcdewxyz0123456");
  EXPECT_EQ(out->Write("!", 1), 1u);
  EXPECT_EQ(out->Write("ABCDEF", 6), 6u);  // 3 fit, flush 4, 3 left (not > capacity)
  EXPECT_EQ(m->GetPosition(), 25);
  EXPECT_EQ(m->GetLength(), 25);         // beyond the wrapped stream's 20
  EXPECT_EQ(BoundsPayload(*m, 40), 40);  // outside the window: the wrapped stream refuses
}

TEST(FileAndNullStreams, FilesAreLeftOpenNullStreamsAreEmptyAndDefaultsWork) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  {
    SyncOutputStream out = SyncOutputStreamExp::Make(f);
    EXPECT_EQ(out->Write("hello", 5), 5u);
    EXPECT_TRUE(out->Write(static_cast<unsigned char>('!')));
    out->Flush();
    EXPECT_THROW(out->ToStreamMarker(), NotRandomAccessException);
  }
  std::rewind(f);
  SyncInputStream in = SyncInputStreamExp::Make(f);
  EXPECT_EQ(in->Read(-1), 'h');
  EXPECT_EQ(ReadSome(in, 10), "ello!");
  in = SyncInputStreamExp::Make();  // a null stream; the file stays open
  EXPECT_EQ(std::fclose(f), 0);
  // Null streams, and the defaults over a bulk-only stream.
  EXPECT_EQ(in->Read(-1), -1);
  EXPECT_EQ(SyncOutputStreamExp::Make()->Write("abc", 3), 3u);
  SyncInputStream trickle(new FakeInput("\xff"));
  EXPECT_EQ(trickle->Read(-1), 255);
  EXPECT_EQ(trickle->Read(-1), -1);
  SyncOutputStream refusing(new FakeOutput(0));
  EXPECT_FALSE(refusing->Write(static_cast<unsigned char>('x')));
}

}  // namespace
}  // namespace kiv
