// The text input stream, the reader and the writer.
#ifndef KIV_SRC_IO_TEXTIO_IMPL_H_
#define KIV_SRC_IO_TEXTIO_IMPL_H_

#include <cstdint>

#include "io/stream_helpers.h"
#include "kiv/buffer.h"
#include "kiv/converters.h"
#include "kiv/encodings.h"
#include "kiv/streams.h"
#include "kiv/string.h"
#include "kiv/textio.h"

namespace kiv {

// The code unit of `encoding` in bytes (1 for a null handle or an encoding without units).
unsigned CodeUnitBytes(const TextEncoding& encoding);

// Offset just past the first line feed (the code unit 10, `unit` bytes wide, machine order) among
// the whole units of the `length` bytes at `data`, or 0 when there is none.
unsigned FindLineEnd(const unsigned char* data, unsigned length, unsigned unit) noexcept;

// A read-ahead buffer over the caller's stream, with the rules of the library's buffered input
// stream (one read of the wrapped stream per fill, reads of at least the buffer's size straight
// into the caller's memory, positions that are positions of the wrapped stream when it is random
// access), plus character and line reads that look into the buffered bytes.
//
// Lines are found by the code unit 10 of the encoding at unit boundaries counted from the current
// position, which is how every built-in encoding writes its line feed; this needs no decoding of
// the bytes, so malformed text never stops a line from being found.
class TextInputStreamImpl : public SelfMarkedStream<TextInputStreamImpl, TextInputStreamItf> {
 public:
  // A null buffer, or one smaller than kMinBuffer bytes, is replaced by a buffer of
  // kDefaultBuffer bytes: the character reads need room for one whole character.
  static constexpr unsigned kMinBuffer = 8;
  static constexpr unsigned kDefaultBuffer = 4096;

  TextInputStreamImpl(const SyncInputStream& in, const Buffer& buffer,
                      const TextEncoding& encoding);
  ~TextInputStreamImpl() override;

  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  std::int32_t Read(std::int64_t timeout) override;
  bool IsRandomAccess() const override;

  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  void SetPosition(std::int64_t pos) override;

  TextEncoding GetTextEncoding() const override;
  void SetTextEncoding(const TextEncoding& encoding) override;
  std::uint32_t ReadChar(std::int64_t timeout) override;
  unsigned ReadLine(void* out, unsigned limit, std::int64_t timeout) override;

 private:
  friend SelfMarkedStream;
  template <class Self>
  static Ref<StreamMarkerItf> Marker(Self& self) {
    if (!self.in_->IsRandomAccess()) return self.in_->ToStreamMarker();
    return Ref<StreamMarkerItf>(&self);
  }

  unsigned Available() const noexcept { return valid_ - cursor_; }
  // Drops the bytes already read, moves the unread ones to the front and reads the wrapped
  // stream once into the free tail. Returns the bytes that read brought (0 with no free room).
  unsigned Fill(std::int64_t timeout);

  SyncInputStream in_;
  Buffer buffer_;
  unsigned char* data_;
  unsigned size_;
  unsigned cursor_ = 0;      // r: next byte to deliver
  unsigned valid_ = 0;       // v: bytes of the buffer holding data
  std::uint64_t start_ = 0;  // S: stream offset of the buffer's first byte
  TextEncoding encoding_;
  DataConverter to_wide_;  // the encoding's to-wide converter, one character per call
  unsigned unit_ = 1;
  // A time-out struck inside the last ReadLine after it had delivered bytes; the next ReadLine
  // reports it, so that the reader returns the partial line however the device behaves next.
  bool timed_out_ = false;
};

class ReaderImpl : public ReaderItf {
 public:
  ReaderImpl(const TextInputStream& in, std::int64_t timeout);
  ~ReaderImpl() override;

  TextEncoding GetTextEncoding() const override;
  void SetTextEncoding(const TextEncoding& encoding) override;
  bool ReadLine(String& line) override;
  bool ReadChar(std::uint32_t& c) override;
  bool ReadChar(unsigned short& c) override;

 private:
  TextInputStream in_;
  std::int64_t timeout_;
};

class WriterImpl : public WriterItf {
 public:
  WriterImpl(const TextEncoding& encoding, const SyncOutputStream& out);
  ~WriterImpl() override;

  TextEncoding GetTextEncoding() const override;
  void SetTextEncoding(const TextEncoding& encoding) override;
  unsigned WriteBytes(const void* data, unsigned count) override;
  bool Write(const String& text) override;
  bool WriteLine(const String& text) override;
  bool Write(const char* text) override;
  bool Write(const unsigned short* text) override;
  bool WriteChar(std::uint32_t c) override;
  bool Write(char c) override;
  bool Write(std::int32_t value) override;
  bool Write(std::uint32_t value) override;
  bool Write(std::int64_t value) override;
  bool Write(std::uint64_t value) override;
  bool Write(double value) override;
  bool WriteHex(std::uint64_t value, unsigned min_digits) override;
  bool NewLine() override;
  void Flush() override;
  SyncOutputStream GetOutputStream() const override;
  void SetLineMode(bool line_mode) override;

 private:
  // Writes ASCII text (numbers, the line feed) in the writer's encoding.
  bool WriteAscii(const char* text, unsigned length);
  void NoteEncoding();

  SyncOutputStream raw_;
  Ref<LineModeSyncOutputStream> line_;  // keeps the encoding
  bool line_mode_ = false;
  // What the encoding is, decided once per encoding: the system encoding (C text passes
  // unchanged), ASCII-compatible 8-bit (ASCII passes unchanged), and the Unicode encodings.
  bool is_system_ = false;
  bool is_ascii_ = false;
  bool ascii_compatible_ = false;
  bool is_utf16_ = false;
  bool is_utf8_ = false;
  bool is_utf32_ = false;
};

}  // namespace kiv

#endif  // KIV_SRC_IO_TEXTIO_IMPL_H_
