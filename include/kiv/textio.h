// Text on top of byte streams: a text input stream that reads characters and lines of a given
// encoding out of a SyncInputStream, a reader that turns those lines into Strings, and a writer
// that encodes strings, C text, characters and numbers onto a SyncOutputStream, optionally through
// a line-mode stream that hands each completed line to its sink in one write.
//
// None of these objects locks itself: one thread uses a reader or writer at a time. Writers that
// share one output stream from several threads put the thread-safe output stream of <kiv/filters.h>
// under it; with line mode on, each line then reaches the sink whole.
#ifndef KIV_TEXTIO_H_
#define KIV_TEXTIO_H_

#include <kiv/buffer.h>
#include <kiv/encodings.h>
#include <kiv/export.h>
#include <kiv/object.h>
#include <kiv/streams.h>
#include <kiv/string.h>

#include <cstdint>

namespace kiv {

// A buffered input stream that also reads characters and lines in its text encoding. As a
// SyncInputStreamItf it delivers the raw bytes; the text operations and the byte reads share one
// read-ahead buffer, so they may be mixed.
struct KIV_EXPORT TextInputStreamItf : public SyncInputStreamItf {
  ~TextInputStreamItf() override;

  virtual TextEncoding GetTextEncoding() const = 0;
  // The new encoding reads the bytes from the current position on.
  virtual void SetTextEncoding(const TextEncoding& encoding) = 0;
  // The next character as one 16-bit unit, zero-extended (an ASCII byte above 0x7F as its
  // sign-extended unit, a UTF-16 surrogate as it stands); 0 at end of data and for input that does
  // not convert into a single unit, which is consumed all the same: a character above U+FFFF in
  // UTF-8 or UTF-32 text reads as 0. A character cut by the end of the read-ahead buffer is
  // completed from the wrapped stream first.
  virtual std::uint32_t ReadChar(std::int64_t timeout) = 0;
  // Reads the bytes of the current line, through its line feed, into `out`: at most `limit` bytes
  // (cut to whole code units) and never more. A line that does not fit, or that spans several
  // reads of the wrapped stream, comes back over several calls; the call that returns its line
  // feed ends with it. 0 only at end of data. A time-out before the first byte propagates; a
  // time-out after some bytes were delivered ends the call with those bytes, and the next
  // ReadLine reports it (throws IOTimeoutException) before reading on.
  virtual unsigned ReadLine(void* out, unsigned limit, std::int64_t timeout) = 0;
};

KIV_DECLARE_HANDLE(TextInputStream, TextInputStreamItf);

// Reads String lines out of a text input stream, passing its fixed time-out to every read.
struct KIV_EXPORT ReaderItf : public virtual RefCount {
  ~ReaderItf() override;

  // Both forwarded to the text input stream.
  virtual TextEncoding GetTextEncoding() const = 0;
  virtual void SetTextEncoding(const TextEncoding& encoding) = 0;
  // The next line, with its line feed (a carriage return before it stays in the line; no
  // carriage-return handling is done). The last line of the data may lack the line feed. At end
  // of data the line is the empty string and the result false; otherwise true. End of data is
  // never an exception. IOTimeoutException reaches the caller only when the time-out strikes
  // before the first byte of the line; a time-out later returns the partial line, and the next
  // call goes on from there.
  virtual bool ReadLine(String& line) = 0;
  // The text input stream's ReadChar with the reader's time-out; false, with `c` 0, when that
  // gives 0 (end of data, or a character that does not convert into one 16-bit unit).
  virtual bool ReadChar(std::uint32_t& c) = 0;
  // The same cut to 16 bits.
  virtual bool ReadChar(unsigned short& c) = 0;
};

KIV_DECLARE_HANDLE(Reader, ReaderItf);

// Writes text in its encoding onto an output stream: either straight to the raw stream, or, in
// line mode, through a LineModeSyncOutputStream over it (see below). The Write operations return
// true when every byte was accepted; a stream that stops accepting makes them return false (a
// full stream is not an exception). Conversion failures come from the converters
// (CannotConvertException).
struct KIV_EXPORT WriterItf : public virtual RefCount {
  ~WriterItf() override;

  virtual TextEncoding GetTextEncoding() const = 0;
  // Text written from now on is encoded in `encoding`. A line held by the line-mode stream is
  // first handed on as it stands.
  virtual void SetTextEncoding(const TextEncoding& encoding) = 0;
  // Writes `count` raw bytes through the current stream, repeating until all are taken or a
  // write takes none; returns the bytes taken.
  virtual unsigned WriteBytes(const void* data, unsigned count) = 0;
  // The string converted into the writer's encoding.
  virtual bool Write(const String& text) = 0;
  // The string, then a line feed.
  virtual bool WriteLine(const String& text) = 0;
  // Terminated text in the system's 8-bit encoding (UTF-8 here). Written unchanged when the
  // writer's encoding is the system encoding, or when the writer is ASCII and the text is 1 to
  // 4096 bytes of pure ASCII; otherwise converted as a String. Null writes nothing.
  virtual bool Write(const char* text) = 0;
  // Terminated 16-bit wide text. Null writes nothing.
  virtual bool Write(const unsigned short* text) = 0;
  // One character given as a code point, encoded whole (UTF-16 gets a surrogate pair for values
  // above 0xFFFF, UTF-8 four bytes). CannotConvertException for values of 0x110000 and above,
  // and for a lone surrogate value except on a UTF-16 writer, which writes it as the unit.
  virtual bool WriteChar(std::uint32_t c) = 0;
  // One character of the system encoding ('a', '\n'); a byte of 0x80 and above is taken as the
  // Latin-1 character of that value.
  virtual bool Write(char c) = 0;
  // Decimal numbers, as printf's "%d", "%u", "%lld" and "%llu" write them.
  virtual bool Write(std::int32_t value) = 0;
  virtual bool Write(std::uint32_t value) = 0;
  virtual bool Write(std::int64_t value) = 0;
  virtual bool Write(std::uint64_t value) = 0;
  // As printf's "%g" writes it (six significant digits: 0.5, 1e+20, inf, nan).
  virtual bool Write(double value) = 0;
  // Lower-case hexadecimal without prefix, padded with zeros to at least `min_digits` digits.
  virtual bool WriteHex(std::uint64_t value, unsigned min_digits) = 0;
  // A line feed.
  virtual bool NewLine() = 0;
  // Hands on the line held in line mode, then flushes the raw stream.
  virtual void Flush() = 0;
  // The raw stream the writer was made over.
  virtual SyncOutputStream GetOutputStream() const = 0;
  // true: text goes through the line-mode stream; false (the state at creation): straight to the
  // raw stream. Leaving line mode first hands on the line held, so that bytes keep their order.
  virtual void SetLineMode(bool line_mode) = 0;
};

KIV_DECLARE_HANDLE(Writer, WriterItf);

// Line mode: an output stream that gathers bytes into lines and hands each run of completed lines
// to the wrapped stream in one Write (repeated only when that stream takes part of it). The bytes
// themselves pass unchanged: line mode adds, drops and translates nothing, it only changes how
// the bytes are grouped into writes. Over the thread-safe output stream this keeps the lines of
// concurrent writers (log lines) from interleaving.
//
// A line ends with the line feed of the stream's encoding: the code unit 10 at a unit boundary
// (the byte 0x0A for ASCII and UTF-8, the 16-bit or 32-bit unit 10 in machine order for UTF-16 and
// UTF-32). The unfinished line is held until its line feed arrives, Flush is called, or it grows
// past kMaxLine bytes (then it is handed on as it stands, to bound memory). Releasing the stream
// hands on the unfinished line too, so a log entry whose writer forgets the final line feed is
// not lost.
class KIV_EXPORT LineModeSyncOutputStream : public SyncOutputStreamWrapper {
 public:
  static constexpr unsigned kMaxLine = 64 * 1024;

  LineModeSyncOutputStream(const SyncOutputStream& out, const TextEncoding& encoding);
  // Hands on the unfinished line; failures of the wrapped stream are dropped.
  ~LineModeSyncOutputStream() override;

  using SyncOutputStreamItf::Write;
  // Takes all `count` bytes and hands on the completed lines. Returns `count`, or 0 (taking
  // nothing) when completed lines from an earlier call are still held because the wrapped stream
  // stopped accepting them and still refuses.
  unsigned Write(const void* src, unsigned count) override;
  bool Write(unsigned char byte) override;
  // Hands on everything held, the unfinished line included, then flushes the wrapped stream.
  void Flush() override;
  // Never random access: the held bytes would make the wrapped stream's positions misleading.
  bool IsRandomAccess() const override;
  // Both throw NotRandomAccessException.
  Ref<StreamMarkerItf> ToStreamMarker() override;
  Ref<StreamMarkerItf> ToStreamMarker() const override;
  TextEncoding GetTextEncoding() const;
  // Hands on the bytes held (they are in the old encoding), then looks for line feeds of the new
  // one.
  void SetTextEncoding(const TextEncoding& encoding);
  // Hands on every byte held, the unfinished line included, without flushing the wrapped stream;
  // false when the wrapped stream stopped accepting (the rest stays held).
  bool HandOn();

 private:
  // Writes the first `n` held bytes to the wrapped stream and drops them; returns false when the
  // wrapped stream stopped accepting before all were taken (the rest stays held).
  bool Push(unsigned n);
  // Offset just past the last line feed among the held bytes, or 0.
  unsigned LastLineEnd();
  void Append(const void* src, unsigned count);

  TextEncoding encoding_;
  Buffer line_;            // held bytes, [0, held_)
  unsigned held_ = 0;      // bytes held
  unsigned scanned_ = 0;   // held bytes already searched for a line feed
  unsigned complete_ = 0;  // held bytes that form completed lines
  unsigned unit_ = 1;      // code unit size in bytes
  unsigned phase_ = 0;     // bytes handed on so far, modulo unit_ (the unit boundary of line_)
  bool blocked_ = false;   // the last hand-on was refused part-way
};

struct KIV_EXPORT TextInputStreamExp {
  // Reads `in` through `buffer` (the read-ahead store; its size bounds one read of `in`) as text
  // in `encoding`.
  static TextInputStream Make(const SyncInputStream& in, const Buffer& buffer,
                              const TextEncoding& encoding);
};

struct KIV_EXPORT ReaderExp {
  // `timeout` is passed to every read of `in`, with the meaning of stream time-outs (negative:
  // no limit of the caller's own).
  static Reader Make(const TextInputStream& in, std::int64_t timeout);
};

struct KIV_EXPORT WriterExp {
  // A writer of `encoding` text onto `out`, line mode off.
  static Writer Make(const TextEncoding& encoding, const SyncOutputStream& out);
};

struct KIV_EXPORT LineModeSyncOutputStreamExp {
  // A line-mode stream over `out` for text in `encoding`.
  static SyncOutputStream Make(const SyncOutputStream& out, const TextEncoding& encoding);
};

}  // namespace kiv

#endif  // KIV_TEXTIO_H_
