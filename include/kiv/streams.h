// Synchronous byte streams: the blocking input and output interfaces every stream of the library
// implements, their optional random-access facet, the abstract bases of streams that stand in
// front of another stream, and the basic streams (over a buffer, buffered over another stream,
// over a standard I/O FILE, and null streams).
//
// The contract, shared by every stream built on these interfaces:
// - a bulk Read returns how many bytes it delivered; 0 means end of data, a shorter positive count
//   is an ordinary partial read. The single-byte Read returns 0..255, or -1 at end of data;
// - a bulk Write returns how many bytes it accepted; 0 means the stream takes no more (callers
//   that must write everything loop and treat 0 as failure);
// - running out of data or room is a result, never an exception;
// - the `timeout` of a read is in milliseconds and is passed down a chain of streams unchanged; a
//   negative value means that the caller sets no limit of its own. The streams of this header
//   ignore it or pass it on.
// None of these streams locks itself: one thread uses a stream at a time.
#ifndef KIV_STREAMS_H_
#define KIV_STREAMS_H_

#include <kiv/buffer.h>
#include <kiv/export.h>
#include <kiv/object.h>

#include <cstdint>
#include <cstdio>

namespace kiv {

// The random-access facet of a stream, reached through ToStreamMarker().
struct KIV_EXPORT StreamMarkerItf : public virtual RefCount {
  ~StreamMarkerItf() override;

  // The total length of the stream's data.
  virtual std::int64_t GetLength() = 0;
  // The offset of the next byte to be read or written.
  virtual std::int64_t GetPosition() = 0;
  // Moves to `pos`; BoundsException carrying `pos` when the stream cannot go there.
  virtual void SetPosition(std::int64_t pos) = 0;
};

// A blocking source of bytes.
struct KIV_EXPORT SyncInputStreamItf : public virtual RefCount {
  ~SyncInputStreamItf() override;

  // Reads at most `count` bytes into `dst`; returns how many, 0 at end of data.
  virtual unsigned Read(void* dst, unsigned count, std::int64_t timeout) = 0;
  // One byte as 0..255, or -1 at end of data. Default: a bulk Read of one byte.
  virtual std::int32_t Read(std::int64_t timeout);
  // Default: false.
  virtual bool IsRandomAccess() const;
  // Default: both throw NotRandomAccessException.
  virtual Ref<StreamMarkerItf> ToStreamMarker();
  virtual Ref<StreamMarkerItf> ToStreamMarker() const;
};

// A blocking sink of bytes.
struct KIV_EXPORT SyncOutputStreamItf : public virtual RefCount {
  ~SyncOutputStreamItf() override;

  // Writes at most `count` bytes from `src`; returns how many were accepted, 0 when the stream
  // can take no more.
  virtual unsigned Write(const void* src, unsigned count) = 0;
  // Default: a bulk Write of one byte; true when it took exactly that byte.
  virtual bool Write(unsigned char byte);
  // Pushes buffered data towards the underlying sink.
  virtual void Flush() = 0;
  // Default: false.
  virtual bool IsRandomAccess() const;
  // Default: both throw NotRandomAccessException.
  virtual Ref<StreamMarkerItf> ToStreamMarker();
  virtual Ref<StreamMarkerItf> ToStreamMarker() const;
};

KIV_DECLARE_HANDLE(SyncInputStream, SyncInputStreamItf);
KIV_DECLARE_HANDLE(SyncOutputStream, SyncOutputStreamItf);

// Abstract base of input streams that stand in front of another stream. It keeps the wrapped
// stream alive and forwards the random-access questions to it unchanged; the bulk Read is the
// subclass's, the single-byte Read is the interface default.
class KIV_EXPORT SyncInputStreamWrapper : public SyncInputStreamItf {
 public:
  ~SyncInputStreamWrapper() override;

  bool IsRandomAccess() const override;
  Ref<StreamMarkerItf> ToStreamMarker() override;
  Ref<StreamMarkerItf> ToStreamMarker() const override;

 protected:
  explicit SyncInputStreamWrapper(const SyncInputStream& wrapped) : wrapped_(wrapped) {}

  SyncInputStream& Wrapped() noexcept { return wrapped_; }
  const SyncInputStream& Wrapped() const noexcept { return wrapped_; }

 private:
  SyncInputStream wrapped_;
};

// Abstract base of output streams that stand in front of another stream; as the input wrapper,
// with the bulk Write and Flush left to the subclass.
class KIV_EXPORT SyncOutputStreamWrapper : public SyncOutputStreamItf {
 public:
  ~SyncOutputStreamWrapper() override;

  bool IsRandomAccess() const override;
  Ref<StreamMarkerItf> ToStreamMarker() override;
  Ref<StreamMarkerItf> ToStreamMarker() const override;

 protected:
  explicit SyncOutputStreamWrapper(const SyncOutputStream& wrapped) : wrapped_(wrapped) {}

  SyncOutputStream& Wrapped() noexcept { return wrapped_; }
  const SyncOutputStream& Wrapped() const noexcept { return wrapped_; }

 private:
  SyncOutputStream wrapped_;
};

class BlockConverter;  // <kiv/converters.h>; used by the filter overloads below

struct KIV_EXPORT SyncInputStreamExp {
  // Reads the whole buffer (its size at creation), from position 0. Random access.
  static Ref<SyncInputStreamItf> Make(const Buffer& buffer);
  // Reads `in` through `buffer`, which serves as the read-ahead store. Each read makes at most
  // one read of `in`; reads of at least the buffer's size go straight to the caller's memory.
  // Random access when `in` is, with positions that are positions in `in`.
  static Ref<SyncInputStreamItf> Make(const SyncInputStream& in, const Buffer& buffer);
  // Reads `file` (which must not be null) with fread/fgetc; the stream never closes it.
  static Ref<SyncInputStreamItf> Make(std::FILE* file);
  // A stream that is always at its end.
  static Ref<SyncInputStreamItf> Make();

  // Filters (defined with the other filters; see <kiv/filters.h>):
  // Converts the bytes read from `in` with `converter`. Once it holds data for its caller it reads
  // `in` with timeout 0. A caller whose room cannot take even one converted character gets it
  // through an overflow store; DataConverterBufferException (with the size asked for) when the
  // converter cannot convert into the room it asked for itself.
  static Ref<SyncInputStreamItf> Make(const SyncInputStream& in, const BlockConverter& converter);
  // Copies every byte read from `in` to `log` (failures of `log` are dropped). Random access when
  // `in` is; moving the position writes a "### INPUT MARKER RESET FROM a TO b" line to `log`.
  static Ref<SyncInputStreamItf> Make(const SyncInputStream& in, const SyncOutputStream& log);
};

struct KIV_EXPORT SyncOutputStreamExp {
  // Writes into the buffer from position 0 until it is full. Random access; its length is the
  // furthest position ever written.
  static Ref<SyncOutputStreamItf> Make(const Buffer& buffer);
  // Writes to `out` through `buffer`, which serves as the write-behind store. Pending bytes reach
  // `out` only through Flush (one write of `out` per call) or when the buffer runs full; releasing
  // the stream does not flush it, so owners call Flush first.
  static Ref<SyncOutputStreamItf> Make(const SyncOutputStream& out, const Buffer& buffer);
  // Writes `file` (which must not be null) with fwrite/fputc; the stream never closes it.
  static Ref<SyncOutputStreamItf> Make(std::FILE* file);
  // A stream that accepts and discards everything.
  static Ref<SyncOutputStreamItf> Make();

  // Filters (defined with the other filters; see <kiv/filters.h>):
  // Converts what is written with `converter` before writing it to `out`; returns the input bytes
  // converted. An incomplete character at the end of a write is dropped, not kept for the next.
  static Ref<SyncOutputStreamItf> Make(const SyncOutputStream& out,
                                       const BlockConverter& converter);
  // The tee: writes to `first`, then what `first` accepted to `second` (a best-effort copy whose
  // failures are dropped). Random access only when both are.
  static Ref<SyncOutputStreamItf> Make(const SyncOutputStream& first,
                                       const SyncOutputStream& second);
};

}  // namespace kiv

#endif  // KIV_STREAMS_H_
