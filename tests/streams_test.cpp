#include <kiv/buffer.h>
#include <kiv/exception.h>
#include <kiv/streams.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

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
  try {
    m.SetPosition(pos);
  } catch (const BoundsException& e) {
    return e.What();
  }
  return -12345;
}

TEST(BufferStreams, InputEdgesAndMarker) {
  SyncInputStream in = SyncInputStreamExp::Make(BufferOf("abcde"));
  EXPECT_TRUE(in->IsRandomAccess());
  EXPECT_EQ(ReadSome(in, 3), "abc");
  EXPECT_EQ(ReadSome(in, 9), "de");
  EXPECT_EQ(ReadSome(in, 9), "");
  EXPECT_EQ(in->Read(-1), -1);

  Ref<StreamMarkerItf> m = static_cast<const SyncInputStreamItf&>(*in).ToStreamMarker();
  EXPECT_EQ(m->GetLength(), 5);
  m->SetPosition(5);  // exactly at the end is allowed
  EXPECT_EQ(in->Read(-1), -1);
  EXPECT_EQ(BoundsPayload(*m, 6), 6);
  EXPECT_EQ(BoundsPayload(*m, -1), -1);
  EXPECT_EQ(BoundsPayload(*m, std::int64_t{1} << 32), std::int64_t{1} << 32);
  m->SetPosition(4);
  EXPECT_EQ(in->Read(-1), 'e');
  EXPECT_EQ(m->GetPosition(), 5);
}

TEST(BufferStreams, OutputFillsUpAndKeepsHighWaterMark) {
  Buffer b = BufferExp::Make(4);
  SyncOutputStream out = SyncOutputStreamExp::Make(b);
  Ref<StreamMarkerItf> m = out->ToStreamMarker();
  EXPECT_EQ(m->GetLength(), 0);
  EXPECT_EQ(BoundsPayload(*m, 1), 1);  // nothing written yet
  EXPECT_EQ(out->Write("abc", 3), 3u);
  m->SetPosition(1);
  EXPECT_TRUE(out->Write(static_cast<unsigned char>('X')));
  EXPECT_EQ(m->GetLength(), 3);  // overwriting does not move the mark
  EXPECT_EQ(out->Write("yz", 2), 2u);
  EXPECT_EQ(m->GetLength(), 4);
  EXPECT_EQ(out->Write("q", 1), 0u);
  EXPECT_FALSE(out->Write(static_cast<unsigned char>('q')));
  EXPECT_EQ(Text(b, 4), "aXyz");
}

TEST(BufferedInput, OverRandomAccessStreamReportsWrappedPositions) {
  SyncInputStream raw = SyncInputStreamExp::Make(BufferOf("0123456789"));
  Ref<StreamMarkerItf> rawMarker = raw->ToStreamMarker();
  rawMarker->SetPosition(2);
  SyncInputStream in = SyncInputStreamExp::Make(raw, BufferExp::Make(4));
  Ref<StreamMarkerItf> m = in->ToStreamMarker();
  EXPECT_EQ(m->GetPosition(), 2);
  EXPECT_EQ(m->GetLength(), 10);

  EXPECT_EQ(ReadSome(in, 1), "2");    // fills 2345
  EXPECT_EQ(ReadSome(in, 9), "345");  // the rest of the buffer only
  EXPECT_EQ(rawMarker->GetPosition(), 6);
  m->SetPosition(3);  // inside the window: served from the buffer
  EXPECT_EQ(in->Read(-1), '3');
  EXPECT_EQ(rawMarker->GetPosition(), 6);
  m->SetPosition(8);  // outside: the wrapped stream moves
  EXPECT_EQ(rawMarker->GetPosition(), 8);
  EXPECT_EQ(ReadSome(in, 9), "89");
  EXPECT_EQ(m->GetPosition(), 10);
  EXPECT_EQ(BoundsPayload(*m, 11), 11);
  EXPECT_EQ(m->GetPosition(), 10);  // a refused move changes nothing
}

TEST(BufferedInput, LargeReadsBypassTheBufferAndKeepPositions) {
  SyncInputStream in = SyncInputStreamExp::Make(
      SyncInputStreamExp::Make(BufferOf("abcdefghijklmnop")), BufferExp::Make(4));
  Ref<StreamMarkerItf> m = in->ToStreamMarker();
  EXPECT_EQ(ReadSome(in, 2), "ab");  // buffer holds abcd
  EXPECT_EQ(ReadSome(in, 8), "cd");
  EXPECT_EQ(ReadSome(in, 8), "efghijkl");  // straight from the wrapped stream
  EXPECT_EQ(m->GetPosition(), 12);
  m->SetPosition(10);  // must not land in the bytes buffered before the direct read
  EXPECT_EQ(ReadSome(in, 2), "kl");
  EXPECT_EQ(in->Read(-1), 'm');
}

TEST(BufferedInput, OverTrickleOneWrappedReadPerCall) {
  auto* raw = new FakeInput("abcdefghij", {3});
  SyncInputStream in = SyncInputStreamExp::Make(SyncInputStream(raw), BufferExp::Make(5));
  EXPECT_FALSE(in->IsRandomAccess());
  EXPECT_THROW(in->ToStreamMarker(), NotRandomAccessException);

  EXPECT_EQ(ReadSome(in, 4), "abc");  // one fill brought only 3
  EXPECT_EQ(raw->counts.size(), 1u);
  EXPECT_EQ(raw->counts.back(), 5u);
  EXPECT_EQ(in->Read(std::int64_t{77}), 'd');
  EXPECT_EQ(raw->timeouts.back(), 77);  // the caller's timeout, unchanged
  EXPECT_EQ(raw->counts.size(), 2u);

  std::string big(6, '\0');  // buffer holds "ef": served first, no wrapped read
  EXPECT_EQ(in->Read(big.data(), 6, -1), 2u);
  EXPECT_EQ(raw->counts.size(), 2u);
  EXPECT_EQ(in->Read(big.data(), 6, 5), 3u);  // empty buffer, count >= capacity: direct
  EXPECT_EQ(raw->counts.back(), 6u);
  EXPECT_EQ(big.substr(0, 3), "ghi");
  EXPECT_EQ(ReadSome(in, 1), "j");
  EXPECT_EQ(ReadSome(in, 1), "");
  EXPECT_EQ(in->Read(-1), -1);
}

TEST(BufferedOutput, FlushIsOneWrappedWriteAndReleaseDropsPending) {
  auto* sink = new FakeOutput(UINT_MAX, 3);
  SyncOutputStream sinkRef(sink);
  {
    SyncOutputStream out = SyncOutputStreamExp::Make(sinkRef, BufferExp::Make(8));
    EXPECT_FALSE(out->IsRandomAccess());
    EXPECT_THROW(out->ToStreamMarker(), NotRandomAccessException);
    EXPECT_EQ(out->Write("abcdefg", 7), 7u);
    EXPECT_EQ(sink->writes, 0);
    out->Flush();
    EXPECT_EQ(sink->writes, 1);
    EXPECT_EQ(sink->text, "abc");
    out->Flush();
    EXPECT_EQ(sink->text, "abcdef");
    EXPECT_EQ(out->Write("hi", 2), 2u);  // pending "ghi" after the moved rest
  }
  EXPECT_EQ(sink->text, "abcdef");
  EXPECT_EQ(sink->writes, 2);
}

TEST(BufferedOutput, FullBufferFlushesOnceThenStores) {
  auto* sink = new FakeOutput(UINT_MAX, 2);
  SyncOutputStream sinkRef(sink);
  SyncOutputStream out = SyncOutputStreamExp::Make(sinkRef, BufferExp::Make(4));
  EXPECT_EQ(out->Write("abcdef", 6), 6u);  // 4 fit, one flush takes 2, 2 more fit
  EXPECT_EQ(sink->text, "ab");
  EXPECT_TRUE(out->Write(static_cast<unsigned char>('g')));  // full: flush "cd", then store
  EXPECT_EQ(sink->text, "abcd");

  // Straight-through path: the remainder exceeds the buffer; the byte the flush left pending is
  // dropped.
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
  EXPECT_EQ(m->GetPosition(), 3);
  EXPECT_EQ(m->GetLength(), 3);  // pending bytes count
  m->SetPosition(1);             // inside the pending window
  EXPECT_TRUE(out->Write(static_cast<unsigned char>('B')));
  EXPECT_EQ(m->GetLength(), 3);
  out->Flush();
  EXPECT_EQ(Text(store, 3), "aBc");
  EXPECT_EQ(m->GetPosition(), 3);  // a cursor behind the flushed bytes lands after them

  m->SetPosition(3);
  EXPECT_EQ(out->Write("de", 2), 2u);
  out->Flush();
  EXPECT_EQ(m->GetPosition(), 5);
  // Kept bookkeeping of the straight-through path: S grows by the bytes buffered before the
  // flush as well, so the reported position runs ahead of the wrapped stream.
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

TEST(FileStreams, OverTmpfileAndLeftOpen) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  {
    SyncOutputStream out = SyncOutputStreamExp::Make(f);
    EXPECT_EQ(out->Write("hello", 5), 5u);
    EXPECT_TRUE(out->Write(static_cast<unsigned char>('!')));
    out->Flush();
    EXPECT_FALSE(out->IsRandomAccess());
    EXPECT_THROW(out->ToStreamMarker(), NotRandomAccessException);
  }
  std::rewind(f);
  {
    SyncInputStream in = SyncInputStreamExp::Make(f);
    EXPECT_EQ(in->Read(-1), 'h');
    EXPECT_EQ(ReadSome(in, 10), "ello!");
    EXPECT_EQ(in->Read(-1), -1);
    EXPECT_THROW(static_cast<const SyncInputStreamItf&>(*in).ToStreamMarker(),
                 NotRandomAccessException);
  }
  EXPECT_EQ(std::fseek(f, 0, SEEK_SET), 0);  // still open
  EXPECT_EQ(std::fclose(f), 0);
}

TEST(NullAndDefaults, NullStreamsAndInterfaceDefaults) {
  SyncInputStream in = SyncInputStreamExp::Make();
  char c;
  EXPECT_EQ(in->Read(&c, 1, -1), 0u);
  EXPECT_EQ(in->Read(-1), -1);
  EXPECT_THROW(in->ToStreamMarker(), NotRandomAccessException);
  SyncOutputStream out = SyncOutputStreamExp::Make();
  EXPECT_EQ(out->Write("abc", 3), 3u);
  EXPECT_TRUE(out->Write(static_cast<unsigned char>(0)));

  // The defaults over a bulk-only stream.
  SyncInputStream trickle(new FakeInput("\xff"));
  EXPECT_EQ(trickle->Read(-1), 255);
  EXPECT_EQ(trickle->Read(-1), -1);
  SyncOutputStream refusing(new FakeOutput(0));
  EXPECT_FALSE(refusing->Write(static_cast<unsigned char>('x')));
  EXPECT_THROW(static_cast<const SyncOutputStreamItf&>(*refusing).ToStreamMarker(),
               NotRandomAccessException);
}

}  // namespace
}  // namespace kiv
