// The stream filters: conversion through a block converter, a fixed-length limit, chunked
// transfer coding in both directions, draining on release, a default time-out, the tee, the
// logging input stream and the thread-safe output stream.
#ifndef KIV_SRC_IO_FILTER_STREAMS_H_
#define KIV_SRC_IO_FILTER_STREAMS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "io/stream_buffered.h"
#include "io/stream_helpers.h"
#include "kiv/buffer.h"
#include "kiv/converters.h"
#include "kiv/filters.h"
#include "kiv/locks.h"
#include "kiv/streams.h"

namespace kiv {

// Converts what is read from the wrapped stream. Unconverted input waits in a 1024-byte store; a
// converted character that does not fit in the caller's room waits in an overflow store and is
// delivered first by the next reads.
class FilterSyncInStream : public SyncInputStreamWrapper {
 public:
  static constexpr unsigned kInputSize = 1024;

  FilterSyncInStream(const SyncInputStream& in, const BlockConverter& converter);
  ~FilterSyncInStream() override;

  using SyncInputStreamItf::Read;
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;

 private:
  // One read of the wrapped stream behind the unconverted bytes, of about the input that
  // `room` output bytes need (at least one byte). Returns the bytes read.
  unsigned Refill(unsigned room, std::int64_t timeout);
  // Drops the first `n` unconverted bytes.
  void Consume(unsigned n) noexcept;
  // Delivers what waits in the overflow store, as much as `count` takes; returns the bytes.
  unsigned TakeOverflow(unsigned char* out, unsigned count) noexcept;
  // For a caller whose room of `out_size` bytes holds not even one character: converts into the
  // overflow store, of the size the converter asks for, and delivers from there.
  unsigned ConvertThroughOverflow(unsigned char* out, unsigned count, unsigned out_size);

  BlockConverter converter_;
  unsigned char input_[kInputSize];
  unsigned input_length_ = 0;
  unsigned in_pos_ = 0;
  unsigned out_pos_ = 0;
  DataConverterItf::BufferResult last_ = DataConverterItf::ResultOK;
  Buffer overflow_;
  unsigned overflow_offset_ = 0;
  unsigned overflow_pending_ = 0;
};

// Converts what is written before writing it to the wrapped stream.
class FilterSyncOutStream : public SyncOutputStreamWrapper {
 public:
  FilterSyncOutStream(const SyncOutputStream& out, const BlockConverter& converter);
  ~FilterSyncOutStream() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  void Flush() override;

 private:
  BlockConverter converter_;
  unsigned in_pos_ = 0;
  unsigned out_pos_ = 0;
};

class FixedLengthSyncInStreamImpl : public SyncInputStreamWrapper {
 public:
  FixedLengthSyncInStreamImpl(const SyncInputStream& in, std::uint32_t limit);
  ~FixedLengthSyncInStreamImpl() override;

  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  std::int32_t Read(std::int64_t timeout) override;

 private:
  std::uint32_t limit_;
  std::uint32_t consumed_ = 0;
};

// Decodes chunked transfer coding. The state of a size line and of a chunk's closing CR LF is
// kept between calls, so a time-out in the middle of either resumes where it struck.
class ChunkedSyncInStreamImpl : public SyncInputStreamWrapper {
 public:
  static constexpr unsigned kLineSize = 64;

  // `capped`: each read is cut at the rest of the current chunk (see MakeCapped).
  ChunkedSyncInStreamImpl(const SyncInputStream& in, bool capped);
  ~ChunkedSyncInStreamImpl() override;

  using SyncInputStreamItf::Read;
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;

  // KEPT: strtoul(text, nullptr, 16) as a 32-bit unsigned long reads the `length` bytes at `text`
  // (which stop at the first NUL as a C string would).
  static std::uint32_t ParseSize(const unsigned char* text, unsigned length) noexcept;

 private:
  class Window;
  // The usual case of ReadSizeLine, without its loop: a size line whole in the window with no
  // partial line before it is accepted and taken (true); otherwise nothing is taken (false).
  bool SizeLineInPlace(Window& window) noexcept;
  // Reads size lines until one is accepted (true) or the wrapped stream ends (false, end set).
  bool ReadSizeLine(SyncInputStreamItf& in, std::int64_t timeout, Window& window);
  // Reads what is left of the chunk's closing CR LF; a wrong byte or the end of data ends the
  // stream.
  void ReadChunkEnd(SyncInputStreamItf& in, std::int64_t timeout, Window& window);
  // Adds one byte to the size line; true when it ended a line that was accepted as a size line.
  bool TakeLineByte(unsigned char byte) noexcept;
  // Adds bytes without a line feed to the size line, as TakeLineByte would one by one.
  void AppendToLine(const unsigned char* bytes, unsigned count) noexcept;
  // A whole line of `length` bytes without its line feed: accepted as a size line (true) or not.
  bool AcceptLine(const unsigned char* text, unsigned length) noexcept;
  // The next framing byte, from the window or else from the wrapped stream; -1 at its end.
  std::int32_t NextByte(SyncInputStreamItf& in, std::int64_t timeout, Window& window);

  // The wrapped stream when it is the library's buffered stream: framing bytes are then taken
  // from its buffer directly (through a Window), the same bytes that reading them one by one
  // would consume.
  BufferedSyncInStream* buffered_;
  std::uint32_t size_ = 0;
  std::uint32_t consumed_ = 0;
  bool end_ = false;
  bool capped_;
  unsigned char line_[kLineSize];
  unsigned line_length_ = 0;
  // Bytes of the closing CR LF still to read: 0 (none), 2 (CR then LF) or 1 (LF).
  unsigned chunk_end_left_ = 0;
  bool chunk_end_bad_ = false;
};

// The strict chunked decoder (see ChunkedSyncInputStreamItf). The wrapped stream is read in blocks
// into a buffer of its own; chunk data that the caller asks for in large reads goes straight from
// the wrapped stream to the caller, never past the chunk's end. Framing is decoded line by line: a
// line found whole in the buffer is parsed where it lies; one cut by the end of the buffer is
// gathered in a string, so lines are bounded by the limits, not by the buffer. All progress is
// kept in members between reads, so a time-out of the wrapped stream loses nothing.
class StrictChunkedSyncInStreamImpl : public ChunkedSyncInputStreamItf {
 public:
  static constexpr unsigned kBlockSize = 16384;
  // Reads of at least this much chunk data bypass the buffer when it is empty: one copy fewer,
  // for one more read of the wrapped stream (on a connection, a system call) that the size pays
  // for.
  static constexpr unsigned kDirectRead = kBlockSize / 4;

  StrictChunkedSyncInStreamImpl(const SyncInputStream& in, const ChunkedLimits& limits);
  ~StrictChunkedSyncInStreamImpl() override;

  using SyncInputStreamItf::Read;
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  const std::vector<ChunkedField>& GetExtensions() const override;
  const std::vector<ChunkedField>& GetTrailers() const override;
  std::uint64_t GetChunkRemaining() const override;
  bool IsComplete() const override;
  std::string_view GetUnread() const override;

 private:
  enum class State : unsigned char {
    kSizeLine,  // before a chunk's size line
    kData,      // inside a chunk's data; remaining_ > 0
    kDataEnd,   // before the CR LF that closes a chunk's data
    kTrailer,   // before a trailer field or the empty line that ends the body
    kComplete,
    kFailed,     // malformed framing; failure_ holds the text
    kTruncated,  // the wrapped stream ended inside the body
  };

  // The frame of almost every chunk, decoded in one pass: the previous chunk's CR LF and a size
  // line of at most kShortSizeDigits digits without extensions, all in the buffer. False, with
  // nothing consumed, for anything else, which ReachData then decodes the long way.
  static constexpr long kShortSizeDigits = 15;
  bool TakeShortFrame() noexcept;
  // Decodes framing until chunk data is at hand (true) or the body is complete (false).
  bool ReachData(std::int64_t timeout);
  // One read of the wrapped stream behind the buffered bytes, which callers have consumed all but
  // at most one of; UnexpectedEOFException at its end.
  void Refill(std::int64_t timeout);
  // The next line without its line break, consumed from the input, at most `limit` bytes long;
  // `offset` receives the offset of its first byte. The view lies in the buffer or in line_.
  std::string_view TakeLine(std::uint32_t limit, const char* too_long, std::int64_t timeout,
                            std::uint64_t& offset);
  void ParseSizeLine(std::string_view line, std::uint64_t offset);
  void ParseTrailerField(std::string_view line, std::uint64_t offset);
  // Marks the decoder failed and throws ChunkedFormatException "<fault> at byte <offset>".
  [[noreturn]] void Refuse(const char* fault, std::uint64_t offset);
  // Throws the refusal again (the string is copied into the exception).
  [[noreturn]] void ThrowFailure() const;
  std::uint64_t Offset() const noexcept { return origin_ + pos_; }

  SyncInputStream in_;
  ChunkedLimits limits_;
  std::unique_ptr<unsigned char[]> buffer_;
  unsigned pos_ = 0;          // next byte to decode
  unsigned end_ = 0;          // end of the buffered bytes
  std::uint64_t origin_ = 0;  // offset of buffer_[0] in the coded body
  std::uint64_t remaining_ = 0;
  std::uint64_t trailer_size_ = 0;
  State state_ = State::kSizeLine;
  std::string line_;  // the gathered start of a line cut by the end of the buffer
  std::uint64_t line_offset_ = 0;
  std::string failure_;
  std::vector<ChunkedField> extensions_;
  std::vector<ChunkedField> trailers_;
};

class ChunkedSyncOutStreamImpl : public SyncOutputStreamWrapper {
 public:
  explicit ChunkedSyncOutStreamImpl(const SyncOutputStream& out);
  // Writes the last chunk and flushes the wrapped stream; failures are dropped.
  ~ChunkedSyncOutStreamImpl() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  void Flush() override;
};

class ConsumeAllSyncInputStreamImpl : public SyncInputStreamWrapper {
 public:
  static constexpr unsigned kDrainSize = 4096;

  ConsumeAllSyncInputStreamImpl(const SyncInputStream& in, std::int64_t timeout);
  // Drains the wrapped stream unless it already reported its end; failures are dropped.
  ~ConsumeAllSyncInputStreamImpl() override;

  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  std::int32_t Read(std::int64_t timeout) override;

 private:
  std::int64_t timeout_;
  bool end_ = false;
};

class DefaultTimeoutSyncInputStreamImpl : public SyncInputStreamWrapper {
 public:
  DefaultTimeoutSyncInputStreamImpl(const SyncInputStream& in, std::int64_t timeout);
  ~DefaultTimeoutSyncInputStreamImpl() override;

  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  std::int32_t Read(std::int64_t timeout) override;

 private:
  std::int64_t Effective(std::int64_t timeout) const noexcept {
    return timeout < 0 ? timeout_ : timeout;
  }

  std::int64_t timeout_;
};

// Writes to a primary stream and copies what it accepted to a secondary one, best effort. Its
// marker, when both are random access, reports the first stream's length and position and moves
// both (the second one's failures dropped).
class TeeSyncOutStream : public SelfMarkedStream<TeeSyncOutStream, SyncOutputStreamItf> {
 public:
  TeeSyncOutStream(const SyncOutputStream& first, const SyncOutputStream& second);
  ~TeeSyncOutStream() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  bool Write(unsigned char byte) override;
  void Flush() override;
  bool IsRandomAccess() const override;

  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  void SetPosition(std::int64_t pos) override;

 private:
  friend SelfMarkedStream;
  template <class Self>
  static Ref<StreamMarkerItf> Marker(Self& self) {
    if (!self.IsRandomAccess()) return self.SyncOutputStreamItf::ToStreamMarker();
    return Ref<StreamMarkerItf>(&self);
  }

  SyncOutputStream first_;
  SyncOutputStream second_;
};

// Copies everything read to a log stream, whose failures are dropped.
class LoggingSyncInputStream : public SelfMarkedStream<LoggingSyncInputStream, SyncInputStreamItf> {
 public:
  LoggingSyncInputStream(const SyncInputStream& in, const SyncOutputStream& log);
  ~LoggingSyncInputStream() override;

  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  // KEPT: a byte of value 0 read singly is not logged (the bulk read logs every byte).
  std::int32_t Read(std::int64_t timeout) override;
  bool IsRandomAccess() const override;

  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  // Moving to another position writes "\n### INPUT MARKER RESET FROM <old> TO <new>\n" to the
  // log (ASCII, decimal) and flushes it.
  void SetPosition(std::int64_t pos) override;

 private:
  friend SelfMarkedStream;
  template <class Self>
  static Ref<StreamMarkerItf> Marker(Self& self) {
    if (!self.in_->IsRandomAccess()) return self.in_->ToStreamMarker();
    return Ref<StreamMarkerItf>(&self);
  }

  SyncInputStream in_;
  SyncOutputStream log_;
};

// Runs every operation of the wrapped stream under one lock. Its marker operations run under the
// same lock.
class MTSyncOutputStreamImpl
    : public SelfMarkedStream<MTSyncOutputStreamImpl, SyncOutputStreamItf> {
 public:
  explicit MTSyncOutputStreamImpl(const SyncOutputStream& out);
  ~MTSyncOutputStreamImpl() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  bool Write(unsigned char byte) override;
  void Flush() override;
  bool IsRandomAccess() const override;

  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  void SetPosition(std::int64_t pos) override;

 private:
  friend SelfMarkedStream;
  template <class Self>
  static Ref<StreamMarkerItf> Marker(Self& self) {
    ObjectLockGuard guard(self.lock_);
    self.out_->ToStreamMarker();  // throws NotRandomAccessException when `out` has no marker
    return Ref<StreamMarkerItf>(&self);
  }

  SyncOutputStream out_;
  ObjectLock lock_;
};

}  // namespace kiv

#endif  // KIV_SRC_IO_FILTER_STREAMS_H_
