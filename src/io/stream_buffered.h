// Buffered streams: a read-ahead or write-behind buffer in front of another stream. Each makes at
// most one call to the wrapped stream's Read or Write per operation, and transfers that are too
// large for the buffer go straight between the caller and the wrapped stream.
#ifndef KIV_SRC_IO_STREAM_BUFFERED_H_
#define KIV_SRC_IO_STREAM_BUFFERED_H_

#include <cstdint>
#include <typeinfo>

#include "io/stream_buffer.h"
#include "kiv/buffer.h"
#include "kiv/streams.h"

namespace kiv {

// Read-ahead over another stream. The inner buffer stream's position is the read cursor r and its
// length the count of valid bytes v; `start_` (S) is the offset in the wrapped stream of the
// buffer's first byte, so the stream's position is S + r.
//
// When the wrapped stream is random access so is this one, and its positions are positions in
// the wrapped stream: S starts at the wrapped stream's position.
class BufferedSyncInStream : public StreamMarkerItf, public SyncInputStreamWrapper {
 public:
  BufferedSyncInStream(const SyncInputStream& in, const Buffer& buffer);
  ~BufferedSyncInStream() override;

  using SyncInputStreamItf::Read;
  // Buffered bytes first, without touching the wrapped stream. With the buffer empty, a request
  // of at least the buffer's size is read straight into `dst`; a smaller one fills the buffer
  // with one wrapped read and is served from it. The result may be short of `count`.
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  std::int32_t Read(std::int64_t timeout) override;
  // This stream when the wrapped one is random access; otherwise the wrapped stream's answer
  // (NotRandomAccessException).
  Ref<StreamMarkerItf> ToStreamMarker() override;
  Ref<StreamMarkerItf> ToStreamMarker() const override;

  // The bytes buffered and not yet read, for readers in the library that scan byte by byte (the
  // chunked decoder's size lines) without a call per byte. What such a reader takes it marks with
  // Skip, which leaves the stream exactly as that many Read(timeout) calls would have.
  const unsigned char* Unread(unsigned& count) noexcept {
    count = inner_.Len() - inner_.Pos();
    return data_ + inner_.Pos();
  }
  void Skip(unsigned count) noexcept { inner_.SetState(inner_.Pos() + count, inner_.Len()); }
  // This stream when `in` is exactly a buffered input stream (not a class derived from it, which
  // might read differently), else null.
  static BufferedSyncInStream* Exactly(SyncInputStreamItf& in) noexcept;

  // The wrapped stream's length.
  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  // Inside the buffered window [S, S + v] only the cursor moves and the buffered data is kept;
  // elsewhere the wrapped stream is positioned and the buffer emptied.
  void SetPosition(std::int64_t pos) override;

 private:
  // Drops the bytes already read (S += r), moves the unread ones to the front and reads the
  // wrapped stream once into the free tail. Returns the bytes that read brought.
  unsigned Fill(std::int64_t timeout);
  // Empties the buffer, keeping the position: S += r, r = v = 0.
  void Drop() noexcept;

  BufferSyncInStream inner_;
  Buffer buffer_;
  // The buffer's bytes, looked up once: a buffer's storage never moves.
  const unsigned char* data_;
  std::uint64_t start_;
};

// Write-behind over another stream. The inner buffer stream's position is the cursor w and its
// length the count of pending bytes p; `start_` (S) is the wrapped stream's offset of the first
// pending byte, so the stream's position is S + w. As for input, S starts at the wrapped
// stream's position when that stream is random access.
//
// KEPT: this bookkeeping (callers and stored data depend on it):
// - Flush is exactly one write of the wrapped stream: what it does not take stays pending at the
//   front of the buffer. It does not flush the wrapped stream.
// - Destroying the stream does not flush: pending bytes are dropped. Owners call Flush first.
// - A write whose remainder after one flush is larger than the buffer goes straight through with
//   one wrapped write; S then grows by the bytes copied into the buffer before the flush plus the
//   bytes taken straight, although the flush already counted the flushed ones, and any bytes the
//   flush left pending are dropped.
// - Positioning outside the pending window resets the buffer without flushing it.
class BufferedSyncOutStream : public StreamMarkerItf, public SyncOutputStreamWrapper {
 public:
  BufferedSyncOutStream(const SyncOutputStream& out, const Buffer& buffer);
  // Does not flush; see above.
  ~BufferedSyncOutStream() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  // Stores the byte; when the buffer is full, flushes once and tries again.
  bool Write(unsigned char byte) override;
  void Flush() override;
  Ref<StreamMarkerItf> ToStreamMarker() override;
  Ref<StreamMarkerItf> ToStreamMarker() const override;

  // The larger of the wrapped stream's length and S + p.
  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  // Inside [S, S + p] only the cursor moves; elsewhere the wrapped stream is positioned and the
  // buffer reset (w = p = 0, S = pos), pending bytes dropped.
  void SetPosition(std::int64_t pos) override;

 private:
  // One write of the pending bytes; the rest moves to the front. Returns the bytes taken.
  unsigned FlushOnce();

  BufferSyncOutStream inner_;
  Buffer buffer_;
  std::uint64_t start_;
};

}  // namespace kiv

#endif  // KIV_SRC_IO_STREAM_BUFFERED_H_
